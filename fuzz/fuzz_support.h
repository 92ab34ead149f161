// What the harnesses share: a scratch directory of their own for the readers
// that take a file name, removed when the fuzzer ends.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace ztx_fuzz {

class ScratchDir {
 public:
  ScratchDir() {
    // In memory where the system offers it: every save flushes its file to the disk.
    const std::filesystem::path base = std::filesystem::is_directory("/dev/shm")
                                           ? std::filesystem::path("/dev/shm")
                                           : std::filesystem::temp_directory_path();
    path_ = (base / "ztx-fuzz-XXXXXX").string();
    if (!::mkdtemp(path_.data())) std::abort();
  }
  ~ScratchDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
};

inline const std::string& scratchDir() {
  static const ScratchDir dir;
  return dir.path();
}

inline std::string writeScratch(const std::string& name, const std::uint8_t* data, std::size_t size) {
  const std::string path = scratchDir() + "/" + name;
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(data),
                                                                 static_cast<std::streamsize>(size));
  return path;
}

}  // namespace ztx_fuzz
