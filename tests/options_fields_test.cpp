// The record's fields by name: strict values, the dialog's limits and spinner
// rules, and clear one-line errors.
#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "support/test_support.h"

namespace {

// A record with every default and the frame range the driver would set for a
// scene of 100 frames.
struct Fixture {
  ztx_test::TempDir dir;
  OptionsDialog record{dir.path().string(), 30};
  std::string error = "untouched";
  Fixture() { record.endFrame = 100; }
  bool set(const std::string& name, const std::string& value) { return setOptionField(record, name, value, error); }
  std::string get(const std::string& name) {
    std::string value;
    EXPECT_TRUE(getOptionField(record, name, value)) << name;
    return value;
  }
};

}  // namespace

// Every field reads back what was set, and the help names each.
TEST(OptionFields, EveryFieldRoundTripsAndIsHelped) {
  Fixture f;
  const std::string help = optionFieldsHelp();
  for (const std::string& name : optionFieldNames()) {
    SCOPED_TRACE(name);
    const std::string before = f.get(name);
    EXPECT_TRUE(f.set(name, before)) << f.error;
    EXPECT_EQ(f.get(name), before);
    EXPECT_NE(help.find("  " + name + " "), std::string::npos);
  }
}

// Accepted values read back as given; refused ones leave the field and name the rule.
TEST(OptionFields, ValuesAndErrors) {
  const std::string flag = "loop takes 0, 1, true or false", number = "rotationDelta must be a number";
  const std::string rate = "sampleRate must be between 1 and 500", rateInt = "sampleRate must be an integer";
  const std::string method = "frameToFrameInterpolation takes 0, 1, 2, none, normalized or orthonormalized";
  const std::string frames = " must be between 0 and 100 (the scene's frame range)";
  // field, value, the value read back (accepted) or the error after "--set field=value: " (refused)
  const std::tuple<std::string, std::string, bool, std::string> rows[] = {
      {"loop", "false", true, "0"}, {"loop", "true", true, "1"}, {"loop", "2", false, flag},
      {"loop", "TRUE", false, flag}, {"loop", " 1", false, flag}, {"positionDelta", "0", true, "0"},
      {"rotationDelta", "100", true, "100"}, {"rescaleFactor", "2.5e0", true, "2.5"},
      {"rescaleFactor", "100.5", false, "rescaleFactor must be between 0 and 100"},
      {"positionDelta", "-0.001", false, "positionDelta must be between 0 and 100"},
      {"rotationDelta", "", false, number}, {"rotationDelta", "1,5", false, number},
      {"rotationDelta", "nan", false, number}, {"rotationDelta", "1e40", false, number}, {"sampleRate", "1", true, "1"},
      {"sampleRate", "500", true, "500"}, {"sampleRate", "0", false, rate}, {"sampleRate", "501", false, rate},
      {"sampleRate", "25.0", false, rateInt}, {"sampleRate", "99999999999", false, rateInt},
      {"frameToFrameInterpolation", "orthonormalized", true, "orthonormalized"},
      {"frameToFrameInterpolation", "1", true, "normalized"}, {"frameToFrameInterpolation", "3", false, method},
      {"frameToFrameInterpolation", "Normalized", false, method},
      {"texturePath", "maps/with space=and more", true, "maps/with space=and more"}, {"texturePath", "", true, ""},
      {"endFrame", "101", false, "endFrame" + frames}, {"startFrame", "-1", false, "startFrame" + frames},
      {"loopToFrame", "x", false, "loopToFrame must be an integer"},
      {"sampelRate", "30", false, "unknown option field 'sampelRate' (did you mean 'sampleRate'?)"},
      {"exportlights", "1", false, "unknown option field 'exportlights' (did you mean 'exportLights'?)"},
      {"loopTo", "1", false, "unknown option field 'loopTo' (did you mean 'loopToFrame'?)"},
  };
  for (const auto& [name, value, ok, result] : rows) {
    SCOPED_TRACE(name + "=" + value);
    Fixture f;
    std::string before;
    const bool known = getOptionField(f.record, name, before);
    EXPECT_EQ(f.set(name, value), ok);
    EXPECT_EQ(f.error, ok ? "" : "--set " + name + "=" + value + ": " + result);
    if (known) {
      EXPECT_EQ(f.get(name), ok ? result : before);
    }
  }
}

// Sets in order with the limits captured before the first: a start past the
// end pulls the end along, an end before the start pulls the start along, and
// the loop-to frame is held inside the range after any spinner change.
TEST(OptionFields, FrameSpinnerRules) {
  using Sets = std::vector<std::pair<std::string, std::string>>;
  const std::tuple<Sets, int, int, int> rows[] = {
      // Limits captured before the edits stay: 60 is allowed although the end is now 40.
      {{{"endFrame", "40"}, {"loopToFrame", "30"}, {"startFrame", "60"}}, 60, 60, 60},
      {{{"startFrame", "50"}, {"endFrame", "20"}}, 20, 20, 20},
      {{{"startFrame", "10"}, {"endFrame", "20"}, {"loopToFrame", "90"}}, 10, 20, 20},
      {{{"startFrame", "10"}, {"endFrame", "20"}, {"loopToFrame", "3"}}, 10, 20, 10},
  };
  for (const auto& [sets, start, end, loopTo] : rows) {
    Fixture f;
    const FrameLimits limits = frameLimitsOf(f.record);
    for (const auto& [name, value] : sets) ASSERT_TRUE(setOptionField(f.record, name, value, f.error, limits));
    EXPECT_EQ(f.record.startFrame, start);
    EXPECT_EQ(f.record.endFrame, end);
    EXPECT_EQ(f.record.loopToFrame, loopTo);
    // Without captured limits the range is the record's as it stands.
    EXPECT_FALSE(f.set("loopToFrame", std::to_string(end + 1)));
  }
  Fixture f;
  f.record.startFrame = 5;
  f.record.endFrame = 9;
  ASSERT_TRUE(f.set("rotationDelta", "0.5"));
  EXPECT_EQ(f.record.loopToFrame, 5);
  // A check box is not a spinner: no clamp.
  f.record.loopToFrame = 0;
  ASSERT_TRUE(f.set("loop", "0"));
  EXPECT_EQ(f.record.loopToFrame, 0);
}
