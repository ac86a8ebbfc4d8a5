// Small helpers shared by the action families that loop over pixels themselves. Those actions
// work in 8 bits per channel: a bitmap in another layout is widened to ie24RGB first (the alpha
// plane is kept).
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_proc.h"

namespace pictavo::editing {

inline uint8_t Clamp8(double v) {
  return static_cast<uint8_t>(std::clamp(v + 0.5, 0.0, 255.0));
}
inline uint8_t Clamp8i(int v) {
  return static_cast<uint8_t>(std::clamp(v, 0, 255));
}
inline imaging::TColor ColorOf(int r, int g, int b) {
  return imaging::RGBToTColor({Clamp8i(r), Clamp8i(g), Clamp8i(b)});
}

// Widens to ie24RGB unless it is already; false when the bitmap is empty or cannot be widened.
inline bool To24(imaging::TIEBitmap& bmp) {
  if (bmp.IsEmpty()) return false;
  if (bmp.PixelFormat() == imaging::TIEPixelFormat::ie24RGB) return true;
  return bmp.ConvertTo(imaging::TIEPixelFormat::ie24RGB).ok();
}

// Applies one lookup table to the three channels (in any layout the engine takes).
inline int ApplyLut(imaging::TIEBitmap& bmp, const std::array<uint8_t, 256>& lut) {
  imaging::TImageEnProc proc(&bmp);
  return proc.ApplyLUT(lut, lut, lut).ok() ? 0 : 1;
}

// Bilinear sample of a 24-bit bitmap at (x, y), clamped to the edges.
inline imaging::TRGB SampleBilinear(const imaging::TIEBitmap& src, double x, double y) {
  const int w = src.Width(), h = src.Height();
  x = std::clamp(x, 0.0, w - 1.0);
  y = std::clamp(y, 0.0, h - 1.0);
  const int x0 = static_cast<int>(x), y0 = static_cast<int>(y);
  const int x1 = std::min(x0 + 1, w - 1), y1 = std::min(y0 + 1, h - 1);
  const double fx = x - x0, fy = y - y0;
  const uint8_t* r0 = src.Scanline(y0);
  const uint8_t* r1 = src.Scanline(y1);
  imaging::TRGB out;
  uint8_t* o = &out.r;
  for (int c = 0; c < 3; ++c) {
    const double top = r0[x0 * 3 + c] * (1 - fx) + r0[x1 * 3 + c] * fx;
    const double bottom = r1[x0 * 3 + c] * (1 - fx) + r1[x1 * 3 + c] * fx;
    o[c] = Clamp8(top * (1 - fy) + bottom * fy);
  }
  return out;
}

// A small deterministic generator, so that a batch gives the same noise on every run.
class Lcg {
 public:
  explicit Lcg(uint32_t seed) : s_(seed) {}
  uint32_t Next() {
    s_ = s_ * 1664525u + 1013904223u;
    return s_ >> 8;
  }
  // Uniform in [-1, 1].
  double Signed() { return (Next() & 0xFFFF) / 32767.5 - 1.0; }

 private:
  uint32_t s_;
};

}  // namespace pictavo::editing
