// The job's plan: every source with the names of its results, made before the first file runs.
// The run, `pictavo convert --dry-run` and `pictavo name` all take their names from it, so what
// a dry run predicts is what the run writes, whatever the number of workers.
//
// No result of a job takes another's name: when two sources (or pages) of one job would get the
// same result name, the later one in the job's order gets the numbered form that "Save"/
// "OverWrite" 3 uses ("name (2).ext"), and the plan remembers whose name it was. Files that
// existed before the job are not the plan's business: the saving step treats them as
// "Save"/"OverWrite" says. Names compare without regard to case, as on the file systems the
// front end targets.
//
// Thread safety: the constructor plans everything it can; PageName and the accessors may then
// be called from several workers at once.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "engine/tools/job_context.h"
#include "platform/thread_annotations.h"
#include "settings/main_settings.h"

namespace pictavo::pipeline {

struct PlannedFile {
  std::string source;
  settings::DestNames names;  // names.result: the result's name after the plan
  // When the template's name was taken in the job: that name and the source that holds it.
  std::string wanted;
  std::string taken_by;
  // The pages' names, when the source's header tells that it has several and the job writes
  // every page to a file of its own; empty otherwise (they are then named when they are made).
  std::vector<std::string> pages;
};

class JobPlan {
 public:
  JobPlan() = default;
  // Plans `sources` in the job's order for the job's target ("Main"/"Dest_ext"). `settings`
  // must outlive the plan.
  // `first_index`: the running number of the first source (the template's counter).
  // `job`: the context the page-count probes' tools run under; null = the process's.
  JobPlan(const settings::TMainSettings& settings, std::vector<std::string> sources,
          int first_index = 0, const tools::JobContext* job = nullptr);

  const std::vector<PlannedFile>& files() const { return files_; }

  // The name of page `page` (0-based) of source `index` when its pages are written as files of
  // their own: the planned name, or else the template's page name, made unique in the job now.
  // `taken_by` (optional) receives the source whose name the page would have taken.
  std::string PageName(int index, int page, std::string* taken_by = nullptr);

  // The first result name of source `index`: its first page's when the pages are planned.
  std::string FirstResult(int index) const;

  // How many results the plan gave a numbered name, so far.
  int Renamed() const;

 private:
  // Takes `wanted` for `owner` (an index into files_), or its first free numbered form.
  // The constructor calls it before any worker runs, without the mutex.
  std::string Take(const std::string& wanted, int owner, std::string* taken_by) REQUIRES(mutex_);

  const settings::TMainSettings* settings_ = nullptr;
  int first_index_ = 0;
  std::vector<PlannedFile> files_;
  mutable platform::Mutex mutex_;
  // lower-cased name -> index of the source that has it
  std::map<std::string, int> owners_ GUARDED_BY(mutex_);
  std::map<std::pair<int, int>, std::string> late_pages_ GUARDED_BY(mutex_);
  int renamed_ GUARDED_BY(mutex_) = 0;
};

// True when every page of a multi-page source is written to a file of its own for `target`:
// "Multipage"/"Option" 3, or a target that holds one page reached by a direct conversion of a
// document.
bool PagesAreFiles(const settings::TMainSettings& settings, const std::string& source,
                   const std::string& target);

}  // namespace pictavo::pipeline
