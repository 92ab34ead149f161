// T_Script: blocks, values in their formats, defaults, and every failure
// naming the file and the line.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <tuple>
#include <vector>

#include "host/inhouse/exceptions.h"
#include "options/script.h"
#include "support/test_support.h"

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
      {"animation { \x01 }", "extra.cfg:1: unexpected character byte 0x01"},
      {"animation { count = 1; }\nlights { = }\n", "extra.cfg:2: expected a key or '}', found '='"},
      {"animation {\n count = 1.5;\n}", "extra.cfg:2: value '1.5' of key 'count' is not a 32-bit integer"},
      {"animation { count = 2147483648; }", "extra.cfg:1: value '2147483648' of key 'count' is not a 32-bit integer"},
      {"animation { count = \"3\"; }", "extra.cfg:1: value \"3\" of key 'count' is not a 32-bit integer"},
      {"animation { count = +-1; }", "extra.cfg:1: value '+-1' of key 'count' is not a 32-bit integer"},
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
