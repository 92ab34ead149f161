// Reading back what the geometry writers write: a MeshChunk into a
// MeshRecord and a VertexDataChunk into a VertexDataRecord, so that tests
// can compare an export record by record (zt2dump has a reader of its own);
// every fault throws T_Exception naming the file and the byte offset.
#pragma once

#include "format/memory_file.h"
#include "geometry/mesh_record.h"
#include "geometry/vertex_data_record.h"

// Reads the MeshChunk at the read position (its header included). Parts
// present in the chunk are present in the record; group starts are rebuilt
// from the written counts. Unknown sub-chunks are skipped.
MeshRecord readMeshChunk(T_MemoryFile& file);

// Reads the VertexDataChunk at the read position (its header included).
VertexDataRecord readVertexDataChunk(T_MemoryFile& file);
