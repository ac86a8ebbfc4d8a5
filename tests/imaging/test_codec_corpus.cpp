// Real files decode to the same pixels as an independent decoder (ImageMagick), and damaged
// copies of them fail cleanly.
#include <gtest/gtest.h>

#include "imaging/ie_io.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

struct CorpusCase {
  const char* file;
  double mean;  // allowed mean absolute difference per channel
  // The netpbm converter used as the reference instead of ImageMagick, for files that
  // ImageMagick reads against the format's definition (a 1-bit PCX's header palette, a TGA's
  // origin and attributes type, a palette PNG's transparency). Its alpha, when it writes a PAM
  // with one, is compared as well.
  const char* netpbm = nullptr;
};

// Lossless formats must match exactly (16-bit files within the rounding of 16 to 8 bits);
// JPEG-based ones may differ by the decoders' upsampling and IDCT details.
constexpr CorpusCase kCorpus[] = {
    {"raster/jpeg/flower.jpg", 1.5},
    {"raster/jpeg/hopper_gray.jpg", 1.5},
    {"raster/jpeg/progressive3.jpg", 1.5},
    {"raster/jpeg/restarts.jpg", 1.5},
    {"raster/png/hopper.png", 0},
    {"raster/png/i_trns.png", 0},
    {"raster/png/oiio-logo-with-alpha.png", 0},
    {"special/rgb16_128x128.png", 0.5},
    {"raster/tiff/hopper_lzw.tif", 0},
    {"raster/tiff/hopper_g4.tif", 0},
    {"raster/tiff/tiff_adobe_deflate.tif", 0},
    {"raster/tiff/strike.tif", 0},
    {"raster/tiff/hopper_jpg.tif", 1.5},
    {"raster/tiff/hopper_bigtiff.tif", 0},
    {"special/tiff_16bit_RGB.tiff", 0.5},
    {"raster/gif/hopper.gif", 0},
    {"raster/gif/chi.gif", 0},
    {"raster/bmp/hopper.bmp", 0},
    {"raster/bmp/pal4rle.bmp", 0},
    {"raster/bmp/pal8.bmp", 0},
    {"raster/bmp/pal8os2.bmp", 0},
    {"raster/bmp/rgb32bf.bmp", 0},

    {"raster/tga/200x32_rgba_tl_rle.tga", 0},
    {"raster/tga/200x32_p_bl_raw.tga", 0, "tgatoppm"},
    {"raster/tga/rgb32rle.tga", 0, "tgatoppm"},
    {"raster/pcx/pil184.pcx", 0, "pcxtoppm"},
    {"raster/png/pil123p.png", 0, "pngtopam -alphapam"},
    {"raster/pnm/hopper.ppm", 0},
    {"raster/pnm/hopper_8bit.pgm", 0},
    {"raster/pnm/hopper_1bit.pbm", 0},
    {"raster/pnm/16_bit_binary.pgm", 0.5},
    {"raster/psd/hopper.psd", 0},
    {"raster/psd/rgba.psd", 0},
    {"raster/webp/hopper.webp", 1.0},
    {"raster/jpeg2000/test-card-lossless.jp2", 0},
    {"raster/ico/hopper.ico", 0},
    {"special/cmyk_pil_sample.jpg", 3.0},
};

TEST(ImageIoCorpus, DecodesLikeImageMagick) {
  PICTAVO_REQUIRE_PROGRAM("convert", "imagemagick");
  PICTAVO_REQUIRE_CORPUS(manifest, "MANIFEST.md");
  testing::TempDir tmp;
  int compared = 0;
  for (const CorpusCase& c : kCorpus) {
    const std::string path = testing::CorpusFile(c.file);
    if (path.empty()) continue;
    SCOPED_TRACE(c.file);
    TIEBitmap ours;
    TImageEnIO io(&ours);
    auto st = io.LoadFromFile(path);
    ASSERT_TRUE(st.ok()) << st.message();
    // The reference: first frame, colour channels only, 8 bits, as a binary PPM.
    const std::string ref = tmp.file("ref.ppm");
    std::string cmd = "convert '" + path + "[0]' -alpha off -colorspace sRGB -depth 8 ppm:'" + ref +
                      "' 2>/dev/null";
    if (c.netpbm) {
      if (!iotest::HaveProgram(
              std::string(c.netpbm).substr(0, std::string(c.netpbm).find(' ')).c_str()))
        continue;
      cmd = std::string(c.netpbm) + " '" + path + "' > '" + ref + "' 2>/dev/null";
    }
    if (std::system(cmd.c_str()) != 0) continue;  // this reference cannot read it
    TIEBitmap theirs;
    TImageEnIO rio(&theirs);
    ASSERT_TRUE(rio.LoadFromFile(ref).ok());
    if (c.netpbm) EXPECT_EQ(ours.HasAlphaChannel(), theirs.HasAlphaChannel());
    if (theirs.HasAlphaChannel() && ours.HasAlphaChannel()) {
      int alpha_off = 0;
      for (int y = 0; y < ours.Height() && y < theirs.Height(); ++y)
        for (int x = 0; x < ours.Width() && x < theirs.Width(); ++x)
          alpha_off += ours.GetAlpha(x, y) != theirs.GetAlpha(x, y);
      EXPECT_EQ(alpha_off, 0) << "pixels whose alpha differs";
    }
    TIEBitmap cmp = ours;
    if (cmp.HasAlphaChannel()) {
      // ImageMagick drops alpha without compositing; so do we here.
      TIEBitmap opaque;
      ASSERT_TRUE(opaque.Allocate(cmp.Width(), cmp.Height(), TIEPixelFormat::ie24RGB).ok());
      for (int y = 0; y < cmp.Height(); ++y)
        for (int x = 0; x < cmp.Width(); ++x) opaque.SetPixels_ie24RGB(x, y, cmp.GetPixels(x, y));
      cmp = opaque;
    }
    const auto d = iotest::Compare(cmp, theirs);
    EXPECT_LE(d.mean, c.mean + 0.01)
        << "max " << d.max << " size " << ours.Width() << "x" << ours.Height() << " vs "
        << theirs.Width() << "x" << theirs.Height();
    ++compared;
  }
  EXPECT_GT(compared, 20);
}

