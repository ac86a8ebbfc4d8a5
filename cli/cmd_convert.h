// `pictavo convert`: runs one conversion job from command-line options.
#pragma once

#include "cli/commands.h"

namespace pictavo::cli {

// pictavo convert INPUT... --to EXT [--output DIR] [--actions FILE.act] [--config FILE.cfg]
//                 [--set Section/Key=VALUE]... [--gui] [--dry-run] [--check]
// Exit status: 0 every file processed, 1 a file failed (or results collide in --dry-run),
// 2 usage error.
int CmdConvert(const Invocation& in);

}  // namespace pictavo::cli
