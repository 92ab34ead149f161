// Meshes: exportMesh on scenes loaded into the in-memory host model (what
// reaches the scene file and the .skd file, read back by the reader library,
// and what is reported); smoothing-group normals and map channel seams on
// hand-built meshes against results worked out by hand. The bytes of each part
// are pinned where zt2dump reads chunks written value by value
// (dump_errors_test.cpp), through the reader that reads the exports here; the
// order of a mesh's parts is zt2dump --validate's, which every whole export
// passes.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "format/memory_file.h"
#include "geometry/export_mesh.h"
#include "geometry/mesh_processing.h"
#include "host/inhouse/exceptions.h"
#include "host/inode.h"
#include "host/objects.h"
#include "host/memory/memory_host.h"
#include "plugin/scene_exporter.h"
#include "prepass/skin_weights.h"
#include "reader/tree/file_decoder.h"
#include "support/test_support.h"

namespace {

using json = nlohmann::json;

// Host cube: vertex i at (bit 0, bit 1, bit 2) of i as -1/1, two outward
// triangles per side (-z, +z, -y, +y, -x, +x), side s in smoothing group 1 << s.
const std::vector<unsigned> kCubeFaces = {0, 2, 3, 0, 3, 1, 4, 5, 7, 4, 7, 6, 0, 1, 5, 0, 5, 4,
                                          2, 6, 7, 2, 7, 3, 0, 4, 6, 0, 6, 2, 1, 3, 7, 1, 7, 5};
Point3 cubeCorner(unsigned i) { return {i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f}; }
json cube() {
  json v = json::array();
  for (unsigned i = 0; i < 8; ++i) v.insert(v.end(), {cubeCorner(i).x, cubeCorner(i).y, cubeCorner(i).z});
  return {{"vertices", v}, {"faces", kCubeFaces}, {"smoothingGroups", {1, 1, 2, 2, 4, 4, 8, 8, 16, 16, 32, 32}}};
}
// Host side normals as the file sees them (z negated).
const Point3 kFileSideNormal[6] = {{0, 0, 1}, {0, 0, -1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};

// A mesh read back by the reader library, in the exporter's types for comparing.
struct ReadMesh {
  struct Channel {
    std::uint32_t channel;
    std::vector<Point3> coordinates;
  };
  std::string name;
  std::vector<Point3> positions, normals;
  std::vector<std::uint16_t> indices;  // three a triangle, local to its group
  std::vector<std::uint32_t> vertexCounts, triangleCounts;
  std::vector<std::string> materials;
  std::vector<Channel> channels;  // slot order
  std::optional<std::string> reference;
  std::vector<std::string> parts;  // the chunks written, empty ones included
};

std::vector<Point3> points(const ztexport::Array<ztexport::Vec3>& a) {
  std::vector<Point3> out;
  for (const ztexport::Vec3& p : a) out.emplace_back(p.x, p.y, p.z);
  return out;
}

template <class T>
std::vector<T> values(const ztexport::Array<T>& a) {
  return {a.begin(), a.end()};
}

json meshNode(const std::string& name, const char* material = "A") {
  json n = {{"name", name}, {"object", "m"}};
  if (*material) n["material"] = material;
  return n;
}

// The mesh object "m" and `nodes`, with materials A, B and AB = {A, none, B}
// entered as the pre-pass enters them; skinning is off unless a test sets it.
struct Scene {
  ztx_test::TempDir dir;
  std::unique_ptr<hostmodel::MemoryHost> host;
  SceneExporter exporter;

  Scene(const json& mesh, const std::vector<json>& nodes) {
    const json doc = {
        {"version", 1},
        {"materials", json::parse(R"([{"id": "A", "type": "standard"}, {"id": "B", "type": "standard"},
                                      {"id": "AB", "type": "multi", "subMaterials": ["A", null, "B"]}])")},
        {"objects", json::array({{{"id", "m"}, {"type", "mesh"}, {"mesh", mesh}}})},
        {"nodes", nodes}};
    host = hostmodel::loadSceneFromString(doc.dump(), dir.path().string(), "scene");
    exporter.host = host.get();
    exporter.targetPath = dir.path().string() + "/";
    exporter.targetName = "scene";
    exporter.writtenPath = exporter.targetPath;
    exporter.writtenName = exporter.targetName;
    exporter.options.exportSkinning = false;
    exporter.options.pivotAsMeshCenter = false;
    for (const char* id : {"A", "B"}) exporter.materialIndexTable.add(host->findMaterial(id));
  }
  INode* node(const char* name) { return host->findNode(name); }
  void exportNode(const char* name) { exportMesh(exporter, node(name)); }
  void skinned(const char* name, std::vector<SkinVertexWeights> weights, std::vector<std::string> bones = {"B"}) {
    exporter.options.exportSkinning = true;
    exporter.skinBoneNames = std::move(bones);
    exporter.skinWeightTable[node(name)] = std::move(weights);
  }
  std::vector<ReadMesh> meshes() const {
    std::vector<std::uint8_t> bytes(kMemoryFileMagic, kMemoryFileMagic + 4);
    bytes.resize(8);
    std::memcpy(&bytes[4], &kMemoryFileEncoding, 4);
    bytes.insert(bytes.end(), exporter.sceneFile.data(), exporter.sceneFile.data() + exporter.sceneFile.getSize());
    const ztexport::DecodedFile tree = ztexport::decodeBytes("scene.zt2", bytes);
    const ztexport::Scene scene = ztexport::decodeScene("scene.zt2", bytes);
    std::vector<ReadMesh> out;
    for (std::size_t i = 0; i < scene.meshes.size(); ++i) {
      const ztexport::Mesh& m = scene.meshes[i];
      ReadMesh r{m.node.name, points(m.positions), points(m.normals), {}, m.groupVertexCounts,
                 m.groupTriangleCounts, m.materialNames, {}, m.referenceName, {}};
      for (const ztexport::Triangle& t : m.triangles) r.indices.insert(r.indices.end(), {t.a, t.b, t.c});
      for (const ztexport::MapChannel& c : m.mapChannels) r.channels.push_back({c.channel, points(c.coordinates)});
      for (const ztexport::DecodedChunk& part : tree.chunks.at(i).children) r.parts.push_back(part.name);
      out.push_back(std::move(r));
    }
    return out;
  }
  // The .skd staged last, put in place as saving the scene file would.
  ztexport::SkinData skd() {
    EXPECT_TRUE(exporter.staging.commit().ok());
    return ztexport::readSkin(dir.file("scene.skd"));
  }
  const std::vector<std::string>& log() const { return exporter.infoLog.lines(); }
};

// Shared by the cases on purpose: buffers left large by one mesh must not
// change the next result.
MeshScratch scratch;

constexpr Point3 kGarbage{1234.5f, -777.25f, 42.0f};

// The host cube, side s in smoothing group 1 << s or all in group 1.
MeshBuild cube(bool sixGroups) {
  MeshBuild m;
  for (unsigned i = 0; i < 8; ++i) m.positions.push_back(cubeCorner(i));
  m.indices.assign(kCubeFaces.begin(), kCubeFaces.end());
  for (int t = 0; t < 12; ++t) m.smoothingGroups.push_back(sixGroups ? 1u << (t / 2) : 1u);
  m.normals.assign(5, kGarbage);  // must be replaced, not appended to
  return m;
}
const Point3 kSideNormal[6] = {{0, 0, -1}, {0, 0, 1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};

// Triangles (0, 1, 2) and (2, 1, 3) over a unit square.
MeshBuild square() {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  m.normals = {{0, 0, 1}, {0, 1, 0}, {1, 0, 0}, {0, 0, -1}};
  m.indices = {0, 1, 2, 2, 1, 3};
  return m;
}

}  // namespace

// A hidden node, one without an object, a target and geometry that cannot
// become triangles write nothing; geometry of another class exports through
// its conversion, a new object the exporter owns whose mesh is the cube's.
TEST(ExportMesh, OnlyNodesWithAnExportableMeshWrite) {
  const json prim = {{"type", "geometry"}, {"classId", {0x10, 0}}, {"mesh", cube()}};
  Scene fx(cube(), {{{"name", "Box"}, {"object", "m"}, {"hidden", true}},
                    {{"name", "Empty"}},
                    {{"name", "Target"}, {"object", {{"type", "target"}}}},
                    {{"name", "Surface"}, {"object", {{"type", "geometry"}, {"classId", {0x77, 0}}}}},
                    {{"name", "Prim"}, {"material", "A"}, {"object", prim}}});
  for (const char* name : {"Box", "Empty", "Target", "Surface", "Prim"}) fx.exportNode(name);
  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 1u);
  EXPECT_EQ(meshes[0].name, "Prim");
  EXPECT_EQ(meshes[0].positions.size(), 24u);
  EXPECT_EQ(fx.log(), (std::vector<std::string>{
                          "WARNING: Object \"Surface\" cannot be converted to a triangle mesh and is not exported"}));
  EXPECT_FALSE(fx.exporter.hasError());
  EXPECT_EQ(fx.exporter.meshReferenceTable.size(), 1u) << "only Prim's object is entered";
}

TEST(ExportMesh, CubeWithSixGroupsAndOneMaterialCopiesTheWholeMesh) {
  const float scale = 2.5f;  // the rescale factor reaches the positions alone
  Scene fx(cube(), {meshNode("Box")});
  fx.exporter.options.rescaleFactor = scale;
  fx.exportNode("Box");
  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 1u);
  const ReadMesh& r = meshes[0];
  EXPECT_EQ(r.materials, (std::vector<std::string>{"A"}));
  ASSERT_EQ(r.positions.size(), 24u);
  EXPECT_EQ(r.vertexCounts, (std::vector<std::uint32_t>{24}));
  EXPECT_EQ(r.triangleCounts, (std::vector<std::uint32_t>{12}));
  EXPECT_TRUE(r.channels.empty() && !r.reference);
  for (std::size_t k = 0; k < 36; ++k) {
    const std::size_t v = r.indices[k];
    EXPECT_EQ(r.normals[v], kFileSideNormal[k / 6]) << "corner " << k;
    // Winding reversed: corner q is the host face's corner 2 - q, z negated.
    const Point3 h = cubeCorner(kCubeFaces[k - k % 3 + 2 - k % 3]);
    EXPECT_EQ(r.positions[v], Point3(h.x * scale, h.y * scale, -h.z * scale)) << "corner " << k;
  }
  EXPECT_EQ(fx.exporter.meshReferenceTable.at(fx.host->findObject("m")), "Box");
}

