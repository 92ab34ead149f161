#include "format/memory_file.h"

#include <unistd.h>

#include <algorithm>
#include <bit>
#include <cerrno>
#include <cmath>
#include <cassert>
#include <cstdio>
#include <cstring>
#include <new>

#include "host/inhouse/exceptions.h"
#include "host/inhouse/system.h"

// The WebAssembly build for zt2view's page reads bytes in memory only and has
// no file system: what opens, reads or saves files is left out of it.
#ifndef ZTX_NO_FILE_SYSTEM
#include <filesystem>
#include <fstream>

#include "format/output_files.h"
#endif

// Values and raw blocks are copied as they lie in memory.
static_assert(std::endian::native == std::endian::little, "the file encoding is little-endian");

T_MemoryFile::T_MemoryFile(unsigned int initialSize) { buffer_.reserve(initialSize); }

#ifndef ZTX_NO_FILE_SYSTEM
T_MemoryFile::T_MemoryFile(const char* name, AccessMethod /*method*/) : name_(name) {
  std::error_code ec;
  if (!std::filesystem::is_regular_file(name, ec)) raiseError(T_FileException_FileNotFound(name));
  std::ifstream in(name, std::ios::binary);
  if (!in) raiseError(T_FileException_FileNotFound(name));
  buffer_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  *this = fromBytes(std::move(buffer_), name);
}
#endif

T_MemoryFile T_MemoryFile::fromBytes(std::vector<std::uint8_t> bytes, const std::string& name) {
  T_MemoryFile f(0);
  f.buffer_ = std::move(bytes);
  f.name_ = name;
  f.startReading();
  return f;
}

T_MemoryFile T_MemoryFile::fromView(std::shared_ptr<const std::uint8_t> bytes, std::size_t size, const std::string& name,
                                    int descriptor) {
  T_MemoryFile f(0);
  f.view_ = std::move(bytes);
  f.viewSize_ = size;
  f.sourceDescriptor_ = descriptor;
  f.name_ = name;
  f.startReading();
  return f;
}

void T_MemoryFile::startReading() {
  if (byteCount() < kMemoryFileHeaderSize || std::memcmp(bytes(), kMemoryFileMagic, 4) != 0)
    raiseError(T_Exception(name_ + ": not a ZT chunk file (the header is missing or wrong)"));
  std::uint32_t encoding;
  std::memcpy(&encoding, bytes() + 4, 4);
  if (encoding != kMemoryFileEncoding)
    raiseError(T_Exception(name_ + ": unsupported file encoding " + std::to_string(encoding)));
  base_ = kMemoryFileHeaderSize;
  pos_ = kMemoryFileHeaderSize;
}

namespace {
// Spilled bytes go out in writes of about this many.
constexpr std::size_t kSpillBlock = std::size_t{1} << 20;
}  // namespace

void T_MemoryFile::append(const void* data, std::size_t length) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  if (spillStarted_ && length >= kSpillBlock) {
    // A large block goes straight on, not through the buffer.
    spillWrite(buffer_.data(), buffer_.size(), kMemoryFileHeaderSize + spilled_);
    spilled_ += buffer_.size();
    buffer_.clear();
    spillWrite(p, length, kMemoryFileHeaderSize + spilled_);
    spilled_ += length;
    return;
  }
#ifdef __cpp_exceptions
  try {
    buffer_.insert(buffer_.end(), p, p + length);
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  }
#else
  // Without exceptions a failed allocation stops the program where it fails.
  buffer_.insert(buffer_.end(), p, p + length);
#endif
  if (spillAt_ != 0) spillIfDue();
}

void T_MemoryFile::spillBeyond(std::size_t threshold, Spill spill) {
  spillAt_ = threshold > 0 ? threshold : 1;
  spill_ = std::move(spill);
}

void T_MemoryFile::spillWrite(const void* data, std::size_t n, std::size_t offset) const {
#ifndef ZTX_NO_FILE_SYSTEM
  if (spillFd_ < 0 || !spillError_.message.empty()) return;
  // After a failure nothing more is written; stage() hands it to the
  // staging, which then refuses its commit.
  if (!writeAllAt(spillFd_, data, n, offset)) spillError_ = Error{ErrorKind::io, std::strerror(errno)};
#else
  (void)data, (void)n, (void)offset;
#endif
}

