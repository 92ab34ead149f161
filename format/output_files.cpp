#include "format/output_files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <random>

namespace {

constexpr int kMaxLinkHops = 40;  // as the kernel's own limit on a path's symlinks
// A temporary is ".NAME.<random>.ztmp": the random part and the suffix make a
// name no user picks by chance, so clean-up can tell ours from theirs.
constexpr std::size_t kRandomLength = 12;
constexpr const char* kTempSuffix = ".ztmp";
// Room left in a file name for the temporary's dots, random part and suffix.
constexpr std::size_t kTempStemMax = NAME_MAX - 2 - kRandomLength - 5;
constexpr const char* kNewFilesPrefix = ".ztexport-";
// The file inside every folder of ours that proves it ours.
constexpr const char* kWorkMarker = ".ztexport-work-marker";

std::string reason(int error) { return std::strerror(error); }

Error ioError(std::string message) { return {ErrorKind::io, std::move(message)}; }
Error refusal(std::string message) { return {ErrorKind::refused, std::move(message)}; }
Error notOpen(std::string message) { return {ErrorKind::badRequest, std::move(message)}; }

std::string directoryOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

std::string baseNameOf(const std::string& path) {
  const std::size_t slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

// The start of the temporaries' names for the file `base`: ".base." shortened
// so that the whole name stays within NAME_MAX.
std::string temporaryPrefix(const std::string& base) {
  std::string stem = base;
  if (stem.size() > kTempStemMax) stem.resize(kTempStemMax);
  return "." + stem + ".";
}

std::string randomPart(std::size_t length) {
  static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  static thread_local std::mt19937_64 generator{std::random_device{}()};
  std::string out;
  for (std::size_t i = 0; i < length; ++i) out += alphabet[generator() % (sizeof alphabet - 1)];
  return out;
}

bool isRandomPart(const std::string& s) {
  return s.size() == kRandomLength &&
         std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
}

// The stem ("NAME") when `entry` is a temporary's name ".NAME.<random>.ztmp".
bool temporaryStem(const std::string& entry, std::string& prefix) {
  const std::size_t suffix = std::strlen(kTempSuffix);
  if (entry.size() < 2 + kRandomLength + suffix + 1 || entry[0] != '.' || !entry.ends_with(kTempSuffix)) return false;
  const std::size_t randomAt = entry.size() - suffix - kRandomLength;
  if (entry[randomAt - 1] != '.' || !isRandomPart(entry.substr(randomAt, kRandomLength))) return false;
  prefix = entry.substr(0, randomAt);
  return true;
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
Result<std::string> resolveLinks(const std::string& target) {
  std::string path = target;
  for (int hop = 0; hop <= kMaxLinkHops; ++hop) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) {
      if (errno == ENOENT) return path;
      return ioError(reason(errno));
    }
    if (!S_ISLNK(st.st_mode)) return path;
    std::vector<char> buffer(PATH_MAX + 1);
    const ssize_t n = ::readlink(path.c_str(), buffer.data(), buffer.size() - 1);
    if (n < 0) return ioError(reason(errno));
    const std::string link(buffer.data(), static_cast<std::size_t>(n));
    path = (!link.empty() && link[0] == '/') ? link : directoryOf(path) + "/" + link;
  }
  return ioError(reason(ELOOP));
}

int flockRetrying(int fd, int operation) {
  int r;
  while ((r = ::flock(fd, operation)) != 0 && errno == EINTR) {
  }
  return r;
}

// An exclusive flock on a directory for a few system calls. Where the file
// system has no such locks the work goes on unlocked: the lock narrows races
// between runs, it is not needed for one run's own files.
class DirectoryLock {
 public:
  // An open file of its own: a flock belongs to the open file, and one shared
  // with a descriptor that stays open would hold the lock past this object.
  explicit DirectoryLock(int dirFd) : fd_(::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ >= 0) flockRetrying(fd_, LOCK_EX);
  }
  ~DirectoryLock() {
    if (fd_ >= 0) ::close(fd_);  // closing its only descriptor releases the lock
  }
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  int fd_;
};

// A new descriptor of its own for the directory, so that flock on it is not
// shared with another holder of the same open file.
int openDirectoryAgain(int dirFd) { return ::openat(dirFd, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC); }

std::vector<std::string> entriesOf(int dirFd) {
  std::vector<std::string> names;
  const int fd = openDirectoryAgain(dirFd);
  if (fd < 0) return names;
  DIR* d = ::fdopendir(fd);
  if (!d) {
    ::close(fd);
    return names;
  }
  while (const dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") names.push_back(name);
  }
  ::closedir(d);
  return names;
}

