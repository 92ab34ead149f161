#include "animation/animation_pass.h"

#include <cstdio>

#include "animation/light_animation.h"
#include "animation/transform_animation.h"
#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

void exportSceneAnimation(SceneExporter& exporter) {
  // Only the additional script can set such a range; sampleSpan then takes
  // the start alone, which the user should hear about once, not per node.
  const ExportOptions& o = exporter.options;
  exporter.animation.keyErrorBound = exporter.host->KeyErrorBound();
  if (o.endFrame < o.startFrame)
    exporter.logMessage(
        "WARNING: Animation end frame %d lies before start frame %d: every node is sampled at the start frame alone.",
        o.endFrame, o.startFrame);
  INode* root = exporter.host->GetRootNode();
  const int count = root->NumberOfChildren();
  for (int i = 0; i < count; ++i) {
    if (exporter.host->GetCancel() || exporter.hasError()) return;
    exportNodeAnimation(exporter, root->GetChildNode(i));
  }
  // The total counts the root in both passes, which step only the nodes
  // below it: a pass that went through ends the bar at 100%, not two steps short.
  if (exporter.hasError()) return;
  exporter.progressDone = exporter.progressTotal - 1;
  exporter.stepProgress("Animation done");
}

void exportNodeAnimation(SceneExporter& exporter, INode* node) {
  char title[300];
  std::snprintf(title, sizeof title, "Animation for \"%s\"", node->GetName());
  exporter.stepProgress(title);

  if (isNodeExported(exporter, node)) {
    TransformAnimation record;
    sampleTransformAnimation(exporter, record, node);
    exporter.sceneFile << record;
    exportLightAnimation(exporter, node);
  }

  for (int i = 0; i < node->NumberOfChildren(); ++i) exportNodeAnimation(exporter, node->GetChildNode(i));
}
