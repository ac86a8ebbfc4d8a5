// The PNG encoder's own filtering and compression: every layout it writes reads back exactly
// through libpng's reader with CRC checks, the rows carry the filters libpng itself would choose,
// and photos come out no larger than zlib's stream (default strategy) at the same level.
#include <png.h>
#include <zlib.h>

#include <csetjmp>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/codecs/png_codec.h"
#include "imaging/ie_io.h"
#include "support/test_paths.h"

namespace pictavo::imaging {
namespace {

using F = TIEPixelFormat;

// The image data of a file, its chunks concatenated (the structure is libpng's reader's
// business below).
std::vector<uint8_t> Idat(const std::vector<uint8_t>& png) {
  std::vector<uint8_t> z;
  for (size_t at = 8; at + 12 <= png.size();) {
    const size_t len = size_t{png[at]} << 24 | png[at + 1] << 16 | png[at + 2] << 8 | png[at + 3];
    if (len > png.size() - at - 12) break;
    if (std::memcmp(&png[at + 4], "IDAT", 4) == 0)
      z.insert(z.end(), &png[at + 8], &png[at + 8 + len]);
    at += len + 12;
  }
  return z;
}

// The filtered rows of a non-interlaced file, inflated with zlib.
std::vector<uint8_t> Inflated(const std::vector<uint8_t>& png, size_t expected) {
  const std::vector<uint8_t> z = Idat(png);
  std::vector<uint8_t> raw(expected + 1);
  uLongf len = static_cast<uLongf>(raw.size());
  EXPECT_EQ(uncompress(raw.data(), &len, z.data(), static_cast<uLong>(z.size())), Z_OK);
  EXPECT_EQ(len, expected);
  raw.resize(len);
  return raw;
}

// libpng's reader, untransformed: samples as the file stores them (sub-byte samples packed,
// 16-bit big-endian). Every warning, benign error or bad CRC counts as an error, as do data
// chunks out of one run and bytes after IEND.
struct Decoded {
  png_uint_32 width = 0, height = 0;
  int depth = 0, color_type = -1, interlace = 0;
  size_t row_bytes = 0;
  std::vector<uint8_t> pixels;
  std::vector<png_color> palette;
  std::string error;
};

struct Reader {
  const std::vector<uint8_t>* src;
  size_t pos;
  char message[200];
};

void ReadFn(png_structp png, png_bytep out, png_size_t n) {
  auto* r = static_cast<Reader*>(png_get_io_ptr(png));
  if (n > r->src->size() - r->pos) png_error(png, "read past the end");
  std::memcpy(out, r->src->data() + r->pos, n);
  r->pos += n;
}
void Fail(png_structp png, png_const_charp msg) {
  auto* r = static_cast<Reader*>(png_get_error_ptr(png));
  std::snprintf(r->message, sizeof r->message, "%s", msg);
  png_longjmp(png, 1);
}

bool ReadHeader(png_structp png, png_infop info, Decoded* d) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_set_crc_action(png, PNG_CRC_ERROR_QUIT, PNG_CRC_ERROR_QUIT);
  png_set_benign_errors(png, 0);
  png_read_info(png, info);
  png_get_IHDR(png, info, &d->width, &d->height, &d->depth, &d->color_type, &d->interlace, nullptr,
               nullptr);
  png_set_interlace_handling(png);
  png_read_update_info(png, info);
  d->row_bytes = png_get_rowbytes(png, info);
  return true;
}

bool ReadBody(png_structp png, png_infop info, png_bytepp rows) {
  if (setjmp(png_jmpbuf(png))) return false;
  png_read_image(png, rows);
  png_read_end(png, info);
  return true;
}

Decoded Decode(const std::vector<uint8_t>& file) {
  Decoded d;
  Reader r{&file, 0, {}};
  // Warnings fail too: the reader only warns about some damage.
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &r, Fail, Fail);
  png_infop info = png_create_info_struct(png);
  png_set_read_fn(png, &r, ReadFn);
  if (ReadHeader(png, info, &d)) {
    d.pixels.resize(d.row_bytes * d.height);
    std::vector<png_bytep> rows(d.height);
    for (png_uint_32 y = 0; y < d.height; ++y) rows[y] = d.pixels.data() + d.row_bytes * y;
    if (ReadBody(png, info, rows.data())) {
      png_colorp pal = nullptr;
      int n = 0;
      if (png_get_PLTE(png, info, &pal, &n)) d.palette.assign(pal, pal + n);
    } else {
      d.error = r.message;
    }
  } else {
    d.error = r.message;
  }
  if (r.pos != file.size() && d.error.empty()) d.error = "bytes after IEND";
  png_destroy_read_struct(&png, &info, nullptr);
  return d;
}

