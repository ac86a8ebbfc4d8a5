// Document targets made from the picture: PDF, AI, PostScript and EPS through the PostScript/PDF
// interpreter, PCL printer files, searchable PDF through OCR, and SVG documents that embed the
// picture.
#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <string>
#include <system_error>
#include <vector>

#include "engine/tools/tool_paths.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "write/writers.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using tools::Quoted;

// Paper sizes in points (portrait) by the "Paper" keys; 0 keeps the picture's own size.
struct Paper {
  int code;
  int width;
  int height;
};
constexpr std::array<Paper, 14> kPapers = {{{1, 612, 792},      // Letter
                                            {2, 612, 1008},     // Legal
                                            {3, 792, 1224},     // Tabloid
                                            {4, 522, 756},      // Executive
                                            {5, 2384, 3370},    // A0
                                            {6, 1684, 2384},    // A1
                                            {7, 1191, 1684},    // A2
                                            {8, 842, 1191},     // A3
                                            {9, 420, 595},      // A5
                                            {10, 298, 420},     // A6
                                            {11, 709, 1001},    // B4
                                            {12, 595, 842},     // A4
                                            {13, 499, 709},     // B5
                                            {14, 1224, 792}}};  // Ledger

std::string PaperSwitches(int code, bool landscape) {
  for (const Paper& p : kPapers) {
    if (p.code != code) continue;
    const int w = landscape ? p.height : p.width, h = landscape ? p.width : p.height;
    return " -dDEVICEWIDTHPOINTS=" + std::to_string(w) +
           " -dDEVICEHEIGHTPOINTS=" + std::to_string(h) + " -dFIXEDMEDIA -dPDFFitPage";
  }
  return std::string();
}

// The picture as a one-page-per-frame PDF made by the engine; JPEG at `jpeg_quality` for photos.
bool PictureToPdf(TZubConvert& self, const std::string& pdf, int jpeg_quality) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, self.hand_over);
  io.Params().ImageIndex = 0;
  if (!io.ParamsFromFile(self.src_file).ok()) return false;
  const int frames = std::max(1, io.Params().ImageCount);
  if (!io.CreatePDFFile(pdf).ok()) return false;
  for (int f = 0; f < frames; ++f) {
    io.Params().ResetInfo();
    io.Params().ImageIndex = f;
    if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) return false;
    self.snow(io);
    if (self.settings->dpi.option_flags.Is(2)) {
      io.Params().DpiX = self.settings->dpi.x_dpi;
      io.Params().DpiY = self.settings->dpi.y_dpi;
    }
    io.Params().JPEG_Quality = std::clamp(jpeg_quality, 1, 100);
    if (!io.SaveToPDF().ok()) return false;
  }
  return io.ClosePDFFile().ok() && tools::Produced(pdf);
}

std::string Base64(const std::string& bytes) {
  static constexpr char k[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    const unsigned v =
        (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8) | uint8_t(bytes[i + 2]);
    out += {k[v >> 18], k[(v >> 12) & 63], k[(v >> 6) & 63], k[v & 63]};
  }
  if (i + 1 == bytes.size()) {
    const unsigned v = uint8_t(bytes[i]) << 16;
    out += {k[v >> 18], k[(v >> 12) & 63], '=', '='};
  } else if (i + 2 == bytes.size()) {
    const unsigned v = (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8);
    out += {k[v >> 18], k[(v >> 12) & 63], k[(v >> 6) & 63], '='};
  }
  return out;
}

std::string ReadAll(const std::string& path) {
  auto bytes = platform::ReadFileBytes(path);
  return bytes ? *bytes : std::string();
}

}  // namespace

