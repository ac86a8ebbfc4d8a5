// Save/load round trips through every writer and layout, option effects on the written files,
// and the file-level operations (insert pages and frames, raw, PDF, atomic saves).
#include <algorithm>
#include <cstring>
#include <filesystem>
#include <tuple>

#include <gtest/gtest.h>

#include "imaging/codec_registry.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_io.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

using iotest::Compare;
using iotest::Pattern;
using F = TIEPixelFormat;

struct WriterCase {
  std::string ext;
  double tolerance;  // mean absolute error per channel allowed after the trip
  bool keeps_alpha;
};

// Mean error allowed of the lossy writers; every other writer must be exact.
constexpr struct {
  const char* ext;
  double tolerance;
} kLossy[] = {{"gif", 16}, {"jpg", 12}, {"webp", 12}};

// Every format the engine writes, from the codec registry, by its first extension.
std::vector<WriterCase> Writers() {
  std::vector<WriterCase> writers;
  for (const CodecRow& row : CodecRows()) {
    if (!row.encode || row.extensions.empty()) continue;
    WriterCase w{std::string(row.extensions.front()), 0, row.alpha};
    for (const auto& lossy : kLossy)
      if (w.ext == lossy.ext) w.tolerance = lossy.tolerance;
    writers.push_back(w);
  }
  return writers;
}

TEST(ImageIoRoundTrip, EveryWriterAndLayoutComesBack) {
  testing::TempDir tmp;
  const F layouts[] = {F::ie1g, F::ie8g, F::ie8p, F::ie16g, F::ie24RGB, F::ie48RGB, F::ieCMYK};
  const std::vector<WriterCase> writers = Writers();
  ASSERT_GE(writers.size(), 16u);
  for (const WriterCase& w : writers) {
    for (F layout : layouts) {
      for (bool alpha : {false, true}) {
        if (alpha && (layout == F::ie1g || layout == F::ie8p || layout == F::ieCMYK)) continue;
        SCOPED_TRACE(w.ext + " layout " + std::to_string(int(layout)) + (alpha ? " +alpha" : ""));
        TIEBitmap src = Pattern(48, 40, layout, alpha);
        TImageEnIO io(&src);
        const std::string path = tmp.file("t." + w.ext);
        ASSERT_TRUE(io.SaveToFile(path).ok());
        TIEBitmap back;
        TImageEnIO in(&back);
        auto st = in.LoadFromFile(path);
        ASSERT_TRUE(st.ok()) << st.message();
        ASSERT_EQ(back.Width(), 48);
        ASSERT_EQ(back.Height(), 40);
        // Formats that cannot hold the layout store its nearest relative: compare with what
        // the picture looks like in that relative (grey for PGM, black/white for PBM).
        TIEBitmap expect = src;
        if (!w.keeps_alpha && expect.HasAlphaChannel()) expect.RemoveAlphaChannel(0xFFFFFF);
        if (std::string(w.ext) == "pgm" && layout != F::ie8g && layout != F::ie16g)
          ASSERT_TRUE(expect.ConvertTo(F::ie8g).ok());
        if (std::string(w.ext) == "pbm") ASSERT_TRUE(expect.ConvertTo(F::ie1g).ok());
        const auto d = Compare(expect, back);
        // GIF keeps on/off transparency only, so hidden pixels' colours are not compared.
        if (!(alpha && std::string(w.ext) == "gif"))
          EXPECT_LE(d.mean, w.tolerance + 0.5) << "max " << d.max;
        if (alpha && w.keeps_alpha) {
          EXPECT_TRUE(back.HasAlphaChannel());
          if (back.HasAlphaChannel()) {
            EXPECT_GE(back.GetAlpha(2, 2), 250);
            // GIF keeps only on/off transparency.
            EXPECT_LE(back.GetAlpha(47, 1), std::string(w.ext) == "gif" ? 0 : 20);
          }
        }
      }
    }
  }
}

