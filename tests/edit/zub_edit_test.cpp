// Whole Edit calls on scratch files: the list, the log, the pages and the result codes.
#include <gtest/gtest.h>

#include <fstream>

#include "edit/zub_edit.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/fs.h"
#include "tests/support/test_paths.h"

namespace pictavo::editing {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;
using imaging::TImageEnIO;
using imaging::TRGB;

class EditTest : public ::testing::Test {
 protected:
  EditTest() {
    settings.main.show_transp = false;
    edit.settings = &settings;
    edit.temp_folder = dir.path().string();
  }
  void WriteAct(const std::string& text) {
    edit.act_file = dir.file("job.act");
    std::ofstream(edit.act_file) << text;
  }
  static TIEBitmap Solid(int w, int h, TRGB c) {
    TIEBitmap b;
    EXPECT_TRUE(b.Allocate(w, h, TIEPixelFormat::ie24RGB).ok());
    b.Fill(imaging::RGBToTColor(c));
    return b;
  }
  std::string Save(TIEBitmap b, const std::string& name) {
    TImageEnIO io(&b);
    EXPECT_TRUE(io.SaveToFile(dir.file(name)).ok());
    return dir.file(name);
  }
  TIEBitmap Load(const std::string& path, int page = 0, imaging::TIOParamsVals* params = nullptr) {
    TIEBitmap b;
    TImageEnIO io(&b);
    io.Params().ImageIndex = page;
    EXPECT_TRUE(io.LoadFromFile(path).ok());
    if (params) *params = io.Params();
    return b;
  }
  int Run() { return edit.Edit(log, "done", "Page", "skipped", "failed"); }

