#include "pipeline/routing.h"

#include <array>
#include <filesystem>
#include <fstream>

#include "engine/tools/probes.h"
#include "imaging/format_sniff.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::pipeline {
namespace {

using platform::AsciiLower;

constexpr std::string_view kRawAndPostScript =
    ";cr3;ai;eps;ps;pdf;ari;obm;3fr;cap;dcs;drf;eip;iiq;ptx;pxn;r3d;rwl;rwz;srw;cine;mef;qtk;rw2;"
    "arw;bay;bmq;cr2;crw;cs1;dc2;dcr;dng;erf;ia;k25;kc2;mdc;mos;mrw;nef;pef;pxn;raf;raw;rdc;sr2;"
    "srf;x3f;sti;fff;tif;iiq;";
// GIS, Gerber and vector drawing sources: the sources the direct dispatcher converts as drawings.
constexpr std::string_view kGisGerber =
    ";tab;e00;bna;geojson;json;gxt;gmt;gtm;gtz;rec;000;ntf;gpx;kml;gml;kmz;fit;shp;"
    "gbp;gpb;gko;gm2;gbo;gtp;gml;gm1;gbr;gbx;art;sol;stc;sts;plc;pls;drd;top;bot;smt;smb;sst;ssb;"
    "tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;"
    ";tab;sk1;stl;cdr;vsd;vss;vdx;vsdm;vsdx;e00;wmz;cgm;cmx;dgn;drw;dxf;dwg;dwf;dwfx;shp;gbr;gbs;"
    "pct;mif;nap;plt;pcl;svg;svgz;wpg;emf;wmf;hpg;hpgl;hp2;";
constexpr std::string_view k3dA =
    ";3d;3ds;ac;ac3d;acc;ase;ask;b3d;blend;bvh;cob;cms;dae;enff;fbx;hmp;ifc;ifczip;irr;irrmesh;"
    "lwo;lws;lxo;md2;md3;md5anim;md5camera;md5mesh;mdc;mdl;mesh;mot;ms3d;ndo;nff;obj;off;pk3;ply;"
    "prj;q3o;q3s;scn;smd;stl;";
constexpr std::string_view k3dB = ";ter;uc;vta;x;xgl;zgl;3mf;amj;ogex;pmx;sib;stp;step;x3d;glb;";
constexpr std::string_view kVectorTargetsGis =
    ";wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;pct;mif;plt;pcl;svg;wpg;emf;wmf;svg;";
constexpr std::string_view kVectorTargetsDoc =
    ";wmz;cgm;dgn;drw;dxf;dwg;dwf;shp;gbr;pct;mif;plt;pcl;svg;wpg;emf;wmf;hpg;hp2;stl;";
constexpr std::string_view kRasterTargets = ";tif;png;jpg;";
// Types that are never taken for a misnamed raster file, whatever their bytes look like.
constexpr std::string_view kSpecialTypes = ";scn;xps;oxps;svs;vsi;psb;dcm;cal;dat;";

struct PairRow {
  std::string_view sources;
  std::string_view targets;
};

// First match wins; the order is the order in which the pairs were found to be worth it.
constexpr std::array<PairRow, 11> kDirectPairs = {{
    {kGisGerber, kVectorTargetsGis},
    {";txt;prt;001;", ";pdf;"},
    {";gif;", ";webp;"},
    {";pages;ai;pdf;eps;ps;001;", ";swf;"},
    {";pages;ai;pdf;eps;ps;epi;001;", ";ai;pdf;eps;ps;epi;"},
    {";pages;ai;oxps;xps;pdf;eps;ps;001;", kVectorTargetsDoc},
    {";nva;", ";pdf;"},
    {";oxps;xps;", ";pdf;"},
    {";doc;docx;rtf;", ";pdf;"},
    {";doc;docx;rtf;", kVectorTargetsDoc},
    {kGisGerber, ";pdf;eps;ps;ai;swf;"},
}};

bool IsEngineRasterType(imaging::TIOFileType t) {
  using imaging::TIOFileType;
  switch (t) {
    case TIOFileType::ioTIFF:
    case TIOFileType::ioGIF:
    case TIOFileType::ioJPEG:
    case TIOFileType::ioPCX:
    case TIOFileType::ioBMP:
    case TIOFileType::ioICO:
    case TIOFileType::ioPNG:
    case TIOFileType::ioPBM:
    case TIOFileType::ioPGM:
    case TIOFileType::ioPPM:
    case TIOFileType::ioPAM:
    case TIOFileType::ioJP2:
    case TIOFileType::ioJ2K:
      return true;
    default:
      // TGA has no magic bytes: a plausible header says too little to overrule an extension.
      return false;
  }
}

imaging::TIOFileType SniffFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::array<uint8_t, 32> head{};
  in.read(reinterpret_cast<char*>(head.data()), head.size());
  return imaging::SniffFormat(head.data(), static_cast<size_t>(in.gcount()));
}

