// Real conversions of corpus files through the build's tool folder, checked by independent
// readers (pdfinfo, ogrinfo). Each test skips, naming the Debian package, when a tool is absent.
#include <cstdio>

#include <gtest/gtest.h>

#include "direct/routines.h"
#include "direct_test_support.h"
#include "engine/tools/probes.h"

namespace pictavo::direct {
namespace {

using namespace pictavo::direct::testing;
using pictavo::testing::TempDir;

std::string Output(const std::string& command) {
  std::string out;
  if (FILE* p = ::popen(command.c_str(), "r")) {
    char buf[4096];
    size_t n;
    while ((n = fread(buf, 1, sizeof buf, p)) > 0) out.append(buf, n);
    ::pclose(p);
  }
  return out;
}

bool OnPath(const std::string& program) {
  return !Output("command -v " + program + " 2>/dev/null").empty();
}

// Page count and version as poppler's pdfinfo reads them (0 / "" when it cannot).
int Pages(const std::string& pdf) {
  const std::string out = Output("pdfinfo '" + pdf + "' 2>/dev/null");
  const size_t at = out.find("Pages:");
  return at == std::string::npos ? 0 : std::atoi(out.c_str() + at + 6);
}
std::string Version(const std::string& pdf) {
  const std::string out = Output("pdfinfo '" + pdf + "' 2>/dev/null");
  const size_t at = out.find("PDF version:");
  if (at == std::string::npos) return "";
  const size_t v = out.find_first_not_of(' ', at + 12);
  return out.substr(v, 3);
}

// Sum of "Feature Count: N" lines of ogrinfo's summary.
long Features(const std::string& path) {
  const std::string out = Output("ogrinfo -ro -so -al '" + path + "' 2>/dev/null");
  long total = 0;
  for (size_t at = 0; (at = out.find("Feature Count: ", at)) != std::string::npos; at += 15)
    total += std::atol(out.c_str() + at + 15);
  return total;
}

class DirectReal : public ::testing::Test {
 protected:
  TempDir dir;
  settings::TMainSettings cfg;
  TZubDirect d;

