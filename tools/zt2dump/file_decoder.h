// Loads a file, tells its kind from its content and decodes it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "decoded_file.h"

namespace zt2dump {

// The file could not be opened or read (usage-level failure, exit code 2).
class UnreadableFile : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws UnreadableFile when `path` cannot be read, DumpError when its
// content is corrupt or truncated.
DecodedFile loadFile(const std::string& path);

// The same for bytes in memory; `path` names the file in messages and, when
// the content leaves the kind open, its extension decides.
DecodedFile decodeBytes(const std::string& path, std::vector<std::uint8_t> bytes);

}  // namespace zt2dump
