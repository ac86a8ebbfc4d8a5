// Joining TIFF files page after page without decoding: every page comes back as it was, in order,
// whatever its size and compression; what cannot be copied raw fails without touching the output.
#include <gtest/gtest.h>
#include <tiffio.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "imaging/tiff_join.h"
#include "tests/support/test_paths.h"

namespace pictavo::imaging {
namespace {

namespace fs = std::filesystem;

TIEBitmap Page(int w, int h, uint8_t shade) {
  TIEBitmap bmp;
  EXPECT_TRUE(bmp.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      bmp.SetPixels_ie24RGB(x, y, {shade, static_cast<uint8_t>(x), static_cast<uint8_t>(y)});
  return bmp;
}

void Append(const std::string& path, TIEBitmap page, TIOTIFFCompression compression) {
  TImageEnIO io(&page);
  io.Params().TIFF_Compression = compression;
  ASSERT_TRUE(io.InsertToFileTIFF(path).ok());
}

TIEBitmap Load(const std::string& path, int index) {
  TIEBitmap bmp;
  TImageEnIO io(&bmp);
  io.Params().ImageIndex = index;
  EXPECT_TRUE(io.LoadFromFile(path).ok()) << index;
  return bmp;
}

bool SamePixels(const TIEBitmap& a, const TIEBitmap& b) {
  if (a.Width() != b.Width() || a.Height() != b.Height()) return false;
  for (int y = 0; y < a.Height(); ++y)
    if (!std::equal(a.Scanline(y), a.Scanline(y) + a.Width() * 3, b.Scanline(y))) return false;
  return true;
}

TEST(TiffJoin, PagesComeBackInOrderAsTheyWere) {
  pictavo::testing::TempDir dir;
  const std::string a = dir.file("a.tif"), b = dir.file("b.tif"), out = dir.file("out.tif");
  const TIEBitmap pages[] = {Page(40, 30, 10), Page(17, 23, 80), Page(64, 9, 200)};
  Append(a, pages[0], TIOTIFFCompression::ioTIFF_LZW);
  Append(b, pages[1], TIOTIFFCompression::ioTIFF_UNCOMPRESSED);
  Append(b, pages[2], TIOTIFFCompression::ioTIFF_LZW);

  ASSERT_TRUE(JoinTiffFiles({a, b}, out).ok());
  TIEBitmap none;
  TImageEnIO probe(&none);
  ASSERT_TRUE(probe.ParamsFromFile(out).ok());
  EXPECT_EQ(probe.Params().ImageCount, 3);
  for (int i = 0; i < 3; ++i) EXPECT_TRUE(SamePixels(Load(out, i), pages[i])) << "page " << i;
  // The inputs are left as they were; no scratch file stays beside the output.
  EXPECT_TRUE(fs::exists(a) && fs::exists(b));
  EXPECT_EQ(std::distance(fs::directory_iterator(dir.path()), fs::directory_iterator()), 3);
}

TEST(TiffJoin, FailsWithoutTouchingTheOutput) {
  pictavo::testing::TempDir dir;
  const std::string a = dir.file("a.tif"), tiled = dir.file("tiled.tif"), out = dir.file("out.tif");
  Append(a, Page(20, 20, 1), TIOTIFFCompression::ioTIFF_LZW);
  {
    std::ofstream(out) << "old";
    std::ofstream(dir.file("junk.tif")) << "not a TIFF";
  }
  // A tiled page, written with libtiff directly.
  TIFF* t = TIFFOpen(tiled.c_str(), "w");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 32);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, 32);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, 8);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISBLACK);
  TIFFSetField(t, TIFFTAG_TILEWIDTH, 16);
  TIFFSetField(t, TIFFTAG_TILELENGTH, 16);
  std::vector<uint8_t> tile(16 * 16, 7);
  for (uint32_t y = 0; y < 32; y += 16)
    for (uint32_t x = 0; x < 32; x += 16) TIFFWriteTile(t, tile.data(), x, y, 0, 0);
  TIFFClose(t);

  for (const auto& inputs :
       {std::vector<std::string>{a, tiled}, std::vector<std::string>{a, dir.file("junk.tif")},
        std::vector<std::string>{a, dir.file("missing.tif")}}) {
    EXPECT_FALSE(JoinTiffFiles(inputs, out).ok()) << inputs.back();
    std::ifstream in(out);
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), {}), "old");
    EXPECT_FALSE(fs::exists(out + ".join.tif"));
  }
}

}  // namespace
}  // namespace pictavo::imaging