TEST(ExportMesh, TwoMaterialsDropUnassignedTrianglesAndNumberByFirstUse) {
  // Face ids 5 (slot 2: B), 1 (empty slot), 3 (slot 0: A), 2 (B).
  Scene fx({{"vertices", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 2, 0, 0}},
            {"faces", {0, 1, 2, 1, 3, 2, 1, 4, 3, 3, 4, 2}},
            {"smoothingGroups", {1, 1, 1, 1}},
            {"materialIds", {5, 1, 3, 2}}},
           {meshNode("Plane", "AB")});
  fx.exportNode("Plane");
  const ReadMesh r = fx.meshes().at(0);
  EXPECT_EQ(r.materials, (std::vector<std::string>{"B", "A"}));
  EXPECT_EQ(r.triangleCounts, (std::vector<std::uint32_t>{2, 1}));
  EXPECT_EQ(r.vertexCounts, (std::vector<std::uint32_t>{5, 3}));
  // Group B: triangles 0 and 3 in file winding, (2, 1, 0) and (2, 4, 3); group A: triangle 2, (3, 4, 1).
  EXPECT_EQ(r.indices, (std::vector<std::uint16_t>{0, 1, 2, 0, 3, 4, 0, 1, 2}));
  EXPECT_EQ(r.positions,
            (std::vector<Point3>{{0, 1, 0}, {1, 0, 0}, {0, 0, 0}, {2, 0, 0}, {1, 1, 0}, {1, 1, 0}, {2, 0, 0}, {1, 0, 0}}));
}

