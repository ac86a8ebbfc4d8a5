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

#include "engine/tools/job_context.h"
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

// What the command line asks for.
struct ConvertRequest {
  std::vector<std::string> inputs;  // absolute paths
  std::vector<settings::SettingOverride> overrides;
  std::string to, output, actions, config;
  bool gui = false, dry_run = false, check = false;
};

// Reads the words into `r`; 0 when they make a job, else the status of the usage error.
int ReadRequest(const Invocation& in, ConvertRequest& r) {
  for (const std::string& v : in.All("--set")) {
    if (IsValidLimitOverride(v) == false)
      return in.UsageError("'" + v + "' is not a whole number of 0 or more");
    if (Status s = settings::AddSettingOverride(v, r.overrides); !s.ok()) {
      return in.UsageError(s.message());
    }
  }
  r.to = in.Last("--to").value_or("");
  r.output = in.Last("--output").value_or("");
  r.actions = in.Last("--actions").value_or("");
  r.config = in.Last("--config").value_or("");
  r.gui = in.Has("--gui");
  r.dry_run = in.Has("--dry-run");
  r.check = in.Has("--check");
  for (const std::string& a : in.positional) r.inputs.push_back(Absolute(a));
  if (r.inputs.empty()) return in.UsageError("no input files or folders");
  // A missing input fails in the job with its reason and the others run; only a command line
  // that names nothing at all is taken for a mistake.
  size_t missing = 0;
  for (const std::string& input : r.inputs) {
    if (platform::FileExists(input) || platform::DirectoryExists(input)) continue;
    ++missing;
    if (!r.dry_run)
      std::fprintf(stderr, "pictavo convert: warning: no such file or folder: %s\n", input.c_str());
  }
  if (missing == r.inputs.size())
    return in.UsageError(r.inputs.size() == 1 ? "no such file or folder: " + r.inputs.front()
                                              : "none of the inputs exists");
  if (r.to.empty() && r.config.empty())
    return in.UsageError("--to EXT is needed (or a --config with Dest_ext)");
  if (!r.actions.empty() && !platform::FileExists(r.actions))
    return in.UsageError("no such actions file: " + r.actions);
  return 0;
}

// The job files, in a scratch folder of the temp folder.
struct JobFiles {
  std::string folder, cfg, lst, act, log, report;
};

// Writes the list, the settings (limits included) and the actions of the job.
Status WriteJobFiles(const ConvertRequest& r, settings::TMainSettings& s, const JobFiles& job) {
  const std::string& cfg = job.cfg;
  std::string list;
  for (const std::string& in : r.inputs) list += in + "\r\n";
  s.main.use_file_list = job.lst;
  Status written = platform::WriteFileAtomic(job.lst, list);
  if (written.ok()) written = s.write_ini_settings(cfg, 1);  // 1: with "Main"/"Language"
  if (written.ok() && !r.actions.empty()) {
    std::error_code ec;
    fs::copy_file(r.actions, job.act, fs::copy_options::overwrite_existing, ec);
    if (ec) written = Status::Error("cannot copy " + r.actions + ": " + ec.message());
  }
  return written;
}

// Runs pictavo-engine on the job files, its log copied to stdout as it grows; the exit status
// of the command.
int RunEngine(const ConvertRequest& r, const JobFiles& job, const std::string& engine) {
  platform::SetEnvironmentVariable("PICTAVO_UI", r.gui ? "gui" : "console");
  platform::SetEnvironmentVariable(engine::kReportFileVariable, job.report);
  std::string command =
      tools::Quoted(engine) + (r.check ? " 21 " : " 11 ") + tools::Quoted(job.cfg);
  if (!r.actions.empty()) command += " " + tools::Quoted(job.act);
  command += " > " + tools::Quoted(job.log) + " 2>&1";

  Tail().file = job.log;
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
  PrintFailures(job.report);
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

}  // namespace

int CmdConvert(const Invocation& in) {
  ConvertRequest r;
  if (int status = ReadRequest(in, r); status != 0) return status;

  settings::TMainSettings s;
  if (Status st = settings::LoadSettingsForInspection(r.config, r.overrides, s); !st.ok())
    return in.UsageError("cannot read " + r.config + ": " + st.message());
  if (!r.to.empty()) {
    if (r.to.front() == '.') r.to.erase(0, 1);
    s.main.dest_ext = platform::AsciiUpper(r.to);
  }
  if (!r.output.empty()) {
    s.main.dest_path = Absolute(r.output);
    s.main.same_as_source = false;
  }
  if (r.dry_run) return DryRun(r.inputs, s);

  // The job files live in a scratch folder of the temp folder; the engine deletes them when its
  // console view closes, and the folder goes afterwards. Named after this process, it is removed
  // by the next job should this process be killed.
  JobFiles job;
  job.folder = tools::OwnScratchFolder(s.main.temp_folder, "convert");
  std::error_code ec;
  fs::create_directories(job.folder, ec);
  if (!platform::DirectoryExists(job.folder)) {
    std::fprintf(stderr, "pictavo convert: cannot create %s\n", job.folder.c_str());
    return 1;
  }
  job.cfg = job.folder + "job.cfg";
  job.lst = job.folder + "job.lst";
  job.act = job.folder + "job.act";
  job.log = job.folder + "engine.log";
  job.report = job.folder + "report.tsv";
  if (Status written = WriteJobFiles(r, s, job); !written.ok()) {
    std::fprintf(stderr, "pictavo convert: %s\n", written.message().c_str());
    fs::remove_all(job.folder, ec);
    return 1;
  }

  const std::string engine = platform::ExecutableFolder() + "pictavo-engine";
  if (!platform::FileExists(engine)) {
    std::fprintf(stderr, "pictavo convert: %s is missing (build the pictavo-engine target)\n",
                 engine.c_str());
    fs::remove_all(job.folder, ec);
    return 1;
  }
  const int status = RunEngine(r, job, engine);
  fs::remove_all(job.folder, ec);
  return status;
}

}  // namespace pictavo::cli
