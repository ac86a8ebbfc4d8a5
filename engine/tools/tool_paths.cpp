#include "engine/tools/tool_paths.h"

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

std::string Quoted(std::string_view path) {
  return "\"" + std::string(path) + "\"";
}

}  // namespace pictavo::tools
