#include <gtest/gtest.h>

#include "edit/script_com.h"

namespace pictavo::editing {
namespace {

TEST(ScriptLine, BothReadingsOfWellFormedAndBareLines) {
  Script_com c = ParseScriptLine("  Resize(800;600;0;1;3;0)  ");
  EXPECT_EQ(c.name, "Resize");
  EXPECT_EQ(c.count, 6);
  EXPECT_EQ(c.params[0], "800");
  EXPECT_EQ(c.params[5], "0");
  EXPECT_EQ(ScriptKey("  Resize(800;600;0;1;3;0)  "), "Resize");

  c = ParseScriptLine("bc");
  EXPECT_EQ(c.name, "bc");
  EXPECT_EQ(c.count, 0);
  EXPECT_EQ(ScriptKey("bc"), "bc");

  // ";;" keeps an empty parameter in its place; text is not trimmed inside.
  c = ParseScriptLine("text_watermark(a b;;x)");
  EXPECT_EQ(c.count, 3);
  EXPECT_EQ(c.params[0], "a b");
  EXPECT_EQ(c.params[1], "");
  EXPECT_EQ(c.params[2], "x");
  c = ParseScriptLine("crop(;)");
  EXPECT_EQ(c.count, 2);
}

TEST(ScriptLine, CommentsReadAsNull) {
  for (const char* line : {"// a comment", "#x", "  #rotate(90)", "//"}) {
    EXPECT_EQ(ScriptKey(line), "null") << line;
    EXPECT_EQ(ParseScriptLine(line).name, "null") << line;
  }
  // A single "#" is not a comment (too short): it is a bare key.
  EXPECT_EQ(ScriptKey("#"), "#");
}

TEST(ScriptLine, MalformedParenthesesGiveMinusOneAndNullKey) {
  for (const char* line :
       {"bc()", "(5)", "bc(1;2", "bc)1;2(", "bc(1;2)x", "bc 1;2)", "rotate(90)(", "()"}) {
    EXPECT_EQ(ParseScriptLine(line).count, -1) << line;
    EXPECT_EQ(ScriptKey(line), "null") << line;
  }
  // The record keeps the name before "(" even when malformed (the CHANGE_TO rows read it).
  EXPECT_EQ(ParseScriptLine("CHANGE_TO_256()").name, "CHANGE_TO_256");
}

TEST(ScriptLine, AtMostTwentyParametersStoredButAllCounted) {
  std::string line = "x(";
  for (int i = 1; i <= 21; ++i) line += std::to_string(i) + (i < 21 ? ";" : ")");
  const Script_com c = ParseScriptLine(line);
  EXPECT_EQ(c.count, 21);
  EXPECT_EQ(c.params[19], "20");  // the 21st is dropped, nothing shifts
}

TEST(StrictNumbers, RejectAnythingButASignedDecimal) {
  EXPECT_EQ(StrToIntStrict("12"), 12);
  EXPECT_EQ(StrToIntStrict("-30"), -30);
  EXPECT_EQ(StrToIntStrict("+7"), 7);
  for (const char* bad : {"12a", "", " 12", "12 ", "1.5", "-", "0x10", "99999999999"})
    EXPECT_THROW(StrToIntStrict(bad), BadParameter) << bad;
  EXPECT_DOUBLE_EQ(StrToFloatStrict("1.5"), 1.5);
  EXPECT_DOUBLE_EQ(StrToFloatStrict("2,25"), 2.25);
  EXPECT_DOUBLE_EQ(StrToFloatStrict("3"), 3.0);
  for (const char* bad : {"", "1.2.3", "1e3", "a", "."})
    EXPECT_THROW(StrToFloatStrict(bad), BadParameter) << bad;
  EXPECT_TRUE(Flag("1"));
  EXPECT_FALSE(Flag(" 1"));
  EXPECT_FALSE(Flag("true"));
}

}  // namespace
}  // namespace pictavo::editing
