#include "platform/registry_store.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "platform/fs.h"
#include "platform/special_folders.h"
#include "platform/text_encoding.h"

namespace pictavo::platform {
namespace {

constexpr std::string_view kHeader = "Windows Registry Editor Version 5.00";
constexpr std::string_view kHive = "HKEY_CURRENT_USER\\";

std::string NormaliseKey(std::string_view key) {
  std::string k(key);
  while (!k.empty() && k.front() == '\\') k.erase(k.begin());
  while (!k.empty() && k.back() == '\\') k.pop_back();
  return k;
}

std::string Quote(std::string_view s) {
  std::string out = "\"";
  for (char c : s) {
    if (c == '\\' || c == '"') out += '\\';
    out += c;
  }
  return out + "\"";
}

bool HasControlChars(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) < 0x20) return true;
  return false;
}

// Strings with line breaks or other control characters are written as hex(1):
// their UTF-16LE bytes plus a terminating zero, as a registry export does.
std::string HexString(std::string_view utf8) {
  std::string bytes = EncodeUtf16LEWithBom(utf8).substr(2);
  bytes.append(2, '\0');
  std::string out = "hex(1):";
  static const char* digits = "0123456789abcdef";
  for (size_t i = 0; i < bytes.size(); ++i) {
    if (i) out += ',';
    auto b = static_cast<unsigned char>(bytes[i]);
    out += digits[b >> 4];
    out += digits[b & 15];
  }
  return out;
}

std::optional<std::string> ParseHexString(std::string_view hex) {
  std::string bytes = "\xFF\xFE";
  size_t i = 0;
  while (i < hex.size()) {
    while (i < hex.size() && (hex[i] == ',' || hex[i] == ' ')) ++i;
    if (i + 2 > hex.size()) break;
    int v = 0;
    for (int k = 0; k < 2; ++k) {
      char c = hex[i + k];
      int d = (c >= '0' && c <= '9')   ? c - '0'
              : (c >= 'a' && c <= 'f') ? c - 'a' + 10
              : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                       : -1;
      if (d < 0) return std::nullopt;
      v = v * 16 + d;
    }
    bytes += static_cast<char>(v);
    i += 2;
  }
  std::string text = DecodeText(bytes);
  while (!text.empty() && text.back() == '\0') text.pop_back();
  return text;
}

// Parses a quoted string starting at s[pos] == '"'; moves pos past the closing quote.
std::optional<std::string> ParseQuoted(std::string_view s, size_t& pos) {
  if (pos >= s.size() || s[pos] != '"') return std::nullopt;
  std::string out;
  for (size_t i = pos + 1; i < s.size(); ++i) {
    if (s[i] == '\\' && i + 1 < s.size()) {
      out += s[++i];
    } else if (s[i] == '"') {
      pos = i + 1;
      return out;
    } else {
      out += s[i];
    }
  }
  return std::nullopt;
}

}  // namespace

std::string RegistryStore::DefaultPath() {
  return ConfigFolder() + "Velmora" + kPathDelim + "Pictavo7" + kPathDelim + "registry.reg";
}

RegistryStore::RegistryStore(std::string path) : path_(std::move(path)) {}

Status RegistryStore::Load() {
  keys_.clear();
  if (!std::filesystem::exists(path_)) return Status::OK();
  auto text = ReadTextFile(path_);
  if (!text) return Status::Error("cannot read the settings store " + path_);
  *this = FromText(*text, path_);
  return Status::OK();
}

Status RegistryStore::Save() const {
  std::error_code ec;
  auto folder = std::filesystem::path(path_).parent_path();
  if (!folder.empty()) std::filesystem::create_directories(folder, ec);
  if (ec) return Status::Error("cannot create " + folder.string() + ": " + ec.message());
  return WriteTextFileUtf16(path_, ToText());
}

const RegistryStore::Key* RegistryStore::FindKey(std::string_view key) const {
  std::string k = NormaliseKey(key);
  for (const Key& candidate : keys_)
    if (EqualsNoCase(candidate.path, k)) return &candidate;
  return nullptr;
}

RegistryStore::Key& RegistryStore::EnsureKey(std::string_view key) {
  if (const Key* found = FindKey(key)) return const_cast<Key&>(*found);
  keys_.push_back(Key{NormaliseKey(key), {}});
  return keys_.back();
}

bool RegistryStore::KeyExists(std::string_view key) const {
  return FindKey(key) != nullptr;
}

void RegistryStore::CreateKey(std::string_view key) {
  EnsureKey(key);
}

