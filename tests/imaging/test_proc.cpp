#include <cmath>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/ie_proc.h"
#include "imaging/ie_vect.h"
#include "test_bitmap_helpers.h"

namespace pictavo::imaging {
namespace {

using testing::ColourGradient;
using testing::kAllLayouts;
using testing::LayoutName;
using testing::MaxChannelDiff;

double MeanError(const TIEBitmap& a, const TIEBitmap& b) {
  double sum = 0;
  for (int y = 0; y < a.Height(); ++y)
    for (int x = 0; x < a.Width(); ++x) {
      const TRGB p = a.GetPixels(x, y), q = b.GetPixels(x, y);
      sum += std::abs(p.r - q.r) + std::abs(p.g - q.g) + std::abs(p.b - q.b);
    }
  return sum / (3.0 * a.Width() * a.Height());
}

// Error of 8 x 8 block means: what the eye sees of a dithered image.
double BlockError(const TIEBitmap& a, const TIEBitmap& b) {
  double sum = 0;
  int blocks = 0;
  for (int by = 0; by + 8 <= a.Height(); by += 8)
    for (int bx = 0; bx + 8 <= a.Width(); bx += 8) {
      double d[3] = {0, 0, 0};
      for (int y = by; y < by + 8; ++y)
        for (int x = bx; x < bx + 8; ++x) {
          const TRGB p = a.GetPixels(x, y), q = b.GetPixels(x, y);
          d[0] += p.r - q.r;
          d[1] += p.g - q.g;
          d[2] += p.b - q.b;
        }
      sum += (std::fabs(d[0]) + std::fabs(d[1]) + std::fabs(d[2])) / (3 * 64);
      ++blocks;
    }
  return sum / blocks;
}

double WhiteFraction(const TIEBitmap& b) {
  int white = 0;
  for (int y = 0; y < b.Height(); ++y)
    for (int x = 0; x < b.Width(); ++x) white += b.GetPixels_ie1g(x, y);
  return static_cast<double>(white) / (b.Width() * b.Height());
}

TEST(Proc, UnboundOrEmptyBitmapFails) {
  TImageEnProc none;
  EXPECT_FALSE(none.Negative().ok());
  TIEBitmap empty;
  TImageEnProc proc(&empty);
  EXPECT_FALSE(proc.Blur(2).ok());
  EXPECT_FALSE(proc.ConvertTo(16).ok());
  EXPECT_EQ(proc.CalcImageNumColors(), 0);
}

TEST(Proc, PaletteReductionKeepsTheColourCountAndTheError) {
  const TIEBitmap original = ColourGradient(256, 256);
  struct Case {
    int colours;
    TIEDitherMethod dither;
    double max_error;  // per pixel without dithering, of block means with it
  };
  const Case cases[] = {{256, TIEDitherMethod::ieNoDither, 4.0},
                        {16, TIEDitherMethod::ieNoDither, 16.0},
                        {16, TIEDitherMethod::ieFloydSteinberg, 4.0},
                        {16, TIEDitherMethod::ieOrdered, 10.0},
                        {2, TIEDitherMethod::ieFloydSteinberg, 40.0}};
  for (const Case& c : cases) {
    TIEBitmap b = original;
    TImageEnProc proc(&b);
    ASSERT_TRUE(proc.ConvertTo(c.colours, c.dither).ok());
    EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie8p);
    EXPECT_LE(b.Palette().size(), static_cast<size_t>(c.colours));
    EXPECT_LE(proc.CalcImageNumColors(), c.colours);
    const double err =
        c.dither == TIEDitherMethod::ieNoDither ? MeanError(b, original) : BlockError(b, original);
    EXPECT_LE(err, c.max_error) << c.colours << " colours";
  }
  // Seen from afar, error diffusion beats ordered dithering, which beats none.
  double seen[3];
  const TIEDitherMethod methods[3] = {TIEDitherMethod::ieNoDither, TIEDitherMethod::ieOrdered,
                                      TIEDitherMethod::ieFloydSteinberg};
  for (int i = 0; i < 3; ++i) {
    TIEBitmap b = original;
    ASSERT_TRUE(TImageEnProc(&b).ConvertTo(16, methods[i]).ok());
    seen[i] = BlockError(b, original);
  }
  EXPECT_LT(seen[2], seen[1]);
  EXPECT_LT(seen[1], seen[0]);

