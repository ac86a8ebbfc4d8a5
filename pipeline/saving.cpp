#include "pipeline/saving.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <mutex>
#include <set>
#include <system_error>

#include "engine/tools/probes.h"
#include "engine/tools/route_kit.h"
#include "engine/tools/runner.h"
#include "engine/tools/tool_paths.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "pipeline/naming_probe.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;
using settings::Msg;

// Scratch files that a killed engine left in a destination folder go the first time this
// process places a result there.
void RemoveStaleScratchOnce(const std::string& folder) {
  static std::mutex mutex;
  static std::set<std::string> swept;
  {
    std::lock_guard<std::mutex> lock(mutex);
    if (!swept.insert(folder).second) return;
  }
  platform::RemoveStaleScratch(folder);
}

// Formats stored as several files: the sidecars share the main file's name and must follow it,
// or the result cannot be opened.
struct SidecarSet {
  std::string_view main_ext;
  std::array<std::string_view, 7> sidecars;
};
constexpr SidecarSet kSidecars[] = {
    {".shp", {".shx", ".dbf", ".prj", ".cpg", ".qix", ".sbn", ".sbx"}},
    {".tab", {".dat", ".map", ".id", ".ind", "", ""}},
    {".mif", {".mid", "", "", "", "", "", ""}},
};

// Places the sidecars of `written` beside `target` under the target's name. Sidecars are
// matched without regard to case, as the tools that write them differ.
void PlaceSidecars(const std::string& written, const std::string& target, std::string& log) {
  const fs::path from(written), to(target);
  const std::string ext = platform::AsciiLower(from.extension().string());
  for (const SidecarSet& set : kSidecars) {
    if (ext != set.main_ext) continue;
    for (std::string_view side : set.sidecars) {
      if (side.empty()) continue;
      for (const std::string& spelled : {std::string(side), platform::AsciiUpper(side)}) {
        fs::path sidecar = from;
        sidecar.replace_extension(spelled);
        if (!platform::FileExists(sidecar.string())) continue;
        fs::path dest = to;
        dest.replace_extension(side);
        if (Status st = PlaceFile(sidecar.string(), dest.string(), true); !st.ok())
          log += " (" + st.message() + ")";
        break;
      }
    }
  }
}

}  // namespace

OverwritePolicy PolicyOf(int overwrite_setting) {
  switch (overwrite_setting) {
    case 1:
      return OverwritePolicy::kReplace;
    case 2:
      return OverwritePolicy::kSkip;
    default:
      return OverwritePolicy::kKeepBoth;
  }
}

bool SamePath(const std::string& a, const std::string& b) {
  std::error_code ec;
  if (fs::equivalent(a, b, ec)) return true;
  return fs::weakly_canonical(a, ec) == fs::weakly_canonical(b, ec);
}

std::string NumberedName(const std::string& path) {
  fs::path p(path);
  const std::string stem = p.stem().string();
  const std::string ext = p.extension().string();
  for (int n = 2;; ++n) {
    fs::path candidate = p.parent_path() / (stem + " (" + std::to_string(n) + ")" + ext);
    std::error_code ec;
    if (!fs::exists(candidate, ec)) return candidate.string();
  }
}

Status PlaceFile(const std::string& file, const std::string& dest, bool replace) {
  std::error_code ec;
  fs::path d(dest);
  if (d.has_parent_path()) fs::create_directories(d.parent_path(), ec);
  if (!platform::DirectoryExists(d.parent_path().string()))
    return Status::Error("cannot create the folder " + d.parent_path().string());
  RemoveStaleScratchOnce(d.parent_path().string());
  const std::string scratch = platform::ScratchBeside(d.string());
  fs::copy_file(file, scratch, fs::copy_options::overwrite_existing, ec);
  if (ec) {
    // A copy cut short by a full disk can come back from the library as "Success".
    const std::string why = ec.message() != "Success" ? ec.message() : "the disk is full";
    fs::remove(scratch, ec);
    return Status::Error("cannot write " + scratch + ": " + why);
  }
  if (!replace && fs::exists(d, ec)) {
    fs::remove(scratch, ec);
    return Status::Error(dest + " exists");
  }
  fs::rename(scratch, d, ec);
  if (ec) {
    std::error_code ignore;
    fs::remove(scratch, ignore);
    return Status::Error("cannot rename into " + dest + ": " + ec.message());
  }
  return Status::OK();
}

