#include <cmath>
#include <cstring>
#include <limits>
#include <map>

#include "host/memory/scene_loader_parts.h"

namespace hostmodel {
namespace {

// A rigid vertex bound to no node, in the binary form.
constexpr std::uint32_t kNoBone = 0xFFFFFFFF;

// The skin being read: its arrays, and its bone table by node id with the
// place each id was first used.
struct SkinReader {
  PhysiqueSkin skin;
  std::map<std::string, std::uint32_t> tableIndex;
  std::vector<std::pair<std::string, std::string>> table;  // id, path

  // The place is spelled out for a bone's first use only: a skin of a million
  // vertices names its few bones a million times.
  std::uint32_t bone(const std::string& id, const JsonCursor& where) {
    const auto [it, added] = tableIndex.emplace(id, static_cast<std::uint32_t>(table.size()));
    if (added) table.emplace_back(id, where.path());
    return it->second;
  }
  void addInfluence(std::uint32_t bone, float weight) {
    skin.links.push_back(bone);
    skin.weights.push_back(weight);
  }
};

// A skin vertex: "bone" (rigid), null (missing), {"bone": id or null} (rigid),
// {"bones": [...], "weights": [...]} (rigid blended) or {"vertexType": n};
// an object may add "secondRequestFails".
void readVertex(const JsonCursor& c, SkinReader& r) {
  PhysiqueVertex v;
  v.first = static_cast<std::uint32_t>(r.skin.links.size());
  if (c.isNull()) {
  } else if (c.isString()) {
    v.kind = PhysiqueVertex::Kind::Rigid;
    r.addInfluence(r.bone(c.asString(), c), 1.0f);
  } else {
    if (!c.isObject()) c.fail("expected a bone id, null, or an object with \"bone\", \"bones\" or \"vertexType\"");
    v.secondRequestFails = c.boolOr("secondRequestFails", false);
    if (c.has("bone")) {
      c.expectMembers({"bone", "secondRequestFails"});
      v.kind = PhysiqueVertex::Kind::Rigid;
      const JsonCursor bone = c["bone"];
      // null: a rigid vertex whose GetNode() answers none.
      if (!bone.isNull()) r.addInfluence(r.bone(bone.asString(), bone), 1.0f);
    } else if (c.has("bones")) {
      c.expectMembers({"bones", "weights", "secondRequestFails"});
      v.kind = PhysiqueVertex::Kind::Blended;
      const JsonCursor bones = c["bones"];
      const JsonCursor weights = c["weights"];
      if (weights.size() != bones.size())
        weights.fail("expected " + std::to_string(bones.size()) + " weights, one per bone; found " +
                     std::to_string(weights.size()));
      for (const JsonCursor& b : bones.elements()) r.addInfluence(r.bone(b.asString(), b), 0.0f);
      std::size_t i = v.first;
      for (const JsonCursor& w : weights.elements()) r.skin.weights[i++] = w.asFloat();
    } else if (c.has("vertexType")) {
      c.expectMembers({"vertexType", "secondRequestFails"});
      v.kind = PhysiqueVertex::Kind::Other;
      v.otherType = c["vertexType"].asInt();
    } else {
      c.expectMembers({"bone", "bones", "weights", "vertexType", "secondRequestFails"});
      c.fail("expected one of \"bone\", \"bones\" or \"vertexType\"");
    }
  }
  v.count = static_cast<std::uint32_t>(r.skin.links.size()) - v.first;
  r.skin.vertices.push_back(v);
}

// The binary form of a skin (docs/scene-format.md): a bone table inline and
// one buffer of uint32 words, per vertex either 0 and a bone (rigid) or a
// count k, k bones and k float32 weights (rigid blended).
void readSkinRecords(const JsonCursor& c, LoadContext& ctx, SkinReader& r) {
  c.expectMembers({"bones", "count", "records"});
  const JsonCursor bones = c["bones"];
  if (!bones.isArray()) bones.fail("expected an array of node ids");
  for (const JsonCursor& b : bones.elements()) {
    const std::string id = b.asString();
    if (r.tableIndex.count(id)) b.fail("the bone \"" + id + "\" is listed twice");
    r.bone(id, b);
  }
  const auto vertexCount = static_cast<std::size_t>(c["count"].asInteger(0, std::numeric_limits<int>::max()));
  const JsonCursor records = c["records"];
  const BufferView view = ctx.buffers.view(records, 4);
  const auto word = [&](std::size_t i) {
    std::uint32_t w;
    std::memcpy(&w, view.data + 4 * i, 4);
    return w;
  };
  // Every vertex takes two words at least: a count beyond that is refused before anything is reserved for it.
  if (vertexCount > view.count / 2)
    records.fail("the records hold " + std::to_string(view.count) + " words, too few for " +
                 std::to_string(vertexCount) + " vertices");
  const std::size_t tableSize = r.table.size();
  r.skin.vertices.reserve(vertexCount);
  r.skin.links.reserve(vertexCount);
  r.skin.weights.reserve(vertexCount);
  std::size_t at = 0;
  for (std::size_t v = 0; v < vertexCount; ++v) {
    const std::size_t start = at;
    const auto fail = [&](const std::string& what) {
      records.fail("vertex " + std::to_string(v) + " (from word " + std::to_string(start) + "): " + what);
    };
    if (at >= view.count) fail("the records end before the vertex");
    const std::uint32_t k = word(at++);
    PhysiqueVertex vertex;
    vertex.first = static_cast<std::uint32_t>(r.skin.links.size());
    if (k == 0) {
      vertex.kind = PhysiqueVertex::Kind::Rigid;
      if (at >= view.count) fail("the records end before the vertex");
      const std::uint32_t bone = word(at++);
      if (bone != kNoBone) {
        if (bone >= tableSize) fail("bone " + std::to_string(bone) + " is not in the bone table");
        r.addInfluence(bone, 1.0f);
      }
    } else {
      vertex.kind = PhysiqueVertex::Kind::Blended;
      if (k > (view.count - at) / 2) fail(std::to_string(k) + " bones do not fit in the records");
      for (std::uint32_t i = 0; i < k; ++i) {
        const std::uint32_t bone = word(at + i);
        float weight;
        const std::uint32_t bits = word(at + k + i);
        std::memcpy(&weight, &bits, 4);
        if (bone >= tableSize) fail("bone " + std::to_string(bone) + " is not in the bone table");
        if (!std::isfinite(weight)) fail("weight " + std::to_string(i) + " is not finite");
        r.addInfluence(bone, weight);
      }
      at += 2 * std::size_t{k};
    }
    vertex.count = static_cast<std::uint32_t>(r.skin.links.size()) - vertex.first;
    r.skin.vertices.push_back(vertex);
  }
  if (at != view.count)
    records.fail("the records hold " + std::to_string(view.count) + " words; the vertices use " + std::to_string(at));
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
    SkinReader reader;
    if (const auto list = c.find("vertices")) {
      if (list->isObject()) {
        readSkinRecords(*list, ctx, reader);
      } else {
        for (const JsonCursor& v : list->elements()) readVertex(v, reader);
      }
    }
    reader.skin.bones.assign(reader.table.size(), nullptr);
    context = std::make_unique<MemoryPhysiqueContext>(std::move(reader.skin));
    for (std::size_t i = 0; i < reader.table.size(); ++i)
      ctx.pendingBones.push_back({context.get(), i, std::move(reader.table[i].first), std::move(reader.table[i].second)});
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
