// The pair table: its order, its exact lists, and which row Direct() picks after preparing the
// source (recorded by a fake row runner; preparation tools come from the fake tool folder).
#include <gtest/gtest.h>

#include "direct/direct_rows.h"
#include "direct/routines.h"
#include "direct_test_support.h"

namespace pictavo::direct {
namespace {

using namespace pictavo::direct::testing;
using pictavo::testing::TempDir;

// What the fake row runner saw.
struct Seen {
  int row = 0;
  std::string src, src_tag;
  int32_t status = 0;
};
Seen g_seen;

int32_t Record(TZubDirect& self, const DirectRow& row) {
  g_seen = {row.number, self.src_file, self.src_tag, 0};
  return 0;
}

std::vector<std::string> Tags(std::string_view list) {
  std::vector<std::string> tags;
  size_t at = 0;
  while ((at = list.find(';', at)) != std::string_view::npos) {
    size_t end = list.find(';', at + 1);
    if (end == std::string_view::npos) break;
    if (end > at + 1) tags.push_back(";" + std::string(list.substr(at + 1, end - at - 1)) + ";");
    at = end;
  }
  return tags;
}

TEST(DirectTable, RowsInOrderWithTheirListsExactly) {
  auto rows = DirectRows();
  ASSERT_EQ(rows.size(), 46u);
  for (size_t i = 0; i < rows.size(); ++i) EXPECT_EQ(rows[i].number, static_cast<int>(i) + 1);

  EXPECT_EQ(kVectorTargets,
            ";wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;pct;mif;plt;pcl;svg;wpg;emf;wmf;");
  const std::string gis =
      ";tab;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;fit;shp;";
  const std::string gerber =
      ";gbp;gpb;gko;gm2;gbo;gtp;gml;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;"
      "ssb;tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;";
  EXPECT_EQ(rows[10].sources, ";dgn;dxf;tab;" + gis);
  EXPECT_EQ(rows[11].sources, ";dxf;shp;tab;" + gis);
  EXPECT_EQ(rows[19].sources,
            gerber + gis +
                ";tab;sk1;cdr;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;shp;"
                "gbr;gbs;pct;mif;nap;plt;pcl;svg;svgz;wpg;emf;wmf;hpg;hpgl;hp2;");
  EXPECT_EQ(rows[16].sources,
            gerber +
                ";sk1;emf;cdr;stl;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;"
                "shp;gbr;gbs;pct;mif;nap;plt;pcl;svg;wpg;hpg;hp2;svgz;hpgl;");
  EXPECT_EQ(rows[31].sources,
            gis + gerber +
                ";tab;sk1;stl;cdr;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;"
                "shp;gbr;gbs;pct;mif;nap;plt;pcl;svg;svgz;wpg;emf;wmf;hpg;hpgl;hp2;");
  EXPECT_EQ(rows[33].sources, rows[31].sources);
  EXPECT_NE(rows[12].sources.find(";stl;;ter;"), std::string_view::npos);  // both 3D parts
  EXPECT_EQ(rows[23].targets, ";ai;pdf;eps;ps;epi;");
  EXPECT_EQ(rows[42].sources.substr(0, 20), ";ari;obm;3fr;cap;dcs");
  EXPECT_EQ(rows[42].targets, ";fits;");

  // Walking every pair of every row: the first row holding both tags always wins, and it is
  // never a later row than the one the pair came from.
  for (const DirectRow& row : rows)
    for (const auto& s : Tags(row.sources))
      for (const auto& t : Tags(row.targets)) {
        const DirectRow* found = FindDirectRow(s, t);
        ASSERT_NE(found, nullptr) << s << t;
        EXPECT_LE(found->number, row.number) << s << " -> " << t;
        for (const DirectRow& earlier : rows) {
          if (earlier.number >= found->number) break;
          EXPECT_FALSE(earlier.sources.find(s) != std::string_view::npos &&
                       earlier.targets.find(t) != std::string_view::npos);
        }
      }
}

TEST(DirectTable, DocumentedChoices) {
  auto row_of = [](const char* s, const char* t) {
    const DirectRow* r = FindDirectRow(s, t);
    return r ? r->number : 0;
  };
  EXPECT_EQ(row_of(";svg;", ";dxf;"), 20);  // not a later SVG row
  EXPECT_EQ(row_of(";pdf;", ";pdf;"), 23);  // never row 24
  EXPECT_EQ(row_of(";eps;", ";pdf;"), 24);
  EXPECT_EQ(row_of(";stl;", ";dxf;"), 9);  // before the 3D rows
  EXPECT_EQ(row_of(";obj;", ";dxf;"), 14);
  EXPECT_EQ(row_of(";stl;", ";stl;"), 13);
  EXPECT_EQ(row_of(";svg;", ";svg;"), 4);
  EXPECT_EQ(row_of(";svgz;", ";svg;"), 1);
  EXPECT_EQ(row_of(";cdr;", ";svg;"), 15);
  EXPECT_EQ(row_of(";pcl;", ";pdf;"), 32);
  EXPECT_EQ(row_of(";wmz;", ";svg;"), 20);
  EXPECT_EQ(row_of(";svg;", ";png;"), 46);
  EXPECT_EQ(row_of(";gif;", ";webp;"), 21);
  EXPECT_EQ(row_of(";dwg;", ";dxf;"), 8);
  EXPECT_EQ(row_of(";tif;", ";fits;"), 43);  // camera raw list holds tif
  EXPECT_EQ(row_of(";jpg;", ";png;"), 0);
  // A destination without extension has the tag ";;", which only the source lists' joints hold.
  EXPECT_EQ(row_of(";pdf;", ";;"), 0);
}

class DirectDispatch : public ::testing::Test {
 protected:
  TempDir dir;
  FakeTools fake{dir.path() / "engine"};
  settings::TMainSettings cfg;
  TZubDirect d;

