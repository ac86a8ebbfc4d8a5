#include "imaging/header_probes.h"

#include <cstdio>
#include <cstring>
#include <vector>

#include "imaging/tiff_ifd.h"
#include "platform/bytes.h"

namespace pictavo::imaging::probes {
namespace {

using platform::LoadBe16;
using platform::LoadBe32;
using platform::LoadLe16;
using platform::LoadLe32;

bool Has(size_t n, uint64_t at, uint64_t count) {
  return at <= n && count <= n - at;
}

// Date and orientation from an EXIF block: a TIFF structure, possibly behind "Exif\0\0".
void TakeExif(const uint8_t* d, size_t n, HeaderFacts& out) {
  if (n >= 6 && std::memcmp(d, "Exif\0\0", 6) == 0) d += 6, n -= 6;
  if (auto date = TiffExifDateTime(d, n)) out.date_time = *date;
  out.orientation = TiffOrientation(d, n);
}

bool SetSize(uint64_t width, uint64_t height, HeaderFacts& out) {
  if (width == 0 || height == 0 || width > INT32_MAX || height > INT32_MAX) return false;
  out.width = static_cast<int>(width);
  out.height = static_cast<int>(height);
  return true;
}

constexpr uint32_t FourCC(const char (&s)[5]) {
  return uint32_t(uint8_t(s[0])) << 24 | uint32_t(uint8_t(s[1])) << 16 |
         uint32_t(uint8_t(s[2])) << 8 | uint32_t(uint8_t(s[3]));
}

// One ISOBMFF / JP2 box: its type, where its body starts and where it ends.
struct Box {
  uint32_t type = 0;
  uint64_t body = 0;
  uint64_t end = 0;
};

// The box at `pos` within [pos, to); advances `pos` past it. False at the end or at damage.
bool NextBox(const uint8_t* d, uint64_t& pos, uint64_t to, Box& box) {
  if (pos > to || to - pos < 8) return false;
  uint64_t size = LoadBe32(d + pos), header = 8;
  box.type = LoadBe32(d + pos + 4);
  if (size == 1) {
    if (to - pos < 16) return false;
    size = uint64_t{LoadBe32(d + pos + 8)} << 32 | LoadBe32(d + pos + 12);
    header = 16;
  } else if (size == 0) {
    size = to - pos;  // the last box runs to the end
  }
  if (size < header || size > to - pos) return false;
  box.body = pos + header;
  box.end = pos + size;
  pos = box.end;
  return true;
}

// The first child of type `type` in [from, to).
std::optional<Box> FindBox(const uint8_t* d, uint64_t from, uint64_t to, uint32_t type) {
  Box b;
  while (NextBox(d, from, to, b))
    if (b.type == type) return b;
  return std::nullopt;
}

// A big-endian number of `bytes` bytes (0, 4 or 8), as iloc stores its fields.
bool ReadSized(const uint8_t* d, uint64_t& at, uint64_t end, unsigned bytes, uint64_t& value) {
  if (bytes != 0 && bytes != 4 && bytes != 8) return false;
  if (end < at || end - at < bytes) return false;
  value = bytes == 0   ? 0
          : bytes == 4 ? LoadBe32(d + at)
                       : uint64_t{LoadBe32(d + at)} << 32 | LoadBe32(d + at + 4);
  at += bytes;
  return true;
}

// The item id of the first 'Exif' item of an 'iinf' box, 0 when none.
uint32_t ExifItem(const uint8_t* d, const Box& iinf) {
  if (iinf.end - iinf.body < 6) return 0;
  const uint8_t version = d[iinf.body];
  uint64_t pos = iinf.body + 4 + (version == 0 ? 2 : 4);
  Box infe;
  while (NextBox(d, pos, iinf.end, infe)) {
    if (infe.type != FourCC("infe") || infe.end - infe.body < 12) continue;
    const uint8_t v = d[infe.body];
    if (v < 2) continue;
    const uint64_t at = infe.body + 4;
    const uint32_t id = v == 2 ? LoadBe16(d + at) : LoadBe32(d + at);
    const uint64_t type_at = at + (v == 2 ? 2 : 4) + 2;
    if (type_at + 4 <= infe.end && LoadBe32(d + type_at) == FourCC("Exif")) return id;
  }
  return 0;
}

// Where the first extent of item `item` lies in the file, from an 'iloc' box (data in the file
// itself, construction method 0 only).
bool ItemExtent(const uint8_t* d, const Box& iloc, uint32_t item, uint64_t& offset,
                uint64_t& length) {
  uint64_t at = iloc.body;
  if (iloc.end - at < 8) return false;
  const uint8_t version = d[at];
  if (version > 2) return false;
  const unsigned offset_size = d[at + 4] >> 4, length_size = d[at + 4] & 15;
  const unsigned base_size = d[at + 5] >> 4, index_size = version > 0 ? d[at + 5] & 15 : 0;
  at += 6;
  uint64_t count = 0;
  if (version < 2) {
    if (iloc.end - at < 2) return false;
    count = LoadBe16(d + at), at += 2;
  } else if (!ReadSized(d, at, iloc.end, 4, count)) {
    return false;
  }
  for (uint64_t i = 0; i < count; ++i) {
    uint64_t id = 0, method = 0, base = 0, extents = 0;
    if (version < 2) {
      if (iloc.end - at < 2) return false;
      id = LoadBe16(d + at), at += 2;
    } else if (!ReadSized(d, at, iloc.end, 4, id)) {
      return false;
    }
    if (version > 0) {
      if (iloc.end - at < 2) return false;
      method = LoadBe16(d + at) & 15, at += 2;
    }
    if (iloc.end - at < 2) return false;
    at += 2;  // data reference index
    if (!ReadSized(d, at, iloc.end, base_size, base) || iloc.end - at < 2) return false;
    extents = LoadBe16(d + at), at += 2;
    for (uint64_t e = 0; e < extents; ++e) {
      uint64_t index = 0, off = 0, len = 0;
      if (!ReadSized(d, at, iloc.end, index_size, index) ||
          !ReadSized(d, at, iloc.end, offset_size, off) ||
          !ReadSized(d, at, iloc.end, length_size, len))
        return false;
      if (id == item && e == 0) {
        if (method != 0) return false;
        offset = base + off;
        length = len;
        return true;
      }
    }
  }
  return false;
}

// The 1-based 'ipco' indices of the properties that 'ipma' associates with `item`.
std::vector<uint32_t> ItemProperties(const uint8_t* d, const Box& ipma, uint32_t item) {
  std::vector<uint32_t> found;
  uint64_t at = ipma.body;
  if (ipma.end - at < 8) return found;
  const uint8_t version = d[at];
  const bool wide = d[at + 3] & 1;
  const uint32_t entries = LoadBe32(d + at + 4);
  at += 8;
  for (uint32_t i = 0; i < entries; ++i) {
    const unsigned id_size = version < 1 ? 2 : 4;
    if (ipma.end - at < id_size + 1) break;
    const uint32_t id = id_size == 2 ? LoadBe16(d + at) : LoadBe32(d + at);
    at += id_size;
    const unsigned count = d[at++];
    const unsigned each = wide ? 2 : 1;
    if (ipma.end - at < uint64_t{count} * each) break;
    for (unsigned k = 0; k < count; ++k, at += each)
      if (id == item) found.push_back(wide ? LoadBe16(d + at) & 0x7FFF : d[at] & 0x7F);
  }
  return found;
}

std::string TgaStamp(const uint8_t* d, size_t n) {
  constexpr size_t kFooter = 26, kExtension = 495, kStampAt = 2 + 41 + 324;
  if (n < 18 + kFooter || std::memcmp(d + n - 18, "TRUEVISION-XFILE.", 18) != 0) return {};
  const uint32_t ext = LoadLe32(d + n - kFooter);
  if (ext < 18 || !Has(n - kFooter, ext, kExtension)) return {};
  const uint8_t* s = d + ext + kStampAt;
  const int month = LoadLe16(s), day = LoadLe16(s + 2), year = LoadLe16(s + 4);
  const int hour = LoadLe16(s + 6), minute = LoadLe16(s + 8), second = LoadLe16(s + 10);
  if (month < 1 || month > 12 || day < 1 || day > 31 || year < 1 || year > 9999 || hour > 23 ||
      minute > 59 || second > 59)
    return {};
  char text[32];
  std::snprintf(text, sizeof text, "%04d:%02d:%02d %02d:%02d:%02d", year, month, day, hour, minute,
                second);
  return text;
}

}  // namespace

bool PNG(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  if (n < 24 || std::memcmp(d + 12, "IHDR", 4) != 0) return false;
  if (!SetSize(LoadBe32(d + 16), LoadBe32(d + 20), out)) return false;
  // eXIf may follow the pixels; chunks are skipped by their lengths, nothing else is read.
  for (uint64_t at = 8; Has(n, at, 12);) {
    const uint64_t length = LoadBe32(d + at);
    if (!Has(n, at + 8, length + 4)) break;
    if (std::memcmp(d + at + 4, "eXIf", 4) == 0) {
      TakeExif(d + at + 8, length, out);
      break;
    }
    if (std::memcmp(d + at + 4, "IEND", 4) == 0) break;
    at += 12 + length;
  }
  return true;
}

bool JPEG(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  bool sized = false, exif = false;
  for (uint64_t pos = 2; Has(n, pos, 4) && d[pos] == 0xFF;) {
    const uint8_t marker = d[pos + 1];
    if (marker == 0xFF) {  // fill byte
      ++pos;
      continue;
    }
    if (marker == 0xD9 || marker == 0xDA) break;  // end of image, start of scan
    const uint32_t length = LoadBe16(d + pos + 2);
    if (length < 2) break;
    const uint64_t data = pos + 4, body = length - 2;
    const bool sof =
        marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
    if (sof && !sized && Has(n, data, 5))
      sized = SetSize(LoadBe16(d + data + 3), LoadBe16(d + data + 1), out);
    if (marker == 0xE1 && !exif && body >= 12 && Has(n, data, 6) &&
        std::memcmp(d + data, "Exif\0\0", 6) == 0) {
      exif = true;
      TakeExif(d + data, Has(n, data, body) ? body : n - data, out);
    }
    pos = data + body;
  }
  return sized;
}

bool TIFF(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  int width = 0, height = 0;
  if (!TiffSize(d, n, width, height) || !SetSize(width, height, out)) return false;
  TakeExif(d, n, out);
  return true;
}

bool GIF(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  return n >= 10 && SetSize(LoadLe16(d + 6), LoadLe16(d + 8), out);
}

bool BMP(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  if (n < 26) return false;
  const auto w = static_cast<int32_t>(LoadLe32(d + 18));
  const auto h = static_cast<int32_t>(LoadLe32(d + 22));
  // Bottom-up rows have a negative height.
  return SetSize(w < 0 ? -int64_t{w} : w, h < 0 ? -int64_t{h} : h, out);
}

bool WebP(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  bool sized = false;
  for (uint64_t at = 12; Has(n, at, 8);) {
    const uint64_t length = LoadLe32(d + at + 4), body = at + 8;
    if (!Has(n, body, length)) break;
    const uint8_t* c = d + body;
    if (std::memcmp(d + at, "VP8X", 4) == 0 && length >= 10) {
      sized =
          SetSize(1 + (c[4] | c[5] << 8 | c[6] << 16), 1 + (c[7] | c[8] << 8 | c[9] << 16), out);
    } else if (!sized && std::memcmp(d + at, "VP8 ", 4) == 0 && length >= 10 && c[3] == 0x9D &&
               c[4] == 0x01 && c[5] == 0x2A) {
      sized = SetSize(LoadLe16(c + 6) & 0x3FFF, LoadLe16(c + 8) & 0x3FFF, out);
    } else if (!sized && std::memcmp(d + at, "VP8L", 4) == 0 && length >= 5 && c[0] == 0x2F) {
      sized = SetSize(1 + (c[1] | (c[2] & 0x3F) << 8),
                      1 + (c[2] >> 6 | c[3] << 2 | (c[4] & 0x0F) << 10), out);
    } else if (std::memcmp(d + at, "EXIF", 4) == 0) {
      TakeExif(c, length, out);
    }
    at = body + length + (length & 1);
  }
  return sized;
}

bool JP2(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  const std::optional<Box> jp2h = FindBox(d, 0, n, FourCC("jp2h"));
  if (!jp2h) return false;
  const std::optional<Box> ihdr = FindBox(d, jp2h->body, jp2h->end, FourCC("ihdr"));
  if (!ihdr || ihdr->end - ihdr->body < 8) return false;
  if (!SetSize(LoadBe32(d + ihdr->body + 4), LoadBe32(d + ihdr->body), out)) return false;
  // EXIF travels in a 'uuid' box with this id ("JpgTiffExif->JP2").
  static constexpr uint8_t kExifUuid[16] = {'J', 'p', 'g', 'T', 'i', 'f', 'f', 'E',
                                            'x', 'i', 'f', '-', '>', 'J', 'P', '2'};
  Box b;
  for (uint64_t at = 0; NextBox(d, at, n, b);)
    if (b.type == FourCC("uuid") && b.end - b.body > 16 &&
        std::memcmp(d + b.body, kExifUuid, 16) == 0) {
      TakeExif(d + b.body + 16, b.end - b.body - 16, out);
      break;
    }
  return true;
}

bool J2K(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  // SIZ follows SOC at once: Lsiz, Rsiz, then the grid's far corner and the image offset.
  if (n < 24 || LoadBe16(d + 2) != 0xFF51) return false;
  const uint32_t x = LoadBe32(d + 8), y = LoadBe32(d + 12);
  const uint32_t x0 = LoadBe32(d + 16), y0 = LoadBe32(d + 20);
  return x > x0 && y > y0 && SetSize(x - x0, y - y0, out);
}

bool PSD(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  if (n < 30 || !SetSize(LoadBe32(d + 18), LoadBe32(d + 14), out)) return false;
  // The image resources follow the colour mode data; resource 0x0422 holds the EXIF block.
  const uint64_t resources = 30 + uint64_t{LoadBe32(d + 26)};
  if (!Has(n, resources, 4)) return true;
  const uint64_t end = resources + 4 + LoadBe32(d + resources);
  if (!Has(n, resources + 4, end - resources - 4)) return true;
  for (uint64_t at = resources + 4; Has(end, at, 8) && std::memcmp(d + at, "8BIM", 4) == 0;) {
    const uint16_t id = LoadBe16(d + at + 4);
    const uint64_t name = at + 6;
    const uint64_t after_name = name + ((d[name] + 2) & ~1u);  // Pascal string, padded to even
    if (!Has(end, after_name, 4)) break;
    const uint64_t size = LoadBe32(d + after_name), body = after_name + 4;
    if (!Has(end, body, size)) break;
    if (id == 0x0422) {
      TakeExif(d + body, size, out);
      break;
    }
    at = body + size + (size & 1);
  }
  return true;
}

bool TGA(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  if (n < 18 || !SetSize(LoadLe16(d + 12), LoadLe16(d + 14), out)) return false;
  // TGA has no EXIF; a TGA 2.0 extension area carries the picture's date and time.
  out.date_time = TgaStamp(d, n);
  return true;
}

bool IsoBmff(const CodecRow&, const uint8_t* d, size_t n, HeaderFacts& out) {
  const std::optional<Box> meta = FindBox(d, 0, n, FourCC("meta"));
  if (!meta || meta->end - meta->body < 4) return false;
  const uint64_t children = meta->body + 4;  // a full box: version and flags first
  const std::optional<Box> pitm = FindBox(d, children, meta->end, FourCC("pitm"));
  const std::optional<Box> iprp = FindBox(d, children, meta->end, FourCC("iprp"));
  if (!pitm || !iprp || pitm->end - pitm->body < 6) return false;
  const uint32_t primary = d[pitm->body] == 0
                               ? LoadBe16(d + pitm->body + 4)
                               : (pitm->end - pitm->body < 8 ? 0 : LoadBe32(d + pitm->body + 4));
  const std::optional<Box> ipco = FindBox(d, iprp->body, iprp->end, FourCC("ipco"));
  const std::optional<Box> ipma = FindBox(d, iprp->body, iprp->end, FourCC("ipma"));
  if (!ipco || !ipma) return false;
  std::vector<Box> properties;
  Box b;
  for (uint64_t at = ipco->body; NextBox(d, at, ipco->end, b);) properties.push_back(b);
  bool sized = false;
  int turns = 0;
  for (uint32_t index : ItemProperties(d, *ipma, primary)) {
    if (index == 0 || index > properties.size()) continue;
    const Box& p = properties[index - 1];
    if (p.type == FourCC("ispe") && p.end - p.body >= 12)
      sized = SetSize(LoadBe32(d + p.body + 4), LoadBe32(d + p.body + 8), out);
    else if (p.type == FourCC("irot") && p.end > p.body)
      turns = d[p.body] & 3;
  }
  if (!sized) return false;
  // The decoders turn the picture as 'irot' says: a quarter turn swaps the sides.
  if (turns & 1) std::swap(out.width, out.height);
  const std::optional<Box> iinf = FindBox(d, children, meta->end, FourCC("iinf"));
  const std::optional<Box> iloc = FindBox(d, children, meta->end, FourCC("iloc"));
  uint64_t offset = 0, length = 0;
  if (iinf && iloc)
    if (const uint32_t exif = ExifItem(d, *iinf); exif != 0 &&
                                                  ItemExtent(d, *iloc, exif, offset, length) &&
                                                  Has(n, offset, length) && length >= 4) {
      // The item starts with the offset of the TIFF header behind this field.
      const uint64_t skip = LoadBe32(d + offset);
      if (skip <= length - 4) TakeExif(d + offset + 4 + skip, length - 4 - skip, out);
    }
  return true;
}

bool ByDecoder(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out) {
  if (!row.decode) return false;
  TIOParamsVals params;
  codecs::DecodeOptions opt;
  opt.params_only = true;
  if (!row.decode(d, n, opt, nullptr, params).ok()) return false;
  return SetSize(params.Width, params.Height, out);
}

}  // namespace pictavo::imaging::probes
