// Camera raw files. The raw decoder of the tool folder takes LibRaw's dcraw_emu switches
// (-T: write TIFF, -Z: output file); ExifTool copies the original's metadata to the result, since
// the decoder writes none.
#include <string>

#include "engine/tools/runner.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace {

// Decoder switches from the "Raw_read" settings.
std::string RawSwitches(const TZubRead& r) {
  std::string s = "-T ";
  if (!r.settings) return s + "-w ";
  const auto& o = r.settings->raw_read;
  if (o.white_balance == 3)
    s += "-w ";  // as the camera shot it
  else if (o.white_balance == 2)
    s += "-a ";  // averaged over the picture
  if (o.brightness > 0 && o.brightness != 100)
    s += "-b " + std::to_string(o.brightness / 100.0).substr(0, 4) + " ";
  if (o.half_size) s += "-h ";
  if (o.bits16) s += "-4 ";
  if (o.interpolation >= 0 && o.interpolation <= 3)
    s += "-q " + std::to_string(o.interpolation) + " ";
  if (o.denoise) s += "-n 100 ";
  return s;
}

int DecodeWith(TZubRead& r, std::string_view decoder) {
  if (!HasTool(r, decoder)) return 1;
  Scratch out(r, ".tif");
  tools::RunTool(r.Job(), ToolArg(r, decoder) + " " + RawSwitches(r) + "-Z " +
                              platform::Quoted(out.path()) + " " + platform::Quoted(r.src_file));
  if (!tools::Produced(out.path())) return 1;
  if (HasTool(r, "exiftool.exe"))
    tools::RunTool(r.Job(), ToolArg(r, "exiftool.exe") + " -overwrite_original -TagsFromFile " +
                                platform::Quoted(r.src_file) + " \"-all:all\" " +
                                platform::Quoted(out.path()));
  return SavePicture(r, out.path());
}

}  // namespace

int raw_read(TZubRead& r) {
  int status = DecodeWith(r, "raw_read.bin");
  if (status != 0) status = DecodeWith(r, "raw_read_old.bin");
  // The pipeline treats a picture from the raw decoder differently (no EXIF rotation of its own).
  if (status == 0) r.read_flag = false;
  return status;
}

int cine_read(TZubRead& r) {
  return DecodeWith(r, "raw_read.bin");
}

int cr3_read(TZubRead& r) {
  // The full-size JPEG that every CR3 carries, extracted by ExifTool.
  if (!HasTool(r, "exiftool.exe")) return 1;
  Scratch preview(r, ".jpg");
  tools::RunBatch(r.Job(),
                  ToolArg(r, "exiftool.exe") + " -b -JpgFromRaw " + platform::Quoted(r.src_file) +
                      " > " + platform::Quoted(preview.path()),
                  r.TempFolder());
  return SavePicture(r, preview.path());
}

int cr3_then_raw(TZubRead& r) {
  if (cr3_read(r) == 0) return 0;
  return raw_read(r);
}

}  // namespace pictavo::reader
