// TImageEnProc: colour depth, tone and colour operations.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "imaging/bitmap_rows.h"
#include "imaging/ie_proc.h"
#include "imaging/proc_internal.h"

namespace pictavo::imaging {

namespace proc {

pictavo::Status PrepareForColor(TIEBitmap& bmp, bool keeps_grey) {
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie1g:
      return bmp.ConvertTo(keeps_grey ? TIEPixelFormat::ie8g : TIEPixelFormat::ie24RGB);
    case TIEPixelFormat::ieCMYK:
      return bmp.ConvertTo(TIEPixelFormat::ie24RGB);
    case TIEPixelFormat::ie8g:
      return keeps_grey ? pictavo::Status::OK() : bmp.ConvertTo(TIEPixelFormat::ie24RGB);
    case TIEPixelFormat::ie16g:
      return keeps_grey ? pictavo::Status::OK() : bmp.ConvertTo(TIEPixelFormat::ie48RGB);
    default:
      return pictavo::Status::OK();
  }
}

pictavo::Status ApplyCurves(TIEBitmap& bmp, const std::function<double(int, double)>& curve,
                            bool keeps_grey) {
  if (auto st = PrepareForColor(bmp, keeps_grey); !st.ok()) return st;
  const TIEPixelFormat f = bmp.PixelFormat();
  const bool wide = f == TIEPixelFormat::ie16g || f == TIEPixelFormat::ie48RGB;
  const int w = bmp.Width(), h = bmp.Height();
  if (!wide) {
    uint8_t lut[3][256];
    for (int c = 0; c < 3; ++c)
      for (int v = 0; v < 256; ++v)
        lut[c][v] =
            static_cast<uint8_t>(std::clamp(std::lround(curve(c, v / 255.0) * 255.0), 0L, 255L));
    if (f == TIEPixelFormat::ie8p) {
      for (TRGB& e : bmp.Palette()) e = TRGB{lut[0][e.r], lut[1][e.g], lut[2][e.b]};
    } else if (f == TIEPixelFormat::ie8g) {
      for (int y = 0; y < h; ++y) {
        uint8_t* s = bmp.Scanline(y);
        for (int x = 0; x < w; ++x) s[x] = lut[0][s[x]];
      }
    } else {
      for (int y = 0; y < h; ++y) {
        uint8_t* s = bmp.Scanline(y);
        for (int x = 0; x < w; ++x, s += 3) {
          s[0] = lut[0][s[0]];
          s[1] = lut[1][s[1]];
          s[2] = lut[2][s[2]];
        }
      }
    }
    return pictavo::Status::OK();
  }
  const int nch = f == TIEPixelFormat::ie16g ? 1 : 3;
  std::vector<uint16_t> lut(static_cast<size_t>(nch) * 65536);
  for (int c = 0; c < nch; ++c)
    for (int v = 0; v < 65536; ++v)
      lut[c * 65536 + v] = static_cast<uint16_t>(
          std::clamp(std::lround(curve(c, v / 65535.0) * 65535.0), 0L, 65535L));
  for (int y = 0; y < h; ++y) {
    auto* s = reinterpret_cast<uint16_t*>(bmp.Scanline(y));
    for (int i = 0; i < w * nch; ++i) s[i] = lut[(i % nch) * 65536 + s[i]];
  }
  return pictavo::Status::OK();
}

std::vector<uint8_t> LumaPlane(const TIEBitmap& bmp) {
  const int w = bmp.Width(), h = bmp.Height();
  std::vector<uint8_t> out(static_cast<size_t>(w) * h);
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(bmp, y, row.data());
    uint8_t* d = &out[static_cast<size_t>(y) * w];
    for (int x = 0; x < w; ++x) d[x] = rows::Luma8(row[3 * x], row[3 * x + 1], row[3 * x + 2]);
  }
  return out;
}

}  // namespace proc

