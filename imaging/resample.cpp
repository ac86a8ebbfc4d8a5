#include "imaging/resample.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <type_traits>
#include <unordered_map>
#include <vector>

#include "imaging/bitmap_rows.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace pictavo::imaging {

namespace {

constexpr int kFixBits = 14;
constexpr int kFixOne = 1 << kFixBits;
constexpr double kPi = 3.14159265358979323846;

double FilterRadius(TResampleFilter f) {
  switch (f) {
    case TResampleFilter::rfBilinear:
      return 1.0;
    case TResampleFilter::rfBicubic:
      return 2.0;
    case TResampleFilter::rfLanczos3:
      return 3.0;
    case TResampleFilter::rfNearest:
      return 0.5;
  }
  return 1.0;
}

double Sinc(double x) {
  if (std::fabs(x) < 1e-9) return 1.0;
  x *= kPi;
  return std::sin(x) / x;
}

double FilterValue(TResampleFilter f, double x) {
  x = std::fabs(x);
  switch (f) {
    case TResampleFilter::rfBilinear:
      return x < 1.0 ? 1.0 - x : 0.0;
    case TResampleFilter::rfBicubic: {
      // Catmull-Rom (a = -0.5): interpolating, no overshoot on smooth ramps.
      constexpr double a = -0.5;
      if (x < 1.0) return ((a + 2) * x - (a + 3)) * x * x + 1;
      if (x < 2.0) return ((a * x - 5 * a) * x + 8 * a) * x - 4 * a;
      return 0.0;
    }
    case TResampleFilter::rfLanczos3:
      return x < 3.0 ? Sinc(x) * Sinc(x / 3.0) : 0.0;
    case TResampleFilter::rfNearest:
      return x <= 0.5 ? 1.0 : 0.0;
  }
  return 0.0;
}

// Filter taps of one axis: output i reads `taps` source samples from start[i].
struct Taps {
  int taps = 0;
  std::vector<int> start;
  std::vector<int16_t> fixed;  // kFixOne = 1.0
  std::vector<float> real;
};

Taps ComputeTaps(int in, int out, TResampleFilter filter) {
  const double scale = static_cast<double>(in) / out;
  const double fscale = std::max(scale, 1.0);
  const double support = FilterRadius(filter) * fscale;
  std::vector<int> lo(out);
  std::vector<std::vector<double>> weights(out);
  int taps = 1;
  for (int i = 0; i < out; ++i) {
    const double center = (i + 0.5) * scale - 0.5;
    const int j0 = static_cast<int>(std::ceil(center - support));
    const int j1 = static_cast<int>(std::floor(center + support));
    const int c0 = std::clamp(j0, 0, in - 1), c1 = std::clamp(j1, 0, in - 1);
    std::vector<double>& w = weights[i];
    w.assign(c1 - c0 + 1, 0.0);
    double sum = 0;
    for (int j = j0; j <= j1; ++j) {
      const double v = FilterValue(filter, (j - center) / fscale);
      w[std::clamp(j, 0, in - 1) - c0] += v;  // edge samples repeat
      sum += v;
    }
    if (std::fabs(sum) < 1e-12) {
      w.assign(1, 1.0);
      lo[i] = std::clamp(static_cast<int>(std::lround(center)), 0, in - 1);
    } else {
      for (double& v : w) v /= sum;
      lo[i] = c0;
    }
    taps = std::max(taps, static_cast<int>(w.size()));
  }
  Taps t;
  t.taps = taps;
  t.start.resize(out);
  t.fixed.assign(static_cast<size_t>(out) * taps, 0);
  t.real.assign(static_cast<size_t>(out) * taps, 0.f);
  for (int i = 0; i < out; ++i) {
    const int start = std::min(lo[i], in - taps);
    t.start[i] = start;
    const int off = lo[i] - start;
    int16_t* fx = &t.fixed[static_cast<size_t>(i) * taps];
    float* re = &t.real[static_cast<size_t>(i) * taps];
    int sum = 0, biggest = off;
    for (size_t k = 0; k < weights[i].size(); ++k) {
      const double v = weights[i][k];
      fx[off + k] = static_cast<int16_t>(std::lround(v * kFixOne));
      re[off + k] = static_cast<float>(v);
      sum += fx[off + k];
      if (std::fabs(v) > std::fabs(weights[i][biggest - off])) biggest = off + static_cast<int>(k);
    }
    // Exact unity gain: a flat area must come out exactly as it went in.
    fx[biggest] = static_cast<int16_t>(fx[biggest] + (kFixOne - sum));
  }
  return t;
}

inline uint8_t ClampFix(int32_t acc) {
  const int32_t v = (acc + (kFixOne >> 1)) >> kFixBits;
  return static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
}

// Vertical pass on 8-bit rows of n samples. Blocks of 16 samples are accumulated in registers
// over all taps, two rows per 16-bit multiply-add (SSE2, always present on x86-64), so no
// intermediate sums go through memory.
void VerticalPass8(const uint8_t* src, size_t src_stride, int n, const Taps& t, uint8_t* dst,
                   size_t dst_stride, int out_rows) {
  const int taps = t.taps;
  for (int y = 0; y < out_rows; ++y) {
    const int16_t* w = &t.fixed[static_cast<size_t>(y) * taps];
    const uint8_t* base = src + static_cast<size_t>(t.start[y]) * src_stride;
    uint8_t* out = dst + static_cast<size_t>(y) * dst_stride;
    int x = 0;
#if defined(__SSE2__)
    const __m128i zero = _mm_setzero_si128();
    const __m128i round = _mm_set1_epi32(kFixOne >> 1);
    for (; x + 16 <= n; x += 16) {
      __m128i acc0 = round, acc1 = round, acc2 = round, acc3 = round;
      for (int k = 0; k < taps; k += 2) {
        const bool pair = k + 1 < taps;
        const __m128i a = _mm_loadu_si128(
            reinterpret_cast<const __m128i*>(base + static_cast<size_t>(k) * src_stride + x));
        const __m128i b = pair ? _mm_loadu_si128(reinterpret_cast<const __m128i*>(
                                     base + static_cast<size_t>(k + 1) * src_stride + x))
                               : zero;
        const uint32_t wpair =
            static_cast<uint16_t>(w[k]) |
            (pair ? static_cast<uint32_t>(static_cast<uint16_t>(w[k + 1])) << 16 : 0u);
        const __m128i wp = _mm_set1_epi32(static_cast<int32_t>(wpair));
        const __m128i lo = _mm_unpacklo_epi8(a, b), hi = _mm_unpackhi_epi8(a, b);
        acc0 = _mm_add_epi32(acc0, _mm_madd_epi16(_mm_unpacklo_epi8(lo, zero), wp));
        acc1 = _mm_add_epi32(acc1, _mm_madd_epi16(_mm_unpackhi_epi8(lo, zero), wp));
        acc2 = _mm_add_epi32(acc2, _mm_madd_epi16(_mm_unpacklo_epi8(hi, zero), wp));
        acc3 = _mm_add_epi32(acc3, _mm_madd_epi16(_mm_unpackhi_epi8(hi, zero), wp));
      }
      const __m128i lo16 =
          _mm_packs_epi32(_mm_srai_epi32(acc0, kFixBits), _mm_srai_epi32(acc1, kFixBits));
      const __m128i hi16 =
          _mm_packs_epi32(_mm_srai_epi32(acc2, kFixBits), _mm_srai_epi32(acc3, kFixBits));
      _mm_storeu_si128(reinterpret_cast<__m128i*>(out + x), _mm_packus_epi16(lo16, hi16));
    }
#endif
    for (; x < n; ++x) {
      int32_t acc = kFixOne >> 1;
      for (int k = 0; k < taps; ++k) acc += base[static_cast<size_t>(k) * src_stride + x] * w[k];
      const int32_t v = acc >> kFixBits;
      out[x] = static_cast<uint8_t>(v < 0 ? 0 : (v > 255 ? 255 : v));
    }
  }
}

// Horizontal pass: each row is split into channel planes so that every output sample is a
// dot product of contiguous bytes with contiguous weights (8 taps per SSE2 multiply-add).
void HorizontalPass8Any(int channels, const uint8_t* src, size_t src_stride, const Taps& t,
                        int out_w, uint8_t* dst, size_t dst_stride, int rows) {
  const int taps8 = (t.taps + 7) & ~7;
  std::vector<int16_t> w(static_cast<size_t>(out_w) * taps8, 0);
  for (int x = 0; x < out_w; ++x)
    std::copy_n(&t.fixed[static_cast<size_t>(x) * t.taps], t.taps,
                &w[static_cast<size_t>(x) * taps8]);
  const int in_w = t.start.empty() ? 0 : t.start.back() + t.taps;  // samples read per plane
  int max_in = in_w;
  for (int x = 0; x < out_w; ++x) max_in = std::max(max_in, t.start[x] + taps8);
  std::vector<uint8_t> plane(static_cast<size_t>(max_in) + 16, 0);
  for (int y = 0; y < rows; ++y) {
    const uint8_t* row = src + static_cast<size_t>(y) * src_stride;
    uint8_t* out = dst + static_cast<size_t>(y) * dst_stride;
    for (int c = 0; c < channels; ++c) {
      for (int i = 0; i < in_w; ++i) plane[i] = row[static_cast<size_t>(i) * channels + c];
      const int16_t* wx = w.data();
      for (int x = 0; x < out_w; ++x, wx += taps8) {
        const uint8_t* p = plane.data() + t.start[x];
#if defined(__SSE2__)
        __m128i sum = _mm_setzero_si128();
        const __m128i zero = _mm_setzero_si128();
        for (int k = 0; k < taps8; k += 8) {
          const __m128i px =
              _mm_unpacklo_epi8(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(p + k)), zero);
          sum = _mm_add_epi32(
              sum, _mm_madd_epi16(px, _mm_loadu_si128(reinterpret_cast<const __m128i*>(wx + k))));
        }
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(1, 0, 3, 2)));
        sum = _mm_add_epi32(sum, _mm_shuffle_epi32(sum, _MM_SHUFFLE(2, 3, 0, 1)));
        const int32_t acc = _mm_cvtsi128_si32(sum);
#else
        int32_t acc = 0;
        for (int k = 0; k < taps8; ++k) acc += p[k] * wx[k];
#endif
        out[static_cast<size_t>(x) * channels + c] = ClampFix(acc);
      }
    }
  }
}

