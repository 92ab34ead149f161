// The host matrix functions in row-vector convention, checked by hand.
#include <gtest/gtest.h>

#include <cmath>

#include "host/max_types.h"

namespace {

void expectNear(const Point3& a, const Point3& b, float tol = 1e-5f) {
  EXPECT_NEAR(a.x, b.x, tol);
  EXPECT_NEAR(a.y, b.y, tol);
  EXPECT_NEAR(a.z, b.z, tol);
}

}  // namespace

TEST(Matrix3, RotateXTurnsUpIntoTheFileAxes) {
  // (x, y, z) -> (x, y cos a - z sin a, y sin a + z cos a)
  const Point3 p = Point3(1, 2, 3) * RotateXMatrix(-1.5707964f);
  expectNear(p, {1, 3, -2});
  const Matrix3 r = RotateXMatrix(0.5f);
  expectNear(r.GetRow(1), {0, std::cos(0.5f), std::sin(0.5f)});
  expectNear(r.GetRow(2), {0, -std::sin(0.5f), std::cos(0.5f)});
}

TEST(Matrix3, ProductAppliesTheLeftMatrixFirst) {
  const Matrix3 t = TransMatrix({1, 0, 0});
  const Matrix3 s = ScaleMatrix({2, 2, 2});
  expectNear(Point3(0, 0, 0) * (t * s), {2, 0, 0});
  expectNear(Point3(0, 0, 0) * (s * t), {1, 0, 0});
}

TEST(Matrix3, InverseUndoesAnAffineTransform) {
  Matrix3 m = RotateZMatrix(0.3f) * ScaleMatrix({1, 2, 3}) * TransMatrix({4, 5, 6});
  const Matrix3 id = m * Inverse(m);
  for (int r = 0; r < 4; ++r) expectNear(id.GetRow(r), Matrix3().GetRow(r));
}

TEST(Matrix3, ObjectOffsetScalesThenRotatesThenTranslates) {
  ScaleValue s;
  s.s = {2, 1, 1};
  const Quat quarterTurnZ{0, 0, 0.70710678f, 0.70710678f};
  const Matrix3 m = ObjectOffsetMatrix({10, 0, 0}, quarterTurnZ, s);
  // (1, 0, 0) scaled to (2, 0, 0), turned a quarter about Z to (0, 2, 0), moved by 10 in x.
  expectNear(Point3(1, 0, 0) * m, {10, 2, 0});
}

TEST(Matrix3, NegativeScaleMirrors) {
  ScaleValue s;
  s.s = {-1, 1, 1};
  const Matrix3 m = ObjectOffsetMatrix({}, Quat{}, s);
  EXPECT_LT(DotProd(CrossProd(m.GetRow(0), m.GetRow(1)), m.GetRow(2)), 0.0f);
}
