// Drawings: SVG and SVGZ, metafiles, HPGL, drawing formats LibreOffice imports, GIS sources made
// into PDF, and the drawing-to-drawing route. SVG goes through librsvg ("rsvg-convert.bin"),
// PDF back to SVG through poppler ("pdftocairo.bin").
#include <zlib.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::direct {

namespace fs = std::filesystem;
using tools::Quoted;

namespace {

std::optional<std::string> ReadAll(Path path) {
  return platform::ReadFileBytes(path);
}

bool WriteAll(Path path, std::string_view bytes) {
  return platform::WriteFileAtomic(path, bytes).ok();
}

bool In(std::string_view list, const std::string& ext) {
  return list.find(";" + ext + ";") != std::string_view::npos;
}

// Formats that GDAL reads as vector data, and the drivers that write the GIS targets.
constexpr std::string_view kOgrSources =
    ";dxf;dwg;shp;dgn;tab;mif;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;";
constexpr std::string_view kOfficeDrawings = ";cdr;cmx;vsd;vss;vdx;vsdm;vsdx;cgm;wpg;emf;pct;";
constexpr std::string_view kHpgl = ";plt;hpgl;hpg;hp2;";
constexpr std::string_view kGerber =
    ";gbp;gpb;gko;gm2;gbo;gtp;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;ssb;"
    "tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;";

std::string OgrDriver(const std::string& ext) {
  if (ext == "dxf") return "DXF";
  if (ext == "shp") return "ESRI Shapefile";
  if (ext == "dgn") return "DGN";
  if (ext == "mif" || ext == "tab") return "MapInfo File";
  return std::string();
}

std::string Base64(std::string_view bytes) {
  static constexpr char k[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
  std::string out;
  size_t i = 0;
  for (; i + 2 < bytes.size(); i += 3) {
    unsigned v = (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8) | uint8_t(bytes[i + 2]);
    out += {k[v >> 18], k[(v >> 12) & 63], k[(v >> 6) & 63], k[v & 63]};
  }
  if (i + 1 == bytes.size()) {
    unsigned v = uint8_t(bytes[i]) << 16;
    out += {k[v >> 18], k[(v >> 12) & 63], '=', '='};
  } else if (i + 2 == bytes.size()) {
    unsigned v = (uint8_t(bytes[i]) << 16) | (uint8_t(bytes[i + 1]) << 8);
    out += {k[v >> 18], k[(v >> 12) & 63], k[(v >> 6) & 63], '='};
  }
  return out;
}

}  // namespace

bool Gunzip(Path src, Path dest) {
  gzFile in = gzopen(src.c_str(), "rb");
  if (!in) return false;
  std::string out;
  char buf[65536];
  int n;
  while ((n = gzread(in, buf, sizeof buf)) > 0) out.append(buf, static_cast<size_t>(n));
  const bool ok = n == 0;
  gzclose(in);
  return ok && !out.empty() && WriteAll(dest, out);
}

int32_t extract_from_svgz(TZubDirect&, Path src, Path dest) {
  return Gunzip(src, dest) && tools::Produced(dest) ? 0 : kDirectFailed;
}

int32_t convert_psd2svg(TZubDirect& self, Path src, Path dest) {
  // The composite image, embedded in an SVG of its own size.
  const std::string png = self.Scratch(".png");
  self.HasTool("convert.bin");
  int32_t status = kDirectFailed;
  if (tools::RunFor(
          self.Job(),
          Quoted(self.Tool("convert.bin")) + " " + Quoted(src + "[0]") + " " + Quoted(png), png)) {
    auto bytes = ReadAll(png);
    if (bytes && bytes->size() > 24) {
      auto be32 = [&](size_t at) {
        return (uint8_t((*bytes)[at]) << 24) | (uint8_t((*bytes)[at + 1]) << 16) |
               (uint8_t((*bytes)[at + 2]) << 8) | uint8_t((*bytes)[at + 3]);
      };
      const unsigned w = be32(16), h = be32(20);
      std::ostringstream svg;
      svg << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
          << "<svg xmlns=\"http://www.w3.org/2000/svg\" "
             "xmlns:xlink=\"http://www.w3.org/1999/xlink\" width=\""
          << w << "\" height=\"" << h << "\" viewBox=\"0 0 " << w << ' ' << h << "\">\n"
          << "<image width=\"" << w << "\" height=\"" << h
          << "\" xlink:href=\"data:image/png;base64," << Base64(*bytes) << "\"/>\n</svg>\n";
      if (WriteAll(dest, svg.str())) status = 0;
    }
  }
  tools::RemovePath(png);
  return status;
}

int32_t svg2png(TZubDirect& self, Path src, Path dest) {
  self.HasTool("rsvg-convert.bin");
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool("rsvg-convert.bin")) + " -f png -o " + Quoted(dest) + " " +
                           Quoted(src),
                       dest)
             ? 0
             : kDirectFailed;
}

