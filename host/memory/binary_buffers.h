// Side files of raw little-endian arrays that a scene refers to, so that big
// meshes load without going through JSON text. Each file is mapped once,
// whole, read only (read, where it cannot be mapped), for the loader to check
// and copy small arrays out of; a file mapped from disk is also kept open, so
// that a large array can stay in it until it is used (mesh_loader.cpp).
// Bytes supplied in memory are read where they lie.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/memory/json_cursor.h"

namespace hostmodel {

// A buffer file read from disk, kept open while a mesh array that still lies
// in it exists, so that the array is read from the file that was checked.
struct OpenBufferFile {
  OpenBufferFile(int descriptor, std::string name);
  OpenBufferFile(const OpenBufferFile&) = delete;
  OpenBufferFile& operator=(const OpenBufferFile&) = delete;
  ~OpenBufferFile();
  int fd;
  std::string path;
};

// A run of `count` elements of `elementSize` bytes inside a loaded file.
struct BufferView {
  const unsigned char* data = nullptr;
  std::size_t count = 0;
  // The file on disk the bytes are mapped from, with their place in it; null
  // for bytes supplied in memory or read whole.
  std::shared_ptr<const OpenBufferFile> file;
  std::size_t offset = 0;
};

class BufferFiles {
 public:
  explicit BufferFiles(std::string baseDir) : baseDir_(std::move(baseDir)) {}

  // Reads a reference {"buffer": file, "byteOffset": n, "count": m} at `where`
  // and checks that m elements of `elementSize` bytes lie inside the file.
  BufferView view(const JsonCursor& where, std::size_t elementSize);

  // Makes `bytes` the content of the buffer file `name` (resolved as a
  // reference would be), so that a scene built in memory never goes to disk.
  // The bytes are not copied: they must outlive every view of them.
  void supply(const std::string& name, std::span<const unsigned char> bytes);

 private:
  std::string key(const std::string& name) const;
  struct Loaded {
    std::span<const unsigned char> bytes;
    std::shared_ptr<const OpenBufferFile> open;  // for a file mapped from disk
  };
  const Loaded& file(const std::string& name, const JsonCursor& where);
  std::string baseDir_;
  std::map<std::string, Loaded> files_;
  // A file mapped from disk, unmapped with the buffers.
  struct Mapping {
    void* data = nullptr;
    std::size_t size = 0;
    Mapping(void* d, std::size_t n) : data(d), size(n) {}
    Mapping(Mapping&& other) noexcept : data(other.data), size(other.size) { other.data = nullptr; }
    Mapping(const Mapping&) = delete;
    ~Mapping();
  };
  std::vector<Mapping> mapped_;
  std::vector<std::vector<unsigned char>> read_;  // the files read from disk, which the views show
};

// True when `c` is a buffer reference rather than an inline array.
inline bool isBufferReference(const JsonCursor& c) { return c.isObject(); }

}  // namespace hostmodel
