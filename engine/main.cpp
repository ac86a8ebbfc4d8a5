// pictavo-engine CODE FILE [FILE]: runs one conversion job described by its job files.
//
// The job executor, pipeline and log window are being built; until they land this entry point
// reads the command line as the front end passes it and says plainly that it cannot run the job.
#include <cstdio>
#include <string>

#include "engine/command_line.h"

int main(int argc, char** argv) {
  pictavo::engine::JobArguments job = pictavo::engine::ParseCommandLine(argc, argv);
  std::fprintf(stderr,
               "pictavo-engine: job code %s, settings '%s', actions '%s'\n"
               "pictavo-engine: this build cannot run conversion jobs yet (no job executor); "
               "use 'pictavo settings show' to inspect the job\n",
               job.code.c_str(), job.cfg_file.c_str(), job.act_file.c_str());
  return 1;
}
