// The reader's chain, walked over the real key lists with recording routines that fail or
// succeed on demand, and Read()'s own steps around it (copies, settings file, tool folder).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "read/read_routes.h"
#include "read/zub_read.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::reader {
namespace {
namespace fs = std::filesystem;
using pictavo::testing::TempDir;

// What the recording routine saw at each call.
struct Call {
  int row;
  std::string src_file;
  bool settings_file_exists;
  std::string settings_file;
};
std::vector<Call> g_calls;
std::set<int> g_succeed;

int Recording(TZubRead& r) {
  g_calls.push_back({r.route_row, r.src_file, fs::exists(r.settings_file), r.settings_file});
  if (!g_succeed.count(r.route_row)) return 1;
  std::ofstream(r.out_file) << "picture";
  return 0;
}

// The real table's key lists, every routine replaced by the recorder.
std::vector<ReadRoute> RecordingTable() {
  std::vector<ReadRoute> rows(ReadRoutes().begin(), ReadRoutes().end());
  for (ReadRoute& row : rows) row.read = Recording;
  return rows;
}

std::vector<int> Rows() {
  std::vector<int> rows;
  for (const Call& c : g_calls) rows.push_back(c.row);
  return rows;
}

std::vector<std::string> FilesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(folder))
    names.push_back(e.path().filename().string());
  return names;
}

class ReadChain : public ::testing::Test {
 protected:
  void SetUp() override {
    g_calls.clear();
    g_succeed.clear();
    fs::create_directories(dir_.path() / "engine" / "utl");
    fs::create_directories(dir_.path() / "temp");
    fs::create_directories(dir_.path() / "in");
    settings_.SetDefault();
    reader_.settings = &settings_;
    reader_.temp_folder = (dir_.path() / "temp").string() + "/";
    reader_.engine_folder = (dir_.path() / "engine").string();
    reader_.out_file = dir_.file("out.png");
  }

  // An input file: a copy of a corpus picture, or a few bytes of text.
  // A file named `name`: a copy of the corpus picture when there is one; else, when a picture
  // is wanted, one made here in the corpus file's format; else a text file.
  std::string Input(const std::string& name, const std::string& corpus = "",
                    imaging::TIEPixelFormat format = imaging::TIEPixelFormat::ie24RGB) {
    const std::string path = (dir_.path() / "in" / name).string();
    if (corpus.empty()) {
      std::ofstream(path) << "not a picture\n";
    } else if (const std::string real = pictavo::testing::CorpusFile(corpus); !real.empty()) {
      fs::copy_file(real, path);
    } else {
      imaging::TIEBitmap bmp;
      EXPECT_TRUE(bmp.Allocate(24, 16, format).ok());
      bmp.Fill(0x336699);
      imaging::TImageEnIO io(&bmp);
      const std::string made = path + fs::path(corpus).extension().string();
      EXPECT_TRUE(io.SaveToFile(made).ok()) << made;
      fs::rename(made, path);
    }
    return path;
  }

  int Read(const std::string& src) {
    reader_.src_file = src;
    const auto table = RecordingTable();
    return reader_.ReadWith(table);
  }

  fs::path TempFolder() const { return dir_.path() / "temp"; }

  TempDir dir_;
  settings::TMainSettings settings_;
  TZubRead reader_;
};

