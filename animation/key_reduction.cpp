#include "animation/key_reduction.h"

#include <algorithm>
#include <array>
#include <cassert>
#include <cmath>
#include <limits>
#include <type_traits>

namespace {

// The one reduction loop, as the rule reads. `estimate(a, b, ta, tq, tb)`
// interpolates the candidate at sample tq between entry a at ta and entry b
// at tb.
//
// For each candidate q every entry i since the last kept key is tried as the
// left end of the interpolation, so a long run that interpolates well costs
// time quadratic in its length; recordSample has already removed exact
// repeats, which keeps still objects cheap. BoundedSearch below gives the
// same keys without trying every entry where the estimates are linear.
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

// --- the bounded search ---
//
// For a linear estimate the rule has a plain geometric meaning. With
// w(t) = (tr - tq) / (tr - t), the estimate of candidate q from entry i is
// value[r] + (value[i] - value[r]) * w(ti), so its error is
//
//   f(ti, value[i]) = value[r] - value[q] + (value[i] - value[r]) * w(ti),
//
// and |f| <= tolerance holds exactly for the points (t, v) of a wedge with its
// tip at entry r: a convex region. A group of entries lies in a band about
// the chord through its first and last entry (residuals lo..hi), a
// parallelogram; when its four corners lie in the wedge, with a margin that
// covers every rounding of the rule's own arithmetic and of this one, no
// entry of the group can exceed the tolerance, and none need be tried. Only
// groups the bound cannot clear are split, down to groups of eight tried entry
// by entry with the rule's own estimate and test. The answer for each
// candidate is therefore the rule's: a key exactly where trying every entry
// finds one that exceeds.
//
// The entries since the last key are kept as one band about a chord drawn
// anew each time the run doubles (a straight move stays in it whatever its
// length, so each candidate costs the same), and, only once that band cannot
// clear a candidate, as aligned groups of 8, 16, 32... entries, each band
// built once from its two halves. A curve leaves the run's band: there the
// groups of all but the last few entries are merged into one band, drawn
// anew each time the run grows by 64 entries, and the entries after it make
// one more band; those two clear a steady turn at any length, so it too costs
// the same per candidate. Only a band that cannot clear is split.
//
// Where a band's chord ends at its last entry (every group, the merged
// prefix), its residuals are also bounded by how they shrink toward that
// entry: e * w(t) <= towardLast * (t[last] - t) * (tr - tq) / (tr - t) <=
// towardLast * (tr - tq), however near the band ends to the candidate. Without
// it a curved band next to the candidate would never clear.

// Unit roundoff of the arithmetic that computes an estimate.
template <typename Scalar>
constexpr double kRoundoff = std::numeric_limits<Scalar>::epsilon() / 2;

template <int N>
struct Band {
  std::size_t first = 0, last = 0;  // the entries it holds
  std::size_t anchor = 0;           // the chord runs from `first` through `anchor`
  bool finite = true;               // a NaN or an infinity: no bound is trusted
  std::array<double, N> lo{}, hi{};  // residuals about the chord, lo <= 0 <= hi
  std::array<double, N> largest{};  // the largest magnitude of a value in the band
  std::array<double, N> error{};    // how far rounding may have moved lo and hi
  // With the chord through the last entry (anchor == last), where every
  // residual is 0: the largest |residual| / (t[last] - t) of an entry, so
  // that a residual shrinks to 0 toward the last entry at that slope.
  std::array<double, N> towardLast{};
};

// `component(value, c)` gives component c as a double; `limits[c]` is the
// tolerance of component c, exactly as the tolerance compares it; `Scalar` is
// the type the estimate is computed in.
//
// Where the estimate is not linear in the blend (normalised axes, kept
// lengths), `Blend` is given instead: `blend(lo, hi, sampled)` says whether
// every estimate made from blended components within [lo[c], hi[c]] lies
// within the tolerance of `sampled`. The blend of a band's entries is the
// wedge's own expression, value[r] + (value[i] - value[r]) * w(ti): for one
// residual it is monotone in ti, for one ti linear in the residual, so the
// band's four corners bound it.
struct NoBlend {};

template <typename T, int N, typename Scalar, typename Estimate, typename Tolerance, typename Component,
          typename Blend = NoBlend>
class BoundedSearch {
  static constexpr bool kLinear = std::is_same_v<Blend, NoBlend>;

