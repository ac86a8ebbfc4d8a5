// Targets written by command-line encoders of the tool folder. The encoders get an intermediate
// file that the engine saves from the picture, so every tool reads a format it knows.
#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

#include "engine/tools/tool_paths.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "write/writers.h"

namespace pictavo::writer {
namespace {

using tools::Quoted;
using BuildCommand = std::function<std::string(const std::string& tmp, const std::string& dest)>;

// An encoder the engine runs itself in place of the tool: fills `bytes` and returns true, or
// returns false when this picture has to go through the tool.
using InProcess = std::function<bool(imaging::TIEBitmap& bmp, std::vector<uint8_t>& bytes)>;

// Saves the loaded picture as `tmp` for a tool. Returns the picture's horizontal resolution, or 0
// when nothing was saved.
int SaveLoaded(imaging::TImageEnIO& io, const std::string& tmp) {
  // The tool reads the file once, right away: writing it fast beats writing it small.
  io.Params().PNG_Compression = 0;
  io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_UNCOMPRESSED;
  if (!io.SaveToFile(tmp).ok()) return 0;
  return std::max(1, io.Params().DpiX);
}

// Loads src_file with the engine and runs the per-frame hook; false when nothing was loaded.
bool LoadSource(TZubConvert& self, imaging::TIEBitmap& bmp, imaging::TImageEnIO& io) {
  if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) return false;
  self.snow(io);
  return true;
}

// Loads src_file and saves it as `tmp`, as SaveLoaded.
int SaveIntermediate(TZubConvert& self, const std::string& tmp) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, self.hand_over);
  return LoadSource(self, bmp, io) ? SaveLoaded(io, tmp) : 0;
}

// The common shape of the encoders: intermediate file, one tool run, the intermediate deleted.
// `in_process`, when given and the tool is there, answers first.
int EncodeThrough(TZubConvert& self, const std::string& ext, std::string_view tool,
                  const BuildCommand& build, const InProcess& in_process = nullptr) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, self.hand_over);
  if (!LoadSource(self, bmp, io)) return 1;
  if (in_process && self.HasTool(tool)) {
    std::vector<uint8_t> bytes;
    if (in_process(bmp, bytes)) {
      const std::string_view view(reinterpret_cast<const char*>(bytes.data()), bytes.size());
      return platform::WriteFileAtomic(self.dest_file, view, false).ok() ? 0 : 1;
    }
  }
  const std::string tmp = self.Scratch(ext);
  int status = 1;
  if (SaveLoaded(io, tmp) > 0 && tools::Produced(tmp)) {
    self.HasTool(tool);
    ScratchResult out(self.dest_file);
    tools::RunTool(self.Job(), build(tmp, out.path()));
    if (out.Commit()) status = 0;
  }
  tools::RemovePath(tmp);
  return status;
}

// What cwebp makes of the intermediate PNG under the two command lines of `webp_write`, done with
// the same library and settings: the same file without the PNG written and decoded again.
bool EncodeLikeCwebp(imaging::TIEBitmap& bmp, bool lossless, bool keep_alpha, int quality,
                     std::vector<uint8_t>& bytes) {
  using imaging::TIEPixelFormat;
  const TIEPixelFormat f = bmp.PixelFormat();
  // 16-bit and CMYK pictures reach cwebp through the PNG's own reductions, which the engine's
  // conversion does not match to the value; without "copy alpha" cwebp drops the plane unblended.
  if (f != TIEPixelFormat::ie24RGB && f != TIEPixelFormat::ie8g && f != TIEPixelFormat::ie8p &&
      f != TIEPixelFormat::ie1g)
    return false;
  if (bmp.HasAlphaChannel() && !keep_alpha) return false;
  imaging::TImageEnIO encoder(&bmp);  // fresh parameters: no metadata, as cwebp writes none
  encoder.Params().WEBP_Lossless = lossless;
  // cwebp's default quality (75) is the lossless effort; its alpha plane is "-alpha_q 99" lossy.
  encoder.Params().WEBP_Quality = lossless ? 75 : quality;
  encoder.Params().WEBP_AlphaQuality = lossless ? 100 : 99;
  return encoder.SaveToBuffer(imaging::TIOFileType::ioWEBP, bytes).ok();
}

