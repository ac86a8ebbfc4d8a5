// Whole jobs through the engine binary with the console view: the log text, the results, the
// sources (byte-identical afterwards), the temp folder (empty afterwards) and the job files.
#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/command_line.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

extern char** environ;

namespace pictavo {
namespace {

namespace fs = std::filesystem;

std::string Engine() {
  return testing::BuildDir() + "/pictavo-engine";
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    lines.push_back(text.substr(start, end - start));
    start = end + 1;
  }
  return lines;
}

void MakePicture(const std::string& path, int width, int height, uint32_t color) {
  imaging::TIEBitmap bmp;
  ASSERT_TRUE(bmp.Allocate(width, height, imaging::TIEPixelFormat::ie24RGB).ok());
  bmp.Fill(color);
  bmp.FillRect(0, 0, width / 2, height / 3, 0x202020);
  fs::create_directories(fs::path(path).parent_path());
  imaging::TImageEnIO io(&bmp);
  ASSERT_TRUE(io.SaveToFile(path).ok());
}

// Width and height of a picture the engine reads; {0, 0} when it cannot.
std::pair<int, int> SizeOf(const std::string& path) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  if (!io.LoadFromFile(path).ok()) return {0, 0};
  return {bmp.Width(), bmp.Height()};
}

class JobTest : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!fs::exists(Engine()))
      GTEST_SKIP() << "build/pictavo-engine is not built (it links once the read, edit, write "
                      "and direct stages exist)";
    setenv("PICTAVO_UI", "console", 1);
    unsetenv("PICTAVO_WAIT");
    settings_.SetDefault();
    settings_.main.dest_path = dir_.file("out");
    settings_.main.dest_ext = "PNG";
    settings_.main.temp_folder = dir_.file("temp");
    settings_.main.use_file_list = dir_.file("job.lst");
    settings_.main.file_mask = "*";
  }

  // Writes the job files; `entries` become the list file.
  void WriteJob(const std::vector<std::string>& entries) {
    std::string list;
    for (const std::string& e : entries) list += e + "\r\n";
    std::ofstream(dir_.file("job.lst"), std::ios::binary) << list;
    ASSERT_TRUE(settings_.write_ini_settings(dir_.file("job.cfg"), 1).ok());
  }

  // Runs the engine to its end; returns its exit status and fills `log_`.
  int Run(const std::string& code) {
    const std::string out = dir_.file("engine.out");
    const int rc = tools::RunBatch(tools::Quoted(Engine()) + " " + code + " " +
                                       tools::Quoted(dir_.file("job.cfg")) + " > " +
                                       tools::Quoted(out) + " 2>&1",
                                   dir_.file("temp"));
    log_ = platform::ReadFileBytes(out).value_or("");
    lines_ = Lines(log_);
    return rc;
  }

  void RememberSources(const std::vector<std::string>& files) {
    for (const std::string& f : files) sources_[f] = platform::ReadFileBytes(f).value_or("?");
  }
  void ExpectSourcesUnchanged() {
    for (const auto& [path, bytes] : sources_)
      EXPECT_EQ(platform::ReadFileBytes(path).value_or("<gone>"), bytes) << path;
  }
  // The temp folder keeps nothing of the job.
  void ExpectTempEmpty() {
    std::vector<std::string> left;
    for (const auto& e : fs::directory_iterator(dir_.file("temp")))
      left.push_back(e.path().filename().string());
    EXPECT_TRUE(left.empty()) << "left in the temp folder: " << ::testing::PrintToString(left);
  }
  std::vector<std::string> HeaderLines() const {
    std::vector<std::string> h;
    for (const std::string& l : lines_)
      if (l.rfind("File ", 0) == 0 && l.find(" of ") != std::string::npos) h.push_back(l);
    return h;
  }

  testing::TempDir dir_;
  settings::TMainSettings settings_;
  std::map<std::string, std::string> sources_;
  std::string log_;
  std::vector<std::string> lines_;
};

