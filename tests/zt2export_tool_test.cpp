// zt2export as a user meets it: the example, saved options carried to the
// next run, refused command lines, scenes and targets, and what it prints
// with and without --quiet.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <tuple>

#include "support/scene_export.h"

using ztx_test::runDump;
using ztx_test::runExport;
using ztx_test::TempDir;

namespace {

const std::string kTwoHelpers =
    R"({"nodes": [{"name": "Parent", "object": {"type": "helper"}, "transform": {"position": [0, 0, 1]},
                   "children": [{"name": "Child", "object": {"type": "helper"}}]}]})";

// Exports dir/`scene` to dir/out.zt2 with nothing asked of skins or materials.
std::vector<std::string> plain(const TempDir& dir, std::vector<std::string> more = {},
                               const std::string& scene = "scene.json") {
  more.insert(more.begin(), {"--set", "exportSkinning=0", "--set", "exportMaterials=0"});
  return ztx_test::exportArgs(dir, dir.file(scene), dir.file("out.zt2"), more);
}

// The lines of `text` that hold "ERROR", in order.
std::string errorLines(const std::string& text) {
  std::istringstream in(text);
  std::string kept;
  for (std::string line; std::getline(in, line);)
    if (line.find("ERROR") != std::string::npos) kept += line + "\n";
  return kept;
}

}  // namespace

// A version 1 file from an old release: what it holds is kept, what it lacks
// takes its default, the file is saved as version 10 and the next run reads it.
TEST(Zt2Export, SavedOptionsAreVersion10AndReadByTheNextRun) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  std::filesystem::create_directories(dir.file("config"));
  std::filesystem::copy_file(ztx_test::sourcePath("tests/data/cfg/version1.cfg"), dir.file("config/ZTExport.cfg"));
  auto r = runExport(plain(dir, {"--set", "sampleRate=15", "--set", "retainHierarchies=0", "--save-options"}));
  ASSERT_EQ(r.exitCode, 0) << r.err;
  const auto cfg = ztx_test::dumpJson(dir.file("config/ZTExport.cfg"));
  EXPECT_EQ(cfg["version"], 10);
  // What a version 1 file lacks takes its default (options_file_test.cpp); what it holds is kept.
  EXPECT_EQ(cfg["fields"]["exportGeometry"], 0);
  EXPECT_EQ(cfg["fields"]["sampleRate"], 15);
  EXPECT_EQ(cfg["fields"]["retainHierarchies"], 0);
  const auto before = ztx_test::readBytes(dir.file("config/ZTExport.cfg"));

  // The second run reads the saved record: hierarchies stay flattened without
  // any --set; without --save-options it leaves the file alone.
  r = runExport(ztx_test::exportArgs(dir, dir.file("scene.json"), dir.file("second.zt2")));
  const auto file = ztx_test::dumpJson(dir.file("second.zt2"));
  EXPECT_EQ(ztx_test::objectFields(ztx_test::findObject(file, "Child"))["hasParent"], false);
  EXPECT_EQ(ztx_test::readBytes(dir.file("config/ZTExport.cfg")), before);
}

