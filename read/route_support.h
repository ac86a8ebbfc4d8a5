// What the reader routines share: tool paths under the reader's engine folder, scratch files
// that remove themselves, and the common last step "load a picture with the engine and save it
// to out_file" (every frame into a multi-page TIFF when out_file is a TIFF).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "read/zub_read.h"

namespace pictavo::imaging {
class TImageEnIO;
}

namespace pictavo::reader {

// The full path of a tool of the reader's tool folder ("djvu_read.bin", "vips\vips.exe").
std::string Tool(const TZubRead& r, std::string_view name);
// The tool folder holds the tool (a link that leads nowhere counts as absent).
bool HasTool(const TZubRead& r, std::string_view name);
// Quoted tool path: the way every command line starts.
std::string ToolArg(const TZubRead& r, std::string_view name);

// Runs a complete command line, hidden, and waits. Success is judged by the caller's files.
int RunTool(const std::string& command_line);

// A file that exists and is not empty (tools that refuse may leave an empty one).
bool FileOk(const std::string& path);
// Lower-cased extension of `path` with its dot ("" when none).
std::string LowerExt(const std::string& path);

// A scratch path in the reader's temporary folder: a fresh name with `ext` appended. The file
// (or folder) and the name's reservation marker are removed when the object goes.
class Scratch {
 public:
  Scratch(const TZubRead& r, std::string_view ext);
  ~Scratch();
  Scratch(const Scratch&) = delete;
  Scratch& operator=(const Scratch&) = delete;
  const std::string& path() const { return path_; }
  // The name without the extension (tools that append their own).
  const std::string& base() const { return base_; }

 private:
  std::string base_;
  std::string path_;
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
