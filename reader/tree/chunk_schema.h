// The decoder of every chunk kind the exporter writes. Ids, versions and
// names come from the shared table in format/chunk_kinds.h; the decoders are
// this tool's own reading of each layout, the second check on the writers.
#pragma once

#include <cstdint>

#include "format/chunk_kinds.h"

namespace ztexport {

class ChunkReader;
struct DecodedChunk;

using DecodeBody = void (*)(ChunkReader& reader, DecodedChunk& chunk);

struct ChunkKind {
  const ChunkKindInfo* info;
  DecodeBody decode;
};

// The kind with this id, or nullptr for an id the tool does not know.
const ChunkKind* findChunkKind(std::uint32_t id);

}  // namespace ztexport
