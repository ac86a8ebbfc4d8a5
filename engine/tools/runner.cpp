// The one place where the engine starts programs (POSIX: posix_spawn, process groups, pidfd).
#include "engine/tools/runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <thread>
#include <vector>

#include "engine/tools/command_line.h"

extern char** environ;

namespace pictavo::tools {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr milliseconds kSlice(500);
constexpr milliseconds kPauseAfterTool(100);

std::atomic<bool> g_stop{false};
std::atomic<EventPump> g_pump{nullptr};

void Pump() {
  if (EventPump pump = g_pump.load()) pump();
}

// Closes a descriptor when it goes out of scope.
struct Fd {
  int fd = -1;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

int OpenForChild(const std::string& path, int flags) {
  return ::open(path.empty() ? "/dev/null" : path.c_str(), flags | O_CLOEXEC, 0644);
}

int DecodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return kTerminated;
}

// Waits at most `slice` for the child to end; true (and its status) when it has ended.
bool WaitSlice(pid_t pid, int pidfd, milliseconds slice, int& status) {
  if (pidfd >= 0) {
    pollfd p{pidfd, POLLIN, 0};
    int rc;
    do {
      rc = ::poll(&p, 1, static_cast<int>(slice.count()));
    } while (rc < 0 && errno == EINTR);
  } else {
    // No pidfd (old kernel): poll the child in short steps instead.
    auto until = Clock::now() + slice;
    while (Clock::now() < until) {
      if (::waitpid(pid, &status, WNOHANG) == pid) return true;
      std::this_thread::sleep_for(milliseconds(5));
    }
  }
  pid_t r;
  do {
    r = ::waitpid(pid, &status, WNOHANG);
  } while (r < 0 && errno == EINTR);
  return r == pid;
}

void KillGroup(pid_t pid) {
  // The tool leads its own group; killing the group ends every child it started.
  ::kill(-pid, SIGKILL);
  ::kill(pid, SIGKILL);
  int status;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

// Starts one command with its redirections and waits for it. No pause afterwards.
int SpawnAndWait(const BatchCommand& cmd, const std::string& working_folder, int timeout_s) {
  if (cmd.argv.empty() || cmd.argv[0].empty()) return kNotStarted;
  if (g_stop.load()) return kTerminated;  // a stopped job starts no further tools

  Fd in{OpenForChild(cmd.stdin_path, O_RDONLY)};
  Fd out{
      OpenForChild(cmd.stdout_path, O_WRONLY | O_CREAT | (cmd.stdout_append ? O_APPEND : O_TRUNC))};
  Fd err{cmd.stderr_to_stdout ? -1 : OpenForChild(cmd.stderr_path, O_WRONLY | O_CREAT | O_TRUNC)};
  if (in.fd < 0 || out.fd < 0 || (!cmd.stderr_to_stdout && err.fd < 0)) return kNotStarted;

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.fd, 0);
  posix_spawn_file_actions_adddup2(&actions, out.fd, 1);
  posix_spawn_file_actions_adddup2(&actions, cmd.stderr_to_stdout ? out.fd : err.fd, 2);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  if (!working_folder.empty())
    posix_spawn_file_actions_addchdir_np(&actions, working_folder.c_str());

  posix_spawnattr_t attr;
  posix_spawnattr_init(&attr);
  sigset_t none, defaults;
  sigemptyset(&none);
  sigemptyset(&defaults);
  for (int sig : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) sigaddset(&defaults, sig);
  posix_spawnattr_setsigmask(&attr, &none);
  posix_spawnattr_setsigdefault(&attr, &defaults);
  posix_spawnattr_setpgroup(&attr, 0);
  posix_spawnattr_setflags(&attr,
                           POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  std::vector<char*> argv;
  for (const std::string& a : cmd.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  // A bare program name is looked up on the search path, as Windows does for a command line.
  bool has_path = cmd.argv[0].find('/') != std::string::npos;
  pid_t pid = 0;
  int rc = has_path ? ::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ)
                    : ::posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return kNotStarted;

  Fd pidfd{static_cast<int>(::syscall(SYS_pidfd_open, pid, 0))};
  const auto start = Clock::now();
  const auto deadline = start + std::chrono::seconds(timeout_s > 0 ? timeout_s : 0);
  int status = 0;
  for (;;) {
    milliseconds slice = kSlice;
    if (timeout_s > 0) {
      auto left = std::chrono::ceil<milliseconds>(deadline - Clock::now());
      slice = std::clamp(left, milliseconds(0), kSlice);
    }
    if (WaitSlice(pid, pidfd.fd, slice, status)) return DecodeStatus(status);
    bool timed_out = timeout_s > 0 && Clock::now() >= deadline;
    if (g_stop.load() || timed_out) {
      KillGroup(pid);
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

void SetEventPump(EventPump pump) {
  g_pump.store(pump);
}

void SetProcessPriority(int cpu_priority) {
  if (cpu_priority == 1) ::setpriority(PRIO_PROCESS, 0, 19);
  if (cpu_priority == 2) ::setpriority(PRIO_PROCESS, 0, 0);  // fails harmlessly when already nicer
}

int RunAndWait(const std::string& command_line, int show_window) {
  return RunAndWaitTimeout(command_line, show_window, std::string(), 0);
}

int RunAndWaitTimeout(const std::string& command_line, int /*show_window*/,
                      const std::string& working_folder, int timeout_s) {
  BatchCommand cmd;
  cmd.argv = SplitCommandLine(command_line);
  return Finish(SpawnAndWait(cmd, working_folder, timeout_s));
}

int RunBatch(const std::string& command_line, const std::string& /*temp_folder*/) {
  BatchParse parsed = ParseBatch(command_line);
  if (!parsed.error.empty() || parsed.commands.empty()) return Finish(kNotStarted);
  int result = 0;
  for (const BatchCommand& cmd : parsed.commands) {
    if (cmd.only_if_previous_ok && result != 0) continue;
    result = SpawnAndWait(cmd, std::string(), 0);
    if (g_stop.load()) break;
  }
  return Finish(result);
}

}  // namespace pictavo::tools
