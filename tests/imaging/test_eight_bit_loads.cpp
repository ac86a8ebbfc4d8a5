// Deep pictures for 8-bit results: a 16-bit TIFF loaded under TEightBitLoads equals the 16-bit
// load narrowed afterwards, and the narrowing steps that skip a full-size copy (a layout change
// for a save, the EXIF thumbnail) give what the copy-then-convert steps gave. Loads that read the
// file through a mapping give what a decode of the file's bytes gives.
#include <gtest/gtest.h>
#include <lcms2.h>
#include <tiffio.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "imaging/bitmap_rows.h"
#include "imaging/codecs/jpeg_codec.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_icc.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

using F = TIEPixelFormat;

// 16-bit RGB whose samples run through every 16-bit value (rounding edges included), in
// random order so that neighbouring samples differ.
TIEBitmap Deep(int w, int h, bool alpha = false) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, F::ie48RGB).ok());
  std::mt19937 gen(7);
  uint32_t next = 0;
  for (int y = 0; y < h; ++y) {
    auto* row = reinterpret_cast<uint16_t*>(b.Scanline(y));
    for (int i = 0; i < 3 * w; ++i) row[i] = static_cast<uint16_t>((next++ * 40503u) ^ gen());
  }
  if (alpha) {
    b.AddAlphaChannel();
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) b.SetAlpha(x, y, static_cast<uint8_t>(x * 7 + y));
  }
  return b;
}

// Smooth 16-bit gradients (values off the multiples of 257), small enough as a JPEG to be an
// EXIF thumbnail at full size.
TIEBitmap DeepGradient(int w, int h, bool alpha = false) {
  TIEBitmap b;
  EXPECT_TRUE(b.Allocate(w, h, F::ie48RGB).ok());
  for (int y = 0; y < h; ++y) {
    auto* row = reinterpret_cast<uint16_t*>(b.Scanline(y));
    for (int x = 0; x < w; ++x) {
      row[3 * x] = static_cast<uint16_t>(x * 65535 / (w - 1));
      row[3 * x + 1] = static_cast<uint16_t>(y * 65535 / (h - 1));
      row[3 * x + 2] = static_cast<uint16_t>(((x / 16 + y / 16) % 2) ? 50000 + x : 9000 + y);
    }
  }
  if (alpha) {
    b.AddAlphaChannel();
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) b.SetAlpha(x, y, static_cast<uint8_t>(x < w / 2 ? 255 : y));
  }
  return b;
}

void ExpectSamePixels(const TIEBitmap& a, const TIEBitmap& b) {
  ASSERT_EQ(a.PixelFormat(), b.PixelFormat());
  ASSERT_EQ(a.Width(), b.Width());
  ASSERT_EQ(a.Height(), b.Height());
  ASSERT_EQ(a.HasAlphaChannel(), b.HasAlphaChannel());
  for (int y = 0; y < a.Height(); ++y) {
    ASSERT_EQ(std::memcmp(a.Scanline(y), b.Scanline(y), a.RowLen()), 0) << "row " << y;
    if (a.HasAlphaChannel())
      ASSERT_EQ(std::memcmp(a.AlphaScanline(y), b.AlphaScanline(y), a.Width()), 0) << "row " << y;
  }
}

std::string SaveTiff(const testing::TempDir& tmp, const std::string& name, TIEBitmap bmp,
                     TIOTIFFCompression compression, const TIEICC& icc = TIEICC()) {
  const std::string path = tmp.file(name);
  TImageEnIO io(&bmp);
  io.Params().TIFF_Compression = compression;
  io.Params().ICC = icc;
  EXPECT_TRUE(io.SaveToFile(path).ok());
  return path;
}

// The wide load, narrowed afterwards: what a load under TEightBitLoads must give.
TIEBitmap WideThenNarrowed(const std::string& path, int* bits = nullptr) {
  TIEBitmap b;
  TImageEnIO io(&b);
  EXPECT_TRUE(io.LoadFromFile(path).ok());
  EXPECT_EQ(b.PixelFormat(), F::ie48RGB);
  if (bits) *bits = io.Params().BitsPerSample;
  EXPECT_TRUE(b.ConvertTo(b.HasAlphaChannel() ? F::ie48RGB : F::ie24RGB).ok());
  return b;
}

