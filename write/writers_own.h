// The program's own writers for formats the imaging engine does not save in this form: binary
// PPM and PGM of 8 bits per sample from any layout (through the engine's PNM codec) and SWF
// (each frame a lossless bitmap on the stage).
// Each writes the whole file under a scratch name and renames it into place.
#pragma once

#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::writer {

// P6, 255 as the largest value; any layout is written as 8-bit RGB.
Status WritePPM(const imaging::TIEBitmap& bmp, const std::string& path);
// P5, 255 as the largest value; colour is turned to grey by luma (0.299 R + 0.587 G + 0.114 B).
Status WritePGM(const imaging::TIEBitmap& bmp, const std::string& path);
// An uncompressed SWF (version 8) whose stage has the first frame's size in pixels; every frame
// shows one picture (zlib-compressed ARGB, alpha kept), `frame_rate` frames per second.
Status WriteSWF(const std::vector<const imaging::TIEBitmap*>& frames, int frame_rate,
                const std::string& path);

}  // namespace pictavo::writer
