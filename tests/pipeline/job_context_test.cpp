// The job's context: its limits come from the settings, and two jobs in one process hold their
// pictures to their own limits, each on its own thread, with nothing shared between them.
#include "engine/tools/job_context.h"

#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "imaging/ie_bitmap.h"
#include "pipeline/p_thread.h"
#include "platform/trouble.h"
#include "settings/main_settings.h"

namespace pictavo::pipeline {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;

tools::JobContext JobWithMegapixels(int megapixels) {
  settings::TMainSettings s;
  s.limits.max_megapixels = megapixels;
  tools::JobContext job;
  job.limits = tools::LimitsFromSettings(s.limits);
  return job;
}

TEST(JobContext, LimitsComeFromTheSettings) {
  settings::TMainSettings s;
  tools::JobLimits defaults;
  tools::JobLimits read = tools::LimitsFromSettings(s.limits);
  EXPECT_EQ(read.max_pixels, defaults.max_pixels);  // 0 megapixels: the default
  EXPECT_EQ(read.max_memory_mb, defaults.max_memory_mb);
  EXPECT_EQ(read.max_unpacked_mb, defaults.max_unpacked_mb);
  for (int pace = 0; pace < tools::kToolPaces; ++pace)
    EXPECT_EQ(read.timeout_s[pace], defaults.timeout_s[pace]) << pace;

  s.limits.ocr_timeout = 0;  // no time-out
  s.limits.max_megapixels = 5;
  s.limits.max_memory_mb = 7;
  s.limits.max_unpacked_mb = 9;
  read = tools::LimitsFromSettings(s.limits);
  EXPECT_EQ(read.timeout_s[static_cast<int>(tools::ToolPace::kOcr)], 0);
  EXPECT_EQ(read.max_pixels, 5000000u);
  EXPECT_EQ(read.max_memory_mb, 7u);
  EXPECT_EQ(read.max_unpacked_mb, 9u);
}

// What a worker of `job` makes of a w x h picture: "" when it may, else the refusal. The
// enlargement goes through the engine's own resampling, as an action's would.
std::string Enlarge(const tools::JobContext& job, int w, int h, std::string& noted) {
  const imaging::PictureLimits limits = PictureLimitsOf(job.limits);
  platform::TroubleRecorder trouble;
  TIEBitmap bmp;
  bmp.SetLimits(&limits);
  if (!bmp.Allocate(8, 8, TIEPixelFormat::ie24RGB).ok()) return "no start";
  const Status st = bmp.Resample(w, h, imaging::TResampleFilter::rfBilinear);
  noted = trouble.First(platform::Trouble::kLimit);
  if (st.ok()) return bmp.Width() == w && bmp.Height() == h ? "" : "wrong size";
  return st.code() == imaging::kOverJobLimit ? st.message() : "other: " + st.message();
}

TEST(JobContext, TwoJobsSideBySideHoldTheirOwnLimits) {
  const tools::JobContext small = JobWithMegapixels(1), large = JobWithMegapixels(3);
  std::string small_why, large_why, small_noted, large_noted;
  std::thread a([&] { small_why = Enlarge(small, 2000, 1000, small_noted); });
  std::thread b([&] { large_why = Enlarge(large, 2000, 1000, large_noted); });
  a.join();
  b.join();
  EXPECT_EQ(
      small_why,
      "2000 x 1000 pixels is above the limit of 1 megapixels (\"Limits\"/\"Max_megapixels\")");
  EXPECT_EQ(small_noted, small_why);
  EXPECT_EQ(large_why, "");
  EXPECT_EQ(large_noted, "");

  // Both refuse a larger picture, each naming its own limit.
  std::thread c([&] { small_why = Enlarge(small, 2000, 2000, small_noted); });
  std::thread d([&] { large_why = Enlarge(large, 2000, 2000, large_noted); });
  c.join();
  d.join();
  EXPECT_EQ(
      small_why,
      "2000 x 2000 pixels is above the limit of 1 megapixels (\"Limits\"/\"Max_megapixels\")");
  EXPECT_EQ(
      large_why,
      "2000 x 2000 pixels is above the limit of 3 megapixels (\"Limits\"/\"Max_megapixels\")");
}

}  // namespace
}  // namespace pictavo::pipeline