void T_MemoryFile::spillIfDue() {
  if (!spillStarted_) {
    if (spilled_ + buffer_.size() <= spillAt_) return;
    spillStarted_ = true;
    Result<int> opened = spill_.open ? spill_.open() : Result<int>(Error{ErrorKind::io, "no file to write to"});
    if (!opened) {
      spillError_ = opened.error();
    } else {
      spillFd_ = opened.value();
      std::uint8_t header[kMemoryFileHeaderSize];
      std::memcpy(header, kMemoryFileMagic, 4);
      std::memcpy(header + 4, &kMemoryFileEncoding, 4);
      spillWrite(header, sizeof header, 0);
    }
  } else if (buffer_.size() < kSpillBlock) {
    return;
  }
  spillWrite(buffer_.data(), buffer_.size(), kMemoryFileHeaderSize + spilled_);
  spilled_ += buffer_.size();
  buffer_.clear();
  // From now on the buffer holds about a block at a time.
  if (buffer_.capacity() > 4 * kSpillBlock) std::vector<std::uint8_t>().swap(buffer_);
}

void T_MemoryFile::patch(std::size_t offset, const void* data, std::size_t n) {
  const auto* p = static_cast<const std::uint8_t*>(data);
  for (std::size_t i = 0; i < n; ++i) {
    if (offset + i >= spilled_)
      buffer_[offset + i - spilled_] = p[i];
    else
      spillWrite(p + i, 1, kMemoryFileHeaderSize + offset + i);
  }
}

void T_MemoryFile::createChunk(unsigned int id, unsigned int version) {
  openChunks_.push_back(spilled_ + buffer_.size());
  const std::uint8_t tag = BT_Chunk;
  const std::uint32_t zero = 0;
  append(&tag, 1);
  append(&id, 4);
  append(&version, 4);
  append(&zero, 4);  // completed by closeChunk
}

void T_MemoryFile::closeChunk() {
  assert(!openChunks_.empty() && "closeChunk without an open chunk");
  const std::size_t header = openChunks_.back();
  openChunks_.pop_back();
  const std::size_t body = spilled_ + buffer_.size() - header - kChunkHeaderSize;
  if (body > 0xFFFFFFFFu) raiseError(T_Exception("chunk larger than 4 GiB"));
  const auto length = static_cast<std::uint32_t>(body);
  if (header + 9 >= spilled_)
    std::memcpy(buffer_.data() + (header + 9 - spilled_), &length, 4);
  else
    patch(header + 9, &length, 4);
}

void T_MemoryFile::reserveMore(std::size_t bytes) {
  // Room is claimed in proportion to what is there: a file of many small
  // meshes, each asking for its own bytes, would otherwise move the whole
  // buffer at every mesh.
  // Bytes that will go on into a file need no room here.
  if (spillAt_ != 0 && spilled_ + buffer_.size() + bytes > spillAt_) return;
  const auto grow = [&] {
    if (buffer_.capacity() - buffer_.size() < bytes)
      buffer_.reserve(std::max(buffer_.size() + bytes, buffer_.capacity() + buffer_.capacity() / 2));
  };
#ifdef __cpp_exceptions
  try {
    grow();
  } catch (const std::bad_alloc&) {
    throw T_MemoryException_Allocation();
  } catch (const std::length_error&) {
    throw T_MemoryException_Allocation();
  }
#else
  grow();  // a failed allocation stops the program where it fails
#endif
}

void T_MemoryFile::writeTag(BasicType tag) {
  const std::uint8_t t = tag;
  append(&t, 1);
}

void T_MemoryFile::write(const void* data, int length) {
  if (length > 0) append(data, static_cast<std::size_t>(length));
}

void writeRawBytes(T_MemoryFile& f, const void* data, std::size_t length) {
  constexpr std::size_t kPiece = std::size_t{1} << 30;
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (length > 0) {
    const std::size_t n = length < kPiece ? length : kPiece;
    f.write(bytes, static_cast<int>(n));
    bytes += n;
    length -= n;
  }
}

#ifndef ZTX_NO_FILE_SYSTEM
Result<void> T_MemoryFile::save(const char* name) const {
  FileStaging staging;
  if (Result<void> staged = stage(name, staging); !staged) return staged;
  return staging.commit();
}

