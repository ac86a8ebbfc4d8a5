// Paint Shop Pro pictures (.psp, .pspimage; file versions 3 to 6, the editor's versions 5 to 8):
// a 32-byte signature, a version, then "~BK\0" blocks. Version 3 block headers carry the length
// of the block's own fields and the total length; later ones the total only, the fields then
// being chunks that start with their own size.
//
// What is read: the full-size JPEG composite that later versions may store, and otherwise the
// raster layers (24-bit RGB with their transparency, 8-bit grey or palette; uncompressed, RLE or
// LZ77), flattened over white with their opacity, visibility and position. Every length and
// size is checked against the file before anything is allocated.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "imaging/ie_bitmap.h"

namespace pictavo::reader::psp {

// A block: its id, everything after its header, and (version 3) the length of its own fields
// at the start of `body`.
struct Block {
  uint16_t id = 0;
  std::string_view body;
  size_t fields = 0;
};

// The parts of a layer's block that the flattening needs; channel data stays in the file.
struct Layer {
  int64_t left = 0, top = 0;  // where the stored pixels go on the canvas
  int width = 0, height = 0;  // the stored pixels
  uint8_t opacity = 255;
  bool visible = true;
  std::vector<Block> channels;
};

class Document {
 public:
  // Parses the header and the main blocks; `file` must outlive the document. False when the file is
  // no PSP picture, is malformed, or has more than max_pixels pixels.
  bool Open(std::string_view file, uint64_t max_pixels);

  int Width() const { return width_; }
  int Height() const { return height_; }
  // The JPEG composite as big as the picture (a thumbnail does not count); empty when none.
  std::string_view JpegComposite() const { return jpeg_; }
  // The visible raster layers over white. False when a layer cannot be decoded or none is there.
  bool Flatten(imaging::TIEBitmap& out) const;

 private:
  bool ReadAttributes(std::string_view body);
  bool ReadPalette(std::string_view body);
  bool ReadLayerBank(const Block& bank);
  bool ReadCompositeBank(std::string_view body);
  bool DrawLayer(const Layer& layer, imaging::TIEBitmap& canvas) const;

  bool v3_ = false;  // version 3 block headers
  uint64_t max_pixels_ = 0;
  int width_ = 0, height_ = 0, depth_ = 0;
  uint16_t compression_ = 0;  // of every channel
  bool grey_ = false;
  std::vector<imaging::TRGB> palette_;
  std::vector<Layer> layers_;
  std::string_view jpeg_;
};

// PSP's run-length code: a count above 128 repeats the next byte count - 128 times, any other
// count copies that many bytes. False when `in` does not give exactly out_size bytes.
bool UnpackRle(std::string_view in, size_t out_size, std::vector<uint8_t>& out);

}  // namespace pictavo::reader::psp
