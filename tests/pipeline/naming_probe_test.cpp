#include <zlib.h>

#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>

#include "imaging/ie_io.h"
#include "pipeline/naming_probe.h"
#include "platform/fs.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::pipeline {
namespace {

using settings::ImageHeaderProbe;
using settings::ImageSize;
using settings::MaskSource;
using settings::TMainSettings;

std::optional<ImageSize> ReadImageSize(const std::string& path) {
  return NamingProbe().size(path);
}
std::optional<std::string> ReadTiffTag(const std::string& path, int tag) {
  return NamingProbe().tiff_tag(path, tag);
}
std::optional<std::string> ReadExifDateTime(const std::string& path) {
  return NamingProbe().exif_date_time(path);
}

// Builds a TIFF structure: IFD0 at offset 8, an optional EXIF IFD after it, values after that.
class TiffBuilder {
 public:
  explicit TiffBuilder(bool little) : little_(little) {}

  struct Tag {
    uint16_t tag, type;
    uint32_t count;
    std::string data;  // value bytes in file byte order
  };

  std::string U16(uint32_t v) const {
    std::string b(2, '\0');
    b[little_ ? 0 : 1] = static_cast<char>(v & 0xFF);
    b[little_ ? 1 : 0] = static_cast<char>((v >> 8) & 0xFF);
    return b;
  }
  std::string U32(uint32_t v) const {
    return little_ ? U16(v & 0xFFFF) + U16(v >> 16) : U16(v >> 16) + U16(v & 0xFFFF);
  }

  std::string Build(std::vector<Tag> ifd0, const std::vector<Tag>& exif) const {
    const uint32_t ifd0_size =
        2 + 12 * static_cast<uint32_t>(ifd0.size() + (exif.empty() ? 0 : 1)) + 4;
    const uint32_t exif_at = 8 + ifd0_size;
    if (!exif.empty()) ifd0.push_back(Tag{0x8769, 4, 1, U32(exif_at)});
    const uint32_t exif_size = exif.empty() ? 0 : 2 + 12 * static_cast<uint32_t>(exif.size()) + 4;
    uint32_t data_at = exif_at + exif_size;
    std::string data;
    auto directory = [&](const std::vector<Tag>& tags) {
      std::string d = U16(static_cast<uint32_t>(tags.size()));
      for (const Tag& t : tags) {
        d += U16(t.tag) + U16(t.type) + U32(t.count);
        if (t.data.size() <= 4) {
          d += t.data + std::string(4 - t.data.size(), '\0');
        } else {
          d += U32(data_at + static_cast<uint32_t>(data.size()));
          data += t.data;
        }
      }
      return d + U32(0);
    };
    std::string out = (little_ ? std::string("II*\0", 4) : std::string("MM\0*", 4)) + U32(8);
    out += directory(ifd0);
    if (!exif.empty()) out += directory(exif);
    return out + data;
  }

 private:
  bool little_;
};

std::string SampleTiff(bool little) {
  TiffBuilder b(little);
  return b.Build({{256, 3, 1, b.U16(30)},
                  {257, 4, 1, b.U32(20)},
                  {270, 2, 6, std::string("hello\0", 6)},
                  {282, 5, 1, b.U32(300) + b.U32(1)},
                  {283, 5, 1, b.U32(72) + b.U32(7)},
                  {258, 3, 3, b.U16(8) + b.U16(8) + b.U16(8)}},
                 {{0x9003, 2, 20, std::string("2021:02:03 04:05:06\0", 20)}});
}

std::string SampleJpeg() {
  TiffBuilder b(false);
  const std::string exif = std::string("Exif\0\0", 6) +
                           b.Build({{0x0132, 2, 20, std::string("1999:01:01 00:00:00\0", 20)}},
                                   {{0x9003, 2, 20, std::string("2020:12:31 23:59:58\0", 20)}});
  std::string jpeg("\xFF\xD8", 2);
  const size_t len = exif.size() + 2;
  jpeg += std::string("\xFF\xE1", 2) + static_cast<char>(len >> 8) + static_cast<char>(len & 0xFF);
  jpeg += exif;
  // SOF0: precision 8, height 40, width 50, one component.
  jpeg += std::string("\xFF\xC0\x00\x0B\x08\x00\x28\x00\x32\x01\x01\x11\x00", 13);
  jpeg += std::string("\xFF\xDA\x00\x02", 4);
  return jpeg;
}

TEST(ImageHeaderProbe, ReadsSizeTagsAndDatesOfBuiltFiles) {
  pictavo::testing::TempDir dir;
  for (bool little : {true, false}) {
    const std::string tif = dir.file(little ? "le.tif" : "be.tif");
    ASSERT_TRUE(platform::WriteFileAtomic(tif, SampleTiff(little)).ok());
    std::optional<ImageSize> size = ReadImageSize(tif);
    ASSERT_TRUE(size);
    EXPECT_EQ(size->width, 30);
    EXPECT_EQ(size->height, 20);
    EXPECT_EQ(ReadTiffTag(tif, 270), "hello");
    EXPECT_EQ(ReadTiffTag(tif, 282), "300");
    EXPECT_EQ(ReadTiffTag(tif, 283), "72/7");
    EXPECT_EQ(ReadTiffTag(tif, 258), "8 8 8");
    EXPECT_EQ(ReadTiffTag(tif, 0x9003), "2021:02:03 04:05:06");  // found in the EXIF directory
    EXPECT_FALSE(ReadTiffTag(tif, 999));
    EXPECT_EQ(ReadExifDateTime(tif), "2021-02-03 04-05-06");
  }
  const std::string jpg = dir.file("a.jpg");
  ASSERT_TRUE(platform::WriteFileAtomic(jpg, SampleJpeg()).ok());
  std::optional<ImageSize> size = ReadImageSize(jpg);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 50);
  EXPECT_EQ(size->height, 40);
  EXPECT_EQ(ReadExifDateTime(jpg), "2020-12-31 23-59-58");
  EXPECT_FALSE(ReadTiffTag(jpg, 270));  // only TIFF files answer tags
}

