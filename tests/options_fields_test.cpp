// The record's fields by name: strict values, the dialog's limits and spinner
// rules, and clear one-line errors.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "support/test_support.h"

namespace {

using ztx_test::TempDir;

// A record with every default and the frame range the driver would set for a
// scene of 100 frames.
struct Fixture {
  TempDir dir;
  OptionsDialog record{dir.path().string(), 30};
  std::string error = "untouched";
  Fixture() { record.endFrame = 100; }
  bool set(const std::string& name, const std::string& value) { return setOptionField(record, name, value, error); }
};

}  // namespace

TEST(OptionFields, NamesAreTheRecordFieldsInOrder) {
  const std::vector<std::string> expected = {
      "exportGeometry", "exportSkinning", "exportAnimation", "exportCameras", "exportLights", "exportMaterials",
      "exportHelpers", "exportEnvironment", "removeFloatingVertices", "removeHiddenObjects", "rescale",
      "rescaleFactor", "texturePath", "copyTextures", "dumpInfo", "retainHierarchies", "pivotAsMeshCenter",
      "saveReferencesOnce", "sampleRate", "positionDelta", "rotationDelta", "frameToFrameInterpolation",
      "maintainMatrixScaling", "loop", "loopInterpolation", "decreaseEndFrameByOne", "useGlobalAnimationRange",
      "startFrame", "endFrame", "loopToFrame"};
  EXPECT_EQ(optionFieldNames(), expected);
}

TEST(OptionFields, EveryFieldReadsBackWhatWasSet) {
  Fixture f;
  for (const std::string& name : optionFieldNames()) {
    SCOPED_TRACE(name);
    std::string before;
    ASSERT_TRUE(getOptionField(f.record, name, before));
    EXPECT_TRUE(f.set(name, before)) << f.error;
    std::string after;
    getOptionField(f.record, name, after);
    EXPECT_EQ(after, before);
  }
}

TEST(OptionFields, FlagsTakeZeroOneTrueFalse) {
  Fixture f;
  EXPECT_TRUE(f.set("exportLights", "0"));
  EXPECT_EQ(f.record.exportLights, 0);
  EXPECT_EQ(f.error, "");
  EXPECT_TRUE(f.set("exportLights", "true"));
  EXPECT_EQ(f.record.exportLights, 1);
  EXPECT_TRUE(f.set("exportLights", "false"));
  EXPECT_EQ(f.record.exportLights, 0);
  EXPECT_TRUE(f.set("exportLights", "1"));
  EXPECT_EQ(f.record.exportLights, 1);
}

TEST(OptionFields, MalformedFlagsAreRefused) {
  for (const char* bad : {"2", "yes", "TRUE", "", " 1", "01", "-0"}) {
    SCOPED_TRACE(bad);
    Fixture f;
    f.record.loop = 1;
    EXPECT_FALSE(f.set("loop", bad));
    EXPECT_EQ(f.error, std::string("--set loop=") + bad + ": loop takes 0, 1, true or false");
    EXPECT_EQ(f.record.loop, 1);
  }
}

TEST(OptionFields, FloatSpinnerLimits) {
  Fixture f;
  EXPECT_TRUE(f.set("positionDelta", "0"));
  EXPECT_EQ(f.record.positionDelta, 0.0f);
  EXPECT_TRUE(f.set("rotationDelta", "100"));
  EXPECT_EQ(f.record.rotationDelta, 100.0f);
  EXPECT_TRUE(f.set("rescaleFactor", "2.5e0"));
  EXPECT_EQ(f.record.rescaleFactor, 2.5f);

  EXPECT_FALSE(f.set("rescaleFactor", "100.5"));
  EXPECT_EQ(f.error, "--set rescaleFactor=100.5: rescaleFactor must be between 0 and 100");
  EXPECT_FALSE(f.set("positionDelta", "-0.001"));
  EXPECT_EQ(f.error, "--set positionDelta=-0.001: positionDelta must be between 0 and 100");
  EXPECT_EQ(f.record.positionDelta, 0.0f);
  EXPECT_EQ(f.record.rescaleFactor, 2.5f);
}

TEST(OptionFields, MalformedFloatsAreRefused) {
  for (const char* bad : {"", "abc", "1,5", "0.5x", "nan", "inf", "1e40", " 1"}) {
    SCOPED_TRACE(bad);
    Fixture f;
    EXPECT_FALSE(f.set("rotationDelta", bad));
    EXPECT_EQ(f.error, std::string("--set rotationDelta=") + bad + ": rotationDelta must be a number");
    EXPECT_EQ(f.record.rotationDelta, 0.001f);
  }
}

