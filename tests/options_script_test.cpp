// T_Script: blocks, values in their formats, defaults, and every failure
// naming the file and the line.
#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "host/inhouse/exceptions.h"
#include "options/script.h"
#include "support/test_support.h"

namespace {

struct Values {
  std::int32_t count = 12345;  // garbage that a missed write would leave
  float scale = 999.0f;
  std::string label = "unset";
};

struct Table {
  Values v;
  T_Script::Variables entries[4] = {
      {"count", &v.count, "-1", T_Script::t_int},
      {"scale", &v.scale, "-1", T_Script::t_float},
      {"label", &v.label, "", T_Script::t_string},
      {nullptr, nullptr, nullptr, T_Script::t_int},
  };
};

// The message of the T_Exception that parsing `text` throws, or "" when none.
std::string failure(const std::string& text, const char* block = "animation", bool strict = true) {
  Table t;
  try {
    T_Script::fromText(text, "extra.cfg").parse(t.entries, block, 0, strict);
  } catch (const T_ScriptException_BlockNotFound&) {
    return "block not found";
  } catch (const T_Exception& e) {
    return e.getErrorMessage();
  }
  return "";
}

}  // namespace

TEST(Script, ValuesOfEveryFormat) {
  Table t;
  T_Script::fromText("animation { count = 42; scale = 0.25; label = \"two words\"; }", "x")
      .parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, 42);
  EXPECT_EQ(t.v.scale, 0.25f);
  EXPECT_EQ(t.v.label, "two words");
}

TEST(Script, AbsentKeysTakeTheirDefaultText) {
  Table t;
  T_Script::fromText("animation { }", "x").parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, -1);
  EXPECT_EQ(t.v.scale, -1.0f);
  EXPECT_EQ(t.v.label, "");
}

TEST(Script, CommentsLinesAndOptionalSemicolons) {
  Table t;
  T_Script::fromText("# hash comment\n// slash comment\nanimation // the block\n{\n  count = -7  # no semicolon\n"
                     "  scale = +1e-3\n  label = bare_word.v2\n}\n",
                     "x")
      .parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, -7);
  EXPECT_EQ(t.v.scale, 0.001f);
  EXPECT_EQ(t.v.label, "bare_word.v2");
}

TEST(Script, StringEscapesAndBackslashes) {
  Table t;
  T_Script::fromText(R"(animation { label = "say \"hi\" C:\maps\\x"; })", "x").parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.label, R"(say "hi" C:\maps\x)");
}

TEST(Script, CarriageReturnLineEndings) {
  Table t;
  T_Script::fromText("animation {\r\n count = 3;\r\n}\r\n", "x").parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, 3);
}

TEST(Script, OtherBlocksAreSkipped) {
  Table t;
  T_Script::fromText("lights { count = 1; foo = bar; }\nanimation { count = 2; }\n", "x")
      .parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, 2);
}

TEST(Script, OccurrencePicksAmongBlocksOfTheSameName) {
  const auto script = T_Script::fromText("animation { count = 1; }\nanimation { count = 2; }\n", "x");
  Table t;
  script.parse(t.entries, "animation", 1, true);
  EXPECT_EQ(t.v.count, 2);
  EXPECT_THROW(script.parse(t.entries, "animation", 2, true), T_ScriptException_BlockNotFound);
}

TEST(Script, MissingBlockIsItsOwnException) {
  EXPECT_EQ(failure("lights { count = 1; }"), "block not found");
  EXPECT_EQ(failure(""), "block not found");
  EXPECT_EQ(failure("# only a comment\n"), "block not found");
  EXPECT_EQ(failure("Animation { }"), "block not found");  // names are case-sensitive
}

TEST(Script, MissingBlockWritesNothing) {
  Table t;
  EXPECT_THROW(T_Script::fromText("lights {}", "x").parse(t.entries, "animation", 0, true),
               T_ScriptException_BlockNotFound);
  EXPECT_EQ(t.v.count, 12345);
}

TEST(Script, SyntaxErrorsNameFileAndLine) {
  EXPECT_EQ(failure("animation {\n  count 3;\n}"), "extra.cfg:2: expected '=' after key 'count', found '3'");
  EXPECT_EQ(failure("animation {\n  count = ;\n}"), "extra.cfg:2: expected a value for key 'count', found ';'");
  EXPECT_EQ(failure("\n\nanimation {\n  count = 3;\n"),
            "extra.cfg:5: block 'animation' opened at line 3 is not closed with '}'");
  EXPECT_EQ(failure("animation\n  count = 3;\n}"), "extra.cfg:2: expected '{' after block name 'animation', found 'count'");
  EXPECT_EQ(failure("animation { label = \"open\n}"), "extra.cfg:1: unterminated string");
  EXPECT_EQ(failure("animation { count = 3; }\n}"), "extra.cfg:2: expected a block name, found '}'");
  EXPECT_EQ(failure("animation { count = 3 @ }"), "extra.cfg:1: unexpected character '@'");
  EXPECT_EQ(failure(std::string("animation { \x01 }")), "extra.cfg:1: unexpected character byte 0x01");
  EXPECT_EQ(failure("animation { inner { } }"), "extra.cfg:1: expected '=' after key 'inner', found '{'");
  EXPECT_EQ(failure("animation { 3x = 1; }"), "extra.cfg:1: expected a key or '}', found '3x'");
}

