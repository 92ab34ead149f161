// MeshRecord group operations and the MeshChunk writer, read back with the
// geometry readers and pinned byte for byte where the layout matters.
#include <gtest/gtest.h>

#include <cstring>

#include "format/memory_file.h"
#include "geometry/geometry_readers.h"
#include "geometry/mesh_record.h"
#include "host/inhouse/exceptions.h"

namespace {

T_MemoryFile reopen(const T_MemoryFile& written) {
  std::vector<std::uint8_t> bytes(kMemoryFileMagic, kMemoryFileMagic + 4);
  const std::uint32_t encoding = kMemoryFileEncoding;
  bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&encoding),
               reinterpret_cast<const std::uint8_t*>(&encoding) + 4);
  bytes.insert(bytes.end(), written.data(), written.data() + written.getSize());
  return T_MemoryFile::fromBytes(std::move(bytes));
}

std::vector<std::uint32_t> subChunkIds(const T_MemoryFile& written) {
  T_MemoryFile f = reopen(written);
  const ChunkHeader mesh = f.readChunkHeader();
  std::vector<std::uint32_t> ids;
  while (f.tell() < mesh.end()) {
    const ChunkHeader h = f.readChunkHeader();
    ids.push_back(h.id);
    f.seek(h.end());
  }
  return ids;
}

MeshRecord named(const char* name) {
  MeshRecord r;
  r.name() = name;
  return r;
}

}  // namespace

TEST(MeshRecord, NewRecordHasNoPartPresent) {
  const MeshRecord r;
  EXPECT_FALSE(r.hasVertices());
  EXPECT_FALSE(r.hasFaces());
  EXPECT_FALSE(r.hasMaterialNames());
  EXPECT_FALSE(r.hasReferenceName());
  for (int s = 0; s < kMeshMapSlots; ++s) EXPECT_FALSE(r.hasMapChannel(s));
}

TEST(MeshRecord, HandingOutAPartSetsItsFlagOnly) {
  MeshRecord r;
  r.mapChannel(1);
  EXPECT_TRUE(r.hasMapChannel(1));
  EXPECT_FALSE(r.hasMapChannel(0));
  EXPECT_FALSE(r.hasVertices());
}

TEST(MeshRecord, GroupCountsGiveRunningStarts) {
  MeshVertexRecord v;
  v.groups.resizeGroups(3);
  v.groups.setGroupCount(0, 4);
  v.groups.setGroupCount(1, 0);
  v.groups.setGroupCount(2, 5);
  EXPECT_EQ(v.groups.starts(), (std::vector<std::uint32_t>{0, 4, 4}));
  EXPECT_EQ(v.groups.counts(), (std::vector<std::uint32_t>{4, 0, 5}));

  MeshFaceRecord f;
  f.groups.resizeGroups(3);
  f.groups.setGroupCount(0, 2);
  f.groups.setGroupCount(1, 1);
  EXPECT_EQ(f.groups.starts(), (std::vector<std::uint32_t>{0, 6, 9})) << "face starts are in index units";
  f.resizeTriangles(3);
  f.setTriangle(1, 0, 7, 8, 9);
  EXPECT_EQ(f.indices, (std::vector<std::uint16_t>{0, 0, 0, 0, 0, 0, 7, 8, 9}));
}

TEST(MeshRecord, InsertedGroupsStartWhereTheirSuccessorStarts) {
  MeshVertexRecord v;
  v.groups.resizeGroups(2);
  v.groups.setGroupCount(0, 3);
  v.groups.insertGroups(1, 2);
  EXPECT_EQ(v.groups.starts(), (std::vector<std::uint32_t>{0, 3, 3, 3}));
  v.groups.setGroupCount(1, 2);
  EXPECT_EQ(v.groups.starts(), (std::vector<std::uint32_t>{0, 3, 5, 5}));
  v.groups.insertGroups(4, 1);
  EXPECT_EQ(v.groups.starts().back(), 5u);
}

