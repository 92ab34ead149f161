#include "animation/key_reduction.h"

#include <cassert>
#include <cmath>

namespace {

// The one reduction loop. `estimate(a, b, ta, tq, tb)` interpolates the
// candidate at sample tq between entry a at ta and entry b at tb.
//
// For each candidate q every entry i since the last kept key is tried as the
// left end of the interpolation, so a long run that interpolates well costs
// time quadratic in its length; recordSample has already removed exact
// repeats, which keeps still objects cheap.
template <typename T, typename Estimate, typename Tolerance>
KeySeries<T> reduce(const KeySeries<T>& in, const Estimate& estimate, const Tolerance& tolerance) {
  KeySeries<T> out;
  const std::size_t n = in.size();
  // The estimate divides by the span between two indices: they must rise strictly.
#ifndef NDEBUG
  assert(in.indices.size() == n);
  for (std::size_t k = 1; k < n; ++k) assert(in.indices[k - 1] < in.indices[k]);
#endif
  if (n == 0) return out;
  const auto keep = [&](std::size_t k) {
    out.values.push_back(in.values[k]);
    out.indices.push_back(in.indices[k]);
  };
  keep(0);
  std::size_t p = 0;  // the last kept entry
  for (std::size_t q = 1, r = 2; r < n; q = r, ++r) {
    // The change after a hold stays whatever the tolerance: dropping it
    // would start the change at the hold key.
    bool kept = q == p + 1 && in.indices[q] - in.indices[p] != 1;
    for (std::size_t i = p; !kept && i < q; ++i)
      kept = tolerance.exceeds(in.values[q],
                               estimate(in.values[i], in.values[r], in.indices[i], in.indices[q], in.indices[r]));
    if (kept) {
      keep(q);
      p = q;
    }
  }
  // A trailing run that equals the last key needs no key of its own: the
  // last key's value holds to the end of the span. The index test keeps a
  // lone NaN entry, which equals nothing, from being kept twice.
  if (!sameValue(in.values[n - 1], out.values.back()) && in.indices[n - 1] != out.indices.back()) keep(n - 1);
  return out;
}

float estimateScalar(float a, float b, int ta, int tq, int tb) {
  return (a * static_cast<float>(tb - tq) + b * static_cast<float>(tq - ta)) / static_cast<float>(tb - ta);
}

SampleColor estimateColor(const SampleColor& a, const SampleColor& b, int ta, int tq, int tb) {
  const float wa = static_cast<float>(tb - tq);
  const float wb = static_cast<float>(tq - ta);
  const float inverse = 1.0f / static_cast<float>(tb - ta);
  SampleColor e = a;  // alpha is carried, not interpolated
  for (int c = 0; c < 3; ++c) e[c] = (a[c] * wa + b[c] * wb) * inverse;
  return e;
}

using Row = std::array<double, 3>;

double dot(const Row& a, const Row& b) { return a[0] * b[0] + a[1] * b[1] + a[2] * b[2]; }

// Divides by the length. A zero row has no direction to keep and stays
// zero: compared with a sampled axis it misses by the axis' whole length, so
// the candidate becomes a key instead of being waved through by a NaN.
void normalize(Row& row) {
  const double length = std::sqrt(dot(row, row));
  if (length > 0.0)
    for (double& x : row) x /= length;
}

// x minus its projection onto y; nothing to remove when y is zero.
void removeProjection(Row& x, const Row& y) {
  const double yy = dot(y, y);
  if (yy == 0.0) return;
  const double f = dot(x, y) / yy;
  for (int c = 0; c < 3; ++c) x[c] -= y[c] * f;
}

class MatrixEstimate {
 public:
  MatrixEstimate(FrameInterpolation mode, bool maintainScaling) : mode_(mode), maintainScaling_(maintainScaling) {}

  SampleMatrix operator()(const SampleMatrix& a, const SampleMatrix& b, int ta, int tq, int tb) const {
    const double wa = tb - tq;
    const double wb = tq - ta;
    const double span = tb - ta;
    const double inverse = 1.0 / span;
    SampleMatrix e;
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 3; ++c) e[r][c] = (a[r][c] * wa + b[r][c] * wb) * inverse;

    float scale[3] = {1.0f, 1.0f, 1.0f};
    if (maintainScaling_)
      for (int k = 0; k < 3; ++k)
        scale[k] = static_cast<float>((std::sqrt(dot(a[k], a[k])) * wa + std::sqrt(dot(b[k], b[k])) * wb) / span);

    switch (mode_) {
      case FrameInterpolation::Normalized:
        for (int k = 0; k < 3; ++k) normalize(e[k]);
        break;
      case FrameInterpolation::Orthonormalized: orthonormalizeAxes(e); break;
      case FrameInterpolation::None: break;
    }

