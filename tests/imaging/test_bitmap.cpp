#include <chrono>
#include <cmath>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "test_bitmap_helpers.h"

namespace pictavo::imaging {
namespace {

using testing::ColourGradient;
using testing::kAllLayouts;
using testing::LayoutName;
using testing::MaxChannelDiff;

int LumaRef(TRGB c) {
  return static_cast<int>(std::lround(0.299 * c.r + 0.587 * c.g + 0.114 * c.b));
}

TEST(Bitmap, AllocateSizesEveryLayoutAndOneBitStaysPacked) {
  struct Row {
    TIEPixelFormat f;
    int bits;
    size_t row_len_for_13;
  };
  const Row table[] = {{TIEPixelFormat::ie1g, 1, 2},      {TIEPixelFormat::ie8g, 8, 13},
                       {TIEPixelFormat::ie8p, 8, 13},     {TIEPixelFormat::ie16g, 16, 26},
                       {TIEPixelFormat::ie24RGB, 24, 39}, {TIEPixelFormat::ie48RGB, 48, 78},
                       {TIEPixelFormat::ieCMYK, 32, 52}};
  for (const Row& r : table) {
    TIEBitmap b;
    ASSERT_TRUE(b.Allocate(13, 5, r.f).ok()) << LayoutName(r.f);
    EXPECT_EQ(b.BitsPerPixel(), r.bits);
    EXPECT_EQ(b.RowLen(), r.row_len_for_13) << LayoutName(r.f);
    // Zeroed memory: black, or no ink at all for CMYK.
    const TRGB zero = r.f == TIEPixelFormat::ieCMYK ? TRGB{255, 255, 255} : TRGB{0, 0, 0};
    EXPECT_EQ(b.GetPixels(12, 4), zero) << LayoutName(r.f);
    EXPECT_FALSE(b.HasAlphaChannel());
  }
  // A white 1-bit pixel is the most significant bit of its byte.
  TIEBitmap bw;
  ASSERT_TRUE(bw.Allocate(9, 1, TIEPixelFormat::ie1g).ok());
  bw.SetPixel(0, 0, TRGB{255, 255, 255});
  bw.SetPixel(8, 0, TRGB{255, 255, 255});
  EXPECT_EQ(bw.Scanline(0)[0], 0x80);
  EXPECT_EQ(bw.Scanline(0)[1], 0x80);
  EXPECT_TRUE(bw.GetPixels_ie1g(8, 0));
  EXPECT_FALSE(bw.GetPixels_ie1g(7, 0));
}

TEST(Bitmap, OversizedOrInvalidSizesAreRefusedWithoutAllocating) {
  TIEBitmap b;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(b.Allocate(kMaxBitmapSide + 1, 1, TIEPixelFormat::ie8g).ok());
  EXPECT_FALSE(b.Allocate(1, kMaxBitmapSide + 1, TIEPixelFormat::ie8g).ok());
  // Each side is allowed, the product is not: 2^40 pixels would be terabytes.
  EXPECT_FALSE(b.Allocate(kMaxBitmapSide, kMaxBitmapSide, TIEPixelFormat::ie48RGB).ok());
  EXPECT_FALSE(b.Allocate(70000, 40000, TIEPixelFormat::ie24RGB).ok());
  EXPECT_FALSE(b.Allocate(-5, 10, TIEPixelFormat::ie24RGB).ok());
  EXPECT_FALSE(b.Allocate(0, 10, TIEPixelFormat::ie24RGB).ok());
  EXPECT_FALSE(b.Allocate(10, 10, TIEPixelFormat::ieNull).ok());
  EXPECT_TRUE(b.IsEmpty());
  EXPECT_EQ(b.Width(), 0);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(1));
  // A failed allocation empties a bitmap that held pixels.
  ASSERT_TRUE(b.Allocate(4, 4, TIEPixelFormat::ie24RGB).ok());
  EXPECT_FALSE(b.Allocate(kMaxBitmapSide, kMaxBitmapSide, TIEPixelFormat::ie24RGB).ok());
  EXPECT_TRUE(b.IsEmpty());
  ASSERT_TRUE(b.Allocate(4, 4, TIEPixelFormat::ie24RGB).ok());
  EXPECT_FALSE(b.Resample(kMaxBitmapSide, kMaxBitmapSide).ok());
  EXPECT_EQ(b.Width(), 4);  // a refused resample keeps the pixels
}

TEST(Bitmap, FillReadsBackInEveryLayout) {
  const TRGB c{200, 100, 50};
  const int luma = LumaRef(c);  // 124
  for (TIEPixelFormat f : kAllLayouts) {
    TIEBitmap b;
    ASSERT_TRUE(b.Allocate(7, 3, f).ok());
    if (f == TIEPixelFormat::ie8p) b.Palette() = {TRGB{0, 0, 0}, TRGB{255, 255, 255}, c};
    b.Fill(RGBToTColor(c));
    const TRGB got = b.GetPixels(6, 2);
    switch (f) {
      case TIEPixelFormat::ie1g:
        EXPECT_EQ(got, (TRGB{0, 0, 0}));
        break;  // luma below 128
      case TIEPixelFormat::ie8g:
      case TIEPixelFormat::ie16g:
        EXPECT_NEAR(got.r, luma, 1) << LayoutName(f);
        EXPECT_EQ(got.r, got.g);
        break;
      case TIEPixelFormat::ie8p:
        EXPECT_EQ(b.GetPixels_ie8(6, 2), 2);
        EXPECT_EQ(got, c);
        break;
      case TIEPixelFormat::ieCMYK:
        EXPECT_LE(MaxChannelDiff(got, c), 1);
        break;
      default:
        EXPECT_EQ(got, c) << LayoutName(f);
    }
  }
  // FillRect clips and leaves the rest alone, also for packed bits.
  TIEBitmap bw;
  ASSERT_TRUE(bw.Allocate(20, 4, TIEPixelFormat::ie1g).ok());
  bw.FillRect(5, -3, 100, 5, 0xFFFFFF);
  for (int x = 0; x < 20; ++x) {
    EXPECT_EQ(bw.GetPixels_ie1g(x, 1), x >= 5) << x;
    EXPECT_FALSE(bw.GetPixels_ie1g(x, 2));
  }
}

TEST(Bitmap, ConvertToKeepsValuesBetweenLayouts) {
  const TIEBitmap grad = ColourGradient(32, 8);  // 256 distinct colours
  for (TIEPixelFormat f : kAllLayouts) {
    TIEBitmap b = grad;
    ASSERT_TRUE(b.ConvertTo(f).ok()) << LayoutName(f);
    EXPECT_EQ(b.PixelFormat(), f);
    ASSERT_TRUE(b.ConvertTo(TIEPixelFormat::ie24RGB).ok());
    for (int y = 0; y < 8; ++y)
      for (int x = 0; x < 32; ++x) {
        const TRGB src = grad.GetPixels(x, y), got = b.GetPixels(x, y);
        const int l = LumaRef(src);
        switch (f) {
          case TIEPixelFormat::ie1g:
            ASSERT_EQ(got.r, l >= 128 ? 255 : 0);
            break;
          case TIEPixelFormat::ie8g:
          case TIEPixelFormat::ie16g:
            ASSERT_NEAR(got.r, l, 1) << LayoutName(f);
            break;
          case TIEPixelFormat::ieCMYK:
            ASSERT_LE(MaxChannelDiff(got, src), 1);
            break;
          default:
            ASSERT_EQ(got, src) << LayoutName(f) << " at " << x << "," << y;
        }
      }
  }
  // 16-bit precision survives grey <-> RGB at 16 bits.
  TIEBitmap deep;
  ASSERT_TRUE(deep.Allocate(2, 1, TIEPixelFormat::ie48RGB).ok());
  auto* p = reinterpret_cast<uint16_t*>(deep.Scanline(0));
  p[0] = p[1] = p[2] = 4660;
  ASSERT_TRUE(deep.ConvertTo(TIEPixelFormat::ie16g).ok());
  EXPECT_EQ(reinterpret_cast<uint16_t*>(deep.Scanline(0))[0], 4660);
  ASSERT_TRUE(deep.ConvertTo(TIEPixelFormat::ie48RGB).ok());
  EXPECT_EQ(reinterpret_cast<uint16_t*>(deep.Scanline(0))[2], 4660);
  // A palette conversion of a many-coloured image still gives a usable palette.
  TIEBitmap many = ColourGradient(64, 64);
  ASSERT_TRUE(many.ConvertTo(TIEPixelFormat::ie8p).ok());
  EXPECT_LE(many.Palette().size(), 256u);
  EXPECT_LE(MaxChannelDiff(many.GetPixels(40, 20), ColourGradient(64, 64).GetPixels(40, 20)), 12);
}

TEST(Bitmap, AlphaCompositesOntoBackground) {
  TIEBitmap b = testing::Make24(3, 1);
  b.SetPixels_ie24RGB(0, 0, TRGB{0, 0, 0});
  b.SetPixels_ie24RGB(1, 0, TRGB{255, 0, 0});
  b.SetPixels_ie24RGB(2, 0, TRGB{10, 20, 30});
  EXPECT_EQ(b.GetAlpha(0, 0), 255);  // no plane: opaque
  b.SetAlpha(0, 0, 128);
  b.SetAlpha(1, 0, 0);
  EXPECT_TRUE(b.HasAlphaChannel());
  EXPECT_EQ(b.GetAlpha(2, 0), 255);
  b.RemoveAlphaChannel(0xFFFFFF);
  EXPECT_FALSE(b.HasAlphaChannel());
  // black at 128/255 over white: 255 * 127 / 255
  EXPECT_NEAR(b.GetPixels(0, 0).r, 127, 1);
  EXPECT_EQ(b.GetPixels(1, 0), (TRGB{255, 255, 255}));
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{10, 20, 30}));

  // A grey image composited onto a colour becomes RGB; a palette image too.
  for (TIEPixelFormat f : {TIEPixelFormat::ie8g, TIEPixelFormat::ie8p, TIEPixelFormat::ie1g}) {
    TIEBitmap g;
    ASSERT_TRUE(g.Allocate(2, 2, f).ok());
    g.Fill(0x000000);
    g.AddAlphaChannel(0);
    g.RemoveAlphaChannel(0x0000FF);  // red
    EXPECT_EQ(g.PixelFormat(), TIEPixelFormat::ie24RGB) << LayoutName(f);
    EXPECT_EQ(g.GetPixels(1, 1), (TRGB{255, 0, 0})) << LayoutName(f);
  }
  // 48-bit blends at 16 bits; CMYK blends in ink.
  TIEBitmap deep;
  ASSERT_TRUE(deep.Allocate(1, 1, TIEPixelFormat::ie48RGB).ok());
  deep.AddAlphaChannel(51);  // 20%
  deep.RemoveAlphaChannel(0xFFFFFF);
  EXPECT_NEAR(reinterpret_cast<uint16_t*>(deep.Scanline(0))[0], 65535 * 0.8, 2);
  TIEBitmap cmyk;
  ASSERT_TRUE(cmyk.Allocate(1, 1, TIEPixelFormat::ieCMYK).ok());
  cmyk.Fill(0x000000);
  cmyk.AddAlphaChannel(0);
  cmyk.RemoveAlphaChannel(0xFFFFFF);
  EXPECT_EQ(cmyk.GetPixels(0, 0), (TRGB{255, 255, 255}));
}