TEST(MeshChunk, ReferenceOnlyRecordHoldsObjectAndReference) {
  MeshRecord r = named("Copy");
  r.referenceName() = "Original";
  T_MemoryFile f(8192);
  f << r;
  EXPECT_EQ(subChunkIds(f), (std::vector<std::uint32_t>{kObjectChunkId, kMeshReferenceChunkId}));
  T_MemoryFile in = reopen(f);
  const MeshRecord back = readMeshChunk(in);
  EXPECT_EQ(back.name(), "Copy");
  EXPECT_EQ(back.referenceNameValue(), "Original");
  EXPECT_FALSE(back.hasVertices());
}

TEST(MeshChunk, EmptyPartsAreStillWritten) {
  MeshRecord r = named("Empty");
  r.vertices();
  r.faces();
  r.materialNames();
  T_MemoryFile f(8192);
  f << r;
  EXPECT_EQ(subChunkIds(f), (std::vector<std::uint32_t>{kObjectChunkId, kMeshVertexChunkId, kMeshFaceChunkId,
                                                         kMeshMaterialNamesChunkId}));
  T_MemoryFile in = reopen(f);
  const MeshRecord back = readMeshChunk(in);
  EXPECT_TRUE(back.hasVertices());
  EXPECT_EQ(back.vertexPart().positions.size(), 0u);
  EXPECT_EQ(back.vertexPart().groups.groupCount(), 0u);
  EXPECT_EQ(back.facePart().indices.size(), 0u);
  EXPECT_TRUE(back.hasMaterialNames());
  EXPECT_TRUE(back.materialNameList().empty());
}

TEST(MeshChunk, PartsComeInTheirFixedOrder) {
  MeshRecord r = named("All");
  r.referenceName() = "x";
  r.mapChannel(1).channel = 1;
  r.mapChannel(0);
  r.materialNames() = {"m"};
  r.faces();
  r.vertices();
  r.mapChannel(5);  // slots beyond 1 are never written
  T_MemoryFile f(8192);
  f << r;
  EXPECT_EQ(subChunkIds(f),
            (std::vector<std::uint32_t>{kObjectChunkId, kMeshVertexChunkId, kMeshFaceChunkId, kMeshMaterialNamesChunkId,
                                        kMeshMapChannelChunkId, kMeshMapChannelChunkId, kMeshReferenceChunkId}));
  T_MemoryFile in = reopen(f);
  const MeshRecord back = readMeshChunk(in);
  EXPECT_EQ(back.mapChannelPart(0).channel, 0u);
  EXPECT_EQ(back.mapChannelPart(1).channel, 1u);
}

TEST(MeshChunk, VertexChunkBytes) {
  MeshRecord r;
  MeshVertexRecord& v = r.vertices();
  v.resize(1);
  v.positions[0] = {1.0f, 2.0f, 3.0f};
  v.normals[0] = {0.0f, 0.0f, 1.0f};
  v.groups.resizeGroups(1);
  v.groups.setGroupCount(0, 1);
  T_MemoryFile f(8192);
  f << r;
  T_MemoryFile in = reopen(f);
  in.readChunkHeader();
  in.seek(in.readChunkHeader().end());  // the object chunk
  const std::size_t at = in.tell();
  const std::uint8_t* p = in.data() + at;
  // Header: tag, id, version, body length (5 + 12 + 12 + 5 + 5 = 39).
  const std::uint8_t header[13] = {0x20, 0x06, 0x00, 0x01, 0x00, 0x01, 0, 0, 0, 39, 0, 0, 0};
  EXPECT_EQ(std::memcmp(p, header, 13), 0);
  const std::uint8_t count[5] = {0x04, 1, 0, 0, 0};
  EXPECT_EQ(std::memcmp(p + 13, count, 5), 0);
  float raw[6];
  std::memcpy(raw, p + 18, 24);
  EXPECT_EQ(raw[0], 1.0f);
  EXPECT_EQ(raw[2], 3.0f);
  EXPECT_EQ(raw[5], 1.0f);
  const std::uint8_t groups[10] = {0x04, 1, 0, 0, 0, 0x04, 1, 0, 0, 0};
  EXPECT_EQ(std::memcmp(p + 42, groups, 10), 0);
}

