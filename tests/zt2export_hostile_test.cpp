// zt2export against input made to hurt it: files in the wrong places, names
// that clash, runs that race, files that are not files (a FIFO as a model, an
// image or an image list's entry), image lists that are long or change under
// the bitmap manager. Each case ends with a clear message and an exit code,
// and no file is lost or left half-written; a run that could wait on a FIFO
// goes through coreutils' timeout, so that it fails the test instead of
// hanging it. The files hold as a pipeline leans on them: the scene file and
// its .skd commit together, the dependency file never takes the place of
// another file, texture copies never leave the output's folder nor write
// through a link, and two images never share one copy; the cases of those
// count towards the line "hostile: N cases tried, M files lost or mismatched"
// that CI prints.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>
#include <thread>

#include "host/bitmap.h"
#include "host/memory/memory_bitmaps.h"
#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;
using ztx_test::exampleIn;
using ztx_test::exportArgs;
using ztx_test::snapshot;

namespace fs = std::filesystem;

namespace {

const std::string kHelper = R"({"nodes": [{"name": "H", "object": {"type": "helper"}}]})";

// Exports dir/scene.json to `output` with nothing asked of skins, materials or animation.
std::vector<std::string> argsFor(const TempDir& dir, const std::string& output, std::vector<std::string> more = {}) {
  return exportArgs(dir, dir.file("scene.json"), output, ztx_test::plainOptions(more));
}

// The node the .skd belongs to must be a mesh of the scene file beside it.
void expectPair(const std::string& zt2, const std::string& skd) {
  const nlohmann::json skin = ztx_test::dumpJson(skd);
  const std::string node = skin["chunks"][0]["fields"]["nodeNames"][0];
  EXPECT_FALSE(ztx_test::findObject(ztx_test::dumpJson(zt2), node).is_null()) << node << " is not in " << zt2;
}

// Cases tried and files found lost or changed, over the whole executable.
struct HostileCount {
  int cases = 0;
  int lost = 0;
  ~HostileCount() { std::printf("hostile: %d cases tried, %d files lost or mismatched\n", cases, lost); }
};
HostileCount count;

// Compares two snapshots and counts every entry that differs.
void expectKept(const std::map<std::string, std::string>& before, const std::map<std::string, std::string>& after) {
  ++count.cases;
  for (const auto& [name, content] : before) {
    const auto it = after.find(name);
    if (it == after.end() || it->second != content) {
      ++count.lost;
      ADD_FAILURE() << name << " was lost or changed";
    }
  }
  for (const auto& [name, content] : after)
    if (!before.count(name)) {
      ++count.lost;
      ADD_FAILURE() << name << " appeared";
    }
}

// Exports `scene` to dir/out/scene.zt2.
std::vector<std::string> intoOut(const TempDir& dir, const std::string& scene, std::vector<std::string> more = {}) {
  return exportArgs(dir, scene, dir.file("out/scene.zt2"), more);
}

std::size_t occurrences(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// One triangle with a material whose first layer shows the image `map`.
std::string texturedScene(const std::string& map) {
  return R"({
    "texmaps": [{"id": "t", "type": "ztTexture", "name": "Tex", "params": {"mapFileName": ")" + map + R"("}}],
    "materials": [{"id": "m", "type": "ztMaterial", "name": "Mat", "texmaps": ["t"], "params": {"layer1Flag": 1}}],
    "objects": [{"id": "tri", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0], "faces": [0, 1, 2]}}],
    "nodes": [{"name": "A", "object": "tri", "material": "m"}]})";
}

ztx_test::RunResult exportWithin(const std::vector<std::string>& args) {
  std::vector<std::string> all = {"-k", "5", "60", ZTX_ZT2EXPORT};
  all.insert(all.end(), args.begin(), args.end());
  return ztx_test::run(ZTX_TIMEOUT, all);
}

void copyImage(const TempDir& dir, const char* name) {
  fs::copy_file(ztx_test::sourcePath(std::string("examples/textures/") + name), dir.path() / "img" / name);
}

}  // namespace

TEST(Zt2ExportHostile, OptionsSaveFailureIsToldButTheExportStands) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kHelper);
  // Readable, but a save would cut it loose from its other name.
  ASSERT_EQ(runExport(argsFor(dir, dir.file("first.zt2"), {"--save-options"})).exitCode, 0);
  fs::create_hard_link(dir.file("config/ZTExport.cfg"), dir.file("elsewhere.cfg"));
  const auto r = runExport(argsFor(dir, dir.file("out.zt2"), {"--save-options"}));
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.err.find("ZTExport.cfg: cannot save: the file has 2 hard links"), std::string::npos) << r.err;
  EXPECT_TRUE(fs::exists(dir.file("out.zt2")));
}

