#include "read/routes_drawings.h"

#include <algorithm>
#include <cfloat>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "engine/tools/runner.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

int Zoom(const TZubRead& r) {
  return r.settings && r.settings->vector.zoom > 0 ? r.settings->vector.zoom : 100;
}

// ---- Well-known text drawn in-process ----

struct Point {
  double x, y;
};

struct Shape {
  std::vector<Point> points;
  bool dots;  // POINT and MULTIPOINT: every point a dot, no lines between them
};

// Every innermost parenthesised list of a WKT geometry becomes one shape; nesting (polygons,
// multi-geometries, collections) only groups them.
void ParseWkt(const std::string& wkt, std::vector<Shape>& shapes) {
  std::string keyword;
  std::vector<Point> current;
  std::vector<double> tuple;
  bool collecting = false;
  auto end_tuple = [&] {
    if (tuple.size() >= 2 && std::isfinite(tuple[0]) && std::isfinite(tuple[1]))
      current.push_back({tuple[0], tuple[1]});
    tuple.clear();
  };
  const char* s = wkt.c_str();
  for (size_t i = 0; i < wkt.size();) {
    const char c = s[i];
    if (std::isalpha(static_cast<unsigned char>(c))) {
      size_t j = i;
      while (j < wkt.size() && std::isalpha(static_cast<unsigned char>(s[j]))) ++j;
      std::string word = platform::AsciiLower(wkt.substr(i, j - i));
      if (word != "z" && word != "m" && word != "zm" && word != "empty") keyword = word;
      i = j;
    } else if (c == '(') {
      current.clear(), tuple.clear();
      collecting = true;
      ++i;
    } else if (c == ',') {
      end_tuple();
      ++i;
    } else if (c == ')') {
      end_tuple();
      if (collecting && !current.empty())
        shapes.push_back({current, keyword == "point" || keyword == "multipoint"});
      current.clear();
      collecting = false;
      ++i;
    } else if (collecting &&
               (std::isdigit(static_cast<unsigned char>(c)) || c == '-' || c == '+' || c == '.')) {
      char* end = nullptr;
      tuple.push_back(std::strtod(s + i, &end));
      i = end > s + i ? static_cast<size_t>(end - s) : i + 1;
    } else {
      ++i;
    }
  }
}

// Reads the geometry column of a CSV file written by GDAL with GEOMETRY=AS_WKT: the first field
// of every record, quoted. Other fields may hold quoted line breaks, so records are found by
// following the quotes.
void ReadWktCsv(const std::string& file, std::vector<Shape>& shapes) {
  const auto bytes = platform::ReadFileBytes(file);
  if (!bytes || bytes->compare(0, 3, "WKT") != 0) return;
  const std::string& t = *bytes;
  size_t pos = t.find('\n');
  while (pos != std::string::npos && ++pos < t.size()) {
    if (t[pos] == '"') {
      const size_t close = t.find('"', pos + 1);
      if (close == std::string::npos) return;
      ParseWkt(t.substr(pos + 1, close - pos - 1), shapes);
      pos = close + 1;
    }
    bool quoted = false;
    while (pos < t.size() && (quoted || t[pos] != '\n')) {
      if (t[pos] == '"') quoted = !quoted;
      ++pos;
    }
    if (pos >= t.size()) break;
  }
}

// Draws with a square pen of `pen` pixels (Bresenham's walk, the pen stamped at every step).
void DrawLine(imaging::TIEBitmap& bmp, int x0, int y0, int x1, int y1, int pen) {
  const int dx = std::abs(x1 - x0), sx = x0 < x1 ? 1 : -1;
  const int dy = -std::abs(y1 - y0), sy = y0 < y1 ? 1 : -1;
  int err = dx + dy;
  for (;;) {
    bmp.FillRect(x0 - pen / 2, y0 - pen / 2, pen, pen, 0x000000);
    if (x0 == x1 && y0 == y1) break;
    const int e2 = 2 * err;
    if (e2 >= dy) err += dy, x0 += sx;
    if (e2 <= dx) err += dx, y0 += sy;
  }
}

