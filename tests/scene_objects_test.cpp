// Cameras, lights and helpers of whole exports, checked against values worked
// out by hand from the conversion rules.
#include <gtest/gtest.h>

#include "support/scene_export.h"

using nlohmann::json;
using ztx_test::exportScene;
using ztx_test::findObject;
using ztx_test::infoLines;
using ztx_test::objectNames;
using ztx_test::plainOptions;

namespace {

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

TEST(Cameras, ClipPlanesAreScaledAndTheNearOneRaisedToTheMinimum) {
  // A near plane scaled below 0.001 is raised to it, with a message only.
  const std::string raised = "INFO: Camera \"Cam\" had front plane set to 0.0005. It was changed to 0.0010";
  for (const auto& [hither, yon, factor, nearPlane, farPlane, info] :
       {std::tuple{0.5f, 1000.0f, "0.001", 0.001f, 1.0f, raised}, {0.001f, 50.0f, "1", 0.001f, 50.0f, ""},
        {1.0f, 1000.0f, "100", 100.0f, 100000.0f, ""}}) {
    const auto run = exportScene(cameraScene(hither, yon), scaled(factor));
    ASSERT_EQ(run.exitCode, 0) << run.err;
    const auto cam = findObject(run.file, "Cam");
    EXPECT_EQ(cam["name"], "CameraChunk");
    EXPECT_FLOAT_EQ(cam["fields"]["nearPlane"].get<float>(), nearPlane);
    EXPECT_FLOAT_EQ(cam["fields"]["farPlane"].get<float>(), farPlane);
    EXPECT_NEAR(cam["fields"]["fov"].get<float>(), 1.0471976f, 1e-6f);  // 60 degrees, never scaled
    EXPECT_EQ(infoLines(run), (info.empty() ? std::vector<std::string>{} : std::vector{info})) << factor;
  }
}

TEST(Lights, OmniColourCarriesTheSignOfTheMultiplier) {
  for (const auto& [colour, multiplier, written, intensity] :
       {std::tuple{"[1, 1, 1]", "0.5", "[255, 255, 255, 255]", 0.5f}, {"[1, 1, 1]", "-0.5", "[-255, -255, -255, 255]", 0.5f},
        {"[0.2, 0.4, 1]", "0", "[51, 102, 255, 255]", 0.0f}}) {
    const auto f = lightFields(std::string(R"({"type": "light", "lightType": "omni", "color": )") + colour +
                               R"(, "multiplier": )" + multiplier + "}")["fields"];
    EXPECT_EQ(f["colour"], json::parse(written)) << multiplier;
    EXPECT_FLOAT_EQ(f["intensity"].get<float>(), intensity) << multiplier;
  }
}

TEST(Lights, SpotConesInRadiansAndAttenuationScaled) {
  const auto chunk = lightFields(R"({"type": "light", "lightType": "spot", "hotspotDegrees": 43, "falloffDegrees": 45,
                                     "attenuationStart": 100, "attenuationEnd": 500, "color": [1, 0, 0], "multiplier": 1})",
                                 scaled("0.01"));
  EXPECT_EQ(chunk["name"], "SpotLightChunk");
  const auto f = chunk["fields"];
  EXPECT_NEAR(f["hotspot"].get<float>(), 0.7505f, 1e-4f);
  EXPECT_NEAR(f["falloff"].get<float>(), 0.7854f, 1e-4f);
  EXPECT_FLOAT_EQ(f["attenuationStart"].get<float>(), 1.0f);
  EXPECT_FLOAT_EQ(f["attenuationEnd"].get<float>(), 5.0f);
  EXPECT_EQ(f["colour"], json::parse("[255.0, 0.0, 0.0, 255.0]"));  // colours are not scaled
}

TEST(Lights, KindByType) {
  EXPECT_EQ(lightFields(R"({"type": "light", "lightType": "directional", "attenuationEnd": 9})")["name"],
            "DirectionalLightChunk");
  EXPECT_FALSE(lightFields(R"({"type": "light", "lightType": "directional"})")["fields"].contains("attenuationEnd"));
  // The host's ambient kind becomes a spot with its state's cone and attenuation.
  const auto ambient = lightFields(R"({"type": "light", "lightType": "ambient", "hotspotDegrees": 10, "attenuationEnd": 7})");
  EXPECT_EQ(ambient["name"], "SpotLightChunk");
  EXPECT_FLOAT_EQ(ambient["fields"]["attenuationEnd"].get<float>(), 7.0f);
  EXPECT_EQ(lightFields(R"({"type": "light", "lightType": "omni"})")["name"], "OmniLightChunk");
}

TEST(Helpers, ClassNameTellsHelpersApart) {
  const auto run = exportScene(R"({"nodes": [{"name": "D", "object": {"type": "helper", "className": "Dummy"}},
                                             {"name": "P", "object": {"type": "helper", "className": "Point"}}]})",
                               plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(findObject(run.file, "D")["fields"]["className"], "Dummy");
  EXPECT_EQ(findObject(run.file, "P")["fields"]["className"], "Point");
}

// Each kind checks for itself whether its node is exported.
TEST(SceneObjects, HiddenCamerasLightsAndHelpersWriteNothing) {
  const auto run = exportScene(R"({"nodes": [{"name": "C", "hidden": true, "object": {"type": "camera"}},
      {"name": "L", "hidden": true, "object": {"type": "light", "lightType": "omni"}},
      {"name": "H", "hidden": true, "object": {"type": "helper"}}, {"name": "Keep", "object": {"type": "helper"}}]})",
                               plainOptions({"--set", "exportEnvironment=0"}));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"Keep"}));
}
