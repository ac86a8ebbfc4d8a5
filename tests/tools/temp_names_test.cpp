#include "engine/tools/temp_names.h"

#include <regex>
#include <set>
#include <thread>

#include <gtest/gtest.h>

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

}  // namespace
}  // namespace pictavo::tools
