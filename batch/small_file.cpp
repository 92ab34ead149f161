#include "batch/small_file.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>

#include "format/file_replace.h"

namespace ztbatch {

std::string writeSmallFile(const std::string& path, const std::string& text) {
  const std::filesystem::path target(path);
  std::string temp = (target.parent_path() / ("." + target.filename().string() + ".XXXXXX")).string();
  const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return std::strerror(errno);
  int error = writeAll(fd, text.data(), text.size()) ? 0 : errno;
  if (::close(fd) != 0 && error == 0) error = errno;
  if (error == 0 && ::rename(temp.c_str(), path.c_str()) != 0) error = errno;
  if (error != 0) ::unlink(temp.c_str());
  return error == 0 ? std::string() : std::strerror(error);
}

}  // namespace ztbatch
