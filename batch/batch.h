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

#include "format/output_files.h"

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
  // Options of one export handed to every export, and kept in the stamps.
  std::vector<std::string> texturePaths;  // --texture-path, in order
  std::string missingTextures;            // --missing-textures: empty (the export's default), error or drop
  bool copyTexturesOutside = false;       // --copy-textures-outside
  std::string memoryLimitMiB;             // --memory-limit: empty (the export's default) or a number
  std::string textureNames;               // --texture-names: empty (the export's default), keep or unique
  bool progress = false;              // a progress line on standard error
  bool json = false;                  // one JSON object per finished file on standard output
  bool wait = false;                  // wait for a batch that holds the output directory
};

// A request that cannot run at all: exit status 2.
class BatchError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

enum class Status { Exported, UpToDate, Cancelled, Failed, TimedOut, Interrupted };
// "exported", "up to date", "cancelled", "failed", "timed out", "interrupted".
const char* statusName(Status status);

// A file an export wrote that other exports of the batch may write too (a
// texture copy), with the content it must keep for this export's scene file.
struct SharedOutput {
  std::string path;    // relative to the output directory
  std::string sha256;  // of the image it is a copy of (or of the file as written)
  std::string source;  // the image it is a copy of; empty when none of the inputs is
};

struct FileResult {
  std::string input;                 // relative to the source directory
  std::string output;                // the scene file, relative to the output directory
  std::vector<std::string> outputs;  // every file written, relative to the output directory
  Status status = Status::Failed;
  std::vector<std::string> messages;
  double seconds = 0;
  std::uint64_t bytes = 0;           // of the outputs together
  std::vector<SharedOutput> shared;  // the outputs besides the scene and skin files
  std::string reason;                // why it is exported (a stale or missing stamp)
};

// A folder of the source tree that was not looked at, and why.
struct SkippedFolder {
  std::string path;  // relative to the source directory
  std::string reason;
};

struct BatchResult {
  std::vector<FileResult> files;  // in the order of findInputs()
  std::vector<SkippedFolder> skipped;
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
// True when the file is an XML document that the model reader takes for a
// model (Collada, Irrlicht, Ogre, XGL), by its root element.
bool isModelXml(const std::string& path);
// The files to export, relative to the source directory, sorted. The output
// directory is skipped when it lies inside (and noted in `skipped`, when
// given); it may not hold any file to export. Throws BatchError when a folder
// cannot be read or the output directory holds sources.
std::vector<std::string> findInputs(const BatchRequest& request, std::vector<SkippedFolder>* skipped = nullptr);
// The scene file zt2export writes for `input` (under `sourceDir`) by
// default: "a/car.3ds" and "a/car.scene.json" give "a/car.zt2".
std::string outputFor(const std::string& sourceDir, const std::string& input);
// The scene file of each input of a batch: outputFor's name, unless inputs
// of one folder share it (car.3ds and car.obj), which then each keep their
// whole file name: "a/car.3ds.zt2", "a/car.obj.zt2". An output that still
// two inputs would write is empty in `outputs` for both, with the reason in
// `clashes` (by input index).
std::vector<std::string> outputsFor(const std::string& sourceDir, const std::vector<std::string>& inputs,
                                    std::map<std::size_t, std::string>* clashes = nullptr);

// The first lines of `zt2export --version`: the module and the exporter's
// version. Throws BatchError when the program or its module cannot be run.
std::string exporterVersion(const BatchRequest& request);
// The options that shape every output, as they are kept in a stamp.
std::vector<std::string> effectiveOptions(const BatchRequest& request);

// Why `input`'s scene file `output` must be exported: "new" (no stamp),
// "the exporter changed", "the options changed", "OUT changed" or "OUT is
// missing" (an output), "SRC changed" (a dependency), "--force"; empty when
// the stamp names this exporter version and these options, every output it
// lists has the content it had and so has every dependency. An up-to-date
// `result` (when given) receives the stamp's outputs.
std::string staleReason(const BatchRequest& request, const std::string& input, const std::string& output,
                        const std::string& version, HashCache& hashes, FileResult* result = nullptr);
bool isUpToDate(const BatchRequest& request, const std::string& input, const std::string& output,
                const std::string& version, HashCache& hashes, FileResult* result = nullptr);

// Exports `input` into `output` (outputsFor's name) in a process of its own
// under the time limit, into the output directory, and stamps what it wrote;
// its files appear whole or not at all. `work` is a path private to this
// export, in a folder that exists: its dependency file is kept as `work`.d
// while it runs. Blocks until done.
FileResult exportOne(const BatchRequest& request, const std::string& input, const std::string& output,
                     const std::string& version, HashCache& hashes, const std::string& work);

// Texture copies of the batch that two of its files need with different
// contents (one image's copy replaced the other's, "wood.png" of two
// folders): every such file is failed, with an error naming both inputs and
// both images, and its stamp removed. Also a copy whose content is no longer
// that of its image. Returns the indices of the files it failed.
std::vector<std::size_t> failSharedOutputClashes(const BatchRequest& request, BatchResult& result);

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
// Throws BatchError. The caller then holds the directory's RunLock
// (lockOutput) for the whole run.
void prepareOutput(const BatchRequest& request);
// Takes the output directory's lock (format/output_files.h), waiting for
// another batch that holds it when the request says `wait`; throws
// BatchError naming the directory when another batch holds it.
void lockOutput(const BatchRequest& request, RunLock& lock);
// The prefix of work directories in the output directory (WorkDirectory).
const char* workDirectoryPrefix();
// The first part of a run: `result.files` gets a record for every input;
// those whose output an earlier input writes already are failed and those
// up to date are settled (each passed to `settled`, when given); each other
// record gets its output and the reason it is exported. Returns the indices
// of the inputs to export. Stops looking when `stop` says so.
std::vector<std::size_t> settleInputs(const BatchRequest& request, const std::vector<std::string>& inputs,
                                      const std::string& version, HashCache& hashes, BatchResult& result,
                                      const std::function<void(const FileResult&)>& settled = {},
                                      const std::function<bool()>& stop = {});

// The whole run: finds the inputs, checks stamps, exports the rest with up to
// `jobs` at once, and writes the manifest, also when SIGINT, SIGTERM or
// SIGHUP ends the run early (the running exports are killed and leave nothing).
BatchResult runBatch(const BatchRequest& request);
// What runBatch would do, without doing or writing anything: every record
// settled, those to export with their reason (status Exported).
BatchResult dryRun(const BatchRequest& request);
// One line of JSON for a finished file: input, status, outputs, seconds, messages.
std::string jsonLine(const FileResult& file);

}  // namespace ztbatch
