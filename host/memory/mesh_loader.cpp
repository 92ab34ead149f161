#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <limits>
#include <optional>

#include "host/inhouse/exceptions.h"
#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

static_assert(sizeof(Point3) == 12 && std::is_trivially_copyable_v<Point3>, "Point3 must be three packed floats");
static_assert(sizeof(TVFace) == 12 && std::is_trivially_copyable_v<TVFace>, "TVFace must be three packed indices");

// Buffer files are little-endian; a big-endian machine swaps after the copy.
template <typename T>
void fromLittleEndian(void* data, std::size_t words) {
  if constexpr (std::endian::native == std::endian::big) {
    auto* p = static_cast<unsigned char*>(data);
    for (std::size_t i = 0; i < words; ++i, p += sizeof(T))
      for (std::size_t a = 0, b = sizeof(T) - 1; a < b; ++a, --b) std::swap(p[a], p[b]);
  } else {
    (void)data;
    (void)words;
  }
}

// An array of this many bytes or more that lies in a buffer file read from
// disk is left there until it is used (HostArray): a copy of the mesh then
// copies none of it, and the exporter reads each array just before it works
// on it and lets it go after. Smaller arrays are read at once.
constexpr std::size_t kLeftInFileAtLeast = 64 * 1024;

bool leftInFile(const BufferView& v, std::size_t elementSize) {
  return v.file && v.count * elementSize >= kLeftInFileAtLeast;
}

// Reads `bytes` bytes at `offset` of a buffer file that was checked when the
// scene was loaded; a file cut short or unreadable since is told by name.
void readChecked(const OpenBufferFile& file, void* out, std::size_t bytes, std::size_t offset) {
  auto* p = static_cast<unsigned char*>(out);
  std::size_t done = 0;
  while (done < bytes) {
    const ssize_t n = ::pread(file.fd, p + done, bytes - done, static_cast<off_t>(offset + done));
    if (n > 0) {
      done += static_cast<std::size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    const std::string why = n < 0 ? std::strerror(errno) : "the file ends there";
    throw T_FileException_BadData(file.path + ": cannot read byte " + std::to_string(offset + done) +
                                      " of the buffer file, which changed after the scene was loaded (" + why + ")",
                                  offset + done);
  }
}

// Whether `p` has three finite coordinates.
bool finitePoint(const Point3& p) { return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z); }

// The bytes of one array left in its buffer file: points are checked again
// as they are read, as the loader checked them.
class FileArraySource final : public ArraySource {
 public:
  FileArraySource(std::shared_ptr<const OpenBufferFile> file, std::size_t offset, bool points)
      : file_(std::move(file)), offset_(offset), points_(points) {}

  void read(void* out, std::size_t offset, std::size_t bytes) const override {
    readChecked(*file_, out, bytes, offset_ + offset);
    fromLittleEndian<std::uint32_t>(out, bytes / 4);  // floats and indices alike are 4-byte words
    if (!points_) return;
    const auto* p = static_cast<const Point3*>(out);
    const std::size_t first = offset / sizeof(Point3);
    for (std::size_t i = 0; i < bytes / sizeof(Point3); ++i)
      if (!finitePoint(p[i]))
        throw T_FileException_BadData(file_->path + ": point " + std::to_string(first + i) +
                                          " of the buffer is not finite; the file changed after the scene was loaded",
                                      offset_ + (first + i) * sizeof(Point3));
  }

 private:
  std::shared_ptr<const OpenBufferFile> file_;
  std::size_t offset_;
  bool points_;
};

// A mesh's faces left in their buffer files: corner indices, and the
// smoothing groups and material ids when the mesh has them, put together as
// the loader would have, a block of faces at a time.
class FileFaceSource final : public ArraySource {
 public:
  FileFaceSource(BufferView indices, BufferView smoothing, BufferView materials)
      : indices_(std::move(indices)), smoothing_(std::move(smoothing)), materials_(std::move(materials)) {}

