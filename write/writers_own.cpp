#include "write/writers_own.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <string_view>

#include "imaging/codecs/pnm_codec.h"
#include "imaging/luma.h"
#include "platform/fs.h"

namespace pictavo::writer {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;

// Binary PPM or PGM through the engine's PNM codec, from the picture's pixels as 8-bit RGB
// whatever its layout (grey as rounded Rec. 601 thousandths).
Status WritePnm(const TIEBitmap& bmp, const std::string& path, bool grey) {
  if (bmp.IsEmpty()) return Status::Error("nothing to save: the bitmap is empty");
  TIEBitmap samples;
  Status made = samples.Allocate(bmp.Width(), bmp.Height(),
                                 grey ? TIEPixelFormat::ie8g : TIEPixelFormat::ie24RGB);
  if (!made.ok()) return made;
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* row = samples.Scanline(y);
    for (int x = 0; x < bmp.Width(); ++x) {
      const imaging::TRGB c = bmp.GetPixels(x, y);
      if (grey) {
        row[x] = imaging::Luma601Rounded8(c.r, c.g, c.b);
      } else {
        row[3 * x] = c.r;
        row[3 * x + 1] = c.g;
        row[3 * x + 2] = c.b;
      }
    }
  }
  std::vector<uint8_t> out;
  const imaging::TIOParamsVals params;
  Status encoded = grey ? imaging::codecs::EncodePGM(samples, params, out)
                        : imaging::codecs::EncodePPM(samples, params, out);
  if (!encoded.ok()) return encoded;
  return platform::WriteFileAtomic(
      path, std::string_view(reinterpret_cast<const char*>(out.data()), out.size()));
}

// Bits written most significant first, as SWF records want them.
class BitWriter {
 public:
  void Bits(uint32_t value, int count) {
    for (int i = count - 1; i >= 0; --i) {
      acc_ = static_cast<uint8_t>((acc_ << 1) | ((value >> i) & 1));
      if (++used_ == 8) Flush();
    }
  }
  void Signed(int32_t value, int count) { Bits(static_cast<uint32_t>(value), count); }
  void Align() {
    if (used_ > 0) {
      acc_ = static_cast<uint8_t>(acc_ << (8 - used_));
      Flush();
    }
  }
  std::string& bytes() { return out_; }

 private:
  void Flush() {
    out_ += static_cast<char>(acc_);
    acc_ = 0;
    used_ = 0;
  }
  std::string out_;
  uint8_t acc_ = 0;
  int used_ = 0;
};

// Bits needed for a signed value, sign included.
int SignedBits(int32_t v) {
  uint32_t m = static_cast<uint32_t>(v < 0 ? ~v : v);
  int n = 1;
  while (m) ++n, m >>= 1;
  return n;
}

void U16(std::string& s, uint32_t v) {
  s += static_cast<char>(v & 0xFF);
  s += static_cast<char>((v >> 8) & 0xFF);
}
void U32(std::string& s, uint32_t v) {
  U16(s, v & 0xFFFF);
  U16(s, v >> 16);
}

void Rect(BitWriter& w, int32_t xmax, int32_t ymax) {
  const int n = std::max(SignedBits(xmax), SignedBits(ymax));
  w.Bits(static_cast<uint32_t>(n), 5);
  w.Signed(0, n);
  w.Signed(xmax, n);
  w.Signed(0, n);
  w.Signed(ymax, n);
  w.Align();
}

void Tag(std::string& out, int code, std::string_view body) {
  // The long form always: every reader takes it, and bitmaps are long anyway.
  U16(out, static_cast<uint32_t>(code << 6) | 0x3F);
  U32(out, static_cast<uint32_t>(body.size()));
  out.append(body);
}

constexpr int kTagEnd = 0, kTagShowFrame = 1, kTagDefineShape = 2, kTagSetBackgroundColor = 9,
              kTagPlaceObject2 = 26, kTagDefineBitsLossless2 = 36, kTagFileAttributes = 69;

bool BitmapTag(const TIEBitmap& bmp, uint16_t id, std::string& out) {
  std::string argb;
  argb.reserve(static_cast<size_t>(bmp.Width()) * bmp.Height() * 4);
  for (int y = 0; y < bmp.Height(); ++y)
    for (int x = 0; x < bmp.Width(); ++x) {
      const imaging::TRGB c = bmp.GetPixels(x, y);
      const int a = bmp.GetAlpha(x, y);
      // Premultiplied, as the format stores it.
      argb += static_cast<char>(a);
      argb += static_cast<char>(c.r * a / 255);
      argb += static_cast<char>(c.g * a / 255);
      argb += static_cast<char>(c.b * a / 255);
    }
  uLongf packed_size = compressBound(argb.size());
  std::string packed(packed_size, '\0');
  if (compress2(reinterpret_cast<Bytef*>(packed.data()), &packed_size,
                reinterpret_cast<const Bytef*>(argb.data()), argb.size(), 9) != Z_OK)
    return false;
  packed.resize(packed_size);
  std::string body;
  U16(body, id);
  body += static_cast<char>(5);  // 32-bit ARGB
  U16(body, static_cast<uint32_t>(bmp.Width()));
  U16(body, static_cast<uint32_t>(bmp.Height()));
  body += packed;
  Tag(out, kTagDefineBitsLossless2, body);
  return true;
}

