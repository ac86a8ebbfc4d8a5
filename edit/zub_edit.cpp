// TZubEdit::Edit: loads the working file, applies the list of actions to each page and writes
// the pages back.
#include "edit/zub_edit.h"

#include <filesystem>
#include <memory>
#include <sstream>
#include <vector>

#include "edit/action_table.h"
#include "engine/tools/trouble.h"
#include "imaging/ie_icc.h"
#include "imaging/ie_io.h"
#include "imaging/ie_proc.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::editing {
namespace {

constexpr char kIndent[] = "     ";

// Two entry points of the log, identical in effect: one for page headers and "skipped" lines,
// one for per-action results.
void AddLine(std::string& log, const std::string& line) {
  log += line;
  log += "\r\n";
}
void AddActionLine(std::string& log, const std::string& line) {
  log += line;
  log += "\r\n";
}

std::vector<std::string> SplitLines(const std::string& text) {
  std::vector<std::string> lines;
  std::string line;
  std::istringstream in(text);
  while (std::getline(in, line)) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    lines.push_back(line);
  }
  return lines;
}

std::string Extension(const std::string& path) {
  return platform::AsciiLower(std::filesystem::path(path).extension().string());
}

// Saving parameters from the colour count: more than 256 colours are 3 samples per pixel, up to
// 256 one (a palette, or grey when the picture is grey); 4 whenever there is alpha.
void SetSavingDepth(imaging::TImageEnIO& io, imaging::TIEBitmap& bmp) {
  imaging::TImageEnProc proc(&bmp);
  const int colours = proc.CalcImageNumColors(256);
  const bool alpha = bmp.HasAlphaChannel();
  auto& p = io.Params();
  p.BitsPerSample = 8;
  if (alpha) {
    p.SamplesPerPixel = 4;
    return;
  }
  if (colours > 256) {
    p.SamplesPerPixel = 3;
    return;
  }
  p.SamplesPerPixel = 1;
  using F = imaging::TIEPixelFormat;
  if (bmp.PixelFormat() == F::ie1g) {
    p.BitsPerSample = 1;  // two-level pictures stay two-level
  } else if (bmp.PixelFormat() != F::ie8p && bmp.PixelFormat() != F::ie8g) {
    // One sample per pixel means an index into an exact palette of the colours (a grey picture
    // becomes 8-bit grey), never a loss of colour.
    if (bmp.IsGrayScale())
      (void)bmp.ConvertTo(F::ie8g);
    else
      (void)proc.ConvertTo(256, imaging::TIEDitherMethod::ieNoDither);
  }
}

}  // namespace

bool HeaderRulesOutAlpha(const std::string& file) {
  using imaging::TIOFileType;
  imaging::TIEBitmap none;
  imaging::TImageEnIO io(&none);
  if (!io.ParamsFromFile(file).ok()) return false;
  switch (io.Params().FileType) {
    case TIOFileType::ioJPEG:
    case TIOFileType::ioPNG:
    case TIOFileType::ioTIFF:
    case TIOFileType::ioWEBP:
      return !io.Params().HasAlpha;
    default:
      return false;
  }
}

pictavo::Status TZubEdit::Run(std::string& log, const std::string& done_text,
                              const std::string& page_label, const std::string& skipped_text,
                              const std::string& failed_text) {
  tools::TroubleRecorder trouble;
  if (Edit(log, done_text, page_label, skipped_text, failed_text) != 3) return Status::OK();
  std::string reason = trouble.Reason();
  if (reason.empty()) reason = "the picture has no width or height";
  return Status::Error(reason, 3);
}

namespace {

// The texts of an action's log line.
struct EditTexts {
  const std::string& done;
  const std::string& skipped;
  const std::string& failed;
};

// Applies the actions to one page, one log line each (skipped on a page not selected).
void ApplyActions(ActionContext& ctx, const std::vector<ParsedLine>& parsed, bool selected,
                  int actions_option, const EditTexts& texts, std::string& log) {
  for (const ParsedLine& line : parsed) {
    bool ok = false;
    // What this action alone noted; handed on to the edit's own recorder when it ends.
    tools::TroubleRecorder trouble;
    if (selected) ok = Dispatch(ActionTable(), ctx, line);
    if (line.key_lower == "transparency") continue;
    const std::string head = kIndent + std::string(DisplayNameOf(line.key_lower)) + "...";
    if (actions_option == 1 && !selected) {
      AddLine(log, head + texts.skipped);
    } else {
      AddActionLine(log, head + (ok ? texts.done : texts.failed));
      // An action refused by a job limit says which, under its line.
      if (const std::string& why = trouble.First(tools::Trouble::kLimit); !ok && !why.empty())
        AddLine(log, std::string(kIndent) + "  " + why);
    }
  }
}

}  // namespace

