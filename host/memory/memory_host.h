// The in-memory host model: a scene loaded from a scene-description file
// (docs/scene-format.md), answering the host interfaces as the host would.
// It records what the exporter asks of the user interface (progress calls,
// message boxes, the info window) so that tools and tests can show or check it.
#pragma once

#include <functional>
#include <map>
#include <memory>
#include <stdexcept>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/interface.h"

class INode;
class Mtl;
class Object;
class Texmap;

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
  bool show = false;  // showBar of a Start, showPercent of an Update
};

class MemoryHost : public Interface {
 public:
  ~MemoryHost() override;

  // --- recorded user-interface calls ---
  const std::vector<ProgressCall>& progressCalls() const;
  // The texts of the message boxes (their captions are not kept).
  const std::vector<std::string>& messageBoxes() const;
  const std::vector<std::string>& exportInfoTexts() const;
  // The files the exporter could not save, as "FILE: cannot save: REASON".
  const std::vector<std::string>& filesNotSaved() const;
  // How often GetCancel was asked.
  int cancelQueries() const;

  // GetCancel answers true from its `n`-th call on (counting from 1); 0 never.
  void setCancelFromCall(int n);
  // Where GetDir(9) points.
  void setConfigDir(const std::string& dir);
  // Observers called as the calls happen (a tool prints progress with it).
  void setProgressObserver(std::function<void(const ProgressCall&)> observer);
  // What EditExportOptions does to the record (the command-line tool's --set).
  void setOptionsEditor(std::function<void(OptionsDialog&)> editor);
  // What GetVerboseSink answers.
  void setVerboseSink(std::function<void(const std::string&)> sink);
  // What WritesSuppressed answers (the command-line tool's --check).
  void setWritesSuppressed(bool suppressed);
  // What TextureCopiesOutsideAllowed answers (the command-line tool's --copy-textures-outside).
  void setTextureCopiesOutsideAllowed(bool allowed);
  // What FlushesDeferred answers (the command-line tool's --no-sync).
  void setFlushesDeferred(bool deferred);
  // What ChangedTextureCopiesReplaced answers (the command-line tool's --replace-textures).
  void setChangedTextureCopiesReplaced(bool replaced);
  // What TextureCopiesNamedByContent answers (the command-line tool's --texture-names unique).
  void setTextureCopiesNamedByContent(bool named);
  // What KeyErrorBound answers (the command-line tool's --key-error-bound).
  void setKeyErrorBound(bool bound);
  // Called with each stage the exporter announces (benchmarks time them).
  void setStageObserver(std::function<void(const char*)> observer);

  // --- looking the scene up (tests) ---
  // The name the scene was loaded under, as error messages show it.
  const std::string& sourceName() const;
  // The first node (depth-first) whose id is `id`; a node's id is its name
  // unless the scene gives it one. None when there is no such node.
  INode* findNode(const std::string& id) const;
  // Objects, materials and texture maps declared with this id, or none.
  Object* findObject(const std::string& id) const;
  Mtl* findMaterial(const std::string& id) const;
  Texmap* findTexmap(const std::string& id) const;
  // Physique vertex interfaces handed out and not released, over all nodes.
  int outstandingVertexInterfaces() const;

  // Interface
  INode* GetRootNode() override;
  Interval GetAnimRange() override;
  // The configuration directory for APP_PLUGCFG_DIR (9); empty for any other code.
  std::string GetDir(int which) override;
  int GetFrameRate() override;
  void SetFrameRate(int rate) override;
  // 4800 / frame rate in integer division; 4800 (one frame a second's worth
  // of ticks) while the rate is 0 or negative, so that no caller divides by 0.
  int GetTicksPerFrame() override;
  void ProgressStart(const std::string& title, bool showBar) override;
  void ProgressUpdate(int percent, bool showPercent, const std::string& title) override;
  void ProgressEnd() override;
  bool GetCancel() override;
  // Colours at tick t; `valid` shrinks to t itself when the colour is keyed.
  Color GetAmbient(TimeValue t, Interval& valid) override;
  Color GetBackGround(TimeValue t, Interval& valid) override;
  void MessageBox(const std::string& text, const std::string& caption) override;
  void ShowExportInfo(const std::string& text) override;
  void FileNotSaved(const std::string& file, const std::string& reason) override;
  // Images are looked up in the scene file's directory.
  BitmapManager* GetBitmapManager() override;
  // Bitmaps loaded and not released yet.
  int outstandingBitmaps() const;
  // Folders searched for images after those the scene names (--texture-path).
  void addTexturePaths(const std::vector<std::string>& dirs);
  // The bitmap manager's warnings and errors about images (memory_bitmaps.h).
  const std::vector<std::string>& textureNotes() const;
  // The frames a second of the model the scene was imported from (its clips'
  // keys fall on them), or 0; the scene's own rate is what the export samples.
  int sourceFrameRate() const;
  // Why images failed to load, once per file ("PATH: cannot read the image: REASON").
  const std::vector<std::string>& imageProblems() const;
  void EditExportOptions(OptionsDialog& record) override;
  std::function<void(const std::string&)> GetVerboseSink() override;
  bool WritesSuppressed() override;
  bool TextureCopiesOutsideAllowed() override;
  bool ChangedTextureCopiesReplaced() override;
  bool TextureCopiesNamedByContent() override;
  bool KeyErrorBound() override;
  bool FlushesDeferred() override;
  // Noted as a file written (file_reads.h).
  void TextureCopyUsed(const std::string& path) override;
  void ExportStage(const char* stage) override;

  struct Impl;
  explicit MemoryHost(std::unique_ptr<Impl> impl);
  Impl& impl() { return *impl_; }

 private:
  std::unique_ptr<Impl> impl_;
};

// How deep nodes may nest in a scene (top nodes are level 1). The exporter
// walks the node tree recursively, as the host's own scenes are walked; a
// limit far beyond any real hierarchy keeps its stack safe. Importers refuse
// deeper models before they build anything of them.
inline constexpr int kMaxNodeDepth = 1000;

// Loads a scene file. Throws SceneLoadError naming the file and the place.
std::unique_ptr<MemoryHost> loadScene(const std::string& path);
// Loads a scene from JSON text; `baseDir` resolves relative paths (binary
// buffers, images, the configuration directory); `sourceName` names the text
// in error messages.
std::unique_ptr<MemoryHost> loadSceneFromString(const std::string& json, const std::string& baseDir,
                                                const std::string& sourceName = "<scene>");
// The same, with buffer files given in memory under the names the document
// uses for them (a scene that an importer built). The bytes are read in
// place; they must stay until the load returns.
using BufferViews = std::map<std::string, std::span<const unsigned char>>;
std::unique_ptr<MemoryHost> loadSceneFromString(std::string_view json, const std::string& baseDir,
                                                const std::string& sourceName, const BufferViews& buffers);

}  // namespace hostmodel
