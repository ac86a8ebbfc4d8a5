#include "imaging/codecs/tiff_codec.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <memory>

#include "imaging/bitmap_rows.h"

namespace pictavo::imaging::codecs {

namespace {

// Client I/O over a byte vector (read-write) or a constant buffer (read only).
struct MemFile {
  const uint8_t* rdata = nullptr;
  size_t rsize = 0;
  std::vector<uint8_t>* wbuf = nullptr;
  uint64_t pos = 0;
  std::string error;

  const uint8_t* data() const { return wbuf ? wbuf->data() : rdata; }
  uint64_t size() const { return wbuf ? wbuf->size() : rsize; }
};

tmsize_t MemRead(thandle_t h, void* buf, tmsize_t n) {
  auto* f = static_cast<MemFile*>(h);
  if (n <= 0 || f->pos >= f->size()) return 0;
  const uint64_t k = std::min<uint64_t>(static_cast<uint64_t>(n), f->size() - f->pos);
  std::memcpy(buf, f->data() + f->pos, k);
  f->pos += k;
  return static_cast<tmsize_t>(k);
}

tmsize_t MemWrite(thandle_t h, void* buf, tmsize_t n) {
  auto* f = static_cast<MemFile*>(h);
  if (!f->wbuf || n < 0) return -1;
  const uint64_t end = f->pos + static_cast<uint64_t>(n);
  if (end > f->wbuf->size()) f->wbuf->resize(end);
  std::memcpy(f->wbuf->data() + f->pos, buf, static_cast<size_t>(n));
  f->pos = end;
  return n;
}

toff_t MemSeek(thandle_t h, toff_t off, int whence) {
  auto* f = static_cast<MemFile*>(h);
  uint64_t base = whence == SEEK_CUR ? f->pos : whence == SEEK_END ? f->size() : 0;
  f->pos = base + off;
  return f->pos;
}

int MemClose(thandle_t) {
  return 0;
}
toff_t MemSize(thandle_t h) {
  return static_cast<MemFile*>(h)->size();
}
// A constant buffer is handed to libtiff as a mapped file, so strips are decoded where they lie
// instead of being copied into libtiff's own buffer first.
int MemMap(thandle_t h, void** base, toff_t* size) {
  auto* f = static_cast<MemFile*>(h);
  if (f->wbuf || !f->rdata) return 0;
  *base = const_cast<uint8_t*>(f->rdata);
  *size = f->rsize;
  return 1;
}
void NoUnmap(thandle_t, void*, toff_t) {}

int OnError(TIFF*, void* user, const char* module, const char* fmt, va_list ap) {
  auto* f = static_cast<MemFile*>(user);
  char buf[300];
  std::vsnprintf(buf, sizeof buf, fmt, ap);
  if (f->error.empty()) f->error = std::string(module ? module : "") + ": " + buf;
  return 1;
}
int OnWarning(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

struct TiffCloser {
  void operator()(TIFF* t) const {
    if (t) TIFFClose(t);
  }
};
using TiffPtr = std::unique_ptr<TIFF, TiffCloser>;

TiffPtr OpenMem(MemFile& f, const char* mode) {
  TIFFOpenOptions* opts = TIFFOpenOptionsAlloc();
  TIFFOpenOptionsSetErrorHandlerExtR(opts, OnError, &f);
  TIFFOpenOptionsSetWarningHandlerExtR(opts, OnWarning, &f);
  // No single allocation larger than a 1 GiB strip or tile, whatever the header claims.
  TIFFOpenOptionsSetMaxSingleMemAlloc(opts, tmsize_t{1} << 30);
  TIFF* t = TIFFClientOpenExt("memory", mode, &f, MemRead, MemWrite, MemSeek, MemClose, MemSize,
                              MemMap, NoUnmap, opts);
  TIFFOpenOptionsFree(opts);
  return TiffPtr(t);
}

pictavo::Status Fail(const MemFile& f, const char* what) {
  return Corrupt("TIFF", f.error.empty() ? what : f.error.c_str());
}

uint8_t Scale16(uint16_t v) {
  return static_cast<uint8_t>(v >> 8);
}

// Unpacks `bps`-bit samples (1, 2, 4) to bytes scaled to 0..255 or left as indices.
void Unpack(const uint8_t* s, uint8_t* d, int count, int bps, bool scale) {
  const int per_byte = 8 / bps, mask = (1 << bps) - 1;
  for (int x = 0; x < count; ++x) {
    const int v = (s[x / per_byte] >> ((per_byte - 1 - x % per_byte) * bps)) & mask;
    d[x] = static_cast<uint8_t>(scale ? v * 255 / mask : v);
  }
}

pictavo::Status ReadViaRGBA(TIFF* tif, MemFile& f, int w, int h, bool alpha, TIEBitmap* bmp) {
  std::vector<uint32_t> rgba(static_cast<size_t>(w) * h);
  if (!TIFFReadRGBAImageOriented(tif, static_cast<uint32_t>(w), static_cast<uint32_t>(h),
                                 rgba.data(), ORIENTATION_TOPLEFT, 0))
    return Fail(f, "unsupported or damaged picture data");
  if (auto st = bmp->Allocate(w, h, TIEPixelFormat::ie24RGB); !st.ok()) return st;
  if (alpha) bmp->AddAlphaChannel();
  for (int y = 0; y < h; ++y) {
    uint8_t* d = bmp->Scanline(y);
    const uint32_t* s = rgba.data() + static_cast<size_t>(y) * w;
    for (int x = 0; x < w; ++x) {
      d[3 * x] = TIFFGetR(s[x]);
      d[3 * x + 1] = TIFFGetG(s[x]);
      d[3 * x + 2] = TIFFGetB(s[x]);
    }
    if (alpha) {
      uint8_t* a = bmp->AlphaScanline(y);
      for (int x = 0; x < w; ++x) a[x] = TIFFGetA(s[x]);
    }
  }
  return pictavo::Status::OK();
}

struct Layout {
  uint32_t w = 0, h = 0;
  uint16_t bps = 1, spp = 1, photometric = PHOTOMETRIC_MINISBLACK, planar = PLANARCONFIG_CONTIG;
  uint16_t compression = COMPRESSION_NONE, extra_count = 0, inkset = INKSET_CMYK;
  uint16_t sample_format = SAMPLEFORMAT_UINT;
  uint16_t* extra = nullptr;
};

// Associated (premultiplied) alpha is undone so the plane means what it says.
void UnpremultiplyRGB(TIEBitmap* bmp) {
  if (bmp->PixelFormat() != TIEPixelFormat::ie24RGB) return;
  for (int y = 0; y < bmp->Height(); ++y) {
    uint8_t* d = bmp->Scanline(y);
    const uint8_t* a = bmp->AlphaScanline(y);
    for (int x = 0; x < bmp->Width(); ++x)
      if (a[x] && a[x] < 255)
        for (int c = 0; c < 3; ++c)
          d[3 * x + c] = static_cast<uint8_t>(std::min(255, d[3 * x + c] * 255 / a[x]));
  }
}

// Separate colour planes, read plane after plane: libtiff decodes a compressed strip of several
// rows only forwards, so going through the planes of each row in turn would mean going back.
template <typename PlaceRow>
pictavo::Status ForEachPlaneRow(TIFF* tif, MemFile& f, const Layout& L, uint8_t* buf,
                                PlaceRow place) {
  for (int s = 0; s < L.spp; ++s)
    for (uint32_t y = 0; y < L.h; ++y) {
      if (TIFFReadScanline(tif, buf, y, static_cast<uint16_t>(s)) < 0)
        return Fail(f, "picture data cannot be read");
      place(static_cast<int>(y), s);
    }
  return pictavo::Status::OK();
}

// 16-bit RGB without alpha, narrowed to 8 bits row by row as it is decoded, rounded as
// TIEBitmap::ConvertTo rounds: the full-size 16-bit picture is never made.
pictavo::Status ReadRGB16As8(TIFF* tif, MemFile& f, const Layout& L, TIEBitmap* bmp) {
  const int w = static_cast<int>(L.w), h = static_cast<int>(L.h);
  if (auto st = bmp->Allocate(w, h, TIEPixelFormat::ie24RGB); !st.ok()) return st;
  const tmsize_t line = TIFFScanlineSize(tif);
  if (line <= 0) return Fail(f, "bad scanline size");
  const auto narrow_row = [&](const uint16_t* s, uint8_t* d) {
    if (L.spp == 3) {
      rows::Narrow16Row(s, d, static_cast<size_t>(w) * 3);
    } else {
      for (int x = 0; x < w; ++x)
        for (int c = 0; c < 3; ++c)
          d[3 * x + c] = rows::Narrow16(s[static_cast<size_t>(x) * L.spp + c]);
    }
  };
  // Whole strips at a time where a strip is of a sensible size: the codecs decode a strip in one
  // call (deflate then goes through libdeflate) instead of resuming once per row.
  uint32_t rows_per_strip = 0;
  TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rows_per_strip);
  rows_per_strip = std::min(rows_per_strip, L.h);
  const tmsize_t strip = TIFFStripSize(tif);
  if (L.planar != PLANARCONFIG_SEPARATE && rows_per_strip > 0 &&
      strip == line * static_cast<tmsize_t>(rows_per_strip) && strip <= (tmsize_t{32} << 20)) {
    std::vector<uint16_t> buf((static_cast<size_t>(strip) + 1) / 2);
    uint32_t index = 0;
    for (uint32_t y0 = 0; y0 < L.h; y0 += rows_per_strip, ++index) {
      const uint32_t rows = std::min(rows_per_strip, L.h - y0);
      const tmsize_t want = line * static_cast<tmsize_t>(rows);
      if (TIFFReadEncodedStrip(tif, index, buf.data(), want) != want)
        return Fail(f, "picture data cannot be read");
      for (uint32_t r = 0; r < rows; ++r)
        narrow_row(buf.data() + static_cast<size_t>(r) * static_cast<size_t>(line) / 2,
                   bmp->Scanline(static_cast<int>(y0 + r)));
    }
    return pictavo::Status::OK();
  }
  std::vector<uint16_t> buf((static_cast<size_t>(line) + 1) / 2);
  if (L.planar == PLANARCONFIG_SEPARATE)
    return ForEachPlaneRow(tif, f, L, reinterpret_cast<uint8_t*>(buf.data()), [&](int y, int s) {
      uint8_t* d = bmp->Scanline(y);
      if (s < 3)
        for (int x = 0; x < w; ++x) d[3 * x + s] = rows::Narrow16(buf[x]);
    });
  for (int y = 0; y < h; ++y) {
    uint8_t* d = bmp->Scanline(y);
    if (TIFFReadScanline(tif, buf.data(), static_cast<uint32_t>(y), 0) < 0)
      return Fail(f, "picture data cannot be read");
    narrow_row(buf.data(), d);
  }
  return pictavo::Status::OK();
}

// The bitmap layout that holds the page's samples as they are, or ieNull when libtiff's RGBA
// reader must convert them.
TIEPixelFormat DirectLayout(TIFF* tif, const Layout& L) {
  const int color = L.spp - L.extra_count;
  const bool plain = !TIFFIsTiled(tif) && L.sample_format == SAMPLEFORMAT_UINT;
  if (plain && color == 1 && L.spp <= 2 &&
      (L.photometric == PHOTOMETRIC_MINISBLACK || L.photometric == PHOTOMETRIC_MINISWHITE)) {
    if (L.bps == 1 && L.spp == 1) return TIEPixelFormat::ie1g;
    if (L.bps == 2 || L.bps == 4 || L.bps == 8) return TIEPixelFormat::ie8g;
    if (L.bps == 16) return TIEPixelFormat::ie16g;
  } else if (plain && L.photometric == PHOTOMETRIC_PALETTE && L.spp == 1 &&
             (L.bps == 1 || L.bps == 2 || L.bps == 4 || L.bps == 8)) {
    return TIEPixelFormat::ie8p;
  } else if (plain && L.photometric == PHOTOMETRIC_RGB && color == 3 &&
             (L.bps == 8 || L.bps == 16) && L.compression != COMPRESSION_OJPEG) {
    return L.bps == 8 ? TIEPixelFormat::ie24RGB : TIEPixelFormat::ie48RGB;
  } else if (plain && L.photometric == PHOTOMETRIC_SEPARATED && L.inkset == INKSET_CMYK &&
             color == 4 && L.bps == 8) {
    return TIEPixelFormat::ieCMYK;
  }
  return TIEPixelFormat::ieNull;
}

pictavo::Status ReadColourMap(TIFF* tif, MemFile& f, const Layout& L, TIEBitmap* bmp) {
  uint16_t *r = nullptr, *g = nullptr, *b = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &r, &g, &b)) return Fail(f, "palette missing");
  const int n = 1 << L.bps;
  // Some writers store 8-bit colour maps; scale only when a value exceeds 255.
  bool wide = false;
  for (int i = 0; i < n; ++i) wide = wide || r[i] > 255 || g[i] > 255 || b[i] > 255;
  bmp->Palette().resize(256);
  for (int i = 0; i < n; ++i)
    bmp->Palette()[i] = wide ? TRGB{Scale16(r[i]), Scale16(g[i]), Scale16(b[i])}
                             : TRGB{uint8_t(r[i]), uint8_t(g[i]), uint8_t(b[i])};
  return pictavo::Status::OK();
}

