#include "engine/tools/runner.h"

#include <signal.h>

#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include <gtest/gtest.h>

#include "engine/tools/tool_paths.h"
#include "engine/tools/trouble.h"
#include "tests/support/process_watch.h"
#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

using Clock = std::chrono::steady_clock;
using pictavo::testing::EndsSoon;
using pictavo::testing::ReadText;
using pictavo::testing::TempDir;

const std::string kFake = PICTAVO_FAKE_TOOL;

double SecondsSince(Clock::time_point start) {
  return std::chrono::duration<double>(Clock::now() - start).count();
}

std::vector<std::string> ReadArgs(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> args;
  std::string arg;
  while (std::getline(in, arg, '\0')) args.push_back(arg);
  return args;
}

void ReadPids(const std::string& path, pid_t& tool, pid_t& child) {
  std::ifstream in(path);
  in >> tool >> child;
}

TEST(Runner, TimeOutEndsTheToolAndItsChildren) {
  TempDir dir;
  const std::string pids = dir.file("pids.txt");
  auto start = Clock::now();
  RunAndWaitTimeout(Quoted(kFake) + " sleep 30 " + Quoted(pids), kHidden, "", 1);
  double took = SecondsSince(start);
  // Ended between 1 and 1.5 s after the start, the 100 ms pause before returning included.
  EXPECT_GE(took, 1.0);
  EXPECT_LT(took, 1.5);
  pid_t tool = 0, child = 0;
  ReadPids(pids, tool, child);
  ASSERT_GT(tool, 0);
  ASSERT_GT(child, 0);
  EXPECT_TRUE(EndsSoon(tool));
  EXPECT_TRUE(EndsSoon(child)) << "the tool's own child outlived the time-out";
}

TEST(Runner, StopFlagEndsARunningTool) {
  TempDir dir;
  const std::string pids = dir.file("pids.txt");
  std::thread stopper([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    StopFlag() = true;
  });
  auto start = Clock::now();
  int rc = RunAndWait(Quoted(kFake) + " sleep 30 " + Quoted(pids), kHidden);
  double took = SecondsSince(start);
  stopper.join();
  // A tool started while the flag is set does not run at all.
  auto second = Clock::now();
  EXPECT_EQ(RunAndWait(Quoted(kFake) + " exit 0", kHidden), kTerminated);
  EXPECT_LT(SecondsSince(second), 0.3);
  StopFlag() = false;

  EXPECT_EQ(rc, kTerminated);
  EXPECT_LT(took, 1.0);  // noticed within one 500 ms slice
  pid_t tool = 0, child = 0;
  ReadPids(pids, tool, child);
  EXPECT_TRUE(EndsSoon(tool));
  EXPECT_TRUE(EndsSoon(child));
}

TEST(Runner, ExitCodesAndStartFailures) {
  EXPECT_EQ(RunAndWait(Quoted(kFake) + " exit 7", kHidden), 7);
  EXPECT_EQ(RunAndWait(Quoted(kFake) + " exit 0", kHidden), 0);
  EXPECT_EQ(RunAndWait("\"/nonexistent/utl/tool.exe\" a b", kHidden), kNotStarted);
  EXPECT_EQ(RunAndWait("no-such-program-pictavo-xyz", kHidden), kNotStarted);
  EXPECT_EQ(RunAndWait("", kHidden), kNotStarted);
  EXPECT_EQ(RunAndWaitTimeout(Quoted(kFake) + " exit 0", kHidden, "/nonexistent/folder", 0),
            kNotStarted);
  // Not started is not slow: only the pause before returning.
  auto start = Clock::now();
  RunAndWait("\"/nonexistent/tool\"", kHidden);
  EXPECT_LT(SecondsSince(start), 0.4);
  // A tool that ends at once is not held for a whole 500 ms slice.
  start = Clock::now();
  RunAndWait(Quoted(kFake) + " exit 0", kHidden);
  EXPECT_LT(SecondsSince(start), 0.45);
}

