#include "animation/transform_animation.h"

#include "animation/sample_span.h"
#include "host/inhouse/system.h"
#include "host/inode.h"
#include "plugin/node_transforms.h"
#include "plugin/scene_exporter.h"

namespace {

SampleMatrix widen(const M_Matrix4x3Template<float>& m) {
  SampleMatrix w;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) w[r][c] = m[r][c];
  return w;
}

M_Matrix4x3Template<float> narrow(const SampleMatrix& m) {
  M_Matrix4x3Template<float> n;
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) n[r][c] = static_cast<float>(m[r][c]);
  return n;
}

}  // namespace

void sampleTransformAnimation(SceneExporter& exporter, TransformAnimation& record, INode* node) {
  const ExportOptions& o = exporter.options;
  const Interval nodeRange = node->GetTimeRange(TIMERANGE_ALL);
  const SampleSpan span = sampleSpan(exporter, nodeRange);
  if (span.outsideGivenRange) {
    const Interval given = givenAnimationRange(exporter);
    exporter.logMessage(
        "WARNING: Object \"%s\" animation range out of given bounds(%d, %d; given animation range %d, %d). Used "
        "range %d, %d.",
        node->GetName(), nodeRange.Start(), nodeRange.End(), given.Start(), given.End(), span.lo, span.hi);
  }

  record.header.name = node->GetName();
  record.header.sampleRate = o.sampleRate;
  record.header.loop = o.loop;
  // Looping adds no key and moves no sample: the flags are for the reader.
  record.loopInterpolation = o.loopInterpolation;
  record.loopToFrame = o.loopToFrame;
  INode* parent = findExportParent(exporter, node);
  record.parentName = parent && !parent->IsRootNode() ? parent->GetName() : "";

  KeySeries<SampleMatrix> transforms;
  KeySeries<float> visibility;
  transforms.reserve(kReservedSamples);
  visibility.reserve(kReservedSamples);
  const bool inherits = node->GetInheritVisibility();
  for (int i = 0; i < span.numSamples; ++i) {
    const TimeValue t = span.sampleTime(i);
    recordSample(transforms, widen(exportTransform(exporter, node, t)), i);
    recordSample(visibility, inherits ? node->GetLocalVisibility(t) : node->GetVisibility(t), i);
  }

  switch (o.frameToFrameInterpolation) {
    case 1: record.frameToFrameInterpolation = FrameInterpolation::Normalized; break;
    case 2: record.frameToFrameInterpolation = FrameInterpolation::Orthonormalized; break;
    default: record.frameToFrameInterpolation = FrameInterpolation::None; break;
  }
  // Kept scaling only means something beside a mode that blends the axes; an
  // unknown mode that became none must not leave the flag standing alone.
  record.maintainMatrixScaling =
      o.maintainMatrixScaling && record.frameToFrameInterpolation != FrameInterpolation::None;
  const MatrixKeyTolerance tolerance{o.rotationDelta, o.positionDelta};
  const bool bound = exporter.animation.keyErrorBound;
  const KeySeries<SampleMatrix> keys =
      bound ? reduceKeysWithinBound(transforms, tolerance, record.frameToFrameInterpolation,
                                    record.maintainMatrixScaling)
            : reduceKeys(transforms, tolerance, record.frameToFrameInterpolation, record.maintainMatrixScaling);
  record.keys.clear();
  record.keys.reserve(keys.size());
  for (std::size_t k = 0; k < keys.size(); ++k) record.keys.push_back({keys.indices[k], narrow(keys.values[k])});
  record.numSamples = span.numSamples;

  const ScalarKeyTolerance visibilityTolerance{exporter.animation.visibilityDelta};
  const KeySeries<float> visibilityKeys = bound ? reduceKeysWithinBound(visibility, visibilityTolerance)
                                                : reduceKeys(visibility, visibilityTolerance);
  record.visibilityKeys = scalarKeys(visibilityKeys);

  // The error walk visits every sample again: only when someone reads it.
  if (Sys->verboseActive()) {
    const MatrixKeyError error = largestKeyError(transforms, keys, span.numSamples, record.frameToFrameInterpolation,
                                                 record.maintainMatrixScaling);
    Sys->verbose("Animation \"%s\" transform: %d samples, %zu keys, largest error %g position, %g axes\n",
                 node->GetName(), span.numSamples, keys.size(), error.position, error.axes);
    Sys->verbose("Animation \"%s\" visibility: %d samples, %zu keys, largest error %g\n", node->GetName(),
                 span.numSamples, visibilityKeys.size(),
                 static_cast<double>(largestKeyError(visibility, visibilityKeys, span.numSamples)));
  }
}
