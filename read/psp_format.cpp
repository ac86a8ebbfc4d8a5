#include "read/psp_format.h"

#include <zlib.h>

#include <algorithm>
#include <cstring>

#include "platform/bytes.h"

namespace pictavo::reader::psp {
namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;
using imaging::TRGB;

constexpr char kSignature[] = "Paint Shop Pro Image File\n\x1a";
constexpr size_t kSignatureLen = 32;  // the text above, then zeros

enum BlockId : uint16_t {
  kImageAttributes = 0x00,
  kPalette = 0x02,
  kLayerBank = 0x03,
  kLayer = 0x04,
  kChannel = 0x05,
  kCompositeBank = 0x10,
  kCompositeAttributes = 0x11,
  kJpeg = 0x12,
};

enum Compression : uint16_t { kNone = 0, kRle = 1, kLz77 = 2, kJpegCompression = 3 };

// Little-endian fields read from a bounded area; a read past the end yields 0 and clears ok().
class Cursor {
 public:
  explicit Cursor(std::string_view b) : b_(b) {}
  uint8_t U8() { return static_cast<uint8_t>(Take(1)); }
  uint16_t U16() { return static_cast<uint16_t>(Take(2)); }
  uint32_t U32() { return static_cast<uint32_t>(Take(4)); }
  int32_t I32() { return static_cast<int32_t>(U32()); }
  void Skip(size_t n) {
    if (n > b_.size() - at_) ok_ = false;
    at_ = ok_ ? at_ + n : b_.size();
  }
  bool ok() const { return ok_; }

 private:
  uint64_t Take(size_t n) {
    if (n > b_.size() - at_) {
      ok_ = false;
      at_ = b_.size();
      return 0;
    }
    uint64_t v = 0;
    for (size_t i = 0; i < n; ++i) v |= uint64_t{static_cast<uint8_t>(b_[at_ + i])} << (8 * i);
    at_ += n;
    return v;
  }

  std::string_view b_;
  size_t at_ = 0;
  bool ok_ = true;
};

// A short area reads as 0, as a Cursor would read it.
uint32_t Le32(std::string_view b) {
  return b.size() < 4 ? 0 : platform::LoadLe32(b);
}

// Walks the blocks laid end to end in an area. A header whose lengths run past the area makes
// the area malformed; bytes that do not start a header end the walk.
class Blocks {
 public:
  Blocks(std::string_view area, bool v3) : area_(area), v3_(v3) {}

  bool Next(Block& out) {
    const size_t header = v3_ ? 14 : 10;
    if (area_.size() < header || area_.compare(0, 4, std::string_view("~BK\0", 4)) != 0)
      return false;
    Cursor c(area_.substr(4));
    out.id = c.U16();
    const uint32_t fields = v3_ ? c.U32() : 0;
    const uint32_t total = c.U32();
    if (total > area_.size() - header || fields > total) {
      bad_ = true;
      return false;
    }
    out.body = area_.substr(header, total);
    out.fields = fields;
    area_.remove_prefix(header + total);
    return true;
  }
  bool bad() const { return bad_; }

