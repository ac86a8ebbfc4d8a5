// simple_write: every target the imaging engine saves itself, frame by frame, with the job's
// per-format save options (docs/save-options.md).
#include <algorithm>
#include <array>
#include <atomic>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "engine/tools/core_share.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_icc.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/bytes.h"
#include "platform/text_encoding.h"
#include "write/writers.h"
#include "write/writers_own.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using imaging::TIEBitmap;
using imaging::TImageEnIO;
using imaging::TIOParamsVals;
using imaging::TIOTIFFCompression;
using settings::TMainSettings;
using tools::Quoted;

// "TIF"/"Compression" 0..7 to the engine's TIFF compression.
constexpr std::array<TIOTIFFCompression, 8> kTiffCompression = {
    TIOTIFFCompression::ioTIFF_UNCOMPRESSED, TIOTIFFCompression::ioTIFF_CCITT1D,
    TIOTIFFCompression::ioTIFF_PACKBITS,     TIOTIFFCompression::ioTIFF_G3FAX1D,
    TIOTIFFCompression::ioTIFF_G3FAX2D,      TIOTIFFCompression::ioTIFF_G4FAX,
    TIOTIFFCompression::ioTIFF_JPEG,         TIOTIFFCompression::ioTIFF_LZW,
};

// The CMYK finishing tool's compression switch, by "TIF"/"Compression" 0..7.
constexpr std::array<const char*, 8> kCmykSwitch = {"",      " -c 5", " -c 1", " -c 5",
                                                    " -c 6", " -c 7", " -c 8", " -c 3"};

// "JPG"/"Color_space" 0..4 to the engine's JPEG colour-space codes.
constexpr std::array<int, 5> kJpegColorSpace = {2, 3, 0, 4, 1};

imaging::TIOJPEGColorSpace JpegColorSpace(int setting) {
  const int code = kJpegColorSpace[std::clamp(setting, 0, 4)];
  return static_cast<imaging::TIOJPEGColorSpace>(code);
}

bool IsBlackAndWhiteCompression(int v) {
  return v == 1 || v == 3 || v == 4 || v == 5;
}

// The soft key: alpha grows with the weighted distance from the key colour,
// min(255, round(10 x (30|dR| + 59|dG| + 11|dB|) / 100)).
void ApplySoftKey(TIEBitmap& bmp, imaging::TRGB key) {
  if (!bmp.HasAlphaChannel()) bmp.AddAlphaChannel(255);
  for (int y = 0; y < bmp.Height(); ++y) {
    const uint8_t* row = bmp.Scanline(y);
    uint8_t* alpha = bmp.AlphaScanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      const int d = 30 * std::abs(row[3 * x] - key.r) + 59 * std::abs(row[3 * x + 1] - key.g) +
                    11 * std::abs(row[3 * x + 2] - key.b);
      alpha[x] = static_cast<uint8_t>(std::min(255, (10 * d + 50) / 100));
    }
  }
}

// The frame's profile, resolution, alpha and metadata as the "Save" and "Dpi" keys ask, and
// the EXIF thumbnail of a JPEG.
void ApplyMetadata(const TMainSettings& s, const std::string& key, TIEBitmap& bmp,
                   TIOParamsVals& p) {
  if (s.save.icc_option == 1) {
    p.ICC = imaging::TIEICC();
    p.ClearMarkers();
  } else if (s.save.icc_option == 3) {
    imaging::TIEICC icc;
    if (icc.LoadFromFile(s.save.icc_file).ok()) p.ICC = icc;
  }
  if (s.dpi.option_flags.Is(2)) {
    p.DpiX = s.dpi.x_dpi;
    p.DpiY = s.dpi.y_dpi;
  }
  if (!s.save.copy_alpha) bmp.RemoveAlphaChannel(0xFFFFFF);
  if (!s.save.copy_iptc) p.ClearIPTC();
  if (!s.save.copy_exif) {
    p.ResetEXIF();
    p.ClearMarkers();
    p.XMP_Info.clear();
  }

  const struct {
    bool on;
    const std::string& value;
    std::string& field;
  } exif_fields[] = {
      {s.save.set_exif_title, s.save.exif_title, p.EXIF_XPTitle},
      {s.save.set_exif_subject, s.save.exif_subject, p.EXIF_XPSubject},
      {s.save.set_exif_keywords, s.save.exif_keywords, p.EXIF_XPKeywords},
      {s.save.set_exif_comment, s.save.exif_comment, p.EXIF_XPComment},
      {s.save.set_exif_author, s.save.exif_author, p.EXIF_XPAuthor},
      {s.save.set_exif_copyright, s.save.exif_copyright, p.EXIF_Copyright},  // 8-bit text
  };
  for (const auto& f : exif_fields) {
    if (!f.on) continue;
    f.field = f.value;
    p.EXIF_HasEXIFData = true;
  }
  // The thumbnail is written only inside an EXIF block: without one it is not worth a resample.
  if ((key == ";jpg;" || key == ";jpeg;") && p.EXIF_HasEXIFData)
    (void)p.UpdateEXIFThumbnail(bmp, 160);
}