int DrawShapes(TZubRead& r, const std::vector<Shape>& shapes) {
  double min_x = DBL_MAX, min_y = DBL_MAX, max_x = -DBL_MAX, max_y = -DBL_MAX;
  for (const Shape& s : shapes)
    for (const Point& p : s.points) {
      min_x = std::min(min_x, p.x), max_x = std::max(max_x, p.x);
      min_y = std::min(min_y, p.y), max_y = std::max(max_y, p.y);
    }
  if (min_x > max_x) return 1;  // nothing with coordinates
  const int side = std::clamp(1000 * Zoom(r) / 100, 16, 12000);
  const int margin = side / 50 + 2;
  const int pen = std::max(1, side / 500);
  const double span = std::max(max_x - min_x, max_y - min_y);
  const double scale = span > 0 ? (side - 2 * margin) / span : 1.0;
  const int w = static_cast<int>(std::lround((max_x - min_x) * scale)) + 2 * margin;
  const int h = static_cast<int>(std::lround((max_y - min_y) * scale)) + 2 * margin;
  imaging::TIEBitmap bmp;
  bmp.SetLimits(r.picture_limits);
  if (!bmp.Allocate(w, h, imaging::TIEPixelFormat::ie24RGB).ok()) return 1;
  bmp.Fill(0xFFFFFF);
  auto px = [&](const Point& p) {
    return static_cast<int>(std::lround((p.x - min_x) * scale)) + margin;
  };
  auto py = [&](const Point& p) {
    return static_cast<int>(std::lround((max_y - p.y) * scale)) + margin;
  };
  for (const Shape& s : shapes) {
    if (s.dots || s.points.size() == 1) {
      for (const Point& p : s.points)
        bmp.FillRect(px(p) - 2 * pen, py(p) - 2 * pen, 4 * pen + 1, 4 * pen + 1, 0x000000);
      continue;
    }
    for (size_t i = 1; i < s.points.size(); ++i)
      DrawLine(bmp, px(s.points[i - 1]), py(s.points[i - 1]), px(s.points[i]), py(s.points[i]),
               pen);
  }
  imaging::TImageEnIO io(&bmp, r.hand_over);
  return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
}

// "file:///a%20b/c": the form LibreOffice wants for its profile folder.
std::string FileUrl(const std::string& path) {
  std::string url = "file://";
  for (char c : fs::absolute(path).generic_string()) {
    if (c == ' ')
      url += "%20";
    else if (c == '%')
      url += "%25";
    else
      url += c;
  }
  return url;
}

}  // namespace

int ReadGisOrCad(TZubRead& r) {
  if (!HasTool(r, "ogr/ogr2ogr.exe")) return 1;
  Scratch csv(r, "");
  // Curves become polylines; Z and M are dropped; a feature GDAL cannot convert is skipped
  // rather than ending the layer.
  tools::RunTool(r.Job(), ToolArg(r, "ogr/ogr2ogr.exe") + " -f CSV -lco GEOMETRY=AS_WKT -dim XY" +
                              " -nlt CONVERT_TO_LINEAR -skipfailures " +
                              platform::Quoted(csv.path()) + " " + platform::Quoted(r.src_file));
  std::vector<Shape> shapes;
  std::error_code ec;
  if (fs::is_directory(csv.path(), ec)) {
    for (const std::string& file : ListFiles(csv.path(), false)) ReadWktCsv(file, shapes);
  } else {
    ReadWktCsv(csv.path(), shapes);
  }
  return DrawShapes(r, shapes);
}

int ReadHpgl(TZubRead& r) {
  if (!HasTool(r, "hp2xx.bin")) return 1;
  Scratch eps(r, ".eps");
  Scratch swap(r, ".swp");  // hp2xx's own swap file, otherwise made in the current folder
  tools::RunTool(r.Job(), ToolArg(r, "hp2xx.bin") + " -q -m eps -s " +
                              platform::Quoted(swap.path()) + " -f " +
                              platform::Quoted(eps.path()) + " " + platform::Quoted(r.src_file));
  return tools::Produced(eps.path()) ? RenderPostScript(r, eps.path(), 100, true) : 1;
}

