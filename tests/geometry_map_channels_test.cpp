// unifyMapChannel against chains and copies worked out by hand from the rules.
#include <gtest/gtest.h>

#include <limits>

#include "geometry/mesh_processing.h"

namespace {

constexpr Point3 kGarbage{1234.5f, -777.25f, 42.0f};

// A fan of four triangles around vertex 0: (0,1,2), (0,2,3), (0,3,4), (0,4,5).
MeshBuild fan() {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}, {-1, 0, 0}};
  m.normals = {{0, 0, 1}, {0, 0, 2}, {0, 0, 3}, {0, 0, 4}, {0, 0, 5}, {0, 0, 6}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5};
  m.smoothingGroups = {1, 1, 1, 1};
  m.vertexMaps[0].assign(9, kGarbage);
  m.vertexMaps[1].assign(3, kGarbage);
  return m;
}

}  // namespace

TEST(MapChannels, SameCoordinateKeepsOneVertex) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2, 2, 1, 3};
  m.mapCoords[0] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.mapIndices[0] = {0, 1, 2, 2, 1, 3};
  m.vertexMaps[0].assign(2, kGarbage);
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.positions.size(), 4u);
  EXPECT_TRUE(m.splitSources.empty());
  EXPECT_EQ(m.vertexMaps[0], (std::vector<Point3>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}}));
}

TEST(MapChannels, DifferentCoordinateAppendsACopyAtTheEnd) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}};
  m.indices = {0, 1, 2, 2, 1, 3};
  // Vertex 1's second corner uses a different coordinate.
  m.mapCoords[0] = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0.5f, 0.5f, 0}};
  m.mapIndices[0] = {0, 1, 2, 2, 4, 3};
  unifyMapChannel(m, 0);
  ASSERT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{1}));
  EXPECT_EQ(m.positions[4], m.positions[1]);
  EXPECT_EQ(m.normals[4], m.normals[1]);
  EXPECT_EQ(m.vertexMaps[0][4], Point3(0.5f, 0.5f, 0));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{0, 1, 2, 2, 4, 3}));
}

TEST(MapChannels, ChainListsTheVertexThenCopiesNewestFirst) {
  // Vertex 0's corners use A, B, C, B (triangles 0..3). B makes copy 6, C
  // makes copy 7, which takes over the chain (0 -> 7 -> 6); the second B is
  // found at 6 after 0 and 7 are tried.
  MeshBuild m = fan();
  const Point3 a{0.1f, 0.1f, 0}, b{0.2f, 0.2f, 0}, c{0.3f, 0.3f, 0}, other{0.9f, 0.9f, 0};
  m.mapCoords[0] = {a, b, c, other};
  m.mapIndices[0] = {0, 3, 3, 1, 3, 3, 2, 3, 3, 1, 3, 3};
  unifyMapChannel(m, 0);
  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0}));
  EXPECT_EQ(m.indices[0], 0u);
  EXPECT_EQ(m.indices[3], 6u);
  EXPECT_EQ(m.indices[6], 7u);
  EXPECT_EQ(m.indices[9], 6u);
  EXPECT_EQ(m.vertexMaps[0][6], b);
  EXPECT_EQ(m.vertexMaps[0][7], c);
}

TEST(MapChannels, VertexZeroWithOneCoordinateStaysOne) {
  MeshBuild m = fan();
  m.mapCoords[0] = {{0.25f, 0.75f, 0}};
  m.mapIndices[0].assign(12, 0);
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.positions.size(), 6u);
  EXPECT_EQ(m.indices, fan().indices);
}

TEST(MapChannels, ThirdComponentIsIgnoredAndStoredAsZero) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2, 2, 1, 3};
  m.mapCoords[0] = {{0, 0, 5}, {1, 0, 6}, {0, 1, 7}, {1, 1, 8}, {1, 0, 9}};
  m.mapIndices[0] = {0, 1, 2, 2, 4, 3};
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.positions.size(), 4u);
  EXPECT_EQ(m.vertexMaps[0][1], Point3(1, 0, 0));
}

TEST(MapChannels, NaNMatchesNothingAndMinusZeroMatchesZero) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2, 2, 1, 3};
  m.mapCoords[0] = {{0, 0, 0}, {nan, 0, 0}, {0.0f, 1, 0}, {-0.0f, 1, 0}, {1, 1, 0}};
  // Vertex 1: NaN twice -> two vertices. Vertex 2: +0 then -0 -> one vertex.
  m.mapIndices[0] = {0, 1, 2, 3, 1, 4};
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{1}));
  EXPECT_EQ(m.indices[3], 2u);
  EXPECT_EQ(m.indices[4], 4u);
}

TEST(MapChannels, SecondChannelCopiesCarryTheFirstChannel) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2, 2, 1, 3};
  m.mapCoords[0] = {{0.5f, 0.5f, 0}};
  m.mapIndices[0].assign(6, 0);
  m.mapCoords[1] = {{1, 0, 0}, {0, 1, 0}};
  m.mapIndices[1] = {0, 0, 0, 1, 0, 0};  // vertex 2's second corner differs
  unifyMapChannel(m, 0);
  unifyMapChannel(m, 1);
  ASSERT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(m.vertexMaps[0].size(), 5u);
  EXPECT_EQ(m.vertexMaps[0][4], Point3(0.5f, 0.5f, 0));
  EXPECT_EQ(m.vertexMaps[1][4], Point3(0, 1, 0));
  EXPECT_EQ(m.indices[3], 4u);
}

TEST(MapChannels, UnusedVertexKeepsZeroCoordinate) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {9, 9, 9}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2};
  m.mapCoords[0] = {{0.5f, 0.5f, 0}};
  m.mapIndices[0].assign(3, 0);
  m.vertexMaps[0].assign(4, kGarbage);
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.vertexMaps[0][3], Point3(0, 0, 0));
}

TEST(MapChannels, CopiesOfSmoothingSplitsStartTheirOwnChains) {
  // Vertices 0 and 3 are at one place (3 copied from 0 earlier): the same
  // coordinate on both does not merge them.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 0}};
  m.normals.assign(4, {0, 0, 1});
  m.indices = {0, 1, 2, 3, 2, 1};
  m.mapCoords[0] = {{0, 0, 0}};
  m.mapIndices[0].assign(6, 0);
  unifyMapChannel(m, 0);
  EXPECT_EQ(m.positions.size(), 4u);
  EXPECT_EQ(m.indices[3], 3u);
}