// The TIFF compression and its layout: fax codings make the frame 1-bit (and drop CMYK).
bool PrepareTiff(const TMainSettings& s, TIEBitmap& bmp, TIOParamsVals& p,
                 imaging::TImageEnProc& proc, bool& cmyk) {
  const int v = std::clamp(s.tif.compression, 0, 7);
  p.TIFF_Compression = kTiffCompression[v];
  if (IsBlackAndWhiteCompression(v)) {
    if (!proc.ConvertToBWThreshold(-1).ok()) return false;
    p.BitsPerSample = 1, p.SamplesPerPixel = 1;
    cmyk = false;  // fax codings are 1-bit: no CMYK for this save
  }
  p.TIFF_JPEGQuality = std::clamp(s.tif.jpg_quality, 1, 100);
  p.TIFF_PhotometInterpret = cmyk ? imaging::ioTIFF_CMYK : imaging::ioTIFF_RGB;
  p.TIFF_JPEGColorSpace = cmyk && v == 6 ? static_cast<imaging::TIOJPEGColorSpace>(3)
                                         : JpegColorSpace(s.jpg.color_space);
  const bool four = cmyk || (bmp.HasAlphaChannel() && s.save.copy_alpha);
  if (four && (v == 0 || v == 2 || v == 6 || v == 7)) {
    p.BitsPerSample = 8, p.SamplesPerPixel = 4;
    if (v == 6) p.SamplesPerPixel = 3;
  }
  return true;
}

// Steps applied to one loaded frame before it is saved. Returns false on an engine error.
bool PrepareFrame(TZubConvert& self, TImageEnIO& io, const std::string& key, bool& cmyk) {
  const TMainSettings& s = *self.settings;
  TIEBitmap& bmp = io.Bitmap();
  TIOParamsVals& p = io.Params();
  imaging::TImageEnProc proc(&bmp);

  ApplyMetadata(s, key, bmp, p);

  p.JPEG_Quality = std::clamp(s.jpg.quality, 1, 100);
  p.JPEG_ColorSpace = JpegColorSpace(s.jpg.color_space);
  p.JPEG_Progressive = s.jpg.progressive;

  if (key == ";tga;") {
    p.TGA_Compressed = s.tga.compression;
    if (p.BitsPerSample < 8) p.BitsPerSample = 8;
  }
  p.PCX_Compression = s.pcx.compression;
  p.J2000_Rate = s.jp2.quality / 100.0;

  if (key == ";png;") {
    if (!s.colors.option_flags.Is(1)) {
      if (s.colors.samples_per_pixel == 1 && s.colors.bits_per_sample > 1) {
        p.BitsPerSample = 8, p.SamplesPerPixel = 1;
      } else if (s.colors.samples_per_pixel == 1 && s.colors.bits_per_sample == 1) {
        if (!proc.ConvertToBWThreshold(-1).ok()) return false;
        p.BitsPerSample = 1, p.SamplesPerPixel = 1;
      } else if (s.colors.samples_per_pixel == 3) {
        p.BitsPerSample = 8, p.SamplesPerPixel = 3;
      }
    }
    if (s.png.transparent) {
      if (!proc.ConvertTo24Bit().ok()) return false;
      p.BitsPerSample = 8, p.SamplesPerPixel = 3;
      imaging::TRGB k{s.png.color_red, s.png.color_green, s.png.color_blue};
      if (s.png.auto_transp) k = bmp.GetPixels_ie24RGB(0, bmp.Height() - 1);
      ApplySoftKey(bmp, k);
    } else if (!s.save.copy_alpha) {
      bmp.RemoveAlphaChannel(0xFFFFFF);
    }
    p.PNG_Interlaced = s.png.interlaced;
    p.PNG_Compression = s.png.optimized ? 9 : std::clamp(s.png.compression, 0, 9);
  }

  if ((key == ";tif;" || key == ";tiff;") && !PrepareTiff(s, bmp, p, proc, cmyk)) return false;

  if (key == ";gif;") {
    if (!proc.ConvertTo(256).ok()) return false;
    p.GIF_DelayTime = std::max(0, s.gif.delay_time);
  }

  if (key == ";ico;" && (bmp.Width() > 256 || bmp.Height() > 256)) {
    // An icon holds at most 256 x 256 pixels: fit the picture, keeping its proportions.
    const double k = 256.0 / std::max(bmp.Width(), bmp.Height());
    if (!bmp.Resample(std::max(1, static_cast<int>(std::lround(bmp.Width() * k))),
                      std::max(1, static_cast<int>(std::lround(bmp.Height() * k))))
             .ok())
      return false;
  }
  return true;
}