// A planar (one plane per sample) RGB TIFF of an 8- or 16-bit picture, which the engine itself
// never writes; several rows a strip make the planes readable only one after the other.
std::string WritePlanarTiff(const testing::TempDir& tmp, const TIEBitmap& src,
                            uint32_t rows_per_strip) {
  const std::string path = tmp.file("planar" + std::to_string(rows_per_strip) + ".tif");
  TIFF* t = TIFFOpen(path.c_str(), "w");
  EXPECT_NE(t, nullptr);
  if (!t) return path;
  const uint32_t w = static_cast<uint32_t>(src.Width()), h = static_cast<uint32_t>(src.Height());
  const bool deep = src.PixelFormat() == F::ie48RGB;
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, w);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, h);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, deep ? 16 : 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 3);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_RGB);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, PLANARCONFIG_SEPARATE);
  TIFFSetField(t, TIFFTAG_COMPRESSION, COMPRESSION_ADOBE_DEFLATE);
  TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, rows_per_strip);
  std::vector<uint16_t> plane(w);
  std::vector<uint8_t> plane8(w);
  for (uint16_t s = 0; s < 3; ++s)
    for (uint32_t y = 0; y < h; ++y) {
      const uint8_t* row = src.Scanline(static_cast<int>(y));
      for (uint32_t x = 0; x < w; ++x) {
        if (deep)
          plane[x] = reinterpret_cast<const uint16_t*>(row)[3 * x + s];
        else
          plane8[x] = row[3 * x + s];
      }
      EXPECT_GE(TIFFWriteScanline(t, deep ? static_cast<void*>(plane.data()) : plane8.data(), y, s),
                0);
    }
  TIFFClose(t);
  return path;
}

// A matrix-shaper RGB profile that is not sRGB (wide primaries, gamma 2.2).
TIEICC WideProfile() {
  const cmsCIExyY white = {0.3127, 0.3290, 1.0};
  const cmsCIExyYTRIPLE primaries = {{0.64, 0.33, 1.0}, {0.21, 0.71, 1.0}, {0.15, 0.06, 1.0}};
  cmsToneCurve* gamma = cmsBuildGamma(nullptr, 2.2);
  cmsToneCurve* curves[3] = {gamma, gamma, gamma};
  cmsHPROFILE h = cmsCreateRGBProfile(&white, &primaries, curves);
  cmsFreeToneCurve(gamma);
  cmsMLU* desc = cmsMLUalloc(nullptr, 1);
  cmsMLUsetASCII(desc, "en", "US", "Wide test RGB");
  cmsWriteTag(h, cmsSigProfileDescriptionTag, desc);
  cmsMLUfree(desc);
  cmsUInt32Number size = 0;
  cmsSaveProfileToMem(h, nullptr, &size);
  std::vector<uint8_t> bytes(size);
  cmsSaveProfileToMem(h, bytes.data(), &size);
  cmsCloseProfile(h);
  TIEICC icc;
  EXPECT_TRUE(icc.LoadFromBuffer(bytes.data(), bytes.size()).ok());
  EXPECT_FALSE(icc.IsSRGB());
  return icc;
}

TEST(EightBitLoads, NarrowingRoundsEverySampleAsTheDivisionDoes) {
  std::vector<uint16_t> all(65536);
  for (uint32_t v = 0; v < all.size(); ++v) all[v] = static_cast<uint16_t>(v);
  std::vector<uint8_t> out(all.size());
  rows::Narrow16Row(all.data(), out.data(), all.size());
  for (uint32_t v = 0; v < all.size(); ++v) {
    ASSERT_EQ(out[v], (v + 128) / 257) << v;
    ASSERT_EQ(rows::Narrow16(static_cast<uint16_t>(v)), out[v]) << v;
  }
  // Rows whose length is no multiple of the block length, starting anywhere.
  for (size_t start : {1u, 7u, 1000u})
    for (size_t count : {0u, 5u, 16u, 33u, 1001u}) {
      std::vector<uint8_t> part(count + 1, 0xAB);
      rows::Narrow16Row(all.data() + start, part.data(), count);
      for (size_t i = 0; i < count; ++i) ASSERT_EQ(part[i], out[start + i]) << start << " " << i;
      EXPECT_EQ(part[count], 0xAB);  // nothing written past the end
    }
  // 8 -> 16 -> 8 bits gives every 8-bit value back.
  for (uint32_t v = 0; v < 256; ++v) EXPECT_EQ(rows::Narrow16(static_cast<uint16_t>(v * 257)), v);
}

