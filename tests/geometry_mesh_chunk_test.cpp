// The MeshChunk writer pinned byte for byte where the layout matters; what
// the mesh and skin writers write is read back with the reader library in
// geometry_export_mesh_test.cpp.
#include <gtest/gtest.h>

#include <cstring>

#include "format/memory_file.h"
#include "geometry/mesh_record.h"

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

