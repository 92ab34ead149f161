// The machine-readable dump: one JSON document per file, arrays in full.
// docs/zt2-format.md describes its structure.
#pragma once

#include <ostream>

#include "dump/reader_tree.h"

namespace zt2dump {

Json toJson(const DecodedChunk& chunk);
Json toJson(const DecodedFile& file);
void printJson(std::ostream& out, const DecodedFile& file);

}  // namespace zt2dump
