// QOI ("Quite OK Image"): RGB and RGBA, 8 bits.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodeQOI(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
pictavo::Status EncodeQOI(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
