// The hand-over between stages: a one-page TIFF saved through a worker's cache is loaded back
// from memory through that cache, exactly as a decode of the file would give it, and only while
// the file is the one that was written.
#include <chrono>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "support/test_paths.h"
#include "test_io_support.h"

namespace pictavo::imaging {
namespace {

namespace fs = std::filesystem;
using F = TIEPixelFormat;

// What a plain decode of the file gives, the hand-over bypassed.
void DecodeBytes(const std::string& path, TIEBitmap& bmp, TIOParamsVals& params) {
  const std::string bytes = platform::ReadFileBytes(path).value_or("");
  TImageEnIO io(&bmp);
  ASSERT_TRUE(io.LoadFromBuffer(reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()).ok());
  params = io.Params();
}

void ExpectSame(const TIEBitmap& a, const TIOParamsVals& pa, const TIEBitmap& b,
                const TIOParamsVals& pb) {
  ASSERT_EQ(a.PixelFormat(), b.PixelFormat());
  ASSERT_EQ(a.Width(), b.Width());
  ASSERT_EQ(a.Height(), b.Height());
  EXPECT_EQ(a.HasAlphaChannel(), b.HasAlphaChannel());
  for (int y = 0; y < a.Height(); ++y)
    ASSERT_EQ(std::memcmp(a.Scanline(y), b.Scanline(y), a.RowLen()), 0) << "row " << y;
  EXPECT_EQ(pa.Width, pb.Width);
  EXPECT_EQ(pa.Height, pb.Height);
  EXPECT_EQ(pa.BitsPerSample, pb.BitsPerSample);
  EXPECT_EQ(pa.SamplesPerPixel, pb.SamplesPerPixel);
  EXPECT_EQ(pa.DpiX, pb.DpiX);
  EXPECT_EQ(pa.DpiY, pb.DpiY);
  EXPECT_EQ(pa.ImageCount, pb.ImageCount);
  EXPECT_EQ(pa.FileType, pb.FileType);
  EXPECT_EQ(pa.TIFF_Compression, pb.TIFF_Compression);
}

TEST(HandOver, LoadGivesWhatADecodeGivesAndOnlyForTheFileAsWritten) {
  testing::TempDir tmp;
  const std::string path = tmp.file("stage.tif");
  TIEBitmap saved = iotest::Pattern(61, 37, F::ie24RGB, false);
  HandOverCache cache;
  auto save_stage = [&] {
    const TKeepSavesForNextLoad keep(cache);
    TImageEnIO io(&saved, &cache);
    io.Params().DpiX = io.Params().DpiY = 150;
    io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
    ASSERT_TRUE(io.SaveToFile(path).ok());
  };
  save_stage();
  TIEBitmap decoded;
  TIOParamsVals decoded_params;
  DecodeBytes(path, decoded, decoded_params);

  // A parameter probe and then the load, both answered from memory, both as a decode.
  TIEBitmap loaded;
  TImageEnIO in(&loaded, &cache);
  ASSERT_TRUE(in.ParamsFromFile(path).ok());
  EXPECT_EQ(in.Params().Width, 61);
  ASSERT_TRUE(in.LoadFromFile(path).ok());
  ExpectSame(loaded, in.Params(), decoded, decoded_params);

  // A second load decodes the file again, with the same result.
  TIEBitmap again;
  TImageEnIO in2(&again, &cache);
  ASSERT_TRUE(in2.LoadFromFile(path).ok());
  ExpectSame(again, in2.Params(), decoded, decoded_params);

  // The load really comes from memory: bytes changed behind the file's back, size and time
  // kept, do not show ...
  save_stage();
  const auto written = fs::last_write_time(path);
  std::string bytes = platform::ReadFileBytes(path).value_or("");
  for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i) bytes[i] ^= 0x55;
  ASSERT_TRUE(platform::WriteFileAtomic(path, bytes, false).ok());
  fs::last_write_time(path, written);
  TIEBitmap from_memory;
  TImageEnIO in3(&from_memory, &cache);
  ASSERT_TRUE(in3.LoadFromFile(path).ok());
  ExpectSame(from_memory, in3.Params(), decoded, decoded_params);

  // Saves outside the scope, and a kept save that was forgotten, are not loaded from memory:
  // the same change behind the file's back shows.
  const auto changed_behind = [&] {
    std::string again = platform::ReadFileBytes(path).value_or("");
    const auto time = fs::last_write_time(path);
    for (size_t i = again.size() / 2; i < again.size() / 2 + 64; ++i) again[i] ^= 0x55;
    EXPECT_TRUE(platform::WriteFileAtomic(path, again, false).ok());
    fs::last_write_time(path, time);
    TIEBitmap got;
    if (!TImageEnIO(&got, &cache).LoadFromFile(path).ok())
      return true;  // decoded, and broken by it
    for (int y = 0; y < got.Height(); ++y)
      if (std::memcmp(got.Scanline(y), decoded.Scanline(y), got.RowLen()) != 0) return true;
    return false;
  };
  {
    TImageEnIO io(&saved, &cache);
    io.Params().DpiX = io.Params().DpiY = 150;
    io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
    ASSERT_TRUE(io.SaveToFile(path).ok());
  }
  EXPECT_TRUE(changed_behind());
  save_stage();
  cache.Forget();
  EXPECT_TRUE(changed_behind());

