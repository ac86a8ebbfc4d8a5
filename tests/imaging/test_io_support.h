// Shared helpers of the file I/O tests: synthetic pictures, pixel comparison, running
// ImageMagick as the independent decoder.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"

namespace pictavo::imaging::iotest {

// A picture with gradients and hard edges in every channel, so lossy codecs and wrong channel
// orders both show.
inline TIEBitmap Pattern(int w, int h, TIEPixelFormat fmt, bool alpha = false) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      b.SetPixels_ie24RGB(x, y,
                          TRGB{uint8_t(x * 255 / (w - 1)), uint8_t(y * 255 / (h - 1)),
                               uint8_t(((x / 8 + y / 8) % 2) ? 220 : 30)});
  if (fmt != TIEPixelFormat::ie24RGB) EXPECT_TRUE(b.ConvertTo(fmt).ok());
  if (alpha) {
    b.AddAlphaChannel();
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) b.SetAlpha(x, y, uint8_t(x < w / 2 ? 255 : (y * 255 / (h - 1))));
  }
  return b;
}

struct Diff {
  double mean = 0;
  int max = 0;
};

inline Diff Compare(const TIEBitmap& a, const TIEBitmap& b) {
  Diff d;
  if (a.Width() != b.Width() || a.Height() != b.Height()) return Diff{1e9, 1 << 20};
  double sum = 0;
  for (int y = 0; y < a.Height(); ++y)
    for (int x = 0; x < a.Width(); ++x) {
      const TRGB p = a.GetPixels(x, y), q = b.GetPixels(x, y);
      const int e[3] = {std::abs(p.r - q.r), std::abs(p.g - q.g), std::abs(p.b - q.b)};
      for (int v : e) sum += v, d.max = std::max(d.max, v);
    }
  d.mean = sum / (3.0 * a.Width() * a.Height());
  return d;
}

inline std::vector<uint8_t> ReadAll(const std::string& path) {
  std::ifstream f(path, std::ios::binary);
  return std::vector<uint8_t>((std::istreambuf_iterator<char>(f)),
                              std::istreambuf_iterator<char>());
}

inline void WriteAll(const std::string& path, const std::vector<uint8_t>& bytes) {
  std::ofstream f(path, std::ios::binary);
  f.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
}

inline bool HaveProgram(const char* name) {
  return std::system((std::string("command -v ") + name + " >/dev/null 2>&1").c_str()) == 0;
}

// Output of a shell command (tests only; names are test-controlled).
inline std::string Capture(const std::string& cmd) {
  std::string out;
  if (FILE* p = popen(cmd.c_str(), "r")) {
    char buf[512];
    while (fgets(buf, sizeof buf, p)) out += buf;
    pclose(p);
  }
  return out;
}

}  // namespace pictavo::imaging::iotest

#define PICTAVO_REQUIRE_PROGRAM(name, package)        \
  if (!::pictavo::imaging::iotest::HaveProgram(name)) \
  GTEST_SKIP() << name << " is missing (Debian package " << package << ")"
