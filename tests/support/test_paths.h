// Where tests find the repository, the build and the shared sample corpus.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

#include <unistd.h>

#include <gtest/gtest.h>

namespace pictavo::testing {

inline std::string SourceDir() {
  return PICTAVO_SOURCE_DIR;
}
inline std::string BuildDir() {
  return PICTAVO_BUILD_DIR;
}

// A file of the shared corpus (e.g. "raster/foo.jpg"), or "" when the corpus is absent.
// PICTAVO_TEST_WITHOUT_CORPUS=1 makes it absent, to check that a clone without it passes.
inline std::string CorpusFile(const std::string& relative) {
  if (const char* off = std::getenv("PICTAVO_TEST_WITHOUT_CORPUS"); off && *off == '1') return {};
  std::filesystem::path p = std::filesystem::path(PICTAVO_CORPUS_DIR) / relative;
  return std::filesystem::exists(p) ? p.string() : std::string();
}

// A fresh, empty scratch folder for one test, removed by the caller's TempDir object.
class TempDir {
 public:
  TempDir() {
    const auto* info = ::testing::UnitTest::GetInstance()->current_test_info();
    std::string name = info ? std::string(info->test_suite_name()) + "." + info->name() : "t";
    path_ = std::filesystem::temp_directory_path() /
            ("pictavo-test-" + name + "-" + std::to_string(::getpid()));
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string file(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

}  // namespace pictavo::testing

// Skips the current test when a corpus file is missing.
#define PICTAVO_REQUIRE_CORPUS(var, relative)                       \
  const std::string var = ::pictavo::testing::CorpusFile(relative); \
  if (var.empty())                                                  \
  GTEST_SKIP() << "shared corpus file " << (relative)               \
               << " is absent (expected beside the repository in ../shared)"

// Skips the current test when the build's tool folder lacks a tool, naming the Debian package.
#define PICTAVO_REQUIRE_TOOL(name, package)                                                    \
  if (!std::filesystem::exists(std::filesystem::path(::pictavo::testing::BuildDir()) / "utl" / \
                               (name)))                                                        \
  GTEST_SKIP() << "tool " << (name) << " is missing from the tool folder: install " << (package)
