// One argument parser and one usage layout for the `pictavo` commands. A command is a row of
// data (name, synopsis, options with their help, handler); the words after its name are read
// against that row the same way for every command, and its usage is printed from the row.
//
// The words: "--help" or "-h" anywhere before a "--" asks for the usage. A word that starts with
// "--" is an option of the row; an option with a value takes the next word, whatever it is. A
// lone "--" ends the options: every word after it is positional. Any other word is positional
// (page lists such as "-3" and file names start with one dash).
#pragma once

#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace pictavo::cli {

using Args = std::vector<std::string>;

struct OptionSpec {
  std::string_view name;   // with its dashes: "--to"
  std::string_view value;  // the placeholder of its value in the usage ("EXT"); empty: a flag
  std::string_view needs;  // what "--to needs ..." names when the value is missing
  std::string_view help;   // the usage text; each '\n' starts a continuation line
  std::string_view verb;   // the only verb that takes it; empty: every verb
};

struct Invocation;

struct CommandSpec {
  std::string_view name;                    // "convert"
  std::string_view summary;                 // its line in `pictavo --help`
  std::span<const std::string_view> forms;  // synopsis forms, each after "pictavo NAME "
  std::string_view about;                   // text between the synopsis and the options
  std::span<const OptionSpec> options;
  std::string_view epilogue;                // text after the options
  std::span<const std::string_view> verbs;  // one of these comes first; empty: no verbs
  int (*run)(const Invocation&);            // the exit status: 0, 1, or 2 for a usage error
};

// The words of one command line, read against its command's row.
struct Invocation {
  const CommandSpec* command = nullptr;
  std::string verb;  // empty when the command has no verbs
  Args positional;
  std::vector<std::pair<std::string_view, std::string>> options;  // in order; flags have ""

  bool Has(std::string_view option) const;
  // The value given last; a repeated option's earlier values are overridden.
  std::optional<std::string> Last(std::string_view option) const;
  // Every value, in the order given (for options such as --set that add up).
  Args All(std::string_view option) const;
  // Prints "pictavo NAME: MESSAGE", a blank line and the usage on stderr; returns 2.
  int UsageError(const std::string& message) const;
};

struct ParseResult {
  Invocation invocation;
  bool help = false;  // "--help" or "-h" was given: nothing else counts
  std::string error;  // not empty: the words do not fit the row
};

ParseResult ParseArgs(const CommandSpec& command, const Args& args);

// The usage of one command: synopsis, about text, the options with their help, the epilogue.
std::string UsageText(const CommandSpec& command);

// `pictavo --help`: every command with its summary.
std::string CommandListText(std::span<const CommandSpec> commands);

// Reads the words and runs the command's handler; the usage on stdout for --help (status 0), a
// usage error on stderr for words that do not fit (status 2).
int RunCommand(const CommandSpec& command, const Args& args);

}  // namespace pictavo::cli
