#include "engine/zub_process.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <thread>

#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_paths.h"
#include "pipeline/job_plan.h"
#include "pipeline/p_thread.h"
#include "pipeline/routing.h"
#include "platform/bytes.h"
#include "platform/console.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::engine {
namespace {

namespace fs = std::filesystem;
using platform::AsciiLower;
using settings::Msg;

constexpr char kUnknownConversion[] = "Error! Unknown type of conversion.";
constexpr char kNoTempFolder[] = "Error! Unable to create the temp folder: ";
constexpr char kWarning[] = "Warning: ";
constexpr char kIccName[] = "AdobeRGB1998.icc";
constexpr std::string_view kArchiveList = ";zip;7z;gz;arj;rar;tar;";

// The list file: one entry per line, any of the engine's text encodings. `why`: the reason
// when it cannot be read or is refused (a folder, a FIFO, over platform::kMaxListFileBytes).
std::vector<std::string> ReadListFile(const std::string& path, std::string& why) {
  std::vector<std::string> lines;
  std::optional<std::string> text = platform::ReadTextFile(path, &why, platform::kMaxListFileBytes);
  if (!text) return lines;
  size_t start = 0;
  while (start <= text->size()) {
    size_t end = text->find('\n', start);
    if (end == std::string::npos) end = text->size();
    std::string line = text->substr(start, end - start);
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.pop_back();
    if (!line.empty()) lines.push_back(line);
    start = end + 1;
  }
  return lines;
}

// The destination folders of the plan that cannot be made or written to, each with the reason
// its files fail: found once, before any file is read, instead of once per file after it was
// converted.
std::map<std::string, std::string> UnwritableFolders(const pipeline::JobPlan& plan) {
  std::map<std::string, std::string> refused;
  std::set<std::string> checked;
  for (size_t i = 0; i < plan.files().size(); ++i) {
    const std::string folder =
        fs::path(plan.FirstResult(static_cast<int>(i))).parent_path().string();
    if (folder.empty() || !checked.insert(folder).second) continue;
    std::error_code ec;
    fs::create_directories(folder, ec);
    std::string why;
    if (!platform::DirectoryExists(folder)) {
      why = ec ? ec.message() : "a file of that name is in the way";
    } else {
      const std::string probe = platform::IncludeTrailingDelim(folder) + ".pictavo-write-test-" +
                                std::to_string(std::random_device{}());
      if (Status st = platform::WriteFileAtomic(probe, ""); !st.ok()) why = st.message();
      fs::remove(probe, ec);
    }
    if (!why.empty())
      refused[folder] = "the destination folder " + folder + " cannot be written: " + why;
  }
  return refused;
}

}  // namespace

void TZubProcess::Log(const std::string& text) {
  if (log) log(text);
}

void TZubProcess::Pump() {
  if (process_messages) process_messages();
}

std::string TZubProcess::ExpandContainer(const std::string& file) {
  const std::string name = AsciiLower(fs::path(file).filename().string());
  std::string ext = platform::LowerExtension(file);
  const std::string tag = ";" + (ext.empty() ? std::string() : ext.substr(1)) + ";";
  const bool winmail = name == "winmail.dat";
  if (!winmail && !pipeline::InList(tag, kArchiveList)) return {};
  const std::string out = ExtractedFolder(file);
  std::error_code ec;
  fs::create_directories(out, ec);
  std::string command;
  if (winmail) {
    command = tools::Quoted(tools::ToolPath("wmopener.exe")) + " " + tools::Quoted(file) + " " +
              tools::Quoted(out);
  } else {
    command = tools::Quoted(tools::ToolPath("7za.bin")) + " e -y " + tools::Quoted(file) + " -o" +
              tools::Quoted(out);
  }
  (void)tools::RunAndWait(job_, command, tools::kHidden);
  extracted_folders_.push_back(out);
  return out;
}

std::vector<std::string> TZubProcess::BuildFileList(const settings::TMainSettings& s) {
  std::vector<std::string> files;
  std::string why;
  const std::vector<std::string> entries = ReadListFile(s.main.use_file_list, why);
  std::error_code ec;
  if (!why.empty() && fs::exists(s.main.use_file_list, ec))
    Log(std::string(kWarning) + "cannot read " + s.main.use_file_list + ": " + why +
        "; the job has no files");
  for (const std::string& entry : entries) {
    if (platform::DirectoryExists(entry)) {
      const size_t before = files.size();
      FolderWalk walk;
      Dir_files(entry, s.main.file_mask, s.main.read_subfolders, files, &walk);
      if (files.size() == before)
        entry_failures_.push_back(
            {pipeline::FileOutcome::Kind::kFailed, -1, entry, WhyNoFiles(walk)});
      continue;
    }
    const std::string folder = ExpandContainer(entry);
    if (folder.empty()) {
      files.push_back(entry);
      continue;
    }
    const size_t before = files.size();
    Dir_files(folder, s.main.file_mask, s.main.read_subfolders, files);
    // A container that gave nothing is handed on itself, so that its failure is logged.
    if (files.size() == before) files.push_back(entry);
  }
  return files;
}

