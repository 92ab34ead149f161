// The skinning modifier's export interface in the host model: one context
// for the node the modifier sits on, and per vertex an export interface that
// is rigid (one bone), rigid blended (bones with weights), of another type
// (no bones), or missing. Vertex types are stored as the host would report
// them after ConvertToRigid and AllowBlending, so those two calls only record
// that they were made.
#pragma once

#include <cstdint>
#include <memory>
#include <unordered_map>
#include <vector>

#include "host/physique.h"

namespace hostmodel {

struct PhysiqueVertex {
  enum class Kind : std::uint8_t { Missing, Rigid, Blended, Other };
  Kind kind = Kind::Missing;
  // Every second request for this vertex's interface (the 2nd, 4th, ...) answers none.
  bool secondRequestFails = false;
  int otherType = 0;  // the type reported by a vertex of kind Other
  int requests = 0;
  // The vertex's links in the skin's `links` and `weights`: one for Rigid
  // (none for a rigid vertex bound to no node), any number for Blended.
  std::uint32_t first = 0, count = 0;
};

// The skin of one context, flat: a mesh of a million vertices is a few
// arrays, not a million small ones. Links name bones by their place in
// `bones`, the table of distinct bones, which the loader fills once every
// node exists.
struct PhysiqueSkin {
  std::vector<PhysiqueVertex> vertices;
  std::vector<std::uint32_t> links;  // index into `bones`
  std::vector<float> weights;        // parallel to `links` (1 for a rigid link)
  std::vector<INode*> bones;
};

class MemoryPhysiqueContext : public IPhyContextExport {
 public:
  explicit MemoryPhysiqueContext(PhysiqueSkin skin);
  ~MemoryPhysiqueContext() override;

  void ConvertToRigid(bool flag) override { convertToRigid_ = flag; }
  void AllowBlending(bool flag) override { allowBlending_ = flag; }
  int GetNumberVertices() override { return static_cast<int>(skin_.vertices.size()); }
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
  // The loader fills in the bone table once every node exists.
  std::vector<INode*>& bones() { return skin_.bones; }
  const PhysiqueSkin& skin() const { return skin_; }

 private:
  using HandedOut = std::unordered_map<const IPhyVertexExport*, std::unique_ptr<IPhyVertexExport>>;
  PhysiqueSkin skin_;
  HandedOut handedOut_;
  std::vector<HandedOut::node_type> released_;  // kept to be handed out again
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
