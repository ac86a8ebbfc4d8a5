// Photoshop PSD: the merged (composite) image only; layers are not read.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Bitmap, grey, duotone (as grey), indexed, RGB and CMYK modes at 1, 8 or 16 bits, raw or
// PackBits; a fourth/fifth channel becomes the alpha plane; the ICC resource is read.
pictavo::Status DecodePSD(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);

}  // namespace pictavo::imaging::codecs
