// The one argument parser of the `pictavo` commands, over a small table of its own and over the
// real command table.
#include "cli/args.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "cli/commands.h"

namespace pictavo::cli {
namespace {

int NotRun(const Invocation&) {
  return 99;
}

constexpr std::string_view kForms[] = {
    "FILE... [--out DIR] [--set Section/Key=VALUE]... [--quiet] [--long-option-name VALUE]"};
constexpr OptionSpec kOptions[] = {
    {"--out", "DIR", "a folder", "where results go", ""},
    {"--set", "Section/Key=VALUE", "Section/Key=VALUE", "one setting;\nmay be repeated", ""},
    {"--quiet", "", "", "print nothing", ""},
    {"--long-option-name", "VALUE", "a value", "help below the label", ""},
};
constexpr CommandSpec kTest = {
    "test", "a command of the tests", kForms, "About it.\n", kOptions, "The end.\n", {}, NotRun};

constexpr std::string_view kVerbs[] = {"show", "write"};
constexpr std::string_view kVerbForms[] = {"show FILE", "write FILE [--mode N]"};
constexpr OptionSpec kVerbOptions[] = {
    {"--mode", "N", "a number", "write: the mode", "write"},
};
constexpr CommandSpec kWithVerbs = {"verbs", "", kVerbForms, "", kVerbOptions, "", kVerbs, NotRun};

TEST(CliArgs, OptionsFlagsAndPositionalWordsKeepTheirOrder) {
  ParseResult r = ParseArgs(kTest, {"a.png", "--out", "d", "-3", "--quiet", "b.png"});
  ASSERT_EQ(r.error, "");
  EXPECT_FALSE(r.help);
  EXPECT_EQ(r.invocation.positional, (Args{"a.png", "-3", "b.png"}));  // one dash: no option
  EXPECT_EQ(r.invocation.Last("--out"), "d");
  EXPECT_TRUE(r.invocation.Has("--quiet"));
  EXPECT_FALSE(r.invocation.Has("--set"));
  EXPECT_EQ(r.invocation.Last("--set"), std::nullopt);
  EXPECT_EQ(r.invocation.command, &kTest);
  // A value is the next word, whatever it looks like.
  r = ParseArgs(kTest, {"--out", "--quiet"});
  EXPECT_EQ(r.invocation.Last("--out"), "--quiet");
  EXPECT_FALSE(r.invocation.Has("--quiet"));
}

TEST(CliArgs, UnknownOptionAndMissingValueAreUsageErrors) {
  EXPECT_EQ(ParseArgs(kTest, {"a", "--nope"}).error, "unknown option '--nope'");
  EXPECT_EQ(ParseArgs(kTest, {"--out=d"}).error, "unknown option '--out=d'");
  EXPECT_EQ(ParseArgs(kTest, {"a", "--out"}).error, "--out needs a folder");
  EXPECT_EQ(ParseArgs(kTest, {"--set"}).error, "--set needs Section/Key=VALUE");
  Args words{"--quiet", "--out"};
  EXPECT_EQ(RunCommand(kTest, words), 2);  // the handler does not run
}

TEST(CliArgs, RepeatedOptions) {
  ParseResult r = ParseArgs(kTest, {"--quiet", "--set", "A/b=1", "--out", "x", "--quiet", "--set",
                                    "C/d=2", "--out", "y"});
  ASSERT_EQ(r.error, "");
  EXPECT_TRUE(r.invocation.Has("--quiet"));
  EXPECT_EQ(r.invocation.All("--set"), (Args{"A/b=1", "C/d=2"}));
  EXPECT_EQ(r.invocation.Last("--out"), "y");  // the last one given wins
  EXPECT_EQ(r.invocation.All("--out"), (Args{"x", "y"}));
  EXPECT_EQ(r.invocation.options.size(), 6u);
}

TEST(CliArgs, DoubleDashEndsTheOptions) {
  ParseResult r = ParseArgs(kTest, {"--quiet", "--", "--out", "-h", "--", "--nope"});
  ASSERT_EQ(r.error, "");
  EXPECT_FALSE(r.help);
  EXPECT_EQ(r.invocation.positional, (Args{"--out", "-h", "--", "--nope"}));
  EXPECT_FALSE(r.invocation.Has("--out"));
  // A "--" that is an option's value ends nothing.
  r = ParseArgs(kTest, {"--out", "--", "--quiet"});
  EXPECT_EQ(r.invocation.Last("--out"), "--");
  EXPECT_TRUE(r.invocation.Has("--quiet"));
}

TEST(CliArgs, HelpWinsOverEveryOtherWord) {
  EXPECT_TRUE(ParseArgs(kTest, {"--nope", "--help"}).help);
  EXPECT_TRUE(ParseArgs(kTest, {"a", "-h", "--out"}).help);
  EXPECT_TRUE(ParseArgs(kWithVerbs, {"--help"}).help);  // before the verb is checked
  EXPECT_EQ(RunCommand(kTest, {"-h"}), 0);
  EXPECT_EQ(RunCommand(kTest, {"a"}), 99);
}

TEST(CliArgs, VerbsComeFirstAndMayOwnOptions) {
  EXPECT_EQ(ParseArgs(kWithVerbs, {}).error, "missing 'show' or 'write'");
  EXPECT_EQ(ParseArgs(kWithVerbs, {"list"}).error, "unknown action 'list'");
  EXPECT_EQ(ParseArgs(kWithVerbs, {"FILE", "show"}).error, "unknown action 'FILE'");
  EXPECT_EQ(ParseArgs(kWithVerbs, {"show", "f", "--mode", "1"}).error, "unknown option '--mode'");
  ParseResult r = ParseArgs(kWithVerbs, {"write", "f", "--mode", "1"});
  ASSERT_EQ(r.error, "");
  EXPECT_EQ(r.invocation.verb, "write");
  EXPECT_EQ(r.invocation.positional, (Args{"f"}));
  EXPECT_EQ(r.invocation.Last("--mode"), "1");
}

TEST(CliArgs, UsageLayout) {
  // Synopsis wrapped at 80 columns without breaking a bracketed group, then the about text, one
  // entry per option with its help in column 14 (below a label too wide for it), the epilogue.
  EXPECT_EQ(UsageText(kTest),
            "usage: pictavo test FILE... [--out DIR] [--set Section/Key=VALUE]... [--quiet]\n"
            "                    [--long-option-name VALUE]\n"
            "\n"
            "About it.\n"
            "--out DIR     where results go\n"
            "--set Section/Key=VALUE\n"
            "              one setting;\n"
            "              may be repeated\n"
            "--quiet       print nothing\n"
            "--long-option-name VALUE\n"
            "              help below the label\n"
            "The end.\n");
  EXPECT_EQ(UsageText(kWithVerbs),
            "usage: pictavo verbs show FILE\n"
            "       pictavo verbs write FILE [--mode N]\n"
            "\n"
            "--mode N      write: the mode\n");
}

TEST(CliArgs, EveryCommandsUsageNamesEachOfItsOptions) {
  std::set<std::string_view> names;
  for (const CommandSpec& c : Commands()) {
    EXPECT_TRUE(names.insert(c.name).second) << "two commands are called " << c.name;
    EXPECT_FALSE(c.summary.empty()) << c.name;
    ASSERT_FALSE(c.forms.empty()) << c.name;
    const std::string usage = UsageText(c);
    EXPECT_EQ(usage.rfind("usage: pictavo " + std::string(c.name) + " ", 0), 0u) << usage;
    for (const OptionSpec& o : c.options) {
      std::string label(o.name);
      if (!o.value.empty()) label += " " + std::string(o.value);
      EXPECT_NE(usage.find("\n" + label), std::string::npos) << c.name << " " << label;
      EXPECT_NE(usage.find(std::string(o.help.substr(0, o.help.find('\n')))), std::string::npos)
          << c.name << " " << o.name;
      EXPECT_EQ(o.name.rfind("--", 0), 0u) << c.name << " " << o.name;
      EXPECT_EQ(o.value.empty(), o.needs.empty()) << c.name << " " << o.name;
      EXPECT_TRUE(std::any_of(
          c.forms.begin(), c.forms.end(),
          [&](std::string_view form) { return form.find(o.name) != std::string_view::npos; }))
          << c.name << ": no synopsis form names " << o.name;
    }
  }
  const std::string list = CommandListText(Commands());
  for (const CommandSpec& c : Commands())
    EXPECT_NE(list.find("\n  " + std::string(c.name) + " "), std::string::npos) << c.name;
}

}  // namespace
}  // namespace pictavo::cli
