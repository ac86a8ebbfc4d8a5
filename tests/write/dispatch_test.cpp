// The writer table: which row each target reaches, the switches that let rows fall through, and
// what Convert sets up before the walk.
#include <vector>

#include "write/writer_rows.h"
#include "write_test_support.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;

using testing::WriterJob;

std::vector<int> g_walk;  // rows that ran, in order (one test process per test)

int RecordRow(TZubConvert&, const WriterRow& row) {
  g_walk.push_back(row.order);
  return 7;  // a failure: the walk must still stop at the first row that holds
}

int ReachedRow(WriterJob& job, const std::string& ext) {
  g_walk.clear();
  job.Target(ext, job.In("x.png"));
  job.c.row_runner = RecordRow;
  EXPECT_EQ(job.c.Convert(), 7) << ext;
  EXPECT_EQ(g_walk.size(), 1u) << ext;
  return g_walk.empty() ? 0 : g_walk[0];
}

TEST(WriterRows, AreNumberedInWalkOrderAndEndWithTheCatchAll) {
  int expected = 1;
  for (const WriterRow& row : WriterRows()) EXPECT_EQ(row.order, expected++);
  EXPECT_EQ(expected, 20);
  EXPECT_TRUE(WriterRows().back().list.empty());
  EXPECT_EQ(WriterRows().back().writer, nullptr);
}

TEST(WriterRows, EachTargetReachesItsRow) {
  WriterJob job;
  const struct {
    const char* ext;
    int row;
  } cases[] = {
      {"jpg", 3},   {"JPEG", 3},  {"tiff", 3},    {"ppm", 3},  {"psd", 3},   {"pdf", 5},
      {"ai", 5},    {"epi", 5},   {"pcl", 4},     {"sgi", 6},  {"xpm", 6},   {"swf", 7},
      {"jxr", 8},   {"wpg", 10},  {"dxf", 11},    {"cgm", 11}, {"svg", 11},  {"stl", 11},
      {"gbr", 11},  {"webp", 12}, {"webpll", 12}, {"bpg", 13}, {"flif", 14}, {"dds", 15},
      {"fits", 16}, {"fax", 16},  {"cal", 17},    {"cg4", 17}, {"avif", 18}, {"xyz", 19},
      {"", 19},     {"a>png", 3}, {".tga", 3},
  };
  job.settings.ico.create_multi_size = false;
  for (const auto& c : cases) EXPECT_EQ(ReachedRow(job, c.ext), c.row) << c.ext;
}

TEST(WriterRows, SwitchedRowsFallThroughWhenOff) {
  WriterJob job;
  job.settings.pdf_write.create_searchable_pdf = true;
  EXPECT_EQ(ReachedRow(job, "pdf"), 1);
  job.settings.pdf_write.create_searchable_pdf = false;
  EXPECT_EQ(ReachedRow(job, "pdf"), 5);

  job.settings.ico.create_multi_size = true;
  EXPECT_EQ(ReachedRow(job, "ico"), 2);
  job.settings.ico.create_multi_size = false;
  EXPECT_EQ(ReachedRow(job, "ico"), 3);

  job.settings.svg.raster = true;
  EXPECT_EQ(ReachedRow(job, "svg"), 9);
  job.settings.svg.raster = false;
  EXPECT_EQ(ReachedRow(job, "svg"), 11);
}

TEST(Convert, UnknownTargetReturns98AndWritesNothing) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.Target("xyz", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), kNotHandled);
  EXPECT_TRUE(testing::FilesIn(job.Out("")).empty());
  EXPECT_TRUE(job.Calls().empty());
}

TEST(Convert, ResetsItsStateAndUsesTheCommonMultiPageDestination) {
  WriterJob job;
  job.Target("jpg", job.In("x.png"));
  job.c.row_runner = RecordRow;
  job.c.page_index = 5;
  job.c.written_files = {{"old", 3}, {"older", 4}};
  job.c.multipage_dest = job.Out("all.jpg");
  for (int option : {1, 3}) {
    job.settings.multipage.option = option;
    job.c.dest_file = job.Out("one.jpg");
    (void)job.c.Convert();
    EXPECT_EQ(job.c.page_index, -1);
    ASSERT_EQ(job.c.written_files.size(), 1u);
    EXPECT_EQ(job.c.written_files[0].file_name, job.Out("one.jpg")) << option;
    EXPECT_EQ(job.c.written_files[0].page, 0);
  }
  for (int option : {2, 4}) {
    job.settings.multipage.option = option;
    job.c.dest_file = job.Out("one.jpg");
    (void)job.c.Convert();
    EXPECT_EQ(job.c.dest_file, job.Out("all.jpg")) << option;
    ASSERT_EQ(job.c.written_files.size(), 1u);
    EXPECT_EQ(job.c.written_files[0].file_name, job.Out("all.jpg"));
  }
}

