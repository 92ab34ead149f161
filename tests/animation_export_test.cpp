// The animation pass in whole exports: which nodes get which chunks, the
// sampled span of a node against the given range, the keys the reduction
// leaves, light parameters, and the pass's place in the driver (cancel,
// progress, the verbose trace). Values are worked out by hand from the rules.
#include <gtest/gtest.h>

#include <filesystem>

#include "host/memory/memory_host.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"
#include "support/scene_export.h"

using nlohmann::json;
using ztx_test::exportScene;
using ztx_test::infoLines;
using ztx_test::topChunks;

namespace {

// Animation on, looping off (so the end frame stays as the scene gives it),
// nothing else a small scene would trip over.
std::vector<std::string> animated(std::vector<std::string> more = {}) {
  std::vector<std::string> args = {"--set", "exportSkinning=0", "--set", "exportMaterials=0",
                                   "--set", "loop=0",           "--set", "exportEnvironment=0"};
  args.insert(args.end(), more.begin(), more.end());
  return args;
}

// 30 frames per second (160 ticks a frame), frames 0 to 10: eleven samples.
std::string scene(const std::string& nodes, const std::string& range = "[0, 10]") {
  return R"({"frameRate": 30, "animationRange": )" + range + R"(, "nodes": [)" + nodes + "]}";
}

std::string helper(const std::string& name, const std::string& more = "") {
  return R"({"name": ")" + name + R"(", "object": {"type": "helper"})" + (more.empty() ? "" : ", " + more) + "}";
}

// Position keys: x goes from x0 at frame f0 to x1 at frame f1.
std::string moving(int f0, float x0, int f1, float x1) {
  return R"("transform": {"position": {"keys": [{"frame": )" + std::to_string(f0) + R"(, "value": [)" +
         std::to_string(x0) + R"(, 0, 0]}, {"frame": )" + std::to_string(f1) + R"(, "value": [)" +
         std::to_string(x1) + ", 0, 0]}]}}";
}

std::string nodeName(const json& animationChunk) { return animationChunk["children"][0]["fields"]["name"]; }

// The animation chunk of this kind for `node`; null json when there is none.
json animationOf(const json& file, const std::string& node, const std::string& kind = "TransformAnimationChunk") {
  for (const auto& c : topChunks(file))
    if (c["name"] == kind && nodeName(c) == node) return c;
  return {};
}

std::vector<int> samplesOf(const json& keys) {
  std::vector<int> samples;
  for (const auto& k : keys) samples.push_back(k["sample"]);
  return samples;
}

// Names of the top-level chunks with, for animation chunks, their node.
std::vector<std::string> layout(const json& file) {
  std::vector<std::string> out;
  for (const auto& c : topChunks(file)) {
    const std::string name = c["name"];
    out.push_back(name.find("Animation") != std::string::npos ? name + " " + nodeName(c) : name);
  }
  return out;
}

json exported(const std::string& sceneJson, const std::vector<std::string>& args = animated()) {
  const auto run = exportScene(sceneJson, args);
  EXPECT_EQ(run.exitCode, 0) << run.out << run.err;
  return run.file;
}

}  // namespace

// --- which nodes get which chunks ---

TEST(AnimationPass, EveryExportedNodeGetsATransformChunkAndALightItsParameters) {
  const std::string nodes =
      helper("Parent", R"("children": [{"name": "Lamp", "object": {"type": "light", "lightType": "omni"}}])") + ", " +
      R"({"name": "Cam", "object": {"type": "camera"}}, )" +
      R"({"name": "Gone", "hidden": true, "object": {"type": "helper"}, "children": [)" + helper("Kept") + "]}";
  EXPECT_EQ(layout(exported(scene(nodes))),
            (std::vector<std::string>{"HelperChunk", "OmniLightChunk", "CameraChunk", "HelperChunk",
                                      "TransformAnimationChunk Parent", "TransformAnimationChunk Lamp",
                                      "OmniLightAnimationChunk Lamp", "TransformAnimationChunk Cam",
                                      "TransformAnimationChunk Kept"}));
}

