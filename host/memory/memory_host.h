// The in-memory host model: a scene loaded from a scene-description file
// (docs/scene-format.md), answering the host interfaces as the host would.
// It records what the exporter asks of the user interface (progress calls,
// message boxes, the info window) so that tools and tests can show or check it.
#pragma once

#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "host/interface.h"

namespace hostmodel {

// A scene file that cannot be loaded: the message names the file and the
// place ("scene.json: nodes[2].children[0].transform: expected 3 numbers").
class SceneLoadError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

struct ProgressCall {
  enum Kind { Start, Update, End } kind = Update;
  int percent = 0;
  std::string title;
};

class MemoryHost : public Interface {
 public:
  ~MemoryHost() override;

  // --- recorded user-interface calls ---
  const std::vector<ProgressCall>& progressCalls() const;
  const std::vector<std::string>& messageBoxes() const;
  const std::vector<std::string>& exportInfoTexts() const;

  // GetCancel answers true from its `n`-th call on (counting from 1); 0 never.
  void setCancelFromCall(int n);
  // Where GetDir(9) points.
  void setConfigDir(const std::string& dir);
  // Observers called as the calls happen (a tool prints progress with it).
  void setProgressObserver(std::function<void(const ProgressCall&)> observer);

  // Interface
  INode* GetRootNode() override;
  Interval GetAnimRange() override;
  std::string GetDir(int which) override;
  int GetFrameRate() override;
  void SetFrameRate(int rate) override;
  int GetTicksPerFrame() override;
  void ProgressStart(const std::string& title, bool showBar) override;
  void ProgressUpdate(int percent, bool showPercent, const std::string& title) override;
  void ProgressEnd() override;
  bool GetCancel() override;
  Color GetAmbient(TimeValue t, Interval& valid) override;
  Color GetBackGround(TimeValue t, Interval& valid) override;
  void MessageBox(const std::string& text, const std::string& caption) override;
  void ShowExportInfo(const std::string& text) override;

  struct Impl;
  explicit MemoryHost(std::unique_ptr<Impl> impl);
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

// Loads a scene file. Throws SceneLoadError naming the file and the place.
std::unique_ptr<MemoryHost> loadScene(const std::string& path);
// Loads a scene from JSON text; `baseDir` resolves relative paths (binary
// buffers, images); `sourceName` names the text in error messages.
std::unique_ptr<MemoryHost> loadSceneFromString(const std::string& json, const std::string& baseDir,
                                                const std::string& sourceName = "<scene>");

}  // namespace hostmodel
