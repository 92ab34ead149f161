// The animation pass in whole exports: which nodes get which chunks, the
// sampled span of a node against the given range, the keys the reduction
// leaves, light parameters, and the verbose trace (its progress and cancel
// are export_driver_test.cpp's). Values are worked out by hand from the rules.
// Then the animation records: the rules a record is checked against before it
// is written, and the same rules applied by zt2dump --validate to chunks
// written by hand. What the writers put into the file is read back from the
// whole exports above.
#include <gtest/gtest.h>

#include <filesystem>
#include <functional>
#include <optional>

#include "animation/animation_chunks.h"
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

json fieldsOf(const json& file, const std::string& node, const std::string& kind = "TransformAnimationChunk") {
  return animationOf(file, node, kind)["fields"];
}

std::vector<int> samplesOf(const json& keys) {
  std::vector<int> samples;
  for (const auto& k : keys) samples.push_back(k["sample"]);
  return samples;
}

// The x of a transform key's translation.
double xOf(const json& key) { return key["transform"][3][0].get<double>(); }

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

TransformAnimation soundTransform() {
  TransformAnimation r;
  r.header = {"Box01", 30, true};
  r.parentName = "Root";
  r.loopInterpolation = true;
  r.numSamples = 10;
  r.keys = {{0, {}}, {4, {}}, {9, {}}};
  r.keys[1].matrix[3] = {1.0f, 2.0f, 3.0f};
  r.visibilityKeys = {{0, 1.0f}, {5, 0.0f}};
  r.loopToFrame = 7;
  r.frameToFrameInterpolation = FrameInterpolation::Normalized;
  r.maintainMatrixScaling = true;
  return r;
}

LightAnimation soundLight(LightKind kind) {
  LightAnimation r;
  r.kind = kind;
  r.header = {"Lamp", 15, false};
  r.numSamples = 4;
  r.loopToFrame = 2;
  r.colourKeys = {{0, {255, 128, 0, 255}}, {3, {-255, -128, 0, 255}}};
  r.intensityKeys = {{0, 1.5f}};
  if (kind != LightKind::Directional) {
    r.attenuationStartKeys = {{0, 10.0f}};
    r.attenuationEndKeys = {{0, 40.0f}, {1, 50.0f}};
  }
  if (kind == LightKind::Spot) {
    r.hotspotKeys = {{0, 0.5f}};
    r.falloffKeys = {{0, 0.75f}};
  }
  return r;
}

using Track = std::vector<std::pair<unsigned, float>>;

// An omni light animation chunk, written field by field so that a case can
// break what the record writer never would.
struct OmniChunk {
  bool loop = false;
  int numSamples = 4;
  bool loopInterpolation = false;
  std::vector<std::pair<unsigned, std::array<float, 4>>> colour = {{0, {255, 255, 255, 255}}};
  Track intensity = {{0, 1.0f}, {2, 0.5f}};
  Track attenuationStart = {{0, 10.0f}};
  Track attenuationEnd = {{0, 40.0f}};
  std::optional<LightKind> object;  // the light chunk of "L" written first, if any
};

void writeScalarTrack(T_MemoryFile& f, const Track& track) {
  f << static_cast<int>(track.size());
  for (const auto& [sample, value] : track) f << sample << value;
}

// A sound transform chunk for node "L", then the light chunk.
std::string writeScene(const ztx_test::TempDir& dir, const OmniChunk& c) {
  T_MemoryFile f;
  if (c.object) {
    LightRecord light;
    light.kind = *c.object;
    light.object.name() = "L";
    f << light;
  }
  TransformAnimation t;
  t.header = {"L", 30, c.loop};
  t.numSamples = 4;
  t.keys = {{0, {}}};
  t.visibilityKeys = {{0, 1.0f}};
  f << t;
  f.createChunk(0x10017, 2);
  f.createChunk(0x10013, 0);
  f << std::string("L") << 30 << c.loop;
  f.closeChunk();
  f << c.numSamples << c.loopInterpolation;
  f << static_cast<int>(c.colour.size());
  for (const auto& [sample, rgba] : c.colour) {
    f << sample;
    for (float x : rgba) f << x;
  }
  writeScalarTrack(f, c.intensity);
  writeScalarTrack(f, c.attenuationStart);
  writeScalarTrack(f, c.attenuationEnd);
  f << 0u;
  f.closeChunk();
  const std::string path = dir.file("light.zt2");
  EXPECT_TRUE(f.save(path.c_str()).ok());
  return path;
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
  // With animation off, none at all.
  EXPECT_EQ(layout(exported(scene(helper("H")), animated({"--set", "exportAnimation=0"}))),
            (std::vector<std::string>{"HelperChunk"}));
}

