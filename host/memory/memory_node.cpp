#include "host/memory/memory_node.h"

namespace hostmodel {

Matrix3 NodeTransform::localAt(TimeValue t) const {
  if (useMatrix) return matrix;
  Matrix3 m = ScaleMatrix(scale.at(t)) * QuatToMatrix(rotation.at(t));
  m.SetTrans(position.at(t));
  return m;
}

Interval NodeTransform::keyRange() const {
  return unionRange(position.keyRange(), unionRange(rotation.keyRange(), scale.keyRange()));
}

MemoryNode::MemoryNode() : name_("Scene Root") {}

MemoryNode::MemoryNode(std::string name, MemoryNode* parent) : name_(std::move(name)), parent_(parent) {}

MemoryNode::~MemoryNode() = default;

MemoryNode& MemoryNode::addChild(std::string name) {
  children_.push_back(std::make_unique<MemoryNode>(std::move(name), this));
  return *children_.back();
}

INode* MemoryNode::GetChildNode(int i) const {
  if (i < 0 || i >= static_cast<int>(children_.size())) return nullptr;
  return children_[i].get();
}

bool MemoryNode::IsNodeHidden(bool) const {
  // The model has no renderer state apart from the node's own flag.
  return flags_.hidden;
}

void MemoryNode::setTransform(NodeTransform transform) {
  transform_ = std::move(transform);
  std::vector<MemoryNode*> pending = {this};
  while (!pending.empty()) {
    MemoryNode* n = pending.back();
    pending.pop_back();
    n->nodeTMAt_.clear();
    for (const auto& child : n->children_) pending.push_back(child.get());
  }
}

Matrix3 MemoryNode::GetNodeTM(TimeValue t) const {
  if (!parent_) return transform_.localAt(t);
  // A leaf is asked once per time; only a parent is asked again by its subtree.
  if (children_.empty() || !keepEvaluatedTransforms) return transform_.localAt(t) * parent_->GetNodeTM(t);
  const auto [at, fresh] = nodeTMAt_.try_emplace(t);
  if (fresh) at->second = transform_.localAt(t) * parent_->GetNodeTM(t);
  return at->second;
}

Matrix3 MemoryNode::GetObjectTM(TimeValue t) const {
  return ObjectOffsetMatrix(offset_.position, offset_.rotation, offset_.scale) * GetNodeTM(t);
}

ObjectState MemoryNode::EvalWorldState(TimeValue, bool) const { return ObjectState{object_}; }

Object* MemoryNode::GetObjectRef() const {
  if (derived_) return derived_.get();
  return object_;
}

Interval MemoryNode::GetTimeRange(unsigned int flags) const {
  Interval range = unionRange(transform_.keyRange(), visibility_.keyRange());
  if (flags & TIMERANGE_CHILDANIMS) {
    if (const auto* keyed = dynamic_cast<const KeyedParameters*>(object_))
      range = unionRange(range, keyed->parameterKeyRange());
  }
  if (flags & TIMERANGE_CHILDNODES) {
    for (const auto& child : children_) range = unionRange(range, child->GetTimeRange(flags));
  }
  return range;
}

float MemoryNode::GetVisibility(TimeValue t) const {
  const float own = visibility_.at(t);
  if (!inheritVisibility_ || !parent_) return own;
  return own * parent_->GetVisibility(t);
}

}  // namespace hostmodel
