// Formats the reader decodes itself or hands straight to the engine: XIF (a TIFF), PSD layers,
// headerless raw pixel data laid out by the "Raw_bmp" settings, SGI RGB (through the raster
// converter) and Tajima DST embroidery, whose stitches are drawn.
//
// The remaining routines of this family (BIF, PSP, Webshots, CAR, MIX, PSF, PPP patterns, UPI,
// VSI and the plain DAT picture) have no decoder here yet: they fail, so the chain goes on to the
// general raster tool and the engine fall-back. docs/formats.md lists them.
#include <algorithm>
#include <climits>
#include <cstdint>
#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
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
  imaging::TIORawLayout layout;
  layout.width = s.width;
  layout.height = s.height;
  layout.header_bytes = with_header && s.header_size > 0 ? static_cast<uint64_t>(s.header_size) : 0;
  switch (s.bits_per_channel) {
    case 1:
      layout.format = TIEPixelFormat::ie1g;
      break;
    case 16:
      layout.format = TIEPixelFormat::ie48RGB;
      break;
    default:
      layout.format = TIEPixelFormat::ie24RGB;
      break;
  }
  // The row alignment is given in bits.
  layout.row_align = s.row_align >= 32 ? 4 : s.row_align >= 16 ? 2 : 1;
  layout.bgr = s.order == 2;
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

// No decoder on this platform (see the file comment).
int bif_read(TZubRead&) {
  return 1;
}
int psp_read(TZubRead&) {
  return 1;
}
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
int new_ppp_read(TZubRead&) {
  return 1;
}
int new_upi_read(TZubRead&) {
  return 1;
}
int vsi_read(TZubRead&) {
  return 1;
}
int new_dat_read(TZubRead&) {
  return 1;
}

}  // namespace pictavo::reader