template <typename T>
T StoreSample(float v) {
  if constexpr (std::is_same_v<T, float>) {
    return v;
  } else {
    const float r = std::nearbyint(v);
    return static_cast<T>(r < 0 ? 0 : (r > 65535 ? 65535 : r));
  }
}

template <typename In, typename Out>
void VerticalPassF(const In* src, size_t src_stride, int n, const Taps& t, Out* dst,
                   size_t dst_stride, int out_rows) {
  std::vector<float> acc(n);
  for (int y = 0; y < out_rows; ++y) {
    const float* w = &t.real[static_cast<size_t>(y) * t.taps];
    std::fill(acc.begin(), acc.end(), 0.f);
    for (int k = 0; k < t.taps; ++k) {
      const In* row = src + static_cast<size_t>(t.start[y] + k) * src_stride;
      for (int x = 0; x < n; ++x) acc[x] += row[x] * w[k];
    }
    Out* out = dst + static_cast<size_t>(y) * dst_stride;
    for (int x = 0; x < n; ++x) out[x] = StoreSample<Out>(acc[x]);
  }
}

template <typename In, typename Out>
void HorizontalPassF(int channels, const In* src, size_t src_stride, const Taps& t, int out_w,
                     Out* dst, size_t dst_stride, int rows) {
  for (int y = 0; y < rows; ++y) {
    const In* row = src + static_cast<size_t>(y) * src_stride;
    Out* out = dst + static_cast<size_t>(y) * dst_stride;
    for (int x = 0; x < out_w; ++x) {
      const float* w = &t.real[static_cast<size_t>(x) * t.taps];
      const In* p = row + static_cast<size_t>(t.start[x]) * channels;
      for (int c = 0; c < channels; ++c) {
        float acc = 0;
        for (int k = 0; k < t.taps; ++k) acc += p[k * channels + c] * w[k];
        out[x * channels + c] = StoreSample<Out>(acc);
      }
    }
  }
}