// What one run of the workers over the job's list keeps: per file and per worker.
struct TZubProcess::Dispatch {
  std::vector<std::unique_ptr<pipeline::TPThread>> pool;
  std::vector<int> assigned;  // file index per worker, -1 when idle
  std::vector<std::string> pending;
  std::vector<bool> finished;
  std::vector<pipeline::FileOutcome> outcomes;
  int next_to_show = 0;
  int finished_count = 0;
  int handed_count = 0;
  bool AnyAssigned() const {
    return std::any_of(assigned.begin(), assigned.end(), [](int a) { return a >= 0; });
  }
};

bool TZubProcess::ReadJobSettings(settings::TMainSettings& s, JobCode& code) {
  messages_ = settings::MessageTable();  // step 1: English defaults
  rejected_ = true;

  code = ParseJobCode(job_code);
  if (!code.valid) {
    Log(std::string(kUnknownConversion) + "\r\n");
    return false;
  }

  // The settings come first, because the temporary folder is one of them.
  const bool cfg_ok = platform::LowerExtension(cfg_file) == ".cfg";
  s.SetDefault();
  std::error_code ec;
  if (cfg_ok) {
    // Settings readers never fail; a file that is there but cannot be used is said once.
    if (Status read = s.read_ini_settings(cfg_file); !read.ok() && fs::exists(cfg_file, ec))
      Log(std::string(kWarning) + read.message() + "; the job runs with the default settings");
  }
  if (s.main.temp_folder.empty()) {
    settings::TMainSettings defaults;
    defaults.SetDefault();
    s.main.temp_folder = defaults.main.temp_folder;
  }
  temp_folder_ = platform::IncludeTrailingDelim(s.main.temp_folder);
  fs::create_directories(temp_folder_, ec);
  if (!platform::DirectoryExists(temp_folder_)) {
    Log(kNoTempFolder + temp_folder_);
    return false;
  }
  if (!cfg_ok) return false;
  // The limits hold before the first tool runs (the archive expansion of the input list is one).
  job_.limits = tools::LimitsFromSettings(s.limits);
  tools::ExportUnpackLimit(job_.limits.max_unpacked_mb);
  if (platform::LowerExtension(act_file) != ".act" || !fs::exists(act_file, ec)) act_file.clear();
  if (std::string why; !act_file.empty() && !platform::ReadTextFile(act_file, &why)) {
    Log(std::string(kWarning) + "cannot read " + act_file + ": " + why +
        "; no editing actions are applied");
    act_file.clear();
  }
  return true;
}

bool TZubProcess::SetUpJobFolder(settings::TMainSettings& s) {
  std::error_code ec;
  // Everything the job writes in the temp folder goes into a folder of its own, named after this
  // process: jobs side by side (the front end starts one engine per job) then share nothing they
  // change, and the folder of a killed job can be told from a running one's and is removed here.
  tools::RemoveOrphanedScratch(temp_folder_);
  const std::string job_folder = tools::OwnScratchFolder(temp_folder_, "job");
  fs::create_directory(job_folder, ec);
  s.main.temp_folder = job_folder;
  job_.temp_folder = job_folder;
  job_.tool_folder = tools::ToolFolder();
  fs::copy_file(tools::ToolPath(kIccName), job_folder + kIccName,
                fs::copy_options::overwrite_existing, ec);

  if (!single_worker) {
    const std::string lang = platform::ExecutableFolder() + "Languages" + platform::kPathDelim +
                             AsciiLower(s.main.language) + ".lng";
    if (fs::exists(lang, ec))
      if (Status loaded = messages_.LoadLanguageFile(lang); !loaded.ok())
        Log(std::string(kWarning) + loaded.message() + "; the English texts are used");
  }

  if (!temp_ready(job_folder)) {
    Log(messages_[Msg::kTempWarning1] + " " + temp_folder_ + " " + messages_[Msg::kTempWarning2] +
        "\r\n" + messages_[Msg::kTempWarning3] + "\r\n" + messages_[Msg::kTempWarning4]);
  }

  bool one_worker = single_worker;
  switch (s.main.cpu_priority) {
    case 1:
      tools::SetProcessPriority(1);
      poll_ms_ = 3;
      one_worker = true;
      break;
    case 2:
    case 3:
      tools::SetProcessPriority(s.main.cpu_priority);
      poll_ms_ = 0;
      break;
    default:
      break;
  }
  return one_worker;
}

