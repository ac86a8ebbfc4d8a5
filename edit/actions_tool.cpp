// Actions that may hand the picture to a program of the tool folder.
#include <filesystem>

#include "edit/declare_edit.h"
#include "edit/pixel_util.h"
#include "engine/tools/route_kit.h"
#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/fs.h"

namespace pictavo::editing {
namespace {

// The engine's own automatic contrast: one levels stretch for all channels (so colours keep
// their balance) from the 0.5% darkest to the 0.5% brightest luma, then a gentle Contrast.
int EngineAutoContrast(TIEBitmap& bmp) {
  imaging::TImageEnProc proc(&bmp);
  const imaging::TIEHistogram h = proc.GetHistogram();
  const uint64_t total = static_cast<uint64_t>(bmp.Width()) * bmp.Height();
  const uint64_t clip = total / 200;
  int lo = 0, hi = 255;
  uint64_t acc = 0;
  while (lo < 255 && (acc += h.gray[lo]) <= clip) ++lo;
  acc = 0;
  while (hi > 0 && (acc += h.gray[hi]) <= clip) --hi;
  if (hi > lo) {
    std::array<uint8_t, 256> lut;
    for (int v = 0; v < 256; ++v) lut[v] = Clamp8((v - lo) * 255.0 / (hi - lo));
    if (ApplyLut(bmp, lut) != 0) return 1;
  }
  return proc.Contrast(5).ok() ? 0 : 1;
}

}  // namespace

int action_auto_contrast(ActionContext& ctx) {
  TIEBitmap& bmp = *ctx.bmp;
  if (bmp.IsEmpty()) return 1;
  const std::string tool = tools::ToolPath("f300_uni.exe");
  if (!platform::FileExists(tool) || ctx.temp_folder.empty()) return EngineAutoContrast(bmp);
  const std::string base = tools::NewTempName(ctx.temp_folder);
  const std::string in = base + "_in.tif", out = base + "_out.tif";
  int result = 1;
  {
    TIEBitmap copy = bmp;
    imaging::TImageEnIO io(&copy);
    if (io.SaveToFile(in).ok()) {
      tools::RunAndWait(ctx.job ? *ctx.job : tools::ProcessJobContext(),
                        tools::Quoted(tool) + " -autocontrast -quiet -out tiff -o " +
                            tools::Quoted(out) + " " + tools::Quoted(in),
                        tools::kHidden);
      TIEBitmap loaded;
      imaging::TImageEnIO back(&loaded);
      const bool had_alpha = bmp.HasAlphaChannel();
      if (platform::FileExists(out) && back.LoadFromFile(out).ok() && !loaded.IsEmpty() &&
          loaded.Width() == bmp.Width() && loaded.Height() == bmp.Height()) {
        if (had_alpha && !loaded.HasAlphaChannel()) {  // the tool may drop the mask
          loaded.AddAlphaChannel(255);
          for (int y = 0; y < bmp.Height(); ++y)
            std::copy_n(bmp.AlphaScanline(y), bmp.Width(), loaded.AlphaScanline(y));
        }
        bmp = std::move(loaded);
        result = 0;
      }
    }
  }
  tools::RemovePath(in);
  tools::RemovePath(out);
  // The tool did not deliver: the engine's contrast stretch does the job instead.
  return result == 0 ? 0 : EngineAutoContrast(bmp);
}

int action_upscale(ActionContext& ctx, int scale, int model) {
  // The neural upscaler ("up/up.exe" with its model folders) has no program on this platform;
  // when it is present it is used, otherwise the picture is enlarged with the Lanczos filter.
  TIEBitmap& bmp = *ctx.bmp;
  if (bmp.IsEmpty() || scale < 2 || scale > 8 || model < 1 || model > 2) return 1;
  const std::string tool = tools::ToolPath("up\\up.exe");
  if (platform::FileExists(tool) && !ctx.temp_folder.empty()) {
    const std::string base = tools::NewTempName(ctx.temp_folder);
    const std::string in = base + "_in.png", out = base + "_out.png";
    const std::string models =
        tools::ToolPath(model == 2 ? "up\\models-drawing" : "up\\models-photo");
    TIEBitmap copy = bmp;
    imaging::TImageEnIO io(&copy);
    bool done = false;
    if (io.SaveToFile(in).ok()) {
      tools::RunAndWait(ctx.job ? *ctx.job : tools::ProcessJobContext(),
                        tools::Quoted(tool) + " -i " + tools::Quoted(in) + " -o " +
                            tools::Quoted(out) + " -s " + std::to_string(scale) + " -m " +
                            tools::Quoted(models),
                        tools::kHidden);
      TIEBitmap loaded;
      imaging::TImageEnIO back(&loaded);
      if (platform::FileExists(out) && back.LoadFromFile(out).ok() && !loaded.IsEmpty()) {
        bmp = std::move(loaded);
        done = true;
      }
    }
    tools::RemovePath(in);
    tools::RemovePath(out);
    if (done) return 0;
  }
  imaging::TImageEnProc proc(&bmp);
  return proc.Resample(bmp.Width() * scale, bmp.Height() * scale,
                       imaging::TResampleFilter::rfLanczos3)
                 .ok()
             ? 0
             : 1;
}

}  // namespace pictavo::editing
