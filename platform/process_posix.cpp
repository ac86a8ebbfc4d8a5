// Processes on POSIX: posix_spawn of the guard program (platform/guard_posix.cpp) into a new
// process group, pidfd for waiting, SIGKILL to the group for ending; stop signals; process
// identity from /proc.
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
#include <fstream>
#include <sstream>
#include <thread>
#include <utility>

#include "platform/fs.h"
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

// The guard program beside the executable, or "" when it is not there.
const std::string& GuardProgram() {
  static const std::string guard = [] {
    const std::string path = ExecutableFolder() + "pictavo-guard";
    return ::access(path.c_str(), X_OK) == 0 ? path : std::string();
  }();
  return guard;
}

// The descriptor on which the guard reports a failed start.
constexpr int kGuardStatusFd = 3;

void ReapNow(pid_t pid) {
  int status;
  while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
}

// Stop signals: the flag to set, how many arrived, the last one, and what later ones do.
std::atomic<std::atomic<bool>*> g_stop_flag{nullptr};
std::atomic<int> g_stop_requests{0};
std::atomic<int> g_last_stop_signal{0};
std::atomic<bool> g_later_ends_process{true};
constexpr int kStopSignals[] = {SIGINT, SIGTERM, SIGHUP};

extern "C" void OnStopSignal(int sig) {
  const int saved_errno = errno;
  g_last_stop_signal.store(sig);
  if (g_stop_requests.fetch_add(1) == 0) {
    if (std::atomic<bool>* flag = g_stop_flag.load()) flag->store(true);
  } else if (g_later_ends_process.load()) {
    // The default action once the handler returns: the signal is blocked while it runs.
    struct sigaction defaults {};
    sigemptyset(&defaults.sa_mask);
    defaults.sa_handler = SIG_DFL;
    ::sigaction(sig, &defaults, nullptr);
    ::raise(sig);
  }
  errno = saved_errno;
}

// The start time of a process, from field 22 of /proc/PID/stat; 0 when it cannot be read.
uint64_t StartTimeOf(uint64_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(in, line)) return 0;
  const size_t paren = line.rfind(')');
  if (paren == std::string::npos) return 0;
  std::istringstream fields(line.substr(paren + 1));
  std::string field;
  for (int i = 3; i <= 22 && fields >> field; ++i)
    if (i == 22) return std::strtoull(field.c_str(), nullptr, 10);
  return 0;
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
    ReapNow(pid);
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

  // The guard's report of a failed start: nothing before end of file means the program runs.
  const std::string& guard = GuardProgram();
  Fd report_read, report_write;
  if (!guard.empty()) {
    int fds[2];
    if (::pipe2(fds, O_CLOEXEC) != 0)
      return Status::Error("cannot start " + launch.argv[0] + ": " + std::strerror(errno));
    report_read.fd = fds[0];
    report_write.fd = fds[1];
  }

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, in.fd, 0);
  posix_spawn_file_actions_adddup2(&actions, out.fd, 1);
  posix_spawn_file_actions_adddup2(&actions, launch.stderr_to_stdout ? out.fd : err.fd, 2);
  if (!guard.empty()) {
    posix_spawn_file_actions_adddup2(&actions, report_write.fd, kGuardStatusFd);
    posix_spawn_file_actions_addclosefrom_np(&actions, kGuardStatusFd + 1);
  } else {
    posix_spawn_file_actions_addclosefrom_np(&actions, 3);
  }
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

  std::vector<std::string> words;
  if (!guard.empty()) words = {guard, std::to_string(::getpid())};
  words.insert(words.end(), launch.argv.begin(), launch.argv.end());
  std::vector<char*> argv;
  for (const std::string& a : words) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);

  const bool has_path = words[0].find('/') != std::string::npos;
  pid_t pid = 0;
  int rc = has_path ? ::posix_spawn(&pid, argv[0], &actions, &attr, argv.data(), environ)
                    : ::posix_spawnp(&pid, argv[0], &actions, &attr, argv.data(), environ);
  posix_spawnattr_destroy(&attr);
  posix_spawn_file_actions_destroy(&actions);
  if (rc != 0) return Status::Error("cannot start " + launch.argv[0] + ": " + std::strerror(rc));
  if (!guard.empty()) {
    ::close(std::exchange(report_write.fd, -1));
    int err = 0;
    ssize_t got;
    do {
      got = ::read(report_read.fd, &err, sizeof err);
    } while (got < 0 && errno == EINTR);
    if (got == static_cast<ssize_t>(sizeof err)) {
      ReapNow(pid);
      return Status::Error("cannot start " + launch.argv[0] + ": " + std::strerror(err));
    }
  }

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

void PassStopOn(Process& process) {
  if (!process.running()) return;
  const int sig = g_last_stop_signal.load();
  ::kill(process.state_->pid, sig != 0 ? sig : SIGTERM);
}

void CatchStopSignals(std::atomic<bool>& flag, LaterStops later) {
  g_stop_flag.store(&flag);
  g_later_ends_process.store(later == LaterStops::kEndProcess);
  g_stop_requests.store(0);
  g_last_stop_signal.store(0);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnStopSignal;
  // Interrupted reads and waits go on: the job notices the flag at its next poll.
  action.sa_flags = SA_RESTART;
  for (int sig : kStopSignals) ::sigaction(sig, &action, nullptr);
}

void ReleaseStopSignals() {
  for (int sig : kStopSignals) ::signal(sig, SIG_DFL);
  g_stop_flag.store(nullptr);
  g_stop_requests.store(0);
  g_last_stop_signal.store(0);
}

int StopRequestsCaught() {
  return g_stop_requests.load();
}

ProcessTag OwnProcessTag() {
  static const ProcessTag own{static_cast<uint64_t>(::getpid()),
                              StartTimeOf(static_cast<uint64_t>(::getpid()))};
  return own;
}

bool ProcessMayRun(const ProcessTag& tag) {
  if (tag.pid == 0 || tag.pid > static_cast<uint64_t>(INT32_MAX)) return false;
  if (::kill(static_cast<pid_t>(tag.pid), 0) != 0 && errno == ESRCH) return false;
  const uint64_t start = StartTimeOf(tag.pid);
  // A zombie still has its entry; an id given to a later process has another start time.
  return start == 0 || tag.start == 0 || start == tag.start;
}

bool ProbeInChildProcess(const std::function<bool()>& probe, int max_wait_ms) {
  const pid_t pid = ::fork();
  if (pid < 0) return false;
  if (pid == 0) {
    const int null = ::open("/dev/null", O_WRONLY);
    if (null >= 0) {
      ::dup2(null, 1);
      ::dup2(null, 2);
    }
    struct rlimit no_core {};
    ::setrlimit(RLIMIT_CORE, &no_core);
    ::_exit(probe() ? 0 : 1);
  }
  using Clock = std::chrono::steady_clock;
  const auto until = Clock::now() + std::chrono::milliseconds(max_wait_ms);
  int status = 0;
  for (;;) {
    const pid_t r = ::waitpid(pid, &status, WNOHANG);
    if (r == pid) return WIFEXITED(status) && WEXITSTATUS(status) == 0;
    if (r < 0 && errno != EINTR) return false;
    if (Clock::now() >= until) break;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ::kill(pid, SIGKILL);
  ReapNow(pid);
  return false;
}

bool SetOwnNiceLevel(int nice_level) {
  return ::setpriority(PRIO_PROCESS, 0, nice_level) == 0;
}

}  // namespace pictavo::platform
