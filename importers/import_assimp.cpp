// Every other format, through assimp. Assimp hands scenes over Y-up with
// normals per corner; both are converted here (docs/import.md): the Y-up frame
// is turned onto the host's Z-up frame at the top of the tree, and smoothing
// groups are derived from the normals.
#include <assimp/DefaultIOSystem.h>
#include <assimp/DefaultLogger.hpp>
#include <assimp/LogStream.hpp>
#include <assimp/Importer.hpp>
#include <assimp/postprocess.h>
#include <assimp/scene.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <numeric>
#include <optional>
#include <set>

#include "importers/models_module.h"
#include "importers/gltf_reader.h"
#include "importers/obj_reader.h"
#include "format/output_files.h"
#include "importers/smoothing_from_normals.h"
#include "importers/texture_files.h"
#include "host/inhouse/text.h"
#include "host/memory/file_reads.h"
#include "host/memory/memory_host.h"
#include "host/memory/rotation_math.h"

namespace hostimport {

using nlohmann::json;

namespace {

constexpr int kFrameRate = 30;
constexpr int kTicksPerSecond = 4800;
// Assimp's own default when a file gives no rate.
constexpr double kDefaultAnimationTicksPerSecond = 25.0;
// The most samples a second the export takes (options/option_fields.h).
constexpr long long kMostSampleRate = 500;

Matrix3 toMatrix(const aiMatrix4x4& m) {
  // Assimp's matrices act on column vectors: their columns are our rows.
  return Matrix3({m.a1, m.b1, m.c1}, {m.a2, m.b2, m.c2}, {m.a3, m.b3, m.c3}, {m.a4, m.b4, m.c4});
}

// Y-up to Z-up: a turn of +90 degrees about X, (x, y, z) -> (x, -z, y).
Matrix3 yUpToZUp() { return Matrix3({1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {0, 0, 0}); }

json colour(const aiColor3D& c) { return json::array({c.r, c.g, c.b}); }

// The tree's nodes depth first, children in order, walked without recursion:
// a generated or damaged file may nest nodes thousands of levels deep.
template <typename Node>
std::vector<Node*> preorder(Node& root) {
  std::vector<Node*> out, stack{&root};
  while (!stack.empty()) {
    Node* node = stack.back();
    stack.pop_back();
    out.push_back(node);
    for (unsigned i = node->mNumChildren; i-- > 0;) stack.push_back(node->mChildren[i]);
  }
  return out;
}

// How many levels below the root its deepest node lies; past the scene
// loader's bound the count ends there, as the model is refused anyway.
int levelsBelow(const aiNode& root) {
  int deepest = 0;
  std::vector<std::pair<const aiNode*, int>> stack{{&root, 0}};
  while (!stack.empty()) {
    const auto [node, level] = stack.back();
    stack.pop_back();
    deepest = std::max(deepest, level);
    if (deepest > hostmodel::kMaxNodeDepth) break;
    for (unsigned i = 0; i < node->mNumChildren; ++i) stack.emplace_back(node->mChildren[i], level + 1);
  }
  return deepest;
}

// The root node becomes a node of the host's scene when it holds something
// of its own (a mesh, a camera, a light, keys of the clip taken); otherwise
// it is the host's scene root and its children are the top nodes.
bool rootIsANode(const aiScene& scene) {
  const aiNode& root = *scene.mRootNode;
  const std::string name = root.mName.C_Str();
  auto named = [&](auto* const* items, unsigned count) {
    return std::any_of(items, items + count, [&](const auto* item) { return name == item->mName.C_Str(); });
  };
  if (root.mNumMeshes > 0 || named(scene.mCameras, scene.mNumCameras) || named(scene.mLights, scene.mNumLights))
    return true;
  if (scene.mNumAnimations == 0) return false;
  const aiAnimation& anim = *scene.mAnimations[0];
  return std::any_of(anim.mChannels, anim.mChannels + anim.mNumChannels,
                     [&](const aiNodeAnim* channel) { return name == channel->mNodeName.C_Str(); });
}

// A frame looking along `direction` with `up` roughly up, as the host's cameras
// and lights do: down their -Z, Y up.
Matrix3 viewFrame(const aiVector3D& position, aiVector3D direction, aiVector3D up) {
  direction.Normalize();
  Point3 z{-direction.x, -direction.y, -direction.z};
  Point3 y{up.x, up.y, up.z};
  y = y - z * DotProd(y, z);
  if (DotProd(y, y) < 1e-12f) y = std::fabs(z.y) < 0.9f ? Point3{0, 1, 0} : Point3{1, 0, 0};
  y = y - z * DotProd(y, z);
  y = y * (1 / std::sqrt(DotProd(y, y)));
  const Point3 x = CrossProd(y, z);
  return Matrix3(x, y, z, {position.x, position.y, position.z});
}

bool isIdentity(const Matrix3& m) {
  const Matrix3 id;
  for (int i = 0; i < 4; ++i) {
    const Point3 d = m.GetRow(i) - id.GetRow(i);
    if (std::fabs(d.x) > 1e-6f || std::fabs(d.y) > 1e-6f || std::fabs(d.z) > 1e-6f) return false;
  }
  return true;
}

struct Converter {
  Converter(const ImportRequest& r, const aiScene& s) : request(r), scene(s), builder(r.bufferName, !r.sceneFile) {}
  const ImportRequest& request;
  const aiScene& scene;
  SceneBuilder builder;
  std::vector<std::string> materialIds;        // by assimp material index
  json materials = json::array();
  std::set<std::string> materialNames;
  std::map<std::string, std::string> nodeIds;  // assimp node name -> id of the first node of that name
  std::map<std::string, const aiCamera*> cameras;
  std::map<std::string, const aiLight*> lights;
  std::map<std::string, const aiNodeAnim*> channels;
  double animationTicksPerSecond = kDefaultAnimationTicksPerSecond;
  int lastFrame = 0;
  int frameRate = kFrameRate;  // the scene's, which the export samples at by default
  int sourceFrameRate = 0;  // 0: its keys lie on no whole frames of a rate the export can sample at

  // The rate of the frames the clip's keys lie on: its ticks a second when
  // every key lies on a whole tick, less where they all fall on every n-th
  // (a clip of 1000 ticks a second keyed every 40 is of 25 frames a second).
  int frameRateOf(const aiAnimation& anim) const {
    // A rate given as the inverse of a rounded frame time (a BVH file's 0.008333 s) is taken whole.
    const double perSecond = std::round(animationTicksPerSecond);
    if (std::fabs(perSecond - animationTicksPerSecond) > 1e-4 * perSecond || perSecond < 1 || perSecond > 1e6) return 0;
    long long step = 0;
    bool whole = true;
    auto visit = [&](const auto* keys, unsigned count) {
      for (unsigned k = 0; k < count; ++k) {
        const double t = keys[k].mTime, r = std::round(t);
        if (std::fabs(t - r) > 1e-6 * std::max(1.0, std::fabs(t))) whole = false;
        else step = std::gcd(step, std::llabs(static_cast<long long>(r)));
      }
    };
    for (unsigned c = 0; c < anim.mNumChannels; ++c) {
      const aiNodeAnim& ch = *anim.mChannels[c];
      visit(ch.mPositionKeys, ch.mNumPositionKeys);
      visit(ch.mRotationKeys, ch.mNumRotationKeys);
      visit(ch.mScalingKeys, ch.mNumScalingKeys);
    }
    if (whole && step > 0) {
      const auto ticks = static_cast<long long>(perSecond);
      const long long rate = ticks / std::gcd(step, ticks);
      return rate >= 1 && rate <= kMostSampleRate ? static_cast<int>(rate) : 0;
    }
    // Keys off whole ticks (a clip of 1000 ticks a second keyed at 24 frames
    // a second): the fewest frames a second on which they all fall.
    for (long long rate = 1; rate <= kMostSampleRate; ++rate) {
      bool fits = true;
      auto onFrames = [&](const auto* keys, unsigned count) {
        for (unsigned k = 0; fits && k < count; ++k) {
          const double frame = keys[k].mTime / animationTicksPerSecond * static_cast<double>(rate);
          fits = std::fabs(frame - std::round(frame)) < 1e-3;
        }
      };
      for (unsigned c = 0; fits && c < anim.mNumChannels; ++c) {
        const aiNodeAnim& ch = *anim.mChannels[c];
        onFrames(ch.mPositionKeys, ch.mNumPositionKeys);
        onFrames(ch.mRotationKeys, ch.mNumRotationKeys);
        onFrames(ch.mScalingKeys, ch.mNumScalingKeys);
      }
      if (fits) return static_cast<int>(rate);
    }
    return 0;
  }

  std::string uniqueMaterialName(const std::string& wanted) {
    const std::string base = wanted.empty() ? std::string("Material") : wanted;
    std::string name = base;
    for (int n = 2; materialNames.count(name); ++n) name = base + "#" + std::to_string(n);
    materialNames.insert(name);
    return name;
  }

  // --- textures and materials ---

  ModelTextures textures{request.path, request.texturePaths, request.dropMissingTextures};

  // None when the map is left out (texture_files.h).
  std::optional<std::string> texturePath(const std::string& material, const aiString& reference) {
    const auto [embedded, index] = scene.GetEmbeddedTextureAndIndex(reference.C_Str());
    if (!embedded) return textures.find(material, reference.C_Str());
    const std::string stem = std::filesystem::path(request.path).stem().string() + "_texture" + std::to_string(index);
    if (embedded->mHeight == 0) {
      std::string hint = embedded->achFormatHint;
      if (hint.empty() || hint.find_first_not_of("abcdefghijklmnopqrstuvwxyz0123456789") != std::string::npos) hint = "bin";
      return writeEmbeddedTexture(request.textureDir, stem + "." + hint,
                                  reinterpret_cast<const unsigned char*>(embedded->pcData), embedded->mWidth);
    }
    // Raw texels (BGRA in assimp's aiTexel) as an uncompressed 32-bit TGA.
    const std::size_t w = embedded->mWidth, h = embedded->mHeight;
    std::vector<unsigned char> tga(18 + w * h * 4, 0);
    tga[2] = 2;
    tga[12] = static_cast<unsigned char>(w & 0xff), tga[13] = static_cast<unsigned char>(w >> 8);
    tga[14] = static_cast<unsigned char>(h & 0xff), tga[15] = static_cast<unsigned char>(h >> 8);
    tga[16] = 32;
    tga[17] = 0x28;  // 8 alpha bits, first row at the top
    for (std::size_t i = 0; i < w * h; ++i) {
      const aiTexel& t = embedded->pcData[i];
      unsigned char* p = &tga[18 + i * 4];
      p[0] = t.b, p[1] = t.g, p[2] = t.r, p[3] = t.a;
    }
    return writeEmbeddedTexture(request.textureDir, stem + ".tga", tga.data(), tga.size());
  }

  json texmap(const aiMaterial& m, std::initializer_list<aiTextureType> types, const std::string& material,
              const std::string& name) {
    for (aiTextureType type : types) {
      aiString path;
      if (m.GetTextureCount(type) > 0 && m.GetTexture(type, 0, &path) == AI_SUCCESS && path.length > 0) {
        const auto file = texturePath(material, path);
        if (!file) return nullptr;
        return {{"type", "ztTexture"}, {"name", name}, {"params", {{"mapFileName", *file}}}};
      }
    }
    return nullptr;
  }

  // Only materials that a mesh of the tree uses are written: readers add
  // some of their own (a default one, a second of an empty name) that
  // nothing uses.
  std::vector<bool> usedByMeshes() const {
    std::vector<bool> used(scene.mNumMaterials, false);
    for (const aiNode* n : preorder(*scene.mRootNode))
      for (unsigned k = 0; k < n->mNumMeshes; ++k)
        if (const unsigned m = scene.mMeshes[n->mMeshes[k]]->mMaterialIndex; m < used.size()) used[m] = true;
    return used;
  }

  void readMaterials() {
    const std::vector<bool> used = usedByMeshes();
    for (unsigned i = 0; i < scene.mNumMaterials; ++i) {
      const std::string id = "m" + std::to_string(i);
      materialIds.push_back(id);
      if (!used[i]) continue;
      const aiMaterial& m = *scene.mMaterials[i];
      aiString sourceName;
      m.Get(AI_MATKEY_NAME, sourceName);
      const std::string name = uniqueMaterialName(utf8(sourceName.C_Str()));
      // The library's Get overwrites its argument even when the key is missing:
      // colours are read into a scratch value. A material without a diffuse
      // colour takes the library's own default, white, as its conversions do;
      // ambient and specular ones without a value stay black.
      aiColor3D ambient(0, 0, 0), diffuse(1, 1, 1), specular(0, 0, 0), read;
      aiColor4D base;
      if (m.Get(AI_MATKEY_COLOR_DIFFUSE, read) == AI_SUCCESS) diffuse = read;
      else if (m.Get(AI_MATKEY_BASE_COLOR, base) == AI_SUCCESS) diffuse = aiColor3D(base.r, base.g, base.b);
      else
        std::fprintf(stderr, "NOTE: %s: material \"%s\" gives no diffuse colour; the import library's default, white, "
                             "is taken\n", request.path.c_str(), name.c_str());
      if (m.Get(AI_MATKEY_COLOR_AMBIENT, read) == AI_SUCCESS) ambient = read;
      if (m.Get(AI_MATKEY_COLOR_SPECULAR, read) == AI_SUCCESS) specular = read;
      json material = {{"id", id}, {"type", "ztMaterial"}, {"name", name}, {"ambient", colour(ambient)},
                       {"diffuse", colour(diffuse)}, {"specular", colour(specular)}};
      json params = {{"plainLayerMode", 1}};
      json maps = json::array();
      if (json d = texmap(m, {aiTextureType_DIFFUSE, aiTextureType_BASE_COLOR}, name, name + " diffuse"); !d.is_null()) {
        maps.push_back(d);
        params["layer1Flag"] = 1;
      }
      if (json o = texmap(m, {aiTextureType_OPACITY}, name, name + " opacity"); !o.is_null()) {
        while (maps.size() < 4) maps.push_back(nullptr);
        maps.push_back(o);
        params["layer5Flag"] = 1;
        params["diffuseMode"] = 1;  // copying the diffuse layer would hide the mask
      }
      material["params"] = params;
      if (!maps.empty()) material["texmaps"] = maps;
      materials.push_back(material);
    }
  }

  // --- meshes ---

  // The meshes of one node as one host mesh: positions welded (corners at one
  // point name one vertex, so smoothing and skins see the surface whole),
  // texture coordinates and colours kept per assimp vertex.
  json meshNode(const aiNode& node, json& out) {
    MeshArrays a;
    std::vector<float> cornerNormals;
    bool allNormals = true, anyUv = false, anyColour = false;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene.mMeshes[node.mMeshes[k]];
      anyUv = anyUv || mesh.HasTextureCoords(0);
      anyColour = anyColour || mesh.HasVertexColors(0);
      allNormals = allNormals && mesh.HasNormals();
    }
    // Welding by open addressing on the position's bits: one probe or two per
    // vertex, and host vertices numbered in order of first appearance.
    std::size_t sourceCount = 0;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) sourceCount += scene.mMeshes[node.mMeshes[k]]->mNumVertices;
    std::size_t faceCount = 0;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) faceCount += scene.mMeshes[node.mMeshes[k]]->mNumFaces;
    // Every array at its final size (or a bound of it) from the start: a mesh of millions of
    // corners then grows no array by copying.
    a.vertices.reserve(sourceCount * 3);
    a.faces.reserve(faceCount * 3);
    a.materialIds.reserve(faceCount);
    if (anyUv) a.textureVertices.reserve(sourceCount * 3), a.textureFaces.reserve(faceCount * 3);
    // Texture and colour coordinates both go per source vertex, so their faces are the same.
    a.colorFacesAreTextureFaces = anyUv && anyColour;
    if (anyColour) a.vertexColors.reserve(sourceCount * 3);
    if (anyColour && !anyUv) a.colorFaces.reserve(faceCount * 3);
    if (allNormals) cornerNormals.reserve(faceCount * 9);
    std::size_t capacity = 16;
    while (capacity < sourceCount * 2) capacity *= 2;
    // Each slot holds a vertex's number and, above it, 32 bits of its position's hash: a probe that meets
    // another position is told so by the slot alone, without a fetch from the vertex list (a cache miss).
    constexpr std::uint64_t kEmpty = ~std::uint64_t{0};
    std::vector<std::uint64_t> table(capacity, kEmpty);
    std::vector<std::uint16_t> slots;  // per face: which of the node's materials
    std::vector<unsigned> usedMaterials;
    std::vector<std::pair<unsigned, unsigned>> firstSource;
    firstSource.reserve(sourceCount);
    std::uint32_t sourceBase = 0;
    // Welded where the skin binds them, not where the file stores them: some
    // formats keep each bone's vertices in that bone's space, where vertices
    // of different bones coincide.
    const std::vector<std::vector<aiVector3D>> posed = posedAtStart(node);
    // Two vertices at one place but held by different bones (an arm's corner
    // on the body's) move apart once the bones turn: only vertices of the same
    // influences are welded. Influences are numbered, 0 for none.
    std::vector<std::uint32_t> firstInfluence;
    const std::vector<std::vector<std::uint32_t>> influence = influencesOf(node);
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene.mMeshes[node.mMeshes[k]];
      std::vector<std::uint32_t> weld(mesh.mNumVertices);
      // Meshes without bones are welded where the file stores them.
      const aiVector3D* source = posed[k].empty() ? mesh.mVertices : posed[k].data();
      const std::vector<std::uint32_t>& held = influence[k];
      const auto heldBy = [&](unsigned v) { return held.empty() ? 0u : held[v]; };
      const auto hashOf = [](const aiVector3D& p) {
        std::uint32_t bits[3];
        std::memcpy(bits, &p, sizeof bits);
        const std::uint64_t hash = (std::uint64_t{bits[0]} * 73856093u) ^ (std::uint64_t{bits[1]} * 19349663u) ^
                                   (std::uint64_t{bits[2]} * 83492791u);
        return hash ^ (hash >> 29);
      };
      const auto home = [&](const aiVector3D& p) { return static_cast<std::size_t>(hashOf(p)) & (capacity - 1); };
      // The table is far larger than the processor's caches and each lookup lands anywhere in it:
      // the slot of a vertex some way ahead is fetched while this one is looked up.
      constexpr unsigned kAhead = 16;
      for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        if (v + kAhead < mesh.mNumVertices) __builtin_prefetch(&table[home(source[v + kAhead])]);
        const aiVector3D& p = source[v];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
          throw ImportError(request.path + ": mesh \"" + utf8(mesh.mName.C_Str()) + "\": vertex " + std::to_string(v) +
                            " is not a finite number");
        const std::uint64_t hash = hashOf(p);
        const std::uint64_t tag = (hash >> 32) << 32;
        std::size_t slot = static_cast<std::size_t>(hash) & (capacity - 1);
        const std::uint32_t by = heldBy(v);
        const auto other = [&](std::uint64_t entry) {
          if ((entry & ~std::uint64_t{UINT32_MAX}) != tag) return true;
          const std::size_t at = entry & UINT32_MAX;
          return std::memcmp(&a.vertices[at * 3], &p, 12) != 0 || firstInfluence[at] != by;
        };
        while (table[slot] != kEmpty && other(table[slot])) slot = (slot + 1) & (capacity - 1);
        if (table[slot] == kEmpty) {
          table[slot] = tag | (a.vertices.size() / 3);
          a.vertices.insert(a.vertices.end(), {p.x, p.y, p.z});
          firstSource.emplace_back(k, v);
          firstInfluence.push_back(by);
        }
        const auto found = static_cast<std::uint32_t>(table[slot] & UINT32_MAX);
        weld[v] = found;
        if (anyUv) {
          const aiVector3D uv = mesh.HasTextureCoords(0) ? mesh.mTextureCoords[0][v] : aiVector3D();
          a.textureVertices.insert(a.textureVertices.end(), {uv.x, uv.y, uv.z});
        }
        if (anyColour) {
          const aiColor4D c = mesh.HasVertexColors(0) ? mesh.mColors[0][v] : aiColor4D(1, 1, 1, 1);
          a.vertexColors.insert(a.vertexColors.end(), {c.r, c.g, c.b});
        }
      }
      auto slot = std::find(usedMaterials.begin(), usedMaterials.end(), mesh.mMaterialIndex);
      if (slot == usedMaterials.end()) slot = usedMaterials.insert(slot, mesh.mMaterialIndex);
      for (unsigned f = 0; f < mesh.mNumFaces; ++f) {
        const aiFace& face = mesh.mFaces[f];
        if (face.mNumIndices != 3) continue;  // points and lines have no surface to export
        for (int c = 0; c < 3; ++c) {
          const unsigned v = face.mIndices[c];
          a.faces.push_back(weld[v]);
          if (anyUv) a.textureFaces.push_back(sourceBase + v);
          if (anyColour && !anyUv) a.colorFaces.push_back(sourceBase + v);
          if (allNormals)
            cornerNormals.insert(cornerNormals.end(), {mesh.mNormals[v].x, mesh.mNormals[v].y, mesh.mNormals[v].z});
        }
        a.materialIds.push_back(static_cast<std::uint16_t>(slot - usedMaterials.begin()));
      }
      sourceBase += mesh.mNumVertices;
    }
    // Without normals nothing says where edges are hard: the surface is smooth.
    a.smoothingGroups = allNormals ? smoothingFromNormals(a.faces, cornerNormals, a.vertices.size() / 3)
                                   : std::vector<std::uint32_t>(a.faces.size() / 3, 1u);

    if (usedMaterials.size() == 1) {
      out["material"] = materialIds.at(usedMaterials[0]);
    } else if (usedMaterials.size() > 1) {
      json subs = json::array();
      for (unsigned m : usedMaterials) subs.push_back(materialIds.at(m));
      out["material"] = {{"type", "multi"}, {"name", uniqueMaterialName(out["name"].get<std::string>() + " materials")},
                         {"subMaterials", subs}};
    }
    out["object"] = {{"type", "mesh"}, {"mesh", builder.mesh(std::move(a))}};
    return skin(node, firstSource);
  }

  // A node's transform at the animation's start: its keys there, or its
  // own transform when it has none.
  aiMatrix4x4 localAtStart(const aiNode& node) const {
    const auto channel = channels.find(node.mName.C_Str());
    if (channel == channels.end()) return node.mTransformation;
    const aiNodeAnim& anim = *channel->second;
    aiVector3D scale(1, 1, 1), position;
    aiQuaternion rotation;
    node.mTransformation.Decompose(scale, rotation, position);
    // Keys before the first hold its value, as the host's tracks do.
    auto at = [](const auto* keys, unsigned count, auto fallback) {
      if (count == 0) return fallback;
      unsigned k = 0;
      while (k + 1 < count && keys[k + 1].mTime <= 0) ++k;
      return keys[k].mValue;
    };
    position = at(anim.mPositionKeys, anim.mNumPositionKeys, position);
    rotation = at(anim.mRotationKeys, anim.mNumRotationKeys, rotation);
    scale = at(anim.mScalingKeys, anim.mNumScalingKeys, scale);
    return aiMatrix4x4(scale, rotation.Normalize(), position);
  }

  // Up the tree as the nodes' children lists give it, which is how the host
  // tree is built: a reader may set a node's mParent otherwise (the HL1 MDL
  // one keeps the bones' own chain there while listing them side by side).
  aiMatrix4x4 globalAtStart(const aiNode* node) const {
    aiMatrix4x4 m;
    while (node) {
      m = localAtStart(*node) * m;
      const auto parent = parentOf.find(node);
      node = parent == parentOf.end() ? nullptr : parent->second;
    }
    return m;
  }

  // Per mesh of the node, per vertex, a number for the set of bones and
  // weights that hold it: equal numbers, equal influences; 0 for none. Empty
  // for a mesh without bones.
  std::vector<std::vector<std::uint32_t>> influencesOf(const aiNode& node) const {
    std::vector<std::vector<std::uint32_t>> out;
    std::map<std::vector<std::pair<std::string, float>>, std::uint32_t> numbers;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene.mMeshes[node.mMeshes[k]];
      out.emplace_back();
      if (mesh.mNumBones == 0) continue;
      std::vector<std::vector<std::pair<std::string, float>>> links(mesh.mNumVertices);
      for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        for (unsigned w = 0; w < bone.mNumWeights; ++w)
          if (bone.mWeights[w].mVertexId < mesh.mNumVertices)
            links[bone.mWeights[w].mVertexId].emplace_back(bone.mName.C_Str(), bone.mWeights[w].mWeight);
      }
      out.back().resize(mesh.mNumVertices);
      for (unsigned v = 0; v < mesh.mNumVertices; ++v) {
        if (links[v].empty()) continue;
        std::sort(links[v].begin(), links[v].end());
        out.back()[v] = numbers.emplace(std::move(links[v]), static_cast<std::uint32_t>(numbers.size() + 1)).first->second;
      }
    }
    return out;
  }

  // The host knows no bind pose of its own: its skin binds the mesh in the
  // pose the scene has at the animation's start, as an evaluated skinned mesh
  // would stand there. So each skinned vertex of the node's meshes is put
  // where its bones hold it at the start (offset matrices, then the bones'
  // transforms at the start, blended by weight), back in the mesh node's
  // space. Vertices no bone holds stay as they are.
  std::vector<std::vector<aiVector3D>> posedAtStart(const aiNode& node) const {
    std::vector<std::vector<aiVector3D>> out;
    // Up the whole tree, so only for a node whose meshes have bones: a chain
    // of a thousand mesh nodes would otherwise walk it a thousand times.
    std::optional<aiMatrix4x4> back;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene.mMeshes[node.mMeshes[k]];
      if (mesh.mNumBones == 0) {
        out.emplace_back();  // nothing moves it: the file's own vertices serve
        continue;
      }
      if (!back) back = globalAtStart(&node).Inverse();
      std::vector<aiVector3D> sum(mesh.mNumVertices);
      std::vector<float> total(mesh.mNumVertices, 0.0f);
      for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const aiNode* boneNode = scene.mRootNode->FindNode(bone.mName);
        if (!boneNode) continue;
        const aiMatrix4x4 move = globalAtStart(boneNode) * bone.mOffsetMatrix;
        for (unsigned w = 0; w < bone.mNumWeights; ++w) {
          const aiVertexWeight& vw = bone.mWeights[w];
          if (vw.mVertexId >= mesh.mNumVertices) continue;
          sum[vw.mVertexId] += (move * mesh.mVertices[vw.mVertexId]) * vw.mWeight;
          total[vw.mVertexId] += vw.mWeight;
        }
      }
      std::vector<aiVector3D> posed(mesh.mVertices, mesh.mVertices + mesh.mNumVertices);
      for (unsigned v = 0; v < mesh.mNumVertices; ++v)
        if (total[v] > 0) posed[v] = *back * (sum[v] / total[v]);
      out.push_back(std::move(posed));
    }
    return out;
  }

  // The skin's vertices, one per host vertex: blended rigid from the bones of
  // the node's meshes; bound to the node itself where no bone holds them.
  json skin(const aiNode& node, const std::vector<std::pair<unsigned, unsigned>>& firstSource) {
    const std::string& self = idOf.at(&node);
    std::map<std::pair<unsigned, unsigned>, std::vector<std::pair<std::string, float>>> weights;
    for (unsigned k = 0; k < node.mNumMeshes; ++k) {
      const aiMesh& mesh = *scene.mMeshes[node.mMeshes[k]];
      for (unsigned b = 0; b < mesh.mNumBones; ++b) {
        const aiBone& bone = *mesh.mBones[b];
        const auto id = nodeIds.find(bone.mName.C_Str());
        if (id == nodeIds.end()) continue;
        for (unsigned w = 0; w < bone.mNumWeights; ++w)
          weights[{k, bone.mWeights[w].mVertexId}].emplace_back(id->second, bone.mWeights[w].mWeight);
      }
    }
    if (weights.empty()) return builder.rigidPhysique(self, firstSource.size());
    Skin out;
    std::vector<std::pair<std::uint32_t, float>> links;
    for (const auto& source : firstSource) {
      const auto it = weights.find(source);
      if (it == weights.end()) {
        out.rigid(out.bone(self));  // no bone holds it: it moves with its node
        continue;
      }
      links.clear();
      for (const auto& [bone, weight] : it->second) links.emplace_back(out.bone(bone), weight);
      out.blended(links);
    }
    return builder.physique(std::move(out));
  }

  // --- animation ---

  int tick(double time) const {
    return static_cast<int>(std::lround(time / animationTicksPerSecond * kTicksPerSecond));
  }

  // Keys of one track, their times rounded to host ticks; a key that lands on
  // the tick of the one before it is dropped.
  template <typename Key, typename Convert>
  json keys(const Key* source, unsigned count, Convert convert) {
    json out = json::array();
    int last = INT32_MIN;
    for (unsigned i = 0; i < count; ++i) {
      const int t = tick(source[i].mTime);
      if (t <= last) continue;
      last = t;
      out.push_back({{"tick", t}, {"value", convert(source[i].mValue)}});
    }
    return out;
  }

  // The node's local transform; `frame` (the turn onto Z-up and what the
  // root holds) is applied after it, for nodes at the top of the tree.
  json transform(const aiNode& node, const Matrix3& frame, bool top) {
    const Matrix3 local = toMatrix(node.mTransformation);
    const auto channel = channels.find(node.mName.C_Str());
    if (channel == channels.end()) return fixedTransform(top ? local * frame : local);
    const aiNodeAnim& anim = *channel->second;
    // The top frame is a turn, a uniform scale and a move; it goes into the
    // keys as such.
    const Decomposed f = decompose(frame);
    const float s = f.scale.x;
    Matrix3 turn = QuatToMatrix(f.rotation);
    const Decomposed still = decompose(local);
    auto position = [&](const aiVector3D& p) {
      const Point3 q{p.x, p.y, p.z};
      return point(top ? (q * turn) * s + f.position : q);
    };
    auto rotation = [&](const aiQuaternion& r) {
      const Quat q = hostmodel::normalized(Quat{r.x, r.y, r.z, r.w});
      return quat(top ? hostmodel::quatFromMatrix(QuatToMatrix(q) * turn) : q);
    };
    auto scale = [&](const aiVector3D& v) { return point(Point3{v.x, v.y, v.z} * (top ? s : 1.0f)); };
    json out = json::object();
    out["position"] = anim.mNumPositionKeys ? json{{"keys", keys(anim.mPositionKeys, anim.mNumPositionKeys, position)}}
                                            : position({still.position.x, still.position.y, still.position.z});
    out["rotation"] = anim.mNumRotationKeys ? json{{"keys", keys(anim.mRotationKeys, anim.mNumRotationKeys, rotation)}}
                                            : rotation({still.rotation.w, still.rotation.x, still.rotation.y, still.rotation.z});
    out["scale"] = anim.mNumScalingKeys ? json{{"keys", keys(anim.mScalingKeys, anim.mNumScalingKeys, scale)}}
                                        : scale({still.scale.x, still.scale.y, still.scale.z});
    return out;
  }

  // --- nodes ---

  void nameNodes(const aiNode& root) {
    for (const aiNode* node : preorder(root)) {
      const std::string id = builder.uniqueId(utf8(node->mName.C_Str()));
      nodeIds.emplace(node->mName.C_Str(), id);
      idOf[node] = id;
      for (unsigned i = 0; i < node->mNumChildren; ++i) parentOf[node->mChildren[i]] = node;
    }
  }
  std::map<const aiNode*, std::string> idOf;
  std::map<const aiNode*, const aiNode*> parentOf;

  // Recursive, which the nesting bound checked in convert() keeps safe.
  json convertNode(const aiNode& node, const Matrix3& frame, bool top) {
    // Names are made unique (the exporter needs them so): a repeated or empty
    // name takes a number.
    json out = {{"name", idOf.at(&node)}};
    json modifiers = physique();
    if (node.mNumMeshes > 0) modifiers = meshNode(node, out);
    out["transform"] = transform(node, frame, top);

    // A camera or light looks along its own direction in its node's frame;
    // that turn goes into the node when nothing hangs below it.
    auto aim = [&](aiVector3D position, const aiVector3D& direction, const aiVector3D& up) {
      // Some readers (glTF 2) copy the node's translation into the camera's
      // position as well; counted once, it is the node's.
      const aiMatrix4x4& t = node.mTransformation;
      if (position == aiVector3D(t.a4, t.b4, t.c4)) position = aiVector3D();
      const Matrix3 view = viewFrame(position, direction, up);
      if (isIdentity(view) || node.mNumChildren > 0 || channels.count(node.mName.C_Str())) return;
      const Matrix3 local = toMatrix(node.mTransformation);
      out["transform"] = fixedTransform(top ? view * local * frame : view * local);
    };
    if (const auto c = cameras.find(node.mName.C_Str()); c != cameras.end() && node.mNumMeshes == 0) {
      const aiCamera& cam = *c->second;
      json object = {{"type", "camera"}, {"hither", cam.mClipPlaneNear}, {"yon", cam.mClipPlaneFar}};
      if (cam.mHorizontalFOV > 0) object["fovDegrees"] = 2 * cam.mHorizontalFOV * 180.0 / 3.14159265358979;
      out["object"] = object;
      aim(cam.mPosition, cam.mLookAt, cam.mUp);
    } else if (const auto l = lights.find(node.mName.C_Str()); l != lights.end() && node.mNumMeshes == 0) {
      const aiLight& light = *l->second;
      const char* type = light.mType == aiLightSource_SPOT          ? "spot"
                         : light.mType == aiLightSource_DIRECTIONAL ? "directional"
                         : light.mType == aiLightSource_AMBIENT     ? "ambient"
                                                                    : "omni";
      // Colours brighter than 1 keep their hue; the rest is the multiplier.
      const aiColor3D c = light.mColorDiffuse;
      const float brightest = std::max({c.r, c.g, c.b});
      const float multiplier = brightest > 1 ? brightest : 1;
      json object = {{"type", "light"}, {"lightType", type},
                     {"color", json::array({c.r / multiplier, c.g / multiplier, c.b / multiplier})},
                     {"multiplier", multiplier}};
      if (light.mType == aiLightSource_SPOT) {
        object["hotspotDegrees"] = light.mAngleInnerCone * 180.0 / 3.14159265358979;
        object["falloffDegrees"] = light.mAngleOuterCone * 180.0 / 3.14159265358979;
      }
      out["object"] = object;
      if (light.mType == aiLightSource_SPOT || light.mType == aiLightSource_DIRECTIONAL)
        aim(light.mPosition, light.mDirection, light.mUp.SquareLength() > 0 ? light.mUp : aiVector3D(0, 1, 0));
    }
    out["modifiers"] = std::move(modifiers);
    json children = json::array();
    for (unsigned i = 0; i < node.mNumChildren; ++i) children.push_back(convertNode(*node.mChildren[i], frame, false));
    if (!children.empty()) out["children"] = std::move(children);
    return out;
  }

  ImportedScene convert() {
    for (unsigned i = 0; i < scene.mNumCameras; ++i) cameras.emplace(scene.mCameras[i]->mName.C_Str(), scene.mCameras[i]);
    for (unsigned i = 0; i < scene.mNumLights; ++i) lights.emplace(scene.mLights[i]->mName.C_Str(), scene.mLights[i]);
    // The first animation only: the host has one timeline.
    if (scene.mNumAnimations > 0) {
      const aiAnimation& anim = *scene.mAnimations[0];
      if (anim.mTicksPerSecond > 0) animationTicksPerSecond = anim.mTicksPerSecond;
      for (unsigned i = 0; i < anim.mNumChannels; ++i)
        channels.emplace(anim.mChannels[i]->mNodeName.C_Str(), anim.mChannels[i]);
      sourceFrameRate = frameRateOf(anim);
      // A clip faster than the host's 30 frames a second keeps its own rate,
      // which the export then samples by default: at 30 it would blend
      // every other pose of a 60-frame walk away. Slower clips keep 30, as
      // before (zt2export says when samples miss their frames).
      if (sourceFrameRate > kFrameRate && kTicksPerSecond % sourceFrameRate == 0) frameRate = sourceFrameRate;
      lastFrame = static_cast<int>(std::ceil(anim.mDuration / animationTicksPerSecond * frameRate));
    }
    const aiNode& root = *scene.mRootNode;
    const bool rootHoldsSomething = rootIsANode(scene);
    refuseDeepNesting(request.path, levelsBelow(root) + (rootHoldsSomething ? 1 : 0));
    readMaterials();
    nameNodes(root);

    // The root's own transform and the turn onto Z-up go into every top
    // node; the root node itself is the host's scene root, unless it holds
    // something of its own.
    json nodes = json::array();
    if (rootHoldsSomething) {
      nodes.push_back(convertNode(root, yUpToZUp(), true));
    } else {
      const Matrix3 frame = toMatrix(root.mTransformation) * yUpToZUp();
      for (unsigned i = 0; i < root.mNumChildren; ++i) nodes.push_back(convertNode(*root.mChildren[i], frame, true));
    }
    json document = {{"version", 1}, {"frameRate", frameRate}, {"animationRange", json::array({0, lastFrame})}};
    if (sourceFrameRate > 0) document["sourceFrameRate"] = sourceFrameRate;
    if (!materials.empty()) document["materials"] = std::move(materials);
    document["nodes"] = std::move(nodes);
    return builder.finish(std::move(document));
  }
};

