#include "imaging/codecs/jp2_codec.h"

#include <openjpeg.h>

#include <string>

namespace pictavo::imaging::codecs {

namespace {

struct Mem {
  const uint8_t* data = nullptr;
  std::vector<uint8_t>* out = nullptr;
  uint64_t size = 0;
  uint64_t pos = 0;
};

OPJ_SIZE_T Read(void* buf, OPJ_SIZE_T n, void* user) {
  auto* m = static_cast<Mem*>(user);
  if (m->pos >= m->size) return static_cast<OPJ_SIZE_T>(-1);
  const uint64_t k = std::min<uint64_t>(n, m->size - m->pos);
  std::memcpy(buf, m->data + m->pos, k);
  m->pos += k;
  return static_cast<OPJ_SIZE_T>(k);
}
OPJ_SIZE_T Write(void* buf, OPJ_SIZE_T n, void* user) {
  auto* m = static_cast<Mem*>(user);
  if (m->pos + n > m->out->size()) m->out->resize(m->pos + n);
  std::memcpy(m->out->data() + m->pos, buf, n);
  m->pos += n;
  return n;
}
OPJ_OFF_T Skip(OPJ_OFF_T n, void* user) {
  auto* m = static_cast<Mem*>(user);
  const uint64_t limit = m->out ? UINT64_MAX : m->size;
  if (n < 0 || m->pos + n > limit) return -1;
  m->pos += n;
  if (m->out && m->pos > m->out->size()) m->out->resize(m->pos);
  return n;
}
OPJ_BOOL Seek(OPJ_OFF_T n, void* user) {
  auto* m = static_cast<Mem*>(user);
  if (n < 0 || (!m->out && static_cast<uint64_t>(n) > m->size)) return OPJ_FALSE;
  m->pos = n;
  if (m->out && m->pos > m->out->size()) m->out->resize(m->pos);
  return OPJ_TRUE;
}

void OnError(const char* msg, void* user) {
  auto* s = static_cast<std::string*>(user);
  if (s->empty()) s->assign(msg);
  while (!s->empty() && s->back() == '\n') s->pop_back();
}
void Quiet(const char*, void*) {}

struct Freer {
  opj_codec_t* codec = nullptr;
  opj_stream_t* stream = nullptr;
  opj_image_t* image = nullptr;
  ~Freer() {
    if (stream) opj_stream_destroy(stream);
    if (codec) opj_destroy_codec(codec);
    if (image) opj_image_destroy(image);
  }
};

opj_stream_t* Stream(Mem& m, bool input) {
  opj_stream_t* s = opj_stream_create(1 << 16, input ? OPJ_TRUE : OPJ_FALSE);
  opj_stream_set_user_data(s, &m, nullptr);
  if (input) {
    opj_stream_set_user_data_length(s, m.size);
    opj_stream_set_read_function(s, Read);
  } else {
    opj_stream_set_write_function(s, Write);
  }
  opj_stream_set_skip_function(s, Skip);
  opj_stream_set_seek_function(s, Seek);
  return s;
}

pictavo::Status Encode(const TIEBitmap& bmp, const TIOParamsVals& params, std::vector<uint8_t>& out,
                       OPJ_CODEC_FORMAT format) {
  const TIEPixelFormat f = bmp.PixelFormat();
  const int color = (f == TIEPixelFormat::ie24RGB || f == TIEPixelFormat::ie48RGB) ? 3 : 1;
  const bool alpha = bmp.HasAlphaChannel();
  const int ncomp = color + (alpha ? 1 : 0);
  const int prec = (f == TIEPixelFormat::ie16g || f == TIEPixelFormat::ie48RGB) ? 16 : 8;
  const int w = bmp.Width(), h = bmp.Height();
  opj_image_cmptparm_t cp[4] = {};
  for (int c = 0; c < ncomp; ++c) {
    cp[c].dx = cp[c].dy = 1;
    cp[c].w = static_cast<OPJ_UINT32>(w), cp[c].h = static_cast<OPJ_UINT32>(h);
    cp[c].prec = static_cast<OPJ_UINT32>(c < color ? prec : 8);
    cp[c].sgnd = 0;
  }
  Freer fr;
  fr.image = opj_image_create(static_cast<OPJ_UINT32>(ncomp), cp,
                              color == 3 ? OPJ_CLRSPC_SRGB : OPJ_CLRSPC_GRAY);
  if (!fr.image) return pictavo::Status::Error("JPEG 2000 encoder: out of memory");
  fr.image->x1 = static_cast<OPJ_UINT32>(w), fr.image->y1 = static_cast<OPJ_UINT32>(h);
  if (alpha) fr.image->comps[color].alpha = 1;
  for (int y = 0; y < h; ++y) {
    const uint8_t* s = bmp.Scanline(y);
    for (int x = 0; x < w; ++x) {
      const size_t o = static_cast<size_t>(y) * w + x;
      for (int c = 0; c < color; ++c)
        fr.image->comps[c].data[o] =
            prec == 16 ? reinterpret_cast<const uint16_t*>(s)[x * color + c] : s[x * color + c];
      if (alpha) fr.image->comps[color].data[o] = bmp.AlphaScanline(y)[x];
    }
  }
  opj_cparameters_t p;
  opj_set_default_encoder_parameters(&p);
  p.tcp_numlayers = 1;
  p.cp_disto_alloc = 1;
  if (params.J2000_Rate > 0 && params.J2000_Rate < 1.0) {
    p.irreversible = 1;
    p.tcp_rates[0] = static_cast<float>(1.0 / params.J2000_Rate);
  } else {
    p.tcp_rates[0] = 0;  // lossless
  }
  p.tcp_mct = color == 3 ? 1 : 0;
  // Fewer resolution levels than the default for small pictures, which need 2^levels pixels.
  while (p.numresolution > 1 &&
         ((1 << (p.numresolution - 1)) > w || (1 << (p.numresolution - 1)) > h))
    --p.numresolution;
  std::string err;
  fr.codec = opj_create_compress(format);
  opj_set_error_handler(fr.codec, OnError, &err);
  opj_set_warning_handler(fr.codec, Quiet, nullptr);
  opj_set_info_handler(fr.codec, Quiet, nullptr);
  if (!opj_setup_encoder(fr.codec, &p, fr.image))
    return pictavo::Status::Error("JPEG 2000 encoder: " + err);
  out.clear();
  Mem m;
  m.out = &out;
  fr.stream = Stream(m, false);
  if (!opj_start_compress(fr.codec, fr.image, fr.stream) || !opj_encode(fr.codec, fr.stream) ||
      !opj_end_compress(fr.codec, fr.stream))
    return pictavo::Status::Error("JPEG 2000 encoder: " + err);
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status DecodeJP2(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  const bool boxed = size >= 12 && std::memcmp(data + 4, "jP  ", 4) == 0;
  Mem m;
  m.data = data;
  m.size = size;
  Freer fr;
  std::string err;
  fr.codec = opj_create_decompress(boxed ? OPJ_CODEC_JP2 : OPJ_CODEC_J2K);
  opj_set_error_handler(fr.codec, OnError, &err);
  opj_set_warning_handler(fr.codec, Quiet, nullptr);
  opj_set_info_handler(fr.codec, Quiet, nullptr);
  opj_dparameters_t dp;
  opj_set_default_decoder_parameters(&dp);
  if (!opj_setup_decoder(fr.codec, &dp)) return Corrupt("JPEG 2000", "decoder setup failed");
  fr.stream = Stream(m, true);
  if (!opj_read_header(fr.stream, fr.codec, &fr.image) || !fr.image)
    return Corrupt("JPEG 2000", err.empty() ? "bad header" : err.c_str());
  opj_image_t* img = fr.image;
  const int64_t w = int64_t(img->x1) - img->x0, h = int64_t(img->y1) - img->y0;
  const int n = static_cast<int>(img->numcomps);
  params.FileType = boxed ? TIOFileType::ioJP2 : TIOFileType::ioJ2K;
  params.Width = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(w, INT32_MAX)));
  params.Height = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(h, INT32_MAX)));
  params.SamplesPerPixel = n;
  params.BitsPerSample = n > 0 ? static_cast<int>(img->comps[0].prec) : 8;
  params.HasAlpha = n == 2 || n == 4;
  params.ImageCount = 1;
  if (n < 1 || n > 4) return Corrupt("JPEG 2000", "unsupported component count");
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  if (!opj_decode(fr.codec, fr.stream, img) || !opj_end_decompress(fr.codec, fr.stream))
    return Corrupt("JPEG 2000", err.empty() ? "data cannot be decoded" : err.c_str());
  if (img->icc_profile_buf && img->icc_profile_len)
    (void)params.ICC.LoadFromBuffer(img->icc_profile_buf, img->icc_profile_len);
  const int color = n >= 3 ? 3 : 1;
  for (int c = 0; c < n; ++c)
    if (!img->comps[c].data || img->comps[c].dx == 0 || img->comps[c].dy == 0 ||
        img->comps[c].prec == 0 || img->comps[c].prec > 31)
      return Corrupt("JPEG 2000", "component data missing");
  const int prec = static_cast<int>(img->comps[0].prec);
  const bool wide = prec > 8;
  const int W = static_cast<int>(w), H = static_cast<int>(h);
  const TIEPixelFormat fmt = color == 3 ? (wide ? TIEPixelFormat::ie48RGB : TIEPixelFormat::ie24RGB)
                                        : (wide ? TIEPixelFormat::ie16g : TIEPixelFormat::ie8g);
  if (auto st = bmp->Allocate(W, H, fmt); !st.ok()) return st;
  const bool alpha = n == 2 || n == 4;
  if (alpha) bmp->AddAlphaChannel();
  const auto sample = [&](int c, int x, int y, int bits) -> uint32_t {
    const opj_image_comp_t& cm = img->comps[c];
    const uint32_t cx = std::min<uint32_t>(static_cast<uint32_t>(x) / cm.dx, cm.w ? cm.w - 1 : 0);
    const uint32_t cy = std::min<uint32_t>(static_cast<uint32_t>(y) / cm.dy, cm.h ? cm.h - 1 : 0);
    int64_t v = cm.data[static_cast<size_t>(cy) * cm.w + cx];
    if (cm.sgnd) v += int64_t{1} << (cm.prec - 1);
    const int64_t maxv = (int64_t{1} << cm.prec) - 1;
    v = std::clamp<int64_t>(v, 0, maxv);
    return static_cast<uint32_t>(v * ((int64_t{1} << bits) - 1) / maxv);
  };
  for (int y = 0; y < H; ++y) {
    uint8_t* d = bmp->Scanline(y);
    for (int x = 0; x < W; ++x) {
      for (int c = 0; c < color; ++c) {
        if (wide)
          reinterpret_cast<uint16_t*>(d)[x * color + c] =
              static_cast<uint16_t>(sample(c, x, y, 16));
        else
          d[x * color + c] = static_cast<uint8_t>(sample(c, x, y, 8));
      }
      if (alpha) bmp->AlphaScanline(y)[x] = static_cast<uint8_t>(sample(color, x, y, 8));
    }
  }
  return pictavo::Status::OK();
}

pictavo::Status EncodeJP2(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  return Encode(bmp, params, out, OPJ_CODEC_JP2);
}
pictavo::Status EncodeJ2K(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  return Encode(bmp, params, out, OPJ_CODEC_J2K);
}

}  // namespace pictavo::imaging::codecs