TEST(Bitmap, CopyRectClipsAndConverts) {
  const TIEBitmap src = ColourGradient(16, 16);
  TIEBitmap dst = testing::Make24(10, 10);
  dst.Fill(0xFFFFFF);
  src.CopyRectTo(dst, -2, 3, 5, 5, 8, 100);  // clipped on the left of src and the bottom of dst
  EXPECT_EQ(dst.GetPixels(6, 5), (TRGB{255, 255, 255}));
  EXPECT_EQ(dst.GetPixels(7, 5), src.GetPixels(0, 3));
  EXPECT_EQ(dst.GetPixels(9, 9), src.GetPixels(2, 7));
  EXPECT_EQ(dst.GetPixels(4, 9), (TRGB{255, 255, 255}));

  TIEBitmap grey;
  ASSERT_TRUE(grey.Allocate(4, 4, TIEPixelFormat::ie8g).ok());
  TIEBitmap with_alpha = src;
  with_alpha.SetAlpha(1, 1, 77);
  with_alpha.CopyRectTo(grey, 0, 0, 0, 0, 4, 4);
  EXPECT_NEAR(grey.GetPixels_ie8(3, 2), LumaRef(src.GetPixels(3, 2)), 1);
  EXPECT_EQ(grey.GetAlpha(1, 1), 77);

  TIEBitmap bw;
  ASSERT_TRUE(bw.Allocate(12, 2, TIEPixelFormat::ie1g).ok());
  bw.SetPixel(3, 0, TRGB{255, 255, 255});
  TIEBitmap bw2;
  ASSERT_TRUE(bw2.Allocate(12, 2, TIEPixelFormat::ie1g).ok());
  bw.CopyRectTo(bw2, 3, 0, 9, 1, 3, 1);
  EXPECT_TRUE(bw2.GetPixels_ie1g(9, 1));
  EXPECT_FALSE(bw2.GetPixels_ie1g(10, 1));

  TIEBitmap crop = src;
  ASSERT_TRUE(crop.Crop(4, 5, 6, 100).ok());
  EXPECT_EQ(crop.Width(), 6);
  EXPECT_EQ(crop.Height(), 11);
  EXPECT_EQ(crop.GetPixels(0, 0), src.GetPixels(4, 5));
  EXPECT_FALSE(crop.Crop(50, 50, 2, 2).ok());
  EXPECT_EQ(crop.Width(), 6);
}

TEST(Bitmap, IsGrayScaleLooksAtThePixels) {
  TIEBitmap b = testing::Make24(4, 4);
  b.Fill(0x808080);
  EXPECT_TRUE(b.IsGrayScale());
  b.SetPixels_ie24RGB(3, 3, TRGB{128, 128, 129});
  EXPECT_FALSE(b.IsGrayScale());
  TIEBitmap p;
  ASSERT_TRUE(p.Allocate(2, 2, TIEPixelFormat::ie8p).ok());
  p.Palette() = {TRGB{5, 5, 5}, TRGB{255, 0, 0}};
  EXPECT_TRUE(p.IsGrayScale());  // the red entry is not used
  p.Scanline(1)[1] = 1;
  EXPECT_FALSE(p.IsGrayScale());
  TIEBitmap g;
  ASSERT_TRUE(g.Allocate(2, 2, TIEPixelFormat::ie16g).ok());
  EXPECT_TRUE(g.IsGrayScale());
  TIEBitmap c;
  ASSERT_TRUE(c.Allocate(2, 2, TIEPixelFormat::ieCMYK).ok());
  c.Fill(0x0000FF);
  EXPECT_FALSE(c.IsGrayScale());
}

}  // namespace
}  // namespace pictavo::imaging