TEST(EightBitLoads, DeepRgbTiffLoadsAsTheWideLoadNarrowed) {
  testing::TempDir tmp;
  const TIEBitmap deep = Deep(181, 97);
  for (auto c : {TIOTIFFCompression::ioTIFF_UNCOMPRESSED, TIOTIFFCompression::ioTIFF_LZW,
                 TIOTIFFCompression::ioTIFF_DEFLATE}) {
    SCOPED_TRACE(static_cast<int>(c));
    const std::string path = SaveTiff(tmp, "deep.tif", deep, c);
    int wide_bits = 0;
    const TIEBitmap expected = WideThenNarrowed(path, &wide_bits);
    EXPECT_EQ(wide_bits, 16);

    HandOverCache cache;
    TIEBitmap got;
    TImageEnIO io(&got, &cache);
    {
      const TEightBitLoads eight(cache);
      ASSERT_TRUE(io.LoadFromFile(path).ok());
    }
    ExpectSamePixels(got, expected);
    // The parameters still tell the file's own depth.
    EXPECT_EQ(io.Params().BitsPerSample, 16);
    EXPECT_EQ(io.Params().SamplesPerPixel, 3);

    // Outside the scope the load is wide again.
    TIEBitmap after;
    TImageEnIO io2(&after, &cache);
    ASSERT_TRUE(io2.LoadFromFile(path).ok());
    EXPECT_EQ(after.PixelFormat(), F::ie48RGB);
  }
}

TEST(EightBitLoads, PlanarTiffsLoadWhateverTheirStripHeight) {
  testing::TempDir tmp;
  const TIEBitmap deep = Deep(67, 23);
  TIEBitmap shallow = deep;
  ASSERT_TRUE(shallow.ConvertTo(F::ie24RGB).ok());
  for (uint32_t rows : {1u, 8u, 23u}) {
    SCOPED_TRACE("rows per strip " + std::to_string(rows));
    const std::string deep_path = WritePlanarTiff(tmp, deep, rows);
    const TIEBitmap expected = WideThenNarrowed(deep_path);
    HandOverCache cache;
    TIEBitmap wide, narrowed, eight;
    ASSERT_TRUE(TImageEnIO(&wide, &cache).LoadFromFile(deep_path).ok());
    ExpectSamePixels(wide, deep);
    {
      const TEightBitLoads eight_bit(cache);
      ASSERT_TRUE(TImageEnIO(&narrowed, &cache).LoadFromFile(deep_path).ok());
    }
    ExpectSamePixels(narrowed, expected);
    ASSERT_TRUE(TImageEnIO(&eight, &cache).LoadFromFile(WritePlanarTiff(tmp, shallow, rows)).ok());
    ExpectSamePixels(eight, shallow);
  }
}

TEST(EightBitLoads, ScopesNestAndHoldForTheirCacheAlone) {
  testing::TempDir tmp;
  const std::string path = SaveTiff(tmp, "deep.tif", Deep(20, 10), TIOTIFFCompression::ioTIFF_LZW);
  HandOverCache cache, other;
  const auto format = [&](HandOverCache* through) {
    TIEBitmap b;
    TImageEnIO io(&b, through);
    EXPECT_TRUE(io.LoadFromFile(path).ok());
    return b.PixelFormat();
  };
  {
    const TEightBitLoads outer(cache);
    {
      const TEightBitLoads inner(cache);
      EXPECT_EQ(format(&cache), F::ie24RGB);
    }
    EXPECT_EQ(format(&cache), F::ie24RGB);  // the inner scope's end leaves the outer one in force
    // Another worker's loads on the same thread, and loads through no cache, stay wide.
    EXPECT_EQ(format(&other), F::ie48RGB);
    EXPECT_EQ(format(nullptr), F::ie48RGB);
  }
  EXPECT_EQ(format(&cache), F::ie48RGB);
}

