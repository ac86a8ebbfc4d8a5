#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"
#include "utl/adapters/plan.h"

namespace pictavo::utl {
namespace {

Context Ctx(bool everything = true) {
  Context c;
  c.utl_folder = "/opt/p/utl/";
  c.scratch_folder = "/tmp/";
  c.has_program = [everything](const std::string&) { return everything; };
  return c;
}

TEST(Translate, GhostscriptSwitchesAfterTheInputMoveInFront) {
  // The PDF-writing line of the direct conversions: colour part, output, input, then switches
  // that Ghostscript would otherwise ignore for that input.
  Args in{"-dNOSAFER",
          "-sDEVICE=pdfwrite",
          "-sOutputFile=o.pdf",
          "in.pdf",
          "-sDefaultRGBProfile=p.icc",
          "-dPDFSETTINGS=/ebook",
          "-dFirstPage=2",
          "-dLastPage=3",
          "-sFONTPATH=/f"};
  EXPECT_EQ(
      MoveTrailingGsSwitches(in),
      (Args{"-dNOSAFER", "-sDEVICE=pdfwrite", "-sOutputFile=o.pdf", "-sDefaultRGBProfile=p.icc",
            "-dPDFSETTINGS=/ebook", "-dFirstPage=2", "-dLastPage=3", "-sFONTPATH=/f", "in.pdf"}));
  // "-o FILE" is an output, not the first input; two inputs keep their order.
  EXPECT_EQ(MoveTrailingGsSwitches({"-dBATCH", "-o", "out.pdf", "def.ps", "in.pdf", "-r72"}),
            (Args{"-dBATCH", "-o", "out.pdf", "-r72", "def.ps", "in.pdf"}));
  EXPECT_EQ(MoveTrailingGsSwitches({"-dBATCH", "in.ps"}), (Args{"-dBATCH", "in.ps"}));

  // A document never runs without SAFER; the tool folder stays readable for its definitions.
  Plan p = PlanFor("pdfpsai.bin", {"-dNOSAFER", "-dBATCH", "in.ps"}, Ctx());
  EXPECT_EQ(p.steps[0].argv,
            (Args{"gs", "--permit-file-read=/opt/p/utl/", "-dSAFER", "-dBATCH", "in.ps"}));
  p = PlanFor("pdfpsai.bin", {"-dBATCH", "in.ps"}, Ctx());
  EXPECT_EQ(p.steps[0].argv[1], "-dSAFER");
}

TEST(Translate, ImageMagickOptionAfterTheOutputMovesBeforeIt) {
  EXPECT_EQ(MoveImOptionsBeforeOutput({"src.png", "dest.psd", "-compress", "rle"}),
            (Args{"src.png", "-compress", "rle", "dest.psd"}));
  EXPECT_EQ(MoveImOptionsBeforeOutput({"-loop", "0", "-delay", "10", "d.gif", "t.gif"}),
            (Args{"-loop", "0", "-delay", "10", "d.gif", "t.gif"}));
  EXPECT_EQ(MoveImOptionsBeforeOutput({"a.png", "b.tif", "-monochrome", "-depth", "8"}),
            (Args{"a.png", "-monochrome", "-depth", "8", "b.tif"}));
  Plan p = PlanFor("convert.bin", {"s.png", "d.psd", "-compress", "rle"}, Ctx());
  ASSERT_EQ(p.steps.size(), 1u);
  EXPECT_EQ(p.steps[0].argv, (Args{"convert-im6.q16", "s.png", "-compress", "rle", "d.psd"}));
  EXPECT_EQ(p.steps[0].env, (std::vector<std::string>{"MAGICK_CONFIGURE_PATH=/opt/p/utl/magick"}));
  // PDF inputs go through Ghostscript first: Debian's policy forbids ImageMagick's PDF coder.
  p = PlanFor("convert.bin", {"in.pdf", "out.png"}, Ctx());
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv[0], "gs");
  EXPECT_EQ(p.steps[1].argv, (Args{"convert-im6.q16", "out.png.~gs0-*.png", "out.png"}));
}

TEST(Translate, WebpJoinedSwitchIsSplit) {
  EXPECT_EQ(SplitJoinedWebpSwitches({"-noalpha-alpha_q", "99", "-q", "80", "t.png", "-o", "d"}),
            (Args{"-noalpha", "-alpha_q", "99", "-q", "80", "t.png", "-o", "d"}));
  EXPECT_EQ(SplitJoinedWebpSwitches({"-noalpha", "-lossless", "a-b.png"}),
            (Args{"-noalpha", "-lossless", "a-b.png"}));
  EXPECT_EQ(SplitJoinedWebpSwitches({"-alpha_q", "99"}), (Args{"-alpha_q", "99"}));
}

TEST(Translate, GeneralRasterToolSwitches) {
  // hpi_read: frame, PNG out, compression ignored for PNG.
  Plan p = PlanFor("f300_uni.exe",
                   {"-page", "1", "-npcd", "4", "-ignore_errors", "-quiet", "-out", "png", "-c",
                    "3", "-o", "o.png", "in.hpi"},
                   Ctx());
  ASSERT_TRUE(p.error.empty()) << p.error;
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv, (Args{"convert-im6.q16", "in.hpi[1]", "PNG:o.png.~f300.png"}));
  EXPECT_EQ(p.steps[1].argv, (Args{"o.png.~f300.png", "o.png"}));

