// What naming templates need to know about a source image: its size ("<orientation>"), a TIFF
// tag ("<tif_tag:n>") and its EXIF date and time ("<exif_date_time>").
//
// The imaging engine may install its own probe at start-up; until it does, a small built-in
// reader answers from the headers of PNG, JPEG, TIFF, GIF and BMP files. Only headers are read,
// with every offset checked against the file; a damaged file gives "unknown", never a crash.
#pragma once

#include <functional>
#include <optional>
#include <string>

namespace pictavo::settings {

struct ImageSize {
  int width = 0;
  int height = 0;
};

struct ImageHeaderProbe {
  // Each answers nullopt when the file is unreadable or holds no such information.
  std::function<std::optional<ImageSize>(const std::string& path)> size;
  std::function<std::optional<std::string>(const std::string& path, int tag)> tiff_tag;
  // As "yyyy-mm-dd hh-nn-ss" (the EXIF text with ":" made file-name safe).
  std::function<std::optional<std::string>(const std::string& path)> exif_date_time;
};

// The built-in header reader.
ImageHeaderProbe BuiltInImageHeaderProbe();

// Installs the probe that naming uses. Process-wide: call it once at start-up, before any
// worker runs; reading it afterwards is thread-safe. Empty members fall back to the built-in.
void SetImageHeaderProbe(ImageHeaderProbe probe);
const ImageHeaderProbe& CurrentImageHeaderProbe();

// The built-in readers, also usable on their own.
std::optional<ImageSize> ReadImageSize(const std::string& path);
// The value of a tag of the first image directory (or of its EXIF directory): text as
// stored, numbers in decimal separated by blanks, fractions as "n/d".
std::optional<std::string> ReadTiffTag(const std::string& path, int tag);
// DateTimeOriginal of the EXIF directory, else DateTime of the first directory.
std::optional<std::string> ReadExifDateTime(const std::string& path);

}  // namespace pictavo::settings
