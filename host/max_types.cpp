#include "host/max_types.h"

#include <cmath>

void Matrix3::IdentityMatrix() {
  rows_[0] = {1, 0, 0};
  rows_[1] = {0, 1, 0};
  rows_[2] = {0, 0, 1};
  rows_[3] = {0, 0, 0};
}

void Matrix3::Zero() {
  for (Point3& r : rows_) r = {0, 0, 0};
}

void Matrix3::PreTranslate(const Point3& p) { *this = TransMatrix(p) * *this; }

void Matrix3::Translate(const Point3& p) { rows_[3] = rows_[3] + p; }

Matrix3& Matrix3::operator*=(const Matrix3& m) {
  *this = *this * m;
  return *this;
}

bool Matrix3::operator==(const Matrix3& m) const {
  for (int i = 0; i < 4; ++i)
    if (!(rows_[i] == m.rows_[i])) return false;
  return true;
}

Matrix3 operator*(const Matrix3& a, const Matrix3& b) {
  Matrix3 r;
  for (int i = 0; i < 4; ++i) {
    const Point3& ar = a.GetRow(i);
    Point3 out;
    for (int j = 0; j < 3; ++j) {
      out[j] = ar.x * b.GetRow(0)[j] + ar.y * b.GetRow(1)[j] + ar.z * b.GetRow(2)[j];
      if (i == 3) out[j] += b.GetRow(3)[j];
    }
    r.SetRow(i, out);
  }
  return r;
}

Point3 operator*(const Point3& p, const Matrix3& m) {
  const Point3 &r0 = m.GetRow(0), &r1 = m.GetRow(1), &r2 = m.GetRow(2), &r3 = m.GetRow(3);
  return {p.x * r0.x + p.y * r1.x + p.z * r2.x + r3.x, p.x * r0.y + p.y * r1.y + p.z * r2.y + r3.y,
          p.x * r0.z + p.y * r1.z + p.z * r2.z + r3.z};
}

Point3 operator*(const Matrix3& m, const Point3& p) { return p * m; }

Matrix3 RotateXMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return Matrix3({1, 0, 0}, {0, c, s}, {0, -s, c}, {0, 0, 0});
}

Matrix3 RotateYMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return Matrix3({c, 0, -s}, {0, 1, 0}, {s, 0, c}, {0, 0, 0});
}

Matrix3 RotateZMatrix(float angle) {
  const float c = std::cos(angle), s = std::sin(angle);
  return Matrix3({c, s, 0}, {-s, c, 0}, {0, 0, 1}, {0, 0, 0});
}

Matrix3 ScaleMatrix(const Point3& s) { return Matrix3({s.x, 0, 0}, {0, s.y, 0}, {0, 0, s.z}, {0, 0, 0}); }

Matrix3 TransMatrix(const Point3& p) { return Matrix3({1, 0, 0}, {0, 1, 0}, {0, 0, 1}, p); }

Matrix3 Inverse(const Matrix3& m) {
  const Point3 &a = m.GetRow(0), &b = m.GetRow(1), &c = m.GetRow(2);
  // Cofactors of the 3 x 3 part; computed in double so that near-orthonormal
  // matrices invert without visible rounding.
  const double det = double(a.x) * (double(b.y) * c.z - double(b.z) * c.y) -
                     double(a.y) * (double(b.x) * c.z - double(b.z) * c.x) +
                     double(a.z) * (double(b.x) * c.y - double(b.y) * c.x);
  if (det == 0.0) return Matrix3();
  const double inv = 1.0 / det;
  Point3 r0{float((double(b.y) * c.z - double(b.z) * c.y) * inv), float((double(a.z) * c.y - double(a.y) * c.z) * inv),
            float((double(a.y) * b.z - double(a.z) * b.y) * inv)};
  Point3 r1{float((double(b.z) * c.x - double(b.x) * c.z) * inv), float((double(a.x) * c.z - double(a.z) * c.x) * inv),
            float((double(a.z) * b.x - double(a.x) * b.z) * inv)};
  Point3 r2{float((double(b.x) * c.y - double(b.y) * c.x) * inv), float((double(a.y) * c.x - double(a.x) * c.y) * inv),
            float((double(a.x) * b.y - double(a.y) * b.x) * inv)};
  Matrix3 r(r0, r1, r2, {0, 0, 0});
  const Point3 t = m.GetRow(3);
  const Point3 it = t * r;  // translation of r is zero here
  r.SetRow(3, {-it.x, -it.y, -it.z});
  return r;
}

Matrix3 QuatToMatrix(const Quat& q) {
  const float x = q.x, y = q.y, z = q.z, w = q.w;
  // Row-vector form of the usual rotation matrix (the transpose of the column form).
  return Matrix3({1 - 2 * (y * y + z * z), 2 * (x * y + z * w), 2 * (x * z - y * w)},
                 {2 * (x * y - z * w), 1 - 2 * (x * x + z * z), 2 * (y * z + x * w)},
                 {2 * (x * z + y * w), 2 * (y * z - x * w), 1 - 2 * (x * x + y * y)}, {0, 0, 0});
}

void PreRotateMatrix(Matrix3& m, const Quat& q) { m = QuatToMatrix(q) * m; }

void ApplyScaling(Matrix3& m, const ScaleValue& s) {
  const Matrix3 axes = QuatToMatrix(s.q);
  m = Inverse(axes) * ScaleMatrix(s.s) * axes * m;
}

Matrix3 ObjectOffsetMatrix(const Point3& pos, const Quat& rot, const ScaleValue& scale) {
  Matrix3 m;
  m.PreTranslate(pos);
  PreRotateMatrix(m, rot);
  ApplyScaling(m, scale);
  return m;
}
