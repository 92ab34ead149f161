// What the host asks of the module before any export: its description, its
// one class, the class descriptor and the exporter's identity strings.
#pragma once

#include <memory>

#include "host/max_types.h"

class SceneExporter;
struct MeshScratch;

inline constexpr SClass_ID SCENE_EXPORT_CLASS_ID = 0xA20;
inline constexpr Class_ID kSceneExporterClassId{0x6EAB566C, 0x134A2F42};
// Host SDK version 5100, interface number 8, SDK revision 0.
inline constexpr unsigned long kHostSdkVersion = 0x13EC0800;
inline constexpr const char* kBuildDate = "Mar 31 2003";

const char* LibDescription();
int LibNumberClasses();
unsigned long LibVersion();

class SceneExporterClassDesc {
 public:
  int IsPublic() const { return 1; }
  std::unique_ptr<SceneExporter> Create(bool loading = false) const;
  const char* ClassName() const { return "ZT Exporter"; }
  SClass_ID SuperClassID() const { return SCENE_EXPORT_CLASS_ID; }
  Class_ID ClassID() const { return kSceneExporterClassId; }
  const char* Category() const { return "Tessel Entertainment"; }
};

// The mesh algorithms' work buffers, kept for the life of the module so that
// later exports reuse their storage.
MeshScratch& moduleMeshScratch();

// The descriptor for i = 0; none for any other i.
const SceneExporterClassDesc* LibClassDesc(int i);

// The exporter's identity as the host lists it.
namespace exporter_info {
int ExtCount();
const char* Ext(int n);  // "zt2" for 0, "" otherwise
const char* LongDesc();
const char* ShortDesc();
const char* AuthorName();
const char* CopyrightMessage();
const char* OtherMessage1();
const char* OtherMessage2();
unsigned int Version();  // 110: version 1.10
bool SupportsOptions(int ext, unsigned long options);
// The about box's three lines.
const char* AboutLine();
}  // namespace exporter_info
