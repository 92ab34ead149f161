#include "support/posing/posing.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <map>
#include <unordered_map>

#include <assimp/postprocess.h>
#include <assimp/scene.h>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace ztx_test {

namespace {

// glTF stores matrices column by column; the import library's are row by row.
aiMatrix4x4 fromColumns(const double* m) {
  aiMatrix4x4 r;
  for (unsigned i = 0; i < 16; ++i) r[i % 4][i / 4] = static_cast<ai_real>(m[i]);
  return r;
}

aiVector3D vec(const Vec3& v) { return aiVector3D(static_cast<ai_real>(v[0]), static_cast<ai_real>(v[1]), static_cast<ai_real>(v[2])); }

// A sampler's value at `time`: held before the first key and after the last,
// blended between (rotations the short way round, as glTF viewers blend them).
template <std::size_t N>
std::array<double, N> sample(const tinygltf::Model& m, const tinygltf::AnimationSampler& s, double time) {
  const auto times = readAccessor(m, s.input);
  const auto values = readAccessor(m, s.output);
  const bool cubic = s.interpolation == "CUBICSPLINE";
  const std::size_t per = cubic ? 3 * N : N, offset = cubic ? N : 0;  // cubic: in-tangent, value, out-tangent
  auto value = [&](std::size_t k) {
    std::array<double, N> r{};
    for (std::size_t c = 0; c < N; ++c) r[c] = values[k * per + offset + c];
    return r;
  };
  if (times.empty()) return value(0);
  if (time <= times.front()) return value(0);
  if (time >= times.back()) return value(times.size() - 1);
  const std::size_t k = static_cast<std::size_t>(std::upper_bound(times.begin(), times.end(), time) - times.begin()) - 1;
  const std::array<double, N> a = value(k), b = value(k + 1);
  if (s.interpolation == "STEP") return a;
  const double f = (time - times[k]) / (times[k + 1] - times[k]);
  std::array<double, N> r{};
  if (N == 4) {
    // Rotations: the short way round, as glTF viewers blend them.
    double dot = 0;
    for (std::size_t c = 0; c < N; ++c) dot += a[c] * b[c];
    const double sign = dot < 0 ? -1 : 1;
    double len = 0;
    for (std::size_t c = 0; c < N; ++c) len += std::pow(r[c] = (1 - f) * a[c] + f * sign * b[c], 2);
    for (double& c : r) c /= std::sqrt(len);
    return r;
  }
  for (std::size_t c = 0; c < N; ++c) r[c] = (1 - f) * a[c] + f * b[c];
  return r;
}

template <class Visit>
void walk(const aiNode& n, Visit&& visit) {
  visit(n);
  for (unsigned i = 0; i < n.mNumChildren; ++i) walk(*n.mChildren[i], visit);
}

// Keys between two are blended (rotations the short way); before the
// first and after the last they hold.
aiMatrix4x4 local(const aiNode& n, const aiAnimation* anim, double ticks) {
  const aiNodeAnim* channel = nullptr;
  for (unsigned i = 0; anim && i < anim->mNumChannels; ++i)
    if (anim->mChannels[i]->mNodeName == n.mName) channel = anim->mChannels[i];
  if (!channel) return n.mTransformation;
  aiVector3D scale(1, 1, 1), position;
  aiQuaternion rotation;
  n.mTransformation.Decompose(scale, rotation, position);
  auto at = [&](const auto* keys, unsigned count, auto still, auto blend) {
    if (count == 0) return still;
    if (ticks <= keys[0].mTime) return keys[0].mValue;
    for (unsigned k = 1; k < count; ++k)
      if (ticks <= keys[k].mTime)
        return blend(keys[k - 1].mValue, keys[k].mValue,
                     static_cast<float>((ticks - keys[k - 1].mTime) / (keys[k].mTime - keys[k - 1].mTime)));
    return keys[count - 1].mValue;
  };
  const auto lerp = [](const aiVector3D& a, const aiVector3D& b, float f) { return a + (b - a) * f; };
  position = at(channel->mPositionKeys, channel->mNumPositionKeys, position, lerp);
  scale = at(channel->mScalingKeys, channel->mNumScalingKeys, scale, lerp);
  rotation = at(channel->mRotationKeys, channel->mNumRotationKeys, rotation,
                [](const aiQuaternion& a, const aiQuaternion& b, float f) {
                  aiQuaternion r;
                  aiQuaternion::Interpolate(r, a, b, f);
                  return r.Normalize();
                });
  return aiMatrix4x4(scale, rotation.Normalize(), position);
}

}  // namespace

