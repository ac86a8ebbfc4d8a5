#include "direct/result_check.h"

#include <string_view>
#include <vector>

#include "direct/zub_direct.h"
#include "platform/text_encoding.h"
#include "verify/content.h"

namespace pictavo::direct {
namespace {

// Targets that hold every page in one file.
constexpr std::string_view kManyPageTargets = ";pdf;ps;ai;tif;tiff;";
// Targets whose whole point is drawing content.
constexpr std::string_view kDrawingTargets = ";dxf;svg;svgz;emf;wmf;plt;hpg;hp2;";
// GIS datasets whose layers and features ogrinfo counts, as sources and as results.
constexpr std::string_view kGisTypes =
    ";shp;tab;mif;geojson;json;kml;kmz;gpx;gml;gpkg;e00;bna;gxt;gmt;dgn;fgb;osm;";
constexpr std::string_view k3dTargets = ";stl;obj;ply;off;dae;3ds;gltf;glb;x3d;3mf;";

bool In(std::string_view list, const std::string& tag) {
  return list.find(tag) != std::string_view::npos;
}

int64_t TotalFeatures(const std::vector<verify::LayerCount>& layers) {
  int64_t total = 0;
  for (const verify::LayerCount& l : layers) total += l.features;
  return total;
}

// The source's layers that the result lacks (by name) and that held features.
std::string MissingLayers(const std::vector<verify::LayerCount>& source,
                          const std::vector<verify::LayerCount>& result) {
  std::string names;
  for (const verify::LayerCount& s : source) {
    if (s.features == 0) continue;
    bool found = false;
    for (const verify::LayerCount& r : result)
      found = found || platform::EqualsNoCase(r.name, s.name);
    if (!found) names += (names.empty() ? "" : ", ") + s.name;
  }
  return names;
}

std::string Upper(const std::string& ext) {
  return platform::AsciiUpper(ext);
}

}  // namespace

pictavo::Status CheckDirectResult(const TZubDirect& d, const std::string& source,
                                  const std::string& result, int outputs) {
  const std::string tool_folder = d.ToolFolder();
  const verify::Content got =
      verify::Inspect(result, d.dest_ext, tool_folder, d.temp_folder, d.job);
  if (!got.opened.ok())
    return pictavo::Status::Error("the " + Upper(d.dest_ext) +
                                  " result cannot be read: " + got.opened.message());
  if (!got.known) return pictavo::Status::OK();

  const bool pages_matter = d.first_page < 0 && d.last_page < 0 &&
                            (In(kOnePageTargets, d.dest_tag) || In(kManyPageTargets, d.dest_tag));
  const bool gis_pair = In(kGisTypes, d.src_tag) && In(kGisTypes, d.dest_tag);
  const bool drawing = In(kDrawingTargets, d.dest_tag);
  const bool model = In(k3dTargets, d.dest_tag);
  if (!pages_matter && !gis_pair && !drawing && !model && !In(kGisTypes, d.dest_tag))
    return pictavo::Status::OK();

  // The source is looked at only for what the target is judged by.
  const verify::Content had = verify::Inspect(source, d.src_ext, tool_folder, d.temp_folder, d.job);
  // A document's pages are known once a routine made a PDF of it on the way.
  const int source_pages = had.pages > 0 ? had.pages : d.source_pages;
  if (pages_matter && source_pages > 1) {
    const int pages = In(kOnePageTargets, d.dest_tag) ? outputs : got.pages;
    if (pages >= 0 && pages < source_pages)
      return pictavo::Status::Error("the result had " + std::to_string(pages) + " of " +
                                    std::to_string(source_pages) + " pages");
  }
  if (!had.known || !had.opened.ok()) {
    // Nothing to compare with; still, a drawing or a dataset with nothing in it is no result.
    if (drawing && got.entities == 0)
      return pictavo::Status::Error("the " + Upper(d.dest_ext) + " result holds no drawing");
    return pictavo::Status::OK();
  }

  if (gis_pair && !had.layers.empty()) {
    const int64_t want = TotalFeatures(had.layers), have = TotalFeatures(got.layers);
    if (have < want) {
      std::string why =
          "the result has " + std::to_string(have) + " of " + std::to_string(want) + " features";
      // A target of one layer a file names its layer after the file: names tell nothing then.
      if (got.layers.size() > 1) {
        if (std::string lost = MissingLayers(had.layers, got.layers); !lost.empty())
          why += "; layers not written: " + lost;
      } else if (had.layers.size() > 1) {
        why += " and " + std::to_string(got.layers.size()) + " of " +
               std::to_string(had.layers.size()) + " layers";
      }
      return pictavo::Status::Error(why);
    }
  }
  // A source with drawing content (or one whose content this reader cannot count, as a PDF)
  // must give some; a source that is empty may give an empty result.
  const bool source_has_content = had.entities != 0 && had.faces != 0 && had.pages != 0 &&
                                  (had.layers.empty() || TotalFeatures(had.layers) > 0);
  if (drawing && got.entities == 0 && source_has_content)
    return pictavo::Status::Error("the " + Upper(d.dest_ext) +
                                  " result holds no drawing entities, though the source has "
                                  "content");
  if (In(kGisTypes, d.dest_tag) && !gis_pair && source_has_content && !got.layers.empty() &&
      TotalFeatures(got.layers) == 0)
    return pictavo::Status::Error("the " + Upper(d.dest_ext) + " result holds no features");
  if (model && got.faces == 0 && source_has_content)
    return pictavo::Status::Error("the " + Upper(d.dest_ext) + " result holds no faces");
  return pictavo::Status::OK();
}

}  // namespace pictavo::direct
