// The plain-glTF reader (gltf_reader.h). The scene it gives is the import
// library's for the same file, built by the library's rules: objects are
// taken in the order the library first comes upon them (a node's children
// before its mesh, a mesh's primitives in order, each primitive's material),
// meshes and materials nothing in the scene names are left out, a default
// material follows the file's own, texture coordinates are turned upside
// down, and nodes and meshes without a name take "nodes[N]" and "meshes[N]".
// Whatever those rules do not cover sends the file to the library.
#include "importers/gltf_reader.h"

#include <assimp/material.h>
#include <assimp/mesh.h>
#include <assimp/scene.h>

#include <sys/mman.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "host/memory/file_reads.h"
#include "host/memory/regular_file.h"
#include "importers/scene_builder.h"

namespace hostimport {
namespace {

using nlohmann::json;

// Thrown inside the reader for a file it leaves to the library.
struct NotPlain {};

constexpr unsigned kFloat = 5126, kUnsignedByte = 5121, kUnsignedShort = 5123, kUnsignedInt = 5125;
constexpr unsigned kTriangles = 4;
constexpr std::size_t kLongestName = 1000;  // the library's names hold 1,023 bytes

const json* find(const json& object, const char* key) {
  const auto it = object.find(key);
  return it == object.end() ? nullptr : &*it;
}

// An object whose members are all among `keys` ("extras" always is: the
// library keeps it as metadata that nothing here reads).
const json& objectOf(const json& value, std::initializer_list<std::string_view> keys) {
  if (!value.is_object()) throw NotPlain{};
  for (const auto& [key, member] : value.items())
    if (key != "extras" && std::find(keys.begin(), keys.end(), key) == keys.end()) throw NotPlain{};
  return value;
}

unsigned indexOf(const json& value) {
  if (!value.is_number_unsigned() || value.get<std::uint64_t>() > UINT32_MAX) throw NotPlain{};
  return value.get<unsigned>();
}

std::size_t sizeOr(const json& object, const char* key, std::size_t fallback) {
  const json* value = find(object, key);
  if (value == nullptr) return fallback;
  if (!value->is_number_unsigned()) throw NotPlain{};
  return value->get<std::size_t>();
}

std::string nameOf(const json& object) {
  const json* name = find(object, "name");
  if (name == nullptr) return {};
  if (!name->is_string()) throw NotPlain{};
  std::string text = name->get<std::string>();
  if (text.size() > kLongestName || text.find('\0') != std::string::npos) throw NotPlain{};
  return text;
}

// N numbers, read as the library reads them: each a double made a float.
template <std::size_t N>
std::array<float, N> floatsOf(const json& value) {
  if (!value.is_array() || value.size() != N) throw NotPlain{};
  std::array<float, N> out{};
  for (std::size_t i = 0; i < N; ++i) {
    if (!value[i].is_number()) throw NotPlain{};
    out[i] = static_cast<float>(value[i].get<double>());
  }
  return out;
}

// The document, refused when a key repeats in an object: the library takes
// the first, the JSON reader here the last.
json parseDocument(const std::string& text) {
  if (text.starts_with("\xEF\xBB\xBF")) throw NotPlain{};  // the library's JSON reader refuses a byte-order mark
  std::vector<std::set<std::string>> open;
  bool repeated = false;
  json::parser_callback_t watch = [&](int, json::parse_event_t event, json& parsed) {
    if (event == json::parse_event_t::object_start) open.emplace_back();
    else if (event == json::parse_event_t::object_end && !open.empty()) open.pop_back();
    else if (event == json::parse_event_t::key && !open.empty() && !open.back().insert(parsed.get<std::string>()).second)
      repeated = true;
    return true;
  };
  json document = json::parse(text, watch, false);
  if (document.is_discarded() || repeated || !document.is_object()) throw NotPlain{};
  return document;
}

class Reader {
 public:
  Reader(std::string path, const json& document) : path_(std::move(path)), doc_(document) {
    const std::size_t slash = path_.find_last_of("\\/");
    folder_ = slash == std::string::npos ? std::string() : path_.substr(0, slash + 1);
  }
  ~Reader() {
    for (const Mapped& m : mapped_)
      if (m.data != nullptr) ::munmap(const_cast<unsigned char*>(m.data), m.length);
  }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  OwnScene read() {
    objectOf(doc_, {"asset", "scene", "scenes", "nodes", "meshes", "materials", "accessors", "bufferViews", "buffers",
                    "extensionsUsed"});
    const json& asset = objectOf(at(doc_, "asset"), {"version", "generator", "copyright"});
    const json& version = at(asset, "version");
    if (!version.is_string() || !version.get<std::string>().starts_with('2')) throw NotPlain{};
    if (const json* used = find(doc_, "extensionsUsed")) {
      if (!used->is_array()) throw NotPlain{};
      for (const json& name : *used) {
        if (!name.is_string()) throw NotPlain{};
        const std::string text = name.get<std::string>();
        // The library reads the one; the other marks polygons its reader does not rebuild.
        if (text == "KHR_materials_pbrSpecularGlossiness") specularGlossiness_ = true;
        else if (text != "FB_ngon_encoding") throw NotPlain{};
      }
    }
    nodes_ = arrayOf("nodes");
    meshes_ = arrayOf("meshes");
    materials_ = arrayOf("materials");
    accessors_ = arrayOf("accessors");
    views_ = arrayOf("bufferViews");
    buffers_ = arrayOf("buffers");
    mapped_.resize(buffers_->size());
    const unsigned sceneIndex = find(doc_, "scene") ? indexOf(doc_.at("scene")) : 0;
    const json* scenes = find(doc_, "scenes");
    if (scenes == nullptr || !scenes->is_array() || sceneIndex >= scenes->size()) throw NotPlain{};
    const json& scene = objectOf((*scenes)[sceneIndex], {"nodes", "name"});
    if (const json* top = find(scene, "nodes")) {
      if (!top->is_array()) throw NotPlain{};
      for (const json& n : *top) top_.push_back(indexOf(n));
    }
    visitTree();
    if (meshOrder_.empty()) throw NotPlain{};  // the library marks such a scene incomplete; its rules apply
    return build();
  }

