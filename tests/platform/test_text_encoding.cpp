#include <gtest/gtest.h>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "tests/support/test_paths.h"

namespace pictavo::platform {
namespace {

// "Größe €" plus U+1F600, which needs a surrogate pair in UTF-16.
const std::string kSample =
    "Gr\xC3\xB6\xC3\x9F"
    "e \xE2\x82\xAC \xF0\x9F\x98\x80";

std::string Utf16BE(const std::string& le_with_bom) {
  std::string out = "\xFE\xFF";
  for (size_t i = 2; i + 1 < le_with_bom.size(); i += 2) {
    out += le_with_bom[i + 1];
    out += le_with_bom[i];
  }
  return out;
}

TEST(TextEncoding, DecodesEveryByteOrderMarkToTheSameText) {
  std::string le = EncodeUtf16LEWithBom(kSample);
  ASSERT_EQ(le.substr(0, 2), "\xFF\xFE");
  // 7 BMP characters + 1 space... count code units: G r ö ß e ' ' € ' ' + surrogate pair = 10.
  EXPECT_EQ(le.size(), 2u + 10u * 2u);
  EXPECT_EQ(DecodeText(le), kSample);
  EXPECT_EQ(DecodeText(Utf16BE(le)), kSample);
  EXPECT_EQ(DecodeText("\xEF\xBB\xBF" + kSample), kSample);
  EXPECT_EQ(DecodeText(kSample), kSample);
  EXPECT_EQ(DetectEncoding(le), TextEncoding::kUtf16LE);
  EXPECT_EQ(DetectEncoding(kSample), TextEncoding::kUtf8);
}

TEST(TextEncoding, DamagedInputIsReplacedNotFatal) {
  // A lone high surrogate, then an odd trailing byte.
  std::string le = std::string("\xFF\xFE", 2) + std::string(
                                                    "\x3D\xD8"
                                                    "A\0"
                                                    "x",
                                                    5);
  EXPECT_EQ(DecodeText(le),
            "\xEF\xBF\xBD"
            "A");
  EXPECT_EQ(DecodeText("a\xC3"), "a\xEF\xBF\xBD");
  EXPECT_EQ(DecodeText("\xFF\xFE"), "");
}

TEST(TextEncoding, CaseHelpersFoldAsciiOnly) {
  EXPECT_TRUE(EqualsNoCase("PDF_Write", "pdf_WRITE"));
  EXPECT_FALSE(EqualsNoCase("PDF_Write", "PDF_Writ"));
  EXPECT_EQ(AsciiLower("JPG.Tif"), "jpg.tif");
  EXPECT_EQ(AsciiUpper("jpg"), "JPG");
}

TEST(TextEncoding, WriteAndReadBackUtf16File) {
  testing::TempDir dir;
  std::string path = dir.file("a.cfg");
  ASSERT_TRUE(WriteTextFileUtf16(path, "[Main]\r\nDest_ext=" + kSample + "\r\n").ok());
  auto bytes = ReadFileBytes(path);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->substr(0, 2), "\xFF\xFE");
  EXPECT_EQ(*ReadTextFile(path), "[Main]\r\nDest_ext=" + kSample + "\r\n");
  EXPECT_FALSE(ReadTextFile(dir.file("missing.cfg")));
}

}  // namespace
}  // namespace pictavo::platform
