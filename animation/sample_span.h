// Where a node is sampled and how often: the given range of the options, cut
// to the node's own range unless the global range is used, one sample per
// frame at the export's sample rate. Sample i lies at start + i x step: the
// time is computed from the index, never accumulated, so the last sample
// falls on the end of a span that the step divides, and never after it.
#pragma once

#include "host/max_types.h"

class SceneExporter;

// The options' start and end frames in ticks of the scene's own frame rate.
// An end before the start (only the additional script can give one) stands
// for the start alone.
Interval givenAnimationRange(const SceneExporter& exporter);

struct SampleSpan {
  TimeValue start = 0;
  int step = 1;        // ticks per sample
  int numSamples = 1;  // at least 1
  // The node's own range within the given one: samples outside it take the
  // pose at its nearer end, which recording turns into hold keys.
  TimeValue lo = 0;
  TimeValue hi = 0;
  // The node's keys lie wholly before or wholly after the given range; lo
  // and hi are then the end of the node's range nearest to it.
  bool outsideGivenRange = false;

  // The host time of sample i, held within [lo, hi].
  TimeValue sampleTime(int i) const;
};

// `nodeRange` is what the node answers to GetTimeRange; NEVER (no keys) and
// FOREVER take the whole given range.
SampleSpan sampleSpan(const SceneExporter& exporter, const Interval& nodeRange);
