// zt2export against models made to wear its model reader out: a header that
// declares a billion elements in a few bytes, a damaged file the reader loops
// on, skins whose binary records lie. Each ends with exit 2, one message
// naming the model, and nothing written.
#include <gtest/gtest.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <filesystem>

#include "importers/importers.h"
#include "host/inhouse/sanitized.h"
#include "host/memory/memory_host.h"
#include "host/inode.h"
#include "support/physique_view.h"
#include "support/scene_export.h"

using ztx_test::exportArgs;
using ztx_test::TempDir;

namespace fs = std::filesystem;

namespace {

constexpr std::uint64_t kMiB = 1 << 20;

// Nothing of a refused model is left in its directory but the model.
void expectNothingWritten(const TempDir& dir) {
  for (const auto& entry : fs::directory_iterator(dir.path()))
    EXPECT_TRUE(entry.path().extension() == ".off" || entry.path().extension() == ".obj" ||
                entry.path().extension() == ".ply" || entry.path().filename() == "config")
        << entry.path();
}

}  // namespace

// Time: 20 s and 2 s per MiB, at most 30 s for 3DS and 600 s for the rest;
// memory: 1 GiB and 64 bytes per byte of the model, at most the machine's,
// or what --memory-limit says.
TEST(Zt2ExportHostileImport, ReaderBoundsGrowWithTheModel) {
  ::unsetenv("ZT2EXPORT_IMPORT_SECONDS");
  const std::uint64_t machine = std::uint64_t(sysconf(_SC_PHYS_PAGES)) * std::uint64_t(sysconf(_SC_PAGESIZE));
  struct Case {
    std::string head;
    std::uint64_t size;
    std::uint64_t memoryMiB;  // --memory-limit, 0 when not given
    double seconds;
    std::uint64_t memory;
  };
  const Case cases[] = {
      {"v 0 0 0\n", 8, 0, 20, 1024 * kMiB + 64 * 8},
      {"v 0 0 0\n", 10 * kMiB, 0, 40, 1664 * kMiB},
      {std::string("MM\x06\0\0\0", 6), 10 * kMiB, 0, 30, 1664 * kMiB},  // a 3DS main chunk
      {"v 0 0 0\n", 400 * kMiB, 0, 600, std::min(machine, 1024 * kMiB + 64 * 400 * kMiB)},
      {"v 0 0 0\n", 400 * kMiB, 1 << 20, 600, std::uint64_t{1} << 40},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::to_string(c.size) + " bytes, limit " + std::to_string(c.memoryMiB));
    TempDir dir;
    ztx_test::writeText(dir.file("model"), c.head);
    fs::resize_file(dir.file("model"), c.size);  // sparse: nothing is written
    const hostimport::ReaderBounds bounds = hostimport::readerBounds(dir.file("model"), {c.memoryMiB});
    EXPECT_NEAR(bounds.seconds, c.seconds, 1e-3);
    EXPECT_EQ(bounds.memory, c.memory);
  }
}

TEST(Zt2ExportHostileImport, AModelThatAsksForMoreMemoryThanTheLimitIsRefusedAtOnce) {
  TempDir dir;
  // 309 bytes in the corpus drove the reader to 16 GB: a header declaring
  // a billion points has the reader reserve them all.
  const std::string model = dir.file("billion.off");
  ztx_test::writeText(model, "OFF\n1000000000 1 0\n0 0 0\n3 0 0 0\n");
  const auto r = ztx_test::runExport(exportArgs(dir, model, dir.file("out.zt2")));
  EXPECT_EQ(r.exitCode, 2) << r.err;
  EXPECT_NE(r.err.find("zt2export: " + model + ": "), std::string::npos) << r.err;
#if !defined(ZTX_SANITIZED)
  // Under a sanitizer a failed allocation ends the reader outright.
  EXPECT_NE(r.err.find("needs more memory than the limit of 1024 MiB; raise it with --memory-limit"), std::string::npos)
      << r.err;
#endif
  expectNothingWritten(dir);

  // An honest model fits well under a small limit; a limit of nothing is refused.
  ztx_test::writeText(dir.file("triangle.obj"), "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n");
  const auto fits =
      ztx_test::runExport(exportArgs(dir, dir.file("triangle.obj"), dir.file("out.zt2"), {"--memory-limit", "64"}));
  EXPECT_EQ(fits.exitCode, 0) << fits.err;
  const auto bad = ztx_test::runExport(exportArgs(dir, model, dir.file("out.zt2"), {"--memory-limit", "0"}));
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("--memory-limit: expected a whole number of MiB from 1 to 16777216, not \"0\""),
            std::string::npos)
      << bad.err;
}