TEST(MeshChunk, IndexOf65535IsWrittenAsFFFF) {
  MeshRecord r;
  MeshFaceRecord& faces = r.faces();
  faces.groups.resizeGroups(1);
  faces.resizeTriangles(1);
  faces.groups.setGroupCount(0, 1);
  faces.setTriangle(0, 0, 65535, 0, 1);
  T_MemoryFile f(8192);
  f << r;
  T_MemoryFile in = reopen(f);
  in.readChunkHeader();
  in.seek(in.readChunkHeader().end());
  const ChunkHeader h = in.readChunkHeader();
  EXPECT_EQ(h.id, kMeshFaceChunkId);
  EXPECT_EQ(in.readUInt(), 3u);
  std::uint8_t raw[6];
  in.readRaw(raw, 6);
  EXPECT_EQ(raw[0], 0xFF);
  EXPECT_EQ(raw[1], 0xFF);
  EXPECT_EQ(in.readUInt(), 1u);
  EXPECT_EQ(in.readUInt(), 1u);
}

TEST(MeshChunk, RoundTripKeepsEveryField) {
  MeshRecord r = named("Box");
  r.parentName() = "Root";
  r.setHasParent(true);
  r.userProperties() = "lod=1";
  MeshVertexRecord& v = r.vertices();
  v.resize(3);
  v.positions = {{1, 2, 3}, {4, 5, 6}, {7, 8, 9}};
  v.normals = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}};
  v.groups.resizeGroups(2);
  v.groups.setGroupCount(0, 2);
  v.groups.setGroupCount(1, 1);
  MeshFaceRecord& faces = r.faces();
  faces.groups.resizeGroups(2);
  faces.resizeTriangles(2);
  faces.groups.setGroupCount(0, 1);
  faces.groups.setGroupCount(1, 1);
  faces.setTriangle(0, 0, 0, 1, 1);
  faces.setTriangle(1, 0, 0, 0, 0);
  r.materialNames() = {"Stone", "Wood"};
  MeshMapChannelRecord& c = r.mapChannel(0);
  c.coordinates = {{0.5f, -0.5f, 0}, {1, -1, 0}, {0, 0, 0}};
  c.groups.resizeGroups(2);
  c.groups.setGroupCount(0, 2);
  c.groups.setGroupCount(1, 1);

  T_MemoryFile f(8192);
  f << r;
  EXPECT_EQ(f.openChunkCount(), 0);
  T_MemoryFile in = reopen(f);
  const MeshRecord back = readMeshChunk(in);
  EXPECT_TRUE(in.atEnd());
  EXPECT_EQ(back.name(), "Box");
  EXPECT_EQ(back.parentName(), "Root");
  EXPECT_TRUE(back.hasParent());
  EXPECT_EQ(back.userProperties(), "lod=1");
  EXPECT_EQ(back.vertexPart().positions, v.positions);
  EXPECT_EQ(back.vertexPart().normals, v.normals);
  EXPECT_EQ(back.vertexPart().groups.starts(), (std::vector<std::uint32_t>{0, 2}));
  EXPECT_EQ(back.facePart().indices, faces.indices);
  EXPECT_EQ(back.facePart().groups.counts(), (std::vector<std::uint32_t>{1, 1}));
  EXPECT_EQ(back.materialNameList(), (std::vector<std::string>{"Stone", "Wood"}));
  EXPECT_EQ(back.mapChannelPart(0).coordinates, c.coordinates);
  EXPECT_FALSE(back.hasMapChannel(1));
}

TEST(MeshChunk, ReaderRejectsEveryTruncation) {
  MeshRecord r = named("T");
  r.vertices().resize(2);
  r.faces();
  r.materialNames() = {"a"};
  T_MemoryFile f(8192);
  f << r;
  const std::vector<std::uint8_t> full(f.data(), f.data() + f.getSize());
  for (std::size_t n = 0; n < full.size(); ++n) {
    T_MemoryFile cut(8192);
    cut.write(full.data(), static_cast<int>(n));
    T_MemoryFile in = reopen(cut);
    EXPECT_THROW(readMeshChunk(in), T_Exception) << "cut at " << n;
  }
}