// One tool run on the source itself.
int RunOnSource(TZubConvert& self, std::string_view tool,
                const std::function<std::string(const std::string& dest)>& build) {
  self.HasTool(tool);
  ScratchResult out(self.dest_file);
  tools::RunTool(self.Job(), build(out.path()));
  return out.Commit() ? 0 : 1;
}

}  // namespace

int AvifQuantizer(int quality) {
  return 60 - static_cast<int>(std::lround(quality * 60 / 100.0));
}

int BpgQuantizer(int quality) {
  return std::clamp(51 - quality / 2, 0, 51);
}

int webp_write(TZubConvert& self) {
  const auto& s = *self.settings;
  const std::string tool = Quoted(self.Tool("webp_write.bin"));
  const std::string a = s.save.copy_alpha ? "" : " -noalpha";
  const auto build = [&](const std::string& tmp, const std::string& dest) {
    if (s.webp_write.lossless)
      return tool + " " + a + " -lossless " + Quoted(tmp) + " -o " + Quoted(dest);
    // The switch piece is joined to "-alpha_q" without a blank: that is the command line.
    return tool + " " + a + "-alpha_q 99 -q " + std::to_string(s.webp_write.quality) + " " +
           Quoted(tmp) + " -o " + Quoted(dest);
  };
  InProcess in_process;
  if (tools::IsOwnAdapter(self.Tool("webp_write.bin")))
    in_process = [&](imaging::TIEBitmap& bmp, std::vector<uint8_t>& bytes) {
      return EncodeLikeCwebp(bmp, s.webp_write.lossless, s.save.copy_alpha, s.webp_write.quality,
                             bytes);
    };
  return EncodeThrough(self, ".png", "webp_write.bin", build, in_process);
}

int avif_write(TZubConvert& self) {
  const auto& s = *self.settings;
  const std::string tool = Quoted(self.Tool("avifenc.exe"));
  const std::string p = s.save.copy_alpha ? "" : " -p";
  return EncodeThrough(self, ".png", "avifenc.exe", [&](const auto& tmp, const auto& dest) {
    if (s.avif_write.quality == 100)
      return tool + " " + p + " -l " + Quoted(tmp) + " " + Quoted(dest);
    const std::string q = std::to_string(AvifQuantizer(s.avif_write.quality));
    const std::string q2 = std::to_string(AvifQuantizer(s.avif_write.quality) + 2);
    return tool + " " + p + " --min " + q + " --max " + q2 + " --minalpha " + q + " --maxalpha " +
           q2 + " " + Quoted(tmp) + " " + Quoted(dest);
  });
}

int bpg_write(TZubConvert& self) {
  const int quality = self.settings->bpg_write.quality;
  const std::string tool = Quoted(self.Tool("bpgenc.bin"));
  return EncodeThrough(self, ".png", "bpgenc.bin", [&](const auto& tmp, const auto& dest) {
    const std::string q =
        quality == 100 ? std::string(" -lossless") : " -q " + std::to_string(BpgQuantizer(quality));
    return tool + q + " -o " + Quoted(dest) + " " + Quoted(tmp);
  });
}

int flif_write(TZubConvert& self) {
  const std::string tool = Quoted(self.Tool("flif.exe"));
  return EncodeThrough(self, ".ppm", "flif.exe", [&](const auto& tmp, const auto& dest) {
    return tool + " -n " + Quoted(tmp) + " " + Quoted(dest);
  });
}

