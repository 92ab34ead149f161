#include "geometry/group_split.h"

#include <new>

#include "host/inhouse/exceptions.h"

GroupView viewOf(const MeshBuild& mesh) {
  GroupView v;
  const std::size_t n = mesh.vertexCount();
  v.positions = mesh.positions.data();
  v.normals = mesh.normals.size() == n ? mesh.normals.data() : nullptr;
  for (int c = 0; c < kMaxMapChannels; ++c)
    v.vertexMaps[c] = mesh.vertexMaps[c].size() == n ? mesh.vertexMaps[c].data() : nullptr;
  v.indices = mesh.indices.data();
  v.hostIndices = mesh.hostIndices.size() == n ? mesh.hostIndices.data() : nullptr;
  v.vertexCount = n;
  v.indexCount = mesh.indices.size();
  return v;
}

GroupView viewOf(const MaterialSubMesh& group) {
  GroupView v;
  const std::size_t n = group.vertexCount();
  v.positions = group.positions.data();
  v.normals = group.normals.size() == n ? group.normals.data() : nullptr;
  for (int c = 0; c < kMaxMapChannels; ++c)
    v.vertexMaps[c] = group.vertexMaps[c].size() == n ? group.vertexMaps[c].data() : nullptr;
  v.indices = group.indices.data();
  v.hostIndices = group.hostIndices.size() == n ? group.hostIndices.data() : nullptr;
  v.vertexCount = n;
  v.indexCount = group.indices.size();
  return v;
}

namespace {

MaterialSubMesh& startRun(std::vector<MaterialSubMesh>& pieces, std::size_t& count) {
  if (pieces.size() <= count) pieces.emplace_back();
  MaterialSubMesh& p = pieces[count++];
  p.positions.clear();
  p.normals.clear();
  for (auto& m : p.vertexMaps) m.clear();
  p.indices.clear();
  p.sources.clear();
  p.hostIndices.clear();
  return p;
}

void appendVertex(MaterialSubMesh& p, const GroupView& g, int channelCount, std::uint32_t v) {
  p.positions.push_back(g.positions[v]);
  p.normals.push_back(g.normals ? g.normals[v] : Point3{});
  for (int c = 0; c < channelCount; ++c) p.vertexMaps[c].push_back(g.vertexMaps[c] ? g.vertexMaps[c][v] : Point3{});
  if (g.hostIndices) p.hostIndices.push_back(g.hostIndices[v]);
  p.sources.push_back(v);
}

std::size_t split(const GroupView& g, int channelCount, std::vector<MaterialSubMesh>& pieces, GroupSplitScratch& b) {
  b.run.assign(g.vertexCount, 0);
  b.local.resize(g.vertexCount);
  std::size_t count = 0;
  MaterialSubMesh* piece = &startRun(pieces, count);
  std::uint32_t run = 1;
  for (std::size_t k = 0; k + 2 < g.indexCount; k += 3) {
    const std::uint32_t* c = g.indices + k;
    // Distinct vertices the triangle would add; a triangle may name one twice.
    std::size_t fresh = 0;
    for (int q = 0; q < 3; ++q) {
      const bool repeat = (q >= 1 && c[q] == c[0]) || (q == 2 && c[2] == c[1]);
      if (!repeat && b.run[c[q]] != run) ++fresh;
    }
    if (piece->positions.size() + fresh > kMaxGroupVertices) {
      piece = &startRun(pieces, count);
      ++run;
    }
    for (int q = 0; q < 3; ++q) {
      const std::uint32_t v = c[q];
      if (b.run[v] != run) {
        b.run[v] = run;
        b.local[v] = static_cast<std::uint32_t>(piece->positions.size());
        appendVertex(*piece, g, channelCount, v);
      }
      piece->indices.push_back(b.local[v]);
    }
  }
  return count;
}

}  // namespace

std::size_t splitOversizedGroup(const GroupView& group, int channelCount, std::vector<MaterialSubMesh>& pieces,
                                GroupSplitScratch& scratch) {
  try {
    return split(group, channelCount, pieces, scratch);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
