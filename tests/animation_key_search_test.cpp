// reduceKeys finds its keys without trying every entry since the last key;
// the keys must be exactly those of the rule tried entry by entry
// (reduceKeysEntryByEntry). Both run here over many tracks, random and made to
// sit on the tolerance: ramps with noise just inside and just outside it,
// values and tolerances of binary fractions whose estimates are exact (a
// difference equal to the tolerance passes), holds, NaN and infinities, huge
// and tiny magnitudes, zero and negative tolerances, long gentle curves whose
// runs grow to thousands of entries.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <random>

#include "animation/key_reduction.h"

namespace {

using Rng = std::mt19937_64;

template <typename T>
bool sameKeys(const KeySeries<T>& a, const KeySeries<T>& b) {
  return a.indices == b.indices && a.values.size() == b.values.size() &&
         std::memcmp(a.values.data(), b.values.data(), a.values.size() * sizeof(T)) == 0;
}

double uniform(Rng& rng, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
int below(Rng& rng, int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }

// One component's track of `n` samples, shaped by `kind`, around the tolerance `tol`.
std::vector<double> track(Rng& rng, int kind, int n, double tol) {
  std::vector<double> v(static_cast<std::size_t>(n));
  if (kind == 12) {
    // Straight pieces whose slopes differ by up to twice the tolerance: the
    // entry that misses most lies inside the run, not at its last key.
    double x = uniform(rng, -100, 100), slope = uniform(rng, -3, 3);
    for (int i = 0; i < n; ++i) {
      if (below(rng, 40) == 0) slope += uniform(rng, -2, 2) * tol;
      v[static_cast<std::size_t>(i)] = x += slope;
    }
    return v;
  }
  const double slope = uniform(rng, -3, 3), start = uniform(rng, -100, 100);
  const double curve = uniform(rng, -1, 1) * tol / std::max(1, n);
  const int step = 1 + below(rng, 20);
  for (int i = 0; i < n; ++i) {
    double& x = v[static_cast<std::size_t>(i)];
    switch (kind) {
      case 0: x = start + slope * i; break;                                  // straight
      case 1: x = start + slope * i + uniform(rng, -0.5, 0.5) * tol; break;  // noise inside
      case 2: x = start + slope * i + uniform(rng, -1.2, 1.2) * tol; break;  // noise across
      case 3: x = start + curve * i * i; break;                              // gentle curve, long runs
      case 4: x = start + 40 * tol * std::sin(i * 0.003); break;             // slow wave
      case 5: x = (i / step) * tol; break;                                   // steps: holds
      case 6: x = 0.125 * (i % 5) + 0.25 * i; break;                         // binary fractions: exact estimates
      case 7: x = 0.125 * below(rng, 3) + 0.5 * i; break;                    // binary noise on the tolerance
      case 8: x = uniform(rng, -1, 1) * 1e30 + 1e28 * i; break;              // huge
      case 9: x = (start + slope * i) * 1e-30; break;                        // tiny
      case 10: x = uniform(rng, -1, 1); break;                               // jitter
      default: x = start + slope * i + (i % 97 == 50 ? 3 * tol : 0.0); break;  // a lone spike
    }
  }
  // Now and then a value no bound may be trusted with.
  if (below(rng, 12) == 0) {
    const double odd[] = {std::numeric_limits<double>::quiet_NaN(), std::numeric_limits<double>::infinity(),
                          -std::numeric_limits<double>::infinity(), 1e308};
    v[static_cast<std::size_t>(below(rng, n))] = odd[below(rng, 4)];
  }
  return v;
}

// Tolerances of binary fractions (exact estimates can sit on them), a usual
// one, and the odd ones.
double tolerance(Rng& rng) {
  const double choices[] = {0.25, 0.5, 0.125, 0.001, 0.01, 1e-9, 0.0, -1.0, 3.0, 1e-30, 1e29};
  return choices[below(rng, 11)];
}

// `tracks` tracks, a few of them long gentle curves when `longRuns` is set.
template <typename T, typename Make, typename Reduce, typename Reference>
void compareMany(int tracks, std::uint64_t seed, bool longRuns, const Make& make, const Reduce& reduce,
                 const Reference& reference) {
  Rng rng(seed);
  int longest = 0;
  for (int t = 0; t < tracks; ++t) {
    const int kind = below(rng, 16) < 12 ? below(rng, 12) : 12;
    const bool isLong = longRuns && (kind == 3 || kind == 4 || kind == 12) && below(rng, 4) == 0;
    const int n = isLong ? 1000 + below(rng, 1500) : 1 + below(rng, 400);
    const double tol = tolerance(rng);
    KeySeries<T> recorded;
    // A maker may lengthen the track it was asked for.
    const std::vector<T> samples = make(rng, kind, n, tol);
    for (std::size_t i = 0; i < samples.size(); ++i) recordSample(recorded, samples[i], static_cast<int>(i));
    const KeySeries<T> fast = reduce(recorded, tol), plain = reference(recorded, tol);
    ASSERT_TRUE(sameKeys(fast, plain)) << "track " << t << " of kind " << kind << ", " << samples.size()
                                       << " samples, tolerance "
                                       << tol << ": " << fast.size() << " keys against " << plain.size();
    for (std::size_t k = 1; k < plain.size(); ++k) longest = std::max(longest, plain.indices[k] - plain.indices[k - 1]);
  }
  // The long runs that only the grouped bounds decide were met.
  if (longRuns) {
    EXPECT_GT(longest, 1000);
  }
}

}  // namespace

TEST(KeySearch, ScalarKeysAreTheRulesKeys) {
  compareMany<float>(
      800, 1, true,
      [](Rng& rng, int kind, int n, double tol) {
        const std::vector<double> v = track(rng, kind, n, tol);
        return std::vector<float>(v.begin(), v.end());
      },
      [](const KeySeries<float>& s, double tol) { return reduceKeys(s, ScalarKeyTolerance{float(tol)}); },
      [](const KeySeries<float>& s, double tol) { return reduceKeysEntryByEntry(s, ScalarKeyTolerance{float(tol)}); });
}

TEST(KeySearch, ColourKeysAreTheRulesKeys) {
  // The tolerance is a fraction of 255; alpha changes on its own and takes no part.
  compareMany<SampleColor>(
      400, 2, true,
      [](Rng& rng, int kind, int n, double tol) {
        std::vector<SampleColor> out(static_cast<std::size_t>(n));
        for (int c = 0; c < 4; ++c) {
          const std::vector<double> v = track(rng, c == 3 ? 10 : kind, n, tol * 255.0);
          for (int i = 0; i < n; ++i) out[static_cast<std::size_t>(i)][c] = float(v[static_cast<std::size_t>(i)]);
        }
        return out;
      },
      [](const KeySeries<SampleColor>& s, double tol) { return reduceKeys(s, ColorKeyTolerance{float(tol)}); },
      [](const KeySeries<SampleColor>& s, double tol) {
        return reduceKeysEntryByEntry(s, ColorKeyTolerance{float(tol)});
      });
}

TEST(KeySearch, MatrixKeysAreTheRulesKeysInEveryMode) {
  // Each element its own track; the translation and the axes have tolerances of their own.
  for (const auto& [modeOfCase, scalingOfCase] : {std::pair{FrameInterpolation::None, false},
                                                  std::pair{FrameInterpolation::Normalized, true},
                                                  std::pair{FrameInterpolation::Orthonormalized, false}}) {
    const FrameInterpolation mode = modeOfCase;  // lambdas below capture it
    const bool scaling = scalingOfCase;
    SCOPED_TRACE(static_cast<int>(mode));
    const int tracks = mode == FrameInterpolation::None ? 400 : 30;
    compareMany<SampleMatrix>(
        tracks, 3 + static_cast<int>(mode), mode == FrameInterpolation::None,
        [](Rng& rng, int kind, int n, double tol) {
          std::vector<SampleMatrix> out(static_cast<std::size_t>(n));
          // Mostly a few elements move, as in a real transform; the rest stand.
          const int moving = below(rng, 3) == 0 ? 12 : 1 + below(rng, 3);
          for (int e = 0; e < 12; ++e) {
            const bool moves = e < moving || e == 9 + below(rng, 3);
            const std::vector<double> v = moves ? track(rng, kind, n, tol) : std::vector<double>(n, e % 4 == 0);
            for (int i = 0; i < n; ++i) out[static_cast<std::size_t>(i)][e / 3][e % 3] = v[static_cast<std::size_t>(i)];
          }
          return out;
        },
        [&](const KeySeries<SampleMatrix>& s, double tol) {
          return reduceKeys(s, MatrixKeyTolerance{tol, tol / 2}, mode, scaling);
        },
        [&](const KeySeries<SampleMatrix>& s, double tol) {
          return reduceKeysEntryByEntry(s, MatrixKeyTolerance{tol, tol / 2}, mode, scaling);
        });
  }
}

// The straight move of the benchmark, 20,000 samples: two keys either way.
TEST(KeySearch, ALongStraightMoveKeepsItsTwoKeys) {
  KeySeries<SampleMatrix> recorded;
  for (int i = 0; i < 20000; ++i) recordSample(recorded, SampleMatrix{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {i * 0.1, 0, -i * 0.05}}}, i);
  const MatrixKeyTolerance tolerance{0.001, 0.001};
  const auto keys = reduceKeys(recorded, tolerance, FrameInterpolation::None, false);
  EXPECT_EQ(keys.indices, (std::vector<int>{0, 19999}));
}

