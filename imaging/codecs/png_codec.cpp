#include "imaging/codecs/png_codec.h"

#include <libdeflate.h>
#include <png.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <memory>
#include <new>

#include "platform/bytes.h"

namespace pictavo::imaging::codecs {

namespace {

struct MemSource {
  const uint8_t* data;
  size_t size;
  size_t pos;
};

void ReadFromMemory(png_structp png, png_bytep out, png_size_t len) {
  auto* src = static_cast<MemSource*>(png_get_io_ptr(png));
  if (len > src->size - src->pos) png_error(png, "the data ends too early");
  std::memcpy(out, src->data + src->pos, len);
  src->pos += len;
}

void WriteToVector(png_structp png, png_bytep data, png_size_t len) {
  auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + len);
}

void NoFlush(png_structp) {}

struct ErrorText {
  char text[200];
};

void OnError(png_structp png, png_const_charp msg) {
  auto* err = static_cast<ErrorText*>(png_get_error_ptr(png));
  std::snprintf(err->text, sizeof err->text, "%s", msg);
  png_longjmp(png, 1);
}
void OnWarning(png_structp, png_const_charp) {}

struct Header {
  png_uint_32 width, height;
  int bit_depth, color_type, interlace;
  int channels;  // after the transforms
  int out_depth;
  bool has_trns;
};

// Samples a pixel of a PNG colour type (libpng refuses any other type on reading).
int ChannelsOf(int color_type) {
  return color_type == PNG_COLOR_TYPE_RGB_ALPHA    ? 4
         : color_type == PNG_COLOR_TYPE_RGB        ? 3
         : color_type == PNG_COLOR_TYPE_GRAY_ALPHA ? 2
                                                   : 1;
}

bool ReadInfo(png_structp png, png_infop info, Header* h) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_info(png, info);
  png_get_IHDR(png, info, &h->width, &h->height, &h->bit_depth, &h->color_type, &h->interlace,
               nullptr, nullptr);
  h->has_trns = png_get_valid(png, info, PNG_INFO_tRNS) != 0;
  return true;
}

bool SetTransforms(png_structp png, png_infop info, Header* h) {
  if (setjmp(png_jmpbuf(png))) return false;
  const bool gray1 = h->color_type == PNG_COLOR_TYPE_GRAY && h->bit_depth == 1 && !h->has_trns;
  if (h->color_type == PNG_COLOR_TYPE_PALETTE) {
    png_set_packing(png);  // indices to one byte each; tRNS handled by us
  } else if (!gray1) {
    if (h->color_type == PNG_COLOR_TYPE_GRAY && h->bit_depth < 8)
      png_set_expand_gray_1_2_4_to_8(png);
    if (h->has_trns) png_set_tRNS_to_alpha(png);
  }
  if (h->bit_depth == 16) png_set_swap(png);  // native little-endian uint16
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  h->channels = png_get_channels(png, info);
  h->out_depth = png_get_bit_depth(png, info);
  return true;
}

bool ReadRows(png_structp png, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  png_read_end(png, nullptr);
  return true;
}

// Image data chunk size: large enough that chunk headers cost nothing.
constexpr size_t kIdatBytes = size_t{1} << 18;

struct WriteSetup {
  int width, height, bit_depth, color_type, interlace, level;
  bool filter_none;
  double dpi_x, dpi_y;
  const png_color* palette;
  int palette_len;
  const uint8_t* icc;
  png_uint_32 icc_len;
  bool background;
  png_color_16 bkgd;
};

// libpng's choice among the five filters: the one whose bytes, read as signed, have the
// smallest sum of magnitudes.
uint32_t FilterCost(const uint8_t* f, size_t n) {
  uint32_t sum = 0;
  for (size_t i = 0; i < n; ++i) sum += f[i] < 128 ? f[i] : 256 - f[i];
  return sum;
}

