#include "engine/tools/command_line.h"

#include <gtest/gtest.h>

namespace pictavo::tools {
namespace {

using Argv = std::vector<std::string>;

// The argument rules of CommandLineToArgvW, with the cases its documentation gives.
TEST(SplitCommandLine, FollowsTheWindowsRules) {
  struct Case {
    const char* line;
    Argv want;
  } cases[] = {
      {R"(p "a b c" d e)", {"p", "a b c", "d", "e"}},
      {R"(p "ab\"c" "\\" d)", {"p", "ab\"c", "\\", "d"}},
      {R"(p a\\\b d"e f"g h)", {"p", "a\\\\\\b", "de fg", "h"}},
      {R"(p a\\\"b c d)", {"p", "a\\\"b", "c", "d"}},
      {R"(p a\\\\"b c" d e)", {"p", "a\\\\b c", "d", "e"}},
      {R"(p -o"dir with blank")", {"p", "-odir with blank"}},
      {R"(p "" x)", {"p", "", "x"}},
      {R"(p "a""b" c)", {"p", "a\"b c"}},  // the quote after "" opens again
      {"p\ta  \t b", {"p", "a", "b"}},
      {R"("C:\Program Files\t.exe" x)", {"C:\\Program Files\\t.exe", "x"}},
      {R"(C:\dir\t.exe\" x)", {"C:\\dir\\t.exe\\\"", "x"}},
      {"  p  ", {"p"}},
      {"", {}},
  };
  for (const Case& c : cases) EXPECT_EQ(SplitCommandLine(c.line), c.want) << c.line;
}

TEST(SplitCommandLine, ShellCharactersAreOrdinaryText) {
  EXPECT_EQ(SplitCommandLine(R"(p $HOME `id` a;b|c&d %PATH% *.pdf "x > y")"),
            (Argv{"p", "$HOME", "`id`", "a;b|c&d", "%PATH%", "*.pdf", "x > y"}));
}

TEST(SplitCommandLine, UnquotedBlankSplitsAPath) {
  EXPECT_EQ(SplitCommandLine("tool /tmp/my file.png"), (Argv{"tool", "/tmp/my", "file.png"}));
}

TEST(ParseBatch, RedirectionsAndCommandSeparators) {
  BatchParse p = ParseBatch(R"("t" -c1500 "in file.txt" > "out $x.pdf")");
  ASSERT_TRUE(p.error.empty()) << p.error;
  ASSERT_EQ(p.commands.size(), 1u);
  EXPECT_EQ(p.commands[0].argv, (Argv{"t", "-c1500", "in file.txt"}));
  EXPECT_EQ(p.commands[0].stdout_path, "out $x.pdf");

  p = ParseBatch("\"a\" x >> log.txt 2>&1 && b < \"yes.txt\" 2> err.txt\r\nc \"q > r\" & d");
  ASSERT_TRUE(p.error.empty()) << p.error;
  ASSERT_EQ(p.commands.size(), 4u);
  EXPECT_EQ(p.commands[0].argv, (Argv{"a", "x"}));
  EXPECT_TRUE(p.commands[0].stdout_append);
  EXPECT_TRUE(p.commands[0].stderr_to_stdout);
  EXPECT_EQ(p.commands[1].argv, (Argv{"b"}));
  EXPECT_TRUE(p.commands[1].only_if_previous_ok);
  EXPECT_EQ(p.commands[1].stdin_path, "yes.txt");
  EXPECT_EQ(p.commands[1].stderr_path, "err.txt");
  EXPECT_EQ(p.commands[2].argv, (Argv{"c", "q > r"}));  // quoted: no redirection
  EXPECT_FALSE(p.commands[2].only_if_previous_ok);
  EXPECT_EQ(p.commands[3].argv, (Argv{"d"}));

  // A digit that is part of a word is not a handle number.
  p = ParseBatch("t page2> out.txt");
  ASSERT_EQ(p.commands.size(), 1u);
  EXPECT_EQ(p.commands[0].argv, (Argv{"t", "page2"}));
  EXPECT_EQ(p.commands[0].stdout_path, "out.txt");
}

TEST(ParseBatch, RejectsWhatItCannotDoSafely) {
  EXPECT_FALSE(ParseBatch("a | b").error.empty());
  EXPECT_FALSE(ParseBatch("a || b").error.empty());
  EXPECT_FALSE(ParseBatch("a >").error.empty());
  EXPECT_FALSE(ParseBatch("> out.txt").error.empty());
  EXPECT_TRUE(ParseBatch("a | b").commands.empty());
}

}  // namespace
}  // namespace pictavo::tools
