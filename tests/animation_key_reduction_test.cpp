// Key recording and reduction: empty and faulty series, recording, then the
// keys each tolerance keeps, then the interpolation of each value type, with
// values worked out by hand from the reduction rule.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "animation/key_reduction.h"

namespace {

// Records one sample per index; a braced list of numbers records floats.
template <typename T = float>
KeySeries<T> recordAll(const std::vector<T>& samples) {
  KeySeries<T> s;
  for (std::size_t i = 0; i < samples.size(); ++i) recordSample(s, samples[i], static_cast<int>(i));
  return s;
}

template <typename T>
KeySeries<T> series(std::vector<int> indices, std::vector<T> values) {
  KeySeries<T> s;
  s.indices = std::move(indices);
  s.values = std::move(values);
  return s;
}

// A translation-only matrix at (x, y, z) with identity axes.
SampleMatrix at(double x, double y = 0, double z = 0) {
  return {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {x, y, z}}};
}

// Rotation about the file's Y axis by `degrees`, axes scaled by `scale`.
SampleMatrix turned(double degrees, double scale = 1.0) {
  const double a = degrees * 3.14159265358979323846 / 180.0;
  const double c = std::cos(a) * scale, s = std::sin(a) * scale;
  return {{{c, 0, -s}, {0, scale, 0}, {s, 0, c}, {0, 0, 0}}};
}

}  // namespace

TEST(KeyReduction, EmptySeriesGivesNoKeys) {
  EXPECT_TRUE(reduceKeys(KeySeries<float>{}, ScalarKeyTolerance{0.5f}).empty());
  EXPECT_TRUE(reduceKeys(KeySeries<SampleMatrix>{}, MatrixKeyTolerance{0.0, 0.0}, FrameInterpolation::None, false).empty());
}

#ifndef NDEBUG
TEST(KeyReductionDeathTest, EqualSampleIndicesAreRefusedInDebugBuilds) {
  EXPECT_DEATH(reduceKeys(series<float>({0, 3, 3}, {0.0f, 1.0f, 2.0f}), ScalarKeyTolerance{0.0f}), "indices");
}
#endif

// --- recording ---

TEST(RecordSample, RepeatsAreDroppedButARunBeforeAChangeLeavesAHoldKey) {
  EXPECT_EQ(recordAll(std::vector<float>(50, 0.25f)).indices, (std::vector<int>{0}));
  std::vector<float> samples(10, 1.0f);
  samples.insert(samples.end(), 5, 2.0f);
  const auto s = recordAll(samples);
  EXPECT_EQ(s.indices, (std::vector<int>{0, 9, 10}));
  EXPECT_EQ(s.values, (std::vector<float>{1.0f, 1.0f, 2.0f}));
  // NaN equals nothing: always recorded, and a lone one is kept once.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(recordAll({nan, nan, nan}).indices, (std::vector<int>{0, 1, 2}));
  EXPECT_EQ(reduceKeys(recordAll({nan}), ScalarKeyTolerance{0.0f}).indices, (std::vector<int>{0}));
}

// --- tolerances ---

TEST(KeyReduction, TheKeysEachToleranceKeeps) {
  std::vector<float> holdThenChange(10, 1.0f), ramp;
  holdThenChange.insert(holdThenChange.end(), 5, 2.0f);
  for (int i = 0; i <= 20; ++i) ramp.push_back(static_cast<float>(i) * 0.5f);
  const struct {
    const char* what;
    std::vector<float> samples;
    float tolerance;
    std::vector<int> keys;
  } rows[] = {
      {"one entry is the only key", {3}, 0, {0}},
      {"two different entries both stay", {0, 1}, 100, {0, 1}},
      {"a hold and a change survive any tolerance", holdThenChange, 0, {0, 9, 10}},
      {"a hold and a change survive any tolerance", holdThenChange, 1000, {0, 9, 10}},
      {"a linear ramp keeps only its ends", ramp, 0, {0, 20}},
      // Every inner sample lies 1 off the line between its neighbours.
      {"a small tolerance keeps every corner of a zig-zag", {0, 1, 0, 1, 0}, 0.5f, {0, 1, 2, 3, 4}},
      {"a large tolerance keeps the ends", {0, 1, 0, 1, 0.5f}, 10, {0, 4}},
      // Sample 1 lies exactly 1 above the line from 0 to 0.
      {"a difference equal to the tolerance makes no key", {0, 1, 0, 0.5f}, 1, {0, 3}},
      {"a difference above the tolerance makes a key", {0, 1, 0, 0.5f}, 0.999f, {0, 1, 3}},
      // Sample 3 interpolated from samples 2 and 4 is 2.75 (off by 0.25), from
      // samples 0 and 4 it is 2.625 (off by 0.375): the earliest left end fails 0.3.
      {"every entry since the last key is tried as the left end", {0, 1, 2, 3, 3.5f}, 0.3f, {0, 3, 4}},
      {"every entry since the last key is tried as the left end", {0, 1, 2, 3, 3.5f}, 0.4f, {0, 4}},
      // Ramp up, then hold: the hold key at 4 stays, the end needs no key.
      {"a trailing run equal to the last key adds nothing", {0, 1, 2, 3, 4, 4, 4, 4}, 0, {0, 4}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.what) + ", tolerance " + std::to_string(row.tolerance));
    const auto out = reduceKeys(recordAll(row.samples), ScalarKeyTolerance{row.tolerance});
    EXPECT_EQ(out.indices, row.keys);
    for (std::size_t k = 0; k < out.indices.size(); ++k) EXPECT_EQ(out.values[k], row.samples[out.indices[k]]);
  }
}

