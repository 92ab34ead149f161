// The host model: loading scenes (the documented small scene, transforms and
// keyed values, the frame rate, the messages for bad input), meshes (binary
// arrays, and the host's mesh clean-up keeping per-face and per-vertex channels
// in step), and the skinning modifier's export interface (rigid, blended,
// other and missing vertices, contexts per node). Cancelling is checked by the
// export tests, which cancel midway.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>

#include "host/inode.h"
#include "host/memory/memory_bitmaps.h"
#include "host/memory/memory_host.h"
#include "host/memory/memory_node.h"
#include "host/mesh.h"
#include "host/objects.h"
#include "host/physique.h"
#include "support/physique_view.h"
#include "support/test_support.h"

namespace {

using hostmodel::loadSceneFromString;
using ztx_test::physiqueOf;

std::unique_ptr<hostmodel::MemoryHost> load(const std::string& json) {
  return loadSceneFromString(json, "", "scene.json");
}

void expectPoint(const Point3& actual, const Point3& expected) {
  EXPECT_NEAR(actual.x, expected.x, 1e-5f);
  EXPECT_NEAR(actual.y, expected.y, 1e-5f);
  EXPECT_NEAR(actual.z, expected.z, 1e-5f);
}

TEST(HostModelScene, TheDocumentedSmallSceneLoads) {
  const std::string doc = ztx_test::readText(ztx_test::sourcePath("docs/scene-format.md"));
  const std::size_t begin = doc.find("```json\n", doc.find("## A complete small scene"));
  const std::size_t end = doc.find("```", begin + 8);
  ASSERT_TRUE(begin != std::string::npos && end != std::string::npos);
  auto host = loadSceneFromString(doc.substr(begin + 8, end - begin - 8), "", "scene-format.md");
  INode* triangle = host->findNode("Triangle");
  ASSERT_NE(triangle, nullptr);
  EXPECT_EQ(triangle->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
  EXPECT_NEAR(triangle->GetNodeTM(2400).GetTrans().z, 2.5f, 1e-6f);
}

TEST(HostModelScene, ChildUnderScaledRotatedParent) {
  // Parent scaled (2, 3, 4), turned 90 degrees about Z, moved to (10, 0, 0): the child's local
  // (1, 2, 3) is scaled to (2, 6, 12), turned to (-6, 2, 12) and moved to (4, 2, 12).
  // (A rotation written as a quaternion: the keyed values below.)
  auto host = load(R"({"nodes": [{"name": "P", "transform": {"position": [10, 0, 0], "scale": [2, 3, 4],
      "rotation": {"eulerDegrees": [0, 0, 90]}}, "children": [{"name": "C", "transform": {"position": [1, 2, 3]}}]}]})");
  const Matrix3 tm = host->findNode("C")->GetNodeTM(0);
  expectPoint(tm.GetTrans(), {4, 2, 12});
  expectPoint(tm.GetRow(0), {0, 2, 0});  // the child's X axis, scaled and turned onto world Y
  expectPoint(tm.GetRow(1), {-3, 0, 0});
}

TEST(HostModelScene, ARememberedTransformIsForgottenWhenAnAncestorMoves) {
  // C keeps its evaluated transform for G; moving P must reach G all the same.
  auto host = load(R"({"nodes": [{"name": "P", "transform": {"position": [10, 0, 0]}, "children": [{"name": "C",
      "transform": {"position": [1, 0, 0]}, "children": [{"name": "G", "transform": {"position": [1, 0, 0]}}]}]}]})");
  INode* g = host->findNode("G");
  expectPoint(g->GetNodeTM(0).GetTrans(), {12, 0, 0});
  hostmodel::NodeTransform moved;
  moved.position.setConstant(Point3{20, 0, 0});
  dynamic_cast<hostmodel::MemoryNode*>(host->findNode("P"))->setTransform(moved);
  expectPoint(g->GetNodeTM(0).GetTrans(), {22, 0, 0});
}

TEST(HostModelScene, ObjectTransformAddsTheOffsetToTheNodeTransform) {
  auto host = load(R"({"nodes": [{"name": "N",
      "transform": {"position": [5, 0, 0], "rotation": {"eulerDegrees": [0, 0, 90]}},
      "objectOffset": {"position": [1, 0, 0], "rotation": {"eulerDegrees": [90, 0, 0]}, "scale": [2, 2, 2]}}]})");
  INode* node = host->findNode("N");
  const Matrix3 objectTM = node->GetObjectTM(0);
  expectPoint(node->GetNodeTM(0).GetTrans(), {5, 0, 0});
  expectPoint(objectTM.GetTrans(), {5, 1, 0});  // the offset (1, 0, 0) in the node's turned frame
  // Object X: scaled by 2, turned about X (stays), then by the node onto Y. Object Y: onto Z.
  expectPoint(objectTM.GetRow(0), {0, 2, 0});
  expectPoint(objectTM.GetRow(1), {0, 0, 2});
  expectPoint(objectTM.GetRow(2), {2, 0, 0});
}

TEST(HostModelScene, KeyedValuesInterpolateAndHoldOutsideTheKeys) {
  // 30 frames a second: frame 10 is tick 1600. The second rotation key is +90 degrees about Z
  // written as the negated quaternion; interpolation must still take the short way.
  auto host = load(R"({"nodes": [{"name": "N", "transform": {
      "position": {"keys": [{"frame": 10, "value": [0, 0, 0]}, {"frame": 20, "value": [10, 0, 0]},
                            {"tick": 4800, "value": [10, 20, 0]}]},
      "rotation": {"keys": [{"tick": 0, "value": [0, 0, 0, 1]}, {"tick": 800, "value": [0, 0, -0.70710678, -0.70710678]}]}},
      "visibility": {"keys": [{"frame": 0, "value": 0}, {"frame": 10, "value": 1}]}}]})");
  INode* node = host->findNode("N");
  expectPoint(node->GetNodeTM(0).GetTrans(), {0, 0, 0});
  expectPoint(node->GetNodeTM(2400).GetTrans(), {5, 0, 0});
  expectPoint(node->GetNodeTM(4000).GetTrans(), {10, 10, 0});
  expectPoint(node->GetNodeTM(100000).GetTrans(), {10, 20, 0});
  const float h = 0.70710678f;
  expectPoint(node->GetNodeTM(400).GetRow(0), {h, h, 0});
  expectPoint(node->GetNodeTM(100000).GetRow(0), {0, 1, 0});
  EXPECT_FLOAT_EQ(node->GetLocalVisibility(800), 0.5f);
  EXPECT_FLOAT_EQ(node->GetLocalVisibility(-100), 0.0f);
  EXPECT_EQ(node->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
}

TEST(HostModelScene, TicksPerFrameFollowSetFrameRateButKeysStay) {
  auto host = load(R"({"frameRate": 24, "animationRange": [10, 40], "nodes": [{"name": "N", "transform": {
      "position": {"keys": [{"frame": 0, "value": [0, 0, 0]}, {"frame": 24, "value": [1, 0, 0]}]}}}]})");
  EXPECT_EQ(host->GetTicksPerFrame(), 200);
  EXPECT_EQ(host->GetAnimRange(), Interval(2000, 8000));
  for (const auto& [rate, ticks] : {std::pair{25, 192}, {7, 685}, {0, 4800}}) {  // integer division, as the host does
    host->SetFrameRate(rate);
    EXPECT_EQ(host->GetTicksPerFrame(), ticks) << rate;
  }
  EXPECT_EQ(host->GetAnimRange(), Interval(2000, 8000));
  EXPECT_EQ(host->findNode("N")->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
}

