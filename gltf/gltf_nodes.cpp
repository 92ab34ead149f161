// Scene objects as glTF nodes: transforms in glTF's axes, hierarchy,
// cameras, lights (KHR_lights_punctual) and what the file says of each node
// kept in the node's extras for viewers.
#include <algorithm>
#include <cmath>
#include <numbers>

#include "gltf/gltf_builder.h"

namespace zt2dump::gltf {

namespace {

struct ObjectKind {
  const ChunkKindInfo* chunk;
  const char* type;  // the node type shown in extras and by zt2view
};

constexpr ObjectKind kObjectKinds[] = {
    {&chunk_kind::kMesh, "mesh"},
    {&chunk_kind::kCamera, "camera"},
    {&chunk_kind::kOmniLight, "omniLight"},
    {&chunk_kind::kDirectionalLight, "directionalLight"},
    {&chunk_kind::kSpotLight, "spotLight"},
    {&chunk_kind::kHelper, "helper"},
};

const ObjectKind* objectKindOf(const DecodedChunk& c) {
  for (const ObjectKind& k : kObjectKinds)
    if (isKind(c, *k.chunk)) return &k;
  return nullptr;
}

void addCamera(Builder& b, tinygltf::Node& node, const DecodedChunk& c) {
  tinygltf::Camera cam;
  cam.name = node.name;
  cam.type = "perspective";
  // The file carries no aspect ratio: its angle is taken as the vertical one.
  double fov = number(c.at("fov"));
  if (!(fov > 0) || fov >= std::numbers::pi) fov = std::numbers::pi / 4;
  cam.perspective.yfov = fov;
  const double znear = std::max(number(c.at("nearPlane")), 0.001);
  cam.perspective.znear = znear;
  const double zfar = number(c.at("farPlane"));
  if (zfar > znear) cam.perspective.zfar = zfar;  // otherwise infinite
  b.model.cameras.push_back(std::move(cam));
  node.camera = static_cast<int>(b.model.cameras.size() - 1);
}

void addLight(Builder& b, tinygltf::Node& node, const DecodedChunk& c, const char* type) {
  tinygltf::Light light;
  light.name = node.name;
  const Json& colour = c.at("colour");
  // 0..255 to 0..1; a negative light has no glTF form and gives no light.
  for (int k = 0; k < 3; ++k) light.color.push_back(std::clamp(number(colour.at(k)) / 255.0, 0.0, 1.0));
  light.intensity = std::max(number(c.at("intensity")), 0.0);
  if (std::string(type) == "directionalLight") {
    light.type = "directional";
  } else {
    const double end = number(c.at("attenuationEnd"));
    if (end > 0) light.range = end;
    if (std::string(type) == "omniLight") {
      light.type = "point";
    } else {
      light.type = "spot";
      // The file's angles are whole cones, glTF's are from the axis.
      const double outer = std::clamp(number(c.at("falloff")) / 2.0, 1e-4, std::numbers::pi / 2);
      const double inner = std::clamp(number(c.at("hotspot")) / 2.0, 0.0, outer * 0.999);
      light.spot.outerConeAngle = outer;
      light.spot.innerConeAngle = inner;
    }
  }
  b.model.lights.push_back(std::move(light));
  tinygltf::Value::Object ref{{"light", tinygltf::Value(static_cast<int>(b.model.lights.size() - 1))}};
  node.extensions["KHR_lights_punctual"] = tinygltf::Value(std::move(ref));
}

}  // namespace

void addNodes(Builder& b, const DecodedFile& scene) {
  std::vector<std::string> parentNames;
  std::vector<bool> relative;  // whether the node's transform is relative to its parent
  // A file written without hierarchies gives world transforms and keys; only
  // an object chunk tells (a parent named, hasParent false), and without one
  // the exporter's default, hierarchies kept, is taken.
  bool hierarchies = true;
  for (const DecodedChunk& c : scene.chunks) {
    const ObjectKind* kind = objectKindOf(c);
    if (!kind) continue;
    const DecodedChunk* object = childOfKind(c, chunk_kind::kObject);
    if (!object) {
      b.warn(std::string(c.name) + " at offset " + std::to_string(c.offset) + " has no object chunk; left out");
      continue;
    }
    tinygltf::Node node;
    node.name = object->at("name").get<std::string>();
    if (b.nodeByName.count(node.name)) {
      b.warn("a second node named \"" + codePageToUtf8(node.name) + "\" at offset " + std::to_string(c.offset) +
             "; left out");
      continue;
    }
    const Mat4 local = fileMatrixToGltf(object->at("transform"));
    setTrs(node, local);

    tinygltf::Value::Object extras;
    extras["type"] = tinygltf::Value(std::string(kind->type));
    extras["parentName"] = tinygltf::Value(object->at("parentName").get<std::string>());
    extras["userProperties"] = tinygltf::Value(object->at("userProperties").get<std::string>());
    if (isKind(c, chunk_kind::kHelper)) extras["className"] = tinygltf::Value(c.at("className").get<std::string>());
    node.extras = tinygltf::Value(std::move(extras));

    if (isKind(c, chunk_kind::kCamera)) addCamera(b, node, c);
    else if (kind->type != std::string("mesh") && kind->type != std::string("helper")) addLight(b, node, c, kind->type);

    b.nodeByName[node.name] = static_cast<int>(b.model.nodes.size());
    b.nodeByChunk[c.offset] = static_cast<int>(b.model.nodes.size());
    b.model.nodes.push_back(std::move(node));
    b.nodeLocal.push_back(local);
    b.nodeParent.push_back(-1);
    parentNames.push_back(object->at("parentName").get<std::string>());
    relative.push_back(object->at("hasParent").get<bool>());
    if (!parentNames.back().empty() && !relative.back()) hierarchies = false;
  }
  // The exporter animates every node it walks but writes no object chunk for
  // a node without an object (a bone, a group) or for a camera's or light's
  // target: their keys make the node, placed where the first key puts it,
  // under the parent the keys name. A node whose keys all hold one
  // transform is a group, not animated, whatever the other nodes do.
  for (const DecodedChunk& c : scene.chunks) {
    if (!isKind(c, chunk_kind::kTransformAnimation)) continue;
    const DecodedChunk* header = childOfKind(c, chunk_kind::kAnimationHeader);
    const Json& keys = c.at("keys");
    if (!header || keys.empty()) continue;
    const std::string name = header->at("name").get<std::string>();
    if (b.nodeByName.count(name)) continue;
    const bool moves = std::any_of(keys.begin(), keys.end(),
                                   [&](const Json& key) { return key.at("transform") != keys.front().at("transform"); });
    b.addRootNode(name, moves ? "animated" : "group", fileMatrixToGltf(keys.front().at("transform")));
    const std::string parent = c.at("parentName").get<std::string>();
    b.model.nodes.back().extras.Get<tinygltf::Value::Object>()["parentName"] = tinygltf::Value(parent);
    parentNames.push_back(parent);
    relative.push_back(hierarchies);
  }
  // Only a transform relative to its parent makes a child; a node whose
  // transform is a world one stays at the root, its file parent in extras.
  for (std::size_t i = 0; i < parentNames.size(); ++i) {
    if (!relative[i] || parentNames[i].empty()) continue;
    const auto p = b.nodeByName.find(parentNames[i]);
    if (p == b.nodeByName.end()) {
      b.warn("node \"" + codePageToUtf8(b.model.nodes[i].name) + "\" names parent \"" + codePageToUtf8(parentNames[i]) +
             "\", which has neither an object nor keys in the file; placed at the root");
      continue;
    }
    // A cycle cannot come from pre-order writing, but a damaged file may hold one.
    bool cycle = false;
    for (int a = p->second; a >= 0; a = b.nodeParent[static_cast<std::size_t>(a)])
      if (a == static_cast<int>(i)) cycle = true;
    if (cycle) {
      b.warn("node \"" + codePageToUtf8(b.model.nodes[i].name) + "\" would be its own ancestor; placed at the root");
      continue;
    }
    b.nodeParent[i] = p->second;
    b.model.nodes[static_cast<std::size_t>(p->second)].children.push_back(static_cast<int>(i));
  }
}

}  // namespace zt2dump::gltf
