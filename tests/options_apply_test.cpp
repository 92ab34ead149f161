// Deriving the export settings from the dialog record (applyDialogOptions)
// and the overrides of ZTExportAdditional.cfg (readAdditionalConfig).
#include <gtest/gtest.h>

#include <array>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"
#include "support/test_support.h"

namespace {

// An exporter as the driver leaves it before the options are applied: a
// 30 fps scene from frame 10 to frame 40, per-export values reset.
struct Fixture {
  ztx_test::TempDir dir;
  std::unique_ptr<hostmodel::MemoryHost> host = hostmodel::loadSceneFromString("{}", dir.path().string());
  SceneExporter exporter;
  OptionsDialog record{dir.path().string(), 30};

  Fixture() {
    host->setConfigDir(dir.path().string());
    exporter.host = host.get();
    exporter.animationRange = {10 * 160, 40 * 160};
    record.endFrame = 30;
  }
  // Settings as the dialog left them, distinct from every script value used below.
  void applyKnownDialog() {
    record.positionDelta = 0.5f;
    record.rotationDelta = 0.25f;
    record.frameToFrameInterpolation = 1;
    record.maintainMatrixScaling = 1;
    record.startFrame = 2;
    record.loopToFrame = 4;
    record.decreaseEndFrameByOne = 0;
    applyDialogOptions(exporter, record);
  }
  void runScript(const std::string& text) {
    ztx_test::writeText(scriptPath(), text);
    readAdditionalConfig(exporter);
  }
  std::string scriptPath() const { return dir.file("ZTExportAdditional.cfg"); }
  // The one logged error of a script that fails, or none when `message` is empty.
  void expectScriptError(const std::string& message) const {
    const std::string line = "Error while reading additional config script: " + message;
    EXPECT_EQ(exporter.infoLog.lines(), message.empty() ? std::vector<std::string>{} : std::vector<std::string>{line});
    EXPECT_EQ(exporter.hasError(), !message.empty());
  }
};

// The settings a script may change: start, end and loop-to frame, the two
// deltas, loop and loop interpolation.
using Got = std::tuple<int, int, int, float, float, bool, bool>;
Got got(const ExportOptions& o) {
  return {o.startFrame, o.endFrame, o.loopToFrame, o.positionDelta, o.rotationDelta, o.loop, o.loopInterpolation};
}
const Got kDialog{2, 30, 4, 0.5f, 0.25f, true, true};

}  // namespace

// --- applyDialogOptions ---

TEST(ApplyDialogOptions, EveryFlagIsCopiedNonZeroAsTrue) {
  using D = OptionsDialog;
  using E = ExportOptions;
  const std::pair<int D::*, bool E::*> flags[] = {
      {&D::exportGeometry, &E::exportGeometry}, {&D::exportSkinning, &E::exportSkinning},
      {&D::exportAnimation, &E::exportAnimation}, {&D::exportCameras, &E::exportCameras},
      {&D::exportLights, &E::exportLights}, {&D::exportMaterials, &E::exportMaterials},
      {&D::exportHelpers, &E::exportHelpers}, {&D::exportEnvironment, &E::exportEnvironment},
      {&D::removeFloatingVertices, &E::removeFloatingVertices}, {&D::removeHiddenObjects, &E::removeHiddenObjects},
      {&D::copyTextures, &E::copyTextures}, {&D::dumpInfo, &E::dumpInfo},
      {&D::retainHierarchies, &E::retainHierarchies}, {&D::pivotAsMeshCenter, &E::pivotAsMeshCenter},
      {&D::saveReferencesOnce, &E::saveReferencesOnce}, {&D::useGlobalAnimationRange, &E::useGlobalAnimationRange}};
  Fixture f;
  for (const auto& [in, out] : flags) {
    f.record.*in = 0;
    applyDialogOptions(f.exporter, f.record);
    EXPECT_FALSE(f.exporter.options.*out) << &in - &flags[0].first;
    f.record.*in = 7;  // a check box in a third state still counts as set
    applyDialogOptions(f.exporter, f.record);
    EXPECT_TRUE(f.exporter.options.*out) << &in - &flags[0].first;
  }
}

