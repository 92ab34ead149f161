#include "host/memory/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace hostmodel {
namespace {

const char* kindOf(mode_t mode) {
  if (S_ISDIR(mode)) return "a directory";
  if (S_ISFIFO(mode)) return "a FIFO";
  if (S_ISCHR(mode) || S_ISBLK(mode)) return "a device";
  if (S_ISSOCK(mode)) return "a socket";
  return "not a regular file";
}

std::string notRegular(mode_t mode) {
  const std::string kind = kindOf(mode);
  return kind == "not a regular file" ? kind : kind + ", not a regular file";
}

}  // namespace

std::string regularFileStatus(const std::string& path, struct stat& status) {
  if (::stat(path.c_str(), &status) != 0) return std::strerror(errno);
  return S_ISREG(status.st_mode) ? std::string() : notRegular(status.st_mode);
}

RegularFile::RegularFile(const std::string& path) {
  // Without O_NONBLOCK, opening a FIFO waits for a writer that may never come.
  fd_ = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  if (fd_ < 0) {
    reason_ = std::strerror(errno);
    return;
  }
  struct stat& st = status_;
  if (::fstat(fd_, &st) != 0) {
    reason_ = std::strerror(errno);
  } else if (!S_ISREG(st.st_mode)) {
    reason_ = notRegular(st.st_mode);
  } else {
    size_ = static_cast<std::size_t>(st.st_size);
  }
}

RegularFile::~RegularFile() {
  if (fd_ >= 0) ::close(fd_);
}

bool RegularFile::readAll(void* data) {
  auto* p = static_cast<char*>(data);
  std::size_t left = size_;
  while (left > 0) {
    const ssize_t n = ::read(fd_, p, left);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) {
      reason_ = std::strerror(errno);
      return false;
    }
    if (n == 0) {
      reason_ = "the file became shorter while it was read";
      return false;
    }
    p += n;
    left -= static_cast<std::size_t>(n);
  }
  return true;
}

}  // namespace hostmodel