TEST(AnimationPass, AStillNodeHasOneKeyOfEachAndTheFieldsAsTheReductionUsedThem) {
  // Modes other than the defaults, so that each field shows it was passed on.
  const auto file = exported(scene(helper("Parent", R"("children": [)" + helper("H") + "]")),
                             animated({"--set", "frameToFrameInterpolation=2", "--set", "maintainMatrixScaling=1",
                                       "--set", "loop=1", "--set", "decreaseEndFrameByOne=0"}));
  const json h = animationOf(file, "H");
  EXPECT_EQ(h["children"][0]["fields"], (json{{"name", "H"}, {"sampleRate", 30}, {"loop", true}}));
  json f = h["fields"];
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0}));
  f.erase("keys");
  EXPECT_EQ(f, (json{{"parentName", "Parent"}, {"loopInterpolation", true}, {"numSamples", 11}, {"keyCount", 1},
                     {"visibilityKeyCount", 1}, {"visibilityKeys", json::parse(R"([{"sample": 0, "value": 1}])")},
                     {"loopToFrame", 0}, {"frameToFrameInterpolation", 2}, {"maintainMatrixScaling", true}}));
  EXPECT_EQ(fieldsOf(file, "Parent")["parentName"], "");
}

TEST(AnimationPass, TheKeyMatrixIsTheNodeTransformInTheFileAxes) {
  const auto file = exported(scene(helper("H", R"("transform": {"position": [1, 2, 3]})")),
                             animated({"--set", "rescale=1", "--set", "rescaleFactor=0.5"}));
  const json t = fieldsOf(file, "H")["keys"][0]["transform"][3];
  for (int i = 0; i < 3; ++i) EXPECT_NEAR(t[i].get<double>(), (std::array{0.5, 1.5, 1.0})[i], 1e-6) << i;
}

TEST(AnimationPass, VisibilityIsKeyedOnItsOwnTrack) {
  // H blinks while it stands still. C inherits P's 0.5 but writes its own 1:
  // the reader multiplies down the hierarchy itself.
  const auto file = exported(scene(
      helper("H", R"("visibility": {"keys": [{"frame": 0, "value": 1}, {"frame": 5, "value": 0}, {"frame": 10, "value": 1}]})") +
      ", " + helper("P", R"("visibility": 0.5, "children": [)" + helper("C") + "]")));
  const json f = fieldsOf(file, "H");
  EXPECT_EQ(samplesOf(f["keys"]), (std::vector<int>{0}));
  EXPECT_EQ(samplesOf(f["visibilityKeys"]), (std::vector<int>{0, 5, 10}));
  EXPECT_EQ(f["visibilityKeys"][1]["value"], 0.0);
  EXPECT_EQ(fieldsOf(file, "P")["visibilityKeys"][0]["value"], 0.5);
  EXPECT_EQ(fieldsOf(file, "C")["visibilityKeys"][0]["value"], 1.0);
}

// --- the sampled span ---

