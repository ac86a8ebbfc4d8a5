// Runs the built `pictavo` binary on files written here, as a user would.
#include <gtest/gtest.h>

#include <sys/stat.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "tests/support/test_paths.h"

namespace pictavo::cli {
namespace {

struct CommandResult {
  int code = -1;
  std::string out, err;
};

class PictavoCommand : public ::testing::Test {
 protected:
  void SetUp() override {
    binary_ = std::string(PICTAVO_BUILD_DIR) + "/pictavo";
    if (!platform::FileExists(binary_)) GTEST_SKIP() << binary_ << " is not built yet";
  }

  CommandResult Pictavo(const std::string& args) {
    const std::string out = dir_.file("stdout.txt"), err = dir_.file("stderr.txt");
    const std::string command = "'" + binary_ + "' " + args + " >'" + out + "' 2>'" + err + "'";
    CommandResult r;
    const int status = std::system(command.c_str());
    r.code = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    r.out = platform::ReadFileBytes(out).value_or("");
    r.err = platform::ReadFileBytes(err).value_or("");
    return r;
  }

  std::string binary_;
  pictavo::testing::TempDir dir_;
};

TEST_F(PictavoCommand, SettingsShowReadsAHandWrittenFile) {
  const std::string cfg = dir_.file("job.cfg");
  ASSERT_TRUE(platform::WriteTextFileUtf16(cfg,
                                           "[jpg]\nQUALITY=42\n[PNG]\nColor_red=300\n"
                                           "[DXF_Write]\nVersion=0\n[Avif_Write]\nQuality=7\n"
                                           "[Multipage]\nOption=9\n[SVG]\nCount=1\nFont1_1=Arial\n")
                  .ok());
  CommandResult r = Pictavo("settings show '" + cfg + "'");
  ASSERT_EQ(r.code, 0) << r.err;
  EXPECT_EQ(r.err, "");
  for (const char* line :
       {"\nJPG/Quality=42\n", "\nPNG/Color_red=44\n", "\nDXF_write/Version=8\n",
        "\nAvif_write/Quality=7\n", "\nMultipage/Option=4\n", "\nSVG/Count=1\n",
        "\nSVG/Font1_1=Arial\n", "\nSVG/Font2_1=\n", "\nThumbnails/Count_more=5\n",
        "\nThumbnails_4/First_p=0\n", "\nMain/Image_preview=1\n", "\nView/Left=60\n"})
    EXPECT_NE(r.out.find(line), std::string::npos) << line;
  EXPECT_EQ(r.out.find("Main/Name="), std::string::npos);

  CommandResult missing = Pictavo("settings show '" + dir_.file("none.cfg") + "'");
  EXPECT_EQ(missing.code, 0);
  EXPECT_NE(missing.out.find("\nJPG/Quality=80\n"), std::string::npos);
  EXPECT_EQ(std::count(missing.err.begin(), missing.err.end(), '\n'), 1) << missing.err;
  EXPECT_NE(missing.err.find("no such file"), std::string::npos);
}

TEST_F(PictavoCommand, SettingsWriteThenShowRoundTrips) {
  const std::string cfg = dir_.file("out.cfg");
  CommandResult w =
      Pictavo("settings write '" + cfg + "' --mode 3 --set Main/Dest_ext=png --set gif/loop=0");
  ASSERT_EQ(w.code, 0) << w.err;
  std::optional<std::string> text = platform::ReadTextFile(cfg);
  ASSERT_TRUE(text);
  EXPECT_NE(text->find("Name=PNG"), std::string::npos);
  EXPECT_EQ(text->find("Image_preview"), std::string::npos);  // mode 3 has no front-end keys
  CommandResult show = Pictavo("settings show '" + cfg + "'");
  EXPECT_NE(show.out.find("\nGIF/Loop=0\n"), std::string::npos);
  EXPECT_NE(show.out.find("\nMain/Dest_ext=png\n"), std::string::npos);

  EXPECT_EQ(Pictavo("settings write").code, 2);
  EXPECT_EQ(Pictavo("settings write '" + cfg + "' --mode x").code, 2);
  CommandResult bad = Pictavo("settings show --set Nope/Key=1");
  EXPECT_EQ(bad.code, 2);
  EXPECT_NE(bad.err.find("Nope/Key"), std::string::npos);
  EXPECT_EQ(Pictavo("settings --help").code, 0);
}

// `pictavo settings write FOLDER` ended with std::bad_alloc (exit 134): the reader asked for
// 2^63 bytes. Now every odd path gives one clear line, and nothing is replaced.
TEST_F(PictavoCommand, SettingsPathsThatAreNoFilesAreRefusedCleanly) {
  const std::string folder = dir_.file("folder.cfg");
  std::filesystem::create_directory(folder);
  CommandResult write = Pictavo("settings write '" + folder + "'");
  EXPECT_EQ(write.code, 1) << write.err;
  EXPECT_EQ(write.err, "pictavo settings: cannot write " + folder + ": cannot read " + folder +
                           ": it is a folder\n");
  EXPECT_TRUE(std::filesystem::is_directory(folder));

  for (const std::string& args :
       {"settings show '" + folder + "'",
        "settings write '" + dir_.file("out.cfg") + "' --from '" + folder + "'"}) {
    CommandResult r = Pictavo(args);
    EXPECT_EQ(r.code, 0) << args << r.err;
    EXPECT_EQ(r.err, "pictavo settings: warning: cannot read " + folder +
                         ": it is a folder; using the defaults\n");
  }
  EXPECT_NE(Pictavo("settings show '" + dir_.file("out.cfg") + "'").out.find("\nJPG/Quality=80\n"),
            std::string::npos);

  const std::string fifo = dir_.file("fifo.cfg");
  ASSERT_EQ(::mkfifo(fifo.c_str(), 0600), 0);
  CommandResult to_fifo = Pictavo("settings write '" + fifo + "'");
  EXPECT_EQ(to_fifo.code, 1);
  EXPECT_NE(to_fifo.err.find("it is a pipe (FIFO)"), std::string::npos) << to_fifo.err;
  EXPECT_TRUE(std::filesystem::is_fifo(fifo));

  // A value with a line break would write sections of its own: a usage error, nothing written.
  CommandResult injected =
      Pictavo("settings write '" + dir_.file("new.cfg") + "' --set 'Main/Dest_path=/x\n[JPG]'");
  EXPECT_EQ(injected.code, 2);
  EXPECT_NE(injected.err.find("line break"), std::string::npos) << injected.err;
  EXPECT_FALSE(std::filesystem::exists(dir_.file("new.cfg")));

  // Blanks survive the command line, the file and `show`.
  ASSERT_EQ(Pictavo("settings write '" + dir_.file("blank.cfg") +
                    "' --set 'File_name/Substring_1= ' --set File_name/Substring_2=_")
                .code,
            0);
  EXPECT_NE(Pictavo("settings show '" + dir_.file("blank.cfg") + "'")
                .out.find("\nFile_name/Substring_1= \n"),
            std::string::npos);
}

TEST_F(PictavoCommand, NameAndPages) {
  CommandResult n = Pictavo(
      "name /in/a.png /in/b.png --index 6 --set File_name/Mask=IMG_### --set Main/Dest_path=/out "
      "--set Thumbnails/Folder=/th --thumbnails");
  ASSERT_EQ(n.code, 0) << n.err;
  EXPECT_EQ(n.out,
            "/out/img_007.jpg\n"
            "  thumbnail 0: /th/a_thumb.jpg\n  thumbnail 1: /th/a_thumb.jpg\n"
            "  thumbnail 2: /th/a_thumb.jpg\n  thumbnail 3: /th/a_thumb.jpg\n"
            "  thumbnail 4: /th/a_thumb.jpg\n"
            "/out/img_008.jpg\n"
            "  thumbnail 0: /th/b_thumb.jpg\n  thumbnail 1: /th/b_thumb.jpg\n"
            "  thumbnail 2: /th/b_thumb.jpg\n  thumbnail 3: /th/b_thumb.jpg\n"
            "  thumbnail 4: /th/b_thumb.jpg\n");
  EXPECT_EQ(Pictavo("name").code, 2);
  EXPECT_EQ(Pictavo("name a.png --index -1").code, 2);

  EXPECT_EQ(Pictavo("pages '1, 3-5, 9-' --count 10").out, "1 3 4 5 9 10\n");
  EXPECT_EQ(Pictavo("pages -3 --count 5").out, "1 2 3\n");
  EXPECT_EQ(Pictavo("pages 1,,5 --count 6").out, "1\n");
  EXPECT_EQ(Pictavo("pages -0 --count 6").out, "\n");
  EXPECT_EQ(Pictavo("pages 1-2").code, 2);
  EXPECT_EQ(Pictavo("pages --count 3").code, 2);
}

// The job's limits are keys of the settings table: shown, set and clamped like the others
// (a limit below 0 means what 0 means).
TEST_F(PictavoCommand, SettingsShowsAndClampsTheLimits) {
  const std::string cfg = dir_.file("limits.cfg");
  ASSERT_TRUE(
      platform::WriteTextFileUtf16(cfg, "[Limits]\nMax_megapixels=12\nTool_timeout=-5\n").ok());
  CommandResult r = Pictavo("settings show '" + cfg + "' --set limits/max_memory_mb=-7");
  ASSERT_EQ(r.code, 0) << r.err;
  for (const char* line :
       {"\nLimits/Max_megapixels=12\n", "\nLimits/Tool_timeout=0\n", "\nLimits/Max_memory_mb=0\n",
        "\nLimits/Render_timeout=600\n", "\nLimits/Max_unpacked_mb=0\n"})
    EXPECT_NE(r.out.find(line), std::string::npos) << line << r.out;

  const std::string written = dir_.file("written.cfg");
  ASSERT_EQ(Pictavo("settings write '" + written + "' --set Limits/Ocr_timeout=99").code, 0);
  EXPECT_NE(Pictavo("settings show '" + written + "'").out.find("\nLimits/Ocr_timeout=99\n"),
            std::string::npos);
}

// `convert` takes the job's limits from --set and keeps those of a --config file; a later --set
// wins, and a limit that is not a whole number of 0 or more is refused.
TEST_F(PictavoCommand, ConvertTakesTheJobLimits) {
  const std::string ppm = dir_.file("big.ppm");
  std::ofstream(ppm, std::ios::binary) << "P6\n1200 1000\n255\n" << std::string(3600000, '\x40');
  const std::string out = dir_.file("out");
  auto convert = [&](const std::string& extra) {
    return Pictavo("convert '" + ppm + "' --to png --output '" + out + "' " + extra);
  };
  CommandResult r = convert("--set Limits/Max_memory_mb=2");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.out.find("1200 x 1000 pixels take 4 MB, above the limit of 2 MB"), std::string::npos)
      << r.out << r.err;

  const std::string cfg = dir_.file("limits.cfg");
  ASSERT_TRUE(platform::WriteTextFileUtf16(cfg, "[Limits]\nMax_megapixels=1\n").ok());
  r = convert("--config '" + cfg + "'");
  EXPECT_EQ(r.code, 1);
  EXPECT_NE(r.out.find("above the limit of 1 megapixels"), std::string::npos) << r.out << r.err;
  r = convert("--config '" + cfg + "' --set limits/max_megapixels=0");
  EXPECT_EQ(r.code, 0) << r.out << r.err;
  EXPECT_TRUE(platform::FileExists(out + "/big.png"));

  EXPECT_EQ(convert("--set Limits/Max_memory_mb=lots").code, 2);
  EXPECT_EQ(convert("--set Limits/Max_colours=3").code, 2);  // not a limit, not a setting
}

}  // namespace
}  // namespace pictavo::cli