  void SetUp() override {
    fs::create_directories(dir.path() / "tmp");
    fs::create_directories(dir.path() / "out");
    d.settings = &cfg;
    d.exe_folder = fake.engine_folder();
    d.temp_folder = (dir.path() / "tmp").string() + "/";
    d.row_runner = Record;
    g_seen = {};
  }
  int32_t Run(const std::string& src, const std::string& dest_name) {
    d.src_file = src;
    d.dest_file = dir.file("out/" + dest_name);
    return d.Direct();
  }
};

TEST_F(DirectDispatch, TagsAreLowerCasedAndNewPdfIsRewrittenExceptForSvg) {
  const std::string pdf17 = dir.file("A.PDF");
  WritePdf(pdf17, "1.7", 1);
  EXPECT_EQ(Run(pdf17, "b.Pdf"), 0);
  EXPECT_EQ(g_seen.row, 23);
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].tool, "pdfpsai.bin");
  ASSERT_EQ(calls[0].args.size(), 7u);
  EXPECT_EQ(calls[0].args[2], "-sDEVICE=pdfwrite");
  EXPECT_EQ(calls[0].args[3], "-dCompatibilityLevel=1.4");
  EXPECT_EQ(calls[0].args[4], "-o");
  EXPECT_EQ(calls[0].args[5].substr(0, d.temp_folder.size()), d.temp_folder);
  EXPECT_EQ(calls[0].args[6], pdf17);
  EXPECT_EQ(g_seen.src, calls[0].args[5]);
  EXPECT_NE(g_seen.src, pdf17);
  EXPECT_EQ(g_seen.src.substr(g_seen.src.size() - 4), ".pdf");  // keeps the (lower) extension

  fake.ClearLog();
  EXPECT_EQ(Run(pdf17, "b.svg"), 0);
  EXPECT_EQ(g_seen.row, 25);  // PDF to SVG is adobe2vec
  EXPECT_EQ(g_seen.src, pdf17);
  EXPECT_TRUE(fake.Calls().empty());

  const std::string pdf15 = dir.file("c.pdf");
  WritePdf(pdf15, "1.5", 1);
  EXPECT_EQ(Run(pdf15, "c2.pdf"), 0);
  EXPECT_EQ(g_seen.src, pdf15);
  EXPECT_TRUE(fake.Calls().empty());
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
}

