// Reading skin weights through the skinning modifier's export interface.
// Only rigid and rigid blended vertices are accepted: the context is asked to
// convert deformable vertices to rigid ones and to allow blending first.
#include "prepass/skin_weights.h"

#include "host/inhouse/system.h"
#include "host/inode.h"
#include "host/objects.h"
#include "host/physique.h"
#include "plugin/scene_exporter.h"

namespace {

constexpr int kRigidBlendedType = RIGID_TYPE | BLENDED_TYPE;

bool isHelper(const INode* node) {
  const Object* ref = node->GetObjectRef();
  return ref && ref->SuperClassID() == HELPER_CLASS_ID;
}

bool isTopLevel(const INode* node) {
  const INode* parent = node->GetParentNode();
  return !parent || parent->IsRootNode();
}

bool isEntered(const SceneExporter& exporter, const INode* node) {
  return exporter.skinBoneIndexTable.count(node) != 0;
}

// Enters `top` with the next index, then its subtree in pre-order. Names are
// taken whole, however long.
void enterSkeleton(SceneExporter& exporter, INode* top) {
  exporter.skinBoneIndexTable.emplace(top, static_cast<int>(exporter.skinBoneIndexTable.size()));
  exporter.skinBoneNames.emplace_back(top->GetName());
  for (int i = 0; i < top->NumberOfChildren(); ++i) skinBoneIndex(exporter, top->GetChildNode(i), false);
}

SkinVertexWeights readRigid(SceneExporter& exporter, IPhyContextExport& ctx, int i, const char* nodeName) {
  SkinVertexWeights list;
  IPhyVertexExport* second = ctx.GetVertexInterface(i);
  if (!second) return list;
  if (auto* rigid = dynamic_cast<IPhyRigidVertex*>(second)) {
    INode* bone = rigid->GetNode();
    if (bone) {
      list.push_back({skinBoneIndex(exporter, bone, true), 1.0f});
      Sys->verbose("  bone \"%s\" weight %f\n", bone->GetName(), 1.0);
    } else {
      exporter.logError("ERROR: Object \"%s\" vertex %d has no bone for skinning", nodeName, i);
    }
  }
  ctx.ReleaseVertexInterface(second);
  return list;
}

SkinVertexWeights readBlended(SceneExporter& exporter, IPhyContextExport& ctx, int i, const char* nodeName) {
  SkinVertexWeights list;
  IPhyVertexExport* second = ctx.GetVertexInterface(i);
  if (!second) return list;
  if (auto* blended = dynamic_cast<IPhyBlendedRigidVertex*>(second)) {
    for (int j = 0; j < blended->GetNumberNodes(); ++j) {
      INode* bone = blended->GetNode(j);
      const float weight = blended->GetWeight(j);
      if (!bone) {
        exporter.logError("ERROR: Object \"%s\" vertex %d has no bone for skinning", nodeName, i);
        continue;
      }
      list.push_back({skinBoneIndex(exporter, bone, true), weight});
      Sys->verbose("  bone %d \"%s\" weight %f\n", j, bone->GetName(), static_cast<double>(weight));
    }
  }
  ctx.ReleaseVertexInterface(second);
  return list;
}

void readVertices(SceneExporter& exporter, INode* node, IPhyContextExport& ctx, std::vector<SkinVertexWeights>& out) {
  const char* name = node->GetName();
  ctx.ConvertToRigid(true);
  ctx.AllowBlending(true);
  for (int i = 0; i < ctx.GetNumberVertices(); ++i) {
    IPhyVertexExport* v = ctx.GetVertexInterface(i);
    if (!v) {
      exporter.logError("ERROR: Could not find vertex export %d for skinning (object \"%s\")", i, name);
      continue;
    }
    const int type = v->GetVertexType();
    Sys->verbose("Vertex %d type %d\n", i, type);
    SkinVertexWeights list;
    if (type == RIGID_TYPE) {
      list = readRigid(exporter, ctx, i, name);
    } else if (type == kRigidBlendedType) {
      list = readBlended(exporter, ctx, i, name);
    } else {
      exporter.logError(
          "ERROR: Object \"%s\" vertex %d is of invalid type (%d) for skinning (only rigid and rigid blended allowed)",
          name, i, type);
    }
    ctx.ReleaseVertexInterface(v);
    out.push_back(std::move(list));
  }
}

void readSkin(SceneExporter& exporter, INode* node, std::vector<SkinVertexWeights>& out) {
  const char* name = node->GetName();
  Modifier* mod = findPhysiqueModifier(node);
  if (!mod) return exporter.logError("ERROR: Could not find physique modifier for skinning (object \"%s\")", name);
  auto* phy = static_cast<IPhysiqueExport*>(mod->GetInterface(I_PHYINTERFACE));
  if (!phy)
    return exporter.logError("ERROR: Could not find physique export interface for skinning (object \"%s\")", name);
  IPhyContextExport* ctx = phy->GetContextInterface(node);
  if (!ctx)
    return exporter.logError("ERROR: Could not find physique context export for skinning (object \"%s\")", name);
  readVertices(exporter, node, *ctx, out);
  // The context is handed back once read; the modifier's interface needs no release.
  phy->ReleaseContextInterface(ctx);
}

}  // namespace

Modifier* findPhysiqueModifier(INode* node) {
  Object* ref = node->GetObjectRef();
  if (!ref || ref->SuperClassID() != GEN_DERIVOB_CLASS_ID) return nullptr;
  auto* derived = dynamic_cast<IDerivedObject*>(ref);
  if (!derived) return nullptr;
  for (int i = 0; i < derived->NumModifiers(); ++i) {
    Modifier* mod = derived->GetModifier(i);
    if (mod && mod->ClassID() == PHYSIQUE_CLASS_ID) return mod;
  }
  return nullptr;
}

void readSkinWeights(SceneExporter& exporter, INode* node) {
  std::vector<SkinVertexWeights> weights;
  readSkin(exporter, node, weights);
  exporter.skinWeightTable[node] = std::move(weights);
}

int skinBoneIndex(SceneExporter& exporter, INode* bone, bool climb) {
  if (isHelper(bone)) {
    INode* parent = bone->GetParentNode();
    if (!parent || parent->IsRootNode()) return 0;
    return skinBoneIndex(exporter, parent, climb);
  }
  if (const auto it = exporter.skinBoneIndexTable.find(bone); it != exporter.skinBoneIndexTable.end()) return it->second;

  INode* top = bone;
  if (climb)
    while (!isTopLevel(top)) top = top->GetParentNode();
  if (!isEntered(exporter, top)) enterSkeleton(exporter, top);

  // A bone below a helper is not reached from its skeleton's top: the part of
  // the skeleton it hangs in below the nearest helper (or entered node) is
  // entered on its own, in pre-order, with the next indices.
  if (!isEntered(exporter, bone)) {
    INode* sub = bone;
    while (!isTopLevel(sub) && !isHelper(sub->GetParentNode()) && !isEntered(exporter, sub->GetParentNode()))
      sub = sub->GetParentNode();
    enterSkeleton(exporter, sub);
  }
  return exporter.skinBoneIndexTable.at(bone);
}