SaveResult SaveWritten(const std::string& written, const std::string& dest,
                       const std::string& source, int index, const settings::TMainSettings& s,
                       const settings::MessageTable& m, std::string& log,
                       const std::string& name_note) {
  SaveResult r;
  std::string target = dest;
  std::error_code ec;
  const bool on_source = SamePath(target, source);
  if (on_source || fs::exists(target, ec)) {
    const OverwritePolicy policy =
        on_source ? OverwritePolicy::kKeepBoth : PolicyOf(s.save.overwrite);
    if (policy == OverwritePolicy::kSkip) {
      log += kStepPrefix + m[Msg::kFile] + " " + target + " " + m[Msg::kWasSkipped];
      r.ok = true;
      r.skipped = true;
      r.final_path = target;
      return r;
    }
    if (policy == OverwritePolicy::kKeepBoth) target = NumberedName(target);
  }
  log += kStepPrefix + m[Msg::kSavingResultTo] + " " + target;
  if (!name_note.empty()) log += " (" + name_note + ")";
  if (Status st = PlaceFile(written, target, true); !st.ok()) {
    log += kStepPrefix + m[Msg::kError] + " " + st.message();
    r.error = st.message();
    return r;
  }
  PlaceSidecars(written, target, log);
  if (s.save.same_date != 0) {
    auto t = fs::last_write_time(source, ec);
    if (!ec) fs::last_write_time(target, t, ec);
  }
  r.ok = true;
  r.final_path = target;

  if (s.save.create_copies) {
    fs::path p(target);
    const std::string base = fs::path(source).stem().string();
    for (int n = 0; n < s.save.number_of_copies; ++n) {
      settings::MaskSource ms{source, 0, 0, 0, std::nullopt, &NamingProbe()};
      std::string name = s.ParseFileMask(base, platform::AsciiLower(s.save.copy_mask),
                                         s.save.copy_counter + index + n, ms);
      std::string copy = (p.parent_path() / (name + p.extension().string())).string();
      if (SamePath(copy, target) || fs::exists(copy, ec)) copy = NumberedName(copy);
      log += kStepPrefix + m[Msg::kSavingResultTo] + " " + copy;
      if (Status st = PlaceFile(target, copy, false); !st.ok())
        log += kStepPrefix + m[Msg::kError] + " " + st.message();
    }
  }
  return r;
}

void create_thumb(const std::string& picture, const settings::DestNames& names, int page,
                  const settings::TMainSettings& s, const settings::MessageTable& m,
                  std::string& log) {
  imaging::TIEBitmap full;
  bool loaded = false;
  for (size_t i = 0; i < s.thumbnail_sets.size(); ++i) {
    const settings::ThumbnailSet& set = s.thumbnail_sets[i];
    if (!set.create_thumbnails || (set.first_p && page > 0)) continue;
    if (!loaded) {
      imaging::TImageEnIO io(&full);
      if (!io.LoadFromFile(picture).ok()) return;
      loaded = true;
    }
    imaging::TIEBitmap thumb;
    thumb.Assign(full);
    const int w = std::max(set.width, 1), h = std::max(set.height, 1);
    const bool smaller = thumb.Width() <= w && thumb.Height() <= h;
    if (!(smaller && set.do_not_resize_if_less)) {
      int nw = w, nh = h;
      if (set.resize_type == 0) {
        // Fit inside the box, keeping the proportions.
        const double scale = std::min(double(w) / thumb.Width(), double(h) / thumb.Height());
        nw = std::max(1, int(thumb.Width() * scale + 0.5));
        nh = std::max(1, int(thumb.Height() * scale + 0.5));
      }
      if (!thumb.Resample(nw, nh).ok()) continue;
    }
    std::string dest = names.thumbnails[i];
    if (page > 0) {
      fs::path p(dest);
      char suffix[24];  // room for any int: gcc warns of truncation otherwise
      std::snprintf(suffix, sizeof suffix, "_page_%02d", page + 1);
      dest = (p.parent_path() / (p.stem().string() + suffix + p.extension().string())).string();
    }
    std::error_code ec;
    fs::create_directories(fs::path(dest).parent_path(), ec);
    imaging::TImageEnIO out(&thumb);
    out.Params().JPEG_Quality = set.jpg_q;
    log += kStepPrefix + m[Msg::kSavingThumbnailTo] + " " + dest;
    if (Status st = out.SaveToFile(dest); !st.ok())
      log += kStepPrefix + m[Msg::kError] + " " + st.message();
  }
}