TEST_F(JobTest, JpegToPng) {
  const std::string a = dir_.file("in/a.jpg"), b = dir_.file("in/b.png");
  MakePicture(a, 64, 48, 0x3366CC);
  MakePicture(b, 20, 30, 0x00FF00);
  RememberSources({a, b});
  WriteJob({a, b});
  EXPECT_EQ(Run("12"), 0) << log_;

  ASSERT_GE(lines_.size(), 16u) << log_;
  EXPECT_EQ(lines_[0], "Starting...");
  EXPECT_EQ(lines_[1], "Starting...");
  EXPECT_EQ(lines_[2], "File 1 of 2: " + a);
  EXPECT_EQ(lines_[3], "   Reading file... Done");
  EXPECT_EQ(lines_[4], "   Converting to PNG... Done");
  EXPECT_EQ(lines_[5], "   Saving result to: " + dir_.file("out/a.png"));
  EXPECT_TRUE(std::regex_match(lines_[6], std::regex(R"(   Processing time: \d+\.\d sec\.)")))
      << lines_[6];
  EXPECT_EQ(lines_[7], "File 2 of 2: " + b);
  EXPECT_EQ(lines_[12], "The conversion has been completed.");
  EXPECT_EQ(lines_[13], "2 of 2 files were successfully processed.");
  EXPECT_TRUE(std::regex_match(lines_[14], std::regex(R"(Total processing time: \d+\.\d sec\.)")))
      << lines_[14];
  EXPECT_EQ(lines_[15], "ver. 7.702");

  EXPECT_EQ(SizeOf(dir_.file("out/a.png")), std::make_pair(64, 48));
  EXPECT_EQ(SizeOf(dir_.file("out/b.png")), std::make_pair(20, 30));
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
  // Closing the console view deletes the three job files.
  EXPECT_FALSE(fs::exists(dir_.file("job.cfg")));
  EXPECT_FALSE(fs::exists(dir_.file("job.lst")));
}

// A ".raw" target has no writer row: the engine writes the pixels headerless, as the "Raw_bmp"
// settings describe them (here 8 bits, blue first, rows on 32 bits).
TEST_F(JobTest, RawTargetWritesThePixelsAsTheRawSettingsSay) {
  const std::string png = dir_.file("in/a.png");
  MakePicture(png, 5, 3, 0x3366CC);
  RememberSources({png});
  settings_.main.dest_ext = "RAW";
  settings_.raw_bmp.order = 2;
  settings_.raw_bmp.row_align = 32;
  WriteJob({png});
  EXPECT_EQ(Run("12"), 0) << log_;
  imaging::TIEBitmap source;
  ASSERT_TRUE(imaging::TImageEnIO(&source).LoadFromFile(png).ok());
  std::string expected;
  for (int y = 0; y < 3; ++y) {
    for (int x = 0; x < 5; ++x) {
      const imaging::TRGB c = source.GetPixels(x, y);
      expected += {static_cast<char>(c.b), static_cast<char>(c.g), static_cast<char>(c.r)};
    }
    expected += '\0';  // 15 bytes of a row padded to 16
  }
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("out/a.raw")).value_or(""), expected) << log_;
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

