// Each adapter of the built tool folder on real files, with the engine's own command lines.
#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "engine/tools/probes.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_manifest.h"
#include "engine/tools/tool_paths.h"
#include "tests/support/test_paths.h"

namespace pictavo::utl {
namespace {

namespace fs = std::filesystem;
using pictavo::testing::TempDir;
using tools::Quoted;

std::string Tool(const std::string& name) {
  return pictavo::testing::BuildDir() + "/utl/" + name;
}

// Skips when the tool (or its program) is not installed, naming the Debian package.
#define REQUIRE_TOOL(name) \
  if (!fs::exists(Tool(name))) GTEST_SKIP() << tools::MissingToolMessage(name)

std::string Head(const std::string& path, size_t n) {
  std::ifstream in(path, std::ios::binary);
  std::string s(n, '\0');
  in.read(s.data(), static_cast<std::streamsize>(n));
  s.resize(static_cast<size_t>(in.gcount()));
  return s;
}

bool NonEmpty(const std::string& path) {
  std::error_code ec;
  return fs::is_regular_file(path, ec) && fs::file_size(path, ec) > 0;
}

int RunTool(const std::string& tool, const std::string& args) {
  return tools::RunAndWaitTimeout(Quoted(Tool(tool)) + " " + args, tools::kHidden, "", 120);
}

// libtiff's view of a TIFF (compression and photometric), through tiffinfo when it is there.
std::string TiffInfo(const std::string& path, const TempDir& dir) {
  const std::string out = dir.file("tiffinfo.txt");
  if (std::system(("tiffinfo '" + path + "' > '" + out + "' 2>/dev/null").c_str()) != 0) return "";
  std::ifstream in(out);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

TEST(Adapters, GeneralRasterTool) {
  REQUIRE_TOOL("f300_uni.exe");
  PICTAVO_REQUIRE_CORPUS(tif, "raster/tiff/hopper_lzw.tif");
  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  TempDir dir;
  const std::string o1 = dir.file("o 1.png");
  RunTool("f300_uni.exe", "-page 0 -npcd 4 -ignore_errors -quiet -out png -c 3 -o " + Quoted(o1) +
                              " " + Quoted(tif));
  EXPECT_EQ(Head(o1, 4), "\x89PNG");

  // CMYK finishing in place, then CCITT G4 and G3-2D, each replacing the file.
  const std::string t = dir.file("$dest;.tif");
  RunTool("f300_uni.exe", "-quiet -out tiff -o " + Quoted(t) + " " + Quoted(png));
  ASSERT_TRUE(NonEmpty(t));
  RunTool("f300_uni.exe", " -c 3 -multi -overwrite -cmyk_space " + Quoted(t));
  std::string info = TiffInfo(t, dir);
  if (!info.empty()) {
    EXPECT_NE(info.find("separated"), std::string::npos) << info;  // CMYK
    EXPECT_NE(info.find("LZW"), std::string::npos) << info;
  }
  RunTool("f300_uni.exe", " -c 6 -multi -overwrite -cmyk_space " + Quoted(t));
  if (!(info = TiffInfo(t, dir)).empty())
    EXPECT_NE(info.find("CCITT Group 3"), std::string::npos) << info;
  RunTool("f300_uni.exe", " -c 7 -multi -overwrite " + Quoted(t));
  if (!(info = TiffInfo(t, dir)).empty())
    EXPECT_NE(info.find("CCITT Group 4"), std::string::npos) << info;
  for (const auto& e : fs::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().string().find(".~f300"), std::string::npos) << "scratch left: " << e.path();

  // Auto contrast, and the GIMP brush written by the adapter itself.
  const std::string ac = dir.file("ac.tif");
  RunTool("f300_uni.exe", " -autocontrast -quiet -out tiff -o " + Quoted(ac) + " " + Quoted(png));
  EXPECT_EQ(Head(ac, 2), "II");
  const std::string gbr = dir.file("b.gbr");
  RunTool("f300_uni.exe", "  -quiet -out gbr -o " + Quoted(gbr) + " " + Quoted(png));
  std::string h = Head(gbr, 28);
  ASSERT_EQ(h.size(), 28u);
  EXPECT_EQ(h.substr(20, 4), "GIMP");
  EXPECT_EQ(fs::file_size(gbr), 28u + 2 + 128 * 128 * 4);  // name "b" + NUL, RGBA pixels

  // A format nothing writes: no output, a failing exit code.
  const std::string wrl = dir.file("x.wrl");
  EXPECT_NE(RunTool("f300_uni.exe", "-quiet -out wrl -o " + Quoted(wrl) + " " + Quoted(png)), 0);
  EXPECT_FALSE(fs::exists(wrl));
}

TEST(Adapters, ImageMagickWrapper) {
  REQUIRE_TOOL("convert.bin");
  PICTAVO_REQUIRE_CORPUS(psd, "raster/psd/hopper.psd");
  PICTAVO_REQUIRE_CORPUS(pdf, "special/multi_page_17.pdf");
  TempDir dir;
  // The option after the output name works (it would be taken for the output otherwise).
  const std::string out = dir.file("o.psd");
  RunTool("convert.bin", " " + Quoted(psd) + " " + Quoted(out) + " -compress rle");
  EXPECT_EQ(Head(out, 4), "8BPS");
  EXPECT_FALSE(fs::exists(dir.file("rle")));
  // PDF input, which Debian's policy keeps from ImageMagick, through Ghostscript.
  const std::string png = dir.file("p.png");
  RunTool("convert.bin", Quoted(pdf + "") + " " + Quoted(png));
  EXPECT_TRUE(NonEmpty(png) || NonEmpty(dir.file("p-0.png")));
  for (const auto& e : fs::directory_iterator(dir.path()))
    EXPECT_EQ(e.path().string().find(".~gs"), std::string::npos) << "scratch left: " << e.path();
}

TEST(Adapters, InterpreterAppliesTrailingPageRange) {
  REQUIRE_TOOL("pdfpsai.bin");
  PICTAVO_REQUIRE_CORPUS(pdf, "special/multi_page_17.pdf");
  TempDir dir;
  const std::string out = dir.file("p 2.pdf");
  RunTool("pdfpsai.bin",
          " -dAutoRotatePages=/None -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile=" +
              Quoted(out) + " " + Quoted(pdf) + " -dFirstPage=2 -dLastPage=3");
  EXPECT_EQ(tools::PdfPageCount(out), 2);
}

TEST(Adapters, WebpAndJpeg2000Writers) {
  PICTAVO_REQUIRE_CORPUS(png, "raster/png/hopper.png");
  TempDir dir;
  if (fs::exists(Tool("webp_write.bin"))) {
    const std::string w = dir.file("o.webp");
    RunTool("webp_write.bin", " -noalpha-alpha_q 99 -q 80 " + Quoted(png) + " -o " + Quoted(w));
    EXPECT_EQ(Head(w, 4), "RIFF");
  } else {
    std::printf("skipped webp_write.bin: %s\n",
                tools::MissingToolMessage("webp_write.bin").c_str());
  }
  REQUIRE_TOOL("colorist.exe");
  const std::string j = dir.file("o.jp2"), lossless = dir.file("l.jp2");
  RunTool("colorist.exe", "convert " + Quoted(png) + " " + Quoted(j) + " -f j2k -q 50");
  RunTool("colorist.exe", "convert " + Quoted(png) + " " + Quoted(lossless) + " -f j2k -q 100");
  EXPECT_EQ(Head(j, 12), std::string("\0\0\0\x0cjP  \r\n\x87\n", 12));
  ASSERT_TRUE(NonEmpty(lossless));
  EXPECT_LT(fs::file_size(j), fs::file_size(lossless));  // lower quality, smaller file
}

TEST(Adapters, ArchiverAndMailUnpacker) {
  REQUIRE_TOOL("7za.bin");
  PICTAVO_REQUIRE_CORPUS(zip, "special/zip_with_images.zip");
  TempDir dir;
  const std::string out = dir.file("out dir");
  RunTool("7za.bin", " e -y " + Quoted(zip) + " -o" + Quoted(out));
  ASSERT_TRUE(fs::is_directory(out));
  EXPECT_FALSE(fs::is_empty(out));

  REQUIRE_TOOL("wmopener.exe");
  PICTAVO_REQUIRE_CORPUS(dat, "special/winmail.dat");
  const std::string mail = dir.file("mail $x");
  RunTool("wmopener.exe", Quoted(dat) + " " + Quoted(mail));
  ASSERT_TRUE(fs::is_directory(mail));
  EXPECT_FALSE(fs::is_empty(mail));
}

TEST(Adapters, TextToPdfThroughTheBatchForm) {
  REQUIRE_TOOL("text2pdf.exe");
  PICTAVO_REQUIRE_CORPUS(txt, "document/txt/lorem-ipsum.txt");
  TempDir dir;
  const std::string pdf = dir.file("out `x`.pdf");
  tools::RunBatch(
      Quoted(Tool("text2pdf.exe")) + " -c1500 -A4 -s10 -v12 " + Quoted(txt) + " > " + Quoted(pdf),
      dir.path().string());
  EXPECT_EQ(Head(pdf, 5), "%PDF-");
  EXPECT_GE(tools::PdfPageCount(pdf), 1);
}

TEST(Adapters, Readers) {
  TempDir dir;
  struct Case {
    const char* tool;
    const char* corpus;
    const char* args;  // %i input, %o output
    const char* output;
    std::string magic;
  } cases[] = {
      {"fits.exe", "raster/fits/hopper.fits", "%i %o", "f.bmp", "BM"},
      {"dcm_read_new.bin", "raster/dicom/CT_small.dcm", "/tifc=1 /convert=%o %i /silent", "d.tif",
       "II"},
      {"hdr_read.bin", "raster/jxr/fixture.jxr", "%i %o", "j.tif", "II"},
      {"texconv.exe", "raster/dds/hopper.dds", "-f B8G8R8X8_UNORM -y -ft tif -o %d %i",
       "hopper.tif", "II"},
      {"sc/sc.exe", "raster/tiff/hopper_g4.tif", "%i %o CAL r200", "c.cal", "srcdocid"},
      {"gxpswin32.exe", "document/xps/xpstest.xps",
       " -dNOPAUSE -sDEVICE=ps2write -sOutputFile=%o %i", "x.ps", "%!PS"},
  };
  int ran = 0;
  for (const Case& c : cases) {
    std::string in = pictavo::testing::CorpusFile(c.corpus);
    if (!fs::exists(Tool(c.tool)) || in.empty()) {
      std::printf("skipped %s: %s\n", c.tool,
                  in.empty() ? "corpus file absent" : tools::MissingToolMessage(c.tool).c_str());
      continue;
    }
    const std::string out = dir.file(c.output);
    std::string args = c.args;
    for (auto [key, value] : {std::pair<std::string, std::string>{"%i", Quoted(in)},
                              {"%o", Quoted(out)},
                              {"%d", Quoted(dir.path().string())}}) {
      size_t at = args.find(key);
      if (at != std::string::npos) args.replace(at, 2, value);
    }
    RunTool(c.tool, args);
    EXPECT_EQ(Head(out, c.magic.size()), c.magic) << c.tool;
    ++ran;
  }
  if (ran == 0) GTEST_SKIP() << "no reader adapter is installed";
}

}  // namespace
}  // namespace pictavo::utl
