#include "host/memory/binary_buffers.h"

#include <filesystem>
#include <limits>

#include "host/memory/regular_file.h"

namespace hostmodel {

std::string BufferFiles::key(const std::string& name) const {
  const std::filesystem::path path =
      std::filesystem::path(name).is_absolute() || baseDir_.empty() ? std::filesystem::path(name)
                                                                    : std::filesystem::path(baseDir_) / name;
  return path.lexically_normal().string();
}

void BufferFiles::supply(const std::string& name, std::span<const unsigned char> bytes) { files_[key(name)] = bytes; }

std::span<const unsigned char> BufferFiles::file(const std::string& name, const JsonCursor& where) {
  const std::string key = this->key(name);
  if (const auto it = files_.find(key); it != files_.end()) return it->second;

  read_.push_back(readRegularFile<std::vector<unsigned char>>(
      key, "buffer file", [&](const std::string& message) { where.fail("\"" + name + "\": " + message); }));
  return files_.emplace(key, read_.back()).first->second;
}

BufferView BufferFiles::view(const JsonCursor& where, std::size_t elementSize) {
  where.expectMembers({"buffer", "byteOffset", "count"});
  const JsonCursor bufferName = where["buffer"];
  const std::string name = bufferName.asString();
  const auto offsetMember = where.find("byteOffset");
  const auto offset =
      static_cast<std::size_t>(offsetMember ? offsetMember->asInteger(0, std::numeric_limits<long long>::max()) : 0);
  const auto count = static_cast<std::size_t>(where["count"].asInteger(0, std::numeric_limits<int>::max()));

  const std::span<const unsigned char> bytes = file(name, bufferName);
  const bool fits = offset <= bytes.size() && count <= (bytes.size() - offset) / elementSize;
  if (!fits) {
    where.fail("buffer \"" + name + "\" holds " + std::to_string(bytes.size()) + " bytes, too few for " +
               std::to_string(count) + " elements of " + std::to_string(elementSize) + " bytes from byteOffset " +
               std::to_string(offset));
  }
  return {bytes.data() + offset, count};
}

}  // namespace hostmodel
