// Reads chunks and typed values from a T_MemoryFile into DecodedChunks. Each
// chunk body is read inside its own bounds: a value that would run past the
// end of its chunk, or bytes left over after the last field, are FormatErrors
// that name the offset, the field and the chunks around it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "decoded_file.h"
#include "format/memory_file.h"

namespace ztexport {

class ChunkReader {
 public:
  explicit ChunkReader(T_MemoryFile& file, TreeDetail detail = TreeDetail::Full) : file_(file), detail_(detail) {}

  // The chunk at the read position: a known kind of the known version has
  // its body decoded, anything else is skipped by the header's length.
  DecodedChunk readChunk();
  // Chunks one after the other up to the end of the data (the top level).
  std::vector<DecodedChunk> readTopLevelChunks();
  // Runs `decode` over values that are not in a chunk (the options file),
  // recording fields into `target`; the values end at `end`.
  void readLooseValues(DecodedChunk& target, std::size_t end, const std::string& label,
                       const std::string& pathLabel, const std::function<void()>& decode);

  // --- fields of the body being decoded: each reads, records and returns ---
  bool boolField(const char* name);
  std::uint8_t ucharField(const char* name);
  std::int32_t intField(const char* name);
  std::uint32_t uintField(const char* name);
  float floatField(const char* name);
  std::string stringField(const char* name);
  void matrixField(const char* name);
  // `count` values of one type, recorded as one array field (a colour, a
  // group table, a name list).
  void floatsField(const char* name, std::size_t count);
  void ucharsField(const char* name, std::size_t count);
  void uintsField(const char* name, std::size_t count);
  void stringsField(const char* name, std::size_t count);
  // Raw blocks (no tags): points of three floats, unsigned 16-bit integers.
  // The values are kept typed in the field as well.
  void rawPointsField(const char* name, std::size_t count);
  void rawU16Field(const char* name, std::size_t count);
  // A container write: tag 0x1c, an int count, then `count` typed elements;
  // numeric elements are kept typed in the field as well.
  void sequenceField(const char* name, BasicType element);
  // A nested chunk at this place of the layout.
  void nestedChunk();
  // Bytes left in the body being decoded.
  std::size_t bodyLeft() const;
  // Whether a nested chunk starts at the read position.
  bool nextIsChunk() const { return bodyLeft() > 0 && file_.peekTag() == BT_Chunk; }
  // Fails at the read position with `what`, naming the chunks around it.
  [[noreturn]] void failHere(const std::string& what) { file_.fail(file_.tell(), what); }

  // --- building blocks for compound fields (animation keys) ---
  void setReading(const std::string& what) { frames_.back().reading = what; }
  std::size_t tell() const { return file_.tell(); }
  Json boolValue();
  Json intValue();
  Json uintValue();
  Json floatValue();
  Json matrixValue();
  void addField(const char* name, Json value, std::size_t offset);
  void addField(const char* name, Json value, std::size_t offset, decltype(DecodedField::typed) typed);
  // Whether large arrays are wanted as JSON values too.
  bool fullTree() const { return detail_ == TreeDetail::Full; }
  // Fails unless `count` values of at least `bytesEach` bytes fit in the body.
  void requireRoom(std::size_t count, std::size_t bytesEach, const char* what);

 private:
  struct Frame {
    DecodedChunk* chunk;
    std::size_t end;
    std::string label;      // "MeshVertexChunk at offset 1100"
    std::string pathLabel;  // "MeshVertexChunk", for the chunk path
    std::string reading;    // the field being read
  };

  void decodeWithin(DecodedChunk& target, std::size_t end, const std::string& label, const std::string& pathLabel,
                    const std::function<void()>& decode);
  // `MeshChunk "Box01" > MeshVertexChunk > positions`.
  std::string chunkPath() const;
  // Fails when the body has no byte left for the next value.
  void checkStart(const char* what);
  // Fails when the value that started at `start` ran past the body's end.
  void checkInside(std::size_t start, const char* what);
  std::size_t beginField(const char* name);
  std::string context() const;

  T_MemoryFile& file_;
  TreeDetail detail_;
  std::vector<Frame> frames_;
};

}  // namespace ztexport
