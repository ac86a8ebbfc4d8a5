#include "imaging/codec_registry.h"

#include <array>
#include <cstring>
#include <initializer_list>

#include "imaging/codecs/bmp_codec.h"
#include "imaging/codecs/gif_codec.h"
#include "imaging/codecs/ico_codec.h"
#include "imaging/codecs/jp2_codec.h"
#include "imaging/codecs/jpeg_codec.h"
#include "imaging/codecs/pcx_codec.h"
#include "imaging/codecs/png_codec.h"
#include "imaging/codecs/pnm_codec.h"
#include "imaging/codecs/psd_codec.h"
#include "imaging/codecs/qoi_codec.h"
#include "imaging/codecs/tga_codec.h"
#include "imaging/codecs/tiff_codec.h"
#include "imaging/codecs/webp_codec.h"
#include "imaging/header_probes.h"
#include "imaging/ie_metadata.h"
#include "imaging/tiff_ifd.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "platform/text_encoding.h"

namespace pictavo::imaging {

using codecs::LayoutBit;
using F = TIEPixelFormat;

namespace {

bool StartsWith(const uint8_t* d, size_t n, const char* magic, size_t len) {
  return n >= len && std::memcmp(d, magic, len) == 0;
}

bool IsJPEG(const uint8_t* d, size_t n) {
  return n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF;
}
bool IsPNG(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "\x89PNG\r\n\x1a\n", 8);
}
bool IsTIFF(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "II*\0", 4) || StartsWith(d, n, "MM\0*", 4) ||
         StartsWith(d, n, "II+\0", 4) || StartsWith(d, n, "MM\0+", 4);
}
bool IsGIF(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "GIF87a", 6) || StartsWith(d, n, "GIF89a", 6);
}
bool IsBMP(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "BM", 2) && n >= 18;
}
bool IsWEBP(const uint8_t* d, size_t n) {
  return n >= 12 && StartsWith(d, n, "RIFF", 4) && std::memcmp(d + 8, "WEBP", 4) == 0;
}
bool IsJP2(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "\0\0\0\x0cjP  \r\n\x87\n", 12);
}
bool IsJ2K(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "\xff\x4f\xff\x51", 4);
}
bool IsQOI(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "qoif", 4);
}
bool IsPSD(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "8BPS\0\1", 6);
}
bool IsPDF(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "%PDF", 4);
}
bool IsWMF(const uint8_t* d, size_t n) {
  return StartsWith(d, n, "\xd7\xcd\xc6\x9a", 4);  // placeable WMF
}
bool IsEMF(const uint8_t* d, size_t n) {
  return n >= 44 && d[0] == 1 && d[1] == 0 && d[2] == 0 && d[3] == 0 &&
         std::memcmp(d + 40, " EMF", 4) == 0;
}
// ICO and CUR share a header; the resource type tells them apart.
bool IsIconOfType(const uint8_t* d, size_t n, uint8_t type) {
  return n >= 6 && d[0] == 0 && d[1] == 0 && d[2] == type && d[3] == 0 && (d[4] | d[5]) != 0;
}
bool IsICO(const uint8_t* d, size_t n) {
  return IsIconOfType(d, n, 1);
}
bool IsCUR(const uint8_t* d, size_t n) {
  return IsIconOfType(d, n, 2);
}
bool IsNetpbm(const uint8_t* d, size_t n, char a, char b) {
  return n >= 2 && d[0] == 'P' && (d[1] == a || d[1] == b);
}
bool IsPBM(const uint8_t* d, size_t n) {
  return IsNetpbm(d, n, '1', '4');
}
bool IsPGM(const uint8_t* d, size_t n) {
  return IsNetpbm(d, n, '2', '5');
}
bool IsPPM(const uint8_t* d, size_t n) {
  return IsNetpbm(d, n, '3', '6');
}
bool IsPAM(const uint8_t* d, size_t n) {
  return IsNetpbm(d, n, '7', '7');
}
bool IsPCX(const uint8_t* d, size_t n) {
  return n >= 4 && d[0] == 0x0A && d[1] <= 5 && d[2] <= 1 &&
         (d[3] == 1 || d[3] == 2 || d[3] == 4 || d[3] == 8);
}

