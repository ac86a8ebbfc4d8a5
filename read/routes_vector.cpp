// Vector drawings and documents, rasterised: PDF and the PostScript family by the interpreter of
// the tool folder; XPS and plain text by converting them to PostScript or PDF first; Windows
// metafiles by wmf2gd of the tool folder (libwmf's EPS output as second try); the CAD, GIS, Gerber,
// HP-GL, EMF and office families through the programs of routes_drawings.cpp; SVG, CGM, CALS and
// the remaining drawings by the raster converter where it has a reader for them. Resolution:
// "PDF_EPS_PS"/"Res" for documents, scaled by "Vector"/"Zoom" for drawings.
#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "engine/tools/core_share.h"
#include "engine/tools/probes.h"
#include "engine/tools/runner.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "read/read_routes.h"
#include "read/route_support.h"
#include "read/routes_drawings.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

int Resolution(const TZubRead& r, bool drawing) {
  int res = r.settings ? r.settings->pdf_eps_ps.res : 300;
  if (res <= 0) res = 300;
  if (drawing && r.settings && r.settings->vector.zoom > 0)
    res = res * r.settings->vector.zoom / 100;
  return std::clamp(res, 10, 2400);
}

}  // namespace

namespace {

// Pages a range gets at least: below that the interpreter's start costs more than it saves.
constexpr int kMinPagesPerRange = 3;

// How many interpreters render `file` at once: one per core left to this file, for a PDF long
// enough to give each of them kMinPagesPerRange pages.
int RangeCount(const std::string& file) {
  const int threads = tools::ThreadsForOneFile();
  if (threads < 2 || !TZubRead::is_pdf(file)) return 1;
  return std::clamp(tools::PdfPageCount(file) / kMinPagesPerRange, 1, threads);
}

// Renders pages [first, last] of a PDF (1-based, inclusive) into `tiff`.
void RenderRange(const tools::JobContext& job, const std::string& command, const std::string& file,
                 int first, int last, const std::string& tiff) {
  tools::RunTool(job, command + " -dFirstPage=" + std::to_string(first) +
                          " -dLastPage=" + std::to_string(last) +
                          " -sOutputFile=" + platform::Quoted(tiff) + " " + platform::Quoted(file));
}

// Every page of a long PDF, its page ranges rendered side by side and joined in page order
// without decoding them. 0 when out_file is there.
int RenderInRanges(TZubRead& r, const std::string& command, const std::string& file, int ranges) {
  const int pages = tools::PdfPageCount(file);
  std::vector<std::unique_ptr<Scratch>> parts;
  std::vector<std::thread> renders;
  const tools::JobContext job = r.Job();  // outlives the renders, which are joined below
  for (int i = 0; i < ranges; ++i) {
    const int first = 1 + pages * i / ranges, last = pages * (i + 1) / ranges;
    parts.push_back(std::make_unique<Scratch>(r, ".tif"));
    renders.emplace_back(RenderRange, std::cref(job), command, file, first, last,
                         parts.back()->path());
  }
  for (std::thread& t : renders) t.join();
  // A range that failed leaves its pages out, as a single run that stops early would.
  std::vector<std::string> made;
  for (const auto& part : parts) made.push_back(part->path());
  return HandOnTiffs(r, made);
}

}  // namespace

// Every page into one multi-page TIFF, or, with "PDF_EPS_PS"/"Alpha", one transparent PNG per
// page.
int RenderPostScript(TZubRead& r, const std::string& file, int quality, bool drawing) {
  if (!HasTool(r, "pdfpsai.bin")) return 1;
  (void)quality;  // the interpreter renders losslessly; the quality only matters for JPEG output
  const bool alpha = r.settings && r.settings->pdf_eps_ps.alpha;
  const bool aa = !r.settings || r.settings->pdf_eps_ps.aa;
  std::string cmd = ToolArg(r, "pdfpsai.bin") + " -dNOSAFER -dBATCH -dNOPAUSE -dEPSCrop";
  cmd += alpha ? " -sDEVICE=pngalpha" : " -sDEVICE=tiff24nc -sCompression=lzw";
  cmd += " -r" + std::to_string(Resolution(r, drawing));
  cmd +=
      aa ? " -dTextAlphaBits=4 -dGraphicsAlphaBits=4" : " -dTextAlphaBits=1 -dGraphicsAlphaBits=1";
  if (alpha) {
    Scratch out(r, "");
    std::error_code ec;
    fs::create_directories(out.path(), ec);
    tools::RunTool(r.Job(),
                   cmd + " -sOutputFile=" +
                       platform::Quoted(out.path() + platform::kPathDelim + "page%04d.png") + " " +
                       platform::Quoted(file));
    return SavePictures(r, ListFiles(out.path(), false));
  }
  if (const int ranges = RangeCount(file); ranges > 1) return RenderInRanges(r, cmd, file, ranges);
  Scratch out(r, ".tif");
  tools::RunTool(r.Job(), cmd + " -sOutputFile=" + platform::Quoted(out.path()) + " " +
                              platform::Quoted(file));
  return HandOnTiffs(r, {out.path()});
}

