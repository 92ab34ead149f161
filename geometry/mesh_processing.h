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

// The triangles whose faceMaterials entry is `group`, with the vertices they
// use numbered from 0 in order of first use. `channelCount` channels of
// vertexMaps are carried; hostIndices too when the mesh has one per vertex.
// `out` is overwritten (its storage is reused).
void extractMaterialGroup(const MeshBuild& mesh, int group, int channelCount, MaterialSubMesh& out,
                          MaterialGroupScratch& scratch);
