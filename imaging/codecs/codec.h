// The interface every codec implements, and the small byte-level helpers they share.
//
// Codecs work on memory: a decoder gets the whole file, an encoder appends the whole file to a
// byte vector. TImageEnIO does the file handling (reading, scratch name, rename into place).
// Decoders never trust a header: sizes are checked against DecodeOptions::max_pixels and the
// data actually present before anything is allocated.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "imaging/io_params.h"
#include "platform/bytes.h"
#include "platform/status.h"

namespace pictavo::imaging::codecs {

struct DecodeOptions {
  bool params_only = false;  // fill the parameters, leave the bitmap alone
  int frame = 0;             // frame or page to decode
  int scale_denom = 1;       // JPEG DCT scaling: 1, 2, 4 or 8
  uint64_t max_pixels = kMaxBitmapPixels;
  // The caller keeps at most 8 bits per sample: a decoder may narrow deeper samples while
  // decoding (rounded as TIEBitmap::ConvertTo rounds) rather than make the wide picture.
  bool eight_bit = false;
  bool color_managed = false;  // the load converts pictures with a profile into sRGB
};

using DecodeFn = pictavo::Status (*)(const uint8_t* data, size_t size, const DecodeOptions& opt,
                                     TIEBitmap* bmp, TIOParamsVals& params);
// `bmp` is already in one of the layouts the codec row declares.
using EncodeFn = pictavo::Status (*)(const TIEBitmap& bmp, const TIOParamsVals& params,
                                     std::vector<uint8_t>& out);

constexpr uint32_t LayoutBit(TIEPixelFormat f) {
  return 1u << static_cast<unsigned>(f);
}

// Fails unless width x height is a sane, non-empty picture within the cap.
pictavo::Status CheckDimensions(int64_t width, int64_t height, uint64_t max_pixels);

pictavo::Status Corrupt(const char* format, const char* what);

// Bounds-checked reading of a byte buffer; a read past the end sets failed() and yields 0.
class ByteReader {
 public:
  ByteReader(const uint8_t* data, size_t size) : d_(data), n_(size) {}
  size_t pos() const { return pos_; }
  size_t size() const { return n_; }
  size_t left() const { return pos_ <= n_ ? n_ - pos_ : 0; }
  bool failed() const { return failed_; }
  void seek(size_t p) {
    if (p > n_) failed_ = true, p = n_;
    pos_ = p;
  }
  void skip(size_t k) { seek(k > left() ? n_ + 1 : pos_ + k); }
  const uint8_t* here() const { return d_ + pos_; }
  uint8_t u8() { return left() >= 1 ? d_[pos_++] : fail(); }
  uint16_t le16() { return left() >= 2 ? (pos_ += 2, platform::LoadLe16(d_ + pos_ - 2)) : fail(); }
  uint32_t le32() { return left() >= 4 ? (pos_ += 4, platform::LoadLe32(d_ + pos_ - 4)) : fail(); }
  uint16_t be16() { return left() >= 2 ? (pos_ += 2, platform::LoadBe16(d_ + pos_ - 2)) : fail(); }
  uint32_t be32() { return left() >= 4 ? (pos_ += 4, platform::LoadBe32(d_ + pos_ - 4)) : fail(); }
  bool read(void* dst, size_t k) {
    if (left() < k) return fail(), false;
    std::memcpy(dst, d_ + pos_, k);
    pos_ += k;
    return true;
  }

 private:
  uint8_t fail() {
    failed_ = true;
    pos_ = n_;
    return 0;
  }
  const uint8_t* d_;
  size_t n_;
  size_t pos_ = 0;
  bool failed_ = false;
};

inline void PutLE16(std::vector<uint8_t>& o, uint32_t v) {
  o.push_back(v & 0xFF);
  o.push_back((v >> 8) & 0xFF);
}
inline void PutLE32(std::vector<uint8_t>& o, uint32_t v) {
  PutLE16(o, v & 0xFFFF);
  PutLE16(o, v >> 16);
}
inline void PutBE16(std::vector<uint8_t>& o, uint32_t v) {
  o.push_back((v >> 8) & 0xFF);
  o.push_back(v & 0xFF);
}
inline void PutBE32(std::vector<uint8_t>& o, uint32_t v) {
  PutBE16(o, v >> 16);
  PutBE16(o, v & 0xFFFF);
}
inline void PutBytes(std::vector<uint8_t>& o, const void* p, size_t k) {
  const auto* b = static_cast<const uint8_t*>(p);
  o.insert(o.end(), b, b + k);
}

// Converts 8-bit pixels of any 8-bit-per-sample layout to RGB for one row (ie1g, ie8g, ie8p,
// ie24RGB, ieCMYK); 16-bit layouts are scaled down. `rgb` holds width * 3 bytes.
void RowToRGB(const TIEBitmap& bmp, int y, uint8_t* rgb);

}  // namespace pictavo::imaging::codecs
