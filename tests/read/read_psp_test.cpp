// Paint Shop Pro pictures through psp_read. No such file is in the corpus, so the test lays them
// out byte by byte as the published layout gives them: the signature, the version, the image
// attributes, a layer bank with its layers and channels, and in one case a composite bank
// holding a JPEG that the engine encodes. Both block header styles (version 3 and version 6)
// are written.
#include <zlib.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "engine/tools/runner.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "read/psp_format.h"
#include "read/read_routes.h"
#include "read/zub_read.h"
#include "settings/main_settings.h"
#include "tests/read/reader_fixture.h"
#include "tests/support/test_paths.h"

namespace pictavo::reader {
namespace {
namespace fs = std::filesystem;
using imaging::TRGB;

void Put(std::string& b, uint64_t v, int bytes) {
  for (int i = 0; i < bytes; ++i) b += static_cast<char>((v >> (8 * i)) & 0xFF);
}

enum Compression { kNone = 0, kRle = 1, kLz77 = 2 };

std::string Rle(const std::vector<uint8_t>& in) {
  std::string out;
  size_t i = 0;
  while (i < in.size()) {
    size_t run = 1;
    while (i + run < in.size() && in[i + run] == in[i] && run < 127) ++run;
    if (run >= 3) {
      out += static_cast<char>(128 + run);
      out += static_cast<char>(in[i]);
      i += run;
      continue;
    }
    size_t lit = 0;  // literals up to the next run of three
    while (i + lit < in.size() && lit < 128 &&
           !(i + lit + 2 < in.size() && in[i + lit] == in[i + lit + 1] &&
             in[i + lit] == in[i + lit + 2]))
      ++lit;
    out += static_cast<char>(lit);
    out.append(in.begin() + static_cast<std::ptrdiff_t>(i),
               in.begin() + static_cast<std::ptrdiff_t>(i + lit));
    i += lit;
  }
  return out;
}

std::string Pack(const std::vector<uint8_t>& in, Compression c) {
  if (c == kRle) return Rle(in);
  if (c == kNone) return std::string(in.begin(), in.end());
  uLongf size = compressBound(static_cast<uLong>(in.size()));
  std::string out(size, '\0');
  EXPECT_EQ(compress(reinterpret_cast<Bytef*>(out.data()), &size, in.data(),
                     static_cast<uLong>(in.size())),
            Z_OK);
  out.resize(size);
  return out;
}

struct Rect {
  int left, top, right, bottom;
};

struct LayerDesc {
  Rect place;                                // on the canvas
  std::vector<std::vector<uint8_t>> planes;  // red, green, blue (or the one 8-bit channel)
  std::vector<uint8_t> alpha;                // empty: no transparency channel
  uint8_t opacity = 255;
  bool visible = true;
  int row_pad = 1;      // stored rows padded to this many bytes
  size_t unpacked = 0;  // the unpacked length the channels claim; 0: their real one
};

// Writes PSP files of version 3 (block headers with both lengths) or 6 (chunks with sizes).
class PspWriter {
 public:
  explicit PspWriter(int major) : v3_(major == 3) {
    file_ = "Paint Shop Pro Image File\n\x1a";
    file_.resize(32, '\0');
    Put(file_, major, 2);
    Put(file_, 0, 2);
  }

  // A block with its own fields (a chunk after version 3) and what follows them.
  std::string Block(uint16_t id, const std::string& fields, const std::string& rest) const {
    std::string body = v3_ ? fields : Chunk(fields);
    body += rest;
    std::string b("~BK\0", 4);
    Put(b, id, 2);
    if (v3_) Put(b, fields.size(), 4);
    Put(b, body.size(), 4);
    return b + body;
  }
  // A block with no fields of its own (the layer bank).
  std::string Bank(uint16_t id, const std::string& content) const {
    std::string b("~BK\0", 4);
    Put(b, id, 2);
    if (v3_) Put(b, 0, 4);
    Put(b, content.size(), 4);
    return b + content;
  }
  static std::string Chunk(const std::string& fields) {
    std::string c;
    Put(c, fields.size() + 4, 4);
    return c + fields;
  }