  // Dithering keeps the local average: a flat colour between two palette entries.
  TIEBitmap flat = testing::Make24(64, 64);
  flat.Fill(0x404040);
  const std::vector<TRGB> bw = {TRGB{0, 0, 0}, TRGB{255, 255, 255}};
  TIEBitmap dithered;
  ASSERT_TRUE(MapToPalette(flat, bw, TIEDitherMethod::ieFloydSteinberg, dithered).ok());
  double mean = 0;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 64; ++x) mean += dithered.GetPixels(x, y).r;
  EXPECT_NEAR(mean / (64 * 64), 64.0, 3.0);

  // An image with few colours keeps them exactly.
  TIEBitmap few = testing::Checkerboard(30, 30, 3, TRGB{10, 200, 30}, TRGB{250, 1, 99});
  few.FillRect(0, 0, 5, 5, 0x123456);
  const TIEBitmap few_copy = few;
  TImageEnProc pp(&few);
  EXPECT_EQ(pp.CalcImageNumColors(), 3);
  EXPECT_EQ(pp.CalcImageNumColors(3), 3);
  EXPECT_EQ(pp.CalcImageNumColors(1), 2);
  ASSERT_TRUE(pp.ConvertTo(16, TIEDitherMethod::ieFloydSteinberg).ok());
  EXPECT_EQ(few.Palette().size(), 3u);
  EXPECT_EQ(MeanError(few, few_copy), 0.0);

  // Above 256 colours: RGB kept, fewer levels per channel ("high colour" is 5-6-5).
  TIEBitmap high = original;
  TImageEnProc hp(&high);
  ASSERT_TRUE(hp.ConvertTo(65535, TIEDitherMethod::ieNoDither).ok());
  EXPECT_EQ(high.PixelFormat(), TIEPixelFormat::ie24RGB);
  std::set<int> reds;
  for (int x = 0; x < 256; ++x) reds.insert(high.GetPixels(x, 0).r);
  EXPECT_EQ(reds.size(), 32u);
  EXPECT_LE(MeanError(high, original), 2.0);
}

TEST(Proc, TwoLevelConversions) {
  // Bimodal image: dark left half (40..59), bright right half (180..199).
  TIEBitmap b;
  ASSERT_TRUE(b.Allocate(64, 32, TIEPixelFormat::ie8g).ok());
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 64; ++x)
      b.Scanline(y)[x] = static_cast<uint8_t>((x < 32 ? 40 : 180) + (x * 7 + y * 3) % 20);
  {
    TIEBitmap t = b;
    TImageEnProc p(&t);
    ASSERT_TRUE(p.ConvertToBWThreshold(-1).ok());
    ASSERT_EQ(t.PixelFormat(), TIEPixelFormat::ie1g);
    for (int x = 0; x < 64; ++x) ASSERT_EQ(t.GetPixels_ie1g(x, 5), x >= 32) << x;
  }
  {
    TIEBitmap t = b;  // explicit threshold inside the bright band
    TImageEnProc p(&t);
    ASSERT_TRUE(p.ConvertToBWThreshold(190).ok());
    for (int x = 32; x < 64; ++x) ASSERT_EQ(t.GetPixels_ie1g(x, 7), b.Scanline(7)[x] >= 190);
    EXPECT_FALSE(p.ConvertToBWThreshold(300).ok());
  }
  {
    TIEBitmap t = b;  // mean threshold (about 119) also separates the halves
    TImageEnProc p(&t);
    ASSERT_TRUE(p.ConvertToBWThreshold(-2).ok());
    EXPECT_DOUBLE_EQ(WhiteFraction(t), 0.5);
  }
  // Dithering reproduces the grey level as a fraction of white pixels.
  for (int level : {32, 64, 128, 200}) {
    TIEBitmap g;
    ASSERT_TRUE(g.Allocate(64, 64, TIEPixelFormat::ie8g).ok());
    g.Fill(level * 0x010101);
    TIEBitmap o = g;
    TImageEnProc fs(&g), ord(&o);
    ASSERT_TRUE(fs.ConvertToBW_FloydSteinberg().ok());
    ASSERT_TRUE(ord.ConvertToBWOrdered().ok());
    EXPECT_NEAR(WhiteFraction(g), level / 255.0, 0.02) << level;
    EXPECT_NEAR(WhiteFraction(o), level / 255.0, 0.02) << level;
  }
}