int cal_write(TZubConvert& self) {
  // The number after "r" is the picture's resolution in dots per inch, which CALS records as
  // its raster density.
  const std::string tmp = self.Scratch(".tif");
  int status = 1;
  const int dpi = SaveIntermediate(self, tmp);
  if (dpi > 0 && tools::Produced(tmp)) {
    self.HasTool("sc\\sc.exe");
    ScratchResult out(self.dest_file);
    tools::RunTool(self.Job(), Quoted(self.Tool("sc\\sc.exe")) + " " + Quoted(tmp) + " " +
                                   Quoted(out.path()) + " CAL r" + std::to_string(dpi));
    if (out.Commit()) status = 0;
  }
  tools::RemovePath(tmp);
  return status;
}

int jxr_write(TZubConvert& self) {
  const int q = self.settings->jxr_write.quality;
  return RunOnSource(self, "hdr_read.bin", [&](const std::string& dest) {
    return Quoted(self.Tool("hdr_read.bin")) + " " + Quoted(self.src_file) + " " + Quoted(dest) +
           " " + std::to_string(q);
  });
}

int gimp_gbr_write(TZubConvert& self) {
  const std::string png = self.Scratch(".png");
  const bool made = SaveIntermediate(self, png) > 0 && tools::Produced(png);
  const std::string input = made ? png : self.src_file;
  const int status = RunOnSource(self, "f300_uni.exe", [&](const std::string& dest) {
    return Quoted(self.Tool("f300_uni.exe")) + "  -quiet -out gbr -o " + Quoted(dest) + " " +
           Quoted(input);
  });
  tools::RemovePath(png);
  return status;
}

int wpg_write(TZubConvert& self) {
  // The tool is given the destination name only.
  return RunOnSource(self, "MakeWPG.exe", [&](const std::string& dest) {
    return Quoted(self.Tool("MakeWPG.exe")) + " " + Quoted(dest);
  });
}

int ico_write(TZubConvert& self) {
  const auto& ico = self.settings->ico;
  const std::pair<bool, const char*> sizes[] = {
      {ico.p256, "256"}, {ico.p128, "128"}, {ico.p64, "64"}, {ico.p48, "48"},
      {ico.p32, "32"},   {ico.p24, "24"},   {ico.p16, "16"}};
  std::string list;
  for (const auto& [on, size] : sizes)
    if (on) list += (list.empty() ? "" : ",") + std::string(size);
  // No size ticked: every size, since a multi-size icon was asked for.
  if (list.empty()) list = "256,128,64,48,32,24,16";
  const std::string tool = Quoted(self.Tool("convert.bin"));
  return EncodeThrough(self, ".png", "convert.bin", [&](const auto& tmp, const auto& dest) {
    return tool + " " + Quoted(tmp) + " -define icon:auto-resize=" + list + " " + Quoted(dest);
  });
}

int save_more(TZubConvert& self) {
  const std::string format = self.DestExt();
  std::string extra;
  if (format == "prc") extra = " -colors 216";
  if (format == "xbm" || format == "xpm") extra = " -binary nodither";
  return RunOnSource(self, "f300_uni.exe", [&](const std::string& dest) {
    return Quoted(self.Tool("f300_uni.exe")) + " -quiet -out " + format + extra + " -o " +
           Quoted(dest) + " " + Quoted(self.src_file);
  });
}

int i_magick(TZubConvert& self) {
  // The general raster tool flattens the picture into a plain TIFF that the converter reads
  // whatever the source was; without it the converter reads the source itself.
  const std::string tif = self.Scratch(".tif");
  tools::RunTool(self.Job(), Quoted(self.Tool("f300_uni.exe")) + " -quiet -out tiff -o " +
                                 Quoted(tif) + " " + Quoted(self.src_file));
  const std::string input = tools::Produced(tif) ? tif : self.src_file;
  const int status = RunOnSource(self, "convert.bin", [&](const std::string& dest) {
    return Quoted(self.Tool("convert.bin")) + " " + Quoted(input) + " " + Quoted(dest);
  });
  tools::RemovePath(tif);
  return status;
}

}  // namespace pictavo::writer
