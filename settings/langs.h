// TLangs: the language files of a folder, and their application to a form.
//
// A language file ("<language>.lng") is an ini file with one section per form; each key is a
// component name, a point and a property ("Label1.Caption"), or "caption" alone for the form's
// title. List properties ("items" of combo boxes, "columns" of list views) hold their entries
// separated by "|". Not thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "settings/form_model.h"

namespace pictavo::settings {

// Splits a list value ("a|b|c") into its entries; an empty value is an empty list.
std::vector<std::string> SplitLangList(std::string_view value);

class TLangs {
 public:
  struct Language {
    std::string name;  // file name without ".lng"
    std::string path;
  };

  TLangs() = default;

  // Fills the list from the folder's "*.lng" files (any case), in directory order.
  void LoadLanguages(std::string folder);

  // Applies a language (looked up by name without regard to case) to the form from the given
  // section. An unknown language makes "english" active and changes nothing. Unknown
  // components and properties are skipped.
  void SetActiveLang(std::string_view language, std::string_view section, FormModel& form);

  const std::vector<Language>& languages() const { return languages_; }
  const std::string& active_language() const { return active_; }

 private:
  std::vector<Language> languages_;
  std::string active_ = "original";  // the form's built-in texts
};

}  // namespace pictavo::settings
