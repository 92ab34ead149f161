// The exporter object: the state of one export and the tables its passes
// fill. It owns state, not logic: each pass lives in its subsystem's folder
// and works on the exporter it is given. One object serves one export.
#pragma once

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <tuple>
#include <unordered_map>
#include <vector>

#include "animation/animation_state.h"
#include "format/output_files.h"
#include "format/memory_file.h"
#include "host/inhouse/matrix.h"
#include "host/interface.h"
#include "host/max_types.h"
#include "materials/texture_export.h"
#include "host/scene_export.h"
#include "options/export_options.h"
#include "plugin/info_log.h"
#include "prepass/material_index_table.h"
#include "prepass/skin_tables.h"

class INode;
class Object;
class OptionsDialog;
struct MeshScratch;

// Host object (by identity) -> name of the first node whose mesh was written from it.
using MeshReferenceTable = std::unordered_map<const Object*, std::string>;

class SceneExporter : public SceneExport {
 public:
  // Uses the module's mesh scratch, kept for the life of the module.
  SceneExporter();
  // Uses `scratch`, which must outlive the exporter.
  explicit SceneExporter(MeshScratch& scratch);
  ~SceneExporter() override;
  SceneExporter(const SceneExporter&) = delete;
  SceneExporter& operator=(const SceneExporter&) = delete;

  // The export run: returns 1, or 0 when the scene file could not be written.
  // With `suppressPrompts` the options dialog is not shown.
  int DoExport(const char* name, Interface* hostInterface, bool suppressPrompts);

  // Stages the scene file and commits it with everything staged before it;
  // false when any of it failed (told on standard error), and then nothing
  // of the run is left.
  bool saveSceneFile(const char* name);
  // Tells again, as not made, the texture copies the log told of when the
  // export does not save.
  void tellCopiesNotMade();

  // --- the host's scene-export interface ---
  int ExtCount() override;
  const char* Ext(int n) override;  // "zt2" for 0, "" otherwise
  const char* LongDesc() override;
  const char* ShortDesc() override;
  const char* AuthorName() override;
  const char* CopyrightMessage() override;
  const char* OtherMessage1() override;
  const char* OtherMessage2() override;
  unsigned int Version() override;  // 110: version 1.10
  void ShowAbout(HWND hWnd) override;
  int DoExport(const char* name, ExpInterface* ei, Interface* i, BOOL suppressPrompts = FALSE,
               DWORD options = 0) override;
  BOOL SupportsOptions(int ext, DWORD options) override;

  // Shows the options dialog and, when it was shown, the "Export Info"
  // window through the module's windows library.
  void useModuleWindows();
  // Shows the "Export Info" window, after the host received the text, when
  // the export prompted the user.
  std::function<void(const std::string&)> exportInfoWindow;

  // Shows the options dialog; true when it closed with OK. Without a runner
  // the dialog closes with OK at once, as if the user accepted the settings.
  std::function<bool(OptionsDialog&)> optionsDialogRunner;
  // Called with the record once it is loaded and holds the frame range, before
  // the dialog would show: the command-line host edits fields here.
  std::function<void(OptionsDialog&)> optionsRecordEditor;

  // --- errors and messages ---
  bool hasError() const { return errorFlag_; }
  // Marks the export as failed without a line of its own; an error that the
  // user should read goes through logError.
  void markError() { errorFlag_ = true; }
  void clearError() { errorFlag_ = false; }
  void logMessage(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Logs one line and marks the export as failed: the one way a scene error
  // is reported, so that a line and its mark cannot drift apart.
  void logError(const char* format, ...) __attribute__((format(printf, 2, 3)));
  void showExportInfo();
  // Counts one more node of the progress total and shows `title` with the
  // percentage done.
  void stepProgress(const char* title);

  // --- per-export state ---
  std::string targetPath;       // directory with its trailing separator
  std::string targetName;       // base name without extension
  std::string targetExtension;  // with its dot
  // The same of the file the scene is written to, symbolic links followed:
  // the .skd and the copied textures go beside that file.
  std::string writtenPath;
  std::string writtenName;
  Interface* host = nullptr;
  InfoLog infoLog;
  MeshReferenceTable meshReferenceTable;
  int savedFrameRate = 30;
  Interval animationRange{0, 0};
  int ticksPerFrame = 160;
  TimeValue startTime = 0;
  int nodeCount = 0;
  int progressDone = 0;
  int progressTotal = 0;
  AnimationState animation;
  M_Matrix4x3Template<float> axisConversion;
  ExportOptions options;
  T_MemoryFile sceneFile{8192};

  // --- tables of the passes ---
  MaterialIndexTable materialIndexTable;
  std::set<std::string> nodeNameSet;
  SkinWeightTable skinWeightTable;
  SkinBoneIndexTable skinBoneIndexTable;
  SkinBoneNames skinBoneNames;
  std::string textureCopyDirectory;  // set by the material pass when textures are copied
  CopiedTextureSet copiedTextureSet;
  // The copy directory, opened at the first copy of an export.
  OutputDirectory textureDirectory;
  // Lines of the log that tell of a staged copy: (line, source, destination),
  // told again as not copied when the export does not save.
  std::vector<std::tuple<std::size_t, std::string, std::string>> stagedCopyLines;
  // Every file of the run (.skd, texture copies) waits here until the scene
  // file is saved; they are put in place together with it, or not at all.
  FileStaging staging;

  // Resets the values that every export starts from.
  void resetExportValues();

  // --- scratch ---
  // The mesh algorithms' work buffers.
  MeshScratch& meshScratch() { return meshScratch_; }

 private:
  bool errorFlag_ = false;
  bool promptsShown_ = false;
  MeshScratch& meshScratch_;
};

// Splits a file name into directory (with its trailing separator), base name
// and extension (with its dot), as the host's BMMSplitFilename does.
void BMMSplitFilename(const std::string& name, std::string& path, std::string& file, std::string& ext);