 private:
  std::string_view area_;
  bool v3_;
  bool bad_ = false;
};

// The fields a chunk holds after its size, and what follows the chunk.
bool SplitChunk(std::string_view area, std::string_view& fields, std::string_view& rest) {
  const uint32_t size = Le32(area);
  if (area.size() < 4 || size < 4 || size > area.size()) return false;
  fields = area.substr(4, size - 4);
  rest = area.substr(size);
  return true;
}

// A block's own fields and what follows them (sub-blocks or pixel data).
bool SplitBlock(const Block& b, bool v3, std::string_view& fields, std::string_view& rest) {
  if (!v3) return SplitChunk(b.body, fields, rest);
  fields = b.body.substr(0, b.fields);
  rest = b.body.substr(b.fields);
  return true;
}

bool SizeOk(int64_t w, int64_t h, uint64_t max_pixels) {
  return w > 0 && h > 0 && w <= imaging::kMaxBitmapSide && h <= imaging::kMaxBitmapSide &&
         static_cast<uint64_t>(w) * static_cast<uint64_t>(h) <= max_pixels;
}

struct Channel {
  uint16_t bitmap = 0, channel = 0;
  uint32_t unpacked = 0;
  std::string_view data;
};

bool ReadChannel(const Block& b, bool v3, Channel& out) {
  std::string_view fields, rest;
  if (!SplitBlock(b, v3, fields, rest)) return false;
  Cursor c(fields);
  const uint32_t packed = c.U32();
  out.unpacked = c.U32();
  out.bitmap = c.U16();
  out.channel = c.U16();
  if (!c.ok() || packed > rest.size()) return false;
  out.data = rest.substr(0, packed);
  return true;
}

// Unpacks a channel of w x h samples into `plane`, rows without padding. The stored rows may
// be padded to four bytes, as bitmaps of the editor's platform are; the unpacked length says
// which.
bool UnpackChannel(const Channel& ch, uint16_t compression, int w, int h,
                   std::vector<uint8_t>& plane) {
  const uint64_t tight = uint64_t(w) * uint64_t(h);
  const uint64_t padded = ((uint64_t(w) + 3) & ~uint64_t{3}) * uint64_t(h);
  if (ch.unpacked != tight && ch.unpacked != padded) return false;
  const size_t stride = ch.unpacked == tight ? size_t(w) : size_t((w + 3) & ~3);
  const size_t size = ch.unpacked;
  const uint64_t packed = ch.data.size();
  std::vector<uint8_t> raw;
  switch (compression) {
    case kNone:
      if (packed < size) return false;
      raw.assign(ch.data.begin(), ch.data.begin() + static_cast<std::ptrdiff_t>(size));
      break;
    case kRle:
      // Two bytes give at most 127: a longer claim is not this channel's.
      if (size > packed * 64 + 128 || !UnpackRle(ch.data, size, raw)) return false;
      break;
    case kLz77: {
      // zlib's best ratio is about 1032 to 1.
      if (size > packed * 1032 + 64) return false;
      raw.resize(size);
      uLongf got = static_cast<uLongf>(size);
      if (uncompress(raw.data(), &got, reinterpret_cast<const Bytef*>(ch.data.data()),
                     static_cast<uLong>(packed)) != Z_OK ||
          got != size)
        return false;
      break;
    }
    default:
      return false;
  }
  if (stride == size_t(w)) {
    plane = std::move(raw);
    return true;
  }
  plane.resize(tight);
  for (int y = 0; y < h; ++y)
    std::memcpy(plane.data() + size_t(y) * size_t(w), raw.data() + size_t(y) * stride, size_t(w));
  return true;
}

uint8_t Mix(uint8_t under, uint8_t over, unsigned a) {
  return static_cast<uint8_t>((over * a + under * (255 - a) + 127) / 255);
}

}  // namespace

bool UnpackRle(std::string_view in, size_t out_size, std::vector<uint8_t>& out) {
  out.clear();
  out.reserve(out_size);
  size_t i = 0;
  while (out.size() < out_size) {
    if (i >= in.size()) return false;
    const auto n = static_cast<uint8_t>(in[i++]);
    const size_t left = out_size - out.size();
    if (n > 128) {
      if (i >= in.size() || size_t(n - 128) > left) return false;
      out.insert(out.end(), size_t(n - 128), static_cast<uint8_t>(in[i++]));
    } else {
      if (n > in.size() - i || n > left) return false;
      out.insert(out.end(), in.begin() + static_cast<std::ptrdiff_t>(i),
                 in.begin() + static_cast<std::ptrdiff_t>(i + n));
      i += n;
    }
  }
  return true;
}

bool Document::Open(std::string_view file, uint64_t max_pixels) {
  *this = Document();
  max_pixels_ = max_pixels;
  if (file.size() < kSignatureLen + 4 || file.compare(0, sizeof kSignature - 1, kSignature) != 0 ||
      file.substr(sizeof kSignature - 1, kSignatureLen - (sizeof kSignature - 1))
              .find_first_not_of('\0') != std::string_view::npos)
    return false;
  Cursor version(file.substr(kSignatureLen));
  const uint16_t major = version.U16();
  if (major < 3) return false;  // older files have no blocks
  v3_ = major == 3;

  Blocks blocks(file.substr(kSignatureLen + 4), v3_);
  Block b;
  // The image attributes come first: everything else is measured against them.
  if (!blocks.Next(b) || b.id != kImageAttributes || !ReadAttributes(b.body)) return false;
  while (blocks.Next(b)) {
    bool ok = true;
    if (b.id == kPalette) ok = ReadPalette(b.body);
    if (b.id == kLayerBank) ok = ReadLayerBank(b);
    if (b.id == kCompositeBank) ok = ReadCompositeBank(b.body);
    if (!ok) return false;
  }
  return !blocks.bad();
}

