// zt2dump on ZTExport.cfg: every value under its name, the values each
// version holds, and the checks of --validate.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "format/memory_file.h"
#include "support/test_support.h"

namespace {

using nlohmann::json;

struct OptionsValues {
  int version = 10;
  int flag = 1;
  int sampleRate = 15;
  int frameToFrameInterpolation = 2;
  std::vector<std::string> history = {"maps/", "."};
};

// Writes the options values in file order, as far as `version` holds them.
T_MemoryFile optionsFile(const OptionsValues& v) {
  T_MemoryFile f;
  f << v.version;
  f << v.flag << 0 << 1 << 0 << 1 << 0 << 1 << 0 << 1;  // exportGeometry .. copyTextures
  f << 1;                                                // retired flag
  f << 1 << 0 << 1 << 0 << 1;                            // loop .. rescale
  f << v.sampleRate << 30 << 0.002f << 2.5f;
  f << static_cast<int>(v.history.size());
  for (const auto& p : v.history) f << p;
  if (v.version >= 2) f << 1;
  if (v.version >= 3) f << 0.003f;
  if (v.version >= 4) f << v.frameToFrameInterpolation;
  for (int since = 5; since <= 10; ++since)
    if (v.version >= since) f << since % 2;
  return f;
}

std::string save(const ztx_test::TempDir& dir, const T_MemoryFile& f, const std::string& name) {
  const std::string path = dir.file(name);
  EXPECT_NE(f.save(path.c_str()), 0);
  return path;
}

json dumpJson(const std::string& path) {
  const auto r = ztx_test::runDump({path, "--json"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  return json::parse(r.out);
}

TEST(DumpOptions, Version10HasEveryValueByName) {
  ztx_test::TempDir dir;
  const std::string path = save(dir, optionsFile({}), "ZTExport.cfg");
  const json doc = dumpJson(path);
  EXPECT_EQ(doc["file"], path);
  EXPECT_EQ(doc["kind"], "options");
  EXPECT_EQ(doc["version"], 10);
  EXPECT_FALSE(doc.contains("chunks"));
  const json expected = {
      {"exportGeometry", 1}, {"exportAnimation", 0}, {"exportCameras", 1}, {"exportEnvironment", 0},
      {"exportHelpers", 1}, {"exportLights", 0}, {"exportMaterials", 1}, {"dumpInfo", 0}, {"copyTextures", 1},
      {"retiredFlag", 1}, {"loop", 1}, {"loopInterpolation", 0}, {"removeFloatingVertices", 1},
      {"removeHiddenObjects", 0}, {"rescale", 1}, {"sampleRate", 15}, {"sceneFrameRate", 30},
      {"rotationDelta", static_cast<double>(0.002f)}, {"rescaleFactor", 2.5}, {"texturePathCount", 2},
      {"texturePathHistory", {"maps/", "."}}, {"retainHierarchies", 1},
      {"positionDelta", static_cast<double>(0.003f)}, {"frameToFrameInterpolation", 2},
      {"pivotAsMeshCenter", 1}, {"maintainMatrixScaling", 0}, {"saveReferencesOnce", 1},
      {"decreaseEndFrameByOne", 0}, {"useGlobalAnimationRange", 1}, {"exportSkinning", 0}};
  EXPECT_EQ(doc["fields"], expected);
}

TEST(DumpOptions, OlderVersionsHoldOnlyTheirValues) {
  ztx_test::TempDir dir;
  OptionsValues v;
  v.version = 1;
  json fields = dumpJson(save(dir, optionsFile(v), "v1.cfg"))["fields"];
  EXPECT_EQ(fields.size(), 21u);
  EXPECT_EQ(fields["texturePathHistory"], json({"maps/", "."}));
  EXPECT_FALSE(fields.contains("retainHierarchies"));
  v.version = 4;
  fields = dumpJson(save(dir, optionsFile(v), "v4.cfg"))["fields"];
  EXPECT_EQ(fields["positionDelta"].get<float>(), 0.003f);
  EXPECT_EQ(fields["frameToFrameInterpolation"], 2);
  EXPECT_FALSE(fields.contains("pivotAsMeshCenter"));
  v.version = 9;
  fields = dumpJson(save(dir, optionsFile(v), "v9.cfg"))["fields"];
  EXPECT_TRUE(fields.contains("useGlobalAnimationRange"));
  EXPECT_FALSE(fields.contains("exportSkinning"));
}

TEST(DumpOptions, ContentDecidesTheKindNotTheName) {
  ztx_test::TempDir dir;
  EXPECT_EQ(dumpJson(save(dir, optionsFile({}), "looks-like.zt2"))["kind"], "options");
  T_MemoryFile scene;
  scene.createChunk(0x10015, 0);
  for (int i = 0; i < 8; ++i) scene << static_cast<unsigned char>(i);
  scene.closeChunk();
  EXPECT_EQ(dumpJson(save(dir, scene, "ZTExport.cfg"))["kind"], "scene");
}

TEST(DumpOptions, TextListsVersionAndValues) {
  ztx_test::TempDir dir;
  const auto r = ztx_test::runDump({save(dir, optionsFile({}), "ZTExport.cfg")});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  for (const char* expected : {": options file, ", "\nversion: 10\n", "\n  sampleRate: 15\n",
                               "\n  rotationDelta: 0.002\n", "\n  texturePathHistory: [\"maps/\", \".\"]\n",
                               "\n  exportSkinning: 0\n"})
    EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n" << r.out;
}

TEST(DumpOptions, NewerVersionIsShownButNotDecoded) {
  ztx_test::TempDir dir;
  T_MemoryFile f;
  f << 11 << 1 << 2.0f << std::string("future");
  const std::string path = save(dir, f, "ZTExport.cfg");
  const json doc = dumpJson(path);
  EXPECT_EQ(doc["version"], 11);
  EXPECT_EQ(doc["fields"], json::object());
  const auto r = ztx_test::runDump({path, "--validate"});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("options version 11 is not between 1 and 10"), std::string::npos) << r.err;
}

TEST(DumpOptions, TrailingValueIsAnError) {
  ztx_test::TempDir dir;
  T_MemoryFile f = optionsFile({});
  f << 5;
  const auto r = ztx_test::runDump({save(dir, f, "ZTExport.cfg")});
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_NE(r.err.find("5 bytes left over after the last field at byte offset"), std::string::npos) << r.err;
}

TEST(DumpOptions, ValidateAcceptsAGoodFile) {
  ztx_test::TempDir dir;
  const std::string path = save(dir, optionsFile({}), "ZTExport.cfg");
  const auto r = ztx_test::runDump({path, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "OK\n" + path + ": options file, " + std::to_string(ztx_test::readBytes(path).size()) +
                       " bytes, options version 10, 30 values\n");
}

TEST(DumpOptions, ValidateNamesTheFaultyValue) {
  ztx_test::TempDir dir;
  struct Case {
    OptionsValues values;
    std::string fault;
  };
  std::vector<Case> cases(4);
  cases[0].values.flag = 2;
  cases[0].fault = "options value exportGeometry at byte offset 13 is 2, not 0 or 1";
  cases[1].values.sampleRate = 0;
  cases[1].fault = "sampleRate at byte offset 88 is 0, not a positive frame rate";
  cases[2].values.frameToFrameInterpolation = 3;
  cases[2].fault = "frameToFrameInterpolation at byte offset";
  cases[3].values.history = {"maps/", ""};
  cases[3].fault = "texture path 1 is empty";
  for (const Case& c : cases) {
    const auto r = ztx_test::runDump({save(dir, optionsFile(c.values), "ZTExport.cfg"), "--validate"});
    EXPECT_EQ(r.exitCode, 1) << c.fault;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(c.fault), std::string::npos) << r.err;
  }
}

}  // namespace