// Writes the filter type byte and the filtered row to `out`. `prev` is the previous raw row
// (zeros above the first); `scratch` holds four rows of n bytes.
void FilterRow(const uint8_t* cur, const uint8_t* prev, size_t n, size_t bpp, uint8_t* scratch,
               uint8_t* out) {
  uint8_t* sub = scratch;
  uint8_t* up = scratch + n;
  uint8_t* avg = scratch + 2 * n;
  uint8_t* paeth = scratch + 3 * n;
  const size_t lead = std::min(bpp, n);
  // The first pixel has no left neighbour: a = c = 0.
  for (size_t i = 0; i < lead; ++i) {
    sub[i] = cur[i];
    up[i] = static_cast<uint8_t>(cur[i] - prev[i]);
    avg[i] = static_cast<uint8_t>(cur[i] - (prev[i] >> 1));
    paeth[i] = static_cast<uint8_t>(cur[i] - prev[i]);
  }
  // Separate plain loops so that the compiler vectorises each.
  for (size_t i = lead; i < n; ++i) sub[i] = static_cast<uint8_t>(cur[i] - cur[i - bpp]);
  for (size_t i = lead; i < n; ++i) up[i] = static_cast<uint8_t>(cur[i] - prev[i]);
  for (size_t i = lead; i < n; ++i)
    avg[i] = static_cast<uint8_t>(cur[i] - ((cur[i - bpp] + prev[i]) >> 1));
  for (size_t i = lead; i < n; ++i) {
    const int a = cur[i - bpp], b = prev[i], c = prev[i - bpp];
    const int pa = std::abs(b - c), pb = std::abs(a - c), pc = std::abs(a + b - 2 * c);
    const int pred = pa <= pb && pa <= pc ? a : pb <= pc ? b : c;
    paeth[i] = static_cast<uint8_t>(cur[i] - pred);
  }
  const uint8_t* rows[5] = {cur, sub, up, avg, paeth};
  int best = 0;
  uint32_t best_cost = FilterCost(cur, n);
  for (int f = 1; f < 5 && best_cost > 0; ++f) {
    const uint32_t cost = FilterCost(rows[f], n);
    if (cost < best_cost) best_cost = cost, best = f;
  }
  // `out` may overlap `cur` (rows filtered where they lie): the row moves first, then the byte
  // in front of it is written.
  std::memmove(out + 1, rows[best], n);
  out[0] = static_cast<uint8_t>(best);
}

// Bytes a pixel for the filters (at least one, for sub-byte rows).
size_t BytesPerPixel(const WriteSetup& s) {
  return static_cast<size_t>(ChannelsOf(s.color_type)) * s.bit_depth / 8;
}

// The PNG data stream before compression (each row behind its filter type byte, 16-bit samples
// big-endian as the file stores them), made where the rows lie: `rows` holds the h rows of
// row_bytes, contiguous, and grows by one byte a row (room that TIEBitmap::Allocate reserves).
// Bottom row first: the filtered row y ends where row y + 1's begins, and starts past the raw rows
// above it, which row y's filters still read; no second picture-sized buffer is needed.
void FilterInPlace(const WriteSetup& s, std::vector<uint8_t>& rows, size_t row_bytes, size_t h) {
  const size_t bpp = std::max<size_t>(1, BytesPerPixel(s));
  rows.resize(row_bytes * h + h);
  uint8_t* data = rows.data();
  std::vector<uint8_t> zeros(s.filter_none ? 0 : row_bytes);  // the row above the first
  std::vector<uint8_t> scratch(s.filter_none ? 0 : 4 * row_bytes);
  // 16-bit samples are filtered big-endian: row y and the one above it, swapped aside.
  std::vector<uint8_t> swapped(s.bit_depth == 16 ? 2 * row_bytes : 0);
  auto big_endian = [&](size_t y, int half) {
    const uint8_t* raw = data + y * row_bytes;
    uint8_t* be = swapped.data() + half * row_bytes;
    for (size_t i = 0; i + 1 < row_bytes; i += 2) be[i] = raw[i + 1], be[i + 1] = raw[i];
    return be;
  };
  const bool deep = s.bit_depth == 16;
  int half = 0;
  const uint8_t* made = nullptr;  // row y's big-endian copy, made as the row below's `prev`
  for (size_t y = h; y-- > 0;) {
    const uint8_t* cur = !deep ? data + y * row_bytes : made ? made : big_endian(y, half);
    uint8_t* out = data + y * (row_bytes + 1);
    if (s.filter_none) {
      std::memmove(out + 1, cur, row_bytes);
      out[0] = PNG_FILTER_VALUE_NONE;
      continue;
    }
    const uint8_t* prev = zeros.data();
    if (y > 0) prev = deep ? big_endian(y - 1, half ^ 1) : data + (y - 1) * row_bytes;
    FilterRow(cur, prev, row_bytes, bpp, scratch.data(), out);
    if (deep) made = prev, half ^= 1;
  }
}

