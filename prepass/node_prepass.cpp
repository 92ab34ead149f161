#include "prepass/node_prepass.h"

#include "host/inode.h"
#include "host/material.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"
#include "prepass/skin_weights.h"


namespace {

void checkMaterial(SceneExporter& exporter, INode* node) {
  Mtl* m = node->GetMtl();
  if (!m) {
    const ObjectState os = node->EvalWorldState(exporter.startTime, true);
    if (os.obj && !(os.obj->ClassID() == TARGET_CLASS_ID) &&
        (os.obj->SuperClassID() == GEOMOBJECT_CLASS_ID || os.obj->SuperClassID() == SHAPE_CLASS_ID)) {
      exporter.logError("ERROR: Node %s has a 0 material(3DSMax default material)", node->GetName());
    }
    return;
  }
  if (m->NumSubMtls() <= 0) {
    exporter.materialIndexTable.add(m);
    return;
  }
  // One level deep: a sub-material with slots of its own is entered itself.
  for (int i = 0; i < m->NumSubMtls(); ++i)
    if (Mtl* sub = m->GetSubMtl(i)) exporter.materialIndexTable.add(sub);
}

void checkName(SceneExporter& exporter, INode* node) {
  if (!exporter.nodeNameSet.insert(node->GetName()).second) {
    exporter.logError("ERROR: Two objects have a same name: %s", node->GetName());
  }
}

}  // namespace

void prepassNode(SceneExporter& exporter, INode* node, int& nodeCount) {
  ++nodeCount;
  if (isNodeExported(exporter, node) && !node->IsRootNode()) {
    if (exporter.options.exportMaterials) checkMaterial(exporter, node);
    checkName(exporter, node);
    if (exporter.options.exportSkinning) readSkinWeights(exporter, node);
  }
  for (int i = 0; i < node->NumberOfChildren(); ++i) prepassNode(exporter, node->GetChildNode(i), nodeCount);
}
