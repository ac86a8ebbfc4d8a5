// A stand-in tool for the runner tests.
//   fake_tool args FILE ARG...      writes each ARG to FILE, each followed by a NUL byte
//   fake_tool sleep SECONDS PIDFILE starts a child that sleeps too, writes "PID CHILD" to PIDFILE,
//                                   then sleeps
//   fake_tool echo TEXT             prints TEXT on stdout
//   fake_tool cwd FILE              writes the working folder to FILE
//   fake_tool exit N                exits with N
//   fake_tool complain N LINE...    prints each LINE on stderr, then exits with N
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  if (argc < 3) return 100;
  std::string mode = argv[1];
  if (mode == "args") {
    std::ofstream out(argv[2], std::ios::binary);
    for (int i = 3; i < argc; ++i) out << argv[i] << '\0';
    return 0;
  }
  if (mode == "sleep" && argc >= 4) {
    unsigned seconds = static_cast<unsigned>(std::atoi(argv[2]));
    pid_t child = fork();
    if (child == 0) {
      sleep(seconds);
      _exit(0);
    }
    {
      std::ofstream out(argv[3]);
      out << getpid() << ' ' << child << '\n';
    }
    sleep(seconds);
    return 0;
  }
  if (mode == "echo") {
    std::printf("%s\n", argv[2]);
    return 0;
  }
  if (mode == "cwd") {
    char buf[4096];
    std::ofstream out(argv[2]);
    out << (getcwd(buf, sizeof buf) ? buf : "");
    return 0;
  }
  if (mode == "exit") return std::atoi(argv[2]);
  if (mode == "complain") {
    for (int i = 3; i < argc; ++i) std::fprintf(stderr, "%s\n", argv[i]);
    return std::atoi(argv[2]);
  }
  return 100;
}
