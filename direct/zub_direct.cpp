#include "direct/zub_direct.h"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "direct/direct_rows.h"
#include "direct/result_check.h"
#include "direct/routines.h"
#include "engine/tools/probes.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "engine/tools/trouble.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::direct {

namespace fs = std::filesystem;
using tools::Quoted;

// ---- Shared helpers ---------------------------------------------------------------------------

std::string ExtOf(Path path) {
  fs::path p(path);
  std::string ext = p.extension().string();
  if (!ext.empty() && ext[0] == '.') ext.erase(0, 1);
  return platform::AsciiLower(ext);
}

bool CopyFile(Path from, Path to) {
  std::error_code ec;
  fs::copy_file(from, to, fs::copy_options::overwrite_existing, ec);
  return !ec;
}

int32_t NoProgram(TZubDirect& self, const std::string& what) {
  self.error_text = what + ": no program on this platform converts this pair";
  return kDirectNoProgram;
}

std::string TZubDirect::ToolFolder() const {
  return tools::ToolFolderIn(exe_folder);
}

std::string TZubDirect::Tool(std::string_view name) const {
  return tools::ToolIn(exe_folder, name);
}

bool TZubDirect::HasTool(std::string_view name) {
  return tools::ToolAvailable(exe_folder, name, &error_text);
}

std::string TZubDirect::Scratch(const std::string& ext) {
  std::string base = tools::ScratchName(temp_folder, "");
  scratch_names_.push_back(base);
  return base + ext;
}

namespace {

bool StartsWith(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && s.compare(0, prefix.size(), prefix) == 0;
}

// A name beside `dest` that the result is written under before it is renamed into place.
std::string ScratchBeside(const std::string& dest) {
  static std::atomic<unsigned> counter{0};
  fs::path p(dest);
  auto now = std::chrono::steady_clock::now().time_since_epoch().count();
  std::string tag = "rcp" + std::to_string(now % 1000000007) + "_" + std::to_string(++counter);
  fs::path parent = p.parent_path();
  return (parent / (tag + "_" + p.filename().string())).string();
}

}  // namespace

void TZubDirect::CleanScratch() {
  // Outputs handed to the pipeline stay; everything else made under a scratch name goes.
  auto handed_on = [&](const std::string& path) {
    for (const auto& f : more_files)
      if (f.file_name == path) return true;
    return false;
  };
  for (const std::string& base : scratch_names_) {
    fs::path b(base);
    std::error_code ec;
    const std::string stem = b.filename().string();
    for (auto it = fs::directory_iterator(b.parent_path(), ec);
         !ec && it != fs::directory_iterator(); it.increment(ec)) {
      const std::string name = it->path().filename().string();
      if (!StartsWith(name, stem) || handed_on(it->path().string())) continue;
      std::error_code rm;
      fs::remove_all(it->path(), rm);
    }
  }
  scratch_names_.clear();
}

// ---- Preparation ------------------------------------------------------------------------------

namespace {

// A GIS or DGN source copied under a scratch name with its sidecar files; false when the
// copy failed.
bool CopyWithSidecars(TZubDirect& self) {
  const std::string base = self.Scratch("");
  const std::string tmp = base + "." + self.src_ext;
  if (CopyFile(self.src_file, tmp)) {
    fs::path s(self.src_file);
    const std::string src_base = (s.parent_path() / s.stem()).string();
    std::vector<const char*> sidecars;
    if (self.src_tag == ";shp;") sidecars = {".cpg", ".dbf", ".prj", ".shx"};
    // A MapInfo table is unreadable without its data and map files.
    if (self.src_tag == ";tab;") sidecars = {".dat", ".id", ".map", ".ind"};
    for (const char* ext : sidecars) {
      for (const std::string& e : {std::string(ext), platform::AsciiUpper(ext)}) {
        if (platform::FileExists(src_base + e)) {
          CopyFile(src_base + e, base + ext);
          break;
        }
      }
    }
    self.src_file = tmp;
    return true;
  }
  return false;
}

// A compressed metafile (.wmz, .emz) unpacked into a scratch folder; false when nothing came
// out (the folder is removed then).
bool UnpackMetafile(TZubDirect& self) {
  const std::string folder = self.Scratch("");
  std::error_code ec;
  fs::create_directories(folder, ec);
  const std::string cmd =
      Quoted(self.Tool("7za.bin")) + " x -y " + Quoted(self.src_file) + " -o" + Quoted(folder);
  tools::RunTool(self.Job(), cmd);
  const std::string expected = (fs::path(folder) / fs::path(self.src_file).stem()).string() +
                               (self.src_tag == ";wmz;" ? ".wmf" : ".emf");
  if (!tools::Produced(expected)) {
    std::vector<fs::path> files;
    for (auto it = fs::directory_iterator(folder, ec); !ec && it != fs::directory_iterator();
         it.increment(ec))
      if (it->is_regular_file()) files.push_back(it->path());
    // 7-Zip names a gzip member after its stored name, which compressed metafiles often
    // lack; the expected file is then taken from what it left, or unpacked here.
    if (files.size() == 1)
      fs::rename(files[0], expected, ec);
    else
      Gunzip(self.src_file, expected);
  }
  const bool unpacked = tools::Produced(expected);
  if (unpacked)
    self.src_file = expected;
  else
    tools::RemovePath(folder);
  // The switch to ";wmf;" / ";emf;" compares with ".wmz" / ".emz" and so never happens.
  if (self.src_tag == ".wmz") self.src_tag = ";wmf;";
  if (self.src_tag == ".emz") self.src_tag = ";emf;";
  return unpacked;
}

}  // namespace

