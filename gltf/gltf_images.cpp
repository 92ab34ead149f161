#include "gltf/gltf_images.h"

#include <fstream>
#include <iterator>

#include "images/image_decode.h"

namespace zt2dump::gltf {

std::vector<unsigned char> imageFileBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (!in.good() && !in.eof()) bytes.clear();
  return bytes;
}

std::string browserImage(const std::string& path, std::vector<unsigned char>& bytes, const std::string& mimeType) {
  if (!mimeType.empty() || bytes.empty()) return mimeType;
  int width = 0, height = 0;
  std::string why;
  hostmodel::ImagePixels pixels;
  std::vector<unsigned char> png;
  if (!hostmodel::decodeImage(path, width, height, why, &pixels) || !hostmodel::encodePng(pixels, png)) return mimeType;
  bytes = std::move(png);
  return "image/png";
}

}  // namespace zt2dump::gltf