TEST(Proc, QuarterRotationsAreExactInEveryLayout) {
  const TIEBitmap base = testing::Noise(7, 4, 3);
  for (TIEPixelFormat f : kAllLayouts) {
    TIEBitmap src = base;
    ASSERT_TRUE(src.ConvertTo(f).ok());
    src.SetAlpha(1, 2, 9);
    TIEBitmap r = src;
    TImageEnProc p(&r);
    ASSERT_TRUE(p.Rotate(90).ok());
    ASSERT_EQ(r.PixelFormat(), f);
    ASSERT_EQ(r.Width(), 4);
    ASSERT_EQ(r.Height(), 7);
    // Counter-clockwise: the top row becomes the left column, read bottom-up.
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 4; ++x)
        ASSERT_EQ(r.GetPixels(x, y), src.GetPixels(6 - y, x)) << LayoutName(f);
    EXPECT_EQ(r.GetAlpha(2, 5), 9);
    ASSERT_TRUE(p.Rotate(-90).ok());
    EXPECT_TRUE(testing::SamePixels(r, src)) << LayoutName(f);
    // 180 degrees equals both flips.
    TIEBitmap half = src, flipped = src;
    TImageEnProc hp(&half), fp(&flipped);
    ASSERT_TRUE(hp.Rotate(540).ok());
    ASSERT_TRUE(fp.Flip(TFlipDirection::fdHorizontal).ok());
    ASSERT_TRUE(fp.Flip(TFlipDirection::fdVertical).ok());
    EXPECT_TRUE(testing::SamePixels(half, flipped)) << LayoutName(f);
    EXPECT_EQ(flipped.GetAlpha(5, 1), 9);
  }
}

TEST(Proc, FreeRotationEnlargesCanvasAndAntialiasesEdges) {
  TIEBitmap b = testing::Make24(100, 50);
  b.Fill(0x0000FF);  // red
  TImageEnProc p(&b);
  ASSERT_TRUE(p.Rotate(30, true, 0xFFFFFF).ok());
  const double rad = 30 * 3.14159265358979 / 180;
  EXPECT_EQ(b.Width(),
            static_cast<int>(std::ceil(100 * std::cos(rad) + 50 * std::sin(rad) - 1e-6)));
  EXPECT_EQ(b.Height(),
            static_cast<int>(std::ceil(100 * std::sin(rad) + 50 * std::cos(rad) - 1e-6)));
  EXPECT_EQ(b.GetPixels(b.Width() / 2, b.Height() / 2), (TRGB{255, 0, 0}));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{255, 255, 255}));
  EXPECT_EQ(b.GetPixels(b.Width() - 1, b.Height() - 1), (TRGB{255, 255, 255}));
  int partial = 0;
  for (int y = 0; y < b.Height(); ++y)
    for (int x = 0; x < b.Width(); ++x) {
      const TRGB c = b.GetPixels(x, y);
      partial += c.g > 10 && c.g < 245;
    }
  EXPECT_GT(partial, 100);  // an antialiased rim

  TIEBitmap hard = testing::Make24(100, 50);
  hard.Fill(0x0000FF);
  TImageEnProc hp(&hard);
  ASSERT_TRUE(hp.Rotate(30, false, 0xFFFFFF).ok());
  for (int y = 0; y < hard.Height(); ++y)
    for (int x = 0; x < hard.Width(); ++x) {
      const TRGB c = hard.GetPixels(x, y);
      ASSERT_TRUE(c.g == 0 || c.g == 255);
    }
  EXPECT_FALSE(hp.Rotate(std::nan("")).ok());
  // With an alpha plane the uncovered corners are transparent.
  TIEBitmap a = testing::Make24(40, 40);
  a.AddAlphaChannel(255);
  TImageEnProc ap(&a);
  ASSERT_TRUE(ap.Rotate(45).ok());
  EXPECT_EQ(a.GetAlpha(0, 0), 0);
  EXPECT_EQ(a.GetAlpha(a.Width() / 2, a.Height() / 2), 255);
}

