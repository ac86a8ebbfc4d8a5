// Actions on small analytic pictures: exact values where the formula fixes them, properties
// (sizes, symmetry, untouched alpha) elsewhere.
#include <gtest/gtest.h>

#include <cmath>

#include "edit/action_table.h"
#include "edit/declare_edit.h"
#include "edit/text_render.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "tests/support/test_paths.h"

namespace pictavo::editing {
namespace {

using imaging::TIEPixelFormat;
using imaging::TRGB;

// w x h, red = x * 255 / (w-1), green = y * 255 / (h-1), blue = 128.
TIEBitmap Gradient(int w, int h) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      b.SetPixels_ie24RGB(
          x, y,
          {static_cast<uint8_t>(x * 255 / (w - 1)), static_cast<uint8_t>(y * 255 / (h - 1)), 128});
  return b;
}

TIEBitmap Solid(int w, int h, TRGB c) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  b.Fill(imaging::RGBToTColor(c));
  return b;
}

// Runs one action line through the real dispatcher.
bool Apply(TIEBitmap& bmp, std::string_view line, const std::string& work_file = "x.png") {
  ActionContext ctx;
  ctx.bmp = &bmp;
  ctx.work_file = work_file;
  return Dispatch(ActionTable(), ctx, ParseLine(line));
}

double HslLightness(TRGB c) {
  return (std::max({c.r, c.g, c.b}) + std::min({c.r, c.g, c.b})) / 2.0;
}

TEST(ToneActions, BrightnessContrastSquaresTheContrast) {
  EXPECT_EQ(BcContrastCurve(50), 25);
  EXPECT_EQ(BcContrastCurve(-30), -9);
  EXPECT_EQ(BcContrastCurve(100), 100);
  EXPECT_EQ(BcContrastCurve(120), 100);
  EXPECT_EQ(BcContrastCurve(-120), -100);
  EXPECT_EQ(BcContrastCurve(7), 0);  // 49 / 100 truncates
  EXPECT_EQ(BcContrastCurve(-7), 0);

  // 0/0 keeps every value but the picture becomes 24-bit.
  TIEBitmap pal;
  ASSERT_TRUE(pal.Allocate(3, 1, TIEPixelFormat::ie8p).ok());
  pal.Palette() = {{10, 20, 30}, {200, 100, 50}, {0, 255, 0}};
  pal.Scanline(0)[0] = 0, pal.Scanline(0)[1] = 1, pal.Scanline(0)[2] = 2;
  ASSERT_TRUE(Apply(pal, "bc(0;0)"));
  EXPECT_EQ(pal.PixelFormat(), TIEPixelFormat::ie24RGB);
  EXPECT_EQ(pal.GetPixels(0, 0), (TRGB{10, 20, 30}));
  EXPECT_EQ(pal.GetPixels(1, 0), (TRGB{200, 100, 50}));

  // Brightness is added to every channel.
  TIEBitmap b = Solid(2, 2, {100, 50, 0});
  ASSERT_TRUE(Apply(b, "bc(10;0)"));
  EXPECT_EQ(b.GetPixels(1, 1), (TRGB{110, 60, 10}));

  // Contrast 50 acts as the engine's Contrast(25).
  TIEBitmap g1 = Gradient(16, 4), g2 = g1;
  ASSERT_TRUE(Apply(g1, "bc(0;50)"));
  imaging::TImageEnProc p(&g2);
  ASSERT_TRUE(p.Contrast(25).ok());
  for (int x = 0; x < 16; ++x) EXPECT_EQ(g1.GetPixels(x, 2), g2.GetPixels(x, 2)) << x;
  EXPECT_NE(g1.GetPixels(1, 2), Gradient(16, 4).GetPixels(1, 2));
}

