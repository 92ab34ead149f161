// The pre-pass: the node pre-pass over whole exports (every problem of the
// scene listed in the order of the walk, and nothing written after an error),
// and readSkinWeights on scenes loaded into the in-memory host model (bone
// numbering over skeletons with helpers, and every problem the skinning
// modifier's export interface can present).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <tuple>

#include "host/inode.h"
#include "host/memory/memory_host.h"
#include "host/memory/memory_physique.h"
#include "plugin/scene_exporter.h"
#include "prepass/node_prepass.h"
#include "prepass/skin_weights.h"
#include "support/scene_export.h"

using ztx_test::exportScene;
using ztx_test::infoLines;

namespace {

const std::string kCancelLine = "Export process canceled due to error(s) encountered.";

const std::string kBox = R"("object": {"type": "mesh", "mesh": {"vertices": [0,0,0, 1,0,0, 0,1,0], "faces": [0,1,2]}})";

std::vector<std::string> noSkin(std::vector<std::string> more = {}) {
  std::vector<std::string> args = {"--set", "exportSkinning=0", "--set", "dumpInfo=0"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

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

// Every problem in walk order, shown although dumpInfo is off, and nothing
// written after an error, not even the environment that would come first.
// (Skinning's demand for the modifier on every examined node: SkinWeights
// below and zt2export --check in zt2export_hostile_test.cpp.)
TEST(Prepass, EveryProblemIsListedInWalkOrderAndAnErrorWritesNothing) {
  const std::string noMaterial = " has a 0 material(3DSMax default material)";
  const std::string named = R"({"materials": [{"id": "M", "type": "standard", "name": "Stone"}],
    "nodes": [
      {"name": "A", )" + kBox + R"(, "children": [{"name": "B", "id": "B1", "material": "M", )" + kBox + R"(}]},
      {"name": "B", "id": "B2", "material": "M", )" + kBox + R"(},
      {"name": "b", "material": "M", )" + kBox + R"(},
      {"name": "Cam", "object": {"type": "camera"}},
      {"name": "Spline", "object": {"type": "shape"}},
      {"name": "B", "id": "B3", "object": {"type": "helper"}}
    ]})";
  const std::string hidden = R"({"nodes": [{"name": "Hidden", "hidden": true, )" + kBox + R"(,
                                  "children": [{"name": "Seen", )" + kBox + R"(}]}]})";
  const std::string box = R"({"ambientColor": [1, 1, 1], "nodes": [{"name": "A", )" + kBox +
                          R"(}, {"name": "Lamp", "object": {"type": "light", "lightType": "omni"}}]})";
  const std::tuple<std::string, std::vector<std::string>, std::vector<std::string>> cases[] = {
      // The material check comes before the name check of the same node.
      {named, noSkin(), {"ERROR: Node A" + noMaterial, "ERROR: Two objects have a same name: B",
                         "ERROR: Node Spline" + noMaterial, "ERROR: Two objects have a same name: B", kCancelLine}},
      // Hidden nodes are counted but not examined, unless kept.
      {hidden, noSkin(), {"ERROR: Node Seen" + noMaterial, kCancelLine}},
      {hidden, noSkin({"--set", "removeHiddenObjects=0"}),
       {"ERROR: Node Hidden" + noMaterial, "ERROR: Node Seen" + noMaterial, kCancelLine}},
      {box, noSkin({"--set", "exportEnvironment=1"}), {"ERROR: Node A" + noMaterial, kCancelLine}},
      {box, noSkin({"--set", "exportMaterials=0"}), {}},
  };
  for (const auto& [scene, args, lines] : cases) {
    SCOPED_TRACE(lines.empty() ? "clean" : lines[0]);
    const auto run = exportScene(scene, args);
    EXPECT_EQ(run.exitCode, lines.empty() ? 0 : 1) << run.err;
    EXPECT_EQ(run.fileWritten, lines.empty());
    EXPECT_EQ(infoLines(run), lines);
  }
}

TEST(Prepass, MaterialIndicesFollowTheWalk) {
  // A multi-material enters its slots one level deep, skipping the empty one;
  // one without slots enters itself.
  ztx_test::TempDir dir;
  const auto host = hostmodel::loadSceneFromString(R"({"materials": [{"id": "A", "type": "standard"},
      {"id": "B", "type": "standard"}, {"id": "AB", "type": "multi", "subMaterials": ["A", null, "B"]},
      {"id": "E", "type": "multi"}],
    "nodes": [{"name": "1", "material": "AB"}, {"name": "2", "material": "B"}, {"name": "3", "material": "E"}]})",
                                                   dir.path().string());
  SceneExporter exporter;
  exporter.host = host.get();
  exporter.options.exportSkinning = false;
  int nodeCount = 0;
  prepassNode(exporter, host->GetRootNode(), nodeCount);
  EXPECT_EQ(nodeCount, 4);
  EXPECT_EQ(exporter.materialIndexTable.materials(),
            (std::vector<Mtl*>{host->findMaterial("A"), host->findMaterial("B"), host->findMaterial("E")}));
}

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