// libdeflate's level for the picture's level, chosen on photos against what ImageMagick writes
// at that level (zlib through libpng: filtered strategy, memory level 9). libdeflate's 1 to 3
// beat zlib's fast levels; zlib's 4 and 7 need libdeflate's next lazy level (4 -> 5, 7 -> 8),
// its 6 does not: on the benchmark's 12 photos and 30 scanned and photo pages, libdeflate's 6
// writes 0.6 and 0.8% less than ImageMagick's 6 in about 60% of the time of libdeflate's 7
// (which wrote 1 to 2% less again). 8 and 9 take its first near-optimal level, 2 to 5% smaller
// than zlib's 9 in under half the time.
int DeflateLevel(int level) {
  static constexpr int kLevels[10] = {0, 1, 2, 3, 5, 5, 6, 8, 10, 10};
  return kLevels[std::clamp(level, 0, 9)];
}

struct Compressed {
  std::unique_ptr<uint8_t[]> data;
  size_t size = 0;
};

// The zlib stream of the filtered rows; false when out of memory.
bool Deflate(const std::vector<uint8_t>& stream, int level, Compressed* z) {
  // One compressor per call: encoders run on several threads at once.
  std::unique_ptr<libdeflate_compressor, decltype(&libdeflate_free_compressor)> c(
      libdeflate_alloc_compressor(DeflateLevel(level)), libdeflate_free_compressor);
  if (!c) return false;
  // Left uninitialised: only the compressed bytes are ever touched.
  const size_t bound = libdeflate_zlib_compress_bound(c.get(), stream.size());
  z->data.reset(new (std::nothrow) uint8_t[bound]);
  if (!z->data) return false;
  z->size = libdeflate_zlib_compress(c.get(), stream.data(), stream.size(), z->data.get(), bound);
  return z->size > 0;
}

// `zdata` is the compressed image data, or null to let libpng filter and compress the rows
// (interlaced pictures).
bool WritePng(png_structp png, png_infop info, const WriteSetup& s, png_bytepp rows,
              const Compressed* zdata) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_IHDR(png, info, static_cast<png_uint_32>(s.width), static_cast<png_uint_32>(s.height),
               s.bit_depth, s.color_type, s.interlace, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (!zdata) {
    png_set_compression_level(png, s.level);
    // Palette and sub-byte pictures compress best unfiltered; photos with adaptive filters.
    png_set_filter(png, 0, s.filter_none ? PNG_FILTER_NONE : PNG_ALL_FILTERS);
    // Filtered photo rows are mostly small residuals: run-length matching packs them within a
    // few percent of the full match search at a quarter of the time.
    if (!s.filter_none && s.level >= 1 && s.level <= 6) png_set_compression_strategy(png, Z_RLE);
  }
  if (s.palette) png_set_PLTE(png, info, s.palette, s.palette_len);
  png_set_pHYs(png, info, static_cast<png_uint_32>(s.dpi_x / 0.0254 + 0.5),
               static_cast<png_uint_32>(s.dpi_y / 0.0254 + 0.5), PNG_RESOLUTION_METER);
  if (s.icc) {
    // libpng refuses some widely used sRGB profiles as "known incorrect"; the profile is the
    // source's, kept as it was, and other readers take it.
    png_set_option(png, PNG_SKIP_sRGB_CHECK_PROFILE, PNG_OPTION_ON);
    png_set_iCCP(png, info, "ICC profile", 0, s.icc, s.icc_len);
  }
  if (s.background) png_set_bKGD(png, info, &s.bkgd);
  png_write_info(png, info);
  if (zdata) {
    // png_write_end would refuse the file (libpng wrote no IDAT itself); it would add only
    // tIME, eXIf, text and unknown chunks placed after the data, and none are set here.
    for (size_t at = 0; at < zdata->size; at += kIdatBytes)
      png_write_chunk(png, reinterpret_cast<png_const_bytep>("IDAT"), zdata->data.get() + at,
                      std::min(kIdatBytes, zdata->size - at));
    png_write_chunk(png, reinterpret_cast<png_const_bytep>("IEND"), nullptr, 0);
    return true;
  }
  if (s.bit_depth == 16) png_set_swap(png);
  if (s.interlace != PNG_INTERLACE_NONE) png_set_interlace_handling(png);
  png_write_image(png, rows);
  png_write_end(png, info);
  return true;
}

