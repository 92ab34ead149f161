// Turns a decoded scene file (and its .skd) into binary glTF 2.0, for any
// glTF viewer and for zt2view. The converter reads the decoded chunk tree as
// any consumer of the file would; docs/gltf.md gives the mapping.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <tiny_gltf.h>

#include "dump/reader_tree.h"

namespace zt2dump {

// What one conversion reads: the scene, the per-vertex file beside it when
// there is one, and where the copied textures lie.
struct GltfSource {
  DecodedFile scene;
  std::optional<DecodedFile> vertexData;
  std::string textureDirectory;  // with a trailing separator, or empty
};

// Loads FILE.zt2, FILE.skd when it exists, and works out the texture
// directory from the material list. Throws as loadFile does.
GltfSource loadGltfSource(const std::string& scenePath);

// The same for files in memory (zt2view's page converts dropped files):
// the names stand for the paths in messages, and the textures are looked up
// under the material list's texture path alone. Throws as decodeBytes does.
GltfSource decodeGltfSource(const std::string& sceneName, ztexport::FileBytes scene, const std::string& vertexDataName,
                            std::optional<ztexport::FileBytes> vertexData);

// The model; `warnings` receives one line per thing left out (a texture not
// found, a skin that does not fit its mesh...). Throws DumpError when the
// file is no scene file.
tinygltf::Model buildGltf(const GltfSource& source, std::vector<std::string>& warnings);

// The model as the bytes of a .glb file.
std::vector<std::uint8_t> glbBytes(const tinygltf::Model& model);

// The output could not be written (exit code 2, as an unreadable input).
class UnwritableFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Replaces the file through format/output_files.h (replaceFileContents): a
// failed write leaves no half file and an older file stays whole, a link
// stays and names the new file. Throws UnwritableFile naming the file.
void writeFileWhole(const std::string& path, const std::vector<std::uint8_t>& bytes);

}  // namespace zt2dump
