#include "imaging/ie_bitmap.h"

#include <algorithm>
#include <cstring>
#include <new>
#include <string>
#include <utility>

#include "imaging/bitmap_rows.h"
#include "imaging/quantize.h"
#include "imaging/resample.h"

namespace pictavo::imaging {

namespace {

int BitsOf(TIEPixelFormat f) {
  switch (f) {
    case TIEPixelFormat::ie1g:
      return 1;
    case TIEPixelFormat::ie8g:
    case TIEPixelFormat::ie8p:
      return 8;
    case TIEPixelFormat::ie16g:
      return 16;
    case TIEPixelFormat::ie24RGB:
      return 24;
    case TIEPixelFormat::ie48RGB:
      return 48;
    case TIEPixelFormat::ieCMYK:
      return 32;
    case TIEPixelFormat::ieNull:
      return 0;
  }
  return 0;
}

bool IsGreyColor(TRGB c) {
  return c.r == c.g && c.g == c.b;
}

std::vector<TRGB> GreyPalette(int entries) {
  std::vector<TRGB> pal(entries);
  for (int i = 0; i < entries; ++i) {
    const auto v = static_cast<uint8_t>(entries == 1 ? 0 : i * 255 / (entries - 1));
    pal[i] = TRGB{v, v, v};
  }
  return pal;
}

inline uint8_t Blend8(int v, int bg, int a) {
  return static_cast<uint8_t>((v * a + bg * (255 - a) + 127) / 255);
}
inline uint16_t Blend16(uint32_t v, uint32_t bg, uint32_t a) {
  return static_cast<uint16_t>((v * a + bg * (255 - a) + 127) / 255);
}

}  // namespace

// ---------------------------------------------------------------------------------------------
// Row helpers

namespace rows {

void ReadRGB16(const TIEBitmap& bmp, int y, uint16_t* out) {
  const int w = bmp.Width();
  const uint8_t* s = bmp.Scanline(y);
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie48RGB:
      std::memcpy(out, s, static_cast<size_t>(w) * 6);
      return;
    case TIEPixelFormat::ie16g: {
      const auto* p = reinterpret_cast<const uint16_t*>(s);
      for (int x = 0; x < w; ++x) out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = p[x];
      return;
    }
    default: {
      std::vector<uint8_t> tmp(static_cast<size_t>(w) * 3);
      ReadRGB8(bmp, y, tmp.data());
      for (size_t i = 0; i < tmp.size(); ++i) out[i] = static_cast<uint16_t>(tmp[i] * 257);
    }
  }
}

void ReadRGB8(const TIEBitmap& bmp, int y, uint8_t* out) {
  const int w = bmp.Width();
  const uint8_t* s = bmp.Scanline(y);
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie1g:
      for (int x = 0; x < w; ++x) {
        const uint8_t v = (s[x >> 3] >> (7 - (x & 7))) & 1 ? 255 : 0;
        out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = v;
      }
      return;
    case TIEPixelFormat::ie8g:
      for (int x = 0; x < w; ++x) out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = s[x];
      return;
    case TIEPixelFormat::ie8p: {
      const auto& pal = bmp.Palette();
      for (int x = 0; x < w; ++x) {
        const TRGB c = s[x] < pal.size() ? pal[s[x]] : TRGB{};
        out[3 * x] = c.r;
        out[3 * x + 1] = c.g;
        out[3 * x + 2] = c.b;
      }
      return;
    }
    case TIEPixelFormat::ie16g: {
      const auto* p = reinterpret_cast<const uint16_t*>(s);
      for (int x = 0; x < w; ++x) out[3 * x] = out[3 * x + 1] = out[3 * x + 2] = p[x] >> 8;
      return;
    }
    case TIEPixelFormat::ie24RGB:
      std::memcpy(out, s, static_cast<size_t>(w) * 3);
      return;
    case TIEPixelFormat::ie48RGB: {
      const auto* p = reinterpret_cast<const uint16_t*>(s);
      for (int i = 0; i < w * 3; ++i) out[i] = p[i] >> 8;
      return;
    }
    case TIEPixelFormat::ieCMYK:
      for (int x = 0; x < w; ++x) {
        const TRGB c = CmykToRgb(s + 4 * x);
        out[3 * x] = c.r;
        out[3 * x + 1] = c.g;
        out[3 * x + 2] = c.b;
      }
      return;
    case TIEPixelFormat::ieNull:
      return;
  }
}

