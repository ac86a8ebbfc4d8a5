// The drawing families of the vector route, each through the Debian program that fits it. Every
// function has the reader-routine contract: 0 when r.out_file exists afterwards, 1 otherwise
// (tool missing, tool failed or drew nothing), no scratch file left behind.
#pragma once

#include <string>

#include "read/zub_read.h"

namespace pictavo::reader {

// PDF or PostScript through the interpreter ("PDF_EPS_PS" Res/AA/Alpha; "Vector"/"Zoom" scales
// the resolution of drawings). Lives in routes_vector.cpp.
int RenderPostScript(TZubRead& r, const std::string& file, int quality, bool drawing);

// CAD and GIS (DXF, DGN, shapefiles, MapInfo, GeoJSON, KML, GPX, GML, E00, ...): GDAL converts
// every layer to well-known text, which is drawn here in black on white, points as dots. The
// longer side is 1000 pixels at "Vector"/"Zoom" 100.
int ReadGisOrCad(TZubRead& r);
// HP-GL plot files: hp2xx to EPS, then the interpreter.
int ReadHpgl(TZubRead& r);
// Gerber and Excellon drill files: gerbv exports a PNG, black on white.
int ReadGerber(TZubRead& r);
// EMF: emf2svg to SVG, then librsvg at "Vector"/"Zoom".
int ReadEmf(TZubRead& r);
// WMF: libwmf to EPS, then the interpreter.
int ReadWmfThroughEps(TZubRead& r);
// Office documents and drawings (doc, docx, rtf, cdr, vsd, ...): LibreOffice converts them to
// PDF with a profile of its own in a scratch folder, then the interpreter renders every page.
int ReadOffice(TZubRead& r);

// Inkscape's own metafile import: reads Windows metafiles that libwmf rejects.
int ReadWithInkscape(TZubRead& r);

}  // namespace pictavo::reader
