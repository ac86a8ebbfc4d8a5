// Truevision TGA: colour-mapped, true-colour (15/16/24/32) and grey, raw or RLE, any origin.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodeTGA(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// ie8g, ie8p, ie24RGB (32-bit with an alpha plane); RLE when TGA_Compressed.
pictavo::Status EncodeTGA(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
