// The semantic difference between two files of ours (two exports, two .skd,
// two ZTExport.cfg): keyed by node name and field path, never by byte offset,
// so that a re-export that only moved bytes compares equal. docs/reader.md
// describes the keys and the tolerance.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "ztexport/reader.h"

namespace ztexport {

struct DiffOptions {
  // Two numbers a and b are equal when |a - b| <= tolerance * max(1, |a|, |b|):
  // relative to their magnitude, absolute near zero. 0: bit-exact floats.
  double tolerance = 0;
  // How many differing indices of an array are listed.
  std::size_t listedIndices = 5;
};

struct Difference {
  enum class Kind { Added, Removed, Changed, Moved };
  Kind kind = Kind::Changed;
  // `MeshChunk "Box01" > MeshVertexChunk > positions`; a node or chunk alone
  // for Added, Removed and Moved; an option's name in an options file.
  std::string path;
  // Changed: the two values as JSON text, floats in their shortest exact
  // form; empty for an array too long to show.
  std::string oldValue, newValue;
  // Changed arrays: lengths, how many elements differ (over the common
  // length), the largest numeric difference, the first differing indices.
  bool array = false;
  std::size_t oldLength = 0, newLength = 0, differing = 0;
  double largestDifference = 0;
  std::vector<std::size_t> firstIndices;
  // Moved: positions among the top-level chunks.
  std::size_t oldPosition = 0, newPosition = 0;
};

struct Diff {
  std::string oldPath, newPath;
  FileKind oldKind = FileKind::Scene, newKind = FileKind::Scene;
  std::vector<Difference> differences;  // in the old file's order, then what was added
  bool equal() const { return differences.empty(); }
};

// Throws FormatError when a file cannot be read or decoded.
Diff diffFiles(const std::string& oldPath, const std::string& newPath, const DiffOptions& options = {});
Diff diffBytes(const std::string& oldName, std::vector<std::uint8_t> oldBytes, const std::string& newName,
               std::vector<std::uint8_t> newBytes, const DiffOptions& options = {});

// "added", "removed", "changed", "moved".
const char* differenceKindName(Difference::Kind kind);

// One line per difference, then a summary line.
std::string diffText(const Diff& diff);
// One JSON document: {"old", "new", "equal", "differences": [...]}.
std::string diffJson(const Diff& diff);

}  // namespace ztexport
