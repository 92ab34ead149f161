// zt2dump's reader: any bytes, read as a scene file, a per-vertex file or an
// options file, either decode or give a DumpError; what decodes is validated
// and printed both ways.
#include <cstdint>
#include <sstream>
#include <vector>

#include "tools/zt2dump/dump_error.h"
#include "tools/zt2dump/file_decoder.h"
#include "tools/zt2dump/json_printer.h"
#include "tools/zt2dump/text_printer.h"
#include "tools/zt2dump/validate.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The first byte picks the name, whose extension decides the kind when the content leaves it open.
  if (size == 0) return 0;
  static const char* const kNames[] = {"fuzz.zt2", "fuzz.skd", "ZTExport.cfg"};
  const char* name = kNames[data[0] % 3];
  try {
    const zt2dump::DecodedFile file = zt2dump::decodeBytes(name, std::vector<std::uint8_t>(data + 1, data + size));
    std::ostringstream out;
    zt2dump::printJson(out, file);
    zt2dump::printText(out, file, {});
    zt2dump::validateFile(file);
  } catch (const zt2dump::DumpError&) {
  }
  return 0;
}
