// GIS datasets through ogrinfo's summary of every layer.
#include "engine/tools/tool_paths.h"
#include "verify/readers.h"

namespace pictavo::verify {

// "ogrinfo -ro -so -al -nomd": per layer, "Layer name: N", "Geometry: G" (or "Geometry (field):
// G" for a layer with several geometry fields; the first is kept) and "Feature Count: C".
void ReadGisByOgr(const Source& src, Content& out) {
  out.known = true;
  const ToolReport r =
      RunTool(src, "ogr/ogrinfo.exe", "-ro -so -al -nomd " + tools::Quoted(src.file));
  if (!r.present) return;
  if (r.exit_code != 0) {
    // GDAL reports errors on standard error, but "FAILURE: Unable to open" on standard output.
    std::string why = FirstMessageLine(r.err);
    if (why.empty()) why = FirstMessageLine(r.out);
    if (why.empty()) why = "cannot open the dataset";
    // "... with the following drivers." is followed by a list of every driver: not for the log.
    if (const size_t list = why.find(" with the following drivers"); list != std::string::npos)
      why.erase(list);
    out.opened = Status::Error("ogrinfo: " + why);
    return;
  }
  LayerCount* layer = nullptr;
  bool geometry_seen = false;
  for (size_t at = 0; at < r.out.size();) {
    size_t end = r.out.find('\n', at);
    if (end == std::string::npos) end = r.out.size();
    const std::string_view line = TrimBlanks(std::string_view(r.out).substr(at, end - at));
    at = end + 1;
    if (line.starts_with("Layer name:")) {
      out.layers.push_back(LayerCount{std::string(TrimBlanks(line.substr(11))), 0, std::string()});
      layer = &out.layers.back();
      geometry_seen = false;
    } else if (!layer) {
      continue;
    } else if (line.starts_with("Geometry") && !geometry_seen) {
      const size_t colon = line.find(':');
      if (colon == std::string_view::npos) continue;
      layer->geometry = std::string(TrimBlanks(line.substr(colon + 1)));
      geometry_seen = true;
    } else if (line.starts_with("Feature Count:")) {
      layer->features = LeadingInteger(line.substr(14)).value_or(-1);
    }
  }
}

}  // namespace pictavo::verify
