// The ordered table of direct conversion pairs: a source list, a target list and the routine.
// Lists are type tags joined the engine's way (";pdf;eps;"); a tag matches when it occurs in the
// list as a substring. The first matching row wins, so row order is behaviour.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace pictavo::direct {

class TZubDirect;

// What a row runs. Rows with a special body (the copy of row 4, the versions of rows 7 and 8,
// the fall-back of row 15, the PDF mode of rows 23 and 24) are handled by RunRow.
enum class RowKind : uint8_t {
  kRoutine,        // routine(src, dest)
  kCopySvg,        // row 4: the prepared source is copied to the destination
  kDwgDxf,         // rows 7, 8: convert_dwg_dxf with a version, optionally per layer
  kSvgViaPdf,      // row 15: vec2adobe (mode 1) to PDF, adobe2vec back, else inkscape2svg
  kPdfMode,        // rows 23, 24: the PDF-mode flag from "PDF_Write"/"Compression" first
  kVec2AdobeMode0  // row 32
};

using Routine = int32_t (*)(TZubDirect& self, const std::string& src, const std::string& dest);

struct DirectRow {
  int number;
  std::string_view sources;
  std::string_view targets;
  RowKind kind;
  Routine routine;  // null for kCopySvg and kSvgViaPdf
  std::string_view name;
};

std::span<const DirectRow> DirectRows();

// The first row whose lists hold both tags, or null.
const DirectRow* FindDirectRow(std::string_view src_tag, std::string_view dest_tag);

// Runs a matched row on self.src_file / self.dest_file (the real routines).
int32_t RunRow(TZubDirect& self, const DirectRow& row);

// The named extension lists, for tests and documentation.
extern const std::string_view kVectorTargets;
extern const std::string_view kGisList;
extern const std::string_view kRasterTargets;

}  // namespace pictavo::direct