TEST(AnimationSpan, TheSampledSpanAgainstTheGivenRange) {
  // Frames 0 to 10 at 30 frames a second (160 ticks a frame) unless a row says
  // otherwise; `own` turns the global range off. `x` is the last key's x.
  const std::vector<std::string> own = {"--set", "useGlobalAnimationRange=0"};
  const std::string after =
      "WARNING: Object \"H\" animation range out of given bounds(3200, 4800; given animation range 0, 1600). Used "
      "range 3200, 3200.";
  const std::string before =
      "WARNING: Object \"H\" animation range out of given bounds(0, 640; given animation range 1600, 3200). Used "
      "range 640, 640.";
  const struct {
    const char* what;
    std::string node, range;
    std::vector<std::string> args;
    int rate, numSamples;
    std::vector<int> keys;
    double x;
    std::string warning;
  } rows[] = {
      {"no keys: the given range", helper("H"), "[5, 25]", {}, 30, 21, {0}, 0, ""},
      {"own range inside the given one", helper("H", moving(2, 0, 6, 4)), "[0, 10]", own, 30, 5, {0, 4}, 4, ""},
      {"own range partly after: cut without a warning", helper("H", moving(5, 0, 20, 15)), "[0, 10]", own, 30, 6,
       {0, 5}, 5, ""},
      // Samples 0 to 5 repeat the pose at frame 5: a hold key, then the move.
      {"global range: the pose held outside the node's", helper("H", moving(5, 0, 20, 15)), "[0, 10]", {}, 30, 11,
       {0, 5, 10}, 5, ""},
      {"own range wholly after: held at its start", helper("H", moving(20, 0, 30, 10)), "[0, 10]", own, 30, 1, {0},
       0, after},
      {"own range wholly before: held at its end", helper("H", moving(0, 0, 4, 8)), "[0, 20]",
       {"--set", "startFrame=10", "--set", "useGlobalAnimationRange=0"}, 30, 1, {0}, 8, before},
      // 240 ticks a sample over 1600 ticks: samples at 0, 240, ..., 1440.
      {"a step that does not divide the span never samples past its end", helper("H", moving(0, 0, 10, 10)),
       "[0, 10]", {"--set", "sampleRate=20"}, 20, 7, {0, 6}, 9, ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    std::vector<std::string> args = row.args;
    args.insert(args.end(), {"--set", "dumpInfo=1"});
    const auto run = exportScene(scene(row.node, row.range), animated(args));
    EXPECT_EQ(run.exitCode, 0) << run.err;
    EXPECT_EQ(infoLines(run), (row.warning.empty() ? std::vector<std::string>{} : std::vector{row.warning}));
    const json a = animationOf(run.file, "H");
    EXPECT_EQ(a["children"][0]["fields"]["sampleRate"], row.rate);
    EXPECT_EQ(a["fields"]["numSamples"], row.numSamples);
    EXPECT_EQ(samplesOf(a["fields"]["keys"]), row.keys);
    EXPECT_NEAR(xOf(a["fields"]["keys"].back()), row.x, 1e-5);
  }
}

TEST(AnimationSpan, AnEndBeforeTheStartSamplesTheStartAlone) {
  ztx_test::TempDir dir;
  std::filesystem::create_directories(dir.file("config"));
  ztx_test::writeText(dir.file("config/ZTExportAdditional.cfg"),
                      "animation {\n  loopToFrame = 8;\n  startFrame = 8;\n  endFrame = 2;\n}\n");
  const auto run = ztx_test::exportSceneIn(dir, scene(helper("H", moving(0, 0, 10, 10))),
                                           {"--set", "exportSkinning=0", "--set", "exportMaterials=0"});
  ASSERT_EQ(run.exitCode, 0) << run.out << run.err;
  EXPECT_NE(run.out.find("WARNING: Animation end frame 2 lies before start frame 8: every node is sampled at the "
                         "start frame alone.\n"),
            std::string::npos)
      << run.out;
  const json f = fieldsOf(run.file, "H");
  EXPECT_EQ(f["numSamples"], 1);
  EXPECT_NEAR(xOf(f["keys"][0]), 8.0, 1e-5);
}

// --- light parameters ---

TEST(LightAnimation, ConstantParametersGiveOneKeyPerTrackInTheChunkOfTheirKind) {
  const auto file = exported(
      scene(R"({"name": "L", "object": {"type": "light", "lightType": "spot", "color": [1, 0.5, 0],
                "multiplier": 2, "hotspotDegrees": 30, "falloffDegrees": 40,
                "attenuationStart": 100, "attenuationEnd": 500}},
               {"name": "D", "object": {"type": "light", "lightType": "directional"}},
               {"name": "A", "object": {"type": "light", "lightType": "ambient"}})"),
      animated({"--set", "rescale=1", "--set", "rescaleFactor=0.01"}));
  const json f = fieldsOf(file, "L", "SpotLightAnimationChunk");
  EXPECT_EQ(f["numSamples"], 11);
  EXPECT_EQ(f["colourKeys"], json::parse(R"([{"sample": 0, "colour": [255, 127.5, 0, 255]}])"));
  // Attenuation rescaled, cones in radians.
  for (const auto& [track, value] : {std::pair{"intensityKeys", 2.0}, {"attenuationStartKeys", 1.0},
                                     {"attenuationEndKeys", 5.0}, {"hotspotKeys", 0.5235988}, {"falloffKeys", 0.6981317}}) {
    ASSERT_EQ(samplesOf(f[track]), (std::vector<int>{0})) << track;
    EXPECT_NEAR(f[track][0]["value"].get<double>(), value, 1e-6) << track;
  }
  // A directional light has a chunk of its kind; the ambient kind is a spot.
  const json d = animationOf(file, "D", "DirectionalLightAnimationChunk");
  ASSERT_FALSE(d.is_null());
  EXPECT_EQ(samplesOf(fieldsOf(file, "A", "SpotLightAnimationChunk")["hotspotKeys"]), (std::vector<int>{0}));
}

