#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/resample.h"
#include "test_bitmap_helpers.h"
#include "tests/support/test_paths.h"

namespace pictavo::imaging {
namespace {

using testing::LayoutName;

constexpr TResampleFilter kFilters[] = {TResampleFilter::rfNearest, TResampleFilter::rfBilinear,
                                        TResampleFilter::rfBicubic, TResampleFilter::rfLanczos3};

TEST(Resample, ConstantImageStaysConstantInEveryLayoutAndFilter) {
  const TIEPixelFormat layouts[] = {TIEPixelFormat::ie8g,    TIEPixelFormat::ie16g,
                                    TIEPixelFormat::ie24RGB, TIEPixelFormat::ie48RGB,
                                    TIEPixelFormat::ieCMYK,  TIEPixelFormat::ie8p};
  const std::pair<int, int> sizes[] = {{37, 23}, {200, 150}, {7, 5}, {90, 13}};
  for (TIEPixelFormat f : layouts)
    for (TResampleFilter filter : kFilters)
      for (auto [w, h] : sizes) {
        TIEBitmap b;
        ASSERT_TRUE(b.Allocate(90, 60, f).ok());
        if (f == TIEPixelFormat::ie8p) b.Palette() = {TRGB{1, 2, 3}, TRGB{90, 140, 30}};
        b.Fill(0x1E8C5A);  // R 90, G 140, B 30
        const TRGB before = b.GetPixels(0, 0);
        ASSERT_TRUE(b.Resample(w, h, filter).ok());
        ASSERT_EQ(b.PixelFormat(), f);
        ASSERT_EQ(b.Width(), w);
        for (int y = 0; y < h; ++y)
          for (int x = 0; x < w; ++x)
            ASSERT_EQ(b.GetPixels(x, y), before)
                << LayoutName(f) << " filter " << int(filter) << " " << w << "x" << h;
      }
}

TEST(Resample, CheckerboardAveragesWhenReduced) {
  for (TResampleFilter filter :
       {TResampleFilter::rfBilinear, TResampleFilter::rfBicubic, TResampleFilter::rfLanczos3}) {
    // By 2 (plain filter) and by 8 (box pre-shrink, then the filter).
    for (int target : {64, 16}) {
      TIEBitmap b = testing::Checkerboard(128, 128, 1, TRGB{0, 0, 0}, TRGB{255, 255, 255});
      ASSERT_TRUE(b.Resample(target, target, filter).ok());
      for (int y = 2; y < target - 2; ++y)
        for (int x = 2; x < target - 2; ++x)
          ASSERT_NEAR(b.GetPixels(x, y).g, 127.5, 3.0)
              << "filter " << int(filter) << " to " << target << " at " << x << "," << y;
    }
  }
  // A coarse checkerboard keeps its cells when halved.
  TIEBitmap coarse = testing::Checkerboard(64, 64, 16, TRGB{0, 0, 0}, TRGB{255, 255, 255});
  ASSERT_TRUE(coarse.Resample(32, 32, TResampleFilter::rfLanczos3).ok());
  EXPECT_EQ(coarse.GetPixels(3, 3).r, 0);
  EXPECT_EQ(coarse.GetPixels(12, 3).r, 255);
}

TEST(Resample, SmoothRampIsReproducedClosely) {
  // A linear ramp is reproduced exactly by every interpolating filter away from the edges.
  for (TResampleFilter filter :
       {TResampleFilter::rfBilinear, TResampleFilter::rfBicubic, TResampleFilter::rfLanczos3}) {
    for (auto [sw, dw] :
         {std::pair{256, 100}, std::pair{256, 128}, std::pair{64, 203}, std::pair{1000, 90}}) {
      TIEBitmap b;
      ASSERT_TRUE(b.Allocate(sw, 4, TIEPixelFormat::ie8g).ok());
      auto ramp = [&](double x) { return 20.0 + 200.0 * x / (sw - 1); };
      for (int y = 0; y < 4; ++y)
        for (int x = 0; x < sw; ++x) b.Scanline(y)[x] = static_cast<uint8_t>(std::lround(ramp(x)));
      ASSERT_TRUE(b.Resample(dw, 4, filter).ok());
      const double scale = static_cast<double>(sw) / dw;
      const int margin = static_cast<int>(std::ceil(4 / std::min(scale, 1.0) * 1.0)) + 3;
      for (int x = margin; x < dw - margin; ++x) {
        const double expect = ramp((x + 0.5) * scale - 0.5);
        ASSERT_NEAR(b.GetPixels_ie8(x, 2), expect, 1.0)
            << "filter " << int(filter) << " " << sw << "->" << dw << " at " << x;
      }
    }
  }
  // 16-bit samples keep their precision (values between multiples of 257).
  TIEBitmap deep;
  ASSERT_TRUE(deep.Allocate(300, 2, TIEPixelFormat::ie16g).ok());
  for (int y = 0; y < 2; ++y)
    for (int x = 0; x < 300; ++x) reinterpret_cast<uint16_t*>(deep.Scanline(y))[x] = 1000 + 7 * x;
  ASSERT_TRUE(deep.Resample(150, 2, TResampleFilter::rfLanczos3).ok());
  for (int x = 10; x < 140; ++x)
    ASSERT_NEAR(reinterpret_cast<uint16_t*>(deep.Scanline(1))[x], 1000 + 7 * (2 * x + 0.5), 2.0);
}

TEST(Resample, NearestCopiesSamplesAndKeepsPackedLayouts) {
  TIEBitmap bw;
  ASSERT_TRUE(bw.Allocate(4, 2, TIEPixelFormat::ie1g).ok());
  bw.SetPixel(1, 0, TRGB{255, 255, 255});
  bw.SetPixel(2, 1, TRGB{255, 255, 255});
  ASSERT_TRUE(bw.Resample(8, 4, TResampleFilter::rfNearest).ok());
  EXPECT_EQ(bw.PixelFormat(), TIEPixelFormat::ie1g);
  EXPECT_EQ(bw.RowLen(), 1u);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 8; ++x) {
      const bool white = (y < 2 && x / 2 == 1) || (y >= 2 && x / 2 == 2);
      ASSERT_EQ(bw.GetPixels_ie1g(x, y), white) << x << "," << y;
    }

