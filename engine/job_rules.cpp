#include "engine/zub_process.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "pipeline/routing.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "platform/thread_annotations.h"

namespace pictavo::engine {
namespace {

namespace fs = std::filesystem;
using platform::AsciiLower;
using settings::Msg;

constexpr char kVersionLine[] = "\r\nver. 7.702";

std::string OneDecimal(double v) {
  char buf[32];
  std::snprintf(buf, sizeof buf, "%.1f", v);
  return buf;
}

}  // namespace

JobCode ParseJobCode(std::string_view code) {
  JobCode j;
  auto digit = [](char c) { return c >= '0' && c <= '9' ? c - '0' : 0; };
  if (code.size() == 2) {
    j.kind = digit(code[0]);
    j.variant = digit(code[1]);
  } else if (code.size() == 3) {
    j.kind = digit(code[0]);
    j.variant = digit(code[1]);
    j.selector = digit(code[2]);
  }
  j.valid = j.kind != 0 && j.variant != 0 && j.variant <= 4;
  return j;
}

std::string FormatSummary(int done, int total, int64_t elapsed_ms,
                          const settings::MessageTable& m) {
  std::string out = "\r\n" + m[Msg::kCompleted];
  out += "\r\n" + std::to_string(done) + " " + m[Msg::kOf] + " " + std::to_string(total) + " " +
         m[Msg::kFilesProcessed];
  if (done > 0) {
    out += "\r\n" + m[Msg::kTotalProcessingTime] + " ";
    if (elapsed_ms < 1000) {
      out += OneDecimal(elapsed_ms / 1000.0) + " sec.";
    } else {
      const double s = elapsed_ms / 1000.0;
      const int64_t whole = elapsed_ms / 1000;
      const int64_t minutes = whole / 60;
      if (minutes == 0) {
        out += OneDecimal(s) + " " + m[Msg::kSec];
      } else {
        out += std::to_string(minutes) + " " + m[Msg::kMin] + " " + std::to_string(whole % 60) +
               " " + m[Msg::kSec];
      }
    }
  }
  out += kVersionLine;
  out += "\r\n";
  return out;
}

std::string FormatOutcomes(const std::vector<pipeline::FileOutcome>& outcomes, int renamed,
                           const settings::MessageTable& m) {
  using Kind = pipeline::FileOutcome::Kind;
  std::string failed;
  int skipped = 0;
  for (const pipeline::FileOutcome& o : outcomes) {
    if (o.kind == Kind::kSkipped) ++skipped;
    if (o.kind != Kind::kFailed) continue;
    failed += "\r\n   " + o.source + ": " + o.reason;
  }
  std::string out;
  if (!failed.empty()) out += "\r\n" + m[Msg::kFailedFiles] + failed;
  if (skipped > 0) out += "\r\n" + m[Msg::kSkippedFiles] + " " + std::to_string(skipped);
  if (renamed > 0) out += "\r\n" + m[Msg::kRenamedResults] + " " + std::to_string(renamed);
  return out;
}

std::string OutcomeReport(const std::vector<pipeline::FileOutcome>& outcomes) {
  using Kind = pipeline::FileOutcome::Kind;
  std::string out;
  for (const pipeline::FileOutcome& o : outcomes) {
    if (o.kind == Kind::kDone) continue;
    out += o.kind == Kind::kFailed ? "failed\t" : "skipped\t";
    out += o.source + "\t" + o.reason + "\n";
  }
  return out;
}

std::string IntermediateFormat(std::string_view target) {
  const std::string tag = ";" + std::string(target) + ";";
  auto in = [&](std::string_view list) { return pipeline::InList(tag, list); };
  // Tested in this order: the first group that holds the target decides.
  if (in(";qoi;")) return "png";
  if (in(";webp;pcl;")) return "tif";
  if (in(";ico;")) return "tif";
  if (in(";apng;") || in(";png;apng;")) return "tif";
  if (in(";swf;")) return "pdf";
  if (in(";pdf;")) return "tif";
  if (in(";bmp;jpg;jpeg;tif;tiff;png;gif;")) return "tif";
  return {};
}

bool temp_ready(const std::string& folder) {
  const std::string probe = platform::IncludeTrailingDelim(folder) + kTempProbeName;
  {
    std::ofstream out(probe, std::ios::trunc);
    if (!out) return false;
    out << "probe";
    out.close();
    if (!out) return false;
  }
  std::error_code ec;
  return fs::remove(probe, ec) && !ec;
}

void Dir_files(const std::string& folder, const std::string& mask_list, bool subfolders,
               std::vector<std::string>& files, FolderWalk* walk) {
  std::string mask = mask_list;
  const bool all = mask == "*";
  if (!all) {
    mask.erase(std::remove(mask.begin(), mask.end(), ' '), mask.end());
    if (mask.empty() || mask.front() != ',') mask.insert(0, ",");
    if (mask.back() != ',') mask += ",";
    mask = AsciiLower(mask);
  }
  std::vector<fs::path> own, subs;
  std::error_code ec;
  for (const auto& entry : fs::directory_iterator(folder, ec)) {
    std::error_code e2;
    if (entry.is_directory(e2)) {
      if (!entry.is_symlink(e2)) subs.push_back(entry.path());
    } else {
      own.push_back(entry.path());
    }
  }
  if (ec && walk && walk->error.empty()) walk->error = folder + ": " + ec.message();
  std::sort(own.begin(), own.end());
  std::sort(subs.begin(), subs.end());
  for (const fs::path& p : own) {
    std::string ext = platform::LowerExtension(p.string());
    if (!ext.empty()) ext.erase(0, 1);
    if (all || mask.find("," + ext + ",") != std::string::npos)
      files.push_back(p.string());
    else if (walk)
      ++walk->files_masked_out;
  }
  if (!subfolders) {
    if (walk) walk->subfolders_left += static_cast<int>(subs.size());
    return;
  }
  for (const fs::path& p : subs) Dir_files(p.string(), mask_list, subfolders, files, walk);
}

std::string WhyNoFiles(const FolderWalk& walk) {
  if (!walk.error.empty()) return "the folder cannot be read: " + walk.error;
  if (walk.subfolders_left > 0)
    return "the folder holds " + std::to_string(walk.subfolders_left) +
           " sub-folder(s) and no file to convert; set \"Main\"/\"Read_subfolders\" to 1 "
           "(pictavo convert: --set Main/Read_subfolders=1) to convert theirs";
  if (walk.files_masked_out > 0)
    return "the folder holds " + std::to_string(walk.files_masked_out) +
           " file(s), none of a type that \"Main\"/\"File_mask\" accepts";
  return "the folder is empty";
}

std::string ExtractedFolder(const std::string& container) {
  return container + "_(extracted)";
}

namespace {
// The folder of the last file the job saved (see zub_process.h).
struct LastSavedState {
  platform::Mutex mutex;
  std::string folder GUARDED_BY(mutex);
};
LastSavedState& LastSaved() {
  static LastSavedState state;
  return state;
}
}  // namespace

void SetLastSavedFolder(const std::string& folder) {
  LastSavedState& last = LastSaved();
  platform::MutexLock lock(last.mutex);
  last.folder = folder;
}

std::string LastSavedFolder() {
  LastSavedState& last = LastSaved();
  platform::MutexLock lock(last.mutex);
  return last.folder;
}

}  // namespace pictavo::engine
