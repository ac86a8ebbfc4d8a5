// Which tools of the tool folder take long by nature, and so have a time-out of their own
// ("Limits"/"Render_timeout", "Office_timeout", "Ocr_timeout"); every other tool is held to
// "Limits"/"Tool_timeout".
#include <string_view>

#include "engine/tools/runner.h"
#include "platform/text_encoding.h"

namespace pictavo::tools {
namespace {

struct PaceRow {
  std::string_view tool;
  ToolPace pace;
};

constexpr PaceRow kPaces[] = {
    // Interpreters of whole documents: a long PDF at 300 dpi takes minutes.
    {"pdfpsai.bin", ToolPace::kRender},
    {"text2pdf.exe", ToolPace::kRender},
    {"gxpswin32.exe", ToolPace::kRender},
    {"pcl6.exe", ToolPace::kRender},
    {"pdftocairo.bin", ToolPace::kRender},
    {"pdf2vec.bin", ToolPace::kRender},
    {"djvu_read.bin", ToolPace::kRender},
    // Drawings, maps and scenes.
    {"inkscape.bin", ToolPace::kRender},
    {"pstoedit.bin", ToolPace::kRender},
    {"uni/uniconvertor.cmd", ToolPace::kRender},
    {"vec2vec_direct.bin", ToolPace::kRender},
    {"gerbv.bin", ToolPace::kRender},
    {"ogr/ogr2ogr.exe", ToolPace::kRender},
    {"povray.bin", ToolPace::kRender},
    {"assimp64/assimp.exe", ToolPace::kRender},
    {"stp/stp2x3d.exe", ToolPace::kRender},
    {"stl2pov.bin", ToolPace::kRender},
    // A whole office suite starts for every document.
    {"soffice.bin", ToolPace::kOffice},
    {"tesseract/tesseract.exe", ToolPace::kOcr},
};

}  // namespace

ToolPace PaceOf(std::string_view tool_name) {
  for (const PaceRow& row : kPaces)
    if (platform::EqualsNoCase(row.tool, tool_name)) return row.pace;
  return ToolPace::kCodec;
}

}  // namespace pictavo::tools
