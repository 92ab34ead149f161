// The MeshChunk and VertexDataChunk writers, read back with the reader
// library and pinned byte for byte where the layout matters.
#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "format/memory_file.h"
#include "geometry/mesh_record.h"
#include "geometry/vertex_data_record.h"
#include "ztexport/reader.h"

namespace {

// What `record` writes, as a whole file.
template <class Record>
std::vector<std::uint8_t> bytesOf(const Record& record) {
  T_MemoryFile out(8192);
  out << record;
  std::vector<std::uint8_t> bytes(8 + out.getSize());
  std::memcpy(bytes.data(), kMemoryFileMagic, 4);
  std::memcpy(bytes.data() + 4, &kMemoryFileEncoding, 4);
  if (out.getSize() > 0) std::memcpy(bytes.data() + 8, out.data(), out.getSize());
  return bytes;
}

template <class Record>
T_MemoryFile written(const Record& record) {
  return T_MemoryFile::fromBytes(bytesOf(record));
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

TEST(MeshChunk, ObjectFieldsAndGroupCountsReadBack) {
  MeshRecord r;
  r.name() = "Box";
  r.parentName() = "Root";
  r.setHasParent(true);
  r.userProperties() = "lod=1";
  MeshFaceRecord& faces = r.faces();
  faces.resizeTriangles(2);
  for (auto* groups : {&r.vertices().groups, &faces.groups}) {
    groups->resizeGroups(3);
    groups->setGroupCount(0, 1);
    groups->setGroupCount(2, 1);
  }
  const ztexport::Scene scene = ztexport::decodeScene("box.zt2", bytesOf(r));
  ASSERT_EQ(scene.meshes.size(), 1u);
  const ztexport::Mesh& back = scene.meshes[0];
  EXPECT_EQ(std::make_tuple(back.node.name, back.node.parentName, back.node.hasParent, back.node.userProperties),
            std::make_tuple(std::string("Box"), std::string("Root"), true, std::string("lod=1")));
  std::vector<std::uint32_t> vertexStarts, triangleStarts;
  for (const ztexport::MeshGroup& g : back.groups())
    vertexStarts.push_back(g.firstVertex), triangleStarts.push_back(g.firstTriangle);
  EXPECT_EQ(vertexStarts, (std::vector<std::uint32_t>{0, 1, 1}));
  EXPECT_EQ(triangleStarts, (std::vector<std::uint32_t>{0, 1, 1}));
}

TEST(VertexDataChunk, IsEightSequencesInOrder) {
  VertexDataRecord r;
  r.setNodeName("Body");
  r.setBoneNames({"R", "A"});
  r.resizeGroups(1);
  r.resizeVertices(1);
  r.setGroupVertexCount(0, 1);
  r.resizeInfluences(1);
  r.setVertexInfluences(0, 0, 1, 0);
  r.setInfluence(0, 0, 0, 1, 0.25f);
  T_MemoryFile in = written(r);
  const ChunkHeader h = in.readChunkHeader();
  EXPECT_EQ(h.id, 0x10014u);
  EXPECT_EQ(h.version, 1u);
  // Node names, bone names, influence starts, counts, bones, weights, group vertex counts and starts.
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readString(), "Body");
  EXPECT_EQ(in.readSequenceCount(), 2);
  EXPECT_EQ(in.readString(), "R");
  EXPECT_EQ(in.readString(), "A");
  for (std::int32_t value : {0, 1, 1}) {
    EXPECT_EQ(in.readSequenceCount(), 1);
    EXPECT_EQ(in.readInt(), value);
  }
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readFloat(), 0.25f);
  for (std::uint32_t value : {1u, 0u}) {
    EXPECT_EQ(in.readSequenceCount(), 1);
    EXPECT_EQ(in.readUInt(), value);
  }
  EXPECT_EQ(in.tell(), h.end());
}
