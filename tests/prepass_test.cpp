// The node pre-pass over whole exports: every problem of the scene listed in
// the order of the walk, and nothing written after an error.
#include <gtest/gtest.h>

#include <tuple>

#include "host/memory/memory_host.h"
#include "plugin/scene_exporter.h"
#include "prepass/node_prepass.h"
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

}  // namespace

// Every problem in walk order, shown although dumpInfo is off, and nothing
// written after an error, not even the environment that would come first.
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
  const std::string helpers = R"({"nodes": [{"name": "H", "object": {"type": "helper"}},
      {"name": "P", "object": {"type": "helper"}, "modifiers": [{"type": "physique"}]}]})";
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
      // Skinning demands the modifier on every examined node.
      {helpers, {"--set", "exportMaterials=0", "--set", "dumpInfo=0"},
       {"ERROR: Could not find physique modifier for skinning (object \"H\")", kCancelLine}},
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