// libpng's own writer on the same file rows: zlib at `level` with its default strategy, with
// the filter set given. The reference both for the filter choice and for the size.
struct RefSetup {
  const Decoded* rows;
  int level, filters;
};

void AppendFn(png_structp png, png_bytep data, png_size_t n) {
  auto* out = static_cast<std::vector<uint8_t>*>(png_get_io_ptr(png));
  out->insert(out->end(), data, data + n);
}
void NoFlush(png_structp) {}

bool WriteRef(png_structp png, png_infop info, const RefSetup& s) {
  if (setjmp(png_jmpbuf(png))) return false;
  const Decoded& d = *s.rows;
  png_set_IHDR(png, info, d.width, d.height, d.depth, d.color_type, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  if (!d.palette.empty())
    png_set_PLTE(png, info, d.palette.data(), static_cast<int>(d.palette.size()));
  png_set_compression_level(png, s.level);
  png_set_compression_strategy(png, Z_DEFAULT_STRATEGY);  // libpng's own default is Z_FILTERED
  png_set_filter(png, 0, s.filters);
  png_write_info(png, info);
  for (png_uint_32 y = 0; y < d.height; ++y) png_write_row(png, d.pixels.data() + d.row_bytes * y);
  png_write_end(png, info);
  return true;
}

std::vector<uint8_t> LibpngFile(const Decoded& rows, int level, int filters) {
  std::vector<uint8_t> out;
  Reader r{nullptr, 0, {}};
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, &r, Fail, nullptr);
  png_infop info = png_create_info_struct(png);
  png_set_write_fn(png, &out, AppendFn, NoFlush);
  if (!WriteRef(png, info, RefSetup{&rows, level, filters})) {
    ADD_FAILURE() << "libpng's writer: " << r.message;
    out.clear();
  }
  png_destroy_write_struct(&png, &info);
  return out;
}

// Gradients, edges and a little deterministic noise, so that the best filter changes from row
// to row.
TIEBitmap Picture(int w, int h, F fmt, bool alpha) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, fmt).ok());
  uint32_t seed = 12345;
  const auto noise = [&seed] {
    seed = seed * 1103515245u + 12345u;
    return static_cast<int>(seed >> 16 & 7);
  };
  for (int y = 0; y < h; ++y) {
    uint8_t* row = b.Scanline(y);
    for (int x = 0; x < w; ++x) {
      const int edge = (x / 9 + y / 7) % 3 == 0 ? 90 : 0;
      const int v[3] = {(x * 3 + edge + noise()) & 255, (y * 2 + x + noise()) & 255,
                        (x * y / 16 + edge) & 255};
      switch (fmt) {
        case F::ie1g:
          if ((v[0] + v[1]) & 64) row[x >> 3] |= uint8_t(0x80 >> (x & 7));
          break;
        case F::ie8g:
        case F::ie8p:
          row[x] = static_cast<uint8_t>(v[0]);
          break;
        case F::ie16g: {
          const uint16_t s = static_cast<uint16_t>(v[0] * 257 + noise() * 31);
          std::memcpy(row + 2 * x, &s, 2);
          break;
        }
        case F::ie48RGB:
          for (int c = 0; c < 3; ++c) {
            const uint16_t s = static_cast<uint16_t>(v[c] * 251 + noise());
            std::memcpy(row + 6 * x + 2 * c, &s, 2);
          }
          break;
        default:
          for (int c = 0; c < 3; ++c) row[3 * x + c] = static_cast<uint8_t>(v[c]);
          break;
      }
    }
  }
  if (fmt == F::ie8p)
    for (int i = 0; i < 256; ++i)
      b.Palette()[i] = TRGB{uint8_t(i), uint8_t(255 - i), uint8_t(i * 7)};
  if (alpha) {
    b.AddAlphaChannel();
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) b.SetAlpha(x, y, uint8_t(x < w / 3 ? 255 : x * 5 + y));
  }
  return b;
}

