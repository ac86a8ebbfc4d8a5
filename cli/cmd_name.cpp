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
namespace {

constexpr const char* kUsage =
    "usage: pictavo name SOURCE... [--config FILE.cfg] [--set Section/Key=VALUE]...\n"
    "                    [--index N] [--page P] [--thumbnails]\n"
    "\n"
    "Prints the result path of each source file as a job would name it: the first source\n"
    "gets running number N (default 0), the next N+1, and so on. Sources are taken as\n"
    "absolute paths (relative ones against the current folder); only a source's header is\n"
    "read, when the template asks for its orientation, a TIFF tag or its EXIF date.\n"
    "--config   the job's settings file (default: the built-in defaults)\n"
    "--set      a settings value, as in 'pictavo settings'\n"
    "--page P   the page number for <page:#> (1 by default)\n"
    "--thumbnails  also prints the five thumbnail paths of each source, indented\n";

int Usage(const std::string& message) {
  std::fprintf(stderr, "pictavo name: %s\n\n%s", message.c_str(), kUsage);
  return 2;
}

}  // namespace

int CmdName(const Args& args) {
  if (WantsHelp(args)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::vector<std::string> sources;
  std::vector<settings::SettingOverride> overrides;
  std::string config;
  int index = 0;
  int page = 1;
  bool thumbnails = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool has_value = i + 1 < args.size();
    if (a == "--set") {
      if (!has_value) return Usage("--set needs Section/Key=VALUE");
      if (Status s = settings::AddSettingOverride(args[++i], overrides); !s.ok())
        return Usage(s.message());
    } else if (a == "--config") {
      if (!has_value) return Usage("--config needs a file");
      config = args[++i];
    } else if (a == "--index" || a == "--page") {
      if (!has_value) return Usage(a + " needs a number");
      std::optional<int> n = settings::ParseInteger(args[++i]);
      if (!n || *n < (a == "--page" ? 1 : 0))
        return Usage(a + " needs a number of at least " + (a == "--page" ? "1" : "0"));
      (a == "--index" ? index : page) = *n;
    } else if (a == "--thumbnails") {
      thumbnails = true;
    } else if (a.size() > 1 && a[0] == '-' && a[1] == '-') {
      return Usage("unknown option '" + a + "'");
    } else {
      sources.push_back(a);
    }
  }
  if (sources.empty()) return Usage("no source file given");

  settings::TMainSettings s;
  if (Status loaded = settings::LoadSettingsForInspection(config, overrides, s); !loaded.ok())
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
    if (thumbnails)
      for (size_t t = 0; t < names.thumbnails.size(); ++t)
        std::printf("  thumbnail %zu: %s\n", t, names.thumbnails[t].c_str());
  }
  return 0;
}

}  // namespace pictavo::cli