  void SetUp() override {
    fs::create_directories(dir.path() / "tmp");
    d.settings = &cfg;
    d.exe_folder = pictavo::testing::BuildDir() + "/";
    d.temp_folder = (dir.path() / "tmp").string() + "/";
  }
  bool Has(const char* tool) { return fs::exists(d.Tool(tool)); }
  int32_t Convert(const std::string& src, const std::string& dest_name) {
    d.src_file = src;
    d.dest_file = dir.file(dest_name);
    return d.Direct();
  }
};

#define REQUIRE(tool, package) \
  if (!Has(tool)) GTEST_SKIP() << "tool " << tool << " is missing: install " << package

TEST_F(DirectReal, PdfPagesPostScriptAndBack) {
  REQUIRE("pdfpsai.bin", "ghostscript");
  PICTAVO_REQUIRE_CORPUS(multi, "special/multi_page_17.pdf");
  PICTAVO_REQUIRE_CORPUS(newer, "special/pdf17_text_only_fontsEmbeddedAll.pdf");
  PICTAVO_REQUIRE_CORPUS(golfer, "vector/ps/golfer.eps");

  cfg.multipage.option = 3;
  ASSERT_EQ(Convert(multi, "pages.pdf"), 0);
  ASSERT_EQ(d.more_files.size(), 17u);
  for (const auto& f : d.more_files) EXPECT_EQ(Pages(f.file_name), 1) << f.page;

  cfg.multipage.option = 1;
  ASSERT_EQ(Convert(newer, "v14.pdf"), 0);  // 1.7 rewritten to 1.4 first
  EXPECT_EQ(Pages(dir.file("v14.pdf")), 1);
  EXPECT_LT(Version(dir.file("v14.pdf")), "1.6");

  ASSERT_EQ(Convert(newer, "text.eps"), 0);
  EXPECT_TRUE(tools::IsPostScript(dir.file("text.eps")));
  ASSERT_EQ(Convert(newer, "text.ps"), 0);
  EXPECT_TRUE(tools::IsPostScript(dir.file("text.ps")));

  ASSERT_EQ(Convert(golfer, "golfer.pdf"), 0);
  EXPECT_EQ(Pages(dir.file("golfer.pdf")), 1);
  // Only the 17 pages handed on to the pipeline remain; it removes them after the file.
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 17u);
}

TEST_F(DirectReal, GrayTestAndCrop) {
  REQUIRE("pdfpsai.bin", "ghostscript");
  PICTAVO_REQUIRE_CORPUS(text, "special/pdf14_text_only_pdfa1b.pdf");
  PICTAVO_REQUIRE_CORPUS(colour, "document/pdf/text_graph_image_cmyk_rgb.pdf");
  EXPECT_TRUE(is_pdf_gray(d, text));
  EXPECT_FALSE(is_pdf_gray(d, colour));
  ASSERT_EQ(crop_pdf(d, text, dir.file("crop.pdf")), 0);
  EXPECT_EQ(Pages(dir.file("crop.pdf")), 1);
}

TEST_F(DirectReal, TextToPdf) {
  REQUIRE("text2pdf.exe", "enscript");
  PICTAVO_REQUIRE_CORPUS(txt, "document/txt/lorem-ipsum.txt");
  ASSERT_EQ(Convert(txt, "lorem.pdf"), 0);
  EXPECT_GE(Pages(dir.file("lorem.pdf")), 1);
}

TEST_F(DirectReal, SvgToPdfAndPng) {
  REQUIRE("rsvg-convert.bin", "librsvg2-bin");
  PICTAVO_REQUIRE_CORPUS(svg, "vector/svg/logo.svg");
  PICTAVO_REQUIRE_CORPUS(svgz, "vector/svg/diagram.svgz");
  ASSERT_EQ(Convert(svg, "logo.pdf"), 0);
  EXPECT_EQ(Pages(dir.file("logo.pdf")), 1);
  ASSERT_EQ(Convert(svg, "logo.png"), 0);
  EXPECT_EQ(Output("head -c 4 '" + dir.file("logo.png") + "' | tail -c 3"), "PNG");
  ASSERT_EQ(Convert(svgz, "diagram.svg"), 0);
  EXPECT_NE(Output("head -c 200 '" + dir.file("diagram.svg") + "'").find("<"), std::string::npos);
}

TEST_F(DirectReal, CadAndGisThroughOgr2ogr) {
  REQUIRE("ogr/ogr2ogr.exe", "gdal-bin");
  if (!OnPath("ogrinfo")) GTEST_SKIP() << "ogrinfo is missing: install gdal-bin";
  PICTAVO_REQUIRE_CORPUS(dxf, "cad/dxf/2000_entities-2d.dxf");
  PICTAVO_REQUIRE_CORPUS(shp, "gis/shapefile/nc/nc.shp");
  PICTAVO_REQUIRE_CORPUS(stl, "3d/stl/Cube 10x10.stl");

  ASSERT_EQ(Convert(dxf, "lines.shp"), 0);
  EXPECT_GT(Features(dir.file("lines.shp")), 0);
  EXPECT_TRUE(fs::exists(dir.file("lines.dbf")));  // the sidecars follow the renamed file

  ASSERT_EQ(Convert(shp, "nc.dxf"), 0);
  // Multi-part areas may come out as several DXF entities, never fewer.
  EXPECT_GE(Features(dir.file("nc.dxf")), Features(shp));
  EXPECT_GT(Features(shp), 0);

  ASSERT_EQ(Convert(stl, "cube.dxf"), 0);  // in-process faces, read back by GDAL
  EXPECT_EQ(Features(dir.file("cube.dxf")), 12);
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
}

TEST_F(DirectReal, ModelToStl) {
  REQUIRE("assimp64/assimp.exe", "assimp-utils");
  PICTAVO_REQUIRE_CORPUS(obj, "3d/obj/box.obj");
  ASSERT_EQ(Convert(obj, "box.stl"), 0);
  const std::string info = Output("assimp info '" + dir.file("box.stl") + "' 2>/dev/null");
  EXPECT_NE(info.find("Faces:"), std::string::npos) << info;
}

TEST_F(DirectReal, WordToPdf) {
  REQUIRE("soffice.bin", "libreoffice-writer-nogui");
  PICTAVO_REQUIRE_CORPUS(docx, "document/docx/lorem-ipsum.docx");
  ASSERT_EQ(Convert(docx, "lorem.pdf"), 0);
  EXPECT_GE(Pages(dir.file("lorem.pdf")), 1);
}

TEST_F(DirectReal, MissingProgramFailsCleanly) {
  PICTAVO_REQUIRE_CORPUS(stl, "3d/stl/Cube 10x10.stl");
  PICTAVO_REQUIRE_CORPUS(svg, "vector/svg/logo.svg");
  EXPECT_EQ(Convert(svg, "logo.swf"), kDirectNoProgram);
  EXPECT_FALSE(d.error_text.empty());
  EXPECT_EQ(Convert(dir.file("no.dwg"), "no.dwg"), kDirectNoProgram);
  EXPECT_FALSE(fs::exists(dir.file("logo.swf")));
  EXPECT_EQ(CountEntries(dir.path()), 1u);  // only tmp/
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
}

}  // namespace
}  // namespace pictavo::direct
