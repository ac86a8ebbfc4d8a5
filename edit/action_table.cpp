// The table of editing actions. Row order is the order in which the dispatcher tests a line's
// key; since keys differ a line matches at most one row, but the order is kept as the front end
// knows it and is checked by the tests.
#include "edit/action_table.h"

#include <algorithm>

#include "edit/declare_edit.h"
#include "platform/text_encoding.h"

namespace pictavo::editing {
namespace {

using C = const Script_com&;
using X = ActionContext&;

int I(C c, int i) {
  return StrToIntStrict(c.params[i]);
}
// An optional trailing integer: the default when the line has fewer parameters.
int O(C c, int i, int fallback) {
  return i < c.count ? StrToIntStrict(c.params[i]) : fallback;
}
bool F(C c, int i) {
  return Flag(c.params[i]);
}
const std::string& S(C c, int i) {
  return c.params[i];
}

int RunDraw(X x, C c, ShapeKind kind, int n, int flag_a, int flag_b) {
  int values[kMaxParams] = {};
  int k = 0;
  for (int i = 0; i < n; ++i)
    if (i != flag_a && i != flag_b) values[k++] = I(c, i);
  const bool f1 = flag_a >= 0 && F(c, flag_a);
  const bool f2 = flag_b >= 0 && F(c, flag_b);
  return action_draw(*x.bmp, kind, values, k, f1, f2, 255, 255, 255, 1);
}

int RunChangeTo(X x, int colors, bool dither) {
  ColorDepthRequest r;
  r.colors = colors;
  r.dither = dither;
  return action_change_to(*x.bmp, r);
}

// The head shared by the three image-watermark keys: path; anchor; dx; dy; opacity; scale;
// angle; grey; inside. Each key adds `extra` parameters after it; the long form then adds the key
// colour R; G; B.
ImageWatermark ReadWatermark(C c, bool short_form, int extra) {
  ImageWatermark w;
  w.path = S(c, 0);
  w.anchor = I(c, 1);
  w.dx = I(c, 2);
  w.dy = I(c, 3);
  w.opacity = I(c, 4);
  w.scale = I(c, 5);
  w.angle = I(c, 6);
  w.grey = F(c, 7);
  w.inside = F(c, 8);
  const int key = 9 + extra;
  if (!short_form && c.count >= key + 3) {
    w.key = true;
    w.kr = I(c, key);
    w.kg = I(c, key + 1);
    w.kb = I(c, key + 2);
  }
  return w;
}

TextWatermark ReadText(C c, bool boxed) {
  TextWatermark t;
  t.text = S(c, 0);
  if (!S(c, 1).empty()) t.font = S(c, 1);
  t.size = I(c, 2);
  t.r = I(c, 3);
  t.g = I(c, 4);
  t.b = I(c, 5);
  t.anchor = I(c, 6);
  t.dx = O(c, 7, t.dx);
  t.dy = O(c, 8, t.dy);
  t.opacity = O(c, 9, 100);
  t.bold = c.count > 10 && F(c, 10);
  t.italic = c.count > 11 && F(c, 11);
  if (boxed) {
    t.box = true;
    t.br = O(c, 12, 0);
    t.bg = O(c, 13, 0);
    t.bb = O(c, 14, 0);
    t.box_opacity = O(c, 15, 50);
    t.padding = O(c, 16, 4);
  }
  return t;
}

constexpr KeyReading L = KeyReading::kLowerKey;
constexpr KeyReading U = KeyReading::kUpperName;

constexpr ActionRow kRows[] = {
    {"exposure", L, Counts({1}), [](X x, C c) { return action_exposure(*x.bmp, I(c, 0)); }},
    {"upscale", L, Counts({1, 2}),
     [](X x, C c) { return action_upscale(x, I(c, 0), c.count == 2 ? I(c, 1) : 1); }},
    {"auto_contrast", L, Counts({0}), [](X x, C) { return action_auto_contrast(x); }},
    // point, line, rectangle, ellipse: one drawing routine with a shape code.
    {"point", L, Counts({8}), [](X x, C c) { return RunDraw(x, c, ShapeKind::kPoint, 8, 7, -1); }},
    {"line", L, Counts({9}), [](X x, C c) { return RunDraw(x, c, ShapeKind::kLine, 9, -1, -1); }},
    {"rectangle", L, Counts({13}),
     [](X x, C c) { return RunDraw(x, c, ShapeKind::kRectangle, 13, 11, 12); }},
    {"ellipse", L, Counts({13}),
     [](X x, C c) { return RunDraw(x, c, ShapeKind::kEllipse, 13, 11, 12); }},
    {"stylize", L, Counts({1}), [](X x, C c) { return action_stylize(*x.bmp, I(c, 0)); }},
    // Other counts match the key but run nothing: the action is logged as failed.
    {"auto_rotate", L, Counts({5, 6}),
     [](X x, C c) {
       const bool quarter = c.count == 6 && S(c, 5) == "4";
       return action_auto_rotate(x, F(c, 0), F(c, 1), I(c, 2), F(c, 3), F(c, 4), quarter);
     }},
    {"auto_crop", L, kAnyCount,
     [](X x, C c) {
       const bool colour = c.count >= 4;
       return action_auto_crop(*x.bmp, O(c, 0, 0), colour, colour ? I(c, 1) : 0,
                               colour ? I(c, 2) : 0, colour ? I(c, 3) : 0);
     }},
    {"split", L, kAnyCount, [](X x, C c) { return action_split(x, I(c, 0), I(c, 1)); }},
    {"auto_colors", L, kAnyCount, [](X x, C) { return action_auto_colors(*x.bmp); }},
    {"invert", L, kAnyCount, [](X x, C) { return action_invert(*x.bmp); }},
    {"square", L, kAnyCount,
     [](X x, C c) {
       return action_square(*x.bmp, O(c, 0, 0), O(c, 1, 255), O(c, 2, 255), O(c, 3, 255));
     }},
    {"canvas_size", L, kAnyCount,
     [](X x, C c) {
       return action_canvas_size(*x.bmp, I(c, 0), I(c, 1), O(c, 2, 4), O(c, 3, 255),
                                 O(c, 4, 255), O(c, 5, 255));
     }},
    {"resize", L, Counts({6}),
     [](X x, C c) {
       return action_resize(*x.bmp, I(c, 0), I(c, 1), I(c, 2), F(c, 3), I(c, 4), I(c, 5));
     }},
    {"canvas_size2", L, kAnyCount,
     [](X x, C c) {
       return action_canvas_size2(*x.bmp, I(c, 0), I(c, 1), I(c, 2), I(c, 3), O(c, 4, 255),
                                  O(c, 5, 255), O(c, 6, 255));
     }},
    {"resize2", L, kAnyCount,
     [](X x, C c) { return action_resize2(*x.bmp, I(c, 0), O(c, 1, 3), O(c, 2, 0)); }},
    {"bc", L, kAnyCount, [](X x, C c) { return action_bc(*x.bmp, I(c, 0), I(c, 1)); }},
    {"gamma", L, kAnyCount,
     [](X x, C c) { return action_gamma(*x.bmp, StrToFloatStrict(S(c, 0))); }},
    {"blur", L, kAnyCount, [](X x, C c) { return action_blur(*x.bmp, O(c, 0, 1)); }},
    {"add_border", L, Counts({5, 6}),
     [](X x, C c) {
       return action_add_border(*x.bmp, I(c, 0), I(c, 1), I(c, 2), I(c, 3), I(c, 4),
                                c.count == 6 && F(c, 5));
     }},
    {"color_replace", L, kAnyCount,
     [](X x, C c) {
       return action_color_replace(*x.bmp, I(c, 0), I(c, 1), I(c, 2), I(c, 3), I(c, 4), I(c, 5),
                                   O(c, 6, 0));
     }},
    // Whatever the count; the routine is told whether a rectangle or a size was given.
    {"crop", L, kAnyCount,
     [](X x, C c) {
       const bool rect = c.count == 4, size = c.count == 2;
       return action_crop(*x.bmp, rect, size, rect || size ? I(c, 0) : 0,
                          rect || size ? I(c, 1) : 0, rect ? I(c, 2) : 0, rect ? I(c, 3) : 0);
     }},
    {"hue_sat", L, kAnyCount, [](X x, C c) { return action_hue_sat(*x.bmp, I(c, 0), I(c, 1)); }},
    {"hls", L, kAnyCount,
     [](X x, C c) { return action_hls(*x.bmp, I(c, 0), I(c, 1), I(c, 2)); }},
    {"hsv", L, kAnyCount,
     [](X x, C c) { return action_hsv(*x.bmp, I(c, 0), I(c, 1), I(c, 2)); }},
    {"mirror", L, kAnyCount, [](X x, C c) { return action_mirror(*x.bmp, O(c, 0, 0)); }},
    {"rgb", L, kAnyCount,
     [](X x, C c) { return action_rgb(*x.bmp, I(c, 0), I(c, 1), I(c, 2)); }},
    {"rotate", L, kAnyCount,
     [](X x, C c) {
       return action_rotate(*x.bmp, I(c, 0), O(c, 1, 255), O(c, 2, 255), O(c, 3, 255));
     }},
    {"add_shadow", L, kAnyCount,
     [](X x, C c) {
       return action_add_shadow(*x.bmp, I(c, 0), I(c, 1), O(c, 2, 0), O(c, 3, 0), O(c, 4, 0),
                                O(c, 5, 255), O(c, 6, 255), O(c, 7, 255));
     }},
    {"add_shadow2", L, kAnyCount,
     [](X x, C c) {
       return action_add_shadow2(*x.bmp, I(c, 0), I(c, 1), O(c, 2, 0), O(c, 3, 0), O(c, 4, 0),
                                 O(c, 5, 60));
     }},
    {"sharpen", L, kAnyCount, [](X x, C c) { return action_sharpen(*x.bmp, O(c, 0, 50)); }},
    {"auto_sharp", L, kAnyCount, [](X x, C) { return action_auto_sharp(*x.bmp); }},
    {"auto_white", L, kAnyCount, [](X x, C) { return action_auto_white(*x.bmp); }},
    {"white_balance", L, kAnyCount,
     [](X x, C c) { return action_white_balance(*x.bmp, I(c, 0), I(c, 1), I(c, 2)); }},
    {"unsharp_mask", L, kAnyCount,
     [](X x, C c) {
       return action_unsharp_mask(*x.bmp, O(c, 0, 100), O(c, 1, 10), O(c, 2, 0));
     }},
    {"remove_noise", L, kAnyCount,
     [](X x, C c) { return action_remove_noise(*x.bmp, O(c, 0, 1)); }},
    // 2 parameters: mode and threshold; any other count: the mode alone.
    {"convert_to_black_white", L, kAnyCount,
     [](X x, C c) {
       if (c.count == 2) return action_convert_to_black_white(*x.bmp, I(c, 0), I(c, 1));
       return action_convert_to_black_white(*x.bmp, I(c, 0), -1);
     }},
    // The colour-depth family is matched on the upper-cased record name.
    {"CHANGE_TO", U, Counts({1}),
     [](X x, C c) { return RunChangeTo(x, 1 << std::clamp(I(c, 0), 1, 24), true); }},
    {"CHANGE_TO_2", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 2, F(c, 0)); }},
    {"CHANGE_TO_4", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 4, F(c, 0)); }},
    {"CHANGE_TO_8", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 8, F(c, 0)); }},
    {"CHANGE_TO_16", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 16, F(c, 0)); }},
    {"CHANGE_TO_32", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 32, F(c, 0)); }},
    {"CHANGE_TO_64", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 64, F(c, 0)); }},
    {"CHANGE_TO_128", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 128, F(c, 0)); }},
    {"CHANGE_TO_256", U, kAnyCount, [](X x, C c) { return RunChangeTo(x, 256, F(c, 0)); }},
    {"CHANGE_TO_TRUE", U, kAnyCount,
     [](X x, C) { return action_change_to(*x.bmp, {.true_color = true}); }},
    {"CHANGE_TO_GRAY", U, kAnyCount,
     [](X x, C) { return action_change_to(*x.bmp, {.gray256 = true}); }},
    {"CHANGE_TO_GRAY24", U, kAnyCount,
     [](X x, C) { return action_change_to(*x.bmp, {.gray24 = true}); }},
    {"CHANGE_TO_HIGH", U, kAnyCount,
     [](X x, C) { return action_change_to(*x.bmp, {.high = true}); }},
    {"CHANGE_TO_NEGATIVE", U, kAnyCount,
     [](X x, C) { return action_change_to(*x.bmp, {.negative = true}); }},
    {"remove_distortion", L, kAnyCount,
     [](X x, C c) { return action_remove_distortion(*x.bmp, I(c, 0)); }},
    {"jpeg_repair", L, kAnyCount,
     [](X x, C c) { return action_jpeg_repair(*x.bmp, O(c, 0, 50)); }},
    {"photo_filter", L, kAnyCount,
     [](X x, C c) {
       return action_photo_filter(*x.bmp, I(c, 0), I(c, 1), I(c, 2), O(c, 3, 25),
                                  c.count <= 4 || F(c, 4));
     }},
    {"replace_background", L, kAnyCount,
     [](X x, C c) {
       return action_replace_background(*x.bmp, I(c, 0), I(c, 1), I(c, 2), I(c, 3), I(c, 4),
                                        I(c, 5), I(c, 6), c.count > 7 ? S(c, 7) : std::string());
     }},
    {"gaussian_blur", L, kAnyCount,
     [](X x, C c) { return action_gaussian_blur(*x.bmp, O(c, 0, 20)); }},
    {"split_blur", L, kAnyCount, [](X x, C c) { return action_split_blur(*x.bmp, O(c, 0, 5)); }},
    {"color_noise", L, kAnyCount,
     [](X x, C c) { return action_color_noise(*x.bmp, O(c, 0, 20)); }},
    {"mono_noise", L, kAnyCount, [](X x, C c) { return action_mono_noise(*x.bmp, O(c, 0, 20)); }},
    {"antialias", L, kAnyCount, [](X x, C) { return action_antialias(*x.bmp); }},
    {"fisheye", L, kAnyCount, [](X x, C c) { return action_fisheye(*x.bmp, O(c, 0, 50)); }},
    {"lightness", L, kAnyCount, [](X x, C c) { return action_lightness(*x.bmp, I(c, 0)); }},
    {"darkness", L, kAnyCount, [](X x, C c) { return action_darkness(*x.bmp, I(c, 0)); }},
    {"mosaic", L, kAnyCount, [](X x, C c) { return action_mosaic(*x.bmp, O(c, 0, 8)); }},
    {"twist", L, kAnyCount, [](X x, C c) { return action_twist(*x.bmp, O(c, 0, 90)); }},
    {"tile", L, kAnyCount, [](X x, C c) { return action_tile(*x.bmp, O(c, 0, 2), O(c, 1, 2)); }},
    {"trace", L, kAnyCount, [](X x, C c) { return action_trace(*x.bmp, O(c, 0, 32)); }},
    {"solorize", L, kAnyCount, [](X x, C c) { return action_solorize(*x.bmp, O(c, 0, 128)); }},
    {"posterize", L, kAnyCount, [](X x, C c) { return action_posterize(*x.bmp, I(c, 0)); }},
    {"ripple_random", L, kAnyCount,
     [](X x, C c) { return action_ripple(*x.bmp, 0, O(c, 0, 5), O(c, 1, 20)); }},
    {"ripple_tooth", L, kAnyCount,
     [](X x, C c) { return action_ripple(*x.bmp, 1, O(c, 0, 5), O(c, 1, 20)); }},
    {"ripple_triangle", L, kAnyCount,
     [](X x, C c) { return action_ripple(*x.bmp, 2, O(c, 0, 5), O(c, 1, 20)); }},
    {"spray", L, kAnyCount, [](X x, C c) { return action_spray(*x.bmp, O(c, 0, 3)); }},
    // Exactly 9 parameters is the short form: the trailing canvas size is not read.
    {"static_background", L, kAnyCount,
     [](X x, C c) {
       StaticBackground s;
       s.path = S(c, 0);
       s.fit = I(c, 1);
       s.r = I(c, 2);
       s.g = I(c, 3);
       s.b = I(c, 4);
       s.margin = I(c, 5);
       s.anchor = I(c, 6);
       s.opacity = I(c, 7);
       s.shrink = F(c, 8);
       if (c.count != 9 && c.count >= 11) {
         s.width = I(c, 9);
         s.height = I(c, 10);
       }
       return action_static_background(*x.bmp, s);
     }},
    // watermark: 9 is the short form; the long form adds the key colour (p10..p12).
    {"watermark", L, kAnyCount,
     [](X x, C c) {
       ImageWatermark w = ReadWatermark(c, c.count == 9, 0);
       return action_watermark(*x.bmp, w);
     }},
    {"text_watermark", L, kAnyCount,
     [](X x, C c) { return action_text_watermark(*x.bmp, ReadText(c, false)); }},
    // watermark2: p10 puts dx, dy in percent of the free space; 10 is the short form.
    {"watermark2", L, kAnyCount,
     [](X x, C c) {
       ImageWatermark w = ReadWatermark(c, c.count == 10, 1);
       w.percent_position = F(c, 9);
       return action_watermark(*x.bmp, w);
     }},
    {"text_watermark2", L, kAnyCount,
     [](X x, C c) { return action_text_watermark(*x.bmp, ReadText(c, true)); }},
    // watermark3: a fixed watermark size in pixels (p10, p11); 11 is the short form.
    {"watermark3", L, kAnyCount,
     [](X x, C c) {
       ImageWatermark w = ReadWatermark(c, c.count == 11, 2);
       w.width = I(c, 9);
       w.height = I(c, 10);
       return action_watermark(*x.bmp, w);
     }},
    {"transparency", L, Counts({3}),
     [](X x, C c) { return action_transparency(*x.bmp, I(c, 0), I(c, 1), I(c, 2)); }},
};

