// The skinning modifier's export interface in the host model: one context
// for the node the modifier sits on, and per vertex an export interface that
// is rigid (one bone), rigid blended (bones with weights), of another type
// (no bones), or missing. Vertex types are stored as the host would report
// them after ConvertToRigid and AllowBlending, so those two calls only record
// that they were made.
#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "host/physique.h"

namespace hostmodel {

struct PhysiqueVertex {
  enum class Kind { Missing, Rigid, Blended, Other };
  Kind kind = Kind::Missing;
  int otherType = 0;           // the type reported by a vertex of kind Other
  std::vector<INode*> bones;   // one for Rigid, any number for Blended
  std::vector<float> weights;  // parallel to bones for Blended
  // Every second request for this vertex's interface (the 2nd, 4th, ...) answers none.
  bool secondRequestFails = false;
  int requests = 0;
};

class MemoryPhysiqueContext : public IPhyContextExport {
 public:
  explicit MemoryPhysiqueContext(std::vector<PhysiqueVertex> vertices);
  ~MemoryPhysiqueContext() override;

  void ConvertToRigid(bool flag) override { convertToRigid_ = flag; }
  void AllowBlending(bool flag) override { allowBlending_ = flag; }
  int GetNumberVertices() override { return static_cast<int>(vertices_.size()); }
  // A fresh interface per call, owned by this context until released; none
  // for a missing vertex, an index out of range, or the second request of a
  // vertex whose second request fails.
  IPhyVertexExport* GetVertexInterface(int i) override;
  // Releasing none, an unknown interface or one released before is harmless.
  void ReleaseVertexInterface(IPhyVertexExport* v) override;

  bool convertToRigidRequested() const { return convertToRigid_; }
  bool blendingAllowed() const { return allowBlending_; }
  // Interfaces handed out and not released yet.
  int outstandingVertexInterfaces() const { return static_cast<int>(handedOut_.size()); }
  // The loader fills in the bones once every node exists.
  std::vector<PhysiqueVertex>& vertices() { return vertices_; }

 private:
  std::vector<PhysiqueVertex> vertices_;
  std::unordered_map<const IPhyVertexExport*, std::unique_ptr<IPhyVertexExport>> handedOut_;
  bool convertToRigid_ = false;
  bool allowBlending_ = false;
};

class MemoryPhysiqueExport : public IPhysiqueExport {
 public:
  // `context` may be empty: the node then has no context.
  MemoryPhysiqueExport(const INode* node, std::unique_ptr<MemoryPhysiqueContext> context);
  ~MemoryPhysiqueExport() override;

  // The context of the node the modifier sits on; none for any other node.
  IPhyContextExport* GetContextInterface(INode* node) override;
  // Contexts live as long as the scene, so releasing one does nothing.
  void ReleaseContextInterface(IPhyContextExport*) override {}

  MemoryPhysiqueContext* context() const { return context_.get(); }

 private:
  const INode* node_;
  std::unique_ptr<MemoryPhysiqueContext> context_;
};

}  // namespace hostmodel
