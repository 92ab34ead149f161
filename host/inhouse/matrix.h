// The in-house 4 x 3 matrix: rows 0..2 the axes, row 3 the translation, in
// row-vector convention (the same layout as the host's Matrix3).
#pragma once

#include <array>

template <typename T>
struct M_Matrix4x3Template {
  std::array<std::array<T, 3>, 4> m{{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, 0}}};

  std::array<T, 3>& operator[](int row) { return m[row]; }
  const std::array<T, 3>& operator[](int row) const { return m[row]; }
  bool operator==(const M_Matrix4x3Template&) const = default;
};
