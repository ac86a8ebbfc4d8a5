#include "engine/tools/core_share.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace pictavo::tools {
namespace {

std::atomic<int> g_files_in_progress{0};

}  // namespace

BusyWithFile::BusyWithFile() {
  ++g_files_in_progress;
}

BusyWithFile::~BusyWithFile() {
  --g_files_in_progress;
}

int ThreadsForOneFile() {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  return std::max(1, cores / std::max(1, g_files_in_progress.load()));
}

}  // namespace pictavo::tools
