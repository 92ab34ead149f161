// zt2dump on damaged input: truncated at every length, corrupted, unknown
// chunks and versions, bad usage. One line on stderr naming the byte offset,
// a non-zero exit, never a crash.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/chunk_writing.h"
#include "support/test_support.h"

namespace {

using nlohmann::json;
using Bytes = std::vector<unsigned char>;

using Point = ztx_test::FilePoint;

void writeObject(T_MemoryFile& f, const std::string& name) {
  ObjectRecord object;
  object.name() = name;
  f << object;
}

// A camera chunk; `values` writes what follows its object.
template <typename Values>
void writeCamera(T_MemoryFile& f, Values values) {
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  values();
  f.closeChunk();
}

Bytes bytesOf(const T_MemoryFile& f) {
  ztx_test::TempDir dir;
  EXPECT_TRUE(f.save(dir.file("f").c_str()).ok());
  return ztx_test::readBytes(dir.file("f"));
}

std::uint32_t getU32(const Bytes& b, std::size_t offset) {
  std::uint32_t v;
  std::memcpy(&v, b.data() + offset, 4);
  return v;
}

Bytes withU32(Bytes b, std::size_t offset, std::uint32_t v) {
  std::memcpy(b.data() + offset, &v, 4);
  return b;
}

// A one-triangle mesh, then a camera.
Bytes sceneFile() {
  T_MemoryFile f;
  f.createChunk(0x10005, 2);
  writeObject(f, "Tri");
  f.createChunk(0x10006, 1);
  writeRawBlock(f, std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}});
  f.write(std::vector<Point>(3, Point{0, 0, 1}).data(), 36);
  f << 1u << 3u;
  f.closeChunk();
  f.createChunk(0x10007, 1);
  writeRawBlock(f, std::vector<std::uint16_t>{0, 1, 2});
  f << 1u << 1u;
  f.closeChunk();
  f.createChunk(0x1000c, 1);
  f << 1 << std::string("Mat");
  f.closeChunk();
  f.closeChunk();
  writeCamera(f, [&] { f << 1.0f << 0.5f << 100.0f; });
  return bytesOf(f);
}

// The mesh alone: a file that every cut leaves incomplete.
Bytes meshFile() {
  const Bytes scene = sceneFile();
  return Bytes(scene.begin(), scene.begin() + 8 + 13 + getU32(scene, 8 + 9));
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
  f << 30 << 30 << 0.001f << 1.0f << 1 << std::string(".") << 1 << 0.001f << 0 << 1 << 0 << 1 << 1 << 1 << 1;
  return bytesOf(f);
}

struct Damaged : ::testing::Test {
  ztx_test::TempDir dir;

  ztx_test::RunResult dump(const Bytes& bytes, const std::string& name, std::vector<std::string> extra = {}) {
    ztx_test::writeBytes(dir.file(name), bytes);
    extra.insert(extra.begin(), dir.file(name));
    return ztx_test::runDump(extra);
  }

  // Exit 1, nothing on stdout, one line on stderr naming the file, a byte
  // offset and the parts of `what` (split at '*') in order.
  void expectOneError(const ztx_test::RunResult& r, const std::string& name, const std::string& what,
                      const std::string& context) {
    EXPECT_EQ(r.exitCode, 1) << context << ": " << r.err;
    EXPECT_EQ(r.out, "") << context;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << context << ": " << r.err;
    EXPECT_EQ(r.err.rfind("zt2dump: " + dir.file(name) + ": ", 0), 0u) << context << ": " << r.err;
    EXPECT_NE(r.err.find("byte offset"), std::string::npos) << context << ": " << r.err;
    std::size_t at = 0;
    for (std::size_t begin = 0, end; begin <= what.size(); begin = end + 1) {
      end = std::min(what.find('*', begin), what.size());
      at = r.err.find(what.substr(begin, end - begin), at);
      ASSERT_NE(at, std::string::npos) << context << ": " << r.err;
    }
  }
};

TEST_F(Damaged, TruncatedAtEveryLength) {
  for (const auto& [full, name] : {std::pair{meshFile(), "mesh.zt2"}, std::pair{skinFile(), "alone.skd"},
                                   std::pair{optionsFile(), "ZTExport.cfg"}}) {
    for (const std::vector<std::string>& mode : {std::vector<std::string>{}, {"--json"}, {"--validate"}}) {
      const std::string context = std::string(name) + (mode.empty() ? "" : " " + mode[0]);
      EXPECT_EQ(dump(full, name, mode).exitCode, 0) << context;
      // The decoder is the same in every mode: --validate, which reads every
      // value, takes every length; the printers every fifth, which keeps a
      // sanitized build of the suite inside its time on a busy machine.
      const std::size_t step = mode.empty() || mode[0] != "--validate" ? 5 : 1;
      for (std::size_t n = 0; n < full.size(); n += step)
        expectOneError(dump(Bytes(full.begin(), full.begin() + static_cast<long>(n)), name, mode), name, "",
                       context + " cut to " + std::to_string(n) + " bytes");
    }
  }
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
        EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << context;
      }
    }
  }
}