TEST(ImageIoRoundTrip, DepthAndPaletteSurviveWhereTheFormatHoldsThem) {
  testing::TempDir tmp;
  const struct {
    const char* ext;
    F layout;
  } keep[] = {{"png", F::ie1g},    {"png", F::ie8p}, {"png", F::ie16g}, {"png", F::ie48RGB},
              {"tif", F::ie1g},    {"tif", F::ie8p}, {"tif", F::ie16g}, {"tif", F::ie48RGB},
              {"tif", F::ieCMYK},  {"bmp", F::ie1g}, {"bmp", F::ie8p},  {"pgm", F::ie16g},
              {"ppm", F::ie48RGB}, {"pbm", F::ie1g}, {"gif", F::ie8p},  {"jpg", F::ieCMYK},
              {"jpg", F::ie8g},    {"tga", F::ie8p}, {"pcx", F::ie1g}};
  for (const auto& k : keep) {
    SCOPED_TRACE(std::string(k.ext) + " " + std::to_string(int(k.layout)));
    TIEBitmap src = Pattern(33, 17, k.layout);
    TImageEnIO io(&src);
    const std::string path = tmp.file(std::string("k.") + k.ext);
    ASSERT_TRUE(io.SaveToFile(path).ok());
    TIEBitmap back;
    TImageEnIO in(&back);
    ASSERT_TRUE(in.LoadFromFile(path).ok());
    EXPECT_EQ(back.PixelFormat(), k.layout);
  }
}

TEST(ImageIoOptions, TiffCompressionAndPhotometricReachTheFile) {
  PICTAVO_REQUIRE_PROGRAM("tiffinfo", "libtiff-tools");
  testing::TempDir tmp;
  const struct {
    TIOTIFFCompression c;
    const char* text;
  } rows[] = {{TIOTIFFCompression::ioTIFF_UNCOMPRESSED, "None"},
              {TIOTIFFCompression::ioTIFF_CCITT1D, "CCITT RLE"},
              {TIOTIFFCompression::ioTIFF_G3FAX1D, "CCITT Group 3"},
              {TIOTIFFCompression::ioTIFF_G3FAX2D, "CCITT Group 3"},
              {TIOTIFFCompression::ioTIFF_G4FAX, "CCITT Group 4"},
              {TIOTIFFCompression::ioTIFF_LZW, "LZW"},
              {TIOTIFFCompression::ioTIFF_JPEG, "JPEG"},
              {TIOTIFFCompression::ioTIFF_PACKBITS, "PackBits"},
              {TIOTIFFCompression::ioTIFF_DEFLATE, "AdobeDeflate"}};
  for (const auto& r : rows) {
    SCOPED_TRACE(r.text);
    TIEBitmap src = Pattern(64, 48, F::ie24RGB);
    TImageEnIO io(&src);
    io.Params().TIFF_Compression = r.c;
    const std::string path = tmp.file("c.tif");
    ASSERT_TRUE(io.SaveToFile(path).ok());
    const std::string info = iotest::Capture("tiffinfo '" + path + "' 2>&1");
    EXPECT_NE(info.find(std::string("Compression Scheme: ") + r.text), std::string::npos) << info;
    const bool fax =
        r.c == TIOTIFFCompression::ioTIFF_CCITT1D || r.c == TIOTIFFCompression::ioTIFF_G3FAX1D ||
        r.c == TIOTIFFCompression::ioTIFF_G3FAX2D || r.c == TIOTIFFCompression::ioTIFF_G4FAX;
    if (fax) EXPECT_NE(info.find("Bits/Sample: 1"), std::string::npos) << info;
    if (r.c == TIOTIFFCompression::ioTIFF_G3FAX2D)
      EXPECT_NE(info.find("2-d encoding"), std::string::npos) << info;
    TIEBitmap back;
    TImageEnIO in(&back);
    ASSERT_TRUE(in.LoadFromFile(path).ok());
    EXPECT_EQ(in.Params().TIFF_Compression, r.c);
    EXPECT_EQ(back.PixelFormat(), fax ? F::ie1g : F::ie24RGB);
  }
  // Separated (CMYK) photometric and 8 x 4 samples on request.
  TIEBitmap src = Pattern(20, 20, F::ie24RGB);
  TImageEnIO io(&src);
  io.Params().TIFF_PhotometInterpret = ioTIFF_CMYK;
  io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
  ASSERT_TRUE(io.SaveToFile(tmp.file("cmyk.tif")).ok());
  const std::string info = iotest::Capture("tiffinfo '" + tmp.file("cmyk.tif") + "' 2>&1");
  EXPECT_NE(info.find("separated"), std::string::npos) << info;
  EXPECT_NE(info.find("Samples/Pixel: 4"), std::string::npos) << info;
}

