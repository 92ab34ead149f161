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
  int retired = 1;
  std::vector<std::string> history = {"maps/", "."};
};

// Writes the options values in file order, as far as `version` holds them.
std::string optionsFile(const ztx_test::TempDir& dir, const OptionsValues& v) {
  T_MemoryFile f;
  f << v.version;
  f << v.flag << 0 << 1 << 0 << 1 << 0 << 1 << 0 << 1;  // exportGeometry .. copyTextures
  f << v.retired;
  f << 1 << 0 << 1 << 0 << 1;                           // loop .. rescale
  f << v.sampleRate << 30 << 0.125f << 2.5f << static_cast<int>(v.history.size());
  for (const auto& p : v.history) f << p;
  if (v.version >= 2) f << 1;
  if (v.version >= 3) f << 0.0625f;
  if (v.version >= 4) f << v.frameToFrameInterpolation;
  for (int since = 5; since <= 10; ++since)
    if (v.version >= since) f << since % 2;
  const std::string path = dir.file("v" + std::to_string(v.version) + ".cfg");
  EXPECT_TRUE(f.save(path.c_str()).ok());
  return path;
}

json dumpFields(const std::string& path) {
  const auto r = ztx_test::runDump({path, "--json"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  const json doc = json::parse(r.out);
  EXPECT_EQ(doc["kind"], "options");
  return doc["fields"];
}

TEST(DumpOptions, EachVersionHoldsItsValuesByName) {
  ztx_test::TempDir dir;
  const json all = dumpFields(optionsFile(dir, {}));
  EXPECT_EQ(all, json::parse(R"({"exportGeometry":1,"exportAnimation":0,"exportCameras":1,"exportEnvironment":0,
              "exportHelpers":1,"exportLights":0,"exportMaterials":1,"dumpInfo":0,"copyTextures":1,"retiredFlag":1,
              "loop":1,"loopInterpolation":0,"removeFloatingVertices":1,"removeHiddenObjects":0,"rescale":1,
              "sampleRate":15,"sceneFrameRate":30,"rotationDelta":0.125,"rescaleFactor":2.5,"texturePathCount":2,
              "texturePathHistory":["maps/","."],"retainHierarchies":1,"positionDelta":0.0625,
              "frameToFrameInterpolation":2,"pivotAsMeshCenter":1,"maintainMatrixScaling":0,
              "saveReferencesOnce":1,"decreaseEndFrameByOne":0,"useGlobalAnimationRange":1,"exportSkinning":0})"));
  // An older version holds the first of these values, under the same names.
  for (const auto& [version, size] : {std::pair{1, 21u}, {4, 24u}, {9, 29u}}) {
    const json fields = dumpFields(optionsFile(dir, {.version = version}));
    EXPECT_EQ(fields.size(), size) << version;
    for (const auto& [key, value] : fields.items()) EXPECT_EQ(value, all.value(key, json())) << version << " " << key;
  }
}

TEST(DumpOptions, ValidateAcceptsAGoodFileAndNamesTheFaultyValue) {
  ztx_test::TempDir dir;
  const std::string good = optionsFile(dir, {});
  auto r = ztx_test::runDump({good, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "OK\n" + good + ": options file, " + std::to_string(ztx_test::readBytes(good).size()) +
                       " bytes, options version 10, 30 values\n");
  const std::vector<std::pair<OptionsValues, std::string>> cases = {
      {{.flag = 2}, "options value exportGeometry at byte offset 13 is 2, not 0 or 1"},
      {{.sampleRate = 0}, "sampleRate at byte offset 88 is 0, not a positive frame rate"},
      {{.history = {"maps/", ""}}, "texture path 1 is empty"},
      {{.version = 11}, "options version 11 is not between 1 and 10"},
  };
  // What the reader takes as it stands is no fault: the retired flag it
  // ignores, an interpolation method the export then treats as none.
  for (const OptionsValues& values : {OptionsValues{.frameToFrameInterpolation = 3}, OptionsValues{.retired = 5}})
    EXPECT_EQ(ztx_test::runDump({optionsFile(dir, values), "--validate"}).exitCode, 0);
  for (const auto& [values, fault] : cases) {
    r = ztx_test::runDump({optionsFile(dir, values), "--validate"});
    EXPECT_EQ(r.exitCode, 1) << fault;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(fault), std::string::npos) << r.err;
  }
}

}  // namespace
