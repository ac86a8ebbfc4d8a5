#include <gtest/gtest.h>

#include "platform/registry_store.h"
#include "platform/text_encoding.h"
#include "tests/support/test_paths.h"

namespace pictavo::platform {
namespace {

constexpr const char* kKey = "Software\\Velmora\\Pictavo7";

TEST(RegistryStore, KeepsTypesAndComparesNamesWithoutCase) {
  RegistryStore store("unused");
  EXPECT_FALSE(store.KeyExists(kKey));
  store.WriteDword(kKey, "JPG_Quality", 80);
  store.WriteString(kKey, "Main_File_mask", "*");
  store.WriteString(kKey, "Multipage_Option", "3");  // a number stored as a string
  EXPECT_TRUE(store.KeyExists("software\\velmora\\PICTAVO7\\"));
  EXPECT_EQ(store.ReadDword(kKey, "jpg_quality"), 80u);
  EXPECT_EQ(store.ReadString(kKey, "MAIN_FILE_MASK"), "*");
  EXPECT_FALSE(store.ReadDword(kKey, "Multipage_Option"));
  EXPECT_FALSE(store.ReadString(kKey, "JPG_Quality"));
  EXPECT_FALSE(store.ReadDword(kKey, "Missing"));
  // Rewriting under another capitalisation replaces the value and its type.
  store.WriteString(kKey, "jpg_QUALITY", "high");
  EXPECT_FALSE(store.ReadDword(kKey, "JPG_Quality"));
  EXPECT_EQ(store.ReadString(kKey, "JPG_Quality"), "high");
}

TEST(RegistryStore, RoundTripsThroughItsFile) {
  testing::TempDir dir;
  std::string path = dir.file("cfg/Velmora/Pictavo7/registry.reg");
  RegistryStore store(path);
  store.WriteDword(kKey, "Negative", static_cast<uint32_t>(-3857));
  store.WriteString(kKey, "Quoted", "say \"hi\" C:\\path\\");
  store.WriteString(kKey, "Lines", "one\r\ntwo");
  store.WriteString(kKey, "Empty", "");
  store.WriteString(kKey, "Unicode",
                    "Gr\xC3\xB6\xC3\x9F"
                    "e");
  ASSERT_TRUE(store.Save().ok());

  RegistryStore back(path);
  ASSERT_TRUE(back.Load().ok());
  EXPECT_EQ(static_cast<int32_t>(*back.ReadDword(kKey, "negative")), -3857);
  EXPECT_EQ(back.ReadString(kKey, "Quoted"), "say \"hi\" C:\\path\\");
  EXPECT_EQ(back.ReadString(kKey, "Lines"), "one\r\ntwo");
  EXPECT_EQ(back.ReadString(kKey, "Empty"), "");
  EXPECT_EQ(back.ReadString(kKey, "Unicode"),
            "Gr\xC3\xB6\xC3\x9F"
            "e");
  EXPECT_EQ(back.ToText(), store.ToText());

  // The file is a registry export: UTF-16LE with its header line.
  std::string text = *ReadTextFile(path);
  EXPECT_EQ(text.rfind("Windows Registry Editor Version 5.00", 0), 0u);
  EXPECT_NE(text.find("\"Negative\"=dword:fffff0ef"), std::string::npos);
}

TEST(RegistryStore, ParsesHandWrittenExportsAndSkipsNoise) {
  RegistryStore store = RegistryStore::FromText(
      "Windows Registry Editor Version 5.00\n\n"
      "[HKEY_LOCAL_MACHINE\\Software\\Velmora\\Pictavo7]\n"
      "\"Other\"=dword:00000001\n"
      "[hkey_current_user\\software\\velmora\\pictavo7]\n"
      "; a comment\n"
      "\"A\"=dword:0000000a\n"
      "\"Bad\"=dword:xyz\n"
      "\"TooLong\"=dword:123456789\n"
      "\"S\"=\"text\"\n"
      "\"Broken\"=\"no end\n"
      "\"a\"=dword:0000000b\n");
  EXPECT_EQ(store.ReadDword(kKey, "A"), 11u);  // the later duplicate wins
  EXPECT_EQ(store.ReadString(kKey, "S"), "text");
  EXPECT_FALSE(store.TypeOf(kKey, "Bad"));
  EXPECT_FALSE(store.TypeOf(kKey, "TooLong"));
  EXPECT_FALSE(store.TypeOf(kKey, "Broken"));
  EXPECT_FALSE(store.TypeOf(kKey, "Other"));  // another hive is not ours
}

TEST(RegistryStore, MissingFileIsAnEmptyStore) {
  testing::TempDir dir;
  RegistryStore store(dir.file("none.reg"));
  EXPECT_TRUE(store.Load().ok());
  EXPECT_FALSE(store.KeyExists(kKey));
}

}  // namespace
}  // namespace pictavo::platform
