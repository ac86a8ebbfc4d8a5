// TIEBitmap: the engine's in-memory bitmap.
//
// Pixels are stored top row first, each row packed without padding:
//   ie1g     1 bit per pixel, most significant bit first, 1 = white
//   ie8g     8-bit grey
//   ie8p     8-bit index into Palette()
//   ie16g    16-bit grey, native-endian uint16_t
//   ie24RGB  R, G, B bytes
//   ie48RGB  R, G, B as native-endian uint16_t
//   ieCMYK   C, M, Y, K bytes (0 = no ink)
// An optional alpha plane holds one byte per pixel (0 transparent, 255 opaque).
//
// Colours passed as TColor follow the engine's convention 0x00BBGGRR (red in the low byte),
// so white is 0xFFFFFF and pure red is 0x0000FF.
//
// A bitmap is owned by one worker at a time; nothing here is shared between objects.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "imaging/picture_limits.h"
#include "platform/status.h"

namespace pictavo::imaging {

enum class TIEPixelFormat { ieNull, ie1g, ie8g, ie8p, ie16g, ie24RGB, ie48RGB, ieCMYK };

using TColor = uint32_t;  // 0x00BBGGRR

struct TRGB {
  uint8_t r = 0, g = 0, b = 0;
  bool operator==(const TRGB&) const = default;
};

inline TRGB TColorToRGB(TColor c) {
  return TRGB{static_cast<uint8_t>(c & 0xFF), static_cast<uint8_t>((c >> 8) & 0xFF),
              static_cast<uint8_t>((c >> 16) & 0xFF)};
}
inline TColor RGBToTColor(TRGB c) {
  return c.r | (c.g << 8) | (c.b << 16);
}

enum class TResampleFilter { rfNearest, rfBilinear, rfBicubic, rfLanczos3 };

// Largest accepted bitmap, in pixels per side and in total; loaders and Allocate refuse more.
inline constexpr int kMaxBitmapSide = 1 << 20;
inline constexpr uint64_t kMaxBitmapPixels = uint64_t{1} << 31;

class TIEBitmap {
 public:
  TIEBitmap() = default;  // "Create": an empty bitmap (Width() == Height() == 0)

  // Sizes the bitmap and zeroes it (black, or index 0), dropping the alpha plane; ie8p gets a
  // 256-entry grey palette. Sizes are checked with overflow-safe arithmetic before allocating;
  // a failure leaves the bitmap empty.
  pictavo::Status Allocate(int width, int height, TIEPixelFormat format);
  void Clear();  // back to empty; the limits stay
  // The job's limits that Allocate holds this bitmap to (null: the default PictureLimits). A
  // copy carries them too, and so do the work bitmaps of the engine's own operations on it;
  // they must outlive the bitmap and its copies.
  void SetLimits(const PictureLimits* limits) { limits_ = limits; }
  const PictureLimits* Limits() const { return limits_; }
  // An empty bitmap held to this one's limits: the work bitmap of an operation that makes a
  // new picture from this one.
  TIEBitmap WorkBitmap() const {
    TIEBitmap work;
    work.limits_ = limits_;
    return work;
  }
  // Hands the pixel rows over (RowLen() bytes each, top row first) and becomes empty. Pixels
  // that Allocate made have room for one more byte a row, so an encoder that frames every row
  // with a byte (PNG's filter type) can work where they lie.
  std::vector<uint8_t> ReleasePixels();

  int Width() const { return width_; }
  int Height() const { return height_; }
  TIEPixelFormat PixelFormat() const { return format_; }
  bool IsEmpty() const { return width_ == 0 || height_ == 0; }
  int BitsPerPixel() const;
  size_t RowLen() const { return row_len_; }

  uint8_t* Scanline(int y) { return pixels_.data() + static_cast<size_t>(y) * row_len_; }
  const uint8_t* Scanline(int y) const {
    return pixels_.data() + static_cast<size_t>(y) * row_len_;
  }

  // Palette of ie8p (up to 256 entries); also kept for ie1g when a file gives one.
  std::vector<TRGB>& Palette() { return palette_; }
  const std::vector<TRGB>& Palette() const { return palette_; }

  // Alpha plane.
  bool HasAlphaChannel() const { return !alpha_.empty(); }
  void AddAlphaChannel(uint8_t fill = 255);
  uint8_t* AlphaScanline(int y) { return alpha_.data() + static_cast<size_t>(y) * width_; }
  const uint8_t* AlphaScanline(int y) const {
    return alpha_.data() + static_cast<size_t>(y) * width_;
  }
  uint8_t GetAlpha(int x, int y) const;    // 255 without an alpha plane
  void SetAlpha(int x, int y, uint8_t a);  // adds the plane when missing
  // Drops the alpha plane, compositing every pixel onto `background` first.
  void RemoveAlphaChannel(TColor background = 0xFFFFFF);

  // One pixel in any layout, as 8-bit RGB (CMYK converted naively, 16-bit scaled down).
  TRGB GetPixels(int x, int y) const;
  bool GetPixels_ie1g(int x, int y) const;       // ie1g only
  uint8_t GetPixels_ie8(int x, int y) const;     // ie8g / ie8p only
  TRGB GetPixels_ie24RGB(int x, int y) const;    // ie24RGB only
  void SetPixels_ie24RGB(int x, int y, TRGB c);  // ie24RGB only
  void SetPixel(int x, int y, TRGB c);           // any layout (nearest value)

  void Fill(TColor color);
  void FillRect(int x, int y, int width, int height, TColor color);  // clipped to the bitmap
  // Copies a rectangle (clipped on both sides) into dest at (dx, dy); dest keeps its layout.
  void CopyRectTo(TIEBitmap& dest, int sx, int sy, int dx, int dy, int width, int height) const;

  // Resizes in place (separable filters); the layout is kept, ie1g/ie8p go through RGB/grey.
  pictavo::Status Resample(int new_width, int new_height,
                           TResampleFilter filter = TResampleFilter::rfLanczos3);

  bool IsGrayScale() const;

  // Converts the pixels to another layout (palette reduction is TImageEnProc's job).
  pictavo::Status ConvertTo(TIEPixelFormat format);
  // Becomes `source` in another layout, alpha plane included, without first copying source's
  // pixels as they are: the same result as Assign(source) then ConvertTo(format).
  pictavo::Status ConvertFrom(const TIEBitmap& source, TIEPixelFormat format);

  void Assign(const TIEBitmap& other) { *this = other; }

  // Keeps only the rectangle (clipped to the bitmap); layout, palette and alpha are kept.
  // An empty intersection is refused and leaves the bitmap unchanged.
  pictavo::Status Crop(int x, int y, int width, int height);

 private:
  // Allocates `out` in `format` and fills it with from's pixels (no alpha, no palette).
  static pictavo::Status ConvertRows(const TIEBitmap& from, TIEBitmap& out, TIEPixelFormat format);

  int width_ = 0;
  int height_ = 0;
  TIEPixelFormat format_ = TIEPixelFormat::ieNull;
  size_t row_len_ = 0;
  std::vector<uint8_t> pixels_;
  std::vector<uint8_t> alpha_;
  std::vector<TRGB> palette_;
  const PictureLimits* limits_ = nullptr;
};

}  // namespace pictavo::imaging
