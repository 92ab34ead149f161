#include "importers/importers.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <vector>

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <span>
#include <utility>

#include "format/output_files.h"
#include "host/inhouse/text.h"
#include "host/memory/file_reads.h"
#include "host/memory/regular_file.h"

namespace hostimport {

namespace fs = std::filesystem;

namespace {

// Nothing of a file that is not a regular one: the first read of a FIFO
// would wait for a writer that may never come.
std::string firstBytes(const std::string& path, std::size_t n) {
  const hostmodel::RegularFile file(path);
  if (!file.ok()) return {};
  std::string bytes(n, '\0');
  ssize_t got;
  while ((got = ::read(file.descriptor(), bytes.data(), n)) < 0 && errno == EINTR) {
  }
  bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
  return bytes;
}

// A 3DS file opens with the main chunk 0x4d4d and its length.
bool looks3ds(const std::string& head) {
  return head.size() >= 6 && static_cast<unsigned char>(head[0]) == 0x4d && static_cast<unsigned char>(head[1]) == 0x4d;
}

}  // namespace

std::string bufferNameFor(const std::string& scenePath) {
  std::string name = fs::path(scenePath).filename().string();
  for (const char* suffix : {".json", ".scene"})
    if (name.size() > std::strlen(suffix) && name.ends_with(suffix)) name.resize(name.size() - std::strlen(suffix));
  return name + ".bin";
}

bool isSceneDescription(const std::string& path) {
  if (ztext::lowerExtension(path) == ".json") return true;
  const std::string head = firstBytes(path, 64);
  const std::size_t first = head.find_first_not_of(" \t\r\n");
  return first != std::string::npos && head[first] == '{' && ztext::lowerExtension(path) != ".gltf";
}

ImportedScene importModel(const ImportRequest& request) {
  std::error_code ec;
  if (!fs::is_regular_file(request.path, ec)) throw ImportError(request.path + ": cannot open the file");
  if (looks3ds(firstBytes(request.path, 6))) return import3ds(request);
  if (ztext::lowerExtension(request.path) == ".3ds")
    throw ImportError(request.path + ": not a 3DS file (it does not open with a 3DS main chunk)");
  return importAssimp(request);
}

namespace {

// lib3ds and assimp are C and C++ readers of decades of formats; damaged
// files crash some of their paths, send them round a loop for ever, or make
// them reserve what a header declares (a count of billions in a file of a few
// hundred bytes). So a model is read in a child process, its time and its
// memory bounded by the file's size, and a reader that dies, overruns or runs
// out is reported like any unreadable file; zt2export itself never goes down
// with it. The bounds are generous: the largest honest models read in a
// small fraction of them (docs/import.md).
constexpr double kSecondsFloor = 20;
constexpr double kSecondsPerMiB = 2;
constexpr double k3dsSeconds = 30;      // a 3DS file is small by its format's limits
constexpr double kMostSeconds = 600;
constexpr std::uint64_t kMemoryFloor = std::uint64_t{1} << 30;
constexpr std::uint64_t kMemoryPerByte = 64;
constexpr std::uint64_t kMiB = std::uint64_t{1} << 20;
// Overrides the time limit, in seconds, for tests that must see it strike.
constexpr const char* kTimeLimitVariable = "ZT2EXPORT_IMPORT_SECONDS";

std::uint64_t machineMemory() {
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  return pages > 0 && pageSize > 0 ? static_cast<std::uint64_t>(pages) * static_cast<std::uint64_t>(pageSize)
                                   : UINT64_MAX;
}

// Set in the reader when an allocation failed: what follows is the cap's doing.
bool memoryExhausted = false;

void onAllocationFailure() {
  memoryExhausted = true;
  throw std::bad_alloc();
}

// Bounds the reader once its request has come: a timer for its time, and its
// address space at what it holds then (zt2export and its libraries, and the
// readers' module when it was loaded ahead) with the budget on top.
void limitReader(const ReaderBounds& bounds) {
  itimerval timer{};
  const double whole = std::floor(bounds.seconds);
  timer.it_value.tv_sec = static_cast<time_t>(whole);
  timer.it_value.tv_usec = static_cast<suseconds_t>((bounds.seconds - whole) * 1e6);
  ::setitimer(ITIMER_REAL, &timer, nullptr);
  std::uint64_t pages = 0;
  if (std::FILE* statm = std::fopen("/proc/self/statm", "r")) {
    unsigned long long size = 0;
    if (std::fscanf(statm, "%llu", &size) == 1) pages = size;
    std::fclose(statm);
  }
  const auto held = pages * static_cast<std::uint64_t>(sysconf(_SC_PAGESIZE));
  rlimit limit{};
  if (pages > 0 && getrlimit(RLIMIT_AS, &limit) == 0) {
    const rlim_t wanted = static_cast<rlim_t>(std::min<std::uint64_t>(held + bounds.memory, RLIM_INFINITY - 1));
    if (limit.rlim_max == RLIM_INFINITY || wanted < limit.rlim_max) limit.rlim_cur = wanted;
    setrlimit(RLIMIT_AS, &limit);
  }
  std::set_new_handler(onAllocationFailure);
  // Readers free millions of small blocks (a text reader's per-face lists);
  // without fast bins glibc does not sweep them together before every large
  // allocation that follows.
  mallopt(M_MXFAST, 0);
}

// The reader can do nothing about an answer it cannot hand over but end
// without one, which zt2export reports.
void writeOrEnd(int fd, const void* data, std::size_t size) {
  if (!writeAll(fd, data, size)) _exit(3);
}

void writeBlock(int fd, const void* data, std::uint64_t size) {
  writeOrEnd(fd, &size, sizeof size);
  writeOrEnd(fd, data, static_cast<std::size_t>(size));
}

// Paths end with a NUL, the one byte no path holds.
std::string joinedPaths(const std::vector<std::string>& paths) {
  std::string out;
  for (const std::string& path : paths) out.append(path).push_back('\0');
  return out;
}

void notePaths(const std::string& paths, void (*note)(const std::string&)) {
  for (std::size_t at = 0, end; (end = paths.find('\0', at)) != std::string::npos; at = end + 1)
    note(paths.substr(at, end - at));
}

// Writes a scene answer into the memory file, each array straight from where
// the front end built it; each array goes once written, and what it held goes
// back to the system before the next (the heap is trimmed after an array of
// a mebibyte or more): the reader never holds the buffer twice.
void writeScene(int fd, SceneText& scene, const std::string& files, const std::string& made) {
  const std::uint64_t textSize = scene.text.size(), bufferSize = scene.buffer.size();
  const std::uint64_t filesSize = files.size(), madeSize = made.size();
  std::uint64_t at = 0;
  bool ok = true;
  const auto put = [&](const void* data, std::size_t size) {
    // A memory file that cannot grow: the system's memory is what holds it.
    ok = ok && writeAllAt(fd, data, size, at);
    at += size;
  };
  put("S", 1);
  put(&textSize, 8);
  put(scene.text.data(), scene.text.size());
  put(&bufferSize, 8);
  constexpr std::size_t kLarge = std::size_t{1} << 20;
  std::size_t previous = 0;
  scene.buffer.drain([&](std::span<const unsigned char> piece) {
    if (previous >= kLarge) (void)malloc_trim(0);
    previous = piece.size();
    put(piece.data(), piece.size());
  });
  put(&filesSize, 8);
  put(files.data(), files.size());
  put(&madeSize, 8);
  put(made.data(), made.size());
  if (!ok) {
    memoryExhausted = true;
    throw std::bad_alloc();
  }
}

// The reader's answer, in a memory file that the parent maps once the reader
// says on `done` that it is complete: a status byte ('S' scene, 'E' error,
// 'M' out of memory), then blocks of a 64-bit length and bytes (the document
// and the buffer, then the files it read and wrote, or the message). The parent goes on at once, while the
// reader's memory is still being handed back to the system.
[[noreturn]] void childImport(int fd, int done, const ImportRequest& request, const ReaderBounds& bounds) {
  limitReader(bounds);
  char status = 'S';
  try {
    SceneText scene = toText(importModel(request), request.sceneFile);
    // The reader's record of the files it read and wrote dies with it.
    writeScene(fd, scene, joinedPaths(hostmodel::filesRead()), joinedPaths(hostmodel::filesWritten()));
  } catch (const std::exception& e) {
    status = memoryExhausted ? 'M' : 'E';
    const std::string message = memoryExhausted ? std::string() : e.what();
    if (::ftruncate(fd, 0) != 0) _exit(3);
    writeOrEnd(fd, &status, 1);
    writeBlock(fd, message.data(), message.size());
  }
  writeOrEnd(done, &status, 1);
  _exit(0);
}

// Waits for the reader's word that its answer is complete; false when it
// ended without one.
bool answered(int done) {
  char status;
  for (;;) {
    const ssize_t n = ::read(done, &status, 1);
    if (n == 1) return true;
    if (n < 0 && errno == EINTR) continue;
    return false;
  }
}

// Reaps the reader when the answer has been used, or thrown away.
class Reaper {
 public:
  explicit Reaper(pid_t pid) : pid_(pid) {}
  ~Reaper() { wait(); }
  int wait() {
    if (pid_ > 0) {
      while (::waitpid(pid_, &status_, 0) < 0 && errno == EINTR) {
      }
      pid_ = 0;
    }
    return status_;
  }

