// TZubDirect: file-to-file conversions for vector, document, CAD, GIS and 3D pairs, without a
// bitmap in between. Direct() prepares the source, runs the first routine of the ordered pair
// table (direct_rows.cpp) whose source and target lists match, finishes PDF output and removes
// every prepared copy.
//
// One object per file and worker. Routines are free functions of routines.h with the shape
// `int32_t routine(TZubDirect&, source, destination)`; 0 is success.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "engine/tools/written_files.h"
#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::direct {

struct DirectRow;
class TZubDirect;

// Statuses of the direct routines besides 0.
inline constexpr int32_t kDirectFailed = 1;     // the tool ran (or not) and left no output
inline constexpr int32_t kDirectNoProgram = 2;  // no program on this platform serves the pair
inline constexpr int32_t kDirectNoRoute = 99;   // no row of the table matches the pair

// Runs the routine of a matched row; tests replace it to record the table walk.
using RowRunner = int32_t (*)(TZubDirect& self, const DirectRow& row);

class TZubDirect {
 public:
  // Set by the caller before Direct().
  std::string src_file;  // may be replaced during the call by a prepared temporary copy
  std::string dest_file;
  settings::TMainSettings* settings = nullptr;
  std::string exe_folder;   // the engine's folder, with a trailing delimiter
  std::string dest_folder;  // when empty, Direct() uses the source's folder
  std::string temp_folder;  // the job's temporary folder
  // The job's context (tool time-outs, stop flag) for the tools this stage runs; must outlive
  // the run. Null = the process's (tools::ProcessJobContext).
  const tools::JobContext* job = nullptr;
  tools::JobContext Job() const;
  tools::WrittenFiles more_files;  // further outputs of routines that write several files

  // The status of the routine that ran (0 success), or 99 when no pair matches (nothing is left
  // behind then).
  int32_t Direct();
  // Direct() as one status value: its code, and on failure the first specific reason (the
  // routine's own error_text first, then a missing tool, a tool's complaint, a refused result).
  pictavo::Status Run();

  // ---- State of one call (cleared by Direct at entry) ----
  std::string src_ext, dest_ext;  // bare lower-case words ("pdf")
  std::string src_tag, dest_tag;  // ";pdf;"
  bool fonts_replaced = false;    // svg_replace_fonts changed the source
  bool svg_round_trip = false;    // `adobe` passes its result through SVG and back
  bool ai_output = false;         // `adobe` writes AI: PDF with the "AI_Write" keys
  int32_t first_page = -1;        // page range of the PDF-writing command; -1 = whole file
  int32_t last_page = -1;
  bool pdf_mode = false;  // compact (ebook) PDF output
  int counter = 0;        // pages written by the last multi-file routine
  // The source's pages as a routine learned them from the PDF it made on the way (documents,
  // XPS); -1 when none did. The result check compares the result's pages with them.
  int source_pages = -1;
  const DirectRow* row = nullptr;  // the row that ran, if any
  // A message a user can act on when the last routine failed for want of a program.
  std::string error_text;

  // Test seam: when set, runs in place of the matched row's routine.
  RowRunner row_runner = nullptr;
  // Test seam: whether a result must pass its check before it counts (docs/engine.md); tests
  // whose fake tools write stand-ins turn it off.
  bool verify_results = true;

  // ---- Helpers for the routines ----
  // Full path of a tool given by its name in the tool folder ("ogr\ogr2ogr.exe").
  std::string Tool(std::string_view name) const;
  // The tool folder (engine folder + "utl/").
  std::string ToolFolder() const;
  // True when the tool is present; otherwise records its missing-tool message.
  bool HasTool(std::string_view name);
  // A fresh scratch name in the temporary folder with `ext` (".pdf"; may be empty). Every name
  // made here is forgotten (file, folder and reservation marker) when Direct() ends.
  std::string Scratch(const std::string& ext);

 private:
  std::vector<std::string> scratch_names_;
  void Prepare();
  void CleanScratch();
};

}  // namespace pictavo::direct
