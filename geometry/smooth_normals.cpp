// Vertex normals from smoothing groups. A vertex whose triangles fall into
// smoothing clusters that share no bit is copied once per cluster but the
// last, so that each copy carries the normal of its own cluster.
#include <cmath>
#include <new>

#include "geometry/mesh_processing.h"
#include "geometry/vector_math.h"
#include "host/inhouse/exceptions.h"

namespace {

Point3 wideFaceNormal(const Point3& p0, const Point3& p1, const Point3& p2) {
  const double e1x = double(p1.x) - p0.x, e1y = double(p1.y) - p0.y, e1z = double(p1.z) - p0.z;
  const double e2x = double(p2.x) - p0.x, e2y = double(p2.y) - p0.y, e2z = double(p2.z) - p0.z;
  return geometry::normalisedWide(e1y * e2z - e1z * e2y, e1z * e2x - e1x * e2z, e1x * e2y - e1y * e2x);
}

void computeFaceNormals(const MeshBuild& mesh, std::vector<Point3>& out) {
  const std::size_t triangles = mesh.triangleCount();
  out.resize(triangles);
  const Point3* p = mesh.positions.data();
  const std::uint32_t* idx = mesh.indices.data();
  for (std::size_t t = 0; t < triangles; ++t) {
    const Point3 p0 = p[idx[3 * t]], p1 = p[idx[3 * t + 1]], p2 = p[idx[3 * t + 2]];
    const Point3 e1{p1.x - p0.x, p1.y - p0.y, p1.z - p0.z};
    const Point3 e2{p2.x - p0.x, p2.y - p0.y, p2.z - p0.z};
    const Point3 n{e1.y * e2.z - e1.z * e2.y, e1.z * e2.x - e1.x * e2.z, e1.x * e2.y - e1.y * e2.x};
    // Finite positions far apart (a coordinate near 3.4e38) overflow the
    // float edges or their cross product; double holds them all.
    out[t] = std::isfinite(n.x + n.y + n.z) ? geometry::normalised(n) : wideFaceNormal(p0, p1, p2);
  }
}

// Vertex -> ascending triangle list by counting and prefix sums. Filling from
// the last corner backwards into each list's end leaves the lists ascending
// and listStart back at each list's beginning, with no separate fill counter.
void buildTriangleLists(const MeshBuild& mesh, SmoothNormalScratch& b) {
  const std::size_t vertices = mesh.vertexCount();
  const std::size_t corners = mesh.indices.size();
  b.valence.assign(vertices, 0);
  b.listStart.resize(vertices);
  b.faceList.resize(corners);
  const std::uint32_t* idx = mesh.indices.data();
  std::int32_t* valence = b.valence.data();
  for (std::size_t k = 0; k < corners; ++k) ++valence[idx[k]];
  std::uint32_t* start = b.listStart.data();
  std::uint32_t end = 0;
  for (std::size_t v = 0; v < vertices; ++v) {
    end += static_cast<std::uint32_t>(valence[v]);
    start[v] = end;
  }
  std::int32_t* list = b.faceList.data();
  for (std::size_t k = corners; k-- > 0;) list[--start[idx[k]]] = static_cast<std::int32_t>(k / 3);
}

// Position of the first triangle whose mask reaches the most triangles of the
// list, and how many it reaches. A mask of 0 reaches nothing, not even itself.
struct BestCluster {
  int count = 0;
  int position = 0;
};

BestCluster findBestCluster(const std::int32_t* list, int k, const std::uint32_t* smoothing,
                            std::vector<std::uint32_t>& wide) {
  // Masks gathered once: the count below reads each of them k times. Lists
  // longer than the local array use the scratch, which keeps its storage.
  constexpr int kLocal = 32;
  std::uint32_t local[kLocal];
  std::uint32_t* masks = local;
  if (k > kLocal) {
    if (wide.size() < static_cast<std::size_t>(k)) wide.resize(static_cast<std::size_t>(k));
    masks = wide.data();
  }
  for (int j = 0; j < k; ++j) masks[j] = smoothing[list[j]];

  BestCluster best;
  for (int j = 0; j < k; ++j) {
    const std::uint32_t m = masks[j];
    if (m == 0) continue;  // reaches nothing, cannot be best
    int count = 0;
    for (int f = 0; f < k; ++f) count += (masks[f] & m) != 0;
    if (count > best.count) {
      best = {count, j};
      if (count == k) break;
    }
  }
  return best;
}

// Appends a copy of vertex `v` for the triangles of `list` that `take` picks,
// points their corners at it and gives it their normalised normal sum.
// Returns how many triangles stayed, packed at the front of the list.
template <typename Take>
int splitOff(MeshBuild& mesh, const Point3* faceNormals, std::size_t v, std::int32_t* list, int k, Take take) {
  const auto copy = static_cast<std::uint32_t>(mesh.positions.size());
  const Point3 position = mesh.positions[v];
  mesh.positions.push_back(position);
  mesh.splitSources.push_back(static_cast<std::uint32_t>(v));
  std::uint32_t* idx = mesh.indices.data();
  Point3 sum{};
  int kept = 0;
  for (int j = 0; j < k; ++j) {
    const std::int32_t t = list[j];
    if (!take(j, t)) {
      list[kept++] = t;
      continue;
    }
    geometry::accumulate(sum, faceNormals[t]);
    std::uint32_t* corner = idx + 3 * static_cast<std::size_t>(t);
    for (int q = 0; q < 3; ++q)
      if (corner[q] == v) corner[q] = copy;
  }
  mesh.normals.push_back(geometry::normalised(sum));
  return kept;
}

void smoothVertices(MeshBuild& mesh, SmoothNormalScratch& b) {
  const std::size_t v0 = mesh.vertexCount();
  mesh.normals.reserve(geometry::withRoomForCopies(v0));
  mesh.normals.assign(v0, Point3{});
  const std::uint32_t* smoothing = mesh.smoothingGroups.data();
  const Point3* faceNormals = b.faceNormals.data();
  for (std::size_t v = 0; v < v0; ++v) {
    for (;;) {
      std::int32_t* list = b.faceList.data() + b.listStart[v];
      const int k = b.valence[v];
      const BestCluster best = findBestCluster(list, k, smoothing, b.masks);
      if (best.count == k) {
        Point3 sum{};
        for (int j = 0; j < k; ++j) geometry::accumulate(sum, faceNormals[list[j]]);
        mesh.normals[v] = geometry::normalised(sum);
        break;
      }
      if (best.count == 0) {
        // Every triangle left has mask 0: each would in turn be the first of
        // the list and go alone, so give each its copy in list order at once
        // rather than searching the list again for every one of them.
        for (int j = 0; j < k; ++j)
          splitOff(mesh, faceNormals, v, list + j, 1, [](int, std::int32_t) { return true; });
        b.valence[v] = 0;
        continue;
      }
      const std::uint32_t mask = smoothing[list[best.position]];
      b.valence[v] = splitOff(mesh, faceNormals, v, list, k, [&](int j, std::int32_t t) {
        return (smoothing[t] & mask) != 0 || j == best.position;
      });
    }
  }
}

}  // namespace

void computeSmoothNormals(MeshBuild& mesh, SmoothNormalScratch& b) {
  try {
    computeFaceNormals(mesh, b.faceNormals);
    buildTriangleLists(mesh, b);
    smoothVertices(mesh, b);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
