// TImageEnProc: resampling, rotation, flipping, cropping and skew detection.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <vector>

#include "imaging/bitmap_rows.h"
#include "imaging/ie_proc.h"
#include "imaging/proc_internal.h"
#include "imaging/resample.h"

namespace pictavo::imaging {

namespace {

constexpr double kPi = 3.14159265358979323846;

inline bool GetBit(const uint8_t* row, int x) {
  return (row[x >> 3] >> (7 - (x & 7))) & 1;
}
inline void PutBit(uint8_t* row, int x, bool on) {
  if (on)
    row[x >> 3] |= 0x80 >> (x & 7);
  else
    row[x >> 3] &= ~(0x80 >> (x & 7));
}

// Rotation by quarter turns counter-clockwise (1, 2 or 3), exact for every layout.
pictavo::Status RotateQuarter(TIEBitmap& bmp, int quarters) {
  const int w = bmp.Width(), h = bmp.Height();
  const bool swap = quarters != 2;
  TIEBitmap out = bmp.WorkBitmap();
  if (auto st = out.Allocate(swap ? h : w, swap ? w : h, bmp.PixelFormat()); !st.ok()) return st;
  out.Palette() = bmp.Palette();
  auto map = [&](int x, int y, int& ox, int& oy) {
    switch (quarters) {
      case 1:
        ox = y;
        oy = w - 1 - x;
        break;
      case 2:
        ox = w - 1 - x;
        oy = h - 1 - y;
        break;
      default:
        ox = h - 1 - y;
        oy = x;
        break;
    }
  };
  // Tiles keep both the rows read and the columns written in cache.
  constexpr int kTile = 64;
  auto copy_tiles = [&](auto copy_pixel) {
    for (int ty = 0; ty < h; ty += kTile)
      for (int tx = 0; tx < w; tx += kTile)
        for (int y = ty; y < std::min(h, ty + kTile); ++y)
          for (int x = tx; x < std::min(w, tx + kTile); ++x) {
            int ox, oy;
            map(x, y, ox, oy);
            copy_pixel(x, y, ox, oy);
          }
  };
  auto fixed = [&](auto bytes) {
    constexpr size_t n = decltype(bytes)::value;
    copy_tiles([&](int x, int y, int ox, int oy) {
      std::memcpy(out.Scanline(oy) + ox * n, bmp.Scanline(y) + x * n, n);
    });
  };
  switch (bmp.BitsPerPixel()) {
    case 1:
      copy_tiles([&](int x, int y, int ox, int oy) {
        PutBit(out.Scanline(oy), ox, GetBit(bmp.Scanline(y), x));
      });
      break;
    case 8:
      fixed(std::integral_constant<size_t, 1>{});
      break;
    case 16:
      fixed(std::integral_constant<size_t, 2>{});
      break;
    case 24:
      fixed(std::integral_constant<size_t, 3>{});
      break;
    case 32:
      fixed(std::integral_constant<size_t, 4>{});
      break;
    default:
      fixed(std::integral_constant<size_t, 6>{});
      break;
  }
  if (bmp.HasAlphaChannel()) {
    out.AddAlphaChannel(255);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        int ox, oy;
        map(x, y, ox, oy);
        out.AlphaScanline(oy)[ox] = bmp.AlphaScanline(y)[x];
      }
  }
  bmp = std::move(out);
  return pictavo::Status::OK();
}

inline int FloorInt(double v) {
  // Offset keeps the truncation a floor for every coordinate a bitmap can have.
  constexpr double kOffset = 1 << 23;
  return static_cast<int>(v + kOffset) - (1 << 23);
}

// Arbitrary-angle rotation of C-channel samples of type T (inverse mapping). Samples outside
// the source read as the background, which antialiases the new edges.
template <typename T, int C>
void RotateSamples(const TIEBitmap& src, TIEBitmap& dst, double cs, double sn, bool bilinear,
                   const T* bg, bool alpha) {
  const int sw = src.Width(), sh = src.Height(), dw = dst.Width(), dh = dst.Height();
  const double scx = sw / 2.0, scy = sh / 2.0, dcx = dw / 2.0, dcy = dh / 2.0;
  for (int y = 0; y < dh; ++y) {
    T* d = reinterpret_cast<T*>(dst.Scanline(y));
    uint8_t* da = alpha ? dst.AlphaScanline(y) : nullptr;
    const double dy = y + 0.5 - dcy;
    const double dx0 = 0.5 - dcx;
    const double u0 = scx + dx0 * cs - dy * sn - 0.5, v0 = scy + dx0 * sn + dy * cs - 0.5;
    for (int x = 0; x < dw; ++x) {
      const double u = u0 + x * cs, v = v0 + x * sn;
      if (!bilinear) {
        const int ix = FloorInt(u + 0.5), iy = FloorInt(v + 0.5);
        const bool in = ix >= 0 && iy >= 0 && ix < sw && iy < sh;
        const T* s = in ? reinterpret_cast<const T*>(src.Scanline(iy)) + ix * C : bg;
        for (int c = 0; c < C; ++c) d[x * C + c] = s[c];
        if (da) da[x] = in ? src.AlphaScanline(iy)[ix] : 0;
        continue;
      }
      const int x0 = FloorInt(u), y0 = FloorInt(v);
      const float fx = static_cast<float>(u - x0), fy = static_cast<float>(v - y0);
      const float w00 = (1 - fx) * (1 - fy), w10 = fx * (1 - fy), w01 = (1 - fx) * fy,
                  w11 = fx * fy;
      if (x0 >= 0 && y0 >= 0 && x0 + 1 < sw && y0 + 1 < sh) {
        const T* r0 = reinterpret_cast<const T*>(src.Scanline(y0)) + x0 * C;
        const T* r1 = reinterpret_cast<const T*>(src.Scanline(y0 + 1)) + x0 * C;
        for (int c = 0; c < C; ++c)
          d[x * C + c] =
              static_cast<T>(w00 * r0[c] + w10 * r0[C + c] + w01 * r1[c] + w11 * r1[C + c] + 0.5f);
        if (da) {
          const uint8_t* a0 = src.AlphaScanline(y0) + x0;
          const uint8_t* a1 = src.AlphaScanline(y0 + 1) + x0;
          da[x] =
              static_cast<uint8_t>(w00 * a0[0] + w10 * a0[1] + w01 * a1[0] + w11 * a1[1] + 0.5f);
        }
        continue;
      }
      if (x0 < -1 || y0 < -1 || x0 >= sw || y0 >= sh) {
        for (int c = 0; c < C; ++c) d[x * C + c] = bg[c];
        if (da) da[x] = 0;
        continue;
      }
      const float wgt[4] = {w00, w10, w01, w11};
      float acc[C] = {};
      float acc_a = 0;
      for (int k = 0; k < 4; ++k) {
        const int sx = x0 + (k & 1), sy = y0 + (k >> 1);
        const bool in = sx >= 0 && sy >= 0 && sx < sw && sy < sh;
        const T* s = in ? reinterpret_cast<const T*>(src.Scanline(sy)) + sx * C : bg;
        for (int c = 0; c < C; ++c) acc[c] += wgt[k] * s[c];
        if (da && in) acc_a += wgt[k] * src.AlphaScanline(sy)[sx];
      }
      for (int c = 0; c < C; ++c) d[x * C + c] = static_cast<T>(acc[c] + 0.5f);
      if (da) da[x] = static_cast<uint8_t>(acc_a + 0.5f);
    }
  }
}

}  // namespace

