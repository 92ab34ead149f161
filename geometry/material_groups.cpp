// Cutting material groups out of a mesh: each group's triangles in order, and
// the vertices they use renumbered from 0 in order of first use. The
// triangles are bucketed by group once per mesh, so cutting every group costs
// one pass over the mesh, however many groups it has.
#include <algorithm>
#include <new>

#include "geometry/mesh_processing.h"
#include "host/inhouse/exceptions.h"

MaterialGroupCutter::MaterialGroupCutter(const MeshBuild& mesh, MaterialGroupScratch& scratch)
    : mesh_(mesh), b_(scratch) {
  try {
    // Triangles bucketed by group with a counting sort, which keeps each
    // group's triangles in mesh order.
    const std::size_t groups = mesh.materialNames.size();
    const std::size_t triangles = std::min(mesh.triangleCount(), mesh.faceMaterials.size());
    const std::int32_t* materials = mesh.faceMaterials.data();
    b_.groupStart.assign(groups + 1, 0);
    for (std::size_t t = 0; t < triangles; ++t) {
      const std::int32_t g = materials[t];
      if (g >= 0 && static_cast<std::size_t>(g) < groups) ++b_.groupStart[static_cast<std::size_t>(g) + 1];
    }
    for (std::size_t g = 0; g < groups; ++g) b_.groupStart[g + 1] += b_.groupStart[g];
    b_.groupTriangles.resize(b_.groupStart[groups]);
    b_.fill.assign(b_.groupStart.begin(), b_.groupStart.end() - 1);
    for (std::size_t t = 0; t < triangles; ++t) {
      const std::int32_t g = materials[t];
      if (g >= 0 && static_cast<std::size_t>(g) < groups)
        b_.groupTriangles[b_.fill[static_cast<std::size_t>(g)]++] = static_cast<std::uint32_t>(t);
    }
    b_.stamp.assign(mesh.vertexCount(), 0);
    b_.remap.resize(mesh.vertexCount());
    b_.newToOld.resize(mesh.vertexCount());
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}

void MaterialGroupCutter::extract(int group, MaterialSubMesh& out) {
  try {
    extractUnguarded(group, out);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}

void MaterialGroupCutter::extractUnguarded(int group, MaterialSubMesh& out) {
  const MeshBuild& mesh = mesh_;
  // The group's indices go straight into the caller's sub-mesh, whose storage
  // the caller reuses from group to group.
  std::vector<std::uint32_t>& groupIndices = out.indices;
  groupIndices.clear();

  std::uint32_t n = 0;
  const std::size_t groups = b_.groupStart.size() - 1;
  if (group >= 0 && static_cast<std::size_t>(group) < groups) {
    // A vertex's number is valid while its stamp is this cut's, so no
    // per-vertex reset runs between cuts.
    if (++cut_ == 0) {
      std::fill(b_.stamp.begin(), b_.stamp.end(), 0u);
      cut_ = 1;
    }
    const std::uint32_t mark = cut_;
    std::uint32_t* stamp = b_.stamp.data();
    std::uint32_t* remap = b_.remap.data();
    std::uint32_t* newToOld = b_.newToOld.data();
    const std::uint32_t* idx = mesh.indices.data();
    const std::size_t first = b_.groupStart[static_cast<std::size_t>(group)];
    const std::size_t last = b_.groupStart[static_cast<std::size_t>(group) + 1];
    groupIndices.reserve(3 * (last - first));
    for (std::size_t i = first; i < last; ++i) {
      const std::size_t t = b_.groupTriangles[i];
      for (int q = 0; q < 3; ++q) {
        const std::uint32_t v = idx[3 * t + q];
        if (stamp[v] != mark) {
          stamp[v] = mark;
          remap[v] = n;
          newToOld[n] = v;
          ++n;
        }
        groupIndices.push_back(remap[v]);
      }
    }
  }

  out.sources.assign(b_.newToOld.data(), b_.newToOld.data() + n);
}