bool Document::ReadAttributes(std::string_view body) {
  std::string_view fields, rest;
  if (!SplitBlock({kImageAttributes, body, v3_ ? body.size() : 0}, v3_, fields, rest)) return false;
  Cursor c(fields);
  const int32_t w = c.I32(), h = c.I32();
  c.Skip(8 + 1);  // resolution and its unit
  compression_ = c.U16();
  depth_ = c.U16();
  c.Skip(2 + 4);  // planes, colours
  grey_ = c.U8() != 0;
  if (!c.ok() || !SizeOk(w, h, max_pixels_) || compression_ > kLz77) return false;
  width_ = w;
  height_ = h;
  return true;
}

bool Document::ReadPalette(std::string_view body) {
  std::string_view entries;
  if (v3_) {
    entries = body.substr(std::min<size_t>(4, body.size()));
  } else {
    std::string_view fields;
    if (!SplitChunk(body, fields, entries)) return false;
  }
  const uint32_t count = Le32(body.substr(v3_ ? 0 : 4));
  if (count > entries.size() / 4) return false;
  palette_.clear();
  for (uint32_t i = 0; i < count && i < 256; ++i)  // B, G, R, unused
    palette_.push_back({static_cast<uint8_t>(entries[4 * i + 2]),
                        static_cast<uint8_t>(entries[4 * i + 1]),
                        static_cast<uint8_t>(entries[4 * i])});
  return true;
}

bool Document::ReadLayerBank(const Block& bank) {
  // The bank has no fields of its own after version 3.
  Blocks blocks(v3_ ? bank.body.substr(bank.fields) : bank.body, v3_);
  Block b;
  while (blocks.Next(b)) {
    if (b.id != kLayer) continue;
    std::string_view fields, rest;
    if (!SplitBlock(b, v3_, fields, rest)) return false;
    Cursor c(fields);
    if (v3_) {
      c.Skip(256);  // name
    } else {
      c.Skip(c.U16());
    }
    const uint8_t type = c.U8();
    int32_t image[4], saved[4];
    for (int32_t& v : image) v = c.I32();
    for (int32_t& v : saved) v = c.I32();
    Layer layer;
    layer.opacity = c.U8();
    c.Skip(1);  // blending mode: every layer is drawn as normal
    layer.visible = (c.U8() & 1) != 0;
    if (!c.ok()) return false;
    if (!v3_) {
      // The bitmap counts sit in a chunk of their own; the channels follow it.
      std::string_view counts;
      if (!SplitChunk(rest, counts, rest)) return false;
    }
    // Later versions number raster layers 1 and floating selections 2; vector, adjustment,
    // group and mask layers hold nothing to draw here.
    if (!v3_ && type > 2) continue;
    const int64_t w = int64_t{saved[2]} - saved[0], h = int64_t{saved[3]} - saved[1];
    if (w == 0 || h == 0) continue;  // an empty layer
    if (!SizeOk(w, h, max_pixels_)) return false;
    layer.width = static_cast<int>(w);
    layer.height = static_cast<int>(h);
    // The saved rectangle is measured from the layer's own rectangle.
    layer.left = int64_t{image[0]} + saved[0];
    layer.top = int64_t{image[1]} + saved[1];
    Blocks channels(rest, v3_);
    Block ch;
    while (channels.Next(ch))
      if (ch.id == kChannel) layer.channels.push_back(ch);
    if (channels.bad()) return false;
    layers_.push_back(std::move(layer));
  }
  return !blocks.bad();
}

