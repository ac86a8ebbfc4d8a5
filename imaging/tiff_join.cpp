#include "imaging/tiff_join.h"

#include <tiffio.h>

#include <cstdint>
#include <filesystem>
#include <memory>
#include <vector>

namespace pictavo::imaging {
namespace {

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};
using TiffFile = std::unique_ptr<TIFF, TiffCloser>;

template <typename T>
void CopyScalar(TIFF* in, TIFF* out, ttag_t tag) {
  T value;
  if (TIFFGetField(in, tag, &value)) TIFFSetField(out, tag, value);
}

// The tags a reader needs to decode the copied strips, and the page's description.
bool CopyTags(TIFF* in, TIFF* out) {
  uint32_t width = 0, height = 0;
  uint16_t spp = 1, bps = 1;
  if (!TIFFGetField(in, TIFFTAG_IMAGEWIDTH, &width) ||
      !TIFFGetField(in, TIFFTAG_IMAGELENGTH, &height))
    return false;
  TIFFGetFieldDefaulted(in, TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetFieldDefaulted(in, TIFFTAG_BITSPERSAMPLE, &bps);
  TIFFSetField(out, TIFFTAG_IMAGEWIDTH, width);
  TIFFSetField(out, TIFFTAG_IMAGELENGTH, height);
  TIFFSetField(out, TIFFTAG_SAMPLESPERPIXEL, spp);
  TIFFSetField(out, TIFFTAG_BITSPERSAMPLE, bps);
  for (ttag_t tag : {TIFFTAG_COMPRESSION, TIFFTAG_PHOTOMETRIC, TIFFTAG_PLANARCONFIG,
                     TIFFTAG_FILLORDER, TIFFTAG_ORIENTATION, TIFFTAG_RESOLUTIONUNIT,
                     TIFFTAG_PREDICTOR, TIFFTAG_SAMPLEFORMAT, TIFFTAG_INKSET})
    CopyScalar<uint16_t>(in, out, tag);
  CopyScalar<uint32_t>(in, out, TIFFTAG_ROWSPERSTRIP);
  CopyScalar<float>(in, out, TIFFTAG_XRESOLUTION);
  CopyScalar<float>(in, out, TIFFTAG_YRESOLUTION);
  CopyScalar<const char*>(in, out, TIFFTAG_SOFTWARE);
  uint16_t count = 0;
  uint16_t* extra = nullptr;
  if (TIFFGetField(in, TIFFTAG_EXTRASAMPLES, &count, &extra))
    TIFFSetField(out, TIFFTAG_EXTRASAMPLES, count, extra);
  uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  if (TIFFGetField(in, TIFFTAG_COLORMAP, &red, &green, &blue))
    TIFFSetField(out, TIFFTAG_COLORMAP, red, green, blue);
  uint32_t icc_len = 0;
  void* icc = nullptr;
  if (TIFFGetField(in, TIFFTAG_ICCPROFILE, &icc_len, &icc))
    TIFFSetField(out, TIFFTAG_ICCPROFILE, icc_len, icc);
  // JPEG-in-TIFF strips depend on shared tables that a raw copy would have to rebuild.
  uint16_t compression = COMPRESSION_NONE;
  TIFFGetFieldDefaulted(in, TIFFTAG_COMPRESSION, &compression);
  return compression != COMPRESSION_JPEG && compression != COMPRESSION_OJPEG;
}

bool CopyPage(TIFF* in, TIFF* out, uint16_t page, uint16_t pages) {
  if (TIFFIsTiled(in) || !CopyTags(in, out)) return false;
  TIFFSetField(out, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
  TIFFSetField(out, TIFFTAG_PAGENUMBER, page, pages);
  std::vector<uint8_t> buffer;
  const tstrip_t strips = TIFFNumberOfStrips(in);
  for (tstrip_t s = 0; s < strips; ++s) {
    const tmsize_t size = TIFFRawStripSize(in, s);
    if (size < 0) return false;
    buffer.resize(static_cast<size_t>(size));
    if (size > 0 && TIFFReadRawStrip(in, s, buffer.data(), size) != size) return false;
    if (TIFFWriteRawStrip(out, s, buffer.data(), size) != size) return false;
  }
  return TIFFWriteDirectory(out) != 0;
}

// A failed join is reported by its status; libtiff's messages would only reach the console.
int Quiet(TIFF*, void*, const char*, const char*, va_list) {
  return 1;
}

TiffFile Open(const std::string& path, const char* mode) {
  TIFFOpenOptions* options = TIFFOpenOptionsAlloc();
  TIFFOpenOptionsSetErrorHandlerExtR(options, Quiet, nullptr);
  TIFFOpenOptionsSetWarningHandlerExtR(options, Quiet, nullptr);
  TiffFile file(TIFFOpenExt(path.c_str(), mode, options));
  TIFFOpenOptionsFree(options);
  return file;
}

}  // namespace

pictavo::Status JoinTiffFiles(const std::vector<std::string>& inputs, const std::string& output) {
  namespace fs = std::filesystem;
  std::vector<TiffFile> files;
  uint32_t pages = 0;
  for (const std::string& input : inputs) {
    TiffFile in = Open(input, "rm");
    if (!in) return pictavo::Status::Error("cannot open " + input + " as TIFF");
    pages += TIFFNumberOfDirectories(in.get());
    files.push_back(std::move(in));
  }
  if (pages == 0 || pages > 0xFFFF) return pictavo::Status::Error("no pages to join");
  const std::string partial = output + ".join.tif";
  bool ok = true;
  {
    TiffFile out = Open(partial, "w");
    if (!out) return pictavo::Status::Error("cannot write " + partial);
    uint16_t page = 0;
    for (TiffFile& in : files) {
      do {
        ok = CopyPage(in.get(), out.get(), page++, static_cast<uint16_t>(pages));
      } while (ok && TIFFReadDirectory(in.get()));
      if (!ok) break;
    }
  }
  std::error_code ec;
  if (ok) fs::rename(partial, output, ec);
  if (!ok || ec) {
    fs::remove(partial, ec);
    return pictavo::Status::Error("the TIFF pages could not be joined into " + output);
  }
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging
