// Skin reading and mesh export on scenes loaded into the in-memory host
// model: a skinned quad over a small skeleton, and shared meshes.
#include <gtest/gtest.h>

#include "format/memory_file.h"
#include "geometry/export_mesh.h"
#include "geometry/geometry_readers.h"
#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "plugin/scene_exporter.h"
#include "prepass/skin_weights.h"
#include "support/test_support.h"

namespace {

// A quad of two triangles in two smoothing groups, so the shared diagonal
// splits; texture coordinates with a seam at vertex 2; two materials.
const char* kSkinnedScene = R"({
  "version": 1,
  "materials": [
    {"id": "A", "type": "standard"},
    {"id": "B", "type": "standard"},
    {"id": "multi", "type": "multi", "subMaterials": ["A", "B"]}
  ],
  "objects": [{"id": "quad", "type": "mesh", "mesh": {
    "vertices": [0, 0, 0,  1, 0, 0,  1, 1, 0,  0, 1, 0],
    "faces": [0, 1, 2,  0, 2, 3],
    "smoothingGroups": [1, 2],
    "materialIds": [0, 1],
    "textureVertices": [0, 0, 0,  1, 0, 0,  1, 1, 0,  0, 1, 0,  0.5, 0.5, 0],
    "textureFaces": [0, 1, 2,  0, 4, 3]
  }}],
  "nodes": [
    {"name": "R", "object": {"type": "geometry"}, "children": [
      {"name": "A1", "object": {"type": "geometry"}, "children": [
        {"name": "A2", "object": {"type": "geometry"}}]},
      {"name": "B1", "object": {"type": "geometry"}}]},
    {"name": "Quad", "object": "quad", "material": "multi",
     "modifiers": [{"type": "physique", "vertices": [
       "R",
       {"bones": ["A2", "B1"], "weights": [0.75, 0.25]},
       "B1",
       {"bones": [], "weights": []}]}]},
    {"name": "Quad2", "object": "quad", "material": "multi"}
  ]
})";

struct SceneFixture {
  ztx_test::TempDir dir;
  std::unique_ptr<hostmodel::MemoryHost> host;
  SceneExporter exporter;

  explicit SceneFixture(const char* json) {
    host = hostmodel::loadSceneFromString(json, dir.path().string(), "scene");
    exporter.host = host.get();
    exporter.targetPath = dir.path().string() + "/";
    exporter.targetName = "scene";
    exporter.options.pivotAsMeshCenter = false;
    for (const char* id : {"A", "B"}) exporter.materialIndexTable.add(host->findMaterial(id));
  }
  INode* node(const char* id) { return host->findNode(id); }

  std::vector<MeshRecord> meshes() const {
    std::vector<std::uint8_t> bytes(kMemoryFileMagic, kMemoryFileMagic + 4);
    const std::uint32_t encoding = kMemoryFileEncoding;
    bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&encoding),
                 reinterpret_cast<const std::uint8_t*>(&encoding) + 4);
    bytes.insert(bytes.end(), exporter.sceneFile.data(), exporter.sceneFile.data() + exporter.sceneFile.getSize());
    T_MemoryFile f = T_MemoryFile::fromBytes(std::move(bytes));
    std::vector<MeshRecord> out;
    while (!f.atEnd()) out.push_back(readMeshChunk(f));
    return out;
  }
};

}  // namespace

TEST(GeometryScene, SkinnedQuadCarriesHostInfluencesOnEverySplitCopy) {
  SceneFixture fx(kSkinnedScene);
  INode* quad = fx.node("Quad");
  readSkinWeights(fx.exporter, quad);
  ASSERT_FALSE(fx.exporter.hasError()) << fx.exporter.infoLog.text();
  EXPECT_EQ(fx.exporter.skinBoneNames, (std::vector<std::string>{"R", "A1", "A2", "B1"}));
  exportMesh(fx.exporter, quad);
  ASSERT_FALSE(fx.exporter.hasError()) << fx.exporter.infoLog.text();

  const MeshRecord r = fx.meshes().at(0);
  EXPECT_EQ(r.materialNameList(), (std::vector<std::string>{"A", "B"}));
  // Group A: host face (0, 1, 2) -> file corners (2, 1, 0) -> vertices 2, 1, 0.
  // Group B: host face (0, 2, 3) -> file corners (3, 2', 0'), copies of 2 and 0
  // made for smoothing group 2.
  EXPECT_EQ(r.vertexPart().groups.counts(), (std::vector<std::uint32_t>{3, 3}));
  const std::vector<Point3> positions = {{1, 1, 0}, {1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 0}};
  EXPECT_EQ(r.vertexPart().positions, positions);
  EXPECT_EQ(r.mapChannelPart(0).coordinates[4], Point3(0.5f, -0.5f, 0)) << "the seam coordinate of vertex 2";

  T_MemoryFile skd(fx.dir.file("scene.skd").c_str(), AM_Read);
  const VertexDataRecord s = readVertexDataChunk(skd);
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Quad"}));
  EXPECT_EQ(s.boneNames, (std::vector<std::string>{"R", "A1", "A2", "B1"}));
  // Host vertices of the six: 2, 1, 0, 3, 2, 0 -> influence counts 1, 2, 1, 0, 1, 1.
  EXPECT_EQ(s.influenceCount, (std::vector<std::int32_t>{1, 2, 1, 0, 1, 1}));
  EXPECT_EQ(s.influenceStart, (std::vector<std::int32_t>{0, 1, 3, 4, 4, 5}));
  EXPECT_EQ(s.influenceBone, (std::vector<std::int32_t>{3, 2, 3, 0, 3, 0}));
  EXPECT_EQ(s.influenceWeight, (std::vector<float>{1.0f, 0.75f, 0.25f, 1.0f, 1.0f, 1.0f}));
  EXPECT_EQ(s.groupVertexCount(), (std::vector<std::uint32_t>{3, 3}));
  EXPECT_EQ(s.groupVertexStart(), (std::vector<std::uint32_t>{0, 3}));
  EXPECT_EQ(fx.host->outstandingVertexInterfaces(), 0);
}

TEST(GeometryScene, InstanceOfAWrittenMeshBecomesAReference) {
  SceneFixture fx(kSkinnedScene);
  fx.exporter.options.exportSkinning = false;
  exportMesh(fx.exporter, fx.node("Quad"));
  exportMesh(fx.exporter, fx.node("Quad2"));
  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 2u);
  EXPECT_EQ(meshes[1].name(), "Quad2");
  EXPECT_EQ(meshes[1].referenceNameValue(), "Quad");
  EXPECT_FALSE(meshes[1].hasVertices());
}