TEST(ImageHeaderProbe, TruncatedAndGarbageFilesGiveNothing) {
  pictavo::testing::TempDir dir;
  const std::string path = dir.file("cut.bin");
  for (const std::string& whole : {SampleTiff(true), SampleJpeg()}) {
    for (size_t n = 0; n < whole.size(); ++n) {
      ASSERT_TRUE(platform::WriteFileAtomic(path, whole.substr(0, n)).ok());
      (void)ReadImageSize(path);
      (void)ReadTiffTag(path, 270);
      (void)ReadExifDateTime(path);
    }
  }
  // Offsets pointing far outside the file.
  std::string bad = SampleTiff(true);
  bad[4] = '\xFF';
  bad[7] = '\x7F';
  ASSERT_TRUE(platform::WriteFileAtomic(path, bad).ok());
  EXPECT_FALSE(ReadImageSize(path));
  EXPECT_FALSE(ReadTiffTag(path, 270));
  EXPECT_FALSE(ReadImageSize(dir.file("missing.png")));
}

TEST(ImageHeaderProbe, NamingTokensUseTheGivenProbe) {
  TMainSettings s;
  s.SetDefault();
  MaskSource src;
  src.source_path = "/in/scan.TIFF";
  const ImageHeaderProbe probe{nullptr,
                               [](const std::string&, int tag) {
                                 return std::optional<std::string>("T" + std::to_string(tag));
                               },
                               [](const std::string&) { return std::optional<std::string>("D"); }};
  src.probe = &probe;
  EXPECT_EQ(s.ParseFileMask("scan", "<tif_tag:305>_<exif_date_time>", 1, src), "T305_D");
  src.source_path = "/in/scan.jpg";
  EXPECT_EQ(s.ParseFileMask("scan", "<tif_tag:305>_<exif_date_time>", 1, src), "_D");
  src.probe = nullptr;  // no probe: the tokens know nothing of the file
  EXPECT_EQ(s.ParseFileMask("scan", "<tif_tag:305>_<exif_date_time>", 1, src), "_");
}

TEST(ImageHeaderProbe, CorpusFiles) {
  PICTAVO_REQUIRE_CORPUS(canon, "raster/jpeg/Canon_40D.jpg");
  std::optional<ImageSize> size = ReadImageSize(canon);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 100);
  EXPECT_EQ(size->height, 68);
  EXPECT_EQ(ReadExifDateTime(canon), "2008-05-30 15-56-01");

  PICTAVO_REQUIRE_CORPUS(olympus, "raster/tiff/pc260001.tif");
  EXPECT_EQ(ReadTiffTag(olympus, 270), "OLYMPUS DIGITAL CAMERA");
  size = ReadImageSize(olympus);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 640);
  EXPECT_EQ(size->height, 480);

  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  size = ReadImageSize(png);
  ASSERT_TRUE(size);
  EXPECT_EQ(size->width, 128);
}

// ---- Every format the engine knows gives its size and date to the naming template ----

constexpr int kTall = 52, kNarrow = 30;

std::string ExifBlock(const char* date) {
  TiffBuilder b(true);
  return b.Build({}, {{0x9003, 2, 20, std::string(date, 20)}});
}

