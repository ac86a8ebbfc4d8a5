// Formats the reader decodes itself or hands straight to the engine: XIF (a TIFF), PSD layers,
// headerless raw pixel data laid out by the "Raw_bmp" settings, SGI RGB (through the raster
// converter), Tajima DST embroidery, whose stitches are drawn, Roku BIF frame indexes (the JPEG
// frames they hold), GIMP patterns (.pat) and Paint Shop Pro pictures (read/psp_format.h).
//
// The remaining routines of this family (Webshots, CAR, MIX, PSF, UPI, VSI and the plain DAT
// picture) have no decoder: no public description of these formats and no Debian program
// that reads them. They fail, so the chain goes on to the general raster tool and the engine
// fall-back. docs/formats.md lists them with the reason.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "engine/tools/runner.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "read/psp_format.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;
using imaging::TImageEnIO;

uint32_t Le32(const std::string& b, size_t at) {
  return static_cast<uint32_t>(static_cast<uint8_t>(b[at])) |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 1])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 2])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 3])) << 24;
}

uint32_t Be32(const std::string& b, size_t at) {
  return static_cast<uint32_t>(static_cast<uint8_t>(b[at])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 2])) << 8 |
         static_cast<uint32_t>(static_cast<uint8_t>(b[at + 3]));
}

int RawPixels(TZubRead& r, bool with_header) {
  if (!r.settings) return 1;
  const auto& s = r.settings->raw_bmp;
  if (s.width <= 1 || s.height <= 1) return 1;  // not set up: nothing sensible to read
  imaging::TIORawLayout layout = imaging::RawLayoutFromSettings(
      s.bits_per_channel, s.row_align, s.order, with_header ? s.header_size : 0);
  layout.width = s.width;
  layout.height = s.height;
  TIEBitmap bitmap;
  TImageEnIO io(&bitmap);
  if (!io.LoadFromFileBMPRAW(r.src_file, layout).ok() || bitmap.IsEmpty()) return 1;
  return io.SaveToFile(r.out_file).ok() && FileOk(r.out_file) ? 0 : 1;
}

// ---- Tajima DST ----

struct Stitch {
  int x, y;
  bool jump;
  int color;
};

// Decodes the 3-byte stitch records that follow the 512-byte header. Each record carries a move
// in 0.1 mm as sums of +-1, 3, 9, 27 and 81 units per axis (Y grows upwards), and flags in the
// third byte: end of design, colour change, jump.
std::vector<Stitch> DecodeDst(const std::string& bytes) {
  std::vector<Stitch> stitches;
  int x = 0, y = 0, color = 0;
  for (size_t pos = 512; pos + 3 <= bytes.size(); pos += 3) {
    const auto b0 = static_cast<uint8_t>(bytes[pos]);
    const auto b1 = static_cast<uint8_t>(bytes[pos + 1]);
    const auto b2 = static_cast<uint8_t>(bytes[pos + 2]);
    if ((b2 & 0xF3) == 0xF3) break;
    int dx = 0, dy = 0;
    if (b0 & 0x01) dx += 1;
    if (b0 & 0x02) dx -= 1;
    if (b0 & 0x04) dx += 9;
    if (b0 & 0x08) dx -= 9;
    if (b0 & 0x80) dy += 1;
    if (b0 & 0x40) dy -= 1;
    if (b0 & 0x20) dy += 9;
    if (b0 & 0x10) dy -= 9;
    if (b1 & 0x01) dx += 3;
    if (b1 & 0x02) dx -= 3;
    if (b1 & 0x04) dx += 27;
    if (b1 & 0x08) dx -= 27;
    if (b1 & 0x80) dy += 3;
    if (b1 & 0x40) dy -= 3;
    if (b1 & 0x20) dy += 27;
    if (b1 & 0x10) dy -= 27;
    if (b2 & 0x04) dx += 81;
    if (b2 & 0x08) dx -= 81;
    if (b2 & 0x20) dy += 81;
    if (b2 & 0x10) dy -= 81;
    x += dx;
    y += dy;
    if ((b2 & 0xC3) == 0xC3) {
      ++color;
      stitches.push_back({x, y, true, color});
    } else {
      stitches.push_back({x, y, (b2 & 0x83) == 0x83, color});
    }
  }
  return stitches;
}

