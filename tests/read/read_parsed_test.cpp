// The formats the reader decodes itself from their public descriptions: Roku BIF frame indexes
// and GIMP patterns. The files are laid out here byte by byte as the descriptions give them; the
// frames of the BIF are real JPEGs of the corpus, so the result is compared with what the engine
// reads from those JPEGs directly.
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "read/parsed_formats.h"
#include "read/read_routes.h"
#include "read/zub_read.h"
#include "settings/main_settings.h"
#include "tests/read/reader_fixture.h"
#include "tests/support/test_paths.h"

namespace pictavo::reader {
namespace {
namespace fs = std::filesystem;

void PutLe32(std::string& b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b += static_cast<char>((v >> (8 * i)) & 0xFF);
}
void PutBe32(std::string& b, uint32_t v) {
  for (int i = 3; i >= 0; --i) b += static_cast<char>((v >> (8 * i)) & 0xFF);
}

class ParsedRead : public ReaderTest {
 protected:
  std::string Write(const std::string& name, const std::string& bytes) {
    const std::string path = dir_.file(name);
    EXPECT_TRUE(platform::WriteFileAtomic(path, bytes).ok());
    return path;
  }
};

std::string Bif(const std::vector<std::string>& frames) {
  std::string b =
      "\x89"
      "BIF\r\n\x1a\n";
  PutLe32(b, 0);  // version
  PutLe32(b, static_cast<uint32_t>(frames.size()));
  PutLe32(b, 10000);  // ten seconds between frames
  b.resize(64, '\0');
  uint32_t offset = 64 + 8 * static_cast<uint32_t>(frames.size() + 1);
  for (size_t i = 0; i < frames.size(); ++i) {
    PutLe32(b, static_cast<uint32_t>(i));
    PutLe32(b, offset);
    offset += static_cast<uint32_t>(frames[i].size());
  }
  PutLe32(b, 0xFFFFFFFF);
  PutLe32(b, offset);
  for (const std::string& f : frames) b += f;
  return b;
}

TEST_F(ParsedRead, BifFramesBecomePages) {
  PICTAVO_REQUIRE_CORPUS(a, "raster/jpeg/hopper_gray.jpg");
  PICTAVO_REQUIRE_CORPUS(b, "raster/jpeg/flower.jpg");
  const auto ja = platform::ReadFileBytes(a), jb = platform::ReadFileBytes(b);
  ASSERT_TRUE(ja && jb);
  r_.src_file = Write("film.bif", Bif({*ja, *jb}));
  r_.out_file = dir_.file("out.tif");
  ASSERT_EQ(bif_read(r_), 0);

  imaging::TIEBitmap want, got;
  imaging::TImageEnIO want_io(&want), got_io(&got);
  ASSERT_TRUE(got_io.ParamsFromFile(r_.out_file).ok());
  EXPECT_EQ(got_io.Params().ImageCount, 2);
  got_io.Params().ImageIndex = 1;
  ASSERT_TRUE(got_io.LoadFromFile(r_.out_file).ok());
  ASSERT_TRUE(want_io.LoadFromFile(b).ok());
  ASSERT_EQ(got.Width(), want.Width());
  ASSERT_EQ(got.Height(), want.Height());
  const imaging::TRGB pw = want.GetPixels(want.Width() / 2, want.Height() / 3);
  const imaging::TRGB pg = got.GetPixels(got.Width() / 2, got.Height() / 3);
  EXPECT_EQ(pw.r, pg.r);
  EXPECT_EQ(pw.g, pg.g);
  EXPECT_EQ(pw.b, pg.b);
  EXPECT_TRUE(fs::is_empty(dir_.path() / "temp"));

  // An index that points past the end of the file, or a wrong signature, reads nothing.
  std::string broken = Bif({*ja});
  broken.resize(broken.size() / 2);
  r_.src_file = Write("broken.bif", broken);
  r_.out_file = dir_.file("broken.tif");
  EXPECT_NE(bif_read(r_), 0);
  r_.src_file = Write("other.bif", std::string(200, 'x'));
  EXPECT_NE(bif_read(r_), 0);
  EXPECT_FALSE(fs::exists(r_.out_file));
  EXPECT_TRUE(fs::is_empty(dir_.path() / "temp"));
}

std::string Pattern(uint32_t w, uint32_t h, uint32_t depth, const std::string& pixels) {
  const std::string name = "Stripes";
  std::string b;
  PutBe32(b, 24 + static_cast<uint32_t>(name.size()) + 1);
  PutBe32(b, 1);
  PutBe32(b, w);
  PutBe32(b, h);
  PutBe32(b, depth);
  b += "GPAT" + name + '\0';
  return b + pixels;
}

// Every move bit of a stitch record, then a jump and a colour change: the design's extent sets
// the picture's size (0.1 mm a pixel, 2 mm margins), stitches are drawn in their block's thread
// colour, jumps are not drawn.
TEST(DstDesign, StitchMovesJumpsAndColours) {
  std::string dst = "LA:test" + std::string(505, ' ');
  auto record = [&](uint8_t b0, uint8_t b1, uint8_t b2) {
    dst += static_cast<char>(b0), dst += static_cast<char>(b1), dst += static_cast<char>(b2 | 3);
  };
  record(0x01 | 0x04, 0x01 | 0x04, 0x04);  // x + 1 + 9 + 3 + 27 + 81 = 121
  record(0x80 | 0x20, 0x80 | 0x20, 0x20);  // y + 121
  record(0x02 | 0x08, 0x02 | 0x08, 0x08);  // x - 121
  record(0x00, 0x00, 0x80);                // a jump that does not move
  record(0x00, 0x00, 0xC0);                // a colour change
  record(0x40 | 0x10, 0x40 | 0x10, 0x10);  // y - 121 in the second colour
  dst += std::string("\0\0\xF3", 3);
  record(0x01, 0, 0);  // after the end of the design: ignored
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(parsed::DrawDst(dst, bmp));
  EXPECT_EQ(bmp.Width(), 121 + 40);
  EXPECT_EQ(bmp.Height(), 121 + 40);
  // Lines join the stitches' end points (Y up): the right and top edges in black, the left one
  // in the second thread's red; the bottom edge is the first record's move, from the start.
  EXPECT_EQ(bmp.GetPixels_ie24RGB(141, 80), (imaging::TRGB{0, 0, 0}));
  EXPECT_EQ(bmp.GetPixels_ie24RGB(80, 20), (imaging::TRGB{0, 0, 0}));
  EXPECT_EQ(bmp.GetPixels_ie24RGB(20, 80), (imaging::TRGB{200, 30, 30}));
  EXPECT_EQ(bmp.GetPixels_ie24RGB(80, 141), (imaging::TRGB{255, 255, 255}));
  EXPECT_EQ(bmp.GetPixels_ie24RGB(5, 5), (imaging::TRGB{255, 255, 255}));
  EXPECT_FALSE(parsed::DrawDst(dst.substr(0, 514), bmp));
  EXPECT_FALSE(parsed::DrawDst("XX" + dst.substr(2), bmp));
}

TEST_F(ParsedRead, GimpPatternsInEveryDepth) {
  // 2 x 2 RGBA: red opaque, green half transparent / blue, white transparent.
  const std::string rgba(
      "\xFF\x00\x00\xFF"
      "\x00\xFF\x00\x80"
      "\x00\x00\xFF\xFF"
      "\xFF\xFF\xFF\x00",
      16);
  r_.src_file = Write("stripes.pat", Pattern(2, 2, 4, rgba));
  r_.out_file = dir_.file("out.png");
  ASSERT_EQ(new_ppp_read(r_), 0);
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  ASSERT_TRUE(io.LoadFromFile(r_.out_file).ok());
  ASSERT_EQ(bmp.Width(), 2);
  ASSERT_EQ(bmp.Height(), 2);
  EXPECT_EQ(bmp.GetPixels(0, 0).r, 255);
  EXPECT_EQ(bmp.GetPixels(0, 0).g, 0);
  EXPECT_EQ(bmp.GetPixels(0, 1).b, 255);
  EXPECT_EQ(bmp.GetAlpha(1, 0), 0x80);
  EXPECT_EQ(bmp.GetAlpha(1, 1), 0);

  // Grey, 3 x 1.
  r_.src_file = Write("grey.pat", Pattern(3, 1, 1, std::string("\x00\x80\xFF", 3)));
  r_.out_file = dir_.file("grey.png");
  ASSERT_EQ(new_ppp_read(r_), 0);
  ASSERT_TRUE(io.LoadFromFile(r_.out_file).ok());
  ASSERT_EQ(bmp.Width(), 3);
  EXPECT_EQ(bmp.GetPixels(1, 0).g, 0x80);
  EXPECT_EQ(bmp.GetPixels(2, 0).r, 0xFF);

  // Pixels missing, or a depth that does not exist: nothing is written.
  r_.out_file = dir_.file("bad.png");
  r_.src_file = Write("short.pat", Pattern(4, 4, 3, std::string(10, '\0')));
  EXPECT_NE(new_ppp_read(r_), 0);
  r_.src_file = Write("depth.pat", Pattern(1, 1, 5, std::string(5, '\0')));
  EXPECT_NE(new_ppp_read(r_), 0);
  EXPECT_FALSE(fs::exists(r_.out_file));
}

}  // namespace
}  // namespace pictavo::reader