// A rectangle of the picture's size filled with the bitmap, one bitmap pixel per pixel.
void ShapeTag(uint16_t shape_id, uint16_t bitmap_id, int width, int height, std::string& out) {
  const int32_t w = width * 20, h = height * 20;  // twips
  std::string body;
  U16(body, shape_id);
  BitWriter bounds;
  Rect(bounds, w, h);
  body += bounds.bytes();
  body += static_cast<char>(1);     // one fill style
  body += static_cast<char>(0x41);  // clipped bitmap fill
  U16(body, bitmap_id);
  BitWriter m;  // matrix: scale 20 (a pixel is 20 twips), no rotation, no translation
  const int32_t scale = 20 << 16;
  const int sbits = SignedBits(scale);
  m.Bits(1, 1);
  m.Bits(static_cast<uint32_t>(sbits), 5);
  m.Signed(scale, sbits);
  m.Signed(scale, sbits);
  m.Bits(0, 1);
  m.Bits(0, 5);
  m.Align();
  body += m.bytes();
  body += static_cast<char>(0);  // no line styles
  BitWriter s;
  s.Bits(1, 4);  // fill index bits
  s.Bits(0, 4);  // line index bits
  // Style change: move to (0, 0) with fill style 1.
  s.Bits(0, 1);
  s.Bits(0b00011, 5);  // new styles 0, line 0, fill1 1, fill0 0, move 1
  s.Bits(1, 5);
  s.Signed(0, 1);
  s.Signed(0, 1);
  s.Bits(1, 1);
  const int n = std::max({SignedBits(w), SignedBits(h), 2});
  auto edge = [&](bool vertical, int32_t delta) {
    s.Bits(1, 1);  // edge
    s.Bits(1, 1);  // straight
    s.Bits(static_cast<uint32_t>(n - 2), 4);
    s.Bits(0, 1);  // not a general line
    s.Bits(vertical ? 1 : 0, 1);
    s.Signed(delta, n);
  };
  edge(false, w);
  edge(true, h);
  edge(false, -w);
  edge(true, -h);
  s.Bits(0, 6);  // end of shape
  s.Align();
  body += s.bytes();
  Tag(out, kTagDefineShape, body);
}

}  // namespace

Status WritePPM(const TIEBitmap& bmp, const std::string& path) {
  return WritePnm(bmp, path, false);
}

Status WritePGM(const TIEBitmap& bmp, const std::string& path) {
  return WritePnm(bmp, path, true);
}

Status WriteSWF(const std::vector<const TIEBitmap*>& frames, int frame_rate,
                const std::string& path) {
  if (frames.empty() || !frames[0] || frames[0]->IsEmpty())
    return Status::Error("nothing to save: no frame");
  if (frames.size() > 32000) return Status::Error("too many frames for one SWF file");
  for (const TIEBitmap* f : frames)
    if (!f || f->Width() > 6000 || f->Height() > 6000)  // the stage is limited to 2^15 twips
      return Status::Error("a frame is too large for SWF (at most 6000 x 6000 pixels)");
  std::string tags;
  std::string attributes;  // no flags: no metadata, no network access
  U32(attributes, 0);
  Tag(tags, kTagFileAttributes, attributes);
  Tag(tags, kTagSetBackgroundColor, std::string("\xFF\xFF\xFF", 3));
  uint16_t id = 1;
  for (size_t i = 0; i < frames.size(); ++i) {
    const TIEBitmap& f = *frames[i];
    const uint16_t bitmap_id = id++, shape_id = id++;
    if (!BitmapTag(f, bitmap_id, tags)) return Status::Error("cannot compress an SWF frame");
    ShapeTag(shape_id, bitmap_id, f.Width(), f.Height(), tags);
    std::string place;
    place += static_cast<char>(i == 0 ? 0x02 : 0x03);  // has character (+ replace the last)
    U16(place, 1);                                     // depth
    U16(place, shape_id);
    Tag(tags, kTagPlaceObject2, place);
    Tag(tags, kTagShowFrame, {});
  }
  U16(tags, kTagEnd << 6);

  BitWriter stage;
  Rect(stage, frames[0]->Width() * 20, frames[0]->Height() * 20);
  std::string head = "FWS";
  head += static_cast<char>(8);
  std::string rest = stage.bytes();
  U16(rest, static_cast<uint32_t>(std::clamp(frame_rate, 1, 255)) << 8);  // 8.8 fixed point
  U16(rest, static_cast<uint32_t>(frames.size()));
  U32(head, static_cast<uint32_t>(head.size() + 4 + rest.size() + tags.size()));
  return platform::WriteFileAtomic(path, head + rest + tags);
}

}  // namespace pictavo::writer