TEST(HostModelScene, BadInputNamesTheFileAndThePlace) {
  struct Row {
    const char* json;  // written to the file the message starts with; none: the file is missing
    const char* expected;
  };
  const Row rows[] = {
      {R"({"nodes": [{"name": "a", "transform": {"positon": [1, 2, 3]}}]})",
       "scene.json: nodes[0].transform: unknown member \"positon\" (expected one of: position, rotation, scale, matrix)"},
      {R"({"frameRate": 30, "frameRate": 25})", "scene.json: frameRate: member given twice"},
      {R"({"nodes": [{"name": "a"}, {"name": "b"}, {"name": "c", "children": [
           {"name": "d", "transform": {"position": [1, 2]}}]}]})",
       "scene.json: nodes[2].children[0].transform.position: expected an array of 3 numbers"},
      {R"({"frameRate": 0})", "scene.json: frameRate: expected an integer from 1 to 4800, found 0"},
      {R"({"nodes": [{"object": {"type": "helper"}}]})", "scene.json: nodes[0]: missing required member \"name\""},
      {R"({"materials": [{"id": "m", "type": "multi", "subMaterials": [null, "gone"]}]})",
       "scene.json: materials[0].subMaterials[1]: no material with id \"gone\""},
      {R"({"nodes": [{"name": "S", "modifiers": [{"type": "physique", "vertices": [{"bones": ["Nope"], "weights": [1]}]}]}]})",
       "scene.json: nodes[0].modifiers[0].vertices[0].bones[0]: no node with id \"Nope\""},
      {R"({"nodes": [{"name": "B"}, {"name": "B"}, {"name": "S", "modifiers": [{"type": "physique", "vertices": ["B"]}]}]})",
       "scene.json: nodes[2].modifiers[0].vertices[0]: several nodes go by \"B\"; give them distinct \"id\" members"},
      {R"({"objects": [{"id": "l", "type": "light", "lightType": "bulb"}]})",
       "scene.json: objects[0].lightType: unknown light type \"bulb\" (expected omni, spot, directional or ambient)"},
      {R"({"nodes": [{"name": "a", "visibility": {"keys": [{"frame": 10, "value": 1}, {"frame": 5, "value": 0}]}}]})",
       "scene.json: nodes[0].visibility.keys[1]: keys must be in increasing time order: tick 800 follows tick 1600"},
      {"{\n  \"nodes\": [\n    {\"name\": \"a\",}\n  ]\n}", "scene.json: malformed JSON at line 3, column 18: "},
      {nullptr, "absent.json: cannot read the scene file: No such file or directory"},
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": [], "faces": {"buffer": "gone.bin", "count": 0}}}]})",
       "scene.json: objects[0].mesh.faces.buffer: \"gone.bin\": cannot read the buffer file: No such file or directory"},
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
           "vertices": {"buffer": "mesh.bin", "byteOffset": 8, "count": 3}, "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices: buffer \"mesh.bin\" holds 40 bytes, too few for 3 elements of 12 bytes "
       "from byteOffset 8"},
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": [], "faces": [0, 1, 2], "smoothingGroups": [1, 2]}}]})",
       "scene.json: objects[0].mesh.smoothingGroups: expected 1 entries, one per face; found 2"},
      // Files that are not regular files are refused, never read or waited on.
      {nullptr, "fifo: cannot read the scene file: a FIFO, not a regular file"},
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": {"buffer": "dir", "count": 1}, "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices.buffer: \"dir\": cannot read the buffer file: a directory, not a regular file"},
      // A NUL would end a name or a path where the system reads it: another file than the one named. Every
      // string of the scene is read through one check.
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": {"buffer": "mesh.bin\u0000.txt", "count": 1}, "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices.buffer: a name or a path cannot hold a NUL character"},
      {R"({"nodes": [{"name": "a\u0000b"}]})", "scene.json: nodes[0].name: a name or a path cannot hold a NUL character"},
      // Numbers a float cannot hold never reach a file.
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": [0, 1e39, 0], "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices[1]: expected a number that a 32-bit float holds (magnitude at most 3.4e38)"},
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": {"buffer": "nan.bin", "count": 2}, "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices: point 1 of the buffer is not finite"},
      // An array large enough to stay in its file is checked where it lies, block by block.
      {R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": {"buffer": "bignan.bin", "count": 6000}, "faces": []}}]})",
       "scene.json: objects[0].mesh.vertices: point 5999 of the buffer is not finite"},
      {R"({"nodes": [{"name": "a", "transform": {"position": [0, 0, -1e39]}}]})",
       "scene.json: nodes[0].transform.position[2]: expected a number that a 32-bit float holds"},
  };
  for (const Row& row : rows) {
    ztx_test::TempDir dir;
    ztx_test::writeBytes(dir.file("mesh.bin"), std::vector<unsigned char>(40));
    std::vector<float> nan = {0, 0, 0, 1, std::numeric_limits<float>::quiet_NaN(), 1};
    ztx_test::writeBytes(dir.file("nan.bin"), std::vector<unsigned char>(reinterpret_cast<unsigned char*>(nan.data()),
                                                                         reinterpret_cast<unsigned char*>(nan.data() + 6)));
    std::vector<float> bigNan(3 * 6000, 1.0f);
    bigNan.back() = std::numeric_limits<float>::infinity();
    ztx_test::writeBytes(dir.file("bignan.bin"),
                         std::vector<unsigned char>(reinterpret_cast<unsigned char*>(bigNan.data()),
                                                    reinterpret_cast<unsigned char*>(bigNan.data() + bigNan.size())));
    std::filesystem::create_directory(dir.file("dir"));
    ::mkfifo(dir.file("fifo").c_str(), 0644);
    const std::string expected = row.expected;
    const std::string path = dir.file(expected.substr(0, expected.find(':')));
    if (row.json) ztx_test::writeText(path, row.json);
    std::string message = "(no error)";
    try {
      hostmodel::loadScene(path);
    } catch (const hostmodel::SceneLoadError& e) {
      message = e.what();
    }
    EXPECT_TRUE(message.starts_with(dir.file(expected))) << "expected: " << expected << "\nfound: " << message;
  }
}

