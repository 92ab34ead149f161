// The plain-OBJ reader (obj_reader.h). The scene it gives is the import
// library's for the same file but for how corners share vertices (MeshMaker):
// the library's model (objects, meshes split by material, materials created
// for names no library defines) is rebuilt with the same rules, and its
// numbers are read by the library's own number reader. Whatever those rules
// do not cover sends the file to the library.
#include "importers/obj_reader.h"

#include <assimp/fast_atof.h>
#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>

#include <sys/mman.h>

#include <algorithm>
#include <cstring>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "host/memory/regular_file.h"

namespace hostimport {
namespace {

constexpr const char* kDefaultMaterial = "DefaultMaterial";
constexpr const char* kDefaultObject = "defaultobject";
constexpr unsigned kNoMaterial = ~0u;

// Thrown inside the reader for a file it leaves to the library.
struct NotPlain {};

// What the library's number reader would throw here in place of its own
// error, whose constructor the library does not export. It never does: its
// message takes the text up to the next NUL, which a mapped file need not
// hold, so numbers are checked before it reads them.
struct BadNumber : NotPlain {
  template <typename... Parts>
  explicit BadNumber(Parts&&...) {}
};

struct Face {
  std::uint32_t v[3], t[3], n[3];
  bool hasT, hasN;
};

struct ObjMesh {
  std::string name;
  unsigned material = kNoMaterial;
  std::vector<Face> faces;
  bool hasNormals = false;
  bool hasTexCoords = false;
};

struct ObjObject {
  std::string name;
  std::vector<std::size_t> meshes;
};

bool isSpace(char c) { return c == ' ' || c == '\t'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

// The whitespace-separated tokens of a line after its keyword.
class Tokens {
 public:
  explicit Tokens(std::string_view rest) : rest_(rest) {}
  bool next(std::string_view& token) {
    std::size_t at = 0;
    while (at < rest_.size() && isSpace(rest_[at])) ++at;
    if (at == rest_.size()) return false;
    std::size_t end = at;
    while (end < rest_.size() && !isSpace(rest_[end])) ++end;
    token = rest_.substr(at, end - at);
    rest_ = rest_.substr(end);
    return true;
  }

 private:
  std::string_view rest_;
};

// Digits from `at`, at least one and at most 18 (no overflow); false otherwise.
bool digits(std::string_view t, std::size_t& at) {
  const std::size_t from = at;
  while (at < t.size() && isDigit(t[at])) ++at;
  return at > from && at - from <= 18;
}

// A number as the library reads it. Only forms the library reads without an
// error or a warning are taken, with a digit after the sign (it counts a
// component only when it opens with a digit or a sign): [+-]d[.[d]][(e|E)[+-]d].
float number(std::string_view token) {
  std::size_t at = token[0] == '-' || token[0] == '+' ? 1 : 0;
  if (!digits(token, at)) throw NotPlain{};
  if (at < token.size() && token[at] == '.') {
    ++at;
    while (at < token.size() && isDigit(token[at])) ++at;
  }
  if (at < token.size() && (token[at] == 'e' || token[at] == 'E')) {
    ++at;
    if (at < token.size() && (token[at] == '-' || token[at] == '+')) ++at;
    if (!digits(token, at)) throw NotPlain{};
  }
  if (at != token.size()) throw NotPlain{};
  const char* end = nullptr;
  const float value = static_cast<float>(Assimp::fast_atof<BadNumber>(token.data(), &end));
  if (end != token.data() + token.size()) throw NotPlain{};
  return value;
}

// A positive index without leading zeros, as the library's atoi and its
// digit count agree on.
std::uint32_t index(std::string_view digits) {
  if (digits.empty() || digits.size() > 9 || digits[0] == '0') throw NotPlain{};
  std::uint32_t value = 0;
  for (const char c : digits) {
    if (!isDigit(c)) throw NotPlain{};
    value = value * 10 + static_cast<std::uint32_t>(c - '0');
  }
  return value - 1;
}

// The numbers of a line, at most `most` of them, into `out`; how many.
unsigned numbers(std::string_view rest, float* out, unsigned most) {
  unsigned n = 0;
  Tokens tokens(rest);
  for (std::string_view t; tokens.next(t);) {
    if (n == most) throw NotPlain{};
    out[n++] = number(t);
  }
  return n;
}

class Model {
 public:
  std::vector<aiVector3D> vertices, colors, texCoords, normals;
  unsigned texCoordDim = 0;
  std::vector<std::string> materials{kDefaultMaterial};  // the material list, by index
  std::vector<ObjObject> objects;
  std::vector<ObjMesh> meshes;

  void vertex(std::string_view rest) {
    float c[6];
    const unsigned n = numbers(rest, c, 6);
    if (n != 3 && n != 6) throw NotPlain{};
    vertices.emplace_back(c[0], c[1], c[2]);
    // The library lists the colours of the coloured vertices alone, and
    // gives vertex i the i-th of them: a file that colours some vertices only
    // has its colours shifted, here as there.
    if (n == 6) colors.emplace_back(c[3], c[4], c[5]);
  }

  void texCoord(std::string_view rest) {
    float c[3] = {0, 0, 0};
    const unsigned n = numbers(rest, c, 3);
    if (n < 2) throw NotPlain{};
    texCoords.emplace_back(c[0], c[1], c[2]);
    texCoordDim = std::max(texCoordDim, n);
  }

  void normal(std::string_view rest) {
    float c[3];
    if (numbers(rest, c, 3) != 3) throw NotPlain{};
    normals.emplace_back(c[0], c[1], c[2]);
  }

  // A triangle; its three corners are all of one form: v, v/t, v//n or v/t/n.
  void face(std::string_view rest) {
    Face f{};
    int corners = 0, form = -1;
    const bool anyTexCoords = !texCoords.empty(), anyNormals = !normals.empty();
    Tokens tokens(rest);
    for (std::string_view t; tokens.next(t);) {
      if (corners == 3) throw NotPlain{};
      const std::size_t a = t.find('/');
      const std::size_t b = a == std::string_view::npos ? a : t.find('/', a + 1);
      if (b != std::string_view::npos && t.find('/', b + 1) != std::string_view::npos) throw NotPlain{};
      const int thisForm = a == std::string_view::npos ? 0 : b == std::string_view::npos ? 1 : b == a + 1 ? 2 : 3;
      if (form >= 0 && thisForm != form) throw NotPlain{};
      form = thisForm;
      f.v[corners] = index(t.substr(0, a));
      if (form == 1) {
        // The library takes the second number for a normal when the file has
        // normals but no texture coordinates so far.
        const std::uint32_t i = index(t.substr(a + 1));
        if (!anyTexCoords && anyNormals) f.n[corners] = i, f.hasN = true;
        else f.t[corners] = i, f.hasT = true;
      } else if (form == 2) {
        f.n[corners] = index(t.substr(b + 1)), f.hasN = true;
      } else if (form == 3) {
        if (!anyTexCoords) throw NotPlain{};
        f.t[corners] = index(t.substr(a + 1, b - a - 1)), f.hasT = true;
        f.n[corners] = index(t.substr(b + 1)), f.hasN = true;
      }
      ++corners;
    }
    if (corners != 3) throw NotPlain{};
    if (!currentObject_) createObject(kDefaultObject);
    if (!currentMesh_) createMesh(kDefaultObject);
    ObjMesh& mesh = meshes[*currentMesh_];
    mesh.faces.push_back(f);
    mesh.hasNormals = mesh.hasNormals || f.hasN;
    mesh.hasTexCoords = mesh.hasTexCoords || f.hasT;
  }

  void useMaterial(std::string_view rest) {
    std::size_t from = 0, to = rest.size();
    while (from < to && isSpace(rest[from])) ++from;
    while (to > from && isSpace(rest[to - 1])) --to;
    const std::string name(rest.substr(from, to - from));
    if (name.empty() || (currentMaterial_ && materials[*currentMaterial_] == name)) return;
    const auto found = materialIndex_.find(name);
    if (found == materialIndex_.end()) {
      // No library defines it: it is made with the defaults, under its name.
      currentMaterial_ = materials.size();
      materialIndex_.emplace(name, materials.size());
      materials.push_back(name);
    } else {
      currentMaterial_ = found->second;
    }
    if (needsNewMesh(*currentMaterial_)) createMesh(activeGroup_.empty() ? name : activeGroup_);
    meshes[*currentMesh_].material = static_cast<unsigned>(*currentMaterial_);
  }

  // An object of a name met before becomes current again; the mesh faces go
  // to stays the one they went to.
  void object(std::string_view rest) {
    const std::string name = singleName(rest);
    if (const auto found = objectIndex_.find(name); found != objectIndex_.end())
      currentObject_ = found->second;
    else
      createObject(name);
  }

  void group(std::string_view rest) {
    const std::string name = singleName(rest);
    if (name == activeGroup_) return;
    createObject(name);
    activeGroup_ = name;
  }

 private:
  // Names with spaces in them, or none, the library reads in ways of its own.
  static std::string singleName(std::string_view rest) {
    Tokens tokens(rest);
    std::string_view name, more;
    if (!tokens.next(name) || tokens.next(more) || rest.back() == ' ' || rest.back() == '\t') throw NotPlain{};
    return std::string(name);
  }

  void createObject(const std::string& name) {
    currentObject_ = objects.size();
    objectIndex_.emplace(name, objects.size());
    objects.push_back({name, {}});
    createMesh(name);
    if (currentMaterial_) meshes[*currentMesh_].material = static_cast<unsigned>(*currentMaterial_);
  }

  // A mesh made while there is no object belongs to none, and is never written.
  void createMesh(const std::string& name) {
    currentMesh_ = meshes.size();
    meshes.push_back({name, kNoMaterial, {}, false, false});
    if (currentObject_) objects[*currentObject_].meshes.push_back(*currentMesh_);
  }

  bool needsNewMesh(std::size_t material) const {
    if (!currentMesh_) return true;
    const ObjMesh& mesh = meshes[*currentMesh_];
    return mesh.material != kNoMaterial && mesh.material != material && !mesh.faces.empty();
  }

  std::map<std::string, std::size_t> materialIndex_;
  std::map<std::string, std::size_t> objectIndex_;  // the first object of each name
  std::optional<std::size_t> currentMaterial_, currentObject_, currentMesh_;
  std::string activeGroup_;
};

// One line, without its line end.
void parseLine(std::string_view line, Model& model) {
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  if (line.empty()) return;
  // Control characters (a NUL, a form feed, a carriage return inside a line)
  // end lines for the library, and a comment past a line's first character
  // ends its data in ways that differ from line kind to line kind.
  bool control = false, comment = false;
  for (const char c : line) {
    control |= static_cast<unsigned char>(c) < 0x20 && c != '\t';
    comment |= c == '#';
  }
  if (control || line.back() == '\\' || (comment && line[0] != '#')) throw NotPlain{};
  const auto keyword = [&](std::string_view word) {
    return line.size() > word.size() && line.starts_with(word) && isSpace(line[word.size()]);
  };
  switch (line[0]) {
    case 'v':
      if (keyword("v")) model.vertex(line.substr(2));
      else if (keyword("vt")) model.texCoord(line.substr(3));
      else if (keyword("vn")) model.normal(line.substr(3));
      else throw NotPlain{};
      break;
    case 'f':
      if (!keyword("f")) throw NotPlain{};
      model.face(line.substr(2));
      break;
    case 'u':
      if (keyword("usemtl")) model.useMaterial(line.substr(7));
      else if (line.starts_with("usemtl")) throw NotPlain{};
      break;
    case 'o':
      if (!keyword("o")) throw NotPlain{};
      model.object(line.substr(2));
      break;
    case 'g':
      if (!keyword("g")) throw NotPlain{};
      model.group(line.substr(2));
      break;
    case 'm':
      // A material library is read by the library.
      if (line.starts_with("mtllib")) throw NotPlain{};
      break;
    case 'c':  // free-form geometry
    case 'p':  // points
    case 'l':  // lines
      throw NotPlain{};
    default:  // comments, smoothing groups and all the library skips
      break;
  }
}

// `text` ends with a line end: numbers are read up to the first character
// that is not theirs, which must lie inside it.
void parse(std::string_view text, Model& model) {
  if (text.starts_with("\xEF\xBB\xBF")) throw NotPlain{};  // the library skips a byte-order mark its own way
  const char* at = text.data();
  const char* const end = at + text.size();
  while (at < end) {
    const char* nl = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at)));
    if (nl == nullptr) nl = end;
    parseLine(std::string_view(at, static_cast<std::size_t>(nl - at)), model);
    at = nl + 1;
  }
}

