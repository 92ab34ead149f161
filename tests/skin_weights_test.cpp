// readSkinWeights, findPhysiqueModifier and skinBoneIndex through small fakes
// of the skinning modifier's export interface.
#include <gtest/gtest.h>

#include <memory>

#include "host/inhouse/system.h"
#include "host/inode.h"
#include "host/objects.h"
#include "host/physique.h"
#include "plugin/scene_exporter.h"
#include "prepass/skin_weights.h"

namespace {

class FakeObject : public Object {
 public:
  explicit FakeObject(SClass_ID s) : super_(s) {}
  SClass_ID SuperClassID() const override { return super_; }
  Class_ID ClassID() const override { return Class_ID(1, 0); }
  void GetClassName(std::string& s) const override { s = "Thing"; }

 private:
  SClass_ID super_;
};

struct FakeRigid : IPhyRigidVertex {
  INode* bone = nullptr;
  int GetVertexType() override { return RIGID_TYPE; }
  INode* GetNode() override { return bone; }
};

struct FakeBlended : IPhyBlendedRigidVertex {
  std::vector<std::pair<INode*, float>> bones;
  int GetVertexType() override { return RIGID_TYPE | BLENDED_TYPE; }
  int GetNumberNodes() override { return static_cast<int>(bones.size()); }
  INode* GetNode(int i) override { return bones[i].first; }
  float GetWeight(int i) override { return bones[i].second; }
};

struct FakeOther : IPhyVertexExport {
  int type = DEFORMABLE_TYPE;
  int GetVertexType() override { return type; }
};

struct FakeContext : IPhyContextExport {
  std::vector<std::unique_ptr<IPhyVertexExport>> vertices;  // null entry: no interface
  bool rigid = false, blending = false;
  int handedOut = 0, released = 0;
  void ConvertToRigid(bool f) override { rigid = f; }
  void AllowBlending(bool f) override { blending = f; }
  int GetNumberVertices() override { return static_cast<int>(vertices.size()); }
  IPhyVertexExport* GetVertexInterface(int i) override {
    if (vertices[i]) ++handedOut;
    return vertices[i].get();
  }
  void ReleaseVertexInterface(IPhyVertexExport*) override { ++released; }
};

struct FakePhysique : IPhysiqueExport {
  FakeContext* context = nullptr;
  IPhyContextExport* GetContextInterface(INode*) override { return context; }
  void ReleaseContextInterface(IPhyContextExport*) override {}
};

class FakeModifier : public Modifier {
 public:
  Class_ID cls = PHYSIQUE_CLASS_ID;
  FakePhysique* physique = nullptr;
  SClass_ID SuperClassID() const override { return 0x810; }
  Class_ID ClassID() const override { return cls; }
  void GetClassName(std::string& s) const override { s = "Physique"; }
  void* GetInterface(unsigned long id) override { return id == I_PHYINTERFACE ? physique : nullptr; }
};

class FakeDerived : public IDerivedObject {
 public:
  std::vector<Modifier*> modifiers;
  SClass_ID SuperClassID() const override { return GEN_DERIVOB_CLASS_ID; }
  Class_ID ClassID() const override { return Class_ID(0xf, 0); }
  void GetClassName(std::string& s) const override { s = "Derived"; }
  int NumModifiers() const override { return static_cast<int>(modifiers.size()); }
  Modifier* GetModifier(int i) const override { return modifiers[i]; }
};

class FakeNode : public INode {
 public:
  std::string name;
  FakeNode* parent = nullptr;
  std::vector<FakeNode*> children;
  bool root = false;
  Object* ref = nullptr;

  const char* GetName() const override { return name.c_str(); }
  bool IsRootNode() const override { return root; }
  INode* GetParentNode() const override { return parent; }
  int NumberOfChildren() const override { return static_cast<int>(children.size()); }
  INode* GetChildNode(int i) const override { return children[i]; }
  bool IsNodeHidden(bool) const override { return false; }
  bool IsGroupMember() const override { return false; }
  bool IsGroupHead() const override { return false; }
  bool IsOpenGroupMember() const override { return false; }
  bool IsOpenGroupHead() const override { return false; }
  Matrix3 GetNodeTM(TimeValue) const override { return Matrix3(); }
  Matrix3 GetObjectTM(TimeValue) const override { return Matrix3(); }
  Point3 GetObjOffsetPos() const override { return {}; }
  Quat GetObjOffsetRot() const override { return {}; }
  ScaleValue GetObjOffsetScale() const override { return {}; }
  void GetUserPropBuffer(std::string& buf) const override { buf.clear(); }
  Mtl* GetMtl() const override { return nullptr; }
  ObjectState EvalWorldState(TimeValue, bool) const override { return {ref}; }
  Object* GetObjectRef() const override { return ref; }
  Interval GetTimeRange(unsigned int) const override { return FOREVER; }
  bool GetInheritVisibility() const override { return true; }
  float GetLocalVisibility(TimeValue) const override { return 1.0f; }
  float GetVisibility(TimeValue) const override { return 1.0f; }
};

// A scene root with a skeleton R (A (A1), B) and a skinned mesh node "Body".
struct Rig {
  SceneExporter exporter;
  FakeObject bone{GEOMOBJECT_CLASS_ID};
  FakeObject helper{HELPER_CLASS_ID};
  std::vector<std::unique_ptr<FakeNode>> nodes;
  FakeNode root;
  FakeContext context;
  FakePhysique physique;
  FakeModifier modifier;
  FakeDerived derived;
  FakeNode* body = nullptr;