pictavo::Status ReadPixels(TIFF* tif, MemFile& f, const Layout& L, bool narrow, TIEBitmap* bmp) {
  const int w = static_cast<int>(L.w), h = static_cast<int>(L.h);
  const bool alpha = L.extra_count > 0 &&
                     (L.extra[0] == EXTRASAMPLE_UNASSALPHA || L.extra[0] == EXTRASAMPLE_ASSOCALPHA);
  const int color = L.spp - L.extra_count;
  const TIEPixelFormat fmt = DirectLayout(tif, L);
  if (fmt == TIEPixelFormat::ieNull) return ReadViaRGBA(tif, f, w, h, alpha, bmp);
  if (fmt == TIEPixelFormat::ie1g && L.planar != PLANARCONFIG_CONTIG)
    return ReadViaRGBA(tif, f, w, h, alpha, bmp);
  if (narrow && fmt == TIEPixelFormat::ie48RGB && !alpha) return ReadRGB16As8(tif, f, L, bmp);

  if (auto st = bmp->Allocate(w, h, fmt); !st.ok()) return st;
  if (alpha && fmt != TIEPixelFormat::ie1g) bmp->AddAlphaChannel();
  const tmsize_t line = TIFFScanlineSize(tif);
  if (line <= 0) return Fail(f, "bad scanline size");
  std::vector<uint8_t> buf(static_cast<size_t>(line));
  const int bytes = L.bps == 16 ? 2 : 1;
  const bool invert = L.photometric == PHOTOMETRIC_MINISWHITE;
  if (fmt == TIEPixelFormat::ie8p)
    if (auto st = ReadColourMap(tif, f, L, bmp); !st.ok()) return st;
  if (L.planar == PLANARCONFIG_SEPARATE && L.spp > 1) {
    // Each plane into its place in the interleaved rows.
    auto st = ForEachPlaneRow(tif, f, L, buf.data(), [&](int y, int s) {
      uint8_t* d = bmp->Scanline(y);
      uint8_t* a = bmp->HasAlphaChannel() ? bmp->AlphaScanline(y) : nullptr;
      for (int x = 0; x < w; ++x) {
        if (s < color) {
          std::memcpy(d + (static_cast<size_t>(x) * color + s) * bytes, buf.data() + x * bytes,
                      bytes);
        } else if (s == color && a) {
          a[x] = bytes == 2 ? Scale16(reinterpret_cast<const uint16_t*>(buf.data())[x]) : buf[x];
        }
      }
    });
    if (st.ok() && alpha && L.extra[0] == EXTRASAMPLE_ASSOCALPHA) UnpremultiplyRGB(bmp);
    return st;
  }
  for (int y = 0; y < h; ++y) {
    uint8_t* d = bmp->Scanline(y);
    uint8_t* a = bmp->HasAlphaChannel() ? bmp->AlphaScanline(y) : nullptr;
    if (TIFFReadScanline(tif, buf.data(), static_cast<uint32_t>(y), 0) < 0)
      return Fail(f, "picture data cannot be read");
    const uint8_t* s = buf.data();
    if (fmt == TIEPixelFormat::ie1g) {
      for (size_t i = 0; i < bmp->RowLen(); ++i) d[i] = invert ? static_cast<uint8_t>(~s[i]) : s[i];
      continue;
    }
    if (fmt == TIEPixelFormat::ie8p && L.bps < 8) {
      Unpack(s, d, w, L.bps, false);
      continue;
    }
    if (fmt == TIEPixelFormat::ie8g && L.bps < 8) {
      Unpack(s, d, w, L.bps, true);
      if (invert)
        for (int x = 0; x < w; ++x) d[x] = 255 - d[x];
      continue;
    }
    const size_t px = static_cast<size_t>(L.spp) * bytes, col = static_cast<size_t>(color) * bytes;
    if (!a && px == col) {  // nothing to take out: the row as it is
      std::memcpy(d, s, static_cast<size_t>(w) * col);
    } else {
      for (int x = 0; x < w; ++x) {
        std::memcpy(d + x * col, s + x * px, col);
        if (a)
          a[x] = bytes == 2 ? Scale16(reinterpret_cast<const uint16_t*>(s + x * px + col)[0])
                            : s[x * px + col];
      }
    }
    if (invert) {
      if (bytes == 1)
        for (int x = 0; x < w; ++x) d[x] = 255 - d[x];
      else
        for (int x = 0; x < w; ++x) reinterpret_cast<uint16_t*>(d)[x] ^= 0xFFFF;
    }
  }
  if (alpha && L.extra[0] == EXTRASAMPLE_ASSOCALPHA) UnpremultiplyRGB(bmp);
  return pictavo::Status::OK();
}