namespace {

int OtsuThreshold(const std::vector<uint8_t>& luma) {
  uint64_t hist[256] = {};
  for (uint8_t v : luma) ++hist[v];
  const double total = static_cast<double>(luma.size());
  double sum_all = 0;
  for (int i = 0; i < 256; ++i) sum_all += i * static_cast<double>(hist[i]);
  double w0 = 0, sum0 = 0, best = -1;
  int best_t = 128;
  for (int t = 0; t < 256; ++t) {
    w0 += hist[t];
    if (w0 == 0) continue;
    const double w1 = total - w0;
    if (w1 == 0) break;
    sum0 += t * static_cast<double>(hist[t]);
    const double m0 = sum0 / w0, m1 = (sum_all - sum0) / w1;
    const double between = w0 * w1 * (m0 - m1) * (m0 - m1);
    if (between > best) {
      best = between;
      best_t = t;
    }
  }
  return best_t + 1;  // classes are <= t and > t; white means luma >= threshold
}

// Writes a two-level bitmap from a luma plane and a per-pixel decision.
template <typename Decide>
pictavo::Status WriteBW(TIEBitmap& bmp, const std::vector<uint8_t>& luma, Decide white) {
  const int w = bmp.Width(), h = bmp.Height();
  TIEBitmap out = bmp.WorkBitmap();
  if (auto st = out.Allocate(w, h, TIEPixelFormat::ie1g); !st.ok()) return st;
  for (int y = 0; y < h; ++y) {
    uint8_t* d = out.Scanline(y);
    const uint8_t* l = &luma[static_cast<size_t>(y) * w];
    for (int x = 0; x < w; ++x)
      if (white(x, y, l[x])) d[x >> 3] |= 0x80 >> (x & 7);
  }
  if (bmp.HasAlphaChannel()) {
    out.AddAlphaChannel(255);
    for (int y = 0; y < h; ++y) std::memcpy(out.AlphaScanline(y), bmp.AlphaScanline(y), w);
  }
  bmp = std::move(out);
  return pictavo::Status::OK();
}

constexpr uint8_t kBayer8[8][8] = {
    {0, 32, 8, 40, 2, 34, 10, 42},  {48, 16, 56, 24, 50, 18, 58, 26},
    {12, 44, 4, 36, 14, 46, 6, 38}, {60, 28, 52, 20, 62, 30, 54, 22},
    {3, 35, 11, 43, 1, 33, 9, 41},  {51, 19, 59, 27, 49, 17, 57, 25},
    {15, 47, 7, 39, 13, 45, 5, 37}, {63, 31, 55, 23, 61, 29, 53, 21}};

void RgbToHsl(double r, double g, double b, double& h, double& s, double& l) {
  const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
  l = (mx + mn) / 2;
  const double d = mx - mn;
  if (d < 1e-12) {
    h = s = 0;
    return;
  }
  s = l > 0.5 ? d / (2 - mx - mn) : d / (mx + mn);
  if (mx == r)
    h = (g - b) / d + (g < b ? 6 : 0);
  else if (mx == g)
    h = (b - r) / d + 2;
  else
    h = (r - g) / d + 4;
  h *= 60;
}

double HueToRgb(double p, double q, double t) {
  if (t < 0) t += 1;
  if (t > 1) t -= 1;
  if (t < 1.0 / 6) return p + (q - p) * 6 * t;
  if (t < 0.5) return q;
  if (t < 2.0 / 3) return p + (q - p) * (2.0 / 3 - t) * 6;
  return p;
}

void HslToRgb(double h, double s, double l, double& r, double& g, double& b) {
  if (s <= 0) {
    r = g = b = l;
    return;
  }
  const double q = l < 0.5 ? l * (1 + s) : l + s - l * s;
  const double p = 2 * l - q;
  const double hk = h / 360.0;
  r = HueToRgb(p, q, hk + 1.0 / 3);
  g = HueToRgb(p, q, hk);
  b = HueToRgb(p, q, hk - 1.0 / 3);
}

void RgbToHsv(double r, double g, double b, double& h, double& s, double& v) {
  const double mx = std::max({r, g, b}), mn = std::min({r, g, b});
  v = mx;
  const double d = mx - mn;
  s = mx > 0 ? d / mx : 0;
  if (d < 1e-12) {
    h = 0;
    return;
  }
  if (mx == r)
    h = (g - b) / d + (g < b ? 6 : 0);
  else if (mx == g)
    h = (b - r) / d + 2;
  else
    h = (r - g) / d + 4;
  h *= 60;
}

void HsvToRgb(double h, double s, double v, double& r, double& g, double& b) {
  const double c = v * s;
  const double hp = std::fmod(h / 60.0, 6.0);
  const double x = c * (1 - std::fabs(std::fmod(hp, 2.0) - 1));
  double r1 = 0, g1 = 0, b1 = 0;
  if (hp < 1) {
    r1 = c;
    g1 = x;
  } else if (hp < 2) {
    r1 = x;
    g1 = c;
  } else if (hp < 3) {
    g1 = c;
    b1 = x;
  } else if (hp < 4) {
    g1 = x;
    b1 = c;
  } else if (hp < 5) {
    r1 = x;
    b1 = c;
  } else {
    r1 = c;
    b1 = x;
  }
  const double m = v - c;
  r = r1 + m;
  g = g1 + m;
  b = b1 + m;
}

double WrapHue(double h) {
  h = std::fmod(h, 360.0);
  return h < 0 ? h + 360.0 : h;
}

// Relative change: +100 moves all the way to 1, -100 all the way to 0.
double Vary(double v, int amount) {
  const double a = std::clamp(amount, -100, 100) / 100.0;
  return a >= 0 ? v + (1 - v) * a : v * (1 + a);
}

}  // namespace