  Rig() {
    root.name = "Scene Root";
    root.root = true;
    physique.context = &context;
    modifier.physique = &physique;
    derived.modifiers = {&modifier};
    body = &add("Body", &root, &derived);
  }
  FakeNode& add(const std::string& name, FakeNode* parent, Object* ref = nullptr) {
    nodes.push_back(std::make_unique<FakeNode>());
    FakeNode& n = *nodes.back();
    n.name = name;
    n.parent = parent;
    n.ref = ref ? ref : &bone;
    parent->children.push_back(&n);
    return n;
  }
  void rigid(INode* boneNode) {
    auto v = std::make_unique<FakeRigid>();
    v->bone = boneNode;
    context.vertices.push_back(std::move(v));
  }
  void blended(std::vector<std::pair<INode*, float>> bones) {
    auto v = std::make_unique<FakeBlended>();
    v->bones = std::move(bones);
    context.vertices.push_back(std::move(v));
  }
  const std::vector<SkinVertexWeights>& weights() { return exporter.skinWeightTable.at(body); }
  const std::vector<std::string>& log() { return exporter.infoLog.lines(); }
};

bool samePairs(const SkinVertexWeights& w, std::vector<std::pair<int, float>> expected) {
  if (w.size() != expected.size()) return false;
  for (std::size_t i = 0; i < w.size(); ++i)
    if (w[i].bone != expected[i].first || w[i].weight != expected[i].second) return false;
  return true;
}

}  // namespace

TEST(SkinWeights, FirstBoneMetEntersTheWholeSkeletonInPreOrder) {
  Rig rig;
  FakeNode& r = rig.add("R", &rig.root);
  FakeNode& a = rig.add("A", &r);
  FakeNode& a1 = rig.add("A1", &a);
  rig.add("B", &r);
  rig.rigid(&a1);
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.exporter.skinBoneNames, (std::vector<std::string>{"R", "A", "A1", "B"}));
  ASSERT_EQ(rig.weights().size(), 1u);
  EXPECT_TRUE(samePairs(rig.weights()[0], {{2, 1.0f}}));
  EXPECT_TRUE(rig.context.rigid);
  EXPECT_TRUE(rig.context.blending);
  EXPECT_EQ(rig.context.handedOut, rig.context.released);
  EXPECT_TRUE(rig.log().empty());
  EXPECT_FALSE(rig.exporter.hasError());
}

TEST(SkinWeights, BlendedVertexKeepsPairsAsTheyStand) {
  Rig rig;
  FakeNode& a = rig.add("A", &rig.root);
  FakeNode& b = rig.add("B", &rig.root);
  rig.blended({{&a, 0.7f}, {&b, 0.3f}});
  rig.blended({{&b, 0.0f}, {&a, 2.0f}});
  readSkinWeights(rig.exporter, rig.body);
  ASSERT_EQ(rig.weights().size(), 2u);
  EXPECT_TRUE(samePairs(rig.weights()[0], {{0, 0.7f}, {1, 0.3f}}));
  EXPECT_TRUE(samePairs(rig.weights()[1], {{1, 0.0f}, {0, 2.0f}})) << "not normalised, zero weights kept";
  EXPECT_EQ(rig.exporter.skinBoneNames, (std::vector<std::string>{"A", "B"}));
}

TEST(SkinWeights, HelperTakesItsParentsIndex) {
  Rig rig;
  FakeNode& r = rig.add("R", &rig.root);
  FakeNode& a = rig.add("A", &r);
  FakeNode& h = rig.add("H", &a, &rig.helper);
  FakeNode& top = rig.add("TopHelper", &rig.root, &rig.helper);
  rig.rigid(&h);
  rig.rigid(&top);
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_TRUE(samePairs(rig.weights()[0], {{1, 1.0f}}));
  EXPECT_TRUE(samePairs(rig.weights()[1], {{0, 1.0f}}));
  EXPECT_EQ(rig.exporter.skinBoneNames, (std::vector<std::string>{"R", "A"})) << "helpers are never entered";
}

TEST(SkinWeights, BoneBelowAHelperEntersItsPartOfTheSkeletonNext) {
  Rig rig;
  FakeNode& r = rig.add("R", &rig.root);
  FakeNode& a = rig.add("A", &r);
  FakeNode& h = rig.add("H", &a, &rig.helper);
  FakeNode& b = rig.add("B", &h);
  FakeNode& c = rig.add("C", &b);
  rig.add("D", &b);
  rig.rigid(&c);
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.exporter.skinBoneNames, (std::vector<std::string>{"R", "A", "B", "C", "D"}));
  EXPECT_TRUE(samePairs(rig.weights()[0], {{3, 1.0f}}));
}

