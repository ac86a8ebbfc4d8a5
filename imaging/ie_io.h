// TImageEnIO: loads files into one bound bitmap and saves it, with the per-file parameters
// of TIOParamsVals.
//
// Loading judges the format by the file's content, never by its name; saving chooses the format
// by the destination's extension. Every save writes a scratch file beside the destination and
// renames it into place, so a failed save leaves no half-written file and an existing file is
// replaced only by a complete one. Damaged or hostile input gives a failed Status; the bitmap
// is then empty.
//
// One object serves one worker; objects in different workers share nothing except the
// process-wide colour-management switch (see ie_icc.h). Objects of one worker share its
// HandOverCache, when they are given it.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "imaging/io_params.h"
#include "platform/status.h"

namespace pictavo::imaging {

// Layout of headerless raw pixel data for LoadFromFileBMPRAW.
struct TIORawLayout {
  int width = 0;
  int height = 0;
  TIEPixelFormat format = TIEPixelFormat::ie24RGB;  // ie1g, ie8g, ie16g, ie24RGB, ie48RGB, ieCMYK
  uint64_t header_bytes = 0;                        // skipped at the start of the file
  int row_align = 1;        // rows padded to a multiple of this many bytes (1, 2, 4)
  bool bgr = false;         // 24/48-bit samples stored blue first
  bool bottom_up = false;   // first stored row is the bottom one
  bool big_endian = false;  // 16-bit samples
};

// The layout the "Raw_bmp" settings describe, width and height aside: 1 bit per channel is
// two-level grey, 16 is 48-bit RGB, anything else 24-bit RGB; rows aligned to 8, 16 or 32 bits;
// order 2 is blue first; `header_size` bytes ahead of the pixels.
TIORawLayout RawLayoutFromSettings(int bits_per_channel, int row_align_bits, int order,
                                   int header_size);

class PdfWriter;

// What the stages of one worker share through their loaders and savers: the last scratch TIFF
// saved, kept in memory for the next stage's load, and the modes the worker sets for a stage
// (TEightBitLoads, TKeepSavesForNextLoad). Owned by the worker, reached by the TImageEnIO
// objects its stages create; a TImageEnIO without one neither keeps nor takes a picture and
// loads at the file's own depth. Not thread-safe: one cache serves one thread at a time.
class HandOverCache {
 public:
  HandOverCache();
  ~HandOverCache();
  HandOverCache(const HandOverCache&) = delete;
  HandOverCache& operator=(const HandOverCache&) = delete;

  // Drops the picture kept for a next load (at the end of a job's file).
  void Forget();

 private:
  friend class TImageEnIO;
  friend class TEightBitLoads;
  friend class TKeepSavesForNextLoad;

  // The last one-page TIFF saved through this cache, with what identifies the file as written.
  bool valid_ = false;
  std::string path_;
  std::uintmax_t size_ = 0;
  std::filesystem::file_time_type written_;
  TIEBitmap bitmap_;
  TIOParamsVals params_;

  bool eight_bit_loads_ = false;
  bool keep_saves_ = false;
};

// While one lives, loads through `cache` may give a picture of 16 bits per sample (so far: RGB
// TIFF without alpha) at 8 bits, rounded as TIEBitmap::ConvertTo rounds. For a step whose every
// result holds at most 8 bits per sample: the wide picture would only be narrowed again, after
// costing twice the memory. The parameters still report the file's own depth.
class TEightBitLoads {
 public:
  explicit TEightBitLoads(HandOverCache& cache);
  ~TEightBitLoads();
  TEightBitLoads(const TEightBitLoads&) = delete;
  TEightBitLoads& operator=(const TEightBitLoads&) = delete;

 private:
  HandOverCache& cache_;
  bool previous_;
};

// While one lives, a one-page TIFF saved through `cache` is also kept in memory, and the next
// load or parameter probe of that very file through the same cache, unchanged since, takes it
// from there instead of decoding it again. For the stages of a job, whose scratch result the
// next stage loads at once; a save that nothing loads again would only hold a copy.
class TKeepSavesForNextLoad {
 public:
  explicit TKeepSavesForNextLoad(HandOverCache& cache);
  ~TKeepSavesForNextLoad();
  TKeepSavesForNextLoad(const TKeepSavesForNextLoad&) = delete;
  TKeepSavesForNextLoad& operator=(const TKeepSavesForNextLoad&) = delete;

 private:
  HandOverCache& cache_;
  bool previous_;
};

class TImageEnIO {
 public:
  // "Create": bound to `bitmap`, which must outlive it, and to the worker's `cache` (may be
  // null: no hand-over, loads at the file's own depth), which must outlive it too.
  explicit TImageEnIO(TIEBitmap* bitmap, HandOverCache* cache = nullptr);
  ~TImageEnIO();
  TImageEnIO(const TImageEnIO&) = delete;
  TImageEnIO& operator=(const TImageEnIO&) = delete;