uint16_t CompressionTag(TIOTIFFCompression c) {
  switch (c) {
    case TIOTIFFCompression::ioTIFF_CCITT1D:
      return COMPRESSION_CCITTRLE;
    case TIOTIFFCompression::ioTIFF_G3FAX1D:
    case TIOTIFFCompression::ioTIFF_G3FAX2D:
      return COMPRESSION_CCITTFAX3;
    case TIOTIFFCompression::ioTIFF_G4FAX:
      return COMPRESSION_CCITTFAX4;
    case TIOTIFFCompression::ioTIFF_LZW:
      return COMPRESSION_LZW;
    case TIOTIFFCompression::ioTIFF_JPEG:
      return COMPRESSION_JPEG;
    case TIOTIFFCompression::ioTIFF_PACKBITS:
      return COMPRESSION_PACKBITS;
    case TIOTIFFCompression::ioTIFF_DEFLATE:
      return COMPRESSION_ADOBE_DEFLATE;
    default:
      return COMPRESSION_NONE;
  }
}

bool IsFax(uint16_t c) {
  return c == COMPRESSION_CCITTRLE || c == COMPRESSION_CCITTFAX3 || c == COMPRESSION_CCITTFAX4;
}

// The bitmap to write: `src`, or a copy in `tmp` when the compression or the photometric
// interpretation needs another layout (fax: 1-bit; JPEG: 8-bit grey or RGB; CMYK asked for).
pictavo::Status AdaptLayout(const TIEBitmap& src, const TIOParamsVals& p, uint16_t comp,
                            TIEBitmap& tmp, const TIEBitmap*& bmp) {
  bmp = &src;
  auto convert = [&](TIEPixelFormat to) -> pictavo::Status {
    if (bmp->PixelFormat() == to) return pictavo::Status::OK();
    if (bmp != &tmp) tmp = src;
    bmp = &tmp;
    return tmp.ConvertTo(to);
  };
  if (IsFax(comp)) {
    if (auto st = convert(TIEPixelFormat::ie1g); !st.ok()) return st;
  } else if (comp == COMPRESSION_JPEG) {
    // JPEG in TIFF holds 8-bit grey or 8-bit x 3; CMYK is forced back to RGB.
    const TIEPixelFormat f0 = bmp->PixelFormat();
    const bool grey = f0 == TIEPixelFormat::ie1g || f0 == TIEPixelFormat::ie8g ||
                      f0 == TIEPixelFormat::ie16g || p.TIFF_JPEGColorSpace == ioJPEG_GRAYLEV;
    if (auto st = convert(grey ? TIEPixelFormat::ie8g : TIEPixelFormat::ie24RGB); !st.ok())
      return st;
  }
  const bool want_cmyk =
      p.TIFF_PhotometInterpret == ioTIFF_CMYK && comp != COMPRESSION_JPEG && !IsFax(comp);
  if (want_cmyk && bmp->PixelFormat() != TIEPixelFormat::ieCMYK) {
    if (auto st = convert(TIEPixelFormat::ieCMYK); !st.ok()) return st;
  }
  return pictavo::Status::OK();
}

