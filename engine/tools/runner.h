// Running external tools: the engine's only way to start a program.
//
// A command line is one Windows-style string (see command_line.h); it is split into argv and
// started directly, never through a shell, so a file name can never become a command. Each tool
// runs in its own process group with stdin, stdout and stderr on /dev/null (unless the batch form
// redirects them), so tools neither read the engine's terminal nor flood its console. When the
// stop flag is set or a time-out is reached, the whole group is killed: a tool's own children end
// with it.
//
// Thread safety: all functions may be called from several workers at once.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "engine/tools/job_context.h"

namespace pictavo::tools {

// The view's event pump: called between wait slices and around the pause before a runner returns,
// so that the log window stays responsive. Set once by the engine before any worker starts; none
// in tests. It is called on whichever thread runs the tool, so it must be safe to call from any.
using EventPump = void (*)();
void SetEventPump(EventPump pump);

// Sets the engine's own priority from "Main"/"Cpu_priority" (1 idle = nice 19, 2 normal = nice 0,
// 3 high = unchanged, since raising needs privileges). Tools inherit it.
void SetProcessPriority(int cpu_priority);

// Value returned when the program could not be started.
inline constexpr int kNotStarted = -1;
// Value returned when the tool was ended by the stop flag or a time-out. Callers must not rely on
// it: as with any run, they judge the tool by the files it left.
inline constexpr int kTerminated = 4;

// Show-window values the callers pass (kept for the callers' command lines; a tool has no window
// here, so the value does not change how it runs).
inline constexpr int kHidden = 0;
inline constexpr int kShowNormal = 1;

// Runs the command line in the process's current folder and waits for it, at most the job's
// time-out for that kind of tool. Returns the tool's exit code (128 + signal when it died of a
// signal), kNotStarted, or kTerminated on stop or time-out.
int RunAndWait(const std::string& command_line, int show_window);

// As RunAndWait, in `working_folder` (empty = the current folder) and ending the tool when
// `timeout_s` whole seconds have passed (0 or less = the job's time-out for that kind of tool).
int RunAndWaitTimeout(const std::string& command_line, int show_window,
                      const std::string& working_folder, int timeout_s);

// The batch form, for command lines that need redirection (" > ", " >> ", " < ", " 2> ") or
// several commands (line breaks, "&", "&&"). The redirections are done here, without a command
// interpreter, so file names stay data. Commands run one after the other, each like RunAndWait;
// returns the last command's result, or kNotStarted when the line cannot be parsed or a
// redirection file cannot be opened. Each command has the job's time-out for its kind of tool.
// `temp_folder` is kept for the callers' signature: no script file is needed.
int RunBatch(const std::string& command_line, const std::string& temp_folder);
// As RunBatch, for a caller whose batch is the whole job (`pictavo convert` running the engine):
// no pause after the last command, and a stop is not a kill. Each stop request caught by
// platform::CatchStopSignals (or the stop flag set without one) is passed on to the running
// program as the same signal, and the program ends as it would have ended by itself: the engine
// stops its job, ends its tools and cleans up on the first, and ends at once on the second.
int RunBatchNoPause(const std::string& command_line);

// The runners under a job's own context: a run that names no time-out of its own gets
// `context.limits`' time-out for its kind of tool, and `*context.stop` set ends the running tool
// and starts no further one. Several contexts may be used side by side; each must outlive its
// runs. The forms above without a context run under ProcessJobContext().
int RunAndWait(const JobContext& context, const std::string& command_line, int show_window);
int RunAndWaitTimeout(const JobContext& context, const std::string& command_line, int show_window,
                      const std::string& working_folder, int timeout_s);
int RunBatch(const JobContext& context, const std::string& command_line,
             const std::string& temp_folder);

// The context of the runs that do not name theirs (the front end, tests): no time-outs, and the
// process-wide stop flag.
JobContext ProcessJobContext();

}  // namespace pictavo::tools
