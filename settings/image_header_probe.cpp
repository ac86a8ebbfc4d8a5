#include "settings/image_header_probe.h"

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <vector>

namespace pictavo::settings {
namespace {

// Reads byte ranges of a file, refusing any range outside it.
class ByteSource {
 public:
  explicit ByteSource(const std::string& path) : in_(path, std::ios::binary) {
    if (in_) {
      in_.seekg(0, std::ios::end);
      size_ = static_cast<uint64_t>(in_.tellg());
    }
  }
  bool ok() const { return static_cast<bool>(in_); }
  uint64_t size() const { return size_; }

  bool Read(uint64_t offset, size_t count, std::string& out) {
    if (offset > size_ || count > size_ - offset) return false;
    out.resize(count);
    in_.clear();
    in_.seekg(static_cast<std::streamoff>(offset));
    in_.read(out.data(), static_cast<std::streamsize>(count));
    return static_cast<size_t>(in_.gcount()) == count;
  }

 private:
  std::ifstream in_;
  uint64_t size_ = 0;
};

uint32_t Be16(const std::string& b, size_t at) {
  return (static_cast<uint8_t>(b[at]) << 8) | static_cast<uint8_t>(b[at + 1]);
}
uint32_t Be32(const std::string& b, size_t at) {
  return (Be16(b, at) << 16) | Be16(b, at + 2);
}
uint32_t Le16(const std::string& b, size_t at) {
  return static_cast<uint8_t>(b[at]) | (static_cast<uint8_t>(b[at + 1]) << 8);
}
uint32_t Le32(const std::string& b, size_t at) {
  return Le16(b, at) | (Le16(b, at + 2) << 16);
}

// A TIFF structure inside a file: a standalone TIFF, or the EXIF block of a JPEG.
class TiffReader {
 public:
  struct Entry {
    uint16_t tag = 0, type = 0;
    uint32_t count = 0;
    uint64_t value_at = 0;  // file offset of the value bytes
  };

  TiffReader(ByteSource& src, uint64_t base) : src_(src), base_(base) {}

  bool Open() {
    std::string h;
    if (!src_.Read(base_, 8, h)) return false;
    if (h.compare(0, 4, "II*\0", 4) == 0)
      little_ = true;
    else if (h.compare(0, 4, "MM\0*", 4) == 0)
      little_ = false;
    else
      return false;
    first_ifd_ = U32(h, 4);
    return true;
  }

  uint32_t first_ifd() const { return first_ifd_; }

  std::vector<Entry> Directory(uint32_t offset) {
    std::vector<Entry> entries;
    std::string b;
    if (offset == 0 || !src_.Read(base_ + offset, 2, b)) return entries;
    const uint32_t n = U16(b, 0);
    if (n == 0 || n > 4096 || !src_.Read(base_ + offset + 2, size_t{n} * 12, b)) return entries;
    for (uint32_t i = 0; i < n; ++i) {
      const size_t at = size_t{i} * 12;
      Entry e;
      e.tag = static_cast<uint16_t>(U16(b, at));
      e.type = static_cast<uint16_t>(U16(b, at + 2));
      e.count = U32(b, at + 4);
      const uint64_t bytes = uint64_t{TypeSize(e.type)} * e.count;
      e.value_at = bytes <= 4 ? base_ + offset + 2 + at + 8 : base_ + U32(b, at + 8);
      entries.push_back(e);
    }
    return entries;
  }

  std::optional<Entry> Find(uint32_t ifd, uint16_t tag) {
    for (const Entry& e : Directory(ifd))
      if (e.tag == tag) return e;
    return std::nullopt;
  }

  // The first value of a numeric entry.
  std::optional<uint32_t> Number(const Entry& e) {
    std::string b;
    if (e.count == 0) return std::nullopt;
    switch (e.type) {
      case 1:
      case 7:
        if (!src_.Read(e.value_at, 1, b)) return std::nullopt;
        return static_cast<uint8_t>(b[0]);
      case 3:
        if (!src_.Read(e.value_at, 2, b)) return std::nullopt;
        return U16(b, 0);
      case 4:
        if (!src_.Read(e.value_at, 4, b)) return std::nullopt;
        return U32(b, 0);
      default:
        return std::nullopt;
    }
  }

