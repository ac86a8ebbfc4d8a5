#include "engine/log_form.h"

#include <filesystem>

#include "engine/tools/runner.h"
#include "engine/zub_process.h"
#include "platform/fs.h"
#include "settings/main_settings.h"

namespace pictavo::engine {

using settings::ComponentKind;

TfLog::TfLog() : form_("fLog", "Pictavo Log") {
  form_.Add("Memo1", ComponentKind::kMemo);
  form_.Add("ProgressBar1", ComponentKind::kProgressBar);
  form_.Add("AdvClose", ComponentKind::kButton, "Stop");
  form_.Add("AdvShowFiles", ComponentKind::kButton, "Show converted files...");
  form_.Add("Timer1", ComponentKind::kTimer);
  // Hidden text holders: never shown, there to be translated like any caption.
  form_.Add("Label1", ComponentKind::kLabel, "Estimated time remaining:");
  form_.Add("Label2", ComponentKind::kLabel, "Estimated time remaining:");
  form_.Add("Label3", ComponentKind::kLabel, "Starting...");
  form_.Add("Label4", ComponentKind::kLabel, "Close");
  form_.Add("Label5", ComponentKind::kLabel, "The conversion process was terminated by user.");
  form_.Add("Label7", ComponentKind::kLabel, "min.");
  form_.Add("Label8", ComponentKind::kLabel, "sec.");
  form_.Add("Label9", ComponentKind::kLabel, "Do you really want to stop the conversion?");
  form_.Add("Label10_new", ComponentKind::kLabel, "Warning: Access to Pictavo Temp folder");
  form_.Add("Label11_new", ComponentKind::kLabel, "is denied.");
  form_.Add("Label12_new", ComponentKind::kLabel, "Some files would not be converted.");
  form_.Add("Label13_new", ComponentKind::kLabel,
            "To change the Temp folder, select Menu->Saving Settings->Additional saving "
            "settings->Temp folder.");
}

std::string TfLog::Caption(std::string_view component) const {
  const settings::Component* c = form_.Find(component);
  return c ? c->caption : std::string();
}

void TfLog::FormCreate(const JobArguments& args, const platform::RegistryStore& store) {
  job_code = args.code;
  cfg_file = args.cfg_file;
  act_file = args.act_file;

  settings::TMainSettings s;
  s.SetDefault();
  s.read_reg_settings(store);
  front_left = s.window.left;
  front_top = s.window.top;
  front_width = s.window.width;
  front_height = s.window.height;

  show_log = true;
  created = true;
  // Silent codes: the front end's background jobs; the executor sees the rewritten code.
  if (job_code == "36") {
    job_code = "33";
    show_log = false;
  } else if (job_code == "38") {
    job_code = "34";
    show_log = false;
  }
  minimized = !show_log;
  if (front_left > 0 && front_top > 0) {
    left = front_left + (front_width - kWidth) / 2;
    top = front_top + (front_height - kHeight) / 2;
  }
  timer_enabled = true;
  job_running = true;
  if (view_) view_->StateChanged();
}

void TfLog::AppendLog(const std::string& text) {
  size_t start = 0;
  if (text.rfind("\r\n", 0) == 0) start = 2;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    std::string line =
        text.substr(start, end == std::string::npos ? std::string::npos : end - start);
    if (!line.empty() && line.back() == '\r') line.pop_back();
    memo.push_back(line);
    if (view_) view_->LineAppended(line);
    if (end == std::string::npos) break;
    start = end + 1;
  }
}

void TfLog::SetProgress(int position) {
  progress = position;
  if (view_) view_->ProgressChanged(position);
}

void TfLog::AdvCloseClick() {
  if (!job_running) {
    close_requested = true;
    if (view_) view_->StateChanged();
    return;
  }
  if (view_ && view_->Confirm(Caption("Label9"))) tools::StopFlag().store(true);
}

void TfLog::AdvShowFilesClick() {
  const std::string folder = LastSavedFolder();
  if (view_ && !folder.empty()) view_->OpenFolder(folder);
}

void TfLog::FormClose() {
  for (const std::string* file : {&cfg_file, &act_file, &lst_file}) {
    std::error_code ec;
    if (!file->empty() && platform::FileExists(*file)) std::filesystem::remove(*file, ec);
  }
}

}  // namespace pictavo::engine
