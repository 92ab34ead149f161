// Whole exports of small scenes for the tests: a scene written to a temporary
// directory, exported with zt2export, and the result read back with
// zt2dump --json.
#pragma once

#include <gtest/gtest.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "support/test_support.h"

namespace ztx_test {

struct ExportRun {
  int exitCode = -1;
  std::string out;  // zt2export's standard output (the "Export Info" text)
  std::string err;
  bool fileWritten = false;
  nlohmann::json file;  // zt2dump --json of the written file, when there is one
};

// Exports `sceneJson` with zt2export and the given extra arguments, in a
// fresh directory with its own configuration directory.
ExportRun exportScene(const std::string& sceneJson, const std::vector<std::string>& extraArgs = {});
// The same in `dir`, which the test keeps (images beside the scene, files the
// export leaves): the scene is dir/scene.json, the file dir/`output`.
ExportRun exportSceneIn(const TempDir& dir, const std::string& sceneJson,
                        const std::vector<std::string>& extraArgs = {}, const std::string& output = "out.zt2");

// The example exported as dir/`name`, its options kept in dir/`name`.config,
// with more arguments. Checked on the way: the export succeeds with no
// message but its texture copies, its five images land beside the file, and
// the scene file and the .skd validate. Returns the scene file's path.
std::string exportExample(const TempDir& dir, const std::string& name = "example.zt2",
                          const std::vector<std::string>& more = {});

// The example exported once for a whole suite (exportExample, --save-options):
// the scene file dir_/example.zt2, its .skd and options beside it.
class ExportedExample : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    dir_ = new TempDir;
    scene_ = exportExample(*dir_, "example.zt2", {"--save-options"});
  }
  static void TearDownTestSuite() { delete dir_; }
  static inline TempDir* dir_ = nullptr;
  static inline std::string scene_;
};

// The options that keep a small scene free of skin and material demands.
std::vector<std::string> plainOptions(std::vector<std::string> more = {});

// Reads a file with zt2dump --json; fails the test when zt2dump fails.
nlohmann::json dumpJson(const std::string& path);

// Top-level chunks of a dumped scene file.
const nlohmann::json& topChunks(const nlohmann::json& file);
// The ObjectChunk fields of an object chunk.
nlohmann::json objectFields(const nlohmann::json& chunk);
// The top-level chunk whose ObjectChunk has `name`; null json when none.
nlohmann::json findObject(const nlohmann::json& file, const std::string& name);
// Names of the object chunks, in file order.
std::vector<std::string> objectNames(const nlohmann::json& file);

// Every entry under `root` (links not followed): a file by its bytes, a
// directory or a link by its kind and target. Two equal snapshots mean nothing
// was lost, changed or left behind.
std::map<std::string, std::string> snapshot(const std::string& root);

// The example scene (skinned, textured) written as dir/`file`, its textures
// beside it; `rename` gives its skinned mesh's node another name, so that the
// files of two runs can be told apart. Returns the scene's path.
std::string exampleIn(const TempDir& dir, const std::string& file = "scene.json", const std::string& rename = "");

// The "Export Info" lines zt2export printed.
std::vector<std::string> infoLines(const ExportRun& run);

}  // namespace ztx_test
