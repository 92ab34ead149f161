// Loads a file, tells its kind from its content and decodes it.
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "decoded_file.h"

namespace ztexport {

// A file's whole content, read only: mapped from the page cache, or bytes in
// memory; `data` owns them.
struct FileBytes {
  std::shared_ptr<const std::uint8_t> data;
  std::size_t size = 0;
  int descriptor = -1;  // the mapped file, open as long as `data` lives; -1 for bytes in memory
  static FileBytes of(std::vector<std::uint8_t> bytes);
  std::span<const std::uint8_t> span() const { return {data.get(), size}; }
};

// Throws FormatError: Unreadable when `path` cannot be read, Corrupt when
// its content is corrupt or truncated.
DecodedFile loadFile(const std::string& path, TreeDetail detail = TreeDetail::Full);

// The same for bytes in memory; `path` names the file in messages and, when
// the content leaves the kind open, its extension decides.
DecodedFile decodeBytes(const std::string& path, FileBytes bytes, TreeDetail detail = TreeDetail::Full);
DecodedFile decodeBytes(const std::string& path, std::vector<std::uint8_t> bytes,
                        TreeDetail detail = TreeDetail::Full);

// The file's whole content, mapped rather than copied; throws FormatError
// (Unreadable).
FileBytes mapFileBytes(const std::string& path);
// The file's bytes, at most `limit` of them from its start; throws
// FormatError (Unreadable).
std::vector<std::uint8_t> readFileBytes(const std::string& path, std::size_t limit = SIZE_MAX);

// The kind the content (and, for ties, the extension) gives; throws
// FormatError when the bytes are no file of ours.
FileKind detectFileKind(const std::string& path, std::span<const std::uint8_t> bytes);

}  // namespace ztexport

namespace ztexport {

// The typed structs of a decoded tree (of either detail).
Scene sceneFromTree(const DecodedFile& file);
SkinData skinFromTree(const DecodedFile& file);
Options optionsFromTree(const DecodedFile& file);

}  // namespace ztexport