TEST(OptionFields, SampleRateFromOneToFiveHundred) {
  Fixture f;
  EXPECT_TRUE(f.set("sampleRate", "1"));
  EXPECT_EQ(f.record.sampleRate, 1);
  EXPECT_TRUE(f.set("sampleRate", "500"));
  EXPECT_EQ(f.record.sampleRate, 500);
  EXPECT_FALSE(f.set("sampleRate", "0"));
  EXPECT_EQ(f.error, "--set sampleRate=0: sampleRate must be between 1 and 500");
  EXPECT_FALSE(f.set("sampleRate", "501"));
  EXPECT_EQ(f.error, "--set sampleRate=501: sampleRate must be between 1 and 500");
  EXPECT_FALSE(f.set("sampleRate", "25.0"));
  EXPECT_EQ(f.error, "--set sampleRate=25.0: sampleRate must be an integer");
  EXPECT_FALSE(f.set("sampleRate", "99999999999"));
  EXPECT_EQ(f.error, "--set sampleRate=99999999999: sampleRate must be an integer");
  EXPECT_EQ(f.record.sampleRate, 500);
}

TEST(OptionFields, InterpolationByNumberOrWord) {
  Fixture f;
  EXPECT_TRUE(f.set("frameToFrameInterpolation", "orthonormalized"));
  EXPECT_EQ(f.record.frameToFrameInterpolation, 2);
  EXPECT_TRUE(f.set("frameToFrameInterpolation", "none"));
  EXPECT_EQ(f.record.frameToFrameInterpolation, 0);
  EXPECT_TRUE(f.set("frameToFrameInterpolation", "1"));
  EXPECT_EQ(f.record.frameToFrameInterpolation, 1);
  for (const char* bad : {"3", "-1", "Normalized", "normal", ""}) {
    SCOPED_TRACE(bad);
    EXPECT_FALSE(f.set("frameToFrameInterpolation", bad));
    EXPECT_EQ(f.error, std::string("--set frameToFrameInterpolation=") + bad +
                           ": frameToFrameInterpolation takes 0, 1, 2, none, normalized or orthonormalized");
  }
  EXPECT_EQ(f.record.frameToFrameInterpolation, 1);
}

TEST(OptionFields, TexturePathTakesAnyText) {
  Fixture f;
  EXPECT_TRUE(f.set("texturePath", "maps/with space=and more"));
  EXPECT_EQ(f.record.texturePath, "maps/with space=and more");
  EXPECT_TRUE(f.set("texturePath", ""));
  EXPECT_EQ(f.record.texturePath, "");
}

TEST(OptionFields, UnknownNameSuggestsTheClosest) {
  Fixture f;
  EXPECT_FALSE(f.set("sampelRate", "30"));
  EXPECT_EQ(f.error, "--set sampelRate=30: unknown option field 'sampelRate' (did you mean 'sampleRate'?)");
  EXPECT_FALSE(f.set("exportlights", "1"));
  EXPECT_EQ(f.error, "--set exportlights=1: unknown option field 'exportlights' (did you mean 'exportLights'?)");
  EXPECT_FALSE(f.set("loopTo", "1"));
  EXPECT_EQ(f.error, "--set loopTo=1: unknown option field 'loopTo' (did you mean 'loopToFrame'?)");
}

TEST(OptionFields, NotEditableFieldsAreUnknown) {
  Fixture f;
  for (const char* name : {"sceneFrameRate", "configFilePath", "saveOnClose", "texturePathHistory", "ticksPerFrame"}) {
    SCOPED_TRACE(name);
    EXPECT_FALSE(f.set(name, "1"));
    EXPECT_NE(f.error.find("unknown option field"), std::string::npos);
  }
}

TEST(OptionFields, FramesWithinTheSceneRange) {
  Fixture f;
  EXPECT_TRUE(f.set("endFrame", "100"));
  EXPECT_FALSE(f.set("endFrame", "101"));
  EXPECT_EQ(f.error, "--set endFrame=101: endFrame must be between 0 and 100 (the scene's frame range)");
  EXPECT_FALSE(f.set("startFrame", "-1"));
  EXPECT_EQ(f.error, "--set startFrame=-1: startFrame must be between 0 and 100 (the scene's frame range)");
  EXPECT_FALSE(f.set("loopToFrame", "x"));
  EXPECT_EQ(f.error, "--set loopToFrame=x: loopToFrame must be an integer");
}

