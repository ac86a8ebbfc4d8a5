// An initialisation file held wholly in memory: loaded in one piece, queried and changed in
// memory, and written back in one piece. Used for the job's settings file and for language files.
//
// Sections and keys compare without regard to case (ASCII). A section that a file repeats
// ("[Vec]" ... "[VEC]") is searched in all its parts; the first key of a name wins. Everything the
// file holds is kept in its order, comments and unknown keys included, so rewriting a file only
// changes the keys that were written. Not thread-safe; a const object may be read from several
// threads.
//
// Values: blanks around a value are dropped on reading, and then one pair of double quotes
// around it, so Key=" a " reads as " a ". The writer quotes exactly the values that would
// otherwise change: those that start or end with a blank, or start and end with a double quote.
// A line break cannot stand in a line, so no section, key or value holding one is written.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

namespace pictavo::settings {

class MemIniFile {
 public:
  MemIniFile() = default;

  // Parses decoded text (UTF-8). Lines end in "\n", "\r\n" or "\r".
  static MemIniFile FromText(std::string_view text);

  // Loads a file decoded by its encoding (platform::DecodeText). A file that cannot be read,
  // or is not a regular file of at most platform::kMaxTextFileBytes, leaves the object empty
  // and returns the reason ("cannot read PATH: it is a folder").
  Status Load(const std::string& path);

  // The whole file as text, lines ending in "\r\n".
  std::string ToText() const;
  // Writes the whole file as UTF-16LE with a byte-order mark, under a scratch name renamed
  // into place, so a failure leaves any previous file untouched.
  Status Save(const std::string& path) const;

  bool SectionExists(std::string_view section) const;
  // The value (without its quotes), or nullopt when the section or key is missing.
  std::optional<std::string> Find(std::string_view section, std::string_view key) const;
  // Keys of a section in file order (as spelled in the file); empty for a missing section.
  std::vector<std::string> SectionKeys(std::string_view section) const;
  std::vector<std::string> SectionNames() const;

  std::string ReadString(std::string_view section, std::string_view key,
                         std::string_view fallback) const;
  // The fallback when the key is missing or its value is not a 32-bit integer.
  int ReadInteger(std::string_view section, std::string_view key, int fallback) const;
  // An integer: 0 is false, any other value true; the fallback when it is not an integer.
  bool ReadBool(std::string_view section, std::string_view key, bool fallback) const;

  // Replaces the first key of that name, or appends it to the section (created at the end
  // of the file when missing). The spelling of an existing key is kept. False, and nothing
  // changed, when the entry cannot stand in a line: a line break in the section, key or value,
  // or a key that is empty, holds "=" or starts with ";".
  bool WriteString(std::string_view section, std::string_view key, std::string_view value);
  void WriteInteger(std::string_view section, std::string_view key, int value);
  void WriteBool(std::string_view section, std::string_view key, bool value);

 private:
  struct Line {
    std::string key;    // empty for a line that is not an entry (comment, stray text)
    std::string value;  // the value of an entry, or the whole line otherwise
  };
  struct Section {
    std::string name;
    std::vector<Line> lines;
  };

  const Section* FindSection(std::string_view name) const;
  Section& EnsureSection(std::string_view name);

  std::vector<Line> preamble_;  // lines before the first section
  std::vector<Section> sections_;
};

// Parses a 32-bit integer the way the settings reader accepts it: optional blanks, an
// optional sign, decimal digits (or "$"/"0x" followed by hex digits), optional blanks.
std::optional<int> ParseInteger(std::string_view text);

// True when the text holds a line break (CR or LF), which no entry of the file can hold.
bool HasLineBreak(std::string_view text);

}  // namespace pictavo::settings
