// The MeshChunk writer. Bulk arrays go out as raw blocks (a count value, then
// the bytes): a million-vertex mesh is three block copies, not millions of
// tagged values.
#include "geometry/mesh_record.h"

#include <algorithm>
#include <span>

namespace {

// values[s] for each source s, or (0, 0, 0) without values, gathered in
// pieces small enough to stay in the cache on their way into the file.
void writeGathered(T_MemoryFile& file, const Point3* values, std::span<const std::uint32_t> sources) {
  constexpr std::size_t kPiece = 2048;
  Point3 piece[kPiece];
  if (!values) std::fill_n(piece, kPiece, Point3{});
  for (std::size_t at = 0; at < sources.size(); at += kPiece) {
    const std::size_t n = std::min(kPiece, sources.size() - at);
    if (values)
      for (std::size_t i = 0; i < n; ++i) piece[i] = values[sources[at + i]];
    file.write(piece, static_cast<int>(n * sizeof(Point3)));
  }
}

void writeGroupCounts(T_MemoryFile& file, const GroupTable& groups) {
  file << static_cast<unsigned int>(groups.groupCount());
  for (std::uint32_t n : groups.counts()) file << static_cast<unsigned int>(n);
}

void writeVertexChunk(T_MemoryFile& file, const MeshVertexRecord& part, const MeshVertexValues& values) {
  file.createChunk(chunk_kind::kMeshVertex);
  file << static_cast<unsigned int>(part.sources.size());
  writeGathered(file, values.positions, part.sources);
  writeGathered(file, values.normals, part.sources);
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

void writeMapChannelChunk(T_MemoryFile& file, const MeshMapChannelRecord& part, const Point3* values,
                          const std::vector<std::uint32_t>& sources) {
  file.createChunk(chunk_kind::kMeshMapChannel);
  file << static_cast<unsigned int>(part.channel);
  const std::size_t n = std::min(part.count, sources.size());
  file << static_cast<unsigned int>(n);
  writeGathered(file, values, std::span(sources).first(n));
  writeGroupCounts(file, part.groups);
  file.closeChunk();
}

}  // namespace

static_assert(sizeof(Point3) == 12, "points go out as three packed floats");

T_MemoryFile& operator<<(T_MemoryFile& file, const MeshRecord& record) {
  // The bulk arrays' bytes, claimed at once: a big mesh then lands in one
  // allocation instead of a chain of doublings that copies the file each time.
  std::size_t bulk = 0;
  if (record.hasVertices()) bulk += 2 * record.vertexPart().sources.size() * sizeof(Point3);
  if (record.hasFaces()) bulk += record.facePart().indices.size() * sizeof(std::uint16_t);
  for (int slot = 0; slot < kMeshWrittenMapSlots; ++slot)
    if (record.hasMapChannel(slot)) bulk += record.mapChannelPart(slot).count * sizeof(Point3);
  // The headers, group tables and names around them get room too, so that the
  // last small write does not double the buffer.
  file.reserveMore(bulk + bulk / 64 + 65536);
  file.createChunk(chunk_kind::kMesh);
  file << static_cast<const ObjectRecord&>(record);
  const MeshVertexValues& values = record.vertexValueArrays();
  if (record.hasVertices()) writeVertexChunk(file, record.vertexPart(), values);
  if (record.hasFaces()) writeFaceChunk(file, record.facePart());
  // Chunk 0x1000b would stand here; this exporter never writes it.
  if (record.hasMaterialNames()) writeMaterialNamesChunk(file, record.materialNameList());
  for (int slot = 0; slot < kMeshWrittenMapSlots; ++slot)
    if (record.hasMapChannel(slot))
      writeMapChannelChunk(file, record.mapChannelPart(slot), values.maps[slot], record.vertexPart().sources);
  if (record.hasReferenceName()) {
    file.createChunk(chunk_kind::kMeshReference);
    file << record.referenceNameValue();
    file.closeChunk();
  }
  file.closeChunk();
  return file;
}
