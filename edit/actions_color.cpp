// Colour and tone actions: the engine-backed ones and those with their own pixel loops.
#include <cmath>

#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "imaging/ie_proc.h"
#include "imaging/luma.h"

namespace pictavo::editing {

using imaging::TIEPixelFormat;
using imaging::TImageEnProc;

namespace {

// Runs a chain of engine operations; the action fails on the first failed step.
template <typename... Steps>
int Chain(TIEBitmap& bmp, Steps... steps) {
  TImageEnProc proc(&bmp);
  bool ok = true;
  ((ok = ok && steps(proc).ok()), ...);
  return ok ? 0 : 1;
}

double SrgbToLinear(double v) {
  return v <= 0.04045 ? v / 12.92 : std::pow((v + 0.055) / 1.055, 2.4);
}
double LinearToSrgb(double v) {
  return v <= 0.0031308 ? v * 12.92 : 1.055 * std::pow(v, 1 / 2.4) - 0.055;
}

}  // namespace

int action_exposure(TIEBitmap& bmp, int tenths_of_stop) {
  // A camera exposure change: linear light times 2^(EV), in the sRGB curve.
  const double gain = std::pow(2.0, tenths_of_stop / 10.0);
  std::array<uint8_t, 256> lut;
  for (int v = 0; v < 256; ++v)
    lut[v] = Clamp8(255.0 * LinearToSrgb(std::min(1.0, SrgbToLinear(v / 255.0) * gain)));
  return ApplyLut(bmp, lut);
}

int action_auto_colors(TIEBitmap& bmp) {
  // Levels per channel: the darkest and brightest 0.5% of each channel are clipped and the rest
  // stretched to the full range, which also removes a colour cast of the shadows and highlights.
  if (bmp.IsEmpty()) return 1;
  TImageEnProc proc(&bmp);
  const imaging::TIEHistogram h = proc.GetHistogram();
  const uint64_t total = static_cast<uint64_t>(bmp.Width()) * bmp.Height();
  const uint64_t clip = total / 200;
  std::array<std::array<uint8_t, 256>, 3> luts;
  const std::array<uint32_t, 256>* hist[3] = {&h.red, &h.green, &h.blue};
  for (int c = 0; c < 3; ++c) {
    int lo = 0, hi = 255;
    uint64_t acc = 0;
    while (lo < 255 && (acc += (*hist[c])[lo]) <= clip) ++lo;
    acc = 0;
    while (hi > 0 && (acc += (*hist[c])[hi]) <= clip) --hi;
    for (int v = 0; v < 256; ++v)
      luts[c][v] = hi > lo ? Clamp8((v - lo) * 255.0 / (hi - lo)) : static_cast<uint8_t>(v);
  }
  return proc.ApplyLUT(luts[0], luts[1], luts[2]).ok() ? 0 : 1;
}

int action_invert(TIEBitmap& bmp) {
  return Chain(bmp, [](TImageEnProc& p) { return p.Negative(); });
}

int BcContrastCurve(int c) {
  // Squared so that small settings act gently; kept as the front end's sliders expect.
  const int squared = c > 0 ? c * c / 100 : -(c * c) / 100;
  return std::clamp(squared, -100, 100);
}

int action_bc(TIEBitmap& bmp, int brightness, int contrast) {
  const int c = BcContrastCurve(contrast);
  return Chain(
      bmp, [](TImageEnProc& p) { return p.ConvertTo24Bit(); },
      [c](TImageEnProc& p) { return p.Contrast(c); },
      [brightness](TImageEnProc& p) {
        return p.IntensityRGBAll(brightness, brightness, brightness);
      });
}

int action_gamma(TIEBitmap& bmp, double gamma) {
  return Chain(bmp,
               [gamma](TImageEnProc& p) { return p.GammaCorrect(gamma, imaging::kChannelRGB); });
}

int action_color_replace(TIEBitmap& bmp, int fr, int fg, int fb, int tr, int tg, int tb,
                         int tolerance) {
  // Pixels within `tolerance` of the "from" colour (on every channel) are moved by the
  // difference between the two colours, so their shading survives the change.
  if (!To24(bmp)) return 1;
  const int d[3] = {tr - fr, tg - fg, tb - fb};
  const int from[3] = {fr, fg, fb};
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x, p += 3) {
      bool near = true;
      for (int c = 0; c < 3; ++c) near = near && std::abs(p[c] - from[c]) <= tolerance;
      if (!near) continue;
      for (int c = 0; c < 3; ++c) p[c] = Clamp8i(p[c] + d[c]);
    }
  }
  return 0;
}

int action_hue_sat(TIEBitmap& bmp, int hue, int saturation) {
  return Chain(bmp, [=](TImageEnProc& p) { return p.HSLvar(hue, saturation, 0); });
}

int action_hls(TIEBitmap& bmp, int hue, int lightness, int saturation) {
  return Chain(bmp, [=](TImageEnProc& p) { return p.HSLvar(hue, saturation, lightness); });
}

int action_hsv(TIEBitmap& bmp, int hue, int saturation, int value) {
  return Chain(bmp, [=](TImageEnProc& p) { return p.HSVvar(hue, saturation, value); });
}

int action_rgb(TIEBitmap& bmp, int red, int green, int blue) {
  return Chain(bmp, [=](TImageEnProc& p) { return p.IntensityRGBAll(red, green, blue); });
}

int action_auto_white(TIEBitmap& bmp) {
  return Chain(bmp, [](TImageEnProc& p) { return p.WhiteBalance_AutoWhite(); });
}

