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
// Room left in a file name for the temporary's dot, separator and XXXXXX.
constexpr std::size_t kTempStemMax = NAME_MAX - 8;
constexpr const char* kNewFilesPrefix = ".ztexport-";
constexpr std::size_t kRandomLength = 6;  // the XXXXXX of mkstemp and mkdtemp

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

// The start of the temporaries' names for the file `base`: ".base." shortened
// so that the whole name stays within NAME_MAX.
std::string temporaryPrefix(const std::string& base) {
  std::string stem = base;
  if (stem.size() > kTempStemMax) stem.resize(kTempStemMax);
  return "." + stem + ".";
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
  explicit DirectoryLock(const std::string& dir)
      : fd_(::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) {
    if (fd_ >= 0) flockRetrying(fd_, LOCK_EX);
  }
  ~DirectoryLock() {
    if (fd_ >= 0) ::close(fd_);  // closing releases the lock
  }
  DirectoryLock(const DirectoryLock&) = delete;
  DirectoryLock& operator=(const DirectoryLock&) = delete;

 private:
  int fd_;
};

bool isRandomPart(const std::string& s) {
  return s.size() == kRandomLength &&
         std::all_of(s.begin(), s.end(), [](unsigned char c) { return std::isalnum(c) != 0; });
}

void removeDirectoryFiles(const std::string& dir) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return;
  while (const dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name != "." && name != "..") ::unlink((dir + "/" + name).c_str());
  }
  ::closedir(d);
}

// Removes `path` (a temporary file, or a staging directory with its files)
// when it is ours and no live run holds its lock: the run that made it was
// killed. Called with the directory's lock held.
void removeIfAbandoned(const std::string& path, bool directory) {
  struct stat st {};
  if (::lstat(path.c_str(), &st) != 0 || st.st_uid != ::geteuid()) return;
  if (directory ? !S_ISDIR(st.st_mode) : !S_ISREG(st.st_mode)) return;
  const int fd = ::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | (directory ? O_DIRECTORY : 0));
  if (fd < 0) return;
  struct stat opened {};
  if (::fstat(fd, &opened) == 0 && opened.st_dev == st.st_dev && opened.st_ino == st.st_ino &&
      flockRetrying(fd, LOCK_EX | LOCK_NB) == 0) {
    if (directory) {
      removeDirectoryFiles(path);
      ::rmdir(path.c_str());
    } else {
      ::unlink(path.c_str());
    }
  }
  ::close(fd);
}

// Every abandoned entry of `dir` whose name is `prefix` and six random characters.
void removeAbandoned(const std::string& dir, const std::string& prefix, bool directories) {
  DIR* d = ::opendir(dir.c_str());
  if (!d) return;
  std::vector<std::string> candidates;
  while (const dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name.size() == prefix.size() + kRandomLength && name.compare(0, prefix.size(), prefix) == 0 &&
        isRandomPart(name.substr(prefix.size())))
      candidates.push_back(dir + "/" + name);
  }
  ::closedir(d);
  for (const std::string& path : candidates) removeIfAbandoned(path, directories);
}

// Puts `from` at `to` unless something is there already (left as it is):
// 0, EEXIST, or the error. A hard link where the file system has them, so the
// staged file stays until the whole commit stands.
int placeWithoutReplacing(const std::string& from, const std::string& to) {
  if (::link(from.c_str(), to.c_str()) == 0) return 0;
  if (errno == EEXIST) return EEXIST;
  if (errno != EPERM && errno != ENOTSUP && errno != EOPNOTSUPP) return errno;
  if (::renameat2(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), RENAME_NOREPLACE) == 0) return 0;
  return errno;
}

}  // namespace

namespace {
bool flushing = true;
}

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

