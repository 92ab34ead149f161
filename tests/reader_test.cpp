// The reader library on a whole export of the example: its typed structs
// against the scene description and against zt2dump's own reading, its one
// error type on damaged files, and the semantic diff through zt2dump --diff.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <functional>
#include <nlohmann/json.hpp>

#include "format/code_page.h"
#include "reader/tree/file_decoder.h"
#include "support/scene_export.h"
#include "ztexport/diff.h"
#include "ztexport/reader.h"

namespace {

using ReaderTest = ztx_test::ExportedExample;

TEST_F(ReaderTest, TypedSceneMatchesTheDescriptionAndZt2dump) {
  const ztexport::Scene s = ztexport::readScene(scene_);
  std::vector<std::string> names;
  for (const ztexport::Node* n : s.nodes()) names.push_back(n->name);
  EXPECT_EQ(names, (std::vector<std::string>{"Props", "Lamp", "Character", "CharacterCopy", "Camera01", "Spot01",
                                             "Sun", "Marker"}));
  EXPECT_TRUE(s.findNode("Lamp")->hasParent);
  ASSERT_EQ(s.cameras.size(), 1u);
  EXPECT_FLOAT_EQ(s.cameras[0].fov, static_cast<float>(60 * M_PI / 180));
  EXPECT_EQ(s.cameras[0].farPlane, 500.0f);
  ASSERT_EQ(s.lights.size(), 3u);
  EXPECT_EQ(s.lights[0].type, ztexport::LightType::Omni);
  EXPECT_EQ(s.lights[0].attenuationEnd, 40.0f);
  EXPECT_EQ(s.lights[1].type, ztexport::LightType::Spot);

  // The multi-material body: two groups. The arrays' sizes, Lamp's parent
  // and each group's indices staying inside it are read through this
  // library by the Python package's test (tests/python/test_ztexport.py).
  ASSERT_EQ(s.meshes.size(), 2u);
  const ztexport::Mesh& body = s.meshes[0];
  EXPECT_EQ(body.node.name, "Character");
  ASSERT_EQ(body.normals.size(), body.positions.size());
  const std::vector<ztexport::MeshGroup> groups = body.groups();
  ASSERT_EQ(groups.size(), 2u);
  EXPECT_EQ(groups[0].material, "Skin");
  EXPECT_EQ(groups[1].firstVertex, 8u);
  EXPECT_EQ(groups[1].firstTriangle, 4u);
  EXPECT_EQ(body.mapChannels.size(), 2u);
  EXPECT_EQ(s.meshes[1].referenceName, std::optional<std::string>("Character"));

  // Every typed value the same as zt2dump's own reading of the same bytes.
  const nlohmann::json dump = nlohmann::json::parse(ztx_test::runDump({scene_, "--json"}).out);
  const nlohmann::json* vertex = nullptr;
  for (const nlohmann::json& c : dump["chunks"][4]["children"])
    if (c["name"] == "MeshVertexChunk") vertex = &c;
  ASSERT_NE(vertex, nullptr);
  for (std::size_t i = 0; i < body.positions.size(); ++i) {
    EXPECT_EQ(body.positions[i].x, (*vertex)["fields"]["positions"][i][0].get<float>());
    EXPECT_EQ(body.normals[i].z, (*vertex)["fields"]["normals"][i][2].get<float>());
  }
  ASSERT_EQ(s.transformAnimations.size(), 9u);
  EXPECT_EQ(s.transformAnimations[0].header.name, "Props");
  EXPECT_EQ(s.transformAnimations[0].keys.size(), 29u);

  const ztexport::SkinData skin = ztexport::readSkin(dir_->file("example.skd"));
  EXPECT_EQ(skin.boneNames.size(), 3u);
  ASSERT_EQ(skin.influenceCount.size(), body.positions.size());
  std::int32_t start = 0;
  for (std::size_t v = 0; v < skin.influenceCount.size(); ++v) {
    EXPECT_EQ(skin.influenceStart[v], start);
    start += skin.influenceCount[v];
  }
  EXPECT_EQ(static_cast<std::size_t>(start), skin.influenceWeight.size());

  const ztexport::Options options = ztexport::readOptions(dir_->file("example.zt2.config/ZTExport.cfg"));
  EXPECT_EQ(options.version, 10);
  ASSERT_NE(options.find("rescaleFactor"), nullptr);
  EXPECT_EQ(options.find("rescaleFactor")->floatValue, 1.0f);
  EXPECT_EQ(options.find("exportSkinning")->intValue, 1);
}

// Where the reader says a fault lies: the file, the offset, the chunk path.
TEST_F(ReaderTest, OneErrorTypeNamesFileOffsetAndChunkPath) {
  const std::vector<unsigned char> raw = ztx_test::readBytes(scene_);
  const std::vector<std::uint8_t> bytes(raw.begin(), raw.end());
  const ztexport::DecodedFile tree = ztexport::loadFile(scene_);
  const ztexport::DecodedChunk& vertex = tree.chunks[4].children[1];
  ASSERT_EQ(vertex.name, "MeshVertexChunk");
  const std::size_t countAt = vertex.find("vertexCount")->offset;
  const std::size_t positionsAt = vertex.find("positions")->offset;
  // A vertex count no body could hold, refused before anything is allocated,
  // under a name a host in a Western code page writes: the path shows it as UTF-8.
  std::vector<std::uint8_t> renamed = bytes;
  const std::uint32_t n = 0x7fffffff;
  std::memcpy(renamed.data() + countAt + 1, &n, 4);
  const std::string character = "Character";
  for (auto at = std::search(renamed.begin(), renamed.end(), character.begin(), character.end()); at != renamed.end();
       at = std::search(at, renamed.end(), character.begin(), character.end()))
    at[1] = 0xe9;
  // The header, version 10, then an int cut short.
  const std::vector<std::uint8_t> cfg = {'Z', 'T', 'M', 'F', 1, 0, 0, 0, 3, 10, 0, 0, 0, 3, 1, 0};

  struct Case {
    const char* what;
    std::function<void()> read;
    ztexport::FormatError::Kind kind;
    std::size_t offset;
    std::string chunkPath;
    int systemError = 0;
  };
  // A count too large, a missing file and one of another kind, through the
  // same reader, are the Python package's faults (tests/python/test_ztexport.py).
  const std::vector<Case> cases = {
      {"cut in the options", [&] { ztexport::decodeOptions("ZTExport.cfg", cfg); },
       ztexport::FormatError::Kind::Corrupt, 14, "options > exportGeometry"},
      {"renamed", [&] { ztexport::decodeScene("scene.zt2", renamed); }, ztexport::FormatError::Kind::Corrupt,
       positionsAt, "MeshChunk \"C\xc3\xa9" "aracter\" > MeshVertexChunk > positions"},
      {"a folder", [&] { ztexport::readScene(dir_->path().string()); }, ztexport::FormatError::Kind::Unreadable, 0,
       "", EISDIR},
      // The name stops at the NUL for the system: never the file read.
      {"a NUL in the name", [&] { ztexport::readScene(scene_ + std::string("\0.txt", 5)); },
       ztexport::FormatError::Kind::Unreadable, 0, "", EINVAL},
  };
  for (const Case& c : cases) {
    try {
      c.read();
      ADD_FAILURE() << c.what << ": no error";
    } catch (const ztexport::FormatError& e) {
      EXPECT_EQ(e.kind(), c.kind) << c.what << ": " << e.what();
      EXPECT_EQ(e.offset(), c.offset) << c.what << ": " << e.what();
      EXPECT_EQ(e.chunkPath(), c.chunkPath) << c.what;
      EXPECT_EQ(e.systemError(), c.systemError) << c.what;
      // Up to a NUL, which a message never holds.
      EXPECT_NE(std::string(e.what()).find(e.path().substr(0, e.path().find('\0'))), std::string::npos) << c.what;
      EXPECT_EQ(std::string(e.what()).find('\0'), std::string::npos) << c.what;
    }
  }
}

// Names are Windows-1252: every byte is one character, its five undefined
// bytes the C1 controls of their number, and the text gives the bytes back.
TEST(CodePage, EveryByteIsOneCharacterAndComesBack) {
  std::string all;
  for (int b = 0; b < 256; ++b) all += static_cast<char>(b);
  const std::string text = codePageToUtf8(all);
  std::string back;
  ASSERT_TRUE(codePageFromUtf8(text, back));
  EXPECT_EQ(back, all);
  // The undefined bytes, the euro sign and the Latin-1 half are read by name
  // in tests/python/test_ztexport.py; the last of the 0x80 block, Y with diaeresis, here.
  EXPECT_EQ(codePageToUtf8("\x9f"), "\xc5\xb8");
  // Text the code page cannot hold, and bytes that are not UTF-8.
  for (const char* text : {"\xe6\x97\xa5", "\xc2\x80", "\xc3", "\xe9"}) EXPECT_FALSE(codePageFromUtf8(text, back)) << text;
}

// A scene file with its top-level chunk `from` moved to the place `to`.
std::vector<unsigned char> moveTopLevel(const std::vector<unsigned char>& b, std::size_t from, std::size_t to) {
  std::vector<std::vector<unsigned char>> chunks;
  for (std::size_t at = 8; at < b.size();) {
    std::uint32_t length;
    std::memcpy(&length, b.data() + at + 9, 4);
    chunks.emplace_back(b.begin() + at, b.begin() + at + 13 + length);
    at += 13 + length;
  }
  auto chunk = chunks[from];
  chunks.erase(chunks.begin() + static_cast<std::ptrdiff_t>(from));
  chunks.insert(chunks.begin() + static_cast<std::ptrdiff_t>(to), chunk);
  std::vector<unsigned char> out(b.begin(), b.begin() + 8);
  for (const auto& c : chunks) out.insert(out.end(), c.begin(), c.end());
  return out;
}

TEST_F(ReaderTest, DiffByNodeAndField) {
  const std::string rescaled =
      ztx_test::exportExample(*dir_, "rescaled.zt2", {"--save-options", "--set", "rescale=1", "--set", "rescaleFactor=2"});
  const std::string nudged = ztx_test::exportExample(*dir_, "nudged.zt2",
                                                     {"--save-options", "--set", "rescale=1", "--set", "rescaleFactor=1.0001"});
  const std::string moved = dir_->file("moved.zt2");
  // The camera (6) goes before the mesh "Character" (4).
  ztx_test::writeBytes(moved, moveTopLevel(ztx_test::readBytes(scene_), 6, 4));

  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> lines;  // each must stand in the output
  };
  // Equal bytes answer at once (a file with itself, tests/python/test_ztexport.py), but two
  // equal files that are not ours are still refused.
  const std::string notOurs = dir_->file("a.zt2"), notOursToo = dir_->file("b.zt2");
  for (const std::string& f : {notOurs, notOursToo}) ztx_test::writeText(f, "no chunk file, but long enough to compare");
  const std::vector<Case> cases = {
      {{notOurs, notOursToo}, 2, {}},
      {{scene_, rescaled},
       1,
       {"changed MeshChunk \"Character\" > MeshVertexChunk > positions: 24 of 24 differ, largest difference 4, "
        "first at [0, 1, 2, 3, 4]\n",
        "changed CameraChunk \"Camera01\" > farPlane: 500 -> 1000\n",
        "changed OmniLightChunk \"Lamp\" > ObjectChunk > transform: [[1, 0, 0], [0, 1, 0], [0, 0, 1], [2, 0, -5]] -> "
        "[[1, 0, 0], [0, 1, 0], [0, 0, 1], [4, 0, -10]] (1 of 4 differ, largest difference 5, first at [3])\n"}},
      {{dir_->file("example.zt2.config/ZTExport.cfg"), dir_->file("rescaled.zt2.config/ZTExport.cfg")},
       1,
       {"changed rescale: 0 -> 1\n", "changed rescaleFactor: 1 -> 2\n", "differ: 2 differences\n"}},
      {{scene_, dir_->file("rescaled.skd")}, 1, {"changed kind: \"scene\" -> \"vertexData\"\n"}},
      {{scene_, moved},
       1,
       {"moved CameraChunk \"Camera01\": position 6 -> 4\n", "differ: 1 difference\n"}},
      {{scene_, nudged, "--tolerance", "1e-3"}, 0, {" are equal"}},
      {{scene_, nudged, "--tolerance", "1e-6"}, 1, {"changed MeshChunk \"Character\" > MeshVertexChunk > positions"}},
      {{scene_, dir_->file("absent.zt2")}, 2, {}},
      {{scene_}, 2, {}},
      {{scene_, scene_, "--tolerance", "-1"}, 2, {}},
  };
  for (const Case& c : cases) {
    std::vector<std::string> args = {"--diff"};
    args.insert(args.end(), c.args.begin(), c.args.end());
    const ztx_test::RunResult r = ztx_test::runDump(args);
    EXPECT_EQ(r.exitCode, c.exitCode) << c.args.back() << "\n" << r.out << r.err;
    for (const std::string& line : c.lines) EXPECT_NE(r.out.find(line), std::string::npos) << line << "\n" << r.out;
  }

  // --json for CI: the same differences, values as numbers.
  const ztx_test::RunResult r = ztx_test::runDump({"--diff", "--json", scene_, rescaled});
  const nlohmann::json j = nlohmann::json::parse(r.out);
  EXPECT_FALSE(j["equal"].get<bool>());
  bool seen = false;
  for (const nlohmann::json& d : j["differences"])
    if (d["path"] == "CameraChunk \"Camera01\" > farPlane") {
      EXPECT_EQ(d["old"], 500);
      EXPECT_EQ(d["new"], 1000);
      seen = true;
    }
  EXPECT_TRUE(seen) << r.out;
  EXPECT_EQ(ztexport::diffFiles(scene_, rescaled).differences.size(), j["differences"].size());
}

}  // namespace