void WriteRGB16(TIEBitmap& bmp, int y, const uint16_t* in) {
  const int w = bmp.Width();
  uint8_t* d = bmp.Scanline(y);
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie48RGB:
      std::memcpy(d, in, static_cast<size_t>(w) * 6);
      return;
    case TIEPixelFormat::ie16g: {
      auto* p = reinterpret_cast<uint16_t*>(d);
      for (int x = 0; x < w; ++x) p[x] = Luma16(in[3 * x], in[3 * x + 1], in[3 * x + 2]);
      return;
    }
    default: {
      std::vector<uint8_t> tmp(static_cast<size_t>(w) * 3);
      // Rounded rather than truncated so that 8 -> 16 -> 8 bits is lossless.
      Narrow16Row(in, tmp.data(), tmp.size());
      WriteRGB8(bmp, y, tmp.data());
    }
  }
}

void WriteRGB8(TIEBitmap& bmp, int y, const uint8_t* in) {
  const int w = bmp.Width();
  uint8_t* d = bmp.Scanline(y);
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie1g:
      std::memset(d, 0, bmp.RowLen());
      for (int x = 0; x < w; ++x)
        if (Luma8(in[3 * x], in[3 * x + 1], in[3 * x + 2]) >= 128) d[x >> 3] |= 0x80 >> (x & 7);
      return;
    case TIEPixelFormat::ie8g:
      for (int x = 0; x < w; ++x) d[x] = Luma8(in[3 * x], in[3 * x + 1], in[3 * x + 2]);
      return;
    case TIEPixelFormat::ie8p: {
      const auto& pal = bmp.Palette();
      for (int x = 0; x < w; ++x)
        d[x] = static_cast<uint8_t>(
            NearestPaletteIndex(pal, TRGB{in[3 * x], in[3 * x + 1], in[3 * x + 2]}));
      return;
    }
    case TIEPixelFormat::ie16g: {
      auto* p = reinterpret_cast<uint16_t*>(d);
      for (int x = 0; x < w; ++x) p[x] = Luma8(in[3 * x], in[3 * x + 1], in[3 * x + 2]) * 257;
      return;
    }
    case TIEPixelFormat::ie24RGB:
      std::memcpy(d, in, static_cast<size_t>(w) * 3);
      return;
    case TIEPixelFormat::ie48RGB: {
      auto* p = reinterpret_cast<uint16_t*>(d);
      for (int i = 0; i < w * 3; ++i) p[i] = in[i] * 257;
      return;
    }
    case TIEPixelFormat::ieCMYK:
      for (int x = 0; x < w; ++x)
        RgbToCmyk(TRGB{in[3 * x], in[3 * x + 1], in[3 * x + 2]}, d + 4 * x);
      return;
    case TIEPixelFormat::ieNull:
      return;
  }
}

int NearestPaletteIndex(const std::vector<TRGB>& palette, TRGB c) {
  int best = 0;
  int best_d = 1 << 30;
  for (size_t i = 0; i < palette.size(); ++i) {
    const int dr = palette[i].r - c.r, dg = palette[i].g - c.g, db = palette[i].b - c.b;
    const int d = dr * dr + dg * dg + db * db;
    if (d < best_d) {
      best_d = d;
      best = static_cast<int>(i);
      if (d == 0) break;
    }
  }
  return best;
}

}  // namespace rows

// ---------------------------------------------------------------------------------------------
// Size and storage

