// zt2dump and zt2view read every file through the reader library. Its
// decoded chunk tree, with every field's offset, is what the printers, the
// validator and the glTF conversion work from.
#pragma once

#include "format/chunk_kinds.h"
#include "reader/tree/file_decoder.h"

namespace zt2dump {

using ztexport::chunkLabel;
using ztexport::decodeBytes;
using ztexport::DecodedChunk;
using ztexport::DecodedField;
using ztexport::DecodedFile;
using ztexport::FileKind;
using ztexport::fileKindName;
using ztexport::FormatError;
using ztexport::Json;
using ztexport::loadFile;

}  // namespace zt2dump