TEST(SkinWeights, SecondSkeletonFollowsWithTheNextIndices) {
  Rig rig;
  FakeNode& r = rig.add("R", &rig.root);
  rig.add("A", &r);
  FakeNode& s = rig.add("S", &rig.root);
  FakeNode& s1 = rig.add("S1", &s);
  rig.rigid(&s1);
  rig.rigid(&r);
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.exporter.skinBoneNames, (std::vector<std::string>{"S", "S1", "R", "A"}));
  EXPECT_TRUE(samePairs(rig.weights()[1], {{2, 1.0f}}));
}

TEST(SkinWeights, LongBoneNamesAreTakenWhole) {
  Rig rig;
  const std::string longName(300, 'x');
  rig.rigid(&rig.add(longName, &rig.root));
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.exporter.skinBoneNames.at(0), longName);
}

TEST(SkinWeights, MissingModifierGivesAnErrorAndAnEmptyEntry) {
  Rig rig;
  FakeNode& plain = rig.add("Plain", &rig.root);
  readSkinWeights(rig.exporter, &plain);
  EXPECT_EQ(rig.log(),
            (std::vector<std::string>{"ERROR: Could not find physique modifier for skinning (object \"Plain\")"}));
  EXPECT_TRUE(rig.exporter.hasError());
  EXPECT_TRUE(rig.exporter.skinWeightTable.at(&plain).empty());
}

TEST(SkinWeights, ModifierBelowTheTopmostDerivedObjectIsNotFound) {
  Rig rig;
  FakeDerived outer;
  FakeModifier other;
  other.cls = Class_ID(0x55, 0);
  outer.modifiers = {&other};
  rig.body->ref = &outer;
  EXPECT_EQ(findPhysiqueModifier(rig.body), nullptr);
  rig.body->ref = &rig.derived;
  EXPECT_EQ(findPhysiqueModifier(rig.body), &rig.modifier);
}

TEST(SkinWeights, MissingExportInterfaceOrContextIsReported) {
  Rig rig;
  rig.physique.context = nullptr;
  readSkinWeights(rig.exporter, rig.body);
  rig.modifier.physique = nullptr;
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.log(),
            (std::vector<std::string>{"ERROR: Could not find physique context export for skinning (object \"Body\")",
                                      "ERROR: Could not find physique export interface for skinning (object \"Body\")"}));
  EXPECT_TRUE(rig.weights().empty());
}

TEST(SkinWeights, MissingVertexInterfaceSkipsTheVertexAndBadTypesStayEmpty) {
  Rig rig;
  FakeNode& a = rig.add("A", &rig.root);
  rig.rigid(&a);
  rig.context.vertices.push_back(nullptr);
  rig.context.vertices.push_back(std::make_unique<FakeOther>());
  rig.rigid(&a);
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.log(), (std::vector<std::string>{
                           "ERROR: Could not find vertex export 1 for skinning (object \"Body\")",
                           "ERROR: Object \"Body\" vertex 2 is of invalid type (2) for skinning (only rigid and rigid "
                           "blended allowed)"}));
  ASSERT_EQ(rig.weights().size(), 3u) << "no element for the vertex without interface";
  EXPECT_TRUE(rig.weights()[1].empty());
  EXPECT_TRUE(samePairs(rig.weights()[2], {{0, 1.0f}}));
  EXPECT_EQ(rig.context.handedOut, rig.context.released);
}

TEST(SkinWeights, ZeroVerticesGiveAnEmptyEntryAndNoMessage) {
  Rig rig;
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_TRUE(rig.log().empty());
  ASSERT_EQ(rig.exporter.skinWeightTable.count(rig.body), 1u);
  EXPECT_TRUE(rig.weights().empty());
}

TEST(SkinWeights, ReadingAgainReplacesTheEntry) {
  Rig rig;
  FakeNode& a = rig.add("A", &rig.root);
  rig.rigid(&a);
  rig.rigid(&a);
  readSkinWeights(rig.exporter, rig.body);
  rig.context.vertices.pop_back();
  readSkinWeights(rig.exporter, rig.body);
  EXPECT_EQ(rig.weights().size(), 1u);
}

TEST(SkinWeights, VerboseTraceListsVerticesAndBones) {
  Rig rig;
  FakeNode& a = rig.add("A", &rig.root);
  FakeNode& b = rig.add("B", &rig.root);
  rig.rigid(&a);
  rig.blended({{&b, 0.5f}});
  std::string trace;
  Sys->setVerboseSink([&](const std::string& s) { trace += s; });
  readSkinWeights(rig.exporter, rig.body);
  Sys->setVerboseSink(nullptr);
  EXPECT_EQ(trace,
            "Vertex 0 type 1\n  bone \"A\" weight 1.000000\nVertex 1 type 5\n  bone 0 \"B\" weight 0.500000\n");
}