// What a stage learns of its tools' failures: the cause, the limit that ended a tool, and
// nothing from the tools of another recorder's time.
TEST(Runner, ToolTroublesReachTheStageThatRanThem) {
  RunAndWait(Quoted(kFake) + " complain 3 \"unrelated\"", kHidden);  // no recorder: dropped
  {
    TroubleRecorder stage;
    EXPECT_EQ(stage.Reason("plain"), "plain");
    RunAndWait(Quoted(kFake) + " complain 0 \"warning: odd header\"", kHidden);
    EXPECT_EQ(stage.Reason("it failed"), "it failed (fake_tool: warning: odd header)");
    RunAndWait(
        Quoted(kFake) + " complain 3 \"reading\" \"ERROR 5: broken input\" \"ERROR 6: giving up\"",
        kHidden);
    EXPECT_EQ(stage.Reason("it failed"), "fake_tool ended with exit code 3: ERROR 5: broken input");
    {
      // An inner stage's troubles reach the outer one when it ends; a time-out outranks them.
      TroubleRecorder inner;
      const auto start = Clock::now();
      EXPECT_EQ(RunAndWaitTimeout(Quoted(kFake) + " sleep 30 " + Quoted(TempDir().file("p")),
                                  kHidden, "", 1),
                kTerminated);
      EXPECT_LT(SecondsSince(start), 20.0);
      // A time-out the step set itself is no setting of the job's.
      EXPECT_EQ(inner.Reason(),
                "fake_tool was ended after 1 s, the longest this step waits for it");
    }
    EXPECT_NE(stage.Reason().find("was ended after 1 s"), std::string::npos) << stage.Reason();
    NoteTrouble(Trouble::kLimit, "9 x 9 pixels is above the limit");
    EXPECT_EQ(stage.Reason(), "9 x 9 pixels is above the limit");
  }
  TroubleRecorder next;
  EXPECT_EQ(next.Reason(), "");
  EXPECT_EQ(RunAndWait("\"/nonexistent/utl/tool.exe\"", kHidden), kNotStarted);
  EXPECT_NE(next.Reason().find("cannot start /nonexistent/utl/tool.exe"), std::string::npos)
      << next.Reason();
  // A refused result carries what the tool said about it.
  TroubleRecorder refused;
  RunAndWait(Quoted(kFake) + " complain 0 \"3 entities skipped\"", kHidden);
  NoteTrouble(Trouble::kResultRejected, "the DXF result holds no drawing entities");
  EXPECT_EQ(refused.Reason(),
            "the DXF result holds no drawing entities (fake_tool: 3 entities skipped)");
}

TEST(Runner, WorkingFolderAndUnquotedBlanks) {
  TempDir dir;
  const std::string out = dir.file("cwd.txt");
  RunAndWaitTimeout(Quoted(kFake) + " cwd " + Quoted(out), kHidden, dir.path().string(), 5);
  EXPECT_EQ(std::filesystem::path(ReadText(out)), std::filesystem::canonical(dir.path()));

  // The runner adds no quotes: an unquoted path with a blank reaches the tool as two words.
  const std::string args = dir.file("args.txt");
  RunAndWait(Quoted(kFake) + " args " + Quoted(args) + " /tmp/my file.png \"/tmp/my file.png\"",
             kHidden);
  EXPECT_EQ(ReadArgs(args), (std::vector<std::string>{"/tmp/my", "file.png", "/tmp/my file.png"}));
}

// File names that a shell would run: they must arrive as they are and run nothing.
const char* const kHostileNames[] = {
    "$(touch PWNED)",         "`touch PWNED`",   "a; touch PWNED", "a | touch PWNED",
    "a && touch PWNED",       "a & touch PWNED", "it's 'quoted'",  "-rf --help",
    "new\nline; touch PWNED", "%PATH% ^& *",     "a > PWNED",      "$HOME ${IFS}",
    "back\\slash\\",
};

