// The log form's model: command line roles, silent codes, placement, log lines, the Stop button
// and the deletion of the job files. No display is needed.
#include "engine/log_form.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "engine/console_view.h"
#include "engine/tools/runner.h"
#include "engine/zub_process.h"
#include "settings/langs.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::engine {
namespace {

namespace fs = std::filesystem;

class RecordingView : public LogView {
 public:
  void LineAppended(const std::string& line) override { lines.push_back(line); }
  void ProgressChanged(int p) override { progress = p; }
  void ProcessMessages() override {}
  bool Confirm(const std::string& question) override {
    asked = question;
    return answer;
  }
  void StateChanged() override { ++state_changes; }
  void OpenFolder(const std::string& folder) override { opened = folder; }

  std::vector<std::string> lines;
  int progress = -1;
  bool answer = false;
  std::string asked, opened;
  int state_changes = 0;
};

JobArguments Args(std::vector<const char*> words) {
  words.insert(words.begin(), "pictavo-engine");
  return ParseCommandLine(static_cast<int>(words.size()), words.data());
}

platform::RegistryStore StoreWithWindow(int left, int top, int width, int height) {
  platform::RegistryStore store("");
  const std::string key(settings::TMainSettings::kRegistryKey);
  store.WriteDword(key, "Window_Left", static_cast<uint32_t>(left));
  store.WriteDword(key, "Window_Top", static_cast<uint32_t>(top));
  store.WriteDword(key, "Window_Width", static_cast<uint32_t>(width));
  store.WriteDword(key, "Window_Height", static_cast<uint32_t>(height));
  return store;
}

TEST(LogFormTest, SilentCodesAreRewrittenAndMinimise) {
  platform::RegistryStore empty("");
  struct Case {
    const char* code;
    const char* seen;
    bool shown;
  };
  for (const Case& c : {Case{"36", "33", false}, Case{"38", "34", false}, Case{"33", "33", true},
                        Case{"12", "12", true}}) {
    TfLog form;
    form.FormCreate(Args({c.code, "job.cfg"}), empty);
    EXPECT_EQ(form.job_code, c.seen) << c.code;
    EXPECT_EQ(form.show_log, c.shown) << c.code;
    EXPECT_EQ(form.minimized, !c.shown) << c.code;
    EXPECT_TRUE(form.timer_enabled);
    EXPECT_EQ(form.cfg_file, "job.cfg");
  }
}

TEST(LogFormTest, ArgumentRolesAndDefaults) {
  platform::RegistryStore empty("");
  TfLog none;
  none.FormCreate(Args({}), empty);
  EXPECT_EQ(none.job_code, "1");
  EXPECT_EQ(none.cfg_file, "");
  TfLog act_only;
  act_only.FormCreate(Args({"12", "job.act"}), empty);
  EXPECT_EQ(act_only.act_file, "");
  EXPECT_EQ(act_only.cfg_file, "");
  TfLog a, b;
  a.FormCreate(Args({"12", "a.act", "b.CFG"}), empty);
  b.FormCreate(Args({"12", "b.CFG", "a.act"}), empty);
  EXPECT_EQ(a.cfg_file, "b.CFG");
  EXPECT_EQ(a.act_file, "a.act");
  EXPECT_EQ(b.cfg_file, a.cfg_file);
  EXPECT_EQ(b.act_file, a.act_file);
}

TEST(LogFormTest, CentredOverTheFrontEndOnlyForPositivePositions) {
  TfLog form;
  form.FormCreate(Args({"12", "job.cfg"}), StoreWithWindow(100, 50, 800, 600));
  EXPECT_EQ(form.left, 100 + (800 - TfLog::kWidth) / 2);
  EXPECT_EQ(form.top, 50 + (600 - TfLog::kHeight) / 2);
  // An odd difference rounds toward zero, also when the front end is smaller than the form.
  TfLog narrow;
  narrow.FormCreate(Args({"12", "job.cfg"}), StoreWithWindow(10, 10, 400, 200));
  EXPECT_EQ(narrow.left, 10 + (400 - 551) / 2);  // -75, not -76
  EXPECT_EQ(narrow.left, -65);
  TfLog zero;
  zero.FormCreate(Args({"12", "job.cfg"}), StoreWithWindow(0, 300, 800, 600));
  EXPECT_EQ(zero.left, -1);
  EXPECT_EQ(zero.top, -1);
}

TEST(LogFormTest, AppendSplitsLinesWithoutEmptyEdges) {
  TfLog form;
  RecordingView view;
  form.SetView(&view);
  form.AppendLog("Starting...");
  form.AppendLog("\r\nFile 1 of 1: a.jpg\r\n   Reading file... Done");
  form.AppendLog("\r\nThe conversion has been completed.\r\n\r\nver. 7.702\r\n");
  const std::vector<std::string> expected = {"Starting...",
                                             "File 1 of 1: a.jpg",
                                             "   Reading file... Done",
                                             "The conversion has been completed.",
                                             "",
                                             "ver. 7.702"};
  EXPECT_EQ(form.memo, expected);
  EXPECT_EQ(view.lines, expected);
}

TEST(LogFormTest, StopAsksDuringTheJobAndClosesAfterIt) {
  platform::RegistryStore empty("");
  TfLog form;
  RecordingView view;
  form.SetView(&view);
  form.FormCreate(Args({"12", "job.cfg"}), empty);
  tools::StopFlag().store(false);
  ASSERT_TRUE(form.job_running);
  view.answer = false;
  form.AdvCloseClick();
  EXPECT_EQ(view.asked, "Do you really want to stop the conversion?");
  EXPECT_FALSE(tools::StopFlag().load());
  EXPECT_FALSE(form.close_requested);
  view.answer = true;
  form.AdvCloseClick();
  EXPECT_TRUE(tools::StopFlag().load());
  tools::StopFlag().store(false);

  form.job_running = false;  // the job has ended
  view.asked.clear();
  form.AdvCloseClick();
  EXPECT_TRUE(form.close_requested);
  EXPECT_TRUE(view.asked.empty());
}

TEST(LogFormTest, ClosingDeletesTheThreeJobFiles) {
  testing::TempDir dir;
  for (const char* f : {"job.cfg", "job.act", "job.lst", "photo.jpg"})
    std::ofstream(dir.file(f)) << f;
  TfLog form;
  form.cfg_file = dir.file("job.cfg");
  form.act_file = dir.file("job.act");
  form.lst_file = dir.file("job.lst");
  form.FormClose();
  EXPECT_FALSE(fs::exists(dir.file("job.cfg")));
  EXPECT_FALSE(fs::exists(dir.file("job.act")));
  EXPECT_FALSE(fs::exists(dir.file("job.lst")));
  EXPECT_TRUE(fs::exists(dir.file("photo.jpg")));
  form.FormClose();  // already gone: nothing happens
}

TEST(LogFormTest, LanguageFileTranslatesNamedComponents) {
  testing::TempDir dir;
  std::ofstream(dir.file("francais.lng"))
      << "[fLog]\ncaption=Journal\nAdvClose.Caption=Arreter\nLabel9.Caption=Arreter ?\n"
         "Label5.Caption=Interrompu.\n";
  TfLog form;
  settings::TLangs langs;
  langs.LoadLanguages(dir.path().string());
  langs.SetActiveLang("Francais", "fLog", form.form());
  EXPECT_EQ(form.form().form().caption, "Journal");
  EXPECT_EQ(form.Caption("AdvClose"), "Arreter");
  EXPECT_EQ(form.Caption("Label9"), "Arreter ?");
  EXPECT_EQ(form.Caption("Label5"), "Interrompu.");
  EXPECT_EQ(form.Caption("Label3"), "Starting...");
}

TEST(LogFormTest, ShowFilesOpensTheLastSavedFolder) {
  TfLog form;
  RecordingView view;
  form.SetView(&view);
  SetLastSavedFolder("/results/today");
  form.AdvShowFilesClick();
  EXPECT_EQ(view.opened, "/results/today");
}

// The job reports its progress at every poll, about a hundred times a second; the console bar
// is drawn again only when what it shows changes, or after a log line has cleared it.
TEST(ConsoleViewTest, ProgressBarIsRedrawnOnlyWhenItsTextChanges) {
  char* out_text = nullptr;
  char* bar_text = nullptr;
  size_t out_size = 0, bar_size = 0;
  std::FILE* out = open_memstream(&out_text, &out_size);
  std::FILE* bar = open_memstream(&bar_text, &bar_size);
  ASSERT_TRUE(out && bar);
  {
    ConsoleView view(out, bar);
    for (int i = 0; i < 100; ++i) view.ProgressChanged(40);
    view.ProgressChanged(41);
    view.ProgressChanged(41);
    view.LineAppended("File 3 of 7: a.jpg");
    view.ProgressChanged(41);  // the line cleared the bar
    view.ProgressChanged(150);
    view.ProgressChanged(100);  // the same text as 150, clamped
  }
  std::fclose(out);
  std::fclose(bar);
  const std::string drawn(bar_text, bar_size), lines(out_text, out_size);
  std::free(out_text);
  std::free(bar_text);
  auto count = [&drawn](const std::string& what) {
    size_t n = 0;
    for (size_t at = drawn.find(what); at != std::string::npos; at = drawn.find(what, at + 1)) ++n;
    return n;
  };
  EXPECT_EQ(count("] 40%"), 1u) << drawn;
  EXPECT_EQ(count("] 41%"), 2u) << drawn;
  EXPECT_EQ(count("] 100%"), 1u) << drawn;
  EXPECT_EQ(count("\r["), 4u) << drawn;
  EXPECT_EQ(lines, "File 3 of 7: a.jpg\n");
}

}  // namespace
}  // namespace pictavo::engine
