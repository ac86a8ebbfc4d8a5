// A result counts only when an independent reader finds in it what the source holds; a file that
// fails says why, in the log, in the summary's list and on `pictavo convert`'s standard error.
// Each case is named after a defect the engine once had: it logged "Done" for an empty DXF, a
// shapefile short of features, the first page of a document as its SVG, a camera raw cut short
// decoded to a full-size picture of nothing. Each checks the outcome either way round: a result
// must pass the independent reader, a failure must name the shortfall.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/command_line.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "tests/support/convert_run.h"
#include "tests/support/test_paths.h"

namespace pictavo {
namespace {

namespace fs = std::filesystem;
using tools::Quoted;

bool HaveProgram(const std::string& name) {
  for (const char* dir : {"/usr/bin/", "/usr/local/bin/", "/bin/"})
    if (fs::exists(std::string(dir) + name)) return true;
  return false;
}

#define REQUIRE_PROGRAM(name, package) \
  if (!HaveProgram(name)) GTEST_SKIP() << (name) << " is missing: install " << (package)

class TruthfulResults : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::ConvertIsBuilt())
      GTEST_SKIP() << "build/pictavo and build/pictavo-engine are not built";
    fs::create_directories(dir_.file("in"));
  }

  // `pictavo convert WORDS --output out`; fills out_ (the log) and err_ (standard error).
  int Convert(const std::string& words) {
    const testing::ConvertRun run =
        testing::RunConvert(words + " --output " + Quoted(dir_.file("out")), dir_);
    out_ = run.out;
    err_ = run.err;
    return run.status;
  }

  // Standard output of an independent program (a shell-free command line).
  std::string Capture(const std::string& command_line) {
    const std::string file = dir_.file("capture.txt");
    tools::RunBatch(command_line + " > " + Quoted(file) + " 2>&1", "");
    return platform::ReadFileBytes(file).value_or("");
  }

  // The source's failure as the summary and standard error give it; "" when it did not fail.
  std::string FailureOf(const std::string& given) {
    // As the command line names it: absolute, ".." resolved, links left as they are.
    const std::string source = fs::absolute(given).lexically_normal().string();
    const std::string prefix = "pictavo convert: failed: " + source + ": ";
    const size_t at = err_.find(prefix);
    if (at == std::string::npos) return {};
    const size_t end = err_.find('\n', at);
    const std::string reason = err_.substr(at + prefix.size(), end - at - prefix.size());
    const size_t list = out_.find("\nFiles that failed:\n");
    EXPECT_NE(out_.find("\n   " + source + ": " + reason + "\n", list), std::string::npos)
        << "the log's summary lacks the failure\n"
        << out_;
    EXPECT_NE(out_.find("\n      " + reason), std::string::npos)
        << "no reason under the error line\n"
        << out_;
    return reason;
  }

  std::vector<std::string> Results(const std::string& ext) {
    std::vector<std::string> files;
    if (!fs::exists(dir_.file("out"))) return files;
    for (const auto& e : fs::directory_iterator(dir_.file("out")))
      if (e.path().extension() == ext) files.push_back(e.path().string());
    std::sort(files.begin(), files.end());
    return files;
  }

  int64_t OgrFeatures(const std::string& dataset) {
    const std::string report = Capture("ogrinfo -ro -so -al " + Quoted(dataset));
    int64_t total = 0;
    static const std::regex kCount(R"(Feature Count: (\d+))");
    for (auto it = std::sregex_iterator(report.begin(), report.end(), kCount);
         it != std::sregex_iterator(); ++it)
      total += std::stoll((*it)[1]);
    return total;
  }

  testing::TempDir dir_;
  std::string out_, err_;
};

