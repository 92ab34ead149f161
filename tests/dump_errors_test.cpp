// zt2dump on files built value by value with T_MemoryFile in the exact chunk
// layouts: the chunk kinds of a scene file, the per-vertex file and the
// options file under their field names; --validate passing a sound scene and
// its per-vertex file and naming the first fault a reader would trip over,
// with its place; and damaged input: truncated at every length, corrupted,
// unknown chunks and versions, bad usage. One line naming the byte offset, a
// non-zero exit, never a crash. The loops run the tool's library in process;
// the tool itself is run for its exit codes.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "dump/json_printer.h"
#include "dump/text_printer.h"
#include "dump/validate.h"
#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/chunk_writing.h"
#include "support/test_support.h"

namespace {

using nlohmann::json;

using Point = ztx_test::FilePoint;
using ztx_test::writeChunk;

void writeObject(T_MemoryFile& f, const std::string& name, const std::string& parent = "") {
  ObjectRecord r;
  r.name() = name;
  r.parentName() = parent;
  r.transform()[1] = {0.0f, 0.0f, 1.0f};
  r.transform()[2] = {0.0f, -1.0f, 0.0f};
  r.transform()[3] = {1.0f, 3.0f, 2.0f};
  r.setHasParent(!parent.empty());
  r.userProperties() = "lod=2\r\nkind=crate";
  f << r;
}

// A mesh with every sub-chunk, a camera and a helper: the chunk kinds whose
// fields no export reads back by name. Those of materials, animations,
// lights and the environment are read from exports (materials_test.cpp,
// animation_export_test.cpp, scene_walk_test.cpp).
T_MemoryFile everyKind() {
  T_MemoryFile f;
  writeChunk(f, 0x10005, 2, [&] {
    writeObject(f, "Box01", "Root");
    writeChunk(f, 0x10006, 1, [&] {
      writeRawBlock(f, std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
      const std::vector<Point> normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}};
      f.write(normals.data(), 48);
      f << 2u << 3u << 1u;
    });
    writeChunk(f, 0x10007, 1, [&] {
      writeRawBlock(f, std::vector<std::uint16_t>{0, 1, 2, 0, 0, 0});
      f << 2u << 1u << 1u;
    });
    writeChunk(f, 0x1000b, 0, [&] {  // 20 values: long enough to be shortened in text
      f << 20;
      for (unsigned v = 0; v < 20; ++v) f << v;
    });
    writeChunk(f, 0x1000c, 1, [&] { f << 2 << std::string("Crate") << std::string("Metal"); });
    for (unsigned channel : {0u, 1u})
      writeChunk(f, 0x1000e, 1, [&] {
        f << channel;
        writeRawBlock(f, std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {1, -1, 0}, {0.5f, 0.5f, 0}});
        f << 2u << 3u << 1u;
      });
    writeChunk(f, 0x1001a, 0, [&] { f << std::string("Box00"); });
  });
  writeChunk(f, 0x10001, 0, [&] {  // values that only read back exactly when printed in full
    writeObject(f, "Camera01");
    f << 0.1f << 1.0f / 3.0f << 1e-30f;
  });
  writeChunk(f, 0x10016, 0, [&] {
    writeObject(f, "Dummy01");
    f << std::string("Dummy");
  });
  return f;
}

