// How the engine reads its command line: CODE FILE [FILE], where each file's extension
// decides its role. The asymmetries are deliberate: with two arguments only a ".cfg" file is
// recognised; with three, either order works and a later file of the same role wins.
#pragma once

#include <string>

namespace pictavo::engine {

struct JobArguments {
  std::string code = "1";  // job code as given (silent codes are rewritten by the log form)
  std::string cfg_file;    // settings file, empty when none was named
  std::string act_file;    // actions file, empty when none was named
};

JobArguments ParseCommandLine(int argc, const char* const* argv);

}  // namespace pictavo::engine
