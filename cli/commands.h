// Sub-commands of the `pictavo` front end. Each handler takes the words after its own name as
// read against its row of the command table, and returns the process exit code: 0 success,
// 1 failure, 2 usage error (message on stderr, through Invocation::UsageError).
#pragma once

#include <span>

#include "cli/args.h"

namespace pictavo::cli {

int CmdSettings(const Invocation& in);  // settings show | settings write
int CmdName(const Invocation& in);      // result paths of sources
int CmdPages(const Invocation& in);     // page list selection
int CmdTools(const Invocation& in);     // tool folder status

// The table of commands, in the order `pictavo --help` lists them (command_table.cpp).
std::span<const CommandSpec> Commands();

}  // namespace pictavo::cli
