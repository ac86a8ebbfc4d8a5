// The console view of the log window: each log line goes to stdout as it is appended; a
// progress bar is drawn on stderr only when stderr is a terminal, and redrawn only when its text
// changes (the job reports progress at every poll). Ctrl-C is the Stop button, already confirmed;
// the engine catches it (engine/main.cpp), in this view as in the window.
#pragma once

#include <cstdio>
#include <string>

#include "engine/log_form.h"

namespace pictavo::engine {

class ConsoleView : public LogView {
 public:
  ConsoleView(std::FILE* out, std::FILE* bar);  // bar null: no progress bar
  ~ConsoleView() override;

  void LineAppended(const std::string& line) override;
  void ProgressChanged(int position) override;
  void ProcessMessages() override {}
  bool Confirm(const std::string& question) override;
  void StateChanged() override {}
  void OpenFolder(const std::string& folder) override;

 private:
  void ClearBar();
  std::FILE* out_;
  std::FILE* bar_;
  bool bar_drawn_ = false;
  std::string bar_text_;  // what the bar shows while bar_drawn_
};

}  // namespace pictavo::engine