// Formats of several files (OBJ and its .mtl, glTF and its .bin) are opened
// by the reader itself: it tells which through the files it opens.
class RecordingIOSystem : public Assimp::DefaultIOSystem {
 public:
  Assimp::IOStream* Open(const char* file, const char* mode) override {
    Assimp::IOStream* stream = DefaultIOSystem::Open(file, mode);
    if (stream != nullptr && mode != nullptr && mode[0] == 'r') hostmodel::noteFileRead(file);
    return stream;
  }
};

}  // namespace

namespace {

// The import library's reasons in words a user follows; its own text goes
// after them, in brackets, for a report to its makers.
std::string plainReason(const std::string& library) {
  static const std::pair<const char*, const char*> kinds[] = {
      {"no suitable reader", "the file is in no format the import library reads"},
      {"unable to open file", "the file cannot be opened"},
      {"no meshes remaining", "the model holds only points or lines, which have no surface to export"},
      {"contains no faces", "a mesh of the model has no faces (points only), so there is no surface to export"},
      {"contains no vertices", "a mesh of the model has no vertices"},
      {"has no corresponding node", "a light or camera of the model is attached to no node"},
      {"scene-graph is nullptr", "the model's node tree is damaged"},
      {"malformed xml", "the file's XML is malformed"},
      {"xml parse error", "the file's XML is malformed"},
      {"end of file", "the file ends before its data does (it may be cut short)"},
      {"file is empty", "the file is empty"},
      {"too small", "the file is too short to be a model of its format"},
      {"cannot parse string", "a number in the file cannot be read"},
      {"validation failed", "the model is inconsistent"},
  };
  std::string words = "the import library cannot read the model";
  const std::string lowered = ztext::asciiLower(library);
  for (const auto& [marker, plain] : kinds)
    if (lowered.find(marker) != std::string::npos) {
      words = plain;
      break;
    }
  return library.empty() ? words : words + " (import library: " + library + ")";
}

// Keys past the end of their clip are refused by the library's validation,
// yet some exporters write them routinely (a B3D clip's last key one frame
// past its length): they are moved onto the end, with a warning. A key that
// then shares its time with the one before it gives way to it.
void clampKeysToClips(aiScene& scene, const std::string& model) {
  for (unsigned a = 0; a < scene.mNumAnimations; ++a) {
    aiAnimation& anim = *scene.mAnimations[a];
    if (!(anim.mDuration > 0)) continue;
    unsigned moved = 0;
    double latest = anim.mDuration;
    auto clamp = [&](auto* keys, unsigned count) {
      for (unsigned k = 0; k < count; ++k)
        if (keys[k].mTime > anim.mDuration) latest = std::max(latest, keys[k].mTime), keys[k].mTime = anim.mDuration, ++moved;
    };
    for (unsigned c = 0; c < anim.mNumChannels; ++c) {
      aiNodeAnim& channel = *anim.mChannels[c];
      clamp(channel.mPositionKeys, channel.mNumPositionKeys);
      clamp(channel.mRotationKeys, channel.mNumRotationKeys);
      clamp(channel.mScalingKeys, channel.mNumScalingKeys);
    }
    if (moved == 0) continue;
    const std::string clip = anim.mName.length ? "clip \"" + utf8(anim.mName.C_Str()) + "\"" : "the animation";
    std::fprintf(stderr,
                 "WARNING: %s: %u key%s of %s lie%s past its end (up to tick %g of a clip %g ticks long); moved onto "
                 "its end\n",
                 model.c_str(), moved, moved == 1 ? "" : "s", clip.c_str(), moved == 1 ? "s" : "", latest,
                 anim.mDuration);
    std::fflush(stderr);
  }
}

// The exporter wants node names unique, and the library binds a mesh's bones
// and an animation's channels to nodes by name alone: with two nodes of one
// name (a B3D's root mesh and a bone inside it both "Body"), both would take
// one node's keys, and a mesh's two bones of one name are refused by the
// library's validation. So before anything is looked up by name, each name
// that repeats takes a number ("Body#2", in the order met, depth first, as
// the scene builder numbers them), and each bone and channel of such a name
// is renamed after the node the file means:
// - a mesh's bones: the nodes of that name other than those holding the mesh
//   (a skin is moved by other nodes), the k-th bone of the name in the mesh
//   the k-th of them;
// - an animation's channels: the k-th channel of the name the k-th node of
//   it when there are as many of each, else the nodes that bones were bound
//   to first (keys of a name go to the skeleton), then the others.
// Cameras and lights stay with the first node of their name, as the library
// finds it.
void uniqueNodeNames(aiScene& scene, const std::string& model) {
  const std::vector<aiNode*> nodes = preorder(*scene.mRootNode);
  std::map<std::string, std::vector<aiNode*>> byName;
  for (aiNode* n : nodes) byName[n->mName.C_Str()].push_back(n);
  bool repeated = false;
  for (const auto& [name, list] : byName) repeated = repeated || list.size() > 1;
  if (!repeated) return;

  // Bones first: the channels' choice depends on where bones went.
  std::set<const aiNode*> boneNodes;
  std::map<std::pair<unsigned, unsigned>, aiNode*> boneTarget;  // (mesh, bone) -> node
  for (unsigned m = 0; m < scene.mNumMeshes; ++m) {
    const aiMesh& mesh = *scene.mMeshes[m];
    std::map<std::string, unsigned> seen;
    for (unsigned b = 0; b < mesh.mNumBones; ++b) {
      const auto found = byName.find(mesh.mBones[b]->mName.C_Str());
      if (found == byName.end() || found->second.size() < 2) continue;
      std::vector<aiNode*> candidates;
      for (aiNode* n : found->second)
        if (std::find(n->mMeshes, n->mMeshes + n->mNumMeshes, m) == n->mMeshes + n->mNumMeshes) candidates.push_back(n);
      if (candidates.empty()) candidates = found->second;
      const unsigned k = seen[found->first]++;
      aiNode* target = candidates[std::min<std::size_t>(k, candidates.size() - 1)];
      boneTarget[{m, b}] = target;
      boneNodes.insert(target);
    }
  }
  std::map<std::pair<unsigned, unsigned>, aiNode*> channelTarget;  // (animation, channel) -> node
  for (unsigned a = 0; a < scene.mNumAnimations; ++a) {
    const aiAnimation& anim = *scene.mAnimations[a];
    std::map<std::string, unsigned> count, seen;
    for (unsigned c = 0; c < anim.mNumChannels; ++c) ++count[anim.mChannels[c]->mNodeName.C_Str()];
    for (unsigned c = 0; c < anim.mNumChannels; ++c) {
      const auto found = byName.find(anim.mChannels[c]->mNodeName.C_Str());
      if (found == byName.end() || found->second.size() < 2) continue;
      std::vector<aiNode*> candidates = found->second;
      if (count[found->first] != candidates.size())
        std::stable_partition(candidates.begin(), candidates.end(), [&](aiNode* n) { return boneNodes.count(n) > 0; });
      const unsigned k = seen[found->first]++;
      channelTarget[{a, c}] = candidates[std::min<std::size_t>(k, candidates.size() - 1)];
    }
  }

  // The names, as the scene builder would hand them out.
  std::set<std::string> taken;
  std::map<std::string, std::vector<std::string>> renamed;
  for (aiNode* n : nodes) {
    const std::string name = utf8(n->mName.C_Str());
    const std::string base = name.empty() ? std::string("Node") : name;
    std::string id = base;
    // A number never takes the name of another node of the file ("Body#2" of its own).
    for (int k = 2; taken.count(id) || (id != base && byName.count(id)); ++k) id = base + "#" + std::to_string(k);
    taken.insert(id);
    if (byName.at(n->mName.C_Str()).size() < 2) continue;
    renamed[name].push_back(id);
    if (id != base) n->mName.Set(id);
  }
  for (const auto& [where, node] : boneTarget) scene.mMeshes[where.first]->mBones[where.second]->mName = node->mName;
  for (const auto& [where, node] : channelTarget)
    scene.mAnimations[where.first]->mChannels[where.second]->mNodeName = node->mName;
  for (const auto& [name, ids] : renamed) {
    if (name.empty()) continue;  // nodes without a name were always "Node", "Node#2", ...
    std::string list;
    for (const std::string& id : ids) list += (list.empty() ? "\"" : ", \"") + id + "\"";
    std::fprintf(stderr, "WARNING: %s: %zu nodes are named \"%s\"; they are told apart as %s\n", model.c_str(),
                 ids.size(), name.c_str(), list.c_str());
  }
}

// What a reader says only in its log and the user must know: an OBJ file's
// material library that is not there leaves every material of it out.
class LibraryWarnings : public Assimp::LogStream {
 public:
  void write(const char* message) override { lines_.emplace_back(message); }
  // The rest of each line after `marker`.
  std::vector<std::string> after(const std::string& marker) const {
    std::vector<std::string> out;
    for (const std::string& line : lines_)
      if (const std::size_t at = line.find(marker); at != std::string::npos) {
        std::string rest = line.substr(at + marker.size());
        while (!rest.empty() && (rest.back() == '\n' || rest.back() == '\r' || rest.back() == ' ')) rest.pop_back();
        out.push_back(rest);
      }
    return out;
  }