TEST(ToneActions, HueSaturationKeepsLightnessAndHlsWithZeroLightnessMatches) {
  TIEBitmap a = Gradient(32, 8), b = a;
  const TIEBitmap original = a;
  ASSERT_TRUE(Apply(a, "hue_sat(60;-40)"));
  ASSERT_TRUE(Apply(b, "hls(60;0;-40)"));
  for (int y = 0; y < 8; ++y)
    for (int x = 0; x < 32; ++x) {
      EXPECT_NEAR(HslLightness(a.GetPixels(x, y)), HslLightness(original.GetPixels(x, y)), 1.0);
      EXPECT_EQ(a.GetPixels(x, y), b.GetPixels(x, y));
    }
  EXPECT_NE(a.GetPixels(31, 0), original.GetPixels(31, 0));
}

TEST(ToneActions, OwnLoopsGiveTheirExactValues) {
  TIEBitmap b = Solid(2, 1, {100, 200, 0});
  ASSERT_TRUE(Apply(b, "lightness(50)"));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{178, 228, 128}));  // v + (255 - v) / 2, rounded
  b = Solid(2, 1, {100, 200, 0});
  ASSERT_TRUE(Apply(b, "darkness(25)"));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{75, 150, 0}));
  b = Solid(1, 1, {100, 200, 50});
  ASSERT_TRUE(Apply(b, "white_balance(100;200;50)"));  // that colour becomes grey of its mean
  const TRGB wb = b.GetPixels(0, 0);
  EXPECT_EQ(wb.r, wb.g);
  EXPECT_EQ(wb.g, wb.b);
  EXPECT_NEAR(wb.r, 117, 1);
  b = Solid(1, 1, {100, 200, 50});
  ASSERT_TRUE(
      Apply(b, "color_replace(90;190;40;0;0;255;10)"));  // within 10: moved by the difference
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{10, 10, 255}));
  b = Solid(1, 1, {100, 200, 50});
  ASSERT_TRUE(Apply(b, "color_replace(80;190;40;0;0;255;10)"));  // red 20 away: untouched
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{100, 200, 50}));
  b = Solid(1, 1, {100, 200, 50});
  ASSERT_TRUE(Apply(b, "exposure(10)"));  // one stop brighter in linear light
  EXPECT_NEAR(b.GetPixels(0, 0).r, 137, 1);
  EXPECT_NEAR(b.GetPixels(0, 0).b, 71, 1);
  b = Gradient(64, 2);
  ASSERT_TRUE(Apply(b, "posterize(2)"));
  for (int x = 0; x < 64; ++x) EXPECT_TRUE(b.GetPixels(x, 0).r == 0 || b.GetPixels(x, 0).r == 255);
  b = Solid(1, 1, {100, 200, 50});
  ASSERT_TRUE(Apply(b, "gamma(1,0)"));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{100, 200, 50}));
  EXPECT_FALSE(Apply(b, "gamma(abc)"));
}

TEST(ToneActions, BlackAndWhiteModes) {
  TIEBitmap b = Gradient(64, 2);
  ASSERT_TRUE(Apply(b, "convert_to_black_white(4;100)"));
  ASSERT_EQ(b.PixelFormat(), TIEPixelFormat::ie1g);
  const TIEBitmap ref = Gradient(64, 2);
  for (int x = 0; x < 64; ++x) {
    const TRGB c = ref.GetPixels(x, 0);
    EXPECT_EQ(b.GetPixels_ie1g(x, 0), 0.299 * c.r + 0.587 * c.g + 0.114 * c.b >= 100) << x;
  }
  b = Gradient(8, 8);
  ASSERT_TRUE(Apply(b, "convert_to_black_white(5)"));
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie24RGB);
  for (int x = 0; x < 8; ++x) EXPECT_EQ(b.GetPixels(x, 3).r, b.GetPixels(x, 3).b);
  for (const char* line : {"convert_to_black_white(0)", "convert_to_black_white(1;0)",
                           "convert_to_black_white(2)", "convert_to_black_white(3)"}) {
    b = Gradient(8, 8);
    ASSERT_TRUE(Apply(b, line)) << line;
    EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie1g) << line;
  }
  b = Gradient(8, 8);
  ASSERT_TRUE(Apply(b, "convert_to_black_white(9)"));  // unknown mode: unchanged, still done
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie24RGB);
}

