// PDF and PostScript conversions through the interpreter ("pdfpsai.bin", Ghostscript switches)
// and its sister tools. Command lines are built exactly as the engine has always built them; the
// tool folder's interpreter adapter moves switches written after the input in front of it.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/pdf_tools.h"
#include "engine/tools/probes.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::direct {

namespace fs = std::filesystem;
using tools::Quoted;

namespace {

constexpr char kBase[] = " -dAutoRotatePages=/None -dNOSAFER -dBATCH -dNOPAUSE";
constexpr char kLossless[] =
    " -dAutoFilterColorImages=false -dAutoFilterGrayImages=false -dColorImageFilter=/FlateEncode"
    " -dGrayImageFilter=/FlateEncode -dAutoFilterMonoImages=false"
    " -dMonoImageFilter=/CCITTFaxEncode";

std::string Interpreter(const TZubDirect& self) {
  return Quoted(self.Tool("pdfpsai.bin"));
}

std::string ReadStart(Path path, size_t n) {
  std::ifstream in(path, std::ios::binary);
  std::string buf(n, '\0');
  in.read(buf.data(), static_cast<std::streamsize>(n));
  buf.resize(static_cast<size_t>(in.gcount()));
  return platform::AsciiLower(buf);
}

std::string Pad3(int n) {
  std::string s = std::to_string(n);
  if (n < 10) return "00" + s;
  if (n < 100) return "0" + s;
  return s;
}

int32_t Result(Path dest) {
  return tools::Produced(dest) ? 0 : kDirectFailed;
}

// Missing programs are named for the user; the routine still fails by its missing output.
void NoteTool(TZubDirect& self, std::string_view name) {
  self.HasTool(name);
}

}  // namespace

int EbookResolution(int jpg_quality) {
  return static_cast<int>(std::lround(jpg_quality * 175 / 100.0));
}

std::string FontPathOption(const TZubDirect& self) {
  const std::string path(platform::Trim(self.settings->pdf_eps_ps.font_path));
  return path.empty() ? std::string() : " -sFONTPATH=" + Quoted(path) + " ";
}

std::string PdfWriteArgs(const TZubDirect& self, Path src, Path dest, bool ai) {
  const auto& s = *self.settings;
  const bool cmyk = ai ? s.ai_write.save_in_cmyk : s.pdf_write.save_in_cmyk;
  const bool the_icc = ai ? s.ai_write.the_icc : s.pdf_write.the_icc;
  const std::string& icc = ai ? s.ai_write.icc : s.pdf_write.icc;
  const std::string model = cmyk ? "CMYK" : "RGB";
  std::string a = std::string(kBase) + " -sColorConversionStrategyForImages=" + model +
                  " -sColorConversionStrategy=" + model + " -dProcessColorModel=/Device" + model +
                  " -sDEVICE=pdfwrite -sOutputFile=" + Quoted(dest) + " " + Quoted(src);
  if (the_icc && !icc.empty() && platform::FileExists(icc))
    a += (cmyk ? " -sDefaultCMYKProfile=" : " -sDefaultRGBProfile=") + Quoted(icc);
  if (self.pdf_mode)
    a += " -dPDFSETTINGS=/ebook -dColorImageResolution=" +
         std::to_string(EbookResolution(s.pdf_write.jpg_quality));
  else
    a += kLossless;
  if (self.first_page > 0)
    a += " -dFirstPage=" + std::to_string(self.first_page) +
         " -dLastPage=" + std::to_string(self.last_page);
  a += FontPathOption(self);
  return a;
}

int32_t pdf_page(TZubDirect& self, Path src, Path dest, int page) {
  self.first_page = self.last_page = page;
  const std::string cmd = Interpreter(self) + PdfWriteArgs(self, src, dest, false);
  self.first_page = self.last_page = -1;
  return tools::RunFor(self.Job(), cmd, dest) ? 0 : kDirectFailed;
}

