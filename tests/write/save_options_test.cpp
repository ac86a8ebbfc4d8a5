// Save options checked in the written files, read back by independent readers (libtiff, libpng,
// giflib, byte-level parsing), never by the engine that wrote them.
#include <gif_lib.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <memory>

#include "write/writers_own.h"
#include "write_test_support.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using testing::WriterJob;

struct TiffFacts {
  int pages = 0;
  uint16_t compression = 0, photometric = 0, bits = 0, samples = 0;
  uint32_t t4options = 0;
};

TiffFacts ReadTiff(const std::string& path) {
  TiffFacts f;
  std::unique_ptr<TIFF, void (*)(TIFF*)> tif(TIFFOpen(path.c_str(), "r"), TIFFClose);
  if (!tif) return f;
  TIFFGetField(tif.get(), TIFFTAG_COMPRESSION, &f.compression);
  TIFFGetField(tif.get(), TIFFTAG_PHOTOMETRIC, &f.photometric);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_BITSPERSAMPLE, &f.bits);
  TIFFGetFieldDefaulted(tif.get(), TIFFTAG_SAMPLESPERPIXEL, &f.samples);
  TIFFGetField(tif.get(), TIFFTAG_GROUP3OPTIONS, &f.t4options);
  f.pages = TIFFNumberOfDirectories(tif.get());
  return f;
}

struct PngFacts {
  int bit_depth = 0, color_type = -1, interlace = -1;
};

PngFacts ReadPngHeader(const std::string& path) {
  const std::string b = testing::ReadBytes(path);
  PngFacts f;
  if (b.size() < 29 || b.compare(12, 4, "IHDR") != 0) return f;
  f.bit_depth = static_cast<uint8_t>(b[24]);
  f.color_type = static_cast<uint8_t>(b[25]);
  f.interlace = static_cast<uint8_t>(b[28]);
  return f;
}

// RGBA pixels through libpng's simplified API.
std::vector<uint8_t> ReadPngRgba(const std::string& path, int& w, int& h) {
  png_image image{};
  image.version = PNG_IMAGE_VERSION;
  std::vector<uint8_t> px;
  if (!png_image_begin_read_from_file(&image, path.c_str())) return px;
  image.format = PNG_FORMAT_RGBA;
  px.resize(PNG_IMAGE_SIZE(image));
  if (!png_image_finish_read(&image, nullptr, px.data(), 0, nullptr)) px.clear();
  w = static_cast<int>(image.width), h = static_cast<int>(image.height);
  return px;
}

// The component identifiers of the first SOF segment of a JPEG file.
std::string JpegComponentIds(const std::string& b, bool& progressive) {
  progressive = false;
  for (size_t i = 2; i + 4 < b.size();) {
    if (static_cast<uint8_t>(b[i]) != 0xFF) return {};
    const uint8_t marker = static_cast<uint8_t>(b[i + 1]);
    const size_t len = (static_cast<uint8_t>(b[i + 2]) << 8) | static_cast<uint8_t>(b[i + 3]);
    if (marker == 0xC0 || marker == 0xC1 || marker == 0xC2) {
      progressive = marker == 0xC2;
      const int n = static_cast<uint8_t>(b[i + 9]);
      std::string ids;
      for (int c = 0; c < n; ++c) ids += b[i + 10 + 3 * c];
      return ids;
    }
    i += 2 + len;
  }
  return {};
}

class SaveOptions : public ::testing::Test {
 protected:
  void SetUp() override {
    job.UseFakeTools();  // so that finishing tools leave the engine's files as they are
    testing::SavePicture(testing::TestPicture(90, 60), job.In("a.png"));
  }
  std::string Write(const std::string& ext, const std::string& src = "") {
    job.Target(ext, src.empty() ? job.In("a.png") : src);
    EXPECT_EQ(job.c.Convert(), 0) << ext;
    return job.c.dest_file;
  }
  WriterJob job;
};

