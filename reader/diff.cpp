// The semantic diff, on the generic chunk tree: top-level chunks are matched
// by their label (`MeshChunk "Box01"`, a number appended to a repeated one),
// sub-chunks the same way inside their parent, fields by name. Raw blocks and
// numeric sequences are compared on their typed copies, the rest on the
// decoded values.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <memory>

#include "format/code_page.h"
#include "format/memory_file.h"
#include "reader/tree/file_decoder.h"
#include "ztexport/diff.h"

namespace ztexport {

namespace {

// The shortest text that reads back as the same float; JSON's null for a
// value that is not finite.
std::string floatText(double value) {
  const auto f = static_cast<float>(value);
  if (!std::isfinite(f)) return "null";
  char buf[32];
  for (int digits = 6; digits <= 9; ++digits) {
    std::snprintf(buf, sizeof buf, "%.*g", digits, f);
    if (std::strtof(buf, nullptr) == f) break;
  }
  return buf;
}

std::string valueText(const Json& v) {
  if (v.is_number_float()) return floatText(v.get<double>());
  if (v.is_array()) {
    std::string s = "[";
    for (std::size_t i = 0; i < v.size(); ++i) s += (i ? ", " : "") + valueText(v[i]);
    return s + "]";
  }
  if (v.is_object()) {
    std::string s = "{";
    bool first = true;
    for (auto it = v.begin(); it != v.end(); ++it) {
      s += (first ? "" : ", ") + Json(it.key()).dump() + ": " + valueText(it.value());
      first = false;
    }
    return s + "}";
  }
  // A string is bytes in the host's code page: shown as the text they stand for.
  if (v.is_string()) return Json(codePageToUtf8(v.get_ref<const std::string&>())).dump();
  return v.dump();
}

// One array element (or one scalar) as numbers and the text of the rest.
struct Leaves {
  std::vector<double> numbers;
  std::string others;
};

void collect(const Json& v, Leaves& out) {
  if (v.is_number()) out.numbers.push_back(v.get<double>());
  else if (v.is_array())
    for (const Json& e : v) collect(e, out);
  else if (v.is_object())
    for (auto it = v.begin(); it != v.end(); ++it) {
      out.others += it.key() + ";";
      collect(it.value(), out);
    }
  else out.others += (v.is_string() ? Json(codePageToUtf8(v.get_ref<const std::string&>())) : v).dump() + ";";
}

// Elements of an array field, from the typed copy when there is one.
class Elements {
 public:
  explicit Elements(const DecodedField& f) : field_(f) {
    std::visit(
        [&](const auto& a) {
          using A = std::decay_t<decltype(a)>;
          if constexpr (!std::is_same_v<A, std::monostate>) {
            size_ = a.size();
            typed_ = true;
          }
        },
        f.typed);
    if (!typed_) size_ = f.value.is_array() ? f.value.size() : 0;
  }
  std::size_t size() const { return size_; }
  Leaves at(std::size_t i) const {
    Leaves l;
    std::visit(
        [&](const auto& a) {
          using A = std::decay_t<decltype(a)>;
          if constexpr (std::is_same_v<A, Array<Vec3>>) l.numbers = {a[i].x, a[i].y, a[i].z};
          else if constexpr (!std::is_same_v<A, std::monostate>) l.numbers = {static_cast<double>(a[i])};
        },
        field_.typed);
    if (!typed_) collect(field_.value[i], l);
    return l;
  }
  // The values as JSON text, only when short enough to print.
  std::string shortText() const {
    if (size_ > 16) return {};
    if (!typed_) {
      std::string s = valueText(field_.value);
      return s.size() <= 200 ? s : std::string();
    }
    std::string s = "[";
    for (std::size_t i = 0; i < size_; ++i) {
      const Leaves l = at(i);
      std::string e;
      for (std::size_t k = 0; k < l.numbers.size(); ++k) e += (k ? ", " : "") + floatText(l.numbers[k]);
      s += (i ? ", " : "") + (l.numbers.size() > 1 ? "[" + e + "]" : e);
    }
    s += "]";
    return s.size() <= 200 ? s : std::string();
  }