 private:
  struct Mapped {
    const unsigned char* data = nullptr;
    std::size_t length = 0;  // of the mapping
    std::size_t stated = 0;  // the buffer's byteLength
  };
  struct View {
    const unsigned char* data;  // the first byte the accessor reads
    std::size_t count, size, stride;  // elements, bytes each, bytes from one to the next
  };

  static const json& at(const json& object, const char* key) {
    const json* value = find(object, key);
    if (value == nullptr) throw NotPlain{};
    return *value;
  }

  const json* arrayOf(const char* key) const {
    const json* value = find(doc_, key);
    if (value == nullptr) return &empty_;
    if (!value->is_array()) throw NotPlain{};
    return value;
  }

  // Nodes as the library comes upon them: each top node's subtree, a node's
  // children before its mesh; a mesh's materials when the mesh is read.
  void visitTree() {
    std::vector<char> seen(nodes_->size(), 0);
    struct Frame {
      unsigned node;
      std::size_t next;
      int depth;
    };
    std::vector<Frame> stack;
    int deepest = 0;
    for (const unsigned root : top_) {
      enter(root, seen);
      stack.push_back({root, 0, 1});
      while (!stack.empty()) {
        const Frame frame = stack.back();
        const json& node = (*nodes_)[frame.node];
        const json* children = find(node, "children");
        if (children != nullptr && frame.next < children->size()) {
          stack.back().next += 1;
          const unsigned child = indexOf((*children)[frame.next]);
          enter(child, seen);
          deepest = std::max(deepest, frame.depth + 1);
          // One top node is the library's root; several hang below one it makes.
          refuseDeepNesting(path_, top_.size() == 1 ? deepest - 1 : deepest);
          stack.push_back({child, 0, frame.depth + 1});
          continue;
        }
        if (const json* mesh = find(node, "mesh")) visitMesh(indexOf(*mesh));
        stack.pop_back();
      }
    }
  }

  // A node named twice (by two parents, or as its own ancestor) becomes two
  // nodes in the library's scene, or none: left to it.
  void enter(unsigned node, std::vector<char>& seen) const {
    if (node >= nodes_->size() || seen[node]) throw NotPlain{};
    seen[node] = 1;
    const json& n = objectOf((*nodes_)[node], {"name", "children", "matrix", "translation", "rotation", "scale", "mesh"});
    if (const json* children = find(n, "children"); children != nullptr && !children->is_array()) throw NotPlain{};
    if (find(n, "matrix") && (find(n, "translation") || find(n, "rotation") || find(n, "scale"))) throw NotPlain{};
  }

