// TZubConvert: writes the finished raster file of one source in the job's target format
// ("Main"/"Dest_ext"), choosing a writer from an ordered table of target rows (writer_rows.cpp).
//
// One object per file and worker.
#pragma once

#include <string>

#include "pipeline/written_files.h"
#include "settings/main_settings.h"

namespace pictavo::direct {
class TZubDirect;
}

namespace pictavo::writer {

class TZubConvert {
 public:
  // Set by the caller before Convert().
  int job_id = 0;
  std::string src_file;   // the raster file to write; a writer may replace it by an intermediate
  std::string dest_file;  // the file to create
  settings::TMainSettings* settings = nullptr;
  std::string temp_folder;                 // the job's temporary folder
  direct::TZubDirect* direct = nullptr;    // for the vector routes

  // Set by Convert().
  std::string exe_folder;
  pipeline::WrittenFiles written_files;  // reset to {dest_file, 0}; multi-page writers fill it
  int page_index = -1;

  // 0 written; 98 a target this dispatcher does not handle; other values: the writer's failure.
  int Convert();
};

}  // namespace pictavo::writer
