#include "engine/tools/tool_paths.h"

#include <filesystem>

#include "platform/fs.h"

namespace pictavo::tools {

std::string ToolFolder() {
  return platform::ExecutableFolder() + "utl" + platform::kPathDelim;
}

std::string ToolPath(std::string_view name) {
  std::string path = ToolFolder();
  for (char c : name) path += (c == '\\' || c == '/') ? platform::kPathDelim : c;
  return path;
}

bool IsOwnAdapter(const std::string& path) {
  std::error_code ec;
  const std::filesystem::path target = std::filesystem::read_symlink(path, ec);
  return !ec && target.filename() == "pictavo_adapter";
}

std::string Quoted(std::string_view path) {
  return "\"" + std::string(path) + "\"";
}

}  // namespace pictavo::tools
