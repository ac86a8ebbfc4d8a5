// `pictavo tools [--json]`: what each tool of the tool folder resolves to on this machine, and
// which formats are therefore readable and writable through tools.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <string>

#include "cli/commands.h"
#include "engine/tools/tool_manifest.h"
#include "engine/tools/tool_paths.h"

namespace pictavo::cli {

namespace {

using tools::ToolKind;
using tools::ToolRow;

bool OnSearchPath(const std::string& program) {
  const char* path = std::getenv("PATH");
  std::string dirs = path ? path : "/usr/bin:/bin";
  size_t start = 0;
  for (;;) {
    size_t end = dirs.find(':', start);
    std::string dir = dirs.substr(start, end == std::string::npos ? end : end - start);
    std::error_code ec;
    if (!dir.empty() && std::filesystem::is_regular_file(dir + "/" + program, ec)) return true;
    if (end == std::string::npos) return false;
    start = end + 1;
  }
}

struct Report {
  const ToolRow* row;
  std::string state;   // "resolved", "missing", "absent"
  std::string detail;  // what it resolves to, or what to do
};

std::string Packages(const ToolRow& row) {
  std::string out;
  for (const tools::ProgramRef& p : row.programs)
    if (out.find(p.package) == std::string::npos) out += (out.empty() ? "" : ", ") + p.package;
  return out;
}

Report Inspect(const ToolRow& row, const std::string& folder) {
  Report r{&row, "", ""};
  if (row.kind == ToolKind::kAbsent) {
    r.state = "absent";
    r.detail = "not available on this platform";
    return r;
  }
  tools::ToolState st = tools::InspectTool(row, folder);
  if (!st.present) {
    r.state = "missing";
    std::string msg = tools::MissingToolMessage(row.name);
    r.detail = msg.substr(msg.find("missing:"));
    return r;
  }
  r.state = "resolved";
  if (row.kind == ToolKind::kAdapter) {
    r.detail = "adapter over";
    for (const tools::ProgramRef& p : row.programs) {
      if (p.optional && !OnSearchPath(p.program)) {
        r.detail += " [" + p.program + " missing: install " + p.package + "]";
        continue;
      }
      r.detail += " " + p.program;
    }
    r.detail += " (" + Packages(row) + ")";
  } else {
    r.detail = st.resolves_to + " (" + Packages(row) + ")";
  }
  return r;
}

std::string Json(const std::string& s) {
  std::string out = "\"";
  for (unsigned char c : s) {
    if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
    } else if (c < 0x20) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\u%04x", c);
      out += buf;
    } else {
      out += static_cast<char>(c);
    }
  }
  return out + "\"";
}

std::string JsonList(const std::set<std::string>& items) {
  std::string out = "[";
  for (const std::string& i : items) out += (out.size() > 1 ? ", " : "") + Json(i);
  return out + "]";
}

std::string Joined(const std::set<std::string>& items) {
  std::string out;
  for (const std::string& i : items) out += (out.empty() ? "" : " ") + i;
  return out.empty() ? "(none)" : out;
}

constexpr const char* KindName(ToolKind k) {
  switch (k) {
    case ToolKind::kLink:
      return "link";
    case ToolKind::kAdapter:
      return "adapter";
    case ToolKind::kData:
      return "data";
    case ToolKind::kAbsent:
      return "absent";
  }
  return "";
}

}  // namespace

int CmdTools(const Invocation& in) {
  // Every word is taken for an option here: the command takes no file.
  if (!in.positional.empty()) return in.UsageError("unknown option '" + in.positional[0] + "'");
  const bool json = in.Has("--json");
  const std::string folder = tools::ToolFolder();
  const bool folder_exists = std::filesystem::is_directory(folder);
  std::vector<Report> reports;
  std::set<std::string> reads, writes, lost_reads, lost_writes;
  for (const ToolRow& row : tools::ManifestRows()) {
    reports.push_back(Inspect(row, folder));
    bool ok = reports.back().state == "resolved";
    (ok ? reads : lost_reads).insert(row.reads.begin(), row.reads.end());
    (ok ? writes : lost_writes).insert(row.writes.begin(), row.writes.end());
  }
  for (const std::string& f : reads) lost_reads.erase(f);
  for (const std::string& f : writes) lost_writes.erase(f);

  if (json) {
    std::printf("{\n  \"tool_folder\": %s,\n  \"tool_folder_exists\": %s,\n  \"tools\": [\n",
                Json(folder).c_str(), folder_exists ? "true" : "false");
    for (size_t i = 0; i < reports.size(); ++i) {
      const Report& r = reports[i];
      std::set<std::string> rd(r.row->reads.begin(), r.row->reads.end());
      std::set<std::string> wr(r.row->writes.begin(), r.row->writes.end());
      std::printf(
          "    {\"name\": %s, \"kind\": \"%s\", \"state\": \"%s\", \"detail\": %s, "
          "\"packages\": %s, \"reads\": %s, \"writes\": %s, \"serves\": %s}%s\n",
          Json(r.row->name).c_str(), KindName(r.row->kind), r.state.c_str(), Json(r.detail).c_str(),
          Json(Packages(*r.row)).c_str(), JsonList(rd).c_str(), JsonList(wr).c_str(),
          Json(r.row->serves).c_str(), i + 1 < reports.size() ? "," : "");
    }
    std::printf(
        "  ],\n  \"formats\": {\"read\": %s, \"write\": %s, \"read_unavailable\": %s, "
        "\"write_unavailable\": %s}\n}\n",
        JsonList(reads).c_str(), JsonList(writes).c_str(), JsonList(lost_reads).c_str(),
        JsonList(lost_writes).c_str());
    return folder_exists ? 0 : 1;
  }

  std::printf("Tool folder: %s%s\n\n", folder.c_str(), folder_exists ? "" : " (not found)");
  int counts[3] = {0, 0, 0};
  for (const Report& r : reports) {
    std::printf("  %-24s %-8s %-8s %s\n", r.row->name.c_str(), KindName(r.row->kind),
                r.state.c_str(), r.detail.c_str());
    ++counts[r.state == "resolved" ? 0 : r.state == "missing" ? 1 : 2];
  }
  std::printf("\n%d resolved, %d missing, %d not available on this platform.\n\n", counts[0],
              counts[1], counts[2]);
  std::printf("Readable through tools:  %s\n", Joined(reads).c_str());
  std::printf("Writable through tools:  %s\n", Joined(writes).c_str());
  std::printf("Not readable here:       %s\n", Joined(lost_reads).c_str());
  std::printf("Not writable here:       %s\n", Joined(lost_writes).c_str());
  return folder_exists ? 0 : 1;
}

}  // namespace pictavo::cli
