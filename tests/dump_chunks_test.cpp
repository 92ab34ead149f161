// zt2dump decodes every chunk kind under its field names. The inputs are
// built here value by value with T_MemoryFile, in the exact chunk layouts.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/test_support.h"

namespace {

using nlohmann::json;

struct Point {
  float x, y, z;
};

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

void writeEnvironment(T_MemoryFile& f) {
  f.createChunk(0x10015, 0);
  for (unsigned char c : {25, 25, 25, 255, 0, 0, 0, 255}) f << c;
  f.closeChunk();
}

void writeTexture(T_MemoryFile& f, const std::vector<std::string>& files) {
  f.createChunk(0x10011, 1);
  f << std::string("wood") << 3 << 4 << static_cast<int>(files.size());
  for (const auto& name : files) f << name;
  if (files.size() > 1) f << true << false << 7 << 8 << 2;
  f.closeChunk();
}

void writeMaterials(T_MemoryFile& f) {
  f.createChunk(0x1000f, 0);
  f << std::string("textures/") << 1;
  f.createChunk(0x10010, 2);
  f << std::string("Crate") << true << false << false << true << false << 1 << 5 << 6;
  for (float v : {10.0f, 20.0f, 30.0f, 255.0f, 40.0f, 50.0f, 60.0f, 255.0f, 70.0f, 80.0f, 90.0f, 255.0f}) f << v;
  f << 0.25f << 0.5f << 11 << 12 << 0.0f;
  f << false << true;
  writeTexture(f, {"crate.png"});
  f << false << false << true;
  writeTexture(f, {"a1.png", "a2.png"});
  f << 13 << true << false << true << 240;
  f.closeChunk();
  f.closeChunk();
}

void writeMesh(T_MemoryFile& f) {
  f.createChunk(0x10005, 2);
  writeObject(f, "Box01", "Root");
  f.createChunk(0x10006, 1);
  writeRawBlock(f, std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}});
  const std::vector<Point> normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}};
  f.write(normals.data(), 48);
  f << 2u << 3u << 1u;
  f.closeChunk();
  f.createChunk(0x10007, 1);
  writeRawBlock(f, std::vector<std::uint16_t>{0, 1, 2, 0, 0, 0});
  f << 2u << 1u << 1u;
  f.closeChunk();
  f.createChunk(0x1000b, 0);
  f << 2 << 9u << 10u;
  f.closeChunk();
  f.createChunk(0x1000c, 1);
  f << 2 << std::string("Crate") << std::string("Metal");
  f.closeChunk();
  for (unsigned channel : {0u, 1u}) {
    f.createChunk(0x1000e, 1);
    f << channel;
    writeRawBlock(f, std::vector<Point>{{0, 0, 0}, {1, 0, 0}, {1, -1, 0}, {0.5f, 0.5f, 0}});
    f << 2u << 3u << 1u;
    f.closeChunk();
  }
  f.createChunk(0x1001a, 0);
  f << std::string("Box00");
  f.closeChunk();
  f.closeChunk();
}

void writeCamera(T_MemoryFile& f) {
  f.createChunk(0x10001, 0);
  writeObject(f, "Camera01");
  f << 0.785398f << 0.001f << 1000.0f;
  f.closeChunk();
}

void writeLight(T_MemoryFile& f, unsigned id, const std::string& name) {
  f.createChunk(id, 0);
  writeObject(f, name);
  f << 255.0f << 128.0f << -255.0f << 255.0f << 0.5f;
  if (id != 0x10003) f << 1.0f << 5.0f;
  if (id == 0x10004) f << 0.7505f << 0.7854f;
  f.closeChunk();
}

void writeHelper(T_MemoryFile& f) {
  f.createChunk(0x10016, 0);
  writeObject(f, "Dummy01");
  f << std::string("Dummy");
  f.closeChunk();
}

void writeAnimationHeader(T_MemoryFile& f, const std::string& name) {
  f.createChunk(0x10013, 0);
  f << name << 30 << true;
  f.closeChunk();
}

