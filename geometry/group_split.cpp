#include "geometry/group_split.h"

#include <new>

#include "host/inhouse/exceptions.h"

GroupView viewOf(const MeshBuild& mesh) {
  GroupView v;
  v.indices = mesh.indices.data();
  v.vertexCount = mesh.vertexCount();
  v.indexCount = mesh.indices.size();
  return v;
}

GroupView viewOf(const MaterialSubMesh& group) {
  GroupView v;
  v.sources = group.sources.data();
  v.indices = group.indices.data();
  v.vertexCount = group.vertexCount();
  v.indexCount = group.indices.size();
  return v;
}

namespace {

MaterialSubMesh& startRun(std::vector<MaterialSubMesh>& pieces, std::size_t& count) {
  if (pieces.size() <= count) pieces.emplace_back();
  MaterialSubMesh& p = pieces[count++];
  p.indices.clear();
  p.sources.clear();
  return p;
}

std::size_t split(const GroupView& g, std::vector<MaterialSubMesh>& pieces, GroupSplitScratch& b) {
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
    if (piece->sources.size() + fresh > kMaxGroupVertices) {
      piece = &startRun(pieces, count);
      ++run;
    }
    for (int q = 0; q < 3; ++q) {
      const std::uint32_t v = c[q];
      if (b.run[v] != run) {
        b.run[v] = run;
        b.local[v] = static_cast<std::uint32_t>(piece->sources.size());
        piece->sources.push_back(g.source(v));
      }
      piece->indices.push_back(b.local[v]);
    }
  }
  return count;
}

}  // namespace

std::size_t splitOversizedGroup(const GroupView& group, std::vector<MaterialSubMesh>& pieces,
                                GroupSplitScratch& scratch) {
  try {
    return split(group, pieces, scratch);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
}
