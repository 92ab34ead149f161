// The object pass over whole scenes, read back through zt2dump: which nodes
// are written, in which order, with which parent, transform and user
// properties, the environment before them, and cameras and lights against
// values worked out by hand from the conversion rules.
#include <gtest/gtest.h>

#include "support/scene_export.h"

using nlohmann::json;
using ztx_test::exportScene;
using ztx_test::findObject;
using ztx_test::infoLines;
using ztx_test::objectFields;
using ztx_test::objectNames;
using ztx_test::plainOptions;

namespace {

// Compares a dumped 4 x 3 matrix with the expected rows, within float rounding
// (the quarter turn about X leaves cos(pi/2) of about -4.4e-8).
void expectMatrix(const json& m, const std::vector<std::vector<float>>& rows, float tol = 1e-5f) {
  ASSERT_EQ(m.size(), 4u);
  for (int r = 0; r < 4; ++r)
    for (int c = 0; c < 3; ++c) EXPECT_NEAR(m[r][c].get<float>(), rows[r][c], tol) << "row " << r << " col " << c;
}

const std::vector<float> kFileX{1, 0, 0}, kFileY{0, 0, 1}, kFileZ{0, -1, 0};

std::string helperNode(const std::string& name, const std::string& extra = "", const std::string& children = "") {
  return R"({"name": ")" + name + R"(", "object": {"type": "helper", "className": "Dummy"})" + extra +
         (children.empty() ? "" : R"(, "children": [)" + children + "]") + "}";
}

std::string scene(const std::string& nodes, const std::string& top = "") {
  return "{" + top + (top.empty() ? "" : ", ") + R"("nodes": [)" + nodes + "]}";
}

std::string cameraScene(float hither, float yon) {
  return R"({"nodes": [{"name": "Cam", "object": {"type": "camera", "fovDegrees": 60, "hither": )" +
         std::to_string(hither) + R"(, "yon": )" + std::to_string(yon) + "}}]}";
}

std::vector<std::string> scaled(const std::string& factor) {
  return plainOptions({"--set", "rescale=1", "--set", "rescaleFactor=" + factor});
}

json lightFields(const std::string& lightJson, const std::vector<std::string>& args = plainOptions()) {
  const auto run = exportScene(R"({"nodes": [{"name": "L", "object": )" + lightJson + "}]}", args);
  EXPECT_EQ(run.exitCode, 0) << run.err;
  return findObject(run.file, "L");
}

}  // namespace

TEST(SceneWalk, TopLevelPositionIsTurnedIntoTheFileAxesAndRescaledWhenSwitchedOn) {
  const auto s = scene(helperNode("P", R"(, "transform": {"position": [1, 2, 3]})"));
  // Only the translation row is rescaled, and only with rescaling on.
  for (const auto& [rescale, factor, translation] :
       {std::tuple{"0", "1", std::vector<float>{1, 3, 2}}, {"1", "0.5", {0.5f, 1.5f, 1.0f}}, {"0", "2.5", {1, 3, 2}}}) {
    const auto run = exportScene(s, plainOptions({"--set", std::string("rescale=") + rescale, "--set",
                                                  std::string("rescaleFactor=") + factor}));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto f = objectFields(findObject(run.file, "P"));
    expectMatrix(f["transform"], {kFileX, kFileY, kFileZ, translation});
    EXPECT_EQ(f["parentName"], "");
    EXPECT_EQ(f["hasParent"], false);
  }
}

TEST(SceneWalk, HierarchyKeptGivesTransformsRelativeToTheParent) {
  // Parent at host (1, 2, 3) turned a quarter about Z; child 5 units along the parent's own X.
  const auto s = scene(helperNode("Parent", R"(, "transform": {"position": [1, 2, 3], "rotation": {"eulerDegrees": [0, 0, 90]}})",
                                  helperNode("Child", R"(, "transform": {"position": [5, 0, 0]})")));
  const auto kept = exportScene(s, plainOptions({"--set", "retainHierarchies=1"}));
  ASSERT_EQ(kept.exitCode, 0) << kept.err;
  const auto child = objectFields(findObject(kept.file, "Child"));
  EXPECT_EQ(child["parentName"], "Parent");
  EXPECT_EQ(child["hasParent"], true);
  // Relative: A x local x A with A negating z; the local move along X stays along X.
  expectMatrix(child["transform"], {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {5, 0, 0}});
  // The parent: its quarter turn about host Z is a turn about file Y, after the axis turn.
  const auto parent = objectFields(findObject(kept.file, "Parent"));
  expectMatrix(parent["transform"], {{0, 0, 1}, {-1, 0, 0}, {0, -1, 0}, {1, 3, 2}});

  const auto flat = exportScene(s, plainOptions({"--set", "retainHierarchies=0"}));
  ASSERT_EQ(flat.exitCode, 0) << flat.err;
  const auto flatChild = objectFields(findObject(flat.file, "Child"));
  // The parent is still named, but the transform is the world one: host (1, 7, 3) -> file (1, 3, 7).
  EXPECT_EQ(flatChild["parentName"], "Parent");
  EXPECT_EQ(flatChild["hasParent"], false);
  expectMatrix(flatChild["transform"], {{0, 0, 1}, {-1, 0, 0}, {0, -1, 0}, {1, 3, 7}});
}