TEST(Proc, AutoCropAndSkewDetection) {
  TIEBitmap b = testing::Make24(120, 90);
  b.Fill(0xFFFFFF);
  b.FillRect(10, 20, 30, 40, 0x000000);
  b.FillRect(60, 70, 5, 3, 0xF8F8F8);  // within tolerance of the white border
  TIEBitmap c = b;
  TImageEnProc p(&c);
  ASSERT_TRUE(p.AutoCrop(10).ok());
  EXPECT_EQ(c.Width(), 30);
  EXPECT_EQ(c.Height(), 40);
  ASSERT_TRUE(p.AutoCrop(0, 0x000000).ok());  // all black now: unchanged
  EXPECT_EQ(c.Width(), 30);
  TIEBitmap strict = b;
  TImageEnProc sp(&strict);
  ASSERT_TRUE(sp.AutoCrop(0).ok());
  EXPECT_EQ(strict.Width(), 55);  // the near-white patch counts at tolerance 0

  for (double skew : {3.0, -2.0}) {
    TIEBitmap page = testing::Make24(600, 400);
    page.Fill(0xFFFFFF);
    for (int line = 0; line < 12; ++line)
      for (int word = 0; word < 8; ++word)
        page.FillRect(40 + word * 65, 40 + line * 28, 50, 6, 0x000000);
    TImageEnProc pp(&page);
    EXPECT_NEAR(pp.SkewDetection(), 0.0, 0.15);
    ASSERT_TRUE(pp.Rotate(skew).ok());
    EXPECT_NEAR(pp.SkewDetection(), skew, 0.3) << skew;
  }
}

TEST(Proc, ToneOperationsGiveKnownValues) {
  TIEBitmap b = testing::Make24(4, 1);
  const TRGB px[4] = {{0, 0, 0}, {100, 100, 100}, {64, 128, 192}, {250, 10, 255}};
  for (int x = 0; x < 4; ++x) b.SetPixels_ie24RGB(x, 0, px[x]);
  const TIEBitmap original = b;
  TImageEnProc p(&b);

  ASSERT_TRUE(p.Contrast(0).ok());
  EXPECT_TRUE(testing::SamePixels(b, original));
  ASSERT_TRUE(p.Contrast(50).ok());  // slope 2 around mid grey
  EXPECT_NEAR(b.GetPixels(1, 0).r, (100 / 255.0 - 0.5) * 2 * 255 + 127.5, 1);
  b = original;
  ASSERT_TRUE(p.Contrast(-100).ok());
  EXPECT_NEAR(b.GetPixels(3, 0).r, 128, 1);

  b = original;
  ASSERT_TRUE(p.IntensityRGBAll(10, -20, 30).ok());
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{74, 108, 222}));
  EXPECT_EQ(b.GetPixels(3, 0), (TRGB{255, 0, 255}));  // clamped

  b = original;
  ASSERT_TRUE(p.GammaCorrect(2.0).ok());
  EXPECT_EQ(b.GetPixels(2, 0).r, std::lround(255 * std::sqrt(64 / 255.0)));
  b = original;
  ASSERT_TRUE(p.GammaCorrect(2.0, kChannelBlue).ok());
  EXPECT_EQ(b.GetPixels(2, 0).r, 64);
  EXPECT_EQ(b.GetPixels(2, 0).b, std::lround(255 * std::sqrt(192 / 255.0)));
  EXPECT_FALSE(p.GammaCorrect(0).ok());

  b = original;
  ASSERT_TRUE(p.Negative().ok());
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{191, 127, 63}));
  ASSERT_TRUE(p.Negative().ok());
  EXPECT_TRUE(testing::SamePixels(b, original));

  b = original;
  ASSERT_TRUE(p.Posterize(2).ok());
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{0, 255, 255}));

  b = original;
  std::array<uint8_t, 256> inv{}, same{};
  for (int i = 0; i < 256; ++i) {
    inv[i] = static_cast<uint8_t>(255 - i);
    same[i] = static_cast<uint8_t>(i);
  }
  ASSERT_TRUE(p.ApplyLUT(inv, same, same).ok());
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{191, 128, 192}));

  const TIEHistogram h = p.GetHistogram();
  EXPECT_EQ(h.red[255], 1u);
  EXPECT_EQ(h.green[128], 1u);
  EXPECT_EQ(h.blue[192], 1u);
  uint32_t total = 0;
  for (uint32_t v : h.gray) total += v;
  EXPECT_EQ(total, 4u);
}