void TZubDirect::Prepare() {
  bool prepared = false;
  const std::string given = src_file;

  // CGM normalising (binary CGM only).
  if (src_tag == ";cgm;" && tools::IsBinaryCgm(src_file)) {
    const std::string tmp = Scratch(".cgm");
    const std::string cmd =
        Quoted(Tool("vec2vec_direct.bin")) + " " + Quoted(src_file) + " " + Quoted(tmp);
    if (tools::RunFor(Job(), cmd, tmp, ToolFolder())) {
      src_file = tmp;
      prepared = true;
    }
  }

  // SVG fonts, then the style repair of whichever file is now the source.
  if (src_tag == ";svg;") {
    const std::string fonts = Scratch(".svg");
    fonts_replaced = svg_replace_fonts(*this, src_file, fonts) != -1;
    const std::string fixed = Scratch(".svg");
    if (tools::Produced(fonts)) {
      src_file = fonts;
      prepared = true;
      if (fix_svg(*this, fonts, fixed) == 0 && tools::Produced(fixed)) {
        src_file = fixed;
        tools::RemovePath(fonts);
      }
    } else if (fix_svg(*this, src_file, fixed) == 0 && tools::Produced(fixed)) {
      src_file = fixed;
      prepared = true;
    }
  }

  // Printer files are PCL.
  if (src_tag == ";pxl;" || src_tag == ";prn;") {
    const std::string tmp = Scratch(".pcl");
    if (CopyFile(src_file, tmp)) {
      src_file = tmp;
      prepared = true;
    }
    src_tag = ";pcl;";
  }

  // PDF 1.6 and 1.7 are rewritten to 1.4, except for the targets that read them as they are.
  if (dest_tag != ";svg;" && dest_tag != ";dwf;" && dest_tag != ";plt;" && src_tag == ";pdf;" &&
      is_pdf1_567(src_file)) {
    const std::string tmp = Scratch("." + src_ext);
    const std::string cmd = Quoted(Tool("pdfpsai.bin")) +
                            " -dBATCH -dNOPAUSE -sDEVICE=pdfwrite -dCompatibilityLevel=1.4 -o " +
                            Quoted(tmp) + " " + Quoted(src_file);
    if (tools::RunFor(Job(), cmd, tmp)) {
      src_file = tmp;
      prepared = true;
    }
  }

  // GIS and DGN sources are worked on as copies (with their sidecar files).
  if (src_tag != ";vsi;" && !prepared &&
      (src_tag == ";dgn;" || kGisList.find(src_tag) != std::string_view::npos))
    prepared = CopyWithSidecars(*this);

  // Compressed metafiles are unpacked; the tag deliberately stays ";wmz;" / ";emz;", and the
  // rows choose by it.
  if ((src_tag == ";wmz;" || src_tag == ";emz;") && UnpackMetafile(*this)) prepared = true;

  // HPGL: header fix, then the rewrite; the result counts only when the header fix wrote.
  if (src_tag == ";plt;") {
    const std::string fixed = Scratch(".plt");
    plt_fix_header(*this, src_file, fixed);
    const std::string rewritten = Scratch(".plt");
    plt_rewrite(*this, tools::Produced(fixed) ? fixed : src_file, rewritten);
    if (tools::Produced(fixed)) {
      src_file = tools::Produced(rewritten) ? rewritten : fixed;
      prepared = true;
    }
  }

  // A .dat that holds PostScript.
  if (src_tag == ";dat;" && tools::IsPostScript(src_file)) {
    const std::string tmp = Scratch(".ps");
    if (CopyFile(src_file, tmp) && tools::Produced(tmp)) {
      src_file = tmp;
      src_tag = ";ps;";
      prepared = true;
    }
  }

  more_files.clear();
  (void)given;
}

// ---- Rows -------------------------------------------------------------------------------------