TEST(ExportMesh, MirroringOffsetKeepsHostWindingOnlyWithPivotAsCenter) {
  for (bool pivot : {false, true}) {
    json node = meshNode("Mirror");
    node["objectOffset"] = {{"scale", {-1, 1, 1}}};
    Scene fx({{"vertices", {0, 0, 0, 1, 0, 0, 0, 1, 0}}, {"faces", {0, 1, 2}}, {"smoothingGroups", {1}},
              {"textureVertices", {0.25, 0.5, 0}}, {"textureFaces", {0, 0, 0}}},
             {node});
    fx.exporter.options.pivotAsMeshCenter = pivot;
    fx.exportNode("Mirror");
    const ReadMesh r = fx.meshes().at(0);
    const auto& p = r.positions;
    ASSERT_EQ(p.size(), 3u);
    // The offset is baked in only with the pivot as centre, and then host order is kept.
    const std::vector<Point3> corners = {p[r.indices[0]], p[r.indices[1]],
                                         p[r.indices[2]]};
    EXPECT_EQ(corners, (pivot ? std::vector<Point3>{{0, 0, 0}, {-1, 0, 0}, {0, 1, 0}}
                              : std::vector<Point3>{{0, 1, 0}, {1, 0, 0}, {0, 0, 0}}));
    EXPECT_EQ(r.normals[0], Point3(0, 0, -1)) << "the host's +z front is the file's -z front";
    EXPECT_EQ(r.channels.at(0).coordinates[0], Point3(0.25f, -0.5f, 0));
  }
}

TEST(ExportMesh, WithoutMaterialsOnlyEmptyPartsAndTheSkinNamesAreWritten) {
  json mesh = cube();
  mesh["textureVertices"] = {0, 0, 0};
  mesh["vertexColors"] = {1, 0, 0};
  mesh["textureFaces"] = mesh["colorFaces"] = std::vector<int>(36, 0);
  Scene fx(mesh, {meshNode("Box", "")});
  fx.exporter.options.exportMaterials = false;
  fx.skinned("Box", std::vector<SkinVertexWeights>(8, {{0, 1.0f}}));
  fx.exportNode("Box");
  const ReadMesh r = fx.meshes().at(0);
  EXPECT_EQ(r.parts, (std::vector<std::string>{"ObjectChunk", "MeshVertexChunk", "MeshFaceChunk",
                                                "MeshMaterialNamesChunk", "MeshMapChannelChunk", "MeshMapChannelChunk"}));
  EXPECT_TRUE(r.positions.empty() && r.indices.empty() && r.materials.empty());
  ASSERT_EQ(r.channels.size(), 2u);
  EXPECT_EQ(r.channels.at(1).channel, 0u);
  EXPECT_TRUE(r.channels.at(1).coordinates.empty());
  const ztexport::SkinData s = fx.skd();
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Box"}));
  EXPECT_EQ(s.boneNames, (std::vector<std::string>{"B"}));
  EXPECT_TRUE(s.groupVertexCount.empty() && s.influenceCount.empty());
  EXPECT_FALSE(fx.exporter.hasError());
}

TEST(ExportMesh, VertexColoursAloneBecomeChannelZeroAndSplitInChainOrder) {
  // Vertex 2 is red on the first face and grey on the second: one seam copy.
  Scene fx({{"vertices", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}}, {"faces", {0, 1, 2, 1, 3, 2}},
            {"smoothingGroups", {1, 1}}, {"vertexColors", {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1, 0.5, 0.5, 0.5}},
            {"colorFaces", {0, 1, 0, 1, 3, 4}}},
           {meshNode("Colours")});
  fx.exportNode("Colours");
  const ReadMesh r = fx.meshes().at(0);
  ASSERT_EQ(r.channels.size(), 1u);
  // File corners of face 0: (2, 1, 0), coloured (red, green, red) -> (r, -g, 0).
  EXPECT_EQ(r.channels.at(0).coordinates,
            (std::vector<Point3>{{1, 0, 0}, {0, -1, 0}, {1, 0, 0}, {1, -1, 0}, {0.5f, -0.5f, 0}}));
  EXPECT_EQ(r.positions[4], Point3(0, 1, 0)) << "the seam copy of vertex 2 is appended last";
  EXPECT_EQ(r.indices[3], 4u);
}

TEST(ExportMesh, SecondNodeOfTheSameObjectIsWrittenAsAReference) {
  Scene fx(cube(), {meshNode("First"), meshNode("Second")});
  fx.exportNode("First");
  fx.exportNode("Second");
  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 2u);
  EXPECT_EQ(meshes[1].parts, (std::vector<std::string>{"ObjectChunk", "MeshReferenceChunk"}));
  EXPECT_EQ(meshes[1].name, "Second");
  EXPECT_EQ(meshes[1].reference, "First");
  EXPECT_EQ(fx.exporter.meshReferenceTable.size(), 1u);

  fx.exporter.options.saveReferencesOnce = false;
  fx.exportNode("Second");
  EXPECT_FALSE(fx.meshes().at(2).positions.empty());
  EXPECT_EQ(fx.exporter.meshReferenceTable.at(fx.host->findObject("m")), "First") << "never replaced";
}

