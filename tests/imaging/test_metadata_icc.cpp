// EXIF, IPTC, XMP and ICC profiles across saves, and the colour-management switch.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "imaging/ie_icc.h"
#include "imaging/ie_io.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

TEST(ImageIoMetadata, ExifIccIptcXmpSurviveJpegToJpegAndTiff) {
  PICTAVO_REQUIRE_CORPUS(src, "special/icc_paris_exif_xmp_icc.jpg");
  testing::TempDir tmp;
  SetColorManagement(false);
  TIEBitmap b;
  TImageEnIO io(&b);
  ASSERT_TRUE(io.LoadFromFile(src).ok());
  const TIOParamsVals orig = io.Params();
  ASSERT_FALSE(orig.ICC.IsEmpty());
  ASSERT_TRUE(orig.EXIF_HasEXIFData);
  ASSERT_FALSE(orig.XMP_Info.empty());
  io.Params().EXIF_XPTitle = "Tïtle";
  io.Params().EXIF_Copyright = "(c) Someone";
  io.Params().IPTC_Info.push_back(TIPTCItem{2, 120, "A caption"});
  for (const char* ext : {"jpg", "tif"}) {
    SCOPED_TRACE(ext);
    const std::string out = tmp.file(std::string("m.") + ext);
    ASSERT_TRUE(io.SaveToFile(out).ok());
    TIEBitmap c;
    TImageEnIO in(&c);
    ASSERT_TRUE(in.LoadFromFile(out).ok());
    EXPECT_EQ(in.Params().ICC, orig.ICC);
    EXPECT_TRUE(in.Params().EXIF_HasEXIFData);
    EXPECT_EQ(in.Params().EXIF_Make, orig.EXIF_Make);
    EXPECT_EQ(in.Params().EXIF_XPTitle, "Tïtle");
    EXPECT_EQ(in.Params().EXIF_Copyright, "(c) Someone");
    ASSERT_FALSE(in.Params().IPTC_Info.empty());
    EXPECT_EQ(in.Params().IPTC_Info.back().value, "A caption");
    EXPECT_NE(in.Params().XMP_Info.find("x:xmpmeta"), std::string::npos);
    if (iotest::HaveProgram("exiftool")) {
      const std::string t =
          iotest::Capture("exiftool -s -XPTitle -Copyright -Caption-Abstract '" + out + "'");
      EXPECT_NE(t.find("Tïtle"), std::string::npos) << t;
      EXPECT_NE(t.find("A caption"), std::string::npos) << t;
    }
  }
  // ResetEXIF, ClearIPTC and an empty profile remove them from the next save.
  io.Params().ResetEXIF();
  io.Params().ClearIPTC();
  io.Params().XMP_Info.clear();
  io.Params().ICC = TIEICC();
  ASSERT_TRUE(io.SaveToFile(tmp.file("bare.jpg")).ok());
  TIEBitmap c;
  TImageEnIO in(&c);
  ASSERT_TRUE(in.LoadFromFile(tmp.file("bare.jpg")).ok());
  EXPECT_FALSE(in.Params().EXIF_HasEXIFData);
  EXPECT_TRUE(in.Params().IPTC_Info.empty());
  EXPECT_TRUE(in.Params().ICC.IsEmpty());
  // Assign copies everything; ResetInfo clears everything.
  TIOParamsVals copy;
  copy.Assign(orig);
  EXPECT_EQ(copy.ICC, orig.ICC);
  EXPECT_EQ(copy.EXIF_Raw, orig.EXIF_Raw);
  copy.ResetInfo();
  EXPECT_TRUE(copy.ICC.IsEmpty());
  EXPECT_FALSE(copy.EXIF_HasEXIFData);
}

