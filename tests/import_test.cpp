// Models in: 3DS files written here with lib3ds and OBJ files written by hand,
// exported through zt2export and read back with zt2dump; the scene written
// with --write-scene exports to the same bytes; a skinned glTF of the corpus
// keeps its key times; bad models are refused. Models the
// import library reads only in part, written here by hand: a skeleton with its
// clip and no mesh, keys past the end of their clip, and the words a user reads
// when a model cannot be used at all.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <functional>
#include <lib3ds/camera.h>
#include <lib3ds/file.h>
#include <lib3ds/material.h>
#include <lib3ds/mesh.h>
#include <lib3ds/node.h>
#include <lib3ds/tracks.h>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "importers/gltf_reader.h"
#include "importers/importers.h"
#include "importers/scene_builder.h"
#include "support/b3d_writing.h"
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
  Exported e;
  std::vector<std::string> more;
  if (writeScene) more = {"--write-scene", dir.file("model.scene.json")};
  e.run = ztx_test::runExport(ztx_test::exportArgs(dir, model, dir.file("out.zt2"), more));
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
// smooth all over keeps its 8. An OBJ's normals become smoothing groups in
// which no two flat sides that meet share a group, or their corners would be
// joined.
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

// The "vertices" of the first Physique modifier under `node`, or null.
json firstSkin(const json& node) {
  for (const json& m : node.value("modifiers", json::array()))
    if (m.value("type", "") == "physique" && m.contains("vertices")) return m.at("vertices");
  for (const json& child : node.value("children", json::array()))
    if (json found = firstSkin(child); !found.is_null()) return found;
  return nullptr;
}

// Whatever the front end, the written scene file exports to the bytes of the
// direct export. Its skins are lists up to 10,000 vertices and binary records
// in the buffer beyond.
TEST(WriteScene, ExportsTheSameBytesAsTheModel) {
  TempDir dir;
  writeBox3ds(dir.file("box.3ds"), true, true);
  writeBoxObj(dir.file("box.obj"), true);
  std::string grid;  // 101 x 101 vertices
  for (int i = 0; i < 101 * 101; ++i) grid += "v " + std::to_string(i % 101) + " " + std::to_string(i / 101) + " 0\n";
  for (int i = 0; i < 100 * 100; ++i) {
    const int a = i % 100 + i / 100 * 101 + 1;
    grid += "f " + std::to_string(a) + " " + std::to_string(a + 1) + " " + std::to_string(a + 102) + "\n";
  }
  ztx_test::writeText(dir.file("grid.obj"), grid);
  // A chain of nodes as deep as a model may nest: its scene file is indented only so far, and stays
  // about as long as its depth rather than its square.
  json chain = {{"asset", {{"version", "2.0"}}}, {"scene", 0}, {"scenes", {{{"nodes", {0}}}}}, {"nodes", json::array()}};
  for (int i = 0; i < 1000; ++i) chain["nodes"].push_back({{"name", "C" + std::to_string(i)}, {"translation", {1, 0, 0}}});
  for (int i = 0; i < 999; ++i) chain["nodes"][i]["children"] = {i + 1};
  chain["nodes"][999]["camera"] = 0;
  chain["cameras"] = {{{"type", "perspective"}, {"perspective", {{"yfov", 0.8}, {"znear", 0.1}}}}};
  ztx_test::writeText(dir.file("chain.gltf"), chain.dump());
  std::vector<std::string> models = {dir.file("box.3ds"), dir.file("box.obj"), dir.file("grid.obj"), dir.file("chain.gltf")};
  if (std::filesystem::exists(kSkinnedGltf)) models.push_back(kSkinnedGltf);
  for (const std::string& model : models) {
    SCOPED_TRACE(model);
    TempDir direct, written, again;
    const Exported first = exportModel(direct, model);
    ASSERT_EQ(first.run.exitCode, 0) << first.run.out << first.run.err;
    const Exported viaScene = exportModel(written, model, true);
    ASSERT_EQ(viaScene.run.exitCode, 0) << viaScene.run.out << viaScene.run.err;
    ASSERT_TRUE(std::filesystem::exists(written.file("model.bin")) || model == dir.file("chain.gltf"));
    if (model == dir.file("chain.gltf")) {
      EXPECT_LT(std::filesystem::file_size(written.file("model.scene.json")), 400000u);
    }
    if (model != dir.file("chain.gltf")) {
      const json skin = firstSkin(json{{"children", viaScene.written.at("nodes")}});
      EXPECT_TRUE(model == dir.file("grid.obj") ? skin.is_object() : skin.is_array()) << skin.dump().substr(0, 200);
    }
    const Exported second = exportModel(again, written.file("model.scene.json"));
    ASSERT_EQ(second.run.exitCode, 0) << second.run.out << second.run.err;
    for (const char* name : {"out.zt2", "out.skd"})
      EXPECT_EQ(ztx_test::readBytes(direct.file(name)), ztx_test::readBytes(again.file(name))) << name;
  }
}

