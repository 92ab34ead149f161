// 3DS files through lib3ds: the one common format that stores smoothing
// groups, so faces keep their masks exactly as the file holds them. 3DS is
// Z-up like the host, so nothing is turned. See docs/import.md.
#include <lib3ds/camera.h>
#include <lib3ds/file.h>
#include <lib3ds/light.h>
#include <lib3ds/material.h>
#include <lib3ds/matrix.h>
#include <lib3ds/mesh.h>
#include <lib3ds/node.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <set>

#include "importers/importers.h"
#include "importers/texture_files.h"
#include "host/memory/file_reads.h"

namespace hostimport {

using nlohmann::json;

namespace {

// The keyframer counts frames at 30 a second; the file does not say otherwise.
constexpr int kFrameRate = 30;

std::string text(const char* chars, std::size_t size) { return utf8(std::string(chars, strnlen(chars, size))); }
template <std::size_t N>
std::string text(const char (&chars)[N]) {
  return text(chars, N);
}

json colour(const float* c) { return json::array({c[0], c[1], c[2]}); }

Matrix3 toMatrix(const Lib3dsMatrix m) {
  return Matrix3({m[0][0], m[0][1], m[0][2]}, {m[1][0], m[1][1], m[1][2]}, {m[2][0], m[2][1], m[2][2]},
                 {m[3][0], m[3][1], m[3][2]});
}

// A camera or spot frame looking from `from` towards `to`, turned by `roll`
// degrees about the view axis: the host's cameras look down their -Z.
Matrix3 lookAt(const Point3& from, const Point3& to, float roll) {
  Point3 dir = to - from;
  const float length = std::sqrt(DotProd(dir, dir));
  dir = length > 0 ? dir * (1 / length) : Point3{0, 1, 0};
  const Point3 up = std::fabs(dir.z) > 0.999f ? Point3{0, 1, 0} : Point3{0, 0, 1};
  Point3 x = CrossProd(dir, up);
  x = x * (1 / std::sqrt(DotProd(x, x)));
  Point3 y = CrossProd(x, dir);
  const float r = roll * 3.14159265358979f / 180.0f, c = std::cos(r), s = std::sin(r);
  const Point3 xr = x * c + y * s, yr = y * c - x * s;
  return Matrix3(xr, yr, dir * -1.0f, from);
}

struct Converter {
  Converter(const ImportRequest& r, Lib3dsFile* f) : request(r), file(f), builder(r.bufferName, !r.sceneFile) {}
  const ImportRequest& request;
  Lib3dsFile* file;
  SceneBuilder builder;
  json document = json::object();
  json materials = json::array();
  std::map<std::string, std::string> materialIds;  // 3DS material name -> id
  int firstFrame = 0, lastFrame = 0;

  std::vector<int> frames() const {
    std::vector<int> all;
    for (int f = firstFrame; f <= lastFrame; ++f) all.push_back(f);
    return all;
  }

  // --- materials ---

  ModelTextures textures{request.path, request.texturePaths, request.dropMissingTextures};

  // None when the map is left out (texture_files.h).
  json texmap(const Lib3dsTextureMap& map, const std::string& material, const std::string& name) {
    const auto file = textures.find(material, text(map.name));
    if (!file) return nullptr;
    return {{"type", "ztTexture"}, {"name", name}, {"params", {{"mapFileName", *file}}}};
  }

  std::set<std::string> materialNames;
  void readMaterials() {
    std::set<std::string>& names = materialNames;
    for (Lib3dsMaterial* m = file->materials; m; m = m->next) {
      const std::string source = text(m->name);
      std::string name = source;
      for (int n = 2; names.count(name); ++n) name = source + "#" + std::to_string(n);
      names.insert(name);
      json material = {{"id", "m" + std::to_string(materials.size())}, {"type", "ztMaterial"}, {"name", name},
                       {"ambient", colour(m->ambient)}, {"diffuse", colour(m->diffuse)},
                       {"specular", colour(m->specular)}};
      json params = {{"plainLayerMode", 1}};
      json maps = json::array();
      if (json d = m->texture1_map.name[0] ? texmap(m->texture1_map, name, name + " diffuse") : json(); !d.is_null()) {
        maps.push_back(std::move(d));
        params["layer1Flag"] = 1;
      }
      if (json o = m->opacity_map.name[0] ? texmap(m->opacity_map, name, name + " opacity") : json(); !o.is_null()) {
        while (maps.size() < 4) maps.push_back(nullptr);
        maps.push_back(std::move(o));
        params["layer5Flag"] = 1;
        params["diffuseMode"] = 1;  // copying the diffuse layer would hide the mask
      }
      material["params"] = params;
      if (!maps.empty()) material["texmaps"] = maps;
      materialIds.emplace(source, material["id"].get<std::string>());
      materials.push_back(std::move(material));
    }
  }

