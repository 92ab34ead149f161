// The chunk file's byte encoding is pinned here: a change shows as a failure.
#include <gtest/gtest.h>

#include <cstring>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "host/inhouse/exceptions.h"
#include "support/test_support.h"

namespace {

std::vector<std::uint8_t> savedBytes(const T_MemoryFile& f) {
  ztx_test::TempDir dir;
  const std::string path = dir.file("out.bin");
  EXPECT_TRUE(f.save(path.c_str()).ok());
  return ztx_test::readBytes(path);
}

const std::vector<std::uint8_t> kHeader = {'Z', 'T', 'M', 'F', 1, 0, 0, 0};

}  // namespace

TEST(MemoryFile, EmptyBufferHasSizeZero) {
  T_MemoryFile f(8192);
  EXPECT_EQ(f.getSize(), 0u);
}

TEST(MemoryFile, TypedValuesHaveTheirDocumentedBytes) {
  T_MemoryFile f;
  f << true << static_cast<unsigned char>(0xAB) << -2 << 7u << 1.0f << std::string("hi");
  std::vector<std::uint8_t> expected = kHeader;
  const std::vector<std::uint8_t> body = {0x01, 1,                       // bool
                                          0x02, 0xAB,                    // unsigned char
                                          0x03, 0xFE, 0xFF, 0xFF, 0xFF,  // int -2
                                          0x04, 7,    0,    0,    0,     // unsigned int 7
                                          0x05, 0,    0,    0x80, 0x3F,  // float 1.0
                                          0x06, 2,    0,    0,    0,    'h', 'i'};
  expected.insert(expected.end(), body.begin(), body.end());
  EXPECT_EQ(f.getSize(), body.size());
  EXPECT_EQ(savedBytes(f), expected);
}

TEST(MemoryFile, EmptyVectorIsTagCountZeroAndNothingElse) {
  T_MemoryFile f;
  f << std::vector<int>{};
  const std::vector<std::uint8_t> body = {0x1c, 0x03, 0, 0, 0, 0};
  const auto bytes = savedBytes(f);
  EXPECT_EQ(std::vector<std::uint8_t>(bytes.begin() + 8, bytes.end()), body);
}

TEST(MemoryFile, ChunkLengthCoversNestedChunks) {
  T_MemoryFile f;
  f.createChunk(0x10001, 0);
  f.createChunk(0x10000, 1);
  f.closeChunk();
  f << 5;
  f.closeChunk();
  const auto bytes = savedBytes(f);
  ASSERT_EQ(bytes.size(), 8u + 13 + 13 + 5);
  std::uint32_t outerLength, innerLength;
  std::memcpy(&outerLength, bytes.data() + 8 + 9, 4);
  std::memcpy(&innerLength, bytes.data() + 8 + 13 + 9, 4);
  EXPECT_EQ(outerLength, 13u + 5u);
  EXPECT_EQ(innerLength, 0u);
}

TEST(MemoryFile, ObjectChunkRoundTripsInItsFieldOrder) {
  ObjectRecord r;
  r.name() = "Box01";
  r.parentName() = "Root";
  r.transform()[3] = {1.0f, 3.0f, 2.0f};
  r.setHasParent(true);
  r.userProperties() = "lod=2";
  T_MemoryFile f;
  f << r;

  ztx_test::TempDir dir;
  ASSERT_TRUE(f.save(dir.file("o.zt2").c_str()).ok());
  T_MemoryFile in(dir.file("o.zt2").c_str(), AM_Read);
  const ChunkHeader h = in.readChunkHeader();
  EXPECT_EQ(h.id, chunk_kind::kObject.id);
  EXPECT_EQ(h.version, 1u);
  EXPECT_EQ(in.readString(), "Box01");
  EXPECT_EQ(in.readString(), "Root");
  EXPECT_EQ(in.readMatrix(), r.transform());
  EXPECT_TRUE(in.readBool());
  EXPECT_EQ(in.readString(), "lod=2");
  EXPECT_EQ(in.tell(), h.end());
  EXPECT_TRUE(in.atEnd());
}

TEST(MemoryFile, RawBlockCarriesCountButNoTag) {
  T_MemoryFile f;
  writeRawBlock(f, std::vector<float>{1.0f, 2.0f});
  const auto bytes = savedBytes(f);
  ASSERT_EQ(bytes.size(), 8u + 5 + 8);
  EXPECT_EQ(bytes[8], 0x04);
  EXPECT_EQ(bytes[9], 2);
}

TEST(MemoryFile, MissingFileThrowsFileNotFound) {
  EXPECT_THROW(T_MemoryFile("/nonexistent/dir/file.cfg", AM_Read), T_FileException_FileNotFound);
}

TEST(MemoryFile, EveryTruncationGivesAnErrorWithAnOffset) {
  T_MemoryFile f;
  f.createChunk(0x10015, 0);
  f << static_cast<unsigned char>(1) << 2.5f << std::string("abc");
  f.closeChunk();
  const auto full = savedBytes(f);
  for (std::size_t n = 8; n < full.size(); ++n) {
    std::vector<std::uint8_t> cut(full.begin(), full.begin() + static_cast<long>(n));
    try {
      T_MemoryFile in = T_MemoryFile::fromBytes(cut, "cut.zt2");
      in.readChunkHeader();
      in.readUChar();
      in.readFloat();
      in.readString();
      FAIL() << "no error at length " << n;
    } catch (const T_Exception& e) {
      EXPECT_NE(std::string(e.what()).find("byte offset"), std::string::npos) << e.what();
    }
  }
}

TEST(MemoryFile, WrongTagIsNamed) {
  T_MemoryFile f;
  f << 1.5f;
  T_MemoryFile in = T_MemoryFile::fromBytes(savedBytes(f));
  try {
    in.readInt();
    FAIL();
  } catch (const T_Exception& e) {
    EXPECT_NE(std::string(e.what()).find("expected an int value, found a float value at byte offset 8"),
              std::string::npos)
        << e.what();
  }
}


// Reserving ahead never changes what is written.
TEST(MemoryFile, ReservationsLeaveTheBytesAsTheyAre) {
  T_MemoryFile reserved, plain;
  for (int i = 0; i < 4000; ++i) {
    reserved.reserveMore(100 + 65536);
    reserved.createChunk(0x1000, 1);
    reserved << i;
    reserved.closeChunk();
    plain.createChunk(0x1000, 1);
    plain << i;
    plain.closeChunk();
  }
  ASSERT_EQ(reserved.getSize(), plain.getSize());
  EXPECT_EQ(std::memcmp(reserved.data(), plain.data(), plain.getSize()), 0);
}
