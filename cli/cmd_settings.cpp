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

void Warn(const Status& status) {
  if (!status.ok())
    std::fprintf(stderr, "pictavo settings: warning: %s; using the defaults\n",
                 status.message().c_str());
}

int Show(const Invocation& in, const std::vector<settings::SettingOverride>& overrides) {
  if (in.positional.size() > 1) return in.UsageError("show takes at most one settings file");
  settings::TMainSettings s;
  Warn(settings::LoadSettingsForInspection(in.positional.empty() ? "" : in.positional[0], overrides,
                                           s));
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

}  // namespace

int CmdSettings(const Invocation& in) {
  std::vector<settings::SettingOverride> overrides;
  int mode = 2;
  for (const auto& [option, value] : in.options) {
    if (option == "--set") {
      if (Status s = settings::AddSettingOverride(value, overrides); !s.ok())
        return in.UsageError(s.message());
    } else if (option == "--mode") {
      std::optional<int> m = settings::ParseInteger(value);
      if (!m) return in.UsageError("--mode needs a number, not '" + value + "'");
      mode = *m;
    }
  }
  if (in.verb == "show") return Show(in, overrides);

  if (in.positional.size() != 1) return in.UsageError("write needs exactly one output file");
  settings::TMainSettings s;
  Warn(settings::LoadSettingsForInspection(in.Last("--from").value_or(""), overrides, s));
  if (Status w = s.write_ini_settings(in.positional[0], mode); !w.ok()) {
    std::fprintf(stderr, "pictavo settings: cannot write %s: %s\n", in.positional[0].c_str(),
                 w.message().c_str());
    return 1;
  }
  return 0;
}

}  // namespace pictavo::cli
