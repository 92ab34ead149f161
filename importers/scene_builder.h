// What every importer produces: a scene description (docs/scene-format.md) as
// a JSON document, with its large arrays in one binary buffer that the
// document names. The in-memory host is then filled by the scene loader, so
// an imported model obeys exactly the rules of a hand-written scene file.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <memory>
#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/max_types.h"

namespace hostimport {

// A model that cannot be read: the message names the file and the reason.
class ImportError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Refuses `model` when its nodes nest `levels` deep (top nodes are level 1)
// and the scene loader would refuse the scene made of it: the front ends ask
// before they build anything of the tree, or walk it recursively.
void refuseDeepNesting(const std::string& model, int levels);

// What a front end is asked to read.
struct ImportRequest {
  std::string path;         // the model
  std::string bufferName;   // the name the document gives its buffer
  std::string textureDir;   // where textures held inside the model are written
  bool sceneFile = false;   // the scene becomes files to keep (--write-scene): short skins as lists
  bool processEnds = false; // read in a process that ends after the answer: nothing need be freed
  std::vector<std::string> texturePaths;  // searched for images after the model's folders
  bool dropMissingTextures = false;       // leave a map whose image is missing out, with a warning
};

// A buffer as the arrays appended to it, in order: each array is moved in
// whole and written out from where it lies, never copied into one block.
class SceneBuffer {
 public:
  // Appends `values` and answers the byte offset where they start.
  template <typename T>
  std::size_t append(std::vector<T>&& values) {
    const std::size_t offset = size_;
    auto owned = std::make_shared<const std::vector<T>>(std::move(values));
    const std::size_t bytes = owned->size() * sizeof(T);
    if (bytes > 0) pieces_.push_back({{reinterpret_cast<const unsigned char*>(owned->data()), bytes}, std::move(owned)});
    size_ += bytes;
    return offset;
  }
  std::size_t size() const { return size_; }
  // Calls `use` with each array's bytes in order, then lets the array go:
  // the buffer is written out without being held twice. Empty afterwards.
  template <typename Use>
  void drain(Use use) {
    for (Piece& piece : pieces_) {
      use(piece.bytes);
      piece.owner.reset();
    }
    pieces_.clear();
    size_ = 0;
  }

 private:
  struct Piece {
    std::span<const unsigned char> bytes;
    std::shared_ptr<const void> owner;
  };
  std::vector<Piece> pieces_;
  std::size_t size_ = 0;
};

struct ImportedScene {
  nlohmann::json document;
  SceneBuffer buffer;  // the arrays that `document` refers to as `bufferName`
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
  // Colour faces the same as the texture faces (an importer that keeps both
  // per source vertex): colorFaces is left empty and the document names the
  // texture faces' bytes for both.
  bool colorFacesAreTextureFaces = false;
};

// The skin of one mesh as importers build it: a table of bones (node ids)
// and per vertex one bone (rigid) or bones with weights (rigid blended),
// kept as the words of the skin's binary form (docs/scene-format.md).
class Skin {
 public:
  // The place of node `id` in the bone table, added when new.
  std::uint32_t bone(const std::string& id);
  void rigid(std::uint32_t bone);
  void blended(const std::vector<std::pair<std::uint32_t, float>>& links);

  std::size_t vertexCount() const { return vertexCount_; }
  const std::vector<std::string>& bones() const { return bones_; }
  const std::vector<std::uint32_t>& records() const { return records_; }
  std::vector<std::uint32_t> takeRecords() { return std::move(records_); }

 private:
  std::vector<std::string> bones_;
  std::unordered_map<std::string, std::uint32_t> boneIndex_;
  std::vector<std::uint32_t> records_;
  std::size_t vertexCount_ = 0;
};

// Appends arrays to the buffer and hands out the references to them. Skins
// go to the buffer too, unless the scene is meant as a file to keep
// (--write-scene): there they stay lists in the document, as people write them,
// up to kListedSkinVertices: a longer list is read by no one, and a mesh of a
// million vertices would make the document megabytes of one repeated name.
inline constexpr std::size_t kListedSkinVertices = 10000;

class SceneBuilder {
 public:
  SceneBuilder(std::string bufferName, bool skinsInBuffer) : skinsInBuffer_(skinsInBuffer) {
    scene_.bufferName = std::move(bufferName);
  }

  // The "modifiers" member of a node: one Physique modifier with `skin`.
  nlohmann::json physique(Skin&& skin);
  // ... whose vertices are all bound rigidly to the node `nodeId` itself.
  nlohmann::json rigidPhysique(const std::string& nodeId, std::size_t vertexCount);

  // The "mesh" member of a mesh object; empty optional arrays are left out.
  nlohmann::json mesh(MeshArrays&& m);

  // A name unique among those handed out so far: a repeated name takes "#2",
  // "#3", an empty one is "Node". Imported nodes use it as name and id, since
  // the exporter wants node names unique and bones refer to nodes by id.
  std::string uniqueId(const std::string& name);

  ImportedScene finish(nlohmann::json document);

 private:
  template <typename T>
  nlohmann::json append(std::vector<T>&& values, std::size_t perElement);
  ImportedScene scene_;
  std::set<std::string> ids_;
  bool skinsInBuffer_;
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
// default and asks every examined node for one; this one has no vertices.
nlohmann::json physique();

// A scene as it goes to the loader or to disk: the document as text, and the
// buffer under the name the document gives it.
struct SceneText {
  std::string text;
  SceneBuffer buffer;
  std::string bufferName;
};
// Indented for a file people read (--write-scene); otherwise on one line,
// since the indentation of a deep tree grows with the square of its depth
// (34 MB of spaces for a chain of 1,000 nodes).
SceneText toText(ImportedScene&& scene, bool indented);

// Writes `text` as OUT (a .json file) and `buffer` beside it as
// `bufferName`, each by a temporary file and a rename. Throws
// std::runtime_error naming the file on failure.
void writeSceneFiles(std::string_view text, std::span<const unsigned char> buffer, const std::string& bufferName,
                     const std::string& jsonPath);

}  // namespace hostimport
