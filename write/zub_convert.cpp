#include "write/zub_convert.h"

#include <filesystem>
#include <system_error>

#include "direct/routines.h"
#include "direct/zub_direct.h"
#include "engine/tools/route_kit.h"
#include "engine/tools/runner.h"
#include "engine/tools/temp_names.h"
#include "engine/tools/tool_paths.h"
#include "engine/tools/trouble.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "write/writer_rows.h"

namespace pictavo::writer {
namespace {

namespace fs = std::filesystem;
using tools::Quoted;

bool Occurs(std::string_view list, const std::string& key) {
  return list.empty() || list.find(key) != std::string_view::npos;
}

// The direct-conversion object for the vector routes, given this writer's job and settings.
direct::TZubDirect& PrepareDirect(TZubConvert& self, direct::TZubDirect& local) {
  direct::TZubDirect& d = self.direct ? *self.direct : local;
  d.settings = self.settings;
  d.exe_folder = self.exe_folder;
  d.temp_folder = self.temp_folder;
  d.job = self.job;
  return d;
}

// Runs `trace` with the destination swapped for a fresh scratch file of `ext`, then converts that
// file into the real destination with `convert`. When tracing fails, vec_write writes the
// destination directly.
int TraceThrough(TZubConvert& self, const std::string& ext, Writer trace,
                 int32_t (*convert)(direct::TZubDirect&, direct::Path, direct::Path)) {
  const std::string tmp = self.Scratch(ext);
  const std::string dest = self.dest_file;
  self.dest_file = tmp;
  int status = trace(self);
  self.dest_file = dest;
  if (status != 0) {
    status = vec_write(self);
  } else {
    direct::TZubDirect local;
    direct::TZubDirect& d = PrepareDirect(self, local);
    ScratchResult out(self.dest_file);
    status = convert(d, tmp, out.path());
    if (status == 0 && !out.Commit()) status = 1;
  }
  tools::RemovePath(tmp);
  return status;
}

}  // namespace

ScratchResult::ScratchResult(const std::string& dest) : dest_(dest) {
  const fs::path p(dest);
  std::string folder = p.parent_path().string();
  if (folder.empty()) folder = ".";
  base_ = tools::NewTempName(folder);
  path_ = base_ + p.extension().string();
}

ScratchResult::~ScratchResult() {
  tools::RemovePath(path_);
  tools::RemovePath(base_ + "~");  // the reservation marker: this folder is not the pipeline's
}

bool ScratchResult::Commit() {
  if (!tools::Produced(path_)) return false;
  std::error_code ec;
  fs::rename(path_, dest_, ec);
  return !ec;
}

std::string TZubConvert::DestExt() const {
  std::string ext = settings ? settings->main.dest_ext : std::string();
  if (size_t gt = ext.find('>'); gt != std::string::npos) ext = ext.substr(gt + 1);
  if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
  return platform::AsciiLower(ext);
}

std::string TZubConvert::Key() const {
  return ";" + DestExt() + ";";
}

std::string TZubConvert::Tool(std::string_view name) const {
  return tools::ToolIn(exe_folder, name);
}

bool TZubConvert::HasTool(std::string_view name) {
  return tools::ToolAvailable(exe_folder, name, &error_text);
}

std::string TZubConvert::Scratch(const std::string& ext) const {
  return tools::ScratchName(temp_folder, ext);
}

void TZubConvert::snow(imaging::TImageEnIO& io) {
  const settings::TMainSettings& s = *settings;
  if (s.colors.option_flags.Is(1) || DestExt() == "png") return;
  imaging::TIEBitmap& bmp = io.Bitmap();
  imaging::TImageEnProc proc(&bmp);
  imaging::TIOParamsVals& p = io.Params();
  const int bits = s.colors.bits_per_sample;
  if (s.colors.samples_per_pixel == 1) {
    if (bits <= 1) {
      if (proc.ConvertToBWThreshold(-1).ok()) p.BitsPerSample = 1, p.SamplesPerPixel = 1;
    } else if (bits < 8) {
      // Grey with 2^bits levels, kept in an 8-bit layout that every writer takes.
      if (proc.ConvertToGray().ok() && proc.Posterize(1 << bits).ok() &&
          bmp.ConvertTo(imaging::TIEPixelFormat::ie8g).ok())
        p.BitsPerSample = 8, p.SamplesPerPixel = 1;
    } else if (bmp.ConvertTo(bits >= 16 ? imaging::TIEPixelFormat::ie16g
                                        : imaging::TIEPixelFormat::ie8g)
                   .ok()) {
      p.BitsPerSample = bits >= 16 ? 16 : 8, p.SamplesPerPixel = 1;
    }
  } else if (s.colors.samples_per_pixel >= 3) {
    if (bits < 8) {
      // A palette of 2^(3 x bits) colours, at most 256.
      const int colors = std::min(256, 1 << (3 * std::max(bits, 1)));
      if (proc.ConvertTo(colors).ok()) p.BitsPerSample = 8, p.SamplesPerPixel = 1;
    } else if (bmp.ConvertTo(bits >= 16 ? imaging::TIEPixelFormat::ie48RGB
                                        : imaging::TIEPixelFormat::ie24RGB)
                   .ok()) {
      p.BitsPerSample = bits >= 16 ? 16 : 8, p.SamplesPerPixel = 3;
    }
  }
}

int TZubConvert::Convert() {
  int status = kNothingWritten;
  page_index = -1;
  error_text.clear();
  if (exe_folder.empty()) exe_folder = platform::ExecutableFolder();
  exe_folder = platform::IncludeTrailingDelim(exe_folder);
  if (!settings) return status;
  const std::string key = Key();
  written_files.clear();
  const int option = settings->multipage.option;
  if ((option == 2 || option == 4) && !multipage_dest.empty()) dest_file = multipage_dest;
  written_files.push_back({dest_file, 0});
  // ".raw" has no row: its own route is the engine's save of headerless pixels.
  if (key == ";raw;" && !row_runner) return simple_write(*this);
  for (const WriterRow& row : WriterRows()) {
    if (!Occurs(row.list, key)) continue;
    if (row.when && !row.when(*settings)) continue;
    if (row_runner) return row_runner(*this, row);
    if (!row.writer) return kNotHandled;
    status = row.writer(*this);
    return status;
  }
  return status;
}

pictavo::Status TZubConvert::Run() {
  tools::TroubleRecorder trouble;
  const int code = Convert();
  if (code == 0) return pictavo::Status::OK();
  // A missing tool the writer named itself is the most telling reason.
  return pictavo::Status::Error(
      error_text.empty() ? trouble.Reason("the writer left no " + DestExt() + " file") : error_text,
      code);
}

int raster_group(TZubConvert& self) {
  const std::string key = self.Key();
  const bool webp_input = platform::EqualsNoCase(self.source_ext, "webp");
  if (!webp_input && key != ";psd;") {
    if (key != ";jp2;") return simple_write(self);
    ScratchResult out(self.dest_file);
    self.HasTool("colorist.exe");
    tools::RunTool(self.Job(), Quoted(self.Tool("colorist.exe")) + " convert " +
                                   Quoted(self.src_file) + " " + Quoted(out.path()) +
                                   " -f j2k -q " + std::to_string(self.settings->jp2.quality));
    if (out.Commit()) return 0;
    return simple_write(self);
  }
  const std::string rle = key == ";psd;" ? " -compress rle" : "";
  self.HasTool("convert.bin");
  if (self.settings->multipage.option != 2) {
    {
      ScratchResult out(self.dest_file);
      tools::RunTool(self.Job(), Quoted(self.Tool("convert.bin")) + "  " + Quoted(self.src_file) +
                                     " " + Quoted(out.path()) + rle);
      if (out.Commit()) return 0;
    }
    return simple_write(self);
  }
  // Into one common file: the converter makes a TIFF that the engine then adds to it.
  int status = kNothingWritten;
  const std::string tmp = self.Scratch(".tif");
  tools::RunTool(self.Job(), Quoted(self.Tool("convert.bin")) + "  " + Quoted(self.src_file) + " " +
                                 Quoted(tmp) + rle);
  if (tools::Produced(tmp)) {
    const std::string src = self.src_file;
    self.src_file = tmp;
    status = simple_write(self);
    self.src_file = src;
  }
  tools::RemovePath(tmp);
  return status;
}

int brush_or_vector(TZubConvert& self) {
  if (self.Key() == ";gbr;" && self.settings->gbr.type == 1) return gimp_gbr_write(self);
  return write_vector(self);
}

int write_vector(TZubConvert& self) {
  const std::string ext = platform::LowerExtension(self.dest_file);
  const int option = self.settings->vec.ras2vec_option;
  if (ext == ".gbr" && self.settings->gbr.type == 1) return 1;
  if ((ext == ".dxf" || ext == ".plt") && option != 1) return vec_write_old(self);
  if (ext == ".cgm" && option != 1)
    return TraceThrough(self, ".dxf", vec_write_old, direct::vec2vec);
  if (ext != ".plt" && ext != ".gbr" && option == 3)
    return TraceThrough(self, ".plt", vec_write, direct::vec2vec);
  return vec_write(self);
}

tools::JobContext TZubConvert::Job() const {
  return job ? *job : tools::ProcessJobContext();
}

}  // namespace pictavo::writer
