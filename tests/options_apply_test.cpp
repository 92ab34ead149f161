// Deriving the export settings from the dialog record (applyDialogOptions)
// and the overrides of ZTExportAdditional.cfg (readAdditionalConfig).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "host/interface.h"
#include "options/apply_options.h"
#include "options/options_dialog.h"
#include "plugin/scene_exporter.h"
#include "support/test_support.h"

namespace {

using ztx_test::TempDir;

// Only the directory and the time settings matter to the options.
class FakeHost : public Interface {
 public:
  explicit FakeHost(std::string dir) : dir_(std::move(dir)) {}

  INode* GetRootNode() override { return nullptr; }
  Interval GetAnimRange() override { return {0, 0}; }
  std::string GetDir(int which) override {
    dirCodes.push_back(which);
    return dir_;
  }
  int GetFrameRate() override { return frameRate; }
  void SetFrameRate(int rate) override {
    frameRate = rate;
    setRates.push_back(rate);
  }
  int GetTicksPerFrame() override { return frameRate > 0 ? TIME_TICKSPERSEC / frameRate : 0; }
  void ProgressStart(const std::string&, bool) override {}
  void ProgressUpdate(int, bool, const std::string&) override {}
  void ProgressEnd() override {}
  bool GetCancel() override { return false; }
  Color GetAmbient(TimeValue, Interval&) override { return {}; }
  Color GetBackGround(TimeValue, Interval&) override { return {}; }
  void MessageBox(const std::string&, const std::string&) override {}
  void ShowExportInfo(const std::string&) override {}

  int frameRate = 30;
  std::vector<int> setRates;
  std::vector<int> dirCodes;

 private:
  std::string dir_;
};

// An exporter as the driver leaves it before step 9: host set, time settings
// of a 30 fps scene from frame 10 to frame 40, per-export values reset.
struct Fixture {
  TempDir dir;
  FakeHost host{dir.path().string()};
  SceneExporter exporter;
  OptionsDialog record{dir.path().string(), 30};

  Fixture() {
    exporter.host = &host;
    exporter.ticksPerFrame = 160;
    exporter.animationRange = {10 * 160, 40 * 160};
    record.startFrame = 0;
    record.endFrame = 30;
    record.loopToFrame = 0;
    record.animationRange = exporter.animationRange;
    record.ticksPerFrame = 160;
  }

  void writeScript(const std::string& text) { ztx_test::writeText(dir.file("ZTExportAdditional.cfg"), text); }
  const std::vector<std::string>& log() const { return exporter.infoLog.lines(); }
};

}  // namespace

// --- applyDialogOptions ---

TEST(ApplyDialogOptions, DefaultsGiveTheDefaultSettings) {
  Fixture f;
  applyDialogOptions(f.exporter, f.record);
  const ExportOptions& o = f.exporter.options;
  EXPECT_TRUE(o.exportGeometry && o.exportSkinning && o.exportAnimation && o.exportCameras && o.exportLights &&
              o.exportMaterials && o.exportHelpers && o.exportEnvironment && o.removeFloatingVertices &&
              o.removeHiddenObjects && o.copyTextures && o.dumpInfo && o.retainHierarchies && o.pivotAsMeshCenter &&
              o.saveReferencesOnce && o.useGlobalAnimationRange);
  EXPECT_EQ(o.rescaleFactor, 1.0f);
  EXPECT_EQ(o.texturePath, ".");
  EXPECT_EQ(o.positionDelta, 0.001f);
  EXPECT_EQ(o.rotationDelta, 0.001f);
  EXPECT_EQ(o.frameToFrameInterpolation, 0);
  EXPECT_FALSE(o.maintainMatrixScaling);
  EXPECT_TRUE(o.loop);
  EXPECT_TRUE(o.loopInterpolation);
  // Loop and "Dec. end frame by one" are both on by default.
  EXPECT_EQ(o.startFrame, 0);
  EXPECT_EQ(o.endFrame, 29);
  EXPECT_EQ(o.loopToFrame, 0);
  EXPECT_EQ(o.sampleRate, 30);
  EXPECT_EQ(f.exporter.startTime, 0);
}

