// Real files of the shared corpus read through the real chain and the build's tool folder. Sizes
// and page counts are checked against what independent readers report for the same files
// (ImageMagick identify, pdfinfo, djvudump; see the corpus manifest). A test skips, naming the
// Debian package, when its tool is missing from the tool folder.
#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "read/zub_read.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::reader {
namespace {
namespace fs = std::filesystem;
using pictavo::testing::TempDir;

struct Result {
  int status = -1;
  int width = 0, height = 0, pages = 0;
  bool read_flag = true;
  bool temp_empty = false;
};

class CorpusRead : public ::testing::Test {
 protected:
  void SetUp() override {
    settings_.SetDefault();
    settings_.pdf_eps_ps.res = 72;  // small pages keep the tests quick
    fs::create_directories(dir_.path() / "temp");
  }

  Result ReadFile(const std::string& path, const std::string& out_ext = ".tif") {
    TZubRead r;
    r.settings = &settings_;
    r.temp_folder = (dir_.path() / "temp").string() + "/";
    r.engine_folder = pictavo::testing::BuildDir();
    r.src_file = path;
    r.out_file = dir_.file("out" + out_ext);
    fs::remove(r.out_file);
    Result res;
    res.status = r.Read();
    res.read_flag = r.read_flag;
    res.temp_empty = fs::is_empty(dir_.path() / "temp");
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    if (fs::exists(r.out_file) && io.ParamsFromFile(r.out_file).ok()) {
      res.width = io.Params().Width;
      res.height = io.Params().Height;
      res.pages = io.Params().ImageCount;
    }
    return res;
  }

  void ExpectPicture(const std::string& rel, int width, int height, int pages = 1) {
    PICTAVO_REQUIRE_CORPUS(path, rel);
    const Result res = ReadFile(path);
    EXPECT_EQ(res.status, 0) << rel;
    EXPECT_EQ(res.width, width) << rel;
    EXPECT_EQ(res.height, height) << rel;
    EXPECT_EQ(res.pages, pages) << rel;
    EXPECT_TRUE(res.temp_empty) << rel << ": scratch files left behind";
  }

  // A read that succeeds with a picture wider than `min_width`, where the exact size is the
  // tool's choice (a drawing, a map, a rendering).
  void ExpectDrawing(const std::string& rel, int min_width, const std::string& out_ext = ".tif") {
    PICTAVO_REQUIRE_CORPUS(path, rel);
    const Result res = ReadFile(path, out_ext);
    EXPECT_EQ(res.status, 0) << rel;
    EXPECT_GT(res.width, min_width) << rel;
    EXPECT_TRUE(res.temp_empty) << rel << ": scratch files left behind";
  }