TEST(Proc, HueSaturationKeepsLightness) {
  const TIEBitmap noise = testing::Noise(32, 32, 11);
  auto lightness = [](TRGB c) {
    return (std::max({c.r, c.g, c.b}) + std::min({c.r, c.g, c.b})) / 2.0;
  };
  TIEBitmap b = noise;
  TImageEnProc p(&b);
  ASSERT_TRUE(p.HSLvar(40, 30, 0).ok());
  double changed = 0;
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x) {
      ASSERT_NEAR(lightness(b.GetPixels(x, y)), lightness(noise.GetPixels(x, y)), 1.0);
      changed += MaxChannelDiff(b.GetPixels(x, y), noise.GetPixels(x, y));
    }
  EXPECT_GT(changed, 32 * 32 * 5);

  TIEBitmap red = testing::Make24(2, 2);
  red.Fill(0x0000FF);
  TImageEnProc rp(&red);
  ASSERT_TRUE(rp.HSLvar(120, 0, 0).ok());
  EXPECT_EQ(red.GetPixels(0, 0), (TRGB{0, 255, 0}));
  ASSERT_TRUE(rp.HSVvar(0, -100, 0).ok());  // no saturation: grey at the same value
  EXPECT_EQ(red.GetPixels(1, 1), (TRGB{255, 255, 255}));
  ASSERT_TRUE(rp.HSLvar(0, 0, -100).ok());
  EXPECT_EQ(red.GetPixels(1, 1), (TRGB{0, 0, 0}));

  // Grey layouts stay grey under hue and saturation changes.
  TIEBitmap g;
  ASSERT_TRUE(g.Allocate(3, 3, TIEPixelFormat::ie8g).ok());
  g.Fill(0x646464);
  TImageEnProc gp(&g);
  ASSERT_TRUE(gp.HSLvar(90, 50, 0).ok());
  EXPECT_EQ(g.PixelFormat(), TIEPixelFormat::ie8g);
  EXPECT_EQ(g.GetPixels_ie8(1, 1), 100);
  ASSERT_TRUE(gp.IntensityRGBAll(0, 0, 50).ok());  // a tint needs colour
  EXPECT_EQ(g.PixelFormat(), TIEPixelFormat::ie24RGB);
  EXPECT_EQ(g.GetPixels(0, 0), (TRGB{100, 100, 150}));
}

TEST(Proc, AutoWhiteNeutralisesTheBrightestColour) {
  TIEBitmap b = ColourGradient(50, 50);
  TImageEnProc p(&b);
  ASSERT_TRUE(p.IntensityRGBAll(-80, -80, -80).ok());  // the patch is the brightest part
  b.FillRect(0, 0, 10, 10, 0xFFDCC8);                  // bluish white patch: R 200, G 220, B 255
  ASSERT_TRUE(p.WhiteBalance_AutoWhite().ok());
  const TRGB w = b.GetPixels(5, 5);
  EXPECT_LE(MaxChannelDiff(w, TRGB{255, 255, 255}), 2);
  // A neutral image is left alone.
  TIEBitmap grey = testing::Make24(20, 20);
  grey.Fill(0x808080);
  grey.FillRect(0, 0, 5, 5, 0xF0F0F0);
  const TIEBitmap grey_copy = grey;
  TImageEnProc gp(&grey);
  ASSERT_TRUE(gp.WhiteBalance_AutoWhite().ok());
  EXPECT_TRUE(testing::SamePixels(grey, grey_copy));
}

