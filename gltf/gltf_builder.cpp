// Matrices, the axis turn and the buffer of the glTF converter.
#include "gltf/gltf_builder.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

namespace zt2dump::gltf {

Mat4 Mat4::identity() {
  Mat4 r;
  for (int i = 0; i < 4; ++i) r.m[i][i] = 1;
  return r;
}

Mat4 operator*(const Mat4& a, const Mat4& b) {
  Mat4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 4; ++j) {
      double s = 0;
      for (int k = 0; k < 4; ++k) s += a.m[i][k] * b.m[k][j];
      r.m[i][j] = s;
    }
  return r;
}

// Affine inverse: the 3 x 3 part by its adjugate, then the translation.
Mat4 inverse(const Mat4& a) {
  const auto& m = a.m;
  const double c00 = m[1][1] * m[2][2] - m[1][2] * m[2][1];
  const double c01 = m[1][2] * m[2][0] - m[1][0] * m[2][2];
  const double c02 = m[1][0] * m[2][1] - m[1][1] * m[2][0];
  const double det = m[0][0] * c00 + m[0][1] * c01 + m[0][2] * c02;
  if (std::fabs(det) < 1e-30) return Mat4::identity();  // a flattened node keeps its joints where they are
  const double inv = 1.0 / det;
  Mat4 r;
  r.m[0][0] = c00 * inv;
  r.m[1][0] = c01 * inv;
  r.m[2][0] = c02 * inv;
  r.m[0][1] = (m[0][2] * m[2][1] - m[0][1] * m[2][2]) * inv;
  r.m[1][1] = (m[0][0] * m[2][2] - m[0][2] * m[2][0]) * inv;
  r.m[2][1] = (m[0][1] * m[2][0] - m[0][0] * m[2][1]) * inv;
  r.m[0][2] = (m[0][1] * m[1][2] - m[0][2] * m[1][1]) * inv;
  r.m[1][2] = (m[0][2] * m[1][0] - m[0][0] * m[1][2]) * inv;
  r.m[2][2] = (m[0][0] * m[1][1] - m[0][1] * m[1][0]) * inv;
  for (int j = 0; j < 3; ++j) r.m[3][j] = -(m[3][0] * r.m[0][j] + m[3][1] * r.m[1][j] + m[3][2] * r.m[2][j]);
  r.m[3][3] = 1;
  return r;
}

Mat4 fileMatrixToGltf(const Json& rows) {
  static constexpr double kMirror[4] = {1, 1, -1, 1};
  Mat4 r;
  for (int i = 0; i < 4; ++i)
    for (int j = 0; j < 3; ++j) {
      r.m[i][j] = number(rows.at(i).at(j)) * kMirror[i] * kMirror[j];
    }
  r.m[3][3] = 1;
  return r;
}