 private:
  std::vector<std::string> lines_;
};

// The library reads an IQM file's meshes only: its joints, poses and
// animations are dropped without a word. Counted from the header
// (docs/import.md), they are named in a warning, or in the refusal of a file
// that holds nothing else.
std::string iqmUnread(const std::string& path) {
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return {};
  unsigned char head[124] = {};
  const std::size_t got = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  if (got < sizeof head || std::memcmp(head, "INTERQUAKEMODEL", 16) != 0) return {};
  auto word = [&](int index) {
    std::uint32_t v;
    std::memcpy(&v, head + 16 + 4 * index, 4);
    return v;
  };
  // After the magic: version, filesize, flags, num_text, ofs_text, num_meshes,
  // ofs_meshes, num_vertexarrays, num_vertexes, ofs_vertexarrays,
  // num_triangles, ofs_triangles, ofs_adjacency, num_joints, ofs_joints,
  // num_poses, ofs_poses, num_anims, ofs_anims, num_frames, ...
  const std::uint32_t joints = word(13), anims = word(17), frames = word(19);
  std::string parts;
  if (joints > 0) parts = std::to_string(joints) + " joint" + (joints == 1 ? "" : "s");
  if (anims > 0)
    parts += (parts.empty() ? "" : " and ") + std::to_string(anims) + " anim" + (anims == 1 ? "" : "s") + " (" +
             std::to_string(frames) + " frame" + (frames == 1 ? "" : "s") + ")";
  return parts;
}

// A light or camera that no node carries has no place in the scene, and a
// second one of a name cannot be told from the first by the node it hangs
// on; the library's validation refuses the whole file for either. It is
// left out, with a warning, and the rest of the model is exported.
template <typename Item>
void dropUnplaced(Item**& items, unsigned& count, const std::set<std::string>& nodes, const char* kind,
                  const std::string& model) {
  unsigned kept = 0;
  std::set<std::string> seen;
  for (unsigned i = 0; i < count; ++i) {
    const std::string name = items[i]->mName.C_Str();
    const char* why = !nodes.count(name) ? "is attached to no node" : seen.count(name) ? "repeats the name of another" : nullptr;
    if (why == nullptr) {
      seen.insert(name);
      items[kept++] = items[i];
      continue;
    }
    std::fprintf(stderr, "WARNING: %s: %s \"%s\" %s; it is left out\n", model.c_str(), kind, utf8(name).c_str(), why);
    delete items[i];
  }
  count = kept;
  // The validation wants no array where there is nothing in it.
  if (count == 0) {
    delete[] items;
    items = nullptr;
  }
}

}  // namespace

