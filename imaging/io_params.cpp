#include "imaging/io_params.h"

#include "imaging/codec_registry.h"
#include "imaging/codecs/jpeg_codec.h"
#include "imaging/resample.h"

namespace pictavo::imaging {

void TIOParamsVals::ResetEXIF() {
  EXIF_HasEXIFData = false;
  EXIF_ImageDescription.clear();
  EXIF_Make.clear();
  EXIF_Model.clear();
  EXIF_DateTime.clear();
  EXIF_Orientation = 0;
  EXIF_Copyright.clear();
  EXIF_XPTitle.clear();
  EXIF_XPSubject.clear();
  EXIF_XPKeywords.clear();
  EXIF_XPComment.clear();
  EXIF_XPAuthor.clear();
  EXIF_Raw.clear();
  EXIF_Thumbnail.clear();
}

pictavo::Status TIOParamsVals::UpdateEXIFThumbnail(const TIEBitmap& source, int width) {
  if (source.IsEmpty() || width <= 0) return pictavo::Status::Error("no picture for a thumbnail");
  const int height =
      std::max(1, static_cast<int>(static_cast<int64_t>(source.Height()) * width / source.Width()));
  // The full-size picture is copied only when it must change before the resample.
  const bool keep = source.PixelFormat() == TIEPixelFormat::ie24RGB ||
                    source.PixelFormat() == TIEPixelFormat::ie8g;
  TIEBitmap thumb;
  if (keep && !source.HasAlphaChannel() && (width != source.Width() || height != source.Height())) {
    if (auto st = ResampleBitmap(source, thumb, width, height, TResampleFilter::rfBilinear);
        !st.ok())
      return st;
  } else {
    if (keep) {
      thumb = source;
    } else if (auto st = thumb.ConvertFrom(source, TIEPixelFormat::ie24RGB); !st.ok()) {
      return st;
    }
    if (thumb.HasAlphaChannel()) thumb.RemoveAlphaChannel(0xFFFFFF);
    if (auto st = thumb.Resample(width, height, TResampleFilter::rfBilinear); !st.ok()) return st;
  }
  TIOParamsVals p;
  p.JPEG_Quality = 75;
  std::vector<uint8_t> jpeg;
  if (auto st = codecs::EncodeJPEG(thumb, p, jpeg); !st.ok()) return st;
  // EXIF keeps the whole block within 64 KiB; a thumbnail that would not fit is left out.
  if (jpeg.size() > 60000) return pictavo::Status::Error("thumbnail too large for EXIF");
  EXIF_Thumbnail = std::move(jpeg);
  return pictavo::Status::OK();
}

const char* FileTypeName(TIOFileType type) {
  const CodecRow* row = RowForType(type);
  return row ? row->name : "unknown";
}

}  // namespace pictavo::imaging
