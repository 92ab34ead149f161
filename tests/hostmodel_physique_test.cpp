// The skinning modifier's export interface in the host model: rigid, blended,
// other and missing vertices, contexts per node, and releases.
#include <gtest/gtest.h>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/objects.h"
#include "host/physique.h"

namespace {

// The Physique modifier on the node's topmost derived object, as the pre-pass finds it.
Modifier* physiqueOf(INode* node) {
  Object* ref = node->GetObjectRef();
  if (!ref || ref->SuperClassID() != GEN_DERIVOB_CLASS_ID) return nullptr;
  auto* derived = static_cast<IDerivedObject*>(ref);
  for (int i = 0; i < derived->NumModifiers(); ++i)
    if (derived->GetModifier(i)->ClassID() == PHYSIQUE_CLASS_ID) return derived->GetModifier(i);
  return nullptr;
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
  auto* phy = static_cast<IPhysiqueExport*>(physiqueOf(skinned)->GetInterface(I_PHYINTERFACE));
  ASSERT_NE(phy, nullptr);
  EXPECT_EQ(phy->GetContextInterface(host->findNode("Other")), nullptr);  // not this modifier's node
  IPhyContextExport* ctx = phy->GetContextInterface(skinned);
  ASSERT_NE(ctx, nullptr);
  ctx->ConvertToRigid(true);
  ctx->AllowBlending(true);

  IPhyVertexExport* rigid = ctx->GetVertexInterface(0);
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

  IPhyVertexExport* other = ctx->GetVertexInterface(2);
  EXPECT_EQ(other->GetVertexType(), DEFORMABLE_TYPE);
  EXPECT_EQ(dynamic_cast<IPhyRigidVertex*>(other), nullptr);
  EXPECT_EQ(dynamic_cast<IPhyBlendedRigidVertex*>(other), nullptr);

  EXPECT_EQ(ctx->GetVertexInterface(3), nullptr);  // missing
  auto* rigidB = dynamic_cast<IPhyRigidVertex*>(ctx->GetVertexInterface(4));
  ASSERT_NE(rigidB, nullptr);
  EXPECT_EQ(rigidB->GetNode(), host->findNode("B"));
  IPhyVertexExport* odd = ctx->GetVertexInterface(5);  // type 1 reported, but no rigid interface behind it
  EXPECT_EQ(odd->GetVertexType(), RIGID_TYPE);
  EXPECT_EQ(dynamic_cast<IPhyRigidVertex*>(odd), nullptr);
  EXPECT_EQ(ctx->GetVertexInterface(6), nullptr);
  EXPECT_EQ(ctx->GetVertexInterface(-1), nullptr);

  // Each request hands out a fresh interface; releasing none or one twice is harmless.
  IPhyVertexExport* again = ctx->GetVertexInterface(0);
  EXPECT_NE(again, rigid);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 6);
  for (IPhyVertexExport* v : {again, rigid, blended, other, static_cast<IPhyVertexExport*>(rigidB), odd})
    ctx->ReleaseVertexInterface(v);
  ctx->ReleaseVertexInterface(rigid);
  ctx->ReleaseVertexInterface(nullptr);
  EXPECT_EQ(host->outstandingVertexInterfaces(), 0);
}

// A missing interface, context or modifier is checked through readSkinWeights
// (skin_weights_test.cpp); a node without an object is only here.
TEST(HostModelPhysique, ANodeWithoutAnObjectMayCarryAPhysiqueOfNoVertices) {
  auto host = hostmodel::loadSceneFromString(kSkinned, "", "scene.json");
  INode* empty = host->findNode("Empty");
  EXPECT_EQ(empty->EvalWorldState(0).obj, nullptr);
  auto* phy = static_cast<IPhysiqueExport*>(physiqueOf(empty)->GetInterface(I_PHYINTERFACE));
  ASSERT_NE(phy, nullptr);
  ASSERT_NE(phy->GetContextInterface(empty), nullptr);
  EXPECT_EQ(phy->GetContextInterface(empty)->GetNumberVertices(), 0);
}

}  // namespace
