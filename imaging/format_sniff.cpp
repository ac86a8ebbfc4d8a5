#include "imaging/format_sniff.h"

#include <cstring>
#include <string>

#include "platform/text_encoding.h"

namespace pictavo::imaging {

namespace {

bool StartsWith(const uint8_t* d, size_t n, const char* magic, size_t len) {
  return n >= len && std::memcmp(d, magic, len) == 0;
}

// TGA has no signature: accept a header whose fields are all in range.
bool LooksLikeTGA(const uint8_t* d, size_t n) {
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

struct ExtRow {
  const char* ext;
  TIOFileType type;
};

constexpr ExtRow kExtensions[] = {
    {"jpg", TIOFileType::ioJPEG},  {"jpeg", TIOFileType::ioJPEG}, {"jpe", TIOFileType::ioJPEG},
    {"jfif", TIOFileType::ioJPEG}, {"png", TIOFileType::ioPNG},   {"tif", TIOFileType::ioTIFF},
    {"tiff", TIOFileType::ioTIFF}, {"gif", TIOFileType::ioGIF},   {"bmp", TIOFileType::ioBMP},
    {"dib", TIOFileType::ioBMP},   {"pcx", TIOFileType::ioPCX},   {"tga", TIOFileType::ioTGA},
    {"ico", TIOFileType::ioICO},   {"cur", TIOFileType::ioCUR},   {"pbm", TIOFileType::ioPBM},
    {"pgm", TIOFileType::ioPGM},   {"ppm", TIOFileType::ioPPM},   {"pnm", TIOFileType::ioPPM},
    {"pam", TIOFileType::ioPAM},   {"webp", TIOFileType::ioWEBP}, {"jp2", TIOFileType::ioJP2},
    {"jpx", TIOFileType::ioJP2},   {"j2k", TIOFileType::ioJ2K},   {"j2c", TIOFileType::ioJ2K},
    {"jpc", TIOFileType::ioJ2K},   {"qoi", TIOFileType::ioQOI},   {"psd", TIOFileType::ioPSD},
    {"pdf", TIOFileType::ioPDF},
};

}  // namespace

TIOFileType SniffFormat(const uint8_t* d, size_t n) {
  if (n >= 3 && d[0] == 0xFF && d[1] == 0xD8 && d[2] == 0xFF) return TIOFileType::ioJPEG;
  if (StartsWith(d, n, "\x89PNG\r\n\x1a\n", 8)) return TIOFileType::ioPNG;
  if (StartsWith(d, n, "II*\0", 4) || StartsWith(d, n, "MM\0*", 4) ||
      StartsWith(d, n, "II+\0", 4) || StartsWith(d, n, "MM\0+", 4))
    return TIOFileType::ioTIFF;
  if (StartsWith(d, n, "GIF87a", 6) || StartsWith(d, n, "GIF89a", 6)) return TIOFileType::ioGIF;
  if (StartsWith(d, n, "BM", 2) && n >= 18) return TIOFileType::ioBMP;
  if (n >= 12 && StartsWith(d, n, "RIFF", 4) && std::memcmp(d + 8, "WEBP", 4) == 0)
    return TIOFileType::ioWEBP;
  if (StartsWith(d, n, "\0\0\0\x0cjP  \r\n\x87\n", 12)) return TIOFileType::ioJP2;
  if (StartsWith(d, n, "\xff\x4f\xff\x51", 4)) return TIOFileType::ioJ2K;
  if (StartsWith(d, n, "qoif", 4)) return TIOFileType::ioQOI;
  if (StartsWith(d, n, "8BPS\0\1", 6)) return TIOFileType::ioPSD;
  if (StartsWith(d, n, "%PDF", 4)) return TIOFileType::ioPDF;
  if (StartsWith(d, n, "\xd7\xcd\xc6\x9a", 4)) return TIOFileType::ioWMF;  // placeable WMF
  if (n >= 44 && d[0] == 1 && d[1] == 0 && d[2] == 0 && d[3] == 0 &&
      std::memcmp(d + 40, " EMF", 4) == 0)
    return TIOFileType::ioEMF;
  if (n >= 6 && d[0] == 0 && d[1] == 0 && (d[2] == 1 || d[2] == 2) && d[3] == 0 &&
      (d[4] | d[5]) != 0)
    return d[2] == 1 ? TIOFileType::ioICO : TIOFileType::ioCUR;
  if (n >= 2 && d[0] == 'P') {
    switch (d[1]) {
      case '1':
      case '4':
        return TIOFileType::ioPBM;
      case '2':
      case '5':
        return TIOFileType::ioPGM;
      case '3':
      case '6':
        return TIOFileType::ioPPM;
      case '7':
        return TIOFileType::ioPAM;
      default:
        break;
    }
  }
  if (n >= 4 && d[0] == 0x0A && d[1] <= 5 && d[2] <= 1 &&
      (d[3] == 1 || d[3] == 2 || d[3] == 4 || d[3] == 8))
    return TIOFileType::ioPCX;
  if (LooksLikeTGA(d, n)) return TIOFileType::ioTGA;
  return TIOFileType::ioUnknown;
}

TIOFileType FileTypeFromExtension(std::string_view path) {
  const size_t dot = path.find_last_of('.');
  const size_t slash = path.find_last_of("/\\");
  if (dot == std::string_view::npos || (slash != std::string_view::npos && dot < slash))
    return TIOFileType::ioUnknown;
  const std::string ext = platform::AsciiLower(std::string(path.substr(dot + 1)));
  for (const ExtRow& row : kExtensions)
    if (ext == row.ext) return row.type;
  return TIOFileType::ioUnknown;
}

}  // namespace pictavo::imaging
