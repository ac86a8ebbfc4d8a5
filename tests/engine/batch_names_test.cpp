// Nothing of a batch is lost: every result the summary counts is a file on disk under the name
// the log gives it, and the dry run predicts the same names, with one worker or several. Each
// case is named after a way results used to vanish: sources of one name in several folders
// writing one result over another, the pages of a "###" template taking other files' names,
// "keep the existing result" converting every file first, an unwritable output folder found
// once per file, folders that give no file ending in "0 of 0" and exit status 0.
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "tests/support/convert_run.h"
#include "tests/support/test_paths.h"

namespace pictavo {
namespace {

namespace fs = std::filesystem;
using tools::Quoted;

class BatchNames : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::ConvertIsBuilt())
      GTEST_SKIP() << "build/pictavo and build/pictavo-engine are not built";
  }

  // `pictavo convert WORDS`; fills out_ and err_, returns the exit status.
  int Convert(const std::string& words) {
    const testing::ConvertRun run = testing::RunConvert(words, dir_);
    out_ = run.out;
    err_ = run.err;
    return run.status;
  }

  // Every "X -> Y" of a dry run, or every "Saving result to: Y" of a run (notes left out).
  std::multiset<std::string> Names(bool dry) const {
    std::multiset<std::string> names;
    const std::regex line(dry ? R"(-> ([^\n]+?)(  \(.*\))?\n)"
                              : R"(Saving result to: ([^\n]+?)( \(the name .*\))?\n)");
    for (auto it = std::sregex_iterator(out_.begin(), out_.end(), line);
         it != std::sregex_iterator(); ++it)
      names.insert((*it)[1]);
    return names;
  }

  int Done() const {
    std::smatch m;
    if (!std::regex_search(out_, m, std::regex(R"((\d+) of (\d+) files were successfully)")))
      return -1;
    return std::stoi(m[1]);
  }

  std::set<std::string> FilesIn(const std::string& folder) const {
    std::set<std::string> files;
    if (!fs::exists(folder)) return files;
    for (const auto& e : fs::recursive_directory_iterator(folder))
      if (e.is_regular_file()) files.insert(e.path().string());
    return files;
  }

  testing::TempDir dir_;
  std::string out_, err_;
};

TEST_F(BatchNames, SameNamedSourcesInSeveralFoldersKeepEveryResult) {
  // hopper.* and flower.* of the corpus in one folder per format, as a photo library holds them.
  const std::string corpus = testing::CorpusFile("raster");
  if (corpus.empty()) GTEST_SKIP() << "the shared corpus is absent (../shared/corpus)";
  int sources = 0;
  for (const auto& e : fs::recursive_directory_iterator(corpus)) {
    const std::string stem = e.path().stem().string();
    if (!e.is_regular_file() || (stem != "hopper" && stem != "flower")) continue;
    const fs::path copy =
        fs::path(dir_.file("in")) / e.path().parent_path().filename() / e.path().filename();
    fs::create_directories(copy.parent_path());
    fs::copy_file(e.path(), copy);
    ++sources;
  }
  ASSERT_GE(sources, 6) << "the corpus should hold several hopper.* and flower.* files";
  const std::string job = Quoted(dir_.file("in")) + " --to png --set Main/Read_subfolders=1";

  ASSERT_EQ(Convert(job + " --dry-run --output " + Quoted(dir_.file("out1"))), 0) << out_ << err_;
  std::multiset<std::string> predicted = Names(true);
  ASSERT_EQ(static_cast<int>(predicted.size()), sources) << out_;
  EXPECT_EQ(std::set<std::string>(predicted.begin(), predicted.end()).size(), predicted.size())
      << "the plan gave two sources one name\n"
      << out_;

  for (const char* workers : {"1", "2"}) {
    SCOPED_TRACE(std::string("Cpu_priority ") + workers);
    const std::string out = dir_.file(std::string("out") + workers);
    Convert(job + " --output " + Quoted(out) + " --set Main/Cpu_priority=" + workers);
    const std::multiset<std::string> saved = Names(false);
    // The files on disk are exactly the results the log names, one per result counted.
    EXPECT_EQ(FilesIn(out), std::set<std::string>(saved.begin(), saved.end())) << out_;
    EXPECT_EQ(static_cast<int>(saved.size()), Done()) << out_;
    std::multiset<std::string> expected;
    for (const std::string& name : predicted)
      expected.insert(out + name.substr(dir_.file("out1").size()));
    // Every saved name is the predicted one (a file that failed saves nothing).
    for (const std::string& name : saved) EXPECT_EQ(expected.count(name), 1u) << name;
    EXPECT_NE(out_.find("was taken by"), std::string::npos) << out_;
  }
}