TEST(ReadRoutes, TableKeepsItsQuirks) {
  const auto routes = ReadRoutes();
  ASSERT_EQ(routes.size(), 78u);
  auto rows_for = [&](std::string_view key) {
    std::vector<int> rows;
    for (size_t i = 0; i < routes.size(); ++i)
      if (RouteMatches(routes[i], key)) rows.push_back(static_cast<int>(i) + 1);
    return rows;
  };
  // Every TIFF is offered to camera raw before tif_read; ".tiff" is not in the raw list.
  EXPECT_EQ(rows_for(";tif;"), (std::vector<int>{8, 49}));
  EXPECT_EQ(rows_for(";tiff;"), (std::vector<int>{49}));
  // The fourth general list has no leading ";": "iph" matches nothing.
  EXPECT_TRUE(rows_for(";iph;").empty());
  EXPECT_EQ(rows_for(";ipt;"), (std::vector<int>{21}));
  // The vector list's empty entries catch files without extension before im_read.
  EXPECT_EQ(rows_for(";;"), (std::vector<int>{43, 77}));
  // Row 42's two lists are separate: joined they would hold ";;" as well.
  EXPECT_EQ(rows_for(";stl;"), (std::vector<int>{42}));
  EXPECT_EQ(rows_for(";ter;"), (std::vector<int>{42}));
  EXPECT_EQ(rows_for(";cal;"), (std::vector<int>{18, 31, 32, 59}));
  EXPECT_EQ(rows_for(";dat;"), (std::vector<int>{23, 75}));
  EXPECT_EQ(rows_for(";exr;"), (std::vector<int>{9, 27}));
  EXPECT_EQ(rows_for(";$s;"), (std::vector<int>{19}));
  EXPECT_EQ(routes[7].read, &raw_read);
  EXPECT_EQ(routes[48].read, &tif_read);
  EXPECT_EQ(routes[76].read, &im_read);
}

TEST_F(ReadChain, FailedRowsPassTheFileOnAndSuccessStopsTheChain) {
  const std::string cal = Input("drawing.cal");
  EXPECT_NE(Read(cal), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{18, 31, 32, 59}));

  g_calls.clear();
  g_succeed = {31};
  EXPECT_EQ(Read(cal), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{18, 31}));
}

TEST_F(ReadChain, TiffGoesToCameraRawThenTifReadThenTheEngine) {
  const std::string tif = Input("photo.tif", "raster/tiff/hopper_lzw.tif");
  reader_.out_file = dir_.file("out.tif");
  EXPECT_EQ(Read(tif), 0);  // both rows fail; the engine reads the 8-bit TIFF
  EXPECT_EQ(Rows(), (std::vector<int>{8, 49}));
  EXPECT_TRUE(fs::exists(reader_.out_file));
  EXPECT_TRUE(reader_.read_flag);
}

TEST_F(ReadChain, FilesWithoutExtensionOrUnmatchedKeysReachTheEngine) {
  EXPECT_NE(Read(Input("noext")), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{43, 77}));

  g_calls.clear();
  const std::string iph = Input("scan.iph", "raster/png/hopper.png");
  EXPECT_EQ(Read(iph), 0);
  EXPECT_TRUE(g_calls.empty());
  EXPECT_TRUE(fs::exists(reader_.out_file));

  // Misnamed: a PNG named .jpg is read by its content.
  g_calls.clear();
  fs::remove(reader_.out_file);
  const std::string misnamed = Input("photo.jpg", "special/png_named_as.jpg");
  if (!fs::exists(misnamed) || fs::file_size(misnamed) < 100) GTEST_SKIP() << "corpus absent";
  EXPECT_EQ(Read(misnamed), 0);
  EXPECT_TRUE(fs::exists(reader_.out_file));
}

TEST_F(ReadChain, DatFilesAndPostScriptDisguisedAsDat) {
  EXPECT_NE(Read(Input("movie.dat")), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{23, 75}));

  g_calls.clear();
  const std::string ps = (dir_.path() / "in" / "tree.dat").string();
  std::ofstream(ps) << "%!PS-Adobe-3.0\n%%BoundingBox: 0 0 10 10\nshowpage\n";
  EXPECT_NE(Read(ps), 0);
  ASSERT_EQ(Rows(), (std::vector<int>{38}));  // the PostScript row
  EXPECT_EQ(fs::path(g_calls[0].src_file).extension(), ".ps");
  EXPECT_EQ(g_calls[0].src_file.rfind(reader_.temp_folder, 0), 0u);
  EXPECT_EQ(reader_.src_file, ps);
  EXPECT_TRUE(FilesIn(TempFolder()).empty());
}

TEST_F(ReadChain, DicomNeverFallsBackToTheEngine) {
  const std::string dcm = Input("scan.dcm", "raster/png/hopper.png");
  EXPECT_NE(Read(dcm), 0);  // the engine could load this PNG, but must not
  EXPECT_EQ(Rows(), (std::vector<int>{58}));
  EXPECT_FALSE(fs::exists(reader_.out_file));
}

