#include "host/memory/memory_physique.h"

namespace hostmodel {
namespace {

// Interfaces are handed out fresh and released one by one, twice per vertex
// when a skin is read; released ones are kept and handed out again, so that
// reading a skin of a million vertices allocates nothing per vertex.
class RigidVertexExport : public IPhyRigidVertex {
 public:
  explicit RigidVertexExport(INode* bone) : bone_(bone) {}
  int GetVertexType() override { return RIGID_TYPE; }
  INode* GetNode() override { return bone_; }
  void reset(INode* bone) { bone_ = bone; }

 private:
  INode* bone_;
};

class BlendedVertexExport : public IPhyBlendedRigidVertex {
 public:
  BlendedVertexExport(const PhysiqueSkin& skin, const PhysiqueVertex& v) : skin_(skin), vertex_(&v) {}
  int GetVertexType() override { return RIGID_TYPE | BLENDED_TYPE; }
  int GetNumberNodes() override { return static_cast<int>(vertex_->count); }
  INode* GetNode(int i) override { return inRange(i) ? skin_.bones[skin_.links[vertex_->first + i]] : nullptr; }
  float GetWeight(int i) override { return inRange(i) ? skin_.weights[vertex_->first + i] : 0.0f; }
  void reset(const PhysiqueSkin&, const PhysiqueVertex& v) { vertex_ = &v; }

 private:
  bool inRange(int i) const { return i >= 0 && i < static_cast<int>(vertex_->count); }
  const PhysiqueSkin& skin_;
  const PhysiqueVertex* vertex_;
};

class OtherVertexExport : public IPhyVertexExport {
 public:
  explicit OtherVertexExport(int type) : type_(type) {}
  int GetVertexType() override { return type_; }
  void reset(int type) { type_ = type; }

 private:
  int type_;
};

// A kept interface of type T, made to show the new vertex; or a new one.
template <typename T, typename... Args>
std::unique_ptr<IPhyVertexExport> reuse(std::unique_ptr<IPhyVertexExport>& kept, Args&&... args) {
  if (auto* same = dynamic_cast<T*>(kept.get())) {
    same->reset(args...);
    return std::move(kept);
  }
  return std::make_unique<T>(std::forward<Args>(args)...);
}

}  // namespace

MemoryPhysiqueContext::MemoryPhysiqueContext(PhysiqueSkin skin) : skin_(std::move(skin)) {}

MemoryPhysiqueContext::~MemoryPhysiqueContext() = default;

IPhyVertexExport* MemoryPhysiqueContext::GetVertexInterface(int i) {
  if (i < 0 || i >= static_cast<int>(skin_.vertices.size())) return nullptr;
  PhysiqueVertex& v = skin_.vertices[i];
  if (v.secondRequestFails && ++v.requests % 2 == 0) return nullptr;
  if (v.kind == PhysiqueVertex::Kind::Missing) return nullptr;
  HandedOut::node_type node;
  std::unique_ptr<IPhyVertexExport> kept;
  if (!released_.empty()) {
    node = std::move(released_.back());
    released_.pop_back();
    kept = std::move(node.mapped());
  }
  std::unique_ptr<IPhyVertexExport> made;
  switch (v.kind) {
    case PhysiqueVertex::Kind::Missing:
      return nullptr;
    case PhysiqueVertex::Kind::Rigid: {
      INode* bone = v.count == 0 ? nullptr : skin_.bones[skin_.links[v.first]];
      made = reuse<RigidVertexExport>(kept, bone);
      break;
    }
    case PhysiqueVertex::Kind::Blended:
      made = reuse<BlendedVertexExport>(kept, skin_, v);
      break;
    case PhysiqueVertex::Kind::Other:
      made = reuse<OtherVertexExport>(kept, v.otherType);
      break;
  }
  IPhyVertexExport* handle = made.get();
  if (node) {
    node.key() = handle;
    node.mapped() = std::move(made);
    handedOut_.insert(std::move(node));
  } else {
    handedOut_.emplace(handle, std::move(made));
  }
  return handle;
}

void MemoryPhysiqueContext::ReleaseVertexInterface(IPhyVertexExport* v) {
  if (auto node = handedOut_.extract(v)) released_.push_back(std::move(node));
}

MemoryPhysiqueExport::MemoryPhysiqueExport(const INode* node, std::unique_ptr<MemoryPhysiqueContext> context)
    : node_(node), context_(std::move(context)) {}

MemoryPhysiqueExport::~MemoryPhysiqueExport() = default;

IPhyContextExport* MemoryPhysiqueExport::GetContextInterface(INode* node) {
  return node == node_ ? context_.get() : nullptr;
}

}  // namespace hostmodel
