#include "imaging/codecs/bmp_codec.h"

#include <algorithm>
#include <bit>

#include "platform/bytes.h"

namespace pictavo::imaging::codecs {

namespace {

// A channel's bit mask, taken apart once a picture rather than once a pixel; Get scales the
// field to 8 bits.
struct MaskField {
  uint32_t mask;
  int shift, bits;
  explicit MaskField(uint32_t m)
      : mask(m), shift(m ? std::countr_zero(m) : 0), bits(std::popcount(m)) {}
  uint8_t Get(uint32_t v) const {
    if (!mask) return 0;
    const uint32_t x = (v & mask) >> shift;
    return bits >= 8 ? static_cast<uint8_t>(x >> (bits - 8))
                     : static_cast<uint8_t>(x * 255 / ((1u << bits) - 1));
  }
};

// Expands RLE4/RLE8 data into one index per pixel; returns false on damage.
bool DecodeRle(ByteReader& r, int w, int h, int bits, std::vector<uint8_t>& out) {
  out.assign(static_cast<size_t>(w) * h, 0);
  int x = 0, y = 0;
  while (r.left() >= 2) {
    const int n = r.u8(), c = r.u8();
    if (n > 0) {
      for (int i = 0; i < n; ++i, ++x)
        if (x < w && y < h)
          out[static_cast<size_t>(y) * w + x] = bits == 8 ? c : ((i & 1) ? c & 15 : c >> 4);
    } else if (c == 0) {
      x = 0, ++y;
    } else if (c == 1) {
      return true;
    } else if (c == 2) {
      x += r.u8(), y += r.u8();
    } else {
      const int bytes = bits == 8 ? c : (c + 1) / 2;
      for (int i = 0; i < c; ++i, ++x) {
        uint8_t v = 0;
        if (bits == 8)
          v = r.u8();
        else {
          if ((i & 1) == 0) {
            if (r.left() == 0) return false;  // the high nibble is read without moving on
            v = r.here()[0] >> 4;
          } else
            v = r.u8() & 15;
        }
        if (x < w && y < h) out[static_cast<size_t>(y) * w + x] = v;
      }
      if (bits == 4 && (c & 1)) r.u8();
      if (bytes & 1) r.u8();
    }
    if (r.failed()) return false;
  }
  return y >= h - 1;
}

// The fields of a BITMAPCOREHEADER or BITMAPINFOHEADER (and its later, longer forms).
struct DibHeader {
  uint32_t hsize = 0;
  int64_t w = 0, h = 0;
  int bits = 0;
  uint32_t comp = 0, colors = 0;
  uint32_t masks[4] = {0, 0, 0, 0};
  int xppm = 0, yppm = 0;
};

pictavo::Status ReadDibHeader(ByteReader& r, DibHeader& hd) {
  hd.hsize = r.le32();
  const uint32_t hsize = hd.hsize;
  if (hsize == 12) {
    hd.w = r.le16(), hd.h = static_cast<int16_t>(r.le16()), r.le16(), hd.bits = r.le16();
  } else if (hsize >= 40 && hsize <= 1024) {
    hd.w = static_cast<int32_t>(r.le32()), hd.h = static_cast<int32_t>(r.le32());
    r.le16(), hd.bits = r.le16(), hd.comp = r.le32();
    r.le32();
    hd.xppm = static_cast<int32_t>(r.le32()), hd.yppm = static_cast<int32_t>(r.le32());
    hd.colors = r.le32();
    r.le32();
    if (hsize >= 52 || hd.comp == 3 || hd.comp == 6) {
      const size_t after = 4 + 36;
      if (hsize >= 52) {
        r.seek(after);
        for (int i = 0; i < (hsize >= 56 ? 4 : 3); ++i) hd.masks[i] = r.le32();
      } else {
        r.seek(hsize);
        for (int i = 0; i < (hd.comp == 6 ? 4 : 3); ++i) hd.masks[i] = r.le32();
      }
    }
  } else {
    return Corrupt("BMP", "unknown header");
  }
  if (r.failed()) return Corrupt("BMP", "header cut short");
  return pictavo::Status::OK();
}

// Refuses pixel data that cannot be what the header says: uncompressed rows past the end of the
// file, run-length data of the wrong depth or far too short for the picture.
pictavo::Status CheckPixelData(const DibHeader& hd, size_t stride, size_t size,
                               size_t pixel_offset) {
  const uint32_t comp = hd.comp;
  if (comp != 1 && comp != 2) {
    if (pixel_offset > size || stride * static_cast<size_t>(hd.h) > size - pixel_offset)
      return Corrupt("BMP", "pixel data cut short");
  } else if ((comp == 1 && hd.bits != 8) || (comp == 2 && hd.bits != 4)) {
    return Corrupt("BMP", "RLE compression does not match the bit depth");
  } else if (static_cast<uint64_t>(hd.w) * static_cast<uint64_t>(hd.h) >
             uint64_t{size} * 256 + (uint64_t{1} << 22)) {
    // A two-byte run covers at most 255 pixels; skips and an early end could leave more
    // undefined, but no writer makes a huge picture out of them: such a header is refused
    // before the picture is allocated.
    return Corrupt("BMP", "RLE data too short for the picture size");
  }
  return pictavo::Status::OK();
}

// The uncompressed (or already expanded) rows into the allocated bitmap, bottom-up files turned.
void CopyDibRows(const uint8_t* pixels, size_t stride, const DibHeader& hd, bool bottom_up,
                 const std::vector<uint8_t>& rle, bool invert1, TIEBitmap* bmp) {
  const int W = static_cast<int>(hd.w), H = static_cast<int>(hd.h);
  const int bits = hd.bits;
  // Copies of the masks, which the pixel stores cannot alias: they stay in registers.
  const MaskField red(hd.masks[0]), green(hd.masks[1]), blue(hd.masks[2]), alpha(hd.masks[3]);
  const TIEPixelFormat fmt = bmp->PixelFormat();
  for (int y = 0; y < H; ++y) {
    const int sy = bottom_up ? H - 1 - y : y;
    uint8_t* d = bmp->Scanline(y);
    if (!rle.empty()) {
      std::memcpy(d, &rle[static_cast<size_t>(sy) * W], W);
      continue;
    }
    const uint8_t* s = pixels + stride * sy;
    switch (bits) {
      case 1:
        if (fmt == TIEPixelFormat::ie1g) {
          for (size_t i = 0; i < bmp->RowLen(); ++i) d[i] = invert1 ? ~s[i] : s[i];
        } else {
          for (int x = 0; x < W; ++x) d[x] = (s[x >> 3] >> (7 - (x & 7))) & 1;
        }
        break;
      case 4:
        for (int x = 0; x < W; ++x) d[x] = (x & 1) ? s[x >> 1] & 15 : s[x >> 1] >> 4;
        break;
      case 8:
        std::memcpy(d, s, W);
        break;
      case 24:
        for (int x = 0; x < W; ++x)
          d[3 * x] = s[3 * x + 2], d[3 * x + 1] = s[3 * x + 1], d[3 * x + 2] = s[3 * x];
        break;
      default: {
        const int bpp = bits / 8;
        uint8_t* a = bmp->HasAlphaChannel() ? bmp->AlphaScanline(y) : nullptr;
        for (int x = 0; x < W; ++x) {
          const uint32_t v =
              bpp == 4 ? platform::LoadLe32(s + 4 * x) : platform::LoadLe16(s + 2 * x);
          d[3 * x] = red.Get(v), d[3 * x + 1] = green.Get(v), d[3 * x + 2] = blue.Get(v);
          if (a) a[x] = alpha.Get(v);
        }
      }
    }
  }
}

}  // namespace

pictavo::Status DecodeDib(const uint8_t* data, size_t size, size_t pixel_offset, bool ico,
                          const DecodeOptions& opt, TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  DibHeader hd;
  if (auto st = ReadDibHeader(r, hd); !st.ok()) return st;
  const int bits = hd.bits;
  const uint32_t comp = hd.comp;
  const bool bottom_up = hd.h > 0;
  if (hd.h < 0) hd.h = -hd.h;
  if (ico) hd.h /= 2;  // icon height counts the AND mask too
  params.FileType = TIOFileType::ioBMP;
  params.Width = static_cast<int>(hd.w);
  params.Height = static_cast<int>(hd.h);
  params.BitsPerSample = bits <= 8 ? bits : 8;
  params.SamplesPerPixel = bits <= 8 ? 1 : (bits == 32 && (hd.masks[3] || ico) ? 4 : 3);
  params.ImageCount = 1;
  if (hd.xppm > 0 && hd.yppm > 0) {
    params.DpiX = static_cast<int>(hd.xppm * 0.0254 + 0.5);
    params.DpiY = static_cast<int>(hd.yppm * 0.0254 + 0.5);
  }
  if (!(bits == 1 || bits == 4 || bits == 8 || bits == 16 || bits == 24 || bits == 32))
    return Corrupt("BMP", "unsupported bit depth");
  if (!(comp == 0 || comp == 1 || comp == 2 || comp == 3 || comp == 6))
    return Corrupt("BMP", "unsupported compression");
  if (auto st = CheckDimensions(hd.w, hd.h, opt.max_pixels); !st.ok()) return st;
  // Palette.
  std::vector<TRGB> pal;
  if (bits <= 8) {
    const size_t entry = hd.hsize == 12 ? 3 : 4;
    size_t n = hd.colors ? std::min<uint32_t>(hd.colors, 256) : (1u << bits);
    r.seek(hd.hsize + (comp == 3 && hd.hsize == 40 ? 12 : 0));
    for (size_t i = 0; i < n && r.left() >= entry; ++i) {
      const uint8_t b = r.u8(), g = r.u8(), rr = r.u8();
      if (entry == 4) r.u8();
      pal.push_back(TRGB{rr, g, b});
    }
  }
  const size_t stride = ((static_cast<size_t>(hd.w) * bits + 31) / 32) * 4;
  if (auto st = CheckPixelData(hd, stride, size, pixel_offset); !st.ok()) return st;
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  const int W = static_cast<int>(hd.w), H = static_cast<int>(hd.h);
  const TIEPixelFormat fmt = bits == 1 && !ico ? TIEPixelFormat::ie1g
                             : bits <= 8       ? TIEPixelFormat::ie8p
                                               : TIEPixelFormat::ie24RGB;
  if (auto st = bmp->Allocate(W, H, fmt); !st.ok()) return st;
  if (fmt != TIEPixelFormat::ie24RGB) {
    pal.resize(std::max<size_t>(pal.size(), 2));
    bmp->Palette() = pal;
    if (fmt == TIEPixelFormat::ie8p) bmp->Palette().resize(256);
  }
  std::vector<uint8_t> rle;
  if (comp == 1 || comp == 2) {
    if (pixel_offset > size) return Corrupt("BMP", "pixel data missing");
    ByteReader rr(data + pixel_offset, size - pixel_offset);
    if (!DecodeRle(rr, W, H, comp == 1 ? 8 : 4, rle)) return Corrupt("BMP", "RLE data damaged");
  }
  const bool fields = comp == 3 || comp == 6;
  uint32_t* masks = hd.masks;
  if (bits == 16 && !fields) masks[0] = 0x7C00, masks[1] = 0x03E0, masks[2] = 0x001F;
  if (bits == 32 && !fields)
    masks[0] = 0xFF0000, masks[1] = 0xFF00, masks[2] = 0xFF, masks[3] = ico ? 0xFF000000 : 0;
  if (bits == 32 && masks[3]) bmp->AddAlphaChannel();
  // A white-on-black 1-bit palette maps to our 1 = white directly; otherwise invert.
  const bool invert1 = fmt == TIEPixelFormat::ie1g &&
                       (pal[0].r + pal[0].g + pal[0].b) > (pal[1].r + pal[1].g + pal[1].b);
  CopyDibRows(data + pixel_offset, stride, hd, bottom_up, rle, invert1, bmp);
  if (fmt == TIEPixelFormat::ie1g) bmp->Palette() = {TRGB{0, 0, 0}, TRGB{255, 255, 255}};
  // An icon's 32-bit alpha of all zeros means "use the AND mask"; treat it as opaque.
  if (bmp->HasAlphaChannel()) {
    bool all_zero = true;
    for (int y = 0; y < H && all_zero; ++y)
      for (int x = 0; x < W && all_zero; ++x) all_zero = bmp->AlphaScanline(y)[x] == 0;
    if (all_zero) bmp->AddAlphaChannel(255);
  }
  return pictavo::Status::OK();
}

pictavo::Status DecodeBMP(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  if (r.u8() != 'B' || r.u8() != 'M') return Corrupt("BMP", "no signature");
  r.le32();
  r.le32();
  const uint32_t offset = r.le32();
  if (r.failed() || offset >= size) return Corrupt("BMP", "header cut short");
  return DecodeDib(data + 14, size - 14, offset >= 14 ? offset - 14 : 0, false, opt, bmp, params);
}

pictavo::Status EncodeBMP(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  const int w = bmp.Width(), h = bmp.Height();
  const TIEPixelFormat fmt = bmp.PixelFormat();
  const bool alpha = bmp.HasAlphaChannel() && fmt == TIEPixelFormat::ie24RGB;
  const int bits = fmt == TIEPixelFormat::ie1g                                    ? 1
                   : (fmt == TIEPixelFormat::ie8p || fmt == TIEPixelFormat::ie8g) ? 8
                   : alpha                                                        ? 32
                                                                                  : 24;
  const uint32_t header = alpha ? 108 : 40;
  const uint32_t ncolors = bits == 1 ? 2 : bits == 8 ? 256 : 0;
  const size_t stride = ((static_cast<size_t>(w) * bits + 31) / 32) * 4;
  const uint64_t offset = 14 + header + 4 * ncolors;
  const uint64_t total = offset + stride * h;
  if (total > 0xFFFFFFFFu) return pictavo::Status::Error("picture too large for BMP");
  out.clear();
  out.reserve(total);
  out.push_back('B'), out.push_back('M');
  PutLE32(out, static_cast<uint32_t>(total));
  PutLE32(out, 0);
  PutLE32(out, static_cast<uint32_t>(offset));
  PutLE32(out, header);
  PutLE32(out, w);
  PutLE32(out, h);
  PutLE16(out, 1);
  PutLE16(out, bits);
  PutLE32(out, alpha ? 3 : 0);
  PutLE32(out, static_cast<uint32_t>(stride * h));
  PutLE32(out, static_cast<uint32_t>(std::max(1, params.DpiX) / 0.0254 + 0.5));
  PutLE32(out, static_cast<uint32_t>(std::max(1, params.DpiY) / 0.0254 + 0.5));
  PutLE32(out, ncolors);
  PutLE32(out, 0);
  if (alpha) {
    PutLE32(out, 0x00FF0000), PutLE32(out, 0x0000FF00), PutLE32(out, 0x000000FF),
        PutLE32(out, 0xFF000000);
    PutLE32(out, 0x73524742);  // 'sRGB'
    out.resize(out.size() + 48, 0);
  }
  if (bits == 1) {
    PutLE32(out, 0), PutLE32(out, 0x00FFFFFF);
  } else if (bits == 8) {
    for (int i = 0; i < 256; ++i) {
      TRGB c{uint8_t(i), uint8_t(i), uint8_t(i)};
      if (fmt == TIEPixelFormat::ie8p)
        c = i < static_cast<int>(bmp.Palette().size()) ? bmp.Palette()[i] : TRGB{};
      out.push_back(c.b), out.push_back(c.g), out.push_back(c.r), out.push_back(0);
    }
  }
  std::vector<uint8_t> row(stride, 0);
  for (int y = h - 1; y >= 0; --y) {
    const uint8_t* s = bmp.Scanline(y);
    if (bits == 1 || bits == 8) {
      std::memcpy(row.data(), s, bmp.RowLen());
    } else if (bits == 24) {
      for (int x = 0; x < w; ++x)
        row[3 * x] = s[3 * x + 2], row[3 * x + 1] = s[3 * x + 1], row[3 * x + 2] = s[3 * x];
    } else {
      const uint8_t* a = bmp.AlphaScanline(y);
      for (int x = 0; x < w; ++x)
        row[4 * x] = s[3 * x + 2], row[4 * x + 1] = s[3 * x + 1], row[4 * x + 2] = s[3 * x],
                row[4 * x + 3] = a[x];
    }
    out.insert(out.end(), row.begin(), row.end());
  }
  return pictavo::Status::OK();
}

namespace {

// Bits per pixel of the layouts raw data may have; 0 for any other.
int RawBitsPerPixel(TIEPixelFormat format) {
  switch (format) {
    case TIEPixelFormat::ie1g:
      return 1;
    case TIEPixelFormat::ie8g:
      return 8;
    case TIEPixelFormat::ie16g:
      return 16;
    case TIEPixelFormat::ie24RGB:
      return 24;
    case TIEPixelFormat::ie48RGB:
      return 48;
    case TIEPixelFormat::ieCMYK:
      return 32;
    default:
      return 0;
  }
}

size_t RawStride(const TIORawLayout& L, size_t packed) {
  const size_t align = L.row_align == 2 || L.row_align == 4 ? L.row_align : 1;
  return (packed + align - 1) / align * align;
}

// Turns a stored row into the bitmap's order or back (the same swaps either way): blue-first
// samples and big-endian 16-bit values swapped in place.
void SwapRawRow(uint8_t* row, int width, int bits, size_t packed, const TIORawLayout& L) {
  if (L.bgr && (bits == 24 || bits == 48)) {
    const int k = bits / 24;  // bytes per sample
    for (int x = 0; x < width; ++x)
      for (int b = 0; b < k; ++b) std::swap(row[(3 * x) * k + b], row[(3 * x + 2) * k + b]);
  }
  if (L.big_endian && (bits == 16 || bits == 48))
    for (size_t i = 0; i + 1 < packed; i += 2) std::swap(row[i], row[i + 1]);
}

}  // namespace

pictavo::Status DecodeRaw(const uint8_t* data, size_t size, const TIORawLayout& L, TIEBitmap& bmp) {
  if (auto st = CheckDimensions(L.width, L.height, kMaxBitmapPixels); !st.ok()) return st;
  const int bits = RawBitsPerPixel(L.format);
  if (bits == 0) return pictavo::Status::Error("unsupported raw layout");
  const size_t packed = (static_cast<size_t>(L.width) * bits + 7) / 8;
  const size_t stride = RawStride(L, packed);
  if (L.header_bytes > size || stride * L.height > size - L.header_bytes)
    return pictavo::Status::Error("raw file is smaller than its layout");
  if (auto st = bmp.Allocate(L.width, L.height, L.format); !st.ok()) return st;
  for (int y = 0; y < L.height; ++y) {
    const int sy = L.bottom_up ? L.height - 1 - y : y;
    const uint8_t* s = data + L.header_bytes + stride * sy;
    uint8_t* d = bmp.Scanline(y);
    std::memcpy(d, s, packed);
    SwapRawRow(d, L.width, bits, packed, L);
  }
  return pictavo::Status::OK();
}

pictavo::Status EncodeRaw(const TIEBitmap& bmp, const TIORawLayout& L, std::vector<uint8_t>& out) {
  const int bits = RawBitsPerPixel(L.format);
  if (bits == 0 || bmp.PixelFormat() != L.format)
    return pictavo::Status::Error("unsupported raw layout");
  const size_t packed = (static_cast<size_t>(bmp.Width()) * bits + 7) / 8;
  const size_t stride = RawStride(L, packed);
  out.assign(L.header_bytes + stride * bmp.Height(), 0);
  for (int y = 0; y < bmp.Height(); ++y) {
    const int dy = L.bottom_up ? bmp.Height() - 1 - y : y;
    uint8_t* d = out.data() + L.header_bytes + stride * dy;
    std::memcpy(d, bmp.Scanline(y), packed);
    SwapRawRow(d, bmp.Width(), bits, packed, L);
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