TEST_F(Damaged, EachFaultIsNamedWithItsPlace) {
  const Bytes scene = sceneFile();
  const std::size_t vertexAt = 8 + 13 + 13 + getU32(scene, 8 + 13 + 9);  // after the mesh's object
  const std::size_t meshLeft = 8 + 13 + getU32(scene, 8 + 9) - (vertexAt + 13);
  ASSERT_EQ(scene[vertexAt], 0x20);
  T_MemoryFile wrongTag, extra;
  writeCamera(wrongTag, [&] { wrongTag << 1.0f << 2 << 100.0f; });
  writeCamera(extra, [&] { extra << 1.0f << 0.5f << 100.0f << 7; });
  const Bytes wrongTagBytes = bytesOf(wrongTag), extraBytes = bytesOf(extra);
  const std::vector<std::pair<Bytes, std::string>> cases = {
      {wrongTagBytes, "expected a float value, found an int value at byte offset " +
                          std::to_string(wrongTagBytes.size() - 10) + "*reading nearPlane inside CameraChunk"},
      {extraBytes, "5 bytes left over after the last field at byte offset " + std::to_string(extraBytes.size() - 5)},
      {withU32(scene, vertexAt + 9, static_cast<std::uint32_t>(meshLeft + 5)),
       "chunk 0x10006 claims " + std::to_string(meshLeft + 5) + " bytes but its parent has only " +
           std::to_string(meshLeft) + " left at byte offset " + std::to_string(vertexAt) + "*inside MeshChunk"},
      {withU32(scene, vertexAt + 13 + 1, 0xFFFFFFFFu),
       "4294967295 points of a raw block need at least*reading positions inside MeshVertexChunk"},
  };
  for (const auto& [bytes, what] : cases) expectOneError(dump(bytes, "bad.zt2"), "bad.zt2", what, what);
}

TEST_F(Damaged, UnknownChunksAreShownAndSkipped) {
  T_MemoryFile f;
  f.createChunk(0x10008, 3);
  f << 42 << std::string("whatever");
  f.closeChunk();
  f.createChunk(0x10005, 2);
  writeObject(f, "M");
  f.createChunk(0x2abcd, 0);
  f << 1.0f;
  f.closeChunk();
  f.closeChunk();
  // A known chunk of another version is skipped too, but fails validation.
  f.createChunk(0x10001, 1);
  f << 1.0f;
  f.closeChunk();
  const Bytes b = bytesOf(f);
  auto r = dump(b, "unknown.zt2");
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("\nunknown chunk 0x10008 version 3, 18 bytes at offset 8, skipped\nMeshChunk 0x10005"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n  unknown chunk 0x2abcd version 0, 5 bytes at offset"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("version 1 is not known (this tool reads version 0), body skipped"), std::string::npos);
  const json doc = json::parse(dump(b, "unknown.zt2", {"--json"}).out);
  EXPECT_EQ(doc["chunks"][0]["name"], nullptr);
  EXPECT_EQ(doc["chunks"][0]["idHex"], "0x10008");
  EXPECT_EQ(doc["chunks"][0]["decoded"], false);
  EXPECT_EQ(doc["chunks"][1]["children"][1]["idHex"], "0x2abcd");
  // Unknown ids are skippable by design: the first fault is the last chunk's version.
  r = dump(b, "unknown.zt2", {"--validate"});
  EXPECT_EQ(r.exitCode, 1);
  const int cameraAt = 8 + 13 + 18 + 13 + doc["chunks"][1]["length"].get<int>();
  EXPECT_NE(r.err.find("CameraChunk at offset " + std::to_string(cameraAt) + ": version 1 is not known"),
            std::string::npos)
      << r.err;
}

TEST(DumpUsage, ExitCodesForBadUsageAndUnreadableFiles) {
  ztx_test::TempDir dir;
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "no file given"},
      {{"x.zt2", "--frobnicate"}, "unknown option --frobnicate"},
      {{"a.zt2", "b.zt2"}, "usage: zt2dump"},
      {{dir.file("missing.zt2")}, dir.file("missing.zt2") + ": no such file\n"},
      {{dir.path().string()}, "not a regular file"},
  };
  for (const auto& [args, message] : cases) {
    const auto r = ztx_test::runDump(args);
    EXPECT_EQ(r.exitCode, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
  const auto help = ztx_test::runDump({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("--validate"), std::string::npos);
}

}  // namespace
