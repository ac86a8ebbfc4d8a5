// Settings given on a command line as "Section/Key=VALUE", and the loading of a settings file
// for inspection (`pictavo settings`, `pictavo name`): defaults, then the file, then the
// overrides, all through the settings reader so clamps and spellings behave as in a job.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"
#include "settings/main_settings.h"

namespace pictavo::settings {

struct SettingOverride {
  std::string section, key, value;
};

// True when the reader takes this key (any case): every key the writer writes in mode 1, and
// numbered list keys of any number. "Main"/"Name" and "Thumbnails"/"Count_more" are not read.
bool IsReadableSettingKey(std::string_view section, std::string_view key);

// "Section/Key=VALUE" split into its parts; nullopt when the text is not of that form.
std::optional<SettingOverride> SplitSettingOverride(std::string_view text);

// Parses "Section/Key=VALUE" and appends it; the error names what is wrong (nothing appended).
Status AddSettingOverride(std::string_view text, std::vector<SettingOverride>& overrides);

// SetDefault, then the file (when `file` is not empty), then the overrides. The settings are
// valid whatever happens; the status says why the file could not be read, if it could not.
Status LoadSettingsForInspection(const std::string& file,
                                 const std::vector<SettingOverride>& overrides,
                                 TMainSettings& settings);

}  // namespace pictavo::settings
