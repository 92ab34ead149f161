// zt2dump --gltf: whole exports read back through tinygltf with values worked
// out by hand from the axis turn, hand-built files for materials and
// animation, bad and damaged input; every .glb written goes through the
// Khronos validator.
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <filesystem>
#include <map>
#include <tuple>

#include <tiny_gltf.h>

#include "format/chunk_kinds.h"
#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/hand_built_scene.h"
#include "support/posing/posing.h"
#include "support/scene_export.h"

namespace {

namespace fs = std::filesystem;
using ztx_test::TempDir;

// The Khronos validator on the files; skipped (not failed) without node.
void expectValid(const std::vector<std::string>& files) {
  const auto r = ztx_test::runGltfValidator(files);
  if (!r) GTEST_SKIP() << "node not found: the glTF validator is not run";
  EXPECT_EQ(r->exitCode, 0) << r->out << r->err;
}

std::map<std::string, int> nodesByName(const tinygltf::Model& m) {
  std::map<std::string, int> r;
  for (std::size_t i = 0; i < m.nodes.size(); ++i) r[m.nodes[i].name] = static_cast<int>(i);
  return r;
}

void expectNear(const std::vector<double>& got, const std::vector<double>& want) {
  ASSERT_EQ(got.size(), want.size());
  for (std::size_t i = 0; i < want.size(); ++i) EXPECT_NEAR(got[i], want[i], 1e-5) << "component " << i;
}

// The example exported and converted once for the tests that read it.
class GltfExample : public ztx_test::ExportedExample {
 protected:
  static void SetUpTestSuite() {
    ExportedExample::SetUpTestSuite();
    const auto d = ztx_test::runDump({scene_, "--gltf", dir_->file("example.glb")});
    ASSERT_EQ(d.exitCode, 0) << d.err;
  }
};

TEST_F(GltfExample, NodesCamerasAndLightsInGltfAxes) {
  const tinygltf::Model m = ztx_test::readGlb(dir_->file("example.glb"));
  auto byName = nodesByName(m);
  // Every exported node, plus the three bones the skin needs (hidden, so not exported).
  for (const char* name : {"Props", "Lamp", "Character", "CharacterCopy", "Camera01", "Spot01", "Sun", "Marker",
                           "Bip_Pelvis", "Bip_Spine", "Bip_Head"})
    EXPECT_EQ(byName.count(name), 1u) << name;
  // The file holds nothing of the bones: each node showing the skinned mesh
  // carries stand-ins of its own, which move with it. The camera's target has
  // keys but no object chunk: an empty node carries them, at the root where
  // its first key (host (0, 0, 2)) puts it; they never change, so it is a
  // group, though other nodes of the file move.
  ASSERT_EQ(m.nodes.size(), 15u);
  const tinygltf::Node& target = m.nodes[byName["Camera01.Target"]];
  EXPECT_EQ(target.extras.Get("type").Get<std::string>(), "group");
  expectNear(target.translation, {0, 2, 0});
  EXPECT_EQ(m.nodes[byName["Character"]].children,
            (std::vector<int>{byName["Bip_Pelvis"], byName["Bip_Spine"], byName["Bip_Head"]}));
  EXPECT_EQ(m.nodes[byName["CharacterCopy"]].children,
            (std::vector<int>{byName["Bip_Pelvis (CharacterCopy)"], byName["Bip_Spine (CharacterCopy)"],
                              byName["Bip_Head (CharacterCopy)"]}));

  // The file's (x, y, z) is glTF's (x, y, -z): Camera01 stood at (0, 10, -30).
  const tinygltf::Node& camera = m.nodes[byName["Camera01"]];
  expectNear(camera.translation, {0, 10, 30});
  ASSERT_GE(camera.camera, 0);
  EXPECT_NEAR(m.cameras[camera.camera].perspective.yfov, 1.0471976, 1e-6);
  EXPECT_EQ(m.cameras[camera.camera].perspective.zfar, 500);

  // Lamp keeps its parent and its relative place (2, 0, -5).
  ASSERT_EQ(m.nodes[byName["Props"]].children, std::vector<int>{byName["Lamp"]});
  expectNear(m.nodes[byName["Lamp"]].translation, {2, 0, 5});

  const auto lightOf = [&](const char* node) -> const tinygltf::Light& {
    const tinygltf::Node& n = m.nodes[byName[node]];
    EXPECT_TRUE(n.extensions.count("KHR_lights_punctual")) << node;
    return m.lights.at(n.extensions.at("KHR_lights_punctual").Get("light").GetNumberAsInt());
  };
  using Colour = std::vector<double>;
  for (const auto& [node, type, colour] : {std::tuple{"Lamp", "point", Colour{1.0, 0.9, 0.7}},
                                           {"Spot01", "spot", Colour{1, 1, 1}}, {"Sun", "directional", Colour{1.0, 0.95, 0.8}}}) {
    EXPECT_EQ(lightOf(node).type, type);
    expectNear(lightOf(node).color, colour);
  }
  // Whole cones of 30 and 40 degrees become angles from the axis.
  EXPECT_NEAR(lightOf("Spot01").spot.innerConeAngle, 0.2617994, 1e-6);
  EXPECT_NEAR(lightOf("Spot01").spot.outerConeAngle, 0.3490659, 1e-6);

  const tinygltf::Node& character = m.nodes[byName["Character"]];
  EXPECT_EQ(character.extras.Get("userProperties").Get<std::string>(), "role=player");
  EXPECT_EQ(character.extras.Get("type").Get<std::string>(), "mesh");
  EXPECT_EQ(m.nodes[byName["Marker"]].extras.Get("className").Get<std::string>(), "Point");
  // Two conversions of one file give the same bytes: the Python package's
  // test_to_gltf_writes_what_zt2dump_writes.
  expectValid({dir_->file("example.glb")});
}

TEST_F(GltfExample, MeshGroupsSkinAndSharedMesh) {
  const tinygltf::Model m = ztx_test::readGlb(dir_->file("example.glb"));
  auto byName = nodesByName(m);
  const tinygltf::Node& character = m.nodes[byName["Character"]];
  const tinygltf::Node& copy = m.nodes[byName["CharacterCopy"]];
  ASSERT_GE(character.mesh, 0);
  EXPECT_EQ(copy.mesh, character.mesh);
  const tinygltf::Mesh& mesh = m.meshes[character.mesh];
  ASSERT_EQ(mesh.primitives.size(), 2u);
  EXPECT_EQ(m.materials[mesh.primitives[0].material].name, "Skin");
  EXPECT_EQ(m.materials[mesh.primitives[1].material].name, "Cloth");

  // First triangle of the file: corners (1,-1,0), (1,1,0), (-1,-1,0), normal +z.
  // In glTF the normal is -z and the corners run 0, 2, 1, so that they turn
  // counter-clockwise seen from the side the normal points to.
  const tinygltf::Primitive& p = mesh.primitives[0];
  const auto pos = ztx_test::readAccessor(m, p.attributes.at("POSITION"));
  const auto nor = ztx_test::readAccessor(m, p.attributes.at("NORMAL"));
  const auto idx = ztx_test::readAccessor(m, p.indices);
  EXPECT_EQ((std::vector<double>{idx[0], idx[1], idx[2]}), (std::vector<double>{0, 2, 1}));
  expectNear({nor[0], nor[1], nor[2]}, {0, 0, -1});
  auto at = [&](int v, int k) { return pos[3 * static_cast<std::size_t>(idx[v]) + k]; };
  const double e1[3] = {at(1, 0) - at(0, 0), at(1, 1) - at(0, 1), at(1, 2) - at(0, 2)};
  const double e2[3] = {at(2, 0) - at(0, 0), at(2, 1) - at(0, 1), at(2, 2) - at(0, 2)};
  EXPECT_LT(e1[0] * e2[1] - e1[1] * e2[0], 0);  // cross product along -z

  // Both nodes showing the skinned mesh have a skin over the three bones, each its own.
  ASSERT_GE(character.skin, 0);
  ASSERT_GE(copy.skin, 0);
  for (const auto& [node, suffix] : {std::pair{&character, ""}, std::pair{&copy, " (CharacterCopy)"}}) {
    std::vector<std::string> joints;
    for (int j : m.skins[node->skin].joints) joints.push_back(m.nodes[j].name);
    EXPECT_EQ(joints, (std::vector<std::string>{std::string("Bip_Pelvis") + suffix, std::string("Bip_Spine") + suffix,
                                                std::string("Bip_Head") + suffix}));
  }
  // Vertex 5 of the .skd: Bip_Spine 0.6, Bip_Head 0.4 (group 0 holds vertices 0..7).
  const auto w = ztx_test::readAccessor(m, p.attributes.at("WEIGHTS_0"));
  expectNear({w[20], w[21], w[22], w[23]}, {0.6, 0.4, 0, 0});
}

TEST_F(GltfExample, BadInputIsRefusedWithTheFileNamedAndNothingWritten) {
  const TempDir& dir = *dir_;
  auto bytes = ztx_test::readBytes(dir.file("example.zt2"));
  bytes.resize(bytes.size() / 2);
  ztx_test::writeBytes(dir.file("cut.zt2"), bytes);
  // A whole scene beside a cut .skd: the .skd is named.
  fs::copy_file(dir.file("example.zt2"), dir.file("skin.zt2"));
  bytes = ztx_test::readBytes(dir.file("example.skd"));
  bytes.resize(bytes.size() - 7);
  ztx_test::writeBytes(dir.file("skin.skd"), bytes);
  struct Case {
    std::string input, output, message;
    int exitCode;
  };
  for (const Case& c : {Case{dir.file("example.skd"), dir.file("a.glb"), "not a scene file", 1},
                        Case{dir.file("cut.zt2"), dir.file("b.glb"), "cut.zt2", 1},
                        Case{dir.file("skin.zt2"), dir.file("e.glb"), "skin.skd", 1},
                        Case{dir.file("example.zt2"), dir.file("missing/c.glb"), "missing/c.glb", 2},
                        Case{dir.file("none.zt2"), dir.file("d.glb"), "none.zt2", 2}}) {
    const auto d = ztx_test::runDump({c.input, "--gltf", c.output});
    EXPECT_EQ(d.exitCode, c.exitCode) << c.input;
    EXPECT_NE(d.err.find(c.message), std::string::npos) << d.err;
    EXPECT_FALSE(fs::exists(c.output));
    EXPECT_FALSE(fs::exists(c.output + ".part"));
  }
}

// Every 9th byte of the example inverted in turn: the conversion either
// refuses the file (exit 1, naming it, writing nothing) or writes a .glb
// that reads back and passes the validator; it never crashes.
TEST_F(GltfExample, DamagedFilesNeverCrash) {
  const auto bytes = ztx_test::readBytes(dir_->file("example.zt2"));
  std::vector<std::string> written;
  for (std::size_t at = 0; at < bytes.size(); at += 9) {
    auto damaged = bytes;
    damaged[at] ^= 0xff;
    ztx_test::writeBytes(dir_->file("damaged.zt2"), damaged);
    const std::string glb = dir_->file("damaged-" + std::to_string(at) + ".glb");
    const auto d = ztx_test::runDump({dir_->file("damaged.zt2"), "--gltf", glb});
    ASSERT_TRUE(d.exitCode == 0 || d.exitCode == 1) << "byte " << at << ": exit " << d.exitCode << " " << d.err;
    if (d.exitCode == 1) {
      EXPECT_NE(d.err.find("damaged.zt2"), std::string::npos) << d.err;
      EXPECT_FALSE(fs::exists(glb));
      continue;
    }
    ztx_test::readGlb(glb);
    written.push_back(glb);
  }
  ASSERT_FALSE(written.empty());
  expectValid(written);
}

// The hand-built file converted twice: without its image, which is a warning,
// then with it beside the file under the texture path's first directory.
TEST(GltfHandBuilt, MaterialsTextureAndAnimation) {
  TempDir dir;
  ztx_test::writeMaterialsAndAnimation(dir.file("scene.zt2"));
  auto d = ztx_test::runDump({dir.file("scene.zt2"), "--gltf", dir.file("bare.glb")});
  ASSERT_EQ(d.exitCode, 0) << d.err;
  EXPECT_NE(d.err.find("material \"Painted\": texture \""), std::string::npos) << d.err;
  EXPECT_NE(d.err.find("maps/skin.png\" not found"), std::string::npos) << d.err;

  fs::create_directory(dir.path() / "maps");
  fs::copy_file(ztx_test::sourcePath("examples/textures/skin.png"), dir.path() / "maps" / "skin.png");
  d = ztx_test::runDump({dir.file("scene.zt2"), "--gltf", dir.file("scene.glb")});
  ASSERT_EQ(d.exitCode, 0) << d.err;
  EXPECT_EQ(d.err, "");
  const tinygltf::Model m = ztx_test::readGlb(dir.file("scene.glb"));
  auto byName = nodesByName(m);

  // Rows (1,0,0), (0,0,1), (0,-1,0) at (1,3,2) in the file: a turn of -90
  // degrees about x at (1, 3, -2) in glTF.
  const tinygltf::Node& box = m.nodes[byName["Box"]];
  expectNear(box.rotation, {-std::sqrt(0.5), 0, 0, std::sqrt(0.5)});
  expectNear(box.translation, {1, 3, -2});
  EXPECT_EQ(m.nodes[byName["Root"]].children, std::vector<int>{byName["Box"]});

  ASSERT_EQ(m.materials.size(), 2u);
  const tinygltf::Material& painted = m.materials[0];
  EXPECT_EQ(painted.name, "Painted");
  ASSERT_GE(painted.pbrMetallicRoughness.baseColorTexture.index, 0);
  const tinygltf::Image& image = m.images[m.textures[painted.pbrMetallicRoughness.baseColorTexture.index].source];
  EXPECT_EQ(image.mimeType, "image/png");
  expectNear(m.materials[1].pbrMetallicRoughness.baseColorFactor, {0, 0, 1, 1});
  // The file's (u, -v) is glTF's (u, 1 - v).
  const auto& prims = m.meshes[box.mesh].primitives;
  const auto uv = ztx_test::readAccessor(m, prims[0].attributes.at("TEXCOORD_0"));
  expectNear({uv[2], uv[3], uv[4], uv[5]}, {1, 0.75, 0, 0});
  // Mapping channel 1 is the vertex colours; zero normals leave NORMAL out.
  const auto colours = ztx_test::readAccessor(m, prims[0].attributes.at("COLOR_0"));
  expectNear({colours[0], colours[1], colours[2]}, {1, 0.5, 0});
  EXPECT_EQ(prims[0].attributes.count("NORMAL"), 1u);
  EXPECT_EQ(prims[1].attributes.count("NORMAL"), 0u);

  // Keys at samples 0 and 4 of 10 per second; hidden from sample 2 to 3.
  ASSERT_EQ(m.animations.size(), 1u);
  std::map<std::string, const tinygltf::AnimationSampler*> channels;
  for (const auto& c : m.animations[0].channels) {
    EXPECT_EQ(c.target_node, byName["Box"]);
    channels[c.target_path] = &m.animations[0].samplers[c.sampler];
  }
  ASSERT_EQ(channels.size(), 3u);
  const auto values = [&](int accessor) { return ztx_test::readAccessor(m, accessor); };
  expectNear(values(channels["translation"]->input), {0, 0.4});
  expectNear(values(channels["translation"]->output), {0, 0, 0, 1, 2, -3});
  expectNear(values(channels["scale"]->input), {0, 0.1, 0.2, 0.3, 0.4});
  expectNear(values(channels["scale"]->output), {1, 1, 1, 1, 1, 1, 0, 0, 0, 1, 1, 1, 1, 1, 1});
  EXPECT_EQ(channels["scale"]->interpolation, "LINEAR");
  expectValid({dir.file("bare.glb"), dir.file("scene.glb")});
}

// A group of 65,536 vertices is the largest the file's 16-bit indices
// reach; its last vertex is glTF's 16-bit restart value, so it gets 32-bit
// indices. A 256 x 256 grid of vertices, two triangles per cell.
TEST(GltfLimits, GroupOfEveryIndexGets32BitIndices) {
  TempDir dir;
  constexpr unsigned kSide = 256;
  std::vector<std::array<float, 3>> positions, normals(kSide * kSide, {0.0f, 1.0f, 0.0f});
  std::vector<std::uint16_t> indices;
  for (unsigned z = 0; z < kSide; ++z)
    for (unsigned x = 0; x < kSide; ++x) {
      positions.push_back({float(x), 0.0f, float(z)});
      if (x + 1 < kSide && z + 1 < kSide)
        for (unsigned i : {0u, kSide, 1u, 1u, kSide, kSide + 1})
          indices.push_back(static_cast<std::uint16_t>(z * kSide + x + i));
    }
  T_MemoryFile f;
  f.createChunk(chunk_kind::kMesh);
  ObjectRecord r;
  r.name() = "Grid";
  f << r;
  f.createChunk(chunk_kind::kMeshVertex);
  writeRawBlock(f, positions);
  writeRawArray(f, normals);
  f << 1u << kSide * kSide;
  f.closeChunk();
  f.createChunk(chunk_kind::kMeshFace);
  writeRawBlock(f, indices);
  f << 1u << static_cast<unsigned>(indices.size() / 3);
  f.closeChunk();
  f.closeChunk();
  ASSERT_TRUE(f.save(dir.file("grid.zt2").c_str()).ok());

  const auto d = ztx_test::runDump({dir.file("grid.zt2"), "--gltf", dir.file("grid.glb")});
  ASSERT_EQ(d.exitCode, 0) << d.err;
  const tinygltf::Model m = ztx_test::readGlb(dir.file("grid.glb"));
  const tinygltf::Accessor& ia = m.accessors[m.meshes.at(0).primitives.at(0).indices];
  EXPECT_EQ(ia.componentType, TINYGLTF_COMPONENT_TYPE_UNSIGNED_INT);
  EXPECT_EQ(ia.count, indices.size());
  expectValid({dir.file("grid.glb")});
}

}  // namespace