  void Attributes(int w, int h, int depth, Compression c, bool grey, int layers) {
    std::string f;
    Put(f, static_cast<uint32_t>(w), 4);
    Put(f, static_cast<uint32_t>(h), 4);
    f.append(8, '\0');  // resolution
    Put(f, 1, 1);       // per inch
    Put(f, c, 2);
    Put(f, depth, 2);
    Put(f, 1, 2);  // planes
    Put(f, depth == 24 ? 1u << 24 : 256u, 4);
    Put(f, grey ? 1 : 0, 1);
    Put(f, 0, 4);  // total size
    Put(f, 0, 4);  // active layer
    Put(f, layers, 2);
    if (!v3_) Put(f, 1, 4);  // contents: raster layers
    file_ += Block(0x00, f, "");
  }

  // One channel; `unpacked` (when not 0) is the unpacked length the header claims.
  std::string Channel(const std::vector<uint8_t>& tight, int w, int row_pad, size_t unpacked,
                      Compression c, int bitmap, int channel) const {
    std::vector<uint8_t> rows = tight;
    if (row_pad > 1) {
      const size_t stride = (static_cast<size_t>(w) + row_pad - 1) / row_pad * row_pad;
      rows.clear();
      for (size_t at = 0; at + w <= tight.size(); at += w) {
        rows.insert(rows.end(), tight.begin() + static_cast<std::ptrdiff_t>(at),
                    tight.begin() + static_cast<std::ptrdiff_t>(at + w));
        rows.resize(rows.size() + stride - w, 0);
      }
    }
    const std::string data = Pack(rows, c);
    std::string f;
    Put(f, data.size(), 4);
    Put(f, unpacked ? unpacked : rows.size(), 4);
    Put(f, bitmap, 2);
    Put(f, channel, 2);
    return Block(0x05, f, data);
  }

  std::string Layer(const LayerDesc& l, Compression c) const {
    const int w = l.place.right - l.place.left;
    std::string f;
    if (v3_) {
      f = "Layer";
      f.resize(256, '\0');
    } else {
      Put(f, 5, 2);
      f += "Layer";
    }
    Put(f, v3_ ? 0 : 1, 1);  // normal / raster layer
    for (int v : {l.place.left, l.place.top, l.place.right, l.place.bottom})
      Put(f, static_cast<uint32_t>(v), 4);
    for (int v : {0, 0, w, l.place.bottom - l.place.top}) Put(f, static_cast<uint32_t>(v), 4);
    Put(f, l.opacity, 1);
    Put(f, 0, 1);  // normal blending
    Put(f, l.visible ? 1 : 0, 1);
    Put(f, 0, 2);        // transparency protection, link group
    f.append(32, '\0');  // mask rectangles
    Put(f, 0, 3);        // mask linked, disabled, inverted
    Put(f, 5, 2);
    f.append(40, '\0');  // blend ranges
    std::string counts;
    Put(counts, l.alpha.empty() ? 1 : 2, 2);
    Put(counts, l.planes.size() + (l.alpha.empty() ? 0 : 1), 2);
    std::string rest = v3_ ? "" : Chunk(counts);
    if (v3_) f += counts;
    for (size_t i = 0; i < l.planes.size(); ++i)
      rest += Channel(l.planes[i], w, l.row_pad, l.unpacked, c, 0,
                      l.planes.size() == 1 ? 0 : int(i) + 1);
    if (!l.alpha.empty()) rest += Channel(l.alpha, w, l.row_pad, l.unpacked, c, 1, 0);
    return Block(0x04, f, rest);
  }

  void Layers(const std::vector<LayerDesc>& layers, Compression c) {
    std::string content;
    for (const LayerDesc& l : layers) content += Layer(l, c);
    file_ += Bank(0x03, content);
  }

  void Append(const std::string& bytes) { file_ += bytes; }
  const std::string& bytes() const { return file_; }

