// The skinning modifier's export interface in the host model: rigid,
// blended, other and missing vertices, missing interfaces and contexts,
// instanced nodes with their own contexts, and safe releases.
#include <gtest/gtest.h>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/objects.h"
#include "host/physique.h"

namespace {

using hostmodel::loadSceneFromString;
using hostmodel::SceneLoadError;

// The Physique modifier on the node's topmost derived object, as the pre-pass finds it.
Modifier* physiqueOf(INode* node) {
  Object* ref = node->GetObjectRef();
  if (!ref || ref->SuperClassID() != GEN_DERIVOB_CLASS_ID) return nullptr;
  auto* derived = static_cast<IDerivedObject*>(ref);
  for (int i = 0; i < derived->NumModifiers(); ++i)
    if (derived->GetModifier(i)->ClassID() == PHYSIQUE_CLASS_ID) return derived->GetModifier(i);
  return nullptr;
}

IPhyContextExport* contextOf(INode* node) {
  Modifier* mod = physiqueOf(node);
  if (!mod) return nullptr;
  auto* phy = static_cast<IPhysiqueExport*>(mod->GetInterface(I_PHYINTERFACE));
  return phy ? phy->GetContextInterface(node) : nullptr;
}

const char* kSkinned = R"({
  "objects": [{"id": "skin", "type": "mesh", "mesh": {"vertices": [0, 0, 0, 1, 0, 0, 0, 1, 0, 1, 1, 0], "faces": [0, 1, 2]}},
              {"id": "bone", "type": "geometry", "className": "Bone"}],
  "nodes": [
    {"name": "Root", "object": "bone", "children": [{"name": "A", "object": "bone"}, {"name": "B", "object": "bone"}]},
    {"name": "Skinned", "object": "skin", "modifiers": [
      {"type": "other", "classId": ["0x1234", 0], "className": "Edit Mesh"},
      {"type": "physique", "vertices": [
        "A",
        {"bones": ["A", "B"], "weights": [0.7, 0.3]},
        {"vertexType": 2},
        null,
        {"bone": "B"},
        {"vertexType": 1}]}]},
    {"name": "Instance", "object": "skin", "modifiers": [{"type": "physique", "vertices": ["B"]}]},
    {"name": "NoInterface", "object": "skin", "modifiers": [{"type": "physique", "exportInterface": false}]},
    {"name": "NoContext", "object": "skin", "modifiers": [{"type": "physique", "context": false}]},
    {"name": "Plain", "object": "skin"},
    {"name": "Empty", "modifiers": [{"type": "physique"}]}
  ]})";

TEST(HostModelPhysique, ObjectReferenceIsTheDerivedObjectButEvaluationGivesTheBase) {
  auto host = loadSceneFromString(kSkinned, "", "scene.json");
  INode* skinned = host->findNode("Skinned");
  Object* base = host->findObject("skin");
  ASSERT_NE(skinned->GetObjectRef(), nullptr);
  EXPECT_EQ(skinned->GetObjectRef()->SuperClassID(), GEN_DERIVOB_CLASS_ID);
  EXPECT_EQ(skinned->EvalWorldState(0).obj, base);
  auto* derived = static_cast<IDerivedObject*>(skinned->GetObjectRef());
  ASSERT_EQ(derived->NumModifiers(), 2);
  EXPECT_EQ(derived->GetModifier(0)->ClassID(), Class_ID(0x1234, 0));
  EXPECT_EQ(derived->GetModifier(0)->GetInterface(I_PHYINTERFACE), nullptr);
  EXPECT_EQ(derived->GetModifier(1)->ClassID(), PHYSIQUE_CLASS_ID);
  EXPECT_EQ(derived->GetModifier(2), nullptr);
  // Without modifiers the reference is the object itself.
  EXPECT_EQ(host->findNode("Plain")->GetObjectRef(), base);
}

