// Starting, waiting for and ending other programs; the process's own priority.
//
// A program runs directly from an argv (no command interpreter), in its own process group (on
// Windows this would be a job object), with its standard streams on files or on the null device,
// so it reads nothing from the engine's terminal and writes nothing to its console.
//
// Ownership: a Process owns the started program until it has been waited for or killed. Dropping
// a Process whose program still runs kills its group and reaps it, so no program outlives its
// handle unseen.
//
// No program outlives this process either, however it ends (SIGKILL included): each one starts
// under the guard program `pictavo-guard` beside the executable, which leads the program's group,
// waits for the program and passes its exit status on, and kills the whole group when this
// process dies (see docs/platform.md). Without the guard file, programs start directly and a
// killed engine leaves them running.
//
// Thread safety: several workers may start, wait for and kill their own programs at once; the
// descriptors used for one start never leak into a program another worker starts. A single
// Process must be used by one thread at a time.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/status.h"

namespace pictavo::platform {

struct LaunchOptions {
  // argv[0] is the program: a path when it holds a delimiter, else looked up on the search path.
  std::vector<std::string> argv;
  std::string working_folder;  // empty = this process's current folder
  // Standard streams; an empty path means the null device.
  std::string stdin_path;
  std::string stdout_path;        // created when missing
  bool stdout_append = false;     // append to stdout_path instead of truncating it
  std::string stderr_path;        // created when missing, truncated
  bool stderr_to_stdout = false;  // stderr goes where stdout goes; stderr_path is ignored
  // With an empty stderr_path: stderr goes to an anonymous file of the Process instead of the
  // null device, so StderrTail can tell what the program complained of.
  bool capture_stderr = false;
};

struct ProcessState;  // defined by each platform's implementation

class Process {
 public:
  Process();
  Process(Process&&) noexcept;
  Process& operator=(Process&&) noexcept;
  ~Process();  // kills the group and reaps the program when it still runs

  // True from a successful StartProcess until WaitProcess reported the end or the group was
  // killed.
  bool running() const;

 private:
  friend Status StartProcess(const LaunchOptions& launch, Process& process);
  friend std::optional<int> WaitProcess(Process& process, int max_wait_ms);
  friend void KillProcessGroup(Process& process);
  friend std::string StderrTail(const Process& process, size_t max_bytes);
  friend void PassStopOn(Process& process);

  std::unique_ptr<ProcessState> state_;
};

// Starts the program; a program `process` still held is killed first. Fails (and `process` is
// left not running) when argv is empty, a redirection
// file cannot be opened, or the program cannot be started (missing, not executable, bad working
// folder). The program inherits this process's environment and priority.
[[nodiscard]] Status StartProcess(const LaunchOptions& launch, Process& process);

// Waits at most `max_wait_ms` (0 = just look) for the program to end. Returns its exit code, or
// 128 + the signal number when a signal ended it; nullopt while it still runs. A Process that is
// not running returns nullopt at once.
std::optional<int> WaitProcess(Process& process, int max_wait_ms);

// Ends the program and every process in its group at once (no chance to clean up), then reaps
// it. Does nothing for a Process that is not running.
void KillProcessGroup(Process& process);

// The last `max_bytes` (at most) that the program wrote to its captured standard error; "" when
// it was not captured or wrote nothing.
std::string StderrTail(const Process& process, size_t max_bytes);

// Asks the program to stop as this process was asked to (CatchStopSignals): with the last stop
// signal caught, or a plain termination request when none was. The program decides how it ends;
// KillProcessGroup ends it at once. Does nothing for a Process that is not running.
void PassStopOn(Process& process);

// Stop requests from outside the job: Ctrl-C, `kill` and a closed terminal (SIGINT, SIGTERM,
// SIGHUP here). The first one sets `flag` (which must be lock-free and outlive the catch). What
// later ones do is `later`: kEndProcess ends the process at once, with the signal's own default
// action; kCount only counts them, for a front end that passes each one on to the program it
// waits for. Call on the main thread before other threads start; the handlers stay until
// ReleaseStopSignals.
enum class LaterStops { kEndProcess, kCount };
void CatchStopSignals(std::atomic<bool>& flag, LaterStops later);
void ReleaseStopSignals();  // the default actions again; the count goes back to 0
// How many stop requests arrived since CatchStopSignals (0 when none). Thread-safe.
int StopRequestsCaught();

// A process told apart from a later one that reuses its id: the id and the start time.
struct ProcessTag {
  uint64_t pid = 0;
  uint64_t start = 0;  // clock ticks after boot; 0 where the system does not tell
};
ProcessTag OwnProcessTag();
// False only when that very process is known to have ended: no process has its id, or the one
// that has it started at another time. When the system cannot tell, true.
bool ProcessMayRun(const ProcessTag& tag);

// Runs `probe` in a copy of this process with standard output and error on the null device and
// no core dump, for a check that may abort the process that makes it (a toolkit that cannot open
// its display). True when the probe returned true within `max_wait_ms`; a copy that is still
// running then is killed. Call only while this process has a single thread.
bool ProbeInChildProcess(const std::function<bool()>& probe, int max_wait_ms);

// Sets this process's own nice level (0 normal .. 19 lowest; a Windows implementation maps it to
// a priority class). Lowering the value needs privileges; returns false when refused.
bool SetOwnNiceLevel(int nice_level);

}  // namespace pictavo::platform
