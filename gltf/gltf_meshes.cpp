// Mesh chunks as glTF meshes, one primitive per material group, and the
// skin of the .skd file.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <optional>

#include "gltf/gltf_builder.h"

namespace zt2dump::gltf {

namespace {

std::vector<std::size_t> counts(const Json& a) {
  std::vector<std::size_t> r;
  for (const Json& v : a) r.push_back(v.get<std::size_t>());
  return r;
}

struct Influence {
  std::uint16_t joint;
  float weight;
};

// Per vertex up to four influences, strongest first, weights summing to 1.
struct SkinData {
  std::vector<int> joints;  // node of each bone of the .skd
  std::vector<bool> standIn;  // per joint: made for a bone the file holds nothing of
  std::vector<std::array<Influence, 4>> vertices;
};

struct MeshSource {
  const DecodedChunk* vertices = nullptr;
  const DecodedChunk* faces = nullptr;
  const DecodedChunk* names = nullptr;
  const DecodedChunk* uv = nullptr;      // mapping channel 0
  const DecodedChunk* colour = nullptr;  // mapping channel 1: the vertex colours
};

// Checks that a group table covers exactly `total` items.
bool groupsCover(const std::vector<std::size_t>& groups, std::size_t total) {
  return std::accumulate(groups.begin(), groups.end(), std::size_t{0}) == total;
}

int buildMesh(Builder& b, const std::string& nodeName, const MeshSource& src, const SkinData* skin) {
  const std::size_t n = src.vertices->at("vertexCount").get<std::size_t>();
  const Json& positions = src.vertices->at("positions");
  const Json& normals = src.vertices->at("normals");
  const std::vector<std::size_t> groupVertices = counts(src.vertices->at("groupVertexCounts"));
  const std::vector<std::size_t> groupTriangles = counts(src.faces->at("groupTriangleCounts"));
  const Json& indices = src.faces->at("indices");
  const std::string where = "mesh \"" + codePageToUtf8(nodeName) + "\"";
  if (groupVertices.size() != groupTriangles.size() || !groupsCover(groupVertices, n) ||
      !groupsCover(groupTriangles, indices.size() / 3)) {
    b.warn(where + ": its group tables do not match its vertices and faces; left out");
    return -1;
  }
  const Json* uv = src.uv && src.uv->at("coordinateCount").get<std::size_t>() == n ? &src.uv->at("coordinates") : nullptr;
  const Json* colour =
      src.colour && src.colour->at("coordinateCount").get<std::size_t>() == n ? &src.colour->at("coordinates") : nullptr;

  tinygltf::Mesh mesh;
  mesh.name = nodeName;
  std::size_t vStart = 0, tStart = 0;
  for (std::size_t g = 0; g < groupVertices.size(); ++g) {
    const std::size_t vCount = groupVertices[g], tCount = groupTriangles[g];
    const std::size_t v0 = vStart, t0 = tStart;
    vStart += vCount;
    tStart += tCount;
    if (tCount == 0 || vCount == 0) continue;

    tinygltf::Primitive prim;
    prim.mode = TINYGLTF_MODE_TRIANGLES;
    std::vector<float> pos, nor, tex, col, weights;
    std::vector<std::uint16_t> joints;
    bool unitNormals = true;
    for (std::size_t v = v0; v < v0 + vCount; ++v) {
      // The file's mirror of z is undone (docs/gltf.md).
      const Json& p = positions.at(v);
      pos.insert(pos.end(), {float(number(p[0])), float(number(p[1])), float(-number(p[2]))});
      const Json& q = normals.at(v);
      const float nx = float(number(q[0])), ny = float(number(q[1])), nz = float(-number(q[2]));
      if (std::fabs(std::sqrt(nx * nx + ny * ny + nz * nz) - 1.0f) > 0.001f) unitNormals = false;
      nor.insert(nor.end(), {nx, ny, nz});
      if (uv) {
        const Json& t = uv->at(v);
        tex.insert(tex.end(), {float(number(t[0])), float(1.0 + number(t[1]))});
      }
      if (colour) {
        const Json& c = colour->at(v);
        for (double x : {number(c[0]), -number(c[1]), number(c[2])}) col.push_back(float(std::clamp(x, 0.0, 1.0)));
      }
      if (skin) {
        for (const Influence& in : skin->vertices[v]) {
          joints.push_back(in.joint);
          weights.push_back(in.weight);
        }
      }
    }
    prim.attributes["POSITION"] = b.addFloatAccessor(pos, 3, TINYGLTF_TARGET_ARRAY_BUFFER, true);
    // A zero normal (the file's "none") is no glTF normal; viewers then make flat ones.
    if (unitNormals) prim.attributes["NORMAL"] = b.addFloatAccessor(nor, 3, TINYGLTF_TARGET_ARRAY_BUFFER, false);
    if (uv) prim.attributes["TEXCOORD_0"] = b.addFloatAccessor(tex, 2, TINYGLTF_TARGET_ARRAY_BUFFER, false);
    if (colour) prim.attributes["COLOR_0"] = b.addFloatAccessor(col, 3, TINYGLTF_TARGET_ARRAY_BUFFER, false);
    if (skin) {
      prim.attributes["JOINTS_0"] = b.addJointAccessor(joints);
      prim.attributes["WEIGHTS_0"] = b.addFloatAccessor(weights, 4, TINYGLTF_TARGET_ARRAY_BUFFER, false);
    }

    std::vector<std::uint32_t> idx;
    idx.reserve(3 * tCount);
    for (std::size_t t = t0; t < t0 + tCount; ++t) {
      std::uint32_t tri[3];
      for (int k = 0; k < 3; ++k) {
        const std::size_t i = indices.at(3 * t + static_cast<std::size_t>(k)).get<std::size_t>();
        if (i >= vCount) {
          b.warn(where + " group " + std::to_string(g) + " names vertex " + std::to_string(i) + " of " +
                 std::to_string(vCount) + "; mesh left out");
          return -1;
        }
        tri[k] = static_cast<std::uint32_t>(i);
      }
      // Undoing the mirror turns the faces inside out: swap two corners.
      idx.insert(idx.end(), {tri[0], tri[2], tri[1]});
    }
    prim.indices = b.addIndexAccessor(idx);
    std::string material;
    if (src.names) {
      const Json& names = src.names->at("names");
      if (g < names.size()) material = names[g].get<std::string>();
    }
    if (!material.empty()) prim.material = uv ? materialForName(b, material) : materialWithoutTexture(b, materialForName(b, material));
    mesh.primitives.push_back(std::move(prim));
  }
  if (mesh.primitives.empty()) return -1;
  b.model.meshes.push_back(std::move(mesh));
  return static_cast<int>(b.model.meshes.size() - 1);
}

// A joint for a bone the file holds nothing of, on `node` without a
// transform of its own.
int standInJoint(Builder& b, const std::string& name, int node) {
  const int joint = b.addRootNode(name, "bone");
  b.nodeParent[static_cast<std::size_t>(joint)] = node;
  b.model.nodes[static_cast<std::size_t>(node)].children.push_back(joint);
  return joint;
}

// The .skd's influences for the mesh of node `meshNode`, or nothing: with a
// warning when they do not fit, silently when every vertex follows only the
// mesh's own node (the importer binds a mesh without bones so), which makes a
// plain mesh.
std::optional<SkinData> readSkin(Builder& b, const DecodedChunk& vd, std::size_t vertexCount, int meshNode) {
  const Json& bones = vd.at("boneNames");
  const Json& start = vd.at("influenceStart");
  const Json& count = vd.at("influenceCount");
  const Json& bone = vd.at("influenceBone");
  const Json& weight = vd.at("influenceWeight");
  if (start.size() != vertexCount || count.size() != vertexCount || bone.size() != weight.size() || bones.empty()) {
    b.warn("the .skd does not fit its mesh (" + std::to_string(start.size()) + " skin vertices, " +
           std::to_string(vertexCount) + " mesh vertices); no skin");
    return std::nullopt;
  }
  const std::string& meshName = b.model.nodes[static_cast<std::size_t>(meshNode)].name;
  const bool onlyItsOwnNode = std::all_of(bone.begin(), bone.end(), [&](const Json& j) {
    const long long k = j.get<long long>();
    return k >= 0 && static_cast<std::size_t>(k) < bones.size() && bones[static_cast<std::size_t>(k)] == meshName;
  });
  if (onlyItsOwnNode) return std::nullopt;
  SkinData s;
  for (const Json& name : bones) {
    const std::string boneName = name.get<std::string>();
    const auto it = b.nodeByName.find(boneName);
    // A bone that was not exported (a hidden one, say) still needs a joint:
    // one on the mesh's node, so that what it holds shows in its bind pose
    // and moves with the node, as a vertex that no bone holds does.
    s.standIn.push_back(it == b.nodeByName.end());
    s.joints.push_back(s.standIn.back() ? standInJoint(b, boneName, meshNode) : it->second);
    // A node known by its keys alone is, here, a bone.
    tinygltf::Value::Object& extras = b.model.nodes[static_cast<std::size_t>(s.joints.back())].extras.Get<tinygltf::Value::Object>();
    if (extras["type"].Get<std::string>() == "animated" || extras["type"].Get<std::string>() == "group")
      extras["type"] = tinygltf::Value(std::string("bone"));
  }
  // The joint of the vertices no bone holds: the mesh's own node, with which they move.
  auto ownJoint = [&]() -> std::uint16_t {
    auto it = std::find(s.joints.begin(), s.joints.end(), meshNode);
    if (it == s.joints.end()) {
      it = s.joints.insert(s.joints.end(), meshNode);
      s.standIn.push_back(false);
    }
    return static_cast<std::uint16_t>(it - s.joints.begin());
  };
  s.vertices.resize(vertexCount);
  for (std::size_t v = 0; v < vertexCount; ++v) {
    std::vector<Influence> list;
    const long long first = start[v].get<long long>(), k = count[v].get<long long>();
    for (long long i = first; i < first + k; ++i) {
      if (i < 0 || static_cast<std::size_t>(i) >= bone.size()) break;
      const long long j = bone[static_cast<std::size_t>(i)].get<long long>();
      const float w = float(number(weight[static_cast<std::size_t>(i)]));
      if (j < 0 || static_cast<std::size_t>(j) >= bones.size() || !(w > 0)) continue;
      list.push_back({static_cast<std::uint16_t>(j), w});
    }
    std::stable_sort(list.begin(), list.end(), [](const Influence& a, const Influence& c) { return a.weight > c.weight; });
    if (list.size() > 4) list.resize(4);
    if (list.empty()) list.push_back({ownJoint(), 1.0f});
    float sum = 0;
    for (const Influence& in : list) sum += in.weight;
    std::array<Influence, 4> out{};
    for (std::size_t i = 0; i < list.size(); ++i) out[i] = {list[i].joint, list[i].weight / sum};
    s.vertices[v] = out;
  }
  return s;
}

// glTF wants a skin's joints under one root. When they stand under several
// (bones at the top level, or bones the file does not hold), those roots go
// under one new node without transform, so no node moves.
void gatherJoints(Builder& b, const std::vector<int>& joints, const std::string& meshName) {
  std::vector<int> roots;
  for (int j : joints) {
    int r = j;
    while (b.nodeParent[static_cast<std::size_t>(r)] >= 0) r = b.nodeParent[static_cast<std::size_t>(r)];
    if (std::find(roots.begin(), roots.end(), r) == roots.end()) roots.push_back(r);
  }
  if (roots.size() < 2) return;
  tinygltf::Node group;
  group.name = meshName + " skeleton";
  group.extras = tinygltf::Value(tinygltf::Value::Object{{"type", tinygltf::Value(std::string("skeleton"))},
                                                         {"parentName", tinygltf::Value(std::string())},
                                                         {"userProperties", tinygltf::Value(std::string())}});
  group.children = roots;
  const int index = static_cast<int>(b.model.nodes.size());
  b.model.nodes.push_back(std::move(group));
  b.nodeLocal.push_back(Mat4::identity());
  b.nodeParent.push_back(-1);
  for (int r : roots) b.nodeParent[static_cast<std::size_t>(r)] = index;
}

// One skin per node that shows the skinned mesh: the bind matrices place the
// mesh where that node stands. A node sharing the mesh of the .skd's node
// gets stand-in joints of its own, named "<bone> (<node>)", so that it moves
// with itself, not with the other.
int addSkin(Builder& b, const SkinData& s, int meshNode, int skdNode) {
  tinygltf::Skin skin;
  skin.name = b.model.nodes[static_cast<std::size_t>(meshNode)].name;
  skin.joints = s.joints;
  if (meshNode != skdNode)
    for (std::size_t j = 0; j < s.joints.size(); ++j)
      if (s.standIn[j])
        skin.joints[j] = standInJoint(b, b.model.nodes[static_cast<std::size_t>(s.joints[j])].name + " (" + skin.name + ")", meshNode);
  gatherJoints(b, skin.joints, skin.name);
  const Mat4 meshGlobal = b.nodeGlobal(meshNode);
  std::vector<float> ibm;
  for (int j : s.joints) {
    // Column-vector IBM = J^-1 M is, in rows, M x J^-1.
    const Mat4 m = meshGlobal * inverse(b.nodeGlobal(j));
    for (int r = 0; r < 4; ++r)
      for (int c = 0; c < 4; ++c) ibm.push_back(float(r < 3 && c == 3 ? 0.0 : (r == 3 && c == 3 ? 1.0 : m.m[r][c])));
  }
  skin.inverseBindMatrices = b.addFloatAccessor(ibm, 16, 0, false);
  b.model.skins.push_back(std::move(skin));
  return static_cast<int>(b.model.skins.size() - 1);
}

}  // namespace

void addMeshes(Builder& b, const DecodedFile& scene, const DecodedFile* vertexData) {
  const DecodedChunk* vd = nullptr;
  std::string skinnedNode;
  if (vertexData && !vertexData->chunks.empty() && isKind(vertexData->chunks[0], chunk_kind::kVertexData)) {
    vd = &vertexData->chunks[0];
    const Json& names = vd->at("nodeNames");
    if (!names.empty()) skinnedNode = names[0].get<std::string>();
  }

  std::map<std::string, int> meshOfNode;
  std::vector<std::pair<int, std::string>> references;
  std::optional<SkinData> skin;
  int skinnedMesh = -1;
  for (const DecodedChunk& c : scene.chunks) {
    if (!isKind(c, chunk_kind::kMesh)) continue;
    const DecodedChunk* object = childOfKind(c, chunk_kind::kObject);
    if (!object) continue;
    const std::string name = object->at("name").get<std::string>();
    const auto node = b.nodeByChunk.find(c.offset);
    if (node == b.nodeByChunk.end()) continue;  // left out with the node
    if (const DecodedChunk* ref = childOfKind(c, chunk_kind::kMeshReference)) {
      references.emplace_back(node->second, ref->at("referenceName").get<std::string>());
      continue;
    }
    MeshSource src;
    src.vertices = childOfKind(c, chunk_kind::kMeshVertex);
    src.faces = childOfKind(c, chunk_kind::kMeshFace);
    src.names = childOfKind(c, chunk_kind::kMeshMaterialNames);
    for (const DecodedChunk& sub : c.children)
      if (isKind(sub, chunk_kind::kMeshMapChannel)) {
        const auto channel = sub.at("channel").get<std::uint32_t>();
        if (channel == 0) src.uv = &sub;
        else if (channel == 1) src.colour = &sub;
      }
    if (!src.vertices || !src.faces) continue;  // a mesh without geometry is a node only
    const SkinData* skinFor = nullptr;
    if (vd && name == skinnedNode) {
      skin = readSkin(b, *vd, src.vertices->at("vertexCount").get<std::size_t>(), node->second);
      if (skin) skinFor = &*skin;
    }
    const int mesh = buildMesh(b, name, src, skinFor);
    if (mesh < 0) continue;
    meshOfNode[name] = mesh;
    b.model.nodes[static_cast<std::size_t>(node->second)].mesh = mesh;
    if (skinFor) skinnedMesh = mesh;
  }
  if (vd && !skinnedNode.empty() && !meshOfNode.count(skinnedNode))
    b.warn("the .skd names mesh \"" + codePageToUtf8(skinnedNode) + "\", which the scene file does not hold; no skin");

  for (const auto& [node, target] : references) {
    const auto m = meshOfNode.find(target);
    if (m == meshOfNode.end()) {
      b.warn("node \"" + codePageToUtf8(b.model.nodes[static_cast<std::size_t>(node)].name) + "\" shares the mesh of \"" +
             codePageToUtf8(target) +
             "\", which has none in the file");
      continue;
    }
    b.model.nodes[static_cast<std::size_t>(node)].mesh = m->second;
  }
  // Skins last: their bind matrices need every node in place.
  if (skin && skinnedMesh >= 0) {
    const int skdNode = b.nodeByName.at(skinnedNode);
    const std::size_t nodes = b.model.nodes.size();  // not the joints made on the way
    for (std::size_t n = 0; n < nodes; ++n)
      if (b.model.nodes[n].mesh == skinnedMesh) b.model.nodes[n].skin = addSkin(b, *skin, static_cast<int>(n), skdNode);
  }
}

}  // namespace zt2dump::gltf
