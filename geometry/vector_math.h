// The few float operations whose exact rounding the mesh output depends on,
// kept in one place so that face normals and vertex normals round alike.
#pragma once

#include <cmath>

#include "host/max_types.h"

namespace geometry {

// n scaled by the float 1 / |n|; a zero-length n gives (0, 0, 0).
inline Point3 normalised(const Point3& n) {
  const float len = std::sqrt(n.x * n.x + n.y * n.y + n.z * n.z);
  if (len == 0.0f) return {0.0f, 0.0f, 0.0f};
  const float inv = 1.0f / len;
  return {n.x * inv, n.y * inv, n.z * inv};
}

inline void accumulate(Point3& sum, const Point3& add) {
  sum.x += add.x;
  sum.y += add.y;
  sum.z += add.z;
}

}  // namespace geometry
