// Palette reduction: median cut over a 15-bit colour histogram, with optional dithering.
// Pure functions over caller-owned bitmaps; safe to call from several workers at once.
#pragma once

#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging {

enum class TIEDitherMethod { ieNoDither, ieOrdered, ieFloydSteinberg };

// Up to max_colors (1..256) representative colours of src. When src holds no more distinct
// colours than that, the palette is exactly those colours.
std::vector<TRGB> BuildPalette(const TIEBitmap& src, int max_colors);

// Writes src into dst as ie8p with the given palette (dst is reallocated; src's alpha plane is
// copied). src and dst must be different objects.
pictavo::Status MapToPalette(const TIEBitmap& src, const std::vector<TRGB>& palette,
                             TIEDitherMethod dither, TIEBitmap& dst);

}  // namespace pictavo::imaging
