// The running host as the exporter reaches it: scene root, time settings,
// directories, progress bar, cancel, the scene's global colours, and the few
// user-interface services an export needs (message box, info window).
#pragma once

#include <string>

#include "host/max_types.h"

class BitmapManager;
class INode;

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
  // The modal "Export Info" window showing `text`.
  virtual void ShowExportInfo(const std::string& text) = 0;

  // The host's bitmap manager (the SDK's global TheManager), through which
  // texture images are examined and loaded.
  virtual BitmapManager* GetBitmapManager() = 0;
};