// An ISOBMFF file whose 'ftyp' names one of `brands` as its major or a compatible brand.
bool HasBrand(const uint8_t* d, size_t n, std::initializer_list<const char*> brands) {
  if (n < 16 || std::memcmp(d + 4, "ftyp", 4) != 0) return false;
  const uint32_t size = platform::LoadBe32(d);
  const size_t end = size >= 16 && size <= n ? size : 0;
  for (size_t at = 8; at + 4 <= end; at += at == 8 ? 8 : 4)  // major brand, minor version, list
    for (const char* brand : brands)
      if (std::memcmp(d + at, brand, 4) == 0) return true;
  return false;
}
bool IsAVIF(const uint8_t* d, size_t n) {
  return HasBrand(d, n, {"avif", "avis"});
}
bool IsHEIF(const uint8_t* d, size_t n) {
  return HasBrand(d, n, {"heic", "heix", "heim", "heis", "hevc", "hevx", "mif1", "msf1"});
}

// TGA has no signature: accept a header whose fields are all in range.
bool IsTGA(const uint8_t* d, size_t n) {
  if (n < 18) return false;
  const int cmap_type = d[1], type = d[2];
  if (cmap_type > 1) return false;
  if (!(type == 1 || type == 2 || type == 3 || type == 9 || type == 10 || type == 11)) return false;
  const int width = d[12] | (d[13] << 8), height = d[14] | (d[15] << 8), bpp = d[16];
  if (width == 0 || height == 0) return false;
  if (!(bpp == 8 || bpp == 15 || bpp == 16 || bpp == 24 || bpp == 32)) return false;
  if ((type == 1 || type == 9) && cmap_type != 1) return false;
  if (cmap_type == 1) {
    const int entry_bits = d[7];
    if (!(entry_bits == 15 || entry_bits == 16 || entry_bits == 24 || entry_bits == 32))
      return false;
  }
  return (d[17] & 0xC0) == 0;
}

constexpr uint32_t kAllLayouts = LayoutBit(F::ie1g) | LayoutBit(F::ie8g) | LayoutBit(F::ie8p) |
                                 LayoutBit(F::ie16g) | LayoutBit(F::ie24RGB) |
                                 LayoutBit(F::ie48RGB) | LayoutBit(F::ieCMYK);
constexpr uint32_t k8BitLayouts =
    LayoutBit(F::ie1g) | LayoutBit(F::ie8g) | LayoutBit(F::ie8p) | LayoutBit(F::ie24RGB);
constexpr uint32_t kJp2Layouts =
    LayoutBit(F::ie8g) | LayoutBit(F::ie16g) | LayoutBit(F::ie24RGB) | LayoutBit(F::ie48RGB);

using Ext = std::string_view;
constexpr Ext kJpegExt[] = {"jpg", "jpeg", "jpe", "jfif"};
constexpr Ext kPngExt[] = {"png"};
constexpr Ext kTiffExt[] = {"tif", "tiff"};
constexpr Ext kGifExt[] = {"gif"};
constexpr Ext kBmpExt[] = {"bmp", "dib"};
constexpr Ext kWebpExt[] = {"webp"};
constexpr Ext kJp2Ext[] = {"jp2", "jpx"};
constexpr Ext kJ2kExt[] = {"j2k", "j2c", "jpc"};
constexpr Ext kQoiExt[] = {"qoi"};
constexpr Ext kPsdExt[] = {"psd"};
constexpr Ext kPdfExt[] = {"pdf"};
constexpr Ext kIcoExt[] = {"ico"};
constexpr Ext kCurExt[] = {"cur"};
constexpr Ext kPbmExt[] = {"pbm"};
constexpr Ext kPgmExt[] = {"pgm"};
constexpr Ext kPpmExt[] = {"ppm", "pnm"};
constexpr Ext kPamExt[] = {"pam"};
constexpr Ext kPcxExt[] = {"pcx"};
constexpr Ext kAvifExt[] = {"avif"};
constexpr Ext kHeifExt[] = {"heic", "heif", "hif"};
constexpr Ext kTgaExt[] = {"tga"};

