#include "format/file_replace.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstring>
#include <vector>

namespace {

constexpr int kMaxLinkHops = 40;  // as the kernel's own limit on a path's symlinks
// Room left in a file name for the temporary's dot, separator and XXXXXX.
constexpr std::size_t kTempStemMax = NAME_MAX - 8;

std::string reason(int error) { return std::strerror(error); }

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

mode_t processUmask() {
  // umask can only be read by setting it; done once, before any file of ours is made.
  static const mode_t mask = [] {
    const mode_t m = ::umask(0);
    ::umask(m);
    return m;
  }();
  return mask;
}

// The path the data finally lands in: `target` with every symlink followed.
// A dangling link resolves to the file it names, which is then created.
bool resolveLinks(std::string& path, std::string& error) {
  for (int hop = 0; hop <= kMaxLinkHops; ++hop) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
      if (errno == ENOENT) return true;
      error = reason(errno);
      return false;
    }
    if (!S_ISLNK(st.st_mode)) return true;
    std::vector<char> buffer(PATH_MAX + 1);
    const ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size() - 1);
    if (n < 0) {
      error = reason(errno);
      return false;
    }
    const std::string link(buffer.data(), static_cast<std::size_t>(n));
    path = (!link.empty() && link[0] == '/') ? link : directoryOf(path) + "/" + link;
  }
  error = reason(ELOOP);
  return false;
}

}  // namespace

bool writeAll(int fd, const void* data, std::size_t size) {
  const auto* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    p += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

std::string replaceFileContents(const std::string& target, std::initializer_list<ByteRange> ranges) {
  std::string path = target;
  std::string error;
  if (!resolveLinks(path, error)) return error;

  struct stat existing {};
  const bool exists = ::stat(path.c_str(), &existing) == 0;
  if (!exists && errno != ENOENT) return reason(errno);
  if (exists && !S_ISREG(existing.st_mode)) return "not a regular file";
  if (exists && existing.st_nlink > 1)
    return "the file has " + std::to_string(existing.st_nlink) + " hard links, which replacing it would separate";

  std::string stem = baseNameOf(path);
  if (stem.size() > kTempStemMax) stem.resize(kTempStemMax);
  std::string temp = directoryOf(path) + "/." + stem + ".XXXXXX";
  const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return reason(errno);

  auto fail = [&](int error) {
    ::close(fd);
    ::unlink(temp.c_str());
    return reason(error);
  };
  const mode_t mode = exists ? (existing.st_mode & 07777) : (0666 & ~processUmask());
  if (::fchmod(fd, mode) != 0) return fail(errno);
  // Keeping the group may be refused to a user outside it; the file is then
  // theirs as any new file would be, which is no reason to fail the save.
  if (exists && existing.st_gid != ::getegid() && ::fchown(fd, static_cast<uid_t>(-1), existing.st_gid) != 0) {
  }
  for (const ByteRange& r : ranges)
    if (!writeAll(fd, r.data, r.size)) return fail(errno);
  if (::fsync(fd) != 0) return fail(errno);
  if (::close(fd) != 0) {
    const int e = errno;
    ::unlink(temp.c_str());
    return reason(e);
  }
  if (::rename(temp.c_str(), path.c_str()) != 0) {
    const int e = errno;
    ::unlink(temp.c_str());
    return reason(e);
  }
  return {};
}
