// Watching programs that tests start: whether a process has ended, and the text a file holds.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "platform/fs.h"

namespace pictavo::testing {

// A process that has ended is gone or, until its new parent reaps it, a zombie.
inline bool ProcessEnded(pid_t pid) {
  std::ifstream stat("/proc/" + std::to_string(pid) + "/stat");
  std::string line;
  if (!std::getline(stat, line)) return true;
  size_t paren = line.rfind(')');
  return paren != std::string::npos && paren + 2 < line.size() &&
         (line[paren + 2] == 'Z' || line[paren + 2] == 'X');
}

// True when the process ends within about a second.
inline bool EndsSoon(pid_t pid) {
  for (int i = 0; i < 100 && !ProcessEnded(pid); ++i)
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  return ProcessEnded(pid);
}

// The whole file, or "" when it cannot be read.
inline std::string ReadText(const std::string& path) {
  return platform::ReadFileBytes(path).value_or("");
}

}  // namespace pictavo::testing
