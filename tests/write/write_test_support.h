// Shared fixtures of the writer tests: a job's settings, a scratch layout (in/, out/, tmp/),
// test pictures made in memory, and a fake tool folder whose every tool records its arguments.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/tool_manifest.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"
#include "write/zub_convert.h"

namespace pictavo::writer::testing {

namespace fs = std::filesystem;
using Call = std::vector<std::string>;  // tool name, then its arguments

// A picture with a known pattern: left third white, middle third black, right third a red-green
// gradient; optionally with an alpha plane that fades from left to right.
inline imaging::TIEBitmap TestPicture(int w = 60, int h = 40, bool alpha = false) {
  imaging::TIEBitmap bmp;
  EXPECT_TRUE(bmp.Allocate(w, h, imaging::TIEPixelFormat::ie24RGB).ok());
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      imaging::TRGB c{255, 255, 255};
      if (x >= w / 3 && x < 2 * w / 3) c = {0, 0, 0};
      if (x >= 2 * w / 3)
        c = {static_cast<uint8_t>(x * 255 / w), static_cast<uint8_t>(y * 255 / h), 60};
      bmp.SetPixels_ie24RGB(x, y, c);
    }
  if (alpha)
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) bmp.SetAlpha(x, y, static_cast<uint8_t>(x * 255 / (w - 1)));
  return bmp;
}

inline void SavePicture(const imaging::TIEBitmap& picture, const std::string& path, int dpi = 96) {
  imaging::TIEBitmap bmp = picture;
  imaging::TImageEnIO io(&bmp);
  io.Params().DpiX = io.Params().DpiY = dpi;
  ASSERT_TRUE(io.SaveToFile(path).ok()) << path;
}

// Appends frames to a multi-frame file (TIFF or GIF by extension), each a shade of grey.
inline void SaveFrames(const std::string& path, int frames) {
  for (int f = 0; f < frames; ++f) {
    imaging::TIEBitmap bmp = TestPicture(30, 20);
    bmp.FillRect(0, 0, 10, 10, 0x00101010u * static_cast<unsigned>(f + 1));
    imaging::TImageEnIO io(&bmp);
    const bool gif = path.ends_with(".gif");
    ASSERT_TRUE((gif ? io.InsertToFileGIF(path) : io.InsertToFileTIFF(path)).ok());
  }
}

inline std::string ReadBytes(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// One job's writer: settings with their defaults, a source file and a destination in out/.
class WriterJob {
 public:
  WriterJob() {
    fs::create_directories(dir_.path() / "in");
    fs::create_directories(dir_.path() / "out");
    fs::create_directories(dir_.path() / "tmp");
    settings.ClampOptionsAndSetFlags();
    c.settings = &settings;
    c.temp_folder = dir_.file("tmp") + "/";
    // The real tool folder of this build.
    c.exe_folder = ::pictavo::testing::BuildDir() + "/";
  }

  std::string In(const std::string& name) const { return dir_.file("in/" + name); }
  std::string Out(const std::string& name) const { return dir_.file("out/" + name); }
  std::string Root() const { return dir_.path().string(); }

  // Sets the target and the source and destination files.
  void Target(const std::string& ext, const std::string& src) {
    settings.main.dest_ext = ext;
    c.src_file = src;
    c.dest_file = Out("result." + ext);
  }

  // Points the writer at a fake tool folder: every tool of the manifest records its arguments.
  void UseFakeTools() {
    const fs::path utl = dir_.path() / "fake" / "utl";
    for (const tools::ToolRow& row : tools::ManifestRows()) {
      const fs::path link = utl / row.name;
      fs::create_directories(link.parent_path());
      std::error_code ec;
      fs::create_symlink(PICTAVO_WRITE_FAKE_TOOL, link, ec);
    }
    c.exe_folder = (dir_.path() / "fake").string() + "/";
    log_ = dir_.file("calls.log");
    setenv("PICTAVO_FAKE_LOG", log_.c_str(), 1);
    unsetenv("PICTAVO_FAKE_FAIL");
  }
  void FailTools(const std::string& names) { setenv("PICTAVO_FAKE_FAIL", names.c_str(), 1); }

  // The recorded calls, with scratch paths shown as "TMP.ext" (temporary folder), "DEST.ext"
  // (scratch beside the destination), "SRC" and the destination as "OUT".
  std::vector<Call> Calls() const {
    std::vector<Call> calls;
    std::ifstream in(log_, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
      Call call;
      std::stringstream parts(line);
      std::string part;
      while (std::getline(parts, part, '\x1f')) call.push_back(Normal(part));
      calls.push_back(call);
    }
    return calls;
  }

  settings::TMainSettings settings;
  TZubConvert c;

 private:
  std::string Normal(const std::string& arg) const {
    const std::string ext = fs::path(arg).extension().string();
    if (arg == c.src_file) return "SRC";
    if (arg == c.dest_file) return "OUT";
    if (arg.rfind(dir_.file("tmp") + "/", 0) == 0) return "TMP" + ext;
    if (arg.rfind(dir_.file("out") + "/rcp", 0) == 0) return "DEST" + ext;
    return arg;
  }

  ::pictavo::testing::TempDir dir_;
  std::string log_;
};

// Files left in a folder (names), to check that no scratch file stays behind.
inline std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> names;
  std::error_code ec;
  for (const auto& e : fs::directory_iterator(folder, ec))
    names.push_back(e.path().filename().string());
  return names;
}

}  // namespace pictavo::writer::testing