  // CMYK finishing in place, LZW.
  p = PlanFor("f300_uni.exe", {"-c", "3", "-multi", "-overwrite", "-cmyk_space", "d.tif"}, Ctx());
  ASSERT_TRUE(p.error.empty()) << p.error;
  EXPECT_EQ(p.steps[0].argv, (Args{"convert-im6.q16", "d.tif", "-colorspace", "CMYK", "-compress",
                                   "LZW", "TIFF:d.tif.~f300.tif"}));
  EXPECT_EQ(p.steps.back().argv, (Args{"d.tif.~f300.tif", "d.tif"}));

  // G3 2-D needs tiffcp; CCITT is 1 bit, so no CMYK.
  p = PlanFor("f300_uni.exe", {"-c", "6", "-multi", "-overwrite", "-cmyk_space", "d.tif"}, Ctx());
  ASSERT_EQ(p.steps.size(), 3u);
  EXPECT_EQ(p.steps[1].argv[0], "tiffcp");
  EXPECT_EQ(p.steps[1].argv[2], "g3:2d");
  EXPECT_FALSE(
      PlanFor("f300_uni.exe", {"-c", "6", "-overwrite", "d.tif"}, Ctx(false)).error.empty());

  // Auto contrast; palettes; 1 bit without dither; raw decoding first.
  p = PlanFor("f300_uni.exe", {"-autocontrast", "-quiet", "-out", "tiff", "-o", "o.tif", "i.tif"},
              Ctx());
  EXPECT_EQ(p.steps[0].argv[2], "-auto-level");
  p = PlanFor("f300_uni.exe",
              {"-quiet", "-out", "xpm", "-binary", "nodither", "-o", "o.xpm", "i.png"}, Ctx());
  EXPECT_EQ(p.steps[0].argv,
            (Args{"convert-im6.q16", "i.png[0]", "+dither", "-monochrome", "XPM:o.xpm.~f300.xpm"}));
  p = PlanFor("f300_uni.exe",
              {"-raw_autobright", "-raw_camerabalance", "-out", "tiff", "-o", "o.tif", "i.orf"},
              Ctx());
  EXPECT_EQ(p.steps[0].argv[0], "dcraw_emu");
  p = PlanFor("f300_uni.exe", {"-out", "tiff", "-o", "o.tif", "pic.neo"}, Ctx());
  EXPECT_EQ(p.steps[0].argv, (Args{"neotoppm", "pic.neo"}));
  EXPECT_EQ(p.steps[0].stdout_path, "o.tif.~f300.pnm");