pictavo::Status TIEBitmap::Allocate(int width, int height, TIEPixelFormat format) {
  Clear();
  if (format == TIEPixelFormat::ieNull) return pictavo::Status::Error("no pixel format given");
  if (width <= 0 || height <= 0) return pictavo::Status::Error("bitmap size must be positive");
  if (width > kMaxBitmapSide || height > kMaxBitmapSide)
    return pictavo::Status::Error("bitmap side too large");
  const uint64_t pixels = static_cast<uint64_t>(width) * static_cast<uint64_t>(height);
  if (pixels > kMaxBitmapPixels) return pictavo::Status::Error("bitmap too large");
  const uint64_t row_bits = static_cast<uint64_t>(width) * BitsOf(format);
  const uint64_t row_len = (row_bits + 7) / 8;
  uint64_t total = 0;
  if (__builtin_mul_overflow(row_len, static_cast<uint64_t>(height), &total) ||
      total > SIZE_MAX / 2)
    return pictavo::Status::Error("bitmap too large");
  // The job's caps hold for every picture, not only decoded ones: an action that enlarges or a
  // layout change that deepens is refused here with the setting to raise.
  static const PictureLimits kDefaults;
  if (std::string why =
          PictureOverLimits(limits_ ? *limits_ : kDefaults, static_cast<uint64_t>(width),
                            static_cast<uint64_t>(height), total);
      !why.empty())
    return pictavo::Status::Error(why, kOverJobLimit);
  try {
    pixels_.reserve(static_cast<size_t>(total) + static_cast<size_t>(height));
    pixels_.assign(static_cast<size_t>(total), 0);
  } catch (const std::bad_alloc&) {
    pixels_.clear();
    return pictavo::Status::Error("out of memory for the bitmap");
  }
  width_ = width;
  height_ = height;
  format_ = format;
  row_len_ = static_cast<size_t>(row_len);
  if (format == TIEPixelFormat::ie8p) palette_ = GreyPalette(256);
  return pictavo::Status::OK();
}

std::vector<uint8_t> TIEBitmap::ReleasePixels() {
  std::vector<uint8_t> pixels = std::move(pixels_);
  Clear();
  return pixels;
}

void TIEBitmap::Clear() {
  width_ = height_ = 0;
  format_ = TIEPixelFormat::ieNull;
  row_len_ = 0;
  pixels_.clear();
  pixels_.shrink_to_fit();
  alpha_.clear();
  alpha_.shrink_to_fit();
  palette_.clear();
}

int TIEBitmap::BitsPerPixel() const {
  return BitsOf(format_);
}

// ---------------------------------------------------------------------------------------------
// Alpha

void TIEBitmap::AddAlphaChannel(uint8_t fill) {
  if (IsEmpty()) return;
  if (alpha_.empty()) alpha_.assign(static_cast<size_t>(width_) * height_, fill);
}

uint8_t TIEBitmap::GetAlpha(int x, int y) const {
  if (alpha_.empty()) return 255;
  return alpha_[static_cast<size_t>(y) * width_ + x];
}

void TIEBitmap::SetAlpha(int x, int y, uint8_t a) {
  if (alpha_.empty()) AddAlphaChannel(255);
  alpha_[static_cast<size_t>(y) * width_ + x] = a;
}