// Averages kx * ky blocks; the last block of a row or column may be partial.
template <typename T>
void BoxShrink(const T* src, int sw, int sh, size_t src_stride, int channels, int kx, int ky,
               std::vector<T>& dst, int& dw, int& dh) {
  dw = (sw + kx - 1) / kx;
  dh = (sh + ky - 1) / ky;
  dst.assign(static_cast<size_t>(dw) * dh * channels, 0);
  std::vector<uint32_t> col(static_cast<size_t>(sw) * channels);
  for (int oy = 0; oy < dh; ++oy) {
    const int y0 = oy * ky, y1 = std::min(sh, y0 + ky);
    std::fill(col.begin(), col.end(), 0u);
    // Restrict: 8-bit samples may alias anything, which would keep the sums from vectorising.
    uint32_t* __restrict sums = col.data();
    const size_t n = col.size();
    for (int y = y0; y < y1; ++y) {
      const T* __restrict row = src + static_cast<size_t>(y) * src_stride;
      for (size_t i = 0; i < n; ++i) sums[i] += row[i];
    }
    T* out = &dst[static_cast<size_t>(oy) * dw * channels];
    for (int ox = 0; ox < dw; ++ox) {
      const int x0 = ox * kx, x1 = std::min(sw, x0 + kx);
      const uint64_t count = static_cast<uint64_t>(x1 - x0) * (y1 - y0);
      for (int c = 0; c < channels; ++c) {
        uint64_t s = 0;
        for (int x = x0; x < x1; ++x) s += col[static_cast<size_t>(x) * channels + c];
        out[ox * channels + c] = static_cast<T>((s + count / 2) / count);
      }
    }
  }
}

