// Shared by the fuzz programs.
#pragma once

#include <cstdint>

#include "imaging/ie_bitmap.h"

namespace pictavo::fuzz {

// Touches the last byte of the picture and of its alpha plane, so that the sanitizer sees a
// bitmap whose size disagrees with its memory.
inline void TouchLastBytes(const imaging::TIEBitmap& bmp) {
  if (bmp.IsEmpty()) return;
  volatile uint8_t sink = bmp.Scanline(bmp.Height() - 1)[bmp.RowLen() - 1];
  if (bmp.HasAlphaChannel()) sink = bmp.AlphaScanline(bmp.Height() - 1)[bmp.Width() - 1];
  (void)sink;
}

}  // namespace pictavo::fuzz
