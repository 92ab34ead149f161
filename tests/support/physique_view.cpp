#include "support/physique_view.h"

#include <gtest/gtest.h>

#include <cstdio>

#include "host/inode.h"
#include "host/objects.h"
#include "host/physique.h"

namespace ztx_test {

IPhysiqueExport* physiqueOf(INode* node) {
  Object* ref = node->GetObjectRef();
  if (!ref || ref->SuperClassID() != GEN_DERIVOB_CLASS_ID) return nullptr;
  auto* derived = static_cast<IDerivedObject*>(ref);
  for (int i = 0; i < derived->NumModifiers(); ++i)
    if (derived->GetModifier(i)->ClassID() == PHYSIQUE_CLASS_ID)
      return static_cast<IPhysiqueExport*>(derived->GetModifier(i)->GetInterface(I_PHYINTERFACE));
  return nullptr;
}

std::vector<std::string> physiqueVertices(INode* node, const std::function<std::string(INode*)>& label) {
  IPhysiqueExport* physique = physiqueOf(node);
  IPhyContextExport* context = physique ? physique->GetContextInterface(node) : nullptr;
  if (!context) return {"no context"};
  const auto name = [&](INode* n) { return n ? label(n) : std::string("none"); };
  std::vector<std::string> out;
  for (int i = -1; i <= context->GetNumberVertices(); ++i) {
    IPhyVertexExport* v = context->GetVertexInterface(i);
    if (!v) {
      out.push_back("none");
      continue;
    }
    std::string text = "type " + std::to_string(v->GetVertexType());
    if (auto* rigid = dynamic_cast<IPhyRigidVertex*>(v)) text += " rigid " + name(rigid->GetNode());
    if (auto* blended = dynamic_cast<IPhyBlendedRigidVertex*>(v)) {
      text += " blended";
      for (int k = 0; k < blended->GetNumberNodes(); ++k) {
        char weight[32];
        std::snprintf(weight, sizeof weight, " %g", blended->GetWeight(k));
        text += " " + name(blended->GetNode(k)) + weight;
      }
      EXPECT_EQ(blended->GetNode(blended->GetNumberNodes()), nullptr) << text;
      EXPECT_EQ(blended->GetWeight(-1), 0.0f) << text;
    }
    out.push_back(text);
    context->ReleaseVertexInterface(v);
  }
  return out;
}

}  // namespace ztx_test
