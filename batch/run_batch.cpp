// The whole run: up-to-date checks, up to `jobs` exports at once, the
// progress line, interruption, and the manifest.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <nlohmann/json.hpp>

#include "batch/batch.h"
#include "batch/batch_internal.h"
#include "format/output_files.h"
#include "host/inhouse/exit_codes.h"
#include "ztx_version.h"

namespace ztbatch {

namespace fs = std::filesystem;

const char* statusName(Status status) {
  switch (status) {
    case Status::Exported: return "exported";
    case Status::UpToDate: return "up to date";
    case Status::Cancelled: return "cancelled";
    case Status::Failed: return "failed";
    case Status::TimedOut: return "timed out";
    case Status::Interrupted: return "interrupted";
  }
  return "failed";
}

int exitStatusOf(const BatchResult& result) {
  if (result.interrupted) return ztexit::kSignalBase + result.signal;
  for (const FileResult& file : result.files)
    if (file.status != Status::Exported && file.status != Status::UpToDate) return ztexit::kProblems;
  return ztexit::kOk;
}

std::string manifestText(const BatchRequest& request, const std::string& version, const BatchResult& result) {
  const BatchRequest r = normalized(request);
  nlohmann::ordered_json counts = nlohmann::ordered_json::object();
  for (Status s : {Status::Exported, Status::UpToDate, Status::Cancelled, Status::Failed, Status::TimedOut,
                   Status::Interrupted})
    counts[statusName(s)] = std::count_if(result.files.begin(), result.files.end(),
                                          [&](const FileResult& f) { return f.status == s; });
  nlohmann::ordered_json files = nlohmann::ordered_json::array();
  for (const FileResult& f : result.files)
    files.push_back({{"input", f.input},
                     {"outputs", f.outputs},
                     {"status", statusName(f.status)},
                     {"messages", f.messages},
                     {"seconds", f.seconds},
                     {"bytes", f.bytes}});
  nlohmann::ordered_json skipped = nlohmann::ordered_json::array();
  for (const SkippedFolder& folder : result.skipped) skipped.push_back({{"folder", folder.path}, {"reason", folder.reason}});
  const nlohmann::ordered_json manifest = {{"source", r.sourceDir},
                                           {"output", r.outputDir},
                                           {"exporter", version},
                                           {"ztexportVersion", ztexport::kVersion},
                                           {"options", effectiveOptions(r)},
                                           {"interrupted", result.interrupted},
                                           {"exitStatus", exitStatusOf(result)},
                                           {"seconds", result.seconds},
                                           {"counts", counts},
                                           {"skipped", skipped},
                                           {"files", files}};
  return manifest.dump(2) + "\n";
}

void writeManifest(const BatchRequest& request, const std::string& version, const BatchResult& result) {
  const std::string path = (fs::path(normalized(request).outputDir) / kManifestName).string();
  const std::string text = manifestText(request, version, result);
  // Flushed, as the record of the run; a link of its name is replaced, never written through.
  OutputDirectory dir;
  FileStaging staging;
  Result<void> written = dir.open(normalized(request).outputDir);
  if (written) written = staging.stageReplacementIn(dir, kManifestName, {{text.data(), text.size()}});
  if (written) written = staging.commit();
  if (!written) throw BatchError(path + ": cannot write the manifest: " + written.error().message);
}

namespace {

// How often a run flushes what its exports wrote and stamps them.
constexpr double kFlushSeconds = 5;

// The signal that asked the run to stop, and a pipe that wakes the wait.
volatile std::sig_atomic_t stopSignal = 0;
int wakeFd = -1;

void onStop(int signal) {
  const int savedErrno = errno;
  stopSignal = signal;
  const char byte = 1;
  // A full pipe wakes the wait as well, so a failed write needs nothing.
  if (wakeFd >= 0 && ::write(wakeFd, &byte, 1) < 0) errno = savedErrno;
  errno = savedErrno;
}

class StopSignals {
 public:
  StopSignals() {
    stopSignal = 0;
    if (::pipe2(fds_, O_CLOEXEC | O_NONBLOCK) != 0) fds_[0] = fds_[1] = -1;
    wakeFd = fds_[1];
    struct sigaction action {};
    action.sa_handler = onStop;
    sigemptyset(&action.sa_mask);
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &action, &previous_[i]);
  }
  ~StopSignals() {
    for (std::size_t i = 0; i < kSignals.size(); ++i) ::sigaction(kSignals[i], &previous_[i], nullptr);
    wakeFd = -1;
    for (int fd : fds_)
      if (fd >= 0) ::close(fd);
  }
  int readEnd() const { return fds_[0]; }

