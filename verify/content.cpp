#include "verify/content.h"

#include <zlib.h>

#include <algorithm>
#include <cctype>
#include <exception>
#include <filesystem>

#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "verify/readers.h"

namespace pictavo::verify {

namespace fs = std::filesystem;

namespace {

// Which reader tells what a file of each type holds. Every extension appears once; a type with
// no row is unknown here and trusted by its existence.
struct Row {
  std::string_view extensions;  // blank-separated, lower case
  Reader read;
  std::string_view label;
};

constexpr Row kReaders[] = {
    {"pdf", ReadPdf, "PDF"},
    {"ps eps epsf epsi epi", ReadPostScript, "PostScript"},
    {"svg svgz", ReadSvg, "SVG"},
    {"dxf", ReadDxf, "DXF"},
    {"plt hpgl hpg hp2 hp", ReadHpgl, "HP-GL"},
    {"emf wmf emz wmz", ReadMetafile, "Windows metafile"},
    {"png jpg jpeg jpe jfif tif tiff gif bmp dib pcx tga ico cur pbm pgm ppm pnm pam webp jp2 jpx "
     "j2k j2c jpc qoi psd",
     ReadRaster, "raster"},
    {"stl", ReadStl, "STL"},
    {"obj", ReadObj, "OBJ"},
    {"ply", ReadPly, "PLY"},
    {"off", ReadOff, "OFF"},
    {"gltf glb 3mf dae zae x3d 3ds fbx amf ac ase b3d lwo ms3d md2 md3 nff smd x",
     ReadModelByAssimp, "3D model"},
    {"shp tab mif geojson kml kmz gpx gml gpkg dgn fgb e00", ReadGisByOgr, "GIS dataset"},
};

const Row* FindRow(std::string_view ext) {
  for (const Row& row : kReaders) {
    std::string_view list = row.extensions;
    while (!list.empty()) {
      const size_t blank = list.find(' ');
      if (list.substr(0, blank) == ext) return &row;
      list = blank == std::string_view::npos ? std::string_view() : list.substr(blank + 1);
    }
  }
  return nullptr;
}

// Checks that `file` can be given to a reader; an error says why not.
Status CheckExists(const std::string& file, bool folder_allowed) {
  std::error_code ec;
  const fs::file_status st = fs::status(file, ec);
  if (ec || !fs::exists(st)) return Status::Error("the file does not exist");
  if (fs::is_directory(st)) {
    if (!folder_allowed) return Status::Error("a folder, not a file");
    if (fs::is_empty(file, ec) || ec) return Status::Error("the folder is empty");
    return Status::OK();
  }
  if (!fs::is_regular_file(st)) return Status::Error("not a regular file");
  const uintmax_t size = fs::file_size(file, ec);
  if (ec) return Status::Error("the file cannot be read: " + ec.message());
  if (size == 0) return Status::Error("the file is empty (0 bytes)");
  return Status::OK();
}

}  // namespace

Content Inspect(const std::string& file, const std::string& ext, const std::string& tool_folder,
                const std::string& temp_folder, const tools::JobContext* job) {
  Content out;
  try {
    std::string type = platform::AsciiLower(ext);
    if (!type.empty() && type.front() == '.') type.erase(0, 1);
    const Row* row = FindRow(type);
    out.known = row != nullptr;
    out.opened = CheckExists(file, row && row->read == ReadGisByOgr);
    if (!out.opened.ok() || !row) return out;
    std::error_code ec;
    const std::string temp =
        temp_folder.empty() ? fs::temp_directory_path(ec).string() : temp_folder;
    row->read(Source{file, type, tool_folder, temp, job}, out);
  } catch (const std::exception& e) {
    out.opened = Status::Error(std::string("the file could not be inspected: ") + e.what());
  } catch (...) {
    out.opened = Status::Error("the file could not be inspected");
  }
  return out;
}

// ---- shared helpers ----

ToolReport RunTool(const Source& src, std::string_view tool, const std::string& arguments) {
  ToolReport report;
  std::string path = src.tool_folder;
  for (char c : tool) path += c == '/' ? platform::kPathDelim : c;
  if (!platform::FileExists(path)) return report;
  const std::string base = tools::NewTempName(src.temp_folder);
  const std::string out_path = base + ".out", err_path = base + ".err";
  const int code = tools::RunBatch(src.job ? *src.job : tools::ProcessJobContext(),
                                   tools::Quoted(path) + " " + arguments + " > " +
                                       tools::Quoted(out_path) + " 2> " + tools::Quoted(err_path),
                                   src.temp_folder);
  // Not started (or a report file could not be made): no verdict, as for a missing tool.
  report.present = code != tools::kNotStarted;
  report.exit_code = code;
  report.out = platform::ReadFileBytes(out_path).value_or("");
  report.err = platform::ReadFileBytes(err_path).value_or("");
  std::error_code ec;
  fs::remove(out_path, ec);
  fs::remove(err_path, ec);
  fs::remove(base + "~", ec);  // the name's reservation marker
  return report;
}

std::string FirstMessageLine(std::string_view text) {
  constexpr size_t kLongest = 200;
  while (!text.empty()) {
    const size_t end = text.find('\n');
    std::string_view line = TrimBlanks(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    // ogrinfo's "FAILURE:" heading says nothing by itself; the line after it does.
    if (line.empty() || line == "FAILURE:") continue;
    std::string s(line.substr(0, kLongest));
    if (line.size() > kLongest) s += "...";
    return s;
  }
  return std::string();
}

std::optional<std::string> ReadWholeByContent(const Source& src, Content& out) {
  std::optional<std::string> prefix = platform::ReadFilePrefix(src.file, 2);
  const bool gzip = prefix && prefix->size() == 2 && prefix->compare("\x1f\x8b") == 0;
  std::string why;
  std::optional<std::string> bytes = ReadWhole(src.file, gzip, why);
  if (!bytes) out.opened = Status::Error(why);
  return bytes;
}

std::optional<std::string> ReadWhole(const std::string& path, bool gzip, std::string& why) {
  std::optional<std::string> bytes = platform::ReadFileBytes(path);
  if (!bytes) {
    why = "the file cannot be read";
    return std::nullopt;
  }
  if (!gzip) return bytes;
  z_stream zs{};
  if (inflateInit2(&zs, 15 + 32) != Z_OK) {  // 32: gzip or zlib header, told apart by zlib
    why = "no memory to decompress the file";
    return std::nullopt;
  }
  std::string out;
  zs.next_in = reinterpret_cast<Bytef*>(bytes->data());
  zs.avail_in = static_cast<uInt>(std::min<size_t>(bytes->size(), UINT32_MAX));
  int rc = Z_OK;
  char chunk[65536];
  while (rc == Z_OK) {
    zs.next_out = reinterpret_cast<Bytef*>(chunk);
    zs.avail_out = sizeof chunk;
    rc = inflate(&zs, Z_NO_FLUSH);
    out.append(chunk, sizeof chunk - zs.avail_out);
    if (out.size() > kMaxInflated) {
      inflateEnd(&zs);
      why = "the compressed data expands beyond 1 GiB";
      return std::nullopt;
    }
    // Further gzip members follow one another; each is decompressed in turn.
    if (rc == Z_STREAM_END && zs.avail_in > 0 && zs.next_in[0] == 0x1f) rc = inflateReset(&zs);
  }
  inflateEnd(&zs);
  if (rc != Z_STREAM_END) {
    why = rc == Z_BUF_ERROR ? "cut short: the compressed data ends early"
                            : "not a compressed file: the gzip data is damaged";
    return std::nullopt;
  }
  return out;
}

bool MapFile(const std::string& path, platform::MappedFile& map, std::string_view& bytes,
             Content& out) {
  if (!map.Open(path, true)) {
    out.opened = Status::Error("the file cannot be read");
    return false;
  }
  bytes = std::string_view(reinterpret_cast<const char*>(map.data()), map.size());
  return true;
}

void CheckNotShrunk(const platform::MappedFile& map, Content& out) {
  if (map.CutShort()) out.opened = Status::Error("the file was cut short while it was read");
}

std::string_view TrimBlanks(std::string_view s) {
  const size_t b = s.find_first_not_of(" \t\r\n\f\v");
  if (b == std::string_view::npos) return std::string_view();
  const size_t e = s.find_last_not_of(" \t\r\n\f\v");
  return s.substr(b, e - b + 1);
}

std::optional<int64_t> LeadingInteger(std::string_view s) {
  s = TrimBlanks(s);
  bool negative = false;
  if (!s.empty() && (s[0] == '+' || s[0] == '-')) {
    negative = s[0] == '-';
    s.remove_prefix(1);
  }
  if (s.empty() || !std::isdigit(static_cast<unsigned char>(s[0]))) return std::nullopt;
  int64_t v = 0;
  for (char c : s) {
    if (!std::isdigit(static_cast<unsigned char>(c))) break;
    if (v > (INT64_MAX - 9) / 10) return std::nullopt;
    v = v * 10 + (c - '0');
  }
  return negative ? -v : v;
}

}  // namespace pictavo::verify