tinygltf::Model readGlb(const std::string& path) {
  tinygltf::TinyGLTF loader;
  tinygltf::Model model;
  std::string err, warn;
  const auto bytes = readBytes(path);
  EXPECT_TRUE(loader.LoadBinaryFromMemory(&model, &err, &warn, bytes.data(), static_cast<unsigned>(bytes.size())))
      << path << ": " << err;
  return model;
}

std::vector<double> readAccessor(const tinygltf::Model& m, int index, int* components) {
  const tinygltf::Accessor& a = m.accessors.at(static_cast<std::size_t>(index));
  const int n = tinygltf::GetNumComponentsInType(static_cast<std::uint32_t>(a.type));
  if (components) *components = n;
  std::vector<double> out(a.count * static_cast<std::size_t>(n), 0.0);
  if (a.bufferView < 0) return out;
  const tinygltf::BufferView& v = m.bufferViews.at(static_cast<std::size_t>(a.bufferView));
  const int size = tinygltf::GetComponentSizeInBytes(static_cast<std::uint32_t>(a.componentType));
  const std::size_t stride = v.byteStride ? v.byteStride : static_cast<std::size_t>(size * n);
  const unsigned char* base = m.buffers.at(static_cast<std::size_t>(v.buffer)).data.data() + v.byteOffset + a.byteOffset;
  for (std::size_t e = 0; e < a.count; ++e)
    for (int c = 0; c < n; ++c) {
      const unsigned char* p = base + e * stride + static_cast<std::size_t>(c * size);
      double x = 0;
      switch (a.componentType) {
        case TINYGLTF_COMPONENT_TYPE_FLOAT: { float f; std::memcpy(&f, p, 4); x = f; break; }
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_BYTE: x = *p / (a.normalized ? 255.0 : 1.0); break;
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_SHORT: { std::uint16_t u; std::memcpy(&u, p, 2); x = u / (a.normalized ? 65535.0 : 1.0); break; }
        case TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT: { std::uint32_t u; std::memcpy(&u, p, 4); x = u; break; }
        default: ADD_FAILURE() << "component type " << a.componentType << " not read here";
      }
      out[e * static_cast<std::size_t>(n) + static_cast<std::size_t>(c)] = x;
    }
  return out;
}

double GltfPose::duration() const {
  double d = 0;
  if (!m_.animations.empty())
    for (const auto& s : m_.animations[0].samplers) {
      const auto t = readAccessor(m_, s.input);
      if (!t.empty()) d = std::max(d, t.back());
    }
  return d;
}

