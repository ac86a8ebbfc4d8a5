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

namespace pictavo::tools {

// The process-wide stop flag. The log window's stop button sets it; it only ever goes from false
// to true during a job (tests may clear it again). Runners poll it every 500 ms at the latest.
std::atomic<bool>& StopFlag();

// The view's event pump: called between wait slices and around the pause before a runner returns,
// so that the log window stays responsive. Set once by the engine before any worker starts; none
// in tests. It is called on whichever thread runs the tool, so it must be safe to call from any.
using EventPump = void (*)();
void SetEventPump(EventPump pump);

// Sets the engine's own priority from "Main"/"Cpu_priority" (1 idle = nice 19, 2 normal = nice 0,
// 3 high = unchanged, since raising needs privileges). Tools inherit it.
void SetProcessPriority(int cpu_priority);

// Tools by how long one run may fairly take; each kind has a time-out of its own.
enum class ToolPace {
  kCodec,   // codecs, raster converters, metadata, archives: every tool not named below
  kRender,  // interpreters and renderers of whole documents, drawings, maps and scenes
  kOffice,  // office documents through soffice.bin, which starts a whole office suite
  kOcr,     // text recognition, page by page
};
inline constexpr int kToolPaces = 4;
// The "Limits" key and default time-out of each kind, in the order of ToolPace.
struct ToolTimeout {
  const char* key;
  int default_s;
};
inline constexpr ToolTimeout kToolTimeouts[kToolPaces] = {{"Tool_timeout", 300},
                                                          {"Render_timeout", 600},
                                                          {"Office_timeout", 1200},
                                                          {"Ocr_timeout", 1800}};
// The kind of a tool, by its name in the tool folder ("soffice.bin", "ogr/ogr2ogr.exe"); a name
// that is not a tool of the folder is a codec.
ToolPace PaceOf(std::string_view tool_name);

// The job's resource limits, set once by the engine from the settings file's "Limits" section
// before any worker starts (process-wide, like the stop flag; tests may set them too). Until
// they are set, runs have no time-out (the front end runs a whole job as one tool).
//   timeout_s:      per ToolPace, a tool still running after this many seconds is ended with its
//                   children (every run that names no time-out of its own; 0 or less = none).
//   max_pixels:     the largest picture, in pixels, that the engine decodes or makes in-process.
//   max_memory_mb:  the most memory one picture of the in-process engine may take (its pixel
//                   plane: 3 bytes a pixel in 24-bit RGB, 6 in 48-bit), whether decoded, made
//                   by an action or converted to another layout.
//   max_unpacked_mb: the most an archive may expand to; the archiver of the tool folder lists
//                   the archive first and refuses a larger one. Tools learn it from the
//                   environment variable kMaxUnpackedVariable.
struct JobLimits {
  int timeout_s[kToolPaces] = {kToolTimeouts[0].default_s, kToolTimeouts[1].default_s,
                               kToolTimeouts[2].default_s, kToolTimeouts[3].default_s};
  uint64_t max_pixels = uint64_t{1} << 28;  // 268 megapixels: 1 GiB at 32 bits per pixel
  uint64_t max_memory_mb = 2048;            // the largest picture in 48-bit RGB fits
  uint64_t max_unpacked_mb = 4096;
};
inline constexpr char kMaxUnpackedVariable[] = "PICTAVO_MAX_UNPACKED_MB";
// Where a job's settings file keeps them: whole numbers under these keys, 0 or none = default.
inline constexpr char kLimitsSection[] = "Limits";
inline constexpr const char* kLimitKeys[] = {"Tool_timeout",   "Render_timeout", "Office_timeout",
                                             "Ocr_timeout",    "Max_megapixels", "Max_memory_mb",
                                             "Max_unpacked_mb"};
void SetJobLimits(const JobLimits& limits);
JobLimits CurrentJobLimits();

// The code of a Status that refuses a picture for a job limit (its message names the limit).
inline constexpr int kOverJobLimit = 2;

// Why a picture of width x height pixels whose pixels take `bytes` may not be made in-process,
// naming the setting that would allow it; empty when it is within the job's limits.
std::string PictureOverLimits(uint64_t width, uint64_t height, uint64_t bytes);
// The last refusal of PictureOverLimits on this thread, cleared by the call: for callers whose
// steps report only success or failure (editing actions), so the log can say which limit.
std::string TakeLastLimitHit();
// " above the limit of N megapixels (\"Limits\"/\"Max_megapixels\")", for callers that measure
// something else in pixels (a page at a resolution).
std::string AbovePixelLimit(uint64_t max_pixels);
// "W x H pixels is above the limit of N megapixels (...)": a picture over a pixel cap.
std::string PixelsAboveLimit(uint64_t width, uint64_t height, uint64_t max_pixels);

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

}  // namespace pictavo::tools
