#include "host/import/importers.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <filesystem>
#include <fstream>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>

#include "host/inhouse/sanitized.h"
#include "host/memory/regular_file.h"

namespace hostimport {

namespace fs = std::filesystem;

namespace {

std::string lowerExtension(const std::string& path) {
  std::string ext = fs::path(path).extension().string();
  std::transform(ext.begin(), ext.end(), ext.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return ext;
}

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

// The buffer beside a written scene: "car.scene.json" keeps "car.bin".
std::string bufferNameFor(const std::string& scenePath) {
  std::string name = fs::path(scenePath).filename().string();
  for (const char* suffix : {".json", ".scene"})
    if (name.size() > std::strlen(suffix) && name.ends_with(suffix)) name.resize(name.size() - std::strlen(suffix));
  return name + ".bin";
}

// A model file may declare more elements than it holds (a count of hundreds of
// billions in a header of a few bytes), and some readers then reserve and
// loop for as long as the count says. Capping the address space at the
// machine's memory makes such a reservation fail at once, as a refused file,
// while no honest model comes near it. Sanitizer builds reserve vast shadow
// ranges of their own and are left alone.

void limitMemoryToMachine() {
#if !defined(ZTX_SANITIZED)
  const long pages = sysconf(_SC_PHYS_PAGES), pageSize = sysconf(_SC_PAGESIZE);
  if (pages <= 0 || pageSize <= 0) return;
  rlimit limit{};
  if (getrlimit(RLIMIT_AS, &limit) != 0) return;
  const auto machine = static_cast<rlim_t>(pages) * static_cast<rlim_t>(pageSize);
  if (limit.rlim_cur == RLIM_INFINITY || limit.rlim_cur > machine) {
    limit.rlim_cur = machine;
    setrlimit(RLIMIT_AS, &limit);
  }
#endif
}

}  // namespace

bool isSceneDescription(const std::string& path) {
  if (lowerExtension(path) == ".json") return true;
  const std::string head = firstBytes(path, 64);
  const std::size_t first = head.find_first_not_of(" \t\r\n");
  return first != std::string::npos && head[first] == '{' && lowerExtension(path) != ".gltf";
}

ImportedScene importModel(const ImportRequest& request) {
  std::error_code ec;
  if (!fs::is_regular_file(request.path, ec)) throw ImportError(request.path + ": cannot open the file");
  if (looks3ds(firstBytes(request.path, 6))) return import3ds(request);
  if (lowerExtension(request.path) == ".3ds")
    throw ImportError(request.path + ": not a 3DS file (it does not open with a 3DS main chunk)");
  return importAssimp(request);
}

namespace {

// lib3ds and assimp are C and C++ readers of decades of formats; damaged
// files crash some of their paths or send them round a loop for ever. So a
// model is read in a child process under a time limit, which hands the
// scene over through a pipe; a reader that dies or overruns is reported like
// any unreadable file, and zt2export itself never goes down with it.
constexpr unsigned k3dsSeconds = 30;      // a 3DS file is small by its format's limits
constexpr unsigned kOtherSeconds = 600;   // the largest models of other formats

void writeAll(int fd, const void* data, std::size_t size) {
  const char* p = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t n = ::write(fd, p, size);
    if (n <= 0) _exit(3);
    p += n, size -= static_cast<std::size_t>(n);
  }
}

void writeBlock(int fd, const void* data, std::uint64_t size) {
  writeAll(fd, &size, sizeof size);
  writeAll(fd, data, static_cast<std::size_t>(size));
}

[[noreturn]] void childImport(int fd, const ImportRequest& request) {
  char status = 'S';
  try {
    SceneText scene = toText(importModel(request));
    writeAll(fd, &status, 1);
    writeBlock(fd, scene.text.data(), scene.text.size());
    writeBlock(fd, scene.buffer.data(), scene.buffer.size());
  } catch (const std::exception& e) {
    status = 'E';
    const std::string message = e.what();
    writeAll(fd, &status, 1);
    writeBlock(fd, message.data(), message.size());
  }
  _exit(0);
}

// Takes a block of the child's answer off the front of `bytes`.
bool takeBlock(const std::string& bytes, std::size_t& at, std::string& out) {
  std::uint64_t size = 0;
  if (bytes.size() - at < sizeof size) return false;
  std::memcpy(&size, bytes.data() + at, sizeof size);
  at += sizeof size;
  if (bytes.size() - at < size) return false;
  out.assign(bytes, at, static_cast<std::size_t>(size));
  at += static_cast<std::size_t>(size);
  return true;
}

SceneText importIsolated(const ImportRequest& request) {
  const unsigned seconds = looks3ds(firstBytes(request.path, 6)) ? k3dsSeconds : kOtherSeconds;
  int fds[2];
  if (::pipe(fds) != 0) throw ImportError(request.path + ": cannot start the model reader");
  std::fflush(stdout);
  std::fflush(stderr);
  const pid_t pid = ::fork();
  if (pid < 0) throw ImportError(request.path + ": cannot start the model reader");
  if (pid == 0) {
    ::close(fds[0]);
    ::alarm(seconds);
    childImport(fds[1], request);
  }
  ::close(fds[1]);
  std::string answer;
  char chunk[1 << 16];
  for (ssize_t n; (n = ::read(fds[0], chunk, sizeof chunk)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    answer.append(chunk, static_cast<std::size_t>(n));
  }
  ::close(fds[0]);
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFSIGNALED(status) && WTERMSIG(status) == SIGALRM)
    throw ImportError(request.path + ": reading the model took more than " + std::to_string(seconds) +
                      " s; the file is probably damaged");
  if (WIFSIGNALED(status))
    throw ImportError(request.path + ": the model reader failed on this file (" + strsignal(WTERMSIG(status)) +
                      "); the file is probably damaged");
  std::size_t at = 1;
  std::string text, buffer;
  if (answer.empty() || !(WIFEXITED(status) && WEXITSTATUS(status) == 0))
    throw ImportError(request.path + ": the model reader stopped without an answer");
  if (answer[0] == 'E' && takeBlock(answer, at, text)) throw ImportError(text);
  if (answer[0] != 'S' || !takeBlock(answer, at, text) || !takeBlock(answer, at, buffer))
    throw ImportError(request.path + ": the model reader stopped without an answer");
  return {std::move(text), std::vector<unsigned char>(buffer.begin(), buffer.end()), request.bufferName};
}

}  // namespace

std::unique_ptr<hostmodel::MemoryHost> openScene(const std::string& path, const std::string& writeScene,
                                                 const std::string& textureDir) {
  if (isSceneDescription(path)) {
    if (!writeScene.empty())
      throw ImportError(path + ": already a scene-description file; --write-scene writes imported models");
    return hostmodel::loadScene(path);
  }
  if (const hostmodel::RegularFile file(path); !file.ok())
    throw ImportError(path + ": cannot open the file: " + file.reason());
  limitMemoryToMachine();
  SceneText scene = importIsolated({path, bufferNameFor(writeScene.empty() ? path : writeScene), textureDir});
  if (!writeScene.empty()) {
    writeSceneFiles(scene, writeScene);
    return hostmodel::loadScene(writeScene);
  }
  // Relative paths of an imported scene are the model's own.
  return hostmodel::loadSceneFromString(scene.text, fs::path(path).parent_path().string(), path,
                                        {{scene.bufferName, std::move(scene.buffer)}});
}

}  // namespace hostimport