// ASCII PLY that declares more vertices than it holds has the reader look for
// them for as long as the count says (ten seconds for ten million). The time
// limit (20 s for a small file) is made 1 s here.
TEST(Zt2ExportHostileImport, ADamagedModelTheReaderLoopsOnIsStoppedByTheTimeLimit) {
  TempDir dir;
  const std::string model = dir.file("damaged.ply");
  ztx_test::writeText(model,
                      "ply\nformat ascii 1.0\nelement vertex 30000000\nproperty float32 x\nproperty float32 y\n"
                      "property float32 z\nelement face 1\nproperty list uint8 int32 vertex_index\nend_header\n"
                      "0 0 0\n0 0 1\n");
  const auto r = ztx_test::runExport(exportArgs(dir, model, dir.file("out.zt2")), {"ZT2EXPORT_IMPORT_SECONDS=1"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("zt2export: " + model + ": reading the model took more than 1 s; the file is probably damaged"),
            std::string::npos)
      << r.err;
  expectNothingWritten(dir);
}

// A chain of nodes as deep as the scene loader walks is exported; one level
// more, or thousands, is refused by the reader before it builds anything,
// rather than crashing it or taking seconds and hundreds of MB to be refused
// by the loader.
TEST(Zt2ExportHostileImport, ANodeChainDeeperThanTheLoaderWalksIsRefusedByTheReader) {
  TempDir dir;
  // The first node holds a triangle, so that it is a node of the scene and
  // the chain's depth is the scene's.
  auto chain = [](int depth) {
    std::string nodes;
    for (int i = 0; i < depth; ++i)
      nodes += (i ? "," : "") + std::string(R"({"name": "n)") + std::to_string(i) + "\"" +
               (i == 0 ? R"(, "mesh": 0)" : "") +
               (i + 1 < depth ? R"(, "children": [)" + std::to_string(i + 1) + "]" : "") + "}";
    return R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}], "nodes": [)" + nodes +
           R"(], "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
      "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3",
                     "min": [0, 0, 0], "max": [1, 1, 0]}],
      "bufferViews": [{"buffer": 0, "byteLength": 36}],
      "buffers": [{"byteLength": 36,
                   "uri": "data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}]})";
  };
  const std::pair<int, int> cases[] = {{1000, 0}, {1001, 2}, {10000, 2}};  // depth, exit status
  for (const auto& [depth, exitCode] : cases) {
    SCOPED_TRACE(depth);
    const std::string model = dir.file("chain" + std::to_string(depth) + ".gltf");
    const std::string out = dir.file("chain" + std::to_string(depth) + ".zt2");
    ztx_test::writeText(model, chain(depth));
    const auto r = ztx_test::runExport(exportArgs(dir, model, out));
    EXPECT_EQ(r.exitCode, exitCode) << r.err;
    EXPECT_EQ(fs::exists(out), exitCode == 0);
    if (exitCode != 0) {
      EXPECT_EQ(r.err, "zt2export: " + model + ": the model's nodes nest deeper than 1000 levels\n");
    }
  }
}

// The binary form of a skin, as the model reader hands it over: a table of
// bones and per vertex 0 and a bone (rigid) or k, k bones and k weights.
TEST(Zt2ExportHostileImport, BinarySkinRecordsAreReadOrRefusedWithTheirPlace) {
  const auto words = [](std::vector<std::uint32_t> w) { return w; };
  const std::uint32_t half = std::bit_cast<std::uint32_t>(0.5f), nan = 0x7FC00000;
  struct Case {
    const char* what;
    std::string bones;
    int count;
    std::vector<std::uint32_t> records;
    std::string error;  // empty: loads
  };
  const Case cases[] = {
      {"rigid, blended, bound to none", R"(["A", "B"])", 3, words({0, 1, 2, 0, 1, half, half, 0, 0xFFFFFFFF}), ""},
      {"a bone past the table", R"(["A"])", 1, words({0, 1}), "vertex 0 (from word 0): bone 1 is not in the bone table"},
      {"records cut short", R"(["A"])", 2, words({0, 0, 3, 0}), "vertex 1 (from word 2): 3 bones do not fit"},
      {"a count past the records", R"(["A"])", 2147483647, words({0, 0}),
       "the records hold 2 words, too few for 2147483647 vertices"},
      {"words left over", R"(["A"])", 1, words({0, 0, 0}), "the records hold 3 words; the vertices use 2"},
      {"a weight that is no number", R"(["A"])", 1, words({1, 0, nan}), "vertex 0 (from word 0): weight 0 is not finite"},
      {"a bone listed twice", R"(["A", "A"])", 0, words({}), "the bone \"A\" is listed twice"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const std::string scene = R"({"nodes": [{"name": "A", "object": {"type": "helper"}}, {"name": "B",
        "object": {"type": "helper"}, "modifiers": [{"type": "physique", "vertices": {"bones": )" +
                              c.bones + R"(, "count": )" + std::to_string(c.count) +
                              R"(, "records": {"buffer": "b.bin", "byteOffset": 0, "count": )" +
                              std::to_string(c.records.size()) + "}}}]}]}";
    const std::span<const unsigned char> bytes(reinterpret_cast<const unsigned char*>(c.records.data()),
                                               c.records.size() * 4);
    if (!c.error.empty()) {
      try {
        hostmodel::loadSceneFromString(scene, "", "scene.json", {{"b.bin", bytes}});
        ADD_FAILURE() << "loaded";
      } catch (const std::exception& e) {
        EXPECT_NE(std::string(e.what()).find(c.error), std::string::npos) << e.what();
        EXPECT_NE(std::string(e.what()).find("scene.json: nodes[1].modifiers[0].vertices"), std::string::npos)
            << e.what();
      }
      continue;
    }
    const auto host = hostmodel::loadSceneFromString(scene, "", "scene.json", {{"b.bin", bytes}});
    EXPECT_EQ(ztx_test::physiqueVertices(host->findNode("B"), [](INode* n) { return std::string(n->GetName()); }),
              (std::vector<std::string>{"none", "type 1 rigid B", "type 5 blended A 0.5 B 0.5", "type 1 rigid none",
                                        "none"}));
    EXPECT_EQ(host->outstandingVertexInterfaces(), 0);
  }
}
