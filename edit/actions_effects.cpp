// Filters and effects. The engine's kernels where it has them; the distortions (fisheye, twist,
// ripples, lens correction) map each output pixel back into the source and sample bilinearly.
#include <cmath>
#include <numbers>

#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "imaging/ie_proc.h"
#include "imaging/luma.h"

namespace pictavo::editing {

using imaging::TIEFilterPreset;
using imaging::TIEPixelFormat;
using imaging::TImageEnProc;

namespace {

int Preset(TIEBitmap& bmp, TIEFilterPreset preset) {
  TImageEnProc p(&bmp);
  return p.ApplyFilterPreset(preset).ok() ? 0 : 1;
}

// Builds every output pixel from a source position: out(x, y) = src(map(x, y)).
template <typename Map>
int Remap(TIEBitmap& bmp, Map map) {
  if (!To24(bmp)) return 1;
  const TIEBitmap src = bmp;
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      double sx = x, sy = y;
      map(x, y, sx, sy);
      const imaging::TRGB c = SampleBilinear(src, sx, sy);
      p[x * 3] = c.r;
      p[x * 3 + 1] = c.g;
      p[x * 3 + 2] = c.b;
    }
  }
  return 0;
}

}  // namespace

int action_stylize(TIEBitmap& bmp, int style) {
  // 0 emboss, 1 edges, 2 horizontal edges, 3 vertical edges, 4 high pass.
  static constexpr TIEFilterPreset kStyles[] = {
      TIEFilterPreset::fpEmboss, TIEFilterPreset::fpEdge, TIEFilterPreset::fpEdgeHorizontal,
      TIEFilterPreset::fpEdgeVertical, TIEFilterPreset::fpHighPass};
  if (style < 0 || style >= static_cast<int>(std::size(kStyles))) return 1;
  return Preset(bmp, kStyles[style]);
}

int action_blur(TIEBitmap& bmp, int passes) {
  // Passes of the 3x3 box blur.
  if (passes < 1 || passes > 100) return 1;
  for (int i = 0; i < passes; ++i)
    if (Preset(bmp, TIEFilterPreset::fpBlur) != 0) return 1;
  return 0;
}

int action_gaussian_blur(TIEBitmap& bmp, int radius_tenths) {
  if (radius_tenths < 0) return 1;
  TImageEnProc p(&bmp);
  return p.Blur(radius_tenths / 10.0).ok() ? 0 : 1;
}

int action_split_blur(TIEBitmap& bmp, int distance) {
  // The mean of the picture shifted `distance` pixels left and right: a double-exposure blur.
  if (distance < 0 || !To24(bmp)) return 1;
  const TIEBitmap src = bmp;
  const int w = bmp.Width();
  for (int y = 0; y < bmp.Height(); ++y) {
    const uint8_t* s = src.Scanline(y);
    uint8_t* p = bmp.Scanline(y);
    for (int x = 0; x < w; ++x) {
      const int l = std::max(0, x - distance), r = std::min(w - 1, x + distance);
      for (int c = 0; c < 3; ++c)
        p[x * 3 + c] = static_cast<uint8_t>((s[l * 3 + c] + s[r * 3 + c] + 1) / 2);
    }
  }
  return 0;
}

int action_sharpen(TIEBitmap& bmp, int amount) {
  TImageEnProc p(&bmp);
  return p.Sharpen(std::clamp(amount, 1, 100)).ok() ? 0 : 1;
}

int action_auto_sharp(TIEBitmap& bmp) {
  TImageEnProc p(&bmp);
  return p.AutoSharp().ok() ? 0 : 1;
}

int action_unsharp_mask(TIEBitmap& bmp, int amount, int radius_tenths, int threshold) {
  if (radius_tenths <= 0 || amount < 0) return 1;
  TImageEnProc p(&bmp);
  return p.UnsharpMask(radius_tenths / 10.0, amount, std::clamp(threshold, 0, 255)).ok() ? 0 : 1;
}

int action_remove_noise(TIEBitmap& bmp, int max_speck) {
  TImageEnProc p(&bmp);
  return p.RemoveIsolatedPixels(std::max(1, max_speck)).ok() ? 0 : 1;
}

int action_color_noise(TIEBitmap& bmp, int amount) {
  // Independent noise per channel, up to +-amount.
  if (amount < 0 || !To24(bmp)) return 1;
  Lcg rng(0x5eed1234u);
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int i = 0; i < bmp.Width() * 3; ++i) p[i] = Clamp8(p[i] + rng.Signed() * amount);
  }
  return 0;
}