std::vector<std::string> TZubEdit::ActionLines(bool& transparency_only) const {
  std::vector<std::string> list;
  transparency_only = false;
  if (!act_file.empty()) {
    if (auto text = platform::ReadTextFile(act_file)) list = SplitLines(*text);
  }
  if (settings && settings->main.show_transp) {
    const std::string line = "Transparency(" + std::to_string(settings->main.transp_red) + ";" +
                             std::to_string(settings->main.transp_green) + ";" +
                             std::to_string(settings->main.transp_blue) + ")";
    if (!act_file.empty()) {
      list.insert(list.begin(), line);  // before every line of the file
    } else {
      list.push_back(line);
      transparency_only = true;
    }
  }
  return list;
}

bool TZubEdit::WritePage(imaging::TIEBitmap& page, const imaging::TIOParamsVals& params,
                         bool to_pages, const std::string& scratch) {
  imaging::TImageEnIO writer(&page, hand_over);
  writer.Params().Assign(params);
  writer.Params().ImageIndex = 0;
  SetSavingDepth(writer, page);
  has_alpha = has_alpha || page.HasAlphaChannel();
  pictavo::Status st;
  if (!to_pages)
    st = writer.SaveToFile(work_file);
  else if (Extension(work_file) == ".gif")
    st = writer.InsertToFileGIF(scratch);
  else
    st = writer.InsertToFileTIFF(scratch);
  return st.ok();
}

int TZubEdit::Edit(std::string& log, const std::string& done_text, const std::string& page_label,
                   const std::string& skipped_text, const std::string& failed_text) {
  log.clear();
  has_alpha = false;
  const EditTexts texts{done_text, skipped_text, failed_text};
  auto bmp = std::make_unique<imaging::TIEBitmap>();
  bmp->SetLimits(picture_limits);
  auto io = std::make_unique<imaging::TImageEnIO>(bmp.get(), hand_over);

  bool transparency_only = false;
  const std::vector<std::string> list = ActionLines(transparency_only);
  if (list.empty()) return 0;

  if (transparency_only && HeaderRulesOutAlpha(work_file)) return 33;
  if (!io->LoadFromFile(work_file).ok()) return bmp->IsEmpty() ? 3 : 0;
  int pages = 1;
  const std::string ext = Extension(work_file);
  const bool tiff = ext == ".tif" || ext == ".tiff";
  if (ext == ".gif" || tiff) pages = io->Params().ImageCount;
  if (pages <= 0) return 0;

  const int actions_option = settings ? settings->multipage_settings.actions_option : 0;
  const std::string apply_pages = settings ? settings->multipage_settings.apply_actions_pages : "";
  std::vector<ParsedLine> parsed;
  for (const std::string& l : list) parsed.push_back(ParseLine(l));

  // Pages of a multi-page file are written, in order, into a scratch file beside the working
  // file; the working file is read page by page meanwhile and replaced only at the end.
  const std::filesystem::path wp(work_file);
  const std::string scratch = (wp.parent_path() / ("rcp_edit_" + wp.filename().string())).string();
  std::error_code ec;
  std::filesystem::remove(scratch, ec);
  bool pages_complete = true;  // every page read and written
  int result = 0;

  for (int p = 1; p <= pages; ++p) {
    const bool selected = actions_option != 1 || settings::TMainSettings::in_list(p, apply_pages);
    if (p > 1) {
      io->Params().ImageIndex = p - 1;
      (void)io->LoadFromFile(work_file);
      imaging::SetColorManagement(false);
      if (settings && settings->save.icc_option == 1) imaging::SetColorManagement(true);
    }
    if (transparency_only && !bmp->HasAlphaChannel()) {
      std::filesystem::remove(scratch, ec);
      return 33;
    }
    if (bmp->Width() <= 0 || bmp->Height() <= 0) {
      result = transparency_only ? 33 : 3;
      pages_complete = false;  // a page could not be read: the file is left as it was
      continue;
    }
    if (pages > 1 && !transparency_only)
      AddLine(log, kIndent + page_label + " " + std::to_string(p) + ":");

    ActionContext ctx;
    ctx.bmp = bmp.get();
    ctx.settings = settings;
    ctx.temp_folder = temp_folder;
    ctx.job = job;
    ctx.work_file = work_file;
    ctx.exif_orientation = io->Params().EXIF_Orientation;
    ApplyActions(ctx, parsed, selected, actions_option, texts, log);
    if (ctx.exif_orientation != io->Params().EXIF_Orientation)
      io->Params().EXIF_Orientation = ctx.exif_orientation;

    // Write the page back (and the pages a split made after it).
    const bool to_pages = pages > 1 || !ctx.extra_pages.empty();
    if (!WritePage(*bmp, io->Params(), to_pages, scratch)) pages_complete = false;
    for (auto& extra : ctx.extra_pages)
      if (!WritePage(extra, io->Params(), to_pages, scratch)) pages_complete = false;
  }

  if (platform::FileExists(scratch)) {
    if (pages_complete) std::filesystem::rename(scratch, work_file, ec);
    std::filesystem::remove(scratch, ec);
  }
  return result;
}

}  // namespace pictavo::editing