TEST(Runner, HostileNamesReachTheToolAsData) {
  TempDir dir;
  const std::string args = dir.file("args.txt");
  std::string cmd = Quoted(kFake) + " args " + Quoted(args);
  std::vector<std::string> want;
  for (const char* name : kHostileNames) {
    std::string n = name;
    // A trailing backslash before the closing quote needs doubling under the Windows rules.
    cmd += " " + Quoted(n.back() == '\\' ? n + "\\" : n);
    want.push_back(n);
  }
  RunAndWaitTimeout(cmd, kHidden, dir.path().string(), 5);
  EXPECT_EQ(ReadArgs(args), want);
  EXPECT_FALSE(std::filesystem::exists(dir.file("PWNED")));
}

TEST(Runner, BatchFormRedirectsWithoutAShell) {
  TempDir dir;
  // Output into a file whose name a shell would treat as code.
  for (const char* name : {"out $(touch PWNED).txt", "out `touch PWNED`;|&.txt", "-dash.txt"}) {
    const std::string out = dir.file(name);
    int rc =
        RunBatch(Quoted(kFake) + " echo " + Quoted("$(touch PWNED) hello") + " > " + Quoted(out),
                 dir.path().string());
    EXPECT_EQ(rc, 0);
    EXPECT_EQ(ReadText(out), "$(touch PWNED) hello\n") << name;
  }
  EXPECT_FALSE(std::filesystem::exists("PWNED"));
  EXPECT_FALSE(std::filesystem::exists(dir.file("PWNED")));

  // "&&" runs the next command only after success; a line break always does.
  const std::string a = dir.file("a.txt"), b = dir.file("b.txt");
  RunBatch(Quoted(kFake) + " exit 3 && " + Quoted(kFake) + " echo x > " + Quoted(a) + "\n" +
               Quoted(kFake) + " echo y >> " + Quoted(b) + " & " + Quoted(kFake) + " echo z >> " +
               Quoted(b),
           dir.path().string());
  EXPECT_FALSE(std::filesystem::exists(a));
  EXPECT_EQ(ReadText(b), "y\nz\n");

  // Input redirection, and lines the batch form refuses to run.
  EXPECT_EQ(RunBatch(Quoted(kFake) + " exit 0 < " + Quoted(dir.file("missing.txt")), ""),
            kNotStarted);
  EXPECT_EQ(RunBatch(Quoted(kFake) + " echo x | sh", ""), kNotStarted);
}

// The form for a batch that is the whole job runs it the same way, but returns as soon as it has
// ended: RunBatch pauses after every tool.
TEST(Runner, BatchWithoutPauseRunsTheSameAndReturnsAtOnce) {
  TempDir dir;
  const std::string a = dir.file("a.txt"), b = dir.file("b.txt");
  EXPECT_EQ(RunBatchNoPause(Quoted(kFake) + " echo one > " + Quoted(a) + " && " + Quoted(kFake) +
                            " exit 5"),
            5);
  EXPECT_EQ(ReadText(a), "one\n");
  EXPECT_EQ(
      RunBatchNoPause(Quoted(kFake) + " exit 3 && " + Quoted(kFake) + " echo x > " + Quoted(b)), 3);
  EXPECT_FALSE(std::filesystem::exists(b));
  EXPECT_EQ(RunBatchNoPause(Quoted(kFake) + " echo x | sh"), kNotStarted);

  const std::string quick = Quoted(kFake) + " exit 0";
  auto start = Clock::now();
  EXPECT_EQ(RunBatch(quick, ""), 0);
  const double paused = SecondsSince(start);
  EXPECT_GE(paused, 0.1);
  start = Clock::now();
  EXPECT_EQ(RunBatchNoPause(quick), 0);
  EXPECT_LT(SecondsSince(start), paused);
}

