// WebP through libwebp (still and animated).
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Frame `opt.frame` (animations are composed by libwebp's animation decoder); ICC read.
pictavo::Status DecodeWEBP(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params);
// Lossy at WEBP_Quality, or lossless with WEBP_Lossless; the alpha plane is kept.
pictavo::Status EncodeWEBP(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