struct LayoutCase {
  const char* name;
  F format;
  bool alpha;
  int depth, color_type;  // what the file must declare
};

constexpr LayoutCase kLayouts[] = {
    {"1-bit grey", F::ie1g, false, 1, PNG_COLOR_TYPE_GRAY},
    {"8-bit grey", F::ie8g, false, 8, PNG_COLOR_TYPE_GRAY},
    {"grey + alpha", F::ie8g, true, 8, PNG_COLOR_TYPE_GRAY_ALPHA},
    {"palette", F::ie8p, false, 8, PNG_COLOR_TYPE_PALETTE},
    {"16-bit grey", F::ie16g, false, 16, PNG_COLOR_TYPE_GRAY},
    {"24-bit RGB", F::ie24RGB, false, 8, PNG_COLOR_TYPE_RGB},
    {"RGB + alpha", F::ie24RGB, true, 8, PNG_COLOR_TYPE_RGB_ALPHA},
    {"48-bit RGB", F::ie48RGB, false, 16, PNG_COLOR_TYPE_RGB},
    {"48-bit RGB + alpha", F::ie48RGB, true, 16, PNG_COLOR_TYPE_RGB_ALPHA},
};

int Channels(int color_type) {
  switch (color_type) {
    case PNG_COLOR_TYPE_RGB_ALPHA:
      return 4;
    case PNG_COLOR_TYPE_RGB:
      return 3;
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return 2;
    default:
      return 1;
  }
}