  TIEBitmap pal;
  ASSERT_TRUE(pal.Allocate(3, 1, TIEPixelFormat::ie8p).ok());
  pal.Palette() = {TRGB{0, 0, 0}, TRGB{255, 0, 0}, TRGB{0, 0, 255}};
  pal.Scanline(0)[0] = 2;
  pal.Scanline(0)[1] = 1;
  ASSERT_TRUE(pal.Resample(6, 2, TResampleFilter::rfNearest).ok());
  EXPECT_EQ(pal.GetPixels_ie8(1, 1), 2);
  EXPECT_EQ(pal.GetPixels_ie8(2, 0), 1);
  EXPECT_EQ(pal.GetPixels_ie8(5, 0), 0);

  // Filtered 1-bit output stays 1-bit: a white half stays white.
  TIEBitmap half;
  ASSERT_TRUE(half.Allocate(40, 40, TIEPixelFormat::ie1g).ok());
  half.FillRect(20, 0, 20, 40, 0xFFFFFF);
  ASSERT_TRUE(half.Resample(10, 10, TResampleFilter::rfLanczos3).ok());
  EXPECT_EQ(half.PixelFormat(), TIEPixelFormat::ie1g);
  EXPECT_FALSE(half.GetPixels_ie1g(2, 5));
  EXPECT_TRUE(half.GetPixels_ie1g(8, 5));
}

TEST(Resample, AlphaPlaneIsResampledWithThePixels) {
  TIEBitmap b = testing::Make24(40, 20);
  b.Fill(0x00FF00);
  b.AddAlphaChannel(255);
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 20; ++x) b.SetAlpha(x, y, 0);
  ASSERT_TRUE(b.Resample(20, 10, TResampleFilter::rfBicubic).ok());
  ASSERT_TRUE(b.HasAlphaChannel());
  EXPECT_EQ(b.GetAlpha(2, 5), 0);
  EXPECT_EQ(b.GetAlpha(17, 5), 255);
  EXPECT_GT(b.GetAlpha(10, 5), 0);
  EXPECT_LT(b.GetAlpha(9, 5), 255);
  // The colour under transparent pixels does not darken the visible edge.
  EXPECT_EQ(b.GetPixels(10, 5), (TRGB{0, 255, 0}));
  TIEBitmap red = testing::Make24(40, 4);
  red.FillRect(20, 0, 20, 4, 0x0000FF);  // left half black but fully transparent
  red.AddAlphaChannel(255);
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 20; ++x) red.SetAlpha(x, y, 0);
  ASSERT_TRUE(red.Resample(10, 1, TResampleFilter::rfLanczos3).ok());
  for (int x = 0; x < 10; ++x) {
    if (red.GetAlpha(x, 0) < 8) continue;  // too transparent to carry a colour
    EXPECT_LE(testing::MaxChannelDiff(red.GetPixels(x, 0), TRGB{255, 0, 0}), 8) << x;
  }
  EXPECT_FALSE(b.Resample(0, 10).ok());
  EXPECT_EQ(b.Width(), 20);
}

