// Helpers shared by the TImageEnProc implementation files. Internal to imaging/.
#pragma once

#include <functional>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging::proc {

// Widens the bitmap to a layout a colour operation can work on (see ie_proc.h).
pictavo::Status PrepareForColor(TIEBitmap& bmp, bool keeps_grey);

// Applies out = curve(channel, in) with values in 0..1 (channel 0 red, 1 green, 2 blue)
// through lookup tables. keeps_grey: the same curve for the three channels.
pictavo::Status ApplyCurves(TIEBitmap& bmp, const std::function<double(int, double)>& curve,
                            bool keeps_grey);

// Applies a whole-pixel function on r, g, b in 0..1. keeps_grey: grey in gives grey out.
pictavo::Status ApplyPixelFunction(TIEBitmap& bmp,
                                   const std::function<void(double&, double&, double&)>& fn,
                                   bool keeps_grey);

// Widens ie1g to ie8g and ie8p to ie24RGB so neighbourhood filters can run.
pictavo::Status PrepareForFilter(TIEBitmap& bmp);

// 8-bit luma plane of the bitmap (width * height bytes).
std::vector<uint8_t> LumaPlane(const TIEBitmap& bmp);

}  // namespace pictavo::imaging::proc
