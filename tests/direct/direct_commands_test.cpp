// The exact command lines of the PDF and PostScript routines, through the fake tool folder.
#include <gtest/gtest.h>

#include "direct/direct_rows.h"
#include "direct/routines.h"
#include "direct_test_support.h"
#include "engine/tools/command_line.h"

namespace pictavo::direct {
namespace {

using namespace pictavo::direct::testing;
using pictavo::testing::TempDir;

class DirectCommands : public ::testing::Test {
 protected:
  TempDir dir;
  FakeTools fake{dir.path() / "engine"};
  settings::TMainSettings cfg;
  TZubDirect d;

  void SetUp() override {
    fs::create_directories(dir.path() / "tmp");
    d.settings = &cfg;
    d.exe_folder = fake.engine_folder();
    d.temp_folder = (dir.path() / "tmp").string() + "/";
    d.verify_results = false;  // the fake tools write stand-ins, not drawings
  }
  std::string Joined(const Call& c) {
    std::string s;
    for (const auto& a : c.args) s += (s.empty() ? "" : " ") + a;
    return s;
  }
};

TEST_F(DirectCommands, PdfWritingArgumentString) {
  cfg.pdf_write.save_in_cmyk = false;
  d.pdf_mode = false;
  EXPECT_EQ(PdfWriteArgs(d, "in.pdf", "out.pdf", false),
            " -dAutoRotatePages=/None -dNOSAFER -dBATCH -dNOPAUSE"
            " -sColorConversionStrategyForImages=RGB -sColorConversionStrategy=RGB"
            " -dProcessColorModel=/DeviceRGB -sDEVICE=pdfwrite -sOutputFile=\"out.pdf\" \"in.pdf\""
            " -dAutoFilterColorImages=false -dAutoFilterGrayImages=false"
            " -dColorImageFilter=/FlateEncode -dGrayImageFilter=/FlateEncode"
            " -dAutoFilterMonoImages=false -dMonoImageFilter=/CCITTFaxEncode");

  // CMYK with an existing profile, the compact form and a page range; a blank font path adds
  // nothing, a real one is trimmed.
  const std::string icc = dir.file("p.icc");
  WriteText(icc, "icc");
  cfg.pdf_write.save_in_cmyk = true;
  cfg.pdf_write.the_icc = true;
  cfg.pdf_write.icc = icc;
  cfg.pdf_eps_ps.font_path = "   ";
  d.pdf_mode = true;
  d.first_page = 2;
  d.last_page = 3;
  EXPECT_EQ(PdfWriteArgs(d, "in.pdf", "out.pdf", false),
            " -dAutoRotatePages=/None -dNOSAFER -dBATCH -dNOPAUSE"
            " -sColorConversionStrategyForImages=CMYK -sColorConversionStrategy=CMYK"
            " -dProcessColorModel=/DeviceCMYK -sDEVICE=pdfwrite -sOutputFile=\"out.pdf\" \"in.pdf\""
            " -sDefaultCMYKProfile=\"" +
                icc +
                "\" -dPDFSETTINGS=/ebook -dColorImageResolution=149"
                " -dFirstPage=2 -dLastPage=3");
  cfg.pdf_eps_ps.font_path = "  /usr/share/fonts \t";
  EXPECT_NE(PdfWriteArgs(d, "a", "b", false).find(" -sFONTPATH=\"/usr/share/fonts\" "),
            std::string::npos);

  // A missing profile is dropped silently; AI output reads the AI keys.
  cfg.pdf_write.icc = dir.file("missing.icc");
  EXPECT_EQ(PdfWriteArgs(d, "a", "b", false).find("Profile"), std::string::npos);
  cfg.ai_write.save_in_cmyk = false;
  EXPECT_NE(PdfWriteArgs(d, "a", "b", true).find("/DeviceRGB"), std::string::npos);

  EXPECT_EQ(EbookResolution(100), 175);
  EXPECT_EQ(EbookResolution(85), 149);
  EXPECT_EQ(EbookResolution(10), 18);  // 17.5 rounds up
}

TEST_F(DirectCommands, PdfToPdfOneFilePerPageOnlyForSeveralPages) {
  cfg.multipage.option = 3;
  const std::string three = dir.file("three.pdf"), one = dir.file("one.pdf");
  WritePdf(three, "1.4", 3);
  WritePdf(one, "1.4", 1);
  d.src_file = three;
  d.dest_file = dir.file("out.pdf");
  ASSERT_EQ(d.Direct(), 0);
  ASSERT_EQ(d.more_files.size(), 3u);
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 3u);
  for (int p = 1; p <= 3; ++p) {
    EXPECT_EQ(d.more_files[p - 1].page, p);
    EXPECT_TRUE(fs::exists(d.more_files[p - 1].file_name));  // handed on, not cleaned up
    const std::string line = Joined(calls[p - 1]);
    EXPECT_NE(line.find(" -dFirstPage=" + std::to_string(p) + " -dLastPage=" + std::to_string(p)),
              std::string::npos)
        << line;
    // Default compression 6 is the compact form.
    EXPECT_NE(line.find("-dPDFSETTINGS=/ebook -dColorImageResolution=149"), std::string::npos);
  }
  EXPECT_FALSE(fs::exists(d.dest_file));

