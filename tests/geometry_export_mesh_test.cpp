// exportMesh through small fakes of the host interfaces: what reaches the
// scene file and the .skd file, and what is reported.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "format/memory_file.h"
#include "geometry/export_mesh.h"
#include "geometry/geometry_readers.h"
#include "host/inhouse/exceptions.h"
#include "host/inode.h"
#include "host/material.h"
#include "host/mesh.h"
#include "host/objects.h"
#include "plugin/scene_exporter.h"
#include "support/test_support.h"

namespace {

class FakeTri : public TriObject {
 public:
  Mesh mesh;
  SClass_ID SuperClassID() const override { return GEOMOBJECT_CLASS_ID; }
  Class_ID ClassID() const override { return TRIOBJ_CLASS_ID; }
  void GetClassName(std::string& s) const override { s = "Mesh"; }
  bool CanConvertToType(Class_ID c) const override { return c == TRIOBJ_CLASS_ID; }
  Object* ConvertToType(TimeValue, Class_ID) override { return this; }
  Mesh& GetMesh() override { return mesh; }
};

// An object of any class that has no triangle form.
class FakeObject : public Object {
 public:
  FakeObject(SClass_ID s, Class_ID c) : super_(s), cls_(c) {}
  SClass_ID SuperClassID() const override { return super_; }
  Class_ID ClassID() const override { return cls_; }
  void GetClassName(std::string& s) const override { s = "Thing"; }

 private:
  SClass_ID super_;
  Class_ID cls_;
};

class FakeMtl : public Mtl {
 public:
  explicit FakeMtl(std::string name, std::vector<Mtl*> subs = {}) : name_(std::move(name)), subs_(std::move(subs)) {}
  const std::string& GetName() const override { return name_; }
  Class_ID ClassID() const override { return subs_.empty() ? DMTL_CLASS_ID : MULTI_CLASS_ID; }
  int NumSubMtls() const override { return static_cast<int>(subs_.size()); }
  Mtl* GetSubMtl(int i) const override { return subs_[i]; }
  Color GetAmbient() const override { return {}; }
  Color GetDiffuse() const override { return {}; }
  Color GetSpecular() const override { return {}; }
  int NumSubTexmaps() const override { return 0; }
  Texmap* GetSubTexmap(int) const override { return nullptr; }

 private:
  std::string name_;
  std::vector<Mtl*> subs_;
};

class FakeNode : public INode {
 public:
  std::string name;
  FakeNode* parent = nullptr;
  std::vector<FakeNode*> children;
  bool root = false;
  bool hidden = false;
  Mtl* mtl = nullptr;
  Object* obj = nullptr;
  Point3 offsetPos;
  Quat offsetRot;
  ScaleValue offsetScale;

