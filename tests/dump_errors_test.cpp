// zt2dump on damaged input: truncated at every length, corrupted, padded,
// unknown chunks and versions, bad usage. One line on stderr naming the byte
// offset, a non-zero exit, never a crash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/test_support.h"

namespace {

using nlohmann::json;
using Bytes = std::vector<unsigned char>;

struct Point {
  float x, y, z;
};

void writeObject(T_MemoryFile& f, const std::string& name) {
  ObjectRecord r;
  r.name() = name;
  f << r;
}

void writeMesh(T_MemoryFile& f) {
  f.createChunk(0x10005, 2);
  writeObject(f, "Tri");
  f.createChunk(0x10006, 1);
  const std::vector<Point> points = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
  writeRawBlock(f, points);
  const std::vector<Point> normals(3, Point{0, 0, 1});
  f.write(normals.data(), 36);
  f << 1u << 3u;
  f.closeChunk();
  f.createChunk(0x10007, 1);
  writeRawBlock(f, std::vector<std::uint16_t>{0, 1, 2});
  f << 1u << 1u;
  f.closeChunk();
  f.createChunk(0x1000c, 1);
  f << 1 << std::string("Mat");
  f.closeChunk();
  f.createChunk(0x1000e, 1);
  f << 0u;
  writeRawBlock(f, points);
  f << 1u << 3u;
  f.closeChunk();
  f.closeChunk();
}

void writeCamera(T_MemoryFile& f) {
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  f << 1.0f << 0.5f << 100.0f;
  f.closeChunk();
}

Bytes bytesOf(const T_MemoryFile& f) {
  ztx_test::TempDir dir;
  const std::string path = dir.file("f.bin");
  EXPECT_NE(f.save(path.c_str()), 0);
  return ztx_test::readBytes(path);
}

Bytes meshFile() {
  T_MemoryFile f;
  writeMesh(f);
  return bytesOf(f);
}

Bytes skinFile() {
  T_MemoryFile f;
  f.createChunk(0x10014, 1);
  f << std::vector<std::string>{"Tri"} << std::vector<std::string>{"Bone"} << std::vector<int>{0, 1, 2}
    << std::vector<int>{1, 1, 1} << std::vector<int>{0, 0, 0} << std::vector<float>{1, 1, 1}
    << std::vector<unsigned int>{3} << std::vector<unsigned int>{0};
  f.closeChunk();
  return bytesOf(f);
}

Bytes optionsFile() {
  T_MemoryFile f;
  f << 10;
  for (int i = 0; i < 15; ++i) f << 1;
  f << 30 << 30 << 0.001f << 1.0f << 1 << std::string(".");
  f << 1 << 0.001f << 0 << 1 << 0 << 1 << 1 << 1 << 1;
  return bytesOf(f);
}

std::size_t lineCount(const std::string& s) { return static_cast<std::size_t>(std::count(s.begin(), s.end(), '\n')); }

// Patches a little-endian u32 at `offset`.
void putU32(Bytes& b, std::size_t offset, std::uint32_t v) { std::memcpy(b.data() + offset, &v, 4); }

struct Damaged : ::testing::Test {
  ztx_test::TempDir dir;

  ztx_test::RunResult dump(const Bytes& bytes, const std::string& name, std::vector<std::string> extra = {}) {
    const std::string path = dir.file(name);
    ztx_test::writeBytes(path, bytes);
    extra.insert(extra.begin(), path);
    return ztx_test::runDump(extra);
  }

  // Exit 1, nothing on stdout, one line on stderr naming the file and an offset.
  void expectOneError(const ztx_test::RunResult& r, const std::string& name, const std::string& context) {
    EXPECT_EQ(r.exitCode, 1) << context << ": " << r.err;
    EXPECT_EQ(r.out, "") << context;
    EXPECT_EQ(lineCount(r.err), 1u) << context << ": " << r.err;
    EXPECT_EQ(r.err.rfind("zt2dump: " + dir.file(name) + ": ", 0), 0u) << context << ": " << r.err;
    EXPECT_NE(r.err.find("byte offset"), std::string::npos) << context << ": " << r.err;
  }

