// The in-memory mesh record that mesh export fills and the MeshChunk writer
// turns into chunks. Geometry is kept per material group: each part holds one
// flat array for the whole mesh plus a table of how many of its entries
// belong to each group, groups in the order of the mesh's material names.
//
// A written vertex is held as the vertex of the mesh build it is, and its
// values (position, normal, map coordinates) are read from the build's arrays
// as the record is written out: a mesh of a million vertices is then never
// held twice. The build must outlive the record's writing.
//
// Every optional part has a presence flag that is false in a new record; the
// accessor that hands a part out for filling sets it, so a part is written
// exactly when export touched it, even if it stayed empty.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "host/max_types.h"

// Slots a record has room for; only slots 0 and 1 are ever written.
inline constexpr int kMeshMapSlots = 10;
inline constexpr int kMeshWrittenMapSlots = 2;

// Per-group counts and starts shared by the three per-group parts. Starts are
// the running sums of the counts of the groups before, scaled by `unit`
// entries per counted item (1 for vertices, 3 for triangles).
class GroupTable {
 public:
  explicit GroupTable(std::uint32_t unit) : unit_(unit) {}

  // Both lists get `n` entries, all 0.
  void resizeGroups(std::size_t n);
  // Inserts `n` empty groups before group `at` (at the end when `at` is the
  // group count); they start where group `at` starts.
  void insertGroups(std::size_t at, std::size_t n);
  // Count of group g becomes n; the later starts move by the difference.
  void setGroupCount(std::size_t g, std::uint32_t n);

  std::size_t groupCount() const { return counts_.size(); }
  // The start of group g; counts only the groups before it.
  std::uint32_t start(std::size_t g) const {
    settle(g + 1);
    return starts_[g];
  }
  const std::vector<std::uint32_t>& starts() const {
    settle(starts_.size());
    return starts_;
  }
  const std::vector<std::uint32_t>& counts() const { return counts_; }

 private:
  // Starts are summed when asked for, from the first one a count changed
  // after: a mesh stores its groups in order, and moving every later start at
  // each store made a mesh of many materials quadratic in their number.
  void settle(std::size_t end) const;

  std::uint32_t unit_;
  mutable std::vector<std::uint32_t> starts_;
  mutable std::size_t settled_ = 0;  // starts_[0, settled_) are right
  std::vector<std::uint32_t> counts_;
};

class MeshVertexRecord {
 public:
  std::vector<std::uint32_t> sources;  // per written vertex: its vertex in the build
  GroupTable groups{1};

  void resize(std::size_t n) { sources.resize(n); }
};

// The build's arrays the written vertices' values are read from, one entry
// per build vertex; a null array reads as (0, 0, 0) for every vertex.
struct MeshVertexValues {
  const Point3* positions = nullptr;
  const Point3* normals = nullptr;
  std::array<const Point3*, kMeshWrittenMapSlots> maps{};
};

class MeshFaceRecord {
 public:
  std::vector<std::uint16_t> indices;  // three group-local vertex numbers per triangle
  GroupTable groups{3};                // counts in triangles, starts in index entries

  void resizeTriangles(std::size_t n) { indices.resize(3 * n); }
  void setTriangle(std::size_t g, std::size_t i, std::uint16_t a, std::uint16_t b, std::uint16_t c) {
    std::uint16_t* t = indices.data() + groups.start(g) + 3 * i;
    t[0] = a;
    t[1] = b;
    t[2] = c;
  }
};

class MeshMapChannelRecord {
 public:
  std::uint32_t channel = 0;
  std::size_t count = 0;  // coordinates: one per vertex of the vertex part, from the first
  GroupTable groups{1};

  void resize(std::size_t n) { count = n; }
};

class MeshRecord : public ObjectRecord {
 public:
  // Accessors that hand a part out for filling; each sets its presence flag.
  MeshVertexRecord& vertices() {
    hasVertices_ = true;
    return vertices_;
  }
  MeshFaceRecord& faces() {
    hasFaces_ = true;
    return faces_;
  }
  std::vector<std::string>& materialNames() {
    hasMaterialNames_ = true;
    return materialNames_;
  }
  MeshMapChannelRecord& mapChannel(int slot) {
    hasMapChannel_[slot] = true;
    return mapChannels_[slot];
  }
  std::string& referenceName() {
    hasReferenceName_ = true;
    return referenceName_;
  }
  MeshVertexValues& vertexValues() { return values_; }

  // Read access for the writer and for tests; never sets a flag.
  bool hasVertices() const { return hasVertices_; }
  bool hasFaces() const { return hasFaces_; }
  bool hasMaterialNames() const { return hasMaterialNames_; }
  bool hasMapChannel(int slot) const { return hasMapChannel_[slot]; }
  bool hasReferenceName() const { return hasReferenceName_; }
  const MeshVertexRecord& vertexPart() const { return vertices_; }
  const MeshFaceRecord& facePart() const { return faces_; }
  const std::vector<std::string>& materialNameList() const { return materialNames_; }
  const MeshMapChannelRecord& mapChannelPart(int slot) const { return mapChannels_[slot]; }
  const std::string& referenceNameValue() const { return referenceName_; }
  const MeshVertexValues& vertexValueArrays() const { return values_; }

 private:
  MeshVertexRecord vertices_;
  MeshFaceRecord faces_;
  std::vector<std::string> materialNames_;
  std::array<MeshMapChannelRecord, kMeshMapSlots> mapChannels_;
  std::string referenceName_;
  MeshVertexValues values_;
  bool hasVertices_ = false;
  bool hasFaces_ = false;
  bool hasMaterialNames_ = false;
  std::array<bool, kMeshMapSlots> hasMapChannel_{};
  bool hasReferenceName_ = false;
};

// The MeshChunk: the ObjectChunk, then the present parts in their fixed order.
T_MemoryFile& operator<<(T_MemoryFile& file, const MeshRecord& record);