// Saved options that are not a file are not taken for "no saved options":
// the run says why it cannot read them and writes nothing, nor waits on a
// FIFO. A folder in their place is the Python package's case
// (tests/python/test_ztexport.py).
TEST(Zt2ExportHostile, OptionsThatAreNotAFileAreNotSilentlyReplacedByDefaults) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kHelper);
  fs::create_directories(dir.file("config"));
  ASSERT_EQ(::mkfifo(dir.file("config/ZTExport.cfg").c_str(), 0644), 0);
  const auto r = exportWithin(argsFor(dir, dir.file("out.zt2")));
  EXPECT_EQ(r.exitCode, 2);
  EXPECT_NE(r.err.find(dir.file("config/ZTExport.cfg") + ": not read: it is a FIFO"), std::string::npos) << r.err;
  EXPECT_FALSE(fs::exists(dir.file("out.zt2")));
}

// --check runs the whole export and exits as it would, but writes nothing, not
// even the configuration directory. A clean run's texture copies are left
// unmade too (TexturesHeldInAModelAppearOnlyWithTheExport, and the Python
// package's dry run of the example).
TEST(Zt2ExportCheck, RunsEverythingWritesNothingAndPrintsEveryMessage) {
  TempDir dir, scene;
  ztx_test::writeText(scene.file("scene.json"), kHelper);
  const auto r = runExport(exportArgs(dir, scene.file("scene.json"), dir.file("out.zt2"), {"--check"}));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.out.find("ERROR: Could not find physique modifier for skinning (object \"H\")"), std::string::npos)
      << r.out;
  EXPECT_TRUE(fs::is_empty(dir.path())) << fs::begin(fs::directory_iterator(dir.path()))->path();
}

// No tool writes over a file it reads: the scene or model, the .skd, and what
// --write-scene writes and the export then reads, named directly or through links.
TEST(Zt2ExportHostile, NoToolWritesOverItsOwnInput) {
  TempDir dir;
  fs::copy(ztx_test::sourcePath("examples/crate.3ds"), dir.file("crate.3ds"));
  const auto made = runExport(exportArgs(dir, exampleIn(dir), dir.file("out.zt2")));
  ASSERT_EQ(made.exitCode, 0) << made.err;
  fs::create_symlink("out.skd", dir.file("skin.glb"));
  // Scene files must be named .zt2: a link of that name reaches the buffer
  // --write-scene writes beside its scene (the sharper of its two files).
  fs::create_symlink("m.bin", dir.file("m-bin.zt2"));
  fs::create_hard_link(dir.file("crate.3ds"), dir.file("crate.zt2"));
  fs::create_symlink("crate.3ds", dir.file("crate-link.zt2"));
  struct Case {
    std::string program;
    std::vector<std::string> args;
    std::string message;
  };
  const std::string cfg = dir.file("config"), model = dir.file("crate.3ds");
  const Case cases[] = {
      {ZTX_ZT2EXPORT, {model, "--write-scene", model, "--config-dir", cfg},
       model + ": --write-scene would overwrite the scene it is exported from"},
      {ZTX_ZT2EXPORT, {model, "--write-scene", dir.file("m.json"), "-o", dir.file("m-bin.zt2"), "--config-dir", cfg},
       dir.file("m-bin.zt2") + ": the output would overwrite the buffer of --write-scene"},
      {ZTX_ZT2EXPORT, {model, "-o", dir.file("crate.zt2"), "--config-dir", cfg},
       dir.file("crate.zt2") + ": the output would overwrite the scene it is exported from"},
      {ZTX_ZT2EXPORT, {model, "-o", dir.file("crate-link.zt2"), "--config-dir", cfg},
       dir.file("crate-link.zt2") + ": the output would overwrite the scene it is exported from"},
      {ZTX_ZT2DUMP, {dir.file("out.zt2"), "--gltf", dir.file("out.zt2")},
       dir.file("out.zt2") + ": the output would overwrite " + dir.file("out.zt2") + ", which it is made from"},
      {ZTX_ZT2DUMP, {dir.file("out.zt2"), "--gltf", dir.file("skin.glb")},
       dir.file("skin.glb") + ": the output would overwrite " + dir.file("out.skd") + ", which it is made from"},
#ifdef ZTX_ZT2VIEW
      {ZTX_ZT2VIEW, {dir.file("out.zt2"), "-o", dir.file("skin.glb")},
       dir.file("skin.glb") + ": the page would overwrite " + dir.file("out.skd") + ", which it is made from"},
#endif
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.message);
    const auto before = snapshot(dir.path());
    const auto r = ztx_test::run(c.program, c.args);
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find(c.message), std::string::npos) << r.err;
    EXPECT_EQ(snapshot(dir.path()), before);
  }
}