const RegistryStore::Value* RegistryStore::FindValue(std::string_view key,
                                                     std::string_view name) const {
  const Key* k = FindKey(key);
  if (!k) return nullptr;
  for (const Value& v : k->values)
    if (EqualsNoCase(v.name, name)) return &v;
  return nullptr;
}

RegistryStore::Value& RegistryStore::EnsureValue(std::string_view key, std::string_view name) {
  Key& k = EnsureKey(key);
  for (Value& v : k.values)
    if (EqualsNoCase(v.name, name)) return v;
  k.values.push_back(Value{std::string(name), ValueType::kString, 0, {}});
  return k.values.back();
}

std::optional<uint32_t> RegistryStore::ReadDword(std::string_view key,
                                                 std::string_view name) const {
  const Value* v = FindValue(key, name);
  if (!v || v->type != ValueType::kDword) return std::nullopt;
  return v->dword;
}

std::optional<std::string> RegistryStore::ReadString(std::string_view key,
                                                     std::string_view name) const {
  const Value* v = FindValue(key, name);
  if (!v || v->type != ValueType::kString) return std::nullopt;
  return v->text;
}

std::optional<RegistryStore::ValueType> RegistryStore::TypeOf(std::string_view key,
                                                              std::string_view name) const {
  const Value* v = FindValue(key, name);
  if (!v) return std::nullopt;
  return v->type;
}

void RegistryStore::WriteDword(std::string_view key, std::string_view name, uint32_t value) {
  Value& v = EnsureValue(key, name);
  v.type = ValueType::kDword;
  v.dword = value;
  v.text.clear();
}

void RegistryStore::WriteString(std::string_view key, std::string_view name,
                                std::string_view value) {
  Value& v = EnsureValue(key, name);
  v.type = ValueType::kString;
  v.text = std::string(value);
  v.dword = 0;
}

std::string RegistryStore::ToText() const {
  std::string out(kHeader);
  out += "\r\n";
  char hex[16];
  for (const Key& k : keys_) {
    out += "\r\n[" + std::string(kHive) + k.path + "]\r\n";
    for (const Value& v : k.values) {
      out += Quote(v.name) + "=";
      if (v.type == ValueType::kDword) {
        std::snprintf(hex, sizeof hex, "%08x", v.dword);
        out += "dword:" + std::string(hex);
      } else if (HasControlChars(v.text)) {
        out += HexString(v.text);
      } else {
        out += Quote(v.text);
      }
      out += "\r\n";
    }
  }
  return out;
}

RegistryStore RegistryStore::FromText(std::string_view text, std::string path) {
  RegistryStore store(std::move(path));
  Key* current = nullptr;
  size_t start = 0;
  while (start <= text.size()) {
    size_t end = text.find('\n', start);
    if (end == std::string_view::npos) end = text.size();
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    while (!line.empty() && (line.back() == '\r' || line.back() == ' ')) line.remove_suffix(1);
    while (!line.empty() && line.front() == ' ') line.remove_prefix(1);
    if (line.empty() || line.front() == ';') continue;
    if (line.front() == '[' && line.back() == ']') {
      std::string_view key = line.substr(1, line.size() - 2);
      if (key.size() >= kHive.size() && EqualsNoCase(key.substr(0, kHive.size()), kHive)) {
        current = &store.EnsureKey(key.substr(kHive.size()));
      } else {
        current = nullptr;  // other hives are not ours
      }
      continue;
    }
    if (!current || line.front() != '"') continue;
    size_t pos = 0;
    auto name = ParseQuoted(line, pos);
    if (!name || pos >= line.size() || line[pos] != '=') continue;
    std::string_view data = line.substr(pos + 1);
    Value value{*name, ValueType::kString, 0, {}};
    if (data.rfind("dword:", 0) == 0) {
      std::string digits(data.substr(6));
      char* stop = nullptr;
      unsigned long parsed = std::strtoul(digits.c_str(), &stop, 16);
      if (digits.empty() || digits.size() > 8 || *stop != '\0') continue;
      value.type = ValueType::kDword;
      value.dword = static_cast<uint32_t>(parsed);
    } else if (data.rfind("hex(1):", 0) == 0) {
      auto decoded = ParseHexString(data.substr(7));
      if (!decoded) continue;
      value.text = *decoded;
    } else {
      size_t p = 0;
      auto s = ParseQuoted(data, p);
      if (!s) continue;
      value.text = *s;
    }
    bool replaced = false;
    for (Value& existing : current->values) {
      if (EqualsNoCase(existing.name, value.name)) {
        existing = value;
        replaced = true;
      }
    }
    if (!replaced) current->values.push_back(std::move(value));
  }
  return store;
}

}  // namespace pictavo::platform
