// The exporter as a module: zt2export loads ZTExport.dle and reaches the
// exporter through its entry points alone, with the bytes the linked-in
// exporter writes and the module's trace on its own standard error; modules
// it cannot use are refused in one line.
#include <gtest/gtest.h>

#include "host/memory/memory_host.h"
#include "plugin/scene_exporter.h"
#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;

TEST(Module, ExampleSceneThroughTheModuleHasTheLinkedBytes) {
  TempDir dir;
  const std::string scene = ztx_test::sourcePath("examples/example.scene.json");
  const auto r =
      runExport({scene, "-o", dir.file("module.zt2"), "--config-dir", dir.file("a"), "--verbose"});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  // The trace lives in the module; the host's sink receives it.
  EXPECT_NE(r.err.find("Vertex 0 type 1\n"), std::string::npos) << r.err;

  // The same export with the exporter linked into this test.
  auto host = hostmodel::loadScene(scene);
  host->setConfigDir(dir.file("b"));
  std::filesystem::create_directories(dir.file("b"));
  SceneExporter exporter;
  ASSERT_EQ(exporter.DoExport(dir.file("linked.zt2").c_str(), host.get(), true), 1);
  ASSERT_FALSE(exporter.hasError());

  for (const char* kind : {".zt2", ".skd"}) {
    const auto moduleBytes = ztx_test::readBytes(dir.file(std::string("module") + kind));
    EXPECT_FALSE(moduleBytes.empty()) << kind;
    EXPECT_EQ(moduleBytes, ztx_test::readBytes(dir.file(std::string("linked") + kind))) << kind;
  }
}

TEST(Module, VersionNamesTheModulesOwnIdentity) {
  // The project's version before it is checked against CMake's (tests/release/release_test.sh).
  const auto r = runExport({"--version"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(r.out.starts_with("zt2export ")) << r.out;
  EXPECT_TRUE(r.out.ends_with(" (exporter module: ZT Exporter 1.10 [Mar 31 2003])\n")) << r.out;
}

TEST(Module, UnusableModulesAndMissingDisplaysGiveOneLineAndExit2) {
  TempDir dir;
  ztx_test::writeText(dir.file("text.dle"), "not a module\n");
  struct Case {
    std::vector<std::string> args;
    std::vector<std::string> env;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {{"--version", "--module", dir.file("missing.dle")}, {}, "missing.dle: cannot open shared object file"},
      {{"--version", "--module", dir.file("text.dle")}, {}, "text.dle"},
      {{"--version", "--module", ZTX_OTHER_VERSION_MODULE},
       {},
       "is a module of another version (0x13880700; this host takes 0x13EC0800)"},
      {{"scene.json", "--dialog"}, {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"}, "--dialog needs a display"},
      {{"--about"}, {"DISPLAY=:7391", "QT_QPA_PLATFORM"}, "--about needs a display (cannot connect to the display :7391)"},
  };
  for (const Case& c : cases) {
    const auto r = runExport(c.args, c.env);
    EXPECT_EQ(r.exitCode, 2) << c.expected;
    EXPECT_NE(r.err.find(c.expected), std::string::npos) << r.err;
    EXPECT_EQ(std::count(r.err.begin(), r.err.end(), '\n'), 1) << r.err;
    EXPECT_TRUE(r.out.empty()) << r.out;
  }
}

TEST(Module, WithoutItsWindowsLibraryTheDialogRunEndsWith2AndWritesNothing) {
  TempDir dir;
  namespace fs = std::filesystem;
  const fs::path tool(ZTX_ZT2EXPORT);
  fs::copy_file(tool, dir.path() / "zt2export");
  fs::copy_file(tool.parent_path() / "ZTExport.dle", dir.path() / "ZTExport.dle");
  const auto r = ztx_test::run(dir.file("zt2export"),
                               {ztx_test::sourcePath("examples/example.scene.json"), "--dialog", "-o",
                                dir.file("out.zt2"), "--config-dir", dir.file("config")},
                               {"QT_QPA_PLATFORM=offscreen"});
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find("Cannot show the options dialog: "), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(dir.file("out.zt2")));
  EXPECT_FALSE(fs::exists(dir.file("config/ZTExport.cfg")));
}
