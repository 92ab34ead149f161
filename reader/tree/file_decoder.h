// Loads a file, tells its kind from its content and decodes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "decoded_file.h"

namespace ztexport {

// Throws FormatError: Unreadable when `path` cannot be read, Corrupt when
// its content is corrupt or truncated.
DecodedFile loadFile(const std::string& path, TreeDetail detail = TreeDetail::Full);

// The same for bytes in memory; `path` names the file in messages and, when
// the content leaves the kind open, its extension decides.
DecodedFile decodeBytes(const std::string& path, std::vector<std::uint8_t> bytes,
                        TreeDetail detail = TreeDetail::Full);

// The file's bytes, at most `limit` of them from its start; throws
// FormatError (Unreadable).
std::vector<std::uint8_t> readFileBytes(const std::string& path, std::size_t limit = SIZE_MAX);

// The kind the content (and, for ties, the extension) gives; throws
// FormatError when the bytes are no file of ours.
FileKind detectFileKind(const std::string& path, const std::vector<std::uint8_t>& bytes);

}  // namespace ztexport

namespace ztexport {

// The typed structs of a decoded tree (of either detail).
Scene sceneFromTree(const DecodedFile& file);
SkinData skinFromTree(const DecodedFile& file);
Options optionsFromTree(const DecodedFile& file);

}  // namespace ztexport