// How a bitmap layout is stored.
struct PageLayout {
  uint16_t bps = 8, color = 1, photometric = PHOTOMETRIC_MINISBLACK, spp = 1;
  bool alpha = false;
};

// False for a layout that TIFF pages do not hold.
bool DescribePage(TIEPixelFormat fmt, uint16_t comp, PageLayout& pl) {
  switch (fmt) {
    case TIEPixelFormat::ie1g:
      pl.bps = 1;
      pl.photometric = IsFax(comp) ? PHOTOMETRIC_MINISWHITE : PHOTOMETRIC_MINISBLACK;
      break;
    case TIEPixelFormat::ie8g:
      break;
    case TIEPixelFormat::ie8p:
      pl.photometric = PHOTOMETRIC_PALETTE;
      break;
    case TIEPixelFormat::ie16g:
      pl.bps = 16;
      break;
    case TIEPixelFormat::ie24RGB:
      pl.color = 3, pl.photometric = PHOTOMETRIC_RGB;
      break;
    case TIEPixelFormat::ie48RGB:
      pl.bps = 16, pl.color = 3, pl.photometric = PHOTOMETRIC_RGB;
      break;
    case TIEPixelFormat::ieCMYK:
      pl.color = 4, pl.photometric = PHOTOMETRIC_SEPARATED;
      break;
    default:
      return false;
  }
  pl.spp = pl.color + (pl.alpha ? 1 : 0);
  return true;
}

