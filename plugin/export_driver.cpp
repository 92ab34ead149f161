// DoExport: one export run from the host's call to the saved scene file.
#include <cstdio>
#include <memory>
#include <string>

#include "animation/animation_pass.h"
#include "format/output_files.h"
#include "host/inode.h"
#include "host/interface.h"
#include "materials/material_export.h"
#include "options/apply_options.h"
#include "options/options_dialog.h"
#include "plugin/dispatch.h"
#include "plugin/scene_exporter.h"
#include "prepass/node_prepass.h"
#include "scene_objects/environment.h"
#include "host/inhouse/system.h"

namespace {
constexpr const char* kSaveFailedFormat = "Unable to write to %s.\n\nExport cancelled.";
constexpr std::size_t kSceneFileHeldInMemory = std::size_t{4} << 20;
constexpr const char* kNotCopiedFormat = "INFO: Texture \"%s\" not copied to \"%s\": the export was canceled.";

// Saves ZTExport.cfg when the dialog closed with OK, then lets the record go.
// A failed save ends no export; the host hears which file and why.
void closeOptionsDialog(std::unique_ptr<OptionsDialog>& dialog, Interface& host) {
  if (dialog && dialog->saveOnClose) {
    dialog->saveOnClose = false;
    if (const Result<void> saved = dialog->saveOptions(); !saved)
      host.FileNotSaved(dialog->configFilePath, saved.error().message);
  }
  dialog.reset();
}
}  // namespace

bool SceneExporter::saveSceneFile(const char* name) {
  // A failed staging is kept by the staging, whose commit then fails with it.
  (void)sceneFile.stage(name, staging);
  // One commit for the scene file, its .skd and the texture copies: when any
  // of them could not be staged (a .skd whose save the exporter's rules do not
  // report, say), none is put in place. The lock of the commit keeps the files
  // of one run together.
  const Result<void> committed = staging.commit(name);
  if (committed) return true;
  // The message box that follows names the scene file alone; the host hears
  // which file failed and why.
  host->FileNotSaved(staging.failedFile(), committed.error().message);
  sceneFile.abandonSpill();
  staging.discard();
  return false;
}

void SceneExporter::tellCopiesNotMade() {
  for (const auto& [line, source, destination] : stagedCopyLines) {
    const int length = std::snprintf(nullptr, 0, kNotCopiedFormat, source.c_str(), destination.c_str());
    std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
    std::snprintf(text.data(), text.size() + 1, kNotCopiedFormat, source.c_str(), destination.c_str());
    infoLog.replaceLine(line, text);
  }
  stagedCopyLines.clear();
}