Trs decompose(const Mat4& a) {
  const auto& m = a.m;
  Trs t;
  for (int j = 0; j < 3; ++j) t.translation[j] = m[3][j];
  double rows[3][3];
  for (int i = 0; i < 3; ++i) {
    const double len = std::sqrt(m[i][0] * m[i][0] + m[i][1] * m[i][1] + m[i][2] * m[i][2]);
    t.scale[i] = len;
    for (int j = 0; j < 3; ++j) rows[i][j] = len > 1e-30 ? m[i][j] / len : (i == j ? 1.0 : 0.0);
  }
  const double det = rows[0][0] * (rows[1][1] * rows[2][2] - rows[1][2] * rows[2][1]) -
                     rows[0][1] * (rows[1][0] * rows[2][2] - rows[1][2] * rows[2][0]) +
                     rows[0][2] * (rows[1][0] * rows[2][1] - rows[1][1] * rows[2][0]);
  if (det < 0) {
    t.scale[0] = -t.scale[0];
    for (double& v : rows[0]) v = -v;
  }
  // Row i is the image of axis i, so as a column-vector matrix c[r][i] = rows[i][r].
  auto c = [&](int r, int i) { return rows[i][r]; };
  const double trace = c(0, 0) + c(1, 1) + c(2, 2);
  double x, y, z, w;
  if (trace > 0) {
    const double s = 0.5 / std::sqrt(trace + 1.0);
    w = 0.25 / s;
    x = (c(2, 1) - c(1, 2)) * s;
    y = (c(0, 2) - c(2, 0)) * s;
    z = (c(1, 0) - c(0, 1)) * s;
  } else if (c(0, 0) > c(1, 1) && c(0, 0) > c(2, 2)) {
    const double s = 2.0 * std::sqrt(1.0 + c(0, 0) - c(1, 1) - c(2, 2));
    w = (c(2, 1) - c(1, 2)) / s;
    x = 0.25 * s;
    y = (c(0, 1) + c(1, 0)) / s;
    z = (c(0, 2) + c(2, 0)) / s;
  } else if (c(1, 1) > c(2, 2)) {
    const double s = 2.0 * std::sqrt(1.0 + c(1, 1) - c(0, 0) - c(2, 2));
    w = (c(0, 2) - c(2, 0)) / s;
    x = (c(0, 1) + c(1, 0)) / s;
    y = 0.25 * s;
    z = (c(1, 2) + c(2, 1)) / s;
  } else {
    const double s = 2.0 * std::sqrt(1.0 + c(2, 2) - c(0, 0) - c(1, 1));
    w = (c(1, 0) - c(0, 1)) / s;
    x = (c(0, 2) + c(2, 0)) / s;
    y = (c(1, 2) + c(2, 1)) / s;
    z = 0.25 * s;
  }
  const double n = std::sqrt(x * x + y * y + z * z + w * w);
  if (!(n > 0) || !std::isfinite(n)) return t;
  // One sign for every quaternion (w >= 0), so that equal rotations give equal bytes.
  const double sign = w < 0 ? -1.0 : 1.0;
  t.rotation = {sign * x / n, sign * y / n, sign * z / n, sign * w / n};
  return t;
}

bool isKind(const DecodedChunk& chunk, const ChunkKindInfo& kind) { return chunk.id == kind.id && chunk.decoded; }

const DecodedChunk* childOfKind(const DecodedChunk& chunk, const ChunkKindInfo& kind) {
  for (const DecodedChunk& c : chunk.children)
    if (isKind(c, kind)) return &c;
  return nullptr;
}

Builder::Builder(std::vector<std::string>& w) : warnings(w) {
  model.asset.version = "2.0";
  model.asset.generator = "zt2dump";
}

Mat4 Builder::nodeGlobal(int node) const {
  Mat4 g = Mat4::identity();
  for (int n = node; n >= 0; n = nodeParent[static_cast<std::size_t>(n)]) g = g * nodeLocal[static_cast<std::size_t>(n)];
  return g;
}

void setTrs(tinygltf::Node& node, const Mat4& m) {
  const Trs t = decompose(m);
  if (t.translation != std::array<double, 3>{0, 0, 0}) node.translation.assign(t.translation.begin(), t.translation.end());
  if (t.rotation != std::array<double, 4>{0, 0, 0, 1}) node.rotation.assign(t.rotation.begin(), t.rotation.end());
  if (t.scale != std::array<double, 3>{1, 1, 1}) node.scale.assign(t.scale.begin(), t.scale.end());
}

int Builder::addRootNode(const std::string& name, const std::string& type, const Mat4& local) {
  tinygltf::Node node;
  node.name = name;
  setTrs(node, local);
  tinygltf::Value::Object extras{{"type", tinygltf::Value(type)},
                                 {"parentName", tinygltf::Value(std::string())},
                                 {"userProperties", tinygltf::Value(std::string())}};
  node.extras = tinygltf::Value(std::move(extras));
  const int index = static_cast<int>(model.nodes.size());
  nodeByName.emplace(name, index);
  model.nodes.push_back(std::move(node));
  nodeLocal.push_back(local);
  nodeParent.push_back(-1);
  return index;
}

