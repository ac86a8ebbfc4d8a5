// TfLog: the log window as a toolkit-free model. It owns the job's identity (the published
// fields), the window's named components with their captions (so language files translate the
// console and the Qt window alike), the log lines, the progress position and the buttons' state.
// A view renders it and feeds it the user's clicks; tests drive it without a display.
//
// Not thread-safe: the model, its view and the job all live on the main thread.
#pragma once

#include <string>
#include <vector>

#include "engine/command_line.h"
#include "platform/registry_store.h"
#include "settings/form_model.h"

namespace pictavo::engine {

// What a view does for the model.
class LogView {
 public:
  virtual ~LogView() = default;
  virtual void LineAppended(const std::string& line) = 0;
  virtual void ProgressChanged(int position) = 0;
  // Keeps the view alive during the job (repaint, input); may run AdvCloseClick.
  virtual void ProcessMessages() = 0;
  // A Yes/No question; true for Yes.
  virtual bool Confirm(const std::string& question) = 0;
  // Captions, visibility or window state changed.
  virtual void StateChanged() = 0;
  virtual void OpenFolder(const std::string& folder) = 0;
};

class TfLog {
 public:
  // The designed client size and minimum size, in pixels at 96 dpi.
  static constexpr int kWidth = 551, kHeight = 351, kMinWidth = 500, kMinHeight = 300;

  TfLog();

  void SetView(LogView* view) { view_ = view; }

  // Form creation: reads the command line, the front end's window geometry from `store`, the
  // silent codes; centres the form; enables the timer.
  void FormCreate(const JobArguments& args, const platform::RegistryStore& store);
  // The first timer tick: language, job start, job on this thread, finishing state.
  void Timer1Timer();
  void AdvCloseClick();
  void AdvShowFilesClick();
  // Deletes the three job files, each if it exists.
  void FormClose();

  // Appends text to the log, one line per "\r\n"-separated piece (a leading and a trailing
  // line break add no empty line).
  void AppendLog(const std::string& text);
  void SetProgress(int position);

  // Translated text of a component ("Label9"), or empty.
  std::string Caption(std::string_view component) const;

  settings::FormModel& form() { return form_; }
  const settings::FormModel& form() const { return form_; }

  // Published fields.
  std::string cfg_file;
  std::string act_file;
  std::string lst_file;
  int progress = 0;
  std::string str_to_log;
  bool show_log = true;

  // Form state.
  std::string job_code = "1";
  bool created = false;
  int front_left = -1, front_top = -1, front_width = -1, front_height = -1;
  int left = -1, top = -1;  // -1: the window system's placement (the designed position)
  bool minimized = false;
  bool timer_enabled = false;
  bool job_running = false;
  bool show_files_visible = false;  // AdvShowFiles
  bool close_requested = false;     // AdvClose pressed after the job: the view closes
  std::vector<std::string> memo;    // Memo1, one entry per line

  // The job's outcome, for the view's exit status.
  int files_done = 0;
  int files_skipped = 0;  // results kept as they were ("Save"/"OverWrite" 2), blank pages
  int files_total = 0;
  bool job_rejected = false;
  // The exit status: 0 when the job ran and no file failed (a skipped file is no failure).
  int ExitStatus() const {
    return !job_rejected && files_done + files_skipped == files_total ? 0 : 1;
  }

 private:
  settings::FormModel form_;
  LogView* view_ = nullptr;
};

}  // namespace pictavo::engine
