#include "plugin/dispatch.h"

#include <cstdio>
#include <string>

#include "geometry/export_mesh.h"
#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"
#include "scene_objects/camera.h"
#include "scene_objects/helper.h"
#include "scene_objects/light.h"

bool dispatchNode(SceneExporter& exporter, INode* node) {
  char title[300];
  std::snprintf(title, sizeof title, "Geometry for \"%s\"", node->GetName());
  exporter.stepProgress(title);

  if (exporter.host->GetCancel()) return false;
  if (exporter.hasError()) return false;

  const ObjectState os = node->EvalWorldState(exporter.startTime, true);
  if (os.obj) {
    const ExportOptions& o = exporter.options;
    switch (os.obj->SuperClassID()) {
      case GEOMOBJECT_CLASS_ID:
        if (o.exportGeometry) exportMesh(exporter, node);
        break;
      case CAMERA_CLASS_ID:
        if (o.exportCameras) exportCamera(exporter, node);
        break;
      case LIGHT_CLASS_ID:
        if (o.exportLights) exportLight(exporter, node);
        break;
      case SHAPE_CLASS_ID:
        break;
      case HELPER_CLASS_ID:
        if (o.exportHelpers) exportHelper(exporter, node);
        break;
      default:
        if (isNodeExported(exporter, node)) {
          std::string className = "Unknown";
          const ObjectState again = node->EvalWorldState(exporter.startTime, true);
          if (again.obj) again.obj->GetClassName(className);
          exporter.logMessage("WARNING: Unknown object: \"%s\" of type %s", node->GetName(), className.c_str());
        }
        break;
    }
  }

  for (int i = 0; i < node->NumberOfChildren(); ++i)
    if (!dispatchNode(exporter, node->GetChildNode(i))) return false;
  return true;
}