 public:
  BoundedSearch(const KeySeries<T>& in, const Estimate& estimate, const Tolerance& tolerance,
                const std::array<double, N>& limits, const Component& component, const Blend& blend = {})
      : in_(in), estimate_(estimate), tolerance_(tolerance), limits_(limits), component_(component), blend_(blend) {
    // A component that holds one finite value over the whole series is
    // estimated as that value up to a few roundings of it: where those stay
    // within its tolerance, no entry can exceed through it, and the bounds
    // leave it out (the nine axis elements of a node that only moves).
    std::array<bool, N> standing;
    standing.fill(!in_.values.empty());
    // One pass over the series for all components, stopping once all move.
    for (std::size_t k = 1, left = N; left > 0 && k < in_.size(); ++k)
      for (int c = 0; c < N; ++c)
        if (standing[c] && !(value(k, c) == value(0, c))) standing[c] = false, --left;
    if constexpr (!kLinear) {
      // Every component enters the normalisation: a standing one as its
      // value, which the bands need not follow.
      for (int c = 0; c < N; ++c) {
        standing_[c] = standing[c] && std::isfinite(value(0, c));
        if (!standing_[c]) moving_.push_back(c);
      }
      return;
    }
    for (int c = 0; c < N; ++c) {
      const double v = standing[c] ? value(0, c) : 0.0, limit = limits_[c];
      if (!(standing[c] && std::isfinite(v) &&
            64 * (kRoundoff<Scalar> + kRoundoff<double>) * (std::fabs(v) + std::fabs(limit)) <= limit))
        moving_.push_back(c);
    }
  }

  KeySeries<T> run() {
    KeySeries<T> out;
    const std::size_t n = in_.size();
#ifndef NDEBUG
    assert(in_.indices.size() == n);
    for (std::size_t k = 1; k < n; ++k) assert(in_.indices[k - 1] < in_.indices[k]);
#endif
    if (n == 0) return out;
    const auto keep = [&](std::size_t k) {
      out.values.push_back(in_.values[k]);
      out.indices.push_back(in_.indices[k]);
    };
    keep(0);
    startRun(0);
    for (std::size_t q = 1, r = 2; r < n; q = r, ++r) {
      const bool kept = (q == p_ + 1 && in_.indices[q] - in_.indices[p_] != 1) || anyExceeds(q, r);
      if (kept) {
        keep(q);
        startRun(q);
      } else if (q - p_ >= kShortRun) {
        grow(runBand_, q);  // needed from the next candidate on
      }
    }
    if (!sameValue(in_.values[n - 1], out.values.back()) && in_.indices[n - 1] != out.indices.back()) keep(n - 1);
    return out;
  }

 private:
  static constexpr int kGroupLevel = 3;  // groups of 8 entries are tried entry by entry
  static constexpr std::size_t kShortRun = 8;  // runs this short are tried entry by entry, without a band
  static constexpr int kPrefixLevel = 6;  // the prefix band leaves out fewer than 64 entries
  static constexpr std::size_t kPrefixRun = std::size_t{1} << kPrefixLevel;

  double value(std::size_t k, int c) const { return component_(in_.values[k], c); }
  double time(std::size_t k) const { return in_.indices[k]; }

  bool exceeds(std::size_t i, std::size_t q, std::size_t r) const {
    return tolerance_.exceeds(in_.values[q],
                              estimate_(in_.values[i], in_.values[r], in_.indices[i], in_.indices[q], in_.indices[r]));
  }
  bool anyExceedsEntryByEntry(std::size_t from, std::size_t to, std::size_t q, std::size_t r) const {
    for (std::size_t i = from; i < to; ++i)
      if (exceeds(i, q, r)) return true;
    return false;
  }

  void startRun(std::size_t p) {
    p_ = p;
    runBand_ = single(p);
    prefixCount_ = 0;
    for (auto& level : groups_) level.clear();
  }

  Band<N> single(std::size_t k) const {
    Band<N> b;
    b.first = b.last = b.anchor = k;
    for (const int c : moving_) {
      const double v = value(k, c);
      b.finite = b.finite && std::isfinite(v);
      b.largest[c] = std::fabs(v);
    }
    return b;
  }

  // The chord's value at entry k (the chord from band.first through band.anchor).
  double chordAt(const Band<N>& b, int c, std::size_t k) const {
    const double va = value(b.first, c);
    return va + (value(b.anchor, c) - va) * ((time(k) - time(b.first)) / (time(b.anchor) - time(b.first)));
  }
  // What computing chordAt(b, c, k) and a residual there may be off by.
  double chordError(const Band<N>& b, int c, std::size_t k) const {
    const double va = value(b.first, c);
    const double ratio = (time(k) - time(b.first)) / (time(b.anchor) - time(b.first));
    return residualError(std::fabs(va) + std::fabs(value(b.anchor, c) - va) * ratio + std::fabs(value(k, c)));
  }

