// What the parts of the batch share and callers need not see: the names it
// writes and one export's process from its start to its commit.
#pragma once

#include <sys/types.h>

#include <ctime>

#include <string>
#include <vector>

#include "batch/batch.h"

namespace ztbatch {

inline constexpr const char* kManifestName = "ztexport-manifest.json";
inline constexpr const char* kStampSuffix = ".stamp";
// Work directories of running batches in the output directory: the prefix,
// then WorkDirectory's random part.
inline constexpr const char* kWorkPrefix = ".ztexport-work.";

// The request with every path absolute and the exporter program named.
BatchRequest normalized(const BatchRequest& request);

struct ExportProcess {
  std::string input;
  std::string output;     // relative to the output directory
  std::string target;     // the scene file's whole path
  std::string work;       // private to this export: its dependency file is work + ".d"
  pid_t pid = -1;         // also the id of the process group it leads
  int pidfd = -1;         // readable once the process ended; -1 where the system has none
  int outFd = -1;         // what it printed on standard output and error, kept in memory
  int errFd = -1;
  std::vector<std::string> createdDirs;  // made for its output, deepest last; the caller
                                         // removes those left empty once no export runs
  double startedAt = 0;   // monotonic seconds
  timespec startedAtWall{};  // the clock file times are taken from, before the export started
  std::string startError; // why no process could be started
};

double monotonicSeconds();

// The SHA-256 of the file's bytes as they are now, in hex; empty when it cannot be read.
std::string sha256Of(const std::string& path);

// The library the digests come from, loaded when first needed (Debian's libssl3).
inline constexpr const char* kCryptoLibrary = "libcrypto.so.3";

// Why files cannot be hashed (the library missing), or nothing.
std::string hashingUnavailable();

// The stamp beside the scene file `output` (relative to the output directory).
std::string stampPath(const BatchRequest& request, const std::string& output);

// Starts `zt2export` for one input of a normalized request, writing into the
// output directory; the caller removed the input's stamp first. The export's own staging keeps the output whole: its
// files appear together when it succeeds, and not at all otherwise.
// With `deferFlush` the export does not flush its files to the disk; the
// caller then flushes them before it writes the stamp (finishExport's `heldStamp`).
ExportProcess startExport(const BatchRequest& request, const std::string& input, const std::string& output,
                          const std::string& work, bool deferFlush = false);
// Kills the export and every process it started.
void killExport(const ExportProcess& process);
// Reads what the ended export (its wait status) wrote and said and stamps
// its files: the content of every output and dependency, unless a
// dependency changed after the export started (its stamp would then vouch
// for content the export never read: it is left unstamped, with a message). `timedOut` when it was killed for its time limit. With
// `heldStamp` the stamp's text goes there instead, for the caller to write
// once the files are on the disk.
FileResult finishExport(const BatchRequest& request, ExportProcess& process, int waitStatus, bool timedOut,
                        const std::string& version, HashCache& hashes, std::string* heldStamp = nullptr);
// Lets go of an export that ended: its dependency file and captured output.
// After a kill
// (`killed`) the temporaries it was saving are removed as well.
void discardExport(ExportProcess& process, bool killed);

}  // namespace ztbatch
