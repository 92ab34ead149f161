// The three mesh processing algorithms. Each works in buffers the caller
// owns (geometry/mesh_scratch.h), so later meshes reuse their storage and two
// callers with their own scratch can run side by side.
//
// Splitting only appends: a split vertex is a copy of an existing one and its
// source goes to `splitSources`, so every vertex traces back to a host vertex.
// Running out of memory throws T_MemoryException_Allocation.
#pragma once

#include "geometry/mesh_build.h"
#include "geometry/mesh_scratch.h"

// Fills `normals` from the smoothing groups of `smoothingGroups`, copying a
// vertex for each smoothing cluster of its triangles but the last one and
// pointing that cluster's corners at the copy.
void computeSmoothNormals(MeshBuild& mesh, SmoothNormalScratch& scratch);

// Fills `vertexMaps[channel]` from `mapCoords`/`mapIndices` of the channel
// (first two components, third 0), copying a vertex for every further
// coordinate its corners use. Copies carry the position, normal and the
// earlier channels' coordinates of their source.
void unifyMapChannel(MeshBuild& mesh, int channel, MapChannelScratch& scratch);

// Cuts the material groups of one mesh: extract(g) gives the triangles whose
// faceMaterials entry is g, with the vertices they use numbered from 0 in
// order of first use (`out` is overwritten; its storage is reused). The
// triangles are bucketed by group once, so each cut costs only the group's
// own triangles and vertices. `mesh` must not change while the cutter is in
// use, and `scratch` belongs to the cutter until it is gone.
class MaterialGroupCutter {
 public:
  MaterialGroupCutter(const MeshBuild& mesh, MaterialGroupScratch& scratch);
  void extract(int group, MaterialSubMesh& out);

 private:
  void extractUnguarded(int group, MaterialSubMesh& out);
  const MeshBuild& mesh_;
  MaterialGroupScratch& b_;
  std::uint32_t cut_ = 0;  // cuts so far; stamps of earlier cuts are stale
};