// The side file of a VSI slide: "<folder>/_<name>_/stack10001/frame_t.ets".
bool VsiSideFileExists(const std::string& source) {
  std::filesystem::path p(source);
  std::filesystem::path side =
      p.parent_path() / ("_" + p.stem().string() + "_") / "stack10001" / "frame_t.ets";
  return platform::FileExists(side.string());
}

}  // namespace

std::string TypeTag(std::string_view path) {
  std::string ext = std::filesystem::path(std::string(path)).extension().string();
  if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
  return ";" + AsciiLower(ext) + ";";
}

std::string TargetTag(std::string_view ext) {
  if (!ext.empty() && ext.front() == '.') ext.remove_prefix(1);
  return ";" + AsciiLower(ext) + ";";
}

bool InList(std::string_view tag, std::string_view list) {
  return list.find(tag) != std::string_view::npos;
}

Route DecideRoute(const std::string& source, const settings::TMainSettings& s, bool check_only) {
  Route r;
  r.source_tag = TypeTag(source);
  r.target_tag = TargetTag(s.main.dest_ext);
  if (r.target_tag == ";svgz;") r.target_tag = ";svg;";  // compressed SVG is routed as SVG
  const std::string& tgt = r.target_tag;
  r.raw_or_postscript = InList(r.source_tag, kRawAndPostScript);
  if (check_only) return r;

  if (r.source_tag == ";dat;" && tools::IsPostScript(source)) r.source_tag = ";ps;";
  const std::string& src = r.source_tag;

  if (s.raw_read.bits16 && InList(src, kCameraRawList)) r.read_16bit = true;

  if (!s.exr_hdr.true_color && InList(src, ";hdr;exr;") && InList(tgt, ";tif;tiff;png;")) {
    r.read_16bit = true;
    r.keep_hdr = true;
    r.direct = true;
  }

  r.misnamed_raster = !InList(src, k3dA) && !InList(src, k3dB) && !InList(src, kSpecialTypes) &&
                      !InList(src, kEngineRasterList) && IsEngineRasterType(SniffFile(source));
  if (!r.misnamed_raster) {
    for (const PairRow& row : kDirectPairs) {
      if (InList(src, row.sources) && InList(tgt, row.targets)) {
        r.direct = true;
        break;
      }
    }
  }

  // Pairs that hold whatever the table above said.
  auto pair = [&](std::string_view sources, std::string_view targets) {
    return InList(src, sources) && InList(tgt, targets);
  };
  if ((InList(src, k3dA) || InList(src, k3dB)) && InList(tgt, ";stl;dwg;dxf;stp;")) r.direct = true;
  if (pair(";scn;", kRasterTargets) && s.scn.level < 5 &&
      tools::FindCount(source, "MIME-Version", false) <= 0)
    r.direct = true;
  if (pair(";svs;", kRasterTargets) && s.svs.level < 2) r.direct = true;
  if (pair(";vsi;", kRasterTargets) && VsiSideFileExists(source)) r.direct = true;
  if (pair(";oxps;xps;pdf;eps;ps;001;ai;", ";stl;")) r.direct = true;
  if (pair(";psd;", ";svg;") && s.svg.raster && s.psd.load_layers) r.direct = true;
  if (pair(";svs;psb;", kRasterTargets)) r.direct = true;
  if (pair(";dcm;", ";fits;")) r.direct = true;
  if (pair(";dxf;dwg;", ";stl;")) r.direct = true;
  if (pair(kCameraRawList, ";fits;")) r.direct = true;
  if (pair(";cal;", ";pdf;") && tools::FindCount(source, "AC", false) > 0) r.direct = true;

  // Vetoes, in order.
  if (tgt == ";pcl;") r.direct = false;
  // A PDF whose pages hold pictures cannot become a drawing: it goes through the bitmap route.
  if (r.direct && src == ";pdf;" && InList(tgt, kVectorTargetsDoc) && tools::PdfHasImages(source))
    r.direct = false;
  if (s.gbr.raster && tgt == ";gbr;") r.direct = false;
  if (s.pdf_write.create_searchable_pdf && tgt == ";pdf;") r.direct = false;
  if (src != ";psd;" && tgt == ";svg;" && s.svg.raster) r.direct = false;
  if (s.vec.rasterize_vector && !(src == ";dwf;" && tgt == ";pdf;")) r.direct = false;
  if (s.gbr.type == 1 && tgt == ";gbr;") r.direct = false;
  return r;
}

}  // namespace pictavo::pipeline
