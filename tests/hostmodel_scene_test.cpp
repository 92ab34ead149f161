// Loading whole scenes: node tree and flags, object kinds, instances,
// materials and texture maps, and the example scene shipped with the project.
#include <gtest/gtest.h>

#include <functional>
#include <filesystem>
#include <set>

#include "host/inode.h"
#include "host/material.h"
#include "host/memory/memory_host.h"
#include "host/mesh.h"
#include "host/objects.h"
#include "host/physique.h"
#include "support/test_support.h"

namespace {

using hostmodel::loadSceneFromString;

inline constexpr Class_ID kZTMaterial{0x62af033c, 0x48255d2d};
inline constexpr Class_ID kZTTexture{0x419c2263, 0x450a2d14};

std::string classNameOf(Object* obj) {
  std::string s;
  obj->GetClassName(s);
  return s;
}

TEST(HostModelScene, NodesKeepOrderFlagsAndProperties) {
  auto host = loadSceneFromString(R"({"nodes": [
      {"name": "Group", "groupHead": true, "openGroupHead": true, "children": [
        {"name": "Member", "groupMember": true, "openGroupMember": true, "hidden": true,
         "userProperties": "a=1\r\nb=2"}]},
      {"name": "Second"}]})",
                                  "", "scene.json");
  INode* root = host->GetRootNode();
  ASSERT_EQ(root->NumberOfChildren(), 2);
  EXPECT_STREQ(root->GetChildNode(0)->GetName(), "Group");
  EXPECT_STREQ(root->GetChildNode(1)->GetName(), "Second");
  EXPECT_EQ(root->GetChildNode(2), nullptr);
  EXPECT_EQ(root->GetParentNode(), nullptr);
  INode* group = root->GetChildNode(0);
  EXPECT_TRUE(group->IsGroupHead());
  EXPECT_TRUE(group->IsOpenGroupHead());
  EXPECT_FALSE(group->IsGroupMember());
  EXPECT_FALSE(group->IsNodeHidden());
  INode* member = group->GetChildNode(0);
  EXPECT_EQ(member->GetParentNode(), group);
  EXPECT_FALSE(member->IsRootNode());
  EXPECT_TRUE(member->IsGroupMember());
  EXPECT_TRUE(member->IsOpenGroupMember());
  EXPECT_FALSE(member->IsGroupHead());
  EXPECT_TRUE(member->IsNodeHidden(false));
  std::string props;
  member->GetUserPropBuffer(props);
  EXPECT_EQ(props, "a=1\r\nb=2");
  // A node without object evaluates to none.
  EXPECT_EQ(group->EvalWorldState(0).obj, nullptr);
  EXPECT_EQ(group->GetObjectRef(), nullptr);
  EXPECT_EQ(group->GetMtl(), nullptr);
}

TEST(HostModelScene, HiddenFlagIsNotInherited) {
  auto host = loadSceneFromString(R"({"nodes": [{"name": "P", "hidden": true, "children": [{"name": "C"}]}]})", "",
                                  "scene.json");
  EXPECT_TRUE(host->findNode("P")->IsNodeHidden());
  EXPECT_FALSE(host->findNode("C")->IsNodeHidden());
}