// The workers of a job read and write metadata at the same time. exiv2's XMP toolkit is not
// safe for that on its own: without the engine's serialisation, some of these saves failed
// ("metadata cannot be written") and some loads silently lost their XMP.
TEST(ImageIoMetadata, ConcurrentXmpReadsAndWritesAllSucceed) {
  TIEBitmap b;
  ASSERT_TRUE(b.Allocate(16, 12, TIEPixelFormat::ie24RGB).ok());
  b.Fill(0x4080C0);
  TImageEnIO io(&b);
  // A namespace of its own, as editors write (their edit history): exiv2 registers it while
  // decoding, which is where concurrent reads and writes collided.
  std::string xmp =
      "<?xpacket begin=\"\" id=\"W5M0MpCehiHzreSzNTczkc9d\"?><x:xmpmeta xmlns:x=\"adobe:ns:meta/\">"
      "<rdf:RDF xmlns:rdf=\"http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description "
      "rdf:about=\"\" xmlns:dc=\"http://purl.org/dc/elements/1.1/\" "
      "xmlns:xmp=\"http://ns.adobe.com/xap/1.0/\" xmlns:edits=\"urn:pictavo:test:edits/\" "
      "edits:version=\"4\" edits:history_end=\"20\"><dc:subject><rdf:Bag>";
  for (int i = 0; i < 40; ++i) xmp += "<rdf:li>keyword " + std::to_string(i) + "</rdf:li>";
  xmp += "</rdf:Bag></dc:subject><edits:history><rdf:Seq>";
  for (int i = 0; i < 20; ++i)
    xmp += "<rdf:li edits:num=\"" + std::to_string(i) +
           "\" edits:operation=\"step\" edits:enabled=\"1\" edits:params=\"00c0054000\"/>";
  xmp +=
      "</rdf:Seq></edits:history><xmp:CreatorTool>pictavo test</xmp:CreatorTool>"
      "</rdf:Description></rdf:RDF></x:xmpmeta><?xpacket end=\"w\"?>";
  io.Params().XMP_Info = xmp;
  io.Params().EXIF_HasEXIFData = true;
  io.Params().EXIF_Copyright = "(c) Someone";
  std::vector<uint8_t> png;
  ASSERT_TRUE(io.SaveToBuffer(TIOFileType::ioPNG, png).ok());

  std::atomic<int> failures{0};
  std::vector<std::thread> workers;
  for (int t = 0; t < 4; ++t)
    workers.emplace_back([&] {
      for (int i = 0; i < 150; ++i) {
        TIEBitmap picture;
        TImageEnIO one(&picture);
        std::vector<uint8_t> jpeg;
        if (!one.LoadFromBuffer(png.data(), png.size()).ok() ||
            one.Params().XMP_Info.find("keyword 39") == std::string::npos ||
            !one.SaveToBuffer(TIOFileType::ioJPEG, jpeg).ok())
          ++failures;
      }
    });
  for (std::thread& w : workers) w.join();
  EXPECT_EQ(failures.load(), 0);
}

TEST(ImageIoMetadata, NewExifBlockAndThumbnail) {
  testing::TempDir tmp;
  TIEBitmap b = iotest::Pattern(640, 480, TIEPixelFormat::ie24RGB);
  TImageEnIO io(&b);
  io.Params().EXIF_HasEXIFData = true;
  io.Params().EXIF_XPAuthor = "Author";
  io.Params().EXIF_XPKeywords = "one;two";
  ASSERT_TRUE(io.Params().UpdateEXIFThumbnail(b, 160).ok());
  ASSERT_TRUE(io.SaveToFile(tmp.file("t.jpg")).ok());
  TIEBitmap c;
  TImageEnIO in(&c);
  ASSERT_TRUE(in.ParamsFromFile(tmp.file("t.jpg")).ok());
  EXPECT_EQ(in.Params().EXIF_XPAuthor, "Author");
  EXPECT_EQ(in.Params().EXIF_XPKeywords, "one;two");
  ASSERT_FALSE(in.Params().EXIF_Thumbnail.empty());
  TIEBitmap thumb;
  TImageEnIO tio(&thumb);
  ASSERT_TRUE(
      tio.LoadFromBuffer(in.Params().EXIF_Thumbnail.data(), in.Params().EXIF_Thumbnail.size())
          .ok());
  EXPECT_EQ(thumb.Width(), 160);
  EXPECT_EQ(thumb.Height(), 120);
}

