// Small helpers for reading numbers out of file headers and for the text of paths and command
// lines, so that each reader does not spell its own. All take the bytes as they are; none checks
// bounds: callers test the length first.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace pictavo::platform {

inline uint8_t ByteAt(std::string_view b, size_t at) {
  return static_cast<uint8_t>(b[at]);
}

inline uint16_t LoadLe16(std::string_view b, size_t at = 0) {
  return static_cast<uint16_t>(ByteAt(b, at) | (ByteAt(b, at + 1) << 8));
}
inline uint32_t LoadLe32(std::string_view b, size_t at = 0) {
  return LoadLe16(b, at) | (static_cast<uint32_t>(LoadLe16(b, at + 2)) << 16);
}
inline uint16_t LoadBe16(std::string_view b, size_t at = 0) {
  return static_cast<uint16_t>((ByteAt(b, at) << 8) | ByteAt(b, at + 1));
}
inline uint32_t LoadBe32(std::string_view b, size_t at = 0) {
  return (static_cast<uint32_t>(LoadBe16(b, at)) << 16) | LoadBe16(b, at + 2);
}

// The same over raw bytes.
inline uint16_t LoadLe16(const uint8_t* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}
inline uint32_t LoadLe32(const uint8_t* p) {
  return LoadLe16(p) | (static_cast<uint32_t>(LoadLe16(p + 2)) << 16);
}
inline uint16_t LoadBe16(const uint8_t* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}
inline uint32_t LoadBe32(const uint8_t* p) {
  return (static_cast<uint32_t>(LoadBe16(p)) << 16) | LoadBe16(p + 2);
}

// A 32-bit number as four big-endian bytes, for writers.
inline std::string StoreBe32(uint32_t v) {
  return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8),
          static_cast<char>(v)};
}

// The extension of a path's last part in ASCII lower case, with its dot (".tif"); empty when the
// name has none. A dot in a folder name is not an extension.
std::string LowerExtension(std::string_view path);

// `s` without the characters of `blanks` at either end.
std::string_view Trim(std::string_view s, std::string_view blanks = " \t\r\n");

// A path in double quotes, as one word of a tool's command line.
std::string Quoted(std::string_view path);

}  // namespace pictavo::platform