// The exit status and the message of each refused run, with neither a scene
// file nor ZTExport.cfg written.
TEST(Zt2Export, RefusedRunsExitWithTheirStatusAndWriteNothing) {
  TempDir dir;
  ztx_test::writeText(dir.file("scene.json"), kTwoHelpers);
  ztx_test::writeText(dir.file("bad.json"), R"({"nodes": [{"name": "A", "transform": {"position": [1, 2]}}]})");
  ztx_test::writeText(dir.file("clash.json"), R"({"nodes": [{"name": "A", "object": {"type": "helper"}},
                                                             {"name": "A", "id": "A2", "object": {"type": "helper"}}]})");
  auto unsaved = plain(dir);
  unsaved[2] = dir.file("no-such-dir/out.zt2");
  ztx_test::writeText(dir.file("a-file"), "");
  auto intoFile = plain(dir);
  intoFile[2] = dir.file("a-file/out.zt2");
  auto modelName = plain(dir);
  modelName[2] = dir.file("out.obj");
  auto sceneAside = plain(dir, {"--write-scene", dir.file("no-such-dir/s.scene.json")});
  // arguments, exit status, what standard error holds (standard output when the status is 1)
  const std::tuple<std::vector<std::string>, int, std::string> cases[] = {
      {{}, 2, ""},
      {{"--frobnicate", "x.json"}, 2, ""},
      {{"a.json", "b.json"}, 2, ""},
      {{"scene.json", "--check", "--save-options"}, 2, "--check writes nothing"},
      {plain(dir, {}, "missing.json"), 2, "missing.json"},
      {plain(dir, {}, "bad.json"), 2, "nodes[0].transform.position"},
      // Every --set is checked before anything runs (each message, options_apply_test.cpp).
      {plain(dir, {"--set", "sampleRate=0", "--save-options"}), 2, "sampleRate must be between 1 and 500"},
      // The output's folder is checked before anything is read or written.
      {unsaved, 2, "cannot write " + unsaved[2] + ": " + dir.file("no-such-dir") + ": No such file or directory"},
      {intoFile, 2, "cannot write " + intoFile[2] + ": " + dir.file("a-file") + ": Not a directory"},
      {sceneAside, 2, ": No such file or directory"},
      {modelName, 2, "-o " + modelName[2] + ": the output is a ZT2 scene file and its name must end in .zt2 (as in -o " +
                         dir.file("out.zt2") + ")"},
      {{"scene.json", "--set", "sampleRate", "15"}, 2,
       "--set sampleRate 15: the field and its value are one word joined by '=': --set sampleRate=15"},
      {{"scene.json", "--missing-textures", "ignore"}, 2, "--missing-textures ignore: expected error or drop"},
      {plain(dir, {}, "clash.json"), 1,
       "Export Info\nERROR: Two objects have a same name: A\nExport process canceled due to error(s) encountered.\n"},
  };
  for (const auto& [args, exitCode, message] : cases) {
    SCOPED_TRACE(message);
    const auto r = runExport(args);
    EXPECT_EQ(r.exitCode, exitCode) << r.err;
    if (exitCode == 1) EXPECT_EQ(r.out, message);
    else EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
    EXPECT_FALSE(std::filesystem::exists(dir.file("config/ZTExport.cfg")));
  }
  const auto help = runExport({"--help"});
  EXPECT_EQ(help.exitCode, 0);
  EXPECT_NE(help.out.find("--save-options"), std::string::npos);
  EXPECT_NE(help.out.find("sampleRate"), std::string::npos);
}

// --quiet prints errors only: of the "Export Info" text its ERROR lines,
// without the heading; no notes, no warnings. It writes the same files and
// ends with the same status as the run without it, whose output stays whole.
TEST(Zt2ExportQuiet, PrintsTheErrorsOfTheRunWithoutIt) {
  TempDir dir;
  ztx_test::writeText(dir.file("helpers.json"),
                      R"({"nodes": [{"name": "Parent", "object": {"type": "helper"},
                                     "children": [{"name": "Child", "object": {"type": "helper"}}]}]})");
  ztx_test::writeText(dir.file("clash.json"), R"({"nodes": [{"name": "A", "object": {"type": "helper"}},
                                                             {"name": "A", "id": "A2", "object": {"type": "helper"}}]})");
  struct Case {
    std::string scene;
    std::vector<std::string> more;
    int exitCode;
    bool info;    // whether the run prints an "Export Info" text
    bool errors;  // whether that text has errors
    bool noted;   // whether the run has a note on standard error
    const char* out = nullptr;  // the whole standard output, where pinned
  };
  ztx_test::exampleIn(dir, "example.json");
  const Case cases[] = {
      // The info text of a clean export (texture copies); materials off with geometry on is noted,
      // since the meshes then carry no faces.
      {"example.json", {"--set", "dumpInfo=1"}, 0, true, false, false},
      {"helpers.json", {"--set", "exportMaterials=0"}, 0, false, false, true},
      // Errors in the scene cancel the export.
      {"clash.json", {}, 1, true, true, false},
      // --check prints the log, "no messages" when clean; the note stands while geometry is on (as above,
      // and the Python package's dry run), not without it.
      {"helpers.json", {"--check", "--set", "exportMaterials=0", "--set", "exportGeometry=0"}, 0, true, false, false,
       "Export Info\nno messages\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.scene + " " + testing::PrintToString(c.more));
    ztx_test::RunResult runs[2];
    for (int quiet = 0; quiet < 2; ++quiet) {
      auto args = ztx_test::exportArgs(dir, dir.file(c.scene), dir.file(quiet ? "quiet.zt2" : "whole.zt2"), c.more);
      args.insert(args.end(), {"--set", "exportSkinning=0"});
      if (quiet) args.push_back("--quiet");
      runs[quiet] = runExport(args);
      EXPECT_EQ(runs[quiet].exitCode, c.exitCode) << runs[quiet].err;
    }
    const auto& [whole, quiet] = runs;
    // Without --quiet every message is there.
    EXPECT_EQ(whole.out.starts_with("Export Info\n"), c.info) << whole.out;
    EXPECT_EQ(!errorLines(whole.out).empty(), c.errors) << whole.out;
    const std::string note = c.noted ? "note: exportMaterials is off, so meshes carry no geometry" : "note: ";
    EXPECT_EQ(whole.err.find(note) != std::string::npos, c.noted) << whole.err;
    if (c.out) {
      EXPECT_EQ(whole.out, c.out);
    }
    // With it, the error lines and nothing else.
    EXPECT_EQ(quiet.out, errorLines(whole.out));
    EXPECT_EQ(quiet.err, errorLines(whole.err));
    EXPECT_EQ(std::filesystem::exists(dir.file("whole.zt2")), std::filesystem::exists(dir.file("quiet.zt2")));
    if (std::filesystem::exists(dir.file("whole.zt2"))) {
      EXPECT_EQ(ztx_test::readBytes(dir.file("whole.zt2")), ztx_test::readBytes(dir.file("quiet.zt2")));
    }
    std::filesystem::remove(dir.file("whole.zt2"));
    std::filesystem::remove(dir.file("quiet.zt2"));
  }
}