TEST(LightAnimation, AMultiplierCrossingZeroFlipsTheColourAndFoldsTheIntensity) {
  // 1 at frame 0 to -1 at frame 10: zero at sample 5, negative after it.
  const json f = fieldsOf(exported(scene(R"({"name": "L", "object": {"type": "light", "lightType": "omni",
      "multiplier": {"keys": [{"frame": 0, "value": 1}, {"frame": 10, "value": -1}]}}})")),
                          "L", "OmniLightAnimationChunk");
  EXPECT_EQ(samplesOf(f["intensityKeys"]), (std::vector<int>{0, 5, 10}));
  EXPECT_EQ(samplesOf(f["colourKeys"]), (std::vector<int>{0, 5, 6}));
  EXPECT_EQ(f["colourKeys"][2]["colour"], json::parse("[-255, -255, -255, 255]"));
}

TEST(LightAnimation, ParameterKeysOutsideTheTransformsWidenTheLightsSpan) {
  // Without transform keys the transform chunk takes the given range (frames 0
  // to 10); the light's own span follows its multiplier keys. Keys wholly after
  // the range hold the first one, silently: one sample, eleven with the global range.
  const std::string after = R"([{"frame": 20, "value": 2}, {"frame": 30, "value": 3}])";
  for (const auto& [keys, global, numSamples, kept, first] :
       {std::tuple{std::string(R"([{"frame": 4, "value": 1}, {"frame": 8, "value": 3}])"), "0", 5, std::vector{0, 4}, 1.0},
        {after, "0", 1, {0}, 2.0},
        {after, "1", 11, {0}, 2.0}}) {
    SCOPED_TRACE(keys + " global " + global);
    const auto run = exportScene(
        scene(R"({"name": "L", "object": {"type": "light", "lightType": "omni", "multiplier": {"keys": )" + keys + "}}}"),
        animated({"--set", std::string("useGlobalAnimationRange=") + global, "--set", "dumpInfo=1"}));
    EXPECT_TRUE(infoLines(run).empty()) << run.out;
    EXPECT_EQ(fieldsOf(run.file, "L")["numSamples"], 11);
    const json f = fieldsOf(run.file, "L", "OmniLightAnimationChunk");
    EXPECT_EQ(f["numSamples"], numSamples);
    EXPECT_EQ(samplesOf(f["intensityKeys"]), kept);
    EXPECT_EQ(f["intensityKeys"][0]["value"], first);
  }
}

