// A small PDF writer: one image per page, JPEG (DCTDecode) for photos and Flate for 1-bit,
// palette and grey-scale drawings. Pages collect in memory; Finish writes the whole file under
// a scratch name and renames it into place.
#pragma once

#include <string>
#include <vector>

#include "imaging/codecs/codec.h"

namespace pictavo::imaging {

class PdfWriter {
 public:
  explicit PdfWriter(std::string path) : path_(std::move(path)) {}

  // Page size follows the bitmap at its DPI; JPEG quality is params.JPEG_Quality. An alpha
  // plane is composited onto white first.
  pictavo::Status AddPage(const TIEBitmap& bmp, const TIOParamsVals& params);
  pictavo::Status Finish();
  int PageCount() const { return static_cast<int>(pages_.size()); }

 private:
  struct Page {
    std::string image_dict;  // without stream data
    std::vector<uint8_t> image_data;
    double width_pt, height_pt;
  };
  std::string path_;
  std::vector<Page> pages_;
};

}  // namespace pictavo::imaging