TEST(ImageIoIcc, ProfilesAndColourManagement) {
  testing::TempDir tmp;
  TIEICC icc;
  EXPECT_TRUE(icc.IsEmpty());
  EXPECT_FALSE(icc.LoadFromFile(tmp.file("missing.icc")).ok());
  iotest::WriteAll(tmp.file("junk.icc"), {1, 2, 3, 4, 5});
  EXPECT_FALSE(icc.LoadFromFile(tmp.file("junk.icc")).ok());
  const TIEICC srgb = TIEICC::SRGB();
  ASSERT_FALSE(srgb.IsEmpty());
  EXPECT_TRUE(srgb.IsSRGB());
  EXPECT_EQ(srgb.ColorSpace(), TIEColorSpaceClass::RGB);

  // A file tagged with a non-sRGB profile: with management off the pixels stay as stored and
  // the profile is kept; with it on they are converted and the profile dropped.
  PICTAVO_REQUIRE_CORPUS(tagged, "special/icc_paris_exif_xmp_icc.jpg");
  TIEBitmap raw, managed;
  TImageEnIO a(&raw), m(&managed);
  SetColorManagement(false);
  ASSERT_TRUE(a.LoadFromFile(tagged).ok());
  const bool srgb_tagged = a.Params().ICC.IsSRGB();
  EXPECT_FALSE(a.Params().ICC.IsEmpty());
  SetColorManagement(true);
  ASSERT_TRUE(m.LoadFromFile(tagged).ok());
  SetColorManagement(false);
  if (!srgb_tagged) {
    EXPECT_TRUE(m.Params().ICC.IsEmpty());
    EXPECT_GT(iotest::Compare(raw, managed).mean, 0.0);
  }
  // Saving with management on converts into the attached profile; reading back with
  // management on gives the sRGB picture again (within rounding).
  TIEBitmap pic = iotest::Pattern(64, 64, TIEPixelFormat::ie24RGB);
  TImageEnIO s(&pic);
  s.Params().ICC = a.Params().ICC;
  SetColorManagement(true);
  ASSERT_TRUE(s.SaveToFile(tmp.file("cm.png")).ok());
  TIEBitmap back;
  TImageEnIO r(&back);
  ASSERT_TRUE(r.LoadFromFile(tmp.file("cm.png")).ok());
  SetColorManagement(false);
  EXPECT_LT(iotest::Compare(pic, back).mean, 2.0);
}

TEST(ImageIoIcc, WebPCarriesTheProfile) {
  testing::TempDir tmp;
  SetColorManagement(false);
  const TIEICC srgb = TIEICC::SRGB();
  for (bool lossless : {false, true})
    for (bool alpha : {false, true}) {
      SCOPED_TRACE(std::string(lossless ? "lossless" : "lossy") + (alpha ? " with alpha" : ""));
      TIEBitmap b = iotest::Pattern(40, 30, TIEPixelFormat::ie24RGB, alpha);
      TImageEnIO io(&b);
      io.Params().WEBP_Lossless = lossless;
      io.Params().ICC = srgb;
      io.Params().EXIF_HasEXIFData = true;
      io.Params().EXIF_Make = "Maker";
      const std::string out = tmp.file("p.webp");
      ASSERT_TRUE(io.SaveToFile(out).ok());
      TIEBitmap c;
      TImageEnIO in(&c);
      ASSERT_TRUE(in.LoadFromFile(out).ok());
      EXPECT_EQ(in.Params().ICC, srgb);
      EXPECT_EQ(in.Params().EXIF_Make, "Maker");
      EXPECT_EQ(c.HasAlphaChannel(), alpha);
      // Lossless WebP may drop the colour of fully transparent pixels.
      EXPECT_LE(iotest::Compare(b, c).mean, lossless && !alpha ? 0.0 : 16.0);
      if (iotest::HaveProgram("webpinfo")) {
        const std::string info = iotest::Capture("webpinfo '" + out + "' 2>&1");
        EXPECT_NE(info.find("Chunk ICCP"), std::string::npos) << info;
        EXPECT_NE(info.find("No error detected"), std::string::npos) << info;
      }
    }
}

}  // namespace
}  // namespace pictavo::imaging