TEST(Script, SyntaxErrorInAnotherBlockStillFails) {
  EXPECT_EQ(failure("animation { count = 1; }\nlights { = }\n"), "extra.cfg:2: expected a key or '}', found '='");
}

TEST(Script, ValuesThatDoNotParseInTheirFormat) {
  EXPECT_EQ(failure("animation {\n count = 1.5;\n}"), "extra.cfg:2: value '1.5' of key 'count' is not a 32-bit integer");
  EXPECT_EQ(failure("animation { count = 2147483648; }"),
            "extra.cfg:1: value '2147483648' of key 'count' is not a 32-bit integer");
  EXPECT_EQ(failure("animation { count = \"3\"; }"), "extra.cfg:1: value \"3\" of key 'count' is not a 32-bit integer");
  EXPECT_EQ(failure("animation { scale = abc; }"), "extra.cfg:1: value 'abc' of key 'scale' is not a number");
  EXPECT_EQ(failure("animation { scale = 1e99; }"), "extra.cfg:1: value '1e99' of key 'scale' is not a number");
  EXPECT_EQ(failure("animation { scale = nan; }"), "extra.cfg:1: value 'nan' of key 'scale' is not a number");
  EXPECT_EQ(failure("animation { scale = 1.0.0; }"), "extra.cfg:1: value '1.0.0' of key 'scale' is not a number");
  EXPECT_EQ(failure("animation { count = +-1; }"), "extra.cfg:1: value '+-1' of key 'count' is not a 32-bit integer");
}

TEST(Script, IntegerLimits) {
  Table t;
  T_Script::fromText("animation { count = -2147483648; }", "x").parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, INT32_MIN);
  T_Script::fromText("animation { count = 2147483647; }", "x").parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, INT32_MAX);
}

TEST(Script, FailureWritesNothing) {
  Table t;
  EXPECT_THROW(T_Script::fromText("animation { count = 5; scale = bad; }", "x").parse(t.entries, "animation", 0, true),
               T_Exception);
  EXPECT_EQ(t.v.count, 12345);
  EXPECT_EQ(t.v.label, "unset");
}

TEST(Script, StrictRefusesUnknownAndRepeatedKeys) {
  EXPECT_EQ(failure("animation {\n count = 1;\n Count = 2;\n}"), "extra.cfg:3: unknown key 'Count' in block 'animation'");
  EXPECT_EQ(failure("animation {\n count = 1;\n\n count = 2;\n}"),
            "extra.cfg:4: key 'count' given twice in block 'animation' (first at line 2)");
}

TEST(Script, LenientSkipsUnknownKeysAndTakesTheLastRepeat) {
  Table t;
  T_Script::fromText("animation { other = 1; count = 1; count = 2; }", "x").parse(t.entries, "animation", 0, false);
  EXPECT_EQ(t.v.count, 2);
  // A bad value of an unknown key is never looked at.
  EXPECT_EQ(failure("animation { other = \"x\"; }", "animation", false), "");
}

TEST(Script, BadDefaultTextIsReported) {
  std::int32_t n = 0;
  const T_Script::Variables table[] = {{"n", &n, "many", T_Script::t_int}, {nullptr, nullptr, nullptr, T_Script::t_int}};
  try {
    T_Script::fromText("animation {}", "extra.cfg").parse(table, "animation", 0, true);
    FAIL() << "no exception";
  } catch (const T_Exception& e) {
    EXPECT_EQ(e.getErrorMessage(), "extra.cfg: default text 'many' of key 'n' is not a 32-bit integer");
  }
}

TEST(Script, ReadsAFileFromDisk) {
  ztx_test::TempDir dir;
  ztx_test::writeText(dir.file("a.cfg"), "animation { count = 9; }\n");
  T_Script script(dir.file("a.cfg").c_str());
  EXPECT_EQ(script.fileName(), dir.file("a.cfg"));
  Table t;
  script.parse(t.entries, "animation", 0, true);
  EXPECT_EQ(t.v.count, 9);
}

TEST(Script, UnreadableFileThrowsNamingIt) {
  ztx_test::TempDir dir;
  try {
    T_Script script(dir.file("none.cfg").c_str());
    FAIL() << "no exception";
  } catch (const T_ScriptException_BlockNotFound&) {
    FAIL() << "wrong exception";
  } catch (const T_Exception& e) {
    EXPECT_EQ(e.getErrorMessage(), dir.file("none.cfg") + ": cannot be read");
  }
}

TEST(Script, TruncatedAtEveryLengthNeverCrashes) {
  const std::string full = "# c\nanimation {\n  count = 4;\n  label = \"a b\";\n  scale = 0.5;\n}\n";
  for (std::size_t n = 0; n <= full.size(); ++n) {
    SCOPED_TRACE(n);
    Table t;
    try {
      T_Script::fromText(full.substr(0, n), "x").parse(t.entries, "animation", 0, true);
      // Only a text that still closes the block parses.
      EXPECT_GE(n, full.size() - 1);
      EXPECT_EQ(t.v.count, 4);
    } catch (const T_ScriptException_BlockNotFound&) {
      EXPECT_LT(n, full.find('{'));
    } catch (const T_Exception& e) {
      EXPECT_EQ(e.getErrorMessage().rfind("x:", 0), 0u);
    }
  }
}