  // Meshes without a material get this one: the exporter wants a material on
  // every mesh.
  json defaultMaterial() {
    if (defaultMaterialId.empty()) {
      defaultMaterialId = "default";
      std::string name = "Default";
      for (int n = 2; materialNames.count(name); ++n) name = "Default#" + std::to_string(n);
      materials.push_back({{"id", defaultMaterialId}, {"type", "ztMaterial"}, {"name", name},
                           {"params", {{"plainLayerMode", 1}}}});
    }
    return defaultMaterialId;
  }
  std::string defaultMaterialId;

  // The node's material: none, the one its faces use, or a multi-material of
  // those in order of first use, the faces numbering its slots.
  json meshMaterial(const Lib3dsMesh& mesh, const std::string& nodeName, std::vector<std::uint16_t>& ids) {
    std::vector<std::string> used;
    ids.assign(mesh.faces, 0);
    for (Lib3dsDword f = 0; f < mesh.faces; ++f) {
      const std::string name = text(mesh.faceL[f].material);
      if (!materialIds.count(name)) continue;
      auto it = std::find(used.begin(), used.end(), name);
      if (it == used.end()) it = used.insert(used.end(), name);
      ids[f] = static_cast<std::uint16_t>(it - used.begin());
    }
    if (used.empty()) return defaultMaterial();
    if (used.size() == 1) return materialIds[used[0]];
    json subs = json::array();
    for (const std::string& name : used) subs.push_back(materialIds[name]);
    return {{"type", "multi"}, {"name", nodeName + " materials"}, {"subMaterials", subs}};
  }

  // --- meshes ---

  json meshNode(const Lib3dsMesh& mesh, const std::string& name) {
    Lib3dsMatrix inverse;
    lib3ds_matrix_copy(inverse, const_cast<Lib3dsMesh&>(mesh).matrix);
    if (!lib3ds_matrix_inv(inverse)) lib3ds_matrix_identity(inverse);
    const Matrix3 toLocal = toMatrix(inverse);
    MeshArrays arrays;
    for (Lib3dsDword i = 0; i < mesh.points; ++i) {
      const Point3 p = Point3{mesh.pointL[i].pos[0], mesh.pointL[i].pos[1], mesh.pointL[i].pos[2]} * toLocal;
      if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z))
        throw ImportError(request.path + ": mesh \"" + name + "\": vertex " + std::to_string(i) +
                          " is not a finite number");
      arrays.vertices.insert(arrays.vertices.end(), {p.x, p.y, p.z});
    }
    for (Lib3dsDword f = 0; f < mesh.faces; ++f) {
      const Lib3dsFace& face = mesh.faceL[f];
      arrays.faces.insert(arrays.faces.end(), {face.points[0], face.points[1], face.points[2]});
      arrays.smoothingGroups.push_back(face.smoothing);
    }
    // Texture coordinates come one per point.
    if (mesh.texels == mesh.points && mesh.texels > 0) {
      for (Lib3dsDword i = 0; i < mesh.texels; ++i)
        arrays.textureVertices.insert(arrays.textureVertices.end(), {mesh.texelL[i][0], mesh.texelL[i][1], 0.0f});
      arrays.textureFaces = arrays.faces;
    }
    json node = {{"name", name}};
    json material = meshMaterial(mesh, name, arrays.materialIds);
    if (!material.is_null()) node["material"] = material;
    node["object"] = {{"type", "mesh"}, {"mesh", builder.mesh(std::move(arrays))}};
    return node;
  }

  // --- the keyframer ---

  static bool animated(const void* firstKey, const void* secondKey) { return firstKey && secondKey; }

