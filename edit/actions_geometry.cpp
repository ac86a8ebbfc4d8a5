// Geometry actions: size, canvas, crop, rotation, mirroring, borders and shadows.
#include <cmath>
#include <filesystem>

#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "imaging/ie_proc.h"
#include "imaging/luma.h"
#include "platform/text_encoding.h"

namespace pictavo::editing {

using imaging::TFlipDirection;
using imaging::TIEPixelFormat;
using imaging::TImageEnProc;
using imaging::TResampleFilter;

namespace {

TResampleFilter FilterOf(int filter) {
  switch (filter) {
    case 0:
      return TResampleFilter::rfNearest;
    case 1:
      return TResampleFilter::rfBilinear;
    case 2:
      return TResampleFilter::rfBicubic;
    default:
      return TResampleFilter::rfLanczos3;
  }
}

// Resizes unless `when` forbids the direction: 1 only to shrink, 2 only to enlarge.
int ResizeTo(TIEBitmap& bmp, int w, int h, int filter, int when) {
  if (w <= 0 || h <= 0) return 1;
  const bool larger = w > bmp.Width() || h > bmp.Height();
  const bool smaller = w < bmp.Width() || h < bmp.Height();
  if ((when == 1 && larger) || (when == 2 && smaller)) return 0;
  if (w == bmp.Width() && h == bmp.Height()) return 0;
  TImageEnProc proc(&bmp);
  return proc.Resample(w, h, FilterOf(filter)).ok() ? 0 : 1;
}

// Offset of a box of size `inner` inside `outer` for an anchor column or row (0, 1, 2).
int AnchorOffset(int outer, int inner, int third) {
  return third == 0 ? 0 : third == 1 ? (outer - inner) / 2 : outer - inner;
}

// Puts `src` on a new 24-bit canvas of w x h filled with `fill`, its top-left at (dx, dy); the
// canvas keeps an alpha plane when the source has one (the new area opaque).
int PlaceOnCanvas(TIEBitmap& bmp, int w, int h, int dx, int dy, imaging::TColor fill) {
  if (w <= 0 || h <= 0 || !To24(bmp)) return 1;
  TIEBitmap canvas = bmp.WorkBitmap();
  if (!canvas.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  canvas.Fill(fill);
  const bool alpha = bmp.HasAlphaChannel();
  if (alpha) canvas.AddAlphaChannel(255);
  for (int y = std::max(0, -dy); y < bmp.Height() && y + dy < h; ++y) {
    const int x0 = std::max(0, -dx), x1 = std::min(bmp.Width(), w - dx);
    if (x1 <= x0) break;
    std::copy_n(bmp.Scanline(y) + x0 * 3, (x1 - x0) * 3, canvas.Scanline(y + dy) + (x0 + dx) * 3);
    if (alpha)
      std::copy_n(bmp.AlphaScanline(y) + x0, x1 - x0, canvas.AlphaScanline(y + dy) + x0 + dx);
  }
  bmp = std::move(canvas);
  return 0;
}

// Applies an EXIF orientation (2..8) so that the picture stands upright.
int ApplyOrientation(TIEBitmap& bmp, int orientation) {
  TImageEnProc p(&bmp);
  bool ok = true;
  switch (orientation) {
    case 2:
      ok = p.Flip(TFlipDirection::fdHorizontal).ok();
      break;
    case 3:
      ok = p.Rotate(180).ok();
      break;
    case 4:
      ok = p.Flip(TFlipDirection::fdVertical).ok();
      break;
    case 5:
      ok = p.Flip(TFlipDirection::fdHorizontal).ok() && p.Rotate(90).ok();
      break;
    case 6:
      ok = p.Rotate(-90).ok();
      break;
    case 7:
      ok = p.Flip(TFlipDirection::fdHorizontal).ok() && p.Rotate(-90).ok();
      break;
    case 8:
      ok = p.Rotate(90).ok();
      break;
    default:
      break;
  }
  return ok ? 0 : 1;
}

// True when the dark content runs in columns rather than rows (text turned by a quarter): the
// projection of dark pixels onto the rows then varies less than onto the columns.
bool LooksTurned(const TIEBitmap& bmp) {
  const int w = bmp.Width(), h = bmp.Height();
  std::vector<double> rows(h, 0), cols(w, 0);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      const imaging::TRGB c = bmp.GetPixels(x, y);
      if (imaging::Luma601(c.r, c.g, c.b) < 128) {
        rows[y] += 1;
        cols[x] += 1;
      }
    }
  const auto variance = [](const std::vector<double>& v) {
    double m = 0, s = 0;
    for (double d : v) m += d;
    m /= v.size();
    for (double d : v) s += (d - m) * (d - m);
    return s / v.size();
  };
  const double rv = variance(rows) / std::max(1, w), cv = variance(cols) / std::max(1, h);
  return cv > rv * 1.5;
}

// The Gaussian-blurred shape of the picture (its alpha, or a full rectangle) placed at (ox, oy)
// on a w x h grey plane.
TIEBitmap ShadowMask(const TIEBitmap& src, int w, int h, int ox, int oy, int blur) {
  TIEBitmap mask = src.WorkBitmap();
  (void)mask.Allocate(w, h, TIEPixelFormat::ie8g);
  for (int y = 0; y < src.Height(); ++y) {
    if (y + oy < 0 || y + oy >= h) continue;
    uint8_t* m = mask.Scanline(y + oy);
    for (int x = 0; x < src.Width(); ++x)
      if (x + ox >= 0 && x + ox < w) m[x + ox] = src.GetAlpha(x, y);
  }
  if (blur > 0) {
    TImageEnProc p(&mask);
    (void)p.Blur(blur / 2.0);
  }
  return mask;
}

}  // namespace

int action_resize(TIEBitmap& bmp, int width, int height, int unit, bool keep_aspect, int filter,
                  int when) {
  if (bmp.IsEmpty()) return 1;
  const double W = bmp.Width(), H = bmp.Height();
  double w = width, h = height;
  if (unit == 1) {
    w = W * width / 100.0;
    h = H * height / 100.0;
  }
  if (w <= 0 && h <= 0) return 1;
  if (w <= 0) {
    w = W * h / H;
  } else if (h <= 0) {
    h = H * w / W;
  } else if (keep_aspect) {
    const double s = std::min(w / W, h / H);
    w = W * s;
    h = H * s;
  }
  return ResizeTo(bmp, std::max(1, static_cast<int>(std::lround(w))),
                  std::max(1, static_cast<int>(std::lround(h))), filter, when);
}

int action_resize2(TIEBitmap& bmp, int long_side, int filter, int when) {
  if (bmp.IsEmpty() || long_side <= 0) return 1;
  const double s = static_cast<double>(long_side) / std::max(bmp.Width(), bmp.Height());
  return ResizeTo(bmp, std::max(1, static_cast<int>(std::lround(bmp.Width() * s))),
                  std::max(1, static_cast<int>(std::lround(bmp.Height() * s))), filter, when);
}

int action_canvas_size(TIEBitmap& bmp, int width, int height, int anchor, int r, int g, int b) {
  if (bmp.IsEmpty() || anchor < 0 || anchor > 8) return 1;
  const int dx = AnchorOffset(width, bmp.Width(), anchor % 3);
  const int dy = AnchorOffset(height, bmp.Height(), anchor / 3);
  return PlaceOnCanvas(bmp, width, height, dx, dy, ColorOf(r, g, b));
}

int action_canvas_size2(TIEBitmap& bmp, int left, int top, int right, int bottom, int r, int g,
                        int b) {
  if (bmp.IsEmpty()) return 1;
  return PlaceOnCanvas(bmp, bmp.Width() + left + right, bmp.Height() + top + bottom, left, top,
                       ColorOf(r, g, b));
}

int action_crop(TIEBitmap& bmp, bool is_rect, bool is_size, int a, int b, int c, int d) {
  if (bmp.IsEmpty()) return 1;
  if (is_rect) return bmp.Crop(a, b, c, d).ok() ? 0 : 1;
  if (is_size) {
    if (a <= 0 || b <= 0) return 1;
    const int w = std::min(a, bmp.Width()), h = std::min(b, bmp.Height());
    return bmp.Crop((bmp.Width() - w) / 2, (bmp.Height() - h) / 2, w, h).ok() ? 0 : 1;
  }
  return 1;
}

int action_rotate(TIEBitmap& bmp, int degrees_clockwise, int r, int g, int b) {
  TImageEnProc p(&bmp);
  const int turn = ((degrees_clockwise % 360) + 360) % 360;
  if (turn == 0) return bmp.IsEmpty() ? 1 : 0;
  return p.Rotate(-static_cast<double>(turn), true, ColorOf(r, g, b)).ok() ? 0 : 1;
}

int action_mirror(TIEBitmap& bmp, int direction) {
  TImageEnProc p(&bmp);
  bool ok = true;
  if (direction == 0 || direction == 2) ok = p.Flip(TFlipDirection::fdHorizontal).ok();
  if (ok && (direction == 1 || direction == 2)) ok = p.Flip(TFlipDirection::fdVertical).ok();
  return ok && direction >= 0 && direction <= 2 ? 0 : 1;
}

int action_auto_rotate(ActionContext& ctx, bool exif, bool deskew, int max_angle, bool crop,
                       bool antialias, bool quarter_turns) {
  TIEBitmap& bmp = *ctx.bmp;
  if (bmp.IsEmpty()) return 1;
  if (exif && ctx.exif_orientation >= 2 && ctx.exif_orientation <= 8) {
    if (ApplyOrientation(bmp, ctx.exif_orientation) != 0) return 1;
    ctx.exif_orientation = 1;  // the saved file must not be turned again by viewers
  }
  TImageEnProc p(&bmp);
  if (quarter_turns && LooksTurned(bmp) && !p.Rotate(-90).ok()) return 1;
  if (deskew) {
    const int w = bmp.Width(), h = bmp.Height();
    const double angle = p.SkewDetection(max_angle > 0 ? max_angle : 15.0);
    if (std::abs(angle) > 0.05) {
      if (!p.Rotate(-angle, antialias, 0xFFFFFF).ok()) return 1;
      if (crop && !bmp.Crop((bmp.Width() - w) / 2, (bmp.Height() - h) / 2, w, h).ok()) return 1;
    }
  }
  return 0;
}

int action_auto_crop(TIEBitmap& bmp, int tolerance, bool has_color, int r, int g, int b) {
  TImageEnProc p(&bmp);
  const int tol = std::clamp(tolerance, 0, 255);
  return (has_color ? p.AutoCrop(tol, ColorOf(r, g, b)) : p.AutoCrop(tol)).ok() ? 0 : 1;
}

int action_square(TIEBitmap& bmp, int mode, int r, int g, int b) {
  if (bmp.IsEmpty()) return 1;
  const int w = bmp.Width(), h = bmp.Height();
  if (mode == 1) {
    const int s = std::min(w, h);
    return bmp.Crop((w - s) / 2, (h - s) / 2, s, s).ok() ? 0 : 1;
  }
  const int s = std::max(w, h);
  return PlaceOnCanvas(bmp, s, s, (s - w) / 2, (s - h) / 2, ColorOf(r, g, b));
}

int action_split(ActionContext& ctx, int columns, int rows) {
  TIEBitmap& bmp = *ctx.bmp;
  const std::string ext =
      platform::AsciiLower(std::filesystem::path(ctx.work_file).extension().string());
  // The pieces become pages, which only a TIFF working file can carry.
  if (ext != ".tif" && ext != ".tiff") return 1;
  if (bmp.IsEmpty() || columns < 1 || rows < 1 || columns > bmp.Width() || rows > bmp.Height())
    return 1;
  std::vector<TIEBitmap> pieces;
  for (int r = 0; r < rows; ++r)
    for (int c = 0; c < columns; ++c) {
      const int x0 = bmp.Width() * c / columns, x1 = bmp.Width() * (c + 1) / columns;
      const int y0 = bmp.Height() * r / rows, y1 = bmp.Height() * (r + 1) / rows;
      TIEBitmap piece = bmp;
      if (!piece.Crop(x0, y0, x1 - x0, y1 - y0).ok()) return 1;
      pieces.push_back(std::move(piece));
    }
  bmp = std::move(pieces.front());
  for (size_t i = 1; i < pieces.size(); ++i) ctx.extra_pages.push_back(std::move(pieces[i]));
  return 0;
}

int action_add_border(TIEBitmap& bmp, int size, int r, int g, int b, int unit, bool inside) {
  if (bmp.IsEmpty() || size < 0) return 1;
  const int s = unit == 1 ? std::min(bmp.Width(), bmp.Height()) * size / 100 : size;
  const imaging::TColor colour = ColorOf(r, g, b);
  if (!inside) return PlaceOnCanvas(bmp, bmp.Width() + 2 * s, bmp.Height() + 2 * s, s, s, colour);
  if (!To24(bmp)) return 1;
  const int w = bmp.Width(), h = bmp.Height();
  bmp.FillRect(0, 0, w, s, colour);
  bmp.FillRect(0, h - s, w, s, colour);
  bmp.FillRect(0, 0, s, h, colour);
  bmp.FillRect(w - s, 0, s, h, colour);
  return 0;
}

int action_add_shadow(TIEBitmap& bmp, int offset, int blur, int sr, int sg, int sb, int br, int bg,
                      int bb) {
  // A drop shadow offset to the bottom right (top left when negative), softened by `blur`
  // pixels, on a canvas of the background colour grown to hold it.
  if (bmp.IsEmpty() || blur < 0 || !To24(bmp)) return 1;
  const int m = 2 * blur, o = std::abs(offset);
  const int w = bmp.Width() + o + 2 * m, h = bmp.Height() + o + 2 * m;
  const int ix = m + (offset < 0 ? o : 0), iy = ix;
  const int sx = m + (offset > 0 ? o : 0), sy = sx;
  const TIEBitmap mask = ShadowMask(bmp, w, h, sx, sy, blur);
  TIEBitmap canvas = bmp.WorkBitmap();
  if (!canvas.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  const int shadow[3] = {sr, sg, sb}, back[3] = {br, bg, bb};
  for (int y = 0; y < h; ++y) {
    uint8_t* p = canvas.Scanline(y);
    const uint8_t* a = mask.Scanline(y);
    for (int x = 0; x < w; ++x)
      for (int c = 0; c < 3; ++c)
        p[x * 3 + c] = Clamp8(back[c] + (shadow[c] - back[c]) * a[x] / 255.0);
  }
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = canvas.Scanline(y + iy) + ix * 3;
    const uint8_t* s = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      const double a = bmp.GetAlpha(x, y) / 255.0;
      for (int c = 0; c < 3; ++c) p[x * 3 + c] = Clamp8(s[x * 3 + c] * a + p[x * 3 + c] * (1 - a));
    }
  }
  bmp = std::move(canvas);
  return 0;
}

