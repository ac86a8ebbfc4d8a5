// libFuzzer entry point for one of the engine's text readers, chosen at build time by
// PICTAVO_FUZZ_TEXT. Every reader takes bytes a user or another program wrote, so none may
// crash, hang or read out of bounds on any input. What each makes of nonsense is not checked,
// except that the settings it reads must survive a write and a read unchanged.
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <fstream>
#include <string>
#include <string_view>

#ifdef PICTAVO_FUZZ_ACTIONS
#include "edit/action_table.h"
#include "edit/script_com.h"
#endif
#include "platform/registry_store.h"
#include "platform/text_encoding.h"
#include "settings/main_settings.h"
#include "settings/mem_ini_file.h"
#include "settings/message_table.h"
#include "settings/settings_keys.h"

namespace settings = pictavo::settings;

namespace {

// Every value the writer writes, as it spells it.
std::string Dump(settings::TMainSettings& s) {
  std::string out;
  settings::WalkSettings(
      s, settings::WalkOptions{settings::WalkDirection::kWrite, settings::WalkForm::kFile, 1},
      [&out](const settings::SettingEntry& e) {
        out += e.section + "/" + e.key + "=" + settings::FormatValue(e.field) + "\n";
      });
  return out;
}

// The settings file: parsed, every key read, written back over it and parsed again. Whatever
// the reader made of the bytes must also survive a clean write and read: a value that the
// writer does not quote when it should (blanks, quotes) reads back different, and that is a
// crash here.
void Settings(std::string_view bytes) {
  const settings::MemIniFile ini =
      settings::MemIniFile::FromText(pictavo::platform::DecodeText(bytes));
  settings::TMainSettings s;
  s.SetDefault();
  s.read_ini_settings(ini);
  settings::MemIniFile out = ini;
  (void)s.write_ini_settings(out, 1);
  (void)settings::MemIniFile::FromText(out.ToText());

  settings::MemIniFile clean;
  // The reader splits lines, so no value it gives can hold a line break.
  if (!s.write_ini_settings(clean, 1).ok()) __builtin_trap();
  settings::TMainSettings back;
  back.SetDefault();
  back.read_ini_settings(settings::MemIniFile::FromText(
      pictavo::platform::DecodeText(pictavo::platform::EncodeUtf16LEWithBom(clean.ToText()))));
  if (Dump(back) != Dump(s)) __builtin_trap();
}

// The per-user store, round-tripped.
void Registry(std::string_view bytes) {
  const auto store =
      pictavo::platform::RegistryStore::FromText(pictavo::platform::DecodeText(bytes));
  (void)pictavo::platform::RegistryStore::FromText(store.ToText());
}

// A language file, through a scratch file as the engine reads it.
void Language(std::string_view bytes) {
  static const std::string path = "/tmp/fuzz_language_" + std::to_string(getpid()) + ".lng";
  std::ofstream(path, std::ios::binary | std::ios::trunc).write(bytes.data(), bytes.size());
  settings::MessageTable table;
  (void)table.LoadLanguageFile(path);
  (void)table.ByKey("Label8.Caption");
}

// The list file: decoded by its encoding and split into entries, as the engine does. In
// memory: a scratch file per input costs a hundred times the executions, and the file reader
// itself has unit tests.
void List(std::string_view bytes) {
  const std::string text = pictavo::platform::DecodeText(bytes);
  size_t count = 0;
  for (size_t start = 0; start <= text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    count += end > start;
    start = end + 1;
  }
  (void)count;
}

// Page lists ("1, 3-5, 8-"): every page number near the ones the list names, and huge ones.
void Pages(std::string_view bytes) {
  const std::string list = pictavo::platform::DecodeText(bytes);
  for (int n : {0, 1, 2, 3, 7, 10, 99, 100, 1000, 65535, 2147483647, -1})
    (void)settings::TMainSettings::in_list(n, list);
}

// Name templates: the first line is the template, the rest the source name.
void Names(std::string_view bytes) {
  const std::string text = pictavo::platform::DecodeText(bytes);
  const size_t nl = text.find('\n');
  const std::string mask = text.substr(0, nl);
  const std::string base = nl == std::string::npos ? "photo" : text.substr(nl + 1);
  static const settings::TMainSettings s = [] {
    settings::TMainSettings d;
    d.SetDefault();
    return d;
  }();
  settings::MaskSource source;
  source.source_path = "/nowhere/" + base + ".jpg";  // never read: no such file
  source.width = 640;
  source.height = 480;
  source.page = 2;
  source.now = 1700000000;
  (void)s.ParseFileMask(base, mask, 7, source);
}

#ifdef PICTAVO_FUZZ_ACTIONS
// An actions file: every line parsed, matched against the action table, its parameters read
// as the routines read them (which throw BadParameter on nonsense).
void Actions(std::string_view bytes) {
  namespace editing = pictavo::editing;
  const std::string text = pictavo::platform::DecodeText(bytes);
  for (size_t start = 0; start <= text.size();) {
    size_t end = text.find('\n', start);
    if (end == std::string::npos) end = text.size();
    const editing::ParsedLine line =
        editing::ParseLine(std::string_view(text).substr(start, end - start));
    if (const editing::ActionRow* row = editing::MatchRow(editing::ActionTable(), line))
      (void)editing::AcceptsCount(*row, line.com.count);
    (void)editing::DisplayNameOf(line.key_lower);
    for (int i = 0; i < std::min(line.com.count, editing::kMaxParams); ++i) {
      try {
        (void)editing::StrToIntStrict(line.com.params[i]);
      } catch (const editing::BadParameter&) {
      }
      try {
        (void)editing::StrToFloatStrict(line.com.params[i]);
      } catch (const editing::BadParameter&) {
      }
    }
    start = end + 1;
  }
}
#endif

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  PICTAVO_FUZZ_TEXT(bytes);
  return 0;
}
