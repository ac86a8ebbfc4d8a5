// Raster adapters: the ImageMagick wrapper and the writers and readers of single raster formats
// (JPEG 2000, WebP, PNG optimisation, DDS, CALS, JPEG XR).
#include <algorithm>
#include <cctype>
#include <cstdio>
#include <cstdlib>

#include "utl/adapters/family.h"

namespace pictavo::utl {

// ---- ImageMagick ("convert.bin") ---------------------------------------------------------------

namespace {

// Options of `convert` that take no value; every other option takes one.
bool ImOptionTakesNoValue(const std::string& a) {
  static constexpr std::string_view kFlags[] = {
      "-monochrome",   "+dither",  "-flatten",  "-strip",       "-normalize", "-auto-level",
      "-negate",       "+adjoin",  "-adjoin",   "-quiet",       "-verbose",   "-coalesce",
      "-append",       "+append",  "-flip",     "-flop",        "+repage",    "-trim",
      "-despeckle",    "-enhance", "-equalize", "-auto-orient", "+matte",     "-matte",
      "-layers-merge", "-magnify", "-reverse",  "+profile-all"};
  for (std::string_view f : kFlags)
    if (a == f) return true;
  return false;
}

bool IsImOption(const std::string& a) {
  return a.size() > 1 && (a[0] == '-' || a[0] == '+') &&
         !std::isdigit(static_cast<unsigned char>(a[1]));
}

}  // namespace

// The output of `convert` is its last file; options written after it would be read as a file.
Args MoveImOptionsBeforeOutput(const Args& args) {
  long last_file = -1;
  for (size_t i = 0; i < args.size(); ++i) {
    if (IsImOption(args[i])) {
      if (!ImOptionTakesNoValue(args[i])) ++i;
    } else {
      last_file = static_cast<long>(i);
    }
  }
  if (last_file < 0 || last_file + 1 == static_cast<long>(args.size())) return args;
  Args out(args.begin(), args.begin() + last_file);
  out.insert(out.end(), args.begin() + last_file + 1, args.end());
  out.push_back(args[static_cast<size_t>(last_file)]);
  return out;
}

namespace {

bool IsPostScriptFamily(const std::string& path) {
  static constexpr std::string_view kExts[] = {"pdf", "ps", "eps", "epi", "epsf", "ai"};
  const std::string ext = Extension(path);
  return std::find(std::begin(kExts), std::end(kExts), ext) != std::end(kExts);
}

}  // namespace

Plan PlanConvert(const Args& args, const Context& ctx) {
  if (args.empty()) return Fail("convert.bin: no arguments");
  Args im = MoveImOptionsBeforeOutput(args);
  Plan p;
  // Debian's system policy forbids ImageMagick's PDF/PS coders and a user policy cannot lift
  // that, so PostScript-family inputs are rendered by Ghostscript first, one PNG per page.
  std::string density = "72";
  for (size_t i = 0; i + 1 < im.size(); ++i)
    if (im[i] == "-density") density = im[i + 1];
  for (size_t i = 0; i + 1 < im.size(); ++i) {
    if (IsImOption(im[i])) {
      if (!ImOptionTakesNoValue(im[i])) ++i;
      continue;
    }
    if (!IsPostScriptFamily(im[i])) continue;
    if (!ctx.has_program("gs"))
      return Fail("convert.bin: PDF and PostScript need gs (ghostscript)");
    const std::string pages = im.back() + ".~gs" + std::to_string(i);
    p.steps.push_back(
        Run({"gs", "-q", "-dSAFER", "-dBATCH", "-dNOPAUSE", "-dEPSCrop", "-sDEVICE=pngalpha",
             "-r" + density, "-sOutputFile=" + pages + "-%04d.png", SafeName(im[i])}));
    p.scratch.push_back(pages + "-*.png");
    im[i] = pages + "-*.png";  // ImageMagick expands the pattern itself, in name order
  }
  p.steps.push_back(ImStep(ctx, im));
  return p;
}

// ---- JPEG 2000 writer ("colorist.exe") ---------------------------------------------------------

Plan PlanColorist(const Args& args, const Context& ctx) {
  // convert "<src>" "<dest>" -f j2k -q <q>
  std::vector<std::string> files;
  int quality = 100;
  for (size_t i = 0; i < args.size(); ++i) {
    if (args[i] == "-q" && i + 1 < args.size())
      quality = std::atoi(args[++i].c_str());
    else if (args[i] == "-f" && i + 1 < args.size())
      ++i;  // the codestream kind follows the name
    else if (args[i] != "convert")
      files.push_back(args[i]);
  }
  if (files.size() != 2) return Fail("colorist.exe: expected convert SRC DEST");
  const std::string& src = files[0];
  const std::string& dest = files[1];
  Plan p;
  std::string input = src;
  static constexpr std::string_view kOpjInputs[] = {"bmp", "pgm", "ppm",  "pnm",
                                                    "png", "tif", "tiff", "tga"};
  const std::string ext = Extension(src);
  if (std::find(std::begin(kOpjInputs), std::end(kOpjInputs), ext) == std::end(kOpjInputs)) {
    if (!ctx.has_program(kImConvert))
      return Fail("colorist.exe: ." + ext + " input needs ImageMagick");
    input = dest + ".~in.png";
    p.steps.push_back(ImStep(ctx, {SafeName(src) + "[0]", "PNG:" + input}));
    p.scratch.push_back(input);
  }
  std::string dest_ext = Extension(dest);
  const bool named_for_opj = dest_ext == "jp2" || dest_ext == "j2k" || dest_ext == "j2c";
  const std::string out = named_for_opj ? dest + ".~out." + dest_ext : dest + ".~out.j2k";
  Args opj{"opj_compress", "-i", input, "-o", out};
  if (int ratio = JpegRatioForQuality(quality); ratio > 0) {
    opj.push_back("-r");
    opj.push_back(std::to_string(ratio));
  }
  p.steps.push_back(Run(opj));
  p.scratch.push_back(out);
  p.steps.push_back(Other(Step::Kind::kRename, {out, dest}));
  return p;
}

int JpegRatioForQuality(int quality) {
  if (quality >= 100) return 0;
  quality = std::clamp(quality, 1, 99);
  return (100 - quality) / 2 + 2;  // 85 -> 9:1, 50 -> 27:1, 1 -> 51:1
}

// ---- WebP writer ("webp_write.bin") ------------------------------------------------------------

Plan PlanWebp(const Args& args, const Context&) {
  Args argv{"cwebp", "-quiet"};
  Args split = SplitJoinedWebpSwitches(args);
  argv.insert(argv.end(), split.begin(), split.end());
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

Args SplitJoinedWebpSwitches(const Args& args) {
  // "-noalpha-alpha_q" is "-noalpha" and "-alpha_q" written without the blank between them.
  Args out;
  for (const std::string& a : args) {
    size_t joint = a.size() > 1 && a[0] == '-' ? a.find('-', 1) : std::string::npos;
    if (a.compare(0, 8, "-noalpha") == 0 && joint == 8 && a.size() > 9) {
      out.push_back(a.substr(0, 8));
      out.push_back(a.substr(8));
    } else {
      out.push_back(a);
    }
  }
  return out;
}

// ---- PNG optimiser ("pngoptim.bin") ------------------------------------------------------------

Plan PlanPngoptim(const Args& a, const Context&) {
  Args files = Files(a);
  if (files.empty() || files.size() > 2) return Fail("pngoptim.bin: expected INPUT [OUTPUT]");
  Args argv{"optipng", "-quiet", "-o2"};
  if (files.size() == 2) {
    argv.push_back("-clobber");
    argv.push_back("-out");
    argv.push_back(files[1]);
  }
  argv.push_back("--");
  argv.push_back(files[0]);
  Plan p;
  p.steps.push_back(Run(argv));
  return p;
}

// ---- DDS reader ("texconv.exe") ----------------------------------------------------------------

namespace {

// ImageMagick 6 decodes DXT1/3/5 and uncompressed DDS only. Surfaces that carry a DX10 header
// (BC6H, BC7 and every other DXGI format) or the ATI/BC4/BC5 codes go to Pillow's decoder.
bool DdsNeedsPillow(const std::string& path) {
  char head[132] = {};
  FILE* f = std::fopen(path.c_str(), "rb");
  if (f == nullptr) return false;
  const size_t got = std::fread(head, 1, sizeof head, f);
  std::fclose(f);
  if (got < 88 || std::string_view(head, 4) != "DDS ") return false;
  const std::string_view four_cc(head + 84, 4);  // in the pixel format record of the header
  for (const char* code : {"DX10", "ATI1", "ATI2", "BC4U", "BC4S", "BC5U", "BC5S"})
    if (four_cc == code) return true;
  return false;
}

// Debian's own interpreter, the one python3-pil is built for (another python3 may come first
// on the search path).
constexpr const char* kDebianPython = "/usr/bin/python3";
constexpr const char* kPillowToTiff =
    "import sys\n"
    "from PIL import Image\n"
    "with Image.open(sys.argv[1]) as im:\n"
    "    im.convert('RGB').save(sys.argv[2], 'TIFF')\n";

}  // namespace

Plan PlanTexconv(const Args& args, const Context& ctx) {
  // -f B8G8R8X8_UNORM -y -ft tif -o "<outdir>" "<in>": the output is <outdir>/<base>.tif
  std::string outdir, input;
  for (size_t i = 0; i < args.size(); ++i) {
    if ((args[i] == "-f" || args[i] == "-ft") && i + 1 < args.size())
      ++i;
    else if (args[i] == "-o" && i + 1 < args.size())
      outdir = args[++i];
    else if (args[i] != "-y")
      input = args[i];
  }
  if (input.empty()) return Fail("texconv.exe: no input");
  if (outdir.empty()) outdir = ".";
  if (outdir.back() != '/') outdir += '/';
  Plan p;
  const std::string output = outdir + BaseName(input) + ".tif";
  if (DdsNeedsPillow(input) && ctx.has_program(kDebianPython))
    p.steps.push_back(Run({kDebianPython, "-c", kPillowToTiff, input, output}));
  else
    p.steps.push_back(ImStep(ctx, {SafeName(input) + "[0]", "-alpha", "off", "TIFF:" + output}));
  return p;
}

// ---- CALS writer ("sc/sc.exe") -----------------------------------------------------------------

Plan PlanSc(const Args& args, const Context& ctx) {
  // "<in>.tif" "<dest>" CAL r<n>
  if (args.size() < 3 || Lower(args[2]) != "cal") return Fail("sc.exe: only CAL output is served");
  std::string density = "200";
  if (args.size() > 3 && args[3].size() > 1 && (args[3][0] == 'r' || args[3][0] == 'R'))
    density = args[3].substr(1);
  Plan p;
  p.steps.push_back(ImStep(
      ctx, {SafeName(args[0]) + "[0]", "-monochrome", "-density", density, "CALS:" + args[1]}));
  return p;
}

// ---- JPEG XR ("hdr_read.bin") ------------------------------------------------------------------

Plan PlanHdr(const Args& args, const Context& ctx) {
  Args files = Files(args);
  Plan p;
  if (files.size() == 2 && Extension(files[0]) == "jxr") {  // read: JPEG XR -> TIFF
    std::string out = files[1];
    bool tif = Extension(out) == "tif" || Extension(out) == "tiff";
    std::string target = tif ? out : out + ".~jxr.tif";
    p.steps.push_back(Run({"JxrDecApp", "-i", files[0], "-o", target}));
    if (!tif) {
      p.scratch.push_back(target);
      p.steps.push_back(ImStep(ctx, {target, out}));
    }
    return p;
  }
  if (files.size() == 3) {  // write: SRC DEST QUALITY
    int q = std::clamp(std::atoi(files[2].c_str()), 1, 100);
    const std::string bmp = files[1] + ".~jxr.bmp";
    p.steps.push_back(ImStep(
        ctx, {SafeName(files[0]) + "[0]", "-alpha", "off", "-type", "TrueColor", "BMP3:" + bmp}));
    p.scratch.push_back(bmp);
    char quality[16];
    std::snprintf(quality, sizeof quality, "%.2f", q / 100.0);
    p.steps.push_back(Run({"JxrEncApp", "-i", bmp, "-o", files[1], "-q", quality}));
    return p;
  }
  return Fail("hdr_read.bin: expected IN.jxr OUT, or SRC DEST QUALITY");
}

}  // namespace pictavo::utl
