// Renders one line of UTF-8 text into an 8-bit coverage mask with FreeType, the font found by
// fontconfig from a family name (DejaVu Sans when the name matches nothing).
// Each call creates and frees its own FreeType library: safe from several workers at once.
#pragma once

#include <string>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::editing {

// `mask` becomes an ie8g bitmap just large enough for the text (255 = fully covered).
pictavo::Status RenderText(const std::string& text, const std::string& family, int pixel_size,
                           bool bold, bool italic, imaging::TIEBitmap& mask);

// The font file fontconfig chooses for a family; empty when none.
std::string FindFontFile(const std::string& family, bool bold, bool italic);

}  // namespace pictavo::editing