constexpr DisplayName kDisplay[] = {
    {"upscale", "Upscale"},
    {"point", "Point"},
    {"line", "Line"},
    {"rectangle", "Rectangle"},
    {"ellipse", "Ellipse"},
    {"stylize", "Stylize"},
    {"auto_rotate", "Auto Rotate"},
    {"auto_crop", "Auto Crop"},
    {"split", "Split"},
    {"auto_colors", "Auto Color Correction"},
    {"invert", "Invert"},
    {"square", "Auto Square"},
    {"canvas_size", "Canvas Size"},
    {"canvas_size2", "Canvas Size"},
    {"canvas_size3", "Canvas Size"},  // no row runs it; the front end may still write it
    {"resize", "Resize"},
    {"resize2", "Resize"},
    {"bc", "Brightness/Contrast"},
    {"gamma", "Gamma Correction"},
    {"blur", "Blur"},
    {"add_border", "Border"},
    {"color_replace", "Selective Color Change"},
    {"crop", "Crop"},
    {"hue_sat", "Hue/Saturation"},
    {"hls", "Hue/Saturation"},
    {"hsv", "HSV"},
    {"mirror", "Mirror"},
    {"rgb", "Color Balance"},
    {"rotate", "Rotate"},
    {"add_shadow", "Shadow"},
    {"add_shadow2", "Shadow"},
    {"sharpen", "Sharpen"},
    {"auto_sharp", "Sharpen"},
    {"auto_white", "White Balance (Auto)"},
    {"white_balance", "White Balance"},
    {"unsharp_mask", "Sharpen"},
    {"remove_noise", "Black & White Noise Remove"},
    {"convert_to_black_white", "Black & White"},
    {"change_to", "Color Depth"},
    {"change_to_2", "Color Depth"},
    {"change_to_4", "Color Depth"},
    {"change_to_8", "Color Depth"},
    {"change_to_16", "Color Depth"},
    {"change_to_32", "Color Depth"},
    {"change_to_64", "Color Depth"},
    {"change_to_128", "Color Depth"},
    {"change_to_256", "Color Depth"},
    {"change_to_true", "Color Depth"},
    {"change_to_gray", "Color Depth"},
    {"change_to_gray24", "Color Depth"},
    {"change_to_high", "Color Depth"},
    {"change_to_negative", "Color Depth"},
    {"remove_distortion", "Lens Correction"},
    {"jpeg_repair", "JPEG Artifacts Remove"},
    {"photo_filter", "Photo Filter"},
    {"replace_background", "Background Change"},
    {"gaussian_blur", "Gaussian Blur"},
    {"split_blur", "Split Blur"},
    {"color_noise", "Color Noise"},
    {"mono_noise", "Mono Noise"},
    {"antialias", "Anti-aliasing"},
    {"fisheye", "Fisheye"},
    {"lightness", "Lightness"},
    {"darkness", "Darkness"},
    {"mosaic", "Mosaic"},
    {"twist", "Twist"},
    {"tile", "Tile"},
    {"trace", "Trace"},
    {"solorize", "Solorize"},
    {"posterize", "Posterize"},
    {"ripple_random", "Ripple Random"},
    {"ripple_tooth", "Ripple Tooth"},
    {"ripple_triangle", "Ripple Triangle"},
    {"spray", "Spray"},
    {"static_background", "Static Background"},
    {"watermark", "Image Watermark"},
    {"text_watermark", "Text Watermark"},
    {"watermark2", "Image Watermark"},
    {"text_watermark2", "Text Watermark"},
    {"watermark3", "Image Watermark"},
};

}  // namespace

