// zt2export against input made to hurt it: files in the wrong places, names
// that clash, runs that race. Each case ends with a clear message and an exit
// code, and no file is lost or left half-written.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <thread>
#include <tuple>

#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;

namespace fs = std::filesystem;

namespace {

const std::string kHelper = R"({"nodes": [{"name": "H", "object": {"type": "helper"}}]})";

// Exports dir/scene.json to `output` with nothing asked of skins or materials.
std::vector<std::string> argsFor(const TempDir& dir, const std::string& output, std::vector<std::string> more = {}) {
  std::vector<std::string> args = {dir.file("scene.json"), "-o", output, "--config-dir", dir.file("config"), "--quiet",
                                   "--set", "exportSkinning=0", "--set", "exportMaterials=0"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

}  // namespace

TEST(Zt2ExportHostile, OutputsThatCannotBeWrittenAreRefusedAndKept) {
  struct Case {
    const char* what;
    std::function<std::string(const TempDir&)> output;
    const char* message;
  };
  const Case cases[] = {
      // Under a name that ends in .zt2, as -o requires.
      {"the scene itself", [](const TempDir& d) {
         fs::create_symlink(d.file("scene.json"), d.file("scene.zt2"));
         return d.file("scene.zt2");
       },
       "the output would overwrite the scene it is exported from"},
      {"a FIFO", [](const TempDir& d) { ::mkfifo(d.file("out.zt2").c_str(), 0644); return d.file("out.zt2"); },
       "cannot save: not a regular file"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    ztx_test::writeText(dir.file("scene.json"), kHelper);
    const std::string output = c.output(dir);
    const auto r = runExport(argsFor(dir, output));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find(output + ": "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(ztx_test::readText(dir.file("scene.json")), kHelper);
  }
}

TEST(Zt2ExportHostile, OptionsSaveFailureIsToldButTheExportStands) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kHelper);
  fs::create_directories(dir.file("config/ZTExport.cfg"));  // in the way of the save
  const auto r = runExport(argsFor(dir, dir.file("out.zt2"), {"--save-options"}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("ZTExport.cfg: cannot save: not a regular file"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::exists(dir.file("out.zt2")));
}

// The save itself is tested in FileReplace; this is the options going through it.
TEST(Zt2ExportHostile, SymlinkedConfigurationIsWrittenThrough) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kHelper);
  fs::create_directories(dir.file("config"));
  fs::create_directories(dir.file("dotfiles"));
  fs::create_symlink(dir.file("dotfiles/ZTExport.cfg"), dir.file("config/ZTExport.cfg"));
  const auto r = runExport(argsFor(dir, dir.file("out.zt2"), {"--set", "sampleRate=12", "--save-options"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(dir.file("config/ZTExport.cfg")));
  EXPECT_EQ(ztx_test::dumpJson(dir.file("dotfiles/ZTExport.cfg"))["fields"]["sampleRate"], 12);
}

TEST(Zt2ExportHostile, ConcurrentOptionSavesLeaveOneWholeFile) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kHelper);
  // Two runs with different texture paths give options files of different lengths.
  auto exportMany = [&](const std::string& path, const std::string& output) {
    for (int i = 0; i < 8; ++i) {
      const auto r = runExport(argsFor(dir, dir.file(output), {"--set", "texturePath=" + path, "--save-options"}));
      EXPECT_EQ(r.exitCode, 0) << r.err;
    }
  };
  std::thread a(exportMany, std::string("a"), "a.zt2");
  std::thread b(exportMany, std::string(300, 'b'), "b.zt2");
  a.join();
  b.join();
  const auto v = ztx_test::runDump({"--validate", dir.file("config/ZTExport.cfg")});
  EXPECT_EQ(v.exitCode, 0) << v.out << v.err;
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir.file("config"))) names.push_back(e.path().filename().string());
  EXPECT_EQ(names, std::vector<std::string>{"ZTExport.cfg"});
}

// --check runs the whole export and exits as it would, but writes nothing, not
// even the configuration directory.
TEST(Zt2ExportCheck, RunsEverythingWritesNothingAndPrintsEveryMessage) {
  // scene, exit status, a message printed
  const std::tuple<std::string, int, std::string> cases[] = {
      {ztx_test::readText(ztx_test::sourcePath("examples/example.scene.json")), 0, ""},  // skinned and textured
      {kHelper, 1, "ERROR: Could not find physique modifier for skinning (object \"H\")"},
  };
  for (const auto& [sceneJson, exitCode, printed] : cases) {
    SCOPED_TRACE(printed);
    TempDir dir;
    TempDir scene;
    ztx_test::writeText(scene.file("scene.json"), sceneJson);
    fs::copy(ztx_test::sourcePath("examples/textures"), scene.file("textures"));
    const auto r = runExport({scene.file("scene.json"), "-o", dir.file("out.zt2"), "--config-dir", dir.file("config"),
                              "--quiet", "--check"});
    EXPECT_EQ(r.exitCode, exitCode) << r.err;
    EXPECT_NE(r.out.find(printed), std::string::npos) << r.out;
    EXPECT_TRUE(fs::is_empty(dir.path())) << fs::begin(fs::directory_iterator(dir.path()))->path();
  }
}
