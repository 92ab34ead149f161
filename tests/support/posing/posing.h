// Skinned models posed at a time, to compare an export with a reference: a
// glTF model as glTF 2.0 defines skinning, and a model as the import library
// reads it, by the same rule.
#pragma once

#include <array>
#include <string>
#include <vector>

#include <assimp/Importer.hpp>
#include <tiny_gltf.h>

struct aiScene;

namespace ztx_test {

using Vec3 = std::array<double, 3>;

// The model in `path`, read back with tinygltf, the independent reader the
// glTF tests check our output against; a file it refuses fails the test.
tinygltf::Model readGlb(const std::string& path);

// An accessor's elements as doubles, `components` per element; normalized
// integers brought to 0..1.
std::vector<double> readAccessor(const tinygltf::Model& m, int index, int* components = nullptr);

// The first animation at a time, node transforms down the hierarchy, each
// skinned vertex the weighted sum of its joints' world matrices times their
// inverse bind matrices (the node's own transform ignored), other meshes
// placed by their node.
class GltfPose {
 public:
  explicit GltfPose(const tinygltf::Model& m) : m_(m) {}
  double duration() const;
  // The skinned vertices at `time`, of every mesh node or of the one named `only`.
  std::vector<Vec3> vertices(double time, const std::string& only = {}) const;

 private:
  const tinygltf::Model& m_;
};

// The model as the import library reads it, posed by the same rule (its
// first animation at the time, each skinned vertex the weighted sum of its
// bones' world matrices times their offset matrices, over all its weights).
class ScenePose {
 public:
  explicit ScenePose(const std::string& path);
  bool read() const;
  double duration() const;
  // The times of the first clip's keys, in seconds, each once: the source's frames.
  std::vector<double> keyTimes() const;
  double ticksPerSecond() const;
  std::vector<std::string> skinnedNodes() const;
  std::vector<Vec3> vertices(double seconds, const std::string& only = {}) const;

 private:
  Assimp::Importer importer_;
  const aiScene* scene_;
};

double distance(const Vec3& a, const Vec3& b);
// The farthest any point of `from` lies from its nearest point of `to`,
// through a grid of cells of side `cell`.
double farthestFromNearest(const std::vector<Vec3>& from, const std::vector<Vec3>& to, double cell);
// The diagonal of the points' bounding box.
double diagonal(const std::vector<Vec3>& points);

}  // namespace ztx_test