// An image list names one image per line; a line with a NUL in it would name
// another file to the system than to the reader. (A sound list, its comments,
// blank lines and spaces: the materials tests' wave.ifl.)
TEST(HostModelScene, AnImageListLineWithANulIsRefused) {
  ztx_test::TempDir dir;
  const std::string list = dir.file("wave.ifl");
  ztx_test::writeText(list, std::string("; frames\nwave1.png\nwave2.png\0.txt\nwave3.png\n", 44));
  std::vector<std::string> entries;
  std::string reason;
  EXPECT_FALSE(hostmodel::readImageList(list, entries, &reason));
  EXPECT_EQ(reason, "line 3: a name or a path cannot hold a NUL character");
}

// Nesting is bounded, and a document at the bound loads in memory and time
// in proportion to its size (the place of each value is spelled out only for
// an error).
TEST(HostModelScene, NestingIsBoundedAndNamed) {
  auto chain = [](int depth) {
    std::string json = R"({"nodes": [)";
    for (int i = 0; i < depth; ++i) json += R"({"name": "n)" + std::to_string(i) + R"(", "children": [)";
    for (int i = 0; i < depth; ++i) json += "]}";
    return json + "]}";
  };
  auto host = hostmodel::loadSceneFromString(chain(1000), "", "deep.json");
  INode* node = host->GetRootNode();
  int depth = 0;
  while (node->NumberOfChildren() > 0) node = node->GetChildNode(0), ++depth;
  EXPECT_EQ(depth, 1000);

  const std::pair<std::string, std::string> rows[] = {
      {chain(1001), "nodes nest deeper than 1000 levels"},
      {std::string(100000, '[') + std::string(100000, ']'), "nested deeper than 2100 levels"},
  };
  for (const auto& [json, expected] : rows) {
    std::string message = "(no error)";
    try {
      hostmodel::loadSceneFromString(json, "", "deep.json");
    } catch (const hostmodel::SceneLoadError& e) {
      message = e.what();
    }
    EXPECT_TRUE(message.starts_with("deep.json: ")) << message.substr(0, 200);
    EXPECT_NE(message.find(expected), std::string::npos) << message.substr(0, 200);
    // The place is told by its ends, not by thousands of steps.
    EXPECT_LT(message.size(), 600u) << message.substr(0, 200);
  }
}

Mesh& meshOf(hostmodel::MemoryHost& host, const std::string& objectId) {
  Object* obj = host.findObject(objectId);
  EXPECT_NE(obj, nullptr);
  return static_cast<TriObject*>(obj->ConvertToType(0, TRIOBJ_CLASS_ID).get())->GetMesh();
}

