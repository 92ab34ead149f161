#include "support/scene_export.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

namespace ztx_test {

ExportRun exportScene(const std::string& sceneJson, const std::vector<std::string>& extraArgs) {
  TempDir dir;
  return exportSceneIn(dir, sceneJson, extraArgs);
}

ExportRun exportSceneIn(const TempDir& dir, const std::string& sceneJson, const std::vector<std::string>& extraArgs,
                        const std::string& outputName) {
  const std::string scene = dir.file("scene.json");
  writeText(scene, sceneJson);
  const std::string output = dir.file(outputName);
  const RunResult r = runExport(exportArgs(dir, scene, output, extraArgs));
  ExportRun run;
  run.exitCode = r.exitCode;
  run.out = r.out;
  run.err = r.err;
  run.fileWritten = std::filesystem::exists(output);
  if (run.fileWritten) {
    run.file = dumpJson(output);
    // Every file an export writes must hold what a reader relies on.
    for (const std::string& written : {output, dir.file("out.skd")}) {
      if (!std::filesystem::exists(written)) continue;
      const RunResult v = runDump({"--validate", written});
      EXPECT_EQ(v.exitCode, 0) << written << ": " << v.out << v.err;
    }
  }
  return run;
}

std::string exportExample(const TempDir& dir, const std::string& name, const std::vector<std::string>& more) {
  std::vector<std::string> args = {sourcePath("examples/example.scene.json"), "-o", dir.file(name), "--config-dir",
                                   dir.file(name + ".config")};
  args.insert(args.end(), more.begin(), more.end());
  const RunResult r = runExport(args);
  EXPECT_EQ(r.exitCode, 0) << r.err << r.out;
  EXPECT_EQ(r.out.find("ERROR"), std::string::npos) << r.out;
  EXPECT_EQ(r.out.find("WARNING"), std::string::npos) << r.out;
  for (const char* image : {"skin.png", "cloth.png", "wave1.png", "wave2.png", "wave3.png"})
    EXPECT_TRUE(std::filesystem::exists(dir.file(image))) << image;
  for (const std::string& written : {name, name.substr(0, name.rfind('.')) + ".skd"}) {
    const RunResult v = runDump({"--validate", dir.file(written)});
    EXPECT_EQ(v.exitCode, 0) << written << ": " << v.out << v.err;
  }
  return dir.file(name);
}

std::vector<std::string> plainOptions(std::vector<std::string> more) {
  std::vector<std::string> args = {"--set", "exportSkinning=0", "--set", "exportMaterials=0",
                                   "--set", "exportAnimation=0"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

nlohmann::json dumpJson(const std::string& path) {
  const RunResult r = runDump({"--json", path});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  try {
    return nlohmann::json::parse(r.out);
  } catch (const std::exception& e) {
    ADD_FAILURE() << "zt2dump --json is not JSON: " << e.what();
    return {};
  }
}

const nlohmann::json& topChunks(const nlohmann::json& file) { return file.at("chunks"); }

nlohmann::json objectFields(const nlohmann::json& chunk) {
  for (const auto& child : chunk.at("children"))
    if (child.at("name") == "ObjectChunk") return child.at("fields");
  return {};
}

nlohmann::json findObject(const nlohmann::json& file, const std::string& name) {
  for (const auto& chunk : topChunks(file)) {
    const auto& fields = objectFields(chunk);
    if (!fields.is_null() && fields.at("name") == name) return chunk;
  }
  return {};
}

std::vector<std::string> objectNames(const nlohmann::json& file) {
  std::vector<std::string> names;
  for (const auto& chunk : topChunks(file)) {
    const auto& fields = objectFields(chunk);
    if (!fields.is_null()) names.push_back(fields.at("name"));
  }
  return names;
}

std::vector<std::string> infoLines(const ExportRun& run) {
  std::vector<std::string> lines;
  std::istringstream in(run.out);
  std::string line;
  while (std::getline(in, line))
    if (line != "Export Info") lines.push_back(line);
  return lines;
}

std::map<std::string, std::string> snapshot(const std::string& root) {
  namespace fs = std::filesystem;
  std::map<std::string, std::string> entries;
  for (auto it = fs::recursive_directory_iterator(root); it != fs::recursive_directory_iterator(); ++it) {
    const std::string name = fs::relative(it->path(), root).string();
    if (it->is_symlink()) entries[name] = "link to " + fs::read_symlink(it->path()).string();
    else if (it->is_directory()) entries[name] = "directory";
    else entries[name] = readText(it->path().string());
  }
  return entries;
}

std::string exampleIn(const TempDir& dir, const std::string& file, const std::string& rename) {
  namespace fs = std::filesystem;
  std::string text = readText(sourcePath("examples/example.scene.json"));
  if (!rename.empty())
    for (std::size_t at; (at = text.find("\"Character\"")) != std::string::npos;) text.replace(at, 11, '"' + rename + '"');
  writeText(dir.file(file), text);
  if (!fs::exists(dir.file("textures"))) fs::copy(sourcePath("examples/textures"), dir.file("textures"));
  return dir.file(file);
}

}  // namespace ztx_test
