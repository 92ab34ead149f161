// The one chunk of a .skd file: per-vertex bone influences of one mesh.
#include "chunk_layouts.h"
#include "chunk_reader.h"

namespace ztexport {

void decodeVertexData(ChunkReader& r, DecodedChunk&) {
  r.sequenceField("nodeNames", BT_String);
  r.sequenceField("boneNames", BT_String);
  r.sequenceField("influenceStart", BT_Int);
  r.sequenceField("influenceCount", BT_Int);
  r.sequenceField("influenceBone", BT_Int);
  r.sequenceField("influenceWeight", BT_Float);
  r.sequenceField("groupVertexCount", BT_UInt);
  r.sequenceField("groupVertexStart", BT_UInt);
}

}  // namespace ztexport