// Appends values as little-endian bytes, the layout of buffer files.
template <typename T>
std::size_t put(std::vector<unsigned char>& bytes, std::initializer_list<T> values) {
  const std::size_t offset = bytes.size();
  for (T v : values) {
    unsigned char raw[sizeof(T)];
    std::memcpy(raw, &v, sizeof(T));
    bytes.insert(bytes.end(), raw, raw + sizeof(T));
  }
  return offset;
}

TEST(HostModelMesh, BinaryBuffersAreReadAtUnalignedOffsets) {
  ztx_test::TempDir dir;
  std::vector<unsigned char> b;
  put<std::uint8_t>(b, {0xEE, 0xEE, 0xEE});  // no offset below is a multiple of 4
  const std::size_t verts = put<float>(b, {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0.5f});
  const std::size_t faces = put<std::uint32_t>(b, {0, 1, 2, 2, 1, 3});
  const std::size_t groups = put<std::uint32_t>(b, {1, 0x80000000u});
  const std::size_t matIds = put<std::uint16_t>(b, {3, 7});
  const std::size_t uvs = put<float>(b, {0.25f, 0.75f, 0});
  const std::size_t uvFaces = put<std::uint32_t>(b, {0, 0, 0, 0, 0, 0});
  ztx_test::writeBytes(dir.file("mesh.bin"), b);
  auto ref = [](std::size_t offset, int count) {
    return R"({"buffer": "mesh.bin", "byteOffset": )" + std::to_string(offset) + R"(, "count": )" +
           std::to_string(count) + "}";
  };
  ztx_test::writeText(dir.file("scene.json"),
                      R"({"objects": [{"id": "m", "type": "mesh", "mesh": {"vertices": )" + ref(verts, 4) +
                          R"(, "faces": )" + ref(faces, 2) + R"(, "smoothingGroups": )" + ref(groups, 2) +
                          R"(, "materialIds": )" + ref(matIds, 2) + R"(, "textureVertices": )" + ref(uvs, 1) +
                          R"(, "textureFaces": )" + ref(uvFaces, 2) + "}}]}");
  auto host = hostmodel::loadScene(dir.file("scene.json"));
  const Mesh& mesh = meshOf(*host, "m");
  ASSERT_EQ(mesh.getNumVerts(), 4);
  EXPECT_EQ(mesh.verts[3], Point3(1, 1, 0.5f));
  ASSERT_EQ(mesh.getNumFaces(), 2);
  EXPECT_EQ(mesh.faces[1].v[2], 3u);
  EXPECT_EQ(mesh.faces[1].smGroup, 0x80000000u);
  EXPECT_EQ(mesh.faces[0].getMatID(), 3);
  EXPECT_EQ(mesh.faces[1].getMatID(), 7);
  ASSERT_EQ(mesh.getNumTVerts(), 1);
  EXPECT_EQ(mesh.tVerts[0], Point3(0.25f, 0.75f, 0));
  EXPECT_EQ(mesh.tvFace.size(), 2u);
}

