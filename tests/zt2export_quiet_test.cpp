// zt2export --quiet prints errors only: of the "Export Info" text its ERROR
// lines, without the heading; no notes, no warnings. It writes the same files
// and ends with the same status as the run without it, whose output stays whole.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "support/scene_export.h"

using ztx_test::runExport;
using ztx_test::TempDir;

namespace {

// The lines of `text` that hold "ERROR", in order.
std::string errorLines(const std::string& text) {
  std::istringstream in(text);
  std::string kept;
  for (std::string line; std::getline(in, line);)
    if (line.find("ERROR") != std::string::npos) kept += line + "\n";
  return kept;
}

}  // namespace

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
  };
  ztx_test::exampleIn(dir, "example.json");
  const Case cases[] = {
      // The info text of a clean export (texture copies), the note on materials switched off.
      {"example.json", {"--set", "dumpInfo=1"}, 0, true, false, false},
      {"helpers.json", {"--set", "exportMaterials=0"}, 0, false, false, true},
      // Errors in the scene cancel the export.
      {"clash.json", {}, 1, true, true, false},
      {"helpers.json", {"--check"}, 0, true, false, false},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.scene + " " + testing::PrintToString(c.more));
    ztx_test::RunResult runs[2];
    for (int quiet = 0; quiet < 2; ++quiet) {
      std::vector<std::string> args = {dir.file(c.scene), "-o", dir.file(quiet ? "quiet.zt2" : "whole.zt2"),
                                       "--config-dir", dir.file("config"), "--set", "exportSkinning=0"};
      args.insert(args.end(), c.more.begin(), c.more.end());
      if (quiet) args.push_back("--quiet");
      runs[quiet] = runExport(args);
      EXPECT_EQ(runs[quiet].exitCode, c.exitCode) << runs[quiet].err;
    }
    const auto& [whole, quiet] = runs;
    // Without --quiet every message is there.
    EXPECT_EQ(whole.out.starts_with("Export Info\n"), c.info) << whole.out;
    EXPECT_EQ(!errorLines(whole.out).empty(), c.errors) << whole.out;
    EXPECT_EQ(whole.err.find("note: ") != std::string::npos, c.noted) << whole.err;
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
