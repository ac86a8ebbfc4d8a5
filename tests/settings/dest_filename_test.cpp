#include <gtest/gtest.h>

#include <filesystem>

#include "platform/fs.h"
#include "settings/date_format.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::settings {
namespace {

TMainSettings Defaults() {
  TMainSettings s;
  s.SetDefault();
  s.main.dest_path = "/out";
  return s;
}

std::string Expand(const TMainSettings& s, std::string_view mask, int counter = 1,
                   MaskSource src = {}) {
  if (src.source_path.empty()) src.source_path = "/in/photo.Jpeg";
  return s.ParseFileMask("photo", mask, counter, src);
}

std::string Result(const TMainSettings& s, const std::string& source, int index = 0) {
  DestRequest r;
  r.source_path = source;
  r.index = index;
  return s.create_dest_filename(r).result;
}

// A PNG header of the given size: enough for the header reader.
std::string PngHeader(uint32_t w, uint32_t h) {
  std::string b("\x89PNG\r\n\x1a\n\0\0\0\x0dIHDR", 16);
  for (uint32_t v : {w, h})
    for (int shift = 24; shift >= 0; shift -= 8) b += static_cast<char>((v >> shift) & 0xFF);
  return b + std::string("\x08\x02\0\0\0", 5);
}

TEST(ParseFileMask, CounterRunsAndPlainText) {
  TMainSettings s = Defaults();
  EXPECT_EQ(Expand(s, "img_###", 7), "img_007");
  EXPECT_EQ(Expand(s, "img_###", 1234), "img_1234");
  EXPECT_EQ(Expand(s, "#-##", 5), "5-05");
  EXPECT_EQ(Expand(s, "a<filename", 1), "a<filename");
  EXPECT_EQ(Expand(s, "<filename>_<FileName>"), "photo_photo");
  EXPECT_EQ(Expand(s, ""), "photo");
  EXPECT_EQ(Expand(s, "x<unknown>y"), "xy");
  EXPECT_EQ(s.ParseFileMask("", "<filename>", 1, {}), "null");
}

TEST(ParseFileMask, PartsOfTheNameAndTheExtension) {
  TMainSettings s = Defaults();
  EXPECT_EQ(Expand(s, "<first:3>"), "pho");
  EXPECT_EQ(Expand(s, "<first:0>|<last:-1>"), "|");
  EXPECT_EQ(Expand(s, "<last:2>"), "to");
  EXPECT_EQ(Expand(s, "<last:99>"), "photo");
  EXPECT_EQ(Expand(s, "<subname:2,3>"), "hot");
  EXPECT_EQ(Expand(s, "<subname:4,10>"), "to");
  EXPECT_EQ(Expand(s, "<subname:2,0>"), "");
  EXPECT_EQ(Expand(s, "<ext>"), "Jpeg");
  EXPECT_EQ(s.ParseFileMask("Ölbild", "<first:2>", 1, {}), "Öl");
}

TEST(ParseFileMask, PageOnlyWhenPagesAreSeparateFiles) {
  TMainSettings s = Defaults();
  MaskSource src;
  src.page = 4;
  EXPECT_EQ(Expand(s, "p<page:###>", 1, src), "p");
  s.multipage.option_flags.Select(3);
  EXPECT_EQ(Expand(s, "p<page:###>", 1, src), "p005");
}

TEST(ParseFileMask, OrientationAndTimes) {
  TMainSettings s = Defaults();
  MaskSource src;
  src.width = 100;
  src.height = 100;
  EXPECT_EQ(Expand(s, "<orientation>", 1, src), "landscape");
  src.width = 99;
  EXPECT_EQ(Expand(s, "<orientation>", 1, src), "portrait");

  src.now = 1700000000;  // 2023-11-14 22:13:20 UTC
  const DateTimeParts local = LocalDateTime(int64_t{1700000000} * 1000);
  EXPECT_EQ(Expand(s, "<date:yyyy-mm-dd>", 1, src), FormatDateTime("yyyy-mm-dd", local));
  EXPECT_EQ(Expand(s, "<time:hhnnss>", 1, src), FormatDateTime("hhnnss", local));
  EXPECT_EQ(local.year, 2023);
}

TEST(ParseFileMask, SourceFileDates) {
  pictavo::testing::TempDir dir;
  const std::string file = dir.file("a.jpg");
  ASSERT_TRUE(platform::WriteFileAtomic(file, "x").ok());
  std::optional<DateTimeParts> written = FileLocalWriteTime(file);
  ASSERT_TRUE(written);
  TMainSettings s = Defaults();
  MaskSource src;
  src.source_path = file;
  EXPECT_EQ(Expand(s, "<o_date:yyyymmdd>", 1, src), FormatDateTime("yyyymmdd", *written));
  src.source_path = dir.file("missing.jpg");
  EXPECT_EQ(Expand(s, "[<o_date:yyyy>][<o_time:hh>]", 1, src), "[][]");
}

TEST(FormatDateTime, DelphiDialect) {
  DateTimeParts t{2024, 3, 5, 14, 7, 9, 42, 2};
  EXPECT_EQ(FormatDateTime("yyyy-mm-dd hh:nn:ss.zzz", t), "2024-03-05 14:07:09.042");
  EXPECT_EQ(FormatDateTime("yy m d h n s z", t), "24 3 5 14 7 9 42");
  EXPECT_EQ(FormatDateTime("hh:mm", t), "14:07");  // minutes after an hour
  EXPECT_EQ(FormatDateTime("YYYY'mm'MM", t), "2024mm03");
  EXPECT_EQ(FormatDateTime("ddd dddd mmm mmmm", t), "Tue Tuesday Mar March");
  EXPECT_EQ(FormatDateTime("h am/pm", t), "14 pm");
  EXPECT_EQ(FormatDateTime("\"day \"d_x", t), "day 5_x");
}

TEST(CreateDestFilename, TemplateCaseAndExtension) {
  TMainSettings s = Defaults();
  s.file_name.mask = "IMG_###";
  s.file_name.mask_prefix = "A_";
  s.file_name.mask_suffix = "_Z";
  s.file_name.start_number = 5;
  EXPECT_EQ(Result(s, "/in/x.png", 2), "/out/a_img_007_z.jpg");
  s.file_name.lower_case_ext = false;
  s.main.dest_ext = "pdf>Pdf";
  EXPECT_EQ(Result(s, "/in/x.png", 2), "/out/a_img_007_z.PDF");
  s.file_name.change_case = true;
  EXPECT_EQ(Result(s, "/in/x.png"), "/out/A_IMG_005_Z.PDF");
  s.file_name.case_option_flags.Select(2);
  s.file_name.mask = "<FILENAME>";
  s.file_name.mask_prefix = s.file_name.mask_suffix = "";
  EXPECT_EQ(Result(s, "/in/MixedCase.png"), "/out/mixedcase.PDF");
}

TEST(CreateDestFilename, ReplacementIsCappedAtOneThousand) {
  TMainSettings s = Defaults();
  s.file_name.replace = true;
  s.file_name.substring_1 = "a";
  s.file_name.substring_2 = "aa";
  EXPECT_EQ(Result(s, "/in/a.png"), "/out/" + std::string(1001, 'a') + ".jpg");
  s.file_name.substring_1 = "-";
  s.file_name.substring_2 = "_";
  EXPECT_EQ(Result(s, "/in/a-b-c.png"), "/out/a_b_c.jpg");
  s.file_name.replace = false;
  EXPECT_EQ(Result(s, "/in/a-b-c.png"), "/out/a-b-c.jpg");
}

TEST(CreateDestFilename, DestinationFolders) {
  TMainSettings s = Defaults();
  s.main.dest_path = "";
  EXPECT_EQ(Result(s, "/in/a.png"), "/a.jpg");
  s.main.dest_path = "  /out/sub  ";
  EXPECT_EQ(Result(s, "/in/a.png"), "/out/sub/a.jpg");
  s.main.same_as_source = true;
  EXPECT_EQ(Result(s, "/in/deep/a.png"), "/in/deep/a.jpg");
  DestRequest r;
  r.source_path = "/in/deep/a.png";
  r.subfolder = "converted";
  EXPECT_EQ(s.create_dest_filename(r).result, "/in/deep/converted/a.jpg");
}

TEST(CreateDestFilename, FolderStructureOptions) {
  TMainSettings s = Defaults();
  s.save.save_path = true;
  s.save.save_path_option = 1;
  EXPECT_EQ(Result(s, "/home/ann/pics/a.png"), "/out/home/ann/pics/a.jpg");
  s.save.save_path_option = 2;
  s.main.source_folder = "/HOME/ann";  // compared without regard to case
  s.main.current_folder = "";
  EXPECT_EQ(Result(s, "/home/ann/pics/2024/a.png"), "/out/pics/2024/a.jpg");
  EXPECT_EQ(Result(s, "/home/ann/a.png"), "/out/a.jpg");
  s.main.current_folder = "/home/ann/pics/";
  s.save.save_path_option = 3;
  EXPECT_EQ(Result(s, "/home/ann/pics/2024/a.png"), "/out/2024/a.jpg");
  // A source outside the root keeps its whole folder, as option 1 does.
  EXPECT_EQ(Result(s, "/mnt/card/a.png"), "/out/mnt/card/a.jpg");
}

TEST(CreateDestFilename, ThumbnailsShareTheThumbnailFolder) {
  TMainSettings s = Defaults();
  s.thumbnails.folder = "/thumbs";
  s.thumbnail_sets[0].folder = "/ignored";
  s.thumbnail_sets[2].mask = "t<filename>_##";
  s.thumbnail_sets[2].counter = 10;
  s.thumbnail_sets[2].ext = "Png";
  DestRequest r;
  r.source_path = "/in/a.tif";
  r.index = 3;
  DestNames names = s.create_dest_filename(r);
  EXPECT_EQ(names.thumbnails[0], "/thumbs/a_thumb.jpg");
  EXPECT_EQ(names.thumbnails[2], "/thumbs/ta_13.png");
  s.file_name.lower_case_ext = false;
  s.thumbnails.folder = "";
  s.save.save_path = true;
  names = s.create_dest_filename(r);
  EXPECT_EQ(names.thumbnails[4], "/in/a_thumb.JPG");
}

TEST(CreateDestFilename, OrientationAsksTheGivenProbe) {
  pictavo::testing::TempDir dir;
  TMainSettings s = Defaults();
  s.file_name.mask = "<filename>_<Orientation>";
  const std::string square = dir.file("sq.png"), tall = dir.file("tall.png");
  ASSERT_TRUE(platform::WriteFileAtomic(square, PngHeader(100, 100)).ok());
  ASSERT_TRUE(platform::WriteFileAtomic(tall, PngHeader(10, 30)).ok());
  int asked = 0;
  const ImageHeaderProbe probe{
      [&](const std::string& path) {
        ++asked;
        return std::optional<ImageSize>(path == tall ? ImageSize{10, 30} : ImageSize{5, 5});
      },
      nullptr, nullptr};
  DestRequest r;
  r.probe = &probe;
  r.source_path = square;
  EXPECT_EQ(s.create_dest_filename(r).result, "/out/sq_landscape.jpg");
  r.source_path = tall;
  EXPECT_EQ(s.create_dest_filename(r).result, "/out/tall_portrait.jpg");
  EXPECT_EQ(asked, 2);
  // A missing source is not probed; without a probe nothing is known: landscape.
  r.source_path = dir.file("gone.png");
  EXPECT_EQ(s.create_dest_filename(r).result, "/out/gone_landscape.jpg");
  EXPECT_EQ(asked, 2);
  EXPECT_EQ(Result(s, tall), "/out/tall_landscape.jpg");
}

}  // namespace
}  // namespace pictavo::settings