int SceneExporter::DoExport(const char* name, Interface* hostInterface, bool suppressPrompts) {
  clearError();
  BMMSplitFilename(name, targetPath, targetName, targetExtension);
  {
    std::string ignoredExtension;
    BMMSplitFilename(resolvedTarget(name), writtenPath, writtenName, ignoredExtension);
  }
  staging.discard();
  // Each export writes a file of its own from the start.
  sceneFile = T_MemoryFile(8192);
  host = hostInterface;
  infoLog.clear();
  meshReferenceTable.clear();

  Sys->ceaseVerbose(1);
  // The trace lives on the exporter's side of the module boundary; the host
  // says where its lines go.
  if (auto sink = host->GetVerboseSink()) Sys->setVerboseSink(std::move(sink));
  File->suppressWrites(host->WritesSuppressed());
  // A scene file past a few mebibytes goes on into its staged temporary as
  // it is written, so that a large export does not hold the whole file in
  // memory beside the arrays it is made from.
  if (!host->WritesSuppressed())
    sceneFile.spillBeyond(kSceneFileHeldInMemory,
                          {[this, target = std::string(name)] { return staging.stageForWriting(target); },
                           [this](int fd, Result<void> written) { return staging.finishWriting(fd, std::move(written)); }});
  setFlushBeforeCommit(!host->FlushesDeferred());
  File->setArchiveHandling(0);

  savedFrameRate = host->GetFrameRate();
  animationRange = host->GetAnimRange();
  ticksPerFrame = host->GetTicksPerFrame();

  host->ProgressStart("Progress", true);
  // An exception from the in-house layer (exhausted memory, say) must still
  // leave the host as the export found it: progress bar closed and, once the
  // sample rate was applied, the scene's frame rate back.
  bool rateApplied = false;
  try {
    resetExportValues();

    host->ExportStage("options");
    auto dialog = std::make_unique<OptionsDialog>(host->GetDir(APP_PLUGCFG_DIR), host->GetFrameRate());
    dialog->startFrame = 0;
    dialog->endFrame = ticksPerFrame > 0 ? (animationRange.End() - animationRange.Start()) / ticksPerFrame : 0;
    dialog->loopToFrame = 0;
    dialog->animationRange = animationRange;
    dialog->ticksPerFrame = ticksPerFrame;
    if (optionsRecordEditor) optionsRecordEditor(*dialog);
    host->EditExportOptions(*dialog);

    promptsShown_ = !suppressPrompts;
    if (!suppressPrompts) {
      const bool ok = optionsDialogRunner ? optionsDialogRunner(*dialog) : true;
      if (!ok) {
        host->ProgressEnd();
        dialog->saveOnClose = false;
        return 1;
      }
      dialog->saveOnClose = true;
    }

    applyDialogOptions(*this, *dialog);
    rateApplied = true;
    readAdditionalConfig(*this);

    INode* root = host->GetRootNode();
    host->ExportStage("pre-pass");
    prepassNode(*this, root, nodeCount);

    progressDone = 0;
    progressTotal = options.exportAnimation ? nodeCount * 2 : nodeCount;

    host->ExportStage("environment");
    if (!hasError() && options.exportEnvironment) exportEnvironment(*this);
    host->ExportStage("materials");
    if (!hasError() && options.exportMaterials) exportMaterials(*this);

    host->ExportStage("objects");
    for (int i = 0; i < root->NumberOfChildren(); ++i) {
      if (host->GetCancel() || hasError()) break;
      dispatchNode(*this, root->GetChildNode(i));
    }

    host->ExportStage("animation");
    if (!hasError() && options.exportAnimation) exportSceneAnimation(*this);

    host->ExportStage("save");
    // Raw arrays are checked where they are made (mesh positions); this
    // catches a transform or light value scaled past the float's range.
    if (!hasError() && sceneFile.holdsNonFinite())
      logError("ERROR: A transform or parameter of the scene is beyond the range of a float once converted (a value "
               "near 3.4e38, scaled); nothing is written.");
    if (!hasError() && sceneFile.getSize() > 0) {
      if (!saveSceneFile(name)) {
        // Sized to the name: the user must see the whole path that failed, however deep.
        const int length = std::snprintf(nullptr, 0, kSaveFailedFormat, name);
        std::string text(length > 0 ? static_cast<std::size_t>(length) : 0, '\0');
        std::snprintf(text.data(), text.size() + 1, kSaveFailedFormat, name);
        host->MessageBox(text, "ZT Exporter");
        host->ProgressEnd();
        host->SetFrameRate(savedFrameRate);
        closeOptionsDialog(dialog, *host);
        return 0;
      }
    }
    // Whatever was staged and not saved with a scene file (the export failed,
    // or wrote nothing) goes, and the log says so of the copies it told of.
    if (!staging.empty()) tellCopiesNotMade();
    sceneFile.abandonSpill();
    staging.discard();

    host->ExportStage("done");
    if (hasError()) logMessage("%s", kExportCanceledMessage);
    host->SetFrameRate(savedFrameRate);
    skinWeightTable.clear();
    skinBoneIndexTable.clear();
    skinBoneNames.clear();
    host->ProgressEnd();
    if (hasError() || options.dumpInfo) showExportInfo();
    closeOptionsDialog(dialog, *host);
    return 1;
  } catch (...) {
    sceneFile.abandonSpill();
    staging.discard();
    if (rateApplied) host->SetFrameRate(savedFrameRate);
    host->ProgressEnd();
    throw;
  }
}
