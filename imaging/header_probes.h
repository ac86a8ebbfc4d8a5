// The header probes of the codec registry's rows (see codec_registry.h for the contract). Private
// to imaging: only codec_registry.cpp and the tests use them.
#pragma once

#include "imaging/codec_registry.h"

namespace pictavo::imaging::probes {

bool PNG(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool JPEG(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool TIFF(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool GIF(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool BMP(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool WebP(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool JP2(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool J2K(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool PSD(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
bool TGA(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
// HEIF and AVIF: the primary item's 'ispe' and 'irot' properties and the 'Exif' item.
bool IsoBmff(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);
// The row's own decoder, asked for the parameters only: for the small formats whose header the
// decoder reads in a few bytes anyway (ICO, PNM, PCX, QOI).
bool ByDecoder(const CodecRow& row, const uint8_t* d, size_t n, HeaderFacts& out);

}  // namespace pictavo::imaging::probes
