#include "imaging/ie_io.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string_view>

#include "imaging/codec_registry.h"
#include "imaging/codecs/bmp_codec.h"
#include "imaging/codecs/gif_codec.h"
#include "imaging/codecs/pdf_writer.h"
#include "imaging/codecs/png_codec.h"
#include "imaging/codecs/tiff_codec.h"
#include "imaging/format_sniff.h"
#include "imaging/ie_icc.h"
#include "imaging/ie_metadata.h"
#include "platform/fs.h"
#include "platform/trouble.h"

namespace pictavo::imaging {

using codecs::LayoutBit;
using F = TIEPixelFormat;

namespace {

const CodecRow* FindRow(TIOFileType type) {
  return RowForType(type);
}

// Nearest layouts to try, in order, when a writer does not take a layout as it is.
constexpr F kFallbacks[][4] = {
    /* ieNull  */ {F::ieNull, F::ieNull, F::ieNull, F::ieNull},
    /* ie1g    */ {F::ie8g, F::ie24RGB, F::ie8p, F::ieNull},
    /* ie8g    */ {F::ie24RGB, F::ie16g, F::ie1g, F::ieNull},
    /* ie8p    */ {F::ie24RGB, F::ie8g, F::ie1g, F::ieNull},
    /* ie16g   */ {F::ie8g, F::ie48RGB, F::ie24RGB, F::ie1g},
    /* ie24RGB */ {F::ie8g, F::ie48RGB, F::ie1g, F::ieNull},
    /* ie48RGB */ {F::ie24RGB, F::ie16g, F::ie8g, F::ieNull},
    /* ieCMYK  */ {F::ie24RGB, F::ie8g, F::ie1g, F::ieNull},
};

// The layout a caller asks for by changing BitsPerSample / SamplesPerPixel after a load.
F RequestedLayout(const TIOParamsVals& p, F current) {
  const int bps = p.BitsPerSample, spp = p.SamplesPerPixel;
  if (spp == 1 && bps == 1) return F::ie1g;
  if (spp == 1 && bps <= 8) return current == F::ie8p ? F::ie8p : F::ie8g;
  if (spp == 1 && bps == 16) return F::ie16g;
  if (spp == 3 || spp == 4) {
    if (spp == 4 && p.TIFF_PhotometInterpret == ioTIFF_CMYK && p.FileType == TIOFileType::ioTIFF)
      return F::ieCMYK;
    return bps == 16 ? F::ie48RGB : F::ie24RGB;
  }
  return current;
}

bool Accepts(const CodecRow& row, F f) {
  return (row.layouts & LayoutBit(f)) != 0;
}

// Not flushed to disk: the rename alone keeps a half-written picture from appearing under the
// name, and the job pipeline saves into its scratch folder, placing results itself; a flush per
// picture costs more than encoding a small one.
pictavo::Status WriteAtomically(const std::string& path, const std::vector<uint8_t>& bytes) {
  return platform::WriteFileAtomic(
      path, std::string_view(reinterpret_cast<const char*>(bytes.data()), bytes.size()),
      /*flush_to_disk=*/false);
}

bool SameFileAsWritten(bool valid, const std::string& kept_path, std::uintmax_t kept_size,
                       std::filesystem::file_time_type kept_written, const std::string& path) {
  std::error_code ec;
  if (!valid || kept_path != path) return false;
  const std::uintmax_t size = std::filesystem::file_size(path, ec);
  if (ec || size != kept_size) return false;
  const auto written = std::filesystem::last_write_time(path, ec);
  return !ec && written == kept_written;
}

}  // namespace

HandOverCache::HandOverCache() = default;
HandOverCache::~HandOverCache() = default;

void HandOverCache::Forget() {
  valid_ = false;
  bitmap_.Clear();
}

TEightBitLoads::TEightBitLoads(HandOverCache& cache)
    : cache_(cache), previous_(cache.eight_bit_loads_) {
  cache_.eight_bit_loads_ = true;
}
TEightBitLoads::~TEightBitLoads() {
  cache_.eight_bit_loads_ = previous_;
}

TKeepSavesForNextLoad::TKeepSavesForNextLoad(HandOverCache& cache)
    : cache_(cache), previous_(cache.keep_saves_) {
  cache_.keep_saves_ = true;
}
TKeepSavesForNextLoad::~TKeepSavesForNextLoad() {
  cache_.keep_saves_ = previous_;
}

TImageEnIO::TImageEnIO(TIEBitmap* bitmap, HandOverCache* cache) : bmp_(bitmap), cache_(cache) {
  RememberLayout();
}
TImageEnIO::~TImageEnIO() = default;

void TImageEnIO::RememberLayout() {
  loaded_bps_ = params_.BitsPerSample;
  loaded_spp_ = params_.SamplesPerPixel;
}

void TImageEnIO::SetMetafileRasteriser(MetafileRasteriser rasteriser) {
  rasterise_metafile_ = std::move(rasteriser);
}

pictavo::Status TImageEnIO::ImportMetafile(const std::string& path, int width, int height) {
  if (!rasterise_metafile_)
    return pictavo::Status::Error("no metafile rasteriser is set up for this reader");
  const std::string picture = rasterise_metafile_(path, width, height);
  if (picture.empty()) return pictavo::Status::Error("the metafile could not be rasterised");
  return LoadFromFile(picture);
}

pictavo::Status TImageEnIO::Decode(const uint8_t* data, size_t size, bool params_only,
                                   bool with_metadata) {
  const TIOFileType type = SniffFormat(data, size);
  const CodecRow* row = FindRow(type);
  if (type == TIOFileType::ioWMF || type == TIOFileType::ioEMF)
    return pictavo::Status::Error("a metafile is rasterised with ImportMetafile, not loaded");
  if (!row || !row->decode) return pictavo::Status::Error("unknown or unsupported file format");

  // A load starts from fresh parameters; only the load options carry over.
  TIOParamsVals fresh;
  fresh.ImageIndex = params_.ImageIndex;
  fresh.JPEG_ScaleDenom = params_.JPEG_ScaleDenom;
  params_ = std::move(fresh);
  codecs::DecodeOptions opt;
  opt.params_only = params_only;
  opt.frame = params_.ImageIndex;
  opt.scale_denom = params_.JPEG_ScaleDenom;
  // Every decode, not only the pipeline's header check, stays within the job's pixel cap.
  static const PictureLimits kDefaults;
  opt.max_pixels =
      std::min(opt.max_pixels, (bmp_->Limits() ? *bmp_->Limits() : kDefaults).max_pixels);
  const bool managed = ColorManagementEnabled();
  opt.eight_bit = cache_ && cache_->eight_bit_loads_;
  opt.color_managed = managed;
  TIEBitmap decoded = bmp_->WorkBitmap();
  pictavo::Status st = row->decode(data, size, opt, params_only ? nullptr : &decoded, params_);
  if (!st.ok()) {
    if (!params_only) bmp_->Clear();
    return st;
  }
  if (with_metadata && (row->metadata || type == TIOFileType::ioPSD))
    metadata::ReadMetadata(data, size, params_);
  if (!params_only) {
    if (decoded.IsEmpty()) return pictavo::Status::Error("the file holds no picture");
    if (managed && !params_.ICC.IsEmpty() && !params_.ICC.IsSRGB() &&
        TransformToSRGB(decoded, params_.ICC).ok())
      params_.ICC.Clear();
    *bmp_ = std::move(decoded);
  }
  RememberLayout();
  return pictavo::Status::OK();
}

pictavo::Status TImageEnIO::LoadFromBuffer(const uint8_t* data, size_t size) {
  return Decode(data, size, false);
}

pictavo::Status TImageEnIO::ParamsFromBuffer(const uint8_t* data, size_t size) {
  return Decode(data, size, true);
}

pictavo::Status TImageEnIO::LoadFromFile(const std::string& path) {
  if (TakeHandOver(path, false)) return pictavo::Status::OK();
  pictavo::Status st = DecodeFile(path, false);
  // Why a stage that needed this picture failed, unless something more telling is known.
  if (!st.ok())
    platform::NoteTrouble(platform::Trouble::kDecoder, "the engine's decoder: " + st.message());
  return st;
}

pictavo::Status TImageEnIO::ParamsFromFile(const std::string& path) {
  if (TakeHandOver(path, true)) return pictavo::Status::OK();
  return DecodeFile(path, true);
}

pictavo::Status TImageEnIO::HeaderFromFile(const std::string& path) {
  return DecodeFile(path, true, false);
}

pictavo::Status TImageEnIO::DecodeFile(const std::string& path, bool params_only,
                                       bool with_metadata) {
  platform::MappedFile bytes;
  pictavo::Status st = bytes.Open(path, !params_only)
                           ? Decode(bytes.data(), bytes.size(), params_only, with_metadata)
                           : pictavo::Status::Error("cannot read " + path);
  if (bytes.CutShort()) st = pictavo::Status::Error(path + " was cut short while it was read");
  if (!st.ok() && !params_only) bmp_->Clear();
  return st;
}

// Makes the picture fit the writer: the layout the caller asked for, then the nearest layout
// the writer takes, the alpha plane composited onto white when the format has none, and the
// pixels converted into the attached profile when colour management is on. `use` ends up
// pointing at the bound bitmap when nothing had to change, else at `work`.
pictavo::Status TImageEnIO::PrepareForSave(TIOFileType type, TIEBitmap& work,
                                           const TIEBitmap*& use) {
  const CodecRow* row = FindRow(type);
  use = bmp_;
  if (bmp_->IsEmpty()) return pictavo::Status::Error("nothing to save: the bitmap is empty");
  const auto copy = [&]() {
    if (use != &work) {
      work = *bmp_;
      use = &work;
    }
  };
  // A layout change of the bound bitmap goes straight into `work`, without a copy as it is first.
  const auto convert = [&](F to) -> pictavo::Status {
    if (use == &work) return work.ConvertTo(to);
    if (auto st = work.ConvertFrom(*bmp_, to); !st.ok()) return st;
    use = &work;
    return pictavo::Status::OK();
  };
  F target = bmp_->PixelFormat();
  if (params_.BitsPerSample != loaded_bps_ || params_.SamplesPerPixel != loaded_spp_) {
    TIOParamsVals probe = params_;
    probe.FileType = type;
    target = RequestedLayout(probe, target);
  }
  if (type == TIOFileType::ioTIFF && params_.TIFF_PhotometInterpret == ioTIFF_CMYK &&
      params_.TIFF_Compression != TIOTIFFCompression::ioTIFF_JPEG)
    target = F::ieCMYK;
  if (!Accepts(*row, target)) {
    F chosen = F::ieNull;
    for (F f : kFallbacks[static_cast<int>(target)])
      if (f != F::ieNull && Accepts(*row, f)) {
        chosen = f;
        break;
      }
    // Nothing near: the writer's first layout in the order of this list.
    for (F f : {F::ie24RGB, F::ie8g, F::ie1g, F::ie8p, F::ie16g, F::ie48RGB, F::ieCMYK})
      if (chosen == F::ieNull && Accepts(*row, f)) chosen = f;
    target = chosen;
  }
  // Composited before any layout change, so a 1-bit or grey target sees the visible picture.
  if (!row->alpha && use->HasAlphaChannel()) {
    copy();
    work.RemoveAlphaChannel(0xFFFFFF);
  }
  const bool managed = ColorManagementEnabled() && !params_.ICC.IsEmpty();
  if (managed && target == F::ieCMYK && bmp_->PixelFormat() != F::ieCMYK &&
      params_.ICC.ColorSpace() == TIEColorSpaceClass::CMYK) {
    // The profile does the RGB to CMYK conversion itself.
    if (use->PixelFormat() != F::ie24RGB) {
      if (auto st = convert(F::ie24RGB); !st.ok()) return st;
    } else {
      copy();
    }
  } else if (target != bmp_->PixelFormat()) {
    if (auto st = convert(target); !st.ok()) return st;
  }
  // Writers that store alpha only beside RGB get RGB when the picture has alpha.
  if (row->alpha && row->alpha_rgb_only && use->HasAlphaChannel() &&
      use->PixelFormat() != F::ie24RGB && Accepts(*row, F::ie24RGB)) {
    if (auto st = convert(F::ie24RGB); !st.ok()) return st;
  }
  if (managed && !params_.ICC.IsSRGB()) {
    copy();
    (void)TransformFromSRGB(work, params_.ICC);  // a profile that does not fit is only embedded
  }
  return pictavo::Status::OK();
}

pictavo::Status TImageEnIO::Encode(TIOFileType type, std::vector<uint8_t>& out, bool release) {
  const CodecRow* row = FindRow(type);
  if (!row || !row->encode)
    return pictavo::Status::Error(std::string("the engine cannot write ") + FileTypeName(type));
  TIEBitmap work;
  const TIEBitmap* use = nullptr;
  if (auto st = PrepareForSave(type, work, use); !st.ok()) return st;
  // A copy made for this save is never needed afterwards; the bound bitmap only when asked.
  TIEBitmap* releasable = use == &work ? &work : release ? bmp_ : nullptr;
  const pictavo::Status st = type == TIOFileType::ioPNG && releasable
                                 ? codecs::EncodePNGReleasing(*releasable, params_, out)
                                 : row->encode(*use, params_, out);
  if (!st.ok()) return st;
  if (row->metadata) return metadata::WriteMetadata(out, params_);
  return pictavo::Status::OK();
}

pictavo::Status TImageEnIO::SaveToBuffer(TIOFileType type, std::vector<uint8_t>& out) {
  return Encode(type, out);
}

pictavo::Status TImageEnIO::SaveToFile(const std::string& path) {
  return Save(path, false);
}

pictavo::Status TImageEnIO::SaveToFileAndRelease(const std::string& path) {
  const pictavo::Status st = Save(path, true);
  bmp_->Clear();
  return st;
}

pictavo::Status TImageEnIO::Save(const std::string& path, bool release) {
  const TIOFileType type = FileTypeFromExtension(path);
  if (type == TIOFileType::ioUnknown)
    return pictavo::Status::Error("no writer for the extension of " + path);
  if (type == TIOFileType::ioPDF) {
    if (auto st = CreatePDFFile(path); !st.ok()) return st;
    if (auto st = SaveToPDF(); !st.ok()) {
      pdf_.reset();
      return st;
    }
    return ClosePDFFile();
  }
  std::vector<uint8_t> bytes;
  if (auto st = Encode(type, bytes, release); !st.ok()) return st;
  if (auto st = WriteAtomically(path, bytes); !st.ok()) return st;
  if (type == TIOFileType::ioTIFF && cache_ && cache_->keep_saves_)
    KeepForNextLoad(path, std::move(bytes));
  return pictavo::Status::OK();
}

void TImageEnIO::KeepForNextLoad(const std::string& path, std::vector<uint8_t> tiff) {
  HandOverCache& h = *cache_;
  h.Forget();
  // Only what a load gives back exactly: 24-bit RGB without alpha, written as 24-bit RGB with a
  // lossless compression, that a load would not colour-convert.
  if (bmp_->PixelFormat() != TIEPixelFormat::ie24RGB || bmp_->HasAlphaChannel()) return;
  TIEBitmap none;
  TImageEnIO probe(&none);
  if (!probe.ParamsFromBuffer(tiff.data(), tiff.size()).ok()) return;
  TIOParamsVals params = probe.Params();
  if (params.ImageCount != 1 || params.Width != bmp_->Width() || params.Height != bmp_->Height() ||
      params.BitsPerSample != 8 || params.SamplesPerPixel != 3 ||
      params.TIFF_Compression == TIOTIFFCompression::ioTIFF_JPEG)
    return;
  if (ColorManagementEnabled() && !params.ICC.IsEmpty() && !params.ICC.IsSRGB()) return;
  std::vector<uint8_t>().swap(tiff);  // gone before the copy: the peak is two pictures, not three
  std::error_code ec;
  h.size_ = std::filesystem::file_size(path, ec);
  if (ec) return;
  h.written_ = std::filesystem::last_write_time(path, ec);
  if (ec) return;
  h.bitmap_ = *bmp_;
  h.params_ = std::move(params);
  h.path_ = path;
  h.valid_ = true;
}

bool TImageEnIO::TakeHandOver(const std::string& path, bool params_only) {
  if (!cache_) return false;
  HandOverCache& h = *cache_;
  if (params_.ImageIndex != 0 || !SameFileAsWritten(h.valid_, h.path_, h.size_, h.written_, path))
    return false;
  TIOParamsVals params = h.params_;
  params.ImageIndex = params_.ImageIndex;
  params.JPEG_ScaleDenom = params_.JPEG_ScaleDenom;
  params_ = std::move(params);
  if (!params_only) {
    const PictureLimits* limits = bmp_->Limits();
    *bmp_ = std::move(h.bitmap_);
    bmp_->SetLimits(limits);  // the picture is handed over, not the limits of its saver
    h.valid_ = false;
  }
  RememberLayout();
  return true;
}

pictavo::Status TImageEnIO::SaveToFilePNG(const std::string& path) {
  std::vector<uint8_t> bytes;
  if (auto st = Encode(TIOFileType::ioPNG, bytes); !st.ok()) return st;
  return WriteAtomically(path, bytes);
}

pictavo::Status TImageEnIO::InsertToFileTIFF(const std::string& path) {
  auto existing = platform::ReadFileBytes(path);
  std::vector<uint8_t> bytes;
  if (!existing || existing->empty()) {
    if (auto st = Encode(TIOFileType::ioTIFF, bytes); !st.ok()) return st;
    return WriteAtomically(path, bytes);
  }
  bytes.assign(existing->begin(), existing->end());
  if (SniffFormat(bytes.data(), bytes.size()) != TIOFileType::ioTIFF)
    return pictavo::Status::Error(path + " is not a TIFF file");
  TIEBitmap work;
  const TIEBitmap* use = nullptr;
  if (auto st = PrepareForSave(TIOFileType::ioTIFF, work, use); !st.ok()) return st;
  if (auto st = codecs::AppendTIFF(*use, params_, bytes); !st.ok()) return st;
  return WriteAtomically(path, bytes);
}

pictavo::Status TImageEnIO::InsertToFileGIF(const std::string& path) {
  auto existing = platform::ReadFileBytes(path);
  std::vector<uint8_t> bytes;
  if (!existing || existing->empty()) {
    if (auto st = Encode(TIOFileType::ioGIF, bytes); !st.ok()) return st;
    return WriteAtomically(path, bytes);
  }
  bytes.assign(existing->begin(), existing->end());
  if (SniffFormat(bytes.data(), bytes.size()) != TIOFileType::ioGIF)
    return pictavo::Status::Error(path + " is not a GIF file");
  TIEBitmap work;
  const TIEBitmap* use = nullptr;
  if (auto st = PrepareForSave(TIOFileType::ioGIF, work, use); !st.ok()) return st;
  if (auto st = codecs::AppendGIF(*use, params_, bytes); !st.ok()) return st;
  return WriteAtomically(path, bytes);
}

pictavo::Status TImageEnIO::LoadFromFileBMPRAW(const std::string& path,
                                               const TIORawLayout& layout) {
  auto bytes = platform::ReadFileBytes(path);
  if (!bytes) {
    bmp_->Clear();
    return pictavo::Status::Error("cannot read " + path);
  }
  TIEBitmap decoded = bmp_->WorkBitmap();
  pictavo::Status st = codecs::DecodeRaw(reinterpret_cast<const uint8_t*>(bytes->data()),
                                         bytes->size(), layout, decoded);
  if (!st.ok()) {
    bmp_->Clear();
    return st;
  }
  params_ = TIOParamsVals();
  params_.Width = decoded.Width();
  params_.Height = decoded.Height();
  const int bpp = decoded.BitsPerPixel();
  params_.SamplesPerPixel = (layout.format == F::ie24RGB || layout.format == F::ie48RGB) ? 3
                            : layout.format == F::ieCMYK                                 ? 4
                                                                                         : 1;
  params_.BitsPerSample = bpp / params_.SamplesPerPixel;
  *bmp_ = std::move(decoded);
  RememberLayout();
  return pictavo::Status::OK();
}

pictavo::Status TImageEnIO::SaveToFileBMPRAW(const std::string& path, const TIORawLayout& layout) {
  if (bmp_->IsEmpty()) return pictavo::Status::Error("nothing to save: the bitmap is empty");
  const TIEBitmap* use = bmp_;
  TIEBitmap work;
  // Raw data has no alpha: it is composited onto white, as for the other formats without it.
  if (bmp_->HasAlphaChannel() || bmp_->PixelFormat() != layout.format) {
    work = *bmp_;
    if (work.HasAlphaChannel()) work.RemoveAlphaChannel(0xFFFFFF);
    if (auto st = work.ConvertTo(layout.format); !st.ok()) return st;
    use = &work;
  }
  std::vector<uint8_t> bytes;
  if (auto st = codecs::EncodeRaw(*use, layout, bytes); !st.ok()) return st;
  return WriteAtomically(path, bytes);
}

TIORawLayout RawLayoutFromSettings(int bits_per_channel, int row_align_bits, int order,
                                   int header_size) {
  TIORawLayout layout;
  layout.format = bits_per_channel == 1    ? TIEPixelFormat::ie1g
                  : bits_per_channel == 16 ? TIEPixelFormat::ie48RGB
                                           : TIEPixelFormat::ie24RGB;
  layout.row_align = row_align_bits >= 32 ? 4 : row_align_bits >= 16 ? 2 : 1;
  layout.bgr = order == 2;
  layout.header_bytes = header_size > 0 ? static_cast<uint64_t>(header_size) : 0;
  return layout;
}

pictavo::Status TImageEnIO::CreatePDFFile(const std::string& path) {
  pdf_ = std::make_unique<PdfWriter>(path);
  return pictavo::Status::OK();
}

pictavo::Status TImageEnIO::SaveToPDF() {
  if (!pdf_) return pictavo::Status::Error("no PDF file is open");
  if (bmp_->IsEmpty()) return pictavo::Status::Error("nothing to save: the bitmap is empty");
  return pdf_->AddPage(*bmp_, params_);
}

pictavo::Status TImageEnIO::ClosePDFFile() {
  if (!pdf_) return pictavo::Status::Error("no PDF file is open");
  pictavo::Status st = pdf_->Finish();
  pdf_.reset();
  return st;
}

}  // namespace pictavo::imaging
