// Drawing of points, lines, rectangles and ellipses through the engine's vector layer.
//
// Integer values, in the order of the action line (flags taken out):
//   point      x, y, size, R, G, B, shape (0 round, 1 square)          flag: antialias
//   line       x1, y1, x2, y2, width, R, G, B, style (0 solid, 1 dash, 2 dot, 3 dash-dot)
//   rectangle  x, y, width, height, pen width, pen R, G, B, fill R, G, B   flags: fill, outline
//   ellipse    as rectangle
// The trailing defaults are the fill colour used when a fill is asked without colour values and
// the antialiasing switch for shapes without an antialias flag.
#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "imaging/ie_vect.h"

namespace pictavo::editing {

using imaging::TBrushStyle;
using imaging::TIEVObjectKind;
using imaging::TImageEnVect;
using imaging::TPenStyle;

int action_draw(TIEBitmap& bmp, ShapeKind kind, const int* v, int n, bool flag1, bool flag2, int dr,
                int dg, int db, int antialias) {
  if (bmp.IsEmpty()) return 1;
  TImageEnVect vect(&bmp);
  const imaging::TIEVObject o = vect.AddNewObject();
  vect.SetAntialias(antialias == 1);
  switch (kind) {
    case ShapeKind::kPoint: {
      if (n != 7 || v[2] < 1) return 1;
      vect.SetAntialias(flag1);
      const imaging::TColor c = ColorOf(v[3], v[4], v[5]);
      if (v[6] == 1) {  // a square dot is a filled box centred on the point
        vect.SetObjKind(o, TIEVObjectKind::iekBOX);
        vect.SetObjLeft(o, v[0] - v[2] / 2);
        vect.SetObjTop(o, v[1] - v[2] / 2);
        vect.SetObjWidth(o, v[2]);
        vect.SetObjHeight(o, v[2]);
        vect.SetObjPenStyle(o, TPenStyle::psClear);
        vect.SetObjBrushStyle(o, TBrushStyle::bsSolid);
        vect.SetObjBrushColor(o, c);
      } else {
        vect.SetObjKind(o, TIEVObjectKind::iekPOINT);
        vect.SetObjLeft(o, v[0]);
        vect.SetObjTop(o, v[1]);
        vect.SetObjPenWidth(o, v[2]);
        vect.SetObjPenColor(o, c);
      }
      break;
    }
    case ShapeKind::kLine: {
      if (n != 9 || v[4] < 1 || v[8] < 0 || v[8] > 3) return 1;
      static constexpr TPenStyle kStyles[] = {TPenStyle::psSolid, TPenStyle::psDash,
                                              TPenStyle::psDot, TPenStyle::psDashDot};
      vect.SetObjKind(o, TIEVObjectKind::iekLINE);
      vect.SetObjLeft(o, v[0]);
      vect.SetObjTop(o, v[1]);
      vect.SetObjWidth(o, v[2] - v[0]);
      vect.SetObjHeight(o, v[3] - v[1]);
      vect.SetObjPenWidth(o, v[4]);
      vect.SetObjPenColor(o, ColorOf(v[5], v[6], v[7]));
      vect.SetObjPenStyle(o, kStyles[v[8]]);
      break;
    }
    case ShapeKind::kRectangle:
    case ShapeKind::kEllipse: {
      if (n != 11 || v[2] <= 0 || v[3] <= 0) return 1;
      const bool fill = flag1, outline = flag2;
      if (!fill && !outline) return 1;  // nothing would be drawn
      vect.SetObjKind(
          o, kind == ShapeKind::kRectangle ? TIEVObjectKind::iekBOX : TIEVObjectKind::iekELLIPSE);
      vect.SetObjLeft(o, v[0]);
      vect.SetObjTop(o, v[1]);
      vect.SetObjWidth(o, v[2]);
      vect.SetObjHeight(o, v[3]);
      vect.SetObjPenWidth(o, std::max(1, v[4]));
      vect.SetObjPenColor(o, ColorOf(v[5], v[6], v[7]));
      vect.SetObjPenStyle(o, outline ? TPenStyle::psSolid : TPenStyle::psClear);
      vect.SetObjBrushStyle(o, fill ? TBrushStyle::bsSolid : TBrushStyle::bsClear);
      vect.SetObjBrushColor(o, fill ? ColorOf(v[8], v[9], v[10]) : ColorOf(dr, dg, db));
      break;
    }
  }
  const bool ok = vect.DrawObjectsToBitmap().ok();
  vect.RemoveAllObjects();
  return ok ? 0 : 1;
}

}  // namespace pictavo::editing
