// Tracing writers: the picture is reduced to black and white, traced by the vector tracer of the
// tool folder (potrace), and the drawing is written in the destination's format, directly where
// the tracer writes it and through the direct-conversion routines otherwise.
#include <algorithm>
#include <filesystem>
#include <string>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/text_encoding.h"
#include "write/writers.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using tools::Quoted;

// The picture as a 1-bit PBM for the tracer. Returns false when it cannot be made.
bool SaveBitmapForTracing(TZubConvert& self, const std::string& pbm) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, self.hand_over);
  if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) return false;
  self.snow(io);
  bmp.RemoveAlphaChannel(0xFFFFFF);  // transparent parts are background
  imaging::TImageEnProc proc(&bmp);
  if (bmp.PixelFormat() != imaging::TIEPixelFormat::ie1g && !proc.ConvertToBWThreshold(-1).ok())
    return false;
  io.Params().BitsPerSample = 1;
  io.Params().SamplesPerPixel = 1;
  return io.SaveToFile(pbm).ok() && tools::Produced(pbm);
}

// One tracer run. `corners` 0 gives straight segments only; about 1 gives smooth curves.
// "VEC"/"Ras2Vec_precision" (0..100) sets the size of the specks that are dropped: 100 keeps
// every pixel, 90 (the default) drops specks of up to 2 pixels.
bool Trace(TZubConvert& self, const std::string& pbm, const char* backend, const char* corners,
           const std::string& out) {
  const int precision = std::clamp(self.settings->vec.ras2vec_precision, 0, 100);
  const int turd = (100 - precision) / 5;
  self.HasTool("tovec1.bin");
  tools::RunTool(self.Job(), Quoted(self.Tool("tovec1.bin")) + " -a " + corners + " -t " +
                                 std::to_string(turd) + " --tight -b " + backend + " -o " +
                                 Quoted(out) + " " + Quoted(pbm));
  return tools::Produced(out);
}

int TraceTo(TZubConvert& self, const char* corners) {
  const std::string ext = platform::AsciiLower(fs::path(self.dest_file).extension().string());
  const std::string pbm = self.Scratch(".pbm");
  int status = 1;
  if (SaveBitmapForTracing(self, pbm)) {
    ScratchResult out(self.dest_file);
    if (ext == ".svg" || ext == ".dxf") {
      Trace(self, pbm, ext == ".svg" ? "svg" : "dxf", corners, out.path());
    } else {
      direct::TZubDirect local;
      direct::TZubDirect& d = self.direct ? *self.direct : local;
      d.settings = self.settings;
      d.exe_folder = self.exe_folder;
      d.temp_folder = self.temp_folder;
      d.job = self.job;
      // Map data goes through GeoJSON, which GDAL converts; other drawings through an EPS of the
      // tracing, which the PostScript routines convert (pstoedit's HPGL drivers draw nothing
      // from the tracer's PDF, but do from its EPS).
      const bool gis = ext == ".shp" || ext == ".dgn" || ext == ".mif";
      const std::string mid = self.Scratch(gis ? ".geojson" : ".eps");
      if (Trace(self, pbm, gis ? "geojson" : "eps", corners, mid)) {
        const int32_t r =
            gis ? direct::vec2vec(d, mid, out.path()) : direct::adobe2vec(d, mid, out.path());
        if (r != 0 && !d.error_text.empty()) self.error_text = d.error_text;
      }
      tools::RemovePath(mid);
    }
    if (out.Commit()) status = 0;
  }
  tools::RemovePath(pbm);
  return status;
}

}  // namespace

int vec_write(TZubConvert& self) {
  return TraceTo(self, "1");
}

int vec_write_old(TZubConvert& self) {
  return TraceTo(self, "0");
}

}  // namespace pictavo::writer
