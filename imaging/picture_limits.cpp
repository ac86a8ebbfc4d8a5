#include "imaging/picture_limits.h"

#include "platform/trouble.h"

namespace pictavo::imaging {

std::string AbovePixelLimit(uint64_t max_pixels) {
  return " above the limit of " + std::to_string(max_pixels / 1000000u) +
         " megapixels (\"Limits\"/\"Max_megapixels\")";
}

std::string PixelsAboveLimit(uint64_t width, uint64_t height, uint64_t max_pixels) {
  return std::to_string(width) + " x " + std::to_string(height) + " pixels is" +
         AbovePixelLimit(max_pixels);
}

std::string PictureOverLimits(const PictureLimits& limits, uint64_t width, uint64_t height,
                              uint64_t bytes) {
  // Called for every picture made: nothing is formatted unless a limit is hit.
  constexpr uint64_t kMiB = uint64_t{1} << 20;
  const uint64_t max_mb = limits.max_memory_mb;
  const bool too_many_pixels = width * height > limits.max_pixels;
  if (!too_many_pixels && (max_mb == 0 || bytes <= max_mb * kMiB)) return {};
  std::string why =
      too_many_pixels ? PixelsAboveLimit(width, height, limits.max_pixels)
                      : std::to_string(width) + " x " + std::to_string(height) + " pixels take " +
                            std::to_string((bytes + kMiB - 1) / kMiB) + " MB, above the limit of " +
                            std::to_string(max_mb) + " MB (\"Limits\"/\"Max_memory_mb\")";
  platform::NoteTrouble(platform::Trouble::kLimit, why);
  return why;
}

}  // namespace pictavo::imaging
