// Image files that imported materials name.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "host/memory/texture_search.h"

namespace hostimport {

// The images a model's materials name, found as texture_search.h finds them
// (the model's folder, its textures folders, then `texturePaths`) and
// written as absolute paths, so that a scene written elsewhere with
// --write-scene still finds them.
class ModelTextures {
 public:
  ModelTextures(const std::string& modelPath, std::vector<std::string> texturePaths, bool dropMissing);

  // The path the map of `material` names, or none when the map is left out:
  // its image is missing and missing maps are dropped, or the name is the
  // import library's stand-in for a map without a file. A file taken under
  // another extension, and every map left out, is told on standard error as
  // a WARNING naming the model. An image that is missing and kept stays as
  // its name resolves: the export then fails on it, and the host says where
  // it was looked for.
  std::optional<std::string> find(const std::string& material, const std::string& name);

 private:
  void warn(const std::string& material, const std::string& text) const;

  std::string modelPath_;
  hostmodel::TextureSearch search_;
  bool dropMissing_;
};

// Writes an image held inside a model to `dir` / `fileName` (by a temporary
// file and a rename) and answers its absolute path. Throws std::runtime_error
// naming the file on failure.
std::string writeEmbeddedTexture(const std::filesystem::path& dir, const std::string& fileName,
                                 const unsigned char* bytes, std::size_t size);

}  // namespace hostimport
