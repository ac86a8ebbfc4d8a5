// Where the engine finds its tools, and how command lines name them.
#pragma once

#include <string>
#include <string_view>

namespace pictavo::tools {

// The tool folder: the executable's folder followed by "utl" and the delimiter.
std::string ToolFolder();

// The full path of a tool given by its name in the tool folder, such as "pdfpsai.bin" or
// "ogr\ogr2ogr.exe" (a "\" in the name becomes the platform delimiter).
std::string ToolPath(std::string_view name);

// True when the tool-folder entry at `path` is a link to the engine's own adapter program
// (`pictavo_adapter`), whose work for some tools the engine can do in-process with the same
// library and settings. A program a user put there instead is always run.
bool IsOwnAdapter(const std::string& path);

// `path` in double quotes, the way every command line names a file. Nothing is escaped: a file
// name holding a double quote cannot be passed on any platform.
std::string Quoted(std::string_view path);

}  // namespace pictavo::tools