// --- colour ---

TEST(ColorKeys, TwoUnitsOffTheLineIsDroppedThreeIsKept) {
  const ColorKeyTolerance tolerance{0.01f};  // 2.55 on the 0..255 scale
  for (const auto& [offset, keys] : {std::pair{2.0f, std::vector<int>{0, 2}}, {3.0f, std::vector<int>{0, 1, 2}}}) {
    const auto s = recordAll<SampleColor>({{0, 0, 0, 255}, {50, 50 + offset, 50, 255}, {100, 100, 100, 255}});
    EXPECT_EQ(reduceKeys(s, tolerance).indices, keys) << offset;
  }
}

TEST(ColorKeys, AlphaAloneMakesKeysOnlyThroughEquality) {
  const auto s = recordAll<SampleColor>({{10, 10, 10, 255}, {10, 10, 10, 0}, {10, 10, 10, 255}, {10, 10, 10, 100}});
  // Samples 1 and 2 interpolate perfectly in red, green and blue; the last
  // differs from the last key by alpha only, which the final equality test sees.
  EXPECT_EQ(reduceKeys(s, ColorKeyTolerance{0.0f}).indices, (std::vector<int>{0, 3}));
}

// --- matrices ---

TEST(MatrixKeys, ALinearRampInTranslationKeepsItsEnds) {
  std::vector<SampleMatrix> samples;
  for (int i = 0; i <= 16; ++i) samples.push_back(at(i * 0.25, 1.0, -i * 0.5));
  // Within double rounding: the blend multiplies by a reciprocal.
  EXPECT_EQ(reduceKeys(recordAll<SampleMatrix>(samples), {0.0, 1e-12}, FrameInterpolation::None, false).indices,
            (std::vector<int>{0, 16}));
}

TEST(MatrixKeys, TranslationAndAxesHaveTheirOwnTolerance) {
  // The middle sample is 0.1 off the line in translation, and its axes 0.1
  // off in one element.
  const std::vector<SampleMatrix> offTranslation = {at(0), at(1.1), at(2)};
  EXPECT_EQ(reduceKeys(recordAll<SampleMatrix>(offTranslation), {0.0, 0.2}, FrameInterpolation::None, false).size(), 2u);
  EXPECT_EQ(reduceKeys(recordAll<SampleMatrix>(offTranslation), {1.0, 0.05}, FrameInterpolation::None, false).size(), 3u);
  SampleMatrix bent = at(1);
  bent[0][1] = 0.1;
  const std::vector<SampleMatrix> offAxis = {at(0), bent, at(2)};
  EXPECT_EQ(reduceKeys(recordAll<SampleMatrix>(offAxis), {0.2, 0.0}, FrameInterpolation::None, false).size(), 2u);
  EXPECT_EQ(reduceKeys(recordAll<SampleMatrix>(offAxis), {0.05, 1.0}, FrameInterpolation::None, false).size(), 3u);
}

TEST(MatrixKeys, ANormalizedBlendFollowsATurnAndKeptScalingItsAxisLengths) {
  // 0, 45 and 90 degrees: normalised, the blend of 0 and 90 is the 45 degree
  // turn. With axes of length 2 the normalised blend has unit axes; the sample
  // in between is rebuilt only when the lengths are put back. (What the other
  // modes make of a blend: EachModeKeepsTheMiddleSampleUnlessItsOwnBlendRebuildsIt.)
  for (const auto& [scale, mode, maintain, kept] :
       {std::tuple{1.0, FrameInterpolation::Normalized, false, 2u}, {2.0, FrameInterpolation::Normalized, false, 3u},
        {2.0, FrameInterpolation::Normalized, true, 2u}}) {
    const auto s = recordAll<SampleMatrix>({turned(0, scale), turned(45, scale), turned(90, scale)});
    EXPECT_EQ(reduceKeys(s, {1e-6, 0.0}, mode, maintain).size(), kept)
        << scale << " " << static_cast<int>(mode) << " " << maintain;
  }
}

