// What an editing action works on: the bitmap slot of the page being edited and the little the
// routines need to know about the job. One context per page and worker; nothing is shared.
#pragma once

#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "imaging/ie_bitmap.h"

namespace pictavo::settings {
class TMainSettings;
}

namespace pictavo::editing {

struct ActionContext {
  imaging::TIEBitmap* bmp = nullptr;  // the slot: a routine may replace the bitmap in it
  const settings::TMainSettings* settings = nullptr;
  std::string temp_folder;  // scratch files of tool-backed actions go here ("rcp" names)
  // The job's context for the tools of tool-backed actions; null = the process's.
  const tools::JobContext* job = nullptr;
  std::string work_file;     // the working file (split writes pages only into ".tif" files)
  int exif_orientation = 0;  // of the page as loaded, 0 unknown, else 1..8
  // Pages that follow the bitmap in the result (split); written back after it, in order.
  std::vector<imaging::TIEBitmap> extra_pages;
};

}  // namespace pictavo::editing
