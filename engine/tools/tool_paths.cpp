#include "engine/tools/tool_paths.h"

#include <filesystem>

#include "engine/tools/route_kit.h"
#include "platform/fs.h"

namespace pictavo::tools {

std::string ToolFolder() {
  return ToolFolderIn(platform::ExecutableFolder());
}

std::string ToolPath(std::string_view name) {
  return ToolIn(platform::ExecutableFolder(), name);
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
