#include "imaging/codecs/webp_codec.h"

#include <webp/decode.h>
#include <webp/demux.h>
#include <webp/encode.h>

namespace pictavo::imaging::codecs {

namespace {
void FromRGBA(const uint8_t* rgba, int w, int h, int stride, TIEBitmap& bmp, bool alpha) {
  if (alpha) bmp.AddAlphaChannel();
  for (int y = 0; y < h; ++y) {
    const uint8_t* s = rgba + static_cast<size_t>(y) * stride;
    uint8_t* d = bmp.Scanline(y);
    for (int x = 0; x < w; ++x) {
      d[3 * x] = s[4 * x], d[3 * x + 1] = s[4 * x + 1], d[3 * x + 2] = s[4 * x + 2];
      if (alpha) bmp.AlphaScanline(y)[x] = s[4 * x + 3];
    }
  }
}
}  // namespace

pictavo::Status DecodeWEBP(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params) {
  WebPData wd{data, size};
  WebPDemuxer* demux = WebPDemux(&wd);
  if (!demux) return Corrupt("WebP", "container cannot be read");
  struct DemuxFree {
    WebPDemuxer* d;
    ~DemuxFree() { WebPDemuxDelete(d); }
  } free_demux{demux};
  const int w = static_cast<int>(WebPDemuxGetI(demux, WEBP_FF_CANVAS_WIDTH));
  const int h = static_cast<int>(WebPDemuxGetI(demux, WEBP_FF_CANVAS_HEIGHT));
  const int frames = static_cast<int>(WebPDemuxGetI(demux, WEBP_FF_FRAME_COUNT));
  const uint32_t flags = WebPDemuxGetI(demux, WEBP_FF_FORMAT_FLAGS);
  params.FileType = TIOFileType::ioWEBP;
  params.Width = w, params.Height = h;
  params.BitsPerSample = 8;
  params.ImageCount = std::max(frames, 1);
  params.ICC.Clear();
  WebPChunkIterator chunk;
  if (WebPDemuxGetChunk(demux, "ICCP", 1, &chunk)) {
    (void)params.ICC.LoadFromBuffer(chunk.chunk.bytes, chunk.chunk.size);
    WebPDemuxReleaseChunkIterator(&chunk);
  }
  WebPBitstreamFeatures feat;
  const bool still = frames <= 1;
  bool alpha = (flags & ALPHA_FLAG) != 0;
  if (still && WebPGetFeatures(data, size, &feat) == VP8_STATUS_OK) alpha = feat.has_alpha;
  params.HasAlpha = alpha;
  params.SamplesPerPixel = alpha ? 4 : 3;
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  if (opt.frame < 0 || opt.frame >= params.ImageCount)
    return pictavo::Status::Error("WebP frame out of range");
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  if (still) {
    int dw = 0, dh = 0;
    uint8_t* rgba = WebPDecodeRGBA(data, size, &dw, &dh);
    if (!rgba) return Corrupt("WebP", "picture data cannot be decoded");
    pictavo::Status st = bmp->Allocate(dw, dh, TIEPixelFormat::ie24RGB);
    if (st.ok()) FromRGBA(rgba, dw, dh, dw * 4, *bmp, alpha);
    WebPFree(rgba);
    return st;
  }
  WebPAnimDecoderOptions ao;
  WebPAnimDecoderOptionsInit(&ao);
  ao.color_mode = MODE_RGBA;
  WebPAnimDecoder* dec = WebPAnimDecoderNew(&wd, &ao);
  if (!dec) return Corrupt("WebP", "animation cannot be decoded");
  struct DecFree {
    WebPAnimDecoder* d;
    ~DecFree() { WebPAnimDecoderDelete(d); }
  } free_dec{dec};
  uint8_t* buf = nullptr;
  int ts = 0;
  for (int i = 0; i <= opt.frame; ++i)
    if (!WebPAnimDecoderGetNext(dec, &buf, &ts)) return Corrupt("WebP", "frame cannot be decoded");
  if (auto st = bmp->Allocate(w, h, TIEPixelFormat::ie24RGB); !st.ok()) return st;
  FromRGBA(buf, w, h, w * 4, *bmp, true);
  return pictavo::Status::OK();
}

namespace {

// Puts an ICCP chunk into an encoded WebP. A simple file (one VP8 or VP8L chunk) becomes an
// extended one: a VP8X header announcing the profile comes first, then the profile, then the
// image; a file that is already extended gets the profile flag and the chunk after its VP8X.
bool EmbedIcc(std::vector<uint8_t>& webp, const std::vector<uint8_t>& icc, int w, int h,
              bool alpha) {
  if (webp.size() < 20 || std::memcmp(webp.data(), "RIFF", 4) != 0 ||
      std::memcmp(webp.data() + 8, "WEBP", 4) != 0)
    return false;
  std::vector<uint8_t> chunk = {'I', 'C', 'C', 'P'};
  PutLE32(chunk, static_cast<uint32_t>(icc.size()));
  chunk.insert(chunk.end(), icc.begin(), icc.end());
  if (icc.size() & 1) chunk.push_back(0);
  std::vector<uint8_t> out(webp.begin(), webp.begin() + 12);
  if (std::memcmp(webp.data() + 12, "VP8X", 4) == 0) {
    if (webp.size() < 30) return false;
    out.insert(out.end(), webp.begin() + 12, webp.begin() + 30);
    out[20] |= 0x20;  // ICC profile flag
    out.insert(out.end(), chunk.begin(), chunk.end());
    out.insert(out.end(), webp.begin() + 30, webp.end());
  } else {
    out.insert(out.end(), {'V', 'P', '8', 'X', 10, 0, 0, 0});
    out.push_back(static_cast<uint8_t>(0x20 | (alpha ? 0x10 : 0)));
    out.insert(out.end(), {0, 0, 0});
    for (int v : {w - 1, h - 1})
      for (int i = 0; i < 3; ++i) out.push_back(static_cast<uint8_t>((v >> (8 * i)) & 0xFF));
    out.insert(out.end(), chunk.begin(), chunk.end());
    out.insert(out.end(), webp.begin() + 12, webp.end());
  }
  const uint32_t riff = static_cast<uint32_t>(out.size() - 8);
  for (int i = 0; i < 4; ++i) out[4 + i] = static_cast<uint8_t>(riff >> (8 * i));
  webp = std::move(out);
  return true;
}

}  // namespace

pictavo::Status EncodeWEBP(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out) {
  const int w = bmp.Width(), h = bmp.Height();
  if (w > WEBP_MAX_DIMENSION || h > WEBP_MAX_DIMENSION)
    return pictavo::Status::Error("picture too large for WebP");
  WebPConfig config;
  if (!WebPConfigInit(&config)) return pictavo::Status::Error("WebP encoder version mismatch");
  config.lossless = params.WEBP_Lossless ? 1 : 0;
  config.quality = static_cast<float>(std::clamp(params.WEBP_Quality, 0, 100));
  config.alpha_quality = std::clamp(params.WEBP_AlphaQuality, 0, 100);

  WebPPicture pic;
  if (!WebPPictureInit(&pic)) return pictavo::Status::Error("WebP encoder version mismatch");
  pic.use_argb = config.lossless;
  pic.width = w;
  pic.height = h;
  int imported = 0;
  if (!bmp.HasAlphaChannel()) {
    imported = WebPPictureImportRGB(&pic, bmp.Scanline(0), static_cast<int>(bmp.RowLen()));
  } else {
    std::vector<uint8_t> rgba(static_cast<size_t>(w) * h * 4);
    for (int y = 0; y < h; ++y) {
      const uint8_t* s = bmp.Scanline(y);
      const uint8_t* a = bmp.AlphaScanline(y);
      uint8_t* d = rgba.data() + static_cast<size_t>(y) * w * 4;
      for (int x = 0; x < w; ++x)
        d[4 * x] = s[3 * x], d[4 * x + 1] = s[3 * x + 1], d[4 * x + 2] = s[3 * x + 2],
              d[4 * x + 3] = a[x];
    }
    imported = WebPPictureImportRGBA(&pic, rgba.data(), w * 4);
  }
  WebPMemoryWriter writer;
  WebPMemoryWriterInit(&writer);
  pic.writer = WebPMemoryWrite;
  pic.custom_ptr = &writer;
  const bool encoded = imported && WebPEncode(&config, &pic);
  WebPPictureFree(&pic);
  if (encoded) out.assign(writer.mem, writer.mem + writer.size);
  WebPMemoryWriterClear(&writer);
  if (!encoded) return pictavo::Status::Error("WebP encoder failed");
  if (!params.ICC.IsEmpty() && !EmbedIcc(out, params.ICC.Raw(), w, h, bmp.HasAlphaChannel()))
    return pictavo::Status::Error("WebP encoder gave an unexpected file");
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
