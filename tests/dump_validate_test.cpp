// zt2dump --validate: a sound scene and its per-vertex file pass; each fault
// a reader would trip over is named with its place.
#include <gtest/gtest.h>

#include "format/memory_file.h"
#include "format/object_record.h"
#include "support/test_support.h"

namespace {

struct Point {
  float x, y, z;
};

// Everything the mesh chunk holds, written exactly as given so that a test
// can break one thing at a time.
struct MeshContent {
  std::string name = "Box01";
  std::vector<Point> positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {5, 5, 5}, {6, 5, 5}, {5, 6, 5}};
  std::vector<Point> normals = {{0, 0, 1}, {0, 0, 1}, {0, 0, 1}, {0, 0, 0}, {0.6f, 0.8f, 0}, {0, -1, 0}};
  std::vector<unsigned> groupVertexCounts = {3, 3};
  std::vector<std::uint16_t> indices = {0, 1, 2, 2, 1, 0};
  std::vector<unsigned> groupTriangleCounts = {1, 1};
  std::vector<std::string> materialNames = {"Wood", "Metal"};
  std::vector<Point> coordinates = std::vector<Point>(6, Point{0.5f, -0.5f, 0});
  std::vector<unsigned> groupCoordinateCounts = {3, 3};
  bool objectFirst = true;
  bool facesBeforeVertices = false;
};

struct SkinContent {
  std::vector<std::string> nodeNames = {"Box01"};
  std::vector<std::string> boneNames = {"Root", "Arm"};
  std::vector<int> influenceStart = {0, 1, 3, 4, 5, 6};
  std::vector<int> influenceCount = {1, 2, 1, 1, 1, 0};
  std::vector<int> influenceBone = {0, 0, 1, 1, 0, 1};
  std::vector<float> influenceWeight = {1, 0.5f, 0.5f, 1, 1, 1};
  std::vector<unsigned> groupVertexCount = {3, 3};
  std::vector<unsigned> groupVertexStart = {0, 3};
};

struct AnimationContent {
  std::string node = "Box01";
  unsigned numSamples = 10;
  std::vector<unsigned> keySamples = {0, 4, 9};
  std::vector<unsigned> visibilitySamples = {0};
  bool loop = true;
  bool loopInterpolation = true;
  int frameToFrameInterpolation = 1;
  bool maintainMatrixScaling = true;
};

void writeObject(T_MemoryFile& f, const std::string& name) {
  ObjectRecord r;
  r.name() = name;
  f << r;
}

void writeVertices(T_MemoryFile& f, const MeshContent& m) {
  f.createChunk(0x10006, 1);
  writeRawBlock(f, m.positions);
  f.write(m.normals.data(), static_cast<int>(m.normals.size() * 12));
  f << static_cast<unsigned>(m.groupVertexCounts.size());
  for (unsigned c : m.groupVertexCounts) f << c;
  f.closeChunk();
}

void writeFaces(T_MemoryFile& f, const MeshContent& m) {
  f.createChunk(0x10007, 1);
  writeRawBlock(f, m.indices);
  f << static_cast<unsigned>(m.groupTriangleCounts.size());
  for (unsigned c : m.groupTriangleCounts) f << c;
  f.closeChunk();
}

void writeMesh(T_MemoryFile& f, const MeshContent& m) {
  f.createChunk(0x10005, 2);
  if (m.objectFirst) writeObject(f, m.name);
  if (m.facesBeforeVertices) writeFaces(f, m);
  writeVertices(f, m);
  if (!m.facesBeforeVertices) writeFaces(f, m);
  f.createChunk(0x1000c, 1);
  f << static_cast<int>(m.materialNames.size());
  for (const auto& n : m.materialNames) f << n;
  f.closeChunk();
  f.createChunk(0x1000e, 1);
  f << 0u;
  writeRawBlock(f, m.coordinates);
  f << static_cast<unsigned>(m.groupCoordinateCounts.size());
  for (unsigned c : m.groupCoordinateCounts) f << c;
  f.closeChunk();
  f.closeChunk();
}

void writeCamera(T_MemoryFile& f, bool withObject = true) {
  f.createChunk(0x10001, 0);
  if (withObject) writeObject(f, "Camera01");
  f << 0.8f << 0.1f << 500.0f;
  f.closeChunk();
}

void writeOmni(T_MemoryFile& f) {
  f.createChunk(0x10002, 0);
  writeObject(f, "Omni01");
  f << 255.0f << 255.0f << 255.0f << 255.0f << 1.0f << 10.0f << 50.0f;
  f.closeChunk();
}

