// The Qt window of the log form, compiled only when the build has Qt 6 (PICTAVO_WITH_QT).
#pragma once

#include "engine/command_line.h"
#include "engine/log_form.h"

namespace pictavo::engine {

// Builds the window over `form`, runs the job on its first timer tick and the event loop until
// the window closes (or at once after a silent job). Returns the process's exit status.
int RunQtWindow(TfLog& form, const JobArguments& args, int argc, char** argv);

}  // namespace pictavo::engine