void TIEBitmap::RemoveAlphaChannel(TColor background) {
  if (alpha_.empty()) return;
  const bool opaque = std::all_of(alpha_.begin(), alpha_.end(), [](uint8_t a) { return a == 255; });
  const TRGB bg = TColorToRGB(background);
  if (!opaque) {
    // Layouts that cannot hold the blended colours are widened first.
    const bool grey_bg = IsGreyColor(bg);
    if (format_ == TIEPixelFormat::ie1g || format_ == TIEPixelFormat::ie8p ||
        (!grey_bg && format_ == TIEPixelFormat::ie8g)) {
      if (!ConvertTo(TIEPixelFormat::ie24RGB).ok()) return;
    } else if (!grey_bg && format_ == TIEPixelFormat::ie16g) {
      if (!ConvertTo(TIEPixelFormat::ie48RGB).ok()) return;
    }
    uint8_t bg_cmyk[4];
    rows::RgbToCmyk(bg, bg_cmyk);
    for (int y = 0; y < height_; ++y) {
      uint8_t* d = Scanline(y);
      const uint8_t* a = AlphaScanline(y);
      for (int x = 0; x < width_; ++x) {
        const int al = a[x];
        if (al == 255) continue;
        switch (format_) {
          case TIEPixelFormat::ie8g:
            d[x] = Blend8(d[x], bg.r, al);
            break;
          case TIEPixelFormat::ie16g: {
            auto* p = reinterpret_cast<uint16_t*>(d);
            p[x] = Blend16(p[x], bg.r * 257u, al);
            break;
          }
          case TIEPixelFormat::ie24RGB:
            d[3 * x] = Blend8(d[3 * x], bg.r, al);
            d[3 * x + 1] = Blend8(d[3 * x + 1], bg.g, al);
            d[3 * x + 2] = Blend8(d[3 * x + 2], bg.b, al);
            break;
          case TIEPixelFormat::ie48RGB: {
            auto* p = reinterpret_cast<uint16_t*>(d);
            p[3 * x] = Blend16(p[3 * x], bg.r * 257u, al);
            p[3 * x + 1] = Blend16(p[3 * x + 1], bg.g * 257u, al);
            p[3 * x + 2] = Blend16(p[3 * x + 2], bg.b * 257u, al);
            break;
          }
          case TIEPixelFormat::ieCMYK:
            for (int c = 0; c < 4; ++c) d[4 * x + c] = Blend8(d[4 * x + c], bg_cmyk[c], al);
            break;
          default:
            break;
        }
      }
    }
  }
  alpha_.clear();
  alpha_.shrink_to_fit();
}

// ---------------------------------------------------------------------------------------------
// Single pixels

TRGB TIEBitmap::GetPixels(int x, int y) const {
  const uint8_t* s = Scanline(y);
  switch (format_) {
    case TIEPixelFormat::ie1g: {
      const uint8_t v = (s[x >> 3] >> (7 - (x & 7))) & 1 ? 255 : 0;
      return TRGB{v, v, v};
    }
    case TIEPixelFormat::ie8g:
      return TRGB{s[x], s[x], s[x]};
    case TIEPixelFormat::ie8p:
      return s[x] < palette_.size() ? palette_[s[x]] : TRGB{};
    case TIEPixelFormat::ie16g: {
      const auto v = static_cast<uint8_t>(reinterpret_cast<const uint16_t*>(s)[x] >> 8);
      return TRGB{v, v, v};
    }
    case TIEPixelFormat::ie24RGB:
      return TRGB{s[3 * x], s[3 * x + 1], s[3 * x + 2]};
    case TIEPixelFormat::ie48RGB: {
      const auto* p = reinterpret_cast<const uint16_t*>(s) + 3 * x;
      return TRGB{static_cast<uint8_t>(p[0] >> 8), static_cast<uint8_t>(p[1] >> 8),
                  static_cast<uint8_t>(p[2] >> 8)};
    }
    case TIEPixelFormat::ieCMYK:
      return rows::CmykToRgb(s + 4 * x);
    case TIEPixelFormat::ieNull:
      break;
  }
  return TRGB{};
}

bool TIEBitmap::GetPixels_ie1g(int x, int y) const {
  return (Scanline(y)[x >> 3] >> (7 - (x & 7))) & 1;
}

uint8_t TIEBitmap::GetPixels_ie8(int x, int y) const {
  return Scanline(y)[x];
}

TRGB TIEBitmap::GetPixels_ie24RGB(int x, int y) const {
  const uint8_t* s = Scanline(y) + 3 * x;
  return TRGB{s[0], s[1], s[2]};
}

void TIEBitmap::SetPixels_ie24RGB(int x, int y, TRGB c) {
  uint8_t* d = Scanline(y) + 3 * x;
  d[0] = c.r;
  d[1] = c.g;
  d[2] = c.b;
}