TEST_F(BatchNames, PagesOfACounterTemplateDoNotTakeOtherFilesNames) {
  // "letter_###": the counter numbers files, and the pages of a multi-page result take its
  // place. Page 2 of the first file and the second file both want letter_002.png.
  PICTAVO_REQUIRE_CORPUS(tiff, "multipage/multipage.tiff");
  fs::create_directories(dir_.file("in"));
  fs::copy_file(tiff, dir_.file("in/a.tiff"));
  for (const char* name : {"b.ppm", "c.ppm"})
    std::ofstream(dir_.file(std::string("in/") + name), std::ios::binary)
        << "P6\n2 2\n255\n"
        << std::string(12, '\x40');
  const std::string job = Quoted(dir_.file("in")) + " --to png --set File_name/Mask=letter_###" +
                          " --set Multipage/Option=3 --output " + Quoted(dir_.file("out"));
  ASSERT_EQ(Convert(job + " --dry-run"), 0) << out_ << err_;
  const std::multiset<std::string> predicted = Names(true);
  ASSERT_EQ(predicted.size(), 5u) << out_;  // three pages and two files
  EXPECT_EQ(Convert(job), 0) << out_ << err_;
  const std::multiset<std::string> saved = Names(false);
  EXPECT_EQ(saved, predicted) << out_;
  EXPECT_EQ(FilesIn(dir_.file("out")).size(), 5u) << out_;
  EXPECT_NE(out_.find("Results renamed because another result of the job had their name: 2"),
            std::string::npos)
      << out_;
}

TEST_F(BatchNames, KeepingExistingResultsSkipsBeforeReading) {
  fs::create_directories(dir_.file("in"));
  fs::create_directories(dir_.file("out"));
  for (const char* name : {"old.ppm", "new.ppm"})
    std::ofstream(dir_.file(std::string("in/") + name), std::ios::binary)
        << "P6\n2 2\n255\n"
        << std::string(12, '\x40');
  std::ofstream(dir_.file("out/old.png"), std::ios::binary) << "kept as it was";
  EXPECT_EQ(Convert(Quoted(dir_.file("in")) + " --to png --set Save/OverWrite=2 --output " +
                    Quoted(dir_.file("out"))),
            0)
      << out_ << err_;
  EXPECT_EQ(platform::ReadFileBytes(dir_.file("out/old.png")).value_or(""), "kept as it was");
  EXPECT_TRUE(fs::exists(dir_.file("out/new.png")));
  const size_t old_block = out_.find("in/old.ppm");
  ASSERT_NE(old_block, std::string::npos) << out_;
  const std::string block = out_.substr(old_block, out_.find("File 2 of", old_block) - old_block);
  EXPECT_EQ(block.find("Reading file"), std::string::npos) << "the skipped file was read\n" << out_;
  EXPECT_NE(block.find("Skipped: " + dir_.file("out/old.png")), std::string::npos) << out_;
  EXPECT_NE(out_.find("1 of 2 files were successfully processed."), std::string::npos) << out_;
  EXPECT_NE(out_.find("Files skipped: 1"), std::string::npos) << out_;
}

TEST_F(BatchNames, ProblemsOfTheJobAreFoundBeforeTheFirstFile) {
  fs::create_directories(dir_.file("in/only-folders/sub"));
  std::ofstream(dir_.file("in/only-folders/sub/x.ppm"), std::ios::binary) << "P6\n1 1\n255\n"
                                                                          << std::string(3, '\x10');
  fs::create_directories(dir_.file("in/loop"));
  std::ofstream(dir_.file("in/loop/a.ppm"), std::ios::binary) << "P6\n1 1\n255\n"
                                                              << std::string(3, '\x10');
  fs::create_directory_symlink(".", dir_.file("in/loop/self"));
  std::ofstream(dir_.file("blocker"), std::ios::binary) << "a file where a folder should be";

  // An output folder that cannot be made: one error, nothing read.
  EXPECT_EQ(Convert(Quoted(dir_.file("in/loop")) + " --to png --output " +
                    Quoted(dir_.file("blocker/out"))),
            1);
  EXPECT_NE(out_.find("cannot be written"), std::string::npos) << out_;
  EXPECT_EQ(out_.find("Reading file"), std::string::npos) << out_;
  EXPECT_NE(err_.find("failed: " + dir_.file("in/loop/a.ppm")), std::string::npos) << err_;

  // A link to a folder is not walked; a folder of sub-folders says how to reach their files;
  // a missing input fails alone.
  EXPECT_EQ(Convert(Quoted(dir_.file("in/loop")) + " " + Quoted(dir_.file("in/only-folders")) +
                    " " + Quoted(dir_.file("in/gone.ppm")) + " --to png --output " +
                    Quoted(dir_.file("out")) + " --set Main/Read_subfolders=0"),
            1)
      << out_;
  EXPECT_NE(out_.find("File 1 of 2: " + dir_.file("in/loop/a.ppm")), std::string::npos) << out_;
  EXPECT_NE(err_.find("only-folders: the folder holds 1 sub-folder(s)"), std::string::npos) << err_;
  EXPECT_NE(err_.find("gone.ppm: the file does not exist"), std::string::npos) << err_;
  EXPECT_TRUE(fs::exists(dir_.file("out/a.png")));
  ASSERT_EQ(Convert(Quoted(dir_.file("in/loop")) + " --to png --output " +
                    Quoted(dir_.file("out2")) + " --set Main/Read_subfolders=1"),
            0)
      << out_;
  EXPECT_NE(out_.find("1 of 1 files were successfully processed."), std::string::npos) << out_;
}

}  // namespace
}  // namespace pictavo