TEST(ImageIoOptions, PngDepthInterlaceAndJpegColourSpaceProgressive) {
  testing::TempDir tmp;
  // PNG: 1 bit per sample on request; interlace flag; compression level changes the size.
  TIEBitmap src = Pattern(64, 64, F::ie24RGB);
  TImageEnIO io(&src);
  io.Params().BitsPerSample = 1;
  io.Params().SamplesPerPixel = 1;
  io.Params().PNG_Interlaced = true;
  ASSERT_TRUE(io.SaveToFile(tmp.file("a.png")).ok());
  const auto png = iotest::ReadAll(tmp.file("a.png"));
  ASSERT_GT(png.size(), 29u);
  EXPECT_EQ(png[24], 1) << "bit depth in IHDR";
  EXPECT_EQ(png[25], 0) << "colour type grey";
  EXPECT_EQ(png[28], 1) << "Adam7 interlace";
  TIEBitmap noisy = Pattern(128, 128, F::ie24RGB);
  TImageEnIO nio(&noisy);
  std::vector<uint8_t> fast, best;
  nio.Params().PNG_Compression = 0;
  ASSERT_TRUE(nio.SaveToBuffer(TIOFileType::ioPNG, fast).ok());
  nio.Params().PNG_Compression = 9;
  ASSERT_TRUE(nio.SaveToBuffer(TIOFileType::ioPNG, best).ok());
  EXPECT_LT(best.size(), fast.size());

  // JPEG: quality orders sizes; colour space and progressive are read back from the file.
  std::vector<uint8_t> q20, q95;
  nio.Params().JPEG_Quality = 20;
  ASSERT_TRUE(nio.SaveToBuffer(TIOFileType::ioJPEG, q20).ok());
  nio.Params().JPEG_Quality = 95;
  ASSERT_TRUE(nio.SaveToBuffer(TIOFileType::ioJPEG, q95).ok());
  EXPECT_LT(q20.size(), q95.size());
  for (TIOJPEGColorSpace cs : {ioJPEG_GRAYLEV, ioJPEG_RGB, ioJPEG_YCbCr, ioJPEG_CMYK}) {
    nio.Params().JPEG_ColorSpace = cs;
    nio.Params().JPEG_Progressive = cs == ioJPEG_YCbCr;
    std::vector<uint8_t> j;
    ASSERT_TRUE(nio.SaveToBuffer(TIOFileType::ioJPEG, j).ok());
    TIEBitmap back;
    TImageEnIO in(&back);
    ASSERT_TRUE(in.LoadFromBuffer(j.data(), j.size()).ok());
    EXPECT_EQ(in.Params().JPEG_ColorSpace, cs);
    EXPECT_EQ(in.Params().JPEG_Progressive, cs == ioJPEG_YCbCr);
    if (cs != ioJPEG_GRAYLEV) EXPECT_LT(Compare(noisy, back).mean, 12.0);
  }
}

