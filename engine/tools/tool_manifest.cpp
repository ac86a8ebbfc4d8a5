#include "engine/tools/tool_manifest.h"

#include <filesystem>
#include <system_error>

#include "engine/tools/trouble.h"

namespace pictavo::tools {

namespace {

std::vector<std::string> SplitOn(std::string_view s, char sep) {
  std::vector<std::string> parts;
  if (s.empty() || s == "-") return parts;
  size_t start = 0;
  for (;;) {
    size_t end = s.find(sep, start);
    std::string part(s.substr(start, end == std::string_view::npos ? end : end - start));
    if (!part.empty()) parts.push_back(part);
    if (end == std::string_view::npos) break;
    start = end + 1;
  }
  return parts;
}

struct KindName {
  std::string_view name;
  ToolKind kind;
};
constexpr KindName kKinds[] = {{"link", ToolKind::kLink},
                               {"adapter", ToolKind::kAdapter},
                               {"data", ToolKind::kData},
                               {"absent", ToolKind::kAbsent}};

}  // namespace

Status ParseManifest(std::string_view text, std::vector<ToolRow>& rows) {
  rows.clear();
  int line_no = 0;
  size_t pos = 0;
  while (pos <= text.size()) {
    size_t end = text.find('\n', pos);
    std::string_view line = text.substr(pos, end == std::string_view::npos ? end : end - pos);
    pos = end == std::string_view::npos ? text.size() + 1 : end + 1;
    ++line_no;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (line.empty() || line[0] == '#') continue;
    std::vector<std::string> f;
    size_t s = 0;
    for (;;) {
      size_t t = line.find('\t', s);
      f.emplace_back(line.substr(s, t == std::string_view::npos ? t : t - s));
      if (t == std::string_view::npos) break;
      s = t + 1;
    }
    auto error = [&](const std::string& what) {
      return Status::Error("manifest line " + std::to_string(line_no) + ": " + what);
    };
    if (f.size() != 7)
      return error("expected 7 tab-separated fields, found " + std::to_string(f.size()));
    ToolRow row;
    row.name = f[0];
    bool known = false;
    for (const KindName& k : kKinds)
      if (k.name == f[1]) {
        row.kind = k.kind;
        known = true;
      }
    if (!known) return error("unknown kind '" + f[1] + "'");
    std::vector<std::string> programs = SplitOn(f[2], ',');
    std::vector<std::string> packages = SplitOn(f[3], ',');
    if (programs.size() != packages.size()) return error("programs and packages differ in number");
    if (row.kind != ToolKind::kAbsent && programs.empty())
      return error("no program for " + row.name);
    for (size_t i = 0; i < programs.size(); ++i) {
      ProgramRef p{programs[i], packages[i], false};
      if (!p.program.empty() && p.program.back() == '?') {
        p.program.pop_back();
        p.optional = true;
      }
      row.programs.push_back(p);
    }
    row.reads = SplitOn(f[4], ';');
    row.writes = SplitOn(f[5], ';');
    row.serves = f[6];
    for (const ToolRow& r : rows)
      if (r.name == row.name) return error("tool listed twice: " + row.name);
    rows.push_back(std::move(row));
  }
  return Status::OK();
}

const std::vector<ToolRow>& ManifestRows() {
  static const std::vector<ToolRow> rows = [] {
    std::vector<ToolRow> parsed;
    if (!ParseManifest(EmbeddedManifest(), parsed).ok()) parsed.clear();
    return parsed;
  }();
  return rows;
}

const ToolRow* FindTool(std::string_view name) {
  for (const ToolRow& row : ManifestRows())
    if (row.name == name) return &row;
  return nullptr;
}

ToolState InspectTool(const ToolRow& row, const std::string& tool_folder) {
  ToolState state;
  if (row.kind == ToolKind::kAbsent) return state;
  namespace fs = std::filesystem;
  const fs::path path = fs::path(tool_folder) / row.name;
  std::error_code ec;
  fs::file_status st = fs::status(path, ec);  // follows links: a dangling link is absent
  if (ec || !fs::is_regular_file(st)) return state;
  if (row.kind != ToolKind::kData && (st.permissions() & fs::perms::owner_exec) == fs::perms::none)
    return state;
  state.present = true;
  state.resolves_to = fs::canonical(path, ec).string();
  return state;
}

std::string MissingToolMessage(std::string_view name) {
  std::string msg = "tool \"" + std::string(name) + "\"";
  const ToolRow* row = FindTool(name);
  if (row == nullptr) return msg + " is not in the tool manifest";
  if (row->kind == ToolKind::kAbsent) return msg + " is not available on this platform";
  std::string packages;
  for (const ProgramRef& p : row->programs) {
    if (p.optional || packages.find(p.package) != std::string::npos) continue;
    packages += (packages.empty() ? "" : " ") + p.package;
  }
  return msg + " is missing: install " + packages;
}

bool NoteMissingTool(std::string_view name) {
  // A tool that no package provides here is no news to the user: what the routes before it
  // said is more telling.
  const ToolRow* row = FindTool(name);
  const bool unavailable = row != nullptr && row->kind == ToolKind::kAbsent;
  NoteTrouble(unavailable ? Trouble::kUnavailable : Trouble::kMissingTool,
              MissingToolMessage(name));
  return row != nullptr;
}

bool ToolPresent(const std::string& path, std::string_view name) {
  std::error_code ec;
  if (std::filesystem::exists(path, ec)) return true;
  NoteMissingTool(name);
  return false;
}

}  // namespace pictavo::tools
