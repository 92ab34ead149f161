#include "animation/light_animation.h"

#include <string>

#include "animation/sample_span.h"
#include "host/inhouse/system.h"
#include "host/inode.h"
#include "plugin/scene_exporter.h"

namespace {

bool evalLightState(INode* node, TimeValue t, LightState& state) {
  auto* light = dynamic_cast<LightObject*>(node->EvalWorldState(t, true).obj);
  if (!light) return false;
  Interval valid = FOREVER;
  light->EvalLightState(t, valid, state);
  return true;
}

}  // namespace

void exportLightAnimation(SceneExporter& exporter, INode* node) {
  const ObjectState os = node->EvalWorldState(exporter.startTime, true);
  if (!os.obj) return;
  switch (os.obj->SuperClassID()) {
    case GEOMOBJECT_CLASS_ID:
    case CAMERA_CLASS_ID:
    case SHAPE_CLASS_ID:
    case HELPER_CLASS_ID: return;
    case LIGHT_CLASS_ID: break;
    default: {
      std::string className = "Unknown";
      os.obj->GetClassName(className);
      exporter.logMessage("Unknown object: \"%s\" of type %s", node->GetName(), className.c_str());
      return;
    }
  }
  auto* light = dynamic_cast<LightObject*>(os.obj);
  if (!light) return;
  LightState state;
  Interval valid = FOREVER;
  light->EvalLightState(exporter.startTime, valid, state);
  LightAnimation record;
  if (!lightKindOf(state.type, record.kind)) return;
  sampleLightAnimation(exporter, record, node);
  exporter.sceneFile << record;
}

void sampleLightAnimation(SceneExporter& exporter, LightAnimation& record, INode* node) {
  const ExportOptions& o = exporter.options;
  const SampleSpan span = sampleSpan(exporter, node->GetTimeRange(TIMERANGE_CHILDNODES | TIMERANGE_CHILDANIMS));
  record.header.name = node->GetName();
  record.header.sampleRate = o.sampleRate;
  record.header.loop = o.loop;
  record.loopInterpolation = o.loopInterpolation;
  record.loopToFrame = o.loopToFrame;

  const bool attenuation = record.kind != LightKind::Directional;
  const bool cone = record.kind == LightKind::Spot;
  KeySeries<SampleColor> colour;
  KeySeries<float> intensity, attenuationStart, attenuationEnd, hotspot, falloff;
  colour.reserve(kReservedSamples);
  intensity.reserve(kReservedSamples);
  if (attenuation) {
    attenuationStart.reserve(kReservedSamples);
    attenuationEnd.reserve(kReservedSamples);
  }
  if (cone) {
    hotspot.reserve(kReservedSamples);
    falloff.reserve(kReservedSamples);
  }

  LightState state;  // a sample the host cannot evaluate repeats the one before
  for (int i = 0; i < span.numSamples; ++i) {
    evalLightState(node, span.sampleTime(i), state);
    const LightValues v = lightValues(state, o.rescaleFactor);
    recordSample(intensity, v.intensity, i);
    recordSample(colour, v.colour, i);
    if (attenuation) {
      recordSample(attenuationStart, v.attenuationStart, i);
      recordSample(attenuationEnd, v.attenuationEnd, i);
    }
    if (cone) {
      recordSample(hotspot, v.hotspot, i);
      recordSample(falloff, v.falloff, i);
    }
  }
  record.numSamples = span.numSamples;

  const LightParameterDeltas& d = exporter.animation.parameterDeltas;
  const bool bound = exporter.animation.keyErrorBound;
  const KeySeries<SampleColor> colourKeys = bound ? reduceKeysWithinBound(colour, ColorKeyTolerance{d.colour})
                                                  : reduceKeys(colour, ColorKeyTolerance{d.colour});
  record.colourKeys = colorKeys(colourKeys);
  if (Sys->verboseActive())
    Sys->verbose("Light animation \"%s\" colour: %d samples, %zu keys, largest error %g\n", node->GetName(),
                 span.numSamples, colourKeys.size(),
                 static_cast<double>(largestKeyError(colour, colourKeys, span.numSamples)));

  // The scalar tracks in the order of the chunk; a track the kind lacks stays empty.
  const struct {
    const char* name;
    const KeySeries<float>& samples;
    float delta;
    std::vector<ScalarKey>& keys;
  } tracks[] = {{"intensity", intensity, d.intensity, record.intensityKeys},
                {"attenuation start", attenuationStart, d.attenuationStart, record.attenuationStartKeys},
                {"attenuation end", attenuationEnd, d.attenuationEnd, record.attenuationEndKeys},
                {"hotspot", hotspot, d.hotspot, record.hotspotKeys},
                {"falloff", falloff, d.falloff, record.falloffKeys}};
  for (const auto& track : tracks) {
    const ScalarKeyTolerance tolerance{track.delta};
    const KeySeries<float> kept =
        bound ? reduceKeysWithinBound(track.samples, tolerance) : reduceKeys(track.samples, tolerance);
    track.keys = scalarKeys(kept);
    if (Sys->verboseActive() && !track.samples.empty())
      Sys->verbose("Light animation \"%s\" %s: %d samples, %zu keys, largest error %g\n", node->GetName(), track.name,
                   span.numSamples, kept.size(),
                   static_cast<double>(largestKeyError(track.samples, kept, span.numSamples)));
  }
}