  TIOParamsVals& Params() { return params_; }
  const TIOParamsVals& Params() const { return params_; }
  TIEBitmap& Bitmap() { return *bmp_; }

  // Loads frame Params().ImageIndex of the file; the format comes from the content.
  pictavo::Status LoadFromFile(const std::string& path);
  pictavo::Status LoadFromBuffer(const uint8_t* data, size_t size);
  // Reads the parameters of frame Params().ImageIndex without decoding pixels.
  pictavo::Status ParamsFromFile(const std::string& path);
  // As ParamsFromFile, without the metadata (EXIF, XMP, IPTC): size, layout and frame count
  // only, for the checks that look at every result.
  pictavo::Status HeaderFromFile(const std::string& path);
  pictavo::Status ParamsFromBuffer(const uint8_t* data, size_t size);

  // Saves in the format named by `path`'s extension.
  pictavo::Status SaveToFile(const std::string& path);
  // As SaveToFile, for a bitmap that is not needed afterwards: the encoder may work in its
  // pixels instead of a copy (PNG filters its rows where they lie). The bitmap is left empty.
  pictavo::Status SaveToFileAndRelease(const std::string& path);
  pictavo::Status SaveToFilePNG(const std::string& path);
  // Encodes in `type` without touching the disk.
  pictavo::Status SaveToBuffer(TIOFileType type, std::vector<uint8_t>& out);

  // Appends the bitmap as a further page (TIFF) or frame (GIF) to an existing file; a missing
  // file is created with this one page.
  pictavo::Status InsertToFileTIFF(const std::string& path);
  pictavo::Status InsertToFileGIF(const std::string& path);

  pictavo::Status LoadFromFileBMPRAW(const std::string& path, const TIORawLayout& layout);
  // The bound picture as raw data in `layout` (its width and height are the picture's).
  pictavo::Status SaveToFileBMPRAW(const std::string& path, const TIORawLayout& layout);

  // Windows metafiles (WMF, EMF) are drawings, not pictures: the engine rasterises them with a
  // program of the tool folder, which imaging does not run. The owner hands over the rasteriser:
  // it writes the metafile as a picture file of `width` x `height` pixels (0 = the metafile's
  // own size at 96 dpi, the other side in proportion) and returns that file's path, empty when
  // it failed; the owner removes the file afterwards. ImportMetafile loads its picture.
  using MetafileRasteriser =
      std::function<std::string(const std::string& metafile, int width, int height)>;
  void SetMetafileRasteriser(MetafileRasteriser rasteriser);
  pictavo::Status ImportMetafile(const std::string& path, int width = 0, int height = 0);

  // PDF output: open a document, add the bitmap as one page per call (JPEG-compressed for
  // photos, Flate for 1-bit, palette and pictures with few colours), close it. Pages are sized
  // from the bitmap and the DPI. The file appears only at ClosePDFFile.
  pictavo::Status CreatePDFFile(const std::string& path);
  pictavo::Status SaveToPDF();
  pictavo::Status ClosePDFFile();

 private:
  pictavo::Status Decode(const uint8_t* data, size_t size, bool params_only,
                         bool with_metadata = true);
  // Decode of the file's bytes, mapped; a file cut short while it was read fails.
  pictavo::Status DecodeFile(const std::string& path, bool params_only, bool with_metadata = true);
  // `release`: the bound bitmap is not needed afterwards, so its pixels may be taken.
  pictavo::Status Encode(TIOFileType type, std::vector<uint8_t>& out, bool release = false);
  pictavo::Status Save(const std::string& path, bool release);
  pictavo::Status PrepareForSave(TIOFileType type, TIEBitmap& work, const TIEBitmap*& use);
  void RememberLayout();
  // The hand-over between stages: a one-page TIFF just saved through the cache is kept in
  // memory, and a load (or parameter probe) of that very file through the same cache, unchanged
  // since, takes it from there instead of decoding it again.
  void KeepForNextLoad(const std::string& path, std::vector<uint8_t> tiff);
  bool TakeHandOver(const std::string& path, bool params_only);

  TIEBitmap* bmp_;
  MetafileRasteriser rasterise_metafile_;
  HandOverCache* cache_;
  TIOParamsVals params_;
  // The depth the parameters had after the last load: a change by the caller is a request.
  int loaded_bps_ = 0;
  int loaded_spp_ = 0;
  std::unique_ptr<PdfWriter> pdf_;
};

}  // namespace pictavo::imaging