TEST_F(SaveOptions, JpegQualityProgressiveAndColourSpace) {
  job.settings.jpg.quality = 30;
  const auto low = fs::file_size(Write("jpg"));
  job.settings.jpg.quality = 95;
  const std::string path = Write("jpg");
  EXPECT_GT(fs::file_size(path), low);
  bool progressive = true;
  // Colour space 0 is the engine's YCbCr code: components numbered 1, 2, 3.
  EXPECT_EQ(JpegComponentIds(testing::ReadBytes(path), progressive), std::string("\x01\x02\x03"));
  EXPECT_FALSE(progressive);
  job.settings.jpg.progressive = true;
  job.settings.jpg.color_space = 2;  // RGB: components named R, G, B
  EXPECT_EQ(JpegComponentIds(testing::ReadBytes(Write("jpeg")), progressive), "RGB");
  EXPECT_TRUE(progressive);
  job.settings.jpg.color_space = 4;  // grey
  EXPECT_EQ(JpegComponentIds(testing::ReadBytes(Write("jpg")), progressive).size(), 1u);
}

TEST_F(SaveOptions, ExifTextFieldsAndTheirRemoval) {
  job.settings.save.set_exif_copyright = true;
  job.settings.save.exif_copyright = "Velmora copyright";
  job.settings.save.set_exif_title = true;
  job.settings.save.exif_title = "Ab";
  std::string bytes = testing::ReadBytes(Write("jpg"));
  EXPECT_NE(bytes.find("Exif"), std::string::npos);
  EXPECT_NE(bytes.find("Velmora copyright"), std::string::npos);       // 8-bit text
  EXPECT_NE(bytes.find(std::string("A\0b\0", 4)), std::string::npos);  // wide text
  // Copying EXIF off and no field set: the result has no EXIF block.
  job.settings.save.set_exif_copyright = job.settings.save.set_exif_title = false;
  job.settings.save.copy_exif = false;
  bytes = testing::ReadBytes(Write("jpg", job.Out("result.jpg")));
  EXPECT_EQ(bytes.find("Velmora copyright"), std::string::npos);
}

TEST_F(SaveOptions, TiffCompressionTagPerSetting) {
  const uint16_t expected[8] = {COMPRESSION_NONE,      COMPRESSION_CCITTRLE,  COMPRESSION_PACKBITS,
                                COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX3, COMPRESSION_CCITTFAX4,
                                COMPRESSION_JPEG,      COMPRESSION_LZW};
  for (int v = 0; v <= 7; ++v) {
    job.settings.tif.compression = v;
    const TiffFacts f = ReadTiff(Write("tif"));
    EXPECT_EQ(f.compression, expected[v]) << v;
    const bool fax = v == 1 || v == 3 || v == 4 || v == 5;
    EXPECT_EQ(f.bits, fax ? 1 : 8) << v;
    if (v == 3) EXPECT_EQ(f.t4options & GROUP3OPT_2DENCODING, 0u);
    if (v == 4) EXPECT_NE(f.t4options & GROUP3OPT_2DENCODING, 0u);
  }
}

TEST_F(SaveOptions, TiffCmykRules) {
  job.settings.tif.save_in_cmyk = true;
  job.settings.tif.compression = 7;
  TiffFacts f = ReadTiff(Write("tif"));
  EXPECT_EQ(f.photometric, PHOTOMETRIC_SEPARATED);
  EXPECT_EQ(f.samples, 4);
  // Group 4 with CMYK on: a 1-bit file, no CMYK and no finishing tool.
  job.settings.tif.compression = 5;
  fs::remove(job.Root() + "/calls.log");
  f = ReadTiff(Write("tif"));
  EXPECT_EQ(f.compression, COMPRESSION_CCITTFAX4);
  EXPECT_EQ(f.bits, 1);
  EXPECT_EQ(f.samples, 1);
  EXPECT_NE(f.photometric, PHOTOMETRIC_SEPARATED);
  EXPECT_TRUE(job.Calls().empty());
  // JPEG in TIFF with CMYK: saved with 3 samples, then handed to the tool with " -c 8".
  job.settings.tif.compression = 6;
  f = ReadTiff(Write("tif"));
  EXPECT_EQ(f.compression, COMPRESSION_JPEG);
  EXPECT_EQ(f.samples, 3);
  EXPECT_EQ(job.Calls().back().at(1), "-c");
  EXPECT_EQ(job.Calls().back().at(2), "8");
}

