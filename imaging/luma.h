// Rec. 601 luma (0.299 R + 0.587 G + 0.114 B), the one weighting the engine uses to turn colour
// into grey. It is computed in three arithmetics that do not agree to the last unit, and each
// result that a user sees was made with one of them, so each keeps its own name:
//   Luma601         real numbers, for measures and comparisons of the editing actions;
//   Luma601Fixed8   8.8 fixed point (weights 77, 150, 29 sum to 256, so white stays 255), for
//                   the engine's grey conversions and histograms, where it must be fast;
//   Luma601Rounded8 exact thousandths rounded half up, for the engine's own PGM writer.
// Luma601Thousandths is the exact integer value x 1000, for thresholds that must not round.
#pragma once

#include <cstdint>

namespace pictavo::imaging {

inline double Luma601(double r, double g, double b) {
  return 0.299 * r + 0.587 * g + 0.114 * b;
}

inline uint8_t Luma601Fixed8(int r, int g, int b) {
  return static_cast<uint8_t>((r * 77 + g * 150 + b * 29 + 128) >> 8);
}
// The same weights over 16-bit samples.
inline uint16_t Luma601Fixed16(uint32_t r, uint32_t g, uint32_t b) {
  return static_cast<uint16_t>((r * 77 + g * 150 + b * 29 + 128) >> 8);
}

inline int Luma601Thousandths(int r, int g, int b) {
  return 299 * r + 587 * g + 114 * b;
}

inline uint8_t Luma601Rounded8(int r, int g, int b) {
  return static_cast<uint8_t>((Luma601Thousandths(r, g, b) + 500) / 1000);
}

}  // namespace pictavo::imaging