// The page's tags. JPEG pages of colour are stored as YCbCr unless RGB was asked for; `pl`
// then says so.
void SetPageTags(TIFF* tif, const TIEBitmap& bmp, const TIOParamsVals& p, uint16_t comp,
                 PageLayout& pl) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(bmp.Width()));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(bmp.Height()));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, pl.bps);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, pl.spp);
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, comp);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  if (pl.alpha) {
    const uint16_t extra = EXTRASAMPLE_UNASSALPHA;
    TIFFSetField(tif, TIFFTAG_EXTRASAMPLES, 1, &extra);
  }
  if (fmt == TIEPixelFormat::ieCMYK) TIFFSetField(tif, TIFFTAG_INKSET, INKSET_CMYK);
  if (comp == COMPRESSION_CCITTFAX3)
    TIFFSetField(
        tif, TIFFTAG_GROUP3OPTIONS,
        p.TIFF_Compression == TIOTIFFCompression::ioTIFF_G3FAX2D ? GROUP3OPT_2DENCODING : 0);
  if ((comp == COMPRESSION_LZW || comp == COMPRESSION_ADOBE_DEFLATE) && pl.bps >= 8 &&
      fmt != TIEPixelFormat::ie8p)
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  if (comp == COMPRESSION_ADOBE_DEFLATE) TIFFSetField(tif, TIFFTAG_ZIPQUALITY, 6);
  if (comp == COMPRESSION_JPEG) {
    TIFFSetField(tif, TIFFTAG_JPEGQUALITY, std::clamp(p.TIFF_JPEGQuality, 1, 100));
    if (pl.color == 3 && p.TIFF_JPEGColorSpace != ioJPEG_RGB) {
      pl.photometric = PHOTOMETRIC_YCBCR;
      TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, pl.photometric);
      TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    }
  }
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, pl.photometric);
  if (fmt == TIEPixelFormat::ie8p) {
    std::vector<uint16_t> r(256), g(256), b(256);
    const auto& pal = bmp.Palette();
    for (size_t i = 0; i < pal.size() && i < 256; ++i)
      r[i] = pal[i].r * 257, g[i] = pal[i].g * 257, b[i] = pal[i].b * 257;
    TIFFSetField(tif, TIFFTAG_COLORMAP, r.data(), g.data(), b.data());
  }
  TIFFSetField(tif, TIFFTAG_XRESOLUTION, static_cast<float>(std::max(1, p.DpiX)));
  TIFFSetField(tif, TIFFTAG_YRESOLUTION, static_cast<float>(std::max(1, p.DpiY)));
  TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  if (!p.ICC.IsEmpty())
    TIFFSetField(tif, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(p.ICC.Raw().size()),
                 p.ICC.Raw().data());
  // Fax pages are usually read whole; other layouts get ~64 KiB strips.
  const uint32_t rows_per_strip =
      IsFax(comp) ? static_cast<uint32_t>(bmp.Height()) : TIFFDefaultStripSize(tif, 0);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
}

