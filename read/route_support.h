// What the reader routines share: tool paths under the reader's engine folder, scratch files
// that remove themselves, and the common last step "load a picture with the engine and save it
// to out_file" (every frame into a multi-page TIFF when out_file is a TIFF).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "engine/tools/route_kit.h"
#include "platform/bytes.h"
#include "read/zub_read.h"

namespace pictavo::imaging {
class TImageEnIO;
}

namespace pictavo::reader {

// The reader's tool folder and scratch names, bound to its engine and temporary folders (see
// engine/tools/route_kit.h for what each does).
inline std::string Tool(const TZubRead& r, std::string_view name) {
  return tools::ToolIn(r.exe_folder, name);
}
inline bool HasTool(const TZubRead& r, std::string_view name) {
  return tools::ToolAvailable(r.exe_folder, name);
}
// Quoted tool path: the way every command line starts.
inline std::string ToolArg(const TZubRead& r, std::string_view name) {
  return platform::Quoted(Tool(r, name));
}
// A scratch path in the reader's temporary folder that removes itself.
class Scratch : public tools::ScratchFile {
 public:
  Scratch(const TZubRead& r, std::string_view ext) : tools::ScratchFile(r.TempFolder(), ext) {}
};

// Loads `picture` with the engine and saves it to r.out_file: every frame, as pages of a TIFF,
// when out_file is a TIFF and the picture has several; otherwise the first. 0 when out_file is
// there afterwards, 1 otherwise.
int SavePicture(TZubRead& r, const std::string& picture);
// Saves several pictures as the pages of out_file (TIFF), or the first one for other formats.
int SavePictures(TZubRead& r, const std::vector<std::string>& pictures);
// Saves the picture `io` holds to r.out_file (as one page when out_file is a TIFF). 0 when
// out_file is there afterwards.
int SaveLoaded(TZubRead& r, imaging::TImageEnIO& io);
// Hands on TIFFs that a tool wrote in the layout the read stage passes on (8-bit RGB pages the
// engine reads) without decoding them: one is moved into out_file's place, several are joined
// page after page. Falls back to SavePictures when out_file is not a TIFF or that fails.
// 0 when out_file is there.
int HandOnTiffs(TZubRead& r, const std::vector<std::string>& tiffs);

// The common shape of a tool-backed route: runs `command_line`, which writes `result`, then
// saves `result` to out_file. 1 when the tool is missing or wrote nothing.
int RunThenSave(TZubRead& r, std::string_view tool, const std::string& command_line,
                const std::string& result);

// The first line of a file (at most 4 KiB), without its line end.
std::string FirstLine(const std::string& path);

// Files directly in `folder` (recursive when asked), sorted by name.
std::vector<std::string> ListFiles(const std::string& folder, bool recursive);

}  // namespace pictavo::reader