// An export cancelled by an error in a node after the skinned mesh leaves no
// .skd, no texture copy and no directory made for them.
TEST(Zt2ExportHostile, FailedExportLeavesNothingOfItself) {
  TempDir dir;
  nlohmann::json scene = nlohmann::json::parse(ztx_test::readText(exampleIn(dir)));
  scene["nodes"].push_back(nlohmann::json::parse(R"({"name": "Huge", "material": "skin", "object": {"type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 3e38, 0, 0, 0, 3e38, 0], "faces": [0, 1, 2]}},
      "objectOffset": {"scale": [10, 10, 10]},
      "modifiers": [{"type": "physique", "vertices": ["Bip_Pelvis", "Bip_Pelvis", "Bip_Pelvis"]}]})"));
  ztx_test::writeText(dir.file("scene.json"), scene.dump());
  ztx_test::writeText(dir.file("out.skd"), "the last good run's");
  const auto before = snapshot(dir.path());
  const auto r =
      runExport(exportArgs(dir, dir.file("scene.json"), dir.file("out.zt2"), {"--set", "texturePath=maps"}));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.out.find("ERROR: Object \"Huge\" has vertices beyond the range of a float once placed and scaled"),
            std::string::npos) << r.out;
  EXPECT_NE(r.out.find("INFO: Directory \"" + dir.file("maps") + "\" created for textures."), std::string::npos);
  auto after = snapshot(dir.path());
  for (const char* cfg : {"config", "config/ZTExport.cfg"}) after.erase(cfg);
  EXPECT_EQ(after, before);
}

// Temporaries of a killed run (no live lock on them) go with the next run to
// the same target; a live writer's, names that only look like ours and
// folders without our marker stay, whatever they hold.
TEST(Zt2ExportHostile, KilledRunsTemporariesAreRemovedByTheNextRun) {
  TempDir dir;
  exampleIn(dir);
  const std::vector<std::string> stale = {".out.zt2.AbCdEf123456.ztmp", ".out.skd.xYz789xYz789.ztmp"};
  const std::vector<std::string> kept = {".out.zt2.LiVe99LiVe99.ztmp", ".other.zt2.AbCdEf123456.ztmp",
                                         ".out.zt2.part", ".out.zt2.backup", ".out.zt2.AbC123",
                                         ".ztexport-mydata/notes.txt", ".ztexport-Q1w2E3r4T5y7/notes.txt"};
  for (const std::string& name : stale) ztx_test::writeText(dir.file(name), std::string(1 << 16, 'x'));
  fs::create_directory(dir.file(".ztexport-Q1w2E3r4T5y6"));  // a killed run's staging folder, marked
  ztx_test::writeText(dir.file(".ztexport-Q1w2E3r4T5y6/.ztexport-work-marker"), "");
  ztx_test::writeText(dir.file(".ztexport-Q1w2E3r4T5y6/cloth.png"), "half");
  for (const std::string& name : kept) {
    fs::create_directories(fs::path(dir.file(name)).parent_path());
    ztx_test::writeText(dir.file(name), "kept");
  }
  const int live = ::open(dir.file(".out.zt2.LiVe99LiVe99.ztmp").c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_EQ(::flock(live, LOCK_EX), 0);
  const auto r = runExport(exportArgs(dir, dir.file("scene.json"), dir.file("out.zt2")));
  ::close(live);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  for (const std::string& name : stale) EXPECT_FALSE(fs::exists(dir.file(name))) << name;
  EXPECT_FALSE(fs::exists(dir.file(".ztexport-Q1w2E3r4T5y6")));
  for (const std::string& name : kept) EXPECT_EQ(ztx_test::readText(dir.file(name)), "kept") << name;
  expectPair(dir.file("out.zt2"), dir.file("out.skd"));
  EXPECT_TRUE(fs::exists(dir.file("cloth.png")));
}

// Two exports to the same -o at once leave the .zt2 and the .skd of one of
// them, and their saved options (of different lengths) one whole file.
TEST(Zt2ExportHostile, ConcurrentExportsNeverMixTheirPairs) {
  TempDir dir;
  const std::string a = exampleIn(dir, "a.json"), b = exampleIn(dir, "b.json", "Figure");
  auto exportOnce = [&](const std::string& scene, const std::string& texturePath) {
    const auto r = runExport(exportArgs(dir, scene, dir.file("out.zt2"),
                                        {"--set", "copyTextures=0", "--set", "texturePath=" + texturePath, "--save-options"}));
    EXPECT_EQ(r.exitCode, 0) << r.err;
  };
  for (int round = 0; round < 20; ++round) {
    SCOPED_TRACE(round);
    std::thread first(exportOnce, a, "a"), second(exportOnce, b, std::string(300, 'b'));
    first.join();
    second.join();
    expectPair(dir.file("out.zt2"), dir.file("out.skd"));
  }
  const auto v = ztx_test::runDump({"--validate", dir.file("config/ZTExport.cfg")});
  EXPECT_EQ(v.exitCode, 0) << v.out << v.err;
  EXPECT_EQ(snapshot(dir.file("config")).size(), 1u);
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir.path())) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  EXPECT_EQ(names, (std::vector<std::string>{"a.json", "b.json", "config", "out.skd", "out.zt2", "textures"}));
}

