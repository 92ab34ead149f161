// What every importer produces: a scene description (docs/scene-format.md) as
// a JSON document, with its large arrays in one binary buffer that the
// document names. The in-memory host is then filled by the scene loader, so
// an imported model obeys exactly the rules of a hand-written scene file.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <set>
#include <string>
#include <vector>

#include "host/max_types.h"

namespace hostimport {

struct ImportedScene {
  nlohmann::json document;
  std::vector<unsigned char> buffer;  // the arrays that `document` refers to as `bufferName`
  std::string bufferName;
};

// One host mesh as flat arrays, in the layouts of the scene format.
struct MeshArrays {
  std::vector<float> vertices;            // x, y, z per vertex
  std::vector<std::uint32_t> faces;       // three vertex indices per face
  std::vector<std::uint32_t> smoothingGroups;
  std::vector<std::uint16_t> materialIds;
  std::vector<float> textureVertices;     // u, v, w
  std::vector<std::uint32_t> textureFaces;
  std::vector<float> vertexColors;        // r, g, b
  std::vector<std::uint32_t> colorFaces;
};

// Appends arrays to the buffer and hands out the references to them.
class SceneBuilder {
 public:
  explicit SceneBuilder(std::string bufferName) { scene_.bufferName = std::move(bufferName); }

  // The "mesh" member of a mesh object; empty optional arrays are left out.
  nlohmann::json mesh(const MeshArrays& m);

  // A name unique among those handed out so far: a repeated name takes "#2",
  // "#3", an empty one is "Node". Imported nodes use it as name and id, since
  // the exporter wants node names unique and bones refer to nodes by id.
  std::string uniqueId(const std::string& name);

  ImportedScene finish(nlohmann::json document);

 private:
  template <typename T>
  nlohmann::json append(const std::vector<T>& values, std::size_t perElement);
  ImportedScene scene_;
  std::set<std::string> ids_;
};

// Text as the scene file holds it: valid UTF-8. Bytes that are not (names in
// an old tool's code page) are read as Latin-1, so that no name is lost.
std::string utf8(const std::string& bytes);

// A local transform as position, rotation and scale. A mirroring matrix
// keeps its mirror in a negative X scale; shear is dropped.
struct Decomposed {
  Point3 position{0, 0, 0};
  Quat rotation{0, 0, 0, 1};
  Point3 scale{1, 1, 1};
};
Decomposed decompose(const Matrix3& m);

// The "transform" member for a fixed local matrix.
nlohmann::json fixedTransform(const Matrix3& m);

nlohmann::json point(const Point3& p);
nlohmann::json quat(const Quat& q);

// The skin modifier every imported node carries, since skinning is on by
// default and asks every examined node for one; `vertices` are its weights.
nlohmann::json physique(nlohmann::json vertices = nlohmann::json::array());
// The skin of a mesh that no bones deform: each of its vertices bound rigidly
// to its own node `nodeId`, so that it simply moves with the node.
nlohmann::json rigidPhysique(const std::string& nodeId, std::size_t vertexCount);

// A scene as it goes to the loader or to disk: the document as text, and the
// buffer under the name the document gives it.
struct SceneText {
  std::string text;
  std::vector<unsigned char> buffer;
  std::string bufferName;
};
SceneText toText(ImportedScene&& scene);

// Writes the text as OUT (a .json file) and the buffer beside it under its
// name, each by a temporary file and a rename. Throws std::runtime_error
// naming the file on failure.
void writeSceneFiles(const SceneText& scene, const std::string& jsonPath);

}  // namespace hostimport
