#include "read/route_support.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "imaging/tiff_join.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

// Writes every frame of `picture` (or only the first) as pages appended to `tiff`.
bool AppendPages(const std::string& picture, const std::string& tiff, bool all_frames) {
  imaging::TIEBitmap bitmap;
  imaging::TImageEnIO io(&bitmap);
  if (!io.ParamsFromFile(picture).ok()) return false;
  const int count = all_frames ? std::max(1, io.Params().ImageCount) : 1;
  bool any = false;
  for (int i = 0; i < count; ++i) {
    io.Params().ImageIndex = i;
    if (!io.LoadFromFile(picture).ok() || bitmap.IsEmpty()) continue;
    if (io.InsertToFileTIFF(tiff).ok()) any = true;
  }
  return any;
}

bool IsTiffName(const std::string& path) {
  const std::string ext = platform::LowerExtension(path);
  return ext == ".tif" || ext == ".tiff";
}

}  // namespace

int SavePictures(TZubRead& r, const std::vector<std::string>& pictures) {
  if (pictures.empty()) return 1;
  std::error_code ec;
  if (IsTiffName(r.out_file)) {
    // Pages go into a scratch file beside out_file, which replaces it only when complete.
    const std::string partial = r.out_file + ".part.tif";
    fs::remove(partial, ec);
    bool any = false;
    for (const std::string& picture : pictures) any |= AppendPages(picture, partial, true);
    if (any) fs::rename(partial, r.out_file, ec);
    fs::remove(partial, ec);
    return tools::Produced(r.out_file) ? 0 : 1;
  }
  for (const std::string& picture : pictures) {
    imaging::TIEBitmap bitmap;
    bitmap.SetLimits(r.picture_limits);
    imaging::TImageEnIO io(&bitmap, r.hand_over);
    if (!io.LoadFromFile(picture).ok() || bitmap.IsEmpty()) continue;
    if (io.SaveToFile(r.out_file).ok()) break;
  }
  return tools::Produced(r.out_file) ? 0 : 1;
}

int SaveLoaded(TZubRead& r, imaging::TImageEnIO& io) {
  // SaveToFile writes under a scratch name itself; a TIFF page is appended to a file of its own
  // first, as SavePictures does, so that no half file stands under out_file.
  if (!IsTiffName(r.out_file))
    return io.SaveToFile(r.out_file).ok() && tools::Produced(r.out_file) ? 0 : 1;
  std::error_code ec;
  const std::string partial = r.out_file + ".part.tif";
  fs::remove(partial, ec);
  if (io.InsertToFileTIFF(partial).ok()) fs::rename(partial, r.out_file, ec);
  fs::remove(partial, ec);
  return tools::Produced(r.out_file) ? 0 : 1;
}

int HandOnTiffs(TZubRead& r, const std::vector<std::string>& tiffs) {
  std::vector<std::string> made;
  for (const std::string& tiff : tiffs)
    if (tools::Produced(tiff)) made.push_back(tiff);
  if (made.empty()) return 1;
  if (IsTiffName(r.out_file)) {
    if (made.size() > 1) {
      if (imaging::JoinTiffFiles(made, r.out_file).ok()) return 0;
    } else {
      imaging::TIEBitmap none;
      none.SetLimits(r.picture_limits);
      imaging::TImageEnIO probe(&none, r.hand_over);
      std::error_code ec;
      if (probe.ParamsFromFile(made.front()).ok() && probe.Params().ImageCount >= 1) {
        fs::rename(made.front(), r.out_file, ec);
        if (!ec) return 0;
      }
    }
  }
  return SavePictures(r, made);
}

int SavePicture(TZubRead& r, const std::string& picture) {
  if (!tools::Produced(picture)) return 1;
  return SavePictures(r, {picture});
}

int RunThenSave(TZubRead& r, std::string_view tool, const std::string& command_line,
                const std::string& result) {
  if (!HasTool(r, tool)) return 1;
  tools::RunTool(r.Job(), command_line);
  return SavePicture(r, result);
}

std::string FirstLine(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::string line;
  char c;
  while (line.size() < 4096 && in.get(c) && c != '\n' && c != '\r') line += c;
  return line;
}

std::vector<std::string> ListFiles(const std::string& folder, bool recursive) {
  std::vector<std::string> files;
  std::error_code ec;
  if (recursive) {
    for (fs::recursive_directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
      if (it->is_regular_file(ec)) files.push_back(it->path().string());
  } else {
    for (fs::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec))
      if (it->is_regular_file(ec)) files.push_back(it->path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

}  // namespace pictavo::reader