// Every chunk up to IEND must lie inside the file: libpng allocates some ancillary chunks
// (iTXt, eXIf...) from their length field before reading them.
pictavo::Status CheckChunks(const uint8_t* data, size_t size) {
  for (size_t at = 8; at + 8 <= size;) {
    const uint32_t len = platform::LoadBe32(data + at);
    if (len > size - at - 8) return Corrupt("PNG", "a chunk runs past the end of the file");
    if (std::memcmp(data + at + 4, "IEND", 4) == 0) break;
    at += size_t{len} + 12;
  }
  return pictavo::Status::OK();
}

// What the header chunks say; returns the background chunk, or null.
png_color_16p ReadParams(png_structp png, png_infop info, const Header& h, TIOParamsVals& params) {
  params.FileType = TIOFileType::ioPNG;
  params.Width = static_cast<int>(h.width);
  params.Height = static_cast<int>(h.height);
  params.BitsPerSample = h.bit_depth;
  params.ImageCount = 1;
  params.PNG_Interlaced = h.interlace != PNG_INTERLACE_NONE;
  params.SamplesPerPixel = ChannelsOf(h.color_type);
  params.HasAlpha = (h.color_type & PNG_COLOR_MASK_ALPHA) != 0 || h.has_trns;
  png_uint_32 rx = 0, ry = 0;
  int unit = 0;
  if (png_get_pHYs(png, info, &rx, &ry, &unit) && unit == PNG_RESOLUTION_METER && rx && ry) {
    params.DpiX = static_cast<int>(rx * 0.0254 + 0.5);
    params.DpiY = static_cast<int>(ry * 0.0254 + 0.5);
  }
  params.ICC.Clear();
  png_charp icc_name = nullptr;
  int icc_comp = 0;
  png_bytep icc = nullptr;
  png_uint_32 icc_len = 0;
  if (png_get_iCCP(png, info, &icc_name, &icc_comp, &icc, &icc_len) && icc)
    (void)params.ICC.LoadFromBuffer(icc, icc_len);
  png_color_16p bkgd = nullptr;
  params.PNG_HasBackground = png_get_bKGD(png, info, &bkgd) && bkgd;
  return bkgd;
}

// A row of pixels of kPx bytes split into kCol bytes of colour and the alpha byte at
// `alpha_at`; the sizes are constants so that the copies are not library calls.
template <size_t kCol, size_t kPx>
void SplitAlpha(const uint8_t* s, uint8_t* d, uint8_t* a, int w, size_t alpha_at) {
  for (int x = 0; x < w; ++x) {
    std::memcpy(d + x * kCol, s + x * kPx, kCol);
    a[x] = s[x * kPx + alpha_at];
  }
}

