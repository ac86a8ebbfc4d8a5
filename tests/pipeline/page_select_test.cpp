// Page selection of the read stage and the names of multi-page results.
#include "pipeline/page_select.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "imaging/ie_io.h"
#include "tests/support/test_paths.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;

// A TIFF whose page i is white with `ink[i]` black pixels.
void MakeTiff(const std::string& path, const std::vector<int>& ink) {
  for (int n : ink) {
    imaging::TIEBitmap bmp;
    ASSERT_TRUE(bmp.Allocate(100, 100, imaging::TIEPixelFormat::ie24RGB).ok());
    bmp.Fill(0xFFFFFF);
    if (n > 0) bmp.FillRect(0, 0, n, 1, 0x000000);
    imaging::TImageEnIO io(&bmp);
    ASSERT_TRUE(io.InsertToFileTIFF(path).ok());
  }
}

int Pages(const std::string& path) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  EXPECT_TRUE(io.ParamsFromFile(path).ok());
  return io.Params().ImageCount;
}

TEST(PageSelectTest, BlankTestFollowsAccuracy) {
  imaging::TIEBitmap page;
  ASSERT_TRUE(page.Allocate(100, 100, imaging::TIEPixelFormat::ie24RGB).ok());
  page.Fill(0xFFFFFF);
  EXPECT_TRUE(IsBlankPage(page, 100));
  page.FillRect(0, 0, 2, 1, 0x000000);  // 2 of 10000 pixels: 0.02 %
  EXPECT_TRUE(IsBlankPage(page, 80));
  EXPECT_FALSE(IsBlankPage(page, 100));
  page.FillRect(0, 0, 5, 1, 0x000000);
  EXPECT_FALSE(IsBlankPage(page, 80));
}

TEST(PageSelectTest, LoadingPagesAndBlankPages) {
  testing::TempDir dir;
  const std::string tiff = dir.file("scan.tif");
  MakeTiff(tiff, {50, 0, 60, 70});
  settings::TMainSettings s;

  PageSelection all = SelectPages(tiff, s, dir.path().string());
  EXPECT_TRUE(all.file.empty());
  EXPECT_EQ(all.pages, 4);

  s.multipage_settings.loading_pages = "1,3-";
  PageSelection some = SelectPages(tiff, s, dir.path().string());
  ASSERT_FALSE(some.file.empty());
  EXPECT_EQ(some.pages, 3);
  EXPECT_EQ(Pages(some.file), 3);
  EXPECT_EQ(fs::path(some.file).filename().string().rfind("rcp", 0), 0u);

  s.multipage_settings.loading_option = 1;  // load every page: the list does not apply
  EXPECT_TRUE(SelectPages(tiff, s, dir.path().string()).file.empty());

  s.skip_blank_settings.skip_blank = true;
  PageSelection inked = SelectPages(tiff, s, dir.path().string());
  EXPECT_EQ(inked.pages, 3);

  const std::string blank = dir.file("blank.tif");
  MakeTiff(blank, {0, 0});
  PageSelection none = SelectPages(blank, s, dir.path().string());
  EXPECT_TRUE(none.all_blank);
}

TEST(PageSelectTest, PageDestinations) {
  settings::TMainSettings s;
  s.main.dest_path = "/out";
  s.main.dest_ext = "png";
  EXPECT_EQ(PageDestination(s, "/in/scan.tif", 0, 1), "/out/scan_page_02.png");
  s.file_name.mask = "sheet_###";
  EXPECT_EQ(PageDestination(s, "/in/scan.tif", 4, 2), "/out/sheet_003.png");
  s.file_name.start_number = 10;
  EXPECT_EQ(PageDestination(s, "/in/scan.tif", 4, 0), "/out/sheet_001.png");
}

TEST(PageSelectTest, ValidTifChecksContent) {
  testing::TempDir dir;
  const std::string tiff = dir.file("ok.tif");
  MakeTiff(tiff, {1});
  EXPECT_TRUE(valid_tif(tiff));
  const std::string fake = dir.file("fake.tif");
  std::ofstream(fake) << "not a tiff";
  EXPECT_FALSE(valid_tif(fake));
}

}  // namespace
}  // namespace pictavo::pipeline