  // What cannot be served fails without a plan, so no file is left behind.
  EXPECT_FALSE(
      PlanFor("f300_uni.exe", {"-out", "wrl", "-o", "o.wrl", "i.png"}, Ctx()).error.empty());
  EXPECT_FALSE(PlanFor("f300_uni.exe", {"-bogus", "-o", "o.png", "i.png"}, Ctx()).error.empty());
  EXPECT_FALSE(PlanFor("f300_uni.exe", {"-o", "o.png"}, Ctx()).error.empty());
}

TEST(Translate, PdfMergerAndArchiver) {
  Plan p = PlanFor("pdfmerge.bin", {"a.pdf", "1.pdf", "cat", "output", "o.pdf"}, Ctx());
  ASSERT_TRUE(p.error.empty()) << p.error;
  EXPECT_EQ(p.steps[0].argv, (Args{"qpdf", "--empty", "--pages", "a.pdf", "1-z", "1.pdf", "1-z",
                                   "--", "o.pdf.~merge.pdf"}));
  p = PlanFor("pdfmerge.bin", {"in.pdf", "cat", "1", "3-end", "output", "o.pdf"}, Ctx());
  EXPECT_EQ(p.steps[0].argv,
            (Args{"qpdf", "--empty", "--pages", "in.pdf", "1,3-z", "--", "o.pdf.~merge.pdf"}));
  EXPECT_FALSE(PlanFor("pdfmerge.bin", {"a.pdf", "output", "o.pdf"}, Ctx()).error.empty());
  // A file name beginning with a dash is never taken for a switch.
  p = PlanFor("pdfmerge.bin", {"-b.pdf", "cat", "output", "o.pdf"}, Ctx());
  EXPECT_EQ(p.steps[0].argv[3], "./-b.pdf");
  EXPECT_FALSE(PlanFor("pdfmerge.bin", {"/nonexistent/file*.pdf", "cat", "output", "o.pdf"}, Ctx())
                   .error.empty());

  p = PlanFor("7za.bin", {"e", "-y", "a b.zip", "-oout dir"}, Ctx());
  EXPECT_EQ(p.steps[0].argv, (Args{"7zz", "e", "-y", "a b.zip", "-oout dir"}));
  p = PlanFor("7za.bin", {"e", "-y", "x.RAR", "-oout"}, Ctx());
  ASSERT_EQ(p.steps.size(), 3u);
  EXPECT_EQ(p.steps[1].argv[0], "unar");
  EXPECT_FALSE(PlanFor("7za.bin", {"e", "-y", "x.rar", "-oout"}, Ctx(false)).error.empty());
}

