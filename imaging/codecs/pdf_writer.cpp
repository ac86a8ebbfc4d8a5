#include "imaging/codecs/pdf_writer.h"

#include <zlib.h>

#include <cstdio>

#include "imaging/codecs/jpeg_codec.h"
#include "platform/fs.h"

namespace pictavo::imaging {

namespace {

bool Deflate(const std::vector<uint8_t>& in, std::vector<uint8_t>& out) {
  uLongf n = compressBound(static_cast<uLong>(in.size()));
  out.resize(n);
  if (compress2(out.data(), &n, in.data(), static_cast<uLong>(in.size()), 6) != Z_OK) return false;
  out.resize(n);
  return true;
}

std::string Num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.2f", v);
  return buf;
}

}  // namespace

pictavo::Status PdfWriter::AddPage(const TIEBitmap& src, const TIOParamsVals& params) {
  TIEBitmap work;
  const TIEBitmap* bmp = &src;
  const auto copy = [&]() {
    if (bmp != &work) work = src, bmp = &work;
  };
  if (src.HasAlphaChannel()) {
    copy();
    work.RemoveAlphaChannel(0xFFFFFF);
  }
  TIEPixelFormat f = bmp->PixelFormat();
  if (f == TIEPixelFormat::ie16g || f == TIEPixelFormat::ie48RGB) {
    copy();
    if (auto st = work.ConvertTo(f == TIEPixelFormat::ie16g ? TIEPixelFormat::ie8g
                                                            : TIEPixelFormat::ie24RGB);
        !st.ok())
      return st;
    f = work.PixelFormat();
  }
  Page page;
  const int w = bmp->Width(), h = bmp->Height();
  page.width_pt = w * 72.0 / std::max(1, params.DpiX);
  page.height_pt = h * 72.0 / std::max(1, params.DpiY);
  std::string dict = "/Type /XObject /Subtype /Image /Width " + std::to_string(w) + " /Height " +
                     std::to_string(h);
  if (f == TIEPixelFormat::ie24RGB || f == TIEPixelFormat::ie8g || f == TIEPixelFormat::ieCMYK) {
    TIOParamsVals p;
    p.JPEG_Quality = params.JPEG_Quality;
    p.DpiX = params.DpiX, p.DpiY = params.DpiY;
    if (auto st = codecs::EncodeJPEG(*bmp, p, page.image_data); !st.ok()) return st;
    dict += std::string(" /ColorSpace /") + (f == TIEPixelFormat::ie8g     ? "DeviceGray"
                                             : f == TIEPixelFormat::ieCMYK ? "DeviceCMYK"
                                                                           : "DeviceRGB");
    // Our JPEG writer stores CMYK inverted, as Adobe does; the Decode array says so.
    if (f == TIEPixelFormat::ieCMYK) dict += " /Decode [1 0 1 0 1 0 1 0]";
    dict += " /BitsPerComponent 8 /Filter /DCTDecode";
  } else {
    std::vector<uint8_t> raw;
    raw.reserve(bmp->RowLen() * h);
    for (int y = 0; y < h; ++y)
      raw.insert(raw.end(), bmp->Scanline(y), bmp->Scanline(y) + bmp->RowLen());
    if (!Deflate(raw, page.image_data)) return pictavo::Status::Error("PDF: compression failed");
    if (f == TIEPixelFormat::ie1g) {
      dict += " /ColorSpace /DeviceGray /BitsPerComponent 1";  // 1 = white, as in the bitmap
    } else {
      std::string pal;
      const auto& p = bmp->Palette();
      const size_t n = std::max<size_t>(1, std::min<size_t>(p.size(), 256));
      char hex[8];
      for (size_t i = 0; i < n; ++i) {
        const TRGB c = i < p.size() ? p[i] : TRGB{};
        std::snprintf(hex, sizeof hex, "%02X%02X%02X", c.r, c.g, c.b);
        pal += hex;
      }
      dict += " /ColorSpace [/Indexed /DeviceRGB " + std::to_string(n - 1) + " <" + pal +
              ">] /BitsPerComponent 8";
    }
    dict += " /Filter /FlateDecode";
  }
  page.image_dict = dict;
  pages_.push_back(std::move(page));
  return pictavo::Status::OK();
}

pictavo::Status PdfWriter::Finish() {
  if (pages_.empty()) return pictavo::Status::Error("PDF has no pages");
  std::string out = "%PDF-1.4\n%\xE2\xE3\xCF\xD3\n";
  std::vector<size_t> offsets;
  const auto begin_obj = [&]() {
    offsets.push_back(out.size());
    out += std::to_string(offsets.size()) + " 0 obj\n";
  };
  // Objects: 1 catalog, 2 pages, then per page: page, content, image.
  const size_t n = pages_.size();
  begin_obj();
  out += "<< /Type /Catalog /Pages 2 0 R >>\nendobj\n";
  begin_obj();
  out += "<< /Type /Pages /Count " + std::to_string(n) + " /Kids [";
  for (size_t i = 0; i < n; ++i) out += std::to_string(3 + 3 * i) + " 0 R ";
  out += "] >>\nendobj\n";
  for (size_t i = 0; i < n; ++i) {
    const Page& p = pages_[i];
    const size_t page_obj = 3 + 3 * i;
    begin_obj();
    out += "<< /Type /Page /Parent 2 0 R /MediaBox [0 0 " + Num(p.width_pt) + " " +
           Num(p.height_pt) + "] /Resources << /XObject << /Im0 " + std::to_string(page_obj + 2) +
           " 0 R >> >> /Contents " + std::to_string(page_obj + 1) + " 0 R >>\nendobj\n";
    const std::string content =
        "q " + Num(p.width_pt) + " 0 0 " + Num(p.height_pt) + " 0 0 cm /Im0 Do Q\n";
    begin_obj();
    out += "<< /Length " + std::to_string(content.size()) + " >>\nstream\n" + content +
           "endstream\nendobj\n";
    begin_obj();
    out +=
        "<< " + p.image_dict + " /Length " + std::to_string(p.image_data.size()) + " >>\nstream\n";
    out.append(reinterpret_cast<const char*>(p.image_data.data()), p.image_data.size());
    out += "\nendstream\nendobj\n";
  }
  const size_t xref = out.size();
  out += "xref\n0 " + std::to_string(offsets.size() + 1) + "\n0000000000 65535 f \n";
  char line[32];
  for (size_t off : offsets) {
    std::snprintf(line, sizeof line, "%010zu 00000 n \n", off);
    out += line;
  }
  out += "trailer\n<< /Size " + std::to_string(offsets.size() + 1) +
         " /Root 1 0 R >>\nstartxref\n" + std::to_string(xref) + "\n%%EOF\n";
  return platform::WriteFileAtomic(path_, out);
}

}  // namespace pictavo::imaging
