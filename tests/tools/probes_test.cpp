#include "engine/tools/probes.h"

#include <cstdio>
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "platform/fs.h"
#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

using pictavo::testing::TempDir;

std::string Write(const TempDir& dir, const std::string& name, const std::string& bytes) {
  std::ofstream(dir.file(name), std::ios::binary) << bytes;
  return dir.file(name);
}

TEST(FindCount, CountsMatchingLinesLikeFindC) {
  TempDir dir;
  std::string f = Write(dir, "t.txt", "Inkscape inkscape\nnone\nINKSCAPE\r\nxinkscapex");
  EXPECT_EQ(FindCount(f, "inkscape", false), 2);  // two lines, although three hits
  EXPECT_EQ(FindCount(f, "inkscape", true), 3);
  EXPECT_EQ(FindCount(f, "absent", true), 0);
  EXPECT_EQ(FindCount(dir.file("missing"), "x", false), -1);
}

TEST(Probes, AnimatedPng) {
  PICTAVO_REQUIRE_CORPUS(apng, "special/apng_fixture.apng");
  PICTAVO_REQUIRE_CORPUS(apng2, "special/apng_delay.png");
  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  EXPECT_TRUE(PngIsAnimated(apng));
  EXPECT_TRUE(PngIsAnimated(apng2));
  EXPECT_FALSE(PngIsAnimated(png));
}

TEST(Probes, InkscapeSvg) {
  PICTAVO_REQUIRE_CORPUS(ink, "vector/svg/flowsample.svg");
  PICTAVO_REQUIRE_CORPUS(plain, "vector/svg/diagram.svg");
  EXPECT_TRUE(SvgIsInkscape(ink));
  EXPECT_FALSE(SvgIsInkscape(plain));
}

TEST(Probes, PdfImages) {
  PICTAVO_REQUIRE_CORPUS(with, "document/pdf/text_graph_image_cmyk_rgb.pdf");
  PICTAVO_REQUIRE_CORPUS(without, "special/pdf14_text_only_pdfa1b.pdf");
  EXPECT_TRUE(PdfHasImages(with));
  EXPECT_FALSE(PdfHasImages(without));
  TempDir dir;
  EXPECT_TRUE(PdfHasImages(Write(dir, "a.pdf", "%PDF-1.4\n<< /Subtype /IMAGE >>")));  // "/I"
}

TEST(Probes, PostScriptAndCgm) {
  PICTAVO_REQUIRE_CORPUS(dat, "special/doretree_postscript.dat");
  PICTAVO_REQUIRE_CORPUS(eps, "vector/ps/golfer.eps");
  PICTAVO_REQUIRE_CORPUS(jpg, "raster/jpeg/flower.jpg");
  PICTAVO_REQUIRE_CORPUS(cgm, "vector/cgm/1STPRIZE.CGM");
  EXPECT_TRUE(IsPostScript(dat));
  EXPECT_TRUE(IsPostScript(eps));
  EXPECT_FALSE(IsPostScript(jpg));
  EXPECT_TRUE(IsCgm(cgm));
  EXPECT_TRUE(IsBinaryCgm(cgm));
  EXPECT_FALSE(IsCgm(jpg));
  TempDir dir;
  std::string text_cgm = Write(dir, "t.cgm", "  BegMF 'drawing';\nmfversion 1;\nENDMF;\n");
  EXPECT_TRUE(IsCgm(text_cgm));
  EXPECT_FALSE(IsBinaryCgm(text_cgm));
}

// The page counter against qpdf's on every PDF of the corpus.
TEST(Probes, PdfPageCountMatchesQpdf) {
  PICTAVO_REQUIRE_CORPUS(pdfs, "document/pdf");
  PICTAVO_REQUIRE_CORPUS(multi, "special/multi_page_17.pdf");
  EXPECT_EQ(PdfPageCount(multi), 17);
  if (std::system("command -v qpdf >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "qpdf is absent (install the Debian package qpdf)";
  TempDir dir;
  int checked = 0;
  for (const auto& entry : std::filesystem::directory_iterator(pdfs)) {
    const std::string pdf = entry.path().string();
    const std::string out = dir.file("n.txt");
    std::string cmd = "qpdf --show-npages '" + pdf + "' > '" + out + "' 2>/dev/null";
    if (std::system(cmd.c_str()) != 0) continue;  // qpdf cannot read it either
    int want = 0;
    std::ifstream(out) >> want;
    EXPECT_EQ(PdfPageCount(pdf), want) << pdf;
    ++checked;
  }
  EXPECT_GT(checked, 5);
  EXPECT_EQ(PdfPageCount(dir.file("n.txt")), 0);  // not a PDF
}

TEST(Probes, DxfLayers) {
  PICTAVO_REQUIRE_CORPUS(dxf, "cad/dxf/r14_Leader.dxf");
  std::vector<std::string> layers = ListDxfLayers(dxf);
  ASSERT_FALSE(layers.empty());
  EXPECT_EQ(layers.front(), "0");

  // An R12 file without subclass markers, with a layer name that is also an entity keyword.
  TempDir dir;
  std::string r12 = Write(dir, "r12.dxf",
                          "  0\nSECTION\n  2\nTABLES\n  0\nTABLE\n  2\nLTYPE\n  0\nLTYPE\n  2\n"
                          "CONTINUOUS\n  0\nENDTAB\n  0\nTABLE\n  2\nLAYER\n 70\n3\n  0\nLAYER\n"
                          "  2\n0\n 70\n0\n  0\nLAYER\n  2\nWalls and doors\n  0\nLAYER\n  2\n"
                          "LINE\n  0\nENDTAB\n  0\nENDSEC\n  0\nSECTION\n  2\nENTITIES\n  0\n"
                          "LINE\n  8\nWalls and doors\n  0\nENDSEC\n  0\nEOF\n");
  EXPECT_EQ(ListDxfLayers(r12), (std::vector<std::string>{"0", "Walls and doors", "LINE"}));
}

TEST(Probes, CleanPrtDropsPrinterControls) {
  TempDir dir;
  std::string src =
      Write(dir, "in.prt",
            std::string("\x1b"
                        "E\x1b&l1O\x1b(s12H") +
                "Total:\tB\bBold _\bu\n" + "\x1b[1mLine\x1b[0m two\f\x07" + "end\r\n");
  const std::string before = *platform::ReadFileBytes(src);
  ASSERT_TRUE(CleanPrt(src, dir.file("out.prt")));
  EXPECT_EQ(*platform::ReadFileBytes(dir.file("out.prt")), "Total:\tBold u\nLine two\fend\r\n");
  EXPECT_EQ(*platform::ReadFileBytes(src), before);  // the source is only read
}

}  // namespace
}  // namespace pictavo::tools
