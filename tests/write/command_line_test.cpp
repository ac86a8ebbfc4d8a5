// Exact command lines of the tool-backed writers, recorded by the fake tool folder.
#include "write/writers.h"
#include "write_test_support.h"

#include <algorithm>

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;

using testing::Call;
using testing::WriterJob;

class ToolWriter : public ::testing::Test {
 protected:
  void SetUp() override {
    job.UseFakeTools();
    testing::SavePicture(testing::TestPicture(60, 40, true), job.In("a.tif"), 200);
  }
  // Runs Convert for `ext` and returns the recorded calls.
  std::vector<Call> Run(const std::string& ext, int expected_status = 0) {
    fs::remove(job.Root() + "/calls.log");
    job.Target(ext, job.In("a.tif"));
    EXPECT_EQ(job.c.Convert(), expected_status) << ext;
    return job.Calls();
  }
  WriterJob job;
};

TEST_F(ToolWriter, WebpKeepsTheJoinedNoAlphaSwitch) {
  job.settings.save.copy_alpha = false;
  job.settings.webp_write.quality = 80;
  EXPECT_EQ(Run("webp").at(0), (Call{"webp_write.bin", "-noalpha-alpha_q", "99", "-q", "80",
                                     "TMP.png", "-o", "DEST.webp"}));
  job.settings.save.copy_alpha = true;
  EXPECT_EQ(Run("webp").at(0),
            (Call{"webp_write.bin", "-alpha_q", "99", "-q", "80", "TMP.png", "-o", "DEST.webp"}));
  job.settings.webp_write.lossless = true;
  job.settings.save.copy_alpha = false;
  EXPECT_EQ(Run("webpll").at(0),
            (Call{"webp_write.bin", "-noalpha", "-lossless", "TMP.png", "-o", "DEST.webpll"}));
  // The intermediate file is gone and the result is in place.
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file), "output of webp_write.bin");
  for (const auto& name : testing::FilesIn(job.Root() + "/tmp"))
    EXPECT_EQ(name.back(), '~') << "only reservation markers stay: " << name;
}

TEST_F(ToolWriter, AvifQuantizerFromQuality) {
  job.settings.save.copy_alpha = false;
  job.settings.avif_write.quality = 50;
  EXPECT_EQ(Run("avif").at(0),
            (Call{"avifenc.exe", "-p", "--min", "30", "--max", "32", "--minalpha", "30",
                  "--maxalpha", "32", "TMP.png", "DEST.avif"}));
  job.settings.save.copy_alpha = true;
  job.settings.avif_write.quality = 100;
  EXPECT_EQ(Run("avif").at(0), (Call{"avifenc.exe", "-l", "TMP.png", "DEST.avif"}));
  EXPECT_EQ(AvifQuantizer(0), 60);
  EXPECT_EQ(AvifQuantizer(85), 9);
  EXPECT_EQ(AvifQuantizer(99), 1);
}

TEST_F(ToolWriter, BpgQuantizerAndLossless) {
  for (auto [quality, q] : {std::pair{0, "51"}, std::pair{99, "2"}, std::pair{50, "26"}}) {
    job.settings.bpg_write.quality = quality;
    EXPECT_EQ(Run("bpg").at(0), (Call{"bpgenc.bin", "-q", q, "-o", "DEST.bpg", "TMP.png"}));
  }
  job.settings.bpg_write.quality = 100;
  EXPECT_EQ(Run("bpg").at(0), (Call{"bpgenc.bin", "-lossless", "-o", "DEST.bpg", "TMP.png"}));
  EXPECT_EQ(BpgQuantizer(-40), 51);
  EXPECT_EQ(BpgQuantizer(400), 0);
}

TEST_F(ToolWriter, OtherEncodersAndTheirArguments) {
  EXPECT_EQ(Run("flif").at(0), (Call{"flif.exe", "-n", "TMP.ppm", "DEST.flif"}));
  // The CALS density is the picture's resolution.
  EXPECT_EQ(Run("cal").at(0), (Call{"sc/sc.exe", "TMP.tif", "DEST.cal", "CAL", "r200"}));
  job.settings.jxr_write.quality = 65;
  EXPECT_EQ(Run("jxr").at(0), (Call{"hdr_read.bin", "SRC", "DEST.jxr", "65"}));
  job.settings.gbr.type = 1;
  EXPECT_EQ(Run("gbr").at(0),
            (Call{"f300_uni.exe", "-quiet", "-out", "gbr", "-o", "DEST.gbr", "TMP.png"}));
  EXPECT_EQ(Run("wpg").at(0), (Call{"MakeWPG.exe", "DEST.wpg"}));
  EXPECT_EQ(Run("xpm").at(0), (Call{"f300_uni.exe", "-quiet", "-out", "xpm", "-binary", "nodither",
                                    "-o", "DEST.xpm", "SRC"}));
  EXPECT_EQ(Run("prc").at(0), (Call{"f300_uni.exe", "-quiet", "-out", "prc", "-colors", "216", "-o",
                                    "DEST.prc", "SRC"}));
  std::vector<Call> calls = Run("dds");
  ASSERT_EQ(calls.size(), 2u);
  EXPECT_EQ(calls[0], (Call{"f300_uni.exe", "-quiet", "-out", "tiff", "-o", "TMP.tif", "SRC"}));
  EXPECT_EQ(calls[1], (Call{"convert.bin", "TMP.tif", "DEST.dds"}));
}

