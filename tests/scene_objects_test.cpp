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

TEST(Cameras, NearPlaneBelowTheMinimumIsRaisedAndReported) {
  const auto run = exportScene(cameraScene(0.5f, 1000), scaled("0.001"));
  ASSERT_EQ(run.exitCode, 0) << run.err;
  const auto cam = findObject(run.file, "Cam");
  EXPECT_EQ(cam["name"], "CameraChunk");
  EXPECT_FLOAT_EQ(cam["fields"]["nearPlane"].get<float>(), 0.001f);
  EXPECT_FLOAT_EQ(cam["fields"]["farPlane"].get<float>(), 1.0f);
  EXPECT_NEAR(cam["fields"]["fov"].get<float>(), 1.0471976f, 1e-6f);  // 60 degrees, not scaled
  EXPECT_EQ(infoLines(run),
            (std::vector<std::string>{"INFO: Camera \"Cam\" had front plane set to 0.0005. It was changed to 0.0010"}));
  EXPECT_EQ(run.exitCode, 0);  // information only
}

TEST(Cameras, NearPlaneAtTheMinimumPassesUnchanged) {
  const auto run = exportScene(cameraScene(0.001f, 50), plainOptions());
  EXPECT_FLOAT_EQ(findObject(run.file, "Cam")["fields"]["nearPlane"].get<float>(), 0.001f);
  EXPECT_TRUE(infoLines(run).empty()) << run.out;
}

TEST(Cameras, ClipPlanesAreScaled) {
  const auto run = exportScene(cameraScene(1, 1000), scaled("100"));
  const auto f = findObject(run.file, "Cam")["fields"];
  EXPECT_FLOAT_EQ(f["nearPlane"].get<float>(), 100.0f);
  EXPECT_FLOAT_EQ(f["farPlane"].get<float>(), 100000.0f);
}

TEST(Cameras, HiddenCameraWritesNothing) {
  const auto run = exportScene(R"({"nodes": [{"name": "Cam", "hidden": true, "object": {"type": "camera"}}]})",
                               plainOptions({"--set", "exportEnvironment=0"}));
  EXPECT_EQ(run.exitCode, 0);
  EXPECT_FALSE(run.fileWritten);
}

TEST(Lights, OmniColourCarriesTheSignOfTheMultiplier) {
  auto f = lightFields(R"({"type": "light", "lightType": "omni", "color": [1, 1, 1], "multiplier": 0.5})")["fields"];
  EXPECT_EQ(f["colour"], json::parse("[255.0, 255.0, 255.0, 255.0]"));
  EXPECT_FLOAT_EQ(f["intensity"].get<float>(), 0.5f);

  f = lightFields(R"({"type": "light", "lightType": "omni", "color": [1, 1, 1], "multiplier": -0.5})")["fields"];
  EXPECT_EQ(f["colour"], json::parse("[-255.0, -255.0, -255.0, 255.0]"));
  EXPECT_FLOAT_EQ(f["intensity"].get<float>(), 0.5f);

  f = lightFields(R"({"type": "light", "lightType": "omni", "color": [0.2, 0.4, 1], "multiplier": 0})")["fields"];
  EXPECT_FLOAT_EQ(f["colour"][0].get<float>(), 0.2f * 255.0f);
  EXPECT_FLOAT_EQ(f["colour"][1].get<float>(), 0.4f * 255.0f);
  EXPECT_FLOAT_EQ(f["intensity"].get<float>(), 0.0f);
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

TEST(Lights, HiddenLightWritesNothing) {
  const auto run = exportScene(
      R"({"nodes": [{"name": "L", "hidden": true, "object": {"type": "light", "lightType": "omni"}}, {"name": "Keep", "object": {"type": "helper"}}]})",
      plainOptions());
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"Keep"}));
}

TEST(Helpers, ClassNameTellsHelpersApart) {
  const auto run = exportScene(R"({"nodes": [{"name": "D", "object": {"type": "helper", "className": "Dummy"}},
                                             {"name": "P", "object": {"type": "helper", "className": "Point"}},
                                             {"name": "Gone", "hidden": true, "object": {"type": "helper"}}]})",
                               plainOptions());
  ASSERT_EQ(run.exitCode, 0) << run.err;
  EXPECT_EQ(objectNames(run.file), (std::vector<std::string>{"D", "P"}));
  EXPECT_EQ(findObject(run.file, "D")["fields"]["className"], "Dummy");
  EXPECT_EQ(findObject(run.file, "P")["fields"]["className"], "Point");
}
