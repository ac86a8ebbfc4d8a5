// PNG: read through libpng; written with libpng for the chunks and the encoder's own row filters
// and libdeflate for the image data (libpng whole for interlaced pictures).
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Keeps 1-bit grey as ie1g, palettes as ie8p, 16-bit as ie16g/ie48RGB; transparency (alpha
// channel or tRNS) becomes the alpha plane. Reads pHYs (DPI), iCCP and bKGD.
pictavo::Status DecodePNG(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// Writes every layout except CMYK, with PNG_Compression, PNG_Interlaced, the background colour,
// the DPI and the ICC profile.
pictavo::Status EncodePNG(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
// The same file, for a bitmap that is not needed afterwards: its pixels are filtered where they
// lie instead of into a second picture-sized buffer. The bitmap is left empty.
pictavo::Status EncodePNGReleasing(TIEBitmap& bmp, const TIOParamsVals& params,
                                   std::vector<uint8_t>& out);

}  // namespace pictavo::imaging::codecs
