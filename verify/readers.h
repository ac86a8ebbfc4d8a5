// The per-format readers behind verify::Inspect, and what they share. Private to verify/.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/fs.h"
#include "verify/content.h"

namespace pictavo::verify {

// What a reader is given. The file exists (a regular file, or a folder for GIS types) and is not
// empty when a reader is called.
struct Source {
  const std::string& file;
  const std::string& ext;  // lower case
  const std::string& tool_folder;
  const std::string& temp_folder;
  const tools::JobContext* job;  // the tools' context; null = the process's
};

// A reader sets `known`, `opened` and the counts it can tell.
using Reader = void (*)(const Source& src, Content& out);

void ReadPdf(const Source& src, Content& out);
void ReadPostScript(const Source& src, Content& out);
void ReadSvg(const Source& src, Content& out);
void ReadDxf(const Source& src, Content& out);
void ReadHpgl(const Source& src, Content& out);
void ReadMetafile(const Source& src, Content& out);  // EMF, WMF and their gzip forms
void ReadRaster(const Source& src, Content& out);
void ReadStl(const Source& src, Content& out);
void ReadObj(const Source& src, Content& out);
void ReadPly(const Source& src, Content& out);
void ReadOff(const Source& src, Content& out);
void ReadModelByAssimp(const Source& src, Content& out);
void ReadGisByOgr(const Source& src, Content& out);

// ---- shared helpers (content.cpp) ----

// What a tool of the tool folder printed. `present` is false when the tool is not there or could
// not be started (then nothing is known); `exit_code` is the runner's result.
struct ToolReport {
  bool present = false;
  int exit_code = -1;
  std::string out, err;
};
// Runs `tool` (a tool-folder name with "/" between folders, e.g. "ogr/ogrinfo.exe") with
// `arguments` (already quoted where they are paths), standard output and error sent to scratch
// files of `temp_folder` that are read back and removed.
ToolReport RunTool(const Source& src, std::string_view tool, const std::string& arguments);

// The first line of a tool's message that says something, trimmed and shortened for the log.
std::string FirstMessageLine(std::string_view text);

// The whole file, decompressed when `gzip` (a member or a zlib stream); nullopt with `why` set
// when it cannot be read. Inflated output is capped at kMaxInflated.
inline constexpr size_t kMaxInflated = size_t{1} << 30;
std::optional<std::string> ReadWhole(const std::string& path, bool gzip, std::string& why);
// The whole file of `src`, inflated when it is gzip by content (".svgz", ".emz" and the like,
// but a plain file under such a name is read as it is); nullopt with out.opened set otherwise.
std::optional<std::string> ReadWholeByContent(const Source& src, Content& out);

// Records why a reader refuses its file, for the readers' early returns:
// `if (...) return Refuse(out, "cut short: ...");`.
inline void Refuse(Content& out, std::string why) {
  out.opened = pictavo::Status::Error(std::move(why));
}

// Maps the file for a scan; false, with out.opened saying why, when it cannot be read.
bool MapFile(const std::string& path, platform::MappedFile& map, std::string_view& bytes,
             Content& out);
// After a scan: a file that another program cut while it was mapped reads as zeros past its new
// end, so whatever was counted is void.
void CheckNotShrunk(const platform::MappedFile& map, Content& out);

std::string_view TrimBlanks(std::string_view s);
// A decimal number at the start of `s` (after blanks), or nullopt.
std::optional<int64_t> LeadingInteger(std::string_view s);

}  // namespace pictavo::verify
