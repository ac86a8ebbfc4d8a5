// SVG and SVGZ: the drawing elements, by a scan of the markup (no XML library, no rendering).
#include <array>
#include <optional>

#include "verify/readers.h"

namespace pictavo::verify {

namespace {

constexpr std::array<std::string_view, 10> kDrawing = {
    "path", "rect", "circle", "ellipse", "line", "polyline", "polygon", "text", "image", "use"};
// Content of these is drawn only when referenced (by a use, a fill, a clip...) or not at all.
constexpr std::array<std::string_view, 9> kNotDrawn = {"defs",     "symbol",        "clipPath",
                                                       "mask",     "marker",        "pattern",
                                                       "metadata", "foreignObject", "title"};

template <size_t N>
bool In(const std::array<std::string_view, N>& names, std::string_view name) {
  for (std::string_view n : names)
    if (n == name) return true;
  return false;
}

bool IsNameEnd(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '/' || c == '>';
}

// The '>' that ends the tag starting at `at`, skipping quoted attribute values.
size_t TagEnd(std::string_view d, size_t at) {
  char quote = 0;
  for (size_t i = at; i < d.size(); ++i) {
    const char c = d[i];
    if (quote) {
      if (c == quote) quote = 0;
    } else if (c == '"' || c == '\'') {
      quote = c;
    } else if (c == '>') {
      return i;
    }
  }
  return std::string_view::npos;
}

}  // namespace

void ReadSvg(const Source& src, Content& out) {
  out.known = true;
  const std::optional<std::string> bytes = ReadWholeByContent(src, out);
  if (!bytes) return;
  const std::string_view d = *bytes;
  const auto cut = [&](const char* what) {
    out.opened = Status::Error(std::string("cut short: ") + what);
  };

  bool root_seen = false, root_closed = false;
  int depth = 0, hidden_at = -1;  // depth of the element whose content is not drawn
  int64_t drawn = 0;
  for (size_t at = d.find('<'); at != std::string_view::npos && !root_closed;
       at = d.find('<', at)) {
    const std::string_view rest = d.substr(at);
    if (rest.starts_with("<!--")) {
      const size_t end = d.find("-->", at + 4);
      if (end == std::string_view::npos) return cut("a comment is not closed");
      at = end + 3;
    } else if (rest.starts_with("<![CDATA[")) {
      const size_t end = d.find("]]>", at + 9);
      if (end == std::string_view::npos) return cut("a CDATA section is not closed");
      at = end + 3;
    } else if (rest.starts_with("<?")) {
      const size_t end = d.find("?>", at + 2);
      if (end == std::string_view::npos) return cut("a processing instruction is not closed");
      at = end + 2;
    } else if (rest.starts_with("<!")) {  // DOCTYPE, with an internal subset in brackets
      int brackets = 0;
      size_t i = at + 2;
      for (; i < d.size(); ++i) {
        if (d[i] == '[') ++brackets;
        if (d[i] == ']') --brackets;
        if (d[i] == '>' && brackets <= 0) break;
      }
      if (i >= d.size()) return cut("the document type declaration is not closed");
      at = i + 1;
    } else {
      const bool closing = rest.starts_with("</");
      const size_t name_at = at + (closing ? 2 : 1);
      size_t name_end = name_at;
      while (name_end < d.size() && !IsNameEnd(d[name_end])) ++name_end;
      std::string_view name = d.substr(name_at, name_end - name_at);
      if (const size_t colon = name.find(':'); colon != std::string_view::npos)
        name.remove_prefix(colon + 1);  // svg:path
      const size_t end = TagEnd(d, name_end);
      if (end == std::string_view::npos) return cut("the last tag is not closed");
      at = end + 1;
      if (closing) {
        if (--depth == hidden_at) hidden_at = -1;
        if (depth <= 0) root_closed = true;
        continue;
      }
      const bool empty = d[end - 1] == '/';
      if (!root_seen) {
        root_seen = true;
        if (name != "svg")
          return Refuse(out, "not an SVG file: the root element is <" +
                                 std::string(name.substr(0, 40)) + ">");
      } else if (hidden_at < 0) {
        if (In(kDrawing, name)) ++drawn;
        if (!empty && In(kNotDrawn, name)) hidden_at = depth;
      }
      if (!empty) ++depth;
      if (empty && depth == 0) root_closed = true;  // <svg/>
    }
  }
  if (!root_seen) return Refuse(out, "not an SVG file: no <svg> element");
  if (!root_closed) return cut("the closing </svg> is missing");
  out.pages = 1;
  out.entities = drawn;
}

}  // namespace pictavo::verify