TEST(Proc, FiltersOnKnownImages) {
  // Flat images: blur and sharpen change nothing, edge detection gives black, emboss mid grey.
  for (TIEPixelFormat f : {TIEPixelFormat::ie8g, TIEPixelFormat::ie24RGB, TIEPixelFormat::ie48RGB,
                           TIEPixelFormat::ie16g, TIEPixelFormat::ieCMYK}) {
    TIEBitmap b;
    ASSERT_TRUE(b.Allocate(16, 16, f).ok());
    b.Fill(0x5A5A5A);
    const TRGB v = b.GetPixels(0, 0);
    TImageEnProc p(&b);
    ASSERT_TRUE(p.Blur(2.5).ok());
    ASSERT_TRUE(p.Sharpen(80).ok());
    ASSERT_TRUE(p.UnsharpMask(2, 150, 0).ok());
    ASSERT_TRUE(p.ApplyFilterPreset(TIEFilterPreset::fpSharpen5).ok());
    EXPECT_EQ(b.GetPixels(7, 7), v) << LayoutName(f);
    EXPECT_EQ(b.PixelFormat(), f);
    TIEBitmap e = b;
    TImageEnProc ep(&e);
    ASSERT_TRUE(ep.ApplyFilterPreset(TIEFilterPreset::fpEdge).ok());
    EXPECT_EQ(e.GetPixels(3, 3),
              (f == TIEPixelFormat::ieCMYK ? TRGB{255, 255, 255} : TRGB{0, 0, 0}));
  }
  TIEBitmap flat = testing::Make24(8, 8);
  flat.Fill(0x202020);
  TImageEnProc fp(&flat);
  ASSERT_TRUE(fp.ApplyFilterPreset(TIEFilterPreset::fpEmboss).ok());
  EXPECT_EQ(flat.GetPixels(4, 4).r, 0x20 + 127);

  // An impulse: the Gaussian keeps its energy and spreads it symmetrically.
  TIEBitmap dot;
  ASSERT_TRUE(dot.Allocate(41, 41, TIEPixelFormat::ie16g).ok());
  reinterpret_cast<uint16_t*>(dot.Scanline(20))[20] = 60000;
  TImageEnProc dp(&dot);
  ASSERT_TRUE(dp.Blur(3).ok());
  double sum = 0;
  for (int y = 0; y < 41; ++y)
    for (int x = 0; x < 41; ++x) sum += reinterpret_cast<uint16_t*>(dot.Scanline(y))[x];
  EXPECT_NEAR(sum, 60000, 400);
  const auto at = [&](int x, int y) { return reinterpret_cast<uint16_t*>(dot.Scanline(y))[x]; };
  EXPECT_EQ(at(17, 20), at(23, 20));
  EXPECT_EQ(at(20, 17), at(17, 20));
  EXPECT_NEAR(at(20, 20), 60000 / (2 * 3.14159265 * 9), 15);

  // A step: sharpening overshoots on both sides; the 3x3 blur averages.
  TIEBitmap step;
  ASSERT_TRUE(step.Allocate(20, 5, TIEPixelFormat::ie8g).ok());
  step.FillRect(10, 0, 10, 5, 0xC8C8C8);
  step.FillRect(0, 0, 10, 5, 0x323232);
  TIEBitmap blur = step;
  TImageEnProc sp(&step), bp(&blur);
  ASSERT_TRUE(sp.UnsharpMask(1.0, 100, 0).ok());
  EXPECT_LT(step.GetPixels_ie8(9, 2), 50);
  EXPECT_GT(step.GetPixels_ie8(10, 2), 200);
  EXPECT_EQ(step.GetPixels_ie8(2, 2), 50);
  ASSERT_TRUE(bp.ApplyFilterPreset(TIEFilterPreset::fpBlur).ok());
  EXPECT_EQ(blur.GetPixels_ie8(9, 2), (2 * 50 + 200) / 3);
  // Below the threshold nothing changes.
  TIEBitmap soft = step;
  soft.FillRect(0, 0, 20, 5, 0x646464);
  soft.Scanline(2)[5] = 102;
  TImageEnProc tp(&soft);
  ASSERT_TRUE(tp.UnsharpMask(1.0, 200, 5).ok());
  EXPECT_EQ(soft.GetPixels_ie8(5, 2), 102);
  ASSERT_TRUE(tp.AutoSharp().ok());

  TImageEnProc bad(&soft);
  TIEFilterKernel k;
  k.size = 4;
  EXPECT_FALSE(bad.ApplyFilter(k).ok());
}

