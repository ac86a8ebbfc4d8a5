// PDF helpers shared by the writers and the direct conversions. They run tools of the tool folder
// ("pdfmerge.bin", "pdfpsai.bin") through the runner and judge success by the files left.
#pragma once

#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "platform/status.h"

namespace pictavo::tools {

// Joins `inputs` in order into `output` through "pdfmerge.bin":
//   "<tool>" "<a>" "<b>" ... cat output "<out>"
// When one command line would grow past kMaxCommandLine characters, the list is merged in passes:
// the first part into "merged.pdf", then that and the next part into "merged2.pdf", alternating,
// in a scratch folder of `temp_folder`. OK only when `output` exists and is not empty.
// In this file, `job` is the context the tools run under (time-outs, stop flag); null = the
// process's (ProcessJobContext).
inline constexpr size_t kMaxCommandLine = 32000;
Status MergePdfFiles(const std::vector<std::string>& inputs, const std::string& output,
                     const std::string& temp_folder, const JobContext* job = nullptr);

// Joins the page files "file*.pdf" of `folder` (in name order) through one wild-card argument:
//   "<tool>" "<folder>/file*.pdf" cat output "<out>"
Status MergePdfFolder(const std::string& folder, const std::string& output,
                      const JobContext* job = nullptr);

// Removes blank pages of `pdf` in place. Each page is rendered in grey at 40 dpi by
// "pdfpsai.bin"; a pixel darker than 240 of 255 is ink, and a page is blank when its share of ink
// pixels is at most (100 - accuracy) / 100 * 0.1 percent (accuracy 80: 0.02 %, about 30 pixels of
// a letter page; 100: no ink at all; 0: 0.1 %). The kept pages are written by "pdfmerge.bin" to a
// scratch file that then replaces `pdf`. A file whose pages are all blank, or none blank, is left
// as it is. `removed` (optional) receives the number of pages taken out.
Status RemoveBlankPages(const std::string& pdf, int accuracy, const std::string& temp_folder,
                        int* removed = nullptr, const JobContext* job = nullptr);

// Width and height in points of the largest page (by area) of `pdf`. Read from the file's own
// /MediaBox entries when every one of them is written out plainly; otherwise (page objects in
// compressed object streams, boxes given by reference) from the interpreter's page report
// ("pdfpsai.bin" -dPDFINFO). {0, 0} when neither tells.
struct PageSize {
  double width = 0, height = 0;
};
PageSize PdfLargestPage(const std::string& pdf, const std::string& temp_folder,
                        const JobContext* job = nullptr);

// The share of ink pixels (0..1) of a binary PGM (P5, 8-bit), or -1 when it cannot be read.
double PgmInkShare(const std::string& pgm_path);

}  // namespace pictavo::tools