// Transparency without actions: a header that states no alpha skips the file's edit, a format
// whose header does not say (BMP) is looked at, and its transparent pixels get the colour.
TEST_F(JobTest, TransparencyAloneReachesAlphaThatOnlyTheDecodeShows) {
  const std::string bmp_path = dir_.file("in/alpha.bmp"), jpg = dir_.file("in/plain.jpg");
  imaging::TIEBitmap pic;
  ASSERT_TRUE(pic.Allocate(20, 10, imaging::TIEPixelFormat::ie24RGB).ok());
  pic.Fill(0x808080);
  pic.AddAlphaChannel(255);
  pic.SetAlpha(0, 0, 0);
  fs::create_directories(dir_.file("in"));
  ASSERT_TRUE(imaging::TImageEnIO(&pic).SaveToFile(bmp_path).ok());
  MakePicture(jpg, 16, 12, 0x3366CC);
  RememberSources({bmp_path, jpg});
  settings_.main.show_transp = true;
  settings_.main.transp_red = 255;
  settings_.main.transp_green = settings_.main.transp_blue = 0;
  WriteJob({bmp_path, jpg});
  EXPECT_EQ(Run("12"), 0) << log_;
  imaging::TIEBitmap out;
  ASSERT_TRUE(imaging::TImageEnIO(&out).LoadFromFile(dir_.file("out/alpha.png")).ok());
  ASSERT_TRUE(out.HasAlphaChannel());
  EXPECT_EQ(out.GetAlpha(0, 0), 0);
  EXPECT_EQ(out.GetPixels(0, 0), (imaging::TRGB{255, 0, 0}));
  EXPECT_EQ(out.GetPixels(5, 5), (imaging::TRGB{128, 128, 128}));
  EXPECT_EQ(SizeOf(dir_.file("out/plain.png")), std::make_pair(16, 12));
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(JobTest, FolderWithMasksAndSubfoldersDepthFirst) {
  const std::string root = dir_.file("photos");
  MakePicture(root + "/b.jpg", 16, 16, 0xFF0000);
  MakePicture(root + "/a.JPG", 16, 16, 0xFF0000);
  MakePicture(root + "/skip.png", 16, 16, 0xFF0000);
  MakePicture(root + "/2019/c.jpg", 16, 16, 0xFF0000);
  MakePicture(root + "/2019/deep/d.jpg", 16, 16, 0xFF0000);
  MakePicture(root + "/2020/e.jpg", 16, 16, 0xFF0000);
  RememberSources({root + "/b.jpg", root + "/2019/deep/d.jpg"});
  settings_.main.file_mask = "jpg";
  settings_.main.read_subfolders = true;
  settings_.main.dest_ext = "BMP";
  WriteJob({root});
  EXPECT_EQ(Run("12"), 0) << log_;
  const std::vector<std::string> expected = {
      "File 1 of 5: " + root + "/a.JPG", "File 2 of 5: " + root + "/b.jpg",
      "File 3 of 5: " + root + "/2019/c.jpg", "File 4 of 5: " + root + "/2019/deep/d.jpg",
      "File 5 of 5: " + root + "/2020/e.jpg"};
  EXPECT_EQ(HeaderLines(), expected);
  EXPECT_NE(log_.find("5 of 5 files were successfully processed."), std::string::npos);
  for (const char* name : {"a.bmp", "b.bmp", "c.bmp", "d.bmp", "e.bmp"})
    EXPECT_EQ(SizeOf(dir_.file(std::string("out/") + name)), std::make_pair(16, 16)) << name;
  EXPECT_FALSE(fs::exists(dir_.file("out/skip.bmp")));
  ExpectSourcesUnchanged();
}

TEST_F(JobTest, DirectRouteAndCheckOnlyJob) {
  const std::string svg = dir_.file("in/r.svg");
  fs::create_directories(dir_.file("in"));
  std::ofstream(svg) << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"100\" height=\"50\">"
                        "<rect width=\"100\" height=\"50\" fill=\"red\"/></svg>";
  MakePicture(dir_.file("in/c.jpg"), 20, 20, 0xFF);
  RememberSources({svg, dir_.file("in/c.jpg")});
  settings_.main.dest_ext = "PDF";
  WriteJob({dir_.file("in")});
  EXPECT_EQ(Run("12"), 0) << log_;
  EXPECT_NE(log_.find("File 2 of 2: " + svg +
                      "\n   Converting from SVG to PDF... Done\n"
                      "   Saving result to: " +
                      dir_.file("out/r.pdf")),
            std::string::npos)
      << log_;
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("out/r.pdf")).value_or("").substr(0, 5), "%PDF-");
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("out/c.pdf")).value_or("").substr(0, 5), "%PDF-");

  // Kind 2 only reads: every file is checked, nothing is written.
  fs::remove_all(dir_.file("out"));
  std::ofstream(dir_.file("in/broken.png")) << "no picture";
  WriteJob({dir_.file("in")});
  EXPECT_EQ(Run("21"), 1) << log_;
  EXPECT_NE(log_.find("   Checking file... c.jpg... OK"), std::string::npos) << log_;
  EXPECT_NE(
      log_.find("   Checking file... broken.png...\n   Error: Could not read file broken.png"),
      std::string::npos)
      << log_;
  EXPECT_NE(log_.find("2 of 3 files were successfully processed."), std::string::npos) << log_;
  EXPECT_FALSE(fs::exists(dir_.file("out")));
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(JobTest, PdfResultsAreFinishedWithPasswords) {
  const std::string svg = dir_.file("in/r.svg");
  fs::create_directories(dir_.file("in"));
  std::ofstream(svg) << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"10\" height=\"10\">"
                        "<rect width=\"10\" height=\"10\"/></svg>";
  MakePicture(dir_.file("in/c.jpg"), 20, 20, 0xFF);
  RememberSources({svg, dir_.file("in/c.jpg")});
  settings_.main.dest_ext = "PDF";
  settings_.pdf_write.set_user_password = true;
  settings_.pdf_write.user_password = "secret";
  WriteJob({dir_.file("in")});
  EXPECT_EQ(Run("12"), 0) << log_;
  for (const char* name : {"out/c.pdf", "out/r.pdf"}) {
    const std::string pdf = platform::ReadFileBytes(dir_.file(name)).value_or("");
    EXPECT_EQ(pdf.substr(0, 5), "%PDF-") << name;
    EXPECT_NE(pdf.find("/Encrypt"), std::string::npos) << name << " is not encrypted";
  }
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(JobTest, LanguageFileTranslatesWindowAndMessages) {
  // Languages/ beside the engine; a name of this test's own so parallel jobs are not affected.
  const std::string name = "testlang" + std::to_string(getpid());
  const std::string lng = testing::BuildDir() + "/Languages/" + name + ".lng";
  fs::create_directories(fs::path(lng).parent_path());
  std::ofstream(lng) << "[fLog]\nLabel3.Caption=Beginne...\n[fProcess]\nLabel1.Caption=Los...\n"
                        "Label3.Caption=von\nLabel15.Caption=Fertig\nLabel22.Caption=Datei\n";
  MakePicture(dir_.file("in/a.jpg"), 8, 8, 0);
  settings_.main.language = name;
  WriteJob({dir_.file("in/a.jpg")});
  const int rc = Run("12");
  fs::remove(lng);
  EXPECT_EQ(rc, 0) << log_;
  ASSERT_GE(lines_.size(), 4u) << log_;
  EXPECT_EQ(lines_[0], "Beginne...");
  EXPECT_EQ(lines_[1], "Los...");
  EXPECT_EQ(lines_[2], "Datei 1 von 1: " + dir_.file("in/a.jpg"));
  EXPECT_EQ(lines_[3], "   Reading file... Fertig");
  EXPECT_NE(log_.find("1 von 1 files were successfully processed."), std::string::npos) << log_;
}

TEST_F(JobTest, InvalidCodesAreRejected) {
  WriteJob({});
  for (const char* code : {"1", "15", "50"}) {
    WriteJob({});
    EXPECT_EQ(Run(code), 1) << code;
    EXPECT_NE(log_.find("Error! Unknown type of conversion."), std::string::npos) << log_;
    EXPECT_EQ(log_.find("files were successfully processed"), std::string::npos) << log_;
  }
}

TEST_F(JobTest, EmptyListEndsWithZeroOfZero) {
  WriteJob({});
  EXPECT_EQ(Run("33"), 0) << log_;
  EXPECT_NE(log_.find("0 of 0 files were successfully processed.\nver. 7.702"), std::string::npos)
      << log_;
  EXPECT_EQ(log_.find("Total processing time"), std::string::npos);
}

TEST_F(JobTest, SilentCodeExitsAndKeepsTheJobFiles) {
  MakePicture(dir_.file("in/a.jpg"), 8, 8, 0);
  WriteJob({dir_.file("in/a.jpg")});
  EXPECT_EQ(Run("36"), 0) << log_;
  EXPECT_TRUE(fs::exists(dir_.file("out/a.png")));
  EXPECT_TRUE(fs::exists(dir_.file("job.cfg")));  // only closing the window deletes them
  EXPECT_TRUE(fs::exists(dir_.file("job.lst")));
}

TEST_F(JobTest, OverwriteSkipAndFailedFileCount) {
  MakePicture(dir_.file("in/a.jpg"), 8, 8, 0);
  std::ofstream(dir_.file("in/broken.jpg")) << "not a picture";
  fs::create_directories(dir_.file("out"));
  std::ofstream(dir_.file("out/a.png")) << "earlier result";
  settings_.save.overwrite = 2;
  WriteJob({dir_.file("in/a.jpg"), dir_.file("in/broken.jpg")});
  EXPECT_EQ(Run("12"), 1) << log_;
  // Skipped before it is read, and not counted as processed.
  EXPECT_NE(log_.find("   Skipped: " + dir_.file("out/a.png") + " was skipped"), std::string::npos)
      << log_;
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("out/a.png")).value_or(""), "earlier result");
  EXPECT_NE(log_.find("   Error: Could not read file broken.jpg"), std::string::npos) << log_;
  EXPECT_NE(log_.find("0 of 2 files were successfully processed."), std::string::npos) << log_;
  EXPECT_NE(log_.find("Files skipped: 1"), std::string::npos) << log_;
  ExpectTempEmpty();
}

