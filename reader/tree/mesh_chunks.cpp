// The mesh chunk and its sub-chunks. Geometry is stored as flat arrays with
// a count per material group; the group starts are implied by the counts.
#include "chunk_layouts.h"
#include "chunk_reader.h"

namespace ztexport {

void decodeMesh(ChunkReader& r, DecodedChunk&) {
  // The object chunk, then whichever sub-chunks the mesh has: all optional,
  // so the body is simply a run of chunks.
  while (r.bodyLeft() > 0) r.nestedChunk();
}

void decodeMeshVertex(ChunkReader& r, DecodedChunk&) {
  const std::uint32_t n = r.uintField("vertexCount");
  r.rawPointsField("positions", n);
  r.rawPointsField("normals", n);
  const std::uint32_t groups = r.uintField("groupCount");
  r.uintsField("groupVertexCounts", groups);
}

void decodeMeshFace(ChunkReader& r, DecodedChunk&) {
  const std::uint32_t n = r.uintField("indexCount");
  r.rawU16Field("indices", n);
  const std::uint32_t groups = r.uintField("groupCount");
  r.uintsField("groupTriangleCounts", groups);
}

void decodeMeshReserved(ChunkReader& r, DecodedChunk&) {
  const std::int32_t n = r.intField("count");
  if (n < 0) r.addField("values", Json::array(), r.tell());
  else r.uintsField("values", static_cast<std::size_t>(n));
}

void decodeMeshMaterialNames(ChunkReader& r, DecodedChunk&) {
  const std::int32_t n = r.intField("nameCount");
  // A negative count is written by no one; no names follow it.
  r.stringsField("names", n < 0 ? 0 : static_cast<std::size_t>(n));
}

void decodeMeshMapChannel(ChunkReader& r, DecodedChunk&) {
  r.uintField("channel");
  const std::uint32_t n = r.uintField("coordinateCount");
  r.rawPointsField("coordinates", n);
  const std::uint32_t groups = r.uintField("groupCount");
  r.uintsField("groupCoordinateCounts", groups);
}

void decodeMeshReference(ChunkReader& r, DecodedChunk&) { r.stringField("referenceName"); }

}  // namespace ztexport