// The marker's folder `name` in `parentFd` emptied of its regular files and
// removed: nothing that is not a regular file is touched, and the folder stays
// when anything else is in it.
void removeMarkedFolder(int parentFd, const std::string& name) {
  const int fd = ::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  for (const std::string& entry : entriesOf(fd)) {
    if (entry == kWorkMarker) continue;
    struct stat st {};
    if (::fstatat(fd, entry.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode))
      ::unlinkat(fd, entry.c_str(), 0);
  }
  ::unlinkat(fd, kWorkMarker, 0);
  if (::unlinkat(parentFd, name.c_str(), AT_REMOVEDIR) != 0) {
    // Something not ours is in it: the marker goes back, so that a later run
    // still knows the folder for one of its own.
    const int m = ::openat(fd, kWorkMarker, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m >= 0) ::close(m);
  }
  ::close(fd);
}

// Whether the entry `name` of `parentFd` is a folder of a run that was
// killed: ours (marker inside, this user's) and no live run holds its lock.
// Called with the directory's lock held.
bool isAbandonedFolder(int parentFd, const std::string& name) {
  struct stat st {};
  if (::fstatat(parentFd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(st.st_mode) ||
      st.st_uid != ::geteuid())
    return false;
  const int fd = ::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return false;
  // The live run holds the lock of the marker, not of the folder: the folder's
  // own lock serves the few system calls of anyone working inside it.
  const int marker = ::openat(fd, kWorkMarker, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  ::close(fd);
  if (marker < 0) return false;
  struct stat ms {};
  const bool abandoned = ::fstat(marker, &ms) == 0 && S_ISREG(ms.st_mode) && ms.st_uid == ::geteuid() &&
                         flockRetrying(marker, LOCK_EX | LOCK_NB) == 0;
  ::close(marker);
  return abandoned;
}

// Removes the temporary `name` of `dirFd` when it is ours and no live run
// holds its lock. Called with the directory's lock held.
void removeTemporaryIfAbandoned(int dirFd, const std::string& name) {
  const int fd = ::openat(dirFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) return;
  struct stat st {};
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_uid == ::geteuid() &&
      flockRetrying(fd, LOCK_EX | LOCK_NB) == 0)
    ::unlinkat(dirFd, name.c_str(), 0);
  ::close(fd);
}

// Removes the temporary `name` of `dirFd` that this run made and holds open
// as `fd`, while the name is still that file: a temporary can live for a
// whole export (a large scene file is written into it as it is made), and
// what another program put under its name meanwhile is not ours to remove.
// No directory lock is taken: a commit discards while it holds one.
void removeOwnTemporary(int dirFd, const std::string& name, int fd) {
  struct stat held {}, named {};
  if (fd >= 0 && ::fstat(fd, &held) == 0 && ::fstatat(dirFd, name.c_str(), &named, AT_SYMLINK_NOFOLLOW) == 0 &&
      held.st_dev == named.st_dev && held.st_ino == named.st_ino)
    ::unlinkat(dirFd, name.c_str(), 0);
}

// Every abandoned temporary of `dirFd` whose stem prefix is one of `prefixes`
// (sorted), and, when `folders`, every abandoned staging folder.
void removeAbandonedIn(int dirFd, const std::vector<std::string>& prefixes, bool folders) {
  for (const std::string& name : entriesOf(dirFd)) {
    std::string prefix;
    if (temporaryStem(name, prefix)) {
      if (std::binary_search(prefixes.begin(), prefixes.end(), prefix)) removeTemporaryIfAbandoned(dirFd, name);
    } else if (folders && name.size() == std::strlen(kNewFilesPrefix) + kRandomLength &&
               name.starts_with(kNewFilesPrefix) && isRandomPart(name.substr(std::strlen(kNewFilesPrefix)))) {
      if (isAbandonedFolder(dirFd, name)) removeMarkedFolder(dirFd, name);
    }
  }
}

// A folder "PREFIX<random>" in `parentFd` with the marker inside: its name
// and open descriptor, with the marker open and locked in `markerFd` for as
// long as the run lives; -1 with errno set on failure.
int makeMarkedFolder(int parentFd, const std::string& prefix, mode_t mode, std::string& name, int& markerFd) {
  for (int attempt = 0; attempt < 100; ++attempt) {
    name = prefix + randomPart(kRandomLength);
    if (::mkdirat(parentFd, name.c_str(), mode) != 0) {
      if (errno == EEXIST) continue;
      return -1;
    }
    const int fd = ::openat(parentFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    markerFd = fd < 0 ? -1 : ::openat(fd, kWorkMarker, O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (markerFd < 0) {
      const int e = errno;
      if (fd >= 0) ::close(fd);
      ::unlinkat(parentFd, name.c_str(), AT_REMOVEDIR);
      errno = e;
      return -1;
    }
    flockRetrying(markerFd, LOCK_EX);
    return fd;
  }
  errno = EEXIST;
  return -1;
}

// Copies the bytes of `in` into `out`; false with errno set on failure.
bool copyBytes(int in, int out) {
  char buffer[1 << 16];
  for (;;) {
    const ssize_t n = ::read(in, buffer, sizeof buffer);
    if (n == 0) return true;
    if (n < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (!writeAll(out, buffer, static_cast<std::size_t>(n))) return false;
  }
}

// Puts `name` of `fromFd` at `name` of `toFd` unless something is there
// already (left as it is): 0, EEXIST, or the error. A hard link where the
// file system has them, so the staged file stays until the whole commit stands.
int placeWithoutReplacing(int fromFd, int toFd, const std::string& name) {
  if (::linkat(fromFd, name.c_str(), toFd, name.c_str(), 0) == 0) return 0;
  if (errno == EEXIST) return EEXIST;
  if (errno != EPERM && errno != ENOTSUP && errno != EOPNOTSUPP) return errno;
  if (::renameat2(fromFd, name.c_str(), toFd, name.c_str(), RENAME_NOREPLACE) == 0) return 0;
  return errno;
}

bool flushing = true;

// Staged bytes start on their way to the disk at once, and commit waits for
// all of them together: a run's files then cost about one flush, not one
// each, and a file staged again before the commit is never waited for.
void startWriteback(int fd) {
  if (flushing) ::sync_file_range(fd, 0, 0, SYNC_FILE_RANGE_WRITE);
}

}  // namespace

void setFlushBeforeCommit(bool flush) { flushing = flush; }
bool flushBeforeCommit() { return flushing; }

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

bool writeAllAt(int fd, const void* data, std::size_t size, std::uint64_t offset) {
  const auto* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::pwrite(fd, p, size, static_cast<off_t>(offset));
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) {
      if (n == 0) errno = EIO;
      return false;
    }
    p += n;
    size -= static_cast<std::size_t>(n);
    offset += static_cast<std::uint64_t>(n);
  }
  return true;
}

std::string resolvedTarget(const std::string& path) {
  Result<std::string> resolved = resolveLinks(path);
  return resolved ? std::move(resolved).value() : path;
}

bool sameFile(const std::string& a, const std::string& b) {
  struct stat sa {}, sb {};
  const bool aExists = ::stat(a.c_str(), &sa) == 0, bExists = ::stat(b.c_str(), &sb) == 0;
  if (aExists && bExists) return sa.st_dev == sb.st_dev && sa.st_ino == sb.st_ino;
  if (aExists != bExists) return false;
  namespace fs = std::filesystem;
  std::error_code ea, eb;
  const fs::path pa = fs::weakly_canonical(fs::absolute(resolvedTarget(a), ea), ea);
  const fs::path pb = fs::weakly_canonical(fs::absolute(resolvedTarget(b), eb), eb);
  return !ea && !eb && pa == pb;
}

std::string overwrittenInput(const std::string& output, std::initializer_list<std::string> inputs) {
  for (const std::string& input : inputs)
    if (sameFile(output, input)) return input;
  return {};
}

void removeAbandonedTemporaries(const std::string& directory, const std::vector<std::string>& names) {
  const int dirFd = ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (dirFd < 0) return;
  {
    DirectoryLock lock(dirFd);
    std::vector<std::string> prefixes;
    for (const std::string& name : names) prefixes.push_back(temporaryPrefix(name));
    for (const std::string& name : entriesOf(dirFd))
      if (!name.empty() && name[0] != '.') prefixes.push_back(temporaryPrefix(name));
    std::sort(prefixes.begin(), prefixes.end());
    removeAbandonedIn(dirFd, prefixes, true);
  }
  ::close(dirFd);
}

Result<void> replaceFileContents(const std::string& target, std::initializer_list<ByteRange> ranges) {
  FileStaging staging;
  if (Result<void> staged = staging.stageReplacement(target, ranges); !staged) return staged;
  return staging.commit();
}

FileStaging::~FileStaging() { discard(); }

Error FileStaging::failed(const std::string& path, Error why) {
  if (failure_.message.empty()) {
    failure_ = why;
    failedFile_ = path;
  }
  return why;
}

Result<void> FileStaging::stageReplacement(const std::string& target, std::initializer_list<ByteRange> ranges) {
  const Result<std::string> resolved = resolveLinks(target);
  if (!resolved) return failed(target, resolved.error());
  const std::string& path = resolved.value();
  OutputDirectory dir;
  if (Result<void> opened = dir.open(directoryOf(path)); !opened) return failed(path, opened.error());
  return stage(dir, baseNameOf(path), ranges, -1, true);
}

Result<int> FileStaging::stageForWriting(const std::string& target) {
  // Staged empty; the writer fills the temporary through its descriptor.
  if (Result<void> staged = stageReplacement(target, {}); !staged) return staged.error();
  return replacements_.back().lockFd;
}

Result<void> FileStaging::finishWriting(int fd, Result<void> written) {
  for (const Replacement& r : replacements_) {
    if (r.lockFd != fd) continue;
    if (!written) return failed(r.path, written.error());
    startWriteback(fd);
    return {};
  }
  return failed(failedFile_, Error{ErrorKind::badRequest, "no file of this staging is being written"});
}

Result<void> FileStaging::stageReplacementIn(const OutputDirectory& directory, const std::string& name,
                                             std::initializer_list<ByteRange> ranges) {
  return stage(directory, name, ranges, -1, false);
}

Result<void> FileStaging::stageReplacementIn(const OutputDirectory& directory, const std::string& name, int sourceFd) {
  return stage(directory, name, {}, sourceFd, false);
}

Result<void> FileStaging::stage(const OutputDirectory& directory, const std::string& name,
                                std::initializer_list<ByteRange> ranges, int sourceFd, bool keepExisting) {
  const std::string path = directory.path() + "/" + name;
  if (!directory.isOpen()) return failed(path, notOpen("the directory is not open"));
  if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
    return failed(path, refusal("not a file name"));
  struct stat existing {};
  const bool exists = ::fstatat(directory.fd(), name.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0;
  if (!exists && errno != ENOENT) return failed(path, ioError(reason(errno)));
  // The file is replaced by a rename, never written into: a link of the name
  // is replaced with it, and what it pointed to stays as it was.
  if (exists && !S_ISREG(existing.st_mode) && !(S_ISLNK(existing.st_mode) && !keepExisting))
    return failed(path, refusal("not a regular file"));
  if (exists && S_ISREG(existing.st_mode) && existing.st_nlink > 1)
    return failed(path, refusal("the file has " + std::to_string(existing.st_nlink) +
                                " hard links, which replacing it would separate"));

  for (auto it = replacements_.begin(); it != replacements_.end(); ++it) {
    if (it->path != path) continue;
    removeOwnTemporary(it->dirFd, it->temporary, it->lockFd);
    ::close(it->lockFd);
    ::close(it->dirFd);
    replacements_.erase(it);
    break;
  }

  const std::string prefix = temporaryPrefix(name);
  std::string temp;
  const int dirFd = openDirectoryAgain(directory.fd());
  if (dirFd < 0) return failed(path, ioError(reason(errno)));
  int fd = -1;
  {
    DirectoryLock lock(dirFd);
    removeAbandonedIn(dirFd, {prefix}, false);
    for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
      temp = prefix + randomPart(kRandomLength) + kTempSuffix;
      fd = ::openat(dirFd, temp.c_str(), O_RDWR | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
      if (fd < 0 && errno != EEXIST) break;
    }
    if (fd < 0) {
      const int e = errno;
      ::close(dirFd);
      return failed(path, ioError(reason(e)));
    }
    flockRetrying(fd, LOCK_EX);
  }

  auto fail = [&](int e) {
    ::unlinkat(dirFd, temp.c_str(), 0);
    ::close(fd);
    ::close(dirFd);
    return failed(path, ioError(reason(e)));
  };
  const bool keepMode = exists && S_ISREG(existing.st_mode);
  const mode_t mode = keepMode ? (existing.st_mode & 07777) : (0666 & ~processUmask());
  if (::fchmod(fd, mode) != 0) return fail(errno);
  // Keeping the group may be refused to a user outside it; the file is then
  // theirs as any new file would be, which is no reason to fail the save.
  if (keepMode && existing.st_gid != ::getegid() && ::fchown(fd, static_cast<uid_t>(-1), existing.st_gid) != 0) {
  }
  if (sourceFd >= 0) {
    if (!copyBytes(sourceFd, fd)) return fail(errno);
  } else {
    for (const ByteRange& r : ranges)
      if (!writeAll(fd, r.data, r.size)) return fail(errno);
  }
  startWriteback(fd);
  replacements_.push_back({path, dirFd, name, temp, fd});
  return {};
}

Result<void> FileStaging::stageNewFile(const OutputDirectory& directory, const std::string& name, int sourceFd) {
  const std::string path = directory.path() + "/" + name;
  if (name.empty() || name.find('/') != std::string::npos || name == "." || name == "..")
    return failed(path, refusal("not a file name"));
  Error error;
  const NewFilesDir* staging = newFilesIn(directory, error);
  if (!staging) return failed(path, error);
  const int out = ::openat(staging->stagingFd, name.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC,
                           0666 & ~processUmask());
  if (out < 0) return failed(path, ioError(reason(errno)));
  int e = copyBytes(sourceFd, out) ? 0 : errno;
  if (e == 0) startWriteback(out);
  if (::close(out) != 0 && e == 0) e = errno;
  if (e != 0) {
    ::unlinkat(staging->stagingFd, name.c_str(), 0);
    return failed(path, ioError(reason(e)));
  }
  return {};
}

const FileStaging::NewFilesDir* FileStaging::newFilesIn(const OutputDirectory& directory, Error& error) {
  struct stat st {};
  if (!directory.isOpen() || ::fstat(directory.fd(), &st) != 0) {
    error = directory.isOpen() ? ioError(reason(errno)) : notOpen("the directory is not open");
    return nullptr;
  }
  for (const NewFilesDir& d : newFileDirs_)
    if (d.device == st.st_dev && d.inode == st.st_ino) return &d;
  const int dirFd = openDirectoryAgain(directory.fd());
  if (dirFd < 0) {
    error = ioError(reason(errno));
    return nullptr;
  }
  std::string name;
  int stagingFd, markerFd = -1;
  {
    DirectoryLock lock(dirFd);
    removeAbandonedIn(dirFd, {}, true);
    stagingFd = makeMarkedFolder(dirFd, kNewFilesPrefix, 0777, name, markerFd);
  }
  if (stagingFd < 0) {
    error = ioError(reason(errno));
    ::close(dirFd);
    return nullptr;
  }
  newFileDirs_.push_back({directory.path(), st.st_dev, st.st_ino, dirFd, name, stagingFd, markerFd});
  return &newFileDirs_.back();
}

Result<std::string> FileStaging::newFilesDirectory(const std::string& directory) {
  OutputDirectory dir;
  if (Result<void> opened = dir.open(directory); !opened) return opened.error();
  Error error;
  const NewFilesDir* d = newFilesIn(dir, error);
  if (!d) return error;
  return d->path + "/" + d->stagingName;
}

Result<void> FileStaging::commit(const std::string& first) {
  // A file of the run that could not be staged takes the others with it:
  // the run's files appear together or not at all.
  if (!failure_.message.empty()) {
    const Error why = failure_;
    const std::string file = failedFile_;
    discard();
    failure_ = why;
    failedFile_ = file;
    return why;
  }
  if (!first.empty()) {
    const std::string lead = resolvedTarget(first);
    const auto it = std::find_if(replacements_.begin(), replacements_.end(),
                                 [&](const Replacement& r) { return sameFile(r.path, lead) || r.path == lead; });
    if (it != replacements_.end()) std::rotate(replacements_.begin(), it, it + 1);
  }
  // Each staging folder's files, listed once for the flush and the placing.
  std::vector<std::vector<std::string>> newFiles;
  for (const NewFilesDir& d : newFileDirs_) {
    std::vector<std::string> names = entriesOf(d.stagingFd);
    std::erase(names, std::string(kWorkMarker));
    std::sort(names.begin(), names.end());
    newFiles.push_back(std::move(names));
  }
  if (flushing) {
    // Nothing is put in place before every file of the run is on the disk.
    const auto unflushed = [&](const std::string& path, int e) {
      discard();
      failure_ = ioError(reason(e));
      failedFile_ = path;
      return failure_;
    };
    for (const Replacement& r : replacements_)
      if (::fsync(r.lockFd) != 0) return unflushed(r.path, errno);
    for (std::size_t i = 0; i < newFileDirs_.size(); ++i)
      for (const std::string& name : newFiles[i]) {
        const NewFilesDir& d = newFileDirs_[i];
        // Not followed if a link, not waited on if a FIFO: either fails the commit.
        const int fd = ::openat(d.stagingFd, name.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC);
        const int e = fd < 0 ? errno : ::fsync(fd) != 0 ? errno : 0;
        if (fd >= 0) ::close(fd);
        if (e != 0) return unflushed(d.path + "/" + name, e);
      }
  }
  int lockFd = -1;
  if (!replacements_.empty()) lockFd = replacements_.front().dirFd;
  else if (!newFileDirs_.empty()) lockFd = newFileDirs_.front().dirFd;
  if (lockFd < 0) return {};
  DirectoryLock lock(lockFd);

  struct Placed {
    int dirFd;
    std::string name;
  };
  std::vector<Placed> placed;  // new files put in place by this commit
  auto undoNewFiles = [&] {
    for (const Placed& p : placed) ::unlinkat(p.dirFd, p.name.c_str(), 0);
  };
  auto failCommit = [&](const std::string& path, int e) {
    failedFile_ = path;
    failure_ = ioError(reason(e));
    return failure_;
  };
  for (std::size_t i = 0; i < newFileDirs_.size(); ++i) {
    const NewFilesDir& d = newFileDirs_[i];
    for (const std::string& name : newFiles[i]) {
      const int e = placeWithoutReplacing(d.stagingFd, d.dirFd, name);
      if (e == 0) placed.push_back({d.dirFd, name});
      else if (e != EEXIST) {
        undoNewFiles();
        return failCommit(d.path + "/" + name, e);
      }
    }
  }
  for (std::size_t i = 0; i < replacements_.size(); ++i) {
    Replacement& r = replacements_[i];
    if (::renameat(r.dirFd, r.temporary.c_str(), r.dirFd, r.name.c_str()) != 0) {
      const int e = errno;
      // Files already renamed cannot be taken back; the new files stay with
      // them. Before the first rename nothing of the run is left.
      if (i == 0) undoNewFiles();
      return failCommit(r.path, e);
    }
    ::close(r.lockFd);
    r.lockFd = -1;
    r.temporary.clear();
  }
  createdDirectories_.clear();
  discard();  // the staging folders, emptied of what was linked
  return {};
}

void FileStaging::discard() {
  for (Replacement& r : replacements_) {
    if (!r.temporary.empty()) removeOwnTemporary(r.dirFd, r.temporary, r.lockFd);
    if (r.lockFd >= 0) ::close(r.lockFd);
    ::close(r.dirFd);
  }
  replacements_.clear();
  for (NewFilesDir& d : newFileDirs_) {
    ::close(d.stagingFd);
    ::close(d.markerFd);  // our own lock goes first, or the removal would take it for a live run's
    removeMarkedFolder(d.dirFd, d.stagingName);
    ::close(d.dirFd);
  }
  newFileDirs_.clear();
  for (auto it = createdDirectories_.rbegin(); it != createdDirectories_.rend(); ++it) ::rmdir(it->c_str());
  createdDirectories_.clear();
  failure_ = {};
  failedFile_.clear();
}

// --- Inputs -------------------------------------------------------------------

namespace {
std::string normalisedAbsolute(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  const fs::path p = fs::weakly_canonical(fs::absolute(resolvedTarget(path), ec), ec);
  return ec ? path : p.lexically_normal().string();
}
}  // namespace

bool fileIdentity(const std::string& path, FileIdentity& identity) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return false;
  identity = {st.st_dev, st.st_ino};
  return true;
}

void RunInputs::add(const std::string& path, const std::string& what) {
  if (path.empty()) return;
  Input input{path, what, false, {}};
  input.exists = fileIdentity(path, input.identity);
  inputs_.push_back(std::move(input));
}

Result<void> RunInputs::clash(const std::string& output, const std::string& what) const {
  FileIdentity id;
  const bool exists = fileIdentity(output, id);
  std::string absolute;
  for (const Input& input : inputs_) {
    bool same;
    if (exists && input.exists) {
      same = id == input.identity;
    } else if (!exists && !input.exists) {
      if (absolute.empty()) absolute = normalisedAbsolute(output);
      same = absolute == normalisedAbsolute(input.path);
    } else {
      same = false;
    }
    if (same) return refusal(output + ": " + what + " would overwrite " + input.what);
  }
  return {};
}

// --- Output directories --------------------------------------------------------

OutputDirectory::OutputDirectory(OutputDirectory&& other) noexcept : fd_(other.fd_), path_(std::move(other.path_)) {
  other.fd_ = -1;
}

OutputDirectory& OutputDirectory::operator=(OutputDirectory&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) ::close(fd_);
    fd_ = other.fd_;
    path_ = std::move(other.path_);
    other.fd_ = -1;
  }
  return *this;
}