TEST_F(TruthfulResults, TruncatedCameraRawsAreNotDecodedToBlankPictures) {
  PICTAVO_REQUIRE_CORPUS(cut_rw2, "raster/raw/Panasonic.rw2");
  PICTAVO_REQUIRE_CORPUS(cut_nef, "raster/raw/Nikon.nef");
  PICTAVO_REQUIRE_CORPUS(cut_dng, "raster/raw/DNG.dng");
  PICTAVO_REQUIRE_CORPUS(whole_dng, "raster/raw/canon_eos_6d.dng");
  PICTAVO_REQUIRE_TOOL("raw_read.bin", "libraw-bin");
  REQUIRE_PROGRAM("identify", "imagemagick");
  EXPECT_EQ(Convert(Quoted(cut_rw2) + " " + Quoted(cut_nef) + " " + Quoted(cut_dng) + " " +
                    Quoted(whole_dng) + " --to png"),
            1)
      << out_;
  for (const std::string& cut : {cut_rw2, cut_nef, cut_dng}) {
    EXPECT_NE(FailureOf(cut).find("its raw data is cut short"), std::string::npos) << out_ << err_;
    EXPECT_FALSE(fs::exists(dir_.file("out/" + fs::path(cut).stem().string() + ".png")));
  }
  EXPECT_EQ(FailureOf(whole_dng), "");
  // The one raw that holds its picture gives a picture, not one colour: ImageMagick measures it.
  const std::vector<std::string> pngs = Results(".png");
  ASSERT_EQ(pngs.size(), 1u) << out_;
  const double deviation =
      std::stod("0" + Capture("identify -format %[fx:standard_deviation] " + Quoted(pngs[0])));
  EXPECT_GT(deviation, 0.02) << pngs[0];
  EXPECT_NE(out_.find("1 of 4 files were successfully processed."), std::string::npos) << out_;
}

TEST_F(TruthfulResults, PdfToDxfWithNoEntitiesIsNotDone) {
  PICTAVO_REQUIRE_CORPUS(pdf, "document/pdf/lorem-ipsum.oo3.2.export.pdf");
  PICTAVO_REQUIRE_TOOL("pstoedit.bin", "pstoedit");
  REQUIRE_PROGRAM("python3", "python3-ezdxf");
  if (Capture("/usr/bin/python3 -c \"import ezdxf; print('ok')\"").find("ok") == std::string::npos)
    GTEST_SKIP() << "python3-ezdxf is missing";
  const int rc = Convert(Quoted(pdf) + " --to dxf");
  const std::vector<std::string> dxfs = Results(".dxf");
  if (rc != 0) {
    EXPECT_TRUE(dxfs.empty()) << "a refused result was saved";
    EXPECT_NE(FailureOf(pdf).find("no drawing entities"), std::string::npos) << out_ << err_;
    return;
  }
  // Done: every page's drawing must be there for an independent DXF reader.
  ASSERT_FALSE(dxfs.empty()) << out_;
  for (const std::string& dxf : dxfs) {
    const std::string count = Capture(
        "/usr/bin/python3 -c \"import ezdxf,sys; "
        "print(len(ezdxf.readfile(sys.argv[1]).modelspace()))\" " +
        Quoted(dxf));
    EXPECT_GT(std::atoi(count.c_str()), 0) << dxf << ": " << count;
  }
}

TEST_F(TruthfulResults, GisToShpKeepsEveryFeatureOrNamesTheShortfall) {
  PICTAVO_REQUIRE_CORPUS(trio, "gis/geojson/trio.geojson");
  PICTAVO_REQUIRE_TOOL("ogr/ogr2ogr.exe", "gdal-bin");
  REQUIRE_PROGRAM("ogrinfo", "gdal-bin");
  const int64_t had = OgrFeatures(trio);
  ASSERT_EQ(had, 3) << "trio.geojson holds a point, a line and a polygon";
  Convert(Quoted(trio) + " --to shp");
  const std::vector<std::string> shps = Results(".shp");
  if (const std::string why = FailureOf(trio); !why.empty()) {
    EXPECT_TRUE(shps.empty()) << "a refused result was saved";
    EXPECT_NE(why.find(" of 3 features"), std::string::npos) << why;
    return;
  }
  int64_t kept = 0;
  for (const std::string& shp : shps) kept += OgrFeatures(shp);
  EXPECT_EQ(kept, had) << out_;
}