 private:
  const DecodedField& field_;
  bool typed_ = false;
  std::size_t size_ = 0;
};

bool isArrayField(const DecodedField& f) { return f.typed.index() != 0 || f.value.is_array(); }

class Differ {
 public:
  explicit Differ(const DiffOptions& options) : options_(options) {}

  std::vector<Difference> out;

  void files(const DecodedFile& a, const DecodedFile& b) {
    if (a.kind == FileKind::Options) {
      if (a.optionsVersion != b.optionsVersion)
        changed("version", Json(a.optionsVersion), Json(b.optionsVersion));
      fieldLists("", a.optionsFields, b.optionsFields);
      return;
    }
    chunkLists("", a.chunks, b.chunks, true);
  }

 private:
  bool near(double x, double y) const {
    if (x == y || (std::isnan(x) && std::isnan(y))) return true;
    const double scale = std::max({1.0, std::fabs(x), std::fabs(y)});
    return std::fabs(x - y) <= options_.tolerance * scale;
  }

  // Whether two elements are equal, and their largest numeric difference.
  bool same(const Leaves& x, const Leaves& y, double& largest) const {
    bool equal = x.others == y.others && x.numbers.size() == y.numbers.size();
    for (std::size_t k = 0; k < std::min(x.numbers.size(), y.numbers.size()); ++k) {
      if (near(x.numbers[k], y.numbers[k])) continue;
      equal = false;
      const double d = std::fabs(x.numbers[k] - y.numbers[k]);
      if (std::isfinite(d)) largest = std::max(largest, d);
      else largest = INFINITY;
    }
    return equal;
  }

  // Two typed copies of one element type compared where they lie, element
  // by element, without a list of numbers for each: what a big mesh's
  // arrays need. False when the fields are not such a pair.
  bool sameTyped(const DecodedField& x, const DecodedField& y, Difference& d) const {
    if (x.typed.index() != y.typed.index() || std::holds_alternative<std::monostate>(x.typed)) return false;
    std::visit(
        [&](const auto& a) {
          using A = std::decay_t<decltype(a)>;
          if constexpr (!std::is_same_v<A, std::monostate>) {
            const A& b = std::get<A>(y.typed);
            const auto note = [&](double u, double v, bool& differs) {
              if (near(u, v)) return;
              differs = true;
              const double dd = std::fabs(u - v);
              d.largestDifference = std::isfinite(dd) ? std::max(d.largestDifference, dd) : INFINITY;
            };
            const std::size_t n = std::min(a.size(), b.size());
            for (std::size_t i = 0; i < n; ++i) {
              bool differs = false;
              if constexpr (std::is_same_v<A, Array<Vec3>>) {
                if (std::memcmp(&a[i], &b[i], sizeof a[i]) == 0) continue;
                note(a[i].x, b[i].x, differs);
                note(a[i].y, b[i].y, differs);
                note(a[i].z, b[i].z, differs);
              } else {
                if (a[i] == b[i]) continue;
                note(static_cast<double>(a[i]), static_cast<double>(b[i]), differs);
              }
              if (!differs) continue;
              ++d.differing;
              if (d.firstIndices.size() < options_.listedIndices) d.firstIndices.push_back(i);
            }
          }
        },
        x.typed);
    return true;
  }

  void changed(const std::string& path, const Json& x, const Json& y) {
    Difference d;
    d.kind = Difference::Kind::Changed;
    d.path = path;
    d.oldValue = valueText(x);
    d.newValue = valueText(y);
    out.push_back(std::move(d));
  }

  void simple(Difference::Kind kind, const std::string& path) {
    Difference d;
    d.kind = kind;
    d.path = path;
    out.push_back(std::move(d));
  }

