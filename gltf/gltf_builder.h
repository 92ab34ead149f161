// What the glTF converter's parts share: matrices in the file's row-vector
// convention, the turn from the file's axes to glTF's, and the model under
// construction with its one binary buffer.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include <tiny_gltf.h>

#include "dump/reader_tree.h"
#include "format/chunk_kinds.h"
#include "format/code_page.h"

namespace zt2dump::gltf {

// Row-vector convention as in the file: a point is p x M, row 3 the
// translation, column 3 (0, 0, 0, 1).
struct Mat4 {
  std::array<std::array<double, 4>, 4> m{};
  static Mat4 identity();
};
Mat4 operator*(const Mat4& a, const Mat4& b);
Mat4 inverse(const Mat4& a);

// A file matrix (4 rows of 3) in glTF's axes: A x M x A with A the mirror of
// z, which undoes the file's mirror (docs/gltf.md).
Mat4 fileMatrixToGltf(const Json& rows);

struct Trs {
  std::array<double, 3> translation{0, 0, 0};
  std::array<double, 4> rotation{0, 0, 0, 1};  // x, y, z, w
  std::array<double, 3> scale{1, 1, 1};
};
// Translation, rotation and scale of an affine matrix; shear is lost and a
// mirror goes into a negative x scale.
Trs decompose(const Mat4& m);

// A decoded float; a non-finite one is decoded as null and reads as 0.
inline double number(const Json& v) { return v.is_number() ? v.get<double>() : 0.0; }

// The chunk of kind `kind` among `chunk`'s children, or nullptr.
const DecodedChunk* childOfKind(const DecodedChunk& chunk, const ChunkKindInfo& kind);
bool isKind(const DecodedChunk& chunk, const ChunkKindInfo& kind);

class Builder {
 public:
  explicit Builder(std::vector<std::string>& warnings);

  tinygltf::Model model;
  std::vector<std::string>& warnings;

  // Nodes by their name in the file, and each node's local matrix in glTF's
  // axes (parents as the model links them).
  std::map<std::string, int> nodeByName;
  std::map<std::size_t, int> nodeByChunk;  // by the file offset of its object's chunk
  std::vector<Mat4> nodeLocal;
  std::vector<int> nodeParent;
  // Per textured material: its copy without the texture, for groups that
  // carry no texture coordinates.
  std::map<int, int> untexturedMaterial;
  Mat4 nodeGlobal(int node) const;
  // A node that the file holds no object chunk for, with the local matrix
  // `local` and extras of type `type`, at the root until a parent takes it;
  // its index.
  int addRootNode(const std::string& name, const std::string& type, const Mat4& local = Mat4::identity());

  // Accessors over data appended to the buffer. `components` is 1, 2, 3, 4
  // or 16; minMax adds the bounds glTF requires of positions and key times.
  int addFloatAccessor(const std::vector<float>& values, int components, int target, bool minMax);
  // Triangle corners: 16-bit, or 32-bit when a corner names vertex 65535,
  // which 16-bit glTF indices keep for primitive restart.
  int addIndexAccessor(const std::vector<std::uint32_t>& indices);
  int addJointAccessor(const std::vector<std::uint16_t>& joints);
  int addBufferView(const void* data, std::size_t bytes, int target);

  void warn(std::string line) { warnings.push_back(std::move(line)); }

  // Moves the collected bytes into the model's buffer.
  void finish();

 private:
  std::vector<unsigned char> bin_;
};

// A node's translation, rotation and scale from its local matrix; parts
// that are the identity's are left out.
void setTrs(tinygltf::Node& node, const Mat4& m);

// The parts of the conversion, in the order buildGltf calls them.
void addMaterials(Builder& b, const DecodedFile& scene, const std::string& textureDirectory);
void addNodes(Builder& b, const DecodedFile& scene);
void addMeshes(Builder& b, const DecodedFile& scene, const DecodedFile* vertexData);
void addAnimations(Builder& b, const DecodedFile& scene);

// A material for a name the material list does not hold (no list written, or
// a name it lacks), made once per name.
int materialForName(Builder& b, const std::string& name);
// `material` itself when it has no base colour texture, else its copy without
// one: glTF refuses a texture on a primitive without texture coordinates.
int materialWithoutTexture(Builder& b, int material);

}  // namespace zt2dump::gltf