    if (maintainScaling_)
      for (int k = 0; k < 3; ++k)
        for (double& x : e[k]) x *= scale[k];
    return e;
  }

 private:
  FrameInterpolation mode_;
  bool maintainScaling_;
};

// Walks every sample of the span once, beside the recorded entries and the
// keys; `measure(sampled, estimated, worst)` folds one difference into worst.
template <typename T, typename Estimate, typename Error, typename Measure>
Error largestError(const KeySeries<T>& recorded, const KeySeries<T>& keys, int numSamples, const Estimate& estimate,
                   const Measure& measure) {
  Error worst{};
  if (recorded.empty() || keys.empty()) return worst;
  std::size_t e = 0;  // the recorded entry in force
  std::size_t k = 0;  // the last key at or before the sample
  for (int j = 0; j < numSamples; ++j) {
    while (e + 1 < recorded.size() && recorded.indices[e + 1] <= j) ++e;
    while (k + 1 < keys.size() && keys.indices[k + 1] <= j) ++k;
    if (keys.indices[k] == j) continue;  // a key is exact
    if (k + 1 == keys.size())
      measure(recorded.values[e], keys.values[k], worst);
    else
      measure(recorded.values[e],
              estimate(keys.values[k], keys.values[k + 1], keys.indices[k], j, keys.indices[k + 1]), worst);
  }
  return worst;
}

// A NaN difference leaves the largest as it was.
template <typename N>
void fold(N difference, N& worst) {
  if (difference > worst) worst = difference;
}

}  // namespace

MatrixKeyError largestKeyError(const KeySeries<SampleMatrix>& recorded, const KeySeries<SampleMatrix>& keys,
                               int numSamples, FrameInterpolation mode, bool maintainMatrixScaling) {
  return largestError<SampleMatrix, MatrixEstimate, MatrixKeyError>(
      recorded, keys, numSamples, MatrixEstimate(mode, maintainMatrixScaling),
      [](const SampleMatrix& s, const SampleMatrix& m, MatrixKeyError& worst) {
        for (int c = 0; c < 3; ++c) fold(std::fabs(s[3][c] - m[3][c]), worst.position);
        for (int r = 0; r < 3; ++r)
          for (int c = 0; c < 3; ++c) fold(std::fabs(s[r][c] - m[r][c]), worst.axes);
      });
}

float largestKeyError(const KeySeries<float>& recorded, const KeySeries<float>& keys, int numSamples) {
  return largestError<float, decltype(&estimateScalar), float>(
      recorded, keys, numSamples, estimateScalar,
      [](float s, float m, float& worst) { fold(std::fabs(s - m), worst); });
}

float largestKeyError(const KeySeries<SampleColor>& recorded, const KeySeries<SampleColor>& keys, int numSamples) {
  return largestError<SampleColor, decltype(&estimateColor), float>(
      recorded, keys, numSamples, estimateColor, [](const SampleColor& s, const SampleColor& m, float& worst) {
        for (int c = 0; c < 3; ++c) fold(std::fabs(s[c] - m[c]), worst);
      });
}

bool MatrixKeyTolerance::exceeds(const SampleMatrix& sampled, const SampleMatrix& estimated) const {
  for (int c = 0; c < 3; ++c)
    if (std::fabs(sampled[3][c] - estimated[3][c]) > positionDelta) return true;
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c)
      if (std::fabs(sampled[r][c] - estimated[r][c]) > rotationDelta) return true;
  return false;
}

bool ScalarKeyTolerance::exceeds(float sampled, float estimated) const {
  return std::fabs(sampled - estimated) > threshold;
}

bool ColorKeyTolerance::exceeds(const SampleColor& sampled, const SampleColor& estimated) const {
  const double limit = threshold * 255.0;
  for (int c = 0; c < 3; ++c)
    if (std::fabs(sampled[c] - estimated[c]) > limit) return true;
  return false;
}

void orthonormalizeAxes(SampleMatrix& m) {
  normalize(m[0]);
  removeProjection(m[1], m[0]);
  normalize(m[1]);
  removeProjection(m[2], m[0]);
  removeProjection(m[2], m[1]);
  normalize(m[2]);
}

KeySeries<float> reduceKeys(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance) {
  return reduce(recorded, estimateScalar, tolerance);
}

KeySeries<SampleColor> reduceKeys(const KeySeries<SampleColor>& recorded, const ColorKeyTolerance& tolerance) {
  return reduce(recorded, estimateColor, tolerance);
}

KeySeries<SampleMatrix> reduceKeys(const KeySeries<SampleMatrix>& recorded, const MatrixKeyTolerance& tolerance,
                                   FrameInterpolation mode, bool maintainMatrixScaling) {
  return reduce(recorded, MatrixEstimate(mode, maintainMatrixScaling), tolerance);
}