// Moves the decoded rows into the bitmap: colour samples as they are, alpha into its plane,
// palette transparency (tRNS) into alpha.
pictavo::Status FillBitmap(png_structp png, png_infop info, const Header& h,
                           const std::vector<png_bytep>& rows, size_t row_bytes, TIEBitmap* bmp) {
  const bool gray1 = h.out_depth == 1;
  const int bytes_per_sample = h.out_depth == 16 ? 2 : 1;
  const int w = static_cast<int>(h.width), ht = static_cast<int>(h.height);
  TIEPixelFormat fmt;
  const bool palette = h.color_type == PNG_COLOR_TYPE_PALETTE;
  if (gray1)
    fmt = TIEPixelFormat::ie1g;
  else if (palette)
    fmt = TIEPixelFormat::ie8p;
  else if (h.channels <= 2)
    fmt = bytes_per_sample == 2 ? TIEPixelFormat::ie16g : TIEPixelFormat::ie8g;
  else
    fmt = bytes_per_sample == 2 ? TIEPixelFormat::ie48RGB : TIEPixelFormat::ie24RGB;
  if (auto st = bmp->Allocate(w, ht, fmt); !st.ok()) return st;
  const bool alpha = !palette && (h.channels == 2 || h.channels == 4);
  if (palette) {
    png_colorp pal = nullptr;
    int n = 0;
    png_get_PLTE(png, info, &pal, &n);
    bmp->Palette().assign(256, TRGB{});
    for (int i = 0; i < n && i < 256; ++i)
      bmp->Palette()[i] = TRGB{pal[i].red, pal[i].green, pal[i].blue};
  }
  if (alpha) bmp->AddAlphaChannel();
  const int color_ch = h.channels >= 3 ? 3 : 1;
  for (int y = 0; y < ht; ++y) {
    const uint8_t* s = rows[y];
    uint8_t* d = bmp->Scanline(y);
    if (!alpha) {
      std::memcpy(d, s, std::min(row_bytes, bmp->RowLen()));
      continue;
    }
    uint8_t* a = bmp->AlphaScanline(y);
    const size_t px_bytes = static_cast<size_t>(h.channels) * bytes_per_sample;
    const size_t col_bytes = static_cast<size_t>(color_ch) * bytes_per_sample;
    // 16-bit alpha is native little-endian after png_set_swap: the high byte is second.
    const size_t alpha_at = col_bytes + (bytes_per_sample == 2 ? 1 : 0);
    if (px_bytes == 2)
      SplitAlpha<1, 2>(s, d, a, w, alpha_at);
    else if (px_bytes == 4 && col_bytes == 3)
      SplitAlpha<3, 4>(s, d, a, w, alpha_at);
    else if (px_bytes == 4)
      SplitAlpha<2, 4>(s, d, a, w, alpha_at);
    else
      SplitAlpha<6, 8>(s, d, a, w, alpha_at);
  }
  if (palette && h.has_trns) {
    png_bytep trans = nullptr;
    int ntrans = 0;
    png_get_tRNS(png, info, &trans, &ntrans, nullptr);
    bmp->AddAlphaChannel();
    for (int y = 0; y < ht; ++y) {
      const uint8_t* d = bmp->Scanline(y);
      uint8_t* a = bmp->AlphaScanline(y);
      for (int x = 0; x < w; ++x) a[x] = d[x] < ntrans ? trans[d[x]] : 255;
    }
  }
  return pictavo::Status::OK();
}

// The background chunk as a colour, for pictures that have one.
void ReadBackground(const Header& h, const png_color_16& bkgd, const TIEBitmap& bmp,
                    TIOParamsVals& params) {
  const bool palette = h.color_type == PNG_COLOR_TYPE_PALETTE;
  if (palette && bkgd.index < bmp.Palette().size())
    params.PNG_Background = RGBToTColor(bmp.Palette()[bkgd.index]);
  else if (h.bit_depth == 16)
    params.PNG_Background = RGBToTColor(
        TRGB{uint8_t(bkgd.red >> 8), uint8_t(bkgd.green >> 8), uint8_t(bkgd.blue >> 8)});
  else if (h.color_type & PNG_COLOR_MASK_COLOR)
    params.PNG_Background =
        RGBToTColor(TRGB{uint8_t(bkgd.red), uint8_t(bkgd.green), uint8_t(bkgd.blue)});
}

}  // namespace