// The deltas, the interpolation and the loop flags are checked through the
// known dialog settings of the script tests below; the texture path and the
// re-scale factor by whole exports (materials and scene walk tests).
TEST(ApplyDialogOptions, SampleRateAndMatrixScaling) {
  Fixture f;
  f.record.frameToFrameInterpolation = 2;
  f.record.maintainMatrixScaling = 1;
  f.record.sampleRate = 15;
  f.record.startFrame = 3;
  applyDialogOptions(f.exporter, f.record);
  const ExportOptions& o = f.exporter.options;
  EXPECT_TRUE(o.maintainMatrixScaling);
  EXPECT_EQ(o.sampleRate, 15);
  // The host now runs at the sample rate; the start time stays in the scene's ticks.
  EXPECT_EQ(f.host->GetFrameRate(), 15);
  EXPECT_EQ(f.exporter.ticksPerFrame, 160);
  EXPECT_EQ(f.exporter.startTime, 3 * 160);

  // Without interpolation there is no matrix scaling (the check box itself
  // stays set), and a stored method the dialog cannot show exports as none.
  for (int method : {0, -1, 3, 7}) {
    f.record.frameToFrameInterpolation = method;
    applyDialogOptions(f.exporter, f.record);
    EXPECT_EQ(o.frameToFrameInterpolation, 0) << method;
    EXPECT_FALSE(o.maintainMatrixScaling) << method;
  }
}

// Loop interpolation needs the loop; the end frame drops by one only for a
// looping clip with the box checked, never below the start, and pulls the
// loop-to frame down with it.
TEST(ApplyDialogOptions, LoopAndFrameDerivation) {
  // loop, decrease, start, end, loop-to in; loop interpolation, end, loop-to out. The first row is the defaults.
  const std::array<int, 8> rows[] = {{1, 1, 0, 30, 0, 1, 29, 0},    {1, 1, 0, 0, 0, 1, 0, 0},
                                     {1, 1, 5, 20, 20, 1, 19, 19},  {1, 1, 0, 20, 7, 1, 19, 7},
                                     {0, 1, 0, 20, 20, 0, 20, 20},  {1, 0, 0, 30, 0, 1, 30, 0},
                                     {0, 0, 12, 30, 12, 0, 30, 12}};
  for (const auto& [loop, decrease, start, end, loopTo, loopInterpolation, endOut, loopToOut] : rows) {
    SCOPED_TRACE(::testing::Message() << loop << decrease << " " << start << "/" << end << "/" << loopTo);
    Fixture f;
    f.record.loop = loop;
    f.record.decreaseEndFrameByOne = decrease;
    f.record.startFrame = start;
    f.record.endFrame = end;
    f.record.loopToFrame = loopTo;
    applyDialogOptions(f.exporter, f.record);
    EXPECT_EQ(got(f.exporter.options), Got(start, endOut, loopToOut, 0.001f, 0.001f, loop, loopInterpolation));
  }
}

// --- readAdditionalConfig ---

TEST(ReadAdditionalConfig, ScriptOverrides) {
  const std::pair<std::string, Got> rows[] = {
      {"", kDialog},
      {"positionDelta = 0.01; rotationDelta = 0.02;", {2, 30, 4, 0.01f, 0.02f, true, true}},
      {"positionDelta = -1; rotationDelta = -1.0;", kDialog},  // -1 is "not given"
      // The three frames travel together: a loop-to frame alone takes the whole range.
      {"loopToFrame = 5;", {-1, -1, -1, 0.5f, 0.25f, true, true}},
      {"startFrame = 10; endFrame = 20;", kDialog},
      {"startFrame = 10; endFrame = 20; loopToFrame = 25;", {10, 20, 20, 0.5f, 0.25f, true, true}},
      {"startFrame = 10; endFrame = 20; loopToFrame = 3;", {10, 20, 10, 0.5f, 0.25f, true, true}},
      {"startFrame = 20; endFrame = 10; loopToFrame = 5;", {20, 10, 10, 0.5f, 0.25f, true, true}},
      {"loop = 0; loopInterpolation = 1;", {2, 30, 4, 0.5f, 0.25f, false, false}},
      {"loop = 3; loopInterpolation = 0;", {2, 30, 4, 0.5f, 0.25f, true, false}},
      // Any given value decreases, 0 included, from the scene's whole range (30 frames).
      {"decreaseEndFrameByOne = 0;", {2, 29, 4, 0.5f, 0.25f, true, true}},
      {"startFrame = 1; endFrame = 12; loopToFrame = 12; decreaseEndFrameByOne = 1;",
       {1, 29, 12, 0.5f, 0.25f, true, true}},
      {"startFrame = 35; endFrame = 40; loopToFrame = 36; decreaseEndFrameByOne = 1;",
       {35, 35, 35, 0.5f, 0.25f, true, true}},
      {"loop = 0; decreaseEndFrameByOne = 1;", {2, 30, 4, 0.5f, 0.25f, false, false}},
  };
  for (const auto& [keys, expected] : rows) {
    SCOPED_TRACE(keys);
    Fixture f;
    f.applyKnownDialog();
    f.runScript("// overrides\nanimation {\n  " + keys + "\n}\n");
    EXPECT_EQ(got(f.exporter.options), expected);
    EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, 1);
    EXPECT_TRUE(f.exporter.options.maintainMatrixScaling);
    // The objects are still evaluated at the dialog's start frame.
    EXPECT_EQ(f.exporter.startTime, 2 * 160);
    f.expectScriptError("");
  }
}

