// `pictavo convert`: writes the three job files of one job (settings, list, actions) into a
// scratch folder and runs pictavo-engine on them with the console view, printing its log.
#include "cli/cmd_convert.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_paths.h"
#include "engine/zub_process.h"
#include "pipeline/job_plan.h"
#include "platform/console.h"
#include "platform/fs.h"
#include "platform/process.h"
#include "platform/text_encoding.h"
#include "settings/mem_ini_file.h"
#include "settings/settings_overrides.h"

namespace pictavo::cli {
namespace {

namespace fs = std::filesystem;

constexpr const char* kUsage =
    "usage: pictavo convert INPUT... --to EXT [--output DIR] [--actions FILE.act]\n"
    "                       [--config FILE.cfg] [--set Section/Key=VALUE]... [--gui]\n"
    "                       [--dry-run] [--check]\n"
    "\n"
    "Converts files and folders (a folder gives its files that \"Main\"/\"File_mask\" accepts,\n"
    "its sub-folders too with --set Main/Read_subfolders=1) to the format EXT, and prints the\n"
    "engine's log. Sources are never changed.\n"
    "--to EXT      target format (jpg, png, tif, pdf, svg, ...); default: the config's Dest_ext\n"
    "--output DIR  where results go (default: the config's Dest_path, else the pictures folder)\n"
    "--actions     an editing-actions file (.act) applied to every picture\n"
    "--config      a settings file (.cfg) to start from (default: the built-in defaults)\n"
    "--set         one setting, e.g. --set JPG/Quality=90 (see 'pictavo settings show')\n"
    "--gui         show the log window (needs a build with Qt 6 and a display)\n"
    "--dry-run     print each source with its result path, flag collisions, write nothing\n"
    "--check       only check that every file can be read (job kind 2)\n"
    "Exit status: 0 all files processed, 1 a file failed, 2 usage error.\n";

int Usage(const std::string& message) {
  std::fprintf(stderr, "pictavo convert: %s\n\n%s", message.c_str(), kUsage);
  return 2;
}

std::string Absolute(const std::string& path) {
  std::error_code ec;
  fs::path p = fs::absolute(path, ec);
  return ec ? path : p.lexically_normal().string();
}

// The engine's list of failed and skipped files, to standard error: "failed: FILE: REASON".
void PrintFailures(const std::string& report) {
  std::ifstream in(report, std::ios::binary);
  std::string line;
  while (std::getline(in, line)) {
    const size_t a = line.find('\t');
    const size_t b = a == std::string::npos ? a : line.find('\t', a + 1);
    if (b == std::string::npos) continue;
    std::fprintf(stderr, "pictavo convert: %s: %s: %s\n", line.substr(0, a).c_str(),
                 line.substr(a + 1, b - a - 1).c_str(), line.substr(b + 1).c_str());
  }
}

// The engine's output, copied to our stdout while the engine runs. The runner calls the pump
// with no argument, so its state is this one process-wide record (one job per process).
struct LogTail {
  std::string file;
  size_t shown = 0;
};
LogTail& Tail() {
  static LogTail tail;
  return tail;
}

void ShowNewOutput() {
  LogTail& t = Tail();
  if (t.file.empty()) return;
  std::ifstream in(t.file, std::ios::binary);
  in.seekg(static_cast<std::streamoff>(t.shown));
  std::string chunk((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  if (chunk.empty()) return;
  t.shown += chunk.size();
  std::fwrite(chunk.data(), 1, chunk.size(), stdout);
  std::fflush(stdout);
}

int DryRun(const std::vector<std::string>& inputs, const settings::TMainSettings& s) {
  std::vector<std::string> files;
  for (const std::string& in : inputs) {
    if (platform::DirectoryExists(in))
      engine::Dir_files(in, s.main.file_mask, s.main.read_subfolders, files);
    else
      files.push_back(in);
  }
  // The same plan the engine makes: what is printed here is what the run writes.
  const pipeline::JobPlan plan(s, files);
  for (const pipeline::PlannedFile& f : plan.files()) {
    const std::vector<std::string> results =
        f.pages.empty() ? std::vector<std::string>{f.names.result} : f.pages;
    for (const std::string& result : results) {
      std::string note;
      if (platform::EqualsNoCase(Absolute(result), Absolute(f.source)))
        note = "  (is the source: kept under a numbered name)";
      else if (!f.taken_by.empty() && result == results.front())
        note = "  (the name " + fs::path(f.wanted).filename().string() + " was taken by " +
               f.taken_by + " in this job)";
      std::printf("%s -> %s%s\n", f.source.c_str(), result.c_str(), note.c_str());
    }
  }
  std::printf("%zu file(s), %d result(s) renamed; nothing was written\n", files.size(),
              plan.Renamed());
  return 0;
}

// A "--set Limits/KEY=N" for one of the job's limits: nullopt for any other key, false when N is
// not a whole number of 0 or more (the settings reader would keep the default for it).
std::optional<bool> IsValidLimitOverride(const std::string& text) {
  const std::optional<settings::SettingOverride> split = settings::SplitSettingOverride(text);
  if (!split || !platform::EqualsNoCase(split->section, tools::kLimitsSection)) return std::nullopt;
  for (const char* known : tools::kLimitKeys) {
    if (!platform::EqualsNoCase(split->key, known)) continue;
    const std::optional<int> n = settings::ParseInteger(split->value);
    return n && *n >= 0;
  }
  return std::nullopt;
}

}  // namespace

int CmdConvert(const Args& args) {
  if (WantsHelp(args)) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  std::vector<std::string> inputs;
  std::vector<settings::SettingOverride> overrides;
  std::string to, output, actions, config;
  bool gui = false, dry_run = false, check = false;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    const bool has_value = i + 1 < args.size();
    if (a == "--to" || a == "--output" || a == "--actions" || a == "--config" || a == "--set") {
      if (!has_value) return Usage(a + " needs a value");
      const std::string& v = args[++i];
      if (a == "--to") to = v;
      if (a == "--output") output = v;
      if (a == "--actions") actions = v;
      if (a == "--config") config = v;
      if (a == "--set") {
        if (IsValidLimitOverride(v) == false)
          return Usage("'" + v + "' is not a whole number of 0 or more");
        if (Status s = settings::AddSettingOverride(v, overrides); !s.ok()) {
          return Usage(s.message());
        }
      }
    } else if (a == "--gui") {
      gui = true;
    } else if (a == "--dry-run") {
      dry_run = true;
    } else if (a == "--check") {
      check = true;
    } else if (a.rfind("--", 0) == 0) {
      return Usage("unknown option " + a);
    } else {
      inputs.push_back(Absolute(a));
    }
  }
  if (inputs.empty()) return Usage("no input files or folders");
  // A missing input fails in the job with its reason and the others run; only a command line
  // that names nothing at all is taken for a mistake.
  size_t missing = 0;
  for (const std::string& in : inputs) {
    if (platform::FileExists(in) || platform::DirectoryExists(in)) continue;
    ++missing;
    if (!dry_run)
      std::fprintf(stderr, "pictavo convert: warning: no such file or folder: %s\n", in.c_str());
  }
  if (missing == inputs.size())
    return Usage(inputs.size() == 1 ? "no such file or folder: " + inputs.front()
                                    : "none of the inputs exists");
  if (to.empty() && config.empty())
    return Usage("--to EXT is needed (or a --config with Dest_ext)");
  if (!actions.empty() && !platform::FileExists(actions))
    return Usage("no such actions file: " + actions);

  settings::TMainSettings s;
  if (Status st = settings::LoadSettingsForInspection(config, overrides, s); !st.ok())
    return Usage("cannot read " + config + ": " + st.message());
  if (!to.empty()) {
    if (to.front() == '.') to.erase(0, 1);
    s.main.dest_ext = platform::AsciiUpper(to);
  }
  if (!output.empty()) {
    s.main.dest_path = Absolute(output);
    s.main.same_as_source = false;
  }
  if (dry_run) return DryRun(inputs, s);

  // The job files live in a scratch folder of the temp folder; the engine deletes them when its
  // console view closes, and the folder goes afterwards. Named after this process, it is removed
  // by the next job should this process be killed.
  const std::string job_folder = tools::OwnScratchFolder(s.main.temp_folder, "convert");
  std::error_code ec;
  fs::create_directories(job_folder, ec);
  if (!platform::DirectoryExists(job_folder)) {
    std::fprintf(stderr, "pictavo convert: cannot create %s\n", job_folder.c_str());
    return 1;
  }
  const std::string cfg = job_folder + "job.cfg", lst = job_folder + "job.lst",
                    act = job_folder + "job.act", log = job_folder + "engine.log";
  std::string list;
  for (const std::string& in : inputs) list += in + "\r\n";
  s.main.use_file_list = lst;
  Status written = platform::WriteFileAtomic(lst, list);
  if (written.ok()) written = s.write_ini_settings(cfg, 1);  // 1: with "Main"/"Language"
  if (written.ok() && !actions.empty()) {
    fs::copy_file(actions, act, fs::copy_options::overwrite_existing, ec);
    if (ec) written = Status::Error("cannot copy " + actions + ": " + ec.message());
  }
  if (!written.ok()) {
    std::fprintf(stderr, "pictavo convert: %s\n", written.message().c_str());
    fs::remove_all(job_folder, ec);
    return 1;
  }

  const std::string engine = platform::ExecutableFolder() + "pictavo-engine";
  if (!platform::FileExists(engine)) {
    std::fprintf(stderr, "pictavo convert: %s is missing (build the pictavo-engine target)\n",
                 engine.c_str());
    fs::remove_all(job_folder, ec);
    return 1;
  }
  platform::SetEnvironmentVariable("PICTAVO_UI", gui ? "gui" : "console");
  const std::string report = job_folder + "report.tsv";
  platform::SetEnvironmentVariable(engine::kReportFileVariable, report);
  std::string command = tools::Quoted(engine) + (check ? " 21 " : " 11 ") + tools::Quoted(cfg);
  if (!actions.empty()) command += " " + tools::Quoted(act);
  command += " > " + tools::Quoted(log) + " 2>&1";

  Tail().file = log;
  Tail().shown = 0;
  tools::SetEventPump(ShowNewOutput);
  // Ctrl-C (which reaches this process, not the engine in a process group of its own), `kill`
  // and a closed terminal are passed on to the engine, which stops its job as its Stop button
  // does; a second one ends it at once.
  platform::CatchStopSignals(tools::StopFlag(), platform::LaterStops::kCount);
  // The engine is the whole job: nothing waits on its files once it has ended.
  const int rc = tools::RunBatchNoPause(command);
  platform::ReleaseStopSignals();
  tools::SetEventPump(nullptr);
  ShowNewOutput();
  Tail().file.clear();
  PrintFailures(report);
  fs::remove_all(job_folder, ec);
  if (tools::StopFlag().load()) {
    std::fprintf(stderr,
                 "pictavo convert: stopped; finished results are complete, the rest "
                 "were not written\n");
    return 1;
  }
  if (rc == tools::kNotStarted) {
    std::fprintf(stderr, "pictavo convert: could not start %s\n", engine.c_str());
    return 1;
  }
  return rc == 0 ? 0 : 1;
}

}  // namespace pictavo::cli