TEST(HostModelScene, ObjectKindsByIdentity) {
  auto host = loadSceneFromString(R"({"nodes": [
      {"name": "Spline", "object": {"type": "shape"}},
      {"name": "Dummy", "object": {"type": "helper"}},
      {"name": "Point", "object": {"type": "helper", "className": "Point", "classId": ["0x2ec53", 0]}},
      {"name": "Target", "object": {"type": "target"}},
      {"name": "Particles", "object": {"type": "other", "superClassId": "0x60", "className": "Spray"}},
      {"name": "Camera", "object": {"type": "camera", "fovDegrees": 90, "hither": 0.5, "yon": 200}}]})",
                                  "", "scene.json");
  Object* spline = host->findNode("Spline")->EvalWorldState(0).obj;
  EXPECT_EQ(spline->SuperClassID(), SHAPE_CLASS_ID);
  EXPECT_EQ(classNameOf(spline), "Line");
  EXPECT_EQ(host->findNode("Dummy")->EvalWorldState(0).obj->SuperClassID(), HELPER_CLASS_ID);
  EXPECT_EQ(classNameOf(host->findNode("Dummy")->EvalWorldState(0).obj), "Dummy");
  Object* point = host->findNode("Point")->EvalWorldState(0).obj;
  EXPECT_EQ(classNameOf(point), "Point");
  EXPECT_EQ(point->ClassID(), Class_ID(0x2ec53, 0));
  Object* target = host->findNode("Target")->EvalWorldState(0).obj;
  EXPECT_EQ(target->SuperClassID(), GEOMOBJECT_CLASS_ID);
  EXPECT_EQ(target->ClassID(), TARGET_CLASS_ID);
  EXPECT_FALSE(target->CanConvertToType(TRIOBJ_CLASS_ID));
  Object* particles = host->findNode("Particles")->EvalWorldState(0).obj;
  EXPECT_EQ(particles->SuperClassID(), 0x60u);
  EXPECT_EQ(classNameOf(particles), "Spray");

  auto* camera = static_cast<CameraObject*>(host->findNode("Camera")->EvalWorldState(0).obj);
  EXPECT_EQ(camera->SuperClassID(), CAMERA_CLASS_ID);
  CameraState cs;
  Interval valid = FOREVER;
  camera->EvalCameraState(0, valid, cs);
  EXPECT_NEAR(cs.fov, 1.5707963f, 1e-6f);
  EXPECT_FLOAT_EQ(cs.hither, 0.5f);
  EXPECT_FLOAT_EQ(cs.yon, 200.0f);
  EXPECT_EQ(valid, FOREVER);
}

TEST(HostModelScene, LightStatesAtATick) {
  auto host = loadSceneFromString(R"({"nodes": [
      {"name": "Spot", "object": {"type": "light", "lightType": "spot", "color": [1, 0.5, 0.25],
       "multiplier": {"keys": [{"frame": 0, "value": 1}, {"frame": 10, "value": -1}]},
       "hotspotDegrees": 20, "falloffDegrees": 30, "attenuationStart": 5, "attenuationEnd": 50}},
      {"name": "Sun", "object": {"type": "light", "lightType": "directional"}},
      {"name": "Fill", "object": {"type": "light", "lightType": "ambient"}}]})",
                                  "", "scene.json");
  auto* spot = static_cast<LightObject*>(host->findNode("Spot")->EvalWorldState(0).obj);
  LightState ls;
  Interval valid = FOREVER;
  spot->EvalLightState(800, valid, ls);
  EXPECT_EQ(ls.type, SPOT_LIGHT);
  EXPECT_FLOAT_EQ(ls.color.g, 0.5f);
  EXPECT_FLOAT_EQ(ls.intens, 0.0f);
  EXPECT_FLOAT_EQ(ls.hotsize, 20.0f);
  EXPECT_FLOAT_EQ(ls.fallsize, 30.0f);
  EXPECT_FLOAT_EQ(ls.attenStart, 5.0f);
  EXPECT_FLOAT_EQ(ls.attenEnd, 50.0f);
  EXPECT_EQ(valid, Interval(800, 800));
  spot->EvalLightState(1600, valid, ls);
  EXPECT_FLOAT_EQ(ls.intens, -1.0f);

  LightState sun;
  static_cast<LightObject*>(host->findNode("Sun")->EvalWorldState(0).obj)->EvalLightState(0, valid, sun);
  EXPECT_EQ(sun.type, DIRECT_LIGHT);
  EXPECT_FLOAT_EQ(sun.intens, 1.0f);
  LightState fill;
  static_cast<LightObject*>(host->findNode("Fill")->EvalWorldState(0).obj)->EvalLightState(0, valid, fill);
  EXPECT_EQ(fill.type, AMBIENT_LIGHT);
}

TEST(HostModelScene, InstancedNodesShareTheirObject) {
  auto host = loadSceneFromString(R"({"objects": [{"id": "h", "type": "helper"}],
      "nodes": [{"name": "A", "object": "h"}, {"name": "B", "object": "h"}, {"name": "C", "object": {"type": "helper"}}]})",
                                  "", "scene.json");
  Object* a = host->findNode("A")->EvalWorldState(0).obj;
  EXPECT_EQ(a, host->findObject("h"));
  EXPECT_EQ(a, host->findNode("B")->EvalWorldState(160).obj);
  EXPECT_NE(a, host->findNode("C")->EvalWorldState(0).obj);
}

