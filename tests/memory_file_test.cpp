// The chunk file's byte encoding is pinned here: a change shows as a failure.
// Reading (truncations, wrong tags, chunk lengths) is checked through the
// reader library, which reads with this class (dump_errors_test.cpp); room
// reserved ahead by the mesh writer, through every exported mesh read back
// and validated (geometry_export_mesh_test.cpp and every example export).
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>

#include "format/memory_file.h"
#include "format/output_files.h"
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

// A file past its threshold goes on into its staged temporary as it is
// written: chunk lengths patched across the point where it went on, large
// blocks written straight through and the small writes after them, it holds
// the bytes the same writes give in memory, and appears only with the commit.
// A write that fails fails the commit, and the discard leaves nothing.
TEST(MemoryFile, FileSpilledIntoItsStagingHoldsTheBytesOfOneHeldInMemory) {
  auto fill = [](T_MemoryFile& f) {
    f.createChunk(0x10, 1);
    f << 7 << std::string("head");
    f.createChunk(0x11, 2);
    std::vector<std::uint8_t> big(3 << 20);
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<std::uint8_t>(i * 7 + i / 4096);
    writeRawBytes(f, big.data(), 40000);  // crosses the threshold inside this chunk
    f.closeChunk();
    f.createChunk(0x12, 3);
    writeRawBytes(f, big.data(), big.size());
    for (int i = 0; i < 30000; ++i) f << static_cast<unsigned int>(i);
    f.closeChunk();
    f.closeChunk();
  };
  T_MemoryFile held;
  fill(held);
  const std::vector<std::uint8_t> expected = savedBytes(held);

  ztx_test::TempDir dir;
  const std::string target = dir.file("big.zt2");
  for (const bool failing : {false, true}) {
    SCOPED_TRACE(failing ? "a write fails" : "written");
    FileStaging staging;
    T_MemoryFile f;
    f.spillBeyond(32768, {[&]() -> Result<int> {
                            Result<int> fd = staging.stageForWriting(target);
                            // The temporary opened again for reading only, which takes no
                            // writes, stands for a full disk.
                            if (fd && failing) {
                              const std::string self = "/proc/self/fd/" + std::to_string(fd.value());
                              const int readOnly = ::open(self.c_str(), O_RDONLY | O_CLOEXEC);
                              ::dup2(readOnly, fd.value());
                              ::close(readOnly);
                            }
                            return fd;
                          },
                          [&](int fd, Result<void> written) { return staging.finishWriting(fd, std::move(written)); }});
    fill(f);
    EXPECT_TRUE(f.spilled());
    EXPECT_EQ(f.getSize() + kHeader.size(), expected.size());
    EXPECT_EQ(f.stage(target.c_str(), staging).ok(), !failing);
    EXPECT_EQ(staging.commit(target).ok(), !failing);
    staging.discard();
    // The failed run leaves the file of the one before it as it was.
    EXPECT_TRUE(ztx_test::readBytes(target) == std::vector<unsigned char>(expected.begin(), expected.end()));
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(dir.path()), std::filesystem::directory_iterator()), 1)
        << "no temporary is left";
  }
}
