// The direct conversion pairs, in the order they are tried. The lists are kept exactly as the
// engine has always written them, doubled ";;" joints and repeated entries included: they are
// searched as substrings, so a joint never matches a real tag and a repeat is harmless.
#include "direct/direct_rows.h"

#include "direct/routines.h"
#include "direct/zub_direct.h"

namespace pictavo::direct {
namespace {

// Adjacent literals concatenate at compile time, so the joined lists stay constexpr data.
#define VECTOR_TARGETS ";wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;pct;mif;plt;pcl;svg;wpg;emf;wmf;"
#define GIS_LIST ";tab;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;fit;shp;"
#define THREE_D_1                                                                              \
  ";3d;3ds;ac;ac3d;acc;ase;ask;b3d;blend;bvh;cob;cms;dae;enff;fbx;hmp;ifc;ifczip;irr;irrmesh;" \
  "lwo;lws;lxo;md2;md3;md5anim;md5camera;md5mesh;mdc;mdl;mesh;mot;ms3d;ndo;nff;obj;off;pk3;"   \
  "ply;prj;q3o;q3s;scn;smd;stl;"
#define THREE_D_2 ";ter;uc;vta;x;xgl;zgl;3mf;amj;ogex;pmx;sib;stp;step;x3d;glb;"
#define RASTER_TARGETS ";tif;png;jpg;"
#define CAMERA_RAW                                                                             \
  ";ari;obm;3fr;cap;dcs;drf;eip;iiq;ptx;pxn;r3d;rwl;rwz;srw;cine;mef;qtk;rw2;arw;bay;bmq;cr2;" \
  "crw;cs1;dc2;dcr;dng;erf;ia;k25;kc2;mdc;mos;mrw;nef;pef;pxn;raf;raw;rdc;sr2;srf;x3f;sti;"    \
  "fff;tif;iiq;"
#define GERBER                                                                                \
  ";gbp;gpb;gko;gm2;gbo;gtp;gml;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;" \
  "ssb;tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;"
#define VECTOR_SOURCES                                                                       \
  ";tab;sk1;stl;cdr;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;shp;gbr;" \
  "gbs;pct;mif;nap;plt;pcl;svg;svgz;wpg;emf;wmf;hpg;hpgl;hp2;"
// Row 20: the same without "stl".
#define VECTOR_SOURCES_ROW20                                                                 \
  ";tab;sk1;cdr;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;shp;gbr;gbs;" \
  "pct;mif;nap;plt;pcl;svg;svgz;wpg;emf;wmf;hpg;hpgl;hp2;"
#define VECTOR_SOURCES_ROW17                                                                 \
  ";sk1;emf;cdr;stl;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;shp;gbr;" \
  "gbs;pct;mif;nap;plt;pcl;svg;wpg;hpg;hp2;svgz;hpgl;"

int32_t Vec2AdobeMode0(TZubDirect& self, const std::string& src, const std::string& dest) {
  return vec2adobe(self, src, dest, 0);
}

using K = RowKind;

constexpr DirectRow kRows[] = {
    {1, ";svgz;", ";svg;", K::kRoutine, extract_from_svgz, "extract_from_svgz"},
    {2, ";pdf;", ";pcl;", K::kRoutine, convert_pdf2pcl, "convert_pdf2pcl"},
    {3, ";psd;", ";svg;", K::kRoutine, convert_psd2svg, "convert_psd2svg"},
    {4, ";svg;", ";svg;", K::kCopySvg, nullptr, "copy"},
    {5, ";plt;hpgl;hpg;dwf;dwfx;", ";dwf;", K::kRoutine, scConvert, "scConvert"},
    {6, ";cgm;", ";plt;", K::kRoutine, scConvert, "scConvert"},
    {7, ";dxf;dwg;", ";dwg;", K::kDwgDxf, nullptr, "convert_dwg_dxf"},
    {8, ";dxf;dwg;", ";dxf;", K::kDwgDxf, nullptr, "convert_dwg_dxf"},
    // Before the 3D rows: an STL to DXF is a flat drawing of its faces, not a 3D export.
    {9, ";stl;", ";dxf;", K::kRoutine, convert_stl2dxf, "convert_stl2dxf"},
    {10, ";dgn;shp;", ";dxf;", K::kRoutine, convert_dgn_shp2dxf, "convert_dgn_shp2dxf"},
    {11, ";dgn;dxf;tab;" GIS_LIST, ";shp;", K::kRoutine, convert_dgn_dxf2shp,
     "convert_dgn_dxf2shp"},
    {12, ";dxf;shp;tab;" GIS_LIST, ";dgn;", K::kRoutine, convert_dxf_shp2dgn,
     "convert_dxf_shp2dgn"},
    {13, THREE_D_1 THREE_D_2, ";stl;stp;", K::kRoutine, convert_3d_stl, "convert_3d_stl"},
    {14, THREE_D_1 THREE_D_2, VECTOR_TARGETS, K::kRoutine, convert_3d_vec, "convert_3d_vec"},
    {15, ";sk1;cmx;cdr;svg;svgz;vsd;vss;vdx;vsdm;vsdx;", ";svg;", K::kSvgViaPdf, nullptr,
     "vec2adobe+adobe2vec"},
    {16, ";txt;prt;001;", ";pdf;", K::kRoutine, text2pdf, "text2pdf"},
    {17, GERBER VECTOR_SOURCES_ROW17, ";stl;", K::kRoutine, vec2stl, "vec2stl"},
    {18, ";oxps;xps;pdf;eps;ps;001;", ";stl;", K::kRoutine, adobe2stl, "adobe2stl"},
    {19, ";ai;", ";stl;", K::kRoutine, ai2stl, "ai2stl"},
    // Takes every drawing to drawing pair before the SVG-specific rows below.
    {20, GERBER GIS_LIST VECTOR_SOURCES_ROW20, VECTOR_TARGETS, K::kRoutine, vec2vec, "vec2vec"},
    {21, ";gif;", ";webp;", K::kRoutine, gif2webp, "gif2webp"},
    {22, ";ai;pdf;eps;ps;001;", ";swf;", K::kRoutine, pdf2swf, "pdf2swf"},
    // Before row 24: PDF to PDF keeps its pages apart when asked to.
    {23, ";pdf;001;", ";pdf;", K::kPdfMode, pdf2pdf, "pdf2pdf"},
    {24, ";ai;pdf;eps;ps;epi;001;", ";ai;pdf;eps;ps;epi;", K::kPdfMode, adobe, "adobe"},
    {25, ";oxps;xps;pdf;eps;ps;001;", VECTOR_TARGETS, K::kRoutine, adobe2vec, "adobe2vec"},
    {26, ";ai;", VECTOR_TARGETS, K::kRoutine, ai2vec, "ai2vec"},
    {27, ";nva;", ";pdf;", K::kRoutine, nva2pdf, "nva2pdf"},
    {28, ";oxps;xps;", ";pdf;", K::kRoutine, convert_xps_pdf, "convert_xps_pdf"},
    {29, ";doc;docx;rtf;", ";pdf;", K::kRoutine, doc2pdf, "doc2pdf"},
    {30, ";doc;docx;rtf;", ";eps;ps;", K::kRoutine, doc2eps_ps, "doc2eps_ps"},
    {31, ";doc;docx;rtf;", VECTOR_TARGETS, K::kRoutine, doc2vec, "doc2vec"},
    {32, GIS_LIST GERBER VECTOR_SOURCES, ";pdf;eps;ps;ai;", K::kVec2AdobeMode0, Vec2AdobeMode0,
     "vec2adobe"},
    {33, ";svg;svgz;", ";swf;", K::kRoutine, svg2swf, "svg2swf"},
    {34, GIS_LIST GERBER VECTOR_SOURCES, ";swf;", K::kRoutine, vec2swf, "vec2swf"},
    {35, ";cal;", ";pdf;", K::kRoutine, cal2pdf, "cal2pdf"},
    {36, ";pages;", VECTOR_TARGETS, K::kRoutine, pages2vec, "pages2vec"},
    {37, ";pages;", ";ai;pdf;eps;ps;epi;", K::kRoutine, pages2adobe, "pages2adobe"},
    {38, ";svs;", RASTER_TARGETS, K::kRoutine, convert_svs, "convert_svs"},
    {39, ";psb;", RASTER_TARGETS, K::kRoutine, convert_psb, "convert_psb"},
    {40, ";exr;hdr;", ";tif;png;", K::kRoutine, convert_exr, "convert_exr"},
    {41, ";scn;", RASTER_TARGETS, K::kRoutine, convert_scn, "convert_scn"},
    {42, ";vsi;", RASTER_TARGETS, K::kRoutine, convert_vsi, "convert_vsi"},
    {43, CAMERA_RAW, ";fits;", K::kRoutine, raw2fits, "raw2fits"},
    {44, ";dcm;", ";fits;", K::kRoutine, i_magick, "i_magick"},
    {45, ";fit;fits;fts;", ";tif;", K::kRoutine, i_magick, "i_magick"},
    {46, ";svg;", ";png;", K::kRoutine, svg2png, "svg2png"},
};

static_assert(std::size(kRows) == 46);

}  // namespace

const std::string_view kVectorTargets = VECTOR_TARGETS;
const std::string_view kGisList = GIS_LIST;
const std::string_view kRasterTargets = RASTER_TARGETS;

std::span<const DirectRow> DirectRows() {
  return kRows;
}

const DirectRow* FindDirectRow(std::string_view src_tag, std::string_view dest_tag) {
  for (const DirectRow& row : kRows)
    if (row.sources.find(src_tag) != std::string_view::npos &&
        row.targets.find(dest_tag) != std::string_view::npos)
      return &row;
  return nullptr;
}

}  // namespace pictavo::direct
