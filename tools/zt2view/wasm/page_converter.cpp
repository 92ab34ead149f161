// The glTF conversion of zt2view's page, built for WebAssembly: the page hands
// the module the files dropped on it and takes the .glb back, all in the
// module's memory (no file system). The page makes a fresh module for each
// conversion, so nothing here is ever freed or reset.
//
// The C++ runtime of this build has no exceptions: a fault keeps its message
// here and stops the module (host/inhouse/exceptions.h); the page catches the
// trap and reads the message with ztx_fault.
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "gltf/gltf_export.h"
#include "host/inhouse/exceptions.h"
#include "host/inhouse/text.h"

#define ZTX_EXPORT(name) extern "C" __attribute__((export_name(name)))

namespace {

std::string fault;
std::vector<std::function<std::string(const std::string&)>> wordings;
std::map<std::string, ztexport::FileBytes> files;  // by name, as dropped
std::vector<std::uint8_t> glb;
std::string warnings;

std::string text(const char* bytes, std::size_t size) { return std::string(bytes, size); }

// Without exceptions the runtime's own answer to exhausted memory is a trap
// without a word; this one says what happened.
void* allocate(std::size_t size) {
  if (void* p = std::malloc(size == 0 ? 1 : size)) return p;
  fault = "out of memory";
  __builtin_trap();
}

}  // namespace

void stopOnFault(const std::string& message, bool baseFault) {
  fault = baseFault && !wordings.empty() ? wordings.back()(message) : message;
  __builtin_trap();
}

FaultWording::FaultWording(std::function<std::string(const std::string&)> reword) {
  wordings.push_back(std::move(reword));
}

FaultWording::~FaultWording() { wordings.pop_back(); }

void* operator new(std::size_t size) { return allocate(size); }

namespace zt2dump::gltf {

// The images dropped with the scene stand for the texture folder: an image is
// found by its file name, wherever the material list puts it.
std::vector<unsigned char> imageFileBytes(const std::string& path) {
  const auto it = files.find(path.substr(path.rfind('/') + 1));
  if (it == files.end()) return {};
  return std::vector<unsigned char>(it->second.data.get(), it->second.data.get() + it->second.size);
}

// No image decoder comes into the page: PNG and JPEG, which glTF holds and
// browsers show, are all it embeds; other images are left out with the
// converter's warning.
std::string browserImage(const std::string& /*path*/, std::vector<unsigned char>& /*bytes*/,
                         const std::string& mimeType) {
  return mimeType;
}

}  // namespace zt2dump::gltf

namespace ztexport::detail {

// The reader's large arrays come from the module's heap like everything else:
// it has no pages of the system's to ask for (reader/typed_reader.cpp).
void* allocatePages(std::size_t /*bytes*/) { return nullptr; }
void freePages(void* /*p*/, std::size_t /*bytes*/) {}

}  // namespace ztexport::detail

// Room for `size` bytes that the page fills, then hands over with ztx_add_file.
ZTX_EXPORT("ztx_alloc") void* ztxAlloc(std::size_t size) { return allocate(size); }

// A dropped file: the module owns `bytes` from here on.
ZTX_EXPORT("ztx_add_file") void ztxAddFile(const char* name, std::size_t nameSize, std::uint8_t* bytes, std::size_t size) {
  files[text(name, nameSize)] = {std::shared_ptr<const std::uint8_t>(bytes, [](const std::uint8_t* b) {
                                   std::free(const_cast<std::uint8_t*>(b));
                                 }),
                                 size};
}

// Converts the dropped scene file `name` with the .skd of the same name
// beside it, if dropped, as zt2view does; answers the .glb's bytes
// (ztx_glb_size of them), ztx_warnings the converter's warnings.
ZTX_EXPORT("ztx_convert") const std::uint8_t* ztxConvert(const char* name, std::size_t nameSize) {
  const std::string sceneName = text(name, nameSize);
  const std::string skdName = sceneName.substr(0, sceneName.size() - ztext::lowerExtension(sceneName).size()) + ".skd";
  std::optional<ztexport::FileBytes> skd;
  if (const auto it = files.find(skdName); it != files.end()) skd = it->second;
  std::vector<std::string> lines;
  const tinygltf::Model model =
      zt2dump::buildGltf(zt2dump::decodeGltfSource(sceneName, files.at(sceneName), skdName, skd), lines);
  for (const std::string& line : lines) warnings += line + "\n";
  glb = zt2dump::glbBytes(model);
  return glb.data();
}

ZTX_EXPORT("ztx_glb_size") std::size_t ztxGlbSize() { return glb.size(); }
ZTX_EXPORT("ztx_warnings") const char* ztxWarnings() { return warnings.c_str(); }
ZTX_EXPORT("ztx_fault") const char* ztxFault() { return fault.c_str(); }
