#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <random>

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

// A settings value holding "\xF5\xA4\xBB\xA7" (the shape of a 4-byte sequence, but above
// U+10FFFF) passed as UTF-8 and was written to the UTF-16 file as a stray surrogate, so it read
// back as other text. Found by fuzz_settings.
TEST(TextEncoding, Utf8ThatUtf16CannotHoldIsReplacedBeforeWriting) {
  const std::string r = "\xEF\xBF\xBD";  // U+FFFD, one per byte of a bad sequence
  for (const auto& [bad, replaced] : std::vector<std::pair<std::string, std::string>>{
           {"a\xF5\xA4\xBB\xA7", "a" + r + r + r + r},  // above U+10FFFF
           {"\xF4\x90\x80\x80", r + r + r + r},         // U+110000
           {"\xED\xA0\x80", r + r + r},                 // a surrogate in UTF-8
           {"\xC0\xAF", r + r},                         // "/" spelt in two bytes
           {"\xE0\x80\xAF", r + r + r},                 // and in three
           {"\xF0\x80\x80\xAF", r + r + r + r}}) {      // and in four
    SCOPED_TRACE(::testing::PrintToString(bad));
    EXPECT_EQ(DecodeText(bad), replaced);
    EXPECT_EQ(DecodeText(EncodeUtf16LEWithBom(bad)), replaced);
  }
  // The largest code point and the ends of each length are kept.
  for (const std::string good : {"\xF4\x8F\xBF\xBF", "\xF0\x90\x80\x80", "\xEF\xBF\xBF",
                                 "\xE0\xA0\x80", "\xC2\x80", "\xED\x9F\xBF", "\xEE\x80\x80"}) {
    EXPECT_EQ(DecodeText(good), good) << ::testing::PrintToString(good);
    EXPECT_EQ(DecodeText(EncodeUtf16LEWithBom(good)), good) << ::testing::PrintToString(good);
  }
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

// UTF-16 as a program that writes no byte-order mark leaves it.
std::string BareUtf16(const std::string& utf8, bool little_endian) {
  const std::string le = EncodeUtf16LEWithBom(utf8).substr(2);
  if (little_endian) return le;
  std::string be = le;
  for (size_t i = 0; i + 1 < be.size(); i += 2) std::swap(be[i], be[i + 1]);
  return be;
}

TEST(TextEncoding, Utf16WithoutByteOrderMarkWasReadAsUtf8) {
  const std::string ini =
      "[Main]\r\nDest_path=/home/ann/" + kSample + "\r\n[JPG]\r\nQuality=42\r\n";
  EXPECT_EQ(DetectEncoding(BareUtf16(ini, true)), TextEncoding::kUtf16LEBare);
  EXPECT_EQ(DetectEncoding(BareUtf16(ini, false)), TextEncoding::kUtf16BEBare);
  EXPECT_EQ(DecodeText(BareUtf16(ini, true)), ini);
  EXPECT_EQ(DecodeText(BareUtf16(ini, false)), ini);
  // The shortest file that says anything, and mostly non-Latin text behind ASCII keys.
  EXPECT_EQ(DecodeText(std::string("A\0", 2)), "A");
  EXPECT_EQ(DecodeText(std::string("\0A", 2)), "A");
  const std::string cyrillic =
      "[fProcess]\r\nLabel8.Caption=\xD0\xA7\xD1\x82\xD0\xB5\xD0\xBD"
      "\xD0\xB8\xD0\xB5 \xD1\x84\xD0\xB0\xD0\xB9\xD0\xBB\xD0\xB0...\r\n";
  EXPECT_EQ(DecodeText(BareUtf16(cyrillic, true)), cyrillic);
  EXPECT_EQ(DecodeText(BareUtf16(cyrillic, false)), cyrillic);

  // A byte-order mark still decides, and text without zero bytes stays UTF-8.
  EXPECT_EQ(DecodeText("\xFF\xFE" + BareUtf16(ini, true)), ini);
  EXPECT_EQ(DetectEncoding(ini), TextEncoding::kUtf8);
  EXPECT_EQ(DetectEncoding("A"), TextEncoding::kUtf8);
  // Random bytes have a zero in one byte of 256, on both sides alike: not UTF-16.
  std::mt19937 random(7);
  for (int round = 0; round < 50; ++round) {
    std::string noise(4096, '\0');
    for (char& c : noise) c = static_cast<char>(random() & 0xFF);
    EXPECT_EQ(DetectEncoding(noise), TextEncoding::kUtf8) << round;
  }
}

// A settings path that was a folder made the reader ask for 2^63 bytes (std::bad_alloc); a
// FIFO made it wait for a writer forever; a device or a huge file was read whole.
TEST(TextEncoding, JobFilesThatAreNoRegularFilesAreRefusedUnread) {
  testing::TempDir dir;
  std::string why;
  EXPECT_FALSE(ReadTextFile(dir.path().string(), &why));
  EXPECT_EQ(why, "it is a folder");
  EXPECT_FALSE(ReadFileBytes(dir.path().string()));

  EXPECT_FALSE(ReadTextFile("/dev/zero", &why));
  EXPECT_EQ(why, "it is a device, not a file");

  const std::string fifo = dir.file("job.lst");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  auto read = std::async(std::launch::async, [&fifo] {
    std::string reason;
    return ReadTextFile(fifo, &reason).has_value() ? std::string("read") : reason;
  });
  if (read.wait_for(std::chrono::seconds(10)) != std::future_status::ready) {
    // Let the blocked reader go, so that the test ends with its failure instead of hanging.
    ::close(::open(fifo.c_str(), O_WRONLY | O_NONBLOCK));
    FAIL() << "reading a FIFO waited for a writer";
  }
  EXPECT_EQ(read.get(), "it is a pipe (FIFO), not a file");

  // Over the cap by one byte: refused from its size (a sparse file takes no disk).
  const std::string big = dir.file("big.cfg");
  std::ofstream(big).close();
  std::filesystem::resize_file(big, kMaxTextFileBytes + 1);
  EXPECT_FALSE(ReadTextFile(big, &why));
  EXPECT_EQ(why, "it is larger than 16 MB");
  EXPECT_TRUE(ReadTextFile(big, &why, kMaxListFileBytes));  // a list may be longer
  EXPECT_EQ(why, "");
  std::filesystem::resize_file(big, kMaxTextFileBytes);
  EXPECT_TRUE(ReadTextFile(big, &why));

  EXPECT_FALSE(ReadTextFile(dir.file("missing.cfg"), &why));
  EXPECT_EQ(why, "no such file or directory");
}

TEST(TextEncoding, RegularFileReaderKeepsToItsCap) {
  testing::TempDir dir;
  const std::string path = dir.file("ten.txt");
  std::ofstream(path, std::ios::binary) << "0123456789";
  std::string why = "stale";
  EXPECT_EQ(ReadRegularFile(path, 10, &why).value_or("<refused>"), "0123456789");
  EXPECT_EQ(why, "");
  EXPECT_FALSE(ReadRegularFile(path, 9, &why));
  EXPECT_EQ(why, "it is larger than 9 bytes");
  EXPECT_EQ(ReadRegularFile(path, 10).value_or("<refused>"), "0123456789");
  // A link to a regular file is read; one to a folder is refused as the folder.
  std::filesystem::create_symlink(path, dir.file("link.txt"));
  std::filesystem::create_directory_symlink(dir.path(), dir.file("link.d"));
  EXPECT_TRUE(ReadRegularFile(dir.file("link.txt"), 10));
  EXPECT_FALSE(ReadRegularFile(dir.file("link.d"), 10, &why));
  EXPECT_EQ(why, "it is a folder");
}

}  // namespace
}  // namespace pictavo::platform