aiMaterial* defaultMaterial(const std::string& name) {
  auto* m = new aiMaterial;
  const aiString n(name);
  m->AddProperty(&n, AI_MATKEY_NAME);
  const aiColor3D ambient(0, 0, 0), diffuse(0.6f, 0.6f, 0.6f), specular(0, 0, 0);
  m->AddProperty(&ambient, 1, AI_MATKEY_COLOR_AMBIENT);
  m->AddProperty(&diffuse, 1, AI_MATKEY_COLOR_DIFFUSE);
  m->AddProperty(&specular, 1, AI_MATKEY_COLOR_SPECULAR);
  return m;
}

// One aiMesh with the library's triangles and values at every corner. The
// library makes a vertex of each corner; here corners of one position,
// texture coordinate and normal share one, numbered in the order the corners
// first name them. The front end welds by position and keeps texture
// coordinates and colours per corner value, so the scene exported is the
// same, and a large model's corners are not all copied three times over.
class MeshMaker {
 public:
  explicit MeshMaker(const Model& model) : model_(model), head_(model.vertices.size(), kNone) {}

  aiMesh* make(const ObjMesh& source) {
    const bool normals = !model_.normals.empty() && source.hasNormals;
    const bool uvs = !model_.texCoords.empty() && source.hasTexCoords;
    const std::size_t faces = source.faces.size();
    corners_.clear();
    // The triangles are written where the mesh keeps them, as the corners are numbered.
    std::unique_ptr<aiMesh, void (*)(aiMesh*) noexcept> mesh(new aiMesh, deleteOwnMesh);
    unsigned* const index = allocateTriangles(*mesh, faces);
    for (std::size_t f = 0; f < faces; ++f) {
      const Face& face = source.faces[f];
      for (int c = 0; c < 3; ++c) {
        const std::uint32_t v = face.v[c];
        if (v >= model_.vertices.size()) throw NotPlain{};
        const std::uint32_t t = uvs && face.hasT ? face.t[c] : kNone;
        const std::uint32_t n = normals && face.hasN ? face.n[c] : kNone;
        if ((t != kNone && t >= model_.texCoords.size()) || (n != kNone && n >= model_.normals.size()))
          throw NotPlain{};
        std::uint32_t k = head_[v];
        while (k != kNone && (corners_[k].t != t || corners_[k].n != n)) k = corners_[k].next;
        if (k == kNone) {
          k = static_cast<std::uint32_t>(corners_.size());
          corners_.push_back({v, t, n, head_[v]});
          head_[v] = k;
        }
        index[3 * f + static_cast<std::size_t>(c)] = k;
      }
    }
    for (const Corner& c : corners_) head_[c.v] = kNone;  // ready for the next mesh

    mesh->mName.Set(source.name);
    mesh->mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    mesh->mMaterialIndex = source.material != kNoMaterial ? source.material : 0;
    const std::size_t n = corners_.size();
    mesh->mNumVertices = static_cast<unsigned>(n);
    mesh->mVertices = new aiVector3D[n];
    if (normals) mesh->mNormals = new aiVector3D[n];
    if (!model_.colors.empty()) mesh->mColors[0] = new aiColor4D[n];
    if (uvs) {
      mesh->mNumUVComponents[0] = model_.texCoordDim;
      mesh->mTextureCoords[0] = new aiVector3D[n];
    }
    for (std::size_t k = 0; k < n; ++k) {
      const Corner& c = corners_[k];
      mesh->mVertices[k] = model_.vertices[c.v];
      if (normals && c.n != kNone) mesh->mNormals[k] = model_.normals[c.n];
      if (uvs && c.t != kNone) mesh->mTextureCoords[0][k] = model_.texCoords[c.t];
      if (c.v < model_.colors.size()) {
        const aiVector3D& rgb = model_.colors[c.v];
        mesh->mColors[0][k] = aiColor4D(rgb.x, rgb.y, rgb.z, 1);
      }
    }
    return mesh.release();
  }