TEST(ToneActions, ColourDepthFamily) {
  TIEBitmap b = Gradient(32, 32);
  ASSERT_TRUE(Apply(b, "CHANGE_TO_16(0)"));
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie8p);
  imaging::TImageEnProc p(&b);
  EXPECT_LE(p.CalcImageNumColors(), 16);
  b = Gradient(32, 32);
  ASSERT_TRUE(Apply(b, "CHANGE_TO(1)"));
  EXPECT_LE(imaging::TImageEnProc(&b).CalcImageNumColors(), 2);
  b = Gradient(8, 8);
  ASSERT_TRUE(Apply(b, "change_to_gray"));
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie8p);
  EXPECT_TRUE(b.IsGrayScale());
  b = Gradient(8, 8);
  ASSERT_TRUE(Apply(b, "CHANGE_TO_GRAY24"));
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie24RGB);
  EXPECT_TRUE(b.IsGrayScale());
  b = Solid(2, 2, {10, 20, 30});
  ASSERT_TRUE(Apply(b, "Change_To_Negative"));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{245, 235, 225}));
}

TEST(ToneActions, TransparencyFlattensColoursAndKeepsTheMask) {
  TIEBitmap b = Solid(2, 1, {200, 0, 0});
  b.AddAlphaChannel(255);
  b.SetAlpha(0, 0, 0);
  ASSERT_TRUE(Apply(b, "transparency(0;0;255)"));
  ASSERT_TRUE(b.HasAlphaChannel());
  EXPECT_EQ(b.GetAlpha(0, 0), 0);
  EXPECT_EQ(b.GetAlpha(1, 0), 255);
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{0, 0, 255}));
  EXPECT_EQ(b.GetPixels(1, 0), (TRGB{200, 0, 0}));
  TIEBitmap opaque = Solid(1, 1, {1, 2, 3});
  EXPECT_TRUE(Apply(opaque, "transparency(0;0;0)"));
  EXPECT_FALSE(opaque.HasAlphaChannel());
  EXPECT_FALSE(Apply(opaque, "transparency(0;0)"));
}

TEST(GeometryActions, OutputSizes) {
  struct Case {
    const char* line;
    int w, h;
  } cases[] = {
      {"resize(50;50;1;1;3;0)", 50, 30},
      {"resize(80;80;0;1;3;0)", 80, 48},
      {"resize(80;0;0;0;1;0)", 80, 48},
      {"resize(80;10;0;0;0;0)", 80, 10},
      {"resize(200;200;0;1;3;1)", 100, 60},  // only to shrink: left alone
      {"resize(50;50;0;1;3;2)", 100, 60},    // only to enlarge: left alone
      {"resize2(50)", 50, 30},
      {"resize2(200;2;0)", 200, 120},
      {"canvas_size(120;100;4;0;0;0)", 120, 100},
      {"canvas_size2(1;2;3;4)", 104, 66},
      {"crop(10;5;30;20)", 30, 20},
      {"crop(40;40)", 40, 40},
      {"crop(95;55;30;20)", 5, 5},
      {"rotate(90)", 60, 100},
      {"rotate(-90;0;0;0)", 60, 100},
      {"rotate(180)", 100, 60},
      {"square(0;0;0;0)", 100, 100},
      {"square(1)", 60, 60},
      {"add_border(5;0;0;0;0)", 110, 70},
      {"add_border(10;0;0;0;1;1)", 100, 60},
      {"add_shadow(4;3)", 100 + 4 + 12, 60 + 4 + 12},
      {"upscale(2)", 200, 120},
      {"upscale(3;2)", 300, 180},
      {"mirror(2)", 100, 60},
      {"static_background(;0;0;0;0;10;4;100;0)", 120, 80},
      {"static_background(;0;0;0;0;10;4;100;0;300;200)", 300, 200},
  };
  for (const Case& c : cases) {
    TIEBitmap b = Gradient(100, 60);
    ASSERT_TRUE(Apply(b, c.line)) << c.line;
    EXPECT_EQ(b.Width(), c.w) << c.line;
    EXPECT_EQ(b.Height(), c.h) << c.line;
  }
  for (const char* bad : {"crop(1;2;3)", "crop", "resize(50;50;1;1;3)", "split(2;2)",
                          "canvas_size(10;10;9)", "mirror(3)", "upscale(1)"}) {
    TIEBitmap b = Gradient(100, 60);
    EXPECT_FALSE(Apply(b, bad)) << bad;
  }
}