  void visitMesh(unsigned mesh) {
    if (mesh >= meshes_->size()) throw NotPlain{};
    if (meshSlot_.count(mesh)) return;
    meshSlot_[mesh] = static_cast<unsigned>(meshOrder_.size());
    meshOrder_.push_back(mesh);
    const json& m = objectOf((*meshes_)[mesh], {"name", "primitives"});
    const json& primitives = at(m, "primitives");
    if (!primitives.is_array() || primitives.empty()) throw NotPlain{};
    for (const json& p : primitives) {
      objectOf(p, {"attributes", "indices", "material", "mode"});
      if (const json* material = find(p, "material")) {
        const unsigned k = indexOf(*material);
        if (k >= materials_->size()) throw NotPlain{};
        if (!materialSlot_.count(k)) {
          materialSlot_[k] = static_cast<unsigned>(materialOrder_.size());
          materialOrder_.push_back(k);
        }
      }
    }
  }

  // The buffer's bytes, mapped on first use: the library reads the ones an
  // accessor names, and only those files are opened.
  const Mapped& buffer(unsigned index) {
    if (index >= buffers_->size()) throw NotPlain{};
    Mapped& m = mapped_[index];
    if (m.data != nullptr) return m;
    const json& b = objectOf((*buffers_)[index], {"uri", "byteLength", "name"});
    const json& uri = at(b, "uri");
    m.stated = sizeOr(b, "byteLength", 0);
    if (!uri.is_string() || m.stated == 0) throw NotPlain{};
    const std::string name = uri.get<std::string>();
    // A plain relative name: data, other schemes, escapes and absolute paths are the library's.
    if (name.empty() || name.find_first_of(":%\\") != std::string::npos || name.front() == '/' ||
        name.find('\0') != std::string::npos)
      throw NotPlain{};
    const std::string file = folder_ + name;
    const hostmodel::RegularFile opened(file);
    if (!opened.ok() || opened.size() < m.stated) throw NotPlain{};
    void* at = ::mmap(nullptr, m.stated, PROT_READ, MAP_PRIVATE | MAP_POPULATE, opened.descriptor(), 0);
    if (at == MAP_FAILED) throw NotPlain{};
    m.data = static_cast<const unsigned char*>(at);
    m.length = m.stated;
    hostmodel::noteFileRead(file);
    return m;
  }

  // An accessor of `components` values of `componentType`, all inside its view and buffer.
  View accessor(unsigned index, std::initializer_list<unsigned> types, std::initializer_list<const char*> shapes) {
    if (index >= accessors_->size()) throw NotPlain{};
    const json& a = objectOf((*accessors_)[index],
                             {"bufferView", "byteOffset", "componentType", "count", "type", "normalized", "max", "min", "name"});
    if (const json* normalized = find(a, "normalized"); normalized != nullptr && *normalized != false) throw NotPlain{};
    const unsigned componentType = indexOf(at(a, "componentType"));
    if (std::find(types.begin(), types.end(), componentType) == types.end()) throw NotPlain{};
    const json& type = at(a, "type");
    if (!type.is_string()) throw NotPlain{};
    const std::string shape = type.get<std::string>();
    if (std::none_of(shapes.begin(), shapes.end(), [&](const char* s) { return shape == s; })) throw NotPlain{};
    const std::size_t components = shape == "SCALAR" ? 1 : shape == "VEC2" ? 2 : shape == "VEC3" ? 3 : 4;
    const std::size_t bytes = componentType == kUnsignedByte ? 1 : componentType == kUnsignedShort ? 2 : 4;
    const std::size_t count = sizeOr(a, "count", 0);
    const std::size_t offset = sizeOr(a, "byteOffset", 0);
    const unsigned viewIndex = indexOf(at(a, "bufferView"));
    if (viewIndex >= views_->size() || count == 0) throw NotPlain{};
    const json& v = objectOf((*views_)[viewIndex], {"buffer", "byteOffset", "byteLength", "byteStride", "target", "name"});
    const std::size_t viewOffset = sizeOr(v, "byteOffset", 0), viewLength = sizeOr(v, "byteLength", 0);
    const std::size_t size = components * bytes;
    const std::size_t given = sizeOr(v, "byteStride", 0);
    const std::size_t stride = given != 0 ? given : size;
    if (stride < size || stride > 252) throw NotPlain{};
    const Mapped& m = buffer(indexOf(at(v, "buffer")));
    // Each bound is checked by subtraction, which cannot overflow: every term is inside the one before.
    if (viewOffset > m.stated || viewLength > m.stated - viewOffset || offset > viewLength ||
        size > viewLength - offset || count - 1 > (viewLength - offset - size) / stride)
      throw NotPlain{};
    return {m.data + viewOffset + offset, count, size, stride};
  }

