#include "settings/main_settings.h"

#include <algorithm>

#include "platform/fs.h"
#include "platform/special_folders.h"

namespace pictavo::settings {
namespace {

void ClampInto(int& v, int low, int high) {
  v = std::clamp(v, low, high);
}

// Out of range, whichever side, becomes `replacement`.
void ReplaceOutside(int& v, int low, int high, int replacement) {
  if (v < low || v > high) v = replacement;
}

std::string_view TrimBlanks(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// A bound of a page range; -1 when missing, nullopt when it is not a number.
std::optional<int> ParseBound(std::string_view text) {
  text = TrimBlanks(text);
  if (text.empty()) return -1;
  return ParseInteger(text);
}

}  // namespace

void TMainSettings::SetDefault() {
  *this = TMainSettings();

  const char delim = platform::kPathDelim;
  main.temp_folder = platform::AppDataFolder() + "Pictavo7" + delim + "temp" + delim;

  const std::string pictures = platform::PicturesFolder();
  for (std::string* folder : {&main.dialog_folder, &main.source_folder, &main.init_folder,
                              &main.dest_path, &window.adv_folder, &save.move_files_folder,
                              &save.move_unprocessed_files_folder, &thumbnails.folder})
    *folder = pictures;
  for (ThumbnailSet& set : thumbnail_sets) set.folder = pictures;

  // The preview window starts centred on the main window.
  view.left = window.left + (window.width - view.width) / 2;
  view.top = window.top + (window.height - view.height) / 2;

  multipage.group = std::max(multipage.group, 1);
  ClampOptionsAndSetFlags();
}

void TMainSettings::ClampOptionsAndSetFlags() {
  ClampInto(multipage.option, 1, 4);
  ClampInto(colors.option, 1, 3);
  ClampInto(dpi.option, 1, 2);
  ClampInto(file_name.case_option, 1, 2);
  multipage.option_flags.Select(multipage.option);
  colors.option_flags.Select(colors.option);
  dpi.option_flags.Select(dpi.option);
  file_name.case_option_flags.Select(file_name.case_option);
}

void TMainSettings::OptionsFromFlags() {
  multipage.option = multipage.option_flags.Value();
  colors.option = colors.option_flags.Value();
  dpi.option = dpi.option_flags.Value();
  file_name.case_option = file_name.case_option_flags.Value();
}

void TMainSettings::ApplyReadClamps() {
  ClampInto(pdf_write.orientation, 0, 1);
  ReplaceOutside(window.less_bytes, 1, 3, 1);
  ReplaceOutside(window.more_bytes, 1, 3, 3);
  for (CadWrite* cad : {&dxf_write, &dwg_write}) {
    ReplaceOutside(cad->version, 1, 8, 8);
    ReplaceOutside(cad->text, 0, 1, 0);
    ReplaceOutside(cad->spline, 0, 1, 1);
  }
  ReplaceOutside(svg_read.size, 1, 2, 1);
  ReplaceOutside(vec.dxf_dwg_units, 1, 3, 1);
  ClampInto(main.icons_list_details, 0, 3);
  ClampInto(jpg.color_space, 0, 4);
  ClampInto(tif.compression, 0, 7);
  ClampInto(save.save_path_option, 1, 3);
  ClampInto(multipage.option, 1, 4);
  if (multipage.group < 1) multipage.group = 1;
  ClampInto(colors.option, 1, 3);
  ClampInto(dpi.option, 1, 2);
  ClampInto(file_name.case_option, 1, 2);
  // Both thumbnail groups hold the "Thumbnails" key, so both are clamped alike.
  thumbnails.resize_type = std::min(thumbnails.resize_type, 3);
  thumbnail_sets[0].resize_type = std::min(thumbnail_sets[0].resize_type, 3);
  // A limit below 0 meant what 0 means (no time-out, the default size): it reads as 0.
  for (int* limit :
       {&limits.tool_timeout, &limits.render_timeout, &limits.office_timeout, &limits.ocr_timeout,
        &limits.max_megapixels, &limits.max_memory_mb, &limits.max_unpacked_mb})
    *limit = std::max(*limit, 0);
  ClampOptionsAndSetFlags();
}

bool TMainSettings::in_list(int number, std::string_view list) {
  std::string rest = std::string(TrimBlanks(list)) + ",";
  if (rest.front() == ',') return false;
  const std::string wanted = std::to_string(number);
  while (true) {
    const size_t comma = rest.find(',');
    const std::string_view item = TrimBlanks(std::string_view(rest).substr(0, comma));
    if (item == wanted) return true;
    const size_t dash = item.find('-');
    if (dash != std::string_view::npos) {
      std::optional<int> lower = ParseBound(item.substr(0, dash));
      std::optional<int> upper = ParseBound(item.substr(dash + 1));
      // A range that is not made of numbers makes the whole list select nothing.
      if (!lower || !upper) return false;
      if (*lower >= 0 && *upper >= 0 && *lower <= number && number <= *upper) return true;
      if (*lower >= 0 && *upper < 0 && number >= *lower) return true;
      if (*lower < 0 && *upper >= 1 && number <= *upper) return true;
    }
    rest.erase(0, comma + 1);
    // An empty item ends the scan, deliberately: "1,,5" selects 1 only.
    if (rest.empty() || rest.front() == ',') return false;
  }
}

}  // namespace pictavo::settings