int Builder::addBufferView(const void* data, std::size_t bytes, int target) {
  while (bin_.size() % 4 != 0) bin_.push_back(0);
  tinygltf::BufferView view;
  view.buffer = 0;
  view.byteOffset = bin_.size();
  view.byteLength = bytes;
  view.target = target;
  const auto* p = static_cast<const unsigned char*>(data);
  bin_.insert(bin_.end(), p, p + bytes);
  model.bufferViews.push_back(std::move(view));
  return static_cast<int>(model.bufferViews.size() - 1);
}

namespace {
int typeOf(int components) {
  switch (components) {
    case 1: return TINYGLTF_TYPE_SCALAR;
    case 2: return TINYGLTF_TYPE_VEC2;
    case 3: return TINYGLTF_TYPE_VEC3;
    case 4: return TINYGLTF_TYPE_VEC4;
    default: return TINYGLTF_TYPE_MAT4;
  }
}
}  // namespace

int Builder::addFloatAccessor(const std::vector<float>& values, int components, int target, bool minMax) {
  tinygltf::Accessor acc;
  acc.bufferView = addBufferView(values.data(), values.size() * sizeof(float), target);
  acc.componentType = TINYGLTF_COMPONENT_TYPE_FLOAT;
  acc.type = typeOf(components);
  acc.count = values.size() / static_cast<std::size_t>(components);
  if (minMax && acc.count > 0) {
    acc.minValues.assign(static_cast<std::size_t>(components), std::numeric_limits<double>::infinity());
    acc.maxValues.assign(static_cast<std::size_t>(components), -std::numeric_limits<double>::infinity());
    for (std::size_t i = 0; i < values.size(); ++i) {
      const std::size_t k = i % static_cast<std::size_t>(components);
      acc.minValues[k] = std::min(acc.minValues[k], static_cast<double>(values[i]));
      acc.maxValues[k] = std::max(acc.maxValues[k], static_cast<double>(values[i]));
    }
  }
  model.accessors.push_back(std::move(acc));
  return static_cast<int>(model.accessors.size() - 1);
}

int Builder::addIndexAccessor(const std::vector<std::uint32_t>& indices) {
  tinygltf::Accessor acc;
  const bool wide = std::any_of(indices.begin(), indices.end(), [](std::uint32_t i) { return i >= 0xffff; });
  if (wide) {
    acc.bufferView = addBufferView(indices.data(), indices.size() * 4, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    acc.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT;
  } else {
    const std::vector<std::uint16_t> narrow(indices.begin(), indices.end());
    acc.bufferView = addBufferView(narrow.data(), narrow.size() * 2, TINYGLTF_TARGET_ELEMENT_ARRAY_BUFFER);
    acc.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT;
  }
  acc.type = TINYGLTF_TYPE_SCALAR;
  acc.count = indices.size();
  model.accessors.push_back(std::move(acc));
  return static_cast<int>(model.accessors.size() - 1);
}

int Builder::addJointAccessor(const std::vector<std::uint16_t>& joints) {
  tinygltf::Accessor acc;
  acc.bufferView = addBufferView(joints.data(), joints.size() * 2, TINYGLTF_TARGET_ARRAY_BUFFER);
  acc.componentType = TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT;
  acc.type = TINYGLTF_TYPE_VEC4;
  acc.count = joints.size() / 4;
  model.accessors.push_back(std::move(acc));
  return static_cast<int>(model.accessors.size() - 1);
}

void Builder::finish() {
  while (bin_.size() % 4 != 0) bin_.push_back(0);
  if (bin_.empty()) return;
  tinygltf::Buffer buffer;
  buffer.data = std::move(bin_);
  model.buffers.push_back(std::move(buffer));
}

}  // namespace zt2dump::gltf
