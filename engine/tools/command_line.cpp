#include "engine/tools/command_line.h"

namespace pictavo::tools {

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

}  // namespace

std::vector<std::string> SplitCommandLine(std::string_view s) {
  std::vector<std::string> argv;
  size_t i = 0;
  while (i < s.size() && IsBlank(s[i])) ++i;
  if (i == s.size()) return argv;

  // The program name: no backslash rules, a leading quote runs to the next quote.
  std::string word;
  if (s[i] == '"') {
    ++i;
    while (i < s.size() && s[i] != '"') word += s[i++];
    if (i < s.size()) ++i;
  } else {
    while (i < s.size() && !IsBlank(s[i])) word += s[i++];
  }
  argv.push_back(word);

  while (i < s.size() && IsBlank(s[i])) ++i;
  word.clear();
  bool started = false;
  int quotes = 0;  // odd while inside quotes; follows CommandLineToArgvW's own counting
  size_t backslashes = 0;
  while (i < s.size()) {
    char c = s[i];
    if (IsBlank(c) && quotes == 0) {
      argv.push_back(word);
      word.clear();
      started = false;
      backslashes = 0;
      while (i < s.size() && IsBlank(s[i])) ++i;
      continue;
    }
    started = true;
    if (c == '\\') {
      word += c;
      ++backslashes;
      ++i;
      continue;
    }
    if (c == '"') {
      if (backslashes % 2 == 0) {
        word.resize(word.size() - backslashes / 2);
        ++quotes;
      } else {
        word.resize(word.size() - backslashes / 2 - 1);
        word += '"';
      }
      ++i;
      backslashes = 0;
      // A run of quotes: every third one is a literal quote.
      while (i < s.size() && s[i] == '"') {
        if (++quotes == 3) {
          word += '"';
          quotes = 0;
        }
        ++i;
      }
      if (quotes == 2) quotes = 0;
      continue;
    }
    word += c;
    backslashes = 0;
    ++i;
  }
  if (started) argv.push_back(word);
  return argv;
}

namespace {

bool IsOperator(char c) {
  return c == '&' || c == '|' || c == '<' || c == '>' || c == '\n' || c == '\r';
}

// Reads a redirection target by the interpreter's rules: quotes toggle and are removed, the word
// ends at a blank or an operator outside quotes.
std::string ReadTarget(std::string_view s, size_t& i) {
  while (i < s.size() && IsBlank(s[i])) ++i;
  std::string word;
  bool quoted = false;
  while (i < s.size()) {
    char c = s[i];
    if (c == '"') {
      quoted = !quoted;
      ++i;
      continue;
    }
    if (!quoted && (IsBlank(c) || IsOperator(c))) break;
    if (c == '\n' || c == '\r') break;
    word += c;
    ++i;
  }
  return word;
}

}  // namespace

BatchParse ParseBatch(std::string_view s) {
  BatchParse result;
  BatchCommand current;
  std::string text;  // the current command's words, quotes kept for SplitCommandLine
  bool next_only_if_ok = false;

  auto finish = [&](bool following_only_if_ok) {
    current.argv = SplitCommandLine(text);
    bool has_redirect =
        !current.stdin_path.empty() || !current.stdout_path.empty() || !current.stderr_path.empty();
    if (!current.argv.empty() && !current.argv[0].empty()) {
      current.only_if_previous_ok = next_only_if_ok;
      result.commands.push_back(std::move(current));
    } else if (has_redirect && result.error.empty()) {
      result.error = "redirection without a command";
    }
    current = BatchCommand();
    text.clear();
    next_only_if_ok = following_only_if_ok;
  };

  bool quoted = false;
  size_t i = 0;
  while (i < s.size() && result.error.empty()) {
    char c = s[i];
    if (c == '"') {
      quoted = !quoted;
      text += c;
      ++i;
      continue;
    }
    if (c == '\n' || c == '\r') {  // a line break ends a command even inside quotes, as in a .bat
      quoted = false;
      finish(false);
      ++i;
      continue;
    }
    if (quoted || !IsOperator(c)) {
      text += c;
      ++i;
      continue;
    }
    if (c == '|') {
      result.error = "pipes are not supported in the batch form";
      break;
    }
    if (c == '&') {
      bool twice = i + 1 < s.size() && s[i + 1] == '&';
      i += twice ? 2 : 1;
      finish(twice);
      continue;
    }
    if (c == '<') {
      ++i;
      current.stdin_path = ReadTarget(s, i);
      if (current.stdin_path.empty()) result.error = "'<' without a file name";
      continue;
    }
    // '>' with an optional handle number written just before it ("2>", "1>").
    int handle = 1;
    if (!text.empty() && (text.back() == '1' || text.back() == '2') &&
        (text.size() == 1 || IsBlank(text[text.size() - 2]))) {
      handle = text.back() - '0';
      text.pop_back();
    }
    ++i;
    bool append = i < s.size() && s[i] == '>';
    if (append) ++i;
    if (handle == 2 && i + 1 < s.size() && s[i] == '&' && s[i + 1] == '1') {
      current.stderr_to_stdout = true;
      i += 2;
      continue;
    }
    std::string target = ReadTarget(s, i);
    if (target.empty()) {
      result.error = "'>' without a file name";
      break;
    }
    if (handle == 2) {
      current.stderr_path = target;
    } else {
      current.stdout_path = target;
      current.stdout_append = append;
    }
  }
  if (result.error.empty()) finish(false);
  if (!result.error.empty()) result.commands.clear();
  return result;
}

}  // namespace pictavo::tools
