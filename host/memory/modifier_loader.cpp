#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

// A skin vertex: "bone" (rigid), null (missing), {"bone": id or null} (rigid),
// {"bones": [...], "weights": [...]} (rigid blended) or {"vertexType": n};
// an object may add "secondRequestFails".
PhysiqueVertex readVertex(const JsonCursor& c, std::vector<std::pair<std::string, std::string>>& boneRefs) {
  PhysiqueVertex v;
  if (c.isNull()) return v;
  if (c.isString()) {
    v.kind = PhysiqueVertex::Kind::Rigid;
    boneRefs.emplace_back(c.asString(), c.path());
    return v;
  }
  if (!c.isObject()) c.fail("expected a bone id, null, or an object with \"bone\", \"bones\" or \"vertexType\"");
  v.secondRequestFails = c.boolOr("secondRequestFails", false);
  if (c.has("bone")) {
    c.expectMembers({"bone", "secondRequestFails"});
    v.kind = PhysiqueVertex::Kind::Rigid;
    const JsonCursor bone = c["bone"];
    // null: a rigid vertex whose GetNode() answers none.
    if (!bone.isNull()) boneRefs.emplace_back(bone.asString(), bone.path());
    return v;
  }
  if (c.has("bones")) {
    c.expectMembers({"bones", "weights", "secondRequestFails"});
    v.kind = PhysiqueVertex::Kind::Blended;
    const JsonCursor bones = c["bones"];
    const JsonCursor weights = c["weights"];
    if (weights.size() != bones.size())
      weights.fail("expected " + std::to_string(bones.size()) + " weights, one per bone; found " +
                   std::to_string(weights.size()));
    for (const JsonCursor& b : bones.elements()) boneRefs.emplace_back(b.asString(), b.path());
    for (const JsonCursor& w : weights.elements()) v.weights.push_back(w.asFloat());
    return v;
  }
  if (c.has("vertexType")) {
    c.expectMembers({"vertexType", "secondRequestFails"});
    v.kind = PhysiqueVertex::Kind::Other;
    v.otherType = c["vertexType"].asInt();
    return v;
  }
  c.expectMembers({"bone", "bones", "weights", "vertexType", "secondRequestFails"});
  c.fail("expected one of \"bone\", \"bones\" or \"vertexType\"");
}

std::unique_ptr<MemoryModifier> readPhysique(const JsonCursor& c, LoadContext& ctx, MemoryNode& node) {
  c.expectMembers({"type", "className", "exportInterface", "context", "vertices"});
  const std::string className = c.stringOr("className", "Physique");
  if (!c.boolOr("exportInterface", true)) {
    if (c.has("context") || c.has("vertices")) c.fail("a modifier without export interface has no context and no vertices");
    return std::make_unique<MemoryModifier>(PHYSIQUE_CLASS_ID, className, nullptr);
  }
  std::unique_ptr<MemoryPhysiqueContext> context;
  if (c.boolOr("context", true)) {
    std::vector<PhysiqueVertex> vertices;
    std::vector<std::vector<std::pair<std::string, std::string>>> refs;
    if (const auto list = c.find("vertices")) {
      for (const JsonCursor& v : list->elements()) {
        refs.emplace_back();
        vertices.push_back(readVertex(v, refs.back()));
        vertices.back().bones.assign(refs.back().size(), nullptr);
      }
    }
    context = std::make_unique<MemoryPhysiqueContext>(std::move(vertices));
    for (std::size_t i = 0; i < refs.size(); ++i)
      for (std::size_t s = 0; s < refs[i].size(); ++s)
        ctx.pendingBones.push_back({context.get(), i, s, refs[i][s].first, refs[i][s].second});
    ctx.scene.physiqueContexts.push_back(context.get());
  } else if (c.has("vertices")) {
    c["vertices"].fail("a modifier without a context has no vertices");
  }
  return std::make_unique<MemoryModifier>(PHYSIQUE_CLASS_ID, className,
                                          std::make_unique<MemoryPhysiqueExport>(&node, std::move(context)));
}

}  // namespace

std::unique_ptr<MemoryDerivedObject> readModifiers(const JsonCursor& list, LoadContext& ctx, MemoryNode& node,
                                                   Object* base) {
  std::vector<std::unique_ptr<MemoryModifier>> modifiers;
  for (const JsonCursor& c : list.elements()) {
    if (!c.isObject()) c.fail("expected a modifier definition");
    const std::string type = c["type"].asString();
    if (type == "physique") {
      modifiers.push_back(readPhysique(c, ctx, node));
    } else if (type == "other") {
      c.expectMembers({"type", "classId", "className"});
      modifiers.push_back(
          std::make_unique<MemoryModifier>(c["classId"].asClassId(), c.stringOr("className", "Modifier"), nullptr));
    } else {
      c["type"].fail("unknown modifier type \"" + type + "\" (expected physique or other)");
    }
  }
  if (modifiers.empty()) return nullptr;
  return std::make_unique<MemoryDerivedObject>(base, std::move(modifiers));
}

}  // namespace hostmodel