 private:
  pid_t pid_;
  int status_ = 0;
};

// Reads, in order, blocks (a 64-bit length, then the bytes) and plain values
// as the reader's answer and the request to a reader hold them.
class BlockReader {
 public:
  BlockReader(const unsigned char* data, std::size_t size) : data_(data), size_(size) {}
  template <typename T>
  bool value(T& out) {
    if (size_ - at_ < sizeof out) return false;
    std::memcpy(&out, data_ + at_, sizeof out);
    at_ += sizeof out;
    return true;
  }
  // The next block, or false when the bytes end short.
  bool block(std::span<const unsigned char>& out) {
    std::uint64_t size = 0;
    if (!value(size) || size_ - at_ < size) return false;
    out = {data_ + at_, static_cast<std::size_t>(size)};
    at_ += static_cast<std::size_t>(size);
    return true;
  }
  bool text(std::string& out) {
    std::span<const unsigned char> bytes;
    if (!block(bytes)) return false;
    out.assign(bytes.begin(), bytes.end());
    return true;
  }

 private:
  const unsigned char* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// The memory file of an answer, mapped for reading.
class Answer {
 public:
  explicit Answer(int fd) {
    struct stat st {};
    if (::fstat(fd, &st) != 0 || st.st_size <= 0) return;
    size_ = static_cast<std::size_t>(st.st_size);
    void* p = ::mmap(nullptr, size_, PROT_READ, MAP_PRIVATE | MAP_POPULATE, fd, 0);
    if (p == MAP_FAILED) size_ = 0;
    else data_ = static_cast<const unsigned char*>(p);
  }
  ~Answer() {
    if (data_) ::munmap(const_cast<unsigned char*>(data_), size_);
  }
  Answer(const Answer&) = delete;
  Answer& operator=(const Answer&) = delete;

