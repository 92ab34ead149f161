#include "host/memory/binary_buffers.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
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

namespace {
// Buffer files kept open at once, across every scene of the process: past
// this many, arrays are read at once as they always were, so that a scene of
// many buffer files never runs the process out of descriptors.
constexpr int kMostKeptOpen = 256;
std::atomic<int> keptOpen{0};
}  // namespace

OpenBufferFile::OpenBufferFile(int descriptor, std::string name) : fd(descriptor), path(std::move(name)) {
  keptOpen.fetch_add(1);
}

OpenBufferFile::~OpenBufferFile() {
  keptOpen.fetch_sub(1);
  if (fd >= 0) ::close(fd);
}

void BufferFiles::supply(const std::string& name, std::span<const unsigned char> bytes) {
  files_[key(name)] = {bytes, nullptr};
}

const BufferFiles::Loaded& BufferFiles::file(const std::string& name, const JsonCursor& where) {
  const std::string key = this->key(name);
  if (const auto it = files_.find(key); it != files_.end()) return it->second;

  {
    // Mapped, the bytes are the page cache's own: no zeroed buffer, no copy.
    RegularFile f(key);
    if (f.ok() && f.size() > 0) {
      void* p = ::mmap(nullptr, f.size(), PROT_READ, MAP_PRIVATE, f.descriptor(), 0);
      if (p != MAP_FAILED) {
        mapped_.emplace_back(p, f.size());
        noteFileRead(key);
        // Kept open for the arrays left in the file (mesh_loader.cpp).
        const int kept = keptOpen.load() < kMostKeptOpen ? ::fcntl(f.descriptor(), F_DUPFD_CLOEXEC, 0) : -1;
        std::shared_ptr<const OpenBufferFile> open;
        if (kept >= 0) open = std::make_shared<const OpenBufferFile>(kept, key);
        return files_
            .emplace(key, Loaded{std::span<const unsigned char>(static_cast<const unsigned char*>(p), f.size()),
                                 std::move(open)})
            .first->second;
      }
    }
  }
  read_.push_back(readRegularFile<std::vector<unsigned char>>(
      key, "buffer file", [&](const std::string& message) { where.fail("\"" + name + "\": " + message); }));
  return files_.emplace(key, Loaded{read_.back(), nullptr}).first->second;
}

BufferFiles::Mapping::~Mapping() {
  if (data) ::munmap(data, size);
}

BufferView BufferFiles::view(const JsonCursor& where, std::size_t elementSize) {
  where.expectMembers({"buffer", "byteOffset", "count"});
  const JsonCursor bufferName = where["buffer"];
  const std::string name = bufferName.asString();
  const auto offsetMember = where.find("byteOffset");
  const auto offset =
      static_cast<std::size_t>(offsetMember ? offsetMember->asInteger(0, std::numeric_limits<long long>::max()) : 0);
  const auto count = static_cast<std::size_t>(where["count"].asInteger(0, std::numeric_limits<int>::max()));

  const Loaded& loaded = file(name, bufferName);
  const std::span<const unsigned char> bytes = loaded.bytes;
  const bool fits = offset <= bytes.size() && count <= (bytes.size() - offset) / elementSize;
  if (!fits) {
    where.fail("buffer \"" + name + "\" holds " + std::to_string(bytes.size()) + " bytes, too few for " +
               std::to_string(count) + " elements of " + std::to_string(elementSize) + " bytes from byteOffset " +
               std::to_string(offset));
  }
  return {bytes.data() + offset, count, loaded.open, offset};
}

}  // namespace hostmodel
