// One export in a process of its own, its commit into the output directory,
// and the stamp that tells a later run it is up to date.
#include <dlfcn.h>
#include <fcntl.h>
#include <openssl/evp.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

#include "batch/batch.h"
#include "batch/batch_internal.h"
#include "driver/depfile.h"
#include "format/output_files.h"
#include "host/inhouse/exit_codes.h"
#include "host/inhouse/text.h"

extern char** environ;

namespace ztbatch {

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::string hex(const unsigned char* bytes, unsigned size) {
  static const char digits[] = "0123456789abcdef";
  std::string out;
  for (unsigned i = 0; i < size; ++i) out += digits[bytes[i] >> 4], out += digits[bytes[i] & 15];
  return out;
}

// The lines a run printed, blank lines and the window's title left out.
void collectMessages(const std::string& text, std::vector<std::string>& messages) {
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    if (line.empty() || line == "Export Info") continue;
    // The run's own name heads its lines on standard error; the message is
    // what follows, as zt2export's other front ends give it.
    for (const std::string_view prefix : {"zt2export: note: ", "zt2export: "})
      if (line.starts_with(prefix)) {
        line.erase(0, prefix.size());
        break;
      }
    messages.push_back(line);
  }
}

// What was written to a file kept in memory, from its start.
std::string contentsOf(int fd) {
  std::string text;
  char block[1 << 14];
  for (off_t at = 0;;) {
    const ssize_t n = ::pread(fd, block, sizeof block, at);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) break;
    text.append(block, static_cast<std::size_t>(n));
    at += n;
  }
  return text;
}

std::uint64_t sizeOf(const fs::path& path) {
  std::error_code ec;
  const auto size = fs::file_size(path, ec);
  return ec ? 0 : static_cast<std::uint64_t>(size);
}

std::string selfProgram() {
  std::error_code ec;
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  return ec ? std::string("/proc/self/exe") : self.string();
}

}  // namespace

namespace {

// The digest functions of libcrypto, loaded the first time a batch hashes a
// file: only a batch's stamps need them, and every other run of zt2export
// (a batch's exports among them) would otherwise pay for relocating the
// library at its start.
struct Crypto {
  EVP_MD_CTX* (*newContext)() = nullptr;
  void (*freeContext)(EVP_MD_CTX*) = nullptr;
  const EVP_MD* (*sha256)() = nullptr;
  int (*init)(EVP_MD_CTX*, const EVP_MD*, ENGINE*) = nullptr;
  int (*update)(EVP_MD_CTX*, const void*, std::size_t) = nullptr;
  int (*final)(EVP_MD_CTX*, unsigned char*, unsigned int*) = nullptr;
  std::string failure;  // why it could not be loaded
};

template <typename F>
bool bind(void* library, const char* name, F& function) {
  function = reinterpret_cast<F>(::dlsym(library, name));
  return function != nullptr;
}

const Crypto& crypto() {
  static const Crypto loaded = [] {
    Crypto c;
    void* library = ::dlopen(kCryptoLibrary, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      const char* why = ::dlerror();
      c.failure = why ? why : kCryptoLibrary;
      return c;
    }
    if (!bind(library, "EVP_MD_CTX_new", c.newContext) || !bind(library, "EVP_MD_CTX_free", c.freeContext) ||
        !bind(library, "EVP_sha256", c.sha256) || !bind(library, "EVP_DigestInit_ex", c.init) ||
        !bind(library, "EVP_DigestUpdate", c.update) || !bind(library, "EVP_DigestFinal_ex", c.final))
      c = Crypto{.failure = std::string(kCryptoLibrary) + " lacks the SHA-256 digest functions"};
    return c;
  }();
  return loaded;
}

}  // namespace

std::string hashingUnavailable() { return crypto().failure; }