TEST(MatrixKeys, EachModeKeepsTheMiddleSampleUnlessItsOwnBlendRebuildsIt) {
  // Y turns from (0, 1, 0) to the skewed (0.6, 0.8, 0) while X stays (1, 0, 0).
  // The blend at the middle is (0.3, 0.9, 0): normalised (0.3, 0.9, 0) / sqrt(0.9);
  // orthonormalised against X, (0, 1, 0). A middle sample that is one of
  // these is dropped by its own mode alone; the plain blend matches neither.
  const double n = std::sqrt(0.9);
  const auto withY = [](double x, double y) { return SampleMatrix{{{1, 0, 0}, {x, y, 0}, {0, 0, 1}, {0, 0, 0}}}; };
  const SampleMatrix normalisedMiddle = withY(0.3 / n, 0.9 / n);
  const SampleMatrix orthonormalMiddle = withY(0, 1);
  const struct {
    SampleMatrix middle;
    FrameInterpolation mode;
    std::vector<int> kept;
  } cases[] = {
      {normalisedMiddle, FrameInterpolation::None, {0, 1, 2}},
      {normalisedMiddle, FrameInterpolation::Normalized, {0, 2}},
      {normalisedMiddle, FrameInterpolation::Orthonormalized, {0, 1, 2}},
      {orthonormalMiddle, FrameInterpolation::None, {0, 1, 2}},
      {orthonormalMiddle, FrameInterpolation::Normalized, {0, 1, 2}},
      {orthonormalMiddle, FrameInterpolation::Orthonormalized, {0, 2}},
  };
  for (const auto& c : cases) {
    const auto s = recordAll<SampleMatrix>({withY(0, 1), c.middle, withY(0.6, 0.8)});
    EXPECT_EQ(reduceKeys(s, {1e-9, 0.0}, c.mode, false).indices, c.kept) << static_cast<int>(c.mode);
  }
}

TEST(MatrixKeys, OppositeAxesBlendToAZeroRowThatMakesAKey) {
  // A half turn: the blend of 0 and 180 degrees has zero X and Z rows, which
  // cannot be normalised; the sample in between is kept, not waved through.
  const SampleMatrix half = {{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}, {0, 0, 0}}};
  const SampleMatrix quarter = {{{0, 0, -1}, {0, 1, 0}, {1, 0, 0}, {0, 0, 0}}};
  const auto s = recordAll<SampleMatrix>({at(0), quarter, half});
  EXPECT_EQ(reduceKeys(s, {0.5, 0.0}, FrameInterpolation::Normalized, false).size(), 3u);
}

TEST(Orthonormalize, GramSchmidtInRowOrder) {
  SampleMatrix m = {{{2, 0, 0}, {1, 3, 0}, {1, 1, 5}, {7, 8, 9}}};
  orthonormalizeAxes(m);
  const SampleMatrix expected = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {7, 8, 9}}};
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(m[r][c], expected[r][c], 1e-12) << r << "," << c;
}

TEST(Orthonormalize, AZeroRowStaysZero) {
  SampleMatrix m = {{{0, 0, 0}, {0, 2, 0}, {0, 0, 0}, {0, 0, 0}}};
  orthonormalizeAxes(m);
  EXPECT_EQ(m[0], (std::array<double, 3>{0, 0, 0}));
  EXPECT_EQ(m[1], (std::array<double, 3>{0, 1, 0}));
  EXPECT_EQ(m[2], (std::array<double, 3>{0, 0, 0}));
}

// --- the error the kept keys leave, for the verbose trace ---

TEST(KeyError, TheLargestMissOverEverySampleOfTheSpan) {
  // 0, 1, 1, 1, 1, 2 with tolerance 1 keeps 0 and 5; the line 0.4 x j misses
  // samples 1 and 4 by 0.6, the repeats 2 and 3 (dropped by recording) by 0.2.
  const auto recorded = recordAll({0, 1, 1, 1, 1, 2});
  const auto kept = reduceKeys(recorded, ScalarKeyTolerance{1.0f});
  ASSERT_EQ(kept.indices, (std::vector<int>{0, 5}));
  EXPECT_NEAR(largestKeyError(recorded, kept, 6), 0.6f, 1e-6f);
  // After the last key its value holds: a trailing run that equals it misses nothing.
  EXPECT_EQ(largestKeyError(recordAll({0, 2, 2, 2}), series<float>({0, 1}, {0, 2}), 4), 0.0f);

  // Translation 3.0005 where the line says 3: 0.0005 off, the axes exact.
  const auto moves = recordAll<SampleMatrix>({at(0), at(1), at(2), at(3.0005), at(4)});
  const auto ends = reduceKeys(moves, {0.0, 0.001}, FrameInterpolation::None, false);
  ASSERT_EQ(ends.indices, (std::vector<int>{0, 4}));
  const MatrixKeyError e = largestKeyError(moves, ends, 5, FrameInterpolation::None, false);
  EXPECT_NEAR(e.position, 0.0005, 1e-12);
  EXPECT_EQ(e.axes, 0.0);

  // Alpha takes no part: red 2 units off the line, alpha 100.
  const auto colours = recordAll<SampleColor>({{0, 0, 0, 0}, {12, 10, 10, 100}, {20, 20, 20, 0}});
  EXPECT_EQ(largestKeyError(colours, series<SampleColor>({0, 2}, {colours.values[0], colours.values[2]}), 3), 2.0f);
}