TEST(HostModelPhysique, InstancesShareTheObjectButHaveTheirOwnContexts) {
  auto host = loadSceneFromString(kSkinned, "", "scene.json");
  INode* skinned = host->findNode("Skinned");
  INode* instance = host->findNode("Instance");
  EXPECT_EQ(skinned->EvalWorldState(0).obj, instance->EvalWorldState(0).obj);
  IPhyContextExport* a = contextOf(skinned);
  IPhyContextExport* b = contextOf(instance);
  ASSERT_NE(a, nullptr);
  ASSERT_NE(b, nullptr);
  EXPECT_NE(a, b);
  EXPECT_EQ(a->GetNumberVertices(), 6);
  EXPECT_EQ(b->GetNumberVertices(), 1);
  // A modifier answers only for the node it sits on.
  auto* phy = static_cast<IPhysiqueExport*>(physiqueOf(skinned)->GetInterface(I_PHYINTERFACE));
  EXPECT_EQ(phy->GetContextInterface(instance), nullptr);
  phy->ReleaseContextInterface(a);
}

TEST(HostModelPhysique, VertexKindsAnswerAsTheHostDoes) {
  auto host = loadSceneFromString(kSkinned, "", "scene.json");
  INode* skinned = host->findNode("Skinned");
  IPhyContextExport* ctx = contextOf(skinned);
  ctx->ConvertToRigid(true);
  ctx->AllowBlending(true);

  IPhyVertexExport* rigid = ctx->GetVertexInterface(0);
  ASSERT_NE(rigid, nullptr);
  EXPECT_EQ(rigid->GetVertexType(), RIGID_TYPE);
  auto* r = dynamic_cast<IPhyRigidVertex*>(rigid);
  ASSERT_NE(r, nullptr);
  EXPECT_EQ(r->GetNode(), host->findNode("A"));
  EXPECT_EQ(dynamic_cast<IPhyBlendedRigidVertex*>(rigid), nullptr);

  IPhyVertexExport* blended = ctx->GetVertexInterface(1);
  EXPECT_EQ(blended->GetVertexType(), RIGID_TYPE | BLENDED_TYPE);
  auto* b = dynamic_cast<IPhyBlendedRigidVertex*>(blended);
  ASSERT_NE(b, nullptr);
  ASSERT_EQ(b->GetNumberNodes(), 2);
  EXPECT_EQ(b->GetNode(0), host->findNode("A"));
  EXPECT_EQ(b->GetNode(1), host->findNode("B"));
  EXPECT_FLOAT_EQ(b->GetWeight(0), 0.7f);
  EXPECT_FLOAT_EQ(b->GetWeight(1), 0.3f);
  EXPECT_EQ(b->GetNode(2), nullptr);
  EXPECT_EQ(b->GetWeight(-1), 0.0f);

  IPhyVertexExport* deformable = ctx->GetVertexInterface(2);
  EXPECT_EQ(deformable->GetVertexType(), DEFORMABLE_TYPE);
  EXPECT_EQ(dynamic_cast<IPhyRigidVertex*>(deformable), nullptr);
  EXPECT_EQ(dynamic_cast<IPhyBlendedRigidVertex*>(deformable), nullptr);

  EXPECT_EQ(ctx->GetVertexInterface(3), nullptr);  // missing
  auto* rigidB = dynamic_cast<IPhyRigidVertex*>(ctx->GetVertexInterface(4));
  ASSERT_NE(rigidB, nullptr);
  EXPECT_EQ(rigidB->GetNode(), host->findNode("B"));
  // Type 1 reported, but no rigid interface behind it.
  IPhyVertexExport* odd = ctx->GetVertexInterface(5);
  EXPECT_EQ(odd->GetVertexType(), RIGID_TYPE);
  EXPECT_EQ(dynamic_cast<IPhyRigidVertex*>(odd), nullptr);
  EXPECT_EQ(ctx->GetVertexInterface(6), nullptr);
  EXPECT_EQ(ctx->GetVertexInterface(-1), nullptr);

  for (IPhyVertexExport* v : {rigid, blended, deformable, static_cast<IPhyVertexExport*>(rigidB), odd})
    ctx->ReleaseVertexInterface(v);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 0);
}

TEST(HostModelPhysique, EachRequestGivesAFreshInterfaceAndReleasesAreSafe) {
  auto host = loadSceneFromString(kSkinned, "", "scene.json");
  IPhyContextExport* ctx = contextOf(host->findNode("Skinned"));
  // The pre-pass asks twice for one vertex and releases both.
  IPhyVertexExport* first = ctx->GetVertexInterface(0);
  IPhyVertexExport* second = ctx->GetVertexInterface(0);
  EXPECT_NE(first, second);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 2);
  ctx->ReleaseVertexInterface(second);
  EXPECT_EQ(first->GetVertexType(), RIGID_TYPE);  // still usable
  ctx->ReleaseVertexInterface(first);
  ctx->ReleaseVertexInterface(first);  // twice
  ctx->ReleaseVertexInterface(nullptr);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 0);
  // Interfaces left unreleased are freed with the scene (the sanitizer build checks).
  ctx->GetVertexInterface(1);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 1);
}