TEST(AnimationPass, AnimationOffWritesNoAnimation) {
  const auto file = exported(scene(helper("H")), animated({"--set", "exportAnimation=0"}));
  EXPECT_EQ(layout(file), (std::vector<std::string>{"HelperChunk"}));
}

TEST(AnimationPass, AStillNodeHasOneKeyOfEachAndTheFixedFields) {
  const auto file = exported(scene(helper("Parent", R"("children": [)" + helper("H") + "]")));
  const json h = animationOf(file, "H");
  EXPECT_EQ(h["children"][0]["fields"], json::parse(R"({"name": "H", "sampleRate": 30, "loop": false})"));
  const json& f = h["fields"];
  EXPECT_EQ(f["parentName"], "Parent");
  EXPECT_EQ(f["numSamples"], 11);
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0}));
  EXPECT_EQ(samplesOf(f["visibilityKeys"]), (std::vector<int>{0}));
  EXPECT_EQ(f["visibilityKeys"][0]["value"], 1.0);
  EXPECT_EQ(f["loopInterpolation"], false);
  EXPECT_EQ(f["loopToFrame"], 0);
  EXPECT_EQ(f["frameToFrameInterpolation"], 0);
  EXPECT_EQ(f["maintainMatrixScaling"], false);
  EXPECT_EQ(animationOf(file, "Parent")["fields"]["parentName"], "");
}

TEST(AnimationPass, TheKeyMatrixIsTheNodeTransformInTheFileAxes) {
  const auto file = exported(scene(helper("H", R"("transform": {"position": [1, 2, 3]})")),
                             animated({"--set", "rescale=1", "--set", "rescaleFactor=0.5"}));
  const json t = animationOf(file, "H")["fields"]["keys"][0]["transform"];
  EXPECT_NEAR(t[3][0].get<double>(), 0.5, 1e-6);
  EXPECT_NEAR(t[3][1].get<double>(), 1.5, 1e-6);
  EXPECT_NEAR(t[3][2].get<double>(), 1.0, 1e-6);
}

TEST(AnimationPass, AStraightMoveKeepsItsEndsAndAStopItsHold) {
  // Moves over frames 0 to 5, then stands: keys at 0 and 5, nothing after.
  const auto file = exported(scene(helper("H", moving(0, 0, 5, 10))));
  const json keys = animationOf(file, "H")["fields"]["keys"];
  EXPECT_EQ(samplesOf(keys), (std::vector<int>{0, 5}));
  EXPECT_NEAR(keys[1]["transform"][3][0].get<double>(), 10.0, 1e-5);
}

TEST(AnimationPass, VisibilityIsKeyedOnItsOwnTrack) {
  const auto file = exported(scene(helper(
      "H", R"("visibility": {"keys": [{"frame": 0, "value": 1}, {"frame": 5, "value": 0}, {"frame": 10, "value": 1}]})")));
  const json f = animationOf(file, "H")["fields"];
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0}));
  EXPECT_EQ(samplesOf(f["visibilityKeys"]), (std::vector<int>{0, 5, 10}));
  EXPECT_EQ(f["visibilityKeys"][1]["value"], 0.0);
}

TEST(AnimationPass, AnInheritingNodeWritesItsOwnVisibility) {
  // The reader multiplies down the hierarchy: C keeps its own 1, not 0.5 x 1.
  const auto file = exported(scene(helper("P", R"("visibility": 0.5, "children": [)" + helper("C") + "]")));
  EXPECT_EQ(animationOf(file, "P")["fields"]["visibilityKeys"][0]["value"], 0.5);
  EXPECT_EQ(animationOf(file, "C")["fields"]["visibilityKeys"][0]["value"], 1.0);
}