  void field(const std::string& path, const DecodedField& x, const DecodedField& y) {
    if (!isArrayField(x) || !isArrayField(y)) {
      Leaves lx, ly;
      collect(x.value, lx);
      collect(y.value, ly);
      double largest = 0;
      if (!same(lx, ly, largest)) changed(path, x.value, y.value);
      return;
    }
    const Elements ex(x), ey(y);
    Difference d;
    d.kind = Difference::Kind::Changed;
    d.path = path;
    d.array = true;
    d.oldLength = ex.size();
    d.newLength = ey.size();
    if (!sameTyped(x, y, d)) {
      for (std::size_t i = 0; i < std::min(ex.size(), ey.size()); ++i) {
        if (same(ex.at(i), ey.at(i), d.largestDifference)) continue;
        ++d.differing;
        if (d.firstIndices.size() < options_.listedIndices) d.firstIndices.push_back(i);
      }
    }
    if (d.differing == 0 && ex.size() == ey.size()) return;
    d.oldValue = ex.shortText();
    d.newValue = ey.shortText();
    if (d.oldValue.empty() || d.newValue.empty()) d.oldValue.clear(), d.newValue.clear();
    out.push_back(std::move(d));
  }

  void fieldLists(const std::string& prefix, const std::vector<DecodedField>& a, const std::vector<DecodedField>& b) {
    for (const DecodedField& x : a) {
      const auto y = std::find_if(b.begin(), b.end(), [&](const DecodedField& f) { return f.name == x.name; });
      if (y == b.end()) simple(Difference::Kind::Removed, prefix + x.name);
      else field(prefix + x.name, x, *y);
    }
    for (const DecodedField& y : b)
      if (std::none_of(a.begin(), a.end(), [&](const DecodedField& f) { return f.name == y.name; }))
        simple(Difference::Kind::Added, prefix + y.name);
  }

  // Labels unique within one list: a repeated label gets " #2", " #3"...
  static std::vector<std::string> keys(const std::vector<DecodedChunk>& chunks) {
    std::vector<std::string> out;
    std::map<std::string, int> seen;
    for (const DecodedChunk& c : chunks) {
      const std::string label = chunkLabel(c);
      const int n = ++seen[label];
      out.push_back(n == 1 ? label : label + " #" + std::to_string(n));
    }
    return out;
  }

  void chunk(const std::string& path, const DecodedChunk& x, const DecodedChunk& y) {
    if (x.version != y.version) changed(path + " > version", Json(x.version), Json(y.version));
    if (!x.decoded || !y.decoded) return;
    fieldLists(path + " > ", x.fields, y.fields);
    chunkLists(path + " > ", x.children, y.children, false);
  }

  void chunkLists(const std::string& prefix, const std::vector<DecodedChunk>& a, const std::vector<DecodedChunk>& b,
                  bool topLevel) {
    const std::vector<std::string> ka = keys(a), kb = keys(b);
    std::map<std::string, std::size_t> inB;
    for (std::size_t j = 0; j < kb.size(); ++j) inB[kb[j]] = j;
    std::map<std::string, std::size_t> inA;
    for (std::size_t i = 0; i < ka.size(); ++i) inA[ka[i]] = i;

    // Chunks in both files keep their relative order unless moved: those
    // outside a longest run of increasing new positions are the moved ones.
    std::vector<std::size_t> common;  // indices into a
    for (std::size_t i = 0; i < ka.size(); ++i)
      if (inB.count(ka[i])) common.push_back(i);
    std::vector<bool> stays(a.size(), true);
    if (topLevel) stays = longestInOrder(common, ka, inB, a.size());

    for (std::size_t i = 0; i < a.size(); ++i) {
      const auto j = inB.find(ka[i]);
      if (j == inB.end()) {
        simple(Difference::Kind::Removed, prefix + ka[i]);
        continue;
      }
      if (!stays[i]) {
        Difference d;
        d.kind = Difference::Kind::Moved;
        d.path = prefix + ka[i];
        d.oldPosition = i;
        d.newPosition = j->second;
        out.push_back(std::move(d));
      }
      chunk(prefix + ka[i], a[i], b[j->second]);
    }
    for (std::size_t j = 0; j < b.size(); ++j)
      if (!inA.count(kb[j])) simple(Difference::Kind::Added, prefix + kb[j]);
  }

