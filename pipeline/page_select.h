// Page handling of the read stage and of multi-page results.
#pragma once

#include <string>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::pipeline {

// True when the file is a TIFF whose first page the imaging engine can read.
bool valid_tif(const std::string& path);

// The blank-page test: a pixel darker than 240 of 255 (by luminance) is ink; the page is blank
// when the share of ink pixels is at most (100 - accuracy) / 100 * 0.1 percent.
bool IsBlankPage(const imaging::TIEBitmap& page, int accuracy);

struct PageSelection {
  std::string file;        // the new multi-page TIFF, empty when the picture stays as it is
  int pages = 1;           // pages of the picture the next stages get
  bool all_blank = false;  // no page remained
};

// Keeps the pages of a multi-page picture that "Multipage_settings"/"Loading_pages" selects
// (when "Loading_option" is not 1 and a list is given) and drops blank pages when
// "Skip_blank_settings"/"Skip_blank" is on, by appending the kept pages to a new TIFF in
// `temp_folder`. A single-page picture, or one where every page is kept, stays as it is.
// `cache`: the worker's hand-over cache, through which the picture is probed and loaded.
PageSelection SelectPages(const std::string& picture, const settings::TMainSettings& settings,
                          const std::string& temp_folder, imaging::HandOverCache* cache = nullptr);

// Writes every frame of a raster file the engine reads into a (multi-page) TIFF, losslessly
// and uncompressed (it is a scratch file). A JPEG is decoded at 1/jpeg_scale_denom of its size.
// `cache`: the worker's hand-over cache, through which the copy is loaded and saved.
Status CopyAsTiff(const std::string& source, const std::string& tiff, int jpeg_scale_denom = 1,
                  imaging::HandOverCache* cache = nullptr);

// The JPEG scale denominator (1, 2, 4 or 8) at which `picture` may be decoded before the
// actions of `act_file` run: above 1 only when the file holds a single resize (or resize2)
// with a smoothing filter that shrinks the picture by that factor or more, so that the
// resize still finishes from at least its target size. 1 for anything else.
int ShrinkOnLoad(const std::string& picture, const std::string& act_file,
                 imaging::HandOverCache* cache = nullptr);

// The result name of page `page` (0-based) of a multi-page result: a "#" run of the naming
// template counts the pages; without one (and without a "<page:>" token) "_page_" and the
// two-digit page number are added to the name.
std::string PageDestination(const settings::TMainSettings& settings, const std::string& source,
                            int index, int page);

}  // namespace pictavo::pipeline