TEST(ApplyDialogOptions, EveryFlagIsCopiedNonZeroAsTrue) {
  Fixture f;
  int OptionsDialog::*flags[] = {&OptionsDialog::exportGeometry,     &OptionsDialog::exportSkinning,
                                 &OptionsDialog::exportAnimation,    &OptionsDialog::exportCameras,
                                 &OptionsDialog::exportLights,       &OptionsDialog::exportMaterials,
                                 &OptionsDialog::exportHelpers,      &OptionsDialog::exportEnvironment,
                                 &OptionsDialog::removeFloatingVertices, &OptionsDialog::removeHiddenObjects,
                                 &OptionsDialog::copyTextures,       &OptionsDialog::dumpInfo,
                                 &OptionsDialog::retainHierarchies,  &OptionsDialog::pivotAsMeshCenter,
                                 &OptionsDialog::saveReferencesOnce, &OptionsDialog::useGlobalAnimationRange};
  bool ExportOptions::*settings[] = {&ExportOptions::exportGeometry,     &ExportOptions::exportSkinning,
                                     &ExportOptions::exportAnimation,    &ExportOptions::exportCameras,
                                     &ExportOptions::exportLights,       &ExportOptions::exportMaterials,
                                     &ExportOptions::exportHelpers,      &ExportOptions::exportEnvironment,
                                     &ExportOptions::removeFloatingVertices, &ExportOptions::removeHiddenObjects,
                                     &ExportOptions::copyTextures,       &ExportOptions::dumpInfo,
                                     &ExportOptions::retainHierarchies,  &ExportOptions::pivotAsMeshCenter,
                                     &ExportOptions::saveReferencesOnce, &ExportOptions::useGlobalAnimationRange};
  for (std::size_t i = 0; i < std::size(flags); ++i) {
    SCOPED_TRACE(i);
    f.record.*flags[i] = 0;
    applyDialogOptions(f.exporter, f.record);
    EXPECT_FALSE(f.exporter.options.*settings[i]);
    f.record.*flags[i] = 7;  // a check box in a third state still counts as set
    applyDialogOptions(f.exporter, f.record);
    EXPECT_TRUE(f.exporter.options.*settings[i]);
  }
}

TEST(ApplyDialogOptions, CopiesDeltasInterpolationAndTexturePath) {
  Fixture f;
  f.record.positionDelta = 0.5f;
  f.record.rotationDelta = 0.25f;
  f.record.frameToFrameInterpolation = 2;
  f.record.texturePath = "maps";
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.positionDelta, 0.5f);
  EXPECT_EQ(f.exporter.options.rotationDelta, 0.25f);
  EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, 2);
  EXPECT_EQ(f.exporter.options.texturePath, "maps");
}

TEST(ApplyDialogOptions, NoInterpolationTurnsMatrixScalingOff) {
  Fixture f;
  f.record.maintainMatrixScaling = 1;
  f.record.frameToFrameInterpolation = 0;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_FALSE(f.exporter.options.maintainMatrixScaling);
  EXPECT_EQ(f.record.maintainMatrixScaling, 1);  // the check box state is kept for saving

  f.record.frameToFrameInterpolation = 1;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_TRUE(f.exporter.options.maintainMatrixScaling);
}

TEST(ApplyDialogOptions, StartTimeIsTicksPerFrameTimesStartFrame) {
  Fixture f;
  f.record.startFrame = 12;
  f.record.loop = 0;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.startTime, 12 * 160);
}

TEST(ApplyDialogOptions, StartTimeUsesTheSceneTicksNotTheSampleRate) {
  Fixture f;
  f.record.startFrame = 3;
  f.record.sampleRate = 10;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.startTime, 480);
  EXPECT_EQ(f.host.GetTicksPerFrame(), 480);  // the host now runs at the sample rate
}

TEST(ApplyDialogOptions, LoopOffTurnsLoopInterpolationOff) {
  Fixture f;
  f.record.loop = 0;
  f.record.loopInterpolation = 1;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_FALSE(f.exporter.options.loop);
  EXPECT_FALSE(f.exporter.options.loopInterpolation);
}

