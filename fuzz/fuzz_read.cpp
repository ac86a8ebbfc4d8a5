// libFuzzer entry point for the decoders outside the codec table, chosen at build time by
// PICTAVO_FUZZ_READ: the read stage's own parsers (Paint Shop Pro, DST embroidery, GIMP
// patterns) and headerless raw pixels, whose layout the first bytes of the input choose here.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/fuzz_touch.h"
#include "imaging/codecs/bmp_codec.h"
#include "imaging/ie_io.h"
#include "imaging/picture_limits.h"
#include "read/parsed_formats.h"
#include "read/psp_format.h"

using pictavo::imaging::TIEBitmap;
using pictavo::imaging::TIEPixelFormat;

namespace {

using pictavo::fuzz::TouchLastBytes;

// Pictures as large as a job allows would only test the allocator: a smaller cap keeps every
// input within libFuzzer's memory limit and the parsers' checks in reach.
const pictavo::imaging::PictureLimits kFuzzLimits{16u << 20, 256};

TIEBitmap Capped() {
  TIEBitmap bmp;
  bmp.SetLimits(&kFuzzLimits);
  return bmp;
}

void Psp(std::string_view bytes) {
  pictavo::reader::psp::Document doc;
  if (!doc.Open(bytes, kFuzzLimits.max_pixels)) return;
  TIEBitmap bmp = Capped();
  if (doc.Flatten(bmp)) TouchLastBytes(bmp);
}

void Dst(std::string_view bytes) {
  TIEBitmap bmp = Capped();
  if (pictavo::reader::parsed::DrawDst(bytes, bmp)) TouchLastBytes(bmp);
}

void Pat(std::string_view bytes) {
  TIEBitmap bmp = Capped();
  if (pictavo::reader::parsed::DecodeGimpPattern(bytes, bmp)) TouchLastBytes(bmp);
}

// Eight bytes of layout (width and height little-endian 16-bit, format, row alignment, flags,
// header size), then the data.
void Raw(std::string_view bytes) {
  if (bytes.size() < 8) return;
  const auto* b = reinterpret_cast<const uint8_t*>(bytes.data());
  static constexpr TIEPixelFormat kFormats[] = {TIEPixelFormat::ie1g,    TIEPixelFormat::ie8g,
                                                TIEPixelFormat::ie16g,   TIEPixelFormat::ie24RGB,
                                                TIEPixelFormat::ie48RGB, TIEPixelFormat::ieCMYK};
  pictavo::imaging::TIORawLayout layout;
  layout.width = b[0] | b[1] << 8;
  layout.height = b[2] | b[3] << 8;
  layout.format = kFormats[b[4] % 6];
  layout.row_align = 1 << (b[5] % 3);
  layout.bgr = b[6] & 1;
  layout.bottom_up = b[6] & 2;
  layout.big_endian = b[6] & 4;
  layout.header_bytes = b[7];
  TIEBitmap bmp = Capped();
  if (pictavo::imaging::codecs::DecodeRaw(b + 8, bytes.size() - 8, layout, bmp).ok())
    TouchLastBytes(bmp);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  PICTAVO_FUZZ_READ(std::string_view(reinterpret_cast<const char*>(data), size));
  return 0;
}
