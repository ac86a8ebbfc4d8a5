// Helpers of the direct-conversion tests: a job settings record, a fake tool folder and its log.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "direct/zub_direct.h"
#include "settings/main_settings.h"
#include "tests/support/test_paths.h"

namespace pictavo::direct::testing {

namespace fs = std::filesystem;

// One logged call of a fake tool: the name it was called by, its working folder, its argv.
struct Call {
  std::string tool, cwd;
  std::vector<std::string> args;
};

// An engine folder whose utl/ holds the fake tool under every logical name the routes use.
class FakeTools {
 public:
  explicit FakeTools(const fs::path& root) : root_(root) {
    const char* names[] = {"pdfpsai.bin",
                           "7za.bin",
                           "ogr/ogr2ogr.exe",
                           "text2pdf.exe",
                           "gxpswin32.exe",
                           "pdf2vec.bin",
                           "pcl6.exe",
                           "vec2vec_direct.bin",
                           "pstoedit.bin",
                           "rsvg-convert.bin",
                           "pdftocairo.bin",
                           "assimp64/assimp.exe",
                           "uni/uniconvertor.cmd",
                           "soffice.bin",
                           "gif2webp.exe",
                           "convert.bin",
                           "hp2xx.bin",
                           "wmf2eps.bin",
                           "pdfmerge.bin",
                           "inkscape.bin"};
    for (const char* n : names) {
      fs::path p = root_ / "utl" / n;
      fs::create_directories(p.parent_path());
      fs::create_symlink(PICTAVO_FAKE_DIRECT_TOOL, p);
    }
    log_ = (root_ / "calls.log").string();
    ::setenv("PICTAVO_FAKE_DIRECT_LOG", log_.c_str(), 1);
    ::setenv("PICTAVO_FAKE_DIRECT_SILENT", "0", 1);
  }
  ~FakeTools() { ::unsetenv("PICTAVO_FAKE_DIRECT_LOG"); }

  std::string engine_folder() const { return root_.string() + "/"; }
  std::string utl() const { return root_.string() + "/utl/"; }
  void Silent(bool on) const { ::setenv("PICTAVO_FAKE_DIRECT_SILENT", on ? "1" : "0", 1); }

  std::vector<Call> Calls() const {
    std::vector<Call> calls;
    std::ifstream in(log_, std::ios::binary);
    std::string line;
    while (std::getline(in, line)) {
      std::vector<std::string> f;
      std::stringstream ss(line);
      std::string part;
      while (std::getline(ss, part, '\x1f')) f.push_back(part);
      if (f.size() < 2) continue;
      calls.push_back({f[0], f[1], {f.begin() + 2, f.end()}});
    }
    return calls;
  }
  void ClearLog() const { fs::remove(log_); }

 private:
  fs::path root_;
  std::string log_;
};

inline void WriteText(const std::string& path, const std::string& text) {
  std::ofstream(path, std::ios::binary) << text;
}

// A PDF whose page tree says `pages` pages, with the given version header.
inline void WritePdf(const std::string& path, const std::string& version, int pages) {
  WriteText(path, "%PDF-" + version + "\n1 0 obj\n<< /Type /Pages /Kids [] /Count " +
                      std::to_string(pages) + " >>\nendobj\ntrailer\n<< /Root 1 0 R >>\n%%EOF\n");
}

inline size_t CountEntries(const fs::path& folder) {
  size_t n = 0;
  for (auto it = fs::directory_iterator(folder); it != fs::directory_iterator(); ++it) ++n;
  return n;
}

}  // namespace pictavo::direct::testing