// Office documents and text recognition may take longer than a codec: each kind of tool has a
// time-out of its own, and the reason names the setting that ended it.
TEST(Runner, EachKindOfToolHasItsOwnTimeOut) {
  EXPECT_EQ(PaceOf("convert.bin"), ToolPace::kCodec);
  EXPECT_EQ(PaceOf("pdfpsai.bin"), ToolPace::kRender);
  EXPECT_EQ(PaceOf("ogr/ogr2ogr.exe"), ToolPace::kRender);
  EXPECT_EQ(PaceOf("SOFFICE.BIN"), ToolPace::kOffice);
  EXPECT_EQ(PaceOf("tesseract/tesseract.exe"), ToolPace::kOcr);
  EXPECT_EQ(PaceOf(""), ToolPace::kCodec);
  EXPECT_EQ(JobLimits{}.timeout_s[static_cast<int>(ToolPace::kCodec)], 300);
  EXPECT_LT(JobLimits{}.timeout_s[static_cast<int>(ToolPace::kCodec)],
            JobLimits{}.timeout_s[static_cast<int>(ToolPace::kOffice)]);
  EXPECT_LT(JobLimits{}.timeout_s[static_cast<int>(ToolPace::kCodec)],
            JobLimits{}.timeout_s[static_cast<int>(ToolPace::kOcr)]);

  TempDir dir;
  std::filesystem::create_directories(dir.path() / "utl" / "tesseract");
  for (const char* tool : {"convert.bin", "soffice.bin", "tesseract/tesseract.exe"})
    std::filesystem::create_symlink(kFake, dir.path() / "utl" / tool);
  JobContext job;
  JobLimits& limits = job.limits;
  limits.timeout_s[static_cast<int>(ToolPace::kCodec)] = 1;
  limits.timeout_s[static_cast<int>(ToolPace::kRender)] = 30;
  limits.timeout_s[static_cast<int>(ToolPace::kOffice)] = 2;
  limits.timeout_s[static_cast<int>(ToolPace::kOcr)] = 30;
  struct Case {
    const char* tool;
    double seconds;
    const char* reason;
  };
  for (const Case& c : {Case{"convert.bin", 1.0,
                             "convert.bin (fake_tool) was ended after 1 s "
                             "(\"Limits\"/\"Tool_timeout\")"},
                        Case{"soffice.bin", 2.0,
                             "soffice.bin (fake_tool) was ended after 2 s "
                             "(\"Limits\"/\"Office_timeout\")"}}) {
    SCOPED_TRACE(c.tool);
    TroubleRecorder stage;
    const auto start = Clock::now();
    EXPECT_EQ(RunAndWait(job,
                         Quoted(dir.file(std::string("utl/") + c.tool)) + " sleep 30 " +
                             Quoted(dir.file("pids.txt")),
                         kHidden),
              kTerminated);
    EXPECT_GE(SecondsSince(start), c.seconds);
    EXPECT_LT(SecondsSince(start), c.seconds + 15.0);
    EXPECT_EQ(stage.Reason(), c.reason);
  }
  // A quick OCR run is not held to the codecs' limit.
  TroubleRecorder ocr;
  EXPECT_EQ(RunAndWait(job, Quoted(dir.file("utl/tesseract/tesseract.exe")) + " exit 0", kHidden),
            0);
  EXPECT_EQ(ocr.Reason(), "");
}

