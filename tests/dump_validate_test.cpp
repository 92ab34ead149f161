// zt2dump --validate: a sound scene and its per-vertex file pass; each fault
// a reader would trip over is named with its place.
#include <gtest/gtest.h>

#include <functional>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/chunk_writing.h"
#include "support/test_support.h"

namespace {

using Point = ztx_test::FilePoint;

struct Skin {
  std::vector<std::string> nodeNames = {"Box01"};
  std::vector<std::string> boneNames = {"Root", "Arm"};
  std::vector<int> influenceStart = {0, 1, 3, 4, 5, 6};
  std::vector<int> influenceCount = {1, 2, 1, 1, 1, 0};
  std::vector<int> influenceBone = {0, 0, 1, 1, 0, 1};
  std::vector<float> influenceWeight = {1, 0.5f, 0.5f, 1, 1, 1};
  std::vector<unsigned> groupVertexCount = {3, 3};
  std::vector<unsigned> groupVertexStart = {0, 3};
};

// Everything the scene holds, written exactly as given so that a case can
// break one thing at a time: a mesh, its animation and the per-vertex file
// beside it.
struct Scene {
  std::vector<Point> positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 5, 5}, {6, 5, 5}, {5, 6, 5}};
  // A zero normal and one a little off unit length are sound too.
  std::vector<Point> normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}, {0.6f, 0.8f, 0}, {0, -1.0005f, 0}};
  std::vector<unsigned> groupVertexCounts = {3, 3};
  std::vector<std::uint16_t> indices = {0, 1, 2, 2, 1, 0};
  std::vector<unsigned> groupTriangleCounts = {1, 1};
  std::vector<std::string> materialNames = {"Wood", "Metal"};
  std::vector<Point> coordinates = std::vector<Point>(6, Point{0.5f, -0.5f, 0});
  std::vector<unsigned> groupCoordinateCounts = {3, 3};
  std::vector<unsigned> keySamples = {0, 4, 9};
  Skin skin;
  // The material list: each material's name, its five layer flags and after
  // which flags a texture chunk stands (sound when the two agree).
  struct Material {
    std::string name;
    std::vector<bool> flags, textures;
    int maskMode = 0;
    std::string textureFile = "tex.png";
  };
  std::vector<Material> materials = {{"Wood", {true, false, false, false, true}, {true, false, false, false, true}},
                                     {"Metal", std::vector<bool>(5), std::vector<bool>(5)}};
};

// A material chunk written field by field, as the format document lays it out.
void writeMaterial(T_MemoryFile& f, const Scene::Material& m) {
  f.createChunk(0x10010, 2);
  f << m.name;
  for (int i = 0; i < 5; ++i) f << false;
  f << 1 << 0 << 0;
  for (int i = 0; i < 14; ++i) f << 0.0f;
  f << 0 << 0 << 0.0f;
  for (std::size_t i = 0; i < m.flags.size(); ++i) {
    f << bool(m.flags[i]);
    if (m.textures[i]) {
      f.createChunk(0x10011, 1);
      f << std::string("Tex") << 0 << 0 << 1 << m.textureFile;
      f.closeChunk();
    }
  }
  f << m.maskMode << false << false << false << 240;
  f.closeChunk();
}

// A count, then the values.
void writeCounts(T_MemoryFile& f, const std::vector<unsigned>& counts) {
  f << static_cast<unsigned>(counts.size());
  for (unsigned c : counts) f << c;
}

class Validate : public ::testing::Test {
 protected:
  // Writes scene.zt2 and the per-vertex file scene.skd beside it.
  void write(const Scene& s) {
    T_MemoryFile f;
    f.createChunk(0x1000f, 0);
    f << std::string(".") << static_cast<int>(s.materials.size());
    for (const Scene::Material& m : s.materials) writeMaterial(f, m);
    f.closeChunk();
    f.createChunk(0x10005, 2);
    ObjectRecord object;
    object.name() = "Box01";
    f << object;
    f.createChunk(0x10006, 1);
    writeRawBlock(f, s.positions);
    f.write(s.normals.data(), static_cast<int>(s.normals.size() * 12));
    writeCounts(f, s.groupVertexCounts);
    f.closeChunk();
    f.createChunk(0x10007, 1);
    writeRawBlock(f, s.indices);
    writeCounts(f, s.groupTriangleCounts);
    f.closeChunk();
    f.createChunk(0x1000c, 1);
    f << static_cast<int>(s.materialNames.size());
    for (const auto& n : s.materialNames) f << n;
    f.closeChunk();
    f.createChunk(0x1000e, 1);
    f << 0u;
    writeRawBlock(f, s.coordinates);
    writeCounts(f, s.groupCoordinateCounts);
    f.closeChunk();
    f.closeChunk();
    f.createChunk(0x10012, 5);
    f.createChunk(0x10013, 0);
    f << std::string("Box01") << 30 << true;
    f.closeChunk();
    f << std::string() << true << 10u << static_cast<unsigned>(s.keySamples.size());
    for (unsigned sample : s.keySamples) f << sample << M_Matrix4x3Template<float>();
    f << 1u << 0u << 1.0f << 0u << 1 << true;
    f.closeChunk();
    EXPECT_TRUE(f.save(dir.file("scene.zt2").c_str()).ok());
    const Skin& k = s.skin;
    T_MemoryFile g;
    g.createChunk(0x10014, 1);
    g << k.nodeNames << k.boneNames << k.influenceStart << k.influenceCount << k.influenceBone << k.influenceWeight
      << k.groupVertexCount << k.groupVertexStart;
    g.closeChunk();
    EXPECT_TRUE(g.save(dir.file("scene.skd").c_str()).ok());
  }

