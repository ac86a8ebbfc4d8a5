#include "imaging/tiff_ifd.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

#include "platform/bytes.h"

namespace pictavo::imaging {
namespace {

constexpr uint16_t kExifIfdTag = 0x8769;
constexpr uint16_t kDateTimeTag = 0x0132;
constexpr uint16_t kDateTimeOriginalTag = 0x9003;
constexpr uint16_t kOrientationTag = 0x0112;

class IfdReader {
 public:
  struct Entry {
    uint16_t tag = 0, type = 0;
    uint32_t count = 0;
    uint64_t value_at = 0;  // offset of the value bytes from the start of the structure
  };

  IfdReader(const uint8_t* data, size_t size) : d_(data), n_(size) {}

  bool Open() {
    if (n_ < 8) return false;
    if (std::memcmp(d_, "II*\0", 4) == 0)
      little_ = true;
    else if (std::memcmp(d_, "MM\0*", 4) == 0)
      little_ = false;
    else
      return false;
    first_ifd_ = U32(4);
    return true;
  }

  uint32_t first_ifd() const { return first_ifd_; }

  std::optional<Entry> Find(uint32_t ifd, uint16_t tag) const {
    if (ifd == 0 || !Has(ifd, 2)) return std::nullopt;
    const uint32_t count = U16(ifd);
    if (count == 0 || count > 4096 || !Has(uint64_t{ifd} + 2, uint64_t{count} * 12))
      return std::nullopt;
    for (uint32_t i = 0; i < count; ++i) {
      const uint64_t at = uint64_t{ifd} + 2 + uint64_t{i} * 12;
      if (U16(at) != tag) continue;
      Entry e;
      e.tag = tag;
      e.type = U16(at + 2);
      e.count = U32(at + 4);
      const uint64_t bytes = uint64_t{TypeSize(e.type)} * e.count;
      e.value_at = bytes <= 4 ? at + 8 : U32(at + 8);
      return e;
    }
    return std::nullopt;
  }

  // The first value of a numeric entry.
  std::optional<uint32_t> Number(const Entry& e) const {
    if (e.count == 0 || !Has(e.value_at, TypeSize(e.type))) return std::nullopt;
    switch (e.type) {
      case 1:
      case 7:
        return d_[e.value_at];
      case 3:
        return U16(e.value_at);
      case 4:
        return U32(e.value_at);
      default:
        return std::nullopt;
    }
  }

  std::optional<std::string> Text(const Entry& e) const {
    constexpr uint32_t kMaxValues = 256;
    const uint32_t size = TypeSize(e.type);
    if (size == 0 || e.count == 0) return std::nullopt;
    if (e.type == 2) {
      const size_t n = std::min<uint32_t>(e.count, 65536);
      if (!Has(e.value_at, n)) return std::nullopt;
      std::string b(reinterpret_cast<const char*>(d_ + e.value_at), n);
      b = b.substr(0, b.find('\0'));
      while (!b.empty() && b.back() == ' ') b.pop_back();
      return b;
    }
    const uint32_t n = std::min(e.count, kMaxValues);
    if (!Has(e.value_at, uint64_t{n} * size)) return std::nullopt;
    std::string out;
    for (uint32_t i = 0; i < n; ++i) {
      if (i) out += ' ';
      if (!AppendValue(e.type, e.value_at + uint64_t{i} * size, out)) return std::nullopt;
    }
    return out;
  }