TEST(ExportMesh, FloatingVerticesAreRemovedOnlyWithTheOptionAndFacesOnMissingVerticesAlways) {
  for (bool remove : {true, false}) {
    json mesh = cube();
    mesh["vertices"].insert(mesh["vertices"].end(), {9, 9, 9});  // used by no face
    mesh["faces"].insert(mesh["faces"].end(), {0, 1, 99});        // names a vertex that does not exist
    mesh["smoothingGroups"].push_back(1);
    Scene fx(mesh, {meshNode("Box")});
    fx.exporter.options.removeFloatingVertices = remove;
    fx.exportNode("Box");
    EXPECT_EQ(fx.meshes().at(0).positions.size(), remove ? 24u : 25u);
    EXPECT_EQ(fx.meshes().at(0).indices.size(), 36u);
    EXPECT_TRUE(fx.meshes().at(0).channels.empty()) << "the clean-up makes no map channel of none";
    // The clean-up drops such a face silently; without it, the export says so.
    EXPECT_EQ(fx.log(), remove ? std::vector<std::string>{}
                               : std::vector<std::string>{"WARNING: Object \"Box\" has 1 faces naming vertices that "
                                                          "do not exist; they are not exported"});
  }
}

// A grid of n x n quads as a mesh description: a texture seam every seventh
// column, vertex colours, four smoothing regions, materials 0 and 2, and, for
// the clean-up, a vertex no face uses and a face on a vertex that does not
// exist. Its arrays are inline, or in `buffer` when one is given.
json gridMesh(int n, bool needsCleanUp, const std::string& buffer = {}) {
  const int side = n + 1;
  std::vector<float> points, uvs, colours;
  std::vector<std::uint32_t> faces, uvFaces, groups;
  std::vector<std::uint16_t> ids;
  for (int copy = 0; copy < 2; ++copy)
    for (int y = 0; y < side; ++y)
      for (int x = 0; x < side; ++x) {
        if (copy == 0) points.insert(points.end(), {float(x), float(y), float((x * y) % 5) * 0.25f});
        if (copy == 0) colours.insert(colours.end(), {float(x % 3) / 2, float(y % 4) / 3, 0.5f});
        uvs.insert(uvs.end(), {float(x) / n + copy * 0.5f, float(y) / n, 0});
      }
  for (int y = 0; y < n; ++y)
    for (int x = 0; x < n; ++x) {
      const std::uint32_t a = y * side + x, b = a + 1, c = a + side, d = c + 1;
      const std::uint32_t o = x % 7 == 0 ? side * side : 0;  // the seam's faces use the second set
      faces.insert(faces.end(), {a, b, d, a, d, c});
      uvFaces.insert(uvFaces.end(), {a + o, b + o, d + o, a + o, d + o, c + o});
      const std::uint32_t g = 1u << ((x >= n / 2) + 2 * (y >= n / 2));
      groups.insert(groups.end(), {g, g});
      const std::uint16_t m = (x + y) % 3 == 0 ? 2 : 0;
      ids.insert(ids.end(), {m, m});
    }
  if (needsCleanUp) {
    points.insert(points.end(), {-5, -5, -5});
    colours.insert(colours.end(), {0, 0, 0});
    faces.insert(faces.end(), {0, 1, 9999999});
    uvFaces.insert(uvFaces.end(), {0, 1, 2});
    groups.push_back(1);
    ids.push_back(0);
  }
  if (buffer.empty())
    return {{"vertices", points}, {"faces", faces}, {"smoothingGroups", groups}, {"materialIds", ids},
            {"textureVertices", uvs}, {"textureFaces", uvFaces}, {"vertexColors", colours}, {"colorFaces", faces}};
  std::vector<char> bytes;
  auto put = [&](const void* data, std::size_t size, std::size_t count) {
    const json ref = {{"buffer", buffer}, {"byteOffset", bytes.size()}, {"count", count}};
    bytes.insert(bytes.end(), static_cast<const char*>(data), static_cast<const char*>(data) + size);
    bytes.resize((bytes.size() + 3) / 4 * 4);
    return ref;
  };
  json mesh = {{"vertices", put(points.data(), points.size() * 4, points.size() / 3)},
               {"faces", put(faces.data(), faces.size() * 4, faces.size() / 3)},
               {"smoothingGroups", put(groups.data(), groups.size() * 4, groups.size())},
               {"materialIds", put(ids.data(), ids.size() * 2, ids.size())},
               {"textureVertices", put(uvs.data(), uvs.size() * 4, uvs.size() / 3)},
               {"textureFaces", put(uvFaces.data(), uvFaces.size() * 4, uvFaces.size() / 3)},
               {"vertexColors", put(colours.data(), colours.size() * 4, colours.size() / 3)},
               {"colorFaces", put(faces.data(), faces.size() * 4, faces.size() / 3)}};
  std::ofstream(buffer, std::ios::binary).write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  return mesh;
}

