// Raster formats read by a tool of the tool folder (or by the engine itself), each in the common
// shape: run the tool into a scratch file, then save that file to out_file with the engine.
#include <filesystem>

#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

// "<tool>" <before> "<src>" <after>: the most common command line.
int ToolToScratch(TZubRead& r, std::string_view tool, std::string_view ext,
                  const std::string& before, const std::string& after_src) {
  if (!HasTool(r, tool)) return 1;
  Scratch out(r, ext);
  // "%o" in the caller's parts marks the place of the scratch output.
  auto place = [&](std::string part) {
    const size_t at = part.find("%o");
    if (at != std::string::npos) part.replace(at, 2, platform::Quoted(out.path()));
    return part;
  };
  const std::string cmd = ToolArg(r, tool) + " " + place(before) + platform::Quoted(r.src_file) +
                          " " + place(after_src);
  return RunThenSave(r, tool, cmd, out.path());
}

int F300ToTiff(TZubRead& r, const std::string& switches) {
  return ToolToScratch(r, "f300_uni.exe", ".tif", switches + "-quiet -out tiff -o %o ", "");
}

}  // namespace

int cpc_read(TZubRead& r) {
  // The tool asks questions on its input; the answers come from a file beside it.
  if (!HasTool(r, "cpc_read.exe")) return 1;
  Scratch out(r, ".bmp");
  const std::string cmd = ToolArg(r, "cpc_read.exe") + " " + platform::Quoted(r.src_file) + " " +
                          platform::Quoted(out.path()) + " < " +
                          platform::Quoted(Tool(r, "yes.txt"));
  tools::RunBatch(r.Job(), cmd, r.TempFolder());
  return SavePicture(r, out.path());
}

int hpi_read(TZubRead& r) {
  // Some HPI files keep the picture in their second page.
  for (const char* page : {"0", "1"}) {
    const std::string switches =
        std::string("-page ") + page + " -npcd 4 -ignore_errors -quiet -out png -c 3 -o %o ";
    if (ToolToScratch(r, "f300_uni.exe", ".png", switches, "") == 0) return 0;
  }
  return 1;
}

int flif_read(TZubRead& r) {
  return ToolToScratch(r, "flif.exe", ".ppm", "-n ", "%o");
}

int kap_read(TZubRead& r) {
  return ToolToScratch(r, "kap_read.bin", ".ppm", "", "%o");
}

int jp2000_read(TZubRead& r) {
  // JPEG 2000 (boxed or bare), PNM and DIB are decoded by the engine itself.
  return SavePicture(r, r.src_file);
}

int exr_read(TZubRead& r) {
  return ToolToScratch(r, "convert.bin", ".png", "", "%o");
}

int hdr_read(TZubRead& r) {
  return ToolToScratch(r, "hdr_read.bin", ".tif", "", "%o");
}

int mix_fpx(TZubRead& r) {
  return ToolToScratch(r, "mixfpx\\mix_fpx.bin", ".bmp", "", "%o");
}

int dds_read(TZubRead& r) {
  // The tool writes "<folder>/<input name>.tif" into the folder named by "-o".
  if (!HasTool(r, "texconv.exe")) return 1;
  Scratch folder(r, "");
  std::error_code ec;
  fs::create_directories(folder.path(), ec);
  const std::string cmd = ToolArg(r, "texconv.exe") + " -f B8G8R8X8_UNORM -y -ft tif -o " +
                          platform::Quoted(folder.path()) + " " + platform::Quoted(r.src_file);
  tools::RunTool(r.Job(), cmd);
  const std::vector<std::string> files = ListFiles(folder.path(), false);
  return files.empty() ? 1 : SavePicture(r, files.front());
}

int fits_read(TZubRead& r) {
  return ToolToScratch(r, "convert.bin", ".png", "", "-depth 8 %o");
}

int new_fits_read(TZubRead& r) {
  return ToolToScratch(r, "fits.exe", ".bmp", "", "%o");
}

int fits_by_setting(TZubRead& r) {
  return (r.settings && r.settings->fit.option == 1) ? fits_read(r) : new_fits_read(r);
}

int f300_plus(TZubRead& r) {
  return F300ToTiff(r, "");
}

int deep_tiff_read(TZubRead& r) {
  if (HasTool(r, "f300_uni.exe") && tools::IsOwnAdapter(Tool(r, "f300_uni.exe"))) {
    // Only a decode at the file's own depth stands in for the tool: the decoder's fall-back
    // for other layouts (tiles, planes, extra samples) cuts 16-bit samples to 8 bits itself.
    imaging::TIEBitmap bitmap;
    bitmap.SetLimits(r.picture_limits);
    imaging::TImageEnIO io(&bitmap, r.hand_over);
    const bool deep = io.LoadFromFile(r.src_file).ok() &&
                      (bitmap.PixelFormat() == imaging::TIEPixelFormat::ie48RGB ||
                       bitmap.PixelFormat() == imaging::TIEPixelFormat::ie16g);
    if (deep && SaveLoaded(r, io) == 0) return 0;
  }
  return f300_plus(r);
}