std::string resolvedTarget(const std::string& path) {
  std::string resolved = path;
  std::string error;
  return resolveLinks(resolved, error) ? resolved : path;
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
  DirectoryLock lock(directory);
  DIR* d = ::opendir(directory.c_str());
  if (!d) return;
  std::vector<std::string> entries;
  while (const dirent* e = ::readdir(d)) entries.push_back(e->d_name);
  ::closedir(d);
  std::vector<std::string> stems;
  for (const std::string& name : names) stems.push_back(temporaryPrefix(name));
  for (const std::string& name : entries)
    if (!name.empty() && name[0] != '.') stems.push_back(temporaryPrefix(name));
  std::sort(stems.begin(), stems.end());
  const std::string newFilesPrefix = kNewFilesPrefix;
  for (const std::string& name : entries) {
    if (name.size() <= kRandomLength || !isRandomPart(name.substr(name.size() - kRandomLength))) continue;
    const std::string prefix = name.substr(0, name.size() - kRandomLength);
    if (prefix == newFilesPrefix)
      removeIfAbandoned(directory + "/" + name, true);
    else if (std::binary_search(stems.begin(), stems.end(), prefix))
      removeIfAbandoned(directory + "/" + name, false);
  }
}

std::string replaceFileContents(const std::string& target, std::initializer_list<ByteRange> ranges) {
  FileStaging staging;
  std::string error = staging.stageReplacement(target, ranges);
  if (error.empty()) error = staging.commit();
  return error;
}

FileStaging::~FileStaging() { discard(); }

std::string FileStaging::stageReplacement(const std::string& target, std::initializer_list<ByteRange> ranges) {
  std::string path = target;
  std::string error;
  if (!resolveLinks(path, error)) return error;

  struct stat existing {};
  const bool exists = ::stat(path.c_str(), &existing) == 0;
  if (!exists && errno != ENOENT) return reason(errno);
  if (exists && !S_ISREG(existing.st_mode)) return "not a regular file";
  if (exists && existing.st_nlink > 1)
    return "the file has " + std::to_string(existing.st_nlink) + " hard links, which replacing it would separate";

  for (auto it = replacements_.begin(); it != replacements_.end(); ++it) {
    if (it->target != path) continue;
    ::unlink(it->temporary.c_str());
    ::close(it->lockFd);
    replacements_.erase(it);
    break;
  }

  const std::string dir = directoryOf(path);
  const std::string prefix = temporaryPrefix(baseNameOf(path));
  std::string temp = dir + "/" + prefix + "XXXXXX";
  int fd;
  {
    DirectoryLock lock(dir);
    removeAbandoned(dir, prefix, false);
    fd = ::mkostemp(temp.data(), O_CLOEXEC);
    if (fd < 0) return reason(errno);
    flockRetrying(fd, LOCK_EX);
  }

  auto fail = [&](int e) {
    ::unlink(temp.c_str());
    ::close(fd);
    return reason(e);
  };
  const mode_t mode = exists ? (existing.st_mode & 07777) : (0666 & ~processUmask());
  if (::fchmod(fd, mode) != 0) return fail(errno);
  // Keeping the group may be refused to a user outside it; the file is then
  // theirs as any new file would be, which is no reason to fail the save.
  if (exists && existing.st_gid != ::getegid() && ::fchown(fd, static_cast<uid_t>(-1), existing.st_gid) != 0) {
  }
  for (const ByteRange& r : ranges)
    if (!writeAll(fd, r.data, r.size)) return fail(errno);
  if (flushing && ::fsync(fd) != 0) return fail(errno);
  replacements_.push_back({path, temp, fd});
  return {};
}

std::string FileStaging::newFilesDirectory(const std::string& directory, std::string& error) {
  for (const NewFilesDir& d : newFileDirs_)
    if (d.directory == directory) return d.staging;
  std::string staging = directory + "/" + kNewFilesPrefix + "XXXXXX";
  int fd = -1;
  int failure = 0;
  {
    DirectoryLock lock(directory);
    removeAbandoned(directory, kNewFilesPrefix, true);
    if (!::mkdtemp(staging.data())) {
      failure = errno;
    } else if ((fd = ::open(staging.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC)) < 0) {
      failure = errno;
      ::rmdir(staging.c_str());
    } else {
      flockRetrying(fd, LOCK_EX);
    }
  }
  if (failure != 0) {
    error = reason(failure);
    errno = failure;
    return {};
  }
  newFileDirs_.push_back({directory, staging, fd});
  return staging;
}

