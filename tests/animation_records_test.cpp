// Animation records: what the light writer puts into the file as zt2dump
// reads it back (the transform writer's fields are read back from whole
// exports in animation_export_test.cpp), the rules a record is checked
// against before it is written, and the same rules applied by zt2dump
// --validate to chunks written by hand.
#include <gtest/gtest.h>

#include <functional>
#include <optional>

#include "animation/animation_chunks.h"
#include "support/scene_export.h"

using nlohmann::json;

namespace {

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

// The record written alone into a scene file, read back with zt2dump --json.
template <typename Record>
json writtenAndDumped(const Record& record) {
  ztx_test::TempDir dir;
  T_MemoryFile f;
  f << record;
  EXPECT_TRUE(f.save(dir.file("a.zt2").c_str()).ok());
  return ztx_test::dumpJson(dir.file("a.zt2"))["chunks"][0];
}

}  // namespace

// --- what the writers write ---

TEST(AnimationChunks, EachLightKindWritesItsOwnTracks) {
  const json spot = writtenAndDumped(soundLight(LightKind::Spot));
  EXPECT_EQ(spot["name"], "SpotLightAnimationChunk");
  EXPECT_EQ(spot["version"], 2);
  EXPECT_EQ(spot["fields"], json::parse(R"({"numSamples": 4, "loopInterpolation": false,
      "colourKeyCount": 2, "colourKeys": [{"sample": 0, "colour": [255, 128, 0, 255]},
                                          {"sample": 3, "colour": [-255, -128, 0, 255]}],
      "intensityKeyCount": 1, "intensityKeys": [{"sample": 0, "value": 1.5}],
      "attenuationStartKeyCount": 1, "attenuationStartKeys": [{"sample": 0, "value": 10}],
      "attenuationEndKeyCount": 2, "attenuationEndKeys": [{"sample": 0, "value": 40}, {"sample": 1, "value": 50}],
      "hotspotKeyCount": 1, "hotspotKeys": [{"sample": 0, "value": 0.5}],
      "falloffKeyCount": 1, "falloffKeys": [{"sample": 0, "value": 0.75}],
      "loopToFrame": 2})"));

  const json omni = writtenAndDumped(soundLight(LightKind::Omni));
  EXPECT_EQ(omni["name"], "OmniLightAnimationChunk");
  EXPECT_FALSE(omni["fields"].contains("hotspotKeys"));
  EXPECT_TRUE(omni["fields"].contains("attenuationEndKeys"));

  const json directional = writtenAndDumped(soundLight(LightKind::Directional));
  EXPECT_EQ(directional["name"], "DirectionalLightAnimationChunk");
  EXPECT_EQ(directional["children"][0]["fields"], json::parse(R"({"name": "Lamp", "sampleRate": 15, "loop": false})"));
  EXPECT_FALSE(directional["fields"].contains("attenuationStartKeys"));
  EXPECT_EQ(directional["fields"]["loopToFrame"], 2);
}

// --- the rules ---

TEST(AnimationRecords, ASoundRecordPassesAndTheFirstBrokenRuleIsNamed) {
  const std::vector<std::pair<std::function<void(TransformAnimation&)>, std::string>> transforms = {
      {[](TransformAnimation&) {}, ""},
      {[](TransformAnimation& r) { r.numSamples = 0; }, "numSamples 0 holds no sample"},
      {[](TransformAnimation& r) { r.keys.clear(); }, "keys has no key"},
      {[](TransformAnimation& r) { r.keys[0].sample = 1; }, "keys[0] is at sample 1, not 0"},
      {[](TransformAnimation& r) { r.visibilityKeys[1].sample = 10; },
       "visibilityKeys[1] is at sample 10, outside the 10 samples"},
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
      {LightKind::Spot, [](LightAnimation& r) { r.falloffKeys.clear(); }, "falloffKeys has no key"},
      {LightKind::Omni, [](LightAnimation& r) { r.colourKeys[1].sample = 0; },
       "colourKeys[1] is at sample 0, not after the previous key's 0"},
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

namespace {

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

TEST(AnimationValidation, ASoundLightChunkPassesAndEachFaultIsNamed) {
  const std::string node = " (node \"L\"): ";
  const std::vector<std::pair<std::function<void(OmniChunk&)>, std::string>> cases = {
      {[](OmniChunk&) {}, ""},
      {[](OmniChunk& c) { c.object = LightKind::Omni; }, ""},
      {[](OmniChunk& c) { c.object = LightKind::Spot; },
       "OmniLightAnimationChunk at offset 283 animates SpotLightChunk at offset 8, a light of another kind"},
      {[](OmniChunk& c) { c.attenuationEnd.clear(); }, node + "attenuationEndKeys has no key"},
      {[](OmniChunk& c) { c.numSamples = 0; }, node + "numSamples 0 holds no sample"},
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
