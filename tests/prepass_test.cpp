// The node pre-pass over whole exports: every problem of the scene listed in
// the order of the walk, and nothing written after an error.
#include <gtest/gtest.h>

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

TEST(Prepass, EveryErrorIsListedInWalkOrderAndNothingIsWritten) {
  const std::string s = R"({"materials": [{"id": "M", "type": "standard", "name": "Stone"}],
    "nodes": [
      {"name": "A", )" + kBox + R"(, "children": [{"name": "B", "id": "B1", "material": "M", )" + kBox + R"(}]},
      {"name": "B", "id": "B2", "material": "M", )" + kBox + R"(},
      {"name": "b", "material": "M", )" + kBox + R"(},
      {"name": "Cam", "object": {"type": "camera"}},
      {"name": "Spline", "object": {"type": "shape"}},
      {"name": "B", "id": "B3", "object": {"type": "helper"}}
    ]})";
  const auto run = exportScene(s, noSkin());
  EXPECT_EQ(run.exitCode, 1) << run.err;
  EXPECT_FALSE(run.fileWritten);
  // Shown although dumpInfo is off; the material check comes before the name check of the same node.
  EXPECT_EQ(infoLines(run), (std::vector<std::string>{
                                "ERROR: Node A has a 0 material(3DSMax default material)",
                                "ERROR: Two objects have a same name: B",
                                "ERROR: Node Spline has a 0 material(3DSMax default material)",
                                "ERROR: Two objects have a same name: B",
                                kCancelLine,
                            }));
}

TEST(Prepass, HiddenNodesAreCountedButNotExamined) {
  const std::string s = R"({"nodes": [{"name": "Hidden", "hidden": true, )" + kBox + R"(,
                             "children": [{"name": "Seen", )" + kBox + R"(}]}]})";
  const auto run = exportScene(s, noSkin());
  EXPECT_EQ(infoLines(run), (std::vector<std::string>{"ERROR: Node Seen has a 0 material(3DSMax default material)",
                                                      kCancelLine}));
  const auto all = exportScene(s, noSkin({"--set", "removeHiddenObjects=0"}));
  EXPECT_EQ(infoLines(all).front(), "ERROR: Node Hidden has a 0 material(3DSMax default material)");
}

TEST(Prepass, NoMaterialCheckWhenMaterialsAreOff) {
  const std::string s = R"({"nodes": [{"name": "A", )" + kBox + R"(}]})";
  const auto run = exportScene(s, noSkin({"--set", "exportMaterials=0"}));
  EXPECT_EQ(run.exitCode, 0) << run.out;
  EXPECT_TRUE(run.fileWritten);
}

TEST(Prepass, SkinningDemandsPhysiqueOnEveryExaminedNode) {
  const std::string s = R"({"nodes": [{"name": "H", "object": {"type": "helper"}},
                                      {"name": "P", "object": {"type": "helper"}, "modifiers": [{"type": "physique"}]}]})";
  const auto run = exportScene(s, {"--set", "exportMaterials=0", "--set", "dumpInfo=0"});
  EXPECT_EQ(run.exitCode, 1) << run.err;
  EXPECT_EQ(infoLines(run), (std::vector<std::string>{
                                "ERROR: Could not find physique modifier for skinning (object \"H\")", kCancelLine}));
}

TEST(Prepass, ErrorSkipsTheLaterPasses) {
  // The environment would come first in the file; after the pre-pass error no pass writes anything.
  const std::string s = R"({"ambientColor": [1, 1, 1], "nodes": [{"name": "A", )" + kBox +
                        R"(}, {"name": "Lamp", "object": {"type": "light", "lightType": "omni"}}]})";
  const auto run = exportScene(s, noSkin({"--set", "exportEnvironment=1"}));
  EXPECT_EQ(run.exitCode, 1) << run.err;
  EXPECT_FALSE(run.fileWritten);
  EXPECT_EQ(infoLines(run).back(), kCancelLine);
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