// A front end whose one tool is the engine passes a stop on: the engine ends as it would by
// itself (its tools, its scratch, its log). Inside a job, a stop kills the tool's group.
TEST(Runner, BatchThatIsTheWholeJobPassesTheStopOn) {
  TempDir dir;
  const std::string said = dir.file("said.txt");
  const std::string program =
      "/bin/sh -c \"trap 'echo asked > " + said + "; exit 9' TERM; while :; do sleep 0.05; done\"";
  for (const bool whole_job : {true, false}) {
    SCOPED_TRACE(whole_job ? "whole job" : "tool of a job");
    std::filesystem::remove(said);
    std::thread stopper([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(300));
      StopFlag() = true;
    });
    const auto start = Clock::now();
    const int rc = whole_job ? RunBatchNoPause(program) : RunBatch(program, "");
    stopper.join();
    StopFlag() = false;
    EXPECT_LT(SecondsSince(start), 10.0);
    if (whole_job) {
      EXPECT_EQ(rc, 9);
      EXPECT_EQ(ReadText(said), "asked\n");
    } else {
      EXPECT_EQ(rc, kTerminated);
      EXPECT_EQ(ReadText(said), "");
    }
  }
}

int g_pumps = 0;
void CountPump() {
  ++g_pumps;
}

TEST(Runner, EventPumpRunsBetweenSlicesAndBeforeReturning) {
  TempDir dir;
  SetEventPump(CountPump);
  g_pumps = 0;
  RunAndWaitTimeout(Quoted(kFake) + " sleep 5 " + Quoted(dir.file("p.txt")), kHidden, "", 1);
  SetEventPump(nullptr);
  // One call after the first slice, the second ends in the time-out, then two around the pause.
  EXPECT_GE(g_pumps, 3);
}

// Two jobs' contexts used side by side: each run gets the time-out of its own context, not one
// left behind by the other or by the process.
TEST(Runner, EachContextGivesItsRunsItsOwnTimeOut) {
  TempDir dir;
  JobContext short_limits;
  short_limits.limits.timeout_s[static_cast<int>(ToolPace::kCodec)] = 1;
  JobContext no_limits;
  no_limits.limits.timeout_s[static_cast<int>(ToolPace::kCodec)] = 0;  // none
  const std::string sleep5 = Quoted(kFake) + " sleep 5 ";
  int short_rc = -100, none_rc = -100;
  double short_took = 0, none_took = 0;
  std::thread with_none([&] {
    const auto start = Clock::now();
    none_rc = RunAndWait(no_limits, sleep5 + Quoted(dir.file("none.txt")), kHidden);
    none_took = SecondsSince(start);
  });
  const auto start = Clock::now();
  short_rc = RunAndWait(short_limits, sleep5 + Quoted(dir.file("short.txt")), kHidden);
  short_took = SecondsSince(start);
  with_none.join();
  // Wide bounds: the machine may be loaded, but 1 s against 5 s stays apart.
  EXPECT_EQ(short_rc, kTerminated);
  EXPECT_GE(short_took, 1.0);
  EXPECT_LT(short_took, 4.0);
  EXPECT_EQ(none_rc, 0);
  EXPECT_GE(none_took, 4.5);
}

// A context's stop flag ends its own runs only; the process-wide flag is not involved.
TEST(Runner, AContextsStopFlagEndsItsRunsAlone) {
  TempDir dir;
  std::atomic<bool> stop{false};
  JobContext stopped;
  stopped.stop = &stop;
  JobContext going;
  going.limits.timeout_s[static_cast<int>(ToolPace::kCodec)] = 0;
  std::thread stopper([&] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    stop = true;
  });
  const auto start = Clock::now();
  const int rc = RunAndWait(stopped, Quoted(kFake) + " sleep 30 " + Quoted(dir.file("p")), kHidden);
  const double took = SecondsSince(start);
  stopper.join();
  EXPECT_EQ(rc, kTerminated);
  EXPECT_LT(took, 10.0);
  EXPECT_FALSE(StopFlag().load());
  EXPECT_EQ(RunAndWait(going, Quoted(kFake) + " exit 0", kHidden), 0);
  EXPECT_EQ(RunAndWait(stopped, Quoted(kFake) + " exit 0", kHidden), kTerminated);
}

}  // namespace
}  // namespace pictavo::tools