// zt2export starts a model's reader before it knows the request (the module
// loads meanwhile); the Python package starts it at the import. Both readers
// hand over the same document and buffer.
TEST(ImportReader, OneStartedAheadAnswersAsOneStartedAtTheImport) {
  TempDir dir;
  writeBox3ds(dir.file("box.3ds"), true, true);
  writeBoxObj(dir.file("box.obj"), true);
  std::vector<std::string> models = {dir.file("box.3ds"), dir.file("box.obj")};
  if (std::filesystem::exists(kSkinnedGltf)) models.push_back(kSkinnedGltf);
  for (const std::string& model : models) {
    SCOPED_TRACE(model);
    TempDir out;
    std::vector<unsigned char> answers[2];
    for (const bool ahead : {false, true}) {
      if (ahead) hostimport::startReader(model);
      hostimport::OpenOptions options;
      options.writeScene = out.file("model.scene.json");
      options.textureDir = out.path().string();
      ASSERT_NO_THROW(hostimport::openScene(model, options));
      answers[ahead] = ztx_test::readBytes(out.file("model.scene.json"));
      const std::vector<unsigned char> buffer = ztx_test::readBytes(out.file("model.bin"));
      answers[ahead].insert(answers[ahead].end(), buffer.begin(), buffer.end());
    }
    EXPECT_GT(answers[0].size(), 1000u);
    EXPECT_EQ(answers[0], answers[1]);
  }
}