namespace {

int ReadXps(TZubRead& r) {
  if (!HasTool(r, "gxpswin32.exe")) return 1;
  Scratch ps(r, ".ps");
  tools::RunTool(r.Job(), ToolArg(r, "gxpswin32.exe") +
                              " -dNOPAUSE -sDEVICE=ps2write -sOutputFile=" +
                              platform::Quoted(ps.path()) + " " + platform::Quoted(r.src_file));
  return tools::Produced(ps.path()) ? RenderPostScript(r, ps.path(), 100, false) : 1;
}

int ReadText(TZubRead& r, bool printer_text) {
  if (!HasTool(r, "text2pdf.exe")) return 1;
  std::string source = r.src_file;
  Scratch cleaned(r, ".txt");
  if (printer_text && tools::CleanPrt(r.src_file, cleaned.path())) source = cleaned.path();
  const int size = r.settings ? r.settings->txt.font_size : 10;
  std::string cmd = ToolArg(r, "text2pdf.exe") + " -c1500";
  if (!r.settings || r.settings->txt.paper == 0) cmd += " -A4";
  cmd += " -s" + std::to_string(size) + " -v" + std::to_string(size + size / 5);
  if (r.settings && r.settings->txt.landscape) cmd += " -L";
  Scratch pdf(r, ".pdf");
  tools::RunBatch(r.Job(),
                  cmd + " " + platform::Quoted(source) + " > " + platform::Quoted(pdf.path()),
                  r.TempFolder());
  return tools::Produced(pdf.path()) ? RenderPostScript(r, pdf.path(), 100, false) : 1;
}

// True when `file` holds a Windows metafile that wmf2gd may draw: EMF has no renderer on this
// platform, and anything else must at least start as a WMF does.
bool IsDrawableMetafile(const std::string& file) {
  const auto head = platform::ReadFileBytes(file);
  if (!head) return false;
  const imaging::TIOFileType type =
      imaging::SniffFormat(reinterpret_cast<const uint8_t*>(head->data()), head->size());
  if (type == imaging::TIOFileType::ioEMF) return false;
  return type == imaging::TIOFileType::ioWMF ||
         (head->size() >= 4 && (*head)[0] == 1 && (*head)[1] == 0);
}

// The rasteriser of ImportMetafile: wmf2gd writes the metafile as a PNG at `width` x `height`
// pixels (0 = the file's own size at 96 dpi, the other side in proportion) into a scratch name
// that `scratch` removes when the route ends.
imaging::TImageEnIO::MetafileRasteriser Wmf2gd(TZubRead& r,
                                               std::vector<std::unique_ptr<Scratch>>& scratch) {
  return [&r, &scratch](const std::string& metafile, int width, int height) {
    // wmf2gd names its output itself from -o.
    const Scratch& out = *scratch.emplace_back(std::make_unique<Scratch>(r, ".png"));
    std::string cmd = ToolArg(r, "wmf2gd.bin") + " -t png";
    if (width > 0) cmd += " --maxwidth=" + std::to_string(width);
    if (height > 0) cmd += " --maxheight=" + std::to_string(height);
    if (width > 0 || height > 0) cmd += height > 0 && width > 0 ? " --maxsize" : " --maxpect";
    cmd += " -o " + platform::Quoted(out.path()) + " " + platform::Quoted(metafile);
    tools::RunAndWaitTimeout(r.Job(), cmd, tools::kHidden, std::string(), 120);
    return tools::Produced(out.path()) ? out.path() : std::string();
  };
}

int ReadMetafile(TZubRead& r) {
  if (!IsDrawableMetafile(r.src_file) || !HasTool(r, "wmf2gd.bin")) return 1;
  std::vector<std::unique_ptr<Scratch>> scratch;
  imaging::TIEBitmap bitmap;
  bitmap.SetLimits(r.picture_limits);
  imaging::TImageEnIO io(&bitmap, r.hand_over);
  io.SetMetafileRasteriser(Wmf2gd(r, scratch));
  const int zoom = r.settings && r.settings->vector.zoom > 0 ? r.settings->vector.zoom : 100;
  if (!io.ImportMetafile(r.src_file).ok() || bitmap.IsEmpty()) return 1;
  if (zoom != 100) {
    imaging::TIEBitmap scaled;
    scaled.SetLimits(r.picture_limits);
    imaging::TImageEnIO again(&scaled, r.hand_over);
    again.SetMetafileRasteriser(Wmf2gd(r, scratch));
    if (again.ImportMetafile(r.src_file, bitmap.Width() * zoom / 100, 0).ok() && !scaled.IsEmpty())
      return again.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
  }
  return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
}

// Drawings that the raster converter reads (SVG through librsvg, HP-GL through hp2xx, CALS...).
int ReadWithConverter(TZubRead& r) {
  if (!HasTool(r, "convert.bin")) return 1;
  Scratch out(r, ".png");
  int density =
      96 * (r.settings && r.settings->vector.zoom > 0 ? r.settings->vector.zoom : 100) / 100;
  if (r.settings && r.settings->svg_read.size > 1) density *= r.settings->svg_read.size;
  const std::string cmd = ToolArg(r, "convert.bin") + " -density " + std::to_string(density) +
                          " -background white " + platform::Quoted(r.src_file) + " -flatten " +
                          platform::Quoted(out.path());
  return RunThenSave(r, "convert.bin", cmd, out.path());
}

// The vector-list families by extension (the route table decides which files come here).
constexpr std::string_view kGisAndCad =
    ";tab;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;fit;shp;mif;dgn;dxf;"
    "dwg;";
constexpr std::string_view kGerber =
    ";gbp;gpb;gko;gm2;gbo;gtp;gml;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;"
    "ssb;tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;";
constexpr std::string_view kOffice = ";doc;docx;rtf;pages;cdr;vsd;vss;vdx;vsdm;vsdx;wpg;cgm;";

bool In(std::string_view list, const std::string& ext) {
  return !ext.empty() && list.find(";" + ext.substr(1) + ";") != std::string_view::npos;
}

}  // namespace