TEST_F(ToolWriter, MultiSizeIconListsTheTickedSizes) {
  job.settings.ico.create_multi_size = true;
  job.settings.ico.p128 = job.settings.ico.p24 = false;
  EXPECT_EQ(Run("ico").at(0), (Call{"convert.bin", "TMP.png", "-define",
                                    "icon:auto-resize=256,64,48,32,16", "DEST.ico"}));
}

TEST_F(ToolWriter, DocumentsGoThroughTheInterpreter) {
  job.settings.pdf_write.save_in_cmyk = true;
  const std::vector<Call> calls = Run("pdf");
  ASSERT_EQ(calls.size(), 1u);
  const Call& gs = calls[0];
  EXPECT_EQ(gs[0], "pdfpsai.bin");
  EXPECT_EQ(gs[4], "-sDEVICE=pdfwrite");
  EXPECT_NE(std::find(gs.begin(), gs.end(), "-sColorConversionStrategy=CMYK"), gs.end());
  EXPECT_NE(std::find(gs.begin(), gs.end(), "-dProcessColorModel=/DeviceCMYK"), gs.end());
  EXPECT_EQ(gs.back(), "TMP.pdf");
  EXPECT_EQ(Run("eps").at(0)[4], "-sDEVICE=eps2write");
  EXPECT_EQ(Run("ps").at(0)[4], "-sDEVICE=ps2write");
  job.settings.pcl_write.monochrome = 2;
  EXPECT_EQ(Run("pcl").at(0)[4], "-sDEVICE=pxlmono");
}

TEST_F(ToolWriter, CmykTiffFinishingFollowsTheCompressionTable) {
  job.settings.tif.save_in_cmyk = true;
  const struct {
    int compression;
    Call expected;
  } rows[] = {
      {0, {"f300_uni.exe", "-multi", "-overwrite", "-cmyk_space", "DEST.tif"}},
      {2, {"f300_uni.exe", "-c", "1", "-multi", "-overwrite", "-cmyk_space", "DEST.tif"}},
      {6, {"f300_uni.exe", "-c", "8", "-multi", "-overwrite", "-cmyk_space", "DEST.tif"}},
      {7, {"f300_uni.exe", "-c", "3", "-multi", "-overwrite", "-cmyk_space", "DEST.tif"}},
  };
  for (const auto& row : rows) {
    job.settings.tif.compression = row.compression;
    const std::vector<Call> calls = Run("tif");
    ASSERT_EQ(calls.size(), 1u) << row.compression;
    EXPECT_EQ(calls[0], row.expected);
  }
  // The fax codings are 1-bit: CMYK is switched off for them and the tool does not run.
  for (int v : {1, 3, 4, 5}) {
    job.settings.tif.compression = v;
    EXPECT_TRUE(Run("tif").empty()) << v;
  }
}

TEST_F(ToolWriter, AnimatedGifIsMadeToLoop) {
  testing::SaveFrames(job.In("anim.gif"), 3);
  job.settings.gif.delay_time = 25;
  fs::remove(job.Root() + "/calls.log");
  job.Target("gif", job.In("anim.gif"));
  EXPECT_EQ(job.c.Convert(), 0);
  ASSERT_EQ(job.Calls().size(), 1u);
  EXPECT_EQ(job.Calls()[0],
            (Call{"convert.bin", "-loop", "0", "-delay", "25", "DEST.gif", "TMP.gif"}));
  // The looped file replaced the engine's.
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file), "output of convert.bin");
  // No loop asked: the engine's file stays.
  job.settings.gif.loop = false;
  fs::remove(job.Root() + "/calls.log");
  EXPECT_EQ(job.c.Convert(), 0);
  EXPECT_TRUE(job.Calls().empty());
  EXPECT_EQ(testing::ReadBytes(job.c.dest_file).substr(0, 6), "GIF89a");
}

TEST_F(ToolWriter, ToolThatWritesNothingFailsAndLeavesNoFile) {
  job.FailTools("webp_write.bin,avifenc.exe,hdr_read.bin");
  for (const char* ext : {"webp", "avif", "jxr"}) {
    Run(ext, 1);
    EXPECT_FALSE(fs::exists(job.c.dest_file)) << ext;
  }
  for (const auto& name : testing::FilesIn(job.Out(""))) ADD_FAILURE() << "left behind: " << name;
}

}  // namespace
}  // namespace pictavo::writer
