#include "imaging/codecs/pnm_codec.h"

#include <cctype>
#include <string>

namespace pictavo::imaging::codecs {

namespace {

// Header tokens: numbers separated by white space and "#" comments.
bool Number(ByteReader& r, int64_t& v) {
  for (;;) {
    if (r.left() == 0) return false;
    const uint8_t c = r.here()[0];
    if (c == '#') {
      while (r.left() && r.here()[0] != '\n') r.u8();
    } else if (std::isspace(c)) {
      r.u8();
    } else {
      break;
    }
  }
  v = 0;
  int digits = 0;
  while (r.left() && std::isdigit(r.here()[0]) && digits < 10)
    v = v * 10 + (r.u8() - '0'), ++digits;
  return digits > 0;
}

std::string Header(const char* magic, int w, int h, int maxval) {
  std::string s = std::string(magic) + "\n" + std::to_string(w) + " " + std::to_string(h) + "\n";
  if (maxval) s += std::to_string(maxval) + "\n";
  return s;
}

struct PnmHeader {
  int kind = 0;  // the digit after "P"
  int64_t w = 0, h = 0, maxval = 1, depth = 1;
  bool alpha = false;
};

// PAM: KEY value lines up to ENDHDR.
pictavo::Status ReadPamHeader(ByteReader& r, PnmHeader& hd) {
  std::string tuple;
  std::string line;
  while (r.left()) {
    const char c = static_cast<char>(r.u8());
    if (c != '\n') {
      line += c;
      if (line.size() > 200) return Corrupt("PAM", "header line too long");
      continue;
    }
    if (line.rfind("WIDTH ", 0) == 0)
      hd.w = std::atoll(line.c_str() + 6);
    else if (line.rfind("HEIGHT ", 0) == 0)
      hd.h = std::atoll(line.c_str() + 7);
    else if (line.rfind("DEPTH ", 0) == 0)
      hd.depth = std::atoll(line.c_str() + 6);
    else if (line.rfind("MAXVAL ", 0) == 0)
      hd.maxval = std::atoll(line.c_str() + 7);
    else if (line.rfind("TUPLTYPE ", 0) == 0)
      tuple = line.substr(9);
    else if (line == "ENDHDR")
      break;
    line.clear();
  }
  hd.alpha = hd.depth == 2 || hd.depth == 4;
  if (hd.depth < 1 || hd.depth > 4) return Corrupt("PAM", "unsupported depth");
  return pictavo::Status::OK();
}

pictavo::Status ReadPnmHeader(ByteReader& r, PnmHeader& hd) {
  if (r.u8() != 'P') return Corrupt("PNM", "no signature");
  hd.kind = r.u8() - '0';
  const int kind = hd.kind;
  if (kind == 7) {
    if (auto st = ReadPamHeader(r, hd); !st.ok()) return st;
  } else if (kind >= 1 && kind <= 6) {
    if (!Number(r, hd.w) || !Number(r, hd.h)) return Corrupt("PNM", "bad size");
    if (kind != 1 && kind != 4 && !Number(r, hd.maxval)) return Corrupt("PNM", "bad maximum value");
    hd.depth = (kind == 3 || kind == 6) ? 3 : 1;
    if (kind >= 4) r.u8();  // the single white-space byte before the raster
  } else {
    return Corrupt("PNM", "unknown kind");
  }
  if (hd.maxval < 1 || hd.maxval > 65535) return Corrupt("PNM", "bad maximum value");
  return pictavo::Status::OK();
}

// The raster, plain (decimal) or raw, into the allocated bitmap; fails (and empties the bitmap)
// when it is cut short.
pictavo::Status ReadPnmRows(ByteReader& r, const PnmHeader& hd, bool bit1, TIEBitmap* bmp) {
  const int kind = hd.kind;
  const int64_t maxval = hd.maxval;
  const bool alpha = hd.alpha, plain = kind <= 3, wide = maxval > 255;
  const int color = alpha ? static_cast<int>(hd.depth) - 1 : static_cast<int>(hd.depth);
  const int W = static_cast<int>(hd.w), H = static_cast<int>(hd.h);
  const auto sample = [&](bool& ok) -> uint32_t {
    if (plain) {
      if (kind == 1) {  // plain PBM digits may touch
        while (r.left() && (std::isspace(r.here()[0]) || r.here()[0] == '#')) {
          if (r.here()[0] == '#')
            while (r.left() && r.here()[0] != '\n') r.u8();
          else
            r.u8();
        }
        if (!r.left()) return ok = false, 0;
        return r.u8() == '1';
      }
      int64_t v = 0;
      if (!Number(r, v)) ok = false;
      return static_cast<uint32_t>(std::min<int64_t>(v, maxval));
    }
    return wide ? r.be16() : r.u8();
  };
  for (int y = 0; y < H; ++y) {
    uint8_t* d = bmp->Scanline(y);
    bool ok = true;
    if (kind == 4) {
      // Raw PBM: 1 = black; ours: 1 = white.
      for (size_t i = 0; i < bmp->RowLen(); ++i) d[i] = static_cast<uint8_t>(~r.u8());
      continue;
    }
    if (bit1) {
      std::memset(d, 0, bmp->RowLen());
      for (int x = 0; x < W; ++x) {
        uint32_t v = sample(ok);
        const bool white =
            kind == 1 ? v == 0 : v != 0;  // PBM 1 = black, PAM BLACKANDWHITE 1 = white
        if (white) d[x >> 3] |= 0x80 >> (x & 7);
      }
    } else {
      for (int x = 0; x < W; ++x) {
        for (int c = 0; c < color; ++c) {
          // Raw samples are read here rather than through `sample`, whose call the compiler
          // keeps out of line.
          const uint32_t v = plain ? sample(ok) : wide ? r.be16() : r.u8();
          if (wide)
            reinterpret_cast<uint16_t*>(d)[x * color + c] =
                static_cast<uint16_t>(v * 65535 / maxval);
          else
            d[x * color + c] = static_cast<uint8_t>(v * 255 / maxval);
        }
        if (alpha) bmp->AlphaScanline(y)[x] = static_cast<uint8_t>(sample(ok) * 255 / maxval);
      }
    }
    if (!ok || r.failed()) {
      bmp->Clear();
      return Corrupt("PNM", "pixel data cut short");
    }
  }
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status DecodePNM(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  ByteReader r(data, size);
  PnmHeader hd;
  if (auto st = ReadPnmHeader(r, hd); !st.ok()) return st;
  const int kind = hd.kind;
  const int64_t w = hd.w, h = hd.h, maxval = hd.maxval, depth = hd.depth;
  const bool alpha = hd.alpha;
  const bool bit1 = kind == 1 || kind == 4 || (kind == 7 && maxval == 1 && depth == 1);
  const bool wide = maxval > 255;
  params.FileType = kind == 7                  ? TIOFileType::ioPAM
                    : (kind == 1 || kind == 4) ? TIOFileType::ioPBM
                    : (kind == 2 || kind == 5) ? TIOFileType::ioPGM
                                               : TIOFileType::ioPPM;
  params.Width = static_cast<int>(w);
  params.Height = static_cast<int>(h);
  params.BitsPerSample = bit1 ? 1 : wide ? 16 : 8;
  params.SamplesPerPixel = static_cast<int>(depth);
  params.HasAlpha = alpha;
  params.ImageCount = 1;
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  const bool plain = kind <= 3;
  const int bytes = wide ? 2 : 1;
  if (!plain) {
    const uint64_t need = (kind == 4) ? uint64_t((w + 7) / 8) * h : uint64_t(w) * h * depth * bytes;
    if (need > r.left()) return Corrupt("PNM", "pixel data cut short");
  } else if (static_cast<uint64_t>(w) * h * depth > r.left()) {
    return Corrupt("PNM", "pixel data cut short");  // each plain sample takes at least a byte
  }
  if (opt.params_only || !bmp) return pictavo::Status::OK();
  const int color = alpha ? static_cast<int>(depth) - 1 : static_cast<int>(depth);
  const TIEPixelFormat fmt = bit1 ? TIEPixelFormat::ie1g
                             : color == 1
                                 ? (wide ? TIEPixelFormat::ie16g : TIEPixelFormat::ie8g)
                                 : (wide ? TIEPixelFormat::ie48RGB : TIEPixelFormat::ie24RGB);
  if (auto st = bmp->Allocate(static_cast<int>(w), static_cast<int>(h), fmt); !st.ok()) return st;
  if (alpha) bmp->AddAlphaChannel();
  return ReadPnmRows(r, hd, bit1, bmp);
}

pictavo::Status EncodePBM(const TIEBitmap& bmp, const TIOParamsVals&, std::vector<uint8_t>& out) {
  const std::string h = Header("P4", bmp.Width(), bmp.Height(), 0);
  out.assign(h.begin(), h.end());
  for (int y = 0; y < bmp.Height(); ++y) {
    const uint8_t* s = bmp.Scanline(y);
    for (size_t i = 0; i < bmp.RowLen(); ++i) out.push_back(static_cast<uint8_t>(~s[i]));
    // Padding bits of the last byte stay 0 (white) as netpbm writes them.
    if (bmp.Width() % 8) out.back() &= static_cast<uint8_t>(0xFF00 >> (bmp.Width() % 8));
  }
  return pictavo::Status::OK();
}

namespace {
void PutSamples(const TIEBitmap& bmp, int y, int channels, std::vector<uint8_t>& out, bool alpha) {
  const uint8_t* s = bmp.Scanline(y);
  const bool wide =
      bmp.PixelFormat() == TIEPixelFormat::ie16g || bmp.PixelFormat() == TIEPixelFormat::ie48RGB;
  for (int x = 0; x < bmp.Width(); ++x) {
    for (int c = 0; c < channels; ++c) {
      if (wide)
        PutBE16(out, reinterpret_cast<const uint16_t*>(s)[x * channels + c]);
      else
        out.push_back(s[x * channels + c]);
    }
    if (alpha) {
      const uint8_t a = bmp.AlphaScanline(y)[x];
      if (wide)
        PutBE16(out, a * 257);
      else
        out.push_back(a);
    }
  }
}
}  // namespace

pictavo::Status EncodePGM(const TIEBitmap& bmp, const TIOParamsVals&, std::vector<uint8_t>& out) {
  const bool wide = bmp.PixelFormat() == TIEPixelFormat::ie16g;
  const std::string h = Header("P5", bmp.Width(), bmp.Height(), wide ? 65535 : 255);
  out.assign(h.begin(), h.end());
  for (int y = 0; y < bmp.Height(); ++y) PutSamples(bmp, y, 1, out, false);
  return pictavo::Status::OK();
}

pictavo::Status EncodePPM(const TIEBitmap& bmp, const TIOParamsVals&, std::vector<uint8_t>& out) {
  const bool wide = bmp.PixelFormat() == TIEPixelFormat::ie48RGB;
  const std::string h = Header("P6", bmp.Width(), bmp.Height(), wide ? 65535 : 255);
  out.assign(h.begin(), h.end());
  for (int y = 0; y < bmp.Height(); ++y) PutSamples(bmp, y, 3, out, false);
  return pictavo::Status::OK();
}

pictavo::Status EncodePAM(const TIEBitmap& bmp, const TIOParamsVals&, std::vector<uint8_t>& out) {
  const TIEPixelFormat f = bmp.PixelFormat();
  const bool alpha = bmp.HasAlphaChannel();
  const bool bit1 = f == TIEPixelFormat::ie1g && !alpha;
  const int color = (f == TIEPixelFormat::ie24RGB || f == TIEPixelFormat::ie48RGB) ? 3 : 1;
  const bool wide = f == TIEPixelFormat::ie16g || f == TIEPixelFormat::ie48RGB;
  const char* tuple = bit1         ? "BLACKANDWHITE"
                      : color == 3 ? (alpha ? "RGB_ALPHA" : "RGB")
                                   : (alpha ? "GRAYSCALE_ALPHA" : "GRAYSCALE");
  std::string h = "P7\nWIDTH " + std::to_string(bmp.Width()) + "\nHEIGHT " +
                  std::to_string(bmp.Height()) + "\nDEPTH " +
                  std::to_string(color + (alpha ? 1 : 0)) + "\nMAXVAL " +
                  std::to_string(bit1   ? 1
                                 : wide ? 65535
                                        : 255) +
                  "\nTUPLTYPE " + tuple + "\nENDHDR\n";
  out.assign(h.begin(), h.end());
  for (int y = 0; y < bmp.Height(); ++y) {
    if (f == TIEPixelFormat::ie1g) {
      for (int x = 0; x < bmp.Width(); ++x) {
        const bool white = bmp.GetPixels_ie1g(x, y);
        out.push_back(bit1 ? white : white ? 255 : 0);
        if (alpha) out.push_back(bmp.AlphaScanline(y)[x]);
      }
    } else {
      PutSamples(bmp, y, color, out, alpha);
    }
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