 private:
  bool AppendValue(uint16_t type, uint64_t at, std::string& out) const {
    char buf[64];
    switch (type) {
      case 1:
      case 7:
        out += std::to_string(d_[at]);
        return true;
      case 6:
        out += std::to_string(static_cast<int8_t>(d_[at]));
        return true;
      case 3:
        out += std::to_string(U16(at));
        return true;
      case 8:
        out += std::to_string(static_cast<int16_t>(U16(at)));
        return true;
      case 4:
        out += std::to_string(U32(at));
        return true;
      case 9:
        out += std::to_string(static_cast<int32_t>(U32(at)));
        return true;
      case 5:
      case 10: {
        const uint32_t num = U32(at), den = U32(at + 4);
        const bool sign = type == 10;
        const std::string n_text =
            sign ? std::to_string(static_cast<int32_t>(num)) : std::to_string(num);
        const std::string d_text =
            sign ? std::to_string(static_cast<int32_t>(den)) : std::to_string(den);
        out += den == 1 ? n_text : n_text + "/" + d_text;
        return true;
      }
      case 11: {
        const uint32_t bits = U32(at);
        float f;
        std::memcpy(&f, &bits, sizeof f);
        std::snprintf(buf, sizeof buf, "%g", static_cast<double>(f));
        out += buf;
        return true;
      }
      case 12: {
        const uint64_t bits =
            (uint64_t{U32(at + (little_ ? 4 : 0))} << 32) | U32(at + (little_ ? 0 : 4));
        double v;
        std::memcpy(&v, &bits, sizeof v);
        std::snprintf(buf, sizeof buf, "%g", v);
        out += buf;
        return true;
      }
      default:
        return false;
    }
  }

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
  bool Has(uint64_t at, uint64_t count) const { return at <= n_ && count <= n_ - at; }
  uint16_t U16(uint64_t at) const {
    return little_ ? platform::LoadLe16(d_ + at) : platform::LoadBe16(d_ + at);
  }
  uint32_t U32(uint64_t at) const {
    return little_ ? platform::LoadLe32(d_ + at) : platform::LoadBe32(d_ + at);
  }

  const uint8_t* d_;
  size_t n_;
  bool little_ = true;
  uint32_t first_ifd_ = 0;
};

std::optional<uint32_t> ExifIfd(const IfdReader& tiff) {
  if (auto exif = tiff.Find(tiff.first_ifd(), kExifIfdTag)) return tiff.Number(*exif);
  return std::nullopt;
}

}  // namespace

std::optional<std::string> TiffTagText(const uint8_t* data, size_t size, int tag) {
  if (tag < 0 || tag > 0xFFFF) return std::nullopt;
  IfdReader tiff(data, size);
  if (!tiff.Open()) return std::nullopt;
  if (auto e = tiff.Find(tiff.first_ifd(), static_cast<uint16_t>(tag))) return tiff.Text(*e);
  if (auto exif = ExifIfd(tiff))
    if (auto e = tiff.Find(*exif, static_cast<uint16_t>(tag))) return tiff.Text(*e);
  return std::nullopt;
}

std::optional<std::string> TiffExifDateTime(const uint8_t* data, size_t size) {
  IfdReader tiff(data, size);
  if (!tiff.Open()) return std::nullopt;
  std::optional<std::string> text;
  if (auto exif = ExifIfd(tiff))
    if (auto e = tiff.Find(*exif, kDateTimeOriginalTag)) text = tiff.Text(*e);
  if (!text || text->empty())
    if (auto e = tiff.Find(tiff.first_ifd(), kDateTimeTag)) text = tiff.Text(*e);
  if (!text || text->empty()) return std::nullopt;
  return text;
}

int TiffOrientation(const uint8_t* data, size_t size) {
  IfdReader tiff(data, size);
  if (!tiff.Open()) return 0;
  const auto e = tiff.Find(tiff.first_ifd(), kOrientationTag);
  const std::optional<uint32_t> v = e ? tiff.Number(*e) : std::nullopt;
  return v && *v >= 1 && *v <= 8 ? static_cast<int>(*v) : 0;
}

bool TiffSize(const uint8_t* data, size_t size, int& width, int& height) {
  IfdReader tiff(data, size);
  if (!tiff.Open()) return false;
  const auto w = tiff.Find(tiff.first_ifd(), 256);
  const auto h = tiff.Find(tiff.first_ifd(), 257);
  if (!w || !h) return false;
  const auto wv = tiff.Number(*w), hv = tiff.Number(*h);
  if (!wv || !hv) return false;
  width = static_cast<int>(*wv);
  height = static_cast<int>(*hv);
  return true;
}

}  // namespace pictavo::imaging
