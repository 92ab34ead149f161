// Smoothing-group normals and map channel seams on hand-built meshes, against
// results worked out by hand; the MeshChunk writer pinned byte for byte where
// the layout matters (what the mesh and skin writers write is read back with
// the reader library in geometry_export_mesh_test.cpp).
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>

#include "format/memory_file.h"
#include "geometry/mesh_processing.h"
#include "geometry/mesh_record.h"

namespace {

// Shared by the cases on purpose: buffers left large by one mesh must not
// change the next result.
MeshScratch scratch;

constexpr Point3 kGarbage{1234.5f, -777.25f, 42.0f};

// Vertex i at (bit 0, bit 1, bit 2) of i as -1/1; two outward triangles per
// side (-z, +z, -y, +y, -x, +x), side s in smoothing group 1 << s or group 1.
MeshBuild cube(bool sixGroups) {
  MeshBuild m;
  for (int i = 0; i < 8; ++i) m.positions.push_back({i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
  m.indices = {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4, 2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5};
  for (int t = 0; t < 12; ++t) m.smoothingGroups.push_back(sixGroups ? 1u << (t / 2) : 1u);
  m.normals.assign(5, kGarbage);  // must be replaced, not appended to
  return m;
}
const Point3 kSideNormal[6] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};

// Triangles (0, 1, 2) and (2, 1, 3) over a unit square.
MeshBuild square() {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}};
  m.indices = {0, 1, 2, 2, 1, 3};
  return m;
}

}  // namespace

TEST(SmoothNormals, CubeWithSixGroupsGivesTwentyFourVerticesWithSideNormals) {
  MeshBuild m = cube(true);
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 24u);
  ASSERT_EQ(m.normals.size(), 24u);
  // Each vertex keeps its last cluster; the earlier ones become copies 8, 9
  // (of vertex 0), 10, 11 (of vertex 1), ... The cluster reaching the most
  // triangles goes first, the first such in the vertex's list on a tie:
  // vertex 1 has sides (0, 2, 5, 5), so side 5 goes, then side 0; it keeps 2.
  const int side[24] = {4, 2, 4, 5, 4, 5, 3, 5, 0, 2, 5, 0, 3, 0, 0, 3, 1, 2, 2, 1, 4, 1, 1, 3};
  for (int v = 0; v < 24; ++v) EXPECT_EQ(m.normals[v], kSideNormal[side[v]]) << "vertex " << v;
  const std::vector<std::uint32_t> sources = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7};
  EXPECT_EQ(m.splitSources, sources);
  for (int v = 8; v < 24; ++v) EXPECT_EQ(m.positions[v], m.positions[sources[v - 8]]);
  for (std::size_t k = 0; k < m.indices.size(); ++k)
    EXPECT_EQ(m.normals[m.indices[k]], kSideNormal[k / 6]) << "corner " << k;
  EXPECT_EQ(std::vector<std::uint32_t>(m.indices.begin(), m.indices.begin() + 6),
            (std::vector<std::uint32_t>{8, 13, 14, 8, 14, 11}));
}

TEST(SmoothNormals, OneGroupKeepsEightVerticesWithNormalisedSums) {
  MeshBuild m = cube(false);
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_TRUE(m.splitSources.empty());
  EXPECT_EQ(m.indices, cube(false).indices);
  // Sums of the side normals of each vertex's triangles: a corner on a side's
  // diagonal touches both of its triangles, the others one.
  const int sums[8][3] = {{-2, -2, -2}, {2, -1, -1}, {-1, 2, -1}, {1, 1, -2},
                          {-1, -1, 2},  {1, -2, 1},  {-2, 1, 1},  {2, 2, 2}};
  for (int v = 0; v < 8; ++v) {
    const float x = float(sums[v][0]), y = float(sums[v][1]), z = float(sums[v][2]);
    const float inv = 1.0f / std::sqrt(x * x + y * y + z * z);
    EXPECT_EQ(m.normals[v], Point3(x * inv, y * inv, z * inv)) << "vertex " << v;
  }
}

TEST(SmoothNormals, ZeroMaskTrianglesEachGetTheirOwnVertices) {
  MeshBuild big = cube(true);
  computeSmoothNormals(big, scratch.normals);  // leaves larger work buffers behind
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3};
  m.smoothingGroups = {0, 0};
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 10u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0, 1, 2, 2, 3}));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{4, 6, 7, 5, 8, 9}));
  for (int v = 0; v < 4; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 0)) << "vertex " << v << " keeps no triangle";
  for (int v = 4; v < 10; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 1)) << "vertex " << v;
}

