// Mesh checks: group counts add up to the array lengths, face indices stay
// inside their group, normals are unit length, mapping channels line up with
// the vertices.
#include <cmath>
#include <cstdio>

#include "format/chunk_kinds.h"
#include "dump/scene_checks.h"
#include "dump/validation_support.h"

namespace zt2dump {

namespace {

constexpr double kNormalTolerance = 1e-3;

struct MeshContext {
  const DecodedFile& file;
  std::string mesh;  // ` (mesh "Box01")`

  [[noreturn]] void fail(const DecodedChunk& c, const std::string& what) const {
    fault(file, where(c) + mesh + ": " + what);
  }
};

// Group g and index within it of the flat entry `i`.
std::pair<std::size_t, std::int64_t> groupOf(const std::vector<std::int64_t>& counts, std::int64_t i) {
  std::int64_t start = 0;
  for (std::size_t g = 0; g < counts.size(); ++g) {
    if (i < start + counts[g]) return {g, i - start};
    start += counts[g];
  }
  return {counts.size(), i - start};
}

std::string entryName(const char* what, std::int64_t i, const std::vector<std::int64_t>& groups) {
  const auto [g, k] = groupOf(groups, i);
  return std::string(what) + " " + std::to_string(i) + " (group " + std::to_string(g) + ", entry " +
         std::to_string(k) + ")";
}

void checkPointsFinite(const MeshContext& m, const DecodedChunk& c, const char* field, const char* what,
                       const std::vector<std::int64_t>& groups) {
  const Json& points = c.at(field);
  for (std::size_t i = 0; i < points.size(); ++i)
    for (const Json& x : points[i])
      if (!x.is_number() || !std::isfinite(x.get<double>()))
        m.fail(c, entryName(what, static_cast<std::int64_t>(i), groups) + " is not a finite number");
}

void checkVertices(const MeshContext& m, const DecodedChunk& v) {
  const std::int64_t n = intOf(v.at("vertexCount"));
  const auto groups = intsOf(v.at("groupVertexCounts"));
  if (sum(groups) != n)
    m.fail(v, "the group vertex counts add up to " + std::to_string(sum(groups)) + " but vertexCount is " +
                  std::to_string(n));
  checkPointsFinite(m, v, "positions", "position", groups);
  checkPointsFinite(m, v, "normals", "normal", groups);
  const Json& normals = v.at("normals");
  for (std::size_t i = 0; i < normals.size(); ++i) {
    const double x = normals[i][0].get<double>(), y = normals[i][1].get<double>(), z = normals[i][2].get<double>();
    if (x == 0 && y == 0 && z == 0) continue;
    const double length = std::sqrt(x * x + y * y + z * z);
    if (std::fabs(length - 1.0) > kNormalTolerance) {
      char buf[64];
      std::snprintf(buf, sizeof buf, " has length %.6g, neither 1 nor 0", length);
      m.fail(v, entryName("normal", static_cast<std::int64_t>(i), groups) + buf);
    }
  }
}

void checkFaces(const MeshContext& m, const DecodedChunk& f, const DecodedChunk* v) {
  const std::int64_t n = intOf(f.at("indexCount"));
  const auto triangles = intsOf(f.at("groupTriangleCounts"));
  if (n % 3 != 0) m.fail(f, "indexCount " + std::to_string(n) + " is not a multiple of 3");
  if (sum(triangles) * 3 != n)
    m.fail(f, "the group triangle counts add up to " + std::to_string(sum(triangles)) + " triangles (" +
                  std::to_string(sum(triangles) * 3) + " indices) but indexCount is " + std::to_string(n));
  if (v == nullptr) {
    if (n > 0) m.fail(f, "the mesh has triangles but no MeshVertexChunk");
    return;
  }
  const auto vertices = intsOf(v->at("groupVertexCounts"));
  if (triangles.size() != vertices.size())
    m.fail(f, "groupCount is " + std::to_string(triangles.size()) + " but the MeshVertexChunk has " +
                  std::to_string(vertices.size()) + " groups");
  const Json& indices = f.at("indices");
  std::size_t at = 0;
  for (std::size_t g = 0; g < triangles.size(); ++g)
    for (std::int64_t t = 0; t < triangles[g]; ++t)
      for (int corner = 0; corner < 3; ++corner, ++at) {
        const std::int64_t index = intOf(indices[at]);
        if (index >= vertices[g])
          m.fail(f, "group " + std::to_string(g) + ", triangle " + std::to_string(t) + ", corner " +
                        std::to_string(corner) + " (index " + std::to_string(at) + "): vertex " +
                        std::to_string(index) + " is not below the group's " + std::to_string(vertices[g]) +
                        " vertices");
      }
}

void checkMaterialNames(const MeshContext& m, const DecodedChunk& names, const DecodedChunk* v) {
  const std::int64_t n = intOf(names.at("nameCount"));
  if (n < 0) m.fail(names, "negative nameCount " + std::to_string(n));
  if (v != nullptr && static_cast<std::size_t>(n) != v->at("groupVertexCounts").size())
    m.fail(names, std::to_string(n) + " material names for " + std::to_string(v->at("groupVertexCounts").size()) +
                      " groups");
}

void checkMapChannel(const MeshContext& m, const DecodedChunk& map, const DecodedChunk* v) {
  const std::int64_t n = intOf(map.at("coordinateCount"));
  const auto groups = intsOf(map.at("groupCoordinateCounts"));
  if (sum(groups) != n)
    m.fail(map, "the group coordinate counts add up to " + std::to_string(sum(groups)) + " but coordinateCount is " +
                    std::to_string(n));
  checkPointsFinite(m, map, "coordinates", "coordinate", groups);
  const std::int64_t vertexCount = v != nullptr ? intOf(v->at("vertexCount")) : 0;
  if (n != vertexCount)
    m.fail(map, "channel " + std::to_string(intOf(map.at("channel"))) + " has " + std::to_string(n) +
                    " coordinates for " + std::to_string(vertexCount) + " vertices");
  if (v == nullptr) return;
  const auto vertices = intsOf(v->at("groupVertexCounts"));
  if (groups.size() != vertices.size())
    m.fail(map, "groupCount is " + std::to_string(groups.size()) + " but the MeshVertexChunk has " +
                    std::to_string(vertices.size()) + " groups");
  for (std::size_t g = 0; g < groups.size(); ++g)
    if (groups[g] != vertices[g])
      m.fail(map, "group " + std::to_string(g) + " has " + std::to_string(groups[g]) + " coordinates but " +
                      std::to_string(vertices[g]) + " vertices");
}

}  // namespace

std::string objectName(const DecodedChunk& objectCarrier) {
  const DecodedChunk* object = childWithId(objectCarrier, chunk_kind::kObject.id);
  return object != nullptr ? object->at("name").get<std::string>() : std::string();
}

void checkMesh(const DecodedFile& file, const DecodedChunk& mesh) {
  const MeshContext m{file, " (mesh \"" + objectName(mesh) + "\")"};
  const DecodedChunk* vertices = childWithId(mesh, chunk_kind::kMeshVertex.id);
  for (const DecodedChunk& c : mesh.children) {
    if (!c.decoded) continue;
    switch (c.id) {
      case chunk_kind::kMeshVertex.id: checkVertices(m, c); break;
      case chunk_kind::kMeshFace.id: checkFaces(m, c, vertices); break;
      case chunk_kind::kMeshMaterialNames.id: checkMaterialNames(m, c, vertices); break;
      case chunk_kind::kMeshMapChannel.id: checkMapChannel(m, c, vertices); break;
      case chunk_kind::kMeshReserved.id:
        if (intOf(c.at("count")) < 0) m.fail(c, "negative count");
        break;
      default: break;
    }
  }
}

}  // namespace zt2dump