// A large mesh whose arrays lie in a buffer file stays there when loaded: the
// export reads it from a conversion of its own, a block at a time, and lets
// each array go once read. It must export as the same mesh given inline, with
// the clean-up working on it or not, skinned or not, and the host's own
// object must keep its arrays in the file. A file cut short after loading is
// an error that names it.
TEST(ExportMesh, MeshLeftInItsBufferFileExportsAsTheSameMeshInline) {
  ztx_test::TempDir files;
  for (const bool cleanUp : {false, true})
    for (const bool skin : {false, true}) {
      SCOPED_TRACE(std::string(cleanUp ? "clean-up" : "clean") + (skin ? ", skinned" : ""));
      const std::string buffer = files.file("grid.bin");
      struct Export {
        std::vector<std::uint8_t> scene;
        ztexport::SkinData skin;
      };
      auto exportGrid = [&](const json& mesh) {
        Scene fx(mesh, {meshNode("Grid", "AB")});
        if (skin) {
          std::vector<SkinVertexWeights> weights(76 * 76 + 1);
          for (std::size_t v = 0; v < weights.size(); ++v) weights[v] = {{static_cast<int>(v % 2), 1.0f}};
          fx.skinned("Grid", std::move(weights), {"B0", "B1"});
        }
        fx.exportNode("Grid");
        EXPECT_FALSE(fx.exporter.hasError()) << fx.exporter.infoLog.text();
        // Each corner's coordinates, worked out from its position by the
        // grid's rules: V and the colours' green turned over, the seam's
        // columns on the second half of the texture.
        const ReadMesh r = fx.meshes().at(0);
        EXPECT_EQ(r.channels.size(), 2u);
        std::size_t base = 0, corner = 0, wrong = 0;
        for (std::size_t g = 0; g < r.vertexCounts.size(); ++g) {
          for (std::size_t t = 0; t < r.triangleCounts[g]; ++t, corner += 3) {
            const Point3* p[3];
            for (int k = 0; k < 3; ++k) p[k] = &r.positions.at(base + r.indices.at(corner + k));
            const int column = static_cast<int>(std::min({p[0]->x, p[1]->x, p[2]->x}));
            for (int k = 0; k < 3; ++k) {
              const std::size_t v = base + r.indices[corner + k];
              const int x = static_cast<int>(p[k]->x), y = static_cast<int>(p[k]->y);
              wrong += r.channels[0].coordinates.at(v) !=
                       Point3(float(x) / 75 + (column % 7 == 0 ? 0.5f : 0.0f), -(float(y) / 75), 0);
              wrong += r.channels[1].coordinates.at(v) != Point3(float(x % 3) / 2, -(float(y % 4) / 3), 0);
            }
          }
          base += r.vertexCounts[g];
        }
        EXPECT_EQ(wrong, 0u);
        EXPECT_EQ(corner, 3u * 75 * 75 * 2) << "every triangle, in materials A and B";
        Export e;
        e.scene.assign(fx.exporter.sceneFile.data(), fx.exporter.sceneFile.data() + fx.exporter.sceneFile.getSize());
        if (skin) e.skin = fx.skd();
        auto* object = dynamic_cast<TriObject*>(fx.host->findObject("m"));
        EXPECT_EQ(object->GetMesh().hasDeferredArrays(), mesh["vertices"].is_object());
        return e;
      };
      const Export inlined = exportGrid(gridMesh(75, cleanUp));
      const Export buffered = exportGrid(gridMesh(75, cleanUp, buffer));
      EXPECT_GT(inlined.scene.size(), 100000u);
      EXPECT_TRUE(inlined.scene == buffered.scene);
      if (skin) {
        EXPECT_EQ(values(inlined.skin.influenceBone), values(buffered.skin.influenceBone));
        EXPECT_EQ(inlined.skin.groupVertexCount, buffered.skin.groupVertexCount);
      }
    }

  const json mesh = gridMesh(75, false, files.file("cut.bin"));
  Scene fx(mesh, {meshNode("Grid", "AB")});
  std::filesystem::resize_file(files.file("cut.bin"), 1000);
  try {
    fx.exportNode("Grid");
    ADD_FAILURE() << "a buffer file cut short after loading was read";
  } catch (const T_Exception& e) {
    EXPECT_NE(std::string(e.what()).find(files.file("cut.bin") + ": cannot read byte "), std::string::npos) << e.what();
    EXPECT_NE(std::string(e.what()).find("changed after the scene was loaded"), std::string::npos) << e.what();
  }
}

// A mesh the clean-up works on takes another way through the export (its
// channels are made from a working copy, before the smoothing pass): a vertex
// no face uses must change nothing else, with both channels, seams in each
// and split normals.
TEST(ExportMesh, RemovingAnUnusedVertexChangesNothingElseOfTheMesh) {
  const json mesh = {{"vertices", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0}},
                     {"faces", {0, 1, 2, 1, 3, 2}},
                     {"smoothingGroups", {1, 2}},
                     {"textureVertices", {0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0, 0.5, 0.5, 0}},
                     {"textureFaces", {0, 1, 2, 1, 3, 4}},
                     {"vertexColors", {1, 0, 0, 0, 1, 0, 0, 0, 1, 1, 1, 1}},
                     {"colorFaces", {0, 1, 2, 3, 3, 2}}};
  json floating = mesh;
  floating["vertices"].insert(floating["vertices"].end(), {5, 5, 5});
  std::vector<ReadMesh> read;
  for (const json& m : {mesh, floating}) {
    Scene fx(m, {meshNode("Quad")});
    fx.exporter.options.removeFloatingVertices = true;
    fx.exportNode("Quad");
    read.push_back(fx.meshes().at(0));
  }
  const ReadMesh &plain = read[0], &cleaned = read[1];
  ASSERT_EQ(plain.channels.size(), 2u);
  EXPECT_GT(plain.positions.size(), 4u) << "the normals and the seams split vertices";
  EXPECT_EQ(cleaned.positions, plain.positions);
  EXPECT_EQ(cleaned.normals, plain.normals);
  EXPECT_EQ(cleaned.indices, plain.indices);
  EXPECT_EQ(cleaned.vertexCounts, plain.vertexCounts);
  ASSERT_EQ(cleaned.channels.size(), 2u);
  for (int c = 0; c < 2; ++c) EXPECT_EQ(cleaned.channels[c].coordinates, plain.channels[c].coordinates) << c;
}