TEST(GeometryActions, PixelsLandWhereTheyShould) {
  const TIEBitmap g = Gradient(10, 6);
  TIEBitmap b = g;
  ASSERT_TRUE(Apply(b, "mirror(0)"));
  for (int x = 0; x < 10; ++x) EXPECT_EQ(b.GetPixels(x, 2), g.GetPixels(9 - x, 2));
  b = g;
  ASSERT_TRUE(Apply(b, "rotate(90)"));  // clockwise: the top-left corner goes to the top right
  EXPECT_EQ(b.GetPixels(5, 0), g.GetPixels(0, 0));
  EXPECT_EQ(b.GetPixels(0, 0), g.GetPixels(0, 5));
  b = g;
  ASSERT_TRUE(Apply(b, "canvas_size(14;8;8;1;2;3)"));  // bottom-right anchor
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{1, 2, 3}));
  EXPECT_EQ(b.GetPixels(4, 2), g.GetPixels(0, 0));
  b = g;
  ASSERT_TRUE(Apply(b, "crop(2;1;3;3)"));
  EXPECT_EQ(b.GetPixels(0, 0), g.GetPixels(2, 1));

  // Auto crop: a red block on white is cut out exactly.
  b = Solid(40, 30, {255, 255, 255});
  b.FillRect(5, 7, 12, 9, 0x0000FF);
  ASSERT_TRUE(Apply(b, "auto_crop(10)"));
  EXPECT_EQ(b.Width(), 12);
  EXPECT_EQ(b.Height(), 9);

  // Geometry keeps the alpha plane.
  b = g;
  b.AddAlphaChannel(255);
  b.SetAlpha(0, 0, 7);
  ASSERT_TRUE(Apply(b, "mirror(0)"));
  EXPECT_EQ(b.GetAlpha(9, 0), 7);

  // Split gives pages, only for a TIFF working file.
  b = g;
  ActionContext ctx;
  ctx.bmp = &b;
  ctx.work_file = "page.TIF";
  ASSERT_TRUE(Dispatch(ActionTable(), ctx, ParseLine("split(2;3)")));
  ASSERT_EQ(ctx.extra_pages.size(), 5u);
  EXPECT_EQ(b.Width(), 5);
  EXPECT_EQ(b.Height(), 2);
  EXPECT_EQ(ctx.extra_pages[4].GetPixels(0, 0), g.GetPixels(5, 4));
}

