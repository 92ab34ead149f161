// Models in: 3DS files written here with lib3ds and OBJ files written by hand,
// exported through zt2export and read back with zt2dump; the scene written
// with --write-scene exports to the same bytes; a skinned glTF of the corpus
// keeps its weights and its key times; bad models are refused.
#include <gtest/gtest.h>
#include <lib3ds/camera.h>
#include <lib3ds/file.h>
#include <lib3ds/material.h>
#include <lib3ds/mesh.h>
#include <lib3ds/node.h>
#include <lib3ds/tracks.h>

#include <assimp/Importer.hpp>
#include <assimp/scene.h>
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "importers/smoothing_from_normals.h"
#include "support/scene_export.h"

namespace {

using nlohmann::json;
using ztx_test::TempDir;

// A unit cube: corner i at (bit 0, bit 1, bit 2) of i; each side a quad of two
// triangles, (0, 1, 2) and (0, 2, 3), with its outward normal.
const int kSides[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
const int kSideNormals[6][3] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};
const std::string kSkinnedGltf = std::string(ZTX_ASSIMP_MODELS) + "/glTF2/simple_skin/simple_skin.gltf";

// The cube as 3DS: each side its own smoothing group or all sides in group 1;
// one material; and, when asked, a camera flying from (0, -10, 2) at frame 0
// to (10, -10, 2) at frame 10.
void writeBox3ds(const std::string& path, bool sixGroups, bool camera = false) {
  Lib3dsFile* file = lib3ds_file_new();
  Lib3dsMaterial* material = lib3ds_material_new();
  std::strcpy(material->name, "Red");
  material->diffuse[0] = 1;
  lib3ds_file_insert_material(file, material);
  Lib3dsMesh* mesh = lib3ds_mesh_new("Box");
  lib3ds_mesh_new_point_list(mesh, 8);
  for (int i = 0; i < 8; ++i)
    for (int k = 0; k < 3; ++k) mesh->pointL[i].pos[k] = static_cast<float>((i >> k) & 1);
  lib3ds_mesh_new_face_list(mesh, 12);
  for (int s = 0; s < 6; ++s)
    for (int t = 0; t < 2; ++t) {
      Lib3dsFace& face = mesh->faceL[s * 2 + t];
      for (int k = 0; k < 3; ++k) face.points[k] = static_cast<Lib3dsWord>(kSides[s][k == 0 ? 0 : t + k]);
      face.smoothing = sixGroups ? 1u << s : 1u;
      std::strcpy(face.material, "Red");
    }
  lib3ds_file_insert_mesh(file, mesh);
  if (camera) {
    Lib3dsCamera* cam = lib3ds_camera_new("Cam");
    cam->position[1] = -10, cam->position[2] = 2, cam->fov = 45, cam->near_range = 1, cam->far_range = 500;
    lib3ds_file_insert_camera(file, cam);
    Lib3dsNode* node = lib3ds_node_new_camera();
    Lib3dsNode* target = lib3ds_node_new_target();
    for (Lib3dsNode* n : {node, target}) {
      std::strcpy(n->name, "Cam");
      n->parent_id = LIB3DS_NO_PARENT;
    }
    node->node_id = 0, target->node_id = 1;
    for (int frame : {0, 10}) {
      Lib3dsLin3Key* key = lib3ds_lin3_key_new();
      key->tcb.frame = frame;
      key->value[0] = static_cast<float>(frame), key->value[1] = -10, key->value[2] = 2;
      lib3ds_lin3_track_insert(&node->data.camera.pos_track, key);
    }
    Lib3dsLin1Key* fov = lib3ds_lin1_key_new();
    fov->value = 45;
    lib3ds_lin1_track_insert(&node->data.camera.fov_track, fov);
    lib3ds_lin3_track_insert(&target->data.target.pos_track, lib3ds_lin3_key_new());
    lib3ds_file_insert_node(file, node);
    lib3ds_file_insert_node(file, target);
    file->segment_from = 0, file->segment_to = 10, file->frames = 10;
  }
  ASSERT_TRUE(lib3ds_file_save(file, path.c_str()));
  lib3ds_file_free(file);
}

// The cube as OBJ, its normals either per side (hard edges) or one per corner
// pointing outwards (all soft).
void writeBoxObj(const std::string& path, bool hardEdges) {
  const auto triple = [](int x, int y, int z) {
    return std::to_string(x) + " " + std::to_string(y) + " " + std::to_string(z) + "\n";
  };
  std::string text;
  for (int i = 0; i < 8; ++i) text += "v " + triple(i & 1, (i >> 1) & 1, (i >> 2) & 1);
  for (const auto& n : kSideNormals) text += "vn " + triple(n[0], n[1], n[2]);
  for (int i = 0; i < 8; ++i) text += "vn " + triple((i & 1) * 2 - 1, ((i >> 1) & 1) * 2 - 1, ((i >> 2) & 1) * 2 - 1);
  for (int s = 0; s < 6; ++s) {
    text += "f";
    for (int v : kSides[s]) text += " " + std::to_string(v + 1) + "//" + std::to_string(hardEdges ? s + 1 : 7 + v);
    text += "\n";
  }
  ztx_test::writeText(path, text);
}

struct Exported {
  ztx_test::RunResult run;
  json scene;    // zt2dump --json of the .zt2
  json skin;     // and of the .skd
  json written;  // the scene file written with --write-scene, when asked for
};

// Exports `model` into `dir` as out.zt2, with --write-scene model.scene.json when asked.
Exported exportModel(const TempDir& dir, const std::string& model, bool writeScene = false) {
  std::vector<std::string> args = {model, "-o", dir.file("out.zt2"), "--config-dir", dir.file("config")};
  if (writeScene) args.insert(args.end(), {"--write-scene", dir.file("model.scene.json")});
  Exported e;
  e.run = ztx_test::runExport(args);
  if (std::filesystem::exists(dir.file("out.zt2"))) {
    e.scene = ztx_test::dumpJson(dir.file("out.zt2"));
    EXPECT_EQ(ztx_test::runDump({"--validate", dir.file("out.zt2")}).exitCode, 0);
  }
  if (std::filesystem::exists(dir.file("out.skd"))) e.skin = ztx_test::dumpJson(dir.file("out.skd"));
  if (writeScene && e.run.exitCode == 0) e.written = json::parse(ztx_test::readText(dir.file("model.scene.json")));
  return e;
}

int exportedVertices(const json& scene) {
  int count = 0;
  for (const json& chunk : ztx_test::topChunks(scene))
    if (chunk.at("name") == "MeshChunk")
      for (const json& child : chunk.at("children"))
        if (child.at("name") == "MeshVertexChunk") count += child.at("fields").at("vertexCount").get<int>();
  return count;
}

struct BoxCase {
  const char* name;
  bool obj;
  bool split;  // six groups / hard edges
  int vertices;
};

class BoxModel : public testing::TestWithParam<BoxCase> {};

// Corners are split where sides meet at a hard edge: 6 x 4 corners; a box
// smooth all over keeps its 8.
TEST_P(BoxModel, ExportsItsVertices) {
  const BoxCase& c = GetParam();
  TempDir dir;
  const std::string model = dir.file(c.obj ? "box.obj" : "box.3ds");
  if (c.obj)
    writeBoxObj(model, c.split);
  else
    writeBox3ds(model, c.split);
  const Exported e = exportModel(dir, model);
  ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
  EXPECT_EQ(exportedVertices(e.scene), c.vertices);
  EXPECT_EQ(ztx_test::objectNames(e.scene).size(), 1u);
}

INSTANTIATE_TEST_SUITE_P(Import, BoxModel,
                         testing::Values(BoxCase{"SixGroups3ds", false, true, 24}, BoxCase{"OneGroup3ds", false, false, 8},
                                         BoxCase{"HardNormalsObj", true, true, 24}, BoxCase{"SoftNormalsObj", true, false, 8}),
                         [](const auto& info) { return std::string(info.param.name); });

TEST(SmoothingFromNormals, FlatSidesOfACubeNeverShareAGroupWithANeighbour) {
  // Two triangles per side, normals of the side at every corner.
  std::vector<std::uint32_t> faces;
  std::vector<float> corners;
  for (int s = 0; s < 6; ++s)
    for (int t = 0; t < 2; ++t)
      for (int v : {kSides[s][0], kSides[s][t + 1], kSides[s][t + 2]}) {
        faces.push_back(static_cast<std::uint32_t>(v));
        for (int n : kSideNormals[s]) corners.push_back(static_cast<float>(n));
      }
  // Greedy in face order: bottom 1, top 1 (they never meet), then the four
  // walls alternate between groups 2 and 4... as their neighbours allow.
  EXPECT_EQ(hostimport::smoothingFromNormals(faces, corners, 8),
            (std::vector<std::uint32_t>{1, 1, 1, 1, 2, 2, 2, 2, 4, 4, 4, 4}));
}

// Whatever the front end, the written scene file exports to the bytes of the
// direct export.
TEST(WriteScene, ExportsTheSameBytesAsTheModel) {
  TempDir dir;
  writeBox3ds(dir.file("box.3ds"), true, true);
  writeBoxObj(dir.file("box.obj"), true);
  std::vector<std::string> models = {dir.file("box.3ds"), dir.file("box.obj")};
  if (std::filesystem::exists(kSkinnedGltf)) models.push_back(kSkinnedGltf);
  for (const std::string& model : models) {
    SCOPED_TRACE(model);
    TempDir direct, written, again;
    const Exported first = exportModel(direct, model);
    ASSERT_EQ(first.run.exitCode, 0) << first.run.out << first.run.err;
    const Exported viaScene = exportModel(written, model, true);
    ASSERT_EQ(viaScene.run.exitCode, 0) << viaScene.run.out << viaScene.run.err;
    ASSERT_TRUE(std::filesystem::exists(written.file("model.bin")));
    const Exported second = exportModel(again, written.file("model.scene.json"));
    ASSERT_EQ(second.run.exitCode, 0) << second.run.out << second.run.err;
    for (const char* name : {"out.zt2", "out.skd"})
      EXPECT_EQ(ztx_test::readBytes(direct.file(name)), ztx_test::readBytes(again.file(name))) << name;
  }
}

TEST(Import3ds, CameraKeysAreSampledPerFrameBetweenItsKeys) {
  TempDir dir;
  writeBox3ds(dir.file("cam.3ds"), true, true);
  const Exported e = exportModel(dir, dir.file("cam.3ds"), true);
  ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
  EXPECT_EQ(e.written.at("frameRate"), 30);
  EXPECT_EQ(e.written.at("animationRange"), json::array({0, 10}));
  json camera;
  for (const json& node : e.written.at("nodes"))
    if (node.at("name") == "Cam") camera = node;
  ASSERT_TRUE(camera.is_object());
  EXPECT_EQ(camera.at("object").at("type"), "camera");
  EXPECT_EQ(camera.at("object").at("hither"), 1.0);
  EXPECT_EQ(camera.at("object").at("yon"), 500.0);
  const json& keys = camera.at("transform").at("position").at("keys");
  ASSERT_EQ(keys.size(), 11u);
  EXPECT_EQ(keys.front().at("frame"), 0);
  EXPECT_EQ(keys.front().at("value"), json::array({0.0, -10.0, 2.0}));
  EXPECT_EQ(keys.back().at("frame"), 10);
  EXPECT_EQ(keys.back().at("value"), json::array({10.0, -10.0, 2.0}));
  EXPECT_EQ(camera.at("transform").at("rotation").at("keys").size(), 11u) << "it keeps looking at its target";
}

// The skinned glTF: each exported vertex carries weights that sum as the
// source's vertices do (to 1 here). Its animation runs 5.5 s with linear
// rotation keys at 0, 0.5, ..., 5.5 s: keys at those times in host ticks
// (4800 a second), the range 5.5 s at 30 frames.
TEST(ImportAssimp, SkinnedGltfKeepsItsWeightSumsAndKeyTimes) {
  if (!std::filesystem::exists(kSkinnedGltf))
    GTEST_SKIP() << kSkinnedGltf << " is not installed (Debian package assimp-testmodels)";
  Assimp::Importer importer;
  const aiScene* source = importer.ReadFile(kSkinnedGltf, 0);
  ASSERT_NE(source, nullptr);
  std::set<long> sourceSums;  // in millionths
  for (unsigned m = 0; m < source->mNumMeshes; ++m) {
    const aiMesh& mesh = *source->mMeshes[m];
    std::vector<double> sums(mesh.mNumVertices, 0.0);
    for (unsigned b = 0; b < mesh.mNumBones; ++b)
      for (unsigned w = 0; w < mesh.mBones[b]->mNumWeights; ++w)
        sums[mesh.mBones[b]->mWeights[w].mVertexId] += mesh.mBones[b]->mWeights[w].mWeight;
    for (double s : sums) sourceSums.insert(std::lround(s * 1e6));
  }
  TempDir dir;
  const Exported e = exportModel(dir, kSkinnedGltf, true);
  ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
  ASSERT_TRUE(e.skin.is_object());
  const json& fields = e.skin.at("chunks").at(0).at("fields");
  EXPECT_GE(fields.at("boneNames").size(), 2u);
  const auto& start = fields.at("influenceStart");
  const auto& count = fields.at("influenceCount");
  const auto& weight = fields.at("influenceWeight");
  ASSERT_EQ(start.size(), count.size());
  ASSERT_GT(start.size(), 0u);
  for (std::size_t v = 0; v < start.size(); ++v) {
    double sum = 0;
    for (int k = 0; k < count[v].get<int>(); ++k) sum += weight[start[v].get<std::size_t>() + k].get<double>();
    EXPECT_TRUE(sourceSums.count(std::lround(sum * 1e6))) << "vertex " << v << " sums to " << sum;
  }

  EXPECT_EQ(e.written.at("animationRange"), json::array({0, 165}));
  const json& animated = e.written.at("nodes").at(0).at("children").at(0).at("children").at(0);
  const json& keys = animated.at("transform").at("rotation").at("keys");
  ASSERT_EQ(keys.size(), 12u);
  for (std::size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(keys[i].at("tick"), static_cast<int>(i) * 2400);
  // The bone's skin is empty, the mesh's holds one vertex per welded position.
  EXPECT_EQ(animated.at("modifiers").at(0).count("vertices"), 0u);
  EXPECT_EQ(e.written.at("nodes").at(0).at("modifiers").at(0).at("vertices").size(), 10u);
}

// What the front ends decide so that a model exports with the default
// options: repeated names take a number, a mesh without a material gets
// "Default", and a mesh without bones is skinned rigidly to its own node.
TEST(Import3ds, TwinMeshesWithoutMaterialExportWithDefaults) {
  TempDir dir;
  Lib3dsFile* file = lib3ds_file_new();
  for (int m = 0; m < 2; ++m) {  // one triangle each, at z = 0 and z = 1
    Lib3dsMesh* mesh = lib3ds_mesh_new("Twin");
    lib3ds_mesh_new_point_list(mesh, 3);
    for (int i = 0; i < 3; ++i)
      for (int k = 0; k < 3; ++k) mesh->pointL[i].pos[k] = static_cast<float>(k == 2 ? m : i == k + 1);
    lib3ds_mesh_new_face_list(mesh, 1);
    mesh->faceL[0].points[0] = 0, mesh->faceL[0].points[1] = 1, mesh->faceL[0].points[2] = 2;
    mesh->faceL[0].smoothing = 1;
    lib3ds_file_insert_mesh(file, mesh);
  }
  ASSERT_TRUE(lib3ds_file_save(file, dir.file("twins.3ds").c_str()));
  lib3ds_file_free(file);
  const Exported e = exportModel(dir, dir.file("twins.3ds"));
  ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
  const std::vector<std::string> names = ztx_test::objectNames(e.scene);
  EXPECT_EQ(std::set<std::string>(names.begin(), names.end()), (std::set<std::string>{"Twin", "Twin#2"}));
  for (const json& chunk : ztx_test::topChunks(e.scene))
    for (const json& child : chunk.at("children"))
      if (child.at("name") == "MeshMaterialNamesChunk") {
        EXPECT_EQ(child.at("fields").at("names"), json::array({"Default"}));
      }
  // The .skd file is the last mesh's (each mesh export saves it under the
  // scene's name): its three vertices hang on its own node, wholly.
  const json& skin = e.skin.at("chunks").at(0).at("fields");
  ASSERT_EQ(skin.at("nodeNames").size(), 1u);
  const json& bones = skin.at("boneNames");
  const auto self = std::find(bones.begin(), bones.end(), skin.at("nodeNames").at(0));
  ASSERT_NE(self, bones.end());
  EXPECT_EQ(skin.at("influenceBone"), json(std::vector<int>(3, static_cast<int>(self - bones.begin()))));
  EXPECT_EQ(skin.at("influenceWeight"), json(std::vector<double>(3, 1.0)));
}

// Materials become the studio's material with the diffuse texture on slot 0;
// an image inside the model is written beside the scene and named by path.
TEST(ImportMaterials, DiffuseTextureOnSlotZeroNamedByItsImage) {
  struct Case {
    std::string model, material, image;
  };
  TempDir dir;
  const std::string glb = std::string(ZTX_ASSIMP_MODELS) + "/glTF2/BoxTextured-glTF-Binary/BoxTextured.glb";
  std::vector<Case> cases = {{ztx_test::sourcePath("examples/crate.3ds"), "Cloth",
                              std::filesystem::canonical(ztx_test::sourcePath("examples/textures/cloth.png")).string()}};
  if (std::filesystem::exists(glb)) cases.push_back({glb, "Texture", dir.file("BoxTextured_texture0.png")});
  for (const Case& c : cases) {
    SCOPED_TRACE(c.model);
    const Exported e = exportModel(dir, c.model, true);
    ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
    json material;
    for (const json& m : e.written.at("materials"))
      if (m.at("name") == c.material) material = m;
    ASSERT_TRUE(material.is_object());
    EXPECT_EQ(material.at("type"), "ztMaterial");
    EXPECT_EQ(material.at("params").at("layer1Flag"), 1);
    const json& texmap = material.at("texmaps").at(0);
    EXPECT_EQ(texmap.at("type"), "ztTexture");
    EXPECT_EQ(texmap.at("params").at("mapFileName"), c.image);
    const auto bytes = ztx_test::readBytes(c.image);
    ASSERT_GE(bytes.size(), 4u);
    EXPECT_EQ(std::string(bytes.begin() + 1, bytes.begin() + 4), "PNG");
  }
}

TEST(ImportErrors, BadModelsAreRefusedByNameWithNothingWritten) {
  TempDir dir;
  writeBox3ds(dir.file("box.3ds"), true);
  const auto box = ztx_test::readBytes(dir.file("box.3ds"));
  auto cut = box;
  cut.resize(cut.size() / 2);
  ztx_test::writeBytes(dir.file("cut.3ds"), cut);
  auto empty = box;  // the version chunk, first in the file, claims no bytes at all
  std::fill(empty.begin() + 8, empty.begin() + 12, 0);
  ztx_test::writeBytes(dir.file("empty-chunk.3ds"), empty);
  ztx_test::writeText(dir.file("junk.obj"), "this is not a model\n\x01\x02");
  ztx_test::writeText(dir.file("fake.3ds"), "solid nothing\n");
  const std::pair<const char*, const char*> cases[] = {
      {"cut.3ds", "cut short"},
      {"empty-chunk.3ds", "chunk 0x0002 at offset 6 claims 0 bytes"},
      {"junk.obj", ""},
      {"fake.3ds", "not a 3DS file"},
      {"missing.fbx", "cannot open the file"}};
  for (const auto& [name, reason] : cases) {
    SCOPED_TRACE(name);
    const Exported e = exportModel(dir, dir.file(name));
    EXPECT_EQ(e.run.exitCode, 2) << e.run.out << e.run.err;
    EXPECT_NE(e.run.err.find(std::string(name) + ": "), std::string::npos) << e.run.err;
    EXPECT_NE(e.run.err.find(reason), std::string::npos) << e.run.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
  }
}

}  // namespace

// A node without geometry in a model without animation is a group in the
// glTF conversion: the exporter writes keys for every node it walks, but
// keys that never change animate nothing.
TEST(ImportNodes, GroupWithoutGeometryInAStillModelIsAGroup) {
  TempDir dir;
  const std::string triangle = "AAAAAAAAAAAAAAAAAACAPwAAAAAAAAAAAAAAAAAAgD8AAAAA";
  ztx_test::writeText(dir.file("still.gltf"), R"({"asset": {"version": "2.0"}, "scene": 0, "scenes": [{"nodes": [0, 2]}],
    "nodes": [{"name": "Group", "children": [1]}, {"name": "Tri", "mesh": 0}, {"name": "Other", "mesh": 0, "translation": [3, 0, 0]}],
    "meshes": [{"primitives": [{"attributes": {"POSITION": 0}}]}],
    "accessors": [{"bufferView": 0, "componentType": 5126, "count": 3, "type": "VEC3", "min": [0, 0, 0], "max": [1, 1, 0]}],
    "bufferViews": [{"buffer": 0, "byteLength": 36}],
    "buffers": [{"byteLength": 36, "uri": "data:application/octet-stream;base64,)" + triangle + R"("}]})");
  const Exported e = exportModel(dir, dir.file("still.gltf"));
  ASSERT_EQ(e.run.exitCode, 0) << e.run.err;
  ASSERT_EQ(ztx_test::runDump({dir.file("out.zt2"), "--gltf", dir.file("out.glb")}).exitCode, 0);
  // The JSON chunk of the .glb: its length at byte 12, its text from byte 20.
  const std::vector<unsigned char> glb = ztx_test::readBytes(dir.file("out.glb"));
  ASSERT_GT(glb.size(), 20u);
  std::uint32_t length = 0;
  std::memcpy(&length, glb.data() + 12, 4);
  const json gltf = json::parse(glb.begin() + 20, glb.begin() + 20 + length);
  std::map<std::string, std::string> types;
  for (const json& n : gltf.at("nodes")) types[n.at("name")] = n.at("extras").at("type");
  EXPECT_EQ(types, (std::map<std::string, std::string>{{"Group", "group"}, {"Other", "mesh"}, {"Tri", "mesh"}}));
}
