// What every tool-backed route of the stages (read, write, direct, edit) shares: where a tool of
// the tool folder is, whether it is there (and which package to install when it is not), fresh
// scratch names in the job's temporary folder, running a command line, and judging a tool by the
// file it left. The stages bind their own engine and temporary folders; nothing here keeps state.
//
// Thread safety: all functions may be called from several workers at once.
#pragma once

#include <string>
#include <string_view>

#include "engine/tools/job_context.h"

namespace pictavo::tools {

// The tool folder of an engine folder: `exe_folder` (trailing delimiter optional) + "utl" + the
// delimiter.
std::string ToolFolderIn(std::string_view exe_folder);
// The full path of a tool of that folder by its name there ("djvu_read.bin", "ogr\ogr2ogr.exe";
// a "\" or "/" in the name becomes the platform delimiter).
std::string ToolIn(std::string_view exe_folder, std::string_view name);

// True when the tool folder under `exe_folder` holds the tool (a link that leads nowhere counts
// as absent). Otherwise the tool's missing-tool message ("tool "x" is missing: install PACKAGE",
// or "... is not available on this platform") becomes the running stage's trouble and, when
// `error_text` is given and still empty, is put there too: the first reason is kept.
bool ToolAvailable(std::string_view exe_folder, std::string_view name,
                   std::string* error_text = nullptr);

// A fresh name in `temp_folder` with `ext` appended (".png"; may be empty), reserved as
// NewTempName reserves it. The caller removes what it makes under the name.
std::string ScratchName(const std::string& temp_folder, std::string_view ext);

// A scratch name that cleans up after itself: the file or folder made under it and the name's
// reservation marker are removed when the object goes.
class ScratchFile {
 public:
  ScratchFile(const std::string& temp_folder, std::string_view ext);
  ~ScratchFile();
  ScratchFile(const ScratchFile&) = delete;
  ScratchFile& operator=(const ScratchFile&) = delete;
  const std::string& path() const { return path_; }
  // The name without the extension (for tools that append their own).
  const std::string& base() const { return base_; }

 private:
  std::string base_;
  std::string path_;
};

// The produced-output check: `path` names a regular file that is not empty. A tool's exit code
// is not trusted; a tool that refuses may leave nothing or an empty file.
bool Produced(const std::string& path);

// Runs a complete command line hidden in `working_folder` (empty = the current folder) and
// waits, at most the job's time-out for that kind of tool. Returns the runner's result, which
// callers must not trust: they judge the tool by the files it left.
int RunTool(const std::string& command_line, const std::string& working_folder = std::string());
// Runs the command line as RunTool does and reports whether `expected` was then produced.
bool RunFor(const std::string& command_line, const std::string& expected,
            const std::string& working_folder = std::string());
// The same through the runner's batch form (redirections, several commands).
bool RunBatchFor(const std::string& command_line, const std::string& temp_folder,
                 const std::string& expected);
// The same three under the job's own context (time-outs and stop flag; see runner.h). The forms
// above run under ProcessJobContext().
int RunTool(const JobContext& context, const std::string& command_line,
            const std::string& working_folder = std::string());
bool RunFor(const JobContext& context, const std::string& command_line, const std::string& expected,
            const std::string& working_folder = std::string());
bool RunBatchFor(const JobContext& context, const std::string& command_line,
                 const std::string& temp_folder, const std::string& expected);

// Deletes a file or a whole folder when it exists; errors are ignored. An empty path is left.
void RemovePath(const std::string& path);

}  // namespace pictavo::tools