pictavo::Status TImageEnProc::Check() const {
  if (!bitmap_) return pictavo::Status::Error("no bitmap attached to the processor");
  if (bitmap_->IsEmpty()) return pictavo::Status::Error("the bitmap is empty");
  return pictavo::Status::OK();
}

// --- colour depth ----------------------------------------------------------------------------

pictavo::Status TImageEnProc::ConvertTo24Bit() {
  if (auto st = Check(); !st.ok()) return st;
  return bitmap_->ConvertTo(TIEPixelFormat::ie24RGB);
}

pictavo::Status TImageEnProc::ConvertTo(int num_colors, TIEDitherMethod dither) {
  if (auto st = Check(); !st.ok()) return st;
  if (num_colors < 1) return pictavo::Status::Error("colour count must be at least 1");
  if (num_colors <= 256) {
    const std::vector<TRGB> pal = BuildPalette(*bitmap_, num_colors);
    TIEBitmap out = bitmap_->WorkBitmap();
    if (auto st = MapToPalette(*bitmap_, pal, dither, out); !st.ok()) return st;
    *bitmap_ = std::move(out);
    return pictavo::Status::OK();
  }
  if (auto st = bitmap_->ConvertTo(TIEPixelFormat::ie24RGB); !st.ok()) return st;
  if (num_colors >= (1 << 24)) return pictavo::Status::OK();
  int levels[3];
  if (num_colors >= 32768) {
    levels[0] = levels[2] = 32;
    levels[1] = 64;
  } else {
    levels[0] = levels[1] = levels[2] = static_cast<int>(std::cbrt(num_colors + 0.5));
  }
  const int w = bitmap_->Width(), h = bitmap_->Height();
  std::vector<int> err_cur(static_cast<size_t>(w + 2) * 3), err_next(err_cur.size());
  const bool fs = dither == TIEDitherMethod::ieFloydSteinberg;
  for (int y = 0; y < h; ++y) {
    uint8_t* s = bitmap_->Scanline(y);
    std::fill(err_next.begin(), err_next.end(), 0);
    for (int x = 0; x < w; ++x) {
      for (int c = 0; c < 3; ++c) {
        int v = s[3 * x + c];
        if (fs)
          v = std::clamp(v + (err_cur[3 * (x + 1) + c] + 8) / 16, 0, 255);
        else if (dither == TIEDitherMethod::ieOrdered)
          v = std::clamp(v + (kBayer8[y & 7][x & 7] - 32) * 255 / (levels[c] - 1) / 64, 0, 255);
        const int step = levels[c] - 1;
        const int q = (v * step + 127) / 255 * 255 / step;
        s[3 * x + c] = static_cast<uint8_t>(q);
        if (fs) {
          const int e = v - q;
          err_cur[3 * (x + 2) + c] += e * 7;
          err_next[3 * x + c] += e * 3;
          err_next[3 * (x + 1) + c] += e * 5;
          err_next[3 * (x + 2) + c] += e;
        }
      }
    }
    std::swap(err_cur, err_next);
  }
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::ConvertToGray() {
  if (auto st = Check(); !st.ok()) return st;
  TIEBitmap& b = *bitmap_;
  if (b.PixelFormat() == TIEPixelFormat::ieCMYK)
    if (auto st = b.ConvertTo(TIEPixelFormat::ie24RGB); !st.ok()) return st;
  const int w = b.Width(), h = b.Height();
  switch (b.PixelFormat()) {
    case TIEPixelFormat::ie24RGB:
      for (int y = 0; y < h; ++y) {
        uint8_t* s = b.Scanline(y);
        for (int x = 0; x < w; ++x, s += 3) s[0] = s[1] = s[2] = rows::Luma8(s[0], s[1], s[2]);
      }
      break;
    case TIEPixelFormat::ie48RGB:
      for (int y = 0; y < h; ++y) {
        auto* s = reinterpret_cast<uint16_t*>(b.Scanline(y));
        for (int x = 0; x < w; ++x, s += 3) s[0] = s[1] = s[2] = rows::Luma16(s[0], s[1], s[2]);
      }
      break;
    case TIEPixelFormat::ie8p:
      for (TRGB& e : b.Palette()) {
        const uint8_t v = rows::Luma8(e.r, e.g, e.b);
        e = TRGB{v, v, v};
      }
      break;
    default:
      break;
  }
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::ConvertToBWThreshold(int threshold) {
  if (auto st = Check(); !st.ok()) return st;
  const std::vector<uint8_t> luma = proc::LumaPlane(*bitmap_);
  int t = threshold;
  if (threshold == -1) {
    t = OtsuThreshold(luma);
  } else if (threshold == -2) {
    uint64_t sum = 0;
    for (uint8_t v : luma) sum += v;
    t = static_cast<int>((sum + luma.size() / 2) / luma.size());
  } else if (threshold < 0 || threshold > 255) {
    return pictavo::Status::Error("threshold must be 0..255, -1 or -2");
  }
  return WriteBW(*bitmap_, luma, [t](int, int, uint8_t v) { return v >= t; });
}

pictavo::Status TImageEnProc::ConvertToBWOrdered() {
  if (auto st = Check(); !st.ok()) return st;
  const std::vector<uint8_t> luma = proc::LumaPlane(*bitmap_);
  return WriteBW(*bitmap_, luma,
                 [](int x, int y, uint8_t v) { return v >= kBayer8[y & 7][x & 7] * 4 + 2; });
}

pictavo::Status TImageEnProc::ConvertToBW_FloydSteinberg() {
  if (auto st = Check(); !st.ok()) return st;
  std::vector<uint8_t> luma = proc::LumaPlane(*bitmap_);
  const int w = bitmap_->Width(), h = bitmap_->Height();
  std::vector<int> err_cur(w + 2), err_next(w + 2);
  for (int y = 0; y < h; ++y) {
    uint8_t* l = &luma[static_cast<size_t>(y) * w];
    std::fill(err_next.begin(), err_next.end(), 0);
    const bool rtl = y & 1;
    const int dir = rtl ? -1 : 1;
    for (int i = 0; i < w; ++i) {
      const int x = rtl ? w - 1 - i : i;
      const int v = l[x] + (err_cur[x + 1] + 8) / 16;
      const int q = v >= 128 ? 255 : 0;
      l[x] = static_cast<uint8_t>(q);
      const int e = v - q;
      err_cur[x + 1 + dir] += e * 7;
      err_next[x + 1 - dir] += e * 3;
      err_next[x + 1] += e * 5;
      err_next[x + 1 + dir] += e;
    }
    std::swap(err_cur, err_next);
  }
  return WriteBW(*bitmap_, luma, [](int, int, uint8_t v) { return v >= 128; });
}

int TImageEnProc::CalcImageNumColors(int stop_above) const {
  if (!bitmap_ || bitmap_->IsEmpty()) return 0;
  const int w = bitmap_->Width(), h = bitmap_->Height();
  std::vector<uint64_t> seen((size_t{1} << 24) / 64);
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  int count = 0;
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(*bitmap_, y, row.data());
    for (int x = 0; x < w; ++x) {
      const uint32_t key = row[3 * x] | (row[3 * x + 1] << 8) | (row[3 * x + 2] << 16);
      uint64_t& word = seen[key >> 6];
      const uint64_t bit = uint64_t{1} << (key & 63);
      if (!(word & bit)) {
        word |= bit;
        if (++count > stop_above) return count;
      }
    }
  }
  return count;
}

// --- tone and colour -------------------------------------------------------------------------

pictavo::Status TImageEnProc::Contrast(double amount) {
  if (auto st = Check(); !st.ok()) return st;
  amount = std::clamp(amount, -100.0, 100.0);
  if (amount >= 100.0)
    return proc::ApplyCurves(
        *bitmap_, [](int, double v) { return v >= 0.5 ? 1.0 : 0.0; }, true);
  const double factor = amount >= 0 ? 100.0 / (100.0 - amount) : (100.0 + amount) / 100.0;
  return proc::ApplyCurves(
      *bitmap_, [factor](int, double v) { return (v - 0.5) * factor + 0.5; }, true);
}

pictavo::Status TImageEnProc::IntensityRGBAll(int red, int green, int blue) {
  if (auto st = Check(); !st.ok()) return st;
  const double off[3] = {red / 255.0, green / 255.0, blue / 255.0};
  return proc::ApplyCurves(
      *bitmap_, [&](int c, double v) { return v + off[c]; }, red == green && green == blue);
}

pictavo::Status TImageEnProc::GammaCorrect(double gamma, unsigned channels) {
  if (auto st = Check(); !st.ok()) return st;
  if (!(gamma > 0)) return pictavo::Status::Error("gamma must be positive");
  const double inv = 1.0 / gamma;
  return proc::ApplyCurves(
      *bitmap_, [&](int c, double v) { return (channels >> c) & 1 ? std::pow(v, inv) : v; },
      (channels & kChannelRGB) == kChannelRGB);
}

pictavo::Status TImageEnProc::HSLvar(int hue, int saturation, int luminance) {
  if (auto st = Check(); !st.ok()) return st;
  return proc::ApplyPixelFunction(
      *bitmap_,
      [&](double& r, double& g, double& b) {
        double h, s, l;
        RgbToHsl(r, g, b, h, s, l);
        h = WrapHue(h + hue);
        s = std::clamp(s * (1 + std::clamp(saturation, -100, 100) / 100.0), 0.0, 1.0);
        if (luminance) l = Vary(l, luminance);
        HslToRgb(h, s, l, r, g, b);
      },
      true);
}

pictavo::Status TImageEnProc::HSVvar(int hue, int saturation, int value) {
  if (auto st = Check(); !st.ok()) return st;
  return proc::ApplyPixelFunction(
      *bitmap_,
      [&](double& r, double& g, double& b) {
        double h, s, v;
        RgbToHsv(r, g, b, h, s, v);
        h = WrapHue(h + hue);
        s = std::clamp(s * (1 + std::clamp(saturation, -100, 100) / 100.0), 0.0, 1.0);
        if (value) v = Vary(v, value);
        HsvToRgb(h, s, v, r, g, b);
      },
      true);
}

pictavo::Status TImageEnProc::Negative() {
  if (auto st = Check(); !st.ok()) return st;
  if (bitmap_->PixelFormat() == TIEPixelFormat::ie1g) {
    for (int y = 0; y < bitmap_->Height(); ++y) {
      uint8_t* s = bitmap_->Scanline(y);
      for (size_t i = 0; i < bitmap_->RowLen(); ++i) s[i] = static_cast<uint8_t>(~s[i]);
    }
    return pictavo::Status::OK();
  }
  return proc::ApplyCurves(
      *bitmap_, [](int, double v) { return 1.0 - v; }, true);
}

pictavo::Status TImageEnProc::WhiteBalance_AutoWhite() {
  if (auto st = Check(); !st.ok()) return st;
  const int w = bitmap_->Width(), h = bitmap_->Height();
  const std::vector<uint8_t> luma = proc::LumaPlane(*bitmap_);
  uint64_t hist[256] = {};
  for (uint8_t v : luma) ++hist[v];
  const uint64_t want = std::max<uint64_t>(1, luma.size() / 100);
  int cut = 255;
  for (uint64_t acc = 0; cut > 0; --cut) {
    acc += hist[cut];
    if (acc >= want) break;
  }
  double sum[3] = {0, 0, 0};
  uint64_t n = 0;
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(*bitmap_, y, row.data());
    const uint8_t* l = &luma[static_cast<size_t>(y) * w];
    for (int x = 0; x < w; ++x) {
      if (l[x] < cut) continue;
      for (int c = 0; c < 3; ++c) sum[c] += row[3 * x + c];
      ++n;
    }
  }
  if (n == 0) return pictavo::Status::OK();
  const double target = std::max({sum[0], sum[1], sum[2]});
  double gain[3];
  for (int c = 0; c < 3; ++c) gain[c] = sum[c] > 0 ? std::min(4.0, target / sum[c]) : 1.0;
  if (gain[0] == 1.0 && gain[1] == 1.0 && gain[2] == 1.0) return pictavo::Status::OK();
  return proc::ApplyCurves(
      *bitmap_, [&](int c, double v) { return v * gain[c]; }, false);
}

