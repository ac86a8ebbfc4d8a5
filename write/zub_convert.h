// TZubConvert: writes the finished raster file of one source in the job's target format
// ("Main"/"Dest_ext"), choosing a writer from an ordered table of target rows (writer_rows.cpp).
//
// One object per file and worker. Convert() and the writers it calls are safe to run in several
// workers at once, each with its own object; the only process-wide state they touch is the
// imaging engine's colour-management switch, which every worker of a job sets alike.
#pragma once

#include <string>
#include <string_view>

#include "engine/tools/job_context.h"
#include "engine/tools/written_files.h"
#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::direct {
class TZubDirect;
}
namespace pictavo::imaging {
class HandOverCache;
class TImageEnIO;
}  // namespace pictavo::imaging

namespace pictavo::writer {

struct WriterRow;
class TZubConvert;

// Runs the writer of a matched row; tests replace it to record the table walk.
using RowRunner = int (*)(TZubConvert& self, const WriterRow& row);

// Statuses of Convert besides 0 and the writers' own results.
inline constexpr int kNotHandled = 98;  // the target has no writer here
inline constexpr int kNothingWritten = 99;

class TZubConvert {
 public:
  // Set by the caller before Convert().
  int job_id = 0;
  std::string src_file;   // the raster file to write; a writer may replace it by an intermediate
  std::string dest_file;  // the file to create
  settings::TMainSettings* settings = nullptr;
  std::string temp_folder;  // the job's temporary folder
  // The worker's hand-over cache, reached by the writers' loaders and savers; null = none.
  imaging::HandOverCache* hand_over = nullptr;
  // The job's context (tool time-outs, stop flag) for the tools this stage runs; must outlive
  // the run. Null = the process's (tools::ProcessJobContext).
  const tools::JobContext* job = nullptr;
  tools::JobContext Job() const;
  direct::TZubDirect* direct = nullptr;  // for the vector routes; a local one is used when null
  // The job's source format: the bare lower-case extension of the original source file ("webp").
  // A WebP source sends the common raster group through the raster converter.
  std::string source_ext;
  // The job's common multi-page destination, used as dest_file when "Multipage"/"Option" is 2
  // or 4 (all sources of the job go into one file). Empty: dest_file is kept.
  std::string multipage_dest;
  // A TIFF target is written by copying src_file unchanged (the pipeline sets it when nothing
  // was edited and the source already is a TIFF).
  bool tiff_pass_through = false;

  // Set by Convert(). exe_folder is the engine's folder with a trailing delimiter; a caller may
  // set it beforehand to point the writers at another tool folder (tests do).
  std::string exe_folder;
  tools::WrittenFiles written_files;  // reset to {dest_file, 0}; multi-page writers fill it
  int page_index = -1;
  // A message a user can act on when a writer failed for want of a tool ("tool "x" is missing:
  // install PACKAGE" or "... is not available on this platform"); empty otherwise.
  std::string error_text;

  // Test seam: when set, runs in place of the matched row's writer.
  RowRunner row_runner = nullptr;

  // 0 written; 98 a target this dispatcher does not handle; 99 a route ran but nothing was
  // written; other values: the writer's failure.
  int Convert();
  // Convert() as one status value: its code, and on failure the first specific reason (a
  // missing tool, a tool's complaint, a job limit, a refused result; "" when none is known).
  pictavo::Status Run();

  // ---- Helpers for the writers ----
  // ";" + lower-cased "Main"/"Dest_ext" (without a front-end "a>" prefix or a point) + ";".
  std::string Key() const;
  // The bare lower-case target extension ("jpg").
  std::string DestExt() const;
  // Full path of a tool given by its name in the tool folder ("sc\sc.exe").
  std::string Tool(std::string_view name) const;
  // True when the tool is in the tool folder; otherwise records its missing-tool message.
  bool HasTool(std::string_view name);
  // A fresh scratch name in the temporary folder with `ext` (".png"; may be empty). The caller
  // deletes the file; the name's reservation marker goes with the pipeline's clean-up.
  std::string Scratch(const std::string& ext) const;

  // The per-frame hook run on every loaded frame before it is saved: applies the job's colour
  // depth choice ("Colors" keys, see docs/save-options.md) to frames of targets other than PNG,
  // which has its own rule.
  void snow(imaging::TImageEnIO& io);
};

}  // namespace pictavo::writer
