// A scene node as the exporter walks it.
#pragma once

#include <string>

#include "host/max_types.h"
#include "host/objects.h"

class Mtl;

// Flags of INode::GetTimeRange.
inline constexpr unsigned int TIMERANGE_ALL = 2;
inline constexpr unsigned int TIMERANGE_CHILDNODES = 4;
inline constexpr unsigned int TIMERANGE_CHILDANIMS = 8;

class INode {
 public:
  virtual ~INode() = default;

  virtual const char* GetName() const = 0;
  virtual bool IsRootNode() const = 0;
  virtual INode* GetParentNode() const = 0;
  virtual int NumberOfChildren() const = 0;
  virtual INode* GetChildNode(int i) const = 0;

  // The node's own hidden flag when `checkRenderer` is false (not inherited).
  virtual bool IsNodeHidden(bool checkRenderer = false) const = 0;
  virtual bool IsGroupMember() const = 0;
  virtual bool IsGroupHead() const = 0;
  virtual bool IsOpenGroupMember() const = 0;
  virtual bool IsOpenGroupHead() const = 0;

  // Pivot transform in world space at tick t.
  virtual Matrix3 GetNodeTM(TimeValue t) const = 0;
  // Object-offset matrix times GetNodeTM(t).
  virtual Matrix3 GetObjectTM(TimeValue t) const = 0;
  virtual Point3 GetObjOffsetPos() const = 0;
  virtual Quat GetObjOffsetRot() const = 0;
  virtual ScaleValue GetObjOffsetScale() const = 0;

  virtual void GetUserPropBuffer(std::string& buf) const = 0;
  virtual Mtl* GetMtl() const = 0;

  // The node's object evaluated at tick t, hidden nodes included.
  virtual ObjectState EvalWorldState(TimeValue t, bool evalHidden = true) const = 0;
  // The object reference before evaluation: a derived object when modifiers apply.
  virtual Object* GetObjectRef() const = 0;

  virtual Interval GetTimeRange(unsigned int flags) const = 0;
  virtual bool GetInheritVisibility() const = 0;
  // Visibility 0 (hidden) .. 1; GetVisibility includes what the node inherits.
  virtual float GetLocalVisibility(TimeValue t) const = 0;
  virtual float GetVisibility(TimeValue t) const = 0;
};