// Each kind checks for itself whether its node is exported: hidden cameras,
// lights and objects of unknown kinds write nothing in either pass, and say
// nothing.
TEST(LightAnimation, AnObjectOfAnotherKindIsNamedByBothPasses) {
  const auto run = exportScene(
      scene(R"({"name": "O", "object": {"type": "other", "superClassId": "0x60", "className": "Fx"}},
               {"name": "HiddenOdd", "hidden": true, "object": {"type": "other", "superClassId": "0x60", "className": "Flow"}},
               {"name": "C", "hidden": true, "object": {"type": "camera"}},
               {"name": "L", "hidden": true, "object": {"type": "light", "lightType": "omni"}})"),
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

TEST(AnimationPass, TheShippedExampleKeepsItsKeys) {
  // Frames 0 to 30, looping with the last frame dropped: 30 samples.
  ztx_test::TempDir dir;
  const auto file = ztx_test::dumpJson(ztx_test::exportExample(dir, "example.zt2", {"--set", "loopToFrame=12"}));
  const json marker = fieldsOf(file, "Marker");
  EXPECT_EQ(marker["numSamples"], 30);
  EXPECT_EQ(marker["loopToFrame"], 12);
  // Each light kind's chunk carries its own tracks (zt2dump reads them by the
  // kind, and every export is validated), its node's header and the loop-to frame.
  for (const auto& [node, kind] : {std::pair{"Lamp", "OmniLightAnimationChunk"}, {"Spot01", "SpotLightAnimationChunk"},
                                   {"Sun", "DirectionalLightAnimationChunk"}}) {
    const json light = animationOf(file, node, kind);
    EXPECT_EQ(light["children"][0]["fields"], (json{{"name", node}, {"sampleRate", 30}, {"loop", true}})) << kind;
    EXPECT_EQ(light["fields"]["loopToFrame"], 12) << kind;
  }
  EXPECT_EQ(samplesOf(marker["visibilityKeys"]), (std::vector<int>{0, 15, 29}));
  EXPECT_EQ(samplesOf(fieldsOf(file, "Spot01", "SpotLightAnimationChunk")["intensityKeys"]), (std::vector<int>{0, 29}));
  // The hierarchy: Props turns, the lamp under it rises to frame 15 and sinks back.
  EXPECT_GT(fieldsOf(file, "Props")["keyCount"].get<int>(), 2);
  EXPECT_EQ(samplesOf(fieldsOf(file, "Lamp")["keys"]), (std::vector<int>{0, 15, 29}));
  EXPECT_TRUE(animationOf(file, "Bip_Pelvis").is_null());  // hidden, removed
}

// --- the rules ---

TEST(AnimationRecords, ASoundRecordPassesAndTheFirstBrokenRuleIsNamed) {
  const std::vector<std::pair<std::function<void(TransformAnimation&)>, std::string>> transforms = {
      {[](TransformAnimation&) {}, ""},
      {[](TransformAnimation& r) { r.numSamples = 0; }, "numSamples 0 holds no sample"},
      {[](TransformAnimation& r) { r.keys.clear(); }, "keys has no key"},
      {[](TransformAnimation& r) { r.keys[0].sample = 1; }, "keys[0] is at sample 1, not 0"},
      {[](TransformAnimation& r) { r.header.loop = false; }, "loopInterpolation is set while loop is not"},
      {[](TransformAnimation& r) { r.frameToFrameInterpolation = FrameInterpolation::None; },
       "maintainMatrixScaling is set while frameToFrameInterpolation is 0"},
  };
  for (const auto& [breakIt, fault] : transforms) {
    TransformAnimation r = soundTransform();
    breakIt(r);
    EXPECT_EQ(r.validate(), fault);
  }

  const std::vector<std::tuple<LightKind, std::function<void(LightAnimation&)>, std::string>> lights = {
      {LightKind::Omni, [](LightAnimation&) {}, ""},
      {LightKind::Directional, [](LightAnimation&) {}, ""},
      {LightKind::Spot, [](LightAnimation&) {}, ""},
      {LightKind::Directional, [](LightAnimation& r) { r.attenuationEndKeys = {{0, 1.0f}}; },
       "a directional light has attenuation keys"},
      {LightKind::Omni, [](LightAnimation& r) { r.hotspotKeys = {{0, 1.0f}}; },
       "a light other than a spot has cone keys"},
      {LightKind::Omni, [](LightAnimation& r) { r.loopInterpolation = true; },
       "loopInterpolation is set while loop is not"},
  };
  for (const auto& [kind, breakIt, fault] : lights) {
    LightAnimation r = soundLight(kind);
    breakIt(r);
    EXPECT_EQ(r.validate(), fault);
  }
}

#ifndef NDEBUG
TEST(AnimationRecordsDeathTest, DebugBuildsStopAtAFaultyRecordBeforeWritingIt) {
  TransformAnimation r = soundTransform();
  r.keys.clear();
  T_MemoryFile f;
  EXPECT_DEATH(f << r, "animation of \"Box01\": keys has no key");
}
#endif

// --- zt2dump --validate on chunks written by hand ---

TEST(AnimationValidation, ASoundLightChunkPassesAndEachFaultIsNamed) {
  const std::string node = " (node \"L\"): ";
  const std::vector<std::pair<std::function<void(OmniChunk&)>, std::string>> cases = {
      {[](OmniChunk&) {}, ""},
      {[](OmniChunk& c) { c.object = LightKind::Omni; }, ""},
      {[](OmniChunk& c) { c.object = LightKind::Spot; },
       "OmniLightAnimationChunk at offset 283 animates SpotLightChunk at offset 8, a light of another kind"},
      {[](OmniChunk& c) { c.intensity[1].first = 4; }, node + "intensityKeys[1] is at sample 4, outside the 4 samples"},
      {[](OmniChunk& c) { c.intensity[1].second = -0.5f; }, node + "intensityKeys[1] is negative"},
      {[](OmniChunk& c) { c.loopInterpolation = true; }, node + "loopInterpolation is set while loop is not"},
  };
  for (const auto& [change, fault] : cases) {
    ztx_test::TempDir dir;
    OmniChunk c;
    change(c);
    const auto r = ztx_test::runDump({"--validate", writeScene(dir, c)});
    EXPECT_EQ(r.exitCode, fault.empty() ? 0 : 1) << fault << r.err;
    if (fault.empty()) continue;
    EXPECT_NE(r.err.find("OmniLightAnimationChunk at offset "), std::string::npos) << r.err;
    EXPECT_NE(r.err.find(fault + "\n"), std::string::npos) << "expected: " << fault << "\ngot: " << r.err;
  }
}
