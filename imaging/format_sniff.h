// Which format a file is, judged by its content (magic bytes) - never by its extension - and
// which format a destination name asks for, judged by its extension.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "imaging/io_params.h"

namespace pictavo::imaging {

// The format of the bytes, or ioUnknown: the first row of the codec registry whose magic test
// accepts them. Looks at the first bytes only (at most 44, or an ISOBMFF 'ftyp' box; a TGA,
// which has no magic, is recognised by a plausible header only). Formats the engine reads only
// through tools (HEIF, AVIF) are ioUnknown.
TIOFileType SniffFormat(const uint8_t* data, size_t size);

// The format a file name's extension names for saving (case-insensitive; the extension lists
// of the codec registry), or ioUnknown.
TIOFileType FileTypeFromExtension(std::string_view path);

}  // namespace pictavo::imaging