pictavo::Status DecodePNG(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  if (size < 8 || png_sig_cmp(data, 0, 8) != 0) return Corrupt("PNG", "no PNG signature");
  if (auto st = CheckChunks(data, size); !st.ok()) return st;
  ErrorText err{};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &err, OnError, OnWarning);
  if (!png) return pictavo::Status::Error("out of memory");
  png_infop info = png_create_info_struct(png);
  struct Cleanup {
    png_structp* p;
    png_infop* i;
    ~Cleanup() { png_destroy_read_struct(p, i, nullptr); }
  } cleanup{&png, &info};
  if (!info) return pictavo::Status::Error("out of memory");
  // Refuse absurd sizes before libpng allocates anything.
  png_set_user_limits(png, kMaxBitmapSide, kMaxBitmapSide);
  // Compressed ancillary chunks (profiles, text) are inflated whole: a small file must not
  // become a huge allocation.
  png_set_chunk_malloc_max(
      png, std::clamp<png_alloc_size_t>(png_alloc_size_t{size} * 16, 8u << 20, 64u << 20));
  MemSource src{data, size, 0};
  png_set_read_fn(png, &src, ReadFromMemory);
  Header h{};
  if (!ReadInfo(png, info, &h)) return Corrupt("PNG", err.text);
  const png_color_16p bkgd = ReadParams(png, info, h, params);
  if (opt.params_only || !bmp) return pictavo::Status::OK();

  if (auto st = CheckDimensions(h.width, h.height, opt.max_pixels); !st.ok()) return st;
  // Deflate expands at most about 1032 to 1: a header promising more pixel data than the file
  // could carry is refused before the rows are allocated.
  const uint64_t raw_bytes =
      (uint64_t{h.width} * ChannelsOf(h.color_type) * h.bit_depth + 7) / 8 * h.height + h.height;
  if (raw_bytes > uint64_t{size} * 1040 + 4096) return Corrupt("PNG", "image data cut short");
  if (!SetTransforms(png, info, &h)) return Corrupt("PNG", err.text);

  const int bytes_per_sample = h.out_depth == 16 ? 2 : 1;
  const size_t row_bytes = h.out_depth == 1
                               ? (h.width + 7) / 8
                               : static_cast<size_t>(h.width) * h.channels * bytes_per_sample;
  std::vector<uint8_t> buf(row_bytes * h.height);
  std::vector<png_bytep> rows(h.height);
  for (png_uint_32 y = 0; y < h.height; ++y) rows[y] = buf.data() + row_bytes * y;
  if (!ReadRows(png, rows.data())) return Corrupt("PNG", err.text);
  if (auto st = FillBitmap(png, info, h, rows, row_bytes, bmp); !st.ok()) return st;
  if (params.PNG_HasBackground && bkgd) ReadBackground(h, *bkgd, *bmp, params);
  return pictavo::Status::OK();
}

namespace {

// The file's colour type and bit depth for the bitmap's layout (samples interleaved with alpha
// where present); palette pictures get their colour table in `pal`. Returns the samples a pixel.
int ChooseLayout(const TIEBitmap& bmp, WriteSetup& s, std::vector<png_color>& pal) {
  const bool alpha = bmp.HasAlphaChannel();
  int channels = 1;
  s.bit_depth = 8;
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie1g:
      s.bit_depth = alpha ? 8 : 1;
      channels = alpha ? 2 : 1;
      s.color_type = alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY;
      break;
    case TIEPixelFormat::ie8g:
      channels = alpha ? 2 : 1;
      s.color_type = alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY;
      break;
    case TIEPixelFormat::ie8p:
      if (alpha) {
        channels = 4;
        s.color_type = PNG_COLOR_TYPE_RGB_ALPHA;
      } else {
        s.color_type = PNG_COLOR_TYPE_PALETTE;
        for (const TRGB& c : bmp.Palette()) pal.push_back(png_color{c.r, c.g, c.b});
        if (pal.empty()) pal.push_back(png_color{0, 0, 0});
        if (pal.size() > 256) pal.resize(256);
      }
      break;
    case TIEPixelFormat::ie16g:
      s.bit_depth = 16;
      channels = alpha ? 2 : 1;
      s.color_type = alpha ? PNG_COLOR_TYPE_GRAY_ALPHA : PNG_COLOR_TYPE_GRAY;
      break;
    case TIEPixelFormat::ie48RGB:
      s.bit_depth = 16;
      channels = alpha ? 4 : 3;
      s.color_type = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
      break;
    default:
      channels = alpha ? 4 : 3;
      s.color_type = alpha ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
      break;
  }
  return channels;
}

