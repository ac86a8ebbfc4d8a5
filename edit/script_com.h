// Parsing of one line of an editing-actions (.act) file.
//
// A line reads `key(p1;p2;...;pn)`, or a bare `key` without parameters. Two readings are made of
// each line, because the dispatcher matches most keys against the second one and the colour-depth
// family against the first:
//  - ParseScriptLine gives the record Script_com: the key as written, the parameter count (-1 when
//    the parentheses are malformed) and up to kMaxParams parameter strings;
//  - ScriptKey gives the key alone, or "null" for comments and malformed lines.
// Both are pure functions of the text; safe from any thread.
#pragma once

#include <array>
#include <string>
#include <string_view>

namespace pictavo::editing {

inline constexpr int kMaxParams = 20;

struct Script_com {
  std::string name;  // the key as written (case kept); "null" for a comment
  // Number of parameters written (it may exceed kMaxParams; only that many are stored);
  // 0 for a bare key, -1 for a malformed line.
  int count = 0;
  std::array<std::string, kMaxParams> params;  // params[0] is the first parameter
};

// True for a trimmed line of two or more characters that begins with "//" or "#".
bool IsCommentLine(std::string_view trimmed);

// The record reading of a line (blanks around the line are trimmed first).
Script_com ParseScriptLine(std::string_view line);

// The key-only reading: "null" for comments and malformed lines, the whole trimmed line for a
// line without parentheses, else the text before the first "(".
std::string ScriptKey(std::string_view line);

// Strict decimal integer: optional sign and digits only, within 32 bits. Anything else
// (blanks, "12a", "", "1.5") throws BadParameter, which makes the action fail.
int StrToIntStrict(const std::string& text);
// A decimal number for gamma: digits with one optional "." or "," as the decimal mark.
double StrToFloatStrict(const std::string& text);
// A flag parameter is on exactly when it reads "1".
inline bool Flag(const std::string& text) {
  return text == "1";
}

struct BadParameter {
  std::string text;
};

}  // namespace pictavo::editing
