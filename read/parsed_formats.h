// Formats the reader decodes itself from their public descriptions, from bytes in memory (the
// routes in routes_parsed.cpp read the file and save the picture): Tajima DST embroidery, whose
// stitches are drawn, and GIMP patterns. Paint Shop Pro has a header of its own (psp_format.h).
// Every offset and size is checked against the bytes before it is used.
#pragma once

#include <string_view>

#include "imaging/ie_bitmap.h"

namespace pictavo::reader::parsed {

// Draws the stitches of a DST design over white, one pixel per 0.1 mm (254 dpi) with a 2 mm
// margin, each colour block in a thread colour of its own. False when `bytes` is no DST design,
// has fewer than two stitches, or is over 2 m on a side.
bool DrawDst(std::string_view bytes, imaging::TIEBitmap& out);

// The pixels of a GIMP pattern (.pat, version 1): grey or RGB as 24-bit RGB, with an alpha plane
// when the pattern has one. False when the header or the size does not hold.
bool DecodeGimpPattern(std::string_view bytes, imaging::TIEBitmap& out);

}  // namespace pictavo::reader::parsed
