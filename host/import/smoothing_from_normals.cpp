// Faces are first joined into smooth patches across the edges whose two ends
// carry the same normals in both faces; the patches are then given groups by
// greedy colouring, in face order, of the graph in which two patches are
// neighbours when they meet at a vertex with different normals there.
#include "host/import/smoothing_from_normals.h"

#include <algorithm>
#include <array>
#include <cmath>
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

  // Corners around each vertex, as (face, corner) pairs.
  std::vector<std::vector<std::size_t>> around(vertexCount);
  for (std::size_t c = 0; c < faceCount * 3; ++c)
    if (faces[c] < vertexCount) around[faces[c]].push_back(c);

  // Patches: an edge joins its two faces when both ends agree.
  UnionFind patches(faceCount);
  // Edges as (lower vertex, higher vertex, corner) sorted, so that the faces of
  // one edge lie next to each other.
  std::vector<std::pair<std::uint64_t, std::size_t>> edges;
  edges.reserve(faceCount * 3);
  for (std::size_t f = 0; f < faceCount; ++f)
    for (int k = 0; k < 3; ++k) {
      const std::uint32_t a = faces[f * 3 + k], b = faces[f * 3 + (k + 1) % 3];
      edges.emplace_back((std::uint64_t{std::min(a, b)} << 32) | std::max(a, b), f * 3 + k);
    }
  std::sort(edges.begin(), edges.end());
  auto cornerOf = [&](std::size_t face, std::uint32_t vertex) {
    for (int k = 0; k < 3; ++k)
      if (faces[face * 3 + k] == vertex) return face * 3 + k;
    return face * 3;
  };
  auto sameAt = [&](std::size_t f, std::size_t g, std::uint32_t vertex) {
    return same(cornerNormal(cornerNormals, cornerOf(f, vertex)), cornerNormal(cornerNormals, cornerOf(g, vertex)));
  };
  for (std::size_t begin = 0, end = 0; begin < edges.size(); begin = end) {
    while (end < edges.size() && edges[end].first == edges[begin].first) ++end;
    const auto low = static_cast<std::uint32_t>(edges[begin].first >> 32);
    const auto high = static_cast<std::uint32_t>(edges[begin].first);
    for (std::size_t i = begin; i < end; ++i)
      for (std::size_t j = i + 1; j < end; ++j) {
        const std::size_t f = edges[i].second / 3, g = edges[j].second / 3;
        if (sameAt(f, g, low) && sameAt(f, g, high)) patches.join(f, g);
      }
  }

  // Neighbouring patches: they meet at a vertex with different normals.
  std::map<std::size_t, std::vector<std::size_t>> neighbours;
  for (const auto& corners : around) {
    std::vector<std::pair<std::size_t, Normal>> seen;  // one entry per patch and normal at this vertex
    for (std::size_t c : corners) {
      const std::size_t p = patches.find(c / 3);
      const Normal n = cornerNormal(cornerNormals, c);
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
