// The saving step: results appear only complete and under their final name, the overwrite
// policy, the source that must never be a destination, copies, thumbnails, originals.
#include "pipeline/saving.h"

#include <filesystem>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "tests/support/test_paths.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;

std::string Slurp(const std::string& path) {
  return platform::ReadFileBytes(path).value_or("<missing>");
}

class SavingTest : public ::testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  // Files of a folder whose names begin with a dot: the scratch files of PlaceFile.
  int HiddenFiles(const std::string& folder) {
    int n = 0;
    for (const auto& e : fs::directory_iterator(folder))
      if (e.path().filename().string().front() == '.') ++n;
    return n;
  }
  testing::TempDir dir_;
  settings::TMainSettings settings_;
  settings::MessageTable messages_;
  std::string log_;
};

TEST_F(SavingTest, PlaceFileCreatesFolderAndLeavesNoScratch) {
  const std::string written = Write("tmp/rcp1.png", "result bytes");
  const std::string dest = dir_.file("out/deep/a.png");
  ASSERT_TRUE(PlaceFile(written, dest, false).ok());
  EXPECT_EQ(Slurp(dest), "result bytes");
  EXPECT_EQ(HiddenFiles(dir_.file("out/deep")), 0);
  // Without `replace` an existing result is refused and kept.
  Write("tmp/rcp2.png", "other");
  EXPECT_FALSE(PlaceFile(dir_.file("tmp/rcp2.png"), dest, false).ok());
  EXPECT_EQ(Slurp(dest), "result bytes");
  EXPECT_EQ(HiddenFiles(dir_.file("out/deep")), 0);
}

TEST_F(SavingTest, ShapefileSidecarsFollowTheirMainFile) {
  const std::string written = Write("tmp/rcp7.shp", "shapes");
  Write("tmp/rcp7.dbf", "attributes");
  Write("tmp/rcp7.SHX", "index");  // some writers spell sidecars in capitals
  Write("tmp/rcp8.prj", "another result's projection");
  const std::string source = Write("in/roads.dxf", "drawing");
  SaveResult r =
      SaveWritten(written, dir_.file("out/roads.shp"), source, 0, settings_, messages_, log_);
  ASSERT_TRUE(r.ok) << log_;
  EXPECT_EQ(Slurp(dir_.file("out/roads.shp")), "shapes");
  EXPECT_EQ(Slurp(dir_.file("out/roads.dbf")), "attributes");
  EXPECT_EQ(Slurp(dir_.file("out/roads.shx")), "index");
  EXPECT_FALSE(fs::exists(dir_.file("out/roads.prj")));
  EXPECT_EQ(HiddenFiles(dir_.file("out")), 0);
}

TEST_F(SavingTest, OverwritePolicies) {
  const std::string source = Write("in/a.jpg", "source");
  const std::string written = Write("tmp/rcp.png", "new result");
  const std::string dest = Write("out/a.png", "old result");

  settings_.save.overwrite = 2;  // skip
  SaveResult r = SaveWritten(written, dest, source, 0, settings_, messages_, log_);
  EXPECT_TRUE(r.skipped);
  EXPECT_EQ(Slurp(dest), "old result");
  EXPECT_NE(log_.find("File " + dest + " was skipped"), std::string::npos) << log_;

  settings_.save.overwrite = 3;  // keep both
  r = SaveWritten(written, dest, source, 0, settings_, messages_, log_);
  EXPECT_EQ(r.final_path, dir_.file("out/a (2).png"));
  EXPECT_EQ(Slurp(dest), "old result");
  EXPECT_EQ(Slurp(r.final_path), "new result");

  settings_.save.overwrite = 1;  // replace
  log_.clear();
  r = SaveWritten(written, dest, source, 0, settings_, messages_, log_);
  EXPECT_TRUE(r.ok);
  EXPECT_EQ(r.final_path, dest);
  EXPECT_EQ(Slurp(dest), "new result");
  EXPECT_EQ(log_, "\r\n   Saving result to: " + dest);
  EXPECT_EQ(Slurp(source), "source");
}

TEST_F(SavingTest, SourceIsNeverOverwrittenEvenWhenPolicyReplaces) {
  const std::string source = Write("in/a.png", "the original");
  const std::string written = Write("tmp/rcp.png", "converted");
  settings_.save.overwrite = 1;
  SaveResult r = SaveWritten(written, source, source, 0, settings_, messages_, log_);
  EXPECT_TRUE(r.ok);
  EXPECT_NE(r.final_path, source);
  EXPECT_EQ(Slurp(source), "the original");
  EXPECT_EQ(Slurp(r.final_path), "converted");
}

