#include "engine/tools/temp_names.h"

#include <chrono>
#include <cstdio>
#include <ctime>
#include <random>

#include "platform/clock.h"
#include "platform/fs.h"

namespace pictavo::tools {

namespace {

std::string ClockPart() {
  auto now = std::chrono::system_clock::now();
  std::time_t t = std::chrono::system_clock::to_time_t(now);
  auto ms =
      std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
  const std::tm local = platform::LocalTime(t);
  char buf[16];
  std::snprintf(buf, sizeof buf, "%02d%02d%02d%03d", local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(ms));
  return buf;
}

std::mt19937& Generator() {
  // One generator per thread, seeded from the clock and the system's entropy, so that workers
  // starting in the same millisecond still draw different numbers.
  thread_local std::mt19937 gen([] {
    std::random_device rd;
    std::seed_seq seq{rd(), rd(),
                      static_cast<unsigned>(
                          std::chrono::high_resolution_clock::now().time_since_epoch().count())};
    return std::mt19937(seq);
  }());
  return gen;
}

}  // namespace

std::string NewTempName(const std::string& temp_folder) {
  const std::string folder = platform::IncludeTrailingDelim(temp_folder);
  std::string name;
  for (int attempt = 0; attempt < 1000; ++attempt) {
    std::uniform_int_distribution<int> below99(0, 98), below999(0, 998);
    name = folder + kScratchPrefix + ClockPart() + std::to_string(below99(Generator())) +
           std::to_string(below999(Generator()));
    // The marker beside the name reserves it; the name itself stays free, so a caller may make a
    // folder of it as well as files with any extension.
    const std::string marker = name + "~";
    // Created: reserved. Failed: the folder is missing or not writable, nothing to reserve.
    if (platform::CreateFileExclusive(marker) != platform::ExclusiveCreate::kAlreadyExists)
      return name;
  }
  return name;
}

}  // namespace pictavo::tools
