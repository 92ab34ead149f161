// The reader library and zt2dump over it: any bytes, read as a scene file, a
// per-vertex file or an options file, either decode or give a FormatError;
// what decodes is validated and printed both ways. The typed reading must
// agree with the tree (it fails only where the tree holds what no typed
// struct can: a face index count that is no multiple of 3), a file diffed
// with itself must compare equal, and a diff against a copy with one byte
// changed must run through whatever that byte did.
#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "dump/dump_error.h"
#include "dump/json_printer.h"
#include "dump/reader_tree.h"
#include "dump/text_printer.h"
#include "dump/validate.h"
#include "ztexport/diff.h"
#include "ztexport/reader.h"

namespace {

// The typed structs of the same bytes; a fault here that the tree did not
// see is a fault of the library.
void readTyped(const char* name, ztexport::FileKind kind, const std::vector<std::uint8_t>& bytes) {
  try {
    switch (kind) {
      case ztexport::FileKind::Scene: ztexport::decodeScene(name, bytes); break;
      case ztexport::FileKind::VertexData: ztexport::decodeSkin(name, bytes); break;
      case ztexport::FileKind::Options: ztexport::decodeOptions(name, bytes); break;
    }
  } catch (const ztexport::FormatError& e) {
    const std::string what = e.what();
    const bool allowed = what.find("is not a multiple of 3") != std::string::npos ||
                         what.find("no VertexDataChunk") != std::string::npos;
    if (!allowed) __builtin_trap();
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  // The first byte picks the name, whose extension decides the kind when the content leaves it open.
  if (size == 0) return 0;
  static const char* const kNames[] = {"fuzz.zt2", "fuzz.skd", "ZTExport.cfg"};
  const char* name = kNames[data[0] % 3];
  const std::vector<std::uint8_t> bytes(data + 1, data + size);
  ztexport::FileKind kind = ztexport::FileKind::Scene;
  try {
    const zt2dump::DecodedFile file = zt2dump::decodeBytes(name, bytes);
    kind = file.kind;
    std::ostringstream out;
    zt2dump::printJson(out, file);
    zt2dump::printText(out, file, {});
    zt2dump::validateFile(file);
  } catch (const zt2dump::FormatError&) {
    return 0;
  } catch (const zt2dump::DumpError&) {
  }
  readTyped(name, kind, bytes);

  if (!ztexport::diffBytes(name, bytes, name, bytes).equal()) __builtin_trap();
  std::vector<std::uint8_t> changed = bytes;
  if (!changed.empty()) changed[data[0] % changed.size()] ^= 0x5a;
  try {
    const ztexport::Diff diff = ztexport::diffBytes(name, bytes, name, changed);
    ztexport::diffText(diff);
    ztexport::diffJson(diff);
  } catch (const ztexport::FormatError&) {
  }
  return 0;
}
