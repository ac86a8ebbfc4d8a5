// TIFF through libtiff, entirely in memory (client I/O), so hostile files never reach the disk
// twice and the fuzz target exercises the same path.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Reads page `opt.frame`. 1-bit, grey (8/16), palette, RGB (8/16, contiguous or planar),
// CMYK and an extra alpha sample map to the bitmap's layouts; anything else (YCbCr, Lab, odd
// depths, tiles) goes through libtiff's RGBA reader. ImageCount is the number of pages.
pictavo::Status DecodeTIFF(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params);
// Writes a one-page TIFF with TIFF_Compression, TIFF_PhotometInterpret (RGB or separated),
// the JPEG-in-TIFF quality and colour space, the DPI and the ICC profile.
pictavo::Status EncodeTIFF(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out);
// Appends the picture as a further page to the TIFF held in `file`.
pictavo::Status AppendTIFF(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& file);

}  // namespace pictavo::imaging::codecs