  fake.ClearLog();
  d.src_file = one;
  ASSERT_EQ(d.Direct(), 0);
  EXPECT_TRUE(d.more_files.empty());
  ASSERT_EQ(fake.Calls().size(), 1u);
  EXPECT_EQ(Joined(fake.Calls()[0]).find("FirstPage"), std::string::npos);
  EXPECT_TRUE(fs::exists(d.dest_file));  // renamed into place
}

TEST_F(DirectCommands, TextToPdfThroughTheBatchForm) {
  cfg.txt.font_size = 11;
  cfg.txt.paper = 0;
  cfg.txt.landscape = 1;
  const std::string txt = dir.file("notes.txt");
  WriteText(txt, "hello\n");
  d.src_file = txt;
  d.dest_file = dir.file("notes.pdf");
  ASSERT_EQ(d.Direct(), 0);
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].tool, "text2pdf.exe");
  EXPECT_EQ(Joined(calls[0]), "-c1500 -A4 -s11 -v13 -L " + txt);
  EXPECT_TRUE(is_pdf(d.dest_file));
}

TEST_F(DirectCommands, AdobeTargetsAndTwoPassPostScript) {
  const std::string pdf = dir.file("in.pdf");
  WritePdf(pdf, "1.4", 1);
  // PDF to EPS goes through a temporary PDF, then eps2write with a numbered page name.
  d.src_file = pdf;
  d.dest_file = dir.file("out.eps");
  ASSERT_EQ(d.Direct(), 0);
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_NE(Joined(calls[0]).find("-sDEVICE=pdfwrite"), std::string::npos);
  const std::string eps = Joined(calls[1]);
  EXPECT_EQ(eps.substr(0, 62), "-dAutoRotatePages=/None -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=e");
  EXPECT_NE(eps.find("%03d.eps "), std::string::npos);
  EXPECT_EQ(eps.find("-dEPSCrop"), std::string::npos);  // a PDF source is not cropped
  EXPECT_TRUE(fs::exists(d.dest_file));
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);

  // EPS to PS with the CMYK pre-pass.
  fake.ClearLog();
  cfg.eps_write.save_in_cmyk = true;
  const std::string src_eps = dir.file("in.eps");
  WriteText(src_eps, "%!PS-Adobe-3.0 EPSF-3.0\n");
  d.src_file = src_eps;
  d.dest_file = dir.file("out.ps");
  ASSERT_EQ(d.Direct(), 0);
  calls = fake.Calls();
  ASSERT_GE(calls.size(), 2u);
  EXPECT_NE(Joined(calls[0]).find("-sColorConversionStrategy=CMYK -dProcessColorModel=/DeviceCMYK "
                                  "-sDEVICE=pdfwrite"),
            std::string::npos);
  EXPECT_EQ(calls[0].args.back(), "-dGrayImageFilter=/FlateEncode");
}