 private:
  bool v3_;
  std::string file_;
};

// A layer of one colour, or of a colour that changes with the position.
LayerDesc Solid(Rect place, TRGB c) {
  const size_t n = static_cast<size_t>(place.right - place.left) * (place.bottom - place.top);
  return {
      place,
      {std::vector<uint8_t>(n, c.r), std::vector<uint8_t>(n, c.g), std::vector<uint8_t>(n, c.b)}};
}
TRGB Gradient(int x, int y) {
  return {static_cast<uint8_t>(x * 40), static_cast<uint8_t>(y * 60), 200};
}

int Blend(int under, int over, int a) {
  return under + (over - under) * a / 255;
}

class PspRead : public ReaderTest {
 protected:
  // Reads `bytes` as a .psp into out.png; 0 on success, with the picture loaded into bmp_.
  int Read(const std::string& name, const std::string& bytes) {
    r_.src_file = dir_.file(name + ".psp");
    r_.out_file = dir_.file(name + ".png");
    EXPECT_TRUE(platform::WriteFileAtomic(r_.src_file, bytes).ok());
    const int rc = psp_read(r_);
    EXPECT_TRUE(fs::is_empty(dir_.path() / "temp")) << name;
    if (rc != 0) {
      EXPECT_FALSE(fs::exists(r_.out_file)) << name;
      return rc;
    }
    imaging::TImageEnIO io(&bmp_);
    EXPECT_TRUE(io.LoadFromFile(r_.out_file).ok()) << name;
    return rc;
  }

  void ExpectPixel(int x, int y, int r, int g, int b, int tolerance = 1) {
    const TRGB p = bmp_.GetPixels(x, y);
    EXPECT_NEAR(p.r, r, tolerance) << x << "," << y;
    EXPECT_NEAR(p.g, g, tolerance) << x << "," << y;
    EXPECT_NEAR(p.b, b, tolerance) << x << "," << y;
  }