TEST(ApplyDialogOptions, DecreaseEndFrameNotBelowStart) {
  Fixture f;
  f.record.startFrame = 0;
  f.record.endFrame = 0;
  f.record.loopToFrame = 0;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.endFrame, 0);
  EXPECT_EQ(f.exporter.options.loopToFrame, 0);
}

TEST(ApplyDialogOptions, DecreaseEndFramePullsLoopToFrameDown) {
  Fixture f;
  f.record.startFrame = 5;
  f.record.endFrame = 20;
  f.record.loopToFrame = 20;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.endFrame, 19);
  EXPECT_EQ(f.exporter.options.loopToFrame, 19);
}

TEST(ApplyDialogOptions, DecreaseEndFrameLeavesASmallerLoopToFrame) {
  Fixture f;
  f.record.endFrame = 20;
  f.record.loopToFrame = 7;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.endFrame, 19);
  EXPECT_EQ(f.exporter.options.loopToFrame, 7);
}

TEST(ApplyDialogOptions, NoDecreaseWithoutLoop) {
  Fixture f;
  f.record.loop = 0;
  f.record.endFrame = 20;
  f.record.loopToFrame = 20;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.endFrame, 20);
  EXPECT_EQ(f.exporter.options.loopToFrame, 20);
}

TEST(ApplyDialogOptions, NoDecreaseWhenTheBoxIsOff) {
  Fixture f;
  f.record.decreaseEndFrameByOne = 0;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.endFrame, 30);
}

TEST(ApplyDialogOptions, RescaleFactorOnlyWhenRescaleIsSet) {
  Fixture f;
  f.record.rescale = 0;
  f.record.rescaleFactor = 2.5f;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.rescaleFactor, 1.0f);

  f.record.rescale = 1;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.rescaleFactor, 2.5f);
}

TEST(ApplyDialogOptions, UncheckedRescaleStillSavesTheFactor) {
  Fixture f;
  f.record.rescale = 0;
  f.record.rescaleFactor = 2.5f;
  applyDialogOptions(f.exporter, f.record);
  f.record.saveOptions();
  OptionsDialog again(f.dir.path().string(), 30);
  EXPECT_EQ(again.rescaleFactor, 2.5f);
  EXPECT_EQ(again.rescale, 0);
}

TEST(ApplyDialogOptions, SampleRateGoesToTheHost) {
  Fixture f;
  f.record.sampleRate = 15;
  applyDialogOptions(f.exporter, f.record);
  EXPECT_EQ(f.exporter.options.sampleRate, 15);
  EXPECT_EQ(f.host.setRates, std::vector<int>{15});
  EXPECT_EQ(f.host.GetTicksPerFrame(), 320);
  // The scene's own ticks stay with the exporter.
  EXPECT_EQ(f.exporter.ticksPerFrame, 160);
}

// --- readAdditionalConfig ---

namespace {

// Settings as the dialog left them, distinct from every script value used below.
void applyKnownDialog(Fixture& f) {
  f.record.positionDelta = 0.5f;
  f.record.rotationDelta = 0.25f;
  f.record.frameToFrameInterpolation = 1;
  f.record.maintainMatrixScaling = 1;
  f.record.startFrame = 2;
  f.record.endFrame = 30;
  f.record.loopToFrame = 4;
  f.record.decreaseEndFrameByOne = 0;
  applyDialogOptions(f.exporter, f.record);
}

void expectDialogSettings(const ExportOptions& o) {
  EXPECT_EQ(o.positionDelta, 0.5f);
  EXPECT_EQ(o.rotationDelta, 0.25f);
  EXPECT_EQ(o.frameToFrameInterpolation, 1);
  EXPECT_TRUE(o.maintainMatrixScaling);
  EXPECT_EQ(o.startFrame, 2);
  EXPECT_EQ(o.endFrame, 30);
  EXPECT_EQ(o.loopToFrame, 4);
  EXPECT_TRUE(o.loop);
  EXPECT_TRUE(o.loopInterpolation);
}

}  // namespace