std::vector<Vec3> GltfPose::vertices(double time, const std::string& only) const {
  std::vector<Vec3> t(m_.nodes.size()), s(m_.nodes.size());
  std::vector<std::array<double, 4>> r(m_.nodes.size());
  for (std::size_t i = 0; i < m_.nodes.size(); ++i) {
    const auto& n = m_.nodes[i];
    t[i] = n.translation.size() == 3 ? Vec3{n.translation[0], n.translation[1], n.translation[2]} : Vec3{0, 0, 0};
    r[i] = n.rotation.size() == 4 ? std::array<double, 4>{n.rotation[0], n.rotation[1], n.rotation[2], n.rotation[3]}
                                  : std::array<double, 4>{0, 0, 0, 1};
    s[i] = n.scale.size() == 3 ? Vec3{n.scale[0], n.scale[1], n.scale[2]} : Vec3{1, 1, 1};
  }
  if (!m_.animations.empty())
    for (const auto& c : m_.animations[0].channels) {
      const auto& sampler = m_.animations[0].samplers.at(static_cast<std::size_t>(c.sampler));
      const auto node = static_cast<std::size_t>(c.target_node);
      if (c.target_path == "translation") t[node] = sample<3>(m_, sampler, time);
      else if (c.target_path == "scale") s[node] = sample<3>(m_, sampler, time);
      else if (c.target_path == "rotation") r[node] = sample<4>(m_, sampler, time);
    }
  std::vector<aiMatrix4x4> world(m_.nodes.size());
  std::vector<int> meshNodes;
  auto walk = [&](auto&& self, int node, const aiMatrix4x4& parent) -> void {
    const auto i = static_cast<std::size_t>(node);
    const auto& n = m_.nodes[i];
    const aiQuaternion q(static_cast<ai_real>(r[i][3]), static_cast<ai_real>(r[i][0]), static_cast<ai_real>(r[i][1]),
                         static_cast<ai_real>(r[i][2]));
    world[i] = parent * (n.matrix.size() == 16 ? fromColumns(n.matrix.data()) : aiMatrix4x4(vec(s[i]), q, vec(t[i])));
    if (n.mesh >= 0 && (only.empty() || n.name == only)) meshNodes.push_back(node);
    for (int c : n.children) self(self, c, world[i]);
  };
  for (int root : m_.scenes.at(static_cast<std::size_t>(std::max(m_.defaultScene, 0))).nodes) walk(walk, root, aiMatrix4x4());

  std::vector<Vec3> out;
  for (int node : meshNodes) {
    const auto& n = m_.nodes[static_cast<std::size_t>(node)];
    const aiMatrix4x4& placed = world[static_cast<std::size_t>(node)];
    std::vector<aiMatrix4x4> jointMatrices;
    if (n.skin >= 0) {
      const auto& skin = m_.skins[static_cast<std::size_t>(n.skin)];
      const auto ibm = skin.inverseBindMatrices >= 0 ? readAccessor(m_, skin.inverseBindMatrices) : std::vector<double>{};
      for (std::size_t j = 0; j < skin.joints.size(); ++j)
        jointMatrices.push_back(world[static_cast<std::size_t>(skin.joints[j])] *
                                (ibm.empty() ? aiMatrix4x4() : fromColumns(ibm.data() + 16 * j)));
    }
    for (const auto& prim : m_.meshes[static_cast<std::size_t>(n.mesh)].primitives) {
      const auto pos = readAccessor(m_, prim.attributes.at("POSITION"));
      const bool skinned = n.skin >= 0 && prim.attributes.count("JOINTS_0") && prim.attributes.count("WEIGHTS_0");
      std::vector<double> joints, weights;
      if (skinned) {
        joints = readAccessor(m_, prim.attributes.at("JOINTS_0"));
        weights = readAccessor(m_, prim.attributes.at("WEIGHTS_0"));
      }
      // The corners of triangles with an area only: points, lines, vertices
      // no face uses and faces folded to a line or a point have no surface,
      // and the import leaves them out.
      if (prim.mode != TINYGLTF_MODE_TRIANGLES && prim.mode != -1) continue;
      const auto point = [&](std::size_t v) { return vec({pos.at(3 * v), pos.at(3 * v + 1), pos.at(3 * v + 2)}); };
      std::vector<double> corners = prim.indices >= 0 ? readAccessor(m_, prim.indices) : std::vector<double>{};
      if (prim.indices < 0)
        for (std::size_t v = 0; v < pos.size() / 3; ++v) corners.push_back(static_cast<double>(v));
      std::vector<bool> used(pos.size() / 3, false);
      for (std::size_t c = 0; c + 2 < corners.size(); c += 3) {
        const auto a = point(static_cast<std::size_t>(corners[c]));
        if (((point(static_cast<std::size_t>(corners[c + 1])) - a) ^ (point(static_cast<std::size_t>(corners[c + 2])) - a))
                .SquareLength() == 0)
          continue;
        for (std::size_t k = 0; k < 3; ++k) used[static_cast<std::size_t>(corners[c + k])] = true;
      }
      for (std::size_t v = 0; v < pos.size() / 3; ++v) {
        if (!used[v]) continue;
        // Weights normalised: glTF wants them to sum to 1, and the import
        // library's exporter leaves some short (a vertex of more than four
        // bones, a source whose weights do not add up). A vertex no bone
        // holds has no place in glTF's formula; it is taken to stay with its
        // node, as the import has it.
        aiVector3D sum;
        double total = 0;
        for (std::size_t k = 0; skinned && k < 4; ++k) {
          const double w = weights[4 * v + k];
          if (w == 0) continue;
          sum += (jointMatrices.at(static_cast<std::size_t>(joints[4 * v + k])) * point(v)) * static_cast<ai_real>(w);
          total += w;
        }
        const aiVector3D p = total > 0 ? sum / static_cast<ai_real>(total) : placed * point(v);
        out.push_back({p.x, p.y, p.z});
      }
    }
  }
  return out;
}