TEST(EffectActions, EveryEffectRunsAndChangesAPatternedPicture) {
  const char* lines[] = {"stylize(0)",
                         "blur(2)",
                         "gaussian_blur(15)",
                         "split_blur(3)",
                         "sharpen(60)",
                         "auto_sharp",
                         "unsharp_mask(150;20;0)",
                         "color_noise(20)",
                         "mono_noise(20)",
                         "antialias",
                         "fisheye(60)",
                         "mosaic(4)",
                         "twist(90)",
                         "tile(2;2)",
                         "trace(20)",
                         "solorize(100)",
                         "ripple_random(4;10)",
                         "ripple_tooth(4;10)",
                         "ripple_triangle(4;10)",
                         "spray(3)",
                         "remove_distortion(20)",
                         "invert",
                         "photo_filter(255;128;0;50;1)",
                         "hsv(30;10;10)",
                         "rgb(10;-10;5)",
                         "auto_contrast",
                         "jpeg_repair(80)"};
  for (const char* line : lines) {
    // Stripes and a gradient, so every effect has something to change.
    TIEBitmap b = Gradient(48, 40);
    for (int y = 0; y < 40; ++y)
      for (int x = 0; x < 48; x += 8) b.SetPixels_ie24RGB(x, y, {0, 0, 0});
    for (int x = 0; x < 48; ++x) b.SetPixels_ie24RGB(x, 16, {255, 255, 255});
    const TIEBitmap before = b;
    ASSERT_TRUE(Apply(b, line)) << line;
    ASSERT_EQ(b.Width(), 48) << line;
    ASSERT_EQ(b.Height(), 40) << line;
    bool changed = b.PixelFormat() != before.PixelFormat();
    for (int y = 0; y < 40 && !changed; ++y)
      for (int x = 0; x < 48 && !changed; ++x)
        changed = b.GetPixels(x, y) != before.GetPixels(x, y);
    EXPECT_TRUE(changed) << line;
  }
  TIEBitmap speck;
  ASSERT_TRUE(speck.Allocate(16, 16, TIEPixelFormat::ie1g).ok());
  for (int y = 0; y < 16; ++y)
    for (int x = 0; x < 16; ++x) speck.SetPixel(x, y, {255, 255, 255});
  speck.SetPixel(8, 8, {0, 0, 0});
  ASSERT_TRUE(Apply(speck, "remove_noise(2)"));
  EXPECT_EQ(speck.GetPixels(8, 8), (TRGB{255, 255, 255}));
  // Auto colours stretch a dull picture to the full range; auto white neutralises a tinted white.
  TIEBitmap dull;
  ASSERT_TRUE(dull.Allocate(64, 1, TIEPixelFormat::ie24RGB).ok());
  for (int x = 0; x < 64; ++x)
    dull.SetPixels_ie24RGB(x, 0,
                           {static_cast<uint8_t>(100 + x), static_cast<uint8_t>(100 + x),
                            static_cast<uint8_t>(120 + x / 2)});
  ASSERT_TRUE(Apply(dull, "auto_colors"));
  EXPECT_EQ(dull.GetPixels(0, 0), (TRGB{0, 0, 0}));
  EXPECT_EQ(dull.GetPixels(63, 0), (TRGB{255, 255, 255}));
  TIEBitmap tinted = Solid(10, 10, {60, 60, 60});
  tinted.FillRect(0, 0, 10, 2, imaging::RGBToTColor({200, 220, 250}));
  ASSERT_TRUE(Apply(tinted, "auto_white"));
  const TRGB w = tinted.GetPixels(0, 0);
  EXPECT_NEAR(w.r, w.b, 2);
  EXPECT_NEAR(w.g, w.b, 2);

  TIEBitmap b = Gradient(8, 8);
  ASSERT_TRUE(Apply(b, "mosaic(8)"));  // one block: every pixel is the mean
  EXPECT_EQ(b.GetPixels(0, 0), b.GetPixels(7, 7));
}