// A 16-bit TIFF becomes the same JPEG as its 8-bit copy (the deep picture is narrowed while it
// is decoded), yet a target that holds 16 bits still gets all of them.
TEST_F(JobTest, DeepTiffToJpegEqualsItsEightBitCopyAndPngKeepsTheDepth) {
  imaging::TIEBitmap deep;
  ASSERT_TRUE(deep.Allocate(97, 61, imaging::TIEPixelFormat::ie48RGB).ok());
  for (int y = 0; y < deep.Height(); ++y) {
    auto* row = reinterpret_cast<uint16_t*>(deep.Scanline(y));
    for (int i = 0; i < 3 * deep.Width(); ++i)
      row[i] = static_cast<uint16_t>((i * 977 + y * 40009) % 65536);
  }
  imaging::TIEBitmap eight = deep;
  ASSERT_TRUE(eight.ConvertTo(imaging::TIEPixelFormat::ie24RGB).ok());
  fs::create_directories(dir_.file("in"));
  for (auto [bmp, name] : {std::pair{&deep, "deep.tif"}, std::pair{&eight, "eight.tif"}}) {
    imaging::TImageEnIO io(bmp);
    io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_LZW;
    ASSERT_TRUE(io.SaveToFile(dir_.file(std::string("in/") + name)).ok());
  }
  RememberSources({dir_.file("in/deep.tif"), dir_.file("in/eight.tif")});
  settings_.main.dest_ext = "JPG";
  settings_.jpg.quality = 80;
  WriteJob({dir_.file("in/deep.tif"), dir_.file("in/eight.tif")});
  ASSERT_EQ(Run("12"), 0) << log_;
  const auto deep_jpg = platform::ReadFileBytes(dir_.file("out/deep.jpg"));
  ASSERT_TRUE(deep_jpg.has_value());
  EXPECT_TRUE(deep_jpg == platform::ReadFileBytes(dir_.file("out/eight.jpg")));

  settings_.main.dest_ext = "PNG";
  WriteJob({dir_.file("in/deep.tif")});
  ASSERT_EQ(Run("12"), 0) << log_;
  imaging::TIEBitmap png;
  imaging::TImageEnIO io(&png);
  ASSERT_TRUE(io.LoadFromFile(dir_.file("out/deep.png")).ok());
  EXPECT_EQ(io.Params().BitsPerSample, 16);
  ASSERT_EQ(png.PixelFormat(), imaging::TIEPixelFormat::ie48RGB);
  for (int y = 0; y < deep.Height(); ++y)
    ASSERT_EQ(std::memcmp(png.Scanline(y), deep.Scanline(y), deep.RowLen()), 0) << "row " << y;
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(JobTest, ZipAndWinmailAreExpandedAndTheirFoldersRemoved) {
  MakePicture(dir_.file("pack/a.jpg"), 10, 10, 0);
  MakePicture(dir_.file("pack/b.jpg"), 12, 12, 0);
  const std::string zip = dir_.file("mail/pack.zip");
  fs::create_directories(dir_.file("mail"));
  const int zrc = tools::RunAndWait(std::string("7zz a -tzip ") + tools::Quoted(zip) + " " +
                                        tools::Quoted(dir_.file("pack/a.jpg")) + " " +
                                        tools::Quoted(dir_.file("pack/b.jpg")),
                                    tools::kHidden);
  if (!fs::exists(zip)) GTEST_SKIP() << "cannot make a zip (7zz: Debian 7zip), rc " << zrc;
  std::vector<std::string> entries = {zip};
  const std::string winmail_src = testing::CorpusFile("special/winmail.dat");
  const bool tnef = !winmail_src.empty() && fs::exists("/usr/bin/tnef");
  if (tnef) {
    fs::copy_file(winmail_src, dir_.file("mail/winmail.dat"));
    entries.push_back(dir_.file("mail/winmail.dat"));
  }
  RememberSources(entries);
  settings_.main.file_mask = "jpg";
  WriteJob(entries);
  EXPECT_EQ(Run("12"), 0) << log_;
  const std::vector<std::string> headers = HeaderLines();
  ASSERT_EQ(headers.size(), tnef ? 3u : 2u) << log_;
  EXPECT_EQ(headers[0],
            "File 1 of " + std::to_string(headers.size()) + ": " + zip + "_(extracted)/a.jpg");
  if (tnef)
    EXPECT_EQ(headers[2],
              "File 3 of 3: " + dir_.file("mail/winmail.dat_(extracted)/zappa_av1.jpg"));
  EXPECT_TRUE(fs::exists(dir_.file("out/a.png")));
  EXPECT_TRUE(fs::exists(dir_.file("out/b.png")));
  EXPECT_FALSE(fs::exists(zip + "_(extracted)"));
  EXPECT_FALSE(fs::exists(dir_.file("mail/winmail.dat_(extracted)")));
  ExpectSourcesUnchanged();
  if (!tnef) GTEST_SKIP() << "winmail.dat part skipped: needs tnef (Debian tnef) and the corpus";
}

TEST_F(JobTest, TempFolderProblems) {
  MakePicture(dir_.file("in/a.jpg"), 8, 8, 0);
  settings_.main.temp_folder = "/proc/no-such-folder/temp";
  WriteJob({dir_.file("in/a.jpg")});
  EXPECT_EQ(Run("12"), 1);
  EXPECT_NE(log_.find("Error! Unable to create the temp folder: /proc/no-such-folder/temp/"),
            std::string::npos)
      << log_;
  // A folder that exists but takes no files: a warning, then the job goes on.
  settings_.main.temp_folder = "/proc/1";
  WriteJob({dir_.file("in/a.jpg")});
  Run("12");
  EXPECT_NE(log_.find("Warning: Access to Pictavo Temp folder /proc/1/ is denied."),
            std::string::npos)
      << log_;
  EXPECT_NE(log_.find("files were successfully processed."), std::string::npos) << log_;
}

// Starts the engine in the background with its output in `out`.
pid_t Spawn(const std::vector<std::string>& args, const std::string& out) {
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_adddup2(&actions, 1, 2);
  std::vector<char*> argv;
  for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
  argv.push_back(nullptr);
  pid_t pid = -1;
  posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  return pid;
}

bool WaitForText(const std::string& file, const std::string& text, int seconds) {
  for (int i = 0; i < seconds * 50; ++i) {
    if (platform::ReadFileBytes(file).value_or("").find(text) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  return false;
}

// The front end starts one engine per job, so jobs run side by side over one temp folder: each
// keeps its probe file, its ICC copy and its workers' scratch in a folder of its own, and none
// warns of a temp folder it cannot use or removes what another is using.
TEST_F(JobTest, TwentyEnginesSideBySideOverOneTempFolder) {
  constexpr int kJobs = 20;
  std::vector<pid_t> engines;
  // The job files of job j; closing its view deletes them, so every round writes them again.
  auto write_job = [this](const std::string& job) {
    std::ofstream(job + "/job.lst", std::ios::binary) << job + "/in/a.jpg\r\n";
    settings_.main.use_file_list = job + "/job.lst";
    settings_.main.dest_path = job + "/out";
    return settings_.write_ini_settings(job + "/job.cfg", 1).ok();
  };
  for (int j = 0; j < kJobs; ++j)
    MakePicture(dir_.file("job" + std::to_string(j) + "/in/a.jpg"), 24, 16, 0x204060 + j);
  // Two rounds: a collision needs two jobs in the same instant, so more starts find more.
  constexpr int kRounds = 2;
  const auto start = std::chrono::steady_clock::now();
  int failed = 0;
  for (int round = 0; round < kRounds; ++round) {
    engines.clear();
    for (int j = 0; j < kJobs; ++j) {
      const std::string job = dir_.file("job" + std::to_string(j));
      fs::remove_all(job + "/out");
      ASSERT_TRUE(write_job(job));
      engines.push_back(Spawn({Engine(), "12", job + "/job.cfg"}, job + "/engine.out"));
      ASSERT_GT(engines.back(), 0);
    }
    for (int j = 0; j < kJobs; ++j) {
      int status = 0;
      waitpid(engines[j], &status, 0);
      const std::string job = dir_.file("job" + std::to_string(j));
      const std::string log = platform::ReadFileBytes(job + "/engine.out").value_or("");
      const bool ok = WIFEXITED(status) && WEXITSTATUS(status) == 0 &&
                      log.find("1 of 1 files were successfully processed.") != std::string::npos &&
                      log.find("Warning") == std::string::npos &&
                      SizeOf(job + "/out/a.png") == std::make_pair(24, 16);
      EXPECT_TRUE(ok) << "job " << j << ":\n" << log;
      failed += ok ? 0 : 1;
    }
  }
  std::printf("[ figures  ] %d rounds of %d engines side by side: %d failed, %.2f s in all\n",
              kRounds, kJobs, failed,
              std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  ExpectTempEmpty();
}

// A display that cannot be opened (a DISPLAY naming no server, or none at all with PICTAVO_UI=gui)
// gives one warning line and the console view; the job runs. Qt would abort the process.
TEST_F(JobTest, DisplayThatCannotBeOpenedFallsBackToTheConsole) {
  MakePicture(dir_.file("in/a.jpg"), 12, 8, 0x808080);
  unsetenv("QT_QPA_PLATFORM");
  unsetenv("XDG_SESSION_TYPE");
  unsetenv("WAYLAND_DISPLAY");
  struct Case {
    const char* display;  // nullptr: unset
    const char* ui;
  };
  for (const Case& c : {Case{":987", nullptr}, Case{nullptr, "gui"}}) {
    SCOPED_TRACE(c.display ? c.display : "no DISPLAY, PICTAVO_UI=gui");
    c.display ? setenv("DISPLAY", c.display, 1) : unsetenv("DISPLAY");
    c.ui ? setenv("PICTAVO_UI", c.ui, 1) : unsetenv("PICTAVO_UI");
    fs::remove_all(dir_.file("out"));
    WriteJob({dir_.file("in/a.jpg")});
    EXPECT_EQ(Run("12"), 0) << log_;
    const auto warnings = std::count_if(lines_.begin(), lines_.end(), [](const std::string& l) {
      return l.find("cannot open the display") != std::string::npos ||
             l.find("built without Qt 6") != std::string::npos;
    });
    EXPECT_EQ(warnings, 1) << log_;
    EXPECT_NE(log_.find("1 of 1 files were successfully processed."), std::string::npos) << log_;
    EXPECT_TRUE(fs::exists(dir_.file("out/a.png")));
  }
  unsetenv("DISPLAY");
  setenv("PICTAVO_UI", "console", 1);
  ExpectTempEmpty();
}

class StopTest : public JobTest {
 protected:
  // Thirty large pictures, one worker, so that the job is still running when it is stopped.
  std::vector<std::string> ManyFiles() {
    std::vector<std::string> files;
    for (int i = 0; i < 30; ++i) {
      files.push_back(dir_.file("in/p" + std::to_string(10 + i) + ".jpg"));
      MakePicture(files.back(), 1600, 1200, 0x102030 * (i + 1));
    }
    RememberSources(files);
    settings_.main.cpu_priority = 1;
    settings_.main.dest_ext = "TIF";
    WriteJob({dir_.file("in")});
    return files;
  }
  std::vector<std::string> Results() {
    std::vector<std::string> r;
    if (fs::exists(dir_.file("out")))
      for (const auto& e : fs::directory_iterator(dir_.file("out"))) r.push_back(e.path().string());
    return r;
  }
};

TEST_F(StopTest, CtrlCStopsHandingOutFiles) {
  ManyFiles();
  const std::string out = dir_.file("engine.out");
  pid_t pid = Spawn({Engine(), "12", dir_.file("job.cfg")}, out);
  ASSERT_GT(pid, 0);
  ASSERT_TRUE(WaitForText(out, "File 2 of 30", 60)) << platform::ReadFileBytes(out).value_or("");
  kill(pid, SIGINT);
  int status = 0;
  waitpid(pid, &status, 0);
  log_ = platform::ReadFileBytes(out).value_or("");
  EXPECT_NE(log_.find("The conversion process was terminated by user."), std::string::npos) << log_;
  std::smatch m;
  ASSERT_TRUE(std::regex_search(log_, m, std::regex(R"((\d+) of 30 files were successfully)")));
  const int done = std::stoi(m[1]);
  EXPECT_GE(done, 1);
  EXPECT_LT(done, 30);
  const std::vector<std::string> results = Results();
  EXPECT_EQ(static_cast<int>(results.size()), done);
  for (const std::string& r : results) EXPECT_EQ(SizeOf(r), std::make_pair(1600, 1200)) << r;
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(StopTest, KilledEngineLeavesNoHalfWrittenResult) {
  ManyFiles();
  const std::string out = dir_.file("engine.out");
  pid_t pid = Spawn({Engine(), "12", dir_.file("job.cfg")}, out);
  ASSERT_GT(pid, 0);
  ASSERT_TRUE(WaitForText(out, "File 3 of 30", 60));
  kill(pid, SIGKILL);
  int status = 0;
  waitpid(pid, &status, 0);
  // Every file under a result name is complete; scratch files are hidden ".rcp*.part" ones.
  for (const std::string& r : Results()) {
    if (fs::path(r).filename().string().front() == '.') continue;
    EXPECT_EQ(SizeOf(r), std::make_pair(1600, 1200)) << r;
  }
  ExpectSourcesUnchanged();

  // The next job into that folder removes what the killed engine left, whether or not the
  // kill came mid-write, and leaves a running process's scratch file alone.
  const std::string dead = dir_.file("out/.rcp" + std::to_string(pid) + "_7.part");
  const std::string alive = dir_.file("out/.rcp" + std::to_string(getpid()) + "_0.part");
  std::ofstream(dead) << "half";
  std::ofstream(alive) << "in progress";
  WriteJob({dir_.file("in/p10.jpg")});
  const std::string again = dir_.file("again.out");
  const pid_t second = Spawn({Engine(), "12", dir_.file("job.cfg")}, again);
  ASSERT_GT(second, 0);
  waitpid(second, &status, 0);
  std::vector<std::string> left;
  for (const std::string& r : Results())
    if (fs::path(r).filename().string().rfind(".rcp", 0) == 0) left.push_back(r);
  EXPECT_EQ(left, std::vector<std::string>{alive}) << platform::ReadFileBytes(again).value_or("");
}

class ConvertTest : public JobTest {
 protected:
  void SetUp() override {
    JobTest::SetUp();
    if (!IsSkipped() && !fs::exists(testing::BuildDir() + "/pictavo"))
      GTEST_SKIP() << "build/pictavo is not built";
  }
  int Convert(const std::string& words) {
    const std::string out = dir_.file("convert.out");
    const int rc =
        tools::RunBatch(tools::Quoted(testing::BuildDir() + "/pictavo") + " convert " + words +
                            " --set Main/Temp_folder=" + tools::Quoted(dir_.file("temp")) + " > " +
                            tools::Quoted(out) + " 2>&1",
                        dir_.file("temp"));
    log_ = platform::ReadFileBytes(out).value_or("");
    return rc;
  }
};

TEST_F(ConvertTest, FolderWithActions) {
  MakePicture(dir_.file("in/a.jpg"), 40, 30, 0x808080);
  MakePicture(dir_.file("in/b.bmp"), 60, 30, 0x808080);
  RememberSources({dir_.file("in/a.jpg"), dir_.file("in/b.bmp")});
  std::ofstream(dir_.file("half.act")) << "resize(50;50;1;1;3;0)\n";
  fs::create_directories(dir_.file("temp"));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("in")) + " --to png --output " +
                    tools::Quoted(dir_.file("out")) + " --actions " +
                    tools::Quoted(dir_.file("half.act"))),
            0)
      << log_;
  EXPECT_NE(log_.find("   Applying editing actions:"), std::string::npos) << log_;
  EXPECT_NE(log_.find("2 of 2 files were successfully processed."), std::string::npos) << log_;
  EXPECT_EQ(SizeOf(dir_.file("out/a.png")), std::make_pair(20, 15));
  EXPECT_EQ(SizeOf(dir_.file("out/b.png")), std::make_pair(30, 15));
  EXPECT_TRUE(fs::exists(dir_.file("half.act")));  // the user's own file is only read
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(ConvertTest, LongDocumentsAndPageFilesUseSpareCores) {
  // A lone long PDF is rendered in page ranges side by side and its pages saved side by side:
  // every page once, in order, named by its number.
  if (!fs::exists(testing::BuildDir() + "/utl/pdfpsai.bin") ||
      std::system("command -v gs > /dev/null 2>&1") != 0)
    GTEST_SKIP() << "install ghostscript";
  const int pages = 9;
  {
    std::ofstream ps(dir_.file("doc.ps"));
    ps << "%!PS\n";
    for (int n = 1; n <= pages; ++n)
      ps << "<< /PageSize [144 72] >> setpagedevice " << n / 10.0
         << " setgray 0 0 144 72 rectfill showpage\n";
  }
  fs::create_directories(dir_.file("in"));
  ASSERT_EQ(std::system(("gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -o '" +
                         dir_.file("in/doc.pdf") + "' '" + dir_.file("doc.ps") + "'")
                            .c_str()),
            0);
  RememberSources({dir_.file("in/doc.pdf")});
  fs::create_directories(dir_.file("temp"));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("in/doc.pdf")) + " --to png --output " +
                    tools::Quoted(dir_.file("out")) +
                    " --set PDF_EPS_PS/Res=36 --set Multipage/Option=3"),
            0)
      << log_;
  EXPECT_NE(log_.find("(9 pages)"), std::string::npos) << log_;
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(dir_.file("out")))
    names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  ASSERT_EQ(names.size(), static_cast<size_t>(pages)) << ::testing::PrintToString(names) << log_;
  for (int n = 1; n <= pages; ++n) {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    ASSERT_TRUE(io.LoadFromFile(dir_.file("out/" + names[n - 1])).ok()) << names[n - 1];
    EXPECT_EQ(bmp.Width(), 72) << names[n - 1];
    EXPECT_NEAR(bmp.GetPixels(36, 18).r, 255 * n / 10, 3) << names[n - 1];
  }
  ExpectSourcesUnchanged();
  ExpectTempEmpty();
}

