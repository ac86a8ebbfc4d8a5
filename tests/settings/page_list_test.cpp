#include <gtest/gtest.h>

#include "settings/main_settings.h"

namespace pictavo::settings {
namespace {

std::string Selected(std::string_view list, int count = 12) {
  std::string out;
  for (int p = 1; p <= count; ++p)
    if (TMainSettings::in_list(p, list)) out += std::to_string(p) + " ";
  return out;
}

TEST(PageList, ItemsRangesAndOpenEnds) {
  EXPECT_EQ(Selected("1, 3-5, 9-"), "1 3 4 5 9 10 11 12 ");
  EXPECT_EQ(Selected("-3"), "1 2 3 ");
  EXPECT_EQ(Selected(" 7 "), "7 ");
  EXPECT_EQ(Selected("5-3"), "");
  EXPECT_EQ(Selected("2 - 4"), "2 3 4 ");
  EXPECT_TRUE(TMainSettings::in_list(100000, "9-"));
}

TEST(PageList, EmptyAndDegenerateLists) {
  EXPECT_EQ(Selected(""), "");
  EXPECT_EQ(Selected("   "), "");
  EXPECT_EQ(Selected(",1"), "");
  EXPECT_EQ(Selected("-0"), "");
  EXPECT_EQ(Selected("-"), "");
  // The scan stops at an empty item, deliberately.
  EXPECT_EQ(Selected("1,,5"), "1 ");
  EXPECT_EQ(Selected("2,"), "2 ");
  // Bounds that are not numbers select nothing, also for items before them in the scan.
  EXPECT_EQ(Selected("a-b,3"), "");
  EXPECT_EQ(Selected("3,x-2"), "3 ");
  EXPECT_TRUE(TMainSettings::in_list(0, "0-2"));
}

}  // namespace
}  // namespace pictavo::settings
