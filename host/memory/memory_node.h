// A scene node of the host model: its place in the tree, flags, user
// properties, material, object reference, transform and visibility, each of
// which the scene file may key over time.
#pragma once

#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

#include "host/inode.h"
#include "host/memory/animated_value.h"
#include "host/memory/memory_derived_object.h"

namespace hostmodel {

// A node's transform relative to its parent: scale, then rotation, then
// translation (row-vector order), or one fixed matrix.
struct NodeTransform {
  bool useMatrix = false;
  Matrix3 matrix;
  AnimatedValue<Point3> position;
  AnimatedValue<Quat> rotation;
  AnimatedValue<Point3> scale{Point3{1.0f, 1.0f, 1.0f}};

  Matrix3 localAt(TimeValue t) const;
  Interval keyRange() const;
};

struct ObjectOffset {
  Point3 position;
  Quat rotation;
  ScaleValue scale;
};

struct NodeFlags {
  bool hidden = false;
  bool groupMember = false;
  bool groupHead = false;
  bool openGroupMember = false;
  bool openGroupHead = false;
};

class MemoryNode : public INode {
 public:
  // The scene root: no parent, identity transform unless set.
  MemoryNode();
  MemoryNode(std::string name, MemoryNode* parent);
  ~MemoryNode() override;

  // --- building (the loader) ---
  MemoryNode& addChild(std::string name);
  void setFlags(const NodeFlags& flags) { flags_ = flags; }
  void setUserProperties(std::string text) { userProperties_ = std::move(text); }
  void setMaterial(Mtl* mtl) { mtl_ = mtl; }
  void setObject(Object* object) { object_ = object; }
  void setModifiers(std::unique_ptr<MemoryDerivedObject> derived) { derived_ = std::move(derived); }
  // Whether nodes with children keep their evaluated transforms (below); on
  // unless a benchmark measures the plain evaluation beside it.
  static inline bool keepEvaluatedTransforms = true;

  // Forgets what this node and its descendants remembered of their transforms.
  void setTransform(NodeTransform transform);
  void setObjectOffset(const ObjectOffset& offset) { offset_ = offset; }
  void setVisibility(AnimatedValue<float> visibility) { visibility_ = std::move(visibility); }
  void setInheritVisibility(bool inherit) { inheritVisibility_ = inherit; }

  MemoryDerivedObject* derivedObject() const { return derived_.get(); }
  const std::vector<std::unique_ptr<MemoryNode>>& children() const { return children_; }

  // --- INode ---
  const char* GetName() const override { return name_.c_str(); }
  bool IsRootNode() const override { return parent_ == nullptr; }
  INode* GetParentNode() const override { return parent_; }
  int NumberOfChildren() const override { return static_cast<int>(children_.size()); }
  INode* GetChildNode(int i) const override;

  bool IsNodeHidden(bool checkRenderer = false) const override;
  bool IsGroupMember() const override { return flags_.groupMember; }
  bool IsGroupHead() const override { return flags_.groupHead; }
  bool IsOpenGroupMember() const override { return flags_.openGroupMember; }
  bool IsOpenGroupHead() const override { return flags_.openGroupHead; }

  Matrix3 GetNodeTM(TimeValue t) const override;
  Matrix3 GetObjectTM(TimeValue t) const override;
  Point3 GetObjOffsetPos() const override { return offset_.position; }
  Quat GetObjOffsetRot() const override { return offset_.rotation; }
  ScaleValue GetObjOffsetScale() const override { return offset_.scale; }

  void GetUserPropBuffer(std::string& buf) const override { buf = userProperties_; }
  Mtl* GetMtl() const override { return mtl_; }

  ObjectState EvalWorldState(TimeValue t, bool evalHidden = true) const override;
  Object* GetObjectRef() const override;

  Interval GetTimeRange(unsigned int flags) const override;
  bool GetInheritVisibility() const override { return inheritVisibility_; }
  float GetLocalVisibility(TimeValue t) const override { return visibility_.at(t); }
  float GetVisibility(TimeValue t) const override;

 private:
  std::string name_;
  MemoryNode* parent_ = nullptr;
  std::vector<std::unique_ptr<MemoryNode>> children_;
  NodeFlags flags_;
  std::string userProperties_;
  Mtl* mtl_ = nullptr;
  Object* object_ = nullptr;
  std::unique_ptr<MemoryDerivedObject> derived_;
  NodeTransform transform_;
  // GetNodeTM by time, kept by nodes with children, as the host keeps a
  // node's evaluated transform: each descendant asks for its parent's at
  // every sample, which would otherwise cost a chain's depth over again for
  // each node of it. The same product, so the same bits, as computing anew.
  mutable std::unordered_map<TimeValue, Matrix3> nodeTMAt_;
  ObjectOffset offset_;
  AnimatedValue<float> visibility_{1.0f};
  bool inheritVisibility_ = true;
};

}  // namespace hostmodel
