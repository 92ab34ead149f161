// readSkinWeights on scenes loaded into the in-memory host model: bone
// numbering over skeletons with helpers, and every problem the skinning
// modifier's export interface can present.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/memory/memory_physique.h"
#include "plugin/scene_exporter.h"
#include "prepass/skin_weights.h"

namespace {

using json = nlohmann::json;
using Pairs = std::vector<std::vector<std::pair<int, float>>>;

// Children as a vector: a braced list of one json would be that json itself
// to some compilers, not an array of it.
json node(const std::string& name, std::vector<json> children = {}, const char* type = "geometry") {
  return {{"name", name}, {"object", {{"type", type}}}, {"children", json(std::move(children))}};
}

// The nodes `bones` beside a node "Body" with the modifier stack `modifiers`
// (an object: more members of the node, such as "sharedModifiers").
struct Skin {
  std::unique_ptr<hostmodel::MemoryHost> host;
  SceneExporter exporter;
  INode* body = nullptr;

  Skin(std::vector<json> bones, const json& modifiers) {
    json b = node("Body");
    if (modifiers.is_object())
      b.update(modifiers);
    else if (!modifiers.is_null())
      b["modifiers"] = modifiers;
    bones.push_back(b);
    host = hostmodel::loadSceneFromString(json{{"version", 1}, {"nodes", json(bones)}}.dump(), ".", "scene");
    body = host->findNode("Body");
    readSkinWeights(exporter, body);
  }
  Pairs weights() const {
    Pairs out;
    for (const SkinVertexWeights& w : exporter.skinWeightTable.at(body)) {
      out.emplace_back();
      for (const auto& i : w) out.back().emplace_back(i.bone, i.weight);
    }
    return out;
  }
};

}  // namespace

TEST(SkinWeights, BonesAreNumberedInSkeletonPreOrderAndHelpersTakeTheirParentsIndex) {
  const std::string longName(300, 'x');  // names are taken whole
  // R (A (A1, H* (B (C, D)))), S (long), T*; * marks helpers, which are never entered.
  const std::vector<json> bones = {node("R", {node("A", {node("A1"), node("H", {node("B", {node("C"), node("D")})}, "helper")})}),
                      node("S", {node(longName)}), node("T", {}, "helper")};
  const json vertices = {"A1", "C", "H", "T", longName, "R", {{"bones", {"A", "B"}}, {"weights", {0.7, 0.3}}},
                         {{"bones", {"B", "A"}}, {"weights", {0.0, 2.0}}}};  // neither normalised nor dropped
  Skin skin(bones, {{{"type", "other"}, {"classId", {0x55, 0}}}, {{"type", "physique"}, {"vertices", vertices}}});
  for (int pass = 0; pass < 2; ++pass) {  // reading again replaces the entry
    if (pass) readSkinWeights(skin.exporter, skin.body);
    EXPECT_EQ(skin.exporter.skinBoneNames, (std::vector<std::string>{"R", "A", "A1", "B", "C", "D", "S", longName}));
    EXPECT_EQ(skin.weights(), (Pairs{{{2, 1.0f}}, {{4, 1.0f}}, {{1, 1.0f}}, {{0, 1.0f}}, {{7, 1.0f}}, {{0, 1.0f}},
                                     {{1, 0.7f}, {3, 0.3f}}, {{3, 0.0f}, {1, 2.0f}}}));
  }
  auto* modifier = findPhysiqueModifier(skin.body);
  ASSERT_NE(modifier, nullptr);
  auto* context = dynamic_cast<hostmodel::MemoryPhysiqueContext*>(
      static_cast<IPhysiqueExport*>(modifier->GetInterface(I_PHYINTERFACE))->GetContextInterface(skin.body));
  ASSERT_NE(context, nullptr);
  EXPECT_TRUE(context->convertToRigidRequested() && context->blendingAllowed());
  EXPECT_EQ(skin.host->outstandingVertexInterfaces(), 0);
  EXPECT_TRUE(skin.exporter.infoLog.empty());
  EXPECT_FALSE(skin.exporter.hasError());
}

TEST(SkinWeights, EachProblemIsReportedOnceAndLeavesWhatCouldBeRead) {
  struct Case {
    json modifiers;
    std::string error;                         // empty: no message
    std::vector<std::size_t> influenceCounts;  // per element of the node's entry
  };
  const auto physique = [](json members) {
    members["type"] = "physique";
    return json::array({members});
  };
  const Case cases[] = {
      {nullptr, "ERROR: Could not find physique modifier for skinning (object \"Body\")", {}},
      {physique({{"exportInterface", false}}),
       "ERROR: Could not find physique export interface for skinning (object \"Body\")", {}},
      {physique({{"context", false}}), "ERROR: Could not find physique context export for skinning (object \"Body\")",
       {}},
      {physique({{"vertices", {"A", nullptr, "A"}}}),
       "ERROR: Could not find vertex export 1 for skinning (object \"Body\")", {1, 1}},
      {physique({{"vertices", {"A", {{"vertexType", 2}}, "A"}}}),
       "ERROR: Object \"Body\" vertex 1 is of invalid type (2) for skinning (only rigid and rigid blended allowed)",
       {1, 0, 1}},
      {physique({{"vertices", json::array()}}), "", {}},
      // Physique below another derived object is not found; as the only stack it is.
      {{{"modifiers", {{{"type", "other"}, {"classId", {0x55, 0}}}}}, {"sharedModifiers", physique({{"vertices", {"A"}}})}},
       "ERROR: Could not find physique modifier for skinning (object \"Body\")", {}},
      {{{"sharedModifiers", physique({{"vertices", {"A"}}})}}, "", {1}},
      // A second request that yields none leaves the element empty, without a message.
      {physique({{"vertices", {"A", {{"bone", "A"}, {"secondRequestFails", true}}, "A"}}}), "", {1, 0, 1}},
      // Our decision for a rigid vertex without a bone: an error, and an empty element.
      {physique({{"vertices", {{{"bone", nullptr}}, "A"}}}), "ERROR: Object \"Body\" vertex 0 has no bone for skinning",
       {0, 1}},
  };
  for (const Case& c : cases) {
    Skin skin({node("A")}, c.modifiers);
    const std::vector<std::string> expected = c.error.empty() ? std::vector<std::string>{} : std::vector{c.error};
    EXPECT_EQ(skin.exporter.infoLog.lines(), expected);
    EXPECT_EQ(skin.exporter.hasError(), !c.error.empty()) << c.error;
    std::vector<std::size_t> counts;
    for (const auto& w : skin.weights()) counts.push_back(w.size());
    EXPECT_EQ(counts, c.influenceCounts) << c.error;
    EXPECT_EQ(skin.host->outstandingVertexInterfaces(), 0) << c.error;
  }
}
