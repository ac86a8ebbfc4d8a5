// Adapters of the tool folder: each turns the engine's command line for a tool (the switches of
// the program the engine was written against) into steps over the programs that Debian has.
//
// One multi-call program, `pictavo_adapter`, holds them all; the tool folder names it under each
// adapted tool's name, and the name it is called by picks the adapter. Planning is separate from
// running, so that the translations are tested without the programs.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace pictavo::utl {

using Args = std::vector<std::string>;

struct Step {
  enum class Kind {
    kRun,       // argv[0] on the search path with argv; env added; stdout optionally to a file
    kRename,    // argv[0] -> argv[1], replacing the target
    kMakeDir,   // argv[0] and its parents
    kFlatten,   // move every file below folder argv[0] up into it (7-Zip "e" semantics)
    kWriteGbr,  // GIMP brush argv[1] from the PAM file argv[0], brush name argv[2]
    kCheckUnpackedSize,  // fail when the 7-Zip listing argv[0] ("-slt") adds up to more than
                         // argv[1] megabytes
  };
  Kind kind = Kind::kRun;
  Args argv;
  std::vector<std::string> env;  // "NAME=value"
  std::string stdout_path;
  std::vector<int> ok_codes = {0};  // exit codes that count as success
};

struct Plan {
  std::vector<Step> steps;
  std::vector<std::string> scratch;  // files and folders removed when the plan ends
  std::string error;                 // not empty: the command line cannot be served
};

struct Context {
  std::string utl_folder;                               // the tool folder, with a trailing "/"
  std::function<bool(const std::string&)> has_program;  // on the search path?
  std::string scratch_folder;    // for adapters whose output is stdout; with a trailing "/"
  uint64_t max_unpacked_mb = 0;  // the most an archive may expand to; 0 = no limit
};

// The sum of the "Size = " lines of a 7-Zip technical listing ("l -slt").
uint64_t UnpackedSizeOfListing(const std::string& listing);

// The adapted tool names, as the tool folder names them ("f300_uni.exe", "sc/sc.exe", ...).
const std::vector<std::string_view>& AdapterNames();

// Plans the work of the adapter called `tool` (its name in the tool folder, or just the file
// name) for the arguments after the program name.
Plan PlanFor(std::string_view tool, const Args& args, const Context& ctx);

// Runs a plan; returns the exit code of the adapter: 0, the first failing program's code, or
// 2 for a plan error (message on stderr).
int Execute(const Plan& plan);

// Exposed for tests.
Args MoveTrailingGsSwitches(const Args& args);
Args MoveImOptionsBeforeOutput(const Args& args);
Args SplitJoinedWebpSwitches(const Args& args);
int JpegRatioForQuality(int quality);  // 0 = lossless

}  // namespace pictavo::utl