TEST_F(ReadChain, UnsafeNamesAreReadFromACopyThatIsGoneAfterwards) {
  const std::string photo = Input("My photo.jpg", "raster/png/hopper.png");
  EXPECT_EQ(Read(photo), 0);  // ".jpg" has no row: the engine reads the copy
  EXPECT_TRUE(FilesIn(TempFolder()).empty());
  // A row that matches shows what the routines are given.
  const std::string png = Input("My photo.png", "raster/png/hopper.png");
  g_calls.clear();
  EXPECT_EQ(Read(png), 0);
  ASSERT_EQ(Rows(), (std::vector<int>{6}));
  EXPECT_NE(g_calls[0].src_file, png);
  EXPECT_EQ(fs::path(g_calls[0].src_file).extension(), ".png");
  EXPECT_EQ(fs::path(g_calls[0].src_file).parent_path(), TempFolder());
  EXPECT_EQ(reader_.src_file, png);
  EXPECT_TRUE(FilesIn(TempFolder()).empty());

  // DGN is read under its own name; TAB and PLT need their sibling files.
  for (const char* name : {"My plan.dgn", "a b.plt", "a b.tab"}) {
    g_calls.clear();
    const std::string path = Input(name);
    (void)Read(path);
    ASSERT_FALSE(g_calls.empty()) << name;
    EXPECT_EQ(g_calls[0].src_file, path) << name;
  }
}

TEST_F(ReadChain, ScratchSettingsFileLivesOnlyDuringTheRead) {
  reader_.settings_file = dir_.file("missing.cfg");
  (void)Read(Input("x.cal"));
  ASSERT_FALSE(g_calls.empty());
  EXPECT_TRUE(g_calls[0].settings_file_exists);
  EXPECT_EQ(fs::path(g_calls[0].settings_file).extension(), ".tmp");
  EXPECT_TRUE(reader_.settings_file.empty());
  EXPECT_FALSE(fs::exists(g_calls[0].settings_file));
  EXPECT_TRUE(FilesIn(TempFolder()).empty());

  // An existing settings file is used as it is and kept.
  const std::string cfg = dir_.file("job.cfg");
  std::ofstream(cfg) << "[Main]\n";
  reader_.settings_file = cfg;
  g_calls.clear();
  (void)Read(Input("y.cal"));
  EXPECT_EQ(g_calls[0].settings_file, cfg);
  EXPECT_EQ(reader_.settings_file, cfg);
  EXPECT_TRUE(fs::exists(cfg));
}

TEST_F(ReadChain, MissingToolFolderGivesThreeEvenForAPlainPng) {
  fs::remove(dir_.path() / "engine" / "utl");
  const std::string png = Input("a.png", "raster/png/hopper.png");
  EXPECT_EQ(Read(png), 3);
  EXPECT_TRUE(g_calls.empty());
  EXPECT_FALSE(fs::exists(reader_.out_file));
}

TEST_F(ReadChain, DeepTiffIsReReadByTheRasterToolEvenAfterASuccess) {
  const std::string deep =
      Input("deep.tif", "special/tiff_16bit_RGB.tiff", imaging::TIEPixelFormat::ie48RGB);
  const std::string flat = Input("flat.tif", "raster/tiff/hopper_lzw.tif");
  // A fake raster tool that records its calls and copies its input to the "-o" file.
  const fs::path tool = dir_.path() / "engine" / "utl" / "f300_uni.exe";
  const std::string log = dir_.file("f300.log");
  std::ofstream(tool) << "#!/bin/sh\necho \"$@\" >> '" << log
                      << "'\nout=\nwhile [ $# -gt 1 ]; do [ \"$1\" = -o ] && out=$2; shift; done\n"
                         "cp \"$1\" \"$out\"\n";
  fs::permissions(tool, fs::perms::owner_all);
  reader_.out_file = dir_.file("out.tif");

  g_succeed = {49};
  EXPECT_EQ(Read(deep), 0);
  EXPECT_EQ(Rows(), (std::vector<int>{8, 49}));
  std::ifstream in(log);
  std::string line;
  ASSERT_TRUE(std::getline(in, line));
  EXPECT_NE(line.find("-out tiff"), std::string::npos);

  fs::remove(log);
  g_calls.clear();
  EXPECT_EQ(Read(flat), 0);
  EXPECT_FALSE(fs::exists(log));  // 24 bits per pixel: no re-read
  EXPECT_TRUE(FilesIn(TempFolder()).empty());
}