TEST(ReadAdditionalConfig, NoFileChangesNothingNotEvenTheClamp) {
  Fixture f;
  applyKnownDialog(f);
  f.exporter.options.loopToFrame = 99;  // outside [2, 30]: a clamp would show
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 99);
  EXPECT_TRUE(f.log().empty());
  EXPECT_FALSE(f.exporter.hasError());
}

TEST(ReadAdditionalConfig, ReadsFromTheConfigurationDirectory) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { positionDelta = 0.75; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.host.dirCodes, std::vector<int>{9});
  EXPECT_EQ(f.exporter.options.positionDelta, 0.75f);
}

TEST(ReadAdditionalConfig, EmptyBlockStillClamps) {
  Fixture f;
  applyKnownDialog(f);
  f.exporter.options.loopToFrame = 99;
  f.writeScript("animation {\n}\n");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 30);
  f.exporter.options.loopToFrame = 0;
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 2);
  EXPECT_TRUE(f.log().empty());
}

TEST(ReadAdditionalConfig, EmptyBlockChangesNoSetting) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation {}");
  readAdditionalConfig(f.exporter);
  expectDialogSettings(f.exporter.options);
}

TEST(ReadAdditionalConfig, DeltasOverrideTheDialog) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { positionDelta = 0.01; rotationDelta = 0.02; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.positionDelta, 0.01f);
  EXPECT_EQ(f.exporter.options.rotationDelta, 0.02f);
}

TEST(ReadAdditionalConfig, MinusOneDeltaIsNotGiven) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { positionDelta = -1; rotationDelta = -1.0; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.positionDelta, 0.5f);
  EXPECT_EQ(f.exporter.options.rotationDelta, 0.25f);
}

TEST(ReadAdditionalConfig, InterpolationWords) {
  const std::pair<const char*, int> words[] = {{"none", 0}, {"normalized", 1}, {"orthonormalized", 2}};
  for (const auto& [word, method] : words) {
    SCOPED_TRACE(word);
    Fixture f;
    applyKnownDialog(f);
    f.writeScript(std::string("animation { frameToFrameInterpolation = \"") + word + "\"; }");
    readAdditionalConfig(f.exporter);
    EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, method);
    EXPECT_FALSE(f.exporter.hasError());
  }
}

TEST(ReadAdditionalConfig, InterpolationNoneTurnsMatrixScalingOff) {
  Fixture f;
  applyKnownDialog(f);
  ASSERT_TRUE(f.exporter.options.maintainMatrixScaling);
  f.writeScript("animation { frameToFrameInterpolation = none; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, 0);
  EXPECT_FALSE(f.exporter.options.maintainMatrixScaling);
}

TEST(ReadAdditionalConfig, CapitalisedWordIsAnError) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { frameToFrameInterpolation = \"Normalized\"; positionDelta = 0.125; }");
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0],
            "Error while reading additional config script: frame to frame interpolation method not valid(Normalized)");
  EXPECT_TRUE(f.exporter.hasError());
  EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, 1);
  // The other keys still apply.
  EXPECT_EQ(f.exporter.options.positionDelta, 0.125f);
}

TEST(ReadAdditionalConfig, PartOfAWordIsAnError) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { frameToFrameInterpolation = \"normalized \"; }");
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0],
            "Error while reading additional config script: frame to frame interpolation method not valid(normalized )");
}

TEST(ReadAdditionalConfig, OverlongWordIsAnError) {
  Fixture f;
  applyKnownDialog(f);
  const std::string word(300, 'n');
  f.writeScript("animation { frameToFrameInterpolation = \"" + word + "\"; }");
  readAdditionalConfig(f.exporter);
  EXPECT_TRUE(f.exporter.hasError());
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_NE(f.log()[0].find("not valid(nnnn"), std::string::npos);
  EXPECT_EQ(f.exporter.options.frameToFrameInterpolation, 1);
}

