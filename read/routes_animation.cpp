// Animated PNG and WebP: every frame, composed as a viewer shows it, becomes a page of out_file.
//
// WebP animations are composed by the engine's WebP codec (libwebp's animation decoder). libpng
// has no APNG support, so APNG frames are rebuilt here as standalone PNG streams (the frame's
// IHDR, the shared palette and colour chunks, its IDAT/fdAT data), decoded by the engine and
// composed with the frame's blend and dispose operations.
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <zlib.h>

#include "engine/tools/probes.h"
#include "imaging/ie_bitmap.h"
#include "imaging/ie_io.h"
#include "platform/bytes.h"
#include "platform/fs.h"
#include "read/read_routes.h"
#include "read/route_support.h"

namespace pictavo::reader {
namespace fs = std::filesystem;

namespace {

using imaging::TIEBitmap;
using imaging::TIEPixelFormat;
using imaging::TImageEnIO;

void PutBe32(std::vector<uint8_t>& out, uint32_t v) {
  for (int s = 24; s >= 0; s -= 8) out.push_back(static_cast<uint8_t>(v >> s));
}
void PutChunk(std::vector<uint8_t>& out, const char* type, const uint8_t* data, size_t size) {
  PutBe32(out, static_cast<uint32_t>(size));
  const size_t start = out.size();
  out.insert(out.end(), type, type + 4);
  if (size) out.insert(out.end(), data, data + size);
  PutBe32(out, static_cast<uint32_t>(crc32(0, out.data() + start, static_cast<uInt>(size + 4))));
}

struct ApngFrame {
  uint32_t width = 0, height = 0, x = 0, y = 0;
  uint8_t dispose = 0, blend = 0;
  std::vector<uint8_t> data;  // the concatenated compressed image data
};

struct Apng {
  std::vector<uint8_t> ihdr;
  std::vector<std::pair<std::string, std::vector<uint8_t>>> shared;  // PLTE, tRNS, colour chunks
  std::vector<ApngFrame> frames;
  uint32_t width = 0, height = 0;
};

bool ParseApng(const std::string& bytes, Apng& apng) {
  const auto* p = reinterpret_cast<const uint8_t*>(bytes.data());
  const size_t n = bytes.size();
  static const uint8_t kSig[8] = {137, 80, 78, 71, 13, 10, 26, 10};
  if (n < 8 || std::memcmp(p, kSig, 8) != 0) return false;
  ApngFrame* current = nullptr;
  for (size_t pos = 8; pos + 12 <= n;) {
    const uint32_t len = platform::LoadBe32(p + pos);
    if (len > n - pos - 12) return false;
    const std::string type(reinterpret_cast<const char*>(p + pos + 4), 4);
    const uint8_t* d = p + pos + 8;
    if (type == "IHDR" && len >= 13) {
      apng.ihdr.assign(d, d + len);
      apng.width = platform::LoadBe32(d);
      apng.height = platform::LoadBe32(d + 4);
    } else if (type == "fcTL" && len >= 26) {
      apng.frames.emplace_back();
      current = &apng.frames.back();
      current->width = platform::LoadBe32(d + 4);
      current->height = platform::LoadBe32(d + 8);
      current->x = platform::LoadBe32(d + 12);
      current->y = platform::LoadBe32(d + 16);
      current->dispose = d[24];
      current->blend = d[25];
    } else if (type == "IDAT") {
      // An IDAT before the first fcTL is a default image outside the animation.
      if (current) current->data.insert(current->data.end(), d, d + len);
    } else if (type == "fdAT" && len >= 4) {
      if (current) current->data.insert(current->data.end(), d + 4, d + len);
    } else if (type == "PLTE" || type == "tRNS" || type == "gAMA" || type == "cHRM" ||
               type == "sRGB" || type == "iCCP" || type == "sBIT") {
      apng.shared.emplace_back(type, std::vector<uint8_t>(d, d + len));
    } else if (type == "IEND") {
      break;
    }
    pos += 12 + len;
  }
  return !apng.ihdr.empty() && !apng.frames.empty();
}

std::vector<uint8_t> FramePng(const Apng& apng, const ApngFrame& f) {
  std::vector<uint8_t> out = {137, 80, 78, 71, 13, 10, 26, 10};
  std::vector<uint8_t> ihdr = apng.ihdr;
  for (int i = 0; i < 4; ++i) {
    ihdr[i] = static_cast<uint8_t>(f.width >> (24 - 8 * i));
    ihdr[4 + i] = static_cast<uint8_t>(f.height >> (24 - 8 * i));
  }
  PutChunk(out, "IHDR", ihdr.data(), ihdr.size());
  for (const auto& [type, data] : apng.shared)
    PutChunk(out, type.c_str(), data.data(), data.size());
  PutChunk(out, "IDAT", f.data.data(), f.data.size());
  PutChunk(out, "IEND", nullptr, 0);
  return out;
}

// Draws `frame` (decoded, any layout) onto the RGBA canvas at (x, y).
void Compose(TIEBitmap& canvas, const TIEBitmap& frame, int x0, int y0, bool over) {
  for (int y = 0; y < frame.Height(); ++y) {
    const int cy = y0 + y;
    if (cy < 0 || cy >= canvas.Height()) continue;
    for (int x = 0; x < frame.Width(); ++x) {
      const int cx = x0 + x;
      if (cx < 0 || cx >= canvas.Width()) continue;
      const imaging::TRGB src = frame.GetPixels(x, y);
      const int a = frame.GetAlpha(x, y);
      if (!over || a == 255) {
        canvas.SetPixels_ie24RGB(cx, cy, src);
        canvas.SetAlpha(cx, cy, static_cast<uint8_t>(a));
        continue;
      }
      if (a == 0) continue;
      const imaging::TRGB dst = canvas.GetPixels_ie24RGB(cx, cy);
      const int da = canvas.GetAlpha(cx, cy);
      const int out_a = a + da * (255 - a) / 255;
      auto mix = [&](int s, int d) {
        return static_cast<uint8_t>((s * a + d * da * (255 - a) / 255) / std::max(out_a, 1));
      };
      canvas.SetPixels_ie24RGB(cx, cy, {mix(src.r, dst.r), mix(src.g, dst.g), mix(src.b, dst.b)});
      canvas.SetAlpha(cx, cy, static_cast<uint8_t>(out_a));
    }
  }
}

int ReadApng(TZubRead& r) {
  const auto bytes = platform::ReadFileBytes(r.src_file);
  Apng apng;
  if (!bytes || !ParseApng(*bytes, apng)) return 1;
  if (apng.width == 0 || apng.height == 0 || apng.width > 65535 || apng.height > 65535) return 1;

  TIEBitmap canvas;
  canvas.SetLimits(r.picture_limits);
  if (!canvas
           .Allocate(static_cast<int>(apng.width), static_cast<int>(apng.height),
                     TIEPixelFormat::ie24RGB)
           .ok())
    return 1;
  canvas.Fill(0);
  canvas.AddAlphaChannel(0);

  Scratch pages(r, ".tif");
  TImageEnIO out(&canvas, r.hand_over);
  int written = 0;
  for (const ApngFrame& f : apng.frames) {
    TIEBitmap frame;
    frame.SetLimits(r.picture_limits);
    TImageEnIO io(&frame, r.hand_over);
    const std::vector<uint8_t> png = FramePng(apng, f);
    if (!io.LoadFromBuffer(png.data(), png.size()).ok() || frame.IsEmpty()) continue;
    const TIEBitmap before = f.dispose == 2 ? canvas : TIEBitmap();
    Compose(canvas, frame, static_cast<int>(f.x), static_cast<int>(f.y), f.blend == 1);
    if (out.InsertToFileTIFF(pages.path()).ok()) ++written;
    if (f.dispose == 1) {
      for (int y = 0; y < frame.Height(); ++y)
        for (int x = 0; x < frame.Width(); ++x) {
          const int cx = static_cast<int>(f.x) + x, cy = static_cast<int>(f.y) + y;
          if (cx >= canvas.Width() || cy >= canvas.Height()) continue;
          canvas.SetPixels_ie24RGB(cx, cy, {0, 0, 0});
          canvas.SetAlpha(cx, cy, 0);
        }
    } else if (f.dispose == 2) {
      canvas = before;
    }
  }
  if (written == 0) return 1;
  return SavePicture(r, pages.path());
}

}  // namespace

int apng_read(TZubRead& r) {
  if (tools::PngIsAnimated(r.src_file) && ReadApng(r) == 0) return 0;
  // Still pictures and WebP animations: the engine composes WebP frames itself.
  return SavePicture(r, r.src_file);
}

}  // namespace pictavo::reader
