#include "plugin/scene_exporter.h"

#include <cstdarg>
#include <cstdio>

#include "geometry/mesh_scratch.h"
#include "plugin/exporter_windows.h"
#include "plugin/plugin_entry.h"

SceneExporter::SceneExporter() : SceneExporter(moduleMeshScratch()) {}

SceneExporter::SceneExporter(MeshScratch& scratch) : meshScratch_(scratch) { resetExportValues(); }

SceneExporter::~SceneExporter() = default;

void SceneExporter::resetExportValues() {
  startTime = 0;
  nodeCount = 0;
  animation = AnimationState{};
  options.positionDelta = 0.0f;
  options.rotationDelta = 0.0f;
  options.rescaleFactor = 1.0f;
  options.loop = false;
  options.loopInterpolation = false;
  axisConversion[0] = {1, 0, 0};
  axisConversion[1] = {0, 1, 0};
  axisConversion[2] = {0, 0, -1};
  axisConversion[3] = {0, 0, 0};
}

void SceneExporter::logMessage(const char* format, ...) {
  va_list args;
  va_start(args, format);
  infoLog.logMessageV(format, args);
  va_end(args);
}

void SceneExporter::logError(const char* format, ...) {
  va_list args;
  va_start(args, format);
  infoLog.logMessageV(format, args);
  va_end(args);
  markError();
}

void SceneExporter::showExportInfo() {
  if (infoLog.empty()) return;
  // The host always receives the text (the command-line host prints it and
  // reads its exit status from it); the window opens only for a user who
  // was prompted, since it would stop a run that nobody watches.
  host->ShowExportInfo(infoLog.text());
  if (exportInfoWindow && promptsShown_) exportInfoWindow(infoLog.text());
}

void SceneExporter::useModuleWindows() {
  optionsDialogRunner = [this](OptionsDialog& record) {
    std::string why;
    ExporterWindows* windows = loadExporterWindows(why);
    if (!windows) {
      // Nobody can answer the dialog: the export ends as if it was cancelled.
      host->MessageBox("Cannot show the options dialog: " + why, "ZT Exporter");
      return false;
    }
    return windows->runOptionsDialog(record);
  };
  exportInfoWindow = [](const std::string& text) {
    std::string why;
    if (ExporterWindows* windows = loadExporterWindows(why))
      windows->showExportInfo(text);
    else
      reportWindowsUnavailable("the Export Info window", why);
  };
}

void SceneExporter::stepProgress(const char* title) {
  ++progressDone;
  // Multiplying before dividing keeps the quotient exact enough that a whole
  // percentage is never truncated to the one below it (29 of 100 is 29, not 28).
  const int percent = progressTotal > 0 ? static_cast<int>(progressDone * 100.0 / progressTotal) : 0;
  host->ProgressUpdate(percent, false, title);
}

void BMMSplitFilename(const std::string& name, std::string& path, std::string& file, std::string& ext) {
  const std::size_t slash = name.find_last_of("/\\");
  const std::size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
  path = name.substr(0, nameStart);
  const std::size_t dot = name.find_last_of('.');
  if (dot == std::string::npos || dot < nameStart) {
    file = name.substr(nameStart);
    ext.clear();
  } else {
    file = name.substr(nameStart, dot - nameStart);
    ext = name.substr(dot);
  }
}