// Reads the plain OBJ and glTF files our own readers take (obj_reader.h,
// gltf_reader.h); null for all else. ZT2EXPORT_OBJ_LIBRARY=1 and
// ZT2EXPORT_GLTF_LIBRARY=1 leave those files to the import library, so that
// the readers can be compared.
static OwnScene readOwn(const ImportRequest& request) {
  const std::string extension = ztext::lowerExtension(request.path);
  const bool obj = extension == ".obj", gltf = extension == ".gltf";
  if (!obj && !gltf) return nullptr;
  const char* library = std::getenv(obj ? "ZT2EXPORT_OBJ_LIBRARY" : "ZT2EXPORT_GLTF_LIBRARY");
  if (library && std::string(library) == "1") return nullptr;
  OwnScene scene = obj ? readPlainObj(request.path) : readPlainGltf(request.path);
  if (scene) {
    hostmodel::noteFileRead(request.path);
    // Groups and glTF nodes may repeat a name, as in the library's reading.
    uniqueNodeNames(*scene, request.path);
  }
  return scene;
}

static ImportedScene readWithAssimp(const ImportRequest& request) {
  if (OwnScene own = readOwn(request)) {
    ImportedScene converted = Converter(request, *own).convert();
    // Our readers' scenes are a few blocks a mesh: freeing them is quick, and
    // the answer is written without them.
    own.reset();
    return converted;
  }
  Assimp::Importer importer;
  importer.SetIOHandler(new RecordingIOSystem);  // the importer owns it
  importer.SetPropertyInteger(AI_CONFIG_PP_SBP_REMOVE, aiPrimitiveType_POINT | aiPrimitiveType_LINE);
  auto refuse = [&](const std::string& library) { throw ImportError(request.path + ": " + plainReason(library)); };
  // Read first, mend what the library's validation would refuse although a
  // scene can be made of it, then validate and triangulate.
  // The reader's own warnings, for what it drops without failing.
  Assimp::DefaultLogger::create(nullptr, Assimp::Logger::NORMAL, 0);
  auto* warnings = new LibraryWarnings;  // the logger owns it
  Assimp::DefaultLogger::get()->attachStream(warnings, Assimp::Logger::Warn | Assimp::Logger::Err);
  const aiScene* read = importer.ReadFile(request.path, 0);
  const std::vector<std::string> missingLibraries = warnings->after("OBJ: Unable to locate material file ");
  const std::vector<std::string> fallbacks = warnings->after("OBJ: Opening fallback material file ");
  Assimp::DefaultLogger::kill();
  for (const std::string& library : missingLibraries)
    std::fprintf(stderr, "WARNING: %s: material library \"%s\" not found; %s\n", request.path.c_str(),
                 utf8(library).c_str(),
                 fallbacks.empty() ? "its materials are left out and the meshes take the default material"
                                   : ("\"" + utf8(fallbacks[0]) + "\" is read instead").c_str());
  const std::string iqmLeftOut = iqmUnread(request.path);
  if (!read) refuse(importer.GetErrorString());
  if (!read->mRootNode) throw ImportError(request.path + ": the model's node tree is missing");
  // Whether the root counts as a level is known once the scene is mended;
  // a tree deeper than the bound below the root is refused at once.
  refuseDeepNesting(request.path, levelsBelow(*read->mRootNode));
  aiScene& scene = *const_cast<aiScene*>(read);  // the importer's own scene, as its post-processing steps edit it
  uniqueNodeNames(scene, request.path);
  clampKeysToClips(scene, request.path);
  std::set<std::string> nodeNames;
  for (const aiNode* node : preorder(*scene.mRootNode)) nodeNames.insert(node->mName.C_Str());
  dropUnplaced(scene.mLights, scene.mNumLights, nodeNames, "light", request.path);
  dropUnplaced(scene.mCameras, scene.mNumCameras, nodeNames, "camera", request.path);
  std::fflush(stderr);
  // A skeleton with its clips and no mesh (games ship animations apart from
  // their characters), or a file of lights or cameras: its nodes, keys and
  // objects are exported. Such scenes are marked incomplete, as some of the
  // library's readers mark them already, which its validation accepts.
  if (scene.mNumMeshes == 0 && !(scene.mFlags & AI_SCENE_FLAGS_INCOMPLETE)) {
    if (scene.mNumAnimations == 0 && scene.mNumCameras == 0 && scene.mNumLights == 0) {
      if (!iqmLeftOut.empty())
        throw ImportError(request.path + ": the import library reads the meshes of an IQM file only, and this one "
                                         "holds none: its " + iqmLeftOut + " cannot be read");
      throw ImportError(request.path + ": the model holds no mesh, animation, camera or light: nothing to export");
    }
    scene.mFlags |= AI_SCENE_FLAGS_INCOMPLETE;
  }
  if (!iqmLeftOut.empty())
    std::fprintf(stderr, "WARNING: %s: the import library reads the meshes of an IQM file only: its %s are left out\n",
                 request.path.c_str(), iqmLeftOut.c_str());
  if (!importer.ApplyPostProcessing(aiProcess_ValidateDataStructure)) refuse(importer.GetErrorString());
  if (importer.GetScene()->mNumMeshes > 0 &&
      !importer.ApplyPostProcessing(aiProcess_Triangulate | aiProcess_SortByPType))
    refuse(importer.GetErrorString());
  Converter converter(request, *importer.GetScene());
  ImportedScene converted = converter.convert();
  // Handing a scene of millions of elements back to the heap only delays the end of the process.
  if (request.processEnds) importer.GetOrphanedScene();
  return converted;
}

