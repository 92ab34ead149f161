// A glTF document and its buffer: the input's first byte says how many of
// the following bytes (times 64) are the document, "fuzz.gltf"; the rest is
// "fuzz.bin", which the seeds' documents name. Our own reader either leaves
// the file to the import library or gives a scene whose every index lies
// inside its arrays; it never crashes, hangs or reads past a buffer.
#include <algorithm>
#include <cstdint>

#include "fuzz_support.h"
#include "scene_checks.h"
#include "importers/gltf_reader.h"
#include "importers/scene_builder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::size_t text = std::min(size - 1, std::size_t{data[0]} * 64);
  const std::string path = ztx_fuzz::writeScratch("fuzz.gltf", data + 1, text);
  ztx_fuzz::writeScratch("fuzz.bin", data + 1 + text, size - 1 - text);
  hostimport::OwnScene scene;
  try {
    scene = hostimport::readPlainGltf(path);
  } catch (const hostimport::ImportError&) {
    return 0;  // a tree too deep, refused by name
  }
  if (!scene) return 0;
  ztx_fuzz::checkOwnScene(*scene);
  return 0;
}
