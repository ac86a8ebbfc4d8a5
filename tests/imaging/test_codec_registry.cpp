// The codec registry as a table: every row is walked, so a new row is covered without new test
// code. Extensions find their row, encoders write files their own magic test and header probe
// recognise, and the sniff order's deliberate quirks hold.
#include <set>

#include <gtest/gtest.h>

#include "imaging/codec_registry.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_io.h"
#include "platform/text_encoding.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

using iotest::Pattern;

// A portrait picture, so a probe that swaps width and height shows.
constexpr int kWidth = 30, kHeight = 52;

std::vector<uint8_t> Encoded(const CodecRow& row) {
  TIEBitmap bmp = Pattern(kWidth, kHeight, TIEPixelFormat::ie24RGB);
  TImageEnIO io(&bmp);
  // The icon encoder writes a cursor only when the parameters say so.
  io.Params().FileType = row.type;
  std::vector<uint8_t> out;
  const pictavo::Status st = io.SaveToBuffer(row.type, out);
  EXPECT_TRUE(st.ok()) << row.name << ": " << st.message();
  return out;
}

TEST(CodecRegistry, EveryExtensionFindsItsRowAndNoOther) {
  std::set<std::string_view> seen;
  for (const CodecRow& row : CodecRows()) {
    SCOPED_TRACE(row.name);
    for (std::string_view ext : row.extensions) {
      EXPECT_TRUE(seen.insert(ext).second) << ext << " is listed twice";
      const std::string upper = "/in/A." + platform::AsciiUpper(std::string(ext));
      EXPECT_EQ(RowForExtension(upper), &row) << ext;
      // Formats read only through tools are no save target of the engine.
      EXPECT_EQ(FileTypeFromExtension(upper), row.type) << ext;
    }
    if (row.type != TIOFileType::ioUnknown) EXPECT_EQ(RowForType(row.type), &row);
  }
  EXPECT_EQ(RowForExtension("/in.png/noext"), nullptr);
  EXPECT_EQ(RowForType(TIOFileType::ioUnknown), nullptr);
}

TEST(CodecRegistry, EveryEncoderWritesWhatItsRowRecognisesAndProbes) {
  int written = 0;
  for (const CodecRow& row : CodecRows()) {
    if (!row.encode) continue;
    SCOPED_TRACE(row.name);
    const std::vector<uint8_t> bytes = Encoded(row);
    ASSERT_FALSE(bytes.empty());
    EXPECT_TRUE(row.magic(bytes.data(), bytes.size()));
    EXPECT_EQ(RowForBytes(bytes.data(), bytes.size()), &row);
    EXPECT_EQ(SniffFormat(bytes.data(), bytes.size()), row.type);
    ASSERT_NE(row.probe, nullptr) << "every raster row probes its header";
    const std::optional<HeaderFacts> facts = ProbeHeader(bytes.data(), bytes.size());
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->width, kWidth);
    EXPECT_EQ(facts->height, kHeight);
    ++written;
  }
  EXPECT_GE(written, 16);
}

// The saver converts a picture to a layout its row takes before encoding. The PNG and TGA
// encoders, called directly with another layout, read past their rows; they refuse it now.
// (Others convert what they are given, or were never handed such a picture.)
TEST(CodecRegistry, PngAndTgaEncodersRefuseLayoutsTheirRowDoesNotTake) {
  int refused = 0;
  for (const CodecRow& row : CodecRows()) {
    if (row.type != TIOFileType::ioPNG && row.type != TIOFileType::ioTGA) continue;
    for (TIEPixelFormat fmt :
         {TIEPixelFormat::ie1g, TIEPixelFormat::ie8g, TIEPixelFormat::ie8p, TIEPixelFormat::ie16g,
          TIEPixelFormat::ie24RGB, TIEPixelFormat::ie48RGB, TIEPixelFormat::ieCMYK}) {
      if (row.layouts & codecs::LayoutBit(fmt)) continue;
      SCOPED_TRACE(std::string(row.name) + " layout " + std::to_string(static_cast<int>(fmt)));
      TIEBitmap bmp;
      ASSERT_TRUE(bmp.Allocate(kWidth, kHeight, fmt).ok());
      TIOParamsVals params;
      params.FileType = row.type;
      std::vector<uint8_t> out;
      EXPECT_FALSE(row.encode(bmp, params, out).ok());
      ++refused;
    }
  }
  EXPECT_EQ(refused, 1 + 4);  // PNG: CMYK; TGA: 1-bit, 16-bit grey, 48-bit RGB, CMYK
}

