// TZubRead: turns one input file of any supported kind into one raster file that the imaging
// engine opens (a multi-page TIFF for multi-frame inputs). The route is chosen by the lower-cased
// extension from an ordered table of extension lists (read_routes.cpp); what no route reads is
// loaded and saved by the imaging engine itself.
//
// One object per file and worker; not shared between threads. Read() is re-entrant for the one
// nested level that the archive readers use.
#pragma once

#include <span>
#include <string>

#include "engine/tools/job_context.h"
#include "imaging/picture_limits.h"
#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::imaging {
class HandOverCache;
}

namespace pictavo::reader {

struct ReadRoute;

// Statuses of Read besides 0 and the routes' own results.
inline constexpr int kNoToolFolder = 3;  // the engine's folder holds no "utl" tool folder
inline constexpr int kNoRoute = 99;      // no route read the file and the engine could not

class TZubRead {
 public:
  // Set by the caller before Read().
  std::string src_file;  // input; replaced during a read by a temporary copy when needed
  std::string out_file;  // the raster file to produce; its extension picks the fall-back format
  settings::TMainSettings* settings = nullptr;
  // The settings file that tools are handed; when it does not exist, Read() writes the settings
  // to a scratch ".tmp" file for the time of the read.
  std::string settings_file;
  std::string temp_folder;  // the job's temporary folder (scratch names are made there)
  // The job's picture caps for what the engine decodes in-process; null = the defaults.
  const imaging::PictureLimits* picture_limits = nullptr;
  // The worker's hand-over cache, reached by every loader and saver of the read; null = none.
  imaging::HandOverCache* hand_over = nullptr;
  // The job's context (tool time-outs, stop flag) for the tools this stage runs; must outlive
  // the run. Null = the process's (tools::ProcessJobContext).
  const tools::JobContext* job = nullptr;
  tools::JobContext Job() const;
  // The engine's folder, whose "utl" sub-folder holds the tools; empty = the running
  // executable's folder. Tests point it at a folder of their own.
  std::string engine_folder;

  // Set by Read().
  std::string exe_folder;  // the engine's folder, with a trailing delimiter
  std::string src_folder;  // folder part of src_file
  bool read_flag = false;  // false only when the camera-raw route produced the picture
  int route_row = 0;       // the table row (1-based) being tried; 0 outside the chain

  // 0 when out_file exists afterwards; 3 when the tool folder is missing; otherwise the status of
  // the last route tried (99 when none applied and the engine could not load the file).
  int Read();
  // Read() as one status value: its code, and on failure the first specific reason noted while
  // reading (a missing tool and its package, a tool's own complaint, a job limit, a result that
  // verification refused); the message is "" when nothing specific is known.
  pictavo::Status Run();
  // Read() over another route table with the same shape (tests walk the real key lists with
  // recording routines).
  int ReadWith(std::span<const ReadRoute> routes);

  // True when the file's first line is longer than 4 characters and begins with "%pdf" (any case).
  static bool is_pdf(const std::string& path);

  // Renders src_file (PDF or PostScript) at 16 dpi through the interpreter into a scratch TIFF
  // (only the first page when `first_page_only`) and returns the number of distinct colours of
  // the preview, or -1 when nothing could be rendered. The scratch file is removed.
  int get_colors(bool first_page_only);

  // The temporary folder in use: temp_folder, else the settings' one.
  std::string TempFolder() const;

 private:
  int depth_ = 0;  // nesting level of Read(): the archive readers call it once more
};

}  // namespace pictavo::reader
