#include "plugin/plugin_entry.h"

#include <string>

#include "geometry/mesh_scratch.h"
#include "plugin/exporter_windows.h"
#include "plugin/scene_exporter.h"

const char* LibDescription() {
  static const std::string description = std::string("ZT Scene Exporter") + " [" + kBuildDate + "]";
  return description.c_str();
}

int LibNumberClasses() { return 1; }

unsigned long LibVersion() { return kHostSdkVersion; }

ClassDesc* LibClassDesc(int i) {
  static SceneExporterClassDesc descriptor;
  return i == 0 ? &descriptor : nullptr;
}

void* SceneExporterClassDesc::Create(BOOL /*loading*/) {
  auto* exporter = new SceneExporter();
  exporter->useModuleWindows();
  return static_cast<SceneExport*>(exporter);
}

MeshScratch& moduleMeshScratch() {
  static MeshScratch scratch;
  return scratch;
}

// --- the exporter's identity, as the host lists it ---

int SceneExporter::ExtCount() { return 1; }
const char* SceneExporter::Ext(int n) { return n == 0 ? "zt2" : ""; }
const char* SceneExporter::LongDesc() { return "ZT Scene Exporter"; }
const char* SceneExporter::ShortDesc() { return "ZT Exporter"; }
const char* SceneExporter::AuthorName() { return "The ZTExport developers"; }
const char* SceneExporter::CopyrightMessage() { return "Copyright (c) the ZTExport developers"; }
const char* SceneExporter::OtherMessage1() { return ""; }
const char* SceneExporter::OtherMessage2() { return ""; }
unsigned int SceneExporter::Version() { return 110; }
// No export options: in particular the whole scene is always exported, never the selection only.
BOOL SceneExporter::SupportsOptions(int /*ext*/, DWORD /*options*/) { return FALSE; }

int SceneExporter::DoExport(const char* name, ExpInterface* /*ei*/, Interface* i, BOOL suppressPrompts,
                            DWORD /*options*/) {
  return DoExport(name, i, suppressPrompts != 0);
}

void SceneExporter::ShowAbout(HWND /*hWnd*/) {
  // The host's window is not the about box's parent: it opens on its own.
  std::string why;
  if (ExporterWindows* windows = loadExporterWindows(why))
    windows->showAbout(kAboutLine, CopyrightMessage(), AuthorName());
  else
    reportWindowsUnavailable("the about box", why);
}
