// Rasters: the imaging engine's header read, a look at the file's end for the formats whose end
// is marked, and the decode behind RasterIsUniform.
#include <cstdlib>
#include <cstring>
#include <iterator>

#include "imaging/format_sniff.h"
#include "imaging/ie_io.h"
#include "platform/bytes.h"
#include "verify/readers.h"

namespace pictavo::verify {

namespace {

using imaging::TIOFileType;

// Formats that differ only in how many channels they hold, or in their container.
TIOFileType Family(TIOFileType type) {
  switch (type) {
    case TIOFileType::ioPBM:
    case TIOFileType::ioPGM:
    case TIOFileType::ioPAM:
      return TIOFileType::ioPPM;
    case TIOFileType::ioJ2K:
      return TIOFileType::ioJP2;
    case TIOFileType::ioCUR:
      return TIOFileType::ioICO;
    default:
      return type;
  }
}

// TIFF: every page's directory, the values it points to, and its strips or tiles must lie inside
// the file. The directories are small and the pixels are not touched, so this stays a header read.
std::string TiffCutShortReason(std::string_view d) {
  const bool big_endian = d.substr(0, 2) == "MM";
  const auto u = [&](size_t at, int bytes) -> uint64_t {
    uint64_t v = 0;
    for (int i = 0; i < bytes; ++i) {
      const uint64_t b = static_cast<unsigned char>(d[at + i]);
      v |= big_endian ? b << (8 * (bytes - 1 - i)) : b << (8 * i);
    }
    return v;
  };
  if (d.size() < 16) return "the TIFF header is incomplete";
  const bool big_tiff = u(2, 2) == 43;
  const int offset_size = big_tiff ? 8 : 4, count_size = big_tiff ? 8 : 2;
  const int entry_size = big_tiff ? 20 : 12;
  constexpr int kTypeSize[] = {0, 1, 1, 2, 4, 8, 1, 1, 2, 4, 8, 4, 8, 4, 0, 0, 8, 8, 8};
  uint64_t ifd = u(big_tiff ? 8 : 4, offset_size);
  for (int page = 0; ifd != 0 && page < 100000; ++page) {
    if (ifd > d.size() - count_size) return "a page directory lies past the end of the TIFF";
    const uint64_t entries = u(ifd, count_size);
    const uint64_t end = ifd + count_size + entries * entry_size + offset_size;
    if (entries > 65535 || end > d.size()) return "a page directory runs past the end of the TIFF";
    // Strip or tile offsets and byte counts, read as arrays of `type`.
    struct Array {
      uint64_t count = 0, at = 0;
      int size = 0;
    } offsets, counts;
    for (uint64_t e = 0; e < entries; ++e) {
      const size_t at = ifd + count_size + e * entry_size;
      const uint64_t tag = u(at, 2), type = u(at + 2, 2), n = u(at + 4, offset_size);
      const int size = type < std::size(kTypeSize) ? kTypeSize[type] : 0;
      if (size == 0 || n > d.size()) continue;  // unknown types are skipped, as readers do
      const size_t value_at = at + 4 + offset_size;
      const uint64_t value =
          n * size <= static_cast<uint64_t>(offset_size) ? value_at : u(value_at, offset_size);
      if (value + n * size > d.size()) return "a page's values run past the end of the TIFF";
      if (tag == 273 || tag == 324) offsets = {n, value, size};
      if (tag == 279 || tag == 325) counts = {n, value, size};
    }
    if (offsets.count != counts.count) return "";  // not ours to judge
    for (uint64_t i = 0; i < offsets.count; ++i) {
      const uint64_t o = u(offsets.at + i * offsets.size, offsets.size);
      const uint64_t n = u(counts.at + i * counts.size, counts.size);
      if (o > d.size() || n > d.size() - o) return "a page's pixel data runs past the end";
    }
    ifd = u(end - offset_size, offset_size);
  }
  return "";
}

// Why a file of `type` whose header read well is not whole, or "" when nothing says so. Only
// markers and sizes that the format fixes are looked at; a few trailing bytes are allowed.
std::string CutShortReason(TIOFileType type, std::string_view d) {
  const std::string_view tail = d.substr(d.size() > 64 ? d.size() - 64 : 0);
  switch (type) {
    case TIOFileType::ioPNG:
      return tail.find("IEND") == std::string_view::npos ? "no IEND chunk at the end of the PNG"
                                                         : "";
    case TIOFileType::ioJPEG:
    case TIOFileType::ioJ2K:  // both end with the EOI/EOC marker FF D9
      return tail.find("\xFF\xD9") == std::string_view::npos ? "no end-of-image marker" : "";
    case TIOFileType::ioGIF: {
      // The trailer byte, possibly padded with zeros; a ';' elsewhere in the tail is image data.
      const size_t last = d.find_last_not_of('\0');
      return last == std::string_view::npos || d[last] != ';' ? "no GIF trailer" : "";
    }
    case TIOFileType::ioWEBP:
      return d.size() >= 8 && uint64_t{platform::LoadLe32(d, 4)} + 8 > d.size()
                 ? "the RIFF size is larger than the file"
                 : "";
    case TIOFileType::ioBMP: {
      // Uncompressed rows (BI_RGB, BI_BITFIELDS) have a size fixed by the header.
      if (d.size() < 34 || platform::LoadLe32(d, 14) < 40) return "";
      const uint32_t offset = platform::LoadLe32(d, 10), compression = platform::LoadLe32(d, 30);
      const int64_t width = static_cast<int32_t>(platform::LoadLe32(d, 18));
      const int64_t height = std::llabs(static_cast<int32_t>(platform::LoadLe32(d, 22)));
      const int bits = platform::LoadLe16(d, 28);
      if ((compression != 0 && compression != 3) || width <= 0 || bits == 0) return "";
      const uint64_t row = (static_cast<uint64_t>(width) * bits + 31) / 32 * 4;
      return offset + row * static_cast<uint64_t>(height) > d.size()
                 ? "the pixel rows run past the end of the BMP"
                 : "";
    }
    case TIOFileType::ioTIFF:
      return TiffCutShortReason(d);
    default:
      return "";
  }
}

}  // namespace

void ReadRaster(const Source& src, Content& out) {
  out.known = true;
  imaging::TIEBitmap bitmap;
  imaging::TImageEnIO io(&bitmap);
  if (Status s = io.HeaderFromFile(src.file); !s.ok()) {
    out.opened = s;
    return;
  }
  const imaging::TIOParamsVals& p = io.Params();
  const TIOFileType named = imaging::FileTypeFromExtension("." + src.ext);
  if (named != TIOFileType::ioUnknown && Family(named) != Family(p.FileType))
    return Refuse(out, std::string("holds a ") + imaging::FileTypeName(p.FileType) +
                           " picture, not " + imaging::FileTypeName(named));
  platform::MappedFile map;
  std::string_view d;
  if (!MapFile(src.file, map, d, out)) return;
  if (const std::string why = CutShortReason(p.FileType, d); !why.empty())
    return Refuse(out, "cut short: " + why);
  CheckNotShrunk(map, out);
  if (!out.opened.ok()) return;
  out.width = p.Width;
  out.height = p.Height;
  out.pages = p.ImageCount;
}

namespace {

// Compares every pixel with the first, `channels` samples of `T` a pixel, row by row.
template <typename T>
bool SamplesUniform(const imaging::TIEBitmap& bmp, int channels, int tolerance) {
  const T* first = reinterpret_cast<const T*>(bmp.Scanline(0));
  for (int y = 0; y < bmp.Height(); ++y) {
    const T* row = reinterpret_cast<const T*>(bmp.Scanline(y));
    for (int x = 0; x < bmp.Width(); ++x)
      for (int c = 0; c < channels; ++c)
        if (std::abs(static_cast<int>(row[x * channels + c]) - static_cast<int>(first[c])) >
            tolerance)
          return false;
  }
  return true;
}

bool ColoursUniform(const imaging::TIEBitmap& bmp, int tolerance) {
  using imaging::TIEPixelFormat;
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie8g:
      return SamplesUniform<uint8_t>(bmp, 1, tolerance);
    case TIEPixelFormat::ie24RGB:
      return SamplesUniform<uint8_t>(bmp, 3, tolerance);
    case TIEPixelFormat::ieCMYK:
      return SamplesUniform<uint8_t>(bmp, 4, tolerance);
    case TIEPixelFormat::ie16g:
      return SamplesUniform<uint16_t>(bmp, 1, tolerance * 257);
    case TIEPixelFormat::ie48RGB:
      return SamplesUniform<uint16_t>(bmp, 3, tolerance * 257);
    case TIEPixelFormat::ie1g: {
      const bool ink = bmp.GetPixels_ie1g(0, 0);
      for (int y = 0; y < bmp.Height(); ++y)
        for (int x = 0; x < bmp.Width(); ++x)
          if (bmp.GetPixels_ie1g(x, y) != ink) return false;
      return true;
    }
    default: {  // palette: the colours the indices stand for
      const imaging::TRGB first = bmp.GetPixels(0, 0);
      for (int y = 0; y < bmp.Height(); ++y)
        for (int x = 0; x < bmp.Width(); ++x) {
          const imaging::TRGB c = bmp.GetPixels(x, y);
          if (std::abs(c.r - first.r) > tolerance || std::abs(c.g - first.g) > tolerance ||
              std::abs(c.b - first.b) > tolerance)
            return false;
        }
      return true;
    }
  }
}

}  // namespace

bool RasterIsUniform(const std::string& file, int tolerance) {
  try {
    imaging::TIEBitmap bmp;
    imaging::TImageEnIO io(&bmp);
    if (!io.LoadFromFile(file).ok() || bmp.IsEmpty()) return false;
    if (bmp.HasAlphaChannel()) {
      const int first = bmp.AlphaScanline(0)[0];
      for (int y = 0; y < bmp.Height(); ++y) {
        const uint8_t* a = bmp.AlphaScanline(y);
        for (int x = 0; x < bmp.Width(); ++x)
          if (std::abs(a[x] - first) > tolerance) return false;
      }
      if (first <= tolerance) return true;  // all transparent: nothing shows
    }
    return ColoursUniform(bmp, tolerance);
  } catch (...) {
    return false;
  }
}

}  // namespace pictavo::verify