TEST(EightBitLoads, PicturesThatNeedTheirDepthStayWide) {
  testing::TempDir tmp;
  // Alpha is composited later, at the picture's own depth.
  const std::string with_alpha =
      SaveTiff(tmp, "alpha.tif", Deep(31, 17, true), TIOTIFFCompression::ioTIFF_DEFLATE);
  // A profile the load converts from is applied to the 16-bit samples.
  const std::string tagged =
      SaveTiff(tmp, "tagged.tif", Deep(31, 17), TIOTIFFCompression::ioTIFF_LZW, WideProfile());
  const bool was_managed = ColorManagementEnabled();
  SetColorManagement(true);
  HandOverCache cache;
  {
    const TEightBitLoads eight(cache);
    TIEBitmap a;
    TImageEnIO ia(&a, &cache);
    ASSERT_TRUE(ia.LoadFromFile(with_alpha).ok());
    EXPECT_EQ(a.PixelFormat(), F::ie48RGB);
    EXPECT_TRUE(a.HasAlphaChannel());

    TIEBitmap t;
    TImageEnIO it(&t, &cache);
    ASSERT_TRUE(it.LoadFromFile(tagged).ok());
    EXPECT_EQ(t.PixelFormat(), F::ie48RGB);
  }
  // Without colour management the profile is only carried along: the load may narrow.
  SetColorManagement(false);
  {
    const TEightBitLoads eight(cache);
    TIEBitmap t;
    TImageEnIO it(&t, &cache);
    ASSERT_TRUE(it.LoadFromFile(tagged).ok());
    EXPECT_EQ(t.PixelFormat(), F::ie24RGB);
    EXPECT_FALSE(it.Params().ICC.IsEmpty());
  }
  SetColorManagement(was_managed);
}

TEST(EightBitLoads, ConvertFromEqualsCopyThenConvert) {
  const TIEBitmap plain = Deep(45, 19);
  const TIEBitmap with_alpha = Deep(45, 19, true);
  const TIEBitmap rgb = iotest::Pattern(45, 19, F::ie24RGB, true);
  const struct {
    const TIEBitmap* src;
    F to;
  } cases[] = {{&plain, F::ie24RGB}, {&plain, F::ie8g}, {&with_alpha, F::ie24RGB},
               {&rgb, F::ie48RGB},   {&rgb, F::ie1g},   {&rgb, F::ie8p},
               {&rgb, F::ie24RGB},   {&plain, F::ie16g}};
  for (const auto& c : cases) {
    SCOPED_TRACE(static_cast<int>(c.to));
    TIEBitmap expected = *c.src;
    ASSERT_TRUE(expected.ConvertTo(c.to).ok());
    TIEBitmap got = iotest::Pattern(3, 3, F::ie8g);  // whatever it held before is replaced
    ASSERT_TRUE(got.ConvertFrom(*c.src, c.to).ok());
    ExpectSamePixels(got, expected);
    EXPECT_EQ(got.Palette(), expected.Palette());
  }
  TIEBitmap empty, out;
  EXPECT_FALSE(out.ConvertFrom(empty, F::ie24RGB).ok());
}

// The thumbnail as it was made before: the whole picture copied, converted, resampled.
std::vector<uint8_t> ThumbnailByCopy(const TIEBitmap& source, int width) {
  const int height = std::max(1, source.Height() * width / source.Width());
  TIEBitmap thumb = source;
  if (thumb.PixelFormat() != F::ie24RGB && thumb.PixelFormat() != F::ie8g)
    EXPECT_TRUE(thumb.ConvertTo(F::ie24RGB).ok());
  if (thumb.HasAlphaChannel()) thumb.RemoveAlphaChannel(0xFFFFFF);
  EXPECT_TRUE(thumb.Resample(width, height, TResampleFilter::rfBilinear).ok());
  TIOParamsVals p;
  p.JPEG_Quality = 75;
  std::vector<uint8_t> jpeg;
  EXPECT_TRUE(codecs::EncodeJPEG(thumb, p, jpeg).ok());
  return jpeg;
}