TEST(DrawingActions, ShapesNeedTheirExactCounts) {
  TIEBitmap b = Solid(40, 40, {255, 255, 255});
  EXPECT_FALSE(Apply(b, "point(10;10;3;255;0;0;0)"));      // 7 parameters
  EXPECT_FALSE(Apply(b, "point(10;10;3;255;0;0;0;1;1)"));  // 9 parameters
  EXPECT_EQ(b.GetPixels(10, 10), (TRGB{255, 255, 255}));   // nothing drawn
  ASSERT_TRUE(Apply(b, "point(10;10;3;255;0;0;0;0)"));
  EXPECT_EQ(b.GetPixels(10, 10), (TRGB{255, 0, 0}));
  ASSERT_TRUE(Apply(b, "line(0;30;39;30;1;0;0;255;0)"));
  EXPECT_EQ(b.GetPixels(20, 30), (TRGB{0, 0, 255}));
  ASSERT_TRUE(Apply(b, "rectangle(20;0;10;10;1;0;0;0;0;255;0;1;1)"));
  EXPECT_EQ(b.GetPixels(25, 5), (TRGB{0, 255, 0}));  // filled inside
  EXPECT_EQ(b.GetPixels(20, 5), (TRGB{0, 0, 0}));    // black outline
  ASSERT_TRUE(Apply(b, "ellipse(0;20;10;10;1;0;0;0;9;9;9;1;0)"));
  EXPECT_EQ(b.GetPixels(5, 25), (TRGB{9, 9, 9}));
  EXPECT_EQ(b.GetPixels(0, 20), (TRGB{255, 255, 255}));  // outside the ellipse's corner
}

TEST(WatermarkActions, ImageAndTextWatermarksPutPixelsWhereAsked) {
  pictavo::testing::TempDir dir;
  TIEBitmap mark = Solid(4, 3, {0, 0, 255});
  mark.SetPixels_ie24RGB(0, 0, {255, 0, 255});  // key colour pixel
  imaging::TImageEnIO io(&mark);
  ASSERT_TRUE(io.SaveToFile(dir.file("mark.png")).ok());

  TIEBitmap b = Solid(20, 10, {255, 255, 255});
  const std::string path = dir.file("mark.png");
  ASSERT_TRUE(Apply(b, "watermark(" + path + ";8;1;2;100;0;0;0;0)"));  // bottom right, inset 1, 2
  EXPECT_EQ(b.GetPixels(18, 7), (TRGB{0, 0, 255}));
  EXPECT_EQ(b.GetPixels(19, 7), (TRGB{255, 255, 255}));
  EXPECT_EQ(b.GetPixels(15, 5), (TRGB{255, 0, 255}));  // the short form ignores the key
  b = Solid(20, 10, {255, 255, 255});
  ASSERT_TRUE(Apply(b, "watermark(" + path + ";0;0;0;50;0;0;0;0;255;0;255)"));
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{255, 255, 255}));  // keyed out
  EXPECT_EQ(b.GetPixels(1, 0), (TRGB{128, 128, 255}));  // half opacity
  b = Solid(20, 10, {255, 255, 255});
  ASSERT_TRUE(Apply(b, "watermark3(" + path + ";0;0;0;100;0;0;0;0;8;6)"));
  EXPECT_EQ(b.GetPixels(7, 5), (TRGB{0, 0, 255}));
  EXPECT_EQ(b.GetPixels(8, 5), (TRGB{255, 255, 255}));
  EXPECT_FALSE(Apply(b, "watermark(" + dir.file("missing.png") + ";0;0;0;100;0;0;0;0)"));

  if (FindFontFile("DejaVu Sans", false, false).empty())
    GTEST_SKIP() << "no font: install fonts-dejavu-core and fontconfig";
  b = Solid(200, 60, {255, 255, 255});
  ASSERT_TRUE(Apply(b, "text_watermark(Pictavo;DejaVu Sans;30;0;0;0;0;5;5)"));
  int dark_left = 0, dark_right = 0;
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 200; ++x)
      if (b.GetPixels(x, y).r < 128) (x < 100 ? dark_left : dark_right)++;
  EXPECT_GT(dark_left, 100);  // text drawn at the top left
  EXPECT_LT(dark_right, dark_left);
  b = Solid(200, 60, {255, 255, 255});
  ASSERT_TRUE(Apply(b, "text_watermark2(Hi;;20;255;255;255;8;2;2;100;1;0;0;0;0;100;3)"));
  EXPECT_EQ(b.GetPixels(199, 59), (TRGB{255, 255, 255}));  // outside the box's inset
  EXPECT_EQ(b.GetPixels(196, 56), (TRGB{0, 0, 0}));        // inside the black box's padding
}

}  // namespace
}  // namespace pictavo::editing