  // Local transform keys of a keyframer node, sampled at every frame when a
  // track moves (the keyframer's curves are splines, the host's keys linear).
  json nodeTransform(Lib3dsNode* node, bool moving) {
    auto local = [&](int frame) {
      lib3ds_file_eval(file, static_cast<float>(frame));
      Matrix3 m = toMatrix(node->matrix);
      if (node->parent) m = m * Inverse(toMatrix(node->parent->matrix));
      return m;
    };
    if (!moving) return fixedTransform(local(firstFrame));
    json position = json::array(), rotation = json::array(), scale = json::array();
    for (int frame : frames()) {
      const Decomposed d = decompose(local(frame));
      position.push_back({{"frame", frame}, {"value", point(d.position)}});
      rotation.push_back({{"frame", frame}, {"value", quat(d.rotation)}});
      scale.push_back({{"frame", frame}, {"value", point(d.scale)}});
    }
    return {{"position", {{"keys", position}}}, {"rotation", {{"keys", rotation}}}, {"scale", {{"keys", scale}}}};
  }

  json objectNode(Lib3dsNode* node) {
    Lib3dsObjectData& data = node->data.object;
    const std::string meshName = text(node->name);
    const std::string instance = text(data.instance);
    const std::string name = instance.empty() ? meshName : instance;
    Lib3dsMesh* mesh = meshName == "$$$DUMMY" ? nullptr : lib3ds_file_mesh_by_name(file, node->name);
    json out = mesh ? meshNode(*mesh, name) : json{{"name", name}, {"object", {{"type", "helper"}}}};
    if (mesh) meshesWithNodes.insert(mesh);
    out["id"] = builder.uniqueId(name);
    const bool moving = animated(data.pos_track.keyL, data.pos_track.keyL ? data.pos_track.keyL->next : nullptr) ||
                        animated(data.rot_track.keyL, data.rot_track.keyL ? data.rot_track.keyL->next : nullptr) ||
                        animated(data.scl_track.keyL, data.scl_track.keyL ? data.scl_track.keyL->next : nullptr) ||
                        anyMovingAncestor(node);
    out["transform"] = nodeTransform(node, moving);
    if (data.pivot[0] != 0 || data.pivot[1] != 0 || data.pivot[2] != 0)
      out["objectOffset"] = {{"position", json::array({-data.pivot[0], -data.pivot[1], -data.pivot[2]})}};
    if (node->flags1 & LIB3DS_HIDDEN) out["hidden"] = true;
    if (data.hide_track.keyL) {
      json keys = json::array();
      for (int frame : frames()) {
        lib3ds_file_eval(file, static_cast<float>(frame));
        keys.push_back({{"frame", frame}, {"value", data.hide ? 0 : 1}});
      }
      out["visibility"] = {{"keys", keys}};
    }
    out["modifiers"] = mesh ? builder.rigidPhysique(out["id"].get<std::string>(), mesh->points) : physique();
    json children = json::array();
    for (Lib3dsNode* child = node->childs; child; child = child->next)
      if (child->type == LIB3DS_OBJECT_NODE) children.push_back(objectNode(child));
    if (!children.empty()) out["children"] = std::move(children);
    return out;
  }

  // How deep the keyframer's object nodes nest, top nodes at level 1, walked
  // without recursion; past the loader's bound the walk ends, so that even a
  // tree that loops back on itself is answered.
  int objectLevels() const {
    int deepest = 0;
    std::vector<std::pair<const Lib3dsNode*, int>> stack;
    for (const Lib3dsNode* node = file->nodes; node; node = node->next)
      if (node->type == LIB3DS_OBJECT_NODE) stack.emplace_back(node, 1);
    while (!stack.empty()) {
      const auto [node, level] = stack.back();
      stack.pop_back();
      deepest = std::max(deepest, level);
      if (deepest > hostmodel::kMaxNodeDepth) break;
      for (const Lib3dsNode* child = node->childs; child; child = child->next)
        if (child->type == LIB3DS_OBJECT_NODE) stack.emplace_back(child, level + 1);
    }
    return deepest;
  }

  // A child's local transform is sampled through its parents' world matrices,
  // so it is sampled per frame whenever one of them moves.
  bool anyMovingAncestor(Lib3dsNode* node) {
    for (Lib3dsNode* p = node->parent; p; p = p->parent) {
      if (p->type != LIB3DS_OBJECT_NODE) continue;
      const Lib3dsObjectData& d = p->data.object;
      if ((d.pos_track.keyL && d.pos_track.keyL->next) || (d.rot_track.keyL && d.rot_track.keyL->next) ||
          (d.scl_track.keyL && d.scl_track.keyL->next))
        return true;
    }
    return false;
  }
  std::set<const Lib3dsMesh*> meshesWithNodes;

