// JPEG through libjpeg-turbo.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Reads gray, RGB/YCbCr and CMYK/YCCK files (Adobe's inverted CMYK is turned back), the JFIF
// density as DPI, the ICC profile and the kept markers. A file cut short fails.
pictavo::Status DecodeJPEG(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params);
// Writes ie8g, ie24RGB or ieCMYK with JPEG_Quality, JPEG_ColorSpace, JPEG_Progressive, the
// DPI, the ICC profile and JPEG_MarkerList. EXIF, IPTC and XMP are added by the metadata pass.
pictavo::Status EncodeJPEG(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