int PreShrinkFactor(int in, int out) {
  const double factor = static_cast<double>(in) / out;
  return factor > 3.0 ? static_cast<int>(factor / 2.0) : 1;
}

template <typename T>
void ResampleNearest(const T* src, size_t src_stride, int channels, T* dst, int dw, int dh,
                     size_t dst_stride, int sw, int sh) {
  std::vector<int> xs(dw);
  for (int x = 0; x < dw; ++x) xs[x] = std::min(sw - 1, static_cast<int>((x + 0.5) * sw / dw));
  for (int y = 0; y < dh; ++y) {
    const int sy = std::min(sh - 1, static_cast<int>((y + 0.5) * sh / dh));
    const T* s = src + static_cast<size_t>(sy) * src_stride;
    T* d = dst + static_cast<size_t>(y) * dst_stride;
    for (int x = 0; x < dw; ++x)
      for (int c = 0; c < channels; ++c) d[x * channels + c] = s[xs[x] * channels + c];
  }
}

}  // namespace

void ResamplePlane8(const uint8_t* src, int sw, int sh, size_t src_stride, int channels,
                    uint8_t* dst, int dw, int dh, size_t dst_stride, TResampleFilter filter) {
  if (filter == TResampleFilter::rfNearest) {
    ResampleNearest<uint8_t>(src, src_stride, channels, dst, dw, dh, dst_stride, sw, sh);
    return;
  }
  const int kx = PreShrinkFactor(sw, dw), ky = PreShrinkFactor(sh, dh);
  if (kx > 1 || ky > 1) {
    std::vector<uint8_t> small;
    int smw = 0, smh = 0;
    BoxShrink<uint8_t>(src, sw, sh, src_stride, channels, kx, ky, small, smw, smh);
    ResamplePlane8(small.data(), smw, smh, static_cast<size_t>(smw) * channels, channels, dst, dw,
                   dh, dst_stride, filter);
    return;
  }
  const size_t row_in = static_cast<size_t>(sw) * channels;
  if (sw == dw && sh == dh) {
    for (int y = 0; y < sh; ++y) std::memcpy(dst + y * dst_stride, src + y * src_stride, row_in);
    return;
  }
  if (sw == dw) {
    const Taps tv = ComputeTaps(sh, dh, filter);
    VerticalPass8(src, src_stride, static_cast<int>(row_in), tv, dst, dst_stride, dh);
    return;
  }
  const Taps th = ComputeTaps(sw, dw, filter);
  if (sh == dh) {
    HorizontalPass8Any(channels, src, src_stride, th, dw, dst, dst_stride, sh);
    return;
  }
  const Taps tv = ComputeTaps(sh, dh, filter);
  // The horizontal pass uses narrower vectors than the vertical one, so it is weighted dearer.
  const double c = channels;
  const double cost_v_first = double(dh) * sw * c * tv.taps + 1.5 * dh * dw * c * th.taps;
  const double cost_h_first = 1.5 * sh * dw * c * th.taps + double(dh) * dw * c * tv.taps;
  if (cost_v_first <= cost_h_first) {
    std::vector<uint8_t> mid(row_in * dh);
    VerticalPass8(src, src_stride, static_cast<int>(row_in), tv, mid.data(), row_in, dh);
    HorizontalPass8Any(channels, mid.data(), row_in, th, dw, dst, dst_stride, dh);
  } else {
    const size_t row_mid = static_cast<size_t>(dw) * channels;
    std::vector<uint8_t> mid(row_mid * sh);
    HorizontalPass8Any(channels, src, src_stride, th, dw, mid.data(), row_mid, sh);
    VerticalPass8(mid.data(), row_mid, static_cast<int>(row_mid), tv, dst, dst_stride, dh);
  }
}