  // A residual costs a few roundings of the values it is made of; each shift
  // of a band one more of its bounds.
  static double residualError(double magnitude) { return 8 * kRoundoff<double> * magnitude; }

  // Moves the band's end to entry k, the entry after its last one: the old
  // residuals move with the difference of the two chords, which is 0 at the
  // first entry and the old last entry's new residual at the old last entry.
  void extend(Band<N>& b, std::size_t k) const {
    const std::size_t previous = b.last;
    b.last = b.anchor = k;
    for (const int c : moving_) {
      const double v = value(k, c);
      b.finite = b.finite && std::isfinite(v);
      b.largest[c] = std::max(b.largest[c], std::fabs(v));
      const double e = value(previous, c) - chordAt(b, c, previous);
      b.lo[c] += std::min(0.0, e);
      b.hi[c] += std::max(0.0, e);
      b.error[c] += residualError(3 * b.largest[c] + std::fabs(b.lo[c]) + std::fabs(b.hi[c]));
    }
  }

  // The run's band takes entry k, the entry after its last one. Its chord
  // stays, so the residual of each entry is its own and no slack piles up
  // (rounding noise on a straight move stays noise); it is drawn anew, to
  // the newest entry, each time the run has doubled since it was drawn, which
  // costs a pass over the run that often: linear in all.
  void grow(Band<N>& b, std::size_t k) const {
    b.last = k;
    if (k - b.first >= 2 * (b.anchor - b.first)) {
      b.anchor = k;
      b.finite = true;
      b.lo.fill(0.0);
      b.hi.fill(0.0);
      b.largest.fill(0.0);
      b.error.fill(0.0);
      for (std::size_t i = b.first; i <= k; ++i) takeResidual(b, i);
      takeTowardLast(b);
    } else {
      takeResidual(b, k);
    }
  }

  // How the residuals of a band whose chord ends at its last entry shrink
  // toward it: one pass over its entries.
  void takeTowardLast(Band<N>& b) const {
    b.towardLast.fill(0.0);
    const double tLast = time(b.last);
    for (std::size_t i = b.first; i < b.last; ++i)
      for (const int c : moving_)
        b.towardLast[c] = std::max(b.towardLast[c], std::fabs(value(i, c) - chordAt(b, c, i)) / (tLast - time(i)));
  }

  void takeResidual(Band<N>& b, std::size_t i) const {
    for (const int c : moving_) {
      const double v = value(i, c);
      b.finite = b.finite && std::isfinite(v);
      b.largest[c] = std::max(b.largest[c], std::fabs(v));
      if (b.anchor == b.first) continue;
      const double e = v - chordAt(b, c, i);
      b.lo[c] = std::min(b.lo[c], e);
      b.hi[c] = std::max(b.hi[c], e);
      b.error[c] = std::max(b.error[c], chordError(b, c, i));
    }
  }

  // Two adjacent bands as one, about the chord over both.
  Band<N> merge(const Band<N>& left, const Band<N>& right) const {
    Band<N> b;
    b.first = left.first;
    b.last = b.anchor = right.last;
    b.finite = left.finite && right.finite;
    for (const int c : moving_) {
      b.largest[c] = std::max(left.largest[c], right.largest[c]);
      const double eLeft = value(left.last, c) - chordAt(b, c, left.last);
      const double eRight = value(right.first, c) - chordAt(b, c, right.first);
      b.lo[c] = std::min(left.lo[c] + std::min(0.0, eLeft), right.lo[c] + std::min(0.0, eRight));
      b.hi[c] = std::max(left.hi[c] + std::max(0.0, eLeft), right.hi[c] + std::max(0.0, eRight));
      // Both chords end where the halves end: the difference of the right
      // half's chord and this one is 0 at the last entry and eRight at the
      // right half's first; of the left half's, 0 at the first entry and
      // eLeft at its last, which lies at least t[last] - t[left.last] before
      // the end. Each half's own residuals shrink toward its own last entry.
      const double tLast = time(b.last);
      b.towardLast[c] = std::max(left.towardLast[c] + std::fabs(eLeft) / (tLast - time(left.last)),
                                 right.towardLast[c] + std::fabs(eRight) / (tLast - time(right.first)));
      b.error[c] = std::max(left.error[c], right.error[c]) +
                   residualError(3 * b.largest[c] + std::fabs(b.lo[c]) + std::fabs(b.hi[c]));
    }
    return b;
  }