uint16_t Native16(const uint8_t* p) {
  uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

// Sample c of pixel x in a decoded row, widened to 16 bits where the file has them.
int FileSample(const Decoded& d, const uint8_t* row, int x, int c, int channels) {
  if (d.depth == 1) return row[x >> 3] >> (7 - (x & 7)) & 1;
  if (d.depth == 16) return row[2 * (x * channels + c)] << 8 | row[2 * (x * channels + c) + 1];
  return row[x * channels + c];
}

// What the bitmap says that sample must be.
int BitmapSample(const TIEBitmap& b, int x, int y, int c, int channels, bool alpha) {
  const uint8_t* row = b.Scanline(y);
  const bool deep = b.PixelFormat() == F::ie48RGB || b.PixelFormat() == F::ie16g;
  if (alpha && c == channels - 1) return deep ? b.GetAlpha(x, y) * 257 : b.GetAlpha(x, y);
  switch (b.PixelFormat()) {
    case F::ie1g:
      return b.GetPixels_ie1g(x, y) ? 1 : 0;
    case F::ie8g:
    case F::ie8p:
      return row[x];
    case F::ie16g:
      return Native16(row + 2 * x);
    case F::ie48RGB:
      return Native16(row + 6 * x + 2 * c);
    default: {
      const TRGB p = b.GetPixels_ie24RGB(x, y);
      return c == 0 ? p.r : c == 1 ? p.g : p.b;
    }
  }
}

std::vector<uint8_t> Encode(const TIEBitmap& b, int level, bool interlaced = false) {
  TIOParamsVals params;
  params.PNG_Compression = level;
  params.PNG_Interlaced = interlaced;
  std::vector<uint8_t> out;
  EXPECT_TRUE(codecs::EncodePNG(b, params, out).ok());
  return out;
}

void ExpectSamplesMatch(const TIEBitmap& b, const LayoutCase& lc, const Decoded& d) {
  ASSERT_EQ(d.error, "");
  ASSERT_EQ(d.width, static_cast<png_uint_32>(b.Width()));
  ASSERT_EQ(d.height, static_cast<png_uint_32>(b.Height()));
  ASSERT_EQ(d.depth, lc.depth);
  ASSERT_EQ(d.color_type, lc.color_type);
  const int channels = Channels(lc.color_type);
  int mismatches = 0;
  for (int y = 0; y < b.Height() && mismatches < 5; ++y)
    for (int x = 0; x < b.Width() && mismatches < 5; ++x)
      for (int c = 0; c < channels; ++c) {
        const int got = FileSample(d, d.pixels.data() + d.row_bytes * y, x, c, channels);
        const int want = BitmapSample(b, x, y, c, channels, lc.alpha);
        if (got != want) {
          ++mismatches;
          ADD_FAILURE() << "pixel " << x << "," << y << " channel " << c << ": " << got
                        << " instead of " << want;
        }
      }
  if (lc.format == F::ie8p) {
    ASSERT_EQ(d.palette.size(), 256u);
    for (int i = 0; i < 256; ++i)
      EXPECT_TRUE(d.palette[i].red == b.Palette()[i].r && d.palette[i].green == b.Palette()[i].g &&
                  d.palette[i].blue == b.Palette()[i].b)
          << "palette entry " << i;
  }
}

TEST(PngEncode, EveryLayoutAndLevelReadsBackExactly) {
  // 67 columns: rows of every layout end inside a byte or a pixel group.
  for (const LayoutCase& lc : kLayouts) {
    const TIEBitmap b = Picture(67, 41, lc.format, lc.alpha);
    for (int level : {0, 1, 6, 9}) {
      SCOPED_TRACE(std::string(lc.name) + " at level " + std::to_string(level));
      ExpectSamplesMatch(b, lc, Decode(Encode(b, level)));
    }
  }
  // Stored rows of this size span several data chunks.
  const TIEBitmap big = Picture(400, 300, F::ie48RGB, false);
  SCOPED_TRACE("720 KB stored");
  ExpectSamplesMatch(big, kLayouts[7], Decode(Encode(big, 0)));
}

// A bitmap that is not needed afterwards is filtered where it lies: the same file, bottom row
// first or not, and the bitmap is left empty. Pixels that Allocate made have room for the filter
// bytes; a copy's are moved once.
TEST(PngEncode, ReleasingEncodeWritesTheSameFile) {
  for (const LayoutCase& lc : kLayouts) {
    const TIEBitmap b = Picture(67, 41, lc.format, lc.alpha);
    for (int level : {0, 6}) {
      for (bool interlaced : {false, true}) {
        SCOPED_TRACE(std::string(lc.name) + " at level " + std::to_string(level) +
                     (interlaced ? ", interlaced" : ""));
        TIEBitmap allocated = Picture(67, 41, lc.format, lc.alpha);
        TIEBitmap copied = b;
        for (TIEBitmap* own : {&allocated, &copied}) {
          TIOParamsVals params;
          params.PNG_Compression = level;
          params.PNG_Interlaced = interlaced;
          std::vector<uint8_t> out;
          ASSERT_TRUE(codecs::EncodePNGReleasing(*own, params, out).ok());
          EXPECT_EQ(out, Encode(b, level, interlaced));
          EXPECT_TRUE(own->IsEmpty());
        }
      }
    }
  }
}

TEST(PngEncode, AdaptiveFiltersAreLibpngsChoiceAndFlatLayoutsStayUnfiltered) {
  for (const LayoutCase& lc : kLayouts) {
    const TIEBitmap b = Picture(67, 41, lc.format, lc.alpha);
    const bool unfiltered = lc.depth < 8 || lc.color_type == PNG_COLOR_TYPE_PALETTE;
    for (int level : {0, 6}) {
      SCOPED_TRACE(std::string(lc.name) + " at level " + std::to_string(level));
      const std::vector<uint8_t> file = Encode(b, level);
      const Decoded d = Decode(file);
      ASSERT_EQ(d.error, "");
      const size_t stream_bytes = (d.row_bytes + 1) * d.height;
      const std::vector<uint8_t> ours = Inflated(file, stream_bytes);
      const bool none = unfiltered || level == 0;
      // Same rows through libpng: its inflated stream holds the filter bytes it chose.
      const std::vector<uint8_t> ref =
          Inflated(LibpngFile(d, 6, none ? PNG_FILTER_NONE : PNG_ALL_FILTERS), stream_bytes);
      ASSERT_EQ(ours.size(), ref.size());
      int differing_rows = 0, filtered_rows = 0;
      for (size_t y = 0; y < d.height; ++y) {
        const size_t at = y * (d.row_bytes + 1);
        if (ours[at] != PNG_FILTER_VALUE_NONE) ++filtered_rows;
        if (std::memcmp(&ours[at], &ref[at], d.row_bytes + 1) != 0) ++differing_rows;
      }
      EXPECT_EQ(differing_rows, 0) << "rows filtered otherwise than libpng does";
      if (none)
        EXPECT_EQ(filtered_rows, 0);
      else
        EXPECT_GT(filtered_rows, 0);
    }
  }
}

TEST(PngEncode, InterlacedPicturesStillReadBack) {
  const LayoutCase& lc = kLayouts[6];  // RGB + alpha
  const TIEBitmap b = Picture(67, 41, lc.format, lc.alpha);
  for (int level : {0, 6, 9}) {
    SCOPED_TRACE("level " + std::to_string(level));
    const Decoded d = Decode(Encode(b, level, true));
    EXPECT_EQ(d.interlace, PNG_INTERLACE_ADAM7);
    ExpectSamplesMatch(b, lc, d);
  }
}

TEST(PngEncode, PhotoNoLargerThanZlibAtTheSameLevel) {
  PICTAVO_REQUIRE_CORPUS(photo, "raster/jpeg/kodak-dc210.jpg");
  TIEBitmap b;
  TImageEnIO io(&b);
  ASSERT_TRUE(io.LoadFromFile(photo).ok());
  ASSERT_EQ(b.PixelFormat(), F::ie24RGB);
  for (int level = 1; level <= 9; ++level) {
    SCOPED_TRACE("level " + std::to_string(level));
    const std::vector<uint8_t> file = Encode(b, level);
    const Decoded d = Decode(file);
    ASSERT_EQ(d.error, "");
    ExpectSamplesMatch(b, kLayouts[5], d);
    EXPECT_LE(Idat(file).size(), Idat(LibpngFile(d, level, PNG_ALL_FILTERS)).size());
  }
}

TEST(PngEncode, ConcurrentEncodesMatchSerialOnes) {
  // Workers encode at once, each at its own level: no state may leak between them.
  const TIEBitmap b = Picture(160, 90, F::ie24RGB, true);
  constexpr int kLevels[4] = {1, 6, 9, 6};
  constexpr int kRounds = 5;
  std::vector<std::vector<uint8_t>> runs[4];
  std::vector<std::thread> workers;
  for (int i = 0; i < 4; ++i)
    workers.emplace_back([&b, &runs, &kLevels, i] {
      for (int round = 0; round < kRounds; ++round) {
        TIOParamsVals params;
        params.PNG_Compression = kLevels[i];
        std::vector<uint8_t> out;
        if (!codecs::EncodePNG(b, params, out).ok()) out.clear();
        runs[i].push_back(std::move(out));
      }
    });
  for (std::thread& t : workers) t.join();
  for (int i = 0; i < 4; ++i) {
    const std::vector<uint8_t> serial = Encode(b, kLevels[i]);
    ASSERT_FALSE(serial.empty());
    for (int round = 0; round < kRounds; ++round)
      EXPECT_EQ(runs[i][round], serial) << "worker " << i << ", round " << round;
  }
}

}  // namespace
}  // namespace pictavo::imaging
