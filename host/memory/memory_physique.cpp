#include "host/memory/memory_physique.h"

namespace hostmodel {
namespace {

class RigidVertexExport : public IPhyRigidVertex {
 public:
  explicit RigidVertexExport(INode* bone) : bone_(bone) {}
  int GetVertexType() override { return RIGID_TYPE; }
  INode* GetNode() override { return bone_; }

 private:
  INode* bone_;
};

class BlendedVertexExport : public IPhyBlendedRigidVertex {
 public:
  explicit BlendedVertexExport(const PhysiqueVertex& v) : vertex_(v) {}
  int GetVertexType() override { return RIGID_TYPE | BLENDED_TYPE; }
  int GetNumberNodes() override { return static_cast<int>(vertex_.bones.size()); }
  INode* GetNode(int i) override { return inRange(i) ? vertex_.bones[i] : nullptr; }
  float GetWeight(int i) override { return inRange(i) ? vertex_.weights[i] : 0.0f; }

 private:
  bool inRange(int i) const { return i >= 0 && i < static_cast<int>(vertex_.bones.size()); }
  const PhysiqueVertex& vertex_;
};

class OtherVertexExport : public IPhyVertexExport {
 public:
  explicit OtherVertexExport(int type) : type_(type) {}
  int GetVertexType() override { return type_; }

 private:
  int type_;
};

}  // namespace

MemoryPhysiqueContext::MemoryPhysiqueContext(std::vector<PhysiqueVertex> vertices)
    : vertices_(std::move(vertices)) {}

MemoryPhysiqueContext::~MemoryPhysiqueContext() = default;

IPhyVertexExport* MemoryPhysiqueContext::GetVertexInterface(int i) {
  if (i < 0 || i >= static_cast<int>(vertices_.size())) return nullptr;
  PhysiqueVertex& v = vertices_[i];
  if (v.secondRequestFails && ++v.requests % 2 == 0) return nullptr;
  std::unique_ptr<IPhyVertexExport> made;
  switch (v.kind) {
    case PhysiqueVertex::Kind::Missing:
      return nullptr;
    case PhysiqueVertex::Kind::Rigid:
      made = std::make_unique<RigidVertexExport>(v.bones.empty() ? nullptr : v.bones.front());
      break;
    case PhysiqueVertex::Kind::Blended:
      made = std::make_unique<BlendedVertexExport>(v);
      break;
    case PhysiqueVertex::Kind::Other:
      made = std::make_unique<OtherVertexExport>(v.otherType);
      break;
  }
  IPhyVertexExport* handle = made.get();
  handedOut_.emplace(handle, std::move(made));
  return handle;
}

void MemoryPhysiqueContext::ReleaseVertexInterface(IPhyVertexExport* v) { handedOut_.erase(v); }

MemoryPhysiqueExport::MemoryPhysiqueExport(const INode* node, std::unique_ptr<MemoryPhysiqueContext> context)
    : node_(node), context_(std::move(context)) {}

MemoryPhysiqueExport::~MemoryPhysiqueExport() = default;

IPhyContextExport* MemoryPhysiqueExport::GetContextInterface(INode* node) {
  return node == node_ ? context_.get() : nullptr;
}

}  // namespace hostmodel