TEST(Translate, SmallAdapters) {
  Plan p = PlanFor("colorist.exe", {"convert", "s.png", "d.jp2", "-f", "j2k", "-q", "85"}, Ctx());
  EXPECT_EQ(p.steps[0].argv,
            (Args{"opj_compress", "-i", "s.png", "-o", "d.jp2.~out.jp2", "-r", "9"}));
  p = PlanFor("colorist.exe", {"convert", "s.png", "d.jp2", "-f", "j2k", "-q", "100"}, Ctx());
  EXPECT_EQ(p.steps[0].argv.size(), 5u);  // lossless: no ratio
  EXPECT_EQ(JpegRatioForQuality(50), 27);

  p = PlanFor("sc.exe", {"t.tif", "d.cal", "CAL", "r300"}, Ctx());
  EXPECT_EQ(p.steps[0].argv,
            (Args{"convert-im6.q16", "t.tif[0]", "-monochrome", "-density", "300", "CALS:d.cal"}));
  EXPECT_FALSE(PlanFor("sc/sc.exe", {"t.plt", "d.dwf", "DWF"}, Ctx()).error.empty());

  p = PlanFor("dcm_read_new.bin", {"/tifc=1", "/convert=/tmp/o.tif", "/data/in.dcm", "/silent"},
              Ctx(false));
  EXPECT_EQ(p.steps[0].argv, (Args{"dcmj2pnm", "+ot", "+Wm", "/data/in.dcm", "/tmp/o.tif"}));
  // With GDCM at hand every transfer syntax is unpacked to raw pixels first, into a scratch file.
  p = PlanFor("dcm_read_new.bin", {"/convert=/tmp/o.tif", "/data/in.dcm"}, Ctx());
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv, (Args{"gdcmconv", "--raw", "/data/in.dcm", "/tmp/o.tif.~raw.dcm"}));
  EXPECT_EQ(p.steps[1].argv[3], "/tmp/o.tif.~raw.dcm");
  EXPECT_EQ(p.scratch, (std::vector<std::string>{"/tmp/o.tif.~raw.dcm"}));

  p = PlanFor("stp/stp2x3d.exe", {"/i/part.step", "/o/m.x3d"}, Ctx());
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv[0], "gmsh");
  EXPECT_EQ(p.steps[0].argv[1], "/i/part.step");
  EXPECT_EQ(p.steps[0].argv.back(), "/o/m.x3d.~mesh.stl");
  EXPECT_EQ(p.steps[1].argv, (Args{"assimp", "export", "/o/m.x3d.~mesh.stl", "/o/m.x3d"}));

  p = PlanFor("wmopener.exe", {"w.dat", "out"}, Ctx());
  EXPECT_EQ(p.steps[1].argv, (Args{"tnef", "--overwrite", "-f", "w.dat", "-C", "out"}));

  p = PlanFor("texconv.exe", {"-f", "B8G8R8X8_UNORM", "-y", "-ft", "tif", "-o", "/o", "/i/x.dds"},
              Ctx());
  EXPECT_EQ(p.steps[0].argv.back(), "TIFF:/o/x.tif");

  p = PlanFor("text2pdf.exe", {"-c1500", "-A4", "-s10", "-v12", "-L", "in.txt"}, Ctx());
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv[0], "enscript");
  EXPECT_NE(std::find(p.steps[0].argv.begin(), p.steps[0].argv.end(), "-r"), p.steps[0].argv.end());
  EXPECT_EQ(p.steps[1].argv[0], "gs");
  EXPECT_FALSE(PlanFor("nothing.exe", {}, Ctx()).error.empty());
}

TEST(Translate, ArchiveExpansionIsCheckedFromTheListingFirst) {
  Context ctx = Ctx();
  ctx.max_unpacked_mb = 100;
  Plan p = PlanFor("7za.bin", {"e", "-y", "/a/b.zip", "-o/x"}, ctx);
  ASSERT_EQ(p.steps.size(), 3u);
  EXPECT_EQ(p.steps[0].argv, (Args{"7zz", "l", "-slt", "--", "/a/b.zip"}));
  EXPECT_FALSE(p.steps[0].stdout_path.empty());
  EXPECT_EQ(p.steps[1].kind, Step::Kind::kCheckUnpackedSize);
  EXPECT_EQ(p.steps[1].argv, (Args{p.steps[0].stdout_path, "100"}));
  EXPECT_EQ(p.steps[2].argv[1], "e");
  EXPECT_EQ(p.scratch, (std::vector<std::string>{p.steps[0].stdout_path}));
  // Without a limit, or for a listing, 7-Zip runs alone.
  EXPECT_EQ(PlanFor("7za.bin", {"e", "-y", "/a/b.zip", "-o/x"}, Ctx()).steps.size(), 1u);
  EXPECT_EQ(PlanFor("7za.bin", {"l", "/a/b.zip"}, ctx).steps.size(), 1u);

  // The archive's own "Physical Size" is not an entry; a sum that would wrap stays at the top.
  EXPECT_EQ(UnpackedSizeOfListing("Path = b.zip\nPhysical Size = 999\n----------\nPath = a\n"
                                  "Size = 1000\nPacked Size = 10\n\nPath = c\nSize = 24\n"),
            1024u);
  EXPECT_EQ(UnpackedSizeOfListing("Size = 18446744073709551615\nSize = 5\n"), UINT64_MAX);
  EXPECT_EQ(UnpackedSizeOfListing(""), 0u);
}

