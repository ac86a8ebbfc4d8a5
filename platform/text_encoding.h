// Text files of the engine (settings, language, list and actions files) come as UTF-16LE,
// UTF-16BE or UTF-8, told apart by their byte-order mark. Without a mark, zero bytes in the
// first 512 tell UTF-16 and its byte order (see DetectEncoding); otherwise it is UTF-8.
// Inside the engine all text is UTF-8.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "platform/status.h"

namespace pictavo::platform {

// kUtf16LE and kUtf16BE begin with their byte-order mark; the "Bare" ones have none.
enum class TextEncoding { kUtf8, kUtf8Bom, kUtf16LE, kUtf16BE, kUtf16LEBare, kUtf16BEBare };

// Detects the encoding from the first bytes. Without a byte-order mark: UTF-8 holds no zero
// bytes, while UTF-16 text of these files (ASCII section and key names, paths, captions) has
// one in the high byte of nearly every unit. So at least one unit in eight with a zero on one
// side, and four times more zeros there than on the other, is UTF-16 in that byte order.
TextEncoding DetectEncoding(std::string_view bytes);

// Decodes bytes (BOM included or not) into UTF-8. Unpaired surrogates and
// malformed sequences become U+FFFD; decoding never fails.
std::string DecodeText(std::string_view bytes);

// Encodes UTF-8 text as UTF-16LE preceded by its byte-order mark.
std::string EncodeUtf16LEWithBom(std::string_view utf8);

// The most a settings, actions or language file may hold: a job's settings take about 12 KB.
inline constexpr size_t kMaxTextFileBytes = size_t{16} << 20;
// The most a list file may hold: it names every input of a job (about 300,000 paths of 100
// characters in UTF-16).
inline constexpr size_t kMaxListFileBytes = size_t{64} << 20;

// Reads a whole regular file of at most `max_bytes` and decodes it; nullopt when it cannot be
// read or is refused (a folder, a device, a FIFO, a larger file), with the reason in `why`
// (see platform::ReadRegularFile).
std::optional<std::string> ReadTextFile(const std::string& path, std::string* why = nullptr,
                                        size_t max_bytes = kMaxTextFileBytes);

// Writes text as UTF-16LE with BOM, in one piece: to a scratch name, then renamed into place.
Status WriteTextFileUtf16(const std::string& path, std::string_view utf8);

// Case folding for names and keys (ASCII letters only, like the engine's own comparisons).
std::string AsciiLower(std::string_view s);
std::string AsciiUpper(std::string_view s);
bool EqualsNoCase(std::string_view a, std::string_view b);

}  // namespace pictavo::platform