  char status() const { return data_ ? static_cast<char>(data_[0]) : '\0'; }
  // The blocks after the status byte.
  BlockReader blocks() const { return data_ ? BlockReader(data_ + 1, size_ - 1) : BlockReader(nullptr, 0); }

 private:
  const unsigned char* data_ = nullptr;
  std::size_t size_ = 0;
};

std::string secondsText(double seconds) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", seconds);
  return text;
}

// The parent's other open files are not the reader's: a lock one of them
// carries (a staging directory's) must end with the parent, not outlive it in
// a reader that is still being killed.
void closeAllBut(std::vector<int> keep) {
  std::sort(keep.begin(), keep.end());
  unsigned from = 3;
  for (const int fd : keep) {
    if (static_cast<unsigned>(fd) > from) ::close_range(from, static_cast<unsigned>(fd) - 1, 0);
    from = static_cast<unsigned>(fd) + 1;
  }
  ::close_range(from, ~0u, 0);
}

// The request as the parent sends it to its reader: each string a block,
// as BlockReader reads them.
class RequestText {
 public:
  void put(const std::string& text) {
    putValue(static_cast<std::uint64_t>(text.size()));
    bytes_ += text;
  }
  template <typename T>
  void putValue(T value) {
    bytes_.append(reinterpret_cast<const char*>(&value), sizeof value);
  }
  const std::string& bytes() const { return bytes_; }