int32_t pdf2pdf(TZubDirect& self, Path src, Path dest) {
  if (ExtOf(dest) == "swf") return kDirectFailed;
  const int count = tools::PdfPageCount(src);
  if (count >= 2 && self.settings->multipage.option == 3) {
    int32_t status = kDirectFailed;
    for (int p = 1; p <= count; ++p) {
      const std::string page = self.Scratch(".pdf");
      if (pdf_page(self, src, page, p) == 0) {
        self.more_files.push_back({page, p});
        status = 0;
      }
    }
    self.counter = static_cast<int>(self.more_files.size());
    return status;
  }
  return tools::RunFor(self.Job(), Interpreter(self) + PdfWriteArgs(self, src, dest, false), dest)
             ? 0
             : kDirectFailed;
}

int32_t pdf2pdf_pages(TZubDirect& self, Path src, Path dest) {
  const int count = tools::PdfPageCount(src);
  const std::string folder = self.Scratch("");
  std::error_code ec;
  fs::create_directories(folder, ec);
  const std::string stem = fs::path(src).stem().string();
  std::vector<std::string> pages;
  for (int p = 1; p <= count; ++p) {
    if (!settings::TMainSettings::in_list(p, self.settings->multipage_settings.loading_pages))
      continue;
    const std::string page = (fs::path(folder) / (stem + Pad3(p) + ".pdf")).string();
    if (pdf_page(self, src, page, p) == 0) pages.push_back(page);
  }
  // The selected pages are handed on as one document.
  if (!pages.empty()) (void)tools::MergePdfFiles(pages, dest, self.temp_folder, self.job);
  tools::RemovePath(folder);
  return Result(dest);
}

int32_t adobe(TZubDirect& self, Path given_src, Path dest) {
  const std::string target = ExtOf(dest);
  const std::string source_ext = ExtOf(given_src);
  std::string src = given_src;
  std::vector<std::string> scratch;
  auto done = [&](int32_t status) {
    for (const auto& f : scratch) tools::RemovePath(f);
    return status;
  };

  if (self.settings->eps_write.save_in_cmyk && (source_ext == "eps" || source_ext == "ps")) {
    const std::string pdf = self.Scratch(".pdf");
    scratch.push_back(pdf);
    const std::string cmd = Interpreter(self) + kBase +
                            " -sColorConversionStrategy=CMYK -dProcessColorModel=/DeviceCMYK"
                            " -sDEVICE=pdfwrite -sOutputFile=" +
                            Quoted(pdf) + " " + Quoted(src) +
                            " -dAutoFilterColorImages=false -dAutoFilterGrayImages=false"
                            " -dColorImageFilter=/FlateEncode -dGrayImageFilter=/FlateEncode" +
                            FontPathOption(self);
    if (tools::RunFor(self.Job(), cmd, pdf)) src = pdf;
  }

  int32_t status = kDirectFailed;
  if (target == "pdf" || target == "ai") {
    if (source_ext == "ai" && !is_pdf(src)) {
      // A PostScript-based AI file is first made readable by the vector converter.
      const std::string tmp = self.Scratch(".ps");
      scratch.push_back(tmp);
      NoteTool(self, "uni\\uniconvertor.cmd");
      const std::string cmd =
          Quoted(self.Tool("uni\\uniconvertor.cmd")) + " " + Quoted(src) + " " + Quoted(tmp);
      if (!tools::RunFor(self.Job(), cmd, tmp, self.Tool("uni\\"))) return done(kDirectFailed);
      src = tmp;
    }
    const bool ai = target == "ai" || self.ai_output;
    status = tools::RunFor(self.Job(), Interpreter(self) + PdfWriteArgs(self, src, dest, ai), dest)
                 ? 0
                 : kDirectFailed;
    if (status == 0 && self.svg_round_trip && target == "pdf") {
      // Through SVG and back, page by page.
      const int count = tools::PdfPageCount(dest);
      std::vector<std::string> pages;
      for (int p = 1; p <= count; ++p) {
        std::string page = dest;
        if (count > 1) {
          page = self.Scratch(".pdf");
          if (pdf_page(self, dest, page, p) != 0) continue;
        }
        const std::string svg = self.Scratch(".svg");
        const std::string back = self.Scratch(".pdf");
        scratch.insert(scratch.end(), {svg, back});
        if (pdf2svg_pop(self, page, svg) == 0 && convert_svg2pdf(self, svg, back) == 0)
          pages.push_back(back);
      }
      if (static_cast<int>(pages.size()) == count && count > 0) {
        if (count == 1)
          CopyFile(pages[0], dest);
        else
          (void)tools::MergePdfFiles(pages, dest, self.temp_folder, self.job);
      }
    }
  } else if (target == "ps") {
    const std::string cmd = Interpreter(self) + kBase +
                            " -sDEVICE=ps2write -sOutputFile=" + Quoted(dest) + " " + Quoted(src);
    status = tools::RunFor(self.Job(), cmd, dest) ? 0 : kDirectFailed;
  } else if (target == "eps" || target == "epi") {
    // eps2write writes one file per page; the pages are numbered into the name.
    const std::string base = self.Scratch("");
    const std::string pattern = base + "%03d.eps";
    std::string cmd = Interpreter(self) + kBase +
                      " -sDEVICE=eps2write -sOutputFile=" + Quoted(pattern) + " " + Quoted(src);
    if (source_ext == "eps" || source_ext == "ai") cmd += " -dEPSCrop";
    tools::RunAndWaitTimeout(self.Job(), cmd, tools::kHidden, std::string(), 0);
    std::vector<std::string> pages;
    for (int p = 1; tools::Produced(base + Pad3(p) + ".eps"); ++p)
      pages.push_back(base + Pad3(p) + ".eps");
    self.counter = static_cast<int>(pages.size());
    if (pages.size() == 1) {
      std::error_code ec;
      fs::rename(pages[0], dest, ec);
      status = Result(dest);
    } else if (!pages.empty()) {
      for (size_t i = 0; i < pages.size(); ++i)
        self.more_files.push_back({pages[i], static_cast<int>(i) + 1});
      status = 0;
    }
  }
  if (status == 0) wpdf(self, dest);
  return done(status);
}

