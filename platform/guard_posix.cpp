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
// The guard has no signal handlers: it keeps the signals it cares about blocked and takes them
// one at a time with sigwaitinfo, so nothing runs asynchronously and no wait is left hanging by a
// handler that a runtime (a sanitizer's) defers.
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

// Never runs (SIGCHLD stays blocked); set so that SIGCHLD is not discarded as ignored.
extern "C" void OnChild(int) {}

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

// Ends the guard as the program ended, so that the engine sees the program's exit code or
// signal; the program has dumped its core already where that was asked for.
int EndAs(int status) {
  if (WIFEXITED(status)) return WEXITSTATUS(status);
  if (!WIFSIGNALED(status)) return 127;
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

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return 127;
  const pid_t parent = static_cast<pid_t>(strtol(argv[1], nullptr, 10));
  // The group is what a lost parent kills: never the group of whoever started the guard.
  if (getpgrp() != getpid()) setpgid(0, 0);
  const bool reports = fcntl(kStatusFd, F_GETFD) != -1;
  if (reports) fcntl(kStatusFd, F_SETFD, FD_CLOEXEC);

  // Blocked from here on: they wait in the queue until the loop below takes them.
  const int parent_gone = SIGRTMIN;
  sigset_t handled, before;
  sigemptyset(&handled);
  sigaddset(&handled, parent_gone);
  sigaddset(&handled, SIGCHLD);
  for (int sig : kPassedOn) sigaddset(&handled, sig);
  sigprocmask(SIG_BLOCK, &handled, &before);
  struct sigaction on_child {};
  sigemptyset(&on_child.sa_mask);
  on_child.sa_handler = OnChild;
  sigaction(SIGCHLD, &on_child, nullptr);

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
    // The program gets the signal state the engine asked for the guard (exec resets the
    // SIGCHLD handler).
    sigprocmask(SIG_SETMASK, &before, nullptr);
    Report(reports, Exec(argv + 2));
    _exit(127);
  }
  if (reports) close(kStatusFd);

  for (;;) {
    siginfo_t info;
    const int sig = sigwaitinfo(&handled, &info);
    if (sig < 0) {
      if (errno == EINTR) continue;
      return 127;
    }
    if (sig == SIGCHLD) {
      int status = 0;
      pid_t ended;
      do {
        ended = waitpid(child, &status, WNOHANG);
      } while (ended < 0 && errno == EINTR);
      if (ended == child) return EndAs(status);
      if (ended < 0) return 127;
      continue;  // stopped or continued
    }
    if (sig == parent_gone) {
      // Every process of the group, the guard included.
      kill(0, SIGKILL);
      return 128 + SIGKILL;
    }
    kill(child, sig);
  }
}
