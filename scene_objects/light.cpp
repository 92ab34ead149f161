#include "scene_objects/light.h"

#include <cmath>

#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

T_MemoryFile& operator<<(T_MemoryFile& file, const LightRecord& record) {
  file.createChunk(record.kind == LightKind::Omni          ? chunk_kind::kOmniLight
                   : record.kind == LightKind::Directional ? chunk_kind::kDirectionalLight
                                                           : chunk_kind::kSpotLight);
  file << record.object;
  for (float c : record.colour) file << c;
  file << record.intensity;
  if (record.kind != LightKind::Directional) file << record.attenuationStart << record.attenuationEnd;
  if (record.kind == LightKind::Spot) file << record.hotspot << record.falloff;
  file.closeChunk();
  return file;
}

void exportLight(SceneExporter& exporter, INode* node) {
  if (!isNodeExported(exporter, node)) return;
  const TimeValue t = exporter.startTime;
  const ObjectState os = node->EvalWorldState(t, true);
  auto* light = dynamic_cast<LightObject*>(os.obj);
  if (!light) return;
  LightState ls;
  Interval valid = FOREVER;
  light->EvalLightState(t, valid, ls);

  LightRecord record;
  switch (ls.type) {
    case OMNI_LIGHT: record.kind = LightKind::Omni; break;
    case DIRECT_LIGHT: record.kind = LightKind::Directional; break;
    case SPOT_LIGHT:
    case AMBIENT_LIGHT: record.kind = LightKind::Spot; break;
    default: return;
  }
  fillObjectRecord(exporter, record.object, node, t);
  // A negative multiplier keeps a positive intensity and carries its sign in the colour.
  const float factor = ls.intens >= 0.0f ? 255.0f : -255.0f;
  record.colour[0] = ls.color.r * factor;
  record.colour[1] = ls.color.g * factor;
  record.colour[2] = ls.color.b * factor;
  record.colour[3] = 255.0f;
  record.intensity = std::fabs(ls.intens);
  const float scale = exporter.options.rescaleFactor;
  record.attenuationStart = ls.attenStart * scale;
  record.attenuationEnd = ls.attenEnd * scale;
  record.hotspot = ls.hotsize * kDegreesToRadians;
  record.falloff = ls.fallsize * kDegreesToRadians;
  exporter.sceneFile << record;
}
