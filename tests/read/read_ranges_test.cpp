// A long PDF is rendered in page ranges side by side and joined without decoding: the read
// stage's TIFF must hold every page once, in the document's order, with no scratch file left.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/core_share.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "read/read_routes.h"
#include "reader_fixture.h"

namespace pictavo::reader {
namespace {
namespace fs = std::filesystem;

using PdfRanges = ReaderTest;

// A PDF of `pages` pages, page n filled with grey level n / (pages + 1), made by Ghostscript.
std::string GreyPages(const pictavo::testing::TempDir& dir, int pages) {
  const std::string ps = dir.file("pages.ps"), pdf = dir.file("pages.pdf");
  std::ofstream out(ps);
  out << "%!PS\n";
  for (int n = 1; n <= pages; ++n)
    out << "<< /PageSize [72 72] >> setpagedevice " << static_cast<double>(n) / (pages + 1)
        << " setgray 0 0 72 72 rectfill showpage\n";
  out.close();
  const std::string command =
      "gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -o '" + pdf + "' '" + ps + "'";
  return std::system(command.c_str()) == 0 ? pdf : std::string();
}

TEST_F(PdfRanges, EveryPageOnceInOrder) {
  PICTAVO_REQUIRE_TOOL("pdfpsai.bin", "ghostscript");
  if (std::system("command -v gs > /dev/null 2>&1") != 0) GTEST_SKIP() << "install ghostscript";
  for (int pages : {1, 7, 10}) {
    SCOPED_TRACE(pages);
    const std::string pdf = GreyPages(dir_, pages);
    ASSERT_FALSE(pdf.empty());
    settings_.pdf_eps_ps.res = 20;
    r_.exe_folder = pictavo::testing::BuildDir() + "/";
    r_.src_file = pdf;
    r_.out_file = dir_.file("out.tif");
    fs::remove(r_.out_file);
    ASSERT_EQ(adobe_read(r_), 0);

    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    ASSERT_TRUE(io.ParamsFromFile(r_.out_file).ok());
    ASSERT_EQ(io.Params().ImageCount, pages);
    for (int n = 0; n < pages; ++n) {
      io.Params().ImageIndex = n;
      ASSERT_TRUE(io.LoadFromFile(r_.out_file).ok());
      const int grey = bmp.GetPixels(bmp.Width() / 2, bmp.Height() / 2).r;
      const int expected = 255 * (n + 1) / (pages + 1);
      EXPECT_NEAR(grey, expected, 3) << "page " << n + 1;
    }
    EXPECT_TRUE(fs::is_empty(dir_.path() / "temp"));
  }
}

// A file gets the cores that the files in progress leave; counted files end with their workers.
TEST(CoreShare, CoresAreSharedAmongFilesInProgress) {
  const int cores = static_cast<int>(std::max(1u, std::thread::hardware_concurrency()));
  EXPECT_EQ(tools::ThreadsForOneFile(), cores);
  {
    std::vector<std::unique_ptr<tools::BusyWithFile>> files;
    files.push_back(std::make_unique<tools::BusyWithFile>());
    EXPECT_EQ(tools::ThreadsForOneFile(), cores);
    while (static_cast<int>(files.size()) < cores + 1)
      files.push_back(std::make_unique<tools::BusyWithFile>());
    EXPECT_EQ(tools::ThreadsForOneFile(), 1);
  }
  EXPECT_EQ(tools::ThreadsForOneFile(), cores);
}

}  // namespace
}  // namespace pictavo::reader
