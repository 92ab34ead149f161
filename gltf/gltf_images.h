// Images a glTF file can hold: PNG and JPEG. Textures in other formats
// (TGA, BMP, DDS, TIFF, SGI, ...) are decoded and embedded as PNG, so that
// glTF viewers and the preview page show them. The page's WebAssembly build
// has its own answers to both functions: the files dropped with the scene,
// and no decoder (tools/zt2view/wasm/page_converter.cpp).
#pragma once

#include <string>
#include <vector>

namespace zt2dump::gltf {

// The bytes of the image file at `path`; empty when it cannot be read.
std::vector<unsigned char> imageFileBytes(const std::string& path);

// `mimeType` as told from `bytes` (the file at `path`); when it is empty and
// the file decodes as an image, `bytes` becomes that image as PNG and the
// answer is "image/png". Otherwise `mimeType` and `bytes` are left as they were.
std::string browserImage(const std::string& path, std::vector<unsigned char>& bytes, const std::string& mimeType);

}  // namespace zt2dump::gltf