// -o through a link: the link stays, the scene file replaces what it points
// to, and the .skd and the textures go beside that file.
TEST(Zt2ExportHostile, SymlinkedOutputHasItsSkdBesideTheTarget) {
  TempDir dir;
  fs::create_directory(dir.file("real"));
  fs::create_symlink("real/scene.zt2", dir.file("link.zt2"));
  const auto r = runExport(exportArgs(dir, exampleIn(dir), dir.file("link.zt2")));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  EXPECT_TRUE(fs::is_symlink(dir.file("link.zt2")));
  EXPECT_FALSE(fs::exists(dir.file("link.skd")));
  expectPair(dir.file("real/scene.zt2"), dir.file("real/scene.skd"));
  EXPECT_TRUE(fs::exists(dir.file("real/cloth.png")));
}

// A model named without a folder, from its own directory.
TEST(Zt2ExportHostile, ModelNamedWithoutAFolderExports) {
  TempDir dir;
  fs::copy(ztx_test::sourcePath("examples/crate.3ds"), dir.file("crate.3ds"));
  fs::copy(ztx_test::sourcePath("examples/textures"), dir.file("textures"));
  const fs::path was = fs::current_path();
  fs::current_path(dir.path());
  const auto r = runExport({"crate.3ds", "--config-dir", "config"});
  fs::current_path(was);
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(ztx_test::runDump({"--validate", dir.file("crate.zt2")}).exitCode, 0);
  EXPECT_TRUE(fs::exists(dir.file("cloth.png")));
  std::vector<std::string> hidden;
  for (const auto& e : fs::directory_iterator(dir.path()))
    if (e.path().filename().string()[0] == '.') hidden.push_back(e.path().filename().string());
  EXPECT_EQ(hidden, std::vector<std::string>{});
}

// Values near the float's limit: a triangle whose edges overflow gets its
// true normal; transforms that overflow once scaled stop the export with an
// error (positions that do, FailedExportLeavesNothingOfItself). Whatever
// leaves with exit status 0 validates.
TEST(Zt2ExportHostile, HugeValuesNeverLeaveAFileTheValidatorRejects) {
  TempDir dir;
  const auto run = ztx_test::exportSceneIn(dir, R"({
    "materials": [{"id": "red", "type": "ztMaterial", "name": "Red", "params": {"plainLayerMode": 1}}],
    "nodes": [{"name": "M", "material": "red", "object": {"type": "mesh", "mesh": {
      "vertices": [-3.4e38, 0, 0, 3.4e38, 1, 0, 0, 3.4e38, 0], "faces": [0, 1, 2], "smoothingGroups": [1]}}}]})",
                                           {"--set", "exportSkinning=0"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_EQ(ztx_test::runDump({"--validate", dir.file("out.zt2")}).exitCode, 0);
  const auto mesh = ztx_test::findObject(run.file, "M");
  EXPECT_NE(mesh.dump().find("\"normals\":[[0.0,0.0,-1.0]"), std::string::npos) << mesh.dump();

  const auto scaled = ztx_test::exportScene(
      R"({"nodes": [{"name": "H", "object": {"type": "helper"}, "transform": {"position": [3.4e38, 0, 0]}}]})",
      {"--set", "exportSkinning=0", "--set", "rescale=1", "--set", "rescaleFactor=10"});
  EXPECT_EQ(scaled.exitCode, 1) << scaled.out << scaled.err;
  EXPECT_NE(scaled.out.find("ERROR: A transform or parameter of the scene is beyond the range of a float once converted"),
            std::string::npos)
      << scaled.out;
  EXPECT_FALSE(scaled.fileWritten);
}

