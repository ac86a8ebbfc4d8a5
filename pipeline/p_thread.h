// TPThread: one pipeline worker. The job executor creates one per logical processor, hands each
// idle worker one file at a time through set_paremeters, and polls it for its log text; the
// worker carries the file through read, edit, convert and save, or through one direct
// conversion, then goes idle again.
//
// Thread safety: set_paremeters, Busy, TakeLog, FilesDone and LastSavedFolder may be called from
// the executor's thread while the worker runs; they take the worker's own mutex. Stages run on
// the worker's thread only and never touch the view: their text reaches the log through TakeLog.
#pragma once

#include <chrono>
#include <condition_variable>
#include <string>
#include <thread>

#include "engine/tools/job_context.h"
#include "engine/tools/written_files.h"
#include "imaging/ie_io.h"
#include "imaging/picture_limits.h"
#include "pipeline/job_plan.h"
#include "pipeline/routing.h"
#include "platform/thread_annotations.h"
#include "settings/main_settings.h"
#include "settings/message_table.h"

namespace pictavo::direct {
class TZubDirect;
}

namespace pictavo::pipeline {

using tools::WrittenFile;
using tools::WrittenFiles;

// What every worker of a job shares. Must outlive the workers; read only during the job.
struct JobContext {
  settings::TMainSettings settings;  // each worker keeps its own copy (the stages take pointers)
  const settings::MessageTable* messages = nullptr;
  std::string cfg_file;             // handed to tools that read the job's settings
  std::string act_file;             // empty when the job has no editing actions
  std::string temp_folder;          // the worker's own scratch folder, with a trailing delimiter
  std::string intermediate_format;  // format of intermediate page files ("tif", "png", "pdf")
  int job_kind = 1;
  int job_variant = 1;
  int job_selector = 1;
  bool kind3 = false;
  bool builtin_language = false;  // translated messages were not loaded
  int poll_ms = 10;
  // The job's plan of result names, shared by the workers; none in tests that hand a worker
  // its names directly (pages are then named by the template alone).
  JobPlan* plan = nullptr;
  // The job's own context (limits, stop flag, folders); none in tests, which then run under the
  // default limits.
  const tools::JobContext* job = nullptr;
};

// The job's picture caps as the imaging calls of a worker take them.
inline imaging::PictureLimits PictureLimitsOf(const tools::JobLimits& limits) {
  return {limits.max_pixels, limits.max_memory_mb};
}

// How one file of the job ended, for the summary.
struct FileOutcome {
  enum class Kind { kDone, kFailed, kSkipped };
  Kind kind = Kind::kDone;
  int index = -1;  // in the job's list
  std::string source;
  std::string reason;  // why it failed or was skipped, on one line
};

class TPThread {
 public:
  explicit TPThread(JobContext context);  // created suspended: no thread until Resume
  ~TPThread();                            // terminates and joins
  TPThread(const TPThread&) = delete;
  TPThread& operator=(const TPThread&) = delete;

  void Resume();
  // Ends the worker once its current file is done, and joins it.
  void Terminate();

  // Assigns one file (index 0-based, count of files in the job) and makes the routing decision.
  // Returns false, changing nothing, when the worker is busy.
  bool set_paremeters(int index, int count, const std::string& source, bool check_only,
                      const settings::DestNames& dest);

  bool Busy() const;
  // The pending log text ("\r\n" between lines), cleared by the call.
  std::string TakeLog();
  int FilesDone() const;
  int FilesFinished() const;  // done or failed
  std::string LastSavedFolder() const;
  // How the last file handed to the worker ended; valid once the worker is idle again.
  FileOutcome LastOutcome() const;

  // The routing decision of the current file (for tests).
  Route route() const;

 private:
  void Run();
  void ProcessFile();
  bool Read();
  bool Edit();
  bool Convert();
  bool Direct_convert();
  // A direct-conversion object set up for this job; results go to the scratch folder.
  void PrepareDirect(direct::TZubDirect& d);
  // Every written file opens as the target type and holds the pages of the working picture;
  // otherwise they are removed and the reason returned.
  Status CheckWritten(const std::string& ext);
  // Ends a converting line with "Done", or with "Fail", the stage's error line and the reason,
  // and logs it.
  bool FinishConvertLine(std::string line, const Status& status, bool unsupported);
  // Logs `line` + " Fail" (when `line` is not empty), the error line "Error: <stage message>
  // <file name>" and the reason on a line of its own under it; keeps the reason for the summary.
  bool Fail(const std::string& line, settings::Msg stage, std::string reason);
  // The reason of a failed read: the reader's own, or the fixed text for its code.
  std::string ReadFailureReason(const Status& status) const;
  bool SaveAll();
  bool CheckFile();
  // "Save"/"OverWrite" 2 and the result exists: the file is skipped before it is read.
  bool ResultKeptAsItIs();
  void print_log(const std::string& line) EXCLUDES(mutex_);
  std::string ScratchName(const std::string& ext);
  const std::string& M(settings::Msg id) const { return (*context_.messages)[id]; }

  JobContext context_;
  // The job's picture caps, as the imaging calls of this worker's stages take them.
  imaging::PictureLimits picture_limits_;
  // The stages' hand-over of scratch pictures and their load modes; the worker's thread only.
  imaging::HandOverCache hand_over_;

  mutable platform::Mutex mutex_;
  std::condition_variable_any wake_;  // busy_ or terminate_ became true
  bool busy_ GUARDED_BY(mutex_) = false;
  bool terminate_ GUARDED_BY(mutex_) = false;
  std::string pending_log_ GUARDED_BY(mutex_);
  std::string last_saved_folder_ GUARDED_BY(mutex_);
  int files_done_ GUARDED_BY(mutex_) = 0;
  int files_finished_ GUARDED_BY(mutex_) = 0;
  FileOutcome last_outcome_ GUARDED_BY(mutex_);

  // The current file; written by set_paremeters before busy_ is set, then owned by the worker.
  int index_ = 0;
  int count_ = 0;
  std::string source_;
  bool check_only_ = false;
  settings::DestNames dest_;
  Route route_;
  std::string work_file_;  // the raster file the stages pass along
  WrittenFiles written_;   // what the writer or the direct conversion produced
  int page_count_ = 1;
  std::string failure_;   // the reason of the stage that failed, for the summary
  bool skipped_ = false;  // the file was skipped (blank pages, existing results kept)

  std::thread thread_;
};

}  // namespace pictavo::pipeline
