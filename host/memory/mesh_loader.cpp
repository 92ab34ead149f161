#include <bit>
#include <cmath>
#include <cstring>
#include <limits>

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
std::vector<Point3> readPoints(const JsonCursor& c, LoadContext& ctx) {
  std::vector<Point3> out;
  if (isBufferReference(c)) {
    const BufferView v = ctx.buffers.view(c, sizeof(Point3));
    out.resize(v.count);
    if (v.count) std::memcpy(static_cast<void*>(out.data()), v.data, v.count * sizeof(Point3));
    fromLittleEndian<float>(out.data(), v.count * 3);
    // Raw floats may hold what no scene can: stopped here, they never reach a file.
    for (std::size_t i = 0; i < out.size(); ++i)
      if (!std::isfinite(out[i].x) || !std::isfinite(out[i].y) || !std::isfinite(out[i].z))
        c.fail("point " + std::to_string(i) + " of the buffer is not finite");
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
      const BufferView v = ctx.buffers.view(c, 4 * group);
      bytes_ = v.data;
      size_ = v.count * group;
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
  std::uint32_t operator[](std::size_t i) const {
    if (!bytes_) return decoded_[i];
    std::uint32_t value;
    std::memcpy(&value, bytes_ + 4 * i, 4);
    fromLittleEndian<std::uint32_t>(&value, 1);
    return value;
  }

 private:
  const unsigned char* bytes_ = nullptr;  // the buffer's bytes, when read in place
  std::vector<std::uint32_t> decoded_;     // the inline array's values
  std::size_t size_ = 0;
};

// Material ids: inline, or a buffer of uint16.
std::vector<MtlID> readMaterialIds(const JsonCursor& c, LoadContext& ctx) {
  std::vector<MtlID> out;
  if (isBufferReference(c)) {
    const BufferView v = ctx.buffers.view(c, 2);
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
std::vector<TVFace> readMapFaces(const JsonCursor& mesh, const char* vertsName, const char* facesName,
                                 std::size_t vertCount, std::size_t faceCount, LoadContext& ctx) {
  const auto facesMember = mesh.find(facesName);
  if (!facesMember) {
    if (vertCount > 0) mesh.fail(std::string("\"") + vertsName + "\" need \"" + facesName + "\", one per face");
    return {};
  }
  if (vertCount == 0) facesMember->fail(std::string("given without \"") + vertsName + "\"");
  const UInt32s indices(*facesMember, ctx, 3, "index triples");
  expectPerFace(*facesMember, indices.size() / 3, faceCount);
  std::vector<TVFace> out(faceCount);
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
  mesh.faces.resize(faceCount);
  for (std::size_t f = 0; f < faceCount; ++f) {
    Face& face = mesh.faces[f];
    face.v[0] = indices[3 * f];
    face.v[1] = indices[3 * f + 1];
    face.v[2] = indices[3 * f + 2];
  }
  if (const auto sm = c.find("smoothingGroups")) {
    const UInt32s groups(*sm, ctx, 1, "smoothing-group masks");
    expectPerFace(*sm, groups.size(), faceCount);
    for (std::size_t f = 0; f < faceCount; ++f) mesh.faces[f].smGroup = groups[f];
  }
  if (const auto ids = c.find("materialIds")) {
    const std::vector<MtlID> matIds = readMaterialIds(*ids, ctx);
    expectPerFace(*ids, matIds.size(), faceCount);
    for (std::size_t f = 0; f < faceCount; ++f) mesh.faces[f].matID = matIds[f];
  }

  if (const auto tv = c.find("textureVertices")) mesh.tVerts = readPoints(*tv, ctx);
  mesh.tvFace = readMapFaces(c, "textureVertices", "textureFaces", mesh.tVerts.size(), faceCount, ctx);
  if (const auto vc = c.find("vertexColors")) mesh.vertCol = readPoints(*vc, ctx);
  mesh.vcFace = readMapFaces(c, "vertexColors", "colorFaces", mesh.vertCol.size(), faceCount, ctx);
  return mesh;
}

}  // namespace hostmodel
