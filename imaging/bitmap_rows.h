// Row-level pixel helpers shared by the bitmap, the processing and the drawing code.
// Internal to imaging/; callers outside the engine use TIEBitmap's own accessors.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "imaging/luma.h"

namespace pictavo::imaging::rows {

// Rec. 601 luma in 8.8 fixed point (imaging/luma.h).
inline uint8_t Luma8(int r, int g, int b) {
  return Luma601Fixed8(r, g, b);
}
inline uint16_t Luma16(uint32_t r, uint32_t g, uint32_t b) {
  return Luma601Fixed16(r, g, b);
}

// A 16-bit sample at 8 bits, rounded: (v + 128) / 257, so that 8 -> 16 -> 8 bits is lossless.
// Multiplied rather than divided (exact for every 16-bit value) so that rows vectorise.
inline uint8_t Narrow16(uint16_t v) {
  return static_cast<uint8_t>(((v + 128u) * 65281u) >> 24);
}
inline void Narrow16Row(const uint16_t* __restrict in, uint8_t* __restrict out, size_t count) {
  // Blocks of a fixed length vectorise at -O2 as well; the tail goes one by one.
  size_t i = 0;
  for (; i + 16 <= count; i += 16)
    for (size_t k = 0; k < 16; ++k) out[i + k] = Narrow16(in[i + k]);
  for (; i < count; ++i) out[i] = Narrow16(in[i]);
}

// Naive (profile-less) CMYK: multiplicative ink model, K taken as the common darkness.
inline TRGB CmykToRgb(const uint8_t* cmyk) {
  const int k = 255 - cmyk[3];
  return TRGB{static_cast<uint8_t>(((255 - cmyk[0]) * k + 127) / 255),
              static_cast<uint8_t>(((255 - cmyk[1]) * k + 127) / 255),
              static_cast<uint8_t>(((255 - cmyk[2]) * k + 127) / 255)};
}
inline void RgbToCmyk(TRGB c, uint8_t* cmyk) {
  const int mx = c.r > c.g ? (c.r > c.b ? c.r : c.b) : (c.g > c.b ? c.g : c.b);
  const int k = 255 - mx;
  if (mx == 0) {
    cmyk[0] = cmyk[1] = cmyk[2] = 0;
  } else {
    cmyk[0] = static_cast<uint8_t>(((mx - c.r) * 255 + mx / 2) / mx);
    cmyk[1] = static_cast<uint8_t>(((mx - c.g) * 255 + mx / 2) / mx);
    cmyk[2] = static_cast<uint8_t>(((mx - c.b) * 255 + mx / 2) / mx);
  }
  cmyk[3] = static_cast<uint8_t>(k);
}

// Reads row y as interleaved 8-bit RGB (width * 3 bytes), whatever the layout.
void ReadRGB8(const TIEBitmap& bmp, int y, uint8_t* out);
// Reads row y as interleaved 16-bit RGB (8-bit values scaled by 257).
void ReadRGB16(const TIEBitmap& bmp, int y, uint16_t* out);
// Writes row y from interleaved 16-bit RGB into the bitmap's layout (not ie8p).
void WriteRGB16(TIEBitmap& bmp, int y, const uint16_t* in);
// Writes row y from interleaved 8-bit RGB (not ie8p).
void WriteRGB8(TIEBitmap& bmp, int y, const uint8_t* in);

// Index of the palette entry closest to c (squared RGB distance); 0 for an empty palette.
int NearestPaletteIndex(const std::vector<TRGB>& palette, TRGB c);

}  // namespace pictavo::imaging::rows
