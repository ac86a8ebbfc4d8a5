// The first timer tick: the part of the log form that runs the job (kept apart so that the
// form's model links without the pipeline).
#include "engine/log_form.h"

#include "engine/tools/runner.h"
#include "engine/zub_process.h"
#include "platform/fs.h"
#include "platform/process.h"
#include "platform/text_encoding.h"
#include "settings/langs.h"
#include "settings/mem_ini_file.h"

namespace pictavo::engine {

void TfLog::Timer1Timer() {
  if (!timer_enabled) return;
  timer_enabled = false;

  settings::MemIniFile ini;
  (void)ini.Load(cfg_file);  // a missing file reads as empty: the executor reports the rest
  lst_file = ini.ReadString("Main", "Use_file_list", "");
  const std::string language = platform::AsciiLower(ini.ReadString("Main", "Language", "english"));
  settings::TLangs langs;
  langs.LoadLanguages(platform::ExecutableFolder() + "Languages");
  langs.SetActiveLang(language, "fLog", form_);
  if (view_) view_->StateChanged();

  TZubProcess process;
  process.job_code = job_code;
  process.cfg_file = cfg_file;
  // The executor says why an actions file that is there cannot be used.
  process.act_file = act_file;
  process.log = [this](const std::string& t) { AppendLog(t); };
  if (show_log) {
    process.has_window = true;
    process.progress = [this](int p) { SetProgress(p); };
  }
  process.process_messages = [this] {
    if (view_) view_->ProcessMessages();
  };

  // A stop signal that came before the job started still stops it (engine/main.cpp).
  tools::StopFlag().store(platform::StopRequestsCaught() > 0);
  str_to_log.clear();
  AppendLog(Caption("Label3"));
  if (view_) view_->ProcessMessages();

  process.Execute();
  files_done = process.files_done();
  files_skipped = process.files_skipped();
  files_total = process.files_total();
  job_rejected = process.rejected();
  if (!show_log) return;

  if (!tools::StopFlag().load())
    SetProgress(100);
  else
    AppendLog(Caption("Label5"));
  if (!str_to_log.empty()) AppendLog(str_to_log);
  show_files_visible = true;
  if (settings::Component* close = form_.Find("AdvClose")) close->caption = Caption("Label4");
  job_running = false;
  if (view_) {
    view_->ProcessMessages();
    view_->StateChanged();
  }
}

}  // namespace pictavo::engine
