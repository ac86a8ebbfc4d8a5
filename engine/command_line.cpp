#include "engine/command_line.h"

#include "platform/bytes.h"
#include "platform/text_encoding.h"

namespace pictavo::engine {

JobArguments ParseCommandLine(int argc, const char* const* argv) {
  JobArguments job;
  int count = argc - 1;  // arguments after the program name
  if (count == 2) {
    job.code = argv[1];
    if (platform::LowerExtension(argv[2]) == ".cfg") job.cfg_file = argv[2];
  } else if (count == 3) {
    job.code = argv[1];
    for (int i = 2; i <= 3; ++i) {
      std::string ext = platform::LowerExtension(argv[i]);
      if (ext == ".cfg") job.cfg_file = argv[i];
      if (ext == ".act") job.act_file = argv[i];
    }
  }
  return job;
}

}  // namespace pictavo::engine