void DrawLine(TIEBitmap& bmp, int x0, int y0, int x1, int y1, imaging::TRGB c) {
  const int dx = std::abs(x1 - x0), sx = x0 < x1 ? 1 : -1;
  const int dy = -std::abs(y1 - y0), sy = y0 < y1 ? 1 : -1;
  int err = dx + dy;
  for (;;) {
    for (int oy = 0; oy < 2; ++oy)
      for (int ox = 0; ox < 2; ++ox)
        if (x0 + ox < bmp.Width() && y0 + oy < bmp.Height())
          bmp.SetPixels_ie24RGB(x0 + ox, y0 + oy, c);
    if (x0 == x1 && y0 == y1) break;
    const int e2 = 2 * err;
    if (e2 >= dy) {
      err += dy;
      x0 += sx;
    }
    if (e2 <= dx) {
      err += dx;
      y0 += sy;
    }
  }
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
  if (!bytes || bytes->size() < 515 || bytes->compare(0, 3, "LA:") != 0) return 1;
  const std::vector<Stitch> stitches = DecodeDst(*bytes);
  if (stitches.size() < 2) return 1;
  int min_x = INT_MAX, min_y = INT_MAX, max_x = INT_MIN, max_y = INT_MIN;
  for (const Stitch& s : stitches) {
    min_x = std::min(min_x, s.x), max_x = std::max(max_x, s.x);
    min_y = std::min(min_y, s.y), max_y = std::max(max_y, s.y);
  }
  // One pixel per 0.1 mm (254 dpi), with a margin of 2 mm.
  const int margin = 20;
  const int w = max_x - min_x + 2 * margin, h = max_y - min_y + 2 * margin;
  if (w <= 0 || h <= 0 || w > 20000 || h > 20000) return 1;
  TIEBitmap bmp;
  if (!bmp.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  bmp.Fill(0xFFFFFF);
  static constexpr imaging::TRGB kThreads[] = {{0, 0, 0},     {200, 30, 30}, {30, 110, 200},
                                               {30, 150, 60}, {220, 160, 0}, {140, 40, 160}};
  for (size_t i = 1; i < stitches.size(); ++i) {
    const Stitch& a = stitches[i - 1];
    const Stitch& b = stitches[i];
    if (b.jump) continue;
    DrawLine(bmp, a.x - min_x + margin, max_y - a.y + margin, b.x - min_x + margin,
             max_y - b.y + margin, kThreads[b.color % 6]);
  }
  TImageEnIO io(&bmp);
  io.Params().DpiX = io.Params().DpiY = 254;
  return io.SaveToFile(r.out_file).ok() && FileOk(r.out_file) ? 0 : 1;
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
  const uint32_t count = Le32(b, 12);
  if (count == 0 || 64 + (static_cast<uint64_t>(count) + 1) * 8 > b.size()) return 1;
  constexpr uint32_t kMaxFrames = 1000;  // a long film's index; the pages stay manageable
  std::vector<std::unique_ptr<Scratch>> frames;
  std::vector<std::string> paths;
  for (uint32_t i = 0; i < count && i < kMaxFrames; ++i) {
    const uint32_t start = Le32(b, 64 + i * 8 + 4), end = Le32(b, 64 + (i + 1) * 8 + 4);
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
    if (!bytes || !doc.Open(*bytes, tools::CurrentJobLimits().max_pixels)) return 1;
    if (!doc.JpegComposite().empty()) {
      // The editor's own flattening, when it stored one; the layers are read when it does not load.
      Scratch jpeg(r, ".jpg");
      if (platform::WriteFileAtomic(jpeg.path(), doc.JpegComposite()).ok() &&
          SavePicture(r, jpeg.path()) == 0)
        return 0;
    }
    TIEBitmap bmp;
    if (!doc.Flatten(bmp)) return 1;
    TImageEnIO io(&bmp);
    return io.SaveToFile(r.out_file).ok() && FileOk(r.out_file) ? 0 : 1;
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
  // GIMP pattern: big-endian header size, version 1, width, height, bytes per pixel (1 grey,
  // 2 grey and alpha, 3 RGB, 4 RGBA), "GPAT", a name filling the rest of the header, then the
  // pixels row by row.
  const auto bytes = platform::ReadFileBytes(r.src_file);
  if (!bytes || bytes->size() < 24 || bytes->compare(20, 4, "GPAT") != 0) return 1;
  const std::string& b = *bytes;
  const uint32_t header = Be32(b, 0), width = Be32(b, 8), height = Be32(b, 12), depth = Be32(b, 16);
  if (Be32(b, 4) != 1 || header < 24 || depth < 1 || depth > 4 || width == 0 || height == 0 ||
      width > 65535 || height > 65535)
    return 1;
  if (header + static_cast<uint64_t>(width) * height * depth > b.size()) return 1;
  TIEBitmap bmp;
  if (!bmp.Allocate(static_cast<int>(width), static_cast<int>(height), TIEPixelFormat::ie24RGB)
           .ok())
    return 1;
  const bool alpha = depth == 2 || depth == 4;
  if (alpha) bmp.AddAlphaChannel();
  const auto* p = reinterpret_cast<const uint8_t*>(b.data()) + header;
  for (int y = 0; y < bmp.Height(); ++y)
    for (int x = 0; x < bmp.Width(); ++x, p += depth) {
      const imaging::TRGB c =
          depth >= 3 ? imaging::TRGB{p[0], p[1], p[2]} : imaging::TRGB{p[0], p[0], p[0]};
      bmp.SetPixels_ie24RGB(x, y, c);
      if (alpha) bmp.SetAlpha(x, y, p[depth - 1]);
    }
  TImageEnIO io(&bmp);
  return io.SaveToFile(r.out_file).ok() && FileOk(r.out_file) ? 0 : 1;
}
int new_upi_read(TZubRead&) {
  return 1;
}
int vsi_read(TZubRead&) {
  return 1;
}

}  // namespace pictavo::reader
