#include "read/parsed_formats.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <vector>

#include "platform/bytes.h"

namespace pictavo::reader::parsed {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;

// ---- Tajima DST ----

struct Stitch {
  int64_t x, y;  // a long design's moves add up past what an int holds
  bool jump;
  int color;
};

// The bits of a stitch record that move the needle: byte of the record, mask, move in 0.1 mm.
struct StitchBit {
  int byte;
  uint8_t mask;
  int dx, dy;
};
constexpr StitchBit kStitchBits[] = {
    {0, 0x01, 1, 0},   {0, 0x02, -1, 0},  {0, 0x04, 9, 0},   {0, 0x08, -9, 0}, {0, 0x80, 0, 1},
    {0, 0x40, 0, -1},  {0, 0x20, 0, 9},   {0, 0x10, 0, -9},  {1, 0x01, 3, 0},  {1, 0x02, -3, 0},
    {1, 0x04, 27, 0},  {1, 0x08, -27, 0}, {1, 0x80, 0, 3},   {1, 0x40, 0, -3}, {1, 0x20, 0, 27},
    {1, 0x10, 0, -27}, {2, 0x04, 81, 0},  {2, 0x08, -81, 0}, {2, 0x20, 0, 81}, {2, 0x10, 0, -81},
};

// Decodes the 3-byte stitch records that follow the 512-byte header. Each record carries a move
// in 0.1 mm as sums of +-1, 3, 9, 27 and 81 units per axis (Y grows upwards), and flags in the
// third byte: end of design, colour change, jump.
std::vector<Stitch> DecodeDst(std::string_view bytes) {
  std::vector<Stitch> stitches;
  int64_t x = 0, y = 0;
  int color = 0;
  for (size_t pos = 512; pos + 3 <= bytes.size(); pos += 3) {
    const auto b2 = static_cast<uint8_t>(bytes[pos + 2]);  // also the record's flags
    if ((b2 & 0xF3) == 0xF3) break;
    for (const StitchBit& bit : kStitchBits)
      if (static_cast<uint8_t>(bytes[pos + bit.byte]) & bit.mask) x += bit.dx, y += bit.dy;
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

bool DrawDst(std::string_view bytes, TIEBitmap& out) {
  if (bytes.size() < 515 || bytes.substr(0, 3) != "LA:") return false;
  const std::vector<Stitch> stitches = DecodeDst(bytes);
  if (stitches.size() < 2) return false;
  int64_t min_x = std::numeric_limits<int64_t>::max(), min_y = min_x;
  int64_t max_x = std::numeric_limits<int64_t>::min(), max_y = max_x;
  for (const Stitch& s : stitches) {
    min_x = std::min(min_x, s.x), max_x = std::max(max_x, s.x);
    min_y = std::min(min_y, s.y), max_y = std::max(max_y, s.y);
  }
  // One pixel per 0.1 mm (254 dpi), with a margin of 2 mm.
  constexpr int64_t kMargin = 20;
  const int64_t w = max_x - min_x + 2 * kMargin, h = max_y - min_y + 2 * kMargin;
  if (w > 20000 || h > 20000) return false;
  if (!out.Allocate(static_cast<int>(w), static_cast<int>(h), TIEPixelFormat::ie24RGB).ok())
    return false;
  out.Fill(0xFFFFFF);
  static constexpr imaging::TRGB kThreads[] = {{0, 0, 0},     {200, 30, 30}, {30, 110, 200},
                                               {30, 150, 60}, {220, 160, 0}, {140, 40, 160}};
  const auto px = [&](int64_t x) { return static_cast<int>(x - min_x + kMargin); };
  const auto py = [&](int64_t y) { return static_cast<int>(max_y - y + kMargin); };
  for (size_t i = 1; i < stitches.size(); ++i) {
    const Stitch& a = stitches[i - 1];
    const Stitch& b = stitches[i];
    if (b.jump) continue;
    DrawLine(out, px(a.x), py(a.y), px(b.x), py(b.y), kThreads[b.color % 6]);
  }
  return true;
}

bool DecodeGimpPattern(std::string_view b, TIEBitmap& out) {
  // Big-endian header size, version 1, width, height, bytes per pixel (1 grey, 2 grey and
  // alpha, 3 RGB, 4 RGBA), "GPAT", a name filling the rest of the header, then the pixels row
  // by row.
  if (b.size() < 24 || b.substr(20, 4) != "GPAT") return false;
  const uint32_t header = platform::LoadBe32(b, 0), width = platform::LoadBe32(b, 8),
                 height = platform::LoadBe32(b, 12), depth = platform::LoadBe32(b, 16);
  if (platform::LoadBe32(b, 4) != 1 || header < 24 || depth < 1 || depth > 4 || width == 0 ||
      height == 0 || width > 65535 || height > 65535)
    return false;
  if (header + static_cast<uint64_t>(width) * height * depth > b.size()) return false;
  if (!out.Allocate(static_cast<int>(width), static_cast<int>(height), TIEPixelFormat::ie24RGB)
           .ok())
    return false;
  const bool alpha = depth == 2 || depth == 4;
  if (alpha) out.AddAlphaChannel();
  const auto* p = reinterpret_cast<const uint8_t*>(b.data()) + header;
  for (int y = 0; y < out.Height(); ++y)
    for (int x = 0; x < out.Width(); ++x, p += depth) {
      const imaging::TRGB c =
          depth >= 3 ? imaging::TRGB{p[0], p[1], p[2]} : imaging::TRGB{p[0], p[0], p[0]};
      out.SetPixels_ie24RGB(x, y, c);
      if (alpha) out.SetAlpha(x, y, p[depth - 1]);
    }
  return true;
}

}  // namespace pictavo::reader::parsed
