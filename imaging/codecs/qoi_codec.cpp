#include "imaging/codecs/qoi_codec.h"

namespace pictavo::imaging::codecs {

namespace {
struct Px {
  uint8_t r, g, b, a;
};
int Hash(const Px& p) {
  return (p.r * 3 + p.g * 5 + p.b * 7 + p.a * 11) % 64;
}
bool Same(const Px& x, const Px& y) {
  return x.r == y.r && x.g == y.g && x.b == y.b && x.a == y.a;
}
}  // namespace

pictavo::Status DecodeQOI(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  uint8_t magic[4];
  r.read(magic, 4);
  const uint32_t w = r.be32(), h = r.be32();
  const int channels = r.u8();
  r.u8();
  if (r.failed() || std::memcmp(magic, "qoif", 4) != 0) return Corrupt("QOI", "no signature");
  if (channels != 3 && channels != 4) return Corrupt("QOI", "bad channel count");
  params.FileType = TIOFileType::ioQOI;
  params.Width = static_cast<int>(std::min<uint32_t>(w, INT32_MAX));
  params.Height = static_cast<int>(std::min<uint32_t>(h, INT32_MAX));
  params.BitsPerSample = 8;
  params.SamplesPerPixel = channels;
  params.HasAlpha = channels == 4;
  params.ImageCount = 1;
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  // The densest chunk (a run of 62) cannot describe more than 62 pixels per byte.
  if (static_cast<uint64_t>(w) * h > (uint64_t{size}) * 62) return Corrupt("QOI", "data cut short");
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  if (auto st = bmp->Allocate(static_cast<int>(w), static_cast<int>(h), TIEPixelFormat::ie24RGB);
      !st.ok())
    return st;
  if (channels == 4) bmp->AddAlphaChannel();
  Px index[64] = {};
  Px px{0, 0, 0, 255};
  int run = 0;
  for (uint32_t y = 0; y < h; ++y) {
    uint8_t* d = bmp->Scanline(static_cast<int>(y));
    uint8_t* a = channels == 4 ? bmp->AlphaScanline(static_cast<int>(y)) : nullptr;
    for (uint32_t x = 0; x < w; ++x) {
      if (run > 0) {
        --run;
      } else {
        const uint8_t b1 = r.u8();
        if (b1 == 0xFE) {
          px.r = r.u8(), px.g = r.u8(), px.b = r.u8();
        } else if (b1 == 0xFF) {
          px.r = r.u8(), px.g = r.u8(), px.b = r.u8(), px.a = r.u8();
        } else if ((b1 & 0xC0) == 0x00) {
          px = index[b1];
        } else if ((b1 & 0xC0) == 0x40) {
          px.r += ((b1 >> 4) & 3) - 2, px.g += ((b1 >> 2) & 3) - 2, px.b += (b1 & 3) - 2;
        } else if ((b1 & 0xC0) == 0x80) {
          const uint8_t b2 = r.u8();
          const int vg = (b1 & 0x3F) - 32;
          px.r += vg - 8 + ((b2 >> 4) & 15), px.g += vg, px.b += vg - 8 + (b2 & 15);
        } else {
          run = b1 & 0x3F;
        }
        index[Hash(px)] = px;
      }
      if (r.failed()) {
        bmp->Clear();
        return Corrupt("QOI", "data cut short");
      }
      d[3 * x] = px.r, d[3 * x + 1] = px.g, d[3 * x + 2] = px.b;
      if (a) a[x] = px.a;
    }
  }
  return pictavo::Status::OK();
}

pictavo::Status EncodeQOI(const TIEBitmap& bmp, const TIOParamsVals&, std::vector<uint8_t>& out) {
  const int w = bmp.Width(), h = bmp.Height();
  const bool alpha = bmp.HasAlphaChannel();
  out.clear();
  PutBytes(out, "qoif", 4);
  PutBE32(out, w), PutBE32(out, h);
  out.push_back(alpha ? 4 : 3), out.push_back(0);
  Px index[64] = {};
  Px prev{0, 0, 0, 255};
  int run = 0;
  const size_t total = static_cast<size_t>(w) * h;
  size_t n = 0;
  for (int y = 0; y < h; ++y) {
    const uint8_t* s = bmp.Scanline(y);
    for (int x = 0; x < w; ++x, ++n) {
      const Px px{s[3 * x], s[3 * x + 1], s[3 * x + 2],
                  alpha ? bmp.AlphaScanline(y)[x] : uint8_t(255)};
      if (Same(px, prev)) {
        ++run;
        if (run == 62 || n + 1 == total)
          out.push_back(static_cast<uint8_t>(0xC0 | (run - 1))), run = 0;
        continue;
      }
      if (run > 0) out.push_back(static_cast<uint8_t>(0xC0 | (run - 1))), run = 0;
      const int hsh = Hash(px);
      if (Same(index[hsh], px)) {
        out.push_back(static_cast<uint8_t>(hsh));
      } else {
        index[hsh] = px;
        if (px.a == prev.a) {
          const int8_t vr = static_cast<int8_t>(px.r - prev.r),
                       vg = static_cast<int8_t>(px.g - prev.g),
                       vb = static_cast<int8_t>(px.b - prev.b);
          const int8_t vg_r = static_cast<int8_t>(vr - vg), vg_b = static_cast<int8_t>(vb - vg);
          if (vr > -3 && vr < 2 && vg > -3 && vg < 2 && vb > -3 && vb < 2) {
            out.push_back(static_cast<uint8_t>(0x40 | (vr + 2) << 4 | (vg + 2) << 2 | (vb + 2)));
          } else if (vg_r > -9 && vg_r < 8 && vg > -33 && vg < 32 && vg_b > -9 && vg_b < 8) {
            out.push_back(static_cast<uint8_t>(0x80 | (vg + 32)));
            out.push_back(static_cast<uint8_t>((vg_r + 8) << 4 | (vg_b + 8)));
          } else {
            out.push_back(0xFE), out.push_back(px.r), out.push_back(px.g), out.push_back(px.b);
          }
        } else {
          out.push_back(0xFF), out.push_back(px.r), out.push_back(px.g), out.push_back(px.b),
              out.push_back(px.a);
        }
      }
      prev = px;
    }
  }
  static const uint8_t end[8] = {0, 0, 0, 0, 0, 0, 0, 1};
  PutBytes(out, end, 8);
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