std::string FileStaging::commit(const std::string& first) {
  if (!first.empty()) {
    const std::string lead = resolvedTarget(first);
    const auto it = std::find_if(replacements_.begin(), replacements_.end(),
                                 [&](const Replacement& r) { return r.target == lead; });
    if (it != replacements_.end()) std::rotate(replacements_.begin(), it, it + 1);
  }
  std::string lockDir;
  if (!replacements_.empty()) lockDir = directoryOf(replacements_.front().target);
  else if (!newFileDirs_.empty()) lockDir = newFileDirs_.front().directory;
  if (lockDir.empty()) return {};
  DirectoryLock lock(lockDir);

  std::vector<std::string> placed;  // new files put in place by this commit
  auto undoNewFiles = [&] {
    for (const std::string& p : placed) ::unlink(p.c_str());
  };
  for (const NewFilesDir& d : newFileDirs_) {
    DIR* dir = ::opendir(d.staging.c_str());
    if (!dir) {
      const int e = errno;
      undoNewFiles();
      return d.staging + ": " + reason(e);
    }
    std::vector<std::string> names;
    while (const dirent* e = ::readdir(dir)) {
      const std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    ::closedir(dir);
    std::sort(names.begin(), names.end());
    for (const std::string& name : names) {
      const std::string to = d.directory + "/" + name;
      const int e = placeWithoutReplacing(d.staging + "/" + name, to);
      if (e == 0) placed.push_back(to);
      else if (e != EEXIST) {
        undoNewFiles();
        return to + ": " + reason(e);
      }
    }
  }
  for (std::size_t i = 0; i < replacements_.size(); ++i) {
    Replacement& r = replacements_[i];
    if (::rename(r.temporary.c_str(), r.target.c_str()) != 0) {
      const int e = errno;
      // Files already renamed cannot be taken back; the new files stay with
      // them. Before the first rename nothing of the run is left.
      if (i == 0) undoNewFiles();
      return reason(e);
    }
    ::close(r.lockFd);
    r.lockFd = -1;
    r.temporary.clear();
  }
  replacements_.clear();
  createdDirectories_.clear();
  discard();  // the staging directories, emptied of what was linked
  return {};
}

void FileStaging::discard() {
  for (Replacement& r : replacements_) {
    if (!r.temporary.empty()) ::unlink(r.temporary.c_str());
    if (r.lockFd >= 0) ::close(r.lockFd);
  }
  replacements_.clear();
  for (NewFilesDir& d : newFileDirs_) {
    removeDirectoryFiles(d.staging);
    ::rmdir(d.staging.c_str());
    if (d.lockFd >= 0) ::close(d.lockFd);
  }
  newFileDirs_.clear();
  for (auto it = createdDirectories_.rbegin(); it != createdDirectories_.rend(); ++it) ::rmdir(it->c_str());
  createdDirectories_.clear();
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

std::string RunInputs::clash(const std::string& output, const std::string& what) const {
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
    if (same) return output + ": " + what + " would overwrite " + input.what;
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

std::string OutputDirectory::open(const std::string& path) {
  const int fd = ::open(path.empty() ? "." : path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return reason(errno);
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  path_ = path.empty() ? "." : path;
  return {};
}

std::string OutputDirectory::openBeneath(const std::string& relative, bool create, OutputDirectory& into,
                                         std::vector<std::string>* made) const {
  if (fd_ < 0) return "the output directory is not open";
  if (!relative.empty() && relative[0] == '/') return "an absolute path is not beneath the output directory";
  // Component by component, from descriptors: ".." may climb back only as far
  // as it went down, and a link may be followed only when what it names is
  // itself beneath the output directory (checked by its identity's place on
  // the chain of folders walked).
  std::vector<int> chain{::dup(fd_)};
  std::string walked = path_;
  auto closeChain = [&chain] {
    for (int fd : chain)
      if (fd >= 0) ::close(fd);
    chain.clear();
  };
  if (chain[0] < 0) return reason(errno);
  struct stat rootStat {};
  ::fstat(chain[0], &rootStat);
  std::size_t start = 0;
  int hops = 0;
  std::vector<std::string> parts;
  while (start <= relative.size()) {
    std::size_t end = relative.find_first_of("/\\", start);
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
        return "\"" + relative + "\" leads out of the output directory";
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
        return walked + "/" + part + ": " + reason(e);
      }
      if (::mkdirat(parent, part.c_str(), 0777) != 0 && errno != EEXIST) {
        const int e = errno;
        closeChain();
        return walked + "/" + part + ": " + reason(e);
      }
      if (made) made->push_back(walked + "/" + part);
      if (::fstatat(parent, part.c_str(), &st, AT_SYMLINK_NOFOLLOW) != 0) {
        const int e = errno;
        closeChain();
        return walked + "/" + part + ": " + reason(e);
      }
    }
    if (S_ISLNK(st.st_mode)) {
      // A link inside is allowed where it stays inside: its text replaces the
      // component and is walked the same way.
      if (++hops > kMaxLinkHops) {
        closeChain();
        return walked + "/" + part + ": " + reason(ELOOP);
      }
      std::vector<char> buffer(PATH_MAX + 1);
      const ssize_t n = ::readlinkat(parent, part.c_str(), buffer.data(), buffer.size() - 1);
      if (n < 0) {
        const int e = errno;
        closeChain();
        return walked + "/" + part + ": " + reason(e);
      }
      const std::string target(buffer.data(), static_cast<std::size_t>(n));
      if (target.empty() || target[0] == '/') {
        closeChain();
        return walked + "/" + part + ": a symbolic link to a place outside the output directory";
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
      return walked + "/" + part + ": " + reason(ENOTDIR);
    }
    const int next = ::openat(parent, part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (next < 0) {
      const int e = errno;
      closeChain();
      return walked + "/" + part + ": " + reason(e);
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

std::string writeSmallFile(const std::string& path, const std::string& text) {
  std::string target = path;
  std::string error;
  if (!resolveLinks(target, error)) return error;
  struct stat existing {};
  const bool exists = ::stat(target.c_str(), &existing) == 0;
  if (!exists && errno != ENOENT) return reason(errno);
  if (exists && !S_ISREG(existing.st_mode)) return "not a regular file";
  if (exists && existing.st_nlink > 1)
    return "the file has " + std::to_string(existing.st_nlink) + " hard links, which replacing it would separate";
  std::string temp = directoryOf(target) + "/" + temporaryPrefix(baseNameOf(target)) + "XXXXXX";
  const int fd = ::mkostemp(temp.data(), O_CLOEXEC);
  if (fd < 0) return reason(errno);
  const mode_t mode = exists ? (existing.st_mode & 07777) : (0666 & ~processUmask());
  int e = ::fchmod(fd, mode) == 0 && writeAll(fd, text.data(), text.size()) ? 0 : errno;
  if (::close(fd) != 0 && e == 0) e = errno;
  if (e == 0 && ::rename(temp.c_str(), target.c_str()) != 0) e = errno;
  if (e != 0) ::unlink(temp.c_str());
  return e == 0 ? std::string() : reason(e);
}

std::string makeDirectories(const std::string& path, std::vector<std::string>* made) {
  if (path.empty()) return {};
  struct stat st {};
  if (::stat(path.c_str(), &st) == 0) return S_ISDIR(st.st_mode) ? std::string() : path + ": " + reason(ENOTDIR);
  const std::string parent = directoryOf(path);
  if (parent != path && parent != "." && parent != "/") {
    if (std::string e = makeDirectories(parent, made); !e.empty()) return e;
  }
  if (::mkdir(path.c_str(), 0777) != 0) {
    if (errno == EEXIST && ::stat(path.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return {};
    return path + ": " + reason(errno);
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

namespace {

constexpr const char* kWorkMarker = ".ztexport-work-marker";
constexpr std::size_t kWorkRandomLength = 12;

std::string randomPart(std::size_t length) {
  static const char alphabet[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
  std::random_device device;
  std::string out;
  for (std::size_t i = 0; i < length; ++i) out += alphabet[device() % (sizeof alphabet - 1)];
  return out;
}

// The marker's regular files and the folder, from its descriptor: nothing
// that is not a regular file is touched, and the folder stays when anything
// else is in it.
void removeWorkFolder(const std::string& path) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
  if (fd < 0) return;
  DIR* d = ::fdopendir(::dup(fd));
  if (d) {
    std::vector<std::string> names;
    while (const dirent* e = ::readdir(d)) {
      const std::string name = e->d_name;
      if (name != "." && name != ".." && name != kWorkMarker) names.push_back(name);
    }
    ::closedir(d);
    for (const std::string& name : names) {
      struct stat st {};
      if (::fstatat(fd, name.c_str(), &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode))
        ::unlinkat(fd, name.c_str(), 0);
    }
  }
  ::unlinkat(fd, kWorkMarker, 0);
  ::close(fd);
  if (::rmdir(path.c_str()) != 0) {
    // Something not ours is in it: the marker goes back, so a later run
    // still knows the folder for its own.
    const int m = ::open((path + "/" + kWorkMarker).c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (m >= 0) ::close(m);
  }
}

}  // namespace

WorkDirectory::~WorkDirectory() { remove(); }

std::string WorkDirectory::create(const std::string& parent, const std::string& prefix) {
  remove();
  std::string base = parent;
  if (base.empty()) {
    std::error_code ec;
    base = std::filesystem::temp_directory_path(ec).string();
    if (ec) base = "/tmp";
  }
  for (int attempt = 0; attempt < 100; ++attempt) {
    const std::string path = base + "/" + prefix + randomPart(kWorkRandomLength);
    if (::mkdir(path.c_str(), 0700) != 0) {
      if (errno == EEXIST) continue;
      return reason(errno);
    }
    const int dirFd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    const int marker = dirFd < 0 ? -1 : ::openat(dirFd, kWorkMarker, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
    if (marker < 0) {
      const int e = errno;
      if (dirFd >= 0) ::close(dirFd);
      ::rmdir(path.c_str());
      return reason(e);
    }
    ::close(marker);
    flockRetrying(dirFd, LOCK_EX);
    lockFd_ = dirFd;
    path_ = path;
    return {};
  }
  return reason(EEXIST);
}

void WorkDirectory::remove() {
  if (path_.empty()) return;
  removeWorkFolder(path_);
  if (lockFd_ >= 0) ::close(lockFd_);
  lockFd_ = -1;
  path_.clear();
}

void removeAbandonedWorkDirectories(const std::string& parent, const std::string& prefix) {
  DIR* d = ::opendir(parent.c_str());
  if (!d) return;
  std::vector<std::string> candidates;
  while (const dirent* e = ::readdir(d)) {
    const std::string name = e->d_name;
    if (name.size() == prefix.size() + kWorkRandomLength && name.compare(0, prefix.size(), prefix) == 0 &&
        std::all_of(name.begin() + static_cast<std::ptrdiff_t>(prefix.size()), name.end(),
                    [](unsigned char c) { return std::isalnum(c) != 0; }))
      candidates.push_back(parent + "/" + name);
  }
  ::closedir(d);
  for (const std::string& path : candidates) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != ::geteuid()) continue;
    struct stat marker {};
    if (::lstat((path + "/" + kWorkMarker).c_str(), &marker) != 0 || !S_ISREG(marker.st_mode)) continue;
    const int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) continue;
    if (flockRetrying(fd, LOCK_EX | LOCK_NB) == 0) removeWorkFolder(path);
    ::close(fd);
  }
}

RunLock::~RunLock() {
  if (fd_ >= 0) ::close(fd_);
}

std::string RunLock::acquire(const std::string& directory, bool wait, bool& busy) {
  busy = false;
  const std::string path = directory + "/.ztexport-batch.lock";
  const int fd = ::open(path.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0666 & ~processUmask());
  if (fd < 0) return path + ": " + reason(errno);
  if (flockRetrying(fd, LOCK_EX | LOCK_NB) != 0) {
    if (errno != EWOULDBLOCK || !wait) {
      const int e = errno;
      ::close(fd);
      busy = e == EWOULDBLOCK;
      return busy ? path + ": another batch is exporting into this directory" : path + ": " + reason(e);
    }
    if (flockRetrying(fd, LOCK_EX) != 0) {
      const int e = errno;
      ::close(fd);
      return path + ": " + reason(e);
    }
  }
  if (fd_ >= 0) ::close(fd_);
  fd_ = fd;
  return {};
}
