// From samples to keys, for every animated quantity the exporter writes (node
// transforms, visibility, light parameters), in two steps:
//
// 1. recordSample takes the samples one by one and drops exact repeats: a run
//    of equal samples leaves its first sample and, when the value changes
//    after it, a hold key on the run's last sample.
// 2. reduceKeys drops every recorded entry that linear interpolation by sample
//    index between its neighbours rebuilds within a tolerance.
//
// A key list made so is exact at every key and, interpolated linearly by
// sample index (matrices with the frame-to-frame mode applied to the blend),
// within tolerance of each dropped entry's neighbours: the rule compares a
// candidate only with estimates whose right end is the entry after it, so a
// slow steady curve can stray far from the tolerance between two keys.
// reduceKeysWithinBound keeps the promise instead (see below). The rule is one loop
// (key_reduction.cpp); the value types differ only in how an entry is
// estimated and how far an estimate may stray, which the tolerances below say.
#pragma once

#include <array>
#include <cstddef>
#include <vector>

#include "options/export_options.h"

// A transform sample in double precision: rows 0..2 the X, Y, Z axes
// (rotation with scale), row 3 the translation.
using SampleMatrix = std::array<std::array<double, 3>, 4>;
// Red, green, blue, alpha on a 0..255 scale.
using SampleColor = std::array<float, 4>;

// What a sampler reserves in each series before it records: a few seconds
// of samples before the lists grow.
inline constexpr std::size_t kReservedSamples = 100;

// Values with the sample index of each: two parallel lists of equal length,
// indices strictly increasing, 0 the first sample of the sampled span.
template <typename T>
struct KeySeries {
  std::vector<T> values;
  std::vector<int> indices;

  std::size_t size() const { return values.size(); }
  bool empty() const { return values.empty(); }
  void reserve(std::size_t n) {
    values.reserve(n);
    indices.reserve(n);
  }
};

// Exact floating-point equality of every component: a NaN equals nothing, so
// a NaN sample is always recorded.
inline bool sameValue(float a, float b) { return a == b; }
inline bool sameValue(const SampleColor& a, const SampleColor& b) { return a == b; }
inline bool sameValue(const SampleMatrix& a, const SampleMatrix& b) { return a == b; }

// Appends sample `index` with `value`, unless it repeats the last recorded
// value exactly. The caller passes indices 0, 1, 2, ... in order.
template <typename T>
void recordSample(KeySeries<T>& series, const T& value, int index) {
  if (!series.empty()) {
    if (sameValue(series.values.back(), value)) return;
    // The value changes after a run of repeats: its last sample becomes a
    // hold key, so that interpolation does not start the change too early.
    if (index - series.indices.back() != 1) {
      const T held = series.values.back();
      series.values.push_back(held);
      series.indices.push_back(index - 1);
    }
  }
  series.values.push_back(value);
  series.indices.push_back(index);
}

// How far an estimate may stray from the sample. Every comparison is strict:
// a difference equal to the tolerance passes, a tolerance of 0 passes only
// exact estimates, and a NaN difference never exceeds.
struct MatrixKeyTolerance {
  double rotationDelta = 0.0;  // per axis element
  double positionDelta = 0.0;  // per translation element, scene units after rescaling
  // The translation elements are tested first, then the nine axis elements.
  bool exceeds(const SampleMatrix& sampled, const SampleMatrix& estimated) const;
};

struct ScalarKeyTolerance {
  float threshold = 0.0f;  // in the parameter's own unit
  bool exceeds(float sampled, float estimated) const;
};

struct ColorKeyTolerance {
  float threshold = 0.0f;  // a fraction of full scale: 0.01 allows 2.55 on the 0..255 scale
  // Red, green and blue only; alpha takes no part.
  bool exceeds(const SampleColor& sampled, const SampleColor& estimated) const;
};

