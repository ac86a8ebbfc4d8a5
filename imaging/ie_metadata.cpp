#include "imaging/ie_metadata.h"

#include <exiv2/exiv2.hpp>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <set>
#include <string>

#include "platform/text_encoding.h"

namespace pictavo::imaging::metadata {

namespace {

std::mutex g_xmp_mutex;
// exiv2 0.27 reads and writes XMP through the XMP toolkit, which is not safe for two threads at
// once even with the lock above (that one guards namespace registration only): two workers
// writing pictures with XMP failed now and then, and a failed read silently drops the
// metadata. Every exiv2 read and write therefore runs one at a time; it is a small part of a
// file's time.
std::mutex g_exiv2_mutex;

void LockXmp(void*, bool lock) {
  if (lock)
    g_xmp_mutex.lock();
  else
    g_xmp_mutex.unlock();
}

// exiv2's XMP toolkit needs one initialisation with a lock before workers use it; its log
// would otherwise print warnings about odd files on stderr.
void InitOnce() {
  static std::once_flag once;
  std::call_once(once, [] {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize(LockXmp, nullptr);
  });
}

// Tags of IFD0 that describe the pixel data of the file they sit in.
const std::set<std::string>& StructureTags() {
  static const std::set<std::string> tags = {"NewSubfileType",
                                             "SubfileType",
                                             "ImageWidth",
                                             "ImageLength",
                                             "BitsPerSample",
                                             "Compression",
                                             "PhotometricInterpretation",
                                             "FillOrder",
                                             "StripOffsets",
                                             "SamplesPerPixel",
                                             "RowsPerStrip",
                                             "StripByteCounts",
                                             "PlanarConfiguration",
                                             "XResolution",
                                             "YResolution",
                                             "ResolutionUnit",
                                             "TileWidth",
                                             "TileLength",
                                             "TileOffsets",
                                             "TileByteCounts",
                                             "ExtraSamples",
                                             "SampleFormat",
                                             "ColorMap",
                                             "Predictor",
                                             "JPEGTables",
                                             "YCbCrCoefficients",
                                             "YCbCrSubSampling",
                                             "YCbCrPositioning",
                                             "ReferenceBlackWhite",
                                             "InterColorProfile",
                                             "IPTCNAA",
                                             "XMLPacket",
                                             "ImageResources",
                                             "JPEGInterchangeFormat",
                                             "JPEGInterchangeFormatLength",
                                             "SubIFDs",
                                             "T4Options",
                                             "T6Options",
                                             "InkSet",
                                             "TransferFunction",
                                             "WhitePoint",
                                             "PrimaryChromaticities",
                                             "Orientation"};
  return tags;
}

bool KeepTag(const Exiv2::Exifdatum& d) {
  const std::string group = d.groupName();
  if (group.rfind("SubImage", 0) == 0 || group.rfind("SubThumb", 0) == 0 || group == "Thumbnail" ||
      (group.size() > 5 && group.rfind("Image", 0) == 0))
    return false;
  if (group == "Image") return StructureTags().count(d.tagName()) == 0;
  return true;
}

std::string Ucs2ToUtf8(const Exiv2::Value& v) {
  std::string bytes(static_cast<size_t>(v.size()), '\0');
  v.copy(reinterpret_cast<Exiv2::byte*>(bytes.data()), Exiv2::littleEndian);
  while (bytes.size() >= 2 && bytes[bytes.size() - 1] == 0 && bytes[bytes.size() - 2] == 0)
    bytes.resize(bytes.size() - 2);
  return platform::DecodeText(std::string("\xFF\xFE", 2) + bytes);
}

void SetUcs2(Exiv2::ExifData& ed, const char* key, const std::string& utf8) {
  std::string bytes = platform::EncodeUtf16LEWithBom(utf8).substr(2);
  bytes.append(2, '\0');
  Exiv2::Value::AutoPtr v = Exiv2::Value::create(Exiv2::unsignedByte);
  v->read(reinterpret_cast<const Exiv2::byte*>(bytes.data()), static_cast<long>(bytes.size()),
          Exiv2::littleEndian);
  ed[key].setValue(v.get());
}

std::string Text(const Exiv2::ExifData& ed, const char* key) {
  auto it = ed.findKey(Exiv2::ExifKey(key));
  if (it == ed.end()) return std::string();
  std::string s = it->toString();
  while (!s.empty() && (s.back() == '\0' || s.back() == ' ')) s.pop_back();
  return s;
}

std::string XpText(const Exiv2::ExifData& ed, const char* key) {
  auto it = ed.findKey(Exiv2::ExifKey(key));
  return it == ed.end() ? std::string() : Ucs2ToUtf8(it->value());
}

void ReadImpl(const uint8_t* data, size_t size, TIOParamsVals& p) {
  Exiv2::Image::AutoPtr image = Exiv2::ImageFactory::open(
      reinterpret_cast<const Exiv2::byte*>(data), static_cast<long>(size));
  if (!image.get()) return;
  image->readMetadata();
  Exiv2::ExifData ed = image->exifData();
  {
    Exiv2::ExifThumbC thumb(ed);
    Exiv2::DataBuf buf = thumb.copy();
    if (buf.size_ > 0 && std::string(thumb.mimeType()) == "image/jpeg")
      p.EXIF_Thumbnail.assign(buf.pData_, buf.pData_ + buf.size_);
  }
  const std::string orientation = Text(ed, "Exif.Image.Orientation");
  Exiv2::ExifData kept;
  for (const auto& d : ed)
    if (KeepTag(d)) kept.add(d);
  if (!kept.empty() || !orientation.empty()) {
    p.EXIF_HasEXIFData = true;
    p.EXIF_ImageDescription = Text(kept, "Exif.Image.ImageDescription");
    p.EXIF_Make = Text(kept, "Exif.Image.Make");
    p.EXIF_Model = Text(kept, "Exif.Image.Model");
    p.EXIF_DateTime = Text(kept, "Exif.Image.DateTime");
    p.EXIF_Copyright = Text(kept, "Exif.Image.Copyright");
    p.EXIF_XPTitle = XpText(kept, "Exif.Image.XPTitle");
    p.EXIF_XPSubject = XpText(kept, "Exif.Image.XPSubject");
    p.EXIF_XPKeywords = XpText(kept, "Exif.Image.XPKeywords");
    p.EXIF_XPComment = XpText(kept, "Exif.Image.XPComment");
    p.EXIF_XPAuthor = XpText(kept, "Exif.Image.XPAuthor");
    p.EXIF_Orientation = orientation.empty() ? 0 : std::atoi(orientation.c_str());
    if (!kept.empty()) {
      Exiv2::Blob blob;
      Exiv2::ExifParser::encode(blob, nullptr, 0, Exiv2::littleEndian, kept);
      p.EXIF_Raw.assign(blob.begin(), blob.end());
    }
  }
  for (const auto& d : image->iptcData()) {
    TIPTCItem item;
    item.record = d.record();
    item.dataset = d.tag();
    item.value.resize(static_cast<size_t>(d.size()));
    d.copy(reinterpret_cast<Exiv2::byte*>(item.value.data()), Exiv2::bigEndian);
    p.IPTC_Info.push_back(std::move(item));
  }
  p.XMP_Info = image->xmpPacket();
}

void MergeExif(Exiv2::ExifData& ed, const TIOParamsVals& p) {
  if (!p.EXIF_Raw.empty()) {
    Exiv2::ExifData src;
    Exiv2::ExifParser::decode(src, p.EXIF_Raw.data(), static_cast<uint32_t>(p.EXIF_Raw.size()));
    for (const auto& d : src) {
      if (!KeepTag(d)) continue;
      auto it = ed.findKey(Exiv2::ExifKey(d.key()));
      if (it != ed.end()) ed.erase(it);
      ed.add(d);
    }
  }
  const auto set_text = [&ed](const char* key, const std::string& v) {
    if (!v.empty()) ed[key] = v;
  };
  set_text("Exif.Image.ImageDescription", p.EXIF_ImageDescription);
  set_text("Exif.Image.Make", p.EXIF_Make);
  set_text("Exif.Image.Model", p.EXIF_Model);
  set_text("Exif.Image.DateTime", p.EXIF_DateTime);
  set_text("Exif.Image.Copyright", p.EXIF_Copyright);
  const std::pair<const char*, const std::string*> xp[] = {
      {"Exif.Image.XPTitle", &p.EXIF_XPTitle},
      {"Exif.Image.XPSubject", &p.EXIF_XPSubject},
      {"Exif.Image.XPKeywords", &p.EXIF_XPKeywords},
      {"Exif.Image.XPComment", &p.EXIF_XPComment},
      {"Exif.Image.XPAuthor", &p.EXIF_XPAuthor}};
  for (const auto& [key, value] : xp)
    if (!value->empty()) SetUcs2(ed, key, *value);
  if (p.EXIF_Orientation >= 1 && p.EXIF_Orientation <= 8)
    ed["Exif.Image.Orientation"] = static_cast<uint16_t>(p.EXIF_Orientation);
  if (!p.EXIF_Thumbnail.empty()) {
    Exiv2::ExifThumb thumb(ed);
    thumb.setJpegThumbnail(p.EXIF_Thumbnail.data(), static_cast<long>(p.EXIF_Thumbnail.size()));
  }
}

void WriteImpl(std::vector<uint8_t>& file, const TIOParamsVals& p) {
  Exiv2::Image::AutoPtr image =
      Exiv2::ImageFactory::open(file.data(), static_cast<long>(file.size()));
  if (!image.get()) throw Exiv2::Error(Exiv2::kerUnsupportedImageType);
  image->readMetadata();  // a TIFF brings its own structure tags, which must stay
  Exiv2::ExifData ed = image->exifData();
  if (p.EXIF_HasEXIFData) MergeExif(ed, p);
  image->setExifData(ed);
  Exiv2::IptcData id;
  for (const TIPTCItem& item : p.IPTC_Info) {
    Exiv2::IptcKey key(static_cast<uint16_t>(item.dataset), static_cast<uint16_t>(item.record));
    Exiv2::DataValue v(Exiv2::undefined);
    v.read(reinterpret_cast<const Exiv2::byte*>(item.value.data()),
           static_cast<long>(item.value.size()));
    id.add(key, &v);
  }
  image->setIptcData(id);
  if (!p.XMP_Info.empty()) {
    try {
      image->setXmpPacket(p.XMP_Info);
    } catch (const Exiv2::AnyError&) {
      // exiv2 refuses to parse many packets that other programs write and read (an element
      // given twice, say); such a packet goes on as the source held it where the format takes
      // it raw (JPEG, PNG), and must never cost the result its picture.
      image->clearXmpData();
      image->xmpPacket() = p.XMP_Info;
    }
    image->writeXmpFromPacket(true);
  }
  image->writeMetadata();
  Exiv2::BasicIo& io = image->io();
  io.seek(0, Exiv2::BasicIo::beg);
  Exiv2::DataBuf out = io.read(static_cast<long>(io.size()));
  file.assign(out.pData_, out.pData_ + out.size_);
}

}  // namespace

void ReadMetadata(const uint8_t* data, size_t size, TIOParamsVals& params) {
  InitOnce();
  params.ResetEXIF();
  params.IPTC_Info.clear();
  params.XMP_Info.clear();
  try {
    const std::lock_guard<std::mutex> one_at_a_time(g_exiv2_mutex);
    ReadImpl(data, size, params);
  } catch (...) {
    // Metadata is optional: a damaged block is dropped and the picture still loads.
    params.ResetEXIF();
    params.IPTC_Info.clear();
    params.XMP_Info.clear();
  }
}

bool HasMetadataToWrite(const TIOParamsVals& p) {
  return p.EXIF_HasEXIFData || !p.IPTC_Info.empty() || !p.XMP_Info.empty();
}

pictavo::Status WriteMetadata(std::vector<uint8_t>& file, const TIOParamsVals& params) {
  if (!HasMetadataToWrite(params)) return pictavo::Status::OK();
  InitOnce();
  std::vector<uint8_t> work = file;
  try {
    const std::lock_guard<std::mutex> one_at_a_time(g_exiv2_mutex);
    WriteImpl(work, params);
  } catch (const std::exception& e) {
    return pictavo::Status::Error(std::string("metadata cannot be written: ") + e.what());
  } catch (...) {
    return pictavo::Status::Error("metadata cannot be written");
  }
  file = std::move(work);
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::metadata
