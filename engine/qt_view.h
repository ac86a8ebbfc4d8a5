// The Qt window of the log form, compiled only when the build has Qt 6 (PICTAVO_WITH_QT).
#pragma once

#include "engine/command_line.h"
#include "engine/log_form.h"

namespace pictavo::engine {

// True when Qt can open its display (the platform that QT_QPA_PLATFORM, WAYLAND_DISPLAY or
// DISPLAY name). Qt aborts the process that fails to, so a copy of this process tries it, for at
// most 5 s. Call before any thread starts.
bool DisplayOpens(int argc, char** argv);

// Builds the window over `form`, runs the job on its first timer tick and the event loop until
// the window closes (or at once after a silent job, or after a job stopped by a signal: see
// engine/main.cpp). Returns the process's exit status.
int RunQtWindow(TfLog& form, const JobArguments& args, int argc, char** argv);

}  // namespace pictavo::engine