int f300_plus_raw(TZubRead& r) {
  return F300ToTiff(r, "-raw_autobright -raw_camerabalance ");
}

int new_cal_read(TZubRead& r) {
  return F300ToTiff(r, "");
}

int sid_read(TZubRead& r) {
  // The MrSID decoder writes a TIFF that the raster tool then normalises.
  if (!HasTool(r, "sid_read.bin")) return 1;
  Scratch decoded(r, ".tif");
  tools::RunTool(r.Job(), ToolArg(r, "sid_read.bin") + " " + platform::Quoted(r.src_file) + " " +
                              platform::Quoted(decoded.path()));
  if (!tools::Produced(decoded.path())) return 1;
  Scratch out(r, ".tif");
  tools::RunTool(r.Job(), ToolArg(r, "f300_uni.exe") + " -quiet -out tiff -o " +
                              platform::Quoted(out.path()) + " " +
                              platform::Quoted(decoded.path()));
  return SavePicture(r, out.path());
}

int scn_read(TZubRead& r) {
  return ToolToScratch(r, "vips\\vips.exe", ".tif", "tiffsave ", "%o");
}

int scn_bio_read(TZubRead& r) {
  // Second try: the slide's lowest-resolution level, which stays within the engine's limits.
  if (!HasTool(r, "vips\\vips.exe")) return 1;
  Scratch out(r, ".tif");
  const int level = r.settings ? r.settings->scn.level : 1;
  const std::string cmd = ToolArg(r, "vips\\vips.exe") + " tiffsave " +
                          platform::Quoted(r.src_file + "[level=" + std::to_string(level) + "]") +
                          " " + platform::Quoted(out.path());
  return RunThenSave(r, "vips\\vips.exe", cmd, out.path());
}

int svs_read(TZubRead& r) {
  return ToolToScratch(r, "vips\\vips.exe", ".tif", "tiffsave ", "%o");
}

int bpg_read(TZubRead& r) {
  return ToolToScratch(r, "bpgdec.bin", ".png", "-o %o ", "");
}

int djvu_read(TZubRead& r) {
  return ToolToScratch(r, "djvu_read.bin", ".tif", "-2 -quality=50 -format=tiff ", "%o");
}

int tif_read(TZubRead& r) {
  return ToolToScratch(r, "libtiff\\tiff2rgba.exe", ".tif", "-c zip ", "%o");
}

int pdn_read(TZubRead& r) {
  if (!HasTool(r, "pdn2bmp.bin")) return 1;
  Scratch out(r, ".bmp");
  const std::string cmd = ToolArg(r, "pdn2bmp.bin") + " " + platform::Quoted(r.src_file) +
                          " /outfile=" + platform::Quoted(out.path());
  return RunThenSave(r, "pdn2bmp.bin", cmd, out.path());
}

int cmp_read(TZubRead& r) {
  return ToolToScratch(r, "cmp_read.bin", ".bmp", "", "%o 100");
}

int dcm_read(TZubRead& r) {
  if (!HasTool(r, "dcm_read_new.bin")) return 1;
  Scratch out(r, ".tif");
  const std::string cmd = ToolArg(r, "dcm_read_new.bin") + " " + platform::Quoted(r.src_file) +
                          " /tifc=1 /convert=" + platform::Quoted(out.path()) + " /silent";
  return RunThenSave(r, "dcm_read_new.bin", cmd, out.path());
}

int ntf_read(TZubRead& r) {
  return ToolToScratch(r, "ntf\\ntf_read.bin", ".tif", "", "%o");
}

int heic_read(TZubRead& r) {
  return ToolToScratch(r, "convert.bin", ".png", "", "%o");
}

int avif_read(TZubRead& r) {
  return ToolToScratch(r, "avifdec.exe", ".png", "-d 8 ", "%o");
}

int dat_mpeg_read(TZubRead& r) {
  return ToolToScratch(r, "ffmpeg.exe", ".png", "-i ", "-f image2 %o");
}

int dat_read_chain(TZubRead& r) {
  return dat_mpeg_read(r) == 0 ? 0 : new_dat_read(r);
}

int qoi_read(TZubRead& r) {
  return ToolToScratch(r, "qoiconv.exe", ".png", "", "%o");
}

int im_read(TZubRead& r) {
  return ToolToScratch(r, "convert.bin", ".tif", "", "-depth 8 -compress lzw %o");
}

}  // namespace pictavo::reader