namespace {

bool MoveTo(const std::string& source, const std::string& folder, const settings::MessageTable& m,
            std::string& log) {
  if (folder.empty()) return false;
  std::string dest = (fs::path(folder) / fs::path(source).filename()).string();
  std::error_code ec;
  if (fs::exists(dest, ec)) dest = NumberedName(dest);
  log += kStepPrefix + m[Msg::kMovingOriginalTo] + " " + dest;
  fs::create_directories(folder, ec);
  fs::rename(source, dest, ec);
  if (ec) {
    // Another file system: copy completely first, remove the original only then.
    if (!PlaceFile(source, dest, false).ok()) {
      log += kStepPrefix + m[Msg::kError] + " " + dest;
      return false;
    }
    fs::remove(source, ec);
  }
  return true;
}

}  // namespace

void FinishOriginal(const std::string& source, bool processed, const settings::TMainSettings& s,
                    const settings::MessageTable& m, std::string& log) {
  std::error_code ec;
  if (!processed) {
    if (s.save.move_unprocessed_files) MoveTo(source, s.save.move_unprocessed_files_folder, m, log);
    return;
  }
  if (s.save.move_files) {
    MoveTo(source, s.save.move_files_folder, m, log);
  } else if (s.save.delete_files) {
    log += kStepPrefix + m[Msg::kDeletingFile] + " " + source;
    fs::remove(source, ec);
  } else {
    return;
  }
  if (s.save.delete_folders) {
    fs::path folder = fs::path(source).parent_path();
    if (fs::is_empty(folder, ec) && !ec) fs::remove(folder, ec);
  }
}

bool FinishPdf(const std::string& pdf, const settings::TMainSettings& s,
               const std::string& temp_folder, const settings::MessageTable& m, std::string& log,
               const tools::JobContext* job) {
  const auto& w = s.pdf_write;
  if (tools::FindCount(pdf, "/Encrypt", false) > 0) return true;  // finished by its writer
  std::string switches;
  if (w.curves_pdf) switches += " -dNoOutputFonts";
  if (w.image_res_pdf > 0) {
    const std::string res = std::to_string(w.image_res_pdf);
    switches += " -dDownsampleColorImages=true -dColorImageResolution=" + res +
                " -dDownsampleGrayImages=true -dGrayImageResolution=" + res +
                " -dDownsampleMonoImages=true -dMonoImageResolution=" + res;
  }
  const bool pdf_a = w.create_pdf_a && tools::FindCount(pdf, "pdfaid:part", true) <= 0;
  if (pdf_a) switches += " -dPDFA=2 -dPDFACompatibilityPolicy=1 -sColorConversionStrategy=RGB";
  if (w.create_linearized_pdf && tools::FindCount(pdf, "/Linearized", false) <= 0)
    switches += " -dFastWebView=true";
  if (w.set_user_password || w.set_owner_password) {
    int permissions = -3904;  // everything refused, then what the user allows
    if (w.allow_printing) permissions |= 4;
    if (w.allow_editing) permissions |= 8;
    if (w.allow_copying) permissions |= 16;
    const std::string owner = w.set_owner_password ? w.owner_password : w.user_password;
    switches += " -sOwnerPassword=" + tools::Quoted(owner);
    if (w.set_user_password) switches += " -sUserPassword=" + tools::Quoted(w.user_password);
    switches += " -dEncryptionR=3 -dKeyLength=128 -dPermissions=" + std::to_string(permissions);
  }
  if (switches.empty()) return true;

  const std::string out = tools::ScratchName(temp_folder, ".pdf");
  std::string cmd = tools::Quoted(tools::ToolPath("pdfpsai.bin")) +
                    " -dNOSAFER -dBATCH -dNOPAUSE -sDEVICE=pdfwrite" + switches +
                    " -sOutputFile=" + tools::Quoted(out);
  if (pdf_a) cmd += " " + tools::Quoted(tools::ToolPath("pdfa_def.ps"));
  cmd += " " + tools::Quoted(pdf);
  (void)tools::RunAndWait(job ? *job : tools::ProcessJobContext(), cmd, tools::kHidden);
  std::error_code ec;
  if (!fs::exists(out, ec) || fs::file_size(out, ec) == 0) {
    fs::remove(out, ec);
    log += kStepPrefix + m[Msg::kError] +
           " PDF finishing failed (utl/pdfpsai.bin: Debian ghostscript)";
    return false;
  }
  fs::rename(out, pdf, ec);
  if (ec) {
    fs::remove(out, ec);
    return false;
  }
  return true;
}

}  // namespace pictavo::pipeline
