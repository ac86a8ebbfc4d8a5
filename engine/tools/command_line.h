// Splitting of the engine's Windows-style command lines.
//
// Every tool command line is one string built exactly as for Windows: the tool's path and every
// path argument in double quotes, switches bare. It is never handed to a shell. `SplitCommandLine`
// turns it into argv with the rules of CommandLineToArgvW; `ParseBatch` additionally understands
// the few command-interpreter operators the engine's batch-form command lines use.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace pictavo::tools {

// argv by the CommandLineToArgvW rules:
// - argv[0] is the text up to the first blank or tab, or, when it begins with a double quote, the
//   text up to the next double quote; backslashes are not special in it.
// - Later words are separated by blanks and tabs outside double quotes. 2n backslashes before a
//   double quote give n backslashes and the quote toggles quoting; 2n+1 give n backslashes and a
//   literal quote; other backslashes are literal. Inside quotes, "" gives a literal quote.
//   Quotes in the middle of a word group without splitting it: -o"a b" is the word -oa b.
// Nothing is expanded: $, `, %, *, ; and | are ordinary characters.
std::vector<std::string> SplitCommandLine(std::string_view command_line);

// One command of a batch-form command line, with its redirections.
struct BatchCommand {
  std::vector<std::string> argv;
  std::string stdin_path;   // "< file"; empty = no redirection
  std::string stdout_path;  // "> file" or ">> file"
  bool stdout_append = false;
  std::string stderr_path;           // "2> file"
  bool stderr_to_stdout = false;     // "2>&1"
  bool only_if_previous_ok = false;  // joined to the previous command by "&&"
};

struct BatchParse {
  std::vector<BatchCommand> commands;
  std::string error;  // not empty when the line uses something the batch form does not support
};

// Splits a command line the way the command interpreter would before starting each program:
// outside double quotes (each quote toggles, as in the interpreter), line breaks and "&" separate
// commands, "&&" runs the next one only after success, and ">", ">>", "<", "2>", "2>&1" redirect.
// Each command's remaining text is then split by `SplitCommandLine`. Pipes ("|") and "||" are
// reported as errors; "%" and "^" are kept literally, so a file name can never become code.
BatchParse ParseBatch(std::string_view command_line);

}  // namespace pictavo::tools