  TempDir dir_;
  settings::TMainSettings settings_;
};

TEST_F(CorpusRead, PdfAndPostScriptThroughTheInterpreter) {
  PICTAVO_REQUIRE_TOOL("pdfpsai.bin", "ghostscript");
  PICTAVO_REQUIRE_CORPUS(one, "special/one_page.pdf");
  Result res = ReadFile(one);
  EXPECT_EQ(res.status, 0);
  EXPECT_EQ(res.pages, 1);
  EXPECT_GT(res.width, 100);
  EXPECT_TRUE(res.temp_empty);

  settings_.pdf_eps_ps.res = 20;
  PICTAVO_REQUIRE_CORPUS(many, "special/multi_page_17.pdf");
  res = ReadFile(many);
  EXPECT_EQ(res.status, 0);
  EXPECT_EQ(res.pages, 17);

  PICTAVO_REQUIRE_CORPUS(eps, "vector/ps/golfer.eps");
  res = ReadFile(eps, ".png");
  EXPECT_EQ(res.status, 0);
  EXPECT_GT(res.width, 0);

  // PostScript stored as ".dat" goes to the PostScript route, not to the movie reader.
  PICTAVO_REQUIRE_CORPUS(dat, "special/doretree_postscript.dat");
  res = ReadFile(dat, ".png");
  EXPECT_EQ(res.status, 0);
  EXPECT_TRUE(res.temp_empty);
}

TEST_F(CorpusRead, SvgThroughTheRasterConverter) {
  PICTAVO_REQUIRE_TOOL("convert.bin", "imagemagick-6.q16");
  ExpectDrawing("vector/svg/logo.svg", 0, ".png");
}

TEST_F(CorpusRead, DjvuPages) {
  PICTAVO_REQUIRE_TOOL("djvu_read.bin", "djvulibre-bin");
  ExpectDrawing("raster/djvu/boy_jb2.djvu", 0);
}

TEST_F(CorpusRead, HeicAndAvif) {
  PICTAVO_REQUIRE_TOOL("avifdec.exe", "libavif-bin");
  ExpectPicture("raster/avif/hopper.avif", 128, 128);
  PICTAVO_REQUIRE_TOOL("convert.bin", "imagemagick-6.q16");
  ExpectPicture("raster/heic/rainbow-451x461.heic", 451, 461);
}

TEST_F(CorpusRead, DicomThroughItsToolOnly) {
  PICTAVO_REQUIRE_TOOL("dcm_read_new.bin", "dcmtk");
  ExpectPicture("raster/dicom/MR_small.dcm", 64, 64);
  ExpectPicture("raster/dicom/CT_small.dcm", 128, 128);
}

TEST_F(CorpusRead, Exr) {
  PICTAVO_REQUIRE_TOOL("convert.bin", "imagemagick-6.q16");
  const std::string probe = "\"" + pictavo::testing::BuildDir() +
                            "/utl/convert.bin\" -list format 2>/dev/null | grep -q ' EXR '";
  if (std::system(probe.c_str()) != 0)
    GTEST_SKIP() << "ImageMagick has no EXR coder here: install libmagickcore-6.q16-6-extra";
  ExpectPicture("raster/exr/overexposed_gradient.exr", 20, 12);
}

TEST_F(CorpusRead, FitsAndQoi) {
  PICTAVO_REQUIRE_TOOL("convert.bin", "imagemagick-6.q16");
  PICTAVO_REQUIRE_TOOL("fits.exe", "imagemagick-6.q16");
  ExpectPicture("raster/fits/hopper.fits", 128, 128);
  PICTAVO_REQUIRE_TOOL("qoiconv.exe", "qoi");
  ExpectPicture("raster/qoi/hopper.qoi", 128, 128);
}

TEST_F(CorpusRead, DdsOfEveryCompression) {
  PICTAVO_REQUIRE_TOOL("texconv.exe", "imagemagick-6.q16");
  ExpectPicture("raster/dds/dxt1-rgb-4bbp-noalpha_MipMaps-1.dds", 256, 256);
  ExpectPicture("raster/dds/uncompressed_l.dds", 128, 128);
  if (!fs::exists("/usr/bin/python3") ||
      std::system("/usr/bin/python3 -c 'import PIL' 2>/dev/null"))
    GTEST_SKIP() << "BC7 needs Pillow: install python3-pil";
  ExpectPicture("raster/dds/bc7-argb-8bpp_MipMaps-1.dds", 256, 256);
}

TEST_F(CorpusRead, CameraRawSpecimenWithoutPixelsFailsCleanly) {
  // The corpus raw files are metadata specimens whose image data was stripped: no decoder can
  // read them, so the read fails, read_flag stays set and nothing is left behind.
  PICTAVO_REQUIRE_CORPUS(cr2, "raster/raw/CanonRaw.cr2");
  const Result res = ReadFile(cr2);
  if (res.status == 0) GTEST_SKIP() << "the engine made a picture of the embedded preview";
  EXPECT_TRUE(res.read_flag);
  EXPECT_TRUE(res.temp_empty);
}

TEST_F(CorpusRead, ArchivesReadTheFirstPictureInside) {
  PICTAVO_REQUIRE_TOOL("7za.bin", "7zip");
  ExpectPicture("archive/hopper.tar", 128, 128);  // hopper.jpg comes first
  ExpectDrawing("archive/fixture.7z", 0);
  PICTAVO_REQUIRE_CORPUS(zip, "special/zip_with_images.zip");
  const Result res = ReadFile(zip);
  EXPECT_EQ(res.status, 0);
  EXPECT_TRUE(res.temp_empty);
}

TEST_F(CorpusRead, ArchivesAndMailContainersReadWhatTheTableReads) {
  PICTAVO_REQUIRE_TOOL("7za.bin", "7zip");
  // A tarball inside gzip: both layers are unpacked (test.jpg, 65 x 65).
  ExpectPicture("archive/fixture.tar.gz", 65, 65);
  // No picture inside: the first PDF (A4 at 72 dpi) is read through the interpreter.
  ExpectPicture("archive/pdfs_historicaldates.zip", 595, 842);
  // A zipped shapefile: the map is drawn; its sidecars are not offered on their own.
  ExpectDrawing("archive/coutwildrnp.zip", 0);
  PICTAVO_REQUIRE_TOOL("wmopener.exe", "tnef");
  // An Outlook attachment container saved as .dat: its JPEG attachment (83 x 72).
  ExpectPicture("special/winmail.dat", 83, 72);
}

TEST_F(CorpusRead, RetroFormatsThroughTheirAdapter) {
  PICTAVO_REQUIRE_TOOL("cmp_read.bin", "imagemagick-6.q16");
  ExpectPicture("multipage/a.fli", 320, 200);  // the first frame
  PICTAVO_REQUIRE_TOOL("gerbv.bin", "gerbv");
  // A Gerber component layer under the old CMP codec's extension.
  ExpectDrawing("gerber/arduino-uno/arduino-uno.cmp", 100);
}

TEST_F(CorpusRead, JpegTwoThousandDicom) {
  PICTAVO_REQUIRE_TOOL("dcm_read_new.bin", "dcmtk");
  if (std::system("command -v gdcmconv >/dev/null 2>&1") != 0)
    GTEST_SKIP() << "gdcmconv is missing: install libgdcm-tools";
  ExpectPicture("raster/dicom/JPEG2000.dcm", 256, 1024);  // Columns and Rows of its header
}

TEST_F(CorpusRead, StepModelsAreMeshedThenRendered) {
  PICTAVO_REQUIRE_TOOL("stp/stp2x3d.exe", "gmsh");
  PICTAVO_REQUIRE_TOOL("povray.bin", "povray");
  ExpectPicture("3d/step/cube.step", 800, 600);
}

// Windows metafiles are drawn by wmf2gd of the tool folder at their own size (96 dpi).
TEST_F(CorpusRead, MetafilesAtTheirOwnSize) {
  PICTAVO_REQUIRE_TOOL("wmf2gd.bin", "libwmf-bin");
  ExpectPicture("vector/wmf/santa.wmf", 135, 145);
  ExpectPicture("vector/wmf/drawing.wmf", 82, 82);
}

TEST_F(CorpusRead, MetafilesThatLibwmfRejects) {
  PICTAVO_REQUIRE_TOOL("inkscape.bin", "inkscape");
  ExpectDrawing("vector/wmf/test_libuemf_ref.wmf", 100);
}

TEST_F(CorpusRead, AnimationsBecomeMultiPageTiffs) {
  ExpectPicture("raster/gif/chi.gif", 320, 240, 31);
  ExpectPicture("multipage/iss634.webp", 245, 245, 42);
  PICTAVO_REQUIRE_CORPUS(apng, "special/apng_fixture.apng");
  const Result res = ReadFile(apng);
  EXPECT_EQ(res.status, 0);
  EXPECT_EQ(res.width, 100);
  EXPECT_GT(res.pages, 1);
  EXPECT_TRUE(res.temp_empty);
}

TEST_F(CorpusRead, NamesWithBlanksAndAccents) {
  ExpectPicture("special/Crémieux 11 – copie été.tiff", 199, 47);
}

}  // namespace
}  // namespace pictavo::reader
