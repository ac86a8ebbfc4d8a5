// The reader's route table: an ordered list of rows, each a list of route keys (";ext;") and the
// reader routine that the keys lead to. Order is behaviour: TZubRead::Read offers the file to
// every row whose list holds its key, top to bottom, until one succeeds.
#pragma once

#include <climits>
#include <span>
#include <string_view>

#include "read/zub_read.h"

namespace pictavo::reader {

// A reader routine: reads r.src_file, writes r.out_file; 0 when out_file exists afterwards,
// otherwise non-zero (1 as a rule). Leaves no scratch file behind.
using ReadRoutine = int (*)(TZubRead& r);

// Returned by a routine whose row does not apply after all (a setting turns it off): the status
// stays what it was.
inline constexpr int kRouteSkipped = INT_MIN;

struct ReadRoute {
  std::string_view keys;       // matched by substring, exactly as written
  std::string_view more_keys;  // a second list (one row has two); empty for the others
  ReadRoutine read;
  std::string_view label;  // the reader's name, for logs and documentation
};

// The 78 rows in order.
std::span<const ReadRoute> ReadRoutes();

// True when `key` (";ext;") occurs in one of the row's lists.
constexpr bool RouteMatches(const ReadRoute& row, std::string_view key) {
  return row.keys.find(key) != std::string_view::npos ||
         (!row.more_keys.empty() && row.more_keys.find(key) != std::string_view::npos);
}

// The reader routines of the table, by family (one source file each).
// routes_raster_tools.cpp
int cpc_read(TZubRead& r);
int hpi_read(TZubRead& r);
int flif_read(TZubRead& r);
int kap_read(TZubRead& r);
int jp2000_read(TZubRead& r);
int exr_read(TZubRead& r);
int hdr_read(TZubRead& r);
int mix_fpx(TZubRead& r);
int dds_read(TZubRead& r);
int fits_read(TZubRead& r);
int new_fits_read(TZubRead& r);
int fits_by_setting(TZubRead& r);  // "FIT"/"Option" 1: fits_read, else new_fits_read
int f300_plus(TZubRead& r);
int f300_plus_raw(TZubRead& r);  // f300_plus with the raw-decoding switches (ORF)
// The re-read of a TIFF of 48 bits per pixel or more by the raster tool (f300_plus, first frame).
// When the tool folder's raster tool is the engine's own adapter, whose ImageMagick would only
// decode the file for the engine to read back, the engine's TIFF decoder reads it in-process;
// what that decoder cannot read still goes to the tool.
int deep_tiff_read(TZubRead& r);
int new_cal_read(TZubRead& r);
int sid_read(TZubRead& r);
int scn_read(TZubRead& r);
int scn_bio_read(TZubRead& r);
int svs_read(TZubRead& r);
int bpg_read(TZubRead& r);
int djvu_read(TZubRead& r);
int tif_read(TZubRead& r);
int pdn_read(TZubRead& r);
int cmp_read(TZubRead& r);
int dcm_read(TZubRead& r);
int ntf_read(TZubRead& r);
int heic_read(TZubRead& r);
int avif_read(TZubRead& r);
int dat_mpeg_read(TZubRead& r);
int dat_read_chain(TZubRead& r);  // dat_mpeg_read, then new_dat_read
int qoi_read(TZubRead& r);
int im_read(TZubRead& r);
// routes_camera_raw.cpp
int cine_read(TZubRead& r);
int raw_read(TZubRead& r);
int cr3_read(TZubRead& r);
int cr3_then_raw(TZubRead& r);  // cr3_read, then raw_read
// routes_archive.cpp
int zip_read(TZubRead& r);
int orb_read(TZubRead& r);
int new_php_read(TZubRead& r);
int new_mic_read(TZubRead& r);
int new_prj_read(TZubRead& r);
int ora_read(TZubRead& r);
int new_eip_read(TZubRead& r);
int imd_read(TZubRead& r);
// routes_animation.cpp
int apng_read(TZubRead& r);
// routes_vector.cpp
int adobe_read(TZubRead& r);  // quality 100
int vec_read(TZubRead& r);
int uniconvertor_read(TZubRead& r);
int swf_chain(TZubRead& r);  // swf_read as set, swf_read extracting, png_swf_extract_from_zip
// routes_models.cpp
int stl_read(TZubRead& r);
// routes_parsed.cpp: formats the engine reads itself
int bif_read(TZubRead& r);
int xif_read(TZubRead& r);
int psp_read(TZubRead& r);
int webshots(TZubRead& r);
int car_read(TZubRead& r);
int psd_read(TZubRead& r);            // only when "PSD"/"Load_layers" is on
int bmp_raw_read_chain(TZubRead& r);  // with header, then without
int rgb_read(TZubRead& r);
int dst_read(TZubRead& r);
int mix_read(TZubRead& r);
int psf_read(TZubRead& r);
int new_ppp_read(TZubRead& r);
int new_upi_read(TZubRead& r);
int vsi_read(TZubRead& r);
int new_dat_read(TZubRead& r);

}  // namespace pictavo::reader