int32_t convert_svg2pdf(TZubDirect& self, Path src, Path dest) {
  self.HasTool("rsvg-convert.bin");
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool("rsvg-convert.bin")) + " -f pdf -o " + Quoted(dest) + " " +
                           Quoted(src),
                       dest)
             ? 0
             : kDirectFailed;
}

int32_t pdf2svg_pop(TZubDirect& self, Path src, Path dest) {
  self.HasTool("pdftocairo.bin");
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool("pdftocairo.bin")) + " -svg -f 1 -l 1 " + Quoted(src) +
                           " " + Quoted(dest),
                       dest)
             ? 0
             : kDirectFailed;
}

int32_t inkscape2svg(TZubDirect& self, Path src, Path dest) {
  self.HasTool("inkscape.bin");
  return tools::RunFor(self.Job(),
                       Quoted(self.Tool("inkscape.bin")) +
                           " --export-type=svg --export-plain-svg --export-filename=" +
                           Quoted(dest) + " " + Quoted(src),
                       dest)
             ? 0
             : kDirectFailed;
}

int32_t vec2adobe(TZubDirect& self, Path src, Path dest, int mode) {
  const std::string target = ExtOf(dest);
  const std::string ext = ExtOf(src);
  // Everything is made into a PDF first; other targets are written from it by `adobe`.
  const std::string pdf = target == "pdf" ? dest : self.Scratch(".pdf");
  std::vector<std::string> scratch;
  auto finish = [&](int32_t status) {
    if (status == 0 && target != "pdf") status = adobe(self, pdf, dest);
    for (const auto& f : scratch) tools::RemovePath(f);
    if (pdf != dest) tools::RemovePath(pdf);
    return status;
  };
  if (ext == "svg") return finish(convert_svg2pdf(self, src, pdf));
  if (ext == "svgz") {
    const std::string svg = self.Scratch(".svg");
    scratch.push_back(svg);
    if (!Gunzip(src, svg)) return finish(kDirectFailed);
    return finish(convert_svg2pdf(self, svg, pdf));
  }
  if (ext == "wmf" || In(kHpgl, ext)) {
    // Metafiles and plotter files become EPS, which the interpreter turns into PDF.
    const std::string eps = self.Scratch(".eps");
    scratch.push_back(eps);
    std::string cmd;
    if (ext == "wmf") {
      self.HasTool("wmf2eps.bin");
      cmd = Quoted(self.Tool("wmf2eps.bin")) + " -o " + Quoted(eps) + " " + Quoted(src);
    } else {
      self.HasTool("hp2xx.bin");
      cmd = Quoted(self.Tool("hp2xx.bin")) + " -q -m eps -f " + Quoted(eps) + " " + Quoted(src);
    }
    if (!tools::RunFor(self.Job(), cmd, eps)) return finish(kDirectFailed);
    return finish(adobe(self, eps, pdf));
  }
  if (ext == "pcl") return finish(convert_pcl_pdf(self, src, pdf));
  if (In(kOgrSources, ext)) return finish(ogr_convert(self, src, pdf, "PDF"));
  if (In(kOfficeDrawings, ext)) return finish(office2pdf(self, src, pdf));
  if (In(kGerber, ext)) {
    self.HasTool("gerbv.bin");
    return finish(tools::RunFor(self.Job(),
                                Quoted(self.Tool("gerbv.bin")) + " -x pdf -o " + Quoted(pdf) + " " +
                                    Quoted(src),
                                pdf)
                      ? 0
                      : kDirectFailed);
  }
  (void)mode;  // both modes make the same PDF here: it is already suited to the SVG round trip
  return finish(NoProgram(self, "vec2adobe from " + ext));
}

int32_t vec2vec(TZubDirect& self, Path src, Path dest) {
  const std::string ext = ExtOf(src);
  const std::string target = ExtOf(dest);
  // Map data stays map data: GDAL converts between its formats without a drawing in between.
  if (In(kOgrSources, ext) && !OgrDriver(target).empty())
    return ogr_convert(self, src, dest, OgrDriver(target));
  const std::string pdf = self.Scratch(".pdf");
  int32_t status = vec2adobe(self, src, pdf, 1);
  if (status == 0) status = adobe2vec(self, pdf, dest);
  tools::RemovePath(pdf);
  return status;
}

int32_t vec2stl(TZubDirect& self, Path, Path) {
  return NoProgram(self, "vec2stl");
}
int32_t svg2swf(TZubDirect& self, Path, Path) {
  return NoProgram(self, "svg2swf");
}
int32_t vec2swf(TZubDirect& self, Path, Path) {
  return NoProgram(self, "vec2swf");
}

