// Netpbm: PBM, PGM, PPM (plain and raw) and PAM.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodePNM(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
pictavo::Status EncodePBM(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
pictavo::Status EncodePGM(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
pictavo::Status EncodePPM(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
pictavo::Status EncodePAM(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
