// The tool manifest: one row per logical tool that the engine names, and what it maps to here.
//
// The manifest is data (utl/manifest.tsv in the repository, compiled into the engine and copied
// into the tool folder). The build makes the tool folder from it; `pictavo tools` and error
// messages read it to say what a missing tool is and which Debian package provides it.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

namespace pictavo::tools {

enum class ToolKind {
  kLink,     // a symbolic link to a Debian program that takes the engine's switches
  kAdapter,  // our adapter, which translates the switches for the programs it names
  kData,     // a data file taken from a Debian package
  kAbsent,   // no program on this platform can do the job
};

struct ProgramRef {
  std::string program;    // a program name on the search path, or a file's full path for data
  std::string package;    // the Debian package that provides it
  bool optional = false;  // an adapter works without it, with less coverage
};

struct ToolRow {
  std::string name;  // as the engine names it in the tool folder: "ogr/ogr2ogr.exe"
  ToolKind kind = ToolKind::kAbsent;
  std::vector<ProgramRef> programs;
  std::vector<std::string> reads;   // extensions this tool makes readable
  std::vector<std::string> writes;  // extensions this tool makes writable
  std::string serves;               // what the engine uses it for, and notes
};

// Parses manifest text: "#" lines and blank lines are ignored; every other line has seven
// tab-separated fields: name, kind (link|adapter|data|absent), programs, packages (both
// comma-separated and in the same order; "-" for none; a program ending in "?" is optional),
// reads, writes (";"-separated extensions, "-" for none), serves.
Status ParseManifest(std::string_view text, std::vector<ToolRow>& rows);

// The manifest compiled into the engine.
std::string_view EmbeddedManifest();
// Its rows (parsed once; an error in the embedded text is a build defect and yields no rows).
const std::vector<ToolRow>& ManifestRows();
const ToolRow* FindTool(std::string_view name);

// What a tool is on this machine, judged by the tool folder's contents.
struct ToolState {
  bool present = false;     // the tool folder holds a usable file under the tool's name
  std::string resolves_to;  // the program or file behind it (after links), when present
};
ToolState InspectTool(const ToolRow& row, const std::string& tool_folder);

// A message a user can act on: "tool "x" is missing: install PACKAGE" or "... is not available
// on this platform". Names the packages of the tool's required programs.
std::string MissingToolMessage(std::string_view name);

// True when `path`, the tool folder's file for the tool `name`, exists (a link that leads nowhere
// counts as absent); otherwise notes the missing-tool message as the running stage's trouble.
bool ToolPresent(const std::string& path, std::string_view name);
// Notes the missing-tool message of `name` as the running stage's trouble; a tool that no
// program serves on this platform is noted as the least telling kind. False when the manifest
// has no such tool.
bool NoteMissingTool(std::string_view name);

}  // namespace pictavo::tools
