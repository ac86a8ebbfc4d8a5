#include "imaging/codecs/jpeg_codec.h"

#include <csetjmp>
#include <cstdio>
#include <cstdlib>

extern "C" {
#include <jerror.h>
#include <jpeglib.h>
}

namespace pictavo::imaging::codecs {

namespace {

// Error manager: errors jump back to the small protected function that called libjpeg;
// a premature end of data (a warning for libjpeg) is remembered and fails the decode.
struct ErrorMgr {
  jpeg_error_mgr pub;
  jmp_buf jump;
  bool truncated;
  char message[JMSG_LENGTH_MAX];
};

void OnError(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<ErrorMgr*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  longjmp(err->jump, 1);
}

void OnMessage(j_common_ptr cinfo, int level) {
  auto* err = reinterpret_cast<ErrorMgr*>(cinfo->err);
  if (level < 0 && cinfo->err->msg_code == JWRN_JPEG_EOF) err->truncated = true;
}

void InitErrors(ErrorMgr& err) {
  jpeg_std_error(&err.pub);
  err.pub.error_exit = OnError;
  err.pub.emit_message = OnMessage;
  err.truncated = false;
  err.message[0] = 0;
}

struct Decoder {
  jpeg_decompress_struct cinfo;
  ErrorMgr err;
  bool created = false;
};

// Protected phases: plain C calls only between setjmp and return.
bool ReadHeader(Decoder& d, const uint8_t* data, size_t size, int scale_denom) {
  if (setjmp(d.err.jump)) return false;
  jpeg_create_decompress(&d.cinfo);
  d.created = true;
  jpeg_mem_src(&d.cinfo, data, static_cast<unsigned long>(size));
  jpeg_save_markers(&d.cinfo, JPEG_COM, 0xFFFF);
  for (int m = 0; m < 16; ++m) jpeg_save_markers(&d.cinfo, JPEG_APP0 + m, 0xFFFF);
  jpeg_read_header(&d.cinfo, TRUE);
  d.cinfo.scale_num = 1;
  d.cinfo.scale_denom = static_cast<unsigned>(scale_denom);
  switch (d.cinfo.jpeg_color_space) {
    case JCS_GRAYSCALE:
      d.cinfo.out_color_space = JCS_GRAYSCALE;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      d.cinfo.out_color_space = JCS_CMYK;
      break;
    default:
      d.cinfo.out_color_space = JCS_RGB;
      break;
  }
  d.cinfo.dct_method = JDCT_ISLOW;
  jpeg_calc_output_dimensions(&d.cinfo);
  return true;
}

bool ReadPixels(Decoder& d, uint8_t** rows, int height) {
  if (setjmp(d.err.jump)) return false;
  jpeg_start_decompress(&d.cinfo);
  while (d.cinfo.output_scanline < static_cast<JDIMENSION>(height)) {
    JSAMPROW row = rows[d.cinfo.output_scanline];
    jpeg_read_scanlines(&d.cinfo, &row, 1);
  }
  jpeg_finish_decompress(&d.cinfo);
  return true;
}

bool ReadIcc(Decoder& d, JOCTET** icc, unsigned* len) {
  if (setjmp(d.err.jump)) return false;
  return jpeg_read_icc_profile(&d.cinfo, icc, len) != 0;
}

bool IsManagedMarker(const jpeg_saved_marker_ptr m) {
  const auto starts = [m](const char* s, size_t n) {
    return m->data_length >= n && std::memcmp(m->data, s, n) == 0;
  };
  switch (m->marker) {
    case JPEG_APP0:
      return starts("JFIF", 5) || starts("JFXX", 5);
    case JPEG_APP0 + 1:
      return starts("Exif\0", 5) || starts("http://ns.adobe.com/xap/1.0/", 29);
    case JPEG_APP0 + 2:
      return starts("ICC_PROFILE", 12);
    case JPEG_APP0 + 13:
      return starts("Photoshop 3.0", 14);
    case JPEG_APP0 + 14:
      return starts("Adobe", 5);
    default:
      return false;
  }
}

struct Encoder {
  jpeg_compress_struct cinfo;
  ErrorMgr err;
  bool created = false;
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
};

struct EncodeSetup {
  J_COLOR_SPACE in_space;
  int components;
  J_COLOR_SPACE out_space;  // JCS_UNKNOWN: the library default for in_space
  int quality;
  bool progressive;
  bool optimize;
  int dpi_x, dpi_y;
};

bool StartEncode(Encoder& e, int width, int height, const EncodeSetup& s) {
  if (setjmp(e.err.jump)) return false;
  jpeg_create_compress(&e.cinfo);
  e.created = true;
  jpeg_mem_dest(&e.cinfo, &e.buffer, &e.size);
  e.cinfo.image_width = static_cast<JDIMENSION>(width);
  e.cinfo.image_height = static_cast<JDIMENSION>(height);
  e.cinfo.input_components = s.components;
  e.cinfo.in_color_space = s.in_space;
  jpeg_set_defaults(&e.cinfo);
  if (s.out_space != JCS_UNKNOWN) jpeg_set_colorspace(&e.cinfo, s.out_space);
  jpeg_set_quality(&e.cinfo, s.quality, TRUE);
  e.cinfo.optimize_coding = s.optimize ? TRUE : FALSE;
  if (s.progressive) jpeg_simple_progression(&e.cinfo);
  e.cinfo.dct_method = JDCT_ISLOW;
  e.cinfo.density_unit = 1;
  e.cinfo.X_density = static_cast<UINT16>(s.dpi_x);
  e.cinfo.Y_density = static_cast<UINT16>(s.dpi_y);
  e.cinfo.write_JFIF_header =
      (s.out_space == JCS_CMYK || s.out_space == JCS_YCCK || s.out_space == JCS_RGB) ? FALSE : TRUE;
  jpeg_start_compress(&e.cinfo, TRUE);
  return true;
}

bool WriteMarker(Encoder& e, int marker, const uint8_t* data, unsigned len) {
  if (setjmp(e.err.jump)) return false;
  jpeg_write_marker(&e.cinfo, marker, data, len);
  return true;
}

bool WriteIcc(Encoder& e, const uint8_t* data, unsigned len) {
  if (setjmp(e.err.jump)) return false;
  jpeg_write_icc_profile(&e.cinfo, data, len);
  return true;
}

bool WriteRows(Encoder& e, uint8_t* row, int count) {
  if (setjmp(e.err.jump)) return false;
  JSAMPROW r = row;
  for (int i = 0; i < count; ++i) jpeg_write_scanlines(&e.cinfo, &r, 1);
  return true;
}

bool FinishEncode(Encoder& e) {
  if (setjmp(e.err.jump)) return false;
  jpeg_finish_compress(&e.cinfo);
  return true;
}

}  // namespace

pictavo::Status DecodeJPEG(const uint8_t* data, size_t size, const DecodeOptions& opt,
                           TIEBitmap* bmp, TIOParamsVals& params) {
  auto dec = std::make_unique<Decoder>();
  InitErrors(dec->err);
  dec->cinfo.err = &dec->err.pub;
  struct Cleanup {
    Decoder* d;
    ~Cleanup() {
      if (d->created) jpeg_destroy_decompress(&d->cinfo);
    }
  } cleanup{dec.get()};

  const int denom =
      (opt.scale_denom == 2 || opt.scale_denom == 4 || opt.scale_denom == 8) ? opt.scale_denom : 1;
  if (!ReadHeader(*dec, data, size, opt.params_only ? 1 : denom))
    return pictavo::Status::Error(std::string("JPEG file is damaged: ") + dec->err.message);
  jpeg_decompress_struct& ci = dec->cinfo;

  params.FileType = TIOFileType::ioJPEG;
  params.Width = static_cast<int>(ci.image_width);
  params.Height = static_cast<int>(ci.image_height);
  params.BitsPerSample = 8;
  params.SamplesPerPixel = ci.num_components;
  params.ImageCount = 1;
  params.HasAlpha = false;
  params.JPEG_Progressive = ci.progressive_mode != 0;
  switch (ci.jpeg_color_space) {
    case JCS_GRAYSCALE:
      params.JPEG_ColorSpace = ioJPEG_GRAYLEV;
      break;
    case JCS_RGB:
      params.JPEG_ColorSpace = ioJPEG_RGB;
      break;
    case JCS_CMYK:
      params.JPEG_ColorSpace = ioJPEG_CMYK;
      break;
    case JCS_YCCK:
      params.JPEG_ColorSpace = ioJPEG_YCbCrK;
      break;
    default:
      params.JPEG_ColorSpace = ioJPEG_YCbCr;
      break;
  }
  if (ci.saw_JFIF_marker && ci.X_density > 0 && ci.Y_density > 0 && ci.density_unit != 0) {
    const double f = ci.density_unit == 2 ? 2.54 : 1.0;
    params.DpiX = static_cast<int>(ci.X_density * f + 0.5);
    params.DpiY = static_cast<int>(ci.Y_density * f + 0.5);
  }
  params.JPEG_MarkerList.clear();
  for (jpeg_saved_marker_ptr m = ci.marker_list; m; m = m->next) {
    if (IsManagedMarker(m)) continue;
    params.JPEG_MarkerList.push_back(TJPEGMarker{
        static_cast<uint8_t>(m->marker), std::vector<uint8_t>(m->data, m->data + m->data_length)});
  }
  JOCTET* icc = nullptr;
  unsigned icc_len = 0;
  params.ICC.Clear();
  if (ReadIcc(*dec, &icc, &icc_len) && icc) {
    (void)params.ICC.LoadFromBuffer(icc, icc_len);  // an unreadable profile is dropped
    std::free(icc);
  }
  if (opt.params_only || !bmp) return pictavo::Status::OK();

  const int w = static_cast<int>(ci.output_width), h = static_cast<int>(ci.output_height);
  if (auto st = CheckDimensions(w, h, opt.max_pixels); !st.ok()) return st;
  // Huffman coding spends at least one bit on the DC value of every 8 x 8 block of the
  // full-resolution component: a header promising more blocks than the file has bits is
  // refused before the picture is allocated.
  if (!ci.arith_code && uint64_t{ci.image_width} * ci.image_height > uint64_t{size} * 512)
    return Corrupt("JPEG", "the data ends too early");
  TIEPixelFormat fmt = ci.out_color_space == JCS_GRAYSCALE ? TIEPixelFormat::ie8g
                       : ci.out_color_space == JCS_CMYK    ? TIEPixelFormat::ieCMYK
                                                           : TIEPixelFormat::ie24RGB;
  if (auto st = bmp->Allocate(w, h, fmt); !st.ok()) return st;
  std::vector<uint8_t*> rows(static_cast<size_t>(h));
  for (int y = 0; y < h; ++y) rows[static_cast<size_t>(y)] = bmp->Scanline(y);
  if (!ReadPixels(*dec, rows.data(), h)) {
    bmp->Clear();
    return pictavo::Status::Error(std::string("JPEG file is damaged: ") + dec->err.message);
  }
  if (dec->err.truncated) {
    bmp->Clear();
    return Corrupt("JPEG", "the data ends too early");
  }
  // Adobe writes CMYK inverted (0 = full ink); ours is 0 = no ink.
  if (fmt == TIEPixelFormat::ieCMYK && ci.saw_Adobe_marker) {
    for (int y = 0; y < h; ++y) {
      uint8_t* p = bmp->Scanline(y);
      for (size_t i = 0; i < static_cast<size_t>(w) * 4; ++i) p[i] = 255 - p[i];
    }
  }
  params.Width = w;
  params.Height = h;
  return pictavo::Status::OK();
}

pictavo::Status EncodeJPEG(const TIEBitmap& bmp, const TIOParamsVals& params,
                           std::vector<uint8_t>& out) {
  const TIEPixelFormat fmt = bmp.PixelFormat();
  EncodeSetup s{};
  s.quality = std::clamp(params.JPEG_Quality, 1, 100);
  s.progressive = params.JPEG_Progressive;
  s.optimize = params.JPEG_OptimalHuffman;
  s.dpi_x = std::clamp(params.DpiX, 1, 65535);
  s.dpi_y = std::clamp(params.DpiY, 1, 65535);
  s.out_space = JCS_UNKNOWN;
  // What we feed libjpeg: CMYK bitmaps stay CMYK; RGB is turned into CMYK here when a CMYK
  // file is asked for, since libjpeg cannot convert RGB to CMYK.
  bool make_cmyk = false;
  if (fmt == TIEPixelFormat::ieCMYK) {
    s.in_space = JCS_CMYK;
    s.components = 4;
    s.out_space = params.JPEG_ColorSpace == ioJPEG_YCbCrK ? JCS_YCCK : JCS_CMYK;
  } else if (fmt == TIEPixelFormat::ie8g) {
    s.in_space = JCS_GRAYSCALE;
    s.components = 1;
  } else if (params.JPEG_ColorSpace == ioJPEG_CMYK || params.JPEG_ColorSpace == ioJPEG_YCbCrK) {
    make_cmyk = true;
    s.in_space = JCS_CMYK;
    s.components = 4;
    s.out_space = params.JPEG_ColorSpace == ioJPEG_YCbCrK ? JCS_YCCK : JCS_CMYK;
  } else {
    s.in_space = JCS_RGB;
    s.components = 3;
    if (params.JPEG_ColorSpace == ioJPEG_GRAYLEV) s.out_space = JCS_GRAYSCALE;
    if (params.JPEG_ColorSpace == ioJPEG_RGB) s.out_space = JCS_RGB;
    if (params.JPEG_ColorSpace == ioJPEG_YCbCr) s.out_space = JCS_YCbCr;
  }
  if (s.in_space == JCS_GRAYSCALE && params.JPEG_ColorSpace == ioJPEG_GRAYLEV)
    s.out_space = JCS_GRAYSCALE;

  auto enc = std::make_unique<Encoder>();
  InitErrors(enc->err);
  enc->cinfo.err = &enc->err.pub;
  struct Cleanup {
    Encoder* e;
    ~Cleanup() {
      if (e->created) jpeg_destroy_compress(&e->cinfo);
      std::free(e->buffer);
    }
  } cleanup{enc.get()};
  const auto fail = [&enc]() {
    return pictavo::Status::Error(std::string("JPEG encoder failed: ") + enc->err.message);
  };
  if (!StartEncode(*enc, bmp.Width(), bmp.Height(), s)) return fail();
  if (!params.ICC.IsEmpty() &&
      !WriteIcc(*enc, params.ICC.Raw().data(), static_cast<unsigned>(params.ICC.Raw().size())))
    return fail();
  for (const TJPEGMarker& m : params.JPEG_MarkerList) {
    if (m.data.size() > 65533) continue;
    if (!WriteMarker(*enc, m.marker, m.data.data(), static_cast<unsigned>(m.data.size())))
      return fail();
  }
  const bool adobe_cmyk = s.in_space == JCS_CMYK;  // libjpeg writes the Adobe marker for CMYK
  std::vector<uint8_t> row(static_cast<size_t>(bmp.Width()) * 4);
  for (int y = 0; y < bmp.Height(); ++y) {
    uint8_t* src = const_cast<uint8_t*>(bmp.Scanline(y));
    if (make_cmyk || adobe_cmyk) {
      const uint8_t* p = bmp.Scanline(y);
      for (int x = 0; x < bmp.Width(); ++x) {
        uint8_t c, m, yy, k;
        if (make_cmyk) {
          const uint8_t r = p[3 * x], g = p[3 * x + 1], b = p[3 * x + 2];
          k = static_cast<uint8_t>(255 - std::max({r, g, b}));
          const int d = 255 - k;
          c = d ? static_cast<uint8_t>((d - r) * 255 / d) : 0;
          m = d ? static_cast<uint8_t>((d - g) * 255 / d) : 0;
          yy = d ? static_cast<uint8_t>((d - b) * 255 / d) : 0;
        } else {
          c = p[4 * x], m = p[4 * x + 1], yy = p[4 * x + 2], k = p[4 * x + 3];
        }
        // Adobe's convention, which every reader expects: stored inverted.
        row[4 * x] = 255 - c, row[4 * x + 1] = 255 - m, row[4 * x + 2] = 255 - yy,
                row[4 * x + 3] = 255 - k;
      }
      src = row.data();
    }
    if (!WriteRows(*enc, src, 1)) return fail();
  }
  if (!FinishEncode(*enc)) return fail();
  out.assign(enc->buffer, enc->buffer + enc->size);
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
