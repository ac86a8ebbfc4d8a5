// PCX (ZSoft): 1-bit, 4-bit planar, 8-bit palette and 24-bit (3 planes), RLE or raw.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodePCX(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// ie1g as 1 plane of 1 bit, ie8p/ie8g with the 256-colour palette, ie24RGB as 3 planes;
// PCX_Compression chooses RLE (the usual) or raw scan lines.
pictavo::Status EncodePCX(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
