#include "geometry/geometry_readers.h"


namespace {

ChunkHeader expectChunk(T_MemoryFile& file, unsigned int id, unsigned int version) {
  const std::size_t at = file.tell();
  const ChunkHeader h = file.readChunkHeader();
  if (h.id != id) file.fail(at, "expected chunk " + hexId(id) + ", found chunk " + hexId(h.id));
  if (h.version != version)
    file.fail(at, "chunk " + hexId(id) + " has version " + std::to_string(h.version) + ", expected " +
                      std::to_string(version));
  return h;
}

// The chunk must end exactly where its header said.
void expectEnd(T_MemoryFile& file, const ChunkHeader& h) {
  if (file.tell() != h.end())
    file.fail(file.tell(), "chunk " + hexId(h.id) + " ends at byte offset " + std::to_string(h.end()) +
                               " but its fields end here");
}

template <typename T>
void readArray(T_MemoryFile& file, std::vector<T>& out, std::size_t n) {
  if (n > (file.size() - file.tell()) / sizeof(T)) file.fail(file.tell(), "raw block runs past the end of the data");
  out.resize(n);
  if (n > 0) file.readRaw(out.data(), n * sizeof(T));
}

template <typename T>
void readCountedArray(T_MemoryFile& file, std::vector<T>& out) {
  readArray(file, out, file.readUInt());
}

void readGroupCounts(T_MemoryFile& file, GroupTable& groups) {
  const std::uint32_t n = file.readUInt();
  if (n > file.size() - file.tell()) file.fail(file.tell(), "group count " + std::to_string(n) + " is too large");
  groups.resizeGroups(n);
  for (std::uint32_t g = 0; g < n; ++g) groups.setGroupCount(g, file.readUInt());
}

void readObjectChunk(T_MemoryFile& file, ObjectRecord& record) {
  const ChunkHeader h = expectChunk(file, chunk_kind::kObject.id, chunk_kind::kObject.version);
  record.name() = file.readString();
  record.parentName() = file.readString();
  record.transform() = file.readMatrix();
  record.setHasParent(file.readBool());
  record.userProperties() = file.readString();
  expectEnd(file, h);
}

template <typename T>
void readSequence(T_MemoryFile& file, std::vector<T>& out, T (T_MemoryFile::*readOne)()) {
  const std::int32_t n = file.readSequenceCount();
  if (static_cast<std::size_t>(n) > file.size() - file.tell()) file.fail(file.tell(), "sequence runs past the end");
  out.clear();
  out.reserve(static_cast<std::size_t>(n));
  for (std::int32_t i = 0; i < n; ++i) out.push_back((file.*readOne)());
}

}  // namespace

MeshRecord readMeshChunk(T_MemoryFile& file) {
  MeshRecord record;
  const ChunkHeader mesh = expectChunk(file, chunk_kind::kMesh.id, chunk_kind::kMesh.version);
  readObjectChunk(file, record);
  int mapSlot = 0;
  while (file.tell() < mesh.end()) {
    const std::size_t at = file.tell();
    const ChunkHeader h = file.readChunkHeader();
    if (h.end() > mesh.end()) file.fail(at, "sub-chunk runs past the end of its mesh chunk");
    switch (h.id) {
      case chunk_kind::kMeshVertex.id: {
        MeshVertexRecord& v = record.vertices();
        const std::uint32_t n = file.readUInt();
        readArray(file, v.positions, n);
        readArray(file, v.normals, n);
        readGroupCounts(file, v.groups);
        break;
      }
      case chunk_kind::kMeshFace.id: {
        MeshFaceRecord& f = record.faces();
        readCountedArray(file, f.indices);
        readGroupCounts(file, f.groups);
        break;
      }
      case chunk_kind::kMeshMaterialNames.id: {
        std::vector<std::string>& names = record.materialNames();
        const std::int32_t n = file.readInt();
        if (n < 0) file.fail(at, "negative material name count");
        for (std::int32_t i = 0; i < n; ++i) names.push_back(file.readString());
        break;
      }
      case chunk_kind::kMeshMapChannel.id: {
        if (mapSlot >= kMeshWrittenMapSlots) file.fail(at, "more than two mapping channel chunks");
        MeshMapChannelRecord& c = record.mapChannel(mapSlot++);
        c.channel = file.readUInt();
        readCountedArray(file, c.coordinates);
        readGroupCounts(file, c.groups);
        break;
      }
      case chunk_kind::kMeshReference.id:
        record.referenceName() = file.readString();
        break;
      default:
        file.seek(h.end());
        break;
    }
    expectEnd(file, h);
  }
  expectEnd(file, mesh);
  return record;
}

VertexDataRecord readVertexDataChunk(T_MemoryFile& file) {
  VertexDataRecord record;
  const ChunkHeader h = expectChunk(file, chunk_kind::kVertexData.id, chunk_kind::kVertexData.version);
  readSequence(file, record.nodeNames, &T_MemoryFile::readString);
  readSequence(file, record.boneNames, &T_MemoryFile::readString);
  readSequence(file, record.influenceStart, &T_MemoryFile::readInt);
  readSequence(file, record.influenceCount, &T_MemoryFile::readInt);
  readSequence(file, record.influenceBone, &T_MemoryFile::readInt);
  readSequence(file, record.influenceWeight, &T_MemoryFile::readFloat);
  std::vector<std::uint32_t> counts, starts;
  readSequence(file, counts, &T_MemoryFile::readUInt);
  readSequence(file, starts, &T_MemoryFile::readUInt);
  if (counts.size() != starts.size()) file.fail(file.tell(), "group vertex counts and starts differ in length");
  record.resizeGroups(counts.size());
  for (std::size_t g = 0; g < counts.size(); ++g) record.setGroupVertexCount(g, counts[g]);
  for (std::size_t g = 0; g < counts.size(); ++g)
    if (record.groupVertexStart()[g] != starts[g])
      file.fail(file.tell(), "group vertex start " + std::to_string(g) + " is not the sum of the counts before it");
  expectEnd(file, h);
  return record;
}
