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
// Thread safety: several workers may start, wait for and kill their own programs at once; the
// descriptors used for one start never leak into a program another worker starts. A single
// Process must be used by one thread at a time.
#pragma once

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

// Sets this process's own nice level (0 normal .. 19 lowest; a Windows implementation maps it to
// a priority class). Lowering the value needs privileges; returns false when refused.
bool SetOwnNiceLevel(int nice_level);

}  // namespace pictavo::platform
