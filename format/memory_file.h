// T_MemoryFile: the chunked binary file every exported file is built in. A
// growable byte buffer with a stack of open chunks, typed writes that record a
// one-byte tag before each value, raw blocks without a tag, and the matching
// typed reads. docs/zt2-format.md gives the encoding byte by byte.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "format/chunk_kinds.h"
#include "host/inhouse/matrix.h"
#include "host/inhouse/result.h"

enum BasicType : std::uint8_t {
  BT_Bool = 0x01,
  BT_UChar = 0x02,
  BT_Int = 0x03,
  BT_UInt = 0x04,
  BT_Float = 0x05,
  BT_String = 0x06,
  BT_Matrix4x3 = 0x07,
  BT_Sequence = 0x1c,  // a container: count as an int value, then the elements
  BT_Chunk = 0x20,     // chunk header: id, version, body length
};

enum AccessMethod { AM_Read = 0 };

// The type of a tag with its article ("an int"), as error messages name it;
// none for a tag that is not a type.
const char* basicTypeName(std::uint8_t tag);

// The file header that save() writes and the reading constructor checks.
inline constexpr char kMemoryFileMagic[4] = {'Z', 'T', 'M', 'F'};
inline constexpr std::uint32_t kMemoryFileEncoding = 1;
inline constexpr std::size_t kMemoryFileHeaderSize = 8;
// Tag, id, version and body length.
inline constexpr std::size_t kChunkHeaderSize = 13;

struct ChunkHeader {
  std::uint32_t id = 0;
  std::uint32_t version = 0;
  std::uint32_t length = 0;   // body bytes after the header
  std::size_t bodyOffset = 0; // file offset of the first body byte
  std::size_t end() const { return bodyOffset + length; }
};

class FileStaging;

class T_MemoryFile {
 public:
  // An empty buffer for writing.
  explicit T_MemoryFile(unsigned int initialSize = 8192);
  // The whole file `name` for reading. Throws T_FileException_FileNotFound
  // when it does not exist, T_Exception when it is not one of our files.
  T_MemoryFile(const char* name, AccessMethod method);
  // Reads from bytes already in memory (a file's whole content, header included).
  static T_MemoryFile fromBytes(std::vector<std::uint8_t> bytes, const std::string& name = "<memory>");
  // Reads from `size` bytes that `bytes` owns (a mapped file, say), without a
  // copy. `descriptor`, when given, is the open file those bytes map, which
  // large raw blocks are read from; it must stay open as long as `bytes`.
  static T_MemoryFile fromView(std::shared_ptr<const std::uint8_t> bytes, std::size_t size,
                               const std::string& name = "<memory>", int descriptor = -1);

  // --- writing ---
  void createChunk(unsigned int id, unsigned int version);
  void createChunk(const ChunkKindInfo& kind) { createChunk(kind.id, kind.version); }
  void closeChunk();
  int openChunkCount() const { return static_cast<int>(openChunks_.size()); }
  // Makes room for `bytes` more without changing what is written; a writer
  // that knows its size asks once rather than growing the buffer step by step.
  void reserveMore(std::size_t bytes);
  void writeTag(BasicType tag);
  void write(const void* data, int length);
  // A typed float or matrix written so far held an infinity or NaN, which
  // no reader accepts: a converter scaled a value past the float's range.
  bool holdsNonFinite() const { return nonFinite_; }
  void noteNonFinite() { nonFinite_ = true; }
  // Bytes written so far, without the file header.
  unsigned int getSize() const { return static_cast<unsigned int>(spilled_ + buffer_.size() - base_); }
  // Once more than `threshold` bytes are written, they go on into the file
  // that `open` answers (a staged temporary of the file being saved) rather
  // than staying in memory: a large export then holds its arrays, not a copy
  // of the whole file beside them. stage() writes the rest there and hands
  // the file back to its staging; `finish` is told how the writing went.
  struct Spill {
    std::function<Result<int>()> open;
    std::function<Result<void>(int fd, Result<void> written)> finish;
  };
  void spillBeyond(std::size_t threshold, Spill spill);
  // Lets go of the spill file without staging it, for a run whose staging
  // is discarded (which closes the file): nothing is written to it after.
  void abandonSpill() {
    spillFd_ = -1;
    if (spillError_.message.empty()) spillError_ = Error{ErrorKind::io, "the file was not saved"};
  }
  // Whether bytes went on into a file (or were meant to).
  bool spilled() const { return spillStarted_; }
  // Writes header and buffer to `name`; a failure carries the system's
  // reason, which the caller tells with the file's name. The old file stays
  // whole until the new one is (see replaceFileContents).
  Result<void> save(const char* name) const;
  // As save, but the file is only staged in `staging` (a synced temporary
  // beside it); it replaces `name` when the staging is committed.
  Result<void> stage(const char* name, FileStaging& staging) const;