  const char* GetName() const override { return name.c_str(); }
  bool IsRootNode() const override { return root; }
  INode* GetParentNode() const override { return parent; }
  int NumberOfChildren() const override { return static_cast<int>(children.size()); }
  INode* GetChildNode(int i) const override { return children[i]; }
  bool IsNodeHidden(bool) const override { return hidden; }
  bool IsGroupMember() const override { return false; }
  bool IsGroupHead() const override { return false; }
  bool IsOpenGroupMember() const override { return false; }
  bool IsOpenGroupHead() const override { return false; }
  Matrix3 GetNodeTM(TimeValue) const override { return Matrix3(); }
  Matrix3 GetObjectTM(TimeValue) const override { return ObjectOffsetMatrix(offsetPos, offsetRot, offsetScale); }
  Point3 GetObjOffsetPos() const override { return offsetPos; }
  Quat GetObjOffsetRot() const override { return offsetRot; }
  ScaleValue GetObjOffsetScale() const override { return offsetScale; }
  void GetUserPropBuffer(std::string& buf) const override { buf.clear(); }
  Mtl* GetMtl() const override { return mtl; }
  ObjectState EvalWorldState(TimeValue, bool) const override { return {obj}; }
  Object* GetObjectRef() const override { return obj; }
  Interval GetTimeRange(unsigned int) const override { return FOREVER; }
  bool GetInheritVisibility() const override { return true; }
  float GetLocalVisibility(TimeValue) const override { return 1.0f; }
  float GetVisibility(TimeValue) const override { return 1.0f; }
};

// Host cube: vertex i at (bit 0, bit 1, bit 2) of i as -1/1, two outward
// triangles per side (-z, +z, -y, +y, -x, +x), side s in smoothing group 1 << s.
Mesh hostCube() {
  Mesh m;
  for (int i = 0; i < 8; ++i) m.verts.push_back({i & 1 ? 1.0f : -1.0f, i & 2 ? 1.0f : -1.0f, i & 4 ? 1.0f : -1.0f});
  const unsigned tris[12][3] = {{0, 2, 3}, {0, 3, 1}, {4, 5, 7}, {4, 7, 6}, {0, 1, 5}, {0, 5, 4},
                                {2, 6, 7}, {2, 7, 3}, {0, 4, 6}, {0, 6, 2}, {1, 3, 7}, {1, 7, 5}};
  for (int t = 0; t < 12; ++t) {
    Face f;
    f.v[0] = tris[t][0];
    f.v[1] = tris[t][1];
    f.v[2] = tris[t][2];
    f.smGroup = 1u << (t / 2);
    m.faces.push_back(f);
  }
  return m;
}

// Host side normals as the file sees them (z negated).
const Point3 kFileSideNormal[6] = {{0, 0, 1}, {0, 0, -1}, {0, -1, 0}, {0, 1, 0}, {-1, 0, 0}, {1, 0, 0}};

struct Fixture {
  ztx_test::TempDir dir;
  SceneExporter exporter;
  FakeNode root;
  std::vector<std::unique_ptr<FakeNode>> nodes;
  std::vector<std::unique_ptr<FakeTri>> objects;
  std::vector<std::unique_ptr<FakeMtl>> materials;

  Fixture() {
    root.name = "Scene Root";
    root.root = true;
    exporter.targetPath = dir.path().string() + "/";
    exporter.targetName = "scene";
    exporter.options.exportSkinning = false;
    exporter.options.pivotAsMeshCenter = false;
  }

  FakeTri& object(Mesh mesh) {
    objects.push_back(std::make_unique<FakeTri>());
    objects.back()->mesh = std::move(mesh);
    return *objects.back();
  }
  FakeMtl& material(const std::string& name, std::vector<Mtl*> subs = {}) {
    materials.push_back(std::make_unique<FakeMtl>(name, std::move(subs)));
    return *materials.back();
  }
  FakeNode& node(const std::string& name, Object* obj, Mtl* mtl = nullptr) {
    nodes.push_back(std::make_unique<FakeNode>());
    FakeNode& n = *nodes.back();
    n.name = name;
    n.parent = &root;
    n.obj = obj;
    n.mtl = mtl;
    root.children.push_back(&n);
    return n;
  }
  // Enters the node's material and sub-materials, as the pre-pass does.
  void enterMaterials(const FakeNode& n) {
    if (!n.mtl) return;
    if (n.mtl->NumSubMtls() <= 0) {
      exporter.materialIndexTable.add(n.mtl);
      return;
    }
    for (int i = 0; i < n.mtl->NumSubMtls(); ++i)
      if (n.mtl->GetSubMtl(i)) exporter.materialIndexTable.add(n.mtl->GetSubMtl(i));
  }

  T_MemoryFile sceneBytes() const {
    std::vector<std::uint8_t> bytes(kMemoryFileMagic, kMemoryFileMagic + 4);
    const std::uint32_t encoding = kMemoryFileEncoding;
    bytes.insert(bytes.end(), reinterpret_cast<const std::uint8_t*>(&encoding),
                 reinterpret_cast<const std::uint8_t*>(&encoding) + 4);
    bytes.insert(bytes.end(), exporter.sceneFile.data(), exporter.sceneFile.data() + exporter.sceneFile.getSize());
    return T_MemoryFile::fromBytes(std::move(bytes));
  }
  std::vector<MeshRecord> meshes() const {
    T_MemoryFile f = sceneBytes();
    std::vector<MeshRecord> out;
    while (!f.atEnd()) out.push_back(readMeshChunk(f));
    return out;
  }
  VertexDataRecord skd() const {
    T_MemoryFile f(dir.file("scene.skd").c_str(), AM_Read);
    return readVertexDataChunk(f);
  }
};

// The vertex of the record that triangle t's corner q names.
std::size_t cornerVertex(const MeshRecord& r, std::size_t group, std::size_t t, int q) {
  const MeshFaceRecord& f = r.facePart();
  return r.vertexPart().groups.starts()[group] + f.indices[f.groups.starts()[group] + 3 * t + q];
}

}  // namespace