  // The aligned group j of 2^level entries from the run's first entry.
  const Band<N>& group(int level, std::size_t j) {
    if (groups_.size() <= static_cast<std::size_t>(level)) groups_.resize(static_cast<std::size_t>(level) + 1);
    auto& built = groups_[static_cast<std::size_t>(level)];
    if (j < built.size() && built[j].ready) return built[j].band;
    Band<N> b;
    if (level == kGroupLevel) {
      const std::size_t first = p_ + (j << level);
      b = single(first);
      for (std::size_t k = first + 1; k < first + (std::size_t{1} << level); ++k) extend(b, k);
      takeTowardLast(b);
    } else {
      const Band<N> left = group(level - 1, 2 * j);  // the next call may move it
      b = merge(left, group(level - 1, 2 * j + 1));
    }
    if (built.size() <= j) built.resize(j + 1);
    built[j] = {b, true};
    return built[j].band;
  }

  // Whether no entry of band b can exceed the tolerance for candidate q
  // estimated with entry r: the band's four corners lie in the wedge, by more
  // than any rounding can move them.
  bool clears(const Band<N>& b, std::size_t q, std::size_t r) const {
    if (!b.finite) return false;
    const double tq = time(q), tr = time(r);
    const double wFirst = (tr - tq) / (tr - time(b.first));
    const double wLast = (tr - tq) / (tr - time(b.last));
    if constexpr (!kLinear) return blendClears(b, q, r, wFirst, wLast);
    for (const int c : moving_) {
      const double vq = value(q, c), vr = value(r, c);
      double lo = 0.0, hi = 0.0, magnitude = 0.0;
      blendRange(b, c, r, tr - tq, wFirst, wLast, lo, hi, magnitude);
      // This bound's own rounding, and the rule's: its estimate and difference
      // are rounded in `Scalar` from values of at most this size.
      const double margin = 2 * b.error[c] + 16 * kRoundoff<double> * (magnitude + std::fabs(vq)) +
                            32 * kRoundoff<Scalar> * (b.largest[c] + std::fabs(vr) + std::fabs(vq) +
                                                      std::fabs(limits_[c]));
      const double allowed = limits_[c] - margin;
      // Written so that a NaN anywhere clears nothing.
      if (!(std::fabs(lo - vq) <= allowed && std::fabs(hi - vq) <= allowed)) return false;
    }
    return true;
  }

  // The range of the blend value[r] + (value[i] - value[r]) * w(ti) of
  // component c over the entries of band b, before rounding; `magnitude` the
  // size of what it was computed from. Two bounds, both kept:
  // - the band's four corners (for one residual the blend is monotone in ti,
  //   for one ti linear in the residual);
  // - the chord's part, monotone in ti, at both ends, plus the residual's part
  //   e * w, which lies within [lo, hi] * w(t[last]) and, where the residuals
  //   shrink toward the last entry, within towardLast * (tr - tq), however
  //   near the band ends to the candidate.
  void blendRange(const Band<N>& b, int c, std::size_t r, double gap, double wFirst, double wLast, double& lo,
                  double& hi, double& magnitude) const {
    const double vr = value(r, c), va = value(b.first, c);
    // The band's far side: on the chord, which may run on past its anchor.
    const double vb = b.anchor == b.last ? value(b.last, c) : chordAt(b, c, b.last);
    const double corners[4] = {vr + (va + b.lo[c] - vr) * wFirst, vr + (va + b.hi[c] - vr) * wFirst,
                               vr + (vb + b.lo[c] - vr) * wLast, vr + (vb + b.hi[c] - vr) * wLast};
    lo = std::min({corners[0], corners[1], corners[2], corners[3]});
    hi = std::max({corners[0], corners[1], corners[2], corners[3]});
    magnitude = std::fabs(vr) + std::fabs(va) + std::fabs(vb) + std::fabs(b.lo[c]) + std::fabs(b.hi[c]);
    if (b.anchor != b.last || b.first == b.last) return;
    const double ea = vr + (va - vr) * wFirst, eb = vr + (vb - vr) * wLast;
    const double shrink = (b.towardLast[c] + 4 * b.error[c]) * gap * (1 + 8 * kRoundoff<double>);
    const double below = std::max(b.lo[c] * wLast, -shrink), above = std::min(b.hi[c] * wLast, shrink);
    lo = std::max(lo, std::min(ea, eb) + below);
    hi = std::min(hi, std::max(ea, eb) + above);
    magnitude += shrink;
  }