  // Exit 1, nothing on stdout, and one line on stderr holding the parts of
  // `fault` (split at '*') in order.
  void expectFault(const std::string& path, const std::string& fault) {
    const auto r = ztx_test::runDump({path, "--validate"});
    EXPECT_EQ(r.exitCode, 1) << fault << "\n" << r.out;
    EXPECT_EQ(r.out, "");
    EXPECT_EQ(r.err.rfind("zt2dump: ", 0), 0u) << r.err;
    EXPECT_EQ(r.err.find('\n'), r.err.size() - 1) << r.err;
    std::size_t at = 0;
    for (std::size_t begin = 0, end; begin <= fault.size(); begin = end + 1) {
      end = std::min(fault.find('*', begin), fault.size());
      at = r.err.find(fault.substr(begin, end - begin), at);
      ASSERT_NE(at, std::string::npos) << "expected: " << fault << "\ngot: " << r.err;
    }
  }

  ztx_test::TempDir dir;
};

TEST_F(Validate, SoundSceneAndSkinPass) {
  write({});
  const std::string scene = dir.file("scene.zt2"), skin = dir.file("scene.skd");
  auto r = ztx_test::runDump({scene, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out.rfind("OK\n" + scene + ": scene file, ", 0), 0u) << r.out;
  EXPECT_NE(r.out.find("; " + skin + " matches its mesh"), std::string::npos) << r.out;
  r = ztx_test::runDump({skin, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("matches its mesh in " + scene), std::string::npos) << r.out;
}

TEST_F(Validate, FirstFaultIsNamedWithItsPlace) {
  const auto extraSkinEntry = [](Scene& s) {
    s.skin.influenceStart.push_back(6);
    s.skin.influenceCount.push_back(0);
    s.skin.groupVertexCount = {3, 4};
  };
  // The file validated, what breaks, and the fault named.
  const std::vector<std::tuple<std::string, std::function<void(Scene&)>, std::string>> cases = {
      {".zt2", [](Scene& s) { s.indices[4] = 3; },
       "MeshFaceChunk at *group 1, triangle 0, corner 1 (index 4): vertex 3 is not below the group's 3 vertices"},
      {".zt2", [](Scene& s) { s.groupVertexCounts[1] = s.groupCoordinateCounts[1] = 2; },
       "MeshVertexChunk at *(mesh \"Box01\"): the group vertex counts add up to 5 but vertexCount is 6"},
      {".zt2", [](Scene& s) { s.normals[4].x = 0; }, "normal 4 (group 1, entry 1) has length 0.8, neither 1 nor 0"},
      {".zt2",
       [](Scene& s) {
         s.coordinates.pop_back();
         s.groupCoordinateCounts[1] = 2;
       },
       "MeshMapChannelChunk at *channel 0 has 5 coordinates for 6 vertices"},
      {".zt2", [](Scene& s) { s.materialNames.pop_back(); },
       "MeshMaterialNamesChunk at *1 material names for 2 groups"},
      {".zt2", [](Scene& s) { s.materials[1].name = "Steel"; },
       "MeshMaterialNamesChunk at *(mesh \"Box01\"): material \"Metal\" is not in the material list"},
      {".zt2", [](Scene& s) { s.materials.resize(1); }, "material \"Metal\" is not in the material list"},
      {".zt2", [](Scene& s) { s.materials[1].textures[0] = true; },
       "layer1Present is false but a TextureChunk follows it at *(reading layer1Present inside MaterialChunk at "},
      {".zt2", [](Scene& s) { s.materials[1].maskMode = 2; },
       "MaterialChunk at *(material \"Metal\"): maskMode is 2, not 0..1"},
      {".zt2", [](Scene& s) { s.materials[0].textureFile = "maps\\tex.png"; },
       "(material \"Wood\"): layer 1: file name \"maps\\tex.png\" holds a directory"},
      {".zt2", [](Scene& s) { s.materials[0].flags[1] = true; },
       "layer2Present is true but no TextureChunk follows it"},
      {".zt2", [](Scene& s) { s.keySamples[2] = 4; },
       "TransformAnimationChunk at *(node \"Box01\"): keys[2] is at sample 4, not after the previous key's 4"},
      {".skd", [](Scene& s) { s.skin.influenceStart[2] = 2; },
       "VertexDataChunk at offset 8: vertex 2 has influenceStart 2 but the counts before it add up to 3"},
      {".skd", [](Scene& s) { s.skin.influenceBone[3] = 2; }, "influence 3 names bone 2 of 2 bone names"},
      {".skd", extraSkinEntry, "the per-vertex lists have 7 entries but mesh \"Box01\" has 6 vertices"},
      {".zt2", extraSkinEntry, "the per-vertex lists have 7 entries but mesh \"Box01\" has 6 vertices"},
  };
  for (const auto& [extension, change, fault] : cases) {
    Scene s;
    change(s);
    write(s);
    expectFault(dir.file("scene" + extension), fault);
  }
}

}  // namespace