TEST(Convert, RasterGroupRoutesByInputAndTarget) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));

  // A PNG source to JPEG: the engine alone.
  job.Target("jpg", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 0);
  EXPECT_TRUE(job.Calls().empty());
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file).substr(0, 2), "\xFF\xD8");

  // A WebP source to JPEG: the raster converter, whose file is kept.
  job.c.source_ext = "webp";
  job.Target("jpg", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 0);
  ASSERT_EQ(job.Calls().size(), 1u);
  EXPECT_EQ(job.Calls()[0], (testing::Call{"convert.bin", "SRC", "DEST.jpg"}));
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file), "output of convert.bin");
}

TEST(Convert, PsdGoesThroughTheConverterWithRleAndFallsBack) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.Target("psd", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 0);
  EXPECT_EQ(job.Calls().at(0),
            (testing::Call{"convert.bin", "SRC", "DEST.psd", "-compress", "rle"}));
  // The converter refuses: simple_write is tried, and the engine has no PSD encoder.
  job.FailTools("convert.bin");
  job.Target("psd", job.In("a.png"));
  fs::remove(job.c.dest_file);
  EXPECT_NE(job.c.Convert(), 0);
  EXPECT_FALSE(fs::exists(job.c.dest_file));
}

TEST(Convert, Jp2TriesTheJpeg2000ToolFirstThenTheEngine) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.settings.jp2.quality = 70;
  job.Target("jp2", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 0);
  EXPECT_EQ(job.Calls().at(0),
            (testing::Call{"colorist.exe", "convert", "SRC", "DEST.jp2", "-f", "j2k", "-q", "70"}));
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file), "output of colorist.exe");

  job.FailTools("colorist.exe");
  job.Target("jp2", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 0);
  // The engine's own JPEG 2000 file: the JP2 signature box.
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file).substr(4, 4), "jP  ");
}

TEST(Convert, WebpSourceIntoOneCommonFileGoesThroughATemporaryTiff) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.settings.multipage.option = 2;
  job.c.source_ext = "webp";
  job.Target("tif", job.In("a.png"));
  job.c.multipage_dest = job.Out("all.tif");
  // The fake converter writes no real TIFF, so the engine cannot add it: a failed write.
  EXPECT_NE(job.c.Convert(), 0);
  EXPECT_EQ(job.Calls().at(0), (testing::Call{"convert.bin", "SRC", "TMP.tif"}));
  job.FailTools("convert.bin");
  EXPECT_EQ(job.c.Convert(), kNothingWritten);
  for (const auto& name : testing::FilesIn(job.Root() + "/tmp"))
    EXPECT_EQ(name.find(".tif"), std::string::npos) << name;
}

TEST(Convert, VectorRouterChoosesTheTracingRoute) {
  WriterJob job;
  job.UseFakeTools();
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  auto first_trace = [&](const std::string& ext, int option) {
    job.settings.vec.ras2vec_option = option;
    job.Target(ext, job.In("a.png"));
    fs::remove(job.Root() + "/calls.log");
    (void)job.c.Convert();
    return job.Calls().empty() ? testing::Call{} : job.Calls()[0];
  };
  // CGM with option 1: traced straight into the destination's format (through a PDF).
  testing::Call t = first_trace("cgm", 1);
  EXPECT_EQ(t, (testing::Call{"tovec1.bin", "-a", "1", "-t", "2", "--tight", "-b", "eps", "-o",
                              "TMP.eps", "TMP.pbm"}));
  // CGM with option 2: traced with straight lines into a temporary DXF first.
  t = first_trace("cgm", 2);
  EXPECT_EQ(t, (testing::Call{"tovec1.bin", "-a", "0", "-t", "2", "--tight", "-b", "dxf", "-o",
                              "TMP.dxf", "TMP.pbm"}));
  EXPECT_GT(job.Calls().size(), 1u);  // then the direct conversion of the DXF
  // DXF with option 2: the straight-line tracer writes it.
  t = first_trace("dxf", 2);
  EXPECT_EQ(t, (testing::Call{"tovec1.bin", "-a", "0", "-t", "2", "--tight", "-b", "dxf", "-o",
                              "DEST.dxf", "TMP.pbm"}));
  EXPECT_EQ(job.c.Convert(), 0);
  // SVG with option 3: through a temporary HPGL file.
  t = first_trace("svg", 3);
  ASSERT_EQ(t.size(), 11u);
  EXPECT_EQ(t[2], "1");
  EXPECT_EQ(t[7], "eps");
  bool made_hpgl = false;
  for (const auto& call : job.Calls())
    for (const auto& arg : call) made_hpgl = made_hpgl || arg == "TMP.plt";
  EXPECT_TRUE(made_hpgl);
  // A GIMP brush is never traced.
  job.settings.gbr.type = 1;
  t = first_trace("gbr", 2);
  EXPECT_EQ(t.at(0), "f300_uni.exe");
}

TEST(Convert, ToolThatIsNotThereFailsWithAnActionableMessage) {
  WriterJob job;
  job.c.exe_folder = job.Root() + "/nowhere/";
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.Target("webp", job.In("a.png"));
  EXPECT_EQ(job.c.Convert(), 1);
  EXPECT_NE(job.c.error_text.find("webp_write.bin"), std::string::npos);
  EXPECT_NE(job.c.error_text.find("webp"), std::string::npos);
  EXPECT_TRUE(testing::FilesIn(job.Out("")).empty());
}

}  // namespace
}  // namespace pictavo::writer
