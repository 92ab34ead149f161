#include "host/memory/rotation_math.h"

#include <cmath>
#include <numbers>

namespace hostmodel {

Quat normalized(const Quat& q) {
  const double len = std::sqrt(double(q.x) * q.x + double(q.y) * q.y + double(q.z) * q.z + double(q.w) * q.w);
  if (len == 0.0) return Quat{};
  return {float(q.x / len), float(q.y / len), float(q.z / len), float(q.w / len)};
}

Quat quatFromMatrix(const Matrix3& m) {
  // Inverse of QuatToMatrix: pick the largest diagonal term so that the
  // square root never meets a tiny argument.
  const Point3 r0 = m.GetRow(0), r1 = m.GetRow(1), r2 = m.GetRow(2);
  const double m00 = r0.x, m01 = r0.y, m02 = r0.z;
  const double m10 = r1.x, m11 = r1.y, m12 = r1.z;
  const double m20 = r2.x, m21 = r2.y, m22 = r2.z;
  const double trace = m00 + m11 + m22;
  double x, y, z, w;
  if (trace > 0.0) {
    w = std::sqrt(trace + 1.0) / 2.0;
    x = (m12 - m21) / (4.0 * w);
    y = (m20 - m02) / (4.0 * w);
    z = (m01 - m10) / (4.0 * w);
  } else if (m00 >= m11 && m00 >= m22) {
    x = std::sqrt(1.0 + m00 - m11 - m22) / 2.0;
    y = (m01 + m10) / (4.0 * x);
    z = (m02 + m20) / (4.0 * x);
    w = (m12 - m21) / (4.0 * x);
  } else if (m11 >= m22) {
    y = std::sqrt(1.0 - m00 + m11 - m22) / 2.0;
    x = (m01 + m10) / (4.0 * y);
    z = (m12 + m21) / (4.0 * y);
    w = (m20 - m02) / (4.0 * y);
  } else {
    z = std::sqrt(1.0 - m00 - m11 + m22) / 2.0;
    x = (m02 + m20) / (4.0 * z);
    y = (m12 + m21) / (4.0 * z);
    w = (m01 - m10) / (4.0 * z);
  }
  return normalized({float(x), float(y), float(z), float(w)});
}

Quat quatFromEulerDegrees(const Point3& degrees) {
  constexpr double toRadians = std::numbers::pi / 180.0;
  const Matrix3 m = RotateXMatrix(float(degrees.x * toRadians)) * RotateYMatrix(float(degrees.y * toRadians)) *
                    RotateZMatrix(float(degrees.z * toRadians));
  return quatFromMatrix(m);
}

Quat slerp(const Quat& a, const Quat& b, float u) {
  double bx = b.x, by = b.y, bz = b.z, bw = b.w;
  double cosAngle = double(a.x) * bx + double(a.y) * by + double(a.z) * bz + double(a.w) * bw;
  // q and -q are the same rotation: take the shorter way round.
  if (cosAngle < 0.0) {
    cosAngle = -cosAngle;
    bx = -bx, by = -by, bz = -bz, bw = -bw;
  }
  double wa = 1.0 - u, wb = u;
  if (cosAngle < 0.9995) {
    const double angle = std::acos(cosAngle);
    const double s = std::sin(angle);
    wa = std::sin((1.0 - u) * angle) / s;
    wb = std::sin(u * angle) / s;
  }
  return normalized({float(wa * a.x + wb * bx), float(wa * a.y + wb * by), float(wa * a.z + wb * bz),
                     float(wa * a.w + wb * bw)});
}

}  // namespace hostmodel
