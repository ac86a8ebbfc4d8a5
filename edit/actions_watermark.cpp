// Image and text watermarks, and backgrounds behind the picture.
#include <cmath>

#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "edit/text_render.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"

namespace pictavo::editing {

using imaging::TIEPixelFormat;
using imaging::TImageEnProc;

namespace {

// Top-left of a box of w x h placed in the picture at `anchor` (0..8) with the offsets moving it
// inwards from the anchored edges (centred axes move right and down).
void AnchorPosition(const TIEBitmap& bmp, int w, int h, int anchor, int dx, int dy, int& x,
                    int& y) {
  const int col = anchor % 3, row = anchor / 3;
  x = col == 0 ? dx : col == 1 ? (bmp.Width() - w) / 2 + dx : bmp.Width() - w - dx;
  y = row == 0 ? dy : row == 1 ? (bmp.Height() - h) / 2 + dy : bmp.Height() - h - dy;
}

// Blends `src` (24-bit, optional alpha) onto `bmp` (24-bit) at (x, y) with an overall opacity.
void Blend(TIEBitmap& bmp, const TIEBitmap& src, int x0, int y0, double opacity) {
  for (int y = 0; y < src.Height(); ++y) {
    const int ty = y + y0;
    if (ty < 0 || ty >= bmp.Height()) continue;
    const uint8_t* s = src.Scanline(y);
    uint8_t* d = bmp.Scanline(ty);
    for (int x = 0; x < src.Width(); ++x) {
      const int tx = x + x0;
      if (tx < 0 || tx >= bmp.Width()) continue;
      const double a = opacity * src.GetAlpha(x, y) / 255.0;
      for (int c = 0; c < 3; ++c)
        d[tx * 3 + c] = Clamp8(s[x * 3 + c] * a + d[tx * 3 + c] * (1 - a));
    }
  }
}

// Loads a picture file (any format the engine reads) as 24-bit with its alpha plane.
int LoadPicture(const std::string& path, TIEBitmap& out) {
  if (path.empty()) return 1;
  imaging::TImageEnIO io(&out);
  if (!io.LoadFromFile(path).ok() || out.IsEmpty()) return 1;
  return To24(out) ? 0 : 1;
}

}  // namespace

int action_watermark(TIEBitmap& bmp, const ImageWatermark& w) {
  if (bmp.IsEmpty() || !To24(bmp)) return 1;
  TIEBitmap mark;
  if (LoadPicture(w.path, mark) != 0) return 1;
  if (w.key) {
    // The key colour becomes transparent (exact match, as a stamp's paper colour).
    if (!mark.HasAlphaChannel()) mark.AddAlphaChannel(255);
    const imaging::TRGB key{Clamp8i(w.kr), Clamp8i(w.kg), Clamp8i(w.kb)};
    for (int y = 0; y < mark.Height(); ++y)
      for (int x = 0; x < mark.Width(); ++x)
        if (mark.GetPixels_ie24RGB(x, y) == key) mark.SetAlpha(x, y, 0);
  }
  if (w.grey) {
    TImageEnProc p(&mark);
    if (!p.ConvertToGray().ok()) return 1;
  }
  int tw = mark.Width(), th = mark.Height();
  if (w.width > 0 || w.height > 0) {
    tw = w.width > 0 ? w.width : std::max(1, mark.Width() * w.height / mark.Height());
    th = w.height > 0 ? w.height : std::max(1, mark.Height() * w.width / mark.Width());
  } else if (w.scale > 0) {
    tw = std::max(1, bmp.Width() * w.scale / 100);
    th = std::max(1, static_cast<int>(std::lround(1.0 * mark.Height() * tw / mark.Width())));
  }
  if ((tw != mark.Width() || th != mark.Height()) && !mark.Resample(tw, th).ok()) return 1;
  if (w.angle % 360 != 0) {
    if (!mark.HasAlphaChannel()) mark.AddAlphaChannel(255);
    TImageEnProc p(&mark);
    if (!p.Rotate(-w.angle).ok()) return 1;
    if (!To24(mark)) return 1;
  }
  const double opacity = std::clamp(w.opacity, 0, 100) / 100.0;
  if (w.anchor == 9) {  // tiled over the whole picture, offsets as gaps
    const int sx = mark.Width() + std::max(0, w.dx), sy = mark.Height() + std::max(0, w.dy);
    for (int y = 0; y < bmp.Height(); y += sy)
      for (int x = 0; x < bmp.Width(); x += sx) Blend(bmp, mark, x, y, opacity);
    return 0;
  }
  if (w.anchor < 0 || w.anchor > 9) return 1;
  int x, y;
  if (w.percent_position) {
    x = (bmp.Width() - mark.Width()) * w.dx / 100;
    y = (bmp.Height() - mark.Height()) * w.dy / 100;
  } else {
    AnchorPosition(bmp, mark.Width(), mark.Height(), w.anchor, w.dx, w.dy, x, y);
  }
  if (w.inside) {
    x = std::clamp(x, 0, std::max(0, bmp.Width() - mark.Width()));
    y = std::clamp(y, 0, std::max(0, bmp.Height() - mark.Height()));
  }
  Blend(bmp, mark, x, y, opacity);
  return 0;
}

int action_text_watermark(TIEBitmap& bmp, const TextWatermark& t) {
  if (bmp.IsEmpty() || t.anchor < 0 || t.anchor > 8) return 1;
  const int size = t.size < 0 ? std::max(4, bmp.Height() * -t.size / 100) : t.size;
  TIEBitmap mask;
  if (!RenderText(t.text, t.font, size, t.bold, t.italic, mask).ok()) return 1;
  if (!To24(bmp)) return 1;
  const int pad = t.box ? std::max(0, t.padding) : 0;
  int x, y;
  AnchorPosition(bmp, mask.Width() + 2 * pad, mask.Height() + 2 * pad, t.anchor, t.dx, t.dy, x, y);
  if (t.box) {
    TIEBitmap box = bmp.WorkBitmap();
    if (!box.Allocate(mask.Width() + 2 * pad, mask.Height() + 2 * pad, TIEPixelFormat::ie24RGB)
             .ok())
      return 1;
    box.Fill(ColorOf(t.br, t.bg, t.bb));
    Blend(bmp, box, x, y, std::clamp(t.box_opacity, 0, 100) / 100.0);
  }
  TIEBitmap ink = bmp.WorkBitmap();
  if (!ink.Allocate(mask.Width(), mask.Height(), TIEPixelFormat::ie24RGB).ok()) return 1;
  ink.Fill(ColorOf(t.r, t.g, t.b));
  ink.AddAlphaChannel(0);
  for (int yy = 0; yy < mask.Height(); ++yy)
    std::copy_n(mask.Scanline(yy), mask.Width(), ink.AlphaScanline(yy));
  Blend(bmp, ink, x + pad, y + pad, std::clamp(t.opacity, 0, 100) / 100.0);
  return 0;
}

int action_static_background(TIEBitmap& bmp, const StaticBackground& s) {
  // The picture is laid over a background: a picture file (stretched, tiled or centred) on a
  // plain colour, grown by the margin or set to a fixed canvas size.
  if (bmp.IsEmpty() || s.margin < 0 || s.anchor < 0 || s.anchor > 8 || !To24(bmp)) return 1;
  const int w = s.width > 0 ? s.width : bmp.Width() + 2 * s.margin;
  const int h = s.height > 0 ? s.height : bmp.Height() + 2 * s.margin;
  TIEBitmap canvas = bmp.WorkBitmap();
  if (!canvas.Allocate(w, h, TIEPixelFormat::ie24RGB).ok()) return 1;
  canvas.Fill(ColorOf(s.r, s.g, s.b));
  if (!s.path.empty()) {
    TIEBitmap back;
    if (LoadPicture(s.path, back) != 0) return 1;
    if (s.fit == 0) {
      if (!back.Resample(w, h).ok()) return 1;
      Blend(canvas, back, 0, 0, 1.0);
    } else if (s.fit == 1) {
      for (int y = 0; y < h; y += back.Height())
        for (int x = 0; x < w; x += back.Width()) Blend(canvas, back, x, y, 1.0);
    } else {
      Blend(canvas, back, (w - back.Width()) / 2, (h - back.Height()) / 2, 1.0);
    }
  }
  if (s.shrink && (bmp.Width() > w || bmp.Height() > h)) {
    const double k = std::min(1.0 * w / bmp.Width(), 1.0 * h / bmp.Height());
    if (!bmp.Resample(std::max(1, static_cast<int>(bmp.Width() * k)),
                      std::max(1, static_cast<int>(bmp.Height() * k)))
             .ok())
      return 1;
  }
  int x, y;
  AnchorPosition(canvas, bmp.Width(), bmp.Height(), s.anchor, s.margin, s.margin, x, y);
  Blend(canvas, bmp, x, y, std::clamp(s.opacity, 0, 100) / 100.0);
  bmp = std::move(canvas);
  return 0;
}

int action_replace_background(TIEBitmap& bmp, int r, int g, int b, int tolerance, int nr, int ng,
                              int nb, const std::string& picture) {
  // The background is the region of colours within `tolerance` of (r, g, b) that touches the
  // border (flood fill from every border pixel, 4-connected); it becomes the new colour or the
  // matching pixel of a picture stretched to the image.
  if (!To24(bmp)) return 1;
  const int w = bmp.Width(), h = bmp.Height();
  TIEBitmap back;
  if (!picture.empty()) {
    if (LoadPicture(picture, back) != 0 || !back.Resample(w, h).ok()) return 1;
  }
  const int ref[3] = {r, g, b};
  const auto near = [&](int x, int y) {
    const uint8_t* p = bmp.Scanline(y) + x * 3;
    for (int c = 0; c < 3; ++c)
      if (std::abs(p[c] - ref[c]) > tolerance) return false;
    return true;
  };
  std::vector<uint8_t> seen(static_cast<size_t>(w) * h, 0);
  std::vector<std::pair<int, int>> stack;
  const auto push = [&](int x, int y) {
    if (x < 0 || y < 0 || x >= w || y >= h) return;
    uint8_t& s = seen[static_cast<size_t>(y) * w + x];
    if (s || !near(x, y)) return;
    s = 1;
    stack.emplace_back(x, y);
  };
  for (int x = 0; x < w; ++x) push(x, 0), push(x, h - 1);
  for (int y = 0; y < h; ++y) push(0, y), push(w - 1, y);
  while (!stack.empty()) {
    auto [x, y] = stack.back();
    stack.pop_back();
    push(x + 1, y), push(x - 1, y), push(x, y + 1), push(x, y - 1);
  }
  const uint8_t fill[3] = {Clamp8i(nr), Clamp8i(ng), Clamp8i(nb)};
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      if (seen[static_cast<size_t>(y) * w + x])
        std::copy_n(back.IsEmpty() ? fill : back.Scanline(y) + x * 3, 3, bmp.Scanline(y) + x * 3);
  return 0;
}

}  // namespace pictavo::editing
