// Sub-commands of the `pictavo` front end. Each takes the words after its own name and
// returns the process exit code: 0 success, 1 failure, 2 usage error (message on stderr).
#pragma once

#include <string>
#include <vector>

namespace pictavo::cli {

using Args = std::vector<std::string>;

int CmdSettings(const Args& args);  // settings show | settings write
int CmdName(const Args& args);      // result paths of sources
int CmdPages(const Args& args);     // page list selection
int CmdTools(const Args& args);     // tool folder status

// True when args hold "--help" or "-h".
bool WantsHelp(const Args& args);

}  // namespace pictavo::cli
