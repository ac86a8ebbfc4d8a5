// What a job hands to everything it runs: its limits, its stop flag and its folders.
//
// The job owns one JobContext for its whole run and its workers read it; nothing in it changes
// once the first worker has started. The stop flag is the one process-wide place a signal handler
// or the log window's stop button can reach; the context refers to it, so stages ask the context.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <string_view>

#include "settings/main_settings.h"

namespace pictavo::tools {

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

// The job's resource limits, from the settings' "Limits" section (see LimitsFromSettings).
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
// The limits the settings ask for: a time-out of 0 is none; 0 megapixels or MB is the default.
JobLimits LimitsFromSettings(const settings::TMainSettings::Limits& limits);

// The process-wide stop flag. The log window's stop button sets it; it only ever goes from false
// to true during a job (tests may clear it again). Runners poll it every 500 ms at the latest.
std::atomic<bool>& StopFlag();

// Owned by the job (TZubProcess) for its whole run; its workers refer to it.
struct JobContext {
  JobLimits limits;
  const std::atomic<bool>* stop = &StopFlag();
  std::string temp_folder;  // the job's own scratch folder, with a trailing delimiter
  std::string tool_folder;  // the tool folder, with a trailing delimiter
  bool Stopped() const { return stop->load(); }
};

// Hands Max_unpacked_mb to the tools through kMaxUnpackedVariable. Process-wide, as the
// environment the tools inherit is: set once by the job before any worker starts.
void ExportUnpackLimit(uint64_t max_unpacked_mb);

}  // namespace pictavo::tools
