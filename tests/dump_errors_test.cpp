// zt2dump on damaged input: truncated at every length, corrupted, unknown
// chunks and versions, bad usage. One line naming the byte offset, a
// non-zero exit, never a crash. The loops run the tool's library in process;
// the tool itself is run for its exit codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <nlohmann/json.hpp>
#include <sstream>

#include "dump/json_printer.h"
#include "dump/text_printer.h"
#include "dump/validate.h"
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

// What zt2dump does with the bytes, in process: the output of `mode` ("",
// "--json" or "--validate"), or the message of the fault that stops it.
struct Dumped {
  std::string out, fault;
};
Dumped dumpBytes(const Bytes& bytes, const std::string& name, const std::string& mode = "") {
  std::ostringstream out;
  try {
    zt2dump::DecodedFile file = zt2dump::decodeBytes(name, bytes);
    ztexport::decodeTexts(file);
    if (mode == "--validate") out << zt2dump::validateFile(file);
    else if (mode == "--json") zt2dump::printJson(out, file);
    else zt2dump::printText(out, file, {});
  } catch (const std::exception& e) {
    return {"", e.what()};
  }
  return {out.str(), ""};
}

// One line naming the file, a byte offset and the parts of `what` (split at '*') in order.
void expectFault(const std::string& fault, const std::string& path, const std::string& what,
                 const std::string& context) {
  EXPECT_EQ(std::count(fault.begin(), fault.end(), '\n'), 0) << context << ": " << fault;
  EXPECT_EQ(fault.rfind(path + ": ", 0), 0u) << context << ": " << fault;
  EXPECT_NE(fault.find("byte offset"), std::string::npos) << context << ": " << fault;
  std::size_t at = 0;
  for (std::size_t begin = 0, end; begin <= what.size(); begin = end + 1) {
    end = std::min(what.find('*', begin), what.size());
    at = fault.find(what.substr(begin, end - begin), at);
    ASSERT_NE(at, std::string::npos) << context << ": " << fault;
  }
}

TEST(Damaged, TruncatedAtEveryLength) {
  for (const auto& [full, name] : {std::pair{meshFile(), "mesh.zt2"}, std::pair{skinFile(), "alone.skd"},
                                   std::pair{optionsFile(), "ZTExport.cfg"}}) {
    for (const std::string mode : {"", "--json", "--validate"}) {
      const std::string context = std::string(name) + " " + mode;
      EXPECT_EQ(dumpBytes(full, name, mode).fault, "") << context;
      for (std::size_t n = 0; n < full.size(); ++n)
        expectFault(dumpBytes(Bytes(full.begin(), full.begin() + static_cast<long>(n)), name, mode).fault, name, "",
                    context + " cut to " + std::to_string(n) + " bytes");
    }
  }
}

TEST(Damaged, AnyFlippedByteDecodesOrGivesOneLine) {
  const Bytes full = meshFile();
  for (std::size_t i = 0; i < full.size(); ++i) {
    for (unsigned char x : {0xFF, 0x01}) {
      Bytes b = full;
      b[i] ^= x;
      const std::string fault = dumpBytes(b, "flip.zt2", "--validate").fault;
      EXPECT_EQ(std::count(fault.begin(), fault.end(), '\n'), 0) << "byte " << i << " ^ " << int(x) << ": " << fault;
    }
  }
}

// Through the tool: exit 1, nothing on stdout, the fault as one line on stderr.
TEST(Damaged, EachFaultIsNamedWithItsPlace) {
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
  ztx_test::TempDir dir;
  for (const auto& [bytes, what] : cases) {
    ztx_test::writeBytes(dir.file("bad.zt2"), bytes);
    const auto r = ztx_test::runDump({dir.file("bad.zt2")});
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_EQ(r.out, "");
    ASSERT_TRUE(r.err.starts_with("zt2dump: ") && r.err.ends_with("\n")) << r.err;
    expectFault(r.err.substr(9, r.err.size() - 10), dir.file("bad.zt2"), what, what);
  }
}

TEST(Damaged, UnknownChunksAreShownAndSkipped) {
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
  const Dumped r = dumpBytes(b, "unknown.zt2");
  ASSERT_EQ(r.fault, "");
  EXPECT_NE(r.out.find("\nunknown chunk 0x10008 version 3, 18 bytes at offset 8, skipped\nMeshChunk 0x10005"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n  unknown chunk 0x2abcd version 0, 5 bytes at offset"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("version 1 is not known (this tool reads version 0), body skipped"), std::string::npos);
  const json doc = json::parse(dumpBytes(b, "unknown.zt2", "--json").out);
  EXPECT_EQ(doc["chunks"][0]["name"], nullptr);
  EXPECT_EQ(doc["chunks"][0]["idHex"], "0x10008");
  EXPECT_EQ(doc["chunks"][0]["decoded"], false);
  EXPECT_EQ(doc["chunks"][1]["children"][1]["idHex"], "0x2abcd");
  // Unknown ids are skippable by design: the first fault is the last chunk's version.
  const std::string fault = dumpBytes(b, "unknown.zt2", "--validate").fault;
  const int cameraAt = 8 + 13 + 18 + 13 + doc["chunks"][1]["length"].get<int>();
  EXPECT_NE(fault.find("CameraChunk at offset " + std::to_string(cameraAt) + ": version 1 is not known"),
            std::string::npos)
      << fault;
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
