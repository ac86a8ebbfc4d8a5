#include "read/zub_read.h"

#include <exception>
#include <filesystem>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include "engine/tools/route_kit.h"
#include "engine/tools/runner.h"
#include "engine/tools/trouble.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "read/read_routes.h"
#include "read/route_support.h"
#include "verify/content.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

// Characters that tools receive safely on every platform; anything else (a blank included) makes
// the reader work on a copy under a scratch name.
bool IsSafeNameChar(char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_' || c == ':' || c == '\\' || c == '.' || c == platform::kPathDelim;
}

bool IsUnsafeName(const std::string& path) {
  for (char c : path)
    if (!IsSafeNameChar(c)) return true;
  return false;
}

std::string FolderOf(const std::string& path) {
  std::string folder = fs::path(path).parent_path().string();
  return folder.empty() ? folder : platform::IncludeTrailingDelim(folder);
}

void RemoveScratch(const std::string& path) {
  std::error_code ec;
  fs::remove(path, ec);
  // The reservation marker of a scratch name: the name without extension followed by "~".
  fs::remove(fs::path(path).replace_extension().string() + "~", ec);
}

// The engine itself: load by content, save by out_file's extension. Several frames become the
// pages of a multi-page TIFF when out_file is one (animated GIF has no route of its own).
// A shapefile or MapInfo interchange file is several files sharing one stem: a copy of the main
// file needs its companions beside it under the copy's stem. Returns the companions made.
std::vector<std::string> CopyCompanions(const std::string& source, const std::string& copy) {
  std::vector<std::string> made;
  const fs::path src(source);
  std::error_code ec;
  for (const fs::directory_entry& entry : fs::directory_iterator(src.parent_path(), ec)) {
    const fs::path& p = entry.path();
    if (p == src || p.stem() != src.stem() || !entry.is_regular_file(ec)) continue;
    fs::path target(copy);
    target.replace_extension(p.extension());
    if (fs::copy_file(p, target, fs::copy_options::overwrite_existing, ec))
      made.push_back(target.string());
  }
  return made;
}

// Camera raws: a file cut short still decodes, to a picture of the full size made of nothing.
constexpr std::string_view kCameraRawKeys =
    ";ari;3fr;cap;dcs;drf;iiq;ptx;pxn;r3d;rwl;rwz;srw;mef;qtk;rw2;arw;bay;bmq;cr2;crw;cs1;dc2;dcr;"
    "dng;erf;k25;kc2;mdc;mos;mrw;nef;nrw;pef;raf;rdc;sr2;srf;x3f;sti;fff;kdc;orf;cr3;";
// Formats whose tools paint an empty page when they understand nothing of the file.
constexpr std::string_view kBlankOnFailureKeys =
    ";emf;wmf;emz;wmz;cgm;fits;fit;fts;gbp;gpb;gko;gm2;gbo;gtp;gm1;gbr;gbx;art;sol;stc;sts;plc;"
    "pls;drd;top;bot;smt;smb;sst;ssb;tap;gtl;gbl;gts;gbs;gto;drl;gm4;xln;pho;grb;gdo;ncd;exc;cnc;";
// Even a lossy raw holds far more than one bit per 64 pixels.
constexpr uint64_t kMinRawPixelsPerByte = 64;

bool KeyIn(std::string_view list, const std::string& key) {
  return key.size() > 2 && list.find(key) != std::string_view::npos;
}

// A route's picture counts only when the engine opens it and it is not what a tool leaves when
// it fails: a picture of one pixel, a camera raw's full-size picture from a file too small to
// hold it, or one colour all over from a tool known to paint blank pages.
pictavo::Status CheckReadResult(const TZubRead& r, const std::string& key) {
  imaging::TIEBitmap probe;
  probe.SetLimits(r.picture_limits);
  imaging::TImageEnIO io(&probe, r.hand_over);
  if (pictavo::Status st = io.HeaderFromFile(r.out_file); !st.ok())
    return pictavo::Status::Error("the reader's picture cannot be opened: " + st.message());
  const int w = io.Params().Width, h = io.Params().Height;
  if (w <= 1 && h <= 1) return pictavo::Status::Error("the reader made a picture of 1 x 1 pixel");
  if (KeyIn(kCameraRawKeys, key)) {
    std::error_code ec;
    const uint64_t bytes = fs::file_size(r.src_file, ec);
    const uint64_t pixels = static_cast<uint64_t>(w) * static_cast<uint64_t>(h);
    if (!ec && bytes * kMinRawPixelsPerByte < pixels)
      return pictavo::Status::Error("the file holds " + std::to_string(bytes / 1024) +
                                    " KB for a picture of " + std::to_string(w) + " x " +
                                    std::to_string(h) + " pixels: its raw data is cut short");
  }
  if ((KeyIn(kCameraRawKeys, key) || KeyIn(kBlankOnFailureKeys, key)) &&
      verify::RasterIsUniform(r.out_file))
    return pictavo::Status::Error("the reader made a picture of one colour only");
  return pictavo::Status::OK();
}

