// CAD, GIS, Gerber, HP-GL, metafile and office files of the shared corpus read through the vector
// route and the build's tool folder. A drawing counts as read when the picture holds ink, but not
// everywhere (a black page is as wrong as a blank one). A test skips, naming the Debian package,
// when its tool is missing from the tool folder.
#include <cstdio>
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

struct Drawing {
  int status = -1;
  int width = 0, height = 0;
  double ink = 0;  // share of pixels that are clearly not white
  bool temp_empty = false;
};

class DrawingRead : public ::testing::Test {
 protected:
  void SetUp() override {
    // Every case reads sample drawings of the shared corpus.
    if (pictavo::testing::CorpusFile("MANIFEST.md").empty())
      GTEST_SKIP() << "the shared corpus is absent (expected beside the repository in ../shared)";
    settings_.SetDefault();
    settings_.pdf_eps_ps.res = 72;
    fs::create_directories(dir_.path() / "temp");
  }

  Drawing Read(const std::string& path) {
    TZubRead r;
    r.settings = &settings_;
    r.temp_folder = (dir_.path() / "temp").string() + "/";
    r.engine_folder = pictavo::testing::BuildDir();
    r.src_file = path;
    r.out_file = dir_.file("out.png");
    fs::remove(r.out_file);
    Drawing d;
    d.status = r.Read();
    d.temp_empty = fs::is_empty(dir_.path() / "temp");
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    if (!fs::exists(r.out_file) || !io.LoadFromFile(r.out_file).ok()) return d;
    d.width = bmp.Width();
    d.height = bmp.Height();
    long dark = 0;
    for (int y = 0; y < bmp.Height(); ++y)
      for (int x = 0; x < bmp.Width(); ++x) {
        const imaging::TRGB c = bmp.GetPixels(x, y);
        if (c.r + c.g + c.b < 3 * 255 - 60) ++dark;
      }
    d.ink = static_cast<double>(dark) / (static_cast<double>(d.width) * d.height);
    return d;
  }

  void ExpectDrawn(const std::string& rel) {
    const std::string path = pictavo::testing::CorpusFile(rel);
    if (path.empty()) {
      ADD_FAILURE() << "corpus file " << rel << " is absent from a corpus that is there";
      return;
    }
    const Drawing d = Read(path);
    EXPECT_EQ(d.status, 0) << rel;
    EXPECT_GT(d.width, 16) << rel;
    EXPECT_GT(d.height, 0) << rel;
    EXPECT_GT(d.ink, 0.0005) << rel << ": nothing drawn";
    EXPECT_LT(d.ink, 0.9) << rel << ": page all dark";
    EXPECT_TRUE(d.temp_empty) << rel << ": scratch files left behind";
  }

  TempDir dir_;
  settings::TMainSettings settings_;
};

TEST_F(DrawingRead, CadAndGisThroughGdal) {
  PICTAVO_REQUIRE_TOOL("ogr/ogr2ogr.exe", "gdal-bin");
  if (pictavo::testing::CorpusFile("cad/dxf/sample_2018.dxf").empty())
    GTEST_SKIP() << "shared corpus is absent";
  for (const char* rel :
       {"cad/dxf/sample_2018.dxf", "cad/dxf/r14_Leader.dxf", "cad/dxf/2000_entities-2d.dxf",
        "cad/dwg/2000_entities-2d.dwg", "gis/shapefile/nc/nc.shp",
        "gis/shapefile/cities/cities.shp", "gis/geojson/trio.geojson",
        "gis/geojson/cycle_hire.geojson", "gis/gpx/test.gpx", "gis/e00/co37_d90.e00",
        "gis/mapinfo/ps_cant_31.MIF", "gis/mapinfo/PacoursIKA2.TAB", "gis/gml/airports.gml"})
    ExpectDrawn(rel);
}

TEST_F(DrawingRead, GisDrawingFollowsTheZoomAndTheShapeOfTheData) {
  PICTAVO_REQUIRE_TOOL("ogr/ogr2ogr.exe", "gdal-bin");
  PICTAVO_REQUIRE_CORPUS(nc, "gis/shapefile/nc/nc.shp");
  // North Carolina spans 8.867 by 2.708 degrees (ogrinfo's extent): 1000 pixels wide at 100%,
  // 956 of them for the map, so 292 high plus the same 2 x 22 pixels of margin.
  Drawing d = Read(nc);
  ASSERT_EQ(d.status, 0);
  EXPECT_EQ(d.width, 1000);
  EXPECT_NEAR(d.height, 336, 4);
  settings_.vector.zoom = 50;
  d = Read(nc);
  ASSERT_EQ(d.status, 0);
  EXPECT_EQ(d.width, 500);
}