int action_add_shadow2(TIEBitmap& bmp, int offset, int blur, int sr, int sg, int sb, int opacity) {
  // As add_shadow, on a transparent canvas: the result carries an alpha plane.
  if (bmp.IsEmpty() || blur < 0 || !To24(bmp)) return 1;
  const int m = 2 * blur, o = std::abs(offset);
  const int w = bmp.Width() + o + 2 * m, h = bmp.Height() + o + 2 * m;
  const int ix = m + (offset < 0 ? o : 0), iy = ix;
  const int sx = m + (offset > 0 ? o : 0), sy = sx;
  const TIEBitmap mask = ShadowMask(bmp, w, h, sx, sy, blur);
  const double k = std::clamp(opacity, 0, 100) / 100.0;
  TIEBitmap canvas = bmp.WorkBitmap();
  if (!canvas.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  canvas.Fill(ColorOf(sr, sg, sb));
  canvas.AddAlphaChannel(0);
  for (int y = 0; y < h; ++y) {
    uint8_t* a = canvas.AlphaScanline(y);
    const uint8_t* s = mask.Scanline(y);
    for (int x = 0; x < w; ++x) a[x] = Clamp8(s[x] * k);
  }
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* p = canvas.Scanline(y + iy) + ix * 3;
    uint8_t* pa = canvas.AlphaScanline(y + iy) + ix;
    const uint8_t* s = bmp.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      // "over" compositing of the picture onto the shadow
      const double a = bmp.GetAlpha(x, y) / 255.0, b = pa[x] / 255.0;
      const double out = a + b * (1 - a);
      for (int c = 0; c < 3; ++c)
        p[x * 3 + c] = out > 0 ? Clamp8((s[x * 3 + c] * a + p[x * 3 + c] * b * (1 - a)) / out) : 0;
      pa[x] = Clamp8(out * 255);
    }
  }
  bmp = std::move(canvas);
  return 0;
}

}  // namespace pictavo::editing
