#include "engine/tools/temp_names.h"

#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

#include "platform/process.h"
#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

TEST(NewTempName, FormAndBackToBackNames) {
  pictavo::testing::TempDir dir;
  const std::string folder = dir.path().string();
  std::string a = NewTempName(folder);
  std::string b = NewTempName(folder + "/");
  EXPECT_NE(a, b);
  const std::regex form(std::regex_replace(folder, std::regex(R"([.^$|()\[\]{}*+?\\])"), R"(\$&)") +
                        R"(/rcp([01]\d|2[0-3])[0-5]\d[0-5]\d\d{3}\d{1,2}\d{1,3})");
  EXPECT_TRUE(std::regex_match(a, form)) << a;
  EXPECT_TRUE(std::regex_match(b, form)) << b;
  // The name itself stays free for the caller, as a file with any extension or as a folder.
  EXPECT_FALSE(std::filesystem::exists(a));
  EXPECT_TRUE(std::filesystem::create_directory(a));
}

TEST(NewTempName, EightWorkersNeverCollide) {
  pictavo::testing::TempDir dir;
  constexpr int kThreads = 8, kEach = 1000;
  std::vector<std::vector<std::string>> names(kThreads);
  std::vector<std::thread> workers;
  for (int t = 0; t < kThreads; ++t)
    workers.emplace_back([&, t] {
      for (int i = 0; i < kEach; ++i) names[t].push_back(NewTempName(dir.path().string()));
    });
  for (std::thread& w : workers) w.join();
  std::set<std::string> all;
  for (const auto& list : names) all.insert(list.begin(), list.end());
  EXPECT_EQ(all.size(), static_cast<size_t>(kThreads * kEach));
}

TEST(NewTempName, UnwritableFolderStillGivesAName) {
  std::string name = NewTempName("/nonexistent/pictavo/temp");
  EXPECT_EQ(name.rfind("/nonexistent/pictavo/temp/rcp", 0), 0u) << name;
}

// A job's scratch folder is named after its process; a later job removes the folders of owners
// that are gone, and nothing else.
TEST(ScratchFolders, OnlyThoseOfEndedOwnersAreRemoved) {
  namespace fs = std::filesystem;
  pictavo::testing::TempDir dir;
  const std::string temp = dir.path().string();
  const std::string mine = OwnScratchFolder(temp, "job");
  const std::string also_mine = OwnScratchFolder(temp + "/", "convert");
  EXPECT_NE(mine, also_mine);
  const platform::ProcessTag own = platform::OwnProcessTag();
  EXPECT_EQ(
      mine.rfind(temp + "/job-" + std::to_string(own.pid) + "-" + std::to_string(own.start) + "-",
                 0),
      0u)
      << mine;
  EXPECT_EQ(mine.back(), '/');

  const pid_t child = ::fork();
  ASSERT_GE(child, 0);
  if (child == 0) _exit(0);
  ASSERT_EQ(::waitpid(child, nullptr, 0), child);
  const std::string dead = std::to_string(child) + "-" + std::to_string(own.start);
  const std::string reused = std::to_string(own.pid) + "-" + std::to_string(own.start + 7);
  // Gone: a dead owner's job and front-end folders, and one whose id a later process took.
  const std::vector<std::string> orphans = {"job-" + dead + "-0", "convert-" + dead + "-3",
                                            "job-" + reused + "-1"};
  // Kept: this process's, names that merely look alike, a file, a folder of another kind.
  const std::vector<std::string> kept = {"job-" + dead + "-0x", "job-" + dead,
                                         "jobs-" + dead + "-0", "notes-" + dead + "-0",
                                         "job-+" + dead + "-0"};
  for (const std::string& f : {mine, also_mine}) fs::create_directories(f);
  for (const std::string& name : orphans) {
    fs::create_directories(dir.path() / name / "w0");
    std::ofstream(dir.path() / name / "w0" / "rcp1.tif") << "scratch";
  }
  for (const std::string& name : kept) fs::create_directories(dir.path() / name);
  std::ofstream(dir.path() / ("job-" + dead + "-9")) << "a file, not a folder";

  EXPECT_EQ(RemoveOrphanedScratch(temp), 3);
  for (const std::string& name : orphans) EXPECT_FALSE(fs::exists(dir.path() / name)) << name;
  for (const std::string& name : kept) EXPECT_TRUE(fs::exists(dir.path() / name)) << name;
  EXPECT_TRUE(fs::exists(mine));
  EXPECT_TRUE(fs::exists(also_mine));
  EXPECT_TRUE(fs::exists(dir.path() / ("job-" + dead + "-9")));
  EXPECT_EQ(RemoveOrphanedScratch(temp), 0);
  EXPECT_EQ(RemoveOrphanedScratch(dir.file("missing")), 0);
}

}  // namespace
}  // namespace pictavo::tools