TEST(ReadAdditionalConfig, InvalidWordWithInterpolationNoneKeepsScalingRule) {
  Fixture f;
  f.record.frameToFrameInterpolation = 0;
  applyDialogOptions(f.exporter, f.record);
  f.exporter.options.maintainMatrixScaling = true;  // as if a pass had set it
  f.writeScript("animation { frameToFrameInterpolation = bogus; }");
  readAdditionalConfig(f.exporter);
  EXPECT_TRUE(f.exporter.hasError());
  EXPECT_FALSE(f.exporter.options.maintainMatrixScaling);
}

TEST(ReadAdditionalConfig, LoopToFrameAloneTakesTheWholeRange) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { loopToFrame = 5; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.startFrame, -1);
  EXPECT_EQ(f.exporter.options.endFrame, -1);
  EXPECT_EQ(f.exporter.options.loopToFrame, -1);
}

TEST(ReadAdditionalConfig, StartAndEndWithoutLoopToFrameAreIgnored) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 10; endFrame = 20; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.startFrame, 2);
  EXPECT_EQ(f.exporter.options.endFrame, 30);
  EXPECT_EQ(f.exporter.options.loopToFrame, 4);
}

TEST(ReadAdditionalConfig, FullFrameRangeIsTakenAndClamped) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 10; endFrame = 20; loopToFrame = 25; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.startFrame, 10);
  EXPECT_EQ(f.exporter.options.endFrame, 20);
  EXPECT_EQ(f.exporter.options.loopToFrame, 20);
  // The objects are still evaluated at the dialog's start frame.
  EXPECT_EQ(f.exporter.startTime, 2 * 160);
}

TEST(ReadAdditionalConfig, LoopToFrameBelowStartIsRaised) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 10; endFrame = 20; loopToFrame = 3; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 10);
}

TEST(ReadAdditionalConfig, ClampRaisesThenLowers) {
  // With start above end the lowering wins: loop-to ends at the end frame.
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 20; endFrame = 10; loopToFrame = 5; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 10);
}

TEST(ReadAdditionalConfig, LoopOffWithLoopInterpolationOn) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { loop = 0; loopInterpolation = 1; }");
  readAdditionalConfig(f.exporter);
  EXPECT_FALSE(f.exporter.options.loop);
  EXPECT_FALSE(f.exporter.options.loopInterpolation);
}

TEST(ReadAdditionalConfig, LoopAnyNonZeroIsOn) {
  Fixture f;
  f.record.loop = 0;
  applyDialogOptions(f.exporter, f.record);
  f.writeScript("animation { loop = 3; loopInterpolation = 0; }");
  readAdditionalConfig(f.exporter);
  EXPECT_TRUE(f.exporter.options.loop);
  EXPECT_FALSE(f.exporter.options.loopInterpolation);
}

TEST(ReadAdditionalConfig, DecreaseEndFrameGivenAsZeroStillDecreases) {
  Fixture f;
  applyKnownDialog(f);  // loop on; the range is frames 10 to 40 of the scene
  f.writeScript("animation { decreaseEndFrameByOne = 0; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.endFrame, 29);
}

TEST(ReadAdditionalConfig, DecreaseEndFrameReplacesTheScriptEndFrame) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 1; endFrame = 12; loopToFrame = 12; decreaseEndFrameByOne = 1; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.endFrame, 29);
  EXPECT_EQ(f.exporter.options.loopToFrame, 12);
}

TEST(ReadAdditionalConfig, DecreaseEndFrameNotBelowStart) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { startFrame = 35; endFrame = 40; loopToFrame = 36; decreaseEndFrameByOne = 1; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.endFrame, 35);
  EXPECT_EQ(f.exporter.options.loopToFrame, 35);
}

TEST(ReadAdditionalConfig, DecreaseEndFrameIgnoredWithoutLoop) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation { loop = 0; decreaseEndFrameByOne = 1; }");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.endFrame, 30);
}