int adobe_write(TZubConvert& self) {
  const auto& s = *self.settings;
  const std::string ext = self.DestExt();
  const bool ai = ext == "ai";
  const bool eps = ext == "eps" || ext == "epi";
  const bool ps = ext == "ps";
  // AI is PDF inside and takes the "AI_Write" keys.
  const int paper = ai ? s.ai_write.paper : s.pdf_write.paper;
  const int compression = ai ? s.ai_write.compression : s.pdf_write.compression;
  const int jpg_quality = ai ? s.ai_write.jpg_quality : s.pdf_write.jpg_quality;
  const bool cmyk =
      eps ? s.eps_write.save_in_cmyk : (ai ? s.ai_write.save_in_cmyk : s.pdf_write.save_in_cmyk);
  const bool own_icc = ai ? s.ai_write.the_icc : s.pdf_write.the_icc;
  const std::string icc = ai ? s.ai_write.icc : s.pdf_write.icc;

  const std::string pdf = self.Scratch(".pdf");
  int status = 1;
  if (PictureToPdf(self, pdf, compression == 6 ? jpg_quality : 100)) {
    std::string cmd = Quoted(self.Tool("pdfpsai.bin")) + " -dNOSAFER -dBATCH -dNOPAUSE";
    cmd += eps ? " -sDEVICE=eps2write" : ps ? " -sDEVICE=ps2write" : " -sDEVICE=pdfwrite";
    if (cmyk) {
      cmd += " -sColorConversionStrategy=CMYK -dProcessColorModel=/DeviceCMYK";
      if (own_icc && !icc.empty()) cmd += " -sOutputICCProfile=" + Quoted(icc);
    }
    if (!eps) cmd += PaperSwitches(paper, !ai && s.pdf_write.orientation == 1);
    if (!eps && !ps) {
      // 6 is JPEG (the engine's JPEG passes through unchanged); anything else is lossless.
      if (compression != 6)
        cmd +=
            " -dPassThroughJPEGImages=false -dAutoFilterColorImages=false"
            " -dColorImageFilter=/FlateEncode -dAutoFilterGrayImages=false"
            " -dGrayImageFilter=/FlateEncode";
    }
    if (!ai && ext == "pdf") {
      const auto& w = s.pdf_write;
      if (w.set_user_password || w.set_owner_password) {
        int permissions = -3904;  // everything refused, then what the user allows
        if (w.allow_printing) permissions |= 4;
        if (w.allow_editing) permissions |= 8;
        if (w.allow_copying) permissions |= 16;
        const std::string owner = w.set_owner_password ? w.owner_password : w.user_password;
        cmd += " -sOwnerPassword=" + Quoted(owner);
        if (w.set_user_password) cmd += " -sUserPassword=" + Quoted(w.user_password);
        cmd += " -dEncryptionR=3 -dKeyLength=128 -dPermissions=" + std::to_string(permissions);
      }
      if (w.create_linearized_pdf) cmd += " -dFastWebView=true";
      if (w.create_pdf_a)
        cmd += " -dPDFA=2 -dPDFACompatibilityPolicy=1 -sColorConversionStrategy=" +
               std::string(cmyk ? "CMYK" : "RGB");
    }
    self.HasTool("pdfpsai.bin");
    ScratchResult out(self.dest_file);
    cmd += " -sOutputFile=" + Quoted(out.path());
    if (!ai && ext == "pdf" && s.pdf_write.create_pdf_a)
      cmd += " " + Quoted(self.Tool("pdfa_def.ps"));
    cmd += " " + Quoted(pdf);
    tools::RunTool(self.Job(), cmd);
    if (out.Commit()) status = 0;
  }
  tools::RemovePath(pdf);
  return status;
}

int pcl_write(TZubConvert& self) {
  const auto& w = self.settings->pcl_write;
  // "PCL_write"/"Monochrome": 1 colour PCL XL, 2 monochrome PCL XL, 3 PCL 5 (LaserJet 4),
  // 4 PCL 5 (LaserJet III).
  static constexpr std::array<const char*, 4> kDevices = {"-sDEVICE=pxlcolor", "-sDEVICE=pxlmono",
                                                          "-sDEVICE=ljet4", "-sDEVICE=ljet3"};
  const char* device = kDevices[std::clamp(w.monochrome, 1, 4) - 1];
  const std::string pdf = self.Scratch(".pdf");
  int status = 1;
  if (PictureToPdf(self, pdf, 100)) {
    self.HasTool("pdfpsai.bin");
    ScratchResult out(self.dest_file);
    tools::RunTool(self.Job(), Quoted(self.Tool("pdfpsai.bin")) + " -dNOSAFER -dBATCH -dNOPAUSE " +
                                   device + PaperSwitches(w.paper, false) +
                                   " -sOutputFile=" + Quoted(out.path()) + " " + Quoted(pdf));
    if (out.Commit()) status = 0;
  }
  tools::RemovePath(pdf);
  return status;
}

