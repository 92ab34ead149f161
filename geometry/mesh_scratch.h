// Work buffers of the mesh algorithms, owned by the caller. The module keeps
// one MeshScratch for its whole life, so a scene of many meshes allocates
// once; tests and fuzzers hold their own and may run the algorithms side by
// side. Nothing here carries meaning from one call to the next.
#pragma once

#include <cstdint>
#include <vector>

#include "geometry/mesh_build.h"
#include "host/mesh.h"

struct SmoothNormalScratch {
  std::vector<Point3> faceNormals;       // one unit normal per triangle
  std::vector<std::int32_t> valence;     // per vertex: triangle corners naming it
  std::vector<std::uint32_t> listStart;  // per vertex: where its triangle list begins
  std::vector<std::int32_t> faceList;    // triangle numbers, vertex after vertex
  std::vector<std::uint32_t> masks;      // the masks of a long triangle list
};

struct MapChannelScratch {
  std::vector<std::uint32_t> nextDuplicate;  // per vertex: the next copy in its chain
};

struct MaterialGroupScratch {
  std::vector<std::size_t> groupStart;         // per group: where its triangles begin; one more at the end
  std::vector<std::size_t> fill;               // per group: the next free place while bucketing
  std::vector<std::uint32_t> groupTriangles;   // triangle numbers, group after group
  std::vector<std::uint32_t> stamp;            // per vertex: the cut that numbered it last, or 0
  std::vector<std::uint32_t> remap;            // per vertex: its number in that group
  std::vector<std::uint32_t> newToOld;         // per group vertex: its vertex in the mesh
};

struct GroupSplitScratch {
  std::vector<std::uint32_t> run;    // per group vertex: the run (from 1) that last took it
  std::vector<std::uint32_t> local;  // per group vertex: its number in that run
};

struct MeshScratch {
  SmoothNormalScratch normals;
  MapChannelScratch maps;
  MaterialGroupScratch groups;
  GroupSplitScratch split;
};