TEST(ReadAdditionalConfig, MissingBlockIsSilentAndSkipsTheClamp) {
  Fixture f;
  applyKnownDialog(f);
  f.exporter.options.loopToFrame = 99;
  f.writeScript("lights { positionDelta = 0.3; }\n");
  readAdditionalConfig(f.exporter);
  EXPECT_EQ(f.exporter.options.loopToFrame, 99);
  EXPECT_EQ(f.exporter.options.positionDelta, 0.5f);
  EXPECT_TRUE(f.log().empty());
  EXPECT_FALSE(f.exporter.hasError());
}

TEST(ReadAdditionalConfig, SyntaxErrorIsLoggedWithFileAndLine) {
  Fixture f;
  applyKnownDialog(f);
  f.exporter.options.loopToFrame = 99;
  f.writeScript("# overrides\nanimation {\n  positionDelta = 0.3;\n  loop 1;\n}\n");
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0], "Error while reading additional config script: " + f.dir.file("ZTExportAdditional.cfg") +
                            ":4: expected '=' after key 'loop', found '1'");
  EXPECT_TRUE(f.exporter.hasError());
  // Nothing applies, not even the values before the fault or the clamp.
  EXPECT_EQ(f.exporter.options.positionDelta, 0.5f);
  EXPECT_EQ(f.exporter.options.loopToFrame, 99);
}

TEST(ReadAdditionalConfig, BadNumberIsLoggedWithFileAndLine) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation {\n  loopToFrame = 1.5;\n}\n");
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0], "Error while reading additional config script: " + f.dir.file("ZTExportAdditional.cfg") +
                            ":2: value '1.5' of key 'loopToFrame' is not a 32-bit integer");
  EXPECT_EQ(f.exporter.options.loopToFrame, 4);
}

TEST(ReadAdditionalConfig, UnknownKeyIsAnError) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("animation {\n  positiondelta = 0.3;\n}\n");
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0], "Error while reading additional config script: " + f.dir.file("ZTExportAdditional.cfg") +
                            ":2: unknown key 'positiondelta' in block 'animation'");
  EXPECT_TRUE(f.exporter.hasError());
}

TEST(ReadAdditionalConfig, UnreadableFileIsLogged) {
  Fixture f;
  applyKnownDialog(f);
  std::filesystem::create_directory(f.dir.file("ZTExportAdditional.cfg"));
  readAdditionalConfig(f.exporter);
  ASSERT_EQ(f.log().size(), 1u);
  EXPECT_EQ(f.log()[0], "Error while reading additional config script: " + f.dir.file("ZTExportAdditional.cfg") +
                            ": cannot be read");
  EXPECT_TRUE(f.exporter.hasError());
  expectDialogSettings(f.exporter.options);
}

TEST(ReadAdditionalConfig, OtherBlocksAreNotChecked) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript("lights { anything = \"goes\"; }\nanimation { rotationDelta = 0.375; }\n");
  readAdditionalConfig(f.exporter);
  EXPECT_FALSE(f.exporter.hasError());
  EXPECT_EQ(f.exporter.options.rotationDelta, 0.375f);
}

TEST(ReadAdditionalConfig, EveryKeyAtOnce) {
  Fixture f;
  applyKnownDialog(f);
  f.writeScript(R"(// every key
animation {
  positionDelta = 0.0625;
  rotationDelta = 0.03125;
  loop = 1;
  loopToFrame = 8;
  startFrame = 6;
  endFrame = 18;
  loopInterpolation = 0;
  frameToFrameInterpolation = "orthonormalized";
  decreaseEndFrameByOne = -1;
}
)");
  readAdditionalConfig(f.exporter);
  const ExportOptions& o = f.exporter.options;
  EXPECT_FALSE(f.exporter.hasError());
  EXPECT_EQ(o.positionDelta, 0.0625f);
  EXPECT_EQ(o.rotationDelta, 0.03125f);
  EXPECT_TRUE(o.loop);
  EXPECT_FALSE(o.loopInterpolation);
  EXPECT_EQ(o.frameToFrameInterpolation, 2);
  EXPECT_TRUE(o.maintainMatrixScaling);
  EXPECT_EQ(o.startFrame, 6);
  EXPECT_EQ(o.endFrame, 18);
  EXPECT_EQ(o.loopToFrame, 8);
}