int EngineFallBack(TZubRead& r, imaging::TIEBitmap& bitmap, imaging::TImageEnIO& io,
                   bool no_route) {
  // An extension that neither a route nor the engine's own decoders know: said before the
  // decoder is asked, so that this is the reason its refusal gives.
  if (no_route && imaging::FileTypeFromExtension(r.src_file) == imaging::TIOFileType::ioUnknown) {
    const std::string ext = platform::LowerExtension(r.src_file);
    tools::NoteTrouble(
        tools::Trouble::kDecoder,
        "no reader is set up for " +
            (ext.empty() ? std::string("files without extension") : "\"" + ext + "\" files") +
            ", and the engine's decoder does not know the content");
  }
  if (!io.LoadFromFile(r.src_file).ok()) return kNoRoute;
  if (bitmap.Width() <= 0 || bitmap.Height() <= 0) return kNoRoute;
  if (io.Params().ImageCount > 1) return SavePicture(r, r.src_file) == 0 ? 0 : kNoRoute;
  // The scratch TIFF is read once more right away: written fast rather than small.
  io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_UNCOMPRESSED;
  if (io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file)) return 0;
  return kNoRoute;
}

// Steps 7 to 11: the rows of `routes` that hold the source's extension in turn, the deep-TIFF
// override and the engine's fall-back. Returns the status the chain ended with.
int WalkRoutes(TZubRead& r, std::span<const ReadRoute> routes, const std::string& ext) {
  int status = kNoRoute;
  // 7.
  const std::string key = ";" + (ext.empty() ? std::string() : ext.substr(1)) + ";";
  std::error_code ec;
  fs::create_directories(r.TempFolder(), ec);

  // Tests walk the chain with recording routines that write no pictures.
  const bool routes_are_real = routes.data() == ReadRoutes().data();
  bool refused = false;
  bool any_route = false;
  // 8.
  imaging::TIEBitmap bitmap;
  bitmap.SetLimits(r.picture_limits);
  imaging::TImageEnIO io(&bitmap, r.hand_over);
  try {
    // 9. A failed row leaves the status non-zero, so later rows holding the key try in turn.
    for (size_t i = 0; i < routes.size(); ++i) {
      if (status == 0) break;
      if (!RouteMatches(routes[i], key)) continue;
      any_route = true;
      r.route_row = static_cast<int>(i) + 1;
      const int result = routes[i].read(r);
      if (result != kRouteSkipped) status = result;
      if (status == 0 && routes_are_real) {
        // A picture that is not what the source holds counts as none: the next row tries.
        if (pictavo::Status checked = CheckReadResult(r, key); !checked.ok()) {
          tools::NoteTrouble(tools::Trouble::kResultRejected, checked.message());
          fs::remove(r.out_file, ec);
          status = 1;
          refused = true;
        }
      }
    }
    r.route_row = 0;

    // 10. A TIFF of 48 bits per pixel or more goes to the raster tool, even after a success.
    if (std::string_view(";tif;tiff;").find(key) != std::string_view::npos &&
        io.ParamsFromFile(r.src_file).ok() &&
        io.Params().BitsPerSample * io.Params().SamplesPerPixel >= 48) {
      fs::remove(r.out_file, ec);
      status = deep_tiff_read(r);
    }

    // 11. DICOM never falls back: a picture the engine makes of it would be wrong. Nor does a
    // file whose reader's picture was refused: the engine would only make the same of it.
    if (status != 0 && key != ";dcm;" && !refused)
      status = EngineFallBack(r, bitmap, io, !any_route);
  } catch (const std::exception&) {
    // The attempt ends; the caller's clean-up still runs.
  } catch (...) {
  }
  r.route_row = 0;
  return status;
}

}  // namespace

std::string TZubRead::TempFolder() const {
  if (!temp_folder.empty()) return temp_folder;
  return settings ? settings->main.temp_folder : std::string();
}

int TZubRead::Read() {
  return ReadWith(ReadRoutes());
}

pictavo::Status TZubRead::Run() {
  tools::TroubleRecorder trouble;
  const int code = Read();
  if (code == 0 && platform::FileExists(out_file)) return pictavo::Status::OK();
  return pictavo::Status::Error(trouble.Reason("no reader could read the file"),
                                code == 0 ? kNoRoute : code);
}

