// `pictavo actions show|check FILE.act`: how the engine reads each line of an actions file.
#pragma once

#include "cli/commands.h"

namespace pictavo::cli {

// show: prints every line with its number, key, parameter count and parameters, the matched
// dispatcher row and display name, or why it is a comment or malformed. check: the same, and
// exits 1 when any line would fail (no row accepts it or a number is malformed).
int CmdActions(const Invocation& in);

}  // namespace pictavo::cli
