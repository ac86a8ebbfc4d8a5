#include "imaging/format_sniff.h"

#include "imaging/codec_registry.h"

namespace pictavo::imaging {

// Formats the engine only reads through tools have no file type: they sniff as unknown.
TIOFileType SniffFormat(const uint8_t* d, size_t n) {
  const CodecRow* row = RowForBytes(d, n);
  return row ? row->type : TIOFileType::ioUnknown;
}

TIOFileType FileTypeFromExtension(std::string_view path) {
  const CodecRow* row = RowForExtension(path);
  return row ? row->type : TIOFileType::ioUnknown;
}

}  // namespace pictavo::imaging