TEST_F(DirectDispatch, CompressedMetafileKeepsItsTag) {
  const std::string wmz = dir.file("drawing.wmz");
  WriteText(wmz, "not really gzip");
  EXPECT_EQ(Run(wmz, "drawing.svg"), 0);
  EXPECT_EQ(g_seen.row, 20);
  EXPECT_EQ(g_seen.src_tag, ";wmz;");
  EXPECT_EQ(fs::path(g_seen.src).filename(), "drawing.wmf");
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].tool, "7za.bin");
  ASSERT_EQ(calls[0].args.size(), 4u);
  EXPECT_EQ(calls[0].args[0], "x");
  EXPECT_EQ(calls[0].args[1], "-y");
  EXPECT_EQ(calls[0].args[2], wmz);
  EXPECT_EQ(calls[0].args[3], "-o" + fs::path(g_seen.src).parent_path().string());
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);  // the extraction folder is gone
}

TEST_F(DirectDispatch, PreparedSourcesReachTheirRows) {
  const std::string prn = dir.file("job.prn");
  WriteText(prn,
            "\x1b"
            "E printer data");
  EXPECT_EQ(Run(prn, "job.pdf"), 0);
  EXPECT_EQ(g_seen.row, 32);
  EXPECT_EQ(g_seen.src_tag, ";pcl;");
  EXPECT_EQ(g_seen.src.substr(g_seen.src.size() - 4), ".pcl");

  const std::string svg = dir.file("a.svg");
  WriteText(svg, "<svg xmlns='http://www.w3.org/2000/svg'><style>a>b{fill:red}</style></svg>");
  EXPECT_EQ(Run(svg, "a.dxf"), 0);
  EXPECT_EQ(g_seen.row, 20);
  EXPECT_NE(g_seen.src, svg);  // the style-repaired copy

  const std::string dat = dir.file("page.dat");
  WriteText(dat, "%!PS-Adobe-3.0\nshowpage\n");
  EXPECT_EQ(Run(dat, "page.pdf"), 0);
  EXPECT_EQ(g_seen.row, 24);
  EXPECT_EQ(g_seen.src_tag, ";ps;");

  const std::string shp = dir.file("roads.shp");
  WriteText(shp, "shp");
  WriteText(dir.file("roads.dbf"), "dbf");
  WriteText(dir.file("roads.prj"), "prj");
  EXPECT_EQ(Run(shp, "roads.dxf"), 0);
  EXPECT_EQ(g_seen.row, 10);
  EXPECT_NE(g_seen.src, shp);
  const std::string copy_base = g_seen.src.substr(0, g_seen.src.size() - 4);
  EXPECT_FALSE(fs::exists(copy_base + ".dbf"));  // the copied sidecars went with the copy

  const std::string stl = dir.file("part.stl");
  WriteText(stl, "solid x\nendsolid x\n");
  EXPECT_EQ(Run(stl, "part.dxf"), 0);
  EXPECT_EQ(g_seen.row, 9);
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
  // Sources are never touched.
  EXPECT_TRUE(fs::exists(prn) && fs::exists(svg) && fs::exists(shp) && fs::exists(dat));
}

TEST_F(DirectDispatch, UnknownPairReturns99AndLeavesNothing) {
  d.row_runner = nullptr;
  const std::string pdf = dir.file("new.pdf");
  WritePdf(pdf, "1.7", 2);  // prepared (rewritten) before the table says no
  EXPECT_EQ(Run(pdf, "new.xyz"), kDirectNoRoute);
  EXPECT_FALSE(fake.Calls().empty());
  const std::string jpg = dir.file("photo.jpg");
  WriteText(jpg, "jpeg");
  EXPECT_EQ(Run(jpg, "photo.png"), kDirectNoRoute);
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
  EXPECT_EQ(CountEntries(dir.path() / "out"), 0u);
}

}  // namespace
}  // namespace pictavo::direct
