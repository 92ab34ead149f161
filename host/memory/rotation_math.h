// Quaternion helpers the host model needs beyond host/max_types.h: building a
// rotation from Euler angles, reading one back from a matrix, and the
// interpolation between two keys.
#pragma once

#include "host/max_types.h"

namespace hostmodel {

// The unit quaternion q / |q|; the identity when q has no length.
Quat normalized(const Quat& q);

// The quaternion whose QuatToMatrix is the rotation part of `m` (which must be
// a pure rotation).
Quat quatFromMatrix(const Matrix3& m);

// Rotation about X, then Y, then Z by the given angles in degrees:
// RotateXMatrix(x) * RotateYMatrix(y) * RotateZMatrix(z) in row-vector form.
Quat quatFromEulerDegrees(const Point3& degrees);

// Spherical interpolation along the shorter arc; u in 0..1.
Quat slerp(const Quat& a, const Quat& b, float u);

}  // namespace hostmodel