Result<void> T_MemoryFile::stage(const char* name, FileStaging& staging) const {
  assert(openChunks_.empty() && "save with chunks still open");
  if (File->writesSuppressed()) return {};
  if (spillStarted_) {
    // The file is staged already (or its staging failed, which the staging
    // keeps), most of it written: the rest goes after it.
    if (spillFd_ < 0) return spillError_.message.empty() ? Result<void>() : Result<void>(spillError_);
    spillWrite(buffer_.data(), buffer_.size(), kMemoryFileHeaderSize + spilled_);
    Result<void> written = spillError_.message.empty() ? Result<void>() : Result<void>(spillError_);
    const int fd = spillFd_;
    spillFd_ = -1;
    spillError_ = Error{ErrorKind::io, "the file was saved already"};
    return spill_.finish ? spill_.finish(fd, std::move(written)) : written;
  }
  std::uint8_t header[kMemoryFileHeaderSize];
  std::memcpy(header, kMemoryFileMagic, 4);
  std::memcpy(header + 4, &kMemoryFileEncoding, 4);
  // The staging also keeps the failure and refuses its commit.
  return staging.stageReplacement(name, {{header, sizeof header}, {buffer_.data() + base_, buffer_.size() - base_}});
}
#endif

// --- reading ---

void T_MemoryFile::fail(std::size_t offset, const std::string& what) const {
  raiseError(T_FileException_BadData(name_ + ": " + what + " at byte offset " + std::to_string(offset), offset));
}

void T_MemoryFile::seek(std::size_t offset) {
  if (offset > byteCount()) fail(offset, "seek past the end of the data");
  pos_ = offset;
}

void T_MemoryFile::need(std::size_t bytes, const char* what) const {
  if (byteCount() - pos_ < bytes || pos_ > byteCount())
    fail(pos_, std::string("unexpected end of data while reading ") + what);
}

std::uint8_t T_MemoryFile::peekTag() const {
  need(1, "a type tag");
  return bytes()[pos_];
}

const char* basicTypeName(std::uint8_t tag) {
  switch (tag) {
    case BT_Bool: return "a bool";
    case BT_UChar: return "an unsigned char";
    case BT_Int: return "an int";
    case BT_UInt: return "an unsigned int";
    case BT_Float: return "a float";
    case BT_String: return "a string";
    case BT_Matrix4x3: return "a matrix";
    case BT_Sequence: return "a sequence";
    case BT_Chunk: return "a chunk";
    default: return nullptr;
  }
}

void T_MemoryFile::expectTag(BasicType expected) {
  const std::uint8_t tag = peekTag();
  if (tag != expected) {
    const char* got = basicTypeName(tag);
    char buf[96];
    if (got)
      std::snprintf(buf, sizeof buf, "expected %s value, found %s value", basicTypeName(expected), got);
    else
      std::snprintf(buf, sizeof buf, "expected %s value, found unknown type tag 0x%02x", basicTypeName(expected), tag);
    fail(pos_, buf);
  }
  ++pos_;
}

std::uint32_t T_MemoryFile::rawU32() {
  std::uint32_t v;
  std::memcpy(&v, bytes() + pos_, 4);
  pos_ += 4;
  return v;
}

ChunkHeader T_MemoryFile::readChunkHeader() {
  const std::size_t start = pos_;
  expectTag(BT_Chunk);
  if (byteCount() - pos_ < 12) fail(start, "unexpected end of data while reading a chunk header");
  ChunkHeader h;
  h.id = rawU32();
  h.version = rawU32();
  h.length = rawU32();
  h.bodyOffset = pos_;
  if (h.length > byteCount() - pos_)
    fail(start, "chunk " + hexId(h.id) +
                    " claims " + std::to_string(h.length) + " bytes but only " + std::to_string(byteCount() - pos_) +
                    " remain");
  return h;
}

bool T_MemoryFile::readBool() {
  expectTag(BT_Bool);
  need(1, "a bool");
  const std::uint8_t v = bytes()[pos_];
  if (v > 1) fail(pos_, "bool value " + std::to_string(v) + " is neither 0 nor 1");
  ++pos_;
  return v != 0;
}

std::uint8_t T_MemoryFile::readUChar() {
  expectTag(BT_UChar);
  need(1, "an unsigned char");
  return bytes()[pos_++];
}

std::int32_t T_MemoryFile::readInt() {
  expectTag(BT_Int);
  need(4, "an int");
  return static_cast<std::int32_t>(rawU32());
}

std::uint32_t T_MemoryFile::readUInt() {
  expectTag(BT_UInt);
  need(4, "an unsigned int");
  return rawU32();
}

