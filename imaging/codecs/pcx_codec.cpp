#include "imaging/codecs/pcx_codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodePCX(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  if (r.u8() != 0x0A) return Corrupt("PCX", "no signature");
  r.u8();
  const int rle = r.u8(), bits = r.u8();
  const int x0 = r.le16(), y0 = r.le16(), x1 = r.le16(), y1 = r.le16();
  const int hdpi = r.le16(), vdpi = r.le16();
  uint8_t ega[48];
  r.read(ega, 48);
  r.u8();
  const int planes = r.u8(), bpl = r.le16();
  if (r.failed() || size < 128) return Corrupt("PCX", "header cut short");
  const int64_t w = int64_t(x1) - x0 + 1, h = int64_t(y1) - y0 + 1;
  params.FileType = TIOFileType::ioPCX;
  params.Width = static_cast<int>(std::max<int64_t>(w, 0));
  params.Height = static_cast<int>(std::max<int64_t>(h, 0));
  params.BitsPerSample = bits;
  params.SamplesPerPixel = planes == 3 ? 3 : 1;
  params.PCX_Compression = rle == 1;
  params.ImageCount = 1;
  if (hdpi > 0 && vdpi > 0) params.DpiX = hdpi, params.DpiY = vdpi;
  const bool ok_layout =
      (bits == 1 && (planes == 1 || planes == 4)) || (bits == 8 && (planes == 1 || planes == 3));
  if (!ok_layout) return Corrupt("PCX", "unsupported layout");
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  if (bpl * 8 < w * bits) return Corrupt("PCX", "bytes per line too small");
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  const int W = static_cast<int>(w), H = static_cast<int>(h);
  const size_t line = static_cast<size_t>(bpl) * planes;
  std::vector<uint8_t> buf(line);
  r.seek(128);
  // A run byte stands for at most 63 bytes of a line.
  if (uint64_t{line} * H > uint64_t{r.left()} * (rle == 1 ? 63 : 1))
    return Corrupt("PCX", "pixel data cut short");
  const TIEPixelFormat fmt = planes == 3                  ? TIEPixelFormat::ie24RGB
                             : (bits == 1 && planes == 1) ? TIEPixelFormat::ie1g
                                                          : TIEPixelFormat::ie8p;
  if (auto st = bmp->Allocate(W, H, fmt); !st.ok()) return st;
  for (int y = 0; y < H; ++y) {
    size_t n = 0;
    while (n < line) {
      uint8_t b = r.u8();
      if (rle == 1 && (b & 0xC0) == 0xC0) {
        const int count = b & 0x3F;
        const uint8_t v = r.u8();
        for (int i = 0; i < count && n < line; ++i) buf[n++] = v;
      } else {
        buf[n++] = b;
      }
      if (r.failed()) {
        bmp->Clear();
        return Corrupt("PCX", "pixel data cut short");
      }
    }
    uint8_t* d = bmp->Scanline(y);
    if (fmt == TIEPixelFormat::ie1g) {
      // Bit 1 shows EGA palette entry 1; when entry 0 is the brighter one, 1 means black.
      const bool invert = ega[0] + ega[1] + ega[2] > ega[3] + ega[4] + ega[5];
      for (size_t i = 0; i < bmp->RowLen(); ++i)
        d[i] = invert ? static_cast<uint8_t>(~buf[i]) : buf[i];
    } else if (fmt == TIEPixelFormat::ie24RGB) {
      for (int x = 0; x < W; ++x)
        d[3 * x] = buf[x], d[3 * x + 1] = buf[bpl + x], d[3 * x + 2] = buf[2 * bpl + x];
    } else if (bits == 8) {
      std::memcpy(d, buf.data(), W);
    } else {  // 4 planes of 1 bit: EGA 16 colours
      for (int x = 0; x < W; ++x) {
        int v = 0;
        for (int p = 0; p < 4; ++p) v |= ((buf[p * bpl + (x >> 3)] >> (7 - (x & 7))) & 1) << p;
        d[x] = static_cast<uint8_t>(v);
      }
    }
  }
  if (fmt == TIEPixelFormat::ie8p) {
    bmp->Palette().assign(256, TRGB{});
    if (bits == 8 && size >= 769 && data[size - 769] == 0x0C) {
      const uint8_t* p = data + size - 768;
      for (int i = 0; i < 256; ++i) bmp->Palette()[i] = TRGB{p[3 * i], p[3 * i + 1], p[3 * i + 2]};
    } else if (bits == 8) {
      for (int i = 0; i < 256; ++i) bmp->Palette()[i] = TRGB{uint8_t(i), uint8_t(i), uint8_t(i)};
    } else {
      for (int i = 0; i < 16; ++i)
        bmp->Palette()[i] = TRGB{ega[3 * i], ega[3 * i + 1], ega[3 * i + 2]};
    }
  }
  return pictavo::Status::OK();
}