int32_t crop_pdf(TZubDirect& self, Path src, Path dest) {
  const std::string eps = self.Scratch(".eps");
  const std::string pdf = self.Scratch(".pdf");
  int32_t status = kDirectFailed;
  if (tools::RunFor(self.Job(),
                    Interpreter(self) + kBase + " -sDEVICE=eps2write -sOutputFile=" + Quoted(eps) +
                        " " + Quoted(src),
                    eps) &&
      tools::RunFor(self.Job(),
                    Interpreter(self) + " -dEPSCrop" + kBase +
                        " -sDEVICE=pdfwrite -sOutputFile=" + Quoted(pdf) + " " + Quoted(eps),
                    pdf)) {
    std::error_code ec;
    fs::rename(pdf, dest, ec);
    status = Result(dest);
  }
  tools::RemovePath(eps);
  tools::RemovePath(pdf);
  return status;
}

bool is_pdf(Path path) {
  const std::string start = ReadStart(path, 8);
  return start.size() > 4 && start.compare(0, 4, "%pdf") == 0;
}

bool is_pdf1_567(Path path) {
  const std::string start = ReadStart(path, 8);
  // Only 1.6 and 1.7 are rewritten; 1.5 reads well enough everywhere.
  return start.size() >= 8 && (start == "%pdf-1.6" || start == "%pdf-1.7");
}

