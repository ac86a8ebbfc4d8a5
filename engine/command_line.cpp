#include "engine/command_line.h"

#include <filesystem>

#include "platform/text_encoding.h"

namespace pictavo::engine {
namespace {

std::string LowerExtension(const std::string& path) {
  return platform::AsciiLower(std::filesystem::path(path).extension().string());
}

}  // namespace

JobArguments ParseCommandLine(int argc, const char* const* argv) {
  JobArguments job;
  int count = argc - 1;  // arguments after the program name
  if (count == 2) {
    job.code = argv[1];
    if (LowerExtension(argv[2]) == ".cfg") job.cfg_file = argv[2];
  } else if (count == 3) {
    job.code = argv[1];
    for (int i = 2; i <= 3; ++i) {
      std::string ext = LowerExtension(argv[i]);
      if (ext == ".cfg") job.cfg_file = argv[i];
      if (ext == ".act") job.act_file = argv[i];
    }
  }
  return job;
}

}  // namespace pictavo::engine