TEST(Proc, RemoveIsolatedPixels) {
  TIEBitmap b;
  ASSERT_TRUE(b.Allocate(20, 20, TIEPixelFormat::ie1g).ok());
  b.Fill(0xFFFFFF);
  b.SetPixel(3, 3, TRGB{});            // lone black speck
  b.FillRect(10, 10, 2, 2, 0x000000);  // 4-pixel blob
  b.FillRect(0, 15, 20, 5, 0x000000);  // black band with a white hole
  b.SetPixel(5, 17, TRGB{255, 255, 255});
  TIEBitmap c = b;
  TImageEnProc p(&c);
  ASSERT_TRUE(p.RemoveIsolatedPixels(1).ok());
  EXPECT_EQ(c.PixelFormat(), TIEPixelFormat::ie1g);
  EXPECT_TRUE(c.GetPixels_ie1g(3, 3));
  EXPECT_FALSE(c.GetPixels_ie1g(10, 10));
  EXPECT_FALSE(c.GetPixels_ie1g(5, 17));
  TIEBitmap d = b;
  TImageEnProc dp(&d);
  ASSERT_TRUE(dp.RemoveIsolatedPixels(4).ok());
  EXPECT_TRUE(d.GetPixels_ie1g(10, 10));
  EXPECT_FALSE(d.GetPixels_ie1g(0, 19));  // the band is big: kept

  TIEBitmap rgb = testing::Make24(9, 9);
  rgb.Fill(0x406080);
  rgb.SetPixels_ie24RGB(4, 4, TRGB{255, 255, 255});
  rgb.SetPixels_ie24RGB(1, 1, TRGB{0x90, 0x60, 0x40});  // differs by exactly 64 per channel max
  TImageEnProc rp(&rgb);
  ASSERT_TRUE(rp.RemoveIsolatedPixels().ok());
  EXPECT_EQ(rgb.GetPixels(4, 4), (TRGB{0x80, 0x60, 0x40}));
  EXPECT_EQ(rgb.GetPixels(1, 1), (TRGB{0x90, 0x60, 0x40}));
}

TEST(Proc, EveryLayoutSurvivesTheMainOperations) {
  const TIEBitmap base = ColourGradient(24, 16);
  for (TIEPixelFormat f : kAllLayouts) {
    TIEBitmap b = base;
    ASSERT_TRUE(b.ConvertTo(f).ok());
    const TRGB before = b.GetPixels(10, 5);
    TImageEnProc p(&b);
    ASSERT_TRUE(p.Negative().ok()) << LayoutName(f);
    const TRGB neg = b.GetPixels(10, 5);
    EXPECT_LE(MaxChannelDiff(neg, TRGB{static_cast<uint8_t>(255 - before.r),
                                       static_cast<uint8_t>(255 - before.g),
                                       static_cast<uint8_t>(255 - before.b)}),
              1)
        << LayoutName(f);
    ASSERT_TRUE(p.ConvertToGray().ok());
    EXPECT_TRUE(b.IsGrayScale()) << LayoutName(f);
    ASSERT_TRUE(p.Blur(1).ok());
    ASSERT_TRUE(p.Resample(-1, 8).ok());
    EXPECT_EQ(b.Width(), 12);
    ASSERT_TRUE(p.Rotate(10).ok());
    ASSERT_TRUE(p.ConvertTo24Bit().ok());
    EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie24RGB);
  }
}

