// Analytic test images for the imaging core tests.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <random>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"

namespace pictavo::imaging::testing {

inline constexpr TIEPixelFormat kAllLayouts[] = {
    TIEPixelFormat::ie1g,    TIEPixelFormat::ie8g,    TIEPixelFormat::ie8p,  TIEPixelFormat::ie16g,
    TIEPixelFormat::ie24RGB, TIEPixelFormat::ie48RGB, TIEPixelFormat::ieCMYK};

inline const char* LayoutName(TIEPixelFormat f) {
  switch (f) {
    case TIEPixelFormat::ie1g:
      return "ie1g";
    case TIEPixelFormat::ie8g:
      return "ie8g";
    case TIEPixelFormat::ie8p:
      return "ie8p";
    case TIEPixelFormat::ie16g:
      return "ie16g";
    case TIEPixelFormat::ie24RGB:
      return "ie24RGB";
    case TIEPixelFormat::ie48RGB:
      return "ie48RGB";
    case TIEPixelFormat::ieCMYK:
      return "ieCMYK";
    default:
      return "ieNull";
  }
}

inline TIEBitmap Make24(int w, int h) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  return b;
}

// r rises with x, g with y, b constant: every pixel distinct on a 256 x 256 image.
inline TIEBitmap ColourGradient(int w, int h) {
  TIEBitmap b = Make24(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      b.SetPixels_ie24RGB(x, y,
                          TRGB{static_cast<uint8_t>(x * 255 / (w > 1 ? w - 1 : 1)),
                               static_cast<uint8_t>(y * 255 / (h > 1 ? h - 1 : 1)), 96});
  return b;
}

inline TIEBitmap Checkerboard(int w, int h, int cell, TRGB a, TRGB b) {
  TIEBitmap bmp = Make24(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) bmp.SetPixels_ie24RGB(x, y, ((x / cell + y / cell) & 1) ? b : a);
  return bmp;
}

inline TIEBitmap Noise(int w, int h, unsigned seed) {
  TIEBitmap b = Make24(w, h);
  std::mt19937 rng(seed);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      b.SetPixels_ie24RGB(x, y,
                          TRGB{static_cast<uint8_t>(rng()), static_cast<uint8_t>(rng()),
                               static_cast<uint8_t>(rng())});
  return b;
}

inline int MaxChannelDiff(TRGB a, TRGB b) {
  return std::max({std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b)});
}

inline bool SamePixels(const TIEBitmap& a, const TIEBitmap& b) {
  if (a.Width() != b.Width() || a.Height() != b.Height() || a.PixelFormat() != b.PixelFormat())
    return false;
  for (int y = 0; y < a.Height(); ++y)
    for (int x = 0; x < a.Width(); ++x)
      if (!(a.GetPixels(x, y) == b.GetPixels(x, y))) return false;
  return true;
}

}  // namespace pictavo::imaging::testing