TEST(SceneWalk, HiddenNodesChildrenTakeTheNextQualifyingAncestor) {
  const auto s = scene(helperNode(
      "Visible", "", helperNode("Hidden", R"(, "hidden": true)", helperNode("Leaf", R"(, "transform": {"position": [0, 0, 4]})"))));
  const auto run = exportScene(s, plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"Visible", "Leaf"}));
  const auto leaf = objectFields(findObject(run.file, "Leaf"));
  EXPECT_EQ(leaf["parentName"], "Visible");
  expectMatrix(leaf["transform"], {{1, 0, 0}, {0, 1, 0}, {0, 0, 1}, {0, 0, -4}});

  // With hidden objects kept, the hidden node is written and stays the parent.
  const auto all = exportScene(s, plainOptions({"--set", "removeHiddenObjects=0"}));
  EXPECT_EQ(objectNames(all.file), (std::vector<std::string>{"Visible", "Hidden", "Leaf"}));
  EXPECT_EQ(objectFields(findObject(all.file, "Leaf"))["parentName"], "Hidden");
}

TEST(SceneWalk, GroupHeadsAreSkippedAsParents) {
  const auto s = scene(helperNode("Outer", "",
                                  helperNode("Group", R"(, "groupHead": true)",
                                             helperNode("Member", R"(, "groupMember": true)",
                                                        helperNode("Inner", R"(, "groupMember": true)"))) +
                                      ", " +
                                      helperNode("Open", R"(, "openGroupHead": true)",
                                                 helperNode("OpenMember", R"(, "openGroupMember": true)"))));
  const auto run = exportScene(s, plainOptions());
  EXPECT_EQ(objectFields(findObject(run.file, "Member"))["parentName"], "Outer");
  EXPECT_EQ(objectFields(findObject(run.file, "Group"))["parentName"], "Outer");
  // Open or closed, the head is skipped; members keep their hierarchy inside the group.
  EXPECT_EQ(objectFields(findObject(run.file, "OpenMember"))["parentName"], "Outer");
  EXPECT_EQ(objectFields(findObject(run.file, "Inner"))["parentName"], "Member");
}

TEST(SceneWalk, DepthFirstOrderSkippedKindsAndUserProperties) {
  const auto s = scene(
      helperNode("A", "",
                 R"({"name": "Spline", "object": {"type": "shape"}, "children": [)" + helperNode("UnderShape") + "]}, " +
                     R"({"name": "Empty", "children": [)" + helperNode("UnderEmpty") + "]}") +
      ", " + helperNode("B", R"(, "userProperties": "lod=1\nshadow=off")"));
  const auto run = exportScene(s, plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  // Shapes and nodes without an object write nothing, silently; their children are still written.
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"A", "UnderShape", "UnderEmpty", "B"}));
  EXPECT_TRUE(infoLines(run).empty()) << run.out;
  EXPECT_EQ(objectFields(findObject(run.file, "B"))["userProperties"], "lod=1\nshadow=off");
}

TEST(SceneWalk, SwitchedOffKindsAreSkippedSilently) {
  const auto s = scene(helperNode("H") + R"(, {"name": "Cam", "object": {"type": "camera", "fovDegrees": 45, "hither": 1, "yon": 100}},
                                              {"name": "L", "object": {"type": "light", "lightType": "omni"}})");
  const auto run = exportScene(s, plainOptions({"--set", "exportHelpers=0", "--set", "exportLights=0"}));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"Cam"}));
}

