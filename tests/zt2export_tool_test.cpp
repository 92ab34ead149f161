// zt2export as a user meets it: the example, saved options, bad command lines
// and bad scenes.
#include <gtest/gtest.h>

#include <filesystem>

#include "support/scene_export.h"

using ztx_test::runDump;
using ztx_test::runExport;
using ztx_test::TempDir;

namespace {

const std::string kTwoHelpers =
    R"({"nodes": [{"name": "Parent", "object": {"type": "helper"}, "transform": {"position": [0, 0, 1]},
                   "children": [{"name": "Child", "object": {"type": "helper"}}]}]})";

std::vector<std::string> plain(const TempDir& dir, std::vector<std::string> more = {}) {
  std::vector<std::string> args = {dir.file("scene.json"), "-o", dir.file("out.zt2"), "--config-dir",
                                   dir.file("config"), "--quiet", "--set", "exportSkinning=0", "--set",
                                   "exportMaterials=0"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

}  // namespace

TEST(Zt2Export, ExampleSceneExportsCleanlyAndReadsBack) {
  TempDir dir;
  const auto r = runExport({ztx_test::sourcePath("examples/example.scene.json"), "-o", dir.file("example.zt2"),
                            "--config-dir", dir.file("config"), "--quiet"});
  ASSERT_EQ(r.exitCode, 0) << r.err << r.out;
  // The only messages are the texture copies: five images beside the file.
  EXPECT_EQ(r.out.find("ERROR"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("WARNING"), std::string::npos) << r.out;
  for (const char* image : {"skin.png", "cloth.png", "wave1.png", "wave2.png", "wave3.png"})
    EXPECT_TRUE(std::filesystem::exists(dir.file(image))) << image;
  const auto file = ztx_test::dumpJson(dir.file("example.zt2"));
  EXPECT_EQ(file["kind"], "scene");
  EXPECT_FALSE(ztx_test::objectNames(file).empty());
  EXPECT_TRUE(std::filesystem::exists(dir.file("example.skd")));
  for (const char* f : {"example.zt2", "example.skd"}) {
    const auto v = runDump({"--validate", dir.file(f)});
    EXPECT_EQ(v.exitCode, 0) << f << ": " << v.out << v.err;
  }
}

TEST(Zt2Export, SavedOptionsAreVersion10AndReadByTheNextRun) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  auto r = runExport(plain(dir, {"--set", "sampleRate=15", "--set", "retainHierarchies=0", "--save-options"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto cfg = ztx_test::dumpJson(dir.file("config/ZTExport.cfg"));
  EXPECT_EQ(cfg["kind"], "options");
  EXPECT_EQ(cfg["version"], 10);
  EXPECT_EQ(cfg["fields"]["sampleRate"], 15);
  EXPECT_EQ(cfg["fields"]["retainHierarchies"], 0);
  // Without --save-options a run leaves the file alone.
  const auto before = ztx_test::readBytes(dir.file("config/ZTExport.cfg"));

  // The second run reads the saved record: hierarchies stay flattened without any --set.
  r = runExport({dir.file("scene.json"), "-o", dir.file("second.zt2"), "--config-dir", dir.file("config"), "--quiet"});
  const auto file = ztx_test::dumpJson(dir.file("second.zt2"));
  EXPECT_EQ(ztx_test::objectFields(ztx_test::findObject(file, "Child"))["hasParent"], false);
  EXPECT_EQ(ztx_test::readBytes(dir.file("config/ZTExport.cfg")), before);
}

TEST(Zt2Export, Version1FileKeepsTheLaterDefaults) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  std::filesystem::create_directories(dir.file("config"));
  std::filesystem::copy_file(ztx_test::sourcePath("tests/data/cfg/version1.cfg"), dir.file("config/ZTExport.cfg"));
  const auto r = runExport(plain(dir, {"--save-options"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto cfg = ztx_test::dumpJson(dir.file("config/ZTExport.cfg"));
  EXPECT_EQ(cfg["version"], 10);
  EXPECT_EQ(cfg["fields"]["retainHierarchies"], 1);  // absent from version 1: its default
  EXPECT_FLOAT_EQ(cfg["fields"]["positionDelta"].get<float>(), 0.001f);
}

TEST(Zt2Export, BadSetIsRefusedBeforeAnythingRuns) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  for (const auto& [set, expected] : std::vector<std::pair<std::string, std::string>>{
           {"sampleRate=0", "sampleRate must be between 1 and 500"},
           {"sampelRate=15", "did you mean 'sampleRate'"},
           {"rescaleFactor=abc", "rescaleFactor"},
           {"rescaleFactor=101", "rescaleFactor"},
       }) {
    const auto r = runExport(plain(dir, {"--set", set, "--save-options"}));
    EXPECT_EQ(r.exitCode, 2) << set;
    EXPECT_NE(r.err.find(expected), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2"))) << set;
    EXPECT_FALSE(std::filesystem::exists(dir.file("config/ZTExport.cfg"))) << set;
  }
}

TEST(Zt2Export, BadCommandLinesAndScenesExitWith2) {
  TempDir dir;
  EXPECT_EQ(runExport({}).exitCode, 2);
  EXPECT_EQ(runExport({"--frobnicate", "x.json"}).exitCode, 2);
  EXPECT_EQ(runExport({"a.json", "b.json"}).exitCode, 2);
  EXPECT_EQ(runExport({"a.json", "--set", "novalue"}).exitCode, 2);

  const auto missing = runExport({dir.file("missing.json"), "--config-dir", dir.file("c")});
  EXPECT_EQ(missing.exitCode, 2);
  EXPECT_NE(missing.err.find("missing.json"), std::string::npos) << missing.err;

  ztx_test::writeText(dir.file("bad.json"), R"({"nodes": [{"name": "A", "transform": {"position": [1, 2]}}]})");
  const auto bad = runExport({dir.file("bad.json"), "--config-dir", dir.file("c"), "-o", dir.file("bad.zt2")});
  EXPECT_EQ(bad.exitCode, 2);
  EXPECT_NE(bad.err.find("nodes[0].transform.position"), std::string::npos) << bad.err;
  EXPECT_FALSE(std::filesystem::exists(dir.file("bad.zt2")));

  const auto help = runExport({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("--save-options"), std::string::npos);
  EXPECT_NE(help.out.find("sampleRate"), std::string::npos);
}

TEST(Zt2Export, SceneErrorsExitWith1AndPrintTheExportInfo) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"),
                      R"({"nodes": [{"name": "A", "object": {"type": "helper"}}, {"name": "A", "id": "A2", "object": {"type": "helper"}}]})");
  const auto r = runExport(plain(dir));
  EXPECT_EQ(r.exitCode, 1);
  EXPECT_EQ(r.out, "Export Info\nERROR: Two objects have a same name: A\n"
                   "Export process canceled due to error(s) encountered.\n");
  EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
}

TEST(Zt2Export, SaveFailureExitsWith2) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  auto args = plain(dir);
  args[2] = dir.file("no-such-dir/out.zt2");
  const auto r = runExport(args);
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("Unable to write to"), std::string::npos) << r.err;
}

TEST(Zt2Dump, TruncatedFileGivesOneClearError) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  ASSERT_EQ(runExport(plain(dir)).exitCode, 0);
  auto bytes = ztx_test::readBytes(dir.file("out.zt2"));
  bytes.resize(bytes.size() - 7);
  ztx_test::writeBytes(dir.file("cut.zt2"), bytes);
  const auto r = runDump({dir.file("cut.zt2")});
  EXPECT_NE(r.exitCode, 0);
  EXPECT_NE(r.err.find("byte offset"), std::string::npos) << r.err;
}
