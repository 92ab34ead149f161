// The fallback image decoder, OpenImageIO behind two C entry points, so that
// the programs load it (and the many libraries it pulls in) only when a file
// needs it.
#include <OpenImageIO/imageio.h>

#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

#include "images/image_module.h"

namespace {

int fail(char* why, int whyLength, const std::string& message) {
  if (why != nullptr && whyLength > 0) {
    std::strncpy(why, message.empty() ? "unknown" : message.c_str(), static_cast<std::size_t>(whyLength) - 1);
    why[whyLength - 1] = '\0';
  }
  return 1;
}

}  // namespace

extern "C" __attribute__((visibility("default"))) int ztx_images_read(const char* path, int infoOnly, int* width,
                                                                     int* height, int* channels,
                                                                     unsigned char** pixels, char* why,
                                                                     int whyLength) {
  try {
    auto in = OIIO::ImageInput::open(path);
    if (!in) return fail(why, whyLength, OIIO::geterror());
    const OIIO::ImageSpec& image = in->spec();
    if (image.width <= 0 || image.height <= 0 || image.nchannels <= 0)
      return fail(why, whyLength, "the image has no pixels");
    *width = image.width;
    *height = image.height;
    *channels = image.nchannels < 4 ? image.nchannels : 4;
    if (infoOnly) return 0;
    const auto count = static_cast<unsigned long long>(image.width) * static_cast<unsigned long long>(image.height) *
                       static_cast<unsigned long long>(*channels);
    if (count > (1ull << 31)) return fail(why, whyLength, "the image is too large");
    auto* bytes = static_cast<unsigned char*>(std::malloc(static_cast<std::size_t>(count)));
    if (bytes == nullptr) return fail(why, whyLength, "out of memory");
    if (!in->read_image(0, 0, 0, *channels, OIIO::TypeDesc::UINT8, bytes)) {
      std::free(bytes);
      return fail(why, whyLength, in->geterror());
    }
    if (pixels != nullptr)
      *pixels = bytes;
    else
      std::free(bytes);
    return 0;
  } catch (const std::exception& e) {
    return fail(why, whyLength, e.what());
  }
}

extern "C" __attribute__((visibility("default"))) void ztx_images_free(unsigned char* pixels) { std::free(pixels); }