// Plain OBJ files are read by our own reader (importers/obj_reader.h), all
// others by the import library; ZT2EXPORT_OBJ_LIBRARY=1 sends every file to the
// library. Both readings of each model export the same bytes and say the same.
// The scene written with --write-scene tells which reader read it: ours keeps
// each distinct corner once, where the library keeps every corner.
TEST(ImportObj, OwnReaderExportsWhatTheLibrarysReadingExports) {
  const std::string quad = "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\n";
  // Colours are kept per corner, so the written scene tells the readers apart.
  const std::string colouredQuad = "v 0 0 0 1 0 0\nv 1 0 0 0 1 0\nv 0 1 0 0 0 1\nv 1 1 0 1 1 1\n";
  const struct {
    const char* name;
    std::string text;
    bool own;
  } cases[] = {
      {"corners of all four forms",
       quad + "vt 0 0\nvt 1 0\nvt 0 1\nvn 0 0 1\nf 1/1/1 2/2/1 3/3/1\nf 2/2/1 4/1/1 3/3/1\nf 1//1 3//1 2//1\n"
              "f 1/1 2/2 4/3\nf 1 2 3\n",
       true},
      {"a second number taken for a normal while there are no texture coordinates",
       colouredQuad + "vn 0 0 1\nvn 0 0 -1\nf 1/1 2/2 3/1\nf 2/2 4/1 3/2\n", true},
      // The library gives vertex i the colour of the i-th coloured vertex.
      {"colours from the third vertex on", "v 0 0 0\nv 1 0 0\nv 0 1 0 1 0 0\nv 1 1 0 0 1 0\nf 1 2 3\nf 2 4 3\n", true},
      {"groups, objects and materials switched back and forth",
       "usemtl Early\n" + colouredQuad +
           "f 1 2 3\ng A\nusemtl Red\nf 2 4 3\nusemtl Blue\nf 1 2 4\ng B\nf 1 3 4\ng A\nusemtl Red\nf 3 2 1\n"
           "o C\nf 4 2 1\no A\ns 1\nf 1 4 3\nusemtl Blue\ng Empty\n",
       true},
      {"names with spaces, a repeated group, three-component coordinates, trailing spaces",
       colouredQuad + "vt 0 0 0.5\nvt 1 0 0\ng A\ng A\nusemtl Two Words \nf 1/1 2/2 3/1 \nusemtl \nf 2/2 4/1 3/2\n",
       true},
      {"line ends, comments, tabs and no last line end",
       "# by hand\r\nv\t0 0 0\r\nv 1  0 0\r\nv 0 1 0\r\nvt 0.5 -1.25e-1\r\n\r\nf 1/1 2/1 3/1\r\nf 3/1 2/1 1/1", true},
      {"numbers in every form taken",
       "v +1 -2.5 3. 1 0 0\nv 1e2 -1E-2 0.000001 0 1 0\nv 12345678.9 0 -0 0 0 1\nf 1 2 3\nf 3 2 1\n", true},
      {"quads", quad + "f 1 2 4 3\n", false},
      {"a material library", "mtllib none.mtl\n" + quad + "f 1 2 3\n", false},
      {"a relative index", quad + "f -4 -3 -2\n", false},
      {"a number the library reads with a warning", quad + "v 1e 0 0\nf 1 2 3\n", false},
      {"an index beyond the vertices", quad + "f 1 2 5\n", false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir, own, library;
    ztx_test::writeText(dir.file("m.obj"), c.text);
    ztx_test::RunResult runs[2];
    for (int reader = 0; reader < 2; ++reader) {
      const TempDir& out = reader == 0 ? own : library;
      runs[reader] = ztx_test::runExport(
          ztx_test::exportArgs(out, dir.file("m.obj"), out.file("m.zt2"),
                               {"--write-scene", out.file("m.scene.json")}),
          {std::string("ZT2EXPORT_OBJ_LIBRARY=") + (reader == 0 ? "0" : "1")});
    }
    EXPECT_EQ(runs[0].exitCode, runs[1].exitCode) << runs[0].err << runs[1].err;
    EXPECT_EQ(runs[0].out, runs[1].out);
    EXPECT_EQ(runs[0].err, runs[1].err);
    for (const char* name : {"m.zt2", "m.skd"})
      EXPECT_EQ(ztx_test::readBytes(own.file(name)), ztx_test::readBytes(library.file(name))) << name;
    const bool sameScene = ztx_test::readBytes(own.file("m.scene.json")) ==
                               ztx_test::readBytes(library.file("m.scene.json")) &&
                           ztx_test::readBytes(own.file("m.bin")) == ztx_test::readBytes(library.file("m.bin"));
    EXPECT_EQ(sameScene, !c.own) << "read by " << (sameScene ? "the library" : "our reader");
  }
}

// A glTF model written by hand: the document, and its buffer as "m.bin".
class HandGltf {
 public:
  json doc = {{"asset", {{"version", "2.0"}}}, {"buffers", json::array()}, {"bufferViews", json::array()},
              {"accessors", json::array()}};
  std::vector<unsigned char> bin;

  // Appends `values` as a view of their own (interleaved by `stride` when
  // given) and an accessor of `count` elements; answers the accessor.
  template <typename T>
  unsigned add(const std::vector<T>& values, const char* type, unsigned componentType, std::size_t count,
               std::size_t stride = 0) {
    while (bin.size() % 4) bin.push_back(0);
    json view = {{"buffer", 0}, {"byteOffset", bin.size()}, {"byteLength", values.size() * sizeof(T)}};
    if (stride) view["byteStride"] = stride;
    const auto* bytes = reinterpret_cast<const unsigned char*>(values.data());
    bin.insert(bin.end(), bytes, bytes + values.size() * sizeof(T));
    doc["bufferViews"].push_back(view);
    doc["accessors"].push_back({{"bufferView", doc["bufferViews"].size() - 1}, {"componentType", componentType},
                                {"count", count}, {"type", type}});
    return static_cast<unsigned>(doc["accessors"].size() - 1);
  }
  void write(const TempDir& dir) {
    doc["buffers"] = json::array({{{"uri", "m.bin"}, {"byteLength", bin.size()}}});
    ztx_test::writeText(dir.file("m.gltf"), doc.dump(1));
    ztx_test::writeBytes(dir.file("m.bin"), bin);
  }
};

// Two top nodes, the first with two children that share a mesh of two
// primitives; node names repeated and missing; materials named out of their
// order in the file, one unused, one of the specular-glossiness extension;
// 8-, 16- and 32-bit and no indices; normals, texture coordinates, colours of
// three and four values; a matrix and a translation, rotation and scale.
HandGltf richGltf() {
  HandGltf g;
  const std::vector<float> quad = {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0};
  const std::vector<float> uv = {0, 0, 1, 0, 0, 1, 0.25f, 0.75f};
  const unsigned p = g.add(quad, "VEC3", 5126, 4);
  const unsigned n = g.add(std::vector<float>{0, 0, 1, 0, 0, 1, 0, 0, 1, 0, 0, 1}, "VEC3", 5126, 4);
  const unsigned t = g.add(uv, "VEC2", 5126, 4);
  const unsigned c4 = g.add(std::vector<float>{1, 0, 0, 1, 0, 1, 0, 0.5f, 0, 0, 1, 1, 1, 1, 1, 1}, "VEC4", 5126, 4);
  const unsigned c3 = g.add(std::vector<float>{1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 0}, "VEC3", 5126, 4);
  const unsigned i16 = g.add(std::vector<std::uint16_t>{0, 1, 2, 1, 3, 2}, "SCALAR", 5123, 6);
  const unsigned i8 = g.add(std::vector<std::uint8_t>{0, 2, 1, 1, 2, 3}, "SCALAR", 5121, 6);
  const unsigned i32 = g.add(std::vector<std::uint32_t>{3, 1, 0}, "SCALAR", 5125, 3);
  // Six corners of two triangles, positions and normals interleaved.
  const unsigned strided = g.add(std::vector<float>{0, 0, 2, 0, 0, 1, 1, 0, 2, 0, 0, 1, 0, 1, 2, 0, 0, 1,
                                                    1, 0, 2, 0, 0, 1, 1, 1, 2, 0, 0, 1, 0, 1, 2, 0, 0, 1},
                                 "VEC3", 5126, 6, 24);
  g.doc["accessors"].push_back(g.doc["accessors"][strided]);
  g.doc["accessors"].back()["byteOffset"] = 12;
  const unsigned stridedNormals = static_cast<unsigned>(g.doc["accessors"].size() - 1);
  g.doc["meshes"] = {
      {{"name", "Body"},
       {"primitives",
        {{{"attributes", {{"POSITION", p}, {"NORMAL", n}, {"TEXCOORD_0", t}, {"COLOR_0", c4}}}, {"indices", i16},
          {"material", 3}},
         {{"attributes", {{"POSITION", p}, {"COLOR_0", c3}}}, {"indices", i8}},
         {{"attributes", {{"POSITION", strided}, {"NORMAL", stridedNormals}}}, {"mode", 4}}}}},
      {{"primitives", {{{"attributes", {{"POSITION", p}, {"TEXCOORD_0", t}}}, {"indices", i32}, {"material", 0}}}}}};
  g.doc["materials"] = {
      {{"name", "Red"}, {"pbrMetallicRoughness", {{"baseColorFactor", {1, 0, 0, 1}}, {"metallicFactor", 0}}}},
      {{"name", "Unused"}},
      {{"doubleSided", true}},
      {{"name", "Shiny"},
       {"extensions",
        {{"KHR_materials_pbrSpecularGlossiness",
          {{"diffuseFactor", {0.2, 0.4, 0.6, 1}}, {"specularFactor", {0.5, 0.5, 0.5}}, {"glossinessFactor", 0.3}}}}}}};
  g.doc["extensionsUsed"] = {"KHR_materials_pbrSpecularGlossiness"};
  g.doc["nodes"] = {{{"name", "Top"}, {"children", {1, 2}}, {"mesh", 1}, {"translation", {1, 2, 3}},
                     {"rotation", {0, 0.7071068, 0, 0.7071068}}, {"scale", {2, 2, 2}}},
                    {{"name", "Part"}, {"mesh", 0},
                     {"matrix", {1, 0, 0, 0, 0, 0, 1, 0, 0, -1, 0, 0, 5, 0, 0, 1}}},
                    {{"mesh", 0}, {"scale", {1, 1, -1}}},
                    {{"name", "Top"}, {"mesh", 1}}};
  g.doc["scenes"] = {{{"nodes", {0, 3}}}};
  g.doc["scene"] = 0;
  return g;
}

// glTF files the reader of our own takes (importers/gltf_reader.h) export
// exactly as the import library's reading of them does, down to the scene
// written with --write-scene and every message; ZT2EXPORT_GLTF_LIBRARY=1 sends
// every file to the library. Files it leaves to the library are asked of it
// directly, and so is a tree too deep, which both refuse alike.
TEST(ImportGltf, OwnReaderExportsWhatTheLibrarysReadingExports) {
  enum Taken { kOwn, kLibrary, kRefused };
  const auto chain = [](HandGltf& g) {
    json nodes = json::array();
    for (int i = 0; i < 1002; ++i) nodes.push_back({{"name", "C" + std::to_string(i)}, {"children", {i + 1}}});
    nodes.push_back({{"mesh", 1}});
    g.doc["nodes"] = nodes;
    g.doc["scenes"] = {{{"nodes", {0}}}};
  };
  const struct {
    const char* name;
    std::function<void(HandGltf&)> edit;
    Taken taken;
  } cases[] = {
      {"the whole model", [](HandGltf&) {}, kOwn},
      {"one top node, the extension not listed as used, no scene named",
       [](HandGltf& g) {
         g.doc["scenes"] = {{{"nodes", {0}}}};
         g.doc.erase("scene");
         g.doc.erase("extensionsUsed");
       },
       kOwn},
      {"a camera", [](HandGltf& g) {
         g.doc["cameras"] = {{{"type", "perspective"}, {"perspective", {{"yfov", 0.8}, {"znear", 0.1}}}}};
         g.doc["nodes"][3]["camera"] = 0;
       }, kLibrary},
      {"a triangle strip", [](HandGltf& g) { g.doc["meshes"][0]["primitives"][2]["mode"] = 5; }, kLibrary},
      {"an index beyond the vertices", [](HandGltf& g) {
         g.bin[g.doc["bufferViews"][7]["byteOffset"].get<std::size_t>()] = 9;
       }, kLibrary},
      {"a node two parents name", [](HandGltf& g) { g.doc["nodes"][3]["children"] = {1}; }, kLibrary},
      {"a texture", [](HandGltf& g) {
         g.doc["materials"][0]["pbrMetallicRoughness"]["baseColorTexture"] = {{"index", 0}};
         g.doc["textures"] = {{{"source", 0}}};
         g.doc["images"] = {{{"uri", "missing.png"}}};
       }, kLibrary},
      {"a second set of texture coordinates",
       [](HandGltf& g) { g.doc["meshes"][1]["primitives"][0]["attributes"]["TEXCOORD_1"] = 2; }, kLibrary},
      {"a chain of nodes deeper than the scene takes", chain, kRefused},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    TempDir dir;
    HandGltf g = richGltf();
    c.edit(g);
    g.write(dir);
    if (c.taken == kRefused) {
      EXPECT_THROW(hostimport::readPlainGltf(dir.file("m.gltf")), hostimport::ImportError);
    } else {
      EXPECT_EQ(hostimport::readPlainGltf(dir.file("m.gltf")) != nullptr, c.taken == kOwn);
    }
    // Both into one folder, which messages may name: each run's files are read before the next.
    TempDir out;
    ztx_test::RunResult runs[2];
    std::vector<std::vector<unsigned char>> files[2];
    for (int reader = 0; reader < 2; ++reader) {
      std::filesystem::remove_all(out.file("m.zt2"));
      runs[reader] = ztx_test::runExport(
          ztx_test::exportArgs(out, dir.file("m.gltf"), out.file("m.zt2"), {"--write-scene", out.file("m.scene.json")}),
          {std::string("ZT2EXPORT_GLTF_LIBRARY=") + (reader == 0 ? "0" : "1")});
      for (const char* name : {"m.zt2", "m.skd", "m.scene.json", "m.bin"})
        files[reader].push_back(std::filesystem::exists(out.file(name)) ? ztx_test::readBytes(out.file(name))
                                                                         : std::vector<unsigned char>{});
    }
    if (c.taken == kOwn) {
      EXPECT_EQ(runs[0].exitCode, 0) << runs[0].err;
      EXPECT_FALSE(files[0][0].empty());
    }
    EXPECT_EQ(runs[0].exitCode, runs[1].exitCode) << runs[0].err << runs[1].err;
    EXPECT_EQ(runs[0].out, runs[1].out);
    EXPECT_EQ(runs[0].err, runs[1].err);
    EXPECT_TRUE(files[0] == files[1]) << "the .zt2, .skd, written scene or its buffer differ";
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

// The skinned glTF's animation runs 5.5 s with linear rotation keys at 0,
// 0.5, ..., 5.5 s: keys at those times in host ticks (4800 a second), the
// range 5.5 s at 30 frames. Its skinned vertices, weights included, are posed
// against the import library's own glTF in skinning_comparison_test.cpp.
TEST(ImportAssimp, SkinnedGltfKeepsItsKeyTimes) {
  if (!std::filesystem::exists(kSkinnedGltf))
    GTEST_SKIP() << kSkinnedGltf << " is not installed (Debian package assimp-testmodels)";
  TempDir dir;
  const Exported e = exportModel(dir, kSkinnedGltf, true);
  ASSERT_EQ(e.run.exitCode, 0) << e.run.out << e.run.err;
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
  ztx_test::writeText(dir.file("fake.3ds"), "solid nothing\n");
  const std::pair<const char*, const char*> cases[] = {
      {"cut.3ds", "cut short"},
      {"empty-chunk.3ds", "chunk 0x0002 at offset 6 claims 0 bytes"},
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

using ztx_test::append;
using ztx_test::b3dChunk;
using ztx_test::b3dNode;
using ztx_test::Bytes;
using ztx_test::put;

// A DirectX skeleton: Root with Bone below it, Bone moving up over 20 ticks.
const char* kSkeletonX = R"(xof 0303txt 0032
Frame Root {
 FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0;; }
 Frame Bone {
  FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,1.0,0.0,1.0;; }
 }
}
AnimationSet Walk {
 Animation {
  { Bone }
  AnimationKey { 2; 3; 0;3;0.0,1.0,0.0;;, 10;3;0.0,2.0,0.0;;, 20;3;0.0,3.0,0.0;;; }
 }
}
)";

// Position keys at frames 1, 5 and `last`, on a clip of 10 frames.
Bytes b3d(int last) {
  auto keys = [](std::vector<std::pair<int, float>> list) {
    Bytes b;
    put(b, std::int32_t{1});
    for (const auto& [frame, y] : list) put(b, std::int32_t{frame}), put(b, 0.0f), put(b, y), put(b, 0.0f);
    return b3dChunk("KEYS", b);
  };
  Bytes vertices, triangles, anim, version;
  for (std::int32_t v : {0, 0, 0}) put(vertices, v);
  for (float v : {0.0f, 0.0f, 0.0f, 1.0f, 0.0f, 0.0f, 0.0f, 1.0f, 0.0f}) put(vertices, v);
  for (std::int32_t v : {-1, 0, 1, 2}) put(triangles, v);
  Bytes mesh;
  put(mesh, std::int32_t{-1});
  append(mesh, b3dChunk("VRTS", vertices));
  append(mesh, b3dChunk("TRIS", triangles));
  put(anim, std::int32_t{0}), put(anim, std::int32_t{10}), put(anim, 30.0f);
  Bytes root = b3dChunk("MESH", mesh);
  for (const Bytes& part : {keys({{1, 0.0f}, {last, 1.0f}}), b3dChunk("ANIM", anim),
                            b3dNode("Bone", {0, 1, 0}, keys({{1, 1.0f}, {5, 2.0f}, {last, 3.0f}}))})
    append(root, part);
  put(version, std::int32_t{1});
  append(version, b3dNode("Root", {0, 0, 0}, root));
  return b3dChunk("BB3D", version);
}

// The note on a material of a B3D mesh without a brush.
const std::string kNoColourNote =
    ": material \"Material\" gives no diffuse colour; the import library's default, white, is taken\n";

std::vector<std::string> modelArgs(const TempDir& dir, const std::string& model, const std::string& out,
                                    const std::vector<std::string>& more = {}) {
  return ztx_test::exportArgs(dir, dir.file(model), dir.file(out), more);
}

}  // namespace

using ztx_test::runExport;

// A skeleton and its clip without a mesh, which the library's validation
// refuses ("aiScene::mNumMeshes is 0"), exports its nodes and keys.
TEST(ImportPartial, SkeletonWithoutMeshExportsItsKeys) {
  TempDir dir;
  ztx_test::writeText(dir.file("walk.x"), kSkeletonX);
  const auto r = runExport(modelArgs(dir, "walk.x", "walk.zt2"));
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "");
  const auto file = ztx_test::dumpJson(dir.file("walk.zt2"));
  int animated = 0;
  for (const auto& c : ztx_test::topChunks(file)) {
    if (c["name"] != "TransformAnimationChunk") continue;
    ++animated;
    EXPECT_EQ(c["children"][0]["fields"]["name"], "Bone");
    // Below Root, in the source's own frame: from 1 up towards 3 (the last
    // sample falls just before the clip's last key).
    const auto& keys = c["fields"]["keys"];
    ASSERT_EQ(keys.size(), 2u) << c.dump();
    EXPECT_NEAR(keys[0]["transform"][3][1].get<double>(), 1.0, 1e-5);
    EXPECT_NEAR(keys[1]["transform"][3][1].get<double>(), 1.0 + 2.0 * 23 / 24, 1e-4);
  }
  EXPECT_EQ(animated, 1);
}