TEST(ImageIoCorpus, ParametersWithoutPixels) {
  PICTAVO_REQUIRE_CORPUS(g4, "multipage/g4-multi.tiff");
  PICTAVO_REQUIRE_CORPUS(gif, "special/animated_iss634.gif");
  PICTAVO_REQUIRE_CORPUS(deep, "special/tiff_16bit_RGB.tiff");
  PICTAVO_REQUIRE_CORPUS(jpg, "raster/jpeg/Canon_40D.jpg");
  TIEBitmap b;
  TImageEnIO io(&b);
  ASSERT_TRUE(io.ParamsFromFile(g4).ok());
  EXPECT_EQ(io.Params().ImageCount, 3);
  EXPECT_EQ(io.Params().BitsPerSample, 1);
  EXPECT_EQ(io.Params().Width, 3307);
  EXPECT_TRUE(b.IsEmpty()) << "no pixels were decoded";
  io.Params().ImageIndex = 2;
  ASSERT_TRUE(io.LoadFromFile(g4).ok());
  EXPECT_EQ(b.PixelFormat(), TIEPixelFormat::ie1g) << "a 1-bit page stays 1-bit";
  io.Params().ImageIndex = 0;
  ASSERT_TRUE(io.ParamsFromFile(gif).ok());
  EXPECT_GT(io.Params().ImageCount, 10);
  ASSERT_TRUE(io.ParamsFromFile(deep).ok());
  EXPECT_EQ(io.Params().BitsPerSample * io.Params().SamplesPerPixel, 48);
  ASSERT_TRUE(io.ParamsFromFile(jpg).ok());
  EXPECT_TRUE(io.Params().EXIF_HasEXIFData);
  EXPECT_EQ(io.Params().EXIF_Make, "Canon");
  EXPECT_FALSE(io.Params().EXIF_Thumbnail.empty());
  // Shrink-on-load: 1/4 of the size through DCT scaling.
  io.Params().JPEG_ScaleDenom = 4;
  ASSERT_TRUE(io.LoadFromFile(jpg).ok());
  EXPECT_EQ(b.Width(), (io.Params().Width));
  TIEBitmap full;
  TImageEnIO fio(&full);
  ASSERT_TRUE(fio.LoadFromFile(jpg).ok());
  EXPECT_EQ(b.Width(), (full.Width() + 3) / 4);
}

TEST(ImageIoDamage, TruncatedAndCorruptFilesFailCleanly) {
  PICTAVO_REQUIRE_CORPUS(probe, "raster/png/hopper.png");
  int checked = 0;
  for (const CorpusCase& c : kCorpus) {
    const std::string path = testing::CorpusFile(c.file);
    if (path.empty()) continue;
    SCOPED_TRACE(c.file);
    const auto bytes = iotest::ReadAll(path);
    // Cut: every decoder must either fail or give a picture, never crash or hang; the
    // picture formats with a defined end must fail.
    for (double frac : {0.05, 0.3, 0.7}) {
      std::vector<uint8_t> cut(bytes.begin(),
                               bytes.begin() + static_cast<long>(bytes.size() * frac));
      TIEBitmap b;
      TImageEnIO io(&b);
      auto st = io.LoadFromBuffer(cut.data(), cut.size());
      if (!st.ok()) EXPECT_TRUE(b.IsEmpty());
      // An animation whose first frame is complete still loads that frame.
      if (frac == 0.05 && std::string(c.file).find(".gif") == std::string::npos)
        EXPECT_FALSE(st.ok());
    }
    // Flipped bytes all through the file.
    std::vector<uint8_t> bad = bytes;
    for (size_t i = 16; i < bad.size(); i += 97) bad[i] ^= 0x5A;
    TIEBitmap b;
    TImageEnIO io(&b);
    auto st = io.LoadFromBuffer(bad.data(), bad.size());
    if (!st.ok()) EXPECT_TRUE(b.IsEmpty());
    ++checked;
  }
  EXPECT_GT(checked, 20);
  // The corpus's own truncated JPEG and zero-length file, and a PCX whose header contradicts
  // itself (8 bits per pixel, 88 pixels wide, 12 bytes per line) and whose data fits neither.
  for (const char* f :
       {"special/truncated_jpeg.jpg", "special/empty.heic", "raster/pcx/01r_00.pcx"}) {
    const std::string path = testing::CorpusFile(f);
    if (path.empty()) continue;
    TIEBitmap b;
    TImageEnIO io(&b);
    EXPECT_FALSE(io.LoadFromFile(path).ok()) << f;
    EXPECT_TRUE(b.IsEmpty());
  }
  // A tiny header declaring a huge picture is refused before allocating.
  const uint8_t huge_pgm[] = "P5\n900000 900000\n255\n\0\0\0";
  TIEBitmap b;
  TImageEnIO io(&b);
  EXPECT_FALSE(io.LoadFromBuffer(huge_pgm, sizeof huge_pgm).ok());
}

}  // namespace
}  // namespace pictavo::imaging
