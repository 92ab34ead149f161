// zt2view: the page is driven in headless chromium by
// tools/zt2view/web/page_check.mjs (Playwright): it loads without console
// error or network request, lists every exported node, and scrubbing moves
// the animated nodes (the example's and a hand-built one's) and hides the
// example's blinking one; the node table shows every parent, a skinned flag's
// bones among them; a page converts a .zt2 dropped on it. Skipped, with a
// message, only where node is missing.
#include <gtest/gtest.h>

#include <filesystem>

#include <nlohmann/json.hpp>

#include "support/flag_model.h"
#include "support/hand_built_scene.h"
#include "support/scene_export.h"

namespace {

namespace fs = std::filesystem;
using ztx_test::TempDir;

#ifdef ZTX_ZT2VIEW
constexpr bool kViewBuilt = true;
const char* const kZt2view = ZTX_ZT2VIEW;
#else
constexpr bool kViewBuilt = false;
const char* const kZt2view = "";
#endif

// Runs page_check.mjs (node is known to be there).
ztx_test::RunResult checkPage(std::vector<std::string> args) {
  args.insert(args.begin(), {"node", ztx_test::sourcePath("tools/zt2view/web/page_check.mjs")});
  return ztx_test::run("/usr/bin/env", args);
}

// The names of every object chunk of a scene file, read back through zt2dump.
std::string exportedNodeNames(const std::string& zt2) {
  const auto d = ztx_test::runDump({zt2, "--json"});
  EXPECT_EQ(d.exitCode, 0) << d.err;
  std::string names;
  const nlohmann::json file = nlohmann::json::parse(d.out);
  for (const auto& c : file["chunks"])
    for (const auto& child : c["children"])
      if (child["name"] == "ObjectChunk") names += (names.empty() ? "" : ",") + child["fields"]["name"].get<std::string>();
  return names;
}

class PageTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (ztx_test::run("/usr/bin/env", {"node", "--version"}).exitCode != 0)
      GTEST_SKIP() << "node not found: zt2view and its page are not checked";
    ASSERT_TRUE(kViewBuilt) << "node is here but zt2view was not built: run tools/setup.sh, then configure again";
  }
  TempDir dir;
};

TEST_F(PageTest, ExampleLoadsListsEveryNodeAndPlays) {
  ztx_test::exportExample(dir);
  const auto v = ztx_test::run(kZt2view, {dir.file("example.zt2"), "-o", dir.file("example.html")});
  ASSERT_EQ(v.exitCode, 0) << v.err;
  // One file: nothing is fetched from elsewhere when it is opened.
  const std::string page = ztx_test::readText(dir.file("example.html"));
  EXPECT_EQ(page.find("<script src"), std::string::npos);
  EXPECT_EQ(page.find("<link"), std::string::npos);

  const std::string nodes = exportedNodeNames(dir.file("example.zt2"));
  EXPECT_EQ(nodes, "Props,Lamp,Character,CharacterCopy,Camera01,Spot01,Sun,Marker");
  // Character walks from frame 0 to 30; Marker's visibility is 0 at frame
  // 15, half a second at 30 samples per second.
  const auto r = checkPage({dir.file("example.html"), "--nodes", nodes, "--parents", "Lamp=Props", "--animated", "Character", "--hidden",
                            "Marker@0.5", "--mesh-moves", "Character@0.5", "--layout", "--viewport", "800x600", "--camera",
                            "Camera01", "--screenshot", dir.file("shot.png")});
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("\"Character\" moved"), std::string::npos) << r.out;
  // Its skinned mesh goes with it, not only the node's place.
  EXPECT_NE(r.out.find("\"Character\" mesh moved 5.0000 (its node 5.0000)"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"Marker\" scale 1.000,1.000,1.000 at 0 s, 0.000,0.000,0.000 at 0.5 s"), std::string::npos)
      << r.out;
  // At 800 px the panel waits to be opened and the view takes the window; the grid lies under the meshes.
  EXPECT_NE(r.out.find("; view 800 of 800 px"), std::string::npos) << r.out;
  EXPECT_GT(fs::file_size(dir.file("shot.png")), 10000u);
}

TEST_F(PageTest, ScrubbingMovesTheAnimatedNode) {
  ztx_test::writeMaterialsAndAnimation(dir.file("scene.zt2"));
  const auto v = ztx_test::run(kZt2view, {dir.file("scene.zt2")});  // default name: scene.html
  ASSERT_EQ(v.exitCode, 0) << v.err;
  const auto r = checkPage({dir.file("scene.html"), "--nodes", "Root,Box", "--animated", "Box"});
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("\"Box\" moved"), std::string::npos) << r.out;
}

