#include "imaging/codecs/tga_codec.h"

#include "platform/bytes.h"

namespace pictavo::imaging::codecs {

namespace {

// What the fourth byte of a 32-bit pixel means, from the attributes-type field of the extension
// area that a TGA 2.0 footer points to: 0 no alpha, 1 and 2 data that is not alpha, 3 alpha,
// 4 premultiplied alpha. -1 when the file has no (sane) extension area.
int AttributesType(const uint8_t* data, size_t size) {
  constexpr size_t kFooter = 26, kExtension = 495;
  if (size < 18 + kFooter) return -1;
  const uint8_t* foot = data + size - kFooter;
  if (std::memcmp(foot + 8, "TRUEVISION-XFILE.", 18) != 0) return -1;
  const size_t ext = platform::LoadLe32(foot);
  if (ext < 18 || ext > size - kFooter || size - kFooter - ext < kExtension) return -1;
  if (platform::LoadLe16(data + ext) < kExtension) return -1;
  return data[ext + kExtension - 1];
}

struct TgaHeader {
  int id_len, cmap_type, type, cmap_first, cmap_len, cmap_bits, w, h, bpp, desc;
  bool rle;
  int base;  // 1 colour-mapped, 2 true colour, 3 grey
};

// The colour map: 15/16-bit entries widened, 24/32-bit ones in RGB order, with their alpha.
pictavo::Status ReadColourMap(ByteReader& r, const TgaHeader& hd, std::vector<TRGB>& pal,
                              std::vector<uint8_t>& pal_alpha) {
  const int eb = (hd.cmap_bits + 7) / 8;
  if (eb < 2 || eb > 4) return Corrupt("TGA", "bad colour map");
  for (int i = 0; i < hd.cmap_len; ++i) {
    uint8_t e[4] = {0, 0, 0, 255};
    r.read(e, eb);
    if (eb == 2) {
      const int v = platform::LoadLe16(e);
      pal.push_back(TRGB{uint8_t(((v >> 10) & 31) * 255 / 31), uint8_t(((v >> 5) & 31) * 255 / 31),
                         uint8_t((v & 31) * 255 / 31)});
    } else {
      pal.push_back(TRGB{e[2], e[1], e[0]});
    }
    pal_alpha.push_back(eb == 4 ? e[3] : 255);
  }
  if (r.failed()) return Corrupt("TGA", "colour map cut short");
  return pictavo::Status::OK();
}

// The pixels as stored, `pb` bytes each, run-length packets expanded.
pictavo::Status ReadTgaPixels(ByteReader& r, bool rle, size_t total, int pb,
                              std::vector<uint8_t>& px) {
  if (!rle && total * pb > r.left()) return Corrupt("TGA", "pixel data cut short");
  // An RLE packet of 1 + pb bytes gives at most 128 pixels.
  if (rle && total / 128 > r.left() / (1 + pb) + 1) return Corrupt("TGA", "pixel data cut short");
  px.resize(total * pb);
  if (!rle) {
    r.read(px.data(), px.size());
    return pictavo::Status::OK();
  }
  size_t n = 0;
  while (n < total) {
    const uint8_t head = r.u8();
    const size_t count = std::min<size_t>((head & 0x7F) + 1, total - n);
    if (head & 0x80) {
      uint8_t v[4];
      if (!r.read(v, pb)) break;
      for (size_t i = 0; i < count; ++i, ++n) std::memcpy(&px[n * pb], v, pb);
    } else {
      if (!r.read(&px[n * pb], count * pb)) break;
      n += count;
    }
  }
  if (n < total) return Corrupt("TGA", "pixel data cut short");
  return pictavo::Status::OK();
}

// The stored pixels into the bitmap, turned to top-left origin. Plain pointers and sizes, not
// the vectors: the pixel stores could alias a vector's fields, which would then be read anew
// for every pixel.
void CopyTgaPixels(const TgaHeader& hd, const uint8_t* px, const uint8_t* pal_alpha,
                   int pal_alpha_len, TIEBitmap* bmp) {
  const int w = hd.w, h = hd.h, base = hd.base, cmap_first = hd.cmap_first;
  const int pb = (hd.bpp + 7) / 8;
  const bool alpha = bmp->HasAlphaChannel();
  const bool top = (hd.desc & 0x20) != 0, right = (hd.desc & 0x10) != 0;
  for (int y = 0; y < h; ++y) {
    const int sy = top ? y : h - 1 - y;
    uint8_t* d = bmp->Scanline(y);
    uint8_t* a = alpha ? bmp->AlphaScanline(y) : nullptr;
    if (pb == 1 && !a && !right) {  // 8-bit indices or grey, left to right: the row as it is
      std::memcpy(d, px + static_cast<size_t>(sy) * w, w);
      continue;
    }
    for (int x = 0; x < w; ++x) {
      const int sx = right ? w - 1 - x : x;
      const uint8_t* s = &px[(static_cast<size_t>(sy) * w + sx) * pb];
      if (base == 1) {
        d[x] = s[0];
        if (a) {
          const int k = s[0] - cmap_first;
          a[x] = k >= 0 && k < pal_alpha_len ? pal_alpha[k] : 255;
        }
      } else if (base == 3) {
        d[x] = s[0];
        if (a) a[x] = s[1];
      } else if (pb == 2) {
        const int v = platform::LoadLe16(s);
        d[3 * x] = ((v >> 10) & 31) * 255 / 31, d[3 * x + 1] = ((v >> 5) & 31) * 255 / 31,
              d[3 * x + 2] = (v & 31) * 255 / 31;
      } else {
        d[3 * x] = s[2], d[3 * x + 1] = s[1], d[3 * x + 2] = s[0];
        if (a) a[x] = s[3];
      }
    }
  }
}

// Premultiplied alpha: the colours back to their straight values.
void Unpremultiply(TIEBitmap* bmp) {
  for (int y = 0; y < bmp->Height(); ++y) {
    uint8_t* d = bmp->Scanline(y);
    const uint8_t* a = bmp->AlphaScanline(y);
    for (int x = 0; x < bmp->Width(); ++x)
      for (int c = 0; c < 3; ++c)
        d[3 * x + c] = a[x] ? static_cast<uint8_t>(std::min(255, d[3 * x + c] * 255 / a[x])) : 0;
  }
}

}  // namespace

pictavo::Status DecodeTGA(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  TgaHeader hd{};
  hd.id_len = r.u8(), hd.cmap_type = r.u8(), hd.type = r.u8();
  hd.cmap_first = r.le16(), hd.cmap_len = r.le16(), hd.cmap_bits = r.u8();
  r.le16(), r.le16();
  hd.w = r.le16(), hd.h = r.le16(), hd.bpp = r.u8(), hd.desc = r.u8();
  if (r.failed()) return Corrupt("TGA", "header cut short");
  hd.rle = hd.type >= 9;
  hd.base = hd.rle ? hd.type - 8 : hd.type;
  const int base = hd.base, bpp = hd.bpp, w = hd.w, h = hd.h;
  if (!(base == 1 || base == 2 || base == 3)) return Corrupt("TGA", "unsupported type");
  const int alpha_bits = hd.desc & 15;
  params.FileType = TIOFileType::ioTGA;
  params.Width = w, params.Height = h;
  params.BitsPerSample = 8;
  params.SamplesPerPixel = base == 2 ? (bpp == 32 ? 4 : 3) : (bpp == 16 && base == 3 ? 2 : 1);
  // A 32-bit pixel's fourth byte is alpha when the extension area says so; without one, when
  // the descriptor counts attribute bits, or (older writers) unless it is zero everywhere.
  const int attributes = base == 2 && bpp == 32 ? AttributesType(data, size) : -1;
  params.HasAlpha =
      (base == 2 && bpp == 32 && (attributes < 0 || attributes >= 3)) || (base == 3 && bpp == 16);
  params.TGA_Compressed = hd.rle;
  params.ImageCount = 1;
  if ((base == 1 && (bpp != 8 || hd.cmap_type != 1)) ||
      (base == 2 && bpp != 15 && bpp != 16 && bpp != 24 && bpp != 32) ||
      (base == 3 && bpp != 8 && bpp != 16))
    return Corrupt("TGA", "unsupported depth");
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  r.skip(hd.id_len);
  std::vector<TRGB> pal;
  std::vector<uint8_t> pal_alpha;
  if (hd.cmap_type == 1)
    if (auto st = ReadColourMap(r, hd, pal, pal_alpha); !st.ok()) return st;
  std::vector<uint8_t> px;
  const size_t total = static_cast<size_t>(w) * h;
  if (auto st = ReadTgaPixels(r, hd.rle, total, (bpp + 7) / 8, px); !st.ok()) return st;
  const TIEPixelFormat fmt = base == 1   ? TIEPixelFormat::ie8p
                             : base == 3 ? TIEPixelFormat::ie8g
                                         : TIEPixelFormat::ie24RGB;
  if (auto st = bmp->Allocate(w, h, fmt); !st.ok()) return st;
  bool alpha = params.HasAlpha;
  bool pal_has_alpha = false;
  for (uint8_t a : pal_alpha) pal_has_alpha = pal_has_alpha || a < 255;
  if (base == 1 && pal_has_alpha) alpha = true;
  if (alpha) bmp->AddAlphaChannel();
  if (base == 1) {
    bmp->Palette().assign(256, TRGB{});
    for (size_t i = 0; i < pal.size() && hd.cmap_first + i < 256; ++i)
      bmp->Palette()[hd.cmap_first + i] = pal[i];
  }
  CopyTgaPixels(hd, px.data(), pal_alpha.data(), static_cast<int>(pal_alpha.size()), bmp);
  if (attributes == 4) Unpremultiply(bmp);
  // 32-bit files whose alpha bits say 0 but hold all zeros are opaque pictures.
  if (alpha && base == 2 && alpha_bits == 0 && attributes < 0) {
    bool all_zero = true;
    for (int y = 0; y < h && all_zero; ++y)
      for (int x = 0; x < w && all_zero; ++x) all_zero = bmp->AlphaScanline(y)[x] == 0;
    if (all_zero) bmp->AddAlphaChannel(255);
  }
  return pictavo::Status::OK();
}

pictavo::Status EncodeTGA(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  // The saver converts first; a caller that does not would make the encoder read past rows.
  if (fmt != TIEPixelFormat::ie8g && fmt != TIEPixelFormat::ie8p && fmt != TIEPixelFormat::ie24RGB)
    return pictavo::Status::Error("TGA is written from 8-bit grey, palette or 24-bit RGB only");
  const int w = bmp.Width(), h = bmp.Height();
  if (w > 65535 || h > 65535) return pictavo::Status::Error("picture too large for TGA");
  const bool alpha = bmp.HasAlphaChannel() && fmt == TIEPixelFormat::ie24RGB;
  const int base = fmt == TIEPixelFormat::ie8p ? 1 : fmt == TIEPixelFormat::ie8g ? 3 : 2;
  const int pb = base == 2 ? (alpha ? 4 : 3) : 1;
  out.clear();
  out.push_back(0);
  out.push_back(base == 1 ? 1 : 0);
  out.push_back(static_cast<uint8_t>(base + (params.TGA_Compressed ? 8 : 0)));
  PutLE16(out, 0), PutLE16(out, base == 1 ? 256 : 0), out.push_back(base == 1 ? 24 : 0);
  PutLE16(out, 0), PutLE16(out, 0), PutLE16(out, w), PutLE16(out, h);
  out.push_back(static_cast<uint8_t>(pb * 8));
  out.push_back(static_cast<uint8_t>(0x20 | (alpha ? 8 : 0)));  // top-left origin
  if (base == 1)
    for (int i = 0; i < 256; ++i) {
      const TRGB c = i < static_cast<int>(bmp.Palette().size()) ? bmp.Palette()[i] : TRGB{};
      out.push_back(c.b), out.push_back(c.g), out.push_back(c.r);
    }
  std::vector<uint8_t> row(static_cast<size_t>(w) * pb);
  for (int y = 0; y < h; ++y) {
    const uint8_t* s = bmp.Scanline(y);
    if (base == 2) {
      const uint8_t* a = alpha ? bmp.AlphaScanline(y) : nullptr;
      for (int x = 0; x < w; ++x) {
        row[pb * x] = s[3 * x + 2], row[pb * x + 1] = s[3 * x + 1], row[pb * x + 2] = s[3 * x];
        if (a) row[pb * x + 3] = a[x];
      }
    } else {
      std::memcpy(row.data(), s, w);
    }
    if (!params.TGA_Compressed) {
      out.insert(out.end(), row.begin(), row.end());
      continue;
    }
    // RLE packets stay within a row, as most readers expect.
    for (int x = 0; x < w;) {
      int run = 1;
      while (x + run < w && run < 128 && std::memcmp(&row[(x + run) * pb], &row[x * pb], pb) == 0)
        ++run;
      if (run > 1) {
        out.push_back(static_cast<uint8_t>(0x80 | (run - 1)));
        out.insert(out.end(), &row[x * pb], &row[x * pb] + pb);
        x += run;
        continue;
      }
      int lit = 1;
      while (x + lit < w && lit < 128 &&
             !(x + lit + 1 < w &&
               std::memcmp(&row[(x + lit) * pb], &row[(x + lit + 1) * pb], pb) == 0))
        ++lit;
      out.push_back(static_cast<uint8_t>(lit - 1));
      out.insert(out.end(), &row[x * pb], &row[(x + lit) * pb]);
      x += lit;
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