int TZubRead::ReadWith(std::span<const ReadRoute> routes) {
  // 1.
  int status = kNoRoute;
  read_flag = true;
  src_folder = FolderOf(src_file);
  ++depth_;
  const std::string original_src = src_file;

  // 2. Tools are handed the settings file, so one must exist for the time of the read.
  bool made_settings_file = false;
  if (settings && !platform::FileExists(settings_file)) {
    std::error_code ec;
    fs::create_directories(TempFolder(), ec);
    const std::string tmp = tools::ScratchName(TempFolder(), ".tmp");
    if (settings->write_ini_settings(tmp, 2).ok()) {
      settings_file = tmp;
      made_settings_file = true;
    } else {
      RemoveScratch(tmp);
    }
  }

  // 3.
  std::string ext = platform::LowerExtension(src_file);

  // 4. Tools get names without blanks or other characters that trouble them. DGN files are read
  // under their own name; TAB and PLT need their sibling files beside them.
  std::string copy;
  std::vector<std::string> companions;
  if (ext != ".dgn" && IsUnsafeName(src_file) && ext != ".tab" && ext != ".plt") {
    std::error_code ec;
    fs::create_directories(TempFolder(), ec);
    const std::string name = tools::ScratchName(TempFolder(), ext);
    fs::copy_file(src_file, name, fs::copy_options::overwrite_existing, ec);
    if (!ec) {
      if (ext == ".shp" || ext == ".mif") companions = CopyCompanions(src_file, name);
      copy = name;
      src_file = name;
    } else {
      RemoveScratch(name);
    }
  }

  // 5. PostScript saved with the extension ".dat".
  if (ext == ".dat" &&
      platform::AsciiLower(FirstLine(src_file)).find("ps-adobe") != std::string::npos) {
    const std::string name = tools::ScratchName(TempFolder(), ".ps");
    std::error_code ec;
    fs::copy_file(src_file, name, fs::copy_options::overwrite_existing, ec);
    if (platform::FileExists(name)) {
      if (!copy.empty()) RemoveScratch(copy);
      copy = name;
      src_file = name;
      ext = ".ps";
    } else {
      RemoveScratch(name);
    }
  }

  // 6.
  exe_folder = platform::IncludeTrailingDelim(engine_folder.empty() ? platform::ExecutableFolder()
                                                                    : engine_folder);
  if (!platform::DirectoryExists(tools::ToolFolderIn(exe_folder))) {
    status = kNoToolFolder;
  } else {
    status = WalkRoutes(*this, routes, ext);
  }

  // 12.
  if (!copy.empty()) RemoveScratch(copy);
  for (const std::string& companion : companions) RemoveScratch(companion);
  src_file = original_src;
  // A nested read (archive readers) keeps the outer read's settings file.
  if (depth_ == 1 && (made_settings_file || settings_file.ends_with(".tmp"))) {
    RemoveScratch(settings_file);
    settings_file.clear();
  }
  --depth_;
  if (tools::Produced(out_file)) status = 0;
  return status;
}

bool TZubRead::is_pdf(const std::string& path) {
  const std::string line = FirstLine(path);
  return line.size() > 4 && platform::AsciiLower(line.substr(0, 4)) == "%pdf";
}

int TZubRead::get_colors(bool first_page_only) {
  exe_folder = platform::IncludeTrailingDelim(engine_folder.empty() ? platform::ExecutableFolder()
                                                                    : engine_folder);
  if (!HasTool(*this, "pdfpsai.bin")) return -1;
  Scratch preview(*this, ".tif");
  std::string cmd = ToolArg(*this, "pdfpsai.bin") +
                    " -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=tiff24nc -dEPSCrop "
                    "-dGraphicsAlphaBits=1 -dTextAlphaBits=1 -r16 ";
  if (first_page_only) cmd += "-dFirstPage=1 -dLastPage=1 ";
  cmd += "-sOutputFile=\"" + preview.path() + "\" \"" + src_file + "\"";
  tools::RunTool(Job(), cmd);
  if (!tools::Produced(preview.path())) return -1;
  imaging::TIEBitmap bitmap;
  bitmap.SetLimits(picture_limits);
  imaging::TImageEnIO io(&bitmap, hand_over);
  if (!io.LoadFromFile(preview.path()).ok() || bitmap.IsEmpty()) return -1;
  std::set<uint32_t> colors;
  for (int y = 0; y < bitmap.Height(); ++y)
    for (int x = 0; x < bitmap.Width(); ++x) {
      const imaging::TRGB c = bitmap.GetPixels(x, y);
      colors.insert(c.r | (c.g << 8) | (static_cast<uint32_t>(c.b) << 16));
    }
  return static_cast<int>(colors.size());
}

tools::JobContext TZubRead::Job() const {
  return job ? *job : tools::ProcessJobContext();
}

}  // namespace pictavo::reader
