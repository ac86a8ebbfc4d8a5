#include "pipeline/page_select.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <optional>
#include <vector>

#include "engine/tools/route_kit.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_io.h"
#include "imaging/luma.h"
#include "pipeline/naming_probe.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::pipeline {
namespace {

namespace fs = std::filesystem;

int PageCount(const std::string& path, imaging::HandOverCache* cache) {
  // JPEG and PNG hold one picture: the header is not worth a whole read and metadata parse.
  std::ifstream in(path, std::ios::binary);
  uint8_t head[32] = {};
  in.read(reinterpret_cast<char*>(head), sizeof head);
  const imaging::TIOFileType type = imaging::SniffFormat(head, static_cast<size_t>(in.gcount()));
  if (type == imaging::TIOFileType::ioJPEG || type == imaging::TIOFileType::ioPNG) return 1;
  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, cache);
  if (!io.ParamsFromFile(path).ok()) return 1;
  return std::max(io.Params().ImageCount, 1);
}

// Splits "key(p1;p2;...)" into the lower-case key and its integers; false when a parameter is
// not a plain decimal integer or the line is not of that shape.
bool ParseAction(std::string line, std::string& key, std::vector<int>& numbers) {
  const size_t open = line.find('(');
  if (open == std::string::npos || line.empty() || line.back() != ')') return false;
  key = platform::AsciiLower(line.substr(0, open));
  const std::string inner = line.substr(open + 1, line.size() - open - 2);
  numbers.clear();
  size_t at = 0;
  while (at <= inner.size()) {
    const size_t end = std::min(inner.find(';', at), inner.size());
    const std::string part = inner.substr(at, end - at);
    if (part.empty() || part.size() > 6 ||
        !std::all_of(part.begin(), part.end(), [](char c) { return c >= '0' && c <= '9'; }))
      return false;
    numbers.push_back(std::stoi(part));
    at = end + 1;
  }
  return true;
}

}  // namespace

int ShrinkOnLoad(const std::string& picture, const std::string& act_file,
                 imaging::HandOverCache* cache) {
  if (act_file.empty()) return 1;
  const std::optional<std::string> text = platform::ReadTextFile(act_file);
  if (!text) return 1;
  std::vector<std::string> lines;
  size_t at = 0;
  while (at < text->size()) {
    size_t end = text->find('\n', at);
    if (end == std::string::npos) end = text->size();
    std::string line = text->substr(at, end - at);
    at = end + 1;
    const size_t first = line.find_first_not_of(" \t\r");
    if (first == std::string::npos) continue;
    line = line.substr(first, line.find_last_not_of(" \t\r") - first + 1);
    lines.push_back(line);
  }
  std::string key;
  std::vector<int> n;
  if (lines.size() != 1 || !ParseAction(lines[0], key, n)) return 1;

  imaging::TIEBitmap bmp;
  imaging::TImageEnIO io(&bmp, cache);
  if (!io.ParamsFromFile(picture).ok()) return 1;
  const imaging::TIOParamsVals& p = io.Params();
  // Only a single-page JPEG whose rows are not turned by its orientation tag.
  if (p.FileType != imaging::TIOFileType::ioJPEG || p.ImageCount > 1 || p.EXIF_Orientation > 4)
    return 1;
  const double w = p.Width, h = p.Height;
  if (w <= 0 || h <= 0) return 1;

  double scale = 1;  // target size / source size
  if (key == "resize2" && (n.size() == 1 || (n.size() >= 2 && (n[1] == 2 || n[1] == 3)))) {
    if (n[0] <= 0) return 1;
    scale = n[0] / std::max(w, h);
  } else if (key == "resize" && n.size() >= 5 && n[2] == 0 && n[3] == 1 &&
             (n[4] == 2 || n[4] == 3) && (n[0] > 0 || n[1] > 0)) {
    // In pixels, keeping the aspect: the picture fits inside width x height; a 0 side follows
    // the other. (A size in percent is of the loaded picture, so it cannot be scaled on load.)
    const double sx = n[0] / w, sy = n[1] / h;
    scale = n[0] == 0 ? sy : n[1] == 0 ? sx : std::min(sx, sy);
    if (n.size() >= 6 && n[5] == 2) return 1;  // only enlarges
  } else {
    return 1;
  }
  // The resize's own filter finishes from more than the target size, never from less; and
  // only exact divisors, so that the scaled picture has the source's aspect to the pixel and
  // the resize computes the same result size.
  for (int denom : {8, 4, 2})
    if (scale * denom < 1.0 && p.Width % denom == 0 && p.Height % denom == 0) return denom;
  return 1;
}

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
      if (imaging::Luma601Thousandths(c.r, c.g, c.b) < 240 * 1000) ++ink;
    }
  }
  const double share = double(ink) / (double(page.Width()) * page.Height());
  return share <= (100 - accuracy) / 100.0 * 0.001;
}

Status CopyAsTiff(const std::string& source, const std::string& tiff, int jpeg_scale_denom,
                  imaging::HandOverCache* cache) {
  const int pages = PageCount(source, cache);
  for (int i = 0; i < pages; ++i) {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp, cache);
    io.Params().ImageIndex = i;
    io.Params().JPEG_ScaleDenom = jpeg_scale_denom;
    if (Status st = io.LoadFromFile(source); !st.ok()) return st;
    // A scratch file is read once more right away: writing it fast beats writing it small.
    io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_UNCOMPRESSED;
    if (Status st = pages == 1 ? io.SaveToFile(tiff) : io.InsertToFileTIFF(tiff); !st.ok())
      return st;
  }
  return Status::OK();
}

PageSelection SelectPages(const std::string& picture, const settings::TMainSettings& s,
                          const std::string& temp_folder, imaging::HandOverCache* cache) {
  PageSelection sel;
  sel.pages = PageCount(picture, cache);
  const bool by_list =
      s.multipage_settings.loading_option != 1 && !s.multipage_settings.loading_pages.empty();
  const bool skip_blank = s.skip_blank_settings.skip_blank;
  if (!by_list && !skip_blank) return sel;
  if (sel.pages <= 1 && !skip_blank) return sel;

  const std::string out = tools::ScratchName(temp_folder, ".tif");
  int kept = 0;
  for (int i = 0; i < sel.pages; ++i) {
    if (by_list && !settings::TMainSettings::in_list(i + 1, s.multipage_settings.loading_pages))
      continue;
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp, cache);
    io.Params().ImageIndex = i;
    if (!io.LoadFromFile(picture).ok()) continue;
    if (skip_blank && IsBlankPage(bmp, s.skip_blank_settings.skip_blank_accuracy)) continue;
    io.Params().TIFF_Compression = imaging::TIOTIFFCompression::ioTIFF_UNCOMPRESSED;
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
  req.probe = &NamingProbe();
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
