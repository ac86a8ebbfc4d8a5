// The saving step of the pipeline: putting a finished file at its result name, extra copies,
// thumbnails, and moving or deleting the original. See docs/engine.md ("Saving").
//
// Data safety: a result is first copied into the destination folder under a hidden scratch
// name and then renamed over its final name, so a stopped or killed job never leaves a
// half-written result; a source file is never a destination (a result that would land on its
// own source is kept under a numbered name). Thread-safe: workers save different files.
#pragma once

#include <string>

#include "engine/tools/job_context.h"
#include "platform/status.h"
#include "settings/main_settings.h"
#include "settings/message_table.h"

namespace pictavo::pipeline {

// "Save"/"Overwrite": what happens when the result name exists already.
enum class OverwritePolicy { kReplace = 1, kSkip = 2, kKeepBoth = 3 };
OverwritePolicy PolicyOf(int overwrite_setting);  // 1, 2, 3; anything else keeps both

// The same file, by path (without regard to case where the file system ignores it).
bool SamePath(const std::string& a, const std::string& b);

// "name.ext" -> "name (2).ext", the first such name that does not exist.
std::string NumberedName(const std::string& path);

// Copies `file` to `dest` under a scratch name in dest's folder (creating the folder), then
// renames it into place. `dest` must not exist unless `replace` is set.
Status PlaceFile(const std::string& file, const std::string& dest, bool replace);

struct SaveResult {
  bool ok = false;       // the result exists under `final_path`
  bool skipped = false;  // an existing result was kept ("was skipped")
  std::string final_path;
  std::string error;  // why the result could not be put in place
};

// Saves one written file of `source` at `dest` following the "Save" keys: Overwrite,
// Same_Date, Create_copies/Number_of_copies/Copy_mask/Copy_counter. Appends its log lines.
// `name_note` (optional) follows the "Saving result to:" line, as " (" + note + ")".
SaveResult SaveWritten(const std::string& written, const std::string& dest,
                       const std::string& source, int index,
                       const settings::TMainSettings& settings,
                       const settings::MessageTable& messages, std::string& log,
                       const std::string& name_note = std::string());

// Writes the thumbnails of the enabled thumbnail sets from the picture `picture` (any raster
// file the imaging engine reads), one line "Saving thumbnail to:" each. `page` is 0-based; a set
// with "First_p" only serves the first page.
void create_thumb(const std::string& picture, const settings::DestNames& names, int page,
                  const settings::TMainSettings& settings, const settings::MessageTable& messages,
                  std::string& log);

// After a processed file: moves it to "Move_files_folder" or deletes it, as the settings say,
// then removes its folder when "Delete_folders" is on and the folder is empty. After a failed
// file: moves it to "Move_unprocessed_files_folder" when "Move_unprocessed_files" is on.
void FinishOriginal(const std::string& source, bool processed,
                    const settings::TMainSettings& settings, const settings::MessageTable& messages,
                    std::string& log);

// PDF finishing of a written PDF (a scratch file of the job, changed in place) from the
// "PDF_write" keys that its writer did not apply: user and owner passwords with the permissions,
// PDF/A, linearising ("Create_linearized_pdf"), text to curves ("curves_pdf") and image
// resolution ("image_res_pdf", in dpi, when above 0), in one pass of the interpreter
// "utl/pdfpsai.bin". A PDF that is already encrypted is left as it is. On failure the file
// stays unfinished and a line says so. True when nothing was needed or the pass succeeded.
// `job`: the job's context for the interpreter's run; null = the process's.
bool FinishPdf(const std::string& pdf, const settings::TMainSettings& settings,
               const std::string& temp_folder, const settings::MessageTable& messages,
               std::string& log, const tools::JobContext* job = nullptr);

// "\r\n" + three blanks: how every step line of a file begins.
inline constexpr char kStepPrefix[] = "\r\n   ";

}  // namespace pictavo::pipeline