// A texture held inside a model is written beside the output only when the
// export succeeds; a failed run and a dry run leave the output's directory as
// they found it.
TEST(Zt2ExportHostile, TexturesHeldInAModelAppearOnlyWithTheExport) {
  // One triangle whose material's image, a 1 x 1 PNG, lives inside the file.
  const std::string model = R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0]}],
    "nodes": [{"mesh": 0, "name": "Tri"}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}, "material": 0}]}],
    "materials": [{"name": "Red", "pbrMetallicRoughness": {"baseColorTexture": {"index": 0}}}],
    "textures": [{"source": 0}],
    "images": [{"mimeType": "image/png", "uri": "data:image/png;base64,iVBORw0KGgoAAAANSUhEUgAAAAEAAAABCAYAAAAfFcSJAAAADUlEQVR42mP8z8DwHwAFBQIAX8jx0gAAAABJRU5ErkJggg=="}],
    "buffers": [{"byteLength": 36, "uri": "data:application/octet-stream;base64,AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA"}],
    "bufferViews": [{"buffer": 0, "byteLength": 36}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]}]})";
  struct Case {
    std::vector<std::string> args;
    int exitCode;
    std::vector<std::string> left;  // in the output's directory afterwards
  };
  const Case cases[] = {
      {{}, 0, {"tri.skd", "tri.zt2", "tri_texture0.png"}},
      {{"--set", "copyTextures=0"}, 0, {"tri.skd", "tri.zt2", "tri_texture0.png"}},
      {{"--set", "texturePath=../x"}, 1, {}},
      {{"--check"}, 0, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.args.empty() ? "plain" : c.args.back());
    TempDir dir;
    ztx_test::writeText(dir.file("tri.gltf"), model);
    fs::create_directory(dir.file("out"));
    const auto r = runExport(exportArgs(dir, dir.file("tri.gltf"), dir.file("out/tri.zt2"), c.args));
    EXPECT_EQ(r.exitCode, c.exitCode) << r.out << r.err;
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(dir.file("out"))) left.push_back(e.path().filename().string());
    std::sort(left.begin(), left.end());
    EXPECT_EQ(left, c.left);
  }
}

// The scene file, its .skd and the texture copies are one commit: when
// either file cannot be replaced, neither is, nothing is copied, and the run
// fails with the reason told once.
TEST(Zt2ExportIntegrity, AnOutputThatCannotBeSavedKeepsTheOldPair) {
  // Each file, spoilt one of the two ways a save is refused: a hard link or a folder in its place.
  for (const auto& [spoilt, hardLink] : {std::pair{"out/scene.zt2", true}, {"out/scene.skd", false}}) {
    SCOPED_TRACE(std::string(spoilt) + (hardLink ? " hard-linked" : " a folder"));
    TempDir dir;
    fs::create_directory(dir.file("out"));
    ASSERT_EQ(runExport(intoOut(dir, exampleIn(dir))).exitCode, 0);
    if (hardLink) {
      fs::create_hard_link(dir.file(spoilt), dir.file("kept"));
    } else {
      fs::remove(dir.file(spoilt));
      fs::create_directory(dir.file(spoilt));
    }
    const std::string changed = exampleIn(dir, "changed.json", "Figure");
    const auto before = snapshot(dir.path());
    const auto r = runExport(intoOut(dir, changed, {"--set", "texturePath=maps"}));
    EXPECT_EQ(r.exitCode, 2) << r.err;
    const std::string reason = hardLink ? "the file has 2 hard links" : "not a regular file";
    EXPECT_EQ(occurrences(r.err, dir.file(spoilt) + ": cannot save: " + reason), 1u) << r.err;
    EXPECT_NE(r.err.find("Unable to write to " + dir.file("out/scene.zt2")), std::string::npos) << r.err;
    auto after = snapshot(dir.path()), expected = before;
    for (auto* entries : {&after, &expected}) entries->erase("config/ZTExport.cfg");
    expectKept(expected, after);  // the old pair, no maps/, no temporary
  }
}

// A dependency file named like a file the run reads or writes is refused
// before it replaces it.
TEST(Zt2ExportIntegrity, TheDependencyFileNeverReplacesAnotherFile) {
  const std::pair<const char*, std::function<std::string(const TempDir&)>> cases[] = {
      {"a link to the scene", [](const TempDir& d) {
         fs::create_symlink(d.file("scene.json"), d.file("link.d"));
         return d.file("link.d");
       }},
      {"a hard link to the scene", [](const TempDir& d) {
         fs::create_hard_link(d.file("scene.json"), d.file("hard.d"));
         return d.file("hard.d");
       }},
      {"the output", [](const TempDir& d) { return d.file("out/scene.zt2"); }},
      {"an image", [](const TempDir& d) { return d.file("textures/skin.png"); }},
      {"the saved options", [](const TempDir& d) { return d.file("config/ZTExport.cfg"); }},
  };
  for (const auto& [what, name] : cases) {
    SCOPED_TRACE(what);
    TempDir dir;
    fs::create_directory(dir.file("out"));
    ASSERT_EQ(runExport(intoOut(dir, exampleIn(dir))).exitCode, 0);
    const std::string depfile = name(dir);
    const auto before = snapshot(dir.path());
    const auto r = runExport(intoOut(dir, dir.file("scene.json"), {"--depfile", depfile}));
    EXPECT_EQ(r.exitCode, 2) << r.err;
    EXPECT_NE(r.err.find(depfile), std::string::npos) << r.err;
    EXPECT_NE(r.err.find("would overwrite"), std::string::npos) << r.err;
    expectKept(before, snapshot(dir.path()));
  }
}

