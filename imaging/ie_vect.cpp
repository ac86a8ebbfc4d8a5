#include "imaging/ie_vect.h"

#include <algorithm>
#include <cmath>
#include <vector>

namespace pictavo::imaging {

namespace {

constexpr double kPi = 3.14159265358979323846;

// Blends colour c over pixel (x, y) with coverage a (0..1); also raises the alpha plane.
void BlendPixel(TIEBitmap& b, int x, int y, TRGB c, double a) {
  if (a <= 0) return;
  a = std::min(a, 1.0);
  if (b.PixelFormat() == TIEPixelFormat::ie48RGB) {
    auto* p = reinterpret_cast<uint16_t*>(b.Scanline(y)) + 3 * x;
    const int v[3] = {c.r * 257, c.g * 257, c.b * 257};
    for (int k = 0; k < 3; ++k) p[k] = static_cast<uint16_t>(std::lround(p[k] + (v[k] - p[k]) * a));
  } else {
    uint8_t* p = b.Scanline(y) + 3 * x;
    const int v[3] = {c.r, c.g, c.b};
    for (int k = 0; k < 3; ++k) p[k] = static_cast<uint8_t>(std::lround(p[k] + (v[k] - p[k]) * a));
  }
  if (b.HasAlphaChannel()) {
    uint8_t& al = b.AlphaScanline(y)[x];
    al = static_cast<uint8_t>(std::lround(al + (255 - al) * a));
  }
}

// Calls cover(px, py) for pixel centres in the clipped box and blends the result.
template <typename Cover>
void Paint(TIEBitmap& b, double x0, double y0, double x1, double y1, TRGB c, bool aa, Cover cover) {
  // Clamped as doubles first: shapes far outside the bitmap must not overflow an int.
  const int ix0 = static_cast<int>(std::clamp(std::floor(x0), 0.0, double(b.Width())));
  const int iy0 = static_cast<int>(std::clamp(std::floor(y0), 0.0, double(b.Height())));
  const int ix1 = static_cast<int>(std::clamp(std::ceil(x1), -1.0, double(b.Width() - 1)));
  const int iy1 = static_cast<int>(std::clamp(std::ceil(y1), -1.0, double(b.Height() - 1)));
  for (int y = iy0; y <= iy1; ++y)
    for (int x = ix0; x <= ix1; ++x) {
      double a = cover(x, y);
      if (!aa) a = a >= 0.5 ? 1.0 : 0.0;
      BlendPixel(b, x, y, c, a);
    }
}

// On/off run lengths in pen widths; empty for a solid pen.
std::vector<double> DashPattern(TPenStyle style) {
  switch (style) {
    case TPenStyle::psDash:
      return {4, 2};
    case TPenStyle::psDot:
      return {1, 1};
    case TPenStyle::psDashDot:
      return {4, 2, 1, 2};
    case TPenStyle::psDashDotDot:
      return {4, 2, 1, 2, 1, 2};
    default:
      return {};
  }
}

bool DashOn(const std::vector<double>& pattern, double unit, double pos) {
  if (pattern.empty()) return true;
  double period = 0;
  for (double v : pattern) period += v * unit;
  double t = std::fmod(pos, period);
  if (t < 0) t += period;
  for (size_t i = 0; i < pattern.size(); ++i) {
    t -= pattern[i] * unit;
    if (t < 0) return i % 2 == 0;
  }
  return false;
}

bool HatchOn(TBrushStyle style, int x, int y) {
  constexpr int kStep = 8;
  const bool h = y % kStep == 0, v = x % kStep == 0;
  const bool f = ((x - y) % kStep + kStep) % kStep == 0, bd = (x + y) % kStep == 0;
  switch (style) {
    case TBrushStyle::bsSolid:
      return true;
    case TBrushStyle::bsHorizontal:
      return h;
    case TBrushStyle::bsVertical:
      return v;
    case TBrushStyle::bsFDiagonal:
      return f;
    case TBrushStyle::bsBDiagonal:
      return bd;
    case TBrushStyle::bsCross:
      return h || v;
    case TBrushStyle::bsDiagCross:
      return f || bd;
    case TBrushStyle::bsClear:
      return false;
  }
  return false;
}

// Area of pixel (x, y) inside the rectangle [l, r] x [t, b].
double RectArea(int x, int y, double l, double t, double r, double b) {
  if (r <= l || b <= t) return 0;
  const double ox = std::max(0.0, std::min(x + 1.0, r) - std::max<double>(x, l));
  const double oy = std::max(0.0, std::min(y + 1.0, b) - std::max<double>(y, t));
  return ox * oy;
}

// How much of pixel (x, y) the outline of the box (l, t)-(r, b) covers, `pw` wide and dashed
// along its centre line.
double BoxPenCoverage(int x, int y, double l, double t, double r, double b, double pw,
                      const std::vector<double>& dash) {
  const double cov = RectArea(x, y, l, t, r, b) - RectArea(x, y, l + pw, t + pw, r - pw, b - pw);
  if (cov <= 0 || dash.empty()) return cov;
  const double perim_w = r - l - pw, perim_h = b - t - pw;
  // Position along the pen's centre line, clockwise from the top-left corner.
  const double px = x + 0.5 - (l + pw / 2), py = y + 0.5 - (t + pw / 2);
  const double dt = std::fabs(py), dr = std::fabs(px - perim_w), db = std::fabs(py - perim_h),
               dl = std::fabs(px);
  const double m = std::min({dt, dr, db, dl});
  double pos;
  if (m == dt)
    pos = px;
  else if (m == dr)
    pos = perim_w + py;
  else if (m == db)
    pos = perim_w + perim_h + (perim_w - px);
  else
    pos = 2 * perim_w + perim_h + (perim_h - py);
  return DashOn(dash, pw, pos) ? cov : 0.0;
}

// Approximate signed distance from p to the ellipse of radii a, b centred at the origin.
double EllipseDistance(double px, double py, double a, double b) {
  const double g = px * px / (a * a) + py * py / (b * b) - 1.0;
  const double gx = 2 * px / (a * a), gy = 2 * py / (b * b);
  const double len = std::hypot(gx, gy);
  if (len < 1e-12) return -std::min(a, b);
  return g / len;
}

}  // namespace

TIEVObject TImageEnVect::AddNewObject() {
  objects_.emplace_back();
  return static_cast<TIEVObject>(objects_.size() - 1);
}

TImageEnVect::Object* TImageEnVect::Find(TIEVObject obj) {
  return obj >= 0 && obj < static_cast<int>(objects_.size()) ? &objects_[obj] : nullptr;
}

void TImageEnVect::SetObjKind(TIEVObject obj, TIEVObjectKind kind) {
  if (auto* o = Find(obj)) o->kind = kind;
}
void TImageEnVect::SetObjLeft(TIEVObject obj, int left) {
  if (auto* o = Find(obj)) o->left = left;
}
void TImageEnVect::SetObjTop(TIEVObject obj, int top) {
  if (auto* o = Find(obj)) o->top = top;
}
void TImageEnVect::SetObjWidth(TIEVObject obj, int width) {
  if (auto* o = Find(obj)) o->width = width;
}
void TImageEnVect::SetObjHeight(TIEVObject obj, int height) {
  if (auto* o = Find(obj)) o->height = height;
}
void TImageEnVect::SetObjPenColor(TIEVObject obj, TColor color) {
  if (auto* o = Find(obj)) o->pen_color = color;
}
void TImageEnVect::SetObjPenStyle(TIEVObject obj, TPenStyle style) {
  if (auto* o = Find(obj)) o->pen_style = style;
}
void TImageEnVect::SetObjPenWidth(TIEVObject obj, int width) {
  if (auto* o = Find(obj)) o->pen_width = std::max(1, width);
}
void TImageEnVect::SetObjBrushColor(TIEVObject obj, TColor color) {
  if (auto* o = Find(obj)) o->brush_color = color;
}
void TImageEnVect::SetObjBrushStyle(TIEVObject obj, TBrushStyle style) {
  if (auto* o = Find(obj)) o->brush_style = style;
}

pictavo::Status TImageEnVect::DrawObjectsToBitmap() {
  if (!bitmap_) return pictavo::Status::Error("no bitmap attached to the drawing");
  if (bitmap_->IsEmpty()) return pictavo::Status::Error("the bitmap is empty");
  TIEBitmap& b = *bitmap_;
  if (b.PixelFormat() != TIEPixelFormat::ie24RGB && b.PixelFormat() != TIEPixelFormat::ie48RGB)
    if (auto st = b.ConvertTo(TIEPixelFormat::ie24RGB); !st.ok()) return st;

  for (const Object& o : objects_) {
    const TRGB pen = TColorToRGB(o.pen_color), brush = TColorToRGB(o.brush_color);
    const double pw = std::max(1, o.pen_width);
    const bool stroke = o.pen_style != TPenStyle::psClear;
    const std::vector<double> dash = DashPattern(o.pen_style);
    switch (o.kind) {
      case TIEVObjectKind::iekNONE:
        break;
      case TIEVObjectKind::iekPOINT: {
        if (!stroke) break;
        const double cx = o.left + 0.5, cy = o.top + 0.5, r = pw / 2;
        Paint(b, cx - r - 1, cy - r - 1, cx + r + 1, cy + r + 1, pen, antialias_,
              [&](int x, int y) {
                const double d = std::hypot(x + 0.5 - cx, y + 0.5 - cy);
                return std::clamp(r + 0.5 - d, 0.0, 1.0);
              });
        break;
      }
      case TIEVObjectKind::iekLINE: {
        if (!stroke) break;
        const double x0 = o.left + 0.5, y0 = o.top + 0.5;
        const double x1 = x0 + o.width, y1 = y0 + o.height;
        const double dx = x1 - x0, dy = y1 - y0, len2 = dx * dx + dy * dy;
        const double r = pw / 2;
        Paint(b, std::min(x0, x1) - r - 1, std::min(y0, y1) - r - 1, std::max(x0, x1) + r + 1,
              std::max(y0, y1) + r + 1, pen, antialias_, [&](int x, int y) {
                const double px = x + 0.5 - x0, py = y + 0.5 - y0;
                const double t = len2 > 0 ? std::clamp((px * dx + py * dy) / len2, 0.0, 1.0) : 0.0;
                if (!DashOn(dash, pw, t * std::sqrt(len2))) return 0.0;
                const double d = std::hypot(px - t * dx, py - t * dy);
                return std::clamp(r + 0.5 - d, 0.0, 1.0);
              });
        break;
      }
      case TIEVObjectKind::iekBOX: {
        const double left = o.left, top = o.top, right = left + o.width, bottom = top + o.height;
        const double l = std::min(left, right), r = std::max(left, right);
        const double t = std::min(top, bottom), bt = std::max(top, bottom);
        if (o.brush_style != TBrushStyle::bsClear)
          Paint(b, l, t, r, bt, brush, antialias_, [&](int x, int y) {
            return HatchOn(o.brush_style, x, y) ? RectArea(x, y, l, t, r, bt) : 0.0;
          });
        if (stroke) {
          Paint(b, l, t, r, bt, pen, antialias_,
                [&](int x, int y) { return BoxPenCoverage(x, y, l, t, r, bt, pw, dash); });
        }
        break;
      }
      case TIEVObjectKind::iekELLIPSE: {
        const double a = std::fabs(o.width) / 2.0, e = std::fabs(o.height) / 2.0;
        if (a < 0.5 || e < 0.5) break;
        const double cx = std::min<double>(o.left, double(o.left) + o.width) + a;
        const double cy = std::min<double>(o.top, double(o.top) + o.height) + e;
        if (o.brush_style != TBrushStyle::bsClear)
          Paint(b, cx - a - 1, cy - e - 1, cx + a + 1, cy + e + 1, brush, antialias_,
                [&](int x, int y) {
                  if (!HatchOn(o.brush_style, x, y)) return 0.0;
                  return std::clamp(0.5 - EllipseDistance(x + 0.5 - cx, y + 0.5 - cy, a, e), 0.0,
                                    1.0);
                });
        if (stroke) {
          const double half = std::min(pw, std::min(a, e)) / 2;
          Paint(b, cx - a - 1, cy - e - 1, cx + a + 1, cy + e + 1, pen, antialias_,
                [&](int x, int y) {
                  const double px = x + 0.5 - cx, py = y + 0.5 - cy;
                  const double d = EllipseDistance(px, py, a, e);
                  const double cov = std::clamp(half + 0.5 - std::fabs(d + half), 0.0, 1.0);
                  if (cov <= 0 || dash.empty()) return cov;
                  const double ang = std::atan2(py / e, px / a);
                  return DashOn(dash, pw, (ang + kPi) * (a + e) / 2) ? cov : 0.0;
                });
        }
        break;
      }
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging
