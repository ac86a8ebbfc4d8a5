// libFuzzer entry point for one decoder, chosen at build time by PICTAVO_FUZZ_DECODER (the
// codec's decode function). Each input is read three ways: parameters only, the first frame,
// and for multi-frame files a later frame, as the readers do.
#include <cstddef>
#include <cstdint>

#include "engine/tools/runner.h"
#include "fuzz/fuzz_touch.h"
#include "imaging/codecs/bmp_codec.h"
#include "imaging/codecs/gif_codec.h"
#include "imaging/codecs/ico_codec.h"
#include "imaging/codecs/jp2_codec.h"
#include "imaging/codecs/jpeg_codec.h"
#include "imaging/codecs/pcx_codec.h"
#include "imaging/codecs/png_codec.h"
#include "imaging/codecs/pnm_codec.h"
#include "imaging/codecs/psd_codec.h"
#include "imaging/codecs/qoi_codec.h"
#include "imaging/codecs/tga_codec.h"
#include "imaging/codecs/tiff_codec.h"
#include "imaging/codecs/webp_codec.h"
#include "imaging/ie_io.h"

namespace codecs = pictavo::imaging::codecs;
using pictavo::imaging::TIEBitmap;
using pictavo::imaging::TImageEnIO;
using pictavo::imaging::TIOParamsVals;

namespace {

void Decode(const uint8_t* data, size_t size, int frame, bool params_only) {
  codecs::DecodeOptions opt;
  opt.max_pixels = pictavo::tools::JobLimits{}.max_pixels;  // as every decode of a job
  opt.frame = frame;
  opt.params_only = params_only;
  TIEBitmap bmp;
  TIOParamsVals params;
  const pictavo::Status st =
      codecs::PICTAVO_FUZZ_DECODER(data, size, opt, params_only ? nullptr : &bmp, params);
  if (st.ok()) pictavo::fuzz::TouchLastBytes(bmp);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
#ifdef PICTAVO_FUZZ_WHOLE_IO
  // The whole load path: format sniffing, the codec and the metadata reader.
  TIEBitmap bmp;
  TImageEnIO io(&bmp);
  if (io.ParamsFromBuffer(data, size).ok() && io.Params().ImageCount > 1)
    io.Params().ImageIndex = 1;
  if (!io.LoadFromBuffer(data, size).ok() && !bmp.IsEmpty()) __builtin_trap();
#else
  codecs::DecodeOptions opt;
  TIOParamsVals params;
  opt.params_only = true;
  const bool ok = codecs::PICTAVO_FUZZ_DECODER(data, size, opt, nullptr, params).ok();
  Decode(data, size, 0, false);
  if (ok && params.ImageCount > 1) Decode(data, size, params.ImageCount > 4 ? 3 : 1, false);
#endif
  return 0;
}