TEST(ExportMesh, OversizedGroupIsWrittenAsSeveralGroupsEachCopyKeepingItsInfluence) {
  // A strip whose triangles each bring one new vertex; host vertex i has weight i.
  const unsigned n = 70000;
  json vertices = json::array(), faces = json::array();
  std::vector<SkinVertexWeights> weights;
  for (unsigned i = 0; i < n; ++i) {
    vertices.insert(vertices.end(), {i, i % 2, 0});
    if (i + 2 < n) faces.insert(faces.end(), {i, i + 1, i + 2});
    weights.push_back({{0, float(i)}});
  }
  Scene fx({{"vertices", vertices}, {"faces", faces}, {"smoothingGroups", std::vector<int>(n - 2, 1)}},
           {meshNode("Strip")});
  fx.skinned("Strip", weights);
  fx.exportNode("Strip");
  const ReadMesh r = fx.meshes().at(0);
  EXPECT_EQ(r.materials, (std::vector<std::string>{"A", "A"}));
  EXPECT_EQ(r.vertexCounts, (std::vector<std::uint32_t>{65536, n - 65534}));
  EXPECT_EQ(r.triangleCounts, (std::vector<std::uint32_t>{65534, n - 2 - 65534}));
  // The second group starts at host triangle 65534, file corners (65536, 65535, 65534).
  const auto& indices = r.indices;
  EXPECT_EQ(std::vector<std::uint16_t>(indices.begin() + 3 * 65534, indices.begin() + 3 * 65535),
            (std::vector<std::uint16_t>{0, 1, 2}));
  EXPECT_EQ(r.positions[65536], Point3(65536, 0, 0));
  EXPECT_EQ(fx.log(), (std::vector<std::string>{"WARNING: Object \"Strip\" material \"A\" uses 70000 vertices, more "
                                                "than one group can index; written as 2 groups of that material"}));
  const ztexport::SkinData s = fx.skd();
  EXPECT_EQ(s.groupVertexCount, r.vertexCounts);
  ASSERT_EQ(s.influenceWeight.size(), r.positions.size());
  std::size_t wrong = 0;
  for (std::size_t v = 0; v < s.influenceWeight.size(); ++v)
    wrong += s.influenceStart[v] != std::int32_t(v) || s.influenceWeight[v] != r.positions[v].x;
  EXPECT_EQ(wrong, 0u);
}

TEST(ExportMesh, OversizedGroupWhoseTrianglesFitLeavesOutOnlyUnusedVertices) {
  // One triangle on the last three of 65,540 vertices; floating vertices are kept.
  const unsigned n = 65540;
  json vertices = json::array();
  for (unsigned i = 0; i < n; ++i) vertices.insert(vertices.end(), {i, 0, 0});
  Scene fx({{"vertices", vertices}, {"faces", {n - 3, n - 2, n - 1}}, {"smoothingGroups", {1}}}, {meshNode("Sparse")});
  fx.exporter.options.removeFloatingVertices = false;
  fx.exportNode("Sparse");
  const ReadMesh r = fx.meshes().at(0);
  EXPECT_EQ(r.vertexCounts, (std::vector<std::uint32_t>{3}));
  EXPECT_EQ(r.positions.at(0), Point3(float(n - 1), 0, 0));  // file winding: third corner first
  EXPECT_EQ(fx.log(), (std::vector<std::string>{"WARNING: Object \"Sparse\" material \"A\" holds 65540 vertices, "
                                                "more than one group can index; vertices that no triangle uses were "
                                                "left out"}));
}

// --- skinning ---

TEST(ExportMeshSkin, EachSplitCopyCarriesItsHostVertexInfluences) {
  // A quad of two triangles in two smoothing groups and two materials, so the
  // shared diagonal splits, and a texture seam at vertex 3. Host vertex 0
  // floats: the clean-up renumbers, the skin keeps host numbers.
  const json bones = json::parse(R"({"name": "R", "object": {"type": "geometry"}, "children": [
      {"name": "A1", "object": {"type": "geometry"}, "children": [{"name": "A2", "object": {"type": "geometry"}}]},
      {"name": "B1", "object": {"type": "geometry"}}]})");
  json quad = meshNode("Quad", "AB");
  quad["modifiers"] = json::parse(R"([{"type": "physique", "vertices": ["B1", "R",
      {"bones": ["A2", "B1"], "weights": [0.75, 0.25]}, "B1", {"bones": [], "weights": []}]}])");
  Scene fx({{"vertices", {9, 9, 9, 0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0}},
            {"faces", {1, 2, 3, 1, 3, 4}},
            {"smoothingGroups", {1, 2}},
            {"materialIds", {0, 2}},
            {"textureVertices", {0, 0, 0, 1, 0, 0, 1, 1, 0, 0, 1, 0, 0.5, 0.5, 0}},
            {"textureFaces", {0, 1, 2, 0, 4, 3}}},
           {bones, quad});
  fx.exporter.options.exportSkinning = true;
  readSkinWeights(fx.exporter, fx.node("Quad"));
  fx.exportNode("Quad");
  ASSERT_FALSE(fx.exporter.hasError()) << fx.exporter.infoLog.text();

  const ReadMesh r = fx.meshes().at(0);
  EXPECT_EQ(r.materials, (std::vector<std::string>{"A", "B"}));
  // Group A: host face (1, 2, 3) -> file corners (3, 2, 1). Group B: host face
  // (1, 3, 4) -> file corners (4, 3', 1'), copies made for smoothing group 2.
  EXPECT_EQ(r.vertexCounts, (std::vector<std::uint32_t>{3, 3}));
  EXPECT_EQ(r.positions,
            (std::vector<Point3>{{1, 1, 0}, {1, 0, 0}, {0, 0, 0}, {0, 1, 0}, {1, 1, 0}, {0, 0, 0}}));
  EXPECT_EQ(r.channels.at(0).coordinates[4], Point3(0.5f, -0.5f, 0)) << "the seam coordinate of vertex 3";

  const ztexport::SkinData s = fx.skd();
  EXPECT_EQ(s.boneNames, (std::vector<std::string>{"R", "A1", "A2", "B1"}));
  // Host vertices of the six: 3, 2, 1, 4, 3, 1.
  EXPECT_EQ(values(s.influenceCount), (std::vector<std::int32_t>{1, 2, 1, 0, 1, 1}));
  EXPECT_EQ(values(s.influenceStart), (std::vector<std::int32_t>{0, 1, 3, 4, 4, 5}));
  EXPECT_EQ(values(s.influenceBone), (std::vector<std::int32_t>{3, 2, 3, 0, 3, 0}));
  EXPECT_EQ(values(s.influenceWeight), (std::vector<float>{1.0f, 0.75f, 0.25f, 1.0f, 1.0f, 1.0f}));
  EXPECT_EQ(s.groupVertexCount, (std::vector<std::uint32_t>{3, 3}));
  EXPECT_EQ(s.groupVertexStart, (std::vector<std::uint32_t>{0, 3}));
}