TEST_F(SaveOptions, TiffKeepsAlphaAsAFourthSample) {
  testing::SavePicture(testing::TestPicture(30, 20, true), job.In("alpha.png"));
  job.settings.tif.compression = 2;
  TiffFacts f = ReadTiff(Write("tif", job.In("alpha.png")));
  EXPECT_EQ(f.samples, 4);
  EXPECT_EQ(f.photometric, PHOTOMETRIC_RGB);
  job.settings.save.copy_alpha = false;
  f = ReadTiff(Write("tif", job.In("alpha.png")));
  EXPECT_EQ(f.samples, 3);
}

TEST_F(SaveOptions, PngDepthInterlaceAndColourChoice) {
  PngFacts f = ReadPngHeader(Write("png"));
  EXPECT_EQ(f.bit_depth, 8);
  EXPECT_EQ(f.color_type, PNG_COLOR_TYPE_RGB);
  EXPECT_EQ(f.interlace, 0);
  job.settings.png.interlaced = true;
  job.settings.colors.option_flags.Select(2);
  job.settings.colors.samples_per_pixel = 1;
  job.settings.colors.bits_per_sample = 1;
  f = ReadPngHeader(Write("png"));
  EXPECT_EQ(f.bit_depth, 1);
  EXPECT_EQ(f.interlace, 1);
  job.settings.colors.bits_per_sample = 4;
  f = ReadPngHeader(Write("png"));
  EXPECT_EQ(f.bit_depth, 8);
  EXPECT_EQ(f.color_type, PNG_COLOR_TYPE_GRAY);
}

TEST_F(SaveOptions, PngSoftKeyTransparency) {
  job.settings.png.transparent = true;
  job.settings.png.auto_transp = false;  // key colour white from the settings
  int w = 0, h = 0;
  std::vector<uint8_t> px = ReadPngRgba(Write("png"), w, h);
  ASSERT_EQ(px.size(), static_cast<size_t>(w) * h * 4);
  auto alpha = [&](int x, int y) { return px[(static_cast<size_t>(y) * w + x) * 4 + 3]; };
  EXPECT_EQ(alpha(0, 0), 0);            // white: the key itself
  EXPECT_EQ(alpha(w / 2, h / 2), 255);  // black: 25500 x 10 / 100 capped at 255

  // A near-white grey of 250: 100 x 5 = 500, x 10 / 100 = 50.
  imaging::TIEBitmap grey;
  ASSERT_TRUE(grey.Allocate(4, 4, imaging::TIEPixelFormat::ie24RGB).ok());
  grey.Fill(0xFAFAFA);
  grey.SetPixels_ie24RGB(0, 3, {10, 20, 30});  // bottom-left pixel: the automatic key
  testing::SavePicture(grey, job.In("grey.png"));
  px = ReadPngRgba(Write("png", job.In("grey.png")), w, h);
  EXPECT_EQ(px[3], 50);
  job.settings.png.auto_transp = true;
  px = ReadPngRgba(Write("png", job.In("grey.png")), w, h);
  EXPECT_EQ(px[(3 * 4 + 0) * 4 + 3], 0);  // the bottom-left pixel is now the key
  EXPECT_EQ(px[3], 255);
}

