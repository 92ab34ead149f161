// The MeshChunk writer. Bulk arrays go out as raw blocks (a count value, then
// the bytes): a million-vertex mesh is three block copies, not millions of
// tagged values.
#include "geometry/mesh_record.h"

namespace {

void writeGroupCounts(T_MemoryFile& file, const GroupTable& groups) {
  file << static_cast<unsigned int>(groups.groupCount());
  for (std::uint32_t n : groups.counts()) file << static_cast<unsigned int>(n);
}

void writeVertexChunk(T_MemoryFile& file, const MeshVertexRecord& part) {
  file.createChunk(chunk_kind::kMeshVertex);
  writeRawBlock(file, part.positions);
  writeRawArray(file, part.normals);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

void writeFaceChunk(T_MemoryFile& file, const MeshFaceRecord& part) {
  file.createChunk(chunk_kind::kMeshFace);
  writeRawBlock(file, part.indices);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

void writeMaterialNamesChunk(T_MemoryFile& file, const std::vector<std::string>& names) {
  file.createChunk(chunk_kind::kMeshMaterialNames);
  file << static_cast<int>(names.size());
  for (const std::string& name : names) file << name;
  file.closeChunk();
}

void writeMapChannelChunk(T_MemoryFile& file, const MeshMapChannelRecord& part) {
  file.createChunk(chunk_kind::kMeshMapChannel);
  file << static_cast<unsigned int>(part.channel);
  writeRawBlock(file, part.coordinates);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

}  // namespace

static_assert(sizeof(Point3) == 12, "points go out as three packed floats");

T_MemoryFile& operator<<(T_MemoryFile& file, const MeshRecord& record) {
  // The bulk arrays' bytes, claimed at once: a big mesh then lands in one
  // allocation instead of a chain of doublings that copies the file each time.
  std::size_t bulk = 0;
  if (record.hasVertices()) bulk += 2 * record.vertexPart().positions.size() * sizeof(Point3);
  if (record.hasFaces()) bulk += record.facePart().indices.size() * sizeof(std::uint16_t);
  for (int slot = 0; slot < kMeshWrittenMapSlots; ++slot)
    if (record.hasMapChannel(slot)) bulk += record.mapChannelPart(slot).coordinates.size() * sizeof(Point3);
  // The headers, group tables and names around them get room too, so that the
  // last small write does not double the buffer.
  file.reserveMore(bulk + bulk / 64 + 65536);
  file.createChunk(chunk_kind::kMesh);
  file << static_cast<const ObjectRecord&>(record);
  if (record.hasVertices()) writeVertexChunk(file, record.vertexPart());
  if (record.hasFaces()) writeFaceChunk(file, record.facePart());
  // Chunk 0x1000b would stand here; this exporter never writes it.
  if (record.hasMaterialNames()) writeMaterialNamesChunk(file, record.materialNameList());
  for (int slot = 0; slot < kMeshWrittenMapSlots; ++slot)
    if (record.hasMapChannel(slot)) writeMapChannelChunk(file, record.mapChannelPart(slot));
  if (record.hasReferenceName()) {
    file.createChunk(chunk_kind::kMeshReference);
    file << record.referenceNameValue();
    file.closeChunk();
  }
  file.closeChunk();
  return file;
}
