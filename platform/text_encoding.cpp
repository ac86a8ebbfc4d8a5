#include "platform/text_encoding.h"

#include <algorithm>
#include <cstdint>

#include "platform/fs.h"

namespace pictavo::platform {
namespace {

void AppendUtf8(std::string& out, uint32_t cp) {
  if (cp < 0x80) {
    out += static_cast<char>(cp);
  } else if (cp < 0x800) {
    out += static_cast<char>(0xC0 | (cp >> 6));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else if (cp < 0x10000) {
    out += static_cast<char>(0xE0 | (cp >> 12));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (cp >> 18));
    out += static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (cp & 0x3F));
  }
}

constexpr uint32_t kReplacement = 0xFFFD;

std::string DecodeUtf16(std::string_view bytes, bool little_endian) {
  std::string out;
  out.reserve(bytes.size() / 2);
  auto unit = [&](size_t i) -> uint32_t {
    auto b0 = static_cast<uint8_t>(bytes[i]);
    auto b1 = static_cast<uint8_t>(bytes[i + 1]);
    return little_endian ? (b0 | (b1 << 8)) : ((b0 << 8) | b1);
  };
  size_t n = bytes.size() & ~size_t{1};
  for (size_t i = 0; i < n; i += 2) {
    uint32_t u = unit(i);
    if (u >= 0xD800 && u <= 0xDBFF && i + 3 < n) {
      uint32_t lo = unit(i + 2);
      if (lo >= 0xDC00 && lo <= 0xDFFF) {
        AppendUtf8(out, 0x10000 + ((u - 0xD800) << 10) + (lo - 0xDC00));
        i += 2;
        continue;
      }
    }
    AppendUtf8(out, (u >= 0xD800 && u <= 0xDFFF) ? kReplacement : u);
  }
  return out;
}

// Copies valid UTF-8 through and replaces each byte of a malformed sequence. Valid means
// what UTF-16 can hold: no overlong forms, no surrogates, nothing above U+10FFFF (a lead byte
// F5..F7 passed the shape test and came out of the UTF-16 writer as a stray surrogate).
std::string SanitizeUtf8(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  size_t i = 0;
  while (i < s.size()) {
    auto c = static_cast<uint8_t>(s[i]);
    int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    bool valid = len > 0 && i + len <= s.size();
    uint32_t cp = len == 1 ? c : len == 2 ? c & 0x1Fu : len == 3 ? c & 0x0Fu : c & 0x07u;
    for (int k = 1; valid && k < len; ++k) {
      const auto next = static_cast<uint8_t>(s[i + k]);
      valid = (next >> 6) == 2;
      cp = (cp << 6) | (next & 0x3Fu);
    }
    constexpr uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};
    valid = valid && cp >= kSmallest[len] && cp <= 0x10FFFF && !(cp >= 0xD800 && cp <= 0xDFFF);
    if (valid) {
      out.append(s.substr(i, len));
      i += len;
    } else {
      AppendUtf8(out, kReplacement);
      ++i;
    }
  }
  return out;
}

// UTF-16 without a byte-order mark, told by the side its zero bytes fall on.
std::optional<TextEncoding> BareUtf16(std::string_view b) {
  const size_t n = std::min(b.size(), size_t{512}) & ~size_t{1};
  size_t zero_low = 0, zero_high = 0;  // zeros at even and at odd offsets
  for (size_t i = 0; i < n; ++i)
    if (b[i] == '\0') ++(i % 2 == 0 ? zero_low : zero_high);
  const size_t units = n / 2;
  if (units == 0) return std::nullopt;
  if (zero_high * 8 >= units && zero_high > 4 * zero_low) return TextEncoding::kUtf16LEBare;
  if (zero_low * 8 >= units && zero_low > 4 * zero_high) return TextEncoding::kUtf16BEBare;
  return std::nullopt;
}

}  // namespace

TextEncoding DetectEncoding(std::string_view b) {
  if (b.size() >= 2 && static_cast<uint8_t>(b[0]) == 0xFF && static_cast<uint8_t>(b[1]) == 0xFE)
    return TextEncoding::kUtf16LE;
  if (b.size() >= 2 && static_cast<uint8_t>(b[0]) == 0xFE && static_cast<uint8_t>(b[1]) == 0xFF)
    return TextEncoding::kUtf16BE;
  if (b.size() >= 3 && static_cast<uint8_t>(b[0]) == 0xEF && static_cast<uint8_t>(b[1]) == 0xBB &&
      static_cast<uint8_t>(b[2]) == 0xBF)
    return TextEncoding::kUtf8Bom;
  return BareUtf16(b).value_or(TextEncoding::kUtf8);
}

std::string DecodeText(std::string_view bytes) {
  switch (DetectEncoding(bytes)) {
    case TextEncoding::kUtf16LE:
      return DecodeUtf16(bytes.substr(2), true);
    case TextEncoding::kUtf16BE:
      return DecodeUtf16(bytes.substr(2), false);
    case TextEncoding::kUtf16LEBare:
      return DecodeUtf16(bytes, true);
    case TextEncoding::kUtf16BEBare:
      return DecodeUtf16(bytes, false);
    case TextEncoding::kUtf8Bom:
      return SanitizeUtf8(bytes.substr(3));
    case TextEncoding::kUtf8:
      break;
  }
  return SanitizeUtf8(bytes);
}

std::string EncodeUtf16LEWithBom(std::string_view utf8) {
  std::string out = "\xFF\xFE";
  out.reserve(2 + utf8.size() * 2);
  auto put = [&](uint32_t u) {
    out += static_cast<char>(u & 0xFF);
    out += static_cast<char>(u >> 8);
  };
  std::string clean = SanitizeUtf8(utf8);
  size_t i = 0;
  while (i < clean.size()) {
    auto c = static_cast<uint8_t>(clean[i]);
    uint32_t cp;
    int len;
    if (c < 0x80) {
      cp = c, len = 1;
    } else if ((c >> 5) == 6) {
      cp = c & 0x1F, len = 2;
    } else if ((c >> 4) == 14) {
      cp = c & 0x0F, len = 3;
    } else {
      cp = c & 0x07, len = 4;
    }
    for (int k = 1; k < len; ++k) cp = (cp << 6) | (static_cast<uint8_t>(clean[i + k]) & 0x3F);
    i += len;
    if (cp >= 0x10000) {
      cp -= 0x10000;
      put(0xD800 + (cp >> 10));
      put(0xDC00 + (cp & 0x3FF));
    } else {
      put(cp);
    }
  }
  return out;
}

std::optional<std::string> ReadTextFile(const std::string& path, std::string* why,
                                        size_t max_bytes) {
  auto bytes = ReadRegularFile(path, max_bytes, why);
  if (!bytes) return std::nullopt;
  return DecodeText(*bytes);
}

Status WriteTextFileUtf16(const std::string& path, std::string_view utf8) {
  return WriteFileAtomic(path, EncodeUtf16LEWithBom(utf8));
}

std::string AsciiLower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

std::string AsciiUpper(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return out;
}

bool EqualsNoCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i) {
    char x = a[i], y = b[i];
    if (x >= 'A' && x <= 'Z') x = static_cast<char>(x - 'A' + 'a');
    if (y >= 'A' && y <= 'Z') y = static_cast<char>(y - 'A' + 'a');
    if (x != y) return false;
  }
  return true;
}

}  // namespace pictavo::platform