  // The nonlinear estimates: the range of each blended component over the
  // band, widened by what rounding (this bound's and the rule's blend) may
  // move it, handed to the blend's own bound.
  bool blendClears(const Band<N>& b, std::size_t q, std::size_t r, double wFirst, double wLast) const {
    std::array<double, N> lo, hi;
    for (int c = 0; c < N; ++c) {
      if (standing_[c]) {
        // The blend of two equal values, up to its roundings.
        const double v = value(0, c), margin = 16 * kRoundoff<double> * std::fabs(v);
        lo[c] = v - margin;
        hi[c] = v + margin;
        continue;
      }
      double magnitude = 0.0;
      blendRange(b, c, r, time(r) - time(q), wFirst, wLast, lo[c], hi[c], magnitude);
      const double margin = 2 * b.error[c] + 16 * kRoundoff<double> * magnitude +
                            32 * kRoundoff<Scalar> * (b.largest[c] + std::fabs(value(r, c)));
      lo[c] -= margin;
      hi[c] += margin;
      // Written so that a NaN anywhere clears nothing.
      if (!(lo[c] <= hi[c])) return false;
    }
    return blend_(lo, hi, in_.values[q]);
  }

  bool groupExceeds(int level, std::size_t j, std::size_t q, std::size_t r) {
    if (clears(group(level, j), q, r)) return false;
    const std::size_t first = p_ + (j << level);
    if (level == kGroupLevel) return anyExceedsEntryByEntry(first, first + (std::size_t{1} << level), q, r);
    return groupExceeds(level - 1, 2 * j, q, r) || groupExceeds(level - 1, 2 * j + 1, q, r);
  }

  // Whether some entry from the last key up to q - 1 estimates candidate q,
  // with entry r, beyond the tolerance.
  bool anyExceeds(std::size_t q, std::size_t r) {
    // The last key first, as the rule tries it: where the track bends, it is
    // the entry that decides at once.
    if (exceeds(p_, q, r)) return true;
    const std::size_t count = q - p_;
    if (count <= kShortRun) return anyExceedsEntryByEntry(p_ + 1, q, q, r);
    if (clears(runBand_, q, r)) return false;
    // The aligned groups of the run but its last few entries, as one band
    // (its chord ends at its last entry, so its residuals shrink toward the
    // candidate): where it clears, only the few entries after it are left.
    const std::size_t head = count & ~(kPrefixRun - 1);
    if (head > 0) {
      if (prefixCount_ != head) buildPrefix(head);
      if (clears(prefix_, q, r)) {
        if (count == head) return false;
        // The entries after it, fewer than kPrefixRun, as one more band.
        while (tail_.last + 1 < q) grow(tail_, tail_.last + 1);
        if (clears(tail_, q, r)) return false;
        return anyGroupExceeds(count, head, kPrefixLevel - 1, q, r);
      }
    }
    return anyGroupExceeds(count, 0, std::numeric_limits<std::size_t>::digits - 1, q, r);
  }

  // The entries from p_ + offset on, the run's aligned groups of `count`
  // from `top` down, each group cleared or split.
  bool anyGroupExceeds(std::size_t count, std::size_t offset, int top, std::size_t q, std::size_t r) {
    for (int level = top; level >= 0; --level) {
      const std::size_t size = std::size_t{1} << level;
      if ((count & size) == 0) continue;
      const bool found = level < kGroupLevel ? anyExceedsEntryByEntry(p_ + offset, p_ + offset + size, q, r)
                                             : groupExceeds(level, offset >> level, q, r);
      if (found) return true;
      offset += size;
    }
    return false;
  }

  // The merged band of the aligned groups of the first `head` entries of
  // the run: built anew each time `head` grows by kPrefixRun entries, from
  // the few groups its bits name, so that it costs next to nothing a candidate.
  void buildPrefix(std::size_t head) {
    std::size_t offset = 0;
    for (int level = std::numeric_limits<std::size_t>::digits - 1; level >= kPrefixLevel; --level) {
      const std::size_t size = std::size_t{1} << level;
      if ((head & size) == 0) continue;
      prefix_ = offset == 0 ? group(level, 0) : merge(prefix_, group(level, offset >> level));
      offset += size;
    }
    prefixCount_ = head;
    tail_ = single(p_ + head);
  }

  struct Built {
    Band<N> band;
    bool ready = false;
  };