int adobe_read(TZubRead& r) {
  return RenderPostScript(r, r.src_file, 100, false);
}

int vec_read(TZubRead& r) {
  const std::string ext = platform::LowerExtension(r.src_file);
  if (TZubRead::is_pdf(r.src_file) || tools::IsPostScript(r.src_file) ||
      In(";ps;eps;epi;ai;pdf;", ext))
    return RenderPostScript(r, r.src_file, 100, true);
  if (In(";xps;oxps;", ext)) return ReadXps(r);
  if (In(";txt;prt;001;", ext)) return ReadText(r, ext == ".prt");
  if (In(";wmf;", ext))
    return ReadMetafile(r) == 0 || ReadWmfThroughEps(r) == 0 ? 0 : ReadWithInkscape(r);
  if (In(";wmz;", ext)) return ReadMetafile(r);
  if (In(";emf;", ext)) return ReadEmf(r);
  if (In(";plt;hpg;hpgl;hp2;", ext) && ReadHpgl(r) == 0) return 0;
  // ".gml" is both GML (GIS) and a Gerber mill layer: GDAL first, then gerbv.
  if (In(kGisAndCad, ext) && ReadGisOrCad(r) == 0) return 0;
  if (In(kGerber, ext)) return ReadGerber(r);
  if (In(kOffice, ext) && ReadOffice(r) == 0) return 0;
  if (In(";svg;svgz;cgm;plt;hpg;hpgl;hp2;cal;pct;", ext)) return ReadWithConverter(r);
  // DWF(X), NAP, DRW, PCL/PXL/PRN and DWG other than R2000: no program of this platform
  // rasterises them.
  return 1;
}

int uniconvertor_read(TZubRead& r) {
  if (!HasTool(r, "uni\\uniconvertor.cmd")) return 1;
  Scratch ps(r, ".ps");
  tools::RunTool(r.Job(), ToolArg(r, "uni\\uniconvertor.cmd") + " " + platform::Quoted(r.src_file) +
                              " " + platform::Quoted(ps.path()));
  return tools::Produced(ps.path()) ? RenderPostScript(r, ps.path(), 100, true) : 1;
}

int swf_chain(TZubRead& r) {
  // swf_read (as set, then extracting) and png_swf_extract_from_zip need an SWF renderer; no
  // package of this platform has one (swftools is not in Debian), so the row always fails and
  // the engine fall-back has the last word.
  (void)r;
  return 1;
}

}  // namespace pictavo::reader