TEST(AnimationPass, ADamagedOptionsFileStillGivesPlainKeys) {
  // A stored sample rate of 0 and an interpolation method of 7 with matrix
  // scaling on: the scene's rate and no interpolation reach the file.
  ztx_test::TempDir dir;
  std::filesystem::create_directories(dir.file("config"));
  {
    OptionsDialog stored(dir.file("config"), 30);
    stored.sampleRate = 0;
    stored.frameToFrameInterpolation = 7;
    stored.maintainMatrixScaling = 1;
    stored.exportAnimation = 1;
    stored.loop = 0;
    stored.exportSkinning = 0;
    stored.exportMaterials = 0;
    stored.saveOptions();
  }
  ztx_test::writeText(dir.file("scene.json"), scene(helper("H", moving(0, 0, 10, 10))));
  const auto r = ztx_test::runExport(
      {dir.file("scene.json"), "-o", dir.file("out.zt2"), "--config-dir", dir.file("config"), "--quiet"});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  const json a = animationOf(ztx_test::dumpJson(dir.file("out.zt2")), "H");
  EXPECT_EQ(a["children"][0]["fields"]["sampleRate"], 30);
  EXPECT_EQ(a["fields"]["numSamples"], 11);
  EXPECT_EQ(a["fields"]["frameToFrameInterpolation"], 0);
  EXPECT_EQ(a["fields"]["maintainMatrixScaling"], false);
  EXPECT_EQ(samplesOf(a["fields"]["keys"]), (std::vector<int>{0, 10}));
}

TEST(AnimationPass, ModeAndScalingAreStoredAsTheReductionUsedThem) {
  const auto file = exported(scene(helper("H")), animated({"--set", "frameToFrameInterpolation=2", "--set",
                                                           "maintainMatrixScaling=1", "--set", "loop=1", "--set",
                                                           "decreaseEndFrameByOne=0"}));
  const json f = animationOf(file, "H")["fields"];
  EXPECT_EQ(f["frameToFrameInterpolation"], 2);
  EXPECT_EQ(f["maintainMatrixScaling"], true);
  EXPECT_EQ(f["loopInterpolation"], true);
  EXPECT_EQ(animationOf(file, "H")["children"][0]["fields"]["loop"], true);
}

// --- the sampled span ---

TEST(AnimationSpan, ANodeWithoutKeysTakesTheGivenRange) {
  EXPECT_EQ(animationOf(exported(scene(helper("H"), "[5, 25]")), "H")["fields"]["numSamples"], 21);
}

TEST(AnimationSpan, TheNodesOwnRangeInsideTheGivenOneWhenTheGlobalRangeIsOff) {
  const auto run = exportScene(scene(helper("H", moving(2, 0, 6, 4))),
                               animated({"--set", "useGlobalAnimationRange=0", "--set", "dumpInfo=1"}));
  const json f = animationOf(run.file, "H")["fields"];
  EXPECT_EQ(f["numSamples"], 5);  // frames 2 to 6
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0, 4}));
  EXPECT_TRUE(infoLines(run).empty()) << run.out;
}

TEST(AnimationSpan, APartlyOverlappingRangeIsCutWithoutAWarning) {
  const auto run = exportScene(scene(helper("H", moving(5, 0, 20, 15))),
                               animated({"--set", "useGlobalAnimationRange=0", "--set", "dumpInfo=1"}));
  EXPECT_EQ(animationOf(run.file, "H")["fields"]["numSamples"], 6);  // frames 5 to 10
  EXPECT_TRUE(infoLines(run).empty()) << run.out;
}

TEST(AnimationSpan, ARangeWhollyAfterTheGivenOneIsWarnedAndHeldAtItsStart) {
  const std::string moves = scene(helper("H", moving(20, 0, 30, 10)));
  const std::string warning =
      "WARNING: Object \"H\" animation range out of given bounds(3200, 4800; given animation range 0, 1600). Used "
      "range 3200, 3200.";
  const auto own = exportScene(moves, animated({"--set", "useGlobalAnimationRange=0", "--set", "dumpInfo=1"}));
  EXPECT_EQ(own.exitCode, 0);  // a warning only
  EXPECT_EQ(infoLines(own), (std::vector<std::string>{warning}));
  EXPECT_EQ(animationOf(own.file, "H")["fields"]["numSamples"], 1);

  const auto global = exportScene(moves, animated({"--set", "dumpInfo=1"}));
  EXPECT_EQ(infoLines(global), (std::vector<std::string>{warning}));
  const json f = animationOf(global.file, "H")["fields"];
  EXPECT_EQ(f["numSamples"], 11);
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0}));
  EXPECT_NEAR(f["keys"][0]["transform"][3][0].get<double>(), 0.0, 1e-6);
}