TEST_F(ConvertTest, GuiWithoutADisplayRunsInTheConsole) {
  MakePicture(dir_.file("in/a.jpg"), 12, 8, 0x808080);
  unsetenv("QT_QPA_PLATFORM");
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  fs::create_directories(dir_.file("temp"));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("in/a.jpg")) + " --to png --gui --output " +
                    tools::Quoted(dir_.file("out"))),
            0)
      << log_;
  const std::vector<std::string> lines = Lines(log_);
  EXPECT_EQ(std::count_if(lines.begin(), lines.end(),
                          [](const std::string& l) {
                            return l.find("cannot open the display") != std::string::npos ||
                                   l.find("built without Qt 6") != std::string::npos;
                          }),
            1)
      << log_;
  EXPECT_TRUE(fs::exists(dir_.file("out/a.png")));
  ExpectTempEmpty();
}

TEST_F(ConvertTest, ExitStatusTellsFailuresAndUsageErrors) {
  std::ofstream(dir_.file("broken.png")) << "no picture";
  fs::create_directories(dir_.file("temp"));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("broken.png")) + " --to jpg --output " +
                    tools::Quoted(dir_.file("out"))),
            1)
      << log_;
  EXPECT_NE(log_.find("0 of 1 files were successfully processed."), std::string::npos) << log_;
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("broken.png"))), 2) << log_;  // no --to
  EXPECT_NE(log_.find("--to EXT is needed"), std::string::npos) << log_;
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("nothing-here.png")) + " --to jpg"), 2);
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("broken.png")) + " --to jpg --set Nope"), 2);
}