TEST_F(DrawingRead, BrokenMapsAndLaterDwgVersionsFailCleanly) {
  PICTAVO_REQUIRE_TOOL("ogr/ogr2ogr.exe", "gdal-bin");
  // A KML with a mismatched tag, a KML whose placemarks have no geometry, and a DWG of a version
  // GDAL's CAD driver does not read (it reads R2000 only): nothing to draw, and the engine
  // cannot read them either.
  for (const char* rel :
       {"gis/kml/Testing.kml", "gis/kml/several_schema_in_layer.kml", "cad/dwg/2018_circle.dwg"}) {
    PICTAVO_REQUIRE_CORPUS(path, rel);
    const Drawing d = Read(path);
    EXPECT_NE(d.status, 0) << rel;
    EXPECT_TRUE(d.temp_empty) << rel;
  }
}

TEST_F(DrawingRead, JsonThatIsNoMapFailsCleanly) {
  PICTAVO_REQUIRE_TOOL("ogr/ogr2ogr.exe", "gdal-bin");
  // A ".json" that is no GeoJSON: GDAL reads nothing, the chain ends with the engine, which
  // cannot read it either.
  const std::string path = dir_.file("settings.json");
  {
    std::FILE* f = std::fopen(path.c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("{\"name\": \"not a map\", \"list\": [1, 2, 3]}\n", f);
    std::fclose(f);
  }
  const Drawing d = Read(path);
  EXPECT_NE(d.status, 0);
  EXPECT_TRUE(d.temp_empty);
}

TEST_F(DrawingRead, GerberThroughGerbv) {
  PICTAVO_REQUIRE_TOOL("gerbv.bin", "gerbv");
  if (pictavo::testing::CorpusFile("gerber/clockblock/clockblock-Edge_Cuts.gbr").empty())
    GTEST_SKIP() << "shared corpus is absent";
  for (const char* rel : {"gerber/clockblock/clockblock-Edge_Cuts.gbr",
                          "gerber/eaglecad1/top-cop.gbx", "gerber/protel/SE_SG_IF_V2.GTL",
                          "gerber/arduino-uno/arduino-uno.sol", "gerber/8bit-mixtape/mixtape.gml"})
    ExpectDrawn(rel);
}

TEST_F(DrawingRead, HpglThroughHp2xx) {
  PICTAVO_REQUIRE_TOOL("hp2xx.bin", "hp2xx");
  PICTAVO_REQUIRE_TOOL("pdfpsai.bin", "ghostscript");
  ExpectDrawn("vector/hpgl/dt.plt");
  ExpectDrawn("vector/hpgl/pw.hpg");
}

TEST_F(DrawingRead, Metafiles) {
  PICTAVO_REQUIRE_TOOL("emf2svg.bin", "emf2svg");
  PICTAVO_REQUIRE_TOOL("rsvg-convert.bin", "librsvg2-bin");
  ExpectDrawn("vector/emf/wrench.emf");
  ExpectDrawn("vector/emf/drawing.emf");
  PICTAVO_REQUIRE_TOOL("wmf2eps.bin", "libwmf-bin");
  ExpectDrawn("vector/wmf/santa.wmf");
  ExpectDrawn("vector/wmf/drawing.wmf");
}

TEST_F(DrawingRead, OfficeDrawingsThroughLibreOffice) {
  PICTAVO_REQUIRE_TOOL("soffice.bin", "libreoffice-draw-nogui");
  PICTAVO_REQUIRE_TOOL("pdfpsai.bin", "ghostscript");
  ExpectDrawn("vector/visio/test.vsdx");
  ExpectDrawn("vector/cdr/test1.cdr");
}

TEST_F(DrawingRead, ModelsRenderedByPovRay) {
  PICTAVO_REQUIRE_TOOL("assimp64/assimp.exe", "assimp-utils");
  PICTAVO_REQUIRE_TOOL("povray.bin", "povray");
  // ASCII and binary STL (one named with a blank), OBJ, PLY, 3DS, glTF binary.
  for (const char* rel : {"3d/stl/Cube 10x10.stl", "3d/stl/Spider_binary.stl", "3d/obj/box.obj",
                          "3d/ply/cube_binary.ply", "3d/3ds/test1.3ds", "3d/gltf/Box.glb"}) {
    ExpectDrawn(rel);
  }
  PICTAVO_REQUIRE_CORPUS(cube, "3d/stl/Cube 10x10.stl");
  settings_.stl_read.milti_frames = true;
  settings_.stl_read.frames = 3;
  settings_.vector.zoom = 25;
  const Drawing d = Read(cube);  // a PNG keeps the first frame
  EXPECT_EQ(d.status, 0);
  EXPECT_EQ(d.width, 200);
  EXPECT_EQ(d.height, 150);
  EXPECT_TRUE(d.temp_empty);
}

}  // namespace
}  // namespace pictavo::reader
