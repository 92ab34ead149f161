// A value of the scene that may be keyed over time: a constant, or keys at
// ticks with interpolation between them and the end keys held outside.
#pragma once

#include <vector>

#include "host/max_types.h"
#include "host/memory/rotation_math.h"

namespace hostmodel {

inline float interpolate(float a, float b, float u) { return a + (b - a) * u; }
inline Point3 interpolate(const Point3& a, const Point3& b, float u) {
  return {interpolate(a.x, b.x, u), interpolate(a.y, b.y, u), interpolate(a.z, b.z, u)};
}
inline Color interpolate(const Color& a, const Color& b, float u) {
  return {interpolate(a.r, b.r, u), interpolate(a.g, b.g, u), interpolate(a.b, b.b, u)};
}
inline Quat interpolate(const Quat& a, const Quat& b, float u) { return slerp(a, b, u); }

// The union of two ranges where NEVER stands for "no keys".
inline Interval unionRange(const Interval& a, const Interval& b) {
  if (a == NEVER) return b;
  if (b == NEVER) return a;
  return {a.start < b.start ? a.start : b.start, a.end > b.end ? a.end : b.end};
}

template <typename T>
struct Key {
  TimeValue time = 0;
  T value{};
};

template <typename T>
class AnimatedValue {
 public:
  AnimatedValue() = default;
  explicit AnimatedValue(const T& constant) : constant_(constant) {}

  // Keys must come in strictly increasing time order (the loader checks it).
  void setKeys(std::vector<Key<T>> keys) { keys_ = std::move(keys); }
  void setConstant(const T& value) {
    constant_ = value;
    keys_.clear();
  }

  bool animated() const { return !keys_.empty(); }
  const std::vector<Key<T>>& keys() const { return keys_; }

  // The first to the last key, or NEVER without keys.
  Interval keyRange() const { return keys_.empty() ? NEVER : Interval{keys_.front().time, keys_.back().time}; }

  T at(TimeValue t) const {
    if (keys_.empty()) return constant_;
    if (t <= keys_.front().time) return keys_.front().value;
    if (t >= keys_.back().time) return keys_.back().value;
    // Binary search: tracks sampled every frame of a long range stay cheap.
    std::size_t lo = 0, hi = keys_.size() - 1;
    while (hi - lo > 1) {
      const std::size_t mid = (lo + hi) / 2;
      if (keys_[mid].time <= t)
        lo = mid;
      else
        hi = mid;
    }
    const Key<T>& a = keys_[lo];
    const Key<T>& b = keys_[hi];
    const float u = float(double(t - a.time) / double(b.time - a.time));
    return interpolate(a.value, b.value, u);
  }

 private:
  T constant_{};
  std::vector<Key<T>> keys_;
};

}  // namespace hostmodel
