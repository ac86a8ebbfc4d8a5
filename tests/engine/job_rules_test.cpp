// The executor's rules that need no workers: job codes, the summary, the intermediate format,
// the temp-folder probe and the folder walk.
#include "engine/zub_process.h"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "tests/support/test_paths.h"

namespace pictavo::engine {
namespace {

namespace fs = std::filesystem;

TEST(JobCodeTest, TwoOrThreeDigitsWithVariantOneToFour) {
  EXPECT_FALSE(ParseJobCode("1").valid);   // the form's default: rejected
  EXPECT_FALSE(ParseJobCode("15").valid);  // variant 5
  EXPECT_FALSE(ParseJobCode("10").valid);
  EXPECT_FALSE(ParseJobCode("03").valid);
  EXPECT_FALSE(ParseJobCode("1234").valid);
  EXPECT_FALSE(ParseJobCode("").valid);
  JobCode c = ParseJobCode("33");
  EXPECT_TRUE(c.valid);
  EXPECT_EQ(c.kind, 3);
  EXPECT_EQ(c.variant, 3);
  EXPECT_EQ(c.selector, 1);
  c = ParseJobCode("247");
  EXPECT_TRUE(c.valid);
  EXPECT_EQ(c.kind, 2);
  EXPECT_EQ(c.variant, 4);
  EXPECT_EQ(c.selector, 7);
}

TEST(SummaryTest, TimeFormats) {
  settings::MessageTable m;
  EXPECT_EQ(FormatSummary(3, 3, 65000, m),
            "\r\nThe conversion has been completed.\r\n3 of 3 files were successfully processed."
            "\r\nTotal processing time: 1 min. 5 sec.\r\nver. 7.702\r\n");
  EXPECT_NE(FormatSummary(1, 2, 2500, m).find("\r\nTotal processing time: 2.5 sec.\r\n"),
            std::string::npos);
  EXPECT_NE(FormatSummary(1, 1, 420, m).find("\r\nTotal processing time: 0.4 sec.\r\n"),
            std::string::npos);
  EXPECT_NE(FormatSummary(1, 1, 125900, m).find("2 min. 5 sec."), std::string::npos);
}

TEST(SummaryTest, NothingDoneHasNoTime) {
  settings::MessageTable m;
  EXPECT_EQ(FormatSummary(0, 0, 5000, m),
            "\r\nThe conversion has been completed.\r\n0 of 0 files were successfully processed."
            "\r\nver. 7.702\r\n");
}

TEST(SummaryTest, UsesTranslatedMessages) {
  testing::TempDir dir;
  const std::string lng = dir.file("deutsch.lng");
  std::ofstream(lng) << "[fProcess]\nLabel3.Caption=von\nLabel32.Caption=Min.\n"
                        "Label33.Caption=Sek.\nLabel31.Caption=Gesamtzeit:\n";
  settings::MessageTable m;
  ASSERT_TRUE(m.LoadLanguageFile(lng).ok());
  const std::string s = FormatSummary(2, 4, 61000, m);
  EXPECT_NE(s.find("2 von 4 files"), std::string::npos) << s;
  EXPECT_NE(s.find("Gesamtzeit: 1 Min. 1 Sek."), std::string::npos) << s;
}

TEST(IntermediateFormatTest, FirstMatchingGroupDecides) {
  EXPECT_EQ(IntermediateFormat("qoi"), "png");
  EXPECT_EQ(IntermediateFormat("webp"), "tif");
  EXPECT_EQ(IntermediateFormat("pcl"), "tif");
  EXPECT_EQ(IntermediateFormat("ico"), "tif");
  EXPECT_EQ(IntermediateFormat("apng"), "tif");
  EXPECT_EQ(IntermediateFormat("swf"), "pdf");
  EXPECT_EQ(IntermediateFormat("pdf"), "tif");
  EXPECT_EQ(IntermediateFormat("jpg"), "tif");
  EXPECT_EQ(IntermediateFormat("svg"), "");
}

TEST(TempReadyTest, WritableFolderOnly) {
  testing::TempDir dir;
  EXPECT_TRUE(temp_ready(dir.path().string()));
  EXPECT_FALSE(fs::exists(dir.file(kTempProbeName)));
  EXPECT_FALSE(temp_ready(dir.file("missing")));
}

class DirFilesTest : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* f : {"a/x.JPG", "a/y.png", "a/z.txt", "a/sub1/b.jpg", "a/sub1/deep/c.jpg",
                          "a/sub1/e.gif", "a/sub0/d.jpg", "a/noext"}) {
      fs::create_directories(fs::path(dir_.file(f)).parent_path());
      std::ofstream(dir_.file(f)) << f;
    }
  }
  std::vector<std::string> Walk(const std::string& mask, bool subfolders) {
    std::vector<std::string> files;
    Dir_files(dir_.file("a"), mask, subfolders, files);
    for (std::string& f : files) f = f.substr(dir_.file("a").size() + 1);
    return files;
  }
  testing::TempDir dir_;
};

TEST_F(DirFilesTest, MasksAndDepthFirstOrder) {
  using V = std::vector<std::string>;
  EXPECT_EQ(Walk("jpg, png", false), (V{"x.JPG", "y.png"}));
  EXPECT_EQ(Walk(" JPG ", false), (V{"x.JPG"}));
  EXPECT_EQ(Walk("*", false), (V{"noext", "x.JPG", "y.png", "z.txt"}));
  EXPECT_EQ(Walk("jpg,png", true),
            (V{"x.JPG", "y.png", "sub0/d.jpg", "sub1/b.jpg", "sub1/deep/c.jpg"}));
  EXPECT_EQ(Walk("gif", true), (V{"sub1/e.gif"}));
  // "jp" must not match "jpg": the mask is a list of whole extensions.
  EXPECT_TRUE(Walk("jp", true).empty());
}

TEST(ExtractedFolderTest, NamedAfterTheContainer) {
  EXPECT_EQ(ExtractedFolder("/mail/winmail.dat"), "/mail/winmail.dat_(extracted)");
}

}  // namespace
}  // namespace pictavo::engine
