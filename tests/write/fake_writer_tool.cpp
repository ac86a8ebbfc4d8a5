// A stand-in for every tool of the tool folder, linked under each logical name.
// Each run appends one line to the file named by PICTAVO_FAKE_LOG: the name it was called by
// (relative to the tool folder), then its arguments, separated by the unit separator 0x1F.
// Then it creates the outputs a caller expects: every path argument (holding a "/") that does
// not exist yet gets a small file, and the OCR engine's output base gets ".pdf" added. Tools
// whose names are listed in PICTAVO_FAKE_FAIL (comma-separated) write nothing, like a tool that
// refuses its input.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::string self = argv[0];
  const size_t utl = self.rfind("/utl/");
  const std::string name = utl == std::string::npos ? self : self.substr(utl + 5);
  if (const char* log = std::getenv("PICTAVO_FAKE_LOG")) {
    std::ofstream out(log, std::ios::app | std::ios::binary);
    out << name;
    for (int i = 1; i < argc; ++i) out << '\x1f' << argv[i];
    out << '\n';
  }
  if (const char* fail = std::getenv("PICTAVO_FAKE_FAIL")) {
    const std::string list = "," + std::string(fail) + ",";
    if (list.find("," + name + ",") != std::string::npos) return 1;
  }
  const bool ocr = name.find("tesseract") != std::string::npos;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg.rfind("-sOutputFile=", 0) == 0) arg = arg.substr(13);
    if (arg.find('/') == std::string::npos || arg[0] == '-') continue;
    if (ocr && i == 2) arg += ".pdf";
    std::error_code ec;
    if (fs::exists(arg, ec)) continue;
    std::ofstream(arg, std::ios::binary) << "output of " << name;
  }
  return 0;
}
