// extractMaterialGroup and the cut of groups beyond 16-bit indices.
#include <gtest/gtest.h>

#include "geometry/group_split.h"
#include "geometry/mesh_processing.h"

namespace {

constexpr Point3 kGarbage{1234.5f, -777.25f, 42.0f};

void fillWithGarbage(MaterialSubMesh& s) {
  s.positions.assign(7, kGarbage);
  s.normals.assign(7, kGarbage);
  s.vertexMaps[0].assign(7, kGarbage);
  s.vertexMaps[1].assign(7, kGarbage);
  s.indices.assign(5, 99999);
  s.sources.assign(5, 99999);
  s.hostIndices.assign(5, 99999);
}

// Five vertices, four triangles: materials 1, -1, 0, 1.
MeshBuild twoMaterials() {
  MeshBuild m;
  for (int i = 0; i < 5; ++i) {
    m.positions.push_back({float(i), 0, 0});
    m.normals.push_back({0, float(i), 0});
    m.vertexMaps[0].push_back({float(i) / 10, 0, 0});
  }
  m.indices = {3, 1, 2, 0, 1, 2, 4, 0, 3, 2, 4, 3};
  m.faceMaterials = {1, -1, 0, 1};
  m.hostIndices = {10, 11, 12, 13, 14};
  m.mapChannelCount = 1;
  return m;
}

}  // namespace

TEST(MaterialGroups, GroupNumbersItsVerticesInOrderOfFirstUse) {
  const MeshBuild m = twoMaterials();
  MaterialSubMesh g;
  fillWithGarbage(g);
  extractMaterialGroup(m, 1, 1, g);
  // Triangles 0 (3,1,2) and 3 (2,4,3): vertices 3, 1, 2, 4 become 0..3.
  EXPECT_EQ(g.sources, (std::vector<std::uint32_t>{3, 1, 2, 4}));
  EXPECT_EQ(g.indices, (std::vector<std::uint32_t>{0, 1, 2, 2, 3, 0}));
  EXPECT_EQ(g.positions, (std::vector<Point3>{{3, 0, 0}, {1, 0, 0}, {2, 0, 0}, {4, 0, 0}}));
  EXPECT_EQ(g.normals, (std::vector<Point3>{{0, 3, 0}, {0, 1, 0}, {0, 2, 0}, {0, 4, 0}}));
  EXPECT_EQ(g.vertexMaps[0][0], Point3(0.3f, 0, 0));
  EXPECT_TRUE(g.vertexMaps[1].empty());
  EXPECT_EQ(g.hostIndices, (std::vector<std::uint32_t>{13, 11, 12, 14}));
}

TEST(MaterialGroups, TrianglesWithoutMaterialAreDropped) {
  const MeshBuild m = twoMaterials();
  MaterialSubMesh g;
  fillWithGarbage(g);
  extractMaterialGroup(m, 0, 1, g);
  EXPECT_EQ(g.sources, (std::vector<std::uint32_t>{4, 0, 3}));
  EXPECT_EQ(g.indices, (std::vector<std::uint32_t>{0, 1, 2}));
}

TEST(MaterialGroups, GroupWithoutTrianglesIsEmpty) {
  const MeshBuild m = twoMaterials();
  MaterialSubMesh g;
  fillWithGarbage(g);
  extractMaterialGroup(m, 5, 1, g);
  EXPECT_TRUE(g.positions.empty());
  EXPECT_TRUE(g.normals.empty());
  EXPECT_TRUE(g.vertexMaps[0].empty());
  EXPECT_TRUE(g.indices.empty());
  EXPECT_TRUE(g.sources.empty());
}

TEST(MaterialGroups, OversizedGroupIsCutIntoRunsOfAtMost65536Vertices) {
  // A strip whose triangles each bring one new vertex: 70,000 vertices in all.
  MeshBuild m;
  const std::uint32_t n = 70000;
  for (std::uint32_t i = 0; i < n; ++i) {
    m.positions.push_back({float(i), float(i % 2), 0});
    m.normals.push_back({0, 0, 1});
  }
  for (std::uint32_t i = 0; i + 2 < n; ++i) m.indices.insert(m.indices.end(), {i, i + 1, i + 2});
  m.hostIndices.resize(n);
  for (std::uint32_t i = 0; i < n; ++i) m.hostIndices[i] = i;

  std::vector<MaterialSubMesh> pieces(3);
  fillWithGarbage(pieces[0]);
  fillWithGarbage(pieces[2]);
  const std::size_t runs = splitOversizedGroup(viewOf(m), 0, pieces);
  ASSERT_EQ(runs, 2u);
  EXPECT_EQ(pieces[0].vertexCount(), 65536u);
  EXPECT_EQ(pieces[0].triangleCount(), 65534u);
  // The second run starts at triangle 65534 (vertices 65534, 65535, 65536 ...).
  EXPECT_EQ(pieces[1].triangleCount(), n - 2 - 65534);
  EXPECT_EQ(pieces[1].vertexCount(), n - 65534);
  EXPECT_EQ(pieces[1].sources.front(), 65534u);
  EXPECT_EQ(pieces[1].hostIndices.front(), 65534u);
  EXPECT_EQ(pieces[1].positions.front(), m.positions[65534]);
  EXPECT_EQ((std::vector<std::uint32_t>(pieces[1].indices.begin(), pieces[1].indices.begin() + 3)),
            (std::vector<std::uint32_t>{0, 1, 2}));
  for (const MaterialSubMesh& p : {pieces[0], pieces[1]})
    for (std::uint32_t i : p.indices) EXPECT_LT(i, 65536u);
}
