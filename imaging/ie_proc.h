// TImageEnProc: processing operations on one bound bitmap, in place.
//
// The bitmap must outlive the processing object. Operations return a failure status on an
// unbound or empty bitmap and otherwise leave the bitmap in a valid state. Layout rules:
//  - colour operations work directly on ie24RGB, ie48RGB and on the palette of ie8p; grey
//    layouts stay grey when the operation keeps grey values grey and are widened to RGB
//    otherwise; ie1g and ieCMYK are widened to ie24RGB first;
//  - neighbourhood filters (blur, sharpen, presets) work on ie8g, ie16g, ie24RGB, ie48RGB and
//    ieCMYK; ie1g becomes ie8g and ie8p becomes ie24RGB first;
//  - the alpha plane is carried along by geometry and left alone by colour operations.
// No state is shared between objects: several workers may each run their own at once.
#pragma once

#include <array>
#include <cstdint>
#include <limits>

#include "imaging/ie_bitmap.h"
#include "imaging/quantize.h"
#include "platform/status.h"

namespace pictavo::imaging {

enum class TFlipDirection { fdHorizontal, fdVertical };

// Built-in convolution kernels of ApplyFilterPreset.
enum class TIEFilterPreset {
  fpBlur,         // 3x3 box
  fpSoften,       // 3x3 weighted (1 2 1)
  fpGaussian5,    // 5x5 binomial
  fpSharpen,      // 3x3, centre 5, 4-neighbours -1
  fpSharpenMore,  // 3x3, centre 9, 8-neighbours -1
  fpSharpen5,     // 5x5 unsharp-style kernel
  fpEdge,         // 3x3 Laplacian, 8-neighbours
  fpEdgeHorizontal,
  fpEdgeVertical,
  fpEmboss,    // offset by 128 so flat areas become mid grey
  fpHighPass,  // 5x5 high-pass, offset by 128
};

// A square kernel of odd size (3 or 5); out = sum(k * in) / divisor + bias.
struct TIEFilterKernel {
  int size = 3;
  std::array<int, 25> k{};
  int divisor = 1;
  int bias = 0;
};

struct TIEHistogram {
  std::array<uint32_t, 256> red{}, green{}, blue{}, gray{};
};

// Channel selection for GammaCorrect.
enum TIEChannel : unsigned {
  kChannelRed = 1,
  kChannelGreen = 2,
  kChannelBlue = 4,
  kChannelRGB = 7
};

class TImageEnProc {
 public:
  explicit TImageEnProc(TIEBitmap* bitmap = nullptr) : bitmap_(bitmap) {}
  void AttachBitmap(TIEBitmap* bitmap) { bitmap_ = bitmap; }
  TIEBitmap* Bitmap() const { return bitmap_; }

  // --- colour depth ---------------------------------------------------------------------
  pictavo::Status ConvertTo24Bit();
  // Reduces to at most num_colors colours. Up to 256 the result is ie8p (median-cut palette,
  // exact when the image has no more colours than that); above 256 it stays ie24RGB with each
  // channel quantised (from 32768 colours on: 5-6-5 "high colour").
  pictavo::Status ConvertTo(int num_colors,
                            TIEDitherMethod dither = TIEDitherMethod::ieFloydSteinberg);
  // Grey values (Rec. 601 luma) in the current layout: ie24RGB stays 24-bit with R = G = B,
  // ie8p greys its palette, ie48RGB stays 48-bit; grey layouts are unchanged.
  pictavo::Status ConvertToGray();
  // Two-level ie1g by threshold on luma: 0..255 explicit (luma >= threshold is white),
  // -1 automatic (Otsu), -2 the mean luma.
  pictavo::Status ConvertToBWThreshold(int threshold = -1);
  pictavo::Status ConvertToBWOrdered();          // 8x8 Bayer matrix
  pictavo::Status ConvertToBW_FloydSteinberg();  // error diffusion
  // Number of distinct colours (at 8 bits per channel); 0 for an empty bitmap. With
  // `stop_above`, counting stops once there are more than that many (the result is then
  // stop_above + 1): a photo is known to have over 256 after its first rows.
  int CalcImageNumColors(int stop_above = std::numeric_limits<int>::max()) const;