void TIEBitmap::SetPixel(int x, int y, TRGB c) {
  uint8_t* d = Scanline(y);
  switch (format_) {
    case TIEPixelFormat::ie1g:
      if (rows::Luma8(c.r, c.g, c.b) >= 128)
        d[x >> 3] |= 0x80 >> (x & 7);
      else
        d[x >> 3] &= ~(0x80 >> (x & 7));
      break;
    case TIEPixelFormat::ie8g:
      d[x] = rows::Luma8(c.r, c.g, c.b);
      break;
    case TIEPixelFormat::ie8p:
      d[x] = static_cast<uint8_t>(rows::NearestPaletteIndex(palette_, c));
      break;
    case TIEPixelFormat::ie16g:
      reinterpret_cast<uint16_t*>(d)[x] = rows::Luma8(c.r, c.g, c.b) * 257;
      break;
    case TIEPixelFormat::ie24RGB:
      SetPixels_ie24RGB(x, y, c);
      break;
    case TIEPixelFormat::ie48RGB: {
      auto* p = reinterpret_cast<uint16_t*>(d) + 3 * x;
      p[0] = c.r * 257;
      p[1] = c.g * 257;
      p[2] = c.b * 257;
      break;
    }
    case TIEPixelFormat::ieCMYK:
      rows::RgbToCmyk(c, d + 4 * x);
      break;
    case TIEPixelFormat::ieNull:
      break;
  }
}

// ---------------------------------------------------------------------------------------------
// Filling and copying

void TIEBitmap::Fill(TColor color) {
  FillRect(0, 0, width_, height_, color);
}

void TIEBitmap::FillRect(int x, int y, int width, int height, TColor color) {
  const int x0 = std::max(0, x), y0 = std::max(0, y);
  const int x1 = static_cast<int>(std::min<int64_t>(width_, int64_t{x} + width));
  const int y1 = static_cast<int>(std::min<int64_t>(height_, int64_t{y} + height));
  if (x0 >= x1 || y0 >= y1) return;
  const TRGB c = TColorToRGB(color);
  if (format_ == TIEPixelFormat::ie1g) {
    const bool white = rows::Luma8(c.r, c.g, c.b) >= 128;
    for (int yy = y0; yy < y1; ++yy) {
      uint8_t* d = Scanline(yy);
      for (int xx = x0; xx < x1; ++xx) {
        if (white)
          d[xx >> 3] |= 0x80 >> (xx & 7);
        else
          d[xx >> 3] &= ~(0x80 >> (xx & 7));
      }
    }
    return;
  }
  // Encode the colour once in the native layout, then replicate it.
  const int bpp = BitsOf(format_) / 8;
  SetPixel(x0, y0, c);
  uint8_t sample[8];
  std::memcpy(sample, Scanline(y0) + static_cast<size_t>(x0) * bpp, bpp);
  for (int yy = y0; yy < y1; ++yy) {
    uint8_t* d = Scanline(yy) + static_cast<size_t>(x0) * bpp;
    for (int xx = x0; xx < x1; ++xx, d += bpp) std::memcpy(d, sample, bpp);
  }
}

