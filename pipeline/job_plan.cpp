#include "pipeline/job_plan.h"

#include <filesystem>
#include <string_view>

#include "direct/result_check.h"
#include "engine/tools/tool_paths.h"
#include "pipeline/naming_probe.h"
#include "pipeline/page_select.h"
#include "pipeline/routing.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "verify/content.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;

// Sources whose header tells their pages cheaply.
constexpr std::string_view kPagedSources = ";pdf;ps;tif;tiff;gif;";

std::string Key(const std::string& path) {
  std::error_code ec;
  const fs::path absolute = fs::absolute(path, ec);
  return platform::AsciiLower((ec ? fs::path(path) : absolute).lexically_normal().string());
}

std::string Tag(const std::string& path) {
  std::string ext = platform::AsciiLower(fs::path(path).extension().string());
  if (!ext.empty()) ext.erase(0, 1);
  return ";" + ext + ";";
}

int HeaderPages(const std::string& source, const settings::TMainSettings& s,
                const tools::JobContext* job) {
  const std::string tag = Tag(source);
  if (!InList(tag, kPagedSources)) return -1;
  const verify::Content c = verify::Inspect(source, tag.substr(1, tag.size() - 2),
                                            tools::ToolFolder(), s.main.temp_folder, job);
  return c.opened.ok() ? c.pages : -1;
}

}  // namespace

bool PagesAreFiles(const settings::TMainSettings& s, const std::string& source,
                   const std::string& target) {
  if (s.multipage.option == 3) return true;
  const std::string target_tag = ";" + target + ";";
  if (!InList(target_tag, direct::kOnePageTargets)) return false;
  return DecideRoute(source, s, false).direct;
}

JobPlan::JobPlan(const settings::TMainSettings& s, std::vector<std::string> sources,
                 int first_index, const tools::JobContext* job)
    : settings_(&s), first_index_(first_index) {
  std::string target = platform::AsciiLower(s.main.dest_ext);
  if (size_t gt = target.find('>'); gt != std::string::npos) target.erase(0, gt + 1);
  if (!target.empty() && target.front() == '.') target.erase(0, 1);
  files_.resize(sources.size());
  // The sources themselves are taken: no result of another file may land on one.
  for (size_t i = 0; i < sources.size(); ++i) owners_.emplace(Key(sources[i]), static_cast<int>(i));
  for (size_t i = 0; i < sources.size(); ++i) {
    PlannedFile& f = files_[i];
    const int index = static_cast<int>(i);
    f.source = std::move(sources[i]);
    settings::DestRequest req;
    req.source_path = f.source;
    req.index = first_index_ + index;
    req.probe = &NamingProbe();
    f.names = s.create_dest_filename(req);
    const int pages = PagesAreFiles(s, f.source, target) ? HeaderPages(f.source, s, job) : -1;
    if (pages > 1) {
      for (int p = 0; p < pages; ++p) {
        std::string taken_by;
        const std::string wanted = PageDestination(s, f.source, first_index_ + index, p);
        f.pages.push_back(Take(wanted, index, &taken_by));
        if (!taken_by.empty() && f.wanted.empty()) f.wanted = wanted, f.taken_by = taken_by;
      }
      continue;
    }
    const std::string wanted = f.names.result;
    f.names.result = Take(wanted, index, &f.taken_by);
    if (!f.taken_by.empty()) f.wanted = wanted;
  }
}

std::string JobPlan::Take(const std::string& wanted, int owner, std::string* taken_by) {
  auto [it, inserted] = owners_.emplace(Key(wanted), owner);
  if (inserted || it->second == owner) return wanted;
  if (taken_by) *taken_by = files_[static_cast<size_t>(it->second)].source;
  const fs::path p(wanted);
  for (int n = 2;; ++n) {
    const std::string candidate = (p.parent_path() / (p.stem().string() + " (" + std::to_string(n) +
                                                      ")" + p.extension().string()))
                                      .string();
    if (owners_.emplace(Key(candidate), owner).second) {
      ++renamed_;
      return candidate;
    }
  }
}

std::string JobPlan::PageName(int index, int page, std::string* taken_by) {
  platform::MutexLock lock(mutex_);
  const PlannedFile& f = files_.at(static_cast<size_t>(index));
  if (page >= 0 && static_cast<size_t>(page) < f.pages.size()) {
    const std::string& name = f.pages[static_cast<size_t>(page)];
    if (taken_by) {
      const std::string wanted = PageDestination(*settings_, f.source, first_index_ + index, page);
      const auto owner = owners_.find(Key(wanted));
      if (Key(wanted) != Key(name) && owner != owners_.end())
        *taken_by = files_[static_cast<size_t>(owner->second)].source;
    }
    return name;
  }
  auto found = late_pages_.find({index, page});
  if (found != late_pages_.end()) return found->second;
  const std::string name =
      Take(PageDestination(*settings_, f.source, first_index_ + index, page), index, taken_by);
  late_pages_.emplace(std::make_pair(index, page), name);
  return name;
}

std::string JobPlan::FirstResult(int index) const {
  const PlannedFile& f = files_.at(static_cast<size_t>(index));
  return f.pages.empty() ? f.names.result : f.pages.front();
}

int JobPlan::Renamed() const {
  platform::MutexLock lock(mutex_);
  return renamed_;
}

}  // namespace pictavo::pipeline