// The reference where the import library cannot write a model as glTF
// itself: the model as the library reads it, posed by the same rule (its
// first animation at the time, each skinned vertex the weighted sum of its
// bones' world matrices times their offset matrices, over all its weights).
ScenePose::ScenePose(const std::string& path) : scene_(importer_.ReadFile(path, aiProcess_Triangulate)) {}
bool ScenePose::read() const { return scene_ && scene_->mRootNode; }

double ScenePose::duration() const {
  if (scene_->mNumAnimations == 0) return 0;
  const aiAnimation& a = *scene_->mAnimations[0];
  return a.mDuration / ticksPerSecond();
}

std::vector<double> ScenePose::keyTimes() const {
  std::vector<double> out;
  if (scene_->mNumAnimations == 0) return out;
  const aiAnimation& a = *scene_->mAnimations[0];
  for (unsigned c = 0; c < a.mNumChannels; ++c) {
    const aiNodeAnim& ch = *a.mChannels[c];
    for (unsigned k = 0; k < ch.mNumPositionKeys; ++k) out.push_back(ch.mPositionKeys[k].mTime / ticksPerSecond());
    for (unsigned k = 0; k < ch.mNumRotationKeys; ++k) out.push_back(ch.mRotationKeys[k].mTime / ticksPerSecond());
    for (unsigned k = 0; k < ch.mNumScalingKeys; ++k) out.push_back(ch.mScalingKeys[k].mTime / ticksPerSecond());
  }
  std::sort(out.begin(), out.end());
  out.erase(std::unique(out.begin(), out.end()), out.end());
  return out;
}

double ScenePose::ticksPerSecond() const {
  const aiAnimation* a = scene_->mNumAnimations ? scene_->mAnimations[0] : nullptr;
  return a && a->mTicksPerSecond > 0 ? a->mTicksPerSecond : 25.0;
}

std::vector<std::string> ScenePose::skinnedNodes() const {
  std::vector<std::string> names;
  walk(*scene_->mRootNode, [&](const aiNode& n) {
    for (unsigned k = 0; k < n.mNumMeshes; ++k)
      if (scene_->mMeshes[n.mMeshes[k]]->mNumBones > 0 &&
          std::find(names.begin(), names.end(), n.mName.C_Str()) == names.end())
        names.push_back(n.mName.C_Str());
  });
  return names;
}

