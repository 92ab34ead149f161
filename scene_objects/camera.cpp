#include "scene_objects/camera.h"

#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

T_MemoryFile& operator<<(T_MemoryFile& file, const CameraRecord& record) {
  file.createChunk(chunk_kind::kCamera);
  file << record.object << record.fov << record.nearPlane << record.farPlane;
  file.closeChunk();
  return file;
}

void exportCamera(SceneExporter& exporter, INode* node) {
  if (!isNodeExported(exporter, node)) return;
  const TimeValue t = exporter.startTime;
  const ObjectState os = node->EvalWorldState(t, true);
  auto* camera = dynamic_cast<CameraObject*>(os.obj);
  if (!camera) return;
  CameraState cs;
  Interval valid = FOREVER;
  camera->EvalCameraState(t, valid, cs);

  CameraRecord record;
  fillObjectRecord(exporter, record.object, node, t);
  const float scale = exporter.options.rescaleFactor;
  float nearValue = cs.hither * scale;
  if (nearValue < minFrontPlane) {
    exporter.logMessage("INFO: Camera \"%s\" had front plane set to %.4f. It was changed to %.4f", node->GetName(),
                        nearValue, minFrontPlane);
    nearValue = minFrontPlane;
  }
  record.fov = cs.fov;
  record.nearPlane = nearValue;
  record.farPlane = cs.yon * scale;
  exporter.sceneFile << record;
}