// The blending modes, on what they are made for: axes turning about an axis
// that drifts, slowly (runs of a thousand entries and more, which only the
// bands decide) or fast, with noise on and across the tolerance, growing and
// shrinking axes, half turns whose blend passes through zero, and a
// translation of its own kind beside them.
TEST(KeySearch, TurningKeysAreTheRulesKeysInTheBlendingModes) {
  const struct {
    FrameInterpolation mode;
    bool scaling;
  } modes[] = {{FrameInterpolation::Normalized, false},
               {FrameInterpolation::Normalized, true},
               {FrameInterpolation::Orthonormalized, false},
               {FrameInterpolation::Orthonormalized, true},
               {FrameInterpolation::None, true}};
  for (const auto& m : modes) {
    SCOPED_TRACE(testing::Message() << "mode " << static_cast<int>(m.mode) << (m.scaling ? " with scaling" : ""));
    const FrameInterpolation mode = m.mode;
    const bool scaling = m.scaling;
    compareMany<SampleMatrix>(
        60, 40 + static_cast<int>(mode) * 2 + scaling, false,
        [](Rng& rng, int kind, int n, double tol) {
          // Long and slow now and then, whatever the kind.
          const bool slow = below(rng, 3) == 0;
          if (slow) n = std::max(n, 1500);
          const double rate = slow ? uniform(rng, 1e-5, 5e-4) : uniform(rng, 1e-3, 0.2);
          const double noise = below(rng, 2) == 0 ? 0.0 : uniform(rng, 0.2, 1.5) * tol;
          const double grow = below(rng, 2) == 0 ? 0.0 : uniform(rng, -2e-4, 2e-4);
          const bool flips = below(rng, 10) == 0;
          // Or a turn whose rate changes by up to twice the tolerance now and
          // then: the entry that misses most lies inside the run.
          const bool kinks = below(rng, 2) == 0;
          double angle = 0.0, kinkedRate = rate;
          const std::vector<double> position = track(rng, kind, n, tol);
          std::vector<SampleMatrix> out(static_cast<std::size_t>(n));
          for (int i = 0; i < n; ++i) {
            if (kinks && below(rng, 40) == 0) kinkedRate += uniform(rng, -2, 2) * tol;
            angle += kinkedRate;
            const double a = flips && i % 9 > 5 ? 3.14159265358979323846 : kinks ? angle : rate * i;
            const double tilt = 0.3 + 1e-4 * i;  // the axis drifts
            const double x = std::sin(tilt), z = std::cos(tilt), c = std::cos(a), s = std::sin(a), t = 1 - c;
            const double rows[3][3] = {{t * x * x + c, -s * z, t * x * z},
                                       {s * z, c, -s * x},
                                       {t * x * z, s * x, t * z * z + c}};
            SampleMatrix& v = out[static_cast<std::size_t>(i)];
            for (int r = 0; r < 3; ++r)
              for (int k = 0; k < 3; ++k)
                v[r][k] = rows[r][k] * (1 + grow * i) + (noise > 0 ? uniform(rng, -1, 1) * noise : 0.0);
            v[3] = {position[static_cast<std::size_t>(i)], 0.5 * position[static_cast<std::size_t>(i)], -2.0};
          }
          return out;
        },
        [&](const KeySeries<SampleMatrix>& s, double tol) {
          return reduceKeys(s, MatrixKeyTolerance{tol, tol}, mode, scaling);
        },
        [&](const KeySeries<SampleMatrix>& s, double tol) {
          return reduceKeysEntryByEntry(s, MatrixKeyTolerance{tol, tol}, mode, scaling);
        });
  }
}
