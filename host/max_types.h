// Value types of the host SDK that the exporter passes around: time, points,
// quaternions, colours, class ids and the 4 x 3 transform matrix.
//
// Matrices follow the host's row-vector convention: a point p is transformed
// as p x M, rows 0..2 are the axes and row 3 the translation. The product
// A * B therefore applies A first, then B.
#pragma once

#include <climits>
#include <cstdint>

// Host time in ticks; the host counts 4800 ticks per second.
using TimeValue = int;
constexpr TimeValue TIME_NegInfinity = INT_MIN;
constexpr TimeValue TIME_PosInfinity = INT_MAX;
constexpr int TIME_TICKSPERSEC = 4800;

struct Interval {
  TimeValue start = TIME_NegInfinity;
  TimeValue end = TIME_NegInfinity;

  constexpr Interval() = default;
  constexpr Interval(TimeValue s, TimeValue e) : start(s), end(e) {}
  constexpr TimeValue Start() const { return start; }
  constexpr TimeValue End() const { return end; }
  constexpr bool operator==(const Interval&) const = default;
};

// Every time; the validity the exporter passes to state evaluations.
inline constexpr Interval FOREVER{TIME_NegInfinity, TIME_PosInfinity};
// No time at all: both ends at minus infinity.
inline constexpr Interval NEVER{TIME_NegInfinity, TIME_NegInfinity};

struct Point3 {
  float x = 0.0f, y = 0.0f, z = 0.0f;

  constexpr Point3() = default;
  constexpr Point3(float ax, float ay, float az) : x(ax), y(ay), z(az) {}
  float& operator[](int i) { return i == 0 ? x : (i == 1 ? y : z); }
  float operator[](int i) const { return i == 0 ? x : (i == 1 ? y : z); }
  constexpr bool operator==(const Point3&) const = default;
};

inline Point3 operator+(const Point3& a, const Point3& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
inline Point3 operator-(const Point3& a, const Point3& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
inline Point3 operator*(const Point3& a, float s) { return {a.x * s, a.y * s, a.z * s}; }
inline Point3 CrossProd(const Point3& a, const Point3& b) {
  return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
}
inline float DotProd(const Point3& a, const Point3& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }

// Texture vertices and vertex colours are points in the host as well.
using UVVert = Point3;
using VertColor = Point3;

// Unit quaternion (x, y, z, w); w is the scalar part.
struct Quat {
  float x = 0.0f, y = 0.0f, z = 0.0f, w = 1.0f;
  constexpr bool operator==(const Quat&) const = default;
};

// A scale along the axes of the frame that q rotates into.
struct ScaleValue {
  Point3 s{1.0f, 1.0f, 1.0f};
  Quat q{};
};

// Host colour: three floats, normally 0..1.
struct Color {
  float r = 0.0f, g = 0.0f, b = 0.0f;
};

struct Class_ID {
  unsigned int a = 0;
  unsigned int b = 0;
  constexpr Class_ID() = default;
  constexpr Class_ID(unsigned int pa, unsigned int pb) : a(pa), b(pb) {}
  constexpr unsigned int PartA() const { return a; }
  constexpr unsigned int PartB() const { return b; }
  constexpr bool operator==(const Class_ID&) const = default;
};

using SClass_ID = unsigned int;

// Super class ids the exporter distinguishes.
inline constexpr SClass_ID GEN_DERIVOB_CLASS_ID = 0x2;
inline constexpr SClass_ID GEOMOBJECT_CLASS_ID = 0x10;
inline constexpr SClass_ID CAMERA_CLASS_ID = 0x20;
inline constexpr SClass_ID LIGHT_CLASS_ID = 0x30;
inline constexpr SClass_ID SHAPE_CLASS_ID = 0x40;
inline constexpr SClass_ID HELPER_CLASS_ID = 0x50;
inline constexpr SClass_ID MATERIAL_CLASS_ID = 0xC00;
inline constexpr SClass_ID TEXMAP_CLASS_ID = 0xC10;

// Class ids the exporter recognises.
inline constexpr Class_ID TRIOBJ_CLASS_ID{9, 0};
inline constexpr Class_ID TARGET_CLASS_ID{0x1020, 0};
inline constexpr Class_ID PHYSIQUE_CLASS_ID{0x100, 0};
inline constexpr Class_ID DMTL_CLASS_ID{2, 0};          // standard material
inline constexpr Class_ID MULTI_CLASS_ID{0x200, 0};     // multi/sub-object material

// 4 x 3 matrix, row-vector convention (see the top of this file).
class Matrix3 {
 public:
  Matrix3() { IdentityMatrix(); }
  explicit Matrix3(const Point3& r0, const Point3& r1, const Point3& r2, const Point3& r3)
      : rows_{r0, r1, r2, r3} {}

  void IdentityMatrix();
  void Zero();
  const Point3& GetRow(int i) const { return rows_[i]; }
  void SetRow(int i, const Point3& p) { rows_[i] = p; }
  Point3 GetTrans() const { return rows_[3]; }
  void SetTrans(const Point3& p) { rows_[3] = p; }

  // this = Translation(p) * this: the translation acts before the matrix.
  void PreTranslate(const Point3& p);
  // this = this * Translation(p).
  void Translate(const Point3& p);

  Matrix3& operator*=(const Matrix3& m);
  bool operator==(const Matrix3& m) const;

 private:
  Point3 rows_[4];
};

Matrix3 operator*(const Matrix3& a, const Matrix3& b);
// Both forms transform a point by the matrix, translation included, as the host's do.
Point3 operator*(const Point3& p, const Matrix3& m);
Point3 operator*(const Matrix3& m, const Point3& p);

// Rotation about X by `angle` radians: rows (1,0,0), (0,c,s), (0,-s,c).
Matrix3 RotateXMatrix(float angle);
Matrix3 RotateYMatrix(float angle);
Matrix3 RotateZMatrix(float angle);
Matrix3 ScaleMatrix(const Point3& s);
Matrix3 TransMatrix(const Point3& p);
// Inverse of the affine matrix; a singular matrix gives the identity.
Matrix3 Inverse(const Matrix3& m);
// Rotation matrix of a unit quaternion.
Matrix3 QuatToMatrix(const Quat& q);
// m = Rotation(q) * m.
void PreRotateMatrix(Matrix3& m, const Quat& q);
// m = Scaling(s) * m, the scale taken along the axes of s.q.
void ApplyScaling(Matrix3& m, const ScaleValue& s);

// The object-offset matrix from a node's offset position, rotation and scale:
// identity, PreTranslate(pos), PreRotateMatrix(rot), ApplyScaling(scale). Both
// the host model's GetObjectTM and mesh export build it here, so a mesh
// written relative to its pivot lines up with its node transform.
Matrix3 ObjectOffsetMatrix(const Point3& pos, const Quat& rot, const ScaleValue& scale);