std::string sha256Of(const std::string& path) {
  const Crypto& c = crypto();
  if (!c.failure.empty()) return {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return {};
  EVP_MD_CTX* context = c.newContext();
  bool ok = context != nullptr && c.init(context, c.sha256(), nullptr) == 1;
  char block[1 << 16];
  while (ok) {
    const ssize_t n = ::read(fd, block, sizeof block);
    if (n == 0) break;
    if (n < 0 && errno == EINTR) continue;
    ok = n > 0 && c.update(context, block, static_cast<std::size_t>(n)) == 1;
  }
  ::close(fd);
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned size = 0;
  ok = ok && c.final(context, digest, &size) == 1;
  if (context != nullptr) c.freeContext(context);
  return ok ? hex(digest, size) : std::string();
}

std::string stampPath(const BatchRequest& request, const std::string& output) {
  return (fs::path(request.outputDir) / (output + kStampSuffix)).string();
}

std::string HashCache::hashOf(const std::string& path) {
  {
    const std::lock_guard<std::mutex> hold(lock_);
    if (const auto it = hashes_.find(path); it != hashes_.end()) return it->second;
  }
  std::string hash = sha256Of(path);
  const std::lock_guard<std::mutex> hold(lock_);
  return hashes_.emplace(path, std::move(hash)).first->second;
}

double monotonicSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

BatchRequest normalized(const BatchRequest& request) {
  BatchRequest r = request;
  auto absolute = [](std::string& path) {
    if (!path.empty()) path = fs::absolute(path).lexically_normal().string();
    if (path.size() > 1 && path.back() == '/') path.pop_back();
  };
  absolute(r.sourceDir);
  absolute(r.outputDir);
  absolute(r.configDir);
  absolute(r.module);
  r.exporter = r.exporter.empty() ? selfProgram() : fs::absolute(r.exporter).string();
  if (r.jobs == 0) {
    cpu_set_t cpus;
    CPU_ZERO(&cpus);
    r.jobs = ::sched_getaffinity(0, sizeof cpus, &cpus) == 0 ? static_cast<unsigned>(CPU_COUNT(&cpus)) : 1;
    if (r.jobs == 0) r.jobs = 1;
  }
  return r;
}

std::vector<std::string> effectiveOptions(const BatchRequest& request) {
  const BatchRequest r = normalized(request);
  std::vector<std::string> options;
  if (!r.configDir.empty()) options.insert(options.end(), {"--config-dir", r.configDir});
  if (!r.module.empty()) options.insert(options.end(), {"--module", r.module});
  for (const std::string& set : r.sets) options.insert(options.end(), {"--set", set});
  for (const std::string& dir : r.texturePaths)
    options.insert(options.end(), {"--texture-path", fs::absolute(dir).lexically_normal().string()});
  if (!r.missingTextures.empty()) options.insert(options.end(), {"--missing-textures", r.missingTextures});
  if (r.copyTexturesOutside) options.push_back("--copy-textures-outside");
  if (!r.memoryLimitMiB.empty()) options.insert(options.end(), {"--memory-limit", r.memoryLimitMiB});
  if (!r.textureNames.empty()) options.insert(options.end(), {"--texture-names", r.textureNames});
  return options;
}

std::string exporterVersion(const BatchRequest& request) {
  const BatchRequest r = normalized(request);
  std::vector<std::string> args = {r.exporter, "--version"};
  if (!r.module.empty()) args.insert(args.end(), {"--module", r.module});
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  int fds[2];
  if (::pipe2(fds, O_CLOEXEC) != 0) throw BatchError(std::string("cannot run the exporter: ") + std::strerror(errno));
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, fds[1], 1);
  pid_t pid = -1;
  const int rc = ::posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  ::close(fds[1]);
  std::string text;
  char block[4096];
  for (ssize_t n; rc == 0 && (n = ::read(fds[0], block, sizeof block)) != 0;) {
    if (n < 0 && errno == EINTR) continue;
    if (n < 0) break;
    text.append(block, static_cast<std::size_t>(n));
  }
  ::close(fds[0]);
  if (rc != 0) throw BatchError(r.exporter + ": cannot run the exporter: " + std::strerror(rc));
  int status = 0;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (!WIFEXITED(status) || WEXITSTATUS(status) != ztexit::kOk || text.empty())
    throw BatchError(r.exporter + ": the exporter cannot be used (" + r.exporter + " --version failed)");
  while (!text.empty() && text.back() == '\n') text.pop_back();
  return text;
}