std::vector<Vec3> ScenePose::vertices(double seconds, const std::string& only) const {
  const aiAnimation* anim = scene_->mNumAnimations ? scene_->mAnimations[0] : nullptr;
  const double ticks = anim ? seconds * (anim->mTicksPerSecond > 0 ? anim->mTicksPerSecond : 25.0) : 0;
  std::map<const aiNode*, aiMatrix4x4> world;
  auto place = [&](auto&& self, const aiNode& n, const aiMatrix4x4& parent) -> void {
    world[&n] = parent * local(n, anim, ticks);
    for (unsigned i = 0; i < n.mNumChildren; ++i) self(self, *n.mChildren[i], world[&n]);
  };
  place(place, *scene_->mRootNode, aiMatrix4x4());
  std::vector<Vec3> out;
  walk(*scene_->mRootNode, [&](const aiNode& n) {
    if (!only.empty() && only != n.mName.C_Str()) return;
    for (unsigned k = 0; k < n.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene_->mMeshes[n.mMeshes[k]];
      std::vector<aiVector3D> sum(mesh.mNumVertices);
      std::vector<double> total(mesh.mNumVertices, 0);
      for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const aiNode* boneNode = scene_->mRootNode->FindNode(bone.mName);
        if (!boneNode) continue;
        const aiMatrix4x4 m = world[boneNode] * bone.mOffsetMatrix;
        for (unsigned w = 0; w < bone.mNumWeights; ++w) {
          const aiVertexWeight& vw = bone.mWeights[w];
          sum[vw.mVertexId] += (m * mesh.mVertices[vw.mVertexId]) * vw.mWeight;
          total[vw.mVertexId] += vw.mWeight;
        }
      }
      std::vector<bool> used(mesh.mNumVertices, false);
      for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        if (face.mNumIndices != 3) continue;
        const aiVector3D e = mesh.mVertices[face.mIndices[1]] - mesh.mVertices[face.mIndices[0]];
        const aiVector3D g = mesh.mVertices[face.mIndices[2]] - mesh.mVertices[face.mIndices[0]];
        if ((e ^ g).SquareLength() == 0) continue;
        for (unsigned c = 0; c < 3; ++c) used[face.mIndices[c]] = true;
      }
      for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        if (!used[v]) continue;
        const aiVector3D p = total[v] > 0 ? sum[v] / static_cast<float>(total[v]) : world[&n] * mesh.mVertices[v];
        out.push_back({p.x, p.y, p.z});
      }
    }
  });
  return out;
}


double distance(const Vec3& a, const Vec3& b) {
  return std::sqrt((a[0] - b[0]) * (a[0] - b[0]) + (a[1] - b[1]) * (a[1] - b[1]) + (a[2] - b[2]) * (a[2] - b[2]));
}

// The farthest any point of `from` lies from its nearest point of `to`,
// through a grid of cells of side `cell`.
double farthestFromNearest(const std::vector<Vec3>& from, const std::vector<Vec3>& to, double cell) {
  auto key = [&](long long x, long long y, long long z) { return (x * 73856093LL) ^ (y * 19349663LL) ^ (z * 83492791LL); };
  auto cellOf = [&](double v) {
    const double c = std::floor(v / cell);
    return std::isfinite(c) ? static_cast<long long>(std::clamp(c, -1e9, 1e9)) : 0LL;
  };
  std::unordered_multimap<long long, std::size_t> grid;
  for (std::size_t i = 0; i < to.size(); ++i) grid.emplace(key(cellOf(to[i][0]), cellOf(to[i][1]), cellOf(to[i][2])), i);
  double worst = 0;
  for (const Vec3& p : from) {
    double best = INFINITY;
    for (int ring = 1; ring <= 3 && !(best <= (ring - 1) * cell); ++ring)
      for (long long x = cellOf(p[0]) - ring; x <= cellOf(p[0]) + ring; ++x)
        for (long long y = cellOf(p[1]) - ring; y <= cellOf(p[1]) + ring; ++y)
          for (long long z = cellOf(p[2]) - ring; z <= cellOf(p[2]) + ring; ++z) {
            const auto range = grid.equal_range(key(x, y, z));
            for (auto it = range.first; it != range.second; ++it) best = std::min(best, distance(p, to[it->second]));
          }
    if (!(best <= 3 * cell))  // beyond the rings searched: every point
      for (const Vec3& q : to) best = std::min(best, distance(p, q));
    worst = std::max(worst, best);
  }
  return worst;
}

double diagonal(const std::vector<Vec3>& points) {
  Vec3 lo{INFINITY, INFINITY, INFINITY}, hi{-INFINITY, -INFINITY, -INFINITY};
  for (const Vec3& p : points)
    for (int c = 0; c < 3; ++c) lo[c] = std::min(lo[c], p[c]), hi[c] = std::max(hi[c], p[c]);
  return points.empty() ? 0 : distance(lo, hi);
}

}  // namespace ztx_test
