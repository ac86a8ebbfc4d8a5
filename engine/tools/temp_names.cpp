#include "engine/tools/temp_names.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <random>

#include "platform/clock.h"
#include "platform/fs.h"
#include "platform/process.h"

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

std::string OwnScratchFolder(const std::string& temp_folder, const char* kind) {
  static std::atomic<unsigned> sequence{0};
  const platform::ProcessTag own = platform::OwnProcessTag();
  return platform::IncludeTrailingDelim(temp_folder) + kind + "-" + std::to_string(own.pid) + "-" +
         std::to_string(own.start) + "-" + std::to_string(sequence.fetch_add(1)) +
         platform::kPathDelim;
}

int RemoveOrphanedScratch(const std::string& temp_folder) {
  namespace fs = std::filesystem;
  int removed = 0;
  std::error_code ec;
  for (auto it = fs::directory_iterator(temp_folder, ec); !ec && it != fs::directory_iterator();
       it.increment(ec)) {
    const std::string name = it->path().filename().string();
    platform::ProcessTag owner;
    unsigned long long pid = 0, start = 0;
    unsigned n = 0;
    char kind[16] = {}, rest[2] = {};
    if (std::sscanf(name.c_str(), "%15[a-z]-%llu-%llu-%u%1s", kind, &pid, &start, &n, rest) != 4)
      continue;
    bool ours = false;
    for (const char* k : kScratchOwnerKinds) ours = ours || std::strcmp(kind, k) == 0;
    // The name must be exactly what OwnScratchFolder makes, so that no folder of the user's
    // that merely looks alike is taken.
    const std::string again = std::string(kind) + "-" + std::to_string(pid) + "-" +
                              std::to_string(start) + "-" + std::to_string(n);
    if (!ours || again != name || !it->is_directory(ec)) continue;
    owner.pid = pid;
    owner.start = start;
    if (platform::ProcessMayRun(owner)) continue;
    std::error_code gone;
    if (fs::remove_all(it->path(), gone) > 0 && !gone) ++removed;
  }
  return removed;
}

}  // namespace pictavo::tools
