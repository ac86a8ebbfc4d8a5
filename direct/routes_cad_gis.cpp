// CAD and GIS: DXF, DWG (read only, through GDAL's CAD driver), DGN v7, shapefiles, MapInfo and
// the other formats that GDAL's ogr2ogr ("ogr\ogr2ogr.exe") converts; STL faces to DXF here.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/probes.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"

namespace pictavo::direct {

namespace fs = std::filesystem;
using tools::Quoted;

namespace {

constexpr char kOgr[] = "ogr\\ogr2ogr.exe";

struct Facet {
  float v[3][3];
};

// Binary STL when the size matches its triangle count; ASCII otherwise.
bool ReadStl(Path path, std::vector<Facet>& facets) {
  auto bytes = platform::ReadFileBytes(path);
  if (!bytes) return false;
  const std::string& b = *bytes;
  if (b.size() >= 84) {
    uint32_t n;
    std::memcpy(&n, b.data() + 80, 4);
    if (84 + static_cast<uint64_t>(n) * 50 == b.size()) {
      facets.resize(n);
      for (uint32_t i = 0; i < n; ++i) std::memcpy(facets[i].v, b.data() + 84 + i * 50 + 12, 36);
      return true;
    }
  }
  std::istringstream in(b);
  std::string word;
  Facet f{};
  int k = 0;
  while (in >> word) {
    if (word == "vertex") {
      if (k < 3) in >> f.v[k][0] >> f.v[k][1] >> f.v[k][2];
      ++k;
    } else if (word == "endfacet") {
      if (k >= 3) facets.push_back(f);
      k = 0;
    }
  }
  return !facets.empty();
}

}  // namespace

int32_t ogr_convert(TZubDirect& self, Path src, Path dest, const std::string& driver) {
  self.HasTool(kOgr);
  std::string cmd =
      Quoted(self.Tool(kOgr)) + " -f " + Quoted(driver) + " " + Quoted(dest) + " " + Quoted(src);
  const std::string ext = ExtOf(src);
  // A drawing mixes points, lines and areas; a shapefile holds one kind. Lines carry a drawing
  // (areas become their outlines); lone points are dropped.
  if (driver == "ESRI Shapefile" && (ext == "dxf" || ext == "dwg" || ext == "dgn"))
    cmd += " -skipfailures -nlt MULTILINESTRING";
  if (driver == "MapInfo File" && ExtOf(dest) == "mif") cmd += " -dsco FORMAT=MIF";
  return tools::RunFor(self.Job(), cmd, dest, self.Tool("ogr\\")) ? 0 : kDirectFailed;
}

int32_t convert_dwg_dxf(TZubDirect& self, Path src, Path dest, int version) {
  // GDAL writes DXF from its own R2000 template whatever the version asked for; DWG cannot be
  // written by any program on this platform.
  (void)version;
  if (ExtOf(dest) != "dxf") return NoProgram(self, "convert_dwg_dxf to " + ExtOf(dest));
  return ogr_convert(self, src, dest, "DXF");
}

int32_t convert_dwg_dxf_layers(TZubDirect& self, Path src, Path dest, int version) {
  const std::string folder = self.Scratch("");
  std::error_code ec;
  fs::create_directories(folder, ec);
  const std::string whole = folder + platform::kPathDelim + "rcp123.dxf";
  if (convert_dwg_dxf(self, src, whole, 4) != 0) {
    tools::RemovePath(folder);
    return kDirectNoRoute;
  }
  const std::vector<std::string> layers = tools::ListDxfLayers(whole);
  const std::string out_ext = "." + ExtOf(dest);
  int32_t status = kDirectFailed;
  int index = 0;
  for (const std::string& layer : layers) {
    const std::string layer_file = self.Scratch(".dxf");
    const std::string cmd = Quoted(self.Tool(kOgr)) + " -f " + Quoted("dxf") + " " +
                            Quoted(layer_file) + " " + Quoted(whole) + " -sql " +
                            Quoted("SELECT * FROM entities WHERE layer = '" + layer + "'");
    tools::RunFor(self.Job(), cmd, layer_file, self.Tool("ogr\\"));
    const std::string out = index == 0 ? dest : self.Scratch(out_ext);
    ++index;
    if (tools::Produced(layer_file) && convert_dwg_dxf(self, layer_file, out, version) == 0) {
      self.more_files.push_back({out, index});
      status = 0;
    }
    tools::RemovePath(layer_file);
  }
  self.counter = static_cast<int>(self.more_files.size());
  tools::RemovePath(folder);
  return status;
}

int32_t convert_stl2dxf(TZubDirect&, Path src, Path dest) {
  // Each facet becomes a 3DFACE of an R12 drawing, which every DXF reader understands.
  std::vector<Facet> facets;
  if (!ReadStl(src, facets)) return kDirectFailed;
  std::ostringstream d;
  d << "0\nSECTION\n2\nHEADER\n9\n$ACADVER\n1\nAC1009\n0\nENDSEC\n0\nSECTION\n2\nENTITIES\n";
  for (const Facet& f : facets) {
    d << "0\n3DFACE\n8\n0\n";
    for (int k = 0; k < 4; ++k) {
      const float* v = f.v[k < 3 ? k : 2];  // a triangle repeats its last corner
      d << 10 + k << '\n'
        << v[0] << '\n'
        << 20 + k << '\n'
        << v[1] << '\n'
        << 30 + k << '\n'
        << v[2] << '\n';
    }
  }
  d << "0\nENDSEC\n0\nEOF\n";
  return platform::WriteFileAtomic(dest, d.str()).ok() ? 0 : kDirectFailed;
}

int32_t convert_dgn_shp2dxf(TZubDirect& self, Path src, Path dest) {
  return ogr_convert(self, src, dest, "DXF");
}

int32_t convert_dgn_dxf2shp(TZubDirect& self, Path src, Path dest) {
  return ogr_convert(self, src, dest, "ESRI Shapefile");
}

int32_t convert_dxf_shp2dgn(TZubDirect& self, Path src, Path dest) {
  return ogr_convert(self, src, dest, "DGN");
}

}  // namespace pictavo::direct