TEST(ImageIoOptions, DpiTgaPcxAndJpeg2000RateReachTheFile) {
  testing::TempDir tmp;
  TIEBitmap src = Pattern(40, 30, F::ie24RGB);
  TImageEnIO io(&src);
  io.Params().DpiX = 300;
  io.Params().DpiY = 150;
  for (const char* ext : {"jpg", "png", "tif", "bmp", "pcx"}) {
    const std::string path = tmp.file(std::string("d.") + ext);
    ASSERT_TRUE(io.SaveToFile(path).ok());
    TIEBitmap back;
    TImageEnIO in(&back);
    ASSERT_TRUE(in.ParamsFromFile(path).ok());
    EXPECT_EQ(in.Params().DpiX, 300) << ext;
    EXPECT_EQ(in.Params().DpiY, 150) << ext;
  }
  TIEBitmap flat;
  ASSERT_TRUE(flat.Allocate(200, 50, F::ie24RGB).ok());
  flat.Fill(0x336699);
  TImageEnIO fio(&flat);
  std::vector<uint8_t> rle, raw;
  fio.Params().TGA_Compressed = true;
  ASSERT_TRUE(fio.SaveToBuffer(TIOFileType::ioTGA, rle).ok());
  fio.Params().TGA_Compressed = false;
  ASSERT_TRUE(fio.SaveToBuffer(TIOFileType::ioTGA, raw).ok());
  EXPECT_EQ(rle[2], 10);
  EXPECT_EQ(raw[2], 2);
  EXPECT_LT(rle.size() * 10, raw.size());
  fio.Params().PCX_Compression = true;
  ASSERT_TRUE(fio.SaveToBuffer(TIOFileType::ioPCX, rle).ok());
  fio.Params().PCX_Compression = false;
  ASSERT_TRUE(fio.SaveToBuffer(TIOFileType::ioPCX, raw).ok());
  EXPECT_EQ(rle[2], 1);
  EXPECT_EQ(raw[2], 0);
  TIEBitmap photo = Pattern(128, 128, F::ie24RGB);
  TImageEnIO pio(&photo);
  std::vector<uint8_t> lossless, tenth;
  pio.Params().J2000_Rate = 1.0;
  ASSERT_TRUE(pio.SaveToBuffer(TIOFileType::ioJP2, lossless).ok());
  pio.Params().J2000_Rate = 0.1;
  ASSERT_TRUE(pio.SaveToBuffer(TIOFileType::ioJP2, tenth).ok());
  EXPECT_LT(tenth.size(), lossless.size());
  EXPECT_LT(tenth.size(), 128u * 128 * 3 / 10 + 2000);
}

TEST(ImageIoFiles, InsertPagesAndFramesThenSelectThem) {
  testing::TempDir tmp;
  const std::string tif = tmp.file("multi.tif"), gif = tmp.file("anim.gif");
  for (int i = 0; i < 3; ++i) {
    TIEBitmap page;
    ASSERT_TRUE(page.Allocate(30 + i, 20, F::ie24RGB).ok());
    page.Fill(i == 0 ? 0x0000FF : i == 1 ? 0x00FF00 : 0xFF0000);
    TImageEnIO io(&page);
    io.Params().GIF_DelayTime = 10 * (i + 1);
    io.Params().GIF_Loop = i == 0 ? 3 : 7;  // only the first frame's loop count is written
    io.Params().GIF_TransparentIndex = i == 2 ? 1 : -1;  // an unused entry
    ASSERT_TRUE(io.InsertToFileTIFF(tif).ok());
    ASSERT_TRUE(io.InsertToFileGIF(gif).ok());
  }
  {
    TIEBitmap b;
    TImageEnIO io(&b);
    ASSERT_TRUE(io.ParamsFromFile(gif).ok());
    ASSERT_EQ(io.Params().GIF_Frames.size(), 3u);
    for (int i = 0; i < 3; ++i) {
      EXPECT_EQ(io.Params().GIF_Frames[i].delay_cs, 10 * (i + 1)) << "frame " << i;
      EXPECT_EQ(io.Params().GIF_Frames[i].transparent_index, i == 2 ? 1 : -1) << "frame " << i;
    }
    EXPECT_EQ(io.Params().GIF_Loop, 3);
    io.Params().ImageIndex = 1;
    ASSERT_TRUE(io.ParamsFromFile(gif).ok());
    EXPECT_EQ(io.Params().GIF_DelayTime, 20);
    // ImageMagick reads the same timing when it is installed.
    if (iotest::HaveProgram("identify"))
      EXPECT_EQ(iotest::Capture("identify -format '%T,' '" + gif + "'"), "10,20,30,");
  }
  {
    // A one-frame save keeps its delay, loop count and transparent index as well.
    TIEBitmap one = Pattern(16, 16, F::ie8p);
    TImageEnIO io(&one);
    io.Params().GIF_DelayTime = 42;
    io.Params().GIF_Loop = 0;
    io.Params().GIF_TransparentIndex = 5;
    ASSERT_TRUE(io.SaveToFile(tmp.file("one.gif")).ok());
    TIEBitmap b;
    TImageEnIO rio(&b);
    ASSERT_TRUE(rio.LoadFromFile(tmp.file("one.gif")).ok());
    EXPECT_EQ(rio.Params().GIF_DelayTime, 42);
    EXPECT_EQ(rio.Params().GIF_Loop, 0);
    EXPECT_EQ(rio.Params().GIF_TransparentIndex, 5);
    EXPECT_TRUE(b.HasAlphaChannel());
  }
  for (const std::string& path : {tif, gif}) {
    TIEBitmap b;
    TImageEnIO io(&b);
    ASSERT_TRUE(io.ParamsFromFile(path).ok());
    EXPECT_EQ(io.Params().ImageCount, 3) << path;
    for (int i = 0; i < 3; ++i) {
      io.Params().ImageIndex = i;
      ASSERT_TRUE(io.LoadFromFile(path).ok());
      const TRGB want = i == 0 ? TRGB{255, 0, 0} : i == 1 ? TRGB{0, 255, 0} : TRGB{0, 0, 255};
      EXPECT_EQ(b.GetPixels(5, 5), want) << path << " frame " << i;
      if (path == tif) EXPECT_EQ(b.Width(), 30 + i);
    }
  }
  // Appending to a file of another format fails and leaves it untouched.
  TIEBitmap one = Pattern(10, 10, F::ie24RGB);
  TImageEnIO io(&one);
  ASSERT_TRUE(io.SaveToFile(tmp.file("x.png")).ok());
  const auto before = iotest::ReadAll(tmp.file("x.png"));
  EXPECT_FALSE(io.InsertToFileTIFF(tmp.file("x.png")).ok());
  EXPECT_EQ(iotest::ReadAll(tmp.file("x.png")), before);
}