void writeEnvironment(T_MemoryFile& f) {
  f.createChunk(0x10015, 0);
  for (int i = 0; i < 8; ++i) f << static_cast<unsigned char>(255);
  f.closeChunk();
}

void writeHeader(T_MemoryFile& f, const std::string& node, bool loop) {
  f.createChunk(0x10013, 0);
  f << node << 30 << loop;
  f.closeChunk();
}

void writeTransformAnimation(T_MemoryFile& f, const AnimationContent& a) {
  f.createChunk(0x10012, 5);
  writeHeader(f, a.node, a.loop);
  f << std::string() << a.loopInterpolation << a.numSamples;
  f << static_cast<unsigned>(a.keySamples.size());
  for (unsigned s : a.keySamples) f << s << M_Matrix4x3Template<float>();
  f << static_cast<unsigned>(a.visibilitySamples.size());
  for (unsigned s : a.visibilitySamples) f << s << 1.0f;
  f << 0u << a.frameToFrameInterpolation << a.maintainMatrixScaling;
  f.closeChunk();
}

void writeOmniAnimation(T_MemoryFile& f, const std::string& node, std::vector<unsigned> intensitySamples = {0, 3}) {
  f.createChunk(0x10017, 2);
  writeHeader(f, node, true);
  f << 10 << true;
  f << 1 << 0u << 255.0f << 255.0f << 255.0f << 255.0f;
  f << static_cast<int>(intensitySamples.size());
  for (unsigned s : intensitySamples) f << s << 1.0f;
  f << 1 << 0u << 10.0f << 1 << 0u << 50.0f;
  f << 0u;
  f.closeChunk();
}

void writeSkin(T_MemoryFile& f, const SkinContent& s) {
  f.createChunk(0x10014, 1);
  f << s.nodeNames << s.boneNames << s.influenceStart << s.influenceCount << s.influenceBone << s.influenceWeight
    << s.groupVertexCount << s.groupVertexStart;
  f.closeChunk();
}

struct SceneContent {
  MeshContent mesh;
  AnimationContent animation;
  bool environmentLast = false;
};

T_MemoryFile sceneFile(const SceneContent& s) {
  T_MemoryFile f;
  if (!s.environmentLast) writeEnvironment(f);
  writeMesh(f, s.mesh);
  writeCamera(f);
  writeOmni(f);
  if (s.environmentLast) writeEnvironment(f);
  writeTransformAnimation(f, s.animation);
  AnimationContent omni;
  omni.node = "Omni01";
  writeTransformAnimation(f, omni);
  writeOmniAnimation(f, "Omni01");
  return f;
}

class Validate : public ::testing::Test {
 protected:
  std::string save(const T_MemoryFile& f, const std::string& name) {
    const std::string path = dir.file(name);
    EXPECT_NE(f.save(path.c_str()), 0);
    return path;
  }

  // Exit 1, nothing on stdout, and the one line on stderr holds `fault`.
  void expectFault(const std::string& path, const std::string& fault) {
    const auto r = ztx_test::runDump({path, "--validate"});
    EXPECT_EQ(r.exitCode, 1) << fault << "\n" << r.out;
    EXPECT_EQ(r.out, "");
    EXPECT_NE(r.err.find(fault), std::string::npos) << "expected: " << fault << "\ngot: " << r.err;
    EXPECT_EQ(r.err.rfind("zt2dump: ", 0), 0u) << r.err;
  }

  void expectSceneFault(const SceneContent& s, const std::string& fault) {
    expectFault(save(sceneFile(s), "scene.zt2"), fault);
  }

  void expectSkinFault(const SkinContent& s, const std::string& fault) {
    T_MemoryFile f;
    writeSkin(f, s);
    expectFault(save(f, "alone.skd"), fault);
  }

  ztx_test::TempDir dir;
};