// Keys one frame past their clip's end are moved onto it with a warning: the
// file exports the same bytes as one whose keys end on the clip's last frame.
TEST(ImportPartial, KeysPastTheClipAreClampedWithAWarning) {
  TempDir dir;
  ztx_test::writeBytes(dir.file("fits.b3d"), b3d(10));
  ztx_test::writeBytes(dir.file("over.b3d"), b3d(11));
  const auto fits = runExport(modelArgs(dir, "fits.b3d", "fits.zt2"));
  ASSERT_EQ(fits.exitCode, 0) << fits.out << fits.err;
  // Its mesh names no material: the library's own, without a colour, is white.
  EXPECT_EQ(fits.err, "NOTE: " + dir.file("fits.b3d") + kNoColourNote);
  const auto over = runExport(modelArgs(dir, "over.b3d", "over.zt2"));
  ASSERT_EQ(over.exitCode, 0) << over.out << over.err;
  EXPECT_EQ(over.err, "WARNING: " + dir.file("over.b3d") +
                          ": 2 keys of the animation lie past its end (up to tick 11 of a clip 10 ticks long); moved "
                          "onto its end\nNOTE: " + dir.file("over.b3d") + kNoColourNote);
  EXPECT_EQ(ztx_test::readBytes(dir.file("over.zt2")), ztx_test::readBytes(dir.file("fits.zt2")));
}

