// The one place where the engine starts programs; the operating system's side is in
// platform/process.h.
#include "engine/tools/runner.h"

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>
#include <string>
#include <thread>
#include <utility>

#include "engine/tools/command_line.h"
#include "engine/tools/tool_manifest.h"
#include "engine/tools/trouble.h"
#include "platform/console.h"
#include "platform/process.h"

namespace pictavo::tools {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kSlice(500);
// A front end waiting for its engine passes a stop on sooner, and shows the log as it grows.
constexpr milliseconds kFrontEndSlice(100);
constexpr milliseconds kPauseAfterTool(100);

std::atomic<bool> g_stop{false};
std::atomic<EventPump> g_pump{nullptr};

void Pump() {
  if (EventPump pump = g_pump.load()) pump();
}

// How a user knows the program: the tool folder's name, and the program it leads to when that
// is a link ("pdfpsai.bin (gs)").
std::string ProgramName(const std::string& path) {
  namespace fs = std::filesystem;
  std::error_code ec;
  std::string name = fs::path(path).filename().string();
  if (fs::is_symlink(path, ec)) {
    const std::string target = fs::read_symlink(path, ec).filename().string();
    if (!ec && !target.empty() && target != name) name += " (" + target + ")";
  }
  return name;
}

// What a tool's standard error says of its failure, shortened to what fits on a log line: its
// first line that reports an error (the cause; later ones tend to be consequences), else its
// last line.
std::string LastLine(const std::string& tail) {
  std::string text, last;
  size_t start = 0;
  while (start < tail.size()) {
    size_t end = tail.find_first_of("\r\n", start);
    if (end == std::string::npos) end = tail.size();
    std::string line = tail.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.back() == ' ' || line.back() == '\t')) line.pop_back();
    if (line.empty()) continue;
    last = line;
    if (text.empty() &&
        (line.find("ERROR") != std::string::npos || line.find("Error") != std::string::npos ||
         line.find("error:") != std::string::npos))
      text = line;
  }
  if (text.empty()) text = last;
  for (char& c : text)
    if (static_cast<unsigned char>(c) < 0x20) c = ' ';
  constexpr size_t kMax = 200;
  if (text.size() > kMax) text = text.substr(0, kMax) + "...";
  return text;
}

// The tool folder's name of a program ("ogr/ogr2ogr.exe"), or "" when it is not one of its tools.
std::string ToolFolderName(const std::string& program) {
  const size_t utl = program.rfind("/utl/");
  std::string name = utl == std::string::npos ? std::string() : program.substr(utl + 5);
  std::replace(name.begin(), name.end(), '\\', '/');
  return name;
}

// Notes what went wrong with one run for the stage that ran it (engine/tools/trouble.h).
// `timeout_key`: the "Limits" key of the time-out, "" when the caller set its own.
void NoteRun(const std::string& program_path, int code, bool timed_out, int timeout_s,
             const char* timeout_key, const std::string& stderr_tail) {
  std::string said = LastLine(stderr_tail);
  // Lines a tool prints on every run tell nothing about this one.
  for (const char* noise : {"failed to launch javaldx"})
    if (said.find(noise) != std::string::npos) said.clear();
  const std::string name = ProgramName(program_path);
  if (timed_out) {
    const std::string limit = *timeout_key != '\0'
                                  ? " (\"Limits\"/\"" + std::string(timeout_key) + "\")"
                                  : std::string(", the longest this step waits for it");
    NoteTrouble(Trouble::kToolEnded,
                name + " was ended after " + std::to_string(timeout_s) + " s" + limit);
  } else if (code == kTerminated) {
    NoteTrouble(Trouble::kToolEnded, name + " was ended by the stop button");
  } else if (code != 0) {
    std::string text =
        name + " ended with " +
        (code > 128 ? "signal " + std::to_string(code - 128) : "exit code " + std::to_string(code));
    NoteTrouble(Trouble::kToolFailed, said.empty() ? text : text + ": " + said);
  } else if (!said.empty()) {
    NoteTrouble(Trouble::kToolSaid, name + ": " + said);
  }
}