TEST(ImageIoFiles, RawPdfAndSavesThatCannotHappen) {
  testing::TempDir tmp;
  // Raw: 3 x 2 BGR, rows padded to 4 bytes, stored bottom-up after a 5-byte header.
  std::vector<uint8_t> raw = {9, 9, 9, 9, 9};
  const uint8_t rows[2][12] = {{0, 0, 255, 0, 255, 0, 255, 0, 0, 0, 0, 0},
                               {10, 20, 30, 40, 50, 60, 70, 80, 90, 0, 0, 0}};
  raw.insert(raw.end(), rows[0], rows[0] + 12);
  raw.insert(raw.end(), rows[1], rows[1] + 12);
  iotest::WriteAll(tmp.file("p.raw"), raw);
  TIEBitmap b;
  TImageEnIO io(&b);
  TIORawLayout L{3, 2, F::ie24RGB, 5, 4, true, true, false};
  ASSERT_TRUE(io.LoadFromFileBMPRAW(tmp.file("p.raw"), L).ok());
  EXPECT_EQ(b.GetPixels(0, 1), (TRGB{255, 0, 0}));
  EXPECT_EQ(b.GetPixels(2, 0), (TRGB{90, 80, 70}));
  // Saved back in the same layout: the same bytes, the header as zeros.
  ASSERT_TRUE(io.SaveToFileBMPRAW(tmp.file("back.raw"), L).ok());
  std::vector<uint8_t> expected = raw;
  std::fill(expected.begin(), expected.begin() + 5, 0);
  EXPECT_EQ(iotest::ReadAll(tmp.file("back.raw")), expected);
  L.height = 3;
  EXPECT_FALSE(io.LoadFromFileBMPRAW(tmp.file("p.raw"), L).ok()) << "layout larger than the file";

  // The layouts the settings name round-trip: 16 bits a channel blue first on 32-bit rows, two
  // levels on 16-bit rows; alpha is laid onto white.
  for (const auto& [bits, align, order] : {std::tuple{16, 32, 2}, std::tuple{1, 16, 1}}) {
    TIORawLayout layout = RawLayoutFromSettings(bits, align, order, 3);
    TIEBitmap pic = Pattern(7, 5, layout.format), got;
    TImageEnIO out(&pic);
    ASSERT_TRUE(out.SaveToFileBMPRAW(tmp.file("rt.raw"), layout).ok());
    layout.width = 7, layout.height = 5;
    TImageEnIO in(&got);
    ASSERT_TRUE(in.LoadFromFileBMPRAW(tmp.file("rt.raw"), layout).ok());
    ASSERT_EQ(got.PixelFormat(), pic.PixelFormat());
    for (int y = 0; y < 5; ++y)
      EXPECT_EQ(std::memcmp(got.Scanline(y), pic.Scanline(y), pic.RowLen()), 0) << bits << " " << y;
  }
  TIEBitmap clear = Pattern(4, 2, F::ie24RGB), flat;
  clear.AddAlphaChannel(0);
  TImageEnIO cio(&clear);
  TIORawLayout rgb = RawLayoutFromSettings(8, 8, 1, 0);
  ASSERT_TRUE(cio.SaveToFileBMPRAW(tmp.file("clear.raw"), rgb).ok());
  EXPECT_EQ(iotest::ReadAll(tmp.file("clear.raw")), std::vector<uint8_t>(4 * 2 * 3, 255));

  // PDF: two pages, one JPEG photo and one Flate 1-bit page, checked by qpdf when present.
  TIEBitmap photo = Pattern(100, 80, F::ie24RGB), bw = Pattern(64, 64, F::ie1g);
  TImageEnIO pio(&photo);
  pio.Params().DpiX = pio.Params().DpiY = 72;
  ASSERT_TRUE(pio.CreatePDFFile(tmp.file("o.pdf")).ok());
  ASSERT_TRUE(pio.SaveToPDF().ok());
  EXPECT_FALSE(std::filesystem::exists(tmp.file("o.pdf"))) << "the file appears only when closed";
  photo = bw;
  ASSERT_TRUE(pio.SaveToPDF().ok());
  ASSERT_TRUE(pio.ClosePDFFile().ok());
  const auto pdf = iotest::ReadAll(tmp.file("o.pdf"));
  const std::string text(pdf.begin(), pdf.end());
  EXPECT_NE(text.find("/DCTDecode"), std::string::npos);
  EXPECT_NE(text.find("/FlateDecode"), std::string::npos);
  EXPECT_NE(text.find("/MediaBox [0 0 100.00 80.00]"), std::string::npos);
  if (iotest::HaveProgram("qpdf")) {
    EXPECT_EQ(std::system(("qpdf --check '" + tmp.file("o.pdf") + "' >/dev/null 2>&1").c_str()), 0);
    EXPECT_NE(iotest::Capture("qpdf --show-npages '" + tmp.file("o.pdf") + "'").find('2'),
              std::string::npos);
  }

  // Unknown extension, empty bitmap, read-only destination folder: clean failures, no files.
  TIEBitmap empty;
  TImageEnIO eio(&empty);
  EXPECT_FALSE(eio.SaveToFile(tmp.file("e.png")).ok());
  EXPECT_FALSE(io.SaveToFile(tmp.file("x.unknownext")).ok());
  EXPECT_FALSE(io.SaveToFile(tmp.file("no/such/folder/x.png")).ok());
  EXPECT_FALSE(std::filesystem::exists(tmp.file("e.png")));
  // A failed save keeps the old file.
  ASSERT_TRUE(pio.SaveToFile(tmp.file("keep.png")).ok());
  const auto old = iotest::ReadAll(tmp.file("keep.png"));
  TImageEnIO eio2(&empty);
  EXPECT_FALSE(eio2.SaveToFile(tmp.file("keep.png")).ok());
  EXPECT_EQ(iotest::ReadAll(tmp.file("keep.png")), old);
  for (const auto& e : std::filesystem::directory_iterator(tmp.path()))
    EXPECT_EQ(e.path().filename().string().find(".tmp"), std::string::npos)
        << "scratch left: " << e.path();
}

