#include "platform/process.h"

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"

namespace pictavo::platform {
namespace {

using pictavo::testing::TempDir;

ProcessSpec Shell(const std::string& script) {
  ProcessSpec spec;
  spec.argv = {"/bin/sh", "-c", script};
  return spec;
}

std::optional<int> RunToEnd(const ProcessSpec& spec) {
  Process p;
  Status s = StartProcess(spec, p);
  EXPECT_TRUE(s.ok()) << s.message();
  return WaitProcess(p, 10000);
}

std::string ReadText(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// A process that has ended is gone or, until its new parent reaps it, a zombie.
bool ProcessEnded(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  size_t paren = line.rfind(')');
  return paren != std::string::npos && paren + 2 < line.size() &&
         (line[paren + 2] == 'Z' || line[paren + 2] == 'X');
}

bool EndsSoon(pid_t pid) {
  for (int i = 0; i < 100 && !ProcessEnded(pid); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return ProcessEnded(pid);
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
  ProcessSpec spec;
  spec.argv = {"true"};
  EXPECT_EQ(RunToEnd(spec), 0);

  Process p;
  ASSERT_TRUE(StartProcess(Shell("exit 3"), p).ok());
  EXPECT_TRUE(p.running());
  EXPECT_EQ(WaitProcess(p, 10000), 3);
  EXPECT_FALSE(p.running());
  EXPECT_EQ(WaitProcess(p, 0), std::nullopt) << "the end is reported once";
}

TEST(Process, ProgramsThatCannotStart) {
  TempDir dir;
  auto fails = [](const ProcessSpec& spec) {
    Process p;
    Status s = StartProcess(spec, p);
    return !s.ok() && !s.message().empty() && !p.running();
  };
  EXPECT_TRUE(fails(ProcessSpec{}));
  ProcessSpec spec;
  spec.argv = {dir.file("no-such-program")};
  EXPECT_TRUE(fails(spec));
  spec.argv = {"pictavo-no-such-program-on-the-path"};
  EXPECT_TRUE(fails(spec));
  std::ofstream(dir.file("not-executable")) << "data";
  spec.argv = {dir.file("not-executable")};
  EXPECT_TRUE(fails(spec));

  spec = Shell("exit 0");
  spec.working_folder = dir.file("missing-folder");
  EXPECT_TRUE(fails(spec));
  spec = Shell("exit 0");
  spec.stdin_path = dir.file("missing-input");
  EXPECT_TRUE(fails(spec));
  spec = Shell("exit 0");
  spec.stdout_path = dir.file("missing-folder/out.txt");
  EXPECT_TRUE(fails(spec));
}

TEST(Process, WorkingFolderAndRedirections) {
  TempDir dir;
  std::filesystem::create_directory(dir.path() / "work");
  const std::string out = dir.file("out.txt");

  ProcessSpec spec;
  spec.argv = {"pwd"};
  spec.working_folder = dir.file("work");
  spec.stdout_path = out;
  ASSERT_EQ(RunToEnd(spec), 0);
  std::string printed = ReadText(out);
  ASSERT_FALSE(printed.empty());
  printed.pop_back();  // the line break
  EXPECT_TRUE(std::filesystem::equivalent(printed, dir.path() / "work")) << printed;

  // Truncate, then append; stderr joins stdout when asked, and stdin comes from a file.
  std::ofstream(dir.file("in.txt")) << "from input\n";
  spec = Shell("cat; echo to-stderr >&2");
  spec.stdin_path = dir.file("in.txt");
  spec.stdout_path = out;
  spec.stderr_to_stdout = true;
  ASSERT_EQ(RunToEnd(spec), 0);
  EXPECT_EQ(ReadText(out), "from input\nto-stderr\n");
  spec = Shell("echo again");
  spec.stdout_path = out;
  spec.stdout_append = true;
  ASSERT_EQ(RunToEnd(spec), 0);
  EXPECT_EQ(ReadText(out), "from input\nto-stderr\nagain\n");

  spec = Shell("echo visible; echo apart >&2");
  spec.stdout_path = out;
  spec.stderr_path = dir.file("err.txt");
  ASSERT_EQ(RunToEnd(spec), 0);
  EXPECT_EQ(ReadText(out), "visible\n");
  EXPECT_EQ(ReadText(dir.file("err.txt")), "apart\n");

  // Without redirections the program reads an empty stdin.
  spec = Shell("test -z \"$(cat)\"");
  EXPECT_EQ(RunToEnd(spec), 0);
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