bool Document::ReadCompositeBank(std::string_view body) {
  if (v3_) return true;  // version 3 keeps no composite bank
  std::string_view fields, rest;
  if (!SplitChunk(body, fields, rest)) return false;
  Blocks blocks(rest, v3_);
  Block b;
  bool full_size_jpeg = false;  // the attributes just read describe a full-size JPEG
  while (blocks.Next(b)) {
    if (!SplitBlock(b, v3_, fields, rest)) return false;
    Cursor c(fields);
    if (b.id == kCompositeAttributes) {
      const int32_t w = c.I32(), h = c.I32();
      c.Skip(2);  // bit depth
      const uint16_t compression = c.U16();
      if (!c.ok()) return false;
      full_size_jpeg = w == width_ && h == height_ && compression == kJpegCompression;
    } else if (b.id == kJpeg) {
      const uint32_t packed = c.U32();
      if (!c.ok() || packed > rest.size()) return false;
      const std::string_view jpeg = rest.substr(0, packed);
      if (full_size_jpeg && jpeg.size() > 2 && static_cast<uint8_t>(jpeg[0]) == 0xFF &&
          static_cast<uint8_t>(jpeg[1]) == 0xD8)
        jpeg_ = jpeg;
      full_size_jpeg = false;
    }
  }
  return !blocks.bad();
}

bool Document::DrawLayer(const Layer& layer, TIEBitmap& canvas) const {
  // Colour channels by their number (0 = the one channel of an 8-bit picture, 1 to 3 = red,
  // green, blue), and the transparency mask.
  const Channel* colour[4] = {};
  const Channel* mask = nullptr;
  std::vector<Channel> all(layer.channels.size());
  for (size_t i = 0; i < all.size(); ++i) {
    Channel& ch = all[i];
    if (!ReadChannel(layer.channels[i], v3_, ch)) return false;
    if (ch.bitmap == 0 && ch.channel < 4) colour[ch.channel] = &ch;
    if (ch.bitmap == 1 && ch.channel == 0) mask = &ch;
  }
  const int w = layer.width, h = layer.height;
  std::vector<uint8_t> planes[3], alpha;
  const int count = depth_ == 24 ? 3 : 1;
  for (int i = 0; i < count; ++i) {
    const Channel* ch = colour[depth_ == 24 ? i + 1 : 0];
    if (!ch || !UnpackChannel(*ch, compression_, w, h, planes[i])) return false;
  }
  if (mask && !UnpackChannel(*mask, compression_, w, h, alpha)) return false;

  // Index or grey value to colour.
  TRGB lookup[256];
  for (int i = 0; i < 256; ++i) {
    const auto v = static_cast<uint8_t>(i);
    lookup[i] = !grey_ && size_t(i) < palette_.size() ? palette_[i] : TRGB{v, v, v};
  }
  const int64_t x0 = std::max<int64_t>(0, -layer.left);
  const int64_t x1 = std::min<int64_t>(w, int64_t{canvas.Width()} - layer.left);
  const int64_t y0 = std::max<int64_t>(0, -layer.top);
  const int64_t y1 = std::min<int64_t>(h, int64_t{canvas.Height()} - layer.top);
  for (int64_t y = y0; y < y1; ++y) {
    uint8_t* row = canvas.Scanline(static_cast<int>(layer.top + y));
    for (int64_t x = x0; x < x1; ++x) {
      const size_t i = size_t(y) * size_t(w) + size_t(x);
      const unsigned a = (alpha.empty() ? 255u : alpha[i]) * layer.opacity / 255u;
      const TRGB c =
          count == 3 ? TRGB{planes[0][i], planes[1][i], planes[2][i]} : lookup[planes[0][i]];
      uint8_t* p = row + 3 * (layer.left + x);
      p[0] = Mix(p[0], c.r, a);
      p[1] = Mix(p[1], c.g, a);
      p[2] = Mix(p[2], c.b, a);
    }
  }
  return true;
}

bool Document::Flatten(TIEBitmap& out) const {
  if (depth_ != 24 && depth_ != 8) return false;
  if (std::none_of(layers_.begin(), layers_.end(), [](const Layer& l) { return l.visible; }))
    return false;
  if (!out.Allocate(width_, height_, TIEPixelFormat::ie24RGB).ok()) return false;
  out.Fill(0xFFFFFF);
  // The first layer of the bank is the bottom one.
  for (const Layer& layer : layers_)
    if (layer.visible && !DrawLayer(layer, out)) {
      out.Clear();
      return false;
    }
  return true;
}

}  // namespace pictavo::reader::psp
