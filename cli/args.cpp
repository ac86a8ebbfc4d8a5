#include "cli/args.h"

#include <algorithm>
#include <cstdio>

namespace pictavo::cli {
namespace {

// The synopsis is wrapped to this width; the option help starts in this column.
constexpr size_t kWidth = 80;
constexpr size_t kHelpColumn = 14;

bool IsHelp(const std::string& word) {
  return word == "--help" || word == "-h";
}

bool WantsHelp(const Args& args) {
  for (const std::string& a : args) {
    if (a == "--") return false;
    if (IsHelp(a)) return true;
  }
  return false;
}

const OptionSpec* FindOption(const CommandSpec& command, const std::string& word,
                             const std::string& verb) {
  for (const OptionSpec& o : command.options)
    if (o.name == word && (o.verb.empty() || o.verb == verb)) return &o;
  return nullptr;
}

// "'show' or 'write'", "'a', 'b' or 'c'".
std::string VerbChoice(std::span<const std::string_view> verbs) {
  std::string out;
  for (size_t i = 0; i < verbs.size(); ++i) {
    if (i > 0) out += i + 1 == verbs.size() ? " or " : ", ";
    out += "'" + std::string(verbs[i]) + "'";
  }
  return out;
}

// The words of a synopsis form; a bracketed group ("[--set Section/Key=VALUE]...") is one word.
std::vector<std::string_view> FormWords(std::string_view form) {
  std::vector<std::string_view> words;
  size_t start = 0;
  int depth = 0;
  for (size_t i = 0; i <= form.size(); ++i) {
    if (i < form.size() && form[i] == '[') ++depth;
    if (i < form.size() && form[i] == ']') --depth;
    if (i == form.size() || (form[i] == ' ' && depth <= 0)) {
      words.push_back(form.substr(start, i - start));
      start = i + 1;
    }
  }
  return words;
}

// One synopsis form wrapped at kWidth; continuation lines start under the first word after the
// command's name.
std::string WrappedForm(const std::string& lead, std::string_view form) {
  std::string out = lead;
  size_t line_size = lead.size();
  bool first = true;
  for (std::string_view word : FormWords(form)) {
    if (!first && line_size + 1 + word.size() > kWidth) {
      out += "\n" + std::string(lead.size(), ' ');
      line_size = lead.size();
    } else if (!first) {
      out += ' ';
      ++line_size;
    }
    out += word;
    line_size += word.size();
    first = false;
  }
  return out + "\n";
}

std::string OptionLines(const OptionSpec& o) {
  std::string label(o.name);
  if (!o.value.empty()) label += " " + std::string(o.value);
  std::string out = label;
  // A label too wide for the column puts its help on the next line.
  if (label.size() + 2 > kHelpColumn)
    out += "\n" + std::string(kHelpColumn, ' ');
  else
    out += std::string(kHelpColumn - label.size(), ' ');
  for (char c : o.help) {
    out += c;
    if (c == '\n') out += std::string(kHelpColumn, ' ');
  }
  return out + "\n";
}

}  // namespace

bool Invocation::Has(std::string_view option) const {
  return std::any_of(options.begin(), options.end(),
                     [&](const auto& given) { return given.first == option; });
}

std::optional<std::string> Invocation::Last(std::string_view option) const {
  for (auto it = options.rbegin(); it != options.rend(); ++it)
    if (it->first == option) return it->second;
  return std::nullopt;
}

Args Invocation::All(std::string_view option) const {
  Args values;
  for (const auto& [name, value] : options)
    if (name == option) values.push_back(value);
  return values;
}

int Invocation::UsageError(const std::string& message) const {
  std::fprintf(stderr, "pictavo %.*s: %s\n\n%s", static_cast<int>(command->name.size()),
               command->name.data(), message.c_str(), UsageText(*command).c_str());
  return 2;
}

ParseResult ParseArgs(const CommandSpec& command, const Args& args) {
  ParseResult r;
  r.invocation.command = &command;
  if (WantsHelp(args)) {
    r.help = true;
    return r;
  }
  size_t i = 0;
  if (!command.verbs.empty()) {
    if (args.empty()) {
      r.error = "missing " + VerbChoice(command.verbs);
      return r;
    }
    if (std::find(command.verbs.begin(), command.verbs.end(), args[0]) == command.verbs.end()) {
      r.error = "unknown action '" + args[0] + "'";
      return r;
    }
    r.invocation.verb = args[i++];
  }
  bool options_ended = false;
  for (; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (!options_ended && a == "--") {
      options_ended = true;
    } else if (options_ended || a.rfind("--", 0) != 0) {
      r.invocation.positional.push_back(a);
    } else if (const OptionSpec* o = FindOption(command, a, r.invocation.verb); o == nullptr) {
      r.error = "unknown option '" + a + "'";
      return r;
    } else if (o->value.empty()) {
      r.invocation.options.emplace_back(o->name, "");
    } else if (i + 1 >= args.size()) {
      r.error = a + " needs " + std::string(o->needs);
      return r;
    } else {
      r.invocation.options.emplace_back(o->name, args[++i]);
    }
  }
  return r;
}

std::string UsageText(const CommandSpec& command) {
  std::string out;
  const std::string program = "pictavo " + std::string(command.name) + " ";
  for (size_t i = 0; i < command.forms.size(); ++i)
    out += WrappedForm((i == 0 ? "usage: " : "       ") + program, command.forms[i]);
  if (command.about.empty() && command.options.empty() && command.epilogue.empty()) return out;
  out += "\n";
  out += command.about;
  for (const OptionSpec& o : command.options) out += OptionLines(o);
  out += command.epilogue;
  return out;
}

std::string CommandListText(std::span<const CommandSpec> commands) {
  std::string out = "usage: pictavo COMMAND [ARGS...]\n\ncommands:\n";
  for (const CommandSpec& c : commands) {
    std::string name(c.name);
    name.resize(std::max<size_t>(name.size(), 10), ' ');
    out += "  " + name + " " + std::string(c.summary) + "\n";
  }
  return out + "\n'pictavo COMMAND --help' describes one command.\n";
}

int RunCommand(const CommandSpec& command, const Args& args) {
  const ParseResult parsed = ParseArgs(command, args);
  if (parsed.help) {
    std::fputs(UsageText(command).c_str(), stdout);
    return 0;
  }
  if (!parsed.error.empty()) return parsed.invocation.UsageError(parsed.error);
  return command.run(parsed.invocation);
}

}  // namespace pictavo::cli