// Saves one frame as its own file.
bool SaveFrame(const TMainSettings& s, TImageEnIO& io, const std::string& key,
               const std::string& path) {
  if (key == ";raw;") {
    // Headerless pixels, laid out as the "Raw_bmp" settings read them back.
    const auto& raw = s.raw_bmp;
    return io
        .SaveToFileBMPRAW(path, imaging::RawLayoutFromSettings(raw.bits_per_channel, raw.row_align,
                                                               raw.order, raw.header_size))
        .ok();
  }
  if (key == ";ppm;" || key == ";pgm;") {
    TIEBitmap rgb = io.Bitmap();
    if (!rgb.ConvertTo(imaging::TIEPixelFormat::ie24RGB).ok()) return false;
    return (key == ";ppm;" ? WritePPM(rgb, path) : WritePGM(rgb, path)).ok();
  }
  if (key == ";swf;") return WriteSWF({&io.Bitmap()}, 1, path).ok();
  return io.SaveToFileAndRelease(path).ok();  // the frame's last use
}

// Every frame of the source as a file of its own, the frames side by side on the cores this file
// may use: frame 0 into `first`, the others under scratch names listed in written_files in frame
// order. False when a frame could not be loaded, prepared or saved.
bool SaveFramesApart(TZubConvert& self, const std::string& key, int frames,
                     const std::string& first) {
  std::vector<std::string> dests{first};
  for (int f = 1; f < frames; ++f) {
    dests.push_back(self.Scratch("." + self.DestExt()));
    self.written_files.push_back({dests.back(), f});
  }
  std::atomic<int> next{0};
  std::atomic<bool> failed{false};
  const auto save_frames = [&] {
    for (int f = next++; f < frames && !failed; f = next++) {
      try {
        TIEBitmap bmp;
        TImageEnIO io(&bmp, self.hand_over);
        io.Params().ImageIndex = f;
        bool cmyk = false;  // only TIFF targets are made CMYK, and they hold every frame
        if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) {
          failed = true;
          break;
        }
        self.snow(io);
        if (!PrepareFrame(self, io, key, cmyk) || !SaveFrame(*self.settings, io, key, dests[f]))
          failed = true;
      } catch (const std::exception&) {
        failed = true;
      }
    }
  };
  std::vector<std::thread> helpers;
  for (int t = 1; t < std::min(frames, tools::ThreadsForOneFile()); ++t)
    helpers.emplace_back(save_frames);
  save_frames();
  for (std::thread& t : helpers) t.join();
  return !failed;
}

}  // namespace