  const KeySeries<T>& in_;
  const Estimate& estimate_;
  const Tolerance& tolerance_;
  const std::array<double, N> limits_;
  const Component& component_;
  const Blend blend_;
  std::size_t p_ = 0;         // the last kept entry
  Band<N> runBand_;           // the entries from p_ on
  Band<N> prefix_;            // the first prefixCount_ entries from p_, when prefixCount_ > 0
  std::size_t prefixCount_ = 0;
  Band<N> tail_;              // the entries after the prefix, up to the candidate
  std::vector<std::vector<Built>> groups_;  // by level, from p_
  std::vector<int> moving_;  // the components the bounds look at
  std::array<bool, N> standing_{};  // with a blend: the components that hold one finite value
};

template <typename T, int N, typename Scalar, typename Estimate, typename Tolerance, typename Component,
          typename Blend = NoBlend>
KeySeries<T> reduceBounded(const KeySeries<T>& in, const Estimate& estimate, const Tolerance& tolerance,
                           const std::array<double, N>& limits, const Component& component, const Blend& blend = {}) {
  return BoundedSearch<T, N, Scalar, Estimate, Tolerance, Component, Blend>(in, estimate, tolerance, limits,
                                                                            component, blend)
      .run();
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

double length(const Row& row) { return std::sqrt(dot(row, row)); }

// The bound of the normalised and orthonormalised estimates for the bounded
// search. Components 0..11 are the matrix by rows, 12..14 the axis lengths
// (the kept scaling blends them). A blended row x within distance rho < |c|
// of c normalises to within asin(rho / |c|) of c / |c|; Gram-Schmidt takes
// it from row to row: removing the projection on a unit row known within d
// moves the result by at most rho + |c| d. Each step adds a few roundings of
// what it works on.
class MatrixBlendBound {
 public:
  static constexpr int kComponents = 15;

  MatrixBlendBound(const MatrixKeyTolerance& tolerance, FrameInterpolation mode, bool maintainScaling)
      : tolerance_(tolerance), mode_(mode), maintainScaling_(maintainScaling) {}

  bool operator()(const std::array<double, kComponents>& lo, const std::array<double, kComponents>& hi,
                  const SampleMatrix& sampled) const {
    constexpr double eps = std::numeric_limits<double>::epsilon();
    // The translation is blended only.
    for (int j = 0; j < 3; ++j) {
      const double s = sampled[3][j], a = lo[9 + j], b = hi[9 + j];
      const double off = std::max(std::fabs(s - a), std::fabs(b - s));
      if (!(off + 8 * eps * (std::fabs(s) + std::fabs(a) + std::fabs(b)) <= tolerance_.positionDelta)) return false;
    }
    Row centre[3]{}, unit[3]{};
    double radius[3]{}, deviation[3]{};
    for (int k = 0; k < 3; ++k) {
      double sum = 0.0;
      for (int j = 0; j < 3; ++j) {
        const int c = 3 * k + j;
        centre[k][j] = 0.5 * (lo[c] + hi[c]);
        const double half = 0.5 * (hi[c] - lo[c]);
        sum += half * half;
      }
      radius[k] = std::sqrt(sum) * (1 + 8 * eps) + 64 * eps * length(centre[k]);
    }
    switch (mode_) {
      case FrameInterpolation::None:
        for (int k = 0; k < 3; ++k) unit[k] = centre[k], deviation[k] = radius[k];
        break;
      case FrameInterpolation::Normalized:
        for (int k = 0; k < 3; ++k) deviation[k] = towardUnit(centre[k], radius[k], unit[k]);
        break;
      case FrameInterpolation::Orthonormalized: {
        deviation[0] = towardUnit(centre[0], radius[0], unit[0]);
        Row y = centre[1];
        double moved = withoutProjection(y, radius[1], unit[0], deviation[0]);
        deviation[1] = towardUnit(y, moved, unit[1]);
        y = centre[2];
        moved = withoutProjection(y, radius[2], unit[0], deviation[0]);
        moved = withoutProjection(y, moved, unit[1], deviation[1]);
        deviation[2] = towardUnit(y, moved, unit[2]);
        break;
      }
    }
    for (int k = 0; k < 3; ++k) {
      // Past this the rows may pass through zero; the entries are tried.
      if (!(deviation[k] <= 1.0)) return false;
      double scale = 1.0, scaleSpread = 0.0, scaleMost = 1.0;
      if (maintainScaling_) {
        // The rule rounds the blended length to float.
        const double a = lo[12 + k], b = hi[12 + k], most = std::max(std::fabs(a), std::fabs(b));
        scale = 0.5 * (a + b);
        scaleSpread = 0.5 * (b - a) + std::ldexp(most, -23);
        scaleMost = most * (1 + std::ldexp(1.0, -22));
      }
      for (int j = 0; j < 3; ++j) {
        const double estimate = unit[k][j] * scale;
        const double off = std::fabs(sampled[k][j] - estimate) + deviation[k] * scaleMost +
                           std::fabs(unit[k][j]) * scaleSpread;
        const double rounding = 64 * eps * (std::fabs(sampled[k][j]) + scaleMost * (1 + std::fabs(unit[k][j])));
        if (!(off + rounding <= tolerance_.rotationDelta)) return false;
      }
    }
    return true;
  }

 private:
  // unit = c / |c|; how far a normalised row within `radius` of c may lie
  // from it: a row in the ball sees c at an angle of at most asin(radius /
  // |c|), and two unit rows lie no farther apart than their angle. A ball
  // that holds zero bounds nothing.
  static double towardUnit(const Row& c, double radius, Row& unit) {
    const double n = length(c);
    if (!(radius < n)) return std::numeric_limits<double>::infinity();
    for (int j = 0; j < 3; ++j) unit[j] = c[j] / n;
    return std::asin(radius / n) * (1 + 16 * std::numeric_limits<double>::epsilon()) +
           16 * std::numeric_limits<double>::epsilon();
  }
  // y loses its projection on `unit`; returns how far a row within `radius`
  // of y, losing its projection on a unit row within `deviation` of `unit`,
  // may then lie from the new y. Removing a projection moves no row farther,
  // and the two projections differ by at most the sine of the rows' angle.
  static double withoutProjection(Row& y, double radius, const Row& unit, double deviation) {
    const double size = length(y);
    const double f = dot(y, unit);
    for (int j = 0; j < 3; ++j) y[j] -= unit[j] * f;
    return (radius + size * deviation) * (1 + 16 * std::numeric_limits<double>::epsilon()) +
           64 * std::numeric_limits<double>::epsilon() * (size + radius);
  }

  MatrixKeyTolerance tolerance_;
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

// The greedy reduction of reduceKeysWithinBound over the samples 0 up to the
// last recorded entry; `fits(sampled, estimated)` says whether one estimate
// lies within the tolerance (false for a NaN difference).
template <typename T, typename Estimate, typename Fits>
KeySeries<T> reduceWithin(const KeySeries<T>& in, const Estimate& estimate, const Fits& fits) {
  KeySeries<T> out;
  if (in.empty()) return out;
  // The value in force at each sample: a dropped repeat has its entry's.
  const int last = in.indices.back();
  std::vector<const T*> at(static_cast<std::size_t>(last) + 1);
  for (std::size_t e = 0; e < in.size(); ++e) {
    const int end = e + 1 < in.size() ? in.indices[e + 1] : last + 1;
    for (int j = in.indices[e]; j < end; ++j) at[static_cast<std::size_t>(j)] = &in.values[e];
  }
  const auto segmentFits = [&](int a, int b) {
    const T& va = *at[static_cast<std::size_t>(a)];
    const T& vb = *at[static_cast<std::size_t>(b)];
    for (int j = a + 1; j < b; ++j)
      if (!fits(*at[static_cast<std::size_t>(j)], estimate(va, vb, a, j, b))) return false;
    return true;
  };
  const auto keep = [&](int j) {
    out.values.push_back(*at[static_cast<std::size_t>(j)]);
    out.indices.push_back(j);
  };
  keep(0);
  for (int a = 0; a < last;) {
    // The next sample always fits: no sample lies between.
    int good = a + 1, bad = -1;
    for (long long d = 2; good < last; d *= 2) {
      const int b = static_cast<int>(std::min<long long>(a + d, last));
      if (!segmentFits(a, b)) {
        bad = b;
        break;
      }
      good = b;
    }
    while (bad >= 0 && bad - good > 1) {
      const int mid = good + (bad - good) / 2;
      (segmentFits(a, mid) ? good : bad) = mid;
    }
    keep(good);
    a = good;
  }
  return out;
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
  const auto component = [](float v, int) { return double(v); };
  return reduceBounded<float, 1, float>(recorded, estimateScalar, tolerance, {double(tolerance.threshold)},
                                        component);
}

KeySeries<SampleColor> reduceKeys(const KeySeries<SampleColor>& recorded, const ColorKeyTolerance& tolerance) {
  const double limit = tolerance.threshold * 255.0;  // as the tolerance compares
  const auto component = [](const SampleColor& v, int c) { return double(v[static_cast<std::size_t>(c)]); };
  return reduceBounded<SampleColor, 3, float>(recorded, estimateColor, tolerance, {limit, limit, limit}, component);
}

KeySeries<SampleMatrix> reduceKeys(const KeySeries<SampleMatrix>& recorded, const MatrixKeyTolerance& tolerance,
                                   FrameInterpolation mode, bool maintainMatrixScaling) {
  const MatrixEstimate estimate(mode, maintainMatrixScaling);
  // Normalised axes and kept lengths are not linear in the blend: the bands
  // bound the blended components, and MatrixBlendBound what the mode makes
  // of them.
  if (mode != FrameInterpolation::None || maintainMatrixScaling) {
    constexpr int kComponents = MatrixBlendBound::kComponents;
    std::array<double, kComponents> limits;
    for (int c = 0; c < kComponents; ++c)
      limits[static_cast<std::size_t>(c)] = c < 9 ? tolerance.rotationDelta : tolerance.positionDelta;
    const auto component = [](const SampleMatrix& m, int c) {
      if (c >= 12) return length(m[static_cast<std::size_t>(c - 12)]);  // as the rule computes it
      return m[static_cast<std::size_t>(c / 3)][static_cast<std::size_t>(c % 3)];
    };
    return reduceBounded<SampleMatrix, kComponents, double>(recorded, estimate, tolerance, limits, component,
                                                            MatrixBlendBound(tolerance, mode, maintainMatrixScaling));
  }
  std::array<double, 12> limits;
  for (int c = 0; c < 12; ++c) limits[static_cast<std::size_t>(c)] = c < 9 ? tolerance.rotationDelta : tolerance.positionDelta;
  const auto component = [](const SampleMatrix& m, int c) {
    return m[static_cast<std::size_t>(c / 3)][static_cast<std::size_t>(c % 3)];
  };
  return reduceBounded<SampleMatrix, 12, double>(recorded, estimate, tolerance, limits, component);
}

KeySeries<float> reduceKeysEntryByEntry(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance) {
  return reduce(recorded, estimateScalar, tolerance);
}

KeySeries<SampleColor> reduceKeysEntryByEntry(const KeySeries<SampleColor>& recorded,
                                              const ColorKeyTolerance& tolerance) {
  return reduce(recorded, estimateColor, tolerance);
}

KeySeries<SampleMatrix> reduceKeysEntryByEntry(const KeySeries<SampleMatrix>& recorded,
                                               const MatrixKeyTolerance& tolerance, FrameInterpolation mode,
                                               bool maintainMatrixScaling) {
  return reduce(recorded, MatrixEstimate(mode, maintainMatrixScaling), tolerance);
}

KeySeries<float> reduceKeysWithinBound(const KeySeries<float>& recorded, const ScalarKeyTolerance& tolerance) {
  return reduceWithin(recorded, estimateScalar,
                      [&](float s, float m) { return std::fabs(s - m) <= tolerance.threshold; });
}

KeySeries<SampleColor> reduceKeysWithinBound(const KeySeries<SampleColor>& recorded,
                                             const ColorKeyTolerance& tolerance) {
  const double limit = tolerance.threshold * 255.0;  // as the tolerance compares
  return reduceWithin(recorded, estimateColor, [&](const SampleColor& s, const SampleColor& m) {
    for (int c = 0; c < 3; ++c)
      if (!(std::fabs(s[c] - m[c]) <= limit)) return false;
    return true;
  });
}

KeySeries<SampleMatrix> reduceKeysWithinBound(const KeySeries<SampleMatrix>& recorded,
                                              const MatrixKeyTolerance& tolerance, FrameInterpolation mode,
                                              bool maintainMatrixScaling) {
  return reduceWithin(recorded, MatrixEstimate(mode, maintainMatrixScaling),
                      [&](const SampleMatrix& s, const SampleMatrix& m) {
                        for (int c = 0; c < 3; ++c)
                          if (!(std::fabs(s[3][c] - m[3][c]) <= tolerance.positionDelta)) return false;
                        for (int r = 0; r < 3; ++r)
                          for (int c = 0; c < 3; ++c)
                            if (!(std::fabs(s[r][c] - m[r][c]) <= tolerance.rotationDelta)) return false;
                        return true;
                      });
}