std::span<const ActionRow> ActionTable() {
  return kRows;
}
std::span<const DisplayName> DisplayTable() {
  return kDisplay;
}

bool AcceptsCount(const ActionRow& row, int count) {
  if (row.counts == kAnyCount) return true;
  return count >= 0 && count < 32 && (row.counts & (1u << count)) != 0;
}

std::string_view DisplayNameOf(std::string_view key) {
  const std::string lower = platform::AsciiLower(key);
  for (const DisplayName& d : kDisplay)
    if (d.key == lower) return d.name;
  return {};
}

ParsedLine ParseLine(std::string_view line) {
  ParsedLine p;
  p.com = ParseScriptLine(line);
  p.key_lower = platform::AsciiLower(ScriptKey(line));
  p.name_upper = platform::AsciiUpper(p.com.name);
  return p;
}

const ActionRow* MatchRow(std::span<const ActionRow> table, const ParsedLine& line) {
  for (const ActionRow& row : table) {
    const std::string& key =
        row.reading == KeyReading::kLowerKey ? line.key_lower : line.name_upper;
    if (key == row.key) return &row;
  }
  return nullptr;
}

bool Dispatch(std::span<const ActionRow> table, ActionContext& ctx, const ParsedLine& line) {
  bool ok = false;
  for (const ActionRow& row : table) {
    const std::string& key =
        row.reading == KeyReading::kLowerKey ? line.key_lower : line.name_upper;
    if (key != row.key || !AcceptsCount(row, line.com.count)) continue;
    try {
      ok = row.run(ctx, line.com) == 0;
    } catch (...) {  // a malformed number or a failure inside the routine
      ok = false;
    }
  }
  return ok;
}

}  // namespace pictavo::editing
