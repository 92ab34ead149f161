// The working set of one mesh export: the host mesh in the file's
// coordinates, grown by the processing algorithms until every vertex carries
// one position, one normal and one coordinate per mapping channel.
//
// "Vertex" always means an entry of `positions`; every per-vertex list has the
// length of `positions` once the algorithm that fills it has run.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/max_types.h"

// Mapping channels a mesh can carry: texture coordinates and vertex colours.
inline constexpr int kMaxMapChannels = 2;

struct MeshBuild {
  std::vector<Point3> positions;
  std::vector<Point3> normals;              // unit normal or (0, 0, 0) per vertex
  std::vector<std::uint32_t> indices;       // three per triangle, in the file's winding
  std::vector<std::uint32_t> smoothingGroups;  // one bit mask per triangle
  std::vector<std::int32_t> faceMaterials;  // per triangle: position in materialNames, or -1
  std::vector<std::string> materialNames;   // in order of first use
  std::array<std::vector<Point3>, kMaxMapChannels> mapCoords;          // host map vertices
  std::array<std::vector<std::uint32_t>, kMaxMapChannels> mapIndices;  // three per triangle
  std::array<std::vector<Point3>, kMaxMapChannels> vertexMaps;         // per vertex, z always 0
  std::vector<std::uint32_t> splitSources;  // per appended vertex: the vertex it copies
  std::vector<std::uint32_t> hostIndices;   // per vertex: host index after clean-up (skinning only)
  int mapChannelCount = 0;
  bool mirrored = false;

  std::size_t vertexCount() const { return positions.size(); }
  std::size_t triangleCount() const { return indices.size() / 3; }
};

// One material group cut out of a MeshBuild, its vertices renumbered from 0.
// A group vertex's values are the mesh vertex's it names in `sources`; they
// are read from the mesh where they lie, never copied into the group.
struct MaterialSubMesh {
  std::vector<std::uint32_t> indices;  // group-local, three per triangle
  std::vector<std::uint32_t> sources;  // per group vertex: its vertex in the whole mesh

  std::size_t vertexCount() const { return sources.size(); }
  std::size_t triangleCount() const { return indices.size() / 3; }
};