TEST(HostModelScene, MaterialsSubMaterialsAndParameters) {
  auto host = loadSceneFromString(R"({
      "texmaps": [{"id": "t", "type": "ztTexture", "name": "Tex", "files": ["a.png", "b.png"],
                   "params": {"mapFileName": "a.png", "mode": 3}}],
      "materials": [
        {"id": "multi", "type": "multi", "name": "Multi", "subMaterials": ["a", null, "b"]},
        {"id": "a", "type": "ztMaterial", "name": "A", "diffuse": [1, 0, 0], "texmaps": ["t", null, {"type": "bitmap", "name": "Inline"}],
         "params": {"plainLayerMode": 1, "value1": 0.5, "flag1": true, "label": "x"}},
        {"id": "b", "type": "standard"},
        {"id": "odd", "type": "other", "classId": [1, 2], "name": "Odd"}],
      "nodes": [{"name": "N", "material": "multi"}, {"name": "M", "material": {"type": "standard", "name": "Inline"}}]})",
                                  "/scenes", "scene.json");
  Mtl* multi = host->findNode("N")->GetMtl();
  ASSERT_EQ(multi, host->findMaterial("multi"));
  EXPECT_EQ(multi->GetName(), "Multi");
  EXPECT_EQ(multi->ClassID(), MULTI_CLASS_ID);
  ASSERT_EQ(multi->NumSubMtls(), 3);
  EXPECT_EQ(multi->GetSubMtl(0), host->findMaterial("a"));
  EXPECT_EQ(multi->GetSubMtl(1), nullptr);
  EXPECT_EQ(multi->GetSubMtl(3), nullptr);

  Mtl* a = host->findMaterial("a");
  EXPECT_EQ(a->ClassID(), kZTMaterial);
  EXPECT_EQ(a->NumSubMtls(), 0);
  EXPECT_FLOAT_EQ(a->GetDiffuse().r, 1.0f);
  int i = 0;
  float f = 0;
  std::string s;
  EXPECT_TRUE(a->GetParamInt("plainLayerMode", i));
  EXPECT_EQ(i, 1);
  EXPECT_TRUE(a->GetParamFloat("plainLayerMode", f));  // integers answer as floats too
  EXPECT_TRUE(a->GetParamFloat("value1", f));
  EXPECT_FLOAT_EQ(f, 0.5f);
  EXPECT_FALSE(a->GetParamInt("value1", i));  // but floats never as integers
  EXPECT_TRUE(a->GetParamInt("flag1", i));
  EXPECT_EQ(i, 1);
  EXPECT_TRUE(a->GetParamString("label", s));
  EXPECT_EQ(s, "x");
  EXPECT_FALSE(a->GetParamInt("absent", i));

  ASSERT_EQ(a->NumSubTexmaps(), 3);
  Texmap* t = a->GetSubTexmap(0);
  ASSERT_EQ(t, host->findTexmap("t"));
  EXPECT_EQ(t->ClassID(), kZTTexture);
  EXPECT_EQ(t->GetName(), "Tex");
  ASSERT_EQ(t->NumFiles(), 2);
  EXPECT_EQ(t->GetFile(1), "/scenes/b.png");
  EXPECT_EQ(t->GetFile(2), "");
  EXPECT_TRUE(t->GetParamString("mapFileName", s));
  EXPECT_EQ(s, "a.png");
  EXPECT_EQ(a->GetSubTexmap(1), nullptr);
  EXPECT_NE(a->GetSubTexmap(2)->ClassID(), kZTTexture);
  EXPECT_EQ(a->GetSubTexmap(7), nullptr);

  EXPECT_EQ(host->findMaterial("b")->ClassID(), DMTL_CLASS_ID);
  EXPECT_EQ(host->findMaterial("b")->GetName(), "b");
  EXPECT_EQ(host->findMaterial("odd")->ClassID(), Class_ID(1, 2));
  EXPECT_EQ(host->findNode("M")->GetMtl()->GetName(), "Inline");
}

// --- the example scene ---

void walk(INode* node, const std::function<void(INode*)>& visit) {
  visit(node);
  for (int i = 0; i < node->NumberOfChildren(); ++i) walk(node->GetChildNode(i), visit);
}

