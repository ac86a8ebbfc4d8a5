// Helpers shared by the TImageEnProc implementation files. Internal to imaging/.
#pragma once

#include <algorithm>
#include <cstdint>
#include <functional>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging::proc {

// Widens the bitmap to a layout a colour operation can work on (see ie_proc.h).
pictavo::Status PrepareForColor(TIEBitmap& bmp, bool keeps_grey);

// Applies out = curve(channel, in) with values in 0..1 (channel 0 red, 1 green, 2 blue)
// through lookup tables. keeps_grey: the same curve for the three channels.
pictavo::Status ApplyCurves(TIEBitmap& bmp, const std::function<double(int, double)>& curve,
                            bool keeps_grey);

// Applies a whole-pixel function fn(double& r, double& g, double& b) on values in 0..1.
// keeps_grey: grey in gives grey out. A template so that the colour maths inlines.
template <typename Fn>
pictavo::Status ApplyPixelFunction(TIEBitmap& bmp, Fn fn, bool keeps_grey);

// Widens ie1g to ie8g and ie8p to ie24RGB so neighbourhood filters can run.
pictavo::Status PrepareForFilter(TIEBitmap& bmp);

// 8-bit luma plane of the bitmap (width * height bytes).
std::vector<uint8_t> LumaPlane(const TIEBitmap& bmp);

template <typename Fn>
pictavo::Status ApplyPixelFunction(TIEBitmap& bmp, Fn fn, bool keeps_grey) {
  if (auto st = PrepareForColor(bmp, keeps_grey); !st.ok()) return st;
  const TIEPixelFormat f = bmp.PixelFormat();
  if (f == TIEPixelFormat::ie8g || f == TIEPixelFormat::ie16g) {
    // Grey in, grey out: a curve over the grey values.
    return ApplyCurves(
        bmp,
        [&](int, double v) {
          double r = v, g = v, b = v;
          fn(r, g, b);
          return (r + g + b) / 3.0;
        },
        true);
  }
  auto to8 = [](double v) { return static_cast<uint8_t>(std::clamp(v * 255.0 + 0.5, 0.0, 255.0)); };
  auto to16 = [](double v) {
    return static_cast<uint16_t>(std::clamp(v * 65535.0 + 0.5, 0.0, 65535.0));
  };
  const int w = bmp.Width(), h = bmp.Height();
  if (f == TIEPixelFormat::ie8p) {
    for (TRGB& e : bmp.Palette()) {
      double r = e.r / 255.0, g = e.g / 255.0, b = e.b / 255.0;
      fn(r, g, b);
      e = TRGB{to8(r), to8(g), to8(b)};
    }
  } else if (f == TIEPixelFormat::ie24RGB) {
    constexpr double k = 1.0 / 255.0;
    for (int y = 0; y < h; ++y) {
      uint8_t* s = bmp.Scanline(y);
      for (int x = 0; x < w; ++x, s += 3) {
        double r = s[0] * k, g = s[1] * k, b = s[2] * k;
        fn(r, g, b);
        s[0] = to8(r);
        s[1] = to8(g);
        s[2] = to8(b);
      }
    }
  } else if (f == TIEPixelFormat::ie48RGB) {
    constexpr double k = 1.0 / 65535.0;
    for (int y = 0; y < h; ++y) {
      auto* s = reinterpret_cast<uint16_t*>(bmp.Scanline(y));
      for (int x = 0; x < w; ++x, s += 3) {
        double r = s[0] * k, g = s[1] * k, b = s[2] * k;
        fn(r, g, b);
        s[0] = to16(r);
        s[1] = to16(g);
        s[2] = to16(b);
      }
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::proc
