// Text files of the engine (settings, language and list files) come as UTF-16LE,
// UTF-16BE or UTF-8, told apart by their byte-order mark; no mark means UTF-8.
// Inside the engine all text is UTF-8.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace pictavo::platform {

enum class TextEncoding { kUtf8, kUtf8Bom, kUtf16LE, kUtf16BE };

// Detects the encoding from the first bytes.
TextEncoding DetectEncoding(std::string_view bytes);

// Decodes bytes (BOM included or not) into UTF-8. Unpaired surrogates and
// malformed sequences become U+FFFD; decoding never fails.
std::string DecodeText(std::string_view bytes);

// Encodes UTF-8 text as UTF-16LE preceded by its byte-order mark.
std::string EncodeUtf16LEWithBom(std::string_view utf8);

// Reads a whole text file and decodes it; nullopt when it cannot be read.
std::optional<std::string> ReadTextFile(const std::string& path);

// Writes text as UTF-16LE with BOM, in one piece: to a scratch name, then renamed into place.
Status WriteTextFileUtf16(const std::string& path, std::string_view utf8);

// Case folding for names and keys (ASCII letters only, like the engine's own comparisons).
std::string AsciiLower(std::string_view s);
std::string AsciiUpper(std::string_view s);
bool EqualsNoCase(std::string_view a, std::string_view b);

}  // namespace pictavo::platform