int action_mono_noise(TIEBitmap& bmp, int amount) {
  // One noise value per pixel, added to all channels (grain without colour).
  if (amount < 0 || !To24(bmp)) return 1;
  Lcg rng(0x5eed4321u);
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      const double n = rng.Signed() * amount;
      for (int c = 0; c < 3; ++c) p[x * 3 + c] = Clamp8(p[x * 3 + c] + n);
    }
  }
  return 0;
}

int action_antialias(TIEBitmap& bmp) {
  return Preset(bmp, TIEFilterPreset::fpSoften);
}

int action_fisheye(TIEBitmap& bmp, int strength) {
  // Radial magnification of the centre: r_src = r^(1 + strength/100) in normalised radius.
  if (bmp.IsEmpty()) return 1;
  const double cx = (bmp.Width() - 1) / 2.0, cy = (bmp.Height() - 1) / 2.0;
  const double rmax = std::hypot(cx, cy) > 0 ? std::hypot(cx, cy) : 1;
  const double k = 1 + std::clamp(strength, -90, 300) / 100.0;
  return Remap(bmp, [&](int x, int y, double& sx, double& sy) {
    const double dx = x - cx, dy = y - cy, r = std::hypot(dx, dy) / rmax;
    if (r <= 0) return;
    const double f = std::pow(r, k) / r;
    sx = cx + dx * f;
    sy = cy + dy * f;
  });
}

int action_mosaic(TIEBitmap& bmp, int block) {
  if (block < 1 || !To24(bmp)) return 1;
  for (int by = 0; by < bmp.Height(); by += block)
    for (int bx = 0; bx < bmp.Width(); bx += block) {
      const int ex = std::min(bmp.Width(), bx + block), ey = std::min(bmp.Height(), by + block);
      long sum[3] = {0, 0, 0};
      for (int y = by; y < ey; ++y)
        for (int x = bx; x < ex; ++x)
          for (int c = 0; c < 3; ++c) sum[c] += bmp.Scanline(y)[x * 3 + c];
      const long n = static_cast<long>(ex - bx) * (ey - by);
      for (int y = by; y < ey; ++y)
        for (int x = bx; x < ex; ++x)
          for (int c = 0; c < 3; ++c)
            bmp.Scanline(y)[x * 3 + c] = static_cast<uint8_t>((sum[c] + n / 2) / n);
    }
  return 0;
}

int action_twist(TIEBitmap& bmp, int degrees) {
  // A swirl: the turn is `degrees` at the centre and falls to none at the corners.
  if (bmp.IsEmpty()) return 1;
  const double cx = (bmp.Width() - 1) / 2.0, cy = (bmp.Height() - 1) / 2.0;
  const double rmax = std::max(1.0, std::hypot(cx, cy));
  const double turn = degrees * std::numbers::pi / 180;
  return Remap(bmp, [&](int x, int y, double& sx, double& sy) {
    const double dx = x - cx, dy = y - cy, r = std::hypot(dx, dy);
    const double a = turn * (1 - r / rmax);
    sx = cx + dx * std::cos(a) - dy * std::sin(a);
    sy = cy + dx * std::sin(a) + dy * std::cos(a);
  });
}

int action_tile(TIEBitmap& bmp, int columns, int rows) {
  // The picture repeated columns x rows times at the same overall size.
  if (columns < 1 || rows < 1 || !To24(bmp)) return 1;
  TIEBitmap small = bmp;
  const int tw = std::max(1, bmp.Width() / columns), th = std::max(1, bmp.Height() / rows);
  if (!small.Resample(tw, th).ok()) return 1;
  for (int y = 0; y < bmp.Height(); ++y)
    for (int x = 0; x < bmp.Width(); ++x) {
      const uint8_t* s = small.Scanline(y % th) + (x % tw) * 3;
      std::copy_n(s, 3, bmp.Scanline(y) + x * 3);
    }
  return 0;
}

int action_trace(TIEBitmap& bmp, int threshold) {
  // Outlines: dark lines where the luma changes by more than `threshold` to a neighbour, on white.
  if (!To24(bmp)) return 1;
  const TIEBitmap src = bmp;
  const int w = bmp.Width(), h = bmp.Height();
  const auto luma = [&](int x, int y) {
    const uint8_t* p = src.Scanline(std::clamp(y, 0, h - 1)) + std::clamp(x, 0, w - 1) * 3;
    return imaging::Luma601(p[0], p[1], p[2]);
  };
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const double gx = luma(x + 1, y) - luma(x - 1, y), gy = luma(x, y + 1) - luma(x, y - 1);
      const uint8_t v = std::hypot(gx, gy) > threshold ? 0 : 255;
      uint8_t* p = bmp.Scanline(y) + x * 3;
      p[0] = p[1] = p[2] = v;
    }
  return 0;
}

