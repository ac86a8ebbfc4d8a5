// The user's special folders, as the engine's defaults need them.
#pragma once

#include <string>

namespace pictavo::platform {

// Shared application-data folder, with a trailing delimiter: $XDG_CACHE_HOME, else ~/.cache/.
std::string AppDataFolder();

// The user's pictures folder (XDG_PICTURES_DIR of ~/.config/user-dirs.dirs, else ~/Pictures),
// without a trailing delimiter.
std::string PicturesFolder();

// The per-user configuration folder ($XDG_CONFIG_HOME, else ~/.config), with a trailing delimiter.
std::string ConfigFolder();

// The user's home folder, without a trailing delimiter ("/" when unknown).
std::string HomeFolder();

}  // namespace pictavo::platform