  // --- reading (offsets are file offsets, header included) ---
  std::size_t tell() const { return pos_; }
  void seek(std::size_t offset);
  std::size_t size() const { return byteCount(); }
  bool atEnd() const { return pos_ >= byteCount(); }
  const std::string& name() const { return name_; }
  const std::uint8_t* data() const { return bytes(); }
  // The owner of the bytes read from a view (empty otherwise): what holds
  // them alive for arrays that point into them.
  const std::shared_ptr<const std::uint8_t>& viewOwner() const { return view_; }

  // The tag at the read position without consuming it.
  std::uint8_t peekTag() const;
  // Reads a tag and throws unless it is `expected`.
  void expectTag(BasicType expected);
  ChunkHeader readChunkHeader();
  bool readBool();
  std::uint8_t readUChar();
  std::int32_t readInt();
  std::uint32_t readUInt();
  float readFloat();
  std::string readString();
  M_Matrix4x3Template<float> readMatrix();
  // A sequence's count (after its tag and the int tag).
  std::int32_t readSequenceCount();
  void readRaw(void* out, std::size_t length);

  // Throws T_FileException_BadData naming the file and `offset`.
  [[noreturn]] void fail(std::size_t offset, const std::string& what) const;

 private:
  void append(const void* data, std::size_t length);
  // Passes what the buffer holds on to the spill file once it is large enough.
  void spillIfDue();
  // Writes `n` bytes at `offset` of the body, in the buffer or, where they
  // went on already, in the spill file.
  void patch(std::size_t offset, const void* data, std::size_t n);
  // Writes at `offset` of the file (its header included); after a failure, nothing.
  void spillWrite(const void* data, std::size_t n, std::size_t offset) const;
  void need(std::size_t bytes, const char* what) const;
  std::uint32_t rawU32();
  // Checks the header of the bytes to read and starts after it.
  void startReading();
  const std::uint8_t* bytes() const { return view_ ? view_.get() : buffer_.data(); }
  std::size_t byteCount() const { return view_ ? viewSize_ : buffer_.size(); }

  std::vector<std::uint8_t> buffer_;
  std::shared_ptr<const std::uint8_t> view_;  // reading from bytes owned elsewhere
  std::size_t viewSize_ = 0;
  int sourceDescriptor_ = -1;  // the file view_ maps, for large raw blocks
  static constexpr std::size_t kReadFromFileAtLeast = std::size_t{1} << 20;
  std::vector<std::size_t> openChunks_;  // offsets of open chunk headers, from the start of the body
  // Spilling (writing only): the body's first spilled_ bytes are in the file.
  std::size_t spillAt_ = 0;  // 0: never
  Spill spill_;
  bool spillStarted_ = false;
  mutable int spillFd_ = -1;  // until stage() hands it back
  std::size_t spilled_ = 0;
  mutable Error spillError_;  // the first failure; an empty message: none
  std::size_t base_ = 0;                 // header bytes in buffer_ (reading only)
  std::size_t pos_ = 0;
  std::string name_;
  bool nonFinite_ = false;
};

// Typed writes; each returns the stream so that writes chain.
T_MemoryFile& operator<<(T_MemoryFile& f, const bool& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const unsigned char& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const int& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const unsigned int& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const float& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const std::string& v);
T_MemoryFile& operator<<(T_MemoryFile& f, const char* v);
T_MemoryFile& operator<<(T_MemoryFile& f, const M_Matrix4x3Template<float>& v);

// Container write: tag 28, the count as an int value, then each element.
template <typename T>
T_MemoryFile& operator<<(T_MemoryFile& f, const std::vector<T>& v) {
  f.writeTag(BT_Sequence);
  f << static_cast<int>(v.size());
  for (const T& e : v) f << e;
  return f;
}

// Typed reads used by the options file.
T_MemoryFile& operator>>(T_MemoryFile& f, int& v);
T_MemoryFile& operator>>(T_MemoryFile& f, float& v);
T_MemoryFile& operator>>(T_MemoryFile& f, std::string& v);

// Raw bytes without tag. The stream's own write takes an int length, so
// arrays past 2 GiB go in pieces.
void writeRawBytes(T_MemoryFile& f, const void* data, std::size_t length);

// Raw array of plain numeric structures without count or tag.
template <typename T>
void writeRawArray(T_MemoryFile& f, const std::vector<T>& v) {
  writeRawBytes(f, v.data(), v.size() * sizeof(T));
}

// Raw block: the count as an unsigned int value, then the array without tag.
template <typename T>
void writeRawBlock(T_MemoryFile& f, const std::vector<T>& v) {
  f << static_cast<unsigned int>(v.size());
  writeRawArray(f, v);
}