TEST_F(DirectCommands, TwoStageRoutinesFailCleanlyWithoutTheirIntermediate) {
  fake.Silent(true);
  const std::string xps = dir.file("doc.xps");
  WriteText(xps, "xps");
  d.src_file = xps;
  d.dest_file = dir.file("doc.pdf");
  EXPECT_EQ(d.Direct(), kDirectFailed);
  auto calls = fake.Calls();
  ASSERT_EQ(calls.size(), 1u);  // the second stage never ran
  EXPECT_EQ(calls[0].tool, "gxpswin32.exe");
  EXPECT_EQ(calls[0].args[0], "-dNOPAUSE");
  EXPECT_EQ(calls[0].args[1], "-sDEVICE=ps2write");
  EXPECT_EQ(calls[0].args[3], xps);
  EXPECT_EQ(CountEntries(dir.path() / "tmp"), 0u);
  EXPECT_FALSE(fs::exists(d.dest_file));

  // PDF to PCL: the interpreter's PCL XL device with destination and source.
  fake.Silent(false);
  fake.ClearLog();
  const std::string pdf = dir.file("p.pdf");
  WritePdf(pdf, "1.4", 1);
  EXPECT_EQ(convert_pdf2pcl(d, pdf, dir.file("p.pcl")), 0);
  EXPECT_EQ(Joined(fake.Calls()[0]), "-dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=pxlcolor -sOutputFile=" +
                                         dir.file("p.pcl") + " " + pdf);
}

TEST_F(DirectCommands, PerLayerDxfThroughOgr2ogr) {
  cfg.dxf_dwg_read.extract_layers = true;
  const std::string dxf = dir.file("plan.dxf");
  WriteText(dxf,
            "0\nSECTION\n2\nTABLES\n0\nTABLE\n2\nLAYER\n0\nLAYER\n2\nWalls\n70\n0\n0\nLAYER\n2\n"
            "Doors\n70\n0\n0\nENDTAB\n0\nENDSEC\n0\nEOF\n");
  d.src_file = dxf;
  d.dest_file = dir.file("out/plan.dxf");
  fs::create_directories(dir.path() / "out");
  ASSERT_EQ(d.Direct(), 0);
  auto calls = fake.Calls();
  // The whole file into rcp123.dxf, then per layer: the extraction and the conversion.
  ASSERT_EQ(calls.size(), 5u);
  EXPECT_EQ(fs::path(calls[0].args[2]).filename(), "rcp123.dxf");
  for (int i : {1, 3}) {
    EXPECT_EQ(calls[i].tool, "ogr2ogr.exe");
    EXPECT_EQ(calls[i].cwd + "/", fake.utl() + "ogr/");
    ASSERT_EQ(calls[i].args.size(), 6u);
    EXPECT_EQ(calls[i].args[1], "dxf");
    EXPECT_EQ(fs::path(calls[i].args[3]).filename(), "rcp123.dxf");
    EXPECT_EQ(calls[i].args[4], "-sql");
  }
  EXPECT_EQ(calls[1].args[5], "SELECT * FROM entities WHERE layer = 'Walls'");
  EXPECT_EQ(calls[3].args[5], "SELECT * FROM entities WHERE layer = 'Doors'");
  ASSERT_EQ(d.more_files.size(), 2u);
  EXPECT_EQ(d.more_files[0].file_name, d.dest_file);
  EXPECT_TRUE(fs::exists(d.dest_file));
  EXPECT_TRUE(fs::exists(d.more_files[1].file_name));
}

}  // namespace
}  // namespace pictavo::direct
