// Round trips over the writer table: every extension of every row is written from a real photo
// with the real tool folder of this build, then opened by another program. Targets that no
// program on this platform writes must fail cleanly: a non-zero status and nothing left behind.
#include <gif_lib.h>
#include <tiffio.h>

#include <cstdio>
#include <set>
#include <sstream>

#include "engine/tools/tool_manifest.h"
#include "write/writer_rows.h"
#include "write_test_support.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using testing::WriterJob;

// Targets without a writing program on Debian 12 (see docs/formats.md, "Writing").
const std::set<std::string> kNotWritable = {"dis", "hru", "db",  "prc", "pic", "rla", "qrt",
                                            "wrl", "wpg", "wmf", "emf", "wmz", "cgm", "drw",
                                            "dwg", "dwf", "pct", "stl", "gbr", "bpg", "flif"};

// Targets checked by opening them with an independent program: the program and its arguments.
struct Reader {
  std::string program;
  std::string args;  // "{}" is the file
};
Reader ReaderFor(const std::string& ext) {
  if (ext == "webp" || ext == "webpll") return {"dwebp", "-quiet {} -o {}.png"};
  if (ext == "avif") return {"avifdec", "{} {}.png"};
  if (ext == "swf") return {"ffmpeg", "-v error -y -i {} -frames:v 1 {}.png"};
  if (ext == "jxr") return {"JxrDecApp", "-i {} -o {}.tif"};
  static const std::set<std::string> magick = {
      "jpeg", "jpg", "bmp", "gif", "jp2", "pcx", "png", "tga", "tif", "tiff", "ico", "psd",
      "ppm",  "pgm", "sgi", "xbm", "xpm", "mtv", "dcx", "cin", "dds", "fits", "cal", "cg4"};
  if (magick.count(ext)) return {"identify", "-quiet {}"};
  return {};
}

bool OnPath(const std::string& program) {
  return std::system(("command -v " + program + " > /dev/null 2>&1").c_str()) == 0;
}

std::vector<std::string> TableExtensions() {
  std::vector<std::string> exts;
  for (const WriterRow& row : WriterRows()) {
    std::stringstream list{std::string(row.list)};
    std::string ext;
    while (std::getline(list, ext, ';'))
      if (!ext.empty() && std::find(exts.begin(), exts.end(), ext) == exts.end())
        exts.push_back(ext);
  }
  return exts;
}

class WriterTableRoundTrip : public ::testing::TestWithParam<std::string> {};

TEST_P(WriterTableRoundTrip, WritesAFileOthersOpenOrFailsCleanly) {
  PICTAVO_REQUIRE_CORPUS(photo, "raster/png/hopper.png");
  const std::string ext = GetParam();
  WriterJob job;
  if (!fs::exists(::pictavo::testing::BuildDir() + "/utl/convert.bin"))
    GTEST_SKIP() << "the tool folder of this build is not made (target utl_folder)";
  fs::copy_file(photo, job.In("hopper.png"));
  job.Target(ext, job.In("hopper.png"));
  const int status = job.c.Convert();

  if (kNotWritable.count(ext)) {
    EXPECT_NE(status, 0) << ext << " has no writer here; update docs/formats.md if it now works";
    EXPECT_TRUE(testing::FilesIn(job.Out("")).empty());
    return;
  }
  ASSERT_EQ(status, 0) << ext << ": " << job.c.error_text;
  ASSERT_GT(fs::file_size(job.c.dest_file), 0u);
  const std::string head = testing::ReadBytes(job.c.dest_file).substr(0, 16);
  if (ext == "pdf" || ext == "ai") EXPECT_EQ(head.substr(0, 5), "%PDF-");
  if (ext == "ps" || ext == "eps" || ext == "epi") EXPECT_EQ(head.substr(0, 4), "%!PS");
  if (ext == "svg") EXPECT_NE(testing::ReadBytes(job.c.dest_file).find("<svg"), std::string::npos);
  if (ext == "dxf")
    EXPECT_NE(testing::ReadBytes(job.c.dest_file).find("SECTION"), std::string::npos);

  const Reader reader = ReaderFor(ext);
  if (reader.program.empty()) return;
  if (!OnPath(reader.program)) GTEST_SKIP() << reader.program << " is not installed";
  std::string args = reader.args;
  for (size_t at; (at = args.find("{}")) != std::string::npos;)
    args.replace(at, 2, "'" + job.c.dest_file + "'");
  const std::string cmd = reader.program + " " + args + " 2>&1";
  FILE* pipe = popen(cmd.c_str(), "r");
  ASSERT_NE(pipe, nullptr);
  std::string output;
  char buf[256];
  while (fgets(buf, sizeof buf, pipe)) output += buf;
  const int rc = pclose(pipe);
  EXPECT_EQ(rc, 0) << cmd << "\n" << output;
  if (reader.program == "identify") EXPECT_NE(output.find("128x128"), std::string::npos) << output;
}

// The finishing tools of simple_write, run for real.
TEST(FinishingTools, AnimatedGifLoopsAndCmykTiffIsSeparated) {
  WriterJob job;
  if (!fs::exists(::pictavo::testing::BuildDir() + "/utl/convert.bin") ||
      !fs::exists(::pictavo::testing::BuildDir() + "/utl/f300_uni.exe"))
    GTEST_SKIP() << "convert.bin or f300_uni.exe is missing: install imagemagick-6.q16";
  testing::SaveFrames(job.In("three.gif"), 3);
  job.settings.gif.delay_time = 20;
  job.Target("gif", job.In("three.gif"));
  ASSERT_EQ(job.c.Convert(), 0);
  const std::string gif_bytes = testing::ReadBytes(job.c.dest_file);
  EXPECT_NE(gif_bytes.find("NETSCAPE2.0"), std::string::npos);
  int error = 0;
  GifFileType* gif = DGifOpenFileName(job.c.dest_file.c_str(), &error);
  ASSERT_NE(gif, nullptr);
  EXPECT_EQ(DGifSlurp(gif), GIF_OK);
  EXPECT_EQ(gif->ImageCount, 3);
  DGifCloseFile(gif, &error);

  // JPEG in TIFF saved with 3 samples, then made CMYK by the general raster tool.
  testing::SavePicture(testing::TestPicture(), job.In("a.png"));
  job.settings.tif.save_in_cmyk = true;
  job.settings.tif.compression = 6;
  job.Target("tif", job.In("a.png"));
  ASSERT_EQ(job.c.Convert(), 0);
  TIFF* tif = TIFFOpen(job.c.dest_file.c_str(), "r");
  ASSERT_NE(tif, nullptr);
  uint16_t photometric = 0, compression = 0;
  TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric);
  TIFFGetField(tif, TIFFTAG_COMPRESSION, &compression);
  TIFFClose(tif);
  EXPECT_EQ(photometric, PHOTOMETRIC_SEPARATED);
  EXPECT_EQ(compression, COMPRESSION_JPEG);
}

INSTANTIATE_TEST_SUITE_P(AllTargets, WriterTableRoundTrip, ::testing::ValuesIn(TableExtensions()),
                         [](const auto& info) { return info.param; });

}  // namespace
}  // namespace pictavo::writer
