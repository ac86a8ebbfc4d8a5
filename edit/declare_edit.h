// The editing actions. Each takes the bitmap slot first, then its parameters already converted
// (integers by strict conversion, flags as "equals 1"), and returns 0 on success, any other value
// on failure. The parameter meanings are listed with examples in docs/actions.md.
//
// Colours are given as 0..255 components. Positions and sizes are in pixels unless a parameter
// says otherwise. Every routine works on its own bitmap only and is safe to run in several workers
// at once.
#pragma once

#include <string>

#include "edit/action_context.h"
#include "imaging/ie_bitmap.h"

namespace pictavo::editing {

using imaging::TIEBitmap;

// ---- colour and tone (actions_color.cpp) --------------------------------------------------------
int action_exposure(TIEBitmap& bmp, int tenths_of_stop);
int action_auto_colors(TIEBitmap& bmp);
int action_invert(TIEBitmap& bmp);
// c' = c*c/100 (negated below 1), clamped to -100..100; then brightness on all channels.
int action_bc(TIEBitmap& bmp, int brightness, int contrast);
int BcContrastCurve(int contrast);  // the c' above
int action_gamma(TIEBitmap& bmp, double gamma);
int action_color_replace(TIEBitmap& bmp, int fr, int fg, int fb, int tr, int tg, int tb,
                         int tolerance);
int action_hue_sat(TIEBitmap& bmp, int hue, int saturation);
int action_hls(TIEBitmap& bmp, int hue, int lightness, int saturation);
int action_hsv(TIEBitmap& bmp, int hue, int saturation, int value);
int action_rgb(TIEBitmap& bmp, int red, int green, int blue);
int action_auto_white(TIEBitmap& bmp);
int action_white_balance(TIEBitmap& bmp, int r, int g, int b);
// mode 0..5 as documented; threshold is used by mode 4 only; other modes do nothing.
int action_convert_to_black_white(TIEBitmap& bmp, int mode, int threshold);
// The colour-depth family: a colour count and five exclusive flags.
struct ColorDepthRequest {
  int colors = 0;  // 0: none of the counts
  bool dither = false;
  bool gray256 = false, gray24 = false, high = false, true_color = false, negative = false;
};
int action_change_to(TIEBitmap& bmp, const ColorDepthRequest& request);
int action_photo_filter(TIEBitmap& bmp, int r, int g, int b, int density, bool keep_luminosity);
int action_lightness(TIEBitmap& bmp, int percent);
int action_darkness(TIEBitmap& bmp, int percent);
int action_posterize(TIEBitmap& bmp, int levels);
// Flattens the colour pixels onto (r, g, b) and keeps the transparency mask.
int action_transparency(TIEBitmap& bmp, int r, int g, int b);

// ---- tool-backed (actions_tool.cpp) -------------------------------------------------------------
int action_auto_contrast(ActionContext& ctx);
// scale 2..8; model 1 photo, 2 drawing (only used by the neural upscaler).
int action_upscale(ActionContext& ctx, int scale, int model);

// ---- geometry (actions_geometry.cpp) ------------------------------------------------------------
// unit 0 pixels, 1 percent; filter 0 nearest .. 3 Lanczos; when 0 always, 1 only to shrink,
// 2 only to enlarge. With keep_aspect the picture fits inside width x height (0 = free side).
int action_resize(TIEBitmap& bmp, int width, int height, int unit, bool keep_aspect, int filter,
                  int when);
int action_resize2(TIEBitmap& bmp, int long_side, int filter, int when);
// anchor 0..8: top-left, top, top-right, left, centre, right, bottom-left, bottom, bottom-right.
int action_canvas_size(TIEBitmap& bmp, int width, int height, int anchor, int r, int g, int b);
int action_canvas_size2(TIEBitmap& bmp, int left, int top, int right, int bottom, int r, int g,
                        int b);
// is_rect: x, y, width, height; is_size: width, height centred; neither: fails.
int action_crop(TIEBitmap& bmp, bool is_rect, bool is_size, int a, int b, int c, int d);
int action_rotate(TIEBitmap& bmp, int degrees_clockwise, int r, int g, int b);
int action_mirror(TIEBitmap& bmp, int direction);  // 0 left-right, 1 top-bottom, 2 both
int action_auto_rotate(ActionContext& ctx, bool exif, bool deskew, int max_angle, bool crop,
                       bool antialias, bool quarter_turns);
int action_auto_crop(TIEBitmap& bmp, int tolerance, bool has_color, int r, int g, int b);
int action_square(TIEBitmap& bmp, int mode, int r, int g, int b);  // 0 pad, 1 crop
int action_split(ActionContext& ctx, int columns, int rows);
int action_add_border(TIEBitmap& bmp, int size, int r, int g, int b, int unit, bool inside);
int action_add_shadow(TIEBitmap& bmp, int offset, int blur, int sr, int sg, int sb, int br, int bg,
                      int bb);
int action_add_shadow2(TIEBitmap& bmp, int offset, int blur, int sr, int sg, int sb, int opacity);

// ---- filters and effects (actions_effects.cpp) --------------------------------------------------
int action_stylize(TIEBitmap& bmp, int style);
int action_blur(TIEBitmap& bmp, int passes);
int action_gaussian_blur(TIEBitmap& bmp, int radius_tenths);
int action_split_blur(TIEBitmap& bmp, int distance);
int action_sharpen(TIEBitmap& bmp, int amount);
int action_auto_sharp(TIEBitmap& bmp);
int action_unsharp_mask(TIEBitmap& bmp, int amount, int radius_tenths, int threshold);
int action_remove_noise(TIEBitmap& bmp, int max_speck);
int action_color_noise(TIEBitmap& bmp, int amount);
int action_mono_noise(TIEBitmap& bmp, int amount);
int action_antialias(TIEBitmap& bmp);
int action_fisheye(TIEBitmap& bmp, int strength);
int action_mosaic(TIEBitmap& bmp, int block);
int action_twist(TIEBitmap& bmp, int degrees);
int action_tile(TIEBitmap& bmp, int columns, int rows);
int action_trace(TIEBitmap& bmp, int threshold);
int action_solorize(TIEBitmap& bmp, int threshold);
// wave 0 random, 1 tooth (saw), 2 triangle.
int action_ripple(TIEBitmap& bmp, int wave, int amplitude, int wavelength);
int action_spray(TIEBitmap& bmp, int radius);
int action_remove_distortion(TIEBitmap& bmp, int percent);
int action_jpeg_repair(TIEBitmap& bmp, int strength);

// ---- backgrounds and watermarks (actions_watermark.cpp) -----------------------------------------
struct ImageWatermark {
  std::string path;
  int anchor = 8;  // 0..8 as canvas_size, 9 tiled
  int dx = 0, dy = 0;
  bool percent_position = false;  // dx, dy are percent of the free space (watermark2)
  int opacity = 100;
  int scale = 0;              // percent of the picture's width; 0 natural size
  int angle = 0;              // clockwise degrees
  bool grey = false;          // the watermark in grey
  bool inside = false;        // moved so that it lies wholly inside the picture
  int width = 0, height = 0;  // fixed size in pixels (watermark3); 0 = from scale
  bool key = false;
  int kr = 0, kg = 0, kb = 0;  // pixels of this colour are transparent when key is set
};
int action_watermark(TIEBitmap& bmp, const ImageWatermark& w);
struct TextWatermark {
  std::string text;
  std::string font = "DejaVu Sans";
  int size = 24;  // pixels; negative: percent of the picture's height
  int r = 255, g = 255, b = 255;
  int anchor = 8;
  int dx = 10, dy = 10;
  int opacity = 100;
  bool bold = false, italic = false;
  bool box = false;  // a filled box behind the text (text_watermark2)
  int br = 0, bg = 0, bb = 0, box_opacity = 50, padding = 4;
};
int action_text_watermark(TIEBitmap& bmp, const TextWatermark& t);
struct StaticBackground {
  std::string path;  // empty: a plain colour
  int fit = 0;       // 0 stretch, 1 tile, 2 centre
  int r = 255, g = 255, b = 255;
  int margin = 0;
  int anchor = 4;
  int opacity = 100;
  bool shrink = false;        // a picture larger than the canvas is shrunk to fit
  int width = 0, height = 0;  // long form: a fixed canvas
};
int action_static_background(TIEBitmap& bmp, const StaticBackground& s);
int action_replace_background(TIEBitmap& bmp, int r, int g, int b, int tolerance, int nr, int ng,
                              int nb, const std::string& picture);

// ---- drawing (actions_draw.cpp) -----------------------------------------------------------------
enum class ShapeKind { kPoint = 0, kLine = 1, kRectangle = 2, kEllipse = 3 };
// values: the integer parameters in their order; flag1/flag2 the flag parameters; then the
// defaults the dispatcher passes (brush colour white and antialiasing on).
int action_draw(TIEBitmap& bmp, ShapeKind kind, const int* values, int value_count, bool flag1,
                bool flag2, int dr, int dg, int db, int antialias);

}  // namespace pictavo::editing
