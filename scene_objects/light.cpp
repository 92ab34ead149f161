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
  const LightValues& v = record.values;
  for (float c : v.colour) file << c;
  file << v.intensity;
  if (record.kind != LightKind::Directional) file << v.attenuationStart << v.attenuationEnd;
  if (record.kind == LightKind::Spot) file << v.hotspot << v.falloff;
  file.closeChunk();
  return file;
}

LightValues lightValues(const LightState& ls, float rescaleFactor) {
  LightValues v;
  // A negative multiplier keeps a positive intensity and carries its sign in the colour.
  const float factor = ls.intens >= 0.0f ? 255.0f : -255.0f;
  v.colour = {ls.color.r * factor, ls.color.g * factor, ls.color.b * factor, 255.0f};
  v.intensity = std::fabs(ls.intens);
  v.attenuationStart = ls.attenStart * rescaleFactor;
  v.attenuationEnd = ls.attenEnd * rescaleFactor;
  v.hotspot = ls.hotsize * kDegreesToRadians;
  v.falloff = ls.fallsize * kDegreesToRadians;
  return v;
}

bool lightKindOf(int lightType, LightKind& kind) {
  switch (lightType) {
    case OMNI_LIGHT: kind = LightKind::Omni; return true;
    case DIRECT_LIGHT: kind = LightKind::Directional; return true;
    case SPOT_LIGHT:
    case AMBIENT_LIGHT: kind = LightKind::Spot; return true;
    default: return false;
  }
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
  if (!lightKindOf(ls.type, record.kind)) return;
  fillObjectRecord(exporter, record.object, node, t);
  record.values = lightValues(ls, exporter.options.rescaleFactor);
  exporter.sceneFile << record;
}
