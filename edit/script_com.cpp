#include "edit/script_com.h"

#include <cerrno>
#include <charconv>
#include <climits>
#include <cstdlib>

#include "platform/bytes.h"

namespace pictavo::editing {
namespace {

constexpr std::string_view kBlanks = " \t\r\n\f\v";

// Whether the parentheses of a trimmed line that holds at least one of them are well formed:
// "(" not first, the last ")" last, "(" before it, something between them.
bool WellFormed(std::string_view t) {
  const size_t open = t.find('(');
  const size_t close = t.rfind(')');
  if (open == std::string_view::npos || close == std::string_view::npos) return false;
  if (open == 0) return false;
  if (close != t.size() - 1) return false;
  if (open > close) return false;
  if (close == open + 1) return false;  // "()"
  return true;
}

bool HasParen(std::string_view t) {
  return t.find('(') != std::string_view::npos || t.find(')') != std::string_view::npos;
}

}  // namespace

bool IsCommentLine(std::string_view trimmed) {
  return trimmed.size() >= 2 && (trimmed.starts_with("//") || trimmed.starts_with("#"));
}

Script_com ParseScriptLine(std::string_view line) {
  Script_com com;
  const std::string_view t = platform::Trim(line, kBlanks);
  if (IsCommentLine(t)) {
    com.name = "null";
    return com;
  }
  if (!HasParen(t)) {
    com.name = std::string(t);
    return com;
  }
  const size_t open = t.find('(');
  com.name = std::string(t.substr(0, open == std::string_view::npos ? t.size() : open));
  if (!WellFormed(t)) {
    com.count = -1;
    return com;
  }
  std::string_view inner = t.substr(open + 1, t.size() - open - 2);
  int n = 0;
  while (true) {
    const size_t semi = inner.find(';');
    if (n < kMaxParams) com.params[n] = std::string(inner.substr(0, semi));
    ++n;
    if (semi == std::string_view::npos) break;
    inner.remove_prefix(semi + 1);
  }
  com.count = n;
  return com;
}

std::string ScriptKey(std::string_view line) {
  const std::string_view t = platform::Trim(line, kBlanks);
  if (IsCommentLine(t)) return "null";
  if (!HasParen(t)) return std::string(t);
  if (!WellFormed(t)) return "null";
  return std::string(t.substr(0, t.find('(')));
}

int StrToIntStrict(const std::string& text) {
  size_t i = 0;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
  if (i == text.size()) throw BadParameter{text};
  for (size_t j = i; j < text.size(); ++j)
    if (text[j] < '0' || text[j] > '9') throw BadParameter{text};
  errno = 0;
  const long long v = std::strtoll(text.c_str(), nullptr, 10);
  if (errno == ERANGE || v < INT_MIN || v > INT_MAX) throw BadParameter{text};
  return static_cast<int>(v);
}

double StrToFloatStrict(const std::string& text) {
  std::string s = text;
  size_t i = 0, digits = 0, marks = 0;
  if (i < s.size() && (s[i] == '+' || s[i] == '-')) ++i;
  for (; i < s.size(); ++i) {
    if (s[i] >= '0' && s[i] <= '9') {
      ++digits;
    } else if (s[i] == '.' || s[i] == ',') {
      s[i] = '.';
      ++marks;
    } else {
      throw BadParameter{text};
    }
  }
  if (digits == 0 || marks > 1) throw BadParameter{text};
  double v = 0;
  const char* begin = s.data() + (s[0] == '+' ? 1 : 0);
  auto [end, ec] = std::from_chars(begin, s.data() + s.size(), v);  // locale-independent
  if (ec != std::errc() || end != s.data() + s.size()) throw BadParameter{text};
  return v;
}

}  // namespace pictavo::editing
