#include "engine/tools/probes.h"

#include <zlib.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <fstream>

#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::tools {

namespace {

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

std::string ReadHead(const std::string& path, size_t limit) {
  std::ifstream in(path, std::ios::binary);
  std::string data(limit, '\0');
  in.read(data.data(), static_cast<std::streamsize>(limit));
  data.resize(static_cast<size_t>(in.gcount()));
  return data;
}

}  // namespace

int64_t FindCount(const std::string& path, std::string_view needle, bool ignore_case) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return -1;
  const std::string want = ignore_case ? Lower(std::string(needle)) : std::string(needle);
  int64_t count = 0;
  std::string line;
  while (std::getline(in, line)) {
    if (ignore_case) line = Lower(std::move(line));
    if (line.find(want) != std::string::npos) ++count;
  }
  return count;
}

bool PdfHasImages(const std::string& path) {
  // The order of the markers is kept although "/image" alone would decide: it is the order in
  // which the probe has always searched.
  constexpr std::array<std::string_view, 4> kMarkers = {"/imageb", "/imagec", "/imagei", "/image"};
  for (std::string_view marker : kMarkers)
    if (FindCount(path, marker, true) > 0) return true;
  return false;
}

bool SvgIsInkscape(const std::string& path) {
  return FindCount(path, "inkscape", false) > 0;
}

bool PngIsAnimated(const std::string& path) {
  return FindCount(path, "acTL", false) > 0;
}

bool IsPostScript(const std::string& path) {
  return Lower(ReadHead(path, 64 * 1024)).find("ps-adobe") != std::string::npos;
}

bool IsBinaryCgm(const std::string& path) {
  std::string head = ReadHead(path, 2);
  if (head.size() < 2) return false;
  unsigned word = (static_cast<unsigned char>(head[0]) << 8) | static_cast<unsigned char>(head[1]);
  return (word >> 12) == 0 && ((word >> 5) & 0x7f) == 1;
}

bool IsCgm(const std::string& path) {
  if (IsBinaryCgm(path)) return true;
  std::string head = Lower(ReadHead(path, 256));
  size_t i = head.find_first_not_of(" \t\r\n");
  return i != std::string::npos && head.compare(i, 5, "begmf") == 0;
}

// ---- PDF page count --------------------------------------------------------------------------

namespace {

bool IsPdfDelimiter(char c) {
  return std::strchr(" \t\r\n\f/<>[]()%", c) != nullptr || c == '\0';
}

void SkipPdfSpace(std::string_view d, size_t& i) {
  while (i < d.size() && std::strchr(" \t\r\n\f", d[i]) != nullptr && d[i] != '\0') ++i;
}

// Bounds of the innermost dictionary around `pos`: the unmatched "<<" before it and its ">>".
std::string_view EnclosingDict(std::string_view d, size_t pos) {
  int depth = 0;
  size_t begin = std::string_view::npos;
  for (size_t i = pos; i >= 1; --i) {
    if (d[i - 1] == '>' && i >= 2 && d[i - 2] == '>') {
      ++depth;
      --i;
    } else if (d[i - 1] == '<' && i >= 2 && d[i - 2] == '<') {
      if (depth == 0) {
        begin = i - 2;
        break;
      }
      --depth;
      --i;
    }
    if (pos - i > 65536) break;
  }
  if (begin == std::string_view::npos) return {};
  depth = 0;
  for (size_t i = begin; i + 1 < d.size(); ++i) {
    if (d[i] == '<' && d[i + 1] == '<') {
      ++depth;
      ++i;
    } else if (d[i] == '>' && d[i + 1] == '>') {
      if (--depth == 0) return d.substr(begin, i + 2 - begin);
      ++i;
    }
  }
  return {};
}

struct PageScan {
  int max_count = 0;
  int page_dicts = 0;
};

void ScanPages(std::string_view d, PageScan& scan) {
  for (size_t at = d.find("/Type"); at != std::string_view::npos; at = d.find("/Type", at + 5)) {
    size_t i = at + 5;
    SkipPdfSpace(d, i);
    if (d.compare(i, 5, "/Page") != 0) continue;
    size_t end = i + 5;
    if (end < d.size() && d[end] == 's' && (end + 1 >= d.size() || IsPdfDelimiter(d[end + 1]))) {
      std::string_view dict = EnclosingDict(d, at);
      size_t c = dict.find("/Count");
      if (c == std::string_view::npos) continue;
      c += 6;
      SkipPdfSpace(dict, c);
      int n = 0;
      while (c < dict.size() && dict[c] >= '0' && dict[c] <= '9' && n < 10000000)
        n = n * 10 + (dict[c++] - '0');
      scan.max_count = std::max(scan.max_count, n);
    } else if (end >= d.size() || IsPdfDelimiter(d[end])) {
      ++scan.page_dicts;
    }
  }
}

std::string Inflate(std::string_view in) {
  std::string out;
  z_stream zs{};
  if (inflateInit(&zs) != Z_OK) return out;
  zs.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(in.data()));
  zs.avail_in = static_cast<uInt>(in.size());
  char buf[16384];
  int rc;
  do {
    zs.next_out = reinterpret_cast<Bytef*>(buf);
    zs.avail_out = sizeof buf;
    rc = inflate(&zs, Z_NO_FLUSH);
    out.append(buf, sizeof buf - zs.avail_out);
  } while (rc == Z_OK && out.size() < (64u << 20));
  inflateEnd(&zs);
  return out;
}

}  // namespace

