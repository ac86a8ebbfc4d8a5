#include <cmath>

#include <gtest/gtest.h>

#include "imaging/ie_vect.h"
#include "test_bitmap_helpers.h"

namespace pictavo::imaging {
namespace {

constexpr TRGB kWhite{255, 255, 255};
constexpr TRGB kBlack{0, 0, 0};

TIEBitmap WhiteCanvas(int w, int h) {
  TIEBitmap b = testing::Make24(w, h);
  b.Fill(0xFFFFFF);
  return b;
}

TIEVObject AddShape(TImageEnVect& v, TIEVObjectKind kind, int l, int t, int w, int h) {
  const TIEVObject o = v.AddNewObject();
  v.SetObjKind(o, kind);
  v.SetObjLeft(o, l);
  v.SetObjTop(o, t);
  v.SetObjWidth(o, w);
  v.SetObjHeight(o, h);
  return o;
}

// Sum of "ink" (darkness of the red channel) over the bitmap, in pixels.
double Ink(const TIEBitmap& b) {
  double s = 0;
  for (int y = 0; y < b.Height(); ++y)
    for (int x = 0; x < b.Width(); ++x) s += (255 - b.GetPixels(x, y).r) / 255.0;
  return s;
}

TEST(Vect, BoxFillAndOutlineCoverExactPixels) {
  TIEBitmap b = WhiteCanvas(40, 40);
  TImageEnVect v(&b);
  const TIEVObject o = AddShape(v, TIEVObjectKind::iekBOX, 10, 10, 20, 10);
  v.SetObjPenStyle(o, TPenStyle::psClear);
  v.SetObjBrushStyle(o, TBrushStyle::bsSolid);
  v.SetObjBrushColor(o, 0x0000FF);
  ASSERT_TRUE(v.DrawObjectsToBitmap().ok());
  int red = 0;
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 40; ++x) {
      const TRGB c = b.GetPixels(x, y);
      const bool inside = x >= 10 && x < 30 && y >= 10 && y < 20;
      ASSERT_EQ(c, (inside ? TRGB{255, 0, 0} : kWhite)) << x << "," << y;
      red += inside;
    }
  EXPECT_EQ(red, 200);

  TIEBitmap o2 = WhiteCanvas(40, 40);
  TImageEnVect v2(&o2);
  const TIEVObject box = AddShape(v2, TIEVObjectKind::iekBOX, 5, 5, 20, 20);
  v2.SetObjPenWidth(box, 2);
  ASSERT_TRUE(v2.DrawObjectsToBitmap().ok());
  EXPECT_EQ(o2.GetPixels(5, 15), kBlack);
  EXPECT_EQ(o2.GetPixels(6, 15), kBlack);
  EXPECT_EQ(o2.GetPixels(7, 15), kWhite);
  EXPECT_EQ(o2.GetPixels(24, 15), kBlack);
  EXPECT_EQ(o2.GetPixels(25, 15), kWhite);
  EXPECT_EQ(o2.GetPixels(15, 15), kWhite);  // clear brush
  EXPECT_DOUBLE_EQ(Ink(o2), 20 * 20 - 16 * 16);
  // Nothing new is drawn once the objects are removed.
  v2.RemoveAllObjects();
  EXPECT_EQ(v2.ObjectsCount(), 0);
  o2.FillRect(15, 15, 1, 1, 0x00FF00);
  ASSERT_TRUE(v2.DrawObjectsToBitmap().ok());
  EXPECT_EQ(o2.GetPixels(15, 15), (TRGB{0, 255, 0}));
}

TEST(Vect, LinesArePenWideAndAntialiasedOnDemand) {
  TIEBitmap b = WhiteCanvas(50, 50);
  TImageEnVect v(&b);
  AddShape(v, TIEVObjectKind::iekLINE, 5, 20, 30, 0);
  ASSERT_TRUE(v.DrawObjectsToBitmap().ok());
  for (int x = 0; x < 50; ++x) {
    ASSERT_EQ(b.GetPixels(x, 20), (x >= 5 && x <= 35) ? kBlack : kWhite) << x;
    ASSERT_EQ(b.GetPixels(x, 19), kWhite);
  }
  // A diagonal: partial coverage with antialiasing, none without; ink about length x width.
  for (bool aa : {true, false}) {
    TIEBitmap d = WhiteCanvas(60, 60);
    TImageEnVect dv(&d);
    dv.SetAntialias(aa);
    const TIEVObject o = AddShape(dv, TIEVObjectKind::iekLINE, 10, 10, 30, 40);
    dv.SetObjPenWidth(o, 3);
    ASSERT_TRUE(dv.DrawObjectsToBitmap().ok());
    int partial = 0;
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 60; ++x) {
        const int r = d.GetPixels(x, y).r;
        partial += r > 0 && r < 255;
      }
    if (aa)
      EXPECT_GT(partial, 40);
    else
      EXPECT_EQ(partial, 0);
    // length 50 and width 3, plus round caps of area pi * 1.5^2
    EXPECT_NEAR(Ink(d), 50 * 3 + 3.14159 * 2.25, 8.0) << aa;
  }
  // Dashes leave gaps along the line, the solid line none.
  TIEBitmap dash = WhiteCanvas(60, 10);
  TImageEnVect dashv(&dash);
  const TIEVObject dl = AddShape(dashv, TIEVObjectKind::iekLINE, 0, 5, 59, 0);
  dashv.SetObjPenStyle(dl, TPenStyle::psDash);
  ASSERT_TRUE(dashv.DrawObjectsToBitmap().ok());
  int inked = 0;
  for (int x = 0; x < 60; ++x) inked += dash.GetPixels(x, 5).r < 128;
  EXPECT_GT(inked, 30);
  EXPECT_LT(inked, 50);
}

