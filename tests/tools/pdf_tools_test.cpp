#include "engine/tools/pdf_tools.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "engine/tools/probes.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

namespace fs = std::filesystem;
using pictavo::testing::TempDir;

#define REQUIRE_TOOL(name, package)                                                      \
  if (!platform::FileExists(ToolPath(name)))                                             \
  GTEST_SKIP() << "tool " << name << " is missing from " << ToolFolder() << " (install " \
               << package << " and rebuild the tool folder)"

TEST(MergePdf, ListInOrderAndInTwoPasses) {
  REQUIRE_TOOL("pdfmerge.bin", "qpdf");
  PICTAVO_REQUIRE_CORPUS(one, "special/one_page.pdf");
  PICTAVO_REQUIRE_CORPUS(multi, "special/multi_page_17.pdf");
  TempDir dir;
  // Names that a shell would misread, and a blank.
  const std::string a = dir.file("a $x;1.pdf"), b = dir.file("-b `2`.pdf");
  fs::copy_file(one, a);
  fs::copy_file(multi, b);
  const std::string out = dir.file("out all.pdf");
  ASSERT_TRUE(MergePdfFiles({a, b, a}, out, dir.path().string()).ok());
  EXPECT_EQ(PdfPageCount(out), 19);

  // Long lists are merged in passes through merged.pdf / merged2.pdf; the scratch folder goes.
  std::vector<std::string> many;
  for (int i = 0; i < 700; ++i)
    many.push_back(i % 2 ? a : dir.file("./././././././././././././././././././a $x;1.pdf"));
  const std::string out2 = dir.file("many.pdf");
  ASSERT_TRUE(MergePdfFiles(many, out2, dir.path().string()).ok());
  EXPECT_EQ(PdfPageCount(out2), 700);
  for (const auto& e : fs::directory_iterator(dir.path()))
    EXPECT_FALSE(e.is_directory()) << "scratch folder left: " << e.path();
  EXPECT_FALSE(
      MergePdfFiles({dir.file("missing.pdf")}, dir.file("x.pdf"), dir.path().string()).ok());
}

TEST(MergePdf, WildCardOverAFolderOfPages) {
  REQUIRE_TOOL("pdfmerge.bin", "qpdf");
  PICTAVO_REQUIRE_CORPUS(one, "special/one_page.pdf");
  PICTAVO_REQUIRE_CORPUS(multi, "special/multi_page_17.pdf");
  TempDir dir;
  fs::create_directory(dir.file("pages dir"));
  fs::copy_file(one, dir.file("pages dir/file001.pdf"));
  fs::copy_file(multi, dir.file("pages dir/file002.pdf"));
  fs::copy_file(multi, dir.file("pages dir/other.pdf"));  // not a page file
  ASSERT_TRUE(MergePdfFolder(dir.file("pages dir"), dir.file("m.pdf")).ok());
  EXPECT_EQ(PdfPageCount(dir.file("m.pdf")), 18);
}

TEST(BlankPages, InkShareOfAPgm) {
  TempDir dir;
  std::string pgm = "P5\n# comment\n4 2\n255\n";
  pgm += std::string("\xff\xff\x00\xff\xff\xff\xff\x10", 8);
  std::ofstream(dir.file("p.pgm"), std::ios::binary) << pgm;
  EXPECT_DOUBLE_EQ(PgmInkShare(dir.file("p.pgm")), 0.25);
  std::ofstream(dir.file("bad.pgm"), std::ios::binary) << "P5\n4 2\n255\n\xff";
  EXPECT_LT(PgmInkShare(dir.file("bad.pgm")), 0);
}

TEST(BlankPages, RemovesOnlyBlankPages) {
  REQUIRE_TOOL("pdfpsai.bin", "ghostscript");
  REQUIRE_TOOL("pdfmerge.bin", "qpdf");
  TempDir dir;
  // Three pages: text, blank, text.
  const std::string ps = dir.file("in.ps");
  std::ofstream(ps) << "%!PS\n/Helvetica findfont 48 scalefont setfont\n"
                       "72 600 moveto (Page one with text) show showpage\n"
                       "showpage\n"
                       "72 600 moveto (Page three) show 72 500 moveto (more) show showpage\n";
  const std::string pdf = dir.file("doc.pdf");
  ASSERT_EQ(std::system(("gs -q -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -sOutputFile='" + pdf + "' '" +
                         ps + "' >/dev/null 2>&1")
                            .c_str()),
            0);
  ASSERT_EQ(PdfPageCount(pdf), 3);
  int removed = -1;
  ASSERT_TRUE(RemoveBlankPages(pdf, 80, dir.path().string(), &removed).ok());
  EXPECT_EQ(removed, 1);
  EXPECT_EQ(PdfPageCount(pdf), 2);
  // Nothing blank left: the file stays as it is.
  ASSERT_TRUE(RemoveBlankPages(pdf, 80, dir.path().string(), &removed).ok());
  EXPECT_EQ(removed, 0);
  EXPECT_EQ(PdfPageCount(pdf), 2);
}

}  // namespace
}  // namespace pictavo::tools
