// TZubDirect: file-to-file conversions for vector, document, CAD, GIS and 3D pairs, without a
// bitmap in between. Direct() prepares the source, runs the first routine of the ordered pair
// table (direct_rows.cpp) whose source and target lists match, finishes PDF output and removes
// every prepared copy.
//
// One object per file and worker.
#pragma once

#include <cstdint>
#include <string>

#include "pipeline/written_files.h"
#include "settings/main_settings.h"

namespace pictavo::direct {

class TZubDirect {
 public:
  // Set by the caller before Direct().
  std::string src_file;   // may be replaced during the call by a prepared temporary copy
  std::string dest_file;
  settings::TMainSettings* settings = nullptr;
  std::string exe_folder;   // the engine's folder, with a trailing delimiter
  std::string dest_folder;  // when empty, Direct() uses the source's folder
  std::string temp_folder;  // the job's temporary folder
  pipeline::WrittenFiles more_files;  // further outputs of routines that write several files

  // The status of the routine that ran (0 success), or 99 when no pair matches (nothing is left
  // behind then).
  int32_t Direct();
};

}  // namespace pictavo::direct