int PdfPageCount(const std::string& path) {
  std::optional<std::string> bytes = platform::ReadFileBytes(path);
  if (!bytes || bytes->compare(0, 4, "%PDF") != 0) return 0;
  std::string_view d = *bytes;
  PageScan scan;
  ScanPages(d, scan);
  // Page objects of newer files may sit in compressed object streams.
  for (size_t at = d.find("/ObjStm"); at != std::string_view::npos;
       at = d.find("/ObjStm", at + 7)) {
    std::string_view dict = EnclosingDict(d, at);
    if (dict.empty() || dict.find("/FlateDecode") == std::string_view::npos) continue;
    size_t s = d.find("stream", static_cast<size_t>(dict.data() - d.data()) + dict.size());
    if (s == std::string_view::npos) continue;
    s += 6;
    if (s < d.size() && d[s] == '\r') ++s;
    if (s < d.size() && d[s] == '\n') ++s;
    size_t e = d.find("endstream", s);
    if (e == std::string_view::npos) continue;
    ScanPages(Inflate(d.substr(s, e - s)), scan);
  }
  return scan.max_count > 0 ? scan.max_count : scan.page_dicts;
}

// ---- DXF layers ------------------------------------------------------------------------------

std::vector<std::string> ListDxfLayers(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::vector<std::string> layers;
  auto trim = [](std::string s) {
    size_t b = s.find_first_not_of(" \t\r\n");
    size_t e = s.find_last_not_of(" \t\r\n");
    return b == std::string::npos ? std::string() : s.substr(b, e - b + 1);
  };
  std::string code_line, value;
  bool in_table_header = false, in_layer_table = false, in_entry = false, named = false;
  while (std::getline(in, code_line) && std::getline(in, value)) {
    const std::string code = trim(code_line);
    value = trim(value);
    if (code == "0") {
      in_table_header = value == "TABLE";
      if (value == "ENDTAB" || value == "ENDSEC") in_layer_table = false;
      in_entry = in_layer_table && value == "LAYER";
      named = false;
      continue;
    }
    if (code != "2") continue;
    if (in_table_header) {
      in_layer_table = value == "LAYER";
      in_table_header = false;
    } else if (in_entry && !named) {
      named = true;
      if (std::find(layers.begin(), layers.end(), value) == layers.end()) layers.push_back(value);
    }
  }
  return layers;
}

// ---- PRT cleaning ----------------------------------------------------------------------------

bool CleanPrt(const std::string& source, const std::string& dest) {
  std::optional<std::string> bytes = platform::ReadFileBytes(source);
  if (!bytes) return false;
  const std::string& s = *bytes;
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c == 0x1b) {  // escape sequence
      if (i + 1 >= s.size()) break;
      unsigned char k = static_cast<unsigned char>(s[++i]);
      if (k == '[') {  // ANSI: parameters up to a final byte 0x40..0x7e
        while (i + 1 < s.size() && !(s[i + 1] >= 0x40 && s[i + 1] <= 0x7e)) ++i;
        ++i;
      } else if (k == '&' || k == '(' || k == ')' || k == '*') {
        // PCL: parameter characters up to an upper-case terminator; "ESC ( s" style groups may
        // carry data counts, which plain printer text does not use.
        while (i + 1 < s.size() && !(s[i + 1] >= '@' && s[i + 1] <= 'Z')) ++i;
        ++i;
      }
      continue;
    }
    if (c == 0x08) {  // backspace: overstrike or underline, keep what was struck once
      if (i + 1 < s.size() && !out.empty()) {
        unsigned char next = static_cast<unsigned char>(s[i + 1]);
        if (out.back() == '_') out.back() = static_cast<char>(next);
        ++i;
      }
      continue;
    }
    if (c < 0x20 && c != '\t' && c != '\n' && c != '\r' && c != '\f') continue;
    if (c == 0x7f) continue;
    out += static_cast<char>(c);
  }
  return platform::WriteFileAtomic(dest, out).ok();
}

}  // namespace pictavo::tools