  // --- geometry -------------------------------------------------------------------------
  // A negative width or height keeps the aspect ratio from the other side.
  pictavo::Status Resample(int new_width, int new_height,
                           TResampleFilter filter = TResampleFilter::rfLanczos3);
  // Counter-clockwise by angle degrees, canvas enlarged to hold the result, uncovered area in
  // background. Multiples of 90 are exact and keep the layout. Other angles sample bilinearly
  // (nearest when antialias is false) and turn ie1g/ie8p into ie24RGB (ie8g stays ie8g when
  // the background is grey); with an alpha plane the uncovered area is transparent.
  pictavo::Status Rotate(double angle, bool antialias = true, TColor background = 0xFFFFFF);
  pictavo::Status Flip(TFlipDirection direction);
  // Removes borders of the background colour (within tolerance, 0..255 per channel). The
  // first overload takes the colour of the top-left pixel. An image made only of background
  // is left unchanged.
  pictavo::Status AutoCrop(int tolerance = 0);
  pictavo::Status AutoCrop(int tolerance, TColor background);
  // Skew of dark content (text lines, rules) in degrees within +-max_angle: positive when
  // the content is turned counter-clockwise, so Rotate(-SkewDetection()) straightens it.
  // 0 for an empty or blank image.
  double SkewDetection(double max_angle = 15.0) const;

  // --- tone and colour ------------------------------------------------------------------
  // -100..100: 0 none, 100 maximal (a threshold at mid grey), -100 flat mid grey.
  pictavo::Status Contrast(double amount);
  // Adds the offsets (-255..255) to the channels.
  pictavo::Status IntensityRGBAll(int red, int green, int blue);
  // out = in ^ (1 / gamma) on the selected channels: gamma above 1 brightens.
  pictavo::Status GammaCorrect(double gamma, unsigned channels = kChannelRGB);
  // hue in degrees (-180..180); saturation and luminance -100..100 (relative change).
  // With luminance 0 the HSL lightness of every pixel is kept.
  pictavo::Status HSLvar(int hue, int saturation, int luminance);
  pictavo::Status HSVvar(int hue, int saturation, int value);
  pictavo::Status Negative();
  // White patch: scales the channels so that the mean colour of the brightest 1% of the
  // pixels becomes neutral (as bright as its brightest channel).
  pictavo::Status WhiteBalance_AutoWhite();
  TIEHistogram GetHistogram() const;
  pictavo::Status ApplyFilterPreset(TIEFilterPreset preset);
  pictavo::Status ApplyFilter(const TIEFilterKernel& kernel);
  // Per-channel lookup tables (index = input value); the building block of tone actions.
  pictavo::Status ApplyLUT(const std::array<uint8_t, 256>& red,
                           const std::array<uint8_t, 256>& green,
                           const std::array<uint8_t, 256>& blue);
  // levels (2..256) values per channel, evenly spaced.
  pictavo::Status Posterize(int levels);

  // --- sharpness ------------------------------------------------------------------------
  // Gaussian blur; radius is the standard deviation in pixels (0 does nothing).
  pictavo::Status Blur(double radius);
  // 3x3 Laplacian sharpening; amount 1..100 is the strength in percent of the full kernel.
  pictavo::Status Sharpen(int amount = 50);
  // Classic unsharp mask: radius (Gaussian deviation), amount in percent, threshold in 8-bit
  // units below which differences are left alone.
  pictavo::Status UnsharpMask(double radius = 1.0, double amount = 100.0, int threshold = 0);
  // Unsharp mask whose strength falls as the measured edge contrast of the image rises.
  pictavo::Status AutoSharp();
  // ie1g: connected specks (8-neighbour) of either colour of at most max_size pixels take
  // the surrounding colour. Other layouts: a pixel that differs by more than 64 from every
  // one of its 8 neighbours takes their median.
  pictavo::Status RemoveIsolatedPixels(int max_size = 1);

 private:
  pictavo::Status Check() const;
  TIEBitmap* bitmap_ = nullptr;
};

}  // namespace pictavo::imaging