TEST_F(SavingTest, SameDateAndCopies) {
  const std::string source = Write("in/photo.jpg", "source");
  const auto old_time = fs::file_time_type::clock::now() - std::chrono::hours(24 * 30);
  fs::last_write_time(source, old_time);
  const std::string written = Write("tmp/rcp.png", "result");
  settings_.save.same_date = 1;
  settings_.save.create_copies = true;
  settings_.save.number_of_copies = 2;
  settings_.save.copy_mask = "<filename>_copy";
  SaveResult r =
      SaveWritten(written, dir_.file("out/photo.png"), source, 0, settings_, messages_, log_);
  ASSERT_TRUE(r.ok);
  EXPECT_EQ(fs::last_write_time(r.final_path), old_time);
  EXPECT_EQ(Slurp(dir_.file("out/photo_copy.png")), "result");
  EXPECT_EQ(Slurp(dir_.file("out/photo_copy (2).png")), "result");
}

TEST_F(SavingTest, OriginalsMovedOrDeletedAsAsked) {
  const std::string a = Write("in/one/a.jpg", "a");
  settings_.save.move_files = true;
  settings_.save.move_files_folder = dir_.file("moved");
  FinishOriginal(a, true, settings_, messages_, log_);
  EXPECT_FALSE(fs::exists(a));
  EXPECT_EQ(Slurp(dir_.file("moved/a.jpg")), "a");
  EXPECT_NE(log_.find("Moving original file to: " + dir_.file("moved/a.jpg")), std::string::npos);

  // A failed file stays unless unprocessed files are to be moved.
  const std::string b = Write("in/two/b.jpg", "b");
  FinishOriginal(b, false, settings_, messages_, log_);
  EXPECT_TRUE(fs::exists(b));
  settings_.save.move_unprocessed_files = true;
  settings_.save.move_unprocessed_files_folder = dir_.file("failed");
  FinishOriginal(b, false, settings_, messages_, log_);
  EXPECT_EQ(Slurp(dir_.file("failed/b.jpg")), "b");

  settings_.save.move_files = false;
  settings_.save.delete_files = true;
  settings_.save.delete_folders = true;
  const std::string c = Write("in/three/c.jpg", "c");
  log_.clear();
  FinishOriginal(c, true, settings_, messages_, log_);
  EXPECT_FALSE(fs::exists(c));
  EXPECT_FALSE(fs::exists(dir_.file("in/three")));
  EXPECT_EQ(log_, "\r\n   Deleting file: " + c);
}

TEST_F(SavingTest, ThumbnailsOfEnabledSets) {
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(400, 200, imaging::TIEPixelFormat::ie24RGB).ok());
  bmp.Fill(0x3366CC);
  imaging::TImageEnIO io(&bmp);
  const std::string picture = dir_.file("out/result.png");
  fs::create_directories(dir_.file("out"));
  ASSERT_TRUE(io.SaveToFile(picture).ok());

  settings::DestNames names;
  names.thumbnails[0] = dir_.file("thumbs/result_thumb.jpg");
  names.thumbnails[2] = dir_.file("thumbs/result_small.png");
  settings_.thumbnail_sets[0].create_thumbnails = true;
  settings_.thumbnail_sets[0].width = 100;
  settings_.thumbnail_sets[0].height = 100;
  settings_.thumbnail_sets[2].create_thumbnails = true;
  settings_.thumbnail_sets[2].width = 40;
  settings_.thumbnail_sets[2].height = 40;
  settings_.thumbnail_sets[2].first_p = true;
  create_thumb(picture, names, 0, settings_, messages_, log_);

  imaging::TIEBitmap t;
  imaging::TImageEnIO tio(&t);
  ASSERT_TRUE(tio.LoadFromFile(names.thumbnails[0]).ok());
  EXPECT_EQ(t.Width(), 100);
  EXPECT_EQ(t.Height(), 50);
  ASSERT_TRUE(tio.LoadFromFile(names.thumbnails[2]).ok());
  EXPECT_EQ(t.Width(), 40);
  EXPECT_NE(log_.find("Saving thumbnail to: " + names.thumbnails[0]), std::string::npos);
  EXPECT_FALSE(fs::exists(names.thumbnails[1]));

  // Later pages: a set with "First_p" is left out, the others are named per page.
  log_.clear();
  create_thumb(picture, names, 1, settings_, messages_, log_);
  EXPECT_TRUE(fs::exists(dir_.file("thumbs/result_thumb_page_02.jpg")));
  EXPECT_FALSE(fs::exists(dir_.file("thumbs/result_small_page_02.png")));
}

}  // namespace
}  // namespace pictavo::pipeline