static std::string assimpFormats() {
  Assimp::Importer importer;
  std::string list;
  importer.GetExtensionList(list);
  std::string out;
  for (std::size_t begin = 0; begin < list.size();) {
    std::size_t end = list.find(';', begin);
    if (end == std::string::npos) end = list.size();
    std::string ext = list.substr(begin, end - begin);
    if (ext.rfind("*.", 0) == 0) ext = ext.substr(2);
    if (!ext.empty() && ext != "3ds") out += (out.empty() ? "" : " ") + ext;
    begin = end + 1;
  }
  return out;
}

}  // namespace hostimport

// The module's entry points (models_module.h): nothing is thrown across them.
extern "C" __attribute__((visibility("default"))) void ztx_models_read(const hostimport::ImportRequest& request,
                                                                        bool flush, hostimport::ModelsAnswer& answer) {
  setFlushBeforeCommit(flush);
  try {
    answer.scene = hostimport::readWithAssimp(request);
  } catch (const std::bad_alloc&) {
    answer.outOfMemory = true;
    answer.error = request.path + ": out of memory";
  } catch (const std::exception& e) {
    answer.error = *e.what() ? e.what() : request.path + ": the model could not be read";
  }
  answer.filesRead = hostmodel::filesRead();
  answer.filesWritten = hostmodel::filesWritten();
}

extern "C" __attribute__((visibility("default"))) void ztx_models_formats(std::string& formats) {
  try {
    formats = hostimport::assimpFormats();
  } catch (const std::exception&) {
    formats.clear();
  }
}