TEST(ExportMesh, HiddenNodeWritesNothing) {
  Fixture fx;
  FakeNode& n = fx.node("Box", &fx.object(hostCube()));
  n.hidden = true;
  fx.exporter.options.removeHiddenObjects = true;
  exportMesh(fx.exporter, &n);
  EXPECT_EQ(fx.exporter.sceneFile.getSize(), 0u);
}

TEST(ExportMesh, NoObjectOrTargetWritesNothing) {
  Fixture fx;
  FakeObject target(GEOMOBJECT_CLASS_ID, TARGET_CLASS_ID);
  exportMesh(fx.exporter, &fx.node("Empty", nullptr));
  exportMesh(fx.exporter, &fx.node("Target", &target));
  EXPECT_EQ(fx.exporter.sceneFile.getSize(), 0u);
  EXPECT_TRUE(fx.exporter.infoLog.empty());
}

TEST(ExportMesh, ObjectWithoutTriangleFormIsSkippedWithAWarning) {
  Fixture fx;
  FakeObject nurbs(GEOMOBJECT_CLASS_ID, Class_ID(0x77, 0));
  exportMesh(fx.exporter, &fx.node("Surface", &nurbs));
  EXPECT_EQ(fx.exporter.sceneFile.getSize(), 0u);
  ASSERT_EQ(fx.exporter.infoLog.lines().size(), 1u);
  EXPECT_EQ(fx.exporter.infoLog.lines()[0],
            "WARNING: Object \"Surface\" cannot be converted to a triangle mesh and is not exported");
  EXPECT_FALSE(fx.exporter.hasError());
  EXPECT_TRUE(fx.exporter.meshReferenceTable.empty());
}

TEST(ExportMesh, CubeWithSixGroupsAndOneMaterialCopiesTheWholeMesh) {
  Fixture fx;
  FakeMtl& stone = fx.material("Stone");
  FakeNode& n = fx.node("Box", &fx.object(hostCube()), &stone);
  fx.enterMaterials(n);
  exportMesh(fx.exporter, &n);

  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 1u);
  const MeshRecord& r = meshes[0];
  EXPECT_EQ(r.name(), "Box");
  EXPECT_EQ(r.materialNameList(), (std::vector<std::string>{"Stone"}));
  ASSERT_EQ(r.vertexPart().positions.size(), 24u);
  EXPECT_EQ(r.vertexPart().groups.counts(), (std::vector<std::uint32_t>{24}));
  EXPECT_EQ(r.facePart().groups.counts(), (std::vector<std::uint32_t>{12}));
  EXPECT_FALSE(r.hasMapChannel(0));
  EXPECT_FALSE(r.hasReferenceName());
  const Mesh host = hostCube();
  for (std::size_t t = 0; t < 12; ++t)
    for (int q = 0; q < 3; ++q) {
      const std::size_t v = cornerVertex(r, 0, t, q);
      EXPECT_EQ(r.vertexPart().normals[v], kFileSideNormal[t / 2]) << "triangle " << t;
      // Winding reversed: corner q is the host face's corner 2 - q, z negated.
      const Point3 h = host.verts[host.faces[t].v[2 - q]];
      EXPECT_EQ(r.vertexPart().positions[v], Point3(h.x, h.y, -h.z)) << "triangle " << t;
    }
  EXPECT_EQ(fx.exporter.meshReferenceTable.at(n.obj), "Box");
}

