// Times the engine's JPEG, PNG and TIFF decoders and encoders against libjpeg-turbo's
// djpeg/cjpeg, ImageMagick's convert and libvips on the same photo, and prints the ratios
// (engine time / other time: below 1 the engine is faster).
//
// Usage: codec_bench photo.jpg [runs]
// The photo is decoded once by the engine and written as PPM, PNG (level 6) and TIFF (LZW)
// into a scratch folder; every step then runs `runs` times (default 3) and the median counts.
// The programs run as whole commands, so their figures include process start; decoders write
// nowhere (djpeg to /dev/null, convert to null:, vips computes the average), encoders read the
// PPM and write a file, as the engine writes one.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "imaging/ie_io.h"

namespace {

using pictavo::imaging::TIEBitmap;
using pictavo::imaging::TImageEnIO;
using pictavo::imaging::TIOTIFFCompression;

int g_runs = 3;

double Median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v[v.size() / 2];
}

// Median wall time of `step` in seconds; a negative result when it failed.
double Time(const std::function<bool()>& step) {
  std::vector<double> times;
  for (int i = 0; i < g_runs; ++i) {
    const auto start = std::chrono::steady_clock::now();
    if (!step()) return -1;
    times.push_back(
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  return Median(times);
}

bool Have(const char* program) {
  return std::system((std::string("command -v ") + program + " >/dev/null 2>&1").c_str()) == 0;
}

double TimeCommand(const char* program, const std::string& args) {
  if (!Have(program)) return -1;
  const std::string cmd = std::string(program) + " " + args + " >/dev/null 2>&1";
  return Time([&] { return std::system(cmd.c_str()) == 0; });
}

void Row(const char* what, double ours,
         std::initializer_list<std::pair<const char*, double>> others) {
  std::printf("%-14s engine %7.3f s", what, ours);
  for (const auto& [name, t] : others) {
    if (t > 0)
      std::printf("  | %-7s %7.3f s  ratio %5.2f", name, t, ours / t);
    else
      std::printf("  | %-7s    n/a", name);
  }
  std::printf("\n");
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: codec_bench photo.jpg [runs]\n");
    return 2;
  }
  if (argc > 2) g_runs = std::max(1, std::atoi(argv[2]));
  const std::string photo = argv[1];
  const auto dir = std::filesystem::temp_directory_path() / "pictavo_codec_bench";
  std::filesystem::create_directories(dir);
  const auto at = [&](const char* name) { return "'" + (dir / name).string() + "'"; };
  const auto path = [&](const char* name) { return (dir / name).string(); };

  TIEBitmap bmp;
  TImageEnIO io(&bmp);
  if (!io.LoadFromFile(photo).ok()) {
    std::fprintf(stderr, "cannot load %s\n", photo.c_str());
    return 1;
  }
  io.Params().PNG_Compression = 6;
  io.Params().TIFF_Compression = TIOTIFFCompression::ioTIFF_LZW;
  io.Params().JPEG_Quality = 85;
  io.Params().JPEG_OptimalHuffman = true;
  io.Params().JPEG_Progressive = false;  // a load keeps the photo's own mode; cjpeg writes baseline
  if (!io.SaveToFile(path("src.ppm")).ok() || !io.SaveToFile(path("src.png")).ok() ||
      !io.SaveToFile(path("src.tif")).ok()) {
    std::fprintf(stderr, "cannot write the scratch files into %s\n", dir.c_str());
    return 1;
  }
  std::printf("%s: %d x %d (%.1f MP), median of %d runs\n", photo.c_str(), bmp.Width(),
              bmp.Height(), bmp.Width() * double(bmp.Height()) / 1e6, g_runs);

  const auto decode = [&](const std::string& file) {
    return Time([&] {
      TIEBitmap b;
      TImageEnIO d(&b);
      return d.LoadFromFile(file).ok();
    });
  };
  const auto encode = [&](const char* name) {
    return Time([&] { return io.SaveToFile(path(name)).ok(); });
  };
  const std::string jpg = "'" + photo + "'";

  const double jd = decode(photo), je = encode("ours.jpg");
  const double dj = TimeCommand("djpeg", "-outfile /dev/null " + jpg);
  const double cj = TimeCommand(
      "cjpeg", "-quality 85 -optimize -outfile " + at("cjpeg.jpg") + " " + at("src.ppm"));
  Row("JPEG decode", jd,
      {{"djpeg", dj},
       {"convert", TimeCommand("convert", jpg + " null:")},
       {"vips", TimeCommand("vips", "avg " + jpg)}});
  Row("JPEG encode", je,
      {{"cjpeg", cj},
       {"convert", TimeCommand("convert", at("src.ppm") + " -quality 85 " + at("im.jpg"))},
       {"vips", TimeCommand("vips", "copy " + at("src.ppm") + " '" + path("vips.jpg") +
                                        "[Q=85,optimize_coding]'")}});
  if (dj > 0 && cj > 0)
    std::printf("JPEG decode + encode: engine %.3f s, djpeg + cjpeg %.3f s, ratio %.2f\n", jd + je,
                dj + cj, (jd + je) / (dj + cj));
  Row("PNG decode", decode(path("src.png")),
      {{"convert", TimeCommand("convert", at("src.png") + " null:")},
       {"vips", TimeCommand("vips", "avg " + at("src.png"))}});
  Row("PNG encode", encode("ours.png"),
      {{"convert",
        TimeCommand("convert", at("src.ppm") + " -define png:compression-level=6 " + at("im.png"))},
       {"vips", TimeCommand("vips", "copy " + at("src.ppm") + " '" + path("vips.png") +
                                        "[compression=6]'")}});
  Row("TIFF decode", decode(path("src.tif")),
      {{"convert", TimeCommand("convert", at("src.tif") + " null:")},
       {"vips", TimeCommand("vips", "avg " + at("src.tif"))}});
  Row("TIFF encode", encode("ours.tif"),
      {{"convert", TimeCommand("convert", at("src.ppm") + " -compress lzw " + at("im.tif"))},
       {"vips", TimeCommand("vips", "copy " + at("src.ppm") + " '" + path("vips.tif") +
                                        "[compression=lzw]'")}});
  std::filesystem::remove_all(dir);
  return 0;
}
