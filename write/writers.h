// The writer routines of TZubConvert. Each reads self.src_file (a raster picture), writes
// self.dest_file and returns 0 when the destination exists (and is not empty) afterwards,
// otherwise non-zero (1 as a rule). None modifies src_file's file. Tool command lines name every
// path in double quotes and run through the engine's tool runner; exit codes are not trusted.
// Every result is made under a scratch name beside the destination and renamed into place, so a
// failed or stopped write leaves no half-written destination.
#pragma once

#include <string>

#include "engine/tools/route_kit.h"
#include "write/zub_convert.h"

namespace pictavo::writer {

using Writer = int (*)(TZubConvert& self);

// ---- Engine-saved targets (simple_write.cpp) ----
int simple_write(TZubConvert& self);

// ---- The common raster group and the vector router (zub_convert.cpp) ----
int raster_group(TZubConvert& self);
// Row 11: a GIMP brush for ".gbr" with "GBR"/"Type" = 1, otherwise a traced drawing.
int brush_or_vector(TZubConvert& self);
int write_vector(TZubConvert& self);

// ---- Command-line encoders (writers_tools.cpp) ----
int webp_write(TZubConvert& self);
int avif_write(TZubConvert& self);
int bpg_write(TZubConvert& self);
int flif_write(TZubConvert& self);
int cal_write(TZubConvert& self);
int jxr_write(TZubConvert& self);
int gimp_gbr_write(TZubConvert& self);
int wpg_write(TZubConvert& self);
int ico_write(TZubConvert& self);
int save_more(TZubConvert& self);
int i_magick(TZubConvert& self);

// ---- Documents: PDF, PostScript, PCL, searchable PDF, SVG with a picture (writers_docs.cpp) ----
int adobe_write(TZubConvert& self);
int pcl_write(TZubConvert& self);
int to_pdf_with_ocr(TZubConvert& self);
int svg_raster_write(TZubConvert& self);

// ---- Tracing (writers_vector.cpp) ----
// Traces the picture with smooth curves into the destination's drawing format.
int vec_write(TZubConvert& self);
// Traces with straight segments only, the form that DXF and HPGL consumers expect.
int vec_write_old(TZubConvert& self);

// ---- Shared quality formulas of the encoders (writers_tools.cpp) ----
// AVIF quantizer: 60 - round(Q * 60 / 100).
int AvifQuantizer(int quality);
// BPG quantizer: 51 - (Q div 2), limited to 0..51.
int BpgQuantizer(int quality);

// ---- Shared helpers (zub_convert.cpp) ----
// A result file made under a scratch name beside its destination (same extension), then renamed
// into place. The scratch file and its reservation marker are removed whatever happens.
class ScratchResult {
 public:
  explicit ScratchResult(const std::string& dest);
  ~ScratchResult();
  ScratchResult(const ScratchResult&) = delete;
  ScratchResult& operator=(const ScratchResult&) = delete;

  const std::string& path() const { return path_; }
  // Renames the scratch file over the destination when it was produced; true on success.
  bool Commit();

 private:
  std::string dest_;
  std::string base_;  // the reserved scratch name without extension
  std::string path_;
};

}  // namespace pictavo::writer