TEST(SmoothNormals, ABridgingMaskJoinsGroupsThatShareNoBit) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4};
  m.smoothingGroups = {1, 3, 2};
  computeSmoothNormals(m, scratch.normals);
  EXPECT_EQ(m.positions.size(), 5u);
}

TEST(MapChannels, SeamCopiesAreAppendedAndChainedNewestFirst) {
  // A fan around vertex 0, whose corners use coordinates A, B, C, B. B makes
  // copy 6, C copy 7, which takes over the chain (0 -> 7 -> 6); the second B
  // is found at 6 after 0 and 7 are tried.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}, {-1, 0, 0}};
  m.normals = {{0, 0, 1}, {0, 0, 2}, {0, 0, 3}, {0, 0, 4}, {0, 0, 5}, {0, 0, 6}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5};
  m.vertexMaps[0].assign(9, kGarbage);
  const Point3 a{0.1f, 0.1f, 0}, b{0.2f, 0.2f, 0}, c{0.3f, 0.3f, 0}, other{0.9f, 0.9f, 0};
  m.mapCoords[0] = {a, b, c, other};
  m.mapIndices[0] = {0, 3, 3, 1, 3, 3, 2, 3, 3, 1, 3, 3};
  unifyMapChannel(m, 0, scratch.maps);
  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0}));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{0, 1, 2, 6, 2, 3, 7, 3, 4, 6, 4, 5}));
  EXPECT_EQ(m.vertexMaps[0], (std::vector<Point3>{a, other, other, other, other, other, b, c}));
  for (int v : {6, 7}) EXPECT_TRUE(m.positions[v] == m.positions[0] && m.normals[v] == m.normals[0]);
}

TEST(MapChannels, CoordinatesCompareByTheirFirstTwoComponents) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    Point3 first, second;
    bool sameIndex, split;
  };
  const Case cases[] = {{{1, 0, 5}, {1, 0, 9}, false, false},
                        {{0.0f, 1, 0}, {-0.0f, 1, 0}, false, false},
                        {{nan, 0, 0}, {nan, 0, 0}, true, true},
                        {{1, 0, 0}, {0.5f, 0.5f, 0}, false, true}};
  for (const Case& c : cases) {
    MeshBuild m = square();  // vertex 1's corners use `first`, then `second`
    m.mapCoords[0] = {{0, 0, 0}, c.first, {0, 1, 0}, {1, 1, 0}, c.second};
    m.mapIndices[0] = {0, 1, 2, 2, c.sameIndex ? 1u : 4u, 3};
    unifyMapChannel(m, 0, scratch.maps);
    EXPECT_EQ(m.positions.size(), c.split ? 5u : 4u) << c.second.x;
    EXPECT_EQ(m.splitSources, c.split ? std::vector<std::uint32_t>{1} : std::vector<std::uint32_t>{});
    EXPECT_EQ(m.indices[4], c.split ? 4u : 1u);
    if (!c.split) {
      EXPECT_EQ(m.vertexMaps[0][1], Point3(c.first.x, c.first.y, 0)) << "third component stored as 0";
    }
  }
}

TEST(MapChannels, SecondChannelCopiesCarryTheFirstChannel) {
  MeshBuild m = square();
  m.mapCoords[0] = {{0.5f, 0.5f, 0}};
  m.mapIndices[0].assign(6, 0);
  m.mapCoords[1] = {{1, 0, 0}, {0, 1, 0}};
  m.mapIndices[1] = {0, 0, 0, 1, 0, 0};  // vertex 2's second corner differs
  unifyMapChannel(m, 0, scratch.maps);
  unifyMapChannel(m, 1, scratch.maps);
  ASSERT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(m.vertexMaps[0], std::vector<Point3>(5, {0.5f, 0.5f, 0}));
  EXPECT_EQ(m.vertexMaps[1][4], Point3(0, 1, 0));
  EXPECT_EQ(m.indices[3], 4u);
}

TEST(MaterialGroups, OneCutterServesEveryGroupInAnyOrder) {
  // Triangles of groups 1, 0, none, 1 over five vertices.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {2, 0, 0}, {3, 0, 0}, {4, 0, 0}};
  m.normals.assign(5, Point3{0, 0, 1});
  m.indices = {3, 1, 0, 1, 2, 3, 4, 4, 4, 4, 3, 2};
  m.faceMaterials = {1, 0, -1, 1};
  m.materialNames = {"A", "B"};
  MaterialGroupCutter cutter(m, scratch.groups);
  MaterialSubMesh g;
  for (int pass = 0; pass < 2; ++pass) {
    cutter.extract(1, 0, g);
    EXPECT_EQ(g.indices, (std::vector<std::uint32_t>{0, 1, 2, 3, 0, 4}));
    EXPECT_EQ(g.sources, (std::vector<std::uint32_t>{3, 1, 0, 4, 2}));
    EXPECT_EQ(g.positions[3], Point3(4, 0, 0));
    cutter.extract(0, 0, g);
    EXPECT_EQ(g.indices, (std::vector<std::uint32_t>{0, 1, 2}));
    EXPECT_EQ(g.sources, (std::vector<std::uint32_t>{1, 2, 3}));
  }
  cutter.extract(2, 0, g);  // no such group: empty
  EXPECT_TRUE(g.indices.empty() && g.positions.empty());
}

