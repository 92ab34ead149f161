// Faces are first joined into smooth patches across the edges whose two ends
// carry the same normals in both faces; the patches are then given groups by
// greedy colouring, in face order, of the graph in which two patches are
// neighbours when they meet at a vertex with different normals there.
#include "importers/smoothing_from_normals.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <map>
#include <utility>
#include <numeric>

namespace hostimport {
namespace {

// Normals closer than about a quarter of a degree are the same normal: formats
// round what they store, and a soft edge must survive that.
constexpr double kSameNormal = 1.0 - 1e-5;

struct Normal {
  double x, y, z;
};

Normal cornerNormal(const std::vector<float>& n, std::size_t corner) {
  Normal v{n[corner * 3], n[corner * 3 + 1], n[corner * 3 + 2]};
  const double length = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
  if (length > 0) v = {v.x / length, v.y / length, v.z / length};
  return v;
}

bool same(const Normal& a, const Normal& b) { return a.x * b.x + a.y * b.y + a.z * b.z >= kSameNormal; }

struct UnionFind {
  explicit UnionFind(std::size_t n) : parent(n) { std::iota(parent.begin(), parent.end(), 0); }
  std::size_t find(std::size_t i) {
    while (parent[i] != i) i = parent[i] = parent[parent[i]];
    return i;
  }
  void join(std::size_t a, std::size_t b) {
    a = find(a), b = find(b);
    if (a != b) parent[std::max(a, b)] = std::min(a, b);
  }
  std::vector<std::size_t> parent;
};

}  // namespace

std::vector<std::uint32_t> smoothingFromNormals(const std::vector<std::uint32_t>& faces,
                                                const std::vector<float>& cornerNormals, std::size_t vertexCount) {
  const std::size_t faceCount = faces.size() / 3;
  if (cornerNormals.size() < faceCount * 9) return std::vector<std::uint32_t>(faceCount, 1u);
  std::vector<Normal> normals(faceCount * 3);
  for (std::size_t c = 0; c < normals.size(); ++c) normals[c] = cornerNormal(cornerNormals, c);

  // Corners around each vertex, in corner order (offsets, then the corners).
  std::vector<std::size_t> first(vertexCount + 1, 0), around(faceCount * 3);
  for (std::size_t c = 0; c < faceCount * 3; ++c)
    if (faces[c] < vertexCount) ++first[faces[c] + 1];
  for (std::size_t v = 0; v < vertexCount; ++v) first[v + 1] += first[v];
  {
    std::vector<std::size_t> next(first.begin(), first.end() - 1);
    for (std::size_t c = 0; c < faceCount * 3; ++c)
      if (faces[c] < vertexCount) around[next[faces[c]]++] = c;
  }
  auto cornerOf = [&](std::size_t face, std::uint32_t vertex) -> std::size_t {
    for (int k = 0; k < 3; ++k)
      if (faces[face * 3 + k] == vertex) return face * 3 + k;
    return SIZE_MAX;
  };

  // Patches: an edge joins its two faces when both ends agree. The faces
  // across edge (a, b) of face f are the later faces around a that hold b.
  UnionFind patches(faceCount);
  for (std::size_t f = 0; f < faceCount; ++f)
    for (int k = 0; k < 3; ++k) {
      const std::uint32_t a = faces[f * 3 + k], b = faces[f * 3 + (k + 1) % 3];
      if (a >= vertexCount || b >= vertexCount) continue;
      for (std::size_t i = first[a]; i < first[a + 1]; ++i) {
        const std::size_t g = around[i] / 3;
        if (g <= f) continue;
        const std::size_t gb = cornerOf(g, b);
        if (gb != SIZE_MAX && same(normals[f * 3 + k], normals[around[i]]) &&
            same(normals[f * 3 + (k + 1) % 3], normals[gb]))
          patches.join(f, g);
      }
    }

  // Neighbouring patches: they meet at a vertex with different normals.
  std::map<std::size_t, std::vector<std::size_t>> neighbours;
  std::vector<std::pair<std::size_t, Normal>> seen;  // one entry per patch and normal at a vertex
  for (std::size_t v = 0; v < vertexCount; ++v) {
    seen.clear();
    for (std::size_t i = first[v]; i < first[v + 1]; ++i) {
      const std::size_t c = around[i];
      const std::size_t p = patches.find(c / 3);
      const Normal& n = normals[c];
      if (std::none_of(seen.begin(), seen.end(), [&](const auto& e) { return e.first == p && same(e.second, n); }))
        seen.emplace_back(p, n);
    }
    for (std::size_t i = 0; i < seen.size(); ++i)
      for (std::size_t j = i + 1; j < seen.size(); ++j)
        if (seen[i].first != seen[j].first && !same(seen[i].second, seen[j].second)) {
          neighbours[seen[i].first].push_back(seen[j].first);
          neighbours[seen[j].first].push_back(seen[i].first);
        }
  }

  // Greedy colouring in order of each patch's first face. With all 32 groups
  // taken around a patch, it takes the group its fewest neighbours use, and
  // the edges it shares with them are smoothed.
  std::vector<int> groupOf(faceCount, -1);
  for (std::size_t f = 0; f < faceCount; ++f) {
    const std::size_t p = patches.find(f);
    if (groupOf[p] >= 0) continue;
    std::array<int, 32> used{};
    if (const auto it = neighbours.find(p); it != neighbours.end())
      for (std::size_t q : it->second)
        if (groupOf[q] >= 0) ++used[static_cast<std::size_t>(groupOf[q])];
    groupOf[p] = static_cast<int>(std::min_element(used.begin(), used.end()) - used.begin());
  }
  std::vector<std::uint32_t> masks(faceCount);
  for (std::size_t f = 0; f < faceCount; ++f) masks[f] = 1u << groupOf[patches.find(f)];
  return masks;
}

}  // namespace hostimport