  void read(void* out, std::size_t offset, std::size_t bytes) const override {
    constexpr std::size_t kBlock = 16384;
    auto* faces = static_cast<Face*>(out);
    const std::size_t first = offset / sizeof(Face), count = bytes / sizeof(Face);
    std::vector<std::uint32_t> words(3 * std::min(count, kBlock));
    for (std::size_t done = 0; done < count; done += kBlock) {
      const std::size_t m = std::min(kBlock, count - done), at = first + done;
      Face* block = faces + done;
      readChecked(*indices_.file, words.data(), 12 * m, indices_.offset + 12 * at);
      fromLittleEndian<std::uint32_t>(words.data(), 3 * m);
      for (std::size_t i = 0; i < m; ++i) {
        Face* f = ::new (static_cast<void*>(block + i)) Face;
        f->v[0] = words[3 * i];
        f->v[1] = words[3 * i + 1];
        f->v[2] = words[3 * i + 2];
      }
      if (smoothing_.file) {
        readChecked(*smoothing_.file, words.data(), 4 * m, smoothing_.offset + 4 * at);
        fromLittleEndian<std::uint32_t>(words.data(), m);
        for (std::size_t i = 0; i < m; ++i) block[i].smGroup = words[i];
      }
      if (materials_.file) {
        auto* ids = reinterpret_cast<std::uint16_t*>(words.data());
        readChecked(*materials_.file, ids, 2 * m, materials_.offset + 2 * at);
        fromLittleEndian<std::uint16_t>(ids, m);
        for (std::size_t i = 0; i < m; ++i) block[i].matID = ids[i];
      }
    }
  }

 private:
  BufferView indices_, smoothing_, materials_;
};

[[noreturn]] void failElement(const JsonCursor& c, std::size_t i, const std::string& message) {
  JsonCursor(c.json()[i], c.path() + "[" + std::to_string(i) + "]", c.sourceName()).fail(message);
}

// A flat inline array of numbers whose length is a multiple of `group`.
void checkFlatArray(const JsonCursor& c, std::size_t group, const char* what) {
  if (!c.isArray()) c.fail(std::string("expected an array of ") + what + " or a buffer reference");
  if (c.json().size() % group != 0)
    c.fail("expected a flat array of " + std::string(what) + ", a multiple of " + std::to_string(group) +
           " numbers; found " + std::to_string(c.json().size()));
}

// Points: inline [x0, y0, z0, x1, ...] or a buffer of float32 triples.
HostArray<Point3> readPoints(const JsonCursor& c, LoadContext& ctx) {
  HostArray<Point3> out;
  if (isBufferReference(c)) {
    const BufferView v = ctx.buffers.view(c, sizeof(Point3));
    // Raw floats may hold what no scene can: stopped here, they never reach a file.
    auto check = [&](const Point3* points, std::size_t count, std::size_t first) {
      for (std::size_t i = 0; i < count; ++i)
        if (!finitePoint(points[i])) c.fail("point " + std::to_string(first + i) + " of the buffer is not finite");
    };
    if (leftInFile(v, sizeof(Point3))) {
      // Checked where it lies, a block at a time, and left there.
      Point3 block[1024];
      for (std::size_t start = 0; start < v.count; start += 1024) {
        const std::size_t m = std::min<std::size_t>(1024, v.count - start);
        std::memcpy(static_cast<void*>(block), v.data + start * sizeof(Point3), m * sizeof(Point3));
        fromLittleEndian<float>(block, m * 3);
        check(block, m, start);
      }
      return HostArray<Point3>::deferred(std::make_shared<FileArraySource>(v.file, v.offset, true), v.count);
    }
    out.resize(v.count);
    if (v.count) std::memcpy(static_cast<void*>(out.data()), v.data, v.count * sizeof(Point3));
    fromLittleEndian<float>(out.data(), v.count * 3);
    check(out.data(), out.size(), 0);
    return out;
  }
  checkFlatArray(c, 3, "point coordinates");
  const nlohmann::json& a = c.json();
  out.resize(a.size() / 3);
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!a[i].is_number()) failElement(c, i, "expected a number");
    const double d = a[i].get<double>();
    if (!(std::fabs(d) <= std::numeric_limits<float>::max())) failElement(c, i, kNotAFloat);
    out[i / 3][static_cast<int>(i % 3)] = static_cast<float>(d);
  }
  return out;
}