 private:
  std::string bytes_;
};

std::string requestText(const ImportRequest& request, const ReaderBounds& bounds) {
  RequestText out;
  out.put(request.path);
  out.put(request.bufferName);
  out.put(request.textureDir);
  out.putValue(static_cast<unsigned char>(request.sceneFile));
  out.putValue(static_cast<unsigned char>(request.processEnds));
  out.putValue(static_cast<unsigned char>(request.dropMissingTextures));
  out.putValue(static_cast<std::uint64_t>(request.texturePaths.size()));
  for (const std::string& path : request.texturePaths) out.put(path);
  out.putValue(bounds.seconds);
  out.putValue(bounds.memory);
  out.putValue(static_cast<unsigned char>(flushBeforeCommit()));
  return out.bytes();
}

bool requestFromText(const std::string& bytes, ImportRequest& request, ReaderBounds& bounds) {
  BlockReader in(reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size());
  unsigned char sceneFile = 0, processEnds = 0, drop = 0, flush = 0;
  std::uint64_t paths = 0;
  if (!in.text(request.path) || !in.text(request.bufferName) || !in.text(request.textureDir) ||
      !in.value(sceneFile) || !in.value(processEnds) || !in.value(drop) || !in.value(paths) || paths > bytes.size())
    return false;
  request.texturePaths.resize(static_cast<std::size_t>(paths));
  for (std::string& path : request.texturePaths)
    if (!in.text(path)) return false;
  if (!in.value(bounds.seconds) || !in.value(bounds.memory) || !in.value(flush)) return false;
  request.sceneFile = sceneFile != 0;
  request.processEnds = processEnds != 0;
  request.dropMissingTextures = drop != 0;
  setFlushBeforeCommit(flush != 0);
  return true;
}

// A reader of the model `path`, waiting for its request: its process, the
// memory file of its answer, the end the request goes into and the end it
// says it is done on.
struct Reader {
  pid_t pid = -1;
  int answer = -1, request = -1, done = -1;
  std::string path;
};

// The reader startReader started, until the import of its model takes it.
Reader early;

// The reader, while its request is on its way: the readers' module loads
// meanwhile. A parent that ends without a request ends it too.
[[noreturn]] void awaitRequest(int answer, int requests, int done, const std::string& path) {
  ::prctl(PR_SET_NAME, "zt2export-read");
  if (!looks3ds(firstBytes(path, 6))) preloadModelsModule();
  std::string bytes;
  char block[4096];
  for (;;) {
    const ssize_t n = ::read(requests, block, sizeof block);
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) _exit(3);
    if (n == 0) break;
    bytes.append(block, static_cast<std::size_t>(n));
  }
  ::close(requests);
  if (bytes.empty()) _exit(0);
  ImportRequest request;
  ReaderBounds bounds;
  if (!requestFromText(bytes, request, bounds)) _exit(3);
  childImport(answer, done, request, bounds);
}

// Forks a reader of `path`; its pid is -1 when it could not be started.
Reader launchReader(const std::string& path) {
  const int answer = ::memfd_create("zt2export-model", MFD_CLOEXEC);
  int done[2] = {-1, -1}, requests[2] = {-1, -1};
  // A socket for the request: a send to a reader that is gone fails instead of raising SIGPIPE.
  const bool made = answer >= 0 && ::pipe2(done, O_CLOEXEC) == 0 &&
                    ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, requests) == 0;
  if (made) {
    std::fflush(stdout);
    std::fflush(stderr);
    const pid_t pid = ::fork();
    if (pid == 0) {
      ::close(done[0]);
      ::close(requests[0]);
      closeAllBut({answer, done[1], requests[1]});
      awaitRequest(answer, requests[1], done[1], path);
    }
    if (pid > 0) {
      ::close(done[1]);
      ::close(requests[1]);
      return {pid, answer, requests[0], done[0], path};
    }
  }
  for (const int fd : {answer, done[0], done[1], requests[0], requests[1]})
    if (fd >= 0) ::close(fd);
  return {};
}

// Sends `reader` its request and closes its end; false when the reader is
// gone and the request could not be delivered.
bool sendRequest(const Reader& reader, const ImportRequest& request, const ReaderBounds& bounds) {
  const std::string bytes = requestText(request, bounds);
  bool sent = true;
  for (std::size_t at = 0; sent && at < bytes.size();) {
    const ssize_t n = ::send(reader.request, bytes.data() + at, bytes.size() - at, MSG_NOSIGNAL);
    if (n < 0 && errno == EINTR) continue;
    sent = n > 0;
    if (sent) at += static_cast<std::size_t>(n);
  }
  ::close(reader.request);
  return sent;
}

