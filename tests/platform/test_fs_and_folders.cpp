#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>

#include <gtest/gtest.h>

#include "platform/fs.h"
#include "platform/special_folders.h"
#include "tests/support/test_paths.h"

namespace pictavo::platform {
namespace {

namespace fs = std::filesystem;

class ScopedEnv {
 public:
  ScopedEnv(const char* name, const std::string& value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    ::setenv(name, value.c_str(), 1);
  }
  ~ScopedEnv() {
    if (old_) {
      ::setenv(name_, old_->c_str(), 1);
    } else {
      ::unsetenv(name_);
    }
  }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

TEST(Fs, AtomicWriteReplacesWholeAndLeavesNoScratch) {
  testing::TempDir dir;
  std::string path = dir.file("result.txt");
  ASSERT_TRUE(WriteFileAtomic(path, "first").ok());
  ASSERT_TRUE(WriteFileAtomic(path, "second, longer").ok());
  EXPECT_EQ(*ReadFileBytes(path), "second, longer");
  int entries = 0;
  for ([[maybe_unused]] auto& e : fs::directory_iterator(dir.path())) ++entries;
  EXPECT_EQ(entries, 1);
}

TEST(Fs, WholeFilesAndPrefixes) {
  testing::TempDir dir;
  std::string bytes(70000, '\0');  // past one stream buffer, with zero bytes inside
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
  const std::string path = dir.file("data.bin");
  ASSERT_TRUE(WriteFileAtomic(path, bytes, false).ok());
  EXPECT_EQ(*ReadFileBytes(path), bytes);
  EXPECT_EQ(*ReadFilePrefix(path, 4), bytes.substr(0, 4));
  EXPECT_EQ(*ReadFilePrefix(path, 100000), bytes);  // a short file gives what it has
  ASSERT_TRUE(WriteFileAtomic(path, "", false).ok());
  EXPECT_EQ(*ReadFileBytes(path), "");
  EXPECT_FALSE(ReadFileBytes(dir.file("missing")).has_value());
  EXPECT_FALSE(ReadFilePrefix(dir.file("missing"), 4).has_value());
}

TEST(Fs, MappedFileCutShortReadsZerosInsteadOfFaulting) {
  testing::TempDir dir;
  std::string bytes(256 * 1024, '\0');
  for (size_t i = 0; i < bytes.size(); ++i) bytes[i] = static_cast<char>(1 + i % 250);
  const std::string cut = dir.file("cut.bin"), kept = dir.file("kept.bin");
  ASSERT_TRUE(WriteFileAtomic(cut, bytes, false).ok());
  ASSERT_TRUE(WriteFileAtomic(kept, bytes, false).ok());

  auto shrinking_map = std::make_unique<MappedFile>();
  MappedFile& shrinking = *shrinking_map;
  MappedFile other;
  ASSERT_TRUE(shrinking.Open(cut, false));
  ASSERT_TRUE(other.Open(kept, false));
  ASSERT_EQ(shrinking.size(), bytes.size());
  EXPECT_FALSE(shrinking.CutShort());
  EXPECT_EQ(shrinking.data()[100], static_cast<uint8_t>(bytes[100]));

  // Another program cuts the file to 10,000 bytes while it is mapped.
  ASSERT_EQ(::truncate(cut.c_str(), 10000), 0);
  EXPECT_EQ(shrinking.data()[9999], static_cast<uint8_t>(bytes[9999]));
  EXPECT_EQ(shrinking.data()[200000], 0);
  EXPECT_EQ(shrinking.data()[bytes.size() - 1], 0);
  EXPECT_TRUE(shrinking.CutShort());
  EXPECT_FALSE(other.CutShort());
  EXPECT_EQ(other.data()[200000], static_cast<uint8_t>(bytes[200000]));

  // A mapping opened after the first closed starts unmarked, whichever slot it gets.
  shrinking_map.reset();
  MappedFile again;
  ASSERT_TRUE(again.Open(kept, true));
  EXPECT_FALSE(again.CutShort());
}

TEST(Fs, FailedAtomicWriteKeepsTheOldFile) {
  if (::geteuid() == 0) GTEST_SKIP() << "root ignores folder permissions";
  testing::TempDir dir;
  std::string path = dir.file("keep.txt");
  ASSERT_TRUE(WriteFileAtomic(path, "original").ok());
  ::chmod(dir.path().c_str(), 0555);
  Status st = WriteFileAtomic(path, "new");
  ::chmod(dir.path().c_str(), 0755);
  EXPECT_FALSE(st.ok());
  EXPECT_EQ(*ReadFileBytes(path), "original");
}

TEST(Fs, FailedRenameLeavesNoScratchBehind) {
  testing::TempDir dir;
  fs::create_directories(dir.file("taken/inside"));  // a non-empty folder cannot be replaced
  EXPECT_FALSE(WriteFileAtomic(dir.file("taken"), "data").ok());
  EXPECT_TRUE(fs::exists(dir.file("taken/inside")));
  int entries = 0;
  for ([[maybe_unused]] auto& e : fs::directory_iterator(dir.path())) ++entries;
  EXPECT_EQ(entries, 1);
}

TEST(Fs, FailedAtomicWriteIntoMissingFolderReportsWhy) {
  testing::TempDir dir;
  Status st = WriteFileAtomic(dir.file("no/such/folder/x"), "data");
  EXPECT_FALSE(st.ok());
  EXPECT_NE(st.message().find("no/such/folder"), std::string::npos);
}

TEST(Fs, TrailingDelimiterAndExistence) {
  EXPECT_EQ(IncludeTrailingDelim(""), "");
  EXPECT_EQ(IncludeTrailingDelim("/a"), "/a/");
  EXPECT_EQ(IncludeTrailingDelim("/a/"), "/a/");
  testing::TempDir dir;
  EXPECT_TRUE(DirectoryExists(dir.path().string()));
  EXPECT_FALSE(FileExists(dir.path().string()));
  std::string exe = ExecutableFolder();
  EXPECT_EQ(exe.back(), kPathDelim);
  EXPECT_TRUE(DirectoryExists(exe));
}

TEST(Fs, CreateFileExclusiveCreatesOnlyOnce) {
  testing::TempDir dir;
  const std::string path = dir.file("marker~");
  EXPECT_EQ(CreateFileExclusive(path), ExclusiveCreate::kCreated);
  EXPECT_TRUE(FileExists(path));
  EXPECT_EQ(fs::file_size(path), 0u);
  EXPECT_EQ(CreateFileExclusive(path), ExclusiveCreate::kAlreadyExists);
  fs::create_directory(dir.path() / "sub");
  EXPECT_EQ(CreateFileExclusive(dir.file("sub")), ExclusiveCreate::kAlreadyExists);
  EXPECT_EQ(CreateFileExclusive(dir.file("missing/marker~")), ExclusiveCreate::kFailed);
}

TEST(SpecialFolders, FollowXdgVariablesAndUserDirs) {
  testing::TempDir dir;
  ScopedEnv home("HOME", dir.path().string());
  {
    ScopedEnv cache("XDG_CACHE_HOME", "");
    ScopedEnv config("XDG_CONFIG_HOME", "");
    EXPECT_EQ(AppDataFolder(), dir.path().string() + "/.cache/");
    EXPECT_EQ(ConfigFolder(), dir.path().string() + "/.config/");
    EXPECT_EQ(PicturesFolder(), dir.path().string() + "/Pictures");
  }
  ScopedEnv cache("XDG_CACHE_HOME", dir.file("c"));
  ScopedEnv config("XDG_CONFIG_HOME", dir.file("conf"));
  EXPECT_EQ(AppDataFolder(), dir.file("c") + "/");
  fs::create_directories(dir.file("conf"));
  std::ofstream(dir.file("conf/user-dirs.dirs"))
      << "# written by xdg-user-dirs-update\nXDG_DESKTOP_DIR=\"$HOME/Desktop\"\n"
         "XDG_PICTURES_DIR=\"$HOME/Bilder/\"\n";
  EXPECT_EQ(PicturesFolder(), dir.path().string() + "/Bilder");
}

}  // namespace
}  // namespace pictavo::platform