void TIEBitmap::CopyRectTo(TIEBitmap& dest, int sx, int sy, int dx, int dy, int width,
                           int height) const {
  if (&dest == this || IsEmpty() || dest.IsEmpty()) return;
  // Clip against the source, then against the destination.
  if (sx < 0) {
    width += sx;
    dx -= sx;
    sx = 0;
  }
  if (sy < 0) {
    height += sy;
    dy -= sy;
    sy = 0;
  }
  if (dx < 0) {
    width += dx;
    sx -= dx;
    dx = 0;
  }
  if (dy < 0) {
    height += dy;
    sy -= dy;
    dy = 0;
  }
  width = std::min({width, width_ - sx, dest.width_ - dx});
  height = std::min({height, height_ - sy, dest.height_ - dy});
  if (width <= 0 || height <= 0) return;

  const bool same_layout = format_ == dest.format_ && format_ != TIEPixelFormat::ie1g &&
                           (format_ != TIEPixelFormat::ie8p || palette_ == dest.palette_);
  if (same_layout) {
    const size_t bpp = BitsOf(format_) / 8;
    for (int y = 0; y < height; ++y)
      std::memcpy(dest.Scanline(dy + y) + (dx * bpp), Scanline(sy + y) + (sx * bpp), width * bpp);
  } else if (format_ == TIEPixelFormat::ie1g && dest.format_ == TIEPixelFormat::ie1g) {
    for (int y = 0; y < height; ++y) {
      const uint8_t* s = Scanline(sy + y);
      uint8_t* d = dest.Scanline(dy + y);
      for (int x = 0; x < width; ++x) {
        const int si = sx + x, di = dx + x;
        if ((s[si >> 3] >> (7 - (si & 7))) & 1)
          d[di >> 3] |= 0x80 >> (di & 7);
        else
          d[di >> 3] &= ~(0x80 >> (di & 7));
      }
    }
  } else {
    for (int y = 0; y < height; ++y)
      for (int x = 0; x < width; ++x) dest.SetPixel(dx + x, dy + y, GetPixels(sx + x, sy + y));
  }

  if (HasAlphaChannel() || dest.HasAlphaChannel()) {
    dest.AddAlphaChannel(255);
    for (int y = 0; y < height; ++y) {
      uint8_t* d = dest.AlphaScanline(dy + y) + dx;
      if (HasAlphaChannel())
        std::memcpy(d, AlphaScanline(sy + y) + sx, width);
      else
        std::memset(d, 255, width);
    }
  }
}

pictavo::Status TIEBitmap::Crop(int x, int y, int width, int height) {
  const int x0 = std::max(0, x), y0 = std::max(0, y);
  const int x1 = static_cast<int>(std::min<int64_t>(width_, int64_t{x} + width));
  const int y1 = static_cast<int>(std::min<int64_t>(height_, int64_t{y} + height));
  if (x0 >= x1 || y0 >= y1) return pictavo::Status::Error("crop rectangle outside the bitmap");
  if (x0 == 0 && y0 == 0 && x1 == width_ && y1 == height_) return pictavo::Status::OK();
  TIEBitmap out = WorkBitmap();
  if (auto st = out.Allocate(x1 - x0, y1 - y0, format_); !st.ok()) return st;
  out.palette_ = palette_;
  if (HasAlphaChannel()) out.AddAlphaChannel(255);
  CopyRectTo(out, x0, y0, 0, 0, x1 - x0, y1 - y0);
  *this = std::move(out);
  return pictavo::Status::OK();
}

// ---------------------------------------------------------------------------------------------
// Whole-bitmap operations

pictavo::Status TIEBitmap::Resample(int new_width, int new_height, TResampleFilter filter) {
  if (IsEmpty()) return pictavo::Status::Error("cannot resample an empty bitmap");
  if (new_width == width_ && new_height == height_) return pictavo::Status::OK();
  TIEBitmap out = WorkBitmap();
  if (auto st = ResampleBitmap(*this, out, new_width, new_height, filter); !st.ok()) return st;
  *this = std::move(out);
  return pictavo::Status::OK();
}

bool TIEBitmap::IsGrayScale() const {
  switch (format_) {
    case TIEPixelFormat::ie1g:
    case TIEPixelFormat::ie8g:
    case TIEPixelFormat::ie16g:
      return true;
    case TIEPixelFormat::ie8p: {
      bool used[256] = {};
      for (int y = 0; y < height_; ++y) {
        const uint8_t* s = Scanline(y);
        for (int x = 0; x < width_; ++x) used[s[x]] = true;
      }
      // Indices beyond the palette read as black, which is grey.
      for (size_t i = 0; i < palette_.size() && i < 256; ++i)
        if (used[i] && !IsGreyColor(palette_[i])) return false;
      return true;
    }
    case TIEPixelFormat::ie24RGB:
      for (int y = 0; y < height_; ++y) {
        const uint8_t* s = Scanline(y);
        for (int x = 0; x < width_; ++x, s += 3)
          if (s[0] != s[1] || s[1] != s[2]) return false;
      }
      return true;
    case TIEPixelFormat::ie48RGB:
      for (int y = 0; y < height_; ++y) {
        const auto* s = reinterpret_cast<const uint16_t*>(Scanline(y));
        for (int x = 0; x < width_; ++x, s += 3)
          if (s[0] != s[1] || s[1] != s[2]) return false;
      }
      return true;
    case TIEPixelFormat::ieCMYK:
      for (int y = 0; y < height_; ++y) {
        const uint8_t* s = Scanline(y);
        for (int x = 0; x < width_; ++x, s += 4)
          if (s[0] != s[1] || s[1] != s[2]) return false;
      }
      return true;
    case TIEPixelFormat::ieNull:
      return false;
  }
  return false;
}