json dumpJson(const std::string& path) {
  const auto r = ztx_test::runDump({path, "--json"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "");
  return json::parse(r.out);
}

TEST(DumpChunks, EveryChunkKindByFieldName) {
  ztx_test::TempDir dir;
  const std::string path = dir.file("scene.zt2");
  ASSERT_TRUE(everyKind().save(path.c_str()).ok());
  const json doc = dumpJson(path);
  EXPECT_EQ(doc["file"], path);
  EXPECT_EQ(doc["kind"], "scene");
  EXPECT_EQ(doc["size"], ztx_test::readBytes(path).size());
  const json& c = doc["chunks"];
  ASSERT_EQ(c.size(), 3u);
  EXPECT_EQ(c[1]["offset"], 8 + 13 + c[0]["length"].get<int>());
  EXPECT_EQ(c[1]["idHex"], "0x10001");
  EXPECT_EQ(c[1]["name"], "CameraChunk");
  EXPECT_EQ(c[1]["decoded"], true);
  EXPECT_EQ(c[1]["fields"]["fov"].get<float>(), 0.1f);
  EXPECT_EQ(c[1]["fields"]["nearPlane"].get<float>(), 1.0f / 3.0f);
  EXPECT_EQ(c[1]["fields"]["farPlane"].get<float>(), 1e-30f);
  const json& mesh = c[0]["children"];
  ASSERT_EQ(mesh.size(), 8u);

  // Every other chunk: its name, and every field by name and value.
  const std::vector<std::tuple<json, const char*, const char*>> expected = {
      {c[0], "MeshChunk", "{}"},
      {mesh[0], "ObjectChunk", R"({"name":"Box01","parentName":"Root","transform":[[1,0,0],[0,0,1],[0,-1,0],[1,3,2]],
        "hasParent":true,"userProperties":"lod=2\r\nkind=crate"})"},
      {mesh[1], "MeshVertexChunk", R"({"vertexCount":4,"positions":[[0,0,0],[1,0,0],[0,1,0],[0,0,1]],
        "normals":[[0,0,1],[0,0,1],[0,0,1],[0,0,0]],"groupCount":2,"groupVertexCounts":[3,1]})"},
      {mesh[2], "MeshFaceChunk",
       R"({"indexCount":6,"indices":[0,1,2,0,0,0],"groupCount":2,"groupTriangleCounts":[1,1]})"},
      {mesh[3], "MeshReservedChunk", R"({"count":20,"values":[0,1,2,3,4,5,6,7,8,9,10,11,12,13,14,15,16,17,18,19]})"},
      {mesh[4], "MeshMaterialNamesChunk", R"({"nameCount":2,"names":["Crate","Metal"]})"},
      {mesh[6], "MeshMapChannelChunk", R"({"channel":1,"coordinateCount":4,
        "coordinates":[[0,0,0],[1,0,0],[1,-1,0],[0.5,0.5,0]],"groupCount":2,"groupCoordinateCounts":[3,1]})"},
      {mesh[7], "MeshReferenceChunk", R"({"referenceName":"Box00"})"},
      {c[2], "HelperChunk", R"({"className":"Dummy"})"},
  };
  for (const auto& [chunk, name, fields] : expected) {
    EXPECT_EQ(chunk["name"], name);
    EXPECT_EQ(chunk["fields"], json::parse(fields)) << name;
  }

  // The text form shows the same tree, and shortens long arrays unless --full.
  const std::string text = ztx_test::runDump({path}).out;
  EXPECT_NE(text.find("\n  MeshReservedChunk 0x1000b version 0, "), std::string::npos) << text;
  EXPECT_NE(text.find("\n    values: [0, 1, 2, 3, 4, 5, 6, 7, ... (12 more)]\n"), std::string::npos) << text;
  EXPECT_NE(ztx_test::runDump({path, "--full"}).out.find(", 18, 19]\n"), std::string::npos);
}

struct OptionsValues {
  int version = 10;
  int flag = 1;
  int sampleRate = 15;
  int frameToFrameInterpolation = 2;
  int retired = 1;
  std::vector<std::string> history = {"maps/", "."};
};

// Writes the options values in file order, as far as `version` holds them.
std::string optionsFile(const ztx_test::TempDir& dir, const OptionsValues& v) {
  T_MemoryFile f;
  f << v.version;
  f << v.flag << 0 << 1 << 0 << 1 << 0 << 1 << 0 << 1;  // exportGeometry .. copyTextures
  f << v.retired;
  f << 1 << 0 << 1 << 0 << 1;                           // loop .. rescale
  f << v.sampleRate << 30 << 0.125f << 2.5f << static_cast<int>(v.history.size());
  for (const auto& p : v.history) f << p;
  if (v.version >= 2) f << 1;
  if (v.version >= 3) f << 0.0625f;
  if (v.version >= 4) f << v.frameToFrameInterpolation;
  for (int since = 5; since <= 10; ++since)
    if (v.version >= since) f << since % 2;
  const std::string path = dir.file("v" + std::to_string(v.version) + ".cfg");
  EXPECT_TRUE(f.save(path.c_str()).ok());
  return path;
}

json dumpFields(const std::string& path) {
  const json doc = dumpJson(path);
  EXPECT_EQ(doc["kind"], "options");
  return doc["fields"];
}