pictavo::Status TImageEnProc::Resample(int new_width, int new_height, TResampleFilter filter) {
  if (auto st = Check(); !st.ok()) return st;
  const int w = bitmap_->Width(), h = bitmap_->Height();
  if (new_width <= 0 && new_height <= 0)
    return pictavo::Status::Error("resample needs a width or a height");
  if (new_width <= 0)
    new_width = std::max(1, static_cast<int>(std::lround(static_cast<double>(w) * new_height / h)));
  if (new_height <= 0)
    new_height = std::max(1, static_cast<int>(std::lround(static_cast<double>(h) * new_width / w)));
  return bitmap_->Resample(new_width, new_height, filter);
}

pictavo::Status TImageEnProc::Rotate(double angle, bool antialias, TColor background) {
  if (auto st = Check(); !st.ok()) return st;
  if (!std::isfinite(angle)) return pictavo::Status::Error("rotation angle is not a number");
  double a = std::fmod(angle, 360.0);
  if (a < 0) a += 360.0;
  const double quarters = a / 90.0;
  const double nearest = std::round(quarters);
  if (std::fabs(quarters - nearest) < 1e-9) {
    const int q = static_cast<int>(nearest) % 4;
    return q == 0 ? pictavo::Status::OK() : RotateQuarter(*bitmap_, q);
  }
  TIEBitmap& b = *bitmap_;
  const TRGB bg = TColorToRGB(background);
  const bool grey_bg = bg.r == bg.g && bg.g == bg.b;
  switch (b.PixelFormat()) {
    case TIEPixelFormat::ie1g:
    case TIEPixelFormat::ie8p:
      if (auto st = b.ConvertTo(TIEPixelFormat::ie24RGB); !st.ok()) return st;
      break;
    case TIEPixelFormat::ie8g:
      if (!grey_bg)
        if (auto st = b.ConvertTo(TIEPixelFormat::ie24RGB); !st.ok()) return st;
      break;
    case TIEPixelFormat::ie16g:
      if (!grey_bg)
        if (auto st = b.ConvertTo(TIEPixelFormat::ie48RGB); !st.ok()) return st;
      break;
    default:
      break;
  }
  const double rad = a * kPi / 180.0;
  const double cs = std::cos(rad), sn = std::sin(rad);
  const int w = b.Width(), h = b.Height();
  const int nw =
      std::max(1, static_cast<int>(std::ceil(w * std::fabs(cs) + h * std::fabs(sn) - 1e-6)));
  const int nh =
      std::max(1, static_cast<int>(std::ceil(w * std::fabs(sn) + h * std::fabs(cs) - 1e-6)));
  TIEBitmap out = b.WorkBitmap();
  if (auto st = out.Allocate(nw, nh, b.PixelFormat()); !st.ok()) return st;
  const bool alpha = b.HasAlphaChannel();
  if (alpha) out.AddAlphaChannel(0);
  // Background sample in the working layout, taken from a one-pixel bitmap.
  TIEBitmap probe;
  if (auto st = probe.Allocate(1, 1, b.PixelFormat()); !st.ok()) return st;
  probe.SetPixel(0, 0, bg);
  switch (b.PixelFormat()) {
    case TIEPixelFormat::ie8g:
      RotateSamples<uint8_t, 1>(b, out, cs, sn, antialias, probe.Scanline(0), alpha);
      break;
    case TIEPixelFormat::ie24RGB:
      RotateSamples<uint8_t, 3>(b, out, cs, sn, antialias, probe.Scanline(0), alpha);
      break;
    case TIEPixelFormat::ieCMYK:
      RotateSamples<uint8_t, 4>(b, out, cs, sn, antialias, probe.Scanline(0), alpha);
      break;
    case TIEPixelFormat::ie16g:
      RotateSamples<uint16_t, 1>(b, out, cs, sn, antialias,
                                 reinterpret_cast<const uint16_t*>(probe.Scanline(0)), alpha);
      break;
    case TIEPixelFormat::ie48RGB:
      RotateSamples<uint16_t, 3>(b, out, cs, sn, antialias,
                                 reinterpret_cast<const uint16_t*>(probe.Scanline(0)), alpha);
      break;
    default:
      return pictavo::Status::Error("unsupported layout for rotation");
  }
  b = std::move(out);
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::Flip(TFlipDirection direction) {
  if (auto st = Check(); !st.ok()) return st;
  TIEBitmap& b = *bitmap_;
  const int w = b.Width(), h = b.Height();
  if (direction == TFlipDirection::fdVertical) {
    std::vector<uint8_t> tmp(b.RowLen());
    for (int y = 0; y < h / 2; ++y) {
      std::memcpy(tmp.data(), b.Scanline(y), b.RowLen());
      std::memcpy(b.Scanline(y), b.Scanline(h - 1 - y), b.RowLen());
      std::memcpy(b.Scanline(h - 1 - y), tmp.data(), b.RowLen());
      if (b.HasAlphaChannel())
        std::swap_ranges(b.AlphaScanline(y), b.AlphaScanline(y) + w, b.AlphaScanline(h - 1 - y));
    }
    return pictavo::Status::OK();
  }
  const bool bits = b.PixelFormat() == TIEPixelFormat::ie1g;
  const size_t bpp = b.BitsPerPixel() / 8;
  std::vector<uint8_t> tmp(b.RowLen());
  for (int y = 0; y < h; ++y) {
    uint8_t* s = b.Scanline(y);
    std::memcpy(tmp.data(), s, b.RowLen());
    for (int x = 0; x < w; ++x) {
      if (bits)
        PutBit(s, x, GetBit(tmp.data(), w - 1 - x));
      else
        std::memcpy(s + x * bpp, tmp.data() + (w - 1 - x) * bpp, bpp);
    }
    if (b.HasAlphaChannel()) std::reverse(b.AlphaScanline(y), b.AlphaScanline(y) + w);
  }
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::AutoCrop(int tolerance) {
  if (auto st = Check(); !st.ok()) return st;
  return AutoCrop(tolerance, RGBToTColor(bitmap_->GetPixels(0, 0)));
}

pictavo::Status TImageEnProc::AutoCrop(int tolerance, TColor background) {
  if (auto st = Check(); !st.ok()) return st;
  const TRGB bg = TColorToRGB(background);
  const int w = bitmap_->Width(), h = bitmap_->Height();
  int x0 = w, x1 = -1, y0 = h, y1 = -1;
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(*bitmap_, y, row.data());
    for (int x = 0; x < w; ++x) {
      const int d = std::max({std::abs(row[3 * x] - bg.r), std::abs(row[3 * x + 1] - bg.g),
                              std::abs(row[3 * x + 2] - bg.b)});
      if (d <= tolerance) continue;
      x0 = std::min(x0, x);
      x1 = std::max(x1, x);
      y0 = std::min(y0, y);
      y1 = y;
    }
  }
  if (x1 < 0) return pictavo::Status::OK();  // nothing but background
  return bitmap_->Crop(x0, y0, x1 - x0 + 1, y1 - y0 + 1);
}

double TImageEnProc::SkewDetection(double max_angle) const {
  if (!bitmap_ || bitmap_->IsEmpty()) return 0.0;
  // Work on a reduced grey copy: text lines survive, the search gets cheap.
  TIEBitmap grey;
  grey.Assign(*bitmap_);
  if (!grey.ConvertTo(TIEPixelFormat::ie8g).ok()) return 0.0;
  if (grey.Width() > 1200) {
    const int nh =
        std::max(1, static_cast<int>(std::lround(grey.Height() * 1200.0 / grey.Width())));
    if (!grey.Resample(1200, nh, TResampleFilter::rfBilinear).ok()) return 0.0;
  }
  const int w = grey.Width(), h = grey.Height();
  uint64_t hist[256] = {};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) ++hist[grey.Scanline(y)[x]];
  // Otsu split between ink and paper.
  const double total = static_cast<double>(w) * h;
  double sum_all = 0;
  for (int i = 0; i < 256; ++i) sum_all += i * static_cast<double>(hist[i]);
  double w0 = 0, sum0 = 0, best = -1;
  int t = 128;
  for (int i = 0; i < 256; ++i) {
    w0 += hist[i];
    if (w0 == 0 || w0 == total) continue;
    sum0 += i * static_cast<double>(hist[i]);
    const double m0 = sum0 / w0, m1 = (sum_all - sum0) / (total - w0);
    const double between = w0 * (total - w0) * (m0 - m1) * (m0 - m1);
    if (between > best) {
      best = between;
      t = i;
    }
  }
  std::vector<std::pair<float, float>> pts;
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (grey.Scanline(y)[x] <= t) pts.emplace_back(static_cast<float>(x), static_cast<float>(y));
  if (pts.empty() || pts.size() > total * 0.6) return 0.0;
  if (pts.size() > 200000) {
    const size_t step = pts.size() / 200000 + 1;
    std::vector<std::pair<float, float>> sub;
    for (size_t i = 0; i < pts.size(); i += step) sub.push_back(pts[i]);
    pts.swap(sub);
  }
  const int span = static_cast<int>(std::ceil(std::hypot(w, h))) + 2;
  std::vector<uint32_t> bins(static_cast<size_t>(span) * 2 + 1);
  // Sum of squared row counts peaks when the projection runs along the text lines.
  auto score = [&](double deg) {
    const double r = deg * kPi / 180.0, cs = std::cos(r), sn = std::sin(r);
    std::fill(bins.begin(), bins.end(), 0u);
    for (const auto& p : pts)
      ++bins[static_cast<size_t>(std::lround(p.second * cs + p.first * sn) + span)];
    double s = 0;
    for (uint32_t c : bins) s += static_cast<double>(c) * c;
    return s;
  };
  double best_angle = 0, best_score = score(0.0);
  for (double a = -max_angle; a <= max_angle + 1e-9; a += 0.5) {
    const double s = score(a);
    if (s > best_score * (1 + 1e-9)) {
      best_score = s;
      best_angle = a;
    }
  }
  const double coarse = best_angle;
  for (double a = coarse - 0.5; a <= coarse + 0.5 + 1e-9; a += 0.05) {
    const double s = score(a);
    if (s > best_score * (1 + 1e-9)) {
      best_score = s;
      best_angle = a;
    }
  }
  return best_angle;
}

}  // namespace pictavo::imaging
