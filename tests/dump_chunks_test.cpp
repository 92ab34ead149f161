// zt2dump decodes every chunk kind under its field names. One scene file holds
// each kind, built value by value with T_MemoryFile in the exact chunk layouts.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

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

void writeTexture(T_MemoryFile& f, const std::vector<std::string>& files) {
  writeChunk(f, 0x10011, 1, [&] {
    f << std::string("wood") << 3 << 4 << static_cast<int>(files.size());
    for (const auto& name : files) f << name;
    if (files.size() > 1) f << true << false << 7 << 8 << 2;
  });
}

void writeLight(T_MemoryFile& f, unsigned id, const std::string& name) {
  writeChunk(f, id, 0, [&] {
    writeObject(f, name);
    f << 255.0f << 128.0f << -255.0f << 255.0f << 0.5f;
    if (id != 0x10003) f << 1.0f << 5.0f;
    if (id == 0x10004) f << 0.75f << 0.875f;
  });
}

void writeAnimationHeader(T_MemoryFile& f, const std::string& name) {
  writeChunk(f, 0x10013, 0, [&] { f << name << 30 << true; });
}

void writeLightAnimation(T_MemoryFile& f, unsigned id, const std::string& name) {
  writeChunk(f, id, 2, [&] {
    writeAnimationHeader(f, name);
    f << 10 << false << 1 << 0u << 255.0f << 255.0f << 255.0f << 255.0f << 2 << 0u << 1.0f << 5u << 0.5f;
    if (id != 0x10018)
      for (int track = 0; track < (id == 0x10019 ? 4 : 2); ++track) f << 1 << 0u << static_cast<float>(track + 1);
    f << 8u;
  });
}

// Environment, materials, a mesh with every sub-chunk, camera, lights, helper
// and animations: one chunk of each kind a scene file can hold.
T_MemoryFile everyKind() {
  T_MemoryFile f;
  writeChunk(f, 0x10015, 0, [&] {
    for (unsigned char c : {25, 25, 25, 255, 0, 0, 0, 255}) f << c;
  });
  writeChunk(f, 0x1000f, 0, [&] {
    f << std::string("textures/") << 1;
    writeChunk(f, 0x10010, 2, [&] {
      f << std::string("Crate") << true << false << false << true << false << 1 << 5 << 6;
      for (float v : {10.0f, 20.0f, 30.0f, 255.0f, 40.0f, 50.0f, 60.0f, 255.0f, 70.0f, 80.0f, 90.0f, 255.0f}) f << v;
      f << 0.25f << 0.5f << 11 << 12 << 0.0f << false << true;
      writeTexture(f, {"crate.png"});
      f << false << false << true;
      writeTexture(f, {"a1.png", "a2.png"});
      f << 13 << true << false << true << 240;
    });
  });
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
  writeLight(f, 0x10002, "Omni01");
  writeLight(f, 0x10003, "Sun01");
  writeLight(f, 0x10004, "Spot01");
  writeChunk(f, 0x10016, 0, [&] {
    writeObject(f, "Dummy01");
    f << std::string("Dummy");
  });
  writeChunk(f, 0x10012, 5, [&] {
    writeAnimationHeader(f, "Box01");
    M_Matrix4x3Template<float> m;
    f << std::string("Root") << true << 10u << 2u << 0u << m;
    m[3] = {4.0f, 5.0f, 6.0f};
    f << 7u << m << 1u << 0u << 1.0f << 9u << 2 << true;
  });
  writeLightAnimation(f, 0x10017, "Omni01");
  writeLightAnimation(f, 0x10018, "Sun01");
  writeLightAnimation(f, 0x10019, "Spot01");
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
  ASSERT_EQ(c.size(), 12u);
  EXPECT_EQ(c[1]["offset"], 8 + 13 + c[0]["length"].get<int>());
  EXPECT_EQ(c[3]["idHex"], "0x10001");
  EXPECT_EQ(c[3]["name"], "CameraChunk");
  EXPECT_EQ(c[3]["decoded"], true);
  EXPECT_EQ(c[3]["fields"]["fov"].get<float>(), 0.1f);
  EXPECT_EQ(c[3]["fields"]["nearPlane"].get<float>(), 1.0f / 3.0f);
  EXPECT_EQ(c[3]["fields"]["farPlane"].get<float>(), 1e-30f);
  const json& mesh = c[2]["children"];
  ASSERT_EQ(mesh.size(), 8u);
  const json& material = c[1]["children"][0];

  // Every other chunk: its name, and every field by name and value.
  const std::vector<std::tuple<json, const char*, const char*>> expected = {
      {c[0], "EnvironmentChunk", R"({"ambientColour":[25,25,25,255],"backgroundColour":[0,0,0,255]})"},
      {c[1], "MaterialListChunk", R"({"texturePath":"textures/","materialCount":1})"},
      {material, "MaterialChunk", R"({"name":"Crate","switch1":true,"switch2":false,"switch3":false,"switch4":true,
        "switch5":false,"plainLayerMode":1,"option1":5,"layer2Mode":6,"ambient":[10,20,30,255],
        "diffuse":[40,50,60,255],"specular":[70,80,90,255],"value1":0.25,"value2":0.5,"diffuseMode":11,"mode2":12,
        "reserved":0,"layer1Present":false,"layer2Present":true,"layer3Present":false,"layer4Present":false,
        "layer5Present":true,"maskMode":13,"switch6":true,"switch7":false,"switch8":true,"intValue":240})"},
      {material["children"][0], "TextureChunk",
       R"({"name":"wood","textureValue":3,"textureMode":4,"fileNameCount":1,"fileNames":["crate.png"]})"},
      {material["children"][1], "TextureChunk", R"({"name":"wood","textureValue":3,"textureMode":4,
        "fileNameCount":2,"fileNames":["a1.png","a2.png"],"sequenceSwitch1":true,"sequenceSwitch2":false,
        "sequenceValue1":7,"sequenceValue2":8,"sequenceMode":2})"},
      {c[2], "MeshChunk", "{}"},
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
      {c[4], "OmniLightChunk",
       R"({"colour":[255,128,-255,255],"intensity":0.5,"attenuationStart":1,"attenuationEnd":5})"},
      {c[5], "DirectionalLightChunk", R"({"colour":[255,128,-255,255],"intensity":0.5})"},
      {c[6], "SpotLightChunk", R"({"colour":[255,128,-255,255],"intensity":0.5,"attenuationStart":1,
        "attenuationEnd":5,"hotspot":0.75,"falloff":0.875})"},
      {c[7], "HelperChunk", R"({"className":"Dummy"})"},
      {c[8]["children"][0], "AnimationHeaderChunk", R"({"name":"Box01","sampleRate":30,"loop":true})"},
      {c[8], "TransformAnimationChunk", R"({"parentName":"Root","loopInterpolation":true,"numSamples":10,
        "keyCount":2,"keys":[{"sample":0,"transform":[[1,0,0],[0,1,0],[0,0,1],[0,0,0]]},
                             {"sample":7,"transform":[[1,0,0],[0,1,0],[0,0,1],[4,5,6]]}],
        "visibilityKeyCount":1,"visibilityKeys":[{"sample":0,"value":1}],"loopToFrame":9,
        "frameToFrameInterpolation":2,"maintainMatrixScaling":true})"},
      {c[9], "OmniLightAnimationChunk", R"({"numSamples":10,"loopInterpolation":false,
        "colourKeyCount":1,"colourKeys":[{"sample":0,"colour":[255,255,255,255]}],
        "intensityKeyCount":2,"intensityKeys":[{"sample":0,"value":1},{"sample":5,"value":0.5}],
        "attenuationStartKeyCount":1,"attenuationStartKeys":[{"sample":0,"value":1}],
        "attenuationEndKeyCount":1,"attenuationEndKeys":[{"sample":0,"value":2}],"loopToFrame":8})"},
      {c[10], "DirectionalLightAnimationChunk", R"({"numSamples":10,"loopInterpolation":false,"colourKeyCount":1,
        "colourKeys":[{"sample":0,"colour":[255,255,255,255]}],"intensityKeyCount":2,
        "intensityKeys":[{"sample":0,"value":1},{"sample":5,"value":0.5}],"loopToFrame":8})"},
      {c[11], "SpotLightAnimationChunk", R"({"numSamples":10,"loopInterpolation":false,"colourKeyCount":1,
        "colourKeys":[{"sample":0,"colour":[255,255,255,255]}],"intensityKeyCount":2,
        "intensityKeys":[{"sample":0,"value":1},{"sample":5,"value":0.5}],
        "attenuationStartKeyCount":1,"attenuationStartKeys":[{"sample":0,"value":1}],
        "attenuationEndKeyCount":1,"attenuationEndKeys":[{"sample":0,"value":2}],
        "hotspotKeyCount":1,"hotspotKeys":[{"sample":0,"value":3}],
        "falloffKeyCount":1,"falloffKeys":[{"sample":0,"value":4}],"loopToFrame":8})"},
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

TEST(DumpChunks, VertexDataFieldsByName) {
  ztx_test::TempDir dir;
  T_MemoryFile f;
  f.createChunk(0x10014, 1);
  f << std::vector<std::string>{"Body"} << std::vector<std::string>{"Hip", "Knee"} << std::vector<int>{0, 1}
    << std::vector<int>{1, 2} << std::vector<int>{0, 0, 1} << std::vector<float>{1.0f, 0.25f, 0.75f}
    << std::vector<unsigned int>{2} << std::vector<unsigned int>{0};
  f.closeChunk();
  // Named .bin: the content, not the extension, makes it a per-vertex file.
  const std::string path = dir.file("body.bin");
  ASSERT_TRUE(f.save(path.c_str()).ok());
  const json doc = dumpJson(path);
  EXPECT_EQ(doc["kind"], "vertexData");
  EXPECT_EQ(doc["chunks"][0]["name"], "VertexDataChunk");
  EXPECT_EQ(doc["chunks"][0]["fields"], json::parse(R"({"nodeNames":["Body"],"boneNames":["Hip","Knee"],
    "influenceStart":[0,1],"influenceCount":[1,2],"influenceBone":[0,0,1],"influenceWeight":[1,0.25,0.75],
    "groupVertexCount":[2],"groupVertexStart":[0]})"));
}

}  // namespace
