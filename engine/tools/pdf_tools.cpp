#include "engine/tools/pdf_tools.h"

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>

#include "engine/tools/route_kit.h"
#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_manifest.h"
#include "engine/tools/tool_paths.h"
#include "platform/fs.h"

namespace pictavo::tools {

namespace fs = std::filesystem;

namespace {

Status NeedTool(const char* name) {
  if (platform::FileExists(ToolPath(name))) return Status::OK();
  return Status::Error(MissingToolMessage(name));
}

JobContext RunsUnder(const JobContext* job) {
  return job ? *job : ProcessJobContext();
}

std::string MergeCommand(const std::vector<std::string>& inputs, const std::string& output) {
  std::string cmd = Quoted(ToolPath("pdfmerge.bin"));
  for (const std::string& in : inputs) cmd += " " + Quoted(in);
  return cmd + " cat output " + Quoted(output);
}

// A scratch folder of its own, so that "merged.pdf" of two workers never meet.
std::string MakeScratchFolder(const std::string& temp_folder) {
  std::string folder = NewTempName(temp_folder) + "_pdf";
  std::error_code ec;
  fs::create_directories(folder, ec);
  return ec ? std::string() : platform::IncludeTrailingDelim(folder);
}

}  // namespace

Status MergePdfFiles(const std::vector<std::string>& inputs, const std::string& output,
                     const std::string& temp_folder, const JobContext* job) {
  if (inputs.empty()) return Status::Error("no PDF files to merge");
  if (Status s = NeedTool("pdfmerge.bin"); !s.ok()) return s;

  // Cut the list into parts whose command lines stay short enough; each later part starts with
  // the result of the part before.
  std::vector<std::vector<std::string>> parts(1);
  const size_t fixed = MergeCommand({}, output).size() + 16 + 256;  // room for "merged2.pdf"
  size_t length = fixed;
  for (const std::string& in : inputs) {
    size_t add = in.size() + 3;
    if (length + add > kMaxCommandLine && !parts.back().empty()) {
      parts.emplace_back();
      length = fixed;
    }
    parts.back().push_back(in);
    length += add;
  }

  std::string scratch;
  if (parts.size() > 1) {
    scratch = MakeScratchFolder(temp_folder);
    if (scratch.empty()) return Status::Error("cannot make a scratch folder in " + temp_folder);
  }
  std::string previous;
  for (size_t k = 0; k < parts.size(); ++k) {
    std::vector<std::string> list = parts[k];
    if (!previous.empty()) list.insert(list.begin(), previous);
    const bool last = k + 1 == parts.size();
    const std::string out = last ? output : scratch + (k % 2 == 0 ? "merged.pdf" : "merged2.pdf");
    fs::remove(out);
    RunAndWait(RunsUnder(job), MergeCommand(list, out), kHidden);
    if (!Produced(out)) break;
    previous = out;
  }
  if (!scratch.empty()) {
    std::error_code ec;
    fs::remove_all(scratch, ec);
  }
  return Produced(output) ? Status::OK()
                          : Status::Error("could not merge the PDF files into " + output);
}

Status MergePdfFolder(const std::string& folder, const std::string& output, const JobContext* job) {
  if (Status s = NeedTool("pdfmerge.bin"); !s.ok()) return s;
  const std::string pattern = platform::IncludeTrailingDelim(folder) + "file*.pdf";
  RunAndWait(
      RunsUnder(job),
      Quoted(ToolPath("pdfmerge.bin")) + " " + Quoted(pattern) + " cat output " + Quoted(output),
      kHidden);
  return Produced(output) ? Status::OK()
                          : Status::Error("could not merge the PDF files into " + output);
}

double PgmInkShare(const std::string& pgm_path) {
  std::optional<std::string> bytes = platform::ReadFileBytes(pgm_path);
  if (!bytes || bytes->compare(0, 2, "P5") != 0) return -1;
  const std::string& d = *bytes;
  size_t i = 2;
  long fields[3] = {0, 0, 0};
  for (long& field : fields) {
    for (;;) {  // blanks and comments between header fields
      while (i < d.size() && std::isspace(static_cast<unsigned char>(d[i]))) ++i;
      if (i < d.size() && d[i] == '#') {
        while (i < d.size() && d[i] != '\n') ++i;
        continue;
      }
      break;
    }
    if (i >= d.size() || !std::isdigit(static_cast<unsigned char>(d[i]))) return -1;
    while (i < d.size() && std::isdigit(static_cast<unsigned char>(d[i])) && field < 1000000)
      field = field * 10 + (d[i++] - '0');
  }
  ++i;  // the single blank after the maximum value
  const long width = fields[0], height = fields[1], maxval = fields[2];
  if (width <= 0 || height <= 0 || maxval != 255) return -1;
  const size_t pixels = static_cast<size_t>(width) * static_cast<size_t>(height);
  if (d.size() < i + pixels) return -1;
  size_t ink = 0;
  for (size_t p = 0; p < pixels; ++p)
    if (static_cast<unsigned char>(d[i + p]) < 240) ++ink;
  return static_cast<double>(ink) / static_cast<double>(pixels);
}

Status RemoveBlankPages(const std::string& pdf, int accuracy, const std::string& temp_folder,
                        int* removed, const JobContext* job) {
  if (removed) *removed = 0;
  if (Status s = NeedTool("pdfpsai.bin"); !s.ok()) return s;
  if (Status s = NeedTool("pdfmerge.bin"); !s.ok()) return s;
  const std::string scratch = MakeScratchFolder(temp_folder);
  if (scratch.empty()) return Status::Error("cannot make a scratch folder in " + temp_folder);
  struct Cleanup {
    std::string folder;
    ~Cleanup() {
      std::error_code ec;
      fs::remove_all(folder, ec);
    }
  } cleanup{scratch};

  RunAndWait(RunsUnder(job),
             Quoted(ToolPath("pdfpsai.bin")) +
                 " -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=pgmraw -r40 -sOutputFile=" +
                 Quoted(scratch + "p%05d.pgm") + " " + Quoted(pdf),
             kHidden);
  std::vector<std::string> pages;
  for (const auto& entry : fs::directory_iterator(scratch))
    if (entry.path().extension() == ".pgm") pages.push_back(entry.path().string());
  std::sort(pages.begin(), pages.end());
  if (pages.empty()) return Status::Error("could not render the pages of " + pdf);

  const double limit = std::clamp(100 - accuracy, 0, 100) / 100.0 * 0.001;
  std::string keep;
  int kept = 0;
  for (size_t p = 0; p < pages.size(); ++p) {
    double share = PgmInkShare(pages[p]);
    if (share >= 0 && share <= limit) continue;
    keep += " " + std::to_string(p + 1);
    ++kept;
  }
  const int blank = static_cast<int>(pages.size()) - kept;
  if (blank == 0 || kept == 0) return Status::OK();

  const std::string result = scratch + "kept.pdf";
  RunAndWait(RunsUnder(job),
             Quoted(ToolPath("pdfmerge.bin")) + " " + Quoted(pdf) + " cat" + keep + " output " +
                 Quoted(result),
             kHidden);
  if (!Produced(result)) return Status::Error("could not write the kept pages of " + pdf);
  std::error_code ec;
  fs::rename(result, pdf, ec);
  if (ec) {  // another file system: copy, then replace atomically
    std::optional<std::string> bytes = platform::ReadFileBytes(result);
    if (!bytes) return Status::Error("could not replace " + pdf);
    if (Status s = platform::WriteFileAtomic(pdf, *bytes); !s.ok()) return s;
  }
  if (removed) *removed = blank;
  return Status::OK();
}

namespace {

// Every "<key> [x0 y0 x1 y1]" of `text` in turn; false as soon as one is not a plain array of four
// numbers (an indirect reference, say), since the largest page could then be the one unseen.
bool EachBox(const std::string& text, const std::string& key, PageSize& largest, bool& any) {
  for (size_t at = text.find(key); at != std::string::npos; at = text.find(key, at + 1)) {
    size_t p = at + key.size();
    while (p < text.size() && std::isspace(static_cast<unsigned char>(text[p]))) ++p;
    if (p >= text.size() || text[p] != '[') return false;
    double v[4];
    const char* cursor = text.c_str() + p + 1;
    for (double& value : v) {
      char* end = nullptr;
      value = std::strtod(cursor, &end);
      if (end == cursor) return false;
      cursor = end;
    }
    const PageSize page{std::abs(v[2] - v[0]), std::abs(v[3] - v[1])};
    if (page.width * page.height > largest.width * largest.height) largest = page;
    any = true;
  }
  return true;
}

}  // namespace

PageSize PdfLargestPage(const std::string& pdf, const std::string& temp_folder,
                        const JobContext* job) {
  constexpr uintmax_t kLargestScanned = uintmax_t{256} << 20;
  std::error_code ec;
  const uintmax_t size = fs::file_size(pdf, ec);
  if (!ec && size <= kLargestScanned) {
    if (const std::optional<std::string> bytes = platform::ReadFileBytes(pdf)) {
      PageSize largest;
      bool any = false;
      if (bytes->find("/ObjStm") == std::string::npos &&
          EachBox(*bytes, "/MediaBox", largest, any) && any)
        return largest;
    }
  }
  if (!platform::FileExists(ToolPath("pdfpsai.bin"))) return {};
  const std::string report = NewTempName(temp_folder) + ".txt";
  RunBatch(RunsUnder(job),
           Quoted(ToolPath("pdfpsai.bin")) + " -dNODISPLAY -dPDFINFO -dBATCH -dNOPAUSE -q " +
               Quoted(pdf) + " 2> " + Quoted(report),
           temp_folder);
  const std::string text = platform::ReadFileBytes(report).value_or("");
  fs::remove(report, ec);
  PageSize largest;
  bool any = false;
  EachBox(text, "MediaBox:", largest, any);
  return largest;
}

}  // namespace pictavo::tools