bool hasPhysique(INode* node) {
  Object* ref = node->GetObjectRef();
  if (!ref || ref->SuperClassID() != GEN_DERIVOB_CLASS_ID) return false;
  auto* derived = static_cast<IDerivedObject*>(ref);
  for (int i = 0; i < derived->NumModifiers(); ++i)
    if (derived->GetModifier(i)->ClassID() == PHYSIQUE_CLASS_ID) return true;
  return false;
}

TEST(HostModelScene, ExampleSceneExportsCleanlyWithDefaultOptions) {
  auto host = hostmodel::loadScene(ztx_test::sourcePath("examples/example.scene.json"));
  EXPECT_EQ(host->GetFrameRate(), 30);
  EXPECT_EQ(host->GetAnimRange(), Interval(0, 30 * 160));

  // What the pre-pass asks of every examined node (hidden nodes removed):
  // a unique name, a material on geometry and shapes, a Physique modifier.
  std::set<std::string> names;
  int examined = 0, hidden = 0;
  walk(host->GetRootNode(), [&](INode* node) {
    if (node->IsRootNode()) return;
    EXPECT_TRUE(names.insert(node->GetName()).second) << "duplicate name " << node->GetName();
    if (node->IsNodeHidden()) {
      ++hidden;
      return;
    }
    ++examined;
    EXPECT_TRUE(hasPhysique(node)) << node->GetName();
    Object* obj = node->EvalWorldState(0).obj;
    if (obj && obj->ClassID() != TARGET_CLASS_ID &&
        (obj->SuperClassID() == GEOMOBJECT_CLASS_ID || obj->SuperClassID() == SHAPE_CLASS_ID)) {
      EXPECT_NE(node->GetMtl(), nullptr) << node->GetName();
    }
  });
  EXPECT_EQ(examined, 9);
  EXPECT_EQ(hidden, 4);

  // The two characters share one mesh, each with its own skin context whose
  // vertices match the mesh.
  INode* character = host->findNode("Character");
  INode* copy = host->findNode("CharacterCopy");
  Object* mesh = character->EvalWorldState(0).obj;
  ASSERT_EQ(mesh, copy->EvalWorldState(0).obj);
  const Mesh& m = static_cast<TriObject*>(mesh)->GetMesh();
  EXPECT_GT(m.getNumTVerts(), 0);
  EXPECT_GT(m.getNumVertCol(), 0);
  for (INode* node : {character, copy}) {
    auto* derived = static_cast<IDerivedObject*>(node->GetObjectRef());
    auto* phy = static_cast<IPhysiqueExport*>(derived->GetModifier(0)->GetInterface(I_PHYINTERFACE));
    ASSERT_NE(phy, nullptr);
    IPhyContextExport* ctx = phy->GetContextInterface(node);
    ASSERT_NE(ctx, nullptr);
    EXPECT_EQ(ctx->GetNumberVertices(), m.getNumVerts());
  }
  Mtl* body = character->GetMtl();
  ASSERT_EQ(body->NumSubMtls(), 2);
  for (int i = 0; i < 2; ++i) EXPECT_EQ(body->GetSubMtl(i)->ClassID(), kZTMaterial);
  // Texture files the example names are there.
  Texmap* tex = body->GetSubMtl(1)->GetSubTexmap(0);
  ASSERT_NE(tex, nullptr);
  EXPECT_TRUE(std::filesystem::exists(tex->GetFile(0))) << tex->GetFile(0);
  EXPECT_NE(character->GetTimeRange(TIMERANGE_ALL), NEVER);
}

}  // namespace

namespace {

TEST(HostModelScene, TheDocumentedSmallSceneLoads) {
  const std::string doc = ztx_test::readText(ztx_test::sourcePath("docs/scene-format.md"));
  const std::size_t section = doc.find("## A complete small scene");
  ASSERT_NE(section, std::string::npos);
  const std::size_t begin = doc.find("```json\n", section);
  const std::size_t end = doc.find("```", begin + 8);
  ASSERT_NE(begin, std::string::npos);
  ASSERT_NE(end, std::string::npos);
  auto host = hostmodel::loadSceneFromString(doc.substr(begin + 8, end - begin - 8), "", "scene-format.md");
  INode* triangle = host->findNode("Triangle");
  ASSERT_NE(triangle, nullptr);
  EXPECT_EQ(triangle->GetTimeRange(TIMERANGE_ALL), Interval(0, 4800));
  EXPECT_NEAR(triangle->GetNodeTM(2400).GetTrans().z, 2.5f, 1e-6f);
}

}  // namespace