void ResamplePlane16(const uint16_t* src, int sw, int sh, size_t src_stride, int channels,
                     uint16_t* dst, int dw, int dh, size_t dst_stride, TResampleFilter filter) {
  const size_t ss = src_stride / 2, ds = dst_stride / 2;  // in samples
  if (filter == TResampleFilter::rfNearest) {
    ResampleNearest<uint16_t>(src, ss, channels, dst, dw, dh, ds, sw, sh);
    return;
  }
  const int kx = PreShrinkFactor(sw, dw), ky = PreShrinkFactor(sh, dh);
  if (kx > 1 || ky > 1) {
    std::vector<uint16_t> small;
    int smw = 0, smh = 0;
    BoxShrink<uint16_t>(src, sw, sh, ss, channels, kx, ky, small, smw, smh);
    ResamplePlane16(small.data(), smw, smh, static_cast<size_t>(smw) * channels * 2, channels, dst,
                    dw, dh, dst_stride, filter);
    return;
  }
  const Taps th = ComputeTaps(sw, dw, filter);
  const Taps tv = ComputeTaps(sh, dh, filter);
  const size_t row_mid = static_cast<size_t>(dw) * channels;
  std::vector<float> mid(row_mid * sh);
  HorizontalPassF<uint16_t, float>(channels, src, ss, th, dw, mid.data(), row_mid, sh);
  VerticalPassF<float, uint16_t>(mid.data(), row_mid, static_cast<int>(row_mid), tv, dst, ds, dh);
}

void ConvolveSeparable8(const uint8_t* src, int w, int h, size_t src_stride, int channels,
                        uint8_t* dst, size_t dst_stride, const std::vector<double>& kernel) {
  // Same-size "resampling" whose taps are the kernel, edge samples repeated.
  auto taps_for = [&](int n) {
    const int half = static_cast<int>(kernel.size() / 2);
    const int taps = std::min<int>(static_cast<int>(kernel.size()), n);
    Taps t;
    t.taps = taps;
    t.start.resize(n);
    t.fixed.assign(static_cast<size_t>(n) * taps, 0);
    t.real.assign(static_cast<size_t>(n) * taps, 0.f);
    std::vector<double> w(taps);
    for (int i = 0; i < n; ++i) {
      const int start = std::clamp(i - half, 0, n - taps);
      std::fill(w.begin(), w.end(), 0.0);
      for (int k = 0; k < static_cast<int>(kernel.size()); ++k)
        w[std::clamp(i - half + k, 0, n - 1) - start] += kernel[k];
      t.start[i] = start;
      int sum = 0, biggest = 0;
      for (int k = 0; k < taps; ++k) {
        t.fixed[static_cast<size_t>(i) * taps + k] =
            static_cast<int16_t>(std::lround(w[k] * kFixOne));
        t.real[static_cast<size_t>(i) * taps + k] = static_cast<float>(w[k]);
        sum += t.fixed[static_cast<size_t>(i) * taps + k];
        if (std::fabs(w[k]) > std::fabs(w[biggest])) biggest = k;
      }
      t.fixed[static_cast<size_t>(i) * taps + biggest] += static_cast<int16_t>(kFixOne - sum);
    }
    return t;
  };
  const Taps tv = taps_for(h), th = taps_for(w);
  const size_t row = static_cast<size_t>(w) * channels;
  std::vector<uint8_t> mid(row * h);
  VerticalPass8(src, src_stride, static_cast<int>(row), tv, mid.data(), row, h);
  HorizontalPass8Any(channels, mid.data(), row, th, w, dst, dst_stride, h);
}