TEST(AnimationSpan, ARangeWhollyBeforeTheGivenOneIsHeldAtItsEnd) {
  const auto run = exportScene(scene(helper("H", moving(0, 0, 4, 8)), "[0, 20]"),
                               animated({"--set", "startFrame=10", "--set", "useGlobalAnimationRange=0", "--set",
                                         "dumpInfo=1"}));
  EXPECT_EQ(infoLines(run), (std::vector<std::string>{
                                "WARNING: Object \"H\" animation range out of given bounds(0, 640; given animation "
                                "range 1600, 3200). Used range 640, 640."}));
  EXPECT_NEAR(animationOf(run.file, "H")["fields"]["keys"][0]["transform"][3][0].get<double>(), 8.0, 1e-5);
}

TEST(AnimationSpan, TheGlobalRangeHoldsThePoseOutsideTheNodesRange) {
  // Keys from frame 5 to 20 against frames 0 to 10: samples 0 to 5 repeat the
  // pose at frame 5, so sample 5 is a hold key and the move starts after it.
  const json f = animationOf(exported(scene(helper("H", moving(5, 0, 20, 15)))), "H")["fields"];
  EXPECT_EQ(f["numSamples"], 11);
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0, 5, 10}));
  EXPECT_NEAR(f["keys"][2]["transform"][3][0].get<double>(), 5.0, 1e-5);
}

TEST(AnimationSpan, AStepThatDoesNotDivideTheSpanNeverSamplesPastItsEnd) {
  // 20 samples a second against a scene of 30 frames a second: 240 ticks a
  // sample over 1600 ticks gives samples at 0, 240, ..., 1440.
  const auto file = exported(scene(helper("H", moving(0, 0, 10, 10))), animated({"--set", "sampleRate=20"}));
  const json a = animationOf(file, "H");
  EXPECT_EQ(a["children"][0]["fields"]["sampleRate"], 20);
  EXPECT_EQ(a["fields"]["numSamples"], 7);
  EXPECT_NEAR(a["fields"]["keys"].back()["transform"][3][0].get<double>(), 9.0, 1e-5);  // tick 1440
}

TEST(AnimationSpan, ASampleRateOfHalfTheScenesHalvesTheSamples) {
  // 15 samples a second against 30 frames: 320 ticks a sample, frames 0, 2, ..., 10.
  const auto file = exported(scene(helper("H", moving(0, 0, 10, 10))), animated({"--set", "sampleRate=15"}));
  const json a = animationOf(file, "H");
  EXPECT_EQ(a["children"][0]["fields"]["sampleRate"], 15);
  EXPECT_EQ(a["fields"]["numSamples"], 6);
  EXPECT_EQ(samplesOf(a["fields"]["keys"]), (std::vector<int>{0, 5}));
  EXPECT_NEAR(a["fields"]["keys"][1]["transform"][3][0].get<double>(), 10.0, 1e-5);
}

TEST(AnimationSpan, AnEndBeforeTheStartSamplesTheStartAlone) {
  ztx_test::TempDir dir;
  std::filesystem::create_directories(dir.file("config"));
  ztx_test::writeText(dir.file("config/ZTExportAdditional.cfg"),
                      "animation {\n  loopToFrame = 8;\n  startFrame = 8;\n  endFrame = 2;\n}\n");
  ztx_test::writeText(dir.file("scene.json"), scene(helper("H", moving(0, 0, 10, 10))));
  const auto r = ztx_test::runExport({dir.file("scene.json"), "-o", dir.file("out.zt2"), "--config-dir",
                                      dir.file("config"), "--quiet", "--set", "exportSkinning=0", "--set",
                                      "exportMaterials=0"});
  ASSERT_EQ(r.exitCode, 0) << r.out << r.err;
  EXPECT_NE(r.out.find("WARNING: Animation end frame 2 lies before start frame 8: every node is sampled at the start "
                       "frame alone.\n"),
            std::string::npos)
      << r.out;
  const json f = animationOf(ztx_test::dumpJson(dir.file("out.zt2")), "H")["fields"];
  EXPECT_EQ(f["numSamples"], 1);
  EXPECT_NEAR(f["keys"][0]["transform"][3][0].get<double>(), 8.0, 1e-5);
  EXPECT_EQ(ztx_test::runDump({"--validate", dir.file("out.zt2")}).exitCode, 0);
}