 private:
  static constexpr std::array<int, 3> kSignals = {SIGINT, SIGTERM, SIGHUP};
  int fds_[2] = {-1, -1};
  std::array<struct sigaction, 3> previous_{};
};

// "done/total, failures, time left, the files being exported" on one line.
class Progress {
 public:
  Progress(bool enabled, std::size_t total) : enabled_(enabled), total_(total), started_(monotonicSeconds()) {}
  void show(std::size_t done, std::size_t failed, std::size_t exportsDone, std::size_t exportsLeft,
            const std::vector<std::string>& current) {
    if (!enabled_) return;
    const double now = monotonicSeconds();
    if (now - lastShown_ < 0.2 && done != total_) return;
    lastShown_ = now;
    std::string line = std::to_string(done) + "/" + std::to_string(total_) + "  " + std::to_string(failed) + " failed";
    if (exportsDone > 0 && exportsLeft > 0) {
      const auto left = static_cast<long>((now - started_) / static_cast<double>(exportsDone) *
                                          static_cast<double>(exportsLeft) + 0.5);
      char text[32];
      std::snprintf(text, sizeof text, "  %ld:%02ld left", left / 60, left % 60);
      line += text;
    }
    for (const std::string& name : current) line += "  " + name;
    winsize size{};
    const std::size_t width = ::ioctl(2, TIOCGWINSZ, &size) == 0 && size.ws_col > 1 ? size.ws_col - 1 : 79;
    if (line.size() > width) line.resize(width);
    std::fprintf(stderr, "\r\033[K%s", line.c_str());
    std::fflush(stderr);
    shown_ = true;
  }
  void clear() {
    if (!shown_) return;
    std::fprintf(stderr, "\r\033[K");
    std::fflush(stderr);
    shown_ = false;
  }
  // Starts the clock of the time left when the exports begin.
  void restart() { started_ = monotonicSeconds(); }