TEST_F(TruthfulResults, MultiPagePdfToSvgWritesEveryPageOrFails) {
  REQUIRE_PROGRAM("gs", "ghostscript");
  REQUIRE_PROGRAM("pdfinfo", "poppler-utils");
  // Three pages, each with a line and its number.
  const std::string ps = dir_.file("three.ps"), pdf = dir_.file("in/three.pdf");
  std::ofstream(ps) << "%!PS\n/Helvetica findfont 20 scalefont setfont\n"
                       "1 1 3 { 100 100 moveto (Page ) show 3 string cvs show\n"
                       "50 50 moveto 300 300 lineto stroke showpage } for\n";
  Capture("gs -q -dNOPAUSE -dBATCH -sDEVICE=pdfwrite -sOutputFile=" + Quoted(pdf) + " " +
          Quoted(ps));
  ASSERT_NE(Capture("pdfinfo " + Quoted(pdf)).find("Pages:           3"), std::string::npos);
  Convert(Quoted(pdf) + " --to svg");
  const std::vector<std::string> svgs = Results(".svg");
  if (const std::string why = FailureOf(pdf); !why.empty()) {
    EXPECT_TRUE(svgs.empty()) << "a refused result was saved";
    EXPECT_NE(why.find("of 3 pages"), std::string::npos) << why;
    return;
  }
  ASSERT_EQ(svgs.size(), 3u) << out_;
  for (const std::string& svg : svgs) {
    const std::string text = platform::ReadFileBytes(svg).value_or("");
    EXPECT_NE(text.find("<svg"), std::string::npos) << svg;
  }
}

TEST_F(TruthfulResults, XpsToSvgWritesEveryPageOrFails) {
  // An XPS document's pages are known only once it is a PDF on the way to SVG.
  PICTAVO_REQUIRE_CORPUS(xps, "document/xps/testPPT.xps");
  PICTAVO_REQUIRE_TOOL("gxpswin32.exe", "libgxps-utils");
  Convert(Quoted(xps) + " --to svg");
  const std::vector<std::string> svgs = Results(".svg");
  if (const std::string why = FailureOf(xps); !why.empty()) {
    EXPECT_TRUE(svgs.empty()) << "a refused result was saved";
    EXPECT_NE(why.find("of 3 pages"), std::string::npos) << why;
    return;
  }
  EXPECT_EQ(svgs.size(), 3u) << out_;
}

TEST_F(TruthfulResults, EveryFailedFileIsListedWithItsReason) {
  // A damaged picture, a good one and an empty file: the two failures are listed in job order
  // with their reasons, and the exit status says the job was not complete.
  const std::string broken = dir_.file("in/broken.jpg"), good = dir_.file("in/good.ppm"),
                    empty = dir_.file("in/zero.png");
  std::ofstream(broken, std::ios::binary) << "\xFF\xD8\xFF\xE0 not a whole JPEG";
  std::ofstream(good, std::ios::binary) << "P6\n2 2\n255\n" << std::string(12, '\x7F');
  std::ofstream(empty, std::ios::binary);
  EXPECT_EQ(Convert(Quoted(dir_.file("in")) + " --to png"), 1) << out_ << err_;
  const std::string broken_why = FailureOf(broken), empty_why = FailureOf(empty);
  EXPECT_GT(broken_why.size(), 8u) << out_;
  EXPECT_GT(empty_why.size(), 8u) << out_;
  EXPECT_EQ(FailureOf(good), "");
  EXPECT_LT(err_.find(broken), err_.find(empty)) << err_;
  EXPECT_TRUE(fs::exists(dir_.file("out/good.png")));
  EXPECT_NE(out_.find("1 of 3 files were successfully processed."), std::string::npos) << out_;
}

}  // namespace
}  // namespace pictavo
