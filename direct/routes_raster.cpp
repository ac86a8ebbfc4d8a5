// Raster specials that skip the bitmap pipeline: animated GIF to WebP, slide scans (OpenSlide
// through vips), large and high-dynamic-range images, FITS and DICOM through ImageMagick.
#include <algorithm>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/tool_paths.h"

namespace pictavo::direct {

using tools::Quoted;

namespace {

int32_t Magick(TZubDirect& self, const std::string& src_arg, Path dest,
               const std::string& options = std::string()) {
  self.HasTool("convert.bin");
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool("convert.bin")) + " " + Quoted(src_arg) + options + " " +
                           Quoted(dest),
                       dest)
             ? 0
             : kDirectFailed;
}

// A slide scan at the pyramid level of the settings (1 = full resolution).
int32_t Slide(TZubDirect& self, Path src, Path dest, int level) {
  constexpr char kVips[] = "vips\\vips.exe";
  self.HasTool(kVips);
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool(kVips)) + " openslideload " + Quoted(src) + " " +
                           Quoted(dest) + " --level " + std::to_string(std::max(level, 1) - 1),
                       dest)
             ? 0
             : kDirectFailed;
}

}  // namespace

int32_t gif2webp(TZubDirect& self, Path src, Path dest) {
  self.HasTool("gif2webp.exe");
  return tools::RunFor(
             self.Job(),
             Quoted(self.Tool("gif2webp.exe")) + " -quiet " + Quoted(src) + " -o " + Quoted(dest),
             dest)
             ? 0
             : kDirectFailed;
}

int32_t convert_svs(TZubDirect& self, Path src, Path dest) {
  return Slide(self, src, dest, self.settings->svs.level);
}

int32_t convert_scn(TZubDirect& self, Path src, Path dest) {
  return Slide(self, src, dest, self.settings->scn.level);
}

int32_t convert_psb(TZubDirect& self, Path src, Path dest) {
  return Magick(self, src + "[0]", dest);  // the composite image
}

int32_t convert_exr(TZubDirect& self, Path src, Path dest) {
  return Magick(self, src, dest);
}

int32_t convert_vsi(TZubDirect& self, Path, Path) {
  return NoProgram(self, "convert_vsi");
}

int32_t raw2fits(TZubDirect& self, Path, Path) {
  return NoProgram(self, "raw2fits");
}

int32_t i_magick(TZubDirect& self, Path src, Path dest) {
  if (ExtOf(src) != "dcm") return Magick(self, src, dest);
  // ImageMagick misreads many DICOM files; DCMTK decodes them first.
  const std::string tif = self.Scratch(".tif");
  self.HasTool("dcm_read_new.bin");
  int32_t status = kDirectFailed;
  if (tools::RunFor(self.Job(),
                    Quoted(self.Tool("dcm_read_new.bin")) + " " + Quoted(src) +
                        " /tifc=1 /convert=" + Quoted(tif) + " /silent",
                    tif))
    status = Magick(self, tif, dest);
  tools::RemovePath(tif);
  return status;
}

int32_t cal2pdf(TZubDirect& self, Path src, Path dest) {
  // CALS is bilevel: a G4 TIFF wrapped into PDF without recompression.
  const std::string tif = self.Scratch(".tif");
  int32_t status = Magick(self, src, tif, " -compress Group4");
  if (status == 0) {
    self.HasTool("img2pdf.bin");
    status = tools::RunFor(
                 self.Job(),
                 Quoted(self.Tool("img2pdf.bin")) + " -o " + Quoted(dest) + " " + Quoted(tif), dest)
                 ? 0
                 : kDirectFailed;
  }
  tools::RemovePath(tif);
  return status;
}

}  // namespace pictavo::direct
