// `pictavo name`: the result path (and thumbnail paths) that a job gives each source file.
#include <cstdio>
#include <filesystem>
#include <optional>
#include <string>

#include "cli/commands.h"
#include "pipeline/job_plan.h"
#include "pipeline/naming_probe.h"
#include "settings/mem_ini_file.h"
#include "settings/settings_overrides.h"

namespace pictavo::cli {

int CmdName(const Invocation& in) {
  std::vector<settings::SettingOverride> overrides;
  for (const std::string& value : in.All("--set"))
    if (Status s = settings::AddSettingOverride(value, overrides); !s.ok())
      return in.UsageError(s.message());
  int index = 0;
  int page = 1;
  for (const auto& [option, value] : in.options) {
    if (option != "--index" && option != "--page") continue;
    const int least = option == "--page" ? 1 : 0;
    std::optional<int> n = settings::ParseInteger(value);
    if (!n || *n < least)
      return in.UsageError(std::string(option) + " needs a number of at least " +
                           std::to_string(least));
    (option == "--index" ? index : page) = *n;
  }
  const std::vector<std::string>& sources = in.positional;
  if (sources.empty()) return in.UsageError("no source file given");

  settings::TMainSettings s;
  if (Status loaded =
          settings::LoadSettingsForInspection(in.Last("--config").value_or(""), overrides, s);
      !loaded.ok())
    std::fprintf(stderr, "pictavo name: warning: %s; using the defaults\n",
                 loaded.message().c_str());

  std::vector<std::string> absolute_sources;
  for (const std::string& source : sources) {
    std::error_code ec;
    std::filesystem::path absolute = std::filesystem::absolute(source, ec);
    absolute_sources.push_back(ec ? source : absolute.lexically_normal().string());
  }
  // The names a job of these sources would give: the job's plan, which keeps them apart.
  const pipeline::JobPlan plan(s, absolute_sources, index);
  for (size_t k = 0; k < sources.size(); ++k) {
    settings::DestRequest request;
    request.source_path = absolute_sources[k];
    request.index = index + static_cast<int>(k);
    request.page = page - 1;
    request.probe = &pipeline::NamingProbe();
    settings::DestNames names = s.create_dest_filename(request);
    const pipeline::PlannedFile& planned = plan.files()[k];
    if (page == 1) names.result = planned.pages.empty() ? planned.names.result : planned.pages[0];
    std::printf("%s\n", names.result.c_str());
    if (in.Has("--thumbnails"))
      for (size_t t = 0; t < names.thumbnails.size(); ++t)
        std::printf("  thumbnail %zu: %s\n", t, names.thumbnails[t].c_str());
  }
  return 0;
}

}  // namespace pictavo::cli
