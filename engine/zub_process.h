// TZubProcess: runs one whole job on the calling (main) thread. It validates the job code,
// prepares the temporary folder, loads the settings and the translated log messages, expands
// the list of input files, hands the files to a pool of TPThread workers, writes every step to
// the log and ends with a summary.
//
// Execute never blocks on a worker: it sleeps for the polling interval and calls the view's
// message pump between polls, so the log stays live and Stop can be pressed during a job.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "engine/tools/job_context.h"
#include "pipeline/p_thread.h"
#include "settings/main_settings.h"
#include "settings/message_table.h"

namespace pictavo::engine {

// A job code: two digits give kind and variant, three add a selector (1 when absent).
struct JobCode {
  int kind = 0;
  int variant = 0;
  int selector = 1;
  bool valid = false;  // kind and variant are not 0 and the variant is at most 4
};
JobCode ParseJobCode(std::string_view code);

// Job kind 2 only checks that every file can be read (see docs/engine.md).
inline constexpr int kCheckOnlyKind = 2;

// The summary lines after the last file ("\r\n" between lines), elapsed time in milliseconds.
std::string FormatSummary(int done, int total, int64_t elapsed_ms,
                          const settings::MessageTable& messages);

// After the summary: one line per failed file with its reason, under "Files that failed:", and
// the number of skipped files; "" when every file was done.
// `renamed`: results the job's plan gave a numbered name (a line when above 0).
std::string FormatOutcomes(const std::vector<pipeline::FileOutcome>& outcomes, int renamed,
                           const settings::MessageTable& messages);
// The same for programs: one line per failed or skipped file, "failed" or "skipped", the
// source and the reason, separated by tabs. The engine writes it to the file that the
// environment variable kReportFileVariable names, when it is set (the front end sets it).
std::string OutcomeReport(const std::vector<pipeline::FileOutcome>& outcomes);
inline constexpr char kReportFileVariable[] = "PICTAVO_REPORT_FILE";

// Format of the intermediate page files for a target extension (lower case): "png", "tif",
// "pdf", or empty when the target needs none.
std::string IntermediateFormat(std::string_view target);

// The probe file that temp_ready writes; the job writes it in its own folder of the temp
// folder, so that jobs side by side never remove each other's.
inline constexpr char kTempProbeName[] = "temp_ready_probe.txt";

// True when a file can be created, written and deleted in `folder`.
bool temp_ready(const std::string& folder);

// Appends to `files` the files of `folder` that the mask list accepts ("*" accepts all; else a
// list such as "jpg, png"), then, when `subfolders` is set, walks each sub-folder the same way:
// depth first, a folder's own files before those of its sub-folders. Names are sorted within a
// folder so that runs are repeatable. Links to folders are not followed (a link to a parent
// would walk in a circle); links to files are taken like files.
// What a walk left out, so that a folder that gives no file can say why.
struct FolderWalk {
  int subfolders_left = 0;   // sub-folders not walked ("Main"/"Read_subfolders" off)
  int files_masked_out = 0;  // files whose type "Main"/"File_mask" does not accept
  std::string error;         // why a folder could not be listed
};
void Dir_files(const std::string& folder, const std::string& mask_list, bool subfolders,
               std::vector<std::string>& files, FolderWalk* walk = nullptr);
// Why a folder entry of the list gave no file, from its walk: in words a user can act on.
std::string WhyNoFiles(const FolderWalk& walk);

// The folder a container is unpacked into: the file's path with "_(extracted)" appended.
std::string ExtractedFolder(const std::string& container);

// The folder of the last file the job saved, for the window's "Show converted files..." button.
// Process-wide (one job per process); the executor sets it after the workers end. Thread-safe.
void SetLastSavedFolder(const std::string& folder);
std::string LastSavedFolder();

class TZubProcess {
 public:
  // Inputs, set before Execute.
  std::string job_code;
  std::string cfg_file;
  std::string act_file;                         // empty when none
  std::function<void(const std::string&)> log;  // appends text ("\r\n" between lines)
  std::function<void(int)> progress;            // 0..100; only when a window exists
  std::function<void()> process_messages;       // the view's pump; may be empty
  bool has_window = false;
  bool single_worker = false;  // one worker and the built-in English messages

  void Execute();
  void starting() {}

  // Results.
  int files_total() const { return files_total_; }
  int files_done() const { return files_done_; }
  int files_skipped() const { return files_skipped_; }
  bool rejected() const { return rejected_; }  // the job did not run (code, temp folder, .cfg)
  const std::string& temp_folder() const { return temp_folder_; }

 private:
  struct Dispatch;
  void Log(const std::string& text);
  void Pump();
  // Reads the job code, the settings, the limits and the actions file; false when the job is
  // rejected (and says why).
  bool ReadJobSettings(settings::TMainSettings& s, JobCode& code);
  // The job's own scratch folder, its language and priority; true when one worker must do.
  bool SetUpJobFolder(settings::TMainSettings& s);
  void StartWorkers(Dispatch& d, int workers, const settings::TMainSettings& s, const JobCode& code,
                    const std::string& intermediate, pipeline::JobPlan& plan);
  // Hands out the files to idle workers, waits for all of them and ends the workers.
  void RunFiles(Dispatch& d, const std::vector<std::string>& files, const pipeline::JobPlan& plan,
                const std::map<std::string, std::string>& unwritable, bool check_only);
  void Collect(Dispatch& d);
  void WaitALittle();
  void Summarise(std::vector<pipeline::FileOutcome> outcomes, int renamed, int64_t elapsed);
  std::vector<std::string> BuildFileList(const settings::TMainSettings& s);
  std::string ExpandContainer(const std::string& file);

  tools::JobContext job_;  // the job's limits, stop flag and folders
  settings::MessageTable messages_;
  std::string temp_folder_;
  std::vector<std::string> extracted_folders_;
  // Entries of the list that give no file to convert (a folder with none, one that cannot be
  // read), with the reason; they count as failed.
  std::vector<pipeline::FileOutcome> entry_failures_;
  int files_total_ = 0;
  int files_done_ = 0;
  int files_skipped_ = 0;
  bool rejected_ = false;
  int poll_ms_ = 10;
};

}  // namespace pictavo::engine
