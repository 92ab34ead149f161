#include "dump/text_printer.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "format/chunk_kinds.h"

namespace zt2dump {

namespace {

std::string quoted(const std::string& s) {
  std::string q = "\"";
  for (std::size_t i = 0; i < s.size(); ++i) {
    const auto ch = static_cast<unsigned char>(s[i]);
    switch (ch) {
      case '"': q += "\\\""; break;
      case '\\': q += "\\\\"; break;
      case '\n': q += "\\n"; break;
      case '\r': q += "\\r"; break;
      case '\t': q += "\\t"; break;
      default:
        if (ch < 0x20 || ch == 0x7f) {
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\x%02x", ch);
          q += buf;
        } else if (ch == 0xc2 && i + 1 < s.size() && static_cast<unsigned char>(s[i + 1]) < 0xa0) {
          // A C1 control (U+0080 to U+009F): from one of the bytes the code page leaves undefined.
          char buf[8];
          std::snprintf(buf, sizeof buf, "\\x%02x", static_cast<unsigned char>(s[++i]));
          q += buf;
        } else {
          q += static_cast<char>(ch);
        }
    }
  }
  return q + "\"";
}

class TextPrinter {
 public:
  TextPrinter(std::ostream& out, const TextOptions& options) : out_(out), options_(options) {}

  void chunk(const DecodedChunk& c, int depth) {
    const std::string pad(static_cast<std::size_t>(depth) * 2, ' ');
    const std::string header = " version " + std::to_string(c.version) + ", " + std::to_string(c.length) +
                               " bytes at offset " + std::to_string(c.offset);
    if (!c.known()) {
      out_ << pad << "unknown chunk " << hexId(c.id) << header << ", skipped\n";
      return;
    }
    out_ << pad << c.name << " " << hexId(c.id) << header;
    if (!c.decoded) out_ << ": " << c.note;
    out_ << "\n";
    for (const DecodedChunk::Item& item : c.items) {
      if (item.isChild) chunk(c.children[item.index], depth + 1);
      else field(c.fields[item.index], depth + 1);
    }
  }

  void field(const DecodedField& f, int depth) {
    const std::string pad(static_cast<std::size_t>(depth) * 2, ' ');
    const Json& v = f.value;
    const bool listed = v.is_array() && !v.empty() && !isScalar(v.front()) &&
                        (v.front().is_object() || v.size() > 4 || inline_(v).size() > 100);
    if (!listed) {
      out_ << pad << f.name << ": " << inline_(v) << "\n";
      return;
    }
    // One entry per line: points, keys.
    out_ << pad << f.name << ": " << v.size() << " entries\n";
    const std::size_t shown = shownCount(v.size());
    for (std::size_t i = 0; i < shown; ++i) out_ << pad << "  [" << i << "] " << entry(v[i]) << "\n";
    if (shown < v.size()) out_ << pad << "  ... (" << v.size() - shown << " more)\n";
  }

  void options(const DecodedFile& file) {
    out_ << "version: " << file.optionsVersion << "\n";
    if (file.optionsVersion > kOptionsFileVersion) {
      out_ << "  (a newer version than this tool knows: values not decoded)\n";
      return;
    }
    for (const DecodedField& f : file.optionsFields) field(f, 1);
  }

 private:
  static bool isScalar(const Json& v) { return !v.is_array() && !v.is_object(); }

  std::size_t shownCount(std::size_t size) const {
    return options_.full || size <= options_.longArray ? size : options_.shownEntries;
  }

  static std::string scalar(const Json& v) {
    if (v.is_string()) return quoted(v.get<std::string>());
    if (v.is_boolean()) return v.get<bool>() ? "true" : "false";
    if (v.is_number_float()) return formatFloat(v.get<double>());
    if (v.is_number_unsigned()) return std::to_string(v.get<std::uint64_t>());
    if (v.is_number_integer()) return std::to_string(v.get<std::int64_t>());
    return "null";
  }

  // A key's members "sample: 0, value: 1"; a point "1, 2, 3".
  std::string entry(const Json& v) const {
    if (v.is_object()) {
      std::string s;
      for (auto it = v.begin(); it != v.end(); ++it) {
        if (!s.empty()) s += ", ";
        s += it.key() + ": " + inline_(it.value());
      }
      return s;
    }
    if (v.is_array() && std::all_of(v.begin(), v.end(), isScalar)) {
      const std::string s = inline_(v);
      return s.substr(1, s.size() - 2);
    }
    return inline_(v);
  }

  std::string inline_(const Json& v) const {
    if (v.is_object()) return "{" + entry(v) + "}";
    if (!v.is_array()) return scalar(v);
    std::string s = "[";
    const std::size_t shown = shownCount(v.size());
    for (std::size_t i = 0; i < shown; ++i) {
      if (i > 0) s += ", ";
      s += inline_(v[i]);
    }
    if (shown < v.size()) s += ", ... (" + std::to_string(v.size() - shown) + " more)";
    return s + "]";
  }

  std::ostream& out_;
  const TextOptions& options_;
};

}  // namespace

std::string formatFloat(double value) {
  // The shortest form that reads back as the same float: 0.001, not
  // 0.00100000005; nine digits always suffice.
  const auto f = static_cast<float>(value);
  char buf[32];
  for (int digits = 6; digits <= 9; ++digits) {
    std::snprintf(buf, sizeof buf, "%.*g", digits, f);
    if (std::strtof(buf, nullptr) == f || f != f) break;
  }
  return buf;
}

void printText(std::ostream& out, const DecodedFile& file, const TextOptions& options) {
  TextPrinter printer(out, options);
  out << file.path << ": " << fileKindName(file.kind) << " file, " << file.size << " bytes";
  if (file.kind == FileKind::Options) {
    out << "\n";
    printer.options(file);
    return;
  }
  out << ", " << file.chunks.size() << " top-level chunks\n";
  for (const DecodedChunk& c : file.chunks) printer.chunk(c, 0);
}

}  // namespace zt2dump