// Texture copies stay beneath the output's folder: a texture path that
// climbs out of it, as given, as saved or through a link, is refused unless
// --copy-textures-outside allows it, and nothing is written; a copy replaced
// because its image changed takes the place of a link of its name instead of
// writing into what the link names.
TEST(Zt2ExportIntegrity, TextureCopiesNeverLeaveTheOutputFolderUnlessAllowed) {
  const auto none = [](const TempDir&) {};
  const auto linkOut = [](const TempDir& d) { fs::create_directory_symlink(d.file("elsewhere"), d.file("out/maps")); };
  const char* const climbs = "leads out of the directory of the exported file";
  struct Case {
    std::vector<std::string> more;
    std::function<void(const TempDir&)> plant;
    const char* refusal;  // in the Export Info, when refused
    const char* copiedTo;  // the folder that gets the copies, when not refused
  };
  const Case cases[] = {
      {{"--set", "texturePath=maps/../../x"}, none, climbs, nullptr},
      {{"--set", "texturePath=..\\x"}, none, climbs, nullptr},
      {{"--set", "texturePath=/abs"}, none, nullptr, "out/abs"},
      {{"--set", "texturePath=../x", "--copy-textures-outside"}, none, nullptr, "x"},
      // Saved by a run that was refused, the path is refused again.
      {{}, [](const TempDir& d) {
         EXPECT_EQ(runExport(intoOut(d, d.file("scene.json"), {"--set", "texturePath=../x", "--save-options"}))
                       .exitCode, 1);
       }, climbs, nullptr},
      {{"--set", "texturePath=maps"}, linkOut, "a symbolic link to a place outside the output directory", nullptr},
      {{"--set", "texturePath=deep/maps/sub"}, [](const TempDir& d) {
         fs::create_directory(d.file("out/deep"));
         fs::create_directory_symlink("../../elsewhere", d.file("out/deep/maps"));
       }, "leads out of the output directory", nullptr},
      {{"--replace-textures"}, [](const TempDir& d) { fs::create_symlink(d.file("elsewhere/victim"), d.file("out/skin.png")); },
       nullptr, "out"},
      // Allowed, the link is the user's way to a shared folder.
      {{"--set", "texturePath=maps", "--copy-textures-outside"}, linkOut, nullptr, "elsewhere"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.more));
    TempDir dir;
    fs::create_directory(dir.file("out"));
    fs::create_directory(dir.file("elsewhere"));
    ztx_test::writeText(dir.file("elsewhere/victim"), "the victim");
    const std::string scene = exampleIn(dir);
    c.plant(dir);
    const auto elsewhere = snapshot(dir.file("elsewhere"));
    auto before = snapshot(dir.path());
    const auto r = runExport(intoOut(dir, scene, c.more));
    EXPECT_EQ(r.exitCode, c.refusal ? 1 : 0) << r.out << r.err;
    auto after = snapshot(dir.path());
    for (auto* entries : {&before, &after}) entries->erase("config/ZTExport.cfg"), entries->erase("config");
    if (c.refusal) {
      EXPECT_NE(r.out.find(c.refusal), std::string::npos) << r.out;
      expectKept(before, after);
      continue;
    }
    const std::string copy = dir.file(std::string(c.copiedTo) + "/skin.png");
    EXPECT_FALSE(fs::is_symlink(copy));
    EXPECT_EQ(ztx_test::readText(copy), ztx_test::readText(dir.file("textures/skin.png")));
    if (std::string(c.copiedTo) != "elsewhere") expectKept(elsewhere, snapshot(dir.file("elsewhere")));
  }
}