// --- light parameters ---

TEST(LightAnimation, ConstantParametersGiveOneKeyPerTrack) {
  const auto file = exported(
      scene(R"({"name": "L", "object": {"type": "light", "lightType": "spot", "color": [1, 0.5, 0],
                "multiplier": 2, "hotspotDegrees": 30, "falloffDegrees": 40,
                "attenuationStart": 100, "attenuationEnd": 500}})"),
      animated({"--set", "rescale=1", "--set", "rescaleFactor=0.01"}));
  const json f = animationOf(file, "L", "SpotLightAnimationChunk")["fields"];
  EXPECT_EQ(f["numSamples"], 11);
  for (const char* track :
       {"colourKeys", "intensityKeys", "attenuationStartKeys", "attenuationEndKeys", "hotspotKeys", "falloffKeys"})
    EXPECT_EQ(samplesOf(f[track]), (std::vector<int>{0})) << track;
  EXPECT_EQ(f["colourKeys"][0]["colour"], json::parse("[255, 127.5, 0, 255]"));
  EXPECT_EQ(f["intensityKeys"][0]["value"], 2.0);
  EXPECT_NEAR(f["attenuationStartKeys"][0]["value"].get<double>(), 1.0, 1e-6);  // rescaled
  EXPECT_NEAR(f["attenuationEndKeys"][0]["value"].get<double>(), 5.0, 1e-6);
  EXPECT_NEAR(f["hotspotKeys"][0]["value"].get<double>(), 0.5235988, 1e-6);  // radians
  EXPECT_NEAR(f["falloffKeys"][0]["value"].get<double>(), 0.6981317, 1e-6);
}

TEST(LightAnimation, AMultiplierCrossingZeroFlipsTheColourAndFoldsTheIntensity) {
  // 1 at frame 0 to -1 at frame 10: zero at sample 5, negative after it.
  const auto file = exported(scene(R"({"name": "L", "object": {"type": "light", "lightType": "omni",
      "multiplier": {"keys": [{"frame": 0, "value": 1}, {"frame": 10, "value": -1}]}}})"));
  const json f = animationOf(file, "L", "OmniLightAnimationChunk")["fields"];
  EXPECT_EQ(samplesOf(f["intensityKeys"]), (std::vector<int>{0, 5, 10}));
  EXPECT_EQ(samplesOf(f["colourKeys"]), (std::vector<int>{0, 5, 6}));
  EXPECT_EQ(f["colourKeys"][2]["colour"], json::parse("[-255, -255, -255, 255]"));
}

TEST(LightAnimation, EachKindHasItsChunkAndAmbientIsASpot) {
  const std::string nodes = R"({"name": "D", "object": {"type": "light", "lightType": "directional"}},
                               {"name": "A", "object": {"type": "light", "lightType": "ambient"}})";
  const auto file = exported(scene(nodes));
  const json d = animationOf(file, "D", "DirectionalLightAnimationChunk");
  ASSERT_FALSE(d.is_null());
  EXPECT_FALSE(d["fields"].contains("attenuationStartKeys"));
  const json a = animationOf(file, "A", "SpotLightAnimationChunk");
  ASSERT_FALSE(a.is_null());
  EXPECT_EQ(samplesOf(a["fields"]["hotspotKeys"]), (std::vector<int>{0}));
}