// A scene file of more than a few mebibytes goes on into its staged
// temporary as it is written. Written whole, it validates; an export that
// fails after that point leaves the file before it as it was and no
// temporary beside it.
TEST(Zt2Export, LargeFileWrittenOnAsItIsMadeAppearsWholeOrNotAtAll) {
  TempDir dir;
  // A flat grid of 360 x 360 quads, its arrays in a buffer file: about 4.7 MB written, past the 4 MiB
  // an export holds in memory.
  constexpr std::uint32_t n = 360, side = n + 1;
  std::vector<float> points;
  std::vector<std::uint32_t> faces;
  for (std::uint32_t y = 0; y < side; ++y)
    for (std::uint32_t x = 0; x < side; ++x) points.insert(points.end(), {float(x), float(y), 0});
  for (std::uint32_t y = 0; y < n; ++y)
    for (std::uint32_t x = 0; x < n; ++x) {
      const std::uint32_t a = y * side + x;
      faces.insert(faces.end(), {a, a + 1, a + side + 1, a, a + side + 1, a + side});
    }
  {
    std::ofstream bin(dir.file("grid.bin"), std::ios::binary);
    bin.write(reinterpret_cast<const char*>(points.data()), static_cast<std::streamsize>(points.size() * 4));
    bin.write(reinterpret_cast<const char*>(faces.data()), static_cast<std::streamsize>(faces.size() * 4));
  }
  const std::string grid = R"({"name": "Grid", "material": "M",
      "object": {"type": "mesh", "mesh": {
      "vertices": {"buffer": "grid.bin", "byteOffset": 0, "count": )" + std::to_string(side * side) + R"(},
      "faces": {"buffer": "grid.bin", "byteOffset": )" + std::to_string(points.size() * 4) +
                           R"(, "count": )" + std::to_string(faces.size() / 3) + "}}}}";
  // Far away: placed and scaled, it overflows the float, which fails the export after the grid.
  const std::string far = R"({"name": "Far", "material": "M",
      "object": {"type": "mesh", "mesh": {
      "vertices": [3e38, 0, 0, 0, 1, 0, 1, 0, 0], "faces": [0, 1, 2]}}})";
  const std::string materials = R"({"materials": [{"id": "M", "type": "ztMaterial"}], "nodes": [)";
  ztx_test::writeText(dir.file("scene.json"), materials + grid + "]}");
  ztx_test::writeText(dir.file("fails.json"), materials + grid + ", " + far + "]}");
  auto scaled = [&](const char* scene) {
    return ztx_test::exportArgs(dir, dir.file(scene), dir.file("out.zt2"),
                                {"--set", "exportSkinning=0", "--set", "rescale=1", "--set", "rescaleFactor=2"});
  };

  auto r = runExport(scaled("scene.json"));
  ASSERT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_GT(std::filesystem::file_size(dir.file("out.zt2")), std::uintmax_t{4} << 20);
  const auto valid = ztx_test::runDump({"--validate", dir.file("out.zt2")});
  EXPECT_EQ(valid.exitCode, 0) << valid.out << valid.err;

  const auto before = ztx_test::snapshot(dir.path().string());
  r = runExport(scaled("fails.json"));
  EXPECT_EQ(r.exitCode, 1) << r.err << r.out;
  EXPECT_NE(r.out.find("ERROR: Object \"Far\" has vertices beyond the range of a float"), std::string::npos) << r.out;
  EXPECT_TRUE(ztx_test::snapshot(dir.path().string()) == before) << "the file before stays, nothing is left beside it";
}
