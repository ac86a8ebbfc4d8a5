// TIOParamsVals: everything a file carries besides its pixels, and every choice a save takes.
//
// Loading fills the "read" fields from the file (size, depth, frame count, DPI, ICC, EXIF...);
// saving reads the save options. One record belongs to one TImageEnIO; copy it with Assign.
// Nothing here is shared between workers.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "imaging/ie_icc.h"

namespace pictavo::imaging {

// File formats the engine reads (by content) or writes (by extension).
enum class TIOFileType {
  ioUnknown,
  ioJPEG,
  ioPNG,
  ioTIFF,
  ioGIF,
  ioBMP,
  ioPCX,
  ioTGA,
  ioICO,
  ioCUR,
  ioPBM,
  ioPGM,
  ioPPM,
  ioPAM,
  ioWEBP,
  ioJP2,  // JPEG 2000 in its JP2 box container
  ioJ2K,  // bare JPEG 2000 code stream
  ioQOI,
  ioPSD,
  ioPDF,  // write only
  ioWMF,  // rasterised by the read stage (wmf2gd), never decoded here
  ioEMF,
};

// JPEG colour spaces, numbered as the program's settings map expects them.
enum TIOJPEGColorSpace {
  // The numbers are the engine's JPEG colour-space codes that the settings map onto
  // ("JPG"/"Color_space" 0 -> 2 YCbCr, 1 -> 3 CMYK, 2 -> 0 RGB, 3 -> 4 YCbCrK, 4 -> 1 grey).
  ioJPEG_UNKNOWN = -1,  // let the encoder choose (YCbCr for colour, grey for grey)
  ioJPEG_RGB = 0,
  ioJPEG_GRAYLEV = 1,
  ioJPEG_YCbCr = 2,
  ioJPEG_CMYK = 3,
  ioJPEG_YCbCrK = 4,
};

enum class TIOTIFFCompression {
  ioTIFF_UNCOMPRESSED,
  ioTIFF_CCITT1D,  // Modified Huffman (compression tag 2)
  ioTIFF_G3FAX1D,  // Group 3, one-dimensional
  ioTIFF_G3FAX2D,  // Group 3, two-dimensional
  ioTIFF_G4FAX,    // Group 4
  ioTIFF_LZW,
  ioTIFF_JPEG,
  ioTIFF_PACKBITS,
  ioTIFF_DEFLATE,
};

// Photometric interpretation, with the TIFF tag's own values.
enum TIOTIFFPhotometInterpret {
  ioTIFF_WHITEISZERO = 0,
  ioTIFF_BLACKISZERO = 1,
  ioTIFF_RGB = 2,
  ioTIFF_RGBPALETTE = 3,
  ioTIFF_TRANSPMASK = 4,
  ioTIFF_CMYK = 5,  // "separated"
  ioTIFF_YCBCR = 6,
  ioTIFF_CIELAB = 8,
};

// One IPTC dataset, e.g. record 2, dataset 120 (caption).
struct TIPTCItem {
  int record = 2;
  int dataset = 0;
  std::string value;
  bool operator==(const TIPTCItem&) const = default;
};

// A JPEG marker segment kept for rewriting (COM and application markers that the engine does
// not manage itself: everything except JFIF, EXIF, XMP, ICC and the Photoshop IPTC block).
struct TJPEGMarker {
  uint8_t marker = 0;  // 0xFE for COM, 0xE0 + n for APPn
  std::vector<uint8_t> data;
  bool operator==(const TJPEGMarker&) const = default;
};

// One GIF frame's timing and transparency.
struct TGIFFrameInfo {
  int delay_cs = 0;            // in 1/100 s
  int transparent_index = -1;  // -1: none
  int disposal = 0;
};

class TIOParamsVals {
 public:
  TIOParamsVals() = default;

  // Clears everything: read fields, metadata and save options go back to their defaults.
  void ResetInfo() { *this = TIOParamsVals(); }
  // Drops the EXIF block: its fields, the thumbnail and the raw data.
  void ResetEXIF();
  // Copies every field.
  void Assign(const TIOParamsVals& other) { *this = other; }
  // Renews the EXIF thumbnail from `source`, `width` pixels wide, height in proportion.
  pictavo::Status UpdateEXIFThumbnail(const TIEBitmap& source, int width);

