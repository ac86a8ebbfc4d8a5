#include "platform/process.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/process_watch.h"
#include "tests/support/test_paths.h"

namespace pictavo::platform {
namespace {

using pictavo::testing::EndsSoon;
using pictavo::testing::ReadText;
using pictavo::testing::TempDir;

LaunchOptions Shell(const std::string& script) {
  LaunchOptions launch;
  launch.argv = {"/bin/sh", "-c", script};
  return launch;
}

std::optional<int> RunToEnd(const LaunchOptions& launch) {
  Process p;
  Status s = StartProcess(launch, p);
  EXPECT_TRUE(s.ok()) << s.message();
  return WaitProcess(p, 10000);
}

// Waits until the program has written its pids to `path`.
bool PidsWritten(Process& p, const std::string& path, pid_t& first, pid_t& second) {
  for (int i = 0; i < 500; ++i) {
    std::ifstream in(path);
    if (in >> first >> second) return true;
    if (WaitProcess(p, 10)) return false;
  }
  return false;
}

TEST(Process, ExitCodesAndSignals) {
  EXPECT_EQ(RunToEnd(Shell("exit 0")), 0);
  EXPECT_EQ(RunToEnd(Shell("exit 7")), 7);
  EXPECT_EQ(RunToEnd(Shell("kill -9 $$")), 128 + 9);

  // A bare name is looked up on the search path.
  LaunchOptions launch;
  launch.argv = {"true"};
  EXPECT_EQ(RunToEnd(launch), 0);

  Process p;
  ASSERT_TRUE(StartProcess(Shell("exit 3"), p).ok());
  EXPECT_TRUE(p.running());
  EXPECT_EQ(WaitProcess(p, 10000), 3);
  EXPECT_FALSE(p.running());
  EXPECT_EQ(WaitProcess(p, 0), std::nullopt) << "the end is reported once";
}

TEST(Process, ProgramsThatCannotStart) {
  TempDir dir;
  auto fails = [](const LaunchOptions& launch) {
    Process p;
    Status s = StartProcess(launch, p);
    return !s.ok() && !s.message().empty() && !p.running();
  };
  EXPECT_TRUE(fails(LaunchOptions{}));
  LaunchOptions launch;
  launch.argv = {dir.file("no-such-program")};
  EXPECT_TRUE(fails(launch));
  launch.argv = {"pictavo-no-such-program-on-the-path"};
  EXPECT_TRUE(fails(launch));
  std::ofstream(dir.file("not-executable")) << "data";
  launch.argv = {dir.file("not-executable")};
  EXPECT_TRUE(fails(launch));

  launch = Shell("exit 0");
  launch.working_folder = dir.file("missing-folder");
  EXPECT_TRUE(fails(launch));
  launch = Shell("exit 0");
  launch.stdin_path = dir.file("missing-input");
  EXPECT_TRUE(fails(launch));
  launch = Shell("exit 0");
  launch.stdout_path = dir.file("missing-folder/out.txt");
  EXPECT_TRUE(fails(launch));
}

TEST(Process, WorkingFolderAndRedirections) {
  TempDir dir;
  std::filesystem::create_directory(dir.path() / "work");
  const std::string out = dir.file("out.txt");

  LaunchOptions launch;
  launch.argv = {"pwd"};
  launch.working_folder = dir.file("work");
  launch.stdout_path = out;
  ASSERT_EQ(RunToEnd(launch), 0);
  std::string printed = ReadText(out);
  ASSERT_FALSE(printed.empty());
  printed.pop_back();  // the line break
  EXPECT_TRUE(std::filesystem::equivalent(printed, dir.path() / "work")) << printed;

  // Truncate, then append; stderr joins stdout when asked, and stdin comes from a file.
  std::ofstream(dir.file("in.txt")) << "from input\n";
  launch = Shell("cat; echo to-stderr >&2");
  launch.stdin_path = dir.file("in.txt");
  launch.stdout_path = out;
  launch.stderr_to_stdout = true;
  ASSERT_EQ(RunToEnd(launch), 0);
  EXPECT_EQ(ReadText(out), "from input\nto-stderr\n");
  launch = Shell("echo again");
  launch.stdout_path = out;
  launch.stdout_append = true;
  ASSERT_EQ(RunToEnd(launch), 0);
  EXPECT_EQ(ReadText(out), "from input\nto-stderr\nagain\n");

  launch = Shell("echo visible; echo apart >&2");
  launch.stdout_path = out;
  launch.stderr_path = dir.file("err.txt");
  ASSERT_EQ(RunToEnd(launch), 0);
  EXPECT_EQ(ReadText(out), "visible\n");
  EXPECT_EQ(ReadText(dir.file("err.txt")), "apart\n");

  // Without redirections the program reads an empty stdin.
  launch = Shell("test -z \"$(cat)\"");
  EXPECT_EQ(RunToEnd(launch), 0);
}

TEST(Process, KillEndsTheWholeGroup) {
  TempDir dir;
  const std::string pids = dir.file("pids.txt");
  Process p;
  ASSERT_TRUE(StartProcess(Shell("sleep 30 & echo $$ $! > '" + pids + "'; wait"), p).ok());
  pid_t shell = 0, child = 0;
  ASSERT_TRUE(PidsWritten(p, pids, shell, child));
  EXPECT_EQ(WaitProcess(p, 0), std::nullopt);
  EXPECT_TRUE(p.running());

  const auto start = std::chrono::steady_clock::now();
  KillProcessGroup(p);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
  EXPECT_FALSE(p.running());
  EXPECT_TRUE(EndsSoon(shell));
  EXPECT_TRUE(EndsSoon(child)) << "the program's own child outlived the kill";
}

TEST(Process, DroppingARunningProcessEndsIt) {
  TempDir dir;
  const std::string pids = dir.file("pids.txt");
  pid_t shell = 0, child = 0;
  {
    Process p;
    ASSERT_TRUE(StartProcess(Shell("sleep 30 & echo $$ $! > '" + pids + "'; wait"), p).ok());
    ASSERT_TRUE(PidsWritten(p, pids, shell, child));
    Process moved = std::move(p);
    EXPECT_FALSE(p.running());
    EXPECT_TRUE(moved.running());
  }
  EXPECT_TRUE(EndsSoon(shell));
  EXPECT_TRUE(EndsSoon(child));
}

}  // namespace
}  // namespace pictavo::platform