  std::optional<std::string> Text(const Entry& e) {
    constexpr uint32_t kMaxValues = 256;
    const uint32_t size = TypeSize(e.type);
    if (size == 0 || e.count == 0) return std::nullopt;
    if (e.type == 2) {
      std::string b;
      const size_t n = std::min<uint32_t>(e.count, 65536);
      if (!src_.Read(e.value_at, n, b)) return std::nullopt;
      b = b.substr(0, b.find('\0'));
      while (!b.empty() && b.back() == ' ') b.pop_back();
      return b;
    }
    const uint32_t n = std::min(e.count, kMaxValues);
    std::string b;
    if (!src_.Read(e.value_at, size_t{n} * size, b)) return std::nullopt;
    std::string out;
    for (uint32_t i = 0; i < n; ++i) {
      if (i) out += ' ';
      const size_t at = size_t{i} * size;
      char buf[64];
      switch (e.type) {
        case 1:
        case 7:
          out += std::to_string(static_cast<uint8_t>(b[at]));
          break;
        case 6:
          out += std::to_string(static_cast<int8_t>(b[at]));
          break;
        case 3:
          out += std::to_string(U16(b, at));
          break;
        case 8:
          out += std::to_string(static_cast<int16_t>(U16(b, at)));
          break;
        case 4:
          out += std::to_string(U32(b, at));
          break;
        case 9:
          out += std::to_string(static_cast<int32_t>(U32(b, at)));
          break;
        case 5:
        case 10: {
          const uint32_t num = U32(b, at), den = U32(b, at + 4);
          const bool sign = e.type == 10;
          std::string n_text =
              sign ? std::to_string(static_cast<int32_t>(num)) : std::to_string(num);
          std::string d_text =
              sign ? std::to_string(static_cast<int32_t>(den)) : std::to_string(den);
          out += den == 1 ? n_text : n_text + "/" + d_text;
          break;
        }
        case 11: {
          uint32_t bits = U32(b, at);
          float f;
          std::memcpy(&f, &bits, sizeof f);
          std::snprintf(buf, sizeof buf, "%g", static_cast<double>(f));
          out += buf;
          break;
        }
        case 12: {
          uint64_t bits =
              (uint64_t{U32(b, at + (little_ ? 4 : 0))} << 32) | U32(b, at + (little_ ? 0 : 4));
          double d;
          std::memcpy(&d, &bits, sizeof d);
          std::snprintf(buf, sizeof buf, "%g", d);
          out += buf;
          break;
        }
        default:
          return std::nullopt;
      }
    }
    return out;
  }

 private:
  static uint32_t TypeSize(uint16_t type) {
    switch (type) {
      case 1:
      case 2:
      case 6:
      case 7:
        return 1;
      case 3:
      case 8:
        return 2;
      case 4:
      case 9:
      case 11:
        return 4;
      case 5:
      case 10:
      case 12:
        return 8;
      default:
        return 0;
    }
  }
  uint32_t U16(const std::string& b, size_t at) const {
    return little_ ? Le16(b, at) : Be16(b, at);
  }
  uint32_t U32(const std::string& b, size_t at) const {
    return little_ ? Le32(b, at) : Be32(b, at);
  }