pictavo::Status EncodePCX(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  const int w = bmp.Width(), h = bmp.Height();
  if (w > 65535 || h > 65535) return pictavo::Status::Error("picture too large for PCX");
  const int bits = fmt == TIEPixelFormat::ie1g ? 1 : 8;
  const int planes = fmt == TIEPixelFormat::ie24RGB ? 3 : 1;
  int bpl = (w * bits + 7) / 8;
  bpl += bpl & 1;  // even, as the format asks
  out.assign(128, 0);
  out[0] = 0x0A, out[1] = 5, out[2] = params.PCX_Compression ? 1 : 0,
  out[3] = static_cast<uint8_t>(bits);
  const auto put16 = [&out](size_t at, int v) {
    out[at] = v & 0xFF, out[at + 1] = (v >> 8) & 0xFF;
  };
  put16(8, w - 1), put16(10, h - 1), put16(12, std::max(1, params.DpiX)),
      put16(14, std::max(1, params.DpiY));
  if (fmt == TIEPixelFormat::ie1g)
    out[16 + 3] = out[16 + 4] = out[16 + 5] = 255;  // EGA entry 1 white
  out[65] = static_cast<uint8_t>(planes);
  put16(66, bpl), put16(68, 1);
  std::vector<uint8_t> line(static_cast<size_t>(bpl) * planes);
  for (int y = 0; y < h; ++y) {
    std::fill(line.begin(), line.end(), 0);
    const uint8_t* s = bmp.Scanline(y);
    if (planes == 3) {
      for (int x = 0; x < w; ++x)
        line[x] = s[3 * x], line[bpl + x] = s[3 * x + 1], line[2 * bpl + x] = s[3 * x + 2];
    } else {
      std::memcpy(line.data(), s, bmp.RowLen());
    }
    if (!params.PCX_Compression) {
      out.insert(out.end(), line.begin(), line.end());
      continue;
    }
    // RLE runs never cross a plane's line.
    for (int p = 0; p < planes; ++p) {
      const uint8_t* q = line.data() + static_cast<size_t>(p) * bpl;
      for (int i = 0; i < bpl;) {
        int run = 1;
        while (i + run < bpl && run < 63 && q[i + run] == q[i]) ++run;
        if (run > 1 || (q[i] & 0xC0) == 0xC0) out.push_back(static_cast<uint8_t>(0xC0 | run));
        out.push_back(q[i]);
        i += run;
      }
    }
  }
  if (fmt == TIEPixelFormat::ie8p || fmt == TIEPixelFormat::ie8g) {
    out.push_back(0x0C);
    for (int i = 0; i < 256; ++i) {
      TRGB c{uint8_t(i), uint8_t(i), uint8_t(i)};
      if (fmt == TIEPixelFormat::ie8p)
        c = i < static_cast<int>(bmp.Palette().size()) ? bmp.Palette()[i] : TRGB{};
      out.push_back(c.r), out.push_back(c.g), out.push_back(c.b);
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
