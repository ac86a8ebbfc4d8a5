#include "platform/bytes.h"

#include <filesystem>

#include <gtest/gtest.h>

namespace pictavo::platform {
namespace {

TEST(Bytes, NumbersReadBothWaysRound) {
  const std::string b("\x01\x02\x03\x04\xff", 5);
  EXPECT_EQ(LoadLe16(b), 0x0201u);
  EXPECT_EQ(LoadBe16(b), 0x0102u);
  EXPECT_EQ(LoadLe32(b), 0x04030201u);
  EXPECT_EQ(LoadBe32(b), 0x01020304u);
  EXPECT_EQ(LoadBe32(b, 1), 0x020304ffu);  // high bytes are not sign-extended
  const auto* p = reinterpret_cast<const uint8_t*>(b.data());
  EXPECT_EQ(LoadLe32(p + 1), LoadLe32(b, 1));
  EXPECT_EQ(LoadBe16(p + 3), 0x04ffu);
  EXPECT_EQ(LoadBe32(StoreBe32(0xfe0a0b0cu)), 0xfe0a0b0cu);
}

TEST(Bytes, ExtensionsMatchWhatTheFileSystemLibrarySees) {
  for (const char* path : {"a/b.TIF", "photo.tar.GZ", "dir.d/file", ".profile", "x/.hidden.Png",
                           "name.", "plain", "c:\\pics\\Shot.JPG", ""}) {
    std::string expected = std::filesystem::path(path).extension().string();
    for (char& c : expected) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    if (std::string(path) == "c:\\pics\\Shot.JPG") expected = ".jpg";  // a backslash is a folder
    EXPECT_EQ(LowerExtension(path), expected) << path;
  }
}

TEST(Bytes, TrimAndQuote) {
  EXPECT_EQ(Trim("  a b\t\r\n"), "a b");
  EXPECT_EQ(Trim(" \t "), "");
  EXPECT_EQ(Trim("--x-", "-"), "x");
  EXPECT_EQ(Quoted("a b/c.png"), "\"a b/c.png\"");
}

}  // namespace
}  // namespace pictavo::platform
