#include "platform/process.h"

#include <signal.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
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

// Every program starts under the guard beside the executable: a process that dies without a
// chance to clean up (SIGKILL) takes its programs and their own children with it.
TEST(Process, ProgramsEndWithTheProcessThatStartedThem) {
  TempDir dir;
  const std::string pids = dir.file("pids.txt");
  const pid_t owner = ::fork();
  ASSERT_GE(owner, 0);
  if (owner == 0) {
    Process p;
    if (!StartProcess(Shell("sleep 30 & echo $$ $! > '" + pids + "'; wait"), p).ok()) _exit(2);
    pid_t shell = 0, child = 0;
    if (!PidsWritten(p, pids, shell, child)) _exit(3);
    ::kill(::getpid(), SIGKILL);  // no destructor runs
    _exit(4);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(owner, &status, 0), owner);
  ASSERT_TRUE(WIFSIGNALED(status))
      << "the owner could not start its program: " << WEXITSTATUS(status);
  pid_t shell = 0, child = 0;
  std::ifstream(pids) >> shell >> child;
  ASSERT_GT(shell, 0);
  ASSERT_GT(child, 0);
  EXPECT_TRUE(EndsSoon(shell)) << "a program outlived the process that started it";
  EXPECT_TRUE(EndsSoon(child)) << "a program's own child outlived the process that started it";
}

TEST(Process, StopSignalsAreCaughtCountedAndPassedOn) {
  TempDir dir;
  const std::string said = dir.file("said.txt"), ready = dir.file("ready.txt");
  std::atomic<bool> flag{false};
  CatchStopSignals(flag, LaterStops::kCount);
  Process p;
  ASSERT_TRUE(StartProcess(Shell("trap 'echo TERM > \"" + said +
                                 "\"; exit 5' TERM; "
                                 "trap 'echo HUP > \"" +
                                 said +
                                 "\"; exit 6' HUP; "
                                 "echo ok > \"" +
                                 ready + "\"; while :; do sleep 0.05; done"),
                           p)
                  .ok());
  for (int i = 0; i < 500 && ReadText(ready).empty(); ++i) (void)WaitProcess(p, 10);
  ASSERT_FALSE(ReadText(ready).empty());
  EXPECT_EQ(StopRequestsCaught(), 0);
  ::raise(SIGHUP);
  EXPECT_TRUE(flag.load());
  EXPECT_EQ(StopRequestsCaught(), 1);
  ::raise(SIGTERM);  // counted only: this process goes on
  EXPECT_EQ(StopRequestsCaught(), 2);
  EXPECT_TRUE(p.running());
  PassStopOn(p);  // the last one caught: SIGTERM, through the guard to the program
  EXPECT_EQ(WaitProcess(p, 10000), 5);
  EXPECT_EQ(ReadText(said), "TERM\n");
  ReleaseStopSignals();
  EXPECT_EQ(StopRequestsCaught(), 0);

  // The engine's way: the first request sets the flag, the second ends the process at once with
  // the signal's own action.
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    std::atomic<bool> stop{false};
    CatchStopSignals(stop, LaterStops::kEndProcess);
    ::raise(SIGTERM);
    if (!stop.load()) _exit(3);
    ::raise(SIGINT);
    _exit(4);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status)) << "exit status " << WEXITSTATUS(status);
  EXPECT_EQ(WTERMSIG(status), SIGINT);
}

TEST(Process, TagsTellARunningProcessFromAnEndedOne) {
  const ProcessTag own = OwnProcessTag();
  EXPECT_EQ(own.pid, static_cast<uint64_t>(::getpid()));
  EXPECT_GT(own.start, 0u);
  EXPECT_TRUE(ProcessMayRun(own));
  ProcessTag reused = own;
  reused.start += 1;  // the same id, given to a process that started at another time
  EXPECT_FALSE(ProcessMayRun(reused));
  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  EXPECT_FALSE(ProcessMayRun(ProcessTag{static_cast<uint64_t>(child), own.start}));
  EXPECT_FALSE(ProcessMayRun(ProcessTag{}));
}

TEST(Process, ProbesRunInACopyThatMayAbort) {
  EXPECT_TRUE(ProbeInChildProcess([] { return true; }, 10000));
  EXPECT_FALSE(ProbeInChildProcess([] { return false; }, 10000));
  EXPECT_FALSE(ProbeInChildProcess(
      [] {
        std::abort();
        return true;
      },
      10000));
  // What the probe prints goes nowhere; one that hangs is given up.
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(ProbeInChildProcess(
      [] {
        std::fprintf(stderr, "not for the test's output\n");
        ::sleep(30);
        return true;
      },
      200));
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
}

}  // namespace
}  // namespace pictavo::platform
