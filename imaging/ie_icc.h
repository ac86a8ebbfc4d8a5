// TIEICC: one ICC colour profile (its bytes, checked by lcms2), and the process-wide
// colour-management switch.
//
// Colour management, when switched on:
//   on load  - a file whose embedded profile differs from sRGB has its pixels converted to sRGB
//              (CMYK files to RGB through their profile); the record then holds no profile, since
//              the pixels are sRGB now;
//   on save  - a record that carries a profile has the sRGB pixels converted into that profile
//              before they are encoded, and the profile is embedded.
// Switched off (the default): pixels are never converted; a profile read from a file stays in
// the record and is embedded again when the format can hold one (JPEG, PNG, TIFF, WebP, JP2).
//
// The switch is one atomic flag for the whole process. Each load or save reads it once at its
// start, so a save is never half managed; all workers of one job use the same setting.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "imaging/ie_bitmap.h"
#include "platform/status.h"

namespace pictavo::imaging {

void SetColorManagement(bool on);
bool ColorManagementEnabled();

enum class TIEColorSpaceClass { Unknown, Gray, RGB, CMYK, Lab, Other };

class TIEICC {
 public:
  TIEICC() = default;  // "Create": an empty profile

  pictavo::Status LoadFromFile(const std::string& path);
  // Takes profile bytes as found in a file; rejects what lcms2 cannot parse.
  pictavo::Status LoadFromBuffer(const uint8_t* data, size_t size);
  void Clear() { data_.clear(); }

  bool IsEmpty() const { return data_.empty(); }
  const std::vector<uint8_t>& Raw() const { return data_; }
  TIEColorSpaceClass ColorSpace() const;
  std::string Description() const;
  // True for profiles that describe sRGB (by description), which need no conversion.
  bool IsSRGB() const;

  // The built-in sRGB profile's bytes.
  static TIEICC SRGB();

  bool operator==(const TIEICC&) const = default;

 private:
  std::vector<uint8_t> data_;
};

// Converts `bmp` in place from the colour space of `profile` to sRGB (RGB layouts stay RGB,
// CMYK becomes 24-bit RGB, grey stays grey). Fails, leaving the bitmap as it was, when the
// profile does not fit the layout.
pictavo::Status TransformToSRGB(TIEBitmap& bmp, const TIEICC& profile);
// Converts sRGB pixels in place into `profile`'s space (RGB or grey profiles with the matching
// layout; CMYK profiles turn a 24-bit bitmap into CMYK).
pictavo::Status TransformFromSRGB(TIEBitmap& bmp, const TIEICC& profile);

}  // namespace pictavo::imaging