TEST(DumpOptions, EachVersionHoldsItsValuesByName) {
  ztx_test::TempDir dir;
  const json all = dumpFields(optionsFile(dir, {}));
  EXPECT_EQ(all, json::parse(R"({"exportGeometry":1,"exportAnimation":0,"exportCameras":1,"exportEnvironment":0,
              "exportHelpers":1,"exportLights":0,"exportMaterials":1,"dumpInfo":0,"copyTextures":1,"retiredFlag":1,
              "loop":1,"loopInterpolation":0,"removeFloatingVertices":1,"removeHiddenObjects":0,"rescale":1,
              "sampleRate":15,"sceneFrameRate":30,"rotationDelta":0.125,"rescaleFactor":2.5,"texturePathCount":2,
              "texturePathHistory":["maps/","."],"retainHierarchies":1,"positionDelta":0.0625,
              "frameToFrameInterpolation":2,"pivotAsMeshCenter":1,"maintainMatrixScaling":0,
              "saveReferencesOnce":1,"decreaseEndFrameByOne":0,"useGlobalAnimationRange":1,"exportSkinning":0})"));
  // An older version holds the first of these values, under the same names.
  for (const auto& [version, size] : {std::pair{1, 21u}, {4, 24u}, {9, 29u}}) {
    const json fields = dumpFields(optionsFile(dir, {.version = version}));
    EXPECT_EQ(fields.size(), size) << version;
    for (const auto& [key, value] : fields.items()) EXPECT_EQ(value, all.value(key, json())) << version << " " << key;
  }
}

TEST(DumpOptions, ValidateAcceptsAGoodFileAndNamesTheFaultyValue) {
  ztx_test::TempDir dir;
  const std::string good = optionsFile(dir, {});
  auto r = ztx_test::runDump({good, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out, "OK\n" + good + ": options file, " + std::to_string(ztx_test::readBytes(good).size()) +
                       " bytes, options version 10, 30 values\n");
  const std::vector<std::pair<OptionsValues, std::string>> cases = {
      {{.flag = 2}, "options value exportGeometry at byte offset 13 is 2, not 0 or 1"},
      {{.sampleRate = 0}, "sampleRate at byte offset 88 is 0, not a positive frame rate"},
      {{.history = {"maps/", ""}}, "texture path 1 is empty"},
      {{.version = 11}, "options version 11 is not between 1 and 10"},
  };
  // What the reader takes as it stands is no fault: the retired flag it
  // ignores, an interpolation method the export then treats as none.
  for (const OptionsValues& values : {OptionsValues{.frameToFrameInterpolation = 3}, OptionsValues{.retired = 5}})
    EXPECT_EQ(ztx_test::runDump({optionsFile(dir, values), "--validate"}).exitCode, 0);
  for (const auto& [values, fault] : cases) {
    r = ztx_test::runDump({optionsFile(dir, values), "--validate"});
    EXPECT_EQ(r.exitCode, 1) << fault;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(fault), std::string::npos) << r.err;
  }
}

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

