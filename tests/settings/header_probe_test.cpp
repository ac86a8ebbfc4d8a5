#include <gtest/gtest.h>

#include "platform/fs.h"
#include "settings/image_header_probe.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

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

TEST(ImageHeaderProbe, NamingTokensUseTheInstalledProbe) {
  TMainSettings s;
  s.SetDefault();
  MaskSource src;
  src.source_path = "/in/scan.TIFF";
  SetImageHeaderProbe(
      ImageHeaderProbe{nullptr,
                       [](const std::string&, int tag) {
                         return std::optional<std::string>("T" + std::to_string(tag));
                       },
                       [](const std::string&) { return std::optional<std::string>("D"); }});
  EXPECT_EQ(s.ParseFileMask("scan", "<tif_tag:305>_<exif_date_time>", 1, src), "T305_D");
  src.source_path = "/in/scan.jpg";
  EXPECT_EQ(s.ParseFileMask("scan", "<tif_tag:305>_<exif_date_time>", 1, src), "_D");
  SetImageHeaderProbe(BuiltInImageHeaderProbe());
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

}  // namespace
}  // namespace pictavo::settings
