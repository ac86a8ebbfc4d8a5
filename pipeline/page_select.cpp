#include "pipeline/page_select.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "engine/tools/temp_names.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_io.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;

int PageCount(const std::string& path) {
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  if (!io.ParamsFromFile(path).ok()) return 1;
  return std::max(io.Params().ImageCount, 1);
}

}  // namespace

bool valid_tif(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  uint8_t head[32] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  if (imaging::SniffFormat(head, static_cast<size_t>(in.gcount())) != imaging::TIOFileType::ioTIFF)
    return false;
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp);
  return io.ParamsFromFile(path).ok() && io.Params().Width > 0 && io.Params().Height > 0;
}

bool IsBlankPage(const imaging::TIEBitmap& page, int accuracy) {
  if (page.IsEmpty()) return true;
  accuracy = std::clamp(accuracy, 0, 100);
  uint64_t ink = 0;
  for (int y = 0; y < page.Height(); ++y) {
    for (int x = 0; x < page.Width(); ++x) {
      imaging::TRGB c = page.GetPixels(x, y);
      if (c.r * 299 + c.g * 587 + c.b * 114 < 240 * 1000) ++ink;
    }
  }
  const double share = double(ink) / (double(page.Width()) * page.Height());
  return share <= (100 - accuracy) / 100.0 * 0.001;
}

Status CopyAsTiff(const std::string& source, const std::string& tiff) {
  const int pages = PageCount(source);
  for (int i = 0; i < pages; ++i) {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    io.Params().ImageIndex = i;
    if (Status st = io.LoadFromFile(source); !st.ok()) return st;
    io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_LZW;
    if (Status st = pages == 1 ? io.SaveToFile(tiff) : io.InsertToFileTIFF(tiff); !st.ok())
      return st;
  }
  return Status::OK();
}

PageSelection SelectPages(const std::string& picture, const settings::TMainSettings& s,
                          const std::string& temp_folder) {
  PageSelection sel;
  sel.pages = PageCount(picture);
  const bool by_list =
      s.multipage_settings.loading_option != 1 && !s.multipage_settings.loading_pages.empty();
  const bool skip_blank = s.skip_blank_settings.skip_blank;
  if (!by_list && !skip_blank) return sel;
  if (sel.pages <= 1 && !skip_blank) return sel;

  const std::string out = tools::NewTempName(temp_folder) + ".tif";
  int kept = 0;
  for (int i = 0; i < sel.pages; ++i) {
    if (by_list && !settings::TMainSettings::in_list(i + 1, s.multipage_settings.loading_pages))
      continue;
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    io.Params().ImageIndex = i;
    if (!io.LoadFromFile(picture).ok()) continue;
    if (skip_blank && IsBlankPage(bmp, s.skip_blank_settings.skip_blank_accuracy)) continue;
    io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_LZW;
    if (io.InsertToFileTIFF(out).ok()) ++kept;
  }
  if (kept == 0) {
    std::error_code ec;
    fs::remove(out, ec);
    sel.all_blank = true;
    sel.pages = 0;
    return sel;
  }
  if (kept == sel.pages) {
    std::error_code ec;
    fs::remove(out, ec);  // nothing left out: the picture stays as it is
    return sel;
  }
  sel.file = out;
  sel.pages = kept;
  return sel;
}

std::string PageDestination(const settings::TMainSettings& s, const std::string& source, int index,
                            int page) {
  const std::string mask =
      platform::AsciiLower(s.file_name.mask_prefix + s.file_name.mask + s.file_name.mask_suffix);
  settings::DestRequest req;
  req.source_path = source;
  req.index = index;
  req.page = page;
  if (mask.find("<page") != std::string::npos && s.multipage.option_flags.Is(3))
    return s.create_dest_filename(req).result;
  if (mask.find('#') != std::string::npos) {
    // The "#" run stands for the counter, which starts at "Start_number": make it the page.
    req.index = page + 1 - s.file_name.start_number;
    return s.create_dest_filename(req).result;
  }
  fs::path p(s.create_dest_filename(req).result);
  char suffix[24];
  std::snprintf(suffix, sizeof suffix, "_page_%02d", page + 1);
  return (p.parent_path() / (p.stem().string() + suffix + p.extension().string())).string();
}

}  // namespace pictavo::pipeline
