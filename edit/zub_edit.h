// TZubEdit: applies the job's editing actions (the .act file, plus the transparency line from the
// settings) to one working image, page by page, and logs one line per action.
//
// One object per file and worker. The working file is always a scratch copy made by the pipeline;
// a source file is never written.
#pragma once

#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "imaging/ie_bitmap.h"
#include "imaging/io_params.h"
#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::imaging {
class HandOverCache;
}

namespace pictavo::editing {

class TZubEdit {
 public:
  // Set by the caller before Edit().
  std::string work_file;    // the scratch raster file to edit in place
  std::string source_file;  // the source's name, for parameters and metadata
  settings::TMainSettings* settings = nullptr;
  std::string act_file;     // the editing-actions file; empty when the job has none
  std::string temp_folder;  // the job's temporary folder
  // The job's picture caps for the pictures the actions make; null = the defaults.
  const imaging::PictureLimits* picture_limits = nullptr;
  // The worker's hand-over cache, reached by the edit's loader and saver; null = none.
  imaging::HandOverCache* hand_over = nullptr;
  // The job's context (tool time-outs, stop flag) for the actions' tools; must outlive the run.
  // Null = the process's (tools::ProcessJobContext).
  const tools::JobContext* job = nullptr;

  // Output: whether the edited picture has an alpha channel (cleared at the start of Edit).
  bool has_alpha = false;

  // 0 processed (single actions may have failed), 3 the image has no width or height,
  // 33 nothing to do (transparency-only mode on an image without alpha).
  // The log gets one line per action ("     " + display name + "..." + done/failed/skipped
  // text) and, for multi-page files, a header per page ("     " + page label + " " + page + ":").
  int Edit(std::string& log, const std::string& done_text, const std::string& page_label,
           const std::string& skipped_text, const std::string& failed_text);
  // Edit() as one status value: 3 with the first specific reason when the picture could not be
  // edited; OK otherwise (33, nothing to do, is no failure).
  pictavo::Status Run(std::string& log, const std::string& done_text, const std::string& page_label,
                      const std::string& skipped_text, const std::string& failed_text);

 private:
  // The action lines of the job: the .act file's, with the transparency line of the settings
  // first; `transparency_only` when that line is all there is.
  std::vector<std::string> ActionLines(bool& transparency_only) const;
  // Writes one edited page: over the working file, or appended to `scratch` when the result has
  // several pages. False when it could not be written.
  bool WritePage(imaging::TIEBitmap& page, const imaging::TIOParamsVals& params, bool to_pages,
                 const std::string& scratch);
};

// True when the file's header shows a first picture without alpha (a transparent colour counts
// as alpha), in a format whose header reader states it: transparency alone then has nothing to
// do, and the picture need not be decoded.
bool HeaderRulesOutAlpha(const std::string& file);

}  // namespace pictavo::editing
