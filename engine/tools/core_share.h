// How many threads the work on one file may use. The job runs one worker per core, each on its
// own file; while fewer files than cores are in progress (a job of one long document, the last
// files of a batch), the work inside a file that splits into independent parts (page ranges of a
// document, the pages of a multi-page save) takes the cores the other workers leave idle.
//
// Thread safety: all functions may be called from several workers at once.
#pragma once

namespace pictavo::tools {

// Counts the calling worker busy with one file for its lifetime.
class BusyWithFile {
 public:
  BusyWithFile();
  ~BusyWithFile();
  BusyWithFile(const BusyWithFile&) = delete;
  BusyWithFile& operator=(const BusyWithFile&) = delete;
};

// The cores divided among the files in progress, at least 1 (all cores when none is counted, as
// when a stage runs outside a job).
int ThreadsForOneFile();

}  // namespace pictavo::tools