void TZubProcess::StartWorkers(Dispatch& d, int workers, const settings::TMainSettings& s,
                               const JobCode& code, const std::string& intermediate,
                               pipeline::JobPlan& plan) {
  std::error_code ec;
  const std::string icc = job_.temp_folder + kIccName;
  for (int i = 0; i < workers; ++i) {
    pipeline::JobContext ctx;
    ctx.settings = s;
    ctx.messages = &messages_;
    ctx.cfg_file = cfg_file;
    ctx.act_file = act_file;
    // Each worker has a scratch folder of its own, so that clearing its "rcp" files after a file
    // can never remove a file that another worker is still using.
    ctx.temp_folder = job_.temp_folder + "w" + std::to_string(i) + platform::kPathDelim;
    fs::create_directories(ctx.temp_folder, ec);
    fs::copy_file(icc, ctx.temp_folder + kIccName, fs::copy_options::overwrite_existing, ec);
    ctx.intermediate_format = intermediate;
    ctx.job_kind = code.kind;
    ctx.job_variant = code.variant;
    ctx.job_selector = code.selector;
    ctx.kind3 = code.kind == 3;
    ctx.builtin_language = single_worker;
    ctx.poll_ms = poll_ms_;
    ctx.plan = &plan;
    ctx.job = &job_;
    d.pool.push_back(std::make_unique<pipeline::TPThread>(std::move(ctx)));
    d.pool.back()->Resume();
  }
  d.assigned.assign(d.pool.size(), -1);
  d.pending.assign(static_cast<size_t>(files_total_), std::string());
  d.finished.assign(static_cast<size_t>(files_total_), false);
}

// The log shows the files in job order: the text of the oldest unfinished file streams as it
// comes; the text of files that other workers run meanwhile waits until that file is done.
void TZubProcess::Collect(Dispatch& d) {
  for (size_t w = 0; w < d.pool.size(); ++w) {
    if (d.assigned[w] < 0) continue;
    const bool busy = d.pool[w]->Busy();  // read first: once idle, all its text is there
    d.pending[d.assigned[w]] += d.pool[w]->TakeLog();
    if (!busy) {
      d.outcomes.push_back(d.pool[w]->LastOutcome());
      d.finished[d.assigned[w]] = true;
      ++d.finished_count;
      d.assigned[w] = -1;
    }
  }
  while (d.next_to_show < d.handed_count) {
    if (!d.pending[d.next_to_show].empty()) {
      Log(d.pending[d.next_to_show]);
      d.pending[d.next_to_show].clear();
    }
    if (!d.finished[d.next_to_show]) break;
    ++d.next_to_show;
  }
  if (has_window && progress && files_total_ > 0) progress(d.finished_count * 100 / files_total_);
}

void TZubProcess::WaitALittle() {
  if (poll_ms_ > 0)
    std::this_thread::sleep_for(std::chrono::milliseconds(poll_ms_));
  else
    std::this_thread::sleep_for(std::chrono::microseconds(200));  // a bare yield would spin hot
  Pump();
}

void TZubProcess::RunFiles(Dispatch& d, const std::vector<std::string>& files,
                           const pipeline::JobPlan& plan,
                           const std::map<std::string, std::string>& unwritable, bool check_only) {
  for (int i = 0; i < files_total_ && !job_.Stopped(); ++i) {
    const settings::DestNames& dest = plan.files()[static_cast<size_t>(i)].names;
    // A file whose results cannot be written is not read at all.
    const auto refused = unwritable.find(fs::path(plan.FirstResult(i)).parent_path().string());
    if (refused != unwritable.end()) {
      Collect(d);
      d.pending[i] = messages_[Msg::kFile] + " " + std::to_string(i + 1) + " " +
                     messages_[Msg::kOf] + " " + std::to_string(files_total_) + ": " + files[i] +
                     "\r\n   " + messages_[Msg::kError] + " " + refused->second;
      d.outcomes.push_back({pipeline::FileOutcome::Kind::kFailed, i, files[i], refused->second});
      d.finished[i] = true;
      ++d.finished_count;
      d.handed_count = i + 1;
      continue;
    }
    bool handed = false;
    while (!handed && !job_.Stopped()) {
      Collect(d);
      for (size_t w = 0; w < d.pool.size(); ++w) {
        if (d.assigned[w] < 0 &&
            d.pool[w]->set_paremeters(i, files_total_, files[i], check_only, dest)) {
          d.assigned[w] = i;
          d.handed_count = i + 1;
          handed = true;
          break;
        }
      }
      if (!handed) WaitALittle();
    }
  }
  // Draining: the files already handed out are finished, whatever the stop flag says.
  while (d.AnyAssigned()) {
    Collect(d);
    if (d.AnyAssigned()) WaitALittle();
  }
  Collect(d);  // the blocks of files refused before they were handed out, at the end of the list
  for (auto& w : d.pool) {
    w->Terminate();
    files_done_ += w->FilesDone();
    const std::string folder = w->LastSavedFolder();
    if (!folder.empty()) SetLastSavedFolder(folder);
  }
  d.pool.clear();
}

