// The routing decision: which files go through one direct conversion instead of the bitmap
// stages. Fixtures are tiny files written by the tests.
#include "pipeline/routing.h"

#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"

namespace pictavo::pipeline {
namespace {

using settings::TMainSettings;

const char kPngBytes[] = "\x89PNG\r\n\x1a\n\0\0\0\rIHDR\0\0\0\x01\0\0\0\x01\x08\x02\0\0\0";
const char kJpegBytes[] = "\xff\xd8\xff\xe0\0\x10JFIF\0\x01\x01\0\0\x01\0\x01\0\0";

class RoutingTest : public ::testing::Test {
 protected:
  std::string Write(const std::string& name, const std::string& bytes) {
    std::string path = dir_.file(name);
    std::ofstream(path, std::ios::binary) << bytes;
    return path;
  }
  Route To(const std::string& source, const std::string& target) {
    settings_.main.dest_ext = target;
    return DecideRoute(source, settings_, false);
  }
  testing::TempDir dir_;
  TMainSettings settings_;
};

TEST_F(RoutingTest, TagsAreLowerCaseExtensionsBetweenSemicolons) {
  EXPECT_EQ(TypeTag("/a/b/Photo.TIF"), ";tif;");
  EXPECT_EQ(TypeTag("/a/b/noext"), ";;");
  EXPECT_EQ(TargetTag("PNG"), ";png;");
  EXPECT_TRUE(InList(";ps;", ";ai;pdf;eps;ps;epi;"));
  EXPECT_FALSE(InList(";p;", ";ai;pdf;eps;ps;epi;"));
}

TEST_F(RoutingTest, RasterFileUnderForeignExtensionNeverTakesADirectPair) {
  // A PNG named .pdf would otherwise take the PDF-to-drawing pair, a JPEG named .txt the
  // text-to-PDF pair; the engine reads both itself.
  const std::string fake_pdf =
      Write("really_png.pdf", std::string(kPngBytes, sizeof kPngBytes - 1));
  Route r = To(fake_pdf, "svg");
  EXPECT_TRUE(r.misnamed_raster);
  EXPECT_FALSE(r.direct);
  const std::string fake_txt =
      Write("really_jpeg.txt", std::string(kJpegBytes, sizeof kJpegBytes - 1));
  EXPECT_FALSE(To(fake_txt, "pdf").direct);
  // The genuine articles do take them.
  EXPECT_TRUE(To(Write("real.pdf", "%PDF-1.4\n1 0 obj\n<<>>\nendobj\n"), "svg").direct);
  EXPECT_TRUE(To(Write("notes.txt", "hello\n"), "pdf").direct);
  // A .jpg that holds PNG bytes is the engine's own: bitmap route.
  Route jpg = To(Write("photo.jpg", std::string(kPngBytes, sizeof kPngBytes - 1)), "png");
  EXPECT_FALSE(jpg.direct);
  EXPECT_FALSE(jpg.misnamed_raster);
}

TEST_F(RoutingTest, HighDynamicRangeGoesDirectOnlyWhenTrueColourIsOff) {
  const std::string hdr = Write("sky.hdr", "#?RADIANCE\n");
  settings_.exr_hdr.true_color = true;
  EXPECT_FALSE(To(hdr, "png").direct);
  settings_.exr_hdr.true_color = false;
  Route r = To(hdr, "png");
  EXPECT_TRUE(r.direct);
  EXPECT_TRUE(r.read_16bit);
  EXPECT_TRUE(r.keep_hdr);
  EXPECT_TRUE(To(Write("sky.exr", "v/1\x01"), "tiff").direct);
  EXPECT_FALSE(To(hdr, "jpg").direct);
}

TEST_F(RoutingTest, PclTargetIsNeverDirect) {
  for (const char* name : {"a.pdf", "b.svg", "c.dxf", "d.eps", "e.shp"})
    EXPECT_FALSE(To(Write(name, "x\n"), "pcl").direct) << name;
  EXPECT_TRUE(To(Write("f.dxf", "x\n"), "svg").direct);
}

TEST_F(RoutingTest, RasterizeVectorKeepsOnlyDwfToPdf) {
  const std::string dwf = Write("plan.dwf", "(DWF V06.00)");
  const std::string svg = Write("logo.svg", "<svg/>");
  const std::string ps = Write("page.ps", "%!PS-Adobe-3.0\n");
  EXPECT_TRUE(To(dwf, "pdf").direct);
  EXPECT_TRUE(To(svg, "pdf").direct);
  EXPECT_TRUE(To(ps, "eps").direct);
  settings_.vec.rasterize_vector = true;
  EXPECT_TRUE(To(dwf, "pdf").direct);
  EXPECT_FALSE(To(svg, "pdf").direct);
  EXPECT_FALSE(To(ps, "eps").direct);
  EXPECT_FALSE(To(dwf, "svg").direct);
}

TEST_F(RoutingTest, VetoesInOrder) {
  const std::string ps = Write("doc.ps", "%!PS-Adobe-3.0\n");
  EXPECT_TRUE(To(ps, "pdf").direct);
  settings_.pdf_write.create_searchable_pdf = true;
  EXPECT_FALSE(To(ps, "pdf").direct);
  settings_.pdf_write.create_searchable_pdf = false;

  const std::string pdf = Write("vector.pdf", "%PDF-1.4\n");
  EXPECT_TRUE(To(pdf, "svg").direct);
  settings_.svg.raster = true;  // SVG with an embedded picture: only a layered PSD stays direct
  EXPECT_FALSE(To(pdf, "svg").direct);
  const std::string psd = Write("layers.psd", "8BPS");
  EXPECT_FALSE(To(psd, "svg").direct);
  settings_.psd.load_layers = true;
  EXPECT_TRUE(To(psd, "svg").direct);
  settings_.svg.raster = false;

  const std::string dxf = Write("board.dxf", "0\nSECTION\n");
  EXPECT_TRUE(To(dxf, "gbr").direct);
  settings_.gbr.type = 1;
  EXPECT_FALSE(To(dxf, "gbr").direct);
  settings_.gbr.type = 0;
  settings_.gbr.raster = true;
  EXPECT_FALSE(To(dxf, "gbr").direct);
}

TEST_F(RoutingTest, PdfWithPicturesIsNotTurnedIntoADrawing) {
  const std::string pdf = Write("scan.pdf", "%PDF-1.4\n<< /Subtype /Image /Width 10 >>\n/ImageC\n");
  EXPECT_FALSE(To(pdf, "dxf").direct);
  EXPECT_TRUE(To(pdf, "eps").direct);  // PDF to PostScript keeps the pictures
}

TEST_F(RoutingTest, PostScriptDatFileIsRoutedAsPostScript) {
  Route r = To(Write("print.dat", "%!PS-Adobe-2.0\n"), "pdf");
  EXPECT_EQ(r.source_tag, ";ps;");
  EXPECT_TRUE(r.direct);
  EXPECT_FALSE(To(Write("other.dat", "plain data\n"), "pdf").direct);
}

TEST_F(RoutingTest, SvgzTargetIsDispatchedLikeSvg) {
  const std::string pdf = Write("drawing.pdf", "%PDF-1.4\n");
  Route r = To(pdf, "svgz");
  EXPECT_EQ(r.target_tag, ";svg;");
  EXPECT_TRUE(r.direct);
}

TEST_F(RoutingTest, FurtherPairsAndTheirConditions) {
  EXPECT_TRUE(To(Write("mesh.obj", "v 0 0 0\n"), "stl").direct);
  EXPECT_TRUE(To(Write("mesh.glb", "glTF"), "dxf").direct);
  EXPECT_FALSE(To(Write("mesh2.obj", "v 0 0 0\n"), "png").direct);
  const std::string scn = Write("slide.scn", "data\n");
  EXPECT_TRUE(To(scn, "tif").direct);
  settings_.scn.level = 5;
  EXPECT_FALSE(To(scn, "tif").direct);
  settings_.scn.level = 1;
  EXPECT_FALSE(To(Write("mail.scn", "MIME-Version: 1.0\n"), "png").direct);
  EXPECT_TRUE(To(Write("big.psb", "8BPS"), "jpg").direct);
  EXPECT_TRUE(To(Write("x.dcm", "DICM"), "fits").direct);
  EXPECT_TRUE(To(Write("cam.nef", "MM"), "fits").direct);
  EXPECT_TRUE(To(Write("fax.cal", "srcdocid: AC\n"), "pdf").direct);
  EXPECT_FALSE(To(Write("fax2.cal", "nothing\n"), "pdf").direct);
}

TEST_F(RoutingTest, CheckOnlyJobNeverGoesDirect) {
  settings_.main.dest_ext = "svg";
  Route r = DecideRoute(Write("v.pdf", "%PDF-1.4\n"), settings_, true);
  EXPECT_FALSE(r.direct);
  EXPECT_TRUE(r.raw_or_postscript);
}

TEST_F(RoutingTest, Camera16BitFlagFollowsTheSetting) {
  const std::string raw = Write("shot.cr2", "II*\0");
  EXPECT_FALSE(To(raw, "tif").read_16bit);
  settings_.raw_read.bits16 = true;
  EXPECT_TRUE(To(raw, "tif").read_16bit);
}

}  // namespace
}  // namespace pictavo::pipeline