OutputDirectory::~OutputDirectory() {
  if (fd_ >= 0) ::close(fd_);
}

Result<void> OutputDirectory::open(const std::string& path) {
  const int fd = ::open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return ioError(reason(errno));
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  path_ = path.empty() ? "." : path;
  return {};
}

Result<void> OutputDirectory::openBeneath(const std::string& relative, bool create, OutputDirectory& into,
                                          std::vector<std::string>* made) const {
  if (fd_ < 0) return notOpen("the output directory is not open");
  if (!relative.empty() && relative[0] == '/') return refusal("an absolute path is not beneath the output directory");
  // Component by component, from descriptors: ".." may climb back only as far
  // as it went down, and a link may be followed only when what it names is
  // itself beneath the output directory (checked by its identity's place on
  // the chain of folders walked).
  std::vector<int> chain{::dup(fd_)};
  std::string walked = path_;
  while (walked.size() > 1 && walked.back() == '/') walked.pop_back();
  auto closeChain = [&chain] {
    for (int fd : chain)
      if (fd >= 0) ::close(fd);
    chain.clear();
  };
  if (chain[0] < 0) return ioError(reason(errno));
  struct stat rootStat {};
  ::fstat(chain[0], &rootStat);
  std::size_t start = 0;
  int hops = 0;
  std::vector<std::string> parts;
  while (start <= relative.size()) {
    std::size_t end = relative.find('/', start);
    if (end == std::string::npos) end = relative.size();
    const std::string part = relative.substr(start, end - start);
    if (!part.empty() && part != ".") parts.push_back(part);
    start = end + 1;
  }
  for (std::size_t i = 0; i < parts.size(); ++i) {
    const std::string& part = parts[i];
    if (part == "..") {
      if (chain.size() == 1) {
        closeChain();
        return refusal("\"" + relative + "\" leads out of the output directory");
      }
      ::close(chain.back());
      chain.pop_back();
      walked = directoryOf(walked);
      continue;
    }
    const int parent = chain.back();
    struct stat st {};
    if (::fstatat(parent, part.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
      if (errno != ENOENT || !create) {
        const int e = errno;
        closeChain();
        return ioError(walked + "/" + part + ": " + reason(e));
      }
      if (::mkdirat(parent, part.c_str(), 0777) != 0 && errno != EEXIST) {
        const int e = errno;
        closeChain();
        return ioError(walked + "/" + part + ": " + reason(e));
      }
      if (made) made->push_back(walked + "/" + part);
      if (::fstatat(parent, part.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        const int e = errno;
        closeChain();
        return ioError(walked + "/" + part + ": " + reason(e));
      }
    }
    if (S_ISLNK(st.st_mode)) {
      // A link inside is allowed where it stays inside: its text replaces the
      // component and is walked the same way.
      if (++hops > kMaxLinkHops) {
        closeChain();
        return ioError(walked + "/" + part + ": " + reason(ELOOP));
      }
      std::vector<char> buffer(PATH_MAX + 1);
      const ssize_t n = ::readlinkat(parent, part.c_str(), buffer.data(), buffer.size() - 1);
      if (n < 0) {
        const int e = errno;
        closeChain();
        return ioError(walked + "/" + part + ": " + reason(e));
      }
      const std::string target(buffer.data(), static_cast<std::size_t>(n));
      if (target.empty() || target[0] == '/') {
        closeChain();
        return refusal(walked + "/" + part + ": a symbolic link to a place outside the output directory");
      }
      std::vector<std::string> expanded;
      std::size_t s = 0;
      while (s <= target.size()) {
        std::size_t e = target.find('/', s);
        if (e == std::string::npos) e = target.size();
        const std::string piece = target.substr(s, e - s);
        if (!piece.empty() && piece != ".") expanded.push_back(piece);
        s = e + 1;
      }
      parts.insert(parts.begin() + static_cast<std::ptrdiff_t>(i) + 1, expanded.begin(), expanded.end());
      continue;
    }
    if (!S_ISDIR(st.st_mode)) {
      closeChain();
      return refusal(walked + "/" + part + ": " + reason(ENOTDIR));
    }
    const int next = ::openat(parent, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      const int e = errno;
      closeChain();
      return ioError(walked + "/" + part + ": " + reason(e));
    }
    chain.push_back(next);
    walked += "/" + part;
  }
  const int result = chain.back();
  chain.pop_back();
  closeChain();
  if (into.fd_ >= 0) ::close(into.fd_);
  into.fd_ = result;
  into.path_ = walked;
  return {};
}

// --- Small files, folders and removal ---------------------------------------

Result<void> writeSmallFile(const std::string& path, std::string_view text, bool followLinks) {
  std::string target = path;
  if (followLinks) {
    Result<std::string> resolved = resolveLinks(path);
    if (!resolved) return resolved.error();
    target = std::move(resolved).value();
  }
  struct stat existing {};
  const bool exists = ::lstat(target.c_str(), &existing) == 0;
  if (!exists && errno != ENOENT) return ioError(reason(errno));
  if (exists && S_ISLNK(existing.st_mode)) {
    // Only reached unfollowed: the rename replaces the link itself.
    existing.st_mode = S_IFREG | (0666 & ~processUmask());
    existing.st_nlink = 1;
  }
  if (exists && !S_ISREG(existing.st_mode)) return refusal("not a regular file");
  if (exists && existing.st_nlink > 1)
    return refusal("the file has " + std::to_string(existing.st_nlink) +
                   " hard links, which replacing it would separate");
  std::string temp;
  int fd = -1;
  for (int attempt = 0; attempt < 100 && fd < 0; ++attempt) {
    temp = directoryOf(target) + "/" + temporaryPrefix(baseNameOf(target)) + randomPart(kRandomLength) + kTempSuffix;
    fd = ::open(temp.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) return ioError(reason(errno));
  const mode_t mode = exists ? (existing.st_mode & 07777) : (0666 & ~processUmask());
  int e = ::fchmod(fd, mode) == 0 && writeAll(fd, text.data(), text.size()) ? 0 : errno;
  if (::close(fd) != 0 && e == 0) e = errno;
  if (e == 0 && ::rename(temp.c_str(), target.c_str()) != 0) e = errno;
  if (e != 0) ::unlink(temp.c_str());
  if (e != 0) return ioError(reason(e));
  return {};
}

Result<void> makeDirectories(const std::string& path, std::vector<std::string>* made) {
  if (path.empty()) return {};
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) return {};
    return refusal(path + ": " + reason(ENOTDIR));
  }
  const std::string parent = directoryOf(path);
  if (parent != path && parent != "." && parent != "/") {
    if (Result<void> parents = makeDirectories(parent, made); !parents) return parents;
  }
  if (::mkdir(path.c_str(), 0777) != 0) {
    if (errno == EEXIST && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return {};
    return ioError(path + ": " + reason(errno));
  }
  if (made) made->push_back(path);
  return {};
}

void removeEmptyDirectory(const std::string& path) { ::rmdir(path.c_str()); }

bool removeOwnFile(const std::string& path) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_uid != ::geteuid()) return false;
  return ::unlink(path.c_str()) == 0;
}