std::string Bytes(const std::vector<uint8_t>& v) {
  return std::string(v.begin(), v.end());
}

// A portrait picture as `type`, with the EXIF block in its parameters when `exif` is set.
std::string Encoded(imaging::TIOFileType type, const std::string& exif = {}) {
  imaging::TIEBitmap bmp;
  EXPECT_TRUE(bmp.Allocate(kNarrow, kTall, imaging::TIEPixelFormat::ie24RGB).ok());
  imaging::TImageEnIO io(&bmp);
  if (!exif.empty()) {
    io.Params().EXIF_HasEXIFData = true;
    io.Params().EXIF_Raw.assign(exif.begin(), exif.end());
  }
  std::vector<uint8_t> out;
  EXPECT_TRUE(io.SaveToBuffer(type, out).ok());
  return Bytes(out);
}

std::string Be32(uint32_t v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
          static_cast<char>(v)};
}
std::string Le16(uint32_t v) {
  return {static_cast<char>(v & 0xFF), static_cast<char>(v >> 8)};
}

// A PNG with an eXIf chunk put in before IEND.
std::string PngWithExifChunk(const std::string& exif) {
  std::string png = Encoded(imaging::TIOFileType::ioPNG);
  const std::string body = "eXIf" + exif;
  const uLong crc = crc32(0, reinterpret_cast<const Bytef*>(body.data()), body.size());
  png.insert(png.size() - 12,
             Be32(static_cast<uint32_t>(exif.size())) + body + Be32(static_cast<uint32_t>(crc)));
  return png;
}

// An 8-bit RGB PSD, raw pixels, whose image resources hold the EXIF block (resource 0x0422).
std::string PsdWithExif(const std::string& exif) {
  std::string psd = std::string("8BPS\0\1", 6) + std::string(6, '\0') + std::string("\0\3", 2);
  psd += Be32(kTall) + Be32(kNarrow) + std::string("\0\x08\0\x03", 4);
  psd += Be32(0);  // colour mode data
  std::string resource = std::string("8BIM\x04\x22", 6) + std::string(2, '\0') +
                         Be32(static_cast<uint32_t>(exif.size())) + exif;
  if (resource.size() % 2) resource += '\0';
  psd += Be32(static_cast<uint32_t>(resource.size())) + resource;
  psd += Be32(0);               // no layers
  psd += std::string(2, '\0');  // raw image data
  psd += std::string(size_t{3} * kTall * kNarrow, '\x80');
  return psd;
}

// Our TGA with a TGA 2.0 extension area that carries a date stamp, and the footer.
std::string TgaWithStamp(int year, int month, int day, int hour, int minute, int second) {
  std::string tga = Encoded(imaging::TIOFileType::ioTGA);
  const uint32_t ext = static_cast<uint32_t>(tga.size());
  std::string area = Le16(495) + std::string(41 + 324, '\0');
  for (int v : {month, day, year, hour, minute, second}) area += Le16(v);
  area.resize(495, '\0');
  area[494] = 0;  // no alpha
  tga += area;
  tga += std::string{static_cast<char>(ext), static_cast<char>(ext >> 8),
                     static_cast<char>(ext >> 16), static_cast<char>(ext >> 24)};
  tga += std::string(4, '\0') + std::string("TRUEVISION-XFILE.\0", 18);
  return tga;
}

class NamingOfFormats : public ::testing::Test {
 protected:
  std::string Name(const std::string& file, const std::string& bytes) {
    const std::string path = dir_.file(file);
    EXPECT_TRUE(platform::WriteFileAtomic(path, bytes).ok());
    return NameOf(path);
  }
  std::string NameOf(const std::string& path) {
    TMainSettings s;
    s.SetDefault();
    s.main.dest_path = "/out";
    s.main.dest_ext = "png";
    s.file_name.mask = "<orientation>_<exif_date_time>";
    settings::DestRequest r;
    r.source_path = path;
    r.probe = &NamingProbe();
    return s.create_dest_filename(r).result;
  }
  pictavo::testing::TempDir dir_;
};

