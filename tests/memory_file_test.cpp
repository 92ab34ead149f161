// The chunk file's byte encoding is pinned here: a change shows as a failure.
// Reading (truncations, wrong tags, chunk lengths) is checked through the
// reader library, which reads with this class (dump_errors_test.cpp); room
// reserved ahead by the mesh writer, through every exported mesh read back
// and validated (geometry_export_mesh_test.cpp and every example export).
#include <gtest/gtest.h>

#include "format/memory_file.h"
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

// Typed values carry their tag; a raw block its count but no tag.
TEST(MemoryFile, TypedValuesHaveTheirDocumentedBytes) {
  T_MemoryFile f;
  f << true << static_cast<unsigned char>(0xAB) << -2 << 7u << 1.0f << std::string("hi") << std::vector<int>{};
  writeRawBlock(f, std::vector<float>{1.0f, 2.0f});
  std::vector<std::uint8_t> expected = kHeader;
  const std::vector<std::uint8_t> body = {0x01, 1,                       // bool
                                          0x02, 0xAB,                    // unsigned char
                                          0x03, 0xFE, 0xFF, 0xFF, 0xFF,  // int -2
                                          0x04, 7,    0,    0,    0,     // unsigned int 7
                                          0x05, 0,    0,    0x80, 0x3F,  // float 1.0
                                          0x06, 2,    0,    0,    0,    'h', 'i',
                                          0x1c, 0x03, 0,    0,    0,    0,           // empty int vector
                                          0x04, 2,    0,    0,    0,                 // raw block of 2
                                          0,    0,    0x80, 0x3F, 0,    0,    0,    0x40};
  expected.insert(expected.end(), body.begin(), body.end());
  EXPECT_EQ(f.getSize(), body.size());
  EXPECT_EQ(savedBytes(f), expected);
}