  // Each element copied as the library's ExtractData does: its bytes to the
  // start of a value-initialised T.
  template <typename T>
  static T* extract(const View& view) {
    auto* out = new T[view.count];
    if (view.size == sizeof(T) && view.stride == sizeof(T)) {
      std::memcpy(out, view.data, view.count * sizeof(T));
      return out;
    }
    for (std::size_t i = 0; i < view.count; ++i) std::memcpy(&out[i], view.data + i * view.stride, view.size);
    return out;
  }

  // Copies the indices into `out` and answers the largest: one pass, each
  // index size read as itself.
  template <typename Index>
  static std::uint32_t copyIndices(const View& view, unsigned* out) {
    std::uint32_t largest = 0;
    const unsigned char* p = view.data;
    for (std::size_t i = 0; i < view.count; ++i, p += view.stride) {
      Index v;
      std::memcpy(&v, p, sizeof v);
      out[i] = v;
      largest = std::max<std::uint32_t>(largest, v);
    }
    return largest;
  }

  aiMesh* makeMesh(const json& primitive, const std::string& name) {
    auto* mesh = new aiMesh;
    try {
      fillMesh(*mesh, primitive, name);
    } catch (...) {
      deleteOwnMesh(mesh);
      throw;
    }
    return mesh;
  }

  void fillMesh(aiMesh& mesh, const json& primitive, const std::string& name) {
    mesh.mName.Set(name);
    if (sizeOr(primitive, "mode", kTriangles) != kTriangles) throw NotPlain{};
    mesh.mPrimitiveTypes = aiPrimitiveType_TRIANGLE;
    const json& attributes = objectOf(at(primitive, "attributes"), {"POSITION", "NORMAL", "TEXCOORD_0", "COLOR_0"});
    const View positions = accessor(indexOf(at(attributes, "POSITION")), {kFloat}, {"VEC3"});
    const std::size_t vertices = positions.count;
    if (vertices > UINT32_MAX / 4) throw NotPlain{};
    const auto same = [&](const View& v) {
      if (v.count != vertices) throw NotPlain{};  // the library drops it with a warning
      return v;
    };
    std::optional<View> normals, uvs, colours;
    if (const json* n = find(attributes, "NORMAL")) normals = same(accessor(indexOf(*n), {kFloat}, {"VEC3"}));
    if (const json* t = find(attributes, "TEXCOORD_0")) uvs = same(accessor(indexOf(*t), {kFloat}, {"VEC2"}));
    if (const json* c = find(attributes, "COLOR_0")) colours = same(accessor(indexOf(*c), {kFloat}, {"VEC3", "VEC4"}));
    std::optional<View> indices;
    if (const json* i = find(primitive, "indices"))
      indices = accessor(indexOf(*i), {kUnsignedByte, kUnsignedShort, kUnsignedInt}, {"SCALAR"});
    const std::size_t corners = indices ? indices->count : vertices;
    // The library drops a short last triangle and a triangle naming a vertex
    // that is not there, with a warning: such files are its own.
    if (corners % 3 != 0 || corners == 0) throw NotPlain{};

    mesh.mNumVertices = static_cast<unsigned>(vertices);
    mesh.mVertices = extract<aiVector3D>(positions);
    if (normals) mesh.mNormals = extract<aiVector3D>(*normals);
    if (colours) mesh.mColors[0] = extract<aiColor4D>(*colours);
    if (uvs) {
      mesh.mTextureCoords[0] = extract<aiVector3D>(*uvs);
      mesh.mNumUVComponents[0] = 2;
      for (std::size_t v = 0; v < vertices; ++v) mesh.mTextureCoords[0][v].y = 1 - mesh.mTextureCoords[0][v].y;
    }
    unsigned* out = allocateTriangles(mesh, corners / 3);
    if (indices) {
      const std::uint32_t largest = indices->size == 1   ? copyIndices<std::uint8_t>(*indices, out)
                                    : indices->size == 2 ? copyIndices<std::uint16_t>(*indices, out)
                                                         : copyIndices<std::uint32_t>(*indices, out);
      if (largest >= vertices) throw NotPlain{};
    } else {
      for (std::size_t i = 0; i < corners; ++i) out[i] = static_cast<unsigned>(i);
    }
    const json* material = find(primitive, "material");
    mesh.mMaterialIndex = material ? materialSlot_.at(indexOf(*material)) : static_cast<unsigned>(materialOrder_.size());
  }

