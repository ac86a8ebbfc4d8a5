// Windows icons and cursors: BMP or PNG images in an ICONDIR.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Frame `opt.frame` of the icon (ImageCount = number of images); by default the first.
pictavo::Status DecodeICO(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// One 32-bit image (sides up to 256; larger pictures are stored as PNG inside the icon).
pictavo::Status EncodeICO(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