using T = TIOFileType;
namespace p = probes;

// The order is the sniffer's: formats with a signature first; PCX (one byte of signature) only
// after them, and TGA, which has none, last of all.
constexpr CodecRow kRows[] = {
    // type, name, extensions, magic, probe, decode, encode, layouts, alpha, metadata,
    // alpha_rgb_only
    {T::ioJPEG, "JPEG", kJpegExt, IsJPEG, p::JPEG, codecs::DecodeJPEG, codecs::EncodeJPEG,
     LayoutBit(F::ie8g) | LayoutBit(F::ie24RGB) | LayoutBit(F::ieCMYK), false, true, false},
    {T::ioPNG, "PNG", kPngExt, IsPNG, p::PNG, codecs::DecodePNG, codecs::EncodePNG,
     kAllLayouts & ~LayoutBit(F::ieCMYK), true, true, false, /*exif_by_exiv2=*/true},
    {T::ioTIFF, "TIFF", kTiffExt, IsTIFF, p::TIFF, codecs::DecodeTIFF, codecs::EncodeTIFF,
     kAllLayouts, true, true, false},
    {T::ioGIF, "GIF", kGifExt, IsGIF, p::GIF, codecs::DecodeGIF, codecs::EncodeGIF, k8BitLayouts,
     true, false, false},
    {T::ioBMP, "BMP", kBmpExt, IsBMP, p::BMP, codecs::DecodeBMP, codecs::EncodeBMP, k8BitLayouts,
     true, false, true},
    {T::ioWEBP, "WebP", kWebpExt, IsWEBP, p::WebP, codecs::DecodeWEBP, codecs::EncodeWEBP,
     LayoutBit(F::ie24RGB), true, true, false},
    {T::ioJP2, "JPEG 2000 (JP2)", kJp2Ext, IsJP2, p::JP2, codecs::DecodeJP2, codecs::EncodeJP2,
     kJp2Layouts, true, false, false},
    {T::ioJ2K, "JPEG 2000 code stream", kJ2kExt, IsJ2K, p::J2K, codecs::DecodeJP2,
     codecs::EncodeJ2K, kJp2Layouts, true, false, false},
    {T::ioQOI, "QOI", kQoiExt, IsQOI, p::ByDecoder, codecs::DecodeQOI, codecs::EncodeQOI,
     LayoutBit(F::ie24RGB), true, false, false},
    {T::ioPSD, "PSD", kPsdExt, IsPSD, p::PSD, codecs::DecodePSD, nullptr, 0, false, false, false},
    // Written through the PDF writer, never through a codec; no header to probe.
    {T::ioPDF, "PDF", kPdfExt, IsPDF, nullptr, nullptr, nullptr, 0, false, false, false},
    // Rasterised by ImportMetafile, not loaded.
    {T::ioWMF, "WMF", {}, IsWMF, nullptr, nullptr, nullptr, 0, false, false, false},
    {T::ioEMF, "EMF", {}, IsEMF, nullptr, nullptr, nullptr, 0, false, false, false},
    {T::ioICO, "ICO", kIcoExt, IsICO, p::ByDecoder, codecs::DecodeICO, codecs::EncodeICO,
     LayoutBit(F::ie24RGB), true, false, false},
    {T::ioCUR, "CUR", kCurExt, IsCUR, p::ByDecoder, codecs::DecodeICO, codecs::EncodeICO,
     LayoutBit(F::ie24RGB), true, false, false},
    {T::ioPBM, "PBM", kPbmExt, IsPBM, p::ByDecoder, codecs::DecodePNM, codecs::EncodePBM,
     LayoutBit(F::ie1g), false, false, false},
    {T::ioPGM, "PGM", kPgmExt, IsPGM, p::ByDecoder, codecs::DecodePNM, codecs::EncodePGM,
     LayoutBit(F::ie8g) | LayoutBit(F::ie16g), false, false, false},
    {T::ioPPM, "PPM", kPpmExt, IsPPM, p::ByDecoder, codecs::DecodePNM, codecs::EncodePPM,
     LayoutBit(F::ie24RGB) | LayoutBit(F::ie48RGB), false, false, false},
    {T::ioPAM, "PAM", kPamExt, IsPAM, p::ByDecoder, codecs::DecodePNM, codecs::EncodePAM,
     LayoutBit(F::ie1g) | LayoutBit(F::ie8g) | LayoutBit(F::ie16g) | LayoutBit(F::ie24RGB) |
         LayoutBit(F::ie48RGB),
     true, false, false},
    {T::ioPCX, "PCX", kPcxExt, IsPCX, p::ByDecoder, codecs::DecodePCX, codecs::EncodePCX,
     k8BitLayouts, false, false, false},
    // Read through tools only (see the read stage's routes), probed here for naming. Before the
    // HEIF row: an AVIF file often lists "mif1" among its brands too.
    {T::ioUnknown, "AVIF", kAvifExt, IsAVIF, p::IsoBmff, nullptr, nullptr, 0, false, false, false},
    {T::ioUnknown, "HEIF", kHeifExt, IsHEIF, p::IsoBmff, nullptr, nullptr, 0, false, false, false},
    // Last: a header that merely looks plausible.
    {T::ioTGA, "TGA", kTgaExt, IsTGA, p::TGA, codecs::DecodeTGA, codecs::EncodeTGA,
     LayoutBit(F::ie8g) | LayoutBit(F::ie8p) | LayoutBit(F::ie24RGB), true, false, true},
};

}  // namespace