TEST(ImageIoFiles, IconWithSeveralSizes) {
  TIEBitmap wide = Pattern(300, 150, F::ie24RGB);
  TImageEnIO io(&wide);
  io.Params().ICO_Sizes = {256, 48, 16};
  std::vector<uint8_t> ico;
  ASSERT_TRUE(io.SaveToBuffer(TIOFileType::ioICO, ico).ok());
  TIEBitmap b;
  TImageEnIO rio(&b);
  ASSERT_TRUE(rio.ParamsFromBuffer(ico.data(), ico.size()).ok());
  EXPECT_EQ(rio.Params().ImageCount, 3);
  const int sides[] = {256, 48, 16};
  for (int i = 0; i < 3; ++i) {
    rio.Params().ImageIndex = i;
    ASSERT_TRUE(rio.LoadFromBuffer(ico.data(), ico.size()).ok()) << i;
    EXPECT_EQ(b.Width(), sides[i]);
    EXPECT_EQ(b.Height(), sides[i]);
    // The 2:1 picture sits in the middle band; above and below it is transparent.
    EXPECT_EQ(b.GetAlpha(sides[i] / 2, 0), 0) << i;
    EXPECT_EQ(b.GetAlpha(sides[i] / 2, sides[i] / 2), 255) << i;
  }
  // The 256 image is stored as PNG, the small ones as DIBs.
  const uint32_t first = ico[18] | ico[19] << 8 | ico[20] << 16 | uint32_t(ico[21]) << 24;
  EXPECT_EQ(std::memcmp(&ico[first], "\x89PNG", 4), 0);
  io.Params().ICO_Sizes = {512};
  EXPECT_FALSE(io.SaveToBuffer(TIOFileType::ioICO, ico).ok());
}