// Lays rows that the file does not store as the bitmap holds them out in `buf` (alpha
// interleaved, 1-bit grey widened, other layouts through RGB), and points `rows` at each row.
void LayOutRows(const TIEBitmap& bmp, bool as_held, int channels, int depth, size_t row_bytes,
                std::vector<uint8_t>& buf, std::vector<png_bytep>& rows) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  const bool alpha = bmp.HasAlphaChannel();
  const int w = bmp.Width(), h = bmp.Height();
  if (!as_held) {
    buf.reserve(row_bytes * h + h);  // the filter type bytes, when filtered where it lies
    buf.resize(row_bytes * h);
  }
  rows.resize(h);
  std::vector<uint8_t> rgb(static_cast<size_t>(w) * 3);
  for (int y = 0; y < h; ++y) {
    const uint8_t* src = bmp.Scanline(y);
    if (as_held) {
      rows[y] = const_cast<png_bytep>(src);
      continue;
    }
    uint8_t* d = buf.data() + row_bytes * y;
    rows[y] = d;
    const uint8_t* a = alpha ? bmp.AlphaScanline(y) : nullptr;
    if (fmt == TIEPixelFormat::ie1g || fmt == TIEPixelFormat::ie8g) {
      for (int x = 0; x < w; ++x) {
        d[2 * x] =
            fmt == TIEPixelFormat::ie8g ? src[x] : ((src[x >> 3] >> (7 - (x & 7))) & 1) * 255;
        d[2 * x + 1] = a[x];
      }
    } else if (depth == 16) {
      const int cc = channels - 1;
      const auto* s16 = reinterpret_cast<const uint16_t*>(src);
      auto* d16 = reinterpret_cast<uint16_t*>(d);
      for (int x = 0; x < w; ++x) {
        for (int c = 0; c < cc; ++c) d16[x * channels + c] = s16[x * cc + c];
        d16[x * channels + cc] = static_cast<uint16_t>(a[x] * 257);
      }
    } else {
      RowToRGB(bmp, y, rgb.data());
      for (int x = 0; x < w; ++x) {
        d[4 * x] = rgb[3 * x];
        d[4 * x + 1] = rgb[3 * x + 1];
        d[4 * x + 2] = rgb[3 * x + 2];
        d[4 * x + 3] = a[x];
      }
    }
  }
}

// The background chunk for `c`: the nearest palette entry, the colour, or its grey.
void SetBackground(const TRGB& c, const std::vector<png_color>& pal, WriteSetup& s) {
  const int depth = s.bit_depth;
  s.background = true;
  if (s.color_type == PNG_COLOR_TYPE_PALETTE) {
    // The nearest palette entry stands for the colour.
    int best = 0, best_d = 1 << 30;
    for (size_t i = 0; i < pal.size(); ++i) {
      const int dd =
          std::abs(pal[i].red - c.r) + std::abs(pal[i].green - c.g) + std::abs(pal[i].blue - c.b);
      if (dd < best_d) best_d = dd, best = static_cast<int>(i);
    }
    s.bkgd.index = static_cast<png_byte>(best);
  } else if (s.color_type & PNG_COLOR_MASK_COLOR) {
    const int k = depth == 16 ? 257 : 1;
    s.bkgd.red = static_cast<png_uint_16>(c.r * k);
    s.bkgd.green = static_cast<png_uint_16>(c.g * k);
    s.bkgd.blue = static_cast<png_uint_16>(c.b * k);
  } else {
    const int grey = (c.r * 30 + c.g * 59 + c.b * 11) / 100;
    s.bkgd.gray = static_cast<png_uint_16>(depth == 16  ? grey * 257
                                           : depth == 1 ? grey / 128
                                                        : grey);
  }
}

// Filters and compresses non-interlaced rows here, with libdeflate: smaller and faster than
// libpng's zlib stream. The rows are filtered where they lie when they are ours (the row copy
// in `buf`, or the pixels of a bitmap that may be taken), else in a copy.
bool CompressRows(const WriteSetup& s, bool as_held, TIEBitmap* release, std::vector<uint8_t>& buf,
                  const std::vector<png_bytep>& rows, size_t row_bytes, Compressed* zdata) {
  const size_t h = rows.size();
  std::vector<uint8_t> stream;
  if (!as_held) {
    if (release) release->Clear();  // `buf` holds the rows
    stream = std::move(buf);
  } else if (release) {
    stream = release->ReleasePixels();
  } else {  // the caller keeps its pixels: the rows are copied
    stream.reserve(row_bytes * h + h);
    for (const png_bytep row : rows) stream.insert(stream.end(), row, row + row_bytes);
  }
  FilterInPlace(s, stream, row_bytes, h);
  return Deflate(stream, s.level, zdata);
}