std::span<const CodecRow> CodecRows() {
  return kRows;
}

const CodecRow* RowForType(TIOFileType type) {
  if (type == TIOFileType::ioUnknown) return nullptr;
  for (const CodecRow& row : kRows)
    if (row.type == type) return &row;
  return nullptr;
}

const CodecRow* RowForBytes(const uint8_t* data, size_t size) {
  for (const CodecRow& row : kRows)
    if (row.magic(data, size)) return &row;
  return nullptr;
}

const CodecRow* RowForExtension(std::string_view path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of("/\\");
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
    return nullptr;
  const std::string ext = platform::AsciiLower(std::string(path.substr(dot + 1)));
  for (const CodecRow& row : kRows)
    for (std::string_view e : row.extensions)
      if (e == ext) return &row;
  return nullptr;
}

std::optional<HeaderFacts> ProbeHeader(const uint8_t* data, size_t size, bool with_date) {
  const CodecRow* row = RowForBytes(data, size);
  HeaderFacts facts;
  if (!row || !row->probe || !row->probe(*row, data, size, facts)) return std::nullopt;
  if (with_date && facts.date_time.empty() && row->exif_by_exiv2) {
    TIOParamsVals params;
    metadata::ReadMetadata(data, size, params);
    if (!params.EXIF_Raw.empty()) {
      if (auto date = TiffExifDateTime(params.EXIF_Raw.data(), params.EXIF_Raw.size()))
        facts.date_time = *date;
    }
    if (facts.orientation == 0) facts.orientation = params.EXIF_Orientation;
  }
  return facts;
}

std::optional<HeaderFacts> ProbeHeaderFile(const std::string& path, bool with_date) {
  platform::MappedFile file;
  if (!file.Open(path, false)) return std::nullopt;
  std::optional<HeaderFacts> facts = ProbeHeader(file.data(), file.size(), with_date);
  return file.CutShort() ? std::nullopt : facts;
}

std::optional<std::string> ReadTiffTagFile(const std::string& path, int tag) {
  platform::MappedFile file;
  if (!file.Open(path, false) || !IsTIFF(file.data(), file.size())) return std::nullopt;
  std::optional<std::string> text = TiffTagText(file.data(), file.size(), tag);
  return file.CutShort() ? std::nullopt : text;
}

}  // namespace pictavo::imaging
