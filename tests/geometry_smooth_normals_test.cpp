// computeSmoothNormals against tables worked out by hand from the rules.
#include <gtest/gtest.h>

#include <cmath>

#include "geometry/mesh_processing.h"

namespace {

constexpr Point3 kGarbage{1234.5f, -777.25f, 42.0f};

// Cube corners: vertex i has x = bit 0, y = bit 1, z = bit 2 of i (each -1 or 1).
MeshBuild cube(const std::uint32_t sideMasks[6]) {
  MeshBuild m;
  for (int i = 0; i < 8; ++i) m.positions.push_back({i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
  // Two outward triangles per side, sides -z, +z, -y, +y, -x, +x.
  const std::uint32_t tris[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                     {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
  for (int t = 0; t < 12; ++t) {
    m.indices.insert(m.indices.end(), tris[t], tris[t] + 3);
    m.smoothingGroups.push_back(sideMasks[t / 2]);
  }
  m.normals.assign(5, kGarbage);  // must be replaced, not appended to
  return m;
}

const Point3 kSideNormal[6] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};

}  // namespace

TEST(SmoothNormals, CubeWithSixGroupsGivesTwentyFourVerticesWithSideNormals) {
  const std::uint32_t masks[6] = {1, 2, 4, 8, 16, 32};
  MeshBuild m = cube(masks);
  computeSmoothNormals(m);

  ASSERT_EQ(m.positions.size(), 24u);
  ASSERT_EQ(m.normals.size(), 24u);
  // Each vertex keeps its last cluster; the earlier clusters become copies 8,
  // 9 (of vertex 0), 10, 11 (of vertex 1), ... The cluster reaching the most
  // triangles goes first, the first such in the vertex's list on a tie:
  // vertex 1 has sides (0, 2, 5, 5), so side 5 goes, then side 0; it keeps 2.
  const int side[24] = {4, 2, 4, 5, 4, 5, 3, 5,  // originals
                        0, 2, 5, 0, 3, 0, 0, 3, 1, 2, 2, 1, 4, 1, 1, 3};
  for (int v = 0; v < 24; ++v) EXPECT_EQ(m.normals[v], kSideNormal[side[v]]) << "vertex " << v;
  const std::vector<std::uint32_t> sources = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7};
  EXPECT_EQ(m.splitSources, sources);
  for (int v = 8; v < 24; ++v) EXPECT_EQ(m.positions[v], m.positions[sources[v - 8]]);
  // Every corner names a vertex whose normal is its triangle's side normal.
  for (std::size_t k = 0; k < m.indices.size(); ++k)
    EXPECT_EQ(m.normals[m.indices[k]], kSideNormal[k / 6]) << "corner " << k;
  const std::vector<std::uint32_t> firstSides = {8, 13, 14, 8, 14, 11};
  EXPECT_EQ(std::vector<std::uint32_t>(m.indices.begin(), m.indices.begin() + 6), firstSides);
}

TEST(SmoothNormals, OneGroupKeepsEightVerticesWithNormalisedSums) {
  const std::uint32_t masks[6] = {1, 1, 1, 1, 1, 1};
  MeshBuild m = cube(masks);
  const std::vector<std::uint32_t> before = m.indices;
  computeSmoothNormals(m);

  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_TRUE(m.splitSources.empty());
  EXPECT_EQ(m.indices, before);
  // Integer sums of the side normals of each vertex's triangles: a corner on
  // a side's diagonal touches both of its triangles, the others one.
  const int sums[8][3] = {{-2, -2, -2}, {2, -1, -1}, {-1, 2, -1}, {1, 1, -2},
                          {-1, -1, 2},  {1, -2, 1},  {-2, 1, 1},  {2, 2, 2}};
  for (int v = 0; v < 8; ++v) {
    const float x = float(sums[v][0]), y = float(sums[v][1]), z = float(sums[v][2]);
    const float inv = 1.0f / std::sqrt(x * x + y * y + z * z);
    EXPECT_EQ(m.normals[v], Point3(x * inv, y * inv, z * inv)) << "vertex " << v;
  }
}

TEST(SmoothNormals, ZeroMaskTrianglesEachGetTheirOwnVertices) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3};
  m.smoothingGroups = {0, 0};
  computeSmoothNormals(m);

