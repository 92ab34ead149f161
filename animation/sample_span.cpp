#include "animation/sample_span.h"

#include <algorithm>
#include <cstdint>
#include <limits>

#include "plugin/scene_exporter.h"

namespace {

TimeValue toTime(std::int64_t ticks) {
  return static_cast<TimeValue>(
      std::clamp<std::int64_t>(ticks, std::numeric_limits<TimeValue>::min(), std::numeric_limits<TimeValue>::max()));
}

}  // namespace

Interval givenAnimationRange(const SceneExporter& exporter) {
  const std::int64_t ticksPerFrame = exporter.ticksPerFrame;
  const TimeValue a = toTime(exporter.options.startFrame * ticksPerFrame);
  const TimeValue b = toTime(exporter.options.endFrame * ticksPerFrame);
  return {a, std::max(a, b)};
}

TimeValue SampleSpan::sampleTime(int i) const {
  const TimeValue t = toTime(start + static_cast<std::int64_t>(i) * step);
  if (t < lo) return lo;
  if (t > hi) return hi;
  return t;
}

SampleSpan sampleSpan(const SceneExporter& exporter, const Interval& nodeRange) {
  const Interval given = givenAnimationRange(exporter);
  SampleSpan span;
  span.lo = given.Start();
  span.hi = given.End();
  if (nodeRange != NEVER && nodeRange != FOREVER) {
    const TimeValue rs = nodeRange.Start();
    const TimeValue re = nodeRange.End();
    span.lo = std::max(given.Start(), rs);
    span.hi = std::min(given.End(), re);
    if (!(rs <= span.hi && re >= span.lo)) {
      // No overlap: hold the node at the end of its own range nearest to the
      // given one, a single tick.
      span.outsideGivenRange = true;
      span.lo = span.hi = rs > span.hi && re >= rs ? rs : re;
    }
  }
  const bool global = exporter.options.useGlobalAnimationRange;
  span.start = global ? given.Start() : span.lo;
  const TimeValue end = global ? given.End() : span.hi;
  span.step = std::max(1, exporter.animation.sampleStepFrames * exporter.host->GetTicksPerFrame());
  const std::int64_t count = (static_cast<std::int64_t>(end) - span.start) / span.step + 1;
  span.numSamples = static_cast<int>(std::clamp<std::int64_t>(count, 1, std::numeric_limits<int>::max()));
  return span;
}
