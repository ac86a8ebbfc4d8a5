// `pictavo_adapter`: the tool folder names this program under each adapted tool's name; the name
// it was started by (its path relative to the tool folder) picks the adapter.
// The adapters are Linux-only by nature (they translate switches to Debian programs), so they call
// POSIX directly instead of going through platform/.
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "engine/tools/runner.h"  // the name of the limit the engine hands its tools
#include "utl/adapters/plan.h"

namespace {

bool OnSearchPath(const std::string& program) {
  if (program.find('/') != std::string::npos) return ::access(program.c_str(), X_OK) == 0;
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  size_t start = 0;
  while (start <= dirs.size()) {
    size_t end = dirs.find(':', start);
    std::string dir =
        dirs.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!dir.empty() && ::access((dir + "/" + program).c_str(), X_OK) == 0) return true;
    if (end == std::string::npos) break;
    start = end + 1;
  }
  return false;
}

}  // namespace

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::error_code ec;
  // The tool folder is where this program really lives; the name called tells the adapter.
  const fs::path self = fs::read_symlink("/proc/self/exe", ec);
  const fs::path utl = self.parent_path();
  const fs::path called = fs::absolute(argv[0], ec).lexically_normal();
  std::string tool = called.lexically_relative(fs::weakly_canonical(utl, ec)).generic_string();
  if (tool.empty() || tool.compare(0, 2, "..") == 0) tool = called.filename().string();

  pictavo::utl::Context ctx;
  ctx.utl_folder = utl.string() + "/";
  ctx.has_program = OnSearchPath;
  ctx.scratch_folder = fs::temp_directory_path(ec).string() + "/";
  if (const char* limit = std::getenv(pictavo::tools::kMaxUnpackedVariable))
    ctx.max_unpacked_mb = std::strtoull(limit, nullptr, 10);
  pictavo::utl::Args args(argv + 1, argv + argc);
  return pictavo::utl::Execute(pictavo::utl::PlanFor(tool, args, ctx));
}
