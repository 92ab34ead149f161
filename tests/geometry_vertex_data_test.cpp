// VertexDataRecord operations, the VertexDataChunk layout and the .skd name.
#include <gtest/gtest.h>

#include "format/memory_file.h"
#include "geometry/geometry_readers.h"
#include "geometry/vertex_data_record.h"
#include "plugin/scene_exporter.h"
#include "support/test_support.h"

namespace {

T_MemoryFile reopen(const T_MemoryFile& written) {
  std::vector<std::uint8_t> bytes(kMemoryFileMagic, kMemoryFileMagic + 4);
  const std::uint32_t encoding = kMemoryFileEncoding;
  bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&encoding),
               reinterpret_cast<const std::uint8_t*>(&encoding) + 4);
  bytes.insert(bytes.end(), written.data(), written.data() + written.getSize());
  return T_MemoryFile::fromBytes(std::move(bytes));
}

}  // namespace

TEST(VertexData, InfluencesAreStoredAtTheirGroupAndVertexStart) {
  VertexDataRecord r;
  r.resizeGroups(2);
  r.resizeVertices(2);
  r.setGroupVertexCount(0, 2);
  r.resizeInfluences(3);
  r.setVertexInfluences(0, 0, 1, 0);
  r.setVertexInfluences(0, 1, 2, 1);
  r.setInfluence(0, 0, 0, 4, 1.0f);
  r.setInfluence(0, 1, 0, 5, 0.5f);
  r.setInfluence(0, 1, 1, 6, 0.5f);
  r.resizeVertices(3);
  r.setGroupVertexCount(1, 1);
  r.setVertexInfluences(1, 0, 0, 3);
  EXPECT_EQ(r.influenceCount, (std::vector<std::int32_t>{1, 2, 0}));
  EXPECT_EQ(r.influenceStart, (std::vector<std::int32_t>{0, 1, 3}));
  EXPECT_EQ(r.influenceBone, (std::vector<std::int32_t>{4, 5, 6}));
  EXPECT_EQ(r.groupVertexStart(), (std::vector<std::uint32_t>{0, 2}));
}

TEST(VertexData, ChunkIsEightSequencesInOrder) {
  VertexDataRecord r;
  r.setNodeName("Body");
  r.setBoneNames({"R", "A"});
  r.resizeGroups(1);
  r.resizeVertices(1);
  r.setGroupVertexCount(0, 1);
  r.resizeInfluences(1);
  r.setVertexInfluences(0, 0, 1, 0);
  r.setInfluence(0, 0, 0, 1, 0.25f);
  T_MemoryFile f(8192);
  f << r;
  T_MemoryFile in = reopen(f);
  const ChunkHeader h = in.readChunkHeader();
  EXPECT_EQ(h.id, 0x10014u);
  EXPECT_EQ(h.version, 1u);
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readString(), "Body");
  EXPECT_EQ(in.readSequenceCount(), 2);
  EXPECT_EQ(in.readString(), "R");
  EXPECT_EQ(in.readString(), "A");
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readInt(), 0);  // influence start
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readInt(), 1);  // influence count
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readInt(), 1);  // bone
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readFloat(), 0.25f);
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readUInt(), 1u);  // group vertex count
  EXPECT_EQ(in.readSequenceCount(), 1);
  EXPECT_EQ(in.readUInt(), 0u);  // group vertex start
  EXPECT_EQ(in.tell(), h.end());
}

TEST(VertexData, EmptyRecordWritesEightEmptySequences) {
  T_MemoryFile f(8192);
  f << VertexDataRecord{};
  T_MemoryFile in = reopen(f);
  in.readChunkHeader();
  for (int i = 0; i < 8; ++i) EXPECT_EQ(in.readSequenceCount(), 0);
  EXPECT_TRUE(in.atEnd());
}

TEST(VertexData, FileLiesBesideTheSceneFileAndBearsItsName) {
  ztx_test::TempDir dir;
  SceneExporter exporter;
  exporter.targetPath = dir.path().string() + "/";
  exporter.targetName = "level";
  EXPECT_EQ(vertexDataFileName(exporter), dir.file("level.skd"));
  VertexDataRecord r;
  r.setNodeName("A");
  ASSERT_TRUE(saveVertexDataFile(exporter, r));
  r.setNodeName("B");
  ASSERT_TRUE(saveVertexDataFile(exporter, r));
  T_MemoryFile in(dir.file("level.skd").c_str(), AM_Read);
  EXPECT_EQ(readVertexDataChunk(in).nodeNames, (std::vector<std::string>{"B"})) << "the last mesh wins";
}