int32_t RunRow(TZubDirect& self, const DirectRow& row) {
  const std::string& src = self.src_file;
  const std::string& dest = self.dest_file;
  switch (row.kind) {
    case RowKind::kRoutine:
    case RowKind::kVec2AdobeMode0:
      return row.routine(self, src, dest);
    case RowKind::kCopySvg:
      CopyFile(src, dest);
      return tools::Produced(dest) ? 0 : kDirectNoRoute;
    case RowKind::kDwgDxf: {
      const int version =
          row.number == 7 ? self.settings->dwg_write.version : self.settings->dxf_write.version;
      if (self.settings->dxf_dwg_read.extract_layers)
        return convert_dwg_dxf_layers(self, src, dest, version);
      return convert_dwg_dxf(self, src, dest, version);
    }
    case RowKind::kSvgViaPdf: {
      const std::string pdf = self.Scratch(".pdf");
      int32_t status = vec2adobe(self, src, pdf, 1);
      if (status == 0) status = adobe2vec(self, pdf, dest);
      tools::RemovePath(pdf);
      if (status != 0) status = inkscape2svg(self, src, dest);
      return status;
    }
    case RowKind::kPdfMode: {
      const int c = self.settings->pdf_write.compression;
      if (c == 4 || c == 6) self.pdf_mode = true;
      if (row.number == 24 && (self.dest_tag == ";eps;" || self.dest_tag == ";ps;")) {
        const std::string pdf = self.Scratch(".pdf");
        int32_t status = adobe(self, src, pdf);
        if (status == 0) status = adobe(self, pdf, dest);
        tools::RemovePath(pdf);
        return status;
      }
      return row.routine(self, src, dest);
    }
  }
  return kDirectNoRoute;
}

// ---- Direct -----------------------------------------------------------------------------------

pictavo::Status TZubDirect::Run() {
  tools::TroubleRecorder trouble;
  const int32_t code = Direct();
  if (code == 0) return pictavo::Status::OK();
  const std::string reason = trouble.Reason("the conversion left no " + dest_ext + " file");
  // A refused result or a tool ended by the time-out says more than a routine's own guess.
  const bool deeper = trouble.Has(tools::Trouble::kResultRejected) ||
                      trouble.Has(tools::Trouble::kToolEnded) ||
                      trouble.Has(tools::Trouble::kLimit);
  return pictavo::Status::Error(error_text.empty() || deeper ? reason : error_text, code);
}

int32_t TZubDirect::Direct() {
  fonts_replaced = svg_round_trip = ai_output = pdf_mode = false;
  first_page = last_page = -1;
  counter = 0;
  source_pages = -1;
  row = nullptr;
  error_text.clear();
  src_ext = ExtOf(src_file);
  dest_ext = ExtOf(dest_file);
  src_tag = ";" + src_ext + ";";
  dest_tag = ";" + dest_ext + ";";
  if (dest_folder.empty())
    dest_folder = platform::IncludeTrailingDelim(fs::path(src_file).parent_path().string());
  int32_t status = kDirectNoRoute;
  const std::string given_src = src_file;
  const std::string final_dest = dest_file;
  std::string work_dest;

  try {
    Prepare();
    row = FindDirectRow(src_tag, dest_tag);
    if (row) {
      work_dest = ScratchBeside(final_dest);
      dest_file = work_dest;
      status = row_runner ? row_runner(*this, *row) : RunRow(*this, *row);
    }
  } catch (...) {
    // A failing routine must not skip the clean-up; its status stays what it was.
  }

  if (!work_dest.empty()) {
    wpdf(*this, work_dest);
    // The result counts only when it holds what the source holds; otherwise it is no result.
    if (status == 0 && verify_results && !row_runner && tools::Produced(work_dest)) {
      std::vector<std::string> outputs{work_dest};
      for (const auto& f : more_files)
        if (std::find(outputs.begin(), outputs.end(), f.file_name) == outputs.end())
          outputs.push_back(f.file_name);
      const Status checked =
          CheckDirectResult(*this, given_src, work_dest, static_cast<int>(outputs.size()));
      if (!checked.ok()) {
        tools::NoteTrouble(tools::Trouble::kResultRejected, checked.message());
        for (const std::string& f : outputs) tools::RemovePath(f);
        more_files.clear();
        status = kDirectFailed;
      }
    }
    dest_file = final_dest;
    // Outputs of the first layer or page may have been handed on under the scratch name.
    for (auto& f : more_files)
      if (f.file_name == work_dest) f.file_name = final_dest;
    if (tools::Produced(work_dest)) {
      std::error_code ec;
      fs::rename(work_dest, final_dest, ec);
      if (ec && status == 0) status = kDirectFailed;
      // Formats of several files (a shapefile's .dbf, .shx, .prj) follow their main file.
      const fs::path w(work_dest), f(final_dest);
      const std::string stem = w.stem().string() + ".";
      for (auto it = fs::directory_iterator(w.parent_path(), ec);
           !ec && it != fs::directory_iterator(); it.increment(ec)) {
        const std::string name = it->path().filename().string();
        if (!StartsWith(name, stem)) continue;
        std::error_code rn;
        fs::rename(it->path(),
                   f.parent_path() / (f.stem().string() + it->path().extension().string()), rn);
      }
    }
    tools::RemovePath(work_dest);
  }
  dest_file = final_dest;
  src_file = given_src;
  CleanScratch();
  return status;
}

tools::JobContext TZubDirect::Job() const {
  return job ? *job : tools::ProcessJobContext();
}

}  // namespace pictavo::direct