bool is_pdf_gray(TZubDirect& self, Path path) {
  const std::string tif = self.Scratch(".tif");
  const std::string cmd = Interpreter(self) +
                          " -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=tiff24nc -dEPSCrop"
                          " -dGraphicsAlphaBits=1 -dTextAlphaBits=1 -dFirstPage=1 -dLastPage=1"
                          " -r4 -sOutputFile=" +
                          Quoted(tif) + " " + Quoted(path);
  bool gray = false;
  if (tools::RunFor(self.Job(), cmd, tif)) {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    if (io.LoadFromFile(tif).ok() && bmp.Width() > 0) {
      // A channel spread of a few levels is rounding in the renderer's colour conversion.
      constexpr int kTolerance = 6;
      gray = true;
      for (int y = 0; gray && y < bmp.Height(); ++y)
        for (int x = 0; gray && x < bmp.Width(); ++x) {
          const imaging::TRGB c = bmp.GetPixels(x, y);
          const int lo = std::min({c.r, c.g, c.b}), hi = std::max({c.r, c.g, c.b});
          gray = hi - lo <= kTolerance;
        }
    }
  }
  tools::RemovePath(tif);
  return gray;
}

int32_t convert_pdf2pcl(TZubDirect& self, Path src, Path dest) {
  // The PCL XL devices keep text and drawings as vectors; monochrome when the PCL writer's
  // settings ask for it.
  const char* device = self.settings->pcl_write.monochrome == 1 ? "pxlmono" : "pxlcolor";
  const std::string cmd = Interpreter(self) + " -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=" + device +
                          " -sOutputFile=" + Quoted(dest) + " " + Quoted(src);
  return tools::RunFor(self.Job(), cmd, dest) ? 0 : kDirectFailed;
}

int32_t convert_pcl_pdf(TZubDirect& self, Path src, Path dest) {
  const std::string target = ExtOf(dest);
  const char* device = target == "ps" ? "ps2write" : target == "eps" ? "eps2write" : "pdfwrite";
  NoteTool(self, "pcl6.exe");
  const std::string cmd = Quoted(self.Tool("pcl6.exe")) + " -dNOPAUSE -sDEVICE=" + device +
                          " -sOutputFile=" + Quoted(dest) + " " + Quoted(src);
  return tools::RunBatchFor(self.Job(), cmd, self.temp_folder, dest) ? 0 : kDirectFailed;
}

int32_t convert_xps_pdf(TZubDirect& self, Path src, Path dest) {
  const std::string ps = self.Scratch(".ps");
  NoteTool(self, "gxpswin32.exe");
  const std::string cmd = Quoted(self.Tool("gxpswin32.exe")) +
                          " -dNOPAUSE -sDEVICE=ps2write -sOutputFile=" + Quoted(ps) + " " +
                          Quoted(src);
  int32_t status = kDirectFailed;
  if (tools::RunFor(self.Job(), cmd, ps)) status = adobe(self, ps, dest);
  tools::RemovePath(ps);
  return status;
}

int32_t pdf2swf(TZubDirect& self, Path src, Path dest) {
  const std::string ext = ExtOf(src);
  std::string pdf = src, tmp;
  if (ext == "eps" || ext == "ps" || ext == "ai") {
    tmp = self.Scratch(".pdf");
    const int32_t status = adobe(self, src, tmp);
    if (status != 0) {
      tools::RemovePath(tmp);
      return status;
    }
    pdf = tmp;
  }
  NoteTool(self, "pdf2vec.bin");
  const std::string cmd = Quoted(self.Tool("pdf2vec.bin")) + " " + Quoted(pdf) + " " + Quoted(dest);
  const bool ok = tools::RunFor(self.Job(), cmd, dest, self.ToolFolder());
  tools::RemovePath(tmp);
  return ok ? 0 : kDirectFailed;
}

