// zt2export's files as a pipeline leans on them: the scene file and its .skd
// commit together, the dependency file never takes the place of another file,
// texture copies never leave the output's folder nor write through a link,
// and two images never share one copy. Each case counts towards the line
// "hostile: N cases tried, M files lost or mismatched" that CI prints.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>

#include "support/scene_export.h"

using ztx_test::exampleIn;
using ztx_test::runExport;
using ztx_test::snapshot;
using ztx_test::TempDir;

namespace fs = std::filesystem;

namespace {

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

std::vector<std::string> exportArgs(const TempDir& dir, const std::string& scene, std::vector<std::string> more = {}) {
  std::vector<std::string> args = {scene, "-o", dir.file("out/scene.zt2"), "--config-dir", dir.file("config")};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

std::size_t occurrences(const std::string& text, const std::string& what) {
  std::size_t n = 0;
  for (std::size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + 1)) ++n;
  return n;
}

// The texture file names of every texture chunk of a dumped scene file.
std::vector<std::string> textureFileNames(const nlohmann::json& node) {
  std::vector<std::string> names;
  if (node.is_object()) {
    if (node.contains("fileNames"))
      for (const auto& n : node["fileNames"]) names.push_back(n);
    for (const auto& [key, value] : node.items())
      for (const std::string& n : textureFileNames(value)) names.push_back(n);
  } else if (node.is_array()) {
    for (const auto& value : node)
      for (const std::string& n : textureFileNames(value)) names.push_back(n);
  }
  return names;
}

}  // namespace

// The scene file, its .skd and the texture copies are one commit: when
// either file cannot be replaced, neither is, nothing is copied, and the run
// fails with the reason told once.
TEST(Zt2ExportIntegrity, AnOutputThatCannotBeSavedKeepsTheOldPair) {
  for (const char* spoilt : {"out/scene.zt2", "out/scene.skd"}) {
    for (const bool hardLink : {true, false}) {
      SCOPED_TRACE(std::string(spoilt) + (hardLink ? " hard-linked" : " a folder"));
      TempDir dir;
      fs::create_directory(dir.file("out"));
      ASSERT_EQ(runExport(exportArgs(dir, exampleIn(dir))).exitCode, 0);
      if (hardLink) {
        fs::create_hard_link(dir.file(spoilt), dir.file("kept"));
      } else {
        fs::remove(dir.file(spoilt));
        fs::create_directory(dir.file(spoilt));
      }
      const std::string changed = exampleIn(dir, "changed.json", "Figure");
      const auto before = snapshot(dir.path());
      const auto r = runExport(exportArgs(dir, changed, {"--set", "texturePath=maps"}));
      EXPECT_EQ(r.exitCode, 2) << r.err;
      const std::string reason = hardLink ? "the file has 2 hard links" : "not a regular file";
      EXPECT_EQ(occurrences(r.err, dir.file(spoilt) + ": cannot save: " + reason), 1u) << r.err;
      EXPECT_NE(r.err.find("Unable to write to " + dir.file("out/scene.zt2")), std::string::npos) << r.err;
      auto after = snapshot(dir.path()), expected = before;
      for (auto* entries : {&after, &expected}) entries->erase("config/ZTExport.cfg");
      expectKept(expected, after);  // the old pair, no maps/, no temporary
    }
  }
}

// A dependency file named like a file the run reads or writes is refused
// before it replaces it.
TEST(Zt2ExportIntegrity, TheDependencyFileNeverReplacesAnotherFile) {
  const std::pair<const char*, std::function<std::string(const TempDir&)>> cases[] = {
      {"the scene", [](const TempDir& d) { return d.file("scene.json"); }},
      {"a link to the scene", [](const TempDir& d) {
         fs::create_symlink(d.file("scene.json"), d.file("link.d"));
         return d.file("link.d");
       }},
      {"a hard link to the scene", [](const TempDir& d) {
         fs::create_hard_link(d.file("scene.json"), d.file("hard.d"));
         return d.file("hard.d");
       }},
      {"the output", [](const TempDir& d) { return d.file("out/scene.zt2"); }},
      {"the .skd", [](const TempDir& d) { return d.file("out/scene.skd"); }},
      {"an image", [](const TempDir& d) { return d.file("textures/skin.png"); }},
      {"an image list", [](const TempDir& d) { return d.file("textures/wave.ifl"); }},
      {"the saved options", [](const TempDir& d) { return d.file("config/ZTExport.cfg"); }},
  };
  for (const auto& [what, name] : cases) {
    SCOPED_TRACE(what);
    TempDir dir;
    fs::create_directory(dir.file("out"));
    ASSERT_EQ(runExport(exportArgs(dir, exampleIn(dir))).exitCode, 0);
    const std::string depfile = name(dir);
    const auto before = snapshot(dir.path());
    const auto r = runExport(exportArgs(dir, dir.file("scene.json"), {"--depfile", depfile}));
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
      {{"--set", "texturePath=../x"}, none, climbs, nullptr},
      {{"--set", "texturePath=maps/../../x"}, none, climbs, nullptr},
      {{"--set", "texturePath=..\\x"}, none, climbs, nullptr},
      {{"--set", "texturePath=./m"}, none, nullptr, "out/m"},
      {{"--set", "texturePath=/abs"}, none, nullptr, "out/abs"},
      {{"--set", "texturePath=../x", "--copy-textures-outside"}, none, nullptr, "x"},
      // Saved by a run that was refused, the path is refused again.
      {{}, [](const TempDir& d) {
         EXPECT_EQ(runExport(exportArgs(d, d.file("scene.json"), {"--set", "texturePath=../x", "--save-options"}))
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
    const auto r = runExport(exportArgs(dir, scene, c.more));
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
  const auto r = runExport(exportArgs(dir, dir.file("clash.json")));
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

  const auto unique = runExport(exportArgs(dir, dir.file("clash.json"), {"--texture-names", "unique"}));
  ASSERT_EQ(unique.exitCode, 0) << unique.out << unique.err;
  std::vector<std::string> names = textureFileNames(ztx_test::dumpJson(dir.file("out/scene.zt2")));
  std::vector<std::string> skins;
  for (const std::string& n : names)
    if (n.starts_with("skin.")) skins.push_back(n);
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
  ASSERT_EQ(runExport(exportArgs(dir, scene, {"--set", "texturePath=mapsXfolder", "--save-options"})).exitCode, 0);
  std::string cfg = ztx_test::readText(dir.file("config/ZTExport.cfg"));
  const std::size_t at = cfg.find("mapsXfolder");
  ASSERT_NE(at, std::string::npos);
  cfg[at + 4] = '\0';
  ztx_test::writeText(dir.file("config/ZTExport.cfg"), cfg);
  fs::remove_all(dir.file("out"));
  fs::create_directory(dir.file("out"));
  const auto r = runExport(exportArgs(dir, scene));
  EXPECT_EQ(r.exitCode, 1) << r.err;
  EXPECT_NE(r.out.find("ERROR: Texture path \"maps\" holds a NUL byte"), std::string::npos) << r.out;
  EXPECT_TRUE(fs::is_empty(dir.file("out")));
}
