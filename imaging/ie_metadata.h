// EXIF, IPTC and XMP of files in memory, through exiv2. Only this file and ie_metadata.cpp
// see exiv2; no exiv2 exception leaves them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "imaging/io_params.h"
#include "platform/status.h"

namespace pictavo::imaging::metadata {

// Fills the EXIF fields, EXIF_Raw, EXIF_Thumbnail, IPTC_Info and XMP_Info of `params` from a
// complete file (any format exiv2 reads). Tags that describe the file's own pixel structure
// (sizes, strips, compression...) are left out, so the EXIF block can go into another format.
// Unreadable metadata is simply absent.
void ReadMetadata(const uint8_t* data, size_t size, TIOParamsVals& params);

// True when `params` carries something WriteMetadata would write.
bool HasMetadataToWrite(const TIOParamsVals& params);

// Puts the EXIF block (with the text fields and thumbnail merged in, only when
// EXIF_HasEXIFData), the IPTC list and the XMP packet into an encoded JPEG, PNG, TIFF or WebP
// file held in `file`.
pictavo::Status WriteMetadata(std::vector<uint8_t>& file, const TIOParamsVals& params);

}  // namespace pictavo::imaging::metadata
