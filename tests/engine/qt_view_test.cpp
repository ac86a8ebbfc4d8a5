// The Qt log window over a real job, under the offscreen platform: the designed controls, their
// anchors on resize, the finished state, and closing (which deletes the job files).
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "engine/qt_log_window.h"
#include "engine/tools/runner.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::engine {
namespace {

namespace fs = std::filesystem;

TEST(QtLogWindowTest, RunsAJobAndClosesAfterIt) {
  setenv("QT_QPA_PLATFORM", "offscreen", 1);
  int argc = 1;
  char name[] = "qt_view_tests";
  char* argv[] = {name, nullptr};
  QApplication app(argc, argv);

  testing::TempDir dir;
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(30, 20, imaging::TIEPixelFormat::ie24RGB).ok());
  bmp.Fill(0x336699);
  imaging::TImageEnIO io(&bmp);
  fs::create_directories(dir.file("in"));
  ASSERT_TRUE(io.SaveToFile(dir.file("in/a.jpg")).ok());
  std::ofstream(dir.file("job.lst")) << dir.file("in/a.jpg") << "\n";
  settings::TMainSettings s;
  s.SetDefault();
  s.main.dest_ext = "PNG";
  s.main.dest_path = dir.file("out");
  s.main.temp_folder = dir.file("temp");
  s.main.use_file_list = dir.file("job.lst");
  ASSERT_TRUE(s.write_ini_settings(dir.file("job.cfg"), 0).ok());

  TfLog form;
  LogWindow window(form);
  form.SetView(&window);
  const char* words[] = {"pictavo-engine", "12", nullptr};
  std::string cfg = dir.file("job.cfg");
  words[2] = cfg.c_str();
  platform::RegistryStore store("");
  form.FormCreate(ParseCommandLine(3, words), store);
  window.show();

  auto* memo = window.findChild<QPlainTextEdit*>("Memo1");
  auto* bar = window.findChild<QProgressBar*>("ProgressBar1");
  auto* close = window.findChild<QPushButton*>("AdvClose");
  auto* show_files = window.findChild<QPushButton*>("AdvShowFiles");
  ASSERT_TRUE(memo && bar && close && show_files);
  EXPECT_EQ(window.minimumSize(), QSize(500, 300));
  EXPECT_EQ(close->text(), "Stop");
  EXPECT_FALSE(show_files->isVisible());

  // Anchors: the memo grows with the window, the buttons keep to the bottom corners.
  window.resize(800, 600);
  EXPECT_EQ(memo->geometry(), QRect(15, 16, 800 - 15 - 14, 600 - 16 - 78));
  EXPECT_EQ(close->geometry(), QRect(800 - 14 - 100, 600 - 12 - 31, 100, 31));
  EXPECT_EQ(bar->geometry().top(), 600 - 72);

  form.Timer1Timer();
  EXPECT_TRUE(memo->toPlainText().contains("1 of 1 files were successfully processed."))
      << memo->toPlainText().toStdString();
  EXPECT_EQ(bar->value(), 100);
  EXPECT_EQ(close->text(), "Close");
  EXPECT_TRUE(show_files->isVisible());
  EXPECT_TRUE(fs::exists(dir.file("out/a.png")));

  close->click();  // after the job: closes without asking
  EXPECT_FALSE(window.isVisible());
  EXPECT_FALSE(fs::exists(dir.file("job.cfg")));
  EXPECT_FALSE(fs::exists(dir.file("job.lst")));
  EXPECT_TRUE(fs::exists(dir.file("in/a.jpg")));
  form.SetView(nullptr);
}

}  // namespace
}  // namespace pictavo::engine
