#include "cli/cmd_actions.h"

#include <cstdio>
#include <sstream>
#include <string>

#include "edit/action_table.h"
#include "platform/text_encoding.h"

namespace pictavo::cli {
namespace {

// Whether the parameters that the routine will read as integers look like integers; only a real
// run can tell for every action, so this checks the fixed-count rows' all-integer forms.
bool NumbersLookValid(const editing::Script_com& com, std::string_view key) {
  if (key == "text_watermark" || key == "text_watermark2" || key == "watermark" ||
      key == "watermark2" || key == "watermark3" || key == "static_background" ||
      key == "replace_background" || key == "gamma")
    return true;
  for (int i = 0; i < com.count && i < editing::kMaxParams; ++i) {
    try {
      (void)editing::StrToIntStrict(com.params[i]);
    } catch (const editing::BadParameter&) {
      return false;
    }
  }
  return true;
}

}  // namespace

int CmdActions(const Invocation& in) {
  if (in.positional.size() != 1) return in.UsageError("give one actions file");
  const std::string& file = in.positional[0];
  const auto text = platform::ReadTextFile(file);
  if (!text) {
    std::fprintf(stderr, "pictavo actions: cannot read %s\n", file.c_str());
    return 1;
  }
  std::istringstream lines(*text);
  std::string line;
  int number = 0;
  bool any_fails = false;
  while (std::getline(lines, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    ++number;
    const editing::ParsedLine p = editing::ParseLine(line);
    std::printf("%3d  %s\n", number, line.c_str());
    const editing::ActionRow* row = editing::MatchRow(editing::ActionTable(), p);
    if (p.key_lower == "null" && p.com.name == "null") {
      std::printf("     comment: key null, logged as failed\n");
      any_fails = true;
      continue;
    }
    std::printf("     key %s, %d parameter(s)%s\n", p.com.name.c_str(), p.com.count,
                p.com.count < 0 ? " (malformed parentheses)" : "");
    for (int i = 0; i < p.com.count && i < editing::kMaxParams; ++i)
      std::printf("       p%d = \"%s\"\n", i + 1, p.com.params[i].c_str());
    if (p.com.count > editing::kMaxParams)
      std::printf("       (only the first %d parameters are kept)\n", editing::kMaxParams);
    const std::string display(editing::DisplayNameOf(p.key_lower));
    if (!row) {
      std::printf("     row: none (key reads \"%s\"), logged as failed\n", p.key_lower.c_str());
      any_fails = true;
      continue;
    }
    const bool accepted = editing::AcceptsCount(*row, p.com.count);
    const bool numbers = NumbersLookValid(p.com, row->key);
    std::printf("     row: %.*s, display \"%s\", %s\n", static_cast<int>(row->key.size()),
                row->key.data(), display.c_str(),
                !accepted  ? "parameter count not accepted: fails"
                : !numbers ? "a parameter is not an integer: fails"
                           : "accepted");
    if (!accepted || !numbers) any_fails = true;
  }
  return in.verb == "check" && any_fails ? 1 : 0;
}

}  // namespace pictavo::cli
