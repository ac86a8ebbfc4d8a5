#include "edit/text_render.h"

#include <fontconfig/fontconfig.h>
#include <ft2build.h>
#include FT_FREETYPE_H
#include FT_OUTLINE_H

#include <algorithm>
#include <climits>
#include <vector>

namespace pictavo::editing {
namespace {

// Code points of a UTF-8 string; a malformed byte stands for itself (Latin-1).
std::vector<char32_t> DecodeUtf8(const std::string& s) {
  std::vector<char32_t> out;
  for (size_t i = 0; i < s.size();) {
    const unsigned char c = s[i];
    int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || i + len > s.size()) {
      out.push_back(c);
      ++i;
      continue;
    }
    char32_t cp = len == 1 ? c : c & (0x7F >> len);
    for (int k = 1; k < len; ++k) cp = (cp << 6) | (static_cast<unsigned char>(s[i + k]) & 0x3F);
    out.push_back(cp);
    i += len;
  }
  return out;
}

struct FtLibrary {
  FT_Library lib = nullptr;
  FT_Face face = nullptr;
  ~FtLibrary() {
    if (face) FT_Done_Face(face);
    if (lib) FT_Done_FreeType(lib);
  }
};

}  // namespace

std::string FindFontFile(const std::string& family, bool bold, bool italic) {
  FcPattern* pat = FcPatternCreate();
  FcPatternAddString(pat, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
  FcPatternAddInteger(pat, FC_WEIGHT, bold ? FC_WEIGHT_BOLD : FC_WEIGHT_REGULAR);
  FcPatternAddInteger(pat, FC_SLANT, italic ? FC_SLANT_ITALIC : FC_SLANT_ROMAN);
  FcPatternAddBool(pat, FC_SCALABLE, FcTrue);
  FcConfigSubstitute(nullptr, pat, FcMatchPattern);
  FcDefaultSubstitute(pat);
  FcResult result;
  FcPattern* match = FcFontMatch(nullptr, pat, &result);
  std::string path;
  FcChar8* file = nullptr;
  if (match && FcPatternGetString(match, FC_FILE, 0, &file) == FcResultMatch && file)
    path = reinterpret_cast<const char*>(file);
  if (match) FcPatternDestroy(match);
  FcPatternDestroy(pat);
  return path;
}

pictavo::Status RenderText(const std::string& text, const std::string& family, int pixel_size,
                           bool bold, bool italic, imaging::TIEBitmap& mask) {
  if (text.empty()) return pictavo::Status::Error("no text to draw");
  if (pixel_size < 4 || pixel_size > 2000) return pictavo::Status::Error("font size out of range");
  std::string file = FindFontFile(family, bold, italic);
  if (file.empty()) file = FindFontFile("DejaVu Sans", bold, italic);
  if (file.empty())
    return pictavo::Status::Error("no font found; install fonts-dejavu-core (and fontconfig)");
  FtLibrary ft;
  if (FT_Init_FreeType(&ft.lib) != 0) return pictavo::Status::Error("FreeType failed to start");
  if (FT_New_Face(ft.lib, file.c_str(), 0, &ft.face) != 0)
    return pictavo::Status::Error("cannot open font " + file);
  if (FT_Set_Pixel_Sizes(ft.face, 0, pixel_size) != 0)
    return pictavo::Status::Error("font cannot be sized");
  const std::vector<char32_t> cps = DecodeUtf8(text);

  // First pass: the extent of the line, with kerning.
  const FT_Face face = ft.face;
  const int ascent = static_cast<int>(face->size->metrics.ascender >> 6);
  const int descent = static_cast<int>(-(face->size->metrics.descender >> 6));
  struct Placed {
    FT_UInt glyph;
    int pen_x;
  };
  std::vector<Placed> placed;
  long pen = 0;
  FT_UInt prev = 0;
  int min_x = INT_MAX, max_x = INT_MIN;
  for (char32_t cp : cps) {
    const FT_UInt g = FT_Get_Char_Index(face, cp);
    if (prev && g && FT_HAS_KERNING(face)) {
      FT_Vector k;
      if (FT_Get_Kerning(face, prev, g, FT_KERNING_DEFAULT, &k) == 0) pen += k.x;
    }
    if (FT_Load_Glyph(face, g, FT_LOAD_DEFAULT) != 0) continue;
    const int x = static_cast<int>(pen >> 6);
    placed.push_back({g, x});
    FT_BBox box;
    FT_Outline_Get_CBox(&face->glyph->outline, &box);
    min_x = std::min(min_x, x + static_cast<int>(box.xMin >> 6));
    max_x = std::max(max_x, x + static_cast<int>((box.xMax + 63) >> 6));
    min_x = std::min(min_x, x);
    max_x = std::max(max_x, static_cast<int>((pen + face->glyph->advance.x) >> 6));
    pen += face->glyph->advance.x;
    prev = g;
  }
  if (placed.empty() || max_x <= min_x)
    return pictavo::Status::Error("the font has no glyphs for the text");
  const int w = max_x - min_x, h = ascent + descent;
  if (auto st = mask.Allocate(w, h, imaging::TIEPixelFormat::ie8g); !st.ok()) return st;

  // Second pass: render each glyph and add its coverage.
  for (const Placed& p : placed) {
    if (FT_Load_Glyph(face, p.glyph, FT_LOAD_RENDER) != 0) continue;
    const FT_Bitmap& bm = face->glyph->bitmap;
    const int ox = p.pen_x - min_x + face->glyph->bitmap_left;
    const int oy = ascent - face->glyph->bitmap_top;
    for (unsigned r = 0; r < bm.rows; ++r) {
      const int y = oy + static_cast<int>(r);
      if (y < 0 || y >= h) continue;
      uint8_t* row = mask.Scanline(y);
      const unsigned char* src = bm.buffer + static_cast<long>(r) * bm.pitch;
      for (unsigned c = 0; c < bm.width; ++c) {
        const int x = ox + static_cast<int>(c);
        if (x < 0 || x >= w) continue;
        row[x] = static_cast<uint8_t>(std::min(255, row[x] + src[c]));
      }
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::editing