TEST(HostModelMesh, CleanUpKeepsFaceAndVertexChannelsInStep) {
  // Vertices 0..5; face 1 is degenerate, face 2 names vertex 9 of 6, vertex 4 is used by no
  // face. Texture and colour faces carry the face's number, so a moved face shows which it was.
  auto host = hostmodel::loadSceneFromString(R"({"objects": [{"id": "m", "type": "mesh", "mesh": {
      "vertices": [0, 0, 0, 1, 0, 0, 2, 0, 0, 3, 0, 0, 4, 0, 0, 5, 0, 0],
      "faces": [0, 1, 2, 1, 1, 3, 2, 3, 9, 3, 5, 2],
      "materialIds": [0, 1, 2, 3],
      "textureVertices": [0, 0, 0],
      "textureFaces": [0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3],
      "vertexColors": [0, 0, 0],
      "colorFaces": [10, 10, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13]}}]})",
                                             "", "scene.json");
  Mesh mesh = meshOf(*host, "m");  // a working copy, as the exporter takes one
  mesh.setVDataSupport(10);
  for (int i = 0; i < mesh.getNumVerts(); ++i) mesh.vData[10].data[i] = i;
  mesh.RemoveDegenerateFaces();
  ASSERT_EQ(mesh.getNumFaces(), 3);
  EXPECT_EQ(mesh.faces[1].getMatID(), 2);
  EXPECT_EQ(mesh.tvFace[1].t[0], 2u);
  EXPECT_EQ(mesh.vcFace[1].t[0], 12u);
  mesh.RemoveIllegalFaces();
  ASSERT_EQ(mesh.getNumFaces(), 2);
  ASSERT_EQ(mesh.tvFace.size(), 2u);
  ASSERT_EQ(mesh.vcFace.size(), 2u);
  EXPECT_EQ(mesh.faces[1].getMatID(), 3);
  EXPECT_EQ(mesh.tvFace[1].t[1], 3u);
  EXPECT_EQ(mesh.vcFace[1].t[2], 13u);
  mesh.DeleteIsoVerts();
  ASSERT_EQ(mesh.getNumVerts(), 5);
  EXPECT_EQ(mesh.verts[4], Point3(5, 0, 0));
  ASSERT_TRUE(mesh.vDataSupport(10));
  EXPECT_EQ(mesh.vData[10].data, (std::vector<std::int32_t>{0, 1, 2, 3, 5}));
  // Face (3, 5, 2) follows vertex 5 to its new place 4; channels stay with their faces.
  EXPECT_EQ(mesh.faces[1].v[1], 4u);
  EXPECT_EQ(mesh.faces[1].v[2], 2u);
  EXPECT_EQ(mesh.vcFace[1].t[0], 13u);
  EXPECT_EQ(meshOf(*host, "m").getNumFaces(), 4);  // the loaded mesh itself is untouched
}

const char* kSkinned = R"({
  "objects": [{"id": "skin", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0], "faces": [0, 1, 2]}}],
  "nodes": [
    {"name": "Bone", "id": "A"}, {"name": "Bone", "id": "B"},
    {"name": "Skinned", "object": "skin", "modifiers": [
      {"type": "other", "classId": ["0x1234", 0], "className": "Edit Mesh"},
      {"type": "physique", "vertices": ["A", {"bones": ["A", "B"], "weights": [0.7, 0.3]}, {"vertexType": 2},
                                        null, {"bone": "B"}, {"vertexType": 1}]}]},
    {"name": "Other", "object": "skin", "modifiers": [{"type": "physique"}]},
    {"name": "Empty", "modifiers": [{"type": "physique"}]}
  ]})";

TEST(HostModelPhysique, VertexKindsAnswerAsTheHostDoes) {
  auto host = hostmodel::loadSceneFromString(kSkinned, "", "scene.json");
  INode* skinned = host->findNode("Skinned");
  EXPECT_EQ(skinned->EvalWorldState(0).obj, host->findObject("skin"));  // modifiers do not change the geometry
  ASSERT_NE(physiqueOf(skinned), nullptr);
  EXPECT_EQ(physiqueOf(skinned)->GetContextInterface(host->findNode("Other")), nullptr);  // not this modifier's node
  // Both bones are named "Bone": told apart by their ids. Vertex 3 is missing;
  // vertex 5 reports type 1 but has no rigid interface behind it.
  const auto id = [&](INode* n) { return std::string(n == host->findNode("A") ? "A" : n == host->findNode("B") ? "B" : "?"); };
  EXPECT_EQ(ztx_test::physiqueVertices(skinned, id),
            (std::vector<std::string>{"none", "type 1 rigid A", "type 5 blended A 0.7 B 0.3", "type 2", "none",
                                      "type 1 rigid B", "type 1", "none"}));
}

// A missing interface, context or modifier is checked through readSkinWeights
// (prepass_test.cpp); a node without an object is only here.
TEST(HostModelPhysique, ANodeWithoutAnObjectMayCarryAPhysiqueOfNoVertices) {
  auto host = hostmodel::loadSceneFromString(kSkinned, "", "scene.json");
  INode* empty = host->findNode("Empty");
  EXPECT_EQ(empty->EvalWorldState(0).obj, nullptr);
  auto* phy = physiqueOf(empty);
  ASSERT_NE(phy, nullptr);
  ASSERT_NE(phy->GetContextInterface(empty), nullptr);
  EXPECT_EQ(phy->GetContextInterface(empty)->GetNumberVertices(), 0);
}

}  // namespace
