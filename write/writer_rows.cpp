// The target rows of TZubConvert::Convert, in the order they are tried. Order is behaviour:
// several keys occur in more than one list, and the earlier row wins.
#include "write/writer_rows.h"

namespace pictavo::writer {
namespace {

using settings::TMainSettings;

bool SearchablePdf(const TMainSettings& s) {
  return s.pdf_write.create_searchable_pdf;
}
bool MultiSizeIcon(const TMainSettings& s) {
  return s.ico.create_multi_size;
}
bool SvgRaster(const TMainSettings& s) {
  return s.svg.raster;
}

constexpr WriterRow kRows[] = {
    // With the switch off, ";pdf;" falls through to the document row 5.
    {1, ";pdf;", SearchablePdf, to_pdf_with_ocr, "to_pdf_with_ocr"},
    // With the switch off, ";ico;" falls through to the raster group of row 3.
    {2, ";ico;", MultiSizeIcon, ico_write, "ico_write"},
    {3, ";jpeg;jpg;bmp;gif;jp2;pcx;png;tga;tif;tiff;ico;psd;ppm;pgm;", nullptr, raster_group,
     "raster_group"},
    // Before the vector list of row 11, which names ";pcl;" too: PCL is printed, not traced.
    {4, ";pcl;", nullptr, pcl_write, "pcl_write"},
    {5, ";ai;pdf;eps;ps;epi;", nullptr, adobe_write, "adobe_write"},
    {6, ";cin;dcx;dis;hru;mtv;db;prc;rad;pic;rla;qrt;sgi;wrl;xbm;xpm;", nullptr, save_more,
     "save_more"},
    {7, ";swf;", nullptr, simple_write, "simple_write"},
    {8, ";jxr;", nullptr, jxr_write, "jxr_write"},
    // Before row 11: with "SVG"/"Raster" off, ";svg;" is traced by the vector router.
    {9, ";svg;", SvgRaster, svg_raster_write, "svg_raster_write"},
    {10, ";wpg;", nullptr, wpg_write, "wpg_write"},
    {11, ";wmf;emf;wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;pct;mif;plt;pcl;svg;stl;", nullptr,
     brush_or_vector, "brush_or_vector"},
    {12, ";webp;webpll;", nullptr, webp_write, "webp_write"},
    {13, ";bpg;", nullptr, bpg_write, "bpg_write"},
    {14, ";flif;", nullptr, flif_write, "flif_write"},
    {15, ";dds;", nullptr, i_magick, "i_magick"},
    {16, ";fits;fax;", nullptr, i_magick, "i_magick"},
    {17, ";cal;cg4;", nullptr, cal_write, "cal_write"},
    {18, ";avif;", nullptr, avif_write, "avif_write"},
    {19, "", nullptr, nullptr, "not handled"},
};

}  // namespace

std::span<const WriterRow> WriterRows() {
  return kRows;
}

}  // namespace pictavo::writer
