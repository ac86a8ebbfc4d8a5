// TImageEnProc: convolution filters, blur, sharpening and speck removal.
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

namespace proc {

pictavo::Status PrepareForFilter(TIEBitmap& bmp) {
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie1g:
      return bmp.ConvertTo(TIEPixelFormat::ie8g);
    case TIEPixelFormat::ie8p:
      return bmp.ConvertTo(TIEPixelFormat::ie24RGB);
    default:
      return pictavo::Status::OK();
  }
}

}  // namespace proc

namespace {

// Samples of the bitmap's rows as a flat view: T is uint8_t or uint16_t.
struct Plane {
  int w = 0, h = 0, ch = 0;
  bool wide = false;
};

Plane Describe(const TIEBitmap& b) {
  Plane p{b.Width(), b.Height(), 0, false};
  switch (b.PixelFormat()) {
    case TIEPixelFormat::ie8g:
      p.ch = 1;
      break;
    case TIEPixelFormat::ie24RGB:
      p.ch = 3;
      break;
    case TIEPixelFormat::ieCMYK:
      p.ch = 4;
      break;
    case TIEPixelFormat::ie16g:
      p.ch = 1;
      p.wide = true;
      break;
    case TIEPixelFormat::ie48RGB:
      p.ch = 3;
      p.wide = true;
      break;
    default:
      break;
  }
  return p;
}

// Reads every sample of the bitmap as float (0..255 or 0..65535).
std::vector<float> ToFloat(const TIEBitmap& b, const Plane& p) {
  const size_t n = static_cast<size_t>(p.w) * p.ch;
  std::vector<float> out(n * p.h);
  for (int y = 0; y < p.h; ++y) {
    float* d = &out[y * n];
    if (p.wide) {
      const auto* s = reinterpret_cast<const uint16_t*>(b.Scanline(y));
      for (size_t i = 0; i < n; ++i) d[i] = s[i];
    } else {
      const uint8_t* s = b.Scanline(y);
      for (size_t i = 0; i < n; ++i) d[i] = s[i];
    }
  }
  return out;
}

void FromFloat(TIEBitmap& b, const Plane& p, const std::vector<float>& in) {
  const size_t n = static_cast<size_t>(p.w) * p.ch;
  const float top = p.wide ? 65535.f : 255.f;
  for (int y = 0; y < p.h; ++y) {
    const float* s = &in[y * n];
    if (p.wide) {
      auto* d = reinterpret_cast<uint16_t*>(b.Scanline(y));
      for (size_t i = 0; i < n; ++i)
        d[i] = static_cast<uint16_t>(std::clamp(std::nearbyint(s[i]), 0.f, top));
    } else {
      uint8_t* d = b.Scanline(y);
      for (size_t i = 0; i < n; ++i)
        d[i] = static_cast<uint8_t>(std::clamp(std::nearbyint(s[i]), 0.f, top));
    }
  }
}

// Separable Gaussian on a float plane, edges repeated.
void GaussianFloat(std::vector<float>& data, const Plane& p, double sigma) {
  const int half = std::max(1, static_cast<int>(std::ceil(3 * sigma)));
  std::vector<float> k(2 * half + 1);
  double sum = 0;
  for (int i = -half; i <= half; ++i)
    sum += k[i + half] = static_cast<float>(std::exp(-i * i / (2 * sigma * sigma)));
  for (float& v : k) v = static_cast<float>(v / sum);
  const int ch = p.ch;
  const size_t n = static_cast<size_t>(p.w) * ch;
  std::vector<float> tmp(data.size());
  for (int y = 0; y < p.h; ++y) {
    const float* s = &data[y * n];
    float* d = &tmp[y * n];
    for (int x = 0; x < p.w; ++x)
      for (int c = 0; c < ch; ++c) {
        float acc = 0;
        for (int i = -half; i <= half; ++i)
          acc += k[i + half] * s[std::clamp(x + i, 0, p.w - 1) * ch + c];
        d[x * ch + c] = acc;
      }
  }
  for (int y = 0; y < p.h; ++y) {
    float* d = &data[y * n];
    std::fill(d, d + n, 0.f);
    for (int i = -half; i <= half; ++i) {
      const float* s = &tmp[std::clamp(y + i, 0, p.h - 1) * n];
      const float ki = k[i + half];
      for (size_t x = 0; x < n; ++x) d[x] += ki * s[x];
    }
  }
}

// out = sum(weights * in) + bias over a size x size neighbourhood, edges repeated. Source rows
// are kept, padded, in a ring of `size` float rows, so the result can be written in place;
// each tap is one multiply-add over a whole row, which vectorises.
template <typename T>
void ConvolveRows(TIEBitmap& b, const Plane& p, int size, const float* weights, float bias) {
  const int half = size / 2, ch = p.ch, w = p.w, h = p.h;
  const size_t n = static_cast<size_t>(w) * ch, pn = static_cast<size_t>(w + 2 * half) * ch;
  const float top = std::is_same_v<T, uint16_t> ? 65535.f : 255.f;
  std::vector<float> ring(static_cast<size_t>(size) * pn), acc(n);
  auto slot = [&](int r) { return &ring[static_cast<size_t>(r % size) * pn]; };
  auto load = [&](int r) {
    float* d = slot(r);
    const T* s = reinterpret_cast<const T*>(b.Scanline(r));
    for (size_t i = 0; i < n; ++i) d[half * ch + i] = s[i];
    for (int x = 0; x < half; ++x)
      for (int c = 0; c < ch; ++c) {
        d[x * ch + c] = s[c];
        d[(half + w + x) * ch + c] = s[(w - 1) * ch + c];
      }
  };
  int next = 0;
  for (int y = 0; y < h; ++y) {
    while (next <= std::min(y + half, h - 1)) load(next++);
    std::fill(acc.begin(), acc.end(), bias);
    for (int j = -half; j <= half; ++j) {
      const float* row = slot(std::clamp(y + j, 0, h - 1));
      for (int i = -half; i <= half; ++i) {
        const float wt = weights[(j + half) * size + i + half];
        if (wt == 0.f) continue;
        const float* in = row + (i + half) * ch;
        for (size_t k = 0; k < n; ++k) acc[k] += wt * in[k];
      }
    }
    T* out = reinterpret_cast<T*>(b.Scanline(y));
    for (size_t k = 0; k < n; ++k) out[k] = static_cast<T>(std::clamp(acc[k], 0.f, top) + 0.5f);
  }
}

void Convolve(TIEBitmap& b, const Plane& p, int size, const float* weights, float bias) {
  if (p.wide)
    ConvolveRows<uint16_t>(b, p, size, weights, bias);
  else
    ConvolveRows<uint8_t>(b, p, size, weights, bias);
}

std::vector<double> GaussianKernel(double sigma) {
  const int half = std::max(1, static_cast<int>(std::ceil(3 * sigma)));
  std::vector<double> k(2 * half + 1);
  double sum = 0;
  for (int i = -half; i <= half; ++i) sum += k[i + half] = std::exp(-i * i / (2 * sigma * sigma));
  for (double& v : k) v /= sum;
  return k;
}

// Gaussian blur of the whole bitmap into out (same layout), 8-bit through the fixed-point
// separable passes, 16-bit in float.
pictavo::Status Blurred(const TIEBitmap& b, const Plane& p, double sigma, TIEBitmap& out) {
  if (p.wide) {
    out.Assign(b);
    std::vector<float> data = ToFloat(b, p);
    GaussianFloat(data, p, sigma);
    FromFloat(out, p, data);
    return pictavo::Status::OK();
  }
  if (auto st = out.Allocate(p.w, p.h, b.PixelFormat()); !st.ok()) return st;
  ConvolveSeparable8(b.Scanline(0), p.w, p.h, b.RowLen(), p.ch, out.Scanline(0), out.RowLen(),
                     GaussianKernel(sigma));
  return pictavo::Status::OK();
}

TIEFilterKernel Preset(TIEFilterPreset preset) {
  TIEFilterKernel k;
  auto set3 = [&](std::initializer_list<int> v, int div, int bias) {
    k.size = 3;
    std::copy(v.begin(), v.end(), k.k.begin());
    k.divisor = div;
    k.bias = bias;
  };
  auto set5 = [&](std::initializer_list<int> v, int div, int bias) {
    k.size = 5;
    std::copy(v.begin(), v.end(), k.k.begin());
    k.divisor = div;
    k.bias = bias;
  };
  switch (preset) {
    case TIEFilterPreset::fpBlur:
      set3({1, 1, 1, 1, 1, 1, 1, 1, 1}, 9, 0);
      break;
    case TIEFilterPreset::fpSoften:
      set3({1, 2, 1, 2, 4, 2, 1, 2, 1}, 16, 0);
      break;
    case TIEFilterPreset::fpGaussian5:
      set5({1, 4, 6, 4, 1, 4, 16, 24, 16, 4, 6, 24, 36, 24, 6, 4, 16, 24, 16, 4, 1, 4, 6, 4, 1},
           256, 0);
      break;
    case TIEFilterPreset::fpSharpen:
      set3({0, -1, 0, -1, 5, -1, 0, -1, 0}, 1, 0);
      break;
    case TIEFilterPreset::fpSharpenMore:
      set3({-1, -1, -1, -1, 9, -1, -1, -1, -1}, 1, 0);
      break;
    case TIEFilterPreset::fpSharpen5:
      set5({-1, -1, -1, -1, -1, -1, 2,  2,  2,  -1, -1, 2, 8,
            2,  -1, -1, 2,  2,  2,  -1, -1, -1, -1, -1, -1},
           8, 0);
      break;
    case TIEFilterPreset::fpEdge:
      set3({-1, -1, -1, -1, 8, -1, -1, -1, -1}, 1, 0);
      break;
    case TIEFilterPreset::fpEdgeHorizontal:
      set3({-1, -2, -1, 0, 0, 0, 1, 2, 1}, 1, 0);
      break;
    case TIEFilterPreset::fpEdgeVertical:
      set3({-1, 0, 1, -2, 0, 2, -1, 0, 1}, 1, 0);
      break;
    case TIEFilterPreset::fpEmboss:
      set3({-2, -1, 0, -1, 1, 1, 0, 1, 2}, 1, 127);
      break;
    case TIEFilterPreset::fpHighPass:
      set5({-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, 24,
            -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1},
           1, 128);
      break;
  }
  return k;
}

}  // namespace

