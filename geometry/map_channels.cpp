// One coordinate per vertex and mapping channel. Each vertex keeps a chain of
// its copies (itself first, then the copies from newest to oldest); a corner
// whose coordinate no member of the chain has yet gets a new copy.
#include <limits>
#include <new>

#include "geometry/mesh_processing.h"
#include "geometry/vector_math.h"
#include "host/inhouse/exceptions.h"

namespace {

constexpr std::uint32_t kUnused = std::numeric_limits<std::uint32_t>::max();  // not yet met in this channel
constexpr std::uint32_t kChainEnd = 0;  // copies are never vertex 0, so 0 can end a chain
constexpr std::uint32_t kNoMapVertex = std::numeric_limits<std::uint32_t>::max();

// Exact float comparison: a NaN matches nothing, -0 matches +0.
inline bool sameCoordinate(const Point3& a, const Point3& b) { return a.x == b.x && a.y == b.y && a.z == b.z; }

void unify(MeshBuild& mesh, int channel, std::vector<std::uint32_t>& next) {
  const std::size_t vertices = mesh.vertexCount();
  next.reserve(geometry::withRoomForCopies(vertices));
  next.assign(vertices, kUnused);
  std::vector<Point3>& maps = mesh.vertexMaps[channel];
  maps.reserve(geometry::withRoomForCopies(vertices));
  maps.assign(vertices, Point3{});

  // Lists that are not per-vertex yet (normals before they are computed) are
  // left alone rather than grown out of step.
  const bool carryNormals = mesh.normals.size() == vertices;
  bool carryMap[kMaxMapChannels] = {};
  for (int c = 0; c < channel; ++c) carryMap[c] = mesh.vertexMaps[c].size() == vertices;

  const std::vector<Point3>& coords = mesh.mapCoords[channel];
  const std::vector<std::uint32_t>& mapIndices = mesh.mapIndices[channel];
  const std::size_t mapIndexCount = mapIndices.size();
  const std::size_t coordCount = coords.size();
  std::uint32_t* idx = mesh.indices.data();
  const std::size_t corners = mesh.indices.size();

  for (std::size_t k = 0; k < corners; ++k) {
    const std::uint32_t v = idx[k];
    // A corner without a valid map vertex reads as (0, 0, 0).
    const std::uint32_t m = k < mapIndexCount ? mapIndices[k] : kNoMapVertex;
    const Point3 uv = m < coordCount ? Point3{coords[m].x, coords[m].y, 0.0f} : Point3{};

    if (next[v] == kUnused) {
      maps[v] = uv;
      next[v] = kChainEnd;
      continue;
    }
    std::uint32_t j = v;
    bool found = false;
    do {
      if (sameCoordinate(maps[j], uv)) {
        idx[k] = j;
        found = true;
        break;
      }
      j = next[j];
    } while (j != kChainEnd);
    if (found) continue;

    const auto copy = static_cast<std::uint32_t>(mesh.positions.size());
    mesh.positions.push_back(mesh.positions[v]);
    if (carryNormals) mesh.normals.push_back(mesh.normals[v]);
    for (int c = 0; c < channel; ++c)
      if (carryMap[c]) mesh.vertexMaps[c].push_back(mesh.vertexMaps[c][v]);
    maps.push_back(uv);
    idx[k] = copy;
    mesh.splitSources.push_back(v);
    next.push_back(next[v]);
    next[v] = copy;
  }
}

}  // namespace

void unifyMapChannel(MeshBuild& mesh, int channel, MapChannelScratch& scratch) {
  if (channel < 0 || channel >= kMaxMapChannels) return;
  try {
    unify(mesh, channel, scratch.nextDuplicate);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