TIEHistogram TImageEnProc::GetHistogram() const {
  TIEHistogram hist;
  if (!bitmap_ || bitmap_->IsEmpty()) return hist;
  const int w = bitmap_->Width(), h = bitmap_->Height();
  std::vector<uint8_t> row(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    rows::ReadRGB8(*bitmap_, y, row.data());
    for (int x = 0; x < w; ++x) {
      const uint8_t r = row[3 * x], g = row[3 * x + 1], b = row[3 * x + 2];
      ++hist.red[r];
      ++hist.green[g];
      ++hist.blue[b];
      ++hist.gray[rows::Luma8(r, g, b)];
    }
  }
  return hist;
}

pictavo::Status TImageEnProc::ApplyLUT(const std::array<uint8_t, 256>& red,
                                       const std::array<uint8_t, 256>& green,
                                       const std::array<uint8_t, 256>& blue) {
  if (auto st = Check(); !st.ok()) return st;
  const std::array<uint8_t, 256>* lut[3] = {&red, &green, &blue};
  return proc::ApplyCurves(
      *bitmap_,
      [&](int c, double v) {
        // Linear interpolation between entries keeps 16-bit layouts smooth.
        const double pos = v * 255.0;
        const int i = std::min(254, static_cast<int>(pos));
        const double f = pos - i;
        return ((*lut[c])[i] * (1 - f) + (*lut[c])[i + 1] * f) / 255.0;
      },
      red == green && green == blue);
}

pictavo::Status TImageEnProc::Posterize(int levels) {
  if (auto st = Check(); !st.ok()) return st;
  if (levels < 2 || levels > 256) return pictavo::Status::Error("levels must be 2..256");
  const double step = levels - 1;
  return proc::ApplyCurves(
      *bitmap_, [step](int, double v) { return std::round(v * step) / step; }, true);
}

}  // namespace pictavo::imaging