TEST(EightBitLoads, ThumbnailWithoutAFullSizeCopyIsTheSame) {
  const TIEBitmap sources[] = {
      DeepGradient(240, 150), DeepGradient(240, 150, true), iotest::Pattern(240, 150, F::ie24RGB),
      iotest::Pattern(240, 150, F::ie24RGB, true), iotest::Pattern(240, 150, F::ie8g)};
  for (const TIEBitmap& src : sources) {
    for (int width : {160, 240}) {  // 240: no resize at all
      SCOPED_TRACE(std::to_string(static_cast<int>(src.PixelFormat())) + " " +
                   std::to_string(width));
      TIOParamsVals p;
      ASSERT_TRUE(p.UpdateEXIFThumbnail(src, width).ok());
      EXPECT_EQ(p.EXIF_Thumbnail, ThumbnailByCopy(src, width));
    }
  }
}

TEST(EightBitLoads, SaveOfADeepPictureEqualsSaveOfItsConvertedCopy) {
  for (bool alpha : {false, true}) {
    TIEBitmap deep = Deep(120, 80, alpha);
    // What the save did before: the whole picture copied, composited, then converted.
    TIEBitmap prepared = deep;
    if (alpha) prepared.RemoveAlphaChannel(0xFFFFFF);
    ASSERT_TRUE(prepared.ConvertTo(F::ie24RGB).ok());
    std::vector<uint8_t> a, b;
    TImageEnIO wide(&deep);
    wide.Params().JPEG_Quality = 80;
    ASSERT_TRUE(wide.SaveToBuffer(TIOFileType::ioJPEG, a).ok());
    TImageEnIO eight(&prepared);
    eight.Params().JPEG_Quality = 80;
    ASSERT_TRUE(eight.SaveToBuffer(TIOFileType::ioJPEG, b).ok());
    EXPECT_TRUE(a == b) << "alpha " << alpha;
    // The bound picture itself is left as it was.
    EXPECT_EQ(deep.PixelFormat(), F::ie48RGB);
    EXPECT_EQ(deep.HasAlphaChannel(), alpha);
  }
}

TEST(MappedLoads, FileLoadsEqualBufferLoadsAndUnreadableFilesFail) {
  testing::TempDir tmp;
  const std::string path =
      SaveTiff(tmp, "deep.tif", Deep(50, 40), TIOTIFFCompression::ioTIFF_DEFLATE);
  const std::string bytes = platform::ReadFileBytes(path).value_or("");
  TIEBitmap from_buffer;
  TImageEnIO ib(&from_buffer);
  ASSERT_TRUE(ib.LoadFromBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).ok());
  TIEBitmap from_file;
  TImageEnIO io(&from_file);
  ASSERT_TRUE(io.LoadFromFile(path).ok());
  ExpectSamePixels(from_file, from_buffer);

  TIEBitmap none;
  TImageEnIO probe(&none);
  ASSERT_TRUE(probe.ParamsFromFile(path).ok());
  EXPECT_EQ(probe.Params().Width, 50);
  EXPECT_EQ(probe.Params().Height, 40);
  EXPECT_EQ(probe.Params().BitsPerSample, 16);
  EXPECT_TRUE(none.IsEmpty());

  // Empty files, folders and missing files fail.
  iotest::WriteAll(tmp.file("empty.tif"), {});
  for (const std::string& bad :
       {tmp.file("empty.tif"), tmp.path().string(), tmp.file("missing.tif")}) {
    SCOPED_TRACE(bad);
    TIEBitmap b;
    TImageEnIO in(&b);
    EXPECT_FALSE(in.LoadFromFile(bad).ok());
    EXPECT_FALSE(in.ParamsFromFile(bad).ok());
  }
}

}  // namespace
}  // namespace pictavo::imaging