// A valid word sets the method, an invalid one is logged; either way the
// other keys apply and no interpolation turns the matrix scaling off.
TEST(ReadAdditionalConfig, InterpolationWords) {
  // word, dialog method, method, matrix scaling, the invalid word logged
  const std::tuple<std::string, int, int, bool, std::string> rows[] = {
      {"none", 1, 0, false, ""},          {"\"normalized\"", 2, 1, true, ""},
      {"orthonormalized", 1, 2, true, ""}, {"\"Normalized\"", 2, 2, true, "Normalized"},
      {"\"normalized \"", 1, 1, true, "normalized "}, {"bogus", 0, 0, false, "bogus"}};
  for (const auto& [word, dialogMethod, method, scaling, invalid] : rows) {
    SCOPED_TRACE(word);
    Fixture f;
    f.record.frameToFrameInterpolation = dialogMethod;
    applyDialogOptions(f.exporter, f.record);
    f.exporter.options.maintainMatrixScaling = true;  // as if a pass had set it
    f.runScript("animation { frameToFrameInterpolation = " + word + "; positionDelta = 0.125; }");
    EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, method);
    EXPECT_EQ(f.exporter.options.maintainMatrixScaling, scaling);
    EXPECT_EQ(f.exporter.options.positionDelta, 0.125f);
    f.expectScriptError(invalid.empty() ? "" : "frame to frame interpolation method not valid(" + invalid + ")");
  }
}

// Nothing applies, not even the clamp of the loop-to frame into [2, 30],
// unless the block parses: no file and no block are silent, a fault is logged
// with file and line. An empty block still clamps.
TEST(ReadAdditionalConfig, NothingAppliesUnlessTheBlockParses) {
  const std::tuple<std::optional<std::string>, int, std::string> rows[] = {
      {std::nullopt, 99, ""},
      {"lights { positionDelta = 0.3; }\n", 99, ""},
      {"animation {\n}\n", 30, ""},
      {"# overrides\nanimation {\n  positionDelta = 0.3;\n  loop 1;\n}\n", 99,
       ":4: expected '=' after key 'loop', found '1'"},
      {"animation {\n  loopToFrame = 1.5;\n}\n", 99, ":2: value '1.5' of key 'loopToFrame' is not a 32-bit integer"},
      {"animation {\n  positiondelta = 0.3;\n}\n", 99, ":2: unknown key 'positiondelta' in block 'animation'"},
  };
  for (const auto& [script, loopTo, error] : rows) {
    SCOPED_TRACE(script.value_or("no file"));
    Fixture f;
    f.applyKnownDialog();
    f.exporter.options.loopToFrame = 99;
    if (script) ztx_test::writeText(f.scriptPath(), *script);
    readAdditionalConfig(f.exporter);
    EXPECT_EQ(got(f.exporter.options), Got(2, 30, loopTo, 0.5f, 0.25f, true, true));
    f.expectScriptError(error.empty() ? "" : f.scriptPath() + error);
  }
}