// The flag's bones have keys but no object chunk: each shows under its
// parent, and its cloth's edge moves.
TEST_F(PageTest, SkinnedFlagShowsItsBonesUnderTheirParents) {
  ztx_test::writeFlag(dir.path().string());
  const auto e = ztx_test::runExport({dir.file("flag.md5mesh"), "-o", dir.file("flag.zt2"), "--config-dir",
                                      dir.file("config")});
  ASSERT_EQ(e.exitCode, 0) << e.out << e.err;
  const auto v = ztx_test::run(kZt2view, {dir.file("flag.zt2"), "-o", dir.file("flag.html")});
  ASSERT_EQ(v.exitCode, 0) << v.err;
  const auto r = checkPage({dir.file("flag.html"), "--nodes", "origin,pole,top1,top4,bottom4", "--parents",
                            "pole=origin,top1=pole,top4=top3,bottom1=pole,bottom4=bottom3", "--animated", "top4,bottom4"});
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
}

// The page of a small scene, given a damaged file, shows zt2view's own
// message for it and keeps its scene; then, given the example's files at
// once (a drop), converts them in the page and shows the example as its own
// page does: every node, Character walking with its skinned mesh.
TEST_F(PageTest, DroppedSceneReplacesTheShownOne) {
  ztx_test::writeMaterialsAndAnimation(dir.file("scene.zt2"));
  ASSERT_EQ(ztx_test::run(kZt2view, {dir.file("scene.zt2")}).exitCode, 0);
  if (ztx_test::readText(dir.file("scene.html")).find("<script id=\"converter\"") == std::string::npos)
    GTEST_SKIP() << "zt2view was built without the page's converter (clang for wasm32-wasi missing): not checked";
  ztx_test::exportExample(dir);
  ztx_test::writeText(dir.file("damaged.zt2"), ztx_test::readText(dir.file("example.zt2")).substr(0, 3000));
  const auto refused = ztx_test::run(kZt2view, {dir.file("damaged.zt2"), "-o", dir.file("damaged.html")});
  ASSERT_EQ(refused.exitCode, 1) << refused.err;
  const std::string prefix = "zt2view: " + dir.path().string() + "/";
  ASSERT_EQ(refused.err.rfind(prefix, 0), 0u) << refused.err;
  const std::string message = refused.err.substr(prefix.size(), refused.err.find('\n') - prefix.size());

  std::string files;
  for (const char* f : {"example.zt2", "example.skd", "skin.png", "cloth.png", "wave1.png"})
    files += (files.empty() ? "" : ",") + dir.file(f);
  const std::string nodes = exportedNodeNames(dir.file("example.zt2"));
  const auto r = checkPage({dir.file("scene.html"), "--open", dir.file("damaged.zt2"), "--drop", files, "--nodes", nodes,
                            "--animated", "Character", "--mesh-moves", "Character@0.5"});
  EXPECT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("after --open damaged.zt2: title \"scene.zt2 - zt2view\", message \"" + message + "\""),
            std::string::npos) << r.out;
  // The images found, no warning.
  EXPECT_NE(r.out.find(": title \"example.zt2 - zt2view\", message \"\""), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("\"Character\" mesh moved 5.0000 (its node 5.0000)"), std::string::npos) << r.out;
}

TEST_F(PageTest, BadInputWritesNoPage) {
  ztx_test::writeText(dir.file("not-a-scene.zt2"), "this is text");
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::string message;
  };
  for (const Case& c : {Case{{}, 2, "no file given"},
                        Case{{dir.file("missing.zt2"), "-o", dir.file("a.html")}, 2, "missing.zt2"},
                        Case{{dir.file("not-a-scene.zt2"), "-o", dir.file("b.html")}, 1, "not-a-scene.zt2"}}) {
    const auto v = ztx_test::run(kZt2view, c.args);
    EXPECT_EQ(v.exitCode, c.exitCode) << v.err;
    EXPECT_NE(v.err.find(c.message), std::string::npos) << v.err;
  }
  EXPECT_FALSE(fs::exists(dir.file("a.html")));
  EXPECT_FALSE(fs::exists(dir.file("b.html")));
}

}  // namespace