  pictavo::testing::TempDir dir;
  settings::TMainSettings settings;
  TZubEdit edit;
  std::string log;
};

TEST_F(EditTest, CommentOnlyListLogsFailedLinesAndLeavesThePicture) {
  edit.work_file = Save(Solid(8, 8, {10, 20, 30}), "work.png");
  const auto before = platform::ReadFileBytes(edit.work_file);
  WriteAct("// first\n# second\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log, "     ...failed\r\n     ...failed\r\n");
  EXPECT_EQ(Load(edit.work_file).GetPixels(3, 3), (TRGB{10, 20, 30}));
  ASSERT_TRUE(before.has_value());
}

TEST_F(EditTest, LogLinesUseDisplayNamesAndFailuresDoNotStopTheList) {
  edit.work_file = Save(Solid(8, 8, {10, 20, 30}), "work.png");
  WriteAct("Invert\nbc()\npoint(1;1;1;0;0;0;0)\nunknown_key(1)\nrgb(1;2;3)\nexposure(0)\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log,
            "     Invert...done\r\n"
            "     ...failed\r\n"
            "     Point...failed\r\n"
            "     ...failed\r\n"
            "     Color Balance...done\r\n"
            "     ...done\r\n");
  EXPECT_EQ(Load(edit.work_file).GetPixels(0, 0), (TRGB{246, 237, 228}));
}

TEST_F(EditTest, TransparencyRunsBeforeTheFileLinesAndIsNotLogged) {
  TIEBitmap b = Solid(4, 4, {100, 100, 100});
  b.AddAlphaChannel(255);
  b.SetAlpha(0, 0, 0);
  edit.work_file = Save(b, "work.png");
  settings.main.show_transp = true;
  settings.main.transp_red = settings.main.transp_green = settings.main.transp_blue = 0;
  WriteAct("invert\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log, "     Invert...done\r\n");
  EXPECT_TRUE(edit.has_alpha);
  const TIEBitmap out = Load(edit.work_file);
  // Flattened onto black first, then inverted; had invert come first the pixel would be black.
  EXPECT_EQ(out.GetPixels(0, 0), (TRGB{255, 255, 255}));
  EXPECT_EQ(out.GetAlpha(0, 0), 0);
  EXPECT_EQ(out.GetPixels(1, 1), (TRGB{155, 155, 155}));
}

TEST_F(EditTest, TransparencyOnlyModeWithoutAlphaIsNothingToDo) {
  edit.work_file = Save(Solid(4, 4, {1, 2, 3}), "work.png");
  const auto before = platform::ReadFileBytes(edit.work_file);
  settings.main.show_transp = true;
  EXPECT_EQ(Run(), 33);
  EXPECT_EQ(log, "");
  EXPECT_EQ(platform::ReadFileBytes(edit.work_file), before);
  // With alpha it runs, and logs nothing.
  TIEBitmap b = Solid(4, 4, {1, 2, 3});
  b.AddAlphaChannel(128);
  edit.work_file = Save(b, "alpha.png");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log, "");
}

TEST_F(EditTest, TransparencyOnlyIsAnsweredFromTheHeader) {
  // A PNG whose header is whole but whose picture data is overwritten: a decode fails, the
  // header alone shows there is no alpha.
  std::string bytes = *platform::ReadFileBytes(Save(Solid(64, 64, {1, 2, 3}), "whole.png"));
  const size_t data = bytes.find("IDAT");
  ASSERT_NE(data, std::string::npos);
  for (size_t i = data + 4; i < data + 12; ++i) bytes[i] = '\xff';
  edit.work_file = dir.file("damaged.png");
  ASSERT_TRUE(platform::WriteFileAtomic(edit.work_file, bytes, false).ok());
  TIEBitmap probe;
  ASSERT_FALSE(TImageEnIO(&probe).LoadFromFile(edit.work_file).ok());
  settings.main.show_transp = true;
  EXPECT_EQ(Run(), 33);
  // With an actions file the picture is decoded, and the damage is reported.
  WriteAct("invert\n");
  EXPECT_EQ(Run(), 3);
}

TEST_F(EditTest, NoListAndUnreadablePictures) {
  edit.work_file = Save(Solid(4, 4, {1, 2, 3}), "work.png");
  EXPECT_EQ(Run(), 0);  // no .act file, no transparency: nothing at all
  WriteAct("invert\n");
  edit.work_file = dir.file("broken.png");
  std::ofstream(edit.work_file) << "not a picture";
  EXPECT_EQ(Run(), 3);
  edit.act_file.clear();
  settings.main.show_transp = true;
  EXPECT_EQ(Run(), 3);
}

TEST_F(EditTest, ThreePageTiffEditsOnlyTheSelectedPage) {
  const std::string tif = dir.file("work.tif");
  const TRGB colours[3] = {{200, 0, 0}, {0, 200, 0}, {0, 0, 200}};
  for (const TRGB& c : colours) {
    TIEBitmap b = Solid(6, 4, c);
    for (int x = 0; x < 6; ++x) b.SetPixels_ie24RGB(x, 0, {static_cast<uint8_t>(x * 40), 1, 2});
    TImageEnIO io(&b);
    ASSERT_TRUE(io.InsertToFileTIFF(tif).ok());
  }
  edit.work_file = tif;
  settings.multipage_settings.actions_option = 1;
  settings.multipage_settings.apply_actions_pages = "2";
  WriteAct("invert\n# note\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log,
            "     Page 1:\r\n     Invert...skipped\r\n     ...skipped\r\n"
            "     Page 2:\r\n     Invert...done\r\n     ...failed\r\n"
            "     Page 3:\r\n     Invert...skipped\r\n     ...skipped\r\n");
  imaging::TIOParamsVals params;
  EXPECT_EQ(Load(tif, 0, &params).GetPixels(3, 2), colours[0]);
  EXPECT_EQ(params.ImageCount, 3);
  EXPECT_EQ(Load(tif, 1).GetPixels(3, 2), (TRGB{255, 55, 255}));
  EXPECT_EQ(Load(tif, 2).GetPixels(3, 2), colours[2]);
  EXPECT_EQ(Load(tif, 0).GetPixels(5, 0), (TRGB{200, 1, 2}));

  // Option 0 edits every page and "skipped" never appears.
  settings.multipage_settings.actions_option = 0;
  WriteAct("invert\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log.find("skipped"), std::string::npos);
  EXPECT_EQ(Load(tif, 0).GetPixels(3, 2), (TRGB{55, 255, 255}));
  EXPECT_EQ(Load(tif, 1).GetPixels(3, 2), colours[1]);  // inverted twice
}

TEST_F(EditTest, SplitTurnsASingleTiffIntoPages) {
  edit.work_file = Save(Solid(8, 6, {9, 9, 9}), "work.tif");
  WriteAct("split(2;1)\n");
  EXPECT_EQ(Run(), 0);
  EXPECT_EQ(log, "     Split...done\r\n");
  imaging::TIOParamsVals params;
  EXPECT_EQ(Load(edit.work_file, 1, &params).Width(), 4);
  EXPECT_EQ(params.ImageCount, 2);
}

TEST_F(EditTest, ColourCountDecidesSamplesPerPixel) {
  // More than 256 colours with alpha: 4 samples per pixel.
  TIEBitmap many;
  ASSERT_TRUE(many.Allocate(32, 32, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 32; ++x)
      many.SetPixels_ie24RGB(x, y, {static_cast<uint8_t>(x * 8), static_cast<uint8_t>(y * 8), 7});
  many.AddAlphaChannel(200);
  edit.work_file = Save(many, "many.png");
  WriteAct("rgb(0;0;1)\n");
  EXPECT_EQ(Run(), 0);
  imaging::TIOParamsVals params;
  (void)Load(edit.work_file, 0, &params);
  EXPECT_EQ(params.SamplesPerPixel, 4);

  // 200 colours without alpha: one sample per pixel, colours kept exactly.
  TIEBitmap few;
  ASSERT_TRUE(few.Allocate(20, 10, TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < 10; ++y)
    for (int x = 0; x < 20; ++x)
      few.SetPixels_ie24RGB(x, y, {static_cast<uint8_t>(x * 10), static_cast<uint8_t>(y * 20), 3});
  edit.work_file = Save(few, "few.png");
  EXPECT_EQ(Run(), 0);
  const TIEBitmap out = Load(edit.work_file, 0, &params);
  EXPECT_EQ(params.SamplesPerPixel, 1);
  EXPECT_EQ(out.GetPixels(19, 9), (TRGB{190, 180, 4}));
  EXPECT_EQ(imaging::TImageEnProc(const_cast<TIEBitmap*>(&out)).CalcImageNumColors(), 200);
}

}  // namespace
}  // namespace pictavo::editing