TEST_F(NamingOfFormats, PortraitAndExifDateOfEveryContainer) {
  const std::string exif = ExifBlock("2022:07:08 09:10:11\0");
  const std::string dated = "/out/portrait_2022-07-08 09-10-11.png";
  EXPECT_EQ(Name("chunk.png", PngWithExifChunk(exif)), dated);
  // exiv2 writes PNG EXIF as a text chunk, which only exiv2 reads back.
  EXPECT_EQ(Name("text.png", Encoded(imaging::TIOFileType::ioPNG, exif)), dated);
  EXPECT_EQ(Name("a.webp", Encoded(imaging::TIOFileType::ioWEBP, exif)), dated);
  EXPECT_EQ(Name("a.jpg", Encoded(imaging::TIOFileType::ioJPEG, exif)), dated);
  EXPECT_EQ(Name("a.tif", Encoded(imaging::TIOFileType::ioTIFF, exif)), dated);
  EXPECT_EQ(Name("a.psd", PsdWithExif(exif)), dated);
  EXPECT_EQ(Name("a.tga", TgaWithStamp(2022, 7, 8, 9, 10, 11)), dated);
  // JP2 keeps EXIF in a 'uuid' box of its own id, here after the code stream.
  const std::string uuid = "uuid" + std::string("JpgTiffExif->JP2") + exif;
  EXPECT_EQ(Name("a.jp2", Encoded(imaging::TIOFileType::ioJP2) +
                              Be32(static_cast<uint32_t>(4 + uuid.size())) + uuid),
            dated);
  // Formats without EXIF still tell their shape.
  for (imaging::TIOFileType type :
       {imaging::TIOFileType::ioJP2, imaging::TIOFileType::ioJ2K, imaging::TIOFileType::ioGIF,
        imaging::TIOFileType::ioBMP, imaging::TIOFileType::ioQOI, imaging::TIOFileType::ioPCX,
        imaging::TIOFileType::ioPPM}) {
    SCOPED_TRACE(imaging::FileTypeName(type));
    EXPECT_EQ(Name("plain", Encoded(type)), "/out/portrait_.png");
  }
  // A stamp that is no date gives none.
  EXPECT_EQ(Name("b.tga", TgaWithStamp(2022, 13, 8, 9, 10, 11)), "/out/portrait_.png");
}

TEST_F(NamingOfFormats, HandBuiltFilesAreWhatTheyClaim) {
  // The PSD and the stamped TGA load in the engine as the pictures they describe.
  for (const auto& [file, bytes] :
       {std::pair{"a.psd", PsdWithExif(ExifBlock("2022:07:08 09:10:11\0"))},
        std::pair{"a.tga", TgaWithStamp(2022, 7, 8, 9, 10, 11)}}) {
    SCOPED_TRACE(file);
    imaging::TIEBitmap back;
    imaging::TImageEnIO io(&back);
    ASSERT_TRUE(
        io.LoadFromBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).ok());
    EXPECT_EQ(back.Width(), kNarrow);
    EXPECT_EQ(back.Height(), kTall);
  }
}

TEST_F(NamingOfFormats, HeicFromAPortraitJpegWithExif) {
  if (std::system("command -v heif-enc >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "heif-enc is missing (Debian package libheif-examples)";
  const std::string jpg = dir_.file("src.jpg"), heic = dir_.file("out.heic");
  ASSERT_TRUE(platform::WriteFileAtomic(
                  jpg, Encoded(imaging::TIOFileType::ioJPEG, ExifBlock("2019:01:02 03:04:05\0")))
                  .ok());
  ASSERT_EQ(std::system(("heif-enc -q 50 -o '" + heic + "' '" + jpg + "' >/dev/null 2>&1").c_str()),
            0);
  EXPECT_EQ(NameOf(heic), "/out/portrait_2019-01-02 03-04-05.png");
}

TEST_F(NamingOfFormats, CorpusHeifAndAvifAreTurnedByTheirContainer) {
  PICTAVO_REQUIRE_CORPUS(heic, "raster/heic/fixture-heic.heic");
  EXPECT_EQ(NameOf(heic), "/out/portrait_2017-06-06 17-00-02.png");
  PICTAVO_REQUIRE_CORPUS(avif, "raster/avif/abc_color_irot_alpha_irot.avif");
  EXPECT_EQ(NameOf(avif), "/out/portrait_.png");
  PICTAVO_REQUIRE_CORPUS(webp, "raster/webp/flower.webp");
  EXPECT_EQ(NameOf(webp), "/out/landscape_2003-12-14 12-01-44.png");
}

TEST_F(NamingOfFormats, OrientationReadsTheSourceHeader) {
  auto png_header = [](uint32_t w, uint32_t h) {
    return std::string("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16) + Be32(w) + Be32(h) +
           std::string("\x08\x02\0\0\0", 5);
  };
  EXPECT_EQ(Name("sq.png", png_header(100, 100)), "/out/landscape_.png");
  EXPECT_EQ(Name("tall.png", png_header(10, 30)), "/out/portrait_.png");
}

}  // namespace
}  // namespace pictavo::pipeline
