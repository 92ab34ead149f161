// Whole trees of scenes and models exported at once: which files, whether an
// output is up to date, one export in a process of its own, the manifest and
// the exit status. zt2export --batch is one caller; anything else that
// schedules exports (a cluster's workers) reaches the same rules through the
// functions below instead of writing them again.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

namespace ztbatch {

// What a run was asked. Paths may be relative to the current directory.
struct BatchRequest {
  std::string sourceDir;
  std::string outputDir;
  unsigned jobs = 0;                  // exports at once; 0: the processors this process may use
  std::vector<std::string> include;   // glob patterns; empty: defaultIncludes()
  std::vector<std::string> exclude;   // glob patterns taken out of what include chose
  bool force = false;                 // export even what is up to date
  double timeoutSeconds = 600;        // per file; the export is killed past it
  std::string configDir;              // empty: zt2export's own default
  std::vector<std::string> sets;      // "FIELD=VALUE", handed to every export in order
  std::string module;                 // empty: zt2export's own default
  std::string exporter;               // the zt2export program; empty: this very program, so a
                                      // caller that is not zt2export names it
  bool progress = false;              // a progress line on standard error
};

// A request that cannot run at all: exit status 2.
class BatchError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Status { Exported, UpToDate, Cancelled, Failed, TimedOut, Interrupted };
// "exported", "up to date", "cancelled", "failed", "timed out", "interrupted".
const char* statusName(Status status);

struct FileResult {
  std::string input;                 // relative to the source directory
  std::string output;                // the scene file, relative to the output directory
  std::vector<std::string> outputs;  // every file written, relative to the output directory
  Status status = Status::Failed;
  std::vector<std::string> messages;
  double seconds = 0;
  std::uint64_t bytes = 0;           // of the outputs together
};

struct BatchResult {
  std::vector<FileResult> files;  // in the order of findInputs()
  bool interrupted = false;
  int signal = 0;                 // the signal that interrupted the run
  double seconds = 0;
  int exitStatus = 0;
};

// Content hashes of files, each file hashed once per cache.
class HashCache {
 public:
  // The SHA-256 of the file's bytes in hex; empty when it cannot be read.
  std::string hashOf(const std::string& path);

 private:
  std::mutex lock_;
  std::map<std::string, std::string> hashes_;
};

// "*.json" and "*.EXT" for every model format zt2export imports.
std::vector<std::string> defaultIncludes();
// True when the glob `pattern` takes `relative` (a path under the source
// directory): a pattern with a '/' is matched against the whole path, one
// without against the file name; case is not minded.
bool globMatches(const std::string& pattern, const std::string& relative);
// The files to export, relative to the source directory, sorted; the output
// directory is skipped when it lies inside. Throws BatchError when the source
// directory cannot be read.
std::vector<std::string> findInputs(const BatchRequest& request);
// The scene file zt2export writes for `input` (under `sourceDir`) by
// default: "a/car.3ds" and "a/car.scene.json" give "a/car.zt2".
std::string outputFor(const std::string& sourceDir, const std::string& input);

// The first lines of `zt2export --version`: the module and the exporter's
// version. Throws BatchError when the program or its module cannot be run.
std::string exporterVersion(const BatchRequest& request);
// The options that shape every output, as they are kept in a stamp.
std::vector<std::string> effectiveOptions(const BatchRequest& request);

// True when the stamp beside `input`'s output names this exporter version
// and these options, every output it lists is there and every dependency it
// lists has the content it had. `result` (when given) receives the outputs.
bool isUpToDate(const BatchRequest& request, const std::string& input, const std::string& version,
                HashCache& hashes, FileResult* result = nullptr);

// Exports `input` in a process of its own under the time limit, into the
// output directory, and stamps what it wrote; its files appear whole or not
// at all. `work` is a path private to this export: its dependency file is
// kept as `work`.d while it runs (the directory is made when missing).
// Blocks until done.
FileResult exportOne(const BatchRequest& request, const std::string& input, const std::string& version,
                     HashCache& hashes, const std::string& work);

// 0 when every file was exported or up to date, 1 otherwise; an interrupted
// run gives 128 + its signal.
int exitStatusOf(const BatchResult& result);
// The manifest, a JSON document (docs/batch.md lists its fields).
std::string manifestText(const BatchRequest& request, const std::string& version, const BatchResult& result);
// Writes the manifest as OUT_DIR/ztexport-manifest.json through a temporary
// and a rename. Throws BatchError when it cannot.
void writeManifest(const BatchRequest& request, const std::string& version, const BatchResult& result);

// Checks that the output directory is one and not the source directory,
// creates it and removes the work directories that ended batches left.
// Throws BatchError.
void prepareOutput(const BatchRequest& request);
// The first part of a run: `result.files` gets a record for every input;
// those whose output an earlier input writes already are failed and those
// up to date are settled (each passed to `settled`, when given). Returns the
// indices of the inputs to export. Stops looking when `stop` says so.
std::vector<std::size_t> settleInputs(const BatchRequest& request, const std::vector<std::string>& inputs,
                                      const std::string& version, HashCache& hashes, BatchResult& result,
                                      const std::function<void(const FileResult&)>& settled = {},
                                      const std::function<bool()>& stop = {});

// The whole run: finds the inputs, checks stamps, exports the rest with up to
// `jobs` at once, and writes the manifest, also when SIGINT, SIGTERM or
// SIGHUP ends the run early (the running exports are killed and leave nothing).
BatchResult runBatch(const BatchRequest& request);

}  // namespace ztbatch