TEST(ExportMesh, TwoMaterialsDropUnassignedTrianglesAndNumberByFirstUse) {
  Fixture fx;
  FakeMtl& a = fx.material("A");
  FakeMtl& b = fx.material("B");
  FakeMtl& multi = fx.material("Multi", {&a, nullptr, &b});
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}, {2, 0, 0}};
  // Face ids 5 (slot 2: B), 1 (empty slot), 3 (slot 0: A), 2 (B). Host winding (a, b, c).
  const unsigned faces[4][3] = {{0, 1, 2}, {1, 3, 2}, {1, 4, 3}, {3, 4, 2}};
  const MtlID ids[4] = {5, 1, 3, 2};
  for (int t = 0; t < 4; ++t) {
    Face f;
    f.v[0] = faces[t][0];
    f.v[1] = faces[t][1];
    f.v[2] = faces[t][2];
    f.smGroup = 1;
    f.matID = ids[t];
    m.faces.push_back(f);
  }
  FakeNode& n = fx.node("Plane", &fx.object(m), &multi);
  fx.enterMaterials(n);
  exportMesh(fx.exporter, &n);

  const MeshRecord r = fx.meshes().at(0);
  EXPECT_EQ(r.materialNameList(), (std::vector<std::string>{"B", "A"}));
  EXPECT_EQ(r.facePart().groups.counts(), (std::vector<std::uint32_t>{2, 1}));
  // Group B: triangles 0 (2,1,0) and 3 (2,4,3) in file winding -> vertices 2, 1, 0, 4, 3.
  EXPECT_EQ(r.vertexPart().groups.counts(), (std::vector<std::uint32_t>{5, 3}));
  EXPECT_EQ(std::vector<std::uint16_t>(r.facePart().indices.begin(), r.facePart().indices.begin() + 6),
            (std::vector<std::uint16_t>{0, 1, 2, 0, 3, 4}));
  EXPECT_EQ(r.vertexPart().positions[0], Point3(0, 1, 0));
  EXPECT_EQ(r.vertexPart().positions[3], Point3(2, 0, 0));
  // Group A: triangle 2 (3, 4, 1) -> 0, 1, 2.
  EXPECT_EQ(std::vector<std::uint16_t>(r.facePart().indices.begin() + 6, r.facePart().indices.end()),
            (std::vector<std::uint16_t>{0, 1, 2}));
  EXPECT_EQ(r.vertexPart().positions[5], Point3(1, 1, 0));
}

TEST(ExportMesh, MirroringOffsetKeepsHostWindingOnlyWithPivotAsCenter) {
  for (bool pivot : {false, true}) {
    Fixture fx;
    fx.exporter.options.exportMaterials = false;
    fx.exporter.options.pivotAsMeshCenter = pivot;
    Mesh m;
    m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}};
    Face f;
    f.v[0] = 0;
    f.v[1] = 1;
    f.v[2] = 2;
    f.smGroup = 1;
    m.faces.push_back(f);
    m.tVerts = {{0.25f, 0.5f, 0}};
    m.tvFace.push_back({{0, 0, 0}});
    FakeMtl& mat = fx.material("M");
    FakeNode& n = fx.node("Mirror", &fx.object(m), &mat);
    n.offsetScale.s = {-1, 1, 1};
    fx.enterMaterials(n);
    fx.exporter.options.exportMaterials = true;
    exportMesh(fx.exporter, &n);
    const MeshRecord r = fx.meshes().at(0);
    const auto& p = r.vertexPart().positions;
    ASSERT_EQ(p.size(), 3u);
    if (pivot) {
      EXPECT_EQ(p[r.facePart().indices[0]], Point3(0, 0, 0)) << "host order kept";
      EXPECT_EQ(p[r.facePart().indices[1]], Point3(-1, 0, 0));
    } else {
      EXPECT_EQ(p[r.facePart().indices[0]], Point3(0, 1, 0)) << "host order reversed";
    }
    // The host's +z front becomes the file's -z front either way.
    EXPECT_EQ(r.vertexPart().normals[0], Point3(0, 0, -1));
    EXPECT_EQ(r.mapChannelPart(0).coordinates[0], Point3(0.25f, -0.5f, 0));
  }
}

