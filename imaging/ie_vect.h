// TImageEnVect: a list of simple shapes drawn onto a bound bitmap.
//
// Objects are kept until RemoveAllObjects and drawn, in the order added, by
// DrawObjectsToBitmap. Geometry is in pixels: a box or an ellipse fills the rectangle
// (left, top, width, height); a line runs from (left, top) to (left + width, top + height)
// (width and height may be negative); a point is a dot of the pen width centred on
// (left, top). Line ends and points name pixels (their centres); the outline of a box or an
// ellipse lies inside its rectangle, so a 1-pixel pen on whole coordinates stays crisp. Dashes
// repeat along the outline in lengths proportional to the pen width. With antialiasing on (the
// default) edges get partial coverage; off, a pixel is painted when its centre is covered.
// Drawing needs an RGB bitmap: ie24RGB and ie48RGB are drawn on directly, other layouts are
// converted to ie24RGB first. Where the bitmap has an alpha plane, painted pixels become
// opaque in proportion to their coverage. The bitmap must outlive the object.
#pragma once

#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging {

enum class TIEVObjectKind { iekNONE, iekPOINT, iekLINE, iekBOX, iekELLIPSE };
enum class TPenStyle { psSolid, psDash, psDot, psDashDot, psDashDotDot, psClear };
enum class TBrushStyle {
  bsSolid,
  bsClear,
  bsHorizontal,
  bsVertical,
  bsFDiagonal,
  bsBDiagonal,
  bsCross,
  bsDiagCross
};

using TIEVObject = int;  // handle returned by AddNewObject

class TImageEnVect {
 public:
  explicit TImageEnVect(TIEBitmap* bitmap = nullptr) : bitmap_(bitmap) {}
  void AttachBitmap(TIEBitmap* bitmap) { bitmap_ = bitmap; }

  // A new object: kind iekNONE, 0 size, black 1-pixel solid pen, clear brush.
  TIEVObject AddNewObject();
  int ObjectsCount() const { return static_cast<int>(objects_.size()); }
  void RemoveAllObjects() { objects_.clear(); }

  // Setters ignore an unknown handle.
  void SetObjKind(TIEVObject obj, TIEVObjectKind kind);
  void SetObjLeft(TIEVObject obj, int left);
  void SetObjTop(TIEVObject obj, int top);
  void SetObjWidth(TIEVObject obj, int width);
  void SetObjHeight(TIEVObject obj, int height);
  void SetObjPenColor(TIEVObject obj, TColor color);
  void SetObjPenStyle(TIEVObject obj, TPenStyle style);
  void SetObjPenWidth(TIEVObject obj, int width);
  void SetObjBrushColor(TIEVObject obj, TColor color);
  void SetObjBrushStyle(TIEVObject obj, TBrushStyle style);

  void SetAntialias(bool on) { antialias_ = on; }
  bool Antialias() const { return antialias_; }

  pictavo::Status DrawObjectsToBitmap();

 private:
  struct Object {
    TIEVObjectKind kind = TIEVObjectKind::iekNONE;
    int left = 0, top = 0, width = 0, height = 0;
    TColor pen_color = 0;
    TPenStyle pen_style = TPenStyle::psSolid;
    int pen_width = 1;
    TColor brush_color = 0xFFFFFF;
    TBrushStyle brush_style = TBrushStyle::bsClear;
  };
  Object* Find(TIEVObject obj);

  TIEBitmap* bitmap_ = nullptr;
  std::vector<Object> objects_;
  bool antialias_ = true;
};

}  // namespace pictavo::imaging
