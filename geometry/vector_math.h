// The few float operations whose exact rounding the mesh output depends on,
// kept in one place so that face normals and vertex normals round alike.
#pragma once

#include <cmath>
#include <cstddef>

#include "host/max_types.h"

namespace geometry {

// Capacity for a per-vertex list that the splitting passes append copies to:
// room for an eighth more, so that a mesh with seams grows its lists in place
// rather than doubling each of them (a copy of the list, and its old block
// held beside the new one meanwhile). A mesh that splits more grows as usual.
inline std::size_t withRoomForCopies(std::size_t vertices) { return vertices + vertices / 8 + 16; }

// The unit vector along (x, y, z), worked out in double: for vectors whose
// length, or whose components, overflow a float. Zero, or not finite even in
// double, gives (0, 0, 0).
inline Point3 normalisedWide(double x, double y, double z) {
  const double len = std::sqrt(x * x + y * y + z * z);
  if (len == 0.0 || !std::isfinite(len)) return {0.0f, 0.0f, 0.0f};
  return {static_cast<float>(x / len), static_cast<float>(y / len), static_cast<float>(z / len)};
}

// n scaled by the float 1 / |n|; a zero-length n gives (0, 0, 0). When the
// squares overflow (components beyond about 1.8e19) the length is taken in
// double, so that a huge vector still gives its direction rather than zero.
inline Point3 normalised(const Point3& n) {
  const float len = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
  if (len == 0.0f) return {0.0f, 0.0f, 0.0f};
  if (!std::isfinite(len)) return normalisedWide(n.x, n.y, n.z);
  const float inv = 1.0f / len;
  return {n.x * inv, n.y * inv, n.z * inv};
}

inline void accumulate(Point3& sum, const Point3& add) {
  sum.x += add.x;
  sum.y += add.y;
  sum.z += add.z;
}

}  // namespace geometry