TEST(HostModelPhysique, MissingInterfaceAndContextAndZeroVertices) {
  auto host = loadSceneFromString(kSkinned, "", "scene.json");
  Modifier* noInterface = physiqueOf(host->findNode("NoInterface"));
  ASSERT_NE(noInterface, nullptr);
  EXPECT_EQ(noInterface->GetInterface(I_PHYINTERFACE), nullptr);

  INode* noContextNode = host->findNode("NoContext");
  auto* phy = static_cast<IPhysiqueExport*>(physiqueOf(noContextNode)->GetInterface(I_PHYINTERFACE));
  ASSERT_NE(phy, nullptr);
  EXPECT_EQ(phy->GetContextInterface(noContextNode), nullptr);

  EXPECT_EQ(physiqueOf(host->findNode("Plain")), nullptr);

  // A node without an object may carry a Physique of no vertices.
  INode* empty = host->findNode("Empty");
  EXPECT_EQ(empty->EvalWorldState(0).obj, nullptr);
  IPhyContextExport* ctx = contextOf(empty);
  ASSERT_NE(ctx, nullptr);
  EXPECT_EQ(ctx->GetNumberVertices(), 0);
}

TEST(HostModelPhysique, BonesAreFoundByIdWhenNamesRepeat) {
  auto host = loadSceneFromString(R"({"nodes": [
      {"name": "Bone", "id": "left"}, {"name": "Bone", "id": "right"},
      {"name": "Skin", "modifiers": [{"type": "physique", "vertices": ["right", {"bone": "left"}]}]}]})",
                                  "", "scene.json");
  IPhyContextExport* ctx = contextOf(host->findNode("Skin"));
  auto* v0 = dynamic_cast<IPhyRigidVertex*>(ctx->GetVertexInterface(0));
  auto* v1 = dynamic_cast<IPhyRigidVertex*>(ctx->GetVertexInterface(1));
  EXPECT_EQ(v0->GetNode(), host->findNode("right"));
  EXPECT_EQ(v1->GetNode(), host->findNode("left"));
  EXPECT_NE(v0->GetNode(), v1->GetNode());
  EXPECT_STREQ(v0->GetNode()->GetName(), "Bone");
}

TEST(HostModelPhysique, BadBoneReferencesAreReported) {
  auto expectError = [](const std::string& json, const std::string& expected) {
    try {
      loadSceneFromString(json, "", "scene.json");
      ADD_FAILURE() << "no error";
    } catch (const SceneLoadError& e) {
      EXPECT_EQ(std::string(e.what()), expected);
    }
  };
  expectError(R"({"nodes": [{"name": "S", "modifiers": [{"type": "physique", "vertices": [{"bones": ["Nope"], "weights": [1]}]}]}]})",
              "scene.json: nodes[0].modifiers[0].vertices[0].bones[0]: no node with id \"Nope\"");
  expectError(R"({"nodes": [{"name": "B"}, {"name": "B"}, {"name": "S", "modifiers": [{"type": "physique", "vertices": ["B"]}]}]})",
              "scene.json: nodes[2].modifiers[0].vertices[0]: several nodes go by \"B\"; give them distinct \"id\" "
              "members");
  expectError(R"({"nodes": [{"name": "B"}, {"name": "S", "modifiers": [{"type": "physique", "vertices": [{"bones": ["B"], "weights": [0.5, 0.5]}]}]}]})",
              "scene.json: nodes[1].modifiers[0].vertices[0].weights: expected 1 weights, one per bone; found 2");
  expectError(R"({"nodes": [{"name": "S", "modifiers": [{"type": "physique", "vertices": [{"bone": "S", "weight": 1}]}]}]})",
              "scene.json: nodes[0].modifiers[0].vertices[0]: unknown member \"weight\" (expected one of: bone)");
  expectError(R"({"nodes": [{"name": "S", "modifiers": [{"type": "skin"}]}]})",
              "scene.json: nodes[0].modifiers[0].type: unknown modifier type \"skin\" (expected physique or other)");
}

}  // namespace