void writeTransformAnimation(T_MemoryFile& f) {
  f.createChunk(0x10012, 5);
  writeAnimationHeader(f, "Box01");
  f << std::string("Root") << true << 10u;
  M_Matrix4x3Template<float> m;
  f << 2u << 0u << m;
  m[3] = {4.0f, 5.0f, 6.0f};
  f << 7u << m;
  f << 1u << 0u << 1.0f;
  f << 9u << 2 << true;
  f.closeChunk();
}

void writeLightAnimation(T_MemoryFile& f, unsigned id, const std::string& name) {
  f.createChunk(id, 2);
  writeAnimationHeader(f, name);
  f << 10 << false;
  f << 1 << 0u << 255.0f << 255.0f << 255.0f << 255.0f;
  f << 2 << 0u << 1.0f << 5u << 0.5f;
  if (id != 0x10018)
    for (int track = 0; track < (id == 0x10019 ? 4 : 2); ++track) f << 1 << 0u << static_cast<float>(track + 1);
  f << 8u;
  f.closeChunk();
}

std::string save(const ztx_test::TempDir& dir, const T_MemoryFile& f, const std::string& name) {
  const std::string path = dir.file(name);
  EXPECT_NE(f.save(path.c_str()), 0);
  return path;
}

json dumpJson(const std::string& path) {
  const auto r = ztx_test::runDump({path, "--json"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.err, "");
  return json::parse(r.out);
}

const json& chunkNamed(const json& chunks, const std::string& name) {
  for (const json& c : chunks)
    if (c["name"] == name) return c;
  ADD_FAILURE() << "no chunk " << name;
  static const json none = json::object();
  return none;
}

json matrix(std::initializer_list<std::initializer_list<float>> rows) {
  json m = json::array();
  for (auto row : rows) {
    json r = json::array();
    for (float v : row) r.push_back(static_cast<double>(v));
    m.push_back(r);
  }
  return m;
}

class DumpChunks : public ::testing::Test {
 protected:
  void SetUp() override {
    T_MemoryFile f;
    writeEnvironment(f);
    writeMaterials(f);
    writeMesh(f);
    writeCamera(f);
    writeLight(f, 0x10002, "Omni01");
    writeLight(f, 0x10003, "Sun01");
    writeLight(f, 0x10004, "Spot01");
    writeHelper(f);
    writeTransformAnimation(f);
    writeLightAnimation(f, 0x10017, "Omni01");
    writeLightAnimation(f, 0x10018, "Sun01");
    writeLightAnimation(f, 0x10019, "Spot01");
    path = save(dir, f, "scene.zt2");
    doc = dumpJson(path);
    chunks = doc["chunks"];
  }

  ztx_test::TempDir dir;
  std::string path;
  json doc, chunks;
};

TEST_F(DumpChunks, DocumentNamesFileKindAndEveryTopLevelChunkInOrder) {
  EXPECT_EQ(doc["file"], path);
  EXPECT_EQ(doc["kind"], "scene");
  EXPECT_EQ(doc["size"], ztx_test::readBytes(path).size());
  std::vector<std::string> names;
  for (const json& c : chunks) names.push_back(c["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"EnvironmentChunk", "MaterialListChunk", "MeshChunk", "CameraChunk",
                                             "OmniLightChunk", "DirectionalLightChunk", "SpotLightChunk",
                                             "HelperChunk", "TransformAnimationChunk", "OmniLightAnimationChunk",
                                             "DirectionalLightAnimationChunk", "SpotLightAnimationChunk"}));
  EXPECT_EQ(chunks[0]["offset"], 8);
  EXPECT_EQ(chunks[1]["offset"], 8 + 13 + chunks[0]["length"].get<int>());
}

TEST_F(DumpChunks, ChunkHeaderMembers) {
  const json& camera = chunkNamed(chunks, "CameraChunk");
  EXPECT_EQ(camera["id"], 0x10001);
  EXPECT_EQ(camera["idHex"], "0x10001");
  EXPECT_EQ(camera["version"], 0);
  EXPECT_EQ(camera["decoded"], true);
  ASSERT_EQ(camera["children"].size(), 1u);
  EXPECT_EQ(camera["children"][0]["name"], "ObjectChunk");
  EXPECT_EQ(camera["children"][0]["version"], 1);
  EXPECT_EQ(camera["children"][0]["children"], json::array());
}

