#include "pipeline/naming_probe.h"

#include "imaging/codec_registry.h"

namespace pictavo::pipeline {
namespace {

std::optional<settings::ImageSize> Size(const std::string& path) {
  const std::optional<imaging::HeaderFacts> facts =
      imaging::ProbeHeaderFile(path, /*with_date=*/false);
  if (!facts) return std::nullopt;
  return settings::ImageSize{facts->width, facts->height};
}

std::optional<std::string> ExifDateTime(const std::string& path) {
  std::optional<imaging::HeaderFacts> facts = imaging::ProbeHeaderFile(path);
  if (!facts || facts->date_time.empty()) return std::nullopt;
  for (char& c : facts->date_time)
    if (c == ':') c = '-';
  return facts->date_time;
}

}  // namespace

const settings::ImageHeaderProbe& NamingProbe() {
  static const settings::ImageHeaderProbe probe{Size, imaging::ReadTiffTagFile, ExifDateTime};
  return probe;
}

}  // namespace pictavo::pipeline
