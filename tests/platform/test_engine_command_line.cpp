#include <vector>

#include <gtest/gtest.h>

#include "engine/command_line.h"

namespace pictavo::engine {
namespace {

JobArguments Parse(std::vector<const char*> args) {
  args.insert(args.begin(), "pictavo-engine");
  return ParseCommandLine(static_cast<int>(args.size()), args.data());
}

TEST(EngineCommandLine, KeepsTheDeliberateAsymmetries) {
  JobArguments none = Parse({});
  EXPECT_EQ(none.code, "1");
  EXPECT_EQ(none.cfg_file, "");

  JobArguments one = Parse({"12"});  // one argument is ignored entirely
  EXPECT_EQ(one.code, "1");

  JobArguments two_act = Parse({"12", "job.act"});  // with two, only .cfg counts
  EXPECT_EQ(two_act.code, "12");
  EXPECT_EQ(two_act.cfg_file, "");
  EXPECT_EQ(two_act.act_file, "");

  JobArguments upper = Parse({"36", "JOB.CFG"});
  EXPECT_EQ(upper.code, "36");
  EXPECT_EQ(upper.cfg_file, "JOB.CFG");

  JobArguments ab = Parse({"12", "a.act", "b.cfg"});
  JobArguments ba = Parse({"12", "b.cfg", "a.act"});
  EXPECT_EQ(ab.cfg_file, "b.cfg");
  EXPECT_EQ(ab.act_file, "a.act");
  EXPECT_EQ(ba.cfg_file, ab.cfg_file);
  EXPECT_EQ(ba.act_file, ab.act_file);

  JobArguments later_wins = Parse({"12", "first.cfg", "second.cfg"});
  EXPECT_EQ(later_wins.cfg_file, "second.cfg");

  JobArguments surplus = Parse({"12", "a.cfg", "b.act", "c.txt"});
  EXPECT_EQ(surplus.code, "1");
  EXPECT_EQ(surplus.cfg_file, "");
}

}  // namespace
}  // namespace pictavo::engine