TEST(ExportMeshSkin, NodeWithoutSkinEntryReportsEveryGroupAndStillSavesTheFile) {
  json mesh = cube();
  mesh["materialIds"] = {0, 2, 0, 2, 0, 2, 0, 2, 0, 2, 0, 2};
  Scene fx(mesh, {meshNode("Bare", "AB")});
  fx.exporter.options.exportSkinning = true;
  fx.exportNode("Bare");
  EXPECT_TRUE(fx.exporter.hasError());
  EXPECT_EQ(fx.log(), std::vector<std::string>(2, "ERROR: No skin data for skinning (object \"Bare\")"));
  const ztexport::SkinData s = fx.skd();
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Bare"}));
  EXPECT_EQ(s.groupVertexCount, (std::vector<std::uint32_t>{0, 0}));
  EXPECT_TRUE(s.influenceStart.empty() && s.influenceBone.empty());
  EXPECT_EQ(fx.meshes().size(), 1u) << "the mesh is still written";
}

TEST(ExportMeshSkin, VertexBeyondTheSkinEntryIsReportedOnceAndGetsNoInfluence) {
  Scene fx(cube(), {meshNode("Short")});
  fx.skinned("Short", std::vector<SkinVertexWeights>(6, {{0, 1.0f}}));
  fx.exportNode("Short");
  EXPECT_TRUE(fx.exporter.hasError());
  EXPECT_EQ(fx.log(), (std::vector<std::string>{
                          "ERROR: Object \"Short\" vertex 6 has no skin vertex for skinning (skin vertex count 6)"}));
  std::size_t without = 0;
  for (std::int32_t c : fx.skd().influenceCount) without += c == 0;
  EXPECT_EQ(without, 6u) << "host vertices 6 and 7 have three copies each";
}

TEST(SmoothNormals, CubeWithSixGroupsGivesTwentyFourVerticesWithSideNormals) {
  MeshBuild m = cube(true);
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 24u);
  ASSERT_EQ(m.normals.size(), 24u);
  // Each vertex keeps its last cluster; the earlier ones become copies 8, 9
  // (of vertex 0), 10, 11 (of vertex 1), ... The cluster reaching the most
  // triangles goes first, the first such in the vertex's list on a tie:
  // vertex 1 has sides (0, 2, 5, 5), so side 5 goes, then side 0; it keeps 2.
  const int side[24] = {4, 2, 4, 5, 4, 5, 3, 5, 0, 2, 5, 0, 3, 0, 0, 3, 1, 2, 2, 1, 4, 1, 1, 3};
  for (int v = 0; v < 24; ++v) EXPECT_EQ(m.normals[v], kSideNormal[side[v]]) << "vertex " << v;
  const std::vector<std::uint32_t> sources = {0, 0, 1, 1, 2, 2, 3, 3, 4, 4, 5, 5, 6, 6, 7, 7};
  EXPECT_EQ(m.splitSources, sources);
  for (int v = 8; v < 24; ++v) EXPECT_EQ(m.positions[v], m.positions[sources[v - 8]]);
  for (std::size_t k = 0; k < m.indices.size(); ++k)
    EXPECT_EQ(m.normals[m.indices[k]], kSideNormal[k / 6]) << "corner " << k;
  EXPECT_EQ(std::vector<std::uint32_t>(m.indices.begin(), m.indices.begin() + 6),
            (std::vector<std::uint32_t>{8, 13, 14, 8, 14, 11}));
}

TEST(SmoothNormals, OneGroupKeepsEightVerticesWithNormalisedSums) {
  MeshBuild m = cube(false);
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_TRUE(m.splitSources.empty());
  EXPECT_EQ(m.indices, cube(false).indices);
  // Sums of the side normals of each vertex's triangles: a corner on a side's
  // diagonal touches both of its triangles, the others one.
  const int sums[8][3] = {{-2, -2, -2}, {2, -1, -1}, {-1, 2, -1}, {1, 1, -2},
                          {-1, -1, 2},  {1, -2, 1},  {-2, 1, 1},  {2, 2, 2}};
  for (int v = 0; v < 8; ++v) {
    const float x = float(sums[v][0]), y = float(sums[v][1]), z = float(sums[v][2]);
    const float inv = 1.0f / std::sqrt(x * x + y * y + z * z);
    EXPECT_EQ(m.normals[v], Point3(x * inv, y * inv, z * inv)) << "vertex " << v;
  }
}