// Reads the model in the child and hands its answer to `use` (the document's
// text and the buffer, valid during the call).
template <typename Use>
auto importIsolated(const ImportRequest& request, const ImportLimits& limits, Use use) {
  const ReaderBounds bounds = readerBounds(request.path, limits);
  Reader reader = early.pid > 0 && early.path == request.path ? std::exchange(early, Reader{}) : Reader{};
  if (reader.pid > 0 && !sendRequest(reader, request, bounds)) {
    // A reader started ahead that ended before its request: another one reads.
    ::close(reader.answer);
    ::close(reader.done);
    while (::waitpid(reader.pid, nullptr, 0) < 0 && errno == EINTR) {
    }
    reader = {};
  }
  if (reader.pid <= 0) {
    reader = launchReader(request.path);
    if (reader.pid <= 0) throw ImportError(request.path + ": cannot start the model reader");
    // One that ends before it takes the request is reported below by how it ended.
    (void)sendRequest(reader, request, bounds);
  }
  Reaper reaper(reader.pid);
  const bool complete = answered(reader.done);
  ::close(reader.done);
  const int status = complete ? 0 : reaper.wait();
  Answer answer(reader.answer);
  ::close(reader.answer);
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    throw ImportError(request.path + ": reading the model took more than " + secondsText(bounds.seconds) +
                      " s; the file is probably damaged");
  if (WIFSIGNALED(status))
    throw ImportError(request.path + ": the model reader failed on this file (" + strsignal(WTERMSIG(status)) +
                      "); the file is probably damaged");
  if (!(WIFEXITED(status) && WEXITSTATUS(status) == 0))
    throw ImportError(request.path + ": the model reader stopped without an answer");
  if (answer.status() == 'M')
    throw ImportError(request.path + ": reading the model needs more memory than the limit of " +
                      std::to_string(bounds.memory / kMiB) + " MiB; raise it with --memory-limit");
  std::span<const unsigned char> text, buffer, files, made;
  BlockReader blocks = answer.blocks();
  if (answer.status() == 'E' && blocks.block(text)) throw ImportError(std::string(text.begin(), text.end()));
  if (answer.status() != 'S' || !blocks.block(text) || !blocks.block(buffer) || !blocks.block(files) ||
      !blocks.block(made))
    throw ImportError(request.path + ": the model reader stopped without an answer");
  notePaths(std::string(files.begin(), files.end()), hostmodel::noteFileRead);
  notePaths(std::string(made.begin(), made.end()), hostmodel::noteFileWritten);
  return use(std::string_view(reinterpret_cast<const char*>(text.data()), text.size()), buffer);
}

}  // namespace

ReaderBounds readerBounds(const std::string& path, const ImportLimits& limits) {
  std::error_code ec;
  const std::uintmax_t size = fs::file_size(path, ec);
  const std::uint64_t bytes = ec ? 0 : static_cast<std::uint64_t>(size);
  ReaderBounds bounds;
  const double cap = looks3ds(firstBytes(path, 6)) ? k3dsSeconds : kMostSeconds;
  bounds.seconds = std::min(cap, kSecondsFloor + kSecondsPerMiB * static_cast<double>(bytes) / kMiB);
  if (const char* text = std::getenv(kTimeLimitVariable); text && *text) {
    char* end = nullptr;
    const double seconds = std::strtod(text, &end);
    if (*end == '\0' && seconds > 0 && seconds <= kMostSeconds) bounds.seconds = seconds;
  }
  // Past the machine's memory a model cannot be honest; asked for explicitly, the limit is the user's.
  bounds.memory = limits.memoryMiB > 0
                      ? limits.memoryMiB * kMiB
                      : std::min(machineMemory(), kMemoryFloor + kMemoryPerByte * std::min(bytes, UINT64_MAX / 128));
  return bounds;
}

void startReader(const std::string& path) {
  if (early.pid > 0 || isSceneDescription(path) || !hostmodel::RegularFile(path).ok()) return;
  // Without one, the import starts its reader when it needs it.
  early = launchReader(path);
}

namespace {

std::unique_ptr<hostmodel::MemoryHost> loadOrImport(const std::string& path, const OpenOptions& options) {
  const std::string& writeScene = options.writeScene;
  if (isSceneDescription(path)) {
    if (!writeScene.empty())
      throw ImportError(path + ": already a scene-description file; --write-scene writes imported models");
    return hostmodel::loadScene(path);
  }
  if (const hostmodel::RegularFile file(path); !file.ok())
    throw ImportError(path + ": cannot open the file: " + file.reason());
  const ImportRequest request{path, bufferNameFor(writeScene.empty() ? path : writeScene), options.textureDir,
                              !writeScene.empty(), true, options.texturePaths, options.dropMissingTextures};
  return importIsolated(request, options.limits, [&](std::string_view text, std::span<const unsigned char> buffer) {
    if (!writeScene.empty()) {
      writeSceneFiles(text, buffer, request.bufferName, writeScene);
      hostmodel::noteFileWritten(writeScene);
      hostmodel::noteFileWritten((fs::path(writeScene).parent_path() / request.bufferName).string());
      return hostmodel::loadScene(writeScene);
    }
    // Relative paths of an imported scene are the model's own.
    return hostmodel::loadSceneFromString(text, fs::path(path).parent_path().string(), path,
                                          {{request.bufferName, buffer}});
  });
}

}  // namespace

std::unique_ptr<hostmodel::MemoryHost> openScene(const std::string& path, const OpenOptions& options) {
  std::unique_ptr<hostmodel::MemoryHost> host = loadOrImport(path, options);
  // The bitmap manager searches them too, for names the import kept as
  // missing and for names a scene file gives.
  host->addTexturePaths(options.texturePaths);
  return host;
}

}  // namespace hostimport
