#include "file_decoder.h"

#include <algorithm>
#include <cerrno>
#include <cctype>
#include <cstdio>
#include <cstring>

// The WebAssembly build for zt2view's page decodes bytes in memory only and
// has no file system: loading files is left out of it.
#ifndef ZTX_NO_FILE_SYSTEM
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#endif

#include "chunk_reader.h"
#include "chunk_schema.h"
#include "format/memory_file.h"
#include "host/inhouse/exceptions.h"
#include "host/inhouse/text.h"
#include "options_file.h"

namespace ztexport {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what, std::size_t offset) {
  raiseError(FormatError(FormatError::Kind::Corrupt, path,
                         path + ": " + what + " at byte offset " + std::to_string(offset), offset));
}

void checkHeader(const std::string& path, std::span<const std::uint8_t> bytes) {
  const std::size_t magicBytes = std::min<std::size_t>(bytes.size(), 4);
  if (magicBytes > 0 && std::memcmp(bytes.data(), kMemoryFileMagic, magicBytes) != 0)
    fail(path, "not a ZT chunk file: the header does not start with \"ZTMF\"", 0);
  if (bytes.size() < kMemoryFileHeaderSize)
    fail(path, "unexpected end of data while reading the file header", bytes.size());
  std::uint32_t encoding;
  std::memcpy(&encoding, bytes.data() + 4, 4);
  if (encoding != kMemoryFileEncoding) fail(path, "unsupported file encoding " + std::to_string(encoding), 4);
}

}  // namespace

// Decided by the first value; the extension only breaks a tie (an empty
// body, or a first chunk this tool does not know).
FileKind detectFileKind(const std::string& path, std::span<const std::uint8_t> bytes) {
  checkHeader(path, bytes);
  const std::string ext = ztext::lowerExtension(path);
  const FileKind byExtension =
      ext == ".skd" ? FileKind::VertexData : ext == ".cfg" ? FileKind::Options : FileKind::Scene;
  if (bytes.size() == kMemoryFileHeaderSize) return byExtension;
  const std::uint8_t tag = bytes[kMemoryFileHeaderSize];
  if (tag == BT_Int) return FileKind::Options;
  if (tag != BT_Chunk) {
    char what[192];
    std::snprintf(what, sizeof what,
                  "unknown content: the first value has type tag 0x%02x, where a scene or per-vertex file starts with "
                  "a chunk and an options file with an int",
                  tag);
    fail(path, what, kMemoryFileHeaderSize);
  }
  if (bytes.size() < kMemoryFileHeaderSize + 5) return byExtension == FileKind::Options ? FileKind::Scene : byExtension;
  std::uint32_t id;
  std::memcpy(&id, bytes.data() + kMemoryFileHeaderSize + 1, 4);
  if (id == chunk_kind::kVertexData.id) return FileKind::VertexData;
  if (findChunkKind(id) != nullptr) return FileKind::Scene;
  return byExtension == FileKind::VertexData ? FileKind::VertexData : FileKind::Scene;
}

FileBytes FileBytes::of(std::vector<std::uint8_t> bytes) {
  auto owner = std::make_shared<const std::vector<std::uint8_t>>(std::move(bytes));
  const std::size_t size = owner->size();
  return {std::shared_ptr<const std::uint8_t>(owner, owner->data()), size};
}

DecodedFile decodeBytes(const std::string& path, std::vector<std::uint8_t> bytes, TreeDetail detail) {
  return decodeBytes(path, FileBytes::of(std::move(bytes)), detail);
}

