// Processes on POSIX: posix_spawn into a new process group, pidfd for waiting, SIGKILL to the
// group for ending.
#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

#include "platform/process.h"

extern char** environ;

namespace pictavo::platform {

namespace {

// Closes a descriptor when it goes out of scope.
struct Fd {
  int fd = -1;
  Fd() = default;
  explicit Fd(int f) : fd(f) {}
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  ~Fd() {
    if (fd >= 0) ::close(fd);
  }
};

// O_CLOEXEC keeps the descriptor out of programs that other workers start meanwhile.
int OpenForChild(const std::string& path, int flags) {
  return ::open(path.empty() ? "/dev/null" : path.c_str(), flags | O_CLOEXEC, 0644);
}

int DecodeStatus(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (WIFSIGNALED(status)) return 128 + WTERMSIG(status);
  return 128;  // stopped or continued: not reported, since waitpid is not asked for them
}

}  // namespace

struct ProcessState {
  pid_t pid = -1;
  Fd pidfd;
  Fd stderr_capture;  // the anonymous file behind a captured stderr
  bool running = false;

  ~ProcessState() {
    if (running) Kill();
  }

  void Kill() {
    // The program leads its own group; killing the group ends every child it started.
    ::kill(-pid, SIGKILL);
    ::kill(pid, SIGKILL);
    int status;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    running = false;
  }
};

Process::Process() = default;
Process::Process(Process&&) noexcept = default;
Process& Process::operator=(Process&&) noexcept = default;
Process::~Process() = default;

bool Process::running() const {
  return state_ && state_->running;
}

Status StartProcess(const LaunchOptions& launch, Process& process) {
  process.state_.reset();
  if (launch.argv.empty() || launch.argv[0].empty()) return Status::Error("no program to start");

  Fd in(OpenForChild(launch.stdin_path, O_RDONLY));
  if (in.fd < 0)
    return Status::Error("cannot open " + launch.stdin_path + ": " + std::strerror(errno));
  Fd out(OpenForChild(launch.stdout_path,
                      O_WRONLY | O_CREAT | (launch.stdout_append ? O_APPEND : O_TRUNC)));
  if (out.fd < 0)
    return Status::Error("cannot open " + launch.stdout_path + ": " + std::strerror(errno));
  Fd err;
  Fd capture;
  if (!launch.stderr_to_stdout && launch.stderr_path.empty() && launch.capture_stderr) {
    // A file in memory, gone with its last descriptor; a tool's complaints are a few lines.
    capture.fd = ::memfd_create("stderr", MFD_CLOEXEC);
    if (capture.fd >= 0) err.fd = ::dup(capture.fd);
    if (err.fd >= 0) ::fcntl(err.fd, F_SETFD, FD_CLOEXEC);
  }
  if (!launch.stderr_to_stdout && err.fd < 0) {
    err.fd = OpenForChild(launch.stderr_path, O_WRONLY | O_CREAT | O_TRUNC);
    if (err.fd < 0)
      return Status::Error("cannot open " + launch.stderr_path + ": " + std::strerror(errno));
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.fd, 0);
  posix_spawn_file_actions_adddup2(&actions, out.fd, 1);
  posix_spawn_file_actions_adddup2(&actions, launch.stderr_to_stdout ? out.fd : err.fd, 2);
  posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  if (!launch.working_folder.empty())
    posix_spawn_file_actions_addchdir_np(&actions, launch.working_folder.c_str());

  // The program starts with no signal blocked and the usual signals at their defaults, whatever
  // the engine itself does with them.
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
  for (const std::string& a : launch.argv) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  const bool has_path = launch.argv[0].find('/') != std::string::npos;
  pid_t pid = 0;
  int rc = has_path ? ::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ)
                    : ::posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return Status::Error("cannot start " + launch.argv[0] + ": " + std::strerror(rc));

  auto state = std::make_unique<ProcessState>();
  state->pid = pid;
  state->pidfd.fd = static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
  state->running = true;
  std::swap(state->stderr_capture.fd, capture.fd);
  process.state_ = std::move(state);
  return Status::OK();
}

std::optional<int> WaitProcess(Process& process, int max_wait_ms) {
  if (!process.running()) return std::nullopt;
  ProcessState& s = *process.state_;
  int status = 0;
  if (s.pidfd.fd >= 0) {
    pollfd p{s.pidfd.fd, POLLIN, 0};
    int rc;
    do {
      rc = ::poll(&p, 1, max_wait_ms);
    } while (rc < 0 && errno == EINTR);
  } else {
    // No pidfd (old kernel): look at the child in short steps instead.
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::milliseconds(max_wait_ms);
    while (Clock::now() < until) {
      if (::waitpid(s.pid, &status, WNOHANG) == s.pid) {
        s.running = false;
        return DecodeStatus(status);
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  pid_t r;
  do {
    r = ::waitpid(s.pid, &status, WNOHANG);
  } while (r < 0 && errno == EINTR);
  if (r != s.pid) return std::nullopt;
  s.running = false;
  return DecodeStatus(status);
}

void KillProcessGroup(Process& process) {
  if (process.running()) process.state_->Kill();
}

std::string StderrTail(const Process& process, size_t max_bytes) {
  if (!process.state_ || process.state_->stderr_capture.fd < 0) return {};
  const int fd = process.state_->stderr_capture.fd;
  struct stat st {};
  if (::fstat(fd, &st) != 0 || st.st_size <= 0) return {};
  const size_t size = static_cast<size_t>(st.st_size);
  const size_t take = size < max_bytes ? size : max_bytes;
  std::string tail(take, '\0');
  const ssize_t got = ::pread(fd, tail.data(), take, static_cast<off_t>(size - take));
  tail.resize(got > 0 ? static_cast<size_t>(got) : 0);
  return tail;
}

bool SetOwnNiceLevel(int nice_level) {
  return ::setpriority(PRIO_PROCESS, 0, nice_level) == 0;
}

}  // namespace pictavo::platform
