#include "imaging/codecs/codec.h"

#include "imaging/picture_limits.h"

namespace pictavo::imaging::codecs {

pictavo::Status CheckDimensions(int64_t width, int64_t height, uint64_t max_pixels) {
  if (width <= 0 || height <= 0) return pictavo::Status::Error("picture has no pixels");
  if (width > kMaxBitmapSide || height > kMaxBitmapSide)
    return pictavo::Status::Error("picture is too large");
  if (static_cast<uint64_t>(width) * static_cast<uint64_t>(height) > max_pixels)
    return pictavo::Status::Error(
        PixelsAboveLimit(static_cast<uint64_t>(width), static_cast<uint64_t>(height), max_pixels),
        kOverJobLimit);
  return pictavo::Status::OK();
}

pictavo::Status Corrupt(const char* format, const char* what) {
  return pictavo::Status::Error(std::string(format) +
                                " file is damaged: " + (what ? what : "unknown error"));
}

void RowToRGB(const TIEBitmap& bmp, int y, uint8_t* rgb) {
  const uint8_t* s = bmp.Scanline(y);
  const int w = bmp.Width();
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie24RGB:
      std::memcpy(rgb, s, static_cast<size_t>(w) * 3);
      return;
    case TIEPixelFormat::ie8g:
      for (int x = 0; x < w; ++x) rgb[3 * x] = rgb[3 * x + 1] = rgb[3 * x + 2] = s[x];
      return;
    default:
      for (int x = 0; x < w; ++x) {
        TRGB c = bmp.GetPixels(x, y);
        rgb[3 * x] = c.r;
        rgb[3 * x + 1] = c.g;
        rgb[3 * x + 2] = c.b;
      }
      return;
  }
}

}  // namespace pictavo::imaging::codecs
