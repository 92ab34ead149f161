// The per-vertex skin data of one mesh, written as the one VertexDataChunk of
// a .skd file beside the scene file. Its per-vertex lists are indexed like the
// vertices of the mesh's MeshVertexChunk (group start + index in the group),
// and its group tables repeat the mesh's group layout.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "format/memory_file.h"
#include "geometry/mesh_record.h"

class SceneExporter;

class VertexDataRecord {
 public:
  std::vector<std::string> nodeNames;           // one entry: the mesh's node
  std::vector<std::string> boneNames;           // entry k names bone k
  std::vector<std::int32_t> influenceStart;     // per vertex
  std::vector<std::int32_t> influenceCount;     // per vertex
  std::vector<std::int32_t> influenceBone;      // per influence
  std::vector<float> influenceWeight;           // per influence

  // Group vertex counts and starts, one entry per material group.
  const std::vector<std::uint32_t>& groupVertexCount() const { return groups_.counts(); }
  const std::vector<std::uint32_t>& groupVertexStart() const { return groups_.starts(); }

  void setNodeName(const std::string& name) { nodeNames.assign(1, name); }
  void setBoneNames(const std::vector<std::string>& names) { boneNames = names; }
  void resizeGroups(std::size_t n) { groups_.resizeGroups(n); }
  void insertGroups(std::size_t at, std::size_t n) { groups_.insertGroups(at, n); }
  void setGroupVertexCount(std::size_t g, std::uint32_t n) { groups_.setGroupCount(g, n); }
  void resizeVertices(std::size_t n) {
    influenceStart.resize(n);
    influenceCount.resize(n);
  }
  void resizeInfluences(std::size_t n) {
    influenceBone.resize(n);
    influenceWeight.resize(n);
  }
  void setVertexInfluences(std::size_t g, std::size_t i, std::int32_t count, std::int32_t start) {
    const std::size_t v = groups_.start(g) + i;
    influenceCount[v] = count;
    influenceStart[v] = start;
  }
  void setInfluence(std::size_t g, std::size_t i, std::size_t j, std::int32_t bone, float weight) {
    const std::size_t at = static_cast<std::size_t>(influenceStart[groups_.start(g) + i]) + j;
    influenceBone[at] = bone;
    influenceWeight[at] = weight;
  }

 private:
  GroupTable groups_{1};
};

// The VertexDataChunk: eight sequences, names first, group tables last.
T_MemoryFile& operator<<(T_MemoryFile& file, const VertexDataRecord& record);

// The .skd file name: the directory and base name of the file the scene is
// written to (links followed) joined by "%s%s.skd".
std::string vertexDataFileName(const SceneExporter& exporter);

// Writes the record into a fresh buffer and stages it under vertexDataFileName:
// it replaces the file when the scene file is saved (SceneExporter::staging),
// and a later mesh's record staged under the same name takes its place. A
// failed save is not reported; the result says whether it worked.
bool saveVertexDataFile(SceneExporter& exporter, const VertexDataRecord& record);