TEST(ExportMesh, WithoutMaterialsOnlyEmptyPartsAreWritten) {
  Fixture fx;
  fx.exporter.options.exportMaterials = false;
  Mesh m = hostCube();
  m.tVerts = {{0, 0, 0}};
  m.tvFace.assign(12, TVFace{});
  m.vertCol = {{1, 0, 0}};
  m.vcFace.assign(12, TVFace{});
  exportMesh(fx.exporter, &fx.node("Box", &fx.object(m)));
  const MeshRecord r = fx.meshes().at(0);
  EXPECT_TRUE(r.hasVertices());
  EXPECT_TRUE(r.vertexPart().positions.empty());
  EXPECT_TRUE(r.facePart().indices.empty());
  EXPECT_TRUE(r.hasMaterialNames());
  EXPECT_TRUE(r.materialNameList().empty());
  ASSERT_TRUE(r.hasMapChannel(0));
  ASSERT_TRUE(r.hasMapChannel(1));
  EXPECT_EQ(r.mapChannelPart(1).channel, 0u);
  EXPECT_TRUE(r.mapChannelPart(1).coordinates.empty());
}

TEST(ExportMesh, VertexColoursAloneBecomeChannelZeroAndSplitInChainOrder) {
  Fixture fx;
  Mesh m;
  m.verts = {{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {1, 1, 0}};
  Face f0, f1;
  f0.v[0] = 0, f0.v[1] = 1, f0.v[2] = 2, f0.smGroup = 1;
  f1.v[0] = 1, f1.v[1] = 3, f1.v[2] = 2, f1.smGroup = 1;
  m.faces = {f0, f1};
  m.vertCol = {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {1, 1, 1}, {0.5f, 0.5f, 0.5f}};
  // Vertex 2 is red on the first face and grey on the second: one seam copy.
  m.vcFace = {TVFace{{0, 1, 0}}, TVFace{{1, 3, 4}}};
  FakeMtl& mat = fx.material("M");
  FakeNode& n = fx.node("Colours", &fx.object(m), &mat);
  fx.enterMaterials(n);
  exportMesh(fx.exporter, &n);
  const MeshRecord r = fx.meshes().at(0);
  ASSERT_TRUE(r.hasMapChannel(0));
  EXPECT_FALSE(r.hasMapChannel(1));
  const auto& c = r.mapChannelPart(0).coordinates;
  ASSERT_EQ(c.size(), 5u);
  // File corners of face 0: (2, 1, 0) with colours (red, green, red) -> (r, -g, 0).
  EXPECT_EQ(c[2], Point3(1, 0, 0));
  EXPECT_EQ(c[1], Point3(0, -1, 0));
  EXPECT_EQ(c[4], Point3(0.5f, -0.5f, 0)) << "the seam copy of vertex 2 is appended last";
  EXPECT_EQ(r.vertexPart().positions[4], Point3(0, 1, 0));
  EXPECT_EQ(r.facePart().indices[3], 4u);
}

TEST(ExportMesh, SecondNodeOfTheSameObjectIsWrittenAsAReference) {
  Fixture fx;
  FakeMtl& mat = fx.material("M");
  FakeTri& shared = fx.object(hostCube());
  FakeNode& a = fx.node("First", &shared, &mat);
  FakeNode& b = fx.node("Second", &shared, &mat);
  fx.enterMaterials(a);
  exportMesh(fx.exporter, &a);
  exportMesh(fx.exporter, &b);
  const auto meshes = fx.meshes();
  ASSERT_EQ(meshes.size(), 2u);
  EXPECT_FALSE(meshes[1].hasVertices());
  EXPECT_FALSE(meshes[1].hasMaterialNames());
  EXPECT_EQ(meshes[1].name(), "Second");
  EXPECT_EQ(meshes[1].referenceNameValue(), "First");
  EXPECT_EQ(fx.exporter.meshReferenceTable.size(), 1u);

  fx.exporter.options.saveReferencesOnce = false;
  exportMesh(fx.exporter, &b);
  EXPECT_TRUE(fx.meshes().at(2).hasVertices());
  EXPECT_EQ(fx.exporter.meshReferenceTable.at(&shared), "First") << "never replaced";
}

TEST(ExportMesh, RescaleFactorScalesPositions) {
  Fixture fx;
  fx.exporter.options.rescaleFactor = 2.5f;
  FakeMtl& mat = fx.material("M");
  FakeNode& n = fx.node("Box", &fx.object(hostCube()), &mat);
  fx.enterMaterials(n);
  exportMesh(fx.exporter, &n);
  const MeshRecord r = fx.meshes().at(0);
  for (const Point3& p : r.vertexPart().positions) {
    EXPECT_EQ(std::abs(p.x), 2.5f);
    EXPECT_EQ(std::abs(p.z), 2.5f);
  }
}

TEST(ExportMesh, OversizedGroupIsWrittenAsSeveralGroupsOfOneMaterial) {
  Fixture fx;
  Mesh m;
  const unsigned n = 70000;
  for (unsigned i = 0; i < n; ++i) m.verts.push_back({float(i), float(i % 2), 0});
  for (unsigned i = 0; i + 2 < n; ++i) {
    Face f;
    f.v[0] = i;
    f.v[1] = i + 1;
    f.v[2] = i + 2;
    f.smGroup = 1;
    m.faces.push_back(f);
  }
  FakeMtl& mat = fx.material("Long");
  FakeNode& node = fx.node("Strip", &fx.object(m), &mat);
  fx.enterMaterials(node);
  exportMesh(fx.exporter, &node);
  const MeshRecord r = fx.meshes().at(0);
  EXPECT_EQ(r.materialNameList(), (std::vector<std::string>{"Long", "Long"}));
  EXPECT_EQ(r.vertexPart().groups.counts(), (std::vector<std::uint32_t>{65536, n - 65534}));
  EXPECT_EQ(r.facePart().groups.counts(), (std::vector<std::uint32_t>{65534, n - 2 - 65534}));
  ASSERT_EQ(fx.exporter.infoLog.lines().size(), 1u);
  EXPECT_EQ(fx.exporter.infoLog.lines()[0],
            "WARNING: Object \"Strip\" material \"Long\" uses 70000 vertices, more than one group can index; written "
            "as 2 groups of that material");
  EXPECT_FALSE(fx.exporter.hasError());
}

TEST(ExportMesh, FloatingVerticesAreRemovedOnlyWithTheOption) {
  for (bool remove : {true, false}) {
    Fixture fx;
    fx.exporter.options.removeFloatingVertices = remove;
    Mesh m = hostCube();
    m.verts.push_back({9, 9, 9});  // used by no face
    FakeMtl& mat = fx.material("M");
    FakeNode& n = fx.node("Box", &fx.object(m), &mat);
    fx.enterMaterials(n);
    exportMesh(fx.exporter, &n);
    EXPECT_EQ(fx.meshes().at(0).vertexPart().positions.size(), remove ? 24u : 25u);
  }
}

// --- skinning ---

TEST(ExportMeshSkin, EachSplitCopyCarriesItsHostVertexInfluences) {
  Fixture fx;
  fx.exporter.options.exportSkinning = true;
  fx.exporter.skinBoneNames = {"Root", "Arm"};
  FakeMtl& mat = fx.material("M");
  Mesh m = hostCube();
  m.verts.insert(m.verts.begin(), {7, 7, 7});  // host vertex 0 is floating: the clean-up renumbers
  for (Face& f : m.faces)
    for (unsigned& v : f.v) ++v;
  FakeNode& n = fx.node("Skinned", &fx.object(m), &mat);
  fx.enterMaterials(n);
  std::vector<SkinVertexWeights> weights(9);
  for (int i = 1; i < 9; ++i) weights[i] = {{0, 1.0f - 0.1f * i}, {1, 0.1f * i}};
  weights[8] = {};  // host vertex 8 has no influence
  fx.exporter.skinWeightTable[&n] = weights;
  exportMesh(fx.exporter, &n);
  EXPECT_FALSE(fx.exporter.hasError());

  const MeshRecord r = fx.meshes().at(0);
  const VertexDataRecord s = fx.skd();
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Skinned"}));
  EXPECT_EQ(s.boneNames, (std::vector<std::string>{"Root", "Arm"}));
  ASSERT_EQ(s.influenceCount.size(), 24u);
  EXPECT_EQ(s.groupVertexCount(), (std::vector<std::uint32_t>{24}));
  // Find each exported vertex's host vertex by position and check its run.
  const Mesh host = m;
  std::int32_t expectedStart = 0;
  for (std::size_t v = 0; v < 24; ++v) {
    const Point3 p = r.vertexPart().positions[v];
    int hostIndex = -1;
    for (int h = 0; h < 9; ++h)
      if (host.verts[h] == Point3(p.x, p.y, -p.z)) hostIndex = h;
    ASSERT_GT(hostIndex, 0);
    const SkinVertexWeights& w = weights[hostIndex];
    EXPECT_EQ(s.influenceStart[v], expectedStart) << "vertex " << v;
    ASSERT_EQ(s.influenceCount[v], static_cast<std::int32_t>(w.size())) << "vertex " << v;
    for (std::size_t j = 0; j < w.size(); ++j) {
      EXPECT_EQ(s.influenceBone[expectedStart + j], w[j].bone);
      EXPECT_EQ(s.influenceWeight[expectedStart + j], w[j].weight);
    }
    expectedStart += static_cast<std::int32_t>(w.size());
  }
  EXPECT_EQ(s.influenceBone.size(), static_cast<std::size_t>(expectedStart));
}

TEST(ExportMeshSkin, NodeWithoutSkinEntryReportsEveryGroupAndStillSavesTheFile) {
  Fixture fx;
  fx.exporter.options.exportSkinning = true;
  FakeMtl& a = fx.material("A");
  FakeMtl& b = fx.material("B");
  FakeMtl& multi = fx.material("Multi", {&a, &b});
  Mesh m = hostCube();
  for (std::size_t t = 0; t < m.faces.size(); ++t) m.faces[t].matID = static_cast<MtlID>(t % 2);
  FakeNode& n = fx.node("Bare", &fx.object(m), &multi);
  fx.enterMaterials(n);
  exportMesh(fx.exporter, &n);
  EXPECT_TRUE(fx.exporter.hasError());
  EXPECT_EQ(fx.exporter.infoLog.lines(),
            (std::vector<std::string>{"ERROR: No skin data for skinning (object \"Bare\")",
                                      "ERROR: No skin data for skinning (object \"Bare\")"}));
  const VertexDataRecord s = fx.skd();
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Bare"}));
  EXPECT_EQ(s.groupVertexCount(), (std::vector<std::uint32_t>{0, 0}));
  EXPECT_EQ(s.groupVertexStart(), (std::vector<std::uint32_t>{0, 0}));
  EXPECT_TRUE(s.influenceStart.empty());
  EXPECT_TRUE(s.influenceBone.empty());
  EXPECT_EQ(fx.meshes().size(), 1u) << "the mesh is still written";
}

TEST(ExportMeshSkin, KeyBeyondTheSkinEntryIsReportedOnceAndGetsNoInfluence) {
  Fixture fx;
  fx.exporter.options.exportSkinning = true;
  FakeMtl& mat = fx.material("M");
  FakeNode& n = fx.node("Short", &fx.object(hostCube()), &mat);
  fx.enterMaterials(n);
  fx.exporter.skinWeightTable[&n] = std::vector<SkinVertexWeights>(6, SkinVertexWeights{{0, 1.0f}});
  exportMesh(fx.exporter, &n);
  EXPECT_TRUE(fx.exporter.hasError());
  ASSERT_EQ(fx.exporter.infoLog.lines().size(), 1u);
  EXPECT_EQ(fx.exporter.infoLog.lines()[0],
            "ERROR: Object \"Short\" vertex 6 has no skin vertex for skinning (skin vertex count 6)");
  const VertexDataRecord s = fx.skd();
  std::size_t without = 0;
  for (std::int32_t c : s.influenceCount) without += c == 0;
  EXPECT_EQ(without, 6u) << "host vertices 6 and 7 have three copies each";
}

TEST(ExportMeshSkin, NoMaterialGroupLeavesOnlyTheNames) {
  Fixture fx;
  fx.exporter.options.exportSkinning = true;
  fx.exporter.options.exportMaterials = false;
  fx.exporter.skinBoneNames = {"Bone"};
  FakeNode& n = fx.node("Plain", &fx.object(hostCube()));
  fx.exporter.skinWeightTable[&n] = std::vector<SkinVertexWeights>(8, SkinVertexWeights{{0, 1.0f}});
  exportMesh(fx.exporter, &n);
  const VertexDataRecord s = fx.skd();
  EXPECT_EQ(s.nodeNames, (std::vector<std::string>{"Plain"}));
  EXPECT_EQ(s.boneNames, (std::vector<std::string>{"Bone"}));
  EXPECT_TRUE(s.groupVertexCount().empty());
  EXPECT_TRUE(s.influenceCount.empty());
  EXPECT_FALSE(fx.exporter.hasError());
}