TEST_F(Validate, SoundSceneAndSkinPass) {
  const std::string scene = save(sceneFile({}), "scene.zt2");
  auto r = ztx_test::runDump({scene, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_EQ(r.out.substr(0, 3), "OK\n");
  EXPECT_NE(r.out.find(": scene file, "), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("7 top-level chunks (1 EnvironmentChunk, 1 MeshChunk, 1 CameraChunk, 1 OmniLightChunk, "
                       "2 TransformAnimationChunk, 1 OmniLightAnimationChunk)"),
            std::string::npos)
      << r.out;

  T_MemoryFile skin;
  writeSkin(skin, {});
  const std::string skinPath = save(skin, "scene.skd");
  r = ztx_test::runDump({scene, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("; " + skinPath + " matches its mesh"), std::string::npos) << r.out;
  r = ztx_test::runDump({skinPath, "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
  EXPECT_NE(r.out.find("vertexData file"), std::string::npos) << r.out;
  EXPECT_NE(r.out.find("matches its mesh in " + scene), std::string::npos) << r.out;
}

TEST_F(Validate, GroupVertexCountsMustAddUpToTheVertexCount) {
  SceneContent s;
  s.mesh.groupVertexCounts = {3, 2};
  s.mesh.groupCoordinateCounts = {3, 2};
  expectSceneFault(s, "MeshVertexChunk at offset");
  expectSceneFault(s, "(mesh \"Box01\"): the group vertex counts add up to 5 but vertexCount is 6");
}

TEST_F(Validate, FaceIndexMustLieInsideItsGroup) {
  SceneContent s;
  s.mesh.indices = {0, 1, 2, 2, 3, 0};
  expectSceneFault(s, "MeshFaceChunk at offset");
  expectSceneFault(s, "group 1, triangle 0, corner 1 (index 4): vertex 3 is not below the group's 3 vertices");
}

TEST_F(Validate, TriangleCountsMustAddUpToTheIndexCount) {
  SceneContent s;
  s.mesh.groupTriangleCounts = {1, 2};
  expectSceneFault(s, "the group triangle counts add up to 3 triangles (9 indices) but indexCount is 6");
  s = {};
  s.mesh.indices = {0, 1, 2, 0};
  expectSceneFault(s, "indexCount 4 is not a multiple of 3");
  s = {};
  s.mesh.groupTriangleCounts = {2};
  expectSceneFault(s, "groupCount is 1 but the MeshVertexChunk has 2 groups");
}

TEST_F(Validate, NormalsMustBeUnitOrZero) {
  SceneContent s;
  s.mesh.normals[4] = {0, 0.5f, 0};
  expectSceneFault(s, "normal 4 (group 1, entry 1) has length 0.5, neither 1 nor 0");
  s.mesh.normals[4] = {0, 1.0005f, 0};  // within the tolerance
  const auto r = ztx_test::runDump({save(sceneFile(s), "ok.zt2"), "--validate"});
  EXPECT_EQ(r.exitCode, 0) << r.err;
}

TEST_F(Validate, MappingChannelNeedsOneCoordinatePerVertex) {
  SceneContent s;
  s.mesh.coordinates.pop_back();
  s.mesh.groupCoordinateCounts = {3, 2};
  expectSceneFault(s, "MeshMapChannelChunk at offset");
  expectSceneFault(s, "channel 0 has 5 coordinates for 6 vertices");
  s = {};
  s.mesh.groupCoordinateCounts = {4, 3};
  expectSceneFault(s, "the group coordinate counts add up to 7 but coordinateCount is 6");
  s.mesh.groupCoordinateCounts = {2, 4};
  expectSceneFault(s, "group 0 has 2 coordinates but 3 vertices");
}

TEST_F(Validate, OneMaterialNamePerGroup) {
  SceneContent s;
  s.mesh.materialNames = {"Wood"};
  expectSceneFault(s, "MeshMaterialNamesChunk at offset");
  expectSceneFault(s, "1 material names for 2 groups");
}

TEST_F(Validate, StructureOfNestedChunks) {
  SceneContent s;
  s.mesh.objectFirst = false;
  expectSceneFault(s, "MeshChunk at offset 37: does not begin with its ObjectChunk");
  s = {};
  s.mesh.facesBeforeVertices = true;
  expectSceneFault(s, "MeshVertexChunk at offset");
  expectSceneFault(s, "is out of order (vertices, faces, material names, mapping channels, reference)");

  // The layout needs a chunk there: without one the file does not decode.
  T_MemoryFile f;
  writeCamera(f, false);
  expectFault(save(f, "camera.zt2"),
              "expected a chunk value, found a float value at byte offset 21 (reading a nested chunk inside "
              "CameraChunk at offset 8)");
  // With a chunk of another kind it decodes, but does not validate.
  T_MemoryFile g;
  g.createChunk(0x10001, 0);
  writeHeader(g, "Camera01", true);
  g << 0.8f << 0.1f << 500.0f;
  g.closeChunk();
  expectFault(save(g, "camera.zt2"), "CameraChunk at offset 8: does not begin with its ObjectChunk");
}

TEST_F(Validate, TopLevelOrderAndPlacement) {
  SceneContent s;
  s.environmentLast = true;
  expectSceneFault(s, "EnvironmentChunk at offset");
  expectSceneFault(s, "comes after OmniLightChunk at offset");

  T_MemoryFile f;
  writeObject(f, "Stray");
  expectFault(save(f, "stray.zt2"), "ObjectChunk at offset 8 cannot stand at the top level of a scene file");

  T_MemoryFile g;
  writeOmni(g);
  writeOmniAnimation(g, "Omni01");
  expectFault(save(g, "light.zt2"), "does not follow the TransformAnimationChunk of the same node");
}

TEST_F(Validate, TransformKeysInIncreasingSampleOrder) {
  SceneContent s;
  s.animation.keySamples = {0, 4, 4};
  expectSceneFault(s, "(node \"Box01\"): keys[2] is at sample 4, not after the previous key's 4");
  s.animation.keySamples = {1, 4};
  expectSceneFault(s, "keys[0] is at sample 1, not 0");
  s.animation.keySamples = {0, 10};
  expectSceneFault(s, "keys[1] is at sample 10, outside the 10 samples");
  s.animation.keySamples = {};
  expectSceneFault(s, "TransformAnimationChunk at offset");
  expectSceneFault(s, "keys has no key");
  s = {};
  s.animation.frameToFrameInterpolation = 0;
  expectSceneFault(s, "maintainMatrixScaling is set while frameToFrameInterpolation is 0");
  s.animation.frameToFrameInterpolation = 3;
  expectSceneFault(s, "frameToFrameInterpolation 3 is not 0, 1 or 2");
  s = {};
  s.animation.loop = false;
  expectSceneFault(s, "loopInterpolation is set while loop is not");
}

TEST_F(Validate, LightAnimationTracks) {
  T_MemoryFile f;
  writeOmni(f);
  AnimationContent a;
  a.node = "Omni01";
  writeTransformAnimation(f, a);
  writeOmniAnimation(f, "Omni01", {0, 7, 3});
  expectFault(save(f, "light.zt2"), "OmniLightAnimationChunk at offset");
  expectFault(save(f, "light.zt2"), "intensityKeys[2] is at sample 3, not after the previous key's 7");
}

TEST_F(Validate, SkinInfluenceRunsFollowEachOther) {
  SkinContent s;
  s.influenceStart[2] = 2;
  expectSkinFault(s, "VertexDataChunk at offset 8: vertex 2 has influenceStart 2 but the counts before it add up to 3");
  s = {};
  s.influenceCount.pop_back();
  expectSkinFault(s, "influenceStart has 6 entries but influenceCount has 5");
  s = {};
  s.influenceCount[5] = 1;
  expectSkinFault(s, "the influence counts add up to 7 but influenceBone has 6 entries");
  s = {};
  s.influenceWeight.pop_back();
  expectSkinFault(s, "influenceBone has 6 entries but influenceWeight has 5");
}

TEST_F(Validate, SkinBonesAndGroups) {
  SkinContent s;
  s.influenceBone[3] = 2;
  expectSkinFault(s, "influence 3 names bone 2 of 2 bone names");
  s = {};
  s.groupVertexStart = {0, 2};
  expectSkinFault(s, "group 1 has groupVertexStart 2 but the counts before it add up to 3");
  s = {};
  s.groupVertexCount = {3, 4};
  expectSkinFault(s, "the group vertex counts add up to 7 but there are 6 per-vertex entries");
  s = {};
  s.nodeNames = {"A", "B"};
  expectSkinFault(s, "nodeNames has 2 entries, not 1");
}

TEST_F(Validate, SkinBesideTheSceneMustMatchItsMesh) {
  const std::string scene = save(sceneFile({}), "scene.zt2");
  SkinContent s;
  s.influenceStart.push_back(6);
  s.influenceCount.push_back(0);
  s.groupVertexCount = {3, 4};
  T_MemoryFile f;
  writeSkin(f, s);
  const std::string skin = save(f, "scene.skd");
  expectFault(scene, "the per-vertex lists have 7 entries but mesh \"Box01\" has 6 vertices");
  expectFault(skin, "the per-vertex lists have 7 entries but mesh \"Box01\" has 6 vertices");

  s = {};
  s.nodeNames = {"Elsewhere"};
  T_MemoryFile g;
  writeSkin(g, s);
  save(g, "scene.skd");
  expectFault(scene, "scene.skd against " + scene + ": no mesh named \"Elsewhere\" with vertices in the scene file");
}

}  // namespace
