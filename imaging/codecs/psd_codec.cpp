#include "imaging/codecs/psd_codec.h"

#include "platform/bytes.h"

namespace pictavo::imaging::codecs {

namespace {
bool UnpackBits(ByteReader& r, size_t packed, uint8_t* out, size_t n) {
  const size_t end = r.pos() + packed;
  size_t k = 0;
  while (k < n && r.pos() < end) {
    const int8_t c = static_cast<int8_t>(r.u8());
    if (c >= 0) {
      for (int i = 0; i <= c && k < n; ++i) out[k++] = r.u8();
    } else if (c != -128) {
      const uint8_t v = r.u8();
      for (int i = 0; i < 1 - c && k < n; ++i) out[k++] = v;
    }
    if (r.failed()) return false;
  }
  r.seek(end);
  return k == n && !r.failed();
}
// The image resources section: the ICC profile (1039) and the resolution (1005).
void ReadResources(ByteReader& r, TIOParamsVals& params) {
  const uint32_t res_len = r.be32();
  const size_t res_end = r.pos() + res_len;
  params.ICC.Clear();
  while (r.pos() + 12 <= res_end && !r.failed()) {
    uint8_t tag[4];
    r.read(tag, 4);
    const int id = r.be16();
    const int name_len = r.u8();
    r.skip(name_len + ((name_len + 1) % 2));
    const uint32_t len = r.be32();
    if (len > r.left()) break;
    if (id == 1039) (void)params.ICC.LoadFromBuffer(r.here(), len);
    if (id == 1005 && len >= 16) {
      ByteReader q(r.here(), len);
      const uint32_t hres = q.be32();
      q.skip(4);
      const uint32_t vres = q.be32();
      if (hres >> 16 && vres >> 16) params.DpiX = hres >> 16, params.DpiY = vres >> 16;
    }
    r.skip(len + (len & 1));
  }
  r.seek(res_end);
}

// The merged picture's first `used` channel planes, `row` bytes a line, raw or PackBits.
pictavo::Status ReadPlanes(ByteReader& r, int comp, uint32_t h, int channels, int used, size_t row,
                           std::vector<uint8_t>& planes) {
  if (comp == 0 && row * h * used > r.left()) return Corrupt("PSD", "pixel data cut short");
  if (comp == 1 && uint64_t{2} * h * channels > r.left())
    return Corrupt("PSD", "pixel data cut short");
  planes.resize(row * h * used);
  if (comp == 1) {
    std::vector<uint16_t> counts(static_cast<size_t>(h) * channels);
    for (auto& c : counts) c = r.be16();
    for (int c = 0; c < used; ++c)
      for (uint32_t y = 0; y < h; ++y)
        if (!UnpackBits(r, counts[static_cast<size_t>(c) * h + y],
                        &planes[(static_cast<size_t>(c) * h + y) * row], row))
          return Corrupt("PSD", "pixel data damaged");
  } else {
    r.read(planes.data(), planes.size());
  }
  return pictavo::Status::OK();
}

// The planes interleaved into the allocated bitmap: bitmap mode inverted, CMYK ink turned
// around, 16-bit samples kept (or cut to their high byte for CMYK), alpha from the next plane.
// `planes` is a plain pointer: the pixel stores could alias a vector's fields.
void InterleavePlanes(const uint8_t* planes, size_t row, int mode, int depth, int color, bool alpha,
                      TIEBitmap* bmp) {
  const int W = bmp->Width(), H = bmp->Height();
  const auto plane = [&](int c, int y) { return &planes[(static_cast<size_t>(c) * H + y) * row]; };
  for (int y = 0; y < H; ++y) {
    uint8_t* d = bmp->Scanline(y);
    if (mode == 0) {  // PSD bitmap mode: 1 = black
      for (size_t i = 0; i < bmp->RowLen(); ++i) d[i] = static_cast<uint8_t>(~plane(0, y)[i]);
      continue;
    }
    const bool cmyk = mode == 4;
    for (int x = 0; x < W; ++x) {
      for (int c = 0; c < color; ++c) {
        const uint8_t* p = plane(c, y);
        if (depth == 16 && !cmyk) {
          reinterpret_cast<uint16_t*>(d)[x * color + c] = platform::LoadBe16(p + 2 * x);
        } else {
          const uint8_t v = depth == 16 ? p[2 * x] : p[x];
          d[x * color + c] = cmyk ? 255 - v : v;  // PSD stores CMYK as 255 = no ink
        }
      }
      if (alpha)
        bmp->AlphaScanline(y)[x] = depth == 16 ? plane(color, y)[2 * x] : plane(color, y)[x];
    }
  }
}

}  // namespace

pictavo::Status DecodePSD(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  uint8_t sig[4];
  r.read(sig, 4);
  const int version = r.be16();
  r.skip(6);
  const int channels = r.be16();
  const uint32_t h = r.be32(), w = r.be32();
  const int depth = r.be16(), mode = r.be16();
  if (r.failed() || std::memcmp(sig, "8BPS", 4) != 0 || version != 1)
    return Corrupt("PSD", "bad header");
  params.FileType = TIOFileType::ioPSD;
  params.Width = static_cast<int>(std::min<uint32_t>(w, INT32_MAX));
  params.Height = static_cast<int>(std::min<uint32_t>(h, INT32_MAX));
  params.BitsPerSample = depth;
  params.SamplesPerPixel = channels;
  params.ImageCount = 1;
  const int color = mode == 3 ? 3 : mode == 4 ? 4 : 1;
  if (channels < color || channels > 56 || !(depth == 1 || depth == 8 || depth == 16) ||
      !(mode == 0 || mode == 1 || mode == 2 || mode == 3 || mode == 4 || mode == 8) ||
      (mode == 0) != (depth == 1) || (mode == 2 && depth != 8))  // indexed is 8-bit only
    return Corrupt("PSD", "unsupported colour mode");
  params.HasAlpha = channels > color;
  const uint32_t cm_len = r.be32();
  const size_t cm_at = r.pos();
  r.skip(cm_len);
  ReadResources(r, params);
  const uint32_t layer_len = r.be32();
  r.skip(layer_len);
  const int comp = r.be16();
  if (r.failed()) return Corrupt("PSD", "sections cut short");
  if (comp != 0 && comp != 1) return Corrupt("PSD", "unsupported compression");
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  const size_t row = (static_cast<size_t>(w) * depth + 7) / 8;
  std::vector<uint8_t> planes;
  if (auto st = ReadPlanes(r, comp, h, channels, std::min(channels, color + 1), row, planes);
      !st.ok())
    return st;
  const int W = static_cast<int>(w), H = static_cast<int>(h);
  TIEPixelFormat fmt = mode == 0   ? TIEPixelFormat::ie1g
                       : mode == 2 ? TIEPixelFormat::ie8p
                       : mode == 4 ? TIEPixelFormat::ieCMYK
                       : color == 3
                           ? (depth == 16 ? TIEPixelFormat::ie48RGB : TIEPixelFormat::ie24RGB)
                           : (depth == 16 ? TIEPixelFormat::ie16g : TIEPixelFormat::ie8g);
  if (mode == 4 && depth == 16) fmt = TIEPixelFormat::ieCMYK;  // scaled down below
  if (auto st = bmp->Allocate(W, H, fmt); !st.ok()) return st;
  const bool alpha = channels > color && mode != 0;
  if (alpha) bmp->AddAlphaChannel();
  if (mode == 2 && cm_len >= 768) {
    bmp->Palette().assign(256, TRGB{});
    for (int i = 0; i < 256; ++i)
      bmp->Palette()[i] = TRGB{data[cm_at + i], data[cm_at + 256 + i], data[cm_at + 512 + i]};
  }
  InterleavePlanes(planes.data(), row, mode, depth, color, alpha, bmp);
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
