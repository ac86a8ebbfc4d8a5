// A typed per-user store standing for the current user's registry hive.
//
// It lives in one file in the text form of a registry export (UTF-16LE with BOM):
//   Windows Registry Editor Version 5.00
//   [HKEY_CURRENT_USER\Software\Velmora\Pictavo7]
//   "JPG_Quality"=dword:00000050
//   "Main_Dest_path"="/home/ann/Pictures"
// Values keep their type, so a number stored as a string is not a number. Key paths and value
// names compare without regard to case. Not thread-safe; one object per user of the store.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/status.h"

namespace pictavo::platform {

class RegistryStore {
 public:
  enum class ValueType { kDword, kString };

  // The store file of this user: ${XDG_CONFIG_HOME:-~/.config}/Velmora/Pictavo7/registry.reg.
  static std::string DefaultPath();

  // An empty store bound to a file; Load() fills it.
  explicit RegistryStore(std::string path = DefaultPath());

  // Reads the file. A missing file is an empty store (OK); an unreadable one is an error
  // and leaves the store empty.
  Status Load();
  // Writes the whole store in one piece (scratch name, then rename), creating the folders.
  Status Save() const;

  // Key paths are written with "\" as in the registry ("Software\Velmora\Pictavo7").
  bool KeyExists(std::string_view key) const;
  void CreateKey(std::string_view key);

  // nullopt when the key or value is missing or the value has the other type.
  std::optional<uint32_t> ReadDword(std::string_view key, std::string_view name) const;
  std::optional<std::string> ReadString(std::string_view key, std::string_view name) const;
  std::optional<ValueType> TypeOf(std::string_view key, std::string_view name) const;

  // Writing creates the key; a value of the same name (any case) is replaced, type included.
  void WriteDword(std::string_view key, std::string_view name, uint32_t value);
  void WriteString(std::string_view key, std::string_view name, std::string_view value);

  // The export text, and its parser (exposed for tests and for `pictavo` diagnostics).
  std::string ToText() const;
  static RegistryStore FromText(std::string_view text, std::string path = {});

  const std::string& path() const { return path_; }

 private:
  struct Value {
    std::string name;
    ValueType type;
    uint32_t dword = 0;
    std::string text;
  };
  struct Key {
    std::string path;
    std::vector<Value> values;
  };

  const Key* FindKey(std::string_view key) const;
  Key& EnsureKey(std::string_view key);
  const Value* FindValue(std::string_view key, std::string_view name) const;
  Value& EnsureValue(std::string_view key, std::string_view name);

  std::string path_;
  std::vector<Key> keys_;
};

}  // namespace pictavo::platform
