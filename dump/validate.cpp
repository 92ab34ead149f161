#include "dump/validate.h"

#include <filesystem>
#include <map>
#include <vector>

#include "dump/dump_error.h"
#include "dump/reader_tree.h"

namespace zt2dump {

namespace {

// The file of the other kind with the same base name beside `path`, if any.
std::string sibling(const std::string& path, const char* extension) {
  std::filesystem::path p(path);
  p.replace_extension(extension);
  std::error_code ec;
  return std::filesystem::is_regular_file(p, ec) && p.string() != path ? p.string() : std::string();
}

DecodedFile loadSibling(const std::string& path) {
  try {
    DecodedFile file = loadFile(path);
    ztexport::decodeTexts(file);  // compared with the file validated, whose names are text
    return file;
  } catch (const FormatError& e) {
    // The sibling was found, so even a file that cannot be read is a fault of the pair.
    if (!e.unreadable()) throw;
    throw DumpError(e.what());
  }
}

std::string chunkCounts(const std::vector<DecodedChunk>& chunks) {
  std::vector<std::string> order;
  std::map<std::string, int> counts;
  for (const DecodedChunk& c : chunks) {
    const std::string name = c.known() ? c.name : "unknown (skipped)";
    if (counts[name]++ == 0) order.push_back(name);
  }
  std::string s;
  for (const std::string& name : order) s += (s.empty() ? "" : ", ") + std::to_string(counts[name]) + " " + name;
  return s;
}

}  // namespace

std::string validateFile(const DecodedFile& file) {
  std::string summary = file.path + ": " + fileKindName(file.kind) + " file, " + std::to_string(file.size) + " bytes";
  switch (file.kind) {
    case FileKind::Options:
      validateOptions(file);
      return summary + ", options version " + std::to_string(file.optionsVersion) + ", " +
             std::to_string(file.optionsFields.size()) + " values";
    case FileKind::Scene: {
      validateScene(file);
      summary += ", " + std::to_string(file.chunks.size()) + " top-level chunks";
      if (!file.chunks.empty()) summary += " (" + chunkCounts(file.chunks) + ")";
      const std::string skinPath = sibling(file.path, ".skd");
      if (!skinPath.empty()) {
        const DecodedFile skin = loadSibling(skinPath);
        validateVertexData(skin);
        validateSkinAgainstScene(file, skin);
        summary += "; " + skinPath + " matches its mesh";
      }
      return summary;
    }
    case FileKind::VertexData: {
      validateVertexData(file);
      summary += ", " + chunkCounts(file.chunks);
      const std::string scenePath = sibling(file.path, ".zt2");
      if (!scenePath.empty()) {
        const DecodedFile scene = loadSibling(scenePath);
        validateScene(scene);
        validateSkinAgainstScene(scene, file);
        summary += "; matches its mesh in " + scenePath;
      }
      return summary;
    }
  }
  return summary;
}

}  // namespace zt2dump
