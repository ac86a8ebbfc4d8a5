#include "imaging/codecs/ico_codec.h"

#include "imaging/codecs/bmp_codec.h"
#include "imaging/codecs/png_codec.h"

namespace pictavo::imaging::codecs {

pictavo::Status DecodeICO(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  r.le16();
  const int kind = r.le16(), count = r.le16();
  if (r.failed() || count == 0 || (kind != 1 && kind != 2)) return Corrupt("ICO", "bad directory");
  if (opt.frame < 0 || opt.frame >= count) return pictavo::Status::Error("icon image out of range");
  r.seek(6 + 16 * static_cast<size_t>(opt.frame));
  r.skip(8);
  const uint32_t len = r.le32(), offset = r.le32();
  if (r.failed() || offset > size || len > size - offset || len < 8)
    return Corrupt("ICO", "image outside the file");
  const uint8_t* img = data + offset;
  pictavo::Status st;
  if (std::memcmp(img, "\x89PNG", 4) == 0) {
    st = DecodePNG(img, len, opt, bmp, params);
  } else {
    // The DIB's pixels follow its header and palette; the AND mask after them gives
    // transparency when the image has no alpha of its own.
    ByteReader h(img, len);
    const uint32_t hsize = h.le32();
    h.le32();
    const int32_t hh = static_cast<int32_t>(h.le32());
    h.le16();
    const int bits = h.le16();
    h.seek(32);
    const uint32_t colors = h.le32();
    if (h.failed() || hsize < 40 || hsize > len) return Corrupt("ICO", "bad image header");
    const size_t pal = bits <= 8 ? 4 * static_cast<size_t>(colors ? colors : (1u << bits)) : 0;
    st = DecodeDib(img, len, hsize + pal, true, opt, bmp, params);
    if (st.ok() && bmp && !opt.params_only && !bmp->HasAlphaChannel()) {
      const int w = bmp->Width(), ht = bmp->Height();
      const size_t stride = ((static_cast<size_t>(w) * bits + 31) / 32) * 4;
      const size_t mstride = ((static_cast<size_t>(w) + 31) / 32) * 4;
      const size_t moff = hsize + pal + stride * ht;
      (void)hh;
      if (moff + mstride * ht <= len) {
        bmp->AddAlphaChannel();
        for (int y = 0; y < ht; ++y) {
          const uint8_t* m = img + moff + mstride * (ht - 1 - y);
          for (int x = 0; x < w; ++x)
            bmp->AlphaScanline(y)[x] = (m[x >> 3] >> (7 - (x & 7))) & 1 ? 0 : 255;
        }
      }
    }
  }
  if (!st.ok()) return st;
  if (bmp && !opt.params_only && bmp->PixelFormat() == TIEPixelFormat::ie8p) {
    // Keep palette icons as they are; the ICO writer takes RGB.
  }
  params.FileType = kind == 1 ? TIOFileType::ioICO : TIOFileType::ioCUR;
  params.ImageCount = count;
  return pictavo::Status::OK();
}

namespace {

// One directory entry's image: a 32-bit DIB up to 256 pixels, PNG above (and at 256, where
// PNG is much smaller and every reader of such icons takes it).
pictavo::Status EncodeIconImage(const TIEBitmap& bmp, const TIOParamsVals& params,
                                std::vector<uint8_t>& image) {
  const int w = bmp.Width(), h = bmp.Height();
  if (w >= 256 || h >= 256) return EncodePNG(bmp, params, image);
  // 32-bit DIB, bottom-up, with an all-zero AND mask (the alpha says everything).
  PutLE32(image, 40), PutLE32(image, w), PutLE32(image, 2 * h), PutLE16(image, 1),
      PutLE16(image, 32);
  PutLE32(image, 0), PutLE32(image, 0), PutLE32(image, 0), PutLE32(image, 0), PutLE32(image, 0),
      PutLE32(image, 0);
  for (int y = h - 1; y >= 0; --y) {
    const uint8_t* s = bmp.Scanline(y);
    for (int x = 0; x < w; ++x) {
      image.push_back(s[3 * x + 2]), image.push_back(s[3 * x + 1]), image.push_back(s[3 * x]);
      image.push_back(bmp.HasAlphaChannel() ? bmp.AlphaScanline(y)[x] : 255);
    }
  }
  const size_t mstride = ((static_cast<size_t>(w) + 31) / 32) * 4;
  image.resize(image.size() + mstride * h, 0);
  return pictavo::Status::OK();
}

// The picture fitted into a `side` x `side` square, centred on a transparent background.
pictavo::Status FitSquare(const TIEBitmap& bmp, int side, TIEBitmap& out) {
  TIEBitmap scaled = bmp;
  const int w = bmp.Width(), h = bmp.Height();
  const int sw = w >= h ? side : std::max(1, static_cast<int>(int64_t{w} * side / h));
  const int sh = h >= w ? side : std::max(1, static_cast<int>(int64_t{h} * side / w));
  if (sw != w || sh != h)
    if (auto st = scaled.Resample(sw, sh); !st.ok()) return st;
  if (auto st = out.Allocate(side, side, TIEPixelFormat::ie24RGB); !st.ok()) return st;
  out.Fill(0xFFFFFF);
  out.AddAlphaChannel(0);
  const int dx = (side - sw) / 2, dy = (side - sh) / 2;
  for (int y = 0; y < sh; ++y)
    for (int x = 0; x < sw; ++x) {
      out.SetPixels_ie24RGB(dx + x, dy + y, scaled.GetPixels(x, y));
      out.SetAlpha(dx + x, dy + y, scaled.GetAlpha(x, y));
    }
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status EncodeICO(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  const int w = bmp.Width(), h = bmp.Height();
  if (w > 65535 || h > 65535) return pictavo::Status::Error("picture too large for an icon");
  // Each entry: its size and its image bytes. Without ICO_Sizes, the picture as it is.
  std::vector<std::pair<std::pair<int, int>, std::vector<uint8_t>>> entries;
  if (params.ICO_Sizes.empty()) {
    entries.emplace_back(std::make_pair(w, h), std::vector<uint8_t>());
    if (auto st = EncodeIconImage(bmp, params, entries.back().second); !st.ok()) return st;
  }
  for (int side : params.ICO_Sizes) {
    if (side < 1 || side > 256)
      return pictavo::Status::Error("icon sizes run from 1 to 256 pixels, not " +
                                    std::to_string(side));
    TIEBitmap square;
    if (auto st = FitSquare(bmp, side, square); !st.ok()) return st;
    entries.emplace_back(std::make_pair(side, side), std::vector<uint8_t>());
    if (auto st = EncodeIconImage(square, params, entries.back().second); !st.ok()) return st;
  }
  out.clear();
  PutLE16(out, 0), PutLE16(out, params.FileType == TIOFileType::ioCUR ? 2 : 1);
  PutLE16(out, static_cast<uint32_t>(entries.size()));
  size_t offset = 6 + 16 * entries.size();
  for (const auto& [dims, image] : entries) {
    out.push_back(static_cast<uint8_t>(dims.first >= 256 ? 0 : dims.first));
    out.push_back(static_cast<uint8_t>(dims.second >= 256 ? 0 : dims.second));
    out.push_back(0), out.push_back(0);
    PutLE16(out, 1), PutLE16(out, 32);
    PutLE32(out, static_cast<uint32_t>(image.size()));
    PutLE32(out, static_cast<uint32_t>(offset));
    offset += image.size();
  }
  for (const auto& entry : entries) out.insert(out.end(), entry.second.begin(), entry.second.end());
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