TEST(CodecRegistry, DamagedHeadersGiveNothingAndNeverCrash) {
  for (const CodecRow& row : CodecRows()) {
    if (!row.encode) continue;
    SCOPED_TRACE(row.name);
    std::vector<uint8_t> bytes = Encoded(row);
    // Every cut inside the first part of the file, where the headers are.
    for (size_t n = 0; n < std::min<size_t>(bytes.size(), 200); ++n)
      (void)ProbeHeader(bytes.data(), n);
    // A header cut before its size fields is unreadable.
    EXPECT_FALSE(ProbeHeader(bytes.data(), std::min<size_t>(bytes.size(), 5)));
  }
}

TEST(CodecRegistry, SniffOrderKeepsItsQuirks) {
  // A PCX header whose bytes also make a plausible TGA header: the PCX row comes first.
  std::vector<uint8_t> pcx(128, 0);
  // (PCX version 1, RLE, 8 bits; as TGA: a colour-mapped picture of 4 x 4 with 24-bit entries.)
  pcx[0] = 0x0A, pcx[1] = 1, pcx[2] = 1, pcx[3] = 8, pcx[7] = 24;
  pcx[12] = 4, pcx[14] = 4, pcx[16] = 8;
  EXPECT_TRUE(RowForType(TIOFileType::ioTGA)->magic(pcx.data(), pcx.size()));
  EXPECT_EQ(SniffFormat(pcx.data(), pcx.size()), TIOFileType::ioPCX);
  // TGA, which has no signature, is tried last.
  EXPECT_EQ(CodecRows().back().type, TIOFileType::ioTGA);
  // An AVIF file that also lists the generic HEIF brand is AVIF.
  const uint8_t ftyp[] = {0, 0, 0, 24, 'f', 't', 'y', 'p', 'm', 'i', 'f', '1',
                          0, 0, 0, 0,  'm', 'i', 'f', '1', 'a', 'v', 'i', 'f'};
  const CodecRow* row = RowForBytes(ftyp, sizeof ftyp);
  ASSERT_NE(row, nullptr);
  EXPECT_STREQ(row->name, "AVIF");
  // Formats decoded only through tools sniff as nothing the engine loads.
  EXPECT_EQ(SniffFormat(ftyp, sizeof ftyp), TIOFileType::ioUnknown);
}

TEST(CodecRegistry, ProbesOfFormatsWithoutAnEncoderReadCorpusFiles) {
  const struct {
    const char* file;
    int width, height;
    const char* date;
    int orientation;
  } cases[] = {
      {"raster/psd/2layers.psd", 101, 55, "", 0},
      {"raster/psd/hopper.psd", 128, 128, "2017:02:27 16:31:57", 1},  // DateTime only
      {"raster/jpeg2000/world.jp2", 800, 400, "", 0},
      {"raster/jpeg2000/16bit.cropped.j2k", 64, 64, "", 0},
      {"raster/webp/flower.webp", 480, 360, "2003:12:14 12:01:44", 1},
      {"raster/tga/200x32_rgba_tl_rle.tga", 200, 32, "", 0},
      {"raster/jpeg/Canon_40D.jpg", 100, 68, "2008:05:30 15:56:01", 1},
      // 'irot' turns these by a quarter: the decoded pictures are portraits. The EXIF
      // orientation is what the camera wrote.
      {"raster/heic/fixture-heic.heic", 3024, 4032, "2017:06:06 17:00:02", 6},
      {"raster/avif/abc_color_irot_alpha_irot.avif", 256, 512, "", 0},
      {"raster/heic/RGB_10__29x100.heif", 29, 100, "", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.file);
    const std::string path = testing::CorpusFile(c.file);
    if (path.empty()) GTEST_SKIP() << "shared corpus file " << c.file << " is absent";
    const std::optional<HeaderFacts> facts = ProbeHeaderFile(path);
    ASSERT_TRUE(facts);
    EXPECT_EQ(facts->width, c.width);
    EXPECT_EQ(facts->height, c.height);
    EXPECT_EQ(facts->date_time, c.date);
    EXPECT_EQ(facts->orientation, c.orientation);
  }
}

}  // namespace
}  // namespace pictavo::imaging
