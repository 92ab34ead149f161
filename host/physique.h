// The export interface of the skinning modifier: per node a context, per
// vertex an export interface that is rigid (one bone) or rigid blended
// (several bones with weights).
#pragma once

class INode;

inline constexpr int RIGID_TYPE = 1;
inline constexpr int DEFORMABLE_TYPE = 2;
inline constexpr int BLENDED_TYPE = 4;
inline constexpr int FLOATING_TYPE = 8;

class IPhyVertexExport {
 public:
  virtual ~IPhyVertexExport() = default;
  virtual int GetVertexType() = 0;
};

class IPhyRigidVertex : public IPhyVertexExport {
 public:
  virtual INode* GetNode() = 0;
};

class IPhyBlendedRigidVertex : public IPhyVertexExport {
 public:
  virtual int GetNumberNodes() = 0;
  virtual INode* GetNode(int i) = 0;
  virtual float GetWeight(int i) = 0;
};

class IPhyContextExport {
 public:
  virtual ~IPhyContextExport() = default;
  virtual void ConvertToRigid(bool flag) = 0;
  virtual void AllowBlending(bool flag) = 0;
  virtual int GetNumberVertices() = 0;
  // The vertex's export interface, or none. Cast it to IPhyRigidVertex or
  // IPhyBlendedRigidVertex by its type; release every interface handed out.
  virtual IPhyVertexExport* GetVertexInterface(int i) = 0;
  virtual void ReleaseVertexInterface(IPhyVertexExport* v) = 0;
};

class IPhysiqueExport {
 public:
  virtual ~IPhysiqueExport() = default;
  virtual IPhyContextExport* GetContextInterface(INode* node) = 0;
  virtual void ReleaseContextInterface(IPhyContextExport* ctx) = 0;
};
