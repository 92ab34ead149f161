// What the harnesses share: a scratch directory of their own for the readers
// that take a file name.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

namespace ztx_fuzz {

// ZTX_FUZZ_SCRATCH names the directory when set (bench/run_fuzzers.sh makes
// one and removes it afterwards, since libFuzzer may leave without running
// destructors); otherwise one is made here and removed on a normal exit.
class ScratchDir {
 public:
  ScratchDir() {
    if (const char* given = std::getenv("ZTX_FUZZ_SCRATCH"); given && *given) {
      path_ = given;
      return;
    }
    // In memory where the system offers it: every save flushes its file to the disk.
    const std::filesystem::path base = std::filesystem::is_directory("/dev/shm")
                                           ? std::filesystem::path("/dev/shm")
                                           : std::filesystem::temp_directory_path();
    path_ = (base / "ztx-fuzz-XXXXXX").string();
    if (!::mkdtemp(path_.data())) std::abort();
    owned_ = true;
  }
  ~ScratchDir() {
    std::error_code ec;
    if (owned_) std::filesystem::remove_all(path_, ec);
  }
  const std::string& path() const { return path_; }

 private:
  std::string path_;
  bool owned_ = false;
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
