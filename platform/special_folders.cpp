#include "platform/special_folders.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>

#include "platform/fs.h"

namespace pictavo::platform {
namespace {

std::string EnvOrEmpty(const char* name) {
  const char* v = std::getenv(name);
  return v ? std::string(v) : std::string();
}

// Expands "$HOME/x" and "${HOME}/x" the way user-dirs.dirs writes them.
std::string ExpandHome(std::string value) {
  for (const std::string prefix : {"$HOME", "${HOME}"}) {
    if (value.rfind(prefix, 0) == 0) return HomeFolder() + value.substr(prefix.size());
  }
  return value;
}

}  // namespace

std::string HomeFolder() {
  std::string home = EnvOrEmpty("HOME");
  if (home.empty()) {
    if (const passwd* pw = ::getpwuid(::getuid()); pw && pw->pw_dir) home = pw->pw_dir;
  }
  while (home.size() > 1 && home.back() == kPathDelim) home.pop_back();
  return home.empty() ? std::string(1, kPathDelim) : home;
}

std::string AppDataFolder() {
  std::string cache = EnvOrEmpty("XDG_CACHE_HOME");
  if (cache.empty() || cache[0] != kPathDelim)
    cache = IncludeTrailingDelim(HomeFolder()) + ".cache";
  return IncludeTrailingDelim(cache);
}

std::string ConfigFolder() {
  std::string config = EnvOrEmpty("XDG_CONFIG_HOME");
  if (config.empty() || config[0] != kPathDelim)
    config = IncludeTrailingDelim(HomeFolder()) + ".config";
  return IncludeTrailingDelim(config);
}

std::string PicturesFolder() {
  std::ifstream dirs(ConfigFolder() + "user-dirs.dirs");
  std::string line;
  const std::string key = "XDG_PICTURES_DIR=";
  while (std::getline(dirs, line)) {
    size_t start = line.find_first_not_of(" \t");
    if (start == std::string::npos || line.compare(start, key.size(), key) != 0) continue;
    std::string value = line.substr(start + key.size());
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"')
      value = value.substr(1, value.size() - 2);
    value = ExpandHome(value);
    if (!value.empty() && value[0] == kPathDelim) {
      while (value.size() > 1 && value.back() == kPathDelim) value.pop_back();
      return value;
    }
  }
  return IncludeTrailingDelim(HomeFolder()) + "Pictures";
}

}  // namespace pictavo::platform
