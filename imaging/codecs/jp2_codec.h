// JPEG 2000 through OpenJPEG: JP2 boxes and bare code streams.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Grey or RGB, with a further component as alpha; precisions up to 8 bits give 8-bit layouts,
// deeper ones 16-bit; subsampled components are stretched back.
pictavo::Status DecodeJP2(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// J2000_Rate is the size as a fraction of the raw picture; 1.0 or more writes lossless.
pictavo::Status EncodeJP2(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
pictavo::Status EncodeJ2K(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