TEST(SmoothNormals, ZeroMaskTrianglesEachGetTheirOwnVertices) {
  MeshBuild big = cube(true);
  computeSmoothNormals(big, scratch.normals);  // leaves larger work buffers behind
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3};
  m.smoothingGroups = {0, 0};
  computeSmoothNormals(m, scratch.normals);
  ASSERT_EQ(m.positions.size(), 10u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0, 1, 2, 2, 3}));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{4, 6, 7, 5, 8, 9}));
  for (int v = 0; v < 4; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 0)) << "vertex " << v << " keeps no triangle";
  for (int v = 4; v < 10; ++v) EXPECT_EQ(m.normals[v], Point3(0, 0, 1)) << "vertex " << v;
}

TEST(SmoothNormals, ABridgingMaskJoinsGroupsThatShareNoBit) {
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4};
  m.smoothingGroups = {1, 3, 2};
  computeSmoothNormals(m, scratch.normals);
  EXPECT_EQ(m.positions.size(), 5u);
}

TEST(MapChannels, SeamCopiesAreAppendedAndChainedNewestFirst) {
  // A fan around vertex 0, whose corners use coordinates A, B, C, B. B makes
  // copy 6, C copy 7, which takes over the chain (0 -> 7 -> 6); the second B
  // is found at 6 after 0 and 7 are tried.
  MeshBuild m;
  m.positions = {{0, 0, 0}, {1, 0, 0}, {1, 1, 0}, {0, 1, 0}, {-1, 1, 0}, {-1, 0, 0}};
  m.normals = {{0, 0, 1}, {0, 0, 2}, {0, 0, 3}, {0, 0, 4}, {0, 0, 5}, {0, 0, 6}};
  m.indices = {0, 1, 2, 0, 2, 3, 0, 3, 4, 0, 4, 5};
  m.vertexMaps[0].assign(9, kGarbage);
  const Point3 a{0.1f, 0.1f, 0}, b{0.2f, 0.2f, 0}, c{0.3f, 0.3f, 0}, other{0.9f, 0.9f, 0};
  m.mapCoords[0] = {a, b, c, other};
  m.mapIndices[0] = {0, 3, 3, 1, 3, 3, 2, 3, 3, 1, 3, 3};
  unifyMapChannel(m, 0, scratch.maps);
  ASSERT_EQ(m.positions.size(), 8u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{0, 0}));
  EXPECT_EQ(m.indices, (std::vector<std::uint32_t>{0, 1, 2, 6, 2, 3, 7, 3, 4, 6, 4, 5}));
  EXPECT_EQ(m.vertexMaps[0], (std::vector<Point3>{a, other, other, other, other, other, b, c}));
  for (int v : {6, 7}) EXPECT_TRUE(m.positions[v] == m.positions[0] && m.normals[v] == m.normals[0]);
}

TEST(MapChannels, CoordinatesCompareByTheirFirstTwoComponents) {
  const float nan = std::numeric_limits<float>::quiet_NaN();
  struct Case {
    Point3 first, second;
    bool sameIndex, split;
  };
  const Case cases[] = {{{1, 0, 5}, {1, 0, 9}, false, false},
                        {{0.0f, 1, 0}, {-0.0f, 1, 0}, false, false},
                        {{nan, 0, 0}, {nan, 0, 0}, true, true},
                        {{1, 0, 0}, {0.5f, 0.5f, 0}, false, true}};
  for (const Case& c : cases) {
    MeshBuild m = square();  // vertex 1's corners use `first`, then `second`
    m.mapCoords[0] = {{0, 0, 0}, c.first, {0, 1, 0}, {1, 1, 0}, c.second};
    m.mapIndices[0] = {0, 1, 2, 2, c.sameIndex ? 1u : 4u, 3};
    unifyMapChannel(m, 0, scratch.maps);
    EXPECT_EQ(m.positions.size(), c.split ? 5u : 4u) << c.second.x;
    EXPECT_EQ(m.splitSources, c.split ? std::vector<std::uint32_t>{1} : std::vector<std::uint32_t>{});
    EXPECT_EQ(m.indices[4], c.split ? 4u : 1u);
    if (!c.split) {
      EXPECT_EQ(m.vertexMaps[0][1], Point3(c.first.x, c.first.y, 0)) << "third component stored as 0";
    }
  }
}

TEST(MapChannels, SecondChannelCopiesCarryTheFirstChannel) {
  MeshBuild m = square();
  m.mapCoords[0] = {{0.5f, 0.5f, 0}};
  m.mapIndices[0].assign(6, 0);
  m.mapCoords[1] = {{1, 0, 0}, {0, 1, 0}};
  m.mapIndices[1] = {0, 0, 0, 1, 0, 0};  // vertex 2's second corner differs
  unifyMapChannel(m, 0, scratch.maps);
  unifyMapChannel(m, 1, scratch.maps);
  ASSERT_EQ(m.positions.size(), 5u);
  EXPECT_EQ(m.splitSources, (std::vector<std::uint32_t>{2}));
  EXPECT_EQ(m.vertexMaps[0], std::vector<Point3>(5, {0.5f, 0.5f, 0}));
  EXPECT_EQ(m.vertexMaps[1][4], Point3(0, 1, 0));
  EXPECT_EQ(m.indices[3], 4u);
}
