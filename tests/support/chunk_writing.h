// Writing scene files by hand, value by value, in the chunk layouts: for
// tests that need what the exporter does not write, or writes wrongly.
#pragma once

#include "format/memory_file.h"

namespace ztx_test {

// Three packed floats, as positions, normals and map coordinates are stored.
struct FilePoint {
  float x, y, z;
};

// Writes one chunk whose body `body` writes.
template <typename Body>
void writeChunk(T_MemoryFile& f, unsigned id, unsigned version, Body body) {
  f.createChunk(id, version);
  body();
  f.closeChunk();
}

}  // namespace ztx_test