// A light that no node carries (the library's validation refuses the file
// for it) is left out with a warning; the mesh beside it exports.
TEST(ImportPartial, LightWithoutNodeIsLeftOut) {
  TempDir dir;
  ztx_test::writeText(dir.file("lone.ogex"), R"(GeometryNode $node1 {
  Name {string {"Box"}}
  ObjectRef {ref {$geometry1}}
}
LightObject $light1 (type = "point") { Color (attrib = "light") {float[3] {{1, 1, 1}}} }
GeometryObject $geometry1 {
  Mesh (primitive = "triangles") {
    VertexArray (attrib = "position") {float[3] {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}}}
    IndexArray {unsigned_int32[3] {{0, 1, 2}}}
  }
}
)");
  const auto r = runExport(modelArgs(dir, "lone.ogex", "lone.zt2"));
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_EQ(r.err, "WARNING: " + dir.file("lone.ogex") + ": light \"light1\" is attached to no node; it is left out\n");
  EXPECT_EQ(ztx_test::objectNames(ztx_test::dumpJson(dir.file("lone.zt2"))), std::vector<std::string>{"Box"});
}

// Models that cannot be used: the message names the model, says what is
// wrong in plain words, and gives the library's own text in brackets.
TEST(ImportPartial, RefusedModelsAreExplainedInPlainWords) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"points.obj", "v 0 0 0\nv 1 0 0\np 1\np 2\n",
       ": the model holds only points or lines, which have no surface to export (import library: No meshes remaining)"},
      {"empty.x", "xof 0303txt 0032\nFrame Root {\n FrameTransformMatrix { 1.0,0.0,0.0,0.0,0.0,1.0,0.0,0.0,0.0,0.0,"
                  "1.0,0.0,0.0,0.0,0.0,1.0;; }\n}\n",
       ": the model holds no mesh, animation, camera or light: nothing to export\n"},
      {"bad.dae", "<?xml version=\"1.0\"?>\n<COLLADA><asset>",
       ": the file's XML is malformed (import library: "},
      {"cut.x", "xof 0303txt 0032\nFrame {", ": the file ends before its data does (it may be cut short) "
                                            "(import library: Line 1: Unexpected end of file"},
  };
  for (const auto& [name, text, message] : cases) {
    SCOPED_TRACE(name);
    TempDir dir;
    ztx_test::writeText(dir.file(name), text);
    const auto r = runExport(modelArgs(dir, name, "out.zt2"));
    EXPECT_EQ(r.exitCode, 2);
    EXPECT_NE(r.err.find("zt2export: " + dir.file(name) + message), std::string::npos) << r.err;
    EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
  }
}