 private:
  static constexpr std::uint32_t kNone = ~std::uint32_t{0};
  struct Corner {
    std::uint32_t v, t, n;  // t and n kNone where the corner has none
    std::uint32_t next;     // the next corner of the same position index
  };
  const Model& model_;
  std::vector<std::uint32_t> head_;  // per position index: its latest corner in this mesh
  std::vector<Corner> corners_;
};

// The faces of each mesh go as soon as it is built: a large model never
// holds them and the scene's copies together.
OwnScene sceneOf(Model& model, const std::string& path) {
  OwnScene scene(new aiScene);
  const std::size_t slash = path.find_last_of("\\/");
  scene->mRootNode = new aiNode(slash == std::string::npos ? path : path.substr(slash + 1));
  aiNode& root = *scene->mRootNode;
  std::vector<aiMesh*> meshes;
  MeshMaker maker(model);
  try {
    root.mChildren = new aiNode*[model.objects.size()];
    for (const ObjObject& object : model.objects) {
      auto* node = new aiNode(object.name);
      node->mParent = &root;
      root.mChildren[root.mNumChildren++] = node;
      std::vector<unsigned> own;
      for (const std::size_t id : object.meshes) {
        if (model.meshes[id].faces.empty()) continue;  // a mesh no face went to is none
        own.push_back(static_cast<unsigned>(meshes.size()));
        meshes.push_back(nullptr);
        meshes.back() = maker.make(model.meshes[id]);
        std::vector<Face>().swap(model.meshes[id].faces);
      }
      if (!own.empty()) {
        node->mNumMeshes = static_cast<unsigned>(own.size());
        node->mMeshes = new unsigned[own.size()];
        std::copy(own.begin(), own.end(), node->mMeshes);
      }
    }
  } catch (...) {
    for (aiMesh* m : meshes) deleteOwnMesh(m);
    throw;
  }
  scene->mNumMeshes = static_cast<unsigned>(meshes.size());
  scene->mMeshes = new aiMesh*[meshes.size()];
  std::copy(meshes.begin(), meshes.end(), scene->mMeshes);
  scene->mNumMaterials = static_cast<unsigned>(model.materials.size());
  scene->mMaterials = new aiMaterial*[model.materials.size()];
  for (std::size_t i = 0; i < model.materials.size(); ++i) scene->mMaterials[i] = defaultMaterial(model.materials[i]);
  return scene;
}

}  // namespace

OwnScene readPlainObj(const std::string& path) {
  const hostmodel::RegularFile file(path);
  if (!file.ok() || file.size() == 0) return nullptr;
  // Mapped, the text is the page cache's own: no zeroed buffer, no copy.
  void* mapped = ::mmap(nullptr, file.size(), PROT_READ, MAP_PRIVATE | MAP_POPULATE, file.descriptor(), 0);
  if (mapped == MAP_FAILED) return nullptr;
  struct Unmap {
    void* p;
    std::size_t n;
    ~Unmap() { ::munmap(p, n); }
  } unmap{mapped, file.size()};
  const std::string_view text(static_cast<const char*>(mapped), file.size());
  try {
    Model model;
    // A last line without a line end is read from a copy that has one.
    const std::size_t last = text.find_last_of('\n') + 1;
    parse(text.substr(0, last), model);
    if (last < text.size()) parse(std::string(text.substr(last)) + "\n", model);
    bool anyFace = false;
    for (const ObjMesh& mesh : model.meshes) anyFace = anyFace || !mesh.faces.empty();
    if (!anyFace) return nullptr;
    return sceneOf(model, path);
  } catch (const NotPlain&) {
    return nullptr;
  }
}

}  // namespace hostimport