float T_MemoryFile::readFloat() {
  expectTag(BT_Float);
  need(4, "a float");
  float v;
  std::memcpy(&v, bytes() + pos_, 4);
  pos_ += 4;
  return v;
}

std::string T_MemoryFile::readString() {
  expectTag(BT_String);
  need(4, "a string length");
  const std::size_t lengthAt = pos_;
  const std::uint32_t n = rawU32();
  if (n > byteCount() - pos_) fail(lengthAt, "string of " + std::to_string(n) + " bytes runs past the end of the data");
  std::string s(reinterpret_cast<const char*>(bytes() + pos_), n);
  pos_ += n;
  return s;
}

M_Matrix4x3Template<float> T_MemoryFile::readMatrix() {
  expectTag(BT_Matrix4x3);
  need(48, "a matrix");
  M_Matrix4x3Template<float> m;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) {
      std::memcpy(&m[r][c], bytes() + pos_, 4);
      pos_ += 4;
    }
  return m;
}

std::int32_t T_MemoryFile::readSequenceCount() {
  expectTag(BT_Sequence);
  const std::size_t at = pos_;
  const std::int32_t n = readInt();
  if (n < 0) fail(at, "negative sequence count " + std::to_string(n));
  return n;
}

void T_MemoryFile::readRaw(void* out, std::size_t length) {
  need(length, "a raw block");
  // A large block is read from the file itself rather than copied out of
  // its mapping: the system fills the caller's pages without a fault for
  // each page of the mapping (the mapping's pages are then never touched).
  std::size_t done = 0;
#ifndef ZTX_NO_FILE_SYSTEM
  if (sourceDescriptor_ >= 0 && length >= kReadFromFileAtLeast) {
    auto* to = static_cast<std::uint8_t*>(out);
    while (done < length) {
      const ssize_t n = ::pread(sourceDescriptor_, to + done, length - done, static_cast<off_t>(pos_ + done));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
  }
#endif
  // What the file did not give (it may have changed since it was mapped) comes from the mapping.
  if (done < length) std::memcpy(static_cast<std::uint8_t*>(out) + done, bytes() + pos_ + done, length - done);
  pos_ += length;
}

// --- operators ---

T_MemoryFile& operator<<(T_MemoryFile& f, const bool& v) {
  const std::uint8_t b[2] = {BT_Bool, static_cast<std::uint8_t>(v ? 1 : 0)};
  f.write(b, 2);
  return f;
}

T_MemoryFile& operator<<(T_MemoryFile& f, const unsigned char& v) {
  const std::uint8_t b[2] = {BT_UChar, v};
  f.write(b, 2);
  return f;
}

template <typename T>
static void writeScalar(T_MemoryFile& f, BasicType tag, const T& v) {
  std::uint8_t b[1 + sizeof(T)];
  b[0] = tag;
  std::memcpy(b + 1, &v, sizeof(T));
  f.write(b, sizeof b);
}

T_MemoryFile& operator<<(T_MemoryFile& f, const int& v) {
  writeScalar(f, BT_Int, v);
  return f;
}

T_MemoryFile& operator<<(T_MemoryFile& f, const unsigned int& v) {
  writeScalar(f, BT_UInt, v);
  return f;
}

T_MemoryFile& operator<<(T_MemoryFile& f, const float& v) {
  if (!std::isfinite(v)) f.noteNonFinite();
  writeScalar(f, BT_Float, v);
  return f;
}

T_MemoryFile& operator<<(T_MemoryFile& f, const std::string& v) {
  writeScalar(f, BT_String, static_cast<std::uint32_t>(v.size()));
  writeRawBytes(f, v.data(), v.size());
  return f;
}

T_MemoryFile& operator<<(T_MemoryFile& f, const char* v) { return f << std::string(v); }

T_MemoryFile& operator<<(T_MemoryFile& f, const M_Matrix4x3Template<float>& v) {
  f.writeTag(BT_Matrix4x3);
  for (int r = 0; r < 4; ++r) {
    for (float x : v[r])
      if (!std::isfinite(x)) f.noteNonFinite();
    f.write(v[r].data(), 12);
  }
  return f;
}

T_MemoryFile& operator>>(T_MemoryFile& f, int& v) {
  v = f.readInt();
  return f;
}

T_MemoryFile& operator>>(T_MemoryFile& f, float& v) {
  v = f.readFloat();
  return f;
}

T_MemoryFile& operator>>(T_MemoryFile& f, std::string& v) {
  v = f.readString();
  return f;
}
