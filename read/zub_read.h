// TZubRead: turns one input file of any supported kind into one raster file that the imaging
// engine opens (a multi-page TIFF for multi-frame inputs). The route is chosen by the lower-cased
// extension from an ordered table of extension lists (read_routes.cpp); what no route reads is
// loaded and saved by the imaging engine itself.
//
// One object per file and worker; not shared between threads. Read() is re-entrant for the one
// nested level that the archive readers use.
#pragma once

#include <string>

#include "settings/main_settings.h"

namespace pictavo::reader {

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

  // Set by Read().
  std::string exe_folder;  // the engine's folder, with a trailing delimiter
  std::string src_folder;  // folder part of src_file
  bool read_flag = false;  // false only when the camera-raw route produced the picture

  // 0 when out_file exists afterwards; 3 when the tool folder is missing; otherwise the status of
  // the last route tried (99 when none applied and the engine could not load the file).
  int Read();

  // True when the file's first line is longer than 4 characters and begins with "%pdf" (any case).
  static bool is_pdf(const std::string& path);
};

}  // namespace pictavo::reader