bool WritePpm(const TIEBitmap& b, const std::string& path) {
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return false;
  std::fprintf(f, "P6\n%d %d\n255\n", b.Width(), b.Height());
  for (int y = 0; y < b.Height(); ++y) std::fwrite(b.Scanline(y), 1, b.RowLen(), f);
  return std::fclose(f) == 0;
}

// Binary PPM with 8-bit samples; header comments (as vips writes them) are skipped.
bool ReadPpm(const std::string& path, TIEBitmap& b) {
  FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return false;
  auto number = [&]() {
    int c = std::fgetc(f);
    while (c == '#' || std::isspace(c)) {
      if (c == '#')
        while (c != '\n' && c != EOF) c = std::fgetc(f);
      c = std::fgetc(f);
    }
    int v = 0;
    for (; std::isdigit(c); c = std::fgetc(f)) v = v * 10 + (c - '0');
    return v;  // the single whitespace after the last header number is consumed here
  };
  bool ok = std::fgetc(f) == 'P' && std::fgetc(f) == '6';
  const int w = ok ? number() : 0, h = ok ? number() : 0, maxval = ok ? number() : 0;
  ok = ok && maxval == 255 && b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok();
  for (int y = 0; ok && y < h; ++y) ok = std::fread(b.Scanline(y), 1, b.RowLen(), f) == b.RowLen();
  std::fclose(f);
  return ok;
}

bool HasProgram(const std::string& name) {
  return std::system(("command -v " + name + " > /dev/null 2>&1").c_str()) == 0;
}

TEST(Resample, LanczosAgreesWithIndependentImplementations) {
  // Photo-like content: gradients, fine noise and a sharp-edged block.
  TIEBitmap src = testing::Make24(400, 300);
  std::mt19937 rng(5);
  for (int y = 0; y < 300; ++y)
    for (int x = 0; x < 400; ++x) {
      const int n = static_cast<int>(rng() % 40) - 20;
      src.SetPixels_ie24RGB(x, y,
                            TRGB{static_cast<uint8_t>(std::clamp(x * 255 / 400 + n, 0, 255)),
                                 static_cast<uint8_t>(std::clamp(y * 255 / 300 - n, 0, 255)),
                                 static_cast<uint8_t>((x / 37 + y / 23) % 2 ? 230 : 20)});
    }
  ::pictavo::testing::TempDir dir;
  const std::string in = dir.file("in.ppm");
  ASSERT_TRUE(WritePpm(src, in));
  TIEBitmap ours = src;
  ASSERT_TRUE(ours.Resample(160, 120, TResampleFilter::rfLanczos3).ok());

  // ImageMagick keeps the overshoot of the first pass unclamped, so next to hard edges it may
  // differ by several levels; elsewhere all three agree to a level or two.
  struct Reference {
    const char* program;
    const char* package;
    std::string command;
    double mean_limit;
    int max_limit;
    size_t off_percent;  // share of samples allowed to differ by more than 2
  };
  const std::string out = dir.file("out.ppm");
  const Reference refs[] = {
      {"vips", "libvips-tools", "vips resize \"" + in + "\" \"" + out + "\" 0.4", 0.3, 4, 2},
      {"convert", "imagemagick",
       "convert \"" + in + "\" -filter Lanczos -resize 160x120! -depth 8 \"" + out + "\"", 1.0, 12,
       2}};
  int checked = 0;
  for (const Reference& ref : refs) {
    if (!HasProgram(ref.program)) continue;
    std::remove(out.c_str());
    ASSERT_EQ(std::system((ref.command + " > /dev/null 2>&1").c_str()), 0) << ref.command;
    TIEBitmap theirs;
    ASSERT_TRUE(ReadPpm(out, theirs)) << ref.program;
    ASSERT_EQ(theirs.Width(), 160);
    ASSERT_EQ(theirs.Height(), 120);
    double sum = 0;
    int worst = 0;
    size_t off = 0;
    for (int y = 0; y < 120; ++y)
      for (size_t i = 0; i < theirs.RowLen(); ++i) {
        const int d = std::abs(ours.Scanline(y)[i] - theirs.Scanline(y)[i]);
        sum += d;
        worst = std::max(worst, d);
        off += d > 2;
      }
    EXPECT_LE(sum / (120.0 * theirs.RowLen()), ref.mean_limit) << ref.program;
    EXPECT_LE(off, theirs.RowLen() * 120 * ref.off_percent / 100) << ref.program;
    EXPECT_LE(worst, ref.max_limit) << ref.program;
    ++checked;
  }
  if (checked == 0)
    GTEST_SKIP() << "neither vips (Debian package libvips-tools) nor convert (imagemagick) is "
                    "installed";
}

}  // namespace
}  // namespace pictavo::imaging