TEST_F(SaveOptions, GifFramesIntoOneTiffOrOneFileEach) {
  testing::SaveFrames(job.In("three.gif"), 3);
  job.settings.multipage.option = 1;
  EXPECT_EQ(ReadTiff(Write("tif", job.In("three.gif"))).pages, 3);
  ASSERT_EQ(job.c.written_files.size(), 1u);

  job.settings.multipage.option = 3;
  Write("tif", job.In("three.gif"));
  ASSERT_EQ(job.c.written_files.size(), 3u);
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(job.c.written_files[i].page, i);
    EXPECT_EQ(ReadTiff(job.c.written_files[i].file_name).pages, 1) << i;
  }
  EXPECT_EQ(job.c.written_files[0].file_name, job.c.dest_file);

  // A GIF target keeps every frame in one file (read back by giflib).
  job.settings.multipage.option = 1;
  job.settings.gif.loop = false;
  int error = 0;
  GifFileType* gif = DGifOpenFileName(Write("gif", job.In("three.gif")).c_str(), &error);
  ASSERT_NE(gif, nullptr);
  EXPECT_EQ(DGifSlurp(gif), GIF_OK);
  EXPECT_EQ(gif->ImageCount, 3);
  DGifCloseFile(gif, &error);
}

TEST_F(SaveOptions, FramesSavedApartKeepTheirOrder) {
  // Frames of one file are saved side by side on spare cores: each result must still hold its
  // own frame, listed in frame order.
  testing::SaveFrames(job.In("seven.tif"), 7);
  job.settings.multipage.option = 3;
  Write("png", job.In("seven.tif"));
  ASSERT_EQ(job.c.written_files.size(), 7u);
  EXPECT_EQ(job.c.written_files[0].file_name, job.c.dest_file);
  for (int i = 0; i < 7; ++i) {
    EXPECT_EQ(job.c.written_files[i].page, i);
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    ASSERT_TRUE(io.LoadFromFile(job.c.written_files[i].file_name).ok()) << i;
    EXPECT_EQ(bmp.GetPixels(2, 2).r, 0x10 * (i + 1)) << "frame " << i;
  }
}

TEST_F(SaveOptions, OwnPpmPgmAndSwfWriters) {
  testing::SaveFrames(job.In("two.tif"), 2);
  job.settings.multipage.option = 3;
  for (const char* ext : {"ppm", "pgm"}) {
    Write(ext, job.In("two.tif"));
    ASSERT_EQ(job.c.written_files.size(), 2u);
    for (const auto& w : job.c.written_files) {
      const std::string b = testing::ReadBytes(w.file_name);
      EXPECT_EQ(b.substr(0, 2), ext == std::string("ppm") ? "P6" : "P5");
      EXPECT_EQ(b.size(), 13 + static_cast<size_t>(30 * 20) * (ext == std::string("ppm") ? 3 : 1));
    }
  }
  // One animated SWF: header, declared length and frame count.
  job.settings.multipage.option = 1;
  const std::string swf = testing::ReadBytes(Write("swf", job.In("two.tif")));
  ASSERT_GT(swf.size(), 20u);
  EXPECT_EQ(swf.substr(0, 3), "FWS");
  const uint32_t declared = static_cast<uint8_t>(swf[4]) | (static_cast<uint8_t>(swf[5]) << 8) |
                            (static_cast<uint8_t>(swf[6]) << 16) |
                            (static_cast<uint32_t>(static_cast<uint8_t>(swf[7])) << 24);
  EXPECT_EQ(declared, swf.size());
}

TEST_F(SaveOptions, UnwritableDestinationFailsCleanly) {
  job.UseFakeTools();
  // A folder that does not exist, and a "folder" that is a file: unwritable even for root.
  for (const char* ext : {"jpg", "tif", "webp", "pdf"}) {
    for (const std::string& folder : {job.Root() + "/no/such", job.In("a.png")}) {
      job.Target(ext, job.In("a.png"));
      job.c.dest_file = folder + "/result." + ext;
      EXPECT_NE(job.c.Convert(), 0) << ext << " in " << folder;
      EXPECT_FALSE(fs::exists(job.c.dest_file));
    }
  }
  EXPECT_TRUE(fs::is_regular_file(job.In("a.png")));  // the source is untouched
  EXPECT_TRUE(testing::FilesIn(job.Out("")).empty());
}

}  // namespace
}  // namespace pictavo::writer