// `release`: the same bitmap, when its pixels may be taken (it is then left empty).
pictavo::Status Encode(const TIEBitmap& bmp, TIEBitmap* release, const TIOParamsVals& params,
                       std::vector<uint8_t>& out) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  // The saver converts first; a caller that does not would make the encoder read past rows.
  if (fmt == TIEPixelFormat::ieCMYK || fmt == TIEPixelFormat::ieNull)
    return pictavo::Status::Error("PNG is not written from a CMYK or empty picture");
  const bool alpha = bmp.HasAlphaChannel();
  const int w = bmp.Width(), h = bmp.Height();
  WriteSetup s{};
  s.width = w;
  s.height = h;
  s.level = std::clamp(params.PNG_Compression, 0, 9);
  s.interlace = params.PNG_Interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE;
  s.dpi_x = std::max(1, params.DpiX);
  s.dpi_y = std::max(1, params.DpiY);

  std::vector<png_color> pal;
  const int channels = ChooseLayout(bmp, s, pal);
  const int depth = s.bit_depth;
  // Level 0 stores the rows: filtering them would only cost time.
  s.filter_none = depth < 8 || s.color_type == PNG_COLOR_TYPE_PALETTE || s.level == 0;
  const size_t row_bytes =
      depth == 1 ? (w + 7) / 8 : static_cast<size_t>(w) * channels * (depth / 8);
  // Rows the file stores as the bitmap holds them are read where they are (neither the
  // filters nor libpng write into them); the others are laid out in `buf`.
  const bool as_held = !alpha && (fmt == TIEPixelFormat::ie1g || fmt == TIEPixelFormat::ie8p ||
                                  fmt == TIEPixelFormat::ie8g || fmt == TIEPixelFormat::ie16g ||
                                  fmt == TIEPixelFormat::ie48RGB || fmt == TIEPixelFormat::ie24RGB);
  std::vector<uint8_t> buf;
  std::vector<png_bytep> rows;
  LayOutRows(bmp, as_held, channels, depth, row_bytes, buf, rows);
  if (!pal.empty()) {
    s.palette = pal.data();
    s.palette_len = static_cast<int>(pal.size());
  }
  if (!params.ICC.IsEmpty()) {
    s.icc = params.ICC.Raw().data();
    s.icc_len = static_cast<png_uint_32>(params.ICC.Raw().size());
  }
  if (params.PNG_HasBackground) SetBackground(TColorToRGB(params.PNG_Background), pal, s);

  Compressed zdata;
  const bool own_data = s.interlace == PNG_INTERLACE_NONE;
  if (own_data && !CompressRows(s, as_held, release, buf, rows, row_bytes, &zdata))
    return pictavo::Status::Error("out of memory");

  ErrorText err{};
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &err, OnError, OnWarning);
  if (!png) return pictavo::Status::Error("out of memory");
  png_infop info = png_create_info_struct(png);
  struct Cleanup {
    png_structp* p;
    png_infop* i;
    ~Cleanup() { png_destroy_write_struct(p, i); }
  } cleanup{&png, &info};
  if (!info) return pictavo::Status::Error("out of memory");
  out.clear();
  // The chunks ahead of the data (a profile may be large) and one header per data chunk.
  if (own_data) out.reserve(zdata.size + zdata.size / kIdatBytes * 12 + s.icc_len + 4096);
  png_set_write_fn(png, &out, WriteToVector, NoFlush);
  if (!WritePng(png, info, s, own_data ? nullptr : rows.data(), own_data ? &zdata : nullptr))
    return pictavo::Status::Error(std::string("PNG encoder failed: ") + err.text);
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status EncodePNG(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  return Encode(bmp, nullptr, params, out);
}

pictavo::Status EncodePNGReleasing(TIEBitmap& bmp, const TIOParamsVals& params,
                                   std::vector<uint8_t>& out) {
  const pictavo::Status st = Encode(bmp, &bmp, params, out);
  bmp.Clear();
  return st;
}

}  // namespace pictavo::imaging::codecs