WorkDirectory::~WorkDirectory() { remove(); }

Result<void> WorkDirectory::create(const std::string& parent, const std::string& prefix) {
  remove();
  std::string base = parent;
  if (base.empty()) {
    std::error_code ec;
    base = std::filesystem::temp_directory_path(ec).string();
    if (ec) base = "/tmp";
  }
  const int parentFd = ::open(base.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (parentFd < 0) return ioError(base + ": " + reason(errno));
  std::string name;
  int markerFd = -1;
  const int fd = makeMarkedFolder(parentFd, prefix, 0700, name, markerFd);
  const int e = errno;
  ::close(parentFd);
  if (fd < 0) return ioError(base + ": " + reason(e));
  ::close(fd);
  lockFd_ = markerFd;
  path_ = base + "/" + name;
  return {};
}

void WorkDirectory::remove() {
  if (path_.empty()) return;
  const int parentFd = ::open(directoryOf(path_).c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (lockFd_ >= 0) ::close(lockFd_);
  lockFd_ = -1;
  if (parentFd >= 0) {
    removeMarkedFolder(parentFd, baseNameOf(path_));
    ::close(parentFd);
  }
  path_.clear();
}

void removeAbandonedWorkDirectories(const std::string& parent, const std::string& prefix) {
  const int parentFd = ::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (parentFd < 0) return;
  for (const std::string& name : entriesOf(parentFd))
    if (name.size() == prefix.size() + kRandomLength && name.starts_with(prefix) &&
        isRandomPart(name.substr(prefix.size())) && isAbandonedFolder(parentFd, name))
      removeMarkedFolder(parentFd, name);
  ::close(parentFd);
}

RunLock::~RunLock() {
  if (fd_ >= 0) ::close(fd_);
}

Result<void> RunLock::acquire(const std::string& directory, bool wait) {
  const std::string path = directory + "/.ztexport-batch.lock";
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666 & ~processUmask());
  if (fd < 0) return ioError(path + ": " + reason(errno));
  if (flockRetrying(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || !wait) {
      const int e = errno;
      ::close(fd);
      if (e == EWOULDBLOCK) return Error{ErrorKind::busy, path + ": another batch is exporting into this directory"};
      return ioError(path + ": " + reason(e));
    }
    if (flockRetrying(fd, LOCK_EX) != 0) {
      const int e = errno;
      ::close(fd);
      return ioError(path + ": " + reason(e));
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  return {};
}