// The kept entries of `recorded`, in order. Entry 0 always stays; an entry
// that directly follows the last kept one across a gap in the sample indices
// (the change after a hold) stays; the last entry stays unless it equals the
// last kept value (which then holds to the end of the span); any other entry
// stays only when interpolating between an earlier entry since the last kept
// one and the entry after it misses the sample by more than the tolerance.
// An empty series gives an empty result.
KeySeries<float> reduceKeys(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance);
KeySeries<SampleColor> reduceKeys(const KeySeries<SampleColor>& recorded, const ColorKeyTolerance& tolerance);
// The interpolated matrix is put through `mode` (and keeps the interpolated
// row lengths when `maintainMatrixScaling` is set) before it is compared, so
// that the test matches the interpolation the transform chunk announces.
KeySeries<SampleMatrix> reduceKeys(const KeySeries<SampleMatrix>& recorded, const MatrixKeyTolerance& tolerance,
                                   FrameInterpolation mode, bool maintainMatrixScaling);

// How far the kept keys, interpolated as the reader does (matrices through the
// mode and the kept scaling), stray from what was sampled, at the largest
// over every sample of the span: a sample that recording dropped as a repeat
// has the value of the recorded entry before it, and after the last key that
// key's value holds. This is the figure a user weighs a tolerance against, so
// it covers samples the reduction itself never tests.
struct MatrixKeyError {
  double position = 0.0;  // largest translation element difference
  double axes = 0.0;      // largest axis element difference
};
MatrixKeyError largestKeyError(const KeySeries<SampleMatrix>& recorded, const KeySeries<SampleMatrix>& keys,
                               int numSamples, FrameInterpolation mode, bool maintainMatrixScaling);
float largestKeyError(const KeySeries<float>& recorded, const KeySeries<float>& keys, int numSamples);
// Red, green and blue on the 0..255 scale; alpha takes no part, as in the test.
float largestKeyError(const KeySeries<SampleColor>& recorded, const KeySeries<SampleColor>& keys, int numSamples);

// The same keys found as the rule reads: for each candidate, every entry since
// the last key is tried. reduceKeys finds them without trying every entry, in
// every frame-to-frame mode, so a straight move or a steady turn costs time
// in proportion to its length; this is the reference it is held to, and
// quadratic in a run that interpolates well.
KeySeries<float> reduceKeysEntryByEntry(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance);
KeySeries<SampleColor> reduceKeysEntryByEntry(const KeySeries<SampleColor>& recorded,
                                              const ColorKeyTolerance& tolerance);
KeySeries<SampleMatrix> reduceKeysEntryByEntry(const KeySeries<SampleMatrix>& recorded,
                                               const MatrixKeyTolerance& tolerance, FrameInterpolation mode,
                                               bool maintainMatrixScaling);

// Keys that rebuild every sample of the span within the tolerance, as
// largestKeyError measures it: between two keys every sample (recorded
// entries and the repeats recording dropped) is compared with the keys'
// interpolation, through `mode` and the kept scaling, and a NaN difference
// counts as a miss. A key may fall on any sample up to the last recorded
// entry, which is always a key; after it the value holds, as recorded.
// Greedy: from each key the next is the farthest sample found by doubling
// the segment and then halving between the last that fits and the first that
// does not, every try checking each sample of the segment. A straight move
// costs time in proportion to its length; a curve O(n log k) for segments of
// k samples. Not the rule's keys: for the choice of a caller who wants the
// bound (zt2export --key-error-bound).
KeySeries<float> reduceKeysWithinBound(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance);
KeySeries<SampleColor> reduceKeysWithinBound(const KeySeries<SampleColor>& recorded,
                                             const ColorKeyTolerance& tolerance);
KeySeries<SampleMatrix> reduceKeysWithinBound(const KeySeries<SampleMatrix>& recorded,
                                              const MatrixKeyTolerance& tolerance, FrameInterpolation mode,
                                              bool maintainMatrixScaling);

// Modified Gram-Schmidt over the axis rows 0, 1, 2 in that order; the
// translation row is untouched. A row that comes out of zero length stays
// zero (see key_reduction.cpp).
void orthonormalizeAxes(SampleMatrix& m);