int ReadGerber(TZubRead& r) {
  if (!HasTool(r, "gerbv.bin")) return 1;
  Scratch png(r, ".png");
  int dpi = r.settings && r.settings->pdf_eps_ps.res > 0 ? r.settings->pdf_eps_ps.res : 300;
  dpi = std::clamp(dpi * Zoom(r) / 100, 10, 2400);
  const std::string cmd =
      ToolArg(r, "gerbv.bin") + " --export=png --dpi=" + std::to_string(dpi) +
      " --background=#FFFFFF --foreground=#000000FF --output=" + platform::Quoted(png.path()) +
      " " + platform::Quoted(r.src_file);
  return RunThenSave(r, "gerbv.bin", cmd, png.path());
}

int ReadEmf(TZubRead& r) {
  if (!HasTool(r, "emf2svg.bin") || !HasTool(r, "rsvg-convert.bin")) return 1;
  Scratch svg(r, ".svg");
  tools::RunTool(r.Job(), ToolArg(r, "emf2svg.bin") + " -i " + platform::Quoted(r.src_file) +
                              " -o " + platform::Quoted(svg.path()));
  if (!tools::Produced(svg.path())) return 1;
  Scratch png(r, ".png");
  const std::string zoom = std::to_string(Zoom(r) / 100.0);
  return RunThenSave(r, "rsvg-convert.bin",
                     ToolArg(r, "rsvg-convert.bin") + " -z " + zoom + " -b white -f png -o " +
                         platform::Quoted(png.path()) + " " + platform::Quoted(svg.path()),
                     png.path());
}

int ReadWmfThroughEps(TZubRead& r) {
  if (!HasTool(r, "wmf2eps.bin")) return 1;
  Scratch eps(r, ".eps");
  tools::RunTool(r.Job(), ToolArg(r, "wmf2eps.bin") + " --eps -o " + platform::Quoted(eps.path()) +
                              " " + platform::Quoted(r.src_file));
  return tools::Produced(eps.path()) ? RenderPostScript(r, eps.path(), 100, true) : 1;
}

int ReadWithInkscape(TZubRead& r) {
  if (!HasTool(r, "inkscape.bin")) return 1;
  Scratch png(r, ".png");
  const std::string cmd = ToolArg(r, "inkscape.bin") + " " + platform::Quoted(r.src_file) +
                          " --export-type=png --export-background=white"
                          " --export-background-opacity=1 --export-dpi=" +
                          std::to_string(std::clamp(96 * Zoom(r) / 100, 10, 2400)) +
                          " --export-filename=" + platform::Quoted(png.path());
  return RunThenSave(r, "inkscape.bin", cmd, png.path());
}

int ReadOffice(TZubRead& r) {
  if (!HasTool(r, "soffice.bin")) return 1;
  // A profile per call: two LibreOffice instances sharing one profile refuse to start.
  Scratch work(r, "");
  std::error_code ec;
  const std::string profile = work.path() + platform::kPathDelim + "profile";
  const std::string outdir = work.path() + platform::kPathDelim + "pdf";
  fs::create_directories(profile, ec);
  fs::create_directories(outdir, ec);
  const std::string cmd = ToolArg(r, "soffice.bin") +
                          " -env:UserInstallation=" + platform::Quoted(FileUrl(profile)) +
                          " --headless --norestore --nolockcheck --convert-to pdf --outdir " +
                          platform::Quoted(outdir) + " " + platform::Quoted(r.src_file);
  tools::RunAndWaitTimeout(r.Job(), cmd, tools::kHidden, work.path(), 0);
  for (const std::string& file : ListFiles(outdir, false))
    if (platform::LowerExtension(file) == ".pdf" && tools::Produced(file))
      return RenderPostScript(r, file, 100, false);
  return 1;
}

}  // namespace pictavo::reader
