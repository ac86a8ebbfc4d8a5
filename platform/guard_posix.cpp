// pictavo-guard PARENT_PID PROGRAM [ARG...]: runs PROGRAM as its child, in the guard's own process
// group (the engine starts the guard as a group leader), and ends with the program's exit status
// or signal.
//
// Why: a program started with posix_spawn cannot be told to end with its parent, and a tool's own
// children would not be told even if it could. The guard asks the kernel for a signal when the
// thread that started it ends (PR_SET_PDEATHSIG), and on that signal kills its whole group, so
// neither a tool nor anything the tool started outlives a killed engine. SIGINT, SIGTERM, SIGHUP
// and SIGQUIT sent to the guard are passed on to the program, which decides how to end.
//
// A failed start is reported as posix_spawn reports it: descriptor 3, when open, is the write end
// of a pipe whose reader waits for end of file (the program runs) or the errno of the failure.
// Only async-signal-safe calls follow the fork.
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int kStatusFd = 3;
constexpr int kPassedOn[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT};
volatile sig_atomic_t g_child = 0;

extern "C" void OnParentGone(int) {
  // Every process of the group, the guard included.
  kill(0, SIGKILL);
}

extern "C" void PassOn(int sig) {
  const int saved_errno = errno;
  if (g_child > 0) kill(g_child, sig);
  errno = saved_errno;
}

void Report(bool reports, int err) {
  if (reports) {
    ssize_t n = write(kStatusFd, &err, sizeof err);
    (void)n;
  }
}

// execv along the search path as posix_spawnp does it: a file that is not a program is not
// handed to a command interpreter.
int Exec(char** argv) {
  const char* name = argv[0];
  if (strchr(name, '/')) {
    execv(name, argv);
    return errno;
  }
  const char* path = getenv("PATH");
  if (!path || !*path) path = "/bin:/usr/bin";
  const size_t name_len = strlen(name);
  bool denied = false;
  char candidate[4096];
  for (const char* p = path;;) {
    const char* end = strchr(p, ':');
    const size_t len = end ? static_cast<size_t>(end - p) : strlen(p);
    if (len + name_len + 3 <= sizeof candidate) {
      size_t at = 0;
      if (len == 0) {
        candidate[at++] = '.';  // an empty element is the current folder
      } else {
        memcpy(candidate, p, len);
        at = len;
      }
      candidate[at++] = '/';
      memcpy(candidate + at, name, name_len + 1);
      execv(candidate, argv);
      if (errno == EACCES) denied = true;
    }
    if (!end) break;
    p = end + 1;
  }
  return denied ? EACCES : ENOENT;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 127;
  const pid_t parent = static_cast<pid_t>(strtol(argv[1], nullptr, 10));
  // The group is what a lost parent kills: never the group of whoever started the guard.
  if (getpgrp() != getpid()) setpgid(0, 0);
  const bool reports = fcntl(kStatusFd, F_GETFD) != -1;
  if (reports) fcntl(kStatusFd, F_SETFD, FD_CLOEXEC);

  // The handled signals wait until the program's id is known.
  const int parent_gone = SIGRTMIN;
  sigset_t handled, before;
  sigemptyset(&handled);
  sigaddset(&handled, parent_gone);
  for (int sig : kPassedOn) sigaddset(&handled, sig);
  sigprocmask(SIG_BLOCK, &handled, &before);
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_handler = OnParentGone;
  sigaction(parent_gone, &action, nullptr);
  action.sa_handler = PassOn;
  action.sa_flags = SA_RESTART;
  for (int sig : kPassedOn) sigaction(sig, &action, nullptr);

  prctl(PR_SET_PDEATHSIG, parent_gone);
  if (getppid() != parent) {  // the parent died before the request was made
    Report(reports, ESRCH);
    return 127;
  }

  const pid_t child = fork();
  if (child < 0) {
    Report(reports, errno);
    return 127;
  }
  if (child == 0) {
    // The program gets the signal state the engine asked for the guard.
    struct sigaction defaults {};
    sigemptyset(&defaults.sa_mask);
    defaults.sa_handler = SIG_DFL;
    sigaction(parent_gone, &defaults, nullptr);
    for (int sig : kPassedOn) sigaction(sig, &defaults, nullptr);
    sigprocmask(SIG_SETMASK, &before, nullptr);
    Report(reports, Exec(argv + 2));
    _exit(127);
  }
  g_child = child;
  if (reports) close(kStatusFd);
  sigprocmask(SIG_SETMASK, &before, nullptr);

  int status = 0;
  while (waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return 127;
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (!WIFSIGNALED(status)) return 127;
  // Ends the same way, so that the engine sees the program's signal; the program has dumped its
  // core already where that was asked for.
  const int sig = WTERMSIG(status);
  prctl(PR_SET_PDEATHSIG, 0);
  struct rlimit no_core {};
  setrlimit(RLIMIT_CORE, &no_core);
  struct sigaction defaults {};
  sigemptyset(&defaults.sa_mask);
  defaults.sa_handler = SIG_DFL;
  sigaction(sig, &defaults, nullptr);
  sigset_t only;
  sigemptyset(&only);
  sigaddset(&only, sig);
  sigprocmask(SIG_UNBLOCK, &only, nullptr);
  kill(getpid(), sig);
  return 128 + sig;
}