int simple_write(TZubConvert& self) {
  const TMainSettings& s = *self.settings;
  const std::string key = self.Key();
  const bool tiff = key == ";tif;" || key == ";tiff;";

  if (key == ";tif;" && self.tiff_pass_through) {
    ScratchResult out(self.dest_file);
    std::error_code ec;
    fs::copy_file(self.src_file, out.path(), fs::copy_options::overwrite_existing, ec);
    return !ec && out.Commit() ? 0 : 1;
  }

  imaging::SetColorManagement(s.save.icc_option == 1);

  TIEBitmap bmp;
  TImageEnIO io(&bmp, self.hand_over);
  int frames = 1;
  const std::string src_ext = platform::LowerExtension(self.src_file);
  if (src_ext == ".tif" || src_ext == ".tiff" || src_ext == ".gif") {
    io.Params().ImageIndex = 0;
    if (io.ParamsFromFile(self.src_file).ok()) frames = std::max(1, io.Params().ImageCount);
  }

  const int option = s.multipage.option;
  const bool one_file_per_frame = option == 3;
  // A target that holds one picture gets the first frame unless every frame is its own file.
  const bool multi_frame_target = tiff || key == ";gif;" || key == ";swf;";
  const int last = one_file_per_frame || multi_frame_target ? frames - 1 : 0;

  ScratchResult out(self.dest_file);
  std::string frame_dest = out.path();
  bool cmyk = s.tif.save_in_cmyk;
  std::vector<std::unique_ptr<TIEBitmap>> swf_frames;  // one animated SWF file
  int saved = 0;
  const bool apart = one_file_per_frame && frames > 1 && !tiff && key != ";swf;";
  if (apart && !SaveFramesApart(self, key, frames, out.path())) return 1;
  for (int f = 0; !apart && f <= last; ++f) {
    io.Params().ResetInfo();
    io.Params().ImageIndex = f;
    if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) return 1;
    self.snow(io);
    if (!PrepareFrame(self, io, key, cmyk)) return 1;
    bool ok = false;
    if (one_file_per_frame) {
      ok = SaveFrame(s, io, key, frame_dest);
    } else if (key == ";swf;") {
      swf_frames.push_back(std::make_unique<TIEBitmap>(bmp));
      ok = true;
    } else if (f == 0) {
      // The frame's last use: the next one is loaded afresh.
      ok = key == ";raw;" ? SaveFrame(s, io, key, frame_dest)
                          : io.SaveToFileAndRelease(frame_dest).ok();
    } else {
      ok = (tiff ? io.InsertToFileTIFF(frame_dest) : io.InsertToFileGIF(frame_dest)).ok();
    }
    if (!ok) return 1;
    ++saved;
    if (one_file_per_frame && f < last) {
      frame_dest = self.Scratch("." + self.DestExt());
      self.written_files.push_back({frame_dest, saved});
    }
  }
  if (!swf_frames.empty()) {
    std::vector<const TIEBitmap*> list;
    for (const auto& b : swf_frames) list.push_back(b.get());
    const int rate = s.swf.animated ? std::max(1, s.swf.frame_rate) : 1;
    if (!s.swf.animated) list.resize(1);
    if (!WriteSWF(list, rate, out.path()).ok()) return 1;
  }

  if (tiff && cmyk) {
    const int v = std::clamp(s.tif.compression, 0, 7);
    tools::RunTool(self.Job(), Quoted(self.Tool("f300_uni.exe")) + kCmykSwitch[v] +
                                   " -multi -overwrite -cmyk_space " + Quoted(out.path()));
  }
  // Only a GIF target is made an endless animation: the converter writes GIF whatever the
  // destination's name, so other targets are left as the engine wrote them.
  if (key == ";gif;" && src_ext == ".gif" && s.gif.loop && saved >= 2 && !one_file_per_frame) {
    const std::string tmp = self.Scratch(".gif");
    tools::RunTool(self.Job(), Quoted(self.Tool("convert.bin")) + " -loop 0 -delay " +
                                   std::to_string(s.gif.delay_time) + " " + Quoted(out.path()) +
                                   " " + Quoted(tmp));
    if (tools::Produced(tmp)) {
      std::error_code ec;
      fs::copy_file(tmp, out.path(), fs::copy_options::overwrite_existing, ec);
    }
    tools::RemovePath(tmp);
  }
  if (key == ";png;" && s.png.optimized)
    tools::RunTool(self.Job(), Quoted(self.Tool("pngoptim.bin")) + " " + Quoted(out.path()));

  return out.Commit() ? 0 : 1;
}

}  // namespace pictavo::writer
