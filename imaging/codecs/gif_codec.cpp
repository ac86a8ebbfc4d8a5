#include "imaging/codecs/gif_codec.h"

#include <gif_lib.h>

#include <algorithm>
#include <cstdlib>
#include <map>

#include "platform/bytes.h"

namespace pictavo::imaging::codecs {

namespace {

// giflib's message for an error code; it has none (a null pointer) for codes outside its table,
// which a damaged file can leave behind.
const char* GifReason(int code) {
  const char* text = GifErrorString(code);
  return text ? text : "unknown error";
}

struct MemIn {
  const uint8_t* data;
  size_t size;
  size_t pos;
};

int ReadMem(GifFileType* gif, GifByteType* buf, int len) {
  auto* in = static_cast<MemIn*>(gif->UserData);
  const size_t k = std::min(static_cast<size_t>(std::max(len, 0)), in->size - in->pos);
  std::memcpy(buf, in->data + in->pos, k);
  in->pos += k;
  return static_cast<int>(k);
}

int WriteVec(GifFileType* gif, const GifByteType* buf, int len) {
  auto* out = static_cast<std::vector<uint8_t>*>(gif->UserData);
  out->insert(out->end(), buf, buf + len);
  return len;
}

struct GifCloser {
  void operator()(GifFileType* g) const {
    int err = 0;
    if (g) DGifCloseFile(g, &err);
  }
};
using GifIn = std::unique_ptr<GifFileType, GifCloser>;

const ColorMapObject* MapOf(const GifFileType* gif, const GifImageDesc& d) {
  return d.ColorMap ? d.ColorMap : gif->SColorMap;
}

// Reads one frame's indices into `pixels` (width x height, interlace undone).
bool ReadFrame(GifFileType* gif, const GifImageDesc& d, std::vector<uint8_t>& pixels) {
  pixels.assign(static_cast<size_t>(d.Width) * d.Height, 0);
  if (d.Interlace) {
    static const int start[] = {0, 4, 2, 1}, step[] = {8, 8, 4, 2};
    for (int pass = 0; pass < 4; ++pass)
      for (int y = start[pass]; y < d.Height; y += step[pass])
        if (DGifGetLine(gif, pixels.data() + static_cast<size_t>(y) * d.Width, d.Width) != GIF_OK)
          return false;
  } else {
    for (int y = 0; y < d.Height; ++y)
      if (DGifGetLine(gif, pixels.data() + static_cast<size_t>(y) * d.Width, d.Width) != GIF_OK)
        return false;
  }
  return true;
}

bool SkipFrame(GifFileType* gif) {
  int code_size = 0;
  GifByteType* block = nullptr;
  if (DGifGetCode(gif, &code_size, &block) != GIF_OK) return false;
  while (block)
    if (DGifGetCodeNext(gif, &block) != GIF_OK) return false;
  return true;
}

struct Canvas {
  int w = 0, h = 0;
  std::vector<uint8_t> rgb, alpha;
};

void Paint(Canvas& c, const GifImageDesc& d, const std::vector<uint8_t>& px,
           const ColorMapObject* map, int transparent) {
  for (int y = 0; y < d.Height; ++y) {
    const int cy = d.Top + y;
    if (cy < 0 || cy >= c.h) continue;
    for (int x = 0; x < d.Width; ++x) {
      const int cx = d.Left + x;
      if (cx < 0 || cx >= c.w) continue;
      const int idx = px[static_cast<size_t>(y) * d.Width + x];
      if (idx == transparent) continue;
      const size_t o = static_cast<size_t>(cy) * c.w + cx;
      GifColorType col{0, 0, 0};
      if (map && idx < map->ColorCount) col = map->Colors[idx];
      c.rgb[3 * o] = col.Red, c.rgb[3 * o + 1] = col.Green, c.rgb[3 * o + 2] = col.Blue;
      c.alpha[o] = 255;
    }
  }
}

void ClearRect(Canvas& c, const GifImageDesc& d) {
  for (int y = std::max(0, d.Top); y < std::min(c.h, d.Top + d.Height); ++y)
    for (int x = std::max(0, d.Left); x < std::min(c.w, d.Left + d.Width); ++x) {
      const size_t o = static_cast<size_t>(y) * c.w + x;
      c.rgb[3 * o] = c.rgb[3 * o + 1] = c.rgb[3 * o + 2] = 0;
      c.alpha[o] = 0;
    }
}

// Palette and indices of a bitmap for GIF; `transparent` gets the index used for alpha < 128.
struct Indexed {
  std::vector<GifColorType> palette;
  std::vector<uint8_t> pixels;
  int transparent = -1;
};

Indexed ToIndexed(const TIEBitmap& bmp, const TIOParamsVals& params) {
  Indexed out;
  const int w = bmp.Width(), h = bmp.Height();
  out.pixels.resize(static_cast<size_t>(w) * h);
  const bool alpha = bmp.HasAlphaChannel();
  switch (bmp.PixelFormat()) {
    case TIEPixelFormat::ie8p:
      for (const TRGB& c : bmp.Palette()) out.palette.push_back(GifColorType{c.r, c.g, c.b});
      for (int y = 0; y < h; ++y)
        std::memcpy(&out.pixels[static_cast<size_t>(y) * w], bmp.Scanline(y), w);
      break;
    case TIEPixelFormat::ie8g:
      for (int i = 0; i < 256; ++i)
        out.palette.push_back(GifColorType{uint8_t(i), uint8_t(i), uint8_t(i)});
      for (int y = 0; y < h; ++y)
        std::memcpy(&out.pixels[static_cast<size_t>(y) * w], bmp.Scanline(y), w);
      break;
    case TIEPixelFormat::ie1g:
      out.palette = {GifColorType{0, 0, 0}, GifColorType{255, 255, 255}};
      for (int y = 0; y < h; ++y)
        for (int x = 0; x < w; ++x)
          out.pixels[static_cast<size_t>(y) * w + x] = bmp.GetPixels_ie1g(x, y);
      break;
    default: {
      // Exact palette when the picture has few colours, else a 6x7x6 colour cube (the
      // program reduces colours itself before saving GIF; this only keeps odd callers working).
      std::map<uint32_t, int> colours;
      const int limit = alpha ? 255 : 256;
      std::vector<uint8_t> rgb(static_cast<size_t>(w) * 3);
      bool exact = true;
      for (int y = 0; y < h && exact; ++y) {
        RowToRGB(bmp, y, rgb.data());
        for (int x = 0; x < w; ++x) {
          const uint32_t key = rgb[3 * x] << 16 | rgb[3 * x + 1] << 8 | rgb[3 * x + 2];
          if (colours.emplace(key, 0).second && static_cast<int>(colours.size()) > limit) {
            exact = false;
            break;
          }
        }
      }
      if (exact) {
        for (auto& [key, index] : colours) {
          index = static_cast<int>(out.palette.size());
          out.palette.push_back(GifColorType{uint8_t(key >> 16), uint8_t(key >> 8), uint8_t(key)});
        }
      } else {
        for (int r = 0; r < 6; ++r)
          for (int g = 0; g < 7; ++g)
            for (int b = 0; b < 6; ++b)
              out.palette.push_back(
                  GifColorType{uint8_t(r * 51), uint8_t(g * 255 / 6), uint8_t(b * 51)});
      }
      for (int y = 0; y < h; ++y) {
        RowToRGB(bmp, y, rgb.data());
        for (int x = 0; x < w; ++x) {
          const uint8_t r = rgb[3 * x], g = rgb[3 * x + 1], b = rgb[3 * x + 2];
          out.pixels[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(
              exact ? colours[r << 16 | g << 8 | b]
                    : ((r * 5 + 127) / 255) * 42 + ((g * 6 + 127) / 255) * 6 + (b * 5 + 127) / 255);
        }
      }
    }
  }
  if (out.palette.empty()) out.palette.push_back(GifColorType{0, 0, 0});
  if (out.palette.size() > 256) out.palette.resize(256);
  out.transparent = params.GIF_TransparentIndex;
  if (alpha) {
    if (out.transparent < 0) {
      if (out.palette.size() < 256) {
        out.transparent = static_cast<int>(out.palette.size());
        out.palette.push_back(GifColorType{255, 255, 255});
      } else {
        out.transparent = 255;
      }
    }
    for (int y = 0; y < h; ++y) {
      const uint8_t* a = bmp.AlphaScanline(y);
      for (int x = 0; x < w; ++x)
        if (a[x] < 128)
          out.pixels[static_cast<size_t>(y) * w + x] = static_cast<uint8_t>(out.transparent);
    }
  }
  // GIF colour tables hold a power of two entries.
  size_t n = 2;
  while (n < out.palette.size()) n *= 2;
  out.palette.resize(n, GifColorType{0, 0, 0});
  return out;
}

// Deep copy of a frame read by DGifSlurp, its extension blocks (timing, loop count,
// comments) included; giflib's own copy does not keep them on every version.
bool CopyFrame(GifFileType* gif, const SavedImage& from) {
  SavedImage* to = GifMakeSavedImage(gif, nullptr);
  if (!to) return false;
  to->ImageDesc = from.ImageDesc;
  to->ImageDesc.ColorMap = nullptr;
  if (from.ImageDesc.ColorMap)
    to->ImageDesc.ColorMap =
        GifMakeMapObject(from.ImageDesc.ColorMap->ColorCount, from.ImageDesc.ColorMap->Colors);
  const size_t n = static_cast<size_t>(from.ImageDesc.Width) * from.ImageDesc.Height;
  to->RasterBits = static_cast<GifByteType*>(std::malloc(std::max<size_t>(n, 1)));
  if (!to->RasterBits) return false;
  if (from.RasterBits) std::memcpy(to->RasterBits, from.RasterBits, n);
  for (int i = 0; i < from.ExtensionBlockCount; ++i) {
    const ExtensionBlock& e = from.ExtensionBlocks[i];
    if (GifAddExtensionBlock(&to->ExtensionBlockCount, &to->ExtensionBlocks, e.Function,
                             e.ByteCount, e.Bytes) != GIF_OK)
      return false;
  }
  return true;
}

pictavo::Status Write(const GifFileType* in, const TIEBitmap& bmp, const TIOParamsVals& params,
                      std::vector<uint8_t>& out) {
  Indexed ix = ToIndexed(bmp, params);
  std::vector<uint8_t> buf;
  int err = 0;
  GifFileType* gif = EGifOpen(&buf, WriteVec, &err);
  if (!gif) return pictavo::Status::Error("GIF encoder failed");
  ColorMapObject* map = GifMakeMapObject(static_cast<int>(ix.palette.size()), ix.palette.data());
  if (in) {
    gif->SWidth = std::max(in->SWidth, bmp.Width());
    gif->SHeight = std::max(in->SHeight, bmp.Height());
    gif->SColorResolution = in->SColorResolution;
    gif->SBackGroundColor = in->SBackGroundColor;
    if (in->SColorMap)
      gif->SColorMap = GifMakeMapObject(in->SColorMap->ColorCount, in->SColorMap->Colors);
    for (int i = 0; i < in->ImageCount; ++i) CopyFrame(gif, in->SavedImages[i]);
    for (int i = 0; i < in->ExtensionBlockCount; ++i) {
      const ExtensionBlock& e = in->ExtensionBlocks[i];
      GifAddExtensionBlock(&gif->ExtensionBlockCount, &gif->ExtensionBlocks, e.Function,
                           e.ByteCount, e.Bytes);
    }
  } else {
    gif->SWidth = bmp.Width();
    gif->SHeight = bmp.Height();
    gif->SColorResolution = 8;
    gif->SBackGroundColor = 0;
    gif->SColorMap = GifMakeMapObject(map->ColorCount, map->Colors);
  }
  SavedImage* frame = GifMakeSavedImage(gif, nullptr);
  frame->ImageDesc.Left = frame->ImageDesc.Top = 0;
  frame->ImageDesc.Width = bmp.Width();
  frame->ImageDesc.Height = bmp.Height();
  frame->ImageDesc.Interlace = false;
  frame->ImageDesc.ColorMap = in ? map : nullptr;
  if (!in) GifFreeMapObject(map);
  frame->RasterBits = static_cast<GifByteType*>(std::malloc(ix.pixels.size()));
  std::memcpy(frame->RasterBits, ix.pixels.data(), ix.pixels.size());
  const bool first = !in || in->ImageCount == 0;
  if (first && params.GIF_Loop >= 0) {
    // NETSCAPE2.0 application block, attached to the first frame.
    static const GifByteType app[] = {'N', 'E', 'T', 'S', 'C', 'A', 'P', 'E', '2', '.', '0'};
    GifByteType loop[] = {1, static_cast<GifByteType>(params.GIF_Loop & 0xFF),
                          static_cast<GifByteType>((params.GIF_Loop >> 8) & 0xFF)};
    GifAddExtensionBlock(&frame->ExtensionBlockCount, &frame->ExtensionBlocks,
                         APPLICATION_EXT_FUNC_CODE, sizeof app, const_cast<GifByteType*>(app));
    GifAddExtensionBlock(&frame->ExtensionBlockCount, &frame->ExtensionBlocks,
                         CONTINUE_EXT_FUNC_CODE, sizeof loop, loop);
  }
  if (params.GIF_DelayTime > 0 || ix.transparent >= 0 || in) {
    GraphicsControlBlock gcb{};
    gcb.DisposalMode = in ? DISPOSE_BACKGROUND : DISPOSAL_UNSPECIFIED;
    gcb.DelayTime = std::max(0, params.GIF_DelayTime);
    gcb.TransparentColor = ix.transparent >= 0 ? ix.transparent : NO_TRANSPARENT_COLOR;
    GifByteType ext[4];
    const size_t len = EGifGCBToExtension(&gcb, ext);
    GifAddExtensionBlock(&frame->ExtensionBlockCount, &frame->ExtensionBlocks,
                         GRAPHICS_EXT_FUNC_CODE, static_cast<int>(len), ext);
  }
  // EGifSpew closes the encoder and frees it, but giflib 5.2.1 leaves the frames it wrote, and
  // replaces the screen colour map by a copy of it without freeing the one it was given.
  GifFileType frames{};
  frames.SavedImages = gif->SavedImages;
  frames.ImageCount = gif->ImageCount;
  ColorMapObject* const screen_map = gif->SColorMap;
  if (EGifSpew(gif) != GIF_OK) return pictavo::Status::Error("GIF encoder failed");
  GifFreeSavedImages(&frames);
  GifFreeMapObject(screen_map);
  out = std::move(buf);
  return pictavo::Status::OK();
}

struct MapFree {
  void operator()(ColorMapObject* m) const { GifFreeMapObject(m); }
};

// What the walk through the records gathers: the screen painted so far and the frame asked for.
struct FrameScan {
  Canvas canvas;
  bool canvas_ready = false;
  std::vector<uint8_t> pixels;
  GifImageDesc target_desc{};
  std::vector<uint8_t> target_pixels;
  std::unique_ptr<ColorMapObject, MapFree> target_map;
  int frames = 0;
  TGIFFrameInfo pending;  // the graphics control for the next frame
  bool have_target = false;
};

// An extension record's blocks: the next frame's graphics control and the NETSCAPE loop count.
bool ReadExtension(GifFileType* gif, TGIFFrameInfo& pending, TIOParamsVals& params) {
  int code = 0;
  GifByteType* ext = nullptr;
  if (DGifGetExtension(gif, &code, &ext) != GIF_OK) return false;
  bool first = true, in_netscape = false;
  while (ext) {
    if (code == GRAPHICS_EXT_FUNC_CODE && first && ext[0] >= 4) {
      GraphicsControlBlock gcb{};
      DGifExtensionToGCB(ext[0], ext + 1, &gcb);
      pending.delay_cs = gcb.DelayTime;
      pending.transparent_index = gcb.TransparentColor;
      pending.disposal = gcb.DisposalMode;
    } else if (code == APPLICATION_EXT_FUNC_CODE && first) {
      in_netscape = ext[0] == 11 && std::memcmp(ext + 1, "NETSCAPE2.0", 11) == 0;
    } else if (in_netscape && !first && ext[0] >= 3 && ext[1] == 1) {
      params.GIF_Loop = platform::LoadLe16(ext + 2);
    }
    first = false;
    if (DGifGetExtensionNext(gif, &ext) != GIF_OK) return false;
  }
  return true;
}

// The screen, made when the first frame that is needed arrives.
pictavo::Status MakeCanvas(Canvas& canvas, int sw, int sh, size_t size, const DecodeOptions& opt) {
  const int cw = std::max(sw, 1), ch = std::max(sh, 1);
  if (auto st = CheckDimensions(cw, ch, opt.max_pixels); !st.ok()) return st;
  // The screen is mostly background that no data describes, so the data cannot bound it
  // tightly; still, a few kilobytes declaring a screen of hundreds of megapixels is a
  // bomb, not a picture: 4096 pixels a byte of file (4 MP for the smallest GIF) is far
  // beyond any real one.
  if (static_cast<uint64_t>(cw) * ch > (uint64_t{size} + 1024) * 4096)
    return Corrupt("GIF", "screen far larger than the file could hold");
  canvas.w = cw, canvas.h = ch;
  canvas.rgb.assign(static_cast<size_t>(cw) * ch * 3, 0);
  canvas.alpha.assign(static_cast<size_t>(cw) * ch, 0);
  return pictavo::Status::OK();
}

// Decodes frame `index` (one up to the frame asked for) and paints it on the screen; the frame
// asked for is also kept as it is.
pictavo::Status TakeFrame(GifFileType* gif, const GifImageDesc& d, int index, size_t size,
                          const DecodeOptions& opt, FrameScan& scan) {
  if (!ReadFrame(gif, d, scan.pixels)) return Corrupt("GIF", "frame data cut short");
  if (!scan.canvas_ready) {
    if (auto st = MakeCanvas(scan.canvas, gif->SWidth, gif->SHeight, size, opt); !st.ok())
      return st;
    scan.canvas_ready = true;
  }
  const ColorMapObject* map = MapOf(gif, d);
  if (index == opt.frame) {
    scan.target_desc = d;
    scan.target_pixels = scan.pixels;
    scan.target_map.reset(map ? GifMakeMapObject(map->ColorCount, map->Colors) : nullptr);
    scan.have_target = true;
  }
  Paint(scan.canvas, d, scan.pixels, map, scan.pending.transparent_index);
  if (index < opt.frame) {
    if (scan.pending.disposal == DISPOSE_BACKGROUND) ClearRect(scan.canvas, d);
    // DISPOSE_PREVIOUS is treated as "leave in place": rarely used, and safe.
  }
  return pictavo::Status::OK();
}

// Walks the records to the trailer: every frame's timing goes to the parameters, frames up to
// the one asked for are decoded when `decode`, the others skipped.
pictavo::Status ScanFrames(GifFileType* gif, size_t size, const DecodeOptions& opt, bool decode,
                           TIOParamsVals& params, FrameScan& scan) {
  // Compressed data of a frame cannot describe more than ~2730 pixels per byte (12-bit codes).
  const uint64_t max_frame_px = std::min<uint64_t>(opt.max_pixels, (uint64_t{size} + 64) * 4096);
  for (;;) {
    GifRecordType rec;
    if (DGifGetRecordType(gif, &rec) != GIF_OK) {
      if (scan.frames > 0 && (!decode || scan.have_target)) break;  // trailing garbage after ours
      return Corrupt("GIF", GifReason(gif->Error));
    }
    if (rec == TERMINATE_RECORD_TYPE) break;
    if (rec == EXTENSION_RECORD_TYPE) {
      if (!ReadExtension(gif, scan.pending, params)) return Corrupt("GIF", "bad extension");
      continue;
    }
    if (rec != IMAGE_DESC_RECORD_TYPE) continue;
    if (DGifGetImageDesc(gif) != GIF_OK) return Corrupt("GIF", GifReason(gif->Error));
    const GifImageDesc d = gif->Image;
    if (d.Width <= 0 || d.Height <= 0 ||
        static_cast<uint64_t>(d.Width) * static_cast<uint64_t>(d.Height) > max_frame_px)
      return Corrupt("GIF", "frame size out of range");
    // DGifGetImageDesc appends a SavedImage each time; keep the list short.
    const int index = scan.frames++;
    params.GIF_Frames.push_back(scan.pending);
    const bool needed = decode && index <= opt.frame;
    if (!needed) {
      if (!SkipFrame(gif)) {
        if (decode && scan.have_target) break;
        return Corrupt("GIF", "frame data cut short");
      }
    } else if (auto st = TakeFrame(gif, d, index, size, opt, scan); !st.ok()) {
      return st;
    }
    scan.pending = TGIFFrameInfo();
    // Free the raster giflib keeps per frame.
    if (gif->SavedImages && gif->ImageCount > 0) {
      GifFreeSavedImages(gif);
      gif->ImageCount = 0;  // giflib does not reset it, and indexes the next frame by it
    }
  }
  return pictavo::Status::OK();
}

// A single frame covering the screen stays a palette picture.
pictavo::Status SingleFrameBitmap(const FrameScan& scan, int sw, int sh, int transparent,
                                  TIEBitmap* bmp) {
  if (auto st = bmp->Allocate(sw, sh, TIEPixelFormat::ie8p); !st.ok()) return st;
  bmp->Palette().assign(256, TRGB{});
  if (const ColorMapObject* target = scan.target_map.get())
    for (int i = 0; i < target->ColorCount && i < 256; ++i)
      bmp->Palette()[i] =
          TRGB{target->Colors[i].Red, target->Colors[i].Green, target->Colors[i].Blue};
  const uint8_t* px = scan.target_pixels.data();
  for (int y = 0; y < sh; ++y) std::memcpy(bmp->Scanline(y), &px[static_cast<size_t>(y) * sw], sw);
  if (transparent >= 0) {
    bmp->AddAlphaChannel();
    for (int y = 0; y < sh; ++y)
      for (int x = 0; x < sw; ++x)
        bmp->AlphaScanline(y)[x] = px[static_cast<size_t>(y) * sw + x] == transparent ? 0 : 255;
  }
  return pictavo::Status::OK();
}

// The painted screen as RGB, with alpha where any of it is left clear.
pictavo::Status CanvasBitmap(const Canvas& canvas, TIEBitmap* bmp) {
  if (auto st = bmp->Allocate(canvas.w, canvas.h, TIEPixelFormat::ie24RGB); !st.ok()) return st;
  bool any_clear = false;
  for (int y = 0; y < canvas.h; ++y) {
    std::memcpy(bmp->Scanline(y), &canvas.rgb[static_cast<size_t>(y) * canvas.w * 3],
                static_cast<size_t>(canvas.w) * 3);
    for (int x = 0; x < canvas.w && !any_clear; ++x)
      any_clear = canvas.alpha[static_cast<size_t>(y) * canvas.w + x] < 255;
  }
  if (any_clear) {
    bmp->AddAlphaChannel();
    for (int y = 0; y < canvas.h; ++y)
      std::memcpy(bmp->AlphaScanline(y), &canvas.alpha[static_cast<size_t>(y) * canvas.w],
                  canvas.w);
  }
  return pictavo::Status::OK();
}

}  // namespace

pictavo::Status DecodeGIF(const uint8_t* data, size_t size, const DecodeOptions& opt,
                          TIEBitmap* bmp, TIOParamsVals& params) {
  MemIn in{data, size, 0};
  int err = 0;
  GifIn gif(DGifOpen(&in, ReadMem, &err));
  if (!gif) return Corrupt("GIF", GifReason(err));
  const int sw = gif->SWidth, sh = gif->SHeight;
  params.FileType = TIOFileType::ioGIF;
  params.BitsPerSample = 8;
  params.SamplesPerPixel = 1;
  params.GIF_Frames.clear();
  params.GIF_Loop = -1;
  const bool decode = !opt.params_only && bmp;
  FrameScan scan;
  if (auto st = ScanFrames(gif.get(), size, opt, decode, params, scan); !st.ok()) return st;
  const int frames = scan.frames;
  if (frames == 0) return Corrupt("GIF", "no frames");
  params.ImageCount = frames;
  params.Width = sw > 0 ? sw : 0;
  params.Height = sh > 0 ? sh : 0;
  if (opt.frame < 0 || opt.frame >= frames) return pictavo::Status::Error("GIF frame out of range");
  params.GIF_DelayTime = params.GIF_Frames[opt.frame].delay_cs;
  params.GIF_TransparentIndex = params.GIF_Frames[opt.frame].transparent_index;
  params.HasAlpha = params.GIF_TransparentIndex >= 0;
  if (!decode) return pictavo::Status::OK();
  if (!scan.have_target) return Corrupt("GIF", "frame missing");

  const GifImageDesc& target = scan.target_desc;
  if (frames == 1 && target.Left == 0 && target.Top == 0 && target.Width == sw &&
      target.Height == sh)
    return SingleFrameBitmap(scan, sw, sh, params.GIF_TransparentIndex, bmp);
  if (auto st = CanvasBitmap(scan.canvas, bmp); !st.ok()) return st;
  params.Width = scan.canvas.w;
  params.Height = scan.canvas.h;
  return pictavo::Status::OK();
}

pictavo::Status EncodeGIF(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& out) {
  return Write(nullptr, bmp, params, out);
}

pictavo::Status AppendGIF(const TIEBitmap& bmp, const TIOParamsVals& params,
                          std::vector<uint8_t>& file) {
  MemIn in{file.data(), file.size(), 0};
  int err = 0;
  GifIn gif(DGifOpen(&in, ReadMem, &err));
  if (!gif) return Corrupt("GIF", GifReason(err));
  if (DGifSlurp(gif.get()) != GIF_OK) return Corrupt("GIF", GifReason(gif->Error));
  std::vector<uint8_t> out;
  if (auto st = Write(gif.get(), bmp, params, out); !st.ok()) return st;
  file = std::move(out);
  return pictavo::Status::OK();
}

}  // namespace pictavo::imaging::codecs
