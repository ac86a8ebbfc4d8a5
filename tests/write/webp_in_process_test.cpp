// The WebP writer encodes in-process when the tool folder's webp_write.bin is the engine's own
// cwebp adapter. The file must be the one cwebp makes from the intermediate PNG, byte for byte,
// and any other program in that place must still be run.
#include <gtest/gtest.h>

#include "write_test_support.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using testing::WriterJob;

// A tool folder holding only webp_write.bin, a link to `program` under the file name `as`.
std::string ToolFolderWith(const std::string& root, const std::string& program,
                           const std::string& as) {
  const fs::path bin = fs::path(root) / "bin";
  fs::create_directories(bin);
  fs::create_directories(fs::path(root) / "utl");
  fs::copy_file(program, bin / as, fs::copy_options::overwrite_existing);
  fs::create_symlink(bin / as, fs::path(root) / "utl" / "webp_write.bin");
  return root + "/";
}

imaging::TIEBitmap Grey(int w, int h) {
  imaging::TIEBitmap bmp;
  EXPECT_TRUE(bmp.Allocate(w, h, imaging::TIEPixelFormat::ie8g).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) bmp.Scanline(y)[x] = static_cast<uint8_t>((x * 7 + y * 3) & 255);
  return bmp;
}

TEST(WebpInProcess, MakesCwebpsFileToTheByte) {
  const std::string adapter = ::pictavo::testing::BuildDir() + "/utl/pictavo_adapter";
  PICTAVO_REQUIRE_TOOL("webp_write.bin", "webp");
  ASSERT_TRUE(fs::exists(adapter));
  if (std::system("command -v cwebp > /dev/null 2>&1") != 0) GTEST_SKIP() << "install webp";

  struct Case {
    const char* name;
    imaging::TIEBitmap picture;
    bool lossless, copy_alpha;
    int quality;
  };
  const Case cases[] = {
      {"photo q80", testing::TestPicture(301, 203), false, true, 80},
      {"alpha q55", testing::TestPicture(120, 90, true), false, true, 55},
      {"alpha lossless", testing::TestPicture(120, 90, true), true, true, 80},
      {"grey lossy", Grey(97, 61), false, false, 90},
      {"photo lossless, no alpha", testing::TestPicture(64, 64), true, false, 80},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    std::string results[2];
    for (int route = 0; route < 2; ++route) {
      WriterJob job;
      testing::SavePicture(c.picture, job.In("a.tif"));
      job.Target("webp", job.In("a.tif"));
      job.settings.webp_write.lossless = c.lossless;
      job.settings.webp_write.quality = c.quality;
      job.settings.save.copy_alpha = c.copy_alpha;
      // Route 0: the adapter under its own name (in-process); route 1: the same program under
      // another name, which the writer runs with the intermediate PNG.
      job.c.exe_folder = ToolFolderWith(job.Root() + "/tools", adapter,
                                        route == 0 ? "pictavo_adapter" : "cwebp_runner");
      ASSERT_EQ(job.c.Convert(), 0) << job.c.error_text;
      results[route] = testing::ReadBytes(job.c.dest_file);
      for (const auto& name : testing::FilesIn(job.Root() + "/tmp"))
        EXPECT_EQ(name.back(), '~') << "only reservation markers stay: " << name;
    }
    ASSERT_GT(results[0].size(), 20u);
    EXPECT_EQ(results[0].substr(8, 4), "WEBP");
    EXPECT_TRUE(results[0] == results[1]) << results[0].size() << " vs " << results[1].size();
  }
}

TEST(WebpInProcess, RunsTheToolForWhatItCannotMatch) {
  WriterJob job;
  job.UseFakeTools();
  // The fake folder's webp_write.bin becomes a link named like the adapter: the engine encodes
  // itself, so nothing is recorded, unless the picture is one it leaves to the tool.
  const fs::path own = fs::path(job.Root()) / "fake" / "bin" / "pictavo_adapter";
  fs::create_directories(own.parent_path());
  fs::create_symlink(PICTAVO_WRITE_FAKE_TOOL, own);
  const fs::path link = fs::path(job.Root()) / "fake" / "utl" / "webp_write.bin";
  fs::remove(link);
  fs::create_symlink(own, link);

  testing::SavePicture(testing::TestPicture(60, 40), job.In("a.tif"));
  job.Target("webp", job.In("a.tif"));
  ASSERT_EQ(job.c.Convert(), 0);
  EXPECT_TRUE(job.Calls().empty());
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file).substr(8, 4), "WEBP");

  // Alpha without "copy alpha": cwebp drops the plane unblended, so the tool is run.
  testing::SavePicture(testing::TestPicture(60, 40, true), job.In("b.tif"));
  job.settings.save.copy_alpha = false;
  job.Target("webp", job.In("b.tif"));
  ASSERT_EQ(job.c.Convert(), 0);
  ASSERT_EQ(job.Calls().size(), 1u);
  EXPECT_EQ(job.Calls()[0].at(0), "webp_write.bin");
}

}  // namespace
}  // namespace pictavo::writer