TEST(Proc, TinyAndThinBitmapsSurviveEveryOperation) {
  const std::pair<int, int> sizes[] = {{1, 1}, {1, 9}, {9, 1}, {2, 3}, {17, 2}};
  for (TIEPixelFormat f : kAllLayouts)
    for (auto [w, h] : sizes) {
      TIEBitmap b = testing::Noise(w, h, static_cast<unsigned>(w * 31 + h));
      ASSERT_TRUE(b.ConvertTo(f).ok());
      b.SetAlpha(0, 0, 100);
      TImageEnProc p(&b);
      const std::string where =
          std::string(LayoutName(f)) + " " + std::to_string(w) + "x" + std::to_string(h);
      EXPECT_TRUE(p.Blur(3).ok()) << where;
      EXPECT_TRUE(p.UnsharpMask(2, 100, 0).ok()) << where;
      EXPECT_TRUE(p.ApplyFilterPreset(TIEFilterPreset::fpHighPass).ok()) << where;
      EXPECT_TRUE(p.RemoveIsolatedPixels().ok()) << where;
      EXPECT_TRUE(p.AutoSharp().ok()) << where;
      EXPECT_TRUE(p.Rotate(33).ok()) << where;
      EXPECT_TRUE(p.Rotate(270).ok()) << where;
      EXPECT_TRUE(p.Flip(TFlipDirection::fdHorizontal).ok()) << where;
      EXPECT_TRUE(p.AutoCrop(0).ok()) << where;
      (void)p.SkewDetection();
      EXPECT_TRUE(p.WhiteBalance_AutoWhite().ok()) << where;
      EXPECT_TRUE(p.Resample(1, 1, TResampleFilter::rfLanczos3).ok()) << where;
      EXPECT_TRUE(p.Resample(5, 7, TResampleFilter::rfBicubic).ok()) << where;
      EXPECT_TRUE(p.ConvertTo(4, TIEDitherMethod::ieOrdered).ok()) << where;
      EXPECT_TRUE(p.ConvertToBW_FloydSteinberg().ok()) << where;
      TImageEnVect v(&b);
      const TIEVObject o = v.AddNewObject();
      v.SetObjKind(o, TIEVObjectKind::iekELLIPSE);
      v.SetObjWidth(o, 3);
      v.SetObjHeight(o, 1);
      EXPECT_TRUE(v.DrawObjectsToBitmap().ok()) << where;
      EXPECT_FALSE(b.IsEmpty()) << where;
    }
}

TEST(Proc, WorkersOnSeparateBitmapsGetTheSameResults) {
  auto job = [](unsigned seed) {
    TIEBitmap b = testing::Noise(120, 80, seed);
    TImageEnProc p(&b);
    EXPECT_TRUE(p.Resample(61, 41, TResampleFilter::rfLanczos3).ok());
    EXPECT_TRUE(p.UnsharpMask(1.5, 80, 2).ok());
    EXPECT_TRUE(p.ConvertTo(32, TIEDitherMethod::ieFloydSteinberg).ok());
    TImageEnVect v(&b);
    const TIEVObject o = v.AddNewObject();
    v.SetObjKind(o, TIEVObjectKind::iekELLIPSE);
    v.SetObjWidth(o, 40);
    v.SetObjHeight(o, 30);
    EXPECT_TRUE(v.DrawObjectsToBitmap().ok());
    return b;
  };
  std::vector<TIEBitmap> serial;
  for (unsigned s = 0; s < 4; ++s) serial.push_back(job(s));
  std::vector<TIEBitmap> parallel(4);
  std::vector<std::thread> threads;
  for (unsigned s = 0; s < 4; ++s) threads.emplace_back([&, s] { parallel[s] = job(s); });
  for (auto& t : threads) t.join();
  for (unsigned s = 0; s < 4; ++s) {
    EXPECT_TRUE(testing::SamePixels(serial[s], parallel[s])) << s;
    EXPECT_EQ(serial[s].Palette(), parallel[s].Palette());
  }
}

}  // namespace
}  // namespace pictavo::imaging
