// BMP (Windows and OS/2 headers; 1/4/8-bit palettes, RLE4/RLE8, 16/24/32-bit with bit fields)
// and headerless raw pixel data.
#pragma once

#include "imaging/codecs/codec.h"
#include "imaging/ie_io.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodeBMP(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// 1-bit and 8-bit palettes, 24-bit, and 32-bit with alpha (BITMAPV4 header) when the bitmap
// has an alpha plane.
pictavo::Status EncodeBMP(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
pictavo::Status DecodeRaw(const uint8_t* data, size_t size, const TIORawLayout& layout,
                          TIEBitmap& bmp);
// The inverse of DecodeRaw: `bmp` must already be in the layout's format; the header bytes are
// zeros, and so is the padding at the end of each row.
pictavo::Status EncodeRaw(const TIEBitmap& bmp, const TIORawLayout& layout,
                          std::vector<uint8_t>& out);

// Shared with ICO: decodes a BMP info header + pixels that start at `data` (no file header).
pictavo::Status DecodeDib(const uint8_t* data, size_t size, size_t pixel_offset, bool ico,
                          const DecodeOptions& opt, TIEBitmap* bmp, TIOParamsVals& params);

}  // namespace pictavo::imaging::codecs
