#include "settings/settings_overrides.h"

#include "platform/text_encoding.h"
#include "settings/mem_ini_file.h"
#include "settings/settings_keys.h"

namespace pictavo::settings {
namespace {

std::string_view WithoutTrailingDigits(std::string_view s) {
  while (!s.empty() && s.back() >= '0' && s.back() <= '9') s.remove_suffix(1);
  return s;
}

bool IsListSection(std::string_view section) {
  for (std::string_view list : {"CustomPlaces", "Places", "SVG", "PLT"})
    if (platform::EqualsNoCase(section, list)) return true;
  return false;
}

}  // namespace

bool IsReadableSettingKey(std::string_view section, std::string_view key) {
  // One item in every list, so that the walk names each item key once.
  TMainSettings probe;
  probe.custom_places.resize(1);
  probe.places.resize(1);
  probe.svg.fonts.resize(1);
  probe.plt.pens.resize(1);
  const bool list = IsListSection(section);
  bool found = false;
  WalkSettings(
      probe, WalkOptions{WalkDirection::kWrite, WalkForm::kFile, 1}, [&](const SettingEntry& e) {
        if (found || !platform::EqualsNoCase(e.section, section)) return;
        if (platform::EqualsNoCase(e.key, "Count_more")) return;
        found = platform::EqualsNoCase(e.key, key) ||
                (list &&
                 platform::EqualsNoCase(WithoutTrailingDigits(e.key), WithoutTrailingDigits(key)) &&
                 WithoutTrailingDigits(key).size() < key.size());
      });
  return found;
}

std::optional<SettingOverride> SplitSettingOverride(std::string_view text) {
  const size_t slash = text.find('/');
  const size_t eq = text.find('=');
  if (slash == std::string_view::npos || eq == std::string_view::npos || slash > eq || slash == 0 ||
      eq == slash + 1)
    return std::nullopt;
  return SettingOverride{std::string(text.substr(0, slash)),
                         std::string(text.substr(slash + 1, eq - slash - 1)),
                         std::string(text.substr(eq + 1))};
}

Status AddSettingOverride(std::string_view text, std::vector<SettingOverride>& overrides) {
  std::optional<SettingOverride> out = SplitSettingOverride(text);
  if (!out)
    return Status::Error("'" + std::string(text) + "' is not of the form Section/Key=VALUE");
  if (!IsReadableSettingKey(out->section, out->key))
    return Status::Error("'" + out->section + "/" + out->key + "' is not a settings key");
  if (HasLineBreak(out->value))
    return Status::Error("the value of " + out->section + "/" + out->key +
                         " holds a line break, which a settings file cannot hold");
  overrides.push_back(std::move(*out));
  return Status::OK();
}

Status LoadSettingsForInspection(const std::string& file,
                                 const std::vector<SettingOverride>& overrides,
                                 TMainSettings& settings) {
  settings.SetDefault();
  MemIniFile ini;
  Status status;
  // The reason names the file and what is wrong with it ("it is a folder").
  if (!file.empty()) status = ini.Load(file);
  for (const SettingOverride& o : overrides) (void)ini.WriteString(o.section, o.key, o.value);
  settings.read_ini_settings(ini);
  return status;
}

}  // namespace pictavo::settings
