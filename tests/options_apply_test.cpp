// The export settings: derived from the dialog record (applyDialogOptions),
// overridden by ZTExportAdditional.cfg (readAdditionalConfig) as T_Script
// reads it (blocks, values in their formats, defaults, and every failure
// naming the file and the line), and the record's fields by name (strict
// values, the dialog's limits and spinner rules, clear one-line errors).
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "host/inhouse/exceptions.h"
#include "host/memory/memory_host.h"
#include "options/apply_options.h"
#include "options/option_fields.h"
#include "options/options_dialog.h"
#include "options/script.h"
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
      {"none", 1, 0, false, ""}, {"\"normalized\"", 2, 1, true, ""}, {"orthonormalized", 1, 2, true, ""},
      {"\"Normalized\"", 2, 2, true, "Normalized"}, {"bogus", 0, 0, false, "bogus"}};
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
// with file and line (the wording of each fault: Script, below). An empty block still clamps.
TEST(ReadAdditionalConfig, NothingAppliesUnlessTheBlockParses) {
  const std::tuple<std::optional<std::string>, int, std::string> rows[] = {
      {std::nullopt, 99, ""},
      {"lights { positionDelta = 0.3; }\n", 99, ""},
      {"animation {\n}\n", 30, ""},
      {"# overrides\nanimation {\n  positionDelta = 0.3;\n  loop 1;\n}\n", 99,
       ":4: expected '=' after key 'loop', found '1'"},
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

namespace {

// A record with every default and the frame range the driver would set for a
// scene of 100 frames.
struct Fields {
  ztx_test::TempDir dir;
  OptionsDialog record{dir.path().string(), 30};
  std::string error = "untouched";
  Fields() { record.endFrame = 100; }
  bool set(const std::string& name, const std::string& value) { return setOptionField(record, name, value, error); }
  std::string get(const std::string& name) {
    std::string value;
    EXPECT_TRUE(getOptionField(record, name, value)) << name;
    return value;
  }
};

}  // namespace

// Every field reads back what was set.
TEST(OptionFields, EveryFieldRoundTrips) {
  Fields f;
  for (const std::string& name : optionFieldNames()) {
    SCOPED_TRACE(name);
    const std::string before = f.get(name);
    EXPECT_TRUE(f.set(name, before)) << f.error;
    EXPECT_EQ(f.get(name), before);
  }
}

// Accepted values read back as given; refused ones leave the field and name the
// rule. (A sample rate of 0 and a misspelt sampleRate: zt2export_tool_test.cpp.)
TEST(OptionFields, ValuesAndErrors) {
  const std::string flag = "loop takes 0, 1, true or false", number = "rotationDelta must be a number";
  const std::string rate = "sampleRate must be between 1 and 500", rateInt = "sampleRate must be an integer";
  const std::string method = "frameToFrameInterpolation takes 0, 1, 2, none, normalized or orthonormalized";
  const std::string frames = " must be between 0 and 100 (the scene's frame range)";
  // field, value, the value read back (accepted) or the error after "--set field=value: " (refused)
  const std::tuple<std::string, std::string, bool, std::string> rows[] = {
      {"loop", "false", true, "0"}, {"loop", "true", true, "1"}, {"loop", "2", false, flag},
      {"loop", " 1", false, flag}, {"positionDelta", "0", true, "0"}, {"rotationDelta", "100", true, "100"},
      {"rescaleFactor", "2.5e0", true, "2.5"}, {"rotationDelta", "1,5", false, number},
      {"rescaleFactor", "100.5", false, "rescaleFactor must be between 0 and 100"},
      {"positionDelta", "-0.001", false, "positionDelta must be between 0 and 100"},
      {"rotationDelta", "nan", false, number}, {"rotationDelta", "1e40", false, number}, {"sampleRate", "1", true, "1"},
      {"sampleRate", "500", true, "500"}, {"sampleRate", "501", false, rate}, {"sampleRate", "25.0", false, rateInt},
      {"sampleRate", "99999999999", false, rateInt},
      {"frameToFrameInterpolation", "orthonormalized", true, "orthonormalized"},
      {"frameToFrameInterpolation", "1", true, "normalized"}, {"frameToFrameInterpolation", "3", false, method},
      {"frameToFrameInterpolation", "Normalized", false, method},
      {"texturePath", "maps/with space=and more", true, "maps/with space=and more"}, {"texturePath", "", true, ""},
      {"endFrame", "101", false, "endFrame" + frames}, {"startFrame", "-1", false, "startFrame" + frames},
      {"loopToFrame", "x", false, "loopToFrame must be an integer"},
      {"exportlights", "1", false, "unknown option field 'exportlights' (did you mean 'exportLights'?)"},
      {"loopTo", "1", false, "unknown option field 'loopTo' (did you mean 'loopToFrame'?)"},
  };
  for (const auto& [name, value, ok, result] : rows) {
    SCOPED_TRACE(name + "=" + value);
    Fields f;
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
    Fields f;
    const FrameLimits limits = frameLimitsOf(f.record);
    for (const auto& [name, value] : sets) ASSERT_TRUE(setOptionField(f.record, name, value, f.error, limits));
    EXPECT_EQ(f.record.startFrame, start);
    EXPECT_EQ(f.record.endFrame, end);
    EXPECT_EQ(f.record.loopToFrame, loopTo);
    // Without captured limits the range is the record's as it stands.
    EXPECT_FALSE(f.set("loopToFrame", std::to_string(end + 1)));
  }
  Fields f;
  f.record.startFrame = 5;
  f.record.endFrame = 9;
  ASSERT_TRUE(f.set("rotationDelta", "0.5"));
  EXPECT_EQ(f.record.loopToFrame, 5);
  // A check box is not a spinner: no clamp.
  f.record.loopToFrame = 0;
  ASSERT_TRUE(f.set("loop", "0"));
  EXPECT_EQ(f.record.loopToFrame, 0);
}

namespace {

// Three variables, one of each format, holding garbage that a missed write would leave.
struct Table {
  std::int32_t count = 12345;
  float scale = 999.0f;
  std::string label = "unset";
  T_Script::Variables entries[4] = {{"count", &count, "-1", T_Script::t_int},
                                    {"scale", &scale, "-1", T_Script::t_float},
                                    {"label", &label, "", T_Script::t_string},
                                    {nullptr, nullptr, nullptr, T_Script::t_int}};
  void parse(const std::string& text) { T_Script::fromText(text, "extra.cfg").parse(entries, "animation", 0, true); }
};

// The message of the T_Exception that parsing `text` throws, or "" when none.
// A failed parse must leave every variable untouched.
std::string failure(const std::string& text) {
  Table t;
  std::string message;
  try {
    t.parse(text);
  } catch (const T_ScriptException_BlockNotFound&) {
    message = "block not found";
  } catch (const T_Exception& e) {
    message = e.getErrorMessage();
  }
  EXPECT_TRUE(message.empty() || t.count == 12345) << "a failed parse wrote a value: " << text;
  return message;
}

}  // namespace

TEST(Script, ValuesAndLexicalForms) {
  const std::tuple<std::string, std::int32_t, float, std::string> rows[] = {
      {"animation { count = 42; scale = 0.25; label = \"two words\"; }", 42, 0.25f, "two words"},
      {"animation { }", -1, -1.0f, ""},  // absent keys take their default text
      {"# hash\n// slash\nanimation // block\n{\n  count = -7  # no semicolon\n  scale = +1e-3\n"
       "  label = bare_word.v2\n}\n",
       -7, 0.001f, "bare_word.v2"},
      {R"(animation { label = "say \"hi\" C:\maps\\x"; })", -1, -1.0f, R"(say "hi" C:\maps\x)"},
      {"animation {\r\n count = -2147483648;\r\n}\r\n", INT32_MIN, -1.0f, ""},
      {"lights { count = 1; foo = bar; }\nanimation { count = 2147483647; }\n", INT32_MAX, -1.0f, ""},
      {"\xEF\xBB\xBF" "animation { count = 3; }", 3, -1.0f, ""},  // a byte order mark opens the file
      {"# comment\ranimation { count = 4; }", 4, -1.0f, ""},     // a lone CR ends the comment
  };
  for (const auto& [text, count, scale, label] : rows) {
    Table t;
    t.parse(text);
    EXPECT_EQ(std::tie(t.count, t.scale, t.label), std::tie(count, scale, label)) << text;
  }
}

TEST(Script, FailuresNameFileAndLine) {
  const std::pair<std::string, std::string> rows[] = {
      {"lights { count = 1; }", "block not found"},
      {"Animation { }", "block not found"},  // names are case-sensitive
      {"animation {\n  count 3;\n}", "extra.cfg:2: expected '=' after key 'count', found '3'"},
      {"animation {\n  count = ;\n}", "extra.cfg:2: expected a value for key 'count', found ';'"},
      {"\n\nanimation {\n  count = 3;\n", "extra.cfg:5: block 'animation' opened at line 3 is not closed with '}'"},
      {"animation\n  count = 3;\n}", "extra.cfg:2: expected '{' after block name 'animation', found 'count'"},
      {"animation { label = \"open\n\"; }", "extra.cfg:1: unterminated string"},
      {"animation { count = 3; }\n}", "extra.cfg:2: expected a block name, found '}'"},
      {"animation { count = 3 @ }", "extra.cfg:1: unexpected character '@'"},
      {"animation { count = 1; }\nlights { = }\n", "extra.cfg:2: expected a key or '}', found '='"},
      {"animation {\n count = 1.5;\n}", "extra.cfg:2: value '1.5' of key 'count' is not a 32-bit integer"},
      {"animation { count = 2147483648; }", "extra.cfg:1: value '2147483648' of key 'count' is not a 32-bit integer"},
      {"animation { count = \"3\"; }", "extra.cfg:1: value \"3\" of key 'count' is not a 32-bit integer"},
      {"animation { count = 5; scale = abc; }", "extra.cfg:1: value 'abc' of key 'scale' is not a number"},
      {"animation { scale = nan; }", "extra.cfg:1: value 'nan' of key 'scale' is not a number"},
      {"animation {\n count = 1;\n Count = 2;\n}", "extra.cfg:3: unknown key 'Count' in block 'animation'"},
      {"animation {\n count = 1;\n\n count = 2;\n}",
       "extra.cfg:4: key 'count' given twice in block 'animation' (first at line 2)"},
  };
  for (const auto& [text, message] : rows) EXPECT_EQ(failure(text), message) << text;
}

TEST(Script, LinesCountAlikeForLfCrLfAndCr) {
  for (const char* end : {"\n", "\r\n", "\r"}) {
    const std::string e = end;
    EXPECT_EQ(failure("# one" + e + "animation {" + e + e + "  count 3;" + e + "}" + e),
              "extra.cfg:4: expected '=' after key 'count', found '3'")
        << "line end of " << e.size() << " bytes";
    EXPECT_EQ(failure("animation {" + e + " label = \"open" + e + "\"; }"), "extra.cfg:2: unterminated string");
  }
  // A byte order mark anywhere else is no whitespace.
  EXPECT_EQ(failure("animation { \xEF\xBB\xBF }"), "extra.cfg:1: unexpected character byte 0xef");
}

TEST(Script, UnreadableFileThrowsNamingIt) {
  ztx_test::TempDir dir;
  try {
    T_Script missing(dir.file("none.cfg").c_str());
    FAIL() << "no exception";
  } catch (const T_Exception& e) {
    EXPECT_EQ(e.getErrorMessage(), dir.file("none.cfg") + ": cannot be read");
  }
}

// Every cut of a valid text short of its closing brace fails cleanly.
TEST(Script, TruncatedAtEveryLengthFailsCleanly) {
  const std::string full = "# c\nanimation { // b\n  count = 4;\n  label = \"a \\\"b\\\"\";\n  scale = 0.5;\n}";
  for (std::size_t n = 0; n < full.size(); ++n) {
    const std::string message = failure(full.substr(0, n));
    EXPECT_TRUE(message == "block not found" || message.rfind("extra.cfg:", 0) == 0) << n << ": " << message;
  }
  EXPECT_EQ(failure(full), "");
}
