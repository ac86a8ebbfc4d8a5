#include "imaging/ie_icc.h"

#include <lcms2.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <memory>

#include "platform/fs.h"

namespace pictavo::imaging {

namespace {

// The only process-wide state of the engine (see the header).
std::atomic<bool> g_color_management{false};

struct ProfileCloser {
  void operator()(void* p) const {
    if (p) cmsCloseProfile(p);
  }
};
using ProfilePtr = std::unique_ptr<void, ProfileCloser>;

struct TransformDeleter {
  void operator()(void* t) const {
    if (t) cmsDeleteTransform(t);
  }
};
using TransformPtr = std::unique_ptr<void, TransformDeleter>;

ProfilePtr Open(const std::vector<uint8_t>& data) {
  if (data.empty()) return ProfilePtr();
  // A context per call keeps lcms2's error handler from being shared between workers.
  return ProfilePtr(
      cmsOpenProfileFromMemTHR(nullptr, data.data(), static_cast<cmsUInt32Number>(data.size())));
}

TIEColorSpaceClass ClassOf(cmsColorSpaceSignature sig) {
  switch (sig) {
    case cmsSigGrayData:
      return TIEColorSpaceClass::Gray;
    case cmsSigRgbData:
      return TIEColorSpaceClass::RGB;
    case cmsSigCmykData:
      return TIEColorSpaceClass::CMYK;
    case cmsSigLabData:
      return TIEColorSpaceClass::Lab;
    default:
      return TIEColorSpaceClass::Other;
  }
}

// Runs `xform` over every row; rows are independent so this is a plain loop.
void ApplyRows(void* xform, const TIEBitmap& src, TIEBitmap& dst) {
  for (int y = 0; y < src.Height(); ++y) {
    cmsDoTransform(xform, src.Scanline(y), dst.Scanline(y),
                   static_cast<cmsUInt32Number>(src.Width()));
  }
}

// Runs the transform over the whole bitmap, in place when the layout stays, else into a new
// bitmap of `out_fmt` that replaces it (with the alpha plane when `keep_alpha`).
pictavo::Status ApplyTransform(void* xform, TIEBitmap& bmp, TIEPixelFormat out_fmt,
                               bool keep_alpha) {
  if (out_fmt == bmp.PixelFormat()) {
    ApplyRows(xform, bmp, bmp);
    return pictavo::Status::OK();
  }
  TIEBitmap dst = bmp.WorkBitmap();
  if (auto st = dst.Allocate(bmp.Width(), bmp.Height(), out_fmt); !st.ok()) return st;
  ApplyRows(xform, bmp, dst);
  if (keep_alpha && bmp.HasAlphaChannel()) {
    dst.AddAlphaChannel();
    for (int y = 0; y < bmp.Height(); ++y)
      std::copy_n(bmp.AlphaScanline(y), bmp.Width(), dst.AlphaScanline(y));
  }
  bmp = std::move(dst);
  return pictavo::Status::OK();
}

}  // namespace

void SetColorManagement(bool on) {
  g_color_management.store(on);
}
bool ColorManagementEnabled() {
  return g_color_management.load();
}

pictavo::Status TIEICC::LoadFromFile(const std::string& path) {
  auto bytes = platform::ReadFileBytes(path);
  if (!bytes) return pictavo::Status::Error("cannot read colour profile " + path);
  return LoadFromBuffer(reinterpret_cast<const uint8_t*>(bytes->data()), bytes->size());
}

pictavo::Status TIEICC::LoadFromBuffer(const uint8_t* data, size_t size) {
  std::vector<uint8_t> copy(data, data + size);
  if (!Open(copy)) return pictavo::Status::Error("not a valid ICC profile");
  data_ = std::move(copy);
  return pictavo::Status::OK();
}

TIEColorSpaceClass TIEICC::ColorSpace() const {
  ProfilePtr p = Open(data_);
  if (!p) return TIEColorSpaceClass::Unknown;
  return ClassOf(cmsGetColorSpace(p.get()));
}

std::string TIEICC::Description() const {
  ProfilePtr p = Open(data_);
  if (!p) return std::string();
  char buf[256] = {};
  cmsGetProfileInfoASCII(p.get(), cmsInfoDescription, "en", "US", buf, sizeof buf);
  return buf;
}

bool TIEICC::IsSRGB() const {
  std::string d = Description();
  std::transform(d.begin(), d.end(), d.begin(), [](unsigned char c) { return std::tolower(c); });
  return d.find("srgb") != std::string::npos;
}

TIEICC TIEICC::SRGB() {
  TIEICC out;
  ProfilePtr p(cmsCreate_sRGBProfile());
  cmsUInt32Number size = 0;
  if (p && cmsSaveProfileToMem(p.get(), nullptr, &size) && size > 0) {
    out.data_.resize(size);
    if (!cmsSaveProfileToMem(p.get(), out.data_.data(), &size)) out.data_.clear();
  }
  return out;
}

pictavo::Status TransformToSRGB(TIEBitmap& bmp, const TIEICC& profile) {
  ProfilePtr in = Open(profile.Raw());
  if (!in) return pictavo::Status::Error("colour profile cannot be opened");
  const TIEColorSpaceClass cls = ClassOf(cmsGetColorSpace(in.get()));
  const TIEPixelFormat fmt = bmp.PixelFormat();
  cmsUInt32Number in_type = 0, out_type = 0;
  TIEPixelFormat out_fmt = fmt;
  ProfilePtr out;
  if (cls == TIEColorSpaceClass::RGB && fmt == TIEPixelFormat::ie24RGB) {
    in_type = out_type = TYPE_RGB_8;
    out.reset(cmsCreate_sRGBProfile());
  } else if (cls == TIEColorSpaceClass::RGB && fmt == TIEPixelFormat::ie48RGB) {
    in_type = out_type = TYPE_RGB_16;
    out.reset(cmsCreate_sRGBProfile());
  } else if (cls == TIEColorSpaceClass::Gray && fmt == TIEPixelFormat::ie8g) {
    in_type = out_type = TYPE_GRAY_8;
    // sRGB's tone curve as a grey profile.
    cmsToneCurve* curve = cmsBuildGamma(nullptr, 2.2);
    out.reset(cmsCreateGrayProfile(cmsD50_xyY(), curve));
    cmsFreeToneCurve(curve);
  } else if (cls == TIEColorSpaceClass::CMYK && fmt == TIEPixelFormat::ieCMYK) {
    in_type = TYPE_CMYK_8;  // our CMYK is 0 = no ink, as lcms2 expects
    out_type = TYPE_RGB_8;
    out_fmt = TIEPixelFormat::ie24RGB;
    out.reset(cmsCreate_sRGBProfile());
  } else {
    return pictavo::Status::Error("colour profile does not match the picture's layout");
  }
  TransformPtr xf(cmsCreateTransform(in.get(), in_type, out.get(), out_type, INTENT_PERCEPTUAL, 0));
  if (!xf) return pictavo::Status::Error("colour transform cannot be built");
  return ApplyTransform(xf.get(), bmp, out_fmt, /*keep_alpha=*/true);
}

pictavo::Status TransformFromSRGB(TIEBitmap& bmp, const TIEICC& profile) {
  ProfilePtr out = Open(profile.Raw());
  if (!out) return pictavo::Status::Error("colour profile cannot be opened");
  const TIEColorSpaceClass cls = ClassOf(cmsGetColorSpace(out.get()));
  const TIEPixelFormat fmt = bmp.PixelFormat();
  cmsUInt32Number in_type = 0, out_type = 0;
  TIEPixelFormat out_fmt = fmt;
  ProfilePtr in;
  if (cls == TIEColorSpaceClass::RGB && fmt == TIEPixelFormat::ie24RGB) {
    in_type = out_type = TYPE_RGB_8;
    in.reset(cmsCreate_sRGBProfile());
  } else if (cls == TIEColorSpaceClass::RGB && fmt == TIEPixelFormat::ie48RGB) {
    in_type = out_type = TYPE_RGB_16;
    in.reset(cmsCreate_sRGBProfile());
  } else if (cls == TIEColorSpaceClass::CMYK && fmt == TIEPixelFormat::ie24RGB) {
    in_type = TYPE_RGB_8;
    out_type = TYPE_CMYK_8;
    out_fmt = TIEPixelFormat::ieCMYK;
    in.reset(cmsCreate_sRGBProfile());
  } else {
    return pictavo::Status::Error("colour profile does not match the picture's layout");
  }
  TransformPtr xf(cmsCreateTransform(in.get(), in_type, out.get(), out_type, INTENT_PERCEPTUAL, 0));
  if (!xf) return pictavo::Status::Error("colour transform cannot be built");
  return ApplyTransform(xf.get(), bmp, out_fmt, /*keep_alpha=*/false);
}

}  // namespace pictavo::imaging