// The rows in the file's order: 1-bit rows inverted for white-is-zero, alpha interleaved.
pictavo::Status WriteRows(TIFF* tif, MemFile& f, const TIEBitmap& bmp, const PageLayout& pl) {
  const uint32_t w = static_cast<uint32_t>(bmp.Width()), h = static_cast<uint32_t>(bmp.Height());
  const TIEPixelFormat fmt = bmp.PixelFormat();
  // Locals rather than `pl`'s fields, which the row stores could alias.
  const uint16_t bps = pl.bps, photometric = pl.photometric;
  const bool alpha = pl.alpha;
  const size_t col_bytes = static_cast<size_t>(pl.color) * (bps / 8);
  const size_t line = fmt == TIEPixelFormat::ie1g
                          ? (w + 7) / 8
                          : static_cast<size_t>(w) * pl.spp * std::max<int>(1, bps / 8);
  std::vector<uint8_t> row(line);
  for (uint32_t y = 0; y < h; ++y) {
    const uint8_t* s = bmp.Scanline(static_cast<int>(y));
    if (fmt == TIEPixelFormat::ie1g) {
      if (photometric == PHOTOMETRIC_MINISWHITE)
        for (size_t i = 0; i < line; ++i) row[i] = static_cast<uint8_t>(~s[i]);
      else
        std::memcpy(row.data(), s, line);
    } else if (alpha) {
      const uint8_t* a = bmp.AlphaScanline(static_cast<int>(y));
      const size_t px = col_bytes + bps / 8;
      for (uint32_t x = 0; x < w; ++x) {
        std::memcpy(row.data() + x * px, s + x * col_bytes, col_bytes);
        if (bps == 16)
          reinterpret_cast<uint16_t*>(row.data() + x * px + col_bytes)[0] = a[x] * 257;
        else
          row[x * px + col_bytes] = a[x];
      }
    } else {
      std::memcpy(row.data(), s, line);
    }
    if (TIFFWriteScanline(tif, row.data(), y, 0) < 0)
      return pictavo::Status::Error("TIFF encoder failed: " + f.error);
  }
  return pictavo::Status::OK();
}