  // The library's material of colours: diffuse and base colour the base
  // colour factor, or the specular-glossiness diffuse and specular factors
  // where the file uses that extension. What it sets besides (metallic and
  // roughness factors, emission, transparency) the front end does not read.
  aiMaterial* makeMaterial(const json* source) const {
    aiColor4D base(1, 1, 1, 1);
    std::optional<aiColor4D> diffuse, specular;
    std::string name;
    if (source != nullptr) {
      const json& m = objectOf(*source, {"name", "pbrMetallicRoughness", "emissiveFactor", "alphaMode", "alphaCutoff",
                                         "doubleSided", "extensions"});
      name = nameOf(m);
      if (const json* pbr = find(m, "pbrMetallicRoughness")) {
        objectOf(*pbr, {"baseColorFactor", "metallicFactor", "roughnessFactor"});
        if (const json* factor = find(*pbr, "baseColorFactor")) {
          const auto c = floatsOf<4>(*factor);
          base = aiColor4D(c[0], c[1], c[2], c[3]);
        }
      }
      if (const json* extensions = find(m, "extensions")) {
        objectOf(*extensions, {"KHR_materials_pbrSpecularGlossiness"});
        const json& sg = objectOf(at(*extensions, "KHR_materials_pbrSpecularGlossiness"),
                                  {"diffuseFactor", "specularFactor", "glossinessFactor"});
        // Read only where the file lists the extension as used, as the library does.
        if (specularGlossiness_) {
          diffuse = aiColor4D(1, 1, 1, 1);
          specular = aiColor4D(1, 1, 1, 1);
          if (const json* factor = find(sg, "diffuseFactor")) {
            const auto c = floatsOf<4>(*factor);
            diffuse = aiColor4D(c[0], c[1], c[2], c[3]);
          }
          if (const json* factor = find(sg, "specularFactor")) {
            const auto c = floatsOf<3>(*factor);
            specular = aiColor4D(c[0], c[1], c[2], 1);
          }
        }
      }
    }
    auto* out = new aiMaterial;
    if (!name.empty()) {
      const aiString text(name);
      out->AddProperty(&text, AI_MATKEY_NAME);
    }
    out->AddProperty(diffuse ? &*diffuse : &base, 1, AI_MATKEY_COLOR_DIFFUSE);
    out->AddProperty(&base, 1, AI_MATKEY_BASE_COLOR);
    if (specular) out->AddProperty(&*specular, 1, AI_MATKEY_COLOR_SPECULAR);
    return out;
  }

  // The node's transform as the library composes it.
  static aiMatrix4x4 transformOf(const json& node) {
    aiMatrix4x4 matrix;
    if (const json* m = find(node, "matrix")) {
      const auto v = floatsOf<16>(*m);
      matrix = aiMatrix4x4(v[0], v[4], v[8], v[12], v[1], v[5], v[9], v[13], v[2], v[6], v[10], v[14], v[3], v[7],
                           v[11], v[15]);
      return matrix;
    }
    if (const json* t = find(node, "translation")) {
      const auto v = floatsOf<3>(*t);
      aiMatrix4x4 move;
      aiMatrix4x4::Translation(aiVector3D(v[0], v[1], v[2]), move);
      matrix = matrix * move;
    }
    if (const json* r = find(node, "rotation")) {
      const auto v = floatsOf<4>(*r);
      aiQuaternion turn;
      turn.x = v[0], turn.y = v[1], turn.z = v[2], turn.w = v[3];
      matrix = matrix * aiMatrix4x4(turn.GetMatrix());
    }
    if (const json* s = find(node, "scale")) {
      const auto v = floatsOf<3>(*s);
      aiMatrix4x4 scale;
      aiMatrix4x4::Scaling(aiVector3D(v[0], v[1], v[2]), scale);
      matrix = matrix * scale;
    }
    return matrix;
  }

  static std::string idOf(const json& object, const char* dictionary, unsigned index) {
    std::string name = nameOf(object);
    return name.empty() ? std::string(dictionary) + "[" + std::to_string(index) + "]" : name;
  }

