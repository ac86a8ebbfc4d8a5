// Tags of a TIFF structure held in memory: a TIFF file, or the EXIF block of another format
// (which is a TIFF structure without pixels). Only what naming needs: a tag's value as text and
// the EXIF date. Every offset is checked against the bytes; damage gives nullopt, never a crash.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace pictavo::imaging {

// The value of `tag` in the first image directory, else in its EXIF directory: text as stored
// (trailing blanks dropped), numbers in decimal separated by blanks, fractions as "n/d" ("n"
// when d is 1). `data` starts with the "II*\0" or "MM\0*" header.
std::optional<std::string> TiffTagText(const uint8_t* data, size_t size, int tag);

// DateTimeOriginal of the EXIF directory, else DateTime of the first directory, as stored
// ("yyyy:mm:dd hh:mm:ss").
std::optional<std::string> TiffExifDateTime(const uint8_t* data, size_t size);

// The Orientation tag (1..8) of the first directory, 0 when absent.
int TiffOrientation(const uint8_t* data, size_t size);

// Width and height of the first directory (tags 256 and 257).
bool TiffSize(const uint8_t* data, size_t size, int& width, int& height);

}  // namespace pictavo::imaging