pictavo::Status WritePage(TIFF* tif, MemFile& f, const TIEBitmap& src, const TIOParamsVals& p) {
  const uint16_t comp = CompressionTag(p.TIFF_Compression);
  // Work on a copy only when the layout must change for the chosen compression.
  TIEBitmap tmp;
  const TIEBitmap* bmp = &src;
  if (auto st = AdaptLayout(src, p, comp, tmp, bmp); !st.ok()) return st;
  const TIEPixelFormat fmt = bmp->PixelFormat();
  PageLayout pl;
  pl.alpha = bmp->HasAlphaChannel() && fmt != TIEPixelFormat::ie1g && fmt != TIEPixelFormat::ie8p &&
             comp != COMPRESSION_JPEG;
  if (!DescribePage(fmt, comp, pl)) return pictavo::Status::Error("nothing to save");
  SetPageTags(tif, *bmp, p, comp, pl);
  if (auto st = WriteRows(tif, f, *bmp, pl); !st.ok()) return st;
  if (!TIFFWriteDirectory(tif)) return pictavo::Status::Error("TIFF encoder failed: " + f.error);
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status DecodeTIFF(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params) {
  MemFile f;
  f.rdata = data;
  f.rsize = size;
  TiffPtr tif = OpenMem(f, "r");
  if (!tif) return Fail(f, "header cannot be read");
  // Count pages; libtiff stops at loops in the page chain.
  int pages = 0;
  do {
    ++pages;
  } while (pages < 100000 && TIFFReadDirectory(tif.get()));
  if (opt.frame < 0 || opt.frame >= pages) return pictavo::Status::Error("TIFF page out of range");
  if (!TIFFSetDirectory(tif.get(), static_cast<tdir_t>(opt.frame)))
    return Fail(f, "page cannot be read");
  Layout L;
  TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &L.w);
  TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &L.h);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &L.bps);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &L.spp);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_PLANARCONFIG, &L.planar);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_COMPRESSION, &L.compression);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLEFORMAT, &L.sample_format);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_EXTRASAMPLES, &L.extra_count, &L.extra);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_INKSET, &L.inkset);
  if (!TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &L.photometric))
    L.photometric = L.spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISWHITE;
  if (L.extra_count > L.spp) L.extra_count = 0;

  params.FileType = TIOFileType::ioTIFF;
  params.Width = static_cast<int>(L.w);
  params.Height = static_cast<int>(L.h);
  params.BitsPerSample = L.bps;
  params.SamplesPerPixel = L.spp;
  params.ImageCount = pages;
  params.HasAlpha = L.extra_count > 0;
  params.TIFF_PhotometInterpret = static_cast<TIOTIFFPhotometInterpret>(L.photometric);
  switch (L.compression) {
    case COMPRESSION_NONE:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_UNCOMPRESSED;
      break;
    case COMPRESSION_CCITTRLE:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_CCITT1D;
      break;
    case COMPRESSION_CCITTFAX3: {
      uint32_t opts = 0;
      TIFFGetField(tif.get(), TIFFTAG_GROUP3OPTIONS, &opts);
      params.TIFF_Compression = (opts & GROUP3OPT_2DENCODING) ? TIOTIFFCompression::ioTIFF_G3FAX2D
                                                              : TIOTIFFCompression::ioTIFF_G3FAX1D;
      break;
    }
    case COMPRESSION_CCITTFAX4:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_G4FAX;
      break;
    case COMPRESSION_LZW:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
      break;
    case COMPRESSION_OJPEG:
    case COMPRESSION_JPEG:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_JPEG;
      break;
    case COMPRESSION_PACKBITS:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_PACKBITS;
      break;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      params.TIFF_Compression = TIOTIFFCompression::ioTIFF_DEFLATE;
      break;
    default:
      break;
  }
  float rx = 0, ry = 0;
  uint16_t unit = RESUNIT_INCH;
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_RESOLUTIONUNIT, &unit);
  if (TIFFGetField(tif.get(), TIFFTAG_XRESOLUTION, &rx) &&
      TIFFGetField(tif.get(), TIFFTAG_YRESOLUTION, &ry) && rx > 0 && ry > 0 && rx < 1e6 &&
      ry < 1e6 && unit != RESUNIT_NONE) {
    const float k = unit == RESUNIT_CENTIMETER ? 2.54f : 1.0f;
    params.DpiX = static_cast<int>(rx * k + 0.5f);
    params.DpiY = static_cast<int>(ry * k + 0.5f);
  }
  params.ICC.Clear();
  uint32_t icc_len = 0;
  void* icc = nullptr;
  if (TIFFGetField(tif.get(), TIFFTAG_ICCPROFILE, &icc_len, &icc) && icc && icc_len)
    (void)params.ICC.LoadFromBuffer(static_cast<const uint8_t*>(icc), icc_len);
  if (opt.params_only || !bmp) return pictavo::Status::OK();

  if (auto st = CheckDimensions(L.w, L.h, opt.max_pixels); !st.ok()) return st;
  // Compressed data cannot describe more than a few thousand times its own size (deflate and
  // LZW top out near 1000:1, fax codes on blank pages a little higher); this stops tiny files
  // that declare huge pages before anything is allocated.
  const uint64_t raw = static_cast<uint64_t>(L.w) * L.h * L.bps * L.spp / 8;
  if (raw > (uint64_t{size} + 4096) * 4096) return Corrupt("TIFF", "page larger than its data");
  // A profile the load converts from keeps the picture wide: the conversion is made on 16 bits.
  const bool converted = opt.color_managed && !params.ICC.IsEmpty() && !params.ICC.IsSRGB();
  pictavo::Status st = ReadPixels(tif.get(), f, L, opt.eight_bit && !converted, bmp);
  if (!st.ok()) bmp->Clear();
  return st;
}

pictavo::Status EncodeTIFF(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out) {
  out.clear();
  MemFile f;
  f.wbuf = &out;
  TiffPtr tif = OpenMem(f, "w");
  if (!tif) return pictavo::Status::Error("TIFF encoder failed: " + f.error);
  if (auto st = WritePage(tif.get(), f, bmp, params); !st.ok()) return st;
  tif.reset();  // flushes
  return f.error.empty() ? pictavo::Status::OK()
                         : pictavo::Status::Error("TIFF encoder failed: " + f.error);
}

pictavo::Status AppendTIFF(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& file) {
  MemFile f;
  f.wbuf = &file;
  TiffPtr tif = OpenMem(f, "a");
  if (!tif) return Fail(f, "the file to append to cannot be read");
  if (auto st = WritePage(tif.get(), f, bmp, params); !st.ok()) return st;
  tif.reset();
  return f.error.empty() ? pictavo::Status::OK()
                         : pictavo::Status::Error("TIFF encoder failed: " + f.error);
}

}  // namespace pictavo::imaging::codecs
