// The PPM and PGM writers: byte for byte what they wrote before they went through the engine's
// PNM codec, whatever layout the picture has, and grey by rounded Rec. 601 thousandths (not the
// engine's faster fixed-point grey, which differs by one on pure colours).
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "imaging/ie_bitmap.h"
#include "platform/fs.h"
#include "tests/support/test_paths.h"
#include "write/writers_own.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using imaging::TIEBitmap;
using imaging::TIEPixelFormat;

class OwnWriters : public ::testing::Test {
 protected:
  std::string Written(bool ppm, const TIEBitmap& bmp) {
    const std::string path = (folder_ / (ppm ? "out.ppm" : "out.pgm")).string();
    EXPECT_TRUE((ppm ? WritePPM(bmp, path) : WritePGM(bmp, path)).ok());
    return platform::ReadFileBytes(path).value_or(std::string());
  }
  pictavo::testing::TempDir dir_;
  fs::path folder_ = dir_.path();
};

// A picture whose samples run through the whole range in every channel.
TIEBitmap Ramp(TIEPixelFormat format, int w, int h) {
  TIEBitmap bmp;
  EXPECT_TRUE(bmp.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x)
      bmp.SetPixels_ie24RGB(x, y,
                            {static_cast<uint8_t>((x * 37 + y * 11) & 0xFF),
                             static_cast<uint8_t>((x * 5 + y * 53) & 0xFF),
                             static_cast<uint8_t>((x * 91 + y * 7) & 0xFF)});
  EXPECT_TRUE(bmp.ConvertTo(format).ok());
  return bmp;
}

TEST_F(OwnWriters, PureColoursGreyByRoundedThousandths) {
  TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(4, 1, TIEPixelFormat::ie24RGB).ok());
  bmp.SetPixels_ie24RGB(0, 0, {255, 0, 0});
  bmp.SetPixels_ie24RGB(1, 0, {0, 255, 0});
  bmp.SetPixels_ie24RGB(2, 0, {0, 0, 255});
  bmp.SetPixels_ie24RGB(3, 0, {128, 128, 128});
  EXPECT_EQ(Written(false, bmp), std::string("P5\n4 1\n255\n") + "\x4c\x96\x1d\x80");
  EXPECT_EQ(Written(true, bmp), std::string("P6\n4 1\n255\n") +
                                    std::string("\xff\0\0\0\xff\0\0\0\xff\x80\x80\x80", 12));
}

TEST_F(OwnWriters, EveryLayoutAsEightBitSamples) {
  for (TIEPixelFormat format :
       {TIEPixelFormat::ie24RGB, TIEPixelFormat::ie8g, TIEPixelFormat::ie48RGB,
        TIEPixelFormat::ie16g, TIEPixelFormat::ie1g, TIEPixelFormat::ieCMYK}) {
    SCOPED_TRACE(static_cast<int>(format));
    TIEBitmap bmp = Ramp(format, 13, 7);
    std::string ppm = "P6\n13 7\n255\n", pgm = "P5\n13 7\n255\n";
    for (int y = 0; y < 7; ++y)
      for (int x = 0; x < 13; ++x) {
        const imaging::TRGB c = bmp.GetPixels(x, y);
        ppm += {static_cast<char>(c.r), static_cast<char>(c.g), static_cast<char>(c.b)};
        pgm += static_cast<char>((299 * c.r + 587 * c.g + 114 * c.b + 500) / 1000);
      }
    EXPECT_EQ(Written(true, bmp), ppm);
    EXPECT_EQ(Written(false, bmp), pgm);
  }
}

TEST_F(OwnWriters, EmptyPictureRefusedAndNothingWritten) {
  TIEBitmap empty;
  const std::string path = (folder_ / "none.ppm").string();
  EXPECT_FALSE(WritePPM(empty, path).ok());
  EXPECT_FALSE(WritePGM(empty, path).ok());
  EXPECT_FALSE(fs::exists(path));
}

}  // namespace
}  // namespace pictavo::writer