TEST_F(DumpChunks, ObjectChunkFields) {
  const json& object = chunkNamed(chunks, "MeshChunk")["children"][0]["fields"];
  EXPECT_EQ(object["name"], "Box01");
  EXPECT_EQ(object["parentName"], "Root");
  EXPECT_EQ(object["transform"], matrix({{1, 0, 0}, {0, 0, 1}, {0, -1, 0}, {1, 3, 2}}));
  EXPECT_EQ(object["hasParent"], true);
  EXPECT_EQ(object["userProperties"], "lod=2\r\nkind=crate");
  // The document keeps the file's field order.
  const auto ordered = nlohmann::ordered_json::parse(ztx_test::runDump({path, "--json"}).out);
  const auto& fields = ordered["chunks"][2]["children"][0]["fields"];
  std::vector<std::string> keys;
  for (auto it = fields.begin(); it != fields.end(); ++it) keys.push_back(it.key());
  EXPECT_EQ(keys, (std::vector<std::string>{"name", "parentName", "transform", "hasParent", "userProperties"}));
}

TEST_F(DumpChunks, CameraFields) {
  const json& f = chunkNamed(chunks, "CameraChunk")["fields"];
  EXPECT_EQ(f["fov"].get<float>(), 0.785398f);
  EXPECT_EQ(f["nearPlane"].get<float>(), 0.001f);
  EXPECT_EQ(f["farPlane"].get<float>(), 1000.0f);
}

TEST_F(DumpChunks, LightFieldsByKind) {
  const json& omni = chunkNamed(chunks, "OmniLightChunk")["fields"];
  EXPECT_EQ(omni["colour"], json({255.0, 128.0, -255.0, 255.0}));
  EXPECT_EQ(omni["intensity"], 0.5);
  EXPECT_EQ(omni["attenuationStart"], 1.0);
  EXPECT_EQ(omni["attenuationEnd"], 5.0);
  EXPECT_FALSE(omni.contains("hotspot"));
  const json& sun = chunkNamed(chunks, "DirectionalLightChunk")["fields"];
  EXPECT_EQ(sun.size(), 2u);
  EXPECT_EQ(sun["intensity"], 0.5);
  const json& spot = chunkNamed(chunks, "SpotLightChunk")["fields"];
  EXPECT_EQ(spot["hotspot"].get<float>(), 0.7505f);
  EXPECT_EQ(spot["falloff"].get<float>(), 0.7854f);
  EXPECT_EQ(chunkNamed(chunks, "SpotLightChunk")["children"][0]["fields"]["name"], "Spot01");
}

TEST_F(DumpChunks, HelperAndEnvironmentFields) {
  EXPECT_EQ(chunkNamed(chunks, "HelperChunk")["fields"]["className"], "Dummy");
  const json& env = chunkNamed(chunks, "EnvironmentChunk")["fields"];
  EXPECT_EQ(env["ambientColour"], json({25, 25, 25, 255}));
  EXPECT_EQ(env["backgroundColour"], json({0, 0, 0, 255}));
}