  // --- cameras and lights: a node that looks at a target node ---

  struct Aim {
    Point3 from, to;
    float roll;
  };

  // The node pair of a camera or spot: its own frame looking at the target,
  // sampled per frame when any of the three moves.
  void aimedPair(json& node, json& target, const std::function<Aim()>& aimNow, bool moving) {
    if (!moving) {
      const Aim a = aimNow();
      node["transform"] = fixedTransform(lookAt(a.from, a.to, a.roll));
      target["transform"] = {{"position", point(a.to)}};
      return;
    }
    json position = json::array(), rotation = json::array(), targetPosition = json::array();
    for (int frame : frames()) {
      lib3ds_file_eval(file, static_cast<float>(frame));
      const Aim a = aimNow();
      const Decomposed d = decompose(lookAt(a.from, a.to, a.roll));
      position.push_back({{"frame", frame}, {"value", point(a.from)}});
      rotation.push_back({{"frame", frame}, {"value", quat(d.rotation)}});
      targetPosition.push_back({{"frame", frame}, {"value", point(a.to)}});
    }
    node["transform"] = {{"position", {{"keys", position}}}, {"rotation", {{"keys", rotation}}}};
    target["transform"] = {{"position", {{"keys", targetPosition}}}};
  }

  static bool moves(const Lib3dsLin3Track& t) { return t.keyL && t.keyL->next; }
  static bool moves(const Lib3dsLin1Track& t) { return t.keyL && t.keyL->next; }

  static Point3 p3(const float* v) { return {v[0], v[1], v[2]}; }

  void camera(Lib3dsCamera* camera, json& nodes) {
    const std::string name = text(camera->name);
    Lib3dsNode* node = lib3ds_file_node_by_name(file, camera->name, LIB3DS_CAMERA_NODE);
    Lib3dsNode* targetNode = lib3ds_file_node_by_name(file, camera->name, LIB3DS_TARGET_NODE);
    json object = {{"type", "camera"}, {"fovDegrees", camera->fov}, {"hither", camera->near_range},
                   {"yon", camera->far_range}};
    const bool moving = node && (moves(node->data.camera.pos_track) || moves(node->data.camera.roll_track) ||
                                 (targetNode && moves(targetNode->data.target.pos_track)));
    if (node && moves(node->data.camera.fov_track)) {
      json keys = json::array();
      for (int frame : frames()) {
        lib3ds_file_eval(file, static_cast<float>(frame));
        keys.push_back({{"frame", frame}, {"value", node->data.camera.fov}});
      }
      object["fovDegrees"] = {{"keys", keys}};
    }
    json out = {{"name", name}, {"id", builder.uniqueId(name)}, {"object", object}, {"modifiers", physique()}};
    json target = {{"name", name + ".Target"}, {"id", builder.uniqueId(name + ".Target")},
                   {"object", {{"type", "target"}}}, {"modifiers", physique()}};
    aimedPair(out, target, [&] {
      if (!node) return Aim{p3(camera->position), p3(camera->target), camera->roll};
      return Aim{p3(node->data.camera.pos), targetNode ? p3(targetNode->data.target.pos) : p3(camera->target),
                 node->data.camera.roll};
    }, moving);
    nodes.push_back(std::move(out));
    nodes.push_back(std::move(target));
  }

