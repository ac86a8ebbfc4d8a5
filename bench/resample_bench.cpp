// Times TIEBitmap::Resample (Lanczos-3, one core) on a 12 MP RGB image reduced to 1600 px wide,
// and writes the same image as a binary PPM so that other programs can be timed on it.
// Usage: resample_bench [out.ppm] [width height target_width]
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <random>

#include "imaging/ie_bitmap.h"

using pictavo::imaging::TIEBitmap;
using pictavo::imaging::TIEPixelFormat;
using pictavo::imaging::TResampleFilter;

int main(int argc, char** argv) {
  const int w = argc > 4 ? std::atoi(argv[2]) : 4000;
  const int h = argc > 4 ? std::atoi(argv[3]) : 3000;
  const int tw = argc > 4 ? std::atoi(argv[4]) : 1600;
  const int th = static_cast<int>(static_cast<long long>(h) * tw / w);
  TIEBitmap src;
  if (!src.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  // Photo-like content: smooth gradients plus fine noise.
  std::mt19937 rng(7);
  for (int y = 0; y < h; ++y) {
    uint8_t* p = src.Scanline(y);
    for (int x = 0; x < w; ++x, p += 3) {
      const int n = static_cast<int>(rng() % 24) - 12;
      p[0] = static_cast<uint8_t>(std::clamp(x * 255 / w + n, 0, 255));
      p[1] = static_cast<uint8_t>(std::clamp(y * 255 / h + n, 0, 255));
      p[2] = static_cast<uint8_t>(std::clamp((x + y) * 255 / (w + h) - n, 0, 255));
    }
  }
  if (argc > 1) {
    FILE* f = std::fopen(argv[1], "wb");
    if (!f) return 1;
    std::fprintf(f, "P6\n%d %d\n255\n", w, h);
    for (int y = 0; y < h; ++y) std::fwrite(src.Scanline(y), 1, src.RowLen(), f);
    std::fclose(f);
  }
  double best = 1e9;
  for (int i = 0; i < 7; ++i) {
    TIEBitmap b = src;
    const auto t0 = std::chrono::steady_clock::now();
    if (!b.Resample(tw, th, TResampleFilter::rfLanczos3).ok()) return 1;
    const double ms =
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    best = std::min(best, ms);
  }
  std::printf("Resample Lanczos-3 %dx%d -> %dx%d: best of 7 %.1f ms\n", w, h, tw, th, best);
  return 0;
}
