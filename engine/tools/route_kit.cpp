#include "engine/tools/route_kit.h"

#include <filesystem>
#include <system_error>

#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_manifest.h"
#include "platform/fs.h"

namespace pictavo::tools {

namespace fs = std::filesystem;

std::string ToolFolderIn(std::string_view exe_folder) {
  return platform::IncludeTrailingDelim(exe_folder) + "utl" + platform::kPathDelim;
}

std::string ToolIn(std::string_view exe_folder, std::string_view name) {
  std::string path = ToolFolderIn(exe_folder);
  for (char c : name) path += (c == '\\' || c == '/') ? platform::kPathDelim : c;
  return path;
}

bool ToolAvailable(std::string_view exe_folder, std::string_view name, std::string* error_text) {
  if (ToolPresent(ToolIn(exe_folder, name), name)) return true;
  if (error_text && error_text->empty()) *error_text = MissingToolMessage(name);
  return false;
}

std::string ScratchName(const std::string& temp_folder, std::string_view ext) {
  return NewTempName(temp_folder) + std::string(ext);
}

ScratchFile::ScratchFile(const std::string& temp_folder, std::string_view ext)
    : base_(NewTempName(temp_folder)), path_(base_ + std::string(ext)) {}

ScratchFile::~ScratchFile() {
  std::error_code ec;
  fs::remove_all(path_, ec);
  fs::remove(base_ + "~", ec);  // the name's reservation marker
}

bool Produced(const std::string& path) {
  std::error_code ec;
  return !path.empty() && fs::is_regular_file(path, ec) && fs::file_size(path, ec) > 0 && !ec;
}

int RunTool(const std::string& command_line, const std::string& working_folder) {
  return RunTool(ProcessJobContext(), command_line, working_folder);
}

bool RunFor(const std::string& command_line, const std::string& expected,
            const std::string& working_folder) {
  return RunFor(ProcessJobContext(), command_line, expected, working_folder);
}

bool RunBatchFor(const std::string& command_line, const std::string& temp_folder,
                 const std::string& expected) {
  return RunBatchFor(ProcessJobContext(), command_line, temp_folder, expected);
}

int RunTool(const JobContext& context, const std::string& command_line,
            const std::string& working_folder) {
  return RunAndWaitTimeout(context, command_line, kHidden, working_folder, 0);
}

bool RunFor(const JobContext& context, const std::string& command_line, const std::string& expected,
            const std::string& working_folder) {
  RunTool(context, command_line, working_folder);
  return Produced(expected);
}

bool RunBatchFor(const JobContext& context, const std::string& command_line,
                 const std::string& temp_folder, const std::string& expected) {
  RunBatch(context, command_line, temp_folder);
  return Produced(expected);
}

void RemovePath(const std::string& path) {
  std::error_code ec;
  if (!path.empty()) fs::remove_all(path, ec);
}

}  // namespace pictavo::tools
