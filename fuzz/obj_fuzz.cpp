// OBJ text: our own reader either leaves a file to the import library or
// gives a scene whose every index lies inside its arrays, the front end's
// assumptions; it never crashes, hangs or reads past the file.
#include <cstdint>

#include "fuzz_support.h"
#include "scene_checks.h"
#include "importers/obj_reader.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string path = ztx_fuzz::writeScratch("fuzz.obj", data, size);
  const hostimport::OwnScene scene = hostimport::readPlainObj(path);
  if (!scene) return 0;
  ztx_fuzz::checkOwnScene(*scene);
  return 0;
}