TEST(LightAnimation, ParameterKeysOutsideTheTransformsWidenTheLightsSpan) {
  // The node has no transform keys; its multiplier is keyed from frame 4 on.
  const auto file = exported(scene(R"({"name": "L", "object": {"type": "light", "lightType": "omni",
      "multiplier": {"keys": [{"frame": 4, "value": 1}, {"frame": 8, "value": 3}]}}})"),
                             animated({"--set", "useGlobalAnimationRange=0"}));
  EXPECT_EQ(animationOf(file, "L")["fields"]["numSamples"], 11);  // no transform keys: the given range
  const json f = animationOf(file, "L", "OmniLightAnimationChunk")["fields"];
  EXPECT_EQ(f["numSamples"], 5);  // frames 4 to 8
  EXPECT_EQ(samplesOf(f["intensityKeys"]), (std::vector<int>{0, 4}));
}

TEST(LightAnimation, ALightKeyedOnlyAfterTheGivenRangeHoldsItsFirstKey) {
  // Multiplier keys at frames 20 and 30 against frames 0 to 10: the light is
  // held at frame 20, one sample with the global range off, eleven with it on.
  const std::string lamp = scene(R"({"name": "L", "object": {"type": "light", "lightType": "omni",
      "multiplier": {"keys": [{"frame": 20, "value": 2}, {"frame": 30, "value": 3}]}}})");
  for (const auto& [global, samples] : {std::pair{"0", 1}, {"1", 11}}) {
    const auto run = exportScene(lamp, animated({"--set", std::string("useGlobalAnimationRange=") + global, "--set",
                                                 "dumpInfo=1"}));
    EXPECT_TRUE(infoLines(run).empty()) << run.out;
    const json f = animationOf(run.file, "L", "OmniLightAnimationChunk")["fields"];
    EXPECT_EQ(f["numSamples"], samples) << global;
    EXPECT_EQ(samplesOf(f["intensityKeys"]), (std::vector<int>{0})) << global;
    EXPECT_EQ(f["intensityKeys"][0]["value"], 2.0) << global;
  }
}

TEST(LightAnimation, AnObjectOfAnotherKindIsNamedByBothPasses) {
  const auto run = exportScene(
      scene(R"({"name": "O", "object": {"type": "other", "superClassId": "0x60", "className": "Fx"}})"),
      animated({"--set", "dumpInfo=1"}));
  EXPECT_EQ(infoLines(run), (std::vector<std::string>{"WARNING: Unknown object: \"O\" of type Fx",
                                                      "Unknown object: \"O\" of type Fx"}));
  EXPECT_EQ(layout(run.file), (std::vector<std::string>{"TransformAnimationChunk O"}));
}

// --- the pass in the driver ---

TEST(AnimationPass, TheVerboseTraceGivesEachTracksKeysAndLargestErrorOnStandardError) {
  // Visibility dips to 0.996 at frame 5 and comes back: within 0.01 of the
  // one key 1 everywhere, missing sample 5 by 1 - 0.996f.
  const std::string dip =
      R"("visibility": {"keys": [{"frame": 0, "value": 1}, {"frame": 5, "value": 0.996}, {"frame": 10, "value": 1}]})";
  const auto run = exportScene(
      scene(helper("H", dip) + R"(, {"name": "L", "object": {"type": "light", "lightType": "omni"}})"),
      animated({"--verbose"}));
  for (const char* line : {"Animation \"H\" transform: 11 samples, 1 keys, largest error 0 position, 0 axes\n",
                           "Animation \"H\" visibility: 11 samples, 1 keys, largest error 0.00400001\n",
                           "Light animation \"L\" colour: 11 samples, 1 keys, largest error 0\n",
                           "Light animation \"L\" attenuation end: 11 samples, 1 keys, largest error 0\n"})
    EXPECT_NE(run.err.find(line), std::string::npos) << line << run.err;
  EXPECT_EQ(run.err.find("Light animation \"L\" hotspot"), std::string::npos);  // an omni light has no cone
  EXPECT_EQ(run.out.find("Animation \""), std::string::npos);
}

