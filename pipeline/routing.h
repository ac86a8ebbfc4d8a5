// The routing decision of one file: does it go through the bitmap stages (read, edit, convert,
// save) or through one direct file-to-file conversion? Made once per file when a worker takes it.
//
// The lists and their order are behaviour: the first matching row wins, the vetoes run last and
// in order. Content probes (misnamed raster files, PostScript ".dat" files, MIME messages, images
// inside PDF files) read the source; nothing is written. Thread-safe.
#pragma once

#include <string>
#include <string_view>

#include "settings/main_settings.h"

namespace pictavo::pipeline {

// ";" + lower-case extension without its point + ";" (";tif;"); ";;" for a name without one.
std::string TypeTag(std::string_view path);
// The tag of a target format given as an extension ("PNG", ".png", "jpg>JPG" is not expected).
std::string TargetTag(std::string_view ext);
// True when `tag` occurs in `list` (the engine's membership test on type tags).
bool InList(std::string_view tag, std::string_view list);

// Lists shared with the read stage.
inline constexpr std::string_view kCameraRawList =
    ";ari;obm;3fr;cap;dcs;drf;eip;iiq;ptx;pxn;r3d;rwl;rwz;srw;cine;mef;qtk;rw2;arw;bay;bmq;cr2;"
    "crw;cs1;dc2;dcr;dng;erf;ia;k25;kc2;mdc;mos;mrw;nef;pef;pxn;raf;raw;rdc;sr2;srf;x3f;sti;fff;"
    "tif;iiq;";
// Sources the imaging engine opens itself, by extension.
inline constexpr std::string_view kEngineRasterList =
    ";jpeg;jpg;bmp;gif;pcx;png;tga;tif;tiff;ico;ppm;pbm;pgm;";

struct Route {
  std::string source_tag;
  std::string target_tag;
  bool direct = false;
  bool raw_or_postscript = false;  // the source is in the camera-raw and PostScript list
  bool read_16bit = false;         // the reader keeps 16 bits per channel
  bool keep_hdr = false;           // the writer keeps the high dynamic range
  bool misnamed_raster = false;    // a raster file under a foreign extension
};

// The decision for `source` going to the target "Main"/"Dest_ext" of `settings`. A check-only
// job never goes direct.
Route DecideRoute(const std::string& source, const settings::TMainSettings& settings,
                  bool check_only);

}  // namespace pictavo::pipeline