// A 2 x 1 uncompressed 32-bit TGA with a TGA 2.0 extension area whose attributes type is
// `attributes` (or none when negative).
std::vector<uint8_t> Tga32(int attributes, uint8_t alpha_bits) {
  std::vector<uint8_t> f = {0, 0, 2, 0, 0, 0, 0, 0,  0,
                            0, 0, 0, 2, 0, 1, 0, 32, static_cast<uint8_t>(0x20 | alpha_bits)};
  // Blue-green-red-alpha: a half-covered premultiplied grey, and an opaque red.
  for (uint8_t b : {64, 64, 64, 128, 0, 0, 255, 255}) f.push_back(b);
  if (attributes < 0) return f;
  const size_t ext = f.size();
  f.resize(ext + 495, 0);
  f[ext] = 495 & 0xFF, f[ext + 1] = 495 >> 8;
  f[ext + 494] = static_cast<uint8_t>(attributes);
  for (int i = 0; i < 4; ++i) f.push_back(static_cast<uint8_t>(ext >> (8 * i)));
  for (int i = 0; i < 4; ++i) f.push_back(0);
  const char sig[] = "TRUEVISION-XFILE.";
  f.insert(f.end(), sig, sig + sizeof sig);
  return f;
}

TEST(ImageIoFiles, TgaAttributesTypeDecidesAlpha) {
  TIEBitmap b;
  TImageEnIO io(&b);
  auto f = Tga32(0, 8);  // the extension area overrides the descriptor: no alpha
  ASSERT_TRUE(io.LoadFromBuffer(f.data(), f.size()).ok());
  EXPECT_FALSE(b.HasAlphaChannel());
  EXPECT_EQ(b.GetPixels(1, 0), (TRGB{255, 0, 0}));
  f = Tga32(3, 0);  // straight alpha even though the descriptor counts no attribute bits
  ASSERT_TRUE(io.LoadFromBuffer(f.data(), f.size()).ok());
  ASSERT_TRUE(b.HasAlphaChannel());
  EXPECT_EQ(b.GetAlpha(0, 0), 128);
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{64, 64, 64}));
  f = Tga32(4, 8);  // premultiplied: colours divided by alpha
  ASSERT_TRUE(io.LoadFromBuffer(f.data(), f.size()).ok());
  EXPECT_EQ(b.GetPixels(0, 0), (TRGB{127, 127, 127}));
  EXPECT_EQ(b.GetAlpha(1, 0), 255);
  f = Tga32(-1, 8);  // no extension area: the descriptor's 8 alpha bits count
  ASSERT_TRUE(io.LoadFromBuffer(f.data(), f.size()).ok());
  EXPECT_TRUE(b.HasAlphaChannel());
  EXPECT_TRUE(io.ParamsFromBuffer(f.data(), f.size()).ok());
  EXPECT_TRUE(io.Params().HasAlpha);
}

TEST(ImageIoFiles, FormatIsJudgedByContentNotName) {
  testing::TempDir tmp;
  TIEBitmap src = Pattern(16, 16, F::ie24RGB);
  TImageEnIO io(&src);
  std::vector<uint8_t> png;
  ASSERT_TRUE(io.SaveToBuffer(TIOFileType::ioPNG, png).ok());
  iotest::WriteAll(tmp.file("really_png.jpg"), png);
  TIEBitmap b;
  TImageEnIO in(&b);
  ASSERT_TRUE(in.LoadFromFile(tmp.file("really_png.jpg")).ok());
  EXPECT_EQ(in.Params().FileType, TIOFileType::ioPNG);
  EXPECT_EQ(Compare(src, b).max, 0);
  EXPECT_EQ(FileTypeFromExtension("/a/b.TIFF"), TIOFileType::ioTIFF);
  EXPECT_EQ(FileTypeFromExtension("/a.b/noext"), TIOFileType::ioUnknown);
}