  OwnScene build() {
    OwnScene scene(new aiScene);
    // Materials: the file's in the order first named, then the library's default.
    const std::size_t materialCount = materialOrder_.size() + 1;
    scene->mMaterials = new aiMaterial*[materialCount]();
    for (std::size_t i = 0; i < materialOrder_.size(); ++i) {
      scene->mMaterials[i] = makeMaterial(&(*materials_)[materialOrder_[i]]);
      scene->mNumMaterials = static_cast<unsigned>(i + 1);
    }
    scene->mMaterials[materialOrder_.size()] = makeMaterial(nullptr);
    scene->mNumMaterials = static_cast<unsigned>(materialCount);

    // Meshes: a primitive each, named after their mesh, numbered when it has several.
    std::vector<unsigned> offsets;
    std::size_t meshCount = 0;
    for (const unsigned m : meshOrder_) {
      offsets.push_back(static_cast<unsigned>(meshCount));
      meshCount += (*meshes_)[m].at("primitives").size();
    }
    offsets.push_back(static_cast<unsigned>(meshCount));
    scene->mMeshes = new aiMesh*[meshCount]();
    for (const unsigned m : meshOrder_) {
      const json& mesh = (*meshes_)[m];
      const std::string name = idOf(mesh, "meshes", m);
      const json& primitives = mesh.at("primitives");
      for (std::size_t p = 0; p < primitives.size(); ++p) {
        const std::string own = primitives.size() > 1 ? name + "-" + std::to_string(p) : name;
        scene->mMeshes[scene->mNumMeshes] = makeMesh(primitives[p], own);
        scene->mNumMeshes += 1;
      }
    }

    // Nodes: one top node is the root; several hang below a "ROOT" of the library's.
    auto make = [&](unsigned index) {
      const json& node = (*nodes_)[index];
      const aiMatrix4x4 transform = transformOf(node);
      const std::string name = idOf(node, "nodes", index);
      auto* made = new aiNode(name);
      made->mTransformation = transform;
      if (const json* mesh = find(node, "mesh")) {
        const unsigned slot = meshSlot_.at(indexOf(*mesh));
        made->mNumMeshes = offsets[slot + 1] - offsets[slot];
        made->mMeshes = new unsigned[made->mNumMeshes];
        for (unsigned k = 0; k < made->mNumMeshes; ++k) made->mMeshes[k] = offsets[slot] + k;
      }
      return made;
    };
    std::vector<std::pair<aiNode*, unsigned>> pending;  // made, its index in the file
    if (top_.size() == 1) {
      scene->mRootNode = make(top_[0]);
      pending.emplace_back(scene->mRootNode, top_[0]);
    } else {
      scene->mRootNode = new aiNode("ROOT");
      scene->mRootNode->mChildren = new aiNode*[top_.size()];
      for (const unsigned index : top_) {
        aiNode* child = make(index);
        child->mParent = scene->mRootNode;
        scene->mRootNode->mChildren[scene->mRootNode->mNumChildren++] = child;
        pending.emplace_back(child, index);
      }
    }
    while (!pending.empty()) {
      const auto [parent, index] = pending.back();
      pending.pop_back();
      const json* children = find((*nodes_)[index], "children");
      if (children == nullptr || children->empty()) continue;
      parent->mChildren = new aiNode*[children->size()];
      for (const json& c : *children) {
        aiNode* child = make(indexOf(c));
        child->mParent = parent;
        parent->mChildren[parent->mNumChildren++] = child;
        pending.emplace_back(child, indexOf(c));
      }
    }
    return scene;
  }

  std::string path_, folder_;
  const json& doc_;
  const json* nodes_ = nullptr;
  const json* meshes_ = nullptr;
  const json* materials_ = nullptr;
  const json* accessors_ = nullptr;
  const json* views_ = nullptr;
  const json* buffers_ = nullptr;
  const json empty_ = json::array();
  bool specularGlossiness_ = false;
  std::vector<unsigned> top_;
  std::vector<Mapped> mapped_;
  std::map<unsigned, unsigned> meshSlot_, materialSlot_;  // file index to the library's
  std::vector<unsigned> meshOrder_, materialOrder_;       // the library's order, as file indices
};

}  // namespace

OwnScene readPlainGltf(const std::string& path) {
  hostmodel::RegularFile file(path);
  if (!file.ok() || file.size() == 0) return nullptr;
  std::string text(file.size(), '\0');
  if (!file.readAll(text.data())) return nullptr;
  try {
    const json document = parseDocument(text);
    std::string().swap(text);
    Reader reader(path, document);
    return reader.read();
  } catch (const NotPlain&) {
    return nullptr;
  }
}

}  // namespace hostimport
