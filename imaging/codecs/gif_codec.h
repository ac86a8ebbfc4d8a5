// GIF through giflib.
#pragma once

#include "imaging/codecs/codec.h"

namespace pictavo::imaging::codecs {

// Frame `opt.frame`, composed over the earlier frames as a viewer shows it (disposal methods
// honoured): a single-frame file gives ie8p, later frames of an animation ie24RGB; transparency
// becomes the alpha plane. ImageCount, GIF_Frames, GIF_Loop are filled.
pictavo::Status DecodeGIF(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params);
// One-frame GIF (palette of the bitmap, or a reduction of RGB), with GIF_DelayTime,
// GIF_TransparentIndex (or transparency from the alpha plane) and GIF_Loop.
pictavo::Status EncodeGIF(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out);
// Adds the picture as the last frame of the GIF in `file`.
pictavo::Status AppendGIF(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& file);

}  // namespace pictavo::imaging::codecs