  void light(Lib3dsLight* light, json& nodes) {
    const std::string name = text(light->name);
    Lib3dsNode* node = lib3ds_file_node_by_name(file, light->name, LIB3DS_LIGHT_NODE);
    Lib3dsNode* spotNode = lib3ds_file_node_by_name(file, light->name, LIB3DS_SPOT_NODE);
    json object = {{"type", "light"}, {"lightType", light->spot_light ? "spot" : "omni"}, {"color", colour(light->color)},
                   {"multiplier", light->multiplier}};
    if (light->spot_light) {
      object["hotspotDegrees"] = light->hot_spot;
      object["falloffDegrees"] = light->fall_off;
    }
    if (light->outer_range > light->inner_range && light->outer_range > 0) {
      object["attenuationStart"] = light->inner_range;
      object["attenuationEnd"] = light->outer_range;
    }
    // Keyed colour and cones, sampled per frame like the transforms.
    if (node) {
      Lib3dsLightData& data = node->data.light;
      const bool colourMoves = data.col_track.keyL && data.col_track.keyL->next;
      const bool hotspotMoves = light->spot_light && moves(data.hotspot_track);
      const bool falloffMoves = light->spot_light && moves(data.falloff_track);
      json colours = json::array(), hotspots = json::array(), falloffs = json::array();
      if (colourMoves || hotspotMoves || falloffMoves)
        for (int frame : frames()) {
          lib3ds_file_eval(file, static_cast<float>(frame));
          colours.push_back({{"frame", frame}, {"value", colour(data.col)}});
          hotspots.push_back({{"frame", frame}, {"value", data.hotspot}});
          falloffs.push_back({{"frame", frame}, {"value", data.falloff}});
        }
      if (colourMoves) object["color"] = {{"keys", colours}};
      if (hotspotMoves) object["hotspotDegrees"] = {{"keys", hotspots}};
      if (falloffMoves) object["falloffDegrees"] = {{"keys", falloffs}};
    }
    json out = {{"name", name}, {"id", builder.uniqueId(name)}, {"object", object}, {"modifiers", physique()}};
    if (light->off) out["hidden"] = true;
    if (!light->spot_light) {
      if (node && moves(node->data.light.pos_track)) {
        json keys = json::array();
        for (int frame : frames()) {
          lib3ds_file_eval(file, static_cast<float>(frame));
          keys.push_back({{"frame", frame}, {"value", point(p3(node->data.light.pos))}});
        }
        out["transform"] = {{"position", {{"keys", keys}}}};
      } else {
        out["transform"] = {{"position", point(p3(light->position))}};
      }
      nodes.push_back(std::move(out));
      return;
    }
    json target = {{"name", name + ".Target"}, {"id", builder.uniqueId(name + ".Target")},
                   {"object", {{"type", "target"}}}, {"modifiers", physique()}};
    const bool moving =
        node && (moves(node->data.light.pos_track) || moves(node->data.light.roll_track) ||
                 (spotNode && moves(spotNode->data.spot.pos_track)));
    aimedPair(out, target, [&] {
      if (!node) return Aim{p3(light->position), p3(light->spot), light->roll};
      return Aim{p3(node->data.light.pos), spotNode ? p3(spotNode->data.spot.pos) : p3(light->spot),
                 node->data.light.roll};
    }, moving);
    nodes.push_back(std::move(out));
    nodes.push_back(std::move(target));
  }

  ImportedScene convert() {
    firstFrame = static_cast<int>(file->segment_from);
    lastFrame = std::max(firstFrame, static_cast<int>(file->segment_to));
    if (lastFrame == firstFrame && file->frames > 0) firstFrame = 0, lastFrame = static_cast<int>(file->frames);
    // The keyframer's tree is walked recursively below; its depth is known first.
    refuseDeepNesting(request.path, objectLevels());
    readMaterials();
    json nodes = json::array();
    for (Lib3dsNode* node = file->nodes; node; node = node->next)
      if (node->type == LIB3DS_OBJECT_NODE) nodes.push_back(objectNode(node));
    // Meshes the keyframer does not place stand where the mesh data puts them.
    for (Lib3dsMesh* mesh = file->meshes; mesh; mesh = mesh->next) {
      if (meshesWithNodes.count(mesh)) continue;
      const std::string name = text(mesh->name);
      json node = meshNode(*mesh, name);
      node["id"] = builder.uniqueId(name);
      node["transform"] = fixedTransform(toMatrix(mesh->matrix));
      node["modifiers"] = builder.rigidPhysique(node["id"].get<std::string>(), mesh->points);
      nodes.push_back(std::move(node));
    }
    for (Lib3dsCamera* c = file->cameras; c; c = c->next) camera(c, nodes);
    for (Lib3dsLight* l = file->lights; l; l = l->next) light(l, nodes);
    lib3ds_file_eval(file, static_cast<float>(firstFrame));
    // Names are made unique (the exporter needs them so): each node goes by its id.
    std::function<void(json&)> nameById = [&](json& list) {
      for (json& node : list) {
        node["name"] = node["id"];
        node.erase("id");
        if (node.contains("children")) nameById(node["children"]);
      }
    };
    nameById(nodes);

    document = {{"version", 1}, {"frameRate", kFrameRate}, {"animationRange", json::array({firstFrame, lastFrame})},
                {"ambientColor", colour(file->ambient)}};
    if (!materials.empty()) document["materials"] = std::move(materials);
    document["nodes"] = std::move(nodes);
    return builder.finish(std::move(document));
  }
};