 private:
  bool enabled_;
  std::size_t total_;
  double started_;
  double lastShown_ = -1;
  bool shown_ = false;
};

bool failedStatus(Status s) { return s != Status::Exported && s != Status::UpToDate; }

// Flushes the file system that holds `dir` to the disk; fails with the reason.
Result<void> flushFileSystem(const std::string& dir) {
  const int fd = ::open(dir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (fd < 0) return Error{ErrorKind::io, std::strerror(errno)};
  const int error = ::syncfs(fd) == 0 ? 0 : errno;
  ::close(fd);
  if (error != 0) return Error{ErrorKind::io, std::strerror(error)};
  return {};
}

}  // namespace

const char* workDirectoryPrefix() { return kWorkPrefix; }

namespace {

// An output directory that is not one, or is the source directory itself:
// BatchError, named as the user gave it.
void refuseOutputDirectory(const BatchRequest& request, const BatchRequest& r) {
  std::error_code ec;
  if (fs::exists(r.outputDir, ec) && !fs::is_directory(r.outputDir, ec))
    throw BatchError(request.outputDir + ": not a directory");
  if (fs::exists(r.outputDir, ec) && fs::equivalent(r.outputDir, r.sourceDir, ec))
    throw BatchError(request.outputDir + ": the output directory cannot be the source directory");
}

}  // namespace

void prepareOutput(const BatchRequest& request) {
  const BatchRequest r = normalized(request);
  refuseOutputDirectory(request, r);
  // Stamps vouch for bytes by their digests: without them no run is safe to skip.
  if (const std::string why = hashingUnavailable(); !why.empty())
    throw BatchError("cannot hash files for the stamps: " + why);
  if (const Result<void> made = makeDirectories(r.outputDir); !made)
    throw BatchError("cannot create the output directory " + made.error().message);
  // Only folders that prove themselves a batch's, and whose batch is gone.
  removeAbandonedWorkDirectories(r.outputDir, kWorkPrefix);
}

void lockOutput(const BatchRequest& request, RunLock& lock) {
  const BatchRequest r = normalized(request);
  Result<void> locked = lock.acquire(r.outputDir, false);
  if (!locked && locked.error().kind == ErrorKind::busy && r.wait) {
    std::fprintf(stderr, "zt2export: %s: another batch is exporting into it; waiting for it to end\n",
                 r.outputDir.c_str());
    locked = lock.acquire(r.outputDir, true);
  }
  if (!locked && locked.error().kind == ErrorKind::busy)
    throw BatchError(r.outputDir + ": another batch is exporting into this directory; run one at a time, or give " +
                     "--wait to wait for it");
  if (!locked) throw BatchError("cannot lock the output directory: " + locked.error().message);
}

std::vector<std::size_t> settleInputs(const BatchRequest& request, const std::vector<std::string>& inputs,
                                      const std::string& version, HashCache& hashes, BatchResult& result,
                                      const std::function<void(const FileResult&)>& settled,
                                      const std::function<bool()>& stop) {
  const BatchRequest r = normalized(request);
  result.files.resize(inputs.size());
  std::map<std::size_t, std::string> clashes;
  const std::vector<std::string> outputs = outputsFor(r.sourceDir, inputs, &clashes);
  std::vector<std::size_t> pending;
  for (std::size_t i = 0; i < inputs.size() && !(stop && stop()); ++i) {
    FileResult& file = result.files[i];
    file.input = inputs[i];
    file.output = outputs[i];
    if (const auto clash = clashes.find(i); clash != clashes.end()) {
      file.status = Status::Failed;
      file.messages.push_back(clash->second);
      if (settled) settled(file);
      continue;
    }
    const double checkStarted = monotonicSeconds();
    file.reason = staleReason(r, inputs[i], outputs[i], version, hashes, &file);
    if (file.reason.empty()) {
      file.seconds = monotonicSeconds() - checkStarted;
      if (settled) settled(file);
      continue;
    }
    pending.push_back(i);
  }
  return pending;
}

std::vector<std::size_t> failSharedOutputClashes(const BatchRequest& request, BatchResult& result) {
  const BatchRequest r = normalized(request);
  struct Claim {
    std::size_t index;
    SharedOutput output;
  };
  std::map<std::string, std::vector<Claim>> claims;
  for (std::size_t i = 0; i < result.files.size(); ++i) {
    const FileResult& file = result.files[i];
    if (file.status != Status::Exported && file.status != Status::UpToDate) continue;
    for (const SharedOutput& shared : file.shared) claims[shared.path].push_back({i, shared});
  }
  auto sourceName = [&](const SharedOutput& shared) {
    if (shared.source.empty()) return std::string("an image of its own");
    const fs::path relative = fs::path(shared.source).lexically_relative(r.sourceDir);
    return !relative.empty() && *relative.begin() != ".." ? relative.generic_string() : shared.source;
  };
  std::vector<std::size_t> failed;
  auto fail = [&](std::size_t index, const std::string& message) {
    FileResult& file = result.files[index];
    file.messages.push_back(message);
    if (file.status == Status::Failed) return;
    file.status = Status::Failed;
    removeOwnFile(stampPath(r, file.output));
    failed.push_back(index);
  };
  for (const auto& [path, users] : claims) {
    bool differ = false;
    for (const Claim& c : users) differ = differ || c.output.sha256 != users.front().output.sha256;
    if (differ) {
      // Each user is told of one other that needs a different image here.
      for (const Claim& c : users)
        for (const Claim& d : users)
          if (d.output.sha256 != c.output.sha256) {
            fail(c.index, "ERROR: " + path + ": " + result.files[c.index].input + " needs here the copy of " +
                              sourceName(c.output) + " and " + result.files[d.index].input + " the copy of " +
                              sourceName(d.output) +
                              ", a different image of the same name; one copy replaces the other (rename one "
                              "image, or give --texture-names unique)");
            break;
          }
      continue;
    }
    const std::string now = sha256Of((fs::path(r.outputDir) / path).string());
    if (now != users.front().output.sha256)
      for (const Claim& c : users)
        fail(c.index, "ERROR: " + path + ": it is no longer the copy of " + sourceName(c.output) + " that " +
                          result.files[c.index].input + " needs; it changed during the run");
  }
  std::sort(failed.begin(), failed.end());
  return failed;
}

std::string jsonLine(const FileResult& file) {
  const nlohmann::ordered_json line = {{"input", file.input},
                                       {"status", statusName(file.status)},
                                       {"outputs", file.outputs},
                                       {"seconds", file.seconds},
                                       {"messages", file.messages}};
  return line.dump() + "\n";
}

BatchResult dryRun(const BatchRequest& request) {
  const BatchRequest r = normalized(request);
  refuseOutputDirectory(request, r);
  BatchResult result;
  const std::vector<std::string> inputs = findInputs(r, &result.skipped);
  const std::string version = exporterVersion(r);
  HashCache hashes;
  for (std::size_t index : settleInputs(r, inputs, version, hashes, result)) result.files[index].status = Status::Exported;
  result.exitStatus = exitStatusOf(result);
  return result;
}

BatchResult runBatch(const BatchRequest& request) {
  const BatchRequest r = normalized(request);
  const double started = monotonicSeconds();
  std::error_code ec;
  if (fs::exists(r.outputDir, ec) && !fs::is_directory(r.outputDir, ec))
    throw BatchError(request.outputDir + ": not a directory");
  BatchResult result;
  const std::vector<std::string> inputs = findInputs(r, &result.skipped);
  const std::string version = exporterVersion(r);
  prepareOutput(r);
  // One batch at a time: two at once would each stamp the other's files.
  RunLock lock;
  lockOutput(r, lock);
  WorkDirectory work;
  if (const Result<void> created = work.create(r.outputDir, kWorkPrefix); !created)
    throw BatchError(r.outputDir + ": cannot create the work directory: " + created.error().message);

  StopSignals signals;
  Progress progress(r.progress, inputs.size());
  HashCache hashes;
  std::size_t done = 0, failed = 0;
  auto report = [&](const FileResult& file) {
    ++done;
    if (r.json) {
      progress.clear();
      std::fputs(jsonLine(file).c_str(), stdout);
      std::fflush(stdout);
    }
    if (!failedStatus(file.status)) return;
    ++failed;
    progress.clear();
    std::fprintf(stderr, "zt2export: %s: %s\n", file.input.c_str(), statusName(file.status));
  };

  const std::vector<std::size_t> settling = settleInputs(
      r, inputs, version, hashes, result,
      [&](const FileResult& file) {
        report(file);
        if (file.status == Status::UpToDate) progress.show(done, failed, 0, 0, {});
      },
      [] { return stopSignal != 0; });
  std::deque<std::size_t> pending(settling.begin(), settling.end());

  // The exports do not flush their files one by one: the run flushes the
  // output's file system every few seconds and at its end, and only then
  // writes the stamps of the exports finished before the flush. A crash can
  // then cost exports, never stamp a file that did not reach the disk. The
  // stamps of what is about to be exported go first, and that removal is
  // flushed too, so that no earlier stamp can vouch for a new file.
  bool removedStamps = false;
  for (std::size_t index : pending)
    removedStamps = removeOwnFile(stampPath(r, result.files[index].output)) || removedStamps;
  const bool deferFlush = !removedStamps || flushFileSystem(r.outputDir).ok();
  struct HeldStamp {
    std::size_t index;
    std::string text;
  };
  std::vector<HeldStamp> held;
  double lastFlush = monotonicSeconds();
  auto writeHeldStamps = [&] {
    if (held.empty()) return;
    const Result<void> flushed = flushFileSystem(r.outputDir);
    for (const HeldStamp& h : held) {
      FileResult& file = result.files[h.index];
      const std::string path = stampPath(r, file.output);
      if (!flushed) {
        file.status = Status::Failed;
        file.messages.push_back(r.outputDir + ": cannot flush the written files to the disk: " +
                                flushed.error().message);
        if (r.json) std::fputs(jsonLine(file).c_str(), stdout), std::fflush(stdout);  // its final record
      } else if (const Result<void> written = writeSmallFile(path, h.text, false); !written) {
        file.messages.push_back(path + ": cannot write the stamp: " + written.error().message);
      }
    }
    held.clear();
    lastFlush = monotonicSeconds();
  };

  const fs::path workRoot = work.path();
  std::vector<ExportProcess> running;
  const std::size_t exportsTotal = pending.size();
  std::size_t exportsDone = 0;
  progress.restart();
  auto currentNames = [&] {
    std::vector<std::string> names;
    for (const ExportProcess& p : running) names.push_back(p.input);
    return names;
  };
  // Directories made for outputs: those of failed exports stay empty.
  std::vector<std::string> madeDirs;
  auto finish = [&](ExportProcess& process, int status, bool timedOut) {
    madeDirs.insert(madeDirs.end(), process.createdDirs.begin(), process.createdDirs.end());
    const std::size_t index = std::stoul(fs::path(process.work).filename().string());
    std::string stamp;
    result.files[index] = finishExport(r, process, status, timedOut, version, hashes, deferFlush ? &stamp : nullptr);
    if (!stamp.empty()) held.push_back({index, std::move(stamp)});
    ++exportsDone;
    report(result.files[index]);
  };
  auto fillPlaces = [&] {
    while (!stopSignal && running.size() < r.jobs && !pending.empty()) {
      const std::size_t index = pending.front();
      pending.pop_front();
      ExportProcess process = startExport(r, inputs[index], result.files[index].output,
                                          (workRoot / std::to_string(index)).string(), deferFlush);
      if (process.pid < 0)
        finish(process, 0, false);
      else
        running.push_back(std::move(process));
    }
  };
  struct Ended {
    ExportProcess process;
    int status;
    bool timedOut;
  };
  while (!stopSignal && (!pending.empty() || !running.empty())) {
    fillPlaces();
    progress.show(done, failed, exportsDone, exportsTotal - exportsDone, currentNames());
    if (running.empty()) continue;

    // Wait for an export to end, a time limit to pass, a stop, or the next
    // refresh of the progress line.
    double nearest = 0.25;
    for (const ExportProcess& p : running)
      nearest = std::min(nearest, std::max(0.0, p.startedAt + r.timeoutSeconds - monotonicSeconds()));
    std::vector<pollfd> waits;
    bool everyPidfd = true;
    for (const ExportProcess& p : running) {
      if (p.pidfd >= 0) waits.push_back({p.pidfd, POLLIN, 0});
      everyPidfd = everyPidfd && p.pidfd >= 0;
    }
    if (signals.readEnd() >= 0) waits.push_back({signals.readEnd(), POLLIN, 0});
    const int timeoutMs = everyPidfd ? static_cast<int>(nearest * 1000) + 1 : 2;
    ::poll(waits.data(), waits.size(), timeoutMs);

    std::vector<Ended> ended;
    for (std::size_t k = 0; k < running.size();) {
      ExportProcess& p = running[k];
      int status = 0;
      pid_t pid = ::waitpid(p.pid, &status, WNOHANG);
      bool timedOut = false;
      if (pid == 0 && monotonicSeconds() >= p.startedAt + r.timeoutSeconds) {
        killExport(p);
        while ((pid = ::waitpid(p.pid, &status, 0)) < 0 && errno == EINTR) {
        }
        timedOut = true;
      }
      if (pid == 0) {
        ++k;
        continue;
      }
      ended.push_back({std::move(p), status, timedOut});
      running.erase(running.begin() + static_cast<std::ptrdiff_t>(k));
    }
    // The next exports start before the ended ones are put in place, so the
    // places do not stand idle while files are moved and stamped.
    fillPlaces();
    for (Ended& e : ended) finish(e.process, e.status, e.timedOut);
    if (monotonicSeconds() - lastFlush >= kFlushSeconds) writeHeldStamps();
  }

  if (stopSignal) {
    result.interrupted = true;
    result.signal = stopSignal;
    for (ExportProcess& p : running) {
      killExport(p);
      int status = 0;
      while (::waitpid(p.pid, &status, 0) < 0 && errno == EINTR) {
      }
      const std::size_t index = std::stoul(fs::path(p.work).filename().string());
      result.files[index].status = Status::Interrupted;
      result.files[index].seconds = monotonicSeconds() - p.startedAt;
      madeDirs.insert(madeDirs.end(), p.createdDirs.begin(), p.createdDirs.end());
      discardExport(p, true);
    }
    for (std::size_t index : pending) result.files[index].status = Status::Interrupted;
    for (FileResult& file : result.files)
      if (file.input.empty()) file.status = Status::Interrupted;  // not even looked at
    const std::vector<std::string> outputs = outputsFor(r.sourceDir, inputs);
    for (std::size_t i = 0; i < inputs.size(); ++i) {
      result.files[i].input = inputs[i];
      if (result.files[i].output.empty()) result.files[i].output = outputs[i];
      if (r.json && result.files[i].status == Status::Interrupted) std::fputs(jsonLine(result.files[i]).c_str(), stdout);
    }
    std::fflush(stdout);
  }
  writeHeldStamps();
  // Texture copies that files of this run need with different contents: no
  // file is stamped on an image another one replaced.
  for (std::size_t index : failSharedOutputClashes(r, result)) {
    const FileResult& file = result.files[index];
    progress.clear();
    if (r.json) {
      std::fputs(jsonLine(file).c_str(), stdout);
      std::fflush(stdout);
    }
    std::fprintf(stderr, "zt2export: %s: %s\n", file.input.c_str(), statusName(file.status));
    for (const std::string& message : file.messages)
      if (message.rfind("ERROR: ", 0) == 0) std::fprintf(stderr, "zt2export: %s\n", message.c_str());
  }
  work.remove();
  std::sort(madeDirs.begin(), madeDirs.end(), [](const std::string& a, const std::string& b) {
    return a.size() != b.size() ? a.size() > b.size() : a < b;
  });
  for (const std::string& dir : madeDirs) removeEmptyDirectory(dir);
  progress.clear();
  result.seconds = monotonicSeconds() - started;
  result.exitStatus = exitStatusOf(result);
  writeManifest(r, version, result);
  return result;
}

}  // namespace ztbatch
