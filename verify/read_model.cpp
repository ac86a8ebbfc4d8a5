// 3D models: STL, OBJ, PLY and OFF by their own counts; other formats through assimp.
#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <vector>

#include "engine/tools/tool_paths.h"
#include "verify/readers.h"

namespace pictavo::verify {

namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f' || c == '\v';
}

// Calls `line` with each line of `d` (LF or CR LF), returning early when it returns false.
template <typename F>
void EachLine(std::string_view d, F&& line) {
  for (size_t at = 0; at < d.size();) {
    size_t end = d.find('\n', at);
    if (end == std::string_view::npos) end = d.size();
    if (!line(d.substr(at, end - at))) return;
    at = end + 1;
  }
}

// Lines that hold something other than blanks or a "#" comment.
int64_t DataLines(std::string_view d) {
  int64_t n = 0;
  EachLine(d, [&](std::string_view line) {
    line = TrimBlanks(line);
    if (!line.empty() && line[0] != '#') ++n;
    return true;
  });
  return n;
}

bool HasNul(std::string_view d) {
  return d.substr(0, 4096).find('\0') != std::string_view::npos;
}

// Words "facet" that start a facet (not the end of "endfacet").
int64_t CountFacets(std::string_view d) {
  int64_t n = 0;
  for (size_t at = d.find("facet"); at != std::string_view::npos; at = d.find("facet", at + 5))
    if ((at == 0 || IsBlank(d[at - 1])) && (at + 5 >= d.size() || IsBlank(d[at + 5]))) ++n;
  return n;
}

}  // namespace

// Binary when the size is exactly what the header's triangle count makes; ASCII when the text
// starts with "solid" (a binary header may too: the size decides first); a binary file shorter
// than its count is cut short.
void ReadStl(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  uint32_t announced = 0;
  if (d.size() >= 84) std::memcpy(&announced, d.data() + 80, 4);  // little-endian hosts only
  const uint64_t binary_size = 84 + uint64_t{announced} * 50;
  const size_t text_at = d.find_first_not_of(" \t\r\n");
  const bool text =
      text_at != std::string_view::npos && d.substr(text_at, 5) == "solid" && !HasNul(d);
  if (d.size() >= 84 && binary_size == d.size()) {
    out.faces = announced;
  } else if (text) {
    if (d.find("endsolid") == std::string_view::npos)
      return Refuse(out, "cut short: no endsolid at the end of the STL");
    out.faces = CountFacets(d);
  } else if (d.size() < 84) {
    out.opened = Status::Error("not an STL file: shorter than a binary header and not text");
    return;
  } else if (binary_size > d.size()) {
    out.opened = Status::Error("cut short: the header announces " + std::to_string(announced) +
                               " triangles (" + std::to_string(binary_size) +
                               " bytes), the file has " + std::to_string(d.size()));
    return;
  } else {
    out.faces = announced;  // trailing bytes after the triangles: some exporters pad
  }
  CheckNotShrunk(map, out);
}

// Faces are the "f" lines. The first statement must be one that OBJ knows.
void ReadObj(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  if (HasNul(d)) return Refuse(out, "not an OBJ file: it holds binary data");
  static constexpr std::string_view kStatements[] = {
      "v",      "vt",         "vn",        "vp",     "f",      "l",        "p",        "o",
      "g",      "s",          "mg",        "mtllib", "usemtl", "cstype",   "deg",      "bmat",
      "step",   "curv",       "curv2",     "surf",   "parm",   "trim",     "hole",     "scrv",
      "sp",     "end",        "con",       "lod",    "bevel",  "c_interp", "d_interp", "usemap",
      "maplib", "shadow_obj", "trace_obj", "ctech",  "stech"};
  int64_t faces = 0;
  bool first = true, bad = false;
  EachLine(d, [&](std::string_view line) {
    line = TrimBlanks(line);
    if (line.empty() || line[0] == '#') return true;
    const std::string_view word = line.substr(0, line.find_first_of(" \t"));
    if (first) {
      first = false;
      bad =
          std::find(std::begin(kStatements), std::end(kStatements), word) == std::end(kStatements);
      if (bad) return false;
    }
    if (word == "f") ++faces;
    return true;
  });
  if (bad || first)
    return Refuse(out, first ? "not an OBJ file: no statements"
                             : "not an OBJ file: it does not begin with an OBJ statement");
  out.faces = faces;
  CheckNotShrunk(map, out);
}

