// `pictavo settings show|write`: inspect or write a job's settings file.
#include <cstdio>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "settings/mem_ini_file.h"
#include "settings/settings_keys.h"
#include "settings/settings_overrides.h"

namespace pictavo::cli {
namespace {

constexpr const char* kUsage =
    "usage: pictavo settings show [FILE.cfg] [--set Section/Key=VALUE]...\n"
    "       pictavo settings write OUT.cfg [--from IN.cfg] [--mode N] [--set "
    "Section/Key=VALUE]...\n"
    "\n"
    "show   prints one line Section/Key=value for every key of the settings file (as written\n"
    "       in mode 1), after the defaults, FILE.cfg and the --set values are read the way a\n"
    "       job reads them (clamps included). Booleans show as 1/0.\n"
    "write  writes the settings into OUT.cfg (UTF-16LE), keeping any other content OUT.cfg\n"
    "       already holds. The settings are the defaults, then IN.cfg, then the --set values.\n"
    "       --mode 1 adds the front end's own keys, --mode 3 adds Main/Name; default 2.\n"
    "\n"
    "--set Section/Key=VALUE  a value as the settings file would hold it (any case); list\n"
    "       items also need their count, e.g. --set SVG/Count=1 --set SVG/Font1_1=Arial.\n"
    "A settings file that cannot be read gives the defaults and a warning on stderr.\n";

int Usage(const std::string& message) {
  std::fprintf(stderr, "pictavo settings: %s\n\n%s", message.c_str(), kUsage);
  return 2;
}

void Warn(const Status& status) {
  if (!status.ok())
    std::fprintf(stderr, "pictavo settings: warning: %s; using the defaults\n",
                 status.message().c_str());
}

}  // namespace

int CmdSettings(const Args& args) {
  if (WantsHelp(args)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (args.empty()) return Usage("missing 'show' or 'write'");
  const std::string& verb = args[0];
  if (verb != "show" && verb != "write") return Usage("unknown action '" + verb + "'");

  std::vector<std::string> positional;
  std::vector<settings::SettingOverride> overrides;
  std::optional<std::string> from;
  int mode = 2;
  for (size_t i = 1; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool has_value = i + 1 < args.size();
    if (a == "--set") {
      if (!has_value) return Usage("--set needs Section/Key=VALUE");
      if (Status s = settings::AddSettingOverride(args[++i], overrides); !s.ok())
        return Usage(s.message());
    } else if (a == "--from" && verb == "write") {
      if (!has_value) return Usage("--from needs a file");
      from = args[++i];
    } else if (a == "--mode" && verb == "write") {
      if (!has_value) return Usage("--mode needs a number");
      std::optional<int> m = settings::ParseInteger(args[++i]);
      if (!m) return Usage("--mode needs a number, not '" + args[i] + "'");
      mode = *m;
    } else if (a.size() > 1 && a[0] == '-' && a[1] == '-') {
      return Usage("unknown option '" + a + "'");
    } else {
      positional.push_back(a);
    }
  }

  settings::TMainSettings s;
  if (verb == "show") {
    if (positional.size() > 1) return Usage("show takes at most one settings file");
    Warn(
        settings::LoadSettingsForInspection(positional.empty() ? "" : positional[0], overrides, s));
    s.OptionsFromFlags();
    std::string out;
    settings::WalkSettings(
        s, settings::WalkOptions{settings::WalkDirection::kWrite, settings::WalkForm::kFile, 1},
        [&out](const settings::SettingEntry& e) {
          out += e.section + "/" + e.key + "=" + settings::FormatValue(e.field) + "\n";
        });
    std::fputs(out.c_str(), stdout);
    return 0;
  }

  if (positional.size() != 1) return Usage("write needs exactly one output file");
  Warn(settings::LoadSettingsForInspection(from.value_or(""), overrides, s));
  if (Status w = s.write_ini_settings(positional[0], mode); !w.ok()) {
    std::fprintf(stderr, "pictavo settings: cannot write %s: %s\n", positional[0].c_str(),
                 w.message().c_str());
    return 1;
  }
  return 0;
}

}  // namespace pictavo::cli