int action_solorize(TIEBitmap& bmp, int threshold) {
  // Values at or above the threshold are inverted, as a print exposed to light while developing.
  std::array<uint8_t, 256> lut;
  for (int v = 0; v < 256; ++v) lut[v] = static_cast<uint8_t>(v >= threshold ? 255 - v : v);
  return ApplyLut(bmp, lut);
}

int action_ripple(TIEBitmap& bmp, int wave, int amplitude, int wavelength) {
  // Rows shifted sideways by a wave of the row number.
  if (wavelength < 1 || amplitude < 0 || bmp.IsEmpty()) return 1;
  std::vector<double> shift(bmp.Height());
  Lcg rng(0x51ee7u);
  double walk = 0;
  for (int y = 0; y < bmp.Height(); ++y) {
    const double phase = static_cast<double>(y % wavelength) / wavelength;  // 0..1
    if (wave == 1) {
      shift[y] = amplitude * (2 * phase - 1);  // saw tooth
    } else if (wave == 2) {
      shift[y] = amplitude * (phase < 0.5 ? 4 * phase - 1 : 3 - 4 * phase);  // triangle
    } else {
      // A random walk, re-aimed every wavelength rows, kept within the amplitude.
      if (y % wavelength == 0) walk = rng.Signed() * amplitude;
      shift[y] = (y ? shift[y - 1] : 0) + (walk - (y ? shift[y - 1] : 0)) / wavelength;
    }
  }
  return Remap(bmp, [&](int x, int y, double& sx, double&) { sx = x + shift[y]; });
}

int action_spray(TIEBitmap& bmp, int radius) {
  // Every pixel takes the colour of a random neighbour within the radius.
  if (radius < 0 || !To24(bmp)) return 1;
  const TIEBitmap src = bmp;
  Lcg rng(0x5b7a1u);
  const int w = bmp.Width(), h = bmp.Height();
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const int sx = std::clamp(x + static_cast<int>(std::lround(rng.Signed() * radius)), 0, w - 1);
      const int sy = std::clamp(y + static_cast<int>(std::lround(rng.Signed() * radius)), 0, h - 1);
      std::copy_n(src.Scanline(sy) + sx * 3, 3, bmp.Scanline(y) + x * 3);
    }
  return 0;
}

int action_remove_distortion(TIEBitmap& bmp, int percent) {
  // Barrel (positive) or pincushion (negative) correction: r_src = r (1 + k r^2), k = percent/100,
  // with r normalised to the half diagonal.
  if (bmp.IsEmpty()) return 1;
  const double cx = (bmp.Width() - 1) / 2.0, cy = (bmp.Height() - 1) / 2.0;
  const double rmax = std::max(1.0, std::hypot(cx, cy));
  const double k = std::clamp(percent, -100, 100) / 100.0;
  return Remap(bmp, [&](int x, int y, double& sx, double& sy) {
    const double dx = (x - cx) / rmax, dy = (y - cy) / rmax;
    const double f = 1 + k * (dx * dx + dy * dy);
    sx = cx + dx * f * rmax;
    sy = cy + dy * f * rmax;
  });
}

int action_jpeg_repair(TIEBitmap& bmp, int strength) {
  // Deblocking: across each 8-pixel block edge, a step smaller than the strength-dependent limit
  // (a compression artefact, not a real edge) is spread over the two pixels on each side.
  if (strength < 0 || !To24(bmp)) return 1;
  const int limit = 4 + std::clamp(strength, 0, 100) * 28 / 100;
  const int w = bmp.Width(), h = bmp.Height();
  const auto smooth = [limit](uint8_t* a, uint8_t* b, uint8_t* c, uint8_t* d) {
    // a b | c d
    const int step = *c - *b;
    if (std::abs(step) >= limit) return;
    *a = Clamp8i(*a + step / 8);
    *b = Clamp8i(*b + step * 3 / 8);
    *c = Clamp8i(*c - step * 3 / 8);
    *d = Clamp8i(*d - step / 8);
  };
  for (int y = 0; y < h; ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int x = 8; x + 1 < w; x += 8)
      for (int c = 0; c < 3; ++c)
        smooth(&p[(x - 2) * 3 + c], &p[(x - 1) * 3 + c], &p[x * 3 + c], &p[(x + 1) * 3 + c]);
  }
  for (int y = 8; y + 1 < h; y += 8)
    for (int x = 0; x < w * 3; ++x)
      smooth(bmp.Scanline(y - 2) + x, bmp.Scanline(y - 1) + x, bmp.Scanline(y) + x,
             bmp.Scanline(y + 1) + x);
  return 0;
}

}  // namespace pictavo::editing