// Two different images of one name in one export: an error naming both, or,
// named by content, two copies that the scene file names apart.
TEST(Zt2ExportIntegrity, TwoImagesOfOneNameNeverShareACopy) {
  TempDir dir;
  fs::create_directory(dir.file("out"));
  exampleIn(dir);
  fs::create_directory(dir.file("other"));
  fs::copy_file(dir.file("textures/cloth.png"), dir.file("other/skin.png"));
  std::string text = ztx_test::readText(dir.file("scene.json"));
  text.replace(text.find("textures/cloth.png"), 18, "other/skin.png");
  ztx_test::writeText(dir.file("clash.json"), text);

  const auto before = snapshot(dir.path());
  const auto r = runExport(intoOut(dir, dir.file("clash.json")));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  // The default texture path is ".", so the copies go to out/./NAME.
  const std::size_t clash = r.out.find("\" would both be copied to \"" + dir.file("out/./skin.png") + "\"");
  ASSERT_NE(clash, std::string::npos) << r.out;
  const std::string line = r.out.substr(r.out.rfind("ERROR: Textures", clash), clash - r.out.rfind("ERROR: Textures", clash));
  EXPECT_NE(line.find(dir.file("textures/skin.png")), std::string::npos) << line;
  EXPECT_NE(line.find(dir.file("other/skin.png")), std::string::npos) << line;
  // Nothing was copied, and the log does not say otherwise.
  EXPECT_EQ(r.out.find("\" copied to"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("not copied to \"" + dir.file("out/./wave1.png") + "\": the export was canceled"),
            std::string::npos) << r.out;
  auto after = snapshot(dir.path());
  after.erase("config/ZTExport.cfg");
  after.erase("config");
  expectKept(before, after);

  const auto unique = runExport(intoOut(dir, dir.file("clash.json"), {"--texture-names", "unique"}));
  ASSERT_EQ(unique.exitCode, 0) << unique.out << unique.err;
  // Each texture chunk's file name of a skin image, as the dump quotes it.
  const std::string dumped = ztx_test::dumpJson(dir.file("out/scene.zt2")).dump();
  std::vector<std::string> skins;
  for (std::size_t at = dumped.find("\"skin."); at != std::string::npos; at = dumped.find("\"skin.", at + 1))
    skins.push_back(dumped.substr(at + 1, dumped.find('"', at + 1) - at - 1));
  ASSERT_EQ(skins.size(), 2u);
  EXPECT_NE(skins[0], skins[1]);
  for (const std::string& n : skins) {
    EXPECT_EQ(n.size(), std::string("skin.12345678.png").size()) << n;
    EXPECT_TRUE(fs::is_regular_file(dir.file("out/" + n))) << n;
  }
}

// Names are the host's code page in the file (Windows-1252): a scene file's
// UTF-8 name is written so, a character the code page lacks becomes '?', and
// every reader shows the text again.
TEST(Zt2ExportIntegrity, NamesAreWrittenInTheHostsCodePage) {
  TempDir dir;
  const auto run = ztx_test::exportSceneIn(
      dir, R"({"nodes": [{"name": "Café", "object": {"type": "helper"}}, {"name": "日本", "object": {"type": "helper"}}]})",
      ztx_test::plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const std::string bytes = ztx_test::readText(dir.file("out.zt2"));
  EXPECT_NE(bytes.find("Caf\xe9"), std::string::npos);
  EXPECT_EQ(bytes.find("Café"), std::string::npos);
  EXPECT_EQ(ztx_test::objectNames(run.file), (std::vector<std::string>{"Café", "??"}));
}

// A texture path saved with a NUL in it would name another folder to the
// system (the part before the NUL): refused, nothing copied.
TEST(Zt2ExportIntegrity, ATexturePathWithANulIsRefused) {
  TempDir dir;
  fs::create_directory(dir.file("out"));
  const std::string scene = exampleIn(dir);
  ASSERT_EQ(runExport(intoOut(dir, scene, {"--set", "texturePath=mapsXfolder", "--save-options"})).exitCode, 0);
  std::string cfg = ztx_test::readText(dir.file("config/ZTExport.cfg"));
  const std::size_t at = cfg.find("mapsXfolder");
  ASSERT_NE(at, std::string::npos);
  cfg[at + 4] = '\0';
  ztx_test::writeText(dir.file("config/ZTExport.cfg"), cfg);
  fs::remove_all(dir.file("out"));
  fs::create_directory(dir.file("out"));
  const auto r = runExport(intoOut(dir, scene));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.out.find("ERROR: Texture path \"maps\" holds a NUL byte"), std::string::npos) << r.out;
  EXPECT_TRUE(fs::is_empty(dir.file("out")));
}

TEST(Zt2ExportHostileGrowth, AFifoIsRefusedByNameAndNeverWaitedOn) {
  struct Case {
    const char* what;
    std::string scene;  // the scene file's text; none: the model is the FIFO itself
    std::string input;  // what zt2export is given
    int exitCode;
    std::string message;  // on standard error, after the temporary directory
    std::string infoLine;  // the exporter's own line, when the export runs
  };
  const Case cases[] = {
      // Every model, of whatever format, is opened by one check before its reader is chosen.
      {"a model", "", "pipe.3ds", 2, "pipe.3ds: cannot open the file: a FIFO, not a regular file", ""},
      {"a texture", texturedScene("img/pipe.png"), "scene.json", 1,
       "img/pipe.png: cannot read the image: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/pipe.png\""},
      {"an image list's entry", texturedScene("img/list.ifl"), "scene.json", 1,
       "img/pipe.png: cannot read the image: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/list.ifl\""},
      {"an image list", texturedScene("img/pipe.ifl"), "scene.json", 1,
       "img/pipe.ifl: cannot read the image list: a FIFO, not a regular file",
       "ERROR: Couldn't open texture \"img/pipe.ifl\""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    TempDir dir;
    fs::create_directories(dir.path() / "img");
    copyImage(dir, "skin.png");
    ztx_test::writeText(dir.file("img/list.ifl"), "skin.png\npipe.png\nskin.png\n");
    for (const char* fifo : {"pipe.3ds", "img/pipe.png", "img/pipe.ifl"})
      ASSERT_EQ(::mkfifo(dir.file(fifo).c_str(), 0644), 0);
    if (!c.scene.empty()) ztx_test::writeText(dir.file("scene.json"), c.scene);
    const auto r = exportWithin(exportArgs(dir, dir.file(c.input), dir.file("out.zt2"),
                                           {"--set", "exportSkinning=0", "--set", "exportAnimation=0"}));
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    EXPECT_NE(r.err.find("zt2export: " + dir.file(c.message)), std::string::npos) << r.err;
    if (!c.infoLine.empty()) {
      EXPECT_NE(r.out.find(c.infoLine + "\n"), std::string::npos) << r.out;
    }
    EXPECT_FALSE(fs::exists(dir.file("out.zt2")));
  }
}

// The texture's record names every frame's file, repeats included, and each
// file is copied once: the same for a list of 20,000 entries as for three.
TEST(Zt2ExportHostileGrowth, ALongImageListKeepsEveryEntryInOrder) {
  TempDir dir;
  fs::create_directories(dir.path() / "img");
  const char* const images[] = {"wave1.png", "wave2.png", "wave3.png", "skin.png"};
  for (const char* png : images) copyImage(dir, png);
  constexpr int kEntries = 20000;
  std::string list = "; a long sequence\n";
  for (int i = 0; i < kEntries; ++i) list += std::string(images[(i * 7) % 4]) + (i % 3 ? "\n" : "\r\n");
  ztx_test::writeText(dir.file("img/long.ifl"), list);
  const auto run = ztx_test::exportSceneIn(dir, texturedScene("img/long.ifl"),
                                           {"--set", "exportSkinning=0", "--set", "exportAnimation=0"});
  ASSERT_EQ(run.exitCode, 0) << run.err;
  std::vector<std::string> names;
  for (const auto& chunk : ztx_test::topChunks(run.file)) {
    if (chunk.at("name") != "MaterialListChunk") continue;
    for (const auto& name : chunk.at("children").at(0).at("children").at(0).at("fields").at("fileNames"))
      names.push_back(name);
  }
  ASSERT_EQ(names.size(), std::size_t{kEntries});
  for (int i = 0; i < kEntries; ++i) ASSERT_EQ(names[i], images[(i * 7) % 4]) << i;
  int copies = 0;
  for (const std::string& line : ztx_test::infoLines(run)) copies += line.rfind("INFO: Texture \"", 0) == 0;
  EXPECT_EQ(copies, 4);
}

// A list and its images are read once while they stay the same files; a list
// or an image that changes between two loads is read again.
TEST(Zt2ExportHostileGrowth, AChangedListOrImageIsReadAgain) {
  TempDir dir;
  fs::create_directories(dir.path() / "img");
  copyImage(dir, "wave1.png");
  copyImage(dir, "skin.png");
  ztx_test::writeText(dir.file("img/seq.ifl"), "wave1.png\nwave1.png\n");
  hostmodel::MemoryBitmapManager manager(dir.path().string());
  BitmapInfo image("img/seq.ifl");
  ASSERT_EQ(manager.GetImageInfo(&image), BMMRES_SUCCESS);
  EXPECT_EQ(image.NumberFrames(), 2);
  const auto load = [&](int frame) {
    BitmapInfo info(image);
    info.SetCurrentFrame(frame);
    BMMRES status = BMMRES_ERRORTAKENCARE;
    Bitmap* bitmap = manager.Load(&info, &status);
    const std::string name = bitmap ? bitmap->Info().Filename() : "(none)";
    if (bitmap) bitmap->DeleteThis();
    return name;
  };
  EXPECT_EQ(load(0), "wave1.png");
  ztx_test::writeText(dir.file("img/seq.ifl"), "skin.png\nskin.png\nwave1.png\n");  // another length
  EXPECT_EQ(load(1), "skin.png");
  // The image decoded before is now cut short: it fails, with its reason.
  const auto png = ztx_test::readBytes(dir.file("img/skin.png"));
  ztx_test::writeBytes(dir.file("img/skin.png"), {png.begin(), png.begin() + 40});
  EXPECT_EQ(load(1), "(none)");
  EXPECT_EQ(load(2), "wave1.png");
  ASSERT_EQ(manager.problems().size(), 1u);
  EXPECT_EQ(manager.problems()[0].rfind(dir.file("img/skin.png") + ": cannot read the image: it is no image", 0), 0u)
      << manager.problems()[0];
  EXPECT_EQ(manager.outstandingBitmaps(), 0);
}