TEST_F(DumpChunks, MeshSubChunkFields) {
  const json& mesh = chunkNamed(chunks, "MeshChunk");
  EXPECT_EQ(mesh["fields"], json::object());
  std::vector<std::string> names;
  for (const json& c : mesh["children"]) names.push_back(c["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"ObjectChunk", "MeshVertexChunk", "MeshFaceChunk", "MeshReservedChunk",
                                             "MeshMaterialNamesChunk", "MeshMapChannelChunk", "MeshMapChannelChunk",
                                             "MeshReferenceChunk"}));
  const json& v = mesh["children"][1]["fields"];
  EXPECT_EQ(v["vertexCount"], 4);
  EXPECT_EQ(v["positions"], json({{0.0, 0.0, 0.0}, {1.0, 0.0, 0.0}, {0.0, 1.0, 0.0}, {0.0, 0.0, 1.0}}));
  EXPECT_EQ(v["normals"][3], json({0.0, 0.0, 0.0}));
  EXPECT_EQ(v["groupCount"], 2);
  EXPECT_EQ(v["groupVertexCounts"], json({3, 1}));
  const json& faces = mesh["children"][2]["fields"];
  EXPECT_EQ(faces["indexCount"], 6);
  EXPECT_EQ(faces["indices"], json({0, 1, 2, 0, 0, 0}));
  EXPECT_EQ(faces["groupTriangleCounts"], json({1, 1}));
  EXPECT_EQ(mesh["children"][3]["fields"]["values"], json({9, 10}));
  EXPECT_EQ(mesh["children"][4]["fields"]["nameCount"], 2);
  EXPECT_EQ(mesh["children"][4]["fields"]["names"], json({"Crate", "Metal"}));
  const json& map1 = mesh["children"][6]["fields"];
  EXPECT_EQ(map1["channel"], 1);
  EXPECT_EQ(map1["coordinateCount"], 4);
  EXPECT_EQ(map1["coordinates"][2], json({1.0, -1.0, 0.0}));
  EXPECT_EQ(map1["groupCoordinateCounts"], json({3, 1}));
  EXPECT_EQ(mesh["children"][7]["fields"]["referenceName"], "Box00");
}

TEST_F(DumpChunks, MaterialAndTextureFields) {
  const json& list = chunkNamed(chunks, "MaterialListChunk");
  EXPECT_EQ(list["fields"]["texturePath"], "textures/");
  EXPECT_EQ(list["fields"]["materialCount"], 1);
  ASSERT_EQ(list["children"].size(), 1u);
  const json& m = list["children"][0];
  const json& f = m["fields"];
  EXPECT_EQ(f["name"], "Crate");
  EXPECT_EQ(f["switch1"], true);
  EXPECT_EQ(f["switch4"], true);
  EXPECT_EQ(f["switch5"], false);
  EXPECT_EQ(f["plainLayerMode"], 1);
  EXPECT_EQ(f["option1"], 5);
  EXPECT_EQ(f["layer2Mode"], 6);
  EXPECT_EQ(f["ambient"], json({10.0, 20.0, 30.0, 255.0}));
  EXPECT_EQ(f["specular"], json({70.0, 80.0, 90.0, 255.0}));
  EXPECT_EQ(f["value1"], 0.25);
  EXPECT_EQ(f["value2"], 0.5);
  EXPECT_EQ(f["diffuseMode"], 11);
  EXPECT_EQ(f["mode2"], 12);
  EXPECT_EQ(f["reserved"], 0.0);
  const std::vector<bool> layers = {f["layer1Present"], f["layer2Present"], f["layer3Present"], f["layer4Present"],
                                    f["layer5Present"]};
  EXPECT_EQ(layers, (std::vector<bool>{false, true, false, false, true}));
  EXPECT_EQ(f["maskMode"], 13);
  EXPECT_EQ(f["switch6"], true);
  EXPECT_EQ(f["switch7"], false);
  EXPECT_EQ(f["switch8"], true);
  EXPECT_EQ(f["intValue"], 240);
  ASSERT_EQ(m["children"].size(), 2u);
  const json& single = m["children"][0]["fields"];
  EXPECT_EQ(single["name"], "wood");
  EXPECT_EQ(single["textureValue"], 3);
  EXPECT_EQ(single["textureMode"], 4);
  EXPECT_EQ(single["fileNameCount"], 1);
  EXPECT_EQ(single["fileNames"], json({"crate.png"}));
  EXPECT_FALSE(single.contains("sequenceMode"));
  const json& sequence = m["children"][1]["fields"];
  EXPECT_EQ(sequence["fileNames"], json({"a1.png", "a2.png"}));
  EXPECT_EQ(sequence["sequenceSwitch1"], true);
  EXPECT_EQ(sequence["sequenceSwitch2"], false);
  EXPECT_EQ(sequence["sequenceValue1"], 7);
  EXPECT_EQ(sequence["sequenceValue2"], 8);
  EXPECT_EQ(sequence["sequenceMode"], 2);
}

