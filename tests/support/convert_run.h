// Runs `pictavo convert` the way a user does, for the whole-job tests: its log and its standard
// error apart, the temp folder inside the test's own folder.
#pragma once

#include <filesystem>
#include <string>

#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"
#include "tests/support/test_paths.h"

namespace pictavo::testing {

struct ConvertRun {
  int status = -1;
  std::string out;  // the log (standard output)
  std::string err;  // standard error: warnings and the list of failed files
};

// True when build/pictavo and build/pictavo-engine are there to run.
inline bool ConvertIsBuilt() {
  return std::filesystem::exists(BuildDir() + "/pictavo") &&
         std::filesystem::exists(BuildDir() + "/pictavo-engine");
}

// `pictavo convert WORDS --set Main/Temp_folder=<dir>/temp`, with the view on the console.
inline ConvertRun RunConvert(const std::string& words, const TempDir& dir) {
  setenv("PICTAVO_UI", "console", 1);
  const std::string out = dir.file("convert.out"), err = dir.file("convert.err");
  ConvertRun run;
  run.status = tools::RunBatch(tools::Quoted(BuildDir() + "/pictavo") + " convert " + words +
                                   " --set Main/Temp_folder=" + tools::Quoted(dir.file("temp")) +
                                   " > " + tools::Quoted(out) + " 2> " + tools::Quoted(err),
                               "");
  run.out = platform::ReadFileBytes(out).value_or("");
  run.err = platform::ReadFileBytes(err).value_or("");
  return run;
}

}  // namespace pictavo::testing
