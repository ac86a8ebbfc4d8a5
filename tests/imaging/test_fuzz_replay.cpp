// Replays every input the fuzzers found a defect with (fuzz/regressions/<codec>/): each must
// load or fail cleanly, quickly, through the same path the readers use.
#include <chrono>
#include <filesystem>

#include <gtest/gtest.h>

#include "imaging/ie_io.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

namespace fs = std::filesystem;

TEST(ImageIoFuzzRegressions, EveryKnownBadInputFailsCleanly) {
  const fs::path root = fs::path(PICTAVO_SOURCE_DIR) / "fuzz" / "regressions";
  ASSERT_TRUE(fs::is_directory(root)) << root;
  int replayed = 0;
  for (const auto& entry : fs::recursive_directory_iterator(root)) {
    if (!entry.is_regular_file()) continue;
    SCOPED_TRACE(entry.path().string());
    const auto bytes = iotest::ReadAll(entry.path().string());
    const auto start = std::chrono::steady_clock::now();
    TIEBitmap b;
    TImageEnIO io(&b);
    const bool params_ok = io.ParamsFromBuffer(bytes.data(), bytes.size()).ok();
    const int frames = params_ok ? io.Params().ImageCount : 0;
    for (int frame : {0, frames > 1 ? frames - 1 : -1}) {
      if (frame < 0) continue;
      io.Params().ImageIndex = frame;
      if (!io.LoadFromBuffer(bytes.data(), bytes.size()).ok())
        EXPECT_TRUE(b.IsEmpty()) << "a failed load leaves an empty bitmap";
      else
        EXPECT_FALSE(b.IsEmpty());
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LT(seconds, 10.0) << "slow enough to count as a hang";
    ++replayed;
  }
  EXPECT_GT(replayed, 0);
}

}  // namespace
}  // namespace pictavo::imaging