  static std::vector<bool> longestInOrder(const std::vector<std::size_t>& common, const std::vector<std::string>& ka,
                                          const std::map<std::string, std::size_t>& inB, std::size_t n) {
    // Longest increasing subsequence of the new positions, O(n log n).
    std::vector<std::size_t> pos;
    for (std::size_t i : common) pos.push_back(inB.at(ka[i]));
    std::vector<std::size_t> tailIndex, previous(pos.size(), SIZE_MAX);
    for (std::size_t k = 0; k < pos.size(); ++k) {
      const auto it = std::lower_bound(tailIndex.begin(), tailIndex.end(), pos[k],
                                       [&](std::size_t t, std::size_t value) { return pos[t] < value; });
      if (it != tailIndex.begin()) previous[k] = *(it - 1);
      if (it == tailIndex.end()) tailIndex.push_back(k);
      else *it = k;
    }
    std::vector<bool> stays(n, true);
    for (std::size_t i : common) stays[i] = false;
    for (std::size_t k = tailIndex.empty() ? SIZE_MAX : tailIndex.back(); k != SIZE_MAX; k = previous[k])
      stays[common[k]] = true;
    return stays;
  }

  const DiffOptions& options_;
};

Diff diffTrees(const DecodedFile& a, const DecodedFile& b, const DiffOptions& options) {
  Diff diff;
  diff.oldPath = a.path;
  diff.newPath = b.path;
  diff.oldKind = a.kind;
  diff.newKind = b.kind;
  if (a.kind != b.kind) {
    Difference d;
    d.path = "kind";
    d.oldValue = Json(fileKindName(a.kind)).dump();
    d.newValue = Json(fileKindName(b.kind)).dump();
    diff.differences.push_back(std::move(d));
    return diff;
  }
  Differ differ(options);
  differ.files(a, b);
  diff.differences = std::move(differ.out);
  return diff;
}

}  // namespace

const char* differenceKindName(Difference::Kind kind) {
  switch (kind) {
    case Difference::Kind::Added: return "added";
    case Difference::Kind::Removed: return "removed";
    case Difference::Kind::Changed: return "changed";
    case Difference::Kind::Moved: return "moved";
  }
  return "changed";
}

Diff diffBytes(const std::string& oldName, std::vector<std::uint8_t> oldBytes, const std::string& newName,
               std::vector<std::uint8_t> newBytes, const DiffOptions& options) {
  return diffTrees(decodeBytes(oldName, std::move(oldBytes), TreeDetail::Typed),
                   decodeBytes(newName, std::move(newBytes), TreeDetail::Typed), options);
}

namespace {

// The first bytes of a file whose bytes equal another's: enough to tell its
// kind, or nothing when the two differ (or cannot be read: the whole read
// then says why). Read in blocks, as cmp does, so that two equal exports
// answer at the speed of the page cache.
std::vector<std::uint8_t> equalFilesHead(const std::string& a, const std::string& b) {
  constexpr std::size_t kHead = kMemoryFileHeaderSize + 5;  // header, the first tag and chunk id
  const int fa = ::open(a.c_str(), O_RDONLY | O_CLOEXEC);
  const int fb = fa < 0 ? -1 : ::open(b.c_str(), O_RDONLY | O_CLOEXEC);
  std::vector<std::uint8_t> head;
  struct stat sa {}, sb {};
  if (fb >= 0 && ::fstat(fa, &sa) == 0 && ::fstat(fb, &sb) == 0 && S_ISREG(sa.st_mode) && S_ISREG(sb.st_mode) &&
      sa.st_size == sb.st_size && static_cast<std::size_t>(sa.st_size) > kHead) {
    // Two blocks of 64 KiB stay in the processor's cache while the kernel
    // copies into them and they are compared: blocks of a mebibyte, which
    // the cache could not hold, made two equal 30 MB files take 45 ms
    // against 13 ms.
    constexpr std::size_t kBlock = std::size_t{1} << 16;
    const std::unique_ptr<std::uint8_t[]> ba(new std::uint8_t[kBlock]), bb(new std::uint8_t[kBlock]);
    const auto fill = [](int fd, std::uint8_t* to, std::size_t want) {
      std::size_t got = 0;
      while (got < want) {
        const ssize_t n = ::read(fd, to + got, want - got);
        if (n < 0 && errno == EINTR) continue;
        if (n <= 0) break;
        got += static_cast<std::size_t>(n);
      }
      return got;
    };
    bool same = true;
    for (;;) {
      const std::size_t na = fill(fa, ba.get(), kBlock), nb = fill(fb, bb.get(), kBlock);
      if (na != nb || std::memcmp(ba.get(), bb.get(), na) != 0) {
        same = false;
        break;
      }
      if (head.empty()) head.assign(ba.get(), ba.get() + std::min(na, kHead));
      if (na < kBlock) break;
    }
    if (!same || head.size() < kHead) head.clear();
  }
  if (fb >= 0) ::close(fb);
  if (fa >= 0) ::close(fa);
  return head;
}

}  // namespace

Diff diffFiles(const std::string& oldPath, const std::string& newPath, const DiffOptions& options) {
  // Equal bytes are equal files; only their kind is read (so that two equal
  // files that are not ours are still refused).
  if (const std::vector<std::uint8_t> head = equalFilesHead(oldPath, newPath); !head.empty()) {
    Diff diff;
    diff.oldPath = oldPath;
    diff.newPath = newPath;
    diff.oldKind = diff.newKind = detectFileKind(oldPath, head);
    return diff;
  }
  return diffTrees(decodeBytes(oldPath, mapFileBytes(oldPath), TreeDetail::Typed),
                   decodeBytes(newPath, mapFileBytes(newPath), TreeDetail::Typed), options);
}

std::string diffText(const Diff& diff) {
  std::string s;
  for (const Difference& d : diff.differences) {
    s += std::string(differenceKindName(d.kind)) + " " + d.path;
    if (d.kind == Difference::Kind::Moved)
      s += ": position " + std::to_string(d.oldPosition) + " -> " + std::to_string(d.newPosition);
    if (d.kind == Difference::Kind::Changed) {
      if (!d.oldValue.empty()) s += ": " + d.oldValue + " -> " + d.newValue;
      if (d.array) {
        s += d.oldValue.empty() ? ": " : " (";
        if (d.oldLength != d.newLength)
          s += std::to_string(d.oldLength) + " -> " + std::to_string(d.newLength) + " elements, ";
        s += std::to_string(d.differing) + " of " + std::to_string(std::min(d.oldLength, d.newLength)) + " differ";
        if (d.differing > 0) {
          s += ", largest difference " + floatText(d.largestDifference) + ", first at [";
          for (std::size_t i = 0; i < d.firstIndices.size(); ++i) s += (i ? ", " : "") + std::to_string(d.firstIndices[i]);
          s += "]";
        }
        if (!d.oldValue.empty()) s += ")";
      }
    }
    s += "\n";
  }
  if (diff.equal()) s += diff.oldPath + " and " + diff.newPath + " are equal\n";
  else
    s += diff.oldPath + " and " + diff.newPath + " differ: " + std::to_string(diff.differences.size()) +
         (diff.differences.size() == 1 ? " difference\n" : " differences\n");
  return s;
}

std::string diffJson(const Diff& diff) {
  Json j = Json::object();
  j["old"] = diff.oldPath;
  j["new"] = diff.newPath;
  j["kind"] = fileKindName(diff.oldKind);
  j["equal"] = diff.equal();
  Json list = Json::array();
  for (const Difference& d : diff.differences) {
    Json e = Json::object();
    e["kind"] = differenceKindName(d.kind);
    e["path"] = d.path;
    if (d.kind == Difference::Kind::Moved) {
      e["oldPosition"] = d.oldPosition;
      e["newPosition"] = d.newPosition;
    }
    if (!d.oldValue.empty()) {
      e["old"] = Json::parse(d.oldValue);
      e["new"] = Json::parse(d.newValue);
    }
    if (d.array) {
      e["oldLength"] = d.oldLength;
      e["newLength"] = d.newLength;
      e["differing"] = d.differing;
      e["largestDifference"] = std::isfinite(d.largestDifference) ? Json(d.largestDifference) : Json(nullptr);
      e["firstIndices"] = d.firstIndices;
    }
    list.push_back(std::move(e));
  }
  j["differences"] = std::move(list);
  return j.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace ztexport
