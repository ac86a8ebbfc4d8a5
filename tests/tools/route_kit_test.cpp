#include "engine/tools/route_kit.h"

#include <filesystem>
#include <fstream>
#include <set>

#include <gtest/gtest.h>

#include "engine/tools/tool_manifest.h"
#include "engine/tools/trouble.h"
#include "tests/support/test_paths.h"

namespace pictavo::tools {
namespace {

namespace fs = std::filesystem;

void WriteFile(const fs::path& path, const std::string& bytes) {
  fs::create_directories(path.parent_path());
  std::ofstream(path, std::ios::binary) << bytes;
}

TEST(RouteKit, ToolPathsLieInTheEngineFoldersToolFolder) {
  const std::string delim(1, fs::path::preferred_separator);
  EXPECT_EQ(ToolFolderIn("/opt/p"), "/opt/p" + delim + "utl" + delim);
  EXPECT_EQ(ToolFolderIn("/opt/p/"), ToolFolderIn("/opt/p"));
  EXPECT_EQ(ToolIn("/opt/p/", "ogr\\ogr2ogr.exe"),
            "/opt/p/utl" + delim + "ogr" + delim + "ogr2ogr.exe");
  EXPECT_EQ(ToolIn("/opt/p/", "vips/vips.exe"), ToolIn("/opt/p/", "vips\\vips.exe"));
}

TEST(RouteKit, MissingToolNamesThePackageAndKeepsTheFirstReason) {
  pictavo::testing::TempDir engine;
  const std::string folder = engine.path().string();
  fs::create_directories(engine.path() / "utl");
  TroubleRecorder recorder;
  std::string error_text;
  EXPECT_FALSE(ToolAvailable(folder, "pdfmerge.bin", &error_text));
  EXPECT_EQ(error_text, "tool \"pdfmerge.bin\" is missing: install qpdf");
  EXPECT_TRUE(recorder.Has(Trouble::kMissingTool));
  EXPECT_NE(recorder.Reason().find("install qpdf"), std::string::npos) << recorder.Reason();

  // A second missing tool is noted, but the first reason stays the stage's message.
  EXPECT_FALSE(ToolAvailable(folder, "text2pdf.exe", &error_text));
  EXPECT_EQ(error_text, "tool \"pdfmerge.bin\" is missing: install qpdf");

  // A link that leads nowhere is no tool.
  fs::create_symlink(engine.path() / "nowhere", engine.path() / "utl" / "pdfmerge.bin");
  EXPECT_FALSE(ToolAvailable(folder, "pdfmerge.bin"));

  // Present: true, and nothing is recorded.
  WriteFile(engine.path() / "utl" / "ogr" / "ogr2ogr.exe", "#!/bin/sh\n");
  std::string untouched;
  EXPECT_TRUE(ToolAvailable(folder, "ogr\\ogr2ogr.exe", &untouched));
  EXPECT_TRUE(untouched.empty());
}

TEST(RouteKit, ProducedRefusesMissingEmptyAndFolders) {
  pictavo::testing::TempDir dir;
  const fs::path empty = dir.path() / "empty.png", full = dir.path() / "full.png";
  WriteFile(empty, "");
  WriteFile(full, "x");
  fs::create_directories(dir.path() / "folder.png");
  EXPECT_FALSE(Produced((dir.path() / "missing.png").string()));
  EXPECT_FALSE(Produced(empty.string()));
  EXPECT_FALSE(Produced((dir.path() / "folder.png").string()));
  EXPECT_FALSE(Produced(""));
  EXPECT_TRUE(Produced(full.string()));
}

TEST(RouteKit, ScratchNamesAreFreshAndInTheTempFolder) {
  pictavo::testing::TempDir dir;
  const fs::path temp = fs::weakly_canonical(dir.path());
  std::set<std::string> names;
  for (int i = 0; i < 50; ++i) {
    const std::string name = ScratchName(temp.string(), ".pdf");
    EXPECT_EQ(fs::path(name).parent_path(), temp) << name;
    EXPECT_EQ(fs::path(name).extension(), ".pdf");
    EXPECT_FALSE(fs::exists(name)) << "the name itself is left free";
    names.insert(name);
  }
  EXPECT_EQ(names.size(), 50u);
}

TEST(RouteKit, ScratchFileRemovesWhatWasMadeUnderIt) {
  pictavo::testing::TempDir dir;
  std::string file, folder;
  {
    ScratchFile a(dir.path().string(), ".tif");
    ScratchFile b(dir.path().string(), "");
    EXPECT_NE(a.path(), b.path());
    EXPECT_EQ(a.path(), a.base() + ".tif");
    file = a.path();
    folder = b.path();
    WriteFile(file, "pixels");
    WriteFile(fs::path(folder) / "page1.png", "pixels");
  }
  EXPECT_FALSE(fs::exists(file));
  EXPECT_FALSE(fs::exists(folder));
  EXPECT_TRUE(fs::is_empty(dir.path())) << "reservation markers are removed too";
}

TEST(RouteKit, RunForJudgesByTheFileLeft) {
  pictavo::testing::TempDir dir;
  const std::string out = (dir.path() / "out.bin").string();
  const std::string tool = std::string("\"") + PICTAVO_FAKE_TOOL + "\"";
  EXPECT_TRUE(RunFor(tool + " args \"" + out + "\" x", out));
  // Exit code 0, but nothing written: no result.
  const std::string none = (dir.path() / "none.bin").string();
  EXPECT_FALSE(RunFor(tool + " exit 0", none));
  RemovePath(out);
  EXPECT_FALSE(fs::exists(out));
}

}  // namespace
}  // namespace pictavo::tools