TEST_F(ConvertTest, DryRunNamesCollisionsApartAndWritesNothing) {
  MakePicture(dir_.file("one/photo.jpg"), 8, 8, 0);
  MakePicture(dir_.file("two/photo.jpg"), 8, 8, 0);
  MakePicture(dir_.file("two/other.jpg"), 8, 8, 0);
  fs::create_directories(dir_.file("temp"));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("one")) + " " + tools::Quoted(dir_.file("two")) +
                    " --to png --dry-run --output " + tools::Quoted(dir_.file("out"))),
            0)
      << log_;
  EXPECT_NE(log_.find(dir_.file("two/other.jpg") + " -> " + dir_.file("out/other.png")),
            std::string::npos)
      << log_;
  EXPECT_NE(log_.find(dir_.file("two/photo.jpg") + " -> " + dir_.file("out/photo (2).png") +
                      "  (the name photo.png was taken by " + dir_.file("one/photo.jpg")),
            std::string::npos)
      << log_;
  EXPECT_NE(log_.find("3 file(s), 1 result(s) renamed"), std::string::npos) << log_;
  EXPECT_FALSE(fs::exists(dir_.file("out")));
  EXPECT_EQ(Convert(tools::Quoted(dir_.file("one")) + " --to png --dry-run --output " +
                    tools::Quoted(dir_.file("out"))),
            0)
      << log_;
}

}  // namespace
}  // namespace pictavo
