// The MeshChunk writer. Bulk arrays go out as raw blocks (a count value, then
// the bytes): a million-vertex mesh is three block copies, not millions of
// tagged values.
#include "geometry/mesh_record.h"

namespace {

void writeGroupCounts(T_MemoryFile& file, const GroupTable& groups) {
  file << static_cast<unsigned int>(groups.groupCount());
  for (std::uint32_t n : groups.counts()) file << static_cast<unsigned int>(n);
}

// The stream takes block lengths as int, so very large arrays go in pieces.
template <typename T>
void writeRawArray(T_MemoryFile& file, const std::vector<T>& v) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;
  const auto* bytes = reinterpret_cast<const unsigned char*>(v.data());
  std::size_t left = v.size() * sizeof(T);
  while (left > 0) {
    const std::size_t n = left < kPiece ? left : kPiece;
    file.write(bytes, static_cast<int>(n));
    bytes += n;
    left -= n;
  }
}

template <typename T>
void writeCountedArray(T_MemoryFile& file, const std::vector<T>& v) {
  file << static_cast<unsigned int>(v.size());
  writeRawArray(file, v);
}

void writeVertexChunk(T_MemoryFile& file, const MeshVertexRecord& part) {
  file.createChunk(kMeshVertexChunkId, kMeshVertexChunkVersion);
  writeCountedArray(file, part.positions);
  writeRawArray(file, part.normals);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

void writeFaceChunk(T_MemoryFile& file, const MeshFaceRecord& part) {
  file.createChunk(kMeshFaceChunkId, kMeshFaceChunkVersion);
  writeCountedArray(file, part.indices);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

void writeMaterialNamesChunk(T_MemoryFile& file, const std::vector<std::string>& names) {
  file.createChunk(kMeshMaterialNamesChunkId, kMeshMaterialNamesChunkVersion);
  file << static_cast<int>(names.size());
  for (const std::string& name : names) file << name;
  file.closeChunk();
}

void writeMapChannelChunk(T_MemoryFile& file, const MeshMapChannelRecord& part) {
  file.createChunk(kMeshMapChannelChunkId, kMeshMapChannelChunkVersion);
  file << static_cast<unsigned int>(part.channel);
  writeCountedArray(file, part.coordinates);
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

}  // namespace

static_assert(sizeof(Point3) == 12, "points go out as three packed floats");

T_MemoryFile& operator<<(T_MemoryFile& file, const MeshRecord& record) {
  file.createChunk(kMeshChunkId, kMeshChunkVersion);
  file << static_cast<const ObjectRecord&>(record);
  if (record.hasVertices()) writeVertexChunk(file, record.vertexPart());
  if (record.hasFaces()) writeFaceChunk(file, record.facePart());
  // Chunk 0x1000b would stand here; this exporter never writes it.
  if (record.hasMaterialNames()) writeMaterialNamesChunk(file, record.materialNameList());
  for (int slot = 0; slot < kMeshWrittenMapSlots; ++slot)
    if (record.hasMapChannel(slot)) writeMapChannelChunk(file, record.mapChannelPart(slot));
  if (record.hasReferenceName()) {
    file.createChunk(kMeshReferenceChunkId, kMeshReferenceChunkVersion);
    file << record.referenceNameValue();
    file.closeChunk();
  }
  file.closeChunk();
  return file;
}
