// What the host asks of the module before any export: its description, its
// one class, the class descriptor and the exporter's identity strings. The
// four entry points are the module's only exported symbols.
#pragma once

#include "host/max_types.h"
#include "host/scene_export.h"

struct MeshScratch;

#define ZTX_MODULE_ENTRY extern "C" __attribute__((visibility("default")))

inline constexpr Class_ID kSceneExporterClassId{0x6EAB566C, 0x134A2F42};
// Host SDK version 5100, interface number 8, SDK revision 0.
inline constexpr unsigned long kHostSdkVersion = 0x13EC0800;
inline constexpr const char* kBuildDate = "Mar 31 2003";

ZTX_MODULE_ENTRY const char* LibDescription();
ZTX_MODULE_ENTRY int LibNumberClasses();
// The descriptor for i = 0; none for any other i.
ZTX_MODULE_ENTRY ClassDesc* LibClassDesc(int i);
ZTX_MODULE_ENTRY unsigned long LibVersion();

class SceneExporterClassDesc : public ClassDesc {
 public:
  int IsPublic() override { return 1; }
  // A new SceneExporter (as its SceneExport) that shows its windows through
  // the module's user-interface library.
  void* Create(BOOL loading = FALSE) override;
  const char* ClassName() override { return "ZT Exporter"; }
  SClass_ID SuperClassID() override { return SCENE_EXPORT_CLASS_ID; }
  Class_ID ClassID() override { return kSceneExporterClassId; }
  const char* Category() override { return "Tessel Entertainment"; }
};

// The mesh algorithms' work buffers, kept for the life of the module so that
// later exports reuse their storage.
MeshScratch& moduleMeshScratch();

// The about box's first line.
inline constexpr const char* kAboutLine = "ZT2.0 Exporter v1.1, October 2001";
