// 3D models rendered to a picture: assimp converts any model it knows (STEP solids meshed by the
// tool folder's STEP converter first) to a binary STL, the triangles become a POV-Ray scene
// written here, and POV-Ray renders it on white. "STL_read" gives the view angles; with several
// frames the angles run from their "from" to their "to" values over the frames, one page each.
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <memory>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace {

struct Vec3 {
  float x, y, z;
};

// Binary STL: an 80-byte header, a triangle count, then 50 bytes per triangle (normal, three
// corners, attribute word), little-endian floats.
bool ReadBinaryStl(const std::string& file, std::vector<Vec3>& corners) {
  const auto bytes = platform::ReadFileBytes(file);
  if (!bytes || bytes->size() < 84) return false;
  uint32_t count = 0;
  std::memcpy(&count, bytes->data() + 80, 4);
  if (count == 0 || 84 + static_cast<uint64_t>(count) * 50 > bytes->size()) return false;
  corners.reserve(static_cast<size_t>(count) * 3);
  for (uint32_t t = 0; t < count; ++t) {
    const char* p = bytes->data() + 84 + static_cast<size_t>(t) * 50 + 12;
    for (int c = 0; c < 3; ++c, p += 12) {
      Vec3 v;
      std::memcpy(&v.x, p, 4);
      std::memcpy(&v.y, p + 4, 4);
      std::memcpy(&v.z, p + 8, 4);
      if (!std::isfinite(v.x) || !std::isfinite(v.y) || !std::isfinite(v.z)) return false;
      corners.push_back(v);
    }
  }
  return true;
}

std::string Num(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.6g", v);
  return buf;
}

std::string Vec(double x, double y, double z) {
  return "<" + Num(x) + "," + Num(y) + "," + Num(z) + ">";
}

// The scene: the model centred on the origin, its Z axis up (STL's convention), turned by the
// view angles, seen from above front right (so a cube shows three faces) at a distance that
// keeps all of it in the picture.
bool WriteScene(const std::string& path, const std::vector<Vec3>& corners, double ax, double ay,
                double az) {
  Vec3 lo = corners[0], hi = corners[0];
  for (const Vec3& v : corners) {
    lo = {std::min(lo.x, v.x), std::min(lo.y, v.y), std::min(lo.z, v.z)};
    hi = {std::max(hi.x, v.x), std::max(hi.y, v.y), std::max(hi.z, v.z)};
  }
  const double cx = (lo.x + hi.x) / 2, cy = (lo.y + hi.y) / 2, cz = (lo.z + hi.z) / 2;
  double radius = 0;
  for (const Vec3& v : corners) radius = std::max(radius, std::hypot(v.x - cx, v.y - cy, v.z - cz));
  if (radius <= 0) return false;
  std::ofstream out(path, std::ios::binary);
  out << "global_settings { assumed_gamma 1.0 }\n"
      << "camera { location " << Vec(2.1 * radius, 1.8 * radius, -2.9 * radius)
      << " look_at <0,0,0> angle 40 }\n"
      << "light_source { " << Vec(-2 * radius, 3 * radius, -4 * radius) << " color rgb 1 }\n"
      << "light_source { " << Vec(3 * radius, 1 * radius, -2 * radius) << " color rgb 0.4 }\n"
      << "background { color rgb 1 }\n"
      << "mesh {\n";
  for (size_t i = 0; i + 2 < corners.size(); i += 3) {
    const Vec3 &a = corners[i], &b = corners[i + 1], &c = corners[i + 2];
    // Degenerate triangles make POV-Ray warn and skip them; leave them out here.
    if ((a.x == b.x && a.y == b.y && a.z == b.z) || (a.x == c.x && a.y == c.y && a.z == c.z) ||
        (b.x == c.x && b.y == c.y && b.z == c.z))
      continue;
    out << " triangle { " << Vec(a.x - cx, a.y - cy, a.z - cz) << ","
        << Vec(b.x - cx, b.y - cy, b.z - cz) << "," << Vec(c.x - cx, c.y - cy, c.z - cz) << " }\n";
  }
  out << " texture { pigment { color rgb <0.35,0.4,0.55> } finish { ambient 0.25 diffuse 0.7 "
         "phong 0.3 } }\n"
      << " rotate <-90,0,0> rotate " << Vec(ax, ay, az) << "\n}\n";
  return static_cast<bool>(out);
}

double Step(int from, int to, int frame, int frames) {
  return frames <= 1 ? from : from + (to - from) * static_cast<double>(frame) / frames;
}

}  // namespace

int stl_read(TZubRead& r) {
  if (!HasTool(r, "assimp64/assimp.exe") || !HasTool(r, "povray.bin")) return 1;
  // assimp does not import STEP: the solid is meshed to X3D first.
  std::string model = r.src_file;
  Scratch x3d(r, ".x3d");
  const std::string ext = platform::LowerExtension(r.src_file);
  if (ext == ".stp" || ext == ".step") {
    if (!HasTool(r, "stp/stp2x3d.exe")) return 1;
    tools::RunTool(r.Job(), ToolArg(r, "stp/stp2x3d.exe") + " " + platform::Quoted(r.src_file) +
                                " " + platform::Quoted(x3d.path()));
    if (!tools::Produced(x3d.path())) return 1;
    model = x3d.path();
  }
  Scratch stl(r, ".stl");
  tools::RunTool(r.Job(), ToolArg(r, "assimp64/assimp.exe") + " export " + platform::Quoted(model) +
                              " " + platform::Quoted(stl.path()) + " -fstlb");
  std::vector<Vec3> corners;
  if (!tools::Produced(stl.path()) || !ReadBinaryStl(stl.path(), corners)) return 1;

  const int zoom = r.settings && r.settings->vector.zoom > 0 ? r.settings->vector.zoom : 100;
  const int width = std::clamp(800 * zoom / 100, 16, 8000);
  const int height = std::clamp(600 * zoom / 100, 12, 6000);
  settings::TMainSettings::StlRead view;
  if (r.settings) view = r.settings->stl_read;
  const int frames = view.milti_frames ? std::clamp(view.frames, 1, 360) : 1;

  std::vector<std::unique_ptr<Scratch>> renders;
  std::vector<std::string> pictures;
  for (int f = 0; f < frames; ++f) {
    const double ax =
        frames > 1 && view.change_x ? Step(view.x_from, view.x_to, f, frames) : view.x;
    const double ay =
        frames > 1 && view.change_y ? Step(view.y_from, view.y_to, f, frames) : view.y;
    const double az =
        frames > 1 && view.change_z ? Step(view.z_from, view.z_to, f, frames) : view.z;
    Scratch scene(r, ".pov");
    if (!WriteScene(scene.path(), corners, ax, ay, az)) return 1;
    auto png = std::make_unique<Scratch>(r, ".png");
    tools::RunTool(r.Job(), ToolArg(r, "povray.bin") + " " + platform::Quoted("+I" + scene.path()) +
                                " " + platform::Quoted("+O" + png->path()) + " +W" +
                                std::to_string(width) + " +H" + std::to_string(height) +
                                " +FN -D +A0.3 -V -GA");
    if (tools::Produced(png->path())) pictures.push_back(png->path());
    renders.push_back(std::move(png));
  }
  return SavePictures(r, pictures);
}

}  // namespace pictavo::reader