// Unsigned integers grouped by `group`: read in place from a buffer of
// uint32 groups, or decoded from an inline array. A big mesh's index lists
// then go from the buffer file to the mesh in one copy.
class UInt32s {
 public:
  UInt32s(const JsonCursor& c, LoadContext& ctx, std::size_t group, const char* what) {
    if (isBufferReference(c)) {
      view_ = ctx.buffers.view(c, 4 * group);
      bytes_ = view_.data;
      size_ = view_.count * group;
      return;
    }
    checkFlatArray(c, group, what);
    const nlohmann::json& a = c.json();
    decoded_.resize(a.size());
    for (std::size_t i = 0; i < a.size(); ++i) {
      const nlohmann::json& e = a[i];
      if (e.is_number_unsigned() || (e.is_number_integer() && e.get<long long>() >= 0)) {
        const auto u = e.get<unsigned long long>();
        if (u <= std::numeric_limits<std::uint32_t>::max()) {
          decoded_[i] = static_cast<std::uint32_t>(u);
          continue;
        }
      }
      failElement(c, i, "expected an integer from 0 to 4294967295");
    }
    size_ = decoded_.size();
  }

  std::size_t size() const { return size_; }
  // The buffer's bytes when read in place, else null.
  const unsigned char* bytes() const { return bytes_; }
  // Where in a buffer file the values lie (no file for inline values).
  const BufferView& view() const { return view_; }
  std::uint32_t operator[](std::size_t i) const {
    if (!bytes_) return decoded_[i];
    std::uint32_t value;
    std::memcpy(&value, bytes_ + 4 * i, 4);
    fromLittleEndian<std::uint32_t>(&value, 1);
    return value;
  }

 private:
  const unsigned char* bytes_ = nullptr;  // the buffer's bytes, when read in place
  BufferView view_;
  std::vector<std::uint32_t> decoded_;     // the inline array's values
  std::size_t size_ = 0;
};

// Material ids: inline, or a buffer of uint16. With `inPlace`, a buffer's
// ids are only counted and their place kept there.
std::vector<MtlID> readMaterialIds(const JsonCursor& c, LoadContext& ctx, BufferView* inPlace = nullptr) {
  std::vector<MtlID> out;
  if (isBufferReference(c)) {
    const BufferView v = ctx.buffers.view(c, 2);
    if (inPlace && v.file) {
      *inPlace = v;
      return out;
    }
    out.resize(v.count);
    if (v.count) std::memcpy(out.data(), v.data, v.count * 2);
    fromLittleEndian<std::uint16_t>(out.data(), out.size());
    return out;
  }
  checkFlatArray(c, 1, "material ids");
  const nlohmann::json& a = c.json();
  out.resize(a.size());
  for (std::size_t i = 0; i < a.size(); ++i) {
    const nlohmann::json& e = a[i];
    if (!(e.is_number_unsigned() || e.is_number_integer()) || e.get<long long>() < 0 || e.get<long long>() > 65535)
      failElement(c, i, "expected an integer from 0 to 65535");
    out[i] = static_cast<MtlID>(e.get<long long>());
  }
  return out;
}

void expectPerFace(const JsonCursor& c, std::size_t found, std::size_t faces) {
  if (found != faces)
    c.fail("expected " + std::to_string(faces) + " entries, one per face; found " + std::to_string(found));
}

