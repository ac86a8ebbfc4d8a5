// Archives and formats that are archives inside: unpacked with the archiver of the tool folder
// into a scratch folder, then the picture inside is read, by the engine or by a nested Read().
#include <algorithm>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

// Unpacks `archive` into `folder`: flat ("e") or with its folders ("x").
bool Unpack(const TZubRead& r, const std::string& archive, const std::string& folder,
            bool keep_folders) {
  if (!HasTool(r, "7za.bin")) return false;
  std::error_code ec;
  fs::create_directories(folder, ec);
  tools::RunTool(r.Job(), ToolArg(r, "7za.bin") + (keep_folders ? " x -y " : " e -y ") +
                              platform::Quoted(archive) + " -o" + platform::Quoted(folder));
  return !ListFiles(folder, true).empty();
}

std::string FileName(const std::string& path) {
  return platform::AsciiLower(fs::path(path).filename().string());
}

// Extensions that a picture inside an archive may carry.
constexpr std::string_view kPictureExts =
    ";jpg;jpeg;jpe;png;tif;tiff;bmp;gif;webp;psd;pcx;tga;ico;jp2;j2k;pbm;pgm;ppm;qoi;heic;avif;"
    "cr2;nef;dng;iiq;gau;";

bool IsPicture(const std::string& path) {
  const std::string ext = platform::LowerExtension(path);
  return !ext.empty() && kPictureExts.find(";" + ext.substr(1) + ";") != std::string_view::npos;
}

// Reads `inner` through the whole chain with the same reader object (one nested level), and
// puts the outer file back afterwards.
int NestedRead(TZubRead& r, const std::string& inner) {
  const std::string outer = r.src_file;
  r.src_file = inner;
  const int status = r.Read();
  r.src_file = outer;
  return status;
}

using Pick = bool (*)(const std::string& path);

// Reads the first of `files` (in name order) that `pick` accepts.
int ReadFirst(TZubRead& r, const std::vector<std::string>& files, Pick pick, bool nested) {
  for (const std::string& file : files) {
    if (!pick(file)) continue;
    const int status = nested ? NestedRead(r, file) : SavePicture(r, file);
    if (status == 0) return 0;
  }
  return 1;
}

// Unpacks the source and reads the first file (in name order) that `pick` accepts.
int UnpackAndRead(TZubRead& r, Pick pick, bool keep_folders, bool nested) {
  Scratch folder(r, "");
  if (!Unpack(r, r.src_file, folder.path(), keep_folders)) return 1;
  return ReadFirst(r, ListFiles(folder.path(), true), pick, nested);
}

// Files that only accompany another one: a shapefile's attributes, index and projection, a
// model's materials. Reading them alone fails, slowly.
constexpr std::string_view kSidecarExts = ";dbf;shx;prj;cpg;sbn;sbx;qix;qpj;mtl;";

// Anything else that a row of the table reads: a drawing, a document, a model, a map.
bool IsOtherReadable(const std::string& path) {
  const std::string ext = platform::LowerExtension(path);
  if (ext.empty() || IsPicture(path)) return false;
  const std::string key = ";" + ext.substr(1) + ";";
  if (kSidecarExts.find(key) != std::string_view::npos) return false;
  // Archives inside archives are left alone: a nested read goes one level deep, no further.
  for (const ReadRoute& row : ReadRoutes())
    if (row.read != zip_read && row.read != orb_read && RouteMatches(row, key)) return true;
  return false;
}

// What a container holds, read by a nested Read: pictures first, then whatever else the table
// reads (the PDFs of a zip, a zipped shapefile, a mail's attached document).
int ReadBestInside(TZubRead& r, const std::vector<std::string>& files) {
  if (ReadFirst(r, files, IsPicture, true) == 0) return 0;
  return ReadFirst(r, files, IsOtherReadable, true);
}

}  // namespace

int zip_read(TZubRead& r) {
  Scratch folder(r, "");
  if (!Unpack(r, r.src_file, folder.path(), false)) return 1;
  std::vector<std::string> files = ListFiles(folder.path(), true);
  // A compressed tarball (.tar.gz, .tgz) unpacks to one tar: unpack that as well, inside.
  if (files.size() == 1 && platform::LowerExtension(files[0]) == ".tar") {
    const std::string inner = folder.path() + platform::kPathDelim + "tar";
    if (Unpack(r, files[0], inner, false)) files = ListFiles(inner, true);
  }
  return ReadBestInside(r, files);
}

// A ".dat" that is a mail's attachment container (TNEF, the winmail.dat of Outlook): its
// attachments are unpacked and the first one that reads is the picture.
int new_dat_read(TZubRead& r) {
  const std::optional<std::string> head = platform::ReadFilePrefix(r.src_file, 4);
  if (!head || *head != std::string("\x78\x9f\x3e\x22", 4) || !HasTool(r, "wmopener.exe")) return 1;
  Scratch folder(r, "");
  tools::RunTool(r.Job(), ToolArg(r, "wmopener.exe") + " " + platform::Quoted(r.src_file) + " " +
                              platform::Quoted(folder.path()));
  return ReadBestInside(r, ListFiles(folder.path(), true));
}

int orb_read(TZubRead& r) {
  return UnpackAndRead(
      r, [](const std::string& f) { return platform::LowerExtension(f) == ".gau"; }, false, true);
}

int new_php_read(TZubRead& r) {
  return UnpackAndRead(
      r,
      [](const std::string& f) {
        return platform::LowerExtension(f) == ".tif" &&
               platform::AsciiLower(f).find(std::string("contents") + platform::kPathDelim) !=
                   std::string::npos;
      },
      true, false);
}

int new_mic_read(TZubRead& r) {
  return UnpackAndRead(
      r, [](const std::string& f) { return FileName(f) == "image"; }, false, false);
}

int new_prj_read(TZubRead& r) {
  return UnpackAndRead(
      r,
      [](const std::string& f) {
        const std::string lower = platform::AsciiLower(f);
        const std::string marker =
            std::string("project") + platform::kPathDelim + "images" + platform::kPathDelim;
        return lower.find(marker) != std::string::npos && IsPicture(f);
      },
      true, false);
}

int ora_read(TZubRead& r) {
  Scratch folder(r, "");
  if (!Unpack(r, r.src_file, folder.path(), false)) return 1;
  const std::vector<std::string> files = ListFiles(folder.path(), true);
  for (const char* wanted : {"mergedimage.png", "layer000.png"})
    for (const std::string& file : files)
      if (FileName(file) == wanted && SavePicture(r, file) == 0) return 0;
  return 1;
}

int new_eip_read(TZubRead& r) {
  return UnpackAndRead(
      r,
      [](const std::string& f) {
        const std::string ext = platform::LowerExtension(f);
        return ext == ".cr2" || ext == ".iiq";
      },
      false, true);
}

int imd_read(TZubRead& r) {
  return UnpackAndRead(
      r, [](const std::string& f) { return platform::LowerExtension(f) == ".tif"; }, false, false);
}

}  // namespace pictavo::reader
