// Content probes: cheap tests of a file's bytes that decide routes.
//
// The first three keep the semantics of the system's find program (a line-by-line substring
// search; "/I" ignores case, "/C" counts matching lines) but run in-process: no program, no
// scratch file. All functions are thread-safe and never modify the file; an unreadable file
// answers false, 0 or an empty list.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace pictavo::tools {

// Number of lines of the file that hold `needle` ("find /C"); `ignore_case` is "/I" (ASCII).
// Lines end at "\n"; the file is read in pieces, so size does not matter. -1 when unreadable.
int64_t FindCount(const std::string& path, std::string_view needle, bool ignore_case);

// "/imageb", "/imagec", "/imagei", then "/image", case-insensitively: true at the first found.
// Like the search it stands for, it sees only uncompressed dictionaries.
bool PdfHasImages(const std::string& path);

// The file mentions "inkscape" (case-sensitive) on at least one line.
bool SvgIsInkscape(const std::string& path);

// The file holds an "acTL" chunk name (case-sensitive): an animated PNG.
bool PngIsAnimated(const std::string& path);

// The first 64 KiB, lower-cased, hold "ps-adobe".
bool IsPostScript(const std::string& path);

// A Computer Graphics Metafile: binary encoding (the first command is BEGIN METAFILE, class 0
// id 1) or clear-text encoding (the first word is "BEGMF", any case).
bool IsCgm(const std::string& path);
// Only the binary encoding, the one that the CGM normaliser is run on.
bool IsBinaryCgm(const std::string& path);

// Number of pages of a PDF: the largest /Count of a /Type /Pages dictionary, found in the file's
// plain objects and in its Flate-compressed object streams; failing that, the number of /Type
// /Page dictionaries. 0 when the file is not a PDF or holds no page tree.
int PdfPageCount(const std::string& path);

// Layer names of a DXF file in table order: the group-2 names of the entries of the LAYER table
// (entries marked "AcDbLayerTableRecord" in newer files, plain "LAYER" entries in R12 ones).
// Duplicates are listed once.
std::vector<std::string> ListDxfLayers(const std::string& path);

// Cleans a printer text file (.prt) for the text-to-PDF tool: printer escape sequences (ESC and
// its parameters, PCL and ANSI forms) and other control bytes are dropped, except tab, line feed,
// carriage return and form feed; a character struck over with backspace keeps one copy. Writes
// `dest` atomically; the source is only read.
bool CleanPrt(const std::string& source, const std::string& dest);

}  // namespace pictavo::tools
