// The running host as the exporter reaches it: scene root, time settings,
// directories, progress bar, cancel, the scene's global colours, and the few
// user-interface services an export needs (message box, info window).
#pragma once

#include <functional>
#include <string>

#include "host/max_types.h"

class BitmapManager;
class INode;
class OptionsDialog;

// Directory code of the exporter's configuration directory.
inline constexpr int APP_PLUGCFG_DIR = 9;

class Interface {
 public:
  virtual ~Interface() = default;

  virtual INode* GetRootNode() = 0;
  virtual Interval GetAnimRange() = 0;
  virtual std::string GetDir(int which) = 0;

  // Frame rate and ticks per frame; SetFrameRate changes what GetTicksPerFrame answers.
  virtual int GetFrameRate() = 0;
  virtual void SetFrameRate(int rate) = 0;
  virtual int GetTicksPerFrame() = 0;

  virtual void ProgressStart(const std::string& title, bool showBar) = 0;
  virtual void ProgressUpdate(int percent, bool showPercent, const std::string& title) = 0;
  virtual void ProgressEnd() = 0;
  virtual bool GetCancel() = 0;

  virtual Color GetAmbient(TimeValue t, Interval& valid) = 0;
  virtual Color GetBackGround(TimeValue t, Interval& valid) = 0;

  // A modal message box with an OK button.
  virtual void MessageBox(const std::string& text, const std::string& caption) = 0;
  // The export's messages at its end ("Export Info"), for the host to show
  // or record; the exporter opens its own window as well when it prompted.
  virtual void ShowExportInfo(const std::string& text) = 0;
  // A file of the export (the scene file, its .skd, ZTExport.cfg) that could
  // not be saved, with the system's reason, told as it happens: the message
  // box that may follow names the scene file only, and a failed save of the
  // options ends no export. A host without a place for it drops it.
  virtual void FileNotSaved(const std::string& /*file*/, const std::string& /*reason*/) {}

  // The host's bitmap manager (the SDK's global TheManager), through which
  // texture images are examined and loaded.
  virtual BitmapManager* GetBitmapManager() = 0;
  // The command-line host's stand-in for the user at the options dialog: it
  // may change the record once it is loaded, before the dialog would show.
  // A host with a user leaves the record alone.
  virtual void EditExportOptions(OptionsDialog& /*record*/) {}
  // Where the exporter's developer trace goes; none drops it. The trace
  // lives inside the exporter module, so the host hands its sink over here.
  virtual std::function<void(const std::string&)> GetVerboseSink() { return {}; }
  // True when the host asks for a dry run: every pass runs and reports, but
  // the in-house layer writes no file. The flag lives inside the exporter
  // module, so the host hands it over here.
  virtual bool WritesSuppressed() { return false; }
  // True when the user asked for texture copies outside the directory of the
  // exported file (a texture path that climbs out with ".."). Without it such
  // a path stops the export: a saved option must not spill files elsewhere.
  virtual bool TextureCopiesOutsideAllowed() { return false; }
  // True when the files written need not be flushed to the disk one by one:
  // the caller flushes them all at once later (a batch of exports). The
  // switch lives inside the exporter module, so the host hands it over here.
  virtual bool FlushesDeferred() { return false; }
  // True when a texture copy found beside the export with other bytes than
  // its image is to be replaced (a build re-exporting after an image
  // changed). By default such a copy is left as it is.
  virtual bool ChangedTextureCopiesReplaced() { return false; }
  // Whether texture copies are named by their content ("wood.1a2b3c4d.png"),
  // which the scene file then names: images of one name from different
  // folders then never take each other's place.
  virtual bool TextureCopiesNamedByContent() { return false; }
  // True when animation keys must rebuild every sample within the
  // tolerances (zt2export --key-error-bound) rather than follow the rule
  // that compares a sample with its neighbours only.
  virtual bool KeyErrorBound() { return false; }
  // Told of every texture copy the exported file relies on: staged by this
  // export, or found there already with the image's bytes. A host that names
  // an export's outputs (a dependency file) lists them.
  virtual void TextureCopyUsed(const std::string& /*path*/) {}
  // Told as each stage of the export begins ("options", "pre-pass",
  // "environment", "materials", "objects", "animation", "save", then
  // "done"), so that a host can time them. A host that does not time leaves it.
  virtual void ExportStage(const char* /*stage*/) {}
};