TEST(Translate, DdsSurfacesGoToTheDecoderThatHasTheirCompression) {
  pictavo::testing::TempDir dir;
  auto dds = [&](const std::string& name, const std::string& four_cc) {
    std::string bytes = "DDS " + std::string(80, '\0') + four_cc + std::string(60, '\0');
    std::ofstream(dir.file(name), std::ios::binary) << bytes;
    return dir.file(name);
  };
  auto plan = [&](const std::string& input, const Context& ctx) {
    return PlanFor("texconv.exe", {"-f", "B8G8R8X8_UNORM", "-y", "-ft", "tif", "-o", "/o", input},
                   ctx);
  };
  for (const char* code : {"DX10", "ATI2", "BC4U"}) {
    const Plan p = plan(dds(std::string(code) + ".dds", code), Ctx());
    ASSERT_EQ(p.steps.size(), 1u) << code;
    EXPECT_EQ(p.steps[0].argv[0], "/usr/bin/python3") << code;
    EXPECT_EQ(p.steps[0].argv.back(), "/o/" + std::string(code) + ".tif") << code;
  }
  // DXT surfaces, and DX10 ones where Pillow is missing, stay with ImageMagick.
  EXPECT_EQ(plan(dds("dxt1.dds", "DXT1"), Ctx()).steps[0].argv.back(), "TIFF:/o/dxt1.tif");
  EXPECT_EQ(plan(dds("bc7.dds", "DX10"), Ctx(false)).steps[0].argv.back(), "TIFF:/o/bc7.tif");
  EXPECT_EQ(plan(dir.file("absent.dds"), Ctx()).steps[0].argv.back(), "TIFF:/o/absent.tif");
}

TEST(Translate, RetroFormatsGoToTheProgramThatReadsThem) {
  pictavo::testing::TempDir dir;
  auto write = [&](const std::string& name, const std::string& bytes) {
    std::ofstream(dir.file(name), std::ios::binary) << bytes;
    return dir.file(name);
  };
  auto program = [](const Plan& p) { return p.steps.empty() ? p.error : p.steps[0].argv[0]; };
  const std::string fli = write("a.FLI", "anything");
  EXPECT_EQ(program(PlanFor("cmp_read.bin", {fli, "/o/x.bmp", "100"}, Ctx())), "ffmpeg");
  EXPECT_EQ(program(PlanFor("cmp_read.bin", {write("b.wdp", "II"), "/o/x.bmp", "100"}, Ctx())),
            "JxrDecApp");
  Plan p = PlanFor("cmp_read.bin", {write("c.jbg", ""), "/o/x.bmp", "100"}, Ctx());
  EXPECT_EQ(p.steps[0].argv.back(), "BMP3:/o/x.bmp");
  // Printer files: PostScript (after a DOS printer's ^D) goes to the interpreter, PCL nowhere.
  EXPECT_EQ(program(PlanFor("cmp_read.bin", {write("d.prn", "\x04%!PS-Adobe"), "/o/x.bmp"}, Ctx())),
            "gs");
  EXPECT_FALSE(PlanFor("cmp_read.bin",
                       {write("e.prn",
                              "\x1b"
                              "E\x1b&l0O"),
                        "/o/x.bmp"},
                       Ctx())
                   .error.empty());
  // ".cmp": a Gerber layer is drawn by gerbv and turned into the BMP; the old codec is unread.
  p = PlanFor("cmp_read.bin", {write("f.cmp", "G75*\n%MOIN*%\n%FSLAX24Y24*%\n"), "/o/x.bmp"},
              Ctx());
  ASSERT_EQ(p.steps.size(), 2u);
  EXPECT_EQ(p.steps[0].argv[0], "gerbv");
  EXPECT_EQ(p.scratch.size(), 1u);
  EXPECT_FALSE(
      PlanFor("cmp_read.bin", {write("g.cmp", "\xff\x4f\x00"), "/o/x.bmp"}, Ctx()).error.empty());
  EXPECT_FALSE(PlanFor("cmp_read.bin", {write("h.ecw", ""), "/o/x.bmp"}, Ctx()).error.empty());
}

}  // namespace
}  // namespace pictavo::utl