// The header's "element face N". The body must be long enough for the counts: in ASCII one line
// per element; in binary the fixed properties, and three indices for each face's list.
void ReadPly(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  if (d.substr(0, 3) != "ply" || (d.size() > 3 && d[3] != '\n' && d[3] != '\r'))
    return Refuse(out, "not a PLY file: it does not begin with \"ply\"");
  const size_t header_end = d.find("end_header");
  if (header_end == std::string_view::npos)
    return Refuse(out, "cut short: no end_header in the PLY header");
  size_t body = d.find('\n', header_end);
  body = body == std::string_view::npos ? d.size() : body + 1;

  struct Element {
    std::string name;
    int64_t count = 0;
    uint64_t min_bytes = 0;  // the least one element takes in binary
  };
  std::vector<Element> elements;
  bool ascii = false, known_format = false;
  const auto type_size = [](std::string_view t) -> int {
    if (t == "char" || t == "uchar" || t == "int8" || t == "uint8") return 1;
    if (t == "short" || t == "ushort" || t == "int16" || t == "uint16") return 2;
    if (t == "int" || t == "uint" || t == "float" || t == "int32" || t == "uint32" ||
        t == "float32")
      return 4;
    if (t == "double" || t == "float64") return 8;
    return 0;
  };
  bool bad_header = false;
  EachLine(d.substr(0, header_end), [&](std::string_view line) {
    std::vector<std::string_view> words;
    line = TrimBlanks(line);
    while (!line.empty()) {
      const size_t end = line.find_first_of(" \t");
      words.push_back(line.substr(0, end));
      line = end == std::string_view::npos ? std::string_view() : TrimBlanks(line.substr(end));
    }
    if (words.empty()) return true;
    if (words[0] == "format" && words.size() >= 2) {
      known_format = words[1] == "ascii" || words[1] == "binary_little_endian" ||
                     words[1] == "binary_big_endian";
      ascii = words[1] == "ascii";
    } else if (words[0] == "element" && words.size() >= 3) {
      const auto n = LeadingInteger(words[2]);
      if (!n || *n < 0) bad_header = true;
      elements.push_back(Element{std::string(words[1]), n.value_or(0), 0});
    } else if (words[0] == "property" && !elements.empty()) {
      Element& e = elements.back();
      if (words.size() >= 5 && words[1] == "list") {
        e.min_bytes += type_size(words[2]) + (e.name == "face" ? 3 * type_size(words[3]) : 0);
      } else if (words.size() >= 3) {
        e.min_bytes += type_size(words[1]);
      }
    }
    return true;
  });
  if (!known_format || bad_header)
    return Refuse(out, "not a PLY file: the header has no usable format or counts");
  int64_t faces = 0, rows = 0;
  uint64_t min_body = 0;
  for (const Element& e : elements) {
    if (e.name == "face") faces += e.count;
    rows += e.count;
    if (e.count > 0 && e.min_bytes > UINT64_MAX / 2 / static_cast<uint64_t>(e.count))
      return Refuse(out, "not a PLY file: impossible element counts");
    min_body += e.min_bytes * static_cast<uint64_t>(e.count);
  }
  const std::string_view rest = d.substr(body);
  if (ascii ? DataLines(rest) < rows : rest.size() < min_body)
    return Refuse(out, "cut short: the PLY body is shorter than its header's counts");
  out.faces = faces;
  CheckNotShrunk(map, out);
}

// "OFF" (or a variant such as COFF, NOFF, STOFF), then vertex, face and edge counts; the body
// must hold a line for each vertex and face.
void ReadOff(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  size_t at = 0;
  // Words of the header, skipping comments.
  const auto next_word = [&]() -> std::string_view {
    for (;;) {
      while (at < d.size() && IsBlank(d[at])) ++at;
      if (at < d.size() && d[at] == '#') {
        while (at < d.size() && d[at] != '\n') ++at;
        continue;
      }
      const size_t start = at;
      while (at < d.size() && !IsBlank(d[at]) && d[at] != '#') ++at;
      return d.substr(start, at - start);
    }
  };
  const std::string_view magic = next_word();
  if (magic.size() < 3 || magic.size() > 8 || magic.substr(magic.size() - 3) != "OFF")
    return Refuse(out, "not an OFF file: it does not begin with OFF");
  size_t line_end = d.find('\n', at);
  const bool binary = d.substr(at, line_end - at).find("BINARY") != std::string_view::npos;
  if (binary) {
    out.faces = -1;  // binary OFF: counts are 32-bit integers after the line; not read here
    return;
  }
  int64_t counts[3] = {0, 0, 0};
  for (int64_t& c : counts) {
    const auto n = LeadingInteger(next_word());
    if (!n || *n < 0) return Refuse(out, "not an OFF file: the counts are missing");
    c = *n;
  }
  line_end = d.find('\n', at);
  const std::string_view rest =
      line_end == std::string_view::npos ? std::string_view() : d.substr(line_end + 1);
  if (DataLines(rest) < counts[0] + counts[1])
    return Refuse(out, "cut short: the OFF body is shorter than its header's counts");
  out.faces = counts[1];
  CheckNotShrunk(map, out);
}

// assimp's raw import ("-r": no triangulation or other post-processing) and its "Faces:" line.
void ReadModelByAssimp(const Source& src, Content& out) {
  out.known = true;
  const ToolReport r =
      RunTool(src, "assimp64/assimp.exe", "info " + tools::Quoted(src.file) + " -r");
  if (!r.present) return;
  std::optional<int64_t> faces;
  std::string error;
  EachLine(r.out, [&](std::string_view line) {
    line = TrimBlanks(line);
    if (line.starts_with("Faces:") && !faces) faces = LeadingInteger(line.substr(6));
    if (line.starts_with("ERROR:") && error.empty()) error = line.substr(6);
    return true;
  });
  if (r.exit_code != 0 || !faces) {
    if (error.empty()) error = FirstMessageLine(r.err);
    out.opened = Status::Error(
        "assimp: " + std::string(TrimBlanks(error.empty() ? "cannot read the model" : error)));
    return;
  }
  out.faces = *faces;
}

}  // namespace pictavo::verify
