// Formats the reader decodes itself or hands straight to the engine: XIF (a TIFF), PSD layers,
// headerless raw pixel data laid out by the "Raw_bmp" settings, SGI RGB (through the raster
// converter), Tajima DST embroidery, whose stitches are drawn, Roku BIF frame indexes (the JPEG
// frames they hold), GIMP patterns (.pat) (both read/parsed_formats.h) and Paint Shop Pro
// pictures (read/psp_format.h).
//
// The remaining routines of this family (Webshots, CAR, MIX, PSF, UPI, VSI and the plain DAT
// picture) have no decoder: no public description of these formats and no Debian program
// that reads them. They fail, so the chain goes on to the general raster tool and the engine
// fall-back. docs/formats.md lists them with the reason.
#include <algorithm>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/tools/runner.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "read/parsed_formats.h"
#include "read/psp_format.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;
using imaging::TImageEnIO;

int RawPixels(TZubRead& r, bool with_header) {
  if (!r.settings) return 1;
  const auto& s = r.settings->raw_bmp;
  if (s.width <= 1 || s.height <= 1) return 1;  // not set up: nothing sensible to read
  imaging::TIORawLayout layout = imaging::RawLayoutFromSettings(
      s.bits_per_channel, s.row_align, s.order, with_header ? s.header_size : 0);
  layout.width = s.width;
  layout.height = s.height;
  TIEBitmap bitmap;
  bitmap.SetLimits(r.picture_limits);
  TImageEnIO io(&bitmap, r.hand_over);
  if (!io.LoadFromFileBMPRAW(r.src_file, layout).ok() || bitmap.IsEmpty()) return 1;
  return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
}

}  // namespace

int xif_read(TZubRead& r) {
  return SavePicture(r, r.src_file);  // XIF is a TIFF with its own tags
}

int psd_read(TZubRead& r) {
  // Layers as pages only when asked for; otherwise the engine reads the composite picture later.
  if (!r.settings || !r.settings->psd.load_layers) return kRouteSkipped;
  return SavePicture(r, r.src_file);
}

int bmp_raw_read_chain(TZubRead& r) {
  if (RawPixels(r, true) == 0) return 0;
  return RawPixels(r, false);
}

int rgb_read(TZubRead& r) {
  if (!HasTool(r, "convert.bin")) return 1;
  Scratch out(r, ".png");
  return RunThenSave(
      r, "convert.bin",
      ToolArg(r, "convert.bin") + " \"sgi:" + r.src_file + "\" \"" + out.path() + "\"", out.path());
}

int dst_read(TZubRead& r) {
  const auto bytes = platform::ReadFileBytes(r.src_file);
  TIEBitmap bmp;
  if (!bytes || !parsed::DrawDst(*bytes, bmp)) return 1;
  TImageEnIO io(&bmp, r.hand_over);
  io.Params().DpiX = io.Params().DpiY = 254;
  return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
}

int bif_read(TZubRead& r) {
  // Roku BIF: an 8-byte signature, version, frame count, a 64-byte header, then an index of
  // (timestamp, offset) pairs whose last entry (timestamp 0xFFFFFFFF) marks the end of the last
  // frame. Every frame is a JPEG.
  static constexpr unsigned char kMagic[8] = {0x89, 'B', 'I', 'F', 0x0D, 0x0A, 0x1A, 0x0A};
  const auto bytes = platform::ReadFileBytes(r.src_file);
  if (!bytes || bytes->size() < 72 ||
      bytes->compare(0, 8, reinterpret_cast<const char*>(kMagic), 8))
    return 1;
  const std::string& b = *bytes;
  const uint32_t count = platform::LoadLe32(b, 12);
  if (count == 0 || 64 + (static_cast<uint64_t>(count) + 1) * 8 > b.size()) return 1;
  constexpr uint32_t kMaxFrames = 1000;  // a long film's index; the pages stay manageable
  std::vector<std::unique_ptr<Scratch>> frames;
  std::vector<std::string> paths;
  for (uint32_t i = 0; i < count && i < kMaxFrames; ++i) {
    const uint32_t start = platform::LoadLe32(b, 64 + i * 8 + 4),
                   end = platform::LoadLe32(b, 64 + (i + 1) * 8 + 4);
    if (start >= end || end > b.size()) continue;
    auto frame = std::make_unique<Scratch>(r, ".jpg");
    if (platform::WriteFileAtomic(frame->path(), b.substr(start, end - start)).ok())
      paths.push_back(frame->path());
    frames.push_back(std::move(frame));
  }
  return SavePictures(r, paths);
}
int psp_read(TZubRead& r) {
  try {
    const auto bytes = platform::ReadFileBytes(r.src_file);
    psp::Document doc;
    const uint64_t max_pixels =
        (r.picture_limits ? *r.picture_limits : imaging::PictureLimits()).max_pixels;
    if (!bytes || !doc.Open(*bytes, max_pixels)) return 1;
    if (!doc.JpegComposite().empty()) {
      // The editor's own flattening, when it stored one; the layers are read when it does not load.
      Scratch jpeg(r, ".jpg");
      if (platform::WriteFileAtomic(jpeg.path(), doc.JpegComposite()).ok() &&
          SavePicture(r, jpeg.path()) == 0)
        return 0;
    }
    TIEBitmap bmp;
    if (!doc.Flatten(bmp)) return 1;
    TImageEnIO io(&bmp, r.hand_over);
    return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
  } catch (...) {
    return 1;  // out of memory for a picture within the limits
  }
}
// No decoder on this platform (see the file comment).
int webshots(TZubRead&) {
  return 1;
}
int car_read(TZubRead&) {
  return 1;
}
int mix_read(TZubRead&) {
  return 1;
}
int psf_read(TZubRead&) {
  return 1;
}
int new_ppp_read(TZubRead& r) {
  const auto bytes = platform::ReadFileBytes(r.src_file);
  TIEBitmap bmp;
  if (!bytes || !parsed::DecodeGimpPattern(*bytes, bmp)) return 1;
  TImageEnIO io(&bmp, r.hand_over);
  return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
}
int new_upi_read(TZubRead&) {
  return 1;
}
int vsi_read(TZubRead&) {
  return 1;
}

}  // namespace pictavo::reader