void TZubProcess::Summarise(std::vector<pipeline::FileOutcome> outcomes, int renamed,
                            int64_t elapsed) {
  // Failures in the order of the job's list, whatever order the workers finished them in.
  std::vector<pipeline::FileOutcome> in_order = std::move(outcomes);
  std::stable_sort(in_order.begin(), in_order.end(),
                   [](const auto& a, const auto& b) { return a.index < b.index; });
  // A list entry that gave no file is a failure of the job too.
  in_order.insert(in_order.begin(), entry_failures_.begin(), entry_failures_.end());
  files_total_ += static_cast<int>(entry_failures_.size());
  files_skipped_ = static_cast<int>(
      std::count_if(in_order.begin(), in_order.end(), [](const pipeline::FileOutcome& o) {
        return o.kind == pipeline::FileOutcome::Kind::kSkipped;
      }));
  std::string summary = FormatSummary(files_done_, files_total_, elapsed, messages_);
  if (std::string list = FormatOutcomes(in_order, renamed, messages_); !list.empty()) {
    // Before the closing line break of the summary.
    if (summary.size() >= 2 && summary.ends_with("\r\n")) summary.resize(summary.size() - 2);
    summary += list + "\r\n";
  }
  Log(summary);
  if (const std::string report = platform::EnvironmentVariable(kReportFileVariable);
      !report.empty()) {
    std::ofstream out(report, std::ios::binary | std::ios::trunc);
    out << OutcomeReport(in_order);
  }
}

void TZubProcess::Execute() {
  using Clock = std::chrono::steady_clock;
  settings::TMainSettings s;
  JobCode code;
  if (!ReadJobSettings(s, code)) return;

  std::string target = AsciiLower(s.main.dest_ext);
  if (size_t gt = target.find('>'); gt != std::string::npos) target = target.substr(gt + 1);
  if (target == "svgz") target = "svg";

  const bool one_worker = SetUpJobFolder(s);
  rejected_ = false;

  entry_failures_.clear();
  const std::vector<std::string> files = BuildFileList(s);
  files_total_ = static_cast<int>(files.size());
  // Every result's name is settled before the first file runs; see pipeline/job_plan.h.
  pipeline::JobPlan plan(s, files, 0, &job_);
  // A job that only checks its files writes nothing, so it needs no destination.
  const bool check_only = code.kind == kCheckOnlyKind || s.main.check_files;
  const std::map<std::string, std::string> unwritable =
      check_only ? std::map<std::string, std::string>() : UnwritableFolders(plan);
  for (const auto& [folder, why] : unwritable) Log(messages_[Msg::kError] + " " + why);

  int workers = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  if (one_worker || s.multipage.option == 4) workers = 1;
  workers = std::min(workers, std::max(files_total_, 1));
  Dispatch d;
  StartWorkers(d, workers, s, code, IntermediateFormat(target), plan);

  Log(messages_[Msg::kStarting]);
  for (const pipeline::FileOutcome& f : entry_failures_)
    Log(messages_[Msg::kError] + " " + f.source + ": " + f.reason);
  const auto start = Clock::now();
  RunFiles(d, files, plan, unwritable, check_only);
  const int64_t elapsed =
      std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();

  std::error_code ec;
  for (const std::string& folder : extracted_folders_) fs::remove_all(folder, ec);
  // The worker folders, the probe file and the ICC copy go with the job's folder.
  fs::remove_all(job_.temp_folder, ec);
  Summarise(std::move(d.outcomes), plan.Renamed(), elapsed);
}

}  // namespace pictavo::engine