// Writes dir/scene.zt2 and the per-vertex file dir/scene.skd beside it.
void writeScene(const ztx_test::TempDir& dir, const Scene& s) {
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

class Validate : public ::testing::Test {
 protected:
  void write(const Scene& s) { writeScene(dir, s); }

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

// The per-vertex file's fields by name are read back from every export's
// .skd (import_test.cpp); a sound one validates beside its scene here.
TEST_F(Validate, SoundSceneAndSkinPass) {
  write({});
  const std::string scene = dir.file("scene.zt2"), skin = dir.file("scene.skd");
  // Named .bin: the content, not the extension, makes it a per-vertex file.
  std::filesystem::copy_file(skin, dir.file("body.bin"));
  EXPECT_EQ(dumpJson(dir.file("body.bin"))["kind"], "vertexData");
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

using Bytes = std::vector<unsigned char>;

// A camera chunk; `values` writes what follows its object.
template <typename Values>
void writeCamera(T_MemoryFile& f, Values values) {
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  values();
  f.closeChunk();
}

Bytes bytesOf(const T_MemoryFile& f) {
  ztx_test::TempDir dir;
  EXPECT_TRUE(f.save(dir.file("f").c_str()).ok());
  return ztx_test::readBytes(dir.file("f"));
}

std::uint32_t getU32(const Bytes& b, std::size_t offset) {
  std::uint32_t v;
  std::memcpy(&v, b.data() + offset, 4);
  return v;
}

Bytes withU32(Bytes b, std::size_t offset, std::uint32_t v) {
  std::memcpy(b.data() + offset, &v, 4);
  return b;
}

// The sound scene's files: the scene, its mesh alone (a file that every cut
// leaves incomplete), the per-vertex file, and an options file.
struct SoundFiles {
  ztx_test::TempDir dir;
  Bytes scene, mesh, skin, options;
  std::size_t meshAt = 0;
  SoundFiles() {
    writeScene(dir, {});
    scene = ztx_test::readBytes(dir.file("scene.zt2"));
    meshAt = 8 + 13 + getU32(scene, 8 + 9);  // after the material list
    mesh.assign(scene.begin(), scene.begin() + 8);
    mesh.insert(mesh.end(), scene.begin() + meshAt, scene.begin() + meshAt + 13 + getU32(scene, meshAt + 9));
    skin = ztx_test::readBytes(dir.file("scene.skd"));
    options = ztx_test::readBytes(optionsFile(dir, {}));
  }
};

// What zt2dump does with the bytes, in process: the output of `mode` ("",
// "--json" or "--validate"), or the message of the fault that stops it.
struct Dumped {
  std::string out, fault;
};
Dumped dumpBytes(const Bytes& bytes, const std::string& name, const std::string& mode = "") {
  std::ostringstream out;
  try {
    zt2dump::DecodedFile file = zt2dump::decodeBytes(name, bytes);
    ztexport::decodeTexts(file);
    if (mode == "--validate") out << zt2dump::validateFile(file);
    else if (mode == "--json") zt2dump::printJson(out, file);
    else zt2dump::printText(out, file, {});
  } catch (const std::exception& e) {
    return {"", e.what()};
  }
  return {out.str(), ""};
}

// One line naming the file, a byte offset and the parts of `what` (split at '*') in order.
void expectFault(const std::string& fault, const std::string& path, const std::string& what,
                 const std::string& context) {
  EXPECT_EQ(std::count(fault.begin(), fault.end(), '\n'), 0) << context << ": " << fault;
  EXPECT_EQ(fault.rfind(path + ": ", 0), 0u) << context << ": " << fault;
  EXPECT_NE(fault.find("byte offset"), std::string::npos) << context << ": " << fault;
  std::size_t at = 0;
  for (std::size_t begin = 0, end; begin <= what.size(); begin = end + 1) {
    end = std::min(what.find('*', begin), what.size());
    at = fault.find(what.substr(begin, end - begin), at);
    ASSERT_NE(at, std::string::npos) << context << ": " << fault;
  }
}

TEST(Damaged, TruncatedAtEveryLength) {
  const SoundFiles sound;
  for (const auto& [full, name] : {std::pair{sound.mesh, "mesh.zt2"}, std::pair{sound.skin, "alone.skd"},
                                   std::pair{sound.options, "ZTExport.cfg"}}) {
    for (const std::string mode : {"", "--json", "--validate"}) {
      const std::string context = std::string(name) + " " + mode;
      EXPECT_EQ(dumpBytes(full, name, mode).fault, "") << context;
      for (std::size_t n = 0; n < full.size(); ++n)
        expectFault(dumpBytes(Bytes(full.begin(), full.begin() + static_cast<long>(n)), name, mode).fault, name, "",
                    context + " cut to " + std::to_string(n) + " bytes");
    }
  }
}

// Through the tool: exit 1, nothing on stdout, the fault as one line on stderr.
TEST(Damaged, EachFaultIsNamedWithItsPlace) {
  const SoundFiles sound;
  const Bytes& scene = sound.scene;
  // The vertex chunk follows the mesh's object chunk.
  const std::size_t vertexAt = sound.meshAt + 13 + 13 + getU32(scene, sound.meshAt + 13 + 9);
  const std::size_t meshLeft = sound.meshAt + 13 + getU32(scene, sound.meshAt + 9) - (vertexAt + 13);
  ASSERT_EQ(scene[vertexAt], 0x20);
  T_MemoryFile wrongTag, extra;
  writeCamera(wrongTag, [&] { wrongTag << 1.0f << 2 << 100.0f; });
  writeCamera(extra, [&] { extra << 1.0f << 0.5f << 100.0f << 7; });
  const Bytes wrongTagBytes = bytesOf(wrongTag), extraBytes = bytesOf(extra);
  const std::vector<std::pair<Bytes, std::string>> cases = {
      {wrongTagBytes, "expected a float value, found an int value at byte offset " +
                          std::to_string(wrongTagBytes.size() - 10) + "*reading nearPlane inside CameraChunk"},
      {extraBytes, "5 bytes left over after the last field at byte offset " + std::to_string(extraBytes.size() - 5)},
      {withU32(scene, vertexAt + 9, static_cast<std::uint32_t>(meshLeft + 5)),
       "chunk 0x10006 claims " + std::to_string(meshLeft + 5) + " bytes but its parent has only " +
           std::to_string(meshLeft) + " left at byte offset " + std::to_string(vertexAt) + "*inside MeshChunk"},
      {withU32(scene, vertexAt + 13 + 1, 0xFFFFFFFFu),
       "4294967295 points of a raw block need at least*reading positions inside MeshVertexChunk"},
  };
  ztx_test::TempDir dir;
  for (const auto& [bytes, what] : cases) {
    ztx_test::writeBytes(dir.file("bad.zt2"), bytes);
    const auto r = ztx_test::runDump({dir.file("bad.zt2")});
    EXPECT_EQ(r.exitCode, 1) << r.err;
    EXPECT_EQ(r.out, "");
    ASSERT_TRUE(r.err.starts_with("zt2dump: ") && r.err.ends_with("\n")) << r.err;
    expectFault(r.err.substr(9, r.err.size() - 10), dir.file("bad.zt2"), what, what);
  }
}

TEST(Damaged, UnknownChunksAreShownAndSkipped) {
  T_MemoryFile f;
  f.createChunk(0x10008, 3);
  f << 42 << std::string("whatever");
  f.closeChunk();
  f.createChunk(0x10005, 2);
  writeObject(f, "M");
  f.createChunk(0x2abcd, 0);
  f << 1.0f;
  f.closeChunk();
  f.closeChunk();
  // A known chunk of another version is skipped too, but fails validation.
  f.createChunk(0x10001, 1);
  f << 1.0f;
  f.closeChunk();
  const Bytes b = bytesOf(f);
  const Dumped r = dumpBytes(b, "unknown.zt2");
  ASSERT_EQ(r.fault, "");
  EXPECT_NE(r.out.find("\nunknown chunk 0x10008 version 3, 18 bytes at offset 8, skipped\nMeshChunk 0x10005"),
            std::string::npos)
      << r.out;
  EXPECT_NE(r.out.find("\n  unknown chunk 0x2abcd version 0, 5 bytes at offset"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("version 1 is not known (this tool reads version 0), body skipped"), std::string::npos);
  const json doc = json::parse(dumpBytes(b, "unknown.zt2", "--json").out);
  EXPECT_EQ(doc["chunks"][0]["name"], nullptr);
  EXPECT_EQ(doc["chunks"][0]["idHex"], "0x10008");
  EXPECT_EQ(doc["chunks"][0]["decoded"], false);
  EXPECT_EQ(doc["chunks"][1]["children"][1]["idHex"], "0x2abcd");
  // Unknown ids are skippable by design: the first fault is the last chunk's version.
  const std::string fault = dumpBytes(b, "unknown.zt2", "--validate").fault;
  const int cameraAt = 8 + 13 + 18 + 13 + doc["chunks"][1]["length"].get<int>();
  EXPECT_NE(fault.find("CameraChunk at offset " + std::to_string(cameraAt) + ": version 1 is not known"),
            std::string::npos)
      << fault;
}

TEST(DumpUsage, ExitCodesForBadUsageAndUnreadableFiles) {
  ztx_test::TempDir dir;
  const std::vector<std::pair<std::vector<std::string>, std::string>> cases = {
      {{}, "no file given"},
      {{"x.zt2", "--frobnicate"}, "unknown option --frobnicate"},
      {{"a.zt2", "b.zt2"}, "usage: zt2dump"},
      {{dir.file("missing.zt2")}, dir.file("missing.zt2") + ": no such file\n"},
      {{dir.path().string()}, "not a regular file"},
  };
  for (const auto& [args, message] : cases) {
    const auto r = ztx_test::runDump(args);
    EXPECT_EQ(r.exitCode, 2) << message;
    EXPECT_NE(r.err.find(message), std::string::npos) << r.err;
  }
}

}  // namespace