  // ... but a file written again since (a new time) is decoded.
  save_stage();
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  TIEBitmap other = iotest::Pattern(61, 37, F::ie24RGB, false);
  other.Fill(0x102030);
  {
    std::vector<uint8_t> tiff;
    TImageEnIO io(&other);
    ASSERT_TRUE(io.SaveToBuffer(TIOFileType::ioTIFF, tiff).ok());
    ASSERT_TRUE(
        platform::WriteFileAtomic(
            path, std::string(reinterpret_cast<const char*>(tiff.data()), tiff.size()), false)
            .ok());
  }
  TIEBitmap fresh;
  TImageEnIO in4(&fresh, &cache);
  ASSERT_TRUE(in4.LoadFromFile(path).ok());
  EXPECT_EQ(fresh.GetPixels(5, 5).r, other.GetPixels(5, 5).r);
  EXPECT_NE(fresh.GetPixels(5, 5).r, saved.GetPixels(5, 5).r);

  // Another thread, through its own cache: decoded from the file.
  save_stage();
  std::thread([&] {
    HandOverCache its_own;
    TIEBitmap elsewhere;
    TImageEnIO io(&elsewhere, &its_own);
    ASSERT_TRUE(io.LoadFromFile(path).ok());
    EXPECT_EQ(elsewhere.Width(), 61);
  }).join();
}

// Two workers' caches on one thread: a save kept by one is taken only by a load through that
// same cache; a load through the other cache, or through none, decodes the file.
TEST(HandOver, ASaveIsTakenOnlyThroughTheCacheItWasKeptIn) {
  testing::TempDir tmp;
  const std::string path = tmp.file("stage.tif");
  const TIEBitmap saved = iotest::Pattern(61, 37, F::ie24RGB, false);
  HandOverCache mine, other;
  // Saves through `through`, then changes the file's bytes keeping its size and time: only a
  // load from memory still gives the saved pixels.
  const auto save_then_tamper = [&](HandOverCache& through) {
    TIEBitmap copy = saved;
    TImageEnIO io(&copy, &through);
    io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
    ASSERT_TRUE(io.SaveToFile(path).ok());
    std::string bytes = platform::ReadFileBytes(path).value_or("");
    const auto time = fs::last_write_time(path);
    for (size_t i = bytes.size() / 2; i < bytes.size() / 2 + 64; ++i) bytes[i] ^= 0x55;
    ASSERT_TRUE(platform::WriteFileAtomic(path, bytes, false).ok());
    fs::last_write_time(path, time);
  };
  const auto from_memory = [&](HandOverCache* through) {
    TIEBitmap got;
    if (!TImageEnIO(&got, through).LoadFromFile(path).ok()) return false;
    if (got.Width() != saved.Width() || got.Height() != saved.Height()) return false;
    for (int y = 0; y < got.Height(); ++y)
      if (std::memcmp(got.Scanline(y), saved.Scanline(y), got.RowLen()) != 0) return false;
    return true;
  };
  {
    const TKeepSavesForNextLoad keep_mine(mine);
    const TKeepSavesForNextLoad keep_other(other);
    save_then_tamper(mine);
  }
  EXPECT_FALSE(from_memory(&other));
  EXPECT_FALSE(from_memory(nullptr));
  EXPECT_TRUE(from_memory(&mine));
  EXPECT_FALSE(from_memory(&mine));  // taken: the next load decodes

  // The keep mode is the cache's own: a save through a cache not in that mode keeps nothing,
  // even while another cache on the thread is in it.
  {
    const TKeepSavesForNextLoad keep_other(other);
    save_then_tamper(mine);
  }
  EXPECT_FALSE(from_memory(&mine));
  EXPECT_FALSE(from_memory(&other));
}

TEST(HandOver, LossyOrLayoutChangingSavesAreNotHandedOver) {
  HandOverCache cache;
  const TKeepSavesForNextLoad keep(cache);
  testing::TempDir tmp;
  const std::string path = tmp.file("stage.tif");
  // JPEG inside TIFF: the load must show the compression's loss, as a decode does.
  TIEBitmap photo = iotest::Pattern(64, 48, F::ie24RGB, false);
  {
    TImageEnIO io(&photo, &cache);
    io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_JPEG;
    ASSERT_TRUE(io.SaveToFile(path).ok());
  }
  TIEBitmap decoded, loaded;
  TIOParamsVals decoded_params;
  DecodeBytes(path, decoded, decoded_params);
  TImageEnIO in(&loaded, &cache);
  ASSERT_TRUE(in.LoadFromFile(path).ok());
  ExpectSame(loaded, in.Params(), decoded, decoded_params);
  // Grey and alpha pictures come back from the file too.
  for (TIEBitmap bmp :
       {iotest::Pattern(20, 10, F::ie8g, false), iotest::Pattern(20, 10, F::ie24RGB, true)}) {
    {
      TImageEnIO io(&bmp, &cache);
      ASSERT_TRUE(io.SaveToFile(path).ok());
    }
    DecodeBytes(path, decoded, decoded_params);
    TImageEnIO again(&loaded, &cache);
    ASSERT_TRUE(again.LoadFromFile(path).ok());
    ExpectSame(loaded, again.Params(), decoded, decoded_params);
  }
}

}  // namespace
}  // namespace pictavo::imaging