  ASSERT_EQ(m.positions.size(), 10u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0, 1, 2, 2, 3}));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{4, 6, 7, 5, 8, 9}));
  for (int v = 0; v < 4; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 0)) << "vertex " << v << " keeps no triangle";
  for (int v = 4; v < 10; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 1)) << "vertex " << v;
}

TEST(SmoothNormals, ClustersSplitInOrderOfTheBestTriangle) {
  // A fan around vertex 0: masks 1, 2, 2, 4. The mask-2 pair reaches most,
  // so it moves first; then the mask-1 triangle; vertex 0 keeps mask 4.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}, {-1, 0, 0}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5};
  m.smoothingGroups = {1, 2, 2, 4};
  computeSmoothNormals(m);

  ASSERT_GE(m.splitSources.size(), 2u);
  EXPECT_EQ(m.splitSources[0], 0u);
  EXPECT_EQ(m.splitSources[1], 0u);
  EXPECT_EQ(m.indices[3], 6u);
  EXPECT_EQ(m.indices[6], 6u);
  EXPECT_EQ(m.indices[0], 7u);
  EXPECT_EQ(m.indices[9], 0u);
}

TEST(SmoothNormals, ABridgingMaskJoinsEverything) {
  // Masks 1, 3, 2: the middle triangle shares a bit with both, reaching all three.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4};
  m.smoothingGroups = {1, 3, 2};
  computeSmoothNormals(m);
  EXPECT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.normals[0], Point3(0, 0, 1));
}

TEST(SmoothNormals, DegenerateTriangleAddsNothing) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {2, 0, 0}, {0, 2, 0}, {1, 0, 0}};
  m.indices = {0, 1, 2, 0, 3, 1};  // the second triangle has zero area
  m.smoothingGroups = {1, 1};
  computeSmoothNormals(m);
  ASSERT_EQ(m.positions.size(), 4u);
  EXPECT_EQ(m.normals[0], Point3(0, 0, 1));
  EXPECT_EQ(m.normals[1], Point3(0, 0, 1));
  EXPECT_EQ(m.normals[3], Point3(0, 0, 0)) << "only the degenerate triangle touches vertex 3";
}

TEST(SmoothNormals, UnusedVertexGetsZeroNormal) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 5, 5}};
  m.indices = {0, 1, 2};
  m.smoothingGroups = {1};
  computeSmoothNormals(m);
  ASSERT_EQ(m.normals.size(), 4u);
  EXPECT_EQ(m.normals[3], Point3(0, 0, 0));
}

TEST(SmoothNormals, SoftEdgeGivesBitIdenticalNormalsOnBothSides) {
  // Two triangles folded along the edge 1-2, one group: both ends of the
  // shared edge get the same sum in the same order.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0.5f}};
  m.indices = {0, 1, 2, 1, 3, 2};
  m.smoothingGroups = {1, 1};
  computeSmoothNormals(m);
  EXPECT_EQ(m.normals[1], m.normals[2]);
  EXPECT_NE(m.normals[1], m.normals[0]);
}

TEST(SmoothNormals, BuffersAreReusedAcrossMeshesOfDifferentSizes) {
  const std::uint32_t six[6] = {1, 2, 4, 8, 16, 32};
  MeshBuild big = cube(six);
  computeSmoothNormals(big);
  MeshBuild small;
  small.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  small.indices = {0, 1, 2};
  small.smoothingGroups = {1};
  computeSmoothNormals(small);
  EXPECT_EQ(small.positions.size(), 3u);
  for (const Point3& n : small.normals) EXPECT_EQ(n, Point3(0, 0, 1));
}
