// pictavo-engine CODE FILE [FILE]: runs one conversion job described by its job files.
//
// The view is the Qt window when the build has Qt and a display can be opened, else the console;
// PICTAVO_UI=gui|console overrides. In the console, the job's end is the window's closing (the
// job files are deleted) unless PICTAVO_WAIT is set, which waits for Enter first.
//
// SIGINT, SIGTERM and SIGHUP are the Stop button, already confirmed, in either view: no file
// starts, running tools are ended, the job's scratch is removed and the log says the job was
// stopped; then the process ends. A second one ends the process at once (its tools end with it:
// platform/process.h).
#include <cstdio>
#include <cstdlib>
#include <string>

#include "engine/command_line.h"
#include "engine/console_view.h"
#include "engine/log_form.h"
#include "engine/tools/runner.h"
#include "platform/console.h"
#include "platform/process.h"
#include "platform/registry_store.h"

#ifdef PICTAVO_WITH_QT
#include "engine/qt_view.h"
#endif

namespace {

using pictavo::engine::TfLog;

std::string Env(const char* name) {
  const char* v = std::getenv(name);
  return v ? v : "";
}

bool WantGui() {
  const std::string ui = Env("PICTAVO_UI");
  if (ui == "console") return false;
#ifdef PICTAVO_WITH_QT
  if (ui == "gui") return true;
  return !Env("DISPLAY").empty() || !Env("WAYLAND_DISPLAY").empty();
#else
  if (ui == "gui")
    std::fprintf(stderr,
                 "pictavo-engine: built without Qt 6 (Debian qt6-base-dev); "
                 "using the console view\n");
  return false;
#endif
}

// 0 when the job ran and processed every file; 1 otherwise (scripts can tell failures).
int ExitStatus(const TfLog& form) {
  return form.ExitStatus();
}

}  // namespace

int main(int argc, char** argv) {
  const pictavo::engine::JobArguments args = pictavo::engine::ParseCommandLine(argc, argv);
  pictavo::platform::CatchStopSignals(pictavo::tools::StopFlag(),
                                      pictavo::platform::LaterStops::kEndProcess);
  TfLog form;
#ifdef PICTAVO_WITH_QT
  if (WantGui()) {
    // Qt ends the process when its display cannot be opened; asked first, it cannot.
    if (pictavo::engine::DisplayOpens(argc, argv))
      return pictavo::engine::RunQtWindow(form, args, argc, argv);
    std::fprintf(stderr,
                 "pictavo-engine: warning: cannot open the display (DISPLAY=\"%s\", "
                 "WAYLAND_DISPLAY=\"%s\"); using the console view\n",
                 Env("DISPLAY").c_str(), Env("WAYLAND_DISPLAY").c_str());
  }
#else
  (void)WantGui();
#endif

  pictavo::engine::ConsoleView view(stdout,
                                    pictavo::platform::StderrIsTerminal() ? stderr : nullptr);
  form.SetView(&view);
  pictavo::platform::RegistryStore store;
  (void)store.Load();  // a missing or unreadable store leaves the defaults
  form.FormCreate(args, store);
  form.Timer1Timer();
  if (!form.show_log) return 0;
  if (!Env("PICTAVO_WAIT").empty() && pictavo::platform::StopRequestsCaught() == 0) {
    std::fprintf(stderr, "Press Enter to close.\n");
    (void)std::getchar();
  }
  form.FormClose();
  return ExitStatus(form);
}