TEST(SceneWalk, EnvironmentComesFirst) {
  const auto s = scene(helperNode("H"), R"("ambientColor": [0.1, 0.1, 0.1], "backgroundColor": [1.0, 1.5, 0])");
  const auto run = exportScene(s, plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto& env = ztx_test::topChunks(run.file).at(0);
  EXPECT_EQ(env["name"], "EnvironmentChunk");
  // 0.1 x 255 = 25.5 truncates to 25; 1.5 x 255 = 382 keeps its low 8 bits, 126.
  EXPECT_EQ(env["fields"]["ambientColour"], json::parse("[25, 25, 25, 255]"));
  EXPECT_EQ(env["fields"]["backgroundColour"], json::parse("[255, 126, 0, 255]"));

  const auto off = exportScene(s, plainOptions({"--set", "exportEnvironment=0"}));
  EXPECT_EQ(ztx_test::topChunks(off.file).at(0)["name"], "HelperChunk");
}

TEST(Cameras, ClipPlanesAreScaledAndTheNearOneRaisedToTheMinimum) {
  // A near plane scaled below 0.001 is raised to it, with a message only.
  const std::string raised = "INFO: Camera \"Cam\" had front plane set to 0.0005. It was changed to 0.0010";
  for (const auto& [hither, yon, factor, nearPlane, farPlane, info] :
       {std::tuple{0.5f, 1000.0f, "0.001", 0.001f, 1.0f, raised}, {0.001f, 50.0f, "1", 0.001f, 50.0f, ""},
        {1.0f, 1000.0f, "100", 100.0f, 100000.0f, ""}}) {
    const auto run = exportScene(cameraScene(hither, yon), scaled(factor));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto cam = findObject(run.file, "Cam");
    EXPECT_FLOAT_EQ(cam["fields"]["nearPlane"].get<float>(), nearPlane);
    EXPECT_FLOAT_EQ(cam["fields"]["farPlane"].get<float>(), farPlane);
    EXPECT_NEAR(cam["fields"]["fov"].get<float>(), 1.0471976f, 1e-6f);  // 60 degrees, never scaled
    EXPECT_EQ(infoLines(run), (info.empty() ? std::vector<std::string>{} : std::vector{info})) << factor;
  }
}

TEST(Lights, OmniColourCarriesTheSignOfTheMultiplier) {
  for (const auto& [colour, multiplier, written, intensity] :
       {std::tuple{"[1, 1, 1]", "-0.5", "[-255, -255, -255, 255]", 0.5f}, {"[0.2, 0.4, 1]", "0", "[51, 102, 255, 255]", 0.0f}}) {
    const auto f = lightFields(std::string(R"({"type": "light", "lightType": "omni", "color": )") + colour +
                               R"(, "multiplier": )" + multiplier + "}")["fields"];
    EXPECT_EQ(f["colour"], json::parse(written)) << multiplier;
    EXPECT_FLOAT_EQ(f["intensity"].get<float>(), intensity) << multiplier;
  }
}

// The chunk of each light type is read back in the Blender add-on's test
// (test_camera_light.py) too.
TEST(Lights, SpotConesInRadiansAttenuationScaledColourNotAndTheAmbientKindIsASpot) {
  const auto chunk = lightFields(R"({"type": "light", "lightType": "spot", "hotspotDegrees": 43, "falloffDegrees": 45,
                                     "attenuationStart": 100, "attenuationEnd": 500, "color": [1, 0, 0], "multiplier": 1})",
                                 scaled("0.01"));
  const auto f = chunk["fields"];
  EXPECT_NEAR(f["hotspot"].get<float>(), 0.7505f, 1e-4f);
  EXPECT_NEAR(f["falloff"].get<float>(), 0.7854f, 1e-4f);
  EXPECT_FLOAT_EQ(f["attenuationStart"].get<float>(), 1.0f);
  EXPECT_FLOAT_EQ(f["attenuationEnd"].get<float>(), 5.0f);
  EXPECT_EQ(f["colour"], json::parse("[255.0, 0.0, 0.0, 255.0]"));  // colours are not scaled
  // The host's ambient kind becomes a spot with its state's cone and attenuation.
  const auto ambient = lightFields(R"({"type": "light", "lightType": "ambient", "hotspotDegrees": 10, "attenuationEnd": 7})");
  EXPECT_EQ(ambient["name"], "SpotLightChunk");
  EXPECT_FLOAT_EQ(ambient["fields"]["attenuationEnd"].get<float>(), 7.0f);
}
