#include "settings/mem_ini_file.h"

#include <charconv>
#include <cstdint>
#include <limits>

#include "platform/bytes.h"
#include "platform/text_encoding.h"

namespace pictavo::settings {
namespace {

using platform::EqualsNoCase;

// The blanks of an ini line: spaces and tabs only (a line break is not trimmed away).
constexpr std::string_view kBlanks = " \t";

bool IsBlank(std::string_view s) {
  return platform::Trim(s, kBlanks).empty();
}

bool IsBlankChar(char c) {
  return c == ' ' || c == '\t';
}

bool InQuotes(std::string_view value) {
  return value.size() >= 2 && value.front() == '"' && value.back() == '"';
}

// The reader takes one pair of quotes off; a value that starts and ends with its own quotes
// gets a second pair, so it reads back whole.
std::string_view Unquoted(std::string_view raw) {
  return InQuotes(raw) ? raw.substr(1, raw.size() - 2) : raw;
}

std::string Quoted(std::string_view value) {
  if (value.empty() ||
      !(IsBlankChar(value.front()) || IsBlankChar(value.back()) || InQuotes(value)))
    return std::string(value);
  return "\"" + std::string(value) + "\"";
}

}  // namespace

bool HasLineBreak(std::string_view text) {
  return text.find_first_of("\r\n") != std::string_view::npos;
}

std::optional<int> ParseInteger(std::string_view text) {
  std::string_view s = platform::Trim(text, kBlanks);
  bool negative = false;
  if (!s.empty() && (s.front() == '-' || s.front() == '+')) {
    negative = s.front() == '-';
    s.remove_prefix(1);
  }
  int base = 10;
  if (!s.empty() && s.front() == '$') {
    base = 16;
    s.remove_prefix(1);
  } else if (s.size() > 2 && s[0] == '0' && (s[1] == 'x' || s[1] == 'X')) {
    base = 16;
    s.remove_prefix(2);
  }
  if (s.empty()) return std::nullopt;
  uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), magnitude, base);
  if (ec != std::errc() || end != s.data() + s.size()) return std::nullopt;
  // Hex text may spell a negative number in two's complement ("$FFFFFFFF" is -1).
  if (base == 16 && !negative && magnitude <= std::numeric_limits<uint32_t>::max())
    return static_cast<int>(static_cast<uint32_t>(magnitude));
  const uint64_t limit = negative ? uint64_t{1} << 31 : (uint64_t{1} << 31) - 1;
  if (magnitude > limit) return std::nullopt;
  return negative ? static_cast<int>(-static_cast<int64_t>(magnitude))
                  : static_cast<int>(magnitude);
}

MemIniFile MemIniFile::FromText(std::string_view text) {
  MemIniFile ini;
  std::vector<Line>* target = &ini.preamble_;
  size_t pos = 0;
  while (pos < text.size()) {
    size_t end = text.find_first_of("\r\n", pos);
    if (end == std::string_view::npos) end = text.size();
    std::string_view raw = text.substr(pos, end - pos);
    pos = end + 1;
    if (end + 1 < text.size() && text[end] == '\r' && text[end + 1] == '\n') ++pos;

    std::string_view line = platform::Trim(raw, kBlanks);
    if (line.size() >= 2 && line.front() == '[' && line.back() == ']') {
      ini.sections_.push_back(
          Section{std::string(platform::Trim(line.substr(1, line.size() - 2), kBlanks)), {}});
      target = &ini.sections_.back().lines;
      continue;
    }
    size_t eq = line.find('=');
    if (eq != std::string_view::npos && eq > 0 && line.front() != ';') {
      target->push_back(Line{std::string(platform::Trim(line.substr(0, eq), kBlanks)),
                             std::string(platform::Trim(line.substr(eq + 1), kBlanks))});
    } else {
      target->push_back(Line{{}, std::string(raw)});
    }
  }
  return ini;
}

Status MemIniFile::Load(const std::string& path) {
  *this = MemIniFile();
  std::string why;
  std::optional<std::string> text = platform::ReadTextFile(path, &why);
  if (!text) return Status::Error("cannot read " + path + ": " + why);
  *this = FromText(*text);
  return Status::OK();
}