pictavo::Status TImageEnProc::ApplyFilterPreset(TIEFilterPreset preset) {
  return ApplyFilter(Preset(preset));
}

pictavo::Status TImageEnProc::ApplyFilter(const TIEFilterKernel& kernel) {
  if (auto st = Check(); !st.ok()) return st;
  if (kernel.size != 3 && kernel.size != 5)
    return pictavo::Status::Error("kernel size must be 3 or 5");
  if (kernel.divisor == 0) return pictavo::Status::Error("kernel divisor must not be 0");
  if (auto st = proc::PrepareForFilter(*bitmap_); !st.ok()) return st;
  const Plane p = Describe(*bitmap_);
  float w[25];
  for (int i = 0; i < kernel.size * kernel.size; ++i)
    w[i] = static_cast<float>(kernel.k[i]) / kernel.divisor;
  // The bias is given in 8-bit units.
  Convolve(*bitmap_, p, kernel.size, w, static_cast<float>(kernel.bias * (p.wide ? 257 : 1)));
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::Blur(double radius) {
  if (auto st = Check(); !st.ok()) return st;
  if (radius < 0) return pictavo::Status::Error("blur radius must not be negative");
  if (radius < 0.05) return pictavo::Status::OK();
  if (auto st = proc::PrepareForFilter(*bitmap_); !st.ok()) return st;
  const Plane p = Describe(*bitmap_);
  TIEBitmap out = bitmap_->WorkBitmap();
  if (auto st = Blurred(*bitmap_, p, radius, out); !st.ok()) return st;
  for (int y = 0; y < p.h; ++y)
    std::memcpy(bitmap_->Scanline(y), out.Scanline(y), bitmap_->RowLen());
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::Sharpen(int amount) {
  if (auto st = Check(); !st.ok()) return st;
  amount = std::clamp(amount, 0, 100);
  if (amount == 0) return pictavo::Status::OK();
  if (auto st = proc::PrepareForFilter(*bitmap_); !st.ok()) return st;
  const Plane p = Describe(*bitmap_);
  const float a = amount / 100.f;
  const float w[9] = {0, -a, 0, -a, 1 + 4 * a, -a, 0, -a, 0};
  Convolve(*bitmap_, p, 3, w, 0.f);
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::UnsharpMask(double radius, double amount, int threshold) {
  if (auto st = Check(); !st.ok()) return st;
  if (radius <= 0 || amount <= 0) return pictavo::Status::OK();
  if (auto st = proc::PrepareForFilter(*bitmap_); !st.ok()) return st;
  const Plane p = Describe(*bitmap_);
  TIEBitmap blurred = bitmap_->WorkBitmap();
  if (auto st = Blurred(*bitmap_, p, radius, blurred); !st.ok()) return st;
  const float gain = static_cast<float>(amount / 100.0);
  const float limit = static_cast<float>(threshold) * (p.wide ? 257.f : 1.f);
  const size_t n = static_cast<size_t>(p.w) * p.ch;
  auto sharpen = [&](auto* row, const auto* soft, float top) {
    for (size_t i = 0; i < n; ++i) {
      const float diff = static_cast<float>(row[i]) - static_cast<float>(soft[i]);
      if (std::fabs(diff) < limit || diff == 0.f) continue;
      row[i] = static_cast<std::remove_reference_t<decltype(*row)>>(
          std::clamp(row[i] + gain * diff, 0.f, top) + 0.5f);
    }
  };
  for (int y = 0; y < p.h; ++y) {
    if (p.wide)
      sharpen(reinterpret_cast<uint16_t*>(bitmap_->Scanline(y)),
              reinterpret_cast<const uint16_t*>(blurred.Scanline(y)), 65535.f);
    else
      sharpen(bitmap_->Scanline(y), blurred.Scanline(y), 255.f);
  }
  return pictavo::Status::OK();
}

pictavo::Status TImageEnProc::AutoSharp() {
  if (auto st = Check(); !st.ok()) return st;
  // Mean absolute luma gradient: soft photos score 2..5, crisp ones 10 and more.
  const std::vector<uint8_t> luma = proc::LumaPlane(*bitmap_);
  const int w = bitmap_->Width(), h = bitmap_->Height();
  double sum = 0;
  uint64_t n = 0;
  for (int y = 0; y + 1 < h; ++y)
    for (int x = 0; x + 1 < w; ++x) {
      const uint8_t* l = &luma[static_cast<size_t>(y) * w + x];
      sum += std::abs(l[1] - l[0]) + std::abs(l[w] - l[0]);
      ++n;
    }
  if (n == 0) return pictavo::Status::OK();
  const double mean = sum / n;
  const double amount = std::clamp(160.0 - 8.0 * mean, 30.0, 150.0);
  return UnsharpMask(1.0, amount, 3);
}

pictavo::Status TImageEnProc::RemoveIsolatedPixels(int max_size) {
  if (auto st = Check(); !st.ok()) return st;
  TIEBitmap& b = *bitmap_;
  const int w = b.Width(), h = b.Height();
  if (b.PixelFormat() == TIEPixelFormat::ie1g) {
    if (max_size < 1) return pictavo::Status::OK();
    std::vector<uint8_t> v(static_cast<size_t>(w) * h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) v[static_cast<size_t>(y) * w + x] = b.GetPixels_ie1g(x, y);
    std::vector<int> label(v.size());
    std::vector<int> stack, comp;
    // Black specks first, then white ones on the cleaned image.
    for (int colour : {0, 1}) {
      std::fill(label.begin(), label.end(), 0);
      for (size_t start = 0; start < v.size(); ++start) {
        if (v[start] != colour || label[start]) continue;
        comp.clear();
        stack.assign(1, static_cast<int>(start));
        label[start] = 1;
        bool small = true;
        while (!stack.empty()) {
          const int i = stack.back();
          stack.pop_back();
          if (small) comp.push_back(i);
          if (static_cast<int>(comp.size()) > max_size) small = false;
          const int x = i % w, y = i / w;
          for (int dy = -1; dy <= 1; ++dy)
            for (int dx = -1; dx <= 1; ++dx) {
              const int nx = x + dx, ny = y + dy;
              if (nx < 0 || ny < 0 || nx >= w || ny >= h) continue;
              const int j = ny * w + nx;
              if (v[j] == colour && !label[j]) {
                label[j] = 1;
                stack.push_back(j);
              }
            }
        }
        if (small)
          for (int i : comp) v[i] = static_cast<uint8_t>(1 - colour);
      }
    }
    for (int y = 0; y < h; ++y) {
      uint8_t* d = b.Scanline(y);
      std::memset(d, 0, b.RowLen());
      for (int x = 0; x < w; ++x)
        if (v[static_cast<size_t>(y) * w + x]) d[x >> 3] |= 0x80 >> (x & 7);
    }
    return pictavo::Status::OK();
  }
  // Other layouts: lone outliers take the median of their neighbours.
  std::vector<uint8_t> rgb(static_cast<size_t>(w) * h * 3);
  for (int y = 0; y < h; ++y) rows::ReadRGB8(b, y, &rgb[static_cast<size_t>(y) * w * 3]);
  for (int y = 1; y + 1 < h; ++y)
    for (int x = 1; x + 1 < w; ++x) {
      const uint8_t* c = &rgb[(static_cast<size_t>(y) * w + x) * 3];
      bool isolated = true;
      uint8_t nb[3][8];
      int k = 0;
      for (int dy = -1; dy <= 1 && isolated; ++dy)
        for (int dx = -1; dx <= 1; ++dx) {
          if (!dx && !dy) continue;
          const uint8_t* q = &rgb[(static_cast<size_t>(y + dy) * w + x + dx) * 3];
          const int d =
              std::max({std::abs(q[0] - c[0]), std::abs(q[1] - c[1]), std::abs(q[2] - c[2])});
          if (d <= 64) {
            isolated = false;
            break;
          }
          for (int ch = 0; ch < 3; ++ch) nb[ch][k] = q[ch];
          ++k;
        }
      if (!isolated) continue;
      TRGB m;
      uint8_t* mv[3] = {&m.r, &m.g, &m.b};
      for (int ch = 0; ch < 3; ++ch) {
        std::nth_element(nb[ch], nb[ch] + 4, nb[ch] + 8);
        *mv[ch] = nb[ch][4];
      }
      b.SetPixel(x, y, m);
    }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging
