// What a result file holds, told cheaply: header fields and counts, never a full decode where the
// format allows one to be avoided. The engine uses it to refuse results that are empty, blank or
// short of their source's content.
//
// Thread safety: every function may be called from several workers at once; tools run through
// the runner (engine/tools/runner.h) and their reports go to scratch files of their own.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "platform/status.h"

namespace pictavo::verify {

struct LayerCount {
  std::string name;
  int64_t features = 0;
  // As the reader names it: "Point", "Line String", "Polygon", "Unknown (any)"... for GIS layers
  // (ogrinfo's words); empty for DXF layers.
  std::string geometry;
};

struct Content {
  // OK when a reader for the type opened the file; otherwise why not, in words a user
  // understands ("not a DXF file: no SECTION", "cut short: no %%EOF at the end").
  pictavo::Status opened;
  // False when there is no reader for the type here: the caller then trusts existence.
  bool known = false;
  // PDF and PostScript pages (an EPS is one); frames or pages of a raster; SVG 1; -1 when not
  // applicable or not told.
  int pages = -1;
  // Rasters: the first picture's size.
  int width = -1, height = -1;
  // Drawing content, -1 when not told:
  //   DXF:   entities of the ENTITIES section, plus those of every block that an INSERT there
  //          reaches (directly or through nested blocks), each block counted once however often
  //          it is inserted. VERTEX, SEQEND and ATTRIB (parts of a parent) and ATTDEF
  //          (attribute templates) are not counted.
  //   SVG:   path, rect, circle, ellipse, line, polyline, polygon, text, image and use elements
  //          outside what is not drawn by itself (defs, symbol, clipPath, mask, marker, pattern,
  //          metadata, foreignObject, title).
  //   HP-GL: draw commands: PD, PA, PR with coordinates while the pen is down, arcs, circles,
  //          rectangles, wedges, polygons (EP, FP), encoded polylines and non-empty labels.
  //   EMF:   drawing records (lines, curves, shapes, text, bitmaps); for a file with EMF+
  //          records, the larger of the GDI and the EMF+ drawing counts (a dual file holds the
  //          same drawing twice).
  //   WMF:   drawing records.
  int64_t entities = -1;
  // 3D: faces as the file stores them (STL: triangles; OBJ: "f" lines; PLY, OFF: the header's
  // face count); other model formats through assimp's raw import ("assimp info FILE -r"), which
  // also counts faces as stored. -1 when not told.
  int64_t faces = -1;
  // GIS datasets: every layer with its feature count, as ogrinfo reports them. DXF: the
  // entities of the ENTITIES section by their layer (group 8), in order of first use; entities
  // inside blocks are not in these counts.
  std::vector<LayerCount> layers;
};

// Inspects `file` read as type `ext` (a bare extension such as "pdf"; case does not matter).
// `tool_folder` is the engine's tool folder with a trailing delimiter; the readers that need a
// program run it from there ("pdfinfo.bin" for PDFs whose page tree the file does not show
// plainly, "ogr/ogrinfo.exe" for GIS datasets, "assimp64/assimp.exe" for model formats without
// an own reader). A missing tool leaves the counts at -1 with `opened` OK: the file is not
// refused for a tool this machine lacks. Scratch reports go to `temp_folder` and are removed.
// An unknown type gives known = false, opened OK when the file exists and is not empty. A GIS
// dataset may be a folder; any other type must be a non-empty regular file. Never throws.
// The tools run under `job` (time-outs, stop flag); null = the process's context.
Content Inspect(const std::string& file, const std::string& ext, const std::string& tool_folder,
                const std::string& temp_folder, const tools::JobContext* job = nullptr);

// True when every pixel of the first picture of a raster file that the imaging engine reads is
// the same colour, within `tolerance` per 8-bit channel (alpha included; a picture whose pixels
// are all transparent is uniform whatever colours hide under them): a blank tool failure. This
// one decodes the picture, so callers use it only behind tool routes. False when the file cannot
// be read.
bool RasterIsUniform(const std::string& file, int tolerance = 2);

}  // namespace pictavo::verify
