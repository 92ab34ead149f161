// Material groups as the mesh writer stores them, and the cut of a group that
// 16-bit face indices cannot address into groups that they can.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "geometry/mesh_build.h"
#include "geometry/mesh_scratch.h"

// Vertices one group can hold: its indices are 16-bit and group-local.
inline constexpr std::size_t kMaxGroupVertices = 65536;

// Read-only view of one group, over a MaterialSubMesh or over a whole
// MeshBuild: its triangles, and the mesh vertex each of its vertices is.
struct GroupView {
  const std::uint32_t* sources = nullptr;  // null: group vertex i is mesh vertex i
  const std::uint32_t* indices = nullptr;
  std::size_t vertexCount = 0;
  std::size_t indexCount = 0;

  std::uint32_t source(std::size_t i) const { return sources ? sources[i] : static_cast<std::uint32_t>(i); }
};

GroupView viewOf(const MeshBuild& mesh);
GroupView viewOf(const MaterialSubMesh& group);

// Cuts `group` into runs of consecutive triangles, each run as large as it
// can be without using more than kMaxGroupVertices vertices; each run's
// vertices are numbered from 0 in order of first use, like any group. Runs
// hold only vertices their triangles use; their sources are mesh vertices.
// `pieces` is resized to the run count (its elements' storage is reused) and
// the count returned.
std::size_t splitOversizedGroup(const GroupView& group, std::vector<MaterialSubMesh>& pieces,
                                GroupSplitScratch& scratch);