int32_t text2pdf(TZubDirect& self, Path given_src, Path dest) {
  std::string src = given_src, cleaned;
  if (ExtOf(src) == "prt") {
    cleaned = self.Scratch(".prt");
    if (tools::CleanPrt(src, cleaned)) src = cleaned;
  }
  const auto& t = self.settings->txt;
  std::string cmd = Quoted(self.Tool("text2pdf.exe")) + " -c1500";
  if (t.paper == 0) cmd += " -A4";
  cmd += " -s" + std::to_string(t.font_size);
  cmd += " -v" + std::to_string(static_cast<int>(std::lround(t.font_size * 1.2)));
  if (t.landscape == 1) cmd += " -L";
  cmd += " " + Quoted(src) + " > " + Quoted(dest);
  NoteTool(self, "text2pdf.exe");
  const bool ok = tools::RunBatchFor(self.Job(), cmd, self.temp_folder, dest) && is_pdf(dest);
  tools::RemovePath(cleaned);
  return ok ? 0 : kDirectFailed;
}

int32_t wpdf(TZubDirect& self, Path dest) {
  const auto& sb = self.settings->skip_blank_settings;
  if (sb.skip_blank && is_pdf(dest))
    (void)tools::RemoveBlankPages(dest, sb.skip_blank_accuracy, self.temp_folder, nullptr,
                                  self.job);
  return 0;
}

int32_t nva2pdf(TZubDirect& self, Path, Path) {
  return NoProgram(self, "nva2pdf");
}

int32_t adobe2vec(TZubDirect& self, Path given_src, Path dest) {
  const std::string target = ExtOf(dest);
  const std::string source_ext = ExtOf(given_src);
  std::string src = given_src;
  std::vector<std::string> scratch;
  auto done = [&](int32_t status) {
    for (const auto& f : scratch) tools::RemovePath(f);
    return status;
  };
  if (source_ext == "xps" || source_ext == "oxps") {
    const std::string ps = self.Scratch(".ps");
    scratch.push_back(ps);
    NoteTool(self, "gxpswin32.exe");
    if (!tools::RunFor(self.Job(),
                       Quoted(self.Tool("gxpswin32.exe")) +
                           " -dNOPAUSE -sDEVICE=ps2write -sOutputFile=" + Quoted(ps) + " " +
                           Quoted(src),
                       ps))
      return done(kDirectFailed);
    src = ps;
  }
  if (target == "svg") {
    if (!is_pdf(src)) {
      const std::string pdf = self.Scratch(".pdf");
      scratch.push_back(pdf);
      if (adobe(self, src, pdf) != 0) return done(kDirectFailed);
      src = pdf;
    }
    self.source_pages = tools::PdfPageCount(src);
    return done(pdf2svg_pop(self, src, dest));
  }
  if (is_pdf(src)) self.source_pages = tools::PdfPageCount(src);
  if (target == "pcl") return done(convert_pdf2pcl(self, src, dest));
  auto pstoedit = [&](const char* format, Path out) {
    NoteTool(self, "pstoedit.bin");
    return tools::RunFor(self.Job(),
                         Quoted(self.Tool("pstoedit.bin")) + " -q -f " + format + " " +
                             Quoted(src) + " " + Quoted(out),
                         out);
  };
  if (target == "dxf") return done(pstoedit("dxf_14", dest) ? 0 : kDirectFailed);
  if (target == "plt") return done(pstoedit("hpgl", dest) ? 0 : kDirectFailed);
  if (target == "shp" || target == "dgn" || target == "mif") {
    // Through a drawing exchange file that GDAL reads.
    const std::string dxf = self.Scratch(".dxf");
    scratch.push_back(dxf);
    if (!pstoedit("dxf_14", dxf)) return done(kDirectFailed);
    return done(vec2vec(self, dxf, dest));
  }
  return done(NoProgram(self, "adobe2vec to " + target));
}

int32_t ai2vec(TZubDirect& self, Path src, Path dest) {
  // Modern AI files are PDF inside; older PostScript-based ones need the absent vector converter.
  if (is_pdf(src)) return adobe2vec(self, src, dest);
  return NoProgram(self, "ai2vec (PostScript-based AI)");
}

int32_t adobe2stl(TZubDirect& self, Path, Path) {
  return NoProgram(self, "adobe2stl");
}

int32_t ai2stl(TZubDirect& self, Path, Path) {
  return NoProgram(self, "ai2stl");
}

}  // namespace pictavo::direct