// When the raster tool is the engine's own adapter, the deep TIFF it would only hand to
// ImageMagick and back is decoded in-process: the tool never runs, and the first page comes out
// with its 16-bit samples as they are, as from the tool's TIFF. A deep TIFF that the engine's
// decoder reads only through its 8-bit fall-back (tiles) still goes to the tool.
TEST_F(ReadChain, DeepTiffIsDecodedInProcessWhenTheRasterToolIsOurAdapter) {
  const std::string deep = dir_.file("in/deep.tif");
  {
    imaging::TIEBitmap bmp;
    ASSERT_TRUE(bmp.Allocate(37, 23, imaging::TIEPixelFormat::ie48RGB).ok());
    for (int y = 0; y < bmp.Height(); ++y) {
      auto* row = reinterpret_cast<uint16_t*>(bmp.Scanline(y));
      for (int i = 0; i < bmp.Width() * 3; ++i) row[i] = static_cast<uint16_t>(i * 1733 + y * 611);
    }
    imaging::TImageEnIO io(&bmp);
    io.Params().BitsPerSample = 16;
    ASSERT_TRUE(io.SaveToFile(deep).ok());
    ASSERT_TRUE(io.ParamsFromFile(deep).ok());
    ASSERT_EQ(io.Params().BitsPerSample, 16);
  }
  const fs::path adapter = dir_.path() / "engine" / "utl" / "pictavo_adapter";
  const std::string log = dir_.file("adapter.log");
  std::ofstream(adapter) << "#!/bin/sh\necho \"$@\" >> '" << log << "'\nexit 1\n";
  fs::permissions(adapter, fs::perms::owner_all);
  fs::create_symlink(adapter, dir_.path() / "engine" / "utl" / "f300_uni.exe");
  reader_.out_file = dir_.file("out.tif");

  g_succeed = {49};
  EXPECT_EQ(Read(deep), 0);
  EXPECT_FALSE(fs::exists(log)) << "the raster tool ran";
  imaging::TIEBitmap source, read;
  imaging::TImageEnIO source_io(&source), read_io(&read);
  ASSERT_TRUE(source_io.LoadFromFile(deep).ok());
  ASSERT_TRUE(read_io.LoadFromFile(reader_.out_file).ok());
  EXPECT_EQ(read_io.Params().ImageCount, 1);
  ASSERT_EQ(read.PixelFormat(), imaging::TIEPixelFormat::ie48RGB);
  ASSERT_EQ(read.Width(), source.Width());
  ASSERT_EQ(read.Height(), source.Height());
  for (int y = 0; y < read.Height(); ++y)
    ASSERT_EQ(std::memcmp(read.Scanline(y), source.Scanline(y), read.RowLen()), 0) << "row " << y;
  EXPECT_TRUE(FilesIn(TempFolder()).empty());

  const std::string tiled = pictavo::testing::CorpusFile("special/tiff_16bit_RGB.tiff");
  if (tiled.empty()) {
    std::printf("the tiled case needs the shared corpus's special/tiff_16bit_RGB.tiff\n");
    return;
  }
  g_calls.clear();
  EXPECT_EQ(Read(tiled), 0);  // the tool fails here; the engine's fall-back reads the file
  EXPECT_TRUE(fs::exists(log)) << "a tiled deep TIFF did not reach the raster tool";
}

TEST(ReadIsPdf, FirstLineDecides) {
  TempDir dir;
  auto write = [&](const std::string& name, const std::string& text) {
    std::ofstream(dir.file(name), std::ios::binary) << text;
    return dir.file(name);
  };
  EXPECT_TRUE(TZubRead::is_pdf(write("a", "%PDF-1.4\nrest")));
  EXPECT_TRUE(TZubRead::is_pdf(write("b", "%pdf-")));
  EXPECT_FALSE(TZubRead::is_pdf(write("c", "%pdf\n")));  // not longer than 4 characters
  EXPECT_FALSE(TZubRead::is_pdf(write("d", "\n%PDF-1.4")));
  EXPECT_FALSE(TZubRead::is_pdf(dir.file("missing")));
}

}  // namespace
}  // namespace pictavo::reader
