// One export as every front end runs it (zt2export, the Python package, the
// Blender add-on through it): the checks before anything is written, the
// scene or model loaded into the host model, the options edited against its
// frame range, the exporter module driven as the host drives it, and what
// came of it as data: a status, the messages as records, the files read and
// written. Front ends only translate a request in and an outcome out.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "host/inhouse/result.h"

class ExporterModule;
namespace hostmodel {
struct ProgressCall;
}

namespace ztdriver {

struct ExportRequest {
  std::string scene;       // a scene-description file or a model
  std::string output;      // ends in .zt2; empty: the scene's name with .zt2, in the current folder
  std::string configDir;   // empty: defaultConfigDir()
  std::string writeScene;  // a model also written as a scene-description file
  std::string depfile;     // a make rule of the files written and read, after a successful export
  std::vector<std::pair<std::string, std::string>> sets;  // field, value, as --set takes them
  std::vector<std::string> texturePaths;
  std::uint64_t memoryLimitMiB = 0;  // 0: by the model's size
  bool dropMissingTextures = false;
  bool copyTexturesOutside = false;
  bool replaceTextures = false;
  bool uniqueTextureNames = false;
  bool noSync = false;
  bool keyErrorBound = false;  // keys that rebuild every sample within the tolerances
  bool saveOptions = false;   // ZTExport.cfg written at the end, as the dialog's OK does
  bool dryRun = false;        // the whole export, nothing written
  bool everyMessage = false;  // the exporter shows its messages even when nothing failed
  bool dialog = false;        // the options dialog before the export (prompts not suppressed)
  bool trace = false;         // the exporter's developer trace goes to the observer
  // How the front end names the configuration folder in a message ("--config-dir").
  std::string configDirOption = "--config-dir";
  // The prefix of a dry run's temporary texture folder.
  std::string dryRunPrefix = "ztexport-dry-run-";
};

enum class ExportStatus {
  ok = 0,           // written (or nothing to write)
  sceneErrors = 1,  // the exporter cancelled the export because of errors in the scene
  failed = 2,       // not run, or not saved: see ExportOutcome::failure
};

// Why a run that did not export failed; the front end picks its exception or exit status.
enum class FailureKind {
  none,
  badRequest,  // an argument the request should not have held (a bad option value, a wrong name)
  setup,       // the module, the scene, the configuration folder, a folder that cannot be written
  saving,      // the export ran but its files could not be put in place
};

enum class MessageKind {
  info,          // a line of the exporter's "Export Info" text starting "INFO:"
  warning,       // ... "WARNING:"
  error,         // ... "ERROR:"
  text,          // ... any other line
  messageBox,    // the exporter's message box (the run failed)
  imageProblem,  // the host's word on an image the exporter asked for (the file, the reason)
  textureNote,   // what the host knows of an image it could not open, or found under another name
  note,          // the driver's own remark on the request
  sceneWarning,  // "WARNING: ..." of the host on the scene and the options together (samples missing frames)
  fileNotSaved,  // "FILE: cannot save: REASON": a file of the export (ZTExport.cfg too) that could not be saved
};

struct ExportMessage {
  MessageKind kind;
  std::string text;  // UTF-8 (names in the exporter's words converted from the host's code page)
};

struct ExportOutcome {
  ExportStatus status = ExportStatus::failed;
  FailureKind failureKind = FailureKind::none;
  std::string failure;  // one line: why, naming the file; empty unless failureKind is set
  std::string output;   // the .zt2 the request meant
  // In the order a user reads them: files not saved (told as they fail),
  // notes, image problems, message boxes, the info texts' lines, texture notes.
  std::vector<ExportMessage> messages;
  // The "Export Info" texts as the exporter showed them (UTF-8, "\r\n" ends).
  std::vector<std::string> infoTexts;
  std::vector<std::string> filesWritten;  // the output first, its .skd, then texture copies and the like
  std::vector<std::string> filesRead;     // the options files, the scene, buffers, images
};

// What a front end hears while the export runs.
class ExportObserver {
 public:
  virtual ~ExportObserver() = default;
  virtual void progress(const hostmodel::ProgressCall&) {}
  // A line of the exporter's developer trace (request.trace).
  virtual void trace(const std::string&) {}
};

// The .zt2 a scene exports to when no output is named.
std::string defaultOutput(const std::string& scene);
// Refuses `output` as the name of an export's file when it does not end in
// .zt2, with a message that names it as the front end does (`naming`: "-o ").
Result<void> checkOutputName(const std::string& output, const std::string& naming = "");

// Runs one export of `request` with the exporter of `module` (loaded by the
// front end, which also answers --version and the like from it). Never
// throws for anything a user can cause; the outcome says what happened. One
// at a time per process: the host model keeps the files read and written per
// process, so runExport serialises its callers.
ExportOutcome runExport(const ExportRequest& request, const ExporterModule& module, ExportObserver& observer);

}  // namespace ztdriver
