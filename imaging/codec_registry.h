// The codec registry: one row per file format the engine knows by its content. A row names the
// format, its extensions, how its first bytes are recognised, how its header is probed, and its
// decoder and encoder with what the encoder accepts. The sniffer, the loader, the saver and the
// header probe used for naming all walk this one table; a new raster format is one row here
// plus its codec file.
//
// Everything here is constant data and stateless functions: safe from any number of workers.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "imaging/codecs/codec.h"
#include "imaging/io_params.h"

namespace pictavo::imaging {

// What a header tells without decoding pixels.
struct HeaderFacts {
  // The size of the picture as it is decoded: for HEIF and AVIF, after the container's rotation,
  // which their decoders apply.
  int width = 0;
  int height = 0;
  int orientation = 0;    // the EXIF Orientation tag, 1..8; 0 when there is none
  std::string date_time;  // EXIF DateTimeOriginal, else DateTime, "yyyy:mm:dd hh:mm:ss"
};

struct CodecRow;

// True when the first bytes are this format's. Sees the whole buffer; looks at its start only.
using MagicFn = bool (*)(const uint8_t* data, size_t size);
// Fills `out` from the header of a file of this row's format; false when the header is damaged
// or too short to tell the size. Never decodes pixels.
using ProbeFn = bool (*)(const CodecRow& row, const uint8_t* data, size_t size, HeaderFacts& out);

struct CodecRow {
  // ioUnknown: a format the engine recognises and probes, but decodes only through a tool, so
  // the sniffer and the saver do not offer it (HEIF, AVIF).
  TIOFileType type;
  const char* name;
  std::span<const std::string_view> extensions;  // lower case, without the dot
  MagicFn magic;
  ProbeFn probe;            // null: no header probe (not a raster format)
  codecs::DecodeFn decode;  // null: not decoded in process
  codecs::EncodeFn encode;  // null: not written by the engine
  uint32_t layouts;         // the layouts the encoder takes as they are (codecs::LayoutBit)
  bool alpha;               // the encoder stores the alpha plane
  bool metadata;            // exiv2 reads and writes EXIF/IPTC/XMP in it
  bool alpha_rgb_only;      // the alpha plane only beside 24-bit RGB
  // EXIF may sit where only exiv2 finds it (PNG: the text chunk exiv2 itself writes), so the
  // header probe asks exiv2 when its own look finds no date.
  bool exif_by_exiv2 = false;
};

// Every row, in the order the sniffer tries them.
std::span<const CodecRow> CodecRows();

// The row of a format the engine decodes or writes; null for ioUnknown and unknown types.
const CodecRow* RowForType(TIOFileType type);
// The first row whose magic test accepts the bytes, tool-read formats included; null if none.
const CodecRow* RowForBytes(const uint8_t* data, size_t size);
// The row whose extensions hold the extension of `path` (case-insensitive), tool-read formats
// included; null when none does.
const CodecRow* RowForExtension(std::string_view path);

// The header facts of a file in memory, or of a file on disk (read through a mapping: only the
// pages the probe touches are read). nullopt when no row knows the bytes or the header is
// damaged. The EXIF date comes from a cheap look at the container where the format keeps EXIF
// in a known place, else, for formats exiv2 reads, from exiv2.
// `with_date`: false when only the size is wanted, which spares the exiv2 pass.
std::optional<HeaderFacts> ProbeHeader(const uint8_t* data, size_t size, bool with_date = true);
std::optional<HeaderFacts> ProbeHeaderFile(const std::string& path, bool with_date = true);

// The value of a TIFF tag of a TIFF file's first directory or its EXIF directory (see
// TiffTagText); nullopt for anything that is not a TIFF file.
std::optional<std::string> ReadTiffTagFile(const std::string& path, int tag);

}  // namespace pictavo::imaging
