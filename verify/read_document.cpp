// Page documents: PDF and PostScript (EPS included).
#include <algorithm>
#include <cstring>
#include <optional>

#include "engine/tools/probes.h"
#include "engine/tools/tool_paths.h"
#include "platform/bytes.h"
#include "verify/readers.h"

namespace pictavo::verify {

namespace {

bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.substr(0, prefix.size()) == prefix;
}

// Calls `line` for each line of `d`; PostScript lines end with LF, CR or CR LF.
template <typename F>
void EachLine(std::string_view d, F&& line) {
  size_t at = 0;
  while (at < d.size()) {
    size_t end = d.find_first_of("\r\n", at);
    if (end == std::string_view::npos) end = d.size();
    line(d.substr(at, end - at));
    at = end + 1;
    if (end + 1 < d.size() && d[end] == '\r' && d[end + 1] == '\n') ++at;
  }
}

}  // namespace

// The page count comes from the file's own page tree (tools::PdfPageCount, which also looks into
// Flate object streams); only a file whose tree it cannot find goes to pdfinfo. A PDF always ends
// with "startxref" and "%%EOF", so their absence from the last KiB is a file cut short.
void ReadPdf(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  if (d.substr(0, 1024).find("%PDF-") == std::string_view::npos)
    return Refuse(out, "not a PDF file: no %PDF header");
  const std::string_view tail = d.substr(d.size() > 1024 ? d.size() - 1024 : 0);
  if (tail.find("%%EOF") == std::string_view::npos ||
      tail.find("startxref") == std::string_view::npos)
    return Refuse(out, "cut short: no startxref and %%EOF at the end of the PDF");
  CheckNotShrunk(map, out);
  if (!out.opened.ok()) return;

  if (const int pages = tools::PdfPageCount(src.file); pages > 0) {
    out.pages = pages;
    return;
  }
  const ToolReport info = RunTool(src, "pdfinfo.bin", tools::Quoted(src.file));
  if (!info.present) return;  // no page count here; the file is not refused for that
  if (info.exit_code != 0) {
    const std::string why = FirstMessageLine(info.err);
    out.opened = Status::Error("pdfinfo: " + (why.empty() ? "cannot read the file" : why));
    return;
  }
  EachLine(info.out, [&](std::string_view line) {
    if (StartsWith(line, "Pages:"))
      if (const auto n = LeadingInteger(line.substr(6)); n && *n >= 0 && *n <= INT32_MAX)
        out.pages = static_cast<int>(*n);
  });
}

// PostScript by its document structuring comments: "%%Pages: N" (or "(atend)" and N in the
// trailer), else the number of "%%Page:" lines. Comments of documents embedded between
// %%BeginDocument and %%EndDocument belong to those documents. An EPS is one page whatever it
// says. A file was cut short when it promises a trailer ("(atend)") and has none, when its last
// page lacks the %%PageTrailer that closes every page before it, or when a PostScript (not EPS)
// file announces more pages than it holds and has lost its trailer.
void ReadPostScript(const Source& src, Content& out) {
  out.known = true;
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;

  bool eps = false;
  if (d.size() >= 30 && std::memcmp(d.data(), "\xC5\xD0\xD3\xC6", 4) == 0) {
    // DOS EPS binary: the PostScript section's offset and length follow the signature.
    const uint32_t offset = platform::LoadLe32(d, 4), length = platform::LoadLe32(d, 8);
    if (offset > d.size() || length > d.size() - offset)
      return Refuse(out, "cut short: the EPS section runs past the end of the file");
    d = d.substr(offset, length);
    eps = true;
  }
  // A print job may start with Ctrl-D or a blank line before the magic.
  while (!d.empty() && (d.front() == '\x04' || d.front() == '\r' || d.front() == '\n'))
    d.remove_prefix(1);
  if (!StartsWith(d, "%!"))
    return Refuse(out, "not a PostScript file: it does not begin with %!PS");
  const std::string_view first_line = d.substr(0, d.find_first_of("\r\n"));
  eps = eps || first_line.find("EPSF") != std::string_view::npos;

  int nesting = 0;
  bool trailer_promised = false, trailer = false;
  std::optional<int64_t> announced;
  int64_t page_lines = 0, page_trailers = 0;
  EachLine(d, [&](std::string_view line) {
    if (!StartsWith(line, "%%")) return;
    if (StartsWith(line, "%%BeginDocument")) {
      ++nesting;
    } else if (StartsWith(line, "%%EndDocument")) {
      if (nesting > 0) --nesting;
    } else if (nesting > 0) {
      return;
    } else if (StartsWith(line, "%%Pages:")) {
      const std::string_view value = TrimBlanks(line.substr(8));
      if (!announced) announced = LeadingInteger(value);
    } else if (StartsWith(line, "%%Page:")) {
      ++page_lines;
    } else if (StartsWith(line, "%%PageTrailer")) {
      ++page_trailers;
    } else if (StartsWith(line, "%%Trailer")) {
      trailer = true;
    }
    if (line.find("(atend)") != std::string_view::npos) trailer_promised = true;
  });
  CheckNotShrunk(map, out);
  if (!out.opened.ok()) return;
  if (trailer_promised && !trailer)
    return Refuse(out, "cut short: the trailer that the header promises is missing");
  if (page_lines >= 2 && page_trailers == page_lines - 1)
    return Refuse(out, "cut short: the last page has no %%PageTrailer");
  if (!eps && announced && !trailer && page_lines < *announced)
    return Refuse(out, "cut short: " + std::to_string(*announced) + " pages announced, " +
                           std::to_string(page_lines) + " found");
  if (eps) {
    out.pages = 1;
  } else if (announced && *announced >= 0 && *announced <= INT32_MAX) {
    out.pages = static_cast<int>(*announced);
  } else if (page_lines > 0) {
    out.pages = static_cast<int>(std::min<int64_t>(page_lines, INT32_MAX));
  } else if (d.find("showpage") == std::string_view::npos &&
             d.find("copypage") == std::string_view::npos) {
    out.pages = 0;  // nothing ever reaches the paper
  }
}

}  // namespace pictavo::verify