int action_white_balance(TIEBitmap& bmp, int r, int g, int b) {
  // (r, g, b) is a colour that should be neutral: each channel is scaled so that it becomes the
  // grey of its own mean.
  if (r <= 0 || g <= 0 || b <= 0) return 1;
  const double mean = (r + g + b) / 3.0;
  const double gain[3] = {mean / r, mean / g, mean / b};
  std::array<std::array<uint8_t, 256>, 3> luts;
  for (int c = 0; c < 3; ++c)
    for (int v = 0; v < 256; ++v) luts[c][v] = Clamp8(v * gain[c]);
  TImageEnProc proc(&bmp);
  return proc.ApplyLUT(luts[0], luts[1], luts[2]).ok() ? 0 : 1;
}

int action_convert_to_black_white(TIEBitmap& bmp, int mode, int threshold) {
  switch (mode) {
    case 0:
      return Chain(bmp, [](TImageEnProc& p) { return p.ConvertToBWOrdered(); });
    case 1:
      return Chain(bmp, [](TImageEnProc& p) { return p.ConvertToBW_FloydSteinberg(); });
    case 2:
      return Chain(bmp, [](TImageEnProc& p) { return p.ConvertToBWThreshold(-1); });
    case 3:
      return Chain(bmp, [](TImageEnProc& p) { return p.ConvertToBWThreshold(-2); });
    case 4:
      return Chain(bmp, [threshold](TImageEnProc& p) { return p.ConvertToBWThreshold(threshold); });
    case 5:
      return Chain(
          bmp, [](TImageEnProc& p) { return p.ConvertTo24Bit(); },
          [](TImageEnProc& p) { return p.ConvertToGray(); });
    default:
      return 0;  // an unknown mode leaves the picture as it is
  }
}

int action_change_to(TIEBitmap& bmp, const ColorDepthRequest& r) {
  using imaging::TIEDitherMethod;
  if (r.gray256)
    return Chain(
        bmp, [](TImageEnProc& p) { return p.ConvertTo24Bit(); },
        [](TImageEnProc& p) { return p.ConvertToGray(); },
        [](TImageEnProc& p) { return p.ConvertTo(256, TIEDitherMethod::ieNoDither); });
  if (r.gray24)
    return Chain(
        bmp, [](TImageEnProc& p) { return p.ConvertTo24Bit(); },
        [](TImageEnProc& p) { return p.ConvertToGray(); });
  if (r.high) return Chain(bmp, [](TImageEnProc& p) { return p.ConvertTo(65535); });
  if (r.true_color) return Chain(bmp, [](TImageEnProc& p) { return p.ConvertTo24Bit(); });
  if (r.negative) return Chain(bmp, [](TImageEnProc& p) { return p.Negative(); });
  if (r.colors <= 0) return 1;
  // Dithering is error diffusion (Floyd-Steinberg), the engine's best for photographs.
  const TIEDitherMethod dither =
      r.dither ? TIEDitherMethod::ieFloydSteinberg : TIEDitherMethod::ieNoDither;
  const int colors = r.colors;
  return Chain(bmp, [=](TImageEnProc& p) { return p.ConvertTo(colors, dither); });
}

int action_photo_filter(TIEBitmap& bmp, int r, int g, int b, int density, bool keep_luminosity) {
  // A coloured filter in front of the lens: the pixel is multiplied by the filter colour and
  // mixed with the original by `density` percent; with keep_luminosity the mix is brought back
  // to the pixel's own luma.
  if (!To24(bmp)) return 1;
  const double d = std::clamp(density, 0, 100) / 100.0;
  const double f[3] = {r / 255.0, g / 255.0, b / 255.0};
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x, p += 3) {
      double out[3];
      for (int c = 0; c < 3; ++c) out[c] = p[c] * (1 - d) + p[c] * f[c] * d;
      if (keep_luminosity) {
        const double before = imaging::Luma601(p[0], p[1], p[2]);
        const double after = imaging::Luma601(out[0], out[1], out[2]);
        if (after > 0)
          for (double& v : out) v *= before / after;
      }
      for (int c = 0; c < 3; ++c) p[c] = Clamp8(out[c]);
    }
  }
  return 0;
}

int action_lightness(TIEBitmap& bmp, int percent) {
  // Moves every value towards white by `percent` of its distance to white.
  const int k = std::clamp(percent, 0, 100);
  std::array<uint8_t, 256> lut;
  for (int v = 0; v < 256; ++v) lut[v] = Clamp8(v + (255 - v) * k / 100.0);
  return ApplyLut(bmp, lut);
}

int action_darkness(TIEBitmap& bmp, int percent) {
  // Moves every value towards black by `percent` of its distance to black.
  const int k = std::clamp(percent, 0, 100);
  std::array<uint8_t, 256> lut;
  for (int v = 0; v < 256; ++v) lut[v] = Clamp8(v * (100 - k) / 100.0);
  return ApplyLut(bmp, lut);
}

int action_posterize(TIEBitmap& bmp, int levels) {
  const int n = std::clamp(levels, 2, 256);
  return Chain(bmp, [n](TImageEnProc& p) { return p.Posterize(n); });
}

int action_transparency(TIEBitmap& bmp, int r, int g, int b) {
  if (!bmp.HasAlphaChannel()) return 0;
  const int w = bmp.Width(), h = bmp.Height();
  std::vector<uint8_t> alpha(static_cast<size_t>(w) * h);
  for (int y = 0; y < h; ++y) std::copy_n(bmp.AlphaScanline(y), w, alpha.data() + size_t(y) * w);
  bmp.RemoveAlphaChannel(ColorOf(r, g, b));
  bmp.AddAlphaChannel(255);
  for (int y = 0; y < h; ++y) std::copy_n(alpha.data() + size_t(y) * w, w, bmp.AlphaScanline(y));
  return 0;
}

}  // namespace pictavo::editing
