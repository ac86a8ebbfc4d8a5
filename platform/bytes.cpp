#include "platform/bytes.h"

#include "platform/text_encoding.h"

namespace pictavo::platform {

std::string LowerExtension(std::string_view path) {
  const size_t slash = path.find_last_of("/\\");
  const std::string_view name = slash == std::string_view::npos ? path : path.substr(slash + 1);
  const size_t dot = name.rfind('.');
  // ".profile" is a hidden file's name, not an extension (as std::filesystem sees it).
  if (dot == std::string_view::npos || dot == 0 || name == "..") return std::string();
  return AsciiLower(name.substr(dot));
}

std::string_view Trim(std::string_view s, std::string_view blanks) {
  const size_t first = s.find_first_not_of(blanks);
  if (first == std::string_view::npos) return std::string_view();
  return s.substr(first, s.find_last_not_of(blanks) - first + 1);
}

std::string Quoted(std::string_view path) {
  std::string q;
  q.reserve(path.size() + 2);
  q += '"';
  q += path;
  q += '"';
  return q;
}

}  // namespace pictavo::platform
