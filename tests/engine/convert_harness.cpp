// `pictavo convert` on its own, for the tests: the front end's main() with only this command.
// Built beside pictavo-engine, where the command looks for the engine.
#include <string>

#include "cli/cmd_convert.h"

namespace pictavo::cli {
bool WantsHelp(const Args& args) {
  for (const std::string& a : args)
    if (a == "--help" || a == "-h") return true;
  return false;
}
}  // namespace pictavo::cli

int main(int argc, char** argv) {
  return pictavo::cli::CmdConvert(pictavo::cli::Args(argv + 1, argv + argc));
}