std::string MemIniFile::ToText() const {
  std::string out;
  auto emit = [&out](const std::vector<Line>& lines) {
    for (const Line& l : lines) {
      out += l.key.empty() ? l.value : l.key + "=" + l.value;
      out += "\r\n";
    }
  };
  emit(preamble_);
  for (const Section& s : sections_) {
    out += "[" + s.name + "]\r\n";
    emit(s.lines);
  }
  return out;
}

Status MemIniFile::Save(const std::string& path) const {
  return platform::WriteTextFileUtf16(path, ToText());
}

const MemIniFile::Section* MemIniFile::FindSection(std::string_view name) const {
  for (const Section& s : sections_)
    if (EqualsNoCase(s.name, name)) return &s;
  return nullptr;
}

MemIniFile::Section& MemIniFile::EnsureSection(std::string_view name) {
  if (const Section* found = FindSection(name)) return const_cast<Section&>(*found);
  // Keep a blank line between sections, as files written by hand and by the front end do.
  std::vector<Line>& previous = sections_.empty() ? preamble_ : sections_.back().lines;
  if (!previous.empty() && !(previous.back().key.empty() && IsBlank(previous.back().value)))
    previous.push_back(Line{});
  sections_.push_back(Section{std::string(name), {}});
  return sections_.back();
}

bool MemIniFile::SectionExists(std::string_view section) const {
  return FindSection(section) != nullptr;
}

std::optional<std::string> MemIniFile::Find(std::string_view section, std::string_view key) const {
  for (const Section& s : sections_) {
    if (!EqualsNoCase(s.name, section)) continue;
    for (const Line& l : s.lines)
      if (!l.key.empty() && EqualsNoCase(l.key, key)) return std::string(Unquoted(l.value));
  }
  return std::nullopt;
}

std::vector<std::string> MemIniFile::SectionKeys(std::string_view section) const {
  std::vector<std::string> keys;
  for (const Section& s : sections_) {
    if (!EqualsNoCase(s.name, section)) continue;
    for (const Line& l : s.lines)
      if (!l.key.empty()) keys.push_back(l.key);
  }
  return keys;
}

std::vector<std::string> MemIniFile::SectionNames() const {
  std::vector<std::string> names;
  for (const Section& s : sections_) names.push_back(s.name);
  return names;
}

std::string MemIniFile::ReadString(std::string_view section, std::string_view key,
                                   std::string_view fallback) const {
  std::optional<std::string> v = Find(section, key);
  return v ? *v : std::string(fallback);
}

int MemIniFile::ReadInteger(std::string_view section, std::string_view key, int fallback) const {
  std::optional<std::string> v = Find(section, key);
  if (!v) return fallback;
  return ParseInteger(*v).value_or(fallback);
}

bool MemIniFile::ReadBool(std::string_view section, std::string_view key, bool fallback) const {
  return ReadInteger(section, key, fallback ? 1 : 0) != 0;
}

bool MemIniFile::WriteString(std::string_view section, std::string_view key,
                             std::string_view value) {
  // Anything else would be read back as other entries, or other sections.
  if (HasLineBreak(section) || HasLineBreak(key) || HasLineBreak(value) ||
      platform::Trim(key, kBlanks).empty() || key.find('=') != std::string_view::npos ||
      platform::Trim(key, kBlanks).front() == ';')
    return false;
  for (Section& s : sections_) {
    if (!EqualsNoCase(s.name, section)) continue;
    for (Line& l : s.lines) {
      if (!l.key.empty() && EqualsNoCase(l.key, key)) {
        l.value = Quoted(value);
        return true;
      }
    }
  }
  // New keys go after the last entry of the first section of that name, so the blank line
  // that closes a section stays last.
  Section& s = EnsureSection(section);
  size_t at = s.lines.size();
  while (at > 0 && s.lines[at - 1].key.empty() && IsBlank(s.lines[at - 1].value)) --at;
  s.lines.insert(s.lines.begin() + static_cast<std::ptrdiff_t>(at),
                 Line{std::string(key), Quoted(value)});
  return true;
}

void MemIniFile::WriteInteger(std::string_view section, std::string_view key, int value) {
  (void)WriteString(section, key, std::to_string(value));
}

void MemIniFile::WriteBool(std::string_view section, std::string_view key, bool value) {
  (void)WriteString(section, key, value ? "1" : "0");
}

}  // namespace pictavo::settings