std::string staleReason(const BatchRequest& request, const std::string& input, const std::string& output,
                        const std::string& version, HashCache& hashes, FileResult* result) {
  const BatchRequest r = normalized(request);
  if (r.force) return "--force";
  nlohmann::json stamp;
  std::error_code ec;
  const std::string stampFile = stampPath(r, output);
  if (!fs::exists(stampFile, ec)) return "new";
  try {
    stamp = nlohmann::json::parse(readFile(stampFile));
    if (stamp.at("exporter").get<std::string>() != version) return "the exporter changed";
    if (stamp.at("options").get<std::vector<std::string>>() != effectiveOptions(r)) return "the options changed";
    std::vector<std::string> outputs;
    std::vector<SharedOutput> shared;
    std::uint64_t bytes = 0;
    for (const auto& entry : stamp.at("outputs")) {
      const std::string name = entry.at("path").get<std::string>();
      const fs::path path = fs::path(r.outputDir) / name;
      if (!fs::is_regular_file(path, ec)) return name + " is missing";
      if (hashes.hashOf(path.string()) != entry.at("sha256").get<std::string>()) return name + " changed";
      outputs.push_back(name);
      bytes += sizeOf(path);
      if (entry.contains("source"))
        shared.push_back({name, entry.at("sha256").get<std::string>(), entry.at("source").get<std::string>()});
    }
    for (const auto& dependency : stamp.at("dependencies")) {
      const std::string path = dependency.at("path").get<std::string>();
      const std::string hash = hashes.hashOf(path);
      if (hash.empty()) return path + " is missing";
      if (hash != dependency.at("sha256").get<std::string>()) return path + " changed";
    }
    if (result != nullptr) {
      result->input = input;
      result->output = output;
      result->outputs = std::move(outputs);
      result->shared = std::move(shared);
      result->bytes = bytes;
      result->status = Status::UpToDate;
    }
    return {};
  } catch (const std::exception&) {
    return "the stamp is not one this exporter reads";
  }
}

bool isUpToDate(const BatchRequest& request, const std::string& input, const std::string& output,
                const std::string& version, HashCache& hashes, FileResult* result) {
  return staleReason(request, input, output, version, hashes, result).empty();
}

ExportProcess startExport(const BatchRequest& request, const std::string& input, const std::string& output,
                          const std::string& work, bool deferFlush) {
  ExportProcess process;
  process.input = input;
  process.output = output;
  process.work = work;
  process.startedAt = monotonicSeconds();
  // Before the export reads anything: a dependency changed from here on may
  // not be what the export read.
  ::clock_gettime(CLOCK_REALTIME_COARSE, &process.startedAtWall);
  const fs::path target = fs::path(request.outputDir) / process.output;
  process.target = target.string();
  // zt2export writes into a directory that is there; textures go beside the
  // scene file. The folders are made beneath the output folder, never through
  // a link that leads out of it: the export would write wherever it pointed.
  {
    OutputDirectory root, folder;
    Result<void> opened = root.open(request.outputDir);
    const std::string sub = fs::path(process.output).parent_path().string();
    if (opened && !sub.empty()) opened = root.openBeneath(sub, true, folder, &process.createdDirs);
    if (!opened) {
      process.startError = opened.error().message;
      return process;
    }
  }
  process.outFd = ::memfd_create("zt2export-stdout", MFD_CLOEXEC);
  process.errFd = ::memfd_create("zt2export-stderr", MFD_CLOEXEC);
  if (process.outFd < 0 || process.errFd < 0) {
    process.startError = std::string("cannot keep the export's output: ") + std::strerror(errno);
    return process;
  }
  // The copies of textures that changed since the last run are replaced;
  // the scene files would name stale images otherwise. No --quiet: every
  // message goes into the manifest, and no progress line shows off a terminal.
  std::vector<std::string> args = {request.exporter, (fs::path(request.sourceDir) / input).string(),
                                   "-o", target.string(), "--depfile", work + ".d", "--replace-textures"};
  if (deferFlush) args.push_back("--no-sync");
  for (const std::string& option : effectiveOptions(request)) args.push_back(option);
  std::vector<char*> argv;
  for (std::string& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, process.outFd, 1);
  posix_spawn_file_actions_adddup2(&actions, process.errFd, 2);
  // A group of its own: the time limit and an interruption end the export
  // together with the model reader it may have started, and a Ctrl-C on the
  // terminal reaches the batch alone, which then ends the exports in order.
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t none, fatal;
  sigemptyset(&none);
  sigemptyset(&fatal);
  for (int s : {SIGINT, SIGTERM, SIGHUP, SIGPIPE}) sigaddset(&fatal, s);
  posix_spawnattr_setsigmask(&attributes, &none);
  posix_spawnattr_setsigdefault(&attributes, &fatal);
  posix_spawnattr_setpgroup(&attributes, 0);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);
  const int rc = ::posix_spawn(&process.pid, argv[0], &actions, &attributes, argv.data(), environ);
  posix_spawnattr_destroy(&attributes);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) {
    process.pid = -1;
    process.startError = request.exporter + ": cannot start the export: " + std::strerror(rc);
    return process;
  }
  process.pidfd = static_cast<int>(::syscall(SYS_pidfd_open, process.pid, 0));
  return process;
}