// Starts one command with its redirections and waits for it. No pause afterwards. With
// `pass_stop_on`, a stop request is passed on to the program instead of killing it.
int SpawnAndWait(const JobContext& context, const BatchCommand& cmd,
                 const std::string& working_folder, int timeout_s, bool pass_stop_on = false) {
  if (cmd.argv.empty() || cmd.argv[0].empty()) return kNotStarted;
  if (context.Stopped()) return kTerminated;  // a stopped job starts no further tools

  platform::LaunchOptions launch;
  launch.argv = cmd.argv;
  launch.working_folder = working_folder;
  launch.stdin_path = cmd.stdin_path;
  launch.stdout_path = cmd.stdout_path;
  launch.stdout_append = cmd.stdout_append;
  launch.stderr_path = cmd.stderr_path;
  launch.stderr_to_stdout = cmd.stderr_to_stdout;
  launch.capture_stderr = true;
  platform::Process process;
  if (Status started = platform::StartProcess(launch, process); !started.ok()) {
    // A tool of the tool folder that is not there is named with the package that provides it.
    // Any other program is named with the system's reason.
    const std::string name = ToolFolderName(cmd.argv[0]);
    if (name.empty() || FindTool(name) == nullptr || !NoteMissingTool(name))
      NoteTrouble(Trouble::kMissingTool, started.message());
    return kNotStarted;
  }
  const char* timeout_key = "";
  if (timeout_s <= 0) {
    const int pace = static_cast<int>(PaceOf(ToolFolderName(cmd.argv[0])));
    timeout_s = context.limits.timeout_s[pace];
    timeout_key = kToolTimeouts[pace].key;
  }
  constexpr size_t kTail = 4096;
  int stops_passed = 0;

  const auto deadline = Clock::now() + std::chrono::seconds(timeout_s > 0 ? timeout_s : 0);
  for (;;) {
    milliseconds slice = pass_stop_on ? kFrontEndSlice : kSlice;
    if (timeout_s > 0) {
      auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
      slice = std::clamp(left, milliseconds(0), slice);
    }
    if (std::optional<int> code = platform::WaitProcess(process, static_cast<int>(slice.count()))) {
      NoteRun(cmd.argv[0], *code, false, timeout_s, timeout_key,
              platform::StderrTail(process, kTail));
      return *code;
    }
    bool timed_out = timeout_s > 0 && Clock::now() >= deadline;
    if (pass_stop_on && !timed_out) {
      const int asked = std::max(platform::StopRequestsCaught(), context.Stopped() ? 1 : 0);
      for (; stops_passed < asked; ++stops_passed) platform::PassStopOn(process);
    } else if (context.Stopped() || timed_out) {
      platform::KillProcessGroup(process);
      NoteRun(cmd.argv[0], kTerminated, timed_out, timeout_s, timeout_key, std::string());
      return kTerminated;
    }
    Pump();
  }
}

int Finish(int result) {
  Pump();
  std::this_thread::sleep_for(kPauseAfterTool);
  Pump();
  return result;
}

}  // namespace

std::atomic<bool>& StopFlag() {
  return g_stop;
}

void ExportUnpackLimit(uint64_t max_unpacked_mb) {
  // Set before any worker starts, so no thread reads the environment meanwhile.
  platform::SetEnvironmentVariable(kMaxUnpackedVariable, std::to_string(max_unpacked_mb));
}

void SetEventPump(EventPump pump) {
  g_pump.store(pump);
}

void SetProcessPriority(int cpu_priority) {
  if (cpu_priority == 1) platform::SetOwnNiceLevel(19);
  if (cpu_priority == 2) platform::SetOwnNiceLevel(0);  // fails harmlessly when already nicer
}

JobContext ProcessJobContext() {
  JobContext context;
  // No time-outs: `pictavo convert` runs a whole job as one tool, and a job's own runs name it.
  for (int& timeout_s : context.limits.timeout_s) timeout_s = 0;
  context.stop = &g_stop;
  return context;
}

int RunAndWait(const std::string& command_line, int show_window) {
  return RunAndWait(ProcessJobContext(), command_line, show_window);
}

int RunAndWaitTimeout(const std::string& command_line, int show_window,
                      const std::string& working_folder, int timeout_s) {
  return RunAndWaitTimeout(ProcessJobContext(), command_line, show_window, working_folder,
                           timeout_s);
}

int RunAndWait(const JobContext& context, const std::string& command_line, int show_window) {
  return RunAndWaitTimeout(context, command_line, show_window, std::string(), 0);
}

int RunAndWaitTimeout(const JobContext& context, const std::string& command_line,
                      int /*show_window*/, const std::string& working_folder, int timeout_s) {
  BatchCommand cmd;
  cmd.argv = SplitCommandLine(command_line);
  return Finish(SpawnAndWait(context, cmd, working_folder, timeout_s));
}

namespace {

int RunBatchCommands(const JobContext& context, const std::string& command_line,
                     bool pass_stop_on) {
  BatchParse parsed = ParseBatch(command_line);
  if (!parsed.error.empty() || parsed.commands.empty()) return kNotStarted;
  int result = 0;
  for (const BatchCommand& cmd : parsed.commands) {
    if (cmd.only_if_previous_ok && result != 0) continue;
    result = SpawnAndWait(context, cmd, std::string(), 0, pass_stop_on);
    if (context.Stopped()) break;
  }
  return result;
}

}  // namespace

int RunBatch(const std::string& command_line, const std::string& temp_folder) {
  return RunBatch(ProcessJobContext(), command_line, temp_folder);
}

int RunBatch(const JobContext& context, const std::string& command_line,
             const std::string& /*temp_folder*/) {
  return Finish(RunBatchCommands(context, command_line, false));
}

int RunBatchNoPause(const std::string& command_line) {
  const int result = RunBatchCommands(ProcessJobContext(), command_line, true);
  Pump();
  return result;
}

}  // namespace pictavo::tools