// What the library reads of a file only in part is said, and what it leaves
// undefined takes its own default: an OBJ whose material library is missing,
// an SMD whose material has no colour (white, with a note), an OBJ library of
// two materials of which one is used (only that one is written), and an IQM
// file of joints and a clip only, which the library cannot read at all.
TEST(ImportPartial, WhatTheLibraryLeavesOutIsSaid) {
  std::string iqm = std::string("INTERQUAKEMODEL") + '\0';
  const std::uint32_t header[27] = {2, 124, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 2, 0, 0, 0, 1, 0, 10};
  iqm.append(reinterpret_cast<const char*>(header), sizeof header);
  const std::string triangle = "v 0 0 0\nv 1 0 0\nv 0 1 0\nusemtl Red\nf 1 2 3\n";
  struct Case {
    const char* file;
    std::string text;
    const char* besideName;  // a second file beside the model, if any
    const char* beside;
    int exitCode;
    std::string said;
    std::vector<std::string> materials;  // as written, with the first one's diffuse colour
    std::vector<double> diffuse;
  };
  const Case cases[] = {
      {"gone.obj", "mtllib gone.mtl\n" + triangle, nullptr, nullptr, 0,
       ": material library \"gone.mtl\" not found; its materials are left out and the meshes take the default material\n",
       {"Red"}, {0.6, 0.6, 0.6}},
      {"two.obj", "mtllib two.mtl\n" + triangle, "two.mtl", "newmtl Red\nKd 1 0 0\nnewmtl Blue\nKd 0 0 1\n", 0, "",
       {"Red"}, {1, 0, 0}},
      {"plain.smd",
       "version 1\nnodes\n0 \"root\" -1\nend\nskeleton\ntime 0\n0 0 0 0 0 0 0\nend\ntriangles\nplain\n"
       "0 0 0 0 0 0 1 0 0\n0 1 0 0 0 0 1 1 0\n0 0 1 0 0 0 1 0 1\nend\n",
       nullptr, nullptr, 0,
       ": material \"Texture_0\" gives no diffuse colour; the import library's default, white, is taken\n",
       {"Texture_0"}, {1, 1, 1}},
      {"anim.iqm", iqm, nullptr, nullptr, 2,
       ": the import library reads the meshes of an IQM file only, and this one holds none: its 2 joints and 1 anim "
       "(10 frames) cannot be read\n",
       {}, {}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.file);
    TempDir dir;
    ztx_test::writeText(dir.file(c.file), c.text);
    if (c.besideName) ztx_test::writeText(dir.file(c.besideName), c.beside);
    const auto r = runExport(modelArgs(dir, c.file, "out.zt2",
                                       {"--missing-textures", "drop", "--write-scene", dir.file("out.scene.json"),
                                        "--depfile", dir.file("out.d")}));
    EXPECT_EQ(r.exitCode, c.exitCode) << r.err;
    // What the import library read, in the models module, is among what the run read.
    if (c.besideName && c.exitCode == 0) {
      EXPECT_NE(ztx_test::readText(dir.file("out.d")).find(dir.file(c.besideName)), std::string::npos);
    }
    if (c.said.empty()) EXPECT_EQ(r.err, "");
    else EXPECT_NE(r.err.find(dir.file(c.file) + c.said), std::string::npos) << r.err;
    if (c.exitCode != 0) {
      EXPECT_FALSE(std::filesystem::exists(dir.file("out.zt2")));
      continue;
    }
    const auto scene = nlohmann::json::parse(ztx_test::readText(dir.file("out.scene.json")));
    std::vector<std::string> names;
    for (const auto& m : scene.at("materials")) names.push_back(m.at("name"));
    EXPECT_EQ(names, c.materials);
    ASSERT_FALSE(names.empty());
    const auto diffuse = scene.at("materials")[0].at("diffuse").get<std::vector<double>>();
    for (std::size_t i = 0; i < 3; ++i) EXPECT_NEAR(diffuse.at(i), c.diffuse[i], 1e-6);
  }
}