void killExport(const ExportProcess& process) {
  if (process.pid > 0) ::kill(-process.pid, SIGKILL);
}

void discardExport(ExportProcess& process, bool killed) {
  for (int* fd : {&process.pidfd, &process.outFd, &process.errFd}) {
    if (*fd >= 0) ::close(*fd);
    *fd = -1;
  }
  removeOwnFile(process.work + ".d");
  if (killed && !process.target.empty()) {
    const fs::path scene(process.target);
    removeAbandonedTemporaries(scene.parent_path().string(),
                               {scene.filename().string(), fs::path(scene).replace_extension(".skd").filename().string()});
  }
}

FileResult finishExport(const BatchRequest& request, ExportProcess& process, int waitStatus, bool timedOut,
                        const std::string& version, HashCache& hashes, std::string* heldStamp) {
  FileResult result;
  result.input = process.input;
  result.output = process.output;
  if (!process.startError.empty()) {
    result.status = Status::Failed;
    result.messages.push_back(process.startError);
    discardExport(process, false);
    return result;
  }
  collectMessages(contentsOf(process.outFd), result.messages);
  collectMessages(contentsOf(process.errFd), result.messages);
  result.seconds = monotonicSeconds() - process.startedAt;

  if (timedOut) {
    result.status = Status::TimedOut;
    char limit[64];
    std::snprintf(limit, sizeof limit, "%g", request.timeoutSeconds);
    result.messages.push_back("the export took more than " + std::string(limit) + " s and was stopped");
  } else if (WIFSIGNALED(waitStatus)) {
    result.status = Status::Failed;
    result.messages.push_back(std::string("the export ended with signal ") + std::to_string(WTERMSIG(waitStatus)) +
                              " (" + strsignal(WTERMSIG(waitStatus)) + ")");
  } else if (WIFEXITED(waitStatus) && WEXITSTATUS(waitStatus) == ztexit::kProblems) {
    result.status = Status::Cancelled;
  } else if (!WIFEXITED(waitStatus) || WEXITSTATUS(waitStatus) != ztexit::kOk) {
    result.status = Status::Failed;
  } else {
    result.status = Status::Exported;
  }
  if (result.status != Status::Exported) {
    discardExport(process, timedOut || WIFSIGNALED(waitStatus));
    return result;
  }

  // What was written (the scene file, its skin file, the texture copies it
  // names) and every file the export read, with its content now.
  const zt2export::ExportFiles rule = zt2export::parseDependencyRule(readFile(process.work + ".d"));
  const fs::path outputDir(request.outputDir);
  const fs::path scene = fs::path(process.target).lexically_normal();
  const fs::path skin = fs::path(scene).replace_extension(".skd");
  std::map<std::string, fs::path> written;
  for (const std::string& target : rule.targets) {
    const fs::path path = fs::absolute(target).lexically_normal();
    const fs::path relative = path.lexically_relative(outputDir);
    const bool inside = !relative.empty() && *relative.begin() != "..";
    written.emplace(inside ? relative.generic_string() : path.string(), path);
  }
  // A dependency changed since the export began may have been read before
  // or after the change: its hash now proves nothing about the output.
  std::vector<std::string> changed;
  nlohmann::json dependencies = nlohmann::json::array();
  std::vector<std::pair<std::string, std::string>> dependencyHashes;
  for (const std::string& path : rule.prerequisites) {
    struct stat st {};
    if (::stat(path.c_str(), &st) == 0 &&
        (st.st_ctim.tv_sec > process.startedAtWall.tv_sec ||
         (st.st_ctim.tv_sec == process.startedAtWall.tv_sec && st.st_ctim.tv_nsec >= process.startedAtWall.tv_nsec)))
      changed.push_back(path);
    const std::string hash = hashes.hashOf(path);
    if (hash.empty()) continue;
    dependencies.push_back({{"path", path}, {"sha256", hash}});
    dependencyHashes.emplace_back(path, hash);
  }
  nlohmann::json outputs = nlohmann::json::array();
  for (const auto& [name, path] : written) {
    result.outputs.push_back(name);
    result.bytes += sizeOf(path);
    // Hashed anew: another export of the run may have replaced a shared copy.
    const std::string hash = sha256Of(path.string());
    nlohmann::json entry = {{"path", name}, {"sha256", hash}};
    if (path != scene && path != skin) {
      // The image this is a copy of: the dependency of the same bytes, else
      // the one of the same name (the copy was replaced by another image).
      SharedOutput shared{name, hash, {}};
      const std::string fileName = ztext::asciiLower(path.filename().string());
      for (const auto& [dependency, dependencyHash] : dependencyHashes)
        if (dependencyHash == hash) {
          shared.source = dependency;
          break;
        }
      if (shared.source.empty())
        for (const auto& [dependency, dependencyHash] : dependencyHashes)
          if (ztext::asciiLower(fs::path(dependency).filename().string()) == fileName) {
            shared = {name, dependencyHash, dependency};
            break;
          }
      entry["source"] = shared.source;
      entry["sha256"] = shared.sha256;
      result.shared.push_back(std::move(shared));
    }
    outputs.push_back(std::move(entry));
  }
  result.seconds = monotonicSeconds() - process.startedAt;

  if (!changed.empty()) {
    for (const std::string& path : changed)
      result.messages.push_back(path + " changed while it was exported; not stamped, the next run exports it again");
    discardExport(process, false);
    return result;
  }
  const nlohmann::json stamp = {{"exporter", version},
                                {"options", effectiveOptions(request)},
                                {"dependencies", dependencies},
                                {"outputs", outputs}};
  const std::string text = stamp.dump(1) + "\n";
  if (heldStamp != nullptr)
    *heldStamp = text;
  else if (const Result<void> written = writeSmallFile(stampPath(request, result.output), text, false); !written)
    result.messages.push_back(stampPath(request, result.output) + ": cannot write the stamp: " +
                              written.error().message);
  discardExport(process, false);
  return result;
}

FileResult exportOne(const BatchRequest& request, const std::string& input, const std::string& output,
                     const std::string& version, HashCache& hashes, const std::string& work) {
  const BatchRequest r = normalized(request);
  // A stamp of the files about to be replaced would vouch for a mixture.
  removeOwnFile(stampPath(r, output));
  ExportProcess process = startExport(r, input, output, fs::absolute(work).string());
  int status = 0;
  bool timedOut = false;
  if (process.pid > 0) {
    const double deadline = process.startedAt + r.timeoutSeconds;
    for (;;) {
      const pid_t done = ::waitpid(process.pid, &status, WNOHANG);
      if (done == process.pid) break;
      if (done < 0 && errno != EINTR) break;
      const double left = deadline - monotonicSeconds();
      if (left <= 0 && !timedOut) {
        timedOut = true;
        killExport(process);
      }
      if (process.pidfd >= 0) {
        pollfd wait{process.pidfd, POLLIN, 0};
        ::poll(&wait, 1, timedOut ? 100 : static_cast<int>(std::min(left, 1.0) * 1000) + 1);
      } else {
        ::usleep(2000);
      }
    }
  }
  return finishExport(r, process, status, timedOut, version, hashes);
}

}  // namespace ztbatch
