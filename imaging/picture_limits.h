// How large a picture the in-process engine may decode or make: the job's "Limits", handed to
// the imaging calls by their owner (a bitmap carries the limits it was given; see TIEBitmap).
//
// A refusal is a Status of code kOverJobLimit whose message names the setting that would allow
// the picture; it is also noted as a Trouble::kLimit with the calling thread's recorder.
#pragma once

#include <cstdint>
#include <string>

namespace pictavo::imaging {

struct PictureLimits {
  uint64_t max_pixels = uint64_t{1} << 28;  // 268 megapixels: 1 GiB at 32 bits per pixel
  uint64_t max_memory_mb = 2048;            // the largest picture in 48-bit RGB fits; 0 = none
};

// The code of a Status that refuses a picture for a job limit (its message names the limit).
inline constexpr int kOverJobLimit = 2;

// Why a picture of width x height pixels whose pixels take `bytes` may not be made in-process
// under `limits`, naming the setting that would allow it; empty when it is within them.
std::string PictureOverLimits(const PictureLimits& limits, uint64_t width, uint64_t height,
                              uint64_t bytes);
// " above the limit of N megapixels (\"Limits\"/\"Max_megapixels\")", for callers that measure
// something else in pixels (a page at a resolution).
std::string AbovePixelLimit(uint64_t max_pixels);
// "W x H pixels is above the limit of N megapixels (...)": a picture over a pixel cap.
std::string PixelsAboveLimit(uint64_t width, uint64_t height, uint64_t max_pixels);

}  // namespace pictavo::imaging
