// The conversion routines of the direct route. Each takes the conversion object, a source and a
// destination path, and returns 0 when the expected output exists (not empty) afterwards. They
// never modify the source. Tool command lines name every path in double quotes and are run
// through the engine's tool runner; exit codes are not trusted.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/tools/route_kit.h"

namespace pictavo::direct {

class TZubDirect;

using Path = const std::string&;

// ---- PDF and PostScript (pdf_ps.cpp) ----
// The interpreter's PDF-writing argument string (colour, output and input, profile, compression,
// page range, fonts); `ai` takes the "AI_Write" keys in place of the "PDF_Write" ones.
std::string PdfWriteArgs(const TZubDirect& self, Path src, Path dest, bool ai);
// The " -sFONTPATH=..." option, or "" when "PDF_EPS_PS"/"font_path" is blank.
std::string FontPathOption(const TZubDirect& self);
// Jpg_Quality x 175 / 100, rounded half up.
int EbookResolution(int jpg_quality);
int32_t pdf2pdf(TZubDirect& self, Path src, Path dest);
int32_t pdf_page(TZubDirect& self, Path src, Path dest, int page);
int32_t pdf2pdf_pages(TZubDirect& self, Path src, Path dest);
int32_t adobe(TZubDirect& self, Path src, Path dest);
int32_t crop_pdf(TZubDirect& self, Path src, Path dest);
bool is_pdf(Path path);
bool is_pdf1_567(Path path);
bool is_pdf_gray(TZubDirect& self, Path path);
int32_t convert_pdf2pcl(TZubDirect& self, Path src, Path dest);
int32_t convert_pcl_pdf(TZubDirect& self, Path src, Path dest);
int32_t convert_xps_pdf(TZubDirect& self, Path src, Path dest);
int32_t pdf2swf(TZubDirect& self, Path src, Path dest);
int32_t text2pdf(TZubDirect& self, Path src, Path dest);
int32_t wpdf(TZubDirect& self, Path dest);
int32_t nva2pdf(TZubDirect& self, Path src, Path dest);
// PDF, PS, EPS, XPS -> vector targets (pstoedit, pdftocairo, the interpreter's PCL devices).
int32_t adobe2vec(TZubDirect& self, Path src, Path dest);
int32_t ai2vec(TZubDirect& self, Path src, Path dest);
int32_t adobe2stl(TZubDirect& self, Path src, Path dest);
int32_t ai2stl(TZubDirect& self, Path src, Path dest);

// ---- SVG and other drawings (routes_svg.cpp) ----
int32_t extract_from_svgz(TZubDirect& self, Path src, Path dest);
int32_t convert_psd2svg(TZubDirect& self, Path src, Path dest);
int32_t svg2png(TZubDirect& self, Path src, Path dest);
int32_t convert_svg2pdf(TZubDirect& self, Path src, Path dest);
int32_t pdf2svg_pop(TZubDirect& self, Path src, Path dest);
int32_t inkscape2svg(TZubDirect& self, Path src, Path dest);
// Any drawing source -> PDF, PS, EPS or AI. Mode 1 aims at a PDF for the SVG round trip.
int32_t vec2adobe(TZubDirect& self, Path src, Path dest, int mode);
int32_t vec2vec(TZubDirect& self, Path src, Path dest);
int32_t vec2stl(TZubDirect& self, Path src, Path dest);
int32_t svg2swf(TZubDirect& self, Path src, Path dest);
int32_t vec2swf(TZubDirect& self, Path src, Path dest);
int32_t scConvert(TZubDirect& self, Path src, Path dest);
// Preparation: font replacement ("SVG" font list) and style-block repair. svg_replace_fonts
// returns -1 when it changed nothing; fix_svg returns 0 when it wrote `dest`.
int32_t svg_replace_fonts(TZubDirect& self, Path src, Path dest);
int32_t fix_svg(TZubDirect& self, Path src, Path dest);
// Preparation of HPGL: the header fix (drops bytes before the first instruction, adds "IN;")
// and the rewrite (one instruction per line). Each returns 0 when it wrote `dest`.
int32_t plt_fix_header(TZubDirect& self, Path src, Path dest);
int32_t plt_rewrite(TZubDirect& self, Path src, Path dest);

// ---- CAD and GIS (routes_cad_gis.cpp) ----
int32_t convert_dwg_dxf(TZubDirect& self, Path src, Path dest, int version);
int32_t convert_stl2dxf(TZubDirect& self, Path src, Path dest);
int32_t convert_dgn_shp2dxf(TZubDirect& self, Path src, Path dest);
int32_t convert_dgn_dxf2shp(TZubDirect& self, Path src, Path dest);
int32_t convert_dxf_shp2dgn(TZubDirect& self, Path src, Path dest);
// ogr2ogr from any source GDAL reads to `driver` ("DXF", "ESRI Shapefile", ...).
int32_t ogr_convert(TZubDirect& self, Path src, Path dest, const std::string& driver);
// Per-layer output of rows 7 and 8 (version of the row's setting).
int32_t convert_dwg_dxf_layers(TZubDirect& self, Path src, Path dest, int version);

// ---- 3D (routes_3d.cpp) ----
int32_t convert_3d_stl(TZubDirect& self, Path src, Path dest);
int32_t convert_3d_vec(TZubDirect& self, Path src, Path dest);

// ---- Documents (routes_docs.cpp) ----
int32_t doc2pdf(TZubDirect& self, Path src, Path dest);
int32_t doc2eps_ps(TZubDirect& self, Path src, Path dest);
int32_t doc2vec(TZubDirect& self, Path src, Path dest);
int32_t pages2vec(TZubDirect& self, Path src, Path dest);
int32_t pages2adobe(TZubDirect& self, Path src, Path dest);
// Any file LibreOffice imports -> PDF, with a profile folder of this worker.
int32_t office2pdf(TZubDirect& self, Path src, Path dest);

// ---- Raster specials (routes_raster.cpp) ----
int32_t gif2webp(TZubDirect& self, Path src, Path dest);
int32_t convert_svs(TZubDirect& self, Path src, Path dest);
int32_t convert_psb(TZubDirect& self, Path src, Path dest);
int32_t convert_exr(TZubDirect& self, Path src, Path dest);
int32_t convert_scn(TZubDirect& self, Path src, Path dest);
int32_t convert_vsi(TZubDirect& self, Path src, Path dest);
int32_t raw2fits(TZubDirect& self, Path src, Path dest);
int32_t i_magick(TZubDirect& self, Path src, Path dest);
int32_t cal2pdf(TZubDirect& self, Path src, Path dest);

// ---- Shared small helpers (zub_direct.cpp) ----
// Lower-case extension without the dot ("" when none).
std::string ExtOf(Path path);
// Copies a file (never a link to it); false on any error.
bool CopyFile(Path from, Path to);
// Unpacks a gzip file (svgz, wmz, emz) into `dest`, written atomically.
bool Gunzip(Path src, Path dest);
// A routine's failure for want of a program: records the tool's missing-tool message.
int32_t NoProgram(TZubDirect& self, const std::string& what);

}  // namespace pictavo::direct
