// Side files of raw little-endian arrays that a scene refers to, so that big
// meshes load without going through JSON text. Each file is mapped once,
// whole, read only (read, where it cannot be mapped); arrays are then copied
// out of it with memcpy, so the file's bytes are never copied as a whole.
// Bytes supplied in memory are read where they lie.
#pragma once

#include <cstddef>
#include <map>
#include <span>
#include <string>
#include <vector>

#include "host/memory/json_cursor.h"

namespace hostmodel {

// A run of `count` elements of `elementSize` bytes inside a loaded file.
struct BufferView {
  const unsigned char* data = nullptr;
  std::size_t count = 0;
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
  std::span<const unsigned char> file(const std::string& name, const JsonCursor& where);
  std::string baseDir_;
  std::map<std::string, std::span<const unsigned char>> files_;
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