TEST(OptionFields, LimitsCapturedBeforeEditsStay) {
  Fixture f;
  const FrameLimits limits = frameLimitsOf(f.record);
  EXPECT_EQ(limits.min, 0);
  EXPECT_EQ(limits.max, 100);
  ASSERT_TRUE(setOptionField(f.record, "endFrame", "40", f.error, limits));
  // Taken from the record now, the range would have shrunk to 0..40.
  EXPECT_TRUE(setOptionField(f.record, "startFrame", "60", f.error, limits)) << f.error;
  EXPECT_FALSE(setOptionField(f.record, "loopToFrame", "70", f.error));
}

TEST(OptionFields, StartPastEndPullsEndAlongAndClampsLoopTo) {
  Fixture f;
  const FrameLimits limits = frameLimitsOf(f.record);
  setOptionField(f.record, "endFrame", "40", f.error, limits);
  setOptionField(f.record, "loopToFrame", "30", f.error, limits);
  ASSERT_TRUE(setOptionField(f.record, "startFrame", "60", f.error, limits));
  EXPECT_EQ(f.record.startFrame, 60);
  EXPECT_EQ(f.record.endFrame, 60);
  EXPECT_EQ(f.record.loopToFrame, 60);
}

TEST(OptionFields, EndBeforeStartPullsStartAlong) {
  Fixture f;
  const FrameLimits limits = frameLimitsOf(f.record);
  setOptionField(f.record, "startFrame", "50", f.error, limits);
  ASSERT_TRUE(setOptionField(f.record, "endFrame", "20", f.error, limits));
  EXPECT_EQ(f.record.startFrame, 20);
  EXPECT_EQ(f.record.endFrame, 20);
  EXPECT_EQ(f.record.loopToFrame, 20);
}

TEST(OptionFields, LoopToFrameIsHeldInsideTheRange) {
  Fixture f;
  const FrameLimits limits = frameLimitsOf(f.record);
  setOptionField(f.record, "startFrame", "10", f.error, limits);
  setOptionField(f.record, "endFrame", "20", f.error, limits);
  ASSERT_TRUE(setOptionField(f.record, "loopToFrame", "90", f.error, limits));
  EXPECT_EQ(f.record.loopToFrame, 20);
  ASSERT_TRUE(setOptionField(f.record, "loopToFrame", "3", f.error, limits));
  EXPECT_EQ(f.record.loopToFrame, 10);
}

TEST(OptionFields, AnySpinnerChangeClampsLoopTo) {
  Fixture f;
  f.record.startFrame = 5;
  f.record.endFrame = 9;
  f.record.loopToFrame = 0;
  ASSERT_TRUE(f.set("rotationDelta", "0.5"));
  EXPECT_EQ(f.record.loopToFrame, 5);
  // A check box is not a spinner: no clamp.
  f.record.loopToFrame = 0;
  ASSERT_TRUE(f.set("loop", "0"));
  EXPECT_EQ(f.record.loopToFrame, 0);
}

TEST(OptionFields, HelpListsEveryFieldWithTypeRangeAndDefault) {
  const std::string help = optionFieldsHelp();
  for (const std::string& name : optionFieldNames()) EXPECT_NE(help.find("  " + name + " "), std::string::npos) << name;
  EXPECT_EQ(std::count(help.begin(), help.end(), '\n'), static_cast<long>(optionFieldNames().size()) + 1);
  // One line as an example of the columns.
  const std::size_t at = help.find("  sampleRate ");
  const std::string line = help.substr(at, help.find('\n', at) - at);
  EXPECT_NE(line.find("int"), std::string::npos);
  EXPECT_NE(line.find("1 to 500"), std::string::npos);
  EXPECT_NE(line.find("scene frame rate"), std::string::npos);
}

TEST(OptionFields, HelpDefaultsAreTheRecordDefaults) {
  Fixture f;
  const std::string help = optionFieldsHelp();
  for (const std::string& name : optionFieldNames()) {
    if (name == "sampleRate" || name == "endFrame") continue;  // these come from the scene
    SCOPED_TRACE(name);
    std::string value;
    getOptionField(f.record, name, value);
    const std::size_t at = help.find("  " + name + " ");
    const std::string line = help.substr(at, help.find('\n', at) - at);
    EXPECT_EQ(line.substr(line.size() - value.size() - 2), "  " + value);
  }
}