  // ---- what the last load found (also read by ParamsFromFile) ----
  TIOFileType FileType = TIOFileType::ioUnknown;
  int Width = 0;
  int Height = 0;
  int BitsPerSample = 8;
  int SamplesPerPixel = 3;
  int DpiX = 96;
  int DpiY = 96;
  bool HasAlpha = false;
  int ImageCount = 1;  // frames or pages in the file

  // ---- load options ----
  int ImageIndex = 0;  // frame or page to load, 0-based
  // JPEG shrink-on-load: decode at 1/1, 1/2, 1/4 or 1/8 of the size (DCT scaling, fast).
  int JPEG_ScaleDenom = 1;

  // ---- JPEG ----
  int JPEG_Quality = 85;
  TIOJPEGColorSpace JPEG_ColorSpace = ioJPEG_UNKNOWN;
  bool JPEG_Progressive = false;
  bool JPEG_OptimalHuffman = true;
  std::vector<TJPEGMarker> JPEG_MarkerList;
  void ClearMarkers() { JPEG_MarkerList.clear(); }

  // ---- TIFF ----
  TIOTIFFCompression TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
  TIOTIFFPhotometInterpret TIFF_PhotometInterpret = ioTIFF_RGB;
  int TIFF_JPEGQuality = 85;
  TIOJPEGColorSpace TIFF_JPEGColorSpace = ioJPEG_YCbCr;

  // ---- PNG ----
  int PNG_Compression = 6;  // zlib level 0..9
  bool PNG_Interlaced = false;
  TColor PNG_Background = 0xFFFFFF;
  bool PNG_HasBackground = false;

  // ---- GIF ----
  std::vector<TGIFFrameInfo> GIF_Frames;  // per frame of the loaded file
  int GIF_DelayTime = 0;                  // delay written with the next frame, 1/100 s
  int GIF_TransparentIndex = -1;          // transparent palette index written, -1 none
  int GIF_Loop = -1;                      // NETSCAPE loop count written; -1 none, 0 forever

  // ---- other formats ----
  bool TGA_Compressed = true;   // RLE
  bool PCX_Compression = true;  // RLE (PCX files are always RLE; off writes raw scanlines)
  double J2000_Rate = 1.0;      // fraction of the uncompressed size, 1.0 = lossless
  bool WEBP_Lossless = false;
  int WEBP_Quality = 80;        // lossy quality; for lossless, the effort
  int WEBP_AlphaQuality = 100;  // quality of the compressed alpha plane
  std::vector<int> ICO_Sizes;   // extra square sizes to write into an .ico (empty: as is)

  // ---- metadata ----
  bool EXIF_HasEXIFData = false;
  std::string EXIF_ImageDescription;
  std::string EXIF_Make;
  std::string EXIF_Model;
  std::string EXIF_DateTime;
  int EXIF_Orientation = 0;    // 0 unknown, else 1..8
  std::string EXIF_Copyright;  // stored as 8-bit text
  // Written as UCS-2 ("XP" tags), given here in UTF-8.
  std::string EXIF_XPTitle;
  std::string EXIF_XPSubject;
  std::string EXIF_XPKeywords;
  std::string EXIF_XPComment;
  std::string EXIF_XPAuthor;
  // The EXIF block as read (TIFF structure without the "Exif\0\0" prefix). Fields above are
  // merged into it on save; an empty block with EXIF_HasEXIFData builds a new one.
  std::vector<uint8_t> EXIF_Raw;
  std::vector<uint8_t> EXIF_Thumbnail;  // JPEG bytes of the IFD1 thumbnail

  std::vector<TIPTCItem> IPTC_Info;
  void ClearIPTC() { IPTC_Info.clear(); }
  std::string XMP_Info;  // the XMP packet text

  // The colour profile of the file (read) or to embed (save); empty = none.
  TIEICC ICC;
};

const char* FileTypeName(TIOFileType type);

}  // namespace pictavo::imaging
