#include "settings/langs.h"

#include <filesystem>

#include "platform/fs.h"
#include "platform/text_encoding.h"
#include "settings/mem_ini_file.h"

namespace pictavo::settings {
namespace {

using K = ComponentKind;

bool OneOf(K kind, std::initializer_list<K> kinds) {
  for (K k : kinds)
    if (k == kind) return true;
  return false;
}

void Apply(Component& c, std::string_view property, const std::string& value) {
  if (property == "caption") {
    if (OneOf(c.kind, {K::kForm, K::kTabSheet, K::kButton, K::kLabel, K::kCheckBox, K::kGroupBox,
                       K::kSpeedButton, K::kRadioButton, K::kPanel, K::kMenuItem, K::kAction}))
      c.caption = value;
  } else if (property == "hint") {
    if (OneOf(c.kind, {K::kButton, K::kCheckBox, K::kRadioButton, K::kPanel, K::kToolButton,
                       K::kShape, K::kSpeedButton, K::kImage, K::kMemo, K::kProgressBar}))
      c.hint = value;
  } else if (property == "title") {
    if (OneOf(c.kind, {K::kOpenDialog, K::kSaveDialog})) c.title = value;
  } else if (property == "text") {
    if (c.kind == K::kEdit) c.text = value;
  } else if (property == "items") {
    if (c.kind == K::kComboBox) c.items = SplitLangList(value);
  } else if (property == "columns") {
    if (c.kind == K::kListView) {
      // Captions go to the existing columns in order; extra entries are ignored.
      std::vector<std::string> captions = SplitLangList(value);
      for (size_t i = 0; i < c.columns.size() && i < captions.size(); ++i)
        c.columns[i] = captions[i];
    }
  }
}

}  // namespace

std::vector<std::string> SplitLangList(std::string_view value) {
  std::vector<std::string> entries;
  if (value.empty()) return entries;
  size_t start = 0;
  while (true) {
    const size_t bar = value.find('|', start);
    entries.emplace_back(value.substr(start, bar - start));
    if (bar == std::string_view::npos) break;
    start = bar + 1;
  }
  return entries;
}

void TLangs::LoadLanguages(std::string folder) {
  folder = platform::IncludeTrailingDelim(folder);
  languages_.clear();
  std::error_code ec;
  std::filesystem::directory_iterator it(folder.empty() ? "." : folder, ec);
  for (; !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    const std::string file = it->path().filename().string();
    if (file.size() < 4 || !platform::EqualsNoCase(file.substr(file.size() - 4), ".lng")) continue;
    if (it->is_directory(ec)) continue;
    languages_.push_back(Language{file.substr(0, file.size() - 4), folder + file});
  }
}

void TLangs::SetActiveLang(std::string_view language, std::string_view section, FormModel& form) {
  const Language* found = nullptr;
  for (const Language& l : languages_) {
    if (platform::EqualsNoCase(l.name, language)) {
      found = &l;
      break;
    }
  }
  if (!found) {
    active_ = "english";
    return;
  }
  active_ = std::string(language);

  MemIniFile ini;
  if (!ini.Load(found->path).ok()) return;
  for (const std::string& key : ini.SectionKeys(section)) {
    const std::string value = ini.ReadString(section, key, "");
    const size_t dot = key.find('.');
    if (dot == std::string::npos) {
      if (platform::EqualsNoCase(key, "caption")) form.form().caption = value;
      continue;
    }
    Component* c = form.Find(std::string_view(key).substr(0, dot));
    if (!c) continue;
    Apply(*c, platform::AsciiLower(std::string_view(key).substr(dot + 1)), value);
  }
}

}  // namespace pictavo::settings