TEST(Vect, EllipseAndPointMatchTheirArea) {
  TIEBitmap b = WhiteCanvas(80, 60);
  TImageEnVect v(&b);
  const TIEVObject e = AddShape(v, TIEVObjectKind::iekELLIPSE, 10, 10, 50, 30);
  v.SetObjPenStyle(e, TPenStyle::psClear);
  v.SetObjBrushStyle(e, TBrushStyle::bsSolid);
  v.SetObjBrushColor(e, 0x000000);
  ASSERT_TRUE(v.DrawObjectsToBitmap().ok());
  EXPECT_NEAR(Ink(b), 3.14159265 * 25 * 15, 3.14159265 * 25 * 15 * 0.01);
  EXPECT_EQ(b.GetPixels(35, 25), kBlack);
  EXPECT_EQ(b.GetPixels(11, 11), kWhite);  // the rectangle's corner is outside

  // Outline only: a ring inside the rectangle, the centre untouched.
  TIEBitmap r = WhiteCanvas(80, 60);
  TImageEnVect rv(&r);
  const TIEVObject ring = AddShape(rv, TIEVObjectKind::iekELLIPSE, 10, 10, 50, 30);
  rv.SetObjPenWidth(ring, 2);
  ASSERT_TRUE(rv.DrawObjectsToBitmap().ok());
  EXPECT_EQ(r.GetPixels(35, 25), kWhite);
  EXPECT_LT(r.GetPixels(10, 25).r, 128);
  EXPECT_EQ(r.GetPixels(8, 25), kWhite);
  const double ring_area = 3.14159265 * (25 * 15 - 23 * 13);
  EXPECT_NEAR(Ink(r), ring_area, ring_area * 0.08);

  TIEBitmap p = WhiteCanvas(10, 10);
  TImageEnVect pv(&p);
  const TIEVObject dot = AddShape(pv, TIEVObjectKind::iekPOINT, 4, 6, 0, 0);
  pv.SetObjPenColor(dot, 0xFF0000);  // blue
  ASSERT_TRUE(pv.DrawObjectsToBitmap().ok());
  EXPECT_EQ(p.GetPixels(4, 6), (TRGB{0, 0, 255}));
  EXPECT_EQ(p.GetPixels(5, 6), kWhite);
  EXPECT_EQ(p.GetPixels(4, 7), kWhite);
}

TEST(Vect, HatchBrushLayoutsAndAlpha) {
  TIEBitmap b = WhiteCanvas(32, 32);
  TImageEnVect v(&b);
  const TIEVObject o = AddShape(v, TIEVObjectKind::iekBOX, 0, 0, 32, 32);
  v.SetObjPenStyle(o, TPenStyle::psClear);
  v.SetObjBrushStyle(o, TBrushStyle::bsHorizontal);
  v.SetObjBrushColor(o, 0x000000);
  ASSERT_TRUE(v.DrawObjectsToBitmap().ok());
  for (int y = 0; y < 32; ++y) ASSERT_EQ(b.GetPixels(13, y), y % 8 == 0 ? kBlack : kWhite) << y;

  // A grey or bilevel bitmap becomes RGB so the colours survive.
  for (TIEPixelFormat f : {TIEPixelFormat::ie8g, TIEPixelFormat::ie1g, TIEPixelFormat::ie8p}) {
    TIEBitmap g;
    ASSERT_TRUE(g.Allocate(10, 10, f).ok());
    TImageEnVect gv(&g);
    const TIEVObject d = AddShape(gv, TIEVObjectKind::iekPOINT, 2, 2, 0, 0);
    gv.SetObjPenColor(d, 0x00FF00);
    ASSERT_TRUE(gv.DrawObjectsToBitmap().ok());
    EXPECT_EQ(g.PixelFormat(), TIEPixelFormat::ie24RGB);
    EXPECT_EQ(g.GetPixels(2, 2), (TRGB{0, 255, 0})) << testing::LayoutName(f);
  }
  // 48-bit stays 48-bit; painting on a transparent area makes it opaque.
  TIEBitmap deep;
  ASSERT_TRUE(deep.Allocate(10, 10, TIEPixelFormat::ie48RGB).ok());
  deep.AddAlphaChannel(0);
  TImageEnVect dv(&deep);
  const TIEVObject box = AddShape(dv, TIEVObjectKind::iekBOX, 2, 2, 4, 4);
  dv.SetObjPenColor(box, 0xFFFFFF);
  ASSERT_TRUE(dv.DrawObjectsToBitmap().ok());
  EXPECT_EQ(deep.PixelFormat(), TIEPixelFormat::ie48RGB);
  EXPECT_EQ(reinterpret_cast<uint16_t*>(deep.Scanline(2))[3 * 2], 65535);
  EXPECT_EQ(deep.GetAlpha(2, 2), 255);
  EXPECT_EQ(deep.GetAlpha(4, 4), 0);

  // Shapes far outside the bitmap are clipped without overflow.
  TIEBitmap far = WhiteCanvas(8, 8);
  TImageEnVect fv(&far);
  const TIEVObject huge =
      AddShape(fv, TIEVObjectKind::iekBOX, 2000000000, -2000000000, 2000000000, 2000000000);
  fv.SetObjBrushStyle(huge, TBrushStyle::bsSolid);
  AddShape(fv, TIEVObjectKind::iekELLIPSE, -2000000000, 4, 2000000000, 3);
  ASSERT_TRUE(fv.DrawObjectsToBitmap().ok());
  EXPECT_EQ(far.GetPixels(7, 7), kWhite);

  TImageEnVect unbound;
  EXPECT_FALSE(unbound.DrawObjectsToBitmap().ok());
}

}  // namespace
}  // namespace pictavo::imaging