int to_pdf_with_ocr(TZubConvert& self) {
  // Every frame becomes a page TIFF in a scratch folder; the OCR engine reads them through a
  // list file and writes one PDF with a text layer under each page.
  const std::string folder = self.Scratch("");
  std::error_code ec;
  fs::create_directories(folder, ec);
  std::vector<std::string> pages;
  {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp, self.hand_over);
    io.Params().ImageIndex = 0;
    int frames = 1;
    if (io.ParamsFromFile(self.src_file).ok()) frames = std::max(1, io.Params().ImageCount);
    for (int f = 0; f < frames; ++f) {
      io.Params().ResetInfo();
      io.Params().ImageIndex = f;
      if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) break;
      self.snow(io);
      io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_LZW;
      const std::string page =
          folder + platform::kPathDelim + "page_" + std::to_string(f + 1) + ".tif";
      if (!io.SaveToFile(page).ok()) break;
      pages.push_back(page);
    }
  }
  int status = 1;
  if (!pages.empty()) {
    std::string input = pages[0];
    if (pages.size() > 1) {
      input = folder + platform::kPathDelim + "pages.txt";
      std::ofstream list(input);
      for (const auto& p : pages) list << p << '\n';
    }
    std::string lang = self.settings->pdf_write.searchable_pdf_lang;
    if (lang.empty()) lang = "eng";
    self.HasTool("tesseract\\tesseract.exe");
    ScratchResult out(self.dest_file);
    // The engine names its output base; it adds ".pdf" itself.
    const std::string base = out.path().substr(0, out.path().size() - 4);
    tools::RunTool(self.Job(), Quoted(self.Tool("tesseract\\tesseract.exe")) + " " + Quoted(input) +
                                   " " + Quoted(base) + " -l " + lang + " pdf");
    if (out.Commit()) status = 0;
  }
  fs::remove_all(folder, ec);
  return status;
}

int svg_raster_write(TZubConvert& self) {
  const auto& svg = self.settings->svg;
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, self.hand_over);
  if (!io.LoadFromFile(self.src_file).ok() || bmp.IsEmpty()) return 1;
  self.snow(io);
  const int w = bmp.Width(), h = bmp.Height();
  std::string images;
  std::string defs;
  if (svg.raster_lossless) {
    const std::string png = self.Scratch(".png");
    if (!io.SaveToFile(png).ok()) return 1;
    tools::RunTool(self.Job(), Quoted(self.Tool("pngoptim.bin")) + " " + Quoted(png));
    const std::string data = ReadAll(png);
    tools::RemovePath(png);
    if (data.empty()) return 1;
    images = "<image width=\"" + std::to_string(w) + "\" height=\"" + std::to_string(h) +
             "\" xlink:href=\"data:img/png;base64," + Base64(data) + "\"/>";
  } else {
    std::vector<uint8_t> jpeg;
    io.Params().JPEG_Quality = std::clamp(svg.quality, 1, 100);
    std::string mask_attr;
    if (bmp.HasAlphaChannel() && self.settings->save.copy_alpha) {
      // Transparency goes into a grey JPEG used as a luminance mask.
      imaging::TIEBitmap alpha;
      if (!alpha.Allocate(w, h, imaging::TIEPixelFormat::ie8g).ok()) return 1;
      for (int y = 0; y < h; ++y) std::copy_n(bmp.AlphaScanline(y), w, alpha.Scanline(y));
      imaging::TImageEnIO mask_io(&alpha, self.hand_over);
      mask_io.Params().JPEG_Quality = io.Params().JPEG_Quality;
      std::vector<uint8_t> mask;
      if (!mask_io.SaveToBuffer(imaging::TIOFileType::ioJPEG, mask).ok()) return 1;
      defs = "<defs><mask id=\"alpha\"><image width=\"" + std::to_string(w) + "\" height=\"" +
             std::to_string(h) + "\" xlink:href=\"data:image/jpeg;base64," +
             Base64(std::string(mask.begin(), mask.end())) + "\"/></mask></defs>\n";
      mask_attr = " mask=\"url(#alpha)\"";
    }
    if (!io.SaveToBuffer(imaging::TIOFileType::ioJPEG, jpeg).ok()) return 1;
    images = "<image width=\"" + std::to_string(w) + "\" height=\"" + std::to_string(h) + "\"" +
             mask_attr + " xlink:href=\"data:image/jpeg;base64," +
             Base64(std::string(jpeg.begin(), jpeg.end())) + "\"/>";
  }
  const std::string doc =
      "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
      "<svg xmlns=\"http://www.w3.org/2000/svg\" xmlns:xlink=\"http://www.w3.org/1999/xlink\" "
      "version=\"1.1\" width=\"" +
      std::to_string(w) + "\" height=\"" + std::to_string(h) + "\" viewBox=\"0 0 " +
      std::to_string(w) + " " + std::to_string(h) + "\">\n" + defs + images + "\n</svg>\n";
  return platform::WriteFileAtomic(self.dest_file, doc).ok() && tools::Produced(self.dest_file) ? 0
                                                                                                : 1;
}

}  // namespace pictavo::writer