// A metafile is never decoded: ImportMetafile hands it to the rasteriser its owner set and
// loads the picture that comes back, at the size asked for.
TEST(ImageIoMetafile, ImportGoesThroughTheOwnersRasteriser) {
  testing::TempDir tmp;
  TIEBitmap bitmap;
  TImageEnIO io(&bitmap);
  EXPECT_FALSE(io.ImportMetafile(tmp.file("drawing.wmf")).ok());  // none set up
  std::vector<std::string> asked;
  io.SetMetafileRasteriser([&](const std::string& metafile, int width, int height) {
    asked.push_back(metafile + " " + std::to_string(width) + "x" + std::to_string(height));
    if (width == 0) return std::string();  // the rasteriser failed
    TIEBitmap drawn = Pattern(width, height, F::ie24RGB);
    TImageEnIO out(&drawn);
    const std::string png = tmp.file("drawn.png");
    return out.SaveToFile(png).ok() ? png : std::string();
  });
  EXPECT_FALSE(io.ImportMetafile(tmp.file("drawing.wmf")).ok());
  EXPECT_TRUE(bitmap.IsEmpty());
  ASSERT_TRUE(io.ImportMetafile(tmp.file("drawing.wmf"), 33, 21).ok());
  EXPECT_EQ(bitmap.Width(), 33);
  EXPECT_EQ(bitmap.Height(), 21);
  ASSERT_EQ(asked.size(), 2u);
  EXPECT_EQ(asked[1], tmp.file("drawing.wmf") + " 33x21");
}

// Metadata that a library finds fault with must not cost a result its picture: an sRGB profile
// that libpng calls "known incorrect" (the one many cameras embed) and an XMP packet that exiv2
// cannot parse (an element given twice) are written on as the source held them.
TEST(ImageIoMetadata, ProfilesAndPacketsLibrariesDislikeAreKept) {
  PICTAVO_REQUIRE_CORPUS(camera, "raster/jpeg/Canon_40D.jpg");
  testing::TempDir tmp;
  TIEBitmap bitmap;
  TImageEnIO io(&bitmap);
  ASSERT_TRUE(io.LoadFromFile(camera).ok());
  ASSERT_FALSE(io.Params().ICC.IsEmpty());
  const TIEICC profile = io.Params().ICC;
  io.Params().XMP_Info =
      "<?xpacket begin='' id='W5M0MpCehiHzreSzNTczkc9d'?><x:xmpmeta xmlns:x='adobe:ns:meta/'>"
      "<rdf:RDF xmlns:rdf='http://www.w3.org/1999/02/22-rdf-syntax-ns#'><rdf:Description "
      "xmlns:photoshop='http://ns.adobe.com/photoshop/1.0/'><photoshop:DateCreated>2015-07-21"
      "</photoshop:DateCreated><photoshop:LegacyIPTCDigest>2C16</photoshop:LegacyIPTCDigest>"
      "<photoshop:LegacyIPTCDigest>2C16</photoshop:LegacyIPTCDigest></rdf:Description>"
      "</rdf:RDF></x:xmpmeta><?xpacket end='w'?>";
  for (const char* ext : {"png", "jpg"}) {
    SCOPED_TRACE(ext);
    const std::string path = tmp.file(std::string("kept.") + ext);
    const pictavo::Status saved = io.SaveToFile(path);
    ASSERT_TRUE(saved.ok()) << saved.message();
    TIEBitmap back;
    TImageEnIO reader(&back);
    ASSERT_TRUE(reader.LoadFromFile(path).ok());
    EXPECT_EQ(back.Width(), bitmap.Width());
    EXPECT_TRUE(reader.Params().ICC == profile);
    EXPECT_NE(reader.Params().XMP_Info.find("2015-07-21"), std::string::npos);
  }
}

}  // namespace
}  // namespace pictavo::imaging
