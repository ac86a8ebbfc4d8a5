// Which format a file is, judged by its content (magic bytes) - never by its extension - and
// which format a destination name asks for, judged by its extension.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "imaging/io_params.h"

namespace pictavo::imaging {

// The format of the bytes, or ioUnknown. Looks at most at the first 32 bytes (a TGA, which has
// no magic, is recognised by a plausible header only).
TIOFileType SniffFormat(const uint8_t* data, size_t size);

// The format a file name's extension names for saving (case-insensitive), or ioUnknown.
TIOFileType FileTypeFromExtension(std::string_view path);

}  // namespace pictavo::imaging
