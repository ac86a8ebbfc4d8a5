// `pictavo`: the command-line front end. It writes and inspects job files and runs jobs.
#include <cstdio>
#include <string>
#include <string_view>

#include "cli/args.h"
#include "cli/commands.h"

int main(int argc, char** argv) {
  using namespace pictavo::cli;
  if (argc < 2) {
    std::fputs(CommandListText(Commands()).c_str(), stderr);
    return 2;
  }
  std::string_view name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    std::fputs(CommandListText(Commands()).c_str(), stdout);
    return 0;
  }
  for (const CommandSpec& c : Commands())
    if (c.name == name) return RunCommand(c, Args(argv + 2, argv + argc));
  std::fprintf(stderr, "pictavo: unknown command '%s'\n\n", argv[1]);
  std::fputs(CommandListText(Commands()).c_str(), stderr);
  return 2;
}