  ByteSource& src_;
  uint64_t base_;
  bool little_ = true;
  uint32_t first_ifd_ = 0;
};

constexpr uint16_t kExifIfdTag = 0x8769;
constexpr uint16_t kDateTimeTag = 0x0132;
constexpr uint16_t kDateTimeOriginalTag = 0x9003;

// Where the TIFF structure of a JPEG's EXIF block starts (0 when none), and the frame size.
struct JpegInfo {
  uint64_t exif_base = 0;
  std::optional<ImageSize> size;
};

JpegInfo ScanJpeg(ByteSource& src) {
  JpegInfo info;
  std::string b;
  if (!src.Read(0, 2, b) || b != "\xFF\xD8") return info;
  uint64_t pos = 2;
  while (src.Read(pos, 4, b)) {
    if (static_cast<uint8_t>(b[0]) != 0xFF) break;
    const uint8_t marker = static_cast<uint8_t>(b[1]);
    if (marker == 0xFF) {  // fill byte
      ++pos;
      continue;
    }
    if (marker == 0xD9 || marker == 0xDA) break;  // end of image, start of scan
    const uint32_t length = Be16(b, 2);
    if (length < 2) break;
    const uint64_t data = pos + 4;
    const bool sof =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (sof && !info.size && src.Read(data, 5, b))
      info.size = ImageSize{static_cast<int>(Be16(b, 3)), static_cast<int>(Be16(b, 1))};
    if (marker == 0xE1 && info.exif_base == 0 && length >= 14 && src.Read(data, 6, b) &&
        b.compare(0, 6, "Exif\0\0", 6) == 0)
      info.exif_base = data + 6;
    pos = data + length - 2;
  }
  return info;
}

std::optional<std::string> TiffTagAt(ByteSource& src, uint64_t base, uint16_t tag) {
  TiffReader tiff(src, base);
  if (!tiff.Open()) return std::nullopt;
  const uint32_t ifd0 = tiff.first_ifd();
  if (auto e = tiff.Find(ifd0, tag)) return tiff.Text(*e);
  if (auto exif = tiff.Find(ifd0, kExifIfdTag))
    if (auto exif_offset = tiff.Number(*exif))
      if (auto e = tiff.Find(*exif_offset, tag)) return tiff.Text(*e);
  return std::nullopt;
}

std::optional<std::string> ExifDateTimeAt(ByteSource& src, uint64_t base) {
  TiffReader tiff(src, base);
  if (!tiff.Open()) return std::nullopt;
  const uint32_t ifd0 = tiff.first_ifd();
  std::optional<std::string> text;
  if (auto exif = tiff.Find(ifd0, kExifIfdTag))
    if (auto exif_offset = tiff.Number(*exif))
      if (auto e = tiff.Find(*exif_offset, kDateTimeOriginalTag)) text = tiff.Text(*e);
  if (!text || text->empty())
    if (auto e = tiff.Find(ifd0, kDateTimeTag)) text = tiff.Text(*e);
  if (!text || text->empty()) return std::nullopt;
  for (char& c : *text)
    if (c == ':') c = '-';
  return text;
}

bool IsTiff(ByteSource& src) {
  std::string b;
  return src.Read(0, 4, b) && (b == std::string("II*\0", 4) || b == std::string("MM\0*", 4));
}

// The header probe in use; empty members mean the built-in reader.
ImageHeaderProbe& InstalledProbe() {
  static ImageHeaderProbe probe = BuiltInImageHeaderProbe();
  return probe;
}

}  // namespace

std::optional<ImageSize> ReadImageSize(const std::string& path) {
  ByteSource src(path);
  if (!src.ok()) return std::nullopt;
  std::string b;
  if (!src.Read(0, 4, b)) return std::nullopt;
  if (b == "\x89PNG") {
    if (!src.Read(0, 24, b) || b.compare(12, 4, "IHDR") != 0) return std::nullopt;
    return ImageSize{static_cast<int>(Be32(b, 16)), static_cast<int>(Be32(b, 20))};
  }
  if (b.compare(0, 2, "\xFF\xD8") == 0) return ScanJpeg(src).size;
  if (b == "GIF8") {
    if (!src.Read(0, 10, b)) return std::nullopt;
    return ImageSize{static_cast<int>(Le16(b, 6)), static_cast<int>(Le16(b, 8))};
  }
  if (b.compare(0, 2, "BM") == 0) {
    if (!src.Read(0, 26, b)) return std::nullopt;
    const auto w = static_cast<int32_t>(Le32(b, 18));
    const auto h = static_cast<int32_t>(Le32(b, 22));
    return ImageSize{w < 0 ? -w : w, h < 0 ? -h : h};  // bottom-up rows have a negative height
  }
  if (IsTiff(src)) {
    TiffReader tiff(src, 0);
    if (!tiff.Open()) return std::nullopt;
    auto w = tiff.Find(tiff.first_ifd(), 256);
    auto h = tiff.Find(tiff.first_ifd(), 257);
    if (!w || !h) return std::nullopt;
    auto wv = tiff.Number(*w), hv = tiff.Number(*h);
    if (!wv || !hv) return std::nullopt;
    return ImageSize{static_cast<int>(*wv), static_cast<int>(*hv)};
  }
  return std::nullopt;
}

std::optional<std::string> ReadTiffTag(const std::string& path, int tag) {
  if (tag < 0 || tag > 0xFFFF) return std::nullopt;
  ByteSource src(path);
  if (!src.ok() || !IsTiff(src)) return std::nullopt;
  return TiffTagAt(src, 0, static_cast<uint16_t>(tag));
}

std::optional<std::string> ReadExifDateTime(const std::string& path) {
  ByteSource src(path);
  if (!src.ok()) return std::nullopt;
  if (IsTiff(src)) return ExifDateTimeAt(src, 0);
  const JpegInfo jpeg = ScanJpeg(src);
  if (jpeg.exif_base == 0) return std::nullopt;
  return ExifDateTimeAt(src, jpeg.exif_base);
}

ImageHeaderProbe BuiltInImageHeaderProbe() {
  return ImageHeaderProbe{ReadImageSize, ReadTiffTag, ReadExifDateTime};
}

void SetImageHeaderProbe(ImageHeaderProbe probe) {
  ImageHeaderProbe builtin = BuiltInImageHeaderProbe();
  if (!probe.size) probe.size = builtin.size;
  if (!probe.tiff_tag) probe.tiff_tag = builtin.tiff_tag;
  if (!probe.exif_date_time) probe.exif_date_time = builtin.exif_date_time;
  InstalledProbe() = std::move(probe);
}

const ImageHeaderProbe& CurrentImageHeaderProbe() {
  return InstalledProbe();
}

}  // namespace pictavo::settings
