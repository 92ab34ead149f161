#include "plugin/plugin_entry.h"

#include <string>

#include "geometry/mesh_scratch.h"
#include "plugin/scene_exporter.h"

const char* LibDescription() {
  static const std::string description = std::string("ZT Scene Exporter") + " [" + kBuildDate + "]";
  return description.c_str();
}

int LibNumberClasses() { return 1; }

unsigned long LibVersion() { return kHostSdkVersion; }

std::unique_ptr<SceneExporter> SceneExporterClassDesc::Create(bool /*loading*/) const {
  return std::make_unique<SceneExporter>();
}

MeshScratch& moduleMeshScratch() {
  static MeshScratch scratch;
  return scratch;
}

const SceneExporterClassDesc* LibClassDesc(int i) {
  static const SceneExporterClassDesc descriptor;
  return i == 0 ? &descriptor : nullptr;
}

namespace exporter_info {
int ExtCount() { return 1; }
const char* Ext(int n) { return n == 0 ? "zt2" : ""; }
const char* LongDesc() { return "ZT Scene Exporter"; }
const char* ShortDesc() { return "ZT Exporter"; }
const char* AuthorName() { return "The ZTExport developers"; }
const char* CopyrightMessage() { return "Copyright (c) the ZTExport developers"; }
const char* OtherMessage1() { return ""; }
const char* OtherMessage2() { return ""; }
unsigned int Version() { return 110; }
// No export options: in particular the whole scene is always exported, never the selection only.
bool SupportsOptions(int /*ext*/, unsigned long /*options*/) { return false; }
const char* AboutLine() { return "ZT2.0 Exporter v1.1, October 2001"; }
}  // namespace exporter_info