namespace {

// What `record` writes, as a file the reads accept.
T_MemoryFile written(const MeshRecord& record) {
  T_MemoryFile out(8192);
  out << record;
  std::vector<std::uint8_t> bytes(8 + out.getSize());
  std::memcpy(bytes.data(), kMemoryFileMagic, 4);
  std::memcpy(bytes.data() + 4, &kMemoryFileEncoding, 4);
  if (out.getSize() > 0) std::memcpy(bytes.data() + 8, out.data(), out.getSize());
  return T_MemoryFile::fromBytes(std::move(bytes));
}

std::vector<std::uint32_t> subChunkIds(const MeshRecord& r) {
  T_MemoryFile f = written(r);
  const ChunkHeader mesh = f.readChunkHeader();
  std::vector<std::uint32_t> ids;
  while (f.tell() < mesh.end()) {
    const ChunkHeader h = f.readChunkHeader();
    ids.push_back(h.id);
    f.seek(h.end());
  }
  return ids;
}

}  // namespace

TEST(MeshChunk, PartsAreWrittenWhenPresentInTheirFixedOrder) {
  MeshRecord r;
  r.referenceName() = "Original";
  EXPECT_EQ(subChunkIds(r), (std::vector<std::uint32_t>{chunk_kind::kObject.id, chunk_kind::kMeshReference.id}));
  r.mapChannel(1).channel = 1;
  r.mapChannel(0);
  r.materialNames();
  r.faces();
  r.vertices();
  r.mapChannel(5);  // slots beyond 1 are never written
  EXPECT_EQ(subChunkIds(r),
            (std::vector<std::uint32_t>{chunk_kind::kObject.id, chunk_kind::kMeshVertex.id, chunk_kind::kMeshFace.id, chunk_kind::kMeshMaterialNames.id,
                                        chunk_kind::kMeshMapChannel.id, chunk_kind::kMeshMapChannel.id, chunk_kind::kMeshReference.id}));
}

TEST(MeshChunk, VertexAndFaceChunkBytes) {
  MeshRecord r;
  MeshVertexRecord& v = r.vertices();
  v.resize(1);
  v.positions[0] = {1.0f, 2.0f, 3.0f};
  v.normals[0] = {0.0f, 0.0f, 1.0f};
  v.groups.resizeGroups(1);
  v.groups.setGroupCount(0, 1);
  MeshFaceRecord& faces = r.faces();
  faces.groups.resizeGroups(1);
  faces.resizeTriangles(1);
  faces.groups.setGroupCount(0, 1);
  faces.setTriangle(0, 0, 65535, 0, 1);
  T_MemoryFile in = written(r);
  in.readChunkHeader();
  in.seek(in.readChunkHeader().end());  // the object chunk
  const std::uint8_t* p = in.data() + in.tell();
  // Tag, id, version, body length (5 + 12 + 12 + 5 + 5 = 39); then the count,
  // position and normal per vertex, and the group counts.
  const std::uint8_t header[18] = {0x20, 0x06, 0x00, 0x01, 0x00, 0x01, 0, 0, 0, 39, 0, 0, 0, 0x04, 1, 0, 0, 0};
  EXPECT_EQ(std::memcmp(p, header, 18), 0);
  float raw[6];
  std::memcpy(raw, p + 18, 24);
  EXPECT_EQ(std::vector<float>(raw, raw + 6), (std::vector<float>{1, 2, 3, 0, 0, 1}));
  const std::uint8_t groups[10] = {0x04, 1, 0, 0, 0, 0x04, 1, 0, 0, 0};
  EXPECT_EQ(std::memcmp(p + 42, groups, 10), 0);
  in.seek(in.tell() + 52);
  EXPECT_EQ(in.readChunkHeader().id, chunk_kind::kMeshFace.id);
  EXPECT_EQ(in.readUInt(), 3u);
  std::uint8_t indices[6];
  in.readRaw(indices, 6);
  EXPECT_EQ(std::vector<std::uint8_t>(indices, indices + 6), (std::vector<std::uint8_t>{0xFF, 0xFF, 0, 0, 1, 0}));
  for (int i = 0; i < 2; ++i) EXPECT_EQ(in.readUInt(), 1u);  // the group counts: one group of one triangle
}
