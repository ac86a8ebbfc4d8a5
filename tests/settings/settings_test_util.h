// Helpers shared by the settings tests.
#pragma once

#include <string>
#include <vector>

#include "settings/main_settings.h"
#include "settings/settings_keys.h"

namespace pictavo::settings::test_util {

// "Section/Key=value" for every key the writer writes in mode 1, in table order.
inline std::vector<std::string> Dump(TMainSettings s) {
  std::vector<std::string> lines;
  WalkSettings(s, WalkOptions{WalkDirection::kWrite, WalkForm::kFile, 1},
               [&lines](const SettingEntry& e) {
                 lines.push_back(e.section + "/" + e.key + "=" + FormatValue(e.field));
               });
  return lines;
}

// Raw bytes of UTF-16 text with a byte-order mark (ASCII input only).
inline std::string Utf16(const std::string& ascii, bool little_endian) {
  std::string out = little_endian ? std::string("\xFF\xFE") : std::string("\xFE\xFF");
  for (char c : ascii) {
    if (little_endian) {
      out += c;
      out += '\0';
    } else {
      out += '\0';
      out += c;
    }
  }
  return out;
}

}  // namespace pictavo::settings::test_util

#include <map>

namespace pictavo::settings::test_util {

// Settings in which every value the writer writes differs from its default and survives the
// reader's clamps; every list holds two items. Built by walking the key table, so a new key is
// covered without touching the tests.
inline TMainSettings NonDefaultSettings() {
  TMainSettings defaults;
  defaults.SetDefault();
  std::map<std::string, std::string> default_values;
  for (const std::string& line : Dump(defaults)) {
    const size_t eq = line.find('=');
    default_values[line.substr(0, eq)] = line.substr(eq + 1);
  }

  TMainSettings s = defaults;
  s.custom_places.resize(2);
  s.places.resize(2);
  s.svg.fonts.resize(2);
  s.plt.pens.resize(2);
  int n = 0;
  const WalkOptions all{WalkDirection::kWrite, WalkForm::kFile, 1};
  WalkSettings(s, all, [&n](const SettingEntry& e) {
    ++n;
    switch (TypeOf(e.field)) {
      case FieldType::kInteger:
        *std::get<int*>(e.field) += 1;
        break;
      case FieldType::kBoolean:
        *std::get<bool*>(e.field) = !*std::get<bool*>(e.field);
        break;
      case FieldType::kText:
        *std::get<std::string*>(e.field) += "v" + std::to_string(n) + "é";
        break;
      case FieldType::kColor:
        *std::get<ColorChannel*>(e.field) -= static_cast<ColorChannel>(n % 200 + 1);
        break;
    }
  });
  s.ApplyReadClamps();
  // A clamp that pulled a value back to its default: step the other way.
  WalkSettings(s, all, [&](const SettingEntry& e) {
    auto it = default_values.find(e.section + "/" + e.key);
    if (TypeOf(e.field) == FieldType::kInteger && it != default_values.end() &&
        it->second == FormatValue(e.field))
      *std::get<int*>(e.field) -= 1;
  });
  s.ApplyReadClamps();
  s.thumbnails = static_cast<const ThumbnailGroup&>(s.thumbnail_sets[0]);
  return s;
}

}  // namespace pictavo::settings::test_util
