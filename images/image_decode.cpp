#include "images/image_decode.h"

#include <dlfcn.h>
#include <stb/stb_image.h>
#include <stb/stb_image_write.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <mutex>

#include "images/image_module.h"

namespace hostmodel {
namespace {

struct Fallback {
  decltype(&ztx_images_read) read = nullptr;
  decltype(&ztx_images_free) release = nullptr;
  std::string problem;  // why it could not be loaded
  bool loaded = false;
};

std::string& companionDirectory() {
  static std::string directory;
  return directory;
}

}  // namespace

void setCompanionModuleDirectory(const std::string& directory) { companionDirectory() = directory; }

// Where a program says its modules are; beside the program (or library) this
// code is linked into; installed, the program is in bin/ and the modules in
// lib/ztexport/ with the exporter module; in a build tree, programs in
// sub-folders find them in the build folder.
static std::vector<std::string> companionModuleCandidates(const std::string& fileName) {
  std::vector<std::string> out;
  if (!companionDirectory().empty()) out.push_back(companionDirectory() + "/" + fileName);
  Dl_info info{};
  if (::dladdr(reinterpret_cast<void*>(&companionModuleCandidates), &info) != 0 && info.dli_fname != nullptr) {
    std::error_code ec;
    const auto self = std::filesystem::canonical(info.dli_fname, ec);
    if (!ec) {
      out.push_back((self.parent_path() / fileName).string());
#ifdef ZTX_INSTALL_LIBDIR
      out.push_back(
          (self.parent_path() / ".." / ZTX_INSTALL_LIBDIR / "ztexport" / fileName).lexically_normal().string());
#endif
    }
  }
#ifdef ZTX_IMAGE_MODULE_BUILD_DIR
  out.push_back(std::string(ZTX_IMAGE_MODULE_BUILD_DIR) + "/" + fileName);
#endif
  return out;
}

void* openCompanionModule(const std::string& fileName, std::string& path, std::string& problem) {
  for (const std::string& candidate : companionModuleCandidates(fileName)) {
    std::error_code ec;
    if (!std::filesystem::exists(candidate, ec)) continue;
    path = candidate;
    // Never closed: what it hands out may live as long as the program. Its
    // calls bind on first use: its symbols were all resolved when it was
    // linked, and looking up every one at load took a model's reader 0.7 ms.
    void* handle = ::dlopen(candidate.c_str(), RTLD_LAZY | RTLD_LOCAL);
    if (handle == nullptr) problem = ::dlerror();
    return handle;
  }
  return nullptr;
}

namespace {

std::atomic<bool> fallbackLoaded{false};

Fallback& fallback() {
  static Fallback f;
  static std::once_flag once;
  std::call_once(once, [] {
    std::string path;
    void* handle = openCompanionModule(kImageModuleName, path, f.problem);
    if (handle == nullptr) {
      if (f.problem.empty()) f.problem = std::string(kImageModuleName) + " was not found beside the program";
      return;
    }
    f.read = reinterpret_cast<decltype(f.read)>(::dlsym(handle, "ztx_images_read"));
    f.release = reinterpret_cast<decltype(f.release)>(::dlsym(handle, "ztx_images_free"));
    if (f.read == nullptr || f.release == nullptr) {
      f.problem = path + " lacks its entry points";
      f.read = nullptr;
      return;
    }
    f.loaded = true;
    fallbackLoaded = true;
  });
  return f;
}

// Asks the fallback decoder; false with `why` when it cannot read the file.
bool readWithFallback(const std::string& path, bool infoOnly, int& width, int& height, std::string& why,
                      ImagePixels* pixels) {
  Fallback& f = fallback();
  if (f.read == nullptr) {
    why = "the decoder of other formats cannot be loaded: " + f.problem;
    return false;
  }
  int channels = 0;
  unsigned char* bytes = nullptr;
  char message[512] = {};
  const int result = f.read(path.c_str(), infoOnly ? 1 : 0, &width, &height, &channels,
                            pixels != nullptr ? &bytes : nullptr, message, sizeof message);
  if (result != 0) {
    why = message;
    return false;
  }
  if (pixels != nullptr && bytes != nullptr) {
    pixels->width = width, pixels->height = height, pixels->channels = channels;
    pixels->bytes.assign(bytes, bytes + static_cast<std::size_t>(width) * height * channels);
  }
  if (bytes != nullptr) f.release(bytes);
  return true;
}

}  // namespace

bool fallbackDecoderLoaded() { return fallbackLoaded; }

namespace {

// PNG and JPEG are stb_image's own: a file that opens as one and still fails
// is damaged, and the fallback would only fail again, through a library whose
// error path (libpng's longjmp) leaves its own allocations behind.
bool stbHasTheLastWord(std::FILE* file) {
  unsigned char head[8] = {};
  const std::size_t n = std::fread(head, 1, sizeof head, file);
  std::rewind(file);
  static const unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1a, '\n'};
  return (n == 8 && std::memcmp(head, png, 8) == 0) || (n >= 3 && head[0] == 0xff && head[1] == 0xd8 && head[2] == 0xff);
}

}  // namespace

bool imageInfo(const std::string& path, int& width, int& height) {
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) return false;  // nothing for any decoder to read
  int channels = 0;
  const bool final = stbHasTheLastWord(file);
  const bool known = stbi_info_from_file(file, &width, &height, &channels) != 0;
  std::fclose(file);
  if (known || final) return known;
  std::string why;
  return readWithFallback(path, true, width, height, why, nullptr);
}

bool decodeImage(const std::string& path, int& width, int& height, std::string& why, ImagePixels* pixels) {
  // Tell a file that cannot be opened from one that cannot be decoded.
  std::FILE* file = std::fopen(path.c_str(), "rb");
  if (file == nullptr) {
    why = std::string("cannot be opened (") + std::strerror(errno) + ")";
    return false;
  }
  int channels = 0;
  const bool final = stbHasTheLastWord(file);
  unsigned char* decoded = stbi_load_from_file(file, &width, &height, &channels, 0);
  std::fclose(file);
  if (decoded != nullptr) {
    if (pixels != nullptr) {
      pixels->width = width, pixels->height = height, pixels->channels = channels;
      pixels->bytes.assign(decoded, decoded + static_cast<std::size_t>(width) * height * channels);
    }
    stbi_image_free(decoded);
    return true;
  }
  const std::string stbReason = stbi_failure_reason() ? stbi_failure_reason() : "unknown";
  if (final) {
    why = "is no image that can be decoded (stb_image: " + stbReason + ")";
    return false;
  }
  std::string other;
  if (readWithFallback(path, false, width, height, other, pixels)) return true;
  why = "is no image that can be decoded (stb_image: " + stbReason + "; OpenImageIO: " + other + ")";
  return false;
}

bool encodePng(const ImagePixels& pixels, std::vector<unsigned char>& png) {
  png.clear();
  if (pixels.width <= 0 || pixels.height <= 0 || pixels.channels < 1 || pixels.channels > 4) return false;
  const auto append = [](void* context, void* data, int size) {
    auto* out = static_cast<std::vector<unsigned char>*>(context);
    out->insert(out->end(), static_cast<unsigned char*>(data), static_cast<unsigned char*>(data) + size);
  };
  return stbi_write_png_to_func(append, &png, pixels.width, pixels.height, pixels.channels, pixels.bytes.data(),
                                pixels.width * pixels.channels) != 0;
}

}  // namespace hostmodel
