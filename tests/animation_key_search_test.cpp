// reduceKeys finds its keys without trying every entry since the last key;
// the keys must be exactly those of the rule tried entry by entry
// (reduceKeysEntryByEntry). Both run here over many tracks, random and made to
// sit on the tolerance: ramps with noise just inside and just outside it,
// values and tolerances of binary fractions whose estimates are exact (a
// difference equal to the tolerance passes), holds, NaN and infinities, huge
// and tiny magnitudes, zero and negative tolerances, long gentle curves whose
// runs grow to thousands of entries.
//
// reduceKeysWithinBound promises what the rule does not: its keys, interpolated
// as the file declares, rebuild every sample of the span within the
// tolerance, as largestKeyError measures it. Held here over random and
// adversarial tracks in every interpolation mode (slow and fast turns, half
// turns whose blend passes through zero, scaled and shrinking axes, noise on
// and across the tolerance, holds, spikes, NaN, tolerances of 0), and on the
// slow steady turn and the flag where the rule strays far beyond it.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstring>
#include <functional>
#include <limits>
#include <random>
#include <regex>

#include "animation/key_reduction.h"
#include "support/flag_model.h"
#include "support/test_support.h"

namespace {

using Rng = std::mt19937_64;
constexpr double kPi = 3.14159265358979323846;

template <typename T>
bool sameKeys(const KeySeries<T>& a, const KeySeries<T>& b) {
  return a.indices == b.indices && a.values.size() == b.values.size() &&
         std::memcmp(a.values.data(), b.values.data(), a.values.size() * sizeof(T)) == 0;
}

double uniform(Rng& rng, double lo, double hi) { return std::uniform_real_distribution<double>(lo, hi)(rng); }
int below(Rng& rng, int n) { return std::uniform_int_distribution<int>(0, n - 1)(rng); }

// A turn by `radians` about the unit axis `u`, each axis row scaled by `scale`.
SampleMatrix rotation(const std::array<double, 3>& u, double radians, const std::array<double, 3>& scale) {
  const double c = std::cos(radians), s = std::sin(radians), t = 1 - c;
  const double x = u[0], y = u[1], z = u[2];
  const double m[3][3] = {{t * x * x + c, t * x * y + s * z, t * x * z - s * y},
                          {t * x * y - s * z, t * y * y + c, t * y * z + s * x},
                          {t * x * z + s * y, t * y * z - s * x, t * z * z + c}};
  SampleMatrix out{};
  for (int r = 0; r < 3; ++r)
    for (int k = 0; k < 3; ++k) out[r][k] = m[r][k] * scale[r];
  return out;
}

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
double searchTolerance(Rng& rng) {
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
    const double tol = searchTolerance(rng);
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

// One value per sample of a track of `kind`: smooth, noisy, stepped, spiky.
double wave(Rng& rng, int kind, int i, double tol, double a, double b) {
  switch (kind) {
    case 0: return a + b * i;                                         // straight
    case 1: return a + b * i + uniform(rng, -0.5, 0.5) * tol;          // noise inside
    case 2: return a + b * i + uniform(rng, -3, 3) * tol;              // noise across
    case 3: return a + 1e-4 * b * i * i;                               // gentle curve
    case 4: return a + 50 * tol * std::sin(i * 0.01 * b);              // slow wave
    case 5: return a + std::floor(i / (1 + std::fabs(b) * 20)) * tol;  // steps
    case 6: return a + (i % 53 == 20 ? 5 * tol : 0.0) + b * i;         // a spike now and then
    default: return uniform(rng, -1, 1);                               // jitter
  }
}

constexpr int kKinds = 8;

// Samples of a track, each value repeated now and then so that recording
// drops repeats and leaves hold keys, and a NaN once in a while.
template <typename T, typename Make>
KeySeries<T> recorded(Rng& rng, int n, const Make& make) {
  KeySeries<T> s;
  const bool holds = below(rng, 3) == 0;
  T value = make(0);
  for (int i = 0; i < n; ++i) {
    if (!holds || below(rng, 4) == 0) value = make(i);
    recordSample(s, value, i);
  }
  return s;
}

double boundTolerance(Rng& rng) {
  const double choices[] = {0.001, 0.01, 0.1, 1e-6, 0.0, 0.25};
  return choices[below(rng, 6)];
}

template <typename T>
void expectKeysOfTheSpan(const KeySeries<T>& recorded, const KeySeries<T>& keys) {
  if (recorded.empty()) {
    EXPECT_TRUE(keys.empty());
    return;
  }
  ASSERT_FALSE(keys.empty());
  EXPECT_EQ(keys.indices.front(), 0);
  EXPECT_EQ(keys.indices.back(), recorded.indices.back());
  for (std::size_t k = 1; k < keys.size(); ++k) ASSERT_LT(keys.indices[k - 1], keys.indices[k]);
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
               {FrameInterpolation::Orthonormalized, true}};
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
            SampleMatrix& v = out[static_cast<std::size_t>(i)];
            v = rotation({std::sin(tilt), 0, std::cos(tilt)}, -a, {1 + grow * i, 1 + grow * i, 1 + grow * i});
            for (int r = 0; r < 3; ++r)
              for (int k = 0; k < 3; ++k) v[r][k] += noise > 0 ? uniform(rng, -1, 1) * noise : 0.0;
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

TEST(KeyBound, ScalarAndColourTracksAreRebuiltWithinTheTolerance) {
  Rng rng(11);
  for (int t = 0; t < 600; ++t) {
    const int kind = below(rng, kKinds), n = 1 + below(rng, 600);
    const double tol = boundTolerance(rng), a = uniform(rng, -10, 10), b = uniform(rng, -0.5, 0.5);
    SCOPED_TRACE(testing::Message() << "track " << t << " of kind " << kind << ", tolerance " << tol);
    const auto scalars = recorded<float>(rng, n, [&](int i) { return float(wave(rng, kind, i, tol, a, b)); });
    const auto scalarKeys = reduceKeysWithinBound(scalars, ScalarKeyTolerance{float(tol)});
    expectKeysOfTheSpan(scalars, scalarKeys);
    EXPECT_LE(largestKeyError(scalars, scalarKeys, n), float(tol));

    // On the 0..255 scale; alpha moves on its own and takes no part.
    const auto colours = recorded<SampleColor>(rng, n, [&](int i) {
      return SampleColor{float(wave(rng, kind, i, tol * 255, 100 + a, b)), float(wave(rng, kind, i, tol * 255, a, -b)),
                         200.0f, float(uniform(rng, 0, 255))};
    });
    const auto colourKeys = reduceKeysWithinBound(colours, ColorKeyTolerance{float(tol)});
    expectKeysOfTheSpan(colours, colourKeys);
    EXPECT_LE(largestKeyError(colours, colourKeys, n), tol * 255.0);
  }
}

TEST(KeyBound, TransformTracksAreRebuiltWithinTheToleranceInEveryMode) {
  const struct {
    FrameInterpolation mode;
    bool scaling;
  } modes[] = {{FrameInterpolation::None, false},
               {FrameInterpolation::Normalized, false},
               {FrameInterpolation::Normalized, true},
               {FrameInterpolation::Orthonormalized, false},
               {FrameInterpolation::Orthonormalized, true}};
  for (const auto& m : modes) {
    Rng rng(20 + static_cast<int>(m.mode) * 2 + m.scaling);
    std::size_t ruleKeys = 0, boundKeys = 0;
    for (int t = 0; t < 120; ++t) {
      const int kind = below(rng, kKinds), n = 1 + below(rng, 500);
      const double tol = boundTolerance(rng), a = uniform(rng, -10, 10), b = uniform(rng, -0.5, 0.5);
      // Slow, fast and half turns (whose blend between two samples can pass
      // through zero), about an axis that may drift; axes that are scaled,
      // grow or shrink.
      const int turnKind = below(rng, 5);
      const double rate = turnKind == 0 ? uniform(rng, 1e-4, 3e-3) : turnKind == 1 ? uniform(rng, 0.02, 0.3) : 0.0;
      const std::array<double, 3> axis = {std::sqrt(0.5), 0.0, std::sqrt(0.5)};
      const int scaleKind = below(rng, 3);
      SCOPED_TRACE(testing::Message() << "mode " << static_cast<int>(m.mode) << (m.scaling ? " with scaling" : "")
                                      << ", track " << t << " of kind " << kind << "/" << turnKind << "/"
                                      << scaleKind << ", tolerance " << tol);
      const auto track = recorded<SampleMatrix>(rng, n, [&](int i) {
        double angle = rate * i;
        if (turnKind == 2) angle = (i % 7 < 3) ? 0.0 : kPi;                  // half turns
        if (turnKind == 3) angle = 0.4 * std::sin(i * 0.05 + a);              // a wave, as the flag's bones
        if (turnKind == 4) angle = wave(rng, kind, i, tol, a, b);             // the kind's own shape
        const double grow = scaleKind == 0 ? 1.0 : scaleKind == 1 ? 2.5 : 1.0 + 0.002 * i;
        SampleMatrix v = rotation(axis, angle, {grow, grow, scaleKind == 1 ? 0.5 : grow});
        for (int c = 0; c < 3; ++c) v[3][c] = wave(rng, kind, i, tol, a + c, b * (c + 1));
        if (below(rng, 2000) == 0) v[3][0] = std::numeric_limits<double>::quiet_NaN();
        return v;
      });
      const MatrixKeyTolerance bound{tol, tol / 2};
      const auto keys = reduceKeysWithinBound(track, bound, m.mode, m.scaling);
      expectKeysOfTheSpan(track, keys);
      const MatrixKeyError error = largestKeyError(track, keys, n, m.mode, m.scaling);
      EXPECT_LE(error.position, bound.positionDelta);
      EXPECT_LE(error.axes, bound.rotationDelta);
      ruleKeys += reduceKeys(track, bound, m.mode, m.scaling).size();
      boundKeys += keys.size();
    }
    std::printf("  mode %d%s: %zu keys by the rule, %zu within the bound\n", static_cast<int>(m.mode),
                m.scaling ? " with scaling" : "", ruleKeys, boundKeys);
  }
}

// 90 degrees over 1,000 frames: the rule keeps the two ends and misses the
// middle by 0.21 (0.067 through the blending modes); the bound keeps what the
// tolerance needs, and a straight move of 100,000 samples still takes two keys
// under either.
TEST(KeyBound, ASlowSteadyTurnKeepsThePromiseTheRuleBreaks) {
  KeySeries<SampleMatrix> turn, straight;
  for (int i = 0; i < 1001; ++i) recordSample(turn, rotation({0, 1, 0}, kPi / 2 * i / 1000, {1, 1, 1}), i);
  for (int i = 0; i < 100000; ++i)
    recordSample(straight, SampleMatrix{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {i * 0.1, 0, -i * 0.05}}}, i);
  const MatrixKeyTolerance tolerance{0.001, 0.001};
  for (const FrameInterpolation mode :
       {FrameInterpolation::None, FrameInterpolation::Normalized, FrameInterpolation::Orthonormalized}) {
    SCOPED_TRACE(static_cast<int>(mode));
    const auto rule = reduceKeys(turn, tolerance, mode, false);
    EXPECT_EQ(rule.size(), 2u);
    EXPECT_GT(largestKeyError(turn, rule, 1001, mode, false).axes, 0.05);
    const auto keys = reduceKeysWithinBound(turn, tolerance, mode, false);
    EXPECT_LE(largestKeyError(turn, keys, 1001, mode, false).axes, 0.001);
    EXPECT_LT(keys.size(), 100u);  // far from a key per frame
    EXPECT_EQ(reduceKeysWithinBound(straight, tolerance, mode, false).indices, (std::vector<int>{0, 99999}));
    EXPECT_EQ(reduceKeys(straight, tolerance, mode, false).indices, (std::vector<int>{0, 99999}));
  }
}

// The whole way through zt2export: the flag's bone chains, sampled 120 times
// a second and measured by the verbose trace, stray beyond the tolerance
// under the rule and stay within it with --key-error-bound.
TEST(KeyBound, TheFlagIsRebuiltWithinTheToleranceWithKeyErrorBound) {
  ztx_test::TempDir dir;
  ztx_test::writeFlag(dir.path().string());
  double worst[2] = {0, 0};
  std::size_t keys[2] = {0, 0};
  for (const bool bound : {false, true}) {
    auto args = ztx_test::exportArgs(dir, dir.file("flag.md5mesh"), dir.file(bound ? "bound.zt2" : "rule.zt2"),
                                     {"--quiet", "--verbose", "--set", "positionDelta=0.001", "--set",
                                      "rotationDelta=0.001", "--set", "sampleRate=120"});
    if (bound) args.push_back("--key-error-bound");
    const auto e = ztx_test::runExport(args);
    ASSERT_EQ(e.exitCode, 0) << e.out << e.err;
    const std::regex line(R"(Animation "[^"]*" transform: \d+ samples, (\d+) keys, largest error (\S+) position, (\S+) axes)");
    int tracks = 0;
    for (std::sregex_iterator it(e.err.begin(), e.err.end(), line), end; it != end; ++it, ++tracks) {
      keys[bound] += std::stoul((*it)[1]);
      worst[bound] = std::max({worst[bound], std::stod((*it)[2]), std::stod((*it)[3])});
    }
    EXPECT_GT(tracks, 8);
  }
  std::printf("  flag: the rule keeps %zu keys, largest error %g; the bound %zu keys, largest error %g\n", keys[0],
              worst[0], keys[1], worst[1]);
  EXPECT_GT(worst[0], 0.005);
  EXPECT_LE(worst[1], 0.001);
  EXPECT_NE(ztx_test::readBytes(dir.file("rule.zt2")), ztx_test::readBytes(dir.file("bound.zt2")));
}
