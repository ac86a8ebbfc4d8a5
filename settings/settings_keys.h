// The table of settings keys, shared by the settings-file reader and writer, the registry
// reader and writer, and `pictavo settings show`, so that all of them agree on every key.
//
// WalkSettings visits every stored value of a TMainSettings in the order in which the
// settings file is read (which is also the order the writer adds keys to a new file), telling
// for each its section and key as the writer spells them, its registry value name, and a
// pointer to the field. Lists, thumbnail sets and the write-only keys are expanded by the walk.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <variant>

#include "settings/main_settings.h"

namespace pictavo::settings {

// A pointer to one stored value; the alternative names its type.
using FieldRef = std::variant<int*, bool*, std::string*, ColorChannel*>;

enum class FieldType { kInteger, kBoolean, kText, kColor };
FieldType TypeOf(const FieldRef& field);

struct SettingEntry {
  std::string section;   // as the writer spells it
  std::string key;       // as the writer spells it
  std::string reg_name;  // registry value name
  FieldRef field;
};

enum class WalkDirection { kRead, kWrite };
enum class WalkForm { kFile, kRegistry };

struct WalkOptions {
  WalkDirection direction = WalkDirection::kRead;
  WalkForm form = WalkForm::kFile;
  int mode = 1;  // writing only: 1 adds front-end keys, 3 adds "Main"/"Name"
};

// Reading: a list's count is visited first (as 0), then the list is emptied and refilled
// with that many default items (at most 1000) whose fields are visited in turn; "Main"/"Name" and
// "Thumbnails"/"Count_more" are skipped. Writing: counts come from the lists; write-only keys
// point at temporaries valid during the call. The registry form has no write-only keys.
void WalkSettings(TMainSettings& settings, const WalkOptions& options,
                  const std::function<void(const SettingEntry&)>& visit);

// Value as the settings file spells it ("1"/"0" for booleans, decimal for numbers).
std::string FormatValue(const FieldRef& field);
// Sets the field from file text as the reader does; false (field unchanged) when a number is
// expected and the text is not one. Colour channels keep the low 8 bits.
bool ParseValue(const FieldRef& field, std::string_view text);

}  // namespace pictavo::settings