namespace {

// Multiplies the colour samples by alpha (`multiply`), or divides them back; fully opaque
// pixels, and when dividing fully clear ones, are left alone.
void ScaleByAlpha(TIEBitmap& b, int ch, bool deep, bool multiply) {
  for (int y = 0; y < b.Height(); ++y) {
    const uint8_t* a = b.AlphaScanline(y);
    for (int x = 0; x < b.Width(); ++x) {
      const uint32_t al = a[x];
      if (al == 255 || (!multiply && al == 0)) continue;
      for (int c = 0; c < ch; ++c) {
        if (deep) {
          uint16_t& v = reinterpret_cast<uint16_t*>(b.Scanline(y))[x * ch + c];
          v = static_cast<uint16_t>(multiply ? (v * al + 127) / 255
                                             : std::min<uint32_t>(65535, (v * 255 + al / 2) / al));
        } else {
          uint8_t& v = b.Scanline(y)[x * ch + c];
          v = static_cast<uint8_t>(multiply ? (v * al + 127) / 255
                                            : std::min<uint32_t>(255, (v * 255 + al / 2) / al));
        }
      }
    }
  }
}

// Colours filtered premultiplied by alpha, so that the colour hidden under transparent pixels
// does not bleed into the visible edge. `dst` is allocated, its alpha plane already resampled.
void ResamplePremultiplied(const TIEBitmap& src, TIEBitmap& dst, bool deep,
                           TResampleFilter filter) {
  const int sw = src.Width(), sh = src.Height();
  const int new_width = dst.Width(), new_height = dst.Height();
  TIEBitmap pre;
  pre.Assign(src);
  const int ch = deep ? src.BitsPerPixel() / 16 : src.BitsPerPixel() / 8;
  ScaleByAlpha(pre, ch, deep, true);
  if (deep)
    ResamplePlane16(reinterpret_cast<const uint16_t*>(pre.Scanline(0)), sw, sh, pre.RowLen(), ch,
                    reinterpret_cast<uint16_t*>(dst.Scanline(0)), new_width, new_height,
                    dst.RowLen(), filter);
  else
    ResamplePlane8(pre.Scanline(0), sw, sh, pre.RowLen(), ch, dst.Scanline(0), new_width,
                   new_height, dst.RowLen(), filter);
  ScaleByAlpha(dst, ch, deep, false);
}

// 1-bit pictures by the nearest filter: pixels picked, no grey between.
void ResampleBitsNearest(const TIEBitmap& src, TIEBitmap& dst) {
  const int sw = src.Width(), sh = src.Height();
  const int new_width = dst.Width(), new_height = dst.Height();
  for (int y = 0; y < new_height; ++y) {
    const int sy = std::min(sh - 1, static_cast<int>((y + 0.5) * sh / new_height));
    const uint8_t* s = src.Scanline(sy);
    uint8_t* d = dst.Scanline(y);
    for (int x = 0; x < new_width; ++x) {
      const int sx = std::min(sw - 1, static_cast<int>((x + 0.5) * sw / new_width));
      if ((s[sx >> 3] >> (7 - (sx & 7))) & 1) d[x >> 3] |= 0x80 >> (x & 7);
    }
  }
}

// ie1g through grey, ie8p through RGB; the result goes back to the original layout (grey
// thresholded, colours mapped to the nearest palette entry).
pictavo::Status ResampleThroughWide(const TIEBitmap& src, TIEBitmap& dst, TResampleFilter filter) {
  const TIEPixelFormat fmt = src.PixelFormat();
  const int sw = src.Width(), sh = src.Height();
  const int new_width = dst.Width(), new_height = dst.Height();
  TIEBitmap wide;
  wide.Assign(src);
  const TIEPixelFormat mid_fmt =
      fmt == TIEPixelFormat::ie1g ? TIEPixelFormat::ie8g : TIEPixelFormat::ie24RGB;
  if (auto st = wide.ConvertTo(mid_fmt); !st.ok()) return st;
  TIEBitmap scaled = src.WorkBitmap();
  if (auto st = scaled.Allocate(new_width, new_height, mid_fmt); !st.ok()) return st;
  const int ch = mid_fmt == TIEPixelFormat::ie8g ? 1 : 3;
  ResamplePlane8(wide.Scanline(0), sw, sh, wide.RowLen(), ch, scaled.Scanline(0), new_width,
                 new_height, scaled.RowLen(), filter);
  if (fmt == TIEPixelFormat::ie1g) {
    for (int y = 0; y < new_height; ++y) {
      const uint8_t* s = scaled.Scanline(y);
      uint8_t* d = dst.Scanline(y);
      for (int x = 0; x < new_width; ++x)
        if (s[x] >= 128) d[x >> 3] |= 0x80 >> (x & 7);
    }
  } else {
    const auto& pal = dst.Palette();
    std::unordered_map<uint32_t, uint8_t> cache;
    for (int y = 0; y < new_height; ++y) {
      const uint8_t* s = scaled.Scanline(y);
      uint8_t* d = dst.Scanline(y);
      for (int x = 0; x < new_width; ++x, s += 3) {
        const uint32_t key = s[0] | (s[1] << 8) | (s[2] << 16);
        auto it = cache.find(key);
        if (it == cache.end())
          it = cache
                   .emplace(key, static_cast<uint8_t>(
                                     rows::NearestPaletteIndex(pal, TRGB{s[0], s[1], s[2]})))
                   .first;
        d[x] = it->second;
      }
    }
  }
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status ResampleBitmap(const TIEBitmap& src, TIEBitmap& dst, int new_width, int new_height,
                               TResampleFilter filter) {
  if (src.IsEmpty()) return pictavo::Status::Error("cannot resample an empty bitmap");
  if (new_width <= 0 || new_height <= 0)
    return pictavo::Status::Error("resample size must be positive");
  const TIEPixelFormat fmt = src.PixelFormat();
  if (auto st = dst.Allocate(new_width, new_height, fmt); !st.ok()) return st;
  dst.Palette() = src.Palette();
  const int sw = src.Width(), sh = src.Height();

  if (src.HasAlphaChannel()) {
    dst.AddAlphaChannel(255);
    ResamplePlane8(src.AlphaScanline(0), sw, sh, sw, 1, dst.AlphaScanline(0), new_width, new_height,
                   new_width, filter);
  }

  const bool deep = fmt == TIEPixelFormat::ie16g || fmt == TIEPixelFormat::ie48RGB;
  const bool direct = deep || fmt == TIEPixelFormat::ie8g || fmt == TIEPixelFormat::ie24RGB ||
                      fmt == TIEPixelFormat::ieCMYK;
  if (direct && filter != TResampleFilter::rfNearest && src.HasAlphaChannel() &&
      !std::all_of(src.AlphaScanline(0), src.AlphaScanline(0) + static_cast<size_t>(sw) * sh,
                   [](uint8_t a) { return a == 255; })) {
    ResamplePremultiplied(src, dst, deep, filter);
    return pictavo::Status::OK();
  }

  switch (fmt) {
    case TIEPixelFormat::ie8g:
    case TIEPixelFormat::ie24RGB:
    case TIEPixelFormat::ieCMYK:
      ResamplePlane8(src.Scanline(0), sw, sh, src.RowLen(), src.BitsPerPixel() / 8, dst.Scanline(0),
                     new_width, new_height, dst.RowLen(), filter);
      return pictavo::Status::OK();
    case TIEPixelFormat::ie16g:
    case TIEPixelFormat::ie48RGB:
      ResamplePlane16(reinterpret_cast<const uint16_t*>(src.Scanline(0)), sw, sh, src.RowLen(),
                      src.BitsPerPixel() / 16, reinterpret_cast<uint16_t*>(dst.Scanline(0)),
                      new_width, new_height, dst.RowLen(), filter);
      return pictavo::Status::OK();
    case TIEPixelFormat::ie8p:
      if (filter == TResampleFilter::rfNearest) {
        ResamplePlane8(src.Scanline(0), sw, sh, src.RowLen(), 1, dst.Scanline(0), new_width,
                       new_height, dst.RowLen(), filter);
        return pictavo::Status::OK();
      }
      break;
    case TIEPixelFormat::ie1g:
    case TIEPixelFormat::ieNull:
      break;
  }

  if (fmt == TIEPixelFormat::ie1g && filter == TResampleFilter::rfNearest) {
    ResampleBitsNearest(src, dst);
    return pictavo::Status::OK();
  }
  if (fmt == TIEPixelFormat::ieNull) return pictavo::Status::Error("bitmap has no layout");
  return ResampleThroughWide(src, dst, filter);
}

}  // namespace pictavo::imaging
