#include "scene_objects/helper.h"

#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

T_MemoryFile& operator<<(T_MemoryFile& file, const HelperRecord& record) {
  file.createChunk(chunk_kind::kHelper);
  file << record.object << record.className;
  file.closeChunk();
  return file;
}

void exportHelper(SceneExporter& exporter, INode* node) {
  if (!isNodeExported(exporter, node)) return;
  const ObjectState os = node->EvalWorldState(exporter.startTime, true);
  if (!os.obj) return;
  HelperRecord record;
  fillObjectRecord(exporter, record.object, node, exporter.startTime);
  os.obj->GetClassName(record.className);
  exporter.sceneFile << record;
}