DecodedFile decodeBytes(const std::string& path, FileBytes bytes, TreeDetail detail) {
  DecodedFile out;
  out.path = path;
  out.size = bytes.size;
  out.kind = detectFileKind(path, bytes.span());
  // The exporter saves no empty file, so a bare header is a cut-off file.
  if (bytes.size == kMemoryFileHeaderSize && out.kind != FileKind::Options)
    fail(path, "unexpected end of data: nothing follows the file header", kMemoryFileHeaderSize);
  const auto decode = [&] {
    T_MemoryFile file = T_MemoryFile::fromView(std::move(bytes.data), bytes.size, path, bytes.descriptor);
    if (out.kind == FileKind::Options) {
      decodeOptionsValues(file, out);
    } else {
      ChunkReader reader(file, detail);
      out.chunks = reader.readTopLevelChunks();
    }
  };
#ifdef __cpp_exceptions
  try {
    decode();
  } catch (const T_Exception& e) {
    // Faults outside any chunk (a top-level header) come without context.
    const auto* bad = dynamic_cast<const T_FileException_BadData*>(&e);
    throw FormatError(FormatError::Kind::Corrupt, path, e.what(), bad ? bad->offset() : 0);
  }
#else
  decode();  // the message is the fault's own, as above
#endif
  return out;
}

#ifndef ZTX_NO_FILE_SYSTEM
namespace {

[[noreturn]] void unreadable(const std::string& path, const std::string& what, int systemError) {
  // A message is one C string: a NUL in the name is shown, not kept.
  std::string shown;
  for (const char c : path) shown += c == '\0' ? std::string("\\0") : std::string(1, c);
  raiseError(FormatError(FormatError::Kind::Unreadable, path, shown + ": " + what, 0, {}, systemError));
}

// Refuses, with the reason, what cannot be read as a file of ours.
void checkReadable(const std::string& path) {
  // The system reads a NUL as the end of the name: it would open another file than the one named.
  if (path.find('\0') != std::string::npos)
    unreadable(path, "the name holds a NUL character, so it names no file", EINVAL);
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    const int error = errno;
    if (error == ENOENT || error == ENOTDIR) unreadable(path, "no such file", ENOENT);
    unreadable(path, std::string("cannot be opened for reading: ") + std::strerror(error), error);
  }
  if (!S_ISREG(status.st_mode)) unreadable(path, "not a regular file", S_ISDIR(status.st_mode) ? EISDIR : 0);
}

}  // namespace

// Mapped read only, its pages the page cache's own: the chunk reader copies
// what it keeps. A file that cannot be mapped (an empty one, or a file
// system without mappings) is read instead.
FileBytes mapFileBytes(const std::string& path) {
  checkReadable(path);
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    const int error = errno;
    unreadable(path, std::string("cannot be opened for reading: ") + std::strerror(error), error);
  }
  struct stat status {};
  void* p = MAP_FAILED;
  std::size_t size = 0;
  if (::fstat(fd, &status) == 0 && status.st_size > 0) {
    size = static_cast<std::size_t>(status.st_size);
    p = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
  }
  if (p == MAP_FAILED) {
    ::close(fd);
    return FileBytes::of(readFileBytes(path));
  }
  const auto* bytes = static_cast<const std::uint8_t*>(p);
  // The descriptor stays open with the mapping: large blocks are read through it.
  return {std::shared_ptr<const std::uint8_t>(bytes,
                                              [size, fd](const std::uint8_t* b) {
                                                ::munmap(const_cast<std::uint8_t*>(b), size);
                                                ::close(fd);
                                              }),
          size, fd};
}

std::vector<std::uint8_t> readFileBytes(const std::string& path, std::size_t limit) {
  checkReadable(path);
  std::error_code ec;
  std::ifstream in(path, std::ios::binary);
  if (!in) {
    const int error = errno != 0 ? errno : EIO;
    unreadable(path, std::string("cannot be opened for reading: ") + std::strerror(error), error);
  }
  // One read of the size the file has; a file that grows meanwhile is read
  // as far as it was.
  const std::uintmax_t size = std::filesystem::file_size(path, ec);
  std::vector<std::uint8_t> bytes(ec ? 0 : static_cast<std::size_t>(std::min<std::uintmax_t>(size, limit)));
  in.read(reinterpret_cast<char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  if (in.bad()) unreadable(path, "read error", EIO);
  bytes.resize(static_cast<std::size_t>(in.gcount()));
  return bytes;
}

DecodedFile loadFile(const std::string& path, TreeDetail detail) {
  return decodeBytes(path, mapFileBytes(path), detail);
}
#endif

}  // namespace ztexport
