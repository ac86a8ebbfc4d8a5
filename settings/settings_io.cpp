// The settings file and registry forms of TMainSettings, both driven by the key table.

#include <filesystem>

#include "settings/main_settings.h"
#include "settings/settings_keys.h"

namespace pictavo::settings {

void TMainSettings::read_ini_settings(const MemIniFile& ini) {
  WalkSettings(*this, WalkOptions{WalkDirection::kRead, WalkForm::kFile},
               [&ini](const SettingEntry& e) {
                 // A missing key or a value that is not a number keeps the current value.
                 if (std::optional<std::string> text = ini.Find(e.section, e.key))
                   (void)ParseValue(e.field, *text);
               });
  thumbnail_set_count = kThumbnailSetCount;
  ApplyReadClamps();
}

Status TMainSettings::read_ini_settings(const std::string& file) {
  MemIniFile ini;
  Status loaded = ini.Load(file);
  read_ini_settings(ini);
  return loaded;
}

Status TMainSettings::write_ini_settings(MemIniFile& ini, int mode) {
  OptionsFromFlags();
  std::string refused;
  WalkSettings(*this, WalkOptions{WalkDirection::kWrite, WalkForm::kFile, mode},
               [&ini, &refused](const SettingEntry& e) {
                 if (!ini.WriteString(e.section, e.key, FormatValue(e.field)) && refused.empty())
                   refused = e.section + "/" + e.key;
               });
  if (!refused.empty())
    return Status::Error(refused + " holds a line break, which a settings file cannot hold");
  return Status::OK();
}

Status TMainSettings::write_ini_settings(const std::string& file, int mode) {
  MemIniFile ini;
  // Keep what the file already holds; a missing file starts empty.
  if (Status loaded = ini.Load(file); !loaded.ok()) {
    std::error_code ec;
    if (std::filesystem::exists(file, ec)) return loaded;
  }
  if (Status written = write_ini_settings(ini, mode); !written.ok()) return written;
  return ini.Save(file);
}

void TMainSettings::read_reg_settings(const platform::RegistryStore& store) {
  if (!store.KeyExists(kRegistryKey)) return;
  WalkSettings(*this, WalkOptions{WalkDirection::kRead, WalkForm::kRegistry},
               [&store](const SettingEntry& e) {
                 if (TypeOf(e.field) == FieldType::kText) {
                   // An empty string never clears a value, deliberately: the default stays.
                   std::optional<std::string> text = store.ReadString(kRegistryKey, e.reg_name);
                   if (text && !text->empty()) *std::get<std::string*>(e.field) = *text;
                   return;
                 }
                 // A value of the other type reads as missing.
                 std::optional<uint32_t> dword = store.ReadDword(kRegistryKey, e.reg_name);
                 if (!dword) return;
                 (void)ParseValue(e.field, std::to_string(static_cast<int32_t>(*dword)));
               });
  thumbnail_set_count = kThumbnailSetCount;
  ClampOptionsAndSetFlags();
}

void TMainSettings::read_reg_settings() {
  platform::RegistryStore store;
  (void)store.Load();
  read_reg_settings(store);
}

void TMainSettings::write_reg_settings(platform::RegistryStore& store) {
  OptionsFromFlags();
  store.CreateKey(kRegistryKey);
  WalkSettings(*this, WalkOptions{WalkDirection::kWrite, WalkForm::kRegistry, 1},
               [&store](const SettingEntry& e) {
                 switch (TypeOf(e.field)) {
                   case FieldType::kText:
                     store.WriteString(kRegistryKey, e.reg_name, *std::get<std::string*>(e.field));
                     break;
                   case FieldType::kInteger:
                     store.WriteDword(kRegistryKey, e.reg_name,
                                      static_cast<uint32_t>(*std::get<int*>(e.field)));
                     break;
                   case FieldType::kBoolean:
                     store.WriteDword(kRegistryKey, e.reg_name, *std::get<bool*>(e.field) ? 1 : 0);
                     break;
                   case FieldType::kColor:
                     store.WriteDword(kRegistryKey, e.reg_name, *std::get<ColorChannel*>(e.field));
                     break;
                 }
               });
}

Status TMainSettings::write_reg_settings() {
  platform::RegistryStore store;
  if (Status s = store.Load(); !s.ok()) return s;
  write_reg_settings(store);
  return store.Save();
}

}  // namespace pictavo::settings
