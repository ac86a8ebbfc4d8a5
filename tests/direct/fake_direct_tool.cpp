// A stand-in for every tool of the direct route. Symlinked under each logical tool name, it logs
// the name it was called by, its working folder and its argv to $PICTAVO_FAKE_DIRECT_LOG (one
// record per line, fields separated by \x1f), then leaves the output that the real tool would:
//   -sOutputFile=X (%03d -> 001), "-o X" or "-oFOLDER" (7-Zip: FOLDER/<archive stem>.wmf),
//   ogr2ogr "-f F OUT IN" (OUT is a copy of IN), text2pdf (a PDF on stdout), otherwise the last
//   argument. $PICTAVO_FAKE_DIRECT_SILENT=1 leaves nothing.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <vector>

namespace fs = std::filesystem;

static void Make(const std::string& path) {
  std::ofstream out(path, std::ios::binary);
  if (path.size() > 4 && path.substr(path.size() - 4) == ".pdf")
    out << "%PDF-1.4\n% fake\n1 0 obj\n<< /Type /Pages /Count 1 >>\nendobj\n";
  else
    out << "fake output\n";
}

int main(int argc, char** argv) {
  const std::string tool = fs::path(argv[0]).filename().string();
  std::vector<std::string> args(argv + 1, argv + argc);
  if (const char* log = std::getenv("PICTAVO_FAKE_DIRECT_LOG")) {
    std::ofstream out(log, std::ios::app | std::ios::binary);
    out << tool << '\x1f' << fs::current_path().string();
    for (const auto& a : args) out << '\x1f' << a;
    out << '\n';
  }
  const char* silent = std::getenv("PICTAVO_FAKE_DIRECT_SILENT");
  if (silent && std::string(silent) == "1") return 0;
  if (tool == "text2pdf.exe") {
    std::cout << "%PDF-1.4\n% fake text\n";
    return 0;
  }
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if (a.rfind("-sOutputFile=", 0) == 0) {
      std::string out = a.substr(13);
      if (auto at = out.find("%03d"); at != std::string::npos) out.replace(at, 4, "001");
      Make(out);
      return 0;
    }
    if (tool == "ogr2ogr.exe" && a == "-f" && i + 3 < args.size()) {
      std::error_code ec;
      fs::copy_file(args[i + 3], args[i + 2], fs::copy_options::overwrite_existing, ec);
      if (ec) Make(args[i + 2]);
      return 0;
    }
    if (a == "-o" && i + 1 < args.size()) {
      Make(args[i + 1]);
      return 0;
    }
    if (tool == "7za.bin" && a.rfind("-o", 0) == 0 && a.size() > 2) {
      std::string archive;
      for (const auto& b : args)
        if (!b.empty() && b[0] != '-' && b != "x") archive = b;
      Make((fs::path(a.substr(2)) / fs::path(archive).stem()).string() + ".wmf");
      return 0;
    }
  }
  if (!args.empty()) Make(args.back());
  return 0;
}
