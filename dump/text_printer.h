// The human-readable dump: the chunk tree indented, one field per line.
#pragma once

#include <ostream>

#include "dump/reader_tree.h"

namespace zt2dump {

struct TextOptions {
  // Arrays longer than this show their first entries and "... (N more)",
  // unless `full` is set.
  std::size_t longArray = 16;
  std::size_t shownEntries = 8;
  bool full = false;
};

void printText(std::ostream& out, const DecodedFile& file, const TextOptions& options);

// A float as the file holds it, with enough digits to read it back exactly.
std::string formatFloat(double value);

}  // namespace zt2dump