TEST_F(DumpChunks, TransformAnimationFields) {
  const json& a = chunkNamed(chunks, "TransformAnimationChunk");
  const json& header = a["children"][0];
  EXPECT_EQ(header["name"], "AnimationHeaderChunk");
  EXPECT_EQ(header["fields"], json({{"name", "Box01"}, {"sampleRate", 30}, {"loop", true}}));
  const json& f = a["fields"];
  EXPECT_EQ(f["parentName"], "Root");
  EXPECT_EQ(f["loopInterpolation"], true);
  EXPECT_EQ(f["numSamples"], 10);
  EXPECT_EQ(f["keyCount"], 2);
  ASSERT_EQ(f["keys"].size(), 2u);
  EXPECT_EQ(f["keys"][0]["sample"], 0);
  EXPECT_EQ(f["keys"][1]["sample"], 7);
  EXPECT_EQ(f["keys"][1]["transform"], matrix({{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {4, 5, 6}}));
  EXPECT_EQ(f["visibilityKeyCount"], 1);
  EXPECT_EQ(f["visibilityKeys"], json::parse(R"([{"sample":0,"value":1.0}])"));
  EXPECT_EQ(f["loopToFrame"], 9);
  EXPECT_EQ(f["frameToFrameInterpolation"], 2);
  EXPECT_EQ(f["maintainMatrixScaling"], true);
}

TEST_F(DumpChunks, LightAnimationTracksByKind) {
  const json& omni = chunkNamed(chunks, "OmniLightAnimationChunk")["fields"];
  EXPECT_EQ(omni["numSamples"], 10);
  EXPECT_EQ(omni["loopInterpolation"], false);
  EXPECT_EQ(omni["colourKeyCount"], 1);
  EXPECT_EQ(omni["colourKeys"][0]["colour"], json({255.0, 255.0, 255.0, 255.0}));
  EXPECT_EQ(omni["intensityKeys"][1]["sample"], 5);
  EXPECT_EQ(omni["intensityKeys"][1]["value"], 0.5);
  EXPECT_EQ(omni["attenuationStartKeys"][0]["value"], 1.0);
  EXPECT_EQ(omni["attenuationEndKeys"][0]["value"], 2.0);
  EXPECT_EQ(omni["loopToFrame"], 8);
  const json& sun = chunkNamed(chunks, "DirectionalLightAnimationChunk")["fields"];
  EXPECT_FALSE(sun.contains("attenuationStartKeys"));
  EXPECT_EQ(sun["loopToFrame"], 8);
  const json& spot = chunkNamed(chunks, "SpotLightAnimationChunk")["fields"];
  EXPECT_EQ(spot["hotspotKeyCount"], 1);
  EXPECT_EQ(spot["hotspotKeys"][0]["value"], 3.0);
  EXPECT_EQ(spot["falloffKeys"][0]["value"], 4.0);
  EXPECT_EQ(spot["loopToFrame"], 8);
}

TEST_F(DumpChunks, TextShowsTreeNamesIdsAndFields) {
  const auto r = ztx_test::runDump({path});
  ASSERT_EQ(r.exitCode, 0) << r.err;
  for (const char* expected :
       {"MeshChunk 0x10005 version 2, ", "\n  ObjectChunk 0x10000 version 1, ", "\n    name: \"Box01\"\n",
        "\n    transform: [[1, 0, 0], [0, 0, 1], [0, -1, 0], [1, 3, 2]]\n",
        "\n    userProperties: \"lod=2\\r\\nkind=crate\"\n", "\n    groupVertexCounts: [3, 1]\n",
        "\n  fov: 0.785398\n", "\n  nearPlane: 0.001\n", "\n  colour: [255, 128, -255, 255]\n",
        "\n      textureMode: 4\n", "\n  keys: 2 entries\n    [0] sample: 0, transform: [[1, 0, 0],",
        "\n  hotspotKeys: 1 entries\n    [0] sample: 0, value: 3\n"})
    EXPECT_NE(r.out.find(expected), std::string::npos) << expected << "\n---\n" << r.out;
}

TEST(DumpVertexData, SkdFieldsByName) {
  ztx_test::TempDir dir;
  T_MemoryFile f;
  f.createChunk(0x10014, 1);
  f << std::vector<std::string>{"Body"} << std::vector<std::string>{"Hip", "Knee"} << std::vector<int>{0, 1}
    << std::vector<int>{1, 2} << std::vector<int>{0, 0, 1} << std::vector<float>{1.0f, 0.25f, 0.75f}
    << std::vector<unsigned int>{2} << std::vector<unsigned int>{0};
  f.closeChunk();
  // Named .bin: the content, not the extension, makes it a per-vertex file.
  const json doc = dumpJson(save(dir, f, "body.bin"));
  EXPECT_EQ(doc["kind"], "vertexData");
  const json& c = doc["chunks"][0];
  EXPECT_EQ(c["name"], "VertexDataChunk");
  EXPECT_EQ(c["fields"]["nodeNames"], json({"Body"}));
  EXPECT_EQ(c["fields"]["boneNames"], json({"Hip", "Knee"}));
  EXPECT_EQ(c["fields"]["influenceStart"], json({0, 1}));
  EXPECT_EQ(c["fields"]["influenceCount"], json({1, 2}));
  EXPECT_EQ(c["fields"]["influenceBone"], json({0, 0, 1}));
  EXPECT_EQ(c["fields"]["influenceWeight"], json({1.0, 0.25, 0.75}));
  EXPECT_EQ(c["fields"]["groupVertexCount"], json({2}));
  EXPECT_EQ(c["fields"]["groupVertexStart"], json({0}));
}

TEST(DumpArrays, LongArraysAreShortenedInTextUnlessFull) {
  ztx_test::TempDir dir;
  T_MemoryFile f;
  f.createChunk(0x10005, 2);
  writeObject(f, "Big");
  f.createChunk(0x10006, 1);
  std::vector<Point> points(100, Point{0, 0, 1});
  writeRawBlock(f, points);
  f.write(points.data(), static_cast<int>(points.size() * 12));
  f << 1u << 100u;
  f.closeChunk();
  f.closeChunk();
  const std::string path = save(dir, f, "big.zt2");
  const auto shortened = ztx_test::runDump({path});
  ASSERT_EQ(shortened.exitCode, 0) << shortened.err;
  EXPECT_NE(shortened.out.find("positions: 100 entries\n"), std::string::npos);
  EXPECT_NE(shortened.out.find("      [7] 0, 0, 1\n      ... (92 more)\n"), std::string::npos) << shortened.out;
  EXPECT_EQ(shortened.out.find("[8] "), std::string::npos);
  const auto full = ztx_test::runDump({path, "--full"});
  EXPECT_NE(full.out.find("      [99] 0, 0, 1\n"), std::string::npos);
  EXPECT_EQ(full.out.find("more)"), std::string::npos);
  // JSON always carries arrays in full.
  EXPECT_EQ(dumpJson(path)["chunks"][0]["children"][1]["fields"]["normals"].size(), 100u);
}

TEST(DumpFloats, JsonFloatsReadBackToTheSameFloat) {
  ztx_test::TempDir dir;
  const std::vector<float> values = {0.1f, 1.0f / 3.0f, 1e-30f};
  T_MemoryFile f;
  f.createChunk(0x10001, 0);
  writeObject(f, "Cam");
  f << values[0] << values[1] << values[2];
  f.closeChunk();
  const json doc = dumpJson(save(dir, f, "floats.zt2"));
  const json& c = doc["chunks"][0]["fields"];
  EXPECT_EQ(c["fov"].get<float>(), values[0]);
  EXPECT_EQ(c["nearPlane"].get<float>(), values[1]);
  EXPECT_EQ(c["farPlane"].get<float>(), values[2]);
}

}  // namespace
