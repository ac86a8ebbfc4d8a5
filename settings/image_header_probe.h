// What naming templates need to know about a source image: its size ("<orientation>"), a TIFF
// tag ("<tif_tag:n>") and its EXIF date and time ("<exif_date_time>").
//
// Settings cannot read pictures: the layer that can (the imaging engine, through the pipeline)
// hands a probe to each naming call in DestRequest or MaskSource. Without one, the tokens that
// need it expand as for a file that holds no such information.
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
  // Each answers nullopt when the file is unreadable or holds no such information; an empty
  // member counts as one that always does. Called from several workers at once.
  std::function<std::optional<ImageSize>(const std::string& path)> size;
  std::function<std::optional<std::string>(const std::string& path, int tag)> tiff_tag;
  // As "yyyy-mm-dd hh-nn-ss" (the EXIF text with ":" made file-name safe).
  std::function<std::optional<std::string>(const std::string& path)> exif_date_time;
};

}  // namespace pictavo::settings
