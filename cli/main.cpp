// `pictavo`: the command-line front end. It writes and inspects job files and runs jobs.
#include <cstdio>
#include <string>
#include <string_view>

#include "cli/cmd_actions.h"
#include "cli/cmd_convert.h"
#include "cli/commands.h"

namespace {

using pictavo::cli::Args;

struct Command {
  std::string_view name;
  int (*run)(const Args&);
  std::string_view summary;
};

constexpr Command kCommands[] = {
    {"convert", pictavo::cli::CmdConvert,
     "convert files and folders: write the job files and run the engine"},
    {"settings", pictavo::cli::CmdSettings, "show or write a job's settings file (.cfg)"},
    {"name", pictavo::cli::CmdName, "show the result path of each source file"},
    {"pages", pictavo::cli::CmdPages, "show which pages a page list selects"},
    {"actions", pictavo::cli::CmdActions,
     "show how an actions file (.act) is read; check exits 1 when a line would fail"},
    {"tools", pictavo::cli::CmdTools, "show the tool folder and the formats it makes usable"},
};

void PrintUsage(std::FILE* out) {
  std::fprintf(out, "usage: pictavo COMMAND [ARGS...]\n\ncommands:\n");
  for (const Command& c : kCommands)
    std::fprintf(out, "  %-10.*s %.*s\n", static_cast<int>(c.name.size()), c.name.data(),
                 static_cast<int>(c.summary.size()), c.summary.data());
  std::fprintf(out, "\n'pictavo COMMAND --help' describes one command.\n");
}

}  // namespace

namespace pictavo::cli {

bool WantsHelp(const Args& args) {
  for (const std::string& a : args)
    if (a == "--help" || a == "-h") return true;
  return false;
}

}  // namespace pictavo::cli

int main(int argc, char** argv) {
  if (argc < 2) {
    PrintUsage(stderr);
    return 2;
  }
  std::string_view name = argv[1];
  if (name == "--help" || name == "-h" || name == "help") {
    PrintUsage(stdout);
    return 0;
  }
  Args args(argv + 2, argv + argc);
  for (const Command& c : kCommands)
    if (c.name == name) return c.run(args);
  std::fprintf(stderr, "pictavo: unknown command '%s'\n\n", argv[1]);
  PrintUsage(stderr);
  return 2;
}