  void truncateAtEveryLength(const Bytes& full, const std::string& name) {
    for (std::size_t n = 0; n < full.size(); ++n) {
      const Bytes cut(full.begin(), full.begin() + static_cast<long>(n));
      const std::string context = name + " cut to " + std::to_string(n) + " bytes";
      expectOneError(dump(cut, name), name, context);
      expectOneError(dump(cut, name, {"--json"}), name, context + " (--json)");
    }
    EXPECT_EQ(dump(full, name).exitCode, 0);
  }
};

TEST_F(Damaged, SceneTruncatedAtEveryLength) { truncateAtEveryLength(meshFile(), "mesh.zt2"); }
TEST_F(Damaged, SkinTruncatedAtEveryLength) { truncateAtEveryLength(skinFile(), "mesh.skd"); }
TEST_F(Damaged, OptionsTruncatedAtEveryLength) { truncateAtEveryLength(optionsFile(), "ZTExport.cfg"); }

TEST_F(Damaged, TruncatedFileWithValidateIsAnErrorToo) {
  const Bytes full = meshFile();
  for (std::size_t n : {std::size_t{5}, std::size_t{30}, full.size() - 1}) {
    const Bytes cut(full.begin(), full.begin() + static_cast<long>(n));
    expectOneError(dump(cut, "v.zt2", {"--validate"}), "v.zt2", "cut to " + std::to_string(n));
  }
}

TEST_F(Damaged, TruncationMessageNamesWhatWasBeingRead) {
  const Bytes full = meshFile();
  const Bytes cut(full.begin(), full.begin() + 40);
  const auto r = dump(cut, "cut.zt2");
  EXPECT_NE(r.err.find("chunk 0x10005 claims"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("at byte offset 8"), std::string::npos) << r.err;
}

TEST_F(Damaged, NeverCrashesOnAnyFlippedByte) {
  const Bytes full = meshFile();
  for (std::size_t i = 0; i < full.size(); ++i) {
    for (unsigned char x : {0xFF, 0x01}) {
      Bytes b = full;
      b[i] ^= x;
      const auto r = dump(b, "flip.zt2", {"--validate"});
      const std::string context = "byte " + std::to_string(i) + " ^ " + std::to_string(x) + ": " + r.err;
      ASSERT_TRUE(r.exitCode == 0 || r.exitCode == 1) << context;
      if (r.exitCode == 1) {
        EXPECT_EQ(lineCount(r.err), 1u) << context;
      }
    }
  }
}

TEST_F(Damaged, WrongTypeTagNamesBothTypesAndTheChunk) {
  T_MemoryFile f;
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  f << 1.0f << 2 << 100.0f;  // nearPlane written as an int
  f.closeChunk();
  const Bytes b = bytesOf(f);
  const auto r = dump(b, "tag.zt2");
  expectOneError(r, "tag.zt2", "wrong tag");
  const std::size_t nearAt = b.size() - 10;
  EXPECT_NE(r.err.find("expected a float value, found a int value at byte offset " + std::to_string(nearAt)),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("reading nearPlane inside CameraChunk at offset 8"), std::string::npos) << r.err;
}

TEST_F(Damaged, FieldsShortOfTheBodyAreLeftOverBytes) {
  T_MemoryFile f;
  f.createChunk(0x10016, 0);
  writeObject(f, "Helper");
  f << std::string("Dummy") << 7;  // one int more than the layout
  f.closeChunk();
  const Bytes b = bytesOf(f);
  const auto r = dump(b, "extra.zt2");
  expectOneError(r, "extra.zt2", "extra bytes");
  EXPECT_NE(r.err.find("5 bytes left over after the last field at byte offset " + std::to_string(b.size() - 5)),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("inside HelperChunk at offset 8"), std::string::npos) << r.err;
}

TEST_F(Damaged, FieldsPastTheBodyAreAnErrorEvenWhenTheFileGoesOn) {
  T_MemoryFile f;
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  f << 1.0f << 0.5f;  // farPlane missing
  f.closeChunk();
  writeCamera(f);
  const Bytes b = bytesOf(f);
  const auto r = dump(b, "short.zt2");
  expectOneError(r, "short.zt2", "missing field");
  EXPECT_NE(r.err.find("unexpected end of chunk body while reading a float"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("reading farPlane inside CameraChunk at offset 8"), std::string::npos) << r.err;
}

TEST_F(Damaged, NestedChunkLongerThanItsParent) {
  T_MemoryFile f;
  writeMesh(f);
  writeCamera(f);
  Bytes b = bytesOf(f);
  std::uint32_t meshLength, objectLength;
  std::memcpy(&meshLength, b.data() + 8 + 9, 4);
  std::memcpy(&objectLength, b.data() + 8 + 13 + 9, 4);
  const std::size_t vertexAt = 8 + 13 + 13 + objectLength;
  ASSERT_EQ(b[vertexAt], 0x20);
  // Still inside the file (the camera follows), but past the mesh's end.
  const std::size_t meshEnd = 8 + 13 + meshLength;
  putU32(b, vertexAt + 9, static_cast<std::uint32_t>(meshEnd - (vertexAt + 13) + 5));
  auto r = dump(b, "nest.zt2");
  expectOneError(r, "nest.zt2", "long nested chunk");
  EXPECT_NE(r.err.find("chunk 0x10006 claims " + std::to_string(meshEnd - (vertexAt + 13) + 5) +
                       " bytes but its parent has only " + std::to_string(meshEnd - (vertexAt + 13)) +
                       " left at byte offset " + std::to_string(vertexAt)),
            std::string::npos)
      << r.err;
  EXPECT_NE(r.err.find("inside MeshChunk at offset 8)"), std::string::npos) << r.err;
  // Past the end of the file altogether.
  putU32(b, vertexAt + 9, 100000);
  r = dump(b, "nest.zt2");
  expectOneError(r, "nest.zt2", "very long nested chunk");
  EXPECT_NE(r.err.find("chunk 0x10006 claims 100000 bytes but only"), std::string::npos) << r.err;
}

TEST_F(Damaged, HugeCountsFailWithoutAllocating) {
  Bytes b = meshFile();
  std::uint32_t objectLength;
  std::memcpy(&objectLength, b.data() + 8 + 13 + 9, 4);
  const std::size_t vertexCountAt = 8 + 13 + 13 + objectLength + 13;
  ASSERT_EQ(b[vertexCountAt], 0x04);
  putU32(b, vertexCountAt + 1, 0xFFFFFFFFu);
  const auto r = dump(b, "huge.zt2");
  expectOneError(r, "huge.zt2", "huge count");
  EXPECT_NE(r.err.find("4294967295 points of a raw block need at least"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find("reading positions inside MeshVertexChunk at offset"), std::string::npos) << r.err;
  EXPECT_NE(r.err.find(", in MeshChunk at offset 8)"), std::string::npos) << r.err;
}

TEST_F(Damaged, BoolThatIsNeitherZeroNorOne) {
  Bytes b = meshFile();
  // hasParent is the only bool of the object chunk.
  std::uint32_t objectLength;
  std::memcpy(&objectLength, b.data() + 8 + 13 + 9, 4);
  const std::size_t boolAt = 8 + 13 + 13 + (5 + 3) + 5 + 49;
  ASSERT_EQ(b[boolAt], 0x01);
  b[boolAt + 1] = 7;
  const auto r = dump(b, "bool.zt2");
  expectOneError(r, "bool.zt2", "bool 7");
  EXPECT_NE(r.err.find("bool value 7 is neither 0 nor 1"), std::string::npos) << r.err;
}

TEST_F(Damaged, BadHeaderAndEncoding) {
  Bytes b = meshFile();
  b[0] = 'X';
  auto r = dump(b, "bad.zt2");
  expectOneError(r, "bad.zt2", "magic");
  EXPECT_NE(r.err.find("not a ZT chunk file"), std::string::npos) << r.err;
  b = meshFile();
  b[4] = 2;
  r = dump(b, "bad.zt2");
  expectOneError(r, "bad.zt2", "encoding");
  EXPECT_NE(r.err.find("unsupported file encoding 2 at byte offset 4"), std::string::npos) << r.err;
}

TEST_F(Damaged, UnknownFirstValue) {
  T_MemoryFile f;
  f << 1.5f;
  const auto r = dump(bytesOf(f), "odd.zt2");
  expectOneError(r, "odd.zt2", "float first");
  EXPECT_NE(r.err.find("first value has type tag 0x05"), std::string::npos) << r.err;
}

TEST_F(Damaged, UnknownChunksAreShownAndSkipped) {
  T_MemoryFile f;
  f.createChunk(0x10008, 3);
  f << 42 << std::string("whatever");
  f.closeChunk();
  writeCamera(f);
  f.createChunk(0x10005, 2);
  writeObject(f, "M");
  f.createChunk(0x2abcd, 0);
  f << 1.0f;
  f.closeChunk();
  f.closeChunk();
  const Bytes b = bytesOf(f);
  auto r = dump(b, "unknown.zt2");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\nunknown chunk 0x10008 version 3, 18 bytes at offset 8, skipped\nCameraChunk 0x10001"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n  unknown chunk 0x2abcd version 0, 5 bytes at offset"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("  farPlane: 100\n"), std::string::npos) << r.out;

  r = dump(b, "unknown.zt2", {"--json"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const json doc = json::parse(r.out);
  const json& unknown = doc["chunks"][0];
  EXPECT_EQ(unknown["name"], nullptr);
  EXPECT_EQ(unknown["idHex"], "0x10008");
  EXPECT_EQ(unknown["length"], 18);
  EXPECT_EQ(unknown["decoded"], false);
  EXPECT_EQ(unknown["fields"], json::object());
  EXPECT_EQ(doc["chunks"][1]["fields"]["farPlane"], 100.0);
  EXPECT_EQ(doc["chunks"][2]["children"][1]["idHex"], "0x2abcd");

  // Unknown ids are skippable by design, so they do not fail validation.
  r = dump(b, "unknown.zt2", {"--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("1 unknown (skipped)"), std::string::npos) << r.out;
}

TEST_F(Damaged, KnownChunkOfAnotherVersionIsSkippedAndFailsValidation) {
  T_MemoryFile f;
  f.createChunk(0x10001, 1);
  f << 1.0f;
  f.closeChunk();
  const Bytes b = bytesOf(f);
  auto r = dump(b, "v1.zt2");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("CameraChunk 0x10001 version 1, 5 bytes at offset 8: version 1 is not known (this tool "
                       "reads version 0), body skipped"),
            std::string::npos)
      << r.out;
  r = dump(b, "v1.zt2", {"--validate"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("CameraChunk at offset 8: version 1 is not known"), std::string::npos) << r.err;
}

TEST_F(Damaged, BareHeaderIsACutOffFile) {
  const Bytes full = meshFile();
  const Bytes header(full.begin(), full.begin() + 8);
  expectOneError(dump(header, "empty.zt2"), "empty.zt2", "header only");
}

TEST(DumpUsage, ExitCodesForBadUsageAndUnreadableFiles) {
  ztx_test::TempDir dir;
  auto r = ztx_test::runDump({});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("no file given"), std::string::npos);
  EXPECT_NE(r.err.find("usage: zt2dump"), std::string::npos);
  r = ztx_test::runDump({"x.zt2", "--frobnicate"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("unknown option --frobnicate"), std::string::npos);
  r = ztx_test::runDump({"a.zt2", "b.zt2"});
  EXPECT_EQ(r.exitCode, 2);
  r = ztx_test::runDump({dir.file("missing.zt2")});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_EQ(r.err, "zt2dump: " + dir.file("missing.zt2") + ": no such file\n");
  r = ztx_test::runDump({dir.path().string()});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("not a regular file"), std::string::npos);
  r = ztx_test::runDump({"--help"});
  EXPECT_EQ(r.exitCode, 0);
  EXPECT_NE(r.out.find("--validate"), std::string::npos);
  EXPECT_EQ(r.err, "");
}

}  // namespace
