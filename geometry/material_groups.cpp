// Cutting one material group out of a mesh: its triangles in order, and the
// vertices they use renumbered from 0 in order of first use.
#include <algorithm>
#include <limits>
#include <new>

#include "geometry/mesh_processing.h"
#include "host/inhouse/exceptions.h"

namespace {

constexpr std::uint32_t kNotInGroup = std::numeric_limits<std::uint32_t>::max();

template <typename T>
void gather(std::vector<T>& out, const std::vector<T>& from, const std::uint32_t* order, std::size_t n) {
  out.resize(n);
  T* o = out.data();
  const T* f = from.data();
  for (std::size_t i = 0; i < n; ++i) o[i] = f[order[i]];
}

void extract(const MeshBuild& mesh, int group, int channelCount, MaterialSubMesh& out, MaterialGroupScratch& b) {
  const std::size_t vertices = mesh.vertexCount();
  b.remap.assign(vertices, kNotInGroup);
  b.newToOld.resize(vertices);
  // The group's indices go straight into the caller's sub-mesh, whose storage
  // the caller reuses from group to group.
  std::vector<std::uint32_t>& groupIndices = out.indices;
  groupIndices.clear();

  std::uint32_t* remap = b.remap.data();
  std::uint32_t* newToOld = b.newToOld.data();
  const std::uint32_t* idx = mesh.indices.data();
  const std::int32_t* materials = mesh.faceMaterials.data();
  const std::size_t triangles = std::min(mesh.triangleCount(), mesh.faceMaterials.size());
  std::uint32_t n = 0;
  for (std::size_t t = 0; t < triangles; ++t) {
    if (materials[t] != group) continue;
    for (int q = 0; q < 3; ++q) {
      const std::uint32_t v = idx[3 * t + q];
      if (remap[v] == kNotInGroup) {
        remap[v] = n;
        newToOld[n] = v;
        ++n;
      }
      groupIndices.push_back(remap[v]);
    }
  }

  gather(out.positions, mesh.positions, newToOld, n);
  if (mesh.normals.size() == vertices)
    gather(out.normals, mesh.normals, newToOld, n);
  else
    out.normals.assign(n, Point3{});
  for (int c = 0; c < kMaxMapChannels; ++c) {
    if (c < channelCount && mesh.vertexMaps[c].size() == vertices)
      gather(out.vertexMaps[c], mesh.vertexMaps[c], newToOld, n);
    else if (c < channelCount)
      out.vertexMaps[c].assign(n, Point3{});
    else
      out.vertexMaps[c].clear();
  }
  if (mesh.hostIndices.size() == vertices)
    gather(out.hostIndices, mesh.hostIndices, newToOld, n);
  else
    out.hostIndices.clear();
  out.sources.assign(newToOld, newToOld + n);
}

}  // namespace

void extractMaterialGroup(const MeshBuild& mesh, int group, int channelCount, MaterialSubMesh& out,
                          MaterialGroupScratch& scratch) {
  try {
    extract(mesh, group, channelCount, out, scratch);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
