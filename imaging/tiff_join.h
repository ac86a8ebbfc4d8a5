// Joining TIFF files page after page without decoding them: the strips of each page are copied
// as they are stored, with the tags that describe them.
#pragma once

#include <string>
#include <vector>

#include "platform/status.h"

namespace pictavo::imaging {

// Writes every page of `inputs`, in order, into `output` (replaced atomically). Only stripped
// pages are joined; a tiled page, a page the library cannot read or an input that is missing
// fails the whole join and leaves `output` as it was.
pictavo::Status JoinTiffFiles(const std::vector<std::string>& inputs, const std::string& output);

}  // namespace pictavo::imaging
