// Separable resampling with nearest, bilinear, bicubic (Catmull-Rom) and Lanczos-3 filters.
//
// Weights are computed once per output column and per output row. 8-bit samples use 14-bit
// fixed-point weights that sum exactly to one, so a constant image stays constant; 16-bit
// samples use float weights. Reductions by more than 3x first average k x k blocks (a box
// pre-shrink, k = floor(factor / 2)) and then apply the filter to the remaining factor of 2..3;
// this is what makes large reductions fast, at a cost only in the highest frequencies.
// Everything here works on caller-owned memory; safe to call from several workers at once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging {

// Interleaved planes of `channels` samples per pixel; strides are in bytes.
void ResamplePlane8(const uint8_t* src, int sw, int sh, size_t src_stride, int channels,
                    uint8_t* dst, int dw, int dh, size_t dst_stride, TResampleFilter filter);
void ResamplePlane16(const uint16_t* src, int sw, int sh, size_t src_stride, int channels,
                     uint16_t* dst, int dw, int dh, size_t dst_stride, TResampleFilter filter);

// Separable convolution of an 8-bit plane with a normalised odd-length kernel (the same kernel
// across and down), edges repeated; src and dst may not overlap. Used by the blurs.
void ConvolveSeparable8(const uint8_t* src, int w, int h, size_t src_stride, int channels,
                        uint8_t* dst, size_t dst_stride, const std::vector<double>& kernel);

// Resamples src into dst (reallocated), keeping the layout and resampling the alpha plane
// (colours are filtered premultiplied by alpha).
// ie1g is filtered as grey and thresholded; ie8p is filtered as RGB and mapped back to its
// palette (nearest entry); the nearest filter copies samples of both exactly.
pictavo::Status ResampleBitmap(const TIEBitmap& src, TIEBitmap& dst, int new_width, int new_height,
                               TResampleFilter filter);

}  // namespace pictavo::imaging