int32_t scConvert(TZubDirect& self, Path src, Path dest) {
  // DWF has no writer here; CGM to HPGL goes through a PDF of the drawing.
  if (ExtOf(dest) != "plt") return NoProgram(self, "scConvert to " + ExtOf(dest));
  const std::string pdf = self.Scratch(".pdf");
  int32_t status = office2pdf(self, src, pdf);
  if (status == 0) status = adobe2vec(self, pdf, dest);
  tools::RemovePath(pdf);
  return status;
}

int32_t svg_replace_fonts(TZubDirect& self, Path src, Path dest) {
  const auto& svg = self.settings->svg;
  if (!svg.replace_fonts || svg.fonts.empty()) return -1;
  auto text = ReadAll(src);
  if (!text) return -1;
  // Only font names are touched: the values of font-family attributes and properties.
  static const std::regex family(R"((font-family\s*[:=]\s*)("[^"]*"|'[^']*'|[^;"'>]*))",
                                 std::regex::icase);
  int replaced = 0;
  std::string out;
  auto begin = std::sregex_iterator(text->begin(), text->end(), family);
  size_t last = 0;
  for (auto it = begin; it != std::sregex_iterator(); ++it) {
    const auto& m = *it;
    std::string value = m[2].str();
    for (const auto& f : svg.fonts) {
      if (f.font1.empty()) continue;
      for (size_t at = 0; (at = value.find(f.font1, at)) != std::string::npos;) {
        value.replace(at, f.font1.size(), f.font2);
        at += f.font2.size();
        ++replaced;
      }
    }
    out.append(*text, last, static_cast<size_t>(m.position(0)) - last);
    out += m[1].str() + value;
    last = static_cast<size_t>(m.position(0) + m.length(0));
  }
  out.append(*text, last, std::string::npos);
  if (replaced == 0 || !WriteAll(dest, out)) return -1;
  return replaced;
}

int32_t fix_svg(TZubDirect&, Path src, Path dest) {
  // CSS in a style block may hold "<" or "&" (selectors, font URLs); XML readers reject those
  // unless the block is character data.
  auto text = ReadAll(src);
  if (!text) return kDirectFailed;
  static const std::regex style(R"((<style\b[^>]*>)([\s\S]*?)(</style>))", std::regex::icase);
  bool changed = false;
  std::string out;
  size_t last = 0;
  for (auto it = std::sregex_iterator(text->begin(), text->end(), style);
       it != std::sregex_iterator(); ++it) {
    const auto& m = *it;
    std::string body = m[2].str();
    out.append(*text, last, static_cast<size_t>(m.position(0)) - last);
    if (body.find("<![CDATA[") == std::string::npos &&
        body.find_first_not_of(" \t\r\n") != std::string::npos) {
      body = "<![CDATA[" + body + "]]>";
      changed = true;
    }
    out += m[1].str() + body + m[3].str();
    last = static_cast<size_t>(m.position(0) + m.length(0));
  }
  out.append(*text, last, std::string::npos);
  if (!changed) return kDirectFailed;
  return WriteAll(dest, out) ? 0 : kDirectFailed;
}

int32_t plt_fix_header(TZubDirect&, Path src, Path dest) {
  // Printer job wrappers (PJL, escape sequences) before the first instruction confuse plotter
  // readers: keep the file from its first two-letter instruction on, and start it with "IN;".
  auto text = ReadAll(src);
  if (!text) return kDirectFailed;
  size_t start = 0;
  while (start + 1 < text->size()) {
    const char a = (*text)[start], b = (*text)[start + 1];
    const bool prev_ok = start == 0 || (*text)[start - 1] == ';' ||
                         std::isspace(static_cast<unsigned char>((*text)[start - 1]));
    if (std::isupper(static_cast<unsigned char>(a)) &&
        std::isupper(static_cast<unsigned char>(b)) && prev_ok)
      break;
    ++start;
  }
  if (start + 1 >= text->size()) return kDirectFailed;
  std::string body = text->substr(start);
  if (body.compare(0, 2, "IN") != 0) body = "IN;" + body;
  return WriteAll(dest, body) ? 0 : kDirectFailed;
}

int32_t plt_rewrite(TZubDirect&, Path src, Path dest) {
  // One instruction per line; label texts (LB ... terminator) are kept whole.
  auto text = ReadAll(src);
  if (!text) return kDirectFailed;
  std::string out;
  bool label = false;
  for (size_t i = 0; i < text->size(); ++i) {
    const char c = (*text)[i];
    if (!label && i + 1 < text->size() && c == 'L' && (*text)[i + 1] == 'B') label = true;
    if (label && c == '\x03') label = false;
    if (!label && (c == '\r' || c == '\n')) continue;
    out += c;
    if (!label && c == ';') out += '\n';
  }
  return !out.empty() && WriteAll(dest, out) ? 0 : kDirectFailed;
}

}  // namespace pictavo::direct
