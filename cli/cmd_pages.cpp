// `pictavo pages`: which pages a page list selects.
#include <cstdio>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "settings/main_settings.h"

namespace pictavo::cli {

int CmdPages(const Invocation& in) {
  // Lists such as "-3" start with one dash, so the parser leaves them positional.
  if (in.positional.size() > 1)
    return in.UsageError("give one page list (quote a list that holds blanks)");
  std::optional<int> count;
  for (const std::string& text : in.All("--count")) {
    count = settings::ParseInteger(text);
    if (!count || *count < 0) return in.UsageError("--count needs a number of at least 0");
  }
  if (in.positional.empty()) return in.UsageError("no page list given");
  if (!count) return in.UsageError("--count N is required");
  const std::string& list = in.positional.front();

  std::string out;
  for (int page = 1; page <= *count; ++page) {
    if (!settings::TMainSettings::in_list(page, list)) continue;
    if (!out.empty()) out += ' ';
    out += std::to_string(page);
  }
  std::printf("%s\n", out.c_str());
  return 0;
}

}  // namespace pictavo::cli
