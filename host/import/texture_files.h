// Image files that imported materials name.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace hostimport {

// The image `name` refers to, seen from the model's directory, as an absolute
// path so that a scene written elsewhere still finds it. Models made on
// systems that ignore case often name their images in another case than the
// files have, so an exact match failing, the directory is searched without
// regard to case. A name that matches nothing is kept as it would resolve.
std::string resolveTexture(const std::filesystem::path& modelDir, const std::string& name);

// Writes an image held inside a model to `dir` / `fileName` (by a temporary
// file and a rename) and answers its absolute path. Throws std::runtime_error
// naming the file on failure.
std::string writeEmbeddedTexture(const std::filesystem::path& dir, const std::string& fileName,
                                 const unsigned char* bytes, std::size_t size);

}  // namespace hostimport