// lib3ds loops for ever on a chunk shorter than its own header, and reads
// past a chunk that claims more than its parent holds. The chunks that hold
// others are walked here first, so that such a file is refused by place.
// The prefix is what a container holds before its first child; -1 marks a
// chunk of plain data.
long childrenStart(std::uint16_t id, const unsigned char* body, std::size_t size) {
  switch (id) {
    case 0x4d4d: case 0x3d3d: case 0x4100: case 0xafff: case 0xb000: case 0xb001: case 0xb002: case 0xb003:
    case 0xb004: case 0xb005: case 0xb006: case 0xb007: case 0xa010: case 0xa020: case 0xa030: case 0xa040:
    case 0xa041: case 0xa050: case 0xa052: case 0xa053: case 0xa084: case 0xa200: case 0xa204: case 0xa210:
    case 0xa220: case 0xa230: case 0xa33a: case 0xa33c: case 0xa33d: case 0xa33e: case 0xa340: case 0xa342:
    case 0xa344: case 0xa346: case 0xa348: case 0xa34a: case 0xa34c: case 0x2100: case 0x1200:
      return 0;
    case 0x4000: {  // a named object: its name, then its parts
      const void* end = std::memchr(body, 0, size);
      return end ? static_cast<const unsigned char*>(end) - body + 1 : -1;
    }
    case 0x4120:  // faces: their count and four words each, then material and smoothing lists
      return size < 2 ? -1 : 2 + 8 * static_cast<long>(body[0] | body[1] << 8);
    case 0x4600: return 12;  // a light: its position first
    case 0x4700: return 32;  // a camera: position, target, roll, lens
    default: return -1;
  }
}

void checkChunks(const std::string& path, const std::vector<unsigned char>& bytes, std::size_t begin,
                 std::size_t end) {
  for (std::size_t at = begin; at + 6 <= end;) {
    const std::uint16_t id = static_cast<std::uint16_t>(bytes[at] | bytes[at + 1] << 8);
    const std::uint32_t length = bytes[at + 2] | bytes[at + 3] << 8 | bytes[at + 4] << 16 |
                                 static_cast<std::uint32_t>(bytes[at + 5]) << 24;
    char where[96];
    std::snprintf(where, sizeof where, "chunk 0x%04x at offset %zu", id, at);
    if (length < 6 || length > end - at)
      throw ImportError(path + ": " + where + " claims " + std::to_string(length) + " bytes, " +
                        (length < 6 ? "fewer than its header" : "more than its parent holds"));
    const long prefix = childrenStart(id, bytes.data() + at + 6, length - 6);
    if (prefix >= 0 && static_cast<std::size_t>(prefix) <= length - 6)
      checkChunks(path, bytes, at + 6 + static_cast<std::size_t>(prefix), at + length);
    at += length;
  }
}

}  // namespace

ImportedScene import3ds(const ImportRequest& request) {
  std::vector<unsigned char> bytes;
  if (std::FILE* f = std::fopen(request.path.c_str(), "rb")) {
    unsigned char block[1 << 16];
    for (std::size_t n; (n = std::fread(block, 1, sizeof block, f)) > 0;) bytes.insert(bytes.end(), block, block + n);
    std::fclose(f);
    hostmodel::noteFileRead(request.path);
  }
  if (bytes.size() < 6 || bytes[0] != 0x4d || bytes[1] != 0x4d) throw ImportError(request.path + ": not a 3DS file");
  // lib3ds reads a file that ends early as far as it goes and says nothing:
  // the main chunk's length tells.
  const std::uint32_t declared = bytes[2] | bytes[3] << 8 | bytes[4] << 16 | static_cast<std::uint32_t>(bytes[5]) << 24;
  if (declared > bytes.size())
    throw ImportError(request.path + ": cut short: the file holds " + std::to_string(bytes.size()) + " bytes of the " +
                      std::to_string(declared) + " its main chunk declares");
  checkChunks(request.path, bytes, 0, declared);
  std::unique_ptr<Lib3dsFile, void (*)(Lib3dsFile*)> file(lib3ds_file_load(request.path.c_str()), lib3ds_file_free);
  if (!file) throw ImportError(request.path + ": not a readable 3DS file");
  Converter converter(request, file.get());
  return converter.convert();
}

}  // namespace hostimport
