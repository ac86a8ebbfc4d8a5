// A tool that misbehaves on purpose, linked into a copy of the tool folder under real tool names.
// What it does comes from PICTAVO_FAULT (the engine's environment reaches its tools); the output
// file is the last argument, as in the engine's "TOOL ... IN OUT" command lines.
//   exit      exits with 3, writing nothing
//   segv      dies of SIGSEGV
//   hang      sleeps for an hour; with PICTAVO_FAULT_PIDS set, starts a child that sleeps too and
//             writes "PID CHILD" into that file first (to see that both end with the engine)
//   empty     writes a 0-byte output
//   truncated writes a PNG cut off after its header
//   garbage   writes 64 KiB of noise
//   flood     prints 8 MiB on stdout and on stderr, writing nothing
//   complain  explains on stderr what it could not do, as real tools do, and exits with 2
//   dot       writes a valid picture of 1 x 1 pixel (what some tools leave when they fail)
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  const char* env = std::getenv("PICTAVO_FAULT");
  const std::string mode = env ? env : "";
  const std::string out = argc > 1 ? argv[argc - 1] : "";
  if (mode == "exit") return 3;
  if (mode == "segv") {
    raise(SIGSEGV);
    return 0;
  }
  if (mode == "hang") {
    if (const char* pids = std::getenv("PICTAVO_FAULT_PIDS")) {
      const pid_t child = fork();
      if (child == 0) {
        sleep(3600);
        _exit(0);
      }
      const std::string text = std::to_string(getpid()) + " " + std::to_string(child) + "\n";
      std::ofstream(std::string(pids) + ".part") << text;
      std::rename((std::string(pids) + ".part").c_str(), pids);
    }
    sleep(3600);
    return 0;
  }
  if (mode == "empty") {
    std::ofstream(out, std::ios::binary);
    return 0;
  }
  if (mode == "truncated") {
    static const unsigned char kHead[] = {0x89, 'P', 'N', 'G', 0x0D, 0x0A, 0x1A, 0x0A, 0, 0, 0, 13,
                                          'I',  'H', 'D', 'R', 0,    0,    1,    0,    0, 0, 1};
    std::ofstream(out, std::ios::binary).write(reinterpret_cast<const char*>(kHead), sizeof kHead);
    return 0;
  }
  if (mode == "garbage") {
    std::string noise(65536, '\0');
    unsigned x = 12345;
    for (char& c : noise) c = static_cast<char>((x = x * 1103515245u + 12345u) >> 16);
    std::ofstream(out, std::ios::binary) << noise;
    return 0;
  }
  if (mode == "complain") {
    std::fprintf(stderr, "reading the header\nERROR 7: no image data in this file\nbye\n");
    return 2;
  }
  if (mode == "dot") {
    std::ofstream(out, std::ios::binary) << std::string("P6\n1 1\n255\n\0\0\0", 14);
    return 0;
  }
  if (mode == "flood") {
    const std::string line(1023, 'x');
    for (int i = 0; i < 8192; ++i) {
      std::fprintf(stdout, "%s\n", line.c_str());
      std::fprintf(stderr, "%s\n", line.c_str());
    }
    return 0;
  }
  return 100;
}