// Texture or colour faces, which exist exactly when their vertices do.
HostArray<TVFace> readMapFaces(const JsonCursor& mesh, const char* vertsName, const char* facesName,
                               std::size_t vertCount, std::size_t faceCount, LoadContext& ctx) {
  const auto facesMember = mesh.find(facesName);
  if (!facesMember) {
    if (vertCount > 0) mesh.fail(std::string("\"") + vertsName + "\" need \"" + facesName + "\", one per face");
    return {};
  }
  if (vertCount == 0) facesMember->fail(std::string("given without \"") + vertsName + "\"");
  const UInt32s indices(*facesMember, ctx, 3, "index triples");
  expectPerFace(*facesMember, indices.size() / 3, faceCount);
  if (leftInFile(indices.view(), sizeof(TVFace)))
    return HostArray<TVFace>::deferred(
        std::make_shared<FileArraySource>(indices.view().file, indices.view().offset, false), faceCount);
  HostArray<TVFace> out(faceCount);
  if (indices.bytes() && faceCount > 0) {
    // A buffer's triples are TVFaces as they lie: one copy.
    std::memcpy(static_cast<void*>(out.data()), indices.bytes(), faceCount * sizeof(TVFace));
    fromLittleEndian<std::uint32_t>(out.data(), 3 * faceCount);
    return out;
  }
  for (std::size_t f = 0; f < faceCount; ++f)
    for (std::size_t k = 0; k < 3; ++k) out[f].t[k] = indices[3 * f + k];
  return out;
}

}  // namespace

Mesh readMesh(const JsonCursor& c, LoadContext& ctx) {
  c.expectMembers({"vertices", "faces", "smoothingGroups", "materialIds", "textureVertices", "textureFaces",
                   "vertexColors", "colorFaces"});
  Mesh mesh;
  mesh.verts = readPoints(c["vertices"], ctx);

  // Face indices are kept as given, in range or not: clean-up is the
  // exporter's business and tests need meshes that call for it.
  const UInt32s indices(c["faces"], ctx, 3, "index triples");
  const std::size_t faceCount = indices.size() / 3;
  std::optional<UInt32s> groups;
  if (const auto sm = c.find("smoothingGroups")) {
    groups.emplace(*sm, ctx, 1, "smoothing-group masks");
    expectPerFace(*sm, groups->size(), faceCount);
  }
  std::vector<MtlID> matIds;
  BufferView idsInPlace;
  bool hasIds = false;
  if (const auto ids = c.find("materialIds")) {
    matIds = readMaterialIds(*ids, ctx, &idsInPlace);
    expectPerFace(*ids, idsInPlace.file ? idsInPlace.count : matIds.size(), faceCount);
    hasIds = true;
  }
  // Faces whose corners lie in a buffer file stay there, when their
  // smoothing groups and material ids (if any) lie in buffer files too.
  if (leftInFile(indices.view(), 12) && (!groups || groups->view().file) && (!hasIds || idsInPlace.file)) {
    mesh.faces = HostArray<Face>::deferred(
        std::make_shared<FileFaceSource>(indices.view(), groups ? groups->view() : BufferView{}, idsInPlace),
        faceCount);
  } else {
    mesh.faces.resize(faceCount);
    for (std::size_t f = 0; f < faceCount; ++f) {
      Face& face = mesh.faces[f];
      face.v[0] = indices[3 * f];
      face.v[1] = indices[3 * f + 1];
      face.v[2] = indices[3 * f + 2];
    }
    if (groups)
      for (std::size_t f = 0; f < faceCount; ++f) mesh.faces[f].smGroup = (*groups)[f];
    if (idsInPlace.file) {
      matIds.resize(faceCount);
      if (faceCount) std::memcpy(matIds.data(), idsInPlace.data, faceCount * 2);
      fromLittleEndian<std::uint16_t>(matIds.data(), faceCount);
    }
    if (hasIds)
      for (std::size_t f = 0; f < faceCount; ++f) mesh.faces[f].matID = matIds[f];
  }

  if (const auto tv = c.find("textureVertices")) mesh.tVerts = readPoints(*tv, ctx);
  mesh.tvFace = readMapFaces(c, "textureVertices", "textureFaces", mesh.tVerts.size(), faceCount, ctx);
  if (const auto vc = c.find("vertexColors")) mesh.vertCol = readPoints(*vc, ctx);
  mesh.vcFace = readMapFaces(c, "vertexColors", "colorFaces", mesh.vertCol.size(), faceCount, ctx);
  return mesh;
}

}  // namespace hostmodel
