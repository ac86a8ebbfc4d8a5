// A reader with the default settings, a scratch folder of its own and the build's tool folder,
// for tests that hand files to one reader routine.
#pragma once

#include <filesystem>

#include <gtest/gtest.h>

#include "read/zub_read.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::reader {

class ReaderTest : public ::testing::Test {
 protected:
  void SetUp() override {
    settings_.SetDefault();
    std::filesystem::create_directories(dir_.path() / "temp");
    r_.settings = &settings_;
    r_.temp_folder = (dir_.path() / "temp").string() + "/";
    r_.engine_folder = pictavo::testing::BuildDir();
  }

  pictavo::testing::TempDir dir_;
  settings::TMainSettings settings_;
  TZubRead r_;
};

}  // namespace pictavo::reader