namespace {

struct InProcessRun {
  std::unique_ptr<hostmodel::MemoryHost> host;
  SceneExporter exporter;
  ztx_test::TempDir dir;
};

std::unique_ptr<InProcessRun> exportInProcess(const std::string& json, int cancelFrom = 0) {
  auto run = std::make_unique<InProcessRun>();
  run->host = hostmodel::loadSceneFromString(json, run->dir.path().string());
  run->host->setConfigDir(run->dir.file("config"));
  std::filesystem::create_directories(run->dir.file("config"));
  run->host->setCancelFromCall(cancelFrom);
  run->exporter.optionsRecordEditor = [](OptionsDialog& r) {
    r.exportSkinning = 0;
    r.exportMaterials = 0;
    r.exportEnvironment = 0;
    r.dumpInfo = 0;
  };
  run->exporter.DoExport(run->dir.file("out.zt2").c_str(), run->host.get(), true);
  return run;
}

}  // namespace

TEST(AnimationPass, ProgressCountsEveryNodeTwiceAndEndsAtTheWhole) {
  auto run = exportInProcess(scene(helper("A") + ", " + helper("B")));
  std::vector<std::pair<int, std::string>> updates;
  for (const auto& c : run->host->progressCalls())
    if (c.kind == hostmodel::ProgressCall::Update) updates.emplace_back(c.percent, c.title);
  // Three nodes with the root, doubled: six steps; the root's two close the pass.
  EXPECT_EQ(updates, (std::vector<std::pair<int, std::string>>{{16, "Geometry for \"A\""},
                                                              {33, "Geometry for \"B\""},
                                                              {50, "Animation for \"A\""},
                                                              {66, "Animation for \"B\""},
                                                              {100, "Animation done"}}));
}

TEST(AnimationPass, CancelStopsBeforeTheNextTopLevelNode) {
  // The object pass asks GetCancel in the driver's loop and in each
  // dispatched node (seven questions here), the animation pass once per
  // top-level node: true from the ninth stops it after A and its child.
  auto run = exportInProcess(scene(helper("A", R"("children": [)" + helper("A1") + "]") + ", " + helper("B") + ", " +
                                   helper("C")),
                             9);
  EXPECT_EQ(run->host->cancelQueries(), 9);
  const auto file = ztx_test::dumpJson(run->dir.file("out.zt2"));
  EXPECT_EQ(layout(file), (std::vector<std::string>{"HelperChunk", "HelperChunk", "HelperChunk", "HelperChunk",
                                                    "TransformAnimationChunk A", "TransformAnimationChunk A1"}));
}

TEST(AnimationPass, TheShippedExampleKeepsItsKeys) {
  // Frames 0 to 30, looping with the last frame dropped: 30 samples.
  ztx_test::TempDir dir;
  const auto r = ztx_test::runExport({ztx_test::sourcePath("examples/example.scene.json"), "-o",
                                      dir.file("example.zt2"), "--config-dir", dir.file("config"), "--quiet"});
  ASSERT_EQ(r.exitCode, 0) << r.err << r.out;
  const auto file = ztx_test::dumpJson(dir.file("example.zt2"));
  const json marker = animationOf(file, "Marker")["fields"];
  EXPECT_EQ(marker["numSamples"], 30);
  EXPECT_EQ(samplesOf(marker["visibilityKeys"]), (std::vector<int>{0, 15, 29}));
  EXPECT_EQ(samplesOf(animationOf(file, "Spot01", "SpotLightAnimationChunk")["fields"]["intensityKeys"]),
            (std::vector<int>{0, 29}));
  EXPECT_GT(animationOf(file, "Character")["fields"]["keyCount"].get<int>(), 2);
  // The hierarchy: Props turns, the lamp under it rises to frame 15 and sinks back.
  EXPECT_GT(animationOf(file, "Props")["fields"]["keyCount"].get<int>(), 2);
  const json lamp = animationOf(file, "Lamp")["fields"];
  EXPECT_EQ(lamp["parentName"], "Props");
  EXPECT_EQ(samplesOf(lamp["keys"]), (std::vector<int>{0, 15, 29}));
  EXPECT_TRUE(animationOf(file, "Bip_Pelvis").is_null());  // hidden, removed
}