pictavo::Status TIEBitmap::ConvertTo(TIEPixelFormat format) {
  if (format == format_) return pictavo::Status::OK();
  if (IsEmpty()) return pictavo::Status::Error("cannot convert an empty bitmap");
  if (format == TIEPixelFormat::ieNull) return pictavo::Status::Error("no pixel format given");

  if (format == TIEPixelFormat::ie8p) {
    std::vector<TRGB> pal;
    if (format_ == TIEPixelFormat::ie1g)
      pal = {TRGB{0, 0, 0}, TRGB{255, 255, 255}};
    else if (format_ == TIEPixelFormat::ie8g || format_ == TIEPixelFormat::ie16g)
      pal = GreyPalette(256);
    else
      pal = BuildPalette(*this, 256);
    TIEBitmap out = WorkBitmap();
    if (auto st = MapToPalette(*this, pal, TIEDitherMethod::ieNoDither, out); !st.ok()) return st;
    *this = std::move(out);
    return pictavo::Status::OK();
  }

  TIEBitmap out = WorkBitmap();
  if (auto st = ConvertRows(*this, out, format); !st.ok()) return st;
  out.alpha_ = std::move(alpha_);
  *this = std::move(out);
  return pictavo::Status::OK();
}

pictavo::Status TIEBitmap::ConvertFrom(const TIEBitmap& source, TIEPixelFormat format) {
  if (&source == this) return ConvertTo(format);
  if (format == source.format_ || format == TIEPixelFormat::ie8p || source.IsEmpty()) {
    *this = source;
    return ConvertTo(format);
  }
  if (format == TIEPixelFormat::ieNull) return pictavo::Status::Error("no pixel format given");
  TIEBitmap out = limits_ ? WorkBitmap() : source.WorkBitmap();
  if (auto st = ConvertRows(source, out, format); !st.ok()) return st;
  out.alpha_ = source.alpha_;
  *this = std::move(out);
  return pictavo::Status::OK();
}

pictavo::Status TIEBitmap::ConvertRows(const TIEBitmap& from, TIEBitmap& out,
                                       TIEPixelFormat format) {
  if (auto st = out.Allocate(from.width_, from.height_, format); !st.ok()) return st;
  const bool wide = format == TIEPixelFormat::ie16g || format == TIEPixelFormat::ie48RGB ||
                    from.format_ == TIEPixelFormat::ie16g ||
                    from.format_ == TIEPixelFormat::ie48RGB;
  if (from.format_ == TIEPixelFormat::ie48RGB && format == TIEPixelFormat::ie24RGB) {
    // The common narrowing, without a row buffer in between: rounded as WriteRGB16 rounds.
    const size_t n = static_cast<size_t>(from.width_) * 3;
    for (int y = 0; y < from.height_; ++y)
      rows::Narrow16Row(reinterpret_cast<const uint16_t*>(from.Scanline(y)), out.Scanline(y), n);
  } else if (wide) {
    std::vector<uint16_t> row(static_cast<size_t>(from.width_) * 3);
    for (int y = 0; y < from.height_; ++y) {
      rows::ReadRGB16(from, y, row.data());
      rows::WriteRGB16(out, y, row.data());
    }
  } else {
    std::vector<uint8_t> row(static_cast<size_t>(from.width_) * 3);
    for (int y = 0; y < from.height_; ++y) {
      rows::ReadRGB8(from, y, row.data());
      rows::WriteRGB8(out, y, row.data());
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging
