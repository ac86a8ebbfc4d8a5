#include <gtest/gtest.h>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "settings/mem_ini_file.h"
#include "settings_test_util.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

TEST(MemIniFile, FindsSectionsAndKeysWithoutRegardToCaseAndTrimsBlanks) {
  MemIniFile ini = MemIniFile::FromText(
      "; a comment\n[PDF_Write]\r\n  Orientation = 1 \r\n[pdf_write]\nOrientation=0\nIcc=x\n"
      "[Main]\rDest_path=/a b/\r=orphan\nnot an entry\n");
  // A repeated section is searched in all its parts; the first key wins.
  EXPECT_EQ(ini.ReadString("pdf_WRITE", "ORIENTATION", "x"), "1");
  EXPECT_EQ(ini.ReadString("PDF_Write", "icc", ""), "x");
  EXPECT_EQ(ini.SectionKeys("PDF_WRITE"),
            (std::vector<std::string>{"Orientation", "Orientation", "Icc"}));
  EXPECT_EQ(ini.ReadString("MAIN", "dest_PATH", "x"), "/a b/");
  EXPECT_EQ(ini.ReadString("Main", "missing", "fallback"), "fallback");
  EXPECT_EQ(ini.ReadString("Nowhere", "Dest_path", "fallback"), "fallback");
  EXPECT_EQ(ini.SectionKeys("main"), std::vector<std::string>{"Dest_path"});
}

TEST(MemIniFile, NumbersThatAreNotIntegersGiveTheFallback) {
  MemIniFile ini = MemIniFile::FromText(
      "[S]\na=42\nb=-7\nc=12abc\nd=\ne=99999999999\nf=$1F\ng=0x10\nh= 5 \ni=+3\nj=-2147483648\n");
  EXPECT_EQ(ini.ReadInteger("S", "a", 0), 42);
  EXPECT_EQ(ini.ReadInteger("S", "b", 0), -7);
  EXPECT_EQ(ini.ReadInteger("S", "c", 11), 11);
  EXPECT_EQ(ini.ReadInteger("S", "d", 11), 11);
  EXPECT_EQ(ini.ReadInteger("S", "e", 11), 11);
  EXPECT_EQ(ini.ReadInteger("S", "f", 0), 31);
  EXPECT_EQ(ini.ReadInteger("S", "g", 0), 16);
  EXPECT_EQ(ini.ReadInteger("S", "h", 0), 5);
  EXPECT_EQ(ini.ReadInteger("S", "i", 0), 3);
  EXPECT_EQ(ini.ReadInteger("S", "j", 0), -2147483647 - 1);
  EXPECT_TRUE(ini.ReadBool("S", "a", false));
  EXPECT_FALSE(ini.ReadBool("S", "missing", false));
  EXPECT_TRUE(ini.ReadBool("S", "c", true));
}

TEST(MemIniFile, WritingKeepsUnknownContentAndOrder) {
  MemIniFile ini =
      MemIniFile::FromText("; kept comment\n[Custom]\nfoo=bar\n\n[JPG]\nquality=10\nExtra=1\n\n");
  ini.WriteInteger("jpg", "Quality", 80);  // existing key keeps its spelling and place
  ini.WriteString("JPG", "Progressive", "0");
  ini.WriteBool("New", "On", true);
  EXPECT_EQ(ini.ToText(),
            "; kept comment\r\n[Custom]\r\nfoo=bar\r\n\r\n[JPG]\r\nquality=80\r\nExtra=1\r\n"
            "Progressive=0\r\n\r\n[New]\r\nOn=1\r\n");
}

TEST(MemIniFile, SavesUtf16LittleEndianWithBomAndLoadsEveryEncoding) {
  pictavo::testing::TempDir dir;
  MemIniFile ini;
  ini.WriteString("Main", "Dest_path", "/home/ann/Bilder/Ü");
  const std::string path = dir.file("a.cfg");
  ASSERT_TRUE(ini.Save(path).ok());
  std::optional<std::string> bytes = platform::ReadFileBytes(path);
  ASSERT_TRUE(bytes);
  EXPECT_EQ(bytes->substr(0, 4), std::string("\xFF\xFE[\0", 4));

  MemIniFile back;
  ASSERT_TRUE(back.Load(path).ok());
  EXPECT_EQ(back.ReadString("main", "dest_path", ""), "/home/ann/Bilder/Ü");

  for (const std::string& raw :
       {test_util::Utf16("[A]\r\nk=v\r\n", true), test_util::Utf16("[A]\r\nk=v\r\n", false),
        std::string("\xEF\xBB\xBF[A]\nk=v\n"), std::string("[A]\nk=v\n")}) {
    ASSERT_TRUE(platform::WriteFileAtomic(path, raw).ok());
    ASSERT_TRUE(back.Load(path).ok());
    EXPECT_EQ(back.ReadString("a", "K", ""), "v");
  }
  EXPECT_FALSE(back.Load(dir.file("missing.cfg")).ok());
  EXPECT_TRUE(back.SectionNames().empty());
}

// "Substring_1= " (replace blanks) was written as it stands and read back empty, which turned
// the replacement off; values that start and end with quotes must survive the quote rule too.
TEST(MemIniFile, ValuesKeepTheirBlanksAndQuotesThroughWriteAndRead) {
  const std::vector<std::string> values = {
      " ",      "  two  ",        "\tlead", "trail\t", " x",        "x ",         "\"quoted\"",
      "\"",     "\"\"",           "\"\"\"", "\"open",  "close\"",   "say \"hi\"", "a=b",
      "[Main]", ";not a comment", "",       "plain",   "C:\\new\\", " \"both\" "};
  MemIniFile ini;
  for (size_t i = 0; i < values.size(); ++i)
    ASSERT_TRUE(ini.WriteString("S", "k" + std::to_string(i), values[i])) << i;
  const std::string text = ini.ToText();
  for (const std::string& bytes : {text, platform::EncodeUtf16LEWithBom(text)}) {
    const MemIniFile back = MemIniFile::FromText(platform::DecodeText(bytes));
    for (size_t i = 0; i < values.size(); ++i)
      EXPECT_EQ(back.ReadString("S", "k" + std::to_string(i), "<missing>"), values[i]) << i;
  }
  // Only values that need them get quotes, so files without such values read as before.
  EXPECT_NE(text.find("\r\nk0=\" \"\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nk6=\"\"quoted\"\"\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nk12=say \"hi\"\r\n"), std::string::npos) << text;
  EXPECT_NE(text.find("\r\nk17=plain\r\n"), std::string::npos) << text;
}

TEST(MemIniFile, HandWrittenQuotesAreTakenOffOnce) {
  const MemIniFile ini = MemIniFile::FromText(
      "[S]\npath = \"/a b/\" \nempty=\"\"\nthree=\"\"\"\nsingle='x'\nnumber=\"90\"\n"
      "inner=a \"b\" c\nhalf=\"a\n");
  EXPECT_EQ(ini.ReadString("S", "path", ""), "/a b/");
  EXPECT_EQ(ini.ReadString("S", "empty", "x"), "");
  EXPECT_EQ(ini.ReadString("S", "three", ""), "\"");
  EXPECT_EQ(ini.ReadString("S", "single", ""), "'x'");  // only double quotes are taken off
  EXPECT_EQ(ini.ReadInteger("S", "number", 0), 90);
  EXPECT_EQ(ini.ReadString("S", "inner", ""), "a \"b\" c");
  EXPECT_EQ(ini.ReadString("S", "half", ""), "\"a");
}

// A value with a line break wrote "[JPG]\r\nQuality=1" into the file as a section of its own.
TEST(MemIniFile, LineBreaksCannotInjectSectionsOrKeys) {
  MemIniFile ini = MemIniFile::FromText("[Main]\nDest_path=/out\n[JPG]\nQuality=80\n");
  const std::string before = ini.ToText();
  for (const char* value : {"/x\r\n[JPG]\r\nQuality=1", "/x\n[JPG]", "/x\rQuality=1", "\n"})
    EXPECT_FALSE(ini.WriteString("Main", "Dest_path", value)) << value;
  EXPECT_FALSE(ini.WriteString("Main", "Dest_path\n[JPG]", "1"));
  EXPECT_FALSE(ini.WriteString("Main\n[JPG]", "Quality", "1"));
  EXPECT_FALSE(ini.WriteString("Main", "Quality=1\nX", "1"));
  EXPECT_FALSE(ini.WriteString("Main", "a=b", "1"));  // would read as key "a"
  EXPECT_FALSE(ini.WriteString("Main", "; x", "1"));  // would read as a comment
  EXPECT_FALSE(ini.WriteString("Main", " ", "1"));
  EXPECT_EQ(ini.ToText(), before);
  EXPECT_EQ(ini.ReadString("JPG", "Quality", ""), "80");
  EXPECT_EQ(ini.SectionNames(), (std::vector<std::string>{"Main", "JPG"}));
}

TEST(MemIniFile, LoadOfAFolderSaysSoAndLeavesTheFileEmpty) {
  pictavo::testing::TempDir dir;
  MemIniFile ini = MemIniFile::FromText("[A]\nk=v\n");
  const Status loaded = ini.Load(dir.path().string());
  EXPECT_FALSE(loaded.ok());
  EXPECT_EQ(loaded.message(), "cannot read " + dir.path().string() + ": it is a folder");
  EXPECT_TRUE(ini.SectionNames().empty());
}

}  // namespace
}  // namespace pictavo::settings