  imaging::TIEBitmap bmp_;
};

// 6 x 4: a gradient background, a half-transparent red square with one clear pixel at (2,1),
// and a hidden green layer over everything.
std::string ThreeLayers(int major, Compression c) {
  PspWriter w(major);
  w.Attributes(6, 4, 24, c, false, 3);
  LayerDesc back = Solid({0, 0, 6, 4}, {});
  for (int y = 0; y < 4; ++y)
    for (int x = 0; x < 6; ++x) {
      const TRGB g = Gradient(x, y);
      back.planes[0][y * 6 + x] = g.r;
      back.planes[1][y * 6 + x] = g.g;
      back.planes[2][y * 6 + x] = g.b;
    }
  LayerDesc red = Solid({2, 1, 5, 3}, {255, 0, 0});
  red.opacity = 128;
  red.alpha.assign(6, 255);
  red.alpha[0] = 0;
  LayerDesc hidden = Solid({0, 0, 6, 4}, {0, 255, 0});
  hidden.visible = false;
  w.Layers({back, red, hidden}, c);
  return w.bytes();
}

TEST_F(PspRead, LayersFlattenedInEveryCompressionAndHeaderStyle) {
  for (int major : {3, 6})
    for (Compression c : {kNone, kRle, kLz77}) {
      const std::string name = "layers_v" + std::to_string(major) + "_c" + std::to_string(c);
      ASSERT_EQ(Read(name, ThreeLayers(major, c)), 0) << name;
      ASSERT_EQ(bmp_.Width(), 6) << name;
      ASSERT_EQ(bmp_.Height(), 4) << name;
      SCOPED_TRACE(name);
      // Outside the red square the gradient shows: the hidden layer is not drawn.
      for (auto [x, y] : {std::pair{0, 0}, {5, 3}, {1, 2}, {5, 1}}) {
        const TRGB g = Gradient(x, y);
        ExpectPixel(x, y, g.r, g.g, g.b);
      }
      // The red square at half opacity; its clear pixel leaves the gradient.
      for (auto [x, y] : {std::pair{3, 1}, {4, 2}, {2, 2}}) {
        const TRGB g = Gradient(x, y);
        ExpectPixel(x, y, Blend(g.r, 255, 128), Blend(g.g, 0, 128), Blend(g.b, 0, 128));
      }
      const TRGB clear = Gradient(2, 1);
      ExpectPixel(2, 1, clear.r, clear.g, clear.b);
    }

  // 8-bit grey whose stored rows are padded to four bytes, on a canvas larger than the layer:
  // white where no layer is.
  PspWriter w(6);
  w.Attributes(6, 3, 8, kNone, true, 1);
  LayerDesc grey{{1, 0, 6, 2}, {{10, 20, 30, 40, 50, 60, 70, 80, 90, 100}}};
  grey.row_pad = 4;
  w.Layers({grey}, kNone);
  ASSERT_EQ(Read("grey", w.bytes()), 0);
  ASSERT_EQ(bmp_.Width(), 6);
  ExpectPixel(1, 0, 10, 10, 10, 0);
  ExpectPixel(5, 1, 100, 100, 100, 0);
  ExpectPixel(0, 0, 255, 255, 255, 0);
  ExpectPixel(3, 2, 255, 255, 255, 0);

  // The run-length code by itself: a repeat, literals, and streams that claim too much.
  std::vector<uint8_t> out;
  EXPECT_TRUE(psp::UnpackRle(std::string("\x83\x07\x02\x01\x02", 5), 5, out));
  EXPECT_EQ(out, (std::vector<uint8_t>{7, 7, 7, 1, 2}));
  // 128 is the longest literal, not a repeat.
  std::string literal(129, '\0');
  literal[0] = '\x80';
  for (int i = 1; i <= 128; ++i) literal[i] = static_cast<char>(i);
  ASSERT_TRUE(psp::UnpackRle(literal, 128, out));
  EXPECT_EQ(out[0], 1);
  EXPECT_EQ(out[127], 128);
  EXPECT_FALSE(psp::UnpackRle(std::string("\x83\x07", 2), 4, out));
  EXPECT_FALSE(psp::UnpackRle(std::string("\x05\x01\x02", 3), 5, out));
  EXPECT_FALSE(psp::UnpackRle(std::string("\xFF\x01", 2), 5, out));
}

// A version 6 file of 16 x 8 with a red layer and a composite bank whose attributes give
// `composite_w` x `composite_h`.
std::string WithComposite(const std::string& jpeg, int composite_w, int composite_h) {
  PspWriter w(6);
  w.Attributes(16, 8, 24, kLz77, false, 1);
  std::string attrs;
  Put(attrs, static_cast<uint32_t>(composite_w), 4);
  Put(attrs, static_cast<uint32_t>(composite_h), 4);
  Put(attrs, 24, 2);
  Put(attrs, 3, 2);  // JPEG
  Put(attrs, 3, 2);
  Put(attrs, 1u << 24, 4);
  Put(attrs, 0, 2);  // the composite, not the thumbnail
  std::string info;
  Put(info, jpeg.size(), 4);
  Put(info, 16 * 8 * 3, 4);
  Put(info, 0, 2);
  std::string count;
  Put(count, 1, 4);
  w.Append(w.Block(0x10, count, w.Block(0x11, attrs, "") + w.Block(0x12, info, jpeg)));
  w.Layers({Solid({0, 0, 16, 8}, {255, 0, 0})}, kLz77);
  return w.bytes();
}

TEST_F(PspRead, JpegCompositeWhenFullSize) {
  imaging::TIEBitmap picture;
  ASSERT_TRUE(picture.Allocate(16, 8, imaging::TIEPixelFormat::ie24RGB).ok());
  picture.Fill(0xC04020);  // blue-ish: r 0x20, g 0x40, b 0xC0
  picture.FillRect(8, 0, 8, 8, 0x20E0E0);
  imaging::TImageEnIO io(&picture);
  std::vector<uint8_t> encoded;
  ASSERT_TRUE(io.SaveToBuffer(imaging::TIOFileType::ioJPEG, encoded).ok());
  const std::string jpeg(encoded.begin(), encoded.end());

  ASSERT_EQ(Read("composite", WithComposite(jpeg, 16, 8)), 0);
  ASSERT_EQ(bmp_.Width(), 16);
  ASSERT_EQ(bmp_.Height(), 8);
  ExpectPixel(2, 4, 0x20, 0x40, 0xC0, 12);
  ExpectPixel(13, 4, 0xE0, 0xE0, 0x20, 12);

  // A composite of another size is a thumbnail: the layers are read.
  ASSERT_EQ(Read("thumbnail", WithComposite(jpeg, 8, 4)), 0);
  ASSERT_EQ(bmp_.Width(), 16);
  ExpectPixel(2, 4, 255, 0, 0, 0);
  ExpectPixel(13, 4, 255, 0, 0, 0);

  // A composite that is no JPEG after all: the layers again.
  ASSERT_EQ(Read("not_jpeg", WithComposite(std::string("\xFF\xD8garbage", 9), 16, 8)), 0);
  ExpectPixel(13, 4, 255, 0, 0, 0);
}

TEST_F(PspRead, MalformedFilesReadNothing) {
  const std::string good = ThreeLayers(6, kLz77);
  ASSERT_EQ(Read("good", good), 0);

  // Cut inside the last channel, or short of the first block.
  EXPECT_NE(Read("truncated", good.substr(0, good.size() - 5)), 0);
  EXPECT_NE(Read("header_only", good.substr(0, 40)), 0);

  // The layer bank's length runs past the end of the file.
  const size_t bank = good.find(std::string("~BK\0\x03\0", 6));
  ASSERT_NE(bank, std::string::npos);
  std::string past = good;
  past[bank + 9] = '\x7F';
  EXPECT_NE(Read("past_end", past), 0);

  // The job's pixel limit holds: the same file, allowed fewer pixels than its 6 x 4.
  const imaging::PictureLimits tight{20, 2048};
  r_.picture_limits = &tight;
  const int over_limit = Read("over_limit", good);
  r_.picture_limits = nullptr;
  EXPECT_NE(over_limit, 0);
  EXPECT_EQ(Read("within_limit", good), 0);

  // A canvas far over any limit, and a negative one.
  PspWriter huge(6);
  huge.Attributes(100000, 100000, 24, kNone, false, 0);
  EXPECT_NE(Read("huge", huge.bytes()), 0);
  PspWriter negative(6);
  negative.Attributes(-4, 4, 24, kNone, false, 0);
  EXPECT_NE(Read("negative", negative.bytes()), 0);

  // A layer that claims 60000 x 60000 pixels on a small canvas, with a few bytes of data.
  PspWriter wide(6);
  wide.Attributes(6, 4, 24, kRle, false, 1);
  LayerDesc claim = Solid({0, 0, 2, 2}, {1, 2, 3});
  std::string layer = wide.Layer(claim, kRle);
  // The saved rectangle's right and bottom follow the name, the type and the layer rectangle.
  const size_t saved = 10 + 4 + 2 + 5 + 1 + 16 + 8;
  for (size_t at : {saved, saved + 4}) {
    layer[at] = '\x60';
    layer[at + 1] = '\xEA';
  }
  wide.Append(wide.Bank(0x03, layer));
  EXPECT_NE(Read("wide_layer", wide.bytes()), 0);

  // Channels whose packed data gives fewer bytes than the layer needs.
  PspWriter lying(3);
  lying.Attributes(6, 4, 24, kRle, false, 1);
  LayerDesc small = Solid({0, 0, 6, 4}, {9, 9, 9});
  small.planes[2].resize(10);  // blue holds 10 of the 24 samples it claims
  small.unpacked = 24;
  lying.Layers({small}, kRle);
  EXPECT_NE(Read("short_channel", lying.bytes()), 0);

  // A wrong signature, and a file with attributes but no layer.
  std::string other = good;
  other[0] = 'p';
  EXPECT_NE(Read("other", other), 0);
  PspWriter empty(6);
  empty.Attributes(6, 4, 24, kNone, false, 0);
  EXPECT_NE(Read("no_layers", empty.bytes()), 0);
}

}  // namespace
}  // namespace pictavo::reader
