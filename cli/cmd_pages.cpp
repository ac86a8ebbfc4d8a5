// `pictavo pages`: which pages a page list selects.
#include <cstdio>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "settings/main_settings.h"

namespace pictavo::cli {
namespace {

constexpr const char* kUsage =
    "usage: pictavo pages LIST --count N\n"
    "\n"
    "Prints the page numbers from 1 to N that the page list selects, separated by blanks.\n"
    "A list holds items separated by ',': a page (3), a range (2-5), from a page on (4-)\n"
    "or up to a page (-3). The scan stops at an empty item, so '1,,5' selects page 1 only.\n";

int Usage(const std::string& message) {
  std::fprintf(stderr, "pictavo pages: %s\n\n%s", message.c_str(), kUsage);
  return 2;
}

}  // namespace

int CmdPages(const Args& args) {
  if (WantsHelp(args)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::optional<std::string> list;
  std::optional<int> count;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "--count") {
      if (i + 1 >= args.size()) return Usage("--count needs a number");
      count = settings::ParseInteger(args[++i]);
      if (!count || *count < 0) return Usage("--count needs a number of at least 0");
    } else if (args[i].rfind("--", 0) == 0) {
      // Lists such as "-3" start with one dash; options start with two.
      return Usage("unknown option '" + args[i] + "'");
    } else if (list) {
      return Usage("give one page list (quote a list that holds blanks)");
    } else {
      list = args[i];
    }
  }
  if (!list) return Usage("no page list given");
  if (!count) return Usage("--count N is required");

  std::string out;
  for (int page = 1; page <= *count; ++page) {
    if (!settings::TMainSettings::in_list(page, *list)) continue;
    if (!out.empty()) out += ' ';
    out += std::to_string(page);
  }
  std::printf("%s\n", out.c_str());
  return 0;
}

}  // namespace pictavo::cli
